// The grid of curves for three channels: life, access, composition and comparison.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "ko/memory.h"
#include "ko/tilecolortrc.h"

#include "allocator_lines.h"
#include "capture.h"
#include "curve_texts.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

using Entries = std::vector<uint32_t>;
using Planes = std::array<Entries, 3>;

class TileColorTrcTest : public LibraryTest {};

struct Channel {
    const char *name;
    uint32_t *TileColorTRC::*plane;
    uint32_t *(*curve)(const TileColorTRC *, uint64_t, uint64_t);
};

const std::array<Channel, 3> channels{{{"red", &TileColorTRC::redArray, KoTileColorTRCGetRedTRC},
                                       {"green", &TileColorTRC::greenArray, KoTileColorTRCGetGreenTRC},
                                       {"blue", &TileColorTRC::blueArray, KoTileColorTRCGetBlueTRC}}};

uint64_t entry_count(const TileColorTRC *tiles) { return tiles->size * tiles->numStripsX * tiles->numStripsY; }

Planes planes_of(const TileColorTRC *tiles) {
    Planes planes;
    for (size_t c = 0; c < 3; ++c) {
        const uint32_t *plane = tiles->*channels[c].plane;
        planes[c].assign(plane, plane + entry_count(tiles));
    }
    return planes;
}

// A grid whose entries are numbered: through the curves of red, then of green, then of blue.
TileColorTRCPtr counted_grid(uint64_t size, uint64_t strips_x, uint64_t strips_y) {
    TileColorTRCPtr tiles(KoTileColorTRCNew(size, strips_x, strips_y));
    uint32_t number = 0;
    for (const Channel &channel : channels) {
        std::generate_n(tiles.get()->*channel.plane, entry_count(tiles.get()), [&] { return number++; });
    }
    return tiles;
}

// A grid of three planes of noise below limit.
TileColorTRCPtr noise_grid(uint64_t size, uint64_t strips_x, uint64_t strips_y, uint32_t limit) {
    TileColorTRCPtr tiles(KoTileColorTRCNew(size, strips_x, strips_y));
    uint32_t seed = 1;
    for (const Channel &channel : channels) {
        const Entries noise = noise_entries(entry_count(tiles.get()), limit, seed++);
        std::copy(noise.begin(), noise.end(), tiles.get()->*channel.plane);
    }
    return tiles;
}

bool has_no_plane(const TileColorTRC *tiles) {
    return tiles->redArray == nullptr && tiles->greenArray == nullptr && tiles->blueArray == nullptr;
}

// Takes a plane away.
void drop(TileColorTRC *tiles, const Channel &channel) {
    KoFree(tiles->*channel.plane);
    tiles->*channel.plane = nullptr;
}

// ---- life ----

TEST_F(TileColorTrcTest, TheRecordHasThreeCountsAndThreePlanes) {
    EXPECT_EQ(offsetof(TileColorTRC, size), 0u);
    EXPECT_EQ(offsetof(TileColorTRC, numStripsX), 8u);
    EXPECT_EQ(offsetof(TileColorTRC, numStripsY), 16u);
    EXPECT_EQ(offsetof(TileColorTRC, redArray), 24u);
    EXPECT_EQ(offsetof(TileColorTRC, greenArray), 32u);
    EXPECT_EQ(offsetof(TileColorTRC, blueArray), 40u);
    EXPECT_EQ(sizeof(TileColorTRC), 48u);
}

