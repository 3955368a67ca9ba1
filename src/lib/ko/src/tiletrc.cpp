// TileTRC: the grid of tone curves, tile access, comparison, and the drawing of the curves over a picture. Its files are in
// tiletrc_file.cpp.
#include "tiletrc.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "alloc.h"
#include "convert.h"
#include "report.h"
#include "textfile.h"
#include "trc.h"

namespace ko {

uint64_t grid_entries(uint64_t size, uint64_t strips_x, uint64_t strips_y) {
    uint64_t entries = 1;
    for (const uint64_t factor : {size, strips_x, strips_y}) {
        if (factor == 0) {
            return 0;
        }
        entries = entries > UINT64_MAX / factor ? UINT64_MAX : entries * factor;
    }
    return entries;
}

} // namespace ko

namespace {

using namespace ko;

static_assert(sizeof(TileTRC) == 32 && offsetof(TileTRC, size) == 0 && offsetof(TileTRC, numStripsX) == 8 &&
              offsetof(TileTRC, numStripsY) == 16 && offsetof(TileTRC, array) == 24);

// The drawing treats curves as having this many levels, whatever their size.
constexpr uint64_t drawn_levels = 256;
// Where the picture is this bright, curves are drawn in black.
constexpr uint8_t bright = 129;

// Allocates the cleared curves of a grid; null without a failure when a strip count is 0.
uint32_t *make_curves(uint64_t size, uint64_t strips_x, uint64_t strips_y) {
    return strips_x != 0 && strips_y != 0 ? allocate_clear<uint32_t>(grid_entries(size, strips_x, strips_y)) : nullptr;
}

struct Rectangle {
    uint64_t left;
    uint64_t top;
    uint64_t width;
    uint64_t height;
};

// Quotient and rounding in single precision.
uint64_t drawn_tile_size(uint64_t pixels, uint64_t strips) {
    return static_cast<uint64_t>(std::floor(static_cast<float>(pixels) / static_cast<float>(strips) + 0.5f));
}

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
    *tile_trc = {size, strips_x, strips_y, make_curves(size, strips_x, strips_y)};
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
    if (x >= tile_trc->numStripsX) {
        report_index(x, tile_trc->numStripsX);
        return nullptr;
    }
    if (y >= tile_trc->numStripsY) {
        report_index(y, tile_trc->numStripsY);
        return nullptr;
    }
    if (tile_trc->array == nullptr) {
        KoMessageSetStatus(KO_ERR_NULL_POINTER);
        return nullptr;
    }
    return tile_trc->array + (y * tile_trc->numStripsX + x) * tile_trc->size;
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
    if (first->size != second->size || first->numStripsX != second->numStripsX || first->numStripsY != second->numStripsY) {
        return 0;
    }
    if (first->array == nullptr || second->array == nullptr) {
        return first->array == second->array;
    }
    const uint64_t entries = grid_entries(first->size, first->numStripsX, first->numStripsY);
    return std::memcmp(first->array, second->array, entries * sizeof(uint32_t)) == 0;
}

int32_t KoTileTRCDraw(const TileTRC *tile_trc, const RealImage *image, RealImage **result) {
    if (tile_trc == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    const bool has_tiles = tile_trc->size != 0 && tile_trc->numStripsX != 0 && tile_trc->numStripsY != 0;
    if (has_tiles && tile_trc->array == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    if (*result != nullptr && ((*result)->width != image->width || (*result)->height != image->height)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    if (_KoRealImageApplyFunctionGetResult(image, result) != KO_OK) {
        return KO_OK;
    }
    copy_bytes(image, *result);
    if (!has_tiles) {
        return KO_OK;
    }
    const uint64_t width = drawn_tile_size(image->width, tile_trc->numStripsX);
    const uint64_t height = drawn_tile_size(image->height, tile_trc->numStripsY);
    const auto size = static_cast<uint32_t>(tile_trc->size);
    for (uint64_t y = 0; y < tile_trc->numStripsY; ++y) {
        for (uint64_t x = 0; x < tile_trc->numStripsX; ++x) {
            draw_curve(KoTileTRCGetTRC(tile_trc, x, y), size, {x * width, y * height, width, height}, *result);
        }
    }
    return KO_OK;
}
