// The stages of the search for red eyes, from the picture to the list of blobs, when memory runs out: each ends with its status
// and nothing is left over.
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture.h"
#include "faults.h"
#include "ko.h"
#include "pictures.h"
#include "redeye_scene.h"
#include "reference_redeye.h"
#include "same_floats.h"

namespace {

using namespace ko_test;

class RedEyeLocateFaultTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { KoInit(nullptr, nullptr); }
    static void TearDownTestSuite() { KoRelease(); }
};

using Stage = int32_t (*)(RedEyeCorrection *, RedEyeImageParam *);

int32_t reddish(RedEyeCorrection *rec, RedEyeImageParam *param) { return KoRedEyeCorrectionReddishProbability(rec, param, 1); }
int32_t red_lum(RedEyeCorrection *rec, RedEyeImageParam *param) { return KoRedEyeCorrectionRedLumProbability(rec, param, 1); }

constexpr Stage stages[] = {
    KoRedEyeCorrectionDownsample, reddish, red_lum, KoRedEyeCorrectionColProbability, KoRedEyeCorrectionCircularity,
    KoRedEyeCorrectionLocateBlobs};

void set_limits(RedEyeCorrection &rec, bool reduced) {
    rec.max_image_size = reduced ? 111112 : 1000000;
    rec.min_blob_size = 3;
}

RedEyePlanes two_eyes(bool reduced) {
    const uint64_t width = reduced ? 420 : 200;
    const uint64_t height = reduced ? 300 : 150;
    return face(width, height, {{70.0, 60.0, 6.0}, {130.0, 62.0, 6.0}, {20.0, 120.0, 3.0}}, 4.0f, 1);
}

// Everything that a search leaves for the stages after it.
struct Outcome {
    std::vector<int64_t> numbers;
    std::vector<float> map;
};

Outcome outcome(const RedEyeImageParam &param) {
    Outcome result{{param.blob_count}, pixels(param.red_lum_map)};
    for (int32_t i = 1; i <= param.blob_count; ++i) {
        const BlobInfo &blob = param.final_blobs[i];
        result.numbers.insert(result.numbers.end(), {blob.min_x, blob.max_x, blob.min_y, blob.max_y, blob.area});
    }
    return result;
}

int32_t run(RedEyeRecords &records, size_t from, size_t to) {
    int32_t status = KO_OK;
    for (size_t stage = from; stage < to && status == KO_OK; ++stage) {
        status = stages[stage](&records.rec, &records.param);
    }
    return status;
}

Outcome expected_outcome(ColorImage *picture, bool reduced) {
    RedEyeRecords records(picture);
    set_limits(records.rec, reduced);
    EXPECT_EQ(run(records, 0, std::size(stages)), KO_OK);
    EXPECT_GE(records.param.blob_count, 2);
    return outcome(records.param);
}

void sweep_search(bool reduced, int at_least) {
    SCOPED_TRACE(reduced ? "reduced" : "not reduced");
    const ColorImagePtr picture = picture_of(two_eyes(reduced));
    const Outcome expected = expected_outcome(picture.get(), reduced);
    const int faults = sweep_faults([&] {
        RedEyeRecords records(picture.get());
        set_limits(records.rec, reduced);
        const int32_t status = run(records, 0, std::size(stages));
        EXPECT_EQ(status != KO_OK, KoTestFaultStruck() != 0);
        EXPECT_EQ(status, KoErrorGetLastError());
        EXPECT_EQ(records.rec.too_many_blobs, 0u);
        if (status == KO_OK) {
            EXPECT_EQ(outcome(records.param).numbers, expected.numbers);
            EXPECT_TRUE(same_floats(expected.map, outcome(records.param).map));
        } else {
            EXPECT_TRUE(status == KO_ERR_ALLOC || status == KO_ERR_CREATE_OBJECT) << status;
        }
    });
    EXPECT_GE(faults, at_least);
}

TEST_F(RedEyeLocateFaultTest, EveryFaultOnTheWayEndsTheSearch) {
    sweep_search(false, 3 * 3 + 3 + 2 + 1 + 2 + 7 + 1); // maps, minimum, labels, summary, flags, sub-tables, sums
    sweep_search(true, 25 + 3);
}

// No memory at all from any point on.
TEST_F(RedEyeLocateFaultTest, AnExhaustedHeapEndsTheSearch) {
    const ColorImagePtr picture = picture_of(two_eyes(true));
    int from = 1;
    for (bool struck = true; struck; ++from) {
        KoErrorGetLastError();
        KoErrorFormatMessage(KO_ERR_OPEN_READ, std::string(400, 'x').c_str()); // the message buffer is not part of the count
        const int64_t before = KoTestLiveBlocks();
        {
            const StderrCapture swallowed;
            KoStatusClear();
            RedEyeRecords records(picture.get());
            set_limits(records.rec, true);
            KoTestFailAllocationsFrom(from);
            const int32_t status = run(records, 0, std::size(stages));
            struck = KoTestFaultStruck() != 0;
            KoTestFailAllocation(0);
            EXPECT_EQ(status != KO_OK, struck) << "from allocation " << from;
        }
        KoStatusClear();
        ASSERT_EQ(KoTestLiveBlocks(), before) << "blocks left over";
    }
    EXPECT_GT(from, 25);
}

