// Pictures and curves built in memory, and owners that delete the library's objects at the end of their life.
#ifndef KO_TESTS_PICTURES_H
#define KO_TESTS_PICTURES_H

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "ko.h"

namespace ko_test {

template <auto Delete> struct Deleter {
    template <class T> void operator()(T *object) const { Delete(object); }
};

using VectorPtr = std::unique_ptr<Vector, Deleter<KoVectorDelete>>;
using MatrixFloatPtr = std::unique_ptr<MatrixFloat, Deleter<KoMatrixFloatDelete>>;
using MatrixIntegerPtr = std::unique_ptr<MatrixInteger, Deleter<KoMatrixIntegerDelete>>;
using RealImagePtr = std::unique_ptr<RealImage, Deleter<KoRealImageDelete>>;
using ColorImagePtr = std::unique_ptr<ColorImage, Deleter<KoColorImageDelete>>;
using LinePtr = std::unique_ptr<RealImageLineIterator, Deleter<KoRealImageLineIteratorDelete>>;
using TrcPtr = std::unique_ptr<TRC, Deleter<KoTRCDelete>>;
using ColorTrcPtr = std::unique_ptr<ColorTRC, Deleter<KoColorTRCDelete>>;
using TileTrcPtr = std::unique_ptr<TileTRC, Deleter<KoTileTRCDelete>>;
using TileColorTrcPtr = std::unique_ptr<TileColorTRC, Deleter<KoTileColorTRCDelete>>;
using ApplyPtr = std::unique_ptr<TileTRCApply, Deleter<KoTileTRCApplyDelete>>;
using ColorApplyPtr = std::unique_ptr<TileColorTRCApply, Deleter<KoTileColorTRCApplyDelete>>;
using GaussianPtr = std::unique_ptr<KernelGaussian, Deleter<KoKernelGaussianDelete>>;
using FeaturesPtr = std::unique_ptr<LocalContrastEnhancementImageFeatures, Deleter<KoLocalContrastEnhancementDelete>>;

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
