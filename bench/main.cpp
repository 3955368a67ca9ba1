// ko_bench: without arguments, or with those of Google Benchmark, all benchmarks; with --peak-memory the peak resident memory
// of one enhancement, which needs a process of its own.
#include <cstdio>
#include <cstring>

#include <sys/resource.h>

#include "enhancement_job.h"
#include "report.h"
#include "support.h"

namespace {

using namespace ko_bench;

constexpr double memory_limit = 100.0; // bytes a pixel

double peak_resident_bytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) * 1024.0;
}

int report_peak_memory() {
    const std::vector<uint8_t> input = photograph(size_16_megapixels, 3);
    std::vector<uint8_t> output(input.size());
    if (!enhance(size_16_megapixels, input, output)) {
        std::printf("whole enhancement failed: %s\n", KoErrorGetLastErrorMessage());
        return 1;
    }
    const double bytes_per_pixel = peak_resident_bytes() / static_cast<double>(size_16_megapixels.pixels());
    print_marked("whole enhancement 16 MP, peak memory", bytes_per_pixel, "bytes/px", memory_limit);
    return 0;
}

int run_benchmarks() {
    TableReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.failed() ? 1 : 0;
}

} // namespace

int main(int argc, char **argv) {
    const bool peak_memory = argc == 2 && std::strcmp(argv[1], "--peak-memory") == 0;
    if (!peak_memory) {
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
            return 1;
        }
    }
    KoInit(nullptr, nullptr);
    const int result = peak_memory ? report_peak_memory() : run_benchmarks();
    KoRelease();
    return result;
}
