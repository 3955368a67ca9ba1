// The system allocator of a small machine: a request of more than 16 megabytes fails. A sanitizer marks every byte that it
// hands out, so that a file which asks for a gigabyte would take a tenth of a second; the replays run with the real one.
#include <cstdlib>

#include "heap.h"

namespace ko {

namespace {

bool fits(size_t size) { return size <= size_t{16} << 20; }

} // namespace

void *heap_allocate(size_t size) { return fits(size) ? std::malloc(size) : nullptr; }
void *heap_allocate_clear(size_t size) { return fits(size) ? std::calloc(1, size) : nullptr; }
void *heap_reallocate(void *block, size_t size) { return fits(size) ? std::realloc(block, size) : nullptr; }
void heap_free(void *block) { std::free(block); }

} // namespace ko
