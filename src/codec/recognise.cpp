// Distinguishes files by their first bytes: the formats that are read, and those for which a refusal can give a better reason
// than "unknown".
#include <algorithm>
#include <array>
#include <string_view>

#include "codec/codec.h"
#include "codec/formats.h"

namespace codec {

namespace {

using namespace std::string_view_literals;

std::string_view text_of(std::span<const uint8_t> bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

// True if the bytes have a text at an offset.
bool has(std::string_view bytes, size_t offset, std::string_view text) {
    return bytes.size() >= offset && bytes.substr(offset).starts_with(text);
}

// The brands of a file made of boxes, each of four letters: what it is, and what else it can be read as.
class Brands {
  public:
    explicit Brands(std::string_view bytes) {
        if (has(bytes, 4, "ftyp") && bytes.size() >= 12) {
            const auto byte = [bytes](size_t i) { return static_cast<uint8_t>(bytes[i]); };
            const size_t size = size_t{byte(0)} << 24 | size_t{byte(1)} << 16 | size_t{byte(2)} << 8 | byte(3);
            brands_ = bytes.substr(0, std::max<size_t>(size, 12));
        }
    }

    bool some() const { return !brands_.empty(); }

    bool include(std::string_view brand) const {
        for (size_t i = 8; i + 4 <= brands_.size(); i += i == 8 ? 8 : 4) { // the second four bytes are a version
            if (has(brands_, i, brand)) {
                return true;
            }
        }
        return false;
    }

    bool include_one_of(std::initializer_list<std::string_view> brands) const {
        return std::any_of(brands.begin(), brands.end(), [this](std::string_view brand) { return include(brand); });
    }

  private:
    std::string_view brands_;
};

bool is_avif(const Brands &brands) { return brands.include_one_of({"avif", "avis"}); }

bool is_heif(const Brands &brands) {
    return is_avif(brands) || brands.include_one_of({"heic", "heix", "heim", "heis", "hevc", "hevx", "mif1", "msf1"});
}

constexpr std::string_view canon_raw = "II*\0\x10\0\0\0CR"sv; // a TIFF file as far as it goes

bool is_tiff(std::string_view bytes) {
    const bool has_mark = has(bytes, 0, "II*\0"sv) || has(bytes, 0, "MM\0*"sv) || has(bytes, 0, "II+\0"sv) ||
                          has(bytes, 0, "MM\0+"sv); // the last two for files over 4 GiB
    return has_mark && !has(bytes, 0, canon_raw);
}

// A kind of file that is not read, recognised by a mark at an offset.
struct Stranger {
    size_t offset;
    std::string_view mark;
    const char *name;
};

constexpr Stranger strangers[] = {
    {0, "GIF87a", "a GIF file"},
    {0, "GIF89a", "a GIF file"},
    {0, "8BPS", "a Photoshop file"},
    {0, "\0\0\0\x0cjP  \r\n\x87\n"sv, "a JPEG 2000 file"},
    {0, "\xff\x4f\xff\x51", "a JPEG 2000 file"},
    {0, "\0\0\0\x0cJXL \r\n\x87\n"sv, "a JPEG XL file"},
    {0, "\xff\x0a", "a JPEG XL file"},
    {0, "%PDF-", "a PDF file"},
    {0, "%!PS", "a PostScript file"},
    {0, canon_raw, "a camera raw file"},
    {0, "IIRO", "a camera raw file"},
    {0, "IIRS", "a camera raw file"},
    {0, "MMOR", "a camera raw file"},
    {0, "IIU\0"sv, "a camera raw file"},
    {0, "FUJIFILMCCD-RAW", "a camera raw file"},
    {0, "\0MRM"sv, "a camera raw file"},
    {0, "FOVb", "a camera raw file"},
    {4, "moov", "a video"},
    {4, "mdat", "a video"},
    {0, "\x1a\x45\xdf\xa3", "a video"},
    {8, "AVI ", "a video"},
    {0, "gimp xcf", "a GIMP file"},
    {0, "v/1\x01", "an OpenEXR file"},
    {0, "#?RADIANCE", "a Radiance file"},
    {0, "\0\0\1\0"sv, "an icon file"},
    {0, "PK\3\4", "a ZIP archive"},
};

// Two letters are few, so the rest of the header must make sense.
bool is_bmp(std::string_view bytes) {
    return has(bytes, 0, "BM") && has(bytes, 6, "\0\0\0\0"sv) && bytes.size() > 14 &&
           "\x0c\x28\x34\x38\x40\x6c\x7c"sv.find(bytes[14]) != std::string_view::npos;
}

bool is_text(std::string_view bytes) {
    return std::none_of(bytes.begin(), bytes.end(), [](char c) {
        const auto byte = static_cast<uint8_t>(c);
        return byte == 0x7f || (byte < 0x20 && c != '\t' && c != '\n' && c != '\r' && c != '\f');
    });
}

// Null if the bytes do not show it.
const char *name_of(std::string_view bytes) {
    const auto *found = std::find_if(std::begin(strangers), std::end(strangers),
                                     [bytes](const Stranger &stranger) { return has(bytes, stranger.offset, stranger.mark); });
    if (found != std::end(strangers) && (found->offset == 0 || !is_text(bytes))) {
        return found->name;
    }
    if (const Brands brands(bytes); brands.some()) {
        return brands.include("crx ") ? "a camera raw file" : "a video";
    }
    return is_bmp(bytes) ? "a BMP file" : nullptr;
}

} // namespace

std::optional<Format> recognise(std::span<const uint8_t> bytes) {
    const std::string_view text = text_of(bytes);
    if (has(text, 0, "\x89PNG\r\n\x1a\n")) {
        return Format::png;
    }
    if (has(text, 0, "\xff\xd8\xff")) {
        return Format::jpeg;
    }
    if (is_tiff(text)) {
        return Format::tiff;
    }
    if (has(text, 0, "RIFF") && has(text, 8, "WEBP")) {
        return Format::webp;
    }
    if (is_heif(Brands(text))) {
        return Format::heif;
    }
    return std::nullopt;
}

const char *kind_of(std::span<const uint8_t> beginning) {
    return is_avif(Brands(text_of(beginning))) ? "an AVIF file" : "a HEIC file";
}

std::string refusal_of(std::span<const uint8_t> bytes) {
    const std::string_view text = text_of(bytes);
    if (const char *name = name_of(text)) {
        return std::string(name) + ", which cannot be read";
    }
    if (is_text(text)) {
        const bool is_svg = text.find("<svg") != std::string_view::npos;
        return is_svg ? "an SVG file, which cannot be read" : "a text file, not a picture";
    }
    return "not in a format that ko can read";
}

} // namespace codec
