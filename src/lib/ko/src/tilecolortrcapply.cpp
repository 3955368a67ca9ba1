// TileColorTRCApply: the application of a grid of three-channel curves to the bytes of a picture, row chunk by row chunk.
//
// A row is a sequence of runs: one before the first tile centre, one between each pair of centres, one behind the last. Rows
// between tile centres form bands. The rows of a chunk that lie in one band are a block; it is walked run by run, all its rows
// each, so that the curves of one run stay at hand. The rules to know before changing anything here: nothing is allocated, and
// a weight is a running sum in single precision, from its run's first pixel and from its band's first row, wherever chunks,
// blocks and pieces begin.
#include "ko/tilecolortrcapply.h"

#include <algorithm>

#include "alloc.h"
#include "convert.h"
#include "interleave.h"
#include "ko/byteimageiterator.h"
#include "ko/colorspace.h"
#include "ko/tiletrcapply.h"
#include "lanes.h"
#include "report.h"
#include "tilegrid.h"

namespace {

using namespace ko;

constexpr uint32_t channels = 3;
constexpr uint64_t byte_levels = 256;

// Pixels and rows of a run that are processed at a time, through arrays that stay in the first-level cache.
constexpr uint64_t piece = 128;
constexpr uint64_t row_group = 4;

// A number for each of the four neighbouring curves, in the order in which a blend adds their products.
struct Corners {
    float right_upper;
    float left_upper;
    float left_lower;
    float right_lower;
};

// The weights of a run's pixels in one row: those of the first pixel, and what each pixel adds to those before it.
struct RowWeights {
    Corners first;
    Corners step;
};

// The bytes of the three channels of a row, from some pixel on.
struct Row {
    uint8_t *channel[channels];
    uint64_t step; // from a pixel to the next
};

Row row_of(const ByteImageIterator &iterator) {
    return {{iterator.red, iterator.green, iterator.blue}, iterator.pixel_increment};
}

// ---- a run of pixels

// The weights of a piece's pixels in a group of rows.
using GroupWeights = Quad[row_group][piece];

// Writes out the weights of the next pixels of all rows, and moves the first of each to the pixel behind them. The rows'
// running sums go side by side: a row alone would wait for its own.
void take_weights(RowWeights *rest, uint64_t count, GroupWeights &weights) {
    Quad now[row_group];
    Quad step[row_group];
    for (uint64_t r = 0; r < row_group; ++r) {
        now[r] = load<Quad>(&rest[r].first);
        step[r] = load<Quad>(&rest[r].step);
    }
    for (uint64_t x = 0; x < count; ++x) {
        for (uint64_t r = 0; r < row_group; ++r) {
            weights[r][x] = now[r];
            now[r] += step[r];
        }
    }
    for (uint64_t r = 0; r < row_group; ++r) {
        store(now[r], &rest[r].first);
    }
}

// The weights of the next pixels of an edge band, which are those of all its rows.
void take_horizontal_weights(RowWeights *rest, uint64_t count, Quad *weights) {
    Corners &now = rest->first;
    for (uint64_t x = 0; x < count; ++x) {
        weights[x] = load<Quad>(&now);
        now.left_upper += rest->step.left_upper;
        now.right_upper = 1.0f - now.left_upper;
    }
}

// Blends one channel of a piece. Products are transposed, so that the sums of four pixels lie side by side.
void blend(const Corners *entries, const Quad *weights, uint64_t count, const uint8_t *in, uint64_t step, float *sums) {
    const auto product = [=](uint64_t x) { return load<Quad>(&entries[in[x * step]]) * weights[x]; };
    uint64_t x = 0;
    for (; x + 4 <= count; x += 4) {
        Square products = {{product(x), product(x + 1), product(x + 2), product(x + 3)}};
        products.transpose();
        const auto [right_upper, left_upper, left_lower, right_lower] = products.rows;
        store(((right_upper + left_upper) + left_lower) + right_lower, sums + x);
    }
    for (; x < count; ++x) {
        const Quad products = product(x);
        sums[x] = ((products[0] + products[1]) + products[2]) + products[3];
    }
}

// A piece of a row. Its bytes are read before the first is written, so the buffers may be the same.
void blend_piece(const Corners (*entries)[byte_levels], const Quad *weights, uint64_t start, uint64_t count, const Row &in,
                 const Row &out) {
    float sums[channels][piece];
    for (uint32_t c = 0; c < channels; ++c) {
        blend(entries[c], weights, count, in.channel[c] + start * in.step, in.step, sums[c]);
    }
    if (out.step == 3) {
        floats_to_pixels(sums[0], sums[1], sums[2], count, out.channel[0] + start * 3);
        return;
    }
    for (uint32_t c = 0; c < channels; ++c) {
        for (uint64_t x = 0; x < count; ++x) {
            out.channel[c][start + x] = wrapped_byte(sums[c][x]);
        }
    }
}

// Up to row_group rows of a run; rest holds the weights of row_group rows, or those of an edge band, which all rows share.
void blend_group(const Corners (*entries)[byte_levels], RowWeights *rest, bool edge, uint64_t pixels, uint64_t rows,
                 const Row *in, const Row *out) {
    GroupWeights weights;
    for (uint64_t start = 0; start < pixels; start += piece) {
        const uint64_t count = std::min(piece, pixels - start);
        if (edge) {
            take_horizontal_weights(rest, count, weights[0]);
        } else {
            take_weights(rest, count, weights);
        }
        for (uint64_t r = 0; r < rows; ++r) {
            blend_piece(entries, weights[edge ? 0 : r], start, count, in[r], out[r]);
        }
    }
}

// A run with a single curve a channel.
void look_up_run(const KoTRCMatrix *curves, uint64_t pixels, const Row &in, const Row &out) {
    for (uint32_t c = 0; c < channels; ++c) {
        const uint32_t *curve = curves[c][1];
        for (uint64_t x = 0; x < pixels; ++x) {
            out.channel[c][x * out.step] = static_cast<uint8_t>(curve[in.channel[c][x * in.step]]);
        }
    }
}

// ---- the weights of a row

// Between two tile centres of an edge band; the right upper weight is what the left upper one leaves of 1.
RowWeights horizontal_weights(const TileColorTRCApply *apply) {
    return {{0.0f, 1.0f, 0.0f, 0.0f}, {0.0f, -apply->xStep, 0.0f, 0.0f}};
}

// Before the first tile centre of an inner band, and behind the last; upper is the weight of the upper curves in the row.
RowWeights vertical_weights(float upper) { return {{upper, 0.0f, 0.0f, 1.0f - upper}, {}}; }

// Between four tile centres.
RowWeights four_weights(const TileColorTRCApply *apply, float upper) {
    const float lower = 1.0f - upper;
    const float upper_step = apply->xStep * upper;
    const float lower_step = apply->xStep * lower;
    return {{0.0f, upper, lower, 0.0f}, {upper_step, -upper_step, -lower_step, lower_step}};
}

// ---- blocks

bool is_edge(const TileColorTRCApply *apply) { return apply->band == 0 || apply->band == apply->tileColorTRC->numStripsY; }

// The weight of the upper curves in the next row: a running sum from the first row of an inner band, unused in an edge band.
float upper_weight(const TileColorTRCApply *apply) {
    float weight = 1.0f;
    if (is_edge(apply)) {
        return weight;
    }
    for (uint64_t row = apply->bandEnd - apply->tileHeight; row < apply->rowsDone; ++row) {
        weight -= apply->yStep;
    }
    return weight;
}

// A run in all rows of a block.
struct Run {
    const KoTRCMatrix *curves; // around it, one matrix a channel
    bool outer;                // before the first tile centre or behind the last: no blend from left to right
    uint64_t pixels;
    uint64_t rows;
};

// The entries of neighbouring curves at a level; 0 where there is no curve.
Corners corners_at(const KoTRCMatrix &curves, uint64_t level) {
    const auto entry = [=](const uint32_t *curve) { return curve != nullptr ? static_cast<float>(curve[level]) : 0.0f; };
    return {entry(curves[1]), entry(curves[0]), entry(curves[2]), entry(curves[3])};
}

// Lays the curves' entries side by side, level by level: all of them, or for a few pixels those alone that they look at.
void fill_entries(const Run &run, ByteImageIterator in, Corners (*entries)[byte_levels]) {
    if (run.pixels * run.rows >= byte_levels) {
        for (uint32_t c = 0; c < channels; ++c) {
            for (uint64_t level = 0; level < byte_levels; ++level) {
                entries[c][level] = corners_at(run.curves[c], level);
            }
        }
        return;
    }
    for (uint64_t row = 0; row < run.rows; ++row) {
        const Row bytes = row_of(in);
        for (uint32_t c = 0; c < channels; ++c) {
            for (uint64_t x = 0; x < run.pixels; ++x) {
                const uint8_t level = bytes.channel[c][x * bytes.step];
                entries[c][level] = corners_at(run.curves[c], level);
            }
        }
        KoByteImageIteratorNextLine(&in);
    }
}

void look_up_rows(const Run &run, ByteImageIterator in, ByteImageIterator out) {
    for (uint64_t row = 0; row < run.rows; ++row) {
        look_up_run(run.curves, run.pixels, row_of(in), row_of(out));
        KoByteImageIteratorNextLine(&in);
        KoByteImageIteratorNextLine(&out);
    }
}

// upper is the weight of the upper curves in the first row.
void blend_rows(const TileColorTRCApply *apply, const Run &run, float upper, ByteImageIterator in, ByteImageIterator out) {
    Corners entries[channels][byte_levels];
    fill_entries(run, in, entries);
    for (uint64_t first = 0; first < run.rows; first += row_group) {
        const uint64_t rows = std::min(row_group, run.rows - first);
        RowWeights weights[row_group];
        Row in_rows[row_group];
        Row out_rows[row_group];
        for (uint64_t r = 0; r < row_group; ++r, upper -= apply->yStep) {
            weights[r] = is_edge(apply) ? horizontal_weights(apply)
                         : run.outer    ? vertical_weights(upper)
                                        : four_weights(apply, upper);
            if (r < rows) {
                in_rows[r] = row_of(in);
                out_rows[r] = row_of(out);
                KoByteImageIteratorNextLine(&in);
                KoByteImageIteratorNextLine(&out);
            }
        }
        blend_group(entries, weights, is_edge(apply), run.pixels, rows, in_rows, out_rows);
    }
}

// Sets the right curves of all channels to those of a grid column, in the rows of the present band; what was right is left
// then.
void take_column(const TileColorTRCApply *apply, uint64_t column, KoTRCMatrix *curves) {
    using GetCurve = uint32_t *(const TileColorTRC *, uint64_t, uint64_t);
    constexpr GetCurve *get_curve[channels] = {KoTileColorTRCGetRedTRC, KoTileColorTRCGetGreenTRC, KoTileColorTRCGetBlueTRC};
    const TileColorTRC *grid = apply->tileColorTRC;
    const uint64_t upper_row = apply->band == 0 ? 0 : apply->band - 1;
    for (uint32_t c = 0; c < channels; ++c) {
        const uint32_t *upper = get_curve[c](grid, column, upper_row);
        const uint32_t *lower = is_edge(apply) ? nullptr : get_curve[c](grid, column, apply->band);
        const auto place = column == 0 ? KoTRCMatrixInit : KoTRCMatrixMoveRight;
        place(curves[c], upper, lower);
    }
}

// The next rows, all in one band, run by run. Rounded tiles may reach past the row's end: no run does.
void process_block(const TileColorTRCApply *apply, uint64_t rows, ByteImageIterator in, ByteImageIterator out) {
    const uint64_t last = apply->tileColorTRC->numStripsX;
    const float upper = upper_weight(apply);
    KoTRCMatrix curves[channels];
    uint64_t left = apply->width;
    for (uint64_t column = 0; column <= last && left != 0; ++column) {
        if (column != last) { // the last run keeps the curves of the one before it
            take_column(apply, column, curves);
        }
        const bool outer = column == 0 || column == last;
        const Run run = {curves, outer, std::min(outer ? apply->tileWidth >> 1 : apply->tileWidth, left), rows};
        if (outer && is_edge(apply)) {
            look_up_rows(run, in, out);
        } else {
            blend_rows(apply, run, upper, in, out);
        }
        KoByteImageIteratorNextTile(&in, run.pixels);
        KoByteImageIteratorNextTile(&out, run.pixels);
        left -= run.pixels;
    }
}

void finish_rows(TileColorTRCApply *apply, uint64_t rows) {
    apply->rowsDone += rows;
    if (apply->rowsDone == apply->bandEnd) {
        ++apply->band;
        apply->bandEnd = apply->band != apply->tileColorTRC->numStripsY ? apply->bandEnd + apply->tileHeight : apply->height;
    }
}

// True for a grid that has the entry of every byte at every tile.
bool serves(const TileColorTRC *grid) {
    return grid != nullptr && grid->redArray != nullptr && grid->size >= byte_levels && entries_of(shape_of(grid)) != 0;
}

} // namespace

