#include "codec/exif.h"

#include "codec/tiff_structure.h"

namespace codec {

namespace {

// The entry of the orientation; none if the data has no sensible one.
std::optional<TiffStructure::Entry> orientation_entry(ExifStructure &exif) {
    const auto directory = exif.structure.directory(exif.first);
    const TiffStructure::Entry *entry = directory ? find(*directory, tag::orientation) : nullptr;
    const bool sound = entry != nullptr && entry->type == ValueType::short_number && entry->count == 1;
    return sound ? std::optional(*entry) : std::nullopt;
}

} // namespace

std::optional<uint16_t> exif_orientation(std::span<const uint8_t> exif) {
    MemoryInput input(exif);
    std::optional<ExifStructure> found = exif_structure(input);
    const auto entry = found ? orientation_entry(*found) : std::nullopt;
    const uint64_t value = entry ? found->structure.number(entry->position, 2).value_or(0) : 0;
    return value >= 1 && value <= 8 ? std::optional(static_cast<uint16_t>(value)) : std::nullopt;
}

void set_upright(Bytes &exif) {
    MemoryInput input(exif);
    std::optional<ExifStructure> found = exif_structure(input);
    if (const auto entry = found ? orientation_entry(*found) : std::nullopt) {
        const bool big_endian = found->structure.big_endian();
        exif[entry->position + (big_endian ? 0 : 1)] = 0;
        exif[entry->position + (big_endian ? 1 : 0)] = upright;
    }
}

} // namespace codec
