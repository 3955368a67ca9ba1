// Tone curves: from a picture by the library, and back onto its rows.
#ifndef KO_KOHOST_CURVES_H
#define KO_KOHOST_CURVES_H

#include "kohost/library.h"
#include "kohost/pixels.h"
#include "kohost/tuning.h"

namespace kohost {

// All of these throw LibraryError if a call of the library fails. The thread's status is to be cleared before.

// The picture as the library takes it.
ColorImagePtr image_of(const Pixels &picture);

// A record for one picture, with a grid of its own size.
FeaturesPtr make_features(const Tuning &tuning, const Grid &grid);

// Runs the library over a picture. Gives null if the picture is turned down, as the record then tells.
TileTrcPtr make_curves(LocalContrastEnhancementImageFeatures &features, ColorImage &image, const Tuning &tuning,
                       const Judging &judging);

// The wanted grid, or a smaller one for a picture with too few pixels: several tiles in a direction need two pixels each.
Grid fitting_grid(const Grid &wanted, Size picture);

// The curves of a picture, without a judgement, within the limit of their slope.
TileTrcPtr fit_curves(const Pixels &picture, const Tuning &tuning, const Grid &grid);

// True for pictures that no curve changes: gray ones under a single tile.
bool stays(uint32_t channels, const Grid &grid);

// Applies a grid to a picture whose rows come one after the other. The grid must outlive it.
class Application {
  public:
    Application(const TileTRC &curves, float ratio, Size picture, uint32_t channels);

    // Changes the next rows in place; how the picture is cut into rows changes no byte.
    void apply(uint32_t rows, uint8_t *pixels);

  private:
    ApplyPtr apply_;
};

} // namespace kohost

#endif
