// ByteImageIterator: the byte layouts, resolved once into pointers and steps; after Init only GRAY is told apart.
#include "ko/byteimageiterator.h"

#include <cstddef>

#include "ko/colorspace.h"

namespace {

bool is_gray(const ByteImageIterator *iterator) { return iterator->color_space == KO_COLORSPACE_GRAY; }

void place(ByteImageIterator *iterator, uint64_t pixel_increment, uint64_t line_increment, uint8_t *red, uint8_t *green,
           uint8_t *blue) {
    iterator->pixel_increment = pixel_increment;
    iterator->line_increment = line_increment;
    iterator->red = red;
    iterator->green = green;
    iterator->blue = blue;
    iterator->next_line_red = red + line_increment;
    iterator->next_line_green = green != nullptr ? green + line_increment : nullptr;
    iterator->next_line_blue = blue != nullptr ? blue + line_increment : nullptr;
}

// Moves one channel to its next line and lines - 1 lines further.
void skip_lines(const ByteImageIterator *iterator, uint64_t lines, uint8_t **current, uint8_t **next) {
    const auto step = static_cast<ptrdiff_t>(iterator->line_increment);
    *current = *next + (static_cast<ptrdiff_t>(lines) - 1) * step;
    *next = *current + step;
}

} // namespace

void KoByteImageIteratorInit3Planes(ByteImageIterator *iterator, uint64_t width, uint64_t height, int32_t layout,
                                    int32_t color_space, uint8_t *first, uint8_t *second, uint8_t *third) {
    *iterator = {};
    iterator->width = width;
    iterator->height = height;
    iterator->layout = layout;
    iterator->color_space = color_space;
    if (is_gray(iterator)) {
        place(iterator, 1, width, first, nullptr, nullptr);
        return;
    }
    switch (layout) {
    case KO_BYTE_LAYOUT_INTERLEAVED:
        place(iterator, 3, 3 * width, first, first + 1, first + 2);
        break;
    case KO_BYTE_LAYOUT_LINE_INTERLEAVED:
        place(iterator, 1, 3 * width, first, first + width, first + 2 * width);
        break;
    case KO_BYTE_LAYOUT_PLANAR:
        place(iterator, 1, width, first, first + width * height, first + 2 * width * height);
        break;
    case KO_BYTE_LAYOUT_3_PLANES:
        place(iterator, 1, width, first, second, third);
        break;
    default:
        break;
    }
}

void KoByteImageIteratorInit(ByteImageIterator *iterator, uint64_t width, uint64_t height, int32_t layout, int32_t color_space,
                             uint8_t *bytes) {
    KoByteImageIteratorInit3Planes(iterator, width, height, layout, color_space, bytes, nullptr, nullptr);
}

void KoByteImageIteratorCopy(ByteImageIterator *iterator, const ByteImageIterator *source) { *iterator = *source; }

void KoByteImageIteratorNextPixel(ByteImageIterator *iterator) {
    iterator->red += iterator->pixel_increment;
    if (!is_gray(iterator)) {
        iterator->green += iterator->pixel_increment;
        iterator->blue += iterator->pixel_increment;
    }
}

void KoByteImageIteratorNextLine(ByteImageIterator *iterator) { KoByteImageIteratorNextLines(iterator, 1); }

void KoByteImageIteratorNextLines(ByteImageIterator *iterator, uint64_t count) {
    skip_lines(iterator, count, &iterator->red, &iterator->next_line_red);
    if (!is_gray(iterator)) {
        skip_lines(iterator, count, &iterator->green, &iterator->next_line_green);
        skip_lines(iterator, count, &iterator->blue, &iterator->next_line_blue);
    }
}

void KoByteImageIteratorNextTile(ByteImageIterator *iterator, uint64_t count) {
    const uint64_t step = count * iterator->pixel_increment;
    iterator->red += step;
    iterator->next_line_red += step;
    if (!is_gray(iterator)) {
        iterator->green += step;
        iterator->blue += step;
        iterator->next_line_green += step;
        iterator->next_line_blue += step;
    }
}

uint8_t *KoByteImageIteratorGetTileIteratorRedEnd(const ByteImageIterator *iterator, uint64_t count) {
    return iterator->red + count * iterator->pixel_increment;
}

uint8_t KoByteImageIteratorGetRed(const ByteImageIterator *iterator) { return *iterator->red; }

uint8_t KoByteImageIteratorGetGreen(const ByteImageIterator *iterator) { return *iterator->green; }

uint8_t KoByteImageIteratorGetBlue(const ByteImageIterator *iterator) { return *iterator->blue; }

void KoByteImageIteratorSetRed(ByteImageIterator *iterator, uint8_t value) { *iterator->red = value; }

void KoByteImageIteratorSetGreen(ByteImageIterator *iterator, uint8_t value) { *iterator->green = value; }

void KoByteImageIteratorSetBlue(ByteImageIterator *iterator, uint8_t value) { *iterator->blue = value; }
