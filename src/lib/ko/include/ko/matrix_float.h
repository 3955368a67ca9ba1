/*
 * MatrixFloat: the two-dimensional array of 32-bit floats on which all numeric work stands. RealImage (ko/realimage.h) is the
 * same record under a picture's name.
 *
 * Layout. A row holds width elements and behind them padding elements, 4 to 7 so that the stride (their sum) is a multiple of
 * 4; each row starts on a 16-byte boundary. Padding is 0 from creation on and nothing writes it; the width elements start
 * unset. The block has room for 8 bytes an element plus 128 bytes. A matrix of height 0 has neither block nor row table.
 *
 * Walking. A rectangle of height h at row y is walked over h rows, and a rectangle of height 0 over one row, not none, by
 * iterators and by the array functions alike (see "A rectangle of height 0" in docs/compatibility.md). A matrix without rows
 * is walked as nothing. Coordinates, rectangles and pointers are the caller's contract: nothing checks them against the matrix
 * where a function does not say so.
 * A matrix has no lock: concurrent reading is safe, and so is writing to different rows.
 */
#ifndef KO_MATRIX_FLOAT_H
#define KO_MATRIX_FLOAT_H

#include "ko/base.h"

KO_BEGIN_C

/** Rows of floats. */
typedef struct MatrixFloat {
    uint64_t width;   /* elements per row, without padding */
    uint64_t height;  /* rows */
    uint64_t padding; /* elements of padding behind each row */
    float *buffer;    /* owned: the block that holds all rows; null at height 0 */
    float **rows;     /* owned: height pointers, rows[y] is the first element of row y; null at height 0 */
} MatrixFloat;

/** Position in a rectangle of a matrix; lives in the caller's storage and owns nothing. */
typedef struct MatrixFloatRowIterator {
    MatrixFloat *matrix;          /* not owned */
    uint64_t x_start;             /* first column of the rectangle */
    uint64_t y_start;             /* first row of the rectangle */
    uint64_t width;               /* columns of the rectangle */
    uint64_t height;              /* rows of the rectangle */
    uint64_t next_line_increment; /* stride of the matrix, in elements */
    float *line;                  /* start of the current line; before the first Next one stride above the rectangle */
    float *line_end;              /* one behind the last element of the current line */
    float *end;                   /* one behind the last element of the rectangle */
} MatrixFloatRowIterator;

/**
 * Makes a matrix in a record that the caller owns.
 *   matrix          out   its old contents are not looked at; to be ended with KoMatrixFloatFree, also after a failure
 *   width, height   in    elements and rows; a block of 2^31 bytes or more fails like an allocation of that size
 * Returns KO_OK, or KO_ERR_ALLOC.
 */
KO_API int32_t KoMatrixFloatInit(MatrixFloat *matrix, uint64_t width, uint64_t height);

/** Makes a new matrix, owned by the caller. Returns null with KO_ERR_CREATE_OBJECT "MatrixFloat" if memory is short. */
KO_API MatrixFloat *KoMatrixFloatNew(uint64_t width, uint64_t height);

/** Frees what the record holds and nulls it; the record stays, null is accepted. Returns 0. */
KO_API int32_t KoMatrixFloatFree(MatrixFloat *matrix);

/** Frees the matrix and its record; null is accepted. Returns 0. */
KO_API int32_t KoMatrixFloatDelete(MatrixFloat *matrix);

/** Returns the elements per row, without padding. */
KO_API uint64_t KoMatrixFloatGetWidth(const MatrixFloat *matrix);

/** Returns the rows. */
KO_API uint64_t KoMatrixFloatGetHeight(const MatrixFloat *matrix);

/** Returns the elements of padding behind each row. */
KO_API uint64_t KoMatrixFloatGetPadding(const MatrixFloat *matrix);

/** Returns element (x, y), unchecked. */
KO_API float KoMatrixFloatGetValue(const MatrixFloat *matrix, uint64_t x, uint64_t y);

/** Sets element (x, y), unchecked. */
KO_API void KoMatrixFloatSetValue(MatrixFloat *matrix, uint64_t x, uint64_t y, float value);

/** Returns the first element of row y, unchecked; the row stays the matrix's. */
KO_API float *KoMatrixFloatGetRow(const MatrixFloat *matrix, uint64_t y);

/** Copies width floats from source into row y, unchecked. */
KO_API void KoMatrixFloatSetRow(MatrixFloat *matrix, uint64_t y, const float *source);

/**
 * Fills rows from bytes, a byte's value becoming the float of the same value.
 *   bytes        in   row_num rows of width bytes, each followed by bytes_skip bytes that are passed over
 *   row_start    in   first row, below the height
 *   row_num      in   rows; 0 converts exactly one row, and rows past the last are left out with a warning
 * Returns KO_OK in every case. The warning is printed below verbosity "error" only; with a row_start past the last row
 * nothing is converted.
 */
KO_API int32_t KoMatrixFloatFromByteArray(MatrixFloat *matrix, const uint8_t *bytes, uint64_t row_start, uint64_t row_num,
                                          uint64_t bytes_skip);

/**
 * Writes rows as bytes, with the arguments of KoMatrixFloatFromByteArray.
 * A value below 0 gives 0; any other is truncated toward zero and its low 8 bits are stored, without an upper limit: 255.9
 * gives 255 and 256.0 gives 0. A NaN, or a value whose truncation does not fit 32 bits, gives 0. Returns KO_OK.
 */
