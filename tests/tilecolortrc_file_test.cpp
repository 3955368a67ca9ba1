// The file of a grid of curves for three channels.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "ko/tilecolortrc.h"

#include "allocator_lines.h"
#include "capture.h"
#include "curve_texts.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

using Entries = std::vector<uint32_t>;

class TileColorTrcFileTest : public LibraryTest {};

uint64_t entry_count(const TileColorTRC *tiles) { return tiles->size * tiles->numStripsX * tiles->numStripsY; }

// The entries as the file holds them: red, green and blue of an index, for every index of every tile.
Entries entries_of(const TileColorTRC *tiles) {
    Entries entries;
    for (uint64_t i = 0; i < entry_count(tiles); ++i) {
        entries.insert(entries.end(), {tiles->redArray[i], tiles->greenArray[i], tiles->blueArray[i]});
    }
    return entries;
}

TileColorTRCPtr make_grid(uint64_t size, uint64_t strips_x, uint64_t strips_y, const Entries &entries) {
    TileColorTRCPtr tiles(KoTileColorTRCNew(size, strips_x, strips_y));
    for (uint64_t i = 0; i < entry_count(tiles.get()); ++i) {
        tiles->redArray[i] = entries[3 * i];
        tiles->greenArray[i] = entries[3 * i + 1];
        tiles->blueArray[i] = entries[3 * i + 2];
    }
    return tiles;
}

// A grid of which every entry is value.
TileColorTRCPtr filled_grid(uint64_t size, uint64_t strips_x, uint64_t strips_y, uint32_t value) {
    return make_grid(size, strips_x, strips_y, Entries(3 * size * strips_x * strips_y, value));
}

std::array<const uint32_t *, 3> planes_of(const TileColorTRC *tiles) {
    return {tiles->redArray, tiles->greenArray, tiles->blueArray};
}

bool has_no_plane(const TileColorTRC *tiles) { return planes_of(tiles) == std::array<const uint32_t *, 3>{}; }

std::string saved(const TileColorTRC *tiles) {
    const TemporaryFile file("grid.trc");
    expect_success([&] { return KoTileColorTRCSave(tiles, file.c_str(), 0); });
    return read_text(file.path());
}

void expect_grid(const TileColorTRC *tiles, uint64_t size, uint64_t strips_x, uint64_t strips_y, const Entries &entries) {
    EXPECT_EQ(tiles->size, size);
    EXPECT_EQ(tiles->numStripsX, strips_x);
    EXPECT_EQ(tiles->numStripsY, strips_y);
    EXPECT_EQ(entries_of(tiles), entries);
}

// A file whose number of bits was put right by its owner.
std::string with_bits(const std::string &text, uint32_t bits) {
    const size_t start = std::string("RGBLinear\nbits ").size();
    return text.substr(0, start) + std::to_string(bits) + text.substr(text.find(' ', start));
}

// ---- saving ----

TEST_F(TileColorTrcFileTest, HasOneIndexALineInGridOrder) {
    const TileColorTRCPtr tiles =
        make_grid(2, 2, 3, {0,  100, 200, 1,  101, 201, 2,  102, 202, 3,  103, 203, 4,  104, 204, 5,  105, 205,
                            10, 110, 210, 11, 111, 211, 12, 112, 212, 13, 113, 213, 14, 114, 214, 15, 115, 215});
    KoTileColorTRCSetTileFromArray(tiles.get(), 1, 0, Entries{7, 8}.data(), Entries{17, 18}.data(), Entries{27, 28}.data());
    EXPECT_EQ(saved(tiles.get()), "RGBLinear\nbits 2 2 3\n0 100 200\n1 101 201\n7 17 27\n8 18 28\n4 104 204\n5 105 205\n"
                                  "10 110 210\n11 111 211\n12 112 212\n13 113 213\n14 114 214\n15 115 215\n");
}

