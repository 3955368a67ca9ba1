/*
 * A plug-in that notes in the file plugin.log of the current folder what happens to it, one line each:
 *   load | init FIRST SECOND SLOT | release SLOT | unload
 * with the two words of KoIOInit in hexadecimal and the next free slot (slot.h). KoIOInit gives the low 32 bits of its first
 * word. Built with HAS_INIT, HAS_RELEASE or neither, for the plug-ins that leave out an entry.
 */
#include <inttypes.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#include "slot.h"

#ifdef _WIN32
#define ENTRY __declspec(dllexport)
#else
#define ENTRY __attribute__((visibility("default")))
#endif

int32_t KoIOInit(void *first, void *second);
int32_t KoIORelease(void);

static void note(const char *format, ...) {
    FILE *log = fopen("plugin.log", "a");
    if (log == NULL) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    vfprintf(log, format, arguments);
    va_end(arguments);
    fclose(log);
}

__attribute__((constructor)) static void loaded(void) { note("load\n"); }
__attribute__((destructor)) static void unloaded(void) { note("unload\n"); }

#ifdef HAS_INIT
ENTRY int32_t KoIOInit(void *first, void *second) {
    note("init %" PRIxPTR " %" PRIxPTR " %u\n", (uintptr_t)first, (uintptr_t)second, next_slot());
    return (int32_t)(uint32_t)(uintptr_t)first;
}
#endif

#ifdef HAS_RELEASE
ENTRY int32_t KoIORelease(void) {
    note("release %u\n", next_slot());
    return 77; /* nobody sees it: the unloading comes after */
}
#endif
