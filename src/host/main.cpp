// The program `ko`: photographs in, enhanced photographs out. A picture that fails does not affect the others.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <iostream>

#include "command_line.h"
#include "commands.h"
#include "files.h"
#include "ko.hpp"
#include "report.h"
#include "system.h"

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

// For an interruption, which ends the program in the middle of its work.
std::atomic<Report *> present = nullptr;

void clean_up() {
    if (Report *report = present) {
        report->abandon();
    }
    Draft::abandon_all();
}

int run(const Options &options) {
    Report report(options.reporting);
    present = &report;
    int status = all_done;
    try {
        const ko::Library library;
        KoErrorSetVerboseFunction(print, &report);
        run_command(options, report);
        report.close_page();
    } catch (const UsageError &error) {
        report.error(error.what());
        status = wrong_usage;
    } catch (const std::exception &error) {
        report.error(error.what());
    }
    KoErrorSetVerboseFunction(nullptr, nullptr);
    present = nullptr;
    return report.good() ? all_done : std::max(status, some_failed);
}

} // namespace

} // namespace host

int main(int argc, char **argv) {
    try {
        host::system::on_interruption(host::clean_up);
        host::system::keep_freed_memory();
        const host::CommandLine command_line = host::read_command_line(host::system::arguments(argc, argv));
        if (command_line.options) {
            return host::run(*command_line.options);
        }
        std::cout.flush();
        if (!std::cout) {
            throw host::FileError("the standard output cannot be written");
        }
        return command_line.exit_status;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "ko: %s\n", error.what());
        return host::some_failed;
    }
}
