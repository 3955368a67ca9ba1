// The enhancement of one picture.
#ifndef KO_HOST_ENHANCE_H
#define KO_HOST_ENHANCE_H

#include <string>

#include "json.h"
#include "kohost/enhancement.h"
#include "pictures.h"

namespace host {

using kohost::Decision;

// Its reason is that of a picture that is turned down.
struct Enhancement : kohost::Enhancement {
    codec::Notices notices; // about the curves
    Json measures;          // of an object: null for a picture that no limit was applied to
};

// A decision as an object reports it, and as a line does, with its reason and how to override it.
const char *shown(Decision decision);
std::string line_about(const Enhancement &enhancement);

// Judges a picture and makes its curves, both on its working copy. A grid whose tiles are too small for it is reduced, with a
// notice. The page of the run, if one is requested, gets both. Throws ko::Error if a call of the library fails.
Enhancement plan(const kohost::WorkingCopy &working_copy, const kohost::Tuning &tuning, const kohost::Judging &judging,
                 Entry &entry);

// Adds a notice if a grid is smaller than the requested one.
void note_grid(const kohost::Grid &wanted, const kohost::Grid &grid, codec::Notices &notices);

// Writes a picture with curves applied. The deeds are all that was done to it, including the curves.
void write_enhanced(const Job &job, Source &source, std::optional<int> quality, const TileTRC &curves, float ratio,
                    Entry &entry, const std::vector<Deed> &deeds);

} // namespace host

#endif
