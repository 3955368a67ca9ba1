// The whole road from picture to repaired picture: what the stages of the judgement and the repair make of the blobs that were
// found, compared with their plain forms, and which pictures are left alone.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko.h"

#include "files.h"
#include "library_test.h"
#include "pictures.h"
#include "redeye_model.h"
#include "redeye_scene.h"
#include "reference_redeye_judgement.h"

namespace {

using namespace ko_test;

class RedEyePipelineTest : public LibraryTest {};

const std::vector<Pupil> eyes = {{100, 80, 5}, {180, 82, 9}, {60, 200, 13}, {290, 150, 7}};

ColorImagePtr portrait(uint32_t seed = 1) { return eye_picture(400, 300, eyes, seed); }

// The lines of the location, whose first two counts are the earlier stages' own.
std::string location_log(const std::string &log, const RedEyeImageParam &param, const std::string &resizing) {
    unsigned detected = 0;
    unsigned shaped = 0;
    const size_t start = resizing.size();
    EXPECT_EQ(log.compare(0, start, resizing), 0);
    std::sscanf(log.c_str() + start, "-> %u blobs detected \n-> reduced to %u", &detected, &shaped);
    EXPECT_GE(detected, shaped);
    EXPECT_GE(shaped, static_cast<unsigned>(param.blob_count));
    std::string expected = resizing;
    expected.append("-> ").append(std::to_string(detected)).append(" blobs detected \n");
    expected.append("-> reduced to ").append(std::to_string(shaped)).append(" blobs after first test \n");
    expected.append("-> reduced to ").append(std::to_string(param.blob_count)).append(" final blobs after 2nd test \n");
    return expected;
}

// A run over a picture, compared from the blobs on. Its image record stays.
struct Road {
    explicit Road(RedEyeCorrection *rec, ColorImage *picture, const std::string &resizing = "")
        : param(KoRedEyeImageParamNew(nullptr)) {
        const RedEyeCorrection before = *rec;
        RedEyePlanes planes = planes_of(picture);
        const RedEyeLog log(*rec);
        KoStatusClear();
        status = KoRedEyeCorrectionProcessImage(rec, param.get(), picture);
        const int32_t last_status = KoErrorGetLastError();
        const std::string chain = KoErrorGetLastErrorMessage();
        const ReferenceJudgement expected(before, *param, planes);
        expect_judged(expected, *rec, *param, status);
        EXPECT_EQ(last_status, expected.last_status);
        EXPECT_EQ(chain, expected.chain);
        EXPECT_EQ(log.text(), location_log(log.text(), *param, resizing).append(expected.log));
        patches = static_cast<int32_t>(expected.patches.size());
        if (status == KO_OK) {
            reference_repair(planes, *param, patches, false);
        }
        EXPECT_TRUE(same_planes(planes, planes_of(picture)));
        EXPECT_EQ(param->image, picture);
    }
    RedEyeImageParamPtr param;
    int32_t status = -1;
    int32_t patches = 0;
};

TEST_F(RedEyePipelineTest, RedEyesAreFoundJudgedAndRepaired) {
    uint64_t labels[3] = {0, 0, 0};
    for (uint32_t seed = 1; seed <= 8; ++seed) {
        SCOPED_TRACE(seed);
        ModelConfiguration configuration;
        configuration.fe_reject = configuration.be_reject = seed % 2 == 0 ? 0.4 : 0.02;
        const ModelFiles files(make_model(3, seed, configuration));
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
        const ColorImagePtr picture = portrait(seed);
        const Road run(rec.get(), picture.get());
        EXPECT_EQ(run.status, KO_OK);
        EXPECT_EQ(run.param->blob_count, 4);
        EXPECT_EQ(run.patches, 4);
        labels[KO_PATCH_UNDECIDED] += run.param->undecided_count;
        labels[KO_PATCH_ACCEPTED] += run.param->accepted_count;
        labels[KO_PATCH_REJECTED] += run.param->rejected_count;
    }
    EXPECT_GT(labels[KO_PATCH_UNDECIDED], 0u);
    EXPECT_GT(labels[KO_PATCH_ACCEPTED], 0u);
    EXPECT_GT(labels[KO_PATCH_REJECTED], 0u);
}

TEST_F(RedEyePipelineTest, AnAcceptedEyeIsNoLongerRed) {
    Model model = make_model(3, 1);
    fix_scores(model, -2.0f, -2.0f);
    const ModelFiles files(model);
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    const ColorImagePtr picture = portrait();
    const Road run(rec.get(), picture.get());
    EXPECT_EQ(run.param->accepted_count, 4u);
    for (const Pupil &eye : eyes) {
        const auto x = static_cast<uint64_t>(eye.x);
        const auto y = static_cast<uint64_t>(eye.y);
        EXPECT_LT(picture->planes[0].rows[y][x], 100.0f);
    }
}

TEST_F(RedEyePipelineTest, LargeEyesAndEyesNearTheEdges) {
    const std::vector<Pupil> pupils = {{320, 240, 15}, {120, 100, 12}, {9, 200, 6},    {630, 300, 6}, {300, 9, 6},
                                       {400, 471, 6},  {3, 3, 8},      {500, 120, 10}, {512, 128, 9}, {20, 400, 5}};
    const ColorImagePtr picture = eye_picture(640, 480, pupils, 3);
    const ModelFiles files(make_model(3, 4));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    const Road run(rec.get(), picture.get());
    EXPECT_GE(run.param->blob_count, 6);
    EXPECT_LT(run.patches, run.param->blob_count); // those near an edge have none
    EXPECT_GE(run.patches, 2);
}

TEST_F(RedEyePipelineTest, AReducedPictureIsRepairedAtFullSize) {
    const std::vector<Pupil> pupils = {{320, 240, 15}, {120, 300, 12}, {700, 500, 10}, {500, 121, 13}, {12, 600, 11}};
    ModelConfiguration configuration;
    configuration.fe_reject = configuration.be_reject = 0.0; // all are repaired
    for (uint32_t seed = 1; seed <= 2; ++seed) {
        const ColorImagePtr picture = eye_picture(1000, 740, pupils, seed);
        const ModelFiles files(make_model(3, seed, configuration));
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
        rec->max_image_size = 118400;
        const Road run(rec.get(), picture.get(), "resizing with scale factor 2.500000 \n");
        EXPECT_EQ(run.param->scale, 2.5f);
        EXPECT_EQ(run.param->working_image->planes[0].width, 400u);
        EXPECT_GE(run.patches, 4);
        EXPECT_EQ(run.param->rejected_count, 0u);
    }
}

TEST_F(RedEyePipelineTest, AWorkingCopyOfTheSameSizeIsNoReduction) {
    const ColorImagePtr picture = eye_picture(400, 313, eyes, 2); // just above the budget
    const ModelFiles files(make_model(3, 2));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    rec->max_image_size = 125000;
    const Road run(rec.get(), picture.get(), "resizing with scale factor 1.000000 \n");
    EXPECT_EQ(run.param->scale, 1.0f);
    EXPECT_NE(run.param->working_image, picture.get());
    ASSERT_GE(run.patches, 1);
    const RedEyePatch &patch = run.param->patches[0];
    EXPECT_EQ(patch.size, 3 * std::max(patch.blob_max_x - patch.blob_min_x, patch.blob_max_y - patch.blob_min_y));
}

TEST_F(RedEyePipelineTest, OneTwoOrThreeChannels) {
    for (int32_t channels = 1; channels <= 3; ++channels) {
        const ModelFiles files(make_model(channels, 5));
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), channels);
        const ColorImagePtr picture = portrait();
        EXPECT_EQ(Road(rec.get(), picture.get()).patches, 4);
    }
}

