// Previews are averaged from the rows on their way to the target, so that a page costs no further pass over the pictures that
// are written, and no more memory than the previews.
#include "page_entry.h"

#include <algorithm>
#include <set>

namespace host {

namespace {

// JPEG files are at most 65535 pixels long, and a long strip is no easier to view than its beginning.
constexpr uint32_t longest_preview_side = 2000;

kohost::Size preview_size(kohost::Size picture, uint64_t area) {
    const kohost::Size size = kohost::working_size(picture, area);
    return {std::min(size.width, longest_preview_side), std::min(size.height, longest_preview_side)};
}

// Such as "within the limits of conservative", for a picture that its own policy alone would turn down.
std::string verdict_of(const kohost::Judgement &judgement, kohost::Policy policy) {
    const std::optional<kohost::Policy> passing = kohost::passing(judgement, policy);
    if (policy == kohost::Policy::always) {
        return "Every picture is enhanced under the policy always, whatever its measures.";
    }
    if (passing && !kohost::excesses(judgement, policy).empty()) {
        return std::string("The picture passes within the limits of the policy ") + kohost::name(*passing) + ".";
    }
    return "";
}

std::string shown(double count) { return std::to_string(static_cast<uint64_t>(count)); }

// A picture passes under a policy if it is within the limits of that one or of one before it, so all of these count.
std::string limits_in_words(const kohost::Judgement &judgement, kohost::Policy policy, kohost::Measure measure) {
    std::string each;
    std::set<double> different;
    for (const kohost::Policy one : kohost::policies_with_limits) {
        if (const auto limit = value_of(judgement.limits[static_cast<size_t>(one) - 1], measure); limit && one <= policy) {
            each += (each.empty() ? "" : ", ") + shown(*limit) + " under " + kohost::name(one);
            different.insert(*limit);
        }
    }
    if (policy == kohost::Policy::always || different.empty()) {
        return "no limit";
    }
    return "limit " + (different.size() == 1 ? shown(*different.begin()) : each);
}

std::string count_in_words(const kohost::Judgement &judgement, kohost::Policy policy, kohost::Measure measure) {
    const double count = value_of(judgement.values, measure).value_or(0.0);
    return shown(count) + " of " + std::to_string(kohost::judged_blocks) + " blocks " + kohost::fault_of(measure) + " (" +
           limits_in_words(judgement, policy, measure) + ")";
}

} // namespace

void add_outcome(PageEntry &page, PageOutcome outcome) {
    const auto same = [&](const PageOutcome &other) { return other.text == outcome.text; };
    if (std::none_of(page.outcomes.begin(), page.outcomes.end(), same)) {
        page.outcomes.push_back(std::move(outcome));
    }
}

void keep_scores(PageEntry &page, const kohost::Scores &scores, kohost::Policy policy) {
    const kohost::Judgement judgement = scores.judgement();
    for (const kohost::Measure measure : kohost::measures) {
        if (const auto blocks = scores.of_blocks(measure)) {
            page.measures.push_back({measure,
                                     {blocks->begin(), blocks->end()},
                                     scores.block_threshold(measure),
                                     count_in_words(judgement, policy, measure)});
        }
    }
    page.verdict = verdict_of(judgement, policy);
}

void keep_curves(PageEntry &page, const TileTRC &curves) {
    const size_t count = curves.numStripsX * curves.numStripsY * curves.size;
    page.curves = PageCurves{{curves.numStripsX, curves.numStripsY}, curves.size, {curves.array, curves.array + count}};
}

void keep_description(PageEntry &page, const codec::Description &picture) {
    page.icc_profile = picture.metadata.icc_profile;
    page.orientation = orientation_of(picture.metadata.exif);
}

void keep_before(PageEntry &page, const kohost::Pixels &picture) {
    if (!page.before) {
        kohost::AreaAverage average(picture.size, preview_size(picture.size, page.preview_area), picture.channels);
        average.add(picture.size.height, picture.bytes);
        page.before = average.take();
    }
}

Previews::Previews(PageEntry *page, const codec::Description &picture) : page_(page) {
    if (page == nullptr) {
        return;
    }
    keep_description(*page, picture);
    const kohost::Size size{picture.width, picture.height};
    const auto start = [&] {
        return std::make_unique<kohost::AreaAverage>(size, preview_size(size, page->preview_area), picture.channels);
    };
    before_ = page->before ? nullptr : start();
    after_ = page->changed ? start() : nullptr;
}

void Previews::before(uint32_t rows, const uint8_t *pixels) {
    if (before_) {
        before_->add(rows, pixels);
    }
}

void Previews::after(uint32_t rows, const uint8_t *pixels) {
    if (after_) {
        after_->add(rows, pixels);
    }
}

void Previews::keep() {
    if (before_) {
        page_->before = before_->take();
    }
    if (after_) {
        page_->after = after_->take();
    }
}

} // namespace host
