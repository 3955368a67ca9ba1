// Inside the codec: the structure that TIFF files and Exif data share, a header and directories of entries. No number in it is
// trusted: a place may lie anywhere, and what lies behind the end of the bytes does not exist.
#ifndef KO_CODEC_TIFF_STRUCTURE_H
#define KO_CODEC_TIFF_STRUCTURE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "codec/stream.h"

namespace codec {

// The tags that more than one source file names.
namespace tag {
inline constexpr uint32_t orientation = 274;
inline constexpr uint32_t exif_directory = 34665;
inline constexpr uint32_t gps_directory = 34853;
} // namespace tag

// The kinds of values that a directory names; the numbers are those in the file.
enum class ValueType : uint32_t {
    byte = 1,
    ascii,
    short_number,
    long_number,
    rational,
    signed_byte,
    undefined,
    signed_short,
    signed_long,
    signed_rational,
    real,
    double_real,
    directory
};

// The bytes of one value of a type; 0 for a type that is not among those above.
size_t size_of(ValueType type);

class TiffStructure {
  public:
    struct Entry {
        uint32_t tag;
        ValueType type;
        uint64_t count;
        uint64_t position;                                      // of the value
        uint64_t size() const { return count * size_of(type); } // of a value that count has been checked for
    };

    // The input must outlive this.
    //   large   a BigTIFF file
    TiffStructure(Input &input, bool big_endian, bool large) : input_(input), big_endian_(big_endian), large_(large) {}

    bool big_endian() const { return big_endian_; }

    // The entries of the directory at a position, without those whose values are of an unknown type or reach behind the end of
    // the bytes. None if not even the entries are whole.
    std::optional<std::vector<Entry>> directory(uint64_t position);

    // Where the directory behind one stands; 0 if none follows.
    uint64_t behind(uint64_t position);

    // The number of so many bytes, at most 8, at a position.
    std::optional<uint64_t> number(uint64_t position, size_t size);

    // The bytes of a value, in the byte order of the whole.
    Bytes value(const Entry &entry);

  private:
    size_t count_size() const { return large_ ? 8 : 2; }
    size_t entry_size() const { return large_ ? 20 : 12; }
    size_t offset_size() const { return large_ ? 8 : 4; }

    std::optional<uint64_t> entry_count(uint64_t position);
    std::optional<Entry> entry(std::span<const uint8_t> bytes, uint64_t position);
    uint64_t number_in(std::span<const uint8_t> bytes) const;

    Input &input_;
    bool big_endian_;
    bool large_;
};

// The structure of Exif data, with the position of its first directory.
struct ExifStructure {
    TiffStructure structure;
    uint64_t first;
};

// None if the bytes begin as no Exif data does.
std::optional<ExifStructure> exif_structure(Input &exif);

// The entry with a tag; null if there is none.
const TiffStructure::Entry *find(const std::vector<TiffStructure::Entry> &directory, uint32_t tag);

} // namespace codec

#endif
