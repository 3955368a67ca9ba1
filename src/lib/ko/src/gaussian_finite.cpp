// The blur by a finite kernel: a sum of products along the rows, and one along the columns.
#include <algorithm>

#include "gaussian.h"
#include "matrix.h"
#include "report.h"
#include "taps.h"

namespace ko {

namespace {

// Sets out[x] to the sum from 0 of the taps in order, tap t of result x at samples[t * step + x].
void sum_taps(const float *coefficients, uint64_t taps, const float *samples, uint64_t step, uint64_t count, float *out) {
    sum_pixels(0, count, [=](auto sums, uint64_t x) {
        for (uint64_t t = 0; t < taps; ++t) {
            sums.add(coefficients[t], samples + t * step + x);
        }
        sums.give(out + x);
    });
}

// The taps of a kernel that fall on samples 0 to length - 1 when its middle is at position; the others are left out.
struct Taps {
    uint64_t first_tap;
    uint64_t first_sample;
    uint64_t count;
};

Taps taps_at(uint64_t position, uint64_t length, uint64_t kernel_width) {
    const uint64_t half = kernel_width / 2;
    const uint64_t first_tap = position < half ? half - position : 0;
    const uint64_t first_sample = position < half ? 0 : position - half;
    return {first_tap, first_sample, std::min(kernel_width - first_tap, length - first_sample)};
}

void blur_row(const KernelGaussian *kernel, const float *row, uint64_t width, float *out) {
    const uint64_t half = kernel->width / 2;
    const auto at_end = [=](uint64_t x) {
        const Taps taps = taps_at(x, width, kernel->width);
        sum_taps(kernel->coefficients + taps.first_tap, taps.count, row + taps.first_sample, 1, 1, out + x);
    };
    for (uint64_t x = 0; x < half; ++x) {
        at_end(x);
    }
    sum_taps(kernel->coefficients, kernel->width, row, 1, width - 2 * half, out + half);
    for (uint64_t x = width - half; x < width; ++x) {
        at_end(x);
    }
}

// Blurs along the rows; all 0 if they are shorter than the kernel.
void blur_rows(const KernelGaussian *kernel, const RealImage *image, RealImage *result) {
    if (image->width < kernel->width) {
        KoRealImageClear(result);
        return;
    }
    for (uint64_t y = 0; y < image->height; ++y) {
        blur_row(kernel, image->rows[y], image->width, result->rows[y]);
    }
}

// Blurs along the columns, a strip of them at a time, so that the rows under the kernel stay in the cache; all 0 if the columns
// are shorter than the kernel.
void blur_columns(const KernelGaussian *kernel, const RealImage *image, RealImage *result) {
    constexpr uint64_t strip = 256;
    if (image->height < kernel->width) {
        KoRealImageClear(result);
        return;
    }
    for (uint64_t x = 0; x < image->width; x += strip) {
        for (uint64_t y = 0; y < image->height; ++y) {
            const Taps taps = taps_at(y, image->height, kernel->width);
            sum_taps(kernel->coefficients + taps.first_tap, taps.count, image->rows[taps.first_sample] + x, stride(image),
                     std::min(strip, image->width - x), result->rows[y] + x);
        }
    }
}

} // namespace

int32_t convolve_finite(const KernelGaussian *kernel, const RealImage *image, RealImage **result) {
    if (*result != nullptr && ((*result)->width != image->width || (*result)->height != image->height)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    OwnedImage blurred(KoRealImageNew(image->width, image->height));
    if (!blurred) {
        return KoErrorGetLastError();
    }
    const int32_t status = _KoRealImageApplyFunctionGetResult(image, result);
    if (status == KO_OK) {
        blur_rows(kernel, image, blurred.get());
        blur_columns(kernel, blurred.get(), *result);
    }
    return status;
}

} // namespace ko
