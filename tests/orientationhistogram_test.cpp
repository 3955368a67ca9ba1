// The orientation histogram against its plain form, bit for bit: every table, the gradients, the planes and the features; sizes
// that do not agree; and the files of the dump, byte for byte.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "awkward_floats.h"
#include "capture.h"
#include "files.h"
#include "ko/orientationhistogram.h"
#include "library_test.h"
#include "pictures.h"
#include "reference_orientationhistogram.h"
#include "same_floats.h"
#include "working_folder.h"

namespace {

using namespace ko_test;

// What a configuration gives: the geometry follows from P and the gradient's width.
struct Blocks {
    PatchGeometry geometry{};
    HistogramLayout layout{};
};

Blocks make_blocks(int32_t p, int32_t bins, int32_t grid, float gradient_sigma, float orientation_sigma = 0.5f,
                   float cell_sigma = 0.5f, float window_sigma = 0.5f, float threshold = 0.01f) {
    const auto border = static_cast<int32_t>(static_cast<double>(gradient_sigma) * 3.0 * p);
    Blocks blocks;
    blocks.geometry = {(p + border) * (p + border), p, 16, 1, 1.0f, 1.0f, 1, border};
    blocks.layout = {bins,       grid,         grid * grid, grid * grid * bins, gradient_sigma, 123.0f, orientation_sigma,
                     cell_sigma, window_sigma, threshold};
    return blocks;
}

size_t side_of(const Blocks &blocks) {
    return static_cast<size_t>(blocks.geometry.patch_size + 2 * blocks.geometry.patch_border);
}

// Whole and broken radii, odd sizes, one bin, one cell, all pixels and none, widths that underflow.
std::vector<Blocks> all_blocks() {
    return {make_blocks(16, 8, 4, 0.0625f),
            make_blocks(16, 4, 4, 0.125f, 0.4f, 0.7f, 0.5f, 0.02f),
            make_blocks(32, 9, 3, 0.03125f, 1.0f, 0.4f, 0.3f, 0.001f),
            make_blocks(20, 8, 4, 0.05f),
            make_blocks(17, 5, 2, 0.1f, 0.3f, 0.6f, 0.7f, 0.0f),
            make_blocks(13, 7, 5, 0.04f, 0.5f, 0.5f, 0.25f, 0.05f),
            make_blocks(8, 1, 1, 0.125f),
            make_blocks(1, 3, 1, 0.4f),
            make_blocks(12, 8, 4, 1.0f / 36.0f, 0.5f, 0.5f, 0.5f, -1.0f),
            make_blocks(16, 8, 4, 0.0625f, 0.5f, 0.5f, 0.5f, 2.0f),
            make_blocks(16, 8, 4, 0.0625f, 0.5f, 0.5f, 0.5f, not_a_number),
            make_blocks(16, 8, 2, 0.0625f, 0.5f, 0.001f, 0.5f, 0.0f),
            make_blocks(16, 3, 2, 0.0625f, 0.001f, 0.5f, 0.01f, 0.0f),
            make_blocks(16, 8, 4, 0.001f),
            make_blocks(9, 8, 3, 0.0f),
            make_blocks(9, 8, 3, 0.2f, 0.0f, 0.0f, 0.0f, 0.0f)};
}

std::vector<float> array(const float *values, size_t count) { return std::vector<float>(values, values + count); }

void expect_rows(const FloatRows &expected, const MatrixFloat &matrix) {
    ASSERT_EQ(matrix.height, expected.size());
    ASSERT_EQ(matrix.width, expected[0].size());
    for (size_t y = 0; y < expected.size(); ++y) {
        EXPECT_TRUE(same_floats(expected[y], array(matrix.rows[y], matrix.width))) << "row " << y;
    }
}

class OrientationHistogramTest : public LibraryTest {};

// An object over a blocks, beside its plain form.
struct Pair {
    explicit Pair(const Blocks &from)
        : blocks(from), reference(reference_orientation(blocks.geometry, blocks.layout)),
          object(KoOrientationHistogramNew(&blocks.geometry, &blocks.layout)) {}
    Pair(const Pair &) = delete;
    Pair &operator=(const Pair &) = delete;

