// A row of the page is HTML and can be read without its script; what opens under the row is JSON from which the script builds
// it, so that a closed picture costs only its text and is decoded when it is opened.
//
// Names of files and texts about them are not trusted: they enter the page through escaped() and through JSON without '<'.
#include "report_page.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <new>
#include <numeric>
#include <span>
#include <string_view>

#include "json.h"
#include "options.h"
#include "page/parts.h"
#include "paths.h"

namespace host {

namespace fs = std::filesystem;

namespace {

// ---- texts

// How many bytes at the start of a text are a character that changes the direction of writing: names must not be shown in
// another order than they have.
size_t direction_mark(std::string_view text) {
    constexpr std::array<std::string_view, 11> marks = {"\u200e", "\u200f", "\u202a", "\u202b", "\u202c", "\u202d",
                                                        "\u202e", "\u2066", "\u2067", "\u2068", "\u2069"};
    const auto found = std::find_if(marks.begin(), marks.end(), [&](std::string_view mark) { return text.starts_with(mark); });
    return found == marks.end() ? 0 : found->size();
}

// Always UTF-8: other bytes become U+FFFD, and invisible characters the numbers of their bytes.
std::string readable(const std::string &text) {
    const auto text8 = Json::parse(line_of(Json(text))).get<std::string>();
    std::string result;
    size_t hidden = 0; // bytes of such a character
    for (size_t i = 0; i < text8.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text8[i]);
        hidden = std::max(hidden, byte < 0x20 || byte == 0x7f ? 1 : direction_mark(std::string_view(text8).substr(i)));
        if (hidden > 0) {
            std::array<char, 8> room;
            std::snprintf(room.data(), room.size(), "\\x%02x", byte);
            result += room.data();
            --hidden;
        } else {
            result += text8[i];
        }
    }
    return result;
}

std::string escaped(const std::string &text) {
    std::string result;
    for (const char c : readable(text)) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&#39;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

// As the content of a script element, which only '<' can end.
std::string embedded(const Json &object) {
    std::string result;
    for (const char c : line_of(object)) {
        result += c == '<' ? "\\u003c" : std::string(1, c);
    }
    return result;
}

std::string base64(std::span<const uint8_t> bytes) {
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t count = std::min<size_t>(bytes.size() - i, 3);
        const uint32_t word =
            uint32_t{bytes[i]} << 16 | (count > 1 ? uint32_t{bytes[i + 1]} << 8 : 0) | (count > 2 ? uint32_t{bytes[i + 2]} : 0);
        for (size_t k = 0; k < 4; ++k) {
            text += k <= count ? alphabet[word >> (18 - 6 * k) & 63] : '=';
        }
    }
    return text;
}

std::string shown(double seconds) {
    std::array<char, 32> room;
    std::snprintf(room.data(), room.size(), "%.2f s", seconds);
    return room.data();
}

const char *class_of(PageOutcome::Kind kind) {
    switch (kind) {
    case PageOutcome::Kind::changed:
        return "changed";
    case PageOutcome::Kind::failed:
        return "failed";
    default:
        return "left";
    }
}

// ---- the data of a picture

constexpr int preview_quality = 80;
constexpr size_t largest_profile = 1 << 14;

std::string jpeg_uri(const kohost::Image &stored, const PageEntry &entry) {
    const kohost::Image image = shown_image(entry.orientation, stored);
    codec::Picture picture;
    picture.format = codec::Format::jpeg;
    picture.width = image.size.width;
    picture.height = image.size.height;
    picture.channels = image.channels;
    picture.subsampling = {2, 2};
    picture.pixels = std::make_unique_for_overwrite<uint8_t[]>(image.bytes.size());
    std::copy(image.bytes.begin(), image.bytes.end(), picture.pixels.get());
    if (entry.icc_profile.size() <= largest_profile) {
        picture.metadata.icc_profile = entry.icc_profile;
    }
    codec::Notices notices;
    return "data:image/jpeg;base64," + base64(codec::encode(picture, {codec::Format::jpeg, preview_quality}, notices));
}

// At most this number of tiles is shown in each direction: more would be too small to see, and too many to keep.
constexpr uint32_t most_shown = 32;
constexpr uint64_t points = 256;

// A byte for each level of a byte picture.
void add_points(const PageCurves &curves, uint64_t tile, codec::Bytes &bytes) {
    const uint64_t step = curves.size / points;
    const uint32_t *curve = curves.entries.data() + tile * curves.size;
    for (uint64_t i = 0; i < points; ++i) {
        bytes.push_back(static_cast<uint8_t>(std::min<uint64_t>(curve[i * step] / step, 255)));
    }
}

Json object_of(const PageCurves &curves, const Orientation &orientation) {
    const kohost::Size grid{static_cast<uint32_t>(curves.grid.columns), static_cast<uint32_t>(curves.grid.rows)};
    const kohost::Size shown = shown_size(orientation, grid);
    const std::vector<size_t> order = shown_order(orientation, grid);
    const auto stride = [](uint32_t tiles) { return (tiles + most_shown - 1) / most_shown; };
    codec::Bytes bytes;
    for (uint32_t row = 0; row < shown.height; row += stride(shown.height)) {
        for (uint32_t column = 0; column < shown.width; column += stride(shown.width)) {
            add_points(curves, order[size_t{row} * shown.width + column], bytes);
        }
    }
    return {{"columns", shown.width},
            {"rows", shown.height},
            {"across", stride(shown.width)},
            {"down", stride(shown.height)},
            {"points", base64(bytes)}};
}

Json object_of(const PageMeasure &measure, const Orientation &orientation) {
    constexpr kohost::Size blocks{8, 8};
    Json scores = Json::array();
    for (const size_t block : shown_order(orientation, blocks)) {
        scores.push_back(measure.scores[block]);
    }
    const bool low = measure.measure != kohost::Measure::noise; // blocks below the threshold count
    const char *name = measure.measure == kohost::Measure::detail    ? "Detail gained"
                       : measure.measure == kohost::Measure::entropy ? "Entropy of dark tones"
                                                                     : "Colour noise";
    return {{"name", name},
            {"low", low},
            {"threshold", measure.threshold},
            {"count", measure.count},
            {"scores", std::move(scores)}};
}

// A box as fractions of the picture's size.
std::array<float, 4> box_of(const kohost::Box &box, kohost::Size size, const Orientation &orientation) {
    const auto share = [](uint32_t pixel, uint32_t side) {
        return std::min(static_cast<float>(pixel) / static_cast<float>(side), 1.0f);
    };
    std::array<float, 2> across = {share(box.x0, size.width), share(box.x1, size.width)};
    std::array<float, 2> down = {share(box.y0, size.height), share(box.y1, size.height)};
    if (orientation.swapped) {
        std::swap(across, down);
    }
    if (orientation.reversed_x) {
        across = {1.0f - across[1], 1.0f - across[0]};
    }
    if (orientation.reversed_y) {
        down = {1.0f - down[1], 1.0f - down[0]};
    }
    return {across[0], down[0], across[1], down[1]};
}

Json object_of(const kohost::Place &place, const PageEntry &entry) {
    if (!place.judged) {
        return {{"label", "not judged"}, {"box", box_of(place.box, entry.size, entry.orientation)}};
    }
    Json object = {{"label", kohost::name_of_label(place.label)},
                   {"box", box_of(place.window, entry.size, entry.orientation)},
                   {"scores", {place.fe_score, place.be_score}}};
    if (place.score) {
        object["score"] = *place.score;
    }
    return object;
}

Json object_of(const PageEntry &entry) {
    Json object = {{"output", readable(entry.output)}, {"verdict", entry.verdict}};
    object["notices"] = Json::array();
    for (const std::string &notice : entry.notices) {
        object["notices"].push_back(readable(notice));
    }
    object["timings"] = entry.timings;
    object["seconds"] = entry.seconds;
    if (entry.before) {
        const kohost::Size size = shown_size(entry.orientation, entry.before->size);
        object["width"] = size.width;
        object["height"] = size.height;
        object["before"] = jpeg_uri(*entry.before, entry);
    }
    if (entry.before && entry.after) {
        object["after"] = jpeg_uri(*entry.after, entry);
    }
    if (entry.curves) {
        object["curves"] = object_of(*entry.curves, entry.orientation);
    }
    for (const PageMeasure &measure : entry.measures) {
        object["measures"].push_back(object_of(measure, entry.orientation));
    }
    if (entry.red_eyes && entry.size.area() > 0) {
        object["places"] = Json::array();
        for (const kohost::Place &place : entry.red_eyes->places) {
            object["places"].push_back(object_of(place, entry));
        }
    }
    return object;
}

// ---- the row of a picture

// The folder matters less than the name in it. A name's direction of writing does not affect the text around it.
std::string name_in_row(const std::string &name) {
    const size_t start = name.rfind('/') + 1;
    const std::string folder = name.substr(0, start);
    return "<bdi class=\"name\">" + (folder.empty() ? "" : "<span class=\"folder\">" + escaped(folder) + "</span>") +
           escaped(name.substr(start)) + "</bdi>";
}

std::string outcomes_in_row(const PageEntry &entry) {
    std::string text;
    for (const PageOutcome &outcome : entry.outcomes) {
        text += "<span class=\"outcome " + std::string(class_of(outcome.kind)) + "\">" + escaped(outcome.text) + "</span>";
    }
    return text;
}

std::string row_of(size_t number, const PageEntry &entry) {
    std::string text = "<summary><span class=\"number\">" + std::to_string(number + 1) + "</span>" + name_in_row(entry.name);
    text += "<span class=\"outcomes\">" + outcomes_in_row(entry) + "</span>";
    if (entry.size.area() > 0) {
        text += "<span class=\"size\">" + std::to_string(entry.size.width) + " \u00d7 " + std::to_string(entry.size.height) +
                "</span>";
    }
    text += "<span class=\"time\">" + shown(entry.seconds) + "</span>";
    if (!entry.reason.empty()) {
        text += "<span class=\"reason\">" + escaped(entry.reason) + "</span>";
    }
    return text + "</summary>\n";
}

std::string text_of(size_t number, const PageEntry &entry) {
    return "<details class=\"entry\" id=\"picture-" + std::to_string(number + 1) + "\">" + row_of(number, entry) +
           "<script type=\"application/json\">" + embedded(object_of(entry)) + "</script></details>\n";
}

// ---- the page around the pictures

std::string head(const std::string &title) {
    std::string text = "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src data:; style-src '";
    text.append(page::style_hash).append("'; script-src '").append(page::script_hash);
    text += "'; base-uri 'none'; form-action 'none'\">\n"
            "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
            "<meta name=\"color-scheme\" content=\"light dark\">\n<link rel=\"icon\" href=\"data:,\">\n<title>" +
            title + "</title>\n<style>";
    text.append(page::style).append("</style>\n</head>\n<body>\n");
    return text;
}

std::string foot() {
    std::string text = "</section>\n</main>\n<script>";
    text.append(page::script).append("</script>\n</body>\n</html>\n");
    return text;
}

std::string counted(size_t pictures) { return std::to_string(pictures) + (pictures == 1 ? " picture" : " pictures"); }

void put(Draft &draft, std::string_view text) {
    if (!draft.write({reinterpret_cast<const uint8_t *>(text.data()), text.size()})) {
        throw FileError(draft.failure());
    }
}

void put_file(Draft &draft, const fs::path &path) {
    FileInput file(path);
    std::array<uint8_t, 1 << 16> room;
    uint64_t offset = 0;
    while (const std::optional<size_t> count = file.read(offset, room)) {
        if (*count == 0) {
            return;
        }
        put(draft, {reinterpret_cast<const char *>(room.data()), *count});
        offset += *count;
    }
    throw FileError(file.failure());
}

// Even a page of a thousand pictures should open at once in a browser.
constexpr uint64_t largest_preview = 250'000;
constexpr uint64_t smallest_preview = 60'000;
constexpr uint64_t all_previews = 60'000'000;

} // namespace