TEST_F(TileColorTrcTest, InitMakesClearedCurves) {
    TileColorTRC tiles;
    std::memset(&tiles, 0x5A, sizeof tiles);
    expect_success([&] { return KoTileColorTRCInit(&tiles, 256, 4, 3); });
    EXPECT_EQ(KoTileColorTRCGetSize(&tiles), 256u);
    EXPECT_EQ(KoTileColorTRCGetNumStripsX(&tiles), 4u);
    EXPECT_EQ(KoTileColorTRCGetNumStripsY(&tiles), 3u);
    for (const Channel &channel : channels) {
        ASSERT_NE(tiles.*channel.plane, nullptr);
    }
    const Entries cleared(256 * 12, 0);
    EXPECT_EQ(planes_of(&tiles), (Planes{cleared, cleared, cleared}));
    for (uint32_t c = 0; c < 3; ++c) { // each has room of its own
        std::fill_n(tiles.*channels[c].plane, 256 * 12, c + 1);
    }
    EXPECT_EQ(planes_of(&tiles), (Planes{Entries(256 * 12, 1), Entries(256 * 12, 2), Entries(256 * 12, 3)}));
    expect_success([&] { return KoTileColorTRCFree(&tiles); });
    EXPECT_TRUE(has_no_plane(&tiles));
    EXPECT_EQ(tiles.size, 256u);
    expect_success([&] { return KoTileColorTRCFree(&tiles); });
}

TEST_F(TileColorTrcTest, NewMakesClearedCurves) {
    const TileColorTRCPtr tiles(KoTileColorTRCNew(5, 2, 3));
    ASSERT_NE(tiles, nullptr);
    expect_status(KO_OK, "");
    EXPECT_EQ(KoTileColorTRCGetSize(tiles.get()), 5u);
    EXPECT_EQ(KoTileColorTRCGetNumStripsX(tiles.get()), 2u);
    EXPECT_EQ(KoTileColorTRCGetNumStripsY(tiles.get()), 3u);
    EXPECT_EQ(planes_of(tiles.get()), (Planes{Entries(30, 0), Entries(30, 0), Entries(30, 0)}));
}

TEST_F(TileColorTrcTest, FreeAndDeleteAcceptNull) {
    expect_success([] { return KoTileColorTRCFree(nullptr); });
    expect_success([] { return KoTileColorTRCDelete(nullptr); });
    expect_success([] { return KoTileColorTRCDelete(KoTileColorTRCNew(4, 1, 1)); });
}

TEST_F(TileColorTrcTest, AGridWithoutStripsHasNoPlanes) {
    for (const auto &[x, y] : std::vector<std::pair<uint64_t, uint64_t>>{{0, 4}, {4, 0}, {0, 0}}) {
        const TileColorTRCPtr tiles(KoTileColorTRCNew(256, x, y));
        ASSERT_NE(tiles, nullptr);
        EXPECT_TRUE(has_no_plane(tiles.get()));
        EXPECT_EQ(tiles->size, 256u);
        EXPECT_EQ(tiles->numStripsX, x);
        EXPECT_EQ(tiles->numStripsY, y);
        const TileColorTRCPtr other(KoTileColorTRCNew(256, x, y));
        EXPECT_EQ(KoTileColorTRCCompare(tiles.get(), other.get()), 1);
    }
    expect_status(KO_OK, "");
}

TEST_F(TileColorTrcTest, PlanesThatCannotBeHadAreNull) {
    const PrintCapture printed("debug");
    TileColorTRC tiles;
    std::memset(&tiles, 0x5A, sizeof tiles);
    StderrCapture captured;
    EXPECT_EQ(KoTileColorTRCInit(&tiles, 65536, 128, 64), KO_OK);
    EXPECT_EQ(own_lines(captured.stop()), allocator_line(-2147483648LL));
    expect_status(KO_ERR_ALLOC, allocator_text(-2147483648LL));
    EXPECT_TRUE(has_no_plane(&tiles));
    EXPECT_EQ(tiles.size, 65536u);
    EXPECT_EQ(tiles.numStripsX, 128u);
    EXPECT_EQ(tiles.numStripsY, 64u);
    EXPECT_EQ(KoTileColorTRCFree(&tiles), KO_OK);
    EXPECT_TRUE(printed.texts().empty());
}

