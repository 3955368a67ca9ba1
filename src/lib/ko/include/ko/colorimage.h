/*
 * ColorImage: a picture of several float planes of one size in a named colour space. Operations apply plane by plane or walk
 * the planes in step, by the rules of ko/matrix_float.h and ko/realimage.h.
 */
#ifndef KO_COLORIMAGE_H
#define KO_COLORIMAGE_H

#include "ko/base.h"
#include "ko/byteimageiterator.h"
#include "ko/colorspace.h"
#include "ko/realimage.h"

KO_BEGIN_C

/** A picture of planes. Its planes are freed with it. */
typedef struct ColorImage {
    uint64_t depth;      /* number of planes: KoColorSpaceGetDepth(color_space) from creation until Free */
    int32_t color_space; /* KO_COLORSPACE_... */
    RealImage *planes;   /* owned: depth planes; 0 is red or Y, 1 green or I, 2 blue or Q */
} ColorImage;

/** Position in a rectangle of a colour image, one line iterator a plane; with fewer than three planes only red is set. */
typedef struct ColorImageLineIterator {
    ColorImage *image;           /* not owned */
    RealImageLineIterator red;   /* position in plane 0 */
    RealImageLineIterator green; /* position in plane 1 */
    RealImageLineIterator blue;  /* position in plane 2 */
} ColorImageLineIterator;

/**
 * Makes an image in a record that the caller owns; pixels are not set.
 *   image           out   its old contents are not looked at; to be ended with KoColorImageFree, also after a failure
 *   width, height   in    pixels
 *   space           in    KO_COLORSPACE_...
 * Returns KO_OK, or KO_ERR_ALLOC.
 */
KO_API int32_t KoColorImageInit(ColorImage *image, uint32_t width, uint32_t height, int32_t space);

/** Makes a new image, owned by the caller. Returns null with KO_ERR_CREATE_OBJECT "ColorImage" if memory is short. */
KO_API ColorImage *KoColorImageNew(uint32_t width, uint32_t height, int32_t space);

/** Makes a new image, owned by the caller, from a picture's bytes, as KoColorImageFromByteArray does for all lines. */
KO_API ColorImage *KoColorImageNewFromByteArray(uint32_t width, uint32_t height, int32_t space, const uint8_t *bytes,
                                                int32_t layout);

/**
 * Makes a new image, owned by the caller, of source's size in another space, converted by KoColorImageFromColorImage.
 * Returns null if the creation or the conversion fails, and, without a status, for a source without planes.
 */
KO_API ColorImage *KoColorImageNewFromColorImage(int32_t space, const ColorImage *source);

/** Frees the planes and sets depth to 0; the record stays, null is accepted. Returns the status of the last plane's Free. */
KO_API int32_t KoColorImageFree(ColorImage *image);

/** Frees the image and its record; null is accepted. Returns 0. */
KO_API int32_t KoColorImageDelete(ColorImage *image);

/** Returns the number of planes. */
KO_API uint64_t KoColorImageGetDepth(const ColorImage *image);

/** Returns the colour space's number. */
KO_API int32_t KoColorImageGetColorSpace(const ColorImage *image);

/** Returns a plane, which stays the image's; null for a null image or an index not below depth. */
KO_API RealImage *KoColorImageGetImage(const ColorImage *image, uint32_t index);

/** Return width, height and their product in pixels; 0 for an image without planes. */
KO_API uint64_t KoColorImageGetWidth(const ColorImage *image);
KO_API uint64_t KoColorImageGetHeight(const ColorImage *image);
KO_API uint64_t KoColorImageGetSize(const ColorImage *image);

/** Sets all pixels of all planes to 0. */
KO_API void KoColorImageClear(ColorImage *image);

/** Fills plane i with values[i] for i below count, and the further planes with 0. */
KO_API void KoColorImageFill(ColorImage *image, const float *values, uint64_t count);

/** Writes a table per plane, as KoRealImagePrint does, with the title "title-0", "title-1", ...; no title lines for null. */
KO_API void KoColorImagePrint(const ColorImage *image, FILE *stream, uint32_t column_width, uint32_t decimals,
                              const char *title);

/**
 * Exchanges lines and columns of every plane, as KoRealImageTranspose does.
 *   result   in/out   address of an image pointer: null makes a new image, owned by the caller
 * Returns KO_OK, or the first failure's status.
 */
KO_API int32_t KoColorImageTranspose(const ColorImage *image, ColorImage **result);

/**
 * Fills lines from a picture's bytes, without scaling or conversion of colours.
 *   bytes        in   line_num lines of the image's width in the given layout, in one block
 *   line_start   in   first line; with three planes neither it nor line_num is checked
 *   line_num     in   lines; 0 converts exactly one line
 *   layout       in   KO_BYTE_LAYOUT_... of one block; an image of one plane ignores it
 * Returns KO_OK, or KO_ERR_INVALID_ARGUMENT for an image of neither one nor three planes, or for KO_BYTE_LAYOUT_3_PLANES or a
 * layout that does not exist.
 */
