// PNG and JPEG files for tests: built piece by piece, so that every kind of file can be made, and taken apart independently of
// the codec.
#ifndef KO_TESTS_HOST_IMAGE_FILES_H
#define KO_TESTS_HOST_IMAGE_FILES_H

#include <array>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace ko_test {

// Sample c of pixel (x, y).
using Sample = std::function<uint32_t(uint32_t x, uint32_t y, uint32_t c)>;

// Pixels as a file gives them: width * height * channels bytes.
struct Pixels {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t channels = 0;
    std::vector<uint8_t> bytes;

    bool operator==(const Pixels &) const = default;
    friend std::ostream &operator<<(std::ostream &stream, const Pixels &pixels);
};

// Type and data of a PNG chunk.
using Chunk = std::pair<std::string, std::string>;

// The PNG colour types.
enum PngColour { png_gray = 0, png_rgb = 2, png_palette = 3, png_gray_alpha = 4, png_rgba = 6 };

struct PngRecipe {
    uint32_t width = 8;
    uint32_t height = 8;
    int depth = 8;
    int colour = png_rgb;
    bool interlaced = false;
    std::vector<Chunk> before = {}; // chunks between IHDR and the pixels
    std::vector<Chunk> after = {};  // chunks between the pixels and IEND
};

// As PNG chunks pack what they hold; unpacked is at most a mebibyte.
std::string deflated(const std::string &text);
std::string inflated(const std::string &text);

std::string big_endian(uint32_t value);
std::string png_chunk(const std::string &type, const std::string &data);
std::string png_header(uint32_t width, uint32_t height, int depth, int colour, int interlace);
std::string png_file(const PngRecipe &recipe, const Sample &sample);
std::vector<Chunk> png_chunks(const std::string &file);

// The data of the first chunk of a type, "" without one.
std::string png_chunk_data(const std::string &file, const std::string &type);

// The pixels as they are stored in the file, at 8 bits.
Pixels png_pixels(const std::string &file);

// Marker (0xe1 is APP1) and data of a JPEG segment.
using Segment = std::pair<int, std::string>;

// The quantisation steps of a component of a JPEG file, row by row.
using JpegTable = std::array<uint16_t, 64>;

enum class JpegColour { gray, ycc, rgb, cmyk, ycck, two_unknown };

struct JpegRecipe {
    uint32_t width = 16;
    uint32_t height = 16;
    JpegColour colour = JpegColour::ycc;
    int sampling_x = 1; // of the luminance
    int sampling_y = 1;
    std::array<int, 2> colour_sampling_x = {1, 1};
    std::array<int, 2> colour_sampling_y = {1, 1};
    int quality = 92;
    std::vector<JpegTable> tables = {}; // one for each component, in place of those of the quality
    bool progressive = false;
    bool two_scans = false; // gray and progressive: final low frequencies first, then final high ones
    int density_unit = -1;  // -1 writes no JFIF segment
    int density_x = 1;
    int density_y = 1;
    std::vector<Segment> segments = {};
};

std::string jpeg_file(const JpegRecipe &recipe, const Sample &sample);

// The segments up to the first scan.
std::vector<Segment> jpeg_segments(const std::string &file);

// The data of the first segment with a marker and a beginning, "" without one.
std::string jpeg_segment(const std::string &file, int marker, const std::string &beginning = "");

// The sampling factors of the components, such as "22 11 11" for 4:2:0.
std::string jpeg_sampling(const std::string &file);

// Quantisation factor of the lowest luminance frequency, which indicates the quality.
int jpeg_first_factor(const std::string &file);

// The quantisation tables of the components.
std::vector<JpegTable> jpeg_tables(const std::string &file);

bool jpeg_is_progressive(const std::string &file);

// The pixels; with a divisor of 2, 4 or 8, of the picture decoded that much smaller.
Pixels jpeg_pixels(const std::string &file, unsigned int divisor = 1);

// An ICC profile that libpng accepts, for "RGB " or "GRAY", of at least size bytes.
std::string icc_profile(const std::string &space, uint32_t size);

// The segments that carry an ICC profile in a JPEG file, and the profile put together again.
std::vector<Segment> icc_segments(const std::string &profile);
std::string jpeg_icc_profile(const std::string &file);

// A block that passes for Exif data.
std::string exif_block(size_t size);

} // namespace ko_test

#endif
