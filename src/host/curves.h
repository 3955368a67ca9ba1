// Tone curves: from a picture by the library, and back onto its bytes.
#ifndef KO_HOST_CURVES_H
#define KO_HOST_CURVES_H

#include <functional>

#include "codec/codec.h"
#include "library.h"
#include "tuning.h"

namespace host {

// Called with the share of the rows that is done.
using RowsDone = std::function<void(double share)>;

// All of these throw LibraryError if a call of the library fails. The thread's status is to be cleared before.

// The picture as the library takes it.
ColorImagePtr image_of(const codec::Picture &picture);

// A record for one picture, with a grid of its own size.
FeaturesPtr make_features(const Tuning &tuning, const Grid &grid);

// Runs the library over a picture. Gives null if the picture is turned down, as the record then tells.
TileTrcPtr make_curves(LocalContrastEnhancementImageFeatures &features, ColorImage &image, const Tuning &tuning,
                       const Judging &judging);

// The wanted grid, or a smaller one, which is told, for a picture with too few pixels.
Grid fitting_grid(const Grid &wanted, const codec::Picture &picture, codec::Notices &notices);

// True for a picture that no curve changes: a gray one under a single tile.
bool stays(const codec::Picture &picture, const Grid &grid);

// What is then to be told.
inline constexpr const char *why_it_stays = "a gray picture stays as it is under a grid of 1x1";

// Applies a grid to a picture in place.
void apply_curves(codec::Picture &picture, const TileTRC &curves, float ratio, const RowsDone &rows_done);

} // namespace host

#endif
