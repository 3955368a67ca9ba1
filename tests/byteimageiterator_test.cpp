// ByteImageIterator: where the channels' pointers stand after each step, over all layouts and for gray pictures.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/byteimageiterator.h"
#include "ko/colorspace.h"

namespace {

constexpr uint64_t width = 7;
constexpr uint64_t height = 5;

// A picture of 7 by 5 pixels whose bytes are all different places of one block.
struct Layout {
    const char *name;
    int32_t layout;
    int32_t color_space;
    uint64_t pixel_increment;
    uint64_t line_increment;
    uint64_t green, blue; // where the channels start, in bytes from the first

    bool gray() const { return color_space == KO_COLORSPACE_GRAY; }
};

// Three blocks are set apart by 100 and 250 bytes and do not stand in the order of the channels.
constexpr uint64_t first_block = 50;
constexpr Layout layouts[] = {
    {"Interleaved", KO_BYTE_LAYOUT_INTERLEAVED, KO_COLORSPACE_RGB, 3, 3 * width, 1, 2},
    {"LineInterleaved", KO_BYTE_LAYOUT_LINE_INTERLEAVED, KO_COLORSPACE_RGB, 1, 3 * width, width, 2 * width},
    {"Planar", KO_BYTE_LAYOUT_PLANAR, KO_COLORSPACE_RGB, 1, width, width *height, 2 * width *height},
    {"ThreePlanes", KO_BYTE_LAYOUT_3_PLANES, KO_COLORSPACE_RGB, 1, width, 250, 100},
    {"InterleavedYiq", KO_BYTE_LAYOUT_INTERLEAVED, KO_COLORSPACE_YIQ, 3, 3 * width, 1, 2},
    {"PlanarYiq", KO_BYTE_LAYOUT_PLANAR, KO_COLORSPACE_YIQ, 1, width, width *height, 2 * width *height},
    {"InterleavedOther", KO_BYTE_LAYOUT_INTERLEAVED, 3, 3, 3 * width, 1, 2},
    {"GrayInterleaved", KO_BYTE_LAYOUT_INTERLEAVED, KO_COLORSPACE_GRAY, 1, width, 0, 0},
    {"GrayLineInterleaved", KO_BYTE_LAYOUT_LINE_INTERLEAVED, KO_COLORSPACE_GRAY, 1, width, 0, 0},
    {"GrayPlanar", KO_BYTE_LAYOUT_PLANAR, KO_COLORSPACE_GRAY, 1, width, 0, 0},
    {"GrayThreePlanes", KO_BYTE_LAYOUT_3_PLANES, KO_COLORSPACE_GRAY, 1, width, 0, 0},
    {"GrayOther", 77, KO_COLORSPACE_GRAY, 1, width, 0, 0}};

class ByteImageIteratorTest : public testing::TestWithParam<Layout> {
  protected:
    ByteImageIteratorTest() : bytes_(500), base_(bytes_.data() + first_block) {
        for (size_t i = 0; i < bytes_.size(); ++i) {
            bytes_[i] = static_cast<uint8_t>(i % 251);
        }
        if (GetParam().layout == KO_BYTE_LAYOUT_3_PLANES) {
            KoByteImageIteratorInit3Planes(&iterator_, width, height, GetParam().layout, GetParam().color_space, base_,
                                           base_ + 250, base_ + 100);
        } else {
            KoByteImageIteratorInit(&iterator_, width, height, GetParam().layout, GetParam().color_space, base_);
        }
    }

    // The pointers stand at bytes current and next from the start of each channel; a gray picture has only the first.
    void expect_position(uint64_t current, uint64_t next) const {
        const Layout &layout = GetParam();
        EXPECT_EQ(iterator_.red, base_ + current);
        EXPECT_EQ(iterator_.next_line_red, base_ + next);
        EXPECT_EQ(iterator_.green, layout.gray() ? nullptr : base_ + layout.green + current);
        EXPECT_EQ(iterator_.blue, layout.gray() ? nullptr : base_ + layout.blue + current);
        EXPECT_EQ(iterator_.next_line_green, layout.gray() ? nullptr : base_ + layout.green + next);
        EXPECT_EQ(iterator_.next_line_blue, layout.gray() ? nullptr : base_ + layout.blue + next);
    }

