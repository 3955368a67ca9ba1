// RealImage: MatrixFloat under a picture's name (matrix.h), and the operations on pictures: crop, compare, transpose, pixel
// arithmetic, print.
#include "ko/realimage.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>

#include "lanes.h"
#include "matrix.h"
#include "realimage.h"

namespace ko {

namespace {

constexpr const char *catalog_texts[] = {"line_start(%ld) >= rimage->height (%ld)",
                                         "line_start(%ld) + line_num(%ld) >= rimage->height (%ld)"};
constexpr char object_name[] = "RealImage";
constexpr char iterator_name[] = "RealImageLineIterator";
constexpr auto owner = &RealImageLineIterator::image;

int compare_sizes(uint64_t a, uint64_t b) {
    const auto first = static_cast<int32_t>(a);
    const auto second = static_cast<int32_t>(b);
    return first > second ? 1 : first < second ? -1 : 0;
}

// 1 or -1 for two pixels that differ by more than the tolerance, otherwise 0; a NaN never does.
int compare_pixels(float a, float b, float tolerance) {
    const float difference = a - b;
    if (a == b || !(std::fabs(static_cast<double>(difference)) > static_cast<double>(tolerance))) {
        return 0;
    }
    return difference > 0.0f ? 1 : -1;
}

// Rows that are transposed at a time: a column of them fills a cache line of the result.
constexpr uint64_t transposed_rows = 16;

void transpose_pixels(const RealImage *image, RealImage *result, uint64_t x, uint64_t x_end, uint64_t y, uint64_t y_end) {
    for (; x < x_end; ++x) {
        for (uint64_t line = y; line < y_end; ++line) {
            result->rows[x][line] = image->rows[line][x];
        }
    }
}

// Row pointers are copied, since a store to the result could change them as far as the compiler knows.
void transpose_rows(const RealImage *image, RealImage *result, uint64_t y) {
    const float *in[transposed_rows];
    std::copy_n(image->rows + y, transposed_rows, in);
    uint64_t x = 0;
    for (; x + square_side <= image->width; x += square_side) {
        float *out[square_side];
        std::copy_n(result->rows + x, square_side, out);
        for (uint64_t line = 0; line < transposed_rows; line += square_side) {
            transpose_square([&](uint64_t i) { return in[line + i] + x; }, [&](uint64_t i) { return out[i] + y + line; });
        }
    }
    transpose_pixels(image, result, x, image->width, y, y + transposed_rows);
}

// The walk of the pixel arithmetic; the result may be a or b, since a pixel is read before it is written.
template <class Operation>
int32_t apply_to_images(const RealImage *a, const RealImage *b, RealImage **result, Operation operation) {
    const int32_t status = _KoRealImageApplyFunctionGetResult(a, result);
    if (status != KO_OK) {
        return status;
    }
    for (uint64_t y = 0; y < a->height; ++y) {
        const float *first = a->rows[y];
        const float *second = b->rows[y];
        float *out = (*result)->rows[y];
        const uint64_t width = (*result)->width;
        for (uint64_t x = 0; x < width; ++x) {
            out[x] = operation(first[x], second[x]);
        }
    }
    return KO_OK;
}

template <class Operation> int32_t apply_to_value(const RealImage *a, float value, RealImage **result, Operation operation) {
    return apply_to_images(a, a, result, [=](float pixel, float) { return operation(pixel, value); });
}

void print_ruler(uint64_t cells, FILE *stream, uint32_t column_width) {
    for (uint64_t cell = 0; cell < cells; ++cell) {
        for (uint32_t i = 0; i < column_width; ++i) {
            std::fputc('-', stream);
        }
        std::fputc(cell + 1 < cells ? '+' : '|', stream);
    }
    std::fputc('\n', stream);
}

} // namespace

const MessageCatalog KoRealImageCatalog = {2, catalog_texts};

void print_table(const RealImage *image, FILE *stream, uint32_t column_width, uint32_t decimals) {
    const int field = static_cast<int>(column_width);
    const int precision = static_cast<int>(std::min(decimals, column_width - 2));
    std::fprintf(stream, "%*s|", field, "#");
    for (size_t x = 1; x <= image->width; ++x) {
        std::fprintf(stream, "%*zu|", field, x);
    }
    std::fputc('\n', stream);
    print_ruler(image->width + 1, stream, column_width);
    for (size_t y = 0; y < image->height; ++y) {
        std::fprintf(stream, "%*zu|", field, y + 1);
        for (uint64_t x = 0; x < image->width; ++x) {
            std::fprintf(stream, "%*.*f|", field, precision, static_cast<double>(image->rows[y][x]));
        }
        std::fputc('\n', stream);
    }
    print_ruler(image->width + 1, stream, column_width);
}

} // namespace ko

using namespace ko;

