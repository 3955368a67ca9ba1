// The ground of the plug-in's tests: the library with the plug-in, and a folder for files.
#ifndef KO_TESTS_KOIO_KOIO_TEST_H
#define KO_TESTS_KOIO_KOIO_TEST_H

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "cmyk_profile.h"
#include "files.h"
#include "image_files.h"
#include "ko/imageformat.h"
#include "library_test.h"
#include "pictures.h"

namespace ko_test {

class KoioTest : public LibraryTest {
  protected:
    KoioTest() : folder_("folder") { std::filesystem::create_directory(folder_.path()); }

    void SetUp() override { ASSERT_NE(KoRealImageGetLoadFunction(KO_IMAGE_FORMAT_PNG), nullptr) << "no plug-in"; }

    std::string path(const std::string &name = "") const { return folder_.path() + "/" + name; }
    std::string file(const std::string &name, const std::string &bytes) const {
        write_bytes(path(name), bytes);
        return path(name);
    }

    // The names of all files in the folder, drafts among them.
    std::vector<std::string> files() const { return names_in(folder_.path()); }

  private:
    TemporaryFile folder_;
};

inline uint32_t mixed(uint32_t x, uint32_t y, uint32_t c) { return (x * 37 + y * 91 + c * 53 + x * y) & 0xff; }

// A sample that fits a depth.
inline Sample mixed_at(int depth) {
    return [depth](uint32_t x, uint32_t y, uint32_t c) {
        return depth == 16 ? (x * 9973 + y * 7919 + c * 5003) & 0xffff : mixed(x, y, c) & ((1u << depth) - 1);
    };
}

// A picture of one colour made of full inks, each of which JPEG keeps.
inline std::string cmyk_file(const std::array<uint8_t, 4> &inks, const std::string &profile, bool progressive = false) {
    JpegRecipe recipe{.width = 24, .height = 16, .colour = JpegColour::cmyk, .quality = 100};
    recipe.progressive = progressive;
    recipe.segments = profile.empty() ? std::vector<Segment>() : icc_segments(profile);
    return jpeg_file(recipe, [&](uint32_t, uint32_t, uint32_t c) { return 255u - inks[c]; });
}

// All planes of a picture, one behind the other.
inline std::vector<float> all_pixels(const ColorImage *image) {
    std::vector<float> all;
    for (uint64_t c = 0; c < image->depth; ++c) {
        const std::vector<float> plane = pixels(&image->planes[c]);
        all.insert(all.end(), plane.begin(), plane.end());
    }
    return all;
}

// The bytes of a picture file plane by plane, as floats.
inline std::vector<float> planes_of(const Pixels &from, uint32_t planes) {
    std::vector<float> all;
    for (uint32_t c = 0; c < planes; ++c) {
        for (size_t i = c; i < from.bytes.size(); i += from.channels) {
            all.push_back(static_cast<float>(from.bytes[i]));
        }
    }
    return all;
}

// Gray by the library's weights, from three planes one behind the other.
inline std::vector<float> gray_of(const std::vector<float> &planes) {
    const size_t size = planes.size() / 3;
    std::vector<float> gray(size);
    for (size_t i = 0; i < size; ++i) {
        gray[i] = (0.299f * planes[i] + 0.587f * planes[size + i]) + 0.114f * planes[2 * size + i];
    }
    return gray;
}

inline RealImagePtr old_image() { return make_image(2, 1, {7.0f, 8.0f}); }
inline ColorImagePtr old_color_image(int32_t space) {
    return make_color_image(2, 1, space, [](uint32_t c, uint64_t x, uint64_t) { return static_cast<float>(70 + 10 * c + x); });
}

} // namespace ko_test

#endif
