// MatrixFloat: what it shares with RealImage under its own words, and the resampling by the nearest element.
#include "float_grid_tests.h"

namespace ko_test {

INSTANTIATE_TYPED_TEST_SUITE_P(MatrixFloat, GridTest, MatrixFloatFamily);
INSTANTIATE_TYPED_TEST_SUITE_P(MatrixFloat, FloatGridTest, MatrixFloatFamily);

} // namespace ko_test

namespace {

using ko_test::expect_status;
using ko_test::expect_success;
using ko_test::GridSize;
using ko_test::MatrixFloatFamily;
using ko_test::MatrixFloatPtr;
using ko_test::padding_is_zero;
using ko_test::pixels;

class MatrixFloatTest : public ko_test::LibraryTest {
  protected:
    // The element at (x, y) is 1000 y + x.
    static MatrixFloatPtr numbered(uint64_t width, uint64_t height) {
        MatrixFloatPtr matrix(KoMatrixFloatNew(width, height));
        for (uint64_t y = 0; y < height; ++y) {
            for (uint64_t x = 0; x < width; ++x) {
                matrix->rows[y][x] = static_cast<float>(1000 * y + x);
            }
        }
        return matrix;
    }

    static MatrixFloatPtr resized(const MatrixFloat *matrix, uint64_t width, uint64_t height) {
        MatrixFloat *result = nullptr;
        expect_success([&] { return KoMatrixFloatResize(matrix, width, height, &result); });
        return MatrixFloatPtr(result);
    }

    // The source of place i: the ratio is formed in single precision, the product in double precision.
    static uint64_t nearest(uint64_t i, uint64_t size, uint64_t new_size) {
        const float ratio = static_cast<float>(size) / static_cast<float>(new_size);
        return static_cast<uint64_t>((static_cast<double>(i) + 0.5) * static_cast<double>(ratio));
    }
};

TEST_F(MatrixFloatTest, ResizeToTwiceTheSizeRepeatsEachElement) {
    const MatrixFloatPtr matrix = numbered(2, 2);
    const MatrixFloatPtr result = resized(matrix.get(), 4, 4);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(pixels(result.get()),
              (std::vector<float>{0, 0, 1, 1, 0, 0, 1, 1, 1000, 1000, 1001, 1001, 1000, 1000, 1001, 1001}));
    EXPECT_TRUE(padding_is_zero(result.get()));
}

TEST_F(MatrixFloatTest, ResizeToHalfTheSizeTakesTheSecondOfEachPair) {
    const MatrixFloatPtr matrix = numbered(4, 4);
    const MatrixFloatPtr result = resized(matrix.get(), 2, 2);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(pixels(result.get()), (std::vector<float>{1001, 1003, 3001, 3003}));
}

TEST_F(MatrixFloatTest, ResizeTakesWidthAndHeightEachByItsOwnRatio) {
    for (const GridSize from : {GridSize{1, 1}, GridSize{5, 3}, GridSize{16, 9}, GridSize{33, 40}}) {
        for (const GridSize to : {GridSize{1, 1}, GridSize{3, 5}, GridSize{16, 2}, GridSize{61, 47}}) {
            const MatrixFloatPtr matrix = numbered(from.width, from.height);
            const MatrixFloatPtr result = resized(matrix.get(), to.width, to.height);
            ASSERT_EQ(result->width, to.width);
            ASSERT_EQ(result->height, to.height);
            for (uint64_t y = 0; y < to.height; ++y) {
                for (uint64_t x = 0; x < to.width; ++x) {
                    const uint64_t column = nearest(x, from.width, to.width);
                    const uint64_t row = nearest(y, from.height, to.height);
                    EXPECT_EQ(result->rows[y][x], static_cast<float>(1000 * row + column));
                }
            }
            EXPECT_TRUE(padding_is_zero(result.get()));
        }
    }
}

// Where a place falls on the border of two elements, the rounding of the single-precision ratio decides.
TEST_F(MatrixFloatTest, ResizeFormsItsRatiosInSinglePrecision) {
    int decided = 0;
    for (uint64_t size = 1; size < 60; ++size) {
        const MatrixFloatPtr row = numbered(size, 1);
        const MatrixFloatPtr column = numbered(1, size);
        for (uint64_t new_size = 1; new_size < 60; ++new_size) {
            const MatrixFloatPtr wide = resized(row.get(), new_size, 1);
            const MatrixFloatPtr high = resized(column.get(), 1, new_size);
            for (uint64_t i = 0; i < new_size; ++i) {
                const uint64_t source = nearest(i, size, new_size);
                ASSERT_EQ(wide->rows[0][i], static_cast<float>(source)) << i << " of " << size << " to " << new_size;
                ASSERT_EQ(high->rows[i][0], static_cast<float>(1000 * source)) << i << " of " << size << " to " << new_size;
                decided += source != (2 * i + 1) * size / (2 * new_size);
            }
        }
    }
    EXPECT_GT(decided, 0) << "no size of these tells single precision from an exact ratio";
}

TEST_F(MatrixFloatTest, ResizeWritesAGivenResultInPlace) {
    const MatrixFloatPtr matrix = numbered(4, 4);
    const MatrixFloatPtr given = numbered(2, 1);
    MatrixFloat *result = given.get();
    expect_success([&] { return KoMatrixFloatResize(matrix.get(), 2, 1, &result); });
    EXPECT_EQ(result, given.get());
    EXPECT_EQ(pixels(result), (std::vector<float>{2001, 2003}));
}

TEST_F(MatrixFloatTest, ResizeToNoRowsMakesAMatrixWithoutRows) {
    const MatrixFloatPtr matrix = numbered(4, 4);
    const MatrixFloatPtr result = resized(matrix.get(), 3, 0);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->width, 3u);
    EXPECT_EQ(result->rows, nullptr);
}

TEST_F(MatrixFloatTest, ResizeGivesTheStatusOfAResultThatCannotBeMade) {
    const MatrixFloatPtr matrix = numbered(4, 4);
    MatrixFloat *result = nullptr;
    ko_test::StderrCapture swallowed;
    EXPECT_EQ(KoMatrixFloatResize(matrix.get(), ko_test::too_large.width, ko_test::too_large.height, &result),
              KO_ERR_CREATE_OBJECT);
    EXPECT_EQ(result, nullptr);
    expect_status(KO_ERR_CREATE_OBJECT, std::string("Cannot create object \"MatrixFloat\"\n-> ") + ko_test::too_large_text);
}

} // namespace