TEST_F(RedEyePipelineTest, APictureWithoutRedIsLeftAlone) {
    const ModelFiles files(make_model(3, 1));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    const ColorImagePtr picture = eye_picture(200, 150, {}, 1);
    const ColorImagePtr black =
        make_color_image(200, 150, KO_COLORSPACE_RGB, [](uint32_t, uint64_t, uint64_t) { return 0.0f; });
    for (ColorImage *image : {picture.get(), black.get()}) {
        const RedEyeLog log(*rec);
        const RedEyeImageParamPtr param(KoRedEyeImageParamNew(nullptr));
        const RedEyePlanes before = planes_of(image);
        expect_success([&] { return KoRedEyeCorrectionProcessImage(rec.get(), param.get(), image); });
        EXPECT_TRUE(same_planes(before, planes_of(image)));
        EXPECT_EQ(log.text(), "-> 0 blobs detected \n-> reduced to 0 blobs after first test \n"
                              "-> reduced to 0 final blobs after 2nd test \n"
                              "-> patch classification results: 0 accepted, 0 rejected, and 0 undecided patches \n");
        EXPECT_EQ(rec->orientation_histogram->patch_count, 0);
    }
}

TEST_F(RedEyePipelineTest, SmallPicturesGoThrough) {
    struct Size {
        uint32_t width, height;
    };
    const ModelFiles files(make_model(3, 1));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    for (const Size size : {Size{1, 1}, Size{2, 3}, Size{40, 1}, Size{1, 40}, Size{13, 13}, Size{27, 30}, Size{31, 64}}) {
        SCOPED_TRACE(testing::Message() << size.width << " by " << size.height);
        Noise noise(size.width);
        const ColorImagePtr picture =
            make_color_image(size.width, size.height, KO_COLORSPACE_RGB,
                             [&](uint32_t, uint64_t, uint64_t) { return noise.uniform(0.0f, 255.0f); });
        EXPECT_EQ(Road(rec.get(), picture.get()).status, KO_OK);
    }
}

