// The command line: what it requests, or what is wrong with it.
#ifndef KO_HOST_COMMAND_LINE_H
#define KO_HOST_COMMAND_LINE_H

#include <optional>
#include <string>
#include <vector>

#include "options.h"

namespace host {

struct CommandLine {
    std::optional<Options> options; // none if the program has nothing left to do
    int exit_status = 0;
};

// Exit statuses.
inline constexpr int all_done = 0;
inline constexpr int some_failed = 1;
inline constexpr int wrong_usage = 2;

// Reads the words of a command line behind the program's name. Answers a request for help or the version itself, and writes one
// line about a mistake.
CommandLine read_command_line(std::vector<std::string> words);

} // namespace host

#endif
