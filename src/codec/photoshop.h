// Inside the codec: Photoshop's image resources, a list of numbered blocks in which JPEG files keep their IPTC records, and the
// records themselves.
#ifndef KO_CODEC_PHOTOSHOP_H
#define KO_CODEC_PHOTOSHOP_H

#include <span>

#include "codec/picture.h"

namespace codec {

// The IPTC records among image resources; none without any, or if the list is damaged before them.
Bytes iptc_among(std::span<const uint8_t> resources);

// IPTC records without the zeros with which TIFF files pad them to a multiple of four bytes.
Bytes without_padding(Bytes iptc);

// The picture's image resources. IPTC records missing from them are added at their end.
Bytes resources_with_iptc(const Metadata &metadata);

} // namespace codec

#endif
