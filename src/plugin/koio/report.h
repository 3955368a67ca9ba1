// How the plug-in reports: through the status and the messages of the library. The codec's reason lies below the report in the
// chain. No exception leaves the plug-in.
#ifndef KO_PLUGIN_KOIO_REPORT_H
#define KO_PLUGIN_KOIO_REPORT_H

#include <cstdint>
#include <stdexcept>

#include "codec/codec.h"
#include "ko/error.h"

namespace koio {

#define KOIO_REPORT(level, ...) KoMessageSetLevel((level), KoMsg(__VA_ARGS__), __FILE__, __LINE__)

// The file itself is the trouble: it cannot be opened, read or written.
class FileError : public std::runtime_error {
  public:
    // status: a code whose text takes the path
    FileError(int32_t status, const std::string &reason) : std::runtime_error(reason), status_(status) {}

    int32_t status() const { return status_; }

  private:
    int32_t status_;
};

// The library has reported this status already.
struct Reported {
    int32_t status;
};

// Throws a status that is not KO_OK.
inline void check(int32_t status) {
    if (status != KO_OK) {
        throw Reported{status};
    }
}

// Report the exception that is being handled, and return the status. What the codec refuses is an invalid image of the format
// where a file is read, and a failed write elsewhere.
int32_t report_failed_load(const char *path, codec::Format format);
int32_t report_failed_save(const char *path);

// Prints what was changed or left out, at the level of information; status and chain stay as they are.
void inform(const char *path, const codec::Notices &notices);

} // namespace koio

#endif