    Blocks blocks;
    ReferenceOrientation reference;
    OrientationHistogramPtr object;
};

// Computes a patch's features and compares them, and all that lies on the way.
void expect_features(Pair &pair, size_t side, const std::vector<float> &patch) {
    const auto length = static_cast<size_t>(pair.blocks.layout.feature_length);
    std::vector<float> features(length + 1, 1234.0f);
    OrientationHistogram *oh = pair.object.get();
    expect_success(
        [&] { return KoOrientationHistogramCompute(oh, static_cast<uint32_t>(side), patch.data(), features.data()); });
    EXPECT_EQ(features[length], 1234.0f) << "written behind the end";
    features.pop_back();
    const std::vector<float> expected = reference_features(pair.reference, side, patch);
    const size_t count = pair.reference.gradient_x.size();
    EXPECT_TRUE(same_floats(pair.reference.gradient_x, array(oh->gradient_x, count)));
    EXPECT_TRUE(same_floats(pair.reference.gradient_y, array(oh->gradient_y, count)));
    expect_rows(pair.reference.planes, oh->orientation_planes);
    EXPECT_TRUE(same_floats(expected, features));
}

std::vector<float> noise_patch(size_t side, uint32_t seed) {
    Noise noise(seed);
    std::vector<float> patch(side * side);
    std::generate(patch.begin(), patch.end(), [&] { return noise.uniform(0.0f, 255.0f); });
    return patch;
}

std::vector<float> patch_of(size_t side, const std::function<float(float x, float y)> &value) {
    std::vector<float> patch;
    for (size_t y = 0; y < side; ++y) {
        for (size_t x = 0; x < side; ++x) {
            patch.push_back(value(static_cast<float>(x), static_cast<float>(y)));
        }
    }
    return patch;
}

// The tables.

TEST_F(OrientationHistogramTest, TablesFollowTheFormulas) {
    int number = 0;
    for (const Blocks &blocks : all_blocks()) {
        SCOPED_TRACE(number++);
        const Pair pair(blocks);
        const OrientationHistogram *oh = pair.object.get();
        ASSERT_NE(oh, nullptr);
        EXPECT_EQ(oh->geometry, &pair.blocks.geometry);
        EXPECT_EQ(oh->layout, &pair.blocks.layout);
        ASSERT_EQ(oh->radius, pair.reference.radius);
        const size_t taps = pair.reference.gauss.size();
        EXPECT_TRUE(same_floats(pair.reference.gauss, array(oh->gauss_kernel, taps)));
        EXPECT_TRUE(same_floats(pair.reference.deriv, array(oh->deriv_kernel, taps)));
        expect_rows(pair.reference.weights, oh->spatial_weights);
        expect_rows(pair.reference.upper, oh->orientation_upper);
        expect_rows(pair.reference.lower, oh->orientation_lower);
        EXPECT_TRUE(same_floats(pair.reference.logistic, array(oh->logistic_table, 255)));
        ASSERT_EQ(oh->spatial_index.height, pair.reference.index.size());
        ASSERT_EQ(oh->spatial_index.width, oh->spatial_weights.width + 1);
        for (size_t c = 0; c < pair.reference.index.size(); ++c) {
            const int32_t *row = oh->spatial_index.rows[c];
            const std::vector<int32_t> &expected = pair.reference.index[c];
            EXPECT_EQ(std::vector<int32_t>(row, row + expected.size()), expected) << "cell " << c;
        }
        expect_status(KO_OK, "");
    }
}

TEST_F(OrientationHistogramTest, BuffersHaveTheirSizesAndStartCleared) {
    Blocks blocks = make_blocks(16, 8, 4, 0.0625f);
    blocks.geometry.position_count = 5;
    const OrientationHistogramPtr oh(KoOrientationHistogramNew(&blocks.geometry, &blocks.layout));
    ASSERT_NE(oh, nullptr);
    EXPECT_EQ(oh->histogram_rows.height, 5u);
    EXPECT_EQ(oh->histogram_rows.width, 128u);
    EXPECT_EQ(oh->orientation_planes.height, 8u);
    EXPECT_EQ(oh->orientation_planes.width, 361u);
    const std::vector<float> cleared(361, 0.0f);
    EXPECT_EQ(array(oh->gradient_x, 361), cleared);
    EXPECT_EQ(array(oh->gradient_y, 361), cleared);
    EXPECT_EQ(array(oh->scratch, 361), cleared);
    for (float *table : {oh->position_table_0, oh->position_table_1, oh->position_table_2}) {
        ASSERT_NE(table, nullptr);
        std::fill(table, table + 5, 1.0f);
    }
    std::fill(oh->cell_buffer, oh->cell_buffer + 256, 1.0f);
}

TEST_F(OrientationHistogramTest, FiltersAreNormalisedAndTheDerivativeFallsToTheRight) {
    const Pair pair(make_blocks(16, 8, 4, 0.125f));
    double gauss = 0.0;
    double deriv = 0.0;
    for (int32_t i = 0; i <= 12; ++i) {
        gauss += static_cast<double>(pair.object->gauss_kernel[i]);
        deriv += std::fabs(static_cast<double>(pair.object->deriv_kernel[i]));
        EXPECT_EQ(pair.object->gauss_kernel[i], pair.object->gauss_kernel[12 - i]);
        EXPECT_EQ(pair.object->deriv_kernel[i], -pair.object->deriv_kernel[12 - i]);
    }
    EXPECT_NEAR(gauss, 1.0, 1e-6);
    EXPECT_NEAR(deriv, 1.0, 1e-6);
    EXPECT_GT(pair.object->deriv_kernel[5], 0.0f);
}

// The cells share each pixel of the window's Gaussian, and the bins each direction.
TEST_F(OrientationHistogramTest, SharesAddUp) {
    const Pair pair(make_blocks(16, 8, 4, 0.0625f));
    const OrientationHistogram *oh = pair.object.get();
    for (int32_t pixel = 0; pixel < 256; ++pixel) {
        double sum = 0.0;
        for (int32_t c = 0; c < 16; ++c) {
            sum += static_cast<double>(oh->spatial_weights.rows[c][pixel]);
        }
        const double x = pixel % 16 + 1 - 8.5;
        const double y = pixel / 16 + 1 - 8.5;
        EXPECT_NEAR(sum, std::exp((x * x + y * y) * -0.5 / 64.0), 1e-5) << pixel;
    }
    for (int32_t j = 0; j < 255; ++j) {
        double upper = 0.0;
        double lower = 0.0;
        for (int32_t b = 0; b < 8; ++b) {
            upper += static_cast<double>(oh->orientation_upper.rows[b][j]);
            lower += static_cast<double>(oh->orientation_lower.rows[b][j]);
        }
        EXPECT_NEAR(upper, 1.0, 1e-5);
        EXPECT_NEAR(lower, 1.0, 1e-5);
    }
}

// Life.

TEST_F(OrientationHistogramTest, InitLeavesThePatchCountAndLooksAtNoOldContents) {
    const Blocks blocks = make_blocks(16, 8, 4, 0.0625f);
    OrientationHistogram oh;
    std::memset(&oh, 0x5A, sizeof oh);
    expect_success([&] { return KoOrientationHistogramInit(&oh, &blocks.geometry, &blocks.layout); });
    EXPECT_EQ(oh.patch_count, 0x5A5A5A5A);
    EXPECT_EQ(oh.radius, 3);
    expect_success([&] { return KoOrientationHistogramFree(&oh); });
}

TEST_F(OrientationHistogramTest, FreeAndDeleteAcceptNull) {
    expect_success([] { return KoOrientationHistogramFree(nullptr); });
    expect_success([] { return KoOrientationHistogramDelete(nullptr); });
}

// The features.

TEST_F(OrientationHistogramTest, FeaturesOfNoise) {
    int number = 0;
    for (const Blocks &blocks : all_blocks()) {
        SCOPED_TRACE(number++);
        Pair pair(blocks);
        if (2 * pair.reference.radius >= static_cast<int32_t>(side_of(blocks))) {
            continue;
        }
        for (uint32_t seed = 0; seed < 6; ++seed) {
            expect_features(pair, side_of(blocks), noise_patch(side_of(blocks), seed));
        }
    }
}

TEST_F(OrientationHistogramTest, FeaturesOfSlopesAndEdges) {
    Pair pair(make_blocks(16, 8, 4, 0.0625f));
    for (int32_t degrees = 0; degrees < 360; degrees += 5) {
        SCOPED_TRACE(degrees);
        const float c = static_cast<float>(std::cos(degrees * 0.017453292519943295));
        const float s = static_cast<float>(std::sin(degrees * 0.017453292519943295));
        const auto along = [&](float x, float y) { return c * (x - 10.5f) + s * (y - 10.5f); };
        expect_features(pair, 22, patch_of(22, along));
        expect_features(pair, 22, patch_of(22, [&](float x, float y) { return along(x, y) > 0.0f ? 200.0f : 30.0f; }));
        expect_features(pair, 22, patch_of(22, [&](float x, float y) { return 1e-21f * along(x, y); }));
        expect_features(pair, 22, patch_of(22, [&](float x, float y) { return 1e25f * along(x, y); }));
    }
}

TEST_F(OrientationHistogramTest, FeaturesOfAConstantPatchAreNearlyZero) {
    Pair pair(make_blocks(16, 8, 4, 0.125f));
    std::vector<float> features(128);
    const std::vector<float> patch(28 * 28, 173.0f);
    expect_features(pair, 28, patch);
    KoOrientationHistogramCompute(pair.object.get(), 28, patch.data(), features.data());
    for (const float feature : features) {
        EXPECT_LT(std::fabs(feature), 1e-3f);
    }
}

// A gradient is positive where the picture grows darker: the bin of direction 0 answers to a fall towards the right.
TEST_F(OrientationHistogramTest, BinsAnswerToTheDirectionOfTheFall) {
    Pair pair(make_blocks(16, 4, 1, 0.0625f));
    const std::function<float(float, float)> falls[] = {
        [](float x, float) { return -9.0f * x; }, [](float, float y) { return -9.0f * y; },
        [](float x, float) { return 9.0f * x; }, [](float, float y) { return 9.0f * y; }};
    for (size_t direction = 0; direction < 4; ++direction) {
        std::vector<float> features(4);
        KoOrientationHistogramCompute(pair.object.get(), 22, patch_of(22, falls[direction]).data(), features.data());
        EXPECT_EQ(std::max_element(features.begin(), features.end()) - features.begin(), static_cast<ptrdiff_t>(direction));
    }
}

// The features stand cell by cell in grid order, and in each cell bin by bin.
TEST_F(OrientationHistogramTest, FeaturesStandCellByCell) {
    Pair pair(make_blocks(16, 4, 2, 0.0625f, 0.3f, 0.3f, 2.0f));
    const auto edge_in_top_right = [](float x, float y) { return y < 9.0f && x > 14.0f ? 255.0f : 0.0f; };
    std::vector<float> features(16);
    KoOrientationHistogramCompute(pair.object.get(), 22, patch_of(22, edge_in_top_right).data(), features.data());
    EXPECT_EQ(std::max_element(features.begin(), features.end()) - features.begin(), 1 * 4 + 2);
}

TEST_F(OrientationHistogramTest, OneComputationLeavesNothingToTheNext) {
    Pair pair(make_blocks(16, 8, 4, 0.0625f));
    Pair fresh(make_blocks(16, 8, 4, 0.0625f));
    expect_features(pair, 22, noise_patch(22, 1));
    expect_features(pair, 12, noise_patch(12, 2)); // a smaller side leaves the planes' rest cleared
    expect_features(pair, 22, noise_patch(22, 3));
    expect_features(fresh, 12, noise_patch(12, 2));
}

// Values that squares and sums trip over.
TEST_F(OrientationHistogramTest, FeaturesOfAwkwardPixels) {
    Pair pair(make_blocks(16, 8, 4, 0.0625f));
    for (const float value : {not_a_number, 3e38f, -3e38f, 1e20f, 1e-30f, 1e-22f, 1e-44f}) {
        SCOPED_TRACE(value);
        for (const size_t at : {0u, 7u * 22u + 9u, 21u * 22u + 21u}) {
            std::vector<float> patch = noise_patch(22, 5);
            patch[at] = value;
            expect_features(pair, 22, patch);
            std::fill(patch.begin(), patch.end(), 0.0f);
            patch[at] = value;
            expect_features(pair, 22, patch);
        }
    }
}

// The quantised direction. Filters of three taps that only subtract neighbours, and tables that tell what was looked up.

class OrientationQuantisationTest : public OrientationHistogramTest {
  protected:
    OrientationQuantisationTest() : pair_(make_blocks(16, 2, 2, 0.02f)) {
        OrientationHistogram *oh = pair_.object.get();
        EXPECT_EQ(oh->radius, 1);
        const float gauss[] = {0.0f, 1.0f, 0.0f};
        const float deriv[] = {1.0f, 0.0f, -1.0f};
        std::copy(gauss, gauss + 3, oh->gauss_kernel);
        std::copy(deriv, deriv + 3, oh->deriv_kernel);
        for (int32_t b = 0; b < 2; ++b) {
            for (int32_t j = 0; j < 255; ++j) {
                oh->orientation_upper.rows[b][j] = static_cast<float>(1000 * (b + 1) + j);
                oh->orientation_lower.rows[b][j] = -static_cast<float>(1000 * (b + 1) + j);
            }
        }
    }

