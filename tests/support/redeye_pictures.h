// Faces as the search for red eyes sees them: red discs on a ground like skin; and the records of a search with their owners.
#ifndef KO_TESTS_REDEYE_PICTURES_H
#define KO_TESTS_REDEYE_PICTURES_H

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "files.h"
#include "ko.h"
#include "pictures.h"
#include "reference_redeye.h"

namespace ko_test {

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

// Pupils on skin with noise of the given amplitude, in whole steps like a photograph's.
inline RedEyePlanes face(uint64_t width, uint64_t height, const std::vector<Pupil> &pupils, float amplitude, uint32_t seed) {
    Noise noise(seed);
    RedEyePlanes planes;
    planes.fill({width, height, {}});
    for (uint64_t y = 0; y < height; ++y) {
        for (uint64_t x = 0; x < width; ++x) {
            const std::array<float, 3> color = face_color(static_cast<double>(x), static_cast<double>(y), pupils);
            for (size_t c = 0; c < 3; ++c) {
                planes[c].pixels.push_back(std::floor(color[c] + noise.uniform(-amplitude, amplitude) + 0.5f));
            }
        }
    }
    return planes;
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

inline RealImagePtr image_of(const RedEyeMap &map) { return make_image(map.width, map.height, map.pixels); }

inline ColorImagePtr picture_of(const RedEyePlanes &planes) {
    return make_color_image(static_cast<uint32_t>(planes[0].width), static_cast<uint32_t>(planes[0].height), KO_COLORSPACE_RGB,
                            [&](uint32_t c, uint64_t x, uint64_t y) { return planes[c].at(x, y); });
}

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

// Receives a search's progress lines while it lives.
class RedEyeLog {
  public:
    explicit RedEyeLog(RedEyeCorrection &rec) : rec_(rec), file_("redeye.log") {
        stream_ = std::fopen(file_.c_str(), "w");
        rec_.log_stream = stream_;
    }
    ~RedEyeLog() { close(); }
    RedEyeLog(const RedEyeLog &) = delete;
    RedEyeLog &operator=(const RedEyeLog &) = delete;

    // Ends the log and gives what was written.
    std::string stop() {
        close();
        return read_text(file_.path());
    }

  private:
    void close() {
        rec_.log_stream = nullptr;
        if (stream_ != nullptr) {
            std::fclose(stream_);
            stream_ = nullptr;
        }
    }
    RedEyeCorrection &rec_;
    TemporaryFile file_;
    FILE *stream_ = nullptr;
};

} // namespace ko_test

#endif
