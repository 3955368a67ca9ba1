// Inside the codec: colours that were multiplied by their alpha, for which other formats and ko's own work make no provision.
#ifndef KO_CODEC_ALPHA_H
#define KO_CODEC_ALPHA_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace codec {

inline constexpr const char *divided_by_alpha = "colours that were multiplied by alpha are divided by it";

// The colours of one pixel; they stay where it is fully transparent.
inline void divide_by_alpha(uint8_t *pixel, size_t channels, uint8_t alpha) {
    if (alpha == 0 || alpha == 255) {
        return;
    }
    for (size_t c = 0; c < channels; ++c) {
        pixel[c] = static_cast<uint8_t>(std::min((pixel[c] * 255 + alpha / 2) / alpha, 255));
    }
}

} // namespace codec

#endif
