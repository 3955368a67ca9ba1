// The bilateral filter of a plane, beside the same method put together from what OpenCV offers: at each of a few evenly spaced
// levels of the intensity the pixels are weighed by their distance from it, weights and weighted pixels are blurred, and the
// quotient counts at a pixel as far as it lies near the level.
#include <algorithm>
#include <memory>

#include <opencv2/imgproc.hpp>

#include "boxes.h"
#include "mats.h"
#include "rows.h"

namespace ko_peers {

namespace {

using namespace ko_bench;

constexpr Size size{2000, 1500};
constexpr int levels = 5;

// Work planes that serve all levels of one call.
struct Planes {
    cv::Mat distance;
    cv::Mat weights;
    cv::Mat weighted;
};

void add_level(const cv::Mat &input, double level, double step, double sigma, Planes &planes, cv::Mat &output) {
    cv::absdiff(input, level, planes.distance);
    cv::multiply(planes.distance, 1.0 / step, planes.distance);
    cv::multiply(planes.distance, planes.distance, planes.weights, -0.5);
    cv::exp(planes.weights, planes.weights);
    cv::multiply(planes.weights, input, planes.weighted);
    blur_by_boxes(planes.weights, sigma, planes.weights);
    blur_by_boxes(planes.weighted, sigma, planes.weighted);
    cv::divide(planes.weighted, planes.weights, planes.weighted);
    cv::min(planes.distance, 1.0, planes.distance);
    cv::subtract(1.0, planes.distance, planes.distance);
    cv::accumulateProduct(planes.weighted, planes.distance, output);
}

cv::Mat filter(const cv::Mat &input) {
    double minimum = 0.0;
    double maximum = 0.0;
    cv::minMaxLoc(input, &minimum, &maximum);
    const double step = (maximum - minimum) / levels;
    const double sigma = std::min(input.cols, input.rows) / 50.0;
    cv::Mat output = cv::Mat::zeros(input.size(), CV_32FC1);
    Planes planes;
    for (int i = 0; i <= levels; ++i) {
        add_level(input, minimum + i * step, step, sigma, planes, output);
    }
    cv::max(output, minimum, output);
    cv::min(output, maximum, output);
    return output;
}

Race bilateral() {
    const std::shared_ptr<RealImage> image = photograph_plane(size);
    const auto result = std::make_shared<FreshImage>();
    const auto output = std::make_shared<cv::Mat>();
    const cv::Mat input = view_of(image.get()).clone();
    return {{"ko", [=] { require_ok(KoFilterBLFApplyToRealImage(image.get(), result->address(), levels)); },
             [=] { result->drop(); }},
            {{"OpenCV, 3 boxes", [=] { *output = filter(input); }, [=] { output->release(); }}},
            [=] { require_near_on_average(view_of(result->get()), *output, 0.5); }};
}

} // namespace

std::vector<Row> bilateral_rows() { return {{"bilateral filter 3 MP, 5 levels", {0.18, 0.35}, 7, bilateral}}; }

} // namespace ko_peers
