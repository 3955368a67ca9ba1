#include "entry.h"

#include <cmath>

#include "report.h"
#include "report_page.h"

namespace host {

namespace {

struct StageNames {
    const char *name;
    const char *key;
};

constexpr std::array<StageNames, stage_count> stages = {{{"reading", "read"},
                                                         {"red eyes", "red_eyes"},
                                                         {"judging", "judge"},
                                                         {"curves", "curves"},
                                                         {"applying", "apply"},
                                                         {"writing", "write"}}};

// The entry of the picture that this thread processes.
thread_local Entry *present = nullptr;

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

// The character with a code below a blank as the name of a file may have it.
std::string escaped(char control) {
    std::array<char, 8> room;
    std::snprintf(room.data(), room.size(), "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(control)));
    return control == '\n' ? "\\n" : control == '\t' ? "\\t" : room.data();
}

bool is_control(char c) { return (c >= 0 && c < ' ') || c == '\x7f'; }

template <class Passes> std::string with_escapes(const std::string &text, const Passes &passes) {
    std::string result;
    for (const char c : text) {
        result += is_control(c) && !passes(c) ? escaped(c) : std::string(1, c);
    }
    return result;
}

} // namespace

std::string without_controls(const std::string &text) {
    return with_escapes(text, [](char c) { return c == '\n' || c == '\t'; });
}

std::string name_for_a_line(const std::string &name) {
    return with_escapes(name, [](char) { return false; });
}

const char *name(Stage stage) { return stages[static_cast<size_t>(stage)].name; }

const char *key(Stage stage) { return stages[static_cast<size_t>(stage)].key; }

Entry::Entry(Report &report, size_t number, std::string name)
    : report_(report), number_(number), name_(std::move(name)), shown_name_(name_for_a_line(name_)) {
    page_ = report.page_ ? report.page_->entry(name_) : nullptr;
    present = this;
}

Entry *Entry::of_this_thread() { return present; }

void Entry::print(std::FILE *stream, const std::string &text) { said_.emplace_back(stream, without_controls(text)); }

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
    report_.count(result.decision);
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
    report_.count("failed");
    print(stderr, "ko: " + shown_name_ + ": " + why + "\n");
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
    report_.count("skipped");
    if (report_.reporting_.style == Style::json) {
        Json object = object_with({});
        set_name(object, "output", output);
        object.update({{"decision", "skipped"}, {"reason", why}});
        print(report_.lines_, line_of(object) + "\n");
    } else if (report_.reporting_.style == Style::lines) {
        print(report_.lines_, shown_name_ + ": skipped: " + why + "\n");
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

bool Entry::wants_object() const { return report_.reporting_.style == Style::json; }

void Entry::detail(const std::string &text) {
    if (wants_details()) {
        print(stderr, "ko: " + shown_name_ + ": " + text + "\n");
    }
}

void Entry::add_to_page() {
    spend(stage_);
    page_->seconds = seconds();
    for (size_t i = 0; i < stage_count; ++i) {
        if (const double time = rounded(seconds(static_cast<Stage>(i))); time > 0.0) {
            page_->timings.emplace_back(name(static_cast<Stage>(i)), time);
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
        print(stderr, "ko: " + shown_name_ + ": notice: " + text + "\n");
    }
}

void Entry::take_log() {
    if (log_ != nullptr) {
        print(stderr, "ko: " + shown_name_ + ": progress:\n" + content_of(log_.get()));
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
    std::string text = shown_name_ + ": " + std::to_string(result.width) + " x " + std::to_string(result.height) + ", " + said +
                       ", " + shown(seconds());
    if (report_.reporting_.dry_run) {
        text += ", nothing written";
    }
    if (report_.reporting_.timings) {
        for (size_t i = 0; i < stage_count; ++i) {
            text +=
                (i == 0 ? " (" : ", ") + std::string(name(static_cast<Stage>(i))) + " " + shown(seconds(static_cast<Stage>(i)));
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
        object["timings"][key(static_cast<Stage>(i))] = rounded(seconds(static_cast<Stage>(i)));
    }
    return line_of(object) + "\n";
}

} // namespace host
