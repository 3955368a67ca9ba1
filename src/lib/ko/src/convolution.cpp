// Convolution of two vectors, which may lie in a column of an image: elements are a fixed step apart.
#include "ko/convolution.h"

#include <algorithm>

#include "alloc.h"

namespace {

using namespace ko;

template <class Float> struct Strided {
    Float *elements;
    uint64_t size;
    uint64_t gap; // floats between neighbouring elements

    Float &operator[](uint64_t i) const { return elements[i * (gap + 1)]; }
};

using Input = Strided<const float>;

bool is_column(const RealImage *image) { return image->width == 1; }

// The vector of an image that is one pixel wide or high.
Input vector_of(const RealImage *image) {
    return is_column(image) ? Input{image->rows[0], image->height, image->padding} : Input{image->rows[0], image->width, 0};
}

// A vector has elements, and lies in one row or one column.
bool is_vector(const RealImage *image) {
    return (image->width == 1 || image->height == 1) && image->width != 0 && image->height != 0;
}

float convolved(const Input &a, const Input &b, uint64_t k) {
    const uint64_t first = k < b.size ? 0 : k - (b.size - 1);
    const uint64_t last = std::min(k, a.size - 1);
    float sum = 0.0f;
    for (uint64_t i = first; i <= last; ++i) {
        sum += a[i] * b[k - i];
    }
    return sum;
}

int32_t KoConvolutionStrided(const Input &a, const Input &b, float **result, uint64_t result_gap) {
    const uint64_t size = a.size + b.size - 1;
    if (*result == nullptr) {
        *result = allocate<float>(size);
        if (*result == nullptr) {
            return KoErrorGetLastError();
        }
    }
    const Strided<float> out{*result, size, result_gap};
    for (uint64_t k = 0; k < size; ++k) {
        out[k] = convolved(a, b, k);
    }
    return KO_OK;
}

} // namespace

int32_t KoConvolutionVector(const float *a, uint64_t size_a, const float *b, uint64_t size_b, float **result) {
    if (size_a == 0 || size_b == 0) {
        return KO_ERR_INVALID_ARGUMENT;
    }
    return KoConvolutionStrided({a, size_a, 0}, {b, size_b, 0}, result, 0);
}

int32_t KoConvolutionRealImageVector(const RealImage *a, const RealImage *b, RealImage **result) {
    if (!is_vector(a) || !is_vector(b)) {
        return KO_ERR_INVALID_ARGUMENT;
    }
    const Input first = vector_of(a);
    const Input second = vector_of(b);
    if (*result == nullptr) {
        const uint64_t size = first.size + second.size - 1;
        *result = is_column(a) ? KoRealImageNew(1, size) : KoRealImageNew(size, 1);
        if (*result == nullptr) {
            return KoErrorGetLastError();
        }
    }
    float *out = (*result)->rows[0];
    return KoConvolutionStrided(first, second, &out, is_column(a) ? (*result)->padding : 0);
}
