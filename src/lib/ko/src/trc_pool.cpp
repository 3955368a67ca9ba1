// The pool of power curves.
//
// The rule to know before changing anything here: poolGrowLock is taken by every acquisition and held through a whole rebuild,
// so a thread that needs a larger pool stops all newcomers while the present readers go on; the count of poolReaders is guarded
// by its own mutex, and its condition tells the one thread that can be waiting (the holder of poolGrowLock) when the last
// reader has gone.
#include "trc_pool.h"

#include <cmath>

#include "alloc.h"
#include "platform.h"

namespace ko {

namespace {

constexpr float exponents[pool_curves] = {0.5f, 0.8f, 1.0f, 1.2f, 1.5f, 2.0f};
constexpr uint64_t first_size = 256;

Mutex poolGrowLock;
Mutex poolCountLock;
Condition poolDrained;
uint64_t poolReaders = 0;

uint64_t poolSize = 0;
uint16_t *poolLevels = nullptr;
float *poolValues = nullptr;

// The quotient in single precision, the power in double, the product in single.
float power_value(uint64_t level, float last_level, float exponent) {
    const float fraction = last_level > 0.0f ? static_cast<float>(level) / last_level : 0.0f;
    return static_cast<float>(std::pow(static_cast<double>(fraction), static_cast<double>(exponent))) * last_level;
}

void empty_pool() {
    KoFree(poolLevels);
    KoFree(poolValues);
    poolLevels = nullptr;
    poolValues = nullptr;
    poolSize = 0;
}

// Only while poolGrowLock is held and nobody reads.
bool rebuild(uint64_t size) {
    empty_pool();
    poolLevels = allocate<uint16_t>(pool_curves * size);
    poolValues = allocate<float>(pool_curves * size);
    if (poolLevels == nullptr || poolValues == nullptr) {
        empty_pool();
        return false;
    }
    const float last_level = static_cast<float>(size - 1);
    for (uint64_t curve = 0; curve < pool_curves; ++curve) {
        for (uint64_t level = 0; level < size; ++level) {
            const float value = power_value(level, last_level, exponents[curve]);
            poolValues[curve * size + level] = value;
            poolLevels[curve * size + level] = static_cast<uint16_t>(std::floor(value));
        }
    }
    poolSize = size;
    return true;
}

void wait_for_readers() {
    Lock lock(poolCountLock);
    while (poolReaders != 0) {
        poolDrained.wait(poolCountLock);
    }
}

} // namespace

bool _KoTRCPoolAcquire(uint64_t size, TrcPool *pool) {
    Lock lock(poolGrowLock);
    if (size > poolSize) {
        wait_for_readers();
        if (!rebuild(size)) {
            return false;
        }
    }
    *pool = {poolSize, poolLevels, poolValues};
    Lock count_lock(poolCountLock);
    ++poolReaders;
    return true;
}

void _KoTRCPoolRelease() {
    Lock lock(poolCountLock);
    if (--poolReaders == 0) {
        poolDrained.wake_all();
    }
}

void _KoTRCPoolInit() {
    TrcPool pool;
    if (_KoTRCPoolAcquire(first_size, &pool)) {
        _KoTRCPoolRelease();
    }
}

void _KoTRCPoolFinish() {
    Lock lock(poolGrowLock);
    empty_pool();
}

} // namespace ko
