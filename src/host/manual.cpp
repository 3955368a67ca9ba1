// Texts go into roff and shell code unchanged except for the characters that have a meaning there.
#include "manual.h"

#include <algorithm>
#include <vector>

#include <CLI/CLI.hpp>

namespace host {

namespace {

std::vector<const CLI::App *> commands_of(const CLI::App &app) {
    return app.get_subcommands([](const CLI::App *) { return true; });
}

bool is_positional(const CLI::Option *option) { return option->get_lnames().empty() && option->get_snames().empty(); }

std::vector<const CLI::Option *> options_of(const CLI::App &command, bool positional) {
    return command.get_options([positional](const CLI::Option *option) { return is_positional(option) == positional; });
}

std::vector<std::string> names_of(const CLI::Option &option) {
    std::vector<std::string> names;
    for (const std::string &name : option.get_snames()) {
        names.push_back("-" + name);
    }
    for (const std::string &name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    return names;
}

// The choices that a description ends with, such as "form of the file: text, binary, encoded".
std::vector<std::string> choices_of(const CLI::Option &option) {
    std::vector<std::string> choices;
    const std::string text = option.get_description();
    if (option.get_type_name() != "NAME") {
        return choices;
    }
    for (size_t start = text.rfind(": "); start != std::string::npos; start = text.find(", ", start + 1)) {
        choices.push_back(text.substr(start + 2, std::min(text.find(", ", start + 2), text.size()) - start - 2));
    }
    return choices;
}

std::string joined(const std::vector<std::string> &words, const std::string &between) {
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : between) + word;
    }
    return text;
}

// ---- the manual page

// A backslash and a hyphen have a meaning anywhere, a dot and an apostrophe at the start of a line.
std::string roff(const std::string &text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\\') {
            escaped += "\\e";
        } else if (c == '-') {
            escaped += "\\-";
        } else if ((c == '.' || c == '\'') && (escaped.empty() || escaped.back() == '\n')) {
            escaped += std::string("\\&") + c;
        } else {
            escaped += c;
        }
    }
    return escaped;
}

std::string paragraph_about(const CLI::Option &option) {
    std::string head;
    for (const std::string &name : names_of(option)) {
        head += (head.empty() ? "" : ", ") + std::string("\\fB") + roff(name) + "\\fR";
    }
    if (is_positional(&option)) {
        head = "\\fI" + roff(option.get_name()) + "\\fR";
    } else if (!option.get_type_name().empty()) {
        head += " \\fI" + roff(option.get_type_name()) + "\\fR";
    }
    const std::string usual = option.get_default_str().empty() ? "" : " (default: " + option.get_default_str() + ")";
    return ".TP\n" + head + "\n" + roff(option.get_description() + usual) + "\n";
}

std::string section_about(const CLI::App &command) {
    std::string synopsis = "\\fBko " + command.get_name() + "\\fR [\\fIOPTIONS\\fR]";
    std::string paragraphs;
    for (const CLI::Option *option : options_of(command, true)) {
        synopsis += " \\fI" + roff(option->get_name()) + "\\fR";
        paragraphs += paragraph_about(*option);
    }
    for (const CLI::Option *option : options_of(command, false)) {
        paragraphs += paragraph_about(*option);
    }
    return ".SH \"KO " + joined({command.get_name()}, "") + "\"\n" + roff(command.get_description()) + ".\n.PP\n" + synopsis +
           "\n" + paragraphs + ".PP\n" + roff(command.get_footer()) + "\n";
}

// ---- completions

std::string single_quoted(const std::string &text) {
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return quoted + "'";
}

std::vector<std::string> command_names(const CLI::App &app) {
    std::vector<std::string> names;
    for (const CLI::App *command : commands_of(app)) {
        names.push_back(command->get_name());
    }
    return names;
}

// In an argument of zsh's _arguments.
std::string zsh_text(const std::string &text) {
    std::string escaped;
    for (const char c : text) {
        escaped += std::string(c == '[' || c == ']' || c == ':' || c == '\\' ? "\\" : "") + c;
    }
    return escaped;
}

