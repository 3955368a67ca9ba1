// The repair of judged patches and the frames around them, compared with the plain forms on image records made by hand.
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko.h"

#include "awkward_floats.h"
#include "library_test.h"
#include "pictures.h"
#include "redeye_model.h"
#include "redeye_scene.h"
#include "reference_redeye_judgement.h"

namespace {

using namespace ko_test;

class RedEyeRepairTest : public LibraryTest {};

// A record that has read a model and judged the blobs of an image record.
struct Judged {
    explicit Judged(RedEyeImageParamPtr judged) : files(make_model(1, 1, tiny_configuration())), param(std::move(judged)) {
        rec = make_correction(files.configuration(), 1);
        EXPECT_EQ(KoRedEyeCorrectionCategorizeBlobs(rec.get(), param.get()), KO_OK);
        slots = rec->orientation_histogram->patch_count;
    }
    void set_labels(const std::vector<int32_t> &labels) const {
        ASSERT_EQ(labels.size(), static_cast<size_t>(slots));
        for (size_t slot = 0; slot < labels.size(); ++slot) {
            param->patches[slot].label = labels[slot];
        }
    }
    void expect_repair(ColorImage *image, int32_t full_strength) const {
        RedEyePlanes expected = planes_of(image);
        reference_repair(expected, *param, slots, full_strength != 0);
        expect_success([&] { return KoRedEyeCorrectionApply(rec.get(), param.get(), full_strength, image); });
        EXPECT_TRUE(same_planes(expected, planes_of(image)));
    }
    void expect_frames(ColorImage *image, uint64_t thickness, const std::vector<int32_t> &colours) const {
        RedEyePlanes expected = planes_of(image);
        reference_frames(expected, *param, slots, thickness, colours);
        expect_success([&] {
            return KoRedEyeCorrectionAddPatchBoundingBoxes(rec.get(), param.get(), image, thickness, colours.data(),
                                                           static_cast<uint32_t>(colours.size()));
        });
        EXPECT_TRUE(same_planes(expected, planes_of(image)));
    }

    ModelFiles files;
    RedEyeImageParamPtr param;
    RedEyeCorrectionPtr rec;
    int32_t slots = 0;
};

const std::vector<Box> four_boxes = {{20, 26, 20, 25}, {50, 57, 22, 30}, {80, 84, 60, 66}, {40, 46, 60, 62}};
const std::vector<int32_t> all_labels = {KO_PATCH_UNDECIDED, KO_PATCH_ACCEPTED, KO_PATCH_REJECTED, KO_PATCH_ACCEPTED};

ColorImagePtr ground(uint32_t width, uint32_t height) { return eye_picture(width, height, {{23, 22, 4}, {53, 26, 4}}, 4); }

TEST_F(RedEyeRepairTest, EachLabelHasItsStrength) {
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        const ColorImagePtr picture = ground(110, 90);
        const Judged judged(make_param(picture.get(), four_boxes, seed));
        judged.set_labels(all_labels);
        judged.expect_repair(picture.get(), 0);
        judged.expect_repair(picture.get(), 0); // on top of the first, from the new values
        judged.expect_repair(picture.get(), 1);
        judged.expect_repair(picture.get(), -3);
    }
}

TEST_F(RedEyeRepairTest, RejectedPatchesKeepTheirValues) {
    const ColorImagePtr picture = ground(110, 90);
    const RedEyePlanes before = planes_of(picture.get());
    const Judged judged(make_param(picture.get(), four_boxes));
    judged.set_labels(std::vector<int32_t>(4, KO_PATCH_REJECTED));
    judged.expect_repair(picture.get(), 0);
    EXPECT_TRUE(same_planes(before, planes_of(picture.get())));
    judged.set_labels({-1, 3, 100, INT32_MIN}); // no label at all
    judged.expect_repair(picture.get(), 0);
    EXPECT_TRUE(same_planes(before, planes_of(picture.get())));
    judged.expect_repair(picture.get(), 1);
    EXPECT_FALSE(same_planes(before, planes_of(picture.get())));
}

