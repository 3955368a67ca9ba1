// KernelGaussian: the Gaussian blur, as a finite separable kernel or as a recursive filter of third order with an exact end of
// the signal.
//
// The recursion of one line waits for its own results, so lines are carried side by side: the vertical pass takes all columns
// row by row, the horizontal pass turns groups of rows so that they lie like columns. Each line gets the same arithmetic in the
// same order either way: recursion in double precision, what is stored rounded to float.
#include "gaussian.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>

#include "matrix.h"
#include "report.h"

namespace {

using namespace ko;

#define KO_AT(field, offset) (offsetof(KernelGaussian, field) == (offset))
static_assert(sizeof(KernelGaussian) == 168 && KO_AT(sigma, 0) && KO_AT(width, 8) && KO_AT(storage, 16) &&
              KO_AT(coefficients, 24) && KO_AT(mode, 32) && KO_AT(a3, 40) && KO_AT(a2, 48) && KO_AT(a1, 56) &&
              KO_AT(scale, 64) && KO_AT(backA1, 72) && KO_AT(backA2, 80) && KO_AT(backA3, 88) && KO_AT(boundary, 96));
#undef KO_AT

constexpr uint64_t coefficient_room = 8; // zeros behind the last coefficient

// ---- making kernels

// Fills the coefficients k steps from the middle at both sides, and gives their sum.
float fill_coefficients(KernelGaussian *kernel, uint64_t radius) {
    const float divisor = kernel->sigma * kernel->sigma * 2.0f;
    float sum = 0.0f;
    for (uint64_t k = 0; k <= radius; ++k) {
        const float distance = static_cast<float>(k);
        const float exponent = -(distance * distance) / divisor;
        const float value = static_cast<float>(std::exp(static_cast<double>(exponent)));
        kernel->coefficients[radius - k] = value;
        kernel->coefficients[radius + k] = value;
        sum += value;
        if (k != 0) {
            sum += value;
        }
    }
    return sum;
}

int32_t make_finite(KernelGaussian *kernel, float truncation) {
    const float reach = std::ceil(truncation * kernel->sigma);
    const uint64_t radius = reach > 0.0f ? static_cast<uint64_t>(truncate_64(reach)) : 0;
    kernel->width = 2 * std::min(radius, largest_block) + 1;
    const uint64_t floats = kernel->width + coefficient_room;
    kernel->storage = allocate_bytes(floats, sizeof(float), 16);
    if (kernel->storage == nullptr) {
        return KoErrorGetLastError();
    }
    kernel->coefficients = align_16<float>(kernel->storage);
    std::fill_n(kernel->coefficients, floats, 0.0f);
    const float sum = fill_coefficients(kernel, radius);
    for (uint64_t i = 0; i < kernel->width; ++i) {
        kernel->coefficients[i] /= sum;
    }
    return KO_OK;
}

// The matrix of the end of the signal: what the filter would give behind the last sample if that one went on forever.
void fill_boundary(double a1, double a2, double a3, double *m) {
    const double inverse = 1.0 / ((1.0 + a1 - a2 + a3) * (1.0 - a1 - a2 - a3) * (1.0 + a2 + (a1 - a3) * a3));
    m[0] = inverse * (1.0 - a3 * a1 - a3 * a3 - a2);
    m[1] = inverse * ((a3 + a1) * (a2 + a3 * a1));
    m[2] = inverse * (a3 * (a1 + a3 * a2));
    m[3] = inverse * (a1 + a3 * a2);
    m[4] = inverse * (-(a2 - 1.0) * (a2 + a3 * a1));
    m[5] = inverse * (-(a3 * a1 + a3 * a3 + a2 - 1.0) * a3);
    m[6] = inverse * (a3 * a1 + a2 + a1 * a1 - a2 * a2);
    m[7] = inverse * (a1 * a2 + a3 * (a2 * a2) - a1 * (a3 * a3) - a3 * a3 * a3 - a3 * a2 + a3);
    m[8] = m[2];
}

void make_recursive(KernelGaussian *kernel) {
    const double s = kernel->sigma;
    const double q = 1.31564 * (std::sqrt(0.490811 * (s * s) + 1.0) - 1.0);
    const double d = (q * q + 2.21566 * q + 3.2037296485000004) * (q + 1.1668);
    kernel->a1 = q * (3.0 * (q * q) + 6.76492 * q + 5.788961736500001) / d;
    kernel->a2 = -(q * q) * (3.0 * q + 3.38246) / d;
    kernel->a3 = q * q * q / d;
    kernel->scale = 3.7381117538698008 / d;
    kernel->backA1 = kernel->a1;
    kernel->backA2 = kernel->a2;
    kernel->backA3 = kernel->a3;
    fill_boundary(kernel->a1, kernel->a2, kernel->a3, kernel->boundary);
}

bool is_recursive(const KernelGaussian *kernel) { return kernel->mode >= 1; }

// ---- the finite form

// Count neighbouring results, each the sum from 0 of taps samples in order: sample t of result i is at samples[t * step + i].
template <uint64_t Count>
void sum_taps(const float *coefficients, uint64_t taps, const float *samples, uint64_t step, float *out) {
    float sums[Count] = {};
    for (uint64_t t = 0; t < taps; ++t) {
        for (uint64_t i = 0; i < Count; ++i) {
            sums[i] += coefficients[t] * samples[t * step + i];
        }
    }
    std::copy_n(sums, Count, out);
}

void sum_neighbours(const float *coefficients, uint64_t taps, const float *samples, uint64_t step, uint64_t count, float *out) {
    constexpr uint64_t group = 16;
    uint64_t i = 0;
    for (; i + group <= count; i += group) {
        sum_taps<group>(coefficients, taps, samples + i, step, out + i);
    }
    for (; i < count; ++i) {
        sum_taps<1>(coefficients, taps, samples + i, step, out + i);
    }
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
        sum_taps<1>(kernel->coefficients + taps.first_tap, taps.count, row + taps.first_sample, 1, out + x);
    };
    for (uint64_t x = 0; x < half; ++x) {
        at_end(x);
    }
    sum_neighbours(kernel->coefficients, kernel->width, row, 1, width - 2 * half, out + half);
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
            sum_neighbours(kernel->coefficients + taps.first_tap, taps.count, image->rows[taps.first_sample] + x, stride(image),
                           std::min(strip, image->width - x), result->rows[y] + x);
        }
    }
}

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

