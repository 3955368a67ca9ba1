// The record of settings when memory runs out, and what its end gives back.
#include <string>

#include <gtest/gtest.h>

#include "allocation_sweep.h"
#include "faults.h"
#include "ko.h"
#include "redeye_scene.h"

namespace {

using namespace ko_test;

class RedEyeCorrectionFaultTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { KoInit(nullptr, nullptr); }
    static void TearDownTestSuite() { KoRelease(); }
};

TEST_F(RedEyeCorrectionFaultTest, NewGivesNothingWithAReport) {
    expect_allocations({1016}, KO_ERR_CREATE_OBJECT, cannot_create("RedEyeCorrection"), [] {
        RedEyeCorrection *rec = KoRedEyeCorrectionNew();
        const bool made = rec != nullptr;
        KoRedEyeCorrectionDelete(rec);
        return made;
    });
}

TEST_F(RedEyeCorrectionFaultTest, FreeAndDeleteGiveTheModelBack) {
    KoErrorGetLastError();
    const int64_t before = KoTestLiveBlocks();
    RedEyeCorrection own{};
    KoRedEyeCorrectionInit(&own);
    give_model(own);
    EXPECT_GE(KoTestLiveBlocks(), before + 10);
    EXPECT_EQ(KoRedEyeCorrectionFree(&own), KO_OK);
    EXPECT_EQ(KoTestLiveBlocks(), before);
    RedEyeCorrection *made = KoRedEyeCorrectionNew();
    ASSERT_NE(made, nullptr);
    give_model(*made);
    EXPECT_EQ(KoRedEyeCorrectionDelete(made), KO_OK);
    EXPECT_EQ(KoTestLiveBlocks(), before);
}

// Initialising, choosing channels and naming files need no memory.
TEST_F(RedEyeCorrectionFaultTest, SettersNeedNoMemory) {
    RedEyeCorrection rec{};
    KoTestFailAllocationsFrom(1);
    EXPECT_EQ(KoRedEyeCorrectionInit(&rec), KO_OK);
    EXPECT_EQ(KoRedEyeCorrectionEnableHistogramChannel(&rec, 1, 1, 1), KO_OK);
    EXPECT_EQ(KoRedEyeCorrectionSetCategorizerConfig(&rec, "a", "b", "c"), KO_OK);
    EXPECT_EQ(KoTestFaultStruck(), 0);
    KoTestFailAllocation(0);
}

} // namespace
