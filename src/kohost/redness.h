// How red a pixel is, as a number that arithmetic alone gives.
#ifndef KO_KOHOST_REDNESS_H
#define KO_KOHOST_REDNESS_H

#include <cstdint>

namespace kohost {

// Added to levels before they are compared: a nearly black pixel, whose colour is mostly noise, then has next to none.
inline constexpr float black = 4.0f;

// By how much one level exceeds another, as a share of both: from -1 to 1, and 0 for gray.
inline float excess(uint8_t level, uint8_t other) {
    return (static_cast<float>(level) - static_cast<float>(other)) /
           (static_cast<float>(level) + static_cast<float>(other) + 2.0f * black);
}

} // namespace kohost

#endif
