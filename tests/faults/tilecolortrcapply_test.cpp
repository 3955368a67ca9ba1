// The application of a grid of three-channel curves when memory runs out: only the making of the record allocates.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture.h"
#include "faults.h"
#include "ko.h"
#include "pictures.h"

namespace {

using namespace ko_test;

constexpr uint64_t width = 40;
constexpr uint64_t height = 30;
constexpr int32_t interleaved = KO_BYTE_LAYOUT_INTERLEAVED;

class TileColorTRCApplyFaultTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { KoInit(nullptr, nullptr); }
    static void TearDownTestSuite() { KoRelease(); }
    void SetUp() override {
        grid_.reset(KoTileColorTRCNew(256, 3, 2));
        ASSERT_NE(grid_, nullptr);
        ASSERT_NE(grid_->blueArray, nullptr);
        KoStatusClear();
    }

    TileColorTRCPtr grid_;
};

TEST_F(TileColorTRCApplyFaultTest, NewGivesNothingWithAReport) {
    const TileColorTRC *grids[] = {grid_.get(), nullptr};
    for (const TileColorTRC *grid : grids) {
        const int faults = sweep_faults([&] {
            const TileColorTRCApplyPtr apply(KoTileColorTRCApplyNew(grid, width, height, interleaved));
            EXPECT_EQ(apply == nullptr, KoTestFaultStruck() != 0);
            if (apply == nullptr) {
                EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
                EXPECT_STREQ(KoErrorGetLastErrorMessage(),
                             "Cannot create object \"TileColorTRCApply\"\n-> Cannot allocate 88 bytes");
            }
        });
        EXPECT_EQ(faults, 1); // the record
    }
}

TEST_F(TileColorTRCApplyFaultTest, ARefusalSurvivesAFailedReport) {
    const int faults = sweep_faults([&] {
        const TileColorTRCApplyPtr apply(KoTileColorTRCApplyNew(grid_.get(), 1, height, interleaved));
        EXPECT_EQ(apply, nullptr);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
    });
    EXPECT_GE(faults, 3); // record, and what the report takes
}

TEST_F(TileColorTRCApplyFaultTest, InitAllocatesNothing) {
    KoTestFailAllocationsFrom(1);
    TileColorTRCApply apply;
    EXPECT_EQ(KoTileColorTRCApplyInit(&apply, grid_.get(), width, height, interleaved), KO_OK);
    EXPECT_EQ(KoTileColorTRCApplyFree(&apply), KO_OK);
    EXPECT_FALSE(KoTestFaultStruck());
    KoTestFailAllocation(0);
}

TEST_F(TileColorTRCApplyFaultTest, ChunksAllocateNothing) {
    for (int32_t layout = 0; layout < 3; ++layout) {
        for (const uint64_t rows : {uint64_t{1}, uint64_t{7}, height}) {
            std::vector<uint8_t> picture(width * height * 3, 100);
            const uint64_t row_bytes = layout == KO_BYTE_LAYOUT_PLANAR ? width : width * 3;
            const TileColorTRCApplyPtr apply(KoTileColorTRCApplyNew(grid_.get(), width, height, layout));
            ASSERT_NE(apply, nullptr);
            KoTestFailAllocationsFrom(1);
            for (uint64_t row = 0; row < height; row += rows) {
                uint8_t *chunk = picture.data() + row * row_bytes;
                EXPECT_EQ(KoTileColorTRCApplyToByteChunk(apply.get(), rows, chunk, chunk), KO_OK);
            }
            EXPECT_FALSE(KoTestFaultStruck());
            KoTestFailAllocation(0);
            EXPECT_EQ(picture[0], 0); // the curves are cleared
            EXPECT_EQ(apply->rowsDone, height);
        }
    }
}

TEST_F(TileColorTRCApplyFaultTest, ARecordWithoutAGridStillRefusesChunks) {
    uint8_t pixel[3] = {1, 2, 3};
    const int faults = sweep_faults([&] {
        const TileColorTRCApplyPtr apply(KoTileColorTRCApplyNew(nullptr, width, height, interleaved));
        if (apply != nullptr) {
            EXPECT_EQ(KoTileColorTRCApplyToByteChunk(apply.get(), 1, pixel, pixel), KO_ERR_INVALID_ARGUMENT);
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INVALID_ARGUMENT);
        }
    });
    EXPECT_GE(faults, 2);
    EXPECT_EQ(pixel[0], 1);
}

} // namespace
