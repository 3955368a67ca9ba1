// The application of a grid of curves to the bytes of a picture.
#include "support.h"
#include "tile_jobs.h"

namespace {

using namespace ko_bench;

void tile_application(benchmark::State &state, int32_t color_space, uint64_t chunk_rows, double limit) {
    const uint64_t channels = KoColorSpaceGetDepth(color_space);
    const TileTRCPtr curves = make_tile_curves();
    const std::vector<uint8_t> input = photograph(size_24_megapixels, channels);
    std::vector<uint8_t> output(input.size());
    measure(state, {size_24_megapixels.pixels(), channels, channels}, {Measure::ratio, limit},
            [&] { return apply_tile_curves(curves.get(), color_space, chunk_rows, input, output); });
}

constexpr double limit_color = 30.0;
constexpr double limit_gray = 50.0;

BENCHMARK_CAPTURE(tile_application, color, KO_COLORSPACE_RGB, size_24_megapixels.height, limit_color)
    ->Name("tile application colour 24 MP")
    ->Apply(rounds<5>);
BENCHMARK_CAPTURE(tile_application, color_rows, KO_COLORSPACE_RGB, 1, limit_color)
    ->Name("tile application colour 24 MP, by rows")
    ->Apply(rounds<5>);
BENCHMARK_CAPTURE(tile_application, gray, KO_COLORSPACE_GRAY, size_24_megapixels.height, limit_gray)
    ->Name("tile application gray 24 MP")
    ->Apply(rounds<5>);
BENCHMARK_CAPTURE(tile_application, gray_rows, KO_COLORSPACE_GRAY, 1, limit_gray)
    ->Name("tile application gray 24 MP, by rows")
    ->Apply(rounds<5>);

} // namespace
