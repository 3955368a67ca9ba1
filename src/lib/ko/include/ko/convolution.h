/*
 * Convolution of two vectors, with the full overlap and both partial ones: out[k] is the sum of a[i] * b[k - i], i ascending,
 * size_a + size_b - 1 values in all.
 */
#ifndef KO_CONVOLUTION_H
#define KO_CONVOLUTION_H

#include "ko/base.h"
#include "ko/realimage.h"

KO_BEGIN_C

/**
 * Convolves two arrays.
 *   a, b             in       size_a and size_b floats
 *   result           in/out   address of an array pointer: null makes a new array, owned by the caller and freed with KoFree;
 *                             an array that is there holds size_a + size_b - 1 floats
 * Returns KO_OK, KO_ERR_INVALID_ARGUMENT for a size of 0, or the thread's last status if the array cannot be allocated.
 */
KO_API int32_t KoConvolutionVector(const float *a, uint64_t size_a, const float *b, uint64_t size_b, float **result);

/**
 * Convolves two images that are one pixel wide or one pixel high; one of a single pixel counts as a column.
 *   result   in/out   address of an image pointer: null makes a new image, owned by the caller, a column if a is one and a row
 *                     otherwise; an image that is there has that size, which nothing checks
 * A column and a row therefore give a column, not a two-dimensional kernel. Returns KO_OK; KO_ERR_INVALID_ARGUMENT, without a
 * message, for an image that is neither or has no pixels; or the thread's last status if the result cannot be allocated.
 */
KO_API int32_t KoConvolutionRealImageVector(const RealImage *a, const RealImage *b, RealImage **result);

KO_END_C

#endif
