// The exported allocators. They and the status record (error.cpp) are one module in two files: a failed allocation is reported
// through the record, and the record is allocated here.
#include "ko/memory.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "alloc.h"
#include "heap.h"
#include "heap_report.h"

namespace ko {

namespace {

// A negative size is an enormous request: sign-extended where pointers have 64 bits, and elsewhere, where that would be a
// request of 2 to 4 GB that a system may grant, the largest there is. A request of 0 bytes still gives a block: some systems
// would answer null, which reads as a failure.
size_t system_size(int32_t size) {
    if (size < 0 && sizeof(size_t) < sizeof(int64_t)) {
        return SIZE_MAX;
    }
    return size == 0 ? 1 : static_cast<size_t>(static_cast<int64_t>(size));
}

// Products are 32-bit multiplications.
int32_t product(int32_t count, int32_t element_size) {
    return static_cast<int32_t>(static_cast<uint32_t>(count) * static_cast<uint32_t>(element_size));
}

void *reported(void *block, int32_t size) {
    if (block == nullptr) {
        fail_allocation(static_cast<uint32_t>(size));
    }
    return block;
}

// count * element_size + extra as a size that the allocators take; false, with the failure reported, if it is too large.
bool checked_size(uint64_t count, uint64_t element_size, uint64_t extra, int32_t *size) {
    const uint64_t bytes = count * element_size + extra;
    if (count > largest_block || element_size > largest_block || bytes > largest_block) {
        fail_allocation(bytes);
        return false;
    }
    *size = static_cast<int32_t>(bytes);
    return true;
}

} // namespace

void print_allocation_failure(int32_t size) {
    std::fprintf(stderr, "[ERROR] Memory allocation failed: can't allocated %d bytes of memory\n", size);
}

void *allocate_for_report(int32_t size) {
    void *block = heap_allocate(system_size(size));
    if (block == nullptr) {
        print_allocation_failure(size);
    }
    return block;
}

void fail_allocation(uint64_t size) {
    const int32_t shown = static_cast<int32_t>(static_cast<uint32_t>(size));
    print_allocation_failure(shown);
    KoMessageSetStatus(KO_ERR_ALLOC, shown);
}

void *allocate_bytes(uint64_t count, uint64_t element_size, uint64_t extra) {
    int32_t size = 0;
    return checked_size(count, element_size, extra, &size) ? KoMalloc(size) : nullptr;
}

void *allocate_clear_bytes(uint64_t count, uint64_t element_size) {
    int32_t size = 0;
    return checked_size(count, element_size, 0, &size) ? KoCalloc(size) : nullptr;
}

void *reallocate_bytes(void *block, uint64_t count, uint64_t element_size) {
    int32_t size = 0;
    return checked_size(count, element_size, 0, &size) ? KoRealloc(block, size) : nullptr;
}

} // namespace ko

using namespace ko;

void *KoMalloc(int32_t size) { return reported(heap_allocate(system_size(size)), size); }

void *KoCalloc(int32_t size) { return reported(heap_allocate_clear(system_size(size)), size); }

void *KoRealloc(void *pointer, int32_t size) {
    return pointer == nullptr ? KoMalloc(size) : reported(heap_reallocate(pointer, system_size(size)), size);
}

void KoFree(void *pointer) { heap_free(pointer); }

void *KoAllocElements(int32_t count, int32_t element_size) { return KoMalloc(product(count, element_size)); }

void *KoAllocClearElements(int32_t count, int32_t element_size) { return KoCalloc(product(count, element_size)); }

void *KoReallocElements(void *pointer, int32_t count, int32_t element_size) {
    return KoRealloc(pointer, product(count, element_size));
}

void *KoReallocClearElements(void *pointer, int32_t old_count, int32_t new_count, int32_t element_size) {
    void *block = KoReallocElements(pointer, new_count, element_size);
    const int32_t old_size = product(old_count, element_size);
    const int32_t new_size = product(new_count, element_size);
    if (block != nullptr && new_count > old_count && old_size >= 0 && new_size > old_size) {
        std::memset(static_cast<char *>(block) + old_size, 0, static_cast<size_t>(new_size - old_size));
    }
    return block;
}
