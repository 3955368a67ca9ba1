// Which options each command has, and which of them go together.
#include "command_options.h"

#include <filesystem>
#include <system_error>

#include <CLI/CLI.hpp>

#include "codec/codec.h"
#include "files.h"
#include "kohost/judgement.h"
#include "kohost/redeye.h"
#include "model.h"
#include "option_values.h"
#include "paths.h"
#include "system.h"

namespace host {

using kohost::Judging;
using kohost::Policy;
using kohost::RedEyeChoices;
using kohost::Tuning;

namespace {

constexpr unsigned most_jobs = 1024;

// ---- groups of options, as the help shows them

constexpr const char *command_group = "Commands";
constexpr const char *input_group = "Input";
constexpr const char *output_group = "Output";
constexpr const char *judgement_group = "Judgement";
constexpr const char *curve_group = "Curves";
constexpr const char *red_eye_group = "Red eyes";
constexpr const char *run_group = "Run and report";

std::string refuse_empty(const std::string &name) { return name.empty() ? "an empty name" : ""; }

void add_inputs(CLI::App &command, Options &options) {
    Selection &selection = options.selection;
    command
        .add_option("INPUT", selection.inputs,
                    "pictures (JPEG, PNG, TIFF, WebP, HEIC, AVIF), folders with pictures, or - for the standard input")
        ->type_name("");
    command.add_flag("-r,--recursive", selection.recursive, "include the pictures in subfolders, and keep their structure")
        ->group(input_group);
    command
        .add_option("--files-from", selection.files_from,
                    "a file that names further inputs, one per line; - is the standard input")
        ->type_name("FILE")
        ->check(refuse_empty)
        ->group(input_group);
}

void add_one_input(CLI::App &command, Options &options) {
    command.add_option("INPUT", options.selection.inputs, "a picture")->required()->expected(1)->type_name("");
}

void add_output(CLI::App &command, Options &options, const std::string &text) {
    command.add_option("-o,--output", options.destination.output, text)
        ->required()
        ->type_name("OUT")
        ->check(refuse_empty)
        ->group(output_group);
}

// Where pictures go that came from pictures.
void add_destination(CLI::App &command, Options &options) {
    Destination &destination = options.destination;
    CLI::Option *output =
        command
            .add_option("-o,--output", destination.output,
                        "a file for one input, in the format of its extension; a folder for several, made if it "
                        "is missing; - is the standard output")
            ->type_name("OUT")
            ->check(refuse_empty)
            ->group(output_group);
    CLI::Option *suffix = command
                              .add_option("--suffix", destination.suffix,
                                          "put before the extension of each result; without --output, beside the input")
                              ->type_name("TEXT")
                              ->group(output_group);
    command.add_flag("--in-place", destination.in_place, "overwrite the inputs")
        ->excludes(output)
        ->excludes(suffix)
        ->group(output_group);
    command.add_flag("-n,--no-clobber", destination.no_clobber, "leave existing files alone, and skip their pictures")
        ->group(output_group);
    command
        .add_flag_callback(
            "--dry-run", [&options] { options.destination.dry_run = options.reporting.dry_run = true; },
            "report what would be done, and write nothing")
        ->group(output_group);
}

void add_working_size(CLI::App &command, Tuning &tuning) {
    command
        .add_option_function<std::string>(
            "--working-size", [&tuning](const std::string &argument) { tuning.working_area = parse_working_area(argument); },
            "size at which pictures are judged and their curves made; 'full' is their own size")
        ->type_name("MEGAPIXELS")
        ->default_str("0.5")
        ->group(curve_group);
}

// The options of the gain, on which judgement and curves rest.
void add_gain(CLI::App &command, Tuning &tuning) {
    add_number(command, "--max-gain", tuning.max_gain, 1.0f, 100.0f, "3.0", "gain in the deepest shadows")->group(curve_group);
    add_number(command, "--strength", tuning.strength, 0.0f, 10000.0f, "40.0",
               "how far the gain reaches from the shadows towards the limit")
        ->group(curve_group);
    add_number(command, "--limit", tuning.limit, 0.01f, 1.0f, "0.6275", "share of full brightness above which nothing changes")
        ->group(curve_group);
    add_number(command, "--levels", tuning.levels, uint64_t{1}, uint64_t{255}, "5",
               "brightness levels of the edge-preserving blur")
        ->group(curve_group);
    add_working_size(command, tuning);
}

void add_curves(CLI::App &command, Tuning &tuning) {
    command
        .add_option_function<std::string>(
            "--grid", [&tuning](const std::string &argument) { tuning.grid = parse_grid(argument); },
            "tiles across and down; each tile gets a tone curve")
        ->type_name("COLUMNSxROWS")
        ->default_str("8x8")
        ->group(curve_group);
    command
        .add_option_function<std::string>(
            "--curve-size", [&tuning](const std::string &argument) { tuning.curve_size = parse_curve_size(argument); },
            "entries of a tone curve, a multiple of 256")
        ->type_name("NUMBER")
        ->default_str("256")
        ->group(curve_group);
    add_number(command, "--max-slope", tuning.max_slope, 0u, 255u, "the gain, at least 3",
               "most levels by which a curve rises per step; 0 leaves curves as they were fitted")
        ->group(curve_group);
    add_gain(command, tuning);
}

void add_ratio(CLI::App &command, Tuning &tuning) {
    add_number(command, "--ratio", tuning.ratio, 0.0f, 1.0f, "0.5",
               "colour: 0 shifts the channels, 1 scales them, values between mix the two")
        ->group(curve_group);
}

void add_score(CLI::App &command, Judging &judging) {
    add_number(command, "--score", judging.score, -1.0f, 1.0f, "-1",
               "a score of your own for the judgement, the lower the better; -1 for none")
        ->group(judgement_group);
}

void add_quality(CLI::App &command, Options &options) {
    add_number(command, "--quality", options.quality, 1, 100, "the input's, or " + std::to_string(codec::default_quality),
               "quality of JPEG and WebP output; without it, WebP output has " + std::to_string(codec::default_webp_quality) +
                   " or is lossless like its input")
        ->group(output_group);
}

// The options of every command whose results are pictures like their inputs.
void add_results(CLI::App &command, Options &options) {
    add_quality(command, options);
    command.add_flag("-p,--preserve", options.preserve, "keep the input's modification time and permissions")
        ->group(output_group);
    command.add_flag("--again", options.again, "repeat what a picture's mark says was done")->group(judgement_group);
}

CLI::Option *add_json(CLI::App &command, Options &options) {
    return command
        .add_flag_callback(
            "--json", [&options] { options.reporting.style = Style::json; },
            "write one JSON object per line to the standard output")
        ->group(run_group);
}

// The options of every command that goes over many pictures.
void add_run(CLI::App &command, Options &options) {
    options.jobs = system::processors();
    add_number(command, "-j,--jobs", options.jobs, 1u, most_jobs, "one per processor",
               "number of pictures that are processed at once")
        ->group(run_group);
    command.add_flag("-v,--verbose", options.reporting.verbose, "report more about each picture")->group(run_group);
}

void add_report(CLI::App &command, Options &options) {
    CLI::Option *json = add_json(command, options);
    add_run(command, options);
    command.add_flag("--timings", options.reporting.timings, "report how long each stage took")->group(run_group);
    command
        .add_flag_callback(
            "-q,--quiet", [&options] { options.reporting.style = Style::quiet; }, "report errors only")
        ->excludes(json)
        ->group(run_group);
}

void add_page(CLI::App &command, Options &options) {
    command.add_option("--report", options.page, "a file for a page that shows each picture, its curves and its measures")
        ->type_name("PAGE")
        ->check(refuse_empty)
        ->group(run_group);
}

// All that a caller may choose about the judgement and the curves.
void add_enhancement(CLI::App &command, Options &options) {
    add_choice(command, "--policy", options.judging.policy, kohost::policies, name(options.judging.policy),
               "which pictures are enhanced; see ko judge")
        ->group(judgement_group);
    command
        .add_flag_callback(
            "--force", [&options] { options.judging.policy = Policy::always; }, "enhance every picture: --policy always")
        ->excludes("--policy")
        ->group(judgement_group);
    add_score(command, options.judging);
    add_curves(command, options.tuning);
    add_ratio(command, options.tuning);
}

CLI::Option *add_model(CLI::App &command, RedEyeChoices &choices, const std::string &text) {
    return command.add_option("--model", choices.model, text)->type_name("CONFIG")->check(refuse_empty)->group(red_eye_group);
}

void add_repair(CLI::App &command, RedEyeChoices &choices) {
    CLI::Option *sensitivity = add_choice(command, "--sensitivity", choices.sensitivity, kohost::sensitivities,
                                          kohost::name(choices.sensitivity), "how readily a place counts as a red eye");
    sensitivity->group(red_eye_group);
    command.add_flag("--full", choices.full, "repair all that was found, whatever the model's answer")->group(red_eye_group);
    command
        .add_flag("--plain", choices.plain,
                  "search, judge and repair as the library alone does; the default searches four times, looks at colours too, "
                  "and repairs to the pixel")
        ->excludes(sensitivity)
        ->group(red_eye_group);
    command.add_flag("--log", choices.log, "show the library's progress on the standard error stream")->group(red_eye_group);
}

// ---- commands

CLI::App &add_command(CLI::App &app, Options &options, Command which, const std::string &word, const std::string &text) {
    CLI::App &command = *app.add_subcommand(word, text);
    command.group(command_group);
    command.allow_extras(); // reported by read_command_line, with what was probably meant
    command.parse_complete_callback([&options, which] { options.command = which; });
    return command;
}

const std::string about_files =
    "Pictures are recognised by content. A result in a folder keeps its input's format and name; the extension\n"
    "of a single output selects the format. HEIC and AVIF files are only read, and become JPEG. Metadata is\n"
    "carried over, and a notice names what is not. A picture whose mark says that the same was done already is\n"
    "left as it is.\n";

const std::string about_status =
    "The exit status is 0 if all pictures succeeded, including those that are left as they are; 1 if some\n"
    "failed; 2 if the command line is wrong and nothing was done.";

void add_enhance(CLI::App &app, Options &options) {
    CLI::App &command = add_command(app, options, Command::enhance, "enhance", "Open up the shadows of photographs");
    add_inputs(command, options);
    add_destination(command, options);
    add_enhancement(command, options);
    add_results(command, options);
    add_page(command, options);
    add_report(command, options);
    command.footer(
        "One line per picture reports its name, its size, the decision and the time. A picture that would not benefit\n"
        "is left as it is: the line gives the reason, and the file is copied, or encoded anew for another format.\n" +
        about_files + about_status);
}

void add_redeye(CLI::App &app, Options &options) {
    RedEyeChoices &choices = options.red_eyes;
    CLI::App &command = add_command(app, options, Command::redeye, "redeye", "Repair red eyes in photographs");
    add_inputs(command, options);
    add_destination(command, options);
    add_model(command, choices,
              "the configuration of another model, which distinguishes red eyes from other things, than the installed one");
    add_repair(command, choices);
    command
        .add_flag("--frames", choices.frames,
                  "draw frames with the score in percent: green for accepted, yellow for undecided, red for rejected")
        ->group(red_eye_group);
    command
        .add_option("--dump", choices.dump, "with --plain, a folder for files with what the model saw, made if it is missing")
        ->needs("--plain")
        ->type_name("DIR")
        ->check(refuse_empty)
        ->group(red_eye_group);
    add_results(command, options);
    add_page(command, options);
    add_report(command, options);
    command.footer("One line per picture reports how many places were accepted, left undecided and rejected; what is accepted\n"
                   "is repaired. A picture without red eyes comes out as it went in.\n" +
                   about_files + about_status);
}

void add_auto(CLI::App &app, Options &options) {
    CLI::App &command = add_command(app, options, Command::improve, "auto", "Repair red eyes, then open up the shadows");
    add_inputs(command, options);
    add_destination(command, options);
    add_model(command, options.red_eyes,
              "the configuration of another red-eye model than the installed one; 'none' leaves red eyes as they are");
    add_repair(command, options.red_eyes);
    add_enhancement(command, options);
    add_results(command, options);
    add_page(command, options);
    add_report(command, options);
    command.footer("Red eyes are repaired first; then the picture is judged, and enhanced if it would benefit.\n" +
                   about_files + about_status);
}

void add_judge(CLI::App &app, Options &options) {
    CLI::App &command =
        add_command(app, options, Command::judge, "judge", "Report what counts for and against the enhancement");
    add_inputs(command, options);
    add_score(command, options.judging);
    command.add_option("--scores", options.scores, "a file for the scores of all blocks; for a single input")
        ->type_name("FILE")
        ->check(refuse_empty)
        ->group(output_group);
    add_gain(command, options.tuning);
    add_json(command, options);
    add_run(command, options);
    command.footer(
        "A picture is judged in 8 by 8 blocks: by the detail that a block would gain (under 5.6 is too little), by the\n"
        "entropy of its dark tones (under 2.45 is too uniform), and by the colour noise where it is flat (over 1.0 is\n"
        "too noisy; not measured in a gray picture). Each policy limits the number of such blocks, and the score if one\n"
        "is given. A picture passes under a policy if it is within the limits of that policy or of one before it in the\n"
        "order conservative, default, risky.\n" +
        about_status);
}

void add_save_curves(CLI::App &app, Options &options) {
    CLI::App &command = add_command(app, options, Command::curves, "curves", "Save or draw the tone curves of a photograph");
    add_one_input(command, options);
    add_output(command, options, "a file for the curves, or for the picture with --draw");
    CLI::Option *form =
        add_choice(command, "--form", options.form, grid_forms, name(options.form), "form of the file")->group(output_group);
    command.add_flag("--draw", options.draw, "write the picture in gray with each tile's curve drawn over it")
        ->excludes(form)
        ->group(output_group);
    add_curves(command, options.tuning);
    add_quality(command, options);
    add_report(command, options);
    command.footer(
        "The curves are made without a judgement. ko apply applies them to pictures. The saved file is read back and\n"
        "compared: the text form can hold all curves, the others most of them.\n" +
        about_status);
}

void add_apply(CLI::App &app, Options &options) {
    CLI::App &command = add_command(app, options, Command::apply, "apply", "Apply saved tone curves to photographs");
    command.add_option("FILE", options.grid_file, "curves that ko curves saved, in any form")->required()->type_name("");
    add_inputs(command, options);
    add_destination(command, options);
    add_ratio(command, options.tuning);
    add_results(command, options);
    add_report(command, options);
    command.footer(about_files + about_status);
}

bool is_power_of_two(uint64_t number) { return (number & (number - 1)) == 0; }

// ---- checks that involve several options

bool writes_pictures(Command command) { return command != Command::judge && command != Command::curves; }

// Without an output the last of several inputs may have been meant for one.
std::string missing_output(const Options &options, const std::string &word) {
    const std::vector<std::string> &inputs = options.selection.inputs;
    std::error_code error;
    if (inputs.size() < 2 || (std::filesystem::exists(path_of(inputs.back()), error) && inputs.size() > 2)) {
        return "no output: --output, --suffix or --in-place says where the results go";
    }
    const std::string first = options.command == Command::apply ? options.grid_file + " " + inputs.front() : inputs.front();
    return "no output: did you mean 'ko " + word + " " + first + (inputs.size() > 2 ? " ..." : "") + " -o " + inputs.back() +
           "'?";
}

} // namespace

void check_together(const Options &options, const std::string &word) {
    const Destination &destination = options.destination;
    if (options.selection.inputs.empty() && options.selection.files_from.empty()) {
        throw UsageError("no input");
    }
    if (writes_pictures(options.command) && destination.output.empty() && destination.suffix.empty() && !destination.in_place) {
        throw UsageError(missing_output(options, word));
    }
    if (options.page == standard_stream) {
        throw UsageError("--report: a page is written to a file");
    }
    if (!options.page.empty() && destination.dry_run) {
        throw UsageError("--report: a dry run writes no page");
    }
    if (!options.scores.empty() && options.selection.inputs.size() != 1) {
        throw UsageError("--scores: a score file is for one input, not " + std::to_string(options.selection.inputs.size()));
    }
    if (options.command == Command::curves && options.draw && options.tuning.curve_size != curve_step) {
        throw UsageError("--draw: only curves of " + std::to_string(curve_step) + " entries can be drawn");
    }
    if (options.command == Command::curves && !is_power_of_two(options.tuning.curve_size)) {
        throw UsageError("--curve-size: a file holds curves of 256, 512, 1024, 2048 or 4096 entries");
    }
}

void describe(CLI::App &app, Options &options) {
    app.set_version_flag("-V,--version", [] {
        const std::string model = installed_model();
        return "ko " KO_VERSION "\nred-eye model: " + (model.empty() ? "none" : model);
    });
    app.require_subcommand(0, 1);
    app.allow_extras();
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    add_enhance(app, options);
    add_redeye(app, options);
    add_auto(app, options);
    add_judge(app, options);
    add_save_curves(app, options);
    add_apply(app, options);
    CLI::App &help = *app.add_subcommand("help", "Show the help of a command")->group(command_group);
    help.allow_extras();
    help.footer(
        "ko help COMMAND shows the help of a command, ko help --man the manual page as roff, ko help --bash and ko help\n"
        "--zsh the completions for these shells.");
    app.footer("ko help COMMAND, or ko COMMAND --help, shows the options of a command.");
}

} // namespace host
