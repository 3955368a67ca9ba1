// The list of blobs, from the round spots to the final extent of each pupil, against a plain reference, and the whole search
// from the picture on.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
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

class RedEyeLocateTest : public LibraryTest {};

std::vector<uint32_t> numbers(const BlobInfo &blob) { return {blob.min_x, blob.max_x, blob.min_y, blob.max_y, blob.area}; }

void expect_final_blobs(const ReferenceRedEye &expected, const RedEyeImageParam &param) {
    ASSERT_EQ(param.blob_count, expected.blob_count);
    ASSERT_NE(param.final_blobs, nullptr);
    for (uint32_t i = 0; i <= expected.label_count; ++i) {
        EXPECT_EQ(numbers(param.final_blobs[i]), numbers(expected.final_blobs[i])) << "blob " << i;
    }
    ASSERT_NE(param.blob_mask, nullptr);
    EXPECT_EQ(std::vector<uint32_t>(param.blob_mask, param.blob_mask + expected.blob_mask.size()), expected.blob_mask);
}

void expect_own_tables_gone(const RedEyeImageParam &param) {
    EXPECT_EQ(param.blob_info, nullptr);
    EXPECT_EQ(param.labels, nullptr);
    EXPECT_EQ(param.label_table, nullptr);
    EXPECT_EQ(param.local_blob_info, nullptr);
    EXPECT_EQ(param.local_labels, nullptr);
    EXPECT_EQ(param.local_label_table, nullptr);
    EXPECT_EQ(param.root_done, nullptr);
    EXPECT_EQ(param.overlap, nullptr);
}

// All that the stage leaves.
void expect_located(const ReferenceRedEye &expected, const RedEyeRecords &records) {
    EXPECT_EQ(records.param.min_blob_size, expected.min_blob_size);
    EXPECT_EQ(records.param.max_blob_size, expected.max_blob_size);
    EXPECT_EQ(records.param.label_count, expected.label_count);
    EXPECT_EQ(records.param.local_label_count, expected.local_label_count);
    EXPECT_EQ(records.rec.too_many_blobs, expected.too_many_blobs ? 1u : 0u);
    EXPECT_TRUE(same_float(expected.map_max, records.param.map_max)) << expected.map_max << " " << records.param.map_max;
    EXPECT_TRUE(same_floats(expected.col.pixels, pixels(records.param.col_map)));
    EXPECT_TRUE(same_floats(expected.red_lum.pixels, pixels(records.param.red_lum_map)));
    EXPECT_TRUE(padding_is_zero(records.param.red_lum_map));
    expect_final_blobs(expected, records.param);
    expect_own_tables_gone(records.param);
}

void give_settings(const ReferenceRedEye &eye, RedEyeCorrection &rec) {
    rec.max_image_size = eye.max_image_size;
    rec.min_blob_size = eye.smallest_side;
    rec.min_blob_size_floor = eye.smallest_side_floor;
    rec.blob_limits[2] = eye.most_blobs;
    rec.too_many_blobs = eye.too_many_blobs ? 1 : 0;
}

// Two maps as the earlier stages leave them, with the smallest side and the maximum.
ReferenceRedEye maps(const RedEyeMap &col, const RedEyeMap &red_lum, uint64_t min_blob_size = 3) {
    ReferenceRedEye eye;
    eye.col = col;
    eye.red_lum = red_lum;
    eye.min_blob_size = min_blob_size;
    eye.map_max = 0.75f;
    return eye;
}

// Runs the stage on the reference's maps, compares all that it leaves, and gives what was expected.
ReferenceRedEye expect_location(ReferenceRedEye eye) {
    RedEyeRecords records;
    give_settings(eye, records.rec);
    records.param.col_map = image_of(eye.col).release();
    records.param.red_lum_map = image_of(eye.red_lum).release();
    records.param.min_blob_size = eye.min_blob_size;
    records.param.map_max = eye.map_max;
    reference_locate(eye);
    const RedEyeLog log(records.rec);
    expect_success([&] { return KoRedEyeCorrectionLocateBlobs(&records.rec, &records.param); });
    EXPECT_EQ(log.text(), eye.log);
    expect_located(eye, records);
    return eye;
}

std::string log_lines(int detected, int first, int final) {
    return "-> " + std::to_string(detected) + " blobs detected \n-> reduced to " + std::to_string(first) +
           " blobs after first test \n-> reduced to " + std::to_string(final) + " final blobs after 2nd test \n";
}

