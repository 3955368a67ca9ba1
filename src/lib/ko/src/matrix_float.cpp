// MatrixFloat: creation, arrays, extremes, nearest resampling, row iterator. RealImage shares all of it through matrix.h.
#include "ko/matrix_float.h"

#include <algorithm>

#include "extremes.h"
#include "matrix.h"
#include "sampling.h"

namespace ko {

namespace {

constexpr const char *catalog_texts[] = {"row_start(%ld) >= matrix->height (%ld)",
                                         "row_start(%ld) + row_num(%ld) >= matrix->height (%ld)"};
constexpr char object_name[] = "MatrixFloat";
constexpr char iterator_name[] = "MatrixFloatRowIterator";
constexpr auto owner = &MatrixFloatRowIterator::matrix;

// The element under the centre of each new one: the ratio in single precision, the position in double.
class NearestCursor {
  public:
    NearestCursor(uint64_t size, uint64_t new_size)
        : size_(size), ratio_(static_cast<float>(size) / static_cast<float>(new_size)) {}

    uint64_t operator()(uint64_t position) const {
        const auto index = static_cast<uint64_t>((static_cast<double>(position) + 0.5) * static_cast<double>(ratio_));
        return std::min(index, size_ - 1);
    }

  private:
    uint64_t size_;
    float ratio_;
};

// An extreme of 0 has the sign of the first 0.
float first_zero(const MatrixFloat *matrix, float extreme) {
    for (uint64_t y = 0; y < matrix->height; ++y) {
        const float *row = matrix->rows[y];
        const float *end = row + matrix->width;
        const float *zero = std::find(row, end, 0.0f);
        if (zero != end) {
            return *zero;
        }
    }
    return extreme;
}

} // namespace

const MessageCatalog KoMatrixFloatCatalog = {2, catalog_texts};

uint64_t rows_in_range(const MatrixFloat *matrix, uint64_t start, uint64_t count, const MessageCatalog *catalog) {
    if (start >= matrix->height) {
        KO_WARN(catalog, 0, message_long(start), message_long(matrix->height));
        return 0;
    }
    if (start + count > matrix->height) {
        KO_WARN(catalog, 1, message_long(start), message_long(count), message_long(matrix->height));
        return matrix->height - start;
    }
    return rows_walked(matrix, count);
}

void matrix_from_bytes(MatrixFloat *matrix, const uint8_t *bytes, uint64_t start, uint64_t count, uint64_t skip,
                       const MessageCatalog *catalog) {
    const uint64_t rows = rows_in_range(matrix, start, count, catalog);
    for_each_array_row(matrix, bytes, start, rows, skip, [=](float *row, const uint8_t *array) {
        for (uint64_t x = 0; x < matrix->width; ++x) {
            row[x] = static_cast<float>(array[x]);
        }
    });
}

void matrix_to_bytes(const MatrixFloat *matrix, uint8_t *bytes, uint64_t start, uint64_t count, uint64_t skip,
                     const MessageCatalog *catalog) {
    const uint64_t rows = rows_in_range(matrix, start, count, catalog);
    for_each_array_row(matrix, bytes, start, rows, skip, [=](const float *row, uint8_t *array) {
        for (uint64_t x = 0; x < matrix->width; ++x) {
            array[x] = floored_byte(row[x]);
        }
    });
}

void matrix_from_floats(MatrixFloat *matrix, const float *floats, uint64_t start, uint64_t count, uint64_t skip,
                        const MessageCatalog *catalog) {
    const uint64_t rows = rows_in_range(matrix, start, count, catalog);
    for_each_array_row(matrix, floats, start, rows, skip,
                       [=](float *row, const float *array) { std::memcpy(row, array, matrix->width * sizeof(float)); });
}

void fill_matrix(MatrixFloat *matrix, float value) {
    for (uint64_t y = 0; y < matrix->height; ++y) {
        std::fill_n(matrix->rows[y], matrix->width, value);
    }
}

} // namespace ko

using namespace ko;

int32_t KoMatrixFloatInit(MatrixFloat *matrix, uint64_t width, uint64_t height) { return init_matrix(matrix, width, height); }

MatrixFloat *KoMatrixFloatNew(uint64_t width, uint64_t height) { return new_matrix<MatrixFloat>(width, height, object_name); }

int32_t KoMatrixFloatFree(MatrixFloat *matrix) { return free_matrix(matrix); }

int32_t KoMatrixFloatDelete(MatrixFloat *matrix) { return delete_matrix(matrix); }

uint64_t KoMatrixFloatGetWidth(const MatrixFloat *matrix) { return matrix->width; }

uint64_t KoMatrixFloatGetHeight(const MatrixFloat *matrix) { return matrix->height; }

uint64_t KoMatrixFloatGetPadding(const MatrixFloat *matrix) { return matrix->padding; }

float KoMatrixFloatGetValue(const MatrixFloat *matrix, uint64_t x, uint64_t y) { return matrix->rows[y][x]; }

void KoMatrixFloatSetValue(MatrixFloat *matrix, uint64_t x, uint64_t y, float value) { matrix->rows[y][x] = value; }

float *KoMatrixFloatGetRow(const MatrixFloat *matrix, uint64_t y) { return matrix->rows[y]; }

void KoMatrixFloatSetRow(MatrixFloat *matrix, uint64_t y, const float *source) {
    std::memcpy(matrix->rows[y], source, matrix->width * sizeof(float));
}

int32_t KoMatrixFloatFromByteArray(MatrixFloat *matrix, const uint8_t *bytes, uint64_t row_start, uint64_t row_num,
                                   uint64_t bytes_skip) {
    matrix_from_bytes(matrix, bytes, row_start, row_num, bytes_skip, &KoMatrixFloatCatalog);
    return KO_OK;
}