// ---- the stages one by one ----

TEST_F(RedEyePipelineTest, TheStagesOneByOneGiveTheSame) {
    const ModelFiles files(make_model(3, 6));
    for (const bool reduced : {false, true}) {
        const ColorImagePtr whole = eye_picture(400, 300, eyes, 2);
        const ColorImagePtr stepwise = copy_of(whole.get());
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
        rec->max_image_size = reduced ? 112000 : 1000000;
        const RedEyeImageParamPtr param(KoRedEyeImageParamNew(nullptr));
        EXPECT_EQ(KoRedEyeCorrectionProcessImage(rec.get(), param.get(), whole.get()), KO_OK);

        const RedEyeImageParamPtr own(KoRedEyeImageParamNew(stepwise.get()));
        EXPECT_EQ(KoRedEyeCorrectionDownsample(rec.get(), own.get()), KO_OK);
        EXPECT_EQ(KoRedEyeCorrectionReddishProbability(rec.get(), own.get(), 1), KO_OK);
        EXPECT_EQ(KoRedEyeCorrectionRedLumProbability(rec.get(), own.get(), 1), KO_OK);
        EXPECT_EQ(KoRedEyeCorrectionColProbability(rec.get(), own.get()), KO_OK);
        EXPECT_EQ(KoRedEyeCorrectionCircularity(rec.get(), own.get()), KO_OK);
        EXPECT_EQ(KoRedEyeCorrectionLocateBlobs(rec.get(), own.get()), KO_OK);
        EXPECT_EQ(KoRedEyeCorrectionCategorizeBlobs(rec.get(), own.get()), KO_OK);
        EXPECT_EQ(KoRedEyeCorrectionApply(rec.get(), own.get(), 0, stepwise.get()), KO_OK);
        EXPECT_EQ(own->blob_count, param->blob_count);
        EXPECT_GT(own->blob_count, 0);
        EXPECT_EQ(own->accepted_count, param->accepted_count);
        EXPECT_TRUE(same_planes(planes_of(whole.get()), planes_of(stepwise.get())));
    }
}

