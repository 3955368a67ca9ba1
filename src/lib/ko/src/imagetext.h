// The text picture apart from the opening of its file.
#ifndef KO_SRC_IMAGETEXT_H
#define KO_SRC_IMAGETEXT_H

#include <cstdio>

#include "ko/imageformat.h"

namespace ko {

// Reads a text picture from a stream, which stays open, as KoRealImageLoadTXT does; path is for the messages.
[[nodiscard]] int32_t read_text_picture(FILE *stream, const char *path, RealImage *image);

} // namespace ko

#endif
