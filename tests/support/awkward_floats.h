// Floats that arithmetic trips over.
#ifndef KO_TESTS_AWKWARD_FLOATS_H
#define KO_TESTS_AWKWARD_FLOATS_H

#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <vector>

#include "pictures.h"

namespace ko_test {

constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

// Reproducible floats from -300 to 300, every fifth a zero of either sign, an infinity, a NaN, a denormal or a huge value.
inline std::vector<float> awkward_floats(uint64_t count, uint32_t seed) {
    constexpr float awkward[] = {0.0f,       -0.0f, infinity, -infinity, not_a_number, 1e-40f,
                                 -3.25e-41f, 3e38f, -3e38f,   1.0f,      16777216.0f,  std::numeric_limits<float>::min()};
    Noise noise(seed);
    std::vector<float> values;
    for (uint64_t i = 0; i < count; ++i) {
        values.push_back(noise.next() % 5 == 0 ? awkward[noise.next() % std::size(awkward)] : noise.uniform(-300.0f, 300.0f));
    }
    return values;
}

// The floats around which a conversion to an integer changes: integers, halves and powers of 2 of either sign, each with its
// two neighbours; zeros, denormals, infinities and NaNs.
inline const std::vector<float> &turning_floats() {
    static const std::vector<float> values = [] {
        std::vector<float> all{
            0.0f,      -0.0f,     1e-40f, -1e-40f, 1e-45f,       -1e-45f,       std::numeric_limits<float>::min(),
            infinity,  -infinity, 3e38f,  -3e38f,  not_a_number, -not_a_number, 8388607.5f,
            8388606.5f};
        const auto add = [&all](float value) {
            for (const float each : {value, std::nextafter(value, infinity), std::nextafter(value, -infinity)}) {
                all.push_back(each);
                all.push_back(-each);
            }
        };
        for (int halves = 1; halves <= 1040; ++halves) {
            add(static_cast<float>(halves) / 2.0f);
        }
        for (int exponent = -30; exponent <= 66; ++exponent) {
            add(std::ldexp(1.0f, exponent));
            add(std::ldexp(1.5f, exponent));
        }
        for (const float value : {65534.5f, 65535.0f, 65535.5f, 131071.5f, 65792.0f, 33554431.0f}) {
            add(value);
        }
        return all;
    }();
    return values;
}

// count turning floats, each third one an ordinary value of a picture instead.
inline std::vector<float> turning_noise(uint64_t count, uint32_t seed) {
    Noise noise(seed);
    const std::vector<float> &turning = turning_floats();
    std::vector<float> values;
    for (uint64_t i = 0; i < count; ++i) {
        values.push_back(noise.next() % 3 == 0 ? noise.uniform(0.0f, 256.0f) : turning[noise.next() % turning.size()]);
    }
    return values;
}

} // namespace ko_test

#endif
