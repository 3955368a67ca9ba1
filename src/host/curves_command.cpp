// `ko curves`: the curves of one picture, as a file or drawn over the picture. There is no judgement.
#include "commands.h"

#include "curves.h"
#include "draw.h"
#include "pictures.h"

namespace host {

namespace {

void make_file(const Job &job, const Options &options, Report &report) {
    KoStatusClear();
    Source source = read_picture(job.input);
    report.at(Stage::curves);
    const Grid grid = fitting_grid(options.tuning.grid, source.picture, source.notices);
    const ColorImagePtr image = image_of(source.picture);
    const FeaturesPtr features = make_features(options.tuning, grid);
    const TileTrcPtr curves = make_curves(*features, *image, options.tuning, {Policy::always, no_score});
    check(curves != nullptr, "the curves cannot be made");
    report.at(Stage::writing);
    std::string decision = "curves drawn";
    if (options.draw) {
        const codec::Picture drawn = draw_curves(source.picture, *curves, *features->luminance);
        write_picture(job, drawn, options.quality, source.notices);
    } else {
        save_grid(*curves, options.form, job.target);
        decision = std::string("curves saved as ") + name(options.form);
    }
    tell(source.notices, report);
    report.done({source.picture.width, source.picture.height, job.target.string(), decision, ""});
}

} // namespace

void save_curves(const Options &options, Report &report) {
    for_each_job({lay_out_file(options.inputs.front(), options.output)}, report,
                 [&](const Job &job) { make_file(job, options, report); });
}

} // namespace host
