// `ko auto`: everything that the library does for a photograph, on one decoded picture. Red eyes come first: the model knows
// them as cameras make them, and the curves change colours. The picture is then judged and enhanced without them.
#include "commands.h"

#include <optional>

#include "enhance.h"
#include "pictures.h"
#include "redeye_answer.h"

namespace host {

namespace {

std::optional<RedEyes> repair(const Job &job, codec::Picture &picture, const Options &options, Report &report) {
    if (options.red_eyes.model.empty()) {
        return std::nullopt;
    }
    report.at(Stage::red_eyes);
    std::FILE *log = options.red_eyes.log ? report.log() : nullptr;
    return repair_red_eyes(picture, options.red_eyes, job.input, log);
}

Json object_about(const std::optional<RedEyes> &eyes) {
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

void tell_result(const Job &job, const codec::Picture &picture, const std::optional<RedEyes> &eyes,
                 const Enhancement &enhancement, Report &report) {
    const std::string why = enhancement.reason.empty() ? "" : ": " + enhancement.reason;
    const std::string about_eyes = eyes ? line_about(*eyes) + ", " : "";
    Result result{picture.width, picture.height, job.target.string(), shown(enhancement.decision), enhancement.reason};
    result.said = about_eyes + result.decision + why;
    result.members["red_eyes"] = object_about(eyes);
    report.done(result);
}

void improve_file(const Job &job, const Options &options, Report &report) {
    Source source = read_picture(job.input);
    codec::Picture &picture = source.picture;
    const std::optional<RedEyes> eyes = repair(job, picture, options, report);
    report.at(Stage::curves);
    codec::Notices notices;
    const Enhancement enhancement =
        enhance(picture, options.tuning, options.judging, notices, [&](double share) { report.at(Stage::applying, share); });
    report.at(Stage::writing);
    if (enhancement.decision == Decision::enhanced || (eyes && eyes->changed)) {
        write_picture(job, picture, options.quality, source.notices);
    } else {
        copy_picture(job, source, options.quality);
    }
    tell(notices, report);
    tell(source.notices, report);
    tell_result(job, picture, eyes, enhancement, report);
}

} // namespace

void improve_pictures(const Options &options, Report &report) {
    std::vector<std::string> model;
    if (options.red_eyes.model.empty()) {
        report.remark("red eyes are left as they are without --model");
    } else {
        model = try_model(options.red_eyes.model);
    }
    for_each_job(lay_out_jobs(options.inputs, options.output, model), report,
                 [&](const Job &job) { improve_file(job, options, report); });
}

} // namespace host
