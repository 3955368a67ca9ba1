// What is said of one picture while it is processed: its result, its notices and its errors, as text or as a JSON object.
#ifndef KO_HOST_ENTRY_H
#define KO_HOST_ENTRY_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "json.h"

namespace host {

enum class Stage { reading, red_eyes, judging, curves, applying, writing };
inline constexpr size_t stage_count = 6;

// As a person reads it, such as "red eyes", and as the key of a member.
const char *name(Stage stage);
const char *key(Stage stage);

enum class Style { lines, json, quiet };

struct Reporting {
    Style style = Style::lines;
    bool verbose = false;         // more about each picture
    bool timings = false;         // how long each stage of a picture took
    bool dry_run = false;         // nothing is written
    bool output_is_taken = false; // by a picture; what is reported about it goes to the standard error stream
};

// A text in which control characters but tabs and ends of lines are written as escapes: what a file is called, or what a
// library says, must not command a terminal.
std::string without_controls(const std::string &text);

// The same without any control character, for a name within a line.
std::string name_for_a_line(const std::string &name);

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

    // Whether the picture is reported as an object.
    bool wants_object() const;

    // Something the library prints of its own accord.
    void message(const std::string &text) { print(stderr, text + "\n"); }

    // What the page of the run shows about this picture; null without a page, or once the picture has ended.
    PageEntry *page() { return page_.get(); }

    // The entry of the picture that this thread processes; null if it processes none.
    static Entry *of_this_thread();

    // Where the library may write its progress with the picture.
    std::FILE *log();

  private:
    friend class Report;
    using Clock = std::chrono::steady_clock;

    Entry(Report &report, size_t number, std::string name);

    void print(std::FILE *stream, const std::string &text);
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
    const std::string shown_name_;
    std::vector<std::pair<std::FILE *, std::string>> said_;
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> log_{nullptr, std::fclose};
    std::unique_ptr<PageEntry> page_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point switched_ = start_;
    Stage stage_ = Stage::reading;
    std::array<Clock::duration, stage_count> spent_{};
};

} // namespace host

#endif
