// Images into files.
#ifndef KO_PLUGIN_KOIO_SAVE_H
#define KO_PLUGIN_KOIO_SAVE_H

#include <cstdint>

#include "codec/picture.h"
#include "ko/colorimage.h"
#include "ko/realimage.h"

namespace koio {

// Write a file, replacing one of that name; a failure leaves that as it was. Return a status.
//   scale         each value is multiplied by it, rounded and clamped to 0 to 255; what is not a number is written as 0
//   save_option   the JPEG quality, 1 to 100, or the level of the PNG compression, 1 to 9; the default if 0
int32_t save(const RealImage *image, const char *path, codec::Format format, float scale, float save_option);
int32_t save(const ColorImage *image, const char *path, codec::Format format, float scale, float save_option);

} // namespace koio

#endif
