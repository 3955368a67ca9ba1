// Pictures with red eyes at known places, and models that distinguish them.
#ifndef KO_TESTS_HOST_RED_EYE_PICTURES_H
#define KO_TESTS_HOST_RED_EYE_PICTURES_H

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "files.h"
#include "image_files.h"
#include "judged_pictures.h"

namespace ko_test {

// A red disc, and how rough the skin around it is: the model scores it by that.
struct Eye {
    uint32_t x = 0;
    uint32_t y = 0;
    uint32_t radius = 7;
    uint32_t roughness = 0;
};

inline uint32_t skin_sample(const std::vector<Eye> &eyes, uint32_t x, uint32_t y, uint32_t c) {
    constexpr std::array<uint32_t, 3> skin = {160, 150, 130};
    constexpr std::array<uint32_t, 3> red = {190, 30, 40};
    constexpr uint32_t reach = 3;
    uint32_t rough = 0;
    for (const Eye &eye : eyes) {
        const double distance = std::hypot(static_cast<double>(x) - eye.x, static_cast<double>(y) - eye.y);
        if (distance < eye.radius) {
            return red[c] + scatter(x, y) % 4;
        }
        rough = distance < reach * eye.radius ? eye.roughness : rough;
    }
    return skin[c] + (rough > 0 ? scatter(x, y) % rough : 0);
}

inline Sample skin_with(std::vector<Eye> eyes) {
    return [eyes](uint32_t x, uint32_t y, uint32_t c) { return skin_sample(eyes, x, y, c); };
}

inline constexpr uint32_t eyes_width = 320;
inline constexpr uint32_t eyes_height = 200;

// From left to right the eyes are smooth, slightly rough and rough, and one is too near the edge for the model.
inline const std::vector<Eye> four_eyes = {{60, 60, 7, 0}, {140, 100, 7, 30}, {230, 60, 8, 60}, {311, 150, 7, 0}};

inline std::string eyes_png(const std::vector<Eye> &eyes = four_eyes, int colour = png_rgb) {
    return png_file({eyes_width, eyes_height, 8, colour, false, {}, {}}, skin_with(eyes));
}

inline std::string little_endian(uint32_t word) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(word >> shift & 255);
    }
    return bytes;
}

inline std::string little_endian(float value) { return little_endian(std::bit_cast<uint32_t>(value)); }

// A model whose two scores rise with the sum of all features: smooth patches score high.
struct ModelRecipe {
    std::string accept = "0.7";
    std::string reject = "0.3";
    float bias = 71.0f;
    float weight = 5.0f;
};

// Features of a channel: 4 by 4 cells of 8 bins.
inline constexpr uint32_t feature_length = 128;

inline std::string config_text(const ModelRecipe &recipe, const std::string &name) {
    std::string text;
    for (const std::string &value :
         {std::string("24"), std::string("8"), std::string("4"), std::string("0.125"), std::string("0"), std::string("1.0"),
          std::string("0.6"), std::string("0.5"), std::string("0.0001"), recipe.accept, recipe.reject, recipe.accept,
          recipe.reject, name + ".projection", name}) {
        text.append("caption\n").append(value).append("\n");
    }
    return text;
}

// K rows of D columns, of which the first row sums the features and the others are 0.
inline std::string projection_bytes(uint32_t dimension = 3 * feature_length) {
    constexpr uint32_t rows = feature_length;
    std::string bytes = little_endian(1u) + little_endian(rows) + little_endian(dimension);
    bytes.append(size_t{4} * (rows + dimension), '\0');
    for (uint32_t i = 0; i < dimension; ++i) {
        bytes += little_endian(0.01f);
    }
    return bytes.append(size_t{4} * (rows - 1) * dimension, '\0');
}

inline std::string classifier_bytes(const ModelRecipe &recipe, uint32_t count = feature_length) {
    std::string bytes = little_endian(count) + little_endian(recipe.bias);
    for (uint32_t i = 0; i < count; ++i) {
        bytes += little_endian(recipe.weight);
    }
    return bytes;
}

// Writes the files of a model, whose paths begin with the stem; gives the path of its configuration.
inline std::string put_model(const std::string &stem, const ModelRecipe &recipe = {}) {
    write_bytes(stem + ".projection", projection_bytes());
    write_bytes(stem + "_RE_FE", classifier_bytes(recipe));
    write_bytes(stem + "_RE_BE", classifier_bytes(recipe));
    write_bytes(stem + ".cfg", config_text(recipe, stem.substr(stem.rfind('/') + 1)));
    return stem + ".cfg";
}

} // namespace ko_test

#endif
