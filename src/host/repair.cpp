#include "repair.h"

#include "kohost/plain_redeye.h"
#include "kohost/redeye_search.h"
#include "page_entry.h"
#include "redeye_answer.h"

namespace host {

namespace {

void keep_red_eyes(PageEntry &page, const kohost::RedEyes &eyes) {
    page.red_eyes = eyes;
    page.changed = eyes.changed;
    page.reason = reason_of(eyes);
    const bool repaired = eyes.decision == kohost::RedEyeDecision::repaired;
    add_outcome(page, {shown(eyes.decision), repaired ? PageOutcome::Kind::changed : PageOutcome::Kind::left});
}

// The pixels of a source in memory, as they are.
kohost::Pixels loaded(Source &source, Entry &entry) {
    const codec::Picture &picture = source.load();
    const kohost::Pixels pixels{picture.pixels.get(), source.size(), picture.channels};
    if (PageEntry *page = entry.page()) {
        keep_before(*page, pixels);
    }
    return pixels;
}

kohost::RedEyes repair_plainly(const Job &job, Source &source, const kohost::RedEyeModel &model,
                               const kohost::RedEyeChoices &choices, Entry &entry, std::FILE *log) {
    const kohost::Pixels before = loaded(source, entry);
    entry.at(Stage::red_eyes);
    return kohost::repair_plainly(before, source.load().pixels.get(), model.configuration(), choices, job.input, log);
}

kohost::RedEyes repair_found(Source &source, const kohost::RedEyeModel &model, const kohost::RedEyeChoices &choices,
                             Entry &entry, std::FILE *log) {
    const kohost::Image copy = source.reduced(kohost::search_area);
    entry.at(Stage::red_eyes);
    kohost::RedEyes eyes = kohost::find_red_eyes(copy.pixels(), source.size(), model, choices, log);
    if (eyes.changed) {
        entry.at(Stage::reading);
        loaded(source, entry);
        entry.at(Stage::red_eyes);
        kohost::repair_red_eyes(source.load().pixels.get(), source.size(), eyes, choices);
    }
    return eyes;
}

} // namespace

kohost::RedEyes repair(const Job &job, Source &source, const kohost::RedEyeModel &model, const kohost::RedEyeChoices &choices,
                       Entry &entry) {
    std::FILE *log = choices.log ? entry.log() : nullptr;
    kohost::RedEyes eyes = choices.plain ? repair_plainly(job, source, model, choices, entry, log)
                                         : repair_found(source, model, choices, entry, log);
    for (const kohost::Place &place : eyes.places) {
        if (place.judged && entry.wants_details()) {
            entry.detail(line_about(place));
        }
    }
    if (PageEntry *page = entry.page()) {
        keep_red_eyes(*page, eyes);
    }
    return eyes;
}

Trace trace_of(const kohost::RedEyes &eyes, Source &source) {
    if (eyes.decision != kohost::RedEyeDecision::repaired) {
        return {};
    }
    return {{Deed::red_eyes}, [&source] { return source.preview(); }};
}

} // namespace host
