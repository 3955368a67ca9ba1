// The grid of curves for three channels, and its file, when memory runs short.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/tilecolortrc.h"

#include "allocation_sweep.h"
#include "capture.h"
#include "faults.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

using Entries = std::vector<uint32_t>;

class TileColorTrcFaultTest : public LibraryTest {};

bool struck() { return KoTestFaultStruck() != 0; }

// The planes one behind the other.
Entries entries_of(const TileColorTRC *tiles) {
    const uint64_t count = tiles->size * tiles->numStripsX * tiles->numStripsY;
    Entries entries(tiles->redArray, tiles->redArray + count);
    entries.insert(entries.end(), tiles->greenArray, tiles->greenArray + count);
    entries.insert(entries.end(), tiles->blueArray, tiles->blueArray + count);
    return entries;
}

bool has_no_plane(const TileColorTRC *tiles) {
    return tiles->redArray == nullptr && tiles->greenArray == nullptr && tiles->blueArray == nullptr;
}

bool has_all_planes(const TileColorTRC *tiles) {
    return tiles->redArray != nullptr && tiles->greenArray != nullptr && tiles->blueArray != nullptr;
}

// A grid of 2 by 1 tiles of 4 entries.
TileColorTRCPtr make_grid() {
    TileColorTRCPtr tiles(KoTileColorTRCNew(4, 2, 1));
    for (uint32_t i = 0; i < 8; ++i) {
        tiles->redArray[i] = 3 - i % 4;
        tiles->greenArray[i] = i % 4;
        tiles->blueArray[i] = 100 + i;
    }
    return tiles;
}

const std::string file_of_that_grid =
    "RGBLinear\nbits 2 2 1\n3 0 100\n2 1 101\n1 2 102\n0 3 103\n3 0 104\n2 1 105\n1 2 106\n0 3 107\n";

// ---- life ----

// Three planes or none: what was had of them goes back.
TEST_F(TileColorTrcFaultTest, InitSucceedsWithoutPlanes) {
    constexpr int64_t plane = 16 * 2 * 3 * 4;
    expect_allocations({plane, plane, plane}, KO_ERR_ALLOC, "", [] {
        TileColorTRC tiles;
        std::memset(&tiles, 0x5A, sizeof tiles);
        EXPECT_EQ(KoTileColorTRCInit(&tiles, 16, 2, 3), KO_OK);
        EXPECT_EQ(tiles.size, 16u);
        EXPECT_EQ(tiles.numStripsX, 2u);
        EXPECT_EQ(tiles.numStripsY, 3u);
        const bool made = has_all_planes(&tiles);
        EXPECT_TRUE(made || has_no_plane(&tiles));
        EXPECT_EQ(KoTileColorTRCFree(&tiles), KO_OK);
        return made;
    });
}

TEST_F(TileColorTrcFaultTest, AGridWithoutStripsNeedsTheRecordAlone) {
    expect_allocations({sizeof(TileColorTRC)}, KO_ERR_CREATE_OBJECT, cannot_create("TileColorTRC"), [] {
        TileColorTRC *tiles = KoTileColorTRCNew(16, 0, 3);
        KoTileColorTRCDelete(tiles);
        return tiles != nullptr;
    });
}

