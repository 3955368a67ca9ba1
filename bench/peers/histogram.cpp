// Counting the pixels of a plane of floats into 256 bins. The peer counts bytes far faster than floats, and goes there first.
#include <memory>

#include <opencv2/imgproc.hpp>

#include "mats.h"
#include "rows.h"

namespace ko_peers {

namespace {

using namespace ko_bench;

constexpr Size size{4000, 3000};
constexpr int bins = 256;

void count_bytes(const cv::Mat &input, cv::Mat &bytes, cv::Mat &counters) {
    constexpr int channel = 0;
    constexpr float range[] = {0.0f, bins};
    const float *ranges = range;
    input.convertTo(bytes, CV_8U);
    cv::calcHist(&bytes, 1, &channel, cv::noArray(), counters, 1, &bins, &ranges);
}

void require_same_counters(const Histogram *histogram, const cv::Mat &counters) {
    for (int bin = 0; bin < bins; ++bin) {
        const auto count = static_cast<float>(KoHistogramGetValue(histogram, static_cast<uint32_t>(bin)));
        require(count == counters.at<float>(bin), "counters differ");
    }
}

Race count_pixels() {
    const std::shared_ptr<RealImage> image = photograph_plane(size);
    const std::shared_ptr<Histogram> histogram(KoHistogramNew(bins, 0.0f, bins - 1.0f), KoHistogramDelete);
    const cv::Mat input = view_of(image.get()).clone();
    const auto bytes = std::make_shared<cv::Mat>();
    const auto counters = std::make_shared<cv::Mat>();
    return {{"ko", [=] { require_ok(KoHistogramCompute(histogram.get(), image.get())); }},
            {{"OpenCV calcHist of bytes", [=] { count_bytes(input, *bytes, *counters); }}},
            [=] { require_same_counters(histogram.get(), *counters); }};
}

} // namespace

std::vector<Row> histogram_rows() { return {{"histogram 12 MP, 256 bins", {0.65, 0.9}, 11, count_pixels}}; }

} // namespace ko_peers
