// Boxes are reported as four numbers, left, top, right and bottom; the last two are exclusive.
#include "redeye_answer.h"

namespace host {

namespace {

std::string shown_counts(const RedEyes &eyes) {
    std::string text;
    for (const int32_t label : kohost::labels) {
        text += (text.empty() ? "" : ", ") + std::to_string(eyes.patches(label)) + " " + kohost::name_of_label(label);
    }
    return text;
}

Json json_of(const kohost::Box &box) { return Json::array({box.x0, box.y0, box.x1, box.y1}); }

Json json_of(const kohost::Patch &patch) {
    Json object = {{"box", json_of(patch.box)},
                   {"fe_score", patch.fe_score},
                   {"be_score", patch.be_score},
                   {"label", kohost::name_of_label(patch.label)}};
    if (patch.contrast) {
        object["contrast"] = *patch.contrast;
    }
    return object;
}

Json json_of(const kohost::Blob &blob) {
    return {{"box", json_of(blob.box)}, {"area", blob.area}, {"patch", blob.patch ? json_of(*blob.patch) : Json(nullptr)}};
}

} // namespace

const char *shown(RedEyeDecision decision) {
    switch (decision) {
    case RedEyeDecision::repaired:
        return "red eyes repaired";
    case RedEyeDecision::too_many:
        return "red eyes not repaired";
    default:
        return "no red eyes";
    }
}

std::string reason_of(const RedEyes &eyes) {
    switch (eyes.decision) {
    case RedEyeDecision::gray:
        return "the picture is gray";
    case RedEyeDecision::too_many:
        return std::to_string(eyes.blobs.size()) + " places could be red eyes (limit " + std::to_string(eyes.limit) + ")";
    default:
        return "";
    }
}

std::string line_about(const RedEyes &eyes) {
    const std::string counts = eyes.patches() > 0 ? " (" + shown_counts(eyes) + ")" : "";
    const std::string reason = reason_of(eyes);
    return shown(eyes.decision) + counts + (reason.empty() ? "" : ": " + reason);
}

Json members_of(const RedEyes &eyes) {
    Json members = Json::object();
    for (const int32_t label : kohost::labels) {
        members[kohost::name_of_label(label)] = eyes.patches(label);
    }
    members["scale"] = eyes.scale;
    members["blobs"] = Json::array();
    for (const kohost::Blob &blob : eyes.blobs) {
        members["blobs"].push_back(json_of(blob));
    }
    return members;
}

} // namespace host
