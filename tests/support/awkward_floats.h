// Floats that arithmetic trips over.
#ifndef KO_TESTS_AWKWARD_FLOATS_H
#define KO_TESTS_AWKWARD_FLOATS_H

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

} // namespace ko_test

#endif
