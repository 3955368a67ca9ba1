// The grid of curves: life, access, comparison and drawing.
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "ko/tiletrc.h"

#include "capture.h"
#include "curve_texts.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

using Entries = std::vector<uint32_t>;

class TileTrcTest : public LibraryTest {};

Entries entries_of(const TileTRC *tiles) {
    return {tiles->array, tiles->array + tiles->size * tiles->numStripsX * tiles->numStripsY};
}

// A grid whose entry i is i, counted through all curves.
TileTRCPtr counted_grid(uint64_t size, uint64_t strips_x, uint64_t strips_y) {
    TileTRCPtr tiles(KoTileTRCNew(size, strips_x, strips_y));
    for (uint64_t i = 0; i < size * strips_x * strips_y; ++i) {
        tiles->array[i] = static_cast<uint32_t>(i);
    }
    return tiles;
}

// ---- life ----

TEST_F(TileTrcTest, InitMakesClearedCurves) {
    TileTRC tiles{1, 2, 3, nullptr};
    expect_success([&] { return KoTileTRCInit(&tiles, 256, 4, 3); });
    EXPECT_EQ(KoTileTRCGetSize(&tiles), 256u);
    EXPECT_EQ(KoTileTRCGetNumStripsX(&tiles), 4u);
    EXPECT_EQ(KoTileTRCGetNumStripsY(&tiles), 3u);
    ASSERT_NE(tiles.array, nullptr);
    EXPECT_EQ(entries_of(&tiles), Entries(256 * 12, 0));
    expect_success([&] { return KoTileTRCFree(&tiles); });
    EXPECT_EQ(tiles.array, nullptr);
    EXPECT_EQ(tiles.size, 256u);
    expect_success([&] { return KoTileTRCFree(&tiles); });
}

TEST_F(TileTrcTest, FreeAndDeleteAcceptNull) {
    expect_success([] { return KoTileTRCFree(nullptr); });
    expect_success([] { return KoTileTRCDelete(nullptr); });
}

TEST_F(TileTrcTest, AGridWithoutStripsHasNoArray) {
    for (const auto &[x, y] : std::vector<std::pair<uint64_t, uint64_t>>{{0, 4}, {4, 0}, {0, 0}}) {
        const TileTRCPtr tiles(KoTileTRCNew(256, x, y));
        ASSERT_NE(tiles, nullptr);
        EXPECT_EQ(tiles->array, nullptr);
        EXPECT_EQ(tiles->numStripsX, x);
        EXPECT_EQ(tiles->numStripsY, y);
        const TileTRCPtr other(KoTileTRCNew(256, x, y));
        EXPECT_EQ(KoTileTRCCompare(tiles.get(), other.get()), 1);
    }
    expect_status(KO_OK, "");
}

TEST_F(TileTrcTest, AnArrayThatCannotBeHadIsNull) {
    StderrCapture captured;
    const TileTRCPtr tiles(KoTileTRCNew(65536, 128, 64));
    EXPECT_EQ(captured.stop(), "[ERROR] Memory allocation failed: can't allocated -2147483648 bytes of memory\n");
    ASSERT_NE(tiles, nullptr); // the record is there, and the call succeeded
    expect_status(KO_ERR_ALLOC, "Cannot allocate -2147483648 bytes");
    EXPECT_EQ(tiles->array, nullptr);
    EXPECT_EQ(tiles->size, 65536u);
    EXPECT_EQ(KoTileTRCGetTRC(tiles.get(), 0, 0), nullptr);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_NULL_POINTER);
}

// Counts whose product wraps to something small, in 32 bits or in 64, are no small grid.
TEST_F(TileTrcTest, AnArrayTooLargeForItsProductIsNull) {
    const uint64_t large = uint64_t{1} << 32;
    for (const auto &[size, x, y] : std::vector<std::tuple<uint64_t, uint64_t, uint64_t>>{
             {65536, 256, 256}, {256, 65536, 65537}, {1, large, 1}, {large, large, large}, {1, large, large}}) {
        StderrCapture captured;
        const TileTRCPtr tiles(KoTileTRCNew(size, x, y));
        captured.stop();
        ASSERT_NE(tiles, nullptr);
        EXPECT_EQ(tiles->array, nullptr);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_ALLOC);
        KoStatusClear();
    }
}

