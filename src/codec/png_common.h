// Inside the codec: what reading and writing PNG share.
#ifndef KO_CODEC_PNG_COMMON_H
#define KO_CODEC_PNG_COMMON_H

#include <png.h>

#include "codec/guard.h"

namespace codec {

// Structures of libpng whose failed calls leave through the trouble's guarded step. Throw std::bad_alloc.
png_structp create_png_reader(Trouble &trouble);
png_structp create_png_writer(Trouble &trouble);

} // namespace codec

#endif
