// Pictures whose judgement is known: each of the 8 by 8 blocks fails at most one measure.
#ifndef KO_TESTS_HOST_JUDGED_PICTURES_H
#define KO_TESTS_HOST_JUDGED_PICTURES_H

#include <array>
#include <cstdint>
#include <string>

#include "image_files.h"

namespace ko_test {

// How many blocks fail each measure; the others fail none. They are laid out in this order, row by row.
struct Faults {
    uint32_t low_detail = 0;
    uint32_t low_entropy = 0;
    uint32_t noisy = 0;
};

inline constexpr uint32_t block_side = 40;
inline constexpr uint32_t judged_side = 8 * block_side;

// Reproducible noise of a pixel, 0 to 2^16 - 1.
inline uint32_t scatter(uint32_t x, uint32_t y) {
    const uint32_t mixed = (x * 73856093u ^ y * 19349663u) * 2654435761u;
    return (mixed ^ mixed >> 15) * 2246822519u >> 16;
}

// Dark and full of detail: much to gain.
inline uint32_t dark_texture(uint32_t x, uint32_t y) { return scatter(x, y) % 100; }

// Flat in luminance and rough in colour: the colours lie to both sides of a gray of 60 along the third axis of YIQ.
inline uint32_t rough_colour(uint32_t x, uint32_t y, uint32_t c) {
    constexpr std::array<uint32_t, 3> up = {72, 47, 94};
    constexpr std::array<uint32_t, 3> down = {48, 73, 26};
    return (x + y) % 2 == 0 ? up[c] : down[c];
}

inline uint32_t judged_sample(const Faults &faults, uint32_t x, uint32_t y, uint32_t c) {
    const uint32_t block = y / block_side * 8 + x / block_side;
    if (block < faults.low_detail) {
        return 200; // bright: nothing is gained, and there are no dark tones to count
    }
    if (block < faults.low_detail + faults.low_entropy) {
        return scatter(x, y) % 2 == 0 ? 10 : 90; // two tones
    }
    if (block < faults.low_detail + faults.low_entropy + faults.noisy && x % block_side >= block_side / 2) {
        return rough_colour(x, y, c);
    }
    return dark_texture(x, y);
}

inline Sample judged_samples(const Faults &faults) {
    return [faults](uint32_t x, uint32_t y, uint32_t c) { return judged_sample(faults, x, y, c); };
}

inline std::string judged_png(const Faults &faults, int colour = png_rgb) {
    return png_file({judged_side, judged_side, 8, colour, false, {}, {}}, judged_samples(faults));
}

} // namespace ko_test

#endif
