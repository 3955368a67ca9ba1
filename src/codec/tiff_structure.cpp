#include "codec/tiff_structure.h"

#include <algorithm>
#include <array>

#include "codec/formats.h"

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

TiffStructure::TiffStructure(Input &input, bool big_endian, bool large)
    : input_(input), size_(size_of(input)), big_endian_(big_endian), large_(large) {}

std::optional<TiffStructure> TiffStructure::of(Input &input) {
    constexpr uint64_t classic = 42;
    constexpr uint64_t big = 43;
    TiffStructure structure(input, false, false);
    std::array<uint8_t, 2> order{};
    structure.read(0, order);
    structure.big_endian_ = order[0] == 'M';
    const std::optional<uint64_t> version = structure.number(2, 2);
    structure.large_ = version == big;
    const std::optional<uint64_t> first = structure.large_ ? structure.number(8, 8) : structure.number(4, 4);
    const bool has_order = order[0] == order[1] && (order[0] == 'I' || order[0] == 'M');
    if (!has_order || (version != classic && version != big) || !first) {
        return std::nullopt;
    }
    structure.first_ = *first;
    return structure;
}

size_t TiffStructure::read(uint64_t position, std::span<uint8_t> bytes) {
    const std::optional<size_t> count = input_.read(position, bytes);
    if (!count) {
        throw Error(input_.failure());
    }
    return *count;
}

std::optional<uint64_t> TiffStructure::number(uint64_t position, size_t size) {
    std::array<uint8_t, 8> room{};
    const std::span<uint8_t> bytes(room.data(), size);
    return read(position, bytes) == size ? std::optional(number_in(bytes)) : std::nullopt;
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
    const auto type = static_cast<ValueType>(number_in(bytes.subspan(2, 2)));
    const uint64_t count = number_in(bytes.subspan(4, offset_size()));
    if (size_of(type) == 0 || count > size_ / size_of(type)) {
        return std::nullopt;
    }
    const size_t value_at = 4 + offset_size();
    Entry entry{static_cast<uint32_t>(number_in(bytes.first(2))), type, count, position + value_at};
    if (entry.size() > offset_size()) {
        entry.position = number_in(bytes.subspan(value_at));
    }
    const bool inside = entry.position <= size_ && entry.size() <= size_ - entry.position;
    return inside ? std::optional(entry) : std::nullopt;
}

std::optional<TiffStructure::Directory> TiffStructure::directory(uint64_t position) {
    const std::optional<uint64_t> count = entry_count(position);
    Bytes bytes(count.value_or(0) * entry_size());
    const uint64_t first = position + count_size();
    if (!count || read(first, bytes) != bytes.size()) {
        return std::nullopt;
    }
    Directory directory;
    for (size_t at = 0; at < bytes.size(); at += entry_size()) {
        if (const auto found = entry(std::span(bytes).subspan(at, entry_size()), first + at)) {
            directory.entries.push_back(*found);
        } else {
            directory.whole = false;
        }
    }
    return directory;
}

Bytes TiffStructure::value(const Entry &entry) {
    Bytes bytes(entry.size());
    bytes.resize(read(entry.position, bytes));
    return bytes;
}

const TiffStructure::Entry *find(const std::vector<TiffStructure::Entry> &entries, uint32_t tag) {
    const auto found =
        std::find_if(entries.begin(), entries.end(), [tag](const TiffStructure::Entry &entry) { return entry.tag == tag; });
    return found != entries.end() ? &*found : nullptr;
}

} // namespace codec
