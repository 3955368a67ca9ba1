// The fit of a curve, and the pool that all fits share, when memory runs short.
#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "ko/trc.h"

#include "capture.h"
#include "faults.h"
#include "library_test.h"
#include "pictures.h"
#include "reference_fit.h"

namespace {

using namespace ko_test;

using Entries = std::vector<uint32_t>;

class TrcComputeFaultTest : public LibraryTest {
  protected:
    // A fit without faults equals the reference at one of these sizes of the pool.
    void expect_good_fit(uint64_t size, const std::vector<uint64_t> &pools) const {
        TRC trc{size, nullptr};
        ASSERT_EQ(fit_whole(&trc, images_), KO_OK);
        ASSERT_NE(trc.array, nullptr);
        const Entries fitted(trc.array, trc.array + size);
        KoTRCFree(&trc);
        EXPECT_TRUE(std::any_of(pools.begin(), pools.end(),
                                [&](uint64_t pool) { return fitted == reference_fit(size, pool, pixels_); }))
            << "size " << size;
    }

    // Fits with a fault in force: a null array and KO_OK if it strikes, good entries otherwise. What follows meets no fault.
    bool fit_under_fault(uint64_t size) const {
        TRC trc{size, nullptr};
        EXPECT_EQ(fit_whole(&trc, images_), KO_OK);
        const bool struck = KoTestFaultStruck() != 0;
        EXPECT_EQ(trc.array == nullptr, struck);
        EXPECT_EQ(trc.size, size);
        EXPECT_EQ(KoErrorGetLastError(), struck ? KO_ERR_ALLOC : KO_OK);
        KoTRCFree(&trc);
        if (!struck) {
            KoTestFailAllocation(0);
        }
        return !struck;
    }

    const std::vector<PixelPair> pixels_ = sparse_cloud(300, 13);
    const ImagePair images_{10, pixels_};
};

TEST_F(TrcComputeFaultTest, AFitInThePresentPool) {
    const int faults = sweep_faults([&] {
        fit_under_fault(200);
        expect_good_fit(200, {256}); // the pool was not touched
        expect_good_fit(256, {256});
    });
    EXPECT_GE(faults, 5); // sums, counts, costs, paths, entries
}

TEST_F(TrcComputeFaultTest, TheOldEntriesAreGone) {
    TRC trc{64, nullptr};
    ASSERT_EQ(fit_whole(&trc, images_), KO_OK);
    ASSERT_NE(trc.array, nullptr);
    StderrCapture swallowed;
    KoTestFailAllocation(1);
    EXPECT_EQ(fit_whole(&trc, images_), KO_OK);
    KoTestFailAllocation(0);
    EXPECT_EQ(trc.array, nullptr);
    EXPECT_EQ(trc.size, 64u);
}

// Each attempt asks for a larger pool than the one before, so that the pool has to grow each time. Whatever fails, a fit that
// is not short of memory finds a good pool, and a still larger pool can be had: no reader was left behind.
TEST_F(TrcComputeFaultTest, AFitThatGrowsThePool) {
    uint64_t size = 256;
    const int faults = sweep_faults([&] {
        const uint64_t before = size;
        size += 4;
        if (!fit_under_fault(size)) {
            expect_good_fit(100, {100, 256, before, size});
            expect_good_fit(size, {size});
        }
        expect_good_fit(200, {size});
        size += 4;
        expect_good_fit(size, {size});
    });
    EXPECT_GE(faults, 7); // the same, and the two arrays of the pool
}

TEST_F(TrcComputeFaultTest, AFailedGrowthAtOnceFollowedByALargerOne) {
    uint64_t size = 256;
    sweep_faults([&] {
        size += 4;
        fit_under_fault(size);
        size += 4;
        expect_good_fit(size, {size});
    });
}

// All allocations fail from some point on.
TEST_F(TrcComputeFaultTest, NothingCanBeHadAnyMore) {
    uint64_t size = 300;
    bool struck = true;
    for (int64_t n = 1; struck; ++n) {
        ASSERT_LT(n, 1000);
        StderrCapture swallowed;
        size += 2;
        KoTestFailAllocationsFrom(n);
        TRC large{size, nullptr};
        TRC small{64, nullptr};
        EXPECT_EQ(fit_whole(&large, images_), KO_OK);
        struck = KoTestFaultStruck() != 0;
        EXPECT_EQ(large.array == nullptr, struck);
        if (struck) {
            EXPECT_EQ(fit_whole(&small, images_), KO_OK);
            EXPECT_EQ(small.array, nullptr);
        }
        KoTestFailAllocation(0);
        KoTRCFree(&large);
        expect_good_fit(size, {size});
        KoStatusClear();
    }
}

// The start of the library may fail to make the pool: the first fit makes it.
TEST_F(TrcComputeFaultTest, AStartWithoutAPool) {
    KoRelease();
    const int64_t before = KoTestLiveBlocks();
    bool struck = true;
    for (int64_t n = 1; struck; ++n) {
        ASSERT_LT(n, 1000);
        {
            StderrCapture swallowed;
            KoTestFailAllocation(n);
            KoInit(nullptr, nullptr);
            struck = KoTestFaultStruck() != 0;
            KoTestFailAllocation(0);
        }
        expect_good_fit(100, {100, 256});
        expect_good_fit(256, {256});
        KoRelease();
        EXPECT_EQ(KoTestLiveBlocks(), before) << "after fault " << n;
    }
    KoInit(nullptr, nullptr);
}

} // namespace