TEST_F(TileColorTrcFileTest, HasSigned32BitNumbers) {
    const TileColorTRCPtr tiles = make_grid(1, 2, 1, {2147483647u, 2147483648u, 4294967295u, 0, 65536, 1});
    EXPECT_EQ(saved(tiles.get()), "RGBLinear\nbits 1 2 1\n2147483647 -2147483648 -1\n0 65536 1\n");
}

// The number of bits is the size over the natural logarithm of 2 and not the logarithm of the size: see "The bits of a colour
// grid" in docs/compatibility.md.
TEST_F(TileColorTrcFileTest, TheBitsAreNoLogarithm) {
    for (const auto &[size, bits] : std::vector<std::pair<uint64_t, std::string>>{{1, "1"},
                                                                                  {2, "2"},
                                                                                  {3, "4"},
                                                                                  {4, "5"},
                                                                                  {16, "23"},
                                                                                  {255, "367"},
                                                                                  {256, "369"},
                                                                                  {1024, "1477"},
                                                                                  {65536, "94548"}}) {
        const TileColorTRCPtr tiles = filled_grid(size, 1, 1, 7);
        const std::string text = saved(tiles.get());
        const std::string header = "RGBLinear\nbits " + bits + " 1 1\n";
        EXPECT_EQ(text.substr(0, header.size()), header);
        EXPECT_EQ(text.size(), header.size() + size * std::string("7 7 7\n").size());
    }
}

TEST_F(TileColorTrcFileTest, AGridWithoutStripsIsAHeader) {
    for (const auto &[x, y] : std::vector<std::pair<uint64_t, uint64_t>>{{0, 4}, {3, 0}, {0, 0}}) {
        const TileColorTRCPtr tiles(KoTileColorTRCNew(256, x, y));
        EXPECT_EQ(saved(tiles.get()), "RGBLinear\nbits 369 " + std::to_string(x) + " " + std::to_string(y) + "\n");
    }
}

TEST_F(TileColorTrcFileTest, SaveWithoutTheFlagLeavesAFileAlone) {
    const TileColorTRCPtr tiles = make_grid(1, 1, 1, {3, 9, 5});
    const std::string expected = saved(tiles.get());
    const TemporaryFile file("grid.trc", "precious");
    expect_error(KO_ERR_FILE_EXISTS, "File \"" + file.path() + "\" already exists",
                 [&] { return KoTileColorTRCSave(tiles.get(), file.c_str(), 0); });
    EXPECT_EQ(read_bytes(file.path()), "precious");
    for (const int32_t overwrite : {1, -1, 256}) {
        write_bytes(file.path(), "something that is longer than the file that takes its place");
        expect_success([&] { return KoTileColorTRCSave(tiles.get(), file.c_str(), overwrite); });
        EXPECT_EQ(read_text(file.path()), expected);
    }
}

TEST_F(TileColorTrcFileTest, SaveThatCannotOpenWritesNoLine) {
    const TileColorTRCPtr tiles = make_grid(1, 1, 1, {3, 9, 5});
    const std::string path = temporary_path("folder") + "/grid.trc";
    StderrCapture captured;
    for (const int32_t overwrite : {0, 1}) {
        expect_error(KO_ERR_OPEN_WRITE, "Cannot open file \"" + path + "\" for writing",
                     [&] { return KoTileColorTRCSave(tiles.get(), path.c_str(), overwrite); });
    }
    EXPECT_EQ(captured.stop(), "");
}

TEST_F(TileColorTrcFileTest, SaveRefusesAGridWithoutCurves) {
    const TileColorTRCPtr tiles(KoTileColorTRCNew(4, 2, 2));
    KoTileColorTRCFree(tiles.get());
    const TemporaryFile file("grid.trc");
    expect_error(KO_ERR_NULL_POINTER, "Null pointer error", [&] { return KoTileColorTRCSave(tiles.get(), file.c_str(), 1); });
}

TEST_F(TileColorTrcFileTest, TheBitsAreFormedInDoublePrecision) {
    const TileColorTRCPtr tiles(KoTileColorTRCNew(1000000007, 0, 2));
    EXPECT_EQ(saved(tiles.get()), "RGBLinear\nbits 1442695050 0 2\n");
}