// One blob of three pixels in a row, whose map is set by the test.
struct Row {
    explicit Row(float maximum) : picture(make_color_image(30, 30, KO_COLORSPACE_RGB, colour)) {
        RedEyeImageParamPtr param = make_param(picture.get(), {{14, 16, 14, 16}});
        param->map_max = maximum;
        judged = std::make_unique<Judged>(std::move(param));
    }
    static float colour(uint32_t c, uint64_t, uint64_t) {
        constexpr float eye[] = {200.0f, 40.0f, 30.0f};
        return eye[c];
    }
    // Repairs the centre with a label and a value of the map; gives its red.
    float repaired(int32_t label, float value) const {
        const ColorImagePtr copy = copy_of(picture.get());
        judged->set_labels({label});
        judged->param->red_lum_map->rows[15][15] = value;
        judged->expect_repair(copy.get(), 0);
        return copy->planes[0].rows[15][15];
    }
    ColorImagePtr picture;
    std::unique_ptr<Judged> judged;
};

TEST_F(RedEyeRepairTest, TheNeutralValueIsMadeOfGreenAndFourTimesBlue) {
    const Row row(1.0f);
    const ColorImagePtr copy = copy_of(row.picture.get());
    row.judged->expect_repair(copy.get(), 1);
    for (uint32_t c = 0; c < 3; ++c) {
        EXPECT_FLOAT_EQ(copy->planes[c].rows[15][15], 32.0f);
        EXPECT_EQ(copy->planes[c].rows[13][15], Row::colour(c, 15, 13)); // outside the blob
    }
    const ColorImagePtr half = copy_of(row.picture.get());
    row.judged->set_labels({KO_PATCH_UNDECIDED});
    row.judged->param->red_lum_map->rows[15][15] = 0.5f;
    row.judged->expect_repair(half.get(), 0);
    EXPECT_FLOAT_EQ(half->planes[0].rows[15][15], 116.0f);
    EXPECT_FLOAT_EQ(half->planes[1].rows[15][15], 36.0f);
    EXPECT_FLOAT_EQ(half->planes[2].rows[15][15], 31.0f);
}

TEST_F(RedEyeRepairTest, AnAcceptedPixelIsRepairedAtHalfStrengthAtLeast) {
    for (const float maximum : {1.0f, 0.7f, 3.0f}) {
        const Row row(maximum);
        EXPECT_FLOAT_EQ(row.repaired(KO_PATCH_UNDECIDED, 0.0f), 200.0f);
        EXPECT_FLOAT_EQ(row.repaired(KO_PATCH_ACCEPTED, 0.0f), 116.0f);
        EXPECT_FLOAT_EQ(row.repaired(KO_PATCH_ACCEPTED, maximum), 32.0f);
        EXPECT_FLOAT_EQ(row.repaired(KO_PATCH_UNDECIDED, maximum), 32.0f);
        EXPECT_FLOAT_EQ(row.repaired(KO_PATCH_ACCEPTED, maximum * 0.76f), 32.0f);
        EXPECT_GT(row.repaired(KO_PATCH_ACCEPTED, maximum * 0.74f), 32.5f);
    }
}

TEST_F(RedEyeRepairTest, AwkwardMapsAndPicturesFollowTheArithmetic) {
    for (uint32_t seed = 1; seed <= 3; ++seed) {
        const std::vector<float> values = awkward_floats(3 * 110 * 90, seed);
        const ColorImagePtr picture = make_color_image(
            110, 90, KO_COLORSPACE_RGB, [&](uint32_t c, uint64_t x, uint64_t y) { return values[(c * 90 + y) * 110 + x]; });
        const Judged judged(make_param(picture.get(), four_boxes));
        judged.set_labels(all_labels);
        const std::vector<float> map = awkward_floats(110 * 90, seed + 10);
        for (uint64_t y = 0; y < 90; ++y) {
            KoRealImageSetRow(judged.param->red_lum_map, y, map.data() + y * 110);
        }
        for (const float maximum : {0.5f, 0.0f, not_a_number, infinity}) {
            judged.param->map_max = maximum;
            judged.expect_repair(copy_of(picture.get()).get(), 0);
            judged.expect_repair(copy_of(picture.get()).get(), 1);
        }
    }
}

