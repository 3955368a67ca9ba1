#include "boxes.h"

#include <cmath>

#include <opencv2/imgproc.hpp>

namespace ko_peers {

namespace {

int box_width(double sigma) { return static_cast<int>(std::sqrt(4.0 * sigma * sigma + 1.0)) / 2 * 2 + 1; }

} // namespace

void blur_by_boxes(const cv::Mat &input, double sigma, cv::Mat &output) {
    const cv::Size box(box_width(sigma), box_width(sigma));
    cv::boxFilter(input, output, CV_32F, box);
    cv::boxFilter(output, output, CV_32F, box);
    cv::boxFilter(output, output, CV_32F, box);
}

} // namespace ko_peers
