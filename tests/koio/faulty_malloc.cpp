#include "faulty_malloc.h"

#include <cerrno>
#include <cstddef>

// The C library's own, under the names that it keeps for this.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *malloc(size_t size) noexcept;
void *calloc(size_t count, size_t size) noexcept;
void *realloc(void *block, size_t size) noexcept;
}

namespace {

thread_local int allocations_left = 0; // until one fails; 0 for none
thread_local bool fault_stays = false;
thread_local bool has_failed = false;

bool fails() {
    if (allocations_left == 0 || --allocations_left != 0) {
        return false;
    }
    has_failed = true;
    allocations_left = fault_stays ? 1 : 0;
    errno = ENOMEM;
    return true;
}

} // namespace

void *malloc(size_t size) noexcept { return fails() ? nullptr : __libc_malloc(size); }
void *calloc(size_t count, size_t size) noexcept { return fails() ? nullptr : __libc_calloc(count, size); }
void *realloc(void *block, size_t size) noexcept { return fails() ? nullptr : __libc_realloc(block, size); }

namespace ko_test {

void fail_malloc(int number, bool stays) {
    has_failed = false;
    fault_stays = stays;
    allocations_left = number;
}

bool end_of_malloc_failures() {
    allocations_left = 0;
    return has_failed;
}

} // namespace ko_test