// Counts whose product wraps to something small, in 32 bits or in 64, are no small grid.
TEST_F(TileColorTrcTest, PlanesTooLargeForTheirProductAreNull) {
    const uint64_t large = uint64_t{1} << 32;
    for (const auto &[size, x, y] : std::vector<std::tuple<uint64_t, uint64_t, uint64_t>>{
             {65536, 256, 256}, {256, 65536, 65537}, {1, large, 1}, {large, large, large}, {1, large, large}}) {
        StderrCapture captured;
        const TileColorTRCPtr tiles(KoTileColorTRCNew(size, x, y));
        captured.stop();
        ASSERT_NE(tiles, nullptr); // the record is there, and the call succeeded
        EXPECT_TRUE(has_no_plane(tiles.get()));
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_ALLOC);
        KoStatusClear();
    }
}

// ---- access ----

TEST_F(TileColorTrcTest, CurvesFollowOneAnotherByRows) {
    const TileColorTRCPtr tiles = counted_grid(16, 4, 3);
    for (const Channel &channel : channels) {
        for (uint64_t y = 0; y < 3; ++y) {
            for (uint64_t x = 0; x < 4; ++x) {
                EXPECT_EQ(channel.curve(tiles.get(), x, y), tiles.get()->*channel.plane + (y * 4 + x) * 16) << channel.name;
            }
        }
    }
    expect_status(KO_OK, "");
}

// Recorded once, but not printed at any verbosity.
void expect_out_of_grid(TileColorTRC *tiles, uint64_t x, uint64_t y, const std::string &numbers) {
    const Entries source(tiles->size, 5);
    const Planes before = planes_of(tiles);
    const TRCPtr trc = make_trc(source);
    const PrintCapture printed("debug");
    const std::string text = "Index out of bounds: " + numbers;
    for (const Channel &channel : channels) {
        KoStatusClear();
        EXPECT_EQ(channel.curve(tiles, x, y), nullptr);
        expect_status(KO_ERR_INDEX_OUT_OF_BOUNDS, text);
    }
    KoStatusClear();
    EXPECT_EQ(KoTileColorTRCSetTileFromArray(tiles, x, y, source.data(), source.data(), source.data()),
              KO_ERR_INDEX_OUT_OF_BOUNDS);
    expect_status(KO_ERR_INDEX_OUT_OF_BOUNDS, text);
    KoStatusClear();
    EXPECT_EQ(KoTileColorTRCSetTileFromTRC(tiles, x, y, trc.get(), trc.get(), trc.get()), KO_ERR_INDEX_OUT_OF_BOUNDS);
    expect_status(KO_ERR_INDEX_OUT_OF_BOUNDS, text);
    EXPECT_EQ(planes_of(tiles), before);
    EXPECT_TRUE(printed.texts().empty());
}

