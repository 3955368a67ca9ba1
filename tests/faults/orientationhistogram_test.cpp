// The orientation histogram when memory runs out.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "allocation_sweep.h"
#include "faults.h"
#include "ko/orientationhistogram.h"
#include "library_test.h"
#include "pictures.h"
#include "working_folder.h"

namespace {

using namespace ko_test;

class OrientationHistogramFaultTest : public LibraryTest {
  protected:
    const PatchGeometry geometry_ = {361, 16, 16, 1, 1.0f, 1.0f, 2, 3};
    const HistogramLayout layout_ = {8, 4, 16, 128, 0.0625f, 0.0f, 0.5f, 0.5f, 0.5f, 0.01f};
};

std::vector<float> features_of(OrientationHistogram *oh) {
    Noise noise(1);
    std::vector<float> patch;
    for (int i = 0; i < 22 * 22; ++i) {
        patch.push_back(noise.uniform(0.0f, 255.0f));
    }
    std::vector<float> features(128);
    EXPECT_EQ(KoOrientationHistogramCompute(oh, 22, patch.data(), features.data()), KO_OK);
    return features;
}

// Six matrices of two blocks each, and ten arrays.
constexpr int kept_blocks = 6 * 2 + 10;

TEST_F(OrientationHistogramFaultTest, NewGivesNullAndNamesTheObject) {
    OrientationHistogram *undisturbed = KoOrientationHistogramNew(&geometry_, &layout_);
    const std::vector<float> expected = features_of(undisturbed);
    KoOrientationHistogramDelete(undisturbed);
    const int faults = sweep_faults([&] {
        OrientationHistogram *oh = KoOrientationHistogramNew(&geometry_, &layout_);
        EXPECT_EQ(oh == nullptr, KoTestFaultStruck() != 0);
        if (oh == nullptr) {
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
            const std::string head = cannot_create("OrientationHistogram") + "Cannot allocate ";
            EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).substr(0, head.size()), head);
        } else {
            expect_status(KO_OK, "");
            EXPECT_EQ(features_of(oh), expected);
        }
        KoOrientationHistogramDelete(oh);
    });
    EXPECT_GE(faults, 1 + kept_blocks);
}

// A record whose Init failed is still the caller's to free.
TEST_F(OrientationHistogramFaultTest, InitGivesItsStatusAndLeavesARecordToFree) {
    const int faults = sweep_faults([&] {
        OrientationHistogram oh;
        std::memset(&oh, 0x5A, sizeof oh);
        const int32_t status = KoOrientationHistogramInit(&oh, &geometry_, &layout_);
        EXPECT_EQ(status, KoTestFaultStruck() != 0 ? KO_ERR_ALLOC : KO_OK);
        EXPECT_EQ(KoErrorGetLastError(), status);
        EXPECT_EQ(KoOrientationHistogramFree(&oh), KO_OK);
    });
    EXPECT_GE(faults, kept_blocks);
}

TEST_F(OrientationHistogramFaultTest, NothingIsLeftOverWhenAllMemoryEnds) {
    for (int64_t from = 1; from <= 1 + kept_blocks; ++from) {
        const int64_t before = KoTestLiveBlocks();
        const StderrCapture swallowed;
        KoTestFailAllocationsFrom(from);
        EXPECT_EQ(KoOrientationHistogramNew(&geometry_, &layout_), nullptr);
        EXPECT_NE(KoErrorGetLastError(), KO_OK);
        KoTestFailAllocation(0);
        KoStatusClear();
        EXPECT_LE(KoTestLiveBlocks(), before + 1) << "more than the thread's message buffer, with no memory from " << from;
    }
}

// It cannot fail once it is built.
TEST_F(OrientationHistogramFaultTest, ComputingNeedsNoMemory) {
    OrientationHistogram *oh = KoOrientationHistogramNew(&geometry_, &layout_);
    const std::vector<float> expected = features_of(oh);
    EXPECT_EQ(sweep_faults([&] { EXPECT_EQ(features_of(oh), expected); }), 0);
    KoOrientationHistogramDelete(oh);
}

TEST_F(OrientationHistogramFaultTest, TheDumpNeedsNoMemoryOfTheLibrary) {
    const WorkingFolder folder;
    OrientationHistogram *oh = KoOrientationHistogramNew(&geometry_, &layout_);
    oh->patch_count = 1;
    std::vector<float> features(3 * 128, 1.5f);
    RedEyePatch patch{};
    patch.features = features.data();
    patch.projected = features.data();
    for (size_t c = 0; c < 3; ++c) {
        patch.feature_rows[c] = patch.projected_rows[c] = &features[128 * c];
    }
    sweep_faults([&] { EXPECT_EQ(KoOrientationHistogramDumpPatches(oh, &patch, 1, "", "a", "b"), 0); });
    EXPECT_EQ(read_bytes("a_b_feats.par").size(), 12u + 3 * 128 * 4 + 12);
    KoOrientationHistogramDelete(oh);
}

} // namespace
