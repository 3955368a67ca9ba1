// A red-eye model: the library's files, and the gate that a host adds to them, which weighs the classifiers' answers together
// with the colours of a place.
#ifndef KO_KOHOST_REDEYE_MODEL_H
#define KO_KOHOST_REDEYE_MODEL_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ko.hpp"
#include "kohost/evidence.h"
#include "kohost/gate.h"
#include "kohost/tuning.h"

namespace kohost {

// What is made of a place.
struct Verdict {
    float score = 0.0f; // 0 to 1
    int32_t label = KO_PATCH_UNDECIDED;
};

class RedEyeModel {
  public:
    // No model.
    RedEyeModel() = default;

    // Reads the gate beside a configuration, and tries the library's files on a built-in picture with a red eye, so that a
    // model that cannot be read or does not fit is detected before anything is written. Throws ko::Error and GateError.
    explicit RedEyeModel(std::string configuration);

    explicit operator bool() const { return !configuration_.empty(); }
    const std::string &configuration() const { return configuration_; }

    // The files that it consists of.
    const std::vector<std::string> &files() const { return files_; }

    // The gate gives score and label, but what the first classifier rejects by its shape is rejected. Without a gate, the score
    // is the lower one of the classifiers', and their bounds give the label.
    Verdict judge(float fe_score, float be_score, const Evidence &evidence, Sensitivity sensitivity) const;

  private:
    struct Bounds {
        float fe_accept = 0.0f;
        float fe_reject = 0.0f;
        float be_accept = 0.0f;
        float be_reject = 0.0f;
    };

    std::string configuration_;
    std::vector<std::string> files_;
    Bounds bounds_;
    std::optional<Gate> gate_;
};

} // namespace kohost

#endif