TEST_F(TileColorTrcFaultTest, NewNamesTheObjectOrGivesAGridWithoutCurves) {
    const Entries source(16, 5);
    const uint32_t *array = source.data();
    int without_record = 0;
    const int faults = sweep_faults([&] {
        const TileColorTRCPtr tiles(KoTileColorTRCNew(16, 2, 3));
        if (tiles == nullptr) {
            ++without_record;
            expect_status(KO_ERR_CREATE_OBJECT, "Cannot create object \"TileColorTRC\"\n-> Cannot allocate " +
                                                    std::to_string(sizeof(TileColorTRC)) + " bytes");
        } else if (struck()) {
            EXPECT_TRUE(has_no_plane(tiles.get()));
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_ALLOC);
            EXPECT_EQ(KoTileColorTRCGetRedTRC(tiles.get(), 1, 1), nullptr);
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_NULL_POINTER);
            EXPECT_EQ(KoTileColorTRCGetGreenTRC(tiles.get(), 1, 1), nullptr);
            EXPECT_EQ(KoTileColorTRCGetBlueTRC(tiles.get(), 1, 1), nullptr);
            EXPECT_EQ(KoTileColorTRCSetTileFromArray(tiles.get(), 1, 1, array, array, array), KO_ERR_NULL_POINTER);
            EXPECT_EQ(KoTileColorTRCComposeTile(tiles.get(), 1, 1, array, array, nullptr), KO_OK);
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_NULL_POINTER);
            EXPECT_EQ(KoTileColorTRCCompare(tiles.get(), tiles.get()), 1);
            const TemporaryFile file("grid.trc");
            EXPECT_EQ(KoTileColorTRCSave(tiles.get(), file.c_str(), 1), KO_ERR_NULL_POINTER);
        }
    });
    EXPECT_EQ(faults, 4);
    EXPECT_EQ(without_record, 1);
}

// ---- composition ----

// The scratch curve is had before anything is looked at, also for a call that then changes nothing.
TEST_F(TileColorTrcFaultTest, ComposeWithoutAScratchCurveFails) {
    const Entries array{10, 11, 12, 13};
    struct Call {
        const uint32_t *red, *green, *blue;
        uint64_t x;
        int32_t status; // of the thread, with memory
    };
    for (const Call &call :
         {Call{array.data(), array.data(), nullptr, 1, KO_OK}, Call{array.data(), array.data(), array.data(), 1, KO_OK},
          Call{nullptr, nullptr, nullptr, 1, KO_OK},
          Call{array.data(), array.data(), nullptr, 2, KO_ERR_INDEX_OUT_OF_BOUNDS}}) {
        int failed = 0;
        sweep_faults([&] {
            const TileColorTRCPtr tiles(KoTileColorTRCNew(4, 2, 1));
            if (tiles == nullptr || !has_all_planes(tiles.get())) {
                return; // those allocations have their own test
            }
            const Entries before = entries_of(tiles.get());
            const int32_t status = KoTileColorTRCComposeTile(tiles.get(), call.x, 0, call.red, call.green, call.blue);
            if (status != KO_OK) {
                ++failed;
                EXPECT_EQ(status, KO_ERR_ALLOC);
                EXPECT_EQ(KoErrorGetLastError(), KO_ERR_ALLOC);
                EXPECT_EQ(entries_of(tiles.get()), before);
            } else {
                EXPECT_EQ(KoErrorGetLastError(), call.status);
                const bool composed = call.red != nullptr && call.blue == nullptr && call.status == KO_OK;
                EXPECT_EQ(entries_of(tiles.get()) != before, composed);
            }
        });
        EXPECT_EQ(failed, 1);
    }
}

// ---- file ----

TEST_F(TileColorTrcFaultTest, SaveNeedsNoMemory) {
    const TileColorTRCPtr tiles = make_grid();
    const TemporaryFile file("grid.trc");
    EXPECT_EQ(sweep_faults([&] { EXPECT_EQ(KoTileColorTRCSave(tiles.get(), file.c_str(), 1), KO_OK); }), 0);
    EXPECT_EQ(read_text(file.path()).substr(0, 30), "RGBLinear\nbits 5 2 1\n3 0 100\n2");
}

// Planes that cannot be had, one of them or all, leave the grid as it was.
TEST_F(TileColorTrcFaultTest, LoadLeavesTheGridAsItWas) {
    const TileColorTRCPtr tiles = make_grid();
    const TemporaryFile file("grid.trc", file_of_that_grid);
    int failed = 0;
    sweep_faults([&] {
        const TileColorTRCPtr other(KoTileColorTRCNew(1, 1, 1));
        if (other == nullptr || !has_all_planes(other.get())) {
            return; // those allocations have their own test
        }
        other->greenArray[0] = 7;
        const TileColorTRC before = *other;
        const int32_t status = KoTileColorTRCLoad(other.get(), file.c_str());
        if (status == KO_OK) {
            EXPECT_EQ(KoTileColorTRCCompare(other.get(), tiles.get()), 1);
        } else {
            ++failed;
            EXPECT_EQ(status, KO_ERR_ALLOC);
            EXPECT_EQ(std::memcmp(other.get(), &before, sizeof before), 0);
            EXPECT_EQ(entries_of(other.get()), (Entries{0, 7, 0}));
        }
    });
    EXPECT_EQ(failed, 3);
}