int32_t KoMatrixFloatToByteArray(const MatrixFloat *matrix, uint8_t *bytes, uint64_t row_start, uint64_t row_num,
                                 uint64_t bytes_skip) {
    matrix_to_bytes(matrix, bytes, row_start, row_num, bytes_skip, &KoMatrixFloatCatalog);
    return KO_OK;
}

int32_t KoMatrixFloatFromFloatArray(MatrixFloat *matrix, const float *floats, uint64_t row_start, uint64_t row_num,
                                    uint64_t floats_skip) {
    matrix_from_floats(matrix, floats, row_start, row_num, floats_skip, &KoMatrixFloatCatalog);
    return KO_OK;
}

MatrixFloat *KoMatrixFloatNewFromByteArray(uint64_t width, uint64_t height, const uint8_t *bytes, uint64_t bytes_skip) {
    return new_filled_matrix<MatrixFloat>(
        width, height, [=](MatrixFloat *matrix) { KoMatrixFloatFromByteArray(matrix, bytes, 0, height, bytes_skip); });
}

MatrixFloat *KoMatrixFloatNewFromFloatArray(uint64_t width, uint64_t height, const float *floats) {
    return new_filled_matrix<MatrixFloat>(
        width, height, [=](MatrixFloat *matrix) { KoMatrixFloatFromFloatArray(matrix, floats, 0, height, 0); });
}

int32_t KoMatrixFloatGetMinMax(const MatrixFloat *matrix, float *minimum, float *maximum) {
    const float first = matrix->height != 0 ? matrix->rows[0][0] : 0.0f;
    float low = first;
    float high = first;
    for (uint64_t y = 0; y < matrix->height; ++y) {
        low = smallest(matrix->rows[y], matrix->width, low);
        high = largest(matrix->rows[y], matrix->width, high);
    }
    *minimum = low == 0.0f ? first_zero(matrix, low) : low;
    *maximum = high == 0.0f ? first_zero(matrix, high) : high;
    return KO_OK;
}

float KoMatrixFloatGetMin(const MatrixFloat *matrix) {
    float minimum = 0.0f;
    float maximum = 0.0f;
    KoMatrixFloatGetMinMax(matrix, &minimum, &maximum);
    return minimum;
}

float KoMatrixFloatGetMax(const MatrixFloat *matrix) {
    float minimum = 0.0f;
    float maximum = 0.0f;
    KoMatrixFloatGetMinMax(matrix, &minimum, &maximum);
    return maximum;
}

void KoMatrixFloatFill(MatrixFloat *matrix, float value) { fill_matrix(matrix, value); }

void KoMatrixFloatClear(MatrixFloat *matrix) { fill_matrix(matrix, 0.0f); }

int32_t KoMatrixFloatResize(const MatrixFloat *matrix, uint64_t width, uint64_t height, MatrixFloat **result) {
    if (*result == nullptr) {
        *result = KoMatrixFloatNew(width, height);
        if (*result == nullptr) {
            return KoErrorGetLastError();
        }
    }
    if (matrix->width != 0 && matrix->height != 0) { // otherwise there is no element to take
        sample(matrix, *result, width, height, NearestCursor(matrix->width, width), NearestCursor(matrix->height, height));
    }
    return KO_OK;
}

int32_t KoMatrixFloatRowIteratorInit(MatrixFloatRowIterator *iterator, MatrixFloat *matrix) {
    return init_iterator<owner>(iterator, matrix, 0, 0, matrix->width, matrix->height);
}

int32_t KoMatrixFloatRowIteratorInitSubMatrix(MatrixFloatRowIterator *iterator, MatrixFloat *matrix, uint64_t x_start,
                                              uint64_t y_start, uint64_t width, uint64_t height) {
    return init_iterator<owner>(iterator, matrix, x_start, y_start, width, height);
}

MatrixFloatRowIterator *KoMatrixFloatRowIteratorNew(MatrixFloat *matrix) {
    return KoMatrixFloatRowIteratorNewSubMatrix(matrix, 0, 0, matrix->width, matrix->height);
}

MatrixFloatRowIterator *KoMatrixFloatRowIteratorNewSubMatrix(MatrixFloat *matrix, uint64_t x_start, uint64_t y_start,
                                                             uint64_t width, uint64_t height) {
    return new_iterator<owner, MatrixFloatRowIterator>(matrix, x_start, y_start, width, height, iterator_name);
}

int32_t KoMatrixFloatRowIteratorReset(MatrixFloatRowIterator *iterator) {
    reset_iterator(iterator, iterator->matrix);
    return KO_OK;
}

int32_t KoMatrixFloatRowIteratorFree(MatrixFloatRowIterator *) { return KO_OK; }

int32_t KoMatrixFloatRowIteratorDelete(MatrixFloatRowIterator *iterator) {
    KoFree(iterator);
    return KO_OK;
}

int32_t KoMatrixFloatRowIteratorHasNext(const MatrixFloatRowIterator *iterator) { return has_next_line(iterator); }

float *KoMatrixFloatRowIteratorNext(MatrixFloatRowIterator *iterator) { return next_line(iterator); }

float *KoMatrixFloatRowIteratorLineEnd(const MatrixFloatRowIterator *iterator) { return iterator->line_end; }

uint64_t KoMatrixFloatRowIteratorGetWidth(const MatrixFloatRowIterator *iterator) { return iterator->width; }

uint64_t KoMatrixFloatRowIteratorGetHeight(const MatrixFloatRowIterator *iterator) { return iterator->height; }

uint64_t KoMatrixFloatRowIteratorGetNextLineIncrement(const MatrixFloatRowIterator *iterator) {
    return iterator->next_line_increment;
}