    uint64_t pixel(uint64_t x) const { return x * GetParam().pixel_increment; }
    uint64_t line(uint64_t y) const { return y * GetParam().line_increment; }

    std::vector<uint8_t> bytes_;
    uint8_t *base_;
    ByteImageIterator iterator_;
};

INSTANTIATE_TEST_SUITE_P(Layouts, ByteImageIteratorTest, testing::ValuesIn(layouts),
                         [](const auto &layout) { return std::string(layout.param.name); });

TEST_P(ByteImageIteratorTest, StartsAtTheFirstPixel) {
    EXPECT_EQ(iterator_.width, width);
    EXPECT_EQ(iterator_.height, height);
    EXPECT_EQ(iterator_.layout, GetParam().layout);
    EXPECT_EQ(iterator_.color_space, GetParam().color_space);
    EXPECT_EQ(iterator_.pixel_increment, GetParam().pixel_increment);
    EXPECT_EQ(iterator_.line_increment, GetParam().line_increment);
    expect_position(0, line(1));
}

TEST_P(ByteImageIteratorTest, ReadsFurtherBlocksForThreePlanesOnly) {
    KoByteImageIteratorInit3Planes(&iterator_, width, height, GetParam().layout, GetParam().color_space, base_, base_ + 250,
                                   base_ + 100);
    expect_position(0, line(1));
}

TEST_P(ByteImageIteratorTest, NextPixelLeavesTheNextLineAlone) {
    for (uint64_t x = 1; x <= width; ++x) {
        KoByteImageIteratorNextPixel(&iterator_);
        expect_position(pixel(x), line(1));
    }
}

TEST_P(ByteImageIteratorTest, NextLineStartsFromAnyPixel) {
    for (uint64_t y = 1; y < height; ++y) {
        for (uint64_t x = 0; x < y; ++x) {
            KoByteImageIteratorNextPixel(&iterator_);
        }
        KoByteImageIteratorNextLine(&iterator_);
        expect_position(line(y), line(y + 1));
    }
}

TEST_P(ByteImageIteratorTest, NextLinesOfOneIsNextLine) {
    KoByteImageIteratorNextPixel(&iterator_);
    KoByteImageIteratorNextLines(&iterator_, 1);
    expect_position(line(1), line(2));
}

TEST_P(ByteImageIteratorTest, NextLinesCountsFromTheCurrentLine) {
    KoByteImageIteratorNextPixel(&iterator_);
    KoByteImageIteratorNextLines(&iterator_, 3);
    expect_position(line(3), line(4));
    KoByteImageIteratorNextLines(&iterator_, 2);
    expect_position(line(5), line(6));
}

TEST_P(ByteImageIteratorTest, NextTileMovesTheNextLineToo) {
    KoByteImageIteratorNextTile(&iterator_, 5);
    expect_position(pixel(5), line(1) + pixel(5));
    KoByteImageIteratorNextTile(&iterator_, 0);
    expect_position(pixel(5), line(1) + pixel(5));
    KoByteImageIteratorNextTile(&iterator_, 1);
    expect_position(pixel(6), line(1) + pixel(6));
    KoByteImageIteratorNextLines(&iterator_, 2);
    expect_position(line(2) + pixel(6), line(3) + pixel(6));
}

TEST_P(ByteImageIteratorTest, EndOfARunIsCountedInPixels) {
    for (uint64_t count = 0; count <= width; ++count) {
        EXPECT_EQ(KoByteImageIteratorGetTileIteratorRedEnd(&iterator_, count), base_ + pixel(count));
    }
    KoByteImageIteratorNextPixel(&iterator_);
    EXPECT_EQ(KoByteImageIteratorGetTileIteratorRedEnd(&iterator_, 2), base_ + pixel(3));
    expect_position(pixel(1), line(1));
}

TEST_P(ByteImageIteratorTest, ACopyMovesOnItsOwn) {
    KoByteImageIteratorNextTile(&iterator_, 2);
    ByteImageIterator copy;
    KoByteImageIteratorCopy(&copy, &iterator_);
    EXPECT_EQ(copy.width, width);
    EXPECT_EQ(copy.height, height);
    EXPECT_EQ(copy.layout, GetParam().layout);
    EXPECT_EQ(copy.color_space, GetParam().color_space);
    EXPECT_EQ(copy.pixel_increment, GetParam().pixel_increment);
    EXPECT_EQ(copy.line_increment, GetParam().line_increment);
    KoByteImageIteratorNextLine(&copy);
    KoByteImageIteratorNextPixel(&copy);
    expect_position(pixel(2), line(1) + pixel(2));
    iterator_ = copy;
    expect_position(line(1) + pixel(3), line(2) + pixel(2));
}

// Walks a strip of lines tile by tile, as the application of curves does, and reaches every byte of the picture once.
TEST_P(ByteImageIteratorTest, AWalkByTilesReachesEachByteOnce) {
    std::vector<int> expected(bytes_.size(), 0);
    std::vector<int> reached(bytes_.size(), 0);
    const auto place = [&](const uint8_t *byte) { return static_cast<size_t>(byte - bytes_.data()); };
    for (uint64_t y = 0; y < height; ++y) {
        for (uint64_t x = 0; x < width; ++x) {
            const uint64_t at = first_block + line(y) + pixel(x);
            ++expected[at];
            if (!GetParam().gray()) {
                ++expected[at + GetParam().green];
                ++expected[at + GetParam().blue];
            }
        }
    }
    constexpr uint64_t tile_widths[] = {3, 4};
    constexpr uint64_t strip_heights[] = {2, 3};
    for (const uint64_t strip_height : strip_heights) {
        ByteImageIterator strip;
        KoByteImageIteratorCopy(&strip, &iterator_);
        for (const uint64_t tile_width : tile_widths) {
            ByteImageIterator tile;
            KoByteImageIteratorCopy(&tile, &strip);
            for (uint64_t y = 0; y < strip_height; ++y) {
                const uint8_t *end = KoByteImageIteratorGetTileIteratorRedEnd(&tile, tile_width);
                for (; tile.red < end; KoByteImageIteratorNextPixel(&tile)) {
                    ++reached[place(tile.red)];
                    if (!GetParam().gray()) {
                        ++reached[place(tile.green)];
                        ++reached[place(tile.blue)];
                    }
                }
                KoByteImageIteratorNextLine(&tile);
            }
            KoByteImageIteratorNextTile(&strip, tile_width);
        }
        KoByteImageIteratorNextLines(&iterator_, strip_height);
    }
    EXPECT_EQ(reached, expected);
}

TEST_P(ByteImageIteratorTest, AccessorsReadAndWriteTheCurrentPixel) {
    KoByteImageIteratorNextLines(&iterator_, 2);
    KoByteImageIteratorNextPixel(&iterator_);
    const uint64_t red = first_block + line(2) + pixel(1);
    std::vector<uint8_t> expected = bytes_;
    EXPECT_EQ(KoByteImageIteratorGetRed(&iterator_), expected[red]);
    KoByteImageIteratorSetRed(&iterator_, 253);
    expected[red] = 253;
    if (!GetParam().gray()) {
        EXPECT_EQ(KoByteImageIteratorGetGreen(&iterator_), expected[red + GetParam().green]);
        EXPECT_EQ(KoByteImageIteratorGetBlue(&iterator_), expected[red + GetParam().blue]);
        KoByteImageIteratorSetGreen(&iterator_, 254);
        KoByteImageIteratorSetBlue(&iterator_, 255);
        expected[red + GetParam().green] = 254;
        expected[red + GetParam().blue] = 255;
    }
    EXPECT_EQ(bytes_, expected);
    EXPECT_EQ(KoByteImageIteratorGetRed(&iterator_), 253);
}

} // namespace
