// From a working copy to a grid of curves, and from the curves to the whole picture.
#include "enhance.h"

#include "kohost/curves.h"
#include "kohost/scores.h"
#include "measures.h"
#include "page_entry.h"
#include "paths.h"

namespace host {

namespace {

std::string shown(const kohost::Grid &grid) { return std::to_string(grid.columns) + "x" + std::to_string(grid.rows); }

std::string shown(kohost::Size size) { return std::to_string(size.width) + " x " + std::to_string(size.height); }

// Such as "53 of 64 blocks would gain too little detail (limit 63)" for each measure that was taken.
std::string text_of(const kohost::Judgement &judgement, kohost::Policy policy) {
    const auto &limits = judgement.limits[static_cast<size_t>(policy) - 1];
    std::string text;
    for (const kohost::Measure measure : kohost::measures) {
        const auto value = kohost::value_of(judgement.values, measure);
        if (const auto limit = kohost::value_of(limits, measure); value && limit) {
            text += (text.empty() ? "" : ", ") + kohost::text_of(kohost::Excess{measure, *value, *limit});
        }
    }
    return text;
}

// Each measure beside the limit of a policy that has limits.
Json members_of(const kohost::Judgement &judgement, kohost::Policy policy) {
    const auto &limits = judgement.limits[static_cast<size_t>(policy) - 1];
    Json members = Json::object();
    for (const kohost::Measure measure : kohost::measures) {
        members[kohost::key_of(measure)] = {{"value", number(judgement.values, measure).value_or(nullptr)},
                                            {"limit", number(limits, measure).value_or(nullptr)}};
    }
    return members;
}

// The reason to turn a picture down. A page, the details and the objects show its measures, whatever the policy decides.
std::optional<kohost::Excess> judge(const kohost::WorkingCopy &working_copy, const kohost::Tuning &tuning,
                                    const kohost::Judging &judging, Entry &entry, Json &measures) {
    const bool has_limits = judging.policy != kohost::Policy::always;
    if (entry.page() == nullptr && !entry.wants_details() && !(entry.wants_object() && has_limits)) {
        return kohost::reason_against(working_copy, tuning, judging);
    }
    const kohost::Scores scores(working_copy, tuning, judging.score);
    const kohost::Judgement judgement = scores.judgement();
    if (entry.page() != nullptr) {
        keep_scores(*entry.page(), scores, judging.policy);
    }
    if (has_limits) {
        measures = members_of(judgement, judging.policy);
        entry.detail("judged at " + shown(working_copy.average.size) + " pixels: " + text_of(judgement, judging.policy));
    }
    return kohost::deciding(judgement, judging.policy);
}

// A reduced picture with the curves of the whole applied; none if it has too few pixels for the grid.
std::optional<kohost::Image> under(const TileTRC &curves, float ratio, kohost::Image image) {
    const kohost::Grid grid{KoTileTRCGetNumStripsX(&curves), KoTileTRCGetNumStripsY(&curves)};
    const kohost::Grid fitting = kohost::fitting_grid(grid, image.size);
    if (fitting.columns != grid.columns || fitting.rows != grid.rows) {
        return std::nullopt;
    }
    kohost::Application application(curves, ratio, image.size, image.channels);
    application.apply(image.size.height, image.bytes.data());
    return image;
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

void note_grid(const kohost::Grid &wanted, const kohost::Grid &grid, codec::Notices &notices) {
    if (grid.columns != wanted.columns || grid.rows != wanted.rows) {
        notices.push_back("grid " + shown(wanted) + " reduced to " + shown(grid) + " for so small a picture");
    }
}

namespace {

// The stages of a plan are reported when they begin.
Enhancement decide(const kohost::WorkingCopy &working_copy, const kohost::Tuning &tuning, const kohost::Judging &judging,
                   Entry &entry) {
    const kohost::Size size = working_copy.average.size;
    Json measures;
    Enhancement enhancement{kohost::plan(working_copy, tuning,
                                         [&] {
                                             entry.at(Stage::judging);
                                             const auto excess = judge(working_copy, tuning, judging, entry, measures);
                                             if (!excess) {
                                                 entry.at(Stage::curves);
                                                 entry.detail("curves for " + shown(kohost::fitting_grid(tuning.grid, size)) +
                                                              " tiles, computed at " + shown(size) + " pixels");
                                             }
                                             return excess;
                                         }),
                            {},
                            {}};
    enhancement.measures = std::move(measures);
    if (enhancement.decision != Decision::turned_down) {
        note_grid(tuning.grid, enhancement.grid, enhancement.notices);
    }
    if (enhancement.decision == Decision::unchanged) {
        enhancement.notices.push_back(std::move(enhancement.reason));
        enhancement.reason.clear();
    }
    return enhancement;
}

// The preview of a picture that is written is made as its rows pass; that of a copied one from its working copy if that has
// enough pixels.
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
                    Entry &entry, const std::vector<Deed> &deeds) {
    KoStatusClear();
    kohost::Application application(curves, ratio, source.size(), source.description().channels);
    write_picture(job, source, quality, [&](uint32_t rows, uint8_t *pixels) { application.apply(rows, pixels); }, entry,
                  {deeds, [&] { return under(curves, ratio, source.preview()); }});
}

} // namespace host
