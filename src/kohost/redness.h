// How much redder a place in a picture is than what surrounds it. The classifiers of a model see shapes in each channel, but
// not how the channels relate, so that a brown iris looks much like a red pupil to them.
#ifndef KO_KOHOST_REDNESS_H
#define KO_KOHOST_REDNESS_H

#include <cstdint>

#include "kohost/pixels.h"

namespace kohost {

// The last two are exclusive.
struct Box {
    uint32_t x0, y0, x1, y1;
};

// The logarithm of red over green where it is high in a box, less that of the box and as much again on each side, where it is
// usual. A box of a picture without colours, or without pixels, has 0.
float redness_contrast(const Pixels &picture, const Box &box);

} // namespace kohost

#endif
