// The bar is the last line on the terminal: it is erased before anything else is written and drawn anew at the next step.
#include "report.h"

#include <algorithm>
#include <cmath>

#include "report_page.h"
#include "system.h"

namespace host {

namespace {

struct StageEntry {
    const char *name;
    const char *key;
    double start; // share of a picture's time that is over when the stage begins
};

constexpr std::array<StageEntry, stage_count + 1> stages = {{{"reading", "read", 0.0},
                                                             {"red eyes", "red_eyes", 0.2},
                                                             {"judging", "judge", 0.2},
                                                             {"curves", "curves", 0.3},
                                                             {"applying", "apply", 0.4},
                                                             {"writing", "write", 0.4},
                                                             {"", "", 1.0}}};

constexpr size_t bar_cells = 24;
constexpr size_t longest_name = 30;

// The entry of the picture that this thread processes.
thread_local Entry *present = nullptr;

// The end of a path says more than its beginning.
std::string shortened(const std::string &name) {
    return name.size() <= longest_name ? name : "..." + name.substr(name.size() - longest_name + 3);
}

std::string cells(double share) {
    std::string text(bar_cells + 2, '.');
    text.front() = '[';
    text.back() = ']';
    std::fill_n(text.begin() + 1, static_cast<size_t>(share * bar_cells), '#');
    return text;
}

std::string shown(double seconds) {
    std::array<char, 32> room;
    std::snprintf(room.data(), room.size(), "%.2f s", seconds);
    return room.data();
}

std::string content_of(std::FILE *file) {
    std::string text;
    std::array<char, 4096> room;
    std::rewind(file);
    while (const size_t count = std::fread(room.data(), 1, room.size(), file)) {
        text.append(room.data(), count);
    }
    return text;
}

double rounded(double seconds) { return std::round(seconds * 10000.0) / 10000.0; }

} // namespace

// ---- one picture

Entry::Entry(Report &report, size_t number, std::string name) : report_(report), number_(number), name_(std::move(name)) {
    page_ = report.page_ ? report.page_->entry(name_) : nullptr;
    present = this;
}

Entry::~Entry() {
    present = nullptr;
    report_.end(*this);
}

void Entry::at(Stage stage, double share) {
    spend(stage);
    report_.progress(number_, name_, stage, share);
}

void Entry::spend(Stage stage) {
    const Clock::time_point now = Clock::now();
    spent_[static_cast<size_t>(stage_)] += now - switched_;
    switched_ = now;
    stage_ = stage;
}

void Entry::done(const Result &result) {
    spend(stage_);
    take_log();
    if (report_.reporting_.style != Style::quiet) {
        print(report_.lines_, report_.reporting_.style == Style::json ? object(result) : line(result));
    }
    if (page_) {
        page_->size = {result.width, result.height};
        page_->output = result.output;
        if (page_->reason != result.reason) {
            page_->reason += (page_->reason.empty() || result.reason.empty() ? "" : "; ") + result.reason;
        }
        add_outcome(*page_, {result.decision, page_->curves ? PageOutcome::Kind::changed : PageOutcome::Kind::left});
        add_to_page();
    }
}

void Entry::failed(const std::string &why) {
    take_log();
    report_.fail();
    print(stderr, "ko: " + name_ + ": " + why + "\n");
    if (report_.reporting_.style == Style::json) {
        print(report_.lines_, line_of(object_with({{"error", why}})) + "\n");
    }
    add_unseen({"failed", PageOutcome::Kind::failed}, why);
}

void Entry::answered(const std::string &text) {
    spend(stage_);
    print(report_.lines_, text);
}

void Entry::skipped(const std::string &output, const std::string &why) {
    if (report_.reporting_.style == Style::json) {
        Json object = object_with({});
        set_name(object, "output", output);
        object.update({{"decision", "skipped"}, {"reason", why}});
        print(report_.lines_, line_of(object) + "\n");
    } else if (report_.reporting_.style == Style::lines) {
        print(report_.lines_, name_ + ": skipped: " + why + "\n");
    }
    add_unseen({"skipped", PageOutcome::Kind::left}, why);
}

// For a picture of which a page can show nothing.
void Entry::add_unseen(const PageOutcome &outcome, const std::string &why) {
    if (page_) {
        *page_ = PageEntry{};
        page_->name = name_;
        page_->reason = why;
        add_outcome(*page_, outcome);
        add_to_page();
    }
}

bool Entry::wants_details() const { return report_.reporting_.verbose; }

void Entry::detail(const std::string &text) {
    if (wants_details()) {
        print(stderr, "ko: " + name_ + ": " + text + "\n");
    }
}

void Entry::add_to_page() {
    spend(stage_);
    page_->seconds = seconds();
    for (size_t i = 0; i < stage_count; ++i) {
        if (const double time = rounded(seconds(static_cast<Stage>(i))); time > 0.0) {
            page_->timings.emplace_back(stages[i].name, time);
        }
    }
    report_.page_->add(number_, *page_);
    page_.reset();
}

void Entry::notice(const std::string &text) {
    if (page_) {
        page_->notices.push_back(text);
    }
    if (report_.reporting_.style != Style::quiet) {
        print(stderr, "ko: " + name_ + ": notice: " + text + "\n");
    }
}

void Entry::take_log() {
    if (log_ != nullptr) {
        print(stderr, "ko: " + name_ + ": progress:\n" + content_of(log_.get()));
        log_.reset();
    }
}

std::FILE *Entry::log() {
    log_.reset(std::tmpfile());
    return log_.get();
}

std::string Entry::line(const Result &result) const {
    const std::string why = result.reason.empty() ? "" : ": " + result.reason;
    const std::string said = result.said.empty() ? result.decision + why : result.said;
    std::string text = name_ + ": " + std::to_string(result.width) + " x " + std::to_string(result.height) + ", " + said +
                       ", " + shown(seconds());
    if (report_.reporting_.dry_run) {
        text += ", nothing written";
    }
    if (report_.reporting_.timings) {
        for (size_t i = 0; i < stage_count; ++i) {
            text += (i == 0 ? " (" : ", ") + std::string(stages[i].name) + " " + shown(seconds(static_cast<Stage>(i)));
        }
        text += ")";
    }
    return text + "\n";
}

Json Entry::object_with(const Json &members) const {
    Json object = Json::object();
    set_name(object, "file", name_);
    object.update(members.is_null() ? Json::object() : members);
    return object;
}

std::string Entry::object(const Result &result) const {
    Json object = object_with({});
    set_name(object, "output", result.output);
    object["width"] = result.width;
    object["height"] = result.height;
    object["decision"] = result.decision;
    if (!result.reason.empty()) {
        object["reason"] = result.reason;
    }
    object.update(result.members);
    if (report_.reporting_.dry_run) {
        object["dry_run"] = true;
    }
    object["seconds"] = std::round(seconds() * 100.0) / 100.0;
    object["timings"] = Json::object();
    for (size_t i = 0; i < stage_count; ++i) {
        object["timings"][stages[i].key] = rounded(seconds(static_cast<Stage>(i)));
    }
    return line_of(object) + "\n";
}

// ---- all of them

Report::Report(const Reporting &reporting)
    : reporting_(reporting), lines_(reporting.output_is_taken ? stderr : stdout),
      bar_(reporting.style == Style::lines && !reporting.output_is_taken && system::has_terminal()) {}

void Report::expect(size_t pictures) {
    progress_.resize(pictures);
    waiting_.resize(pictures);
    ended_.resize(pictures);
}

Report::~Report() { clear_bar(); }

void Report::open_page(std::unique_ptr<ReportPage> page) { page_ = std::move(page); }

void Report::close_page() {
    if (page_) {
        page_->write();
    }
}

std::unique_ptr<Entry> Report::begin(size_t number, const std::string &name) {
    std::unique_ptr<Entry> entry(new Entry(*this, number, name));
    progress(number, name, Stage::reading, 0.0);
    return entry;
}

void Report::remark(const std::string &text) {
    if (reporting_.style != Style::quiet) {
        const std::lock_guard<std::mutex> guard(lock_);
        write(stderr, "ko: notice: " + text + "\n");
    }
}

void Report::error(const std::string &text) {
    const std::lock_guard<std::mutex> guard(lock_);
    any_failed_ = true;
    write(stderr, "ko: " + text + "\n");
}

void Report::message(const char *text) {
    if (present != nullptr) {
        present->message(text);
        return;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    write(stderr, std::string(text) + "\n");
}

bool Report::good() {
    abandon();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        error("the standard output cannot be written");
    }
    return !any_failed_;
}

void Report::abandon() {
    const std::lock_guard<std::mutex> guard(lock_);
    clear_bar();
}

void Report::set_progress(size_t number, double progress) {
    total_progress_ += progress - progress_[number];
    progress_[number] = progress;
}

void Report::progress(size_t number, const std::string &name, Stage stage, double share) {
    if (!bar_) {
        return;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    const StageEntry *entry = &stages[static_cast<size_t>(stage)];
    set_progress(number, entry->start + share * (entry[1].start - entry->start));
    draw_bar(name, stage);
}

// Entries that had to wait for this one are written after it.
void Report::end(Entry &entry) {
    const std::lock_guard<std::mutex> guard(lock_);
    ++finished_;
    set_progress(entry.number_, 1.0);
    ended_[entry.number_] = true;
    waiting_[entry.number_] = std::move(entry.said_);
    for (; turn_ < ended_.size() && ended_[turn_]; ++turn_) {
        for (const auto &[stream, text] : waiting_[turn_]) {
            write(stream, text);
        }
        waiting_[turn_] = {};
    }
}

void Report::fail() {
    const std::lock_guard<std::mutex> guard(lock_);
    any_failed_ = true;
}

void Report::write(std::FILE *stream, const std::string &text) {
    clear_bar();
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

// Cut to the terminal's width: a line that wraps cannot be erased.
void Report::draw_bar(const std::string &name, Stage stage) {
    if (finished_ == progress_.size()) {
        return;
    }
    const double share = total_progress_ / static_cast<double>(progress_.size());
    std::string line = cells(share) + " " + std::to_string(finished_ + 1) + "/" + std::to_string(progress_.size()) + " " +
                       time_left() + shortened(name) + ": " + stages[static_cast<size_t>(stage)].name;
    line.resize(std::min<size_t>(line.size(), system::terminal_width() - 1));
    if (line != drawn_) {
        std::printf("\r\033[K%s", line.c_str());
        std::fflush(stdout);
        drawn_ = line;
    }
}

// Rate and remaining time, once they are meaningful.
std::string Report::time_left() const {
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    if (seconds < 2.0 || total_progress_ < 0.5) {
        return "";
    }
    const double rate = total_progress_ / seconds;
    const auto left = static_cast<unsigned long>((static_cast<double>(progress_.size()) - total_progress_) / rate);
    std::array<char, 64> room;
    std::snprintf(room.data(), room.size(), "%.1f/s, %lu:%02lu left, ", rate, left / 60, left % 60);
    return room.data();
}

void Report::clear_bar() {
    if (!drawn_.empty()) {
        std::printf("\r\033[K");
        std::fflush(stdout);
        drawn_.clear();
    }
}

} // namespace host