// ---- the recursive form

// A number of lines that the compiler knows.
template <uint64_t Value> struct Constant {
    constexpr operator uint64_t() const { return Value; }
};

// The recursion over lines side by side, sample by sample: start, forward for each sample from 0 on, turn at the last, backward
// for each before it. The values of a sample stand in the slot that its number has modulo 3: those of the three before it are
// then always there. Count is a type that converts to the number of lines.
template <class Count> class LineFilter {
  public:
    // The slots begin at state, spacing doubles apart; who makes a filter on the same state anew goes on with the lines.
    LineFilter(const KernelGaussian *kernel, Count lines, double *state, uint64_t spacing)
        : kernel_(kernel), lines_(lines), slots_{state, state + spacing, state + 2 * spacing} {}

    // first is the lines' first sample.
    void start(const float *first) {
        for (uint64_t l = 0; l < lines_; ++l) {
            slots_[0][l] = slots_[1][l] = slots_[2][l] = static_cast<double>(first[l]) / kernel_->scale;
        }
    }

    // output may be input.
    void forward(uint64_t sample, const float *input, float *output) {
        step(slot(sample + 2), slot(sample + 1), slot(sample), kernel_->a1, kernel_->a2, kernel_->a3,
             [=](uint64_t l) { return static_cast<double>(input[l]); });
        store(sample, output);
    }

    // output may be input.
    void backward(uint64_t sample, const float *input, float *output) {
        const double square = kernel_->scale * kernel_->scale;
        step(slot(sample + 1), slot(sample + 2), slot(sample), kernel_->backA1, kernel_->backA2, kernel_->backA3,
             [=](uint64_t l) { return square * static_cast<double>(input[l]); });
        store(sample, output);
    }

    // Turns what is left of the way there into what the way back begins with, and gives its first sample, the lines' last.
    // input is what the lines held there at first.
    void turn(uint64_t sample, const float *input, float *output) {
        const double rest = 1.0 - kernel_->a1 - kernel_->a2 - kernel_->a3;
        const double square = kernel_->scale * kernel_->scale;
        const double *m = kernel_->boundary;
        for (uint64_t l = 0; l < lines_; ++l) {
            const double u = static_cast<double>(input[l]) / rest;
            const double v = u / rest;
            const double d0 = slot(sample)[l] - u;
            const double d1 = slot(sample + 2)[l] - u;
            const double d2 = slot(sample + 1)[l] - u;
            slot(sample)[l] = (m[0] * d0 + m[1] * d1 + m[2] * d2 + v) * square;
            slot(sample + 1)[l] = (m[3] * d0 + m[4] * d1 + m[5] * d2 + v) * square;
            slot(sample + 2)[l] = (m[6] * d0 + m[7] * d1 + m[8] * d2 + v) * square;
        }
        store(sample, output);
    }

  private:
    double *slot(uint64_t sample) const { return slots_[sample % 3]; }

    // One sample of all lines, from the three nearest behind it; the newest value takes the place of the farthest.
    template <class Term>
    void step(const double *__restrict near, const double *__restrict middle, double *__restrict far, double w0, double w1,
              double w2, Term term) {
        for (uint64_t l = 0; l < lines_; ++l) {
            far[l] = term(l) + w0 * near[l] + w1 * middle[l] + w2 * far[l];
        }
    }

    void store(uint64_t sample, float *output) const {
        const double *values = slot(sample);
        for (uint64_t l = 0; l < lines_; ++l) {
            output[l] = static_cast<float>(values[l]);
        }
    }

    const KernelGaussian *kernel_;
    Count lines_;
    double *slots_[3];
};

