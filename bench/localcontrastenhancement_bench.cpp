#include "localcontrastenhancement_bench.h"

namespace ko_bench {

namespace {

constexpr uint64_t curve_size = 256;
constexpr uint64_t grid = 8;
constexpr float max_gain = 3.0f;
constexpr float strength = 40.0f;
constexpr float limit_fraction = 0.6275f;
constexpr uint64_t bilateral_levels = 5;
constexpr float no_score = -1.0f;
constexpr int32_t always = 4;
constexpr float ratio_weight = 0.5f;

TileTrcPtr compute_curves(Size size, const std::vector<uint8_t> &input) {
    const ColorImagePtr image(
        KoColorImageNewFromByteArray(size.width, size.height, KO_COLORSPACE_RGB, input.data(), KO_BYTE_LAYOUT_INTERLEAVED));
    const FeaturesPtr features(KoLocalContrastEnhancementNew(curve_size, grid, grid));
    TileTRC *curves = nullptr;
    if (image && features) {
        KoLocalContrastEnhancementGetNewTRCsTune(features.get(), image.get(), max_gain, strength, limit_fraction,
                                                 bilateral_levels, no_score, always, &curves);
    }
    return TileTrcPtr(curves);
}

void enhancement(benchmark::State &state, Size size) {
    const std::vector<uint8_t> input = photograph(size, 3);
    std::vector<uint8_t> output(input.size());
    const Mark mark{Measure::nanoseconds_per_pixel, 150.0, true};
    measure(state, {size.pixels(), 3, 3}, mark, [&] { return enhance(size, input, output); });
}

BENCHMARK_CAPTURE(enhancement, 1, size_1_megapixel)->Name("whole enhancement 1 MP")->Apply(rounds<15>);
BENCHMARK_CAPTURE(enhancement, 4, size_4_megapixels)->Name("whole enhancement 4 MP")->Apply(rounds<7>);
BENCHMARK_CAPTURE(enhancement, 16, size_16_megapixels)->Name("whole enhancement 16 MP")->Apply(rounds<3>);

} // namespace

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
