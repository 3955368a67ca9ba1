// Kernels: the making of Gaussian and Laplacian ones, and correlation with a dense kernel and with a list of taps. Each pixel
// is the sum, row after row of the kernel, of sums in single precision from 0 in the order of the terms. A piece of a row is
// worked side by side, so that its sums stay in the cache.
#include "ko/kernel.h"

#include <algorithm>
#include <cmath>

#include "alloc.h"
#include "matrix.h"

namespace {

using namespace ko;

constexpr uint64_t piece = 512;

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

// sums[x] += weight(t) * tap(t)[x] for as many terms from t on, one after the other.
template <uint64_t Terms, class Weight, class Tap>
inline void add_turn(uint64_t t, Weight weight, Tap tap, float *__restrict sums, uint64_t length) {
    float weights[Terms];
    const float *taps[Terms];
    for (uint64_t k = 0; k < Terms; ++k) {
        weights[k] = weight(t + k);
        taps[k] = tap(t + k);
    }
    for (uint64_t x = 0; x < length; ++x) {
        float sum = sums[x];
        for (uint64_t k = 0; k < Terms; ++k) {
            sum += weights[k] * taps[k][x];
        }
        sums[x] = sum;
    }
}

// sums[x] += the terms below count in ascending order, four a turn.
template <class Weight, class Tap> inline void add_terms(uint64_t count, Weight weight, Tap tap, float *sums, uint64_t length) {
    uint64_t t = 0;
    for (; t + 4 <= count; t += 4) {
        add_turn<4>(t, weight, tap, sums, length);
    }
    switch (count - t) {
    case 3:
        return add_turn<3>(t, weight, tap, sums, length);
    case 2:
        return add_turn<2>(t, weight, tap, sums, length);
    case 1:
        return add_turn<1>(t, weight, tap, sums, length);
    default:
        return;
    }
}

// The rows of a kernel that lie inside the picture when its centre is at row y.
struct Rows {
    uint64_t first;
    uint64_t end;
};

Rows rows_inside(const RealImage *kernel, const RealImage *image, uint64_t y) {
    const uint64_t half = kernel->height / 2;
    return {half > y ? half - y : 0, std::min(kernel->height, image->height + half - y)};
}

// Adds a row of a kernel, its terms from first up to end, to at most a piece of pixels; image_row is where the first term of
// the first pixel lies.
void KoKernelApplyRow(const float *weights, uint64_t first, uint64_t end, const float *image_row, float *result,
                      uint64_t length) {
    float sums[piece];
    std::fill_n(sums, length, 0.0f);
    add_terms(
        end - first, [=](uint64_t t) { return weights[first + t]; }, [=](uint64_t t) { return image_row + t; }, sums, length);
    for (uint64_t x = 0; x < length; ++x) {
        result[x] = sums[x] + result[x];
    }
}

// At most a piece of row y, for which the terms from first up to end of a row of the kernel lie inside the picture.
void apply_piece(const RealImage *kernel, const RealImage *image, uint64_t y, uint64_t x, uint64_t first, uint64_t end,
                 float *result, uint64_t length) {
    const Rows rows = rows_inside(kernel, image, y);
    const auto image_row = [=](uint64_t r) {
        return image->rows[y + r - kernel->height / 2] + (x + first - kernel->width / 2);
    };
    std::fill_n(result, length, 0.0f);
    if (kernel->width == 1) {
        // A row's sum is its one term, so all rows are one sum; its 0 start changes no sum that began at 0 itself.
        add_terms(
            rows.end - rows.first, [=](uint64_t t) { return kernel->rows[rows.first + t][0]; },
            [=](uint64_t t) { return image_row(rows.first + t); }, result, length);
        return;
    }
    for (uint64_t r = rows.first; r < rows.end; ++r) {
        KoKernelApplyRow(kernel->rows[r], first, end, image_row(r), result, length);
    }
}

// Row y in three stretches: pixels with the kernel cut on the left, full ones, pixels with it cut on the right.
void apply_kernel(const RealImage *kernel, const RealImage *image, uint64_t y, float *result) {
    const uint64_t half = kernel->width / 2;
    const uint64_t end_full = std::min(image->width, image->width - (kernel->width - half) + 1);
    const auto apply_cut = [=](uint64_t x) {
        const uint64_t first = half > x ? half - x : 0;
        const uint64_t end = std::min(kernel->width, image->width + half - x);
        apply_piece(kernel, image, y, x, first, end, result + x, 1);
    };
    for (uint64_t x = 0; x < half; ++x) {
        apply_cut(x);
    }
    for (uint64_t x = half; x < end_full; x += piece) {
        apply_piece(kernel, image, y, x, 0, kernel->width, result + x, std::min(piece, end_full - x));
    }
    for (uint64_t x = end_full; x < image->width; ++x) {
        apply_cut(x);
    }
}

// Writes width pixels, each the sum of the taps that stand at it and move along.
void apply_taps(const float *const *taps, const float *weights, uint32_t count, float *result, uint64_t width) {
    for (uint64_t start = 0; start < width; start += piece) {
        const uint64_t length = std::min(piece, width - start);
        float sums[piece];
        std::fill_n(sums, length, 0.0f);
        add_terms(
            count, [=](uint64_t t) { return weights[t]; }, [=](uint64_t t) { return taps[t] + start; }, sums, length);
        std::copy_n(sums, length, result + start);
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
    if (image->width < kernel->width || image->height < kernel->height) {
        KoRealImageClear(*result);
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
