// The two blurs behind KoKernelGaussianConvolution, and what other filters use of the recursive one: it goes group of rows by
// group of rows, so that a filter can work on rows while they are in the cache.
#ifndef KO_SRC_GAUSSIAN_H
#define KO_SRC_GAUSSIAN_H

#include "alloc.h"
#include "ko/kernelgaussian.h"

namespace ko {

// Both blur an image as KoKernelGaussianConvolution does with a kernel of their form.
[[nodiscard]] int32_t convolve_finite(const KernelGaussian *kernel, const RealImage *image, RealImage **result);
[[nodiscard]] int32_t convolve_recursive(const KernelGaussian *kernel, const RealImage *image, RealImage **result);

// Rows that are worked on together: carried side by side in the horizontal pass.
constexpr uint64_t blur_group = 16;
// Columns that are worked on together in the vertical pass.
constexpr uint64_t blur_piece = 256;

// Work memory of the horizontal pass over images of one width; null if it cannot be had.
[[nodiscard]] float *make_blur_work(uint64_t width);

// The horizontal pass over the group of rows that begins at y. result may be image. The kernel is of the recursive form, and
// the image has pixels.
void blur_row_group(const KernelGaussian *kernel, const RealImage *image, uint64_t y, RealImage *result, float *work);

// The vertical pass over an image: down over groups of rows from the first to the last, then up row by row from the last. It
// may serve images of one width one after the other.
class ColumnBlur {
  public:
    // False if the memory cannot be had.
    [[nodiscard]] bool init(const KernelGaussian *kernel, uint64_t width);

    // The way down over the group of rows that begins at top, in place.
    void down(RealImage *image, uint64_t top);

    // The way up over the columns of row y from x on, at most blur_piece. The result goes to out, which may be their own place.
    void up(const RealImage *image, uint64_t y, uint64_t x, float *out);

  private:
    const KernelGaussian *kernel_ = nullptr;
    Block<double> state_; // three slots of a value a column
    Block<float> last_;   // the last row before the way down came to it
};

} // namespace ko

#endif
