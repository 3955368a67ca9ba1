// Judging and enhancing a picture, on the road of the program: the same working copy, measures, decision and curves.
#include "families.h"

#include <optional>
#include <string>
#include <utility>

#include <pybind11/stl.h>

#include "arrays.h"
#include "grid.h"
#include "kohost/kohost.hpp"

namespace binding {

namespace {

using kohost::Measure;
using kohost::Policy;
using kohost::Tuning;

const char *name(kohost::Decision decision) {
    switch (decision) {
    case kohost::Decision::enhanced:
        return "enhanced";
    case kohost::Decision::turned_down:
        return "left";
    default:
        return "unchanged";
    }
}

// The score as a float, the counts of blocks as whole numbers, None for what was not measured.
py::object number_of(const DecisionMechanismThreshold &values, Measure measure) {
    const std::optional<double> value = kohost::value_of(values, measure);
    if (!value) {
        return py::none();
    }
    return measure == Measure::score ? py::object(shortest(static_cast<float>(*value)))
                                     : py::object(py::int_(static_cast<uint64_t>(*value)));
}

py::dict numbers_of(const DecisionMechanismThreshold &values) {
    py::dict numbers;
    for (const Measure measure : kohost::measures) {
        numbers[kohost::key_of(measure)] = number_of(values, measure);
    }
    return numbers;
}

py::dict limits_of(const kohost::Judgement &judgement) {
    py::dict limits;
    for (const Policy policy : kohost::policies_with_limits) {
        limits[kohost::name(policy)] = numbers_of(judgement.limits[static_cast<size_t>(policy) - 1]);
    }
    return limits;
}

// For each policy the one that lets the picture pass, or None, and everything that exceeds the policy's own limits.
py::dict verdicts_of(const kohost::Judgement &judgement) {
    py::dict verdicts;
    for (const Policy policy : kohost::policies) {
        std::string reason;
        for (const kohost::Excess &excess : kohost::excesses(judgement, policy)) {
            reason += (reason.empty() ? "" : "; ") + kohost::text_of(excess);
        }
        const std::optional<Policy> first = reason.empty() ? policy : kohost::passing(judgement, policy);
        verdicts[kohost::name(policy)] = py::make_tuple(first ? py::object(py::str(kohost::name(*first))) : py::none(), reason);
    }
    return verdicts;
}

py::object blocks_of(const kohost::Scores &scores, Measure measure) {
    constexpr py::ssize_t side = 8;
    const auto blocks = scores.of_blocks(measure);
    if (!blocks) {
        return py::none();
    }
    return py::array_t<float>({side, side}, blocks->data());
}

py::dict judge(const py::object &picture, const Tuning &tuning, float score) {
    const Form form = form_of(picture);
    const Bytes bytes = bytes_of(picture, form);
    const kohost::Pixels pixels = pixels_of(bytes, form);
    const auto scores = [&] {
        const py::gil_scoped_release unlocked;
        return kohost::scores_of(pixels, tuning, score);
    }();
    const kohost::Judgement judgement = scores.judgement();
    py::dict blocks;
    py::dict thresholds;
    for (const Measure measure : {Measure::detail, Measure::entropy, Measure::noise}) {
        blocks[kohost::key_of(measure)] = blocks_of(scores, measure);
        thresholds[kohost::key_of(measure)] = shortest(scores.block_threshold(measure));
    }
    return py::dict(py::arg("values") = numbers_of(judgement.values), py::arg("limits") = limits_of(judgement),
                    py::arg("blocks") = blocks, py::arg("thresholds") = thresholds,
                    py::arg("verdicts") = verdicts_of(judgement));
}

// What is decided about a picture, with all measures unless the policy asks for none.
struct Planned {
    kohost::Enhancement enhancement;
    std::optional<kohost::Judgement> judgement;
};

Planned planned(const kohost::Pixels &pixels, const Tuning &tuning, const kohost::Judging &judging) {
    Planned result;
    const kohost::WorkingCopy working_copy = kohost::working_copy_of(pixels, tuning.working_area);
    result.enhancement = kohost::plan(working_copy, tuning, [&]() -> std::optional<kohost::Excess> {
        if (judging.policy == Policy::always) {
            return std::nullopt;
        }
        result.judgement = kohost::Scores(working_copy, tuning, judging.score).judgement();
        return kohost::deciding(*result.judgement, judging.policy);
    });
    return result;
}

// The values and the policy's limits, or None.
py::object measures_of(const Planned &result, Policy policy) {
    if (!result.judgement) {
        return py::none();
    }
    const auto &limits = result.judgement->limits[static_cast<size_t>(policy) - 1];
    return py::make_tuple(numbers_of(result.judgement->values), numbers_of(limits));
}

py::tuple enhance(const py::object &picture, const Tuning &tuning, int32_t policy, float score) {
    const Form form = form_of(picture);
    Bytes bytes = new_bytes_of(picture, form);
    const kohost::Pixels pixels = pixels_of(bytes, form);
    uint8_t *const room = bytes.mutable_data();
    const kohost::Judging judging{static_cast<Policy>(policy), score};
    Planned result = [&] {
        const py::gil_scoped_release unlocked;
        Planned plan = planned(pixels, tuning, judging);
        if (plan.enhancement.curves != nullptr) {
            KoStatusClear();
            kohost::Application(*plan.enhancement.curves, tuning.ratio, form.size, form.channels).apply(form.size.height, room);
        }
        return plan;
    }();
    const bool enhanced = result.enhancement.curves != nullptr;
    py::object curves = py::none();
    if (enhanced) {
        curves = py::cast(std::make_shared<Grid>(std::move(result.enhancement.curves)));
    }
    return py::make_tuple(enhanced || !form.is_float ? like(bytes, form) : copy_of(picture, form),
                          name(result.enhancement.decision), result.enhancement.reason, measures_of(result, judging.policy),
                          curves);
}

std::shared_ptr<Grid> fit(const py::object &picture, const Tuning &tuning) {
    const Form form = form_of(picture);
    const Bytes bytes = bytes_of(picture, form);
    const kohost::Pixels pixels = pixels_of(bytes, form);
    const py::gil_scoped_release unlocked;
    const kohost::Image copy = kohost::working_copy_of(pixels, tuning.working_area).average;
    return std::make_shared<Grid>(kohost::fit_curves(copy.pixels(), tuning, kohost::fitting_grid(tuning.grid, copy.size)));
}

} // namespace

void add_enhancement(py::module_ &module) {
    py::class_<Tuning>(module, "Tuning")
        .def(py::init([](std::pair<uint64_t, uint64_t> grid, float max_gain, float strength, float limit, uint64_t levels,
                         float ratio, uint64_t working_area, std::optional<uint32_t> max_slope) {
                 Tuning tuning;
                 tuning.grid = {grid.first, grid.second};
                 tuning.max_gain = max_gain;
                 tuning.strength = strength;
                 tuning.limit = limit;
                 tuning.levels = levels;
                 tuning.ratio = ratio;
                 tuning.working_area = working_area;
                 tuning.max_slope = max_slope;
                 return tuning;
             }),
             py::kw_only(), py::arg("grid"), py::arg("max_gain"), py::arg("strength"), py::arg("limit"), py::arg("levels"),
             py::arg("ratio"), py::arg("working_area"), py::arg("max_slope"));
    module.def("judge", judge, py::arg("picture"), py::arg("tuning"), py::arg("score"));
    module.def("enhance", enhance, py::arg("picture"), py::arg("tuning"), py::arg("policy"), py::arg("score"));
    module.def("fit", fit, py::arg("picture"), py::arg("tuning"));
}

} // namespace binding
