// Counting the pixels of a plane into 256 bins. A flat picture counts into one of them alone.
#include "support.h"

namespace {

using namespace ko_bench;

constexpr Size size{4000, 3000};
constexpr uint32_t bins = 256;

RealImagePtr flat_plane(Size plane) {
    RealImagePtr image(KoRealImageNew(plane.width, plane.height));
    if (image) {
        KoRealImageFill(image.get(), 127.25f);
    }
    return image;
}

void count_pixels(benchmark::State &state, RealImagePtr (*make_image)(Size), const Mark &mark) {
    const RealImagePtr image = make_image(size);
    const HistogramPtr histogram(KoHistogramNew(bins, 0.0f, 255.0f));
    measure(state, {size.pixels(), sizeof(float), 0}, mark,
            [&] { return KoHistogramCompute(histogram.get(), image.get()) == KO_OK; });
}

BENCHMARK_CAPTURE(count_pixels, photograph, photograph_plane, Mark{Measure::ratio, 10.0})
    ->Name("histogram 12 MP, 256 bins")
    ->Apply(rounds<15>);
BENCHMARK_CAPTURE(count_pixels, flat, flat_plane, Mark{})->Name("histogram 12 MP, flat picture")->Apply(rounds<15>);

} // namespace
