// What the library asks of an operating system: a pointer per thread, a module by name, a lock with a condition, files that
// exist, large pages, the bytes of a stream. One back end per system (platform_posix.cpp with modules_dl.cpp or
// modules_none.cpp, platform_windows.cpp).
#ifndef KO_SRC_PLATFORM_H
#define KO_SRC_PLATFORM_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <pthread.h>
#endif

namespace ko {

// One pointer per thread, null at first. Nothing runs when a thread ends.
#ifdef _WIN32
using ThreadSlot = DWORD;
#else
using ThreadSlot = pthread_key_t;
#endif

// Gives 0, or the system's error code.
[[nodiscard]] int thread_slot_allocate(ThreadSlot *slot);
void thread_slot_free(ThreadSlot slot);
void *thread_slot_get(ThreadSlot slot);
void thread_slot_set(ThreadSlot slot, void *value);

// The file name of the image-file plug-in, without a folder: the system's library search finds it.
extern const char *const plugin_file_name;

using ModuleEntry = void (*)();

// Null if the module or the entry is not there.
[[nodiscard]] void *module_load(const char *name);
[[nodiscard]] ModuleEntry module_entry(void *module, const char *name);
// Gives what the system gives.
int32_t module_unload(void *module);

[[nodiscard]] bool file_exists(const char *path);

// Asks the system to back a block that nothing has written to by large pages; a system without them does nothing.
void prefer_large_pages(void *block, size_t size);

// Locks a stream to the end of the scope, so that reading or writing it piece by piece does not lock it each time. On Windows
// the C runtime locks it for each piece all the same.
class HeldStream {
  public:
    explicit HeldStream(FILE *stream) : stream_(stream) { lock(); }
    ~HeldStream() { unlock(); }
    HeldStream(const HeldStream &) = delete;
    HeldStream &operator=(const HeldStream &) = delete;

    // The next byte, or EOF.
    int next() {
#ifdef _WIN32
        return std::fgetc(stream_);
#else
        return getc_unlocked(stream_);
#endif
    }

    // False if not all bytes were written.
    bool write(const uint8_t *bytes, uint64_t count) {
#ifdef _WIN32
        return std::fwrite(bytes, 1, count, stream_) == count;
#else
        return fwrite_unlocked(bytes, 1, count, stream_) == count;
#endif
    }

  private:
    void lock();
    void unlock();

    FILE *stream_;
};

// A lock that needs no start and no end, so that it may stand at file scope.
class Mutex {
  public:
    void lock();
    void unlock();

  private:
    friend class Condition;
#ifdef _WIN32
    SRWLOCK lock_ = SRWLOCK_INIT;
#else
    pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER;
#endif
};

class Condition {
  public:
    void wait(Mutex &held);
    void wake_all();

  private:
#ifdef _WIN32
    CONDITION_VARIABLE condition_ = CONDITION_VARIABLE_INIT;
#else
    pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
#endif
};

// Holds a mutex to the end of the scope.
class Lock {
  public:
    explicit Lock(Mutex &mutex) : mutex_(mutex) { mutex_.lock(); }
    ~Lock() { mutex_.unlock(); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

  private:
    Mutex &mutex_;
};

} // namespace ko

#endif
