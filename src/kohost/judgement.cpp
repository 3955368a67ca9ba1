// The library only decides; the reason is found here by going through its measures in its order once more.
#include "kohost/judgement.h"

#include <algorithm>
#include <limits>

#include "kohost/numbers.h"

namespace kohost {

namespace {

const DecisionMechanismThreshold &limits_of(const Judgement &judgement, Policy policy) {
    return judgement.limits[static_cast<size_t>(policy) - 1];
}

std::optional<Excess> excess_of(const Judgement &judgement, Policy policy, Measure measure) {
    const std::optional<double> value = value_of(judgement.values, measure);
    const double limit = value_of(limits_of(judgement, policy), measure).value_or(std::numeric_limits<double>::infinity());
    if (value && *value > limit) {
        return Excess{measure, *value, limit};
    }
    return std::nullopt;
}

std::optional<double> count(uint64_t blocks) {
    return blocks == not_measured ? std::nullopt : std::optional(static_cast<double>(blocks));
}

// In single precision, like scores: 0.35 prints as 0.35.
std::string shown(double number) { return shortest_text(static_cast<float>(number)); }

} // namespace

const char *key_of(Measure measure) {
    switch (measure) {
    case Measure::detail:
        return "detail";
    case Measure::entropy:
        return "entropy";
    case Measure::noise:
        return "noise";
    default:
        return "score";
    }
}

const char *name(Policy policy) {
    switch (policy) {
    case Policy::conservative:
        return "conservative";
    case Policy::standard:
        return "default";
    case Policy::risky:
        return "risky";
    default:
        return "always";
    }
}

const char *fault_of(Measure measure) {
    switch (measure) {
    case Measure::detail:
        return "would gain too little detail";
    case Measure::entropy:
        return "have too uniform dark tones";
    case Measure::noise:
        return "are too noisy";
    default:
        return "is too high";
    }
}

const char *meaning_of(Measure measure) {
    switch (measure) {
    case Measure::detail:
        return "it has no detail hidden in its shadows";
    case Measure::entropy:
        return "its dark parts are too uniform to be opened";
    case Measure::noise:
        return "it is too noisy to be opened";
    default:
        return "its score is too high";
    }
}

Judgement judgement_of(LocalContrastEnhancementImageFeatures &features) {
    Judgement judgement;
    judgement.values = *KoLocalContrastEnhancementGetDMValues(&features);
    for (const Policy policy : policies_with_limits) {
        const auto number = static_cast<int32_t>(policy);
        judgement.limits[static_cast<size_t>(number - 1)] = *KoLocalContrastEnhancementGetDMThreshold(&features, number);
    }
    return judgement;
}

std::optional<double> value_of(const DecisionMechanismThreshold &values, Measure measure) {
    switch (measure) {
    case Measure::detail:
        return count(values.lowDetailBlocks);
    case Measure::entropy:
        return count(values.lowEntropyBlocks);
    case Measure::noise:
        return count(values.noisyBlocks);
    default:
        return values.score == no_score ? std::nullopt : std::optional(static_cast<double>(values.score));
    }
}

std::vector<Excess> excesses(const Judgement &judgement, Policy policy) {
    std::vector<Excess> found;
    for (const Measure measure : measures) {
        if (const auto excess = policy == Policy::always ? std::nullopt : excess_of(judgement, policy, measure)) {
            found.push_back(*excess);
        }
    }
    return found;
}

std::optional<Excess> deciding(const Judgement &judgement, Policy policy) {
    std::vector<Policy> left;
    std::copy_if(policies.begin(), policies.end(), std::back_inserter(left), [=](Policy other) { return other <= policy; });
    for (const Measure measure : measures) {
        std::optional<Excess> widest;
        std::erase_if(left, [&](Policy one) {
            const auto excess = one == Policy::always ? std::nullopt : excess_of(judgement, one, measure);
            if (excess && (!widest || excess->limit > widest->limit)) {
                widest = excess;
            }
            return excess.has_value();
        });
        if (left.empty()) {
            return widest;
        }
    }
    return std::nullopt;
}

std::optional<Policy> passing(const Judgement &judgement, Policy policy) {
    for (const Policy one : policies) {
        if (one <= policy && excesses(judgement, one).empty()) {
            return one;
        }
    }
    return std::nullopt;
}

std::string text_of(const Excess &excess) {
    const std::string limit = " (limit " + shown(excess.limit) + ")";
    if (excess.measure == Measure::score) {
        return "the score " + shown(excess.value) + " " + fault_of(excess.measure) + limit;
    }
    return shown(excess.value) + " of " + std::to_string(judged_blocks) + " blocks " + fault_of(excess.measure) + limit;
}

} // namespace kohost
