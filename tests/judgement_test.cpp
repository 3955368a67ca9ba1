// The judgement of the enhancement: the measures of each block and the decision over them, bit for bit against a plain second
// implementation, the variable that sets their background, and the ways in which scores leave the record.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "awkward_floats.h"
#include "enhancement.h"
#include "files.h"
#include "ko.h"
#include "library_test.h"
#include "pictures.h"
#include "reference_judgement.h"
#include "same_floats.h"

namespace {

using namespace ko_test;

using Features = LocalContrastEnhancementImageFeatures;

constexpr int32_t conservative = 1;
constexpr int32_t by_default = 2;
constexpr int32_t risky = 3;

std::vector<float> scores_of(const float *scores) { return {scores, scores + 64}; }

// The sign of a zero carries no meaning.
std::vector<float> without_signs_of_zero(std::vector<float> scores) {
    for (float &score : scores) {
        score += 0.0f;
    }
    return scores;
}

// Runs the call for a picture that the rules' limits and thresholds are put on.
struct Call {
    FeaturesPtr features = make_features(256, 2, 1);
    TileTRCPtr grid;
    int32_t status = -1;

    explicit Call(const Rules &rules = {}) {
        features->keepScoring = rules.keep_scoring;
        features->detailThreshold = rules.detail_threshold;
        features->noiseThreshold = rules.noise_threshold;
        features->entropyThreshold = rules.entropy_threshold;
        for (int32_t k = 1; k <= 3; ++k) {
            KoLocalContrastEnhancementSetDecisionMechanismThreshold(features.get(), k, &rules.limits[static_cast<size_t>(k)]);
        }
    }

    Call &run(ColorImage *picture, const Rules &rules, const Gain &gain = {}) {
        TileTRC *made = nullptr;
        status = enhance(features.get(), picture, &made, gain, rules.configuration, rules.score);
        grid.reset(made);
        return *this;
    }
};

Call call(ColorImage *picture, const Rules &rules, const Gain &gain = {}) {
    Call result(rules);
    result.run(picture, rules, gain);
    return result;
}

class JudgementTest : public testing::Test {
  protected:
    // Before any flags were set in the process: the background of the start.
    static void SetUpTestSuite() {
        KoInit(nullptr, nullptr);
        set_flags(nullptr);
        picture_of_the_start = make_picture(61, 53, KO_COLORSPACE_GRAY).release();
        detail_of_the_start = scores_of(call(picture_of_the_start, Rules{}).features->detailScores);
    }
    static void TearDownTestSuite() {
        KoColorImageDelete(picture_of_the_start);
        KoRelease();
    }
    void SetUp() override {
        forget_flags();
        KoStatusClear();
    }
    void TearDown() override { forget_flags(); }

    static inline ColorImage *picture_of_the_start = nullptr;
    static inline std::vector<float> detail_of_the_start;
};

// What was taken, and with which numbers.
void expect_scores(const char *name, const std::vector<float> &expected, bool taken, const float *scores) {
    SCOPED_TRACE(name);
    ASSERT_EQ(scores != nullptr, taken);
    if (taken) {
        EXPECT_TRUE(same_floats(without_signs_of_zero(expected), without_signs_of_zero(scores_of(scores))));
    }
}

void expect_values(const DecisionMechanismThreshold &expected, const DecisionMechanismThreshold &values) {
    EXPECT_TRUE(same_float(expected.score, values.score));
    EXPECT_EQ(expected.lowDetailBlocks, values.lowDetailBlocks);
    EXPECT_EQ(expected.lowEntropyBlocks, values.lowEntropyBlocks);
    EXPECT_EQ(expected.noisyBlocks, values.noisyBlocks);
}

// The images that the record is left with.
void expect_record(const Features *features, const ColorImage *picture, const Judgement &judged, bool worked, Background kind) {
    EXPECT_EQ(features->yiqImage != nullptr, worked && picture->color_space != KO_COLORSPACE_GRAY);
    EXPECT_EQ(features->luminance != nullptr, worked);
    const bool kept = judged.passed || (worked && kind == Background::bilateral);
    EXPECT_EQ(features->background != nullptr, kept);
    EXPECT_EQ(features->enhanced != nullptr, kept);
}

// The curves, which do not depend on how the picture was judged.
void expect_grid_of_always(const TileTRC *grid, ColorImage *picture, const Gain &gain) {
    Rules rules;
    rules.configuration = always;
    const Call undecided = call(picture, rules, gain);
    ASSERT_NE(grid, nullptr);
    EXPECT_EQ(KoTileTRCCompare(undecided.grid.get(), grid), 1);
}

// Judges a picture by the library and by the reference. Gives the reference's judgement.
Judgement expect_judgement(ColorImage *picture, const Measures &measures, const Rules &rules,
                           Background kind = Background::recursive, const Gain &gain = {}) {
    SCOPED_TRACE(testing::Message() << KoColorImageGetWidth(picture) << " by " << KoColorImageGetHeight(picture) << ", space "
                                    << picture->color_space << ", configuration " << rules.configuration << ", score "
                                    << rules.score << ", keep " << rules.keep_scoring);
    const Judgement expected = Judge(measures, rules).run();
    KoStatusClear();
    const Call made = call(picture, rules, gain);
    const Features *features = made.features.get();
    EXPECT_EQ(made.status, KO_OK);
    expect_status(KO_OK, "");
    EXPECT_EQ(features->proceed != 0, expected.passed);
    EXPECT_EQ(features->keepScoring, rules.keep_scoring);
    EXPECT_EQ(KoLocalContrastEnhancementGetDMValues(made.features.get()), &features->dmValues);
    expect_values(expected.values, features->dmValues);
    expect_scores("detail", measures.detail, expected.last >= Stage::detail, features->detailScores);
    expect_scores("entropy", measures.entropy, expected.last >= Stage::entropy, features->entropyScores);
    expect_scores("noise", measures.noise.value_or(std::vector<float>()), expected.last >= Stage::noise, features->noiseScores);
    expect_record(features, picture, expected, expected.last >= Stage::detail, kind);
    EXPECT_EQ(made.grid != nullptr, expected.passed);
    if (expected.passed) {
        expect_grid_of_always(made.grid.get(), picture, gain);
    }
    return expected;
}

Judgement expect_judgement(ColorImage *picture, const Rules &rules, Background kind = Background::recursive,
                           const Gain &gain = {}) {
    return expect_judgement(picture, reference_measures(picture, kind, gain), rules, kind, gain);
}

// Every measure is taken, whatever it says.
Rules taking_all_measures() {
    Rules rules;
    rules.configuration = risky;
    rules.keep_scoring = 1;
    return rules;
}

// Nothing but the score turns a picture down.
Rules accepting_all_blocks() {
    Rules rules;
    for (DecisionMechanismThreshold &limits : rules.limits) {
        limits.noisyBlocks = limits.lowDetailBlocks = limits.lowEntropyBlocks = 64;
    }
    return rules;
}

std::vector<float> noise_values(uint64_t count, float low, float high, uint32_t seed) {
    Noise noise(seed);
    std::vector<float> values;
    for (uint64_t i = 0; i < count; ++i) {
        values.push_back(noise.uniform(low, high));
    }
    return values;
}

// Dark, and rough in brightness, not in colour: gains detail everywhere.
ColorImagePtr dark_picture(uint32_t width, uint32_t height, int32_t space, uint32_t seed = 3) {
    const std::vector<float> values = noise_values(uint64_t{width} * height, 0.0f, 60.0f, seed);
    return make_color_image(width, height, space, [&](uint32_t c, uint64_t x, uint64_t y) {
        return values[y * width + x] * (1.0f - 0.05f * static_cast<float>(c));
    });
}

// One brightness, coloured pixel by pixel, so that the roughness is in the colours alone.
ColorImagePtr colour_noise(uint32_t width, uint32_t height, float amplitude, uint32_t seed = 5) {
    const std::vector<float> offsets = noise_values(uint64_t{width} * height, -amplitude, amplitude, seed);
    return make_color_image(width, height, KO_COLORSPACE_RGB, [&](uint32_t c, uint64_t x, uint64_t y) {
        const float shares[] = {1.0f, -0.299f / 0.587f, 0.0f}; // red and green against each other keep the brightness
        return 60.0f + shares[c] * offsets[y * width + x];
    });
}

ColorImagePtr flat_picture(uint32_t width, uint32_t height, int32_t space, float value) {
    return make_color_image(width, height, space, [=](uint32_t, uint64_t, uint64_t) { return value; });
}

ColorImagePtr awkward_picture(uint32_t width, uint32_t height, int32_t space, uint32_t seed) {
    const std::vector<float> values = awkward_floats(3ull * width * height, seed);
    return make_color_image(width, height, space,
                            [&](uint32_t c, uint64_t x, uint64_t y) { return values[(c * height + y) * width + x]; });
}

// The measures.

const std::pair<uint32_t, uint32_t> sizes[] = {{64, 64}, {80, 80}, {83, 67}, {40, 41}, {23, 90}, {101, 16}, {16, 15},
                                               {8, 8},   {9, 30},  {30, 12}, {13, 13}, {12, 14}, {200, 9}};

// Blocks of no pixels, either way.
const std::pair<uint32_t, uint32_t> small_sizes[] = {{7, 20}, {20, 7}, {7, 7}, {1, 1}, {1, 100}, {100, 1}, {3, 12}, {200, 5}};

TEST_F(JudgementTest, MeasuresOfManyPictures) {
    uint32_t seed = 0;
    for (const auto &[width, height] : sizes) {
        for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY, KO_COLORSPACE_YIQ}) {
            ++seed;
            expect_judgement(make_picture(width, height, space, seed).get(), taking_all_measures());
            expect_judgement(dark_picture(width, height, space, seed).get(), taking_all_measures());
            expect_judgement(noisy_picture(width, height, space, 0.0f, 255.0f, seed).get(), taking_all_measures());
            expect_judgement(noisy_picture(width, height, space, 40.0f, 44.0f, seed).get(), taking_all_measures());
        }
        expect_judgement(colour_noise(width, height, 20.0f, seed).get(), taking_all_measures());
    }
}

