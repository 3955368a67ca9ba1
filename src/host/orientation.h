// Which way up a picture is to be shown. Cameras store the rows of a picture as the sensor delivers them, and record in the
// Exif block how they were held; the enhancement leaves both alone, and only what is displayed is rotated.
#ifndef KO_HOST_ORIENTATION_H
#define KO_HOST_ORIENTATION_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "kohost/pixels.h"

namespace host {

// How stored rows and columns become those that are shown: first the two are swapped, then each is reversed.
struct Orientation {
    bool swapped = false;
    bool reversed_x = false;
    bool reversed_y = false;
};

// The orientation in an Exif block; as stored, if the block has none or is damaged.
Orientation orientation_of(std::span<const uint8_t> exif);

// The size at which cells stored in columns and rows are shown.
kohost::Size shown_size(const Orientation &orientation, kohost::Size stored);

// For each cell that is shown, row by row, the number of the stored one.
std::vector<size_t> shown_order(const Orientation &orientation, kohost::Size stored);

kohost::Image shown_image(const Orientation &orientation, kohost::Image stored);

} // namespace host

#endif
