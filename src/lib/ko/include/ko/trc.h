/*
 * TRC: a one-dimensional tone curve, a table from an integer input level to an integer output level.
 *
 * The scale of a curve is its size: one of 1024 entries maps 0..1023 to 0..1023. Nothing forces an entry to be below the size
 * or the curve to rise. A curve has no lock: several threads may read or apply one at the same time.
 */
#ifndef KO_TRC_H
#define KO_TRC_H

#include "ko/base.h"
#include "ko/colorimage.h"
#include "ko/realimage.h"

KO_BEGIN_C

/** A tone curve. */
typedef struct TRC {
    uint64_t size;   /* entries; byte pictures use 256 */
    uint32_t *array; /* owned: the entries; null after a failed allocation or after KoTRCFree */
} TRC;

/**
 * Makes a curve in a record that the caller owns; entries are not set.
 *   trc    out   its old contents are not looked at; ended with KoTRCFree
 *   size   in    entries; the limit of KoTRCSetSize does not apply
 * Returns KO_OK, or KO_ERR_ALLOC.
 */
KO_API int32_t KoTRCInit(TRC *trc, uint64_t size);

/** Makes a new curve, owned by the caller; entries are not set. Returns null with KO_ERR_CREATE_OBJECT "TRC". */
KO_API TRC *KoTRCNew(uint64_t size);

/** Frees the entries and nulls them; size and record stay, null is accepted. Returns KO_OK. */
KO_API int32_t KoTRCFree(TRC *trc);

/** Frees the curve and its record; null is accepted. Returns KO_OK. */
KO_API int32_t KoTRCDelete(TRC *trc);

/** Returns the low 32 bits of the number of entries. */
KO_API uint32_t KoTRCGetSize(const TRC *trc);

/** Returns the entries, which stay the curve's. */
KO_API uint32_t *KoTRCGetArray(const TRC *trc);

/** Returns one entry, unchecked. */
KO_API uint32_t KoTRCGetValue(const TRC *trc, uint32_t index);

/**
 * Gives the curve another number of entries, 1 to 65536, all unset; the present size changes nothing and keeps the entries.
 * Returns KO_OK, also when memory is short: the array is then null. Any other size is KO_ERR_INDEX_OUT_OF_BOUNDS.
 */
KO_API int32_t KoTRCSetSize(TRC *trc, uint64_t size);

/**
 * Gives the curve another number of entries, 1 to 65536, and keeps its shape. The two directions differ (see "Shrinking and
 * growing" in docs/compatibility.md): shrinking takes every (old / new)-th entry and leaves the values on their old scale;
 * growing interpolates by pieces of cubics and multiplies the values by r = new / old (whole-number division). Growing sets r
 * times the old size entries; the rest, when the new size is no multiple, is 0. An overshoot is not limited, and a negative
 * value is stored as its low 32 bits.
 * Returns KO_OK, KO_ERR_INDEX_OUT_OF_BOUNDS for another size, KO_ERR_INVALID_ARGUMENT for growing a curve of fewer than 3
 * entries, KO_ERR_NULL_POINTER for a curve without entries, or KO_ERR_ALLOC with the curve as it was.
 */
KO_API int32_t KoTRCResize(TRC *trc, uint64_t size);

/** Copies count entries, which must be the curve's size. Returns KO_OK; KO_ERR_INVALID_ARGUMENT for another count or null. */
KO_API int32_t KoTRCSetArray(TRC *trc, const uint32_t *source, uint64_t count);

/** Sets entry i to i. Returns KO_OK, or KO_ERR_NULL_POINTER for a curve without entries. */
KO_API int32_t KoTRCSetIdentity(TRC *trc);

/**
 * Sets entry i to second[first[i]]: the first curve is applied first.
 *   first    in   as many entries as the curve; each below the number of entries of second, which nothing checks
 *   second   in   not null
 * Returns KO_OK, also when memory is short (the curve then stays as it was); KO_ERR_INVALID_ARGUMENT for a null array.
 */
KO_API int32_t KoTRCSetCompose(TRC *trc, const uint32_t *first, const uint32_t *second);

/** Makes a new curve of size entries composed as by KoTRCSetCompose. Returns null with KO_ERR_CREATE_OBJECT "TRC". */
KO_API TRC *KoTRCNewCompose(const uint32_t *first, const uint32_t *second, uint64_t size);

/**
 * Reads a text file "GrayLinear". A size other than the curve's replaces the entries, the same size overwrites them; a failure
 * keeps what was read so far. A line that does not fit is reported on the standard error stream.
 * Returns KO_OK, KO_ERR_OPEN_READ, KO_ERR_READ_LINE, or KO_ERR_ALLOC with the curve as it was.
 */
KO_API int32_t KoTRCLoad(TRC *trc, const char *path);

/**
 * Writes a text file "GrayLinear": the base-2 logarithm of the size, truncated, then one entry a line as a signed number.
 *   overwrite   in   0 refuses to replace a file
 * Returns KO_OK, KO_ERR_FILE_EXISTS, KO_ERR_OPEN_WRITE, or KO_ERR_NULL_POINTER for a curve without entries.
 */
KO_API int32_t KoTRCSave(const TRC *trc, const char *path, int32_t overwrite);

/**
 * Replaces each pixel by the curve's entry at its value, truncated toward zero and taken as the low 32 bits: a negative value
 * wraps and takes the last entry, like every value past the curve. A NaN, or a value beyond 64 bits, takes entry 0.
 * Returns KO_OK, or KO_ERR_NULL_POINTER for a curve without entries.
 */
KO_API int32_t KoTRCApplyToRealImage(const TRC *trc, RealImage *image);

/**
 * Applies the curve to every channel in place, as KoTRCApplyToRealImage does.
 * Returns KO_OK, KO_ERR_INVALID_ARGUMENT for an image of neither one nor three planes, or KO_ERR_NULL_POINTER.
 */
KO_API int32_t KoTRCApplyToColorImage(const TRC *trc, ColorImage *image);

/**
 * Fits a rising curve to a pair of images: for every input level, the level that the target holds where the input has it, with
 * a mild pull toward the best of six power curves.
 *   trc      in/out   its size says how many levels to fit; its entries are replaced
 *   input    in       before the first line of an area; consumed
 *   target   in       before the first line of an area of the same shape, which nothing checks; consumed
 * Above 256 levels both images are scaled by size / 256 first. Pixels whose input level is not below the size do not count.
 * Returns KO_OK always. When memory is short, or the size is 0, the entries are null afterwards. Any number of threads may fit
 * curves at once, each with its own curve and iterators. input and target are two iterators. After a fit of more than 256
 * entries, smaller ones may come out differently: see "The pool's memory of larger curves" in docs/compatibility.md.
 */
KO_API int32_t KoTRCCompute(TRC *trc, RealImageLineIterator *input, RealImageLineIterator *target);

KO_END_C

#endif
