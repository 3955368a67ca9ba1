#include "faulty_new.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

thread_local int allocations_left = 0; // until one fails; 0 for none
thread_local bool has_failed = false;

} // namespace

// Every form is replaced, so that a sanitizer sees memory go back the way it came.
void *operator new(size_t size, const std::nothrow_t &) noexcept {
    if (allocations_left > 0 && --allocations_left == 0) {
        has_failed = true;
        return nullptr;
    }
    return std::malloc(std::max<size_t>(size, 1));
}

void *operator new(size_t size) {
    void *const memory = operator new(size, std::nothrow);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void *operator new[](size_t size) { return operator new(size); }
void *operator new[](size_t size, const std::nothrow_t &) noexcept { return operator new(size, std::nothrow); }

void operator delete(void *memory) noexcept { std::free(memory); }
void operator delete(void *memory, size_t) noexcept { std::free(memory); }
void operator delete[](void *memory) noexcept { std::free(memory); }
void operator delete[](void *memory, size_t) noexcept { std::free(memory); }
void operator delete(void *memory, const std::nothrow_t &) noexcept { std::free(memory); }
void operator delete[](void *memory, const std::nothrow_t &) noexcept { std::free(memory); }

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
