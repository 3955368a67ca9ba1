// Vector: the hosts' growable array. It rests on the allocators alone; the rule to know before changing anything is that growth
// is by one element and that a failed growth gives the block up.
#include "ko/vector.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "alloc.h"
#include "report.h"

namespace {

using namespace ko;

constexpr uint64_t default_capacity = 50;

// Counts and sizes reach the allocator as their low 32 bits.
void *reallocate_elements(void *data, uint64_t count, uint64_t element_size) {
    return KoReallocElements(data, message_int(count), message_int(element_size));
}

int32_t grow(Vector *vector, uint64_t count) {
    vector->data = reallocate_elements(vector->data, count, vector->element_size);
    vector->capacity = vector->data != nullptr ? count : 0;
    return vector->data != nullptr ? static_cast<int32_t>(KO_OK) : KoErrorGetLastError();
}

// The elements that can be reached: once a growth has failed, the capacity may be less than the size.
uint64_t reachable(const Vector *vector) { return std::min(vector->size, vector->capacity); }

char *element_at(const Vector *vector, uint64_t index) {
    return static_cast<char *>(vector->data) + index * vector->element_size;
}

int32_t index_error(uint64_t index, uint64_t limit) {
    return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INDEX_OUT_OF_BOUNDS, message_int(index), 0, message_int(limit));
}

} // namespace

Vector *KoVectorNew(uint64_t element_size) {
    Vector *vector = KoVectorNewSize(element_size, default_capacity);
    if (vector == nullptr) {
        report_create_object("Vector");
    }
    return vector;
}

Vector *KoVectorNewSize(uint64_t element_size, uint64_t capacity) {
    Block<Vector> vector(allocate<Vector>(1));
    return vector && KoVectorInit(vector.get(), element_size, capacity) == KO_OK ? vector.release() : nullptr;
}

int32_t KoVectorInit(Vector *vector, uint64_t element_size, uint64_t capacity) {
    *vector = {nullptr, element_size, 0, 0};
    return grow(vector, capacity);
}

int32_t KoVectorFree(Vector *vector) {
    if (vector != nullptr) {
        KoFree(vector->data);
    }
    return 0;
}

int32_t KoVectorDelete(Vector *vector) {
    KoVectorFree(vector);
    KoFree(vector);
    return 0;
}

int32_t KoVectorReserve(Vector *vector, uint64_t count) {
    return count < vector->capacity ? static_cast<int32_t>(KO_OK) : grow(vector, count);
}

int32_t KoVectorSetSize(Vector *vector, uint64_t count) {
    if (count > vector->capacity) {
        return index_error(count, vector->capacity);
    }
    vector->size = count;
    return KO_OK;
}

int32_t KoVectorAddElement(Vector *vector, const void *element) {
    const int32_t status = KoVectorReserve(vector, vector->size + 1);
    if (status != KO_OK) {
        return status;
    }
    std::memcpy(element_at(vector, vector->size), element, vector->element_size);
    ++vector->size;
    return KO_OK;
}

int32_t KoVectorGetElement(const Vector *vector, uint64_t index, void *element) {
    if (index >= reachable(vector)) {
        return index_error(index, reachable(vector));
    }
    std::memcpy(element, element_at(vector, index), vector->element_size);
    return KO_OK;
}

int32_t KoVectorSort(Vector *vector, int (*compare)(const void *first, const void *second)) {
    if (reachable(vector) != 0 && vector->element_size != 0) { // elements of no bytes have no order
        std::qsort(vector->data, reachable(vector), vector->element_size, compare);
    }
    return 0;
}

void *KoVectorBegin(const Vector *vector) { return vector->data; }

void *KoVectorEnd(const Vector *vector) { return element_at(vector, reachable(vector)); }

uint64_t KoVectorGetSize(const Vector *vector) { return vector->size; }

uint64_t KoVectorGetElementSize(const Vector *vector) { return vector->element_size; }
