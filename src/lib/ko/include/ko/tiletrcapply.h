/*
 * TileTRCApply: applies a grid of tone curves (ko/tiletrc.h) to a byte picture that arrives as a sequence of row chunks.
 *
 * A pixel's new level is the bilinear blend of the outputs of its four nearest curves. In colour the curves work on the
 * luminance, and the new luminance goes back to the channels by a mix of an additive rule and one that keeps the ratio. The
 * record keeps the position in the picture: the caller hands over consecutive rows, and how they are cut changes no byte.
 * One thread a record; several records may share a grid. The grid and the ColorTRC stay the caller's and must outlive it.
 */
#ifndef KO_TILETRCAPPLY_H
#define KO_TILETRCAPPLY_H

#include "ko/base.h"
#include "ko/colortrc.h"
#include "ko/tiletrc.h"

KO_BEGIN_C

/** The application of a grid to one picture, with the position that it has reached. */
typedef struct TileTRCApply {
    const TileTRC *tileTRC;     /* not owned; null means no tone change */
    const uint32_t *redCurve;   /* not owned: entries of channel 0 of the ColorTRC, or null */
    const uint32_t *greenCurve; /* the same of channel 1 */
    const uint32_t *blueCurve;  /* the same of channel 2 */
    float ratioWeight;          /* weight of the ratio rule in the colour transfer */
    float additiveWeight;       /* 1 - ratioWeight */
    uint64_t width;             /* pixels of the whole picture */
    uint64_t height;            /* rows of the whole picture */
    uint32_t layout;            /* KO_BYTE_LAYOUT_... */
    uint32_t color_space;       /* KO_COLORSPACE_GRAY means one channel, any other three */
    uint64_t tileWidth;         /* width / numStripsX, pixels */
    uint64_t tileHeight;        /* height / numStripsY, rows */
    uint64_t tilePixels;        /* their product */
    uint64_t tileStep;          /* entries of the grid's curves a level: their size >> 8 */
    uint64_t colorStep;         /* entries of the ColorTRC a level: its size >> 8; 1 without a ColorTRC */
    uint64_t groupsPerTile;     /* groups of four pixels in a tile's width */
    uint64_t firstRun;          /* pixels in a row before the first interpolation */
    uint64_t lastRun;           /* pixels in a row after the last one */
    uint64_t rowsDone;          /* rows of the picture finished so far */
    uint64_t bandRow;           /* row inside the present interpolating band */
    uint64_t band;              /* index of the present band, 0 to numStripsY */
    uint64_t bandEnd;           /* row of the picture at which the band ends */
    uint32_t debugFlags;        /* always 0 */
    void *rowScratchBlock;      /* owned: raw block behind rowScratch; null when nothing is interpolated */
    float *rowScratch;          /* work memory of a row; 16-byte aligned */
    void *weightTableBlock;     /* owned: raw block behind weightTable; null when nothing is interpolated */
    float *weightTable;         /* tileHeight * groupsPerTile groups of 16 floats: left upper, left lower, right upper and
                                   right lower weights of four pixels; 16-byte aligned */
} TileTRCApply;

/** The sliding 2 by 2 neighbourhood of curves in a row: left upper, right upper, left lower, right lower; not owned. */
typedef const uint32_t *KoTRCMatrix[4];

/**
 * Prepares the application of a grid to a picture, in a record that the caller owns; ended with KoTileTRCApplyFree.
 *   tile_trc        in   null, or without strips, changes no tone; a grid of 1 by 1 applies its curve to colour pictures alone
 *   ratio_weight    in   0 shifts all channels by the change of luminance, 1 scales them by its ratio, between is a mix
 *   color_trc       in   applied to the channels first, or null; a GRAY picture ignores it
 *   width, height   in   the whole picture
 *   layout          in   KO_BYTE_LAYOUT_...
 *   color_space     in   KO_COLORSPACE_GRAY for one channel, any other for three
 * Returns KO_OK; KO_ERR_INVALID_ARGUMENT for more strips than pixels, tiles of one pixel beside another in a direction, no
 * strip in one direction and several in the other, curves of fewer than 256 entries or missing, or a layout that does not
 * exist; KO_ERR_ALLOC if the tables cannot be allocated.
 */
KO_API int32_t KoTileTRCApplyInit(TileTRCApply *apply, const TileTRC *tile_trc, float ratio_weight, const ColorTRC *color_trc,
                                  uint64_t width, uint64_t height, int32_t layout, int32_t color_space);

/** Makes a new record, owned by the caller, as KoTileTRCApplyInit does. Returns null with KO_ERR_CREATE_OBJECT. */
KO_API TileTRCApply *KoTileTRCApplyNew(const TileTRC *tile_trc, float ratio_weight, const ColorTRC *color_trc, uint64_t width,
                                       uint64_t height, int32_t layout, int32_t color_space);

/** Frees the tables; the record stays, null is accepted. Returns KO_OK. */
KO_API int32_t KoTileTRCApplyFree(TileTRCApply *apply);

/** Frees the tables and the record; null is accepted. Returns KO_OK. */
KO_API int32_t KoTileTRCApplyDelete(TileTRCApply *apply);

/**
 * Processes the next rows.
 *   rows                              in    rows of this chunk; rows past the picture's height are ignored
 *   first, second, third              in    the chunk's first row in the picture's layout; the last two are read for
 *                                           KO_BYTE_LAYOUT_3_PLANES only. The planes of KO_BYTE_LAYOUT_PLANAR are
 *                                           width * height bytes apart, as in the whole picture
 *   first_out, second_out, third_out  out   the same for the result; may be the input's buffers
 * Returns KO_OK.
 */
KO_API int32_t KoTileTRCApplyToByteChunkNonInterlaced(TileTRCApply *apply, uint64_t rows, const uint8_t *first,
                                                      const uint8_t *second, const uint8_t *third, uint8_t *first_out,
                                                      uint8_t *second_out, uint8_t *third_out);

/** Processes the next rows of a picture in one block, as KoTileTRCApplyToByteChunkNonInterlaced does. Returns KO_OK. */
KO_API int32_t KoTileTRCApplyToByteChunk(TileTRCApply *apply, uint64_t rows, const uint8_t *input, uint8_t *output);

/** Sets the right pair of curves and nulls the left pair. */
KO_API void KoTRCMatrixInit(const uint32_t **matrix, const uint32_t *upper, const uint32_t *lower);

/** Moves the right pair of curves to the left and sets a new right pair. */
KO_API void KoTRCMatrixMoveRight(const uint32_t **matrix, const uint32_t *upper, const uint32_t *lower);

KO_END_C

#endif
