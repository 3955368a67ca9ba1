// The enhancement of one picture by the library.
#ifndef KO_HOST_ENHANCE_H
#define KO_HOST_ENHANCE_H

#include <string>

#include "codec/codec.h"
#include "curves.h"
#include "tuning.h"

namespace host {

enum class Decision {
    enhanced,
    unchanged,  // there is nothing that curves could change
    turned_down // the judgement is against it
};

struct Enhancement {
    Decision decision = Decision::enhanced;
    std::string reason; // of a picture that is turned down
};

// A decision as it is told.
const char *shown(Decision decision);

// Enhances a picture in place, unless the judgement turns it down. A grid with tiles too small for the picture is reduced,
// which is told. Throws LibraryError if a call of the library fails; the pixels are then as they were.
Enhancement enhance(codec::Picture &picture, const Tuning &tuning, const Judging &judging, codec::Notices &notices,
                    const RowsDone &rows_done);

} // namespace host

#endif
