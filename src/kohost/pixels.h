// Pictures as bytes in memory: gray or RGB, pixel by pixel and row by row without gaps.
#ifndef KO_KOHOST_PIXELS_H
#define KO_KOHOST_PIXELS_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kohost {

struct Size {
    uint32_t width = 0;
    uint32_t height = 0;

    uint64_t area() const { return uint64_t{width} * height; }
    bool operator==(const Size &) const = default;
};

// A part of a picture; the last two are exclusive.
struct Box {
    uint32_t x0, y0, x1, y1;
};

// Pixels that somebody else owns.
struct Pixels {
    const uint8_t *bytes = nullptr;
    Size size;
    uint32_t channels = 0; // 1 is gray, 3 is RGB
};

struct Image {
    Size size;
    uint32_t channels = 0;
    std::vector<uint8_t> bytes;

    Pixels pixels() const { return {bytes.data(), size, channels}; }
};

} // namespace kohost

#endif
