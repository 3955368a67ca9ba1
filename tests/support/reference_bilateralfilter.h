// The bilateral filter in its plainest form, over the plain Gaussian.
#ifndef KO_TESTS_REFERENCE_BILATERALFILTER_H
#define KO_TESTS_REFERENCE_BILATERALFILTER_H

#include <algorithm>

#include "reference_kernelgaussian.h"

namespace ko_test {

// How many pixels met a blurred weight of exactly 0, and how many of those had something to lose.
struct BilateralCounts {
    uint64_t zero_weights = 0;
    uint64_t thrown_away = 0;
};

inline void reference_bilateral_level(const Plane &image, Plane &result, float level, float step, float sigma,
                                      BilateralCounts &counts) {
    const size_t n = image.pixels.size();
    Plane weight{image.width, image.height, std::vector<float>(n)};
    Plane weighted = weight;
    std::vector<float> distance(n);
    for (size_t i = 0; i < n; ++i) {
        const float difference = image.pixels[i] - level;
        distance[i] = static_cast<float>(std::fabs(static_cast<double>(difference))) / step;
        const float square = distance[i] * distance[i];
        weight.pixels[i] = static_cast<float>(std::exp(-static_cast<double>(square) * 0.5));
        weighted.pixels[i] = weight.pixels[i] * image.pixels[i];
    }
    const Plane kw = reference_recursive(weight, sigma);
    const Plane kp = reference_recursive(weighted, sigma);
    for (size_t i = 0; i < n; ++i) {
        const float t = std::min(1.0f, distance[i]);
        if (kw.pixels[i] != 0.0f) {
            result.pixels[i] = (kp.pixels[i] / kw.pixels[i]) * (1.0f - t) + result.pixels[i];
        } else {
            ++counts.zero_weights;
            counts.thrown_away += result.pixels[i] != 0.0f;
            result.pixels[i] = 0.0f;
        }
    }
}

inline Plane reference_bilateral(const Plane &image, uint64_t levels, BilateralCounts *counts = nullptr) {
    float minimum = image.pixels[0];
    float maximum = image.pixels[0];
    for (const float pixel : image.pixels) {
        if (pixel > maximum) {
            maximum = pixel;
        } else if (minimum > pixel) {
            minimum = pixel;
        }
    }
    const float step = (maximum - minimum) / static_cast<float>(levels);
    Plane result{image.width, image.height, std::vector<float>(image.pixels.size(), 0.0f)};
    if (step == 0.0f) {
        return result;
    }
    BilateralCounts local;
    const float sigma = static_cast<float>(std::min(image.width, image.height)) / 50.0f;
    for (uint64_t i = 0; i <= levels; ++i) {
        const float level = static_cast<float>(i) * step + minimum;
        reference_bilateral_level(image, result, level, step, sigma, counts != nullptr ? *counts : local);
    }
    for (float &pixel : result.pixels) {
        if (pixel < minimum) {
            pixel = minimum;
        } else if (pixel > maximum) {
            pixel = maximum;
        }
    }
    return result;
}

} // namespace ko_test

#endif
