// The response of a map to small round spots, against a plain reference with one pass a diameter, bit for bit.
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "awkward_floats.h"
#include "ko.h"
#include "library_test.h"
#include "pictures.h"
#include "redeye_scene.h"
#include "reference_redeye.h"
#include "same_floats.h"

namespace {

using namespace ko_test;

class RedEyeCircularityTest : public LibraryTest {};

constexpr uint64_t bands[] = {1000000, 250000, 125000}; // a budget for each list of diameters

RedEyeMap dark_map(uint64_t width, uint64_t height) { return {width, height, std::vector<float>(width * height, 0.0f)}; }

// A map lit at random; share of the pixels, in 256ths.
RedEyeMap lit_map(uint64_t width, uint64_t height, uint32_t share, uint32_t seed) {
    Noise noise(seed);
    RedEyeMap map{width, height, {}};
    for (uint64_t i = 0; i < width * height; ++i) {
        const float value = noise.uniform(0.0f, 1.0f);
        map.pixels.push_back(noise.byte() < share ? value : 0.0f);
    }
    return map;
}

RedEyeMap response(const RedEyeMap &map, uint64_t max_image_size) {
    RedEyeRecords records;
    records.rec.max_image_size = max_image_size;
    records.param.col_map = image_of(map).release();
    RealImage *before = records.param.col_map;
    expect_success([&] { return KoRedEyeCorrectionCircularity(&records.rec, &records.param); });
    EXPECT_EQ(records.param.col_map, before) << "the map keeps its place";
    EXPECT_TRUE(padding_is_zero(records.param.col_map));
    return {map.width, map.height, pixels(records.param.col_map)};
}

void expect_response(const RedEyeMap &map, uint64_t max_image_size) {
    SCOPED_TRACE(testing::Message() << map.width << " by " << map.height << ", budget " << max_image_size);
    ReferenceRedEye expected;
    expected.max_image_size = max_image_size;
    expected.col = map;
    reference_circularity(expected);
    EXPECT_TRUE(same_floats(expected.col.pixels, response(map, max_image_size).pixels));
}

TEST_F(RedEyeCircularityTest, MapsOfEveryDensityGiveTheReferenceResponse) {
    uint32_t seed = 1;
    for (const uint64_t budget : bands) {
        for (const uint32_t share : {1u, 8u, 40u, 128u, 256u}) {
            expect_response(lit_map(97, 64, share, ++seed), budget);
            expect_response(lit_map(50, 81, share, ++seed), budget);
        }
    }
}

// A map smaller than a diameter has no pixel for it; the others still count.
TEST_F(RedEyeCircularityTest, MapsOfEverySmallSizeGiveTheReferenceResponse) {
    uint32_t seed = 1;
    for (const uint64_t budget : bands) {
        for (const uint64_t width : {1u, 2u, 3u, 4u, 5u, 8u, 9u, 13u, 14u, 18u, 19u, 23u, 26u, 27u, 28u}) {
            for (const uint64_t height : {1u, 3u, 6u, 12u, 15u, 26u, 27u, 29u}) {
                expect_response(lit_map(width, height, 180, ++seed), budget);
            }
        }
    }
}

TEST_F(RedEyeCircularityTest, RunsOfUnlitPixelsOfEveryLengthArePassedOver) {
    for (const uint64_t budget : bands) {
        RedEyeMap map = dark_map(120, 40);
        for (uint64_t y = 0; y < map.height; ++y) {
            for (uint64_t x = y; x < map.width; x += y + 1) {
                map.pixels[y * map.width + x] = static_cast<float>(x + 1) / 121.0f;
            }
        }
        expect_response(map, budget);
    }
}

// Discs of every radius: those up to the largest diameter survive, in the reference and here.
TEST_F(RedEyeCircularityTest, DiscsGiveTheReferenceResponse) {
    for (const uint64_t budget : bands) {
        RedEyeMap map = dark_map(200, 120);
        for (uint64_t i = 0; i < map.pixels.size(); ++i) {
            const double x = static_cast<double>(i % map.width);
            const double y = static_cast<double>(i / map.width);
            for (int disc = 0; disc < 12; ++disc) {
                const double center_x = 10.0 + 34.0 * (disc % 6);
                const double center_y = disc < 6 ? 28.0 : 90.0;
                if (in_ellipse(x - center_x, y - center_y, 1.0 + 1.5 * disc, 1.0)) {
                    map.pixels[i] = 0.5f + 0.04f * static_cast<float>(disc);
                }
            }
        }
        expect_response(map, budget);
    }
}

TEST_F(RedEyeCircularityTest, MapsOfFacesGiveTheReferenceResponse) {
    for (uint32_t seed = 1; seed <= 6; ++seed) {
        ReferenceRedEye eye;
        reference_downsample(eye, face(150, 110, scattered_pupils(150, 110, 12, 12.0f, seed), 20.0f, seed));
        reference_reddish(eye, true);
        reference_red_lum(eye, true);
        reference_col(eye);
        expect_response(eye.col, bands[seed % 3]);
    }
}

TEST_F(RedEyeCircularityTest, OneLitPixelRespondsAlone) {
    for (const uint64_t budget : bands) {
        RedEyeMap map = dark_map(20, 20);
        map.pixels[7 * 20 + 11] = 1.0f;
        EXPECT_EQ(response(map, budget).pixels, map.pixels);
        map.pixels[7 * 20 + 11] = 0.25f; // 4 times 0.25, from nothing around it
        RedEyeMap expected = dark_map(20, 20);
        expected.pixels[7 * 20 + 11] = 1.0f;
        EXPECT_EQ(response(map, budget).pixels, expected.pixels);
    }
}

TEST_F(RedEyeCircularityTest, AWideRegionVanishesButForItsRim) {
    RedEyeMap map = dark_map(110, 110);
    for (uint64_t y = 20; y < 90; ++y) {
        for (uint64_t x = 20; x < 90; ++x) {
            map.pixels[y * map.width + x] = 1.0f;
        }
    }
    const RedEyeMap result = response(map, 1000000);
    for (uint64_t y = 34; y < 76; ++y) {
        for (uint64_t x = 34; x < 76; ++x) {
            ASSERT_EQ(result.at(x, y), 0.0f) << x << " " << y;
        }
    }
    EXPECT_GT(result.at(20, 20), 0.0f);
    EXPECT_EQ(result.at(19, 20), 0.0f);
}

// Eight samples that add up to exactly four times the centre give 0, less of them more.
TEST_F(RedEyeCircularityTest, ASpotPassesBelowFourTimesItsCentre) {
    RedEyeMap map = dark_map(60, 60);
    map.pixels[30 * 60 + 30] = 0.5f;
    for (const int diameter : circle_diameters(1000000)) {
        for (const auto &[dx, dy] : circle_offsets(diameter)) {
            map.pixels[static_cast<size_t>((30 + dy) * 60 + 30 + dx)] = 0.25f;
        }
    }
    EXPECT_EQ(response(map, 1000000).at(30, 30), 0.0f);
    map.pixels[30 * 60 + 30] = 0.5625f;
    EXPECT_GT(response(map, 1000000).at(30, 30), 0.0f);
}

// The diagonal samples of diameter 19 stand 6 pixels off, since 0.7 is a little less in single precision.
TEST_F(RedEyeCircularityTest, DiagonalSamplesStandAtTheSinglePrecisionShare) {
    for (const int diameter : circle_diameters(1000000)) {
        SCOPED_TRACE(diameter);
        const int steps[] = {1, 2, 3, 4, 6, 8, 9};
        const int index = diameter == 3    ? 0
                          : diameter == 5  ? 1
                          : diameter == 9  ? 2
                          : diameter == 13 ? 3
                                           : (diameter - 19) / 4 + 4;
        EXPECT_EQ(circle_offsets(diameter)[7], std::make_pair(steps[index], steps[index]));
    }
    // All of a square is lit but the four points of a ring.
    for (const int distance : {6, 7}) {
        RedEyeMap map{61, 61, std::vector<float>(61 * 61, 0.5f)};
        for (const int sign_x : {-1, 1}) {
            for (const int sign_y : {-1, 1}) {
                map.pixels[static_cast<size_t>((30 + sign_y * distance) * 61 + 30 + sign_x * distance)] = 0.0f;
            }
        }
        map.pixels[30 * 61 + 30] = 0.75f;
        EXPECT_EQ(response(map, 1000000).at(30, 30) > 0.0f, distance == 6) << distance;
    }
}

TEST_F(RedEyeCircularityTest, ASpotOnTheVeryEdgeIsNeverFound) {
    const std::pair<uint64_t, uint64_t> edges[] = {{0, 0}, {10, 0}, {39, 0}, {0, 15}, {39, 15}, {0, 29}, {20, 29}, {39, 29}};
    for (const auto &[x, y] : edges) {
        RedEyeMap map = dark_map(40, 30);
        map.pixels[12 * 40 + 18] = 1.0f;
        const RedEyeMap expected = map;
        map.pixels[y * 40 + x] = 1.0f;
        EXPECT_EQ(response(map, 1000000).pixels, expected.pixels) << x << " " << y;
    }
}

// One pixel from the edge the smallest diameter still sees it.
TEST_F(RedEyeCircularityTest, ASpotOnePixelFromTheEdgeIsFound) {
    RedEyeMap map = dark_map(40, 30);
    map.pixels[1 * 40 + 1] = 1.0f;
    map.pixels[28 * 40 + 38] = 1.0f;
    EXPECT_EQ(response(map, 1000000).pixels, map.pixels);
}

TEST_F(RedEyeCircularityTest, ADarkMapBecomesOneOfNoNumbers) {
    for (const uint64_t budget : bands) {
        EXPECT_TRUE(same_floats(std::vector<float>(40 * 30, not_a_number), response(dark_map(40, 30), budget).pixels));
    }
}

TEST_F(RedEyeCircularityTest, AMapOfNoNumbersStaysSo) {
    const RedEyeMap map{40, 30, std::vector<float>(40 * 30, not_a_number)};
    EXPECT_TRUE(same_floats(map.pixels, response(map, 1000000).pixels));
}

TEST_F(RedEyeCircularityTest, AwkwardPixelsGiveTheReferenceResponse) {
    constexpr float awkward[] = {-0.0f, 1e-40f, not_a_number, infinity, 1.0f, -0.5f};
    for (uint32_t seed = 1; seed <= 12; ++seed) {
        RedEyeMap map = lit_map(70, 50, 60, seed);
        Noise noise(seed + 100);
        for (int i = 0; i < 40; ++i) {
            map.pixels[noise.next() % map.pixels.size()] = awkward[(noise.next() + seed) % (seed < 6 ? 2 : 6)];
        }
        expect_response(map, bands[seed % 3]);
    }
}

TEST_F(RedEyeCircularityTest, AnEmptyMapIsAccepted) {
    EXPECT_TRUE(response(dark_map(0, 0), 1000000).pixels.empty());
    EXPECT_TRUE(response(dark_map(0, 30), 125000).pixels.empty());
}

TEST_F(RedEyeCircularityTest, EveryBudgetOfABandHasItsDiameters) {
    const RedEyeMap map = lit_map(60, 45, 60, 9);
    for (const uint64_t budget : {500001u, 700000u, 1000000u, 200001u, 222222u, 250000u, 111112u, 120000u, 125000u}) {
        expect_response(map, budget);
    }
}

TEST_F(RedEyeCircularityTest, BudgetsOutsideTheBandsAreRefused) {
    const RedEyeMap map = lit_map(30, 25, 60, 9);
    for (const uint64_t budget : {uint64_t{0}, uint64_t{1}, uint64_t{1000}, uint64_t{111111}, uint64_t{125001},
                                  uint64_t{150000}, uint64_t{200000}, uint64_t{250001}, uint64_t{333333}, uint64_t{500000},
                                  uint64_t{1000001}, uint64_t{4000000}, std::numeric_limits<uint64_t>::max()}) {
        SCOPED_TRACE(budget);
        RedEyeRecords records;
        records.rec.max_image_size = budget;
        records.param.col_map = image_of(map).release();
        const RealImage *before = records.param.col_map;
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&] { return KoRedEyeCorrectionCircularity(&records.rec, &records.param); });
        EXPECT_EQ(records.param.col_map, before);
        EXPECT_EQ(pixels(records.param.col_map), map.pixels) << "the map holds what it held";
    }
}

TEST_F(RedEyeCircularityTest, AnOldStatusDoesNotCount) {
    RedEyeRecords records;
    records.param.col_map = image_of(lit_map(30, 25, 60, 9)).release();
    KoMsg(KO_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(KoRedEyeCorrectionCircularity(&records.rec, &records.param), KO_OK);
    KoStatusClear();
}

} // namespace
