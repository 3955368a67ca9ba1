#include "metadata/mark.h"

#include <algorithm>

namespace metadata {

namespace {

constexpr std::string_view program = "ko ";
constexpr std::string_view between_programs = "; ";
constexpr std::string_view between_deeds = ", ";

// A mark and its place in a text.
struct Place {
    size_t begin;
    size_t end;
    Mark mark;
};

std::vector<std::string> deeds_in(std::string_view list) {
    std::vector<std::string> deeds;
    for (size_t end = 0; end != std::string_view::npos;) {
        end = list.find(between_deeds);
        deeds.emplace_back(list.substr(0, end));
        list.remove_prefix(std::min(list.size(), end == std::string_view::npos ? list.size() : end + between_deeds.size()));
    }
    return deeds;
}

// The mark that begins at a place in a text; none if something else begins there.
std::optional<Place> mark_at(std::string_view text, size_t begin) {
    const size_t version = begin + program.size();
    const size_t open = text.find_first_not_of("0123456789.", version);
    const size_t close = text.find(')', begin);
    const bool ends =
        close != std::string_view::npos && (close + 1 == text.size() || text.substr(close + 1).starts_with(between_programs));
    if (!ends || open == version || !text.substr(open).starts_with(" (")) {
        return std::nullopt;
    }
    return Place{begin,
                 close + 1,
                 {std::string(text.substr(version, open - version)), deeds_in(text.substr(open + 2, close - open - 2))}};
}

std::optional<Place> find_mark(std::string_view text) {
    for (size_t begin = text.find(program); begin != std::string_view::npos; begin = text.find(program, begin + 1)) {
        const bool begins = begin == 0 || text.substr(0, begin).ends_with(between_programs);
        if (auto place = begins ? mark_at(text, begin) : std::nullopt) {
            return place;
        }
    }
    return std::nullopt;
}

std::string text_of(const Mark &mark) {
    std::string text(program);
    text.append(mark.version).append(" (");
    for (size_t i = 0; i < mark.deeds.size(); ++i) {
        text.append(i == 0 ? "" : between_deeds).append(mark.deeds[i]);
    }
    return text.append(")");
}

} // namespace

bool Mark::has(std::string_view deed) const { return std::find(deeds.begin(), deeds.end(), deed) != deeds.end(); }

void Mark::add(std::string_view deed) {
    if (!has(deed)) {
        deeds.emplace_back(deed);
    }
}

std::optional<Mark> mark_in(std::string_view text) {
    std::optional<Place> place = find_mark(text);
    return place ? std::optional(std::move(place->mark)) : std::nullopt;
}

std::string with_mark(std::string_view text, const Mark &mark) {
    const std::optional<Place> place = find_mark(text);
    std::string result(text);
    if (place) {
        return result.replace(place->begin, place->end - place->begin, text_of(mark));
    }
    return result.append(text.empty() ? "" : between_programs).append(text_of(mark));
}

} // namespace metadata
