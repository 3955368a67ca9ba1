// Inside the codec: the texts of a PNG file, and the metadata that is kept in texts because it has no chunk of its own.
#ifndef KO_CODEC_PNG_TEXTS_H
#define KO_CODEC_PNG_TEXTS_H

#include "codec/codec.h"

namespace codec {

// Adds a text that was read to the metadata where it belongs. Exif data and an ICC profile in texts count only if the file has
// no chunks for them, so those must be read first.
void add_text(PngText text, Metadata &metadata);

// All texts of a PNG file with this metadata. Adds a notice for what cannot become a text.
std::vector<PngText> texts_to_write(const Metadata &metadata, Notices &notices);

// The comments of a JPEG file with this metadata.
std::vector<std::string> comments_for_jpeg(const Metadata &metadata);

} // namespace codec

#endif