TEST_F(JudgementTest, MeasuresOfALargerPhotograph) {
    expect_judgement(make_picture(403, 301, KO_COLORSPACE_RGB).get(), taking_all_measures());
    expect_judgement(make_picture(403, 301, KO_COLORSPACE_GRAY).get(), taking_all_measures());
}

TEST_F(JudgementTest, MeasuresUnderOtherGainCurves) {
    const Gain gains[] = {{2.0f, 20.0f, 0.5f, 3}, {1.0f, 10.0f, 0.3f, 1}, {10.0f, 3.0f, 1.0f, 5}, {0.5f, 127.5f, 1.0f, 5}};
    for (const Gain &gain : gains) {
        expect_judgement(make_picture(61, 53, KO_COLORSPACE_RGB).get(), taking_all_measures(), Background::recursive, gain);
    }
}

// The knee lies below 3, and the background of most blocks between the two.
TEST_F(JudgementTest, TheGainRisesNoFurtherBelowABackgroundOf3) {
    const ColorImagePtr picture = make_picture(61, 53, KO_COLORSPACE_GRAY);
    ASSERT_EQ(KoRealImageMultiplyValue(&picture->planes[0], 1.0f / 64.0f, std::array{&picture->planes[0]}.data()), KO_OK);
    expect_judgement(picture.get(), taking_all_measures(), Background::recursive, {100.0f, 40.0f, 0.6275f, 5});
}

// A pixel without a value, or with an enormous one, spoils the scores that it meets and nothing else.
TEST_F(JudgementTest, MeasuresOfAwkwardPixels) {
    for (uint32_t seed = 1; seed < 8; ++seed) {
        for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY}) {
            expect_judgement(awkward_picture(41, 33, space, seed).get(), taking_all_measures());
        }
        const ColorImagePtr picture = make_picture(64, 48, KO_COLORSPACE_GRAY, seed);
        picture->planes[0].rows[seed][3 * seed] = awkward_floats(100, 1)[5 * seed];
        expect_judgement(picture.get(), taking_all_measures());
    }
}

TEST_F(JudgementTest, BlocksOfNoPixelsCountInNoComparison) {
    for (const auto &[width, height] : small_sizes) {
        for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY}) {
            const ColorImagePtr picture = dark_picture(width, height, space);
            Rules rules = taking_all_measures();
            rules.detail_threshold = infinity;
            rules.entropy_threshold = 4.163f;
            rules.noise_threshold = -infinity;
            expect_judgement(picture.get(), rules);
            const Call made = call(picture.get(), rules);
            EXPECT_EQ(made.features->dmValues.lowDetailBlocks, 0u);
            EXPECT_EQ(made.features->dmValues.lowEntropyBlocks, 0u);
            EXPECT_NE(made.grid, nullptr);
            for (int block = 0; block < 64; ++block) {
                EXPECT_TRUE(std::isnan(made.features->detailScores[block]));
                EXPECT_EQ(made.features->entropyScores[block], 4.163f);
            }
            if (space == KO_COLORSPACE_RGB) {
                EXPECT_EQ(made.features->dmValues.noisyBlocks, 0u);
                EXPECT_TRUE(std::isnan(made.features->noiseScores[63]));
            }
        }
    }
}

TEST_F(JudgementTest, APictureWithoutPixelsHasBlocksOfNone) {
    const std::pair<uint32_t, uint32_t> none[] = {{0, 0}, {0, 9}, {9, 0}};
    for (const auto &[width, height] : none) {
        for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY}) {
            const ColorImagePtr picture(KoColorImageNew(width, height, space));
            ASSERT_NE(picture, nullptr);
            expect_judgement(picture.get(), taking_all_measures());
            Rules rules = taking_all_measures();
            rules.score = 1.0f;
            expect_judgement(picture.get(), rules);
        }
    }
}

