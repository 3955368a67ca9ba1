#include "exif_files.h"

#include <stdexcept>
#include <vector>

namespace ko_test {

namespace {

class Builder {
  public:
    explicit Builder(bool little) : little_(little), block_(2, little ? 'I' : 'M') {
        block_ += number(42, 2);
        block_ += number(8, 4);
    }

    std::string number(uint32_t value, int size) const {
        std::string text;
        for (int i = 0; i < size; ++i) {
            const int shift = 8 * (little_ ? i : size - 1 - i);
            text += static_cast<char>(value >> shift & 0xff);
        }
        return text;
    }

    void add_text(uint32_t tag, uint32_t type, const std::string &text) {
        entries_.push_back({tag, type, static_cast<uint32_t>(text.size()), text});
    }
    void add_short(uint32_t tag, uint32_t value) { entries_.push_back({tag, 3, 1, number(value, 2) + number(0, 2)}); }
    void add_long(uint32_t tag, uint32_t value) { entries_.push_back({tag, 4, 1, number(value, 4)}); }

    size_t size_of_directory() const {
        size_t size = 2 + 12 * entries_.size() + 4;
        for (const Entry &entry : entries_) {
            size += entry.value.size() > 4 ? entry.value.size() + entry.value.size() % 2 : 0;
        }
        return size;
    }

    size_t position() const { return block_.size(); }

    // Writes the directory and what its entries point to.
    void end_directory(uint32_t next) {
        std::string values;
        const size_t behind = block_.size() + 2 + 12 * entries_.size() + 4;
        block_ += number(static_cast<uint32_t>(entries_.size()), 2);
        for (const Entry &entry : entries_) {
            block_ += number(entry.tag, 2) + number(entry.type, 2) + number(entry.count, 4);
            if (entry.value.size() > 4) {
                block_ += number(static_cast<uint32_t>(behind + values.size()), 4);
                values += entry.value + std::string(entry.value.size() % 2, '\0');
            } else {
                block_ += entry.value + std::string(4 - entry.value.size(), '\0');
            }
        }
        block_ += number(next, 4) + values;
        entries_.clear();
    }

    void add_bytes(const std::string &bytes) { block_ += bytes; }

    const std::string &block() const { return block_; }

  private:
    struct Entry {
        uint32_t tag;
        uint32_t type;
        uint32_t count;
        std::string value;
    };

    bool little_;
    std::string block_;
    std::vector<Entry> entries_;
};

uint32_t number_in(const std::string &block, size_t position, size_t size) {
    uint32_t value = 0;
    for (size_t i = 0; i < size; ++i) {
        const size_t at = position + (block.at(0) == 'I' ? size - 1 - i : i);
        value = value << 8 | static_cast<uint8_t>(block.at(at));
    }
    return value;
}

size_t directory_in(const std::string &block, int directory) {
    const uint32_t first = number_in(block, 4, 4);
    return directory == 0 ? first : number_in(block, first + 2 + 12 * number_in(block, first, 2), 4);
}

void add_thumbnail(Builder &builder, const ExifRecipe &recipe) {
    if (recipe.has_thumbnail_size) {
        builder.add_short(0x0100, 1);
        builder.add_short(0x0101, 1);
    }
    builder.add_short(0x0103, recipe.thumbnail_compression);
    if (recipe.thumbnail_orientation) {
        builder.add_short(0x0112, *recipe.thumbnail_orientation);
    }
    const size_t behind = builder.position() + builder.size_of_directory() + 2 * 12;
    builder.add_long(0x0201, static_cast<uint32_t>(behind));
    builder.add_long(0x0202, static_cast<uint32_t>(recipe.thumbnail.size()));
    builder.end_directory(0);
    builder.add_bytes(recipe.thumbnail);
}

} // namespace

std::string exif_file(const ExifRecipe &recipe) {
    Builder builder(recipe.little);
    builder.add_text(0x010f, 2, recipe.make + std::string(1, '\0'));
    if (recipe.orientation) {
        builder.add_short(0x0112, *recipe.orientation);
    }
    if (!recipe.software.empty()) {
        builder.add_text(0x0131, 2, recipe.software + std::string(1, '\0'));
    }
    const size_t exif_at = builder.position() + builder.size_of_directory() + 12;
    builder.add_long(0x8769, static_cast<uint32_t>(exif_at));
    const std::string note = recipe.maker_note.empty() ? "none" : recipe.maker_note;
    const size_t exif_size = 2 + 2 * 12 + 4 + (note.size() > 4 ? note.size() + note.size() % 2 : 0);
    builder.end_directory(recipe.thumbnail.empty() ? 0 : static_cast<uint32_t>(exif_at + exif_size));
    builder.add_text(0x9000, 7, "0230");
    builder.add_text(0x927c, 7, note);
    builder.end_directory(0);
    if (!recipe.thumbnail.empty()) {
        add_thumbnail(builder, recipe);
    }
    builder.add_bytes(recipe.behind);
    return builder.block();
}

std::map<uint32_t, ExifEntry> exif_entries(const std::string &block, int directory) {
    std::map<uint32_t, ExifEntry> entries;
    const size_t position = directory_in(block, directory);
    if (position == 0) {
        return entries;
    }
    for (uint32_t i = 0; i < number_in(block, position, 2); ++i) {
        const size_t entry = position + 2 + 12 * i;
        const uint32_t type = number_in(block, entry + 2, 2);
        const uint32_t count = number_in(block, entry + 4, 4);
        const size_t size = count * (type == 3 ? 2u : type == 4 ? 4u : 1u);
        const size_t at = size > 4 ? number_in(block, entry + 8, 4) : entry + 8;
        if (at + size > block.size()) {
            throw std::out_of_range("an entry points outside of its block");
        }
        entries[number_in(block, entry, 2)] = {type, count, block.substr(at, size)};
    }
    return entries;
}

std::string exif_tags(const std::string &block) {
    std::string tags;
    const size_t position = directory_in(block, 0);
    for (uint32_t i = 0; i < number_in(block, position, 2); ++i) {
        tags.append(i == 0 ? "" : " ").append(std::to_string(number_in(block, position + 2 + 12 * i, 2)));
    }
    return tags;
}

std::string exif_software(const std::string &block) {
    const auto entries = exif_entries(block, 0);
    const auto found = entries.find(0x0131);
    return found == entries.end() ? "" : found->second.bytes.substr(0, found->second.bytes.size() - 1);
}

std::optional<uint32_t> exif_number(const std::string &block, int directory, uint32_t tag) {
    const auto entries = exif_entries(block, directory);
    const auto found = entries.find(tag);
    if (found == entries.end()) {
        return std::nullopt;
    }
    const std::string head = block.substr(0, 1) + found->second.bytes;
    return number_in(head, 1, found->second.type == 3 ? 2 : 4);
}

std::string exif_thumbnail(const std::string &block) {
    const auto position = exif_number(block, 1, 0x0201);
    const auto size = exif_number(block, 1, 0x0202);
    return position && size ? block.substr(*position, *size) : "";
}

} // namespace ko_test
