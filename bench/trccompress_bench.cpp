// The token stream of a grid's curves, to a temporary file and back.
#include <algorithm>

#include "curve_jobs.h"
#include "enhancement_job.h"
#include "support.h"

namespace {

using namespace ko_bench;

constexpr uint64_t entry_bytes = sizeof(uint32_t);
constexpr uint64_t stream_bytes = 1; // an entry, rounded up

// Calls run with the curves of a photograph, a stream that holds them, and what came back out of it.
template <class Run> void with_saved_curves(benchmark::State &state, Run run) {
    const TileTRCPtr grid = photograph_curves();
    CurveStream stream(grid ? grid->size : 0);
    if (!grid || !stream.good()) {
        state.SkipWithError("no curves or no stream");
        return;
    }
    std::vector<uint32_t> curves = entries_of(grid.get());
    std::vector<uint32_t> loaded(curves.size() + room_of_token);
    if (!stream.save(curves) || !stream.load(loaded) || !std::equal(curves.begin(), curves.end(), loaded.begin())) {
        state.SkipWithError("the curves do not survive the stream");
        return;
    }
    run(stream, curves, loaded);
}

void save_curves(benchmark::State &state) {
    with_saved_curves(state, [&](CurveStream &stream, std::vector<uint32_t> &curves, std::vector<uint32_t> &) {
        measure(state, {curves.size(), entry_bytes, stream_bytes}, {Measure::nanoseconds_per_entry, 15.0},
                [&] { return stream.save(curves); });
    });
}

void load_curves(benchmark::State &state) {
    with_saved_curves(state, [&](CurveStream &stream, std::vector<uint32_t> &curves, std::vector<uint32_t> &loaded) {
        measure(state, {curves.size(), stream_bytes, entry_bytes}, {Measure::nanoseconds_per_entry, 8.0},
                [&] { return stream.load(loaded); });
    });
}

BENCHMARK(save_curves)->Name("compress save, 64 curves of 256")->Apply(rounds<200>);
BENCHMARK(load_curves)->Name("compress load, 64 curves of 256")->Apply(rounds<200>);

} // namespace
