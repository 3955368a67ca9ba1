// The calls of the system allocator, all in one place, so that tests can put an allocator there that fails on demand.
#ifndef KO_SRC_HEAP_H
#define KO_SRC_HEAP_H

#include <cstddef>

namespace ko {

void *heap_allocate(size_t size);
void *heap_allocate_clear(size_t size);
void *heap_reallocate(void *block, size_t size);
void heap_free(void *block);

} // namespace ko

#endif