RedEyeMap dark_map(uint64_t width, uint64_t height) { return {width, height, std::vector<float>(width * height, 0.0f)}; }

struct Rectangle {
    uint64_t x;
    uint64_t y;
    uint64_t width;
    uint64_t height;
};

void light(RedEyeMap &map, const Rectangle &rectangle, float value = 1.0f) {
    for (uint64_t y = rectangle.y; y < std::min(rectangle.y + rectangle.height, map.height); ++y) {
        for (uint64_t x = rectangle.x; x < std::min(rectangle.x + rectangle.width, map.width); ++x) {
            map.pixels[y * map.width + x] = value;
        }
    }
}

RedEyeMap map_of(uint64_t width, uint64_t height, const std::vector<Rectangle> &rectangles) {
    RedEyeMap map = dark_map(width, height);
    for (const Rectangle &rectangle : rectangles) {
        light(map, rectangle);
    }
    return map;
}

// One spot with the given extent in both maps, on a ground of 200 by 200, where blobs may have 4 to 19 pixels a side.
ReferenceRedEye locate_one(const Rectangle &spot, const Rectangle &pupil) {
    return expect_location(maps(map_of(200, 200, {spot}), map_of(200, 200, {pupil})));
}

std::vector<uint32_t> box_of(const Rectangle &r) {
    const auto number = [](uint64_t value) { return static_cast<uint32_t>(value); };
    return {number(r.x), number(r.x + r.width - 1), number(r.y), number(r.y + r.height - 1), number(r.width * r.height)};
}

TEST_F(RedEyeLocateTest, NothingLitGivesNothing) {
    const ReferenceRedEye eye = expect_location(maps(dark_map(90, 70), map_of(90, 70, {{3, 4, 30, 20}})));
    EXPECT_EQ(eye.log, log_lines(0, 0, 0));
    EXPECT_EQ(eye.red_lum.pixels, dark_map(90, 70).pixels);
    EXPECT_EQ(eye.map_max, 0.0f);
    EXPECT_EQ(eye.local_label_count, 0u);
}

TEST_F(RedEyeLocateTest, MapsWithoutNumbersGiveNothing) {
    const RedEyeMap nothing{50, 50, std::vector<float>(2500, not_a_number)};
    const ReferenceRedEye eye = expect_location(maps(nothing, nothing));
    EXPECT_EQ(eye.log, log_lines(0, 0, 0));
    EXPECT_EQ(eye.red_lum.pixels, dark_map(50, 50).pixels);
    // A spot, but nothing known of its redness: its threshold is no number either.
    const ReferenceRedEye spot = expect_location(maps(map_of(50, 50, {{20, 20, 4, 4}}), nothing));
    EXPECT_EQ(spot.log, log_lines(1, 1, 0));
}

TEST_F(RedEyeLocateTest, ThePupilHasItsExtentInTheRedMap) {
    const Rectangle pupil{98, 49, 9, 8};
    const ReferenceRedEye eye = locate_one({100, 50, 5, 5}, pupil);
    ASSERT_EQ(eye.blob_count, 1);
    EXPECT_EQ(numbers(eye.final_blobs[1]), box_of(pupil));
    EXPECT_EQ(eye.log, log_lines(1, 1, 1));
    EXPECT_EQ(eye.map_max, 1.0f);
}

TEST_F(RedEyeLocateTest, OnlyTheBlobsStayInTheRedMap) {
    RedEyeMap red_lum = map_of(200, 200, {{98, 49, 9, 8}});
    light(red_lum, {150, 150, 20, 20}, 9.0f);
    light(red_lum, {100, 50, 1, 1}, 1.5f);
    const ReferenceRedEye eye = expect_location(maps(map_of(200, 200, {{100, 50, 5, 5}}), red_lum));
    EXPECT_EQ(eye.map_max, 1.5f);
    light(red_lum, {150, 150, 20, 20}, 0.0f);
    EXPECT_EQ(eye.red_lum.pixels, red_lum.pixels);
}

