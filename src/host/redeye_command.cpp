// `ko redeye`: photographs in, photographs without red eyes out. One without any comes out as it went in.
#include "commands.h"

#include "pictures.h"
#include "redeye_answer.h"

namespace host {

namespace {

void repair_file(const Job &job, const Options &options, Report &report) {
    Source source = read_picture(job.input);
    report.at(Stage::red_eyes);
    std::FILE *log = options.red_eyes.log ? report.log() : nullptr;
    const RedEyes eyes = repair_red_eyes(source.picture, options.red_eyes, job.input, log);
    report.at(Stage::writing);
    if (eyes.changed) {
        write_picture(job, source.picture, options.quality, source.notices);
    } else {
        copy_picture(job, source, options.quality);
    }
    tell(source.notices, report);
    report.done({source.picture.width, source.picture.height, job.target.string(), shown(eyes.decision), reason_of(eyes),
                 line_about(eyes), members_of(eyes)});
}

} // namespace

void repair_pictures(const Options &options, Report &report) {
    const std::vector<std::string> model = try_model(options.red_eyes.model);
    if (!options.red_eyes.dump.empty()) {
        prepare_folder(options.red_eyes.dump, "the patch files");
    }
    for_each_job(lay_out_jobs(options.inputs, options.output, model), report,
                 [&](const Job &job) { repair_file(job, options, report); });
}

} // namespace host
