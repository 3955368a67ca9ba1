// Dense kernels over a plane, which make their result anew each time.
#include "support.h"

namespace {

using namespace ko_bench;

constexpr Size size{4000, 3000};
constexpr float sigma = 2.0f;

void dense_kernel(benchmark::State &state, uint64_t width, uint64_t height) {
    const RealImagePtr kernel(KoKernelNewGaussian(width, height, sigma));
    const RealImagePtr image = photograph_plane(size);
    RealImage *result = nullptr;
    measure(
        state, {size.pixels(), sizeof(float), sizeof(float)}, {Measure::ratio, 10.0},
        [&] { return KoKernelNewRealImage(kernel.get(), image.get(), &result) == KO_OK && result; },
        [&] { KoRealImageDelete(result); });
}

BENCHMARK_CAPTURE(dense_kernel, square, 3, 3)->Name("dense kernel 3 x 3, 12 MP")->Apply(rounds<7>);
BENCHMARK_CAPTURE(dense_kernel, row, 13, 1)->Name("dense kernel 13 x 1, 12 MP")->Apply(rounds<7>);
BENCHMARK_CAPTURE(dense_kernel, column, 1, 13)->Name("dense kernel 1 x 13, 12 MP")->Apply(rounds<7>);

} // namespace
