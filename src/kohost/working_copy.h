// The working copy: a picture of any size reduced to one on which it is judged and its curves are made. The measures look at
// neighbouring pixels, and their limits suit small pictures; a grid of curves does not depend on the size and suits the whole
// picture.
//
// A picture is first halved each way up to three times, which a JPEG decoder does while decoding, and then reduced to the
// working size in two ways. Averaging serves all measures except noise, which it would hide: noise is measured on pixels that
// are not averaged.
#ifndef KO_KOHOST_WORKING_COPY_H
#define KO_KOHOST_WORKING_COPY_H

#include <cstdint>
#include <vector>

#include "kohost/pixels.h"

namespace kohost {

struct WorkingCopy {
    Image average; // each pixel is the average of the area that it covers
    Image sample;  // each pixel is the one in the middle of that area; no pixels if the picture was small enough to be both
};

// The size of the working copy of a picture: its shape at about the given number of pixels, or its own size if it is no larger.
Size working_size(Size picture, uint64_t area);

// The size of a picture halved as long as it stays at least 1.5 times as large as its working copy each way: averages over few
// whole pixels would be sharper in some places than in others.
Size halved_size(Size picture, Size working);

// Reduces a halved picture to the working size.
WorkingCopy make_working_copy(Image &&halved, Size working);

// The working copy of a picture in memory, at about the given number of pixels.
WorkingCopy working_copy_of(const Pixels &picture, uint64_t area);

// Reduces a picture that is passed row by row. Each pixel of the result is the exact average of the area that it covers,
// rounded to the nearest level.
class AreaAverage {
  public:
    // to is at most as large as from, each way, and has pixels.
    AreaAverage(Size from, Size to, uint32_t channels);

    // Adds the next rows.
    void add(uint32_t rows, const uint8_t *pixels);

    // The reduced picture, once all rows are added.
    Image take();

  private:
    void sum_row(const uint8_t *pixels);
    void add_weighted(uint64_t weight);
    void end_row();

    Size from_;
    Image image_;
    uint64_t row_ = 0;              // rows added
    uint64_t ended_ = 0;            // rows of the result that are complete
    std::vector<uint64_t> sums_;    // of the row last added: for each sample of the result, levels times overlap
    std::vector<uint64_t> columns_; // of the result's row in progress, each row's sums times its overlap
};

// A picture reduced to a size by AreaAverage.
Image reduced(const Pixels &picture, Size size);

// A picture reduced to about the given number of pixels in the two steps of a working copy.
Image reduced_in_steps(const Pixels &picture, uint64_t area);

} // namespace kohost

#endif
