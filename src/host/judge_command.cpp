// `ko judge`: the measures of pictures, and what each policy makes of them.
#include "commands.h"

#include <array>
#include <cmath>
#include <cstdio>

#include "json.h"
#include "kohost/scores.h"
#include "measures.h"
#include "paths.h"
#include "pictures.h"
#include "workers.h"

namespace host {

using kohost::Judgement;
using kohost::Measure;
using kohost::Policy;
using kohost::Scores;

namespace {

constexpr std::array<Measure, 3> block_measures = {Measure::detail, Measure::entropy, Measure::noise};

// The decision of a policy: its own, or that of one before it.
struct Verdict {
    bool enhanced;
    std::string reason; // what counts against the picture under this policy itself
    std::string passes; // the policy that lets it pass, if it is another one
};

Verdict verdict_of(const Judgement &judgement, Policy policy) {
    Verdict verdict{false, "", ""};
    for (const kohost::Excess &excess : kohost::excesses(judgement, policy)) {
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
                                  : "enhanced, within the limits of " + verdict.passes + "; exceeds its own: " + verdict.reason;
}

const char *title_of(Measure measure) {
    switch (measure) {
    case Measure::detail:
        return "Detail";
    case Measure::entropy:
        return "Dark tones";
    default:
        return "Noise";
    }
}

bool is_over(Measure measure, float score, float threshold) {
    return measure == Measure::noise ? score > threshold : score < threshold;
}

// A table of 8 by 8 scores, with a mark at blocks that count against the picture.
std::string table_of(Measure measure, std::span<const float> scores, float threshold) {
    constexpr size_t columns = 8;
    std::string table;
    std::array<char, 64> room;
    for (size_t i = 0; i < scores.size(); ++i) {
        if (std::isfinite(scores[i])) {
            std::snprintf(room.data(), room.size(), "%8.2f%c", static_cast<double>(scores[i]),
                          is_over(measure, scores[i], threshold) ? '*' : ' ');
        } else {
            std::snprintf(room.data(), room.size(), "%8s ", "-");
        }
        table += room.data();
        if (i % columns == columns - 1) {
            table.erase(table.find_last_not_of(' ') + 1);
            table += "\n";
        }
    }
    return table;
}

// How many blocks count against the picture, how many each policy allows, and the table.
std::string section_about(Measure measure, const Scores &scores, const Judgement &judgement) {
    const auto blocks = scores.of_blocks(measure);
    const auto count = value_of(judgement.values, measure);
    if (!blocks || !count) {
        return std::string(title_of(measure)) + ": not measured in a gray picture\n";
    }
    std::array<char, 64> threshold;
    std::snprintf(threshold.data(), threshold.size(), " (%s %.4g, marked *)", measure == Measure::noise ? "over" : "under",
                  static_cast<double>(scores.block_threshold(measure)));
    std::string section = std::string(title_of(measure)) + ": " + std::to_string(static_cast<int>(*count)) + " of " +
                          std::to_string(kohost::judged_blocks) + " blocks " + kohost::fault_of(measure) + threshold.data();
    for (const Policy policy : kohost::policies_with_limits) {
        const double limit = value_of(judgement.limits[static_cast<size_t>(policy) - 1], measure).value_or(0.0);
        section += std::string(policy == Policy::conservative ? "; allowed: " : ", ") + name(policy) + " " +
                   std::to_string(static_cast<int>(limit)) + (*count > limit ? " (exceeded)" : "");
    }
    return section + "\n" + table_of(measure, *blocks, scores.block_threshold(measure));
}

std::string page_about(const Job &job, const Source &source, const Scores &scores) {
    const Judgement judgement = scores.judgement();
    std::string page =
        job.input + ": " + std::to_string(source.size().width) + " x " + std::to_string(source.size().height) + "\n";
    for (const Measure measure : block_measures) {
        page += section_about(measure, scores, judgement);
    }
    for (const Policy policy : kohost::policies) {
        page += std::string(name(policy)) + ": " + shown(verdict_of(judgement, policy)) + "\n";
    }
    return page;
}

// A value for each measure; null for one that was not taken.
template <class Value> Json by_measure(std::span<const Measure> wanted, const Value &value) {
    Json object = Json::object();
    for (const Measure measure : wanted) {
        const auto found = value(measure);
        object[kohost::key_of(measure)] = found ? Json(*found) : Json(nullptr);
    }
    return object;
}

Json decision_object(const Judgement &judgement, Policy policy) {
    const Verdict verdict = verdict_of(judgement, policy);
    Json object = {{"policy", name(policy)}, {"enhanced", verdict.enhanced}};
    object["limits"] = nullptr;
    if (policy != Policy::always) {
        const DecisionMechanismThreshold &limits = judgement.limits[static_cast<size_t>(policy) - 1];
        object["limits"] = by_measure(kohost::measures, [&](Measure measure) { return number(limits, measure); });
    }
    object["passes_as"] = verdict.enhanced ? Json(verdict.passes.empty() ? name(policy) : verdict.passes) : Json(nullptr);
    object["reason"] = verdict.reason.empty() ? Json(nullptr) : Json(verdict.reason);
    return object;
}

std::string object_about(const Job &job, const Source &source, const Scores &scores) {
    const Judgement judgement = scores.judgement();
    Json object = Json::object();
    set_name(object, "file", job.input);
    object["width"] = source.size().width;
    object["height"] = source.size().height;
    object["score"] = number(judgement.values, Measure::score).value_or(Json(nullptr));
    object["scores"] = by_measure(block_measures, [&](Measure measure) { return scores.of_blocks(measure); });
    object["block_thresholds"] =
        by_measure(block_measures, [&](Measure measure) { return std::optional(scores.block_threshold(measure)); });
    object["blocks_over"] = by_measure(block_measures, [&](Measure measure) { return number(judgement.values, measure); });
    for (const Policy policy : kohost::policies) {
        object["decisions"].push_back(decision_object(judgement, policy));
    }
    return line_of(object) + "\n";
}

void judge_file(const Job &job, const Options &options, Entry &entry) {
    Source source(job.input);
    const kohost::WorkingCopy working_copy = source.working_copy(options.tuning.working_area);
    entry.at(Stage::judging);
    const Scores scores(working_copy, options.tuning, options.judging.score);
    if (!options.scores.empty()) {
        write_file_by(job.target,
                      [&](const std::filesystem::path &draft) { scores.save(system::library_path(draft).c_str()); });
    }
    report_notices(source.notices, entry);
    entry.answered(options.reporting.style == Style::json ? object_about(job, source, scores)
                                                          : page_about(job, source, scores));
}

} // namespace

void judge_pictures(const Options &options, Report &report) {
    const std::vector<Job> jobs = options.scores.empty()
                                      ? lay_out_reading(options.selection)
                                      : std::vector<Job>{lay_out_file(options.selection.inputs.front(), options.scores)};
    for_each_job(jobs, options.jobs, report, [&](const Job &job, Entry &entry) { judge_file(job, options, entry); });
}

} // namespace host
