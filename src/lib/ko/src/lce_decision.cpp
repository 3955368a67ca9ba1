// The decision: a veto. Whenever a value of the picture becomes known, every configuration whose limit it exceeds drops out of
// the list, and the picture is turned down when the list is empty. No allocation takes place.
#include "lce.h"

extern const char *const KoLceDecisionMechanismConfigName[5] = {"Disabled", "Conservative", "Default", "Risky", "Always"};

namespace ko {

namespace {

// The stock limits of the configurations with limits. The rows trade against each other: as the score's limit rises, that on
// blocks low in entropy falls.
constexpr DecisionMechanismThreshold stock_limits[] = {{0.19f, 37, 62, 23}, {0.35f, 23, 63, 20}, {0.64f, 26, 63, 6}};

constexpr float no_score = -1.0f;

// A score that is not a number exceeds nothing.
bool score_exceeds(float value, float limit) { return value != no_score && value > limit; }

bool count_exceeds(uint64_t value, uint64_t limit) { return value != not_measured && value > limit; }

bool exceeds(const DecisionMechanismThreshold &values, const DecisionMechanismThreshold &limits) {
    return score_exceeds(values.score, limits.score) || count_exceeds(values.lowDetailBlocks, limits.lowDetailBlocks) ||
           count_exceeds(values.lowEntropyBlocks, limits.lowEntropyBlocks) ||
           count_exceeds(values.noisyBlocks, limits.noisyBlocks);
}

} // namespace

void set_stock_limits(Features *features) {
    for (int32_t i = first_with_limits; i <= last_with_limits; ++i) {
        features->dmThresholds[i] = stock_limits[i - first_with_limits];
    }
}

void list_configurations(const Features *features, int32_t configuration, DecisionConfigurationList *configurations) {
    configurations->head = nullptr;
    for (int32_t i = configuration; i >= first_with_limits; --i) {
        DecisionConfiguration *node = &configurations->nodes[i];
        *node = {configurations->head, &features->dmThresholds[i]};
        configurations->head = node;
    }
}

void KoLceFilterConfigurations(Features *features, DecisionConfigurationList *configurations) {
    DecisionConfiguration **link = &configurations->head;
    while (*link != nullptr) {
        if (exceeds(features->dmValues, *(*link)->limits)) {
            *link = (*link)->next;
        } else {
            link = &(*link)->next;
        }
    }
    if (configurations->head == nullptr) {
        features->proceed = 0;
    }
}

} // namespace ko

const char *KOLceFetchDMConfigName(int32_t index) { return KoLceDecisionMechanismConfigName[index]; }
