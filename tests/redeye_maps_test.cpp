// The first stages of the search for red eyes, the working image and the colour maps, against a plain reference, bit for bit.
#include <cstdint>
#include <string>
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

class RedEyeMapsTest : public LibraryTest {};

void expect_map(const RedEyeMap &expected, const RealImage *actual) {
    ASSERT_NE(actual, nullptr);
    EXPECT_EQ(KoRealImageGetWidth(actual), expected.width);
    EXPECT_EQ(KoRealImageGetHeight(actual), expected.height);
    EXPECT_TRUE(same_floats(expected.pixels, pixels(actual)));
    EXPECT_TRUE(padding_is_zero(actual));
}

void expect_working(const ReferenceRedEye &expected, const RedEyeImageParam &param) {
    EXPECT_TRUE(same_float(expected.scale, param.scale)) << expected.scale << " and " << param.scale;
    EXPECT_EQ(param.min_blob_size, expected.min_blob_size);
    ASSERT_NE(param.working_image, nullptr);
    ASSERT_EQ(KoColorImageGetDepth(param.working_image), 3u);
    for (uint32_t c = 0; c < 3; ++c) {
        expect_map(expected.working[c], KoColorImageGetImage(param.working_image, c));
    }
}

// The working size.

struct Budget {
    uint64_t width;
    uint64_t height;
    uint64_t max_image_size;
    uint64_t smallest_side = 3;
    uint64_t smallest_side_floor = 2;
};

// Runs the stage on noise of the size and compares all that it leaves.
void expect_downsample(const Budget &budget) {
    SCOPED_TRACE(testing::Message() << budget.width << " by " << budget.height << " for " << budget.max_image_size);
    ReferenceRedEye expected;
    expected.max_image_size = budget.max_image_size;
    expected.smallest_side = budget.smallest_side;
    expected.smallest_side_floor = budget.smallest_side_floor;
    const RedEyePlanes planes = random_planes(budget.width, budget.height, 1);
    reference_downsample(expected, planes);
    const ColorImagePtr picture = picture_of(planes);
    RedEyeRecords records(picture.get());
    records.rec.max_image_size = budget.max_image_size;
    records.rec.min_blob_size = budget.smallest_side;
    records.rec.min_blob_size_floor = budget.smallest_side_floor;
    const RedEyeLog log(records.rec);
    expect_success([&] { return KoRedEyeCorrectionDownsample(&records.rec, &records.param); });
    expect_working(expected, records.param);
    EXPECT_EQ(log.text(), expected.log);
    EXPECT_EQ(records.param.working_image == picture.get(), expected.log.empty());
}

TEST_F(RedEyeMapsTest, APictureWithinTheBudgetIsTheWorkingImageItself) {
    const ColorImagePtr picture = picture_of(random_planes(20, 10, 1));
    for (const uint64_t budget : {200u, 201u, 1000000u}) {
        RedEyeRecords records(picture.get());
        records.rec.max_image_size = budget;
        const RedEyeLog log(records.rec);
        expect_success([&] { return KoRedEyeCorrectionDownsample(&records.rec, &records.param); });
        EXPECT_EQ(records.param.working_image, picture.get());
        EXPECT_EQ(records.param.scale, 0.0f);
        EXPECT_EQ(records.param.min_blob_size, 3u);
        EXPECT_EQ(log.text(), "");
    }
}

TEST_F(RedEyeMapsTest, OnePixelMoreGivesACopyOfFullSize) {
    const ColorImagePtr picture = picture_of(random_planes(67, 3, 1));
    RedEyeRecords records(picture.get());
    records.rec.max_image_size = 200;
    const RedEyeLog log(records.rec);
    expect_success([&] { return KoRedEyeCorrectionDownsample(&records.rec, &records.param); });
    ASSERT_NE(records.param.working_image, picture.get());
    EXPECT_EQ(records.param.scale, 1.0f);
    EXPECT_EQ(records.param.min_blob_size, 3u);
    EXPECT_EQ(KoColorImageGetWidth(records.param.working_image), 67u);
    EXPECT_EQ(KoColorImageGetHeight(records.param.working_image), 3u);
    EXPECT_EQ(KoColorImageGetColorSpace(records.param.working_image), KO_COLORSPACE_RGB);
    EXPECT_EQ(log.text(), "resizing with scale factor 1.000000 \n");
    expect_downsample({67, 3, 200});
}

