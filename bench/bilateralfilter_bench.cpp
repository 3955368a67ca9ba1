// The bilateral filter of a plane, which makes its result anew each time.
#include "support.h"

namespace {

using namespace ko_bench;

constexpr Size size{2000, 1500};
constexpr uint64_t levels = 5;

void bilateral_filter(benchmark::State &state) {
    const RealImagePtr image = photograph_plane(size);
    RealImage *result = nullptr;
    measure(
        state, {size.pixels(), sizeof(float), sizeof(float)}, {},
        [&] { return KoFilterBLFApplyToRealImage(image.get(), &result, levels) == KO_OK && result; },
        [&] { KoRealImageDelete(result); });
}

BENCHMARK(bilateral_filter)->Name("bilateral filter 3 MP, 5 levels")->Apply(rounds<7>);

} // namespace