// The patches are as many as the blobs that they were made for, and a new location may find another number.
TEST_F(RedEyePipelineTest, ANewLocationEndsThePatches) {
    const ModelFiles files(make_model(3, 3));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    const ColorImagePtr picture = portrait();
    const RedEyeImageParamPtr param(KoRedEyeImageParamNew(nullptr));
    ASSERT_EQ(KoRedEyeCorrectionProcessImage(rec.get(), param.get(), picture.get()), KO_OK);
    ASSERT_EQ(param->blob_count, 4);
    ASSERT_NE(param->patches, nullptr);
    const RedEyePlanes repaired = planes_of(picture.get());
    expect_success([&] { return KoRedEyeCorrectionLocateBlobs(rec.get(), param.get()); });
    EXPECT_EQ(param->patches, nullptr);
    expect_success([&] { return KoRedEyeCorrectionApply(rec.get(), param.get(), 1, picture.get()); });
    EXPECT_TRUE(same_planes(repaired, planes_of(picture.get())));
}

TEST_F(RedEyePipelineTest, TheRepairCanBeRepeatedAndFramed) {
    const ModelFiles files(make_model(3, 3));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    rec->max_image_size = 112000;
    const ColorImagePtr picture = portrait();
    const Road run(rec.get(), picture.get(), "resizing with scale factor 1.040000 \n");
    ASSERT_GE(run.patches, 3);
    run.param->patches[0].label = KO_PATCH_REJECTED;
    run.param->patches[1].label = KO_PATCH_ACCEPTED;
    run.param->patches[2].label = KO_PATCH_UNDECIDED;
    for (const int32_t full_strength : {0, 0, 1}) {
        RedEyePlanes expected = planes_of(picture.get());
        reference_repair(expected, *run.param, run.patches, full_strength != 0);
        expect_success([&] { return KoRedEyeCorrectionApply(rec.get(), run.param.get(), full_strength, picture.get()); });
        EXPECT_TRUE(same_planes(expected, planes_of(picture.get())));
    }
    const std::vector<int32_t> colours = {0x0000ff, 0x00ff00, 0xff0000};
    RedEyePlanes expected = planes_of(picture.get());
    reference_frames(expected, *run.param, run.patches, 2, colours);
    EXPECT_EQ(KoRedEyeCorrectionAddPatchBoundingBoxes(rec.get(), run.param.get(), picture.get(), 2, colours.data(), 3), KO_OK);
    EXPECT_TRUE(same_planes(expected, planes_of(picture.get())));
}

TEST_F(RedEyePipelineTest, ARecordServesOnePictureAfterAnother) {
    const ModelFiles files(make_model(3, 3));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    const ColorImagePtr first = portrait(1);
    const ColorImagePtr second = eye_picture(300, 200, {{100, 80, 6}}, 2);
    for (ColorImage *picture : {first.get(), second.get(), first.get(), first.get()}) {
        EXPECT_EQ(Road(rec.get(), picture).status, KO_OK);
    }
    files.write(make_model(3, 4)); // the model is read anew for each picture
    const ColorImagePtr third = portrait(1);
    EXPECT_EQ(Road(rec.get(), third.get()).status, KO_OK);
}

TEST_F(RedEyePipelineTest, AnImageRecordCanBeUsedAgainOnceFreed) {
    const ModelFiles files(make_model(3, 3));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    const ColorImagePtr picture = portrait();
    const ColorImagePtr copy = copy_of(picture.get());
    RedEyeImageParam param;
    for (ColorImage *image : {picture.get(), copy.get()}) {
        EXPECT_EQ(KoRedEyeCorrectionProcessImage(rec.get(), &param, image), KO_OK);
        EXPECT_EQ(param.blob_count, 4);
        EXPECT_EQ(param.accepted_count + param.rejected_count + param.undecided_count, 4u);
        KoRedEyeImageParamFree(&param);
    }
    EXPECT_TRUE(same_planes(planes_of(picture.get()), planes_of(copy.get())));
}

