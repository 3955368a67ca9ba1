#include "codec/tiff_structure.h"

#include <algorithm>
#include <array>

namespace codec {

namespace {

constexpr std::array<size_t, 14> value_sizes = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4};

// A directory of more entries than a TIFF file can have is damaged.
constexpr uint64_t most_entries = 0xffff;

} // namespace

size_t size_of(ValueType type) {
    const auto number = static_cast<size_t>(type);
    return number < value_sizes.size() ? value_sizes[number] : 0;
}

uint64_t TiffStructure::number_in(std::span<const uint8_t> bytes) const {
    uint64_t value = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        value = value << 8 | bytes[big_endian_ ? i : bytes.size() - 1 - i];
    }
    return value;
}

std::optional<uint64_t> TiffStructure::number(uint64_t position, size_t size) {
    std::array<uint8_t, 8> room{};
    const std::span<uint8_t> bytes(room.data(), size);
    return input_.read(position, bytes) == size ? std::optional(number_in(bytes)) : std::nullopt;
}

std::optional<uint64_t> TiffStructure::entry_count(uint64_t position) {
    const std::optional<uint64_t> count = number(position, count_size());
    return count && *count <= most_entries ? count : std::nullopt;
}

uint64_t TiffStructure::behind(uint64_t position) {
    const std::optional<uint64_t> count = entry_count(position);
    return count ? number(position + count_size() + *count * entry_size(), offset_size()).value_or(0) : 0;
}

std::optional<TiffStructure::Entry> TiffStructure::entry(std::span<const uint8_t> bytes, uint64_t position) {
    const uint64_t end = input_.size().value_or(0);
    const auto type = static_cast<ValueType>(number_in(bytes.subspan(2, 2)));
    const uint64_t count = number_in(bytes.subspan(4, offset_size()));
    if (size_of(type) == 0 || count > end / size_of(type)) {
        return std::nullopt;
    }
    const size_t value_at = 4 + offset_size();
    Entry entry{static_cast<uint32_t>(number_in(bytes.first(2))), type, count, position + value_at};
    if (entry.size() > offset_size()) {
        entry.position = number_in(bytes.subspan(value_at));
    }
    const bool inside = entry.position <= end && entry.size() <= end - entry.position;
    return inside ? std::optional(entry) : std::nullopt;
}

std::optional<std::vector<TiffStructure::Entry>> TiffStructure::directory(uint64_t position) {
    const std::optional<uint64_t> count = entry_count(position);
    Bytes bytes(count.value_or(0) * entry_size());
    const uint64_t first = position + count_size();
    if (!count || input_.read(first, bytes) != bytes.size()) {
        return std::nullopt;
    }
    std::vector<Entry> entries;
    for (size_t at = 0; at < bytes.size(); at += entry_size()) {
        if (const auto found = entry(std::span(bytes).subspan(at, entry_size()), first + at)) {
            entries.push_back(*found);
        }
    }
    return entries;
}

Bytes TiffStructure::value(const Entry &entry) {
    Bytes bytes(entry.size());
    const std::optional<size_t> count = input_.read(entry.position, bytes);
    bytes.resize(count.value_or(0));
    return bytes;
}

std::optional<ExifStructure> exif_structure(Input &exif) {
    std::array<uint8_t, 2> order{};
    const bool read = exif.read(0, order) == order.size();
    if (!read || order[0] != order[1] || (order[0] != 'I' && order[0] != 'M')) {
        return std::nullopt;
    }
    TiffStructure structure(exif, order[0] == 'M', false);
    const std::optional<uint64_t> first = structure.number(4, 4);
    return first ? std::optional(ExifStructure{structure, *first}) : std::nullopt;
}

const TiffStructure::Entry *find(const std::vector<TiffStructure::Entry> &directory, uint32_t tag) {
    const auto found =
        std::find_if(directory.begin(), directory.end(), [tag](const TiffStructure::Entry &entry) { return entry.tag == tag; });
    return found != directory.end() ? &*found : nullptr;
}

} // namespace codec
