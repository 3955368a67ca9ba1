// Calls of the enhancement: records, pictures, the arguments that may vary, and the variable that sets the judgement's
// background.
#ifndef KO_TESTS_ENHANCEMENT_H
#define KO_TESTS_ENHANCEMENT_H

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <vector>

#include "ko.h"
#include "pictures.h"

namespace ko_test {

constexpr uint64_t not_measured = std::numeric_limits<uint64_t>::max();
constexpr int32_t never = 0;
constexpr int32_t always = 4;

// Sets the variable KOLCEFLAGS, or removes it for null. What an Init has read from it outlives the record.
inline void set_flags(const char *value) {
#ifdef _WIN32
    _putenv_s("KOLCEFLAGS", value != nullptr ? value : "");
#else
    if (value != nullptr) {
        setenv("KOLCEFLAGS", value, 1);
    } else {
        unsetenv("KOLCEFLAGS");
    }
#endif
}

inline FeaturesPtr make_features(uint64_t size = 256, uint64_t blocks_x = 8, uint64_t blocks_y = 8) {
    return FeaturesPtr(KoLocalContrastEnhancementNew(size, blocks_x, blocks_y));
}

// Leaves the process as a start finds it: no variable, and the recursive blur as background.
inline void forget_flags() {
    set_flags("BACKGROUND:GaussFast");
    make_features();
    set_flags(nullptr);
}

// The arguments of a call that may vary.
struct Gain {
    float max_gain = 3.0f;
    float strength = 40.0f;
    float limit_fraction = 0.6275f;
    uint64_t levels = 5;
};

inline int32_t enhance(LocalContrastEnhancementImageFeatures *features, ColorImage *image, TileTRC **grid,
                       const Gain &gain = {}, int32_t configuration = always, float score = 0.4f) {
    return KoLocalContrastEnhancementGetNewTRCsTune(features, image, gain.max_gain, gain.strength, gain.limit_fraction,
                                                    gain.levels, score, configuration, grid);
}

// A picture with light, shadows and texture; RGB, YIQ (the same numbers) or GRAY.
inline ColorImagePtr make_picture(uint32_t width, uint32_t height, int32_t space, uint32_t seed = 1) {
    const uint64_t depth = space == KO_COLORSPACE_GRAY ? 1 : 3;
    const std::vector<uint8_t> bytes = photograph(width, height, depth, seed);
    return make_color_image(width, height, space, [&](uint32_t c, uint64_t x, uint64_t y) {
        return static_cast<float>(bytes[(y * width + x) * depth + c]);
    });
}

// Values from low to high without any order; coloured where there are channels to differ.
inline ColorImagePtr noisy_picture(uint32_t width, uint32_t height, int32_t space, float low, float high, uint32_t seed) {
    Noise noise(seed);
    return make_color_image(width, height, space, [&](uint32_t, uint64_t, uint64_t) { return noise.uniform(low, high); });
}

} // namespace ko_test

#endif
