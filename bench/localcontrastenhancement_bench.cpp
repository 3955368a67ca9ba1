// The whole enhancement at several sizes, and the judgement alone.
#include "enhancement_job.h"
#include "support.h"

namespace {

using namespace ko_bench;

constexpr Size size_6_megapixels{3000, 2000};
constexpr float score_over_all_limits = 2.0f;
constexpr int32_t risky = 3;

// A score over all limits makes the answer no, and keeping on scoring takes all measures in spite of it.
bool judge(ColorImage *image) {
    const Outcome outcome = decide(image, score_over_all_limits, risky, 1);
    return outcome.features && outcome.features->noiseScores && !outcome.curves;
}

void enhancement(benchmark::State &state, Size size) {
    const std::vector<uint8_t> input = photograph(size, 3);
    std::vector<uint8_t> output(input.size());
    const Mark mark{Measure::nanoseconds_per_pixel, 150.0, true};
    measure(state, {size.pixels(), 3, 3}, mark, [&] { return enhance(size, input, output); });
}

void judgement(benchmark::State &state, Size size) {
    const ColorImagePtr image = color_planes(size, photograph(size, 3));
    measure(state, {size.pixels(), 3 * sizeof(float), 0}, {Measure::nanoseconds_per_pixel, 60.0},
            [&] { return judge(image.get()); });
}

BENCHMARK_CAPTURE(enhancement, 1, size_1_megapixel)->Name("whole enhancement 1 MP")->Apply(rounds<15>);
BENCHMARK_CAPTURE(enhancement, 4, size_4_megapixels)->Name("whole enhancement 4 MP")->Apply(rounds<7>);
BENCHMARK_CAPTURE(enhancement, 16, size_16_megapixels)->Name("whole enhancement 16 MP")->Apply(rounds<3>);
BENCHMARK_CAPTURE(judgement, 6, size_6_megapixels)->Name("judgement alone 6 MP")->Apply(rounds<7>);

} // namespace
