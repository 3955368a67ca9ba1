// The application of a grid of three-channel curves, bit for bit against its plainest form, in every way of cutting the rows.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <thread>
#include <utility>

#include "guards.h"
#include "library_test.h"
#include "pictures.h"
#include "reference_tilecolortrcapply.h"
#include "turn_sizes.h"

namespace {

using namespace ko_test;

using TileColorTRCApplyTest = LibraryTest;

constexpr int32_t interleaved = KO_BYTE_LAYOUT_INTERLEAVED;

// A grid whose entry i of channel c at tile (x, y) is entry(c, x, y, i).
TileColorTRCPtr make_grid(uint64_t size, uint64_t strips_x, uint64_t strips_y,
                          const std::function<uint32_t(uint64_t c, uint64_t x, uint64_t y, uint64_t i)> &entry) {
    TileColorTRCPtr grid(KoTileColorTRCNew(size, strips_x, strips_y));
    uint32_t *planes[] = {grid->redArray, grid->greenArray, grid->blueArray};
    for (uint64_t c = 0; c < 3; ++c) {
        for (uint64_t y = 0; y < strips_y; ++y) {
            for (uint64_t x = 0; x < strips_x; ++x) {
                for (uint64_t i = 0; i < size; ++i) {
                    planes[c][(y * strips_x + x) * size + i] = entry(c, x, y, i);
                }
            }
        }
    }
    return grid;
}

// Every curve gives the same level for every byte.
TileColorTRCPtr constant_grid(uint64_t strips_x, uint64_t strips_y,
                              const std::function<uint32_t(uint64_t c, uint64_t x, uint64_t y)> &level) {
    return make_grid(256, strips_x, strips_y, [&](uint64_t c, uint64_t x, uint64_t y, uint64_t) { return level(c, x, y); });
}

TileColorTRCPtr identity_grid(uint64_t strips_x, uint64_t strips_y) {
    return make_grid(256, strips_x, strips_y,
                     [](uint64_t, uint64_t, uint64_t, uint64_t i) { return static_cast<uint32_t>(i); });
}

// Entries below the limit; a limit of 0 means all of 32 bits.
TileColorTRCPtr noise_grid(uint64_t strips_x, uint64_t strips_y, uint32_t limit, uint64_t size = 256) {
    Noise noise(static_cast<uint32_t>(strips_x * 16 + strips_y));
    return make_grid(size, strips_x, strips_y, [&](uint64_t, uint64_t, uint64_t, uint64_t) {
        return limit == 0 ? noise.next() ^ noise.next() >> 16 : (noise.next() >> 7) % limit;
    });
}

// Entries around the places where a float loses its whole numbers and an integer its sign.
TileColorTRCPtr awkward_grid(uint64_t strips_x, uint64_t strips_y) {
    constexpr uint32_t centers[] = {255u, 256u, 65535u, 1u << 24, 3u << 24, 0x7fffffffu, 0x80000000u, 0xffffffffu};
    Noise noise(static_cast<uint32_t>(strips_x * 16 + strips_y));
    return make_grid(256, strips_x, strips_y, [&](uint64_t, uint64_t, uint64_t, uint64_t) {
        return centers[noise.next() >> 29] + (noise.next() >> 24) - 128u; // around 2^32 - 1 it wraps to small numbers
    });
}

BytePicture noise_picture(uint64_t width, uint64_t height, int32_t layout, uint32_t seed) {
    BytePicture picture(width, height, layout);
    picture.bytes = noise_bytes(picture.bytes.size(), seed);
    return picture;
}

// A picture of one byte everywhere.
BytePicture flat_picture(uint64_t width, uint64_t height, uint8_t byte, int32_t layout = interleaved) {
    BytePicture picture(width, height, layout);
    std::fill(picture.bytes.begin(), picture.bytes.end(), byte);
    return picture;
}

// The bytes of a row that follow one another: those of all channels, unless each channel has its plane.
uint64_t row_step(const BytePicture &picture) {
    return picture.layout == KO_BYTE_LAYOUT_PLANAR ? picture.width : picture.width * 3;
}

// Bytes between two guards that nothing may write to.
class Guarded {
  public:
    explicit Guarded(const std::vector<uint8_t> &bytes) : block_(bytes.size() + 2 * guard, mark) {
        std::copy(bytes.begin(), bytes.end(), block_.begin() + guard);
    }

    uint8_t *data() { return block_.data() + guard; }
    std::vector<uint8_t> bytes() const { return {block_.begin() + guard, block_.end() - guard}; }

    bool intact() const {
        const auto is_mark = [](uint8_t byte) { return byte == mark; };
        return std::all_of(block_.begin(), block_.begin() + guard, is_mark) &&
               std::all_of(block_.end() - guard, block_.end(), is_mark);
    }

  private:
    static constexpr std::ptrdiff_t guard = 4096;
    static constexpr uint8_t mark = 0xc5;
    std::vector<uint8_t> block_;
};

// Where a record stands in its picture, told by the rows alone.
struct Position {
    uint64_t height, strips, tile_height;
    uint64_t rows_done = 0;
    uint64_t band = 0;
    uint64_t band_end = 0;

    Position(uint64_t picture_height, uint64_t strips_y)
        : height(picture_height), strips(strips_y), tile_height(reference_tile_size(picture_height, strips_y)),
          band_end((tile_height >> 1) + 1) {}

