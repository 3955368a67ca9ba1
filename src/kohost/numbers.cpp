// The standard library's conversions do all of this, but some standard libraries lack those of floating-point numbers. Theirs
// are replaced by the functions of C, which read and write the same numbers: WebAssembly has no locale but that of C.
#include "kohost/numbers.h"

#include <array>
#include <charconv>
#include <system_error>

#ifndef __cpp_lib_to_chars
#include <cmath>
#include <cstdio>
#include <cstdlib>
#endif

namespace kohost {

namespace {

template <class Number> bool read(std::string_view &text, Number &number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return error == std::errc();
}

#ifndef __cpp_lib_to_chars

// Longer than any number in fixed notation.
using Room = std::array<char, 512>;

// The fewest digits behind the first one that give the number back.
int digits_behind_first(float number) {
    constexpr int enough = 8;
    Room room;
    int digits = 0;
    do {
        std::snprintf(room.data(), room.size(), "%.*e", digits, static_cast<double>(number));
    } while (std::strtof(room.data(), nullptr) != number && ++digits < enough);
    return digits;
}

#endif

} // namespace

bool read_number(std::string_view &text, uint32_t &number) { return read(text, number); }
bool read_number(std::string_view &text, int32_t &number) { return read(text, number); }

#ifdef __cpp_lib_to_chars

std::string shortest_text(float number) {
    std::array<char, 64> room;
    return {room.data(), std::to_chars(room.data(), room.data() + room.size(), number).ptr};
}

bool read_number(std::string_view &text, double &number) { return read(text, number); }

#else

// Fixed notation unless the one with an exponent is shorter.
std::string shortest_text(float number) {
    if (!std::isfinite(number)) {
        return std::isnan(number) ? "nan" : number < 0.0f ? "-inf" : "inf";
    }
    const int digits = digits_behind_first(number);
    Room room;
    std::snprintf(room.data(), room.size(), "%.*e", digits, static_cast<double>(number));
    const std::string scientific = room.data();
    const int exponent = std::atoi(scientific.c_str() + scientific.find('e') + 1);
    std::snprintf(room.data(), room.size(), "%.*f", digits > exponent ? digits - exponent : 0, static_cast<double>(number));
    const std::string fixed = room.data();
    return fixed.size() <= scientific.size() ? fixed : scientific;
}

// strtod accepts spaces, a plus sign and hexadecimal digits as well, none of which belongs to this notation.
bool read_number(std::string_view &text, double &number) {
    const std::string token(text.substr(0, text.find_first_not_of("+-.0123456789Ee")));
    char *end = nullptr;
    number = std::strtod(token.c_str(), &end);
    const bool reads = end != token.c_str() && token.front() != '+' && std::isfinite(number);
    text.remove_prefix(static_cast<size_t>(end - token.c_str()));
    return reads;
}

#endif

} // namespace kohost
