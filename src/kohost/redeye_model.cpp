#include "kohost/redeye_model.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <system_error>
#include <utility>

#include "kohost/curves.h"
#include "kohost/redeye_search.h"

namespace kohost {

namespace {

// How far a sensitivity moves the bounds, on the scale of a logarithm of odds.
double shift_of(Sensitivity sensitivity) {
    switch (sensitivity) {
    case Sensitivity::careful:
        return 1.5;
    case Sensitivity::eager:
        return -1.5;
    default:
        return 0.0;
    }
}

double odds(double score) { return std::log(score / (1.0 - score)); }

// As a share in steps of 0.0001, so that the last bit of a machine's exponential does not show.
float score_of(double sum) {
    constexpr double steps = 10'000.0;
    return static_cast<float>(std::round(steps / (1.0 + std::exp(-sum))) / steps);
}

// ---- a picture to try a model on

constexpr uint32_t trial_side = 200;
constexpr double trial_radius = 6.0;

// A red disc in the middle of something like skin, of a size that is looked for.
Image trial_picture() {
    constexpr std::array<uint8_t, 3> skin = {200, 150, 130};
    constexpr std::array<uint8_t, 3> red = {190, 30, 40};
    Image picture{{trial_side, trial_side}, skin.size(), {}};
    for (uint32_t y = 0; y < trial_side; ++y) {
        for (uint32_t x = 0; x < trial_side; ++x) {
            const double distance = std::hypot(x - trial_side / 2.0, y - trial_side / 2.0);
            const auto &colour = distance < trial_radius ? red : skin;
            picture.bytes.insert(picture.bytes.end(), colour.begin(), colour.end());
        }
    }
    return picture;
}

} // namespace

RedEyeModel::RedEyeModel(std::string configuration) : configuration_(std::move(configuration)) {
    KoStatusClear();
    const std::string fails = "the model " + configuration_ + " cannot be used";
    const ko::RedEyeCorrectionPtr correction = make_correction(configuration_, nullptr);
    const ko::ColorImagePtr image = image_of(trial_picture().pixels());
    const ko::RedEyeImageParamPtr found = locate(*correction, *image, fails);
    ko::check(KoRedEyeCorrectionCategorizeBlobs(correction.get(), found.get()) == KO_OK, fails.c_str());
    const std::string stem = correction->classifier_path;
    files_ = {configuration_, correction->projection_path, stem + "_RE_FE", stem + "_RE_BE"};
    bounds_ = {correction->fe_accept, correction->fe_reject, correction->be_accept, correction->be_reject};
    const std::string gate = std::filesystem::path(configuration_).replace_extension(".gate").string();
    std::error_code error;
    if (std::filesystem::exists(gate, error)) {
        gate_.emplace(gate);
        files_.push_back(gate);
    }
}

Verdict RedEyeModel::judge(float fe_score, float be_score, const Evidence &evidence, Sensitivity sensitivity) const {
    const double shift = shift_of(sensitivity);
    if (!gate_) {
        const bool accepted =
            odds(fe_score) > odds(bounds_.fe_accept) + shift && odds(be_score) > odds(bounds_.be_accept) + shift;
        const bool rejected =
            odds(fe_score) < odds(bounds_.fe_reject) + shift || odds(be_score) < odds(bounds_.be_reject) + shift;
        const float lower = std::min(fe_score, be_score);
        return {std::isnan(lower) ? 0.0f : lower, accepted   ? KO_PATCH_ACCEPTED
                                                  : rejected ? KO_PATCH_REJECTED
                                                             : KO_PATCH_UNDECIDED};
    }
    Gate::Inputs inputs{fe_score, be_score};
    std::copy(evidence.begin(), evidence.end(), inputs.begin() + 2);
    const double sum = gate_->sum(inputs);
    if (odds(fe_score) < odds(bounds_.fe_reject) + shift) { // the corner of a mouth may have all the colours of a pupil
        return {std::min(score_of(sum), fe_score), KO_PATCH_REJECTED};
    }
    const int32_t label = sum > gate_->accept() + shift   ? KO_PATCH_ACCEPTED
                          : sum < gate_->reject() + shift ? KO_PATCH_REJECTED
                                                          : KO_PATCH_UNDECIDED;
    return {score_of(sum), label};
}

} // namespace kohost
