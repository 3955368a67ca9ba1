// PNG and JPEG bytes to a picture and back.
#ifndef KO_CODEC_CODEC_H
#define KO_CODEC_CODEC_H

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "codec/picture.h"

namespace codec {

// Why bytes cannot be read or a picture cannot be written: a clause in lower case without the file's name.
class Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What was changed or left out without being a failure, in the same form as an error's text.
using Notices = std::vector<std::string>;

// Larger pictures are refused before their pixels are asked for.
inline constexpr uint64_t largest_area = 250'000'000;

inline constexpr int default_quality = 92;

// "PNG" or "JPEG".
const char *name(Format format);

// The format that the bytes begin as, whatever their file is called.
std::optional<Format> recognise(std::span<const uint8_t> bytes);

// Decodes a whole file. Truncated and damaged files, and colours other than gray and RGB, are errors.
Picture decode(std::span<const uint8_t> bytes, Notices &notices);

// Encodes a picture. quality, 1 to 100, counts for JPEG alone; JPEG has no room for alpha, which is told.
Bytes encode(const Picture &picture, Format format, int quality, Notices &notices);

} // namespace codec

#endif
