// The road from picture to repaired picture when memory runs out: the status of what could not be had, the picture untouched,
// nothing left over, and records that serve again.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture.h"
#include "faults.h"
#include "files.h"
#include "ko.h"
#include "pictures.h"
#include "redeye_model.h"
#include "redeye_scene.h"

namespace {

using namespace ko_test;

class RedEyePipelineFaultTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { KoInit(nullptr, nullptr); }
    static void TearDownTestSuite() { KoRelease(); }
};

void restore(ColorImage *picture, const RedEyePlanes &planes) {
    for (uint32_t c = 0; c < 3; ++c) {
        for (uint64_t y = 0; y < planes[c].height; ++y) {
            KoRealImageSetRow(&picture->planes[c], y, planes[c].pixels.data() + y * planes[c].width);
        }
    }
}

// Nothing is rejected, so that each blob is repaired.
ModelConfiguration lenient_configuration() {
    ModelConfiguration configuration = tiny_configuration();
    configuration.fe_reject = configuration.be_reject = 0.0;
    return configuration;
}

// A picture, its model, and what an undisturbed run makes of them.
struct Case {
    Case(uint32_t width, uint32_t height, const std::vector<Pupil> &pupils, uint64_t budget)
        : files(make_model(2, 1, lenient_configuration())), picture(eye_picture(width, height, pupils, 1)),
          max_image_size(budget), before(planes_of(picture.get())) {
        RedEyeImageParam param;
        const RedEyeCorrectionPtr rec = make();
        EXPECT_EQ(KoRedEyeCorrectionProcessImage(rec.get(), &param, picture.get()), KO_OK);
        patches = rec->orientation_histogram->patch_count;
        after = planes_of(picture.get());
        EXPECT_FALSE(after == before);
        restore(picture.get(), before);
        KoRedEyeImageParamFree(&param);
    }
    RedEyeCorrectionPtr make() const {
        RedEyeCorrectionPtr rec(KoRedEyeCorrectionNew());
        if (rec != nullptr) {
            KoRedEyeCorrectionSetCategorizerConfig(rec.get(), files.configuration().c_str(), nullptr, nullptr);
            KoRedEyeCorrectionEnableHistogramChannel(rec.get(), 1, 1, 0);
            rec->max_image_size = max_image_size;
        }
        return rec;
    }
    // Runs once more, with nothing to fail, and puts the picture back.
    void expect_whole(RedEyeCorrection *rec) const {
        RedEyeImageParam param;
        KoStatusClear();
        EXPECT_EQ(KoRedEyeCorrectionProcessImage(rec, &param, picture.get()), KO_OK);
        EXPECT_TRUE(planes_of(picture.get()) == after);
        EXPECT_EQ(rec->orientation_histogram->patch_count, patches);
        restore(picture.get(), before);
        KoRedEyeImageParamFree(&param);
    }

    ModelFiles files;
    ColorImagePtr picture;
    uint64_t max_image_size;
    RedEyePlanes before;
    RedEyePlanes after;
    int32_t patches = 0;
};

void expect_untouched(const Case &c, RedEyeCorrection *rec, RedEyeImageParam *param, int32_t status) {
    EXPECT_EQ(status, KoErrorGetLastError());
    const std::string chain = KoErrorGetLastErrorMessage();
    if (status == KO_ERR_NULL_POINTER) { // the images of a patch are missed by who uses them
        const std::string missed =
            "[INTERNAL ERROR] Null pointer error\n-> Cannot create object \"RealImage\"\n-> Cannot allocate ";
        EXPECT_NE(param->patches, nullptr);
        EXPECT_TRUE(chain.empty() || chain.compare(0, missed.size(), missed) == 0) << chain; // empty without any memory
    } else {
        EXPECT_TRUE(status == KO_ERR_ALLOC || status == KO_ERR_CREATE_OBJECT) << status << ": " << chain;
    }
    EXPECT_EQ(param->image, c.picture.get());
    EXPECT_TRUE(planes_of(c.picture.get()) == c.before);
    // What can be asked of the records afterwards stays inside its objects.
    constexpr int32_t colours[] = {1, 2, 3};
    KoRedEyeCorrectionAddPatchBoundingBoxes(rec, param, c.picture.get(), 1, colours, 3);
    KoRedEyeCorrectionApply(rec, param, 1, c.picture.get());
    restore(c.picture.get(), c.before);
}

// Lets each allocation of a run fail in turn. Gives their number.
int sweep_case(const Case &c) {
    return sweep_faults([&] {
        const RedEyeCorrectionPtr rec = c.make();
        const RedEyeImageParamPtr param(rec != nullptr ? KoRedEyeImageParamNew(nullptr) : nullptr);
        if (rec == nullptr || param == nullptr) {
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
            return;
        }
        const int32_t status = KoRedEyeCorrectionProcessImage(rec.get(), param.get(), c.picture.get());
        EXPECT_EQ(status != KO_OK, KoTestFaultStruck() != 0);
        if (status == KO_OK) {
            EXPECT_TRUE(planes_of(c.picture.get()) == c.after);
            restore(c.picture.get(), c.before);
            return;
        }
        expect_untouched(c, rec.get(), param.get(), status);
        c.expect_whole(rec.get());
    });
}

