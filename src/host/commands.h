// The program's commands. Each processes the pictures of the command line and reports the outcome.
#ifndef KO_HOST_COMMANDS_H
#define KO_HOST_COMMANDS_H

#include "options.h"
#include "report.h"

namespace host {

void enhance_pictures(const Options &options, Report &report);
void repair_pictures(const Options &options, Report &report);
void improve_pictures(const Options &options, Report &report);
void judge_pictures(const Options &options, Report &report);
void save_curves(const Options &options, Report &report);
void apply_grid(const Options &options, Report &report);

} // namespace host

#endif
