/*
 * Red-eye correction: finds red pupils in a picture and repairs them in place, without help.
 *
 * A RedEyeCorrection holds settings, paths and the trained model, and serves one picture after another; a RedEyeImageParam
 * holds all that belongs to one picture. A host makes the first, names the model (SetCategorizerConfig), enables channels (from
 * the first on), and for each picture makes the second, calls KoRedEyeCorrectionProcessImage, and afterwards may repeat the
 * repair or draw frames. Both belong to one thread at a time. The picture has three planes: red, green, blue.
 *
 * The fields are public: a host that wants other limits, or a log, writes them directly. The allocation functions hand on the
 * thread's last status, also an old one: clear it (KoStatusClear) before each picture. See "Functions that hand on an old
 * status" in docs/compatibility.md.
 */
#ifndef KO_REDEYECORRECTION_H
#define KO_REDEYECORRECTION_H

#include "ko/base.h"
#include "ko/colorimage.h"
#include "ko/concomp.h"
#include "ko/matrix_float.h"
#include "ko/orientationhistogram.h"

KO_BEGIN_C

/** The size of a path's field. */
enum {
    KO_REDEYE_PATH_SIZE = 260 /* characters, with the end of the text */
};

/** Settings, paths and model of the search for red eyes. */
typedef struct RedEyeCorrection {
    uint64_t max_image_size;          /* pixels of the working image; see KoRedEyeCorrectionCircularity */
    uint64_t min_blob_size;           /* smallest side of a blob, pixels of the picture */
    uint64_t min_blob_size_floor;     /* lower bound of that side on a reduced working image */
    int32_t blob_limits[3];           /* the third is the most blobs that are processed; the others are not used */
    uint32_t too_many_blobs;          /* set when a picture has more, never reset; see "Too many blobs" in
                                         docs/compatibility.md */
    uint32_t projection_header;       /* first word of the projection file, not used */
    int32_t projection_rows;          /* rows of the projection; set before the first reading it keeps the leading rows */
    int32_t projection_dimension;     /* length of the feature vector that the projection takes */
    float *projection_row_values;     /* owned: one a row, not used */
    float *projection_mean;           /* owned: the mean feature vector */
    MatrixFloat *projection_matrix;   /* owned: projection_dimension columns */
    uint32_t classifier_dimension;    /* weights of each classifier */
    float fe_bias;                    /* of the classifier "_RE_FE" */
    float *fe_weights;                /* owned */
    float be_bias;                    /* of the classifier "_RE_BE" */
    float *be_weights;                /* owned */
    PatchGeometry patch_geometry;     /* set when a configuration is read */
    HistogramLayout histogram_layout; /* set when a configuration is read */
    OrientationHistogram *orientation_histogram; /* owned: made when a configuration is read */
    float fe_accept;                             /* scores above both bounds accept */
    float fe_reject;                             /* a score under either bound rejects */
    float be_accept;                             /* the same bounds for the second classifier */
    float be_reject;                             /* the same */
    char config_path[KO_REDEYE_PATH_SIZE];     /* text configuration */
    char projection_path[KO_REDEYE_PATH_SIZE]; /* if empty, named by the configuration */
    char classifier_path[KO_REDEYE_PATH_SIZE]; /* stem of the two files; if empty, named by the configuration */
    uint32_t channel_enabled[3];               /* whether red, green and blue give features */
    int32_t channel_count;                     /* how many do */
    FILE *log_stream;                          /* not owned: progress lines go here; null for none */
} RedEyeCorrection;

