// The judgement when memory runs out: its status, no curves, and a decision that says no, whichever measure met the fault.
#include <cstdint>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "capture.h"
#include "enhancement.h"
#include "faults.h"
#include "files.h"
#include "ko.h"
#include "pictures.h"
#include "same_floats.h"

namespace {

using namespace ko_test;

using Features = LocalContrastEnhancementImageFeatures;

constexpr float everything = std::numeric_limits<float>::infinity();

class JudgementFaultTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { KoInit(nullptr, nullptr); }
    static void TearDownTestSuite() { KoRelease(); }
    void SetUp() override { forget_flags(); }
    void TearDown() override { forget_flags(); }
};

enum class Outcome { passes, falls_at_once, falls_at_last };

// Sets thresholds and limits so that a picture meets its outcome, whatever its pixels. The last measure of a GRAY picture is
// the entropy, that of others the noise.
void prepare(Features *features, int32_t space, Outcome outcome) {
    features->detailThreshold = outcome == Outcome::falls_at_once ? everything : -everything;
    features->entropyThreshold = outcome == Outcome::falls_at_last ? everything : -everything;
    features->noiseThreshold = outcome == Outcome::falls_at_last ? -everything : everything;
    for (int32_t k = 1; k <= 3; ++k) {
        const DecisionMechanismThreshold limits{1.0f, 0, 0, space == KO_COLORSPACE_GRAY ? 0u : 64u};
        KoLocalContrastEnhancementSetDecisionMechanismThreshold(features, k, &limits);
    }
}

struct Result {
    FeaturesPtr features;
    TileTRCPtr grid;
    int32_t status = -1;
};

Result judge(ColorImage *picture, Outcome outcome, int32_t keep_scoring) {
    Result result{FeaturesPtr(KoLocalContrastEnhancementNew(256, 2, 1)), nullptr, -1};
    if (result.features == nullptr) {
        return result;
    }
    result.features->keepScoring = keep_scoring;
    prepare(result.features.get(), picture->color_space, outcome);
    TileTRC *made = nullptr;
    result.status = enhance(result.features.get(), picture, &made, {3.0f, 40.0f, 0.6275f, 2}, 3, -1.0f);
    result.grid.reset(made);
    return result;
}

std::vector<float> scores_of(const float *scores) {
    return scores != nullptr ? std::vector<float>(scores, scores + 64) : std::vector<float>();
}

void expect_same(const Result &expected, const Result &result) {
    EXPECT_EQ(expected.features->proceed, result.features->proceed);
    EXPECT_EQ(expected.features->dmValues.lowDetailBlocks, result.features->dmValues.lowDetailBlocks);
    EXPECT_EQ(expected.features->dmValues.lowEntropyBlocks, result.features->dmValues.lowEntropyBlocks);
    EXPECT_EQ(expected.features->dmValues.noisyBlocks, result.features->dmValues.noisyBlocks);
    EXPECT_TRUE(same_floats(scores_of(expected.features->detailScores), scores_of(result.features->detailScores)));
    EXPECT_TRUE(same_floats(scores_of(expected.features->entropyScores), scores_of(result.features->entropyScores)));
    EXPECT_TRUE(same_floats(scores_of(expected.features->noiseScores), scores_of(result.features->noiseScores)));
    ASSERT_EQ(expected.grid == nullptr, result.grid == nullptr);
    if (expected.grid != nullptr) {
        EXPECT_EQ(KoTileTRCCompare(expected.grid.get(), result.grid.get()), 1);
    }
}

// A measure that failed ends the cascade: what comes after it was not begun, also where scoring is kept.
void expect_cascade_ended(const Result &expected, const Features *features) {
    if (features->entropyScores != nullptr || features->noiseScores != nullptr) {
        EXPECT_TRUE(same_floats(scores_of(expected.features->detailScores), scores_of(features->detailScores)));
    }
    if (features->noiseScores != nullptr) {
        EXPECT_TRUE(same_floats(scores_of(expected.features->entropyScores), scores_of(features->entropyScores)));
    }
}

// The failed call's status is the thread's, there is no grid, and a picture that had come to its measures is turned down.
// Gives the number of faults.
int sweep_judgement(int32_t space, Outcome outcome, int32_t keep_scoring) {
    SCOPED_TRACE(testing::Message() << "space " << space << ", outcome " << static_cast<int>(outcome) << ", keep "
                                    << keep_scoring);
    const ColorImagePtr picture = noisy_picture(26, 19, space, 0.0f, 90.0f, 7);
    const Result expected = judge(picture.get(), outcome, keep_scoring);
    EXPECT_EQ(expected.status, KO_OK);
    EXPECT_EQ(expected.grid != nullptr, outcome == Outcome::passes);
    return sweep_faults([&] {
        const Result result = judge(picture.get(), outcome, keep_scoring);
        if (result.features == nullptr) {
            EXPECT_NE(KoTestFaultStruck(), 0);
            return;
        }
        EXPECT_EQ(result.status != KO_OK, KoTestFaultStruck() != 0);
        EXPECT_EQ(result.status, KoErrorGetLastError());
        if (result.status == KO_OK) {
            expect_same(expected, result);
            return;
        }
        EXPECT_TRUE(result.status == KO_ERR_ALLOC || result.status == KO_ERR_CREATE_OBJECT) << result.status;
        EXPECT_EQ(result.grid, nullptr);
        expect_cascade_ended(expected, result.features.get());
        if (outcome != Outcome::passes && result.features->luminance != nullptr) {
            EXPECT_EQ(result.features->proceed, 0);
        }
    });
}

