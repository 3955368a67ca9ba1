/*
 * Pixel functions, and the drivers that run them over colour images, two pixels a call.
 *
 * A colour pixel travels as a packet of four floats: the three channels and a 0. A packet array holds up to two pixels, the
 * second from float 4 on. Callbacks get the caller's data pointer first, unread.
 */
#ifndef KO_APPLYFUNCTION_H
#define KO_APPLYFUNCTION_H

#include "ko/base.h"
#include "ko/colorimage.h"

KO_BEGIN_C

/** Compute a pixel from one value or from two; data is the caller's. */
typedef float (*KoValueFunction)(void *data, float a);
typedef float (*KoImageFunction)(void *data, float a, float b);

/**
 * Computes count (1 or 2) result packets from as many source packets.
 *   depth, result_depth   in    channels of the source and of the result
 *   source                in    eight floats; with a count of 1 the second packet is 0
 *   result                out   eight floats, not cleared between calls; the fourth float of a packet is never read
 * Returns a status; the driver keeps that of the last call.
 */
typedef int32_t (*KoColorFunction1)(void *data, int64_t count, uint64_t depth, const float *source, uint64_t result_depth,
                                    float *result);

/** Does the same with the packets of two sources; depth is that of the first. */
typedef int32_t (*KoColorFunction2)(void *data, int64_t count, uint64_t depth, const float *first, const float *second,
                                    uint64_t result_depth, float *result);

/** Value functions: |a| (data is not read), and a + v, a - v, a * v, a / v with data pointing to the float v. */
KO_API float KoFunctionAbsImage(void *data, float a);
KO_API float KoFunctionAddValue(void *data, float a);
KO_API float KoFunctionSubstractValue(void *data, float a);
KO_API float KoFunctionMultiplyValue(void *data, float a);
KO_API float KoFunctionDivideValue(void *data, float a);

/** Image functions, data is not read: a + b, |a| + |b| (added in double precision), a - b, |a - b|, a * b, a / b. */
KO_API float KoFunctionAddImage(void *data, float a, float b);
KO_API float KoFunctionAbsAddImage(void *data, float a, float b);
KO_API float KoFunctionSubstractImage(void *data, float a, float b);
KO_API float KoFunctionDiffImage(void *data, float a, float b);
KO_API float KoFunctionMultiplyImage(void *data, float a, float b);
KO_API float KoFunctionDivideImage(void *data, float a, float b);

/** Colour functions of two sources, channel by channel up to depth: |a - b| and a - b. Return 0, also for a count of 0. */
KO_API int32_t KoFunctionDiffColorImage(void *data, int64_t count, uint64_t depth, const float *first, const float *second,
                                        uint64_t result_depth, float *result);
KO_API int32_t KoFunctionSubstractColorImage(void *data, int64_t count, uint64_t depth, const float *first, const float *second,
                                             uint64_t result_depth, float *result);

/**
 * Runs a colour function over a picture.
 *   source   in       three planes
 *   result   in/out   address of an image pointer (not null): null there makes a new image of source's size and space, owned by
 *                     the caller, also when the call then fails; may be source
 * Returns the status of the last call of function (an earlier one is overwritten and stops nothing), KO_OK if there was no
 * call, KO_ERR_INVALID_ARGUMENT unless both have three planes of one size, or the status of a failed creation.
 */
KO_API int32_t KoApplyFunctionTo1ColorImage(KoColorFunction1 function, void *data, ColorImage *source, ColorImage **result);

/**
 * Runs a colour function over two pictures, as KoApplyFunctionTo1ColorImage does; a new result takes the first one's size.
 * The second source must have the first one's width and the result the first one's height; the height of the second source and
 * the width of the result are the caller's contract.
 */
KO_API int32_t KoApplyFunctionTo2ColorImage(KoColorFunction2 function, void *data, ColorImage *first, ColorImage *second,
                                            ColorImage **result);

KO_END_C

#endif