TEST_F(RedEyeMapsTest, FourMillionPixelsAreHalved) {
    const ColorImagePtr picture(KoColorImageNew(2000, 2000, KO_COLORSPACE_RGB));
    KoColorImageClear(picture.get());
    KoRealImageSetPixel(KoColorImageGetImage(picture.get(), 0), 1999, 1, 77.0f);
    RedEyeRecords records(picture.get());
    const RedEyeLog log(records.rec);
    expect_success([&] { return KoRedEyeCorrectionDownsample(&records.rec, &records.param); });
    EXPECT_EQ(records.param.scale, 2.0f);
    EXPECT_EQ(records.param.min_blob_size, 2u);
    EXPECT_EQ(KoColorImageGetWidth(records.param.working_image), 1000u);
    EXPECT_EQ(KoRealImageGetPixel(KoColorImageGetImage(records.param.working_image, 0), 999, 0), 77.0f);
    EXPECT_EQ(log.text(), "resizing with scale factor 2.000000 \n");
}

// The factor has two decimal places, and the smallest side is a ceiling with a floor.
TEST_F(RedEyeMapsTest, FactorsAndSidesAreTheToldOnes) {
    for (const Budget &budget : {Budget{40, 20, 200},
                                 {100, 20, 20},
                                 {50, 50, 400},
                                 {77, 31, 400, 7},
                                 {77, 31, 1000, 7, 1},
                                 {64, 48, 1000, 100, 2},
                                 {31, 77, 199, 3, 5},
                                 {101, 1, 100},
                                 {1, 101, 100},
                                 {90, 90, 8019},
                                 {99, 33, 17, 1, 0},
                                 {128, 128, 555, 9, 0}}) {
        expect_downsample(budget);
    }
    for (uint64_t budget = 30; budget < 2400; budget += 37) {
        expect_downsample({60, 41, budget, 11, 1});
    }
}

TEST_F(RedEyeMapsTest, AFactorOfTenLiftsTheSideToItsFloor) {
    const ColorImagePtr picture = picture_of(random_planes(100, 20, 1));
    RedEyeRecords records(picture.get());
    records.rec.max_image_size = 20;
    ASSERT_EQ(KoRedEyeCorrectionDownsample(&records.rec, &records.param), KO_OK);
    EXPECT_EQ(records.param.scale, 10.0f);
    EXPECT_EQ(records.param.min_blob_size, 2u);
}

TEST_F(RedEyeMapsTest, TheScaleOfASmallPictureIsLeftAlone) {
    const ColorImagePtr picture = picture_of(random_planes(5, 5, 1));
    RedEyeRecords records(picture.get());
    records.param.scale = 7.0f;
    ASSERT_EQ(KoRedEyeCorrectionDownsample(&records.rec, &records.param), KO_OK);
    EXPECT_EQ(records.param.scale, 7.0f);
}

// A side that a large factor cuts to 0 pixels leaves nothing to search, which is no failure.
TEST_F(RedEyeMapsTest, AnEmptyWorkingImageGoesThroughAllStages) {
    const ColorImagePtr picture = picture_of(random_planes(1, 230000, 1));
    RedEyeRecords records(picture.get());
    records.rec.max_image_size = 120000;
    expect_success([&] { return KoRedEyeCorrectionDownsample(&records.rec, &records.param); });
    ASSERT_EQ(KoColorImageGetSize(records.param.working_image), 0u);
    expect_success([&] { return KoRedEyeCorrectionReddishProbability(&records.rec, &records.param, 1); });
    expect_success([&] { return KoRedEyeCorrectionRedLumProbability(&records.rec, &records.param, 1); });
    expect_success([&] { return KoRedEyeCorrectionColProbability(&records.rec, &records.param); });
    EXPECT_EQ(records.param.map_max, 0.0f);
    expect_success([&] { return KoRedEyeCorrectionCircularity(&records.rec, &records.param); });
    expect_success([&] { return KoRedEyeCorrectionLocateBlobs(&records.rec, &records.param); });
    EXPECT_EQ(records.param.blob_count, 0);
}

// The colour maps.

