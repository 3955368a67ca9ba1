// The bilateral filter against a plain reference, bit for bit, and its outcomes that look like faults and are results: see
// "Flat pictures under the bilateral filter" in docs/compatibility.md.
#include <algorithm>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "ko.h"
#include "pictures.h"
#include "reference_bilateralfilter.h"
#include "same_floats.h"
#include "turn_sizes.h"

namespace {

using namespace ko_test;

class BilateralFilterTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { KoInit(nullptr, nullptr); }
    static void TearDownTestSuite() { KoRelease(); }
    void SetUp() override { KoStatusClear(); }
};

Plane noise_plane(uint64_t width, uint64_t height, uint32_t seed, float low = 0.0f, float high = 255.0f) {
    Noise noise(seed);
    Plane plane{width, height, {}};
    for (uint64_t i = 0; i < width * height; ++i) {
        plane.pixels.push_back(noise.uniform(low, high));
    }
    return plane;
}

Plane photograph_plane(uint64_t width, uint64_t height, uint32_t seed) {
    const std::vector<uint8_t> bytes = photograph(width, height, 1, seed);
    return {width, height, std::vector<float>(bytes.begin(), bytes.end())};
}

// Two halves, left dark and right bright.
Plane edge_plane(uint64_t width, uint64_t height) {
    Plane plane{width, height, {}};
    for (uint64_t i = 0; i < width * height; ++i) {
        plane.pixels.push_back(i % width < width / 2 ? 10.0f : 200.0f);
    }
    return plane;
}

RealImagePtr filter(const Plane &plane, uint64_t levels) {
    const RealImagePtr image = make_image(plane.width, plane.height, plane.pixels);
    RealImage *result = nullptr;
    EXPECT_EQ(KoFilterBLFApplyToRealImage(image.get(), &result, levels), KO_OK);
    EXPECT_TRUE(same_floats(plane.pixels, pixels(image.get()))) << "the source was written";
    return RealImagePtr(result);
}

void expect_filter(const Plane &plane, uint64_t levels) {
    SCOPED_TRACE(testing::Message() << plane.width << " by " << plane.height << ", " << levels << " levels");
    const RealImagePtr result = filter(plane, levels);
    ASSERT_NE(result, nullptr);
    ASSERT_EQ(result->width, plane.width);
    ASSERT_EQ(result->height, plane.height);
    EXPECT_TRUE(same_floats(reference_bilateral(plane, levels).pixels, pixels(result.get())));
    EXPECT_TRUE(padding_is_zero(result.get()));
}

TEST_F(BilateralFilterTest, NoiseOfManySizes) {
    for (uint64_t width = 1; width <= 21; ++width) {
        for (uint64_t height = 1; height <= 21; ++height) {
            expect_filter(noise_plane(width, height, static_cast<uint32_t>(width * 100 + height)), 1 + (width + height) % 6);
            if (HasFailure()) {
                return;
            }
        }
    }
}

TEST_F(BilateralFilterTest, PhotographsOfLargerSizes) {
    expect_filter(photograph_plane(131, 97, 1), 5);
    expect_filter(photograph_plane(97, 131, 2), 5);
    expect_filter(photograph_plane(256, 255, 3), 5);
    expect_filter(photograph_plane(513, 40, 4), 3);
    expect_filter(photograph_plane(40, 513, 5), 8);
    expect_filter(photograph_plane(333, 3, 6), 5);
    expect_filter(photograph_plane(2, 300, 7), 5);
}

TEST_F(BilateralFilterTest, WidthsAroundBlockSizes) {
    for (const uint64_t width : {31u, 32u, 33u, 63u, 64u, 65u, 95u, 127u, 128u, 129u, 191u, 192u, 193u, 257u}) {
        expect_filter(photograph_plane(width, 35, static_cast<uint32_t>(width)), 4);
        expect_filter(photograph_plane(35, width, static_cast<uint32_t>(width)), 4);
    }
}

TEST_F(BilateralFilterTest, SizesAroundGroupsOfRowsAndPiecesOfColumns) {
    for (const uint64_t height : {1u, 15u, 16u, 17u, 33u}) {
        for (const uint64_t width : {1u, 255u, 256u, 257u, 513u}) {
            expect_filter(noise_plane(width, height, static_cast<uint32_t>(height)), 3);
        }
    }
}

TEST_F(BilateralFilterTest, EverySizeAndSomeLevels) {
    constexpr uint64_t levels[] = {1, 2, 5, 10};
    uint32_t seed = 0;
    for (const TurnSize &size : turn_sizes()) {
        ++seed;
        expect_filter(noise_plane(size.width, size.height, seed), levels[seed % 4]);
        expect_filter(photograph_plane(size.height, size.width, seed), levels[(seed + 1) % 4]);
        ASSERT_FALSE(HasFailure());
    }
}

