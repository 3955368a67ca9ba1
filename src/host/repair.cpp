#include "repair.h"

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

} // namespace

kohost::RedEyes repair(const Job &job, Source &source, const kohost::RedEyeChoices &choices, Entry &entry) {
    codec::Picture &picture = source.load();
    entry.at(Stage::red_eyes);
    std::FILE *log = choices.log ? entry.log() : nullptr;
    uint8_t *pixels = picture.pixels.get();
    const kohost::Pixels before{pixels, source.size(), picture.channels};
    PageEntry *page = entry.page();
    if (page != nullptr) {
        keep_before(*page, before);
    }
    kohost::RedEyes eyes = kohost::repair_red_eyes(before, pixels, choices, job.input, log);
    if (page != nullptr) {
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