KO_API int32_t KoColorImageFromByteArray(ColorImage *image, const uint8_t *bytes, uint32_t line_start, uint32_t line_num,
                                         int32_t layout);

/**
 * Writes lines as bytes, with the arguments of KoColorImageFromByteArray. With three planes a value is truncated toward zero
 * and its low 8 bits are stored, with no limit at either end: -1.5 gives 255, 256.0 gives 0. With one plane the rule is that
 * of KoRealImageToByteArray, which sets negatives to 0. A NaN, or a value whose truncation does not fit 32 bits, gives 0.
 * Returns KO_OK always; what KoColorImageFromByteArray refuses is reported, and nothing is written.
 */
KO_API int32_t KoColorImageToByteArray(const ColorImage *image, uint8_t *bytes, uint32_t line_start, uint32_t line_num,
                                       int32_t layout);

/**
 * Fills lines from floats, interleaved pixel by pixel in plane order.
 *   line_start, line_num   in   lines; a line_num of 0 fills exactly one line
 * Returns KO_OK, or KO_ERR_INVALID_ARGUMENT for an image of neither one nor three planes.
 */
KO_API int32_t KoColorImageFromFloatArray(ColorImage *image, const float *floats, uint64_t line_start, uint64_t line_num);

/**
 * Converts a picture into the target's colour space, in single precision without limits or rounding.
 *   image    out   three planes of source's size; may be source itself
 * Returns KO_OK, or KO_ERR_INVALID_ARGUMENT unless both have three planes of one size. The spaces may be equal, and the
 * matrix is then all ones (ko/colorspace.h): each channel becomes the sum of the three.
 */
KO_API int32_t KoColorImageFromColorImage(ColorImage *image, const ColorImage *source);

/**
 * Reduces three planes to one by weights: the weighted sum where it is above 0, otherwise 0.
 *   result    out   address of an image pointer; always receives a new image, owned by the caller: what stood there is not
 *                   freed
 *   weights   in    three floats, or null for those of RGB to GRAY; the image's own space is not looked at
 * Returns KO_OK, KO_ERR_INVALID_ARGUMENT for an image of other than three planes or a null result, or the status of a failed
 * creation.
 */
KO_API int32_t KoColorImageToRealImage(const ColorImage *image, RealImage **result, const float *weights);

/** Sets the iterator before the first line of the whole image. Returns 0. */
KO_API int32_t KoColorImageLineIteratorInit(ColorImageLineIterator *iterator, ColorImage *image);

/** Sets the iterator before the first line of a rectangle, unchecked; a height of 0 yields one line. Returns 0. */
KO_API int32_t KoColorImageLineIteratorInitSubImage(ColorImageLineIterator *iterator, ColorImage *image, uint64_t x_start,
                                                    uint64_t y_start, uint64_t width, uint64_t height);

/** Makes a new iterator over the whole image. Returns null with KO_ERR_CREATE_OBJECT "ColorImageLineIterator". */
KO_API ColorImageLineIterator *KoColorImageLineIteratorNew(ColorImage *image);

/** Makes a new iterator over a rectangle, unchecked. Returns null with KO_ERR_CREATE_OBJECT "ColorImageLineIterator". */
KO_API ColorImageLineIterator *KoColorImageLineIteratorNewSubImage(ColorImage *image, uint64_t x_start, uint64_t y_start,
                                                                   uint64_t width, uint64_t height);

/** Returns 1 while a line is left, otherwise 0. */
KO_API int32_t KoColorImageLineIteratorHasNext(const ColorImageLineIterator *iterator);

/** Steps to the next line and stores the planes' line starts; with fewer than three planes only red is stored. */
KO_API void KoColorImageLineIteratorNext(ColorImageLineIterator *iterator, float **red, float **green, float **blue);

/** Returns one behind the last pixel of the current line of plane 0. */
KO_API float *KoColorImageLineIteratorRedLineEnd(const ColorImageLineIterator *iterator);

/** Returns the columns of the rectangle. */
KO_API uint64_t KoColorImageLineIteratorGetWidth(const ColorImageLineIterator *iterator);

/** Returns the lines of the rectangle. */
KO_API uint64_t KoColorImageLineIteratorGetHeight(const ColorImageLineIterator *iterator);

/** Does nothing, since an iterator owns nothing. Returns 0. */
KO_API int32_t KoColorImageLineIteratorFree(ColorImageLineIterator *iterator);

/** Frees an iterator of KoColorImageLineIteratorNew; null is accepted. Returns 0. */
KO_API int32_t KoColorImageLineIteratorDelete(ColorImageLineIterator *iterator);

KO_END_C

#endif