// ---- too many blobs ----

ColorImagePtr grid_of_eyes(int32_t count) {
    std::vector<Pupil> pupils;
    for (int32_t i = 0; i < count; ++i) {
        pupils.push_back({40.0 + i % 10 * 60, 40.0 + i / 10 * 60, 5.0});
    }
    return eye_picture(640, 480, pupils, 9);
}

TEST_F(RedEyePipelineTest, FiftyBlobsAreJudgedAndFiftyOneAreNot) {
    Model model = make_model(3, 1);
    fix_scores(model, -2.0f, -2.0f);
    const ModelFiles files(model);
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    const ColorImagePtr fifty = grid_of_eyes(50);
    const Road run(rec.get(), fifty.get());
    EXPECT_EQ(run.patches, 50);
    EXPECT_EQ(run.param->accepted_count, 50u);
    EXPECT_EQ(rec->too_many_blobs, 0u);

    const ColorImagePtr more = grid_of_eyes(51);
    const RedEyePlanes before = planes_of(more.get());
    const RedEyeImageParamPtr param(KoRedEyeImageParamNew(nullptr));
    const RedEyeLog log(*rec);
    expect_success([&] { return KoRedEyeCorrectionProcessImage(rec.get(), param.get(), more.get()); });
    EXPECT_EQ(param->blob_count, 51);
    EXPECT_EQ(rec->too_many_blobs, 1u);
    EXPECT_EQ(param->patches, nullptr);
    EXPECT_TRUE(same_planes(before, planes_of(more.get())));
    const std::string told = "*** too many (over 50) blobs detected - no further processing of this image \n";
    EXPECT_EQ(log.text(), location_log(log.text(), *param, "").append(told));
    // Even what is asked for afterwards finds no patch of this picture.
    EXPECT_EQ(KoRedEyeCorrectionApply(rec.get(), param.get(), 1, more.get()), KO_OK);
    EXPECT_TRUE(same_planes(before, planes_of(more.get())));
}

// The flag stays: later pictures are neither judged nor repaired, and the model is not even looked for.
TEST_F(RedEyePipelineTest, ARecordThatMetTooManyBlobsLeavesAllLaterPicturesAlone) {
    const RedEyeCorrectionPtr rec = make_correction("no such file", 3);
    rec->blob_limits[2] = 3;
    const ColorImagePtr many = portrait();
    const ColorImagePtr one = eye_picture(300, 200, {{100, 80, 6}}, 2);
    for (ColorImage *picture : {many.get(), one.get(), many.get(), one.get()}) {
        const RedEyePlanes before = planes_of(picture);
        const RedEyeImageParamPtr param(KoRedEyeImageParamNew(nullptr));
        const RedEyeLog log(*rec);
        expect_success([&] { return KoRedEyeCorrectionProcessImage(rec.get(), param.get(), picture); });
        EXPECT_EQ(rec->too_many_blobs, 1u);
        EXPECT_EQ(param->blob_count, picture == many.get() ? 4 : 1);
        EXPECT_TRUE(same_planes(before, planes_of(picture)));
        EXPECT_EQ(log.text().find("patch classification"), std::string::npos);
        EXPECT_EQ(log.text().find("too many (over 3)") != std::string::npos, picture == many.get());
    }
    EXPECT_EQ(rec->orientation_histogram, nullptr);
}

TEST_F(RedEyePipelineTest, OnlyTheThirdLimitCounts) {
    const ModelFiles files(make_model(3, 3));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    rec->blob_limits[0] = rec->blob_limits[1] = 0;
    rec->blob_limits[2] = 4;
    const ColorImagePtr picture = portrait();
    EXPECT_EQ(Road(rec.get(), picture.get()).patches, 4);
    EXPECT_EQ(rec->too_many_blobs, 0u);
}

