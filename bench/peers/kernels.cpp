// Dense kernels over a plane, which make their result anew each time.
#include <memory>

#include <opencv2/imgproc.hpp>

#include "mats.h"
#include "rows.h"

namespace ko_peers {

namespace {

using namespace ko_bench;

constexpr Size size{4000, 3000};
constexpr float sigma = 2.0f;

Race dense_kernel(uint64_t width, uint64_t height) {
    const std::shared_ptr<RealImage> kernel = RealImagePtr(KoKernelNewGaussian(width, height, sigma));
    const std::shared_ptr<RealImage> image = photograph_plane(size);
    const auto result = std::make_shared<FreshImage>();
    const auto output = std::make_shared<cv::Mat>();
    const cv::Mat weights = view_of(kernel.get()).clone();
    const cv::Mat input = view_of(image.get()).clone();
    return {{"ko", [=] { require_ok(KoKernelNewRealImage(kernel.get(), image.get(), result->address())); },
             [=] { result->drop(); }},
            {{"OpenCV filter2D",
              [=] {
                  cv::filter2D(input, *output, CV_32F, weights, {-1, -1}, 0.0, cv::BORDER_CONSTANT);
              },
              [=] { output->release(); }}},
            [=] { require_near(view_of(result->get()), *output, 1e-2); }};
}

} // namespace

std::vector<Row> kernel_rows() {
    constexpr Goals goals{0.95, 0.95};
    return {{"dense kernel 3 x 3, 12 MP", goals, 7, [] { return dense_kernel(3, 3); }},
            {"dense kernel 13 x 1, 12 MP", goals, 7, [] { return dense_kernel(13, 1); }},
            {"dense kernel 1 x 13, 12 MP", goals, 7, [] { return dense_kernel(1, 13); }}};
}

} // namespace ko_peers
