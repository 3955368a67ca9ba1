/*
 * RealImage: one plane of 32-bit floats, normally on the scale 0 to 255 of the bytes it came from. It is a MatrixFloat under a
 * picture's name: same record, same layout, same walk (see ko/matrix_float.h for the rules), and each serves where the other
 * is asked for. The two differ only in the words of their reports.
 *
 * Result images come by the address of a pointer: null there makes a new image, owned by the caller; an image that is there is
 * written in place. Sizes are the caller's contract where a function does not say otherwise. Padding stays 0 through all
 * operations.
 */
#ifndef KO_REALIMAGE_H
#define KO_REALIMAGE_H

#include "ko/base.h"
#include "ko/matrix_float.h"

KO_BEGIN_C

/** An image is a matrix of pixels, line by line. */
typedef MatrixFloat RealImage;

/** Position in a rectangle of an image; lives in the caller's storage and owns nothing. */
typedef struct RealImageLineIterator {
    RealImage *image;             /* not owned */
    uint64_t x_start;             /* first column of the rectangle, pixels */
    uint64_t y_start;             /* first line of the rectangle */
    uint64_t width;               /* columns of the rectangle */
    uint64_t height;              /* lines of the rectangle */
    uint64_t next_line_increment; /* stride of the image, in floats */
    float *line;                  /* start of the current line; before the first Next one stride above the rectangle */
    float *line_end;              /* one behind the last pixel of the current line */
    float *end;                   /* one behind the last pixel of the rectangle */
} RealImageLineIterator;

/** Makes an image in a record that the caller owns, as KoMatrixFloatInit does. Returns KO_OK, or KO_ERR_ALLOC. */
KO_API int32_t KoRealImageInit(RealImage *image, uint64_t width, uint64_t height);

/** Makes a new image, owned by the caller; pixels are not set. Returns null with KO_ERR_CREATE_OBJECT "RealImage". */
KO_API RealImage *KoRealImageNew(uint64_t width, uint64_t height);

/** Frees what the record holds and nulls it; the record stays, null is accepted. Returns 0. */
KO_API int32_t KoRealImageFree(RealImage *image);

/** Frees the image and its record; null is accepted. Returns 0. */
KO_API int32_t KoRealImageDelete(RealImage *image);

/** Returns the pixels per line, without padding. */
KO_API uint64_t KoRealImageGetWidth(const RealImage *image);

/** Returns the lines. */
KO_API uint64_t KoRealImageGetHeight(const RealImage *image);

/** Returns the floats of padding behind each line. */
KO_API uint64_t KoRealImageGetPadding(const RealImage *image);

/** Returns width times height. */
KO_API uint64_t KoRealImageGetSize(const RealImage *image);

/** Returns pixel (x, y), unchecked. */
KO_API float KoRealImageGetPixel(const RealImage *image, uint64_t x, uint64_t y);

/** Sets pixel (x, y), unchecked. */
KO_API void KoRealImageSetPixel(RealImage *image, uint64_t x, uint64_t y, float value);

/** Returns the first pixel of line y, unchecked; the line stays the image's. */
KO_API float *KoRealImageGetRow(const RealImage *image, uint64_t y);

/** Copies width floats from source into line y, unchecked. */
KO_API void KoRealImageSetRow(RealImage *image, uint64_t y, const float *source);

/**
 * Fills lines from bytes, a byte's value becoming the float of the same value.
 *   bytes        in   line_num lines of width bytes, each followed by bytes_skip bytes that are passed over
 *   line_start   in   first line, below the height
 *   line_num     in   lines; 0 converts exactly one line, and lines past the last are left out with a warning
 * Returns KO_OK in every case; with a line_start past the last line nothing is converted.
 */
KO_API int32_t KoRealImageFromByteArray(RealImage *image, const uint8_t *bytes, uint64_t line_start, uint64_t line_num,
                                        uint64_t bytes_skip);

