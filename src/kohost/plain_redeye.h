// The repair of red eyes as the library does it alone: one search, the model's own bounds, and the library's repair.
#ifndef KO_KOHOST_PLAIN_REDEYE_H
#define KO_KOHOST_PLAIN_REDEYE_H

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "kohost/redeye.h"

namespace kohost {

// The patch files cannot be written; the text names the folder.
class PatchFilesError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Repairs the red eyes of a picture; result, which may be the picture's own bytes, is written if something changed. The patch
// files, if requested, are named after the input; the library's progress goes to log, if it is not null. Throws
// ko::Error and PatchFilesError; result is then as it was.
RedEyes repair_plainly(const Pixels &picture, uint8_t *result, const std::string &model, const RedEyeChoices &choices,
                       const std::string &input, std::FILE *log);

} // namespace kohost

#endif
