// The token stream of a curve, read in the plainest way.
#ifndef KO_TESTS_REFERENCE_TOKENS_H
#define KO_TESTS_REFERENCE_TOKENS_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace ko_test {

// Entries that a token may store past the end of its curve.
constexpr uint64_t token_room = 63;

// The bytes behind a token's first one, count of them; false if the stream ends before.
inline bool read_bytes_of_token(std::FILE *stream, size_t count, unsigned char *bytes) {
    return std::fread(bytes, 1, count, stream) == count;
}

// count steps of width bits each, the lowest bits of each byte first.
inline bool read_packed_steps(std::FILE *stream, size_t count, unsigned width, std::vector<uint32_t> *steps) {
    const size_t per_byte = 8 / width;
    unsigned char bytes[8] = {};
    if (!read_bytes_of_token(stream, (count + per_byte - 1) / per_byte, bytes)) {
        return false;
    }
    for (size_t k = 0; k < count; ++k) {
        steps->push_back((static_cast<uint32_t>(bytes[k / per_byte]) >> (width * (k % per_byte))) & ((1u << width) - 1));
    }
    return true;
}

// The steps of one token; false if the stream ends in it.
inline bool read_token(std::FILE *stream, std::vector<uint32_t> *steps) {
    unsigned char first = 0;
    unsigned char low = 0;
    steps->clear();
    if (!read_bytes_of_token(stream, 1, &first)) {
        return false;
    }
    if ((first & 1) != 0) {
        steps->assign(((first >> 1) & 31) + 1u, static_cast<uint32_t>(first >> 6));
        return true;
    }
    if ((first & 2) != 0) {
        return read_packed_steps(stream, (first >> 2) + 1u, 1, steps);
    }
    if ((first & 4) != 0) {
        return read_packed_steps(stream, (first >> 3) + 1u, 2, steps);
    }
    if ((first & 8) != 0) {
        steps->push_back(first >> 4);
        return true;
    }
    if (!read_bytes_of_token(stream, 1, &low)) {
        return false;
    }
    steps->push_back((first >> 4) * 256u + low);
    return true;
}

// A curve of size entries, with those that its last token goes past it; false if the stream ends before it is full.
inline bool read_tokens(std::FILE *stream, uint64_t size, std::vector<uint32_t> *curve) {
    uint32_t entry = 0;
    std::vector<uint32_t> steps;
    while (curve->size() < size) {
        if (!read_token(stream, &steps)) {
            return false;
        }
        for (const uint32_t step : steps) {
            entry += step;
            curve->push_back(entry);
        }
    }
    return true;
}

// True if a curve of at least one entry comes back from its own token stream: every step fits, and no lone entry is left over
// at the end.
inline bool survives_tokens(const uint32_t *curve, uint64_t size) {
    const auto step = [&](uint64_t i) { return curve[i] - (i == 0 ? 0 : curve[i - 1]); };
    for (uint64_t i = 0; i < size; ++i) {
        if (step(i) > 4095) {
            return false;
        }
    }
    return step(size - 1) > 3 || (size > 1 && step(size - 2) <= 3);
}

} // namespace ko_test

#endif
