// The enhancement of one picture.
#ifndef KO_HOST_ENHANCE_H
#define KO_HOST_ENHANCE_H

#include <string>

#include "kohost/library.h"
#include "kohost/tuning.h"
#include "pictures.h"

namespace host {

enum class Decision {
    enhanced,
    unchanged,  // curves would change nothing
    turned_down // by the judgement
};

struct Enhancement {
    Decision decision = Decision::enhanced;
    std::string reason;        // of a picture that is turned down
    kohost::TileTrcPtr curves; // of one that is to be enhanced
    codec::Notices notices;    // about the curves
};

// A decision as an object reports it, and as a line does, with its reason and how to override it.
const char *shown(Decision decision);
std::string line_about(const Enhancement &enhancement);

// Judges a picture and makes its curves, both on its working copy. A grid whose tiles are too small for it is reduced, with a
// notice. The page of the run, if one is requested, gets both. Throws LibraryError if a call of the library fails.
Enhancement plan(const kohost::WorkingCopy &working_copy, const kohost::Tuning &tuning, const kohost::Judging &judging,
                 Entry &entry);

// The grid for a working copy; adds a notice if it is smaller than the requested one.
kohost::Grid fitting_grid(const kohost::Grid &wanted, kohost::Size size, codec::Notices &notices);

// The reason that is reported for a picture that no curve changes.
inline constexpr const char *why_it_stays = "a gray picture stays as it is under a grid of 1x1";

// Writes a picture with curves applied. The deeds are all that was done to it, including the curves.
void write_enhanced(const Job &job, Source &source, std::optional<int> quality, const TileTRC &curves, float ratio,
                    Entry &entry, const std::vector<Deed> &deeds);

} // namespace host

#endif
