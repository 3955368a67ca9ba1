// Judging a picture and fitting its curves, on the road of the program: the same working copy, measures, decision and curves.
#include "kohost/enhancement.h"

#include <cmath>

#include "kohost/curves.h"
#include "kohost/scores.h"
#include "module.h"
#include "pictures.h"

namespace web {

namespace {

using kohost::Measure;
using kohost::Policy;

kohost::Tuning tuning;

void give_numbers(const DecisionMechanismThreshold &values) {
    for (const Measure measure : kohost::measures) {
        give(kohost::value_of(values, measure));
    }
}

const DecisionMechanismThreshold &limits_of(const kohost::Judgement &judgement, Policy policy) {
    return judgement.limits[static_cast<size_t>(policy) - 1];
}

// Whether there are scores, which the noise of a gray picture has not, and 64 of them; then the threshold. A block without a
// pixel has NaN as its score.
void give_blocks(const kohost::Scores &scores, Measure measure) {
    const auto blocks = scores.of_blocks(measure);
    give(blocks ? 1.0 : 0.0);
    for (uint64_t i = 0; i < kohost::judged_blocks; ++i) {
        give(blocks ? std::optional<double>((*blocks)[i]) : std::nullopt);
    }
    give(static_cast<double>(scores.block_threshold(measure)));
}

// The number of the policy that lets the picture pass, and a line with everything that exceeds the policy's own limits.
void give_verdict(const kohost::Judgement &judgement, Policy policy) {
    std::string reason;
    for (const kohost::Excess &excess : kohost::excesses(judgement, policy)) {
        reason += (reason.empty() ? "" : "; ") + kohost::text_of(excess);
    }
    const std::optional<Policy> first = reason.empty() ? policy : kohost::passing(judgement, policy);
    give(first ? std::optional<double>(static_cast<double>(*first)) : std::nullopt);
    give(reason);
}

void enhance(const kohost::Judging &judging) {
    std::optional<kohost::Judgement> judgement;
    const kohost::WorkingCopy working_copy = take_working_copy();
    kohost::Enhancement plan = kohost::plan(working_copy, tuning, [&]() -> std::optional<kohost::Excess> {
        if (judging.policy == Policy::always) {
            return std::nullopt;
        }
        judgement = kohost::Scores(working_copy, tuning, judging.score).judgement();
        return kohost::deciding(*judgement, judging.policy);
    });
    give(static_cast<double>(plan.decision));
    if (judgement) {
        give_numbers(judgement->values);
        give_numbers(limits_of(*judgement, judging.policy));
    }
    answer().text = plan.reason;
    curves() = std::move(plan.curves);
}

void judge(float score) {
    const kohost::Scores scores(take_working_copy(), tuning, score);
    const kohost::Judgement judgement = scores.judgement();
    give_numbers(judgement.values);
    for (const Policy policy : kohost::policies_with_limits) {
        give_numbers(limits_of(judgement, policy));
    }
    for (const Measure measure : {Measure::detail, Measure::entropy, Measure::noise}) {
        give_blocks(scores, measure);
    }
    for (const Policy policy : kohost::policies) {
        give_verdict(judgement, policy);
    }
}

} // namespace

} // namespace web

using namespace web;

// Sets what the calls below go by. A negative slope is the library's own choice.
KO_WEB void ko_web_tune(uint32_t columns, uint32_t rows, float max_gain, float strength, float limit, uint32_t levels,
                        int32_t max_slope) {
    tuning.grid = {columns, rows};
    tuning.max_gain = max_gain;
    tuning.strength = strength;
    tuning.limit = limit;
    tuning.levels = levels;
    tuning.max_slope = max_slope < 0 ? std::nullopt : std::optional(static_cast<uint32_t>(max_slope));
}

// Decides about the picture that was read, and leaves its curves if it is to be enhanced. Answers with the number of the
// decision, the values and the limits if it was judged, and the reason.
KO_WEB int32_t ko_web_plan(int32_t policy, float score) {
    return answered([=] {
        curves().reset();
        enhance({static_cast<Policy>(policy), score});
    });
}

// Takes all measures of the picture that was read.
KO_WEB int32_t ko_web_judge(float score) {
    return answered([=] { judge(score); });
}

// Leaves the curves of the picture that was read.
KO_WEB int32_t ko_web_fit() {
    return answered([] {
        curves().reset();
        const kohost::Image copy = take_working_copy().average;
        curves() = kohost::fit_curves(copy.pixels(), tuning, kohost::fitting_grid(tuning.grid, copy.size));
    });
}
