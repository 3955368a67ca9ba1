/*
 * ByteImageIterator: one byte pointer per channel over a host's picture, with the steps to the next pixel and line, so that a
 * pixel loop need not know how the bytes lie. It lives in the caller's storage, owns nothing, allocates nothing and cannot
 * fail. Positions are not checked against the picture.
 */
#ifndef KO_BYTEIMAGEITERATOR_H
#define KO_BYTEIMAGEITERATOR_H

#include "ko/base.h"

KO_BEGIN_C

/** How the bytes of a three-channel picture lie. */
enum {
    KO_BYTE_LAYOUT_INTERLEAVED = 0,      /* pixel by pixel: R G B R G B */
    KO_BYTE_LAYOUT_LINE_INTERLEAVED = 1, /* a red line, a green line, a blue line in turn */
    KO_BYTE_LAYOUT_PLANAR = 2,           /* three planes behind one another in one block */
    KO_BYTE_LAYOUT_3_PLANES = 3          /* three planes in three blocks */
};

/** A position in a picture of bytes. The bytes stay the caller's. */
typedef struct ByteImageIterator {
    uint64_t width;           /* pixels per line */
    uint64_t height;          /* lines */
    int32_t layout;           /* KO_BYTE_LAYOUT_... */
    int32_t color_space;      /* KO_COLORSPACE_... */
    uint64_t pixel_increment; /* bytes from a pixel to the next */
    uint64_t line_increment;  /* bytes from a line to the next */
    uint8_t *red;             /* current pixel in channel 0 */
    uint8_t *green;           /* current pixel in channel 1, or null */
    uint8_t *blue;            /* current pixel in channel 2, or null */
    uint8_t *next_line_red;   /* where red goes at the next line */
    uint8_t *next_line_green; /* where green goes at the next line, or null */
    uint8_t *next_line_blue;  /* where blue goes at the next line, or null */
} ByteImageIterator;

/**
 * Sets the iterator to the first pixel of a picture.
 *   width, height     in   pixels and lines of the whole picture; the height places the planes of KO_BYTE_LAYOUT_PLANAR
 *   layout            in   KO_BYTE_LAYOUT_...; any other number leaves steps and pointers 0, not to be used
 *   color_space       in   KO_COLORSPACE_GRAY has one channel of one byte a pixel, whatever the layout; any other has three
 *   first             in   the picture's bytes, or those of channel 0
 *   second, third     in   the bytes of channels 1 and 2, read for KO_BYTE_LAYOUT_3_PLANES only
 */
KO_API void KoByteImageIteratorInit3Planes(ByteImageIterator *iterator, uint64_t width, uint64_t height, int32_t layout,
                                           int32_t color_space, uint8_t *first, uint8_t *second, uint8_t *third);

/** Does what KoByteImageIteratorInit3Planes does for a picture in one block. */
KO_API void KoByteImageIteratorInit(ByteImageIterator *iterator, uint64_t width, uint64_t height, int32_t layout,
                                    int32_t color_space, uint8_t *bytes);

/** Copies a position; the copy moves independently of its source. */
KO_API void KoByteImageIteratorCopy(ByteImageIterator *iterator, const ByteImageIterator *source);

/** Moves one pixel to the right; the next-line pointers stay. */
KO_API void KoByteImageIteratorNextPixel(ByteImageIterator *iterator);

/** Moves to the start of the next line, from any pixel of the current one. */
KO_API void KoByteImageIteratorNextLine(ByteImageIterator *iterator);

/** Moves to the start of the count-th line from the current one; 1 is the next line. */
KO_API void KoByteImageIteratorNextLines(ByteImageIterator *iterator, uint64_t count);

/** Moves count pixels to the right, the next-line pointers included. */
KO_API void KoByteImageIteratorNextTile(ByteImageIterator *iterator, uint64_t count);

/** Returns the end of a run of count pixels in channel 0. */
KO_API uint8_t *KoByteImageIteratorGetTileIteratorRedEnd(const ByteImageIterator *iterator, uint64_t count);

/** Return the byte at the channel's pointer; a GRAY picture has channel 0 alone. */
KO_API uint8_t KoByteImageIteratorGetRed(const ByteImageIterator *iterator);
KO_API uint8_t KoByteImageIteratorGetGreen(const ByteImageIterator *iterator);
KO_API uint8_t KoByteImageIteratorGetBlue(const ByteImageIterator *iterator);

/** Store a byte at the channel's pointer; a GRAY picture has channel 0 alone. */
KO_API void KoByteImageIteratorSetRed(ByteImageIterator *iterator, uint8_t value);
KO_API void KoByteImageIteratorSetGreen(ByteImageIterator *iterator, uint8_t value);
KO_API void KoByteImageIteratorSetBlue(ByteImageIterator *iterator, uint8_t value);

KO_END_C

#endif
