// What the fuzz targets share: a started library, the input as a file of its own, and checks that end the process.
#ifndef KO_TESTS_FUZZ_HARNESS_H
#define KO_TESTS_FUZZ_HARNESS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "ko.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace ko_fuzz {

// Starts the library on the first call, and clears the status.
void start();

// A path in a folder that is this process's own and goes with it; nothing needs to stand there.
std::string private_path(const std::string &name);

// Writes a file there and gives its path.
std::string private_file(const std::string &name, const std::string &bytes);

inline std::string text_of(const uint8_t *data, size_t size) { return {reinterpret_cast<const char *>(data), size}; }

// Says what does not hold, whatever became of the standard error stream, and aborts.
void expect(bool holds, const char *what);

// Streams that the library has open.
size_t open_streams();

// Text pictures leave their streams open (see "Streams that stay open" in docs/compatibility.md); a process that reads pictures
// for an hour must close them.
void close_open_streams();

// A load gives one of its statuses and leaves it on the thread, or there the report of what could not be made.
void expect_load_status(int32_t status, int32_t further_status);

// Looks at count entries from array on: at all, or of enormous arrays at some, the last included.
void walk(const uint32_t *array, uint64_t count);

} // namespace ko_fuzz

#endif
