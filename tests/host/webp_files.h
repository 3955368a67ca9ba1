// WebP files for tests, and taken apart independently of the codec.
#ifndef KO_TESTS_HOST_WEBP_FILES_H
#define KO_TESTS_HOST_WEBP_FILES_H

#include <string>

#include "image_files.h"

namespace ko_test {

struct WebpRecipe {
    uint32_t width = 24;
    uint32_t height = 20;
    bool alpha = false;
    bool lossless = true;
    float quality = 90;
    std::vector<Chunk> chunks = {}; // "ICCP", "EXIF", "XMP " and their data
};

// Sample 3 is alpha.
std::string webp_file(const WebpRecipe &recipe, const Sample &sample);

// Two frames.
std::string webp_animation();

// The data of the first chunk of a type, "" without one.
std::string webp_chunk_data(const std::string &file, const std::string &type);

// The types of all chunks, each followed by a space.
std::string webp_chunk_types(const std::string &file);

// The pixels, with alpha if requested.
Pixels webp_pixels(const std::string &file, bool alpha);

} // namespace ko_test

#endif
