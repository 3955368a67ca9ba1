// The orientation histogram in its plainest form: every table value and every sum by itself.
#ifndef KO_TESTS_REFERENCE_ORIENTATIONHISTOGRAM_H
#define KO_TESTS_REFERENCE_ORIENTATIONHISTOGRAM_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ko/orientationhistogram.h"

namespace ko_test {

// Rows of floats, one behind the other.
using FloatRows = std::vector<std::vector<float>>;

struct ReferenceOrientation {
    PatchGeometry geometry{};
    HistogramLayout layout{};
    int32_t radius = 0;
    std::vector<float> gauss;
    std::vector<float> deriv;
    FloatRows weights;                       // a row a cell, a column a pixel
    std::vector<std::vector<int32_t>> index; // a row a cell, ended by -1
    FloatRows upper;
    FloatRows lower;
    std::vector<float> logistic;

    // of the last computation
    std::vector<float> gradient_x;
    std::vector<float> gradient_y;
    FloatRows planes;
};

constexpr double reference_two_pi = 6.2831853071796;

inline void reference_build_kernels(ReferenceOrientation &o) {
    const float width = static_cast<float>(o.geometry.patch_size) * o.layout.gradient_sigma;
    const float s2 = width * width;
    float gauss_sum = 0.0f;
    float deriv_sum = 0.0f;
    for (int32_t i = -o.radius; i <= o.radius; ++i) {
        const double exponent = static_cast<double>(i) * -0.5 * static_cast<double>(i) / static_cast<double>(s2);
        const auto g = static_cast<float>(std::exp(exponent));
        const float d = static_cast<float>(-i) * g / s2;
        o.gauss.push_back(g);
        o.deriv.push_back(d);
        gauss_sum += g;
        deriv_sum += std::fabs(d);
    }
    for (float &value : o.gauss) {
        value /= gauss_sum;
    }
    for (float &value : o.deriv) {
        value /= deriv_sum;
    }
}

// The centre of cell number i on one axis; pixels count from 1.
inline float reference_cell_centre(const ReferenceOrientation &o, int32_t i) {
    const float pitch = static_cast<float>(o.geometry.patch_size) / static_cast<float>(o.layout.grid_size);
    return static_cast<float>((static_cast<double>(i) + 0.5) * static_cast<double>(pitch) + 0.5);
}

inline double reference_bell(float dx, float dy, float square) {
    const float distance = dx * dx + dy * dy;
    return std::exp(static_cast<double>(distance) * -0.5 / static_cast<double>(square));
}

inline void reference_build_weights(ReferenceOrientation &o) {
    const int32_t p = o.geometry.patch_size;
    const int32_t g = o.layout.grid_size;
    const float cell = static_cast<float>(p) * o.layout.cell_sigma / static_cast<float>(g);
    const float window = static_cast<float>(p) * o.layout.window_sigma;
    const auto middle = static_cast<float>(static_cast<double>(p) * 0.5 + 0.5);
    o.weights.assign(static_cast<size_t>(o.layout.cell_count), std::vector<float>(static_cast<size_t>(p * p)));
    for (int32_t y = 1; y <= p; ++y) {
        for (int32_t x = 1; x <= p; ++x) {
            const auto pixel = static_cast<size_t>((y - 1) * p + (x - 1));
            float sum = 0.0f;
            for (int32_t c = 0; c < o.layout.cell_count; ++c) {
                const float dx = static_cast<float>(x) - reference_cell_centre(o, c % g);
                const float dy = static_cast<float>(y) - reference_cell_centre(o, c / g);
                const auto weight = static_cast<float>(reference_bell(dx, dy, cell * cell));
                o.weights[static_cast<size_t>(c)][pixel] = weight;
                sum += weight;
            }
            const double fade = reference_bell(static_cast<float>(x) - middle, static_cast<float>(y) - middle, window * window);
            const auto factor = static_cast<float>(fade / static_cast<double>(sum));
            for (std::vector<float> &row : o.weights) {
                row[pixel] *= factor;
            }
        }
    }
    for (const std::vector<float> &row : o.weights) {
        o.index.emplace_back();
        for (size_t pixel = 0; pixel < row.size(); ++pixel) {
            if (row[pixel] > o.layout.weight_threshold) {
                o.index.back().push_back(static_cast<int32_t>(pixel));
            }
        }
        o.index.back().push_back(-1);
    }
}

// Divides each column by the sum of its entries.
inline void reference_normalise_columns(FloatRows &table) {
    for (size_t j = 0; j < 255; ++j) {
        float sum = 0.0f;
        for (const std::vector<float> &row : table) {
            sum += row[j];
        }
        for (std::vector<float> &row : table) {
            row[j] /= sum;
        }
    }
}

inline void reference_build_orientations(ReferenceOrientation &o) {
    const auto n = static_cast<double>(o.layout.bin_count);
    const auto so = static_cast<float>(static_cast<double>(o.layout.orientation_sigma) * reference_two_pi / n);
    const float so2 = so * so;
    for (int32_t b = 0; b < o.layout.bin_count; ++b) {
        const auto angle = static_cast<float>(static_cast<double>(b) * reference_two_pi / n);
        const auto c = static_cast<float>(std::cos(static_cast<double>(angle)));
        const auto s = static_cast<float>(std::sin(static_cast<double>(angle)));
        o.upper.emplace_back();
        o.lower.emplace_back();
        for (int32_t j = 0; j < 255; ++j) {
            const auto u = static_cast<float>(static_cast<double>(j) * 2.0 / 254.0 - 1.0);
            const auto v = static_cast<float>(std::sqrt(1.0 - static_cast<double>(u * u)));
            o.upper.back().push_back(static_cast<float>(reference_bell(v - s, u - c, so2)));
            o.lower.back().push_back(static_cast<float>(reference_bell(-v - s, u - c, so2)));
        }
    }
    reference_normalise_columns(o.upper);
    reference_normalise_columns(o.lower);
    for (int32_t i = 0; i < 255; ++i) {
        o.logistic.push_back(static_cast<float>(1.0 / (std::exp(5.0 - static_cast<double>(i) * 10.0 / 255.0) + 1.0)));
    }
}

inline ReferenceOrientation reference_orientation(const PatchGeometry &geometry, const HistogramLayout &layout) {
    ReferenceOrientation o;
    o.geometry = geometry;
    o.layout = layout;
    o.radius = static_cast<int32_t>(
        std::ceil(static_cast<double>(layout.gradient_sigma) * 3.0 * static_cast<double>(geometry.patch_size)));
    reference_build_kernels(o);
    reference_build_weights(o);
    reference_build_orientations(o);
    return o;
}

// Correlates along rows and writes the result transposed.
inline std::vector<float> reference_filter(const std::vector<float> &kernel, size_t width, size_t height,
                                           const std::vector<float> &input) {
    const size_t columns = width - kernel.size() + 1;
    std::vector<float> output(columns * height);
    for (size_t y = 0; y < height; ++y) {
        for (size_t x = 0; x < columns; ++x) {
            float sum = 0.0f;
            for (size_t k = 0; k < kernel.size(); ++k) {
                sum += kernel[k] * input[y * width + x + k];
            }
            output[x * height + y] = sum;
        }
    }
    return output;
}

// The share of one gradient in each plane.
inline void reference_orient(ReferenceOrientation &o, size_t pixel, float gx, float gy) {
    const float squares = gx * gx + gy * gy;
    const auto m = static_cast<float>(std::sqrt(static_cast<double>(squares)));
    float cx = gx / m;
    const float cy = gy / m;
    const bool counts = static_cast<double>(m) > 1e-36 && !std::isnan(cx);
    cx = cx < -1.0f ? -1.0f : cx > 1.0f ? 1.0f : cx;
    for (size_t b = 0; b < o.planes.size(); ++b) {
        float share = 0.0f;
        if (counts) {
            const auto j = static_cast<size_t>((static_cast<double>(cx) + 1.0) * 127.0);
            share = (cy > 0.0f ? o.upper : o.lower)[b][j] * m;
        }
        o.planes[b][pixel] = share;
    }
}

// The feature vector of a patch of side rows of side floats.
inline std::vector<float> reference_features(ReferenceOrientation &o, size_t side, const std::vector<float> &patch) {
    const size_t inner = side - 2 * static_cast<size_t>(o.radius);
    o.gradient_x = reference_filter(o.gauss, side, inner, reference_filter(o.deriv, side, side, patch));
    o.gradient_y = reference_filter(o.deriv, side, inner, reference_filter(o.gauss, side, side, patch));
    o.planes.assign(static_cast<size_t>(o.layout.bin_count),
                    std::vector<float>(static_cast<size_t>(o.geometry.padded_pixels), 0.0f));
    for (size_t pixel = 0; pixel < inner * inner; ++pixel) {
        reference_orient(o, pixel, o.gradient_x[pixel], o.gradient_y[pixel]);
    }
    std::vector<float> features;
    for (size_t c = 0; c < o.weights.size(); ++c) {
        for (size_t b = 0; b < o.planes.size(); ++b) {
            float sum = 0.0f;
            for (size_t i = 0; o.index[c][i] != -1; ++i) {
                const auto pixel = static_cast<size_t>(o.index[c][i]);
                sum += o.planes[b][pixel] * o.weights[c][pixel];
            }
            features.push_back(static_cast<float>(std::log(static_cast<double>(sum) + 1.0)));
        }
    }
    return features;
}

} // namespace ko_test

#endif
