// The program `ko`: photographs in, enhanced photographs out. A picture that fails leaves the others alone.
#include <cstdio>
#include <exception>

#include "commands.h"
#include "kohost/library.h"
#include "options.h"
#include "report.h"

namespace host {

namespace {

void run_command(const Options &options, Report &report) {
    switch (options.command) {
    case Command::enhance:
        return enhance_pictures(options, report);
    case Command::redeye:
        return repair_pictures(options, report);
    case Command::improve:
        return improve_pictures(options, report);
    case Command::judge:
        return judge_pictures(options, report);
    case Command::curves:
        return save_curves(options, report);
    case Command::apply:
        return apply_grid(options, report);
    }
}

void print(void *report, const char *text) { static_cast<Report *>(report)->message(text); }

int run(const Options &options) {
    Report report(options.style, options.timings, options.inputs.size());
    try {
        const kohost::Library library;
        KoErrorSetVerboseFunction(print, &report);
        run_command(options, report);
        report.close_page();
    } catch (const std::exception &error) {
        report.error(error.what());
    }
    KoErrorSetVerboseFunction(nullptr, nullptr);
    return report.good() ? 0 : 1;
}

} // namespace

} // namespace host

int main(int argc, char **argv) {
    try {
        const host::CommandLine command_line = host::read_command_line(argc, argv);
        return command_line.options ? host::run(*command_line.options) : command_line.exit_status;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "ko: %s\n", error.what());
        return 1;
    }
}
