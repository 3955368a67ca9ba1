// What the command line requests.
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
    std::string grid_file; // apply: the curves to apply
    std::string scores;    // judge: the score file, or ""
    std::string page;      // enhance, redeye, auto: the page of the run, or ""
    kohost::Tuning tuning;
    kohost::Judging judging;
    kohost::RedEyeChoices red_eyes;
    GridForm form = GridForm::text;
    bool draw = false; // curves: a picture instead of a grid
    std::optional<int> quality;
    bool again = false;    // even what a picture's mark says was done
    bool preserve = false; // results keep their inputs' times and permissions
    Reporting reporting;
    unsigned jobs = 1; // pictures that are processed at once
};

} // namespace host

#endif
