// `ko auto`: everything that the library does for a photograph, on one decoded picture. Red eyes come first: the model expects
// them as cameras record them, and the curves change colours. The repaired picture is then judged and enhanced.
#include "commands.h"

#include <optional>

#include "enhance.h"
#include "marked.h"
#include "model.h"
#include "paths.h"
#include "redeye_answer.h"
#include "repair.h"
#include "report_page.h"
#include "workers.h"

namespace host {

namespace {

Json object_about(const std::optional<kohost::RedEyes> &eyes) {
    if (!eyes) {
        return nullptr;
    }
    Json object = {{"decision", shown(eyes->decision)}};
    const std::string reason = reason_of(*eyes);
    if (!reason.empty()) {
        object["reason"] = reason;
    }
    object.update(members_of(*eyes));
    return object;
}

Result result_of(const Job &job, const Source &source, const std::optional<kohost::RedEyes> &eyes,
                 const Enhancement &enhancement) {
    const std::string about_eyes = eyes ? line_about(*eyes) + ", " : "";
    Result result{source.size().width, source.size().height, text_of(job.target), shown(enhancement.decision),
                  enhancement.reason};
    result.said = about_eyes + line_about(enhancement);
    result.members["measures"] = enhancement.measures;
    result.members["red_eyes"] = object_about(eyes);
    return result;
}

void improve_file(const Job &job, const Options &options, const kohost::RedEyeModel &model, Entry &entry) {
    Source source(job.input, options.preserve);
    if (leave_marked(job, source, Deed::shadows, options, entry)) {
        return;
    }
    std::optional<kohost::RedEyes> eyes;
    if (model && !is_marked(source, Deed::red_eyes, options)) {
        eyes = repair(job, source, model, options.red_eyes, entry);
    }
    entry.at(Stage::reading);
    const Enhancement enhancement =
        plan(source.working_copy(options.tuning.working_area), options.tuning, options.judging, entry);
    if (enhancement.curves != nullptr) {
        std::vector<Deed> deeds = eyes ? trace_of(*eyes, source).deeds : std::vector<Deed>();
        deeds.push_back(Deed::shadows);
        write_enhanced(job, source, options.quality, *enhancement.curves, options.tuning.ratio, entry, deeds);
    } else if (eyes && eyes->changed) {
        write_picture(job, source, options.quality, nullptr, entry, trace_of(*eyes, source));
    } else {
        copy_picture(job, source, options.quality, entry);
    }
    report_notices(enhancement.notices, entry);
    report_notices(source.notices, entry);
    entry.done(result_of(job, source, eyes, enhancement));
}

} // namespace

void improve_pictures(const Options &options, Report &report) {
    const kohost::RedEyeModel model = choose_model(options.red_eyes.model);
    if (!model && options.red_eyes.model.empty()) {
        report.remark("red eyes are left as they are: no model is installed, and --model names none");
    }
    const std::vector<Job> jobs = lay_out_jobs(options.selection, options.destination, model.files());
    report.open_page(page_for(options, jobs, model.files()));
    for_each_job(jobs, options.jobs, report, [&](const Job &job, Entry &entry) { improve_file(job, options, model, entry); });
}

} // namespace host