// Blocks of two or three pixels with one strength each, whatever the ratio of the two sizes.
TEST_F(RedEyeRepairTest, AReducedPictureIsRepairedInBlocks) {
    struct Size {
        uint32_t width, height;
        float scale;
    };
    for (const Size size : {Size{275, 225, 2.5f}, Size{220, 180, 2.0f}, Size{241, 200, 2.2f}, Size{333, 271, 3.0f}}) {
        SCOPED_TRACE(size.width);
        const ColorImagePtr picture = ground(size.width, size.height);
        const Judged judged(make_param(picture.get(), 110, 90, size.scale, four_boxes));
        ASSERT_EQ(judged.slots, 4);
        judged.set_labels(all_labels);
        judged.expect_repair(picture.get(), 0);
        judged.expect_repair(picture.get(), 1);
    }
}

// The picture that is repaired need not be the one that was searched.
TEST_F(RedEyeRepairTest, AnotherPictureOfTheSameProportionsCanBeRepaired) {
    const ColorImagePtr picture = ground(110, 90);
    const Judged judged(make_param(picture.get(), four_boxes));
    judged.set_labels(all_labels);
    const RedEyePlanes before = planes_of(picture.get());
    for (const uint32_t factor : {1u, 2u, 3u}) {
        const ColorImagePtr other = ground(110 * factor, 90 * factor);
        judged.expect_repair(other.get(), 0);
        judged.expect_repair(other.get(), 1);
    }
    EXPECT_TRUE(same_planes(before, planes_of(picture.get())));
}

// The walk ends when it has met as many pixels as the blob has by its record.
TEST_F(RedEyeRepairTest, TheAreaEndsTheWalk) {
    const ColorImagePtr picture = ground(110, 90);
    const Judged judged(make_param(picture.get(), four_boxes));
    judged.set_labels(std::vector<int32_t>(4, KO_PATCH_ACCEPTED));
    judged.param->final_blobs[1].area = 1;
    judged.param->final_blobs[2].area = 17;
    judged.param->final_blobs[3].area += 5; // lost to others: walked to the end of the box
    judged.expect_repair(picture.get(), 1);
}

TEST_F(RedEyeRepairTest, APixelBelongsToTheBlobOfTheMask) {
    const ColorImagePtr picture = ground(110, 90);
    RedEyeImageParamPtr param = make_param(picture.get(), {{20, 28, 20, 28}, {24, 33, 22, 31}, {22, 30, 26, 33}});
    const Judged judged(std::move(param));
    judged.set_labels({KO_PATCH_ACCEPTED, KO_PATCH_REJECTED, KO_PATCH_UNDECIDED});
    judged.expect_repair(picture.get(), 0);
}

TEST_F(RedEyeRepairTest, ABlobWithoutPatchIsNotRepaired) {
    const ColorImagePtr picture = ground(110, 90);
    const Judged judged(make_param(picture.get(), {{1, 7, 20, 25}, {50, 57, 22, 30}, {103, 109, 60, 66}}));
    ASSERT_EQ(judged.slots, 1);
    const RedEyePlanes before = planes_of(picture.get());
    judged.expect_repair(picture.get(), 1);
    EXPECT_EQ(picture->planes[0].rows[22][4], before[0].at(4, 22));
    EXPECT_NE(picture->planes[0].rows[26][53], before[0].at(53, 26));
}

