// Sweeps over the allocations of a call whose sizes and order are known. For programs that link ko_faulty.
#ifndef KO_TESTS_ALLOCATION_SWEEP_H
#define KO_TESTS_ALLOCATION_SWEEP_H

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture.h"
#include "faults.h"
#include "ko/matrix_float.h"
#include "library_test.h"

namespace ko_test {

// The sizes of a grid's allocations after its record: the row table, then the block of 8 bytes an element and 128 more.
inline std::vector<int64_t> grid_blocks(int64_t width, int64_t height) {
    const int64_t remainder = width % 4;
    const int64_t padding = remainder == 0 ? 4 : 8 - remainder;
    return {height * 8, height * (width + padding) * 8 + 128};
}

inline std::vector<int64_t> operator+(std::vector<int64_t> a, const std::vector<int64_t> &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Lets each of a call's allocations fail in turn, and then each together with all that follow.
//   sizes     the sizes of all blocks that the call asks for, in order
//   status    what a failed call leaves as the thread's status
//   report    what stands above "Cannot allocate ... bytes" in the chain then
//   attempt   makes the call, checks and frees what it gave, and returns whether it succeeded
template <class Attempt>
void expect_allocations(const std::vector<int64_t> &sizes, int32_t status, const std::string &report, Attempt attempt) {
    size_t n = 0;
    const int faults = sweep_faults([&] {
        const bool succeeded = attempt();
        EXPECT_EQ(succeeded, KoTestFaultStruck() == 0);
        if (succeeded) {
            expect_status(KO_OK, "");
        } else if (n < sizes.size()) {
            expect_status(status, report + "Cannot allocate " + std::to_string(sizes[n]) + " bytes");
        }
        ++n;
    });
    EXPECT_EQ(static_cast<size_t>(faults), sizes.size());
    const int64_t before = KoTestLiveBlocks();
    for (size_t from = 1; from <= sizes.size(); ++from) {
        const StderrCapture swallowed;
        KoStatusClear();
        KoTestFailAllocationsFrom(static_cast<int64_t>(from));
        EXPECT_FALSE(attempt());
        EXPECT_EQ(KoErrorGetLastError(), status);
        KoTestFailAllocation(0);
        KoStatusClear();
        EXPECT_EQ(KoTestLiveBlocks(), before) << "blocks left over with no memory from allocation " << from << " on";
    }
}

// What a constructor puts above the failed allocation in the chain.
inline std::string cannot_create(const char *name) { return "Cannot create object \"" + std::string(name) + "\"\n-> "; }

} // namespace ko_test

#endif