TEST_F(RedEyeLocateTest, ThresholdsAreNotLit) {
    const ReferenceRedEye at = expect_location(maps(dark_map(60, 60), dark_map(60, 60)));
    EXPECT_EQ(at.label_count, 0u);
    RedEyeMap col = dark_map(60, 60);
    light(col, {10, 10, 4, 4}, 0.1f);
    EXPECT_EQ(expect_location(maps(col, col)).label_count, 0u);
    light(col, {10, 10, 4, 4}, std::nextafter(0.1f, 1.0f));
    EXPECT_EQ(expect_location(maps(col, col)).label_count, 1u);
    // A quarter of the blob's mean is the second threshold: 16 pixels of 1 in 32.
    RedEyeMap red_lum = dark_map(200, 200);
    light(red_lum, {50, 50, 8, 4}, 0.0f);
    light(red_lum, {50, 50, 4, 4}, 1.0f);
    light(red_lum, {54, 50, 2, 4}, 0.125f);
    const ReferenceRedEye eye = expect_location(maps(map_of(200, 200, {{50, 50, 8, 4}}), red_lum));
    ASSERT_EQ(eye.blob_count, 1);
    EXPECT_EQ(eye.final_blobs[1].max_x, 53u) << "the mean is 17 in 32, a quarter of it above 0.125";
}

// A column beside the pupil that lies exactly at the threshold, or one step above it.
TEST_F(RedEyeLocateTest, TheSecondThresholdIsTakenInSinglePrecision) {
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        Noise noise(seed);
        RedEyeMap red_lum = dark_map(200, 200);
        float sum = 0.0f;
        for (uint64_t y = 80; y < 85; ++y) {
            for (uint64_t x = 90; x < 96; ++x) {
                const float value = noise.uniform(0.4f, 1.0f);
                light(red_lum, {x, y, 1, 1}, value);
                sum += value;
            }
        }
        const float threshold = sum * 0.25f / 30.0f;
        const RedEyeMap col = map_of(200, 200, {{90, 80, 6, 5}});
        light(red_lum, {96, 80, 1, 5}, threshold);
        EXPECT_EQ(expect_location(maps(col, red_lum)).final_blobs[1].max_x, 95u);
        light(red_lum, {96, 80, 1, 5}, std::nextafter(threshold, 1.0f));
        EXPECT_EQ(expect_location(maps(col, red_lum)).final_blobs[1].max_x, 96u);
    }
}

// The first test takes sides at its bounds, the second does not.
TEST_F(RedEyeLocateTest, SidesAtTheBoundsPassTheFirstTestAlone) {
    struct Case {
        uint64_t side;
        int first;
        int final;
    };
    for (const Case &c : {Case{2, 0, 0}, Case{3, 1, 0}, Case{4, 1, 1}, Case{19, 1, 1}, Case{20, 1, 0}, Case{21, 0, 0}}) {
        const ReferenceRedEye square = locate_one({90, 80, c.side, c.side}, {90, 80, c.side, c.side});
        EXPECT_EQ(square.log, log_lines(1, c.first, c.final)) << c.side;
    }
    for (const Case &c : {Case{3, 1, 0}, Case{20, 1, 0}, Case{4, 1, 1}, Case{19, 1, 1}}) {
        const uint64_t other = c.side < 10 ? 5 : 15;
        EXPECT_EQ(locate_one({90, 80, c.side, other}, {90, 80, c.side, other}).log, log_lines(1, c.first, c.final));
        EXPECT_EQ(locate_one({90, 80, other, c.side}, {90, 80, other, c.side}).log, log_lines(1, c.first, c.final));
    }
}

TEST_F(RedEyeLocateTest, ASmallSpotMayGrowToAPupil) {
    const ReferenceRedEye eye = locate_one({90, 80, 3, 3}, {89, 79, 5, 5});
    EXPECT_EQ(eye.log, log_lines(1, 1, 1));
    EXPECT_EQ(numbers(eye.final_blobs[1]), box_of({89, 79, 5, 5}));
}

TEST_F(RedEyeLocateTest, TheLargestSideIsATenthOfTheShorterOne) {
    for (uint64_t side = 1; side <= 130; ++side) {
        const ReferenceRedEye wide = expect_location(maps(dark_map(side + 7, side), dark_map(side + 7, side)));
        EXPECT_EQ(wide.max_blob_size, (side + 9) / 10) << side;
        expect_location(maps(dark_map(side, side + 7), dark_map(side, side + 7)));
    }
}

