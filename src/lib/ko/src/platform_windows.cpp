// The Windows back end of platform.h, and the entry point of the DLL.
#include "platform.h"

#include <sys/stat.h>

namespace ko {

int thread_slot_allocate(ThreadSlot *slot) {
    *slot = TlsAlloc();
    return *slot == TLS_OUT_OF_INDEXES ? static_cast<int>(GetLastError()) : 0;
}

void thread_slot_free(ThreadSlot slot) { TlsFree(slot); }
void *thread_slot_get(ThreadSlot slot) { return TlsGetValue(slot); }
void thread_slot_set(ThreadSlot slot, void *value) { TlsSetValue(slot, value); }

const char *const plugin_file_name = "koio.dll";

void *module_load(const char *name) { return LoadLibraryA(name); }

ModuleEntry module_entry(void *module, const char *name) {
    // By way of the one function type that every pointer from the system may take.
    return reinterpret_cast<ModuleEntry>(reinterpret_cast<void (*)()>(GetProcAddress(static_cast<HMODULE>(module), name)));
}

int32_t module_unload(void *module) { return FreeLibrary(static_cast<HMODULE>(module)); }

bool file_exists(const char *path) {
    struct _stat64 status;
    return _stat64(path, &status) == 0;
}

// Large pages require a privilege that users rarely have.
void prefer_large_pages(void *, size_t) {}

// next() takes the C runtime's own lock.
void HeldStream::lock() {}
void HeldStream::unlock() {}

void Mutex::lock() { AcquireSRWLockExclusive(&lock_); }
void Mutex::unlock() { ReleaseSRWLockExclusive(&lock_); }
void Condition::wait(Mutex &held) { SleepConditionVariableSRW(&condition_, &held.lock_, INFINITE, 0); }
void Condition::wake_all() { WakeAllConditionVariable(&condition_); }

} // namespace ko

// No library work at load or unload: hosts start and stop the library themselves.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}
