// `ko enhance`: photographs in, enhanced photographs out. One that is turned down comes out as it went in.
#include "commands.h"

#include "enhance.h"
#include "pictures.h"

namespace host {

namespace {

void enhance_file(const Job &job, const Options &options, Report &report) {
    Source source = read_picture(job.input);
    report.at(Stage::curves);
    codec::Notices notices;
    const Enhancement enhancement = enhance(source.picture, options.tuning, options.judging, notices,
                                            [&](double share) { report.at(Stage::applying, share); });
    report.at(Stage::writing);
    if (enhancement.decision == Decision::enhanced) {
        write_picture(job, source.picture, options.quality, source.notices);
    } else {
        copy_picture(job, source, options.quality);
    }
    tell(notices, report);
    tell(source.notices, report);
    report.done(
        {source.picture.width, source.picture.height, job.target.string(), shown(enhancement.decision), enhancement.reason});
}

} // namespace

void enhance_pictures(const Options &options, Report &report) {
    for_each_job(lay_out_jobs(options.inputs, options.output), report,
                 [&](const Job &job) { enhance_file(job, options, report); });
}

} // namespace host