TEST_F(TileTrcTest, BitsAreTheTruncatedLogarithm) {
    for (uint32_t bits = 0; bits <= 17; ++bits) {
        const TileTRC tiles{uint64_t{1} << bits, 1, 1, nullptr};
        EXPECT_EQ(KoTileTRCGetBits(&tiles), bits);
    }
    for (const auto &[size, bits] :
         std::vector<std::pair<uint64_t, uint32_t>>{{0, 0}, {3, 1}, {255, 7}, {257, 8}, {300, 8}, {65535, 15}}) {
        const TileTRC tiles{size, 1, 1, nullptr};
        EXPECT_EQ(KoTileTRCGetBits(&tiles), bits) << size;
    }
}

// ---- access ----

TEST_F(TileTrcTest, CurvesFollowOneAnotherByRows) {
    const TileTRCPtr tiles = counted_grid(16, 4, 3);
    for (uint64_t y = 0; y < 3; ++y) {
        for (uint64_t x = 0; x < 4; ++x) {
            EXPECT_EQ(KoTileTRCGetTRC(tiles.get(), x, y), tiles->array + (y * 4 + x) * 16);
        }
    }
    expect_status(KO_OK, "");
}

// Recorded, but not printed at any verbosity.
void expect_out_of_grid(TileTRC *tiles, uint64_t x, uint64_t y, const std::string &numbers) {
    const Entries source(tiles->size, 5);
    const Entries before = entries_of(tiles);
    const TRCPtr trc = make_trc(source);
    const PrintCapture printed("debug");
    KoStatusClear();
    EXPECT_EQ(KoTileTRCGetTRC(tiles, x, y), nullptr);
    expect_status(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: " + numbers);
    KoStatusClear();
    EXPECT_EQ(KoTileTRCSetTileFromArray(tiles, x, y, source.data()), KO_ERR_INDEX_OUT_OF_BOUNDS);
    expect_status(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: " + numbers);
    KoStatusClear();
    EXPECT_EQ(KoTileTRCSetTileFromTRC(tiles, x, y, trc.get()), KO_ERR_INDEX_OUT_OF_BOUNDS);
    expect_status(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: " + numbers);
    EXPECT_EQ(entries_of(tiles), before);
    EXPECT_TRUE(printed.texts().empty());
}

TEST_F(TileTrcTest, AnIndexOutOfTheGridIsRecorded) {
    const TileTRCPtr tiles = counted_grid(16, 4, 3);
    expect_out_of_grid(tiles.get(), 4, 0, "4 (0-4)");
    expect_out_of_grid(tiles.get(), 4, 2, "4 (0-4)");
    expect_out_of_grid(tiles.get(), 1000, 1, "1000 (0-4)");
    expect_out_of_grid(tiles.get(), 0, 3, "3 (0-3)");
    expect_out_of_grid(tiles.get(), 3, 99, "99 (0-3)");
    EXPECT_EQ(KoTileTRCGetTRC(tiles.get(), uint64_t{1} << 32, 0), nullptr); // all 64 bits count
    EXPECT_EQ(KoTileTRCGetTRC(tiles.get(), 0, uint64_t{1} << 32), nullptr);
    const TileTRCPtr none(KoTileTRCNew(16, 0, 4));
    EXPECT_EQ(KoTileTRCGetTRC(none.get(), 0, 0), nullptr);
}

TEST_F(TileTrcTest, SetTileCopiesIntoOneCurve) {
    const TileTRCPtr tiles = counted_grid(16, 4, 3);
    Entries expected = entries_of(tiles.get());
    const Entries first = noise_entries(16, 4294967295u, 1);
    const Entries second = noise_entries(16, 256, 2);
    std::copy(first.begin(), first.end(), expected.begin() + (2 * 4 + 1) * 16);
    std::copy(second.begin(), second.end(), expected.begin() + 3 * 16);
    expect_success([&] { return KoTileTRCSetTileFromArray(tiles.get(), 1, 2, first.data()); });
    const TRCPtr trc = make_trc(second);
    expect_success([&] { return KoTileTRCSetTileFromTRC(tiles.get(), 3, 0, trc.get()); });
    EXPECT_EQ(entries_of(tiles.get()), expected);
}

TEST_F(TileTrcTest, ACurveOfAnotherSizeChangesNothing) {
    const TileTRCPtr tiles = counted_grid(16, 4, 3);
    const Entries before = entries_of(tiles.get());
    for (const uint64_t size : {8u, 15u, 17u, 32u}) {
        const TRCPtr trc = make_trc(Entries(size, 5));
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&] { return KoTileTRCSetTileFromTRC(tiles.get(), 1, 1, trc.get()); });
    }
    const TRCPtr bare(KoTRCNew(16));
    KoTRCFree(bare.get());
    expect_error(KO_ERR_NULL_POINTER, "Null pointer error",
                 [&] { return KoTileTRCSetTileFromTRC(tiles.get(), 1, 1, bare.get()); });
    EXPECT_EQ(entries_of(tiles.get()), before);
}

TEST_F(TileTrcTest, AGridWithoutCurvesTakesNone) {
    const TileTRCPtr tiles(KoTileTRCNew(16, 2, 2));
    KoTileTRCFree(tiles.get());
    const Entries source(16, 5);
    const TRCPtr trc = make_trc(source);
    EXPECT_EQ(KoTileTRCGetTRC(tiles.get(), 1, 1), nullptr);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_NULL_POINTER);
    EXPECT_EQ(KoTileTRCSetTileFromArray(tiles.get(), 1, 1, source.data()), KO_ERR_NULL_POINTER);
    EXPECT_EQ(KoTileTRCSetTileFromTRC(tiles.get(), 1, 1, trc.get()), KO_ERR_NULL_POINTER);
}

