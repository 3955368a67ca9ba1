// What the program reports: one line per picture on the standard output, as text or as a JSON object, notices and errors on the
// standard error stream, and a bar for all pictures if the output is a terminal.
//
// Pictures may be processed at the same time. Each has an entry, which keeps what is reported about it; entries are written
// whole and in the order of the inputs.
#ifndef KO_HOST_REPORT_H
#define KO_HOST_REPORT_H

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "entry.h"

namespace host {

class Report {
  public:
    explicit Report(const Reporting &reporting);
    ~Report();
    Report(const Report &) = delete;
    Report &operator=(const Report &) = delete;

    // The number of pictures that will begin. Called once, before the first.
    void expect(size_t pictures);

    // Picture number of the inputs begins. Every number is begun once.
    std::unique_ptr<Entry> begin(size_t number, const std::string &name);

    // The page of the run, or null. It is opened before the first picture begins, and written by close_page(), which throws
    // FileError.
    void open_page(std::unique_ptr<ReportPage> page);
    void close_page();

    // A notice that concerns no single picture.
    void remark(const std::string &text);

    // An error that concerns no single picture.
    void error(const std::string &text);

    // Something the library prints on this thread: it concerns the picture that the thread processes, if any.
    void message(const char *text);

    // True if all went well, and the standard output took what was written to it.
    bool good();

    // Takes the bar away for good, for a program that ends in the middle of its work.
    void abandon();

  private:
    friend class Entry;

    void set_progress(size_t number, double progress);
    void progress(size_t number, const std::string &name, Stage stage, double share);
    void end(Entry &entry);
    void fail();
    void count(const std::string &outcome);
    void sum_up(const char *how);
    void write(std::FILE *stream, const std::string &text);
    void draw_bar(const std::string &name, Stage stage);
    void clear_bar();

    std::string time_left() const;

    using Clock = std::chrono::steady_clock;

    const Reporting reporting_;
    std::FILE *const lines_; // where results go
    const bool bar_;
    const Clock::time_point start_ = Clock::now();
    std::unique_ptr<ReportPage> page_;
    std::mutex lock_;              // guards all below
    std::vector<double> progress_; // of each picture, 0 to 1
    double total_progress_ = 0.0;
    std::vector<std::vector<std::pair<std::FILE *, std::string>>> waiting_; // said of pictures that ended before their turn
    std::vector<bool> ended_;
    size_t finished_ = 0;
    std::map<std::string, size_t> outcomes_; // how many pictures ended in each way
    size_t turn_ = 0;                        // the picture whose entry is written next
    std::string drawn_;
    bool any_failed_ = false;
};

} // namespace host

#endif