// Makes the maps of a picture that is its own working image, and compares them with the reference's.
void expect_maps(const RedEyePlanes &planes, bool normalized) {
    SCOPED_TRACE(testing::Message() << planes[0].width << " by " << planes[0].height << (normalized ? ", normalized" : ""));
    ReferenceRedEye expected;
    reference_downsample(expected, planes);
    reference_reddish(expected, normalized);
    reference_red_lum(expected, normalized);
    const ColorImagePtr picture = picture_of(planes);
    RedEyeRecords records(picture.get());
    records.param.working_image = picture.get();
    const int32_t normalize = normalized ? 1 : 0;
    expect_success([&] { return KoRedEyeCorrectionReddishProbability(&records.rec, &records.param, normalize); });
    expect_success([&] { return KoRedEyeCorrectionRedLumProbability(&records.rec, &records.param, normalize); });
    expect_map(expected.reddish, records.param.reddish_map);
    expect_map(expected.red_lum, records.param.red_lum_map);
    EXPECT_EQ(records.param.col_map, nullptr);
    reference_col(expected);
    expect_success([&] { return KoRedEyeCorrectionColProbability(&records.rec, &records.param); });
    expect_map(expected.reddish, records.param.reddish_map);
    expect_map(expected.red_lum, records.param.red_lum_map);
    expect_map(expected.col, records.param.col_map);
    EXPECT_TRUE(same_float(expected.map_max, records.param.map_max)) << expected.map_max << " " << records.param.map_max;
}

TEST_F(RedEyeMapsTest, MapsOfFacesAreThoseOfTheReference) {
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        for (const bool normalized : {false, true}) {
            expect_maps(face(91, 60, scattered_pupils(91, 60, 8, 9.0f, seed), 25.0f, seed), normalized);
        }
    }
}

TEST_F(RedEyeMapsTest, MapsOfNoiseOfEveryWidthAreThoseOfTheReference) {
    for (uint64_t width = 1; width <= 19; ++width) {
        for (const uint64_t height : {1u, 2u, 5u}) {
            expect_maps(random_planes(width, height, static_cast<uint32_t>(width)), true);
            expect_maps(random_planes(width, height, static_cast<uint32_t>(width + 50)), false);
        }
    }
}

TEST_F(RedEyeMapsTest, MapsOfPlainPicturesAreThoseOfTheReference) {
    for (const bool normalized : {false, true}) {
        expect_maps(plain_planes(13, 7, 255.0f, 0.0f, 0.0f), normalized);
        expect_maps(plain_planes(13, 7, 90.0f, 90.0f, 90.0f), normalized);
        expect_maps(plain_planes(13, 7, 0.0f, 0.0f, 0.0f), normalized);
        expect_maps(plain_planes(13, 7, 20.0f, 200.0f, 40.0f), normalized);
        expect_maps(plain_planes(13, 7, 205.0f, 160.0f, 130.0f), normalized); // reddish, but nowhere red and light
    }
}

TEST_F(RedEyeMapsTest, MapsOfAwkwardFloatsAreThoseOfTheReference) {
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        RedEyePlanes planes;
        for (uint32_t c = 0; c < 3; ++c) {
            planes[c] = {17, 5, awkward_floats(17 * 5, 3 * seed + c)};
        }
        expect_maps(planes, false);
        expect_maps(planes, true);
    }
}

// The raw sum of one pixel in both maps.
struct RawSums {
    float reddish;
    float red_lum;
};

RawSums raw_sums(float red, float green, float blue) {
    const ColorImagePtr picture = picture_of(plain_planes(1, 1, red, green, blue));
    RedEyeRecords records(picture.get());
    records.param.working_image = picture.get();
    KoRedEyeCorrectionReddishProbability(&records.rec, &records.param, 0);
    KoRedEyeCorrectionRedLumProbability(&records.rec, &records.param, 0);
    return {KoRealImageGetPixel(records.param.reddish_map, 0, 0), KoRealImageGetPixel(records.param.red_lum_map, 0, 0)};
}

