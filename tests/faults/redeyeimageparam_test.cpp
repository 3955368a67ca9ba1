// The tables of a picture when memory runs out: all of a group are tried, what was had stays in the record, and its end gives
// everything back.
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "allocation_sweep.h"
#include "faults.h"
#include "ko.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

class RedEyeImageParamFaultTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { KoInit(nullptr, nullptr); }
    static void TearDownTestSuite() { KoRelease(); }
};

struct Param : RedEyeImageParam {
    explicit Param(ColorImage *picture = nullptr) { KoRedEyeImageParamInit(this, picture); }
    ~Param() { KoRedEyeImageParamFree(this); }
    Param(const Param &) = delete;
    Param &operator=(const Param &) = delete;
};

TEST_F(RedEyeImageParamFaultTest, NewGivesNothingWithAReport) {
    expect_allocations({240}, KO_ERR_CREATE_OBJECT, cannot_create("RedEyeImageParam"), [] {
        RedEyeImageParam *param = KoRedEyeImageParamNew(nullptr);
        const bool made = param != nullptr;
        KoRedEyeImageParamDelete(param);
        return made;
    });
}

// Which of a group's tables are there, in the order in which they are asked for.
using Present = std::vector<bool>;

Present matrix_tables(const Param &param) { return {param.labels != nullptr, param.label_table != nullptr}; }

Present sub_matrix_tables(const Param &param) {
    return {param.local_blob_info != nullptr, param.local_labels != nullptr, param.local_label_table != nullptr,
            param.root_done != nullptr,       param.overlap != nullptr,      param.blob_mask != nullptr,
            param.final_blobs != nullptr};
}

// Lets each allocation of a group fail alone: the others are there, and the status tells the size that could not be had.
template <class Allocate, class Tables>
void expect_group(const std::vector<int64_t> &sizes, const Allocate &allocate, const Tables &tables) {
    size_t n = 0;
    expect_allocations(sizes, KO_ERR_ALLOC, "", [&] {
        Param param;
        const int32_t status = allocate(&param);
        EXPECT_EQ(status, KoErrorGetLastError());
        if (n < sizes.size()) { // the sweep of single faults comes first
            Present expected(sizes.size(), true);
            expected[n] = false;
            EXPECT_EQ(tables(param), expected) << "fault " << n;
        }
        ++n;
        return status == KO_OK;
    });
}

TEST_F(RedEyeImageParamFaultTest, AllMatrixTablesAreTried) {
    expect_group(
        {30 * 4, 12 * 4}, [](Param *param) { return KoRedEyeImageParamAllocateMatrix(param, 30, 11); }, matrix_tables);
}

TEST_F(RedEyeImageParamFaultTest, AllSubMatrixTablesAreTried) {
    expect_group(
        {16 * 20, 40 * 4, 16 * 4, 10 * 4, 16 * 8, 40 * 4, 10 * 20},
        [](Param *param) { return KoRedEyeImageParamAllocateSubMatrix(param, 40, 15, 9); }, sub_matrix_tables);
}

TEST_F(RedEyeImageParamFaultTest, PatchSlotsStopAtTheFirstFailure) {
    std::vector<int64_t> sizes = {3 * 128};
    for (int slot = 0; slot < 3; ++slot) {
        sizes.push_back(2 * 20 * 4);
        sizes.push_back(2 * 20 * 4);
    }
    expect_allocations(sizes, KO_ERR_ALLOC, "", [] {
        Param param;
        param.blob_count = 3;
        const int32_t status = _KoRedEyeImageParamAllocatePatchTab(&param, 2, 20);
        EXPECT_EQ(status, KoErrorGetLastError());
        if (status != KO_OK && param.patches != nullptr) {
            bool missing = false;
            for (int i = 0; i < 3; ++i) {
                const RedEyePatch &patch = param.patches[i];
                EXPECT_FALSE(missing && patch.features != nullptr) << "slot " << i;
                missing = missing || patch.features == nullptr;
                EXPECT_FALSE(missing && patch.projected != nullptr) << "slot " << i;
                missing = missing || patch.projected == nullptr;
            }
            EXPECT_TRUE(missing);
        }
        return status == KO_OK;
    });
}

