/*
 * Local contrast enhancement: from a picture to a grid of tone curves that opens its shadows.
 *
 * A record of LocalContrastEnhancementImageFeatures serves one picture: New or Init, one call of
 * KoLocalContrastEnhancementGetNewTRCs or its Tune form, any reading of values, then Delete or Free. The picture is not
 * altered; the curves are applied with ko/tiletrcapply.h. One thread a record.
 *
 * Before curves are made, the picture is judged on a fixed grid of 8 by 8 blocks, whatever its size and the tile grid: does it
 * gain detail in the shadows, is it too noisy there, are its dark tones too uniform? Each configuration has a limit on the
 * number of blocks that may fail each measure. A caller names one, and the picture passes if it keeps within all limits of
 * that configuration or of one with a lower number. The measures run from the cheapest to the dearest, and only while some
 * configuration is left.
 *
 * The environment variable KOLCEFLAGS, read by Init, sets the background of the judgement for the whole process:
 * "BACKGROUND:BLF" (the bilateral filter), "BACKGROUND:GaussFast" (the recursive blur, the default) or "BACKGROUND:GaussBest"
 * (the finite blur), anywhere in its value; the first of them in this order counts.
 */
#ifndef KO_LOCALCONTRASTENHANCEMENT_H
#define KO_LOCALCONTRASTENHANCEMENT_H

#include "ko/base.h"
#include "ko/colorimage.h"
#include "ko/tiletrc.h"

KO_BEGIN_C

/** Limits of a configuration, or the values measured for a picture. */
typedef struct DecisionMechanismThreshold {
    float score;               /* highest score allowed; as a value, the caller's score, -1 for none */
    uint64_t noisyBlocks;      /* most noisy blocks allowed of 64; as a value, their count, all ones when not measured */
    uint64_t lowDetailBlocks;  /* the same for blocks low in detail */
    uint64_t lowEntropyBlocks; /* the same for blocks low in entropy */
} DecisionMechanismThreshold;

/** Settings, images and findings of the enhancement of one picture. */
typedef struct LocalContrastEnhancementImageFeatures {
    uint64_t trcSize;                           /* entries of every tile curve */
    uint64_t numBlocksX;                        /* tile columns of the result */
    uint64_t numBlocksY;                        /* tile rows of the result */
    ColorImage *yiqImage;                       /* owned: the picture in YIQ; null for a GRAY picture */
    RealImage *luminance;                       /* borrowed: plane 0 of yiqImage or of the caller's GRAY picture */
    RealImage *enhanced;                        /* owned: luminance after the gain curve */
    RealImage *chroma;                          /* borrowed: plane 2 of yiqImage; null for a GRAY picture */
    RealImage *background;                      /* owned: the smooth picture that drives the gain curve */
    float gainStrength;                         /* numerator of the curve between knee and limit */
    float maxGain;                              /* gain under the knee */
    float gainLimit;                            /* background level from which on the gain is 1 */
    float gainKnee;                             /* background level under which the gain is maxGain */
    float gainOffset;                           /* constant term of the curve between knee and limit */
    float detailThreshold;                      /* a block under this is low in detail */
    float noiseThreshold;                       /* a block over this is noisy */
    float entropyThreshold;                     /* a block under this is low in entropy */
    float *detailScores;                        /* owned: 64 floats, row by row; null until computed */
    float *noiseScores;                         /* owned: 64 floats; null until computed */
    float *entropyScores;                       /* owned: 64 floats; null until computed */
    DecisionMechanismThreshold dmValues;        /* what was measured for this picture */
    int32_t keepScoring;                        /* non-zero runs every measure even after the decision has fallen */
    int32_t proceed;                            /* non-zero while the enhancement is to go ahead */
    DecisionMechanismThreshold dmThresholds[5]; /* limits by configuration number; 1, 2 and 3 are filled and used */
    float cubeRootTable[1024];                  /* entry i is the cube root of i / 4 */
} LocalContrastEnhancementImageFeatures;

/** The configurations' names by number: "Disabled", "Conservative", "Default", "Risky", "Always". */
extern KO_API const char *const KoLceDecisionMechanismConfigName[5];

/** Makes a new record, owned by the caller. Returns null with KO_ERR_CREATE_OBJECT if memory is short. */
KO_API LocalContrastEnhancementImageFeatures *KoLocalContrastEnhancementNew(uint64_t trc_size, uint64_t blocks_x,
                                                                            uint64_t blocks_y);

/**
 * Fills a record that the caller owns; ended with KoLocalContrastEnhancementFree.
 *   trc_size             in   entries of every tile curve; byte pictures use 256
 *   blocks_x, blocks_y   in   the tile grid of the result
 * Returns KO_OK.
 */
KO_API int32_t KoLocalContrastEnhancementInit(LocalContrastEnhancementImageFeatures *features, uint64_t trc_size,
                                              uint64_t blocks_x, uint64_t blocks_y);

/**
 * Frees what the record owns; its pointers keep their values, so it needs a new Init before further use. Null is accepted.
 * Returns KO_OK.
 */
