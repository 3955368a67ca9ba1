// The load of a grid of curves from a file of each form.
#include "enhancement_job.h"
#include "files.h"
#include "support.h"

namespace {

using namespace ko_bench;

void load_grid(benchmark::State &state, int32_t form, uint64_t file_bytes) {
    const ko_test::TemporaryFile file("grid");
    const TileTRCPtr saved = photograph_curves();
    const TileTRCPtr loaded(KoTileTRCNew(0, 0, 0));
    if (!saved || !loaded || KoTileTRCSave(saved.get(), file.c_str(), form, 1) != KO_OK ||
        KoTileTRCLoad(loaded.get(), file.c_str()) != KO_OK) {
        state.SkipWithError(KoErrorGetLastErrorMessage());
    } else if (!KoTileTRCCompare(saved.get(), loaded.get())) {
        state.SkipWithError("the curves do not survive the file");
    } else {
        const uint64_t entries = saved->size * saved->numStripsX * saved->numStripsY;
        measure(state, {entries, file_bytes, sizeof(uint32_t)}, {},
                [&] { return KoTileTRCLoad(loaded.get(), file.c_str()) == KO_OK; });
    }
}

// With the bytes that a file has for an entry, rounded up.
BENCHMARK_CAPTURE(load_grid, text, KO_TILETRC_TEXT, 4)->Name("grid load, text, 64 curves of 256")->Apply(rounds<50>);
BENCHMARK_CAPTURE(load_grid, binary, KO_TILETRC_BINARY, 1)->Name("grid load, binary, 64 curves of 256")->Apply(rounds<200>);
BENCHMARK_CAPTURE(load_grid, encoded, KO_TILETRC_ENCODED, 1)->Name("grid load, encoded, 64 curves of 256")->Apply(rounds<200>);

} // namespace
