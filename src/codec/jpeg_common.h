// Inside the codec: what reading and writing JPEG share. jpeglib.h needs size_t and FILE before it.
#ifndef KO_CODEC_JPEG_COMMON_H
#define KO_CODEC_JPEG_COMMON_H

#include <cstddef>
#include <cstdio>

#include <jpeglib.h>

#include "codec/guard.h"
#include "codec/marks.h"

namespace codec {

inline constexpr int app1 = JPEG_APP0 + 1;   // Exif, XMP
inline constexpr int app2 = JPEG_APP0 + 2;   // ICC profile and others
inline constexpr int app13 = JPEG_APP0 + 13; // image resources, with captions

inline constexpr size_t largest_segment = 65533;

// libjpeg's error manager with our trouble behind it.
struct JpegErrors {
    jpeg_error_mgr manager; // first: libjpeg hands its address back
    Trouble trouble;
};

// An error manager that leaves a failed call through the trouble's guarded step.
jpeg_error_mgr *prepare(JpegErrors &errors);

} // namespace codec

#endif
