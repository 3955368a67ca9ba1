// From a working copy to a grid of curves, and from the curves to the whole picture.
#include "enhance.h"

#include "kohost/curves.h"
#include "kohost/scores.h"
#include "page_entry.h"

namespace host {

namespace {

std::string shown(const kohost::Grid &grid) { return std::to_string(grid.columns) + "x" + std::to_string(grid.rows); }

std::string reason_of(const kohost::Excess &excess) {
    return std::string(kohost::meaning_of(excess.measure)) + ": " + kohost::text_of(excess);
}

// The reason against a picture. A page shows its measures, whatever the policy makes of them.
std::optional<kohost::Excess> judge(const kohost::WorkingCopy &working_copy, const kohost::Tuning &tuning,
                                    const kohost::Judging &judging, PageEntry *page) {
    if (page == nullptr) {
        return kohost::reason_against(working_copy, tuning, judging);
    }
    const kohost::Scores scores(working_copy, tuning, judging.score);
    keep_scores(*page, scores, judging.policy);
    return kohost::deciding(scores.judgement(), judging.policy);
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

std::string line_about(const Enhancement &enhancement) {
    const std::string reason = enhancement.reason.empty() ? "" : ": " + enhancement.reason + "; --force enhances it";
    return shown(enhancement.decision) + reason;
}

kohost::Grid fitting_grid(const kohost::Grid &wanted, kohost::Size size, codec::Notices &notices) {
    const kohost::Grid grid = kohost::fitting_grid(wanted, size);
    if (grid.columns != wanted.columns || grid.rows != wanted.rows) {
        notices.push_back("grid " + shown(wanted) + " reduced to " + shown(grid) + " for so small a picture");
    }
    return grid;
}

namespace {

Enhancement decide(const kohost::WorkingCopy &working_copy, const kohost::Tuning &tuning, const kohost::Judging &judging,
                   Entry &entry) {
    Enhancement enhancement;
    const kohost::Grid grid = fitting_grid(tuning.grid, working_copy.average.size, enhancement.notices);
    if (kohost::stays(working_copy.average.channels, grid)) {
        enhancement.notices.push_back(why_it_stays);
        enhancement.decision = Decision::unchanged;
        return enhancement;
    }
    entry.at(Stage::judging);
    if (const auto excess = judge(working_copy, tuning, judging, entry.page())) {
        return {Decision::turned_down, reason_of(*excess), nullptr, {}};
    }
    entry.at(Stage::curves);
    enhancement.curves = kohost::fit_curves(working_copy.average.pixels(), tuning, grid);
    return enhancement;
}

// A picture that is written is shown as it passes; one that is copied, by its working copy if that has enough pixels.
void show_plan(PageEntry &page, const kohost::WorkingCopy &working_copy, const Enhancement &enhancement) {
    if (enhancement.curves != nullptr) {
        keep_curves(page, *enhancement.curves);
        page.changed = true;
    } else if (working_copy.average.size.area() >= page.preview_area) {
        keep_before(page, working_copy.average.pixels());
    }
}

} // namespace

Enhancement plan(const kohost::WorkingCopy &working_copy, const kohost::Tuning &tuning, const kohost::Judging &judging,
                 Entry &entry) {
    Enhancement enhancement = decide(working_copy, tuning, judging, entry);
    if (PageEntry *page = entry.page()) {
        show_plan(*page, working_copy, enhancement);
    }
    return enhancement;
}

void write_enhanced(const Job &job, Source &source, std::optional<int> quality, const TileTRC &curves, float ratio,
                    Entry &entry) {
    KoStatusClear();
    kohost::Application application(curves, ratio, source.size(), source.description().channels);
    write_picture(
        job, source, quality, [&](uint32_t rows, uint8_t *pixels) { application.apply(rows, pixels); }, entry);
}

} // namespace host
