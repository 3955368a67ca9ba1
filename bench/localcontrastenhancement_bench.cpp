#include "localcontrastenhancement_bench.h"

#include <utility>

namespace ko_bench {

namespace {

constexpr Size size_6_megapixels{3000, 2000};
constexpr uint64_t curve_size = 256;
constexpr uint64_t grid = 8;
constexpr float max_gain = 3.0f;
constexpr float strength = 40.0f;
constexpr float limit_fraction = 0.6275f;
constexpr uint64_t bilateral_levels = 5;
constexpr float no_score = -1.0f;
constexpr float score_over_all_limits = 2.0f;
constexpr int32_t risky = 3;
constexpr int32_t always = 4;
constexpr float ratio_weight = 0.5f;

// What a call for curves leaves: curves if the decision was yes, and scores if the picture was judged.
struct Outcome {
    FeaturesPtr features;
    TileTrcPtr curves;
};

Outcome decide(ColorImage *image, float score, int32_t configuration, int32_t keep_scoring) {
    FeaturesPtr features(KoLocalContrastEnhancementNew(curve_size, grid, grid));
    TileTRC *curves = nullptr;
    if (features) {
        features->keepScoring = keep_scoring;
        KoLocalContrastEnhancementGetNewTRCsTune(features.get(), image, max_gain, strength, limit_fraction, bilateral_levels,
                                                 score, configuration, &curves);
    }
    return {std::move(features), TileTrcPtr(curves)};
}

TileTrcPtr compute_curves(Size size, const std::vector<uint8_t> &input) {
    const ColorImagePtr image = color_planes(size, input);
    return image ? decide(image.get(), no_score, always, 0).curves : nullptr;
}

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

TileTrcPtr photograph_curves() { return compute_curves(size_1_megapixel, photograph(size_1_megapixel, 3)); }

bool enhance(Size size, const std::vector<uint8_t> &input, std::vector<uint8_t> &output) {
    const TileTrcPtr curves = compute_curves(size, input);
    if (!curves) {
        return false;
    }
    const ApplyPtr apply(KoTileTRCApplyNew(curves.get(), ratio_weight, nullptr, size.width, size.height,
                                           KO_BYTE_LAYOUT_INTERLEAVED, KO_COLORSPACE_RGB));
    return apply && KoTileTRCApplyToByteChunk(apply.get(), size.height, input.data(), output.data()) == KO_OK;
}

} // namespace ko_bench
