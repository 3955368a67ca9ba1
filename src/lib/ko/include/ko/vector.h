/*
 * Vector: a growable array of elements of one size, whose bytes it copies and does not interpret. It serves hosts; no other
 * family uses it. No lock: one thread at a time.
 *
 * Bytes to allocate are formed in 32 bits, as KoReallocElements does: a count times element_size of 2^31 to 2^32 - 1 fails, and
 * nothing checks that it stays below 2^32. A failed growth leaves data null and capacity 0 and gives the elements up: the old
 * block is not freed, and size stays. Such a vector is only to be freed: see "A vector that could not grow" in
 * docs/compatibility.md.
 */
#ifndef KO_VECTOR_H
#define KO_VECTOR_H

#include "ko/base.h"

KO_BEGIN_C

/** An array of elements of one size. */
typedef struct Vector {
    void *data;            /* owned: the elements, one behind the other */
    uint64_t element_size; /* bytes per element, fixed at creation */
    uint64_t capacity;     /* elements that data has room for */
    uint64_t size;         /* elements in use, at most capacity */
} Vector;

/** Makes an empty vector with room for 50 elements, owned by the caller. Returns null with KO_ERR_CREATE_OBJECT "Vector". */
KO_API Vector *KoVectorNew(uint64_t element_size);

/** Makes an empty vector with room for capacity elements, owned by the caller. Returns null with KO_ERR_ALLOC. */
KO_API Vector *KoVectorNewSize(uint64_t element_size, uint64_t capacity);

/**
 * Makes an empty vector with room for capacity elements in a record that the caller owns; ended with KoVectorFree.
 * Returns KO_OK, or KO_ERR_ALLOC.
 */
KO_API int32_t KoVectorInit(Vector *vector, uint64_t element_size, uint64_t capacity);

/** Frees the elements and leaves the fields as they are, data included; null is accepted. Returns 0. */
KO_API int32_t KoVectorFree(Vector *vector);

/** Frees the elements and the record; null is accepted. Returns 0. */
KO_API int32_t KoVectorDelete(Vector *vector);

/**
 * Reallocates to exactly count elements unless count is below the capacity; size stays, and nothing ever shrinks.
 * Returns KO_OK, or KO_ERR_ALLOC with the elements given up.
 */
KO_API int32_t KoVectorReserve(Vector *vector, uint64_t count);

/**
 * Sets the number of elements in use, at most the capacity; elements that come into use are not cleared.
 * Returns KO_OK, or KO_ERR_INDEX_OUT_OF_BOUNDS with size as it was.
 */
KO_API int32_t KoVectorSetSize(Vector *vector, uint64_t count);

/**
 * Copies element_size bytes in behind the last element. Growth is by one element (see "Growth by one element" in
 * docs/compatibility.md): every addition that reaches the capacity reallocates, the first to the size that it has, so a caller
 * that knows the count reserves one more. element must not lie inside the vector.
 * Returns KO_OK, or KO_ERR_ALLOC with the elements given up.
 */
KO_API int32_t KoVectorAddElement(Vector *vector, const void *element);

/** Copies element_size bytes out to element. Returns KO_OK, or KO_ERR_INDEX_OUT_OF_BOUNDS for an index not below size. */
KO_API int32_t KoVectorGetElement(const Vector *vector, uint64_t index, void *element);

/**
 * Sorts the elements; the order of equal ones is open.
 *   compare   in   gives less than, equal to or greater than 0 for two elements
 * Returns 0.
 */
KO_API int32_t KoVectorSort(Vector *vector, int (*compare)(const void *first, const void *second));

/**
 * Return the first element and the end of the last; equal when there is none. They stay the vector's, and end when it
 * reallocates or is freed.
 */
KO_API void *KoVectorBegin(const Vector *vector);
KO_API void *KoVectorEnd(const Vector *vector);

/** Return the elements in use, and the bytes per element. */
KO_API uint64_t KoVectorGetSize(const Vector *vector);
KO_API uint64_t KoVectorGetElementSize(const Vector *vector);

KO_END_C

#endif
