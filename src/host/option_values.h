// Options whose values are numbers or one of a few names: each value is parsed completely and checked against its range, so
// that the library gets only valid arguments.
#ifndef KO_HOST_OPTION_VALUES_H
#define KO_HOST_OPTION_VALUES_H

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

#include <CLI/CLI.hpp>

#include "kohost/tuning.h"

namespace host {

inline constexpr uint64_t curve_step = 256; // the library scales levels by whole numbers

// The number that a text is as a whole; none if it is anything else.
template <class Number> std::optional<Number> parse(std::string_view text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

template <class Number> const char *kind() { return std::is_integral_v<Number> ? "a whole number" : "a number"; }

// "--jobs" of "-j,--jobs".
inline std::string long_name(const std::string &option) { return option.substr(option.rfind(',') + 1); }

// Adds an option whose value is a number from low to high; a NaN is in no range.
template <class Target, class Number>
CLI::Option *add_number(CLI::App &command, const std::string &option, Target &target, Number low, Number high,
                        const std::string &shown, const std::string &text) {
    const auto read = [=, &target](const std::string &argument) {
        const std::optional<Number> value = parse<Number>(argument);
        if (!value || !(*value >= low && *value <= high)) {
            std::ostringstream message;
            message << "'" << argument << "' is not " << kind<Number>() << " from " << low << " to " << high;
            throw CLI::ValidationError(long_name(option), message.str());
        }
        target = *value;
    };
    return command.add_option_function<std::string>(option, read, text)->type_name("NUMBER")->default_str(shown);
}

// Adds an option whose value is the name of one of several choices.
template <class Target, class Choice, size_t Count>
CLI::Option *add_choice(CLI::App &command, const std::string &option, Target &target, const std::array<Choice, Count> &choices,
                        const std::string &shown, const std::string &text) {
    std::string names;
    for (const Choice choice : choices) {
        names += (names.empty() ? "" : ", ") + std::string(name(choice));
    }
    const auto read = [=, &target](const std::string &argument) {
        const auto found =
            std::find_if(choices.begin(), choices.end(), [&](Choice choice) { return argument == name(choice); });
        if (found == choices.end()) {
            throw CLI::ValidationError(long_name(option), "'" + argument + "' is none of " + names);
        }
        target = *found;
    };
    return command.add_option_function<std::string>(option, read, text + ": " + names)->type_name("NAME")->default_str(shown);
}

// The values of --grid, --curve-size and --working-size, the last in pixels. All throw CLI::ValidationError.
kohost::Grid parse_grid(const std::string &argument);
uint64_t parse_curve_size(const std::string &argument);
uint64_t parse_working_area(const std::string &argument);

} // namespace host

#endif
