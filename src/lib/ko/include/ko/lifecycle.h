/*
 * Start and end of the library in a process, and the switch for packed arithmetic.
 *
 * A host calls KoInit once before anything else and KoRelease once when it is done, both from one thread with no other call
 * in flight. Pairs may be nested (the library counts) and a whole cycle may be repeated.
 */
#ifndef KO_LIFECYCLE_H
#define KO_LIFECYCLE_H

#include "ko/base.h"

KO_BEGIN_C

/**
 * Starts the library: the status record of the calling thread, the pool of the curve computation, the slots of the text
 * format (ko/imageformat.h), and the plug-in for image files (koio.dll on Windows, koio.so elsewhere) if the system's loader
 * finds one.
 *   first, second   in   two words that the library hands to the plug-in's KoIOInit unread; null is in order
 * Returns on the first call 0 without a plug-in and the plug-in's own result with one; on each further call the number of
 * calls not yet matched by KoRelease, at least 2. A missing plug-in is normal and reports nothing.
 */
KO_API int32_t KoInit(void *first, void *second);

/**
 * Takes back one KoInit; the last one ends all that KoInit started and unloads the plug-in.
 * Returns the number of calls still unmatched. The last call returns what the system gave for the plug-in's unloading, or 0
 * without a plug-in. An unmatched call does nothing and returns 0.
 * The plug-in's KoIORelease runs after the status service has ended and must not rely on it. Status records of other threads
 * are not freed: a thread that outlives the last KoRelease must not use the library. Verbosity and print function stay.
 */
KO_API int32_t KoRelease(void);

/**
 * Reads the environment variable SSE; if it says "false", in any case, writes one line to the standard error stream.
 * KoInit calls it. The library has no packed variants, so nothing else depends on the variable.
 */
KO_API void KoSSEInit(void);

/** Returns 0 always: there is no detection of the processor and no packed arithmetic in the library. */
KO_API int32_t KoSSEIsAvailable(void);

/**
 * Returns 0 always and leaves the floating-point environment as the host set it: see "A switch that switches nothing" in
 * docs/compatibility.md.
 */
KO_API int32_t KoSSESetDenormalAsZeroFlag(void);

KO_END_C

#endif