int32_t KoRealImageInit(RealImage *image, uint64_t width, uint64_t height) { return init_matrix(image, width, height); }

RealImage *KoRealImageNew(uint64_t width, uint64_t height) { return new_matrix<RealImage>(width, height, object_name); }

int32_t KoRealImageFree(RealImage *image) { return free_matrix(image); }

int32_t KoRealImageDelete(RealImage *image) { return delete_matrix(image); }

uint64_t KoRealImageGetWidth(const RealImage *image) { return image->width; }

uint64_t KoRealImageGetHeight(const RealImage *image) { return image->height; }

uint64_t KoRealImageGetPadding(const RealImage *image) { return image->padding; }

uint64_t KoRealImageGetSize(const RealImage *image) { return image->width * image->height; }

float KoRealImageGetPixel(const RealImage *image, uint64_t x, uint64_t y) { return image->rows[y][x]; }

void KoRealImageSetPixel(RealImage *image, uint64_t x, uint64_t y, float value) { image->rows[y][x] = value; }

float *KoRealImageGetRow(const RealImage *image, uint64_t y) { return image->rows[y]; }

void KoRealImageSetRow(RealImage *image, uint64_t y, const float *source) { KoMatrixFloatSetRow(image, y, source); }

int32_t KoRealImageFromByteArray(RealImage *image, const uint8_t *bytes, uint64_t line_start, uint64_t line_num,
                                 uint64_t bytes_skip) {
    matrix_from_bytes(image, bytes, line_start, line_num, bytes_skip, &KoRealImageCatalog);
    return KO_OK;
}

int32_t KoRealImageToByteArray(const RealImage *image, uint8_t *bytes, uint64_t line_start, uint64_t line_num,
                               uint64_t bytes_skip) {
    matrix_to_bytes(image, bytes, line_start, line_num, bytes_skip, &KoRealImageCatalog);
    return KO_OK;
}

int32_t KoRealImageFromFloatArray(RealImage *image, const float *floats, uint64_t line_start, uint64_t line_num,
                                  uint64_t floats_skip) {
    matrix_from_floats(image, floats, line_start, line_num, floats_skip, &KoRealImageCatalog);
    return KO_OK;
}

RealImage *KoRealImageNewFromByteArray(uint64_t width, uint64_t height, const uint8_t *bytes, uint64_t bytes_skip) {
    return new_filled_matrix<RealImage>(
        width, height, [=](RealImage *image) { KoRealImageFromByteArray(image, bytes, 0, height, bytes_skip); });
}

RealImage *KoRealImageNewFromFloatArray(uint64_t width, uint64_t height, const float *floats) {
    return new_filled_matrix<RealImage>(width, height,
                                        [=](RealImage *image) { KoRealImageFromFloatArray(image, floats, 0, height, 0); });
}

int32_t KoRealImageGetMinMax(const RealImage *image, float *minimum, float *maximum) {
    return KoMatrixFloatGetMinMax(image, minimum, maximum);
}

float KoRealImageGetMin(const RealImage *image) { return KoMatrixFloatGetMin(image); }

float KoRealImageGetMax(const RealImage *image) { return KoMatrixFloatGetMax(image); }

void KoRealImageFill(RealImage *image, float value) { fill_matrix(image, value); }

void KoRealImageClear(RealImage *image) { fill_matrix(image, 0.0f); }