TEST_F(TileColorTrcTest, AnIndexOutOfTheGridIsRecorded) {
    const TileColorTRCPtr tiles = counted_grid(16, 4, 3);
    expect_out_of_grid(tiles.get(), 4, 0, "4 (0-4)");
    expect_out_of_grid(tiles.get(), 4, 2, "4 (0-4)");
    expect_out_of_grid(tiles.get(), 1000, 1, "1000 (0-4)");
    expect_out_of_grid(tiles.get(), 0, 3, "3 (0-3)");
    expect_out_of_grid(tiles.get(), 3, 99, "99 (0-3)");
    const TileColorTRCPtr none(KoTileColorTRCNew(16, 0, 4));
    for (const Channel &channel : channels) {
        EXPECT_EQ(channel.curve(tiles.get(), uint64_t{1} << 32, 0), nullptr); // all 64 bits count
        EXPECT_EQ(channel.curve(tiles.get(), 0, uint64_t{1} << 32), nullptr);
        KoStatusClear();
        EXPECT_EQ(channel.curve(none.get(), 0, 0), nullptr);
        expect_status(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: 0 (0-0)");
    }
}

TEST_F(TileColorTrcTest, SetTileCopiesIntoOneCurveOfEachPlane) {
    const TileColorTRCPtr tiles = counted_grid(16, 4, 3);
    Planes expected = planes_of(tiles.get());
    Planes first;
    Planes second;
    for (uint32_t c = 0; c < 3; ++c) {
        first[c] = noise_entries(16, 4294967295u, c + 1);
        second[c] = noise_entries(16, 256, c + 11);
        std::copy(first[c].begin(), first[c].end(), expected[c].begin() + (2 * 4 + 1) * 16);
        std::copy(second[c].begin(), second[c].end(), expected[c].begin() + 3 * 16);
    }
    expect_success(
        [&] { return KoTileColorTRCSetTileFromArray(tiles.get(), 1, 2, first[0].data(), first[1].data(), first[2].data()); });
    const TRCPtr red = make_trc(second[0]);
    const TRCPtr green = make_trc(second[1]);
    const TRCPtr blue = make_trc(second[2]);
    expect_success([&] { return KoTileColorTRCSetTileFromTRC(tiles.get(), 3, 0, red.get(), green.get(), blue.get()); });
    EXPECT_EQ(planes_of(tiles.get()), expected);
    EXPECT_EQ(entries_of(green.get()), second[1]);
}

// Whichever curve it is, the others are not set either.
TEST_F(TileColorTrcTest, ACurveOfAnotherSizeChangesNothing) {
    const TileColorTRCPtr tiles = counted_grid(16, 4, 3);
    const Planes before = planes_of(tiles.get());
    const TRCPtr good = make_trc(Entries(16, 5));
    for (size_t c = 0; c < 3; ++c) {
        std::array<const TRC *, 3> curves{good.get(), good.get(), good.get()};
        for (const uint64_t size : {1u, 8u, 15u, 17u, 32u}) {
            const TRCPtr wrong = make_trc(Entries(size, 5));
            curves[c] = wrong.get();
            expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                         [&] { return KoTileColorTRCSetTileFromTRC(tiles.get(), 1, 1, curves[0], curves[1], curves[2]); });
            expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { // looked at before the place is
                return KoTileColorTRCSetTileFromTRC(tiles.get(), 4, 1, curves[0], curves[1], curves[2]);
            });
        }
        const TRCPtr bare(KoTRCNew(16));
        KoTRCFree(bare.get());
        curves[c] = bare.get();
        expect_error(KO_ERR_NULL_POINTER, "Null pointer error",
                     [&] { return KoTileColorTRCSetTileFromTRC(tiles.get(), 1, 1, curves[0], curves[1], curves[2]); });
    }
    EXPECT_EQ(planes_of(tiles.get()), before);
}

TEST_F(TileColorTrcTest, AGridWithoutCurvesTakesNone) {
    const TileColorTRCPtr tiles(KoTileColorTRCNew(16, 2, 2));
    KoTileColorTRCFree(tiles.get());
    const Entries source(16, 5);
    const TRCPtr trc = make_trc(source);
    for (const Channel &channel : channels) {
        KoStatusClear();
        EXPECT_EQ(channel.curve(tiles.get(), 1, 1), nullptr);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_NULL_POINTER);
        EXPECT_EQ(channel.curve(tiles.get(), 2, 1), nullptr); // the place is looked at first
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INDEX_OUT_OF_BOUNDS);
    }
    EXPECT_EQ(KoTileColorTRCSetTileFromArray(tiles.get(), 1, 1, source.data(), source.data(), source.data()),
              KO_ERR_NULL_POINTER);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_NULL_POINTER);
    EXPECT_EQ(KoTileColorTRCSetTileFromTRC(tiles.get(), 1, 1, trc.get(), trc.get(), trc.get()), KO_ERR_NULL_POINTER);
    EXPECT_TRUE(has_no_plane(tiles.get()));
}

