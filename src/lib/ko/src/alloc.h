// Memory inside the library: blocks that are freed at the end of a scope, and products of sizes that cannot wrap.
#ifndef KO_SRC_ALLOC_H
#define KO_SRC_ALLOC_H

#include <cstdint>

#include "ko/error.h"
#include "ko/memory.h"

namespace ko {

// Largest block that the allocators can ask for.
constexpr uint64_t largest_block = INT32_MAX;

// Reports what a failed allocation of size bytes reports, size as a signed 32-bit number.
void fail_allocation(uint64_t size);

// count times element_size bytes plus extra; a block that is too large fails like an allocation of that size. Null on failure.
[[nodiscard]] void *allocate_bytes(uint64_t count, uint64_t element_size, uint64_t extra = 0);
[[nodiscard]] void *allocate_clear_bytes(uint64_t count, uint64_t element_size);

template <class T> [[nodiscard]] T *allocate(uint64_t count) { return static_cast<T *>(allocate_bytes(count, sizeof(T))); }

template <class T> [[nodiscard]] T *allocate_clear(uint64_t count) {
    return static_cast<T *>(allocate_clear_bytes(count, sizeof(T)));
}

// Runs Delete on an object at the end of the scope, unless it was released.
template <class T, auto Delete> class Owned {
  public:
    Owned() = default;
    explicit Owned(T *object) : object_(object) {}
    ~Owned() {
        if (object_ != nullptr) {
            Delete(object_);
        }
    }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;

    T *get() const { return object_; }
    T *operator->() const { return object_; }
    T &operator[](uint64_t index) const { return object_[index]; }
    explicit operator bool() const { return object_ != nullptr; }

    // Where a function stores a new object; only while none is held.
    T **receive() { return &object_; }

    T *release() {
        T *object = object_;
        object_ = nullptr;
        return object;
    }

    // Ends the object held and takes another.
    void reset(T *object = nullptr) {
        if (object_ != nullptr) {
            Delete(object_);
        }
        object_ = object;
    }

  private:
    T *object_ = nullptr;
};

// A block of KoFree.
template <class T> using Block = Owned<T, KoFree>;

// As KoRealloc, with the size checked like that of allocate_bytes.
[[nodiscard]] void *reallocate_bytes(void *block, uint64_t count, uint64_t element_size);

// Changes a block to count elements; on failure gives false and leaves it as it was.
template <class T> [[nodiscard]] bool reallocate(Block<T> *block, uint64_t count) {
    void *moved = reallocate_bytes(block->get(), count, sizeof(T));
    if (moved == nullptr) {
        return false;
    }
    block->release();
    block->reset(static_cast<T *>(moved));
    return true;
}

// A record by the rule of all New functions: allocate, run init on it, and on a failure of either free the record (after
// clean_up), report KO_ERR_CREATE_OBJECT with the name, and give null.
template <class T, class Init, class CleanUp> [[nodiscard]] T *make_object(const char *name, Init init, CleanUp clean_up) {
    T *object = static_cast<T *>(KoMalloc(static_cast<int32_t>(sizeof(T))));
    if (object != nullptr && init(object) != KO_OK) {
        clean_up(object);
        KoFree(object);
        object = nullptr;
    }
    if (object == nullptr) {
        KoMessageSetStatus(KO_ERR_CREATE_OBJECT, name);
    }
    return object;
}

// First address at or behind block that is a multiple of 16.
template <class T> T *align_16(void *block) {
    return reinterpret_cast<T *>((reinterpret_cast<uintptr_t>(block) + 15) & ~uintptr_t{15});
}

} // namespace ko

#endif
