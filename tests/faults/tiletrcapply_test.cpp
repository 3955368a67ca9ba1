// The application of a grid when memory runs out: only its creation allocates.
#include <string>

#include <gtest/gtest.h>

#include "faults.h"
#include "ko.h"
#include "pictures.h"

namespace {

using namespace ko_test;

class TileTRCApplyFaultTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { KoInit(nullptr, nullptr); }
    static void TearDownTestSuite() { KoRelease(); }
    void SetUp() override {
        grid_.reset(KoTileTRCNew(256, 3, 2));
        ASSERT_NE(grid_, nullptr);
    }

    TileTRCPtr grid_;
};

TEST_F(TileTRCApplyFaultTest, NewGivesNothingWithAReport) {
    const int faults = sweep_faults([&] {
        const TileTRCApplyPtr apply(
            KoTileTRCApplyNew(grid_.get(), 0.5f, nullptr, 40, 30, KO_BYTE_LAYOUT_INTERLEAVED, KO_COLORSPACE_RGB));
        EXPECT_EQ(apply == nullptr, KoTestFaultStruck() != 0);
        if (apply == nullptr) {
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
            const std::string chain = KoErrorGetLastErrorMessage();
            EXPECT_EQ(chain.find("Cannot create object \"TileTRCApplyNew\"\n-> Cannot allocate "), 0u) << chain;
        }
    });
    EXPECT_GE(faults, 3); // record, weight table, row scratch
}

TEST_F(TileTRCApplyFaultTest, InitReturnsTheStatus) {
    const int faults = sweep_faults([&] {
        TileTRCApply apply;
        const int32_t status =
            KoTileTRCApplyInit(&apply, grid_.get(), 0.5f, nullptr, 40, 30, KO_BYTE_LAYOUT_INTERLEAVED, KO_COLORSPACE_RGB);
        EXPECT_EQ(status, KoTestFaultStruck() != 0 ? KO_ERR_ALLOC : KO_OK);
        EXPECT_EQ(KoErrorGetLastError(), status);
        EXPECT_EQ(KoTileTRCApplyFree(&apply), KO_OK);
    });
    EXPECT_GE(faults, 2);
}

TEST_F(TileTRCApplyFaultTest, ChunksAllocateNothing) {
    const auto sweep = [&](uint64_t rows) {
        return sweep_faults([&] {
            std::vector<uint8_t> picture(40 * 30 * 3, 100);
            const TileTRCApplyPtr apply(
                KoTileTRCApplyNew(grid_.get(), 0.5f, nullptr, 40, 30, KO_BYTE_LAYOUT_INTERLEAVED, KO_COLORSPACE_RGB));
            if (apply != nullptr) {
                EXPECT_EQ(KoTileTRCApplyToByteChunk(apply.get(), rows, picture.data(), picture.data()), KO_OK);
            }
        });
    };
    EXPECT_EQ(sweep(30), sweep(0));
}

} // namespace
