// Pictures and curves built in memory.
#ifndef KO_TESTS_PICTURES_H
#define KO_TESTS_PICTURES_H

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "ko.hpp"

namespace ko_test {

using ko::ColorImagePtr;
using ko::ColorTRCPtr;
using ko::Deleter;
using ko::FeaturesPtr;
using ko::HistogramPtr;
using ko::KernelGaussianPtr;
using ko::MatrixFloatPtr;
using ko::MatrixIntegerPtr;
using ko::OrientationHistogramPtr;
using ko::RealImageLineIteratorPtr;
using ko::RealImagePtr;
using ko::RedEyeCorrectionPtr;
using ko::RedEyeImageParamPtr;
using ko::TileColorTRCApplyPtr;
using ko::TileColorTRCPtr;
using ko::TileTRCApplyPtr;
using ko::TileTRCPtr;
using ko::TRCCompressPtr;
using ko::TRCPtr;
using ko::VectorPtr;

// An image whose pixel (x, y) is value(x, y).
RealImagePtr make_image(uint64_t width, uint64_t height, const std::function<float(uint64_t x, uint64_t y)> &value);

// An image of the given pixels, row by row.
RealImagePtr make_image(uint64_t width, uint64_t height, const std::vector<float> &pixels);

// A picture whose channel c of pixel (x, y) is value(c, x, y).
ColorImagePtr make_color_image(uint32_t width, uint32_t height, int32_t space,
                               const std::function<float(uint32_t c, uint64_t x, uint64_t y)> &value);

// An image of any bits, NaNs with payloads and signalling ones among them, for what moves pixels and never computes them.
RealImagePtr bit_image(uint64_t width, uint64_t height, uint32_t seed);

// The pixels, row by row, without padding.
std::vector<float> pixels(const RealImage *image);

// True if all padding floats are 0.
bool padding_is_zero(const RealImage *image);

// Reproducible noise: the next of a sequence of 32-bit numbers.
class Noise {
  public:
    explicit Noise(uint32_t seed) : state_(seed * 2654435761u + 1u) {}
    uint32_t next();
    // from low (inclusive) to high (exclusive)
    float uniform(float low, float high);
    uint8_t byte() { return static_cast<uint8_t>(next() >> 24); }

  private:
    uint32_t state_;
};

std::vector<uint8_t> noise_bytes(uint64_t count, uint32_t seed);

// A synthetic photograph: smooth light, dark corners, some texture; interleaved RGB, or one byte a pixel.
std::vector<uint8_t> photograph(uint64_t width, uint64_t height, uint64_t channels, uint32_t seed);

} // namespace ko_test

#endif
