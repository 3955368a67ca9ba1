// `ko apply`: a saved grid of curves onto pictures.
#include "commands.h"

#include "curves.h"
#include "files.h"
#include "grid_file.h"
#include "pictures.h"

namespace host {

namespace {

TileTrcPtr load_named(const std::string &path) {
    try {
        return load_grid(path);
    } catch (const std::runtime_error &error) {
        throw FileError(path + ": " + error.what());
    }
}

void apply_to_file(const Job &job, const TileTRC &curves, const Options &options, Report &report) {
    KoStatusClear();
    Source source = read_picture(job.input);
    codec::Picture &picture = source.picture;
    check_fit(curves, picture.width, picture.height);
    const bool unchanged = stays(picture, {KoTileTRCGetNumStripsX(&curves), KoTileTRCGetNumStripsY(&curves)});
    if (unchanged) {
        copy_picture(job, source, options.quality);
        source.notices.push_back(why_it_stays);
    } else {
        apply_curves(picture, curves, options.tuning.ratio, [&](double share) { report.at(Stage::applying, share); });
        report.at(Stage::writing);
        write_picture(job, picture, options.quality, source.notices);
    }
    tell(source.notices, report);
    report.done({picture.width, picture.height, job.target.string(), unchanged ? "unchanged" : "curves applied", ""});
}

} // namespace

void apply_grid(const Options &options, Report &report) {
    const TileTrcPtr curves = load_named(options.grid_file);
    for_each_job(lay_out_jobs(options.inputs, options.output, {options.grid_file}), report,
                 [&](const Job &job) { apply_to_file(job, *curves, options, report); });
}

} // namespace host