    // The two planes' values at the middle of a patch of three by three with the gradient (gx, gy) there.
    std::vector<float> planes(float gx, float gy) {
        const std::vector<float> patch = {0, gy, 0, gx, 0, 0, 0, 0, 0};
        std::vector<float> features(8);
        EXPECT_EQ(KoOrientationHistogramCompute(pair_.object.get(), 3, patch.data(), features.data()), KO_OK);
        const OrientationHistogram *oh = pair_.object.get();
        EXPECT_TRUE(same_float(oh->gradient_x[0], gx));
        EXPECT_TRUE(same_float(oh->gradient_y[0], gy));
        return {oh->orientation_planes.rows[0][0], oh->orientation_planes.rows[1][0]};
    }

    // With the magnitude m, entry j of the upper (sign 1) or lower (-1) table.
    static std::vector<float> looked_up(float sign, float j, float m) {
        return {sign * (1000.0f + j) * m, sign * (2000.0f + j) * m};
    }

    Pair pair_;
};

TEST_F(OrientationQuantisationTest, TheEndsOfTheTable) {
    EXPECT_EQ(planes(2.0f, 0.0f), looked_up(-1.0f, 254.0f, 2.0f));
    EXPECT_EQ(planes(-2.0f, 0.0f), looked_up(-1.0f, 0.0f, 2.0f));
}

// A y of exactly 0, of either sign, takes the lower table.
TEST_F(OrientationQuantisationTest, TheSignOfYChoosesTheTable) {
    EXPECT_EQ(planes(3.0f, 4.0f), looked_up(1.0f, 203.0f, 5.0f));
    EXPECT_EQ(planes(3.0f, -4.0f), looked_up(-1.0f, 203.0f, 5.0f));
    EXPECT_EQ(planes(-3.0f, 4.0f), looked_up(1.0f, 50.0f, 5.0f));
    EXPECT_EQ(planes(0.0f, 5.0f), looked_up(1.0f, 127.0f, 5.0f));
    EXPECT_EQ(planes(0.0f, -5.0f), looked_up(-1.0f, 127.0f, 5.0f));
    EXPECT_EQ(planes(5.0f, 0.0f), looked_up(-1.0f, 254.0f, 5.0f));
    EXPECT_EQ(planes(10.0f, 1e-40f), looked_up(1.0f, 254.0f, 10.0f)) << "a tiny quotient is above 0";
    EXPECT_EQ(planes(1e10f, 1e-38f), looked_up(-1.0f, 254.0f, 1e10f)) << "a quotient that vanishes is 0";
}

TEST_F(OrientationQuantisationTest, NoGradientCountsNowhere) {
    EXPECT_EQ(planes(0.0f, 0.0f), (std::vector<float>{0.0f, 0.0f}));
    EXPECT_EQ(planes(2e-23f, 0.0f), (std::vector<float>{0.0f, 0.0f})) << "its square is 0";
    EXPECT_EQ(planes(1e-30f, -1e-30f), (std::vector<float>{0.0f, 0.0f}));
}

// A square that lost digits makes a quotient above 1, which is held to the table's end.
TEST_F(OrientationQuantisationTest, AQuotientOutsideIsHeld) {
    const auto m = static_cast<float>(std::sqrt(static_cast<double>(4e-23f * 4e-23f)));
    ASSERT_GT(4e-23f / m, 1.0f + 1.0f / 127.0f);
    EXPECT_EQ(planes(4e-23f, 0.0f), looked_up(-1.0f, 254.0f, m));
    EXPECT_EQ(planes(-4e-23f, 0.0f), looked_up(-1.0f, 0.0f, m));
}

TEST_F(OrientationQuantisationTest, AQuotientThatIsNotANumberCountsNowhere) {
    const std::vector<float> patch = {0, 0, 0, infinity, 0, 0, 0, 0, 0};
    std::vector<float> features(8);
    EXPECT_EQ(KoOrientationHistogramCompute(pair_.object.get(), 3, patch.data(), features.data()), KO_OK);
    EXPECT_EQ(pair_.object->orientation_planes.rows[0][0], 0.0f);
    EXPECT_EQ(pair_.object->orientation_planes.rows[1][0], 0.0f);
}

// Sizes.

// Every side that fits is computed, whether or not it is the one that the tables are made for.
TEST_F(OrientationHistogramTest, OtherSidesRunAcrossTheRows) {
    for (const float sigma : {0.0625f, 0.05f}) { // a whole radius, and one above the border
        Pair pair(make_blocks(16, 4, 4, sigma));
        const auto radius = static_cast<uint32_t>(pair.reference.radius);
        const auto capacity = static_cast<uint32_t>(pair.blocks.geometry.padded_pixels);
        std::vector<float> features(64);
        uint32_t computed = 0;
        for (uint32_t side = 0; side < 60; ++side) {
            SCOPED_TRACE(side);
            const bool fits = side > 2 * radius && (side - 2 * radius) * side <= capacity;
            const std::vector<float> patch = noise_patch(side + 1, side);
            if (fits) {
                expect_features(pair, side, patch);
                ++computed;
            } else {
                KoStatusClear();
                EXPECT_EQ(KoOrientationHistogramCompute(pair.object.get(), side, patch.data(), features.data()),
                          KO_ERR_INVALID_ARGUMENT);
                EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INVALID_ARGUMENT);
            }
        }
        EXPECT_GT(computed, 10u);
    }
}