TEST_F(JudgementFaultTest, AFaultInAnyMeasureEndsTheCascade) {
    for (const char *flags : {"BACKGROUND:GaussFast", "BACKGROUND:GaussBest", "BACKGROUND:BLF"}) {
        SCOPED_TRACE(flags);
        set_flags(flags);
        const int rgb = sweep_judgement(KO_COLORSPACE_RGB, Outcome::falls_at_last, 0);
        const int gray = sweep_judgement(KO_COLORSPACE_GRAY, Outcome::falls_at_last, 0);
        EXPECT_GE(gray, 10); // the record, three images and two arrays of scores at least
        EXPECT_GE(rgb, gray + 10);
        EXPECT_GE(sweep_judgement(KO_COLORSPACE_RGB, Outcome::falls_at_once, 1), rgb);
        EXPECT_LT(sweep_judgement(KO_COLORSPACE_RGB, Outcome::falls_at_once, 0), rgb);
        sweep_judgement(KO_COLORSPACE_GRAY, Outcome::falls_at_once, 1);
        sweep_judgement(KO_COLORSPACE_RGB, Outcome::falls_at_last, 1);
    }
}

TEST_F(JudgementFaultTest, AFaultAnywhereOnTheWholeWayLeavesNoGrid) {
    for (const char *flags : {"BACKGROUND:GaussFast", "BACKGROUND:GaussBest", "BACKGROUND:BLF"}) {
        SCOPED_TRACE(flags);
        set_flags(flags);
        EXPECT_GE(sweep_judgement(KO_COLORSPACE_RGB, Outcome::passes, 0), 30);
        EXPECT_GE(sweep_judgement(KO_COLORSPACE_GRAY, Outcome::passes, 1), 20);
    }
}

// No memory at all from any point on.
TEST_F(JudgementFaultTest, AnExhaustedHeapEndsTheCascade) {
    for (const char *flags : {"BACKGROUND:GaussFast", "BACKGROUND:GaussBest", "BACKGROUND:BLF"}) {
        set_flags(flags);
        const ColorImagePtr picture = noisy_picture(26, 19, KO_COLORSPACE_RGB, 0.0f, 90.0f, 7);
        const int faults = sweep_judgement(KO_COLORSPACE_RGB, Outcome::passes, 0);
        const int64_t before = KoTestLiveBlocks();
        for (int from = 2; from <= faults; ++from) {
            const StderrCapture swallowed;
            KoStatusClear();
            KoTestFailAllocationsFrom(from);
            const Result result = judge(picture.get(), Outcome::passes, 0);
            KoTestFailAllocation(0);
            EXPECT_NE(result.status, KO_OK) << flags << " from allocation " << from;
            EXPECT_EQ(result.status, KoErrorGetLastError());
            EXPECT_EQ(result.grid, nullptr);
        }
        KoStatusClear();
        EXPECT_EQ(KoTestLiveBlocks(), before);
    }
}

// The decision itself needs no memory: a picture that its score turns down costs nothing.
TEST_F(JudgementFaultTest, AScoreDecidesWithoutMemory) {
    const ColorImagePtr picture = noisy_picture(26, 19, KO_COLORSPACE_RGB, 0.0f, 90.0f, 7);
    const FeaturesPtr features = make_features(256, 2, 1);
    TileTRC *grid = nullptr;
    KoTestFailAllocationsFrom(1);
    for (const int32_t configuration : {-1, 0, 1, 2, 3}) {
        EXPECT_EQ(enhance(features.get(), picture.get(), &grid, {}, configuration, 0.9f), KO_OK);
        EXPECT_EQ(grid, nullptr);
    }
    EXPECT_EQ(KoLocalContrastEnhancementGetNewTRCs(features.get(), picture.get(), &grid), KO_OK);
    EXPECT_EQ(KoTestFaultStruck(), 0);
    KoTestFailAllocation(0);
}

TEST_F(JudgementFaultTest, SavedScoresAreWholeOrToldOf) {
    const ColorImagePtr picture = noisy_picture(26, 19, KO_COLORSPACE_RGB, 0.0f, 90.0f, 7);
    const Result result = judge(picture.get(), Outcome::falls_at_once, 1);
    const TemporaryFile whole("scores.csv");
    ASSERT_EQ(KoLocalContrastEnhancementSaveScores(result.features.get(), whole.c_str(), 0), KO_OK);
    sweep_faults([&] {
        const TemporaryFile file("scores.csv");
        const int32_t status = KoLocalContrastEnhancementSaveScores(result.features.get(), file.c_str(), 0);
        EXPECT_EQ(status, KoErrorGetLastError());
        if (status == KO_OK) {
            EXPECT_EQ(read_text(file.path()), read_text(whole.path()));
        }
    });
}

} // namespace
