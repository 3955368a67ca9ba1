// Every number is read whole and checked against its range here, so that the library sees sensible arguments only.
#include "options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <iostream>
#include <sstream>
#include <thread>
#include <type_traits>

#include <CLI/CLI.hpp>

#include "kohost/judgement.h"

namespace host {

using kohost::Grid;
using kohost::Judging;
using kohost::name;
using kohost::Policy;
using kohost::RedEyeChoices;
using kohost::Tuning;

namespace {

constexpr uint64_t most_strips = 256;
constexpr uint64_t curve_step = 256;     // the library scales levels by whole numbers
constexpr uint64_t largest_curve = 4096; // the time of the fit grows with the square
constexpr unsigned most_jobs = 1024;
constexpr double smallest_working_size = 0.01; // in megapixels
constexpr double largest_working_size = 250.0;

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
template <class Target, class Number>
void add_number(CLI::App &command, const std::string &option, Target &target, Number low, Number high, const std::string &shown,
                const std::string &text) {
    const auto read = [=, &target](const std::string &argument) {
        const std::optional<Number> value = parse<Number>(argument);
        if (!value || !(*value >= low && *value <= high)) {
            std::ostringstream message;
            message << "'" << argument << "' is not " << kind<Number>() << " from " << low << " to " << high;
            throw CLI::ValidationError(option, message.str());
        }
        target = *value;
    };
    command.add_option_function<std::string>(option, read, text)->type_name("NUMBER")->default_str(shown);
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

// Adds an option whose value is the name of one of several choices.
template <class Choice, size_t Count>
void add_choice(CLI::App &command, const std::string &option, Choice &target, const std::array<Choice, Count> &choices,
                const std::string &text) {
    std::string names;
    for (const Choice choice : choices) {
        names += (names.empty() ? "" : ", ") + std::string(name(choice));
    }
    const auto read = [=, &target](const std::string &argument) {
        const auto found =
            std::find_if(choices.begin(), choices.end(), [&](Choice choice) { return argument == name(choice); });
        if (found == choices.end()) {
            throw CLI::ValidationError(option, "'" + argument + "' is none of " + names);
        }
        target = *found;
    };
    command.add_option_function<std::string>(option, read, text + ": " + names)->type_name("NAME")->default_str(name(target));
}

void add_inputs(CLI::App &command, Options &options) {
    command.add_option("INPUT", options.inputs, "JPEG, PNG, TIFF, WebP, HEIC and AVIF files")->required()->type_name("");
}

void add_one_input(CLI::App &command, Options &options) {
    command.add_option("INPUT", options.inputs, "a picture file")->required()->expected(1)->type_name("");
}

void add_output(CLI::App &command, Options &options, const std::string &text) {
    command.add_option("-o,--output", options.output, text)->required()->type_name("OUT");
}

constexpr const char *picture_output =
    "a file for one input, in the format of its extension; a folder for several, made if it is missing";

uint64_t parse_working_area(const std::string &argument) {
    if (argument == "full") {
        return UINT64_MAX;
    }
    const auto megapixels = parse<double>(argument);
    if (!megapixels || !(*megapixels >= smallest_working_size && *megapixels <= largest_working_size)) {
        throw CLI::ValidationError("--working-size", "'" + argument + "' is neither a number from 0.01 to 250 nor 'full'");
    }
    return static_cast<uint64_t>(*megapixels * 1e6);
}

void add_working_size(CLI::App &command, Tuning &tuning) {
    command
        .add_option_function<std::string>(
            "--working-size", [&tuning](const std::string &argument) { tuning.working_area = parse_working_area(argument); },
            "size at which pictures are judged and their curves made; 'full' takes them as they are")
        ->type_name("MEGAPIXELS")
        ->default_str("0.5");
}

// The options of the gain, on which judgement and curves rest.
void add_gain(CLI::App &command, Tuning &tuning) {
    add_number(command, "--max-gain", tuning.max_gain, 1.0f, 100.0f, "3.0", "gain in the deepest shadows");
    add_number(command, "--strength", tuning.strength, 0.0f, 10000.0f, "40.0",
               "how far up the gain reaches between shadows and limit");
    add_number(command, "--limit", tuning.limit, 0.01f, 1.0f, "0.6275",
               "share of full brightness from which on nothing changes");
    add_number(command, "--levels", tuning.levels, uint64_t{1}, uint64_t{255}, "5",
               "brightness levels of the edge-preserving blur");
    add_working_size(command, tuning);
}

// The options of the curves.
void add_tuning(CLI::App &command, Tuning &tuning) {
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
    add_number(command, "--max-slope", tuning.max_slope, 0u, 255u, "the gain, at least 3",
               "most levels by which a curve rises at once; 0 leaves curves as they were fitted");
    add_gain(command, tuning);
}

void add_ratio(CLI::App &command, Tuning &tuning) {
    add_number(command, "--ratio", tuning.ratio, 0.0f, 1.0f, "0.5",
               "colour: 0 shifts the channels, 1 scales them, between is a mix");
}

void add_score(CLI::App &command, Judging &judging) {
    add_number(command, "--score", judging.score, -1.0f, 1.0f, "-1",
               "a score of your own for the judgement, the lower the better; -1 is none");
}

void add_quality(CLI::App &command, Options &options) {
    add_number(command, "--quality", options.quality, 1, 100, "the input's, or " + std::to_string(codec::default_quality),
               "quality of JPEG and of WebP output, which has " + std::to_string(codec::default_webp_quality) +
                   " or is lossless like its input");
}

// The options of every command that works on many pictures.
void add_run(CLI::App &command, Options &options) {
    options.jobs = std::max(std::thread::hardware_concurrency(), 1u);
    add_number(command, "-j,--jobs", options.jobs, 1u, most_jobs, "one a processor",
               "pictures that are worked on at the same time");
    command.add_flag("--timings", options.timings, "report how long each stage took");
}

CLI::Option *add_json(CLI::App &command, Options &options) {
    return command.add_flag_callback(
        "--json", [&options] { options.style = Style::json; }, "one JSON object a line on the standard output");
}

void add_style(CLI::App &command, Options &options) {
    CLI::Option *json = add_json(command, options);
    add_run(command, options);
    command
        .add_flag_callback(
            "-q,--quiet", [&options] { options.style = Style::quiet; }, "write errors only")
        ->excludes(json);
}

CLI::App &add_command(CLI::App &app, Options &options, Command which, const std::string &word, const std::string &text) {
    CLI::App &command = *app.add_subcommand(word, text);
    command.fallthrough();
    command.parse_complete_callback([&options, which] { options.command = which; });
    return command;
}

constexpr const char *about_files =
    "Formats are told apart by content; a file without the extension of one gets its input's. HEIC and AVIF are\n"
    "read alone and become JPEG. Exif data, ICC profile, density and alpha are carried over.\n";

// All that a caller may say of the judgement and the curves.
void add_enhancement(CLI::App &command, Options &options) {
    add_choice(command, "--policy", options.judging.policy, kohost::policies, "which pictures are enhanced; see ko judge");
    command
        .add_flag_callback(
            "--force", [&options] { options.judging.policy = Policy::always; }, "enhance every picture: --policy always")
        ->excludes("--policy");
    add_score(command, options.judging);
    add_tuning(command, options.tuning);
    add_ratio(command, options.tuning);
}

void add_enhance(CLI::App &app, Options &options) {
    CLI::App &command = add_command(app, options, Command::enhance, "enhance", "Open up the shadows of photographs");
    add_inputs(command, options);
    add_output(command, options, picture_output);
    add_enhancement(command, options);
    add_quality(command, options);
    add_style(command, options);
    command.footer("One line per picture tells its name, size, the decision and the time. A picture that would not gain is\n"
                   "left as it is, with the reason, and its file is copied; only another format is encoded anew.\n" +
                   std::string(about_files) + "The exit status is 0 if every picture was written, otherwise 1.");
}

std::string refuse_empty(const std::string &name) { return name.empty() ? "an empty name" : ""; }

CLI::Option *add_model(CLI::App &command, RedEyeChoices &choices, const std::string &text) {
    return command.add_option("--model", choices.model, text)->type_name("CONFIG")->check(refuse_empty);
}

void add_repair(CLI::App &command, RedEyeChoices &choices) {
    command.add_flag("--full", choices.full, "repair all that was found entirely, whatever the model says of it");
    command.add_flag("--log", choices.log, "show the library's progress on the standard error stream");
}

void add_redeye(CLI::App &app, Options &options) {
    RedEyeChoices &choices = options.red_eyes;
    CLI::App &command = add_command(app, options, Command::redeye, "redeye", "Repair red eyes in photographs");
    add_inputs(command, options);
    add_output(command, options, picture_output);
    add_model(command, choices, "the configuration of the model that tells eyes from other things")->required();
    add_repair(command, choices);
    command.add_flag("--frames", choices.frames, "draw frames: green is accepted, yellow undecided, red rejected");
    command.add_option("--dump", choices.dump, "a folder for files with what the model saw, made if it is missing")
        ->type_name("DIR")
        ->check(refuse_empty);
    add_quality(command, options);
    add_style(command, options);
    command.footer("One line per picture tells how many places the model accepted, left undecided and rejected; what is\n"
                   "accepted is repaired, what is undecided in part. A picture without red eyes comes out as it went in.\n" +
                   std::string(about_files) + "The exit status is 0 if every picture was written, otherwise 1.");
}

void add_auto(CLI::App &app, Options &options) {
    CLI::App &command = add_command(app, options, Command::improve, "auto", "Repair red eyes, then open up the shadows");
    add_inputs(command, options);
    add_output(command, options, picture_output);
    add_model(command, options.red_eyes, "the configuration of the red-eye model; without one red eyes stay");
    add_repair(command, options.red_eyes);
    add_enhancement(command, options);
    add_quality(command, options);
    add_style(command, options);
    command.footer("Red eyes are looked for in the picture as it came; without them it is judged, and enhanced if it gains.\n" +
                   std::string(about_files) + "The exit status is 0 if every picture was written, otherwise 1.");
}

void add_judge(CLI::App &app, Options &options) {
    CLI::App &command = add_command(app, options, Command::judge, "judge", "Tell what speaks for and against the enhancement");
    add_inputs(command, options);
    add_score(command, options.judging);
    command.add_option("--scores", options.scores, "a file for the scores of all blocks, of one input")
        ->type_name("FILE")
        ->check(refuse_empty);
    add_gain(command, options.tuning);
    add_json(command, options);
    add_run(command, options);
    command.footer(
        "A picture is judged by 8 by 8 blocks. DET is the detail that a block would gain (under 5.6 is too little),\n"
        "NOI the colour noise where it is flat (over 1.0 is too noisy; not measured in a gray picture), ENT the\n"
        "entropy of its dark tones (under 2.45 is too uniform). Each policy limits the number of such blocks, and\n"
        "a score if you have one; a picture passes under a policy if it keeps within the limits of that policy or\n"
        "of one before it: conservative, default, risky. The exit status is 0 if every picture was judged.");
}

void add_curves(CLI::App &app, Options &options) {
    CLI::App &command = add_command(app, options, Command::curves, "curves", "Save or draw the tone curves of a photograph");
    add_one_input(command, options);
    add_output(command, options, "a file for the curves, or for the picture with --draw");
    add_choice(command, "--form", options.form, grid_forms, "form of the file");
    command.add_flag("--draw", options.draw, "write the picture in gray with each tile's curve drawn over it")
        ->excludes("--form");
    add_tuning(command, options.tuning);
    add_quality(command, options);
    add_style(command, options);
    command.footer(
        "The curves are made without a judgement. ko apply puts them onto pictures. What was saved is read back and\n"
        "compared: the text form holds all curves, the others hold most.");
}

void add_apply(CLI::App &app, Options &options) {
    CLI::App &command = add_command(app, options, Command::apply, "apply", "Apply saved tone curves to photographs");
    command.add_option("FILE", options.grid_file, "curves that ko curves saved, in any form")->required()->type_name("");
    add_inputs(command, options);
    add_output(command, options, picture_output);
    add_ratio(command, options.tuning);
    add_quality(command, options);
    add_style(command, options);
    command.footer(about_files);
}

bool is_power_of_two(uint64_t number) { return (number & (number - 1)) == 0; }

// What an option alone cannot know.
void check_together(const Options &options) {
    if (options.command != Command::judge && options.output.empty()) {
        throw CLI::ValidationError("--output", "an empty name");
    }
    if (!options.scores.empty() && options.inputs.size() != 1) {
        throw CLI::ValidationError("--scores", "a score file is for one input, not " + std::to_string(options.inputs.size()));
    }
    if (options.command == Command::curves && options.draw && options.tuning.curve_size != curve_step) {
        throw CLI::ValidationError("--draw", "only curves of " + std::to_string(curve_step) + " entries are drawn");
    }
    if (options.command == Command::curves && !is_power_of_two(options.tuning.curve_size)) {
        throw CLI::ValidationError("--curve-size", "a file holds curves of 256, 512, 1024, 2048 or 4096 entries");
    }
}

// CLI11's texts as one line.
std::string one_line(std::string text) {
    for (char &c : text) {
        c = c == '\n' ? ' ' : c;
    }
    return text;
}

std::string help_for(const CLI::App &app) {
    const std::vector<const CLI::App *> given = app.get_subcommands([](const CLI::App *command) { return command->parsed(); });
    return given.empty() ? "ko --help" : "ko " + given.front()->get_name() + " --help";
}

} // namespace

CommandLine read_command_line(int argc, const char *const *argv) {
    CLI::App app("Improves photographs.", "ko");
    Options options;
    app.set_version_flag("--version", "ko " KO_VERSION);
    app.require_subcommand(0, 1);
    add_enhance(app, options);
    add_redeye(app, options);
    add_auto(app, options);
    add_judge(app, options);
    add_curves(app, options);
    add_apply(app, options);
    try {
        app.parse(argc, argv);
        if (app.get_subcommands().empty()) {
            throw CLI::ValidationError("no command");
        }
        check_together(options);
        return {std::move(options), 0};
    } catch (const CLI::Success &success) { // help, version
        return {std::nullopt, app.exit(success)};
    } catch (const CLI::Error &error) {
        std::cerr << "ko: " << one_line(error.what()) << " (see " << help_for(app) << ")\n";
        return {std::nullopt, 1};
    }
}

} // namespace host
