/*
 * ColorTRC: one tone curve (ko/trc.h) per channel, normally three of one size.
 */
#ifndef KO_COLORTRC_H
#define KO_COLORTRC_H

#include "ko/base.h"
#include "ko/colorimage.h"
#include "ko/trc.h"

KO_BEGIN_C

/** A tone curve for each channel. The curves are freed with the record. */
typedef struct ColorTRC {
    uint64_t depth; /* number of channels and of curves */
    TRC **curves;   /* owned: depth curves; an element is null if memory was short for it */
} ColorTRC;

/**
 * Makes depth curves of size entries, not set, in a record that the caller owns; ended with KoColorTRCFree.
 * Returns KO_OK, or KO_ERR_ALLOC. A single curve that cannot be allocated leaves a null element, and the result is still KO_OK.
 */
KO_API int32_t KoColorTRCInit(ColorTRC *color_trc, uint64_t size, uint64_t depth);

/** Makes a new record, owned by the caller, as KoColorTRCInit does. Returns null with KO_ERR_CREATE_OBJECT "ColorTRC". */
KO_API ColorTRC *KoColorTRCNew(uint64_t size, uint64_t depth);

/** Deletes the curves; the record stays, null is accepted. Returns KO_OK. */
KO_API int32_t KoColorTRCFree(ColorTRC *color_trc);

/** Deletes the curves and the record; null is accepted. Returns KO_OK. */
KO_API int32_t KoColorTRCDelete(ColorTRC *color_trc);

/** Returns the low 32 bits of the number of curves. */
KO_API uint32_t KoColorTRCGetDepth(const ColorTRC *color_trc);

/** Returns the number of entries of curve 0; 0 without one. */
KO_API uint64_t KoColorTRCGetSize(const ColorTRC *color_trc);

/** Returns a curve's entries, which stay the record's; null for a channel at or above depth. */
KO_API uint32_t *KoColorTRCGetArray(const ColorTRC *color_trc, uint32_t channel);

/** Copies entries into one curve, as KoTRCSetArray does. Returns KO_ERR_INVALID_ARGUMENT for a channel at or above depth. */
KO_API int32_t KoColorTRCSetArray(ColorTRC *color_trc, uint32_t channel, const uint32_t *source, uint64_t count);

/** Sets every curve to the identity. Returns KO_OK, or the first failure's status. */
KO_API int32_t KoColorTRCSetIdentity(ColorTRC *color_trc);

/** Returns one entry, the index unchecked; a channel at or above depth gives 0 and leaves KO_ERR_INVALID_ARGUMENT. */
KO_API uint32_t KoColorTRCGetValue(const ColorTRC *color_trc, uint32_t channel, uint32_t index);

/**
 * Resizes every curve as KoTRCResize does, up to the first failure, and then, in every case, saves the record to the file
 * "colortrc.txt" in the working directory, replacing one that exists there (see "colortrc.txt" in docs/compatibility.md).
 * Returns the status of the resizing.
 */
KO_API int32_t KoColorTRCResize(ColorTRC *color_trc, uint64_t size);

/**
 * Replaces each channel of each pixel by its curve's entry at the value, truncated toward zero and taken as the low 32 bits;
 * an index past the curve takes the last entry. A channel without a curve gets 0 and leaves KO_ERR_INVALID_ARGUMENT.
 *   image    in       three planes
 *   result   in/out   as in KoApplyFunctionTo1ColorImage
 * Returns what KoApplyFunctionTo1ColorImage returns.
 */
KO_API int32_t KoColorTRCApply(const ColorTRC *color_trc, ColorImage *image, ColorImage **result);

/**
 * Reads a text file "RGBLinear" into curves 0, 1 and 2. A size other than theirs replaces all curves, the same size overwrites
 * the entries; a failure keeps what was read so far. A line that does not fit is reported on the standard error stream.
 * Returns KO_OK, KO_ERR_INVALID_ARGUMENT for fewer than three curves, KO_ERR_OPEN_READ, KO_ERR_READ_LINE, or KO_ERR_ALLOC with
 * the record as it was.
 */
KO_API int32_t KoColorTRCLoad(ColorTRC *color_trc, const char *path);

/**
 * Writes curves 0, 1 and 2 as a text file "RGBLinear", one line an index.
 *   overwrite   in   0 refuses to replace a file
 * Returns KO_OK, KO_ERR_INVALID_ARGUMENT for fewer than three curves, KO_ERR_NULL_POINTER for a curve without entries,
 * KO_ERR_FILE_EXISTS or KO_ERR_OPEN_WRITE.
 */
KO_API int32_t KoColorTRCSave(const ColorTRC *color_trc, const char *path, int32_t overwrite);

KO_END_C

#endif
