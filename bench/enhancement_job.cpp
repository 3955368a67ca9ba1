#include "enhancement_job.h"

#include <utility>

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

TileTRCPtr compute_curves(Size size, const std::vector<uint8_t> &input) {
    const ColorImagePtr image = color_planes(size, input);
    return image ? decide(image.get(), no_score, always, 0).curves : nullptr;
}

} // namespace

Outcome decide(ColorImage *image, float score, int32_t configuration, int32_t keep_scoring) {
    FeaturesPtr features(KoLocalContrastEnhancementNew(curve_size, grid, grid));
    TileTRC *curves = nullptr;
    if (features) {
        features->keepScoring = keep_scoring;
        KoLocalContrastEnhancementGetNewTRCsTune(features.get(), image, max_gain, strength, limit_fraction, bilateral_levels,
                                                 score, configuration, &curves);
    }
    return {std::move(features), TileTRCPtr(curves)};
}

TileTRCPtr photograph_curves() { return compute_curves(size_1_megapixel, photograph(size_1_megapixel, 3)); }

bool enhance(Size size, const std::vector<uint8_t> &input, std::vector<uint8_t> &output) {
    const TileTRCPtr curves = compute_curves(size, input);
    if (!curves) {
        return false;
    }
    const TileTRCApplyPtr apply(KoTileTRCApplyNew(curves.get(), ratio_weight, nullptr, size.width, size.height,
                                                  KO_BYTE_LAYOUT_INTERLEAVED, KO_COLORSPACE_RGB));
    return apply && KoTileTRCApplyToByteChunk(apply.get(), size.height, input.data(), output.data()) == KO_OK;
}

} // namespace ko_bench
