// What a user may choose about the enhancement, with the values that serve most photographs.
#ifndef KO_HOST_TUNING_H
#define KO_HOST_TUNING_H

#include <cstdint>

namespace host {

struct Grid {
    uint64_t columns = 8;
    uint64_t rows = 8;
};

struct Tuning {
    Grid grid;
    uint64_t curve_size = 256;
    float max_gain = 3.0f;
    float strength = 40.0f;
    float limit = 0.6275f;
    uint64_t levels = 5;
    float ratio = 0.5f;
};

} // namespace host

#endif
