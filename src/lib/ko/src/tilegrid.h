// What grids of curves have in common, with one curve at a tile or three: their counts, a plane of curves, and the file header
// that says the counts. A grid's planes are all there or all null.
#ifndef KO_SRC_TILEGRID_H
#define KO_SRC_TILEGRID_H

#include <cstdint>

#include "ko/error.h"
#include "textfile.h"

namespace ko {

struct GridShape {
    uint64_t size; // entries per curve
    uint64_t strips_x;
    uint64_t strips_y;

    bool operator==(const GridShape &other) const = default;
};

template <class Grid> GridShape shape_of(const Grid *grid) { return {grid->size, grid->numStripsX, grid->numStripsY}; }

// All entries of a plane; what does not fit 64 bits counts as more than any allocation.
uint64_t entries_of(const GridShape &shape);

// A plane of cleared curves; null without a failure when a strip count is 0.
[[nodiscard]] uint32_t *make_curves(const GridShape &shape);

// True if the plane is there, or has no entries.
bool has_curves(const GridShape &shape, const uint32_t *plane);

// The curve of tile (x, y). An index out of the grid is reported, and a plane that is not there; both give null.
uint32_t *curve_at(const GridShape &shape, uint32_t *plane, uint64_t x, uint64_t y);

// True if all entries of two planes of this shape are equal, or both planes are null.
bool same_curves(const GridShape &shape, const uint32_t *first, const uint32_t *second);

// The pixels of a tile, rounded: division and rounding in single precision.
uint64_t rounded_tile_size(uint64_t pixels, uint64_t strips);

// Reads the line "bits" with a number and the strip counts. Gives KO_OK, or the status of a line that failed.
[[nodiscard]] int32_t read_shape(TextReader *reader, GridShape *shape);

// Makes the grid one of cleared curves in this shape, unless it has that shape and curves. What cannot be allocated leaves the
// grid as it was.
template <class Grid, class Init, class Free>
[[nodiscard]] int32_t fit_to_shape(Grid *grid, const GridShape &shape, uint32_t *Grid::*plane, Init init, Free free) {
    if (shape_of(grid) == shape && grid->*plane != nullptr) {
        return KO_OK;
    }
    Grid fresh;
    init(&fresh, shape.size, shape.strips_x, shape.strips_y);
    if (!has_curves(shape, fresh.*plane)) {
        return KoErrorGetLastError();
    }
    free(grid);
    *grid = fresh;
    return KO_OK;
}

} // namespace ko

#endif
