// TIFF files for tests, of every kind of storage, and taken apart independently of the codec.
#ifndef KO_TESTS_HOST_TIFF_FILES_H
#define KO_TESTS_HOST_TIFF_FILES_H

#include <string>
#include <vector>

#include <tiff.h>

#include "image_files.h"

namespace ko_test {

struct TiffRecipe {
    uint32_t width = 21;
    uint32_t height = 19;
    int bits = 8;
    int kind = PHOTOMETRIC_RGB;
    int channels = 3;                 // all
    std::vector<uint16_t> extra = {}; // the kinds of those after the colours
    int compression = COMPRESSION_NONE;
    int predictor = 0;  // 0 writes none
    bool apart = false; // planes of their own
    uint32_t tile = 0;  // the side of tiles, 0 for strips
    uint32_t strip = 7; // rows
    int orientation = 0;
    int sample_form = 0;
    int subfile = 0;
    int density_unit = 0; // 0 writes no density
    float density_x = 1;
    float density_y = 1;
    std::string profile = {};
    const char *mode = "wl";            // b and l give the order of bytes, 8 a file of the large kind
    std::vector<uint16_t> colours = {}; // of a palette: red, green and blue of one after the other
    const char *dng_version = nullptr;
};

// Samples are given at the depth of the recipe.
std::string tiff_file(const TiffRecipe &recipe, const Sample &sample);

// Several files' worth of pictures in one.
std::string tiff_pages(const std::vector<TiffRecipe> &recipes, const Sample &sample);

// A number that a file gives for its first picture, 0 without one.
uint32_t tiff_number(const std::string &file, uint32_t tag);
double tiff_real(const std::string &file, uint32_t tag);
std::string tiff_bytes(const std::string &file, uint32_t tag);

// The pixels of an 8-bit file with its channels together in strips.
Pixels tiff_pixels(const std::string &file);

} // namespace ko_test

#endif