// Most pixels lie exactly at a level, where a weight is 1, or half way between two.
TEST_F(BilateralFilterTest, PixelsAtTheLevelsThemselves) {
    for (const uint64_t levels : {1u, 2u, 5u, 10u}) {
        for (const uint64_t width : turn_widths()) {
            if (width > 300) {
                break;
            }
            Plane plane{width, 9, {}};
            for (uint64_t i = 0; i < width * 9; ++i) {
                plane.pixels.push_back(static_cast<float>(i * 37 % (2 * levels + 1)) * 0.5f);
            }
            expect_filter(plane, levels);
            ASSERT_FALSE(HasFailure());
        }
    }
}

// What the blur leaves in the middle of a row of stripes: 1 at every third pixel, one of them in the middle, or at all others.
double blurred_stripes(uint64_t width, float sigma, bool at_third) {
    Plane row{width, 1, {}};
    for (uint64_t x = 0; x < width; ++x) {
        row.pixels.push_back((x % 3 == width / 2 % 3) == at_third ? 1.0f : 0.0f);
    }
    return static_cast<double>(reference_recursive(row, sigma).pixels[width / 2]);
}

// The value between -1 and 1 that becomes weighted when it is multiplied by its weight at the level -1 with a step of 2.
float before_weighing(double weighted) {
    double low = 0.0;
    double high = 1.0;
    for (int i = 0; i < 60; ++i) {
        const double middle = (low + high) / 2.0;
        const double distance = (middle + 1.0) / 2.0;
        (middle * std::exp(-distance * distance / 2.0) < weighted ? low : high) = middle;
    }
    return static_cast<float>(low);
}

// Stripes of the least value, at which the weighted values around cancel under the blur to almost nothing: there the result
// shows the bits of the blur's running values that elsewhere are lost in the rounding to single precision.
TEST_F(BilateralFilterTest, BlursThatCancelShowTheOrderOfTheirSums) {
    for (uint64_t more = 0; more < 18; ++more) {
        Plane plane{151 + more, 150 + more * 5 % 17, {}};
        const float sigma = static_cast<float>(std::min(plane.width, plane.height)) / 50.0f;
        const float between =
            before_weighing(blurred_stripes(plane.width, sigma, true) / blurred_stripes(plane.width, sigma, false));
        for (uint64_t i = 0; i < plane.width * plane.height; ++i) {
            plane.pixels.push_back(i % plane.width % 3 == plane.width / 2 % 3 ? -1.0f : between);
        }
        plane.pixels[0] = 1.0f; // the other end of the range
        expect_filter(plane, 1);
        expect_filter(transposed(plane), 1);
        ASSERT_FALSE(HasFailure());
    }
}

