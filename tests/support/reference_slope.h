// The limit on the slope of curves in its plainest form: all curves within the limit are weighed against each other.
#ifndef KO_TESTS_REFERENCE_SLOPE_H
#define KO_TESTS_REFERENCE_SLOPE_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>
#include <limits>
#include <vector>

#include "pictures.h"

namespace ko_test {

class ReferenceSlope {
  public:
    // weights: one for each entry of the curves
    ReferenceSlope(uint32_t max_slope, std::vector<int64_t> weights) : limit_(max_slope), weights_(std::move(weights)) {}

    std::vector<uint32_t> limited(const std::vector<uint32_t> &fitted) {
        if (keeps_the_limit(fitted)) {
            return fitted;
        }
        rise(fitted);
        begin();
        for (size_t i = 1; i < wanted_.size(); ++i) {
            extend(i);
        }
        return backtrack();
    }

    bool keeps_the_limit(const std::vector<uint32_t> &curve) const {
        for (size_t i = 1; i < curve.size(); ++i) {
            if (curve[i] < curve[i - 1] || curve[i] - curve[i - 1] > limit_) {
                return false;
            }
        }
        return true;
    }

  private:
    static constexpr int64_t impossible = std::numeric_limits<int64_t>::max();

    void rise(const std::vector<uint32_t> &fitted) {
        const auto top = static_cast<uint32_t>(fitted.size() - 1);
        wanted_.clear();
        uint32_t highest = 0;
        for (const uint32_t entry : fitted) {
            highest = std::max(highest, std::min(entry, top));
            wanted_.push_back(highest);
        }
    }

    // Values are counted from the first entry on: a curve that leaves the range between the first and the last entry comes
    // nearer to all of them when it is cut off there, and keeps the limit.
    size_t values() const { return wanted_.back() - wanted_.front() + 1; }

    int64_t cost(size_t entry, size_t value) const {
        const int64_t distance = static_cast<int64_t>(value + wanted_.front()) - static_cast<int64_t>(wanted_[entry]);
        return weights_[entry] * distance * distance;
    }

    void begin() {
        costs_.assign(values(), impossible);
        before_.assign(wanted_.size(), std::vector<uint32_t>(values()));
        for (size_t value = 0; value < values() && value <= limit_; ++value) {
            costs_[value] = cost(0, value);
        }
    }

    // The best way to each value of an entry, from the values of the entry before that are at most the limit below. Of ways
    // that are equally good, the one with the smallest step.
    void extend(size_t entry) {
        std::vector<int64_t> costs(values(), impossible);
        std::deque<size_t> candidates; // from the best to the last
        for (size_t value = 0; value < values(); ++value) {
            while (!candidates.empty() && costs_[candidates.back()] >= costs_[value]) {
                candidates.pop_back();
            }
            candidates.push_back(value);
            if (value - candidates.front() > limit_) {
                candidates.pop_front();
            }
            const size_t best = candidates.front();
            if (costs_[best] != impossible) {
                costs[value] = costs_[best] + cost(entry, value);
                before_[entry][value] = static_cast<uint32_t>(best);
            }
        }
        costs_ = costs;
    }

    std::vector<uint32_t> backtrack() const {
        auto value = static_cast<uint32_t>(std::min_element(costs_.begin(), costs_.end()) - costs_.begin());
        std::vector<uint32_t> curve(wanted_.size());
        for (size_t entry = curve.size(); entry-- > 0;) {
            curve[entry] = value + wanted_.front();
            value = before_[entry][value];
        }
        return curve;
    }

    uint32_t limit_;
    std::vector<int64_t> weights_;
    std::vector<uint32_t> wanted_;
    std::vector<int64_t> costs_;                // of the best way to each value of the entry reached so far
    std::vector<std::vector<uint32_t>> before_; // for each entry and value, the value of the entry before
};

// The entry of a curve that a level of luminance falls on.
inline uint64_t entry_of(float level, uint64_t size) {
    const float scaled = level * (static_cast<float>(size) / 256.0f);
    return static_cast<uint64_t>(std::floor(std::clamp(scaled, 0.0f, static_cast<float>(size - 1))));
}

// The weights of the entries of the curve of tile (column, row); without a luminance all weigh the same.
inline std::vector<int64_t> slope_weights(const TileTRC &grid, const RealImage *luminance, uint64_t column, uint64_t row) {
    std::vector<int64_t> weights(grid.size, 1);
    if (luminance == nullptr) {
        return weights;
    }
    const uint64_t width = KoRealImageGetWidth(luminance) / grid.numStripsX;
    const uint64_t height = KoRealImageGetHeight(luminance) / grid.numStripsY;
    for (uint64_t y = row * height; y < (row + 1) * height; ++y) {
        for (uint64_t x = column * width; x < (column + 1) * width; ++x) {
            weights[entry_of(KoRealImageGetPixel(luminance, x, y), grid.size)] += 10;
        }
    }
    return weights;
}

inline void reference_limit_slope(TileTRC &grid, uint32_t max_slope, const RealImage *luminance) {
    for (uint64_t row = 0; row < grid.numStripsY; ++row) {
        for (uint64_t column = 0; column < grid.numStripsX; ++column) {
            uint32_t *curve = grid.array + (row * grid.numStripsX + column) * grid.size;
            ReferenceSlope slope(max_slope, slope_weights(grid, luminance, column, row));
            const std::vector<uint32_t> limited = slope.limited({curve, curve + grid.size});
            std::copy(limited.begin(), limited.end(), curve);
        }
    }
}

} // namespace ko_test

#endif
