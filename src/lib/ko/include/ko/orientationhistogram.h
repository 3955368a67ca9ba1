/*
 * OrientationHistogram: a square gray patch as a vector of fixed length, a soft histogram of gradient directions over a grid of
 * Gaussian cells, each value compressed by a logarithm. All tables that do not depend on the patch are made once. One object
 * serves one thread at a time: its buffers are overwritten by each computation.
 *
 * In the comments P is the patch size and B the border, in pixels; R the filter radius; n the number of bins; g the cells a
 * side.
 */
#ifndef KO_ORIENTATIONHISTOGRAM_H
#define KO_ORIENTATIONHISTOGRAM_H

#include "ko/base.h"
#include "ko/matrix_float.h"
#include "ko/matrix_integer.h"

KO_BEGIN_C

/** Labels of a patch. */
enum {
    KO_PATCH_UNDECIDED = 0, /* neither of the two */
    KO_PATCH_ACCEPTED = 1,  /* a red eye */
    KO_PATCH_REJECTED = 2   /* no red eye */
};

/** The patch's geometry. The caller owns it and keeps it while an object points to it. */
typedef struct PatchGeometry {
    int32_t padded_pixels; /* (P + B) squared: capacity of the gradient buffers */
    int32_t patch_size;    /* P */
    int32_t position_step; /* pixels; with n the values a line of the dump */
    int32_t scale_count;   /* scales at which a patch is taken: 1 */
    float scale_range;     /* ratio of the largest scale to the smallest: 1 */
    float scale_step;      /* ratio of neighbouring scales: 1 */
    int32_t position_count; /* rows of the object's position tables */
    int32_t patch_border;   /* B */
} PatchGeometry;

/** The layout of the histogram. The caller owns it and keeps it while an object points to it. */
typedef struct HistogramLayout {
    int32_t bin_count;       /* n: orientation bins */
    int32_t grid_size;       /* g: cells a side */
    int32_t cell_count;      /* g squared */
    int32_t feature_length;  /* cells times bins: values per channel */
    float gradient_sigma;    /* width of the gradient filter, fraction of P */
    float spare_value;       /* read from a configuration, not used */
    float orientation_sigma; /* width of an orientation bin, in bin widths */
    float cell_sigma;        /* width of a cell, in cell widths */
    float window_sigma;      /* width of the whole window, fraction of P */
    float weight_threshold;  /* weights at or under it are dropped */
} HistogramLayout;

/** A classified patch of a picture. */
typedef struct RedEyePatch {
    uint32_t blob;                                           /* number of the final blob */
    uint32_t x0, x1, y0, y1;                                 /* the window, pixels of the picture; x1 and y1 are outside */
    uint32_t blob_min_x, blob_max_x, blob_min_y, blob_max_y; /* the blob's box, pixels of the working image */
    uint32_t center_x, center_y;                             /* of the window */
    uint32_t size;                                           /* side of the crop: three times the longer side of the box */
    float *features;                                         /* owned: all enabled channels one behind the other */
    float *projected;                                        /* owned: as many floats; the first feature_length are used */
    float *feature_rows[3];                                  /* where a channel's part of features begins */
    float *projected_rows[3];                                /* the same for projected */
    float fe_score, be_score;                                /* of the two classifiers, 0 to 1 */
    int32_t label;                                           /* KO_PATCH_... */
} RedEyePatch;

/** Tables and buffers for patches of one geometry and layout. */
typedef struct OrientationHistogram {
    const PatchGeometry *geometry;  /* not owned */
    const HistogramLayout *layout;  /* not owned */
    int32_t patch_count;            /* patches of the last picture; kept by the red-eye correction, read by the dump */
    int32_t radius;                 /* R */
    float *gauss_kernel;            /* owned: 2R + 1 floats of sum 1 */
    float *deriv_kernel;            /* owned: 2R + 1 floats, their magnitudes of sum 1 */
    MatrixFloat spatial_weights;    /* owned: a row a cell, a column a pixel */
    MatrixInteger spatial_index;    /* owned: a row a cell: the pixels worth visiting, ended by -1 */
    MatrixFloat orientation_upper;  /* owned: a row a bin, 255 columns: weights of gradients with a positive y */
    MatrixFloat orientation_lower;  /* owned: the same for all others */
    float *logistic_table;          /* owned: 255 floats, used by nothing */
    float *cell_buffer;             /* owned: P squared floats, used by nothing */
    float *position_table_0;        /* owned: position_count floats, used by nothing */
    float *position_table_1;        /* owned: the same */
    float *position_table_2;        /* owned: the same */
    MatrixFloat histogram_rows;     /* owned: position_count rows of feature_length columns; row 0 serves */
    float *gradient_x;              /* owned: padded_pixels floats */
    float *gradient_y;              /* owned: padded_pixels floats */
    MatrixFloat orientation_planes; /* owned: a row a bin, padded_pixels columns */
    float *scratch;                 /* owned: padded_pixels floats */
} OrientationHistogram;

/**
 * Builds all tables in a record that the caller owns; patch_count is left to the caller.
 *   oh                 out   its old contents are not looked at; ended with KoOrientationHistogramFree, also after a failure
 *   geometry, layout   in    stay the caller's, and must stay as long as the object
 * Returns KO_OK; KO_ERR_INVALID_ARGUMENT for sizes that no table can have; or the status of what could not be allocated.
 */
KO_API int32_t KoOrientationHistogramInit(OrientationHistogram *oh, const PatchGeometry *geometry,
                                          const HistogramLayout *layout);

/** Makes a new object, owned by the caller. Returns null with KO_ERR_CREATE_OBJECT "OrientationHistogram". */
KO_API OrientationHistogram *KoOrientationHistogramNew(const PatchGeometry *geometry, const HistogramLayout *layout);

/** Frees all tables; null is accepted. Returns KO_OK. */
KO_API int32_t KoOrientationHistogramFree(OrientationHistogram *oh);

/** Frees the object and its record; null is accepted. Returns KO_OK. */
KO_API int32_t KoOrientationHistogramDelete(OrientationHistogram *oh);

/**
 * Computes the feature vector of a patch.
 *   side       in    side of the patch, pixels: P plus twice B
 *   pixels     in    side rows of side floats
 *   features   out   feature_length floats: the cells in grid order, and in each cell the bins
 * Returns KO_OK, or KO_ERR_INVALID_ARGUMENT for a side that leaves no pixel or does not fit the buffers.
 */
KO_API int32_t KoOrientationHistogramCompute(OrientationHistogram *oh, uint32_t side, const float *pixels, float *features);

/**
 * Writes the features of patches to six files, "DIRECTORYNAME_SUFFIX_..." with "feats_R.txt", "feats_G.txt", "feats_B.txt",
 * "prjFeats.txt", "coord.txt" and "feats.par", for study.
 *   patches   in   count patches; all three channels must have been enabled
 * Returns 0, or another number if a file could not be opened, which is reported on the standard error stream.
 */
KO_API int32_t KoOrientationHistogramDumpPatches(const OrientationHistogram *oh, const RedEyePatch *patches, uint32_t count,
                                                 const char *directory, const char *name, const char *suffix);

KO_END_C

#endif
