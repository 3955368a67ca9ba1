// The tile stage: what the shadows should become, pixel by pixel, distilled into one tone curve a tile. The images that make
// the curves always rest on the bilateral filter, whatever the judgement looked at.
#include "alloc.h"
#include "bilateral.h"
#include "lce.h"

namespace ko {

namespace {

int32_t make_final_images(Features *features, uint64_t blf_levels) {
    const int32_t status = filter_bilateral(features->luminance, &features->background, blf_levels, &features->enhanced);
    if (features->background == nullptr) {
        return status != KO_OK ? status : KoErrorGetLastError();
    }
    return make_enhanced(features, features->luminance, features->background, &features->enhanced);
}

// Fits the curve of tile (x, y) and copies it into the grid. A fit that could not be made leaves the thread's status.
int32_t fit_tile(const Features *features, uint64_t x, uint64_t y, TileTRC *tile_trc) {
    const uint64_t width = features->luminance->width / features->numBlocksX;
    const uint64_t height = features->luminance->height / features->numBlocksY;
    RealImageLineIterator input;
    RealImageLineIterator target;
    KoRealImageLineIteratorInitSubImage(&input, features->luminance, x * width, y * height, width, height);
    KoRealImageLineIteratorInitSubImage(&target, features->enhanced, x * width, y * height, width, height);
    Owned<TRC, KoTRCDelete> curve(KoTRCNew(KoTileTRCGetSize(tile_trc)));
    if (!curve) {
        return KoErrorGetLastError();
    }
    KoTRCCompute(curve.get(), &input, &target);
    if (curve->array == nullptr && curve->size != 0) {
        return KoErrorGetLastError();
    }
    KoTileTRCSetTileFromTRC(tile_trc, x, y, curve.get()); // a grid handed in may be smaller: its own tiles are filled
    return KO_OK;
}

int32_t fit_tiles(const Features *features, TileTRC *tile_trc) {
    for (uint64_t y = features->numBlocksY; y-- > 0;) {
        for (uint64_t x = 0; x < features->numBlocksX; ++x) {
            const int32_t status = fit_tile(features, x, y, tile_trc);
            if (status != KO_OK) {
                return status;
            }
        }
    }
    return KO_OK;
}

} // namespace

int32_t KoLceBuildTileTRC(Features *features, uint64_t blf_levels, bool images_kept, TileTRC **tile_trc) {
    int32_t status = images_kept ? static_cast<int32_t>(KO_OK) : make_final_images(features, blf_levels);
    if (status != KO_OK) {
        return status;
    }
    if (*tile_trc != nullptr) {
        return fit_tiles(features, *tile_trc);
    }
    Owned<TileTRC, KoTileTRCDelete> fresh(KoTileTRCNew(features->trcSize, features->numBlocksX, features->numBlocksY));
    if (!fresh || fresh->array == nullptr) {
        return KoErrorGetLastError();
    }
    status = fit_tiles(features, fresh.get());
    if (status == KO_OK) {
        *tile_trc = fresh.release();
    }
    return status;
}

} // namespace ko