TEST_F(OrientationHistogramTest, ARadiusAboveTheBorderShortensTheRows) {
    Pair pair(make_blocks(20, 8, 4, 0.06f));
    ASSERT_EQ(pair.blocks.geometry.patch_border, 3);
    ASSERT_EQ(pair.object->radius, 4);
    expect_features(pair, 26, noise_patch(26, 1));
    EXPECT_EQ(pair.reference.gradient_x.size(), 18u * 18u);
}

TEST_F(OrientationHistogramTest, EnormousSidesAreRefused) {
    Pair pair(make_blocks(16, 8, 4, 0.0625f));
    std::vector<float> features(128);
    const float pixel = 0.0f;
    for (const uint32_t side : {362u, 65536u, 65542u, 0x7FFFFFFFu, 0x80000000u, 0x80000006u, 0xFFFFFFFFu}) {
        EXPECT_EQ(KoOrientationHistogramCompute(pair.object.get(), side, &pixel, features.data()), KO_ERR_INVALID_ARGUMENT)
            << side;
    }
}

// No pixel above the threshold: the list ends where it begins, and the features are the logarithm of 1.
TEST_F(OrientationHistogramTest, CellsWithoutPixelsGiveZero) {
    const Blocks blocks = make_blocks(16, 8, 4, 0.0625f, 0.5f, 0.5f, 0.5f, 2.0f);
    const OrientationHistogramPtr oh(KoOrientationHistogramNew(&blocks.geometry, &blocks.layout));
    std::vector<float> features(128, 5.0f);
    expect_success([&] { return KoOrientationHistogramCompute(oh.get(), 22, noise_patch(22, 1).data(), features.data()); });
    EXPECT_EQ(features, std::vector<float>(128, 0.0f));
    for (int32_t c = 0; c < 16; ++c) {
        EXPECT_EQ(oh->spatial_index.rows[c][0], -1);
    }
}

