// Other sizes of a plane by the nearest pixel, into an image that exists.
#include <memory>

#include <opencv2/imgproc.hpp>

#include "mats.h"
#include "rows.h"

namespace ko_peers {

namespace {

using namespace ko_bench;

constexpr Size large{4000, 3000};
constexpr Size middle{2100, 1575};
constexpr Size small{1600, 1200};
constexpr double noise = 8.0; // between neighbours of the photograph, where two rules take one or the other

// resample(image, result) fills a plane of the new size from one of the old size.
template <class Resample> Race resize_race(Size from, Size to, Resample resample) {
    const std::shared_ptr<RealImage> image = photograph_plane(from);
    const std::shared_ptr<RealImage> result = RealImagePtr(KoRealImageNew(to.width, to.height));
    const cv::Mat input = view_of(image.get()).clone();
    const auto output = std::make_shared<cv::Mat>();
    const cv::Size new_size(static_cast<int>(to.width), static_cast<int>(to.height));
    return {{"ko",
             [=] {
                 RealImage *target = result.get();
                 require_ok(resample(image.get(), &target));
             }},
            {{"OpenCV resize, nearest", [=] { cv::resize(input, *output, new_size, 0.0, 0.0, cv::INTER_NEAREST_EXACT); }}},
            [=] { require_near_on_average(view_of(result.get()), *output, noise); }};
}

Race resize() {
    return resize_race(large, middle, [](const RealImage *image, RealImage **result) {
        return KoRealImageResize(image, middle.width, middle.height, result);
    });
}

Race downsample() {
    return resize_race(large, small,
                       [](const RealImage *image, RealImage **result) { return KoRealImageDownsample(image, 0.0f, result); });
}

Race upsample() {
    return resize_race(small, large,
                       [](const RealImage *image, RealImage **result) { return KoRealImageUpsample(image, 0.0f, result); });
}

} // namespace

std::vector<Row> resize_rows() {
    constexpr Goals goals{0.95, 0.95};
    return {{"nearest resize 12 to 3.3 MP", goals, 11, resize},
            {"downsampling by 2.5, 12 MP", goals, 11, downsample},
            {"upsampling by 2.5, to 12 MP", goals, 11, upsample}};
}

} // namespace ko_peers
