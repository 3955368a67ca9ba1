// Interleaved pixels of three bytes, read and written four at a time; each lies in the low three bytes of a word.
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

// Four interleaved pixels as words, and back. They are twelve bytes; up to four more are read and written.
#ifdef __AVX2__
// The processors of this build move bytes of a vector to any place.
inline Bytes load_four(const uint8_t *in) {
    const auto bytes = load<Bytes>(in);
    return __builtin_shufflevector(bytes, Bytes{}, 0, 1, 2, 16, 3, 4, 5, 16, 6, 7, 8, 16, 9, 10, 11, 16);
}

inline void store_four(const uint32_t *words, uint8_t *out) {
    const auto bytes = load<Bytes>(words);
    store(__builtin_shufflevector(bytes, bytes, 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 3, 7, 11, 15), out);
}
#else
// Two words hold two pixels, six bytes apart.
using Pairs = uint64_t __attribute__((vector_size(16)));

inline Pairs load_four(const uint8_t *in) {
    uint64_t first;
    uint64_t second;
    std::memcpy(&first, in, 8);
    std::memcpy(&second, in + 6, 8);
    const Pairs bytes = {first, second};
    return (bytes & 0xffffff) | (bytes << 8 & 0xffffff00000000);
}

inline void store_four(const uint32_t *words, uint8_t *out) {
    const auto pairs = load<Pairs>(words);
    const Pairs bytes = (pairs & 0xffffff) | (pairs >> 8 & 0xffffff000000);
    const uint64_t first = bytes[0];
    const uint64_t second = bytes[1];
    std::memcpy(out, &first, 8);
    std::memcpy(out + 6, &second, 8);
}
#endif

// Pixels that must be left for four to be read or written together with the bytes behind them.
constexpr uint64_t four_and_more = 6;

// Reads count pixels.
inline void load_pixels(const uint8_t *in, uint64_t count, uint32_t *words) {
    uint64_t x = 0;
    for (; x + four_and_more <= count; x += 4) {
        store(load_four(in + 3 * x), words + x);
    }
    for (; x < count; ++x) {
        words[x] = pixel_word(in[3 * x], in[3 * x + 1], in[3 * x + 2]);
    }
}

// Writes count pixels. What a store writes behind its four pixels is overwritten by the stores that follow.
inline void store_pixels(const uint32_t *words, uint64_t count, uint8_t *out) {
    uint64_t x = 0;
    for (; x + four_and_more <= count; x += 4) {
        store_four(words + x, out + 3 * x);
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