// ---- comparison ----

int32_t compared(const TileTRCPtr &first, const TileTRCPtr &second) {
    const int32_t result = KoTileTRCCompare(first.get(), second.get());
    EXPECT_EQ(KoTileTRCCompare(second.get(), first.get()), result);
    return result;
}

TEST_F(TileTrcTest, CompareLooksAtCountsAndEntries) {
    const TileTRCPtr tiles = counted_grid(4, 3, 2);
    EXPECT_EQ(compared(tiles, counted_grid(4, 3, 2)), 1);
    EXPECT_EQ(KoTileTRCCompare(tiles.get(), tiles.get()), 1);
    EXPECT_EQ(compared(tiles, counted_grid(4, 2, 3)), 0); // the same entries in other shapes
    EXPECT_EQ(compared(tiles, counted_grid(3, 4, 2)), 0);
    EXPECT_EQ(compared(tiles, counted_grid(2, 3, 4)), 0);
    EXPECT_EQ(compared(tiles, counted_grid(4, 3, 1)), 0);
    for (uint64_t i = 0; i < 24; ++i) {
        const TileTRCPtr other = counted_grid(4, 3, 2);
        other->array[i] ^= 0x80000000u;
        EXPECT_EQ(compared(tiles, other), 0) << "entry " << i;
    }
}

TEST_F(TileTrcTest, CompareOfGridsWithoutCurves) {
    const TileTRCPtr tiles = counted_grid(4, 3, 2);
    const TileTRCPtr bare(KoTileTRCNew(4, 3, 2));
    const TileTRCPtr other(KoTileTRCNew(4, 3, 2));
    KoTileTRCFree(bare.get());
    KoTileTRCFree(other.get());
    EXPECT_EQ(compared(tiles, bare), 0);
    EXPECT_EQ(compared(bare, other), 1);
    const TileTRCPtr none(KoTileTRCNew(4, 0, 2));
    const TileTRCPtr larger(KoTileTRCNew(8, 0, 2));
    EXPECT_EQ(compared(none, larger), 0);
    EXPECT_EQ(compared(none, TileTRCPtr(KoTileTRCNew(4, 0, 3))), 0);
    EXPECT_EQ(compared(none, TileTRCPtr(KoTileTRCNew(4, 2, 0))), 0);
    expect_status(KO_OK, "");
}

// ---- drawing ----

// The low 8 bits of the truncated value; what fits no integer counts as one whose low bits are 0.
int byte_of(float pixel) {
    return std::fabs(pixel) < 9223372036854775808.0f ? static_cast<int>(static_cast<int64_t>(pixel) & 255) : 0;
}

uint64_t tile_length(uint64_t length, uint64_t strips) {
    return static_cast<uint64_t>(std::floor(static_cast<float>(length) / static_cast<float>(strips) + 0.5f));
}

// What a drawing is to show, pixel by pixel.
class PlainDrawing {
  public:
    PlainDrawing(const TileTRC *tiles, const RealImage *image) : tiles_(tiles), width_(image->width), height_(image->height) {
        for (const float pixel : pixels(image)) {
            drawn.push_back(static_cast<float>(byte_of(pixel)));
        }
        bytes = drawn;
        open.resize(drawn.size(), false);
        tile_width_ = tile_length(width_, tiles_->numStripsX);
        tile_height_ = tile_length(height_, tiles_->numStripsY);
        for (uint64_t y = 0; y < tiles_->numStripsY; ++y) {
            for (uint64_t x = 0; x < tiles_->numStripsX; ++x) {
                draw_block(x, y);
            }
        }
    }

    float mark(uint64_t place) const { return bytes[place] >= 129.0f ? 0.0f : 255.0f; }

