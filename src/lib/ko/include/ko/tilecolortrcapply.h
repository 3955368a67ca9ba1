/*
 * TileColorTRCApply: applies a grid of three-channel tone curves (ko/tilecolortrc.h) to a three-channel byte picture that
 * arrives as a sequence of row chunks.
 *
 * Every channel goes through its own curves: a pixel's new byte is the blend of the outputs of the channel's four nearest
 * curves, truncated and cut to its low 8 bits. It is no variant of TileTRCApply: tile sizes are rounded, weights are running
 * sums, nothing is rounded or limited at the end. So a level may come out one lower through curves that change nothing, and a
 * blend above 255 wraps. The record keeps the position in the picture: the caller hands over consecutive rows, and how they are
 * cut changes no byte. One thread a record; several records may share a grid. The grid stays the caller's, must outlive the
 * record and must keep its counts. No memory is allocated but the record of KoTileColorTRCApplyNew.
 */
#ifndef KO_TILECOLORTRCAPPLY_H
#define KO_TILECOLORTRCAPPLY_H

#include "ko/base.h"
#include "ko/tilecolortrc.h"

KO_BEGIN_C

/** The application of a grid to one picture, with the position that it has reached. */
typedef struct TileColorTRCApply {
    const TileColorTRC *tileColorTRC; /* not owned */
    uint64_t width;                   /* pixels of the whole picture */
    uint64_t height;                  /* rows of the whole picture */
    uint32_t layout;                  /* KO_BYTE_LAYOUT_... */
    uint64_t tileWidth;               /* width / numStripsX, rounded, pixels */
    uint64_t tileHeight;              /* height / numStripsY, rounded, rows */
    uint64_t rowsDone;                /* rows of the picture finished so far */
    uint64_t band;                    /* index of the present band, 0 to numStripsY; counts on when that one ends */
    uint64_t bandEnd;                 /* row at which the band ends, which may lie behind the picture */
    uint32_t debugFlags;              /* always 0 */
    float xStep;                      /* 1 / tileWidth: what a pixel to the right takes from the weight of the left curves */
    float yStep;                      /* 1 / tileHeight: what a row down takes from the weight of the upper curves */
} TileColorTRCApply;

/**
 * Prepares the application of a grid to a picture, in a record that the caller owns.
 *   tile_trc        in   at least one strip in both directions, curves of at least 256 entries
 *   width, height   in   the whole picture
 *   layout          in   KO_BYTE_LAYOUT_..., one in which the picture is a single block
 * Returns KO_OK; KO_ERR_INVALID_ARGUMENT for a null grid, one without strips or curves or with shorter ones, a tile that rounds
 * to no pixel or no row, or another layout. A record that was refused refuses every chunk.
 */
KO_API int32_t KoTileColorTRCApplyInit(TileColorTRCApply *apply, const TileColorTRC *tile_trc, uint64_t width, uint64_t height,
                                       int32_t layout);

/**
 * Makes a new record, owned by the caller, as KoTileColorTRCApplyInit does. Returns null with KO_ERR_CREATE_OBJECT
 * "TileColorTRCApply". For a null grid the record is cleared: it refuses every chunk.
 */
KO_API TileColorTRCApply *KoTileColorTRCApplyNew(const TileColorTRC *tile_trc, uint64_t width, uint64_t height, int32_t layout);

/** Does nothing: a record owns no memory. Null is accepted. Returns KO_OK. */
KO_API int32_t KoTileColorTRCApplyFree(TileColorTRCApply *apply);

/** Frees the record; null is accepted. Returns KO_OK. */
KO_API int32_t KoTileColorTRCApplyDelete(TileColorTRCApply *apply);

/**
 * Processes the next rows. The runs of a row reach to numStripsX * tileWidth, one less if tileWidth is odd, or to the row's
 * end: columns behind them stay as the output had them. A chunk that begins inside a band takes a subtraction for each row of
 * the band before it.
 *   rows     in    rows of this chunk; rows past the picture's height are ignored
 *   input    in    the chunk's first row in the picture's layout; the planes of KO_BYTE_LAYOUT_PLANAR are width * height bytes
 *                  apart, as in the whole picture
 *   output   out   the same for the result; may be the input
 * Returns KO_OK, or KO_ERR_INVALID_ARGUMENT for a record without a grid.
 */
KO_API int32_t KoTileColorTRCApplyToByteChunk(TileColorTRCApply *apply, uint64_t rows, const uint8_t *input, uint8_t *output);

KO_END_C

#endif
