// The rows of a file become floats one by one, on the scale of the bytes. The image is made anew and takes the old one's place
// when the file has been read to its end.
#include "load.h"

#include <array>
#include <cmath>
#include <memory>
#include <optional>

#include "codec/formats.h"
#include "file.h"
#include "ko/colorspace.h"
#include "report.h"

namespace koio {

namespace {

// An image in the making; freed with its scope unless it has taken its place.
template <class Image, int32_t (*Free)(Image *)> struct Fresh : Image {
    Fresh() : Image{} {}
    ~Fresh() { Free(this); }
    Fresh(const Fresh &) = delete;
    Fresh &operator=(const Fresh &) = delete;

    void take_place(Image *old) {
        Free(old);
        *old = *this;
        static_cast<Image &>(*this) = {};
    }
};

using FreshReal = Fresh<RealImage, KoRealImageFree>;
using FreshColor = Fresh<ColorImage, KoColorImageFree>;

// The float of each byte.
using Levels = std::array<float, 256>;

// exponent: what the values are raised to on a scale from 0 to 1
Levels levels(double exponent) {
    Levels values{};
    for (size_t i = 0; i < values.size(); ++i) {
        const auto stored = static_cast<double>(i);
        values[i] = static_cast<float>(exponent == 1.0 ? stored : 255.0 * std::pow(stored / 255.0, exponent));
    }
    return values;
}

// The exponent that two gamma values stand for; none if it would not keep black black and white white.
std::optional<double> exponent_of(double gamma_a, double gamma_b) {
    if (gamma_a == 0.0 || gamma_b == 0.0) {
        return 1.0;
    }
    const double exponent = gamma_a / gamma_b;
    const bool usable = gamma_a > 0.0 && gamma_b > 0.0 && std::isfinite(exponent) && exponent > 0.0;
    return usable ? std::optional(exponent) : std::nullopt;
}

// A file with its reader.
class Source {
  public:
    Source(const char *path, codec::Format format) : path_(path), input_(path) {
        guarded([&] {
            reader_ = format == codec::Format::png ? codec::open_png(input_) : codec::open_jpeg(input_, {});
            bytes_.resize(description().row_bytes());
        });
    }

    const codec::Description &description() const { return reader_->description(); }

    // Passes each row on with its number, reads the file to its end, and informs of what was changed or left out.
    template <class Take> void read(Take take) {
        guarded([&] {
            for (uint32_t y = 0; y < description().height; ++y) {
                reader_->read(1, bytes_.data(), nullptr);
                take(bytes_.data(), y);
            }
            codec::Notices notices;
            reader_->finish(notices);
            if (description().has_alpha) {
                notices.insert(notices.begin(), "alpha is left out");
            }
            inform(path_, notices);
        });
    }

  private:
    // A file whose bytes cannot be read is not an invalid image.
    template <class Step> void guarded(Step step) {
        try {
            step();
        } catch (const codec::Error &error) {
            if (input_.has_failed()) {
                throw FileError(KO_ERR_READ_FILE, error.what());
            }
            throw;
        }
    }

    const char *path_;
    FileInput input_;
    std::unique_ptr<codec::Reader> reader_;
    codec::Bytes bytes_; // of a row
};

void gray_row(const uint8_t *bytes, const Levels &values, float *row, uint64_t width) {
    for (uint64_t x = 0; x < width; ++x) {
        row[x] = values[bytes[x]];
    }
}

// The first of a matrix's rows, whose products are added in the library's order.
float weighted(const float *weights, float c0, float c1, float c2) {
    return (weights[0] * c0 + weights[1] * c1) + weights[2] * c2;
}

void gray_row_of_rgb(const uint8_t *bytes, const Levels &values, float *row, uint64_t width) {
    const float *weights = KoColorSpaceGetConversionMatrix(KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY);
    for (uint64_t x = 0; x < width; ++x, bytes += 3) {
        row[x] = weighted(weights, values[bytes[0]], values[bytes[1]], values[bytes[2]]);
    }
}

void color_row(const uint8_t *bytes, const Levels &values, ColorImage *image, uint64_t y) {
    for (uint64_t c = 0; c < image->depth; ++c) {
        const RealImage &plane = image->planes[c];
        for (uint64_t x = 0; x < plane.width; ++x) {
            plane.rows[y][x] = values[bytes[x * image->depth + c]];
        }
    }
}

// An RGB picture whose planes are converted where they are.
void convert_to_yiq(ColorImage *image) {
    ColorImage converted = *image;
    converted.color_space = KO_COLORSPACE_YIQ;
    check(KoColorImageFromColorImage(&converted, image));
    *image = converted;
}

void read_into(RealImage *image, Source &source) {
    const codec::Description &description = source.description();
    FreshReal fresh;
    check(KoRealImageInit(&fresh, description.width, description.height));
    const Levels values = levels(1.0);
    source.read([&](const uint8_t *bytes, uint32_t y) {
        const auto fill = description.channels == 1 ? gray_row : gray_row_of_rgb;
        fill(bytes, values, fresh.rows[y], fresh.width);
    });
    fresh.take_place(image);
}

// Colours stay in the space of the image that they replace, as in a text picture, and a gray picture makes the image gray.
void read_into(ColorImage *image, Source &source, double exponent) {
    const codec::Description &description = source.description();
    const int32_t space = description.channels == 1 ? KO_COLORSPACE_GRAY : KO_COLORSPACE_RGB;
    FreshColor fresh;
    check(KoColorImageInit(&fresh, description.width, description.height, space));
    const Levels values = levels(exponent);
    source.read([&](const uint8_t *bytes, uint32_t y) { color_row(bytes, values, &fresh, y); });
    if (space == KO_COLORSPACE_RGB && image->color_space == KO_COLORSPACE_YIQ) {
        convert_to_yiq(&fresh);
    }
    fresh.take_place(image);
}

// Opens a file and passes it to a step; any exception becomes a status.
template <class Step> int32_t load_by(const char *path, codec::Format format, Step step) {
    try {
        Source source(path, format);
        step(source);
        return KO_OK;
    } catch (...) {
        return report_failed_load(path, format);
    }
}

} // namespace

int32_t load(RealImage *image, const char *path, codec::Format format) {
    if (image == nullptr || path == nullptr) {
        return KOIO_REPORT(KO_LEVEL_INTERNAL_ERROR, KO_ERR_NULL_POINTER);
    }
    return load_by(path, format, [=](Source &source) { read_into(image, source); });
}

int32_t load(ColorImage *image, const char *path, codec::Format format, double gamma_a, double gamma_b) {
    if (image == nullptr || path == nullptr) {
        return KOIO_REPORT(KO_LEVEL_INTERNAL_ERROR, KO_ERR_NULL_POINTER);
    }
    const std::optional<double> exponent = exponent_of(gamma_a, gamma_b);
    if (!exponent) {
        return KOIO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    return load_by(path, format, [=](Source &source) { read_into(image, source, *exponent); });
}

} // namespace koio