TEST_F(RedEyeLocateTest, AMegapixelTakesBlobsBelowAHundred) {
    RedEyeRecords records;
    const RedEyeMap map = map_of(1000, 1000, {{300, 300, 100, 99}, {600, 600, 99, 99}, {100, 100, 101, 99}});
    records.param.col_map = image_of(map).release();
    records.param.red_lum_map = image_of(map).release();
    records.param.min_blob_size = 3;
    const RedEyeLog log(records.rec);
    expect_success([&] { return KoRedEyeCorrectionLocateBlobs(&records.rec, &records.param); });
    EXPECT_EQ(records.param.max_blob_size, 100u);
    EXPECT_EQ(log.text(), log_lines(3, 2, 1));
    EXPECT_EQ(numbers(records.param.final_blobs[1]), box_of({600, 600, 99, 99}));
}

TEST_F(RedEyeLocateTest, ABlobIsAtMostTwiceAsLongAsWide) {
    EXPECT_EQ(locate_one({90, 80, 5, 10}, {90, 80, 5, 10}).log, log_lines(1, 1, 1));
    EXPECT_EQ(locate_one({90, 80, 10, 5}, {90, 80, 10, 5}).log, log_lines(1, 1, 1));
    EXPECT_EQ(locate_one({90, 80, 5, 11}, {90, 80, 5, 11}).log, log_lines(1, 0, 0));
    EXPECT_EQ(locate_one({90, 80, 11, 5}, {90, 80, 11, 5}).log, log_lines(1, 0, 0));
    EXPECT_EQ(locate_one({90, 80, 5, 10}, {90, 80, 5, 11}).log, log_lines(1, 1, 0));
    EXPECT_EQ(locate_one({90, 80, 10, 5}, {90, 80, 11, 5}).log, log_lines(1, 1, 0));
}

// A slanted line of the given number of pixels in a box of 8 by 8.
RedEyeMap slanted(int count) {
    RedEyeMap map = dark_map(200, 200);
    for (uint64_t i = 0; i < 8; ++i) {
        light(map, {90 + i, 80 + i, 1, 1});
    }
    for (uint64_t i = 0; i < static_cast<uint64_t>(count - 8); ++i) {
        light(map, {90 + (i + 1) % 8, 80 + i % 7, 1, 1});
    }
    for (int i = 15; i < count; ++i) {
        light(map, {90 + static_cast<uint64_t>(i - 15), 81 + static_cast<uint64_t>(i - 15), 1, 1});
    }
    return map;
}

TEST_F(RedEyeLocateTest, AQuarterOfTheBoxIsEnoughForTheFirstTestAlone) {
    const std::pair<int, std::string> cases[] = {{15, log_lines(1, 0, 0)}, {16, log_lines(1, 1, 0)}, {17, log_lines(1, 1, 1)}};
    for (const auto &[count, log] : cases) {
        const RedEyeMap map = slanted(count);
        ASSERT_EQ(std::count(map.pixels.begin(), map.pixels.end(), 1.0f), count);
        EXPECT_EQ(expect_location(maps(map, map)).log, log) << count;
    }
}

TEST_F(RedEyeLocateTest, ABlobThatGrowsFourfoldIsDropped) {
    EXPECT_EQ(locate_one({92, 82, 4, 4}, {90, 80, 7, 9}).blob_count, 1);
    EXPECT_EQ(locate_one({92, 82, 4, 4}, {90, 80, 8, 8}).blob_count, 0);
    EXPECT_EQ(locate_one({92, 82, 4, 4}, {90, 80, 9, 9}).blob_count, 0);
}

TEST_F(RedEyeLocateTest, BlobsInTheCornersHaveTheImagesCoordinates) {
    const std::vector<Rectangle> corners = {{0, 0, 6, 6}, {114, 0, 6, 6}, {0, 84, 6, 6}, {114, 84, 6, 6}};
    const RedEyeMap map = map_of(120, 90, corners);
    const ReferenceRedEye eye = expect_location(maps(map, map));
    ASSERT_EQ(eye.blob_count, 4);
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(numbers(eye.final_blobs[i + 1]), box_of(corners[i]));
    }
}

// The window reaches twice the box's extent and 2 more to each side; what lies beyond does not belong to the blob.
TEST_F(RedEyeLocateTest, TheWindowCutsWhatLeavesIt) {
    // A box of 4 by 4 has a window of 20 by 20.
    const ReferenceRedEye eye =
        expect_location(maps(map_of(300, 300, {{100, 100, 4, 4}}), map_of(300, 300, {{101, 80, 2, 60}, {60, 101, 80, 2}})));
    EXPECT_EQ(eye.log, log_lines(1, 1, 0));
    const ReferenceRedEye cut =
        expect_location(maps(map_of(300, 300, {{100, 100, 8, 8}}), map_of(300, 300, {{96, 98, 200, 11}, {95, 98, 1, 1}})));
    ASSERT_EQ(cut.blob_count, 0); // 29 pixels wide up to the window's end at 123
    EXPECT_EQ(cut.local_label_count, 1u);
}