// Blocks that no table can have, or that do not agree, end in a status and leave nothing behind.
struct Change {
    const char *name;
    void (*apply)(Blocks &blocks);
};

class OrientationRefusalTest : public LibraryTest, public testing::WithParamInterface<Change> {};
INSTANTIATE_TEST_SUITE_P(Changes, OrientationRefusalTest,
                         testing::Values(Change{"NoPatch", [](Blocks &s) { s.geometry.patch_size = 0; }},
                                         Change{"NegativePatch", [](Blocks &s) { s.geometry.patch_size = -16; }},
                                         Change{"HugePatch", [](Blocks &s) { s.geometry.patch_size = 50000; }},
                                         Change{"LargestPatch", [](Blocks &s) { s.geometry.patch_size = INT32_MAX; }},
                                         Change{"PatchWhoseSquareWraps", [](Blocks &s) { s.geometry.patch_size = 65536; }},
                                         Change{"NegativePositions", [](Blocks &s) { s.geometry.position_count = -1; }},
                                         Change{"HugePositions", [](Blocks &s) { s.geometry.position_count = INT32_MAX; }},
                                         Change{"NegativePaddedPixels", [](Blocks &s) { s.geometry.padded_pixels = -361; }},
                                         Change{"HugePaddedPixels", [](Blocks &s) { s.geometry.padded_pixels = INT32_MAX; }},
                                         Change{"NegativeBins", [](Blocks &s) { s.layout.bin_count = -8; }},
                                         Change{"HugeBins", [](Blocks &s) { s.layout.bin_count = INT32_MAX; }},
                                         Change{"BinsWhoseProductWraps", [](Blocks &s) { s.layout.bin_count = 1 << 28; }},
                                         Change{"NoGrid", [](Blocks &s) { s.layout.grid_size = 0; }},
                                         Change{"NegativeGrid", [](Blocks &s) { s.layout.grid_size = -4; }},
                                         Change{"HugeGrid", [](Blocks &s) { s.layout.grid_size = 65536; }},
                                         Change{"NegativeCells", [](Blocks &s) { s.layout.cell_count = -16; }},
                                         Change{"HugeCells", [](Blocks &s) { s.layout.cell_count = INT32_MAX; }},
                                         Change{"NegativeFeatures", [](Blocks &s) { s.layout.feature_length = -128; }},
                                         Change{"HugeFeatures", [](Blocks &s) { s.layout.feature_length = INT32_MAX; }},
                                         Change{"HugeRadius", [](Blocks &s) { s.layout.gradient_sigma = 1e30f; }},
                                         Change{"InfiniteRadius", [](Blocks &s) { s.layout.gradient_sigma = infinity; }},
                                         Change{"NegativeRadius", [](Blocks &s) { s.layout.gradient_sigma = -1.0f; }},
                                         Change{"RadiusThatIsNotANumber",
                                                [](Blocks &s) { s.layout.gradient_sigma = not_a_number; }}),
                         [](const auto &change) { return std::string(change.param.name); });