int32_t KoRealImageCrop(const RealImage *image, int32_t x, int32_t y, RealImage *result) {
    if (result == nullptr) {
        return KO_REPORT(KO_LEVEL_INTERNAL_ERROR, KO_ERR_NULL_POINTER);
    }
    // Widened with their sign and compared as unsigned; a negative corner lies outside whatever the sum wraps to.
    const uint64_t right = static_cast<uint64_t>(int64_t{x}) + result->width;
    const uint64_t bottom = static_cast<uint64_t>(int64_t{y}) + result->height;
    if (x < 0 || y < 0 || right > image->width || bottom > image->height) {
        return KO_REPORT(KO_LEVEL_INTERNAL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    for (uint64_t line = 0; line < result->height; ++line) {
        std::memcpy(result->rows[line], image->rows[static_cast<uint64_t>(y) + line] + x, result->width * sizeof(float));
    }
    return KO_OK;
}

int32_t KoRealImageCompareTolerance(const RealImage *a, const RealImage *b, float tolerance) {
    int order = compare_sizes(a->width, b->width);
    if (order == 0) {
        order = compare_sizes(a->height, b->height);
    }
    for (uint64_t y = 0; order == 0 && y < a->height; ++y) {
        for (uint64_t x = 0; order == 0 && x < a->width; ++x) {
            order = compare_pixels(a->rows[y][x], b->rows[y][x], tolerance);
        }
    }
    return order;
}

int32_t KoRealImageTranspose(const RealImage *image, RealImage **result) {
    if (*result == nullptr) {
        *result = KoRealImageNew(image->height, image->width);
        if (*result == nullptr) {
            return KoErrorGetLastError();
        }
    } else if ((*result)->width != image->height || (*result)->height != image->width) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    uint64_t y = 0;
    for (; y + transposed_rows <= image->height; y += transposed_rows) {
        transpose_rows(image, *result, y);
    }
    transpose_pixels(image, *result, 0, image->width, y, image->height);
    return KO_OK;
}

int32_t _KoRealImageApplyFunctionGetResult(const RealImage *image, RealImage **result) {
    if (result == nullptr || *result != nullptr) {
        return KO_OK;
    }
    *result = KoRealImageNew(image->width, image->height);
    return *result != nullptr ? static_cast<int32_t>(KO_OK) : KoErrorGetLastError();
}

int32_t KoRealImageAddImage(const RealImage *a, const RealImage *b, RealImage **result) {
    return apply_to_images(a, b, result, [](float p, float q) { return p + q; });
}

int32_t KoRealImageSubstractImage(const RealImage *a, const RealImage *b, RealImage **result) {
    return apply_to_images(a, b, result, [](float p, float q) { return p - q; });
}

int32_t KoRealImageDiffImage(const RealImage *a, const RealImage *b, RealImage **result) {
    return apply_to_images(a, b, result, [](float p, float q) { return std::fabs(p - q); });
}

int32_t KoRealImageMultiplyImage(const RealImage *a, const RealImage *b, RealImage **result) {
    return apply_to_images(a, b, result, [](float p, float q) { return p * q; });
}

int32_t KoRealImageDivideImage(const RealImage *a, const RealImage *b, RealImage **result) {
    return apply_to_images(a, b, result, [](float p, float q) { return p / q; });
}

int32_t KoRealImageAddValue(const RealImage *a, float value, RealImage **result) {
    return apply_to_value(a, value, result, [](float p, float v) { return p + v; });
}

int32_t KoRealImageSubstractValue(const RealImage *a, float value, RealImage **result) {
    return apply_to_value(a, value, result, [](float p, float v) { return p - v; });
}

int32_t KoRealImageMultiplyValue(const RealImage *a, float value, RealImage **result) {
    return apply_to_value(a, value, result, [](float p, float v) { return p * v; });
}

int32_t KoRealImageDivideValue(const RealImage *a, float value, RealImage **result) {
    return apply_to_value(a, value, result, [](float p, float v) { return p / v; });
}

void KoRealImagePrint(const RealImage *image, FILE *stream, uint32_t column_width, uint32_t decimals, const char *title) {
    if (title != nullptr) {
        std::fprintf(stream, "%s\n", title);
    }
    print_table(image, stream, column_width, decimals);
}

int32_t KoRealImageLineIteratorInit(RealImageLineIterator *iterator, RealImage *image) {
    return init_iterator<owner>(iterator, image, 0, 0, image->width, image->height);
}

int32_t KoRealImageLineIteratorInitSubImage(RealImageLineIterator *iterator, RealImage *image, uint64_t x_start,
                                            uint64_t y_start, uint64_t width, uint64_t height) {
    return init_iterator<owner>(iterator, image, x_start, y_start, width, height);
}

RealImageLineIterator *KoRealImageLineIteratorNew(RealImage *image) {
    return KoRealImageLineIteratorNewSubImage(image, 0, 0, image->width, image->height);
}

RealImageLineIterator *KoRealImageLineIteratorNewSubImage(RealImage *image, uint64_t x_start, uint64_t y_start, uint64_t width,
                                                          uint64_t height) {
    return new_iterator<owner, RealImageLineIterator>(image, x_start, y_start, width, height, iterator_name);
}

int32_t KoRealImageLineIteratorReset(RealImageLineIterator *iterator) {
    reset_iterator(iterator, iterator->image);
    return KO_OK;
}

int32_t KoRealImageLineIteratorFree(RealImageLineIterator *) { return KO_OK; }

int32_t KoRealImageLineIteratorDelete(RealImageLineIterator *iterator) {
    KoFree(iterator);
    return KO_OK;
}

int32_t KoRealImageLineIteratorHasNext(const RealImageLineIterator *iterator) { return has_next_line(iterator); }

float *KoRealImageLineIteratorNext(RealImageLineIterator *iterator) { return next_line(iterator); }

float *KoRealImageLineIteratorLineEnd(const RealImageLineIterator *iterator) { return iterator->line_end; }

uint64_t KoRealImageLineIteratorGetWidth(const RealImageLineIterator *iterator) { return iterator->width; }

uint64_t KoRealImageLineIteratorGetHeight(const RealImageLineIterator *iterator) { return iterator->height; }

uint64_t KoRealImageLineIteratorGetNextLineIncrement(const RealImageLineIterator *iterator) {
    return iterator->next_line_increment;
}
