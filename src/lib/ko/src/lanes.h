// Lanes: a few values side by side, on which the operators of the language work element by element, as g++ and clang offer
// them. They are for loops that the compiler does not vectorise as they stand: every element gets the operations that it would
// get alone, in the same order. A vector has as many lanes as fit a register of the processors that a build
// is for.
#ifndef KO_SRC_LANES_H
#define KO_SRC_LANES_H

#include <cstdint>
#include <cstring>

namespace ko {

#ifdef __AVX2__
constexpr uint64_t lane_bytes = 32;
#else
constexpr uint64_t lane_bytes = 16;
#endif

using Floats = float __attribute__((vector_size(lane_bytes)));
using Ints = int32_t __attribute__((vector_size(lane_bytes)));
using Doubles = double __attribute__((vector_size(lane_bytes)));
using NarrowFloats = float __attribute__((vector_size(lane_bytes / 2))); // as many as Doubles

// Four lanes in every build.
using Quad = float __attribute__((vector_size(16)));
using Bytes = uint8_t __attribute__((vector_size(16)));

constexpr uint64_t float_lanes = sizeof(Floats) / sizeof(float);
constexpr uint64_t double_lanes = sizeof(Doubles) / sizeof(double);

// from and to need no alignment, and may be of any element type.
template <class Vector> inline Vector load(const void *from) {
    Vector lanes;
    std::memcpy(&lanes, from, sizeof lanes);
    return lanes;
}

template <class Vector> inline void store(const Vector &lanes, void *to) { std::memcpy(to, &lanes, sizeof lanes); }

// Element by element what static_cast does. A float must fit its integer, as there.
template <class To, class From> inline To convert(const From &lanes) { return __builtin_convertvector(lanes, To); }

// As many doubles as a value holds, from floats and to floats. Widening is written element by element: g++ turns the conversion
// of vectors into several instructions.
template <class Value> Value widened(const float *from);

template <> inline double widened(const float *from) { return static_cast<double>(*from); }

template <> inline Doubles widened(const float *from) {
    const auto lanes = load<NarrowFloats>(from);
#ifdef __AVX2__
    return Doubles{lanes[0], lanes[1], lanes[2], lanes[3]};
#else
    return Doubles{lanes[0], lanes[1]};
#endif
}

inline void store_narrowed(double value, float *to) { *to = static_cast<float>(value); }
inline void store_narrowed(const Doubles &values, float *to) { store(convert<NarrowFloats>(values), to); }

// Four rows of four floats.
struct Square {
    Quad rows[4];

    // Rows become columns.
    void transpose() {
        const Quad upper_left = __builtin_shufflevector(rows[0], rows[1], 0, 4, 1, 5);
        const Quad upper_right = __builtin_shufflevector(rows[0], rows[1], 2, 6, 3, 7);
        const Quad lower_left = __builtin_shufflevector(rows[2], rows[3], 0, 4, 1, 5);
        const Quad lower_right = __builtin_shufflevector(rows[2], rows[3], 2, 6, 3, 7);
        rows[0] = __builtin_shufflevector(upper_left, lower_left, 0, 1, 4, 5);
        rows[1] = __builtin_shufflevector(upper_left, lower_left, 2, 3, 6, 7);
        rows[2] = __builtin_shufflevector(upper_right, lower_right, 0, 1, 4, 5);
        rows[3] = __builtin_shufflevector(upper_right, lower_right, 2, 3, 6, 7);
    }

    template <class To> void store_to(To to) const {
        store(rows[0], to(0));
        store(rows[1], to(1));
        store(rows[2], to(2));
        store(rows[3], to(3));
    }
};

// As many rows of as many floats as a vector has lanes. Row by row instead of in loops, for which g++ would keep the vectors in
// memory.
#ifdef __AVX2__
struct LargeSquare {
    Floats rows[8];

    // Pairs of rows are interleaved by elements and then by pairs, within each half of a vector; then halves change places.
    void transpose() {
        const Floats a = lower_elements(rows[0], rows[1]);
        const Floats b = upper_elements(rows[0], rows[1]);
        const Floats c = lower_elements(rows[2], rows[3]);
        const Floats d = upper_elements(rows[2], rows[3]);
        const Floats e = lower_elements(rows[4], rows[5]);
        const Floats f = upper_elements(rows[4], rows[5]);
        const Floats g = lower_elements(rows[6], rows[7]);
        const Floats h = upper_elements(rows[6], rows[7]);
        join_halves(lower_pairs(a, c), lower_pairs(e, g), &rows[0], &rows[4]);
        join_halves(upper_pairs(a, c), upper_pairs(e, g), &rows[1], &rows[5]);
        join_halves(lower_pairs(b, d), lower_pairs(f, h), &rows[2], &rows[6]);
        join_halves(upper_pairs(b, d), upper_pairs(f, h), &rows[3], &rows[7]);
    }

    template <class To> void store_to(To to) const {
        store(rows[0], to(0));
        store(rows[1], to(1));
        store(rows[2], to(2));
        store(rows[3], to(3));
        store(rows[4], to(4));
        store(rows[5], to(5));
        store(rows[6], to(6));
        store(rows[7], to(7));
    }

  private:
    static Floats lower_elements(const Floats &a, const Floats &b) {
        return __builtin_shufflevector(a, b, 0, 8, 1, 9, 4, 12, 5, 13);
    }
    static Floats upper_elements(const Floats &a, const Floats &b) {
        return __builtin_shufflevector(a, b, 2, 10, 3, 11, 6, 14, 7, 15);
    }
    static Floats lower_pairs(const Floats &a, const Floats &b) {
        return __builtin_shufflevector(a, b, 0, 1, 8, 9, 4, 5, 12, 13);
    }
    static Floats upper_pairs(const Floats &a, const Floats &b) {
        return __builtin_shufflevector(a, b, 2, 3, 10, 11, 6, 7, 14, 15);
    }
    static void join_halves(const Floats &a, const Floats &b, Floats *lower, Floats *upper) {
        *lower = __builtin_shufflevector(a, b, 0, 1, 2, 3, 8, 9, 10, 11);
        *upper = __builtin_shufflevector(a, b, 4, 5, 6, 7, 12, 13, 14, 15);
    }
};

template <class From> LargeSquare load_square(From from) {
    return {{load<Floats>(from(0)), load<Floats>(from(1)), load<Floats>(from(2)), load<Floats>(from(3)), load<Floats>(from(4)),
             load<Floats>(from(5)), load<Floats>(from(6)), load<Floats>(from(7))}};
}
#else
using LargeSquare = Square;

template <class From> LargeSquare load_square(From from) {
    return {{load<Floats>(from(0)), load<Floats>(from(1)), load<Floats>(from(2)), load<Floats>(from(3))}};
}
#endif

constexpr uint64_t square_side = float_lanes;

// Transposes a large square in memory: row i is read at from(i), and column i is written at to(i). All is read before anything
// is written.
template <class From, class To> inline void transpose_square(From from, To to) {
    LargeSquare square = load_square(from);
    square.transpose();
    square.store_to(to);
}

} // namespace ko

#endif
