#include "kohost/redeye.h"

#include <algorithm>
#include <cmath>

#include "kohost/evidence.h"
#include "kohost/frames.h"
#include "kohost/natural.h"
#include "kohost/redeye_search.h"

namespace kohost {

namespace {

// Two looks found the same thing if the middle of one place lies in the other.
bool same_place(const Circle &a, const Circle &b) { return std::hypot(a.x - b.x, a.y - b.y) < std::max(a.radius, b.radius); }

// Of what is shown of a place: as large as what the model saw.
constexpr double window_radii = 3.0;

// The places of all looks, the surest first.
std::vector<Place> judged(const Findings &findings, const Pixels &copy, const RedEyeModel &model, Sensitivity sensitivity) {
    std::vector<Place> places;
    for (const Candidate &candidate : findings.candidates) {
        Place place;
        place.fe_score = candidate.fe_score;
        place.be_score = candidate.be_score;
        const Verdict verdict =
            model.judge(candidate.fe_score, candidate.be_score, evidence_about(copy, candidate.shape), sensitivity);
        place.score = verdict.score;
        place.label = verdict.label;
        place.shapes = {candidate.shape};
        places.push_back(std::move(place));
    }
    std::stable_sort(places.begin(), places.end(), [](const Place &a, const Place &b) { return *a.score > *b.score; });
    return places;
}

// Of places that are the same, the surest, with the shapes of those that were not rejected: glare that cuts a pupil in two for
// one look does not for another.
std::vector<Place> merged(std::vector<Place> places) {
    std::vector<Place> kept;
    for (Place &place : places) {
        const Circle circle = place.shapes.front().circle();
        const auto same = std::find_if(kept.begin(), kept.end(),
                                       [&](const Place &other) { return same_place(circle, other.shapes.front().circle()); });
        if (same == kept.end()) {
            kept.push_back(std::move(place));
        } else if (place.label != KO_PATCH_REJECTED) {
            same->shapes.push_back(std::move(place.shapes.front()));
        }
    }
    return kept;
}

// Whether two places may be the eyes of one face, by their sizes and by how many of their radii they are apart.
bool may_be_a_pair(const Circle &a, const Circle &b) {
    constexpr double most_ratio = 1.6;
    constexpr double least_distance = 5.0;
    constexpr double most_distance = 40.0;
    const double radius = (a.radius + b.radius) / 2;
    const double distance = std::hypot(a.x - b.x, a.y - b.y);
    return std::max(a.radius, b.radius) <= most_ratio * std::min(a.radius, b.radius) && distance >= least_distance * radius &&
           distance <= most_distance * radius;
}

// The second eye of a face needs less evidence than the first: the surest undecided place is accepted beside an accepted one
// that has no other fellow.
void accept_second_eyes(std::vector<Place> &places) {
    const auto fellow_of = [&](const Place &place, int32_t label) {
        return std::find_if(places.begin(), places.end(), [&](const Place &other) {
            return &other != &place && other.label == label &&
                   may_be_a_pair(place.shapes.front().circle(), other.shapes.front().circle());
        });
    };
    for (const Place &place : places) {
        if (place.label == KO_PATCH_ACCEPTED && fellow_of(place, KO_PATCH_ACCEPTED) == places.end()) {
            if (const auto second = fellow_of(place, KO_PATCH_UNDECIDED); second != places.end()) {
                second->label = KO_PATCH_ACCEPTED;
            }
        }
    }
}

} // namespace

uint64_t RedEyes::judged() const {
    return static_cast<uint64_t>(std::count_if(places.begin(), places.end(), [](const Place &place) { return place.judged; }));
}

uint64_t RedEyes::count(int32_t label) const {
    return static_cast<uint64_t>(
        std::count_if(places.begin(), places.end(), [=](const Place &place) { return place.judged && place.label == label; }));
}

const char *name_of_label(int32_t label) {
    switch (label) {
    case KO_PATCH_ACCEPTED:
        return "accepted";
    case KO_PATCH_REJECTED:
        return "rejected";
    default:
        return "undecided";
    }
}

const char *name(Sensitivity sensitivity) {
    switch (sensitivity) {
    case Sensitivity::careful:
        return "careful";
    case Sensitivity::eager:
        return "eager";
    default:
        return "default";
    }
}

void decide(RedEyes &eyes, bool too_many, uint64_t to_repair, const RedEyeChoices &choices) {
    if (too_many) {
        eyes.decision = RedEyeDecision::too_many;
    } else if (to_repair > 0) {
        eyes.decision = RedEyeDecision::repaired;
    }
    eyes.changed = to_repair > 0 || (choices.frames && eyes.judged() > 0);
}

RedEyes find_red_eyes(const Pixels &copy, Size picture, const RedEyeModel &model, const RedEyeChoices &choices,
                      std::FILE *log) {
    RedEyes eyes;
    if (copy.channels == 1) {
        eyes.decision = RedEyeDecision::gray;
        return eyes;
    }
    const Findings findings = search(copy, model.configuration(), false, log);
    eyes.found = findings.places;
    eyes.limit = findings.limit;
    eyes.places = merged(judged(findings, copy, model, choices.sensitivity));
    accept_second_eyes(eyes.places);
    for (Place &place : eyes.places) {
        for (Shape &shape : place.shapes) {
            shape = shape.scaled(copy.size, picture);
        }
        place.box = place.shapes.front().pixels(picture);
        place.window = place.shapes.front().circle().square(window_radii, picture);
    }
    decide(eyes, findings.too_many, choices.full ? eyes.judged() : eyes.count(KO_PATCH_ACCEPTED), choices);
    return eyes;
}

void repair_red_eyes(uint8_t *bytes, Size picture, const RedEyes &eyes, const RedEyeChoices &choices) {
    for (const Place &place : eyes.places) {
        if (choices.full || place.label == KO_PATCH_ACCEPTED) {
            repair_naturally(bytes, picture, place.shapes);
        }
    }
    if (choices.frames) {
        draw_frames(bytes, picture, eyes.places);
    }
}

} // namespace kohost
