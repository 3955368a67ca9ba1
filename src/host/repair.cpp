#include "repair.h"

namespace host {

kohost::RedEyes repair(const Job &job, Source &source, const kohost::RedEyeChoices &choices, Entry &entry) {
    codec::Picture &picture = source.load();
    entry.at(Stage::red_eyes);
    std::FILE *log = choices.log ? entry.log() : nullptr;
    uint8_t *pixels = picture.pixels.get();
    return kohost::repair_red_eyes({pixels, source.size(), picture.channels}, pixels, choices, job.input, log);
}

Trace trace_of(const kohost::RedEyes &eyes, Source &source) {
    if (eyes.decision != kohost::RedEyeDecision::repaired) {
        return {};
    }
    return {{Deed::red_eyes}, [&source] { return source.preview(); }};
}

} // namespace host
