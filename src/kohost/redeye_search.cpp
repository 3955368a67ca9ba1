#include "kohost/redeye_search.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "kohost/curves.h"
#include "kohost/working_copy.h"

namespace kohost {

namespace {

// The size of a working image that smooths the picture, and with it those eyes that noise or glare takes apart.
constexpr uint64_t smooth_area = 125'000;

// The sizes of the copies that get a border. The library sees spots of up to about 30 pixels of its working image.
constexpr std::array<uint64_t, 2> bordered_areas = {250'000, 62'500};

constexpr uint8_t gray = 128;

// A picture for a look, and where its pixels lie in the one that is searched.
struct View {
    ko::ColorImagePtr image;
    Cells pixels;
};

Image with_border(const Pixels &picture, uint32_t border) {
    const Size size = {picture.size.width + 2 * border, picture.size.height + 2 * border};
    Image image{size, picture.channels, std::vector<uint8_t>(size.area() * picture.channels, gray)};
    const size_t row_bytes = size_t{picture.size.width} * picture.channels;
    for (uint32_t y = 0; y < picture.size.height; ++y) {
        std::copy_n(picture.bytes + y * row_bytes, row_bytes,
                    &image.bytes[(size_t{y + border} * size.width + border) * picture.channels]);
    }
    return image;
}

// A small copy with a gray border of half its shorter side. It shows large pupils, since the library limits a spot to a tenth
// of the image's shorter side, and those near the edge, around which a patch would not fit.
View bordered(const Pixels &picture, uint64_t area) {
    const Size size = working_size(picture.size, area);
    const double width = static_cast<double>(picture.size.width) / size.width;
    const double height = static_cast<double>(picture.size.height) / size.height;
    const uint32_t border = std::min(size.width, size.height) / 2;
    return {image_of(with_border(reduced(picture, size).pixels(), border).pixels()),
            {-(border * width), -(border * height), width, height}};
}

Shape shape_of(const RedEyeImageParam &found, uint32_t number, const Cells &pixels) {
    const BlobInfo &blob = found.final_blobs[number];
    const double scale = found.scale > 0.0f ? found.scale : 1.0;
    Shape shape;
    shape.cells = {pixels.left, pixels.top, pixels.width * scale, pixels.height * scale};
    shape.box = {blob.min_x, blob.min_y, blob.max_x + 1, blob.max_y + 1};
    const uint64_t width = KoColorImageGetWidth(found.working_image);
    for (uint64_t y = blob.min_y; y <= blob.max_y; ++y) {
        for (uint64_t x = blob.min_x; x <= blob.max_x; ++x) {
            shape.inside.push_back(found.blob_mask[y * width + x] == number);
        }
    }
    return shape;
}

void look_at(const View &view, uint64_t working_area, RedEyeCorrection &correction, bool features, Findings &findings) {
    correction.max_image_size = working_area;
    correction.too_many_blobs = 0;
    const ko::RedEyeImageParamPtr found = locate(correction, *view.image, search_fails);
    const auto places = static_cast<uint64_t>(found->blob_count);
    findings.places = std::max(findings.places, places);
    findings.too_many = findings.too_many && correction.too_many_blobs != 0;
    if (places == 0 || correction.too_many_blobs != 0) {
        return;
    }
    ko::check(KoRedEyeCorrectionCategorizeBlobs(&correction, found.get()) == KO_OK, search_fails);
    for (uint32_t i = 0; i < patch_count(correction); ++i) {
        const RedEyePatch &patch = found->patches[i];
        Candidate candidate{shape_of(*found, patch.blob, view.pixels), patch.fe_score, patch.be_score, {}};
        if (features) {
            candidate.features.assign(patch.features, patch.features + correction.projection_dimension);
        }
        findings.candidates.push_back(std::move(candidate));
    }
}

} // namespace

Findings search(const Pixels &picture, const std::string &model, bool features, std::FILE *log) {
    KoStatusClear();
    const ko::RedEyeCorrectionPtr correction = make_correction(model, log);
    Findings findings;
    findings.limit = static_cast<uint64_t>(correction->blob_limits[2]);
    findings.too_many = true;
    const View whole = {image_of(picture), {}};
    look_at(whole, search_area, *correction, features, findings);
    look_at(whole, smooth_area, *correction, features, findings);
    for (const uint64_t area : bordered_areas) {
        look_at(bordered(picture, area), search_area, *correction, features, findings);
    }
    return findings;
}

ko::RedEyeCorrectionPtr make_correction(const std::string &model, std::FILE *log) {
    ko::RedEyeCorrectionPtr correction(KoRedEyeCorrectionNew());
    ko::check(correction != nullptr, "the red-eye repair cannot be set up");
    KoRedEyeCorrectionEnableHistogramChannel(correction.get(), 1, 1, 1);
    ko::check(KoRedEyeCorrectionSetCategorizerConfig(correction.get(), model.c_str(), nullptr, nullptr) == KO_OK,
              "the path of the model is too long");
    correction->log_stream = log;
    return correction;
}

ko::RedEyeImageParamPtr locate(RedEyeCorrection &correction, ColorImage &image, const std::string &what) {
    ko::RedEyeImageParamPtr found(KoRedEyeImageParamNew(&image));
    ko::check(found != nullptr, "the red-eye repair cannot be set up");
    ko::check(KoRedEyeCorrectionDownsample(&correction, found.get()) == KO_OK, what.c_str());
    ko::check(KoRedEyeCorrectionReddishProbability(&correction, found.get(), 1) == KO_OK, what.c_str());
    ko::check(KoRedEyeCorrectionRedLumProbability(&correction, found.get(), 1) == KO_OK, what.c_str());
    ko::check(KoRedEyeCorrectionColProbability(&correction, found.get()) == KO_OK, what.c_str());
    ko::check(KoRedEyeCorrectionCircularity(&correction, found.get()) == KO_OK, what.c_str());
    ko::check(KoRedEyeCorrectionLocateBlobs(&correction, found.get()) == KO_OK, what.c_str());
    return found;
}

// Without this object no model was read, and nothing categorised.
uint32_t patch_count(const RedEyeCorrection &correction) {
    const OrientationHistogram *histogram = correction.orientation_histogram;
    return histogram != nullptr ? static_cast<uint32_t>(histogram->patch_count) : 0;
}

} // namespace kohost
