// Boxes are reported as four numbers, left, top, right and bottom; the last two are exclusive.
#include "redeye_answer.h"

#include <cmath>

namespace host {

namespace {

std::string shown_counts(const RedEyes &eyes) {
    std::string text;
    for (const int32_t label : kohost::labels) {
        text += (text.empty() ? "" : ", ") + std::to_string(eyes.count(label)) + " " + kohost::name_of_label(label);
    }
    return text;
}

Json json_of(const kohost::Box &box) { return Json::array({box.x0, box.y0, box.x1, box.y1}); }

Json json_of(const kohost::Place &place) {
    Json object = {{"box", json_of(place.box)}, {"label", nullptr}};
    if (place.judged) {
        object["label"] = kohost::name_of_label(place.label);
        object["window"] = json_of(place.window);
        object["fe_score"] = place.fe_score;
        object["be_score"] = place.be_score;
    }
    if (place.score) {
        object["score"] = *place.score;
    }
    return object;
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
        return std::to_string(eyes.found) + " places could be red eyes (limit " + std::to_string(eyes.limit) + ")";
    default:
        return "";
    }
}

std::string line_about(const RedEyes &eyes) {
    const std::string counts = eyes.judged() > 0 ? " (" + shown_counts(eyes) + ")" : "";
    const std::string reason = reason_of(eyes);
    return shown(eyes.decision) + counts + (reason.empty() ? "" : ": " + reason);
}

std::string line_about(const kohost::Place &place) {
    const auto [x0, y0, x1, y1] = place.box;
    const std::string score = place.score ? ", " + std::to_string(std::lround(*place.score * 100.0f)) + " % sure" : "";
    return std::string(kohost::name_of_label(place.label)) + ": " + std::to_string(x1 - x0) + " x " + std::to_string(y1 - y0) +
           " pixels at " + std::to_string(x0) + ", " + std::to_string(y0) + score;
}

Json members_of(const RedEyes &eyes) {
    Json members = Json::object();
    for (const int32_t label : kohost::labels) {
        members[kohost::name_of_label(label)] = eyes.count(label);
    }
    members["places"] = Json::array();
    for (const kohost::Place &place : eyes.places) {
        members["places"].push_back(json_of(place));
    }
    return members;
}

} // namespace host
