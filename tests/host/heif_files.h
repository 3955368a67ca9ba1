// HEIC and AVIF files for tests, where libheif has encoders.
#ifndef KO_TESTS_HOST_HEIF_FILES_H
#define KO_TESTS_HOST_HEIF_FILES_H

#include <string>

#include "image_files.h"

namespace ko_test {

enum class HeifKind { heic, avif };

bool can_encode(HeifKind kind);

struct HeifRecipe {
    HeifKind kind = HeifKind::avif;
    uint32_t width = 64;
    uint32_t height = 48;
    bool alpha = false;
    bool multiplied = false; // says that colours are multiplied by alpha
    int bits = 8;
    int orientation = 1;   // of the file itself, as Exif counts
    std::string exif = {}; // from the byte-order mark on
    std::string xmp = {};
    std::string xmp_type = "application/rdf+xml"; // the declared type of its block
    std::string profile = {};
    int primaries = 0; // 0 says nothing of colours
    int curve = 13;
    int pictures = 1;
};

// Sample 3 is alpha. Colours are coded finely, but not without loss.
std::string heif_file(const HeifRecipe &recipe, const Sample &sample);

} // namespace ko_test

#endif