TEST_P(OrientationRefusalTest, EndsInAStatus) {
    Blocks blocks = make_blocks(16, 8, 4, 0.0625f);
    GetParam().apply(blocks);
    const StderrCapture swallowed;
    OrientationHistogram oh;
    std::memset(&oh, 0x5A, sizeof oh);
    const int32_t status = KoOrientationHistogramInit(&oh, &blocks.geometry, &blocks.layout);
    EXPECT_TRUE(status == KO_ERR_INVALID_ARGUMENT || status == KO_ERR_ALLOC) << status;
    EXPECT_EQ(KoErrorGetLastError(), status);
    EXPECT_EQ(KoOrientationHistogramFree(&oh), KO_OK);
    KoStatusClear();
    EXPECT_EQ(KoOrientationHistogramNew(&blocks.geometry, &blocks.layout), nullptr);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
    const std::string head = "Cannot create object \"OrientationHistogram\"\n-> ";
    EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).substr(0, head.size()), head);
}

// Blocks whose numbers do not agree: whatever can be built of them stays inside its own tables.
class OrientationDisagreementTest : public LibraryTest, public testing::WithParamInterface<Change> {};
INSTANTIATE_TEST_SUITE_P(Changes, OrientationDisagreementTest,
                         testing::Values(Change{"FewerCells", [](Blocks &s) { s.layout.cell_count = 3; }},
                                         Change{"MoreCells", [](Blocks &s) { s.layout.cell_count = 40; }},
                                         Change{"NoCells", [](Blocks &s) { s.layout.cell_count = 0; }},
                                         Change{"FewerFeatures", [](Blocks &s) { s.layout.feature_length = 5; }},
                                         Change{"NoFeatures", [](Blocks &s) { s.layout.feature_length = 0; }},
                                         Change{"MoreBins", [](Blocks &s) { s.layout.bin_count = 90; }},
                                         Change{"NoBins", [](Blocks &s) { s.layout.bin_count = 0; }},
                                         Change{"FewerPaddedPixels", [](Blocks &s) { s.geometry.padded_pixels = 40; }},
                                         Change{"NoPaddedPixels", [](Blocks &s) { s.geometry.padded_pixels = 0; }},
                                         Change{"FewPaddedPixelsForThePatch",
                                                [](Blocks &s) { s.geometry.padded_pixels = 255; }},
                                         Change{"LargerPatch", [](Blocks &s) { s.geometry.patch_size = 40; }},
                                         Change{"FewerCellsASide", [](Blocks &s) { s.layout.grid_size = 2; }},
                                         Change{"MoreCellsASide", [](Blocks &s) { s.layout.grid_size = 9; }},
                                         Change{"NoPositions", [](Blocks &s) { s.geometry.position_count = 0; }}),
                         [](const auto &change) { return std::string(change.param.name); });

