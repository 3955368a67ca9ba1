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
// Columns and rows that are worked on together on the way up.
constexpr uint64_t blur_piece = 256;
constexpr uint64_t blur_rise = 3;

// Work memory of the horizontal pass over images of one width; null if the memory is short.
[[nodiscard]] float *make_blur_work(uint64_t width);

// The horizontal pass over the group of rows that begins at y. result may be image. The kernel is of the recursive form, and
// the image has pixels.
void blur_row_group(const KernelGaussian *kernel, const RealImage *image, uint64_t y, RealImage *result, float *work);

// The vertical pass over an image: down over groups of rows from the first to the last, then up over groups of up to blur_rise
// rows from the last. It may serve images of one width one after the other.
class ColumnBlur {
  public:
    // False if the memory is short.
    [[nodiscard]] bool init(const KernelGaussian *kernel, uint64_t width);

    // The way down over the group of rows that begins at top, in place.
    void down(RealImage *image, uint64_t top);

    // The way up over row y and those above it, rows in all, and their columns from x on, at most blur_piece. The results of a
    // row lie step floats behind those of the row below, and those of row y at out, which may be its own place.
    void up(const RealImage *image, uint64_t y, uint64_t rows, uint64_t x, float *out, int64_t step);

  private:
    const KernelGaussian *kernel_ = nullptr;
    Block<double> state_; // the three nearest values of each column, nearest first
    Block<float> last_;   // the last row before the way down came to it
};

} // namespace ko

#endif
