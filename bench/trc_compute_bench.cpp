// The fit of a curve to one tile.
#include "curve_jobs.h"
#include "support.h"

namespace {

using namespace ko_bench;

void curve_fit(benchmark::State &state) {
    CurveFit job;
    measure(state, {CurveFit::size.pixels(), 2 * sizeof(float), 0}, {Measure::milliseconds, 1.0}, [&] { return job.fit(); });
}

BENCHMARK(curve_fit)->Name("curve fit, tile of 500 x 500, 256 levels")->Apply(rounds<200>);

} // namespace
