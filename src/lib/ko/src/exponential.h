// The exponential of numbers that are not positive, in double precision, as a plain expression that a compiler can vectorise
// and that gives the same on every platform.
#ifndef KO_SRC_EXPONENTIAL_H
#define KO_SRC_EXPONENTIAL_H

#include <bit>
#include <cstdint>

namespace ko {

// exp(x) for x <= 0, within one unit in the last place; below -700 the result is that of -700, which is 0 in single precision.
// A NaN gives a NaN.
inline double exp_of_negative(double x) {
    // x = k ln 2 + r with |r| <= ln 2 / 2. Adding the shifter leaves k in the low bits of the sum.
    constexpr double shifter = 0x1.8p52;
    constexpr double ln2_high = 0x1.62e42feep-1; // few enough bits that its product with k is exact
    constexpr double ln2_low = 0x1.a39ef35793c76p-33;
    const double bounded = x < -700.0 ? -700.0 : x;
    const double shifted = bounded * 0x1.71547652b82fep0 + shifter;
    const double k = shifted - shifter;
    const double r = (bounded - k * ln2_high) - k * ln2_low;
    // The series of exp(r) behind 1 + r, to the power 13.
    const double tail =
        ((((((((((r * (1.0 / 6227020800.0) + 1.0 / 479001600.0) * r + 1.0 / 39916800.0) * r + 1.0 / 3628800.0) * r +
               1.0 / 362880.0) *
                  r +
              1.0 / 40320.0) *
                 r +
             1.0 / 5040.0) *
                r +
            1.0 / 720.0) *
               r +
           1.0 / 120.0) *
              r +
          1.0 / 24.0) *
             r +
         1.0 / 6.0) *
            r +
        0.5;
    const double power = 1.0 + (r + r * r * tail);
    const double scaled = std::bit_cast<double>(std::bit_cast<int64_t>(power) + (std::bit_cast<int64_t>(shifted) << 52));
    return x == x ? scaled : x;
}

} // namespace ko

#endif
