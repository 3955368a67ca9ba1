// The library measures only until the decision falls. A score over all limits lets it fall at once, and the record is told to
// go on measuring: all measures are taken and no curves are made. The decision is then made from the counts.
#include "kohost/scores.h"

#include <algorithm>
#include <limits>

#include "kohost/curves.h"

namespace kohost {

Scores::Scores(const Pixels &picture, const Tuning &tuning, float score) {
    KoStatusClear();
    const ColorImagePtr image = image_of(picture);
    features_ = make_features(tuning, Grid{});
    features_->keepScoring = 1;
    make_curves(*features_, *image, tuning, {Policy::risky, std::numeric_limits<float>::max()});
    KoLocalContrastEnhancementGetDMValues(features_.get())->score = score;
    has_noise_ = features_->noiseScores != nullptr;
}

std::optional<std::span<const float>> Scores::of_blocks(Measure measure) const {
    switch (measure) {
    case Measure::detail:
        return std::span<const float>(features_->detailScores, judged_blocks);
    case Measure::entropy:
        return std::span<const float>(features_->entropyScores, judged_blocks);
    case Measure::noise:
        return has_noise_ ? std::optional(std::span<const float>(features_->noiseScores, judged_blocks)) : std::nullopt;
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

// The library prints whole tables only: where noise was not measured, numbers that are none stand in the record.
void Scores::print(std::FILE *stream) {
    KoStatusClear();
    if (features_->noiseScores == nullptr) {
        features_->noiseScores = static_cast<float *>(KoMalloc(judged_blocks * sizeof(float)));
        check(features_->noiseScores != nullptr, "the scores cannot be shown");
        std::fill_n(features_->noiseScores, judged_blocks, std::numeric_limits<float>::quiet_NaN());
    }
    check(KoLocalContrastEnhancementPrintScores(features_.get(), stream) == KO_OK, "the scores cannot be shown");
}

void Scores::save(const char *path) const {
    KoStatusClear();
    check(KoLocalContrastEnhancementSaveScores(features_.get(), path, 1) == KO_OK, "the scores cannot be saved");
}

std::optional<Excess> reason_against(const Pixels &picture, const Tuning &tuning, const Judging &judging) {
    if (judging.policy == Policy::always) {
        return std::nullopt;
    }
    return deciding(Scores(picture, tuning, judging.score).judgement(), judging.policy);
}

} // namespace kohost
