// The enhancement when memory runs out.
#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "faults.h"
#include "ko.h"
#include "pictures.h"

namespace {

using namespace ko_test;

class LocalContrastEnhancementFaultTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { KoInit(nullptr, nullptr); }
    static void TearDownTestSuite() { KoRelease(); }
};

TEST_F(LocalContrastEnhancementFaultTest, NewGivesNothingWithAReport) {
    const int faults = sweep_faults([] {
        const FeaturesPtr features(KoLocalContrastEnhancementNew(256, 2, 2));
        if (KoTestFaultStruck() == 0) {
            EXPECT_NE(features, nullptr);
            return;
        }
        EXPECT_EQ(features, nullptr);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
        const std::string chain = KoErrorGetLastErrorMessage();
        EXPECT_EQ(chain, "Cannot create object \"LocalContrastEnhancementImageFeatures\"\n-> Cannot allocate " +
                             std::to_string(sizeof(LocalContrastEnhancementImageFeatures)) + " bytes");
    });
    EXPECT_EQ(faults, 1); // Init allocates nothing
}

ColorImagePtr make_picture(int32_t space) {
    Noise noise(7);
    return make_color_image(
        18, 14, space, [&](uint32_t, uint64_t x, uint64_t) { return noise.uniform(0.0f, 20.0f) + static_cast<float>(x * 12); });
}

int32_t enhance(LocalContrastEnhancementImageFeatures *features, ColorImage *picture, TileTRC **grid) {
    return KoLocalContrastEnhancementGetNewTRCsTune(features, picture, 3.0f, 40.0f, 0.6275f, 2, 0.4f, 4, grid);
}

// No grid with the status, or no fault and the grid of an undisturbed call.
void sweep_enhancement(int32_t space) {
    SCOPED_TRACE(space);
    const ColorImagePtr picture = make_picture(space);
    TileTRCPtr expected;
    {
        const FeaturesPtr features(KoLocalContrastEnhancementNew(256, 2, 1));
        TileTRC *grid = nullptr;
        EXPECT_EQ(enhance(features.get(), picture.get(), &grid), KO_OK);
        expected.reset(grid);
    }
    const int faults = sweep_faults([&] {
        const FeaturesPtr features(KoLocalContrastEnhancementNew(256, 2, 1));
        if (features == nullptr) {
            return;
        }
        TileTRC *made = nullptr;
        const int32_t status = enhance(features.get(), picture.get(), &made);
        const TileTRCPtr grid(made);
        const bool struck = KoTestFaultStruck() != 0;
        EXPECT_EQ(KoErrorGetLastError() != KO_OK, struck);
        if (status != KO_OK) {
            EXPECT_TRUE(struck);
            EXPECT_EQ(status, KoErrorGetLastError());
            EXPECT_EQ(grid, nullptr);
            return;
        }
        ASSERT_NE(grid, nullptr);
        ASSERT_NE(grid->array, nullptr);
        ASSERT_NE(features->background, nullptr);
        ASSERT_NE(features->enhanced, nullptr);
        EXPECT_FALSE(struck); // a grid with a hole where a tile met the fault would darken a part of the picture
        EXPECT_EQ(KoTileTRCCompare(expected.get(), grid.get()), 1);
    });
    EXPECT_GE(faults, 20);
}

TEST_F(LocalContrastEnhancementFaultTest, AFaultAnywhereEndsTheCallWithoutAGrid) {
    sweep_enhancement(KO_COLORSPACE_RGB);
    sweep_enhancement(KO_COLORSPACE_GRAY);
}

TEST_F(LocalContrastEnhancementFaultTest, AGivenGridSurvives) {
    const ColorImagePtr picture = make_picture(KO_COLORSPACE_RGB);
    const TileTRCPtr given(KoTileTRCNew(256, 2, 1));
    sweep_faults([&] {
        const FeaturesPtr features(KoLocalContrastEnhancementNew(256, 2, 1));
        TileTRC *grid = given.get();
        if (features != nullptr) {
            enhance(features.get(), picture.get(), &grid);
        }
        EXPECT_EQ(grid, given.get());
    });
}

} // namespace
