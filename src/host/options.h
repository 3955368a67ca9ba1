// The command line.
#ifndef KO_HOST_OPTIONS_H
#define KO_HOST_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "grid_file.h"
#include "jobs.h"
#include "kohost/tuning.h"
#include "report.h"

namespace host {

enum class Command { enhance, redeye, improve, judge, curves, apply };

struct Options {
    Command command = Command::enhance;
    Selection selection;
    Destination destination;
    std::string grid_file; // apply: what is applied
    std::string scores;    // judge: the score file, or ""
    std::string page;      // enhance, redeye, auto: the page of the run, or ""
    kohost::Tuning tuning;
    kohost::Judging judging;
    kohost::RedEyeChoices red_eyes;
    GridForm form = GridForm::text;
    bool draw = false; // curves: a picture instead of a grid
    std::optional<int> quality;
    Reporting reporting;
    unsigned jobs = 1; // pictures that are worked on at the same time
};

struct CommandLine {
    std::optional<Options> options; // none when there is nothing to do but to leave
    int exit_status = 0;
};

// Exit statuses.
inline constexpr int all_done = 0;
inline constexpr int some_failed = 1;
inline constexpr int wrong_usage = 2;

// Reads the command line. Answers a call for help or the version itself, and writes one line about a mistake.
CommandLine read_command_line(int argc, const char *const *argv);

} // namespace host

#endif
