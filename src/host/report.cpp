// The bar is the last line on the terminal: it is taken away before anything else is written and drawn anew at the next
// step.
#include "report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <unistd.h>

namespace host {

namespace {

struct StageEntry {
    const char *name;
    double start; // share of a picture's time that is over when the stage begins
};

constexpr std::array<StageEntry, 5> stages = {
    {{"reading", 0.0}, {"curves", 0.1}, {"applying", 0.65}, {"writing", 0.8}, {"", 1.0}}};

constexpr size_t bar_cells = 24;
constexpr size_t longest_name = 30;

bool is_terminal() {
    const char *kind = std::getenv("TERM");
    return ::isatty(STDOUT_FILENO) != 0 && (kind == nullptr || std::string_view(kind) != "dumb");
}

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

Report::Report(bool quiet, size_t pictures) : quiet_(quiet), bar_(!quiet && is_terminal()), pictures_(pictures) {}

void Report::begin(const std::string &name) {
    name_ = name;
    start_ = std::chrono::steady_clock::now();
    at(Stage::reading);
}

void Report::at(Stage stage, double share) {
    const auto index = static_cast<size_t>(stage);
    stage_ = stage;
    progress_ = stages[index].start + share * (stages[index + 1].start - stages[index].start);
    draw_bar();
}

void Report::done(uint32_t width, uint32_t height, const char *decision) {
    if (!quiet_) {
        clear_bar();
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start_;
        std::printf("%s: %u x %u, %s, %.2f s\n", name_.c_str(), width, height, decision, time.count());
        std::fflush(stdout);
    }
    end_picture();
}

void Report::failed(const std::string &why) {
    error(name_ + ": " + why);
    end_picture();
}

void Report::notice(const std::string &text) {
    if (!quiet_) {
        message(("ko: " + name_ + ": notice: " + text).c_str());
    }
}

void Report::error(const std::string &text) {
    any_failed_ = true;
    message(("ko: " + text).c_str());
}

void Report::message(const char *text) {
    clear_bar();
    std::fprintf(stderr, "%s\n", text);
}

void Report::end_picture() {
    ++finished_;
    progress_ = 0.0;
}

void Report::draw_bar() {
    if (!bar_ || finished_ == pictures_) {
        return;
    }
    const double share = (static_cast<double>(finished_) + progress_) / static_cast<double>(pictures_);
    const std::string line = cells(share) + " " + std::to_string(finished_ + 1) + "/" + std::to_string(pictures_) + " " +
                             shortened(name_) + ": " + stages[static_cast<size_t>(stage_)].name;
    if (line != drawn_) {
        std::printf("\r\033[K%s", line.c_str());
        std::fflush(stdout);
        drawn_ = line;
    }
}

void Report::clear_bar() {
    if (!drawn_.empty()) {
        std::printf("\r\033[K");
        std::fflush(stdout);
        drawn_.clear();
    }
}

} // namespace host
