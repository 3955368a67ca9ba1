// Inside the codec: the formats, and what they share.
#ifndef KO_CODEC_FORMATS_H
#define KO_CODEC_FORMATS_H

#include "codec/codec.h"

namespace codec {

std::unique_ptr<Reader> open_png(Input &input);
std::unique_ptr<Reader> open_jpeg(Input &input, const Reduction &reduction);
std::unique_ptr<Reader> open_tiff(Input &input);
std::unique_ptr<Reader> open_webp(Input &input);
std::unique_ptr<Reader> open_heif(Input &input, const std::string &kind); // kind: as kind_of has it
// level: of the compression, from 1, the fastest, to 9; without one, libpng's default
std::unique_ptr<Writer> create_png(Output &output, const Description &picture, std::optional<int> level, Notices &notices);
std::unique_ptr<Writer> create_jpeg(Output &output, const Description &picture, std::optional<int> quality, Notices &notices);
std::unique_ptr<Writer> create_tiff(Output &output, const Description &picture, Notices &notices);
std::unique_ptr<Writer> create_webp(Output &output, const Description &picture, std::optional<int> quality, Notices &notices);

// As many of the first bytes as recognition needs.
inline constexpr size_t enough_to_recognise = 512;

// Why a file with these first bytes is not read: what it is, if they show that.
std::string refusal_of(std::span<const uint8_t> beginning);

// Which kind of HEIF file has these first bytes: "an AVIF file" or "a HEIC file".
const char *kind_of(std::span<const uint8_t> beginning);

// The notice about this number of further pictures.
std::string further_pictures(uint32_t count);

// A whole file, for decoders that need it in memory.
Bytes read_all(Input &input);

// The size of a file; throws Error if it cannot be found out.
uint64_t size_of(Input &input);

// Refuses pictures over largest_area and those without pixels.
void check_size(uint64_t width, uint64_t height);

// The density in a unit that JPEG has: one per metre becomes one per inch.
Density for_jpeg(const Density &density);
// The density in the unit that PNG has, per metre; without a unit it stays as it is.
Density per_metre(const Density &density);

} // namespace codec

#endif
