/*
 * Resampling: other sizes of an image by point sampling. A smaller picture keeps a selection of the pixels, a larger one
 * repeats them; nothing is averaged. Downsampling takes the pixel under the centre of each new one, upsampling rounds where one
 * pixel ends and the next begins. Results stay with the caller, also one that a call made before it failed.
 */
#ifndef KO_RESAMPLE_H
#define KO_RESAMPLE_H

#include "ko/base.h"
#include "ko/colorimage.h"
#include "ko/realimage.h"

KO_BEGIN_C

/**
 * Make a larger or a smaller image.
 *   factor   in       at least 1, looked at for a null result alone: the new sides are the old ones times factor, or divided by
 *                     it, cut to whole pixels
 *   result   in/out   address of an image pointer: null makes a new image, owned by the caller; the size of an image that is
 *                     there rules instead of factor, each side by itself
 * Return KO_OK; KO_ERR_INVALID_ARGUMENT for a factor under 1 or not a number, or a given image that is smaller (larger) than
 * the source in a direction; KO_ERR_CREATE_OBJECT if the new image cannot be allocated.
 */
KO_API int32_t KoRealImageUpsample(const RealImage *image, float factor, RealImage **result);
KO_API int32_t KoRealImageDownsample(const RealImage *image, float factor, RealImage **result);

/**
 * Makes an image of any size, as KoMatrixFloatResize does.
 *   result   in/out   address of an image pointer: null makes a new image, owned by the caller; one that is there must have the
 *                     given size, which nothing checks
 * Returns KO_OK, or the status of a failed creation.
 */
KO_API int32_t KoRealImageResize(const RealImage *image, uint64_t width, uint64_t height, RealImage **result);

/**
 * Fills an image from another of any size, by KoRealImageDownsample if the source is at least as wide and otherwise by
 * KoRealImageUpsample; the heights are not looked at for the choice. Returns what that returns.
 */
KO_API int32_t KoRealImageRescale(const RealImage *image, RealImage *result);

/**
 * Make a colour image of another size, plane by plane by the functions for one plane.
 *   factor   in       of KoColorImageDownsample; 0 or less, on a null result, makes planes without pixels
 *   result   in/out   address of an image pointer: null makes a new image of the same colour space, owned by the caller
 * Return KO_OK, the first failing plane's status, or KO_ERR_CREATE_OBJECT if the new image cannot be allocated.
 */
KO_API int32_t KoColorImageDownsample(const ColorImage *image, float factor, ColorImage **result);
KO_API int32_t KoColorImageResize(const ColorImage *image, uint64_t width, uint64_t height, ColorImage **result);

KO_END_C

#endif