TEST_F(RedEyeLocateTest, ASpotWithoutRednessIsDropped) {
    EXPECT_EQ(locate_one({90, 80, 6, 6}, {0, 0, 0, 0}).log, log_lines(1, 1, 0));
    const ReferenceRedEye beside = locate_one({90, 80, 6, 6}, {98, 80, 6, 6});
    EXPECT_EQ(beside.log, log_lines(1, 1, 0));
    EXPECT_EQ(beside.local_label_count, 1u);
}

// Pixels of a spot that was rejected are none of a neighbour's.
TEST_F(RedEyeLocateTest, RejectedSpotsDoNotOverlap) {
    const RedEyeMap col = map_of(200, 200, {{90, 80, 6, 6}, {98, 80, 2, 14}});
    const RedEyeMap red_lum = map_of(200, 200, {{91, 84, 5, 5}, {97, 80, 4, 8}});
    const ReferenceRedEye eye = expect_location(maps(col, red_lum));
    EXPECT_EQ(eye.log, log_lines(2, 1, 1));
    EXPECT_EQ(numbers(eye.final_blobs[1]), box_of({91, 84, 5, 5}));
}

TEST_F(RedEyeLocateTest, TheFirstOfEqualOverlapsWins) {
    const RedEyeMap red_lum = map_of(200, 200, {{86, 80, 6, 6}, {93, 80, 7, 6}});
    const ReferenceRedEye eye = expect_location(maps(map_of(200, 200, {{90, 80, 5, 6}}), red_lum));
    ASSERT_EQ(eye.blob_count, 1);
    EXPECT_EQ(numbers(eye.final_blobs[1]), box_of({86, 80, 6, 6}));
}

// Two spots on one pupil give two blobs; the pixels are the later one's.
TEST_F(RedEyeLocateTest, TheLaterBlobKeepsSharedPixels) {
    const Rectangle pupil{90, 80, 9, 5};
    const ReferenceRedEye eye =
        expect_location(maps(map_of(200, 200, {{90, 80, 4, 5}, {95, 80, 4, 5}}), map_of(200, 200, {pupil})));
    ASSERT_EQ(eye.blob_count, 2);
    EXPECT_EQ(numbers(eye.final_blobs[1]), box_of(pupil));
    EXPECT_EQ(numbers(eye.final_blobs[2]), box_of(pupil));
    EXPECT_EQ(std::count(eye.blob_mask.begin(), eye.blob_mask.end(), 1u), 0);
    EXPECT_EQ(std::count(eye.blob_mask.begin(), eye.blob_mask.end(), 2u), 45);
}

// Between two windows only the lower half of the counters is wiped: in the second window here, the third component wins by what
// the first window left, though it has no pixel of the spot.
TEST_F(RedEyeLocateTest, OldCountsOfTheUpperHalfDecide) {
    const RedEyeMap col = map_of(160, 160, {{40, 40, 6, 6}, {100, 40, 6, 6}});
    const RedEyeMap red_lum = map_of(160, 160,
                                     {{30, 29, 1, 1},
                                      {50, 30, 1, 1},
                                      {40, 40, 6, 6}, // the first window
                                      {90, 29, 1, 1},
                                      {100, 40, 5, 5},
                                      {92, 50, 6, 6}}); // the second
    const ReferenceRedEye eye = expect_location(maps(col, red_lum));
    ASSERT_EQ(eye.blob_count, 2);
    EXPECT_EQ(numbers(eye.final_blobs[1]), box_of({40, 40, 6, 6}));
    EXPECT_EQ(numbers(eye.final_blobs[2]), box_of({92, 50, 6, 6}));
    ReferenceRedEye tidy = maps(col, red_lum);
    tidy.forgets_counts = true;
    reference_locate(tidy);
    EXPECT_EQ(numbers(tidy.final_blobs[2]), box_of({100, 40, 5, 5}));
}

