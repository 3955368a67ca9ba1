// Inside the codec: the structure that TIFF files and Exif data share, a header and directories of entries. No number in it is
// trusted: a position may be anywhere, and what lies past the end of the bytes does not exist.
#ifndef KO_CODEC_TIFF_STRUCTURE_H
#define KO_CODEC_TIFF_STRUCTURE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "codec/codec.h"

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
        uint64_t size() const { return count * size_of(type); } // of a value whose count has been checked
    };

    struct Directory {
        std::vector<Entry> entries;
        bool whole = true; // false if entries were left out: their values are of an unknown type or extend past the end
    };

    // The structure of bytes that begin with the header of a TIFF file; none if they do not. The input must outlive it. All
    // members throw Error if the input cannot be read.
    static std::optional<TiffStructure> of(Input &input);

    bool big_endian() const { return big_endian_; }
    bool large() const { return large_; } // a BigTIFF file

    // The position of the first directory.
    uint64_t first() const { return first_; }

    // The directory at a position; none if its entries are incomplete.
    std::optional<Directory> directory(uint64_t position);

    // The position of the directory after one; 0 if none follows.
    uint64_t behind(uint64_t position);

    // The number of the given size in bytes, at most 8, at a position.
    std::optional<uint64_t> number(uint64_t position, size_t size);

    // The bytes of a value, in the byte order of the whole.
    Bytes value(const Entry &entry);

  private:
    TiffStructure(Input &input, bool big_endian, bool large);

    size_t count_size() const { return large_ ? 8 : 2; }
    size_t entry_size() const { return large_ ? 20 : 12; }
    size_t offset_size() const { return large_ ? 8 : 4; }

    std::optional<uint64_t> entry_count(uint64_t position);
    std::optional<Entry> entry(std::span<const uint8_t> bytes, uint64_t position);
    uint64_t number_in(std::span<const uint8_t> bytes) const;

    // Reads as many bytes as fit, fewer only at the end.
    size_t read(uint64_t position, std::span<uint8_t> bytes);

    Input &input_;
    uint64_t size_;
    bool big_endian_;
    bool large_;
    uint64_t first_ = 0;
};

// The entry with a tag; null if none has it.
const TiffStructure::Entry *find(const std::vector<TiffStructure::Entry> &entries, uint32_t tag);

} // namespace codec

#endif
