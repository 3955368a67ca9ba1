// The bar is the last line on the terminal: it is erased before anything else is written and drawn anew at the next step.
#include "report.h"

#include <algorithm>
#include <array>

#include "report_page.h"
#include "system.h"

namespace host {

namespace {

// The share of a picture's time that is over when a stage begins, and at the end.
constexpr std::array<double, stage_count + 1> stage_starts = {0.0, 0.2, 0.2, 0.3, 0.4, 0.4, 1.0};

constexpr size_t bar_cells = 24;
constexpr size_t longest_name = 30;

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

} // namespace

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
    write(stderr, without_controls("ko: " + text + "\n"));
}

void Report::message(const char *text) {
    if (Entry *entry = Entry::of_this_thread()) {
        entry->message(text);
        return;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    write(stderr, std::string(text) + "\n");
}

bool Report::good() {
    sum_up("");
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        error("the standard output cannot be written");
    }
    return !any_failed_;
}

void Report::abandon() { sum_up("stopped: "); }

void Report::count(const std::string &outcome) {
    const std::lock_guard<std::mutex> guard(lock_);
    ++outcomes_[outcome];
}

// A run of several pictures ends with a line on the terminal.
void Report::sum_up(const char *how) {
    const std::lock_guard<std::mutex> guard(lock_);
    clear_bar();
    if (!bar_ || progress_.size() < 2 || outcomes_.empty()) {
        return;
    }
    std::string text = how + std::to_string(finished_) + " of " + std::to_string(progress_.size()) + " pictures: ";
    for (const auto &[outcome, count] : outcomes_) {
        text += std::to_string(count) + " " + outcome + ", ";
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    std::array<char, 32> room;
    std::snprintf(room.data(), room.size(), "%.1f s\n", seconds);
    write(stdout, text + room.data());
    outcomes_.clear();
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
    const double *start = &stage_starts[static_cast<size_t>(stage)];
    set_progress(number, start[0] + share * (start[1] - start[0]));
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
                       time_left() + shortened(name_for_a_line(name)) + ": " + host::name(stage);
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
