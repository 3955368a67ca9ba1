// The fit of a tone curve to a pair of images: a dynamic programme over non-decreasing paths through a table of costs.
//
// Row i, column x of the table is the cost of mapping input level i to output level x: the squared distances of the target
// levels seen at i, and a tenth of the squared distance to the best of the pool's power curves. The rule to know before
// changing anything here: the order and width of every sum is part of the result, down to which running value is double and
// which is single.
#include <algorithm>
#include <cmath>

#include "alloc.h"
#include "convert.h"
#include "ko/trc.h"
#include "trc_pool.h"

namespace {

using namespace ko;

struct LevelStatistics {
    float sum;   // of the target levels seen at an input level
    float count; // of the pixels seen there
};

constexpr float prior_weight = 0.1f;

// The low 16 bits of the truncated value.
uint16_t level_of(float value) { return static_cast<uint16_t>(truncate_64(value)); }

void measure_line(const float *input, const float *end, const float *target, float scale, uint64_t levels,
                  LevelStatistics *statistics) {
    for (; input != end; ++input, ++target) {
        const uint16_t key = level_of(*input * scale);
        if (key < levels) {
            statistics[key].sum += static_cast<float>(level_of(*target * scale));
            statistics[key].count += 1.0f;
        }
    }
}

void measure(RealImageLineIterator *input, RealImageLineIterator *target, uint64_t levels, LevelStatistics *statistics) {
    // Curves of 256 levels and fewer see the values as they are: times 1 changes none.
    const float scale = std::max(static_cast<float>(levels) * 0.00390625f, 1.0f);
    while (KoRealImageLineIteratorHasNext(input)) {
        const float *line = KoRealImageLineIteratorNext(input);
        measure_line(line, KoRealImageLineIteratorLineEnd(input), KoRealImageLineIteratorNext(target), scale, levels,
                     statistics);
    }
}

// A parabola in x by two additions a step: value, its step, and the step's step.
struct Parabola {
    double value;
    double step;
    double bend;
};

// c * (x - m)^2, where m is the mean target level.
Parabola data_parabola(const LevelStatistics &level) {
    const double count = level.count;
    const double mean = level.count != 0.0f ? static_cast<double>(level.sum) / count : 0.0;
    return {count * mean * mean, (1.0 - 2.0 * mean) * count, 2.0 * count};
}

// prior_weight * (x - g)^2, where g is the prior's value.
Parabola prior_parabola(float value) {
    const double weight = prior_weight;
    const double g = value;
    return {weight * g * g, (1.0 - 2.0 * g) * weight, static_cast<double>(2.0f * prior_weight)};
}

// Calls add(cost, value) along Rows rows at once: a single row would wait for its own additions. Some steps of all rows are
// taken together before they are handed on row by row.
template <uint64_t Rows, class ParabolaOf, class Add>
void walk_rows(float *costs, uint64_t levels, uint64_t first_row, ParabolaOf parabola_of, Add add) {
    constexpr uint64_t steps = 64;
    float values[steps][Rows];
    double value[Rows];
    double step[Rows];
    double bend[Rows];
    for (uint64_t r = 0; r < Rows; ++r) {
        const Parabola parabola = parabola_of(first_row + r);
        value[r] = parabola.value;
        step[r] = parabola.step;
        bend[r] = parabola.bend;
    }
    for (uint64_t start = 0; start < levels; start += steps) {
        const uint64_t count = std::min(steps, levels - start);
        for (uint64_t x = 0; x < count; ++x) {
            for (uint64_t r = 0; r < Rows; ++r) {
                values[x][r] = static_cast<float>(value[r]);
                value[r] += step[r];
                step[r] += bend[r];
            }
        }
        for (uint64_t r = 0; r < Rows; ++r) {
            float *row = costs + (first_row + r) * levels + start;
            for (uint64_t x = 0; x < count; ++x) {
                add(&row[x], values[x][r]);
            }
        }
    }
}

template <class ParabolaOf, class Add> void walk_all_rows(float *costs, uint64_t levels, ParabolaOf parabola_of, Add add) {
    constexpr uint64_t group = 4;
    uint64_t i = 0;
    for (; i + group <= levels; i += group) {
        walk_rows<group>(costs, levels, i, parabola_of, add);
    }
    for (; i < levels; ++i) {
        walk_rows<1>(costs, levels, i, parabola_of, add);
    }
}

// The cost of following a prior, added up in single precision over the levels. A pool larger than the curve has larger levels,
// whose index may lie in a later row; what lies behind the table is left out.
float prior_total(const float *costs, uint64_t levels, const uint16_t *prior) {
    float total = 0.0f;
    for (uint64_t i = 0; i < levels; ++i) {
        const uint64_t index = i * levels + prior[i];
        if (index < levels * levels) {
            total += costs[index];
        }
    }
    return total;
}

// The values of the cheapest prior; on equal totals the earlier one.
const float *choose_prior(const float *costs, uint64_t levels, const TrcPool &pool) {
    uint64_t best = 0;
    float best_total = prior_total(costs, levels, pool.levels);
    for (uint64_t curve = 1; curve < pool_curves; ++curve) {
        const float total = prior_total(costs, levels, pool.levels + curve * pool.size);
        if (total < best_total) {
            best_total = total;
            best = curve;
        }
    }
    return pool.values + best * pool.size;
}

// One row of the programme: the cheapest way to each column from the row above, ties to the smallest column. In short walks
// without branches: a running minimum, the columns at which it falls, and a running maximum of those.
void path_row(const float *above, const float *costs, float *path, uint16_t *origins, uint64_t levels) {
    constexpr uint64_t piece = 256;
    float best = above[0];
    uint16_t origin = 0;
    for (uint64_t start = 0; start < levels; start += piece) {
        const uint64_t end = std::min(start + piece, levels);
        float before[piece]; // the best of all columns to the left
        for (uint64_t x = start; x < end; ++x) {
            before[x - start] = best;
            best = above[x] < best ? above[x] : best;
        }
        for (uint64_t x = start; x < end; ++x) {
            const bool falls = before[x - start] > above[x];
            path[x] = (falls ? above[x] : before[x - start]) + costs[x];
            origins[x] = falls ? static_cast<uint16_t>(x) : uint16_t{0};
        }
        for (uint64_t x = start; x < end; ++x) {
            origin = std::max(origin, origins[x]);
            origins[x] = origin;
        }
    }
}

// Fills the origins of all rows but the first and gives the end of the cheapest path. paths has room for two rows.
uint32_t find_paths(const float *costs, uint64_t levels, float *paths, uint16_t *origins) {
    const float *above = costs; // the first row's paths cost what the row costs
    for (uint64_t i = 1; i < levels; ++i) {
        float *path = paths + (i % 2) * levels;
        path_row(above, costs + i * levels, path, origins + i * levels, levels);
        above = path;
    }
    return static_cast<uint32_t>(std::min_element(above, above + levels) - above);
}

// Adds the pull toward the best prior to the costs. False if the pool cannot be had.
bool add_prior(float *costs, uint64_t levels) {
    TrcPool pool;
    if (!_KoTRCPoolAcquire(levels, &pool)) {
        return false;
    }
    const float *prior = choose_prior(costs, levels, pool);
    walk_all_rows(
        costs, levels, [=](uint64_t i) { return prior_parabola(prior[i]); }, [](float *cost, float value) { *cost += value; });
    _KoTRCPoolRelease();
    return true;
}

// The table of data costs, or null.
float *make_costs(RealImageLineIterator *input, RealImageLineIterator *target, uint64_t levels) {
    Block<LevelStatistics> statistics(allocate_clear<LevelStatistics>(levels));
    auto *costs = statistics ? static_cast<float *>(allocate_bytes(levels, levels * sizeof(float))) : nullptr;
    if (costs != nullptr) {
        measure(input, target, levels, statistics.get());
        walk_all_rows(
            costs, levels, [&](uint64_t i) { return data_parabola(statistics[i]); },
            [](float *cost, float value) { *cost = value; });
    }
    return costs;
}

// The fitted curve, or null.
uint32_t *fit(RealImageLineIterator *input, RealImageLineIterator *target, uint64_t levels) {
    Block<float> costs(make_costs(input, target, levels));
    if (!costs || !add_prior(costs.get(), levels)) {
        return nullptr;
    }
    Block<float> paths(allocate<float>(2 * levels));
    Block<uint16_t> origins(allocate<uint16_t>(levels * levels));
    auto *curve = paths && origins ? allocate<uint32_t>(levels) : nullptr;
    if (curve != nullptr) {
        curve[levels - 1] = find_paths(costs.get(), levels, paths.get(), origins.get());
        for (uint64_t i = levels - 1; i > 0; --i) {
            curve[i - 1] = origins[i * levels + curve[i]];
        }
    }
    return curve;
}

} // namespace

int32_t KoTRCCompute(TRC *trc, RealImageLineIterator *input, RealImageLineIterator *target) {
    KoTRCFree(trc);
    if (trc->size != 0) {
        trc->array = fit(input, target, trc->size);
    }
    return KO_OK;
}
