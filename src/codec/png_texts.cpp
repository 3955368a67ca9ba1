// The keyword for XMP is that of its standard. Binary blocks are stored in the customary form of common programs: a text that
// holds the kind of the block, its length and its bytes in hexadecimal digits.
#include "codec/png_texts.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "codec/extended_xmp.h"
#include "codec/left_out.h"
#include "codec/marks.h"
#include "codec/photoshop.h"

namespace codec {

namespace {

constexpr std::string_view xmp_keyword = "XML:com.adobe.xmp";
constexpr std::string_view raw_profile = "Raw profile type ";

std::optional<uint8_t> digit(char c) {
    uint8_t value = 0;
    const auto [end, error] = std::from_chars(&c, &c + 1, value, 16);
    return error == std::errc() ? std::optional(value) : std::nullopt;
}

bool is_blank(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

std::string_view line_of(std::string_view &text) {
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

std::optional<size_t> number_in(std::string_view line) {
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    size_t value = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), value);
    return error == std::errc() && end == line.data() + line.size() ? std::optional(value) : std::nullopt;
}

// The block in a text; none if the text does not hold one.
Bytes unpacked(std::string_view text) {
    if (!line_of(text).empty()) { // the text begins with the end of a line
        return {};
    }
    line_of(text); // the kind
    const std::optional<size_t> size = number_in(line_of(text));
    Bytes halves;
    for (const char c : text) {
        if (const std::optional<uint8_t> value = digit(c)) {
            halves.push_back(*value);
        } else if (!is_blank(c)) {
            return {};
        }
    }
    if (!size || halves.size() % 2 != 0 || halves.size() / 2 != *size) {
        return {};
    }
    Bytes bytes(*size);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(halves[2 * i] << 4 | halves[2 * i + 1]);
    }
    return bytes;
}

std::string packed(std::string_view kind, std::span<const uint8_t> bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    constexpr size_t bytes_per_line = 36;
    constexpr size_t size_digits = 8;
    const std::string size = std::to_string(bytes.size());
    std::string text = "\n";
    text.append(kind).append("\n");
    text.append(size_digits - std::min(size.size(), size_digits), ' ').append(size);
    for (size_t i = 0; i < bytes.size(); ++i) {
        text += i % bytes_per_line == 0 ? "\n" : "";
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text += '\n';
}

// Removes a mark from the beginning of bytes.
bool take_mark(std::span<const uint8_t> &bytes, std::string_view mark) {
    if (bytes.size() < mark.size() || !std::equal(mark.begin(), mark.end(), bytes.begin())) {
        return false;
    }
    bytes = bytes.subspan(mark.size());
    return true;
}

bool put(std::span<const uint8_t> bytes, Bytes &field) {
    const bool fits = field.empty() && !bytes.empty();
    if (fits) {
        field.assign(bytes.begin(), bytes.end());
    }
    return fits;
}

bool put_resources(std::span<const uint8_t> bytes, Metadata &metadata) {
    constexpr uint8_t record_mark = 0x1c;
    if (!bytes.empty() && bytes.front() == record_mark) {
        return put(bytes, metadata.iptc);
    }
    take_mark(bytes, photoshop_mark);
    if (!metadata.iptc.empty() || !put(bytes, metadata.photoshop)) {
        return false;
    }
    metadata.iptc = iptc_among(bytes);
    return true;
}

// Puts a block of the given kind into its field. False if it is no such block, or the field is taken.
bool put_block(std::string_view kind, std::span<const uint8_t> bytes, Metadata &metadata) {
    if (kind == "exif" || kind == "APP1") {
        return take_mark(bytes, exif_mark) ? put(bytes, metadata.exif) : take_mark(bytes, xmp_mark) && put(bytes, metadata.xmp);
    }
    if (kind == "iptc" || kind == "8bim") {
        return put_resources(bytes, metadata);
    }
    if (kind == "icc" || kind == "icm") {
        return put(bytes, metadata.icc_profile);
    }
    return kind == "xmp" && put(bytes, metadata.xmp);
}

bool put_elsewhere(const PngText &text, Metadata &metadata) {
    if (text.keyword == xmp_keyword && text.is_international()) {
        return put({reinterpret_cast<const uint8_t *>(text.text.data()), text.text.size()}, metadata.xmp);
    }
    return text.keyword.starts_with(raw_profile) &&
           put_block(std::string_view(text.keyword).substr(raw_profile.size()), unpacked(text.text), metadata);
}

bool is_ascii(const std::string &text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// The number of bytes that follow the first one of a character in UTF-8; none for a byte that begins no character.
std::optional<size_t> followers(unsigned char first) {
    if (first < 0x80) {
        return 0;
    }
    if (first >= 0xc2 && first < 0xf5) {
        return first < 0xe0 ? 1 : first < 0xf0 ? 2 : 3;
    }
    return std::nullopt;
}

bool is_utf8(const std::string &text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const std::optional<size_t> more = followers(static_cast<unsigned char>(text[i]));
        if (!more || text.size() - i <= *more) {
            return false;
        }
        for (size_t end = i + *more; i < end; ++i) {
            if ((static_cast<unsigned char>(text[i + 1]) & 0xc0) != 0x80) {
                return false;
            }
        }
    }
    return true;
}

std::string utf8_of_latin1(const std::string &text) {
    std::string utf8;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x80) {
            utf8 += static_cast<char>(0xc0 | byte >> 6);
        }
        utf8 += static_cast<char>(byte >= 0x80 ? 0x80 | (byte & 0x3f) : byte);
    }
    return utf8;
}

