// The enhancement: record, decision table, and the way from a picture to its grid of curves under configuration 4, the images
// against plain references and the curves against the fit of each tile.
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "capture.h"
#include "enhancement.h"
#include "ko.h"
#include "pictures.h"
#include "reference_bilateralfilter.h"
#include "reference_enhancement.h"
#include "same_floats.h"

namespace {

using namespace ko_test;

using Features = LocalContrastEnhancementImageFeatures;

class LocalContrastEnhancementTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { KoInit(nullptr, nullptr); }
    static void TearDownTestSuite() { KoRelease(); }
    void SetUp() override {
        set_flags(nullptr);
        KoStatusClear();
    }
};

ColorImagePtr flat_picture(uint32_t width, uint32_t height, float value) {
    return make_color_image(width, height, KO_COLORSPACE_GRAY, [=](uint32_t, uint64_t, uint64_t) { return value; });
}

std::vector<uint32_t> curve_of(const TileTRC *grid, uint64_t x, uint64_t y) {
    const uint32_t *curve = KoTileTRCGetTRC(grid, x, y);
    return {curve, curve + grid->size};
}

// The fit of one tile, made here from the two images.
std::vector<uint32_t> fit(uint64_t size, RealImage *input, RealImage *target, uint64_t x, uint64_t y, uint64_t width,
                          uint64_t height) {
    const RealImageLineIteratorPtr a(KoRealImageLineIteratorNewSubImage(input, x, y, width, height));
    const RealImageLineIteratorPtr b(KoRealImageLineIteratorNewSubImage(target, x, y, width, height));
    const TRCPtr curve(KoTRCNew(size));
    EXPECT_EQ(KoTRCCompute(curve.get(), a.get(), b.get()), KO_OK);
    return {curve->array, curve->array + size};
}

void expect_tiles(const Features *features, const TileTRC *grid) {
    const uint64_t width = features->luminance->width / features->numBlocksX;
    const uint64_t height = features->luminance->height / features->numBlocksY;
    for (uint64_t y = 0; y < features->numBlocksY; ++y) {
        for (uint64_t x = 0; x < features->numBlocksX; ++x) {
            EXPECT_EQ(curve_of(grid, x, y),
                      fit(grid->size, features->luminance, features->enhanced, x * width, y * height, width, height))
                << "tile " << x << ", " << y;
        }
    }
}

void expect_images(const Features *features, const ColorImage *picture, const Gain &gain) {
    const Plane luminance = reference_luminance(picture);
    const Plane background = reference_bilateral(luminance, gain.levels);
    EXPECT_TRUE(same_floats(luminance.pixels, pixels(features->luminance)));
    ASSERT_NE(features->background, nullptr);
    EXPECT_TRUE(same_floats(background.pixels, pixels(features->background)));
    ASSERT_NE(features->enhanced, nullptr);
    EXPECT_TRUE(same_floats(reference_enhanced(luminance, background, gain), pixels(features->enhanced)));
}

// The whole way for one picture and one grid.
void expect_enhancement(ColorImage *picture, uint64_t size, uint64_t blocks_x, uint64_t blocks_y, const Gain &gain = {}) {
    SCOPED_TRACE(testing::Message() << KoColorImageGetWidth(picture) << " by " << KoColorImageGetHeight(picture) << ", space "
                                    << picture->color_space << ", " << size << " entries, grid " << blocks_x << " by "
                                    << blocks_y);
    const FeaturesPtr features = make_features(size, blocks_x, blocks_y);
    TileTRC *made = nullptr;
    ASSERT_EQ(enhance(features.get(), picture, &made, gain), KO_OK);
    const TileTRCPtr grid(made);
    ASSERT_NE(grid, nullptr);
    EXPECT_EQ(grid->size, size);
    EXPECT_EQ(grid->numStripsX, blocks_x);
    EXPECT_EQ(grid->numStripsY, blocks_y);
    expect_images(features.get(), picture, gain);
    expect_tiles(features.get(), grid.get());
    EXPECT_EQ(KoErrorGetLastError(), KO_OK);
}

