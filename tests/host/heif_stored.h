// Small files made by encoders, for tests where libheif has no encoder, or none that can make them.
#ifndef KO_TESTS_HOST_HEIF_STORED_H
#define KO_TESTS_HOST_HEIF_STORED_H

#include <cstdint>
#include <string>

namespace ko_test {

// 64 by 48 pixels of stored_colour, with Exif data that holds only orientation 6.
std::string stored_heic();
std::string stored_avif();

// The same with an XMP packet, "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>".
std::string stored_avif_with_xmp();

// The same pixels with 12 bits per channel, and no Exif data.
std::string stored_deep_avif();

uint32_t stored_colour(uint32_t x, uint32_t y, uint32_t c);

} // namespace ko_test

#endif
