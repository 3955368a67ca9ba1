// TileTRC: the grid of tone curves, tile access, comparison, and the drawing of the curves over a picture. Its files are in
// tiletrc_file.cpp.
#include "ko/tiletrc.h"

#include <algorithm>
#include <cstring>

#include "alloc.h"
#include "convert.h"
#include "report.h"
#include "textfile.h"
#include "tilegrid.h"
#include "trc.h"

namespace {

using namespace ko;

// The drawing treats curves as having this many levels, whatever their size.
constexpr uint64_t drawn_levels = 256;
// Where the picture is this bright, curves are drawn in black.
constexpr uint8_t bright = 129;

struct Rectangle {
    uint64_t left;
    uint64_t top;
    uint64_t width;
    uint64_t height;
};

void copy_bytes(const RealImage *image, RealImage *result) {
    for (uint64_t y = 0; y < image->height; ++y) {
        for (uint64_t x = 0; x < image->width; ++x) {
            result->rows[y][x] = static_cast<float>(wrapped_byte(image->rows[y][x]));
        }
    }
}

// Paints one curve over its tile, which may reach past the result's edges.
void draw_curve(const uint32_t *curve, uint32_t size, const Rectangle &tile, RealImage *result) {
    const uint64_t bottom = tile.top + tile.height;
    const uint64_t right = tile.left + tile.width;
    for (uint64_t y = tile.top; y < std::min(bottom, result->height); ++y) {
        const float level = static_cast<float>((bottom - y - 1) * drawn_levels / tile.height);
        for (uint64_t x = tile.left; x < std::min(right, result->width); ++x) {
            const auto i = static_cast<uint32_t>((x - tile.left) * drawn_levels / tile.width);
            const float low = curve_value(curve, size, i);
            const float high = i + 1 < drawn_levels ? curve_value(curve, size, i + 1) : static_cast<float>(drawn_levels);
            if (low <= level && level <= high) {
                float &pixel = result->rows[y][x];
                pixel = pixel >= static_cast<float>(bright) ? 0.0f : 255.0f;
            }
        }
    }
}

} // namespace

int32_t KoTileTRCInit(TileTRC *tile_trc, uint64_t size, uint64_t strips_x, uint64_t strips_y) {
    *tile_trc = {size, strips_x, strips_y, make_curves({size, strips_x, strips_y})};
    return KO_OK;
}

TileTRC *KoTileTRCNew(uint64_t size, uint64_t strips_x, uint64_t strips_y) {
    return make_object<TileTRC>(
        "TileTRC", [=](TileTRC *tile_trc) { return KoTileTRCInit(tile_trc, size, strips_x, strips_y); }, KoTileTRCFree);
}

int32_t KoTileTRCFree(TileTRC *tile_trc) {
    if (tile_trc != nullptr) {
        KoFree(tile_trc->array);
        tile_trc->array = nullptr;
    }
    return KO_OK;
}

int32_t KoTileTRCDelete(TileTRC *tile_trc) {
    KoTileTRCFree(tile_trc);
    KoFree(tile_trc);
    return KO_OK;
}

uint64_t KoTileTRCGetSize(const TileTRC *tile_trc) { return tile_trc->size; }

uint64_t KoTileTRCGetNumStripsX(const TileTRC *tile_trc) { return tile_trc->numStripsX; }

uint64_t KoTileTRCGetNumStripsY(const TileTRC *tile_trc) { return tile_trc->numStripsY; }

uint32_t KoTileTRCGetBits(const TileTRC *tile_trc) { return truncated_log2(tile_trc->size); }

uint32_t *KoTileTRCGetTRC(const TileTRC *tile_trc, uint64_t x, uint64_t y) {
    return curve_at(shape_of(tile_trc), tile_trc->array, x, y);
}

int32_t KoTileTRCSetTileFromArray(TileTRC *tile_trc, uint64_t x, uint64_t y, const uint32_t *source) {
    uint32_t *curve = KoTileTRCGetTRC(tile_trc, x, y);
    if (curve == nullptr) {
        return KoErrorGetLastError();
    }
    std::memmove(curve, source, tile_trc->size * sizeof(uint32_t));
    return KO_OK;
}

int32_t KoTileTRCSetTileFromTRC(TileTRC *tile_trc, uint64_t x, uint64_t y, const TRC *trc) {
    if (trc->size != tile_trc->size) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    if (trc->array == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    return KoTileTRCSetTileFromArray(tile_trc, x, y, trc->array);
}

int32_t KoTileTRCCompare(const TileTRC *first, const TileTRC *second) {
    const GridShape shape = shape_of(first);
    return shape == shape_of(second) && same_curves(shape, first->array, second->array);
}

int32_t KoTileTRCDraw(const TileTRC *tile_trc, const RealImage *image, RealImage **result) {
    if (tile_trc == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    if (!has_curves(shape_of(tile_trc), tile_trc->array)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    if (*result != nullptr && ((*result)->width != image->width || (*result)->height != image->height)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    if (_KoRealImageApplyFunctionGetResult(image, result) != KO_OK) {
        return KO_OK;
    }
    copy_bytes(image, *result);
    if (entries_of(shape_of(tile_trc)) == 0) {
        return KO_OK;
    }
    const uint64_t width = rounded_tile_size(image->width, tile_trc->numStripsX);
    const uint64_t height = rounded_tile_size(image->height, tile_trc->numStripsY);
    const auto size = static_cast<uint32_t>(tile_trc->size);
    for (uint64_t y = 0; y < tile_trc->numStripsY; ++y) {
        for (uint64_t x = 0; x < tile_trc->numStripsX; ++x) {
            draw_curve(KoTileTRCGetTRC(tile_trc, x, y), size, {x * width, y * height, width, height}, *result);
        }
    }
    return KO_OK;
}
