// The limit on the slope of curves, against all curves within the limit weighed one by one.
#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "kohost/slope.h"
#include "reference_slope.h"

namespace {

using namespace ko_test;

using Curve = std::vector<uint32_t>;

constexpr uint32_t limits[] = {1, 2, 3, 5, 255};

std::vector<Curve> curves_in(const TileTRC &grid) {
    std::vector<Curve> curves;
    for (uint64_t tile = 0; tile < grid.numStripsX * grid.numStripsY; ++tile) {
        curves.emplace_back(grid.array + tile * grid.size, grid.array + (tile + 1) * grid.size);
    }
    return curves;
}

// A grid of curves that make(tile) gives.
template <class Make> TileTRCPtr make_grid(uint64_t size, uint64_t columns, uint64_t rows, const Make &make) {
    TileTRCPtr grid(KoTileTRCNew(size, columns, rows));
    for (uint64_t tile = 0; tile < columns * rows; ++tile) {
        const Curve curve = make(tile);
        std::copy(curve.begin(), curve.end(), grid->array + tile * size);
    }
    return grid;
}

// The curves after the limit, after they were compared with the reference.
std::vector<Curve> expect_limited(TileTRC &grid, uint32_t limit, const RealImage *luminance) {
    const TileTRCPtr expected = make_grid(grid.size, grid.numStripsX, grid.numStripsY,
                                          [&, curves = curves_in(grid)](uint64_t tile) { return curves[tile]; });
    reference_limit_slope(*expected, limit, luminance);
    kohost::limit_slope(grid, limit, luminance);
    const std::vector<Curve> curves = curves_in(grid);
    const std::vector<Curve> wanted = curves_in(*expected);
    for (size_t tile = 0; tile < curves.size(); ++tile) {
        EXPECT_EQ(curves[tile], wanted[tile]) << "tile " << tile << " of " << curves.size() << ", limit " << limit;
        EXPECT_TRUE(ReferenceSlope(limit, {}).keeps_the_limit(curves[tile])) << "tile " << tile << ", limit " << limit;
    }
    return curves;
}

// ---- curves of many kinds

Curve rising(Noise &noise, uint64_t size, uint32_t most) {
    Curve curve;
    uint32_t level = noise.next() % 8;
    for (uint64_t i = 0; i < size; ++i) {
        curve.push_back(std::min(level, static_cast<uint32_t>(size - 1)));
        level += noise.next() % (most + 1);
    }
    return curve;
}

// Flat but for a few jumps.
Curve jumping(Noise &noise, uint64_t size) {
    Curve curve;
    uint32_t level = 0;
    for (uint64_t i = 0; i < size; ++i) {
        level += noise.next() % 40 == 0 ? noise.next() % static_cast<uint32_t>(size / 4) : 0;
        curve.push_back(std::min(level, static_cast<uint32_t>(size - 1)));
    }
    return curve;
}

Curve scattered(Noise &noise, uint64_t size, uint64_t top) {
    Curve curve;
    for (uint64_t i = 0; i < size; ++i) {
        curve.push_back(static_cast<uint32_t>(noise.next() % top));
    }
    return curve;
}

Curve with_huge_entries(Noise &noise, uint64_t size) {
    Curve curve = rising(noise, size, 3);
    for (int i = 0; i < 3; ++i) {
        curve[noise.next() % size] = 0xffffffffu - noise.next() % 3;
    }
    return curve;
}

// One step from below to above; the neighbours of the step are what the weights decide about.
Curve single_step(uint64_t size, uint64_t at, uint32_t below, uint32_t above) {
    Curve curve(size, below);
    std::fill(curve.begin() + static_cast<ptrdiff_t>(at), curve.end(), above);
    return curve;
}

constexpr int kinds = 8;

Curve curve_of_kind(Noise &noise, int kind, uint64_t size) {
    const auto top = static_cast<uint32_t>(size - 1);
    switch (kind) {
    case 0:
        return rising(noise, size, 2);
    case 1:
        return rising(noise, size, 9);
    case 2:
        return jumping(noise, size);
    case 3:
        return scattered(noise, size, size);
    case 4:
        return scattered(noise, size, uint64_t{1} << 32);
    case 5:
        return with_huge_entries(noise, size);
    case 6:
        return single_step(size, noise.next() % size, noise.next() % 9, top - noise.next() % 9);
    default:
        return single_step(size, noise.next() % size, top, noise.next() % 9);
    }
}

struct GridSize {
    uint64_t size, columns, rows;
};

// Luminance with many pixels at few levels, some of them outside of all curves.
RealImagePtr uneven_luminance(uint64_t width, uint64_t height, uint32_t seed) {
    Noise noise(seed);
    return make_image(width, height, [&](uint64_t x, uint64_t) {
        switch (noise.next() % 8) {
        case 0:
            return noise.uniform(-400.0f, 700.0f);
        case 1:
            return noise.uniform(0.0f, 256.0f);
        case 2:
            return 255.99f;
        default:
            return static_cast<float>((x * 7 + noise.next() % 5) % 256);
        }
    });
}

class Slopes : public testing::TestWithParam<GridSize> {};

TEST_P(Slopes, AreThoseOfTheNearestCurve) {
    const auto &[size, columns, rows] = GetParam();
    Noise noise(static_cast<uint32_t>(size + 31 * columns + rows));
    int kind = 0;
    for (const uint32_t limit : limits) {
        const RealImagePtr luminance = uneven_luminance(columns * 9 + 5, rows * 11 + 3, limit);
        // So that every kind of curve meets every limit, whatever the grid.
        for (uint64_t curves = 0; curves < kinds; curves += columns * rows) {
            const auto make = [&](uint64_t) { return curve_of_kind(noise, kind++ % kinds, size); };
            const TileTRCPtr grid = make_grid(size, columns, rows, make);
            expect_limited(*grid, limit, luminance.get());
        }
    }
}

TEST_P(Slopes, WithoutALuminanceWeighAllLevelsAlike) {
    const auto &[size, columns, rows] = GetParam();
    Noise noise(static_cast<uint32_t>(size + 31 * columns + rows));
    for (const uint32_t limit : limits) {
        int kind = static_cast<int>(limit);
        const auto make = [&](uint64_t) { return curve_of_kind(noise, kind++ % kinds, size); };
        const TileTRCPtr grid = make_grid(size, columns, rows, make);
        expect_limited(*grid, limit, nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(Kohost, Slopes,
                         testing::Values(GridSize{256, 1, 1}, GridSize{256, 3, 2}, GridSize{256, 8, 8}, GridSize{512, 2, 3},
                                         GridSize{1024, 1, 2}, GridSize{256, 1, 7}),
                         [](const auto &test) {
                             return std::to_string(test.param.size) + "_" + std::to_string(test.param.columns) + "x" +
                                    std::to_string(test.param.rows);
                         });

// ---- what stays

TEST(Slope, WithinTheLimitStays) {
    Noise noise(11);
    const RealImagePtr luminance = uneven_luminance(40, 40, 2);
    for (const uint32_t limit : limits) {
        const TileTRCPtr grid =
            make_grid(256, 2, 2, [&](uint64_t tile) { return tile == 3 ? Curve(256, 17) : rising(noise, 256, limit); });
        const std::vector<Curve> before = curves_in(*grid);
        kohost::limit_slope(*grid, limit, luminance.get());
        EXPECT_EQ(curves_in(*grid), before) << limit;
        kohost::limit_slope(*grid, limit, nullptr);
        EXPECT_EQ(curves_in(*grid), before) << limit;
    }
}

TEST(Slope, OnceLimitedStays) {
    Noise noise(12);
    const RealImagePtr luminance = uneven_luminance(64, 48, 3);
    const TileTRCPtr grid =
        make_grid(256, 4, 3, [&](uint64_t tile) { return curve_of_kind(noise, static_cast<int>(tile) % kinds, 256); });
    const std::vector<Curve> once = expect_limited(*grid, 3, luminance.get());
    kohost::limit_slope(*grid, 3, luminance.get());
    EXPECT_EQ(curves_in(*grid), once);
}

// One step too many changes its curve, and none beside it.
TEST(Slope, OneStepOverTheLimitIsOver) {
    for (const uint32_t limit : {1u, 3u, 255u}) {
        Curve curve = single_step(256, 128, 0, std::min(limit + 1, 255u));
        curve[255] = limit == 255 ? 254 : curve[255]; // no step is over 255, but one that falls is
        const TileTRCPtr grid =
            make_grid(256, 1, 2, [&](uint64_t tile) { return tile == 0 ? curve : single_step(256, 128, 0, limit); });
        const std::vector<Curve> before = curves_in(*grid);
        const std::vector<Curve> after = expect_limited(*grid, limit, nullptr);
        EXPECT_NE(after[0], before[0]) << limit;
        EXPECT_EQ(after[1], before[1]) << limit;
    }
}

// ---- the influence of the pixels

// The curve changes on the side of the step that holds no pixels.
TEST(Slope, LeavesTheLevelsAloneThatTheTileHolds) {
    const Curve step = single_step(256, 100, 20, 120);
    for (const bool dark : {false, true}) {
        const uint32_t first = dark ? 84 : 100;
        const RealImagePtr luminance =
            make_image(160, 160, [&](uint64_t x, uint64_t) { return static_cast<float>(first + x % 16); });
        const TileTRCPtr grid = make_grid(256, 1, 1, [&](uint64_t) { return step; });
        const Curve after = expect_limited(*grid, 4, luminance.get())[0];
        for (size_t level = first; level < first + 16; ++level) {
            EXPECT_EQ(after[level], step[level]) << level;
        }
    }
}

// The left tiles hold the level before the step, the right ones the level after it, and the column and the row that belong to
// no tile the other level.
TEST(Slope, CountsTheTilesOwnPixels) {
    const Curve step = single_step(256, 100, 20, 120);
    const RealImagePtr luminance = make_image(81, 81, [](uint64_t x, uint64_t y) {
        const bool left = x < 40;
        const bool outside = x == 80 || y == 80;
        return left != outside ? 99.0f : 100.0f;
    });
    const TileTRCPtr grid = make_grid(256, 2, 2, [&](uint64_t) { return step; });
    const std::vector<Curve> after = expect_limited(*grid, 5, luminance.get());
    for (const size_t tile : {0, 1, 2, 3}) {
        const bool left = tile % 2 == 0;
        EXPECT_EQ(after[tile][99], left ? 20u : 115u);
        EXPECT_EQ(after[tile][100], left ? 25u : 120u);
    }
}

TEST(Slope, TakesAPictureWithFewerPixelsThanTiles) {
    Noise noise(13);
    for (const auto &[width, height] : {std::pair<uint64_t, uint64_t>{1, 1}, {3, 40}, {40, 3}}) {
        const RealImagePtr luminance = make_image(width, height, [](uint64_t, uint64_t) { return 80.0f; });
        const TileTRCPtr grid =
            make_grid(256, 4, 4, [&](uint64_t tile) { return curve_of_kind(noise, static_cast<int>(tile) % kinds, 256); });
        expect_limited(*grid, 3, luminance.get());
    }
}

// ---- curves at the edges of their range

TEST(Slope, OfCurvesAtTheEndsOfTheRange) {
    const std::vector<Curve> curves = {Curve(256, 0),
                                       Curve(256, 255),
                                       Curve(256, 256),
                                       Curve(256, 0xffffffffu),
                                       single_step(256, 1, 0, 255),
                                       single_step(256, 255, 0, 255),
                                       single_step(256, 1, 255, 0),
                                       single_step(256, 255, 255, 0),
                                       single_step(256, 128, 0xffffffffu, 0),
                                       single_step(256, 128, 0, 0xffffffffu)};
    const RealImagePtr luminance = uneven_luminance(64, 64, 5);
    for (const uint32_t limit : limits) {
        const TileTRCPtr grid = make_grid(256, 1, curves.size(), [&](uint64_t tile) { return curves[tile]; });
        expect_limited(*grid, limit, luminance.get());
    }
}

// The greatest curve that a grid may have.
TEST(Slope, OfLongCurves) {
    Noise noise(14);
    const RealImagePtr luminance = uneven_luminance(200, 200, 6);
    for (const int kind : {2, 4}) {
        const TileTRCPtr grid = make_grid(4096, 1, 1, [&](uint64_t) { return curve_of_kind(noise, kind, 4096); });
        expect_limited(*grid, 3, luminance.get());
    }
}

} // namespace
