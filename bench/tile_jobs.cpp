#include "tile_jobs.h"

namespace ko_bench {

namespace {

constexpr uint64_t grid = 8;
constexpr uint64_t levels = 256;
constexpr float ratio_weight = 0.5f;

} // namespace

TileTRCPtr make_tile_curves() {
    TileTRCPtr curves(KoTileTRCNew(levels, grid, grid));
    for (uint64_t y = 0; curves && y < grid; ++y) {
        for (uint64_t x = 0; x < grid; ++x) {
            make_shadow_curve(KoTileTRCGetTRC(curves.get(), x, y), levels, 3 * x + 5 * y);
        }
    }
    return curves;
}

TileColorTRCPtr make_tile_color_curves() {
    TileColorTRCPtr curves(KoTileColorTRCNew(levels, grid, grid));
    for (uint64_t y = 0; curves && y < grid; ++y) {
        for (uint64_t x = 0; x < grid; ++x) {
            const uint64_t amount = 3 * x + 5 * y;
            make_shadow_curve(KoTileColorTRCGetRedTRC(curves.get(), x, y), levels, amount);
            make_shadow_curve(KoTileColorTRCGetGreenTRC(curves.get(), x, y), levels, amount + 7);
            make_shadow_curve(KoTileColorTRCGetBlueTRC(curves.get(), x, y), levels, amount + 14);
        }
    }
    return curves;
}

bool apply_tile_curves(const TileTRC *curves, int32_t color_space, uint64_t chunk_rows, const std::vector<uint8_t> &input,
                       std::vector<uint8_t> &output) {
    const TileTRCApplyPtr apply(KoTileTRCApplyNew(curves, ratio_weight, nullptr, size_24_megapixels.width,
                                                  size_24_megapixels.height, KO_BYTE_LAYOUT_INTERLEAVED, color_space));
    return apply &&
           apply_in_chunks(size_24_megapixels, chunk_rows, input, output, [&](uint64_t rows, const uint8_t *in, uint8_t *out) {
               return KoTileTRCApplyToByteChunk(apply.get(), rows, in, out) == KO_OK;
           });
}

bool apply_tile_color_curves(const TileColorTRC *curves, uint64_t chunk_rows, const std::vector<uint8_t> &input,
                             std::vector<uint8_t> &output) {
    const TileColorTRCApplyPtr apply(
        KoTileColorTRCApplyNew(curves, size_24_megapixels.width, size_24_megapixels.height, KO_BYTE_LAYOUT_INTERLEAVED));
    return apply &&
           apply_in_chunks(size_24_megapixels, chunk_rows, input, output, [&](uint64_t rows, const uint8_t *in, uint8_t *out) {
               return KoTileColorTRCApplyToByteChunk(apply.get(), rows, in, out) == KO_OK;
           });
}

} // namespace ko_bench
