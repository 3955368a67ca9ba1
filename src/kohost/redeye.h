// The repair of red eyes in one picture by the library.
#ifndef KO_KOHOST_REDEYE_H
#define KO_KOHOST_REDEYE_H

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "kohost/library.h"
#include "kohost/pixels.h"
#include "kohost/tuning.h"

namespace kohost {

// x1 and y1 are outside.
struct Box {
    uint32_t x0, y0, x1, y1;
};

// What the model says of a blob.
struct Patch {
    Box box{}; // pixels of the picture
    float fe_score = 0.0f;
    float be_score = 0.0f;
    int32_t label = KO_PATCH_UNDECIDED;
};

// Something red and round.
struct Blob {
    Box box{};                  // pixels of the working image
    uint32_t area = 0;          // the same
    std::optional<Patch> patch; // none too near the picture's edge, or if there are too many blobs
};

enum class RedEyeDecision {
    repaired,
    none,    // nothing is taken for a red eye
    gray,    // the picture has no colours
    too_many // more blobs than any picture has eyes
};

struct RedEyes {
    RedEyeDecision decision = RedEyeDecision::none;
    bool changed = false; // the picture has other pixels than before: repaired ones, or frames
    float scale = 1.0f;   // pixels of the picture a pixel of the working image, each way
    int32_t limit = 0;    // most blobs that are looked at
    std::vector<Blob> blobs;

    uint64_t patches() const;
    uint64_t patches(int32_t label) const;
};

// Labels in the order in which they are told.
inline constexpr std::array<int32_t, 3> labels = {KO_PATCH_ACCEPTED, KO_PATCH_UNDECIDED, KO_PATCH_REJECTED};

// "accepted", "undecided", "rejected".
const char *name_of_label(int32_t label);

// The patch files cannot be written; the text says where.
class PatchFilesError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Tries a model on a picture of its own, which has a red eye, so that one that cannot be read or does not fit is found out
// before anything is written. Gives the files that the model consists of. Throws LibraryError.
std::vector<std::string> try_model(const std::string &model);

// Repairs the red eyes of a picture; result, which may be the picture's own bytes, is written if something changed. The patch
// files, if they are wanted, are named after the input; the library's progress goes to log, if it is not null. Throws
// LibraryError, and PatchFilesError; result is then as it was.
RedEyes repair_red_eyes(const Pixels &picture, uint8_t *result, const RedEyeChoices &choices, const std::string &input,
                        std::FILE *log);

} // namespace kohost

#endif
