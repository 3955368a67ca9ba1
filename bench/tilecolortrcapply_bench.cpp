// The application of a grid of three-channel curves to the bytes of a picture.
#include "support.h"
#include "tile_jobs.h"

namespace {

using namespace ko_bench;

constexpr uint64_t channels = 3;

void tile_color_application(benchmark::State &state, uint64_t chunk_rows) {
    const TileColorTRCPtr curves = make_tile_color_curves();
    const std::vector<uint8_t> input = photograph(size_24_megapixels, channels);
    std::vector<uint8_t> output(input.size());
    measure(state, {size_24_megapixels.pixels(), channels, channels}, {Measure::ratio, 25.0},
            [&] { return apply_tile_color_curves(curves.get(), chunk_rows, input, output); });
}

BENCHMARK_CAPTURE(tile_color_application, whole, size_24_megapixels.height)
    ->Name("tile application by channel 24 MP")
    ->Apply(rounds<5>);
BENCHMARK_CAPTURE(tile_color_application, rows, 1)->Name("tile application by channel 24 MP, by rows")->Apply(rounds<5>);

} // namespace
