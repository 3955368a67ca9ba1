// The rows of an image become bytes one by one, and go into a draft of the file.
#include "save.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "codec/formats.h"
#include "file.h"
#include "ko/colorspace.h"
#include "report.h"

namespace koio {

namespace {

// The planes of a picture, one or three of one size.
struct Planes {
    std::array<const RealImage *, 3> plane;
    uint32_t count;
    bool in_yiq;

    uint64_t width() const { return plane[0]->width; }
    uint64_t height() const { return plane[0]->height; }

    // True if a file can have pictures of this size at all.
    bool fit_a_file() const {
        constexpr uint64_t largest = INT32_MAX;
        const auto is_like_first = [this](const RealImage *other) {
            return other->width == width() && other->height == height();
        };
        return width() > 0 && width() <= largest && height() > 0 && height() <= largest &&
               std::all_of(plane.begin() + 1, plane.begin() + count, is_like_first);
    }
};

// None for an image of another number of planes.
std::optional<Planes> planes_of(const ColorImage *image) {
    if (image->planes == nullptr || (image->depth != 1 && image->depth != 3)) {
        return std::nullopt;
    }
    const bool three = image->depth == 3;
    const RealImage *first = image->planes;
    const bool in_yiq = three && image->color_space == KO_COLORSPACE_YIQ;
    return Planes{{first, three ? first + 1 : nullptr, three ? first + 2 : nullptr}, three ? 3u : 1u, in_yiq};
}

// A NaN is not above 0.
uint8_t byte_of(float value) {
    return value > 0.0f ? static_cast<uint8_t>(std::min(static_cast<double>(value), 255.0) + 0.5) : uint8_t{0};
}

void plane_row(const Planes &planes, uint64_t y, float scale, uint8_t *bytes) {
    for (uint32_t c = 0; c < planes.count; ++c) {
        const float *row = planes.plane[c]->rows[y];
        for (uint64_t x = 0; x < planes.width(); ++x) {
            bytes[x * planes.count + c] = byte_of(scale * row[x]);
        }
    }
}

void yiq_row(const Planes &planes, uint64_t y, float scale, uint8_t *bytes) {
    const float *matrix = KoColorSpaceGetConversionMatrix(KO_COLORSPACE_YIQ, KO_COLORSPACE_RGB);
    const auto row = [&](size_t c) { return planes.plane[c]->rows[y]; };
    for (uint64_t x = 0; x < planes.width(); ++x) {
        for (size_t c = 0; c < 3; ++c) {
            const float *weights = matrix + 3 * c;
            *bytes++ = byte_of(scale * ((weights[0] * row(0)[x] + weights[1] * row(1)[x]) + weights[2] * row(2)[x]));
        }
    }
}

std::unique_ptr<codec::Writer> create(FileOutput &output, const codec::Description &description, int option,
                                      codec::Notices &notices) {
    const auto chosen = option != 0 ? std::optional(option) : std::nullopt;
    return description.format == codec::Format::png ? codec::create_png(output, description, chosen, notices)
                                                    : codec::create_jpeg(output, description, chosen, notices);
}

void write(const Planes &planes, const char *path, codec::Format format, float scale, int option) {
    codec::Description description;
    description.format = format;
    description.width = static_cast<uint32_t>(planes.width());
    description.height = static_cast<uint32_t>(planes.height());
    description.channels = planes.count;
    codec::Bytes bytes(description.row_bytes());
    FileOutput output(path);
    codec::Notices notices;
    const std::unique_ptr<codec::Writer> writer = create(output, description, option, notices);
    const auto fill = planes.in_yiq ? yiq_row : plane_row;
    for (uint64_t y = 0; y < planes.height(); ++y) {
        fill(planes, y, scale, bytes.data());
        writer->write(1, bytes.data(), nullptr);
    }
    writer->finish(notices);
    inform(path, notices);
    output.take_place();
}

// The nearest whole number, 0 or one that the format takes; none otherwise.
std::optional<int> option_of(float save_option, int most) {
    const float nearest = std::round(save_option);
    const bool usable = save_option == 0.0f || (nearest >= 1.0f && nearest <= static_cast<float>(most));
    return usable ? std::optional(static_cast<int>(nearest)) : std::nullopt;
}

int32_t save_planes(const Planes &planes, const char *path, codec::Format format, float scale, float save_option) {
    if (!planes.fit_a_file()) {
        return KOIO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    const int most = format == codec::Format::png ? 9 : 100;
    const std::optional<int> option = option_of(save_option, most);
    if (!option) {
        std::array<char, 32> given{};
        std::snprintf(given.data(), given.size(), "%g", static_cast<double>(save_option));
        return KOIO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_VALUE, given.data(), most == 9 ? "0 to 9" : "0 to 100");
    }
    try {
        write(planes, path, format, scale, *option);
        return KO_OK;
    } catch (...) {
        return report_failed_save(path);
    }
}

} // namespace

int32_t save(const RealImage *image, const char *path, codec::Format format, float scale, float save_option) {
    if (image == nullptr || path == nullptr) {
        return KOIO_REPORT(KO_LEVEL_INTERNAL_ERROR, KO_ERR_NULL_POINTER);
    }
    return save_planes({{image, nullptr, nullptr}, 1, false}, path, format, scale, save_option);
}

int32_t save(const ColorImage *image, const char *path, codec::Format format, float scale, float save_option) {
    if (image == nullptr || path == nullptr) {
        return KOIO_REPORT(KO_LEVEL_INTERNAL_ERROR, KO_ERR_NULL_POINTER);
    }
    const std::optional<Planes> planes = planes_of(image);
    return planes ? save_planes(*planes, path, format, scale, save_option)
                  : KOIO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
}

} // namespace koio
