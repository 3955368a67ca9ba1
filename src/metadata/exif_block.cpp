// A block is a TIFF file without a picture: a header, and directories whose entries hold a tag, a type, a count, and the value
// or its position. The first directory links to a second one, which describes the thumbnail.
#include "metadata/exif_block.h"

#include <algorithm>

namespace metadata {

namespace {

constexpr uint32_t tag_width = 0x0100;
constexpr uint32_t tag_height = 0x0101;
constexpr uint32_t tag_orientation = 0x0112;
constexpr uint32_t tag_software = 0x0131;
constexpr uint32_t tag_thumbnail = 0x0201;
constexpr uint32_t tag_thumbnail_size = 0x0202;

constexpr uint32_t type_ascii = 2;
constexpr uint32_t type_short = 3;
constexpr uint32_t type_long = 4;

constexpr uint32_t most_entries = 0xffff; // of a directory
constexpr size_t inline_size = 4;         // of a value that is held in its entry

} // namespace

Bytes empty_exif() { return {'I', 'I', 42, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0}; }

ExifBlock::ExifBlock(Bytes bytes) : bytes_(std::move(bytes)), little_(!bytes_.empty() && bytes_[0] == 'I') {
    const uint32_t order = get(0, 2);
    if ((order != 0x4949 && order != 0x4d4d) || get(2, 2) != 42) {
        throw Error("the Exif data is damaged");
    }
}

void ExifBlock::set_software(const std::string &text) {
    const std::optional<size_t> old = find(first(), tag_software);
    const size_t entry = old ? *old : add_entry(tag_software);
    Bytes value(text.begin(), text.end());
    value.push_back(0);
    size_t position = entry + 8;
    if (value.size() > inline_size) {
        position = has_room(entry, value.size()) ? get(entry + 8, 4) : append(Bytes(value.size()));
        put(entry + 8, 4, static_cast<uint32_t>(position));
    }
    std::copy(value.begin(), value.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(position));
    put(entry + 2, 2, type_ascii);
    put(entry + 4, 4, static_cast<uint32_t>(value.size()));
}

void ExifBlock::set_thumbnail(const Thumbnail &thumbnail) {
    const std::optional<Directory> directory = second();
    const auto old_position = directory ? number_of(*directory, tag_thumbnail) : std::nullopt;
    const auto old_size = directory ? number_of(*directory, tag_thumbnail_size) : std::nullopt;
    if (!old_position || !old_size || *old_position > bytes_.size() || *old_size > bytes_.size() - *old_position) {
        throw Error("the Exif data has no thumbnail to replace");
    }
    const auto old = bytes_.begin() + static_cast<std::ptrdiff_t>(*old_position);
    std::fill(old, old + static_cast<std::ptrdiff_t>(*old_size), uint8_t{0});
    size_t position = *old_position;
    if (thumbnail.jpeg.size() <= *old_size) {
        std::copy(thumbnail.jpeg.begin(), thumbnail.jpeg.end(), old);
    } else {
        cut_end(*old_position, *old_size);
        position = append(thumbnail.jpeg);
    }
    set_number(*directory, tag_thumbnail, static_cast<uint32_t>(position));
    set_number(*directory, tag_thumbnail_size, static_cast<uint32_t>(thumbnail.jpeg.size()));
    set_number(*directory, tag_width, thumbnail.width);
    set_number(*directory, tag_height, thumbnail.height);
    set_number(*directory, tag_orientation, number_of(first(), tag_orientation).value_or(1));
}

void ExifBlock::drop_thumbnail() {
    const std::optional<Directory> directory = second();
    if (!directory) {
        return;
    }
    const auto position = number_of(*directory, tag_thumbnail);
    const auto size = number_of(*directory, tag_thumbnail_size);
    put(link(first()), 4, 0);
    if (position && size) {
        cut_end(*position, *size);
    }
}

uint32_t ExifBlock::get(size_t position, size_t size) const {
    if (position > bytes_.size() || size > bytes_.size() - position) {
        throw Error("the Exif data is damaged");
    }
    uint32_t value = 0;
    for (size_t i = 0; i < size; ++i) {
        value = value << 8 | bytes_[position + (little_ ? size - 1 - i : i)];
    }
    return value;
}

void ExifBlock::put(size_t position, size_t size, uint32_t value) {
    get(position, size); // it is inside
    for (size_t i = 0; i < size; ++i) {
        bytes_[position + (little_ ? i : size - 1 - i)] = static_cast<uint8_t>(value >> 8 * i);
    }
}

// Values and directories begin at even positions.
size_t ExifBlock::append(const Bytes &bytes) {
    bytes_.resize(bytes_.size() + bytes_.size() % 2);
    const size_t position = bytes_.size();
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return position;
}

ExifBlock::Directory ExifBlock::directory_at(size_t position) const {
    const Directory directory{position, get(position, 2)};
    get(link(directory) - 1, 1); // all entries are inside
    return directory;
}

std::optional<size_t> ExifBlock::find(const Directory &directory, uint32_t tag) const {
    for (uint32_t i = 0; i < directory.count; ++i) {
        if (get(entry(directory, i), 2) == tag) {
            return entry(directory, i);
        }
    }
    return std::nullopt;
}

// A number that is held in its entry.
std::optional<uint32_t> ExifBlock::number_of(const Directory &directory, uint32_t tag) const {
    const std::optional<size_t> entry = find(directory, tag);
    if (!entry || get(*entry + 4, 4) != 1) {
        return std::nullopt;
    }
    const uint32_t type = get(*entry + 2, 2);
    return type == type_short || type == type_long ? std::optional(get(*entry + 8, type == type_short ? 2 : 4)) : std::nullopt;
}

// True if the text of an entry is inside the block and has at least the given length.
bool ExifBlock::has_room(size_t entry, size_t size) const {
    const size_t room = get(entry + 2, 2) == type_ascii ? get(entry + 4, 4) : 0;
    const size_t position = get(entry + 8, 4);
    return room > inline_size && room >= size && position <= bytes_.size() && room <= bytes_.size() - position;
}

// Sets a number that the directory has; a short one that does not suffice becomes a long one.
void ExifBlock::set_number(const Directory &directory, uint32_t tag, uint32_t value) {
    if (!number_of(directory, tag)) {
        return;
    }
    const size_t entry = *find(directory, tag);
    if (value > 0xffff) {
        put(entry + 2, 2, type_long);
    }
    put(entry + 8, get(entry + 2, 2) == type_short ? 2 : 4, value);
}

// A directory has no room for one more entry: it is laid out anew at the end of the block, and the header then points there.
size_t ExifBlock::add_entry(uint32_t tag) {
    const Directory old = first();
    if (old.count == most_entries) {
        throw Error("the Exif data has no room for another entry");
    }
    uint32_t before = 0;
    while (before < old.count && get(entry(old, before), 2) < tag) {
        ++before;
    }
    const bool has_link = link(old) + 4 <= bytes_.size();
    const uint32_t next = has_link ? get(link(old), 4) : 0;
    const auto at = [this](size_t position) { return bytes_.begin() + static_cast<std::ptrdiff_t>(position); };
    Bytes entries(at(entry(old, 0)), at(link(old)));
    entries.insert(entries.begin() + static_cast<std::ptrdiff_t>(before * entry_size), entry_size, uint8_t{0});
    const size_t position = append(Bytes(2));
    bytes_.insert(bytes_.end(), entries.begin(), entries.end());
    bytes_.resize(bytes_.size() + 4);
    const Directory fresh{position, old.count + 1};
    put(position, 2, fresh.count);
    put(entry(fresh, before), 2, tag);
    put(link(fresh), 4, next);
    put(4, 4, static_cast<uint32_t>(position));
    return entry(fresh, before);
}

std::optional<ExifBlock::Directory> ExifBlock::second() const {
    const size_t next = link(first());
    const uint32_t position = next + 4 <= bytes_.size() ? get(next, 4) : 0;
    return position != 0 ? std::optional(directory_at(position)) : std::nullopt;
}

// Removes bytes that nothing points to any more, if they are at the end of the block.
void ExifBlock::cut_end(size_t position, size_t size) {
    if (position <= bytes_.size() && size == bytes_.size() - position) {
        bytes_.resize(position);
    }
}

} // namespace metadata
