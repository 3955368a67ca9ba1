// The system allocator as it is.
#include "heap.h"

#include <cstdlib>

namespace ko {

void *heap_allocate(size_t size) { return std::malloc(size); }
void *heap_allocate_clear(size_t size) { return std::calloc(1, size); }
void *heap_reallocate(void *block, size_t size) { return std::realloc(block, size); }
void heap_free(void *block) { std::free(block); }

} // namespace ko
