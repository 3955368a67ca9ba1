// TIFF files and Exif blocks for tests: built value by value, so that a directory may also be wrong, and taken apart again
// without a library, since what a library does not know or repairs would go unseen.
#ifndef KO_TESTS_HOST_TIFF_DIRECTORIES_H
#define KO_TESTS_HOST_TIFF_DIRECTORIES_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ko_test {

// The order of bytes, and whether offsets have 64 bits.
struct TiffForm {
    bool little = true;
    bool large = false;
};

// What a directory says under a tag.
struct TiffValue {
    uint32_t tag = 0;
    uint32_t type = 0;
    std::string bytes = {};                        // of the types whose items are bytes: 1, 2, 6 and 7
    std::vector<uint32_t> numbers = {};            // of others; two for each fraction and each number of 64 bits
    uint64_t at = 0;                               // its position in the file; 0 is anywhere
    std::optional<uint64_t> count = std::nullopt;  // in place of the true one
    std::optional<uint64_t> offset = std::nullopt; // the same
};

using TiffValues = std::vector<TiffValue>;

TiffValue tiff_text(uint32_t tag, const std::string &text); // with a zero byte at its end
TiffValue tiff_bytes_of(uint32_t tag, uint32_t type, const std::string &bytes);
TiffValue tiff_shorts(uint32_t tag, const std::vector<uint32_t> &numbers);
TiffValue tiff_longs(uint32_t tag, const std::vector<uint32_t> &numbers);
TiffValue tiff_fraction(uint32_t tag, uint32_t numerator, uint32_t denominator);

// The directories of a file; an empty one is not written.
struct TiffTree {
    TiffValues first = {};
    TiffValues exif = {};
    TiffValues gps = {};
    TiffValues interoperability = {};
    TiffValues thumbnail = {}; // the second directory
    std::string jpeg = {};     // what it points to by 0x0201 and 0x0202
};

// A block from its byte-order mark on, without pixels.
std::string exif_of_tree(const TiffTree &tree, bool little = true);

// An RGB picture in one strip, with the values beside those that say how it is stored.
struct TiffTreeRecipe {
    TiffForm form = {};
    uint32_t width = 6;
    uint32_t height = 4;
};
std::string tiff_of_tree(const TiffTree &tree, const TiffTreeRecipe &recipe = {});

// Its pixels.
std::vector<uint8_t> tiff_tree_pixels(uint32_t width = 6, uint32_t height = 4);

// A value of a file: its bytes as they are stored, and what they mean.
struct TiffFound {
    uint32_t type = 0;
    uint64_t count = 0;
    uint64_t at = 0;
    std::string bytes = {};
    std::vector<uint32_t> numbers = {}; // as above
};

// The directories of a file or a block; those that it lacks are empty. A position outside the file throws.
using TiffFoundValues = std::map<uint32_t, TiffFound>;
struct TiffFoundTree {
    TiffForm form = {};
    TiffFoundValues first = {};
    TiffFoundValues exif = {};
    TiffFoundValues gps = {};
    TiffFoundValues interoperability = {};
    TiffFoundValues second = {};
};
TiffFoundTree tiff_tree(const std::string &file);

// Each value must be found as it was given, in whatever order of bytes; further ones may be found too.
void expect_values(const TiffFoundValues &found, const TiffValues &values);

} // namespace ko_test

#endif