// Curves of no entries are curves.
TEST_F(TileColorTrcTest, AGridOfNoEntriesPerCurve) {
    const TileColorTRCPtr tiles(KoTileColorTRCNew(0, 2, 2));
    ASSERT_NE(tiles, nullptr);
    EXPECT_FALSE(has_no_plane(tiles.get()));
    const uint32_t entry = 5;
    const TRCPtr trc(KoTRCNew(0));
    expect_success([&] { return KoTileColorTRCSetTileFromArray(tiles.get(), 1, 1, &entry, &entry, &entry); });
    expect_success([&] { return KoTileColorTRCSetTileFromTRC(tiles.get(), 1, 1, trc.get(), trc.get(), trc.get()); });
    expect_success([&] { return KoTileColorTRCComposeTile(tiles.get(), 1, 1, &entry, &entry, nullptr); });
    EXPECT_EQ(KoTileColorTRCCompare(tiles.get(), TileColorTRCPtr(KoTileColorTRCNew(0, 2, 2)).get()), 1);
    EXPECT_EQ(KoTileColorTRCGetBlueTRC(tiles.get(), 2, 1), nullptr);
    expect_status(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: 2 (0-2)");
}

// ---- composition ----

// The curve first, the array second; what lies past the array takes its last entry.
Entries composed(const Entries &curve, const Entries &given) {
    Entries result;
    for (const uint32_t entry : curve) {
        result.push_back(given[std::min<size_t>(entry, given.size() - 1)]);
    }
    return result;
}

Entries curve_of(const TileColorTRC *tiles, const Channel &channel, uint64_t x, uint64_t y) {
    const uint32_t *curve = channel.curve(tiles, x, y);
    return {curve, curve + tiles->size};
}

void put_curve(Planes *planes, size_t c, uint64_t tile, const Entries &curve) {
    std::copy(curve.begin(), curve.end(), (*planes)[c].begin() + static_cast<std::ptrdiff_t>(tile * curve.size()));
}

TEST_F(TileColorTrcTest, ComposeWithTwoArraysChangesRedAndGreenOfATile) {
    for (const uint64_t size : {1u, 2u, 7u, 16u, 256u, 1024u}) {
        const auto limit = static_cast<uint32_t>(size);
        const TileColorTRCPtr tiles = noise_grid(size, 4, 3, limit);
        const Entries red = noise_entries(size, 4294967295u, 8);
        const Entries green = noise_entries(size, 4294967295u, 9);
        Planes expected = planes_of(tiles.get());
        put_curve(&expected, 0, 2 * 4 + 1, composed(curve_of(tiles.get(), channels[0], 1, 2), red));
        put_curve(&expected, 1, 2 * 4 + 1, composed(curve_of(tiles.get(), channels[1], 1, 2), green));
        expect_success([&] { return KoTileColorTRCComposeTile(tiles.get(), 1, 2, red.data(), green.data(), nullptr); });
        EXPECT_EQ(planes_of(tiles.get()), expected) << size << " entries";
    }
}

TEST_F(TileColorTrcTest, ComposeByHand) {
    const TileColorTRCPtr tiles(KoTileColorTRCNew(4, 1, 1));
    KoTileColorTRCSetTileFromArray(tiles.get(), 0, 0, Entries{3, 2, 2, 0}.data(), Entries{0, 1, 2, 3}.data(),
                                   Entries{1, 1, 3, 3}.data());
    const Entries red{10, 20, 30, 40};
    const Entries green{9, 8, 7, 6};
    expect_success([&] { return KoTileColorTRCComposeTile(tiles.get(), 0, 0, red.data(), green.data(), nullptr); });
    EXPECT_EQ(planes_of(tiles.get()), (Planes{{{40, 30, 30, 10}, {9, 8, 7, 6}, {1, 1, 3, 3}}}));
}

// Only the blue array that is missing makes it go ahead; three arrays change nothing, and no other two do: see "Composition
// without blue" in docs/compatibility.md.
TEST_F(TileColorTrcTest, ComposeGoesAheadWithRedAndGreenAlone) {
    const TileColorTRCPtr tiles = noise_grid(16, 2, 2, 16);
    const Entries arrays[3] = {Entries(16, 7), Entries(16, 8), Entries(16, 9)};
    const Planes before = planes_of(tiles.get());
    for (int given = 0; given < 8; ++given) {
        if (given == 3) { // red and green
            continue;
        }
        const auto array = [&](int c) { return (given >> c & 1) != 0 ? arrays[c].data() : nullptr; };
        expect_success([&] { return KoTileColorTRCComposeTile(tiles.get(), 1, 0, array(0), array(1), array(2)); });
        EXPECT_EQ(planes_of(tiles.get()), before) << "arrays given: " << given;
    }
}

TEST_F(TileColorTrcTest, ComposeTakesTheLastEntryForWhatLiesPastTheArray) {
    const TileColorTRCPtr tiles(KoTileColorTRCNew(4, 2, 1));
    const Entries far{3, 4, 4294967295u, 2147483648u};
    const Entries near{0, 5, 1000000, 1};
    KoTileColorTRCSetTileFromArray(tiles.get(), 1, 0, far.data(), near.data(), far.data());
    const Entries guarded{77, 77, 10, 20, 30, 40, 77, 77};
    expect_success(
        [&] { return KoTileColorTRCComposeTile(tiles.get(), 1, 0, guarded.data() + 2, guarded.data() + 2, nullptr); });
    EXPECT_EQ(curve_of(tiles.get(), channels[0], 1, 0), (Entries{40, 40, 40, 40}));
    EXPECT_EQ(curve_of(tiles.get(), channels[1], 1, 0), (Entries{10, 40, 40, 20}));
    EXPECT_EQ(curve_of(tiles.get(), channels[2], 1, 0), far);
}

// The given arrays may be the grid's own: each curve is whole before it is written back, red before green.
TEST_F(TileColorTrcTest, ComposeWithCurvesOfTheTile) {
    const TileColorTRCPtr tiles = noise_grid(64, 2, 1, 64);
    Entries red = curve_of(tiles.get(), channels[0], 1, 0);
    Entries green = curve_of(tiles.get(), channels[1], 1, 0);
    uint32_t *own_red = KoTileColorTRCGetRedTRC(tiles.get(), 1, 0);
    uint32_t *own_green = KoTileColorTRCGetGreenTRC(tiles.get(), 1, 0);
    expect_success([&] { return KoTileColorTRCComposeTile(tiles.get(), 1, 0, own_red, own_green, nullptr); });
    red = composed(red, red);
    green = composed(green, green);
    EXPECT_EQ(curve_of(tiles.get(), channels[0], 1, 0), red);
    EXPECT_EQ(curve_of(tiles.get(), channels[1], 1, 0), green);
    expect_success([&] { return KoTileColorTRCComposeTile(tiles.get(), 1, 0, own_green, own_red, nullptr); });
    red = composed(red, green);
    green = composed(green, red);
    EXPECT_EQ(curve_of(tiles.get(), channels[0], 1, 0), red);
    EXPECT_EQ(curve_of(tiles.get(), channels[1], 1, 0), green);
}

// The tile is looked for before the arrays are: a bad place is on the thread whatever was given, and the call succeeds.
TEST_F(TileColorTrcTest, ComposeOutOfTheGridIsRecorded) {
    const TileColorTRCPtr tiles = noise_grid(16, 4, 3, 16);
    const Planes before = planes_of(tiles.get());
    const Entries array(16, 5);
    const PrintCapture printed("debug");
    for (const auto &[x, y, text] : std::vector<std::tuple<uint64_t, uint64_t, std::string>>{
             {4, 2, "Index out of bounds: 4 (0-4)"}, {1, 3, "Index out of bounds: 3 (0-3)"}}) {
        for (const uint32_t *blue : {static_cast<const uint32_t *>(nullptr), array.data()}) {
            KoStatusClear();
            EXPECT_EQ(KoTileColorTRCComposeTile(tiles.get(), x, y, array.data(), array.data(), blue), KO_OK);
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INDEX_OUT_OF_BOUNDS);
            EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).substr(0, text.size()), text);
        }
    }
    EXPECT_EQ(planes_of(tiles.get()), before);
    EXPECT_TRUE(printed.texts().empty());
}

