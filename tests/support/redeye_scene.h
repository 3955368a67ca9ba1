// What the red-eye correction works on: faces as the search sees them, red discs on a ground like skin; the records of a search
// with their owners; and image records as the earlier stages leave them, made by hand.
#ifndef KO_TESTS_REDEYE_SCENE_H
#define KO_TESTS_REDEYE_SCENE_H

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "files.h"
#include "ko.h"
#include "pictures.h"

namespace ko_test {

// Maps and pictures.

// A map without padding, row by row.
struct RedEyeMap {
    uint64_t width = 0;
    uint64_t height = 0;
    std::vector<float> pixels;

    float &at(uint64_t x, uint64_t y) { return pixels.at(y * width + x); }
    float at(uint64_t x, uint64_t y) const { return pixels.at(y * width + x); }
    bool operator==(const RedEyeMap &) const = default;
};

using RedEyePlanes = std::array<RedEyeMap, 3>;

inline RealImagePtr image_of(const RedEyeMap &map) { return make_image(map.width, map.height, map.pixels); }

inline ColorImagePtr picture_of(const RedEyePlanes &planes) {
    return make_color_image(static_cast<uint32_t>(planes[0].width), static_cast<uint32_t>(planes[0].height), KO_COLORSPACE_RGB,
                            [&](uint32_t c, uint64_t x, uint64_t y) { return planes[c].at(x, y); });
}

inline RedEyePlanes planes_of(const ColorImage *picture) {
    RedEyePlanes planes;
    for (uint32_t c = 0; c < 3; ++c) {
        planes[c] = {KoColorImageGetWidth(picture), KoColorImageGetHeight(picture), pixels(KoColorImageGetImage(picture, c))};
    }
    return planes;
}

inline ColorImagePtr copy_of(const ColorImage *picture) { return picture_of(planes_of(picture)); }

// A red pupil: an ellipse with, if wanted, a white highlight at its upper left. Pixels.
struct Pupil {
    double x = 0.0;
    double y = 0.0;
    double radius = 5.0;
    double stretch = 1.0; // width over height
    bool highlight = true;
};

inline bool in_ellipse(double dx, double dy, double radius, double stretch) {
    return dx * dx / (stretch * stretch) + dy * dy <= radius * radius;
}

// The colour of a pixel without noise, by the last pupil that covers it.
inline std::array<float, 3> face_color(double x, double y, const std::vector<Pupil> &pupils) {
    std::array<float, 3> color = {205.0f, 160.0f, 130.0f};
    for (const Pupil &pupil : pupils) {
        const double dx = x - pupil.x;
        const double dy = y - pupil.y;
        if (in_ellipse(dx, dy, pupil.radius, pupil.stretch)) {
            color = {190.0f, 40.0f, 50.0f};
        }
        if (pupil.highlight && in_ellipse(dx + pupil.radius / 3, dy + pupil.radius / 3, pupil.radius / 4, 1.0)) {
            color = {250.0f, 245.0f, 245.0f};
        }
    }
    return color;
}

// Pupils on skin with noise of the given amplitude.
inline RedEyePlanes painted_face(uint64_t width, uint64_t height, const std::vector<Pupil> &pupils, float amplitude,
                                 uint32_t seed) {
    Noise noise(seed);
    RedEyePlanes planes;
    planes.fill({width, height, {}});
    for (uint64_t y = 0; y < height; ++y) {
        for (uint64_t x = 0; x < width; ++x) {
            const std::array<float, 3> color = face_color(static_cast<double>(x), static_cast<double>(y), pupils);
            for (size_t c = 0; c < 3; ++c) {
                planes[c].pixels.push_back(color[c] + noise.uniform(-amplitude, amplitude));
            }
        }
    }
    return planes;
}

// The same in whole steps like a photograph's.
inline RedEyePlanes face(uint64_t width, uint64_t height, const std::vector<Pupil> &pupils, float amplitude, uint32_t seed) {
    RedEyePlanes planes = painted_face(width, height, pupils, amplitude, seed);
    for (RedEyeMap &plane : planes) {
        for (float &value : plane.pixels) {
            value = std::floor(value + 0.5f);
        }
    }
    return planes;
}

// A face with a little noise, between the steps.
inline ColorImagePtr eye_picture(uint32_t width, uint32_t height, const std::vector<Pupil> &pupils, uint32_t seed) {
    return picture_of(painted_face(width, height, pupils, 4.0f, seed));
}

// Many pupils at random: whole ones, some at the edges, some on top of each other, some too long or too large.
inline std::vector<Pupil> scattered_pupils(uint64_t width, uint64_t height, int count, float largest, uint32_t seed) {
    Noise noise(seed);
    std::vector<Pupil> pupils;
    for (int i = 0; i < count; ++i) {
        Pupil pupil;
        pupil.x = static_cast<double>(noise.uniform(-2.0f, static_cast<float>(width) + 2.0f));
        pupil.y = static_cast<double>(noise.uniform(-2.0f, static_cast<float>(height) + 2.0f));
        pupil.radius = static_cast<double>(noise.uniform(0.5f, largest));
        pupil.stretch = noise.next() % 4 == 0 ? static_cast<double>(noise.uniform(0.3f, 3.0f)) : 1.0;
        pupil.highlight = noise.next() % 2 == 0;
        pupils.push_back(pupil);
    }
    return pupils;
}

// Every pixel of every channel at random.
inline RedEyePlanes random_planes(uint64_t width, uint64_t height, uint32_t seed) {
    Noise noise(seed);
    RedEyePlanes planes;
    planes.fill({width, height, {}});
    for (RedEyeMap &plane : planes) {
        for (uint64_t i = 0; i < width * height; ++i) {
            plane.pixels.push_back(static_cast<float>(noise.byte()));
        }
    }
    return planes;
}

inline RedEyePlanes plain_planes(uint64_t width, uint64_t height, float red, float green, float blue) {
    const auto plane = [&](float value) { return RedEyeMap{width, height, std::vector<float>(width * height, value)}; };
    return {plane(red), plane(green), plane(blue)};
}

// Records.

// A record for settings and one for a picture; ends both.
struct RedEyeRecords {
    RedEyeCorrection rec{};
    RedEyeImageParam param{};

