// The judgement of a picture: what was measured, what the policies allow, and why a picture is turned down, in words.
#ifndef KO_KOHOST_JUDGEMENT_H
#define KO_KOHOST_JUDGEMENT_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ko.hpp"
#include "kohost/tuning.h"

namespace kohost {

// The measures in the order in which they are taken.
enum class Measure { score, detail, entropy, noise };
inline constexpr std::array<Measure, 4> measures = {Measure::score, Measure::detail, Measure::entropy, Measure::noise};

inline constexpr std::array<Policy, 4> policies = {Policy::conservative, Policy::standard, Policy::risky, Policy::always};
inline constexpr std::array<Policy, 3> policies_with_limits = {Policy::conservative, Policy::standard, Policy::risky};

// "score", "detail", "entropy", "noise".
const char *key_of(Measure measure);

// Blocks that a picture is judged by, whatever its size.
inline constexpr uint64_t judged_blocks = 64;

// The count of a measure that was not taken.
inline constexpr uint64_t not_measured = UINT64_MAX;

// "conservative", "default", "risky", "always".
const char *name(Policy policy);

// The measured values, and the limits of the policies that have limits.
struct Judgement {
    DecisionMechanismThreshold values{};
    std::array<DecisionMechanismThreshold, policies_with_limits.size()> limits{};
};

// A measure over its limit.
struct Excess {
    Measure measure = Measure::score;
    double value = 0.0;
    double limit = 0.0;
};

// What the record holds after the deciding call.
Judgement judgement_of(LocalContrastEnhancementImageFeatures &features);

// The value or limit of a measure; none for a measure that was not taken.
std::optional<double> value_of(const DecisionMechanismThreshold &values, Measure measure);

// The measures by which a picture exceeds the limits of one policy.
std::vector<Excess> excesses(const Judgement &judgement, Policy policy);

// The measure that turns a picture down: it exceeds the limits of all policies up to this one that the measures before it did
// not rule out. Its limit is the widest of theirs. None if the picture passes.
std::optional<Excess> deciding(const Judgement &judgement, Policy policy);

// The first policy up to this one that lets the picture pass.
std::optional<Policy> passing(const Judgement &judgement, Policy policy);

// Such as "64 of 64 blocks would gain too little detail (limit 63)".
std::string text_of(const Excess &excess);

// What that means to a reader, such as "it has no detail hidden in its shadows".
const char *meaning_of(Measure measure);

// What blocks over a measure do, such as "would gain too little detail".
const char *fault_of(Measure measure);

} // namespace kohost

#endif