KO_API int32_t KoMatrixFloatToByteArray(const MatrixFloat *matrix, uint8_t *bytes, uint64_t row_start, uint64_t row_num,
                                        uint64_t bytes_skip);

/** Fills rows from floats, with the arguments of KoMatrixFloatFromByteArray and the skip in floats. Returns KO_OK. */
KO_API int32_t KoMatrixFloatFromFloatArray(MatrixFloat *matrix, const float *floats, uint64_t row_start, uint64_t row_num,
                                           uint64_t floats_skip);

/** Makes a new matrix, owned by the caller, and fills it as KoMatrixFloatFromByteArray does. Returns null with KO_ERR_ALLOC. */
KO_API MatrixFloat *KoMatrixFloatNewFromByteArray(uint64_t width, uint64_t height, const uint8_t *bytes, uint64_t bytes_skip);

/** Makes a new matrix, owned by the caller, from height rows of width floats. Returns null with KO_ERR_ALLOC. */
KO_API MatrixFloat *KoMatrixFloatNewFromFloatArray(uint64_t width, uint64_t height, const float *floats);

/**
 * Stores the smallest and the largest element. A NaN at (0, 0) stays in both, any other NaN never counts; a matrix without
 * rows gives 0 twice. Returns 0.
 */
KO_API int32_t KoMatrixFloatGetMinMax(const MatrixFloat *matrix, float *minimum, float *maximum);

/** Returns the smallest element, as KoMatrixFloatGetMinMax finds it. */
KO_API float KoMatrixFloatGetMin(const MatrixFloat *matrix);

/** Returns the largest element, as KoMatrixFloatGetMinMax finds it. */
KO_API float KoMatrixFloatGetMax(const MatrixFloat *matrix);

/** Sets all elements to value; padding stays 0. */
KO_API void KoMatrixFloatFill(MatrixFloat *matrix, float value);

/** Sets all elements to 0. */
KO_API void KoMatrixFloatClear(MatrixFloat *matrix);

/**
 * Resamples to another size by the nearest element.
 *   width, height   in       the new size
 *   result          in/out   address of a matrix pointer: null there makes a new matrix, owned by the caller; a matrix that is
 *                            there is written in place and must have the new size, which nothing checks
 * Returns KO_OK, or the status of the creation that failed.
 */
KO_API int32_t KoMatrixFloatResize(const MatrixFloat *matrix, uint64_t width, uint64_t height, MatrixFloat **result);

/** Sets the iterator before the first row of the whole matrix. Returns 0. */
KO_API int32_t KoMatrixFloatRowIteratorInit(MatrixFloatRowIterator *iterator, MatrixFloat *matrix);

/** Sets the iterator before the first row of a rectangle, unchecked; a height of 0 yields one row. Returns 0. */
KO_API int32_t KoMatrixFloatRowIteratorInitSubMatrix(MatrixFloatRowIterator *iterator, MatrixFloat *matrix, uint64_t x_start,
                                                     uint64_t y_start, uint64_t width, uint64_t height);

/** Makes a new iterator over the whole matrix. Returns null with KO_ERR_CREATE_OBJECT "MatrixFloatRowIterator". */
KO_API MatrixFloatRowIterator *KoMatrixFloatRowIteratorNew(MatrixFloat *matrix);

/** Makes a new iterator over a rectangle, unchecked. Returns null with KO_ERR_CREATE_OBJECT "MatrixFloatRowIterator". */
KO_API MatrixFloatRowIterator *KoMatrixFloatRowIteratorNewSubMatrix(MatrixFloat *matrix, uint64_t x_start, uint64_t y_start,
                                                                    uint64_t width, uint64_t height);

/** Sets the iterator back before its first row. Returns 0. */
KO_API int32_t KoMatrixFloatRowIteratorReset(MatrixFloatRowIterator *iterator);

/** Does nothing, since an iterator owns nothing. Returns 0. */
KO_API int32_t KoMatrixFloatRowIteratorFree(MatrixFloatRowIterator *iterator);

/** Frees an iterator of KoMatrixFloatRowIteratorNew; null is accepted. Returns 0. */
KO_API int32_t KoMatrixFloatRowIteratorDelete(MatrixFloatRowIterator *iterator);

/** Returns 1 while a row is left, otherwise 0. */
KO_API int32_t KoMatrixFloatRowIteratorHasNext(const MatrixFloatRowIterator *iterator);

/** Steps to the next row and returns its first element in the rectangle; to be called only after HasNext gave 1. */
KO_API float *KoMatrixFloatRowIteratorNext(MatrixFloatRowIterator *iterator);

/** Returns one behind the last element of the current row. */
KO_API float *KoMatrixFloatRowIteratorLineEnd(const MatrixFloatRowIterator *iterator);

/** Returns the columns of the rectangle. */
KO_API uint64_t KoMatrixFloatRowIteratorGetWidth(const MatrixFloatRowIterator *iterator);

/** Returns the rows of the rectangle. */
KO_API uint64_t KoMatrixFloatRowIteratorGetHeight(const MatrixFloatRowIterator *iterator);

/** Returns the stride of the matrix, in elements. */
KO_API uint64_t KoMatrixFloatRowIteratorGetNextLineIncrement(const MatrixFloatRowIterator *iterator);

KO_END_C

#endif
