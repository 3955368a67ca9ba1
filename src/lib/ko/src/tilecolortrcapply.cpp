// TileColorTRCApply: the application of a grid of three-channel curves to the bytes of a picture, row chunk by row chunk.
//
// A row is a sequence of runs: one before the first tile centre, one between each pair of centres, one behind the last. Rows
// between tile centres form bands. The rows of a chunk that lie in one band are a block; it is walked run by run, all its rows
// each, so that the curves of one run stay at hand. The rules to know before changing anything here: nothing is allocated, and
// a weight is a running sum in single precision, from its run's first pixel and from its band's first row, wherever chunks,
// blocks and pieces begin.
#include "ko/tilecolortrcapply.h"

#include <algorithm>
#include <cstddef>

#include "alloc.h"
#include "convert.h"
#include "ko/byteimageiterator.h"
#include "ko/colorspace.h"
#include "ko/tiletrcapply.h"
#include "report.h"
#include "tilegrid.h"

namespace {

using namespace ko;

#define KO_AT(field, offset) (offsetof(TileColorTRCApply, field) == (offset))
static_assert(sizeof(TileColorTRCApply) == 88 && KO_AT(tileColorTRC, 0) && KO_AT(width, 8) && KO_AT(height, 16) &&
              KO_AT(layout, 24) && KO_AT(tileWidth, 32) && KO_AT(tileHeight, 40) && KO_AT(rowsDone, 48) && KO_AT(band, 56) &&
              KO_AT(bandEnd, 64) && KO_AT(debugFlags, 72) && KO_AT(xStep, 76) && KO_AT(yStep, 80));
#undef KO_AT

constexpr uint32_t channels = 3;
constexpr uint64_t byte_levels = 256;

// Pixels of a run that are processed at a time, through arrays that stay in the first-level cache.
constexpr uint64_t piece = 256;

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
    bool horizontal; // the right upper weight is what the left upper one leaves of 1
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

// The weights of a piece's pixels, curve by curve.
struct PieceWeights {
    float right_upper[piece];
    float left_upper[piece];
    float left_lower[piece];
    float right_lower[piece];
};

// Writes out the weights of the next pixels, and moves the first of rest to the pixel behind them.
void take_weights(RowWeights *rest, uint64_t count, PieceWeights *weights) {
    Corners now = rest->first;
    for (uint64_t x = 0; x < count; ++x) {
        weights->right_upper[x] = now.right_upper;
        weights->left_upper[x] = now.left_upper;
        weights->left_lower[x] = now.left_lower;
        weights->right_lower[x] = now.right_lower;
        now.left_upper += rest->step.left_upper;
        now.left_lower += rest->step.left_lower;
        now.right_lower += rest->step.right_lower;
        now.right_upper = rest->horizontal ? 1.0f - now.left_upper : now.right_upper + rest->step.right_upper;
    }
    rest->first = now;
}

// One channel of a piece. Its bytes are read before the first is written, so the buffers may be the same.
void blend(const Corners *entries, const PieceWeights &weights, uint64_t count, const uint8_t *in, uint8_t *out,
           uint64_t step) {
    Corners neighbours[piece];
    for (uint64_t x = 0; x < count; ++x) {
        neighbours[x] = entries[in[x * step]];
    }
    // The sums and their truncation are vectorised; bytes that lie apart are not.
    int32_t levels[piece];
    for (uint64_t x = 0; x < count; ++x) {
        const Corners &entry = neighbours[x];
        levels[x] = truncate_32(((entry.right_upper * weights.right_upper[x] + entry.left_upper * weights.left_upper[x]) +
                                 entry.left_lower * weights.left_lower[x]) +
                                entry.right_lower * weights.right_lower[x]);
    }
    for (uint64_t x = 0; x < count; ++x) {
        out[x * step] = static_cast<uint8_t>(levels[x]);
    }
}

void blend_run(const Corners (*entries)[byte_levels], RowWeights rest, uint64_t pixels, const Row &in, const Row &out) {
    PieceWeights weights;
    for (uint64_t start = 0; start < pixels; start += piece) {
        const uint64_t count = std::min(piece, pixels - start);
        take_weights(&rest, count, &weights);
        for (uint32_t c = 0; c < channels; ++c) {
            blend(entries[c], weights, count, in.channel[c] + start * in.step, out.channel[c] + start * out.step, in.step);
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

// Between two tile centres of an edge band.
RowWeights horizontal_weights(const TileColorTRCApply *apply) {
    return {{0.0f, 1.0f, 0.0f, 0.0f}, {0.0f, -apply->xStep, 0.0f, 0.0f}, true};
}

// Before the first tile centre of an inner band, and behind the last; upper is the weight of the upper curves in the row.
RowWeights vertical_weights(float upper) { return {{upper, 0.0f, 0.0f, 1.0f - upper}, {}, false}; }

// Between four tile centres.
RowWeights four_weights(const TileColorTRCApply *apply, float upper) {
    const float lower = 1.0f - upper;
    const float upper_step = apply->xStep * upper;
    const float lower_step = apply->xStep * lower;
    return {{0.0f, upper, lower, 0.0f}, {upper_step, -upper_step, -lower_step, lower_step}, false};
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
    for (uint64_t row = 0; row < run.rows; ++row, upper -= apply->yStep) {
        const RowWeights weights = is_edge(apply) ? horizontal_weights(apply)
                                   : run.outer    ? vertical_weights(upper)
                                                  : four_weights(apply, upper);
        blend_run(entries, weights, run.pixels, row_of(in), row_of(out));
        KoByteImageIteratorNextLine(&in);
        KoByteImageIteratorNextLine(&out);
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
