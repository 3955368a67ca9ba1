// PNG files in on Windows. The system decodes the pixels; what stands beside them is read here, as the system passes on only
// some of it. Compressed texts, which need a decompressor, are carried packed as they are and into PNG files alone.
#include <algorithm>

#include "codec/formats.h"
#include "codec/left_out.h"
#include "codec/png_chunks.h"
#include "codec/png_texts.h"
#include "codec/wic/frame.h"
#include "codec/wic/png_file.h"

namespace codec {

namespace {

using wic::number_at;

// The fixed part of the header.
struct Header {
    uint32_t width = 0;
    uint32_t height = 0;
    uint8_t depth = 0;
    uint8_t colours = 0; // a sum of the three below

    static constexpr uint8_t palette = 1;
    static constexpr uint8_t rgb = 2;
    static constexpr uint8_t alpha = 4;
};

std::string_view text_of(std::span<const uint8_t> bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

// The part of a text up to the next zero, which is removed with it.
std::string take_part(std::string_view &text) {
    const size_t end = std::min(text.find('\0'), text.size());
    std::string part(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

PngText plain_text(std::string_view bytes) {
    std::string keyword = take_part(bytes);
    return {PngText::Kind::plain, std::move(keyword), std::string(bytes)};
}

// None if its text is compressed.
std::optional<PngText> international_text(std::string_view bytes) {
    PngText text{PngText::Kind::international, take_part(bytes), {}};
    if (bytes.size() < 2 || bytes[0] != 0) {
        return std::nullopt;
    }
    bytes.remove_prefix(2);
    text.language = take_part(bytes);
    text.translated_keyword = take_part(bytes);
    text.text = bytes;
    return text;
}

class PngReader : public Reader {
  public:
    explicit PngReader(Input &input) : input_(input), chunks_(input) {
        read_header();
        while (advance() && chunks_.name() != "IDAT") {
        }
        frame_.emplace(input, GUID_ContainerFormatPng);
        describe();
        fill_metadata();
    }

    void read(uint32_t rows, uint8_t *pixels, uint8_t *alpha) override {
        frame_->read(rows, description_.channels, pixels, description_.has_alpha ? alpha : nullptr);
    }

    void finish(Notices &notices) override {
        while (advance()) {
        }
        fill_metadata();
        if (has_profile_ && description_.metadata.icc_profile.empty()) {
            notices.push_back("the ICC profile is damaged and left out");
        }
        notices.insert(notices.end(), notices_.begin(), notices_.end());
        if (header_.depth == 16) {
            notices.push_back("16 bits per channel reduced to 8");
        }
    }

  private:
    void read_header() {
        if (!chunks_.next() || chunks_.name() != "IHDR" || chunks_.bytes().size() != 13) {
            throw Error("the header is damaged");
        }
        const Bytes &bytes = chunks_.bytes();
        header_ = {number_at(bytes, 0), number_at(bytes, 4), bytes[8], bytes[9]};
        check_size(header_.width, header_.height);
    }

    void describe() {
        if (frame_->width() != header_.width || frame_->height() != header_.height) {
            throw Error("the header is damaged");
        }
        width_ = header_.width;
        height_ = header_.height;
        description_.format = Format::png;
        description_.width = width_;
        description_.height = height_;
        description_.channels = (header_.colours & Header::rgb) != 0 ? 3 : 1;
        description_.has_alpha = (header_.colours & Header::alpha) != 0 || has_transparency_;
        if (has_transparency_ && header_.colours != (Header::palette | Header::rgb) && !frame_->has_alpha()) {
            throw Error("the system cannot decode a PNG file with a transparent colour");
        }
    }

    // Goes on to the next chunk and takes what it says.
    bool advance() {
        if (!chunks_.next()) {
            return false;
        }
        take_chunk(chunks_.name(), chunks_.bytes());
        behind_pixels_ |= chunks_.name() == "IDAT";
        return true;
    }

    void take_chunk(const std::string &name, const Bytes &bytes) {
        if (name == "IDAT" || name == "IEND" || name == "PLTE" || name == "fcTL" || name == "fdAT") {
            return;
        }
        if (name == "tRNS") {
            has_transparency_ = true;
        } else if (name == "iCCP") {
            has_profile_ = true;
        } else if (!take_text(name, bytes) && !take_value(name, bytes)) {
            const bool plain_colours = header_.depth == 8 && (header_.colours & Header::palette) == 0;
            ChunkSorter(plain_colours).add({name, bytes, behind_pixels_}, metadata_, notices_);
        }
    }

    // Texts wait until the chunks that come before them in rank are known.
    bool take_text(const std::string &name, const Bytes &bytes) {
        std::optional<PngText> text;
        if (name == "tEXt") {
            text = plain_text(text_of(bytes));
        } else if (name == "iTXt") {
            text = international_text(text_of(bytes));
        }
        if (text) {
            texts_.push_back(std::move(*text));
        }
        return text.has_value();
    }

    bool take_value(const std::string &name, const Bytes &bytes) {
        PngColours &colours = metadata_.png_colours;
        if (name == "eXIf") {
            metadata_.exif = bytes;
        } else if (name == "gAMA") {
            colours.gamma = static_cast<int32_t>(number_at(bytes, 0));
        } else if (name == "sRGB" && !bytes.empty()) {
            colours.srgb_intent = bytes[0];
        } else if (name == "cHRM") {
            colours.chromaticities.emplace();
            for (size_t i = 0; i < 8; ++i) {
                (*colours.chromaticities)[i] = static_cast<int32_t>(number_at(bytes, 4 * i));
            }
        } else if (name == "pHYs" && bytes.size() == 9) {
            const Density::Unit unit = bytes[8] == 1 ? Density::Unit::metre : Density::Unit::none;
            metadata_.density = {unit, number_at(bytes, 0), number_at(bytes, 4)};
        } else {
            return false;
        }
        return true;
    }

    // With an sRGB chunk, gamma and chromaticities only repeat what it says.
    void fill_metadata() {
        Metadata metadata = metadata_;
        if (has_profile_) {
            metadata.icc_profile = frame_->icc_profile();
        }
        if (metadata.png_colours.srgb_intent) {
            metadata.png_colours.gamma.reset();
            metadata.png_colours.chromaticities.reset();
        }
        for (const PngText &text : texts_) {
            add_text(text, metadata);
        }
        description_.metadata = std::move(metadata);
    }

    Input &input_;
    wic::ChunkReader chunks_;
    Header header_;
    std::optional<wic::DecodedFrame> frame_;
    Metadata metadata_; // what was met so far but for texts and the profile
    std::vector<PngText> texts_;
    Notices notices_;
    bool has_transparency_ = false;
    bool has_profile_ = false;
    bool behind_pixels_ = false;
};

} // namespace

std::unique_ptr<Reader> open_png(Input &input) { return std::make_unique<PngReader>(input); }

} // namespace codec