/**
 * Writes lines as bytes, with the arguments of KoRealImageFromByteArray. A value below 0 gives 0; any other is truncated and
 * its low 8 bits are stored, without an upper limit (256.0 gives 0). A NaN, or a value whose truncation does not fit 32
 * bits, gives 0. Returns KO_OK.
 */
KO_API int32_t KoRealImageToByteArray(const RealImage *image, uint8_t *bytes, uint64_t line_start, uint64_t line_num,
                                      uint64_t bytes_skip);

/** Fills lines from floats, with the arguments of KoRealImageFromByteArray and the skip in floats. Returns KO_OK. */
KO_API int32_t KoRealImageFromFloatArray(RealImage *image, const float *floats, uint64_t line_start, uint64_t line_num,
                                         uint64_t floats_skip);

/** Makes a new image, owned by the caller, and fills it as KoRealImageFromByteArray does. Returns null with KO_ERR_ALLOC. */
KO_API RealImage *KoRealImageNewFromByteArray(uint64_t width, uint64_t height, const uint8_t *bytes, uint64_t bytes_skip);

/** Makes a new image, owned by the caller, from height lines of width floats. Returns null with KO_ERR_ALLOC. */
KO_API RealImage *KoRealImageNewFromFloatArray(uint64_t width, uint64_t height, const float *floats);

/**
 * Stores the smallest and the largest pixel. A NaN at (0, 0) stays in both, any other NaN never counts; an image without lines
 * gives 0 twice. Returns 0.
 */
KO_API int32_t KoRealImageGetMinMax(const RealImage *image, float *minimum, float *maximum);

/** Returns the smallest pixel, as KoRealImageGetMinMax finds it. */
KO_API float KoRealImageGetMin(const RealImage *image);

/** Returns the largest pixel, as KoRealImageGetMinMax finds it. */
KO_API float KoRealImageGetMax(const RealImage *image);

/** Sets all pixels to value; padding stays 0. */
KO_API void KoRealImageFill(RealImage *image, float value);

/** Sets all pixels to 0. */
KO_API void KoRealImageClear(RealImage *image);

/**
 * Copies the rectangle of result's size at (x, y) into result.
 *   x, y     in    top left corner in image, pixels, at least 0
 *   result   out   its width and height say how much to copy; its padding is untouched
 * Returns KO_OK; KO_ERR_NULL_POINTER for a null result and KO_ERR_INVALID_ARGUMENT for a rectangle that leaves the image,
 * both as internal errors, which the default verbosity prints.
 */
KO_API int32_t KoRealImageCrop(const RealImage *image, int32_t x, int32_t y, RealImage *result);

/**
 * Orders two images: by width, then by height (both as signed 32-bit numbers), then by the first pixel in row order whose
 * difference exceeds tolerance. A difference equal to tolerance passes, and a NaN never decides.
 * Returns 1 if a is greater, -1 if it is smaller, otherwise 0.
 */
KO_API int32_t KoRealImageCompareTolerance(const RealImage *a, const RealImage *b, float tolerance);

/**
 * Exchanges lines and columns.
 *   result   in/out   address of an image pointer: null makes a new image; an image that is there must have the exchanged
 *                     size. Transposing an image into itself is not supported.
 * Returns KO_OK, KO_ERR_INVALID_ARGUMENT for a result of another size, or the status of a failed creation.
 */
KO_API int32_t KoRealImageTranspose(const RealImage *image, RealImage **result);

/**
 * The arithmetic of two images, pixel by pixel in single precision without limits: a + b, a - b, |a - b|, a * b, a / b.
 *   b        in       as large as a, which nothing checks
 *   result   in/out   address of an image pointer (not null): null there makes a new image; an image that is there is written
 *                     in place, has a's size, and may be a or b
 * Return KO_OK, or the status of a failed creation.
 */
KO_API int32_t KoRealImageAddImage(const RealImage *a, const RealImage *b, RealImage **result);
KO_API int32_t KoRealImageSubstractImage(const RealImage *a, const RealImage *b, RealImage **result);
KO_API int32_t KoRealImageDiffImage(const RealImage *a, const RealImage *b, RealImage **result);
KO_API int32_t KoRealImageMultiplyImage(const RealImage *a, const RealImage *b, RealImage **result);
KO_API int32_t KoRealImageDivideImage(const RealImage *a, const RealImage *b, RealImage **result);

