// The token stream of a grid's curves, to a temporary file and back.
#include <cstdio>

#include "localcontrastenhancement_bench.h"

namespace {

using namespace ko_bench;

using CompressPtr = std::unique_ptr<TRCCompress, Deleter<KoTRCCompressDelete>>;
using StreamPtr = std::unique_ptr<std::FILE, Deleter<std::fclose>>;

constexpr uint64_t entry_bytes = sizeof(uint32_t);
constexpr uint64_t stream_bytes = 1;   // an entry, rounded up
constexpr uint64_t room_of_token = 63; // entries that the last token may reach past its curve

// All entries of a grid, curve after curve.
std::vector<uint32_t> entries_of(const TileTRC *grid) {
    return {grid->array, grid->array + grid->size * grid->numStripsX * grid->numStripsY};
}

class CurveStream {
  public:
    explicit CurveStream(uint64_t curve_size) : compress_(KoTRCCompressNew(curve_size)), stream_(std::tmpfile()) {}

    bool good() const { return compress_ && stream_; }

    bool save(std::vector<uint32_t> &entries) {
        return for_each_curve(KoTRCCompressSave, entries.data(), entries.size()) && std::fflush(stream_.get()) == 0;
    }

    // entries has room_of_token elements more than the curves.
    bool load(std::vector<uint32_t> &entries) {
        return for_each_curve(KoTRCCompressLoad, entries.data(), entries.size() - room_of_token);
    }

  private:
    template <class Transfer> bool for_each_curve(Transfer transfer, uint32_t *entries, uint64_t count) {
        bool good = true;
        std::rewind(stream_.get());
        for (uint64_t first = 0; first < count; first += compress_->size) {
            KoTRCCompressSetTRC(compress_.get(), entries + first);
            good = transfer(compress_.get(), stream_.get(), "curves") == KO_OK && good;
        }
        return good;
    }

    CompressPtr compress_;
    StreamPtr stream_;
};

// Calls run with the curves of a photograph, a stream that holds them, and what came back out of it.
template <class Run> void with_saved_curves(benchmark::State &state, Run run) {
    const TileTrcPtr grid = photograph_curves();
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
