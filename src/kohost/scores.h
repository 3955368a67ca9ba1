// All measures of a picture, whatever the decision.
#ifndef KO_KOHOST_SCORES_H
#define KO_KOHOST_SCORES_H

#include <optional>
#include <span>

#include "ko.hpp"
#include "kohost/judgement.h"
#include "kohost/pixels.h"
#include "kohost/tuning.h"
#include "kohost/working_copy.h"

namespace kohost {

class Scores {
  public:
    // Takes the measures of a picture at its own size. A gray picture has no measure of noise. All members throw ko::Error
    // if a call of the library fails.
    Scores(const Pixels &picture, const Tuning &tuning, float score);

    // Takes those of a working copy.
    Scores(const WorkingCopy &picture, const Tuning &tuning, float score);

    // What was measured, and the limits.
    Judgement judgement() const { return judgement_of(*features_); }

    // The scores of the blocks, row by row; none for the noise of a gray picture.
    std::optional<std::span<const float>> of_blocks(Measure measure) const;

    // The threshold past which a block counts.
    float block_threshold(Measure measure) const;

    // Writes the library's score file.
    void save(const char *path) const;

  private:
    friend std::optional<Excess> reason_against(const WorkingCopy &picture, const Tuning &tuning, const Judging &judging);

    void replace_noise(const Image &sample, const Tuning &tuning);

    ko::FeaturesPtr features_;
};

// The measures of a picture in memory, taken on its working copy.
Scores scores_of(const Pixels &picture, const Tuning &tuning, float score);

// Why a picture is turned down by a policy; none if it is to be enhanced. Measures that can no longer change the answer are not
// taken.
std::optional<Excess> reason_against(const WorkingCopy &picture, const Tuning &tuning, const Judging &judging);

} // namespace kohost

#endif