TEST_F(JudgementTest, BlocksOfOnePixelHaveNoDetail) {
    const ColorImagePtr picture = noisy_picture(15, 8, KO_COLORSPACE_RGB, 0.0f, 255.0f, 1);
    Rules rules = taking_all_measures();
    rules.detail_threshold = infinity;
    expect_judgement(picture.get(), rules);
    const Call made = call(picture.get(), rules);
    for (int block = 0; block < 64; ++block) {
        EXPECT_TRUE(std::isnan(made.features->detailScores[block]));
    }
    EXPECT_EQ(made.features->dmValues.lowDetailBlocks, 0u);
}

TEST_F(JudgementTest, RemaindersOfTheDivisionAreInNoBlock) {
    const ColorImagePtr picture = make_picture(47, 39, KO_COLORSPACE_GRAY);
    const std::vector<float> before = scores_of(call(picture.get(), taking_all_measures()).features->entropyScores);
    for (uint64_t y = 0; y < 39; ++y) {
        std::fill_n(picture->planes[0].rows[y] + 40, 7, 5.0f);
    }
    for (uint64_t y = 32; y < 39; ++y) {
        std::fill_n(picture->planes[0].rows[y], 47, 5.0f);
    }
    EXPECT_TRUE(same_floats(before, scores_of(call(picture.get(), taking_all_measures()).features->entropyScores)));
}

// The rounding of sums must not make the root of a number below 0 out of a flat block: it has no detail, and that is told.
TEST_F(JudgementTest, AFlatPictureIsLowInDetailEverywhere) {
    for (const Background kind : {Background::recursive, Background::bilateral}) {
        set_flags(kind == Background::bilateral ? "BACKGROUND:BLF" : nullptr);
        for (const float value : {0.0f, 1.0f, 12.3f, 37.7f, 99.99f, 100.1f, 200.3f, 255.0f}) {
            for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY}) {
                for (const int32_t configuration : {conservative, by_default, risky}) {
                    const ColorImagePtr picture = flat_picture(75, 66, space, value);
                    Rules rules;
                    rules.configuration = configuration;
                    const Judgement judged = expect_judgement(picture.get(), rules, kind);
                    EXPECT_EQ(judged.values.lowDetailBlocks, 64u) << value;
                    EXPECT_EQ(judged.fell, Stage::detail);
                    const Call made = call(picture.get(), rules);
                    EXPECT_TRUE(std::all_of(made.features->detailScores, made.features->detailScores + 64, [](float score) {
                        return std::fabs(score) < 0.1f;
                    })) << value;
                }
            }
        }
    }
}

// A picture of 10 by 10 blocks with so many dark pixels in each; none of two have one value.
ColorImagePtr dark_pixels(uint32_t count) {
    return make_color_image(80, 80, KO_COLORSPACE_GRAY, [=](uint32_t, uint64_t x, uint64_t y) {
        const uint64_t place = y % 10 * 10 + x % 10;
        return place < count ? static_cast<float>(place) : 160.0f;
    });
}

TEST_F(JudgementTest, EntropyNeedsMoreThanATenthOfDarkPixels) {
    for (const uint32_t count : {0u, 1u, 9u, 10u}) {
        const Call made = call(dark_pixels(count).get(), taking_all_measures());
        EXPECT_EQ(scores_of(made.features->entropyScores), std::vector<float>(64, 4.163000106811523f)) << count;
        EXPECT_EQ(made.features->dmValues.lowEntropyBlocks, 0u);
    }
    for (const uint32_t count : {11u, 12u, 50u, 100u}) {
        const Call made = call(dark_pixels(count).get(), taking_all_measures());
        EXPECT_NEAR(made.features->entropyScores[0], std::log(static_cast<double>(count)), 1e-5) << count;
    }
    EXPECT_EQ(call(dark_pixels(11).get(), taking_all_measures()).features->dmValues.lowEntropyBlocks, 64u); // ln 11 is 2.398
    EXPECT_EQ(call(dark_pixels(12).get(), taking_all_measures()).features->dmValues.lowEntropyBlocks, 0u);  // ln 12 is 2.485
}

// 160 of 256 bins count: a value rounds half up to its bin.
TEST_F(JudgementTest, TheDarkTonesEndBelowBin160) {
    const std::pair<float, bool> values[] = {{-500.0f, true}, {0.0f, true},    {159.0f, true},  {159.49f, true},
                                             {159.5f, false}, {160.0f, false}, {300.0f, false}, {not_a_number, true}};
    for (const auto &[value, dark] : values) {
        const ColorImagePtr picture = flat_picture(40, 40, KO_COLORSPACE_GRAY, value);
        const Call made = call(picture.get(), taking_all_measures());
        EXPECT_EQ(scores_of(made.features->entropyScores), std::vector<float>(64, dark ? 0.0f : 4.163f)) << value;
    }
}

TEST_F(JudgementTest, NoiseIsRoughnessOfColourWhereTheBrightnessIsFlat) {
    const ColorImagePtr rough = colour_noise(96, 96, 20.0f);
    const Call made = call(rough.get(), taking_all_measures());
    EXPECT_GE(made.features->dmValues.noisyBlocks, 32u);
    const ColorImagePtr smooth = colour_noise(96, 96, 0.2f);
    EXPECT_EQ(call(smooth.get(), taking_all_measures()).features->dmValues.noisyBlocks, 0u);
    const ColorImagePtr stripes = make_color_image(96, 96, KO_COLORSPACE_RGB, [&](uint32_t c, uint64_t x, uint64_t y) {
        return rough->planes[c].rows[y][x] + (x / 8 % 2 != 0 ? 100.0f : 0.0f); // a gradient everywhere
    });
    EXPECT_EQ(call(stripes.get(), taking_all_measures()).features->dmValues.noisyBlocks, 0u);
}

// The number whose product with weight rounds to product, if a neighbour of the quotient is one.
float factor_of(float product, float weight) {
    float factor = product / weight;
    for (int step = 0; step < 4 && factor * weight != product; ++step) {
        factor = std::nextafter(factor, factor * weight < product ? infinity : -infinity);
    }
    EXPECT_EQ(factor * weight, product);
    return factor;
}

// Black but for single pixels of brightness and colour alike: the planes of a YIQ picture are summed.
ColorImagePtr single_pixels(float first, float second) {
    return make_color_image(64, 64, KO_COLORSPACE_YIQ, [=](uint32_t c, uint64_t x, uint64_t y) {
        return c != 0 || y != 20 ? 0.0f : x == 20 ? first : x == 22 ? second : 0.0f;
    });
}

TEST_F(JudgementTest, ARoughnessOfExactlyThreeIsNoNoise) {
    const float value = factor_of(3.0f, -reference_laplacian(0.2f).pixels[4]);
    const ColorImagePtr at_the_limit = single_pixels(value, 0.0f);
    expect_judgement(at_the_limit.get(), taking_all_measures());
    EXPECT_EQ(scores_of(call(at_the_limit.get(), taking_all_measures()).features->noiseScores), std::vector<float>(64, 0.0f));
    const ColorImagePtr above = single_pixels(value * 1.001f, 0.0f);
    EXPECT_GT(call(above.get(), taking_all_measures()).features->noiseScores[2 * 8 + 2], 0.0f);
}

