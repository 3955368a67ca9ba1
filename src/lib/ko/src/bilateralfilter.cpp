// The bilateral filter: one pair of recursive blurs per level of the intensity, and an interpolation between levels by each
// pixel's own value. Two work planes serve all levels.
#include "ko/bilateralfilter.h"

#include <algorithm>
#include <cmath>

#include "bilateral.h"
#include "exponential.h"
#include "gaussian.h"
#include "matrix.h"

namespace {

using namespace ko;

using OwnedKernel = Owned<KernelGaussian, KoKernelGaussianDelete>;

// What the levels share.
struct Frame {
    OwnedKernel kernel;
    OwnedImage weights;
    OwnedImage weighted;
    Block<float> row_work;
    ColumnBlur weight_columns;
    ColumnBlur weighted_columns;

    [[nodiscard]] int32_t init(uint64_t width, uint64_t height) {
        const double shorter = static_cast<double>(std::min(width, height));
        kernel.reset(KoKernelGaussianNewTune(static_cast<float>(shorter / 50.0), 2.0f, 1));
        weights.reset(kernel ? KoRealImageNew(width, height) : nullptr);
        weighted.reset(weights ? KoRealImageNew(width, height) : nullptr);
        row_work.reset(weighted ? make_blur_work(width) : nullptr);
        const bool complete =
            row_work && weight_columns.init(kernel.get(), width) && weighted_columns.init(kernel.get(), width);
        return complete ? static_cast<int32_t>(KO_OK) : KoErrorGetLastError();
    }
};

// A level of the intensity.
struct Level {
    float value;
    float step; // from a level to the next
    bool first;
    bool last;
};

// Distance from a level in steps: the difference and the quotient in single precision.
inline float distance(float pixel, const Level &level) { return std::fabs(pixel - level.value) / level.step; }

// What the pixels of an image lie between.
struct Range {
    float minimum;
    float maximum;
};

// The weights of some pixels at a level, at most exp_piece, and the pixels times them.
void weigh_piece(const float *pixels, const Level &level, uint64_t count, float *weights, float *weighted) {
    double exponents[exp_piece];
    for (uint64_t x = 0; x < count; ++x) {
        const float d = distance(pixels[x], level);
        exponents[x] = static_cast<double>(-(d * d)) * 0.5;
    }
    exp_of_negatives(exponents, count, weights);
    for (uint64_t x = 0; x < count; ++x) {
        weighted[x] = weights[x] * pixels[x];
    }
}

// The same for the rows from top to bottom - 1.
void weigh(const RealImage *image, const Level &level, uint64_t top, uint64_t bottom, const Frame &frame) {
    for (uint64_t y = top; y < bottom; ++y) {
        for (uint64_t x = 0; x < image->width; x += exp_piece) {
            weigh_piece(image->rows[y] + x, level, std::min(exp_piece, image->width - x), frame.weights->rows[y] + x,
                        frame.weighted->rows[y] + x);
        }
    }
}

// Adds some blurred pixels of a row to the result, as far as a pixel lies near the level. A weight of exactly 0 throws away
// what earlier levels left (see "Flat pictures under the bilateral filter" in docs/compatibility.md). The first level begins
// with 0, the last one limits the sums.
template <bool first, bool last>
void accumulate(const float *pixels, const Level &level, const Range &range, uint64_t count, const float *weights,
                const float *weighted, float *out) {
    for (uint64_t x = 0; x < count; ++x) {
        const float d = distance(pixels[x], level);
        const float t = 1.0f < d ? 1.0f : d;
        const float before = first ? 0.0f : out[x];
        const float sum = weighted[x] / weights[x] * (1.0f - t) + before;
        const float kept = weights[x] != 0.0f ? sum : 0.0f;
        const float raised = last && kept < range.minimum ? range.minimum : kept;
        out[x] = last && raised > range.maximum ? range.maximum : raised;
    }
}

// Rows are weighed, blurred along themselves and carried on down the columns while they are in the cache. On the way up they
// are used as soon as they are blurred, and never stored.
void KoFilterBLFLevel(const RealImage *image, RealImage *result, const Level &level, const Range &range, Frame *frame) {
    const auto accumulate_level = level.first ? (level.last ? accumulate<true, true> : accumulate<true, false>)
                                              : (level.last ? accumulate<false, true> : accumulate<false, false>);
    const KernelGaussian *kernel = frame->kernel.get();
    RealImage *weights = frame->weights.get();
    RealImage *weighted = frame->weighted.get();
    for (uint64_t y = 0; y < image->height; y += blur_group) {
        weigh(image, level, y, std::min(y + blur_group, image->height), *frame);
        blur_row_group(kernel, weights, y, weights, frame->row_work.get());
        frame->weight_columns.down(weights, y);
        blur_row_group(kernel, weighted, y, weighted, frame->row_work.get());
        frame->weighted_columns.down(weighted, y);
    }
    for (uint64_t bottom = image->height; bottom != 0;) {
        const uint64_t rows = std::min(bottom, blur_rise);
        for (uint64_t x = 0; x < image->width; x += blur_piece) {
            float blurred_weights[blur_rise][blur_piece];
            float blurred_weighted[blur_rise][blur_piece];
            frame->weight_columns.up(weights, bottom - 1, rows, x, blurred_weights[0], blur_piece);
            frame->weighted_columns.up(weighted, bottom - 1, rows, x, blurred_weighted[0], blur_piece);
            for (uint64_t r = 0; r < rows; ++r) {
                const uint64_t y = bottom - 1 - r;
                accumulate_level(image->rows[y] + x, level, range, std::min(blur_piece, image->width - x), blurred_weights[r],
                                 blurred_weighted[r], result->rows[y] + x);
            }
        }
        bottom -= rows;
    }
}

int32_t KoFilterBLFApply(const RealImage *image, RealImage *result, uint64_t levels, RealImage **spare) {
    Range range{};
    KoRealImageGetMinMax(image, &range.minimum, &range.maximum);
    const float step = (range.maximum - range.minimum) / static_cast<float>(levels);
    const bool has_pixels = image->width != 0 && image->height != 0;
    if (step == 0.0f || !has_pixels) {
        KoRealImageClear(result); // a flat picture becomes all 0, not its own value
        return KO_OK;
    }
    Frame frame;
    const int32_t status = frame.init(image->width, image->height);
    if (status != KO_OK) {
        return status;
    }
    for (uint64_t i = 0; i <= levels; ++i) {
        const Level level = {static_cast<float>(i) * step + range.minimum, step, i == 0, i == levels};
        KoFilterBLFLevel(image, result, level, range, &frame);
    }
    *spare = frame.weighted.release();
    return KO_OK;
}

} // namespace

int32_t ko::filter_bilateral(const RealImage *image, RealImage **result, uint64_t levels, RealImage **spare) {
    *spare = nullptr;
    *result = KoRealImageNew(image->width, image->height);
    if (*result == nullptr) {
        return KO_OK;
    }
    const int32_t status = KoFilterBLFApply(image, *result, levels, spare);
    if (status != KO_OK) {
        KoRealImageDelete(*result);
        *result = nullptr;
    }
    return status;
}

int32_t KoFilterBLFApplyToRealImage(const RealImage *image, RealImage **result, uint64_t levels) {
    OwnedImage spare;
    return filter_bilateral(image, result, levels, spare.receive());
}
