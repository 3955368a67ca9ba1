// Files of large pictures, written row by row so that the test that needs them stays small itself: the system attributes a part
// of its memory to the programs that it starts.
#ifndef KO_TESTS_HOST_LARGE_FILES_H
#define KO_TESTS_HOST_LARGE_FILES_H

#include <cstdint>
#include <string>

namespace ko_test {

// A baseline JPEG file in 4:2:0 of a dark texture, and an RGB PNG file, not interlaced, of the same.
void write_large_jpeg(const std::string &path, uint32_t width, uint32_t height);
void write_large_png(const std::string &path, uint32_t width, uint32_t height);

} // namespace ko_test

#endif