TEST_F(JudgementTest, AGradientOfExactlyThreeIsNotFlat) {
    const Plane gaussian = reference_gaussian_kernel(1, 11, 2.0f);
    const float two_away = reference_convolution(gaussian.pixels, {1.0f, 0.0f, -1.0f})[4];
    const ColorImagePtr picture = single_pixels(factor_of(3.0f, std::fabs(two_away)), 10.0f);
    EXPECT_EQ(reference_gradient(plane_of(&picture->planes[0])).pixels[20 * 64 + 22], 3.0f);
    expect_judgement(picture.get(), taking_all_measures());
}

TEST_F(JudgementTest, AGrayPictureHasNoNoise) {
    for (const int32_t keep_scoring : {0, 1}) {
        Rules rules = accepting_all_blocks();
        rules.keep_scoring = keep_scoring;
        for (DecisionMechanismThreshold &limits : rules.limits) {
            limits.noisyBlocks = 0; // nothing was measured that could be over it
        }
        const ColorImagePtr picture = dark_picture(50, 40, KO_COLORSPACE_GRAY);
        const Judgement judged = expect_judgement(picture.get(), rules);
        EXPECT_TRUE(judged.passed);
        EXPECT_EQ(judged.values.noisyBlocks, not_measured);
    }
}

TEST_F(JudgementTest, ThePictureIsNotAltered) {
    const ColorImagePtr picture = dark_picture(50, 40, KO_COLORSPACE_RGB);
    const ColorImagePtr same = dark_picture(50, 40, KO_COLORSPACE_RGB);
    call(picture.get(), taking_all_measures());
    for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(pixels(&picture->planes[c]), pixels(&same->planes[c]));
    }
}

// A GRAY picture that is turned down leaves nothing behind but scores, which the next one overwrites.
TEST_F(JudgementTest, ScoreArraysAreRefilled) {
    Rules rules = taking_all_measures();
    rules.score = 2.0f;
    Call made(rules);
    made.run(dark_picture(50, 40, KO_COLORSPACE_GRAY).get(), rules);
    const float *detail = made.features->detailScores;
    const float *entropy = made.features->entropyScores;
    const ColorImagePtr second = make_picture(64, 33, KO_COLORSPACE_GRAY);
    made.run(second.get(), rules);
    EXPECT_EQ(made.features->detailScores, detail);
    EXPECT_EQ(made.features->entropyScores, entropy);
    const Measures measures = reference_measures(second.get(), Background::recursive, {});
    EXPECT_TRUE(same_floats(measures.detail, scores_of(detail)));
    EXPECT_TRUE(same_floats(measures.entropy, scores_of(entropy)));
    expect_values(Judge(measures, rules).run().values, made.features->dmValues);
}

// The decision.

struct Example {
    ColorImagePtr picture;
    Measures measures;
};

std::vector<Example> examples(Background kind) {
    std::vector<ColorImagePtr> pictures;
    pictures.push_back(dark_picture(41, 33, KO_COLORSPACE_RGB));
    pictures.push_back(dark_picture(41, 33, KO_COLORSPACE_GRAY));
    pictures.push_back(make_picture(64, 50, KO_COLORSPACE_RGB));
    pictures.push_back(make_picture(64, 50, KO_COLORSPACE_GRAY));
    pictures.push_back(noisy_picture(32, 32, KO_COLORSPACE_RGB, 0.0f, 30.0f, 4));
    pictures.push_back(colour_noise(48, 40, 12.0f));
    pictures.push_back(make_picture(30, 7, KO_COLORSPACE_RGB));
    std::vector<Example> result;
    for (ColorImagePtr &picture : pictures) {
        Measures measures = reference_measures(picture.get(), kind, {});
        result.push_back({std::move(picture), std::move(measures)});
    }
    return result;
}

// Rules on the edges: limits around the true counts, thresholds on true scores, scores around the limits.
Rules random_rules(Noise &noise, const Measures &measures) {
    const auto one_of = [&noise](const std::vector<float> &values) { return values[noise.next() % values.size()]; };
    const auto around = [&noise](uint64_t count) {
        const uint64_t limits[] = {count, count, count + 1, count - 1, 64, 64, 64, 0, uint64_t{1} << 63};
        return limits[noise.next() % std::size(limits)];
    };
    Rules rules;
    rules.configuration = static_cast<int32_t>(noise.next() % 4) + (noise.next() % 4 == 0 ? 0 : 1);
    rules.configuration = std::min(rules.configuration, risky);
    rules.keep_scoring = noise.next() % 3 == 0 ? 7 : 0;
    rules.score = one_of({-1.0f, -1.0f, -1.0f, 0.1f, 0.19f, 0.35f, 0.4f, 0.64f, 0.9f, not_a_number});
    if (noise.next() % 2 == 0) {
        rules.detail_threshold = one_of(measures.detail);
        rules.entropy_threshold = one_of(measures.entropy);
        rules.noise_threshold = measures.noise ? one_of(*measures.noise) : 1.0f;
    }
    const uint64_t low_detail = count_below(measures.detail, rules.detail_threshold);
    const uint64_t low_entropy = count_below(measures.entropy, rules.entropy_threshold);
    const uint64_t noisy = measures.noise ? count_above(*measures.noise, rules.noise_threshold) : 0;
    for (size_t k = 1; k <= 3; ++k) {
        const float score = one_of({0.19f, 0.35f, 0.64f, rules.score, 1.0f});
        rules.limits[k] = {score, around(noisy), around(low_detail), around(low_entropy)};
    }
    return rules;
}

TEST_F(JudgementTest, DecisionsOnTheEdgesOfManyRules) {
    std::set<std::pair<int, bool>> outcomes; // the stage that turned a picture down, if any, and whether scoring was kept
    Noise noise(11);
    for (const Example &example : examples(Background::recursive)) {
        for (int i = 0; i < 150; ++i) {
            const Rules rules = random_rules(noise, example.measures);
            const Judgement judged = expect_judgement(example.picture.get(), example.measures, rules);
            const int fell = judged.fell ? static_cast<int>(*judged.fell) : -1;
            outcomes.insert({fell, rules.keep_scoring != 0});
            if (HasFailure()) {
                return;
            }
        }
    }
    EXPECT_EQ(outcomes.size(), 10u); // passed, or turned down at each of four stages; either way of scoring
}

TEST_F(JudgementTest, StockLimitsOverManyPictures) {
    for (const Example &example : examples(Background::recursive)) {
        for (const int32_t configuration : {conservative, by_default, risky}) {
            for (const float score : {-1.0f, 0.2f, 0.4f}) {
                Rules rules;
                rules.configuration = configuration;
                rules.score = score;
                expect_judgement(example.picture.get(), example.measures, rules);
            }
        }
    }
    const ColorImagePtr good = dark_picture(96, 96, KO_COLORSPACE_RGB);
    EXPECT_TRUE(expect_judgement(good.get(), Rules{}).passed);
}

Rules with_score(float score, int32_t configuration) {
    Rules rules = accepting_all_blocks();
    rules.score = score;
    rules.configuration = configuration;
    return rules;
}

