// MatrixInteger: the layout and the accessors, which it shares with the float grids.
#include "grid_tests.h"

namespace ko_test {

INSTANTIATE_TYPED_TEST_SUITE_P(MatrixInteger, GridTest, MatrixIntegerFamily);

} // namespace ko_test

namespace {

using ko_test::MatrixIntegerFamily;

class MatrixIntegerTest : public ko_test::LibraryTest {};

TEST_F(MatrixIntegerTest, HoldsEvery32BitNumber) {
    const auto matrix = ko_test::new_grid<MatrixIntegerFamily>(5, 1);
    const int32_t numbers[] = {INT32_MIN, INT32_MAX, -1, 16777217, -16777217};
    KoMatrixIntegerSetRow(matrix.get(), 0, numbers);
    for (uint64_t x = 0; x < 5; ++x) {
        EXPECT_EQ(KoMatrixIntegerGetValue(matrix.get(), x, 0), numbers[x]);
        KoMatrixIntegerSetValue(matrix.get(), x, 0, numbers[4 - x]);
        EXPECT_EQ(matrix->rows[0][x], numbers[4 - x]);
    }
}

} // namespace