TEST_F(LocalContrastEnhancementTest, InitFillsTheRecord) {
    Features features;
    ASSERT_EQ(KoLocalContrastEnhancementInit(&features, 512, 7, 9), KO_OK);
    EXPECT_EQ(features.trcSize, 512u);
    EXPECT_EQ(features.numBlocksX, 7u);
    EXPECT_EQ(features.numBlocksY, 9u);
    EXPECT_EQ(features.yiqImage, nullptr);
    EXPECT_EQ(features.luminance, nullptr);
    EXPECT_EQ(features.enhanced, nullptr);
    EXPECT_EQ(features.chroma, nullptr);
    EXPECT_EQ(features.background, nullptr);
    EXPECT_EQ(features.detailScores, nullptr);
    EXPECT_EQ(features.noiseScores, nullptr);
    EXPECT_EQ(features.entropyScores, nullptr);
    EXPECT_EQ(features.detailThreshold, 5.6f);
    EXPECT_EQ(features.noiseThreshold, 1.0f);
    EXPECT_EQ(features.entropyThreshold, 2.45f);
    EXPECT_EQ(features.keepScoring, 0);
    EXPECT_EQ(features.proceed, 0);
    EXPECT_EQ(features.dmValues.score, 0.0f);
    EXPECT_EQ(features.dmValues.noisyBlocks, 0u);
    EXPECT_EQ(features.dmValues.lowDetailBlocks, 0u);
    EXPECT_EQ(features.dmValues.lowEntropyBlocks, 0u);
    EXPECT_EQ(KoLocalContrastEnhancementGetNumBlocksX(&features), 7u);
    EXPECT_EQ(KoLocalContrastEnhancementGetNumBlocksY(&features), 9u);
    EXPECT_EQ(KoLocalContrastEnhancementFree(&features), KO_OK);
}

TEST_F(LocalContrastEnhancementTest, NewFillsTheRecord) {
    const FeaturesPtr features = make_features(300, 3, 5);
    ASSERT_NE(features, nullptr);
    EXPECT_EQ(features->trcSize, 300u);
    EXPECT_EQ(KoLocalContrastEnhancementGetNumBlocksX(features.get()), 3u);
    EXPECT_EQ(KoLocalContrastEnhancementGetNumBlocksY(features.get()), 5u);
    EXPECT_EQ(features->yiqImage, nullptr);
    EXPECT_EQ(features->detailThreshold, 5.6f);
}

TEST_F(LocalContrastEnhancementTest, CubeRootTableIsInDoublePrecision) {
    const FeaturesPtr features = make_features();
    for (int i = 0; i < 1024; ++i) {
        const auto expected = static_cast<float>(std::pow(i * 0.25, 0.3333333432674408));
        EXPECT_TRUE(same_float(expected, features->cubeRootTable[i])) << i;
    }
    EXPECT_EQ(features->cubeRootTable[4], 1.0f);
}

TEST_F(LocalContrastEnhancementTest, StockLimits) {
    struct Limits {
        float score;
        uint64_t noisy, low_detail, low_entropy;
    };
    constexpr Limits stock[] = {{0.19f, 37, 62, 23}, {0.35f, 23, 63, 20}, {0.64f, 26, 63, 6}};
    const FeaturesPtr features = make_features();
    for (int32_t i = 1; i <= 3; ++i) {
        const DecisionMechanismThreshold *limits = KoLocalContrastEnhancementGetDMThreshold(features.get(), i);
        ASSERT_EQ(limits, &features->dmThresholds[i]);
        EXPECT_EQ(limits->score, stock[i - 1].score);
        EXPECT_EQ(limits->noisyBlocks, stock[i - 1].noisy);
        EXPECT_EQ(limits->lowDetailBlocks, stock[i - 1].low_detail);
        EXPECT_EQ(limits->lowEntropyBlocks, stock[i - 1].low_entropy);
    }
}

