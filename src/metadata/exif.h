// Exif data: what the program needs from it, and the few changes that it makes.
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
    std::string software; // that wrote the picture, "" if it is not named
    bool has_thumbnail = false;
    Bytes thumbnail; // a JPEG file, or empty for one of another kind
};

struct ExifChange {
    std::optional<std::string> software = std::nullopt;
    std::optional<Thumbnail> thumbnail = std::nullopt;
    bool drop_thumbnail = false; // if no new one is given
};

// A block without entries.
Bytes empty_exif();

// Reads a block. Throws Error if it is damaged.
Exif read_exif(const Bytes &block);

// Changes in a block only what the change names: all other values are compared before and after, and all of them stay where
// they are. Throws Error if that cannot be done.
Bytes changed_exif(const Bytes &block, const ExifChange &change);

} // namespace metadata

#endif
