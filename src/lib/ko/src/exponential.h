// The exponential of numbers that are not positive, in double precision, as plain expressions that a compiler can vectorise and
// that give the same on every platform.
#ifndef KO_SRC_EXPONENTIAL_H
#define KO_SRC_EXPONENTIAL_H

#include <cstdint>

#include "bits.h"

namespace ko {

// x = k ln 2 + rest with |rest| <= ln 2 / 2; adding the shifter to k leaves k in the low bits of the sum.
constexpr double exp_shifter = 0x1.8p52;

// k + exp_shifter. Below -700 the result is that of -700, whose exponential is 0 in single precision.
inline double exp_shifted(double x) { return (x < -700.0 ? -700.0 : x) * 0x1.71547652b82fep0 + exp_shifter; }

// What is left of x, with ln 2 in two parts: the product of k and the high part is exact.
inline double exp_rest(double x, double shifted) {
    const double k = shifted - exp_shifter;
    return ((x < -700.0 ? -700.0 : x) - k * 0x1.62e42feep-1) - k * 0x1.a39ef35793c76p-33;
}

// exp(r) by its series to the power 13, in short chains of additions.
inline double exp_series(double r) {
    const double r2 = r * r;
    const double r4 = r2 * r2;
    const double low = (1.0 / 2.0 + 1.0 / 6.0 * r) + (1.0 / 24.0 + 1.0 / 120.0 * r) * r2;
    const double middle = (1.0 / 720.0 + 1.0 / 5040.0 * r) + (1.0 / 40320.0 + 1.0 / 362880.0 * r) * r2;
    const double high = (1.0 / 3628800.0 + 1.0 / 39916800.0 * r) + (1.0 / 479001600.0 + 1.0 / 6227020800.0 * r) * r2;
    const double tail = (low + middle * r4) + high * (r4 * r4);
    return 1.0 + (r + r2 * tail);
}

// power times 2 to the k; a power that is a NaN stays one.
inline double exp_scaled(double power, double shifted) {
    const double scaled = bit_cast<double>(bit_cast<int64_t>(power) + (bit_cast<int64_t>(shifted) << 52));
    return power == power ? scaled : power;
}

// Elements of an array that are worked on at a time.
constexpr uint64_t exp_piece = 128;

// Sets result[i] to exp(x[i]) rounded to single precision, for x[i] <= 0; within one unit in the last place before the
// rounding. count is at most exp_piece. Step by step over the whole piece: each step is short enough that many elements are on
// their way at once.
inline void exp_of_negatives(const double *x, uint64_t count, float *result) {
    double shifted[exp_piece];
    double power[exp_piece];
    for (uint64_t i = 0; i < count; ++i) {
        shifted[i] = exp_shifted(x[i]);
        power[i] = exp_rest(x[i], shifted[i]);
    }
    for (uint64_t i = 0; i < count; ++i) {
        power[i] = exp_series(power[i]);
    }
    for (uint64_t i = 0; i < count; ++i) {
        result[i] = static_cast<float>(exp_scaled(power[i], shifted[i]));
    }
}

} // namespace ko

#endif
