// The library's images as matrices of OpenCV, and how far two matrices agree.
#ifndef KO_BENCH_PEERS_MATS_H
#define KO_BENCH_PEERS_MATS_H

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

#include "inputs.h"

namespace ko_peers {

// An image that a job makes anew each time.
class FreshImage {
  public:
    FreshImage() = default;
    ~FreshImage() { drop(); }
    FreshImage(const FreshImage &) = delete;
    FreshImage &operator=(const FreshImage &) = delete;

    RealImage **address() { return &image_; }
    const RealImage *get() const { return image_; }
    void drop() {
        KoRealImageDelete(image_);
        image_ = nullptr;
    }

  private:
    RealImage *image_ = nullptr;
};

// The pixels of an image, which stay the image's. The result has gaps behind its rows: inputs of a peer are copies, without
// gaps and with its preferred alignment.
cv::Mat view_of(const RealImage *image);

// The bytes of a picture, which stay the vector's; nothing may write to the first one.
cv::Mat view_of(ko_bench::Size size, const std::vector<uint8_t> &bytes);
cv::Mat view_of(ko_bench::Size size, std::vector<uint8_t> &bytes);

// Throw unless a and b have the same size and type and differ by at most tolerance, everywhere or on average.
void require_near(const cv::Mat &a, const cv::Mat &b, double tolerance);
void require_near_on_average(const cv::Mat &a, const cv::Mat &b, double tolerance);

// Throws if two matrices differ by less than one step on average: a result that is practically its input.
void require_changed(const cv::Mat &input, const cv::Mat &output);

} // namespace ko_peers

#endif
