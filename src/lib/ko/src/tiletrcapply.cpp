// TileTRCApply: the application of a grid of tone curves to the bytes of a picture, row chunk by row chunk.
//
// A row is a sequence of runs: one before the first tile centre, one between each pair of centres, one behind the last. Rows
// between tile centres form bands. Inside a run of a band the neighbouring curves are the same for all pixels, so when a band
// begins their entries are laid side by side, level by level, for each of its runs. The rule to know before changing anything
// here: a pixel's floats go through the given expressions in the given order, in single precision but for the weight table,
// whatever the run.
#include "ko/tiletrcapply.h"

#include <algorithm>

#include "alloc.h"
#include "convert.h"
#include "interleave.h"
#include "ko/byteimageiterator.h"
#include "ko/colorspace.h"
#include "lanes.h"
#include "report.h"
#include "trc.h"

namespace {

using namespace ko;

constexpr uint64_t lanes = 4;
constexpr uint64_t byte_levels = 256;

// Pixels of a run that are processed at a time, through arrays that stay in the first-level cache.
constexpr uint64_t piece = 256;

// The weights of the four neighbouring curves for four pixels, as the weight table holds them.
struct WeightGroup {
    float left_upper[lanes];
    float left_lower[lanes];
    float right_upper[lanes];
    float right_lower[lanes];
};

static_assert(sizeof(WeightGroup) == 64);

// The entries of the neighbouring curves at one level, in the order of KoTRCMatrix; 0 where there is no curve.
struct CornerValues {
    float left_upper;
    float right_upper;
    float left_lower;
    float right_lower;
};

// The float of each byte in each channel, after the ColorTRC.
struct ChannelValues {
    float red[byte_levels];
    float green[byte_levels];
    float blue[byte_levels];
};

// The weights of a row of a tile, plane by plane.
struct RowWeights {
    float *left_upper;
    float *left_lower;
    float *right_upper;
    float *right_lower;
};

// What lies in the row scratch.
struct Scratch {
    RowWeights weights;      // of the present row
    ChannelValues *channels; // of the picture
    CornerValues *corners;   // for each run of the present band: entries by level, the last for all levels past the curve
};

// How the curves of a run are blended.
enum class Rule { single, horizontal, vertical, four };

bool is_gray(const TileTRCApply *apply) { return apply->color_space == KO_COLORSPACE_GRAY; }

bool interpolates(const TileTRCApply *apply) { return apply->weightTable != nullptr; }

bool has_channel_curves(const TileTRCApply *apply) {
    return apply->redCurve != nullptr || apply->greenCurve != nullptr || apply->blueCurve != nullptr;
}

uint64_t groups_of(uint64_t pixels) { return (pixels + lanes - 1) / lanes; }

uint64_t runs_of(const TileTRCApply *apply) { return apply->tileTRC->numStripsX + 1; }

// Levels that have an entry of their own; all others take the last.
uint64_t own_levels(const TileTRCApply *apply) { return (apply->tileTRC->size + apply->tileStep - 1) / apply->tileStep; }

Scratch scratch_of(const TileTRCApply *apply) {
    float *weights = apply->rowScratch;
    const uint64_t plane = apply->groupsPerTile * lanes;
    auto *channels = reinterpret_cast<ChannelValues *>(weights + 4 * plane);
    return {{weights, weights + plane, weights + 2 * plane, weights + 3 * plane},
            channels,
            reinterpret_cast<CornerValues *>(channels + 1)};
}

// ---- the values of bytes and curves

float channel_value(const uint32_t *curve, uint64_t step, uint64_t byte) {
    if (curve == nullptr) {
        return static_cast<float>(byte);
    }
    const float entry = static_cast<float>(curve[byte * step]);
    return step != 1 ? entry / static_cast<float>(step) : entry;
}

float luminance_of(float red, float green, float blue) { return red * 0.299f + green * 0.587f + blue * 0.114f; }

void fill_channels(const TileTRCApply *apply, ChannelValues *channels) {
    for (uint64_t byte = 0; byte < byte_levels; ++byte) {
        channels->red[byte] = channel_value(apply->redCurve, apply->colorStep, byte);
        channels->green[byte] = channel_value(apply->greenCurve, apply->colorStep, byte);
        channels->blue[byte] = channel_value(apply->blueCurve, apply->colorStep, byte);
    }
}

void fill_corners(const TileTRCApply *apply, const KoTRCMatrix &matrix, CornerValues *corners) {
    const auto size = static_cast<uint32_t>(apply->tileTRC->size);
    const uint64_t levels = own_levels(apply);
    for (uint64_t level = 0; level <= levels; ++level) {
        const auto index = static_cast<uint32_t>(level * apply->tileStep);
        const auto entry = [=](const uint32_t *curve) { return curve != nullptr ? curve_value(curve, size, index) : 0.0f; };
        corners[level] = {entry(matrix[0]), entry(matrix[1]), entry(matrix[2]), entry(matrix[3])};
    }
}

// Lays out the curves of all runs of the present band, sliding through its one or two grid rows.
void begin_band(const TileTRCApply *apply, const Scratch &scratch) {
    const TileTRC *grid = apply->tileTRC;
    const bool inner = apply->band != 0 && apply->band != grid->numStripsY;
    const uint64_t upper = apply->band == 0 ? 0 : apply->band - 1;
    const auto lower_curve = [=](uint64_t x) { return inner ? KoTileTRCGetTRC(grid, x, apply->band) : nullptr; };
    KoTRCMatrix matrix;
    KoTRCMatrixInit(matrix, KoTileTRCGetTRC(grid, 0, upper), lower_curve(0));
    CornerValues *corners = scratch.corners;
    for (uint64_t run = 0; run < runs_of(apply); ++run, corners += own_levels(apply) + 1) {
        if (run != 0 && run < grid->numStripsX) {
            KoTRCMatrixMoveRight(matrix, KoTileTRCGetTRC(grid, run, upper), lower_curve(run));
        }
        fill_corners(apply, matrix, corners);
    }
}

// ---- a run of pixels

// Some pixels of a run on their way.
struct Piece {
    float red[piece];
    float green[piece];
    float blue[piece];
    float luminance[piece];
    float level[piece]; // the new luminance
};

void read_gray(const ByteImageIterator &in, uint64_t count, Piece *pixels) {
    const uint8_t *__restrict bytes = in.red;
    for (uint64_t x = 0; x < count; ++x) {
        pixels->luminance[x] = static_cast<float>(bytes[x]);
    }
}

// Interleaved pixels of a picture without curves for its channels, whose floats are those of their bytes.
void read_plain(const ByteImageIterator &in, uint64_t count, Piece *pixels) {
    uint32_t words[piece];
    load_pixels(in.red, count, words);
    for (uint64_t x = 0; x < count; ++x) {
        const auto red = static_cast<float>(static_cast<int32_t>(words[x] & 255));
        const auto green = static_cast<float>(static_cast<int32_t>(words[x] >> 8 & 255));
        const auto blue = static_cast<float>(static_cast<int32_t>(words[x] >> 16));
        pixels->red[x] = red;
        pixels->green[x] = green;
        pixels->blue[x] = blue;
        pixels->luminance[x] = luminance_of(red, green, blue);
    }
}

template <uint64_t Step>
void read_color(const ByteImageIterator &in, const ChannelValues &values, uint64_t count, Piece *pixels) {
    for (uint64_t x = 0; x < count; ++x) {
        pixels->red[x] = values.red[in.red[x * Step]];
        pixels->green[x] = values.green[in.green[x * Step]];
        pixels->blue[x] = values.blue[in.blue[x * Step]];
    }
    for (uint64_t x = 0; x < count; ++x) {
        pixels->luminance[x] = luminance_of(pixels->red[x], pixels->green[x], pixels->blue[x]);
    }
}

// What the blending of a run needs.
struct Run {
    const CornerValues *corners;
    RowWeights weights; // of the tile's row, from its first pixel
    float last_level;   // the level that stands for all past the curve
    float step;         // entries a level
};

// Blends four curves for the pixels of a piece, four at a time; gives the first pixel that is left over. The corner values of
// four pixels are transposed, so that they lie like the weights.
uint64_t blend_quads(const Run &run, uint64_t start, const int32_t *index, uint64_t count, float *levels) {
    uint64_t x = 0;
    for (; x + 4 <= count; x += 4) {
        const auto corners = [&](uint64_t i) { return load<Quad>(&run.corners[index[x + i]]); };
        Square curves = {{corners(0), corners(1), corners(2), corners(3)}};
        curves.transpose();
        const auto [left_upper, right_upper, left_lower, right_lower] = curves.rows;
        const auto weight = [=](const float *weights) { return load<Quad>(weights + start + x); };
        const Quad level = ((left_lower * weight(run.weights.left_lower) + left_upper * weight(run.weights.left_upper)) +
                            right_upper * weight(run.weights.right_upper)) +
                           right_lower * weight(run.weights.right_lower);
        store(level, levels + x);
    }
    return x;
}

// The new levels of a piece that begins at pixel start of its run.
template <Rule rule> void blend(const Run &run, uint64_t start, uint64_t count, Piece *pixels) {
    int32_t index[piece];
    for (uint64_t x = 0; x < count; ++x) {
        const float luminance = pixels->luminance[x];
        index[x] = static_cast<int32_t>(luminance < run.last_level ? luminance : run.last_level);
    }
    // Runs before the first and behind the last tile centre may be longer than a tile, and look at no column of it.
    const uint64_t column = rule == Rule::horizontal || rule == Rule::four ? start : 0;
    const float *left_upper = run.weights.left_upper + column;
    const float *left_lower = run.weights.left_lower + column;
    const float *right_upper = run.weights.right_upper + column;
    const float *right_lower = run.weights.right_lower + column;
    uint64_t x = 0;
    if constexpr (rule == Rule::four) {
        x = blend_quads(run, start, index, count, pixels->level);
    }
    for (; x < count; ++x) {
        const CornerValues &corner = run.corners[index[x]];
        if constexpr (rule == Rule::single) {
            pixels->level[x] = corner.right_upper;
        } else if constexpr (rule == Rule::horizontal) {
            pixels->level[x] = corner.left_upper * left_upper[x] + corner.right_upper * right_upper[x];
        } else if constexpr (rule == Rule::vertical) {
            // The weights of the row's first pixel serve every column.
            pixels->level[x] = corner.right_upper * left_upper[0] + corner.right_lower * left_lower[0];
        } else {
            pixels->level[x] = ((corner.left_lower * left_lower[x] + corner.left_upper * left_upper[x]) +
                                corner.right_upper * right_upper[x]) +
                               corner.right_lower * right_lower[x];
        }
    }
    if (run.step != 1.0f) {
        for (x = 0; x < count; ++x) {
            pixels->level[x] /= run.step;
        }
    }
}

void write_gray(const Piece &pixels, uint64_t count, const ByteImageIterator &out) {
    const ByteRange range;
    uint8_t *__restrict bytes = out.red;
    for (uint64_t x = 0; x < count; ++x) {
        bytes[x] = static_cast<uint8_t>(range.limited(pixels.level[x] + 0.5f));
    }
}

// The channels under the new luminance: a mix of a shift of all of them and of their scaling. Calls give(x, red, green, blue).
template <class Give> void transfer(const TileTRCApply *apply, const Piece &pixels, uint64_t count, Give give) {
    const float ratio = apply->ratioWeight;
    const float additive = apply->additiveWeight;
    const ByteRange range;
    for (uint64_t x = 0; x < count; ++x) {
        const float luminance = pixels.luminance[x];
        const float divisor = luminance == 0.0f ? 1.0f : luminance;
        const float factor = pixels.level[x] * ratio / divisor;
        const float shift = pixels.level[x] - luminance;
        const auto mix = [=](float channel) { return range.limited(((shift + channel) * additive + channel * factor) + 0.5f); };
        give(x, mix(pixels.red[x]), mix(pixels.green[x]), mix(pixels.blue[x]));
    }
}

void write_interleaved(const TileTRCApply *apply, const Piece &pixels, uint64_t count, const ByteImageIterator &out) {
    uint32_t words[piece];
    transfer(apply, pixels, count,
             [&words](uint64_t x, uint32_t red, uint32_t green, uint32_t blue) { words[x] = pixel_word(red, green, blue); });
    store_pixels(words, count, out.red);
}

void write_planes(const TileTRCApply *apply, const Piece &pixels, uint64_t count, const ByteImageIterator &out) {
    uint8_t bytes[3][piece];
    transfer(apply, pixels, count, [&bytes](uint64_t x, uint32_t red, uint32_t green, uint32_t blue) {
        bytes[0][x] = static_cast<uint8_t>(red);
        bytes[1][x] = static_cast<uint8_t>(green);
        bytes[2][x] = static_cast<uint8_t>(blue);
    });
    std::copy_n(bytes[0], count, out.red);
    std::copy_n(bytes[1], count, out.green);
    std::copy_n(bytes[2], count, out.blue);
}

void read_piece(const TileTRCApply *apply, const Scratch &scratch, const ByteImageIterator &in, uint64_t count, Piece *pixels) {
    if (is_gray(apply)) {
        read_gray(in, count, pixels);
    } else if (in.pixel_increment == 3 && !has_channel_curves(apply)) {
        read_plain(in, count, pixels);
    } else if (in.pixel_increment == 3) {
        read_color<3>(in, *scratch.channels, count, pixels);
    } else {
        read_color<1>(in, *scratch.channels, count, pixels);
    }
}

void write_piece(const TileTRCApply *apply, const Piece &pixels, uint64_t count, const ByteImageIterator &out) {
    if (is_gray(apply)) {
        write_gray(pixels, count, out);
    } else if (out.pixel_increment == 3) {
        write_interleaved(apply, pixels, count, out);
    } else {
        write_planes(apply, pixels, count, out);
    }
}

// One run, piece by piece: the pixels of a piece are read before the first is written, so the buffers may be the same.
template <Rule rule>
void process_run(const TileTRCApply *apply, const Scratch &scratch, const Run &run, uint64_t pixels, ByteImageIterator *in,
                 ByteImageIterator *out) {
    Piece work;
    for (uint64_t start = 0; start < pixels; start += piece) {
        const uint64_t count = std::min(piece, pixels - start);
        read_piece(apply, scratch, *in, count, &work);
        blend<rule>(run, start, count, &work);
        write_piece(apply, work, count, *out);
        KoByteImageIteratorNextTile(in, count);
        KoByteImageIteratorNextTile(out, count);
    }
}

// ---- rows and bands

// Takes the weights of one row from the table.
void unpack_weights(const WeightGroup *groups, uint64_t count, const RowWeights &weights) {
    for (uint64_t g = 0; g < count; ++g) {
        std::copy_n(groups[g].left_upper, lanes, weights.left_upper + g * lanes);
        std::copy_n(groups[g].left_lower, lanes, weights.left_lower + g * lanes);
        std::copy_n(groups[g].right_upper, lanes, weights.right_upper + g * lanes);
        std::copy_n(groups[g].right_lower, lanes, weights.right_lower + g * lanes);
    }
}

// A row of a band: Outer is the rule of the first and the last run, Inner that of the runs between tile centres.
template <Rule Outer, Rule Inner>
void process_row(const TileTRCApply *apply, const Scratch &scratch, ByteImageIterator in, ByteImageIterator out) {
    const uint64_t levels = own_levels(apply);
    Run run = {scratch.corners, scratch.weights, static_cast<float>(levels), static_cast<float>(apply->tileStep)};
    process_run<Outer>(apply, scratch, run, apply->firstRun, &in, &out);
    for (uint64_t c = 1; c < apply->tileTRC->numStripsX; ++c) {
        run.corners += levels + 1;
        process_run<Inner>(apply, scratch, run, apply->tileWidth, &in, &out);
    }
    run.corners += levels + 1;
    process_run<Outer>(apply, scratch, run, apply->lastRun, &in, &out);
}

void process_band(TileTRCApply *apply, uint64_t rows, ByteImageIterator *in, ByteImageIterator *out) {
    const Scratch scratch = scratch_of(apply);
    const auto *table = reinterpret_cast<const WeightGroup *>(apply->weightTable);
    const bool edge = apply->band == 0 || apply->band == apply->tileTRC->numStripsY;
    for (uint64_t row = 0; row < rows; ++row) {
        // An edge band stays at row 0 of the table.
        unpack_weights(table + apply->bandRow * apply->groupsPerTile, apply->groupsPerTile, scratch.weights);
        if (edge) {
            process_row<Rule::single, Rule::horizontal>(apply, scratch, *in, *out);
        } else {
            process_row<Rule::vertical, Rule::four>(apply, scratch, *in, *out);
            ++apply->bandRow;
        }
        KoByteImageIteratorNextLine(in);
        KoByteImageIteratorNextLine(out);
    }
}

// ---- no interpolation

// The new value of a channel by the ratio rule of a single curve.
uint8_t scaled_byte(float channel, float level, float luminance) {
    const float scaled = level * channel / (luminance == 0.0f ? 1.0f : luminance) + 0.5f;
    return wrapped_byte(scaled < 255.0f ? scaled : 255.0f);
}

void pass_color_pixel(const TileTRCApply *apply, const ByteImageIterator &in, const ByteImageIterator &out) {
    const float red = channel_value(apply->redCurve, apply->colorStep, *in.red);
    const float green = channel_value(apply->greenCurve, apply->colorStep, *in.green);
    const float blue = channel_value(apply->blueCurve, apply->colorStep, *in.blue);
    if (apply->tileTRC != nullptr) {
        const auto index = static_cast<uint64_t>(luminance_of(red, green, blue));
        const uint32_t entry = apply->tileTRC->array[std::min(index, apply->tileTRC->size - 1)];
        if (entry != index) {
            const float level = static_cast<float>(entry);
            const float luminance = static_cast<float>(index);
            *out.red = scaled_byte(red, level, luminance);
            *out.green = scaled_byte(green, level, luminance);
            *out.blue = scaled_byte(blue, level, luminance);
            return;
        }
    }
    *out.red = static_cast<uint8_t>(truncate_64(red));
    *out.green = static_cast<uint8_t>(truncate_64(green));
    *out.blue = static_cast<uint8_t>(truncate_64(blue));
}

void pass_through(const TileTRCApply *apply, uint64_t rows, ByteImageIterator *in, ByteImageIterator *out) {
    for (uint64_t row = 0; row < rows; ++row) {
        for (uint64_t x = 0; x < apply->width; ++x) {
            if (is_gray(apply)) {
                *out->red = *in->red;
            } else {
                pass_color_pixel(apply, *in, *out);
            }
            KoByteImageIteratorNextPixel(in);
            KoByteImageIteratorNextPixel(out);
        }
        KoByteImageIteratorNextLine(in);
        KoByteImageIteratorNextLine(out);
    }
}

// ---- preparation

bool channels_have_curves(const ColorTRC *color_trc) {
    for (uint32_t c = 0; c < 3; ++c) {
        if (KoColorTRCGetArray(color_trc, c) == nullptr || color_trc->curves[c]->size < KoColorTRCGetSize(color_trc)) {
            return false;
        }
    }
    return true;
}

bool has_strips(const TileTRC *tile_trc) { return tile_trc->numStripsX != 0 && tile_trc->numStripsY != 0; }

bool has_several_strips(const TileTRC *tile_trc) { return tile_trc->numStripsX > 1 || tile_trc->numStripsY > 1; }

// True if the curves serve for bytes, for the channels of the picture.
bool curves_serve(const TileTRC *tile_trc, const ColorTRC *color_trc, bool gray) {
    if (tile_trc != nullptr && has_strips(tile_trc) && (tile_trc->size < byte_levels || tile_trc->array == nullptr)) {
        return false;
    }
    if (color_trc == nullptr) {
        return true;
    }
    const bool has_curve = KoColorTRCGetArray(color_trc, 0) != nullptr;
    return (!has_curve || KoColorTRCGetSize(color_trc) >= byte_levels) && (gray || channels_have_curves(color_trc));
}

void take_curves(TileTRCApply *apply, const TileTRC *tile_trc, const ColorTRC *color_trc) {
    apply->colorStep = 1;
    if (color_trc != nullptr) {
        apply->redCurve = KoColorTRCGetArray(color_trc, 0);
        apply->greenCurve = KoColorTRCGetArray(color_trc, 1);
        apply->blueCurve = KoColorTRCGetArray(color_trc, 2);
        apply->colorStep = KoColorTRCGetSize(color_trc) >> 8;
    }
    if (tile_trc != nullptr) {
        apply->tileStep = tile_trc->size >> 8;
    }
}

// Bilinear weights over a tile from 0 to its full size inclusive: the first pixel is the left curves' alone, the last the
// right's.
void fill_weights(const TileTRCApply *apply, WeightGroup *table) {
    const double width = static_cast<double>(apply->tileWidth);
    const double height = static_cast<double>(apply->tileHeight);
    const double area = width * height;
    const double dx = width / (width - 1.0);
    const double dy = height / (height - 1.0);
    double y = 0.0;
    double y_rest = height;
    for (uint64_t j = 0; j < apply->tileHeight; ++j, y += dy, y_rest -= dy, table += apply->groupsPerTile) {
        table[apply->groupsPerTile - 1] = {}; // lanes behind the tile's width stay 0
        double x = 0.0;
        double x_rest = width;
        for (uint64_t i = 0; i < apply->tileWidth; ++i, x += dx, x_rest -= dx) {
            WeightGroup &group = table[i / lanes];
            group.left_upper[i % lanes] = static_cast<float>(x_rest * y_rest / area);
            group.left_lower[i % lanes] = static_cast<float>(x_rest * y / area);
            group.right_upper[i % lanes] = static_cast<float>(x * y_rest / area);
            group.right_lower[i % lanes] = static_cast<float>(x * y / area);
        }
    }
}

int32_t make_tables(TileTRCApply *apply) {
    const uint64_t curves = sizeof(ChannelValues) + runs_of(apply) * (own_levels(apply) + 1) * sizeof(CornerValues);
    const uint64_t weight_row = apply->groupsPerTile * sizeof(WeightGroup);
    Block<char> scratch(static_cast<char *>(allocate_bytes(1, weight_row, curves + 16)));
    Block<char> weights(scratch ? static_cast<char *>(allocate_bytes(apply->tileHeight, weight_row, 16)) : nullptr);
    if (!weights) {
        return KoErrorGetLastError();
    }
    apply->rowScratch = align_16<float>(scratch.get());
    apply->rowScratchBlock = scratch.release();
    apply->weightTable = align_16<float>(weights.get());
    apply->weightTableBlock = weights.release();
    fill_weights(apply, reinterpret_cast<WeightGroup *>(apply->weightTable));
    return KO_OK;
}

int32_t init_interpolation(TileTRCApply *apply, const TileTRC *tile_trc, float ratio_weight) {
    const uint64_t strips_x = tile_trc->numStripsX;
    const uint64_t strips_y = tile_trc->numStripsY;
    if (!has_strips(tile_trc)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    apply->tileTRC = tile_trc;
    apply->ratioWeight = ratio_weight;
    apply->additiveWeight = 1.0f - ratio_weight;
    apply->tileWidth = apply->width / strips_x;
    apply->tileHeight = apply->height / strips_y;
    apply->tilePixels = apply->tileWidth * apply->tileHeight;
    // Neither a tile without pixels nor, beside another tile, one of a single pixel has weights.
    const uint64_t least_width = strips_x > 1 ? 2 : 1;
    const uint64_t least_height = strips_y > 1 ? 2 : 1;
    if (apply->tileWidth < least_width || apply->tileHeight < least_height) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    apply->firstRun = apply->tileWidth >> 1;
    apply->lastRun = apply->width - apply->firstRun - (strips_x - 1) * apply->tileWidth;
    apply->groupsPerTile = groups_of(apply->tileWidth);
    // Vertically the first band takes half of the division's remainder; horizontally it all goes to the last run.
    apply->bandEnd = (apply->tileHeight >> 1) + ((apply->height % strips_y) >> 1);
    return make_tables(apply);
}

void init_pass_through(TileTRCApply *apply, const TileTRC *tile_trc) {
    apply->tileTRC = tile_trc != nullptr && has_strips(tile_trc) ? tile_trc : nullptr;
    apply->tileWidth = apply->firstRun = apply->width;
    apply->tileHeight = apply->bandEnd = apply->height;
}

// The row of the picture at which the present band begins.
uint64_t band_begin(const TileTRCApply *apply) {
    const uint64_t first_end = (apply->tileHeight >> 1) + ((apply->height % apply->tileTRC->numStripsY) >> 1);
    return apply->band == 0 ? 0 : first_end + (apply->band - 1) * apply->tileHeight;
}

void finish_rows(TileTRCApply *apply, uint64_t rows) {
    apply->rowsDone += rows;
    if (apply->rowsDone != apply->bandEnd) {
        return;
    }
    ++apply->band;
    apply->bandRow = 0;
    const bool last = apply->tileTRC == nullptr || apply->band == apply->tileTRC->numStripsY;
    apply->bandEnd = last ? apply->height : apply->bandEnd + apply->tileHeight;
}

} // namespace

int32_t KoTileTRCApplyInit(TileTRCApply *apply, const TileTRC *tile_trc, float ratio_weight, const ColorTRC *color_trc,
                           uint64_t width, uint64_t height, int32_t layout, int32_t color_space) {
    *apply = {};
    apply->width = width;
    apply->height = height;
    apply->layout = static_cast<uint32_t>(layout);
    apply->color_space = static_cast<uint32_t>(color_space);
    const bool gray = is_gray(apply);
    if (!curves_serve(tile_trc, color_trc, gray) || (!gray && apply->layout > KO_BYTE_LAYOUT_3_PLANES)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    take_curves(apply, tile_trc, color_trc);
    if (tile_trc != nullptr && has_several_strips(tile_trc)) {
        return init_interpolation(apply, tile_trc, ratio_weight);
    }
    init_pass_through(apply, tile_trc);
    return KO_OK;
}

TileTRCApply *KoTileTRCApplyNew(const TileTRC *tile_trc, float ratio_weight, const ColorTRC *color_trc, uint64_t width,
                                uint64_t height, int32_t layout, int32_t color_space) {
    return make_object<TileTRCApply>(
        "TileTRCApplyNew",
        [=](TileTRCApply *apply) {
            return KoTileTRCApplyInit(apply, tile_trc, ratio_weight, color_trc, width, height, layout, color_space);
        },
        KoTileTRCApplyFree);
}

int32_t KoTileTRCApplyFree(TileTRCApply *apply) {
    if (apply != nullptr) {
        KoFree(apply->rowScratchBlock);
        KoFree(apply->weightTableBlock);
        apply->rowScratchBlock = apply->weightTableBlock = nullptr;
        apply->rowScratch = apply->weightTable = nullptr;
    }
    return KO_OK;
}

int32_t KoTileTRCApplyDelete(TileTRCApply *apply) {
    KoTileTRCApplyFree(apply);
    KoFree(apply);
    return KO_OK;
}

int32_t KoTileTRCApplyToByteChunkNonInterlaced(TileTRCApply *apply, uint64_t rows, const uint8_t *first, const uint8_t *second,
                                               const uint8_t *third, uint8_t *first_out, uint8_t *second_out,
                                               uint8_t *third_out) {
    const auto layout = static_cast<int32_t>(apply->layout);
    const auto space = static_cast<int32_t>(apply->color_space);
    ByteImageIterator in;
    ByteImageIterator out;
    KoByteImageIteratorInit3Planes(&in, apply->width, apply->height, layout, space, const_cast<uint8_t *>(first),
                                   const_cast<uint8_t *>(second), const_cast<uint8_t *>(third));
    KoByteImageIteratorInit3Planes(&out, apply->width, apply->height, layout, space, first_out, second_out, third_out);
    uint64_t left = std::min(rows, apply->height - apply->rowsDone);
    while (left != 0) {
        const uint64_t now = std::min(left, apply->bandEnd - apply->rowsDone);
        if (!interpolates(apply)) {
            pass_through(apply, now, &in, &out);
        } else if (now != 0) {
            if (apply->rowsDone == 0) {
                fill_channels(apply, scratch_of(apply).channels);
            }
            if (apply->rowsDone == band_begin(apply)) {
                begin_band(apply, scratch_of(apply));
            }
            process_band(apply, now, &in, &out);
        }
        finish_rows(apply, now);
        left -= now;
    }
    return KO_OK;
}

int32_t KoTileTRCApplyToByteChunk(TileTRCApply *apply, uint64_t rows, const uint8_t *input, uint8_t *output) {
    return KoTileTRCApplyToByteChunkNonInterlaced(apply, rows, input, nullptr, nullptr, output, nullptr, nullptr);
}

void KoTRCMatrixInit(const uint32_t **matrix, const uint32_t *upper, const uint32_t *lower) {
    matrix[0] = nullptr;
    matrix[1] = upper;
    matrix[2] = nullptr;
    matrix[3] = lower;
}

void KoTRCMatrixMoveRight(const uint32_t **matrix, const uint32_t *upper, const uint32_t *lower) {
    matrix[0] = matrix[1];
    matrix[2] = matrix[3];
    matrix[1] = upper;
    matrix[3] = lower;
}