TEST_F(TileColorTrcTest, ComposeOfAGridWithoutCurvesIsRecorded) {
    const TileColorTRCPtr tiles(KoTileColorTRCNew(16, 2, 2));
    KoTileColorTRCFree(tiles.get());
    const Entries array(16, 5);
    EXPECT_EQ(KoTileColorTRCComposeTile(tiles.get(), 1, 1, array.data(), array.data(), nullptr), KO_OK);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_NULL_POINTER);
    EXPECT_TRUE(has_no_plane(tiles.get()));
    const TileColorTRCPtr none(KoTileColorTRCNew(16, 0, 2));
    KoStatusClear();
    EXPECT_EQ(KoTileColorTRCComposeTile(none.get(), 0, 0, array.data(), array.data(), nullptr), KO_OK);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INDEX_OUT_OF_BOUNDS);
}

// ---- comparison ----

int32_t compared(const TileColorTRCPtr &first, const TileColorTRCPtr &second) {
    const int32_t result = KoTileColorTRCCompare(first.get(), second.get());
    EXPECT_EQ(KoTileColorTRCCompare(second.get(), first.get()), result);
    return result;
}

TEST_F(TileColorTrcTest, CompareLooksAtCountsAndEntries) {
    const TileColorTRCPtr tiles = counted_grid(4, 3, 2);
    EXPECT_EQ(compared(tiles, counted_grid(4, 3, 2)), 1);
    EXPECT_EQ(KoTileColorTRCCompare(tiles.get(), tiles.get()), 1);
    EXPECT_EQ(compared(tiles, counted_grid(4, 2, 3)), 0); // the same entries in other shapes
    EXPECT_EQ(compared(tiles, counted_grid(3, 4, 2)), 0);
    EXPECT_EQ(compared(tiles, counted_grid(2, 3, 4)), 0);
    EXPECT_EQ(compared(tiles, counted_grid(4, 3, 1)), 0);
    for (const Channel &channel : channels) {
        for (uint64_t i = 0; i < 24; ++i) {
            const TileColorTRCPtr other = counted_grid(4, 3, 2);
            (other.get()->*channel.plane)[i] ^= 0x80000000u;
            EXPECT_EQ(compared(tiles, other), 0) << channel.name << ", entry " << i;
        }
    }
    expect_status(KO_OK, "");
}

