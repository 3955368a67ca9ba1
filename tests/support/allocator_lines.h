// What a failed allocation writes to the standard error stream and leaves as its text.
#ifndef KO_TESTS_ALLOCATOR_LINES_H
#define KO_TESTS_ALLOCATOR_LINES_H

#include <algorithm>
#include <cstdint>
#include <string>

namespace ko_test {

// The line that the failed request of size bytes writes.
inline std::string allocator_line(int64_t size) {
    return "[ERROR] Memory allocation failed: can't allocated " + std::to_string(size) + " bytes of memory\n";
}

// The text of its report.
inline std::string allocator_text(int64_t size) { return "Cannot allocate " + std::to_string(size) + " bytes"; }

// A captured standard error stream without a sanitizer's own remarks on enormous requests.
inline std::string own_lines(const std::string &text) {
    std::string own;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size() - 1) + 1;
        if (text.compare(begin, 2, "==") != 0) {
            own += text.substr(begin, end - begin);
        }
        begin = end;
    }
    return own;
}

} // namespace ko_test

#endif