TEST_F(RedEyeMapsTest, WeightsAreUnequalForGreenAndBlue) {
    const RawSums red = raw_sums(100.0f, 0.0f, 0.0f);
    EXPECT_EQ(red.reddish, 100.0f);
    EXPECT_EQ(red.red_lum, 175.0f);
    const RawSums yellowish = raw_sums(200.0f, 100.0f, 0.0f);
    const RawSums pinkish = raw_sums(200.0f, 0.0f, 100.0f);
    EXPECT_EQ(yellowish.reddish, 150.0f);
    EXPECT_EQ(pinkish.reddish, 150.0f);
    EXPECT_NEAR(yellowish.red_lum, 190.0f, 1e-4f);
    EXPECT_NEAR(pinkish.red_lum, 235.0f, 1e-4f);
    for (const float gray : {0.0f, 1.0f, 77.0f, 255.0f}) {
        const RawSums sums = raw_sums(gray, gray, gray);
        EXPECT_EQ(sums.reddish, 0.0f);
        EXPECT_EQ(sums.red_lum, 0.0f);
    }
    EXPECT_EQ(raw_sums(0.0f, 50.0f, 50.0f).reddish, 0.0f);
}

// The settings play no part in the maps.
TEST_F(RedEyeMapsTest, MapsNeedNoSettings) {
    const ColorImagePtr picture = picture_of(random_planes(9, 4, 3));
    RedEyeRecords records(picture.get());
    records.param.working_image = picture.get();
    expect_success([&] { return KoRedEyeCorrectionReddishProbability(nullptr, &records.param, 1); });
    expect_success([&] { return KoRedEyeCorrectionRedLumProbability(nullptr, &records.param, -3); });
    expect_success([&] { return KoRedEyeCorrectionColProbability(nullptr, &records.param); });
    EXPECT_EQ(KoRealImageGetMax(records.param.red_lum_map), 1.0f) << "any normalize other than 0 counts";
}

TEST_F(RedEyeMapsTest, MapsAreThoseOfTheWorkingImage) {
    const ColorImagePtr picture = picture_of(plain_planes(40, 40, 80.0f, 80.0f, 80.0f));
    RedEyeRecords records(picture.get());
    records.param.working_image = picture_of(plain_planes(3, 2, 90.0f, 10.0f, 10.0f)).release();
    ASSERT_EQ(KoRedEyeCorrectionReddishProbability(&records.rec, &records.param, 0), KO_OK);
    EXPECT_EQ(pixels(records.param.reddish_map), std::vector<float>(6, 80.0f));
}

// A map that stands there is replaced, whatever its size.
TEST_F(RedEyeMapsTest, EveryCallMakesTheMapAnew) {
    const ColorImagePtr large = picture_of(random_planes(21, 14, 4));
    const ColorImagePtr small = picture_of(random_planes(9, 4, 3));
    RedEyeRecords fresh(small.get());
    RedEyeRecords used(small.get());
    fresh.param.working_image = small.get();
    for (ColorImage *image : {large.get(), small.get()}) {
        used.param.working_image = image;
        ASSERT_EQ(KoRedEyeCorrectionReddishProbability(&used.rec, &used.param, 1), KO_OK);
        ASSERT_EQ(KoRedEyeCorrectionRedLumProbability(&used.rec, &used.param, 0), KO_OK);
    }
    ASSERT_EQ(KoRedEyeCorrectionReddishProbability(&fresh.rec, &fresh.param, 1), KO_OK);
    ASSERT_EQ(KoRedEyeCorrectionRedLumProbability(&fresh.rec, &fresh.param, 0), KO_OK);
    EXPECT_EQ(pixels(used.param.reddish_map), pixels(fresh.param.reddish_map));
    EXPECT_EQ(pixels(used.param.red_lum_map), pixels(fresh.param.red_lum_map));
}

TEST_F(RedEyeMapsTest, AProductMapThatIsThereIsWrittenInPlace) {
    const ColorImagePtr picture = picture_of(random_planes(9, 4, 3));
    RedEyeRecords records(picture.get());
    records.param.working_image = picture.get();
    KoRedEyeCorrectionReddishProbability(&records.rec, &records.param, 1);
    KoRedEyeCorrectionRedLumProbability(&records.rec, &records.param, 1);
    KoRedEyeCorrectionColProbability(&records.rec, &records.param);
    RealImage *first = records.param.col_map;
    const std::vector<float> product = pixels(first);
    const float map_max = records.param.map_max;
    KoRealImageFill(first, 5.0f);
    records.param.map_max = 99.0f; // begins anew
    expect_success([&] { return KoRedEyeCorrectionColProbability(&records.rec, &records.param); });
    EXPECT_EQ(records.param.col_map, first);
    EXPECT_EQ(pixels(first), product);
    EXPECT_EQ(records.param.map_max, map_max);
}

