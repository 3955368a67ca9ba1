// `ko judge`: the measures of pictures, and what each policy makes of them.
#include "commands.h"

#include "json.h"
#include "pictures.h"
#include "scores.h"

namespace host {

namespace {

constexpr std::array<Measure, 3> block_measures = {Measure::detail, Measure::entropy, Measure::noise};

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

// What a policy comes to: its own answer, or that of one before it.
struct Verdict {
    bool enhanced;
    std::string reason; // what speaks against the picture under this policy itself
    std::string passes; // the policy that lets it pass, if it is another one
};

Verdict verdict_of(const Judgement &judgement, Policy policy) {
    Verdict verdict{false, "", ""};
    for (const Excess &excess : excesses(judgement, policy)) {
        verdict.reason += (verdict.reason.empty() ? "" : "; ") + text_of(excess);
    }
    const std::optional<Policy> first = verdict.reason.empty() ? policy : passing(judgement, policy);
    verdict.enhanced = first.has_value();
    if (first && *first != policy) {
        verdict.passes = name(*first);
    }
    return verdict;
}

std::string shown(const Verdict &verdict) {
    if (!verdict.enhanced) {
        return "left as it is: " + verdict.reason;
    }
    return verdict.passes.empty() ? "enhanced"
                                  : "enhanced, within the limits of " + verdict.passes + "; over its own: " + verdict.reason;
}

std::string shown_counts(const DecisionMechanismThreshold &values) {
    std::string text = "of " + std::to_string(judged_blocks) + " blocks: ";
    for (const Measure measure : block_measures) {
        if (const auto count = value_of(values, measure)) {
            text +=
                std::to_string(static_cast<int>(*count)) + " " + fault_of(measure) + (measure == Measure::noise ? "" : ", ");
        } else {
            text += "noise is not measured in a gray picture";
        }
    }
    return text;
}

void print_page(const Job &job, const codec::Picture &picture, Scores &scores, std::FILE *stream) {
    const Judgement judgement = scores.judgement();
    std::fprintf(stream, "%s: %u x %u\n", job.input.c_str(), picture.width, picture.height);
    scores.print(stream);
    std::fprintf(stream, "%s\n", shown_counts(judgement.values).c_str());
    for (const Policy policy : policies) {
        std::fprintf(stream, "%s: %s\n", name(policy), shown(verdict_of(judgement, policy)).c_str());
    }
}

// A value of each measure; null for one that was not taken.
template <class Value> Json by_measure(std::span<const Measure> wanted, const Value &value) {
    Json object = Json::object();
    for (const Measure measure : wanted) {
        const auto found = value(measure);
        object[key_of(measure)] = found ? Json(*found) : Json(nullptr);
    }
    return object;
}

std::optional<Json> number(const DecisionMechanismThreshold &values, Measure measure) {
    const std::optional<double> value = value_of(values, measure);
    if (!value) {
        return std::nullopt;
    }
    return measure == Measure::score ? Json(static_cast<float>(*value)) : Json(static_cast<uint64_t>(*value));
}

Json decision_object(const Judgement &judgement, Policy policy) {
    const Verdict verdict = verdict_of(judgement, policy);
    Json object = {{"policy", name(policy)}, {"enhanced", verdict.enhanced}};
    object["limits"] = nullptr;
    if (policy != Policy::always) {
        const DecisionMechanismThreshold &limits = judgement.limits[static_cast<size_t>(policy) - 1];
        object["limits"] = by_measure(measures, [&](Measure measure) { return number(limits, measure); });
    }
    object["passes_as"] = verdict.enhanced ? Json(verdict.passes.empty() ? name(policy) : verdict.passes) : Json(nullptr);
    object["reason"] = verdict.reason.empty() ? Json(nullptr) : Json(verdict.reason);
    return object;
}

void print_object(const Job &job, const codec::Picture &picture, const Scores &scores, std::FILE *stream) {
    const Judgement judgement = scores.judgement();
    Json object = {{"file", job.input}, {"width", picture.width}, {"height", picture.height}};
    object["score"] = number(judgement.values, Measure::score).value_or(Json(nullptr));
    object["scores"] = by_measure(block_measures, [&](Measure measure) { return scores.of_blocks(measure); });
    object["block_thresholds"] =
        by_measure(block_measures, [&](Measure measure) { return std::optional(scores.block_threshold(measure)); });
    object["blocks_over"] = by_measure(block_measures, [&](Measure measure) { return number(judgement.values, measure); });
    for (const Policy policy : policies) {
        object["decisions"].push_back(decision_object(judgement, policy));
    }
    std::fprintf(stream, "%s\n", line_of(object).c_str());
}

void judge_file(const Job &job, const Options &options, Report &report) {
    Source source = read_picture(job.input);
    report.at(Stage::judging);
    Scores scores(source.picture, options.tuning, options.judging.score);
    if (!options.scores.empty()) {
        scores.save(job.target);
    }
    tell(source.notices, report);
    report.answered([&](std::FILE *stream) {
        if (options.style == Style::json) {
            print_object(job, source.picture, scores, stream);
        } else {
            print_page(job, source.picture, scores, stream);
        }
    });
}

} // namespace

void judge_pictures(const Options &options, Report &report) {
    const std::vector<Job> jobs = options.scores.empty()
                                      ? lay_out_reading(options.inputs)
                                      : std::vector<Job>{lay_out_file(options.inputs.front(), options.scores)};
    for_each_job(jobs, report, [&](const Job &job) { judge_file(job, options, report); });
}

} // namespace host
