/*
 * The allocators. All heap use of the library goes through them, and whatever the library hands out to be freed is freed with
 * KoFree. Hosts may use them too.
 *
 * Sizes and counts are 32-bit; products are formed in 32 bits and sign-extended, so a product of 2^31 or more fails as an
 * enormous request. A failure writes one line to the standard error stream, leaves KO_ERR_ALLOC with the size on the thread,
 * and gives null. A request of 0 bytes gives a block that may be freed. The caller owns every block.
 */
#ifndef KO_MEMORY_H
#define KO_MEMORY_H

#include "ko/base.h"

KO_BEGIN_C

/** Allocates size bytes, not cleared. Returns the block, or null with KO_ERR_ALLOC. */
KO_API void *KoMalloc(int32_t size);

/** Allocates size bytes, all 0. Returns the block, or null with KO_ERR_ALLOC. */
KO_API void *KoCalloc(int32_t size);

/**
 * Changes the size of a block, or allocates one if pointer is null; bytes that are new are not cleared.
 * Returns the block, which may have moved. On failure returns null with KO_ERR_ALLOC, and the old block stays as it was.
 */
KO_API void *KoRealloc(void *pointer, int32_t size);

/** Frees a block of these functions; null does nothing. */
KO_API void KoFree(void *pointer);

/** Allocates count elements of element_size bytes, not cleared. Returns the block, or null with KO_ERR_ALLOC. */
KO_API void *KoAllocElements(int32_t count, int32_t element_size);

/** Allocates count elements of element_size bytes, all 0. Returns the block, or null with KO_ERR_ALLOC. */
KO_API void *KoAllocClearElements(int32_t count, int32_t element_size);

/** Changes a block to count elements of element_size bytes, as KoRealloc does. */
KO_API void *KoReallocElements(void *pointer, int32_t count, int32_t element_size);

/**
 * Changes a block from old_count to new_count elements of element_size bytes and clears the elements that are new.
 * Returns the block, which may have moved. On failure returns null with KO_ERR_ALLOC, and the old block stays as it was.
 */
KO_API void *KoReallocClearElements(void *pointer, int32_t old_count, int32_t new_count, int32_t element_size);

KO_END_C

#endif