    std::vector<float> bytes;
    std::vector<float> drawn;
    std::vector<bool> open; // pixels that would need entries past their curve: they are drawn or not, but nothing else

  private:
    void draw_block(uint64_t x, uint64_t y) {
        const uint64_t left = x * tile_width_;
        const uint64_t bottom = (y + 1) * tile_height_;
        const uint32_t *curve = tiles_->array + (y * tiles_->numStripsX + x) * tiles_->size;
        for (uint64_t row = y * tile_height_; row < std::min(bottom, height_); ++row) {
            const uint64_t level = (bottom - row - 1) * 256 / tile_height_;
            for (uint64_t column = left; column < std::min(left + tile_width_, width_); ++column) {
                draw_pixel(curve, level, (column - left) * 256 / tile_width_, row * width_ + column);
            }
        }
    }

    void draw_pixel(const uint32_t *curve, uint64_t level, uint64_t i, uint64_t place) {
        if (i >= tiles_->size || (i < 255 && i + 1 >= tiles_->size)) {
            open[place] = true;
            return;
        }
        const float low = static_cast<float>(curve[i]);
        const float high = i < 255 ? static_cast<float>(curve[i + 1]) : 256.0f;
        if (low <= static_cast<float>(level) && static_cast<float>(level) <= high) {
            drawn[place] = mark(place);
        }
    }

    const TileTRC *tiles_;
    uint64_t width_;
    uint64_t height_;
    uint64_t tile_width_ = 0;
    uint64_t tile_height_ = 0;
};

// A grid of rising curves, each with a bend of its own.
TileTRCPtr rising_grid(uint64_t size, uint64_t strips_x, uint64_t strips_y) {
    TileTRCPtr tiles(KoTileTRCNew(size, strips_x, strips_y));
    for (uint64_t i = 0; i < size * strips_x * strips_y; ++i) {
        const double exponent = 0.4 + 0.3 * static_cast<double>(i / size);
        tiles->array[i] = static_cast<uint32_t>(std::pow(static_cast<double>(i % size) / static_cast<double>(size), exponent) *
                                                static_cast<double>(size));
    }
    return tiles;
}

RealImagePtr drawing_ground(uint64_t width, uint64_t height) {
    const std::vector<float> odd{-1.0f, -0.5f, 128.0f, 128.99f, 129.0f, 255.9f, 256.0f, 300.0f, 1e20f, -1e20f, std::nanf("")};
    Noise noise(3);
    return make_image(width, height, [&](uint64_t x, uint64_t y) {
        return (x + y) % 3 == 0 ? odd[(x + 2 * y) % odd.size()] : noise.uniform(0.0f, 255.0f);
    });
}

RealImagePtr drawn(const TileTRC *tiles, const RealImage *image) {
    RealImage *result = nullptr;
    expect_success([&] { return KoTileTRCDraw(tiles, image, &result); });
    EXPECT_NE(result, nullptr);
    return RealImagePtr(result);
}

struct DrawCase {
    uint64_t size, strips_x, strips_y, width, height;
};

class TileTrcDrawing : public TileTrcTest, public testing::WithParamInterface<DrawCase> {};

