// The plug-in's PNG and JPEG files on any bytes: what begins like a PNG file is loaded as one, everything else as a JPEG file.
#include <cstdio>

#include "files.h"
#include "picture_checks.h"
#include "plugin/koio/load.h"
#include "plugin/koio/save.h"

namespace {

using namespace ko_fuzz;

constexpr int32_t refusal = KO_ERR_INVALID_IMAGE_FILE;

void look_at_values(const RealImage *image) {
    look(image);
    for (uint64_t y = 0; y < image->height; ++y) {
        for (uint64_t x = 0; x < image->width; ++x) {
            expect(image->rows[y][x] >= 0.0f && image->rows[y][x] < 255.5f, "values are those of bytes");
        }
    }
}

int32_t load(const std::string &path, codec::Format format, RealImage *image) {
    KoStatusClear();
    const int32_t status = koio::load(image, path.c_str(), format);
    expect_load_status(status, refusal);
    expect(status == KO_OK || (image->width == 2 && image->height == 2), "a failure leaves the image as it was");
    look_at_values(image);
    return status;
}

int32_t load(const std::string &path, codec::Format format, ColorImage *image) {
    KoStatusClear();
    const int32_t status = koio::load(image, path.c_str(), format, 0.0, 0.0);
    expect_load_status(status, refusal);
    expect(image->depth == (image->color_space == KO_COLORSPACE_GRAY ? 1u : 3u), "a colour space has its planes");
    for (uint64_t c = 0; c < image->depth; ++c) {
        look_at_values(&image->planes[c]);
        expect(image->planes[c].width == image->planes[0].width && image->planes[c].height == image->planes[0].height,
               "planes are of one size");
    }
    return status;
}

// Bytes survive a PNG file.
void expect_survives(const ColorImage *image) {
    const std::string path = private_path("saved.png");
    expect(koio::save(image, path.c_str(), codec::Format::png, 1.0f, 1.0f) == KO_OK, "what was loaded can be saved");
    const ko_test::ColorImagePtr again(KoColorImageNew(2, 2, KO_COLORSPACE_RGB));
    expect(load(path, codec::Format::png, again.get()) == KO_OK, "what was saved can be loaded");
    expect(again->depth == image->depth, "a saved picture keeps its planes");
    for (uint64_t c = 0; c < image->depth; ++c) {
        expect(KoRealImageCompareTolerance(&image->planes[c], &again->planes[c], 0.0f) == 0,
               "a saved picture keeps its values");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    start();
    const std::string path = private_file("input", text_of(data, size));
    const codec::Format format = size > 0 && data[0] == 0x89 ? codec::Format::png : codec::Format::jpeg;
    const ko_test::RealImagePtr image(KoRealImageNew(2, 2));
    KoRealImageClear(image.get());
    const ko_test::ColorImagePtr color(KoColorImageNew(2, 2, KO_COLORSPACE_RGB));
    KoColorImageClear(color.get());
    const int32_t status = load(path, format, image.get());
    const int32_t color_status = load(path, format, color.get());
    expect(status == KO_ERR_ALLOC || color_status == KO_ERR_ALLOC || status == color_status, "a file is valid or not");
    if (color_status == KO_OK && KoColorImageGetSize(color.get()) <= 1 << 16) {
        expect_survives(color.get());
    }
    return 0;
}
