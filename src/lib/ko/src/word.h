// Comparison of words without regard to case.
#ifndef KO_SRC_WORD_H
#define KO_SRC_WORD_H

#include <cctype>

namespace ko {

inline bool same_word(const char *a, const char *b) {
    while (*a != '\0' && std::tolower(static_cast<unsigned char>(*a)) == std::tolower(static_cast<unsigned char>(*b))) {
        ++a;
        ++b;
    }
    return *a == *b;
}

} // namespace ko

#endif