// Nothing red gives maps of NaN, which is no failure.
TEST_F(RedEyeMapsTest, AGrayPictureGivesMapsWithoutNumbers) {
    const ColorImagePtr picture = picture_of(plain_planes(7, 5, 128.0f, 128.0f, 128.0f));
    RedEyeRecords records(picture.get());
    records.param.working_image = picture.get();
    expect_success([&] { return KoRedEyeCorrectionReddishProbability(&records.rec, &records.param, 1); });
    expect_success([&] { return KoRedEyeCorrectionRedLumProbability(&records.rec, &records.param, 1); });
    expect_success([&] { return KoRedEyeCorrectionColProbability(&records.rec, &records.param); });
    const std::vector<float> nothing(35, not_a_number);
    for (const RealImage *map : {records.param.reddish_map, records.param.red_lum_map, records.param.col_map}) {
        EXPECT_TRUE(same_floats(nothing, pixels(map)));
        EXPECT_TRUE(padding_is_zero(map));
    }
    EXPECT_EQ(records.param.map_max, 0.0f);
}

TEST_F(RedEyeMapsTest, OtherThanThreePlanesAreRefused) {
    const ColorImagePtr gray(KoColorImageNew(4, 3, KO_COLORSPACE_GRAY));
    KoColorImageClear(gray.get());
    for (const int32_t normalize : {0, 1}) {
        RedEyeRecords records(gray.get());
        records.param.working_image = gray.get();
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&] { return KoRedEyeCorrectionReddishProbability(&records.rec, &records.param, normalize); });
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&] { return KoRedEyeCorrectionRedLumProbability(&records.rec, &records.param, normalize); });
        EXPECT_EQ(records.param.reddish_map, nullptr);
        EXPECT_EQ(records.param.red_lum_map, nullptr);
    }
}

TEST_F(RedEyeMapsTest, StagesNeedTheOnesBeforeThem) {
    const auto expect_refusal = [](int32_t status) {
        EXPECT_EQ(status, KO_ERR_NULL_POINTER);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_NULL_POINTER);
        KoStatusClear();
    };
    const ColorImagePtr picture = picture_of(random_planes(9, 4, 3));
    RedEyeRecords records(picture.get());
    expect_refusal(KoRedEyeCorrectionReddishProbability(&records.rec, &records.param, 1));
    expect_refusal(KoRedEyeCorrectionRedLumProbability(&records.rec, &records.param, 1));
    expect_refusal(KoRedEyeCorrectionColProbability(&records.rec, &records.param));
    expect_refusal(KoRedEyeCorrectionCircularity(&records.rec, &records.param));
    expect_refusal(KoRedEyeCorrectionLocateBlobs(&records.rec, &records.param));
    EXPECT_EQ(KoRedEyeCorrectionDownsample(&records.rec, &records.param), KO_OK);
    EXPECT_EQ(KoRedEyeCorrectionReddishProbability(&records.rec, &records.param, 1), KO_OK);
    expect_refusal(KoRedEyeCorrectionColProbability(&records.rec, &records.param));
    EXPECT_EQ(records.param.col_map, nullptr);
    EXPECT_EQ(KoRedEyeCorrectionRedLumProbability(&records.rec, &records.param, 1), KO_OK);
    EXPECT_EQ(KoRedEyeCorrectionColProbability(&records.rec, &records.param), KO_OK);
}

// A status that stood on the thread before has no part in these stages.
TEST_F(RedEyeMapsTest, AnOldStatusDoesNotCount) {
    const ColorImagePtr picture = picture_of(random_planes(30, 20, 3));
    RedEyeRecords records(picture.get());
    records.rec.max_image_size = 300;
    KoMsg(KO_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(KoRedEyeCorrectionDownsample(&records.rec, &records.param), KO_OK);
    EXPECT_EQ(KoRedEyeCorrectionReddishProbability(&records.rec, &records.param, 1), KO_OK);
    EXPECT_EQ(KoRedEyeCorrectionRedLumProbability(&records.rec, &records.param, 1), KO_OK);
    EXPECT_EQ(KoRedEyeCorrectionColProbability(&records.rec, &records.param), KO_OK);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INVALID_ARGUMENT) << "success clears nothing";
    KoStatusClear();
}

} // namespace
