#include "support.h"

#include <cstring>

namespace ko_bench {

// The buffers differ and are not 0, so that no two pages of them can be one.
Yardstick::Yardstick(const Job &job)
    : source_(job.items * (job.bytes_in + job.bytes_out) / 2, uint8_t{0x5a}), target_(source_.size(), uint8_t{0xa5}) {}

void Yardstick::copy() {
    std::memcpy(target_.data(), source_.data(), source_.size());
    benchmark::DoNotOptimize(target_.data());
    benchmark::ClobberMemory();
}

void set_counters(benchmark::State &state, const Job &job, const Mark &mark, double job_seconds, double copy_seconds) {
    const double items = static_cast<double>(job.items);
    state.counters["ms"] = job_seconds * 1e3;
    state.counters["ns_item"] = job_seconds * 1e9 / items;
    state.counters["memcpy_ns_item"] = copy_seconds * 1e9 / items;
    state.counters["ratio"] = job_seconds / copy_seconds;
    if (mark.measure != Measure::none) {
        state.counters[counter_name(mark.measure)] = mark.limit;
    }
    if (mark.flat) {
        state.counters["flat"] = 1.0;
    }
}

} // namespace ko_bench
