// An Exif block that is changed in place. Whatever is not changed stays byte for byte where it was: many maker notes point to
// places in the block, and only their makers know all of these pointers.
#ifndef KO_METADATA_EXIF_BLOCK_H
#define KO_METADATA_EXIF_BLOCK_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "metadata/exif.h"

namespace metadata {

// All members throw Error if the block is damaged; it must not be used afterwards.
class ExifBlock {
  public:
    explicit ExifBlock(Bytes bytes);

    // Names the software: in its old place if the text fits there, otherwise at the end of the block, and with a new entry if
    // it had none.
    void set_software(const std::string &text);

    // Replaces the thumbnail, which must be a JPEG file, in its old place if it fits there, otherwise at the end of the block.
    void set_thumbnail(const Thumbnail &thumbnail);

    // Removes the thumbnail with its directory.
    void drop_thumbnail();

    const Bytes &bytes() const { return bytes_; }

  private:
    struct Directory {
        size_t position;
        uint32_t count;
    };

    static constexpr size_t entry_size = 12;

    uint32_t get(size_t position, size_t size) const;
    void put(size_t position, size_t size, uint32_t value);
    size_t append(const Bytes &bytes);

    Directory directory_at(size_t position) const;
    Directory first() const { return directory_at(get(4, 4)); }
    static size_t entry(const Directory &directory, uint32_t number) { return directory.position + 2 + number * entry_size; }
    static size_t link(const Directory &directory) { return entry(directory, directory.count); }

    // The position of the entry with a tag.
    std::optional<size_t> find(const Directory &directory, uint32_t tag) const;

    std::optional<uint32_t> number_of(const Directory &directory, uint32_t tag) const;
    bool has_room(size_t entry, size_t size) const;
    void set_number(const Directory &directory, uint32_t tag, uint32_t value);
    size_t add_entry(uint32_t tag);
    std::optional<Directory> second() const;
    void cut_end(size_t position, size_t size);

    Bytes bytes_;
    bool little_;
};

} // namespace metadata

#endif