/** The arithmetic of an image and a value: a + value, a - value, a * value, a / value; otherwise as for two images. */
KO_API int32_t KoRealImageAddValue(const RealImage *a, float value, RealImage **result);
KO_API int32_t KoRealImageSubstractValue(const RealImage *a, float value, RealImage **result);
KO_API int32_t KoRealImageMultiplyValue(const RealImage *a, float value, RealImage **result);
KO_API int32_t KoRealImageDivideValue(const RealImage *a, float value, RealImage **result);

/**
 * Writes the image as a text table for a person to read.
 *   stream         in   open for writing, stays the caller's
 *   column_width   in   characters a column
 *   decimals       in   digits behind the point, at the most column_width - 2
 *   title          in   a line above the table, or null
 */
KO_API void KoRealImagePrint(const RealImage *image, FILE *stream, uint32_t column_width, uint32_t decimals, const char *title);

/**
 * Makes an image of the given image's size at result if the pointer there is null; this is the rule for result images that
 * the library's functions share. A null result, or an image that is there, is left alone.
 * Returns KO_OK, or the status of a failed creation.
 */
KO_API int32_t _KoRealImageApplyFunctionGetResult(const RealImage *image, RealImage **result);

/** Sets the iterator before the first line of the whole image. Returns 0. */
KO_API int32_t KoRealImageLineIteratorInit(RealImageLineIterator *iterator, RealImage *image);

/** Sets the iterator before the first line of a rectangle, unchecked; a height of 0 yields one line. Returns 0. */
KO_API int32_t KoRealImageLineIteratorInitSubImage(RealImageLineIterator *iterator, RealImage *image, uint64_t x_start,
                                                   uint64_t y_start, uint64_t width, uint64_t height);

/** Makes a new iterator over the whole image. Returns null with KO_ERR_CREATE_OBJECT "RealImageLineIterator". */
KO_API RealImageLineIterator *KoRealImageLineIteratorNew(RealImage *image);

/** Makes a new iterator over a rectangle, unchecked. Returns null with KO_ERR_CREATE_OBJECT "RealImageLineIterator". */
KO_API RealImageLineIterator *KoRealImageLineIteratorNewSubImage(RealImage *image, uint64_t x_start, uint64_t y_start,
                                                                 uint64_t width, uint64_t height);

/** Sets the iterator back before its first line. Returns 0. */
KO_API int32_t KoRealImageLineIteratorReset(RealImageLineIterator *iterator);

/** Does nothing, since an iterator owns nothing. Returns 0. */
KO_API int32_t KoRealImageLineIteratorFree(RealImageLineIterator *iterator);

/** Frees an iterator of KoRealImageLineIteratorNew; null is accepted. Returns 0. */
KO_API int32_t KoRealImageLineIteratorDelete(RealImageLineIterator *iterator);

/** Returns 1 while a line is left, otherwise 0. */
KO_API int32_t KoRealImageLineIteratorHasNext(const RealImageLineIterator *iterator);

/** Steps to the next line and returns its first pixel in the rectangle; to be called only after HasNext gave 1. */
KO_API float *KoRealImageLineIteratorNext(RealImageLineIterator *iterator);

/** Returns one behind the last pixel of the current line. */
KO_API float *KoRealImageLineIteratorLineEnd(const RealImageLineIterator *iterator);

/** Returns the columns of the rectangle. */
KO_API uint64_t KoRealImageLineIteratorGetWidth(const RealImageLineIterator *iterator);

/** Returns the lines of the rectangle. */
KO_API uint64_t KoRealImageLineIteratorGetHeight(const RealImageLineIterator *iterator);

/** Returns the stride of the image, in floats. */
KO_API uint64_t KoRealImageLineIteratorGetNextLineIncrement(const RealImageLineIterator *iterator);

KO_END_C

#endif