    explicit RedEyeRecords(ColorImage *picture = nullptr) {
        KoRedEyeCorrectionInit(&rec);
        KoRedEyeImageParamInit(&param, picture);
    }
    ~RedEyeRecords() {
        KoRedEyeImageParamFree(&param);
        KoRedEyeCorrectionFree(&rec);
    }
    RedEyeRecords(const RedEyeRecords &) = delete;
    RedEyeRecords &operator=(const RedEyeRecords &) = delete;
};

inline RedEyeCorrectionPtr make_correction(const std::string &configuration, int32_t channels) {
    RedEyeCorrectionPtr rec(KoRedEyeCorrectionNew());
    KoRedEyeCorrectionSetCategorizerConfig(rec.get(), configuration.c_str(), nullptr, nullptr);
    KoRedEyeCorrectionEnableHistogramChannel(rec.get(), channels > 0, channels > 1, channels > 2);
    return rec;
}

// A small model, as a reading leaves it.
inline void give_model(RedEyeCorrection &rec) {
    rec.projection_row_values = static_cast<float *>(KoAllocElements(3, 4));
    rec.projection_mean = static_cast<float *>(KoAllocElements(5, 4));
    rec.projection_matrix = KoMatrixFloatNew(5, 3);
    rec.fe_weights = static_cast<float *>(KoAllocElements(3, 4));
    rec.be_weights = static_cast<float *>(KoAllocElements(3, 4));
    rec.patch_geometry = {400, 16, 16, 1, 1.0f, 1.0f, 1, 4};
    rec.histogram_layout = {4, 2, 4, 16, 0.1f, 0.0f, 1.0f, 1.0f, 0.5f, 0.01f};
    rec.orientation_histogram = KoOrientationHistogramNew(&rec.patch_geometry, &rec.histogram_layout);
}

// Bounds included, in pixels of the working image.
struct Box {
    uint32_t min_x, max_x, min_y, max_y;
};

template <class T> T *cleared(uint64_t count) {
    return static_cast<T *>(KoAllocClearElements(static_cast<int32_t>(count), static_cast<int32_t>(sizeof(T))));
}

// An image record as the location of blobs leaves it: each box is a final blob of all its pixels but the corners. The
// working image is the picture's own, and its maps have the size told.
inline RedEyeImageParamPtr make_param(ColorImage *picture, uint64_t width, uint64_t height, float scale,
                                      const std::vector<Box> &boxes, uint32_t seed = 1) {
    RedEyeImageParamPtr param(KoRedEyeImageParamNew(picture));
    param->working_image = picture;
    param->scale = scale;
    Noise noise(seed);
    const auto strength = [&](uint64_t, uint64_t) { return noise.uniform(0.0f, 0.75f); };
    param->red_lum_map = make_image(width, height, strength).release();
    param->col_map = make_image(width, height, [](uint64_t, uint64_t) { return 0.0f; }).release();
    param->map_max = 0.75f;
    param->blob_count = static_cast<int32_t>(boxes.size());
    param->blob_mask = cleared<uint32_t>(width * height);
    param->final_blobs = cleared<BlobInfo>(boxes.size() + 1);
    for (uint32_t b = 1; b <= boxes.size(); ++b) {
        const Box &box = boxes[b - 1];
        BlobInfo &blob = param->final_blobs[b];
        blob = {box.min_x, box.max_x, box.min_y, box.max_y, 0};
        for (uint64_t y = box.min_y; y <= box.max_y; ++y) {
            for (uint64_t x = box.min_x; x <= box.max_x; ++x) {
                const bool corner = (x == box.min_x || x == box.max_x) && (y == box.min_y || y == box.max_y);
                if (!corner) {
                    param->blob_mask[y * width + x] = b;
                    ++blob.area;
                }
            }
        }
    }
    return param;
}

inline RedEyeImageParamPtr make_param(ColorImage *picture, const std::vector<Box> &boxes, uint32_t seed = 1) {
    return make_param(picture, KoColorImageGetWidth(picture), KoColorImageGetHeight(picture), 0.0f, boxes, seed);
}

// Receives a record's progress lines while it lives.
class RedEyeLog {
  public:
    explicit RedEyeLog(RedEyeCorrection &rec) : rec_(rec), file_("redeye.log"), stream_(std::fopen(file_.c_str(), "w")) {
        rec_.log_stream = stream_;
    }
    ~RedEyeLog() {
        rec_.log_stream = nullptr;
        std::fclose(stream_);
    }
    RedEyeLog(const RedEyeLog &) = delete;
    RedEyeLog &operator=(const RedEyeLog &) = delete;

    // What was written so far.
    std::string text() const {
        std::fflush(stream_);
        return read_text(file_.path());
    }

  private:
    RedEyeCorrection &rec_;
    TemporaryFile file_;
    std::FILE *stream_;
};

} // namespace ko_test

#endif
