// The one item in Exif data that the codec must interpret: which way up the pixels are. The rest is carried unchanged.
#ifndef KO_CODEC_EXIF_H
#define KO_CODEC_EXIF_H

#include <cstdint>
#include <optional>
#include <span>

#include "codec/picture.h"

namespace codec {

inline constexpr uint16_t upright = 1; // the first row is the top, the first pixel of a row its left

// The orientation, 1 to 8. None if the data has no orientation, or no valid one.
std::optional<uint16_t> exif_orientation(std::span<const uint8_t> exif);

// True if the data has a density of its own.
bool has_density(std::span<const uint8_t> exif);

// Overwrites the orientation where the data has one.
void set_upright(Bytes &exif);

} // namespace codec

#endif
