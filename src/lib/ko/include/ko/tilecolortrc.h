/*
 * TileColorTRC: a grid of tone curves as TileTRC is (ko/tiletrc.h), with a curve each for red, green and blue at every tile. A
 * strip is one of the divisions of the picture in a direction; x goes along a grid row, y from the top. A grid has no lock; any
 * number of threads may read one.
 */
#ifndef KO_TILECOLORTRC_H
#define KO_TILECOLORTRC_H

#include "ko/base.h"
#include "ko/trc.h"

KO_BEGIN_C

/** A grid of curves for red, green and blue. */
typedef struct TileColorTRC {
    uint64_t size;        /* entries per curve */
    uint64_t numStripsX;  /* tiles per grid row */
    uint64_t numStripsY;  /* grid rows */
    uint32_t *redArray;   /* owned: curve (x, y) begins at entry (y * numStripsX + x) * size; null when a strip count is 0 */
    uint32_t *greenArray; /* the same for green; the three are there together or not at all */
    uint32_t *blueArray;  /* the same for blue */
} TileColorTRC;

/**
 * Makes a grid of cleared curves in a record that the caller owns; ended with KoTileColorTRCFree.
 *   size                 in   entries per curve; byte pictures need at least 256
 *   strips_x, strips_y   in   tiles per grid row, and grid rows; if one is 0 the grid has no curves
 * Returns KO_OK, also when memory is short: all three arrays are null then.
 */
KO_API int32_t KoTileColorTRCInit(TileColorTRC *tile_trc, uint64_t size, uint64_t strips_x, uint64_t strips_y);

/** Makes a new grid, owned by the caller, as KoTileColorTRCInit does. Returns null with KO_ERR_CREATE_OBJECT "TileColorTRC". */
KO_API TileColorTRC *KoTileColorTRCNew(uint64_t size, uint64_t strips_x, uint64_t strips_y);

/** Frees the curves and nulls them; the record stays, null is accepted. Returns KO_OK. */
KO_API int32_t KoTileColorTRCFree(TileColorTRC *tile_trc);

/** Frees the grid and its record; null is accepted. Returns KO_OK. */
KO_API int32_t KoTileColorTRCDelete(TileColorTRC *tile_trc);

/** Return the entries per curve, the tiles per grid row, and the grid rows. */
KO_API uint64_t KoTileColorTRCGetSize(const TileColorTRC *tile_trc);
KO_API uint64_t KoTileColorTRCGetNumStripsX(const TileColorTRC *tile_trc);
KO_API uint64_t KoTileColorTRCGetNumStripsY(const TileColorTRC *tile_trc);

/**
 * Return the first entry of a channel's curve (x, y), which stays the grid's; null with KO_ERR_INDEX_OUT_OF_BOUNDS for an index
 * out of the grid, and with KO_ERR_NULL_POINTER for a grid without curves.
 */
KO_API uint32_t *KoTileColorTRCGetRedTRC(const TileColorTRC *tile_trc, uint64_t x, uint64_t y);
KO_API uint32_t *KoTileColorTRCGetGreenTRC(const TileColorTRC *tile_trc, uint64_t x, uint64_t y);
KO_API uint32_t *KoTileColorTRCGetBlueTRC(const TileColorTRC *tile_trc, uint64_t x, uint64_t y);

/**
 * Copies entries into the curves of tile (x, y).
 *   red, green, blue   in   size entries each; not null
 * Returns KO_OK, or the status that KoTileColorTRCGetRedTRC leaves.
 */
KO_API int32_t KoTileColorTRCSetTileFromArray(TileColorTRC *tile_trc, uint64_t x, uint64_t y, const uint32_t *red,
                                              const uint32_t *green, const uint32_t *blue);

/**
 * Copies three curves into tile (x, y). Returns KO_OK; KO_ERR_INVALID_ARGUMENT if one has another size, KO_ERR_NULL_POINTER if
 * one has no entries, or the status that KoTileColorTRCGetRedTRC leaves; then no curve was changed.
 */
KO_API int32_t KoTileColorTRCSetTileFromTRC(TileColorTRC *tile_trc, uint64_t x, uint64_t y, const TRC *red, const TRC *green,
                                            const TRC *blue);

/**
 * Replaces the red and the green curve of tile (x, y) by their composition with an array: the curve first, the array second.
 * This happens only when blue is null: a call with three arrays changes nothing, and blue curves are never changed. See
 * "Composition without blue" in docs/compatibility.md.
 *   red, green   in   size entries each, or null, which changes nothing; an entry past the array takes its last
 *   blue         in   null
 * Returns KO_OK, also when nothing is changed; for a tile out of the grid, or a grid without curves, the thread's status says
 * so. KO_ERR_ALLOC if memory is short; then no curve was changed.
 */
KO_API int32_t KoTileColorTRCComposeTile(TileColorTRC *tile_trc, uint64_t x, uint64_t y, const uint32_t *red,
                                         const uint32_t *green, const uint32_t *blue);

/** Returns 1 when sizes, strip counts and all entries are equal (two grids without curves count as equal), otherwise 0. */
KO_API int32_t KoTileColorTRCCompare(const TileColorTRC *first, const TileColorTRC *second);

/**
 * Writes the grid to a text file: "RGBLinear", "bits" with a number and the strip counts, and a line of red, green and blue for
 * every entry. The number is the size over the natural logarithm of 2: before such a file can be loaded, the base-2 logarithm
 * of the size must be put in its place (see "The bits of a colour grid" in docs/compatibility.md). Curves of a size that is no
 * power of two cannot be loaded at all.
 *   overwrite   in   0 refuses to replace a file
 * Returns KO_OK, KO_ERR_FILE_EXISTS, KO_ERR_OPEN_WRITE, or KO_ERR_NULL_POINTER for a grid that has tiles but no curves.
 * Failed writes are not reported.
 */
KO_API int32_t KoTileColorTRCSave(const TileColorTRC *tile_trc, const char *path, int32_t overwrite);

/**
 * Reads a grid. Other counts than the record's replace the curves, so pointers to them end; the same counts overwrite them. A
 * failure keeps what was read so far. A line that does not fit is reported by its number on the standard error stream.
 * Returns KO_OK, KO_ERR_OPEN_READ, KO_ERR_READ_LINE, or KO_ERR_ALLOC with the grid as it was.
 */
KO_API int32_t KoTileColorTRCLoad(TileColorTRC *tile_trc, const char *path);

KO_END_C

#endif
