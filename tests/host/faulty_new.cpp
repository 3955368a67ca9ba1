#include "faulty_new.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

thread_local int allocations_left = 0; // until one fails; 0 for none
thread_local bool has_failed = false;

} // namespace

void *operator new(size_t size) {
    if (allocations_left > 0 && --allocations_left == 0) {
        has_failed = true;
        throw std::bad_alloc();
    }
    void *const memory = std::malloc(std::max<size_t>(size, 1));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void *memory) noexcept { std::free(memory); }
void operator delete(void *memory, size_t) noexcept { std::free(memory); }

namespace ko_test {

void fail_allocation(int number) {
    has_failed = false;
    allocations_left = number;
}

bool end_of_failures() {
    allocations_left = 0;
    return has_failed;
}

} // namespace ko_test
