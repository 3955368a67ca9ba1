// Stands in for the library's calls of the system allocator: counts blocks and fails on demand.
#include "heap.h"

#include <atomic>
#include <cstdlib>

#include "faults.h"

namespace {

std::atomic<int64_t> countdown{0};
std::atomic<bool> fail_rest{false};
std::atomic<bool> struck{false};
std::atomic<int64_t> live{0};

bool fails() {
    if (countdown == 0) {
        return false;
    }
    if (--countdown == 0) {
        struck = true;
        if (fail_rest) {
            countdown = 1;
        }
        return true;
    }
    return false;
}

void arm(int64_t n, bool rest) {
    countdown = n;
    fail_rest = rest;
    struck = false;
}

void *counted(void *block) {
    live += block != nullptr;
    return block;
}

} // namespace

namespace ko {

void *heap_allocate(size_t size) { return fails() ? nullptr : counted(std::malloc(size)); }
void *heap_allocate_clear(size_t size) { return fails() ? nullptr : counted(std::calloc(1, size)); }

void *heap_reallocate(void *block, size_t size) {
    if (fails()) {
        return nullptr;
    }
    void *moved = std::realloc(block, size);
    live += block == nullptr && moved != nullptr;
    return moved;
}

void heap_free(void *block) {
    live -= block != nullptr;
    std::free(block);
}

} // namespace ko

void KoTestFailAllocation(int64_t n) { arm(n, false); }
void KoTestFailAllocationsFrom(int64_t n) { arm(n, true); }
int32_t KoTestFaultStruck(void) { return struck; }
int64_t KoTestLiveBlocks(void) { return live; }