TEST_F(RedEyeRepairTest, WithoutPatchesThePictureStays) {
    const ColorImagePtr picture = ground(110, 90);
    const RedEyePlanes before = planes_of(picture.get());
    const Judged none(make_param(picture.get(), {}));
    none.expect_repair(picture.get(), 1);
    none.expect_frames(picture.get(), 3, {1, 2, 3});
    EXPECT_TRUE(same_planes(before, planes_of(picture.get())));
    const Judged some(make_param(picture.get(), four_boxes));
    for (const int32_t count : {0, -1, INT32_MIN}) {
        some.rec->orientation_histogram->patch_count = count;
        EXPECT_EQ(KoRedEyeCorrectionApply(some.rec.get(), some.param.get(), 1, picture.get()), KO_OK);
        constexpr int32_t colours[] = {1, 2, 3};
        EXPECT_EQ(KoRedEyeCorrectionAddPatchBoundingBoxes(some.rec.get(), some.param.get(), picture.get(), 3, colours, 3),
                  KO_OK);
        EXPECT_TRUE(same_planes(before, planes_of(picture.get())));
    }
}

TEST_F(RedEyeRepairTest, BeforeAModelWasReadNothingIsDone) {
    const ColorImagePtr picture = ground(110, 90);
    const RedEyePlanes before = planes_of(picture.get());
    const RedEyeCorrectionPtr rec = make_correction("", 1);
    const RedEyeImageParamPtr param = make_param(picture.get(), four_boxes);
    constexpr int32_t colours[] = {1, 2, 3};
    expect_success([&] { return KoRedEyeCorrectionApply(rec.get(), param.get(), 1, picture.get()); });
    expect_success(
        [&] { return KoRedEyeCorrectionAddPatchBoundingBoxes(rec.get(), param.get(), picture.get(), 3, colours, 3); });
    EXPECT_TRUE(same_planes(before, planes_of(picture.get())));
}

// The count of patches is the record's, that of the picture last judged.
TEST_F(RedEyeRepairTest, TheCountOfTheLastPictureRules) {
    const ColorImagePtr picture = ground(110, 90);
    const Judged many(make_param(picture.get(), four_boxes));
    many.set_labels(all_labels);
    const RedEyeImageParamPtr one = make_param(picture.get(), {{50, 57, 22, 30}});
    ASSERT_EQ(KoRedEyeCorrectionCategorizeBlobs(many.rec.get(), one.get()), KO_OK);
    const ColorImagePtr copy = copy_of(picture.get());
    RedEyePlanes expected = planes_of(picture.get());
    reference_repair(expected, *many.param, 1, true);
    EXPECT_EQ(KoRedEyeCorrectionApply(many.rec.get(), many.param.get(), 1, copy.get()), KO_OK);
    EXPECT_TRUE(same_planes(expected, planes_of(copy.get())));

    // And never more than the picture at hand has.
    const RedEyeImageParamPtr again = make_param(picture.get(), four_boxes);
    ASSERT_EQ(KoRedEyeCorrectionCategorizeBlobs(many.rec.get(), again.get()), KO_OK);
    expected = planes_of(picture.get());
    reference_repair(expected, *one, 1, true);
    const ColorImagePtr other = copy_of(picture.get());
    EXPECT_EQ(KoRedEyeCorrectionApply(many.rec.get(), one.get(), 1, other.get()), KO_OK);
    EXPECT_TRUE(same_planes(expected, planes_of(other.get())));
    constexpr int32_t colours[] = {1, 2, 3};
    reference_frames(expected, *one, 1, 2, {1, 2, 3});
    EXPECT_EQ(KoRedEyeCorrectionAddPatchBoundingBoxes(many.rec.get(), one.get(), other.get(), 2, colours, 3), KO_OK);
    EXPECT_TRUE(same_planes(expected, planes_of(other.get())));
}