KO_API int32_t KoLocalContrastEnhancementFree(LocalContrastEnhancementImageFeatures *features);

/** Frees what the record owns and the record; null is accepted. Returns KO_OK. */
KO_API int32_t KoLocalContrastEnhancementDelete(LocalContrastEnhancementImageFeatures *features);

/** Return the tile columns and tile rows of the result. */
KO_API uint64_t KoLocalContrastEnhancementGetNumBlocksX(const LocalContrastEnhancementImageFeatures *features);
KO_API uint64_t KoLocalContrastEnhancementGetNumBlocksY(const LocalContrastEnhancementImageFeatures *features);

/** Returns a configuration's name; index must be 0 to 4, which nothing checks. Not to be freed. */
KO_API const char *KOLceFetchDMConfigName(int32_t index);

/**
 * Returns the live limits of configuration 1, 2 or 3, through which a caller may change them; they stay the record's.
 * Any other index gives null with KO_ERR_INDEX_OUT_OF_BOUNDS as an internal error, although 0 and 4 exist by name.
 */
KO_API DecisionMechanismThreshold *KoLocalContrastEnhancementGetDMThreshold(LocalContrastEnhancementImageFeatures *features,
                                                                            int32_t index);

/** Sets the limits of configuration 1, 2 or 3. Returns KO_OK, or KO_ERR_INDEX_OUT_OF_BOUNDS as the getter reports it. */
KO_API int32_t KoLocalContrastEnhancementSetDecisionMechanismThreshold(LocalContrastEnhancementImageFeatures *features,
                                                                       int32_t index,
                                                                       const DecisionMechanismThreshold *threshold);

/** Returns what was measured, to be read after the call that decided; it stays the record's. */
KO_API DecisionMechanismThreshold *KoLocalContrastEnhancementGetDMValues(LocalContrastEnhancementImageFeatures *features);

/**
 * Does what KoLocalContrastEnhancementGetNewTRCsTune does with 3.0, 40.0, 0.6275, 5 levels, score 0.4, configuration 2. The
 * score is over the stock limits of configurations 1 and 2, so that the answer is no, without any work on the picture, unless
 * the caller has raised the limits: see "An entry point that says no" in docs/compatibility.md.
 */
KO_API int32_t KoLocalContrastEnhancementGetNewTRCs(LocalContrastEnhancementImageFeatures *features, ColorImage *image,
                                                    TileTRC **tile_trc);

/**
 * Decides whether a picture is to be enhanced and, if so, computes its curves.
 *   image            in       the picture, not altered; a GRAY one must outlive the use of the record
 *   max_gain         in       gain in the deepest shadows
 *   strength         in       numerator of the gain curve between knee and limit
 *   limit_fraction   in       share of the full scale 255 from which on nothing changes
 *   blf_levels       in       levels of the bilateral filter, at least 1
 *   score            in       the caller's score for the decision, -1 for none
 *   configuration    in       0, or less, never and 4 always enhances, without a measure; 1 to 3 judge the picture by the
 *                             limits of all configurations up to this one
 *   tile_trc         in/out   address of a grid pointer: null there makes a new grid, owned by the caller; a grid that is
 *                             there is overwritten tile by tile, with the curve size that it declares
 * Returns KO_OK; the pointer at tile_trc unchanged then means that the decision was no. KO_ERR_INVALID_ARGUMENT for a number
 * above 4, a grid of no tiles or a picture without planes; the status of whatever could not be allocated otherwise, with no new
 * grid made.
 */
KO_API int32_t KoLocalContrastEnhancementGetNewTRCsTune(LocalContrastEnhancementImageFeatures *features, ColorImage *image,
                                                        float max_gain, float strength, float limit_fraction,
                                                        uint64_t blf_levels, float score, int32_t configuration,
                                                        TileTRC **tile_trc);

/**
 * Writes the three measures of all blocks as a table for a person to read: "DET" (detail gained), "NOI" (noise where the
 * picture is flat) and "ENT" (entropy of the dark tones); "---" has no measure behind it. stream stays the caller's.
 * Returns KO_OK; KO_ERR_NULL_POINTER, with nothing written, unless all three measures were taken.
 */
KO_API int32_t KoLocalContrastEnhancementPrintScores(const LocalContrastEnhancementImageFeatures *features, FILE *stream);

/**
 * Writes the measures to a file: one line each for "DET", "NOI" and "ENT", 64 numbers in row order with "," between them; a
 * measure that was not taken leaves its line empty.
 *   overwrite   in   0 refuses to replace a file
 * The text is complete when the call returns, and the stream stays open: see "Streams that stay open" in
 * docs/compatibility.md.
 * Returns KO_OK, KO_ERR_FILE_EXISTS or KO_ERR_OPEN_WRITE.
 */
KO_API int32_t KoLocalContrastEnhancementSaveScores(const LocalContrastEnhancementImageFeatures *features, const char *path,
                                                    int32_t overwrite);

KO_END_C

#endif
