/*
 * The bilateral filter: a smooth picture that keeps strong edges, by blurring at a few evenly spaced levels of the intensity
 * and interpolating between them at each pixel.
 */
#ifndef KO_BILATERALFILTER_H
#define KO_BILATERALFILTER_H

#include "ko/base.h"
#include "ko/realimage.h"

KO_BEGIN_C

/**
 * Smooths an image within its edges; the spatial sigma is one fiftieth of the shorter side.
 *   result   out   address of an image pointer; always receives a new image, owned by the caller: what stood there is not
 *                  freed
 *   levels   in    intervals of the intensity, at least 1; 0 gives NaN
 * Returns KO_OK; a flat picture gives all 0, not its own value (see "Flat pictures under the bilateral filter" in
 * docs/compatibility.md). If the result cannot be allocated, result receives null, the call returns KO_OK, and the thread has
 * KO_ERR_CREATE_OBJECT. If work memory cannot be allocated, the call returns the status of that, and result receives null.
 */
KO_API int32_t KoFilterBLFApplyToRealImage(const RealImage *image, RealImage **result, uint64_t levels);

KO_END_C

#endif
