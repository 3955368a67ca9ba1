// Exif data: what the program asks of it, and the few changes that it makes.
#ifndef KO_METADATA_EXIF_H
#define KO_METADATA_EXIF_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace metadata {

using Bytes = std::vector<uint8_t>;

// Exif data that cannot be read or changed; the text is a clause about it.
class Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Thumbnail {
    Bytes jpeg;
    uint32_t width = 0;
    uint32_t height = 0;
};

// What a block says, from its byte-order mark on.
struct Exif {
    std::string software; // that wrote the picture, "" if it does not say
    bool has_thumbnail = false;
    Bytes thumbnail; // a JPEG file, or empty for one of another kind
};

struct ExifChange {
    std::optional<std::string> software = std::nullopt;
    std::optional<Thumbnail> thumbnail = std::nullopt;
    bool drop_thumbnail = false; // if there is no new one
};

// A block that says nothing.
Bytes empty_exif();

// Reads a block. Throws Error for one that is damaged.
Exif read_exif(const Bytes &block);

// Changes a block, and nothing in it but what the change names: all other values are compared before and after, and all of them
// stay where they are. Throws Error where that cannot be done.
Bytes changed_exif(const Bytes &block, const ExifChange &change);

} // namespace metadata

#endif
