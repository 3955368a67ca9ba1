// The walk of every resampling: a result is filled with selected elements of a source. A direction is mapped by a cursor, which
// is asked for the source's position of each result's position in rising order.
#ifndef KO_SRC_SAMPLING_H
#define KO_SRC_SAMPLING_H

#include <algorithm>
#include <cstring>

#include "ko/matrix_float.h"

namespace ko {

// Columns between two hints at the next row: about a cache line of the source.
constexpr uint64_t sampled_at_once = 8;

// Fills width by height elements of a result from a source that has elements. Columns are mapped piece by piece and serve all
// rows; a row that repeats the one before is copied.
template <class Cursor>
void sample(const MatrixFloat *source, MatrixFloat *result, uint64_t width, uint64_t height, Cursor columns,
            const Cursor &rows) {
    constexpr uint64_t piece = 4096;
    for (uint64_t start = 0; start < width; start += piece) {
        const uint64_t length = std::min(piece, width - start);
        uint32_t indices[piece];
        for (uint64_t x = 0; x < length; ++x) {
            indices[x] = static_cast<uint32_t>(columns(start + x));
        }
        Cursor row = rows;
        uint64_t previous = UINT64_MAX;
        for (uint64_t y = 0; y < height; ++y) {
            const uint64_t source_y = row(y);
            float *out = result->rows[y] + start;
            if (source_y == previous) {
                std::memcpy(out, result->rows[y - 1] + start, length * sizeof(float));
                continue;
            }
            previous = source_y;
            const float *in = source->rows[source_y];
            // Where rows are left out, the processor does not foresee which one is read next.
            const float *next = y + 1 < height ? source->rows[Cursor(row)(y + 1)] : in;
            uint64_t x = 0;
            for (; x + sampled_at_once <= length; x += sampled_at_once) {
                __builtin_prefetch(next + indices[x]);
                for (uint64_t i = x; i < x + sampled_at_once; ++i) {
                    out[i] = in[indices[i]];
                }
            }
            for (; x < length; ++x) {
                out[x] = in[indices[x]];
            }
        }
    }
}

} // namespace ko

#endif
