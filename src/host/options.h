// The command line.
#ifndef KO_HOST_OPTIONS_H
#define KO_HOST_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "codec/codec.h"
#include "tuning.h"

namespace host {

struct Options {
    std::vector<std::string> inputs;
    std::string output;
    Tuning tuning;
    int quality = codec::default_quality;
    bool quiet = false;
};

struct CommandLine {
    std::optional<Options> options; // none when there is nothing to do but to leave
    int exit_status = 0;
};

// Reads the command line. Answers a call for help or the version itself, and writes one line about a mistake.
CommandLine read_command_line(int argc, const char *const *argv);

} // namespace host

#endif