TEST_F(LocalContrastEnhancementTest, LimitsCanBeChangedBothWays) {
    const FeaturesPtr features = make_features();
    const FeaturesPtr other = make_features();
    for (int32_t i = 1; i <= 3; ++i) {
        const auto number = static_cast<uint64_t>(i);
        const DecisionMechanismThreshold limits{0.5f, 10 + number, 20 + number, (1ull << 40) + number};
        EXPECT_EQ(KoLocalContrastEnhancementSetDecisionMechanismThreshold(features.get(), i, &limits), KO_OK);
        DecisionMechanismThreshold *live = KoLocalContrastEnhancementGetDMThreshold(features.get(), i);
        EXPECT_EQ(live->score, 0.5f);
        EXPECT_EQ(live->noisyBlocks, limits.noisyBlocks);
        EXPECT_EQ(live->lowDetailBlocks, limits.lowDetailBlocks);
        EXPECT_EQ(live->lowEntropyBlocks, limits.lowEntropyBlocks);
        live->noisyBlocks = 1;
        EXPECT_EQ(KoLocalContrastEnhancementGetDMThreshold(features.get(), i)->noisyBlocks, 1u);
    }
    EXPECT_EQ(KoLocalContrastEnhancementGetDMThreshold(other.get(), 1)->score, 0.19f); // the stock table is not touched
    EXPECT_EQ(make_features()->dmThresholds[3].lowEntropyBlocks, 6u);
}

TEST_F(LocalContrastEnhancementTest, LimitsOutsideOneToThreeAreInternalErrors) {
    const FeaturesPtr features = make_features();
    const DecisionMechanismThreshold limits{9.0f, 9, 9, 9};
    for (const int32_t index : {0, 4, -1, 5, std::numeric_limits<int32_t>::min()}) {
        const std::string text =
            "[INTERNAL ERROR] Index out of bounds: " + std::to_string(index) + " (1-3)"; // printed at the default verbosity
        const PrintCapture printed;
        KoStatusClear();
        EXPECT_EQ(KoLocalContrastEnhancementGetDMThreshold(features.get(), index), nullptr);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INDEX_OUT_OF_BOUNDS);
        EXPECT_EQ(KoErrorGetLastErrorMessage(), text);
        KoStatusClear();
        EXPECT_EQ(KoLocalContrastEnhancementSetDecisionMechanismThreshold(features.get(), index, &limits),
                  KO_ERR_INDEX_OUT_OF_BOUNDS);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INDEX_OUT_OF_BOUNDS);
        EXPECT_EQ(KoErrorGetLastErrorMessage(), text);
        EXPECT_EQ(printed.texts(), (std::vector<std::string>{text, text}));
    }
    for (const DecisionMechanismThreshold &kept : features->dmThresholds) {
        EXPECT_NE(kept.score, 9.0f);
    }
}

TEST_F(LocalContrastEnhancementTest, ConfigurationsHaveNames) {
    const char *const names[] = {"Disabled", "Conservative", "Default", "Risky", "Always"};
    for (int32_t i = 0; i < 5; ++i) {
        EXPECT_STREQ(KOLceFetchDMConfigName(i), names[i]);
        EXPECT_STREQ(KoLceDecisionMechanismConfigName[i], names[i]);
    }
}

TEST_F(LocalContrastEnhancementTest, FreeAndDeleteAcceptNull) {
    EXPECT_EQ(KoLocalContrastEnhancementFree(nullptr), KO_OK);
    EXPECT_EQ(KoLocalContrastEnhancementDelete(nullptr), KO_OK);
}

TEST_F(LocalContrastEnhancementTest, FreeKeepsThePointers) {
    const ColorImagePtr picture = make_picture(20, 20, KO_COLORSPACE_RGB);
    Features features;
    KoLocalContrastEnhancementInit(&features, 256, 2, 2);
    TileTRC *grid = nullptr;
    ASSERT_EQ(enhance(&features, picture.get(), &grid), KO_OK);
    const TileTRCPtr owner(grid);
    const Features before = features;
    EXPECT_EQ(KoLocalContrastEnhancementFree(&features), KO_OK);
    EXPECT_EQ(features.yiqImage, before.yiqImage);
    EXPECT_EQ(features.enhanced, before.enhanced);
    EXPECT_EQ(features.background, before.background);
    EXPECT_NE(features.background, nullptr);
}

