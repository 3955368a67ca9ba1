// The application of a grid of curves to the bytes of a picture, from the making of the record to its end.
#include <cmath>

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
            const double exponent = 0.5 + 0.05 * static_cast<double>((3 * x + 5 * y) % 11);
            uint32_t *curve = KoTileTRCGetTRC(curves.get(), x, y);
            for (uint64_t level = 0; level < levels; ++level) {
                curve[level] = static_cast<uint32_t>(255.0 * std::pow(static_cast<double>(level) / 255.0, exponent));
            }
        }
    }
    return curves;
}

bool apply_curves(const TileTRC *curves, int32_t color_space, uint64_t chunk_rows, const std::vector<uint8_t> &input,
                  std::vector<uint8_t> &output) {
    const ApplyPtr apply(
        KoTileTRCApplyNew(curves, ratio_weight, nullptr, size.width, size.height, KO_BYTE_LAYOUT_INTERLEAVED, color_space));
    const uint64_t row_bytes = input.size() / size.height;
    bool good = apply != nullptr;
    for (uint64_t row = 0; good && row < size.height; row += chunk_rows) {
        const uint64_t offset = row * row_bytes;
        good = KoTileTRCApplyToByteChunk(apply.get(), chunk_rows, input.data() + offset, output.data() + offset) == KO_OK;
    }
    return good;
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
