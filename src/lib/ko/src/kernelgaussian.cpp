// KernelGaussian: the making of kernels, finite and recursive, and what they tell of themselves. The blurs are in
// gaussian_finite.cpp and gaussian_recursive.cpp.
#include "ko/kernelgaussian.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>

#include "alloc.h"
#include "convert.h"
#include "gaussian.h"

namespace {

using namespace ko;

constexpr uint64_t coefficient_room = 8; // zeros behind the last coefficient

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

void print_ruler(FILE *stream, uint64_t cells) {
    for (uint64_t cell = 0; cell + 1 < cells; ++cell) {
        std::fputs("------+", stream);
    }
    std::fputs("------|\n", stream);
}

constexpr int print_width = 6;

} // namespace

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