// Squares of 5 by 5 whose windows do not meet.
RedEyeMap squares(int count) {
    RedEyeMap map = dark_map(160, 96);
    for (int i = 0; i < count; ++i) {
        light(map, {static_cast<uint64_t>(16 * (i % 10) + 3), static_cast<uint64_t>(16 * (i / 10) + 3), 5, 5});
    }
    return map;
}

TEST_F(RedEyeLocateTest, FiftyBlobsAreNotTooMany) {
    const ReferenceRedEye eye = expect_location(maps(squares(50), squares(60)));
    EXPECT_EQ(eye.blob_count, 50);
    EXPECT_FALSE(eye.too_many_blobs);
    EXPECT_EQ(eye.red_lum.pixels, squares(50).pixels);
    EXPECT_EQ(eye.map_max, 1.0f);
    EXPECT_EQ(eye.log, log_lines(50, 50, 50));
}

TEST_F(RedEyeLocateTest, FiftyOneBlobsAreTooManyAndLeaveTheMapWhole) {
    const ReferenceRedEye eye = expect_location(maps(squares(51), squares(60)));
    EXPECT_EQ(eye.blob_count, 51);
    EXPECT_TRUE(eye.too_many_blobs);
    EXPECT_EQ(eye.red_lum.pixels, squares(60).pixels);
    EXPECT_EQ(eye.map_max, 0.75f);
    EXPECT_EQ(eye.log,
              log_lines(51, 51, 51) + "*** too many (over 50) blobs detected - no further processing of this image \n");
}

TEST_F(RedEyeLocateTest, TheThirdLimitIsTheOneThatCounts) {
    ReferenceRedEye eye = maps(squares(8), squares(8));
    eye.most_blobs = 7;
    EXPECT_NE(expect_location(eye).log.find("(over 7)"), std::string::npos);
    eye.most_blobs = 8;
    EXPECT_FALSE(expect_location(eye).too_many_blobs);
    eye.most_blobs = -1;
    EXPECT_TRUE(expect_location(eye).too_many_blobs);
    RedEyeRecords records;
    records.rec.blob_limits[0] = 0;
    records.rec.blob_limits[1] = 0;
    records.param.col_map = image_of(squares(8)).release();
    records.param.red_lum_map = image_of(squares(8)).release();
    records.param.min_blob_size = 3;
    EXPECT_EQ(KoRedEyeCorrectionLocateBlobs(&records.rec, &records.param), KO_OK);
    EXPECT_EQ(records.rec.too_many_blobs, 0u);
}

// Once set, the flag stays, and later pictures are searched but not wiped.
TEST_F(RedEyeLocateTest, TooManyBlobsOnceIsTooManyForGood) {
    ReferenceRedEye eye = maps(squares(2), squares(60));
    eye.too_many_blobs = true;
    const ReferenceRedEye later = expect_location(eye);
    EXPECT_TRUE(later.too_many_blobs);
    EXPECT_EQ(later.blob_count, 2);
    EXPECT_EQ(later.red_lum.pixels, squares(60).pixels);
    EXPECT_EQ(later.map_max, 0.75f);
    EXPECT_EQ(later.log, log_lines(2, 2, 2));
}

