// The Gaussian blur of a plane: the recursive form, which makes its result anew each time, and the finite form into a result
// that is there.
#include "support.h"

namespace {

using namespace ko_bench;

constexpr Size size{4000, 3000};
constexpr int32_t finite = 0;
constexpr int32_t recursive = 1;
constexpr float truncation = 1.75f;

void gaussian_blur(benchmark::State &state, float sigma, int32_t mode, double limit) {
    const KernelGaussianPtr kernel(KoKernelGaussianNewTune(sigma, truncation, mode));
    const RealImagePtr image = photograph_plane(size);
    RealImage *result = nullptr;
    const auto blur = [&] { return KoKernelGaussianConvolution(kernel.get(), image.get(), &result) == KO_OK && result; };
    const auto drop_new_result = [&] {
        if (mode == recursive) {
            KoRealImageDelete(result);
            result = nullptr;
        }
    };
    measure(state, {size.pixels(), sizeof(float), sizeof(float)}, {Measure::ratio, limit}, blur, drop_new_result);
    KoRealImageDelete(result);
}

BENCHMARK_CAPTURE(gaussian_blur, recursive, 60.0f, recursive, 30.0)->Name("recursive blur 12 MP, sigma 60")->Apply(rounds<7>);
BENCHMARK_CAPTURE(gaussian_blur, finite, 4.0f, finite, 15.0)->Name("finite blur 12 MP, sigma 4")->Apply(rounds<7>);

} // namespace
