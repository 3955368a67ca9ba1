// TileColorTRC: the grid of tone curves for three channels, and its text file. What it shares with the grid of one curve a tile
// is in tilegrid.h. The rule to know before changing anything is that hosts rely on two oddities: composition happens only
// without a blue array, and the header's number of bits is no logarithm of the size. See "Composition without blue" and "The
// bits of a colour grid" in docs/compatibility.md.
#include "ko/tilecolortrc.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "alloc.h"
#include "report.h"
#include "textfile.h"
#include "tilegrid.h"

namespace {

using namespace ko;

// The planes are there together or not at all, so one answers for all.
bool has_curves(const TileColorTRC *tile_trc) { return has_curves(shape_of(tile_trc), tile_trc->redArray); }

// curve becomes second[curve], by way of scratch: second may be the curve itself.
void compose(uint32_t *curve, const uint32_t *second, uint64_t size, uint32_t *scratch) {
    for (uint64_t i = 0; i < size; ++i) {
        scratch[i] = second[curve[i] < size ? curve[i] : size - 1];
    }
    std::memcpy(curve, scratch, size * sizeof(uint32_t));
}

// The size over the natural logarithm of 2, truncated; what does not fit the header's number is its largest.
int32_t header_bits(uint64_t size) {
    const double bits = static_cast<double>(size) / std::log(2.0);
    return bits < 2147483647.0 ? static_cast<int32_t>(bits) : INT32_MAX;
}

} // namespace

int32_t KoTileColorTRCInit(TileColorTRC *tile_trc, uint64_t size, uint64_t strips_x, uint64_t strips_y) {
    const GridShape shape = {size, strips_x, strips_y};
    *tile_trc = {size, strips_x, strips_y, nullptr, nullptr, nullptr};
    Block<uint32_t> red(make_curves(shape));
    Block<uint32_t> green(red ? make_curves(shape) : nullptr);
    Block<uint32_t> blue(green ? make_curves(shape) : nullptr);
    if (blue) {
        tile_trc->redArray = red.release();
        tile_trc->greenArray = green.release();
        tile_trc->blueArray = blue.release();
    }
    return KO_OK;
}

TileColorTRC *KoTileColorTRCNew(uint64_t size, uint64_t strips_x, uint64_t strips_y) {
    return make_object<TileColorTRC>(
        "TileColorTRC", [=](TileColorTRC *tile_trc) { return KoTileColorTRCInit(tile_trc, size, strips_x, strips_y); },
        KoTileColorTRCFree);
}

int32_t KoTileColorTRCFree(TileColorTRC *tile_trc) {
    if (tile_trc != nullptr) {
        KoFree(tile_trc->redArray);
        KoFree(tile_trc->greenArray);
        KoFree(tile_trc->blueArray);
        tile_trc->redArray = tile_trc->greenArray = tile_trc->blueArray = nullptr;
    }
    return KO_OK;
}

int32_t KoTileColorTRCDelete(TileColorTRC *tile_trc) {
    KoTileColorTRCFree(tile_trc);
    KoFree(tile_trc);
    return KO_OK;
}

uint64_t KoTileColorTRCGetSize(const TileColorTRC *tile_trc) { return tile_trc->size; }

uint64_t KoTileColorTRCGetNumStripsX(const TileColorTRC *tile_trc) { return tile_trc->numStripsX; }

uint64_t KoTileColorTRCGetNumStripsY(const TileColorTRC *tile_trc) { return tile_trc->numStripsY; }

uint32_t *KoTileColorTRCGetRedTRC(const TileColorTRC *tile_trc, uint64_t x, uint64_t y) {
    return curve_at(shape_of(tile_trc), tile_trc->redArray, x, y);
}

uint32_t *KoTileColorTRCGetGreenTRC(const TileColorTRC *tile_trc, uint64_t x, uint64_t y) {
    return curve_at(shape_of(tile_trc), tile_trc->greenArray, x, y);
}

uint32_t *KoTileColorTRCGetBlueTRC(const TileColorTRC *tile_trc, uint64_t x, uint64_t y) {
    return curve_at(shape_of(tile_trc), tile_trc->blueArray, x, y);
}

