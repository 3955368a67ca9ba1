// The codec's front: finds the reader and the writer of a format and holds what they share.
#include "codec/codec.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>

#include "codec/formats.h"
#include "codec/guard.h"

namespace codec {

namespace {

Density scaled(const Density &density, Density::Unit unit, double factor) {
    const auto scale = [factor](uint32_t value) {
        return static_cast<uint32_t>(std::min(std::llround(value * factor), 0x7fffffffLL));
    };
    return {unit, scale(density.x), scale(density.y)};
}

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

constexpr double inch = 0.0254; // in metres
constexpr double centimetre = 0.01;

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
        return create_png(output, picture, notices);
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

std::string further_pictures(uint32_t count) {
    const bool one = count == 1;
    return std::to_string(count) + " further picture" + (one ? "" : "s") + " in the file " + (one ? "is" : "are") + " left out";
}

Bytes read_all(Input &input) {
    constexpr size_t most_at_once = size_t{1} << 20;
    Bytes file;
    while (true) {
        const size_t size = file.size();
        file.resize(size + most_at_once);
        const std::optional<size_t> count = input.read(size, {file.data() + size, most_at_once});
        if (!count) {
            throw Error(input.failure());
        }
        file.resize(size + *count);
        if (*count < most_at_once) {
            return file;
        }
    }
}

uint64_t size_of(Input &input) {
    const std::optional<uint64_t> size = input.size();
    if (!size) {
        throw Error(input.failure());
    }
    return *size;
}

void check_size(uint64_t width, uint64_t height) {
    if (width == 0 || height == 0) {
        throw Error("the picture has no pixels");
    }
    if (height > largest_area / width) {
        throw Error("too large: " + std::to_string(width) + " x " + std::to_string(height) + " pixels, at most " +
                    std::to_string(largest_area) + " can be processed");
    }
}

Density for_jpeg(const Density &density) {
    return density.unit == Density::Unit::metre ? scaled(density, Density::Unit::inch, inch) : density;
}

Density per_metre(const Density &density) {
    switch (density.unit) {
    case Density::Unit::inch:
        return scaled(density, Density::Unit::metre, 1.0 / inch);
    case Density::Unit::centimetre:
        return scaled(density, Density::Unit::metre, 1.0 / centimetre);
    default:
        return density;
    }
}

void Trouble::tell_warnings(Notices &notices) {
    for (size_t i = 0; i < warning_count_; ++i) {
        const std::string text = readable(warnings_[i]);
        if (std::find(notices.begin(), notices.end(), text) == notices.end()) {
            notices.push_back(text);
        }
    }
    warning_count_ = 0;
}

std::string Trouble::readable(const Text &text) {
    std::string clause = text.data();
    const auto is_upper = [&](size_t i) {
        return i < clause.size() && std::isupper(static_cast<unsigned char>(clause[i])) != 0;
    };
    if (is_upper(0) && !is_upper(1)) {
        clause[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(clause[0])));
    }
    return clause;
}

} // namespace codec
