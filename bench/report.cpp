#include "report.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "support.h"

namespace ko_bench {

namespace {

constexpr int name_width = 42;
constexpr double growth_limit = 1.1; // slowest size to the smallest one, per pixel

using Run = benchmark::BenchmarkReporter::Run;

const char *verdict(double value, double limit) { return value <= limit ? "met" : "MISSED"; }

bool has(const Run &run, const char *counter) { return run.counters.find(counter) != run.counters.end(); }

double value(const Run &run, const char *counter) { return run.counters.at(counter).value; }

// The repetitions of a benchmark, without what the framework computes over them.
std::vector<Run> repetitions_of(const std::vector<Run> &runs) {
    std::vector<Run> repetitions;
    std::copy_if(runs.begin(), runs.end(), std::back_inserter(repetitions),
                 [](const Run &run) { return has(run, "ratio") && run.run_type == Run::RT_Iteration; });
    return repetitions;
}

double median_of(const std::vector<Run> &runs, const char *counter) {
    std::vector<double> values;
    std::transform(runs.begin(), runs.end(), std::back_inserter(values),
                   [counter](const Run &run) { return value(run, counter); });
    return median(values);
}

struct MarkColumn {
    Measure measure;
    const char *counter; // of the measured value
    const char *unit;
};

constexpr MarkColumn mark_columns[] = {{Measure::ratio, "ratio", "x memcpy"},
                                       {Measure::nanoseconds_per_pixel, "ns_item", "ns/px"},
                                       {Measure::nanoseconds_per_entry, "ns_item", "ns/entry"},
                                       {Measure::milliseconds, "ms", "ms"}};

void print_mark(const std::vector<Run> &runs) {
    for (const MarkColumn &column : mark_columns) {
        const char *mark = counter_name(column.measure);
        if (has(runs.front(), mark)) {
            const double limit = value(runs.front(), mark);
            std::printf("%7g %-8s  %s", limit, column.unit, verdict(median_of(runs, column.counter), limit));
        }
    }
    std::printf("\n");
}

} // namespace

void print_marked(const std::string &name, double value, const char *unit, double limit) {
    std::printf("%-*s %.2f %s, mark %g: %s\n", name_width, name.c_str(), value, unit, limit, verdict(value, limit));
}

bool TableReporter::ReportContext(const Context &) {
    std::printf("compiler: %s\n", KO_BENCH_COMPILER);
    std::printf("ratio:    to a memcpy, in turn with the job, of the bytes that the job has to read and write\n");
    std::printf("item:     a pixel of a picture, or an entry of a curve\n\n");
    std::printf("%-*s %10s %10s %14s %8s  %16s\n", name_width, "", "ms", "ns/item", "memcpy ns/item", "ratio", "mark");
    std::fflush(stdout);
    return true;
}

void TableReporter::ReportRuns(const std::vector<Run> &runs) {
    for (const Run &run : runs) {
        if (run.error_occurred) {
            std::printf("%-*s failed: %s\n", name_width, run.run_name.function_name.c_str(), run.error_message.c_str());
            failed_ = true;
            return;
        }
    }
    const std::vector<Run> repetitions = repetitions_of(runs);
    if (repetitions.empty()) {
        return;
    }
    std::printf("%-*s %10.2f %10.3f %14.3f %8.2f  ", name_width, repetitions.front().run_name.function_name.c_str(),
                median_of(repetitions, "ms"), median_of(repetitions, "ns_item"), median_of(repetitions, "memcpy_ns_item"),
                median_of(repetitions, "ratio"));
    print_mark(repetitions);
    std::fflush(stdout);
    if (has(repetitions.front(), "flat")) {
        flat_ns_item_.push_back(median_of(repetitions, "ns_item"));
    }
}

void TableReporter::Finalize() {
    if (flat_ns_item_.size() >= 2) {
        const double slowest = *std::max_element(flat_ns_item_.begin(), flat_ns_item_.end());
        print_marked("whole enhancement, growth with the size", slowest / flat_ns_item_.front(), "x", growth_limit);
    }
}

} // namespace ko_bench