// A square of samples being turned: columns[x][r] is row r's.
struct Tile {
    float columns[blur_group][blur_group];

    void take_rows(float *const *rows, uint64_t row_count, uint64_t x0, uint64_t column_count) {
        for (uint64_t r = 0; r < row_count; ++r) {
            for (uint64_t x = 0; x < column_count; ++x) {
                columns[x][r] = rows[r][x0 + x];
            }
        }
    }

    void give_rows(float *const *rows, uint64_t row_count, uint64_t x0, uint64_t column_count) const {
        for (uint64_t r = 0; r < row_count; ++r) {
            for (uint64_t x = 0; x < column_count; ++x) {
                rows[r][x0 + x] = columns[x][r];
            }
        }
    }
};

// The horizontal pass over a group of rows. work holds the way there, column by column.
template <class Count>
void filter_rows(const KernelGaussian *kernel, float *const *in, float *const *out, Count rows, uint64_t width, float *work) {
    double state[3 * blur_group];
    LineFilter<Count> filter(kernel, rows, state, blur_group);
    Tile tile;
    float ends[2][blur_group] = {};
    for (uint64_t r = 0; r < rows; ++r) {
        ends[0][r] = in[r][0];
        ends[1][r] = in[r][width - 1];
    }
    filter.start(ends[0]);
    for (uint64_t x0 = 0; x0 < width; x0 += blur_group) {
        const uint64_t columns = std::min(blur_group, width - x0);
        tile.take_rows(in, rows, x0, columns);
        for (uint64_t x = 0; x < columns; ++x) {
            filter.forward(x0 + x, tile.columns[x], work + (x0 + x) * blur_group);
        }
    }
    const uint64_t last = width - 1;
    for (uint64_t x0 = last / blur_group * blur_group + blur_group; x0 > 0;) {
        x0 -= blur_group;
        const uint64_t columns = std::min(blur_group, width - x0);
        for (uint64_t x = columns; x-- > 0;) {
            if (x0 + x == last) {
                filter.turn(last, ends[1], tile.columns[x]);
            } else {
                filter.backward(x0 + x, work + (x0 + x) * blur_group, tile.columns[x]);
            }
        }
        tile.give_rows(out, rows, x0, columns);
    }
}

int32_t convolve_recursive(const KernelGaussian *kernel, const RealImage *image, RealImage **result) {
    *result = nullptr;
    Block<float> work(make_blur_work(image->width));
    ColumnBlur columns;
    if (!work || !columns.init(kernel, image->width)) {
        return KoErrorGetLastError();
    }
    *result = KoRealImageNew(image->width, image->height);
    if (*result == nullptr || image->width == 0 || image->height == 0) {
        return KO_OK;
    }
    for (uint64_t y = 0; y < image->height; y += blur_group) {
        blur_row_group(kernel, image, y, *result, work.get());
        columns.down(*result, y);
    }
    for (uint64_t y = image->height; y-- > 0;) {
        for (uint64_t x = 0; x < image->width; x += blur_piece) {
            columns.up(*result, y, x, (*result)->rows[y] + x);
        }
    }
    return KO_OK;
}

void print_ruler(FILE *stream, uint64_t cells) {
    for (uint64_t cell = 0; cell + 1 < cells; ++cell) {
        std::fputs("------+", stream);
    }
    std::fputs("------|\n", stream);
}

constexpr int print_width = 6;

} // namespace

