// Every number is read whole and checked against its range here, so that the library sees sensible arguments only.
#include "options.h"

#include <charconv>
#include <cmath>
#include <iostream>
#include <sstream>
#include <type_traits>

#include <CLI/CLI.hpp>

namespace host {

namespace {

constexpr uint64_t most_strips = 256;
constexpr uint64_t curve_step = 256;     // the library scales levels by whole numbers
constexpr uint64_t largest_curve = 4096; // the time of the fit grows with the square

template <class Number> std::optional<Number> parse(std::string_view text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

template <class Number> const char *kind() { return std::is_integral_v<Number> ? "a whole number" : "a number"; }

// Adds an option whose value is a number from low to high; a NaN is in no range.
template <class Number>
void add_number(CLI::App &command, const std::string &name, Number &target, Number low, Number high, const std::string &shown,
                const std::string &text) {
    const auto read = [=, &target](const std::string &argument) {
        const std::optional<Number> value = parse<Number>(argument);
        if (!value || !(*value >= low && *value <= high)) {
            std::ostringstream message;
            message << "'" << argument << "' is not " << kind<Number>() << " from " << low << " to " << high;
            throw CLI::ValidationError(name, message.str());
        }
        target = *value;
    };
    command.add_option_function<std::string>(name, read, text)->type_name("NUMBER")->default_str(shown);
}

Grid parse_grid(const std::string &argument) {
    const size_t cross = argument.find('x');
    const std::string_view text = argument;
    const auto columns = parse<uint64_t>(text.substr(0, cross));
    const auto rows = cross == std::string::npos ? std::nullopt : parse<uint64_t>(text.substr(cross + 1));
    const auto sensible = [](std::optional<uint64_t> strips) { return strips && *strips >= 1 && *strips <= most_strips; };
    if (!sensible(columns) || !sensible(rows)) {
        throw CLI::ValidationError("--grid", "'" + argument + "' is not a grid such as 8x8, 1 to " +
                                                 std::to_string(most_strips) + " tiles each way");
    }
    return {*columns, *rows};
}

uint64_t parse_curve_size(const std::string &argument) {
    const auto size = parse<uint64_t>(argument);
    if (!size || *size < curve_step || *size > largest_curve || *size % curve_step != 0) {
        throw CLI::ValidationError("--curve-size", "'" + argument + "' is not a multiple of " + std::to_string(curve_step) +
                                                       " from " + std::to_string(curve_step) + " to " +
                                                       std::to_string(largest_curve));
    }
    return *size;
}

void add_enhance(CLI::App &app, Options &options) {
    CLI::App &command = *app.add_subcommand("enhance", "Open up the shadows of photographs");
    command.fallthrough();
    Tuning &tuning = options.tuning;
    command.add_option("INPUT", options.inputs, "JPEG and PNG files")->required()->type_name("");
    command
        .add_option("-o,--output", options.output,
                    "a file for one input, in the format of its extension; a folder for several, made if it is missing")
        ->required()
        ->type_name("OUT");
    command
        .add_option_function<std::string>(
            "--grid", [&tuning](const std::string &argument) { tuning.grid = parse_grid(argument); },
            "tiles across and down; each tile gets a tone curve")
        ->type_name("COLUMNSxROWS")
        ->default_str("8x8");
    command
        .add_option_function<std::string>(
            "--curve-size", [&tuning](const std::string &argument) { tuning.curve_size = parse_curve_size(argument); },
            "entries of a tone curve, a multiple of 256")
        ->type_name("NUMBER")
        ->default_str("256");
    add_number(command, "--max-gain", tuning.max_gain, 1.0f, 100.0f, "3.0", "gain in the deepest shadows");
    add_number(command, "--strength", tuning.strength, 0.0f, 10000.0f, "40.0",
               "how far up the gain reaches between shadows and limit");
    add_number(command, "--limit", tuning.limit, 0.01f, 1.0f, "0.6275",
               "share of full brightness from which on nothing changes");
    add_number(command, "--levels", tuning.levels, uint64_t{1}, uint64_t{255}, "5",
               "brightness levels of the edge-preserving blur");
    add_number(command, "--ratio", tuning.ratio, 0.0f, 1.0f, "0.5",
               "colour: 0 shifts the channels, 1 scales them, between is a mix");
    add_number(command, "--quality", options.quality, 1, 100, std::to_string(codec::default_quality), "quality of JPEG output");
    command.add_flag("-q,--quiet", options.quiet, "write errors only");
    command.footer("One line per picture tells its name, size, the decision and the time. PNG and JPEG are told apart by\n"
                   "content; a file whose extension is neither gets its input's format. Exif data, ICC profile, density and\n"
                   "alpha are carried over. The exit status is 0 if every picture was written, otherwise 1.");
}

// CLI11's texts as one line.
std::string one_line(std::string text) {
    for (char &c : text) {
        c = c == '\n' ? ' ' : c;
    }
    return text;
}

} // namespace

CommandLine read_command_line(int argc, const char *const *argv) {
    CLI::App app("Improves photographs.", "ko");
    Options options;
    app.set_version_flag("--version", "ko " KO_VERSION);
    app.require_subcommand(0, 1);
    add_enhance(app, options);
    try {
        app.parse(argc, argv);
        if (app.get_subcommands().empty()) {
            throw CLI::ValidationError("no command");
        }
        if (options.output.empty()) {
            throw CLI::ValidationError("--output", "an empty name");
        }
        return {std::move(options), 0};
    } catch (const CLI::Success &success) { // help, version
        return {std::nullopt, app.exit(success)};
    } catch (const CLI::Error &error) {
        std::cerr << "ko: " << one_line(error.what()) << " (see ko enhance --help)\n";
        return {std::nullopt, 1};
    }
}

} // namespace host