TEST_P(OrientationDisagreementTest, StaysInsideItsTables) {
    Blocks blocks = make_blocks(16, 8, 4, 0.0625f);
    GetParam().apply(blocks);
    const OrientationHistogramPtr oh(KoOrientationHistogramNew(&blocks.geometry, &blocks.layout));
    if (oh == nullptr) {
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
        return;
    }
    const auto length = static_cast<size_t>(blocks.layout.feature_length);
    for (uint32_t side = 1; side < 30; ++side) {
        std::vector<float> features(length + 8, 1234.0f);
        const int32_t status = KoOrientationHistogramCompute(oh.get(), side, noise_patch(side, side).data(), features.data());
        EXPECT_TRUE(status == KO_OK || status == KO_ERR_INVALID_ARGUMENT) << status;
        EXPECT_EQ(array(&features[length], 8), std::vector<float>(8, 1234.0f));
    }
}

// The dump.

class OrientationDumpTest : public LibraryTest {
  protected:
    OrientationDumpTest() : oh_(KoOrientationHistogramNew(&blocks_.geometry, &blocks_.layout)) {}

    // Patches whose numbers all differ.
    void make_patches(uint32_t count) {
        Noise noise(count);
        const auto length = static_cast<size_t>(blocks_.layout.feature_length);
        for (uint32_t i = 0; i < count; ++i) {
            features_.emplace_back(3 * length);
            projected_.emplace_back(3 * length);
            for (size_t k = 0; k < 3 * length; ++k) {
                features_[i][k] = noise.uniform(-900.0f, 9000.0f);
                projected_[i][k] = noise.uniform(-1.0f, 1.0f);
            }
            RedEyePatch patch{};
            patch.blob = i;
            patch.x0 = 10 * i;
            patch.x1 = 10 * i + 1;
            patch.y0 = 10 * i + 2;
            patch.y1 = i == 0 ? 0xFFFFFFFF : 10 * i + 3;
            patch.center_x = 100 * i + 4;
            patch.center_y = 100 * i + 5;
            patch.size = i == 0 ? 16777217 : 100 * i + 6;
            patch.features = features_[i].data();
            patch.projected = projected_[i].data();
            for (size_t c = 0; c < 3; ++c) {
                patch.feature_rows[c] = patch.features + c * length;
                patch.projected_rows[c] = patch.projected + c * length;
            }
            patches_.push_back(patch);
        }
    }

    int32_t dump(const std::string &directory = "", const char *name = "picture") {
        return KoOrientationHistogramDumpPatches(oh_.get(), patches_.data(), static_cast<uint32_t>(patches_.size()),
                                                 directory.c_str(), name, "run");
    }

    // The lines of a text file whose patches begin at row(i); values past the end of a patch's own are 0.
    std::string lines(const std::vector<std::vector<float>> &values, size_t first) const {
        std::string text;
        const auto count = static_cast<size_t>(blocks_.geometry.position_step * blocks_.layout.bin_count);
        for (const std::vector<float> &own : values) {
            for (size_t k = first; k < first + count; ++k) {
                char cell[80];
                std::snprintf(cell, sizeof cell, "%f\t", static_cast<double>(k < own.size() ? own[k] : 0.0f));
                text += cell;
            }
            text += " \n";
        }
        return text;
    }

    std::string coordinates() const {
        std::string text;
        for (const RedEyePatch &patch : patches_) {
            char line[80];
            std::snprintf(line, sizeof line, "%d\t%d\t%d\t%d\n", static_cast<int32_t>(patch.x0), static_cast<int32_t>(patch.x1),
                          static_cast<int32_t>(patch.y0), static_cast<int32_t>(patch.y1));
            text += line;
        }
        return text;
    }

    static void add_word(std::string &bytes, uint32_t word) {
        for (int shift = 0; shift < 32; shift += 8) {
            bytes += static_cast<char>(word >> shift & 255);
        }
    }

    std::string binary() const {
        std::string bytes;
        add_word(bytes, 1);
        add_word(bytes, static_cast<uint32_t>(3 * blocks_.layout.feature_length));
        add_word(bytes, static_cast<uint32_t>(oh_->patch_count));
        for (const std::vector<float> &values : features_) {
            for (const float value : values) {
                add_word(bytes, std::bit_cast<uint32_t>(value));
            }
        }
        for (const RedEyePatch &patch : patches_) {
            add_word(bytes, patch.center_x);
        }
        for (const RedEyePatch &patch : patches_) {
            add_word(bytes, patch.center_y);
        }
        for (const RedEyePatch &patch : patches_) {
            add_word(bytes, std::bit_cast<uint32_t>(static_cast<float>(patch.size)));
        }
        return bytes;
    }

    void expect_files(const std::string &stem) const {
        const auto length = static_cast<size_t>(blocks_.layout.feature_length);
        EXPECT_EQ(read_text(stem + "_feats_R.txt"), lines(features_, 0));
        EXPECT_EQ(read_text(stem + "_feats_G.txt"), lines(features_, length));
        EXPECT_EQ(read_text(stem + "_feats_B.txt"), lines(features_, 2 * length));
        EXPECT_EQ(read_text(stem + "_prjFeats.txt"), lines(projected_, 0));
        EXPECT_EQ(read_text(stem + "_coord.txt"), coordinates());
        EXPECT_TRUE(read_bytes(stem + "_feats.par") == binary());
    }

    void rebuild(const Blocks &blocks) {
        oh_.reset();
        blocks_ = blocks;
        oh_.reset(KoOrientationHistogramNew(&blocks_.geometry, &blocks_.layout));
        oh_->patch_count = 0;
    }

