// What the other families of curves use of a tone curve beyond its public functions.
#ifndef KO_SRC_TRC_H
#define KO_SRC_TRC_H

#include <cstdint>

#include "convert.h"
#include "ko/trc.h"

namespace ko {

// The entry of a level, as a float; a level past the curve takes its last entry. size is at least 1.
inline float curve_value(const uint32_t *entries, uint32_t size, uint32_t level) {
    return static_cast<float>(entries[level < size ? level : size - 1]);
}

} // namespace ko

#endif
