// From a picture's bytes to a grid of curves, and from the curves back to the bytes.
#include "enhance.h"

#include "judgement.h"

namespace host {

namespace {

// The curves, or why there are none.
struct Answer {
    TileTrcPtr curves;
    std::string reason;
};

Answer ask_for_curves(const codec::Picture &picture, const Grid &grid, const Tuning &tuning, const Judging &judging) {
    const ColorImagePtr image = image_of(picture);
    const FeaturesPtr features = make_features(tuning, grid);
    Answer answer{make_curves(*features, *image, tuning, judging), ""};
    if (answer.curves == nullptr) {
        const auto decided = deciding(judgement_of(*features), judging.policy);
        answer.reason = decided ? text_of(*decided) : "no measure is over its limit, and yet the library says no";
    }
    return answer;
}

} // namespace

const char *shown(Decision decision) {
    switch (decision) {
    case Decision::enhanced:
        return "enhanced";
    case Decision::turned_down:
        return "left as it is";
    default:
        return "unchanged";
    }
}

Enhancement enhance(codec::Picture &picture, const Tuning &tuning, const Judging &judging, codec::Notices &notices,
                    const RowsDone &rows_done) {
    KoStatusClear();
    codec::Notices about_grid;
    const Grid grid = fitting_grid(tuning.grid, picture, about_grid);
    if (stays(picture, grid)) {
        notices.insert(notices.end(), about_grid.begin(), about_grid.end());
        notices.push_back(why_it_stays);
        return {Decision::unchanged, ""};
    }
    const Answer answer = ask_for_curves(picture, grid, tuning, judging);
    if (answer.curves == nullptr) {
        return {Decision::turned_down, answer.reason};
    }
    apply_curves(picture, *answer.curves, tuning.ratio, rows_done);
    notices.insert(notices.end(), about_grid.begin(), about_grid.end());
    return {Decision::enhanced, ""};
}

} // namespace host
