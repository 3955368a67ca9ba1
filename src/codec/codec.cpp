// The codec's front: tells the formats apart by their first bytes and holds what both share.
#include "codec/codec.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>

#include "codec/formats.h"
#include "codec/guard.h"

namespace codec {

namespace {

constexpr std::array<uint8_t, 8> png_signature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
constexpr std::array<uint8_t, 3> jpeg_signature = {0xff, 0xd8, 0xff};

constexpr std::array<std::array<uint8_t, 4>, 4> tiff_signatures = {
    {{'I', 'I', 42, 0}, {'M', 'M', 0, 42}, {'I', 'I', 43, 0}, {'M', 'M', 0, 43}}}; // the last two for files over 4 GiB
constexpr std::array<uint8_t, 4> riff_mark = {'R', 'I', 'F', 'F'};
constexpr std::array<uint8_t, 4> webp_mark = {'W', 'E', 'B', 'P'};

bool begins_with(std::span<const uint8_t> bytes, std::span<const uint8_t> signature) {
    return bytes.size() >= signature.size() && std::equal(signature.begin(), signature.end(), bytes.begin());
}

bool is_tiff(std::span<const uint8_t> bytes) {
    return std::any_of(tiff_signatures.begin(), tiff_signatures.end(),
                       [bytes](const auto &signature) { return begins_with(bytes, signature); });
}

bool is_webp(std::span<const uint8_t> bytes) {
    return begins_with(bytes, riff_mark) && bytes.size() >= 12 && begins_with(bytes.subspan(8), webp_mark);
}

Density scaled(const Density &density, Density::Unit unit, double factor) {
    const auto scale = [factor](uint32_t value) {
        return static_cast<uint32_t>(std::min(std::llround(value * factor), 0x7fffffffLL));
    };
    return {unit, scale(density.x), scale(density.y)};
}

// Pixels in memory, handed out as they are asked for.
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
    default:
        return "JPEG";
    }
}

std::optional<Format> recognise(std::span<const uint8_t> bytes) {
    if (begins_with(bytes, png_signature)) {
        return Format::png;
    }
    if (begins_with(bytes, jpeg_signature)) {
        return Format::jpeg;
    }
    if (is_tiff(bytes)) {
        return Format::tiff;
    }
    if (is_webp(bytes)) {
        return Format::webp;
    }
    return std::nullopt;
}

std::unique_ptr<Reader> open(Input &input, const Reduction &reduction) {
    std::array<uint8_t, 64> room{};
    const std::optional<size_t> count = input.read(0, room);
    if (!count) {
        throw Error(input.failure());
    }
    if (*count == 0) {
        throw Error("the file is empty");
    }
    const std::optional<Format> format = recognise({room.data(), *count});
    if (!format) {
        throw Error("neither a PNG nor a JPEG file");
    }
    switch (*format) {
    case Format::png:
        return open_png(input);
    case Format::tiff:
        return open_tiff(input);
    case Format::webp:
        return open_webp(input);
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

void check_size(uint64_t width, uint64_t height) {
    if (width == 0 || height == 0) {
        throw Error("the picture has no pixels");
    }
    if (height > largest_area / width) {
        throw Error("too large: " + std::to_string(width) + " x " + std::to_string(height) + " pixels, at most " +
                    std::to_string(largest_area) + " can be worked on");
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
