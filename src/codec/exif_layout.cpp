// Where directories and values end up does not matter to a reader, except for maker notes, which may point to places in the
// whole block. They keep their place wherever possible.
#include "codec/exif_layout.h"

#include <algorithm>
#include <array>
#include <span>

namespace codec {

namespace {

using Entry = TiffStructure::Entry;
using Entries = std::vector<Entry>;

constexpr uint32_t tag_interoperability = 40965;
constexpr uint32_t tag_maker_note = 37500;

bool is_among(std::span<const uint32_t> tags, uint32_t tag) { return std::find(tags.begin(), tags.end(), tag) != tags.end(); }

// Lays out a block anew: values and directories one after the other, each directory after what it points to.
class BlockBuilder {
  public:
    explicit BlockBuilder(TiffStructure &source) : source_(source) {}

    ExifLayout build(const Entries &first) {
        bytes_.resize(header_size);
        place_maker_note(first);
        const uint64_t directory = add_directory(first, first_pointers);
        Bytes header(2, static_cast<uint8_t>(source_.big_endian() ? 'M' : 'I'));
        add_number(header, 42, 2);
        add_number(header, directory, 4);
        std::copy(header.begin(), header.end(), bytes_.begin());
        layout_.block = std::move(bytes_);
        return std::move(layout_);
    }

  private:
    static constexpr size_t header_size = 8;
    static constexpr size_t inline_size = 4;
    static constexpr size_t largest = size_t{1} << 20;

    // A place further on would leave little room in the segment of a JPEG file.
    static constexpr size_t furthest_maker_note = size_t{1} << 15;

    static constexpr std::array<uint32_t, 2> first_pointers = {tag::exif_directory, tag::gps_directory};
    static constexpr std::array<uint32_t, 1> exif_pointers = {tag_interoperability};

    void add_number(Bytes &bytes, uint64_t value, size_t size) const {
        for (size_t i = 0; i < size; ++i) {
            bytes.push_back(static_cast<uint8_t>(value >> 8 * (source_.big_endian() ? size - 1 - i : i)));
        }
    }

    bool has_room(uint64_t size) const { return size <= largest - std::min(largest, bytes_.size()); }

    std::optional<TiffStructure::Directory> directory_at(const Entry &pointer) {
        const auto position = pointer.size() == inline_size ? source_.number(pointer.position, inline_size) : std::nullopt;
        return position ? source_.directory(*position) : std::nullopt;
    }

    void place_maker_note(const Entries &first) {
        const Entry *pointer = find(first, tag::exif_directory);
        const auto directory = pointer != nullptr ? directory_at(*pointer) : std::nullopt;
        const Entry *note = directory ? find(directory->entries, tag_maker_note) : nullptr;
        if (note != nullptr && note->position >= header_size && note->position <= furthest_maker_note &&
            has_room(note->size())) {
            bytes_.resize(note->position);
            const Bytes value = source_.value(*note);
            bytes_.insert(bytes_.end(), value.begin(), value.end());
            maker_note_ = note->position;
        }
    }

    // Values and directories begin at even positions.
    size_t add(const Bytes &bytes) {
        bytes_.resize(bytes_.size() + bytes_.size() % 2);
        const size_t position = bytes_.size();
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        return position;
    }

    Bytes number_bytes(uint64_t value) const {
        Bytes bytes;
        add_number(bytes, value, inline_size);
        return bytes;
    }

    // What an entry holds at its end: a short value, or the place of a long one.
    Bytes value_or_place(const Entry &entry) {
        if (entry.tag == tag_maker_note && maker_note_ == entry.position) {
            return number_bytes(*maker_note_);
        }
        Bytes value = source_.value(entry);
        if (entry.size() > inline_size) {
            layout_.moved_maker_note |= entry.tag == tag_maker_note;
            return number_bytes(add(value));
        }
        value.resize(inline_size);
        return value;
    }

    // The directory that an entry points to, without pointers of its own except the one that Exif data has there.
    std::optional<Bytes> place_of_directory(const Entry &pointer) {
        const auto directory = directory_at(pointer);
        layout_.damaged |= !directory || !directory->whole;
        if (!directory) {
            return std::nullopt;
        }
        const bool is_exif = pointer.tag == tag::exif_directory;
        return number_bytes(add_directory(directory->entries,
                                          is_exif ? std::span<const uint32_t>(exif_pointers) : std::span<const uint32_t>()));
    }

    size_t add_directory(const Entries &directory, std::span<const uint32_t> pointers) {
        Bytes entries;
        uint64_t count = 0;
        for (const Entry &entry : directory) {
            if (!has_room(entry.size())) {
                layout_.too_large = true;
                continue;
            }
            const bool leads_on = is_among(pointers, entry.tag);
            if (const auto end = leads_on ? place_of_directory(entry) : value_or_place(entry)) {
                add_number(entries, entry.tag, 2);
                add_number(entries, static_cast<uint32_t>(entry.type), 2);
                add_number(entries, entry.count, 4);
                entries.insert(entries.end(), end->begin(), end->end());
                ++count;
            }
        }
        Bytes bytes;
        add_number(bytes, count, 2);
        bytes.insert(bytes.end(), entries.begin(), entries.end());
        add_number(bytes, 0, 4); // none follows
        return add(bytes);
    }

    TiffStructure &source_;
    Bytes bytes_;
    std::optional<uint64_t> maker_note_; // its position, if it keeps it
    ExifLayout layout_;
};

} // namespace

ExifLayout lay_out_exif(TiffStructure &source, const Entries &first) { return BlockBuilder(source).build(first); }

} // namespace codec
