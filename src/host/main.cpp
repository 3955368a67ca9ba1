// The program `ko`: photographs in, enhanced photographs out. One picture at a time; a picture that fails leaves the others
// alone.
#include <cstdio>
#include <exception>
#include <new>
#include <string>

#include "codec/codec.h"
#include "enhance.h"
#include "files.h"
#include "jobs.h"
#include "library.h"
#include "options.h"
#include "report.h"

namespace host {

namespace {

void tell(const codec::Notices &notices, Report &report) {
    for (const std::string &notice : notices) {
        report.notice(notice);
    }
}

codec::Picture read_picture(const Job &job, codec::Notices &notices) { return codec::decode(read_file(job.input), notices); }

void run(const Job &job, const Options &options, Report &report) {
    if (!job.refusal.empty()) {
        throw FileError(job.refusal);
    }
    codec::Notices notices;
    codec::Picture picture = read_picture(job, notices);
    report.at(Stage::curves);
    const Decision decision =
        enhance(picture, options.tuning, notices, [&](double share) { report.at(Stage::applying, share); });
    report.at(Stage::writing);
    const codec::Format format = job.format.value_or(picture.format);
    if (format_of_extension(job.target) != format) {
        notices.push_back("written as " + std::string(codec::name(format)) + " like the input, whatever the name says");
    }
    write_file(job.target, codec::encode(picture, format, options.quality, notices));
    tell(notices, report);
    report.done(picture.width, picture.height, decision == Decision::enhanced ? "enhanced" : "unchanged");
}

void print(void *report, const char *text) { static_cast<Report *>(report)->message(text); }

int run(const Options &options) {
    Report report(options.quiet, options.inputs.size());
    try {
        const Library library;
        KoErrorSetVerboseFunction(print, &report);
        for (const Job &job : lay_out_jobs(options.inputs, options.output)) {
            report.begin(job.input);
            try {
                run(job, options, report);
            } catch (const std::bad_alloc &) {
                report.failed("not enough memory");
            } catch (const std::exception &error) {
                report.failed(error.what());
            }
        }
    } catch (const std::exception &error) {
        report.error(error.what());
    }
    KoErrorSetVerboseFunction(nullptr, nullptr);
    return report.any_failed() ? 1 : 0;
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