// After a failed judgement the count is 1, and there may be no patch at all.
TEST_F(RedEyeRepairTest, AFailedJudgementLeavesNothingToRepair) {
    const ColorImagePtr picture = ground(110, 90);
    const RedEyePlanes before = planes_of(picture.get());
    const ModelFiles files(make_model(1, 1, tiny_configuration()));
    write_bytes(files.be(), "x");
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 1);
    const RedEyeImageParamPtr param = make_param(picture.get(), four_boxes);
    ASSERT_EQ(KoRedEyeCorrectionCategorizeBlobs(rec.get(), param.get()), KO_ERR_READ_FILE);
    ASSERT_EQ(rec->orientation_histogram->patch_count, 1);
    constexpr int32_t colours[] = {1, 2, 3};
    EXPECT_EQ(KoRedEyeCorrectionApply(rec.get(), param.get(), 1, picture.get()), KO_OK);
    EXPECT_EQ(KoRedEyeCorrectionAddPatchBoundingBoxes(rec.get(), param.get(), picture.get(), 3, colours, 3), KO_OK);
    EXPECT_TRUE(same_planes(before, planes_of(picture.get())));
}

// ---- frames ----

TEST_F(RedEyeRepairTest, FramesHaveTheirLabelsColours) {
    const std::vector<int32_t> colours = {0x123456, static_cast<int32_t>(0xfffefdfcu), 0x00ff0080};
    for (uint64_t thickness = 0; thickness <= 16; ++thickness) {
        SCOPED_TRACE(thickness);
        const ColorImagePtr picture = ground(110, 90);
        const Judged judged(make_param(picture.get(), four_boxes));
        judged.set_labels(all_labels);
        judged.expect_frames(picture.get(), thickness, colours);
    }
}

TEST_F(RedEyeRepairTest, OneFrameToTheLetter) {
    const ColorImagePtr picture = ground(110, 90);
    const Judged judged(make_param(picture.get(), {{40, 44, 50, 53}})); // a window of 36..48, 45..57
    judged.set_labels({KO_PATCH_ACCEPTED});
    const RedEyePlanes before = planes_of(picture.get());
    judged.expect_frames(picture.get(), 2, {0, 0x0a141e});
    const auto framed = [&](uint64_t x, uint64_t y) {
        const bool set = picture->planes[0].rows[y][x] == 10.0f && picture->planes[1].rows[y][x] == 20.0f &&
                         picture->planes[2].rows[y][x] == 30.0f;
        EXPECT_TRUE(set || picture->planes[0].rows[y][x] == before[0].at(x, y));
        return set;
    };
    EXPECT_TRUE(framed(36, 45));
    EXPECT_TRUE(framed(47, 45));
    EXPECT_TRUE(framed(36, 56));
    EXPECT_TRUE(framed(47, 56));
    EXPECT_TRUE(framed(37, 50));
    EXPECT_TRUE(framed(46, 50));
    EXPECT_TRUE(framed(42, 46));
    EXPECT_TRUE(framed(42, 55));
    EXPECT_FALSE(framed(38, 50));
    EXPECT_FALSE(framed(45, 50));
    EXPECT_FALSE(framed(42, 47));
    EXPECT_FALSE(framed(42, 54));
    EXPECT_FALSE(framed(48, 50)); // the column x1
    EXPECT_FALSE(framed(42, 57)); // the row y1
    EXPECT_FALSE(framed(35, 50));
    EXPECT_FALSE(framed(42, 44));
}

TEST_F(RedEyeRepairTest, APatchWhoseLabelHasNoColourGetsNoFrame) {
    const ColorImagePtr picture = ground(110, 90);
    const Judged judged(make_param(picture.get(), four_boxes));
    judged.set_labels(all_labels);
    for (const size_t count : {0u, 1u, 2u, 3u}) {
        judged.expect_frames(copy_of(picture.get()).get(), 2, std::vector<int32_t>(count, 0x808080));
    }
    judged.set_labels({-1, INT32_MIN, 3, INT32_MAX});
    const RedEyePlanes before = planes_of(picture.get());
    judged.expect_frames(picture.get(), 2, {1, 2, 3});
    EXPECT_TRUE(same_planes(before, planes_of(picture.get())));
}

