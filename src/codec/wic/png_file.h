// Inside the codec on Windows: the chunks of a PNG file, which the system's codec does not pass on.
#ifndef KO_CODEC_WIC_PNG_FILE_H
#define KO_CODEC_WIC_PNG_FILE_H

#include <string>
#include <string_view>

#include "codec/codec.h"

namespace codec::wic {

// Reads the chunks of a file one after the other. Throws Error for a file that ends within a chunk or before its last one, and
// for a chunk whose checksum is wrong.
class ChunkReader {
  public:
    explicit ChunkReader(Input &input);

    // Goes on to the next chunk; false behind the last.
    bool next();

    const std::string &name() const { return name_; }

    // The bytes of the chunk that was reached; of a large one that does not hold pixels, none: no metadata needs as much.
    const Bytes &bytes() const { return bytes_; }

  private:
    void read(std::span<uint8_t> room);

    Input &input_;
    uint64_t position_;
    std::string name_;
    Bytes bytes_;
};

inline constexpr std::string_view png_signature("\x89PNG\r\n\x1a\n", 8);

// What a chunk's name and bytes are in a file.
Bytes chunk_of(std::string_view name, std::span<const uint8_t> bytes);

// Numbers of a chunk, the most significant byte first; 0 beyond its end.
uint32_t number_at(std::span<const uint8_t> bytes, size_t position);
void add_number(Bytes &bytes, uint32_t value);

// Bytes in the compressed form of a PNG file, but not made smaller: what needs this form, a profile, is small.
Bytes stored(std::span<const uint8_t> bytes);

} // namespace codec::wic

#endif
