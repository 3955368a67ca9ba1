// MatrixFloat when memory runs short.
#include "grid_fault_tests.h"
#include "pictures.h"

namespace ko_test {

INSTANTIATE_TYPED_TEST_SUITE_P(MatrixFloat, GridFaultTest, MatrixFloatFamily);
INSTANTIATE_TYPED_TEST_SUITE_P(MatrixFloat, FloatGridFaultTest, MatrixFloatFamily);

} // namespace ko_test

namespace {

using ko_test::cannot_create;
using ko_test::expect_allocations;
using ko_test::grid_blocks;
using ko_test::MatrixFloatPtr;
using ko_test::operator+;

class MatrixFloatFaultTest : public ko_test::LibraryTest {};

TEST_F(MatrixFloatFaultTest, ResizeGivesTheStatusOfAResultThatCannotBeMade) {
    const MatrixFloatPtr matrix(KoMatrixFloatNew(4, 4));
    KoMatrixFloatFill(matrix.get(), 7.0f);
    const std::vector<int64_t> record = {sizeof(MatrixFloat)};
    expect_allocations(record + grid_blocks(6, 2), KO_ERR_CREATE_OBJECT, cannot_create("MatrixFloat"), [&] {
        MatrixFloat *result = nullptr;
        const int32_t status = KoMatrixFloatResize(matrix.get(), 6, 2, &result);
        const MatrixFloatPtr made(result);
        EXPECT_EQ(status, KoErrorGetLastError());
        EXPECT_EQ(result == nullptr, status != KO_OK);
        return status == KO_OK;
    });
}

TEST_F(MatrixFloatFaultTest, ResizeIntoAGivenResultNeedsNoMemory) {
    const MatrixFloatPtr matrix(KoMatrixFloatNew(4, 4));
    KoMatrixFloatFill(matrix.get(), 7.0f);
    const MatrixFloatPtr given(KoMatrixFloatNew(6, 2));
    expect_allocations({}, KO_OK, "", [&] {
        MatrixFloat *result = given.get();
        return KoMatrixFloatResize(matrix.get(), 6, 2, &result) == KO_OK && result == given.get();
    });
}

} // namespace
