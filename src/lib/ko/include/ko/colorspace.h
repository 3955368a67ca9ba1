/*
 * The colour spaces and their conversion matrices, all constant.
 */
#ifndef KO_COLORSPACE_H
#define KO_COLORSPACE_H

#include "ko/base.h"

KO_BEGIN_C

/** The colour spaces. */
enum {
    KO_COLORSPACE_RGB = 0, /* red, green, blue */
    KO_COLORSPACE_YIQ = 1, /* luminance and two of chrominance */
    KO_COLORSPACE_GRAY = 2 /* luminance alone */
};

/** Returns the number of channels of a space: 3 for RGB and YIQ, otherwise 1. */
KO_API uint8_t KoColorSpaceGetDepth(int32_t space);

/** Returns "RGB", "YIQ" or "GRAY", and "" for any other number; not to be freed. */
KO_API const char *KoColorSpaceGetName(int32_t space);

/**
 * Returns the matrix that takes a pixel from one space to another: nine floats, row by row, to be multiplied by the pixel as a
 * column. RGB to GRAY is one row followed by a 0. The matrix of a space to itself is all ones, not the identity, and those
 * between YIQ and GRAY and from GRAY are zero: see "A colour space to itself" in docs/compatibility.md. from and to must be 0
 * to 2, which nothing checks.
 */
KO_API const float *KoColorSpaceGetConversionMatrix(int32_t from, int32_t to);

KO_END_C

#endif