TEST_F(JudgementTest, AScoreEqualToALimitPasses) {
    const ColorImagePtr picture = dark_picture(24, 24, KO_COLORSPACE_GRAY);
    const std::pair<int32_t, float> limits[] = {{conservative, 0.19f}, {by_default, 0.35f}, {risky, 0.64f}};
    for (const auto &[configuration, limit] : limits) {
        EXPECT_TRUE(expect_judgement(picture.get(), with_score(limit, configuration)).passed);
        const float above = std::nextafter(limit, 1.0f);
        const Judgement judged = expect_judgement(picture.get(), with_score(above, configuration));
        EXPECT_EQ(judged.fell, Stage::score);
    }
}

// -1 is no score, even where a limit lies below it; other negative numbers are scores like any.
TEST_F(JudgementTest, AScoreOfMinusOneTakesNoPart) {
    const ColorImagePtr picture = dark_picture(24, 24, KO_COLORSPACE_GRAY);
    Rules rules = with_score(-1.0f, by_default);
    for (DecisionMechanismThreshold &limits : rules.limits) {
        limits.score = -5.0f;
    }
    EXPECT_TRUE(expect_judgement(picture.get(), rules).passed);
    rules.score = -2.0f;
    EXPECT_EQ(expect_judgement(picture.get(), rules).fell, Stage::score);
    rules.score = -5.0f;
    EXPECT_TRUE(expect_judgement(picture.get(), rules).passed);
}

TEST_F(JudgementTest, AScoreThatIsNoNumberTurnsNothingDown) {
    const ColorImagePtr picture = dark_picture(24, 24, KO_COLORSPACE_GRAY);
    for (const int32_t configuration : {conservative, by_default, risky}) {
        EXPECT_TRUE(expect_judgement(picture.get(), with_score(not_a_number, configuration)).passed);
        EXPECT_EQ(expect_judgement(picture.get(), with_score(infinity, configuration)).fell, Stage::score);
    }
}

TEST_F(JudgementTest, ScoreAloneLeavesTheRiskyConfiguration) {
    const ColorImagePtr picture = dark_picture(24, 24, KO_COLORSPACE_RGB);
    Rules rules = with_score(0.4f, risky);
    rules.limits[3].lowEntropyBlocks = 0;
    rules.entropy_threshold = infinity;
    EXPECT_EQ(expect_judgement(picture.get(), rules).fell, Stage::entropy); // 1 and 2 would have let it pass
    rules.score = 0.3f;
    EXPECT_TRUE(expect_judgement(picture.get(), rules).passed);
}

// Each configuration may be the one that is left, the first, the middle or the last of the list; those above the named one
// have no say.
TEST_F(JudgementTest, APicturePassesByAnyConfigurationUpToTheNamedOne) {
    const ColorImagePtr picture = dark_picture(24, 24, KO_COLORSPACE_RGB);
    const Measures measures = reference_measures(picture.get(), Background::recursive, {});
    for (unsigned accepting = 0; accepting < 8; ++accepting) {
        for (const int32_t configuration : {conservative, by_default, risky}) {
            Rules rules = accepting_all_blocks();
            rules.configuration = configuration;
            rules.detail_threshold = infinity;
            for (unsigned k = 1; k <= 3; ++k) {
                rules.limits[k].lowDetailBlocks = (accepting >> (k - 1)) % 2 != 0 ? 64 : 63;
            }
            const bool passes = (accepting & ((1u << configuration) - 1)) != 0;
            EXPECT_EQ(expect_judgement(picture.get(), measures, rules).passed, passes);
        }
    }
}

// All limits of one configuration, not each limit of some.
TEST_F(JudgementTest, AConfigurationThatFellStaysOut) {
    const ColorImagePtr picture = dark_picture(24, 24, KO_COLORSPACE_RGB);
    Rules rules = accepting_all_blocks();
    rules.detail_threshold = infinity;
    rules.entropy_threshold = infinity;
    rules.limits[1].lowDetailBlocks = 0;
    rules.limits[2].lowEntropyBlocks = 0;
    EXPECT_EQ(expect_judgement(picture.get(), rules).fell, Stage::entropy);
}

TEST_F(JudgementTest, LimitsAreUnsigned) {
    const ColorImagePtr picture = dark_picture(24, 24, KO_COLORSPACE_RGB);
    Rules rules;
    rules.detail_threshold = infinity;
    for (DecisionMechanismThreshold &limits : rules.limits) {
        limits.noisyBlocks = limits.lowDetailBlocks = limits.lowEntropyBlocks = uint64_t{1} << 63;
    }
    EXPECT_TRUE(expect_judgement(picture.get(), rules).passed);
}

TEST_F(JudgementTest, LiveLimitsDecide) {
    const ColorImagePtr picture = dark_picture(24, 24, KO_COLORSPACE_GRAY);
    for (const uint64_t limit : {63u, 64u}) {
        const FeaturesPtr features = make_features(256, 1, 1);
        features->detailThreshold = infinity;
        features->entropyThreshold = 0.0f;
        KoLocalContrastEnhancementGetDMThreshold(features.get(), by_default)->lowDetailBlocks = limit;
        TileTRC *made = nullptr;
        EXPECT_EQ(enhance(features.get(), picture.get(), &made, {}, by_default, -1.0f), KO_OK);
        const TileTRCPtr grid(made);
        EXPECT_EQ(grid != nullptr, limit == 64);
    }
}

// Every measure is taken after the decision has fallen, and the decision stands.
TEST_F(JudgementTest, KeptScoringDoesNotBringAPictureBack) {
    const ColorImagePtr picture = dark_picture(40, 40, KO_COLORSPACE_RGB);
    Rules rules = with_score(2.0f, risky);
    rules.keep_scoring = 1;
    const Judgement judged = expect_judgement(picture.get(), rules);
    EXPECT_EQ(judged.fell, Stage::score);
    EXPECT_EQ(judged.last, Stage::noise);
    const Call made = call(picture.get(), rules);
    EXPECT_EQ(made.grid, nullptr);
    EXPECT_NE(made.features->noiseScores, nullptr);
}

TEST_F(JudgementTest, NumbersBelowOneReturnAtOnceWithKeptScoringToo) {
    const ColorImagePtr picture = dark_picture(40, 40, KO_COLORSPACE_RGB);
    const Measures measures = reference_measures(picture.get(), Background::recursive, {});
    for (const int32_t configuration : {never, -1, -7, std::numeric_limits<int32_t>::min()}) {
        for (const int32_t keep_scoring : {0, 1}) {
            Rules rules = with_score(0.1f, configuration);
            rules.keep_scoring = keep_scoring;
            const Judgement judged = expect_judgement(picture.get(), measures, rules);
            EXPECT_FALSE(judged.passed);
            EXPECT_EQ(judged.last, Stage::score);
        }
    }
}

