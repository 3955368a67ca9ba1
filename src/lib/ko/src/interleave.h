// Interleaved pixels of three bytes, read and written as the low bytes of a word each: two at a time, or four where the build's
// processor moves bytes of a vector to other places.
#ifndef KO_SRC_INTERLEAVE_H
#define KO_SRC_INTERLEAVE_H

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "convert.h"
#include "lanes.h"

namespace ko {

static_assert(std::endian::native == std::endian::little, "a word's low byte is stored first");

// The values are at most 255.
inline uint32_t pixel_word(uint32_t red, uint32_t green, uint32_t blue) { return red | green << 8 | blue << 16; }

// Reads count pixels. A load of eight bytes holds two pixels and two bytes of the next, one of sixteen four pixels and four
// bytes more; the last two pixels have none behind them.
inline void load_pixels(const uint8_t *in, uint64_t count, uint32_t *words) {
    uint64_t x = 0;
#ifdef __AVX2__
    for (; x + 6 <= count; x += 4) {
        const Bytes bytes = load<Bytes>(in + 3 * x);
        store(__builtin_shufflevector(bytes, Bytes{}, 0, 1, 2, 16, 3, 4, 5, 16, 6, 7, 8, 16, 9, 10, 11, 16), words + x);
    }
#endif
    for (; x + 2 < count; x += 2) {
        uint64_t bytes;
        std::memcpy(&bytes, in + 3 * x, 8);
        const uint64_t pair = (bytes & 0xffffff) | (bytes << 8 & 0xffffff00000000);
        std::memcpy(words + x, &pair, 8);
    }
    for (; x < count; ++x) {
        words[x] = pixel_word(in[3 * x], in[3 * x + 1], in[3 * x + 2]);
    }
}

// Writes count pixels. A store takes two or four bytes along, which the next one overwrites; the last two pixels take three
// bytes each.
inline void store_pixels(const uint32_t *words, uint64_t count, uint8_t *out) {
    uint64_t x = 0;
#ifdef __AVX2__
    for (; x + 6 <= count; x += 4) {
        const Bytes bytes = load<Bytes>(words + x);
        store(__builtin_shufflevector(bytes, bytes, 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 3, 7, 11, 15), out + 3 * x);
    }
#endif
    for (; x + 2 < count; x += 2) {
        uint64_t pair;
        std::memcpy(&pair, words + x, 8);
        pair = (pair & 0xffffff) | (pair >> 8 & 0xffffff000000);
        std::memcpy(out + 3 * x, &pair, 8);
    }
    for (; x < count; ++x) {
        std::memcpy(out + 3 * x, &words[x], 3);
    }
}

// The low 8 bits of the truncated values of three channels as interleaved pixels.
inline void floats_to_pixels(const float *red, const float *green, const float *blue, uint64_t count, uint8_t *out) {
    constexpr uint64_t piece = 256;
    for (uint64_t start = 0; start < count; start += piece) {
        const uint64_t length = std::min(piece, count - start);
        uint32_t words[piece];
        for (uint64_t x = start; x < start + length; ++x) {
            words[x - start] = pixel_word(wrapped_bits(red[x]), wrapped_bits(green[x]), wrapped_bits(blue[x]));
        }
        store_pixels(words, length, out + 3 * start);
    }
}

} // namespace ko

#endif
