// A weighted least-squares problem, solved exactly: among all curves of whole numbers whose steps are 0 to the limit, the one
// with the least sum of squared distances from the fitted curve, each entry weighted by the number of pixels that its tile has
// at its level. The best curve lies between two envelopes, the one that lags behind the jumps and the one that leads them, and
// a table over the values between them finds it entry by entry. All numbers are whole, so the result is the same everywhere.
#include "kohost/slope.h"

#include <algorithm>
#include <span>
#include <vector>

namespace kohost {

namespace {

// A level without pixels weighs a tenth of one pixel, as it does in the fit of the curves.
constexpr uint64_t pixel_weight = 10;
constexpr uint64_t level_weight = 1;

bool keeps(std::span<const uint32_t> curve, uint32_t max_slope) {
    for (size_t i = 1; i < curve.size(); ++i) {
        if (curve[i] < curve[i - 1] || curve[i] - curve[i - 1] > max_slope) {
            return false;
        }
    }
    return true;
}

class SlopeLimit {
  public:
    SlopeLimit(size_t size, uint32_t max_slope)
        : max_slope_(max_slope), low_(size), high_(size), best_(size), next_(size), steps_(size * size) {}

    // The entries of a curve are below its size, and its first one is the lowest.
    void apply(std::span<uint32_t> curve, std::span<const uint64_t> weights) {
        find_envelopes(curve);
        for (size_t i = 0; i < curve.size(); ++i) {
            for (uint32_t value = low_[i]; value <= high_[i]; ++value) {
                const int64_t distance = int64_t{value} - curve[i];
                next_[value] = (i > 0 ? reach(i, value) : 0) + weights[i] * static_cast<uint64_t>(distance * distance);
            }
            best_.swap(next_);
        }
        trace(curve);
    }

  private:
    void find_envelopes(std::span<const uint32_t> curve) {
        std::copy(curve.begin(), curve.end(), low_.begin());
        std::copy(curve.begin(), curve.end(), high_.begin());
        for (size_t i = 1; i < curve.size(); ++i) {
            low_[i] = std::min(low_[i], low_[i - 1] + max_slope_);
        }
        for (size_t i = curve.size() - 1; i > 0; --i) {
            high_[i - 1] = std::max(high_[i - 1], high_[i] - std::min(high_[i], max_slope_));
        }
        // Black rises by one step at most: where a tile has no dark pixels, nothing else would limit it.
        for (size_t i = 0; i < curve.size(); ++i) {
            high_[i] = static_cast<uint32_t>(std::min<uint64_t>(high_[i], curve[0] + uint64_t{max_slope_} * (i + 1)));
        }
    }

    // The least cost of the entries before entry i if it has this value. Of equal costs the one with the smallest step counts.
    uint64_t reach(size_t i, uint32_t value) {
        const uint32_t least = std::max(low_[i - 1], value - std::min(value, max_slope_));
        uint32_t found = std::min(value, high_[i - 1]);
        for (uint32_t before = found; before-- > least;) {
            found = best_[before] < best_[found] ? before : found;
        }
        steps_[i * low_.size() + value] = static_cast<uint8_t>(value - found);
        return best_[found];
    }

    void trace(std::span<uint32_t> curve) const {
        const size_t last = curve.size() - 1;
        const uint64_t *begin = best_.data();
        curve[last] = static_cast<uint32_t>(std::min_element(begin + low_[last], begin + high_[last] + 1) - begin);
        for (size_t i = last; i > 0; --i) {
            curve[i - 1] = curve[i] - steps_[i * low_.size() + curve[i]];
        }
    }

    const uint32_t max_slope_;
    std::vector<uint32_t> low_;
    std::vector<uint32_t> high_;
    std::vector<uint64_t> best_; // for each value of the entry last done: the least cost up to it
    std::vector<uint64_t> next_;
    std::vector<uint8_t> steps_; // for each entry and value: the step that leads there
};

// The weights of a tile's entries: its pixels by level, over the area that its curve was fitted to.
void weigh(const TileTRC &curves, uint64_t column, uint64_t row, const RealImage &luminance, std::span<uint64_t> weights) {
    const uint64_t width = KoRealImageGetWidth(&luminance) / curves.numStripsX;
    const uint64_t height = KoRealImageGetHeight(&luminance) / curves.numStripsY;
    const float entries = static_cast<float>(curves.size / 256);
    const float last = static_cast<float>(curves.size - 1);
    for (uint64_t y = row * height; y < (row + 1) * height; ++y) {
        const float *pixels = KoRealImageGetRow(&luminance, y) + column * width;
        for (uint64_t x = 0; x < width; ++x) {
            weights[static_cast<size_t>(std::clamp(pixels[x] * entries, 0.0f, last))] += pixel_weight;
        }
    }
}

} // namespace

void limit_slope(TileTRC &curves, uint32_t max_slope, const RealImage *luminance) {
    SlopeLimit limit(curves.size, max_slope);
    std::vector<uint64_t> weights(curves.size);
    for (uint64_t tile = 0; tile < curves.numStripsX * curves.numStripsY; ++tile) {
        const std::span<uint32_t> curve(curves.array + tile * curves.size, curves.size);
        if (keeps(curve, max_slope)) {
            continue;
        }
        uint32_t highest = 0;
        for (uint32_t &entry : curve) {
            highest = std::max(highest, std::min(entry, static_cast<uint32_t>(curves.size - 1)));
            entry = highest;
        }
        std::fill(weights.begin(), weights.end(), level_weight);
        if (luminance != nullptr) {
            weigh(curves, tile % curves.numStripsX, tile / curves.numStripsX, *luminance, weights);
        }
        limit.apply(curve, weights);
    }
}

} // namespace kohost
