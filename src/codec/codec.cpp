// The codec's front: finds the reader and the writer of a format.
#include "codec/codec.h"

#include <algorithm>
#include <array>

#include "codec/formats.h"

namespace codec {

namespace {

// Pixels in memory, delivered in groups of rows as requested.
class MemoryReader : public Reader {
  public:
    explicit MemoryReader(const Picture &picture) : picture_(picture) {
        description_ = picture;
        width_ = picture.width;
        height_ = picture.height;
    }

    void read(uint32_t rows, uint8_t *pixels, uint8_t *alpha) override {
        std::copy_n(picture_.pixels.get() + row_ * picture_.row_bytes(), rows * picture_.row_bytes(), pixels);
        if (alpha != nullptr && picture_.alpha) {
            std::copy_n(picture_.alpha.get() + row_ * picture_.width, size_t{rows} * picture_.width, alpha);
        }
        row_ += rows;
    }

    void finish(Notices &) override {}

  private:
    const Picture &picture_;
    size_t row_ = 0;
};

} // namespace

const char *name(Format format) {
    switch (format) {
    case Format::png:
        return "PNG";
    case Format::tiff:
        return "TIFF";
    case Format::webp:
        return "WebP";
    case Format::heif:
        return "HEIF";
    default:
        return "JPEG";
    }
}

std::unique_ptr<Reader> open(Input &input, const Reduction &reduction) {
    std::array<uint8_t, enough_to_recognise> room{};
    const std::optional<size_t> count = input.read(0, room);
    if (!count) {
        throw Error(input.failure());
    }
    if (*count == 0) {
        throw Error("the file is empty");
    }
    const std::span<const uint8_t> beginning(room.data(), *count);
    const std::optional<Format> format = recognise(beginning);
    if (!format) {
        throw Error(refusal_of(beginning));
    }
    switch (*format) {
    case Format::png:
        return open_png(input);
    case Format::tiff:
        return open_tiff(input);
    case Format::webp:
        return open_webp(input);
    case Format::heif:
        return open_heif(input, kind_of(beginning));
    default:
        return open_jpeg(input, reduction);
    }
}

std::unique_ptr<Reader> rows_of(const Picture &picture) { return std::make_unique<MemoryReader>(picture); }

Picture read(Input &input, Notices &notices) {
    const std::unique_ptr<Reader> reader = open(input);
    Picture picture{reader->description(), nullptr, nullptr};
    picture.pixels = std::make_unique_for_overwrite<uint8_t[]>(picture.area() * picture.channels);
    picture.alpha = picture.has_alpha ? std::make_unique_for_overwrite<uint8_t[]>(picture.area()) : nullptr;
    reader->read(picture.height, picture.pixels.get(), picture.alpha.get());
    reader->finish(notices);
    static_cast<Description &>(picture) = reader->description();
    return picture;
}

Picture decode(std::span<const uint8_t> bytes, Notices &notices) {
    MemoryInput input(bytes);
    return read(input, notices);
}

std::unique_ptr<Writer> create(Output &output, const Description &picture, const Encoding &encoding, Notices &notices) {
    switch (encoding.format) {
    case Format::png:
        return create_png(output, picture, std::nullopt, notices);
    case Format::tiff:
        return create_tiff(output, picture, notices);
    case Format::webp:
        return create_webp(output, picture, encoding.quality, notices);
    case Format::heif:
        throw Error("HEIF files are only read");
    default:
        return create_jpeg(output, picture, encoding.quality, notices);
    }
}

Bytes encode(const Picture &picture, const Encoding &encoding, Notices &notices) {
    MemoryOutput output;
    const std::unique_ptr<Writer> writer = create(output, picture, encoding, notices);
    writer->write(picture.height, picture.pixels.get(), picture.alpha.get());
    writer->finish(notices);
    return std::move(output.bytes());
}

} // namespace codec
