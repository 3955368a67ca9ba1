// What packages install beside the program: the manual page and the completions for shells. All name what the help names.
#include <cstdio>
#include <memory>
#include <regex>

#include "host.h"

namespace {

using namespace ko_test;

const Words commands = {"enhance", "redeye", "auto", "judge", "curves", "apply"};

std::string help_with(const Words &words) {
    Words arguments = {"help"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    const Outcome outcome = run_program(arguments);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    return outcome.out;
}

// The long names of a command's options in its help, where each begins a line.
std::set<std::string> options_of(const std::string &command) {
    const std::string help = help_with({command});
    const std::regex option("\n  (?:-[a-zA-Z],)?(--[a-z-]+)");
    std::set<std::string> names;
    for (std::sregex_iterator found(help.begin(), help.end(), option), end; found != end; ++found) {
        names.insert((*found)[1]);
    }
    EXPECT_GE(names.size(), 10u) << help;
    return names;
}

std::string answer_of(const std::string &shell_command) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> pipe(popen(shell_command.c_str(), "r"), pclose);
    std::string answer;
    for (int c = std::fgetc(pipe.get()); c != EOF; c = std::fgetc(pipe.get())) {
        answer += static_cast<char>(c);
    }
    return answer;
}

// A set of words, one per line.
std::set<std::string> lines_of(const std::string &text) {
    std::istringstream stream(text);
    std::set<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.insert(line);
    }
    return lines;
}

TEST(Manual, NamesEveryOptionOfEveryCommand) {
    const std::string page = help_with({"--man"});
    EXPECT_TRUE(page.starts_with(".TH KO 1 ")) << page.substr(0, 80);
    for (const std::string &command : commands) {
        const size_t section = page.find("\n.SH \"KO " + command + "\"\n");
        ASSERT_NE(section, std::string::npos) << command;
        const std::string about = page.substr(section, page.find("\n.SH ", section + 1) - section);
        for (std::string option : options_of(command)) {
            option = std::regex_replace(option, std::regex("-"), "\\-");
            EXPECT_NE(about.find(option), std::string::npos) << command << " " << option;
        }
    }
}

class Bash : public Host {
  protected:
    // What is offered for the last of some words.
    std::set<std::string> offered(const std::string &words) const {
        const std::string script =
            put("completion", help_with({"--bash"}) + "\ncompopt() { :; }\nCOMP_WORDS=(" + words +
                                  ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_ko\n" + "printf '%s\\n' \"${COMPREPLY[@]}\"\n");
        return lines_of(answer_of("bash --norc " + script + " 2>&1"));
    }
};

TEST_F(Bash, CompletesCommandsOptionsAndTheirValues) {
    EXPECT_EQ(offered("ko en"), (std::set<std::string>{"enhance"}));
    EXPECT_EQ(offered("ko help ju"), (std::set<std::string>{"judge"}));
    EXPECT_EQ(offered("ko enhance --pol"), (std::set<std::string>{"--policy"}));
    EXPECT_EQ(offered("ko enhance --policy ''"), (std::set<std::string>{"conservative", "default", "risky", "always"}));
    EXPECT_EQ(offered("ko curves --form b"), (std::set<std::string>{"binary"}));
    EXPECT_EQ(offered("ko enhance pictures/"), (std::set<std::string>{""})) << "files are for bash itself";
}

TEST_F(Bash, OffersEveryOptionOfEveryCommand) {
    for (const std::string &command : commands) {
        EXPECT_EQ(offered("ko " + command + " --"), options_of(command)) << command;
    }
}

TEST(Zsh, IsOfferedEveryOptionOfEveryCommand) {
    const std::string completion = help_with({"--zsh"});
    EXPECT_TRUE(completion.starts_with("#compdef ko\n")) << completion.substr(0, 80);
    for (const std::string &command : commands) {
        const size_t section = completion.find("\n    " + command + ")\n");
        ASSERT_NE(section, std::string::npos) << command;
        const std::string about = completion.substr(section, completion.find(";;", section) - section);
        for (const std::string &option : options_of(command)) {
            EXPECT_NE(about.find(option), std::string::npos) << command << " " << option;
        }
    }
}

} // namespace
