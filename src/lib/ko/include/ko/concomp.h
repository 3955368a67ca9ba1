/*
 * Connected components: labels the lit pixels of a plane by the component that they belong to, eight neighbours each, and sums
 * up each component's box and area. Two filters rest on it that keep the components of a pupil's size and shape.
 *
 * Labels are provisional: the component of a pixel is table[labels[pixel]], its root. Tables are the caller's: labels has an
 * entry a pixel of the window, row by row without gaps; the table has one more than the labels that the window can need, at
 * most ceil(width / 2) * ceil(height / 2). Nothing checks either.
 */
#ifndef KO_CONCOMP_H
#define KO_CONCOMP_H

#include "ko/base.h"
#include "ko/realimage.h"

KO_BEGIN_C

/** A component: its box within the labelled window, bounds included, and its pixels. */
typedef struct BlobInfo {
    uint32_t min_x; /* first column */
    uint32_t max_x; /* last column */
    uint32_t min_y; /* first row */
    uint32_t max_y; /* last row */
    uint32_t area;  /* pixels of the component; 0 for a record that is no root */
} BlobInfo;

/**
 * Labels a window of an image.
 *   threshold         in    a pixel above it is lit; a NaN is not
 *   labels            out   0 for unlit pixels, otherwise a provisional label from 1 on
 *   table             out   entry i is the root of label i; entry 0 is 0
 *   x0, x1, y0, y1    in    the window, bounds included, inside the image
 * Returns the number of provisional labels, which may exceed that of the components.
 */
KO_API uint32_t KoConCompRealSubImage(const RealImage *image, float threshold, int32_t *labels, uint32_t *table, uint32_t x0,
                                      uint32_t x1, uint32_t y0, uint32_t y1);

/** Labels a whole image, as KoConCompRealSubImage does; 0 for an image without pixels. */
KO_API uint32_t KoConCompRealImage(const RealImage *image, float threshold, int32_t *labels, uint32_t *table);

/**
 * Sums up the components of a labelling.
 *   width, height   in       of the labelled window
 *   info            in/out   cleared before: one more than the provisional labels; filled at the roots
 * Returns the number of components.
 */
KO_API uint32_t KoConCompRealImageInfo(uint32_t width, uint32_t height, const int32_t *labels, const uint32_t *table,
                                       BlobInfo *info);

/**
 * Clears every pixel of an image that is not part of a component of fitting size and shape: sides above fraction of the longer
 * side of the picture and up to a tenth of the shorter, not less than a quarter of the box filled, at most twice as long as
 * wide.
 *   threshold   in   lights the pixels
 *   fraction    in   share of the longer side
 * Returns the number of components kept; 0, with the image as it was, if memory is short.
 */
KO_API uint32_t KoBlobDetectionTestSizeStep1(RealImage *image, float threshold, float fraction);

/**
 * Tests the components of one image by segmenting another around each anew, and clears every pixel of the other that is not
 * part of one that passes.
 *   first    in       lit above 0.1
 *   second   in/out   of the same size, which nothing checks
 * Returns the number of components kept; 0, with the image as it was, if memory is short.
 */
KO_API uint32_t KoBlobDetectionTestSizeStep2(const RealImage *first, RealImage *second);

KO_END_C

#endif
