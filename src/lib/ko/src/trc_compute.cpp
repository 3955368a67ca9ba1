// The fit of a tone curve to a pair of images: a dynamic programme over non-decreasing paths through a table of costs.
//
// Row i, column x of the table is the cost of mapping input level i to output level x: the squared distances of the target
// levels seen at i, and a tenth of the squared distance to the best of the pool's power curves. The rule to know before
// changing anything here: the order and width of every sum is part of the result, down to which running value is double and
// which is single.
#include <algorithm>
#include <cmath>
#include <limits>

#include "alloc.h"
#include "convert.h"
#include "ko/trc.h"
#include "lanes.h"
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

void measure_lines(RealImageLineIterator *input, RealImageLineIterator *target, float scale, uint64_t levels,
                   LevelStatistics *statistics) {
    while (KoRealImageLineIteratorHasNext(input)) {
        const float *line = KoRealImageLineIteratorNext(input);
        measure_line(line, KoRealImageLineIteratorLineEnd(input), KoRealImageLineIteratorNext(target), scale, levels,
                     statistics);
    }
}

// The same statistics in whole numbers. A sum in single precision is exact as long as it does not pass 2^24, and then any order
// of its terms gives it: four tables take turns, since neighbours often have one level, and a sum cannot be raised again before
// it is stored.
class ExactStatistics {
  public:
    static constexpr uint64_t most_levels = 1024;
    static constexpr uint64_t most_pixels = uint64_t{1} << 24; // fewer than that

    explicit ExactStatistics(uint64_t levels) : levels_(levels) {
        for (auto &table : tables_) {
            std::fill_n(table, levels + 1, uint64_t{0});
        }
    }

    // False if a value of the line does not fit 32 bits.
    bool add_line(const float *input, const float *end, const float *target, float scale) {
        for (; input != end;) {
            const uint64_t count = std::min(piece, static_cast<uint64_t>(end - input));
            uint32_t keys[piece];
            uint32_t targets[piece];
            const bool inputs_fit = find_levels(input, count, scale, keys);
            if (!find_levels(target, count, scale, targets) || !inputs_fit) {
                return false;
            }
            add_piece(keys, targets, count);
            input += count;
            target += count;
        }
        return true;
    }

    // False if a sum is too large.
    bool give(LevelStatistics *statistics) const {
        for (uint64_t level = 0; level < levels_; ++level) {
            const uint64_t both = tables_[0][level] + tables_[1][level] + tables_[2][level] + tables_[3][level];
            const uint64_t sum = both % one;
            if (sum > uint64_t{1} << 24) {
                return false;
            }
            statistics[level] = {static_cast<float>(sum), static_cast<float>(both / one)};
        }
        return true;
    }

  private:
    static constexpr uint64_t piece = 256;
    static constexpr uint64_t one = uint64_t{1} << 40; // a pixel; the sum is below
    static constexpr uint64_t table_count = 4;

    // The low 16 bits of the truncated values; false if one of these does not fit 32 bits.
    static bool find_levels(const float *values, uint64_t count, float scale, uint32_t *levels) {
        int32_t misfits = 0;
        for (uint64_t x = 0; x < count; ++x) {
            const float scaled = values[x] * scale;
            const bool fits = std::fabs(scaled) < 2147483648.0f;
            misfits |= fits ? 0 : 1;
            levels[x] = static_cast<uint32_t>(static_cast<int32_t>(fits ? scaled : 0.0f)) & 0xffff;
        }
        return misfits == 0;
    }

    // Keys past the curve share one element behind its levels.
    void add_piece(const uint32_t *keys, const uint32_t *targets, uint64_t count) {
        const auto behind = static_cast<uint32_t>(levels_);
        const auto add = [&](uint64_t table, uint64_t x) { tables_[table][std::min(keys[x], behind)] += one + targets[x]; };
        uint64_t x = 0;
        for (; x + table_count <= count; x += table_count) {
            for (uint64_t t = 0; t < table_count; ++t) {
                add(t, x + t);
            }
        }
        for (; x < count; ++x) {
            add(0, x);
        }
    }

    uint64_t levels_;
    uint64_t tables_[table_count][most_levels + 1];
};

// False if the statistics are not exact; both iterators are then where they were.
bool measure_exactly(RealImageLineIterator *input, RealImageLineIterator *target, float scale, uint64_t levels,
                     LevelStatistics *statistics) {
    if (levels > ExactStatistics::most_levels || input->width >= ExactStatistics::most_pixels ||
        input->height >= ExactStatistics::most_pixels || input->width * input->height >= ExactStatistics::most_pixels) {
        return false;
    }
    ExactStatistics exact(levels);
    RealImageLineIterator in = *input;
    RealImageLineIterator out = *target;
    while (KoRealImageLineIteratorHasNext(&in)) {
        const float *line = KoRealImageLineIteratorNext(&in);
        if (!exact.add_line(line, KoRealImageLineIteratorLineEnd(&in), KoRealImageLineIteratorNext(&out), scale)) {
            return false;
        }
    }
    if (!exact.give(statistics)) {
        return false;
    }
    *input = in;
    *target = out;
    return true;
}

