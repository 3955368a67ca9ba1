// `ko apply`: applies a saved grid of curves to pictures.
#include "commands.h"

#include "enhance.h"
#include "grid_file.h"
#include "kohost/curves.h"
#include "marked.h"
#include "paths.h"
#include "workers.h"

namespace host {

namespace {

ko::TileTRCPtr load_named(const std::string &path) {
    try {
        return load_grid(path_of(path));
    } catch (const std::runtime_error &error) {
        throw FileError(path + ": " + error.what());
    }
}

void apply_to_file(const Job &job, const TileTRC &curves, const Options &options, Entry &entry) {
    Source source(job.input, options.preserve);
    if (leave_marked(job, source, Deed::curves, options, entry)) {
        return;
    }
    source.scan();
    check_fit(curves, source.size().width, source.size().height);
    const bool unchanged =
        kohost::stays(source.description().channels, {KoTileTRCGetNumStripsX(&curves), KoTileTRCGetNumStripsY(&curves)});
    if (unchanged) {
        copy_picture(job, source, options.quality, entry);
        source.notices.push_back(kohost::why_it_stays);
    } else {
        write_enhanced(job, source, options.quality, curves, options.tuning.ratio, entry, {Deed::curves});
    }
    report_notices(source.notices, entry);
    entry.done(
        {source.size().width, source.size().height, text_of(job.target), unchanged ? "unchanged" : "curves applied", ""});
}

} // namespace

void apply_grid(const Options &options, Report &report) {
    const ko::TileTRCPtr curves = load_named(options.grid_file);
    for_each_job(lay_out_jobs(options.selection, options.destination, {options.grid_file}), options.jobs, report,
                 [&](const Job &job, Entry &entry) { apply_to_file(job, *curves, options, entry); });
}

} // namespace host
