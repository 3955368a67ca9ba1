// The application of grids of curves to the bytes of a photograph, from the making of the record to its end.
#ifndef KO_BENCH_TILE_JOBS_H
#define KO_BENCH_TILE_JOBS_H

#include <cstdint>
#include <vector>

#include "inputs.h"

namespace ko_bench {

// Curves that open the shadows, each tile by another amount: 256 entries, an 8 by 8 grid. Null if memory is short.
TileTRCPtr make_tile_curves();

// The same, each tile and channel by another amount.
TileColorTRCPtr make_tile_color_curves();

// Run a picture of 24 megapixels through a grid in chunks of rows; interleaved RGB, or for the first one gray as well.
// Return true on success.
bool apply_tile_curves(const TileTRC *curves, int32_t color_space, uint64_t chunk_rows, const std::vector<uint8_t> &input,
                       std::vector<uint8_t> &output);
bool apply_tile_color_curves(const TileColorTRC *curves, uint64_t chunk_rows, const std::vector<uint8_t> &input,
                             std::vector<uint8_t> &output);

} // namespace ko_bench

#endif
