/*
 * Which slot for a value per thread the system would give next: the lowest free one. The library holds one while its status
 * service runs, so the answer tells whether it does, without a call of the library.
 */
#ifndef KO_TESTS_PLUGINS_SLOT_H
#define KO_TESTS_PLUGINS_SLOT_H

#ifdef _WIN32
#include <windows.h>
#else
#include <pthread.h>
#endif

static inline unsigned next_slot(void) {
#ifdef _WIN32
    const DWORD slot = TlsAlloc();
    TlsFree(slot);
    return (unsigned)slot;
#else
    pthread_key_t slot = 0;
    pthread_key_create(&slot, (void (*)(void *))0);
    pthread_key_delete(slot);
    return (unsigned)slot;
#endif
}

#endif
