// The limit on the slope of tone curves. A fitted curve may jump at levels of which its tile holds few pixels or none; in a
// smooth part of the picture a jump shows as a contour and, with a little noise, as dark specks.
#ifndef KO_KOHOST_SLOPE_H
#define KO_KOHOST_SLOPE_H

#include <cstdint>

#include "ko.hpp"

namespace kohost {

// Replaces each curve of a grid by the nearest one that never falls and whose neighbouring entries differ by at most max_slope,
// 1 to 255. Curves that meet this already are not changed.
//   luminance   the picture that the curves were fitted to, so that a curve changes least at the levels that its tile is made
//   of;
//               null weighs all levels alike
void limit_slope(TileTRC &curves, uint32_t max_slope, const RealImage *luminance);

} // namespace kohost

#endif