// Runs the stages before one without faults, and then that one with each fault; check sees what a failure left.
template <class Check> int sweep_stage(size_t stage, bool reduced, const Check &check) {
    const ColorImagePtr picture = picture_of(two_eyes(reduced));
    int faults = 0;
    for (bool struck = true; struck;) {
        const StderrCapture swallowed;
        RedEyeRecords records(picture.get());
        set_limits(records.rec, reduced);
        KoStatusClear();
        EXPECT_EQ(run(records, 0, stage), KO_OK);
        const RedEyeLog log(records.rec);
        KoTestFailAllocation(faults + 1);
        const int32_t status = stages[stage](&records.rec, &records.param);
        struck = KoTestFaultStruck() != 0;
        KoTestFailAllocation(0);
        EXPECT_EQ(status != KO_OK, struck);
        EXPECT_EQ(status, KoErrorGetLastError());
        if (struck) {
            check(records, log.text(), ++faults);
        }
    }
    KoStatusClear();
    return faults;
}

// The smallest side is set even when the copy could not be had.
TEST_F(RedEyeLocateFaultTest, ReducingSetsTheSmallestSideEvenIfItFails) {
    const int faults = sweep_stage(0, true, [](const RedEyeRecords &records, const std::string &log, int) {
        EXPECT_EQ(records.param.min_blob_size, 3u); // 3 divided by 1.06
        EXPECT_EQ(log, "resizing with scale factor 1.060000 \n");
        EXPECT_NE(records.param.scale, 0.0f);
        EXPECT_NE(records.param.working_image, records.param.image);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
        EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).find("Cannot create object \"ColorImage\"\n-> Cannot"), 0u);
    });
    EXPECT_GE(faults, 4);
}

TEST_F(RedEyeLocateFaultTest, MapsThatCannotBeHadAreToldOf) {
    for (const size_t stage : {size_t{1}, size_t{2}, size_t{3}}) {
        const int faults = sweep_stage(stage, false, [](const RedEyeRecords &, const std::string &log, int) {
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
            EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).find("Cannot create object \"RealImage\"\n-> Cannot"), 0u);
            EXPECT_EQ(log, "");
        });
        EXPECT_EQ(faults, 3) << "stage " << stage; // record, rows and pixels of the map
    }
}

TEST_F(RedEyeLocateFaultTest, AFailedCircularityLeavesTheMapAsItWas) {
    ReferenceRedEye eye;
    reference_downsample(eye, two_eyes(false));
    reference_reddish(eye, true);
    reference_red_lum(eye, true);
    reference_col(eye);
    const int faults = sweep_stage(4, false, [&](const RedEyeRecords &records, const std::string &, int) {
        EXPECT_TRUE(same_floats(eye.col.pixels, pixels(records.param.col_map)));
    });
    EXPECT_GE(faults, 3);
}

// Whatever failed, the map of the repair is not touched, and the tables of the stage are gone or left for the record's end.
TEST_F(RedEyeLocateFaultTest, AFailedLocationLeavesTheMapOfTheRepairAsItWas) {
    ReferenceRedEye eye;
    reference_downsample(eye, two_eyes(false));
    reference_red_lum(eye, true);
    const std::string first = "-> 3 blobs detected \n";
    std::vector<std::string> logs;
    const int faults = sweep_stage(5, false, [&](const RedEyeRecords &records, const std::string &log, int) {
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_ALLOC);
        EXPECT_TRUE(same_floats(eye.red_lum.pixels, pixels(records.param.red_lum_map)));
        EXPECT_EQ(records.param.blob_info, nullptr);
        EXPECT_EQ(records.param.labels, nullptr);
        EXPECT_EQ(records.param.label_table, nullptr);
        EXPECT_EQ(records.param.blob_count, 0);
        logs.push_back(log);
    });
    ASSERT_EQ(faults, 2 + 1 + 2 + 7 + 1);
    const auto detected = [&](size_t n) { return logs[n].substr(0, logs[n].find('\n') + 1); };
    for (size_t n = 0; n < logs.size(); ++n) {
        SCOPED_TRACE(n);
        EXPECT_EQ(logs[n].empty(), n < 3); // labels, table and summary come before the first line
        if (n < 3) {
            continue;
        }
        EXPECT_EQ(detected(n), detected(3));
        const std::string rest = logs[n].substr(detected(n).size());
        if (n < 5) { // the flags of the first test
            EXPECT_EQ(rest, "-> reduced to 0 blobs after first test \n");
        } else if (n < 12) { // the tables of the second
            EXPECT_NE(rest.find(" blobs after first test \n"), std::string::npos);
            EXPECT_EQ(rest.find("2nd"), std::string::npos);
        } else { // the sums: the second test is left out, but told of
            EXPECT_NE(rest.find("-> reduced to 0 final blobs after 2nd test \n"), std::string::npos);
        }
    }
}

// A second call replaces a map that stands there.
TEST_F(RedEyeLocateFaultTest, StagesThatAreRepeatedLoseNothing) {
    const ColorImagePtr picture = picture_of(two_eyes(false));
    KoStatusClear();
    const int64_t before = KoTestLiveBlocks();
    {
        RedEyeRecords records(picture.get());
        set_limits(records.rec, false);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(run(records, 0, 5), KO_OK);
        }
    }
    EXPECT_EQ(KoTestLiveBlocks(), before);
}

} // namespace
