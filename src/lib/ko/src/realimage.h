// What other families use of RealImage beyond its public functions.
#ifndef KO_SRC_REALIMAGE_H
#define KO_SRC_REALIMAGE_H

#include "ko/realimage.h"

namespace ko {

// The table of KoRealImagePrint without a title.
void print_table(const RealImage *image, FILE *stream, uint32_t column_width, uint32_t decimals);

} // namespace ko

#endif