    const WorkingFolder folder_;
    Blocks blocks_ = make_blocks(16, 8, 4, 0.0625f);
    OrientationHistogramPtr oh_;
    FloatRows features_;
    FloatRows projected_;
    std::vector<RedEyePatch> patches_;
};

TEST_F(OrientationDumpTest, WritesSixFiles) {
    make_patches(3);
    oh_->patch_count = 77; // the object's own number, and not the count of the call
    EXPECT_EQ(dump(), 0);
    expect_files("picture_run");
    size_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(".")) {
        files += entry.is_regular_file() ? 1 : 0;
    }
    EXPECT_EQ(files, 6u);
}

TEST_F(OrientationDumpTest, PutsDirectoryAndNameTogetherAsTheyAre) {
    std::filesystem::create_directory("deep");
    make_patches(1);
    oh_->patch_count = 1;
    EXPECT_EQ(dump("deep/"), 0);
    expect_files("deep/picture_run");
    EXPECT_EQ(dump("deep"), 0);
    expect_files("deeppicture_run");
}

TEST_F(OrientationDumpTest, ReplacesOlderFiles) {
    write_bytes("picture_run_coord.txt", std::string(5000, 'x'));
    write_bytes("picture_run_feats.par", std::string(50000, 'x'));
    make_patches(2);
    oh_->patch_count = 2;
    EXPECT_EQ(dump(), 0);
    expect_files("picture_run");
}

TEST_F(OrientationDumpTest, WithoutPatchesWritesTheThreeWordsAlone) {
    oh_->patch_count = 0;
    EXPECT_EQ(dump(), 0);
    expect_files("picture_run");
    EXPECT_EQ(read_bytes("picture_run_feats.par").size(), 12u);
    EXPECT_EQ(read_bytes("picture_run_feats_R.txt"), "");
}

// A line has position_step times the bins, not the features of a channel: fewer with five cells a side, and with two the next
// channel's values follow, and behind the last channel's own zeros.
TEST_F(OrientationDumpTest, TheLengthOfALineIsNotTheFeatureLength) {
    for (const int32_t grid : {5, 2, 1}) {
        SCOPED_TRACE(grid);
        rebuild(make_blocks(16, 8, grid, 0.0625f));
        features_.clear();
        projected_.clear();
        patches_.clear();
        make_patches(2);
        EXPECT_EQ(dump(), 0);
        expect_files("picture_run");
    }
    Blocks blocks = make_blocks(16, 8, 4, 0.0625f);
    blocks.geometry.position_step = 3;
    rebuild(blocks);
    features_.clear();
    projected_.clear();
    patches_.clear();
    make_patches(2);
    EXPECT_EQ(dump(), 0);
    expect_files("picture_run");
}

TEST_F(OrientationDumpTest, FilesThatCannotBeOpenedAreToldInOrder) {
    make_patches(1);
    StderrCapture errors;
    EXPECT_NE(dump("absent/"), 0);
    std::string expected;
    for (const char *ending : {"feats_R.txt", "feats_G.txt", "feats_B.txt", "prjFeats.txt", "coord.txt", "feats.par"}) {
        expected += "error in xfopen\ncould not open file absent/picture_run_";
        expected += ending;
        expected += "\n";
    }
    EXPECT_EQ(errors.stop(), expected);
    expect_status(KO_OK, "");
}

// One that fails ends the dump after all have been tried; those that were opened are there, empty and closed.
TEST_F(OrientationDumpTest, OneFileThatCannotBeOpenedEndsTheDump) {
    std::filesystem::create_directory("picture_run_feats_G.txt");
    make_patches(2);
    StderrCapture errors;
    EXPECT_NE(dump(), 0);
    EXPECT_EQ(errors.stop(), "error in xfopen\ncould not open file picture_run_feats_G.txt\n");
    for (const char *ending : {"feats_R.txt", "feats_B.txt", "prjFeats.txt", "coord.txt", "feats.par"}) {
        const std::string path = std::string("picture_run_") + ending;
        EXPECT_TRUE(exists(path));
        EXPECT_EQ(read_bytes(path), "");
        EXPECT_TRUE(std::filesystem::remove(path)) << "still open";
    }
}

TEST_F(OrientationDumpTest, APathThatIsTooLongOpensNothing) {
    make_patches(1);
    for (const size_t length : {272u, 300u, 5000u}) {
        StderrCapture errors;
        EXPECT_NE(dump(std::string(length, 'd') + "/"), 0);
        EXPECT_NE(errors.stop(), "");
    }
    EXPECT_TRUE(std::filesystem::is_empty("."));
}

#ifdef __linux__
TEST_F(OrientationDumpTest, AFileThatCannotBeClosedIsToldAndTheRestIsWritten) {
    std::filesystem::create_symlink("/dev/full", "picture_run_coord.txt");
    make_patches(2);
    oh_->patch_count = 2;
    StderrCapture errors;
    dump();
    EXPECT_EQ(errors.stop(), "error in xfclose\nstatus = -1\n");
    EXPECT_TRUE(read_bytes("picture_run_feats.par") == binary());
    EXPECT_EQ(read_text("picture_run_feats_B.txt"), lines(features_, 256));
}
#endif

} // namespace