// Without strips any size is a size; what its header says then is nobody's promise.
TEST_F(TileColorTrcFileTest, SaveOfAnAbsurdSizeIsAHeader) {
    for (const uint64_t size : {uint64_t{0}, uint64_t{1} << 31, UINT64_MAX}) {
        const TileColorTRCPtr tiles(KoTileColorTRCNew(size, 0, 1));
        const std::string text = saved(tiles.get());
        EXPECT_EQ(text.substr(0, 15), "RGBLinear\nbits ");
        EXPECT_EQ(text.substr(text.find(' ', 15)), " 0 1\n");
    }
    const TileColorTRCPtr no_entries(KoTileColorTRCNew(0, 3, 2));
    EXPECT_EQ(saved(no_entries.get()), "RGBLinear\nbits 0 3 2\n");
}

#ifdef __linux__

// The result speaks for the opening alone.
TEST_F(TileColorTrcFileTest, AFullDeviceIsNotTold) {
    const TileColorTRCPtr tiles = filled_grid(4096, 2, 2, 123456);
    expect_success([&] { return KoTileColorTRCSave(tiles.get(), "/dev/full", 1); });
}

#endif

// ---- from one to the other ----

// Loads bytes into a grid of other counts.
TileColorTRCPtr loaded(const std::string &bytes) {
    const TemporaryFile file("grid.trc", bytes);
    TileColorTRCPtr tiles = filled_grid(2, 1, 1, 777);
    expect_success([&] { return KoTileColorTRCLoad(tiles.get(), file.c_str()); });
    return tiles;
}

// The number of bits that is written is not the one that is read: 369 modulo 32 is 17, so the file is far too short.
TEST_F(TileColorTrcFileTest, ASavedFileDoesNotComeBack) {
    const Entries entries = noise_entries(3 * 256 * 2, 65536, 1);
    const TileColorTRCPtr tiles = make_grid(256, 2, 1, entries);
    const TemporaryFile file("grid.trc");
    KoTileColorTRCSave(tiles.get(), file.c_str(), 0);
    const TileColorTRCPtr back = filled_grid(256, 2, 1, 777);
    const std::string place = "\"" + file.path() + "\", line 515"; // two lines of header, 512 of entries
    StderrCapture captured;
    expect_error(KO_ERR_READ_LINE, "Read error in file " + place, [&] { return KoTileColorTRCLoad(back.get(), file.c_str()); });
    EXPECT_EQ(captured.stop(), "[ERROR] " + place + ": can't read file\n");
    Entries expected = entries;
    expected.resize(3 * 131072 * 2, 0);
    expect_grid(back.get(), 131072, 2, 1, expected);
}

TEST_F(TileColorTrcFileTest, ASavedFileWithItsBitsPutRightComesBack) {
    for (uint32_t bits = 0; bits <= 10; bits += 2) {
        const uint64_t size = uint64_t{1} << bits;
        const TileColorTRCPtr tiles = make_grid(size, 5, 3, noise_entries(3 * 15 * size, 4294967295u, bits));
        const TileColorTRCPtr back = loaded(with_bits(saved(tiles.get()), bits));
        EXPECT_EQ(KoTileColorTRCCompare(tiles.get(), back.get()), 1) << size << " entries";
        expect_grid(back.get(), size, 5, 3, entries_of(tiles.get()));
    }
}

TEST_F(TileColorTrcFileTest, AGridWithoutStripsComesBack) {
    for (const auto &[x, y] : std::vector<std::pair<uint64_t, uint64_t>>{{0, 4}, {3, 0}, {0, 0}}) {
        const TileColorTRCPtr tiles(KoTileColorTRCNew(256, x, y));
        const TileColorTRCPtr back = loaded(with_bits(saved(tiles.get()), 8));
        EXPECT_TRUE(has_no_plane(back.get()));
        EXPECT_EQ(KoTileColorTRCCompare(tiles.get(), back.get()), 1);
    }
}

// ---- loading ----

struct GoodFile {
    const char *name;
    std::string bytes;
    Entries entries; // of two tiles of two indices
};

