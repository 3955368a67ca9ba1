// One run of the red-eye correction on a small picture, with a model whose files a target may replace by its input.
#ifndef KO_TESTS_FUZZ_REDEYE_CASE_H
#define KO_TESTS_FUZZ_REDEYE_CASE_H

#include <bit>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "harness.h"
#include "pictures.h"

namespace ko_fuzz {

constexpr uint32_t feature_length = 2;
constexpr uint32_t feature_channels = 3;

inline void add_word(std::string *bytes, uint32_t word) {
    for (int shift = 0; shift < 32; shift += 8) {
        bytes->push_back(static_cast<char>(word >> shift & 255));
    }
}

inline void add_floats(std::string *bytes, uint32_t count, float value) {
    for (uint32_t i = 0; i < count; ++i) {
        add_word(bytes, std::bit_cast<uint32_t>(value));
    }
}

// The files of a model of one cell and two bins.
struct ModelFiles {
    std::string config;
    std::string projection;
    std::string classifier;

    ModelFiles() {
        for (const char *value : {"4", "2", "1", "0.25", "0", "1", "1", "1", "0", "0.5", "0.2", "0.5", "0.2", "prj", "cls"}) {
            config.append("caption\n").append(value).append("\n");
        }
        add_word(&projection, 1);
        add_word(&projection, feature_length);
        add_word(&projection, feature_length * feature_channels);
        add_floats(&projection, feature_length * (1 + feature_channels), 0.5f);
        add_floats(&projection, feature_length * feature_length * feature_channels, 0.25f);
        add_word(&classifier, feature_length);
        add_floats(&classifier, 1 + feature_length, 0.125f);
    }
};

// Skin with one red eye.
inline ko_test::ColorImagePtr eye_picture() {
    constexpr uint32_t side = 120;
    std::vector<uint8_t> bytes;
    for (uint32_t y = 0; y < side; ++y) {
        for (uint32_t x = 0; x < side; ++x) {
            const bool red = std::hypot(x - 60.0, y - 50.0) < 4.5;
            for (const int value : {red ? 200 : 190, red ? 30 : 150, red ? 40 : 130}) {
                bytes.push_back(static_cast<uint8_t>(value + (x * 7 + y * 3) % 4));
            }
        }
    }
    return ko_test::ColorImagePtr(
        KoColorImageNewFromByteArray(side, side, KO_COLORSPACE_RGB, bytes.data(), KO_BYTE_LAYOUT_INTERLEAVED));
}

inline std::vector<float> pixels_of(const ColorImage *image) {
    std::vector<float> pixels;
    for (uint64_t c = 0; c < image->depth; ++c) {
        for (uint64_t y = 0; y < image->planes[c].height; ++y) {
            pixels.insert(pixels.end(), image->planes[c].rows[y], image->planes[c].rows[y] + image->planes[c].width);
        }
    }
    return pixels;
}

// Runs the correction twice on one record, as a host does that serves two pictures. A failure leaves the picture as it was.
inline int32_t correct(const ModelFiles &model, ColorImage *image) {
    private_file("prj", model.projection);
    private_file("cls_RE_FE", model.classifier);
    private_file("cls_RE_BE", model.classifier);
    const std::string config = private_file("config", model.config);
    const ko::RedEyeCorrectionPtr rec(KoRedEyeCorrectionNew());
    KoRedEyeCorrectionSetCategorizerConfig(rec.get(), config.c_str(), nullptr, nullptr);
    KoRedEyeCorrectionEnableHistogramChannel(rec.get(), 1, 1, 1);
    int32_t status = KO_OK;
    for (int turn = 0; turn < 2; ++turn) {
        KoStatusClear();
        const std::vector<float> before = pixels_of(image);
        RedEyeImageParam param;
        status = KoRedEyeCorrectionProcessImage(rec.get(), &param, image);
        const std::vector<float> after = pixels_of(image);
        expect(status == KO_OK || std::memcmp(before.data(), after.data(), before.size() * sizeof(float)) == 0,
               "a failure leaves the picture as it was");
        if (status == KO_OK) {
            expect(KoRedEyeCorrectionApply(rec.get(), &param, 1, image) == KO_OK, "the repair can be repeated");
        }
        KoRedEyeImageParamFree(&param);
        expect(open_streams() == 0, "the model's files are closed");
    }
    return status;
}

inline ko_test::ColorImagePtr copy_of(const ColorImage *image) {
    ko_test::ColorImagePtr copy(KoColorImageNew(120, 120, KO_COLORSPACE_RGB));
    for (uint64_t c = 0; c < image->depth; ++c) {
        RealImage *plane = &copy->planes[c];
        KoRealImageMultiplyValue(&image->planes[c], 1.0f, &plane);
    }
    return copy;
}

// Runs a model on the picture of an eye, which the whole model repairs.
inline void correct_eye(const ModelFiles &model) {
    static const ko_test::ColorImagePtr picture = [] {
        ko_test::ColorImagePtr fresh = eye_picture();
        const ko_test::ColorImagePtr repaired = copy_of(fresh.get());
        expect(correct(ModelFiles(), repaired.get()) == KO_OK && pixels_of(repaired.get()) != pixels_of(fresh.get()),
               "the eye is found and repaired");
        return fresh;
    }();
    correct(model, copy_of(picture.get()).get());
}

} // namespace ko_fuzz

#endif
