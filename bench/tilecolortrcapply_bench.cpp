// The application of a grid of three-channel curves to the bytes of a picture, from the making of the record to its end.
#include "support.h"

namespace {

using namespace ko_bench;

constexpr Size size{6000, 4000};
constexpr uint64_t grid = 8;
constexpr uint64_t levels = 256;
constexpr uint64_t channels = 3;

// Curves that open the shadows, each tile and channel by another amount.
TileColorTrcPtr make_curves() {
    TileColorTrcPtr curves(KoTileColorTRCNew(levels, grid, grid));
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

bool apply_curves(const TileColorTRC *curves, uint64_t chunk_rows, const std::vector<uint8_t> &input,
                  std::vector<uint8_t> &output) {
    const ColorApplyPtr apply(KoTileColorTRCApplyNew(curves, size.width, size.height, KO_BYTE_LAYOUT_INTERLEAVED));
    return apply && apply_in_chunks(size, chunk_rows, input, output, [&](uint64_t rows, const uint8_t *in, uint8_t *out) {
               return KoTileColorTRCApplyToByteChunk(apply.get(), rows, in, out) == KO_OK;
           });
}

void tile_color_application(benchmark::State &state, uint64_t chunk_rows) {
    const TileColorTrcPtr curves = make_curves();
    const std::vector<uint8_t> input = photograph(size, channels);
    std::vector<uint8_t> output(input.size());
    measure(state, {size.pixels(), channels, channels}, {Measure::ratio, 25.0},
            [&] { return apply_curves(curves.get(), chunk_rows, input, output); });
}

BENCHMARK_CAPTURE(tile_color_application, whole, size.height)->Name("tile application by channel 24 MP")->Apply(rounds<5>);
BENCHMARK_CAPTURE(tile_color_application, rows, 1)->Name("tile application by channel 24 MP, by rows")->Apply(rounds<5>);

} // namespace
