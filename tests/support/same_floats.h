// Comparison of floats bit for bit, where any NaN equals any other.
#ifndef KO_TESTS_SAME_FLOATS_H
#define KO_TESTS_SAME_FLOATS_H

#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

namespace ko_test {

inline bool same_float(float a, float b) {
    return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b) || (std::isnan(a) && std::isnan(b));
}

inline bool same_float(double a, double b) {
    return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b) || (std::isnan(a) && std::isnan(b));
}

// Succeeds if both have the same length and the same bits; otherwise tells the first difference.
template <class T> testing::AssertionResult same_floats(const std::vector<T> &expected, const std::vector<T> &actual) {
    if (expected.size() != actual.size()) {
        return testing::AssertionFailure() << "sizes " << expected.size() << " and " << actual.size();
    }
    for (size_t i = 0; i < expected.size(); ++i) {
        if (!same_float(expected[i], actual[i])) {
            return testing::AssertionFailure()
                   << "element " << i << " of " << expected.size() << ": expected " << testing::PrintToString(expected[i])
                   << ", is " << testing::PrintToString(actual[i]);
        }
    }
    return testing::AssertionSuccess();
}

} // namespace ko_test

#endif
