/*
 * Image files: a table of load and save functions per file format, the four calls that choose among them, and the text format,
 * which is the library's own. Everything else comes from outside, through the slots: a plug-in or the host sets them.
 *
 * The tables are process-wide and have no lock: set them at the start and read them afterwards. KoInit sets the text format's
 * slots and the last KoRelease clears them; all other slots stay as they were set.
 */
#ifndef KO_IMAGEFORMAT_H
#define KO_IMAGEFORMAT_H

#include "ko/base.h"
#include "ko/colorimage.h"
#include "ko/realimage.h"

KO_BEGIN_C

/** Format types, with the keywords that name them in any case; a type is also an index of the slot tables. */
enum {
    KO_IMAGE_FORMAT_UNKNOWN = 0, /* no result */
    KO_IMAGE_FORMAT_TEXT = 1,    /* "txt" */
    KO_IMAGE_FORMAT_PNG = 2,     /* "png" */
    KO_IMAGE_FORMAT_JPEG = 3     /* "jpg", "jpeg" */
};

/**
 * Functions of a slot. A load function fills the image that it is given, replacing what it held; what the numbers mean is the
 * business of the function. Return a status.
 */
typedef int32_t (*KoRealImageLoadFunction)(RealImage *image, const char *path);
typedef int32_t (*KoRealImageSaveFunction)(const RealImage *image, const char *path, float scale, float save_option);
typedef int32_t (*KoColorImageLoadFunction)(ColorImage *image, const char *path, double gamma_a, double gamma_b);
typedef int32_t (*KoColorImageSaveFunction)(const ColorImage *image, const char *path, float scale, float save_option);

/** Returns the type that a keyword names; 0 for null, and 0 with KO_ERR_FORMAT_UNSUPPORTED for any other text. */
KO_API int32_t KoImageFormatNameToType(const char *name);

/**
 * Returns the type that the text behind the path's last "." names; 0 for null or a path without a ".", and 0 with
 * KO_ERR_FORMAT_UNSUPPORTED otherwise. A "." in a folder's name counts like any other.
 */
KO_API int32_t KoImageFormatFromFilename(const char *path);

/** Returns "Unknown", "Text", "PNG" or "JPEG"; "Unknown" from 4 on. The type must not be negative, which nothing checks. */
KO_API const char *KoImageFormatTypeToName(int32_t type);

/**
 * Set or return the function of a slot; null empties it.
 *   type   in   0 to 3, not negative, which nothing checks; slot 0 is never used
 * Set returns KO_OK always, Get the function or null. A type of 4 or more leaves KO_ERR_INDEX_OUT_OF_BOUNDS as an internal
 * error and sets nothing.
 */
KO_API int32_t KoRealImageSetLoadFunction(int32_t type, KoRealImageLoadFunction function);
KO_API KoRealImageLoadFunction KoRealImageGetLoadFunction(int32_t type);
KO_API int32_t KoRealImageSetSaveFunction(int32_t type, KoRealImageSaveFunction function);
KO_API KoRealImageSaveFunction KoRealImageGetSaveFunction(int32_t type);
KO_API int32_t KoColorImageSetLoadFunction(int32_t type, KoColorImageLoadFunction function);
KO_API KoColorImageLoadFunction KoColorImageGetLoadFunction(int32_t type);
KO_API int32_t KoColorImageSetSaveFunction(int32_t type, KoColorImageSaveFunction function);
KO_API KoColorImageSaveFunction KoColorImageGetSaveFunction(int32_t type);

/**
 * Load or save an image through the slot of its format.
 *   format               in   keyword, or null for the path's extension; a keyword always beats the extension
 *   gamma_a, gamma_b     in   for the slot's function; KoColorImageLoad hands it 0 and 0
 *   scale, save_option   in   for the slot's function; the text format multiplies by scale
 * Return what the slot's function returns, KO_ERR_UNKNOWN_FORMAT for a format that is not known, or KO_ERR_FORMAT_UNSUPPORTED
 * for an empty slot. KoColorImageSave hands plane 0 of a GRAY picture to KoRealImageSave instead, and is
 * KO_ERR_INVALID_ARGUMENT for one without planes.
 */
KO_API int32_t KoRealImageLoad(RealImage *image, const char *path, const char *format);
KO_API int32_t KoRealImageSave(const RealImage *image, const char *path, const char *format, float scale, float save_option);
KO_API int32_t KoColorImageLoad(ColorImage *image, const char *path, const char *format);
KO_API int32_t KoColorImageLoadSetGamma(ColorImage *image, const char *path, const char *format, double gamma_a,
                                        double gamma_b);
KO_API int32_t KoColorImageSave(const ColorImage *image, const char *path, const char *format, float scale, float save_option);

/**
 * Reads a text picture: numbers, each with one character behind it; a line feed there ends a row, and the first row sets the
 * width. Later rows may be of other lengths as long as the total fits; a last number without a character behind it is lost.
 *   image   in/out   a live image, replaced by the picture; a failure leaves it as it was
 * Returns KO_OK (also for a file that does not begin with a number: 0 by 0 pixels), KO_ERR_OPEN_READ, KO_ERR_READ_FILE if the
 * numbers do not fill the rows, or KO_ERR_ALLOC. The stream stays open, whatever the result: see "Streams that stay open" in
 * docs/compatibility.md.
 */
KO_API int32_t KoRealImageLoadTXT(RealImage *image, const char *path);

/**
 * Writes a text picture, replacing a file of that name: each value times scale, with six decimals, "," between the values of a
 * row and a line feed behind it. A full disk goes unnoticed. The text is complete when the call returns, and the stream stays
 * open: see "Streams that stay open" in docs/compatibility.md. save_option is not used.
 * Returns KO_OK or KO_ERR_OPEN_WRITE.
 */
KO_API int32_t KoRealImageSaveTXT(const RealImage *image, const char *path, float scale, float save_option);

/**
 * Reads three text pictures, path with ".R", ".G" and ".B" behind it, into the first three planes; the colour space stays. If
 * there is no ".R" file, the image becomes a GRAY one and the path itself is read into its plane. The gamma values are not
 * used. Returns KO_OK, the first failing plane's status (the planes before it are loaded), KO_ERR_INVALID_ARGUMENT for an image
 * of fewer than three planes, or KO_ERR_READ_FILE if the files differ in size. However the call ends, planes of another size
 * than plane 0 are replaced by cleared ones of its size.
 */
KO_API int32_t KoColorImageLoadTXT(ColorImage *image, const char *path, double gamma_a, double gamma_b);

/**
 * Writes the first three planes as text pictures, path with ".R", ".G" and ".B" behind it, whatever the colour space.
 * Returns KO_OK, the first failing plane's status, or KO_ERR_INVALID_ARGUMENT for an image of fewer than three planes.
 */
KO_API int32_t KoColorImageSaveTXT(const ColorImage *image, const char *path, float scale, float save_option);

KO_END_C

#endif
