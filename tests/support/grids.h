// The families that share one layout under different names, as types: what a templated test calls for each of them.
#ifndef KO_TESTS_GRIDS_H
#define KO_TESTS_GRIDS_H

#include "ko/matrix_float.h"
#include "ko/matrix_integer.h"
#include "ko/realimage.h"

namespace ko_test {

struct MatrixIntegerFamily {
    using Grid = MatrixInteger;
    using Element = int32_t;
    static constexpr const char *name = "MatrixInteger";

    static inline const auto Init = &KoMatrixIntegerInit;
    static inline const auto New = &KoMatrixIntegerNew;
    static inline const auto Free = &KoMatrixIntegerFree;
    static inline const auto Delete = &KoMatrixIntegerDelete;
    static inline const auto GetWidth = &KoMatrixIntegerGetWidth;
    static inline const auto GetHeight = &KoMatrixIntegerGetHeight;
    static inline const auto GetPadding = &KoMatrixIntegerGetPadding;
    static inline const auto GetValue = &KoMatrixIntegerGetValue;
    static inline const auto SetValue = &KoMatrixIntegerSetValue;
    static inline const auto GetRow = &KoMatrixIntegerGetRow;
    static inline const auto SetRow = &KoMatrixIntegerSetRow;
};

struct MatrixFloatFamily {
    using Grid = MatrixFloat;
    using Element = float;
    using Iterator = MatrixFloatRowIterator;
    static constexpr const char *name = "MatrixFloat";
    static constexpr const char *iterator_name = "MatrixFloatRowIterator";
    static constexpr const char *row_word = "row";
    static constexpr const char *grid_word = "matrix";

    static inline const auto Init = &KoMatrixFloatInit;
    static inline const auto New = &KoMatrixFloatNew;
    static inline const auto Free = &KoMatrixFloatFree;
    static inline const auto Delete = &KoMatrixFloatDelete;
    static inline const auto GetWidth = &KoMatrixFloatGetWidth;
    static inline const auto GetHeight = &KoMatrixFloatGetHeight;
    static inline const auto GetPadding = &KoMatrixFloatGetPadding;
    static inline const auto GetValue = &KoMatrixFloatGetValue;
    static inline const auto SetValue = &KoMatrixFloatSetValue;
    static inline const auto GetRow = &KoMatrixFloatGetRow;
    static inline const auto SetRow = &KoMatrixFloatSetRow;
    static inline const auto FromByteArray = &KoMatrixFloatFromByteArray;
    static inline const auto ToByteArray = &KoMatrixFloatToByteArray;
    static inline const auto FromFloatArray = &KoMatrixFloatFromFloatArray;
    static inline const auto NewFromByteArray = &KoMatrixFloatNewFromByteArray;
    static inline const auto NewFromFloatArray = &KoMatrixFloatNewFromFloatArray;
    static inline const auto GetMinMax = &KoMatrixFloatGetMinMax;
    static inline const auto GetMin = &KoMatrixFloatGetMin;
    static inline const auto GetMax = &KoMatrixFloatGetMax;
    static inline const auto Fill = &KoMatrixFloatFill;
    static inline const auto Clear = &KoMatrixFloatClear;
    static inline const auto IteratorInit = &KoMatrixFloatRowIteratorInit;
    static inline const auto IteratorInitSub = &KoMatrixFloatRowIteratorInitSubMatrix;
    static inline const auto IteratorNew = &KoMatrixFloatRowIteratorNew;
    static inline const auto IteratorNewSub = &KoMatrixFloatRowIteratorNewSubMatrix;
    static inline const auto IteratorReset = &KoMatrixFloatRowIteratorReset;
    static inline const auto IteratorFree = &KoMatrixFloatRowIteratorFree;
    static inline const auto IteratorDelete = &KoMatrixFloatRowIteratorDelete;
    static inline const auto IteratorHasNext = &KoMatrixFloatRowIteratorHasNext;
    static inline const auto IteratorNext = &KoMatrixFloatRowIteratorNext;
    static inline const auto IteratorLineEnd = &KoMatrixFloatRowIteratorLineEnd;
    static inline const auto IteratorGetWidth = &KoMatrixFloatRowIteratorGetWidth;
    static inline const auto IteratorGetHeight = &KoMatrixFloatRowIteratorGetHeight;
    static inline const auto IteratorGetNextLineIncrement = &KoMatrixFloatRowIteratorGetNextLineIncrement;
    static const Grid *walked(const Iterator &iterator) { return iterator.matrix; }
};

struct RealImageFamily {
    using Grid = RealImage;
    using Element = float;
    using Iterator = RealImageLineIterator;
    static constexpr const char *name = "RealImage";
    static constexpr const char *iterator_name = "RealImageLineIterator";
    static constexpr const char *row_word = "line";
    static constexpr const char *grid_word = "rimage";

    static inline const auto Init = &KoRealImageInit;
    static inline const auto New = &KoRealImageNew;
    static inline const auto Free = &KoRealImageFree;
    static inline const auto Delete = &KoRealImageDelete;
    static inline const auto GetWidth = &KoRealImageGetWidth;
    static inline const auto GetHeight = &KoRealImageGetHeight;
    static inline const auto GetPadding = &KoRealImageGetPadding;
    static inline const auto GetValue = &KoRealImageGetPixel;
    static inline const auto SetValue = &KoRealImageSetPixel;
    static inline const auto GetRow = &KoRealImageGetRow;
    static inline const auto SetRow = &KoRealImageSetRow;
    static inline const auto FromByteArray = &KoRealImageFromByteArray;
    static inline const auto ToByteArray = &KoRealImageToByteArray;
    static inline const auto FromFloatArray = &KoRealImageFromFloatArray;
    static inline const auto NewFromByteArray = &KoRealImageNewFromByteArray;
    static inline const auto NewFromFloatArray = &KoRealImageNewFromFloatArray;
    static inline const auto GetMinMax = &KoRealImageGetMinMax;
    static inline const auto GetMin = &KoRealImageGetMin;
    static inline const auto GetMax = &KoRealImageGetMax;
    static inline const auto Fill = &KoRealImageFill;
    static inline const auto Clear = &KoRealImageClear;
    static inline const auto IteratorInit = &KoRealImageLineIteratorInit;
    static inline const auto IteratorInitSub = &KoRealImageLineIteratorInitSubImage;
    static inline const auto IteratorNew = &KoRealImageLineIteratorNew;
    static inline const auto IteratorNewSub = &KoRealImageLineIteratorNewSubImage;
    static inline const auto IteratorReset = &KoRealImageLineIteratorReset;
    static inline const auto IteratorFree = &KoRealImageLineIteratorFree;
    static inline const auto IteratorDelete = &KoRealImageLineIteratorDelete;
    static inline const auto IteratorHasNext = &KoRealImageLineIteratorHasNext;
    static inline const auto IteratorNext = &KoRealImageLineIteratorNext;
    static inline const auto IteratorLineEnd = &KoRealImageLineIteratorLineEnd;
    static inline const auto IteratorGetWidth = &KoRealImageLineIteratorGetWidth;
    static inline const auto IteratorGetHeight = &KoRealImageLineIteratorGetHeight;
    static inline const auto IteratorGetNextLineIncrement = &KoRealImageLineIteratorGetNextLineIncrement;
    static const Grid *walked(const Iterator &iterator) { return iterator.image; }
};

} // namespace ko_test

#endif
