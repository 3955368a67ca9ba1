// The Gaussian blurs of a plane.
#include <memory>

// The header draws windows unless it is asked not to.
#define cimg_display 0
#include <CImg.h>
#include <opencv2/imgproc.hpp>

#include "boxes.h"
#include "gegl_graph.h"
#include "mats.h"
#include "rows.h"

namespace ko_peers {

namespace {

using namespace ko_bench;

constexpr int32_t finite = 0;
constexpr int32_t recursive = 1;
constexpr float truncation = 1.75f;

// The results of a recursive blur and its peers, made anew each time.
struct RecursiveBlur {
    static constexpr Size size = size_24_megapixels;
    static constexpr float sigma = 60.0f;

    RecursiveBlur()
        : kernel(KoKernelGaussianNewTune(sigma, truncation, recursive)), image(photograph_plane(size)),
          input(view_of(image.get()).clone()), picture(input, "Y float"), cimg(input.ptr<float>(), size.width, size.height) {}

    void check() const {
        const cv::Mat ours = view_of(result.get());
        require_near_on_average(ours, boxes, 1.0);
        require_near_on_average(ours, cv::Mat(boxes.size(), CV_32FC1, const_cast<float *>(deriche.data())), 1.0);
        require_near_on_average(ours, iir, 1.0);
    }

    KernelGaussianPtr kernel;
    RealImagePtr image;
    cv::Mat input;
    GeglPicture picture;
    cimg_library::CImg<float> cimg;
    FreshImage result;
    cv::Mat boxes;
    cimg_library::CImg<float> deriche;
    cv::Mat iir;
};

Race recursive_blur() {
    const auto job = std::make_shared<RecursiveBlur>();
    const Contender ko{
        "ko", [=] { require_ok(KoKernelGaussianConvolution(job->kernel.get(), job->image.get(), job->result.address())); },
        [=] { job->result.drop(); }};
    const Contender boxes{"OpenCV, 3 boxes", [=] { blur_by_boxes(job->input, RecursiveBlur::sigma, job->boxes); },
                          [=] { job->boxes.release(); }};
    const Contender deriche{"CImg, Deriche", [=] { job->deriche = job->cimg.get_blur(RecursiveBlur::sigma, true, false); },
                            [=] { job->deriche.assign(); }};
    const Contender iir{"GEGL, recursive",
                        [=] {
                            job->iir.create(job->input.size(), CV_32FC1);
                            job->picture.run(
                                "gegl:gaussian-blur",
                                {{"std-dev-x", RecursiveBlur::sigma}, {"std-dev-y", RecursiveBlur::sigma}, {"filter", 2}},
                                job->iir);
                        },
                        [=] { job->iir.release(); }};
    return {ko, {boxes, deriche, iir}, [=] { job->check(); }};
}

Race finite_blur() {
    constexpr Size size{4000, 3000};
    const std::shared_ptr<KernelGaussian> kernel = KernelGaussianPtr(KoKernelGaussianNewTune(4.0f, truncation, finite));
    const std::shared_ptr<RealImage> image = photograph_plane(size);
    const std::shared_ptr<RealImage> result = RealImagePtr(KoRealImageNew(size.width, size.height));
    const cv::Mat taps(1, static_cast<int>(kernel->width), CV_32FC1, kernel->coefficients);
    const cv::Mat input = view_of(image.get()).clone();
    const cv::Mat output(input.size(), CV_32FC1);
    require(taps.cols == 15, "the kernel does not have 15 taps");
    return {{"ko",
             [=] {
                 RealImage *target = result.get();
                 require_ok(KoKernelGaussianConvolution(kernel.get(), image.get(), &target));
             }},
            {{"OpenCV sepFilter2D",
              [=] {
                  cv::sepFilter2D(input, output, CV_32F, taps, taps, {-1, -1}, 0.0, cv::BORDER_CONSTANT);
              }}},
            [=] { require_near(view_of(result.get()), output, 1e-2); }};
}

} // namespace

std::vector<Row> blur_rows() {
    return {{"recursive blur 24 MP, sigma 60", {0.42, 0.55}, 5, recursive_blur},
            {"finite blur 12 MP, 15 taps", {0.95, 0.95}, 7, finite_blur}};
}

} // namespace ko_peers