int32_t KoTileColorTRCApplyInit(TileColorTRCApply *apply, const TileColorTRC *tile_trc, uint64_t width, uint64_t height,
                                int32_t layout) {
    *apply = {};
    apply->width = width;
    apply->height = height;
    apply->layout = static_cast<uint32_t>(layout);
    if (!serves(tile_trc) || apply->layout >= KO_BYTE_LAYOUT_3_PLANES) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    apply->tileWidth = rounded_tile_size(width, tile_trc->numStripsX);
    apply->tileHeight = rounded_tile_size(height, tile_trc->numStripsY);
    if (apply->tileWidth == 0 || apply->tileHeight == 0) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    apply->tileColorTRC = tile_trc;
    apply->bandEnd = (apply->tileHeight >> 1) + 1;
    apply->xStep = 1.0f / static_cast<float>(apply->tileWidth);
    apply->yStep = 1.0f / static_cast<float>(apply->tileHeight);
    return KO_OK;
}

TileColorTRCApply *KoTileColorTRCApplyNew(const TileColorTRC *tile_trc, uint64_t width, uint64_t height, int32_t layout) {
    return make_object<TileColorTRCApply>(
        "TileColorTRCApply",
        [=](TileColorTRCApply *apply) {
            if (tile_trc == nullptr) {
                *apply = {};
                return static_cast<int32_t>(KO_OK);
            }
            return KoTileColorTRCApplyInit(apply, tile_trc, width, height, layout);
        },
        KoTileColorTRCApplyFree);
}

int32_t KoTileColorTRCApplyFree(TileColorTRCApply *) { return KO_OK; }

int32_t KoTileColorTRCApplyDelete(TileColorTRCApply *apply) {
    KoFree(apply);
    return KO_OK;
}

int32_t KoTileColorTRCApplyToByteChunk(TileColorTRCApply *apply, uint64_t rows, const uint8_t *input, uint8_t *output) {
    if (apply->tileColorTRC == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    const auto layout = static_cast<int32_t>(apply->layout);
    ByteImageIterator in;
    ByteImageIterator out;
    KoByteImageIteratorInit(&in, apply->width, apply->height, layout, KO_COLORSPACE_RGB, const_cast<uint8_t *>(input));
    KoByteImageIteratorInit(&out, apply->width, apply->height, layout, KO_COLORSPACE_RGB, output);
    uint64_t left = std::min(rows, apply->height - apply->rowsDone);
    while (left != 0) {
        const uint64_t now = std::min(left, apply->bandEnd - apply->rowsDone);
        process_block(apply, now, in, out);
        KoByteImageIteratorNextLines(&in, now);
        KoByteImageIteratorNextLines(&out, now);
        finish_rows(apply, now);
        left -= now;
    }
    return KO_OK;
}
