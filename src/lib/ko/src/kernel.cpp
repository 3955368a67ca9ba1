// Kernels: the making of Gaussian and Laplacian ones, and correlation with a dense kernel and with a list of taps. Each pixel
// is the sum, row after row of the kernel, of sums in single precision from 0 in the order of the terms. Neighbouring pixels
// are worked on side by side.
#include "ko/kernel.h"

#include <algorithm>
#include <cmath>

#include "alloc.h"
#include "matrix.h"
#include "taps.h"

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

// The terms of each row of a kernel that lie inside the picture.
struct Terms {
    uint64_t first;
    uint64_t count;
};

// Pixels of a row of a picture that have the same terms: where these begin, and how to go on from row to row.
struct Stretch {
    const float *weights;
    const float *row;
    uint64_t lead;         // pixels from a pixel's first term to the pixel
    uint64_t weights_step; // from a row of the kernel to the next
    uint64_t pixels_step;  // from a row of the picture to the next
    uint64_t rows;
    uint64_t terms;
};

Stretch stretch_of(const RealImage *kernel, const RealImage *image, uint64_t y, Terms terms) {
    const Rows rows = rows_inside(kernel, image, y);
    const float *row = image->rows[y + rows.first - kernel->height / 2];
    return {kernel->rows[rows.first] + terms.first,
            row,
            kernel->width / 2 - terms.first,
            stride(kernel),
            stride(image),
            rows.end - rows.first,
            terms.count};
}

// The sums of pixels from x on. Count is the number of terms where the compiler is to know it, otherwise 0.
template <uint64_t Count, class Totals>
inline void apply_rows(const Stretch &stretch, Totals totals, uint64_t x, float *result) {
    const uint64_t count = Count != 0 ? Count : stretch.terms;
    const float *weights = stretch.weights;
    const float *pixels = stretch.row + (x - stretch.lead);
    for (uint64_t r = 0; r < stretch.rows; ++r, weights += stretch.weights_step, pixels += stretch.pixels_step) {
        if constexpr (Count == 1) {
            // A row's sum is its one term; the 0 that it would start from changes no total that began at 0 itself.
            totals.add(weights[0], pixels);
        } else {
            Totals sums;
            for (uint64_t t = 0; t < count; ++t) {
                sums.add(weights[t], pixels + t);
            }
            totals.add(sums);
        }
    }
    totals.give(result + x);
}

template <uint64_t Count> void apply_stretch(const Stretch &stretch, uint64_t x, uint64_t end, float *result) {
    sum_pixels(x, end, [&](auto totals, uint64_t at) { apply_rows<Count>(stretch, totals, at, result); });
}

// Row y in three stretches: pixels with the kernel cut on the left, full ones, pixels with it cut on the right.
void apply_kernel(const RealImage *kernel, const RealImage *image, uint64_t y, float *result) {
    const uint64_t half = kernel->width / 2;
    const uint64_t end_full = std::min(image->width, image->width - (kernel->width - half) + 1);
    const auto apply_cut = [=](uint64_t x) {
        const uint64_t first = half > x ? half - x : 0;
        const uint64_t end = std::min(kernel->width, image->width + half - x);
        apply_rows<0>(stretch_of(kernel, image, y, {first, end - first}), PixelSum(), x, result);
    };
    for (uint64_t x = 0; x < half; ++x) {
        apply_cut(x);
    }
    const auto apply_full = kernel->width == 1 ? apply_stretch<1> : kernel->width == 3 ? apply_stretch<3> : apply_stretch<0>;
    apply_full(stretch_of(kernel, image, y, {0, kernel->width}), half, end_full, result);
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
    // The sums of a kernel without rows are 0.
    if (kernel->height == 0 || image->width < kernel->width || image->height < kernel->height) {
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
