// The repair of a red pupil as a person would do it: on the pixels of the picture itself, however small the image on which the
// pupil was found.
#ifndef KO_KOHOST_NATURAL_H
#define KO_KOHOST_NATURAL_H

#include <cstdint>
#include <span>

#include "kohost/pixels.h"
#include "kohost/shape.h"

namespace kohost {

// Makes a pupil in an RGB picture neutral and dark. It has one shape or several, of which the first is the surest. Only what is
// redder than the surroundings of the first shape changes, within the shapes and two cells around each; highlights stay.
void repair_naturally(uint8_t *bytes, Size picture, std::span<const Shape> shapes);

} // namespace kohost

#endif