ReportPage::ReportPage(const fs::path &target, std::string title, size_t pictures)
    : target_(target), title_(std::move(title)), pictures_(pictures), spool_(target) {}

std::unique_ptr<PageEntry> ReportPage::entry(const std::string &name) const {
    auto entry = std::make_unique<PageEntry>();
    entry->name = name;
    entry->preview_area = std::clamp(all_previews / std::max<size_t>(pictures_, 1), smallest_preview, largest_preview);
    return entry;
}

void ReportPage::add(size_t number, const PageEntry &entry) noexcept {
    try {
        take(number, text_of(number, entry), entry);
    } catch (...) {
        const std::lock_guard<std::mutex> guard(lock_);
        failure_ = std::current_exception();
    }
}

void ReportPage::take(size_t number, std::string text, const PageEntry &entry) {
    const std::lock_guard<std::mutex> guard(lock_);
    for (const PageOutcome &outcome : entry.outcomes) {
        count(outcome);
    }
    seconds_ += entry.seconds;
    waiting_[number] = std::move(text);
    while (!waiting_.empty() && waiting_.begin()->first == turn_) {
        put(spool_, waiting_.begin()->second);
        waiting_.erase(waiting_.begin());
        ++turn_;
    }
}

void ReportPage::count(const PageOutcome &outcome) {
    const auto known = std::find_if(outcomes_.begin(), outcomes_.end(),
                                    [&](const Outcome &other) { return other.outcome.text == outcome.text; });
    if (known != outcomes_.end()) {
        ++known->pictures;
    } else {
        outcomes_.push_back({outcome, 1});
    }
}

