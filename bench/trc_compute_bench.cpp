// The fit of a curve to one tile.
#include <cmath>

#include "support.h"

namespace {

using namespace ko_bench;

constexpr Size size{500, 500};
constexpr uint64_t levels = 256;

// The picture with its shadows opened, the more the darker and the further to the right.
RealImagePtr open_shadows(const RealImage *image) {
    RealImagePtr result(KoRealImageNew(image->width, image->height));
    for (uint64_t y = 0; y < image->height; ++y) {
        for (uint64_t x = 0; x < image->width; ++x) {
            const float strength = 1.0f + static_cast<float>(x) / static_cast<float>(image->width);
            const float gain = 1.0f + strength * std::exp(-image->rows[y][x] / 60.0f);
            result->rows[y][x] = std::min(image->rows[y][x] * gain, 255.0f);
        }
    }
    return result;
}

void curve_fit(benchmark::State &state) {
    const RealImagePtr image = photograph_plane(size);
    const RealImagePtr target = open_shadows(image.get());
    const TrcPtr curve(KoTRCNew(levels));
    const auto fit = [&] {
        RealImageLineIterator input_line;
        RealImageLineIterator target_line;
        KoRealImageLineIteratorInit(&input_line, image.get());
        KoRealImageLineIteratorInit(&target_line, target.get());
        return KoTRCCompute(curve.get(), &input_line, &target_line) == KO_OK && curve->array;
    };
    measure(state, {size.pixels(), 2 * sizeof(float), 0}, {Measure::milliseconds, 1.0}, fit);
}

BENCHMARK(curve_fit)->Name("curve fit, tile of 500 x 500, 256 levels")->Apply(rounds<200>);

} // namespace
