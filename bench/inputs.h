// What both measuring programs use: the pictures and owners of the tests, and a clock.
#ifndef KO_BENCH_INPUTS_H
#define KO_BENCH_INPUTS_H

#include <cstdint>
#include <ctime>
#include <vector>

#include "ko.hpp"
#include "pictures.h"

namespace ko_bench {

using ko::ColorImagePtr;
using ko::Deleter;
using ko::FeaturesPtr;
using ko::HistogramPtr;
using ko::KernelGaussianPtr;
using ko::OrientationHistogramPtr;
using ko::RealImagePtr;
using ko::RedEyeCorrectionPtr;
using ko::RedEyeImageParamPtr;
using ko::TileColorTRCApplyPtr;
using ko::TileColorTRCPtr;
using ko::TileTRCApplyPtr;
using ko::TileTRCPtr;
using ko::TRCCompressPtr;
using ko::TRCPtr;

struct Size {
    uint32_t width;
    uint32_t height;

    uint64_t pixels() const { return uint64_t{width} * height; }
};

inline constexpr Size size_1_megapixel{1156, 867};
inline constexpr Size size_4_megapixels{2312, 1734};
inline constexpr Size size_16_megapixels{4624, 3468};
inline constexpr Size size_24_megapixels{6000, 4000};

// The bytes of a synthetic photograph: interleaved RGB for 3 channels, or 1 channel.
std::vector<uint8_t> photograph(Size size, uint64_t channels);

// The gray photograph as a plane of floats; null if memory is short.
RealImagePtr photograph_plane(Size size);

// Interleaved RGB as planes of floats; null if memory is short.
ColorImagePtr color_planes(Size size, const std::vector<uint8_t> &bytes);

// Fills a tone curve with one that opens the shadows, by one of eleven amounts.
void make_shadow_curve(uint32_t *curve, uint64_t levels, uint64_t amount);

// Hands a picture over in chunks of rows: apply(rows, input, output) for each, from its first byte on, true on success. The
// picture is interleaved or has one channel.
template <class Apply>
bool apply_in_chunks(Size size, uint64_t chunk_rows, const std::vector<uint8_t> &input, std::vector<uint8_t> &output,
                     Apply &&apply) {
    const uint64_t row_bytes = input.size() / size.height;
    bool good = true;
    for (uint64_t row = 0; good && row < size.height; row += chunk_rows) {
        const uint64_t offset = row * row_bytes;
        good = apply(chunk_rows, input.data() + offset, output.data() + offset);
    }
    return good;
}

// Seconds of processor time that work takes.
template <class Work> double seconds(Work &&work) {
    const std::clock_t start = std::clock();
    work();
    const std::clock_t end = std::clock();
    return static_cast<double>(end - start) / static_cast<double>(CLOCKS_PER_SEC);
}

double median(std::vector<double> values);

} // namespace ko_bench

#endif