// A thickness beyond half the side fills the rectangle; of odd sides the middle is kept.
TEST_F(RedEyeRepairTest, AThickFrameFillsAnEvenRectangle) {
    const ColorImagePtr picture = ground(110, 90);
    const Judged judged(make_param(picture.get(), {{40, 44, 50, 53}}));
    judged.set_labels({KO_PATCH_UNDECIDED});
    for (const uint32_t wider : {0u, 1u}) {
        for (const uint32_t higher : {0u, 1u}) {
            judged.param->patches[0].x1 = 48 + wider;
            judged.param->patches[0].y1 = 57 + higher;
            for (const uint64_t thickness : {uint64_t{5}, uint64_t{6}, uint64_t{7}, UINT64_MAX}) {
                const ColorImagePtr copy = copy_of(picture.get());
                judged.expect_frames(copy.get(), thickness, {0x00ff00});
                const bool kept = copy->planes[0].rows[51][42] != 0.0f;
                EXPECT_EQ(kept, thickness == 5 || (wider == 1 && higher == 1));
            }
        }
    }
    judged.param->patches[0].x1 = 36; // no column, no row
    judged.param->patches[0].y1 = 45;
    judged.expect_frames(picture.get(), 4, {0x00ff00});
}

// Frames may be drawn on another picture; nothing is looked at but the windows.
TEST_F(RedEyeRepairTest, FramesOnAnotherPicture) {
    const ColorImagePtr picture = ground(110, 90);
    const Judged judged(make_param(picture.get(), four_boxes));
    judged.set_labels(all_labels);
    judged.expect_frames(ground(200, 150).get(), 3, {0xff0000, 0x00ff00, 0x0000ff});
}

// ---- slots that no patch has filled ----

// A model that was refused leaves a count of 1 over slots that no patch has filled.
TEST_F(RedEyeRepairTest, ARefusedModelLeavesNothingToRepair) {
    const ColorImagePtr picture = ground(110, 90);
    const RedEyePlanes before = planes_of(picture.get());
    const ModelFiles files(make_model(2, 1, tiny_configuration()));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 1);
    const RedEyeImageParamPtr param = make_param(picture.get(), four_boxes);
    ASSERT_EQ(KoRedEyeCorrectionCategorizeBlobs(rec.get(), param.get()), KO_ERR_INVALID_ARGUMENT);
    ASSERT_EQ(rec->orientation_histogram->patch_count, 1);
    constexpr int32_t colours[] = {1, 2, 3};
    EXPECT_EQ(KoRedEyeCorrectionApply(rec.get(), param.get(), 1, picture.get()), KO_OK);
    EXPECT_EQ(KoRedEyeCorrectionAddPatchBoundingBoxes(rec.get(), param.get(), picture.get(), 3, colours, 3), KO_OK);
    EXPECT_TRUE(same_planes(before, planes_of(picture.get())));
}

// A blob too near an edge leaves its window, which ends outside the picture, in a slot that the next patch takes, if there is
// one. The count of another picture must not make a patch of it.
TEST_F(RedEyeRepairTest, SlotsThatNoPatchFilledAreNotLookedAt) {
    const ColorImagePtr picture = ground(110, 90);
    const std::vector<Box> last_has_none[] = {
        {{50, 57, 22, 30}, {97, 106, 60, 68}}, {{50, 57, 22, 30}, {60, 66, 80, 88}}, {{97, 106, 60, 68}}, {{2, 8, 20, 27}}};
    for (const std::vector<Box> &boxes : last_has_none) {
        SCOPED_TRACE(testing::PrintToString(boxes.size()));
        const Judged judged(make_param(picture.get(), boxes));
        ASSERT_EQ(judged.slots, static_cast<int32_t>(boxes.size()) - 1);
        const RedEyeImageParamPtr other = make_param(picture.get(), four_boxes);
        ASSERT_EQ(KoRedEyeCorrectionCategorizeBlobs(judged.rec.get(), other.get()), KO_OK);
        ASSERT_EQ(judged.rec->orientation_histogram->patch_count, 4);
        judged.expect_frames(copy_of(picture.get()).get(), 1, {1, 2, 3});
        judged.expect_repair(copy_of(picture.get()).get(), 1);
    }
}

} // namespace
