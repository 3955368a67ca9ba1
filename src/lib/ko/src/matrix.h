// The one layout of pixel data, the walk over its rows, and everything that MatrixFloat, MatrixInteger and RealImage share.
//
// The rule to know before changing anything here: a rectangle of height 0 is walked over one row, a matrix without rows over
// none, and nothing but creation ever touches the padding.
#ifndef KO_SRC_MATRIX_H
#define KO_SRC_MATRIX_H

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "alloc.h"
#include "convert.h"
#include "ko/error.h"
#include "ko/realimage.h"
#include "report.h"

namespace ko {

extern const MessageCatalog KoMatrixFloatCatalog;
extern const MessageCatalog KoRealImageCatalog;

template <class Matrix> using Element = std::remove_pointer_t<decltype(Matrix::buffer)>;

// Elements from a row to the next.
template <class Matrix> uint64_t stride(const Matrix *matrix) { return matrix->width + matrix->padding; }

// Rows of a walk over height rows.
template <class Matrix> uint64_t rows_walked(const Matrix *matrix, uint64_t height) {
    return matrix->height == 0 ? 0 : height == 0 ? 1 : height;
}

// 4 to 7 elements behind a row make the stride a multiple of 4.
constexpr uint64_t padding_for(uint64_t width) { return width % 4 == 0 ? 4 : 8 - width % 4; }

template <class Matrix> void place_rows(Matrix *matrix) {
    auto *row = align_16<Element<Matrix>>(matrix->buffer);
    for (uint64_t y = 0; y < matrix->height; ++y, row += stride(matrix)) {
        matrix->rows[y] = row;
        std::memset(row + matrix->width, 0, matrix->padding * sizeof(*row));
    }
}

// Whatever the outcome, the record can be freed afterwards.
template <class Matrix> [[nodiscard]] int32_t init_matrix(Matrix *matrix, uint64_t width, uint64_t height) {
    *matrix = {width, height, padding_for(width), nullptr, nullptr};
    if (height == 0) {
        return KO_OK;
    }
    // A width that would wrap the stride fails as the largest request there is.
    const uint64_t elements = width > largest_block ? largest_block : stride(matrix);
    matrix->rows = allocate<Element<Matrix> *>(height);
    matrix->buffer = static_cast<Element<Matrix> *>(allocate_bytes(height, elements * 8, 128));
    if (matrix->rows == nullptr || matrix->buffer == nullptr) {
        return KoErrorGetLastError();
    }
    place_rows(matrix);
    return KO_OK;
}

template <class Matrix> int32_t free_matrix(Matrix *matrix) {
    if (matrix != nullptr) {
        KoFree(matrix->rows);
        KoFree(matrix->buffer);
        matrix->rows = nullptr;
        matrix->buffer = nullptr;
    }
    return KO_OK;
}

template <class Matrix> int32_t delete_matrix(Matrix *matrix) {
    free_matrix(matrix);
    KoFree(matrix);
    return KO_OK;
}

template <class Matrix> [[nodiscard]] Matrix *new_matrix(uint64_t width, uint64_t height, const char *name) {
    return make_object<Matrix>(
        name, [=](Matrix *matrix) { return init_matrix(matrix, width, height); }, free_matrix<Matrix>);
}

// New(...) without a report of its own, for the constructors that leave the allocator's.
template <class Matrix, class Fill> [[nodiscard]] Matrix *new_filled_matrix(uint64_t width, uint64_t height, Fill fill) {
    auto *matrix = static_cast<Matrix *>(KoMalloc(static_cast<int32_t>(sizeof(Matrix))));
    if (matrix == nullptr) {
        return nullptr;
    }
    if (init_matrix(matrix, width, height) != KO_OK) {
        delete_matrix(matrix);
        return nullptr;
    }
    fill(matrix);
    return matrix;
}

// The range rule of the array functions: how many rows from start on are walked, with a warning where they leave the matrix.
uint64_t rows_in_range(const MatrixFloat *matrix, uint64_t start, uint64_t count, const MessageCatalog *catalog);

// Calls each(row, array) for the rows of an array function; the array moves by width and skip.
template <class Array, class Each>
void for_each_array_row(const MatrixFloat *matrix, Array *array, uint64_t start, uint64_t count, uint64_t skip, Each each) {
    for (uint64_t y = start; y < start + count; ++y, array += matrix->width + skip) {
        each(matrix->rows[y], array);
    }
}

void matrix_from_bytes(MatrixFloat *matrix, const uint8_t *bytes, uint64_t start, uint64_t count, uint64_t skip,
                       const MessageCatalog *catalog);
void matrix_to_bytes(const MatrixFloat *matrix, uint8_t *bytes, uint64_t start, uint64_t count, uint64_t skip,
                     const MessageCatalog *catalog);
void matrix_from_floats(MatrixFloat *matrix, const float *floats, uint64_t start, uint64_t count, uint64_t skip,
                        const MessageCatalog *catalog);

// The iterators of MatrixFloat and RealImage are one record under two names; owner is the field that points to the matrix.
template <class Iterator> void reset_iterator(Iterator *iterator, const MatrixFloat *matrix) {
    const uint64_t rows = rows_walked(matrix, iterator->height);
    if (rows == 0) {
        iterator->line = iterator->line_end = iterator->end = nullptr;
        return;
    }
    // Before the first row, one stride above it: a position, not an address to read.
    const auto before = reinterpret_cast<uintptr_t>(matrix->rows[iterator->y_start] + iterator->x_start) -
                        iterator->next_line_increment * sizeof(float);
    iterator->line = reinterpret_cast<float *>(before);
    iterator->line_end = reinterpret_cast<float *>(before + iterator->width * sizeof(float));
    iterator->end = matrix->rows[iterator->y_start + rows - 1] + iterator->x_start + iterator->width;
}

template <auto Owner, class Iterator>
int32_t init_iterator(Iterator *iterator, MatrixFloat *matrix, uint64_t x, uint64_t y, uint64_t width, uint64_t height) {
    iterator->*Owner = matrix;
    iterator->x_start = x;
    iterator->y_start = y;
    iterator->width = width;
    iterator->height = height;
    iterator->next_line_increment = stride(matrix);
    reset_iterator(iterator, matrix);
    return KO_OK;
}

template <auto Owner, class Iterator>
[[nodiscard]] Iterator *new_iterator(MatrixFloat *matrix, uint64_t x, uint64_t y, uint64_t width, uint64_t height,
                                     const char *name) {
    return make_object<Iterator>(
        name, [=](Iterator *iterator) { return init_iterator<Owner>(iterator, matrix, x, y, width, height); },
        [](Iterator *) {});
}

template <class Iterator> float *next_line(Iterator *iterator) {
    const uint64_t bytes = iterator->next_line_increment * sizeof(float);
    iterator->line = reinterpret_cast<float *>(reinterpret_cast<uintptr_t>(iterator->line) + bytes);
    iterator->line_end = reinterpret_cast<float *>(reinterpret_cast<uintptr_t>(iterator->line_end) + bytes);
    return iterator->line;
}

template <class Iterator> bool has_next_line(const Iterator *iterator) { return iterator->line_end < iterator->end; }

void fill_matrix(MatrixFloat *matrix, float value);

using OwnedImage = Owned<RealImage, KoRealImageDelete>;

} // namespace ko

#endif
