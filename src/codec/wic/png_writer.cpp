// PNG files out on Windows. The system encodes the pixels in memory; the file that is written has its chunks of pixels between
// chunks of our own, as the system's would say what the picture does not.
#include <algorithm>

#include "codec/formats.h"
#include "codec/left_out.h"
#include "codec/png_texts.h"
#include "codec/wic/frame.h"
#include "codec/wic/png_file.h"

namespace codec {

namespace {

using wic::add_number;

// The system has no gray with alpha.
uint32_t encoded_channels(const Description &picture) { return picture.has_alpha ? 4 : picture.channels; }

void append(Bytes &bytes, std::string_view text) { bytes.insert(bytes.end(), text.begin(), text.end()); }

class PngWriter : public Writer {
  public:
    PngWriter(Output &output, const Description &picture, Notices &notices)
        : output_(output), picture_(picture),
          frame_(GUID_ContainerFormatPng, picture.width, picture.height, encoded_channels(picture), {}),
          texts_(texts_to_write(picture.metadata, notices)) {
        if (picture.has_alpha && picture.channels == 1) {
            notices.push_back("gray with alpha is written as RGB with alpha");
        }
        tell_left_out(picture.metadata, {.xmp = true, .photoshop = true, .comments = true, .png = true}, notices);
    }

    void write(uint32_t rows, const uint8_t *pixels, const uint8_t *alpha) override {
        if (!picture_.has_alpha) {
            return frame_.write(rows, pixels);
        }
        for (size_t row = 0; row < rows; ++row) {
            join(pixels + row * picture_.row_bytes(), alpha + row * picture_.width);
            frame_.write(1, joined_.data());
        }
    }

    void finish(Notices &) override {
        MemoryInput encoded(frame_.finish());
        wic::ChunkReader chunks(encoded);
        pass({reinterpret_cast<const uint8_t *>(wic::png_signature.data()), wic::png_signature.size()});
        uint64_t position = wic::png_signature.size();
        while (chunks.next()) {
            const uint64_t size = wic::number_at(bytes_at(position, 4), 0) + 12;
            const std::string &name = chunks.name();
            if (name == "IEND") {
                put_chunks(true);
            }
            if (name == "IHDR" || name == "IDAT" || name == "IEND") {
                pass(bytes_at(position, size));
            }
            if (name == "IHDR") {
                put_metadata();
                put_chunks(false);
            }
            position += size;
        }
    }

  private:
    std::span<const uint8_t> bytes_at(uint64_t position, uint64_t size) {
        return std::span(frame_.bytes()).subspan(position, size);
    }

    void pass(std::span<const uint8_t> bytes) {
        if (!output_.write(bytes)) {
            throw Error(output_.failure());
        }
    }

    void put(std::string_view name, std::span<const uint8_t> bytes) { pass(wic::chunk_of(name, bytes)); }

    void put_chunks(bool behind_pixels) {
        for (const PngChunk &chunk : picture_.metadata.png_chunks) {
            if (chunk.behind_pixels == behind_pixels) {
                put(chunk.name, chunk.bytes);
            }
        }
    }

    void put_metadata() {
        const Metadata &metadata = picture_.metadata;
        put_colours(metadata.png_colours);
        if (!metadata.icc_profile.empty()) {
            Bytes bytes;
            append(bytes, std::string_view("ICC profile\0\0", 13)); // the name and the way of packing
            const Bytes packed = wic::stored(metadata.icc_profile);
            bytes.insert(bytes.end(), packed.begin(), packed.end());
            put("iCCP", bytes);
        }
        if (metadata.density) {
            const Density density = per_metre(*metadata.density);
            Bytes bytes;
            add_number(bytes, density.x);
            add_number(bytes, density.y);
            bytes.push_back(density.unit == Density::Unit::metre ? 1 : 0);
            put("pHYs", bytes);
        }
        if (!metadata.exif.empty()) {
            put("eXIf", metadata.exif);
        }
        for (const PngText &text : texts_) {
            put_text(text);
        }
    }

    void put_colours(const PngColours &colours) {
        if (colours.gamma) {
            Bytes bytes;
            add_number(bytes, static_cast<uint32_t>(*colours.gamma));
            put("gAMA", bytes);
        }
        if (colours.chromaticities) {
            Bytes bytes;
            for (const int32_t value : *colours.chromaticities) {
                add_number(bytes, static_cast<uint32_t>(value));
            }
            put("cHRM", bytes);
        }
        if (colours.srgb_intent) {
            const auto intent = static_cast<uint8_t>(*colours.srgb_intent);
            put("sRGB", {&intent, 1});
        }
    }

    // Without a compressor every text is written as it is.
    void put_text(const PngText &text) {
        const std::string zero(1, '\0');
        std::string bytes = text.keyword + zero;
        if (text.is_international()) {
            bytes += zero + zero + text.language + zero + text.translated_keyword + zero;
        }
        bytes += text.text;
        put(text.is_international() ? "iTXt" : "tEXt", {reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()});
    }

    void join(const uint8_t *pixels, const uint8_t *alpha) {
        joined_.resize(size_t{picture_.width} * 4);
        for (size_t x = 0; x < picture_.width; ++x) {
            for (size_t c = 0; c < 3; ++c) {
                joined_[4 * x + c] = pixels[picture_.channels == 3 ? 3 * x + c : x];
            }
            joined_[4 * x + 3] = alpha[x];
        }
    }

    Output &output_;
    const Description &picture_;
    wic::EncodedFrame frame_;
    Bytes joined_; // a row with alpha
    const std::vector<PngText> texts_;
};

} // namespace

// The system's compression has no levels.
std::unique_ptr<Writer> create_png(Output &output, const Description &picture, std::optional<int>, Notices &notices) {
    return std::make_unique<PngWriter>(output, picture, notices);
}

} // namespace codec
