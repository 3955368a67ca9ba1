// The table of the benchmarks: what each line took, what its yardstick took, and whether it meets its mark.
#ifndef KO_BENCH_REPORT_H
#define KO_BENCH_REPORT_H

#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace ko_bench {

// Prints a line per benchmark, the median over its repetitions, as soon as it is there.
class TableReporter : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context &context) override;
    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

    // True if a call of the library failed.
    bool failed() const { return failed_; }

  private:
    bool failed_ = false;
    std::vector<double> flat_ns_item_;
};

// Prints a line of a value with a mark, in the words of the table.
void print_marked(const std::string &name, double value, const char *unit, double limit);

} // namespace ko_bench

#endif
