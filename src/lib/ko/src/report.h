// How the library reports a failure. There are five ways:
//   1. KO_REPORT(level, code, ...): an error in a function that returns a status; decorated, printed by the verbosity.
//   2. report_create_object(name): a constructor that could not make its object; recorded, not printed.
//   3. a callee's status, or KoErrorGetLastError(), handed on.
//   4. report_index(index, limit): an index out of range; recorded, not printed.
//   5. KO_WARN(catalog, code, ...): a warning that does not stop the work and leaves the status at 0.
#ifndef KO_SRC_REPORT_H
#define KO_SRC_REPORT_H

#include <cstdint>

#include "ko/error.h"

#ifdef __FILE_NAME__
#define KO_FILE __FILE_NAME__
#else
#define KO_FILE __FILE__
#endif

#define KO_REPORT(level, ...) KoMessageSetLevel((level), KoMsg(__VA_ARGS__), KO_FILE, __LINE__)

#define KO_WARN(catalog, ...)                                                                                                  \
    do {                                                                                                                       \
        if (KoErrorGetVerboseLevel() < KO_LEVEL_ERROR) {                                                                       \
            KoMessageSetLevel(KO_LEVEL_WARNING, KoCatMsg((catalog), __VA_ARGS__), KO_FILE, __LINE__);                          \
            KoMsg(KO_OK);                                                                                                      \
        }                                                                                                                      \
    } while (false)

namespace ko {

// Sizes and indices reach the texts' "%d" and "%ld" as signed 32-bit numbers, on every platform.
inline int message_int(uint64_t value) { return static_cast<int32_t>(static_cast<uint32_t>(value)); }
inline long message_long(uint64_t value) { return static_cast<long>(message_int(value)); }

inline void report_create_object(const char *name) { KoMessageSetStatus(KO_ERR_CREATE_OBJECT, name); }

inline int32_t report_index(uint64_t index, uint64_t limit) {
    return KoMessageSetStatus(KO_ERR_INDEX_OUT_OF_BOUNDS, message_int(index), 0, message_int(limit));
}

} // namespace ko

#endif
