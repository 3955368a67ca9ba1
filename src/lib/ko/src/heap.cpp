// The system allocator, which is also asked to put large blocks on large pages; a block that grows is left as it is.
#include "heap.h"

#include <cstdlib>

#include "platform.h"

namespace ko {

namespace {

// The planes of a picture: allocators give blocks of their size back to the system when they are freed, and so they are new to
// the process at every call. Page by page the system takes longer to hand them over than a filter takes to fill them.
constexpr size_t large_block = size_t{4} << 20;

void *on_large_pages(void *block, size_t size) {
    if (block != nullptr && size >= large_block) {
        prefer_large_pages(block, size);
    }
    return block;
}

} // namespace

void *heap_allocate(size_t size) { return on_large_pages(std::malloc(size), size); }
void *heap_allocate_clear(size_t size) { return on_large_pages(std::calloc(1, size), size); }
void *heap_reallocate(void *block, size_t size) { return std::realloc(block, size); }
void heap_free(void *block) { std::free(block); }

} // namespace ko
