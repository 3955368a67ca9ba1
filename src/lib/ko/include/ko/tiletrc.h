/*
 * TileTRC: a grid of tone curves of equal size, one for each block of a picture. A strip is one of the divisions of the picture
 * in a direction; x goes along a grid row, y from the top. A grid has no lock; any number of threads may read one.
 */
#ifndef KO_TILETRC_H
#define KO_TILETRC_H

#include "ko/base.h"
#include "ko/realimage.h"
#include "ko/trc.h"

KO_BEGIN_C

/** A grid of tone curves. */
typedef struct TileTRC {
    uint64_t size;       /* entries per curve */
    uint64_t numStripsX; /* tiles per grid row */
    uint64_t numStripsY; /* grid rows */
    uint32_t *array;     /* owned: curve (x, y) begins at entry (y * numStripsX + x) * size; null when a strip count is 0 */
} TileTRC;

/** Makes a grid of cleared curves in a record that the caller owns. Returns KO_OK, also when memory is short: array is null. */
KO_API int32_t KoTileTRCInit(TileTRC *tile_trc, uint64_t size, uint64_t strips_x, uint64_t strips_y);

/** Makes a new grid, owned by the caller, as KoTileTRCInit does. Returns null with KO_ERR_CREATE_OBJECT "TileTRC". */
KO_API TileTRC *KoTileTRCNew(uint64_t size, uint64_t strips_x, uint64_t strips_y);

/** Frees the curves and nulls them; the record stays, null is accepted. Returns KO_OK. */
KO_API int32_t KoTileTRCFree(TileTRC *tile_trc);

/** Frees the grid and its record; null is accepted. Returns KO_OK. */
KO_API int32_t KoTileTRCDelete(TileTRC *tile_trc);

/** Return the entries per curve, the tiles per grid row, and the grid rows. */
KO_API uint64_t KoTileTRCGetSize(const TileTRC *tile_trc);
KO_API uint64_t KoTileTRCGetNumStripsX(const TileTRC *tile_trc);
KO_API uint64_t KoTileTRCGetNumStripsY(const TileTRC *tile_trc);

/** Returns the base-2 logarithm of the entries per curve, truncated; 0 for a size of 0. */
KO_API uint32_t KoTileTRCGetBits(const TileTRC *tile_trc);

/**
 * Returns the first entry of curve (x, y), which stays the grid's; null with KO_ERR_INDEX_OUT_OF_BOUNDS for an index out of the
 * grid, and with KO_ERR_NULL_POINTER for a grid without curves.
 */
KO_API uint32_t *KoTileTRCGetTRC(const TileTRC *tile_trc, uint64_t x, uint64_t y);

/** Copies size entries into curve (x, y). Returns KO_OK, or the status that KoTileTRCGetTRC leaves. */
KO_API int32_t KoTileTRCSetTileFromArray(TileTRC *tile_trc, uint64_t x, uint64_t y, const uint32_t *source);

/**
 * Copies a curve into curve (x, y). Returns KO_OK, KO_ERR_INVALID_ARGUMENT for a curve of another size, KO_ERR_NULL_POINTER for
 * one without entries, or the status that KoTileTRCGetTRC leaves.
 */
KO_API int32_t KoTileTRCSetTileFromTRC(TileTRC *tile_trc, uint64_t x, uint64_t y, const TRC *trc);

/** Returns 1 when sizes, strip counts and all entries are equal (two grids without curves count as equal), otherwise 0. */
KO_API int32_t KoTileTRCCompare(const TileTRC *first, const TileTRC *second);

/**
 * Paints each tile's curve into its own block of a copy of a gray picture: 255 on the curve, or 0 where the picture is at 129
 * or above; elsewhere the picture's byte. Curves are drawn with 256 levels whatever their size.
 *   image    in       gray, one plane
 *   result   in/out   address of an image pointer: null makes a new image, owned by the caller; an image that is there must
 *                     have the picture's size
 * Returns KO_OK, also when the new image cannot be allocated; KO_ERR_INVALID_ARGUMENT for a null grid or a result of another
 * size; KO_ERR_NULL_POINTER for a grid whose curves could not be allocated.
 */
KO_API int32_t KoTileTRCDraw(const TileTRC *tile_trc, const RealImage *image, RealImage **result);

/** Forms of a grid's file, by its first line. */
enum {
    KO_TILETRC_TEXT = 1,   /* "GrayLinear": one entry a line */
    KO_TILETRC_BINARY = 2, /* "GrayLinearBinary": one byte an entry, the step from the entry before it modulo 256 */
    KO_TILETRC_ENCODED = 3 /* "GrayLinearEncoded": the token stream of ko/trccompress.h */
};

/**
 * Writes the grid to a file.
 *   form        in   KO_TILETRC_...; any other number writes the text form
 *   overwrite   in   0 refuses to replace a file
 * The binary form keeps steps of -128 to 127, the encoded form what its token stream keeps; the text form keeps all.
 * Returns KO_OK, KO_ERR_FILE_EXISTS, KO_ERR_OPEN_WRITE, KO_ERR_NULL_POINTER for a grid whose curves could not be allocated, or
 * KO_ERR_CREATE_OBJECT, before the file is touched, if the encoder cannot be allocated. The result speaks only for the opening:
 * in the binary and the encoded form a write that fails leaves its report on the thread, in the text form nothing.
 */
KO_API int32_t KoTileTRCSave(const TileTRC *tile_trc, const char *path, int32_t form, int32_t overwrite);

/**
 * Reads a grid of any form. Other counts than the record's replace the curves, so pointers of KoTileTRCGetTRC end; the same
 * counts overwrite them. A failure keeps what was read so far. A line that does not fit is reported on the standard error
 * stream.
 * Returns KO_OK, KO_ERR_OPEN_READ, KO_ERR_READ_LINE, KO_ERR_READ_FILE for curves that end early, or KO_ERR_ALLOC with the grid
 * as it was.
 */
KO_API int32_t KoTileTRCLoad(TileTRC *tile_trc, const char *path);

KO_END_C

#endif
