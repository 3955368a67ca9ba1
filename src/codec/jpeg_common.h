// Inside the codec: what reading and writing JPEG share. jpeglib.h needs size_t and FILE before it.
#ifndef KO_CODEC_JPEG_COMMON_H
#define KO_CODEC_JPEG_COMMON_H

#include <cstddef>
#include <cstdio>

#include <jpeglib.h>

#include "codec/guard.h"

namespace codec {

// libjpeg's error manager with our trouble behind it.
struct JpegErrors {
    jpeg_error_mgr manager; // first: libjpeg hands its address back
    Trouble trouble;
};

// An error manager that leaves a failed call through the trouble's guarded step.
jpeg_error_mgr *prepare(JpegErrors &errors);

} // namespace codec

#endif
