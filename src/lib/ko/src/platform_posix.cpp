// The POSIX back end of platform.h, but for modules (modules_dl.cpp, modules_none.cpp).
#include "platform.h"

#include <sys/mman.h>
#include <sys/stat.h>

namespace ko {

int thread_slot_allocate(ThreadSlot *slot) { return pthread_key_create(slot, nullptr); }
void thread_slot_free(ThreadSlot slot) { pthread_key_delete(slot); }
void *thread_slot_get(ThreadSlot slot) { return pthread_getspecific(slot); }
void thread_slot_set(ThreadSlot slot, void *value) { pthread_setspecific(slot, value); }

bool file_exists(const char *path) {
    struct stat status;
    return stat(path, &status) == 0;
}

void prefer_large_pages([[maybe_unused]] void *block, [[maybe_unused]] size_t size) {
#ifdef MADV_HUGEPAGE
    constexpr uintptr_t page = uintptr_t{2} << 20;
    const uintptr_t first = (reinterpret_cast<uintptr_t>(block) + page - 1) & ~(page - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(block) + size) & ~(page - 1);
    if (first < end) {
        madvise(reinterpret_cast<void *>(first), end - first, MADV_HUGEPAGE); // a refusal costs only time
    }
#endif
}

void HeldStream::lock() { flockfile(stream_); }
void HeldStream::unlock() { funlockfile(stream_); }

void Mutex::lock() { pthread_mutex_lock(&lock_); }
void Mutex::unlock() { pthread_mutex_unlock(&lock_); }
void Condition::wait(Mutex &held) { pthread_cond_wait(&condition_, &held.lock_); }
void Condition::wake_all() { pthread_cond_broadcast(&condition_); }

} // namespace ko
