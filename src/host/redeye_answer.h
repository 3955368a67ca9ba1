// What is reported about a picture's red eyes.
#ifndef KO_HOST_REDEYE_ANSWER_H
#define KO_HOST_REDEYE_ANSWER_H

#include <string>

#include "json.h"
#include "kohost/redeye.h"

namespace host {

using kohost::RedEyeDecision;
using kohost::RedEyes;

// Such as "red eyes repaired".
const char *shown(RedEyeDecision decision);

// Why nothing was repaired, "" if nothing was red enough.
std::string reason_of(const RedEyes &eyes);

// Decision, counts of places by label, and reason in a line.
std::string line_about(const RedEyes &eyes);

// Label, box and score of a place that was judged.
std::string line_about(const kohost::Place &place);

// Counts, and the places with their boxes, scores and labels. A picture that was not examined has none.
Json members_of(const RedEyes &eyes);

} // namespace host

#endif
