// Other sizes of a plane, told by the pixel of the result.
#include "support.h"

namespace {

using namespace ko_bench;

constexpr Size large{4000, 3000};
constexpr Size small{1600, 1200};

Mark mark_of(double nanoseconds) { return {Measure::nanoseconds_per_pixel, nanoseconds}; }

// resample(image, result) fills a plane of the new size from one of the old size.
template <class Resample> void run(benchmark::State &state, Size from, Size to, const Mark &mark, Resample resample) {
    const RealImagePtr image = photograph_plane(from);
    const RealImagePtr result(KoRealImageNew(to.width, to.height));
    measure(state, {to.pixels(), sizeof(float), sizeof(float)}, mark, [&] {
        RealImage *target = result.get();
        return resample(image.get(), &target) == KO_OK;
    });
}

void downsample(benchmark::State &state) {
    run(state, large, small, mark_of(1.5),
        [](const RealImage *image, RealImage **result) { return KoRealImageDownsample(image, 0.0f, result); });
}

void resize(benchmark::State &state) {
    run(state, small, {2000, 1500}, mark_of(1.0),
        [](const RealImage *image, RealImage **result) { return KoRealImageResize(image, 2000, 1500, result); });
}

void upsample(benchmark::State &state) {
    run(state, small, large, mark_of(1.0),
        [](const RealImage *image, RealImage **result) { return KoRealImageUpsample(image, 0.0f, result); });
}

BENCHMARK(downsample)->Name("downsampling by 2.5, 12 MP")->Apply(rounds<15>);
BENCHMARK(resize)->Name("nearest resize to 3 MP")->Apply(rounds<15>);
BENCHMARK(upsample)->Name("upsampling by 2.5, to 12 MP")->Apply(rounds<15>);

} // namespace
