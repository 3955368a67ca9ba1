// `ko curves`: the curves of one picture, as a file or drawn over the picture, without a judgement.
#include "commands.h"

#include "draw.h"
#include "enhance.h"
#include "kohost/curves.h"
#include "paths.h"
#include "workers.h"

namespace host {

namespace {

std::string draw(const Job &job, Source &source, const TileTRC &curves, std::optional<int> quality) {
    const codec::Picture drawn = draw_curves(source.load(), curves);
    Draft draft(job.target);
    const auto writer = codec::create(draft, drawn, {target_format(job, drawn), quality}, source.notices);
    writer->write(drawn.height, drawn.pixels.get(), nullptr);
    writer->finish(source.notices);
    draft.take_place();
    return "curves drawn";
}

std::string save(const Job &job, GridForm form, const TileTRC &curves) {
    save_grid(curves, form, job.target);
    return std::string("curves saved as ") + name(form);
}

void make_file(const Job &job, const Options &options, Entry &entry) {
    Source source(job.input);
    const kohost::Image working_copy = source.working_copy(options.tuning.working_area).average;
    entry.at(Stage::curves);
    const kohost::Grid grid = kohost::fitting_grid(options.tuning.grid, working_copy.size);
    note_grid(options.tuning.grid, grid, source.notices);
    const ko::TileTRCPtr curves = kohost::fit_curves(working_copy.pixels(), options.tuning, grid);
    entry.at(Stage::writing);
    const std::string decision = options.draw ? draw(job, source, *curves, options.quality) : save(job, options.form, *curves);
    report_notices(source.notices, entry);
    entry.done({source.size().width, source.size().height, text_of(job.target), decision, ""});
}

} // namespace

void save_curves(const Options &options, Report &report) {
    if (options.draw) {
        check_extension(path_of(options.destination.output));
    }
    for_each_job({lay_out_file(options.selection.inputs.front(), options.destination.output)}, options.jobs, report,
                 [&](const Job &job, Entry &entry) { make_file(job, options, entry); });
}

} // namespace host
