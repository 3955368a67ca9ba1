// What the benchmarks share: pictures and owners, which are those of the tests, and the measurement against memcpy.
//
// A job is judged by its ratio to a yardstick: one memcpy that reads and writes together as many bytes as the job must at the
// least, its inputs read once and its outputs written once. Job and yardstick run in turn, so that both meet the same machine,
// and each is told by its median. Times are processor time of this process, which has one thread: in wall time whatever else
// the machine runs would fall on the longer of the two.
#ifndef KO_BENCH_SUPPORT_H
#define KO_BENCH_SUPPORT_H

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <vector>

#include <benchmark/benchmark.h>

#include "ko.h"
#include "pictures.h"

namespace ko_bench {

using ko_test::ApplyPtr;
using ko_test::ColorApplyPtr;
using ko_test::ColorImagePtr;
using ko_test::Deleter;
using ko_test::FeaturesPtr;
using ko_test::GaussianPtr;
using ko_test::RealImagePtr;
using ko_test::TileColorTrcPtr;
using ko_test::TileTrcPtr;
using ko_test::TrcPtr;

struct Size {
    uint32_t width;
    uint32_t height;

    uint64_t pixels() const { return uint64_t{width} * height; }
};

// The bytes of a synthetic photograph: interleaved RGB for 3 channels, or 1 channel.
std::vector<uint8_t> photograph(Size size, uint64_t channels);

// The gray photograph as a plane of floats; null if memory is short.
RealImagePtr photograph_plane(Size size);

// Interleaved RGB as planes of floats; null if memory is short.
ColorImagePtr color_planes(Size size, const std::vector<uint8_t> &bytes);

// Fills a tone curve with one that opens the shadows, by one of eleven amounts.
void make_shadow_curve(uint32_t *curve, uint64_t levels, uint64_t amount);

// Hands a picture over in chunks of rows: apply(rows, input, output) for each, from its first byte on, true on success. The
// picture is interleaved or has one channel.
template <class Apply>
bool apply_in_chunks(Size size, uint64_t chunk_rows, const std::vector<uint8_t> &input, std::vector<uint8_t> &output,
                     Apply &&apply) {
    const uint64_t row_bytes = input.size() / size.height;
    bool good = true;
    for (uint64_t row = 0; good && row < size.height; row += chunk_rows) {
        const uint64_t offset = row * row_bytes;
        good = apply(chunk_rows, input.data() + offset, output.data() + offset);
    }
    return good;
}

// The least traffic of a job: what it has to read and write per item, which is a pixel of a picture or an entry of a curve.
struct Job {
    uint64_t items;
    uint64_t bytes_in;  // per item
    uint64_t bytes_out; // per item
};

// What a job must not exceed. The names are those of the counters that carry the limits to the report.
enum class Measure { none, ratio, nanoseconds_per_pixel, nanoseconds_per_entry, milliseconds };

struct Mark {
    Measure measure = Measure::none;
    double limit = 0.0;
    bool flat = false; // one of the lines whose times per pixel must agree
};

constexpr const char *counter_name(Measure measure) {
    switch (measure) {
    case Measure::ratio:
        return "mark_ratio";
    case Measure::nanoseconds_per_pixel:
        return "mark_ns_px";
    case Measure::nanoseconds_per_entry:
        return "mark_ns_entry";
    case Measure::milliseconds:
        return "mark_ms";
    default:
        return "mark_none";
    }
}

// A memcpy between two buffers that are already mapped.
class Yardstick {
  public:
    explicit Yardstick(const Job &job);
    void copy();

  private:
    std::vector<uint8_t> source_;
    std::vector<uint8_t> target_;
};

// Seconds of processor time that work takes.
template <class Work> double seconds(Work &&work) {
    const std::clock_t start = std::clock();
    work();
    const std::clock_t end = std::clock();
    return static_cast<double>(end - start) / static_cast<double>(CLOCKS_PER_SEC);
}

double median(std::vector<double> values);

void set_counters(benchmark::State &state, const Job &job, const Mark &mark, double job_seconds, double copy_seconds);

// Runs a job and its yardstick in turn, once unmeasured and then once an iteration.
//   work         a call that gives true on success
//   clean_up     runs after each call, outside of the time
template <class Work, class CleanUp>
void measure(benchmark::State &state, const Job &job, const Mark &mark, Work &&work, CleanUp &&clean_up) {
    Yardstick yardstick(job);
    std::vector<double> job_seconds;
    std::vector<double> copy_seconds;
    bool good = true;
    const auto run_both = [&] {
        job_seconds.push_back(seconds([&] { good = work() && good; }));
        clean_up();
        copy_seconds.push_back(seconds([&] { yardstick.copy(); }));
    };
    run_both();
    job_seconds.clear();
    copy_seconds.clear();
    for (auto iteration : state) {
        run_both();
        state.SetIterationTime(job_seconds.back());
    }
    if (good) {
        set_counters(state, job, mark, median(job_seconds), median(copy_seconds));
    } else {
        state.SkipWithError(KoErrorGetLastErrorMessage());
    }
}

template <class Work> void measure(benchmark::State &state, const Job &job, const Mark &mark, Work &&work) {
    measure(state, job, mark, work, [] {});
}

// Settings of a benchmark that takes its own times, with a fixed number of turns of job and yardstick.
template <int count> void rounds(benchmark::internal::Benchmark *settings) {
    settings->UseManualTime()->Iterations(count)->Unit(benchmark::kMillisecond);
}

} // namespace ko_bench

#endif
