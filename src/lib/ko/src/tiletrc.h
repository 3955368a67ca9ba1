// What the files of the grid use of its creation.
#ifndef KO_SRC_TILETRC_H
#define KO_SRC_TILETRC_H

#include "ko/tiletrc.h"

namespace ko {

// All entries of a grid; what does not fit 64 bits counts as more than any allocation.
uint64_t grid_entries(uint64_t size, uint64_t strips_x, uint64_t strips_y);

} // namespace ko

#endif