// A comment as some programs end it, with a zero, and what follows. A text cannot hold one.
std::string up_to_zero(const std::string &text, const char *what, Notices &notices) {
    const size_t end = text.find('\0');
    if (end != std::string::npos && text.find_first_not_of('\0', end) != std::string::npos) {
        add_once(notices, std::string(what) + " is cut at a zero byte, which a PNG text cannot hold");
    }
    return text.substr(0, end);
}

std::string raw_profile_of(std::string_view kind) { return std::string(raw_profile).append(kind); }

PngText text_of_comment(const std::string &comment) {
    const bool international = !is_ascii(comment) && is_utf8(comment);
    return {international ? PngText::Kind::international : PngText::Kind::plain, comment_keyword, comment};
}

} // namespace

void add_text(PngText text, Metadata &metadata) {
    if (!put_elsewhere(text, metadata)) {
        metadata.png_texts.push_back(std::move(text));
    }
}

std::vector<PngText> texts_to_write(const Metadata &metadata, Notices &notices) {
    std::vector<PngText> texts;
    if (!metadata.xmp.empty()) {
        const Bytes xmp = whole_xmp(metadata);
        const std::string packet(xmp.begin(), xmp.end());
        texts.push_back({PngText::Kind::international, std::string(xmp_keyword), up_to_zero(packet, "the XMP data", notices)});
    }
    if (const Bytes resources = resources_with_iptc(metadata); !resources.empty()) {
        texts.push_back({PngText::Kind::compressed, raw_profile_of("iptc"), packed("iptc", resources)});
    }
    for (const std::string &comment : metadata.comments) {
        texts.push_back(text_of_comment(up_to_zero(comment, "the comment", notices)));
    }
    texts.insert(texts.end(), metadata.png_texts.begin(), metadata.png_texts.end());
    return texts;
}

std::vector<std::string> comments_for_jpeg(const Metadata &metadata) {
    std::vector<std::string> comments = metadata.comments;
    for (const PngText &text : metadata.png_texts) {
        if (text.keyword == comment_keyword) {
            comments.push_back(text.is_international() ? text.text : utf8_of_latin1(text.text));
        }
    }
    return comments;
}

} // namespace codec
