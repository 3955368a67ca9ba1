#include "codec/exif.h"

#include "codec/tiff_structure.h"

namespace codec {

namespace {

// The entry of the orientation; none if the data has no valid one.
std::optional<TiffStructure::Entry> orientation_entry(TiffStructure &exif) {
    const auto directory = exif.directory(exif.first());
    const TiffStructure::Entry *entry = directory ? find(directory->entries, tag::orientation) : nullptr;
    const bool sound = entry != nullptr && entry->type == ValueType::short_number && entry->count == 1;
    return sound ? std::optional(*entry) : std::nullopt;
}

} // namespace

std::optional<uint16_t> exif_orientation(std::span<const uint8_t> exif) {
    MemoryInput input(exif);
    std::optional<TiffStructure> structure = TiffStructure::of(input);
    const auto entry = structure ? orientation_entry(*structure) : std::nullopt;
    const uint64_t value = entry ? structure->number(entry->position, 2).value_or(0) : 0;
    return value >= 1 && value <= 8 ? std::optional(static_cast<uint16_t>(value)) : std::nullopt;
}

bool has_density(std::span<const uint8_t> exif) {
    constexpr uint32_t tag_x_resolution = 282;
    MemoryInput input(exif);
    std::optional<TiffStructure> structure = TiffStructure::of(input);
    const auto directory = structure ? structure->directory(structure->first()) : std::nullopt;
    return directory && find(directory->entries, tag_x_resolution) != nullptr;
}

void set_upright(Bytes &exif) {
    MemoryInput input(exif);
    std::optional<TiffStructure> structure = TiffStructure::of(input);
    if (const auto entry = structure ? orientation_entry(*structure) : std::nullopt) {
        const size_t high = structure->big_endian() ? 0 : 1;
        exif[entry->position + high] = 0;
        exif[entry->position + 1 - high] = upright;
    }
}

} // namespace codec
