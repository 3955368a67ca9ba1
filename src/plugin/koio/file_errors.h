// Inside the back ends of file.h: why the latest call of the C runtime failed.
#ifndef KO_PLUGIN_KOIO_FILE_ERRORS_H
#define KO_PLUGIN_KOIO_FILE_ERRORS_H

#include <cerrno>
#include <string>
#include <system_error>

#include "report.h"

namespace koio {

inline std::string reason_of(int error) { return std::generic_category().message(error); }

[[noreturn]] inline void fail(int32_t status) { throw FileError(status, reason_of(errno)); }

// Keeps the reason for a call's failure, unless memory for the text is lacking.
inline void keep_reason(std::string &failure) noexcept {
    try {
        failure = reason_of(errno);
    } catch (...) {
        failure.clear();
    }
}

} // namespace koio

#endif
