// What the red-eye correction works on: pictures with red discs on skin-like ground, records, and image records as the earlier
// stages leave them, made by hand.
#ifndef KO_TESTS_REDEYE_SCENE_H
#define KO_TESTS_REDEYE_SCENE_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "files.h"
#include "ko.h"
#include "pictures.h"
#include "redeye_model.h"

namespace ko_test {

using RedEyePtr = std::unique_ptr<RedEyeCorrection, Deleter<KoRedEyeCorrectionDelete>>;
using RedEyeParamPtr = std::unique_ptr<RedEyeImageParam, Deleter<KoRedEyeImageParamDelete>>;

inline RedEyePtr make_correction(const std::string &configuration, int32_t channels) {
    RedEyePtr rec(KoRedEyeCorrectionNew());
    KoRedEyeCorrectionSetCategorizerConfig(rec.get(), configuration.c_str(), nullptr, nullptr);
    KoRedEyeCorrectionEnableHistogramChannel(rec.get(), channels > 0, channels > 1, channels > 2);
    return rec;
}

struct Disc {
    int32_t x, y, radius;
};

inline bool inside(const Disc &disc, int64_t x, int64_t y) {
    const int64_t dx = x - disc.x;
    const int64_t dy = y - disc.y;
    return dx * dx + dy * dy <= static_cast<int64_t>(disc.radius) * disc.radius;
}

// Red discs on skin-like ground with a little noise; the larger ones have a highlight.
inline ColorImagePtr eye_picture(uint32_t width, uint32_t height, const std::vector<Disc> &discs, uint32_t seed) {
    constexpr std::array<float, 3> skin = {222.0f, 172.0f, 141.0f};
    constexpr std::array<float, 3> red = {201.0f, 41.0f, 52.0f};
    constexpr std::array<float, 3> highlight = {250.0f, 246.0f, 241.0f};
    Noise noise(seed);
    return make_color_image(width, height, KO_COLORSPACE_RGB, [&](uint32_t c, uint64_t x, uint64_t y) {
        float value = skin[c];
        for (const Disc &disc : discs) {
            if (inside(disc, static_cast<int64_t>(x), static_cast<int64_t>(y))) {
                const Disc spot{disc.x + disc.radius / 3, disc.y - disc.radius / 3, disc.radius / 5};
                value =
                    disc.radius > 7 && inside(spot, static_cast<int64_t>(x), static_cast<int64_t>(y)) ? highlight[c] : red[c];
            }
        }
        return value + noise.uniform(-4.0f, 4.0f);
    });
}

// Three planes of pixels without padding.
struct Planes {
    uint64_t width = 0;
    uint64_t height = 0;
    std::array<std::vector<float>, 3> values;

    float &at(size_t plane, uint64_t x, uint64_t y) { return values[plane].at(y * width + x); }
    float at(size_t plane, uint64_t x, uint64_t y) const { return values[plane].at(y * width + x); }
    bool operator==(const Planes &) const = default;
};

inline Planes planes_of(const ColorImage *image) {
    Planes planes{KoColorImageGetWidth(image), KoColorImageGetHeight(image), {}};
    for (uint32_t c = 0; c < 3; ++c) {
        planes.values[c] = pixels(KoColorImageGetImage(image, c));
    }
    return planes;
}

inline ColorImagePtr copy_of(const ColorImage *image) {
    return make_color_image(static_cast<uint32_t>(KoColorImageGetWidth(image)),
                            static_cast<uint32_t>(KoColorImageGetHeight(image)), image->color_space,
                            [&](uint32_t c, uint64_t x, uint64_t y) { return image->planes[c].rows[y][x]; });
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
inline RedEyeParamPtr make_param(ColorImage *picture, uint64_t width, uint64_t height, float scale,
                                 const std::vector<Box> &boxes, uint32_t seed = 1) {
    RedEyeParamPtr param(KoRedEyeImageParamNew(picture));
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

inline RedEyeParamPtr make_param(ColorImage *picture, const std::vector<Box> &boxes, uint32_t seed = 1) {
    return make_param(picture, KoColorImageGetWidth(picture), KoColorImageGetHeight(picture), 0.0f, boxes, seed);
}

// A stream to log to, and what was written to it.
class Log {
  public:
    Log() : file_("log.txt"), stream_(std::fopen(file_.c_str(), "w")) {}
    ~Log() { std::fclose(stream_); }
    Log(const Log &) = delete;
    Log &operator=(const Log &) = delete;
    std::FILE *stream() const { return stream_; }
    std::string text() const {
        std::fflush(stream_);
        return read_text(file_.path());
    }

  private:
    TemporaryFile file_;
    std::FILE *stream_;
};

} // namespace ko_test

#endif