TEST_F(TileColorTrcTest, CompareOfGridsWithoutCurves) {
    const TileColorTRCPtr tiles = counted_grid(4, 3, 2);
    const TileColorTRCPtr bare(KoTileColorTRCNew(4, 3, 2));
    const TileColorTRCPtr other(KoTileColorTRCNew(4, 3, 2));
    KoTileColorTRCFree(bare.get());
    KoTileColorTRCFree(other.get());
    EXPECT_EQ(compared(tiles, bare), 0);
    EXPECT_EQ(compared(bare, other), 1);
    const TileColorTRCPtr none(KoTileColorTRCNew(4, 0, 2));
    EXPECT_EQ(compared(none, TileColorTRCPtr(KoTileColorTRCNew(8, 0, 2))), 0);
    EXPECT_EQ(compared(none, TileColorTRCPtr(KoTileColorTRCNew(4, 0, 3))), 0);
    EXPECT_EQ(compared(none, TileColorTRCPtr(KoTileColorTRCNew(4, 2, 0))), 0);
    expect_status(KO_OK, "");
}

// Planes are compared pair by pair: one that both lack is equal, one that only one of them lacks is not.
TEST_F(TileColorTrcTest, CompareOfGridsThatLackAPlane) {
    for (const Channel &channel : channels) {
        const TileColorTRCPtr whole = counted_grid(4, 3, 2);
        const TileColorTRCPtr first = counted_grid(4, 3, 2);
        const TileColorTRCPtr second = counted_grid(4, 3, 2);
        drop(first.get(), channel);
        EXPECT_EQ(compared(whole, first), 0) << channel.name;
        drop(second.get(), channel);
        EXPECT_EQ(compared(first, second), 1) << channel.name;
        for (const Channel &kept : channels) {
            if (kept.plane != channel.plane) {
                (second.get()->*kept.plane)[23] += 1;
                EXPECT_EQ(compared(first, second), 0) << channel.name << " lacks, " << kept.name << " differs";
                (second.get()->*kept.plane)[23] -= 1;
            }
        }
    }
}

} // namespace