void measure(RealImageLineIterator *input, RealImageLineIterator *target, uint64_t levels, LevelStatistics *statistics) {
    // Curves of 256 levels and fewer see the values as they are: times 1 changes none.
    const float scale = std::max(static_cast<float>(levels) * 0.00390625f, 1.0f);
    if (!measure_exactly(input, target, scale, levels, statistics)) {
        std::fill_n(statistics, levels, LevelStatistics{});
        measure_lines(input, target, scale, levels, statistics);
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

// Steps of rows that are taken together before they are handed on row by row.
constexpr uint64_t steps = 64;

// Calls add(cost, value) along several rows at once: a single row would wait for its own additions. A value is a double or a
// vector of doubles, one row per element.
template <class Value, uint64_t Values, class ParabolaOf, class Add>
void walk_rows(float *costs, uint64_t levels, uint64_t first_row, ParabolaOf parabola_of, Add add) {
    constexpr uint64_t lanes = sizeof(Value) / sizeof(double);
    constexpr uint64_t rows = Values * lanes;
    double starts[3][rows];
    for (uint64_t r = 0; r < rows; ++r) {
        const Parabola parabola = parabola_of(first_row + r);
        starts[0][r] = parabola.value;
        starts[1][r] = parabola.step;
        starts[2][r] = parabola.bend;
    }
    Value value[Values];
    Value step[Values];
    Value bend[Values];
    for (uint64_t i = 0; i < Values; ++i) {
        value[i] = load<Value>(&starts[0][i * lanes]);
        step[i] = load<Value>(&starts[1][i * lanes]);
        bend[i] = load<Value>(&starts[2][i * lanes]);
    }
    for (uint64_t start = 0; start < levels; start += steps) {
        const uint64_t count = std::min(steps, levels - start);
        float columns[steps][rows];
        for (uint64_t x = 0; x < count; ++x) {
            for (uint64_t i = 0; i < Values; ++i) {
                store_narrowed(value[i], &columns[x][i * lanes]);
                value[i] += step[i];
                step[i] += bend[i];
            }
        }
        for (uint64_t r = 0; r < rows; ++r) {
            float *row = costs + (first_row + r) * levels + start;
            for (uint64_t x = 0; x < count; ++x) {
                add(&row[x], columns[x][r]);
            }
        }
    }
}

template <class ParabolaOf, class Add> void walk_all_rows(float *costs, uint64_t levels, ParabolaOf parabola_of, Add add) {
    constexpr uint64_t vectors = 4;
    constexpr uint64_t group = vectors * double_lanes;
    uint64_t i = 0;
    for (; i + group <= levels; i += group) {
        walk_rows<Doubles, vectors>(costs, levels, i, parabola_of, add);
    }
    for (; i < levels; ++i) {
        walk_rows<double, 1>(costs, levels, i, parabola_of, add);
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

// Sets out[0] to first and out[x + 1] to the best of first and values 0 to x, where choose(a, b) gives the better of two, a if
// they are equal, and none is worse than every value. Several stretches go side by side, since each waits for its own choices;
// what lies before a stretch is chosen from afterwards.
template <class T, class Choose> void choose_along(const T *values, uint64_t count, T first, T none, Choose choose, T *out) {
    constexpr uint64_t stretches = 8;
    const uint64_t length = count / stretches;
    T best[stretches];
    std::fill_n(best, stretches, none);
    out[0] = first;
    for (uint64_t x = 0; x < length; ++x) {
        for (uint64_t s = 0; s < stretches; ++s) {
            best[s] = choose(best[s], values[s * length + x]);
            out[s * length + x + 1] = best[s];
        }
    }
    T before = first;
    uint64_t x = 0;
    for (const T last : best) {
        for (const uint64_t end = x + length; x < end; ++x) {
            out[x + 1] = choose(before, out[x + 1]);
        }
        before = choose(before, last);
    }
    for (; x < count; ++x) {
        before = choose(before, values[x]);
        out[x + 1] = before;
    }
}

// One row of the programme: the cheapest way to each column from the row above, ties to the smallest column. In short walks
// without branches: a running minimum, the columns at which it falls, and a running maximum of those.
void path_row(const float *above, const float *costs, float *path, uint16_t *origins, uint64_t levels) {
    constexpr uint64_t piece = 256;
    float cheapest[piece + 1] = {above[0]};
    uint16_t origin[piece + 1] = {};
    for (uint64_t start = 0; start < levels; start += piece) {
        const uint64_t count = std::min(piece, levels - start);
        const float *ways = above + start;
        choose_along(
            ways, count, cheapest[start == 0 ? 0 : piece], std::numeric_limits<float>::infinity(),
            [](float a, float b) { return b < a ? b : a; }, cheapest);
        uint16_t falls_at[piece];
        for (uint64_t x = 0; x < count; ++x) {
            const bool falls = cheapest[x] > ways[x];
            path[start + x] = (falls ? ways[x] : cheapest[x]) + costs[start + x];
            falls_at[x] = falls ? static_cast<uint16_t>(start + x) : uint16_t{0};
        }
        choose_along(
            falls_at, count, origin[start == 0 ? 0 : piece], uint16_t{0}, [](uint16_t a, uint16_t b) { return b > a ? b : a; },
            origin);
        std::copy_n(origin + 1, count, origins + start);
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

// Adds the pull toward the best prior to the costs. False if the pool cannot be allocated.
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