TEST_F(LocalContrastEnhancementTest, NeverEnhancesUnderConfiguration0AndBelow) {
    const ColorImagePtr picture = make_picture(20, 20, KO_COLORSPACE_RGB);
    const TileTRCPtr given(KoTileTRCNew(256, 8, 8));
    TileTRC *const starts[] = {nullptr, given.get()};
    for (const int32_t configuration : {never, -1, -100, std::numeric_limits<int32_t>::min()}) {
        for (TileTRC *start : starts) {
            SCOPED_TRACE(configuration);
            const FeaturesPtr features = make_features();
            features->proceed = 1;
            TileTRC *grid = start;
            EXPECT_EQ(enhance(features.get(), picture.get(), &grid, {}, configuration, 0.25f), KO_OK);
            EXPECT_EQ(grid, start);
            EXPECT_EQ(features->proceed, 0);
            EXPECT_EQ(features->yiqImage, nullptr);
            EXPECT_EQ(features->background, nullptr);
            EXPECT_EQ(features->enhanced, nullptr);
            const DecisionMechanismThreshold *values = KoLocalContrastEnhancementGetDMValues(features.get());
            EXPECT_EQ(values, &features->dmValues);
            EXPECT_EQ(values->score, 0.25f);
            EXPECT_EQ(values->noisyBlocks, not_measured);
            EXPECT_EQ(values->lowDetailBlocks, not_measured);
            EXPECT_EQ(values->lowEntropyBlocks, not_measured);
        }
    }
    EXPECT_EQ(std::count(given->array, given->array + 256 * 64, 0u), 256 * 64);
    EXPECT_EQ(KoErrorGetLastError(), KO_OK);
}

TEST_F(LocalContrastEnhancementTest, AlwaysEnhancesUnderConfiguration4WithoutScores) {
    for (const int32_t keep_scoring : {0, 1}) {
        for (const float score : {-1.0f, 0.0f, 0.4f, 1000.0f}) {
            const ColorImagePtr picture = make_picture(40, 30, KO_COLORSPACE_RGB);
            const FeaturesPtr features = make_features(256, 2, 2);
            features->keepScoring = keep_scoring;
            TileTRC *made = nullptr;
            ASSERT_EQ(enhance(features.get(), picture.get(), &made, {}, always, score), KO_OK);
            const TileTRCPtr grid(made);
            EXPECT_NE(grid, nullptr);
            EXPECT_EQ(features->proceed, 1);
            EXPECT_EQ(features->keepScoring, keep_scoring);
            const DecisionMechanismThreshold *values = KoLocalContrastEnhancementGetDMValues(features.get());
            EXPECT_EQ(values->score, score);
            EXPECT_EQ(values->noisyBlocks, not_measured);
            EXPECT_EQ(values->lowDetailBlocks, not_measured);
            EXPECT_EQ(values->lowEntropyBlocks, not_measured);
            EXPECT_EQ(features->detailScores, nullptr);
            EXPECT_EQ(features->noiseScores, nullptr);
            EXPECT_EQ(features->entropyScores, nullptr);
        }
    }
}

TEST_F(LocalContrastEnhancementTest, ImagesAndTilesOfManySizesAndGrids) {
    const std::pair<uint32_t, uint32_t> sizes[] = {{96, 64}, {101, 77}, {63, 130}, {40, 41}, {13, 9}, {200, 8}};
    const std::pair<uint64_t, uint64_t> grids[] = {{1, 1}, {8, 8}, {3, 5}, {5, 1}};
    uint32_t seed = 0;
    for (const auto &[width, height] : sizes) {
        for (const auto &[blocks_x, blocks_y] : grids) {
            for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY}) {
                expect_enhancement(make_picture(width, height, space, ++seed).get(), 256, blocks_x, blocks_y);
            }
        }
    }
}

TEST_F(LocalContrastEnhancementTest, LargerCurves) {
    for (const uint64_t size : {300u, 512u, 1024u}) {
        expect_enhancement(make_picture(50, 37, KO_COLORSPACE_RGB).get(), size, 2, 1);
        expect_enhancement(make_picture(50, 37, KO_COLORSPACE_GRAY).get(), size, 1, 2);
    }
}

TEST_F(LocalContrastEnhancementTest, ALargePhotograph) {
    expect_enhancement(make_picture(403, 301, KO_COLORSPACE_RGB).get(), 256, 8, 8);
}

