// Kernels, their application and convolution in their plainest form: one value, one sum at a time.
#ifndef KO_TESTS_REFERENCE_KERNEL_H
#define KO_TESTS_REFERENCE_KERNEL_H

#include <cmath>
#include <cstdint>
#include <vector>

#include "reference_kernelgaussian.h"

namespace ko_test {

inline Plane reference_gaussian_kernel(uint64_t width, uint64_t height, float sigma) {
    const uint64_t centre_x = width / 2;
    const uint64_t centre_y = height / 2;
    const float e = sigma * -2.0f * sigma;
    Plane quadrant{centre_x + 1, centre_y + 1, {}};
    float sum = 0.0f;
    for (uint64_t dy = 0; dy <= centre_y; ++dy) {
        for (uint64_t dx = 0; dx <= centre_x; ++dx) {
            const float quotient = static_cast<float>(dx * dx + dy * dy) / e;
            const auto value = static_cast<float>(std::exp(static_cast<double>(quotient)));
            quadrant.pixels.push_back(value);
            if (dx == 0 && dy == 0) {
                sum += value;
            } else if (dx == 0 || dy == 0) {
                sum += 2.0f * value;
            } else {
                sum += 4.0f * value;
            }
        }
    }
    Plane kernel{width, height, std::vector<float>(width * height)};
    for (uint64_t dy = 0; dy <= centre_y; ++dy) {
        for (uint64_t dx = 0; dx <= centre_x; ++dx) {
            const float value = quadrant.pixels[dy * quadrant.width + dx] / sum;
            for (const uint64_t y : {centre_y - dy, height - centre_y - 1 + dy}) {
                for (const uint64_t x : {centre_x - dx, width - centre_x - 1 + dx}) {
                    kernel.pixels[y * width + x] = value;
                }
            }
        }
    }
    return kernel;
}

inline Plane reference_laplacian(float alpha) {
    const float s = alpha + 1.0f;
    const float corner = alpha / s;
    const float edge = (1.0f - alpha) / s;
    return {3, 3, {corner, edge, corner, edge, -4.0f / s, edge, corner, edge, corner}};
}

// Kernel row by kernel row: the sum of a row's terms inside the picture, then what the rows before it gave.
inline Plane reference_correlation(const Plane &kernel, const Plane &image) {
    Plane result{image.width, image.height, std::vector<float>(image.pixels.size(), 0.0f)};
    if (image.width < kernel.width || image.height < kernel.height) {
        return result;
    }
    const auto width = static_cast<int64_t>(image.width);
    const auto height = static_cast<int64_t>(image.height);
    const auto taps = static_cast<int64_t>(kernel.width);
    for (int64_t r = 0; r < static_cast<int64_t>(kernel.height); ++r) {
        const int64_t shift = r - static_cast<int64_t>(kernel.height / 2);
        for (int64_t y = 0; y < height; ++y) {
            if (y + shift < 0 || y + shift >= height) {
                continue;
            }
            for (int64_t x = 0; x < width; ++x) {
                float sum = 0.0f;
                for (int64_t t = 0; t < taps; ++t) {
                    const int64_t column = x + t - taps / 2;
                    if (column >= 0 && column < width) {
                        sum += kernel.pixels[static_cast<size_t>(r * taps + t)] *
                               image.pixels[static_cast<size_t>((y + shift) * width + column)];
                    }
                }
                float &pixel = result.pixels[static_cast<size_t>(y * width + x)];
                pixel = sum + pixel;
            }
        }
    }
    return result;
}

struct Tap {
    int32_t x, y;
    float weight;
};

// before: what the result held; its border stays.
inline Plane reference_sparse(int64_t kernel_width, int64_t kernel_height, const std::vector<Tap> &taps, const Plane &image,
                              Plane before) {
    const auto width = static_cast<int64_t>(image.width);
    const auto height = static_cast<int64_t>(image.height);
    for (int64_t y = kernel_height / 2; y < height - kernel_height / 2; ++y) {
        for (int64_t x = kernel_width / 2; x < width - kernel_width / 2; ++x) {
            float sum = 0.0f;
            for (const Tap &tap : taps) {
                sum += tap.weight * image.pixels[static_cast<size_t>((y + tap.y) * width + x + tap.x)];
            }
            before.pixels[static_cast<size_t>(y * width + x)] = sum;
        }
    }
    return before;
}

inline std::vector<float> reference_convolution(const std::vector<float> &a, const std::vector<float> &b) {
    std::vector<float> result;
    for (size_t k = 0; k + 1 < a.size() + b.size(); ++k) {
        float sum = 0.0f;
        for (size_t i = 0; i < a.size(); ++i) {
            if (i <= k && k - i < b.size()) {
                sum += a[i] * b[k - i];
            }
        }
        result.push_back(sum);
    }
    return result;
}

} // namespace ko_test

#endif
