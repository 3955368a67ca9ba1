// What the benchmarks share: the measurement against memcpy.
//
// A job is judged by its ratio to a yardstick: one memcpy that reads and writes together as many bytes as the job must at the
// least, its inputs read once and its outputs written once. Job and yardstick run in turn, so that both meet the same machine,
// and each is reported by its median. Times are processor time of this process, which has one thread: in wall time whatever
// else the machine runs would fall on the longer of the two.
#ifndef KO_BENCH_SUPPORT_H
#define KO_BENCH_SUPPORT_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "inputs.h"

namespace ko_bench {

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
    bool flat = false; // one of the lines whose times per pixel must not grow
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