TEST_F(RedEyeLocateTest, AnOldStatusEndsTheStageEarly) {
    RedEyeRecords records;
    records.param.col_map = image_of(squares(3)).release();
    records.param.red_lum_map = image_of(squares(5)).release();
    records.param.min_blob_size = 3;
    records.param.map_max = 0.75f;
    const RedEyeLog log(records.rec);
    KoMsg(KO_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(KoRedEyeCorrectionLocateBlobs(&records.rec, &records.param), KO_ERR_INVALID_ARGUMENT);
    expect_status(KO_ERR_INVALID_ARGUMENT, "Invalid argument");
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(records.param.max_blob_size, 10u);
    EXPECT_EQ(records.param.blob_count, 0);
    EXPECT_EQ(records.param.blob_mask, nullptr);
    EXPECT_EQ(records.param.final_blobs, nullptr);
    EXPECT_EQ(records.param.map_max, 0.75f);
    EXPECT_EQ(pixels(records.param.red_lum_map), squares(5).pixels);
    expect_own_tables_gone(records.param);
    KoStatusClear();
    EXPECT_EQ(KoRedEyeCorrectionLocateBlobs(&records.rec, &records.param), KO_OK);
    EXPECT_EQ(records.param.blob_count, 3);
}

// Maps at random.

// Rectangles and single pixels at random heights.
RedEyeMap cluttered(uint64_t width, uint64_t height, int count, uint32_t largest, Noise &noise) {
    RedEyeMap map = dark_map(width, height);
    for (int i = 0; i < count; ++i) {
        const Rectangle rectangle{noise.next() % width, noise.next() % height, 1 + noise.next() % largest,
                                  1 + noise.next() % largest};
        light(map, rectangle, noise.uniform(0.05f, 1.0f));
    }
    return map;
}

TEST_F(RedEyeLocateTest, ClutterGivesTheReferenceBlobs) {
    int found = 0;
    int decided_by_old_counts = 0;
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Noise noise(seed);
        const RedEyeMap col = cluttered(120, 90, 25, 8, noise);
        RedEyeMap red_lum = cluttered(120, 90, 40, 6, noise);
        for (size_t i = 0; i < col.pixels.size(); ++i) {
            red_lum.pixels[i] = std::max(red_lum.pixels[i], noise.next() % 4 == 0 ? 0.0f : col.pixels[i]);
        }
        const ReferenceRedEye eye = expect_location(maps(col, red_lum, seed % 4));
        found += eye.blob_count;
        ReferenceRedEye tidy = maps(col, red_lum, seed % 4);
        tidy.forgets_counts = true;
        reference_locate(tidy);
        decided_by_old_counts += tidy.blob_mask == eye.blob_mask ? 0 : 1;
    }
    EXPECT_GT(found, 200);
    EXPECT_GT(decided_by_old_counts, 3);
}

TEST_F(RedEyeLocateTest, DenseNoiseGivesTheReferenceBlobs) {
    int found = 0;
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        Noise noise(seed);
        const auto noisy = [&](uint32_t share) {
            RedEyeMap map = dark_map(55 + seed, 80);
            for (float &value : map.pixels) {
                value = noise.byte() < share ? noise.uniform(0.0f, 1.0f) : 0.0f;
            }
            return map;
        };
        const RedEyeMap col = noisy(30 + 2 * seed);
        found += expect_location(maps(col, noisy(70 + seed), seed % 3)).blob_count;
    }
    EXPECT_GT(found, 100);
}

TEST_F(RedEyeLocateTest, PixelsWithoutNumbersGiveTheReferenceBlobs) {
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        Noise noise(seed);
        RedEyeMap col = cluttered(120, 90, 25, 8, noise);
        RedEyeMap red_lum = cluttered(120, 90, 40, 9, noise);
        for (int i = 0; i < 12; ++i) {
            col.pixels[noise.next() % col.pixels.size()] = not_a_number;
            red_lum.pixels[noise.next() % red_lum.pixels.size()] = i % 2 == 0 ? not_a_number : infinity;
        }
        expect_location(maps(col, red_lum, 2));
    }
}

// The most labels that maps can have, in narrow ones more than a third of the pixels.
TEST_F(RedEyeLocateTest, MapsOfLonePixelsHaveRoomForTheirLabels) {
    const std::pair<uint64_t, uint64_t> sizes[] = {{1, 1},   {2, 1},  {3, 1},   {64, 1}, {1, 64},
                                                   {101, 2}, {3, 77}, {33, 33}, {40, 41}};
    for (const auto &[width, height] : sizes) {
        SCOPED_TRACE(testing::Message() << width << " by " << height);
        RedEyeMap map = dark_map(width, height);
        for (uint64_t y = 0; y < height; y += 2) {
            for (uint64_t x = 0; x < width; x += 2) {
                light(map, {x, y, 1, 1}, 0.5f);
            }
        }
        for (const uint64_t smallest : {0u, 1u}) {
            const ReferenceRedEye eye = expect_location(maps(map, map, smallest));
            EXPECT_EQ(eye.label_count, (width + 1) / 2 * ((height + 1) / 2));
        }
    }
}

TEST_F(RedEyeLocateTest, EmptyMapsGiveNothing) {
    EXPECT_EQ(expect_location(maps(dark_map(0, 0), dark_map(0, 0))).log, log_lines(0, 0, 0));
    EXPECT_EQ(expect_location(maps(dark_map(0, 9), dark_map(0, 9))).log, log_lines(0, 0, 0));
}

// The whole search.

