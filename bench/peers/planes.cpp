// Bytes to planes and back, RGB to YIQ, and the transpose, each into what exists.
#include <array>
#include <memory>

#include <opencv2/imgproc.hpp>

#include "mats.h"
#include "rows.h"

namespace ko_peers {

namespace {

using namespace ko_bench;

constexpr Size size{4000, 3000};

using Mats = std::array<cv::Mat, 3>;

// Three planes of a type that are all written once, so that the first round finds them mapped.
Mats mapped_planes(int type) {
    Mats planes;
    for (cv::Mat &plane : planes) {
        plane = cv::Mat::zeros(static_cast<int>(size.height), static_cast<int>(size.width), type);
    }
    return planes;
}

void require_same_planes(const ColorImage *image, const Mats &planes, double tolerance) {
    for (uint32_t i = 0; i < planes.size(); ++i) {
        require_near(view_of(&image->planes[i]), planes[i], tolerance);
    }
}

Race bytes_to_planes() {
    const auto bytes = std::make_shared<std::vector<uint8_t>>(photograph(size, 3));
    const std::shared_ptr<ColorImage> image = color_planes(size, *bytes);
    const auto parts = std::make_shared<Mats>(mapped_planes(CV_8UC1));
    const auto planes = std::make_shared<Mats>(mapped_planes(CV_32FC1));
    return {{"ko",
             [=] {
                 require_ok(KoColorImageFromByteArray(image.get(), bytes->data(), 0, size.height, KO_BYTE_LAYOUT_INTERLEAVED));
             }},
            {{"OpenCV split, convertTo",
              [=] {
                  cv::split(view_of(size, *bytes), *parts);
                  for (std::size_t i = 0; i < parts->size(); ++i) {
                      (*parts)[i].convertTo((*planes)[i], CV_32F);
                  }
              }}},
            [=] { require_same_planes(image.get(), *planes, 0.0); }};
}

Race planes_to_bytes() {
    const std::vector<uint8_t> bytes = photograph(size, 3);
    const std::shared_ptr<ColorImage> image = color_planes(size, bytes);
    const auto output = std::make_shared<std::vector<uint8_t>>(bytes.size());
    const auto planes = std::make_shared<Mats>();
    cv::split(view_of(size, bytes), *planes);
    for (cv::Mat &plane : *planes) {
        plane.convertTo(plane, CV_32F);
    }
    const auto parts = std::make_shared<Mats>(mapped_planes(CV_8UC1));
    const auto merged = std::make_shared<cv::Mat>();
    return {
        {"ko",
         [=] { require_ok(KoColorImageToByteArray(image.get(), output->data(), 0, size.height, KO_BYTE_LAYOUT_INTERLEAVED)); }},
        {{"OpenCV convertTo, merge",
          [=] {
              for (std::size_t i = 0; i < parts->size(); ++i) {
                  (*planes)[i].convertTo((*parts)[i], CV_8U);
              }
              cv::merge(*parts, *merged);
          }}},
        [=] { require_near(view_of(size, *output), *merged, 0.0); }};
}

// The peer's picture is interleaved, as its transformation of channels wants it.
Race rgb_to_yiq() {
    const std::vector<uint8_t> bytes = photograph(size, 3);
    const std::shared_ptr<ColorImage> image = color_planes(size, bytes);
    const std::shared_ptr<ColorImage> result = ColorImagePtr(KoColorImageNew(size.width, size.height, KO_COLORSPACE_YIQ));
    cv::Mat input;
    view_of(size, bytes).convertTo(input, CV_32F);
    const auto output = std::make_shared<cv::Mat>();
    const float *numbers = KoColorSpaceGetConversionMatrix(KO_COLORSPACE_RGB, KO_COLORSPACE_YIQ);
    const cv::Mat matrix = cv::Mat(3, 3, CV_32FC1, const_cast<float *>(numbers)).clone();
    return {{"ko", [=] { require_ok(KoColorImageFromColorImage(result.get(), image.get())); }},
            {{"OpenCV transform", [=] { cv::transform(input, *output, matrix); }}},
            [=] {
                Mats planes;
                cv::split(*output, planes);
                require_same_planes(result.get(), planes, 1e-3);
            }};
}

Race transpose() {
    const std::shared_ptr<RealImage> image = photograph_plane(size);
    const std::shared_ptr<RealImage> result = RealImagePtr(KoRealImageNew(size.height, size.width));
    const cv::Mat input = view_of(image.get()).clone();
    const auto output = std::make_shared<cv::Mat>();
    return {{"ko",
             [=] {
                 RealImage *target = result.get();
                 require_ok(KoRealImageTranspose(image.get(), &target));
             }},
            {{"OpenCV transpose", [=] { cv::transpose(input, *output); }}},
            [=] { require_near(view_of(result.get()), *output, 0.0); }};
}

} // namespace

std::vector<Row> plane_rows() {
    return {{"RGB to YIQ 12 MP", {0.85, 0.8}, 11, rgb_to_yiq},
            {"bytes to planes 12 MP", {0.75, 0.7}, 11, bytes_to_planes},
            {"planes to bytes 12 MP", {0.75, 0.7}, 11, planes_to_bytes},
            {"transpose 12 MP", {0.65, 0.65}, 11, transpose}};
}

} // namespace ko_peers