    // A band that ends is left behind, even when the picture ends with it.
    void advance(uint64_t rows) {
        for (; rows > 0 && rows_done < height; --rows) {
            ++rows_done;
            if (rows_done == band_end) {
                ++band;
                band_end = band == strips ? height : band_end + tile_height;
            }
        }
    }
};

void expect_position(const Position &expected, const TileColorTRCApply *apply) {
    EXPECT_EQ(apply->rowsDone, expected.rows_done);
    EXPECT_EQ(apply->band, expected.band);
    EXPECT_EQ(apply->bandEnd, expected.band_end);
    EXPECT_EQ(apply->height, expected.height);
    EXPECT_EQ(apply->tileHeight, expected.tile_height);
    EXPECT_EQ(apply->debugFlags, 0u);
}

TileColorTRCApplyPtr make_apply(const TileColorTRC *grid, const BytePicture &picture) {
    return TileColorTRCApplyPtr(KoTileColorTRCApplyNew(grid, picture.width, picture.height, picture.layout));
}

// Applies in chunks of the given sizes to pictures at input and output, which may be one.
void apply_chunks(const TileColorTRC *grid, const BytePicture &shape, const std::vector<uint64_t> &chunks, const uint8_t *input,
                  uint8_t *output) {
    const TileColorTRCApplyPtr apply = make_apply(grid, shape);
    ASSERT_NE(apply, nullptr);
    Position position(shape.height, grid->numStripsY);
    expect_position(position, apply.get());
    for (const uint64_t rows : chunks) {
        const uint64_t offset = position.rows_done * row_step(shape);
        ASSERT_EQ(KoTileColorTRCApplyToByteChunk(apply.get(), rows, input + offset, output + offset), KO_OK);
        position.advance(rows);
        expect_position(position, apply.get());
    }
    EXPECT_EQ(apply->rowsDone, shape.height);
}

BytePicture applied(const TileColorTRC *grid, const BytePicture &input, const BytePicture &before,
                    const std::vector<uint64_t> &chunks) {
    BytePicture output = before;
    apply_chunks(grid, input, chunks, input.bytes.data(), output.bytes.data());
    return output;
}

BytePicture applied(const TileColorTRC *grid, const BytePicture &input) {
    return applied(grid, input, flat_picture(input.width, input.height, 0, input.layout), {input.height});
}

void expect_same(const std::vector<uint8_t> &expected, const std::vector<uint8_t> &actual, const char *what) {
    ASSERT_EQ(expected.size(), actual.size());
    const auto [i, j] = std::mismatch(expected.begin(), expected.end(), actual.begin());
    EXPECT_TRUE(i == expected.end()) << what << ": byte " << (i - expected.begin()) << " is " << +*j << " instead of " << +*i;
}

// Chunks of 0 to most rows that cover the picture.
std::vector<uint64_t> random_cuts(uint64_t height, uint64_t most, uint32_t seed) {
    Noise noise(seed);
    std::vector<uint64_t> cuts;
    for (uint64_t left = height; left > 0; left -= cuts.back()) {
        cuts.push_back(std::min<uint64_t>((noise.next() >> 8) % (most + 1), left));
    }
    return cuts;
}

// Every chunk in blocks of its own, so that a step beyond its rows is a fault.
void expect_reference_from_blocks(const TileColorTRC *grid, const BytePicture &input, const BytePicture &before,
                                  const BytePicture &expected, const std::vector<uint64_t> &cuts) {
    const TileColorTRCApplyPtr apply = make_apply(grid, input);
    ASSERT_NE(apply, nullptr);
    const auto part = [&](const BytePicture &picture, uint64_t first, uint64_t rows) {
        const auto begin = picture.bytes.begin() + static_cast<std::ptrdiff_t>(first * row_step(picture));
        return std::vector<uint8_t>(begin, begin + static_cast<std::ptrdiff_t>(rows * row_step(picture)));
    };
    uint64_t first = 0;
    for (const uint64_t rows : cuts) {
        const std::vector<uint8_t> source = part(input, first, rows);
        std::vector<uint8_t> target = part(before, first, rows);
        EXPECT_EQ(KoTileColorTRCApplyToByteChunk(apply.get(), rows, source.data(), target.data()), KO_OK);
        expect_same(part(expected, first, rows), target, "a block of its own");
        first += rows;
    }
}

// Whole, row by row, in random chunks, in more rows than there are and in place: all as the plainest form.
void expect_reference(const TileColorTRC *grid, const BytePicture &input) {
    SCOPED_TRACE(testing::Message() << input.width << " by " << input.height << ", layout " << input.layout << ", grid "
                                    << grid->numStripsX << " by " << grid->numStripsY << " of " << grid->size);
    const auto seed = static_cast<uint32_t>(input.width * 31 + input.height);
    const BytePicture before = noise_picture(input.width, input.height, input.layout, seed);
    const BytePicture expected = reference_tile_color_apply(*grid, input, before);
    const std::vector<uint64_t> rows(input.height, 1);
    const std::vector<uint64_t> cuts = random_cuts(input.height, 1 + input.height / 2, seed);
    expect_same(expected.bytes, applied(grid, input, before, {input.height}).bytes, "whole");
    expect_same(expected.bytes, applied(grid, input, before, rows).bytes, "row by row");

    Guarded source(input.bytes);
    Guarded target(before.bytes);
    apply_chunks(grid, input, cuts, source.data(), target.data());
    expect_same(expected.bytes, target.bytes(), "in random chunks");
    expect_same(input.bytes, source.bytes(), "the input");
    EXPECT_TRUE(source.intact());
    EXPECT_TRUE(target.intact());

    Guarded target_of_many(before.bytes);
    apply_chunks(grid, input, {input.height / 3, input.height + 5, 1}, source.data(), target_of_many.data());
    expect_same(expected.bytes, target_of_many.bytes(), "more rows than the picture");
    EXPECT_TRUE(target_of_many.intact());

    const BytePicture expected_in_place = reference_tile_color_apply(*grid, input, input);
    apply_chunks(grid, input, cuts, source.data(), source.data());
    expect_same(expected_in_place.bytes, source.bytes(), "in place");
    EXPECT_TRUE(source.intact());

    if (input.layout != KO_BYTE_LAYOUT_PLANAR) {
        expect_reference_from_blocks(grid, input, before, expected, cuts);
    }
}

bool fits(uint64_t pixels, uint64_t strips) { return 2 * pixels >= strips; }

struct Direction {
    uint64_t pixels, strips;
};

// Sizes from 1 on with 1 to 9 strips: tile sizes that round up and down, of 1, and more strips than pixels.
std::vector<Direction> directions(uint64_t most) {
    std::vector<Direction> all;
    for (uint64_t pixels = 1; pixels <= most; ++pixels) {
        for (uint64_t strips = 1; strips <= 9; ++strips) {
            if (fits(pixels, strips)) {
                all.push_back({pixels, strips});
            }
        }
    }
    return all;
}

// One of the kinds of curves, by a number.
TileColorTRCPtr any_grid(uint64_t strips_x, uint64_t strips_y, uint64_t kind) {
    switch (kind % 5) {
    case 0:
        return noise_grid(strips_x, strips_y, 256);
    case 1:
        return identity_grid(strips_x, strips_y);
    case 2:
        return noise_grid(strips_x, strips_y, 1000, 300);
    case 3:
        return awkward_grid(strips_x, strips_y);
    default:
        return noise_grid(strips_x, strips_y, 0);
    }
}

TEST_F(TileColorTRCApplyTest, ManySizesAndGrids) {
    const std::vector<Direction> columns = directions(30);
    const std::vector<Direction> rows = directions(22);
    uint64_t turn = 0;
    for (const Direction &x : columns) {
        for (int repeat = 0; repeat < 8; ++repeat) {
            const Direction &y = rows[turn * 7 % rows.size()];
            const TileColorTRCPtr grid = any_grid(x.strips, y.strips, turn);
            expect_reference(grid.get(), noise_picture(x.pixels, y.pixels, static_cast<int32_t>(turn / 5 % 3), 1));
            ++turn;
            if (HasFailure()) {
                return;
            }
        }
    }
    EXPECT_GT(turn, 1500u);
}

// Whole, between guards that the address sanitizer watches too.
void expect_guarded(const TileColorTRC *grid, const BytePicture &input, size_t shift) {
    GuardedBytes source(input.bytes, shift);
    GuardedBytes target(input.bytes.size(), 77, shift + 5);
    BytePicture before(input.width, input.height, input.layout);
    std::fill(before.bytes.begin(), before.bytes.end(), uint8_t{77});
    apply_chunks(grid, input, {input.height}, source.data(), target.data());
    expect_same(reference_tile_color_apply(*grid, input, before).bytes, target.bytes(), "between guards");
    expect_same(input.bytes, source.bytes(), "the input");
    EXPECT_TRUE(source.guards_hold() && target.guards_hold());
}

TEST_F(TileColorTRCApplyTest, EverySizeInEveryLayout) {
    constexpr std::pair<uint64_t, uint64_t> strips[] = {{2, 2}, {1, 2}, {3, 1}, {4, 3}, {2, 5}, {1, 1}, {7, 2}};
    uint32_t seed = 0;
    for (const TurnSize &size : turn_sizes()) {
        for (int32_t layout = 0; layout < 3; ++layout) {
            auto [strips_x, strips_y] = strips[++seed % std::size(strips)];
            strips_x = fits(size.width, strips_x) ? strips_x : 1;
            strips_y = fits(size.height, strips_y) ? strips_y : 1;
            const TileColorTRCPtr grid = any_grid(strips_x, strips_y, seed);
            const BytePicture picture = noise_picture(size.width, size.height, layout, seed);
            expect_reference(grid.get(), picture);
            expect_guarded(grid.get(), picture, seed);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(TileColorTRCApplyTest, TilesOfEveryWidth) {
    uint32_t seed = 0;
    for (uint64_t tile = 1; tile <= 140; tile += tile < 80 ? 1 : 7) {
        for (uint64_t strips = 1; strips <= (tile <= 17 ? 9u : 3u); ++strips) {
            const uint64_t width = tile * strips + ++seed % 3;
            const TileColorTRCPtr grid = any_grid(strips, 1 + seed % 3, seed);
            const BytePicture picture = noise_picture(width, 7, static_cast<int32_t>(seed / 5 % 3), seed);
            expect_reference(grid.get(), picture);
            expect_guarded(grid.get(), picture, seed);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(TileColorTRCApplyTest, EveryKindOfCurveInEveryLayout) {
    for (uint64_t kind = 0; kind < 5; ++kind) {
        for (int32_t layout = 0; layout < 3; ++layout) {
            expect_reference(any_grid(3, 2, kind).get(), noise_picture(23, 13, layout, 5));
            expect_reference(any_grid(1, 3, kind).get(), noise_picture(22, 19, layout, 6));
            expect_reference(any_grid(4, 1, kind).get(), noise_picture(31, 12, layout, 7));
            expect_reference(any_grid(1, 1, kind).get(), noise_picture(9, 8, layout, 8));
        }
    }
}

TEST_F(TileColorTRCApplyTest, RunsThatOvershootTheirRow) {
    const std::pair<uint64_t, uint64_t> shapes[] = {{15, 10}, {17, 11}, {25, 10}, {99, 66}, {11, 7},   {10, 7},
                                                    {5, 9},   {6, 9},   {7, 9},   {3, 6},   {350, 100}};
    for (const auto &[pixels, strips] : shapes) {
        for (int32_t layout = 0; layout < 3; ++layout) {
            expect_reference(noise_grid(strips, 2, 256).get(), noise_picture(pixels, 9, layout, 3));
            expect_reference(noise_grid(2, strips, 256).get(), noise_picture(9, pixels, layout, 3));
            expect_reference(awkward_grid(strips, strips).get(), noise_picture(pixels, pixels, layout, 3));
        }
    }
}

TEST_F(TileColorTRCApplyTest, LongRuns) {
    const uint64_t lengths[] = {255, 256, 257, 300, 1023, 1024, 1025, 1500, 2048, 4099};
    for (const uint64_t length : lengths) {
        const auto layout = static_cast<int32_t>(length % 3);
        expect_reference(noise_grid(2, 2, 256).get(), noise_picture(2 * length, 5, layout, 1));
        expect_reference(noise_grid(2, 1, 0).get(), noise_picture(2 * length - 1, 3, layout, 2)); // overshoots
        expect_reference(noise_grid(1, 3, 700).get(), noise_picture(length, 7, layout, 3));
        expect_reference(noise_grid(3, 3, 256).get(), noise_picture(3 * length + 1, 6, layout, 4));
    }
    expect_reference(noise_grid(500, 2, 256).get(), noise_picture(1499, 4, interleaved, 5));
}

TEST_F(TileColorTRCApplyTest, TallPictures) {
    expect_reference(noise_grid(2, 4, 256).get(), noise_picture(5, 1000, interleaved, 1));
    expect_reference(noise_grid(3, 4, 256).get(), noise_picture(7, 1002, KO_BYTE_LAYOUT_PLANAR, 2));
    expect_reference(noise_grid(2, 4, 0).get(), noise_picture(6, 1001, KO_BYTE_LAYOUT_LINE_INTERLEAVED, 3));
    expect_reference(noise_grid(1, 300, 256).get(), noise_picture(3, 1003, interleaved, 4));
}

TEST_F(TileColorTRCApplyTest, PhotographOnAnEightByEightGrid) {
    const TileColorTRCPtr grid = make_grid(256, 8, 8, [](uint64_t c, uint64_t x, uint64_t y, uint64_t i) {
        return static_cast<uint32_t>(std::min<uint64_t>(255, i * (8 + (x + 2 * y + c) % 4) / 8));
    });
    BytePicture picture(211, 163, interleaved);
    picture.bytes = photograph(211, 163, 3, 7);
    expect_reference(grid.get(), picture);
}

TEST_F(TileColorTRCApplyTest, EveryWayOfCuttingIntoChunks) {
    constexpr uint64_t height = 11;
    const TileColorTRCPtr grid = noise_grid(2, 3, 256);
    for (int32_t layout = 0; layout < 3; ++layout) {
        const BytePicture input = noise_picture(9, height, layout, 2);
        const BytePicture before = noise_picture(9, height, layout, 3);
        const BytePicture expected = reference_tile_color_apply(*grid, input, before);
        for (uint32_t cuts = 0; cuts < 1u << (height - 1); ++cuts) {
            std::vector<uint64_t> chunks{1};
            for (uint64_t row = 1; row < height; ++row) {
                if ((cuts >> (row - 1) & 1u) != 0) {
                    chunks.push_back(0);
                }
                ++chunks.back();
            }
            expect_same(expected.bytes, applied(grid.get(), input, before, chunks).bytes, "chunks");
        }
    }
}

// The running subtraction reaches other weights than a quotient of the rows that are left would give.
TEST_F(TileColorTRCApplyTest, AResumedBandGoesOnWithTheReachedWeight) {
    const TileColorTRCPtr grid = constant_grid(1, 2, [](uint64_t, uint64_t, uint64_t y) { return y == 0 ? 0xffffff00u : 0u; });
    const BytePicture input = flat_picture(4, 200, 7);
    const BytePicture expected = reference_tile_color_apply(*grid, input, input);
    const float step = 1.0f / 100.0f;
    float weight = 1.0f;
    int different = 0;
    for (uint64_t row = 0; row < 100; ++row) {
        different += weight != static_cast<float>(100 - row) / 100.0f;
        weight -= step;
    }
    EXPECT_GT(different, 50);
    for (uint64_t cut = 51; cut < 151; ++cut) {
        expect_same(expected.bytes, applied(grid.get(), input, input, {cut, 200 - cut}).bytes, "two chunks");
    }
    expect_same(expected.bytes, applied(grid.get(), input, input, {200}).bytes, "whole");
}

// Red of every pixel in a row.
std::vector<int> red_row(const BytePicture &picture, uint64_t y) {
    std::vector<int> row;
    for (uint64_t x = 0; x < picture.width; ++x) {
        row.push_back(picture.at(0, x, y));
    }
    return row;
}

// Red of every pixel in a column.
std::vector<int> red_column(const BytePicture &picture, uint64_t x) {
    std::vector<int> column;
    for (uint64_t y = 0; y < picture.height; ++y) {
        column.push_back(picture.at(0, x, y));
    }
    return column;
}

TEST_F(TileColorTRCApplyTest, WeightsRunAndResultsAreTruncated) {
    // Tiles of 4: steps of a quarter, exact in floats. The last pixel of the run has not yet left the left curve.
    const TileColorTRCPtr grid = constant_grid(2, 1, [](uint64_t, uint64_t x, uint64_t) { return x == 0 ? 10u : 13u; });
    const BytePicture output = applied(grid.get(), flat_picture(8, 1, 99));
    EXPECT_EQ(red_row(output, 0), (std::vector<int>{10, 10, 10, 10, 11, 12, 13, 13})); // 10.75, 11.5 and 12.25 are cut
}

TEST_F(TileColorTRCApplyTest, TheFirstRowOfAnInnerBandHasTheUpperCurvesAlone) {
    const TileColorTRCPtr grid = constant_grid(1, 2, [](uint64_t, uint64_t, uint64_t y) { return y == 0 ? 10u : 13u; });
    const BytePicture output = applied(grid.get(), flat_picture(2, 8, 99));
    EXPECT_EQ(red_column(output, 0), (std::vector<int>{10, 10, 10, 10, 10, 11, 12, 13})); // three rows, then four
    EXPECT_EQ(red_column(output, 1), red_column(output, 0));
}

TEST_F(TileColorTRCApplyTest, FourCurvesMeetInTheMiddle) {
    const TileColorTRCPtr grid = constant_grid(
        2, 2, [](uint64_t, uint64_t x, uint64_t y) { return x == 0 ? (y == 0 ? 0u : 64u) : (y == 0 ? 32u : 128u); });
    const BytePicture output = applied(grid.get(), flat_picture(8, 8, 99));
    EXPECT_EQ(red_row(output, 0), (std::vector<int>{0, 0, 0, 8, 16, 24, 32, 32}));
    EXPECT_EQ(red_row(output, 3), red_row(output, 0)); // weight 1 for the upper curves
    EXPECT_EQ(red_row(output, 4), (std::vector<int>{16, 16, 16, 26, 36, 46, 56, 56}));
    EXPECT_EQ(red_row(output, 5), (std::vector<int>{32, 32, 32, 44, 56, 68, 80, 80}));
    EXPECT_EQ(red_row(output, 6), (std::vector<int>{48, 48, 48, 62, 76, 90, 104, 104}));
    EXPECT_EQ(red_row(output, 7), (std::vector<int>{64, 64, 64, 80, 96, 112, 128, 128})); // the last band
}

TEST_F(TileColorTRCApplyTest, EveryChannelHasItsOwnCurves) {
    const TileColorTRCPtr grid = make_grid(256, 2, 2, [](uint64_t c, uint64_t, uint64_t, uint64_t i) {
        return static_cast<uint32_t>(c == 0 ? 255 - i : c == 1 ? i / 2 : 7);
    });
    BytePicture input = flat_picture(4, 4, 0);
    for (uint64_t i = 0; i < 16; ++i) {
        input.at(0, i % 4, i / 4) = 55;
        input.at(1, i % 4, i / 4) = 80;
        input.at(2, i % 4, i / 4) = 33;
    }
    const BytePicture output = applied(grid.get(), input);
    for (uint64_t i = 0; i < 16; ++i) { // halves and quarters are exact
        EXPECT_EQ(+output.at(0, i % 4, i / 4), 200);
        EXPECT_EQ(+output.at(1, i % 4, i / 4), 40);
        EXPECT_EQ(+output.at(2, i % 4, i / 4), 7);
    }
}

// Curves that change nothing may still take a level from a blend, by running sums and truncation, and never more.
TEST_F(TileColorTRCApplyTest, IdentityCurvesMayTakeALevel) {
    const TileColorTRCPtr grid = identity_grid(3, 3);
    const BytePicture input = noise_picture(300, 300, interleaved, 4);
    const BytePicture output = applied(grid.get(), input);
    uint64_t lower = 0;
    for (uint64_t i = 0; i < input.bytes.size(); ++i) {
        const int loss = input.bytes[i] - output.bytes[i];
        EXPECT_TRUE(loss == 0 || loss == 1) << "byte " << i << " loses " << loss;
        lower += loss == 1;
    }
    EXPECT_GT(lower, 1000u);
    for (uint64_t x = 0; x < 50; ++x) { // a single curve takes nothing
        EXPECT_EQ(output.at(0, x, 0), input.at(0, x, 0));
        EXPECT_EQ(output.at(0, 299 - x, 299), input.at(0, 299 - x, 299));
    }
}

TEST_F(TileColorTRCApplyTest, LevelsAboveAByteWrap) {
    const TileColorTRCPtr grid = constant_grid(2, 2, [](uint64_t, uint64_t x, uint64_t y) { return x + y == 0 ? 300u : 600u; });
    const BytePicture output = applied(grid.get(), flat_picture(8, 8, 99));
    EXPECT_EQ(red_row(output, 0), (std::vector<int>{44, 44, 44, 375 & 255, 450 & 255, 525 & 255, 600 & 255, 600 & 255}));
    EXPECT_EQ(red_column(output, 0), (std::vector<int>{44, 44, 44, 44, 375 & 255, 450 & 255, 525 & 255, 600 & 255}));
}

TEST_F(TileColorTRCApplyTest, ASingleCurveGivesTheLowByteOfItsEntryUnblended) {
    const auto outputs = [](uint32_t entry) {
        const TileColorTRCPtr grid = constant_grid(2, 1, [&](uint64_t, uint64_t, uint64_t) { return entry; });
        const BytePicture output = applied(grid.get(), flat_picture(4, 1, 0));
        return std::pair<int, int>{output.at(0, 0, 0), output.at(0, 1, 0)}; // one curve, and the blend with a weight of 1
    };
    EXPECT_EQ(outputs(255), std::pair(255, 255));
    EXPECT_EQ(outputs(256), std::pair(0, 0));
    EXPECT_EQ(outputs(0x00ffffff), std::pair(255, 255));
    EXPECT_EQ(outputs(0x01000001), std::pair(1, 0)); // the nearest float is 2^24
    EXPECT_EQ(outputs(0x01000003), std::pair(3, 4));
    EXPECT_EQ(outputs(0x7fffff81), std::pair(0x81, 0x80));
    EXPECT_EQ(outputs(0x80000001), std::pair(1, 0)); // past 31 bits no float has low bits
    EXPECT_EQ(outputs(0xffffff7f), std::pair(0x7f, 0));
    EXPECT_EQ(outputs(0xffffffff), std::pair(255, 0));
}

TEST_F(TileColorTRCApplyTest, ABlendThatDoesNotFitGivesNothing) {
    const TileColorTRCPtr grid = constant_grid(2, 2, [](uint64_t, uint64_t, uint64_t) { return 0x80000000u; });
    const BytePicture input = flat_picture(8, 8, 3);
    const BytePicture output = applied(grid.get(), input, flat_picture(8, 8, 77), {8});
    EXPECT_EQ(output.bytes, flat_picture(8, 8, 0).bytes);
}

// Over thousands of pixels the running weight passes 0, and large entries make the blend negative.
TEST_F(TileColorTRCApplyTest, NegativeBlendsAreTruncatedAndCut) {
    constexpr uint64_t tile = 8283;
    float weight = 1.0f;
    for (uint64_t i = 1; i < tile; ++i) {
        weight -= 1.0f / static_cast<float>(tile);
    }
    ASSERT_LT(weight, 0.0f);
    const float blend = static_cast<float>(0xffffff00u) * weight;
    ASSERT_LT(blend, -1000.0f);
    ASSERT_GT(blend, -100000.0f);
    const int expected = static_cast<int>(blend) & 255;
    const auto level = [](bool first) { return first ? 0xffffff00u : 0u; };
    const TileColorTRCPtr along = constant_grid(2, 1, [&](uint64_t, uint64_t x, uint64_t) { return level(x == 0); });
    const BytePicture wide = flat_picture(2 * tile, 2, 3);
    EXPECT_EQ(applied(along.get(), wide).at(0, tile / 2 + tile - 1, 1), expected);
    expect_reference(along.get(), wide);
    const TileColorTRCPtr down = constant_grid(1, 2, [&](uint64_t, uint64_t, uint64_t y) { return level(y == 0); });
    const BytePicture tall = flat_picture(2, 2 * tile, 3);
    EXPECT_EQ(applied(down.get(), tall).at(0, 0, tile / 2 + tile), expected);
    EXPECT_EQ(applied(down.get(), tall, tall, {2 * tile - 5000, 5000}).at(0, 0, tile / 2 + tile), expected);
}

// A curve of more entries than bytes has levels is read at the byte itself, and nothing is scaled back.
TEST_F(TileColorTRCApplyTest, LongerCurvesAreReadAtTheByte) {
    const auto from_byte = [](uint64_t, uint64_t, uint64_t, uint64_t i) {
        return i < 256 ? static_cast<uint32_t>(i) : 0xffffffffu;
    };
    BytePicture input = noise_picture(21, 14, interleaved, 9);
    const TileColorTRCPtr plain = identity_grid(3, 2);
    const BytePicture expected = applied(plain.get(), input);
    for (const uint64_t size : {257u, 300u, 512u, 1024u, 65536u}) {
        const TileColorTRCPtr longer = make_grid(size, 3, 2, from_byte);
        expect_same(expected.bytes, applied(longer.get(), input).bytes, "longer curves");
        expect_reference(noise_grid(3, 2, 256, size).get(), input);
    }
}

// Rows that each band takes, found by handing in single rows.
std::vector<int> rows_by_band(uint64_t height, uint64_t strips) {
    const TileColorTRCPtr grid = noise_grid(1, strips, 256);
    const BytePicture input = noise_picture(2, height, interleaved, 1);
    BytePicture output = input;
    const TileColorTRCApplyPtr apply = make_apply(grid.get(), input);
    std::vector<int> rows(strips + 1);
    for (uint64_t y = 0; y < height; ++y) {
        EXPECT_EQ(apply->rowsDone, y);
        ++rows.at(apply->band);
        const uint64_t offset = y * row_step(input);
        EXPECT_EQ(KoTileColorTRCApplyToByteChunk(apply.get(), 1, &input.bytes[offset], &output.bytes[offset]), KO_OK);
    }
    return rows;
}

TEST_F(TileColorTRCApplyTest, BandsDivideTheHeight) {
    EXPECT_EQ(rows_by_band(1000, 4), (std::vector<int>{126, 250, 250, 250, 124}));
    EXPECT_EQ(rows_by_band(1003, 4), (std::vector<int>{126, 251, 251, 251, 124}));
    EXPECT_EQ(rows_by_band(1001, 4), (std::vector<int>{126, 250, 250, 250, 125}));
    EXPECT_EQ(rows_by_band(7, 3), (std::vector<int>{2, 2, 2, 1}));
    EXPECT_EQ(rows_by_band(9, 1), (std::vector<int>{5, 4}));
    EXPECT_EQ(rows_by_band(1, 1), (std::vector<int>{1, 0}));
    EXPECT_EQ(rows_by_band(5, 5), (std::vector<int>{1, 1, 1, 1, 1, 0}));
    EXPECT_EQ(rows_by_band(2, 4), (std::vector<int>{1, 1, 0, 0, 0}));
    // Tiles of 2 rows where 1.5 would fit: the picture ends in a middle band.
    EXPECT_EQ(rows_by_band(15, 10), (std::vector<int>{2, 2, 2, 2, 2, 2, 2, 1, 0, 0, 0}));
}

TEST_F(TileColorTRCApplyTest, ATileWidthRoundedUpOvershootsByAPixel) {
    const TileColorTRCPtr grid =
        constant_grid(4, 2, [](uint64_t, uint64_t x, uint64_t) { return static_cast<uint32_t>(50 * x + 50); });
    const BytePicture input = flat_picture(1002, 3, 9);
    const BytePicture before = flat_picture(1002, 3, 1);
    Guarded target(before.bytes);
    apply_chunks(grid.get(), input, {3}, input.bytes.data(), target.data());
    EXPECT_TRUE(target.intact());
    BytePicture output = before;
    output.bytes = target.bytes();
    for (uint64_t y = 0; y < 3; ++y) {
        for (uint64_t x = 0; x <= 125; ++x) { // the left run, and the first pixel of the first middle run
            ASSERT_EQ(+output.at(0, x, y), 50) << x;
        }
        EXPECT_EQ(+output.at(0, 126 + 6, y), 51); // 50 + 7 * 50 / 251
        EXPECT_LT(+output.at(0, 877, y), 200);    // the last pixel of the last middle run
        for (uint64_t x = 878; x < 1002; ++x) {   // the right run
            ASSERT_EQ(+output.at(0, x, y), 200) << x;
        }
    }
}

TEST_F(TileColorTRCApplyTest, ATileWidthRoundedDownLeavesAColumn) {
    const TileColorTRCPtr grid = constant_grid(4, 2, [](uint64_t, uint64_t, uint64_t) { return 60u; });
    for (int32_t layout = 0; layout < 3; ++layout) {
        const BytePicture input = flat_picture(1001, 6, 9, layout);
        const BytePicture output = applied(grid.get(), input, flat_picture(1001, 6, 222, layout), {6});
        for (uint64_t y = 0; y < 6; ++y) {
            for (uint64_t c = 0; c < 3; ++c) {
                EXPECT_GE(+output.at(c, 999, y), 59);
                EXPECT_LE(+output.at(c, 999, y), 60);
                EXPECT_EQ(+output.at(c, 1000, y), 222);
            }
        }
    }
}

// The two outer runs are half a tile each, cut: an odd tile width leaves the last column even where the columns divide the
// width.
TEST_F(TileColorTRCApplyTest, AnOddTileWidthLeavesAColumn) {
    for (const auto &[width, columns] : {std::pair<uint64_t, uint64_t>{1000, 8}, {56, 8}, {15, 1}, {3, 1}}) {
        const TileColorTRCPtr grid = constant_grid(columns, 2, [](uint64_t, uint64_t, uint64_t) { return 60u; });
        const BytePicture output = applied(grid.get(), flat_picture(width, 6, 9), flat_picture(width, 6, 222), {6});
        for (uint64_t y = 0; y < 6; ++y) {
            EXPECT_NE(+output.at(0, width - 2, y), 222) << width;
            EXPECT_EQ(+output.at(0, width - 1, y), 222) << width;
        }
    }
}

TEST_F(TileColorTRCApplyTest, MiddleRunsEndAtTheRowsEnd) {
    // Tiles of 2 where 1.5 would fit: the eighth middle run is cut to no pixel, and the ones after it have none.
    const TileColorTRCPtr grid =
        constant_grid(10, 1, [](uint64_t, uint64_t x, uint64_t) { return static_cast<uint32_t>(20 * x); });
    Guarded target(flat_picture(15, 2, 255).bytes);
    const BytePicture input = flat_picture(15, 2, 9);
    apply_chunks(grid.get(), input, {2}, input.bytes.data(), target.data());
    EXPECT_TRUE(target.intact());
    BytePicture output = input;
    output.bytes = target.bytes();
    const std::vector<int> row{0, 0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 120, 130};
    EXPECT_EQ(red_row(output, 0), row);
    EXPECT_EQ(red_row(output, 1), row);
}

TEST_F(TileColorTRCApplyTest, TilesOfOnePixelTakeTheLeftCurve) {
    const TileColorTRCPtr grid =
        constant_grid(5, 5, [](uint64_t, uint64_t x, uint64_t y) { return static_cast<uint32_t>(10 * y + x); });
    const BytePicture output = applied(grid.get(), flat_picture(5, 5, 9), flat_picture(5, 5, 99), {5});
    for (uint64_t y = 0; y < 5; ++y) { // half a tile is no column but, with the row more, a row
        const int row = static_cast<int>(y == 0 ? 0 : 10 * (y - 1));
        EXPECT_EQ(red_row(output, y), (std::vector<int>{row, row + 1, row + 2, row + 3, 99})) << y;
    }
}

TEST_F(TileColorTRCApplyTest, APictureOfOneColumnIsNotReached) {
    const TileColorTRCPtr grid = noise_grid(1, 1, 256);
    const BytePicture before = noise_picture(1, 7, interleaved, 2);
    EXPECT_EQ(applied(grid.get(), noise_picture(1, 7, interleaved, 1), before, {7}).bytes, before.bytes);
}

TEST_F(TileColorTRCApplyTest, TheCurvesOfTheOuterGridRowsFillTheEdges) {
    const TileColorTRCPtr grid =
        constant_grid(1, 3, [](uint64_t, uint64_t, uint64_t y) { return static_cast<uint32_t>(40 * y + 40); });
    const BytePicture output = applied(grid.get(), flat_picture(2, 12, 99));
    EXPECT_EQ(red_column(output, 0), (std::vector<int>{40, 40, 40, 40, 50, 60, 70, 80, 90, 100, 110, 120}));
}

TEST_F(TileColorTRCApplyTest, InitFillsTheRecord) {
    const TileColorTRCPtr grid = noise_grid(4, 3, 256);
    TileColorTRCApply apply;
    std::memset(&apply, 0xff, sizeof apply);
    expect_success([&] { return KoTileColorTRCApplyInit(&apply, grid.get(), 1002, 1001, KO_BYTE_LAYOUT_PLANAR); });
    EXPECT_EQ(apply.tileColorTRC, grid.get());
    EXPECT_EQ(apply.width, 1002u);
    EXPECT_EQ(apply.height, 1001u);
    EXPECT_EQ(apply.layout, 2u);
    EXPECT_EQ(apply.tileWidth, 251u);  // 250.5
    EXPECT_EQ(apply.tileHeight, 334u); // 333.67
    EXPECT_EQ(apply.rowsDone, 0u);
    EXPECT_EQ(apply.band, 0u);
    EXPECT_EQ(apply.bandEnd, 168u); // no share of a remainder
    EXPECT_EQ(apply.debugFlags, 0u);
    EXPECT_EQ(apply.xStep, 1.0f / 251.0f);
    EXPECT_EQ(apply.yStep, 1.0f / 334.0f);
    EXPECT_EQ(KoTileColorTRCApplyFree(&apply), KO_OK);
}

TEST_F(TileColorTRCApplyTest, NewFillsTheRecord) {
    const TileColorTRCPtr grid = noise_grid(4, 3, 256);
    for (int32_t layout = 0; layout < 3; ++layout) {
        const TileColorTRCApplyPtr apply(KoTileColorTRCApplyNew(grid.get(), 1001, 1000, layout));
        ASSERT_NE(apply, nullptr);
        EXPECT_EQ(apply->tileColorTRC, grid.get());
        EXPECT_EQ(apply->width, 1001u);
        EXPECT_EQ(apply->height, 1000u);
        EXPECT_EQ(apply->layout, static_cast<uint32_t>(layout));
        EXPECT_EQ(apply->tileWidth, 250u);  // 250.25
        EXPECT_EQ(apply->tileHeight, 333u); // 333.33
        EXPECT_EQ(apply->rowsDone, 0u);
        EXPECT_EQ(apply->band, 0u);
        EXPECT_EQ(apply->bandEnd, 167u);
        EXPECT_EQ(apply->debugFlags, 0u);
        EXPECT_EQ(apply->xStep, 0.004f);
        EXPECT_EQ(apply->yStep, 1.0f / 333.0f);
    }
    expect_status(KO_OK, "");
}

TEST_F(TileColorTRCApplyTest, TileSizesAreComputedInSinglePrecision) {
    struct Case {
        uint64_t pixels, strips, tile;
    };
    const Case cases[] = {
        {1000, 4, 250},         {1001, 4, 250}, {1002, 4, 251}, {1003, 4, 251}, {1, 2, 1}, {3, 2, 2}, {5, 2, 3},
        {16711807, 255, 65537},  // 65536.498 is no float; the nearest one is 65536.5
        {8388609, 1, 8388610},   // adding a half is a tie, which goes to the even float
        {16777217, 5, 3355443},  // the size itself is 16777216
        {16777221, 6, 2796203},  // 16777220
        {16777227, 3, 5592410}}; // 16777228
    for (const Case &c : cases) {
        const TileColorTRCPtr grid(KoTileColorTRCNew(256, c.strips, 1));
        const TileColorTRCPtr turned(KoTileColorTRCNew(256, 1, c.strips));
        TileColorTRCApply apply;
        ASSERT_EQ(KoTileColorTRCApplyInit(&apply, grid.get(), c.pixels, 4, interleaved), KO_OK);
        EXPECT_EQ(apply.tileWidth, c.tile) << c.pixels << " by " << c.strips;
        EXPECT_EQ(apply.xStep, 1.0f / static_cast<float>(c.tile));
        EXPECT_EQ(apply.tileHeight, 4u);
        ASSERT_EQ(KoTileColorTRCApplyInit(&apply, turned.get(), 4, c.pixels, interleaved), KO_OK);
        EXPECT_EQ(apply.tileHeight, c.tile) << c.pixels << " by " << c.strips;
        EXPECT_EQ(apply.yStep, 1.0f / static_cast<float>(c.tile));
        EXPECT_EQ(apply.bandEnd, c.tile / 2 + 1);
        EXPECT_EQ(apply.tileWidth, 4u);
    }
}

// A single strip that rounds up by a whole pixel: even then the right run ends with the row.
TEST_F(TileColorTRCApplyTest, AnEnormousRowIsNotOvershot) {
    constexpr uint64_t width = 8388609;
    const TileColorTRCPtr grid =
        constant_grid(1, 1, [](uint64_t c, uint64_t, uint64_t) { return static_cast<uint32_t>(c + 5); });
    Guarded picture(std::vector<uint8_t>(width * 3, uint8_t{1}));
    const TileColorTRCApplyPtr apply(KoTileColorTRCApplyNew(grid.get(), width, 1, interleaved));
    ASSERT_NE(apply, nullptr);
    EXPECT_EQ(KoTileColorTRCApplyToByteChunk(apply.get(), 1, picture.data(), picture.data()), KO_OK);
    EXPECT_TRUE(picture.intact());
    const std::vector<uint8_t> bytes = picture.bytes();
    for (uint64_t i = 0; i < bytes.size(); ++i) {
        ASSERT_EQ(bytes[i], i % 3 + 5) << i;
    }
}

TEST_F(TileColorTRCApplyTest, ARecordCanBePreparedAgain) {
    const TileColorTRCPtr grid = noise_grid(2, 2, 256);
    const TileColorTRCPtr other = noise_grid(3, 3, 256);
    const BytePicture input = noise_picture(12, 10, interleaved, 1);
    const BytePicture before = noise_picture(12, 10, interleaved, 2);
    BytePicture output = before;
    TileColorTRCApply apply;
    ASSERT_EQ(KoTileColorTRCApplyInit(&apply, other.get(), 12, 10, interleaved), KO_OK);
    EXPECT_EQ(KoTileColorTRCApplyToByteChunk(&apply, 7, input.bytes.data(), output.bytes.data()), KO_OK);
    EXPECT_EQ(KoTileColorTRCApplyFree(&apply), KO_OK);
    output = before;
    ASSERT_EQ(KoTileColorTRCApplyInit(&apply, grid.get(), 12, 10, interleaved), KO_OK);
    expect_position(Position(10, 2), &apply);
    EXPECT_EQ(KoTileColorTRCApplyToByteChunk(&apply, 10, input.bytes.data(), output.bytes.data()), KO_OK);
    expect_same(reference_tile_color_apply(*grid, input, before).bytes, output.bytes, "second picture");
}

TEST_F(TileColorTRCApplyTest, PositionSurvivesBetweenChunks) {
    const TileColorTRCPtr grid = noise_grid(2, 2, 256);
    const BytePicture input = noise_picture(3, 20, interleaved, 1);
    BytePicture output = input;
    const TileColorTRCApplyPtr apply = make_apply(grid.get(), input);
    const auto hand_over = [&](uint64_t rows) {
        const uint64_t offset = apply->rowsDone * row_step(input);
        EXPECT_EQ(KoTileColorTRCApplyToByteChunk(apply.get(), rows, &input.bytes[offset], &output.bytes[offset]), KO_OK);
    };
    EXPECT_EQ(apply->bandEnd, 6u);
    hand_over(5);
    EXPECT_EQ(apply->band, 0u);
    hand_over(1); // the band ends with the chunk: the next one has begun
    EXPECT_EQ(apply->rowsDone, 6u);
    EXPECT_EQ(apply->band, 1u);
    EXPECT_EQ(apply->bandEnd, 16u);
    hand_over(0);
    EXPECT_EQ(apply->rowsDone, 6u);
    EXPECT_EQ(apply->band, 1u);
    hand_over(12);
    EXPECT_EQ(apply->rowsDone, 18u);
    EXPECT_EQ(apply->band, 2u);
    EXPECT_EQ(apply->bandEnd, 20u);
}

// Chunks may lie anywhere: a chunk's rows are found from its own pointers.
TEST_F(TileColorTRCApplyTest, BuffersMayBeUsedAgainForEveryChunk) {
    const TileColorTRCPtr grid = noise_grid(3, 4, 256);
    const BytePicture input = noise_picture(17, 13, KO_BYTE_LAYOUT_LINE_INTERLEAVED, 1);
    const BytePicture expected = reference_tile_color_apply(*grid, input, input);
    const TileColorTRCApplyPtr apply = make_apply(grid.get(), input);
    std::vector<uint8_t> row(17 * 3);
    for (uint64_t y = 0; y < 13; ++y) {
        std::copy_n(input.bytes.data() + y * row.size(), row.size(), row.data());
        EXPECT_EQ(KoTileColorTRCApplyToByteChunk(apply.get(), 1, row.data(), row.data()), KO_OK);
        EXPECT_TRUE(std::equal(row.begin(), row.end(), expected.bytes.data() + y * row.size())) << y;
    }
}

TEST_F(TileColorTRCApplyTest, RowsBeyondThePictureAreIgnored) {
    const TileColorTRCPtr grid = noise_grid(2, 2, 256);
    for (int32_t layout = 0; layout < 3; ++layout) {
        const BytePicture input = noise_picture(8, 6, layout, 2);
        const BytePicture before = noise_picture(8, 6, layout, 3);
        const BytePicture expected = reference_tile_color_apply(*grid, input, before);
        for (const uint64_t rows : {UINT64_MAX, UINT64_MAX / 3, uint64_t{1} << 32, uint64_t{7}}) {
            for (const uint64_t first : {uint64_t{0}, uint64_t{4}}) {
                Guarded target(before.bytes);
                const TileColorTRCApplyPtr apply = make_apply(grid.get(), input);
                const uint64_t offset = first * row_step(input);
                const auto hand_over = [&](uint64_t count, uint64_t at) {
                    expect_success([&] {
                        return KoTileColorTRCApplyToByteChunk(apply.get(), count, input.bytes.data() + at, target.data() + at);
                    });
                };
                hand_over(first, 0);
                hand_over(rows, offset);
                expect_same(expected.bytes, target.bytes(), "too many rows");
                EXPECT_EQ(apply->rowsDone, 6u);
                hand_over(rows, 0);
                hand_over(1, 0);
                hand_over(0, 0);
                expect_same(expected.bytes, target.bytes(), "a finished picture");
                EXPECT_EQ(apply->rowsDone, 6u);
                EXPECT_TRUE(target.intact());
            }
        }
    }
}

// What Init refuses, with its report; New makes it the failure of the object. No chunk is taken after it.
void expect_refused(const TileColorTRC *grid, uint64_t width, uint64_t height, int32_t layout) {
    SCOPED_TRACE(testing::Message() << width << " by " << height << ", layout " << layout);
    TileColorTRCApply apply;
    std::memset(&apply, 0xff, sizeof apply);
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                 [&] { return KoTileColorTRCApplyInit(&apply, grid, width, height, layout); });
    Guarded target(std::vector<uint8_t>(48, uint8_t{9}));
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                 [&] { return KoTileColorTRCApplyToByteChunk(&apply, 1, target.data(), target.data()); });
    EXPECT_EQ(target.bytes(), std::vector<uint8_t>(48, uint8_t{9}));
    EXPECT_TRUE(target.intact());
    if (grid != nullptr) {
        const PrintCapture printed("error");
        EXPECT_EQ(TileColorTRCApplyPtr(KoTileColorTRCApplyNew(grid, width, height, layout)), nullptr);
        expect_status(KO_ERR_CREATE_OBJECT, "Cannot create object \"TileColorTRCApply\"\n-> [ERROR] Invalid argument");
        EXPECT_EQ(printed.texts(), std::vector<std::string>{"[ERROR] Invalid argument"}); // by Init alone
        KoStatusClear();
    }
}

TEST_F(TileColorTRCApplyTest, TilesThatRoundToNothingAreRefused) {
    expect_refused(noise_grid(9, 1, 256).get(), 4, 20, interleaved);
    expect_refused(noise_grid(1, 9, 256).get(), 20, 4, interleaved);
    expect_refused(noise_grid(3, 3, 256).get(), 1, 1, KO_BYTE_LAYOUT_PLANAR);
    expect_refused(noise_grid(1, 1, 256).get(), 0, 5, interleaved);
    expect_refused(noise_grid(1, 1, 256).get(), 5, 0, interleaved);
    const TileColorTRCPtr half = noise_grid(8, 8, 256); // half a pixel rounds to one
    const TileColorTRCApplyPtr apply(KoTileColorTRCApplyNew(half.get(), 4, 4, interleaved));
    ASSERT_NE(apply, nullptr);
    EXPECT_EQ(apply->tileWidth, 1u);
    EXPECT_EQ(apply->tileHeight, 1u);
}

TEST_F(TileColorTRCApplyTest, CurvesOfFewerThan256EntriesAreRefused) {
    expect_refused(noise_grid(2, 2, 256, 255).get(), 15, 20, interleaved);
    expect_refused(noise_grid(1, 1, 256, 128).get(), 15, 20, interleaved);
    expect_refused(noise_grid(2, 3, 256, 1).get(), 15, 20, interleaved);
    const TileColorTRCPtr without_entries(KoTileColorTRCNew(0, 2, 2));
    expect_refused(without_entries.get(), 15, 20, interleaved);
}

TEST_F(TileColorTRCApplyTest, AGridWithoutStripsIsRefused) {
    const TileColorTRCPtr whole = noise_grid(2, 2, 256);
    const std::pair<uint64_t, uint64_t> shapes[] = {{0, 0}, {0, 1}, {1, 0}, {0, 4}, {4, 0}};
    for (const auto &[strips_x, strips_y] : shapes) {
        const TileColorTRCPtr grid(KoTileColorTRCNew(256, strips_x, strips_y));
        ASSERT_NE(grid, nullptr);
        expect_refused(grid.get(), 15, 20, interleaved);
        TileColorTRC with_curves = *whole; // the counts decide, whatever the planes are
        with_curves.numStripsX = strips_x;
        with_curves.numStripsY = strips_y;
        expect_refused(&with_curves, 15, 20, interleaved);
    }
}

TEST_F(TileColorTRCApplyTest, AGridWithoutCurvesIsRefused) {
    const TileColorTRCPtr grid = noise_grid(2, 2, 256);
    KoTileColorTRCFree(grid.get());
    expect_refused(grid.get(), 15, 20, interleaved);
}

TEST_F(TileColorTRCApplyTest, LayoutsBeyondOneBlockAreRefused) {
    const TileColorTRCPtr grid = noise_grid(2, 2, 256);
    const int32_t layouts[] = {KO_BYTE_LAYOUT_3_PLANES, 4, 5, 256, 1 << 24, INT32_MAX, -1, INT32_MIN};
    for (const int32_t layout : layouts) {
        expect_refused(grid.get(), 15, 20, layout);
    }
}

TEST_F(TileColorTRCApplyTest, InitRefusesNoGrid) { expect_refused(nullptr, 15, 20, interleaved); }

TEST_F(TileColorTRCApplyTest, NewWithoutAGridGivesAClearedRecordThatRefusesChunks) {
    const TileColorTRCApplyPtr apply(KoTileColorTRCApplyNew(nullptr, 15, 20, interleaved));
    ASSERT_NE(apply, nullptr);
    expect_status(KO_OK, "");
    EXPECT_EQ(apply->tileColorTRC, nullptr);
    EXPECT_EQ(apply->width, 0u);
    EXPECT_EQ(apply->height, 0u);
    EXPECT_EQ(apply->layout, 0u);
    EXPECT_EQ(apply->tileWidth, 0u);
    EXPECT_EQ(apply->tileHeight, 0u);
    EXPECT_EQ(apply->rowsDone, 0u);
    EXPECT_EQ(apply->band, 0u);
    EXPECT_EQ(apply->bandEnd, 0u);
    EXPECT_EQ(apply->debugFlags, 0u);
    EXPECT_EQ(apply->xStep, 0.0f);
    EXPECT_EQ(apply->yStep, 0.0f);
    std::vector<uint8_t> bytes(15 * 20 * 3, 1);
    for (const uint64_t rows : {uint64_t{0}, uint64_t{1}, uint64_t{20}, UINT64_MAX}) {
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&] { return KoTileColorTRCApplyToByteChunk(apply.get(), rows, bytes.data(), bytes.data()); });
    }
    EXPECT_EQ(bytes, std::vector<uint8_t>(15 * 20 * 3, 1));
    const TileColorTRCApplyPtr odd(KoTileColorTRCApplyNew(nullptr, 0, 0, -1)); // nothing is looked at
    EXPECT_NE(odd, nullptr);
    expect_status(KO_OK, "");
}

TEST_F(TileColorTRCApplyTest, FreeAndDeleteAcceptNull) {
    expect_success([] { return KoTileColorTRCApplyFree(nullptr); });
    expect_success([] { return KoTileColorTRCApplyDelete(nullptr); });
}

TEST_F(TileColorTRCApplyTest, FreeDoesNothing) {
    const TileColorTRCPtr grid = noise_grid(2, 2, 256);
    const BytePicture input = noise_picture(8, 6, interleaved, 2);
    const BytePicture expected = reference_tile_color_apply(*grid, input, input);
    BytePicture output = input;
    const TileColorTRCApplyPtr apply = make_apply(grid.get(), input);
    EXPECT_EQ(KoTileColorTRCApplyToByteChunk(apply.get(), 3, input.bytes.data(), output.bytes.data()), KO_OK);
    unsigned char before[sizeof(TileColorTRCApply)];
    std::memcpy(before, apply.get(), sizeof before);
    expect_success([&] { return KoTileColorTRCApplyFree(apply.get()); });
    EXPECT_EQ(std::memcmp(before, apply.get(), sizeof before), 0);
    const uint64_t offset = 3 * row_step(input);
    EXPECT_EQ(KoTileColorTRCApplyToByteChunk(apply.get(), 3, &input.bytes[offset], &output.bytes[offset]), KO_OK);
    expect_same(expected.bytes, output.bytes, "after Free");
}

TEST_F(TileColorTRCApplyTest, DeleteLeavesTheGridAlone) {
    const TileColorTRCPtr grid = noise_grid(2, 2, 256);
    const TileColorTRCPtr copy = noise_grid(2, 2, 256);
    const BytePicture input = noise_picture(8, 6, interleaved, 2);
    applied(grid.get(), input);
    TileColorTRCApply *apply = KoTileColorTRCApplyNew(grid.get(), 8, 6, interleaved);
    expect_success([&] { return KoTileColorTRCApplyDelete(apply); });
    EXPECT_EQ(KoTileColorTRCCompare(grid.get(), copy.get()), 1);
}

TEST_F(TileColorTRCApplyTest, RecordLayout) {
    EXPECT_EQ(sizeof(TileColorTRCApply), 88u);
    EXPECT_EQ(offsetof(TileColorTRCApply, tileColorTRC), 0u);
    EXPECT_EQ(offsetof(TileColorTRCApply, width), 8u);
    EXPECT_EQ(offsetof(TileColorTRCApply, height), 16u);
    EXPECT_EQ(offsetof(TileColorTRCApply, layout), 24u);
    EXPECT_EQ(sizeof(TileColorTRCApply::layout), 4u);
    EXPECT_EQ(offsetof(TileColorTRCApply, tileWidth), 32u);
    EXPECT_EQ(offsetof(TileColorTRCApply, tileHeight), 40u);
    EXPECT_EQ(offsetof(TileColorTRCApply, rowsDone), 48u);
    EXPECT_EQ(offsetof(TileColorTRCApply, band), 56u);
    EXPECT_EQ(offsetof(TileColorTRCApply, bandEnd), 64u);
    EXPECT_EQ(offsetof(TileColorTRCApply, debugFlags), 72u);
    EXPECT_EQ(offsetof(TileColorTRCApply, xStep), 76u);
    EXPECT_EQ(offsetof(TileColorTRCApply, yStep), 80u);
}

TEST_F(TileColorTRCApplyTest, SeveralRecordsShareAGrid) {
    const TileColorTRCPtr grid = noise_grid(4, 4, 256);
    const BytePicture input = noise_picture(64, 48, interleaved, 3);
    const BytePicture expected = reference_tile_color_apply(*grid, input, input);
    std::vector<BytePicture> outputs(4, input);
    std::vector<std::thread> threads;
    for (BytePicture &output : outputs) {
        threads.emplace_back([&] { apply_chunks(grid.get(), output, {5, 20, 23}, output.bytes.data(), output.bytes.data()); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (const BytePicture &output : outputs) {
        expect_same(expected.bytes, output.bytes, "shared");
    }
}

// A success says nothing about what failed before it.
TEST_F(TileColorTRCApplyTest, SuccessLeavesTheStatusOfAnEarlierFailure) {
    const TileColorTRCPtr grid = noise_grid(2, 2, 256);
    const BytePicture input = noise_picture(8, 6, interleaved, 2);
    TileColorTRCApply apply;
    EXPECT_EQ(KoTileColorTRCApplyInit(&apply, nullptr, 8, 6, interleaved), KO_ERR_INVALID_ARGUMENT);
    applied(grid.get(), input);
    expect_status(KO_ERR_INVALID_ARGUMENT, "[ERROR] Invalid argument");
}

} // namespace
