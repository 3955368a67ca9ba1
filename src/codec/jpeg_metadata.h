// Inside the codec: a picture's metadata as segments of a JPEG file.
#ifndef KO_CODEC_JPEG_METADATA_H
#define KO_CODEC_JPEG_METADATA_H

#include <vector>

#include "codec/codec.h"
#include "codec/jpeg_segments.h"

namespace codec {

// All segments but those of the JFIF header and the ICC profile, in their order in the file.
std::vector<JpegSegment> segments_to_write(const Metadata &metadata);

// A profile is spread over at most 255 segments.
bool icc_profile_fits(const Metadata &metadata);

// Adds a notice for what a JPEG file cannot hold of a picture.
void tell_jpeg_losses(const Description &picture, Notices &notices);

} // namespace codec

#endif