TEST_F(LocalContrastEnhancementTest, OtherArgumentsOfTheGainCurve) {
    const ColorImagePtr picture = make_picture(60, 50, KO_COLORSPACE_RGB);
    const Gain gains[] = {{2.0f, 20.0f, 0.5f, 3},  {4.0f, 90.0f, 0.9f, 8}, {1.0f, 10.0f, 0.3f, 1},
                          {10.0f, 3.0f, 1.0f, 16}, {3.0f, 40.0f, 2.0f, 5}, {0.5f, 40.0f, 0.6275f, 5}};
    for (const Gain &gain : gains) {
        expect_enhancement(picture.get(), 256, 2, 2, gain);
    }
}

TEST_F(LocalContrastEnhancementTest, ParametersOfTheGainCurveAreInSinglePrecision) {
    const ColorImagePtr picture = make_picture(20, 20, KO_COLORSPACE_GRAY);
    for (const Gain &gain : {Gain{}, Gain{2.7f, 33.3f, 0.41f, 5}, Gain{4.0f, 0.1f, 0.9f, 5}}) {
        const FeaturesPtr features = make_features(256, 1, 1);
        TileTRC *made = nullptr;
        ASSERT_EQ(enhance(features.get(), picture.get(), &made, gain), KO_OK);
        const TileTRCPtr grid(made);
        const GainCurve curve(gain);
        EXPECT_EQ(features->maxGain, gain.max_gain);
        EXPECT_EQ(features->gainStrength, gain.strength);
        EXPECT_TRUE(same_float(curve.limit, features->gainLimit));
        EXPECT_TRUE(same_float(curve.offset, features->gainOffset));
        EXPECT_TRUE(same_float(curve.knee, features->gainKnee));
    }
}

TEST_F(LocalContrastEnhancementTest, StockGainCurve) {
    const ColorImagePtr picture = make_picture(20, 20, KO_COLORSPACE_GRAY);
    const FeaturesPtr features = make_features(256, 1, 1);
    TileTRC *made = nullptr;
    ASSERT_EQ(enhance(features.get(), picture.get(), &made), KO_OK);
    const TileTRCPtr grid(made);
    EXPECT_NEAR(features->gainLimit, 160.0125, 1e-4);
    EXPECT_NEAR(features->gainOffset, 0.75002, 1e-5);
    EXPECT_NEAR(features->gainKnee, 17.778, 1e-3);
}

TEST_F(LocalContrastEnhancementTest, StrengthEqualToTheLimitHasNoOffset) {
    const Gain gain{3.0f, 127.5f, 0.5f, 5};
    const ColorImagePtr picture = make_picture(30, 20, KO_COLORSPACE_GRAY);
    const FeaturesPtr features = make_features(256, 1, 1);
    TileTRC *made = nullptr;
    ASSERT_EQ(enhance(features.get(), picture.get(), &made, gain), KO_OK);
    const TileTRCPtr grid(made);
    EXPECT_EQ(features->gainOffset, 0.0f);
    expect_images(features.get(), picture.get(), gain);
}

TEST_F(LocalContrastEnhancementTest, MaxGainEqualToTheOffsetTakesTheWholeRangeBelowTheLimit) {
    const Gain gain{0.5f, 127.5f, 1.0f, 5};
    const ColorImagePtr picture = make_picture(30, 20, KO_COLORSPACE_GRAY);
    const FeaturesPtr features = make_features(256, 1, 1);
    TileTRC *made = nullptr;
    ASSERT_EQ(enhance(features.get(), picture.get(), &made, gain), KO_OK);
    const TileTRCPtr grid(made);
    EXPECT_TRUE(std::isinf(features->gainKnee));
    const std::vector<float> luminance = pixels(features->luminance);
    const std::vector<float> enhanced = pixels(features->enhanced);
    for (size_t i = 0; i < luminance.size(); ++i) {
        ASSERT_EQ(enhanced[i], luminance[i] * 0.5f) << i;
    }
}

TEST_F(LocalContrastEnhancementTest, ABackgroundAtOrAboveTheLimitKeepsThePixel) {
    const ColorImagePtr picture = make_picture(30, 20, KO_COLORSPACE_GRAY);
    const FeaturesPtr features = make_features(256, 1, 1);
    TileTRC *made = nullptr;
    ASSERT_EQ(enhance(features.get(), picture.get(), &made, {3.0f, 40.0f, 0.0f, 5}), KO_OK); // a limit of 0
    const TileTRCPtr grid(made);
    EXPECT_EQ(pixels(features->enhanced), pixels(features->luminance));
}

