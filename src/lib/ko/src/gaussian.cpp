// KernelGaussian: the Gaussian blur, as a finite separable kernel or as a recursive filter of third order with an exact end of
// the signal.
//
// The recursion of one line waits for its own results, so lines are carried side by side: the vertical pass takes strips of
// columns as they lie, the horizontal pass turns groups of rows into such strips. Each line gets the same arithmetic in the
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

// One pixel near an end of a row: terms outside the row are left out.
float sum_at_end(const KernelGaussian *kernel, const float *row, uint64_t width, uint64_t x) {
    const uint64_t half = kernel->width / 2;
    float sum = 0.0f;
    for (uint64_t t = 0; t < kernel->width; ++t) {
        const uint64_t position = x + t - half; // wraps past the end where it lies before the start
        if (position < width) {
            sum += kernel->coefficients[t] * row[position];
        }
    }
    return sum;
}

// Count pixels side by side, each summed from 0 in the order of the coefficients; row points half a kernel before the first.
template <uint64_t Count> void sum_in_middle(const KernelGaussian *kernel, const float *row, float *out) {
    float sums[Count] = {};
    for (uint64_t t = 0; t < kernel->width; ++t) {
        for (uint64_t i = 0; i < Count; ++i) {
            sums[i] += kernel->coefficients[t] * row[t + i];
        }
    }
    std::copy_n(sums, Count, out);
}

void blur_row(const KernelGaussian *kernel, const float *row, uint64_t width, float *out) {
    constexpr uint64_t group = 16;
    const uint64_t half = kernel->width / 2;
    uint64_t x = 0;
    for (; x < half; ++x) {
        out[x] = sum_at_end(kernel, row, width, x);
    }
    for (; x + group + half <= width; x += group) {
        sum_in_middle<group>(kernel, row + x - half, out + x);
    }
    for (; x + half < width; ++x) {
        sum_in_middle<1>(kernel, row + x - half, out + x);
    }
    for (; x < width; ++x) {
        out[x] = sum_at_end(kernel, row, width, x);
    }
}

// A new image with every row blurred, all 0 if the rows are shorter than the kernel; null if it cannot be had.
RealImage *blur_rows(const KernelGaussian *kernel, const RealImage *image) {
    RealImage *result = KoRealImageNew(image->width, image->height);
    if (result == nullptr) {
        return nullptr;
    }
    if (image->width < kernel->width) {
        KoRealImageClear(result);
        return result;
    }
    for (uint64_t y = 0; y < image->height; ++y) {
        blur_row(kernel, image->rows[y], image->width, result->rows[y]);
    }
    return result;
}

// A row pass and a transposition.
int32_t blur_and_transpose(const KernelGaussian *kernel, const RealImage *image, RealImage **result) {
    OwnedImage blurred(blur_rows(kernel, image));
    return blurred ? KoRealImageTranspose(blurred.get(), result) : KoErrorGetLastError();
}

int32_t convolve_finite(const KernelGaussian *kernel, const RealImage *image, RealImage **result) {
    OwnedImage turned;
    const int32_t status = blur_and_transpose(kernel, image, turned.receive());
    return status == KO_OK ? blur_and_transpose(kernel, turned.get(), result) : status;
}

// ---- the recursive form

// Columns carried side by side in the vertical pass: their state stays in the first-level cache.
constexpr uint64_t strip_width = 128;
// Rows carried side by side in the horizontal pass.
constexpr uint64_t group_height = 16;

// Lines side by side: sample n of line l is at first[n * stride + l].
struct Lines {
    float *first;
    uint64_t stride;
    uint64_t length;
};

// Three values behind the present one for each line, rotating: an old value's place takes the new one.
struct History {
    double values[3][strip_width];
    double *near = values[0];
    double *middle = values[1];
    double *far = values[2];

    void rotate() {
        double *newest = far;
        far = middle;
        middle = near;
        near = newest;
    }
};

// One sample of all lines: next = input * gain + weights times history. A gain of 1 is left out.
template <bool WithGain, class Count>
void step_lines(const float *input, float *output, History *history, const double *weights, double gain, Count lines) {
    const double *__restrict near = history->near;
    const double *__restrict middle = history->middle;
    double *__restrict far = history->far;
    for (uint64_t l = 0; l < lines; ++l) {
        const double sample = static_cast<double>(input[l]);
        const double term = WithGain ? gain * sample : sample;
        far[l] = term + weights[0] * near[l] + weights[1] * middle[l] + weights[2] * far[l];
        output[l] = static_cast<float>(far[l]);
    }
    history->rotate();
}