class TileColorTrcGoodFiles : public TileColorTrcFileTest, public testing::WithParamInterface<GoodFile> {};

TEST_P(TileColorTrcGoodFiles, AreReadInGridOrder) {
    const TileColorTRCPtr tiles = loaded(GetParam().bytes);
    expect_grid(tiles.get(), 2, 2, 1, GetParam().entries);
}

// The same counts overwrite the entries where they are.
TEST_P(TileColorTrcGoodFiles, KeepPlanesThatFit) {
    const TemporaryFile file("grid.trc", GetParam().bytes);
    const TileColorTRCPtr tiles = filled_grid(2, 2, 1, 777);
    const std::array<const uint32_t *, 3> planes = planes_of(tiles.get());
    expect_success([&] { return KoTileColorTRCLoad(tiles.get(), file.c_str()); });
    EXPECT_EQ(planes_of(tiles.get()), planes);
    EXPECT_EQ(entries_of(tiles.get()), GetParam().entries);
}

TEST_P(TileColorTrcGoodFiles, ReplaceAGridOfOtherCounts) {
    const TemporaryFile file("grid.trc", GetParam().bytes);
    for (const auto &[size, x, y] : std::vector<std::tuple<uint64_t, uint64_t, uint64_t>>{
             {4, 1, 1}, {1, 2, 2}, {2, 1, 2}, {2, 2, 2}, {256, 8, 8}, {2, 0, 1}}) {
        const TileColorTRCPtr tiles(KoTileColorTRCNew(size, x, y));
        expect_success([&] { return KoTileColorTRCLoad(tiles.get(), file.c_str()); });
        expect_grid(tiles.get(), 2, 2, 1, GetParam().entries);
    }
}

TEST_P(TileColorTrcGoodFiles, FillAGridWithoutCurves) {
    const TemporaryFile file("grid.trc", GetParam().bytes);
    const TileColorTRCPtr tiles(KoTileColorTRCNew(2, 2, 1));
    KoTileColorTRCFree(tiles.get());
    expect_success([&] { return KoTileColorTRCLoad(tiles.get(), file.c_str()); });
    ASSERT_FALSE(has_no_plane(tiles.get()));
    EXPECT_EQ(entries_of(tiles.get()), GetParam().entries);
}

INSTANTIATE_TEST_SUITE_P(
    ByHand, TileColorTrcGoodFiles,
    testing::Values(GoodFile{"Plain",
                             "RGBLinear\nbits 1 2 1\n5 15 25\n60000 16 26\n7 17 27\n8 18 28\n",
                             {5, 15, 25, 60000, 16, 26, 7, 17, 27, 8, 18, 28}},
                    GoodFile{"Oddities",
                             "RGBLinear\nbits 33 2 1 more\n 5\t15  25 words\n-1 +2 003\n7 17 27 37\n8 18 28 not read\nnot read",
                             {5, 15, 25, 4294967295u, 2, 3, 7, 17, 27, 8, 18, 28}},
                    // only the beginning of line 1 is compared
                    GoodFile{"LongerWord",
                             "RGBLinearBinary\nbits 1 2 1\n1 2 3\n4 5 6\n7 8 9\n10 11 12",
                             {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}},
                    GoodFile{"CarriageReturns",
                             "RGBLinear\r\nbits 1 2 1\r\n1 2 3\r\n4 5 6\r\n7 8 9\r\n10 11 12\r\n",
                             {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}}),
    [](const auto &each) { return std::string(each.param.name); });

TEST_F(TileColorTrcFileTest, TilesFollowOneAnotherByRows) {
    const TileColorTRCPtr tiles = loaded("RGBLinear\nbits 0 2 2\n1 2 3\n4 5 6\n7 8 9\n10 11 12\n");
    EXPECT_EQ(*KoTileColorTRCGetRedTRC(tiles.get(), 1, 0), 4u);
    EXPECT_EQ(*KoTileColorTRCGetGreenTRC(tiles.get(), 0, 1), 8u);
    EXPECT_EQ(*KoTileColorTRCGetBlueTRC(tiles.get(), 1, 1), 12u);
}

