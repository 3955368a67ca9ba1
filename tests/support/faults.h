// An allocator that fails on demand, for programs that link ko_faulty, the library over that allocator.
#ifndef KO_TESTS_FAULTS_H
#define KO_TESTS_FAULTS_H

#include <cstdint>
#include <functional>

#include "ko/base.h"

KO_BEGIN_C

// Makes the n-th allocation from now on fail, counted from 1, and those after it succeed again; 0 ends the faults.
KO_API void KoTestFailAllocation(int64_t n);

// Makes the n-th allocation from now on and all after it fail.
KO_API void KoTestFailAllocationsFrom(int64_t n);

// True if a fault has struck since it was last armed.
KO_API int32_t KoTestFaultStruck(void);

// Blocks that are allocated and not freed.
KO_API int64_t KoTestLiveBlocks(void);

KO_END_C

namespace ko_test {

// Runs attempt with the 1st, 2nd, 3rd, ... allocation failing until an attempt meets no fault. Each attempt cleans up after
// itself; the sweep fails the test if blocks are left over, the thread's own record aside, and clears the status before each.
// The allocator's lines on the standard error stream are swallowed. Returns the number of faults that struck.
int sweep_faults(const std::function<void()> &attempt);

} // namespace ko_test

#endif