int32_t KoTileColorTRCSetTileFromArray(TileColorTRC *tile_trc, uint64_t x, uint64_t y, const uint32_t *red,
                                       const uint32_t *green, const uint32_t *blue) {
    uint32_t *red_curve = KoTileColorTRCGetRedTRC(tile_trc, x, y);
    if (red_curve == nullptr) {
        return KoErrorGetLastError();
    }
    const uint64_t bytes = tile_trc->size * sizeof(uint32_t);
    std::memmove(red_curve, red, bytes);
    std::memmove(KoTileColorTRCGetGreenTRC(tile_trc, x, y), green, bytes);
    std::memmove(KoTileColorTRCGetBlueTRC(tile_trc, x, y), blue, bytes);
    return KO_OK;
}

int32_t KoTileColorTRCSetTileFromTRC(TileColorTRC *tile_trc, uint64_t x, uint64_t y, const TRC *red, const TRC *green,
                                     const TRC *blue) {
    for (const TRC *trc : {red, green, blue}) {
        if (trc->size != tile_trc->size) {
            return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
        }
    }
    for (const TRC *trc : {red, green, blue}) {
        if (trc->array == nullptr) {
            return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
        }
    }
    return KoTileColorTRCSetTileFromArray(tile_trc, x, y, red->array, green->array, blue->array);
}

int32_t KoTileColorTRCComposeTile(TileColorTRC *tile_trc, uint64_t x, uint64_t y, const uint32_t *red, const uint32_t *green,
                                  const uint32_t *blue) {
    const Block<uint32_t> scratch(allocate<uint32_t>(tile_trc->size));
    if (!scratch) {
        return KoErrorGetLastError();
    }
    uint32_t *red_curve = KoTileColorTRCGetRedTRC(tile_trc, x, y);
    uint32_t *green_curve = KoTileColorTRCGetGreenTRC(tile_trc, x, y);
    const uint32_t *blue_curve = KoTileColorTRCGetBlueTRC(tile_trc, x, y);
    if (blue_curve != nullptr && red != nullptr && green != nullptr && blue == nullptr) {
        compose(red_curve, red, tile_trc->size, scratch.get());
        compose(green_curve, green, tile_trc->size, scratch.get());
    }
    return KO_OK;
}

int32_t KoTileColorTRCCompare(const TileColorTRC *first, const TileColorTRC *second) {
    const GridShape shape = shape_of(first);
    return shape == shape_of(second) && same_curves(shape, first->redArray, second->redArray) &&
           same_curves(shape, first->greenArray, second->greenArray) && same_curves(shape, first->blueArray, second->blueArray);
}

int32_t KoTileColorTRCSave(const TileColorTRC *tile_trc, const char *path, int32_t overwrite) {
    if (!has_curves(tile_trc)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    File file;
    const int32_t status = open_for_writing(path, "w", overwrite, &file);
    if (status != KO_OK) {
        return status;
    }
    std::fprintf(file.get(), "%s\nbits %d %d %d\n", three_channel_word, header_bits(tile_trc->size),
                 message_int(tile_trc->numStripsX), message_int(tile_trc->numStripsY));
    const uint64_t entries = entries_of(shape_of(tile_trc));
    for (uint64_t i = 0; i < entries; ++i) {
        std::fprintf(file.get(), "%d %d %d\n", message_int(tile_trc->redArray[i]), message_int(tile_trc->greenArray[i]),
                     message_int(tile_trc->blueArray[i]));
    }
    return KO_OK;
}

int32_t KoTileColorTRCLoad(TileColorTRC *tile_trc, const char *path) {
    TextReader reader(path, BadLine::numbered);
    GridShape shape = {};
    int32_t status = reader.open("r");
    if (status == KO_OK) {
        status = read_word(&reader, three_channel_word, not_three_channels);
    }
    if (status == KO_OK) {
        status = read_shape(&reader, &shape);
    }
    if (status == KO_OK) {
        status = fit_to_shape(tile_trc, shape, &TileColorTRC::redArray, KoTileColorTRCInit, KoTileColorTRCFree);
    }
    if (status != KO_OK) {
        return status;
    }
    const uint64_t entries = entries_of(shape);
    return read_triples(&reader, tile_trc->redArray, tile_trc->greenArray, tile_trc->blueArray, entries);
}
