// The Gaussian blur in its plainest form: one pixel, one row, one column at a time.
#ifndef KO_TESTS_REFERENCE_KERNELGAUSSIAN_H
#define KO_TESTS_REFERENCE_KERNELGAUSSIAN_H

#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace ko_test {

// A picture without padding, row by row.
struct Plane {
    uint64_t width = 0;
    uint64_t height = 0;
    std::vector<float> pixels;
};

inline Plane transposed(const Plane &plane) {
    Plane result{plane.height, plane.width, {}};
    for (uint64_t x = 0; x < plane.width; ++x) {
        for (uint64_t y = 0; y < plane.height; ++y) {
            result.pixels.push_back(plane.pixels[y * plane.width + x]);
        }
    }
    return result;
}

// The coefficients of the finite kernel.
inline std::vector<float> reference_coefficients(float sigma, float truncation) {
    const float reach = truncation * sigma;
    const int r = static_cast<int>(std::ceil(reach));
    const float d = sigma * sigma * 2.0f;
    std::vector<float> coefficients(static_cast<size_t>(2 * r + 1));
    float sum = 0.0f;
    for (int k = 0; k <= r; ++k) {
        const float quotient = -static_cast<float>(k * k) / d;
        const float v = static_cast<float>(std::exp(static_cast<double>(quotient)));
        coefficients[static_cast<size_t>(r - k)] = v;
        coefficients[static_cast<size_t>(r + k)] = v;
        sum += v;
        if (k != 0) {
            sum += v;
        }
    }
    for (float &coefficient : coefficients) {
        coefficient /= sum;
    }
    return coefficients;
}

inline Plane reference_finite_rows(const Plane &plane, const std::vector<float> &c) {
    Plane result{plane.width, plane.height, std::vector<float>(plane.pixels.size(), 0.0f)};
    if (plane.width < c.size()) {
        return result;
    }
    const auto width = static_cast<int64_t>(plane.width);
    const auto h = static_cast<int64_t>(c.size() / 2);
    for (uint64_t y = 0; y < plane.height; ++y) {
        const float *in = &plane.pixels[y * plane.width];
        for (int64_t x = 0; x < width; ++x) {
            float sum = 0.0f;
            for (int64_t t = 0; t < static_cast<int64_t>(c.size()); ++t) {
                if (x + t - h >= 0 && x + t - h < width) {
                    sum += c[static_cast<size_t>(t)] * in[x + t - h];
                }
            }
            result.pixels[y * plane.width + static_cast<uint64_t>(x)] = sum;
        }
    }
    return result;
}

inline Plane reference_finite(const Plane &plane, const std::vector<float> &coefficients) {
    const Plane rows = reference_finite_rows(plane, coefficients);
    return transposed(reference_finite_rows(transposed(rows), coefficients));
}

// The constants of the recursive filter.
struct Recursion {
    double a1, a2, a3, scale;
    std::array<double, 9> m;
};

inline Recursion reference_recursion(float sigma) {
    const double s = static_cast<double>(sigma);
    const double q = 1.31564 * (std::sqrt(0.490811 * (s * s) + 1.0) - 1.0);
    const double D = (q * q + 2.21566 * q + 3.2037296485000004) * (q + 1.1668);
    const double a1 = q * (3.0 * (q * q) + 6.76492 * q + 5.788961736500001) / D;
    const double a2 = -(q * q) * (3.0 * q + 3.38246) / D;
    const double a3 = q * q * q / D;
    const double scale = 3.7381117538698008 / D;
    const double E = (1.0 + a1 - a2 + a3) * (1.0 - a1 - a2 - a3) * (1.0 + a2 + (a1 - a3) * a3);
    const double f = 1.0 / E;
    Recursion r{a1, a2, a3, scale, {}};
    r.m[0] = f * (1.0 - a3 * a1 - a3 * a3 - a2);
    r.m[1] = f * ((a3 + a1) * (a2 + a3 * a1));
    r.m[2] = f * (a3 * (a1 + a3 * a2));
    r.m[3] = f * (a1 + a3 * a2);
    r.m[4] = f * (-(a2 - 1.0) * (a2 + a3 * a1));
    r.m[5] = f * (-(a3 * a1 + a3 * a3 + a2 - 1.0) * a3);
    r.m[6] = f * (a3 * a1 + a2 + a1 * a1 - a2 * a2);
    r.m[7] = f * (a1 * a2 + a3 * (a2 * a2) - a1 * (a3 * a3) - a3 * a3 * a3 - a3 * a2 + a3);
    r.m[8] = r.m[2];
    return r;
}

// One line, n pixels that lie step apart, in place.
inline void reference_recursive_line(const Recursion &k, float *line, uint64_t n, uint64_t step) {
    const double first = static_cast<double>(line[0]);
    const double last = static_cast<double>(line[(n - 1) * step]);
    double y1 = first / k.scale;
    double y2 = y1;
    double y3 = y1;
    for (uint64_t i = 0; i < n; ++i) {
        const double y = static_cast<double>(line[i * step]) + k.a1 * y1 + k.a2 * y2 + k.a3 * y3;
        line[i * step] = static_cast<float>(y);
        y3 = y2;
        y2 = y1;
        y1 = y;
    }
    const double u = last / (1.0 - k.a1 - k.a2 - k.a3);
    const double v = u / (1.0 - k.a1 - k.a2 - k.a3);
    const double d0 = y1 - u;
    const double d1 = y2 - u;
    const double d2 = y3 - u;
    const double S = k.scale * k.scale;
    double o1 = (k.m[0] * d0 + k.m[1] * d1 + k.m[2] * d2 + v) * S;
    double o2 = (k.m[3] * d0 + k.m[4] * d1 + k.m[5] * d2 + v) * S;
    double o3 = (k.m[6] * d0 + k.m[7] * d1 + k.m[8] * d2 + v) * S;
    line[(n - 1) * step] = static_cast<float>(o1);
    for (uint64_t i = n - 1; i-- > 0;) {
        const double o = S * static_cast<double>(line[i * step]) + k.a1 * o1 + k.a2 * o2 + k.a3 * o3;
        line[i * step] = static_cast<float>(o);
        o3 = o2;
        o2 = o1;
        o1 = o;
    }
}

inline Plane reference_recursive(Plane plane, float sigma) {
    const Recursion k = reference_recursion(sigma);
    for (uint64_t y = 0; y < plane.height; ++y) {
        reference_recursive_line(k, &plane.pixels[y * plane.width], plane.width, 1);
    }
    for (uint64_t x = 0; x < plane.width; ++x) {
        reference_recursive_line(k, &plane.pixels[x], plane.height, plane.width);
    }
    return plane;
}

} // namespace ko_test

#endif
