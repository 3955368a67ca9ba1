#include "orientation.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace host {

namespace {

// The numbers of an Exif block, in either order of bytes. What lies behind its end is none.
class Block {
  public:
    explicit Block(std::span<const uint8_t> bytes) : bytes_(bytes), little_(!bytes.empty() && bytes[0] == 'I') {}

    std::optional<uint32_t> number(size_t offset, size_t size) const {
        if (offset > bytes_.size() || bytes_.size() - offset < size) {
            return std::nullopt;
        }
        uint32_t value = 0;
        for (size_t i = 0; i < size; ++i) {
            value = value << 8 | bytes_[offset + (little_ ? size - 1 - i : i)];
        }
        return value;
    }

  private:
    std::span<const uint8_t> bytes_;
    bool little_;
};

// The value of the orientation's entry in the first directory.
std::optional<uint32_t> stored_orientation(std::span<const uint8_t> exif) {
    constexpr uint32_t orientation_tag = 0x0112;
    constexpr size_t entry_size = 12;
    const Block block(exif);
    const auto start = block.number(4, 4);
    const auto count = start ? block.number(*start, 2) : std::nullopt;
    for (uint32_t i = 0; count && i < *count; ++i) {
        const size_t entry = size_t{*start} + 2 + i * entry_size;
        if (block.number(entry, 2) == orientation_tag) {
            return block.number(entry + 8, 2);
        }
    }
    return std::nullopt;
}

} // namespace

Orientation orientation_of(std::span<const uint8_t> exif) {
    constexpr std::array<Orientation, 9> known = {{{},
                                                   {false, false, false},
                                                   {false, true, false},
                                                   {false, true, true},
                                                   {false, false, true},
                                                   {true, false, false},
                                                   {true, true, false},
                                                   {true, true, true},
                                                   {true, false, true}}};
    const uint32_t number = stored_orientation(exif).value_or(0);
    return number < known.size() ? known[number] : Orientation{};
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