// ---- failures ----

void expect_failure(RedEyeCorrection *rec, ColorImage *picture, int32_t code, const std::string &text) {
    const RedEyePlanes before = planes_of(picture);
    const RedEyeImageParamPtr param(KoRedEyeImageParamNew(nullptr));
    expect_error(code, text, [&] { return KoRedEyeCorrectionProcessImage(rec, param.get(), picture); });
    EXPECT_TRUE(same_planes(before, planes_of(picture)));
    EXPECT_EQ(param->accepted_count + param->rejected_count + param->undecided_count, 0u);
}

TEST_F(RedEyePipelineTest, AModelThatCannotBeReadLeavesThePicture) {
    const ModelFiles files(make_model(3, 3));
    const ColorImagePtr picture = portrait();
    const RedEyeCorrectionPtr none = make_correction("no such file", 3);
    expect_failure(none.get(), picture.get(), KO_ERR_OPEN_READ, "Cannot open file \"no such file\" for reading");
    for (const std::string &path : {files.be(), files.fe(), files.projection()}) {
        write_bytes(path, read_bytes(path).substr(0, 30));
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
        expect_failure(rec.get(), picture.get(), KO_ERR_READ_FILE,
                       std::string("Cannot read file \"").append(path).append("\""));
    }
    std::filesystem::remove(files.projection());
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    expect_failure(rec.get(), picture.get(), KO_ERR_OPEN_READ,
                   std::string("Cannot open file \"").append(files.projection()).append("\" for reading"));
}

TEST_F(RedEyePipelineTest, AModelThatDoesNotAgreeIsRefusedOnlyWhenThereAreBlobs) {
    const ModelFiles files(make_model(3, 3));
    const ColorImagePtr picture = portrait();
    const ColorImagePtr empty = eye_picture(200, 150, {}, 1);
    for (int32_t channels = 0; channels <= 2; ++channels) { // fewer than the model was made for
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), channels);
        EXPECT_EQ(Road(rec.get(), empty.get()).status, KO_OK);
        expect_failure(rec.get(), picture.get(), KO_ERR_INVALID_ARGUMENT, "Invalid argument");
        EXPECT_EQ(Road(rec.get(), picture.get()).status, KO_ERR_INVALID_ARGUMENT);
    }
}

TEST_F(RedEyePipelineTest, EarlierStagesEndTheRoad) {
    const ModelFiles files(make_model(3, 3));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    const ColorImagePtr picture = portrait();
    const ColorImagePtr gray = make_color_image(60, 50, KO_COLORSPACE_GRAY, [](uint32_t, uint64_t, uint64_t) { return 9.0f; });
    const RedEyeImageParamPtr param(KoRedEyeImageParamNew(nullptr));
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                 [&] { return KoRedEyeCorrectionProcessImage(rec.get(), param.get(), gray.get()); });
    rec->max_image_size = 300000; // no diameters for it
    expect_failure(rec.get(), picture.get(), KO_ERR_INVALID_ARGUMENT, "Invalid argument");
}

// Nothing in the library clears a status, and the location of blobs ends at an old one.
TEST_F(RedEyePipelineTest, AnOldStatusEndsTheRoad) {
    const ModelFiles files(make_model(3, 3));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    const ColorImagePtr picture = portrait();
    const RedEyePlanes before = planes_of(picture.get());
    const RedEyeImageParamPtr param(KoRedEyeImageParamNew(nullptr));
    KoMessageSetStatus(KO_ERR_FATAL);
    EXPECT_EQ(KoRedEyeCorrectionProcessImage(rec.get(), param.get(), picture.get()), KO_ERR_FATAL);
    expect_status(KO_ERR_FATAL, "Fatal Error. Cannot continue");
    EXPECT_TRUE(same_planes(before, planes_of(picture.get())));
    EXPECT_EQ(Road(rec.get(), picture.get()).patches, 4); // which clears it
}

} // namespace