namespace ko {

float *make_blur_work(uint64_t width) { return static_cast<float *>(allocate_bytes(width, blur_group * sizeof(float))); }

void blur_row_group(const KernelGaussian *kernel, const RealImage *image, uint64_t y, RealImage *result, float *work) {
    if (image->height - y >= blur_group) {
        filter_rows(kernel, image->rows + y, result->rows + y, Constant<blur_group>(), image->width, work);
    } else {
        filter_rows(kernel, image->rows + y, result->rows + y, image->height - y, image->width, work);
    }
}

bool ColumnBlur::init(const KernelGaussian *kernel, uint64_t width) {
    kernel_ = kernel;
    state_.reset(static_cast<double *>(allocate_bytes(width, 3 * sizeof(double))));
    last_.reset(state_ ? allocate<float>(width) : nullptr);
    return static_cast<bool>(last_);
}

void ColumnBlur::down(RealImage *image, uint64_t top) {
    const uint64_t bottom = std::min(top + blur_group, image->height);
    if (bottom == image->height) {
        std::copy_n(image->rows[bottom - 1], image->width, last_.get());
    }
    for (uint64_t x = 0; x < image->width; x += blur_piece) {
        LineFilter<uint64_t> filter(kernel_, std::min(blur_piece, image->width - x), state_.get() + x, image->width);
        if (top == 0) {
            filter.start(image->rows[0] + x);
        }
        for (uint64_t y = top; y < bottom; ++y) {
            filter.forward(y, image->rows[y] + x, image->rows[y] + x);
        }
    }
}

void ColumnBlur::up(const RealImage *image, uint64_t y, uint64_t x, float *out) {
    LineFilter<uint64_t> filter(kernel_, std::min(blur_piece, image->width - x), state_.get() + x, image->width);
    if (y == image->height - 1) {
        filter.turn(y, last_.get() + x, out);
    } else {
        filter.backward(y, image->rows[y] + x, out);
    }
}

} // namespace ko

KernelGaussian *KoKernelGaussianNew(float sigma, float truncation) { return KoKernelGaussianNewTune(sigma, truncation, 0); }

KernelGaussian *KoKernelGaussianNewTune(float sigma, float truncation, int32_t mode) {
    return make_object<KernelGaussian>(
        "KernelGaussian", [=](KernelGaussian *kernel) { return KoKernelGaussianInit(kernel, sigma, truncation, mode); },
        [](KernelGaussian *) {});
}

int32_t KoKernelGaussianInit(KernelGaussian *kernel, float sigma, float truncation, int32_t mode) {
    *kernel = {};
    kernel->sigma = sigma;
    kernel->mode = mode;
    if (!is_recursive(kernel)) {
        return make_finite(kernel, truncation);
    }
    make_recursive(kernel);
    return KO_OK;
}

int32_t KoKernelGaussianDelete(KernelGaussian *kernel) {
    if (kernel != nullptr) {
        KoFree(kernel->storage);
        KoFree(kernel);
    }
    return KO_OK;
}

float KoKernelGaussianGetSigma(const KernelGaussian *kernel) { return kernel->sigma; }

uint32_t KoKernelGaussianGetWidth(const KernelGaussian *kernel) { return static_cast<uint32_t>(kernel->width); }

float KoKernelGaussianGetWeight(const KernelGaussian *kernel) {
    float sum = 0.0f;
    for (uint64_t i = 0; i < kernel->width; ++i) {
        for (uint64_t j = 0; j < kernel->width; ++j) {
            sum += kernel->coefficients[i] * kernel->coefficients[j];
        }
    }
    return sum;
}

void KoKernelGaussianPrint(const KernelGaussian *kernel, FILE *stream) {
    std::fprintf(stream, "%*s|", print_width, "#");
    for (size_t i = 1; i <= kernel->width; ++i) {
        std::fprintf(stream, "%*zu|", print_width, i);
    }
    std::fputs("\n", stream);
    print_ruler(stream, kernel->width + 1);
    std::fprintf(stream, "%*s|", print_width, "G");
    for (uint64_t i = 0; i < kernel->width; ++i) {
        std::fprintf(stream, "%*.3f|", print_width, static_cast<double>(kernel->coefficients[i]));
    }
    std::fputs("\n", stream);
    print_ruler(stream, kernel->width + 1);
}

int32_t KoKernelGaussianConvolution(const KernelGaussian *kernel, const RealImage *image, RealImage **result) {
    return is_recursive(kernel) ? convolve_recursive(kernel, image, result) : convolve_finite(kernel, image, result);
}
