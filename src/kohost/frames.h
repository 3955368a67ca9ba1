// Frames around the places of a picture that could be red eyes.
#ifndef KO_KOHOST_FRAMES_H
#define KO_KOHOST_FRAMES_H

#include <cstdint>
#include <vector>

#include "kohost/redeye.h"

namespace kohost {

// Draws into an RGB picture a frame around the window of each place that was judged: green for accepted, yellow for undecided,
// red for rejected. A place with a score gets it in percent.
void draw_frames(uint8_t *bytes, Size picture, const std::vector<Place> &places);

} // namespace kohost

#endif
