// Sums of products for neighbouring pixels: a weight times a sample that moves along with the pixel. The sums of a block of
// pixels stay in registers until they are complete.
#ifndef KO_SRC_TAPS_H
#define KO_SRC_TAPS_H

#include <cstdint>

#include "lanes.h"

namespace ko {

// The sums of neighbouring pixels. A value is a float or a vector of floats, one pixel per element.
template <class Value, uint64_t Values> class Sums {
  public:
    static constexpr uint64_t count = Values * (sizeof(Value) / sizeof(float));

    Sums() {
        for (Value &value : values_) {
            value = Value{};
        }
    }

    // samples holds a float for each of the pixels.
    void add(float weight, const float *samples) {
        for (uint64_t i = 0; i < Values; ++i) {
            values_[i] += weight * load<Value>(samples + i * lanes);
        }
    }

    void add(const Sums &sums) {
        for (uint64_t i = 0; i < Values; ++i) {
            values_[i] = sums.values_[i] + values_[i];
        }
    }

    void give(float *to) const {
        for (uint64_t i = 0; i < Values; ++i) {
            store(values_[i], to + i * lanes);
        }
    }

  private:
    static constexpr uint64_t lanes = sizeof(Value) / sizeof(float);
    Value values_[Values];
};

using BlockSums = Sums<Floats, 4>;
using PixelSum = Sums<float, 1>;

// Calls sum(sums, x) for all pixels from x to end - 1, block by block. The last block begins early enough to end there, so that
// some pixels are summed twice; fewer pixels than a block are summed one by one.
template <class Sum> inline void sum_pixels(uint64_t x, uint64_t end, Sum sum) {
    if (end - x < BlockSums::count) {
        for (; x < end; ++x) {
            sum(PixelSum(), x);
        }
        return;
    }
    for (; x + BlockSums::count < end; x += BlockSums::count) {
        sum(BlockSums(), x);
    }
    sum(BlockSums(), end - BlockSums::count);
}

} // namespace ko

#endif