TEST_F(LocalContrastEnhancementTest, AFlatPictureHasABackgroundOfZeroAndTakesTheFullGain) {
    const ColorImagePtr picture = flat_picture(24, 24, 200.0f);
    const FeaturesPtr features = make_features(256, 2, 2);
    TileTRC *made = nullptr;
    ASSERT_EQ(enhance(features.get(), picture.get(), &made), KO_OK);
    const TileTRCPtr grid(made);
    EXPECT_EQ(pixels(features->background), std::vector<float>(24 * 24, 0.0f));
    EXPECT_EQ(pixels(features->enhanced), std::vector<float>(24 * 24, 600.0f));
    expect_tiles(features.get(), grid.get());
}

TEST_F(LocalContrastEnhancementTest, PixelsThatAreNoNumbersKeepTheirGainOfOne) {
    ColorImagePtr picture = make_picture(30, 20, KO_COLORSPACE_GRAY);
    picture->planes[0].rows[7][9] = std::numeric_limits<float>::quiet_NaN();
    const FeaturesPtr features = make_features(256, 2, 2);
    TileTRC *made = nullptr;
    ASSERT_EQ(enhance(features.get(), picture.get(), &made), KO_OK);
    const TileTRCPtr grid(made);
    expect_images(features.get(), picture.get(), {}); // the background is no number anywhere, and is so not under the limit
    EXPECT_TRUE(same_floats(pixels(features->luminance), pixels(features->enhanced)));
    expect_tiles(features.get(), grid.get());
}

TEST_F(LocalContrastEnhancementTest, AnRgbPictureIsCopiedToYiq) {
    const ColorImagePtr picture = make_picture(33, 21, KO_COLORSPACE_RGB);
    const ColorImagePtr same = make_picture(33, 21, KO_COLORSPACE_RGB);
    const ColorImagePtr yiq(KoColorImageNewFromColorImage(KO_COLORSPACE_YIQ, picture.get()));
    const FeaturesPtr features = make_features(256, 2, 2);
    TileTRC *made = nullptr;
    ASSERT_EQ(enhance(features.get(), picture.get(), &made), KO_OK);
    const TileTRCPtr grid(made);
    ASSERT_NE(features->yiqImage, nullptr);
    EXPECT_EQ(features->yiqImage->color_space, KO_COLORSPACE_YIQ);
    EXPECT_EQ(features->luminance, &features->yiqImage->planes[0]);
    EXPECT_EQ(features->chroma, &features->yiqImage->planes[2]);
    for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(pixels(&features->yiqImage->planes[c]), pixels(&yiq->planes[c]));
        EXPECT_EQ(pixels(&picture->planes[c]), pixels(&same->planes[c])) << "the picture was written";
    }
}

TEST_F(LocalContrastEnhancementTest, AGrayPictureLendsItsPlane) {
    const ColorImagePtr picture = make_picture(33, 21, KO_COLORSPACE_GRAY);
    const std::vector<float> before = pixels(&picture->planes[0]);
    const ColorImagePtr stale = make_picture(3, 3, KO_COLORSPACE_RGB);
    const FeaturesPtr features = make_features(256, 2, 2);
    features->yiqImage = stale.get(); // not the record's, so that nothing is lost when the call drops it
    features->chroma = &stale->planes[2];
    TileTRC *made = nullptr;
    ASSERT_EQ(enhance(features.get(), picture.get(), &made), KO_OK);
    const TileTRCPtr grid(made);
    EXPECT_EQ(features->yiqImage, nullptr);
    EXPECT_EQ(features->chroma, nullptr);
    EXPECT_EQ(features->luminance, &picture->planes[0]);
    EXPECT_EQ(pixels(&picture->planes[0]), before);
}

