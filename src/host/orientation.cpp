#include "orientation.h"

#include <algorithm>
#include <array>
#include <utility>

#include "codec/exif.h"

namespace host {

Orientation orientation_of(std::span<const uint8_t> exif) {
    constexpr std::array<Orientation, 8> known = {{{false, false, false},
                                                   {false, true, false},
                                                   {false, true, true},
                                                   {false, false, true},
                                                   {true, false, false},
                                                   {true, true, false},
                                                   {true, true, true},
                                                   {true, false, true}}};
    return known[codec::exif_orientation(exif).value_or(codec::upright) - 1u];
}

kohost::Size shown_size(const Orientation &orientation, kohost::Size stored) {
    return orientation.swapped ? kohost::Size{stored.height, stored.width} : stored;
}

std::vector<size_t> shown_order(const Orientation &orientation, kohost::Size stored) {
    const kohost::Size shown = shown_size(orientation, stored);
    std::vector<size_t> order;
    order.reserve(shown.area());
    for (uint32_t row = 0; row < shown.height; ++row) {
        for (uint32_t column = 0; column < shown.width; ++column) {
            size_t x = orientation.reversed_x ? shown.width - 1 - column : column;
            size_t y = orientation.reversed_y ? shown.height - 1 - row : row;
            if (orientation.swapped) {
                std::swap(x, y);
            }
            order.push_back(y * stored.width + x);
        }
    }
    return order;
}

kohost::Image shown_image(const Orientation &orientation, kohost::Image stored) {
    kohost::Image shown{shown_size(orientation, stored.size), stored.channels, {}};
    shown.bytes.reserve(stored.bytes.size());
    for (const size_t pixel : shown_order(orientation, stored.size)) {
        const auto from = stored.bytes.begin() + static_cast<ptrdiff_t>(pixel * stored.channels);
        shown.bytes.insert(shown.bytes.end(), from, from + stored.channels);
    }
    return shown;
}

} // namespace host
