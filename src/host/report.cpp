// The bar is the last line on the terminal: it is taken away before anything else is written and drawn anew at the next
// step.
#include "report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <unistd.h>

#include "json.h"

namespace host {

namespace {

struct StageEntry {
    const char *name;
    double start; // share of a picture's time that is over when the stage begins
};

constexpr std::array<StageEntry, 7> stages = {
    {{"reading", 0.0}, {"red eyes", 0.1}, {"judging", 0.1}, {"curves", 0.1}, {"applying", 0.65}, {"writing", 0.8}, {"", 1.0}}};

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

Report::Report(Style style, size_t pictures)
    : style_(style), bar_(style == Style::lines && is_terminal()), pictures_(pictures) {}

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

void Report::done(const Result &result) {
    if (style_ != Style::quiet) {
        clear_bar();
        style_ == Style::json ? print_object(result) : print_line(result);
        std::fflush(stdout);
    }
    end_picture();
}

void Report::failed(const std::string &why) {
    error(name_ + ": " + why);
    if (style_ == Style::json) {
        std::puts(line_of({{"file", name_}, {"error", why}}).c_str());
        std::fflush(stdout);
    }
    end_picture();
}

void Report::notice(const std::string &text) {
    if (style_ != Style::quiet) {
        message(("ko: " + name_ + ": notice: " + text).c_str());
    }
}

void Report::remark(const std::string &text) {
    if (style_ != Style::quiet) {
        message(("ko: notice: " + text).c_str());
    }
}

std::FILE *Report::log() {
    message(("ko: " + name_ + ": progress:").c_str());
    return stderr;
}

void Report::error(const std::string &text) {
    any_failed_ = true;
    message(("ko: " + text).c_str());
}

void Report::message(const char *text) {
    clear_bar();
    std::fprintf(stderr, "%s\n", text);
}

bool Report::good() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        error("the standard output cannot be written");
    }
    return !any_failed_;
}

void Report::print_line(const Result &result) const {
    const std::string why = result.reason.empty() ? "" : ": " + result.reason;
    const std::string said = result.said.empty() ? result.decision + why : result.said;
    std::printf("%s: %u x %u, %s, %.2f s\n", name_.c_str(), result.width, result.height, said.c_str(), seconds());
}

void Report::print_object(const Result &result) const {
    Json object = {{"file", name_},
                   {"output", result.output},
                   {"width", result.width},
                   {"height", result.height},
                   {"decision", result.decision}};
    if (!result.reason.empty()) {
        object["reason"] = result.reason;
    }
    object.update(result.members);
    object["seconds"] = std::round(seconds() * 100.0) / 100.0;
    std::puts(line_of(object).c_str());
}

double Report::seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

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
