// The library's own exponential against the C library's: equal after rounding to single precision, for the distances that the
// bilateral filter weighs.
#include "../src/lib/ko/src/exponential.h"

#include <bit>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace {

float exponential(double x) {
    float result = 0.0f;
    ko::exp_of_negatives(&x, 1, &result);
    return result;
}

TEST(Exponential, AgreesWithTheSystemsInSinglePrecision) {
    constexpr uint32_t stride = 61; // every float between the bounds agrees; a part of them keeps the test short
    const auto last = std::bit_cast<uint32_t>(120.0f);
    for (auto bits = std::bit_cast<uint32_t>(3e-8f); bits < last; bits += stride) {
        const auto distance = std::bit_cast<float>(bits);
        const double exponent = static_cast<double>(-(distance * distance)) * 0.5;
        ASSERT_EQ(exponential(exponent), static_cast<float>(std::exp(exponent))) << distance;
    }
}

TEST(Exponential, IsOneAtZero) { EXPECT_EQ(exponential(0.0), 1.0f); }

TEST(Exponential, VanishesFarOut) {
    for (const double x : {-200.0, -701.0, -1e10, -std::numeric_limits<double>::infinity()}) {
        EXPECT_EQ(exponential(x), 0.0f) << x;
    }
}

TEST(Exponential, KeepsNotANumber) { EXPECT_TRUE(std::isnan(exponential(std::numeric_limits<double>::quiet_NaN()))); }

TEST(Exponential, GivesAWholePieceElementByElement) {
    double x[ko::exp_piece];
    float together[ko::exp_piece];
    for (uint64_t i = 0; i < ko::exp_piece; ++i) {
        x[i] = -0.37 * static_cast<double>(i);
    }
    ko::exp_of_negatives(x, ko::exp_piece, together);
    for (uint64_t i = 0; i < ko::exp_piece; ++i) {
        EXPECT_EQ(together[i], exponential(x[i])) << i;
    }
}

} // namespace
