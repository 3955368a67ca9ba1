// The bilateral filter for callers inside the library.
#ifndef KO_SRC_BILATERAL_H
#define KO_SRC_BILATERAL_H

#include "ko/realimage.h"

namespace ko {

// As KoFilterBLFApplyToRealImage. spare receives a work plane of the image's size with any pixels, owned by the caller: a new
// plane is expensive, and a caller that goes on with the result needs one. Null if the filter needed none.
[[nodiscard]] int32_t filter_bilateral(const RealImage *image, RealImage **result, uint64_t levels, RealImage **spare);

} // namespace ko

#endif
