/*
 * Block apply: cuts images into a grid of blocks and computes one number per block.
 *
 * The block size is the first image's size divided by the grid, remainders dropped: columns and rows behind the last whole
 * block are in no block. All images use the geometry of the first; their sizes are the caller's contract. An image lower than
 * the grid has blocks of height 0, and each still yields the one line at its row.
 */
#ifndef KO_BLOCKAPPLY_H
#define KO_BLOCKAPPLY_H

#include "ko/base.h"
#include "ko/realimage.h"

KO_BEGIN_C

/** Computes a block's number from one iterator an image, each before the block's first line. */
typedef float (*KoBlockFunction1)(void *data, RealImageLineIterator *first);
typedef float (*KoBlockFunction2)(void *data, RealImageLineIterator *first, RealImageLineIterator *second);
typedef float (*KoBlockFunction3)(void *data, RealImageLineIterator *first, RealImageLineIterator *second,
                                  RealImageLineIterator *third);
typedef float (*KoBlockFunction4)(void *data, RealImageLineIterator *first, RealImageLineIterator *second,
                                  RealImageLineIterator *third, RealImageLineIterator *fourth);

/**
 * Run a block function over one to four images and store its floats row by row.
 *   blocks_x, blocks_y   in       the grid, neither 0, which nothing checks
 *   data                 in       handed to each call
 *   result               in/out   address of an array pointer (not null): null there makes a new array, owned by the caller
 *                                 and freed with KoFree; an array that is there holds blocks_x * blocks_y floats
 * Return KO_OK, or KO_ERR_ALLOC.
 */
KO_API int32_t KoBlockApplyFunctionTo1RealImage(uint32_t blocks_x, uint32_t blocks_y, KoBlockFunction1 function, void *data,
                                                RealImage *first, float **result);
KO_API int32_t KoBlockApplyFunctionTo2RealImage(uint32_t blocks_x, uint32_t blocks_y, KoBlockFunction2 function, void *data,
                                                RealImage *first, RealImage *second, float **result);
KO_API int32_t KoBlockApplyFunctionTo3RealImage(uint32_t blocks_x, uint32_t blocks_y, KoBlockFunction3 function, void *data,
                                                RealImage *first, RealImage *second, RealImage *third, float **result);
KO_API int32_t KoBlockApplyFunctionTo4RealImage(uint32_t blocks_x, uint32_t blocks_y, KoBlockFunction4 function, void *data,
                                                RealImage *first, RealImage *second, RealImage *third, RealImage *fourth,
                                                float **result);

KO_END_C

#endif
