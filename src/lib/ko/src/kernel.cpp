// Kernels: the making of Gaussian and Laplacian ones, and correlation with a dense kernel and with a list of taps. A sum is in
// single precision from 0 in the order of the terms; results are worked piece by piece along a row, so that a piece's sums
// stay in the cache while all terms of a row of the kernel go over it.
#include "ko/kernel.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "alloc.h"
#include "matrix.h"

namespace {

using namespace ko;

constexpr uint64_t piece = 256;

// Exponential in double precision, quotient in single.
float gaussian_weight(uint64_t dx, uint64_t dy, float sigma) {
    const float e = sigma * -2.0f * sigma;
    return static_cast<float>(std::exp(static_cast<double>(static_cast<float>(dx * dx + dy * dy) / e)));
}

// The sum of a kernel's weights from its lower right quadrant: what lies on an axis has one mirror image, all else three.
float gaussian_sum(uint64_t width, uint64_t height, float sigma) {
    float sum = 0.0f;
    for (uint64_t dy = 0; dy <= height / 2; ++dy) {
        for (uint64_t dx = 0; dx <= width / 2; ++dx) {
            const float places = (dx == 0 ? 1.0f : 2.0f) * (dy == 0 ? 1.0f : 2.0f);
            sum += places * gaussian_weight(dx, dy, sigma);
        }
    }
    return sum;
}

// result[x] += sum of weights[t] * image[x + t - width / 2] over the terms inside the row.
void KoKernelApplyRow(const float *weights, uint64_t kernel_width, const float *image, float *result, uint64_t width) {
    const uint64_t half = kernel_width / 2;
    for (uint64_t start = 0; start < width; start += piece) {
        const uint64_t end = std::min(start + piece, width);
        float sums[piece] = {};
        for (uint64_t t = 0; t < kernel_width; ++t) {
            // Of the pixels of the piece, those whose term t lies inside the row.
            const uint64_t first = std::max(start, half > t ? half - t : 0);
            const uint64_t last = std::min(end, width + half > t ? width + half - t : 0);
            const float weight = weights[t];
            for (uint64_t x = first; x < last; ++x) {
                sums[x - start] += weight * image[x + t - half];
            }
        }
        for (uint64_t x = start; x < end; ++x) {
            result[x] = sums[x - start] + result[x];
        }
    }
}

// Row y of a correlation: the rows of the kernel in order, where they lie inside the picture.
void apply_kernel(const RealImage *kernel, const RealImage *image, uint64_t y, float *result) {
    const uint64_t half = kernel->height / 2;
    for (uint64_t r = 0; r < kernel->height; ++r) {
        if (y + r >= half && y + r - half < image->height) {
            KoKernelApplyRow(kernel->rows[r], kernel->width, image->rows[y + r - half], result, image->width);
        }
    }
}

// Writes width pixels, each the sum of the taps that stand at it and move along.
void apply_taps(const float *const *taps, const float *weights, uint32_t count, float *result, uint64_t width) {
    for (uint64_t start = 0; start < width; start += piece) {
        const uint64_t length = std::min(piece, width - start);
        float sums[piece] = {};
        for (uint32_t i = 0; i < count; ++i) {
            const float *tap = taps[i] + start;
            for (uint64_t x = 0; x < length; ++x) {
                sums[x] += weights[i] * tap[x];
            }
        }
        std::memcpy(result + start, sums, length * sizeof(float));
    }
}

} // namespace

RealImage *KoKernelNewGaussian(uint64_t width, uint64_t height, float sigma) {
    RealImage *kernel = KoRealImageNew(width, height);
    if (kernel == nullptr || width == 0 || height == 0) {
        return kernel;
    }
    const float sum = gaussian_sum(width, height, sigma);
    // Ascending distances: with an even size a later value overwrites an earlier one.
    for (uint64_t dy = 0; dy <= height / 2; ++dy) {
        for (uint64_t dx = 0; dx <= width / 2; ++dx) {
            const float weight = gaussian_weight(dx, dy, sigma) / sum;
            for (const uint64_t y : {height / 2 - dy, height - height / 2 - 1 + dy}) {
                for (const uint64_t x : {width / 2 - dx, width - width / 2 - 1 + dx}) {
                    kernel->rows[y][x] = weight;
                }
            }
        }
    }
    return kernel;
}

RealImage *KoKernelNewLaplacian(float alpha) {
    RealImage *kernel = KoRealImageNew(3, 3);
    if (kernel != nullptr) {
        const float s = alpha + 1.0f;
        const float corner = alpha / s;
        const float edge = (1.0f - alpha) / s;
        const float centre = -4.0f / s;
        const float weights[] = {corner, edge, corner, edge, centre, edge, corner, edge, corner};
        KoRealImageFromFloatArray(kernel, weights, 0, 3, 0);
    }
    return kernel;
}

int32_t KoKernelNewRealImage(const RealImage *kernel, const RealImage *image, RealImage **result) {
    *result = KoRealImageNew(image->width, image->height);
    if (*result == nullptr) {
        return KoErrorGetLastError();
    }
    KoRealImageClear(*result);
    if (image->width < kernel->width || image->height < kernel->height) {
        return KO_OK;
    }
    for (uint64_t y = 0; y < image->height; ++y) {
        apply_kernel(kernel, image, y, (*result)->rows[y]);
    }
    return KO_OK;
}

int32_t KoSparseKernelNewRealImage(int32_t kernel_width, int32_t kernel_height, uint32_t tap_count, const int32_t *offsets_x,
                                   const int32_t *offsets_y, const float *weights, const RealImage *image, RealImage **result) {
    Block<const float *> taps(allocate<const float *>(tap_count));
    if (*result == nullptr) {
        *result = KoRealImageNew(image->width, image->height);
        if (*result == nullptr) {
            return KoErrorGetLastError();
        }
        KoRealImageClear(*result);
    }
    if (!taps || (*result)->width != image->width || (*result)->height != image->height) {
        return KoErrorGetLastError();
    }
    const auto border_x = static_cast<uint64_t>(kernel_width / 2);
    const auto border_y = static_cast<uint64_t>(kernel_height / 2);
    if (image->width <= 2 * border_x) {
        return KO_OK;
    }
    for (uint64_t y = border_y; y + border_y < image->height; ++y) {
        for (uint32_t i = 0; i < tap_count; ++i) {
            taps[i] = image->rows[static_cast<int64_t>(y) + offsets_y[i]] + static_cast<int64_t>(border_x) + offsets_x[i];
        }
        apply_taps(taps.get(), weights, tap_count, (*result)->rows[y] + border_x, image->width - 2 * border_x);
    }
    return KO_OK;
}
