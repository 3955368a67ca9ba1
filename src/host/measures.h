// Measures of a picture as members of an object: blocks are whole numbers, the score is not.
#ifndef KO_HOST_MEASURES_H
#define KO_HOST_MEASURES_H

#include <optional>

#include "json.h"
#include "kohost/judgement.h"

namespace host {

// A value or a limit; none for a measure that was not taken.
inline std::optional<Json> number(const DecisionMechanismThreshold &values, kohost::Measure measure) {
    const std::optional<double> value = kohost::value_of(values, measure);
    if (!value) {
        return std::nullopt;
    }
    return measure == kohost::Measure::score ? Json(static_cast<float>(*value)) : Json(static_cast<uint64_t>(*value));
}

} // namespace host

#endif