// One pixel is all that keeps the picture from being flat, wherever it lies.
TEST_F(BilateralFilterTest, OnePixelInAFlatPicture) {
    for (uint64_t place = 0; place < 37 * 3; ++place) {
        for (const float value : {101.0f, -300.0f}) {
            Plane plane{37, 3, std::vector<float>(37 * 3, 100.0f)};
            plane.pixels[place] = value;
            expect_filter(plane, 1 + place % 5);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(BilateralFilterTest, PicturesWithoutPixelsGiveSuch) {
    for (const uint64_t levels : {0u, 5u}) {
        for (const auto &[width, height] : {std::pair<uint64_t, uint64_t>{0, 40}, {40, 0}, {0, 0}}) {
            const RealImagePtr image(KoRealImageNew(width, height));
            RealImage *result = nullptr;
            EXPECT_EQ(KoFilterBLFApplyToRealImage(image.get(), &result, levels), KO_OK);
            const RealImagePtr made(result);
            ASSERT_NE(made, nullptr);
            EXPECT_EQ(made->width, width);
            EXPECT_EQ(made->height, height);
        }
    }
}

TEST_F(BilateralFilterTest, LevelsFromOneToMany) {
    const Plane plane = photograph_plane(61, 53, 9);
    for (const uint64_t levels : {1u, 2u, 3u, 4u, 5u, 7u, 12u, 16u, 31u, 64u, 200u}) {
        expect_filter(plane, levels);
    }
}

TEST_F(BilateralFilterTest, ValuesOffTheByteScale) {
    expect_filter(noise_plane(33, 41, 1, -500.0f, 700.0f), 5);
    expect_filter(noise_plane(33, 41, 2, 1e-30f, 1e-29f), 5);
    expect_filter(noise_plane(33, 41, 3, 1e20f, 1e21f), 5);
    expect_filter(noise_plane(33, 41, 4, 100.0f, 100.0001f), 5);
}

TEST_F(BilateralFilterTest, AFlatPictureGivesZeroAndNotItsValue) {
    for (const float value : {0.0f, 100.0f, 255.0f, -7.0f}) {
        const Plane plane{19, 11, std::vector<float>(19 * 11, value)};
        const RealImagePtr result = filter(plane, 5);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(pixels(result.get()), std::vector<float>(19 * 11, 0.0f)) << value;
    }
    EXPECT_EQ(KoErrorGetLastError(), KO_OK);
}

TEST_F(BilateralFilterTest, APictureOfOnePixelIsFlat) {
    const Plane plane{1, 1, {42.0f}};
    EXPECT_EQ(pixels(filter(plane, 5).get()), std::vector<float>{0.0f});
}

TEST_F(BilateralFilterTest, ResultStaysBetweenMinimumAndMaximum) {
    for (const uint64_t levels : {1u, 3u, 5u, 20u}) {
        const std::vector<float> result = pixels(filter(noise_plane(50, 40, 12, 20.0f, 230.0f), levels).get());
        const Plane plane = noise_plane(50, 40, 12, 20.0f, 230.0f);
        const auto [low, high] = std::minmax_element(plane.pixels.begin(), plane.pixels.end());
        for (const float pixel : result) {
            ASSERT_GE(pixel, *low);
            ASSERT_LE(pixel, *high);
        }
    }
}

TEST_F(BilateralFilterTest, EdgesStayAndNoiseGoes) {
    Plane plane = edge_plane(150, 150);
    Noise noise(3);
    for (float &pixel : plane.pixels) {
        pixel += noise.uniform(-5.0f, 5.0f);
    }
    const RealImagePtr result = filter(plane, 5);
    for (uint64_t y = 10; y < 140; ++y) {
        for (uint64_t x = 10; x < 140; ++x) {
            ASSERT_NEAR(result->rows[y][x], x < 75 ? 10.0f : 200.0f, 4.0f) << x << ", " << y;
        }
    }
}

// With many levels the weights of a far level underflow to 0; in a low picture, whose sigma is tiny, the blurred weight is then
// exactly 0, and what the near levels had given is lost: the pixel ends at 0 and is raised to the minimum.
TEST_F(BilateralFilterTest, AWeightOfExactlyZeroThrowsAwayWhatEarlierLevelsLeft) {
    const Plane plane = edge_plane(200, 2);
    BilateralCounts counts;
    const Plane expected = reference_bilateral(plane, 40, &counts);
    ASSERT_GT(counts.thrown_away, 0u);
    const RealImagePtr result = filter(plane, 40);
    EXPECT_TRUE(same_floats(expected.pixels, pixels(result.get())));
    EXPECT_EQ(result->rows[0][5], 10.0f);

    Plane raised = edge_plane(200, 2);
    raised.pixels[0] = 4.0f; // the minimum is now below the dark half, which shows what became of it
    const RealImagePtr lost = filter(raised, 40);
    EXPECT_EQ(lost->rows[0][50], 4.0f);
    expect_filter(raised, 40);
}

TEST_F(BilateralFilterTest, ANotANumberSpreadsOverThePicture) {
    Plane plane = noise_plane(23, 17, 5);
    plane.pixels[8 * 23 + 9] = std::numeric_limits<float>::quiet_NaN();
    for (const float pixel : pixels(filter(plane, 5).get())) {
        ASSERT_TRUE(std::isnan(pixel));
    }
}

TEST_F(BilateralFilterTest, ANotANumberInTheFirstPixelMakesTheStepOne) {
    Plane plane = noise_plane(23, 17, 5);
    plane.pixels[0] = std::numeric_limits<float>::quiet_NaN();
    for (const float pixel : pixels(filter(plane, 5).get())) {
        ASSERT_TRUE(std::isnan(pixel));
    }
}

TEST_F(BilateralFilterTest, ANotANumberOutsideTheFirstPixelLeavesAFlatPictureFlat) {
    Plane plane{9, 9, std::vector<float>(81, 50.0f)};
    plane.pixels[40] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(pixels(filter(plane, 5).get()), std::vector<float>(81, 0.0f));
}

TEST_F(BilateralFilterTest, InfinitePixelsEndWithoutAFault) {
    Plane plane = noise_plane(23, 17, 5);
    plane.pixels[40] = std::numeric_limits<float>::infinity();
    plane.pixels[41] = -std::numeric_limits<float>::infinity();
    expect_filter(plane, 5);
}

TEST_F(BilateralFilterTest, NoLevelsGiveNoNumbers) {
    for (const float pixel : pixels(filter(noise_plane(23, 17, 5), 0).get())) {
        ASSERT_TRUE(std::isnan(pixel));
    }
}

TEST_F(BilateralFilterTest, ResultIsAlwaysANewImage) {
    const Plane plane = noise_plane(23, 17, 5);
    const RealImagePtr image = make_image(23, 17, plane.pixels);
    const Plane before = noise_plane(23, 17, 99);
    const RealImagePtr given = make_image(23, 17, before.pixels);
    RealImage *result = given.get();
    EXPECT_EQ(KoFilterBLFApplyToRealImage(image.get(), &result, 5), KO_OK);
    ASSERT_NE(result, given.get());
    const RealImagePtr made(result);
    EXPECT_TRUE(same_floats(reference_bilateral(plane, 5).pixels, pixels(made.get())));
    EXPECT_EQ(pixels(given.get()), before.pixels);
    EXPECT_EQ(KoErrorGetLastError(), KO_OK);
}

} // namespace
