// The repair of red eyes in a picture: by default with all that a host can do, on request as the library does it alone.
#ifndef KO_KOHOST_REDEYE_H
#define KO_KOHOST_REDEYE_H

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "kohost/pixels.h"
#include "kohost/redeye_model.h"
#include "kohost/shape.h"
#include "kohost/tuning.h"

namespace kohost {

// What could be a red eye.
struct Place {
    Box box{};             // what is red; pixels of the picture
    Box window{};          // what the model saw; pixels of the picture
    bool judged = true;    // otherwise it has neither scores nor a label: it lies too near the edge for a plain repair
    float fe_score = 0.0f; // of the model's classifiers
    float be_score = 0.0f;
    std::optional<float> score; // 0 to 1, by which the label is given; none in a plain repair
    int32_t label = KO_PATCH_UNDECIDED;
    std::vector<Shape> shapes; // in the picture, as different looks saw it; none in a plain repair
};

enum class RedEyeDecision {
    repaired,
    none,    // nothing is taken for a red eye
    gray,    // the picture has no colour channels
    too_many // more places than any picture has eyes
};

struct RedEyes {
    RedEyeDecision decision = RedEyeDecision::none;
    bool changed = false; // the picture gets other pixels: repaired ones, or frames
    uint64_t found = 0;   // places, whether or not they were judged
    uint64_t limit = 0;   // most places that are judged
    std::vector<Place> places;

    uint64_t judged() const;
    uint64_t count(int32_t label) const;
};

// Labels in the order in which they are reported.
inline constexpr std::array<int32_t, 3> labels = {KO_PATCH_ACCEPTED, KO_PATCH_UNDECIDED, KO_PATCH_REJECTED};

// "accepted", "undecided", "rejected".
const char *name_of_label(int32_t label);

// "careful", "default", "eager".
const char *name(Sensitivity sensitivity);
inline constexpr std::array<Sensitivity, 3> sensitivities = {Sensitivity::careful, Sensitivity::standard, Sensitivity::eager};

// Fills in the decision about places that were judged, of which a number is to be repaired.
void decide(RedEyes &eyes, bool too_many, uint64_t to_repair, const RedEyeChoices &choices);

// Judges the places in a picture of a size by a copy of it of at most search_area pixels. The library's progress goes to log,
// if it is not null. Throws ko::Error.
RedEyes find_red_eyes(const Pixels &copy, Size picture, const RedEyeModel &model, const RedEyeChoices &choices, std::FILE *log);

// Repairs in an RGB picture what was accepted, or everything that was found, and draws frames, as the choices say.
void repair_red_eyes(uint8_t *bytes, Size picture, const RedEyes &eyes, const RedEyeChoices &choices);

} // namespace kohost

#endif
