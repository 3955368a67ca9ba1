// Inside the codec: the two formats, and what they share.
#ifndef KO_CODEC_FORMATS_H
#define KO_CODEC_FORMATS_H

#include "codec/codec.h"

namespace codec {

Picture decode_png(std::span<const uint8_t> bytes, Notices &notices);
Picture decode_jpeg(std::span<const uint8_t> bytes, Notices &notices);
Bytes encode_png(const Picture &picture, Notices &notices);
Bytes encode_jpeg(const Picture &picture, int quality, Notices &notices);

// Refuses pictures over largest_area and those without pixels.
void check_size(uint64_t width, uint64_t height);

// The density in a unit that JPEG has: one per metre becomes one per inch.
Density for_jpeg(const Density &density);
// The density in the unit that PNG has, per metre; without a unit it stays as it is.
Density per_metre(const Density &density);

// Adds bytes at the end. Returns false, and throws nothing, if memory is short: C code calls it.
bool append(Bytes &bytes, const uint8_t *more, size_t count) noexcept;

} // namespace codec

#endif
