// Pictures that pass in bands: to their working copy, under curves, and into memory to be repaired.
#ifndef KO_WEB_PICTURES_H
#define KO_WEB_PICTURES_H

#include "kohost/pixels.h"
#include "kohost/working_copy.h"

namespace web {

// What JavaScript holds: rows of pixels of one, three or four samples, of which the fourth is alpha.
struct Form {
    kohost::Size size;
    uint32_t samples = 0;

    uint32_t channels() const { return samples == 1 ? 1 : 3; }
};

// The picture that was read: its form, and itself reduced to the size at which it is used. Throws Refused unless all rows of
// one were passed.
Form read_form();
kohost::WorkingCopy take_working_copy();
kohost::Image take_reduced();

// The bytes of the picture held in memory, of one or three channels.
uint8_t *held_bytes();

} // namespace web

#endif
