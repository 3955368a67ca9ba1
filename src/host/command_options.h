// The options of the program's commands.
#ifndef KO_HOST_COMMAND_OPTIONS_H
#define KO_HOST_COMMAND_OPTIONS_H

#include <string>

#include "options.h"

namespace CLI {
class App;
}

namespace host {

// Adds all commands with their options, which fill in the record while they are parsed.
void describe(CLI::App &app, Options &options);

// Throws UsageError for options that exclude each other or require another one, in a call of the command with this name.
void check_together(const Options &options, const std::string &word);

} // namespace host

#endif
