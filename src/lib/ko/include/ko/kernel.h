/*
 * Kernels: images of weights for general linear filters, and their application to a picture, dense or as a list of taps. Blurs
 * have a family of their own, ko/kernelgaussian.h. Kernel sizes are odd; the centre lies at width / 2 and height / 2 in whole
 * numbers. All images made here are owned by the caller and deleted with KoRealImageDelete.
 */
#ifndef KO_KERNEL_H
#define KO_KERNEL_H

#include "ko/base.h"
#include "ko/realimage.h"

KO_BEGIN_C

/**
 * Makes a new Gaussian kernel, normalised to a sum of 1.
 *   sigma   in   pixels
 * With an even size the mirrored values fall on the centre and overwrite it, so only odd sizes make a true Gaussian.
 * Returns null with KO_ERR_CREATE_OBJECT if memory is short.
 */
KO_API RealImage *KoKernelNewGaussian(uint64_t width, uint64_t height, float sigma);

/** Makes a new 3 by 3 Laplacian of sum 0; alpha, 0 to 1, moves weight to the corners. Returns null if memory is short. */
KO_API RealImage *KoKernelNewLaplacian(float alpha);

/**
 * Correlates a picture with a kernel, which is not flipped; outside the picture are zeros, and borders are not made up for.
 *   result   out   address of an image pointer; always receives a new image of the picture's size: what stood there is not
 *                  freed. All 0 if the picture is narrower or lower than the kernel
 * Returns KO_OK, or the thread's last status with null at result.
 */
KO_API int32_t KoKernelNewRealImage(const RealImage *kernel, const RealImage *image, RealImage **result);

/**
 * Correlates a picture with a few taps, wherever a kernel of the given size lies inside the picture.
 *   kernel_width, kernel_height   in       pixels, not negative; half of each, in whole numbers, stays out at the borders
 *   tap_count                     in       elements of the three arrays
 *   offsets_x, offsets_y          in       within that half, which nothing checks
 *   result                        in/out   address of an image pointer: null makes a new image, cleared; an image that is there
 *                                          keeps its pixels in the border
 * Returns KO_OK. An image of another size, or memory that cannot be allocated, returns the thread's last status, which may be
 * KO_OK, and writes no pixel.
 */
KO_API int32_t KoSparseKernelNewRealImage(int32_t kernel_width, int32_t kernel_height, uint32_t tap_count,
                                          const int32_t *offsets_x, const int32_t *offsets_y, const float *weights,
                                          const RealImage *image, RealImage **result);

KO_END_C

#endif
