/*
 * TRCCompress: the token stream of a tone curve, the differences between neighbouring entries in one to nine bytes a token. One
 * object serves all curves of a file: it receives each in turn. One thread an object.
 *
 * The stream keeps what fits it: a rising curve with steps below 4096. A falling step, or a higher one, comes back wrong, and
 * so does a curve whose step into the last entry but one lies outside 0 to 3 while the last step lies inside: it is written
 * one entry short: see "A last segment of one entry" in docs/compatibility.md.
 */
#ifndef KO_TRCCOMPRESS_H
#define KO_TRCCOMPRESS_H

#include "ko/base.h"

KO_BEGIN_C

/** Where an entry's run of small steps begins, and its length up to the entry; both 0 for an entry in no run. */
typedef struct TRCCompressRun {
    uint64_t start;  /* index of the run's first entry */
    uint64_t length; /* entries up to this one; at the run's first entry those of the whole run */
} TRCCompressRun;

/** A planned token: its kind (0 runs of one step, 1 one bit a step, 2 two bits a step, 4 a single step) and its entries. */
typedef struct TRCCompressToken {
    uint64_t method; /* 0, 1, 2 or 4 */
    uint64_t length; /* entries of the token */
} TRCCompressToken;

/** A writer and reader of token streams for curves of one size. */
typedef struct TRCCompress {
    uint32_t *array;                /* the curve to write or fill, not owned; null at first */
    uint64_t size;                  /* entries per curve */
    void *workspace;                /* owned: all tables, from the first save on until KoTRCCompressDelete */
    TRCCompressRun *rleRuns;        /* in workspace: runs of one step; size elements, with one more before the first */
    TRCCompressRun *oneBitRuns;     /* the same for runs of steps 0 and 1 */
    TRCCompressRun *twoBitRuns;     /* the same for runs of steps 0 to 3 */
    TRCCompressToken *forwardPlan;  /* in workspace: tokens at the index of their first entry, planned from the front */
    TRCCompressToken *backwardPlan; /* the same planned from the back */
} TRCCompress;

/**
 * Fills a record that the caller owns. A save gives it a workspace that KoTRCCompressFree does not release: a caller that
 * saves through such a record frees workspace with KoFree.
 * Returns KO_OK.
 */
KO_API int32_t KoTRCCompressInit(TRCCompress *compress, uint64_t size);

/** Makes a new object, owned by the caller. Returns null with KO_ERR_CREATE_OBJECT "KoTRCCompressFast". */
KO_API TRCCompress *KoTRCCompressNew(uint64_t size);

/** Does nothing. Returns KO_OK. */
KO_API int32_t KoTRCCompressFree(TRCCompress *compress);

/** Frees the workspace and the record; null is accepted. Returns KO_OK. */
KO_API int32_t KoTRCCompressDelete(TRCCompress *compress);

/** Names the curve to save or load: size entries, and for loading room for 63 more. It stays the caller's. Returns KO_OK. */
KO_API int32_t KoTRCCompressSetTRC(TRCCompress *compress, uint32_t *entries);

/**
 * Writes the curve to a stream, in the cheaper of a plan made from the front and one made from the back.
 *   stream   in   open for writing, binary; stays open
 *   path     in   for messages
 * Returns KO_OK, the last failing or successful write's status (KO_ERR_WRITE_FILE), KO_ERR_ALLOC with nothing written, or
 * KO_ERR_NULL_POINTER without a curve. A size of 0 writes nothing.
 */
KO_API int32_t KoTRCCompressSave(TRCCompress *compress, FILE *stream, const char *path);

/**
 * Reads tokens until size entries are filled. A token is decoded and stored in full, so the curve needs room for 63 entries
 * past size.
 *   stream   in   open for reading, binary; stays open, behind the last token
 *   path     in   for messages
 * Returns KO_OK, KO_ERR_READ_FILE when the stream ends early (entries read so far are stored), or KO_ERR_NULL_POINTER without
 * a curve.
 */
KO_API int32_t KoTRCCompressLoad(TRCCompress *compress, FILE *stream, const char *path);

/**
 * Write tokens of one kind for length entries from first on; NBits writes the single entry at index.
 *   entries   in   the whole curve: the step into entry 0 is from 0
 * RLE takes the step, 0 to 3, from the first entry; 1Bit sets a bit for any step but 0; 2Bits keeps a step's low two bits and
 * NBits its low twelve. Nothing checks the steps.
 * Return KO_OK, or KO_ERR_WRITE_FILE, which ends the writer.
 */
KO_API int32_t _KoTRCCompressSaveRLE(const uint32_t *entries, uint64_t first, uint64_t length, FILE *stream, const char *path);
KO_API int32_t _KoTRCCompressSave1Bit(const uint32_t *entries, uint64_t first, uint64_t length, FILE *stream, const char *path);
KO_API int32_t _KoTRCCompressSave2Bits(const uint32_t *entries, uint64_t first, uint64_t length, FILE *stream,
                                       const char *path);
KO_API int32_t _KoTRCCompressSaveNBits(const uint32_t *entries, uint64_t index, FILE *stream, const char *path);

KO_END_C

#endif
