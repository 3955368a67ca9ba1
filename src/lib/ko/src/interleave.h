// Interleaved pixels of three bytes, written a word at a time.
#ifndef KO_SRC_INTERLEAVE_H
#define KO_SRC_INTERLEAVE_H

#include <bit>
#include <cstdint>
#include <cstring>

namespace ko {

static_assert(std::endian::native == std::endian::little, "a word's low byte is stored first");

inline uint32_t pixel_word(uint8_t red, uint8_t green, uint8_t blue) {
    return uint32_t{red} | uint32_t{green} << 8 | uint32_t{blue} << 16;
}

// Writes count pixels of three bytes. A store takes a fourth byte along, which the next one overwrites; the last takes three.
inline void store_pixels(const uint32_t *words, uint64_t count, uint8_t *out) {
    for (uint64_t x = 0; x + 1 < count; ++x) {
        std::memcpy(out + 3 * x, &words[x], 4);
    }
    if (count != 0) {
        std::memcpy(out + 3 * (count - 1), &words[count - 1], 3);
    }
}

} // namespace ko

#endif
