// All measures of a picture, whatever they say.
#ifndef KO_HOST_SCORES_H
#define KO_HOST_SCORES_H

#include <cstdio>
#include <filesystem>
#include <optional>
#include <span>

#include "codec/codec.h"
#include "judgement.h"
#include "library.h"
#include "tuning.h"

namespace host {

class Scores {
  public:
    // Takes the measures. A gray picture has none of noise. All members throw LibraryError if a call of the library fails.
    Scores(const codec::Picture &picture, const Tuning &tuning, float score);

    // What was measured, and the limits.
    Judgement judgement() const { return judgement_of(*features_); }

    // The scores of the blocks, row by row; none for the measure of noise of a gray picture.
    std::optional<std::span<const float>> of_blocks(Measure measure) const;

    // The score from which on, or up to which, a block counts.
    float block_threshold(Measure measure) const;

    // Writes the library's table.
    void print(std::FILE *stream);

    // Writes the library's score file, written whole or not at all. Throws FileError too.
    void save(const std::filesystem::path &target) const;

  private:
    FeaturesPtr features_;
    bool has_noise_;
};

} // namespace host

#endif
