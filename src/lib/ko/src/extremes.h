// The extremes of rows of floats, by lanes. A NaN is none.
#ifndef KO_SRC_EXTREMES_H
#define KO_SRC_EXTREMES_H

#include "lanes.h"

namespace ko {

// The most extreme of some values and of the one before; beats(a, b) is true if a replaces b, for floats and for vectors.
// Which of several equal values it is is left open: zeros of both signs are equal.
template <class Beats> float most_extreme(const float *values, uint64_t count, float before, Beats beats) {
    Floats best = before - Floats{};
    uint64_t x = 0;
    for (; x + float_lanes <= count; x += float_lanes) {
        const auto next = load<Floats>(values + x);
        best = beats(next, best) ? next : best;
    }
    float extreme = before;
    for (uint64_t i = 0; i < float_lanes; ++i) {
        extreme = beats(best[i], extreme) ? best[i] : extreme;
    }
    for (; x < count; ++x) {
        extreme = beats(values[x], extreme) ? values[x] : extreme;
    }
    return extreme;
}

inline float largest(const float *values, uint64_t count, float before) {
    return most_extreme(values, count, before, [](const auto &a, const auto &b) { return a > b; });
}

inline float smallest(const float *values, uint64_t count, float before) {
    return most_extreme(values, count, before, [](const auto &a, const auto &b) { return a < b; });
}

} // namespace ko

#endif
