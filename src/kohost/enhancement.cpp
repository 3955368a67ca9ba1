#include "kohost/enhancement.h"

#include "kohost/curves.h"
#include "kohost/scores.h"

namespace kohost {

Enhancement plan(const WorkingCopy &working_copy, const Tuning &tuning, const Judge &judge) {
    const Image &picture = working_copy.average;
    Enhancement enhancement;
    enhancement.grid = fitting_grid(tuning.grid, picture.size);
    if (stays(picture.channels, enhancement.grid)) {
        enhancement.decision = Decision::unchanged;
        enhancement.reason = why_it_stays;
    } else if (const auto excess = judge()) {
        enhancement.decision = Decision::turned_down;
        enhancement.reason = std::string(meaning_of(excess->measure)) + ": " + text_of(*excess);
    } else {
        enhancement.curves = fit_curves(picture.pixels(), tuning, enhancement.grid);
    }
    return enhancement;
}

Enhancement plan(const Pixels &picture, const Tuning &tuning, const Judging &judging) {
    const WorkingCopy working_copy = working_copy_of(picture, tuning.working_area);
    return plan(working_copy, tuning, [&] { return reason_against(working_copy, tuning, judging); });
}

Enhancement enhance(uint8_t *bytes, Size size, uint32_t channels, const Tuning &tuning, const Judging &judging) {
    Enhancement enhancement = plan({bytes, size, channels}, tuning, judging);
    if (enhancement.curves != nullptr) {
        KoStatusClear();
        Application(*enhancement.curves, tuning.ratio, size, channels).apply(size.height, bytes);
    }
    return enhancement;
}

} // namespace kohost
