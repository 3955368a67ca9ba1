// The transpose of a plane into an image that is there.
#include "support.h"

namespace {

using namespace ko_bench;

constexpr Size size{4000, 3000};

void transpose(benchmark::State &state) {
    const RealImagePtr image = photograph_plane(size);
    const RealImagePtr transposed(KoRealImageNew(size.height, size.width));
    RealImage *result = transposed.get();
    measure(state, {size.pixels(), sizeof(float), sizeof(float)}, {Measure::ratio, 5.0},
            [&] { return KoRealImageTranspose(image.get(), &result) == KO_OK; });
}

BENCHMARK(transpose)->Name("transpose 12 MP")->Apply(rounds<15>);

} // namespace
