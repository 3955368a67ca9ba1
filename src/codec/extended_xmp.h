// Inside the codec: an XMP packet that is too large for one segment of a JPEG file. Its first part is a packet of its own; the
// rest is spread over further segments. Other formats get both in one packet.
#ifndef KO_CODEC_EXTENDED_XMP_H
#define KO_CODEC_EXTENDED_XMP_H

#include "codec/picture.h"

namespace codec {

// True for a segment that holds a piece of the rest.
bool is_extended_xmp(const JpegSegment &segment);

// The XMP data in one packet: the picture's packet, and in it the rest from the JPEG segments. The packet alone if nothing
// belongs to it or the rest is damaged.
Bytes whole_xmp(const Metadata &metadata);

} // namespace codec

#endif