// Turns the state behind the forward pass into the state behind the backward pass, and stores the last sample.
template <class Count>
void turn_round(const KernelGaussian *kernel, const double *last_input, float *output, History *history, double square,
                Count lines) {
    const double rest = 1.0 - kernel->a1 - kernel->a2 - kernel->a3;
    const double *m = kernel->boundary;
    for (uint64_t l = 0; l < lines; ++l) {
        const double u = last_input[l] / rest;
        const double v = u / rest;
        const double d0 = history->near[l] - u;
        const double d1 = history->middle[l] - u;
        const double d2 = history->far[l] - u;
        history->near[l] = (m[0] * d0 + m[1] * d1 + m[2] * d2 + v) * square;
        history->middle[l] = (m[3] * d0 + m[4] * d1 + m[5] * d2 + v) * square;
        history->far[l] = (m[6] * d0 + m[7] * d1 + m[8] * d2 + v) * square;
        output[l] = static_cast<float>(history->near[l]);
    }
}

// Forward and backward over lines side by side; output may be input. lines is at most strip_width.
template <class Count> void filter_lines(const KernelGaussian *kernel, Lines input, Lines output, Count lines) {
    const double forward[3] = {kernel->a1, kernel->a2, kernel->a3};
    const double backward[3] = {kernel->backA1, kernel->backA2, kernel->backA3};
    const double square = kernel->scale * kernel->scale;
    const uint64_t last = input.length - 1;
    History history;
    double last_input[strip_width];
    for (uint64_t l = 0; l < lines; ++l) {
        const double start = static_cast<double>(input.first[l]) / kernel->scale;
        history.near[l] = history.middle[l] = history.far[l] = start;
        last_input[l] = static_cast<double>(input.first[last * input.stride + l]);
    }
    for (uint64_t n = 0; n <= last; ++n) {
        step_lines<false>(input.first + n * input.stride, output.first + n * output.stride, &history, forward, 1.0, lines);
    }
    turn_round(kernel, last_input, output.first + last * output.stride, &history, square, lines);
    for (uint64_t n = last; n-- > 0;) {
        float *samples = output.first + n * output.stride;
        step_lines<true>(samples, samples, &history, backward, square, lines);
    }
}

// A number of lines that the compiler knows.
template <uint64_t Value> struct Constant {
    constexpr operator uint64_t() const { return Value; }
};

// Copies rows into columns of out: out[x * out_stride + r] = rows[r][x].
void turn_rows(float *const *rows, uint64_t count, uint64_t width, float *out, uint64_t out_stride) {
    constexpr uint64_t block = 16;
    for (uint64_t x0 = 0; x0 < width; x0 += block) {
        const uint64_t x1 = std::min(x0 + block, width);
        for (uint64_t r = 0; r < count; ++r) {
            for (uint64_t x = x0; x < x1; ++x) {
                out[x * out_stride + r] = rows[r][x];
            }
        }
    }
}

// The way back.
void turn_columns(const float *in, uint64_t in_stride, uint64_t count, uint64_t width, float *const *rows) {
    constexpr uint64_t block = 16;
    for (uint64_t x0 = 0; x0 < width; x0 += block) {
        const uint64_t x1 = std::min(x0 + block, width);
        for (uint64_t r = 0; r < count; ++r) {
            for (uint64_t x = x0; x < x1; ++x) {
                rows[r][x] = in[x * in_stride + r];
            }
        }
    }
}

// work holds group_height floats a column.
void filter_rows(const KernelGaussian *kernel, const RealImage *image, RealImage *result, float *work) {
    const Lines lines = {work, group_height, image->width};
    for (uint64_t y = 0; y < image->height; y += group_height) {
        const uint64_t count = std::min(group_height, image->height - y);
        turn_rows(image->rows + y, count, image->width, work, group_height);
        if (count == group_height) {
            filter_lines(kernel, lines, lines, Constant<group_height>());
        } else {
            filter_lines(kernel, lines, lines, count);
        }
        turn_columns(work, group_height, count, image->width, result->rows + y);
    }
}

void filter_columns(const KernelGaussian *kernel, RealImage *image) {
    for (uint64_t x = 0; x < image->width; x += strip_width) {
        const Lines lines = {image->rows[0] + x, stride(image), image->height};
        filter_lines(kernel, lines, lines, std::min(strip_width, image->width - x));
    }
}

int32_t convolve_recursive(const KernelGaussian *kernel, const RealImage *image, RealImage **result) {
    *result = nullptr;
    Block<float> work(make_blur_work(image->width));
    if (!work) {
        return KoErrorGetLastError();
    }
    *result = KoRealImageNew(image->width, image->height);
    if (*result != nullptr) {
        blur_recursive(kernel, image, *result, work.get());
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

float *make_blur_work(uint64_t width) { return static_cast<float *>(allocate_bytes(width, group_height * sizeof(float))); }

void blur_recursive(const KernelGaussian *kernel, const RealImage *image, RealImage *result, float *work) {
    if (image->width != 0 && image->height != 0) {
        filter_rows(kernel, image, result, work);
        filter_columns(kernel, result);
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
