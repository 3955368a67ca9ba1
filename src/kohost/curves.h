// Tone curves: from a picture by the library, and back onto its rows.
#ifndef KO_KOHOST_CURVES_H
#define KO_KOHOST_CURVES_H

#include "ko.hpp"
#include "kohost/pixels.h"
#include "kohost/tuning.h"

namespace kohost {

// All of these throw ko::Error if a call of the library fails. The caller clears the thread's status first.

// The picture in the library's form.
ko::ColorImagePtr image_of(const Pixels &picture);

// A record for one picture, with a grid of its own size.
ko::FeaturesPtr make_features(const Tuning &tuning, const Grid &grid);

// Runs the library over a picture. Returns null if the picture is turned down; the record then holds the measures.
ko::TileTRCPtr make_curves(LocalContrastEnhancementImageFeatures &features, ColorImage &image, const Tuning &tuning,
                           const Judging &judging);

// The requested grid, or a smaller one for a picture with too few pixels: several tiles in a direction need two pixels each.
Grid fitting_grid(const Grid &wanted, Size picture);

// The curves of a picture, without a judgement, limited in slope.
ko::TileTRCPtr fit_curves(const Pixels &picture, const Tuning &tuning, const Grid &grid);

// True for pictures that no curve changes: gray ones under a single tile.
bool stays(uint32_t channels, const Grid &grid);
inline constexpr const char *why_it_stays = "a gray picture stays as it is under a grid of 1x1";

// Applies a grid to a picture that is passed row by row. The grid must outlive it.
class Application {
  public:
    Application(const TileTRC &curves, float ratio, Size picture, uint32_t channels);

    // Changes the next rows in place; the number of rows per call does not change the result.
    void apply(uint32_t rows, uint8_t *pixels);

  private:
    ko::TileTRCApplyPtr apply_;
};

} // namespace kohost

#endif