TEST_F(LocalContrastEnhancementTest, AYiqPictureIsConvertedAllTheSame) {
    const ColorImagePtr picture = make_picture(33, 21, KO_COLORSPACE_YIQ);
    const FeaturesPtr features = make_features(256, 2, 2);
    TileTRC *made = nullptr;
    ASSERT_EQ(enhance(features.get(), picture.get(), &made), KO_OK);
    const TileTRCPtr grid(made);
    for (uint64_t x = 0; x < 33; ++x) { // the matrix of a space to itself is all ones
        EXPECT_EQ(features->luminance->rows[5][x],
                  picture->planes[0].rows[5][x] + picture->planes[1].rows[5][x] + picture->planes[2].rows[5][x]);
    }
    expect_images(features.get(), picture.get(), {});
    expect_tiles(features.get(), grid.get());
}

TEST_F(LocalContrastEnhancementTest, RemaindersOfTheDivisionGoIntoNoTile) {
    const ColorImagePtr picture = make_picture(31, 23, KO_COLORSPACE_GRAY);
    const ColorImagePtr changed = make_picture(31, 23, KO_COLORSPACE_GRAY);
    for (uint64_t y = 0; y < 23; ++y) { // 31 by 4 leaves columns 28 to 30, 23 by 3 rows 21 and 22
        std::reverse(changed->planes[0].rows[y] + 28, changed->planes[0].rows[y] + 31);
    }
    std::swap_ranges(changed->planes[0].rows[21], changed->planes[0].rows[21] + 28, changed->planes[0].rows[22]);
    const Gain plain{1.0f, 0.0f, 1.0f, 5}; // a gain of 1 everywhere, so that the background does not matter
    std::vector<TileTRCPtr> grids;
    for (const ColorImagePtr *image : {&picture, &changed}) {
        const FeaturesPtr features = make_features(256, 4, 3);
        TileTRC *made = nullptr;
        ASSERT_EQ(enhance(features.get(), image->get(), &made, plain), KO_OK);
        grids.emplace_back(made);
    }
    EXPECT_NE(pixels(&picture->planes[0]), pixels(&changed->planes[0]));
    EXPECT_EQ(KoTileTRCCompare(grids[0].get(), grids[1].get()), 1);
}

TEST_F(LocalContrastEnhancementTest, AGridFinerThanThePicture) {
    expect_enhancement(make_picture(5, 3, KO_COLORSPACE_RGB).get(), 256, 8, 8); // tiles of no size
    expect_enhancement(make_picture(5, 30, KO_COLORSPACE_GRAY).get(), 256, 8, 2);
    expect_enhancement(make_picture(30, 5, KO_COLORSPACE_GRAY).get(), 256, 2, 8); // a tile of no rows walks one
    expect_enhancement(make_picture(1, 1, KO_COLORSPACE_RGB).get(), 256, 1, 1);
}

TEST_F(LocalContrastEnhancementTest, AGivenGridIsOverwrittenTileByTile) {
    const ColorImagePtr picture = make_picture(40, 30, KO_COLORSPACE_RGB);
    const TileTRCPtr given(KoTileTRCNew(256, 3, 2));
    std::fill_n(given->array, 256 * 6, 77777u);
    const uint32_t *entries = given->array;
    const FeaturesPtr features = make_features(256, 3, 2);
    TileTRC *grid = given.get();
    ASSERT_EQ(enhance(features.get(), picture.get(), &grid), KO_OK);
    EXPECT_EQ(grid, given.get());
    EXPECT_EQ(given->array, entries);
    expect_tiles(features.get(), given.get());
}

TEST_F(LocalContrastEnhancementTest, AGivenGridDeclaresTheCurveSize) {
    const ColorImagePtr picture = make_picture(40, 30, KO_COLORSPACE_RGB);
    for (const uint64_t size : {256u, 512u, 300u}) {
        const TileTRCPtr given(KoTileTRCNew(size, 2, 2));
        const FeaturesPtr features = make_features(1024, 2, 2);
        TileTRC *grid = given.get();
        ASSERT_EQ(enhance(features.get(), picture.get(), &grid), KO_OK);
        EXPECT_EQ(grid, given.get());
        EXPECT_EQ(given->size, size);
        expect_tiles(features.get(), given.get());
    }
}

