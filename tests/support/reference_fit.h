// The fit of a curve to a pair of images in its plainest form, to compare bit for bit.
#ifndef KO_TESTS_REFERENCE_FIT_H
#define KO_TESTS_REFERENCE_FIT_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "pictures.h"

namespace ko_test {

struct PixelPair {
    float input;
    float target;
};

// The six power curves at one size, one behind the other.
struct ReferenceCurves {
    explicit ReferenceCurves(uint64_t curve_size) : size(curve_size) {
        const float top = static_cast<float>(size - 1);
        for (const float exponent : {0.5f, 0.8f, 1.0f, 1.2f, 1.5f, 2.0f}) {
            for (uint64_t i = 0; i < size; ++i) {
                const float quotient = static_cast<float>(i) / top;
                const float value =
                    static_cast<float>(std::pow(static_cast<double>(quotient), static_cast<double>(exponent))) * top;
                values.push_back(value);
                levels.push_back(static_cast<uint16_t>(std::floor(value)));
            }
        }
    }

    uint64_t size;
    std::vector<float> values;
    std::vector<uint16_t> levels;
};

class ReferenceFit {
  public:
    // size: levels of the curve, at least 1; pool_size: entries of the shared power curves at the time of the fit
    ReferenceFit(uint64_t size, uint64_t pool_size) : n_(size), curves_(pool_size), cost_(n_ * n_, 0.0f) {}

    std::vector<uint32_t> fit(const std::vector<PixelPair> &pixels) {
        measure(pixels);
        return fit_measured();
    }

    // The fit to pixels that were measured already: the sum of the target levels, and the pixels, of each input level.
    std::vector<uint32_t> fit(std::vector<float> sums, std::vector<float> counts) {
        sums_ = std::move(sums);
        counts_ = std::move(counts);
        return fit_measured();
    }

  private:
    std::vector<uint32_t> fit_measured() {
        build_cost();
        add_prior(best_curve());
        find_paths();
        return backtrack();
    }

    // Truncated toward zero, the low 16 bits; what does not fit 64 bits counts as the most negative number.
    static uint16_t low_bits(float value) {
        if (!(std::fabs(value) < 9223372036854775808.0f)) {
            return 0;
        }
        return static_cast<uint16_t>(static_cast<int64_t>(value));
    }

    void measure(const std::vector<PixelPair> &pixels) {
        sums_.assign(n_, 0.0f);
        counts_.assign(n_, 0.0f);
        const float scale = static_cast<float>(n_) * 0.00390625f;
        for (auto [input, target] : pixels) {
            if (scale > 1.0f) {
                input *= scale;
                target *= scale;
            }
            const uint16_t key = low_bits(input);
            if (key < n_) {
                sums_[key] += static_cast<float>(low_bits(target));
                counts_[key] += 1.0f;
            }
        }
    }

    void build_cost() {
        for (uint64_t i = 0; i < n_; ++i) {
            const double c = static_cast<double>(counts_[i]);
            const double m = counts_[i] == 0.0f ? 0.0 : static_cast<double>(sums_[i]) / c;
            double a = c * m * m;
            double s = (1.0 - 2.0 * m) * c;
            cost(i, 0) = static_cast<float>(a);
            for (uint64_t x = 1; x < n_; ++x) {
                a = a + s;
                cost(i, x) = static_cast<float>(a);
                s = s + 2.0 * c;
            }
        }
    }

    // The curve over whose levels the cost is smallest; levels that lie outside the matrix are left out.
    uint64_t best_curve() const {
        uint64_t best = 0;
        float smallest = 0.0f;
        for (uint64_t curve = 0; curve < 6; ++curve) {
            float total = 0.0f;
            for (uint64_t i = 0; i < n_; ++i) {
                const uint64_t place = i * n_ + curves_.levels[curve * curves_.size + i];
                if (place < n_ * n_) {
                    total += cost_[place];
                }
            }
            if (curve == 0 || total < smallest) {
                smallest = total;
                best = curve;
            }
        }
        return best;
    }

