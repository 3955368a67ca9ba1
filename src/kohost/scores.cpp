// The library measures only until the decision is made. A score over all limits decides at once, and the record is set to go on
// measuring: all measures are taken and no curves are made. The actual decision is then made from the counts.
#include "kohost/scores.h"

#include <algorithm>
#include <limits>

#include "kohost/curves.h"

namespace kohost {

Scores::Scores(const Pixels &picture, const Tuning &tuning, float score) {
    KoStatusClear();
    const ko::ColorImagePtr image = image_of(picture);
    features_ = make_features(tuning, Grid{});
    features_->keepScoring = 1;
    make_curves(*features_, *image, tuning, {Policy::risky, std::numeric_limits<float>::max()});
    KoLocalContrastEnhancementGetDMValues(features_.get())->score = score;
}

Scores::Scores(const WorkingCopy &picture, const Tuning &tuning, float score)
    : Scores(picture.average.pixels(), tuning, score) {
    replace_noise(picture.sample, tuning);
}

void Scores::replace_noise(const Image &sample, const Tuning &tuning) {
    if (sample.bytes.empty() || features_->noiseScores == nullptr) {
        return;
    }
    const Scores of_sample(sample.pixels(), tuning, no_score);
    std::copy_n(of_sample.features_->noiseScores, judged_blocks, features_->noiseScores);
    KoLocalContrastEnhancementGetDMValues(features_.get())->noisyBlocks = of_sample.features_->dmValues.noisyBlocks;
}

std::optional<std::span<const float>> Scores::of_blocks(Measure measure) const {
    switch (measure) {
    case Measure::detail:
        return std::span<const float>(features_->detailScores, judged_blocks);
    case Measure::entropy:
        return std::span<const float>(features_->entropyScores, judged_blocks);
    case Measure::noise:
        return features_->noiseScores != nullptr ? std::optional(std::span<const float>(features_->noiseScores, judged_blocks))
                                                 : std::nullopt;
    default:
        return std::nullopt;
    }
}

float Scores::block_threshold(Measure measure) const {
    switch (measure) {
    case Measure::detail:
        return features_->detailThreshold;
    case Measure::entropy:
        return features_->entropyThreshold;
    default:
        return features_->noiseThreshold;
    }
}

void Scores::save(const char *path) const {
    KoStatusClear();
    ko::check(KoLocalContrastEnhancementSaveScores(features_.get(), path, 1) == KO_OK, "the scores cannot be saved");
}

Scores scores_of(const Pixels &picture, const Tuning &tuning, float score) {
    return Scores(working_copy_of(picture, tuning.working_area), tuning, score);
}

std::optional<Excess> reason_against(const WorkingCopy &picture, const Tuning &tuning, const Judging &judging) {
    if (judging.policy == Policy::always) {
        return std::nullopt;
    }
    Scores scores(picture.average.pixels(), tuning, judging.score);
    Judgement without_noise = scores.judgement();
    without_noise.values.noisyBlocks = not_measured;
    if (const auto excess = deciding(without_noise, judging.policy)) {
        return excess;
    }
    scores.replace_noise(picture.sample, tuning);
    return deciding(scores.judgement(), judging.policy);
}

} // namespace kohost
