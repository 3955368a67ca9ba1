// The bilateral filter for callers inside the library.
#ifndef KO_SRC_BILATERAL_H
#define KO_SRC_BILATERAL_H

#include "ko/realimage.h"

namespace ko {

// As KoFilterBLFApplyToRealImage. spare takes a work plane over, of the image's size and with any pixels, which the caller
// ends: the system takes long to hand a plane over, and who goes on with the result needs another. Null where the filter needed
// none.
[[nodiscard]] int32_t filter_bilateral(const RealImage *image, RealImage **result, uint64_t levels, RealImage **spare);

} // namespace ko

#endif
