// A picture with its curves drawn over it.
#ifndef KO_HOST_DRAW_H
#define KO_HOST_DRAW_H

#include "codec/codec.h"
#include "library.h"

namespace host {

// The luminance of a picture, gray, with each tile's curve drawn into its place: from the tile's lower left to its upper right
// corner, white, or black where the picture is bright. Exif data and density go along; alpha and colour profile do not.
// Throws LibraryError if a call of the library fails.
codec::Picture draw_curves(const codec::Picture &picture, const TileTRC &curves, const RealImage &luminance);

} // namespace host

#endif
