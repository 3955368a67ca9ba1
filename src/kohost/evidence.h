// What a place in a picture and its surroundings look like in colour. The classifiers of a model see shapes in each channel,
// but not how the channels relate, so that a brown iris, a lip or a lamp may look much like a red pupil to them.
#ifndef KO_KOHOST_EVIDENCE_H
#define KO_KOHOST_EVIDENCE_H

#include <array>
#include <cstddef>

#include "kohost/pixels.h"
#include "kohost/shape.h"

namespace kohost {

inline constexpr size_t evidence_count = 22;

// The measures of evidence.cpp, in its order: shares from 0 to 1, differences from -2 to 2, quotients of levels, and a level.
using Evidence = std::array<float, evidence_count>;

// The evidence about a shape in a picture of three channels, both with pixels.
Evidence evidence_about(const Pixels &picture, const Shape &shape);

} // namespace kohost

#endif