TEST_F(TileColorTrcFaultTest, LoadAsksForThreePlanes) {
    const TileColorTRCPtr tiles = make_grid();
    const TemporaryFile file("grid.trc", file_of_that_grid);
    constexpr int64_t plane = 8 * 4;
    expect_allocations({plane, plane, plane}, KO_ERR_ALLOC, "", [&] {
        TileColorTRC record{4, 0, 3, nullptr, nullptr, nullptr};
        const int32_t status = KoTileColorTRCLoad(&record, file.c_str());
        EXPECT_EQ(status, KoErrorGetLastError());
        if (status != KO_OK) {
            EXPECT_EQ(record.numStripsX, 0u);
            EXPECT_TRUE(has_no_plane(&record));
            return false;
        }
        EXPECT_EQ(KoTileColorTRCCompare(&record, tiles.get()), 1);
        EXPECT_EQ(KoTileColorTRCFree(&record), KO_OK);
        return true;
    });
}

TEST_F(TileColorTrcFaultTest, LoadIntoAGridOfTheseCountsNeedsNoMemory) {
    const TileColorTRCPtr tiles = make_grid();
    const TemporaryFile file("grid.trc", file_of_that_grid);
    const TileColorTRCPtr other(KoTileColorTRCNew(4, 2, 1));
    const uint32_t *blue = other->blueArray;
    EXPECT_EQ(sweep_faults([&] { EXPECT_EQ(KoTileColorTRCLoad(other.get(), file.c_str()), KO_OK); }), 0);
    EXPECT_EQ(KoTileColorTRCCompare(tiles.get(), other.get()), 1);
    EXPECT_EQ(other->blueArray, blue);
}

// ---- reports ----

// A report needs memory too: without it the call still says what it has to.
TEST_F(TileColorTrcFaultTest, ReportsSurviveShortMemory) {
    const TileColorTRCPtr tiles = make_grid();
    const TRCPtr good(KoTRCNew(4));
    const TRCPtr trc(KoTRCNew(3));
    const Entries array(4, 5);
    const uint32_t *source = array.data();
    const TemporaryFile file("grid.trc", "RGBLinear\nbits 2 2 1\nnothing\n");
    const auto set = [&](const TRC *green) {
        return KoTileColorTRCSetTileFromTRC(tiles.get(), 0, 0, good.get(), green, good.get());
    };
    sweep_faults([&] { EXPECT_EQ(KoTileColorTRCGetBlueTRC(tiles.get(), 2, 0), nullptr); });
    sweep_faults([&] {
        EXPECT_EQ(KoTileColorTRCSetTileFromArray(tiles.get(), 0, 1, source, source, source), KO_ERR_INDEX_OUT_OF_BOUNDS);
    });
    sweep_faults([&] { EXPECT_EQ(set(trc.get()), KO_ERR_INVALID_ARGUMENT); });
    sweep_faults([&] { EXPECT_EQ(KoTileColorTRCSave(tiles.get(), file.c_str(), 0), KO_ERR_FILE_EXISTS); });
    sweep_faults([&] { EXPECT_EQ(KoTileColorTRCLoad(tiles.get(), "no such file"), KO_ERR_OPEN_READ); });
    sweep_faults([&] { EXPECT_EQ(KoTileColorTRCLoad(tiles.get(), file.c_str()), KO_ERR_READ_LINE); });
    EXPECT_EQ(entries_of(tiles.get()), entries_of(make_grid().get()));
}

} // namespace
