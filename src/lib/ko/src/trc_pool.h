// The pool of the power curves that every curve fit reads: built at 256 entries when the library starts, grown when a larger
// curve is fitted, shared by all threads.
#ifndef KO_SRC_TRC_POOL_H
#define KO_SRC_TRC_POOL_H

#include <cstdint>

namespace ko {

constexpr int pool_curves = 6;

// Read-only between acquire and release. Curve c begins at entry c * size; a curve of the pool may be larger than asked for.
struct TrcPool {
    uint64_t size;          // entries per curve
    const uint16_t *levels; // the curves floored to levels
    const float *values;    // the same curves unfloored
};

// Builds the pool at its first size; a failure leaves it empty, and the next acquisition tries again.
void _KoTRCPoolInit();

// Frees the pool; all computations have ended.
void _KoTRCPoolFinish();

// Makes the caller a reader of a pool of at least size entries a curve. Waits until the pool has grown if it must, and growing
// waits until all readers have gone. False if memory is short: the caller is no reader then.
[[nodiscard]] bool _KoTRCPoolAcquire(uint64_t size, TrcPool *pool);
void _KoTRCPoolRelease();

} // namespace ko

#endif