    void add_prior(uint64_t curve) {
        const float lambda = 0.1f;
        const double wide_lambda = static_cast<double>(lambda);
        const double step = static_cast<double>(2.0f * lambda);
        for (uint64_t i = 0; i < n_; ++i) {
            const double g = static_cast<double>(curves_.values[curve * curves_.size + i]);
            double a = wide_lambda * g * g;
            double s = (1.0 - 2.0 * g) * wide_lambda;
            cost(i, 0) += static_cast<float>(a);
            for (uint64_t x = 1; x < n_; ++x) {
                a = s + a;
                cost(i, x) += static_cast<float>(a);
                s = s + step;
            }
        }
    }

    void find_paths() {
        path_cost_.assign(n_ * n_, 0.0f);
        path_origin_.assign(n_ * n_, 0);
        std::copy_n(cost_.begin(), n_, path_cost_.begin());
        for (uint64_t i = 1; i < n_; ++i) {
            const float *before = &path_cost_[(i - 1) * n_];
            float best = before[0];
            uint16_t origin = 0;
            for (uint64_t x = 0; x < n_; ++x) {
                if (x >= 1 && best > before[x]) {
                    best = before[x];
                    origin = static_cast<uint16_t>(x);
                }
                path_cost_[i * n_ + x] = best + cost(i, x);
                path_origin_[i * n_ + x] = origin;
            }
        }
    }

    std::vector<uint32_t> backtrack() const {
        std::vector<uint32_t> entries(n_, 0);
        const float *last = &path_cost_[(n_ - 1) * n_];
        entries[n_ - 1] = static_cast<uint32_t>(std::min_element(last, last + n_) - last);
        for (uint64_t i = n_ - 1; i >= 1; --i) {
            entries[i - 1] = path_origin_[i * n_ + entries[i]];
        }
        return entries;
    }

    float &cost(uint64_t i, uint64_t x) { return cost_[i * n_ + x]; }

    uint64_t n_;
    ReferenceCurves curves_;
    std::vector<float> sums_;
    std::vector<float> counts_;
    std::vector<float> cost_;
    std::vector<float> path_cost_;
    std::vector<uint16_t> path_origin_;
};

inline std::vector<uint32_t> reference_fit(uint64_t size, uint64_t pool_size, const std::vector<PixelPair> &pixels) {
    return ReferenceFit(size, pool_size).fit(pixels);
}

// Noise around a rising bow. Many levels stay empty and take their shape from the shared power curves, so that the fit tells
// the size of their pool.
inline std::vector<PixelPair> sparse_cloud(uint64_t count, uint32_t seed) {
    Noise noise(seed);
    std::vector<PixelPair> pixels;
    for (uint64_t i = 0; i < count; ++i) {
        const float input = i % 2 == 0 ? noise.uniform(20.0f, 60.0f) : noise.uniform(100.0f, 120.0f);
        pixels.push_back({input, input * input / 255.0f + noise.uniform(0.0f, 10.0f)});
    }
    return pixels;
}

// The two images of a list of pixel pairs, row by row.
struct ImagePair {
    ImagePair(uint64_t width, const std::vector<PixelPair> &pixels)
        : input(make_image(width, pixels.size() / width, [&](uint64_t x, uint64_t y) { return pixels[y * width + x].input; })),
          target(
              make_image(width, pixels.size() / width, [&](uint64_t x, uint64_t y) { return pixels[y * width + x].target; })) {}

    RealImagePtr input;
    RealImagePtr target;
};

// Fits a curve to the whole of two images; the status is handed back.
inline int32_t fit_whole(TRC *trc, const ImagePair &images) {
    RealImageLineIterator input;
    RealImageLineIterator target;
    KoRealImageLineIteratorInit(&input, images.input.get());
    KoRealImageLineIteratorInit(&target, images.target.get());
    return KoTRCCompute(trc, &input, &target);
}

} // namespace ko_test

#endif