TEST_F(RedEyeImageParamFaultTest, ClassificationTablesAreWholeOrToldOf) {
    const ColorImagePtr picture(KoColorImageNew(47, 20, KO_COLORSPACE_RGB));
    const int faults = sweep_faults([&] {
        Param param(picture.get());
        param.col_map = KoRealImageNew(18, 7);
        param.blob_count = 2;
        if (param.col_map == nullptr) {
            return;
        }
        const int32_t status = KoRedEyeImageParamAllocateCls(&param, 3, 12);
        EXPECT_EQ(status, KoTestFaultStruck() != 0 ? KO_ERR_ALLOC : KO_OK);
        EXPECT_EQ(status, KoErrorGetLastError());
        if (status == KO_OK) {
            EXPECT_EQ(param.x_starts[17] + param.x_counts[17], 47u);
            EXPECT_EQ(param.y_starts[6] + param.y_counts[6], 20u);
        }
    });
    EXPECT_EQ(faults, 3 + 4 + 1 + 4); // the map, the index tables, the slots and their two vectors
}

RealImage *new_map() { return KoRealImageNew(5, 4); }

// Every owned field holds something, with two slots that have vectors.
void fill(Param &param) {
    param.reddish_map = new_map();
    param.red_lum_map = new_map();
    param.col_map = new_map();
    KoRedEyeImageParamAllocateMatrix(&param, 20, 7);
    param.blob_info = static_cast<BlobInfo *>(KoAllocClearElements(8, sizeof(BlobInfo)));
    KoRedEyeImageParamAllocateSubMatrix(&param, 20, 7, 7);
    param.blob_count = 2;
    KoRedEyeImageParamAllocateCls(&param, 3, 6);
}

TEST_F(RedEyeImageParamFaultTest, FreeGivesEverythingBackButThePicture) {
    const ColorImagePtr picture(KoColorImageNew(10, 8, KO_COLORSPACE_RGB));
    const int64_t before = KoTestLiveBlocks();
    {
        Param param(picture.get());
        param.working_image = picture.get();
        fill(param);
    }
    EXPECT_EQ(KoTestLiveBlocks(), before);
    {
        Param param(picture.get());
        param.working_image = KoColorImageNew(5, 4, KO_COLORSPACE_RGB);
        fill(param);
    }
    EXPECT_EQ(KoTestLiveBlocks(), before);
    EXPECT_EQ(KoColorImageGetSize(picture.get()), 80u);
}

TEST_F(RedEyeImageParamFaultTest, FreeingAGroupGivesItBackAtOnce) {
    Param param;
    const int64_t before = KoTestLiveBlocks();
    KoRedEyeImageParamAllocateMatrix(&param, 20, 7);
    param.blob_info = static_cast<BlobInfo *>(KoAllocClearElements(8, sizeof(BlobInfo)));
    EXPECT_EQ(KoTestLiveBlocks(), before + 3);
    KoRedEyeImageParamFreeMatrix(&param);
    EXPECT_EQ(KoTestLiveBlocks(), before);
    KoRedEyeImageParamAllocateSubMatrix(&param, 20, 7, 7);
    EXPECT_EQ(KoTestLiveBlocks(), before + 7);
    KoRedEyeImageParamFreeSubMatrix(&param);
    EXPECT_EQ(KoTestLiveBlocks(), before + 2);
}

// Starting anew forgets what the record held.
TEST_F(RedEyeImageParamFaultTest, InitForgetsAndFreesNothing) {
    Param param;
    KoRedEyeImageParamAllocateMatrix(&param, 20, 7);
    int32_t *labels = param.labels;
    uint32_t *label_table = param.label_table;
    const int64_t before = KoTestLiveBlocks();
    KoRedEyeImageParamInit(&param, nullptr);
    EXPECT_EQ(KoTestLiveBlocks(), before);
    EXPECT_EQ(param.labels, nullptr);
    KoFree(labels);
    KoFree(label_table);
}

} // namespace
