// What holds for every text picture that was loaded.
#ifndef KO_TESTS_FUZZ_PICTURE_CHECKS_H
#define KO_TESTS_FUZZ_PICTURE_CHECKS_H

#include "harness.h"
#include "pictures.h"

namespace ko_fuzz {

// Walks all pixels and the padding behind them.
inline void look(const RealImage *image) {
    expect((image->height == 0) == (image->rows == nullptr), "an image with lines has rows");
    expect(image->width > 0 || image->height == 0, "a line has pixels");
    for (uint64_t y = 0; y < image->height; ++y) {
        for (uint64_t x = 0; x < image->width + image->padding; ++x) {
            volatile float seen = image->rows[y][x];
            static_cast<void>(seen);
        }
    }
}

} // namespace ko_fuzz

#endif
