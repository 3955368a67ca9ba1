// The application of a grid of curves to the bytes of a picture, from the making of the record to its end.
#include "support.h"

namespace {

using namespace ko_bench;

constexpr Size size{6000, 4000};
constexpr uint64_t grid = 8;
constexpr uint64_t levels = 256;
constexpr float ratio_weight = 0.5f;

// Curves that open the shadows, each tile by another amount.
TileTrcPtr make_curves() {
    TileTrcPtr curves(KoTileTRCNew(levels, grid, grid));
    for (uint64_t y = 0; curves && y < grid; ++y) {
        for (uint64_t x = 0; x < grid; ++x) {
            make_shadow_curve(KoTileTRCGetTRC(curves.get(), x, y), levels, 3 * x + 5 * y);
        }
    }
    return curves;
}

bool apply_curves(const TileTRC *curves, int32_t color_space, uint64_t chunk_rows, const std::vector<uint8_t> &input,
                  std::vector<uint8_t> &output) {
    const ApplyPtr apply(
        KoTileTRCApplyNew(curves, ratio_weight, nullptr, size.width, size.height, KO_BYTE_LAYOUT_INTERLEAVED, color_space));
    return apply && apply_in_chunks(size, chunk_rows, input, output, [&](uint64_t rows, const uint8_t *in, uint8_t *out) {
               return KoTileTRCApplyToByteChunk(apply.get(), rows, in, out) == KO_OK;
           });
}

void tile_application(benchmark::State &state, int32_t color_space, uint64_t chunk_rows, double limit) {
    const uint64_t channels = KoColorSpaceGetDepth(color_space);
    const TileTrcPtr curves = make_curves();
    const std::vector<uint8_t> input = photograph(size, channels);
    std::vector<uint8_t> output(input.size());
    measure(state, {size.pixels(), channels, channels}, {Measure::ratio, limit},
            [&] { return apply_curves(curves.get(), color_space, chunk_rows, input, output); });
}

constexpr double limit_color = 30.0;
constexpr double limit_gray = 50.0;

BENCHMARK_CAPTURE(tile_application, color, KO_COLORSPACE_RGB, size.height, limit_color)
    ->Name("tile application colour 24 MP")
    ->Apply(rounds<5>);
BENCHMARK_CAPTURE(tile_application, color_rows, KO_COLORSPACE_RGB, 1, limit_color)
    ->Name("tile application colour 24 MP, by rows")
    ->Apply(rounds<5>);
BENCHMARK_CAPTURE(tile_application, gray, KO_COLORSPACE_GRAY, size.height, limit_gray)
    ->Name("tile application gray 24 MP")
    ->Apply(rounds<5>);
BENCHMARK_CAPTURE(tile_application, gray_rows, KO_COLORSPACE_GRAY, 1, limit_gray)
    ->Name("tile application gray 24 MP, by rows")
    ->Apply(rounds<5>);

} // namespace
