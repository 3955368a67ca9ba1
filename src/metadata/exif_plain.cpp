// Where Exiv2 is not packaged: a maker note is one value.
#include "metadata/exif_values.h"

#include <algorithm>

#include "codec/tiff_structure.h"

namespace metadata {

namespace {

using codec::TiffStructure;

constexpr uint32_t tag_software = 0x0131;
constexpr uint32_t tag_thumbnail = 0x0201;
constexpr uint32_t tag_thumbnail_size = 0x0202;
constexpr uint32_t tag_compression = 0x0103;
constexpr uint32_t jpeg = 6;

using Entries = std::vector<TiffStructure::Entry>;

// A block and its structure.
class Block {
  public:
    explicit Block(const Bytes &bytes) : bytes_(bytes), input_(bytes), structure_(TiffStructure::of(input_)) {
        if (!structure_ || !structure_->directory(structure_->first())) {
            throw Error("the Exif data is damaged");
        }
    }

    Entries first() { return entries_at(structure_->first()); }
    Entries second() { return entries_at(structure_->behind(structure_->first())); }

    // Those that an entry of other entries points to.
    Entries below(const Entries &entries, uint32_t tag) {
        const std::optional<uint64_t> position = number_of(entries, tag);
        return position ? entries_at(*position) : Entries();
    }

    std::optional<uint64_t> number_of(const Entries &entries, uint32_t tag) {
        const TiffStructure::Entry *entry = find(entries, tag);
        return entry != nullptr && entry->count > 0 ? structure_->number(entry->position, codec::size_of(entry->type))
                                                    : std::nullopt;
    }

    Bytes value(const TiffStructure::Entry &entry) { return structure_->value(entry); }

    // The bytes of the thumbnail that lie where its entries say; none if it is no JPEG file.
    Bytes thumbnail(const Entries &entries) {
        const uint64_t position = number_of(entries, tag_thumbnail).value_or(0);
        const uint64_t size = number_of(entries, tag_thumbnail_size).value_or(0);
        const bool sound = number_of(entries, tag_compression).value_or(jpeg) == jpeg && position < bytes_.size() &&
                           size <= bytes_.size() - position;
        return sound ? Bytes(bytes_.begin() + static_cast<std::ptrdiff_t>(position),
                             bytes_.begin() + static_cast<std::ptrdiff_t>(position + size))
                     : Bytes();
    }

  private:
    Entries entries_at(uint64_t position) {
        const auto directory = position == 0 ? std::nullopt : structure_->directory(position);
        return directory ? directory->entries : Entries();
    }

    const Bytes &bytes_;
    codec::MemoryInput input_;
    std::optional<TiffStructure> structure_;
};

} // namespace

Exif read_exif(const Bytes &bytes) {
    Block block(bytes);
    Exif exif;
    const Entries first = block.first();
    if (const TiffStructure::Entry *software = find(first, tag_software)) {
        const Bytes text = block.value(*software);
        exif.software.assign(text.begin(), std::find(text.begin(), text.end(), 0));
    }
    const Entries second = block.second();
    exif.has_thumbnail = !second.empty();
    exif.thumbnail = block.thumbnail(second);
    return exif;
}

std::vector<Value> lasting_values(const Bytes &bytes) {
    constexpr uint32_t interoperability = 40965;
    Block block(bytes);
    std::vector<Value> values;
    const auto add = [&](uint32_t directory, const Entries &entries) {
        for (const TiffStructure::Entry &entry : entries) {
            if (directory != 0 || entry.tag != tag_software) {
                values.emplace_back(std::to_string(directory) + "." + std::to_string(entry.tag), block.value(entry));
            }
        }
    };
    const Entries first = block.first();
    add(0, first);
    const Entries exif = block.below(first, codec::tag::exif_directory);
    add(codec::tag::exif_directory, exif);
    add(interoperability, block.below(exif, interoperability));
    add(codec::tag::gps_directory, block.below(first, codec::tag::gps_directory));
    std::sort(values.begin(), values.end());
    return values;
}

} // namespace metadata
