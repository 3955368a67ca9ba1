// What the program reports: one line per picture on the standard output, as text or as a JSON object, notices and errors on the
// standard error stream, and a bar for all pictures if the output is a terminal.
//
// Pictures may be processed at the same time. Each has an entry, which keeps what is reported about it; entries are written
// whole and in the order of the inputs.
#ifndef KO_HOST_REPORT_H
#define KO_HOST_REPORT_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "json.h"

namespace host {

enum class Stage { reading, red_eyes, judging, curves, applying, writing };
inline constexpr size_t stage_count = 6;

enum class Style { lines, json, quiet };

struct Reporting {
    Style style = Style::lines;
    bool verbose = false;         // more about each picture
    bool timings = false;         // how long each stage of a picture took
    bool dry_run = false;         // nothing is written
    bool output_is_taken = false; // by a picture; what is reported about it goes to the standard error stream
};

// How a picture ended.
struct Result {
    uint32_t width = 0;
    uint32_t height = 0;
    std::string output;            // path of what was written
    std::string decision;          // such as "enhanced"
    std::string reason;            // why the decision is no, otherwise ""
    std::string said = "";         // text of a line in place of the two, or ""
    Json members = Json::object(); // further members of an object
};

class Report;
class ReportPage;
struct PageEntry;
struct PageOutcome;

// What is reported about one picture. An entry belongs to the thread that processes the picture.
class Entry {
  public:
    ~Entry();
    Entry(const Entry &) = delete;
    Entry &operator=(const Entry &) = delete;

    // The picture is in a stage, a share of which is done. Time counts for the stage until the next call of these two.
    void at(Stage stage, double share = 0.0);

    // Time counts for a stage, without showing it.
    void spend(Stage stage);

    // The ways in which a picture ends. The last is for a command whose answer is its only result: the text is printed whatever
    // the style.
    void done(const Result &result);
    void failed(const std::string &why);
    void answered(const std::string &text);
    void skipped(const std::string &output, const std::string &why);

    // Notices about this picture; details are shown only on request.
    void notice(const std::string &text);
    void detail(const std::string &text);
    bool wants_details() const;

    // Something the library prints of its own accord.
    void message(const std::string &text) { print(stderr, text + "\n"); }

    // What the page of the run shows about this picture; null without a page, or once the picture has ended.
    PageEntry *page() { return page_.get(); }

    // Where the library may write its progress with the picture.
    std::FILE *log();

  private:
    friend class Report;
    using Clock = std::chrono::steady_clock;

    Entry(Report &report, size_t number, std::string name);

    void print(std::FILE *stream, const std::string &text) { said_.emplace_back(stream, text); }
    void take_log();
    void add_to_page();
    void add_unseen(const PageOutcome &outcome, const std::string &why);
    std::string line(const Result &result) const;
    Json object_with(const Json &members) const;
    std::string object(const Result &result) const;
    double seconds() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }
    double seconds(Stage stage) const { return std::chrono::duration<double>(spent_[static_cast<size_t>(stage)]).count(); }

    Report &report_;
    const size_t number_;
    const std::string name_;
    std::vector<std::pair<std::FILE *, std::string>> said_;
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> log_{nullptr, std::fclose};
    std::unique_ptr<PageEntry> page_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point switched_ = start_;
    Stage stage_ = Stage::reading;
    std::array<Clock::duration, stage_count> spent_{};
};

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
    size_t turn_ = 0; // the picture whose entry is written next
    std::string drawn_;
    bool any_failed_ = false;
};

} // namespace host

#endif
