/*
 * MatrixInteger: the 32-bit integer twin of MatrixFloat (ko/matrix_float.h), with the same five fields and the same layout.
 */
#ifndef KO_MATRIX_INTEGER_H
#define KO_MATRIX_INTEGER_H

#include "ko/base.h"

KO_BEGIN_C

/** Rows of 32-bit integers. */
typedef struct MatrixInteger {
    uint64_t width;   /* elements per row, without padding */
    uint64_t height;  /* rows */
    uint64_t padding; /* elements of padding behind each row */
    int32_t *buffer;  /* owned: the block that holds all rows; null at height 0 */
    int32_t **rows;   /* owned: height pointers, rows[y] is the first element of row y; null at height 0 */
} MatrixInteger;

/**
 * Makes a matrix in a record that the caller owns.
 *   matrix          out   its old contents are not looked at; to be ended with KoMatrixIntegerFree, also after a failure
 *   width, height   in    elements and rows; a block of 2^31 bytes or more fails like an allocation of that size
 * Returns KO_OK, or KO_ERR_ALLOC.
 */
KO_API int32_t KoMatrixIntegerInit(MatrixInteger *matrix, uint64_t width, uint64_t height);

/** Makes a new matrix, owned by the caller. Returns null with KO_ERR_CREATE_OBJECT "MatrixInteger" if memory is short. */
KO_API MatrixInteger *KoMatrixIntegerNew(uint64_t width, uint64_t height);

/** Frees what the record holds and nulls it; the record stays, null is accepted. Returns 0. */
KO_API int32_t KoMatrixIntegerFree(MatrixInteger *matrix);

/** Frees the matrix and its record; null is accepted. Returns 0. */
KO_API int32_t KoMatrixIntegerDelete(MatrixInteger *matrix);

/** Returns the elements per row, without padding. */
KO_API uint64_t KoMatrixIntegerGetWidth(const MatrixInteger *matrix);

/** Returns the rows. */
KO_API uint64_t KoMatrixIntegerGetHeight(const MatrixInteger *matrix);

/** Returns the elements of padding behind each row. */
KO_API uint64_t KoMatrixIntegerGetPadding(const MatrixInteger *matrix);

/** Returns element (x, y), unchecked. */
KO_API int32_t KoMatrixIntegerGetValue(const MatrixInteger *matrix, uint64_t x, uint64_t y);

/** Sets element (x, y), unchecked. */
KO_API void KoMatrixIntegerSetValue(MatrixInteger *matrix, uint64_t x, uint64_t y, int32_t value);

/** Returns the first element of row y, unchecked; the row stays the matrix's. */
KO_API int32_t *KoMatrixIntegerGetRow(const MatrixInteger *matrix, uint64_t y);

/** Copies width integers from source into row y, unchecked. */
KO_API void KoMatrixIntegerSetRow(MatrixInteger *matrix, uint64_t y, const int32_t *source);

KO_END_C

#endif