// No memory at all from the n-th allocation on. The first two would leave no record.
void exhaust_case(const Case &c, int faults) {
    for (int from = 1; from <= faults - 2; ++from) {
        SCOPED_TRACE(testing::Message() << "from allocation " << from);
        const int64_t live = KoTestLiveBlocks();
        {
            const RedEyeCorrectionPtr rec = c.make();
            const RedEyeImageParamPtr param(KoRedEyeImageParamNew(nullptr));
            int32_t status = KO_OK;
            {
                const StderrCapture swallowed;
                KoStatusClear();
                KoTestFailAllocationsFrom(from);
                status = KoRedEyeCorrectionProcessImage(rec.get(), param.get(), c.picture.get());
                KoTestFailAllocation(0);
            }
            EXPECT_NE(status, KO_OK);
            expect_untouched(c, rec.get(), param.get(), status);
            c.expect_whole(rec.get());
        }
        KoStatusClear();
        EXPECT_EQ(KoTestLiveBlocks(), live);
    }
}

TEST_F(RedEyePipelineFaultTest, AFaultAnywhereLeavesThePicture) {
    const Case whole(120, 115, {{45, 44, 4}, {83, 70, 5}, {6, 60, 4}}, 1000000);
    EXPECT_EQ(whole.patches, 2);
    const int faults = sweep_case(whole);
    EXPECT_GE(faults, 60);
    exhaust_case(whole, faults);
}

TEST_F(RedEyePipelineFaultTest, AFaultAnywhereLeavesAReducedPicture) {
    const Case reduced(340, 334, {{145, 144, 8}, {250, 200, 9}}, 111500);
    EXPECT_EQ(reduced.patches, 2);
    EXPECT_GE(sweep_case(reduced), 65);
}

// Repeated readings let go of the model before.
TEST_F(RedEyePipelineFaultTest, RepeatedRunsPileNothingUp) {
    const Case whole(120, 115, {{45, 44, 4}, {83, 70, 5}}, 1000000);
    const RedEyeCorrectionPtr rec = whole.make();
    whole.expect_whole(rec.get());
    const int64_t live = KoTestLiveBlocks();
    for (int run = 0; run < 5; ++run) {
        whole.expect_whole(rec.get());
        EXPECT_EQ(KoTestLiveBlocks(), live);
    }
    for (const std::string &path : {whole.files.be(), whole.files.projection(), whole.files.configuration()}) {
        write_bytes(path, read_bytes(path).substr(0, 10));
        const RedEyeImageParamPtr param(KoRedEyeImageParamNew(nullptr));
        KoStatusClear();
        const StderrCapture swallowed;
        EXPECT_NE(KoRedEyeCorrectionProcessImage(rec.get(), param.get(), whole.picture.get()), KO_OK);
        EXPECT_TRUE(planes_of(whole.picture.get()) == whole.before);
    }
    KoStatusClear();
    EXPECT_LE(KoTestLiveBlocks(), live);
}

// A patch that failed counts as used: the log tells of it, and of no later one.
TEST_F(RedEyePipelineFaultTest, APatchThatFailedIsLoggedAsUndecided) {
    const Case whole(120, 115, {{45, 44, 4}, {83, 70, 5}}, 1000000);
    std::vector<std::string> logs;
    sweep_faults([&] {
        const RedEyeCorrectionPtr rec = whole.make();
        const RedEyeImageParamPtr param(rec != nullptr ? KoRedEyeImageParamNew(nullptr) : nullptr);
        if (param == nullptr) {
            return;
        }
        const RedEyeLog log(*rec);
        const int32_t status = KoRedEyeCorrectionProcessImage(rec.get(), param.get(), whole.picture.get());
        restore(whole.picture.get(), whole.before);
        const std::string text = log.text();
        const size_t judged = text.find("-> patch classification");
        if (status == KO_OK || judged == std::string::npos) {
            return;
        }
        if (std::find(logs.begin(), logs.end(), text.substr(judged)) == logs.end()) {
            logs.push_back(text.substr(judged));
        }
        const uint64_t counted = param->accepted_count + param->rejected_count + param->undecided_count;
        EXPECT_LE(counted, 2u);
        if (counted < 2 && param->patches != nullptr && rec->orientation_histogram != nullptr) {
            EXPECT_EQ(rec->orientation_histogram->patch_count, 1);
        }
    });
    const std::string nothing = "-> patch classification results: 0 accepted, 0 rejected, and 0 undecided patches \n";
    ASSERT_GE(logs.size(), 3u);
    EXPECT_EQ(logs[0], nothing);                               // in the reading
    EXPECT_EQ(logs[1].compare(0, nothing.size(), nothing), 0); // in the first patch
    EXPECT_NE(logs[1].find("Patch 0 (undecided): "), std::string::npos);
    EXPECT_EQ(logs[1].find("Patch 1"), std::string::npos);
    EXPECT_NE(logs[2].find("Patch 1 (undecided): "), std::string::npos); // in the second
    EXPECT_NE(logs[2].compare(0, nothing.size(), nothing), 0);
}

} // namespace