std::string zsh_argument(const CLI::Option &option) {
    const std::string &type = option.get_type_name();
    if (type.empty()) {
        return "";
    }
    const std::vector<std::string> choices = choices_of(option);
    const std::string action = !choices.empty()                                             ? "(" + joined(choices, " ") + ")"
                               : type == "NUMBER" || type == "TEXT" || type == "MEGAPIXELS" ? ""
                                                                                            : "_files";
    return ":" + zsh_text(type) + ":" + action;
}

} // namespace

std::string manual_page(const CLI::App &app, const std::string &version) {
    std::string page =
        ".TH KO 1 \"\" \"ko " + version +
        "\" \"User Commands\"\n.SH NAME\nko \\- improve photographs\n.SH SYNOPSIS\n"
        "\\fBko\\fR \\fICOMMAND\\fR [\\fIOPTIONS\\fR] \\fIINPUT\\fR... \\fB\\-o\\fR \\fIOUT\\fR\n.SH DESCRIPTION\n" +
        roff(app.get_description()) + "\n";
    for (const CLI::App *command : commands_of(app)) {
        page += ".TP\n\\fBko " + command->get_name() + "\\fR\n" + roff(command->get_description()) + "\n";
    }
    for (const CLI::App *command : commands_of(app)) {
        page += section_about(*command);
    }
    return page;
}

std::string bash_completion(const CLI::App &app) {
    std::string script =
        "# Completion of ko for bash.\n_ko() {\n"
        "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]}\n"
        "    if ((COMP_CWORD == 1)) || [[ $command == help ]]; then\n"
        "        COMPREPLY=($(compgen -W " +
        single_quoted(joined(command_names(app), " ")) +
        " -- \"$word\"))\n        return\n    fi\n    case $command,$before in\n";
    std::string words = "    case $command in\n";
    for (const CLI::App *command : commands_of(app)) {
        std::vector<std::string> all;
        for (const CLI::Option *option : options_of(*command, false)) {
            const std::vector<std::string> names = names_of(*option);
            all.insert(all.end(), names.begin(), names.end());
            if (const std::vector<std::string> choices = choices_of(*option); !choices.empty()) {
                for (const std::string &name : names) {
                    script += "    " + command->get_name() + "," + name + ") COMPREPLY=($(compgen -W " +
                              single_quoted(joined(choices, " ")) + " -- \"$word\")); return ;;\n";
                }
            }
        }
        words += "    " + command->get_name() + ") options=" + single_quoted(joined(all, " ")) + " ;;\n";
    }
    return script + "    esac\n    local options=\n" + words +
           "    esac\n    if [[ $word == -* ]]; then\n        COMPREPLY=($(compgen -W \"$options\" -- \"$word\"))\n    else\n"
           "        COMPREPLY=() # files, whose names bash itself completes\n    fi\n}\ncomplete -o default -F _ko ko\n";
}

std::string zsh_completion(const CLI::App &app) {
    std::string script = "#compdef ko\n# Completion of ko for zsh.\n_ko() {\n    local -a commands=(\n";
    for (const CLI::App *command : commands_of(app)) {
        script += "        " + single_quoted(command->get_name() + ":" + command->get_description()) + "\n";
    }
    script += "    )\n    if ((CURRENT == 2)) || [[ $words[2] == help ]]; then\n        _describe command commands\n        "
              "return\n    fi\n"
              "    local command=$words[2]\n    shift words\n    ((CURRENT--))\n    case $command in\n";
    for (const CLI::App *command : commands_of(app)) {
        script += "    " + command->get_name() + ")\n        _arguments";
        for (const CLI::Option *option : options_of(*command, false)) {
            for (const std::string &name : names_of(*option)) {
                script += " \\\n            " +
                          single_quoted(name + "[" + zsh_text(option->get_description()) + "]" + zsh_argument(*option));
            }
        }
        script += " \\\n            '*:file:_files'\n        ;;\n";
    }
    return script + "    esac\n}\n_ko \"$@\"\n";
}

} // namespace host
