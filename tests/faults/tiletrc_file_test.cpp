// The file of a grid of curves when memory runs short.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/tiletrc.h"

#include "capture.h"
#include "faults.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

using Entries = std::vector<uint32_t>;

bool struck() { return KoTestFaultStruck() != 0; }

Entries entries_of(const TileTRC *tiles) {
    return {tiles->array, tiles->array + tiles->size * tiles->numStripsX * tiles->numStripsY};
}

// A grid of 2 by 1 curves of 4 entries.
TileTRCPtr make_grid() {
    TileTRCPtr tiles(KoTileTRCNew(4, 2, 1));
    for (uint32_t i = 0; i < 8; ++i) {
        tiles->array[i] = 5 + 5 * (i % 4);
    }
    return tiles;
}

class TileTrcFileFaultTest : public LibraryTest {};

class TileTrcFormFaultTest : public TileTrcFileFaultTest, public testing::WithParamInterface<int32_t> {};

// Only the object of the tokens needs memory: without it no file is touched. Its tables are wanted when the file is open, and
// then the result speaks for the opening alone.
TEST_P(TileTrcFormFaultTest, SaveFailsBeforeTheFileOrLeavesAReport) {
    const TileTRCPtr tiles = make_grid();
    const TemporaryFile file("grid.trc");
    int refused = 0;
    const int faults = sweep_faults([&] {
        write_bytes(file.path(), "precious");
        const int32_t status = KoTileTRCSave(tiles.get(), file.c_str(), GetParam(), 1);
        refused += status != KO_OK;
        EXPECT_EQ(status, read_bytes(file.path()) == "precious" ? KO_ERR_CREATE_OBJECT : KO_OK);
        EXPECT_EQ(KoErrorGetLastError() != KO_OK, struck());
    });
    EXPECT_EQ(faults, GetParam() == KO_TILETRC_ENCODED ? 2 : 0);
    EXPECT_EQ(refused, GetParam() == KO_TILETRC_ENCODED ? 1 : 0);
    const TileTRCPtr back(KoTileTRCNew(4, 2, 1));
    EXPECT_EQ(KoTileTRCLoad(back.get(), file.c_str()), KO_OK);
    EXPECT_EQ(KoTileTRCCompare(tiles.get(), back.get()), 1);
}

// Curves that cannot be had, and whatever else a form needs, leave the grid as it was.
TEST_P(TileTrcFormFaultTest, LoadLeavesTheGridAsItWas) {
    const TileTRCPtr tiles = make_grid();
    const TemporaryFile file("grid.trc");
    KoTileTRCSave(tiles.get(), file.c_str(), GetParam(), 1);
    const int faults = sweep_faults([&] {
        const TileTRCPtr other(KoTileTRCNew(2, 1, 1));
        const bool made = other != nullptr && other->array != nullptr; // those allocations have their own test
        if (made) {
            const int32_t status = KoTileTRCLoad(other.get(), file.c_str());
            EXPECT_EQ(status, struck() ? KO_ERR_ALLOC : KO_OK);
            EXPECT_EQ(entries_of(other.get()), struck() ? Entries(2, 0) : entries_of(tiles.get()));
        }
    });
    EXPECT_GE(faults, 3);
}

TEST_P(TileTrcFormFaultTest, LoadIntoAGridOfTheseCountsLeavesItToo) {
    const TileTRCPtr tiles = make_grid();
    const TemporaryFile file("grid.trc");
    KoTileTRCSave(tiles.get(), file.c_str(), GetParam(), 1);
    const TileTRCPtr other(KoTileTRCNew(4, 2, 1));
    const uint32_t *array = other->array;
    const int faults = sweep_faults([&] {
        const int32_t status = KoTileTRCLoad(other.get(), file.c_str());
        EXPECT_EQ(status, struck() ? KO_ERR_ALLOC : KO_OK);
        EXPECT_EQ(entries_of(other.get()), struck() ? Entries(8, 0) : entries_of(tiles.get()));
        EXPECT_EQ(other->array, array);
    });
    EXPECT_TRUE(faults == 0 || GetParam() == KO_TILETRC_ENCODED);
}

INSTANTIATE_TEST_SUITE_P(Forms, TileTrcFormFaultTest, testing::Values(KO_TILETRC_TEXT, KO_TILETRC_BINARY, KO_TILETRC_ENCODED));

// A report needs memory too: without it the call still says what it has to.
TEST_F(TileTrcFileFaultTest, ReportsSurviveShortMemory) {
    const TileTRCPtr tiles = make_grid();
    const TemporaryFile text("grid.trc", "GrayLinear\nbits 2 2 1\nnothing\n");
    const TemporaryFile binary("grid.trc", "GrayLinearBinary\nbits 2 2 1\nno");
    sweep_faults([&] { EXPECT_EQ(KoTileTRCSave(tiles.get(), text.c_str(), 1, 0), KO_ERR_FILE_EXISTS); });
    sweep_faults([&] { EXPECT_EQ(KoTileTRCLoad(tiles.get(), "no such file"), KO_ERR_OPEN_READ); });
    sweep_faults([&] { EXPECT_EQ(KoTileTRCLoad(tiles.get(), text.c_str()), KO_ERR_READ_LINE); });
    sweep_faults([&] { EXPECT_EQ(KoTileTRCLoad(tiles.get(), binary.c_str()), KO_ERR_READ_FILE); });
}

} // namespace
