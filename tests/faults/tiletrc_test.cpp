// The grid of curves when memory runs short.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/tiletrc.h"

#include "capture.h"
#include "faults.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

class TileTrcFaultTest : public LibraryTest {};

bool struck() { return KoTestFaultStruck() != 0; }

TEST_F(TileTrcFaultTest, InitSucceedsWithoutAnArray) {
    const int faults = sweep_faults([] {
        TileTRC tiles{0, 0, 0, nullptr};
        EXPECT_EQ(KoTileTRCInit(&tiles, 16, 2, 3), KO_OK);
        EXPECT_EQ(tiles.array == nullptr, struck());
        EXPECT_EQ(KoErrorGetLastError(), struck() ? KO_ERR_ALLOC : KO_OK);
        EXPECT_EQ(KoTileTRCFree(&tiles), KO_OK);
    });
    EXPECT_GE(faults, 1);
}

TEST_F(TileTrcFaultTest, NewNamesTheObjectOrGivesAGridWithoutCurves) {
    const RealImagePtr image = make_image(9, 5, [](uint64_t x, uint64_t) { return static_cast<float>(x); });
    const std::vector<uint32_t> source(16, 5);
    const int faults = sweep_faults([&] {
        const TileTRCPtr tiles(KoTileTRCNew(16, 2, 3));
        if (tiles == nullptr) {
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
        } else if (struck()) {
            EXPECT_EQ(tiles->array, nullptr);
            EXPECT_EQ(KoTileTRCGetTRC(tiles.get(), 1, 1), nullptr);
            EXPECT_EQ(KoTileTRCSetTileFromArray(tiles.get(), 1, 1, source.data()), KO_ERR_NULL_POINTER);
            EXPECT_EQ(KoTileTRCCompare(tiles.get(), tiles.get()), 1);
            RealImage *result = nullptr;
            EXPECT_EQ(KoTileTRCDraw(tiles.get(), image.get(), &result), KO_ERR_NULL_POINTER);
            EXPECT_EQ(result, nullptr);
        }
    });
    EXPECT_GE(faults, 2);
}

TEST_F(TileTrcFaultTest, NewLeavesTheWholeChain) {
    StderrCapture captured;
    KoTestFailAllocation(1);
    EXPECT_EQ(KoTileTRCNew(16, 2, 3), nullptr);
    KoTestFailAllocation(0);
    captured.stop();
    expect_status(KO_ERR_CREATE_OBJECT,
                  "Cannot create object \"TileTRC\"\n-> Cannot allocate " + std::to_string(sizeof(TileTRC)) + " bytes");
}

TEST_F(TileTrcFaultTest, DrawSucceedsWithoutAnImage) {
    const TileTRCPtr tiles(KoTileTRCNew(256, 2, 3));
    const RealImagePtr image = make_image(9, 5, [](uint64_t x, uint64_t) { return static_cast<float>(x); });
    const int faults = sweep_faults([&] {
        RealImage *result = nullptr;
        EXPECT_EQ(KoTileTRCDraw(tiles.get(), image.get(), &result), KO_OK);
        EXPECT_EQ(result == nullptr, struck());
        KoRealImageDelete(result);
    });
    EXPECT_GE(faults, 3); // record, row table and pixels
}

TEST_F(TileTrcFaultTest, ReportsSurviveShortMemory) {
    const TileTRCPtr tiles(KoTileTRCNew(16, 2, 3));
    const TRCPtr trc(KoTRCNew(15));
    sweep_faults([&] { EXPECT_EQ(KoTileTRCGetTRC(tiles.get(), 2, 0), nullptr); });
    sweep_faults([&] { EXPECT_EQ(KoTileTRCSetTileFromTRC(tiles.get(), 0, 0, trc.get()), KO_ERR_INVALID_ARGUMENT); });
}

} // namespace
