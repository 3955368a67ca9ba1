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
#include "kohost/redness.h"
#include "kohost/tuning.h"

namespace kohost {

// The model's finding about a blob.
struct Patch {
    Box box{}; // pixels of the picture
    float fe_score = 0.0f;
    float be_score = 0.0f;
    int32_t label = KO_PATCH_UNDECIDED;
    std::optional<float> contrast; // how much redder it is than its surroundings; none unless that counts
    std::vector<float> features;   // what the classifiers saw, if that is wanted
};

// Something red and round.
struct Blob {
    Box box{};                  // pixels of the working image
    uint32_t area = 0;          // the same
    std::optional<Patch> patch; // none too near the picture's edge, or if the picture has too many blobs
};

enum class RedEyeDecision {
    repaired,
    none,    // nothing is taken for a red eye
    gray,    // the picture has no colour channels
    too_many // more blobs than any picture has eyes
};

struct RedEyes {
    RedEyeDecision decision = RedEyeDecision::none;
    bool changed = false; // the picture has other pixels than before: repaired ones, or frames
    float scale = 1.0f;   // pixels of the picture per pixel of the working image, each way
    int32_t limit = 0;    // most blobs that are examined
    std::vector<Blob> blobs;

    uint64_t patches() const;
    uint64_t patches(int32_t label) const;
};

// Labels in the order in which they are reported.
inline constexpr std::array<int32_t, 3> labels = {KO_PATCH_ACCEPTED, KO_PATCH_UNDECIDED, KO_PATCH_REJECTED};

// "accepted", "undecided", "rejected".
const char *name_of_label(int32_t label);

// "careful", "default", "eager".
const char *name(Sensitivity sensitivity);
inline constexpr std::array<Sensitivity, 3> sensitivities = {Sensitivity::careful, Sensitivity::standard, Sensitivity::eager};

// The patch files cannot be written; the text names the folder.
class PatchFilesError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Tries a model on a built-in picture, which has a red eye, so that a model that cannot be read or does not fit is detected
// before anything is written. Returns the files that the model consists of. Throws LibraryError.
std::vector<std::string> try_model(const std::string &model);

// Finds the places in a picture that could be red eyes, each with its features, whatever the model's classifiers say of them.
// Throws LibraryError.
RedEyes candidates_in(const Pixels &picture, const std::string &model);

// Repairs the red eyes of a picture; result, which may be the picture's own bytes, is written if something changed. The patch
// files, if requested, are named after the input; the library's progress goes to log, if it is not null. Throws
// LibraryError and PatchFilesError; result is then as it was.
RedEyes repair_red_eyes(const Pixels &picture, uint8_t *result, const RedEyeChoices &choices, const std::string &input,
                        std::FILE *log);

} // namespace kohost

#endif
