// The conversions between floats and integers that hosts rely on, each under a name (see "Bytes by truncation" and "An index
// past a curve" in docs/compatibility.md). None of them is undefined for any float.
#ifndef KO_SRC_CONVERT_H
#define KO_SRC_CONVERT_H

#include <cmath>
#include <cstdint>

namespace ko {

// The value truncated toward zero; 0 for a NaN and for what does not fit 32 bits.
inline int32_t truncate_32(float value) {
    const bool fits = value >= -2147483648.0f && value < 2147483648.0f;
    return static_cast<int32_t>(fits ? value : 0.0f);
}

// The value truncated toward zero; the most negative integer for a NaN and for what does not fit 64 bits.
inline int64_t truncate_64(float value) {
    const bool fits = value >= -9223372036854775808.0f && value < 9223372036854775808.0f;
    return fits ? static_cast<int64_t>(value) : INT64_MIN;
}

// The low 32 bits of the truncated value, as a curve's index: negatives wrap to the far end, a NaN gives 0.
inline uint32_t curve_index(float value) { return static_cast<uint32_t>(truncate_64(value)); }

// A histogram's bin: half is added and the sum truncated, in double precision. 0 below 0, for a NaN and for what does not fit
// 32 bits.
inline uint32_t bin_index(float value) {
    const double raised = static_cast<double>(value) + 0.5;
    const bool fits = raised >= 0.0 && raised < 2147483648.0;
    return static_cast<uint32_t>(static_cast<int32_t>(fits ? raised : 0.0));
}

// The low 8 bits of the truncated value, with no limit at either end: as those of truncate_32, with a single comparison. What
// that leaves out, the most negative integer, has low bits of 0 as well.
inline uint32_t wrapped_bits(float value) {
    return static_cast<uint32_t>(static_cast<int32_t>(std::fabs(value) < 2147483648.0f ? value : 0.0f)) & 255;
}

inline uint8_t wrapped_byte(float value) { return static_cast<uint8_t>(wrapped_bits(value)); }

// As wrapped_byte, but 0 below 0.
inline uint8_t floored_byte(float value) { return wrapped_byte(value >= 0.0f ? value : 0.0f); }

// 0, hidden from the compiler: it makes several instructions of a comparison with a constant, and a maximum or a minimum of one
// with a variable.
inline const volatile float opaque_zero = 0.0f;

// The range of a byte; to be made before a loop.
class ByteRange {
  public:
    // The value limited to 0..255 and truncated; 0 for a NaN.
    uint32_t limited(float value) const {
        const float above = value > low_ ? value : low_;
        return static_cast<uint32_t>(static_cast<int32_t>(above < high_ ? above : high_));
    }

  private:
    const float low_ = opaque_zero;
    const float high_ = low_ + 255.0f;
};

} // namespace ko

#endif