/** What the stages have found out about one picture. */
typedef struct RedEyeImageParam {
    ColorImage *image;           /* not owned: the picture */
    ColorImage *working_image;   /* the picture or a smaller copy; owned if it is a copy */
    float scale;                 /* factor between the two; 0 if there is no copy */
    RealImage *reddish_map;      /* owned: where it is reddish */
    RealImage *red_lum_map;      /* owned: where it is red and light; after the location of blobs the map of the repair */
    RealImage *col_map;          /* owned: their product, and then where that is round */
    float map_max;               /* maximum of the product, and then of the map of the repair */
    uint64_t min_blob_size;      /* smallest side of a blob, pixels of the working image */
    uint64_t max_blob_size;      /* largest side */
    BlobInfo *blob_info;         /* owned, from here on all tables: components of the first labelling by root */
    int32_t *labels;             /* a label a working pixel */
    uint32_t *label_table;       /* label to root; 0 once rejected */
    uint32_t label_count;        /* provisional labels of the first labelling */
    BlobInfo *local_blob_info;   /* components of a window by root */
    int32_t *local_labels;       /* a label a pixel of the window */
    uint32_t *local_label_table; /* label to root in the window */
    uint32_t local_label_count;  /* provisional labels of the window */
    uint32_t *root_done;         /* a flag a root of the first labelling */
    uint64_t *overlap;           /* a counter a root of the window's */
    int32_t blob_count;          /* final blobs */
    uint32_t *blob_mask;         /* an entry a working pixel: 0, or the number of its final blob */
    BlobInfo *final_blobs;       /* by number, from 1 on */
    uint64_t *x_starts;          /* of each working column: its first column in the picture */
    uint32_t *x_counts;          /* of each working column: the columns that it has in the picture */
    uint64_t *y_starts;          /* of each working row: its first row in the picture */
    uint32_t *y_counts;          /* of each working row: the rows that it has in the picture */
    RedEyePatch *patches;        /* a slot a final blob, filled from 0 */
    uint64_t accepted_count;     /* patches that were accepted */
    uint64_t rejected_count;     /* patches that were rejected */
    uint64_t undecided_count;    /* patches that are neither */
} RedEyeImageParam;

/** Writes the initial settings into a record that the caller owns, and touches nothing else. Returns KO_OK. */
KO_API int32_t KoRedEyeCorrectionInit(RedEyeCorrection *rec);

/** Makes a new record, owned by the caller. Returns null with KO_ERR_CREATE_OBJECT "RedEyeCorrection". */
KO_API RedEyeCorrection *KoRedEyeCorrectionNew(void);

/** Frees the model; the pointers keep their values. Null is accepted. Returns KO_OK. */
KO_API int32_t KoRedEyeCorrectionFree(RedEyeCorrection *rec);

/** Frees the model and the record; null is accepted. Returns KO_OK. */
KO_API int32_t KoRedEyeCorrectionDelete(RedEyeCorrection *rec);

/** Says which channels give features, from red on: red, red and green, or all three. Returns KO_OK. */
KO_API int32_t KoRedEyeCorrectionEnableHistogramChannel(RedEyeCorrection *rec, int32_t red, int32_t green, int32_t blue);

/**
 * Names the model's files; nothing is read yet. Null empties a path.
 * Returns KO_OK, or KO_ERR_INVALID_ARGUMENT for a path of more than 259 characters, whose field stays as it was.
 */
KO_API int32_t KoRedEyeCorrectionSetCategorizerConfig(RedEyeCorrection *rec, const char *config, const char *projection,
                                                      const char *classifier);

/**
 * Finds, judges and repairs the red eyes of a picture.
 *   param   out      its old contents are forgotten, not released; ended with KoRedEyeImageParamFree or Delete in any case
 *   image   in/out   three planes; must outlive param
 * Returns KO_OK, also for a picture with too many blobs, which is left as it was; or the status of the step that failed.
 */
KO_API int32_t KoRedEyeCorrectionProcessImage(RedEyeCorrection *rec, RedEyeImageParam *param, ColorImage *image);

/**
 * Repeats the repair alone, from what param holds.
 *   full_strength   in       non-zero repairs every patch entirely, whatever its label
 *   image           in/out   the picture, or one of the same proportions
 * Returns KO_OK (also before a model was read, with nothing done), or the status of tables that could not be allocated.
 */
KO_API int32_t KoRedEyeCorrectionApply(RedEyeCorrection *rec, RedEyeImageParam *param, int32_t full_strength,
                                       ColorImage *image);

/**
 * The stages of KoRedEyeCorrectionProcessImage, in their order after KoRedEyeImageParamInit; each returns a status.
 *
 * Downsample chooses the working image: the picture, or a copy of about max_image_size pixels.
 * ReddishProbability and RedLumProbability make the two colour maps; a normalize other than 0 scales them to a maximum of 1.
 * ColProbability makes their normalised product. A picture without red gives maps of NaN, and no blob comes of them.
 * Circularity leaves what is round and small; max_image_size must be 500001 to 1000000, 200001 to 250000 or 111112 to 125000,
 * otherwise KO_ERR_INVALID_ARGUMENT.
 * LocateBlobs makes the list of blobs, and sets too_many_blobs if there are too many.
 * CategorizeBlobs reads the model and labels a patch for each blob; one too near the picture's edge has no patch.
 */
