// The repair of red eyes, on the road of the program. The search goes by a small copy; only a picture that is to be changed is
// held in memory.
#include "kohost/redeye.h"

#include <algorithm>
#include <set>

#include "kohost/frames.h"
#include "kohost/plain_redeye.h"
#include "kohost/redeye_search.h"
#include "module.h"
#include "pictures.h"

namespace web {

namespace {

constexpr const char *configuration = "/redeye/redeye.cfg";

// What was found last, and what is to be done about it.
struct Search {
    kohost::RedEyes eyes;
    kohost::RedEyeChoices choices;
    std::set<uint32_t> skipped;
};

Search last;

// A model is tried when it is read, so it is read once.
const kohost::RedEyeModel &model() {
    static const kohost::RedEyeModel loaded(configuration);
    return loaded;
}

kohost::RedEyeChoices choices_of(int32_t sensitivity, bool full, bool plain, bool frames) {
    kohost::RedEyeChoices choices;
    choices.sensitivity = static_cast<kohost::Sensitivity>(sensitivity);
    choices.full = full;
    choices.plain = plain;
    choices.frames = frames;
    return choices;
}

// The skipped places come as 32-bit numbers in the room.
std::set<uint32_t> skipped_places(uint32_t count) {
    const auto *numbers = reinterpret_cast<const uint32_t *>(room().data());
    std::set<uint32_t> skipped(numbers, numbers + std::min<size_t>(count, room().size() / sizeof(*numbers)));
    if (!skipped.empty() && *skipped.rbegin() >= last.eyes.places.size()) {
        throw Refused("skip names place " + std::to_string(*skipped.rbegin()) + " of a picture with " +
                      std::to_string(last.eyes.places.size()) + " places");
    }
    return skipped;
}

// The places without those that are skipped.
kohost::RedEyes repaired_places() {
    kohost::RedEyes eyes = last.eyes;
    eyes.places.clear();
    for (uint32_t i = 0; i < last.eyes.places.size(); ++i) {
        if (last.skipped.count(i) == 0) {
            eyes.places.push_back(last.eyes.places[i]);
        }
    }
    return eyes;
}

// Takes the decision once more, about fewer places.
void skip(uint32_t count) {
    last.skipped = skipped_places(count);
    if (last.skipped.empty()) {
        return;
    }
    kohost::RedEyes &eyes = last.eyes;
    const kohost::RedEyes repaired = repaired_places();
    const bool too_many = eyes.decision == kohost::RedEyeDecision::too_many;
    eyes.decision = kohost::RedEyeDecision::none;
    kohost::decide(eyes, too_many, last.choices.full ? repaired.judged() : repaired.count(KO_PATCH_ACCEPTED), last.choices);
}

void give(const kohost::Box &box) {
    for (const uint32_t side : {box.x0, box.y0, box.x1, box.y1}) {
        web::give(static_cast<double>(side));
    }
}

// Box, window, whether it was judged, label, score, and the scores of the two classifiers.
void give(const kohost::Place &place) {
    give(place.box);
    give(place.window);
    web::give(place.judged ? 1.0 : 0.0);
    web::give(static_cast<double>(place.label));
    web::give(place.score ? std::optional<double>(*place.score) : std::nullopt);
    web::give(static_cast<double>(place.fe_score));
    web::give(static_cast<double>(place.be_score));
}

void give_eyes() {
    web::give(static_cast<double>(last.eyes.decision));
    web::give(last.eyes.changed ? 1.0 : 0.0);
    web::give(static_cast<double>(last.eyes.found));
    web::give(static_cast<double>(last.eyes.limit));
    for (const kohost::Place &place : last.eyes.places) {
        give(place);
    }
}

} // namespace

} // namespace web

using namespace web;

// Pixels of the copy that a search goes by.
KO_WEB double ko_web_search_area() { return static_cast<double>(kohost::search_area); }

// Searches the picture that was read. The room holds the numbers of places that are to be skipped.
KO_WEB int32_t ko_web_find(int32_t sensitivity, int32_t full, int32_t frames, uint32_t skipped) {
    return answered([=] {
        last = {};
        last.choices = choices_of(sensitivity, full != 0, false, frames != 0);
        last.eyes = kohost::find_red_eyes(take_reduced().pixels(), read_form().size, model(), last.choices, nullptr);
        skip(skipped);
        give_eyes();
    });
}

// Repairs in the held picture what the search found.
KO_WEB int32_t ko_web_repair() {
    return answered([] {
        kohost::RedEyeChoices choices = last.choices;
        choices.frames = false;
        kohost::repair_red_eyes(held_bytes(), read_form().size, repaired_places(), choices);
        if (last.choices.frames) {
            kohost::draw_frames(held_bytes(), read_form().size, last.eyes.places);
        }
    });
}

// Searches and repairs the held picture of a form as the library does it alone.
KO_WEB int32_t ko_web_repair_plainly(uint32_t width, uint32_t height, uint32_t channels, int32_t full, int32_t frames) {
    return answered([=] {
        last = {};
        last.choices = choices_of(static_cast<int32_t>(kohost::Sensitivity::standard), full != 0, true, frames != 0);
        const kohost::Pixels picture{held_bytes(), {width, height}, channels};
        last.eyes = kohost::repair_plainly(picture, held_bytes(), model().configuration(), last.choices, "picture", nullptr);
        give_eyes();
    });
}
