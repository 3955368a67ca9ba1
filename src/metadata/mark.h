// The mark that a result carries among the names of the software that made it: which program did what to the picture, such as
// "ko 0.1.0 (red eyes repaired, shadows opened)". What other programs wrote there stays in front of it.
#ifndef KO_METADATA_MARK_H
#define KO_METADATA_MARK_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace metadata {

struct Mark {
    std::string version;            // of the program
    std::vector<std::string> deeds; // without commas and parentheses

    bool has(std::string_view deed) const;

    // Adds a deed unless the mark has it already.
    void add(std::string_view deed);
};

// The mark in a text; none without one.
std::optional<Mark> mark_in(std::string_view text);

// The text with this mark in place of its old one, or at its end.
std::string with_mark(std::string_view text, const Mark &mark);

} // namespace metadata

#endif
