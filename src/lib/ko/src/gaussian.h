// What other filters use of the Gaussian beyond its public functions: the recursive blur group by group and strip by strip, so
// that a filter can work on rows and columns while they are in the cache.
#ifndef KO_SRC_GAUSSIAN_H
#define KO_SRC_GAUSSIAN_H

#include "alloc.h"
#include "ko/kernelgaussian.h"

namespace ko {

// Rows carried side by side in the horizontal pass.
constexpr uint64_t blur_group = 16;
// Columns carried side by side in the vertical pass: so few that a strip of a large picture stays in the second-level cache
// between the way down and the way up.
constexpr uint64_t blur_strip = 32;

// Work memory of recursive blurs of images of one width; null if it cannot be had.
[[nodiscard]] float *make_blur_work(uint64_t width);

// The horizontal pass over the group of rows that begins at y. result may be image. The kernel is of the recursive form, and
// the image has pixels.
void blur_row_group(const KernelGaussian *kernel, const RealImage *image, uint64_t y, RealImage *result, float *work);

// The vertical pass over the strip of columns that begins at x, after the horizontal pass over all rows. Row y of the result
// goes to out + y * step; out may be the strip's own place in image.
void blur_column_strip(const KernelGaussian *kernel, const RealImage *image, uint64_t x, float *out, uint64_t step);

} // namespace ko

#endif