TEST_F(LocalContrastEnhancementTest, AGivenGridOfMoreTilesKeepsTheOthers) {
    const ColorImagePtr picture = make_picture(40, 30, KO_COLORSPACE_RGB);
    const TileTRCPtr given(KoTileTRCNew(256, 3, 3));
    std::fill_n(given->array, 256 * 9, 77777u);
    const FeaturesPtr features = make_features(256, 2, 2);
    TileTRC *grid = given.get();
    ASSERT_EQ(enhance(features.get(), picture.get(), &grid), KO_OK);
    expect_tiles(features.get(), given.get());
    const std::pair<uint64_t, uint64_t> others[] = {{2, 0}, {2, 1}, {0, 2}, {1, 2}, {2, 2}};
    for (const auto &[x, y] : others) {
        EXPECT_EQ(curve_of(given.get(), x, y), std::vector<uint32_t>(256, 77777u));
    }
}

TEST_F(LocalContrastEnhancementTest, AGivenGridOfFewerTilesTakesWhatFits) {
    const ColorImagePtr picture = make_picture(40, 30, KO_COLORSPACE_RGB);
    const TileTRCPtr given(KoTileTRCNew(256, 1, 1));
    const FeaturesPtr features = make_features(256, 2, 2);
    TileTRC *grid = given.get();
    EXPECT_EQ(enhance(features.get(), picture.get(), &grid), KO_OK); // the steps of the tiles are not looked at
    EXPECT_EQ(curve_of(given.get(), 0, 0), fit(256, features->luminance, features->enhanced, 0, 0, 20, 15));
}

TEST_F(LocalContrastEnhancementTest, TheGridOutlivesTheRecord) {
    const ColorImagePtr picture = make_picture(40, 30, KO_COLORSPACE_RGB);
    FeaturesPtr features = make_features(256, 2, 2);
    TileTRC *made = nullptr;
    ASSERT_EQ(enhance(features.get(), picture.get(), &made), KO_OK);
    const TileTRCPtr grid(made);
    const std::vector<uint32_t> before(grid->array, grid->array + 1024);
    features.reset();
    EXPECT_EQ(before, std::vector<uint32_t>(grid->array, grid->array + 1024));
}

TEST_F(LocalContrastEnhancementTest, NumbersAbove4AreRefused) {
    const ColorImagePtr picture = make_picture(20, 20, KO_COLORSPACE_RGB);
    for (const int32_t configuration : {5, 100, std::numeric_limits<int32_t>::max()}) {
        KoStatusClear();
        const FeaturesPtr features = make_features();
        TileTRC *grid = nullptr;
        EXPECT_EQ(enhance(features.get(), picture.get(), &grid, {}, configuration), KO_ERR_INVALID_ARGUMENT);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INVALID_ARGUMENT);
        EXPECT_EQ(grid, nullptr);
    }
}

void expect_refused(Features *features, ColorImage *picture) {
    KoStatusClear();
    TileTRC *grid = nullptr;
    EXPECT_EQ(enhance(features, picture, &grid), KO_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(grid, nullptr);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INVALID_ARGUMENT);
    EXPECT_STREQ(KoErrorGetLastErrorMessage(), "[ERROR] Invalid argument");
}

TEST_F(LocalContrastEnhancementTest, AGridOfNoTilesIsRefused) {
    const ColorImagePtr picture = make_picture(20, 20, KO_COLORSPACE_RGB);
    expect_refused(make_features(256, 0, 8).get(), picture.get());
    expect_refused(make_features(256, 8, 0).get(), picture.get());
    expect_refused(make_features(256, 0, 0).get(), picture.get());
}

TEST_F(LocalContrastEnhancementTest, APictureWithoutPlanesIsRefused) {
    for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY}) {
        const ColorImagePtr picture = make_picture(20, 20, space);
        KoColorImageFree(picture.get());
        expect_refused(make_features().get(), picture.get());
    }
}

// The flags choose the background of the decision; the images that make the curves always rest on the bilateral filter.
TEST_F(LocalContrastEnhancementTest, FlagsDoNotReachTheImagesOfConfiguration4) {
    for (const char *flags : {"BACKGROUND:BLF", "BACKGROUND:GaussBest", "BACKGROUND:GaussBest,BACKGROUND:BLF", "nonsense", "",
                              "xBACKGROUND:GaussFastx"}) {
        SCOPED_TRACE(flags);
        set_flags(flags);
        for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY}) {
            expect_enhancement(make_picture(60, 40, space).get(), 256, 2, 2);
        }
    }
    forget_flags();
}

} // namespace
