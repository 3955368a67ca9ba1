// Pictures from files into images.
#ifndef KO_PLUGIN_KOIO_LOAD_H
#define KO_PLUGIN_KOIO_LOAD_H

#include <cstdint>

#include "codec/picture.h"
#include "ko/colorimage.h"
#include "ko/realimage.h"

namespace koio {

// Fill an image, replacing what it held; a failure leaves it as it was. Return a status.
//   gamma_a, gamma_b   values are raised to the power gamma_a / gamma_b on a scale from 0 to 1; stay as stored if either is 0
int32_t load(RealImage *image, const char *path, codec::Format format);
int32_t load(ColorImage *image, const char *path, codec::Format format, double gamma_a, double gamma_b);

} // namespace koio

#endif
