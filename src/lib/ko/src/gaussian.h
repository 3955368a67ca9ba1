// What other filters use of the Gaussian beyond its public functions: the recursive blur in place, with work memory of the
// caller, so that many blurs of one size need no fresh pages.
#ifndef KO_SRC_GAUSSIAN_H
#define KO_SRC_GAUSSIAN_H

#include "alloc.h"
#include "ko/kernelgaussian.h"

namespace ko {

// Work memory of recursive blurs of images of one width; null if it cannot be had.
[[nodiscard]] float *make_blur_work(uint64_t width);

// Blurs image into result, which has its size and may be image itself. The kernel is of the recursive form.
void blur_recursive(const KernelGaussian *kernel, const RealImage *image, RealImage *result, float *work);

} // namespace ko

#endif
