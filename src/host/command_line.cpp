#include "command_line.h"

#include <algorithm>
#include <iostream>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "command_options.h"
#include "files.h"
#include "manual.h"

namespace host {

namespace {

// The least number of letters to insert, leave out or replace to turn one word into the other.
size_t distance(const std::string &one, const std::string &other) {
    std::vector<size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < one.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < other.size(); ++j) {
            const size_t replaced = diagonal + (one[i] != other[j] ? 1 : 0);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

// The only word with this beginning, otherwise the nearest one; "" if none is near enough to be meant.
std::string nearest(const std::string &word, const std::vector<std::string> &words) {
    const auto begins_so = [&](const std::string &other) { return other.starts_with(word); };
    if (std::count_if(words.begin(), words.end(), begins_so) == 1) {
        return *std::find_if(words.begin(), words.end(), begins_so);
    }
    const auto found = std::min_element(words.begin(), words.end(), [&](const std::string &a, const std::string &b) {
        return distance(word, a) < distance(word, b);
    });
    return found != words.end() && distance(word, *found) <= std::max<size_t>(word.size() / 3, 1) ? *found : "";
}

std::vector<std::string> commands_of(const CLI::App &app) {
    std::vector<std::string> words;
    for (const CLI::App *command : app.get_subcommands({})) {
        words.push_back(command->get_name());
    }
    return words;
}

std::vector<std::string> options_of(const CLI::App &command) {
    std::vector<std::string> words;
    for (const CLI::Option *option : command.get_options()) {
        for (const std::string &name : option->get_lnames()) {
            words.push_back("--" + name);
        }
    }
    return words;
}

[[noreturn]] void refuse(const std::string &what, const std::string &word, const std::vector<std::string> &words) {
    const std::string near = nearest(word, words);
    throw UsageError(what + (near.empty() ? "" : "; did you mean " + near + "?"));
}

void refuse_extras(const CLI::App &app, const CLI::App *command) {
    std::vector<std::string> extras = (command != nullptr ? *command : app).remaining();
    std::erase(extras, "--"); // it only ends the options
    if (extras.empty()) {
        return;
    }
    const std::string &word = extras.front();
    if (word.starts_with("-") && word != "-") {
        refuse("unknown option " + word, word.substr(0, word.find('=')), options_of(command != nullptr ? *command : app));
    }
    if (command == nullptr) {
        refuse("unknown command " + word, word, commands_of(app));
    }
    throw UsageError("'" + word + "' is one input too many");
}

// CLI11's texts as one line.
std::string one_line(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

// App::help would show the command that was given in place of the program.
std::string overview(const CLI::App &app) { return app.get_formatter()->make_help(&app, "ko", CLI::AppFormatMode::Normal); }

// Besides help on commands, help gives the files that packages install.
std::string help_about(const CLI::App &app, const CLI::App &help) {
    const std::vector<std::string> words = help.remaining();
    if (words == std::vector<std::string>{"--man"}) {
        return manual_page(app, KO_VERSION);
    }
    if (words == std::vector<std::string>{"--bash"}) {
        return bash_completion(app);
    }
    if (words == std::vector<std::string>{"--zsh"}) {
        return zsh_completion(app);
    }
    if (words.empty()) {
        return overview(app);
    }
    const std::vector<std::string> commands = commands_of(app);
    if (std::find(commands.begin(), commands.end(), words.front()) == commands.end()) {
        refuse("unknown command " + words.front(), words.front(), commands);
    }
    return app.get_subcommand(words.front())->help("ko");
}

// The command that was given, or null.
const CLI::App *given_command(CLI::App &app) {
    const auto given = app.get_subcommands([](const CLI::App *command) { return command->parsed(); });
    return given.empty() ? nullptr : given.front();
}

CommandLine parse_words(CLI::App &app, Options &options, std::vector<std::string> words) {
    std::reverse(words.begin(), words.end()); // as CLI11 takes them
    app.parse(std::move(words));
    const CLI::App *command = given_command(app);
    if (command != nullptr && command->get_name() == "help") {
        std::cout << help_about(app, *command);
        return {std::nullopt, all_done};
    }
    refuse_extras(app, command);
    if (command == nullptr) {
        std::cout << overview(app);
        return {std::nullopt, wrong_usage};
    }
    check_together(options, command->get_name());
    options.reporting.output_is_taken = options.destination.output == standard_stream;
    return {std::move(options), all_done};
}

} // namespace

CommandLine read_command_line(std::vector<std::string> words) {
    CLI::App app("Improves photographs: opens shadows and repairs red eyes.", "ko");
    app.allow_windows_style_options(false); // one command line for all systems; a path may begin with a slash
    Options options;
    describe(app, options);
    const auto mistake = [&](const std::string &text) {
        const CLI::App *command = given_command(app);
        const std::string help = command == nullptr ? "ko --help" : "ko " + command->get_name() + " --help";
        std::cerr << "ko: " << one_line(text) << " (see " << help << ")\n";
        return CommandLine{std::nullopt, wrong_usage};
    };
    try {
        return parse_words(app, options, std::move(words));
    } catch (const CLI::Success &success) { // help, version
        return {std::nullopt, app.exit(success)};
    } catch (const CLI::ArgumentMismatch &error) {
        const std::string text = error.what(); // such as "--output: 1 required OUT missing"
        return mistake(text.find(" missing") != std::string::npos ? text.substr(0, text.find(':')) + " needs a value" : text);
    } catch (const CLI::Error &error) {
        return mistake(error.what());
    } catch (const UsageError &error) {
        return mistake(error.what());
    }
}

} // namespace host
