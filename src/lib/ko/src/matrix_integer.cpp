// MatrixInteger: the layout of matrix.h over 32-bit integers, with creation and accessors alone.
#include "ko/matrix_integer.h"

#include "matrix.h"

using namespace ko;

int32_t KoMatrixIntegerInit(MatrixInteger *matrix, uint64_t width, uint64_t height) {
    return init_matrix(matrix, width, height);
}

MatrixInteger *KoMatrixIntegerNew(uint64_t width, uint64_t height) {
    return new_matrix<MatrixInteger>(width, height, "MatrixInteger");
}

int32_t KoMatrixIntegerFree(MatrixInteger *matrix) { return free_matrix(matrix); }

int32_t KoMatrixIntegerDelete(MatrixInteger *matrix) { return delete_matrix(matrix); }

uint64_t KoMatrixIntegerGetWidth(const MatrixInteger *matrix) { return matrix->width; }

uint64_t KoMatrixIntegerGetHeight(const MatrixInteger *matrix) { return matrix->height; }

uint64_t KoMatrixIntegerGetPadding(const MatrixInteger *matrix) { return matrix->padding; }

int32_t KoMatrixIntegerGetValue(const MatrixInteger *matrix, uint64_t x, uint64_t y) { return matrix->rows[y][x]; }

void KoMatrixIntegerSetValue(MatrixInteger *matrix, uint64_t x, uint64_t y, int32_t value) { matrix->rows[y][x] = value; }

int32_t *KoMatrixIntegerGetRow(const MatrixInteger *matrix, uint64_t y) { return matrix->rows[y]; }

void KoMatrixIntegerSetRow(MatrixInteger *matrix, uint64_t y, const int32_t *source) {
    std::memcpy(matrix->rows[y], source, matrix->width * sizeof(int32_t));
}
