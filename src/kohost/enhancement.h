// The enhancement of a picture in memory, as one call: judged and fitted on its working copy, and applied to the whole.
#ifndef KO_KOHOST_ENHANCEMENT_H
#define KO_KOHOST_ENHANCEMENT_H

#include <functional>
#include <optional>
#include <string>

#include "ko.hpp"
#include "kohost/judgement.h"
#include "kohost/pixels.h"
#include "kohost/tuning.h"
#include "kohost/working_copy.h"

namespace kohost {

enum class Decision {
    enhanced,
    unchanged,  // curves would change nothing
    turned_down // by the judgement
};

struct Enhancement {
    Decision decision = Decision::enhanced;
    std::string reason;    // of a picture that is turned down or stays as it is
    Grid grid;             // of the curves: smaller than the requested one for a small picture
    ko::TileTRCPtr curves; // of a picture that is to be enhanced
};

// Gives the measure that turns the working copy down; none if it is to be enhanced.
using Judge = std::function<std::optional<Excess>()>;

// The decision about a picture and its curves, both from its working copy. judge is asked unless curves would change nothing.
// Throws ko::Error.
Enhancement plan(const WorkingCopy &working_copy, const Tuning &tuning, const Judge &judge);

// The decision of a policy. Throws ko::Error.
Enhancement plan(const Pixels &picture, const Tuning &tuning, const Judging &judging);

// Enhances a picture of one or three channels in place if it is to be enhanced, and gives what was decided. Throws ko::Error;
// the bytes are then as they were, unless the last step failed.
Enhancement enhance(uint8_t *bytes, Size size, uint32_t channels, const Tuning &tuning, const Judging &judging);

} // namespace kohost

#endif