TEST_F(TileColorTrcFileTest, LoadTakesTheBitsModulo32) {
    expect_grid(loaded("RGBLinear\nbits 32 1 2\n7 8 9\n4 5 6\n").get(), 1, 1, 2, {7, 8, 9, 4, 5, 6});
    expect_grid(loaded("RGBLinear\nbits 65 1 1\n1 2 3\n4 5 6\n").get(), 2, 1, 1, {1, 2, 3, 4, 5, 6});
}

struct BadFile {
    const char *name;
    std::string bytes;
    int line;
    const char *told; // behind the place, on the standard error stream: never the line itself
    Entries kept;     // of a grid of two tiles of two indices, all entries 77
};

const Entries untouched(12, 77);

class TileColorTrcBadFiles : public TileColorTrcFileTest, public testing::WithParamInterface<BadFile> {};

TEST_P(TileColorTrcBadFiles, AreToldAndKeepWhatWasRead) {
    const BadFile &bad = GetParam();
    const TemporaryFile file("grid.trc", bad.bytes);
    const TileColorTRCPtr tiles = filled_grid(2, 2, 1, 77);
    const std::string place = "\"" + file.path() + "\", line " + std::to_string(bad.line);
    StderrCapture captured;
    expect_error(KO_ERR_READ_LINE, "Read error in file " + place,
                 [&] { return KoTileColorTRCLoad(tiles.get(), file.c_str()); });
    EXPECT_EQ(captured.stop(), "[ERROR] " + place + ": " + bad.told + "\n");
    Entries kept = entries_of(tiles.get());
    ASSERT_EQ(kept.size(), bad.kept.size());
    for (size_t i = 0; i < kept.size(); ++i) {
        const size_t index = static_cast<size_t>(bad.line) - 3; // of the bad line, part of which may have been scanned
        EXPECT_TRUE(kept[i] == bad.kept[i] || (i / 3 == index && kept[i] < 10)) << "entry " << i;
    }
}

const char *const bad_header = "Invalid value, must be bits <bit per pixel> <num strips X> <num strips Y>";
const char *const bad_entry = "Invalid value, <RED> <GREEN> <BLUE>";

INSTANTIATE_TEST_SUITE_P(
    ByHand, TileColorTrcBadFiles,
    testing::Values(
        BadFile{"Empty", "", 1, "can't read file", untouched},
        BadFile{"Word", "RGBLinea\nbits 1 2 1\n1 2 3\n", 1, "Invalid value, must be RGBLinear", untouched},
        BadFile{"OtherWord", "GrayLinear\nbits 1 2 1\n1 2 3\n", 1, "Invalid value, must be RGBLinear", untouched},
        BadFile{"BlankFirst", "\nRGBLinear\nbits 1 2 1\n", 1, "Invalid value, must be RGBLinear", untouched},
        BadFile{"NoBits", "RGBLinear\n", 2, "can't read file", untouched},
        BadFile{"NoStrips", "RGBLinear\nbits 1\n", 2, bad_header, untouched},
        BadFile{"OneStripCount", "RGBLinear\nbits 1 2\n", 2, bad_header, untouched},
        BadFile{"BadStrips", "RGBLinear\nbits 1 2 x\n", 2, bad_header, untouched},
        BadFile{"BlankHeader", "RGBLinear\n\nbits 1 2 1\n", 2, bad_header, untouched},
        BadFile{"Missing", "RGBLinear\nbits 1 2 1\n", 3, "can't read file", untouched},
        BadFile{"Short",
                "RGBLinear\nbits 1 2 1\n1 2 3\n4 5 6\n7 8 9\n",
                6,
                "can't read file",
                {1, 2, 3, 4, 5, 6, 7, 8, 9, 77, 77, 77}},
        BadFile{"Bad",
                "RGBLinear\nbits 1 2 1\n1 2 3\nfour 5 6\n7 8 9\n1 2 3\n",
                4,
                bad_entry,
                {1, 2, 3, 77, 77, 77, 77, 77, 77, 77, 77, 77}},
        BadFile{"TwoNumbers",
                "RGBLinear\nbits 1 2 1\n1 2 3\n4 5 6\n7 8\n9\n",
                5,
                bad_entry,
                {1, 2, 3, 4, 5, 6, 77, 77, 77, 77, 77, 77}},
        BadFile{"Blank",
                "RGBLinear\nbits 1 2 1\n1 2 3\n\n4 5 6\n7 8 9\n",
                4,
                bad_entry,
                {1, 2, 3, 77, 77, 77, 77, 77, 77, 77, 77, 77}},
        BadFile{"NewCounts", "RGBLinear\nbits 2 1 1\n1 2 3\n", 4, "can't read file", {1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0}}),
    [](const auto &each) { return std::string(each.param.name); });

