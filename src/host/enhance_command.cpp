// `ko enhance`: photographs in, enhanced photographs out. One that is turned down comes out unchanged.
#include "commands.h"

#include "enhance.h"
#include "marked.h"
#include "paths.h"
#include "report_page.h"
#include "workers.h"

namespace host {

namespace {

void enhance_file(const Job &job, const Options &options, Entry &entry) {
    Source source(job.input, options.preserve);
    if (leave_marked(job, source, Deed::shadows, options, entry)) {
        return;
    }
    const Enhancement enhancement =
        plan(source.working_copy(options.tuning.working_area), options.tuning, options.judging, entry);
    if (enhancement.curves != nullptr) {
        write_enhanced(job, source, options.quality, *enhancement.curves, options.tuning.ratio, entry, {Deed::shadows});
    } else {
        copy_picture(job, source, options.quality, entry);
    }
    report_notices(enhancement.notices, entry);
    report_notices(source.notices, entry);
    entry.done({source.size().width, source.size().height, text_of(job.target), shown(enhancement.decision), enhancement.reason,
                line_about(enhancement), Json{{"measures", enhancement.measures}}});
}

} // namespace

void enhance_pictures(const Options &options, Report &report) {
    const std::vector<Job> jobs = lay_out_jobs(options.selection, options.destination);
    report.open_page(page_for(options, jobs));
    for_each_job(jobs, options.jobs, report, [&](const Job &job, Entry &entry) { enhance_file(job, options, entry); });
}

} // namespace host
