// Exif blocks for tests: built field by field, and read again independently of the program.
#ifndef KO_TESTS_HOST_EXIF_FILES_H
#define KO_TESTS_HOST_EXIF_FILES_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace ko_test {

struct ExifRecipe {
    bool little = false;
    std::string make = "Camera works";
    std::string software = "";               // none if it is empty
    std::optional<uint32_t> orientation = 6; // of the picture
    std::string maker_note = "";             // none if it is empty
    std::string thumbnail = "";              // none if it is empty
    std::optional<uint32_t> thumbnail_orientation = std::nullopt;
    bool has_thumbnail_size = false; // tags with width and height, both 1
    uint32_t thumbnail_compression = 6;
    std::string behind = ""; // bytes after all that the block points to
};

std::string exif_file(const ExifRecipe &recipe);

// An entry of a directory: its value, as the block has it.
struct ExifEntry {
    uint32_t type = 0;
    uint32_t count = 0;
    std::string bytes;
};

// The entries of one of the two directories that a block's header leads to.
std::map<uint32_t, ExifEntry> exif_entries(const std::string &block, int directory);

// The tags of the first directory, in their order.
std::string exif_tags(const std::string &block);

// The name of the software, "" without one.
std::string exif_software(const std::string &block);

// A number of one of the two directories; none without one.
std::optional<uint32_t> exif_number(const std::string &block, int directory, uint32_t tag);

// The thumbnail's bytes, "" without one.
std::string exif_thumbnail(const std::string &block);

} // namespace ko_test

#endif