TEST_F(JudgementTest, AGivenGridStaysAsItWasWhenAPictureIsTurnedDown) {
    const ColorImagePtr picture = flat_picture(40, 40, KO_COLORSPACE_RGB, 90.0f);
    const TileTRCPtr given(KoTileTRCNew(256, 2, 1));
    std::fill_n(given->array, 512, 77777u);
    for (const float score : {-1.0f, 2.0f}) {
        const FeaturesPtr features = make_features(256, 2, 1);
        TileTRC *grid = given.get();
        EXPECT_EQ(enhance(features.get(), picture.get(), &grid, {}, by_default, score), KO_OK);
        EXPECT_EQ(grid, given.get());
        EXPECT_EQ(std::count(given->array, given->array + 512, 77777u), 512);
    }
}

TEST_F(JudgementTest, AGivenGridIsFilledWhenAPicturePasses) {
    const ColorImagePtr picture = dark_picture(40, 40, KO_COLORSPACE_RGB);
    const TileTRCPtr given(KoTileTRCNew(256, 2, 1));
    const Rules rules = accepting_all_blocks();
    const Call made(rules);
    TileTRC *grid = given.get();
    EXPECT_EQ(enhance(made.features.get(), picture.get(), &grid, {}, by_default, -1.0f), KO_OK);
    EXPECT_EQ(grid, given.get());
    expect_grid_of_always(grid, picture.get(), {});
}

TEST_F(JudgementTest, EachCallWritesItsValuesAnew) {
    const ColorImagePtr picture = dark_picture(40, 40, KO_COLORSPACE_GRAY);
    Rules rules = taking_all_measures();
    rules.score = 2.0f;
    Call made(rules);
    made.run(picture.get(), rules);
    EXPECT_NE(made.features->dmValues.lowDetailBlocks, not_measured);
    rules.configuration = never;
    rules.score = 0.5f;
    made.run(picture.get(), rules);
    expect_values({0.5f, not_measured, not_measured, not_measured}, made.features->dmValues);
}

// The stock call.

TEST_F(JudgementTest, TheStockCallTurnsEveryPictureDownByItsScore) {
    const TileTRCPtr given(KoTileTRCNew(256, 2, 1));
    TileTRC *const starts[] = {nullptr, given.get()};
    for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY}) {
        const ColorImagePtr picture = dark_picture(96, 96, space); // which the block measures would let pass
        for (TileTRC *start : starts) {
            const FeaturesPtr features = make_features(256, 2, 1);
            TileTRC *grid = start;
            expect_success([&] { return KoLocalContrastEnhancementGetNewTRCs(features.get(), picture.get(), &grid); });
            EXPECT_EQ(grid, start);
            EXPECT_EQ(features->proceed, 0);
            expect_values({0.4f, not_measured, not_measured, not_measured}, features->dmValues);
            EXPECT_EQ(features->yiqImage, nullptr);
            EXPECT_EQ(features->luminance, nullptr);
            EXPECT_EQ(features->detailScores, nullptr);
        }
    }
}

void expect_stock_call(const std::function<void(Features *)> &prepare, bool passes) {
    const ColorImagePtr picture = dark_picture(96, 96, KO_COLORSPACE_RGB);
    const FeaturesPtr features = make_features(256, 2, 1);
    prepare(features.get());
    TileTRC *made = nullptr;
    expect_success([&] { return KoLocalContrastEnhancementGetNewTRCs(features.get(), picture.get(), &made); });
    const TileTRCPtr grid(made);
    ASSERT_EQ(grid != nullptr, passes);
    if (passes) {
        expect_grid_of_always(grid.get(), picture.get(), {3.0f, 40.0f, 0.6275f, 5});
        EXPECT_EQ(features->maxGain, 3.0f);
        EXPECT_EQ(features->gainStrength, 40.0f);
        EXPECT_EQ(features->gainLimit, 0.6275f * 255.0f);
    }
}

TEST_F(JudgementTest, TheStockCallIsTheDefaultConfigurationWithAScore) {
    const auto raise = [](int32_t configuration, float score) {
        return [=](Features *features) { KoLocalContrastEnhancementGetDMThreshold(features, configuration)->score = score; };
    };
    expect_stock_call(raise(conservative, 0.4f), true);
    expect_stock_call(raise(by_default, 0.4f), true);
    expect_stock_call(raise(by_default, std::nextafter(0.4f, 0.0f)), false);
    expect_stock_call(raise(risky, 1.0f), false);
    expect_stock_call([](Features *features) { features->keepScoring = 1; }, false);
}

// The variable.

struct Flags {
    const char *text;
    Background kind;
};

constexpr Flags all_flags[] = {{"BACKGROUND:BLF", Background::bilateral},
                               {"BACKGROUND:GaussFast", Background::recursive},
                               {"BACKGROUND:GaussBest", Background::finite},
                               {"a=1,BACKGROUND:BLF;b", Background::bilateral},
                               {"xxBACKGROUND:GaussFastxx", Background::recursive},
                               {" BACKGROUND:GaussBest ", Background::finite},
                               {"BACKGROUND:GaussBest BACKGROUND:BLF", Background::bilateral},
                               {"BACKGROUND:GaussFast,BACKGROUND:BLF", Background::bilateral},
                               {"BACKGROUND:GaussBest,BACKGROUND:GaussFast", Background::recursive},
                               {"BACKGROUND:GaussFast,BACKGROUND:GaussBest", Background::recursive}};

TEST_F(JudgementTest, TheStartTakesTheRecursiveBlur) {
    EXPECT_TRUE(same_floats(reference_measures(picture_of_the_start, Background::recursive, {}).detail, detail_of_the_start));
}

TEST_F(JudgementTest, TheThreeBackgroundsDiffer) {
    std::set<std::vector<float>> details;
    for (const Background kind : {Background::recursive, Background::finite, Background::bilateral}) {
        details.insert(reference_measures(picture_of_the_start, kind, {}).detail);
    }
    EXPECT_EQ(details.size(), 3u);
}

TEST_F(JudgementTest, FlagsSetTheBackgroundOfTheDecision) {
    for (const Flags &flags : all_flags) {
        SCOPED_TRACE(flags.text);
        forget_flags();
        set_flags(flags.text);
        expect_judgement(picture_of_the_start, taking_all_measures(), flags.kind);
        expect_judgement(dark_picture(43, 38, KO_COLORSPACE_RGB).get(), accepting_all_blocks(), flags.kind);
        expect_judgement(dark_picture(12, 38, KO_COLORSPACE_RGB).get(), taking_all_measures(), flags.kind);
    }
}

// What one Init has set stays for all records, until another Init finds one of the words.
TEST_F(JudgementTest, OtherValuesChangeNothing) {
    for (const Flags &start : {all_flags[0], all_flags[1], all_flags[2]}) {
        for (const char *other : {"", "nonsense", "BACKGROUND:", "BACKGROUND:blf", "background:BLF", "BLF", "GaussBest",
                                  "BACKGROUND: GaussFast", "BACKGROUND:Gauss"}) {
            SCOPED_TRACE(testing::Message() << start.text << ", then " << other);
            set_flags(start.text);
            make_features();
            set_flags(other);
            const std::vector<float> expected = reference_measures(picture_of_the_start, start.kind, {}).detail;
            const Call made = call(picture_of_the_start, taking_all_measures());
            EXPECT_TRUE(same_floats(expected, scores_of(made.features->detailScores)));
        }
    }
}