TEST_P(TileTrcDrawing, PaintsAsThePlainDrawing) {
    const DrawCase &c = GetParam();
    const TileTRCPtr tiles = rising_grid(c.size, c.strips_x, c.strips_y);
    const RealImagePtr image = drawing_ground(c.width, c.height);
    const PlainDrawing expected(tiles.get(), image.get());
    const RealImagePtr result = drawn(tiles.get(), image.get());
    EXPECT_EQ(result->width, c.width);
    EXPECT_EQ(result->height, c.height);
    EXPECT_TRUE(padding_is_zero(result.get()));
    const std::vector<float> actual = pixels(result.get());
    for (size_t i = 0; i < actual.size(); ++i) {
        if (expected.open[i]) {
            ASSERT_TRUE(actual[i] == expected.bytes[i] || actual[i] == expected.mark(i));
        } else {
            ASSERT_EQ(actual[i], expected.drawn[i]) << "column " << i % c.width << ", row " << i / c.width;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Grids, TileTrcDrawing,
                         testing::Values(DrawCase{256, 1, 1, 256, 256}, DrawCase{256, 4, 3, 200, 150},
                                         DrawCase{256, 8, 8, 100, 100}, // blocks of 13: the last ones are cut at the edge
                                         DrawCase{256, 8, 8, 99, 97},   // blocks of 12: a margin in no block
                                         DrawCase{256, 2, 2, 5, 5},     // 2.5 rounds up
                                         DrawCase{256, 3, 5, 1000, 37}, // more columns than levels
                                         DrawCase{256, 8, 8, 3, 3},     // blocks of no pixel
                                         DrawCase{256, 1, 5, 7, 13},    // some blocks lie past the edge as a whole
                                         DrawCase{1024, 2, 2, 600, 60}, // the first 256 entries, whatever the size
                                         DrawCase{300, 3, 2, 301, 211}, //
                                         DrawCase{128, 2, 2, 300, 300}, // no entries for the right halves
                                         DrawCase{1, 3, 3, 90, 90}, DrawCase{256, 1, 1, 1, 1}));

// The block's axis runs from 0 at the bottom to just under 256 at the top.
TEST_F(TileTrcTest, DrawByHand) {
    const TileTRCPtr tiles(KoTileTRCNew(256, 1, 1));
    for (uint32_t i = 0; i < 256; ++i) {
        tiles->array[i] = i;
    }
    const RealImagePtr dark = make_image(256, 256, [](uint64_t, uint64_t) { return 128.9f; });
    const RealImagePtr light = make_image(256, 256, [](uint64_t, uint64_t) { return 129.0f; });
    const RealImagePtr on_dark = drawn(tiles.get(), dark.get());
    const RealImagePtr on_light = drawn(tiles.get(), light.get());
    for (uint64_t y = 0; y < 256; ++y) {
        for (uint64_t x = 0; x < 256; ++x) {
            const uint64_t level = 255 - y;
            const bool on_curve = level == x || level == x + 1; // both ends belong to it
            ASSERT_EQ(on_dark->rows[y][x], on_curve ? 255.0f : 128.0f) << x << ", " << y;
            ASSERT_EQ(on_light->rows[y][x], on_curve ? 0.0f : 129.0f) << x << ", " << y;
        }
    }
}

TEST_F(TileTrcTest, DrawFillsAnImageThatIsThere) {
    const TileTRCPtr tiles = rising_grid(256, 4, 3);
    const RealImagePtr image = drawing_ground(99, 50);
    const RealImagePtr fresh = drawn(tiles.get(), image.get());
    const RealImagePtr there = make_image(99, 50, [](uint64_t, uint64_t) { return -7.0f; });
    RealImage *result = there.get();
    expect_success([&] { return KoTileTRCDraw(tiles.get(), image.get(), &result); });
    EXPECT_EQ(result, there.get());
    EXPECT_EQ(pixels(there.get()), pixels(fresh.get()));
}

TEST_F(TileTrcTest, DrawRefusesAnImageOfAnotherSize) {
    const TileTRCPtr tiles = rising_grid(256, 4, 3);
    const RealImagePtr image = drawing_ground(9, 5);
    for (const auto &[width, height] : std::vector<std::pair<uint64_t, uint64_t>>{{8, 5}, {10, 5}, {9, 4}, {9, 6}, {5, 9}}) {
        const RealImagePtr there = make_image(width, height, [](uint64_t, uint64_t) { return -7.0f; });
        RealImage *result = there.get();
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&] { return KoTileTRCDraw(tiles.get(), image.get(), &result); });
        EXPECT_EQ(pixels(there.get()), std::vector<float>(width * height, -7.0f));
    }
}

TEST_F(TileTrcTest, DrawOfAGridWithoutStripsCopiesTheBytes) {
    const RealImagePtr image = drawing_ground(9, 5);
    std::vector<float> bytes;
    for (const float pixel : pixels(image.get())) {
        bytes.push_back(static_cast<float>(byte_of(pixel)));
    }
    for (const auto &[x, y] : std::vector<std::pair<uint64_t, uint64_t>>{{0, 4}, {4, 0}, {0, 0}}) {
        const TileTRCPtr tiles(KoTileTRCNew(256, x, y));
        EXPECT_EQ(pixels(drawn(tiles.get(), image.get()).get()), bytes);
    }
}

TEST_F(TileTrcTest, DrawRefusesWhatHasNoCurves) {
    const RealImagePtr image = drawing_ground(9, 5);
    RealImage *result = nullptr;
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return KoTileTRCDraw(nullptr, image.get(), &result); });
    EXPECT_EQ(result, nullptr);
    const TileTRCPtr bare(KoTileTRCNew(256, 4, 3));
    KoTileTRCFree(bare.get());
    expect_error(KO_ERR_NULL_POINTER, "Null pointer error", [&] { return KoTileTRCDraw(bare.get(), image.get(), &result); });
    EXPECT_EQ(result, nullptr);
}

} // namespace
