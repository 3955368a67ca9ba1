// The average over areas in its plainest form: for each pixel of the result, the sum over all pixels that it overlaps.
#ifndef KO_TESTS_HOST_REFERENCE_AVERAGE_H
#define KO_TESTS_HOST_REFERENCE_AVERAGE_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "image_files.h"

namespace ko_test {

// How much of pixel "from" of "size" lies below pixel "to" of "reduced". The unit makes the whole line size * reduced long.
inline uint64_t overlap(uint64_t from, uint64_t size, uint64_t to, uint64_t reduced) {
    const uint64_t begin = std::max(from * reduced, to * size);
    const uint64_t end = std::min((from + 1) * reduced, (to + 1) * size);
    return begin < end ? end - begin : 0;
}

// A picture at a smaller size, each level the nearest to the exact average, the higher one of two that are equally near.
inline Pixels averaged(const Pixels &picture, uint32_t width, uint32_t height) {
    Pixels result{width, height, picture.channels, {}};
    const uint64_t whole = uint64_t{picture.width} * picture.height;
    for (uint64_t y = 0; y < height; ++y) {
        for (uint64_t x = 0; x < width; ++x) {
            std::vector<uint64_t> sums(picture.channels, 0);
            for (uint64_t v = y * picture.height / height; v < picture.height && v * height < (y + 1) * picture.height; ++v) {
                for (uint64_t u = x * picture.width / width; u < picture.width && u * width < (x + 1) * picture.width; ++u) {
                    const uint64_t weight = overlap(u, picture.width, x, width) * overlap(v, picture.height, y, height);
                    for (uint64_t c = 0; c < picture.channels; ++c) {
                        sums[c] += weight * picture.bytes[(v * picture.width + u) * picture.channels + c];
                    }
                }
            }
            for (const uint64_t sum : sums) {
                result.bytes.push_back(static_cast<uint8_t>((2 * sum + whole) / (2 * whole)));
            }
        }
    }
    return result;
}

} // namespace ko_test

#endif
