// Finds the orientation in the first directory of Exif data.
#include "codec/exif.h"

#include <algorithm>
#include <array>

namespace codec {

namespace {

constexpr size_t header_size = 8;
constexpr size_t entry_size = 12;
constexpr uint16_t orientation_tag = 274;
constexpr uint16_t short_type = 3;

// Numbers at offsets, in the byte order of the data.
class Block {
  public:
    explicit Block(std::span<const uint8_t> bytes) : bytes_(bytes), little_(!bytes.empty() && bytes[0] == 'I') {}

    bool holds(uint64_t offset, size_t size) const { return offset <= bytes_.size() && size <= bytes_.size() - offset; }

    uint32_t number(uint64_t offset, size_t size) const {
        uint32_t value = 0;
        for (size_t i = 0; i < size; ++i) {
            value = value << 8 | bytes_[offset + (little_ ? size - 1 - i : i)];
        }
        return value;
    }

    bool little() const { return little_; }

  private:
    std::span<const uint8_t> bytes_;
    bool little_;
};

bool has_byte_order(std::span<const uint8_t> exif) {
    return exif.size() >= header_size && exif[0] == exif[1] && (exif[0] == 'I' || exif[0] == 'M');
}

// Where the value of the orientation stands.
std::optional<size_t> orientation_place(std::span<const uint8_t> exif) {
    const Block block(exif);
    if (!has_byte_order(exif)) {
        return std::nullopt;
    }
    const uint64_t directory = block.number(4, 4);
    if (!block.holds(directory, 2)) {
        return std::nullopt;
    }
    const uint32_t count = block.number(directory, 2);
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t entry = directory + 2 + uint64_t{i} * entry_size;
        if (!block.holds(entry, entry_size)) {
            return std::nullopt;
        }
        if (block.number(entry, 2) == orientation_tag) {
            const bool sound = block.number(entry + 2, 2) == short_type && block.number(entry + 4, 4) == 1;
            return sound ? std::optional<size_t>(entry + 8) : std::nullopt;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<uint16_t> exif_orientation(std::span<const uint8_t> exif) {
    const std::optional<size_t> place = orientation_place(exif);
    const uint32_t value = place ? Block(exif).number(*place, 2) : 0;
    return value >= 1 && value <= 8 ? std::optional(static_cast<uint16_t>(value)) : std::nullopt;
}

void set_exif_orientation(Bytes &exif, uint16_t orientation) {
    if (const std::optional<size_t> place = orientation_place(exif)) {
        const bool little = Block(exif).little();
        exif[*place + (little ? 0 : 1)] = static_cast<uint8_t>(orientation);
        exif[*place + (little ? 1 : 0)] = static_cast<uint8_t>(orientation >> 8);
    }
}

Bytes exif_of_orientation(uint16_t orientation) {
    Bytes exif = {'M', 'M', 0, 42,         0, 0, 0, 8,                   // header
                  0,   1,                                                // entries of the directory
                  1,   18,  0, short_type, 0, 0, 0, 1, 0, upright, 0, 0, // tag, type, count, value
                  0,   0,   0, 0};                                       // no further directory
    set_exif_orientation(exif, orientation);
    return exif;
}

} // namespace codec
