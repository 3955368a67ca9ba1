// The library's own exponential against the C library's: equal after rounding to single precision, for the distances that the
// bilateral filter weighs.
#include "../src/lib/ko/src/exponential.h"

#include <bit>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace {

float weight(float distance, double (*exponential)(double)) {
    return static_cast<float>(exponential(static_cast<double>(-(distance * distance)) * 0.5));
}

double library_exponential(double x) { return ko::exp_of_negative(x); }
double system_exponential(double x) { return std::exp(x); }

TEST(Exponential, AgreesWithTheSystemsInSinglePrecision) {
    constexpr uint32_t stride = 61; // every float between the bounds agrees; a part of them keeps the test short
    const auto last = std::bit_cast<uint32_t>(120.0f);
    for (auto bits = std::bit_cast<uint32_t>(3e-8f); bits < last; bits += stride) {
        const auto distance = std::bit_cast<float>(bits);
        ASSERT_EQ(weight(distance, library_exponential), weight(distance, system_exponential)) << distance;
    }
}

TEST(Exponential, IsOneAtZero) { EXPECT_EQ(ko::exp_of_negative(0.0), 1.0); }

TEST(Exponential, VanishesFarOut) {
    for (const double x : {-701.0, -1e10, -std::numeric_limits<double>::infinity()}) {
        EXPECT_EQ(static_cast<float>(ko::exp_of_negative(x)), 0.0f);
    }
}

TEST(Exponential, KeepsNotANumber) {
    EXPECT_TRUE(std::isnan(ko::exp_of_negative(std::numeric_limits<double>::quiet_NaN())));
}

} // namespace
