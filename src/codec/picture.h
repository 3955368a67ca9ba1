// A picture in a file: what it is, and all that is carried beside its pixels from one file to the next.
//
// Pixels are bytes, gray or RGB, pixel by pixel and row by row without gaps. Alpha is a plane of its own, so that code that
// works on the pixels need not know of it. Metadata is carried, never interpreted: the blocks go out byte for byte as they
// came in.
#ifndef KO_CODEC_PICTURE_H
#define KO_CODEC_PICTURE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace codec {

enum class Format { png, jpeg, tiff, webp, heif };

using Bytes = std::vector<uint8_t>;

// Pixel bytes as the system allocates them: not cleared, so that a size claimed by a short file costs no memory.
using Plane = std::unique_ptr<uint8_t[]>;

// Pixels per unit along x and y; without a unit, the shape of a pixel alone.
struct Density {
    enum class Unit { none, inch, centimetre, metre };
    Unit unit = Unit::none;
    uint32_t x = 1;
    uint32_t y = 1;
};

// What a PNG file says about its colours besides an ICC profile; numbers are 100000 times the real ones.
struct PngColours {
    std::optional<int> srgb_intent;
    std::optional<int32_t> gamma;
    std::optional<std::array<int32_t, 8>> chromaticities; // white, red, green, blue: x before y
};

// An application segment of a JPEG file without its marker and length.
struct JpegSegment {
    int marker = 0;
    Bytes bytes;
};

// A text of a PNG file, in bytes as its chunk has them unpacked: Latin-1, or UTF-8 in an international one.
struct PngText {
    enum class Kind { plain, compressed, international, international_compressed };
    Kind kind = Kind::plain;
    std::string keyword;
    std::string text;
    std::string language = {}; // of an international text, as is the keyword in that language
    std::string translated_keyword = {};

    bool is_international() const { return kind == Kind::international || kind == Kind::international_compressed; }
};

// A PNG chunk that has no field of its own here.
struct PngChunk {
    std::string name;
    Bytes bytes;
    bool behind_pixels = false;
};

struct Metadata {
    Bytes exif; // from the byte-order mark on
    Bytes icc_profile;
    Bytes xmp;                         // one packet, in UTF-8
    Bytes photoshop;                   // image resources, one after the other
    Bytes iptc;                        // IIM records; the image resources hold them too where both came from one block
    std::vector<std::string> comments; // of a JPEG file, in an encoding that it does not state
    std::vector<PngText> png_texts;    // those that are none of the above
    std::optional<Density> density;
    PngColours png_colours;
    std::vector<JpegSegment> jpeg_segments; // those that are none of the above and may stand in a file with other pixels
    std::vector<PngChunk> png_chunks;       // the same
};

// Luminance samples per colour sample along x and y: 1 and 1 is full colour (4:4:4), 2 and 2 is 4:2:0.
struct Subsampling {
    int x = 1;
    int y = 1;
};

// How finely a JPEG file quantises: the 64 steps of luminance and of colours, row by row.
struct JpegQuantisation {
    std::array<uint16_t, 64> luminance{};
    std::array<uint16_t, 64> colours{};
};

// How the rows of a TIFF file are compressed; a compression that is not written is represented by the first of these.
enum class TiffCompression { deflate, lzw, packbits, none };

// A picture without its pixels.
struct Description {
    Format format = Format::png; // of the file that it came from
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t channels = 0; // 1 is gray, 3 is RGB
    bool has_alpha = false;
    bool progressive = false; // JPEG: refined scan by scan
    Subsampling subsampling;
    std::optional<JpegQuantisation> quantisation; // of a JPEG file
    bool lossless = false;                        // WebP: every pixel as it was
    TiffCompression tiff_compression = TiffCompression::deflate;
    Metadata metadata;

    size_t area() const { return size_t{width} * height; }
    size_t row_bytes() const { return size_t{width} * channels; }
};

// A picture with all its pixels.
struct Picture : Description {
    Plane pixels; // width * height * channels bytes
    Plane alpha;  // width * height bytes, or null for a picture without alpha
};

} // namespace codec

#endif