TEST_F(JudgementTest, SettingsOutliveTheVariable) {
    for (const Flags &flags : {all_flags[0], all_flags[2], all_flags[1]}) {
        set_flags(flags.text);
        make_features();
        set_flags(nullptr);
        expect_judgement(picture_of_the_start, taking_all_measures(), flags.kind);
        KoInit(nullptr, nullptr);
        KoRelease();
        expect_judgement(picture_of_the_start, taking_all_measures(), flags.kind);
    }
}

TEST_F(JudgementTest, EachInitSetsThemForAllRecords) {
    const Measures measures = reference_measures(picture_of_the_start, Background::bilateral, {});
    Call before(taking_all_measures());
    set_flags("BACKGROUND:BLF");
    const FeaturesPtr other = make_features();
    before.run(picture_of_the_start, taking_all_measures());
    EXPECT_TRUE(same_floats(measures.detail, scores_of(before.features->detailScores)));
}

TEST_F(JudgementTest, TheVariableIsReadByInitAlone) {
    const Measures measures = reference_measures(picture_of_the_start, Background::recursive, {});
    Call before(taking_all_measures());
    set_flags("BACKGROUND:BLF");
    before.run(picture_of_the_start, taking_all_measures());
    EXPECT_TRUE(same_floats(measures.detail, scores_of(before.features->detailScores)));
}

// The images of the decision are then those of the curves, and are kept whatever it was.
TEST_F(JudgementTest, TheBilateralBackgroundIsKept) {
    set_flags("BACKGROUND:BLF");
    for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY}) {
        const ColorImagePtr picture = dark_picture(43, 38, space);
        const Plane luminance = reference_luminance(picture.get());
        const Plane background = reference_bilateral(luminance, 5);
        for (const float threshold : {-infinity, infinity}) {
            Rules rules = accepting_all_blocks();
            rules.detail_threshold = threshold;
            rules.limits[1].lowDetailBlocks = rules.limits[2].lowDetailBlocks = 63;
            const Call made = call(picture.get(), rules);
            EXPECT_EQ(made.grid == nullptr, threshold == infinity);
            EXPECT_TRUE(same_floats(background.pixels, pixels(made.features->background)));
            EXPECT_TRUE(same_floats(reference_enhanced(luminance, background, {}), pixels(made.features->enhanced)));
        }
    }
}

TEST_F(JudgementTest, TheCurvesRestOnTheBilateralFilterWhateverJudged) {
    for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY}) {
        const ColorImagePtr picture = dark_picture(43, 38, space);
        const Plane luminance = reference_luminance(picture.get());
        std::vector<TileTRCPtr> grids;
        for (const Flags &flags : all_flags) {
            set_flags(flags.text);
            for (const int32_t configuration : {by_default, always}) {
                Rules rules = accepting_all_blocks();
                rules.configuration = configuration;
                Call made = call(picture.get(), rules);
                ASSERT_NE(made.grid, nullptr) << flags.text;
                EXPECT_TRUE(same_floats(reference_bilateral(luminance, 5).pixels, pixels(made.features->background)));
                grids.push_back(std::move(made.grid));
                EXPECT_EQ(KoTileTRCCompare(grids.front().get(), grids.back().get()), 1) << flags.text;
            }
        }
    }
}

// Print.

std::string printed(const char *format, const auto &...values) {
    char text[1000];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

std::string heading(const char *left, const char *right) {
    std::string line = printed("%2s| ", "");
    for (int column = 0; column < 8; ++column) {
        line += printed("%4s %4s | ", left, right);
    }
    return line + "\n";
}

std::string table_of(const Features *features) {
    std::string table = printed("%2s| ", "");
    for (int column = 0; column < 8; ++column) {
        table += printed("%3s%3d%3s | ", "", column, "");
    }
    table += "\n" + heading("---", "DET") + heading("NOI", "ENT");
    for (int row = 0; row < 8; ++row) {
        std::string first = printed("%2d|", row);
        std::string second = printed("%2s|", "");
        table += "--+-";
        for (int block = 8 * row; block < 8 * row + 8; ++block) {
            table += "----------+-";
            first += printed("%5.2f %5.2f|", 0.0, static_cast<double>(features->detailScores[block]));
            second += printed("%5.2f %5.2f|", static_cast<double>(features->noiseScores[block]),
                              static_cast<double>(features->entropyScores[block]));
        }
        table += "\n" + first + "\n" + second + "\n";
    }
    return table;
}

// Prints into a file. Gives the status and what the file holds.
std::pair<int32_t, std::string> print(const Features *features) {
    const TemporaryFile file("scores.txt");
    FILE *stream = std::fopen(file.c_str(), "w");
    const int32_t status = KoLocalContrastEnhancementPrintScores(features, stream);
    std::fclose(stream);
    return {status, read_text(file.path())};
}

TEST_F(JudgementTest, ScoresPrintAsATable) {
    const ColorImagePtr pictures[] = {dark_picture(41, 33, KO_COLORSPACE_RGB), colour_noise(64, 64, 20.0f),
                                      make_picture(7, 9, KO_COLORSPACE_RGB)}; // without numbers where there are no pixels
    for (const ColorImagePtr &picture : pictures) {
        const Call made = call(picture.get(), taking_all_measures());
        KoStatusClear();
        const auto [status, text] = print(made.features.get());
        EXPECT_EQ(status, KO_OK);
        EXPECT_EQ(text, table_of(made.features.get()));
        expect_status(KO_OK, "");
    }
}

TEST_F(JudgementTest, TheTableToTheLetter) {
    Features features;
    KoLocalContrastEnhancementInit(&features, 256, 1, 1);
    float detail[64], noise[64], entropy[64];
    for (int i = 0; i < 64; ++i) {
        detail[i] = static_cast<float>(i) - 10.25f;
        noise[i] = static_cast<float>(i) * 100.0f;
        entropy[i] = 4.163f;
    }
    features.detailScores = detail;
    features.noiseScores = noise;
    features.entropyScores = entropy;
    const std::string text = print(&features).second;
    const std::string begin =
        "  |      0    |      1    |      2    |      3    |      4    |      5    |      6    |      7    | \n"
        "  |  ---  DET |  ---  DET |  ---  DET |  ---  DET |  ---  DET |  ---  DET |  ---  DET |  ---  DET | \n"
        "  |  NOI  ENT |  NOI  ENT |  NOI  ENT |  NOI  ENT |  NOI  ENT |  NOI  ENT |  NOI  ENT |  NOI  ENT | \n"
        "--+-----------+-----------+-----------+-----------+-----------+-----------+-----------+-----------+-\n"
        " 0| 0.00 -10.25| 0.00 -9.25| 0.00 -8.25| 0.00 -7.25| 0.00 -6.25| 0.00 -5.25| 0.00 -4.25| 0.00 -3.25|\n"
        "  | 0.00  4.16|100.00  4.16|200.00  4.16|300.00  4.16|400.00  4.16|500.00  4.16|600.00  4.16|700.00  "
        "4.16|\n--+-";
    EXPECT_EQ(text.substr(0, begin.size()), begin);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 27);
    EXPECT_EQ(text, table_of(&features));
}