std::string ReportPage::summary() const {
    std::vector<Outcome> sorted = outcomes_; // which one occurred first depends on the threads
    std::sort(sorted.begin(), sorted.end(), [](const Outcome &a, const Outcome &b) {
        return std::pair(a.outcome.kind, a.outcome.text) < std::pair(b.outcome.kind, b.outcome.text);
    });
    std::string text = "<header>\n<h1>" + escaped(title_) + "</h1>\n<p>" + counted(pictures_) + ", " + shown(seconds_) +
                       " of work</p>\n</header>\n<main>\n<section aria-label=\"Summary\">\n<table class=\"summary\">\n"
                       "<thead><tr><th scope=\"col\">Outcome</th><th scope=\"col\">Pictures</th></tr></thead>\n<tbody>\n";
    for (const Outcome &one : sorted) {
        text += "<tr><th scope=\"row\"><span class=\"outcome " + std::string(class_of(one.outcome.kind)) + "\">" +
                escaped(one.outcome.text) + "</span></th><td>" + std::to_string(one.pictures) + "</td></tr>\n";
    }
    return text + "</tbody>\n</table>\n</section>\n<section aria-label=\"Pictures\">\n"
                  "<noscript><p>The pictures, curves and measures under each row need scripts.</p></noscript>\n";
}

void ReportPage::write() {
    const std::lock_guard<std::mutex> guard(lock_);
    try {
        if (failure_) {
            std::rethrow_exception(failure_);
        }
        Draft page(target_);
        put(page, head(escaped(title_ + ": " + counted(pictures_))));
        put(page, summary());
        put_file(page, spool_.path());
        put(page, foot());
        page.take_place();
    } catch (const std::bad_alloc &) {
        throw FileError("cannot write " + text_of(target_) + ": not enough memory");
    }
}

std::unique_ptr<ReportPage> page_for(const Options &options, const std::vector<Job> &jobs,
                                     const std::vector<std::string> &also_read) {
    if (options.page.empty()) {
        return nullptr;
    }
    check_apart(path_of(options.page), jobs, also_read);
    const char *command = options.command == Command::enhance  ? "ko enhance"
                          : options.command == Command::redeye ? "ko redeye"
                                                               : "ko auto";
    return std::make_unique<ReportPage>(path_of(options.page), command, jobs.size());
}

} // namespace host
