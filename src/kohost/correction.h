// The repair of red eyes of a picture in memory, as one call.
#ifndef KO_KOHOST_CORRECTION_H
#define KO_KOHOST_CORRECTION_H

#include <cstdint>
#include <cstdio>

#include "kohost/pixels.h"
#include "kohost/redeye.h"

namespace kohost {

// Searches a picture of one or three channels for red eyes on a small copy, and repairs it in place as the choices say. The
// library's progress goes to log, if it is not null. Throws ko::Error, and PatchFilesError for a plain repair.
RedEyes correct_red_eyes(uint8_t *bytes, Size size, uint32_t channels, const RedEyeModel &model, const RedEyeChoices &choices,
                         std::FILE *log);

} // namespace kohost

#endif
