// The one thing in Exif data that must be understood beside pixels: which way up they are. All else in it is carried as it is.
#ifndef KO_CODEC_EXIF_H
#define KO_CODEC_EXIF_H

#include <cstdint>
#include <optional>
#include <span>

#include "codec/picture.h"

namespace codec {

inline constexpr uint16_t upright = 1; // the first row is the top, the first pixel of a row its left

// The orientation, 1 to 8. None if the data says nothing of it, or nothing sensible.
std::optional<uint16_t> exif_orientation(std::span<const uint8_t> exif);

// Overwrites the orientation where the data has one.
void set_upright(Bytes &exif);

} // namespace codec

#endif
