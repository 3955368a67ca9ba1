// The blur by a finite kernel: a sum of products along the rows, and one along the columns.
#include <algorithm>
#include <cstring>

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

// All 0 if the row is shorter than the kernel.
void blur_row(const KernelGaussian *kernel, const float *row, uint64_t width, float *out) {
    if (width < kernel->width) {
        std::fill_n(out, width, 0.0f);
        return;
    }
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

// Rows of the result that are made together.
constexpr uint64_t block = 32;

// Some neighbouring rows of an image, blurred along themselves: those that the columns of a block of rows look at. Blurred
// rows of a whole image would have to come back from memory.
class BlurredRows {
  public:
    BlurredRows(const KernelGaussian *kernel, const RealImage *image) : kernel_(kernel), image_(image) {}

    [[nodiscard]] bool init() {
        const uint64_t rows = std::min(kernel_->width + block, image_->height);
        rows_.reset(static_cast<float *>(allocate_bytes(rows, stride(image_) * sizeof(float))));
        return static_cast<bool>(rows_);
    }

    // Holds the rows from first to end - 1 from now on; neither goes back.
    void move_to(uint64_t first, uint64_t end) {
        const uint64_t kept = end_ > first ? end_ - first : 0;
        std::memmove(rows_.get(), rows_.get() + (end_ - kept - first_) * stride(image_), kept * stride(image_) * sizeof(float));
        for (uint64_t y = first + kept; y < end; ++y) {
            blur_row(kernel_, image_->rows[y], image_->width, rows_.get() + (y - first) * stride(image_));
        }
        first_ = first;
        end_ = end;
    }

    const float *row(uint64_t y) const { return rows_.get() + (y - first_) * stride(image_); }

  private:
    const KernelGaussian *kernel_;
    const RealImage *image_;
    Block<float> rows_;
    uint64_t first_ = 0;
    uint64_t end_ = 0;
};

// Blurs the rows from top to bottom - 1, a strip of columns at a time, so that what is under the kernel stays in the cache.
void blur_block(const KernelGaussian *kernel, const RealImage *image, uint64_t top, uint64_t bottom, BlurredRows *rows,
                RealImage *result) {
    constexpr uint64_t strip = 256;
    const Taps last = taps_at(bottom - 1, image->height, kernel->width);
    rows->move_to(taps_at(top, image->height, kernel->width).first_sample, last.first_sample + last.count);
    for (uint64_t x = 0; x < image->width; x += strip) {
        for (uint64_t y = top; y < bottom; ++y) {
            const Taps taps = taps_at(y, image->height, kernel->width);
            sum_taps(kernel->coefficients + taps.first_tap, taps.count, rows->row(taps.first_sample) + x, stride(image),
                     std::min(strip, image->width - x), result->rows[y] + x);
        }
    }
}

} // namespace

int32_t convolve_finite(const KernelGaussian *kernel, const RealImage *image, RealImage **result) {
    if (*result != nullptr && ((*result)->width != image->width || (*result)->height != image->height)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    BlurredRows rows(kernel, image);
    if (!rows.init()) {
        return KoErrorGetLastError();
    }
    const int32_t status = _KoRealImageApplyFunctionGetResult(image, result);
    if (status != KO_OK) {
        return status;
    }
    if (image->height < kernel->width) {
        KoRealImageClear(*result);
        return KO_OK;
    }
    for (uint64_t y = 0; y < image->height; y += block) {
        blur_block(kernel, image, y, std::min(y + block, image->height), &rows, *result);
    }
    return KO_OK;
}

} // namespace ko