// Runs all stages and compares what they leave; gives what was expected.
ReferenceRedEye expect_search(ReferenceRedEye eye, const RedEyePlanes &planes) {
    SCOPED_TRACE(testing::Message() << planes[0].width << " by " << planes[0].height << ", budget " << eye.max_image_size);
    const ColorImagePtr picture = picture_of(planes);
    RedEyeRecords records(picture.get());
    RedEyeCorrection *rec = &records.rec;
    RedEyeImageParam *param = &records.param;
    give_settings(eye, *rec);
    reference_search(eye, planes);
    const RedEyeLog log(*rec);
    expect_success([&] { return KoRedEyeCorrectionDownsample(rec, param); });
    expect_success([&] { return KoRedEyeCorrectionReddishProbability(rec, param, 1); });
    expect_success([&] { return KoRedEyeCorrectionRedLumProbability(rec, param, 1); });
    expect_success([&] { return KoRedEyeCorrectionColProbability(rec, param); });
    expect_success([&] { return KoRedEyeCorrectionCircularity(rec, param); });
    expect_success([&] { return KoRedEyeCorrectionLocateBlobs(rec, param); });
    EXPECT_EQ(log.text(), eye.log);
    EXPECT_TRUE(same_float(eye.scale, param->scale));
    EXPECT_TRUE(same_floats(eye.reddish.pixels, pixels(param->reddish_map)));
    expect_located(eye, records);
    return eye;
}

TEST_F(RedEyeLocateTest, APupilOnSkinIsFound) {
    const Pupil left{70.0, 60.0, 6.0, 1.0, true};
    const Pupil right{130.0, 62.0, 6.0, 1.0, true};
    const ReferenceRedEye eye = expect_search({}, face(200, 150, {left, right}, 4.0f, 1));
    ASSERT_EQ(eye.blob_count, 2);
    EXPECT_EQ(numbers(eye.final_blobs[1])[0], 64u);
    EXPECT_EQ(numbers(eye.final_blobs[1])[1], 76u);
    EXPECT_EQ(numbers(eye.final_blobs[2])[0], 124u);
    EXPECT_EQ(eye.map_max, 1.0f);
}

TEST_F(RedEyeLocateTest, FacesGiveTheReferenceBlobs) {
    int found = 0;
    for (uint32_t seed = 1; seed <= 14; ++seed) {
        SCOPED_TRACE(seed);
        ReferenceRedEye eye;
        eye.max_image_size = seed % 3 == 0 ? 1000000 : seed % 3 == 1 ? 250000 : 125000;
        const uint64_t width = 180 + seed;
        const uint64_t height = 220 - 3 * uint64_t{seed};
        found +=
            expect_search(eye, face(width, height, scattered_pupils(width, height, 12, 9.0f, seed), 12.0f, seed)).blob_count;
    }
    EXPECT_GT(found, 30);
}

TEST_F(RedEyeLocateTest, ReducedFacesGiveTheReferenceBlobs) {
    int found = 0;
    const auto search = [&](uint64_t width, uint64_t height, uint64_t budget, uint32_t seed) {
        ReferenceRedEye eye;
        eye.max_image_size = budget;
        const ReferenceRedEye result =
            expect_search(eye, face(width, height, scattered_pupils(width, height, 14, 15.0f, seed), 12.0f, seed));
        EXPECT_GE(result.scale, 1.0f);
        found += result.blob_count;
    };
    search(420, 300, 120000, 1);
    search(450, 300, 111112, 2);
    search(700, 500, 125000, 3);
    search(610, 520, 200001, 4);
    search(1170, 880, 1000000, 5);
    EXPECT_GT(found, 10);
}

TEST_F(RedEyeLocateTest, OtherPicturesGiveTheReferenceBlobs) {
    EXPECT_EQ(expect_search({}, plain_planes(90, 80, 128.0f, 128.0f, 128.0f)).log, log_lines(0, 0, 0));
    EXPECT_EQ(expect_search({}, plain_planes(90, 80, 255.0f, 0.0f, 0.0f)).blob_count, 0);
    EXPECT_EQ(expect_search({}, plain_planes(90, 80, 205.0f, 160.0f, 130.0f)).blob_count, 0);
    for (uint32_t seed = 1; seed <= 3; ++seed) {
        expect_search({}, random_planes(150, 140, seed));
    }
    EXPECT_EQ(expect_search({}, plain_planes(0, 0, 0.0f, 0.0f, 0.0f)).log, log_lines(0, 0, 0));
    expect_search({}, plain_planes(1, 1, 200.0f, 0.0f, 0.0f));
}

} // namespace