KO_API int32_t KoRedEyeCorrectionDownsample(RedEyeCorrection *rec, RedEyeImageParam *param);
KO_API int32_t KoRedEyeCorrectionReddishProbability(RedEyeCorrection *rec, RedEyeImageParam *param, int32_t normalize);
KO_API int32_t KoRedEyeCorrectionRedLumProbability(RedEyeCorrection *rec, RedEyeImageParam *param, int32_t normalize);
KO_API int32_t KoRedEyeCorrectionColProbability(RedEyeCorrection *rec, RedEyeImageParam *param);
KO_API int32_t KoRedEyeCorrectionCircularity(RedEyeCorrection *rec, RedEyeImageParam *param);
KO_API int32_t KoRedEyeCorrectionLocateBlobs(RedEyeCorrection *rec, RedEyeImageParam *param);
KO_API int32_t KoRedEyeCorrectionCategorizeBlobs(RedEyeCorrection *rec, RedEyeImageParam *param);

/**
 * Draws a frame around each patch.
 *   thickness      in   pixels, inward
 *   colours        in   colour_count packed colours by label: red in bits 16 to 23, green in 8 to 15, blue in 0 to 7
 *   colour_count   in   a patch whose label is not below it gets no frame
 * Returns KO_OK.
 */
KO_API int32_t KoRedEyeCorrectionAddPatchBoundingBoxes(RedEyeCorrection *rec, RedEyeImageParam *param, ColorImage *image,
                                                       uint64_t thickness, const int32_t *colours, uint32_t colour_count);

/** Sets the picture and clears all else, in a record that the caller owns. Returns KO_OK. */
KO_API int32_t KoRedEyeImageParamInit(RedEyeImageParam *param, ColorImage *image);

/** Makes a new record, owned by the caller. Returns null with KO_ERR_CREATE_OBJECT "RedEyeImageParam". */
KO_API RedEyeImageParam *KoRedEyeImageParamNew(ColorImage *image);

/** Frees everything but the picture and the record; null is accepted. Returns KO_OK. */
KO_API int32_t KoRedEyeImageParamFree(RedEyeImageParam *param);

/** Frees everything but the picture; null is accepted. Returns KO_OK. */
KO_API int32_t KoRedEyeImageParamDelete(RedEyeImageParam *param);

/**
 * Allocate the tables of the stages; what a failed call got stays in the record.
 *   pixels                     in   of the working image
 *   labels                     in   most provisional labels of a labelling
 *   blobs                      in   provisional labels of the first labelling
 *   channels, feature_length   in   floats of a feature vector
 * Return the thread's last status; KoRedEyeImageParamAllocateCls that of its first failure.
 */
KO_API int32_t KoRedEyeImageParamAllocateMatrix(RedEyeImageParam *param, uint64_t pixels, uint64_t labels);
KO_API int32_t KoRedEyeImageParamAllocateSubMatrix(RedEyeImageParam *param, uint64_t pixels, uint64_t labels, uint64_t blobs);
KO_API int32_t KoRedEyeImageParamAllocateCls(RedEyeImageParam *param, uint32_t channels, uint32_t feature_length);
KO_API int32_t _KoRedEyeImageParamAllocatePatchTab(RedEyeImageParam *param, uint32_t channels, uint32_t feature_length);

/** Free and null the tables that serve the location of blobs alone. Return KO_OK. */
KO_API int32_t KoRedEyeImageParamFreeMatrix(RedEyeImageParam *param);
KO_API int32_t KoRedEyeImageParamFreeSubMatrix(RedEyeImageParam *param);

/**
 * Divides large cells among small ones, in blocks that differ by at most one and never leave the large ones.
 *   counts, starts   out   small elements each: the cells of a block, and where it begins
 * Returns KO_OK.
 */
KO_API int32_t _KoGetUpsampleD(uint64_t small, uint64_t large, uint32_t *counts, uint64_t *starts);

KO_END_C

#endif
