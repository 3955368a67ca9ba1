// `ko redeye`: photographs in, photographs without red eyes out. One without any comes out unchanged.
#include "commands.h"

#include "marked.h"
#include "model.h"
#include "paths.h"
#include "redeye_answer.h"
#include "repair.h"
#include "report_page.h"
#include "workers.h"

namespace host {

namespace {

void repair_file(const Job &job, const Options &options, const kohost::RedEyeModel &model, Entry &entry) {
    Source source(job.input, options.preserve);
    if (leave_marked(job, source, Deed::red_eyes, options, entry)) {
        return;
    }
    const kohost::RedEyes eyes = repair(job, source, model, options.red_eyes, entry);
    if (eyes.changed) {
        write_picture(job, source, options.quality, nullptr, entry, trace_of(eyes, source));
    } else {
        copy_picture(job, source, options.quality, entry);
    }
    report_notices(source.notices, entry);
    entry.done({source.size().width, source.size().height, text_of(job.target), shown(eyes.decision), reason_of(eyes),
                line_about(eyes), members_of(eyes)});
}

} // namespace

void repair_pictures(const Options &options, Report &report) {
    const kohost::RedEyeModel model = choose_model(options.red_eyes.model);
    if (!model) {
        throw UsageError("no model: none is installed, and --model names none");
    }
    if (!options.red_eyes.dump.empty()) {
        prepare_folder(path_of(options.red_eyes.dump), "the patch files");
    }
    const std::vector<Job> jobs = lay_out_jobs(options.selection, options.destination, model.files());
    report.open_page(page_for(options, jobs, model.files()));
    for_each_job(jobs, options.jobs, report, [&](const Job &job, Entry &entry) { repair_file(job, options, model, entry); });
}

} // namespace host
