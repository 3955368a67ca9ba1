// The repair of a red pupil as a person would do it: on the pixels of the picture itself, however small the image on which the
// pupil was found.
#ifndef KO_KOHOST_NATURAL_H
#define KO_KOHOST_NATURAL_H

#include <cstdint>

#include "kohost/pixels.h"
#include "kohost/shape.h"

namespace kohost {

// Makes a pupil in an RGB picture neutral and dark. Only what is redder than the surroundings of the shape changes, within the
// shape and two cells around it; highlights stay.
void repair_naturally(uint8_t *bytes, Size picture, const Shape &shape);

} // namespace kohost

#endif
