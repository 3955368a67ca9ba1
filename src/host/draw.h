// The drawing of tone curves over a picture.
#ifndef KO_HOST_DRAW_H
#define KO_HOST_DRAW_H

#include "codec/codec.h"
#include "ko.hpp"

namespace host {

// The luminance of a picture as a gray picture with each tile's curve drawn over it. Throws ko::Error if a call of the
// library fails.
codec::Picture draw_curves(const codec::Picture &picture, const TileTRC &curves);

} // namespace host

#endif