TEST_F(TileColorTrcFileTest, AFileOf4By3TilesNeeds3072Lines) {
    std::string text = "RGBLinear\nbits 8 4 3\n";
    for (int i = 0; i < 3071; ++i) {
        const std::string number = std::to_string(i % 1000);
        text += number + " 1" + number + " 2" + number + "\n";
    }
    const TemporaryFile file("grid.trc", text);
    const TileColorTRCPtr tiles = filled_grid(256, 4, 3, 77);
    const std::string place = "\"" + file.path() + "\", line 3074";
    StderrCapture captured;
    expect_error(KO_ERR_READ_LINE, "Read error in file " + place,
                 [&] { return KoTileColorTRCLoad(tiles.get(), file.c_str()); });
    EXPECT_EQ(captured.stop(), "[ERROR] " + place + ": can't read file\n");
    EXPECT_EQ(tiles->greenArray[3070], 170u);
    EXPECT_EQ(tiles->greenArray[3071], 77u);
    write_bytes(file.path(), text + "5 6 7\n");
    expect_success([&] { return KoTileColorTRCLoad(tiles.get(), file.c_str()); });
    EXPECT_EQ(tiles->redArray[3071], 5u);
    EXPECT_EQ(tiles->greenArray[3071], 6u);
    EXPECT_EQ(tiles->blueArray[3071], 7u);
}

TEST_F(TileColorTrcFileTest, LoadOfAMissingFileWritesNoLine) {
    const TileColorTRCPtr tiles = make_grid(1, 1, 1, {3, 9, 5});
    const std::string path = temporary_path("missing.trc");
    StderrCapture captured;
    expect_error(KO_ERR_OPEN_READ, "Cannot open file \"" + path + "\" for reading",
                 [&] { return KoTileColorTRCLoad(tiles.get(), path.c_str()); });
    EXPECT_EQ(captured.stop(), "");
    expect_grid(tiles.get(), 1, 1, 1, {3, 9, 5});
}

TEST_F(TileColorTrcFileTest, LoadThatAsksForTooMuchLeavesTheGrid) {
    for (const char *bits : {"bits 29 1 1", "bits 16 128 64", "bits 8 8 262144", "bits 0 1 536870912"}) {
        const TemporaryFile file("grid.trc", std::string("RGBLinear\n") + bits + "\n1 2 3\n");
        const TileColorTRCPtr tiles = make_grid(1, 1, 1, {3, 9, 5});
        const std::array<const uint32_t *, 3> planes = planes_of(tiles.get());
        KoStatusClear();
        const PrintCapture printed("debug");
        StderrCapture captured;
        EXPECT_EQ(KoTileColorTRCLoad(tiles.get(), file.c_str()), KO_ERR_ALLOC) << bits;
        EXPECT_EQ(own_lines(captured.stop()), allocator_line(-2147483648LL));
        expect_status(KO_ERR_ALLOC, allocator_text(-2147483648LL));
        EXPECT_TRUE(printed.texts().empty());
        EXPECT_EQ(planes_of(tiles.get()), planes);
        expect_grid(tiles.get(), 1, 1, 1, {3, 9, 5});
    }
}

} // namespace