TEST_F(JudgementTest, ATableNeedsAllThreeMeasures) {
    std::vector<float> scores(64, 1.0f);
    for (unsigned present = 0; present < 7; ++present) {
        Features features;
        KoLocalContrastEnhancementInit(&features, 256, 1, 1);
        features.detailScores = present % 2 != 0 ? scores.data() : nullptr;
        features.noiseScores = present / 2 % 2 != 0 ? scores.data() : nullptr;
        features.entropyScores = present / 4 != 0 ? scores.data() : nullptr;
        std::string text;
        expect_error(KO_ERR_NULL_POINTER, "Null pointer error", [&] {
            const auto [status, written] = print(&features);
            text = written;
            return status;
        });
        EXPECT_EQ(text, "") << present;
    }
    const Call gray = call(dark_picture(40, 40, KO_COLORSPACE_GRAY).get(), taking_all_measures());
    EXPECT_EQ(print(gray.features.get()), std::pair(static_cast<int32_t>(KO_ERR_NULL_POINTER), std::string()));
}

// Save.

std::string line_of(const float *scores) {
    std::string line;
    for (int i = 0; scores != nullptr && i < 64; ++i) {
        line += printed(i == 0 ? "%f" : ",%f", static_cast<double>(scores[i]));
    }
    return line + "\n";
}

std::string lines_of(const Features *features) {
    return line_of(features->detailScores) + line_of(features->noiseScores) + line_of(features->entropyScores);
}

// What was saved is on the disk when the call returns.
void expect_saved(const Features *features, const std::string &path, int32_t overwrite) {
    expect_success([&] { return KoLocalContrastEnhancementSaveScores(features, path.c_str(), overwrite); });
    EXPECT_EQ(read_text(path), lines_of(features));
}

TEST_F(JudgementTest, ScoresAreSavedInThreeLines) {
    const ColorImagePtr pictures[] = {dark_picture(41, 33, KO_COLORSPACE_RGB), colour_noise(64, 64, 20.0f),
                                      make_picture(7, 9, KO_COLORSPACE_RGB)};
    for (const ColorImagePtr &picture : pictures) {
        for (const int32_t overwrite : {0, 1}) {
            const Call made = call(picture.get(), taking_all_measures());
            const TemporaryFile file("scores.csv");
            expect_saved(made.features.get(), file.path(), overwrite);
        }
    }
}

TEST_F(JudgementTest, TheSavedLinesToTheLetter) {
    Features features;
    KoLocalContrastEnhancementInit(&features, 256, 1, 1);
    std::vector<float> detail(64, 1.5f), noise(64, -2.0000004f), entropy(64, 4.163f);
    features.detailScores = detail.data();
    features.noiseScores = noise.data();
    features.entropyScores = entropy.data();
    detail[63] = 1234567.0f;
    const TemporaryFile file("scores.csv");
    expect_saved(&features, file.path(), 0);
    const std::string text = read_text(file.path());
    EXPECT_EQ(text.substr(0, 18), "1.500000,1.500000,");
    EXPECT_NE(text.find(",1234567.000000\n-2.000000,"), std::string::npos);
    EXPECT_NE(text.find(",-2.000000\n4.163000,"), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), ','), 3 * 63);
    EXPECT_EQ(text.find(' '), std::string::npos);
}

TEST_F(JudgementTest, AMeasureThatWasNotTakenLeavesItsLineEmpty) {
    const TemporaryFile first("scores.csv");
    const Call flat = call(flat_picture(40, 40, KO_COLORSPACE_RGB, 90.0f).get(), Rules{}); // fell at the first stage
    expect_saved(flat.features.get(), first.path(), 0);
    EXPECT_NE(flat.features->detailScores, nullptr);
    const std::string text = read_text(first.path());
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
    EXPECT_EQ(text.substr(text.size() - 3), "\n\n\n");

    const TemporaryFile second("scores.csv");
    const Call gray = call(dark_picture(40, 40, KO_COLORSPACE_GRAY).get(), taking_all_measures());
    expect_saved(gray.features.get(), second.path(), 0);
    EXPECT_NE(read_text(second.path()).find("\n\n"), std::string::npos);

    const TemporaryFile third("scores.csv");
    expect_saved(make_features().get(), third.path(), 0);
    EXPECT_EQ(read_text(third.path()), "\n\n\n");
}

TEST_F(JudgementTest, AFileIsReplacedOnlyOnDemand) {
    const Call made = call(dark_picture(40, 40, KO_COLORSPACE_RGB).get(), taking_all_measures());
    const std::string before(10000, 'x');
    const TemporaryFile file("scores.csv", before);
    expect_error(KO_ERR_FILE_EXISTS, printed("File \"%s\" already exists", file.c_str()),
                 [&] { return KoLocalContrastEnhancementSaveScores(made.features.get(), file.c_str(), 0); });
    EXPECT_EQ(read_text(file.path()), before);
    for (const int32_t overwrite : {1, -1, 2}) {
        expect_saved(made.features.get(), file.path(), overwrite);
    }
}

TEST_F(JudgementTest, AFolderIsNoFile) {
    const FeaturesPtr features = make_features();
    const TemporaryFile folder("scores");
    std::filesystem::create_directory(folder.path());
    expect_error(KO_ERR_FILE_EXISTS, printed("File \"%s\" already exists", folder.c_str()),
                 [&] { return KoLocalContrastEnhancementSaveScores(features.get(), folder.c_str(), 0); });
    expect_error(KO_ERR_OPEN_WRITE, printed("Cannot open file \"%s\" for writing", folder.c_str()),
                 [&] { return KoLocalContrastEnhancementSaveScores(features.get(), folder.c_str(), 1); });
    const std::string inside = temporary_path("no-such-folder") + "/scores.csv";
    for (const int32_t overwrite : {0, 1}) {
        expect_error(KO_ERR_OPEN_WRITE, printed("Cannot open file \"%s\" for writing", inside.c_str()),
                     [&] { return KoLocalContrastEnhancementSaveScores(features.get(), inside.c_str(), overwrite); });
    }
}

#ifdef __linux__
int open_streams(const std::string &path) {
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        count += std::filesystem::read_symlink(entry.path(), gone) == path ? 1 : 0;
    }
    return count;
}

TEST_F(JudgementTest, TheStreamStaysOpen) {
    const FeaturesPtr features = make_features();
    const TemporaryFile file("scores.csv");
    EXPECT_EQ(open_streams(file.path()), 0);
    expect_saved(features.get(), file.path(), 0);
    EXPECT_EQ(open_streams(file.path()), 1);
    expect_saved(features.get(), file.path(), 1);
    EXPECT_EQ(open_streams(file.path()), 2);
    EXPECT_EQ(KoLocalContrastEnhancementSaveScores(features.get(), file.c_str(), 0), KO_ERR_FILE_EXISTS);
    EXPECT_EQ(open_streams(file.path()), 2);
}
#endif

} // namespace
