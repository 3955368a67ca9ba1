// Picture files to rows of pixels and back: PNG, JPEG, TIFF and WebP, and HEIF files to rows alone.
//
// A picture is read and written by rows, so that one of any height passes through little memory. Interlaced PNG files,
// progressive JPEG files, WebP files, and TIFF files in few large parts are the exceptions: their first row needs the whole
// file, and the reader holds what that takes. A WebP file is also written all at once.
#ifndef KO_CODEC_CODEC_H
#define KO_CODEC_CODEC_H

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "codec/picture.h"
#include "codec/stream.h"

namespace codec {

// Why bytes cannot be read or a picture cannot be written: a clause in lower case, without the name of the file.
class Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What was changed or left out without being a failure, in the same form as an error's text.
using Notices = std::vector<std::string>;

// Larger pictures are refused before memory is allocated for their pixels.
inline constexpr uint64_t largest_area = 250'000'000;

inline constexpr int default_quality = 92;
inline constexpr int default_webp_quality = 90;

// "PNG", "JPEG" and so on.
const char *name(Format format);

// HEIF files, HEIC and AVIF, are only read.
constexpr bool is_written(Format format) { return format != Format::heif; }

// The format that the first bytes show, whatever the name of the file.
std::optional<Format> recognise(std::span<const uint8_t> bytes);

// ---- reading

// The rows of one picture, from the top.
class Reader {
  public:
    virtual ~Reader() = default;
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    // The picture. Of its metadata, what stands before the pixels; all of it after finish().
    const Description &description() const { return description_; }

    // The size of the rows that are delivered: the picture's, or that of the reduced picture.
    uint32_t width() const { return width_; }
    uint32_t height() const { return height_; }

    // Reads the next rows.
    //   pixels   rows * width() * channels bytes
    //   alpha    rows * width() bytes; null leaves alpha out
    virtual void read(uint32_t rows, uint8_t *pixels, uint8_t *alpha) = 0;

    // Reads the file to its end after the last row, and adds the notices of the reading.
    virtual void finish(Notices &notices) = 0;

  protected:
    Reader() = default;

    Description description_;
    uint32_t width_ = 0;
    uint32_t height_ = 0;
};

// A picture that may be delivered reduced to a half, a quarter or an eighth of its size each way: to the smallest of these with
// at least the given number of pixels each way. JPEG files are reduced, and decoded the faster for it.
struct Reduction {
    uint32_t width = UINT32_MAX;
    uint32_t height = UINT32_MAX;
};

// Begins to read a picture; the input must outlive the reader. Truncated and damaged files, and colours other than gray, RGB
// and CMYK with a profile, are errors, here or later.
std::unique_ptr<Reader> open(Input &input, const Reduction &reduction = {});

// The rows of a picture in memory, which must outlive the reader.
std::unique_ptr<Reader> rows_of(const Picture &picture);

// Reads a whole picture.
Picture read(Input &input, Notices &notices);
Picture decode(std::span<const uint8_t> bytes, Notices &notices);

// ---- writing

struct Encoding {
    Format format = Format::png;
    // 1 to 100. Without one a JPEG file has that of the JPEG file that the picture came from, a WebP file is lossless if the
    // picture came from such a file, and others have the default.
    std::optional<int> quality;
};

// Takes the rows of one picture, from the top.
class Writer {
  public:
    virtual ~Writer() = default;
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;

    // Writes the next rows; if the picture or the format has no alpha, alpha is not read.
    virtual void write(uint32_t rows, const uint8_t *pixels, const uint8_t *alpha) = 0;

    // Ends the file after the last row, and adds the notices of the writing.
    virtual void finish(Notices &notices) = 0;

  protected:
    Writer() = default;
};

// Begins to write a picture; output and description must outlive the writer. Adds a notice for what the format cannot hold.
std::unique_ptr<Writer> create(Output &output, const Description &picture, const Encoding &encoding, Notices &notices);

// Writes a whole picture.
Bytes encode(const Picture &picture, const Encoding &encoding, Notices &notices);

} // namespace codec

#endif
