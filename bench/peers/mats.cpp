#include "mats.h"

#include <string>

#include "race.h"

namespace ko_peers {

namespace {

double mean_difference(const cv::Mat &a, const cv::Mat &b) {
    require(a.size() == b.size() && a.type() == b.type(), "results of different sizes or types");
    return cv::norm(a, b, cv::NORM_L1) / (static_cast<double>(a.total()) * a.channels());
}

} // namespace

cv::Mat view_of(const RealImage *image) {
    const uint64_t stride = (image->width + image->padding) * sizeof(float);
    return {static_cast<int>(image->height), static_cast<int>(image->width), CV_32FC1, image->rows[0], stride};
}

cv::Mat view_of(ko_bench::Size size, std::vector<uint8_t> &bytes) {
    const auto channels = static_cast<int>(bytes.size() / size.pixels());
    return {static_cast<int>(size.height), static_cast<int>(size.width), CV_8UC(channels), bytes.data()};
}

cv::Mat view_of(ko_bench::Size size, const std::vector<uint8_t> &bytes) {
    return view_of(size, const_cast<std::vector<uint8_t> &>(bytes));
}

void require_near(const cv::Mat &a, const cv::Mat &b, double tolerance) {
    mean_difference(a, b);
    const double difference = cv::norm(a, b, cv::NORM_INF);
    require(difference <= tolerance, "results differ by up to " + std::to_string(difference));
}

void require_near_on_average(const cv::Mat &a, const cv::Mat &b, double tolerance) {
    const double difference = mean_difference(a, b);
    require(difference <= tolerance, "results differ by " + std::to_string(difference) + " on average");
}

void require_changed(const cv::Mat &input, const cv::Mat &output) {
    require(mean_difference(input, output) >= 1.0, "a result is as its input");
}

} // namespace ko_peers
