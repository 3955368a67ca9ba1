// The float planes take up most of the memory: code that makes curves frees image and record before it applies them.
#include "kohost/curves.h"

#include <algorithm>

#include "kohost/slope.h"

namespace kohost {

namespace {

int32_t space_of(uint32_t channels) { return channels == 1 ? KO_COLORSPACE_GRAY : KO_COLORSPACE_RGB; }

} // namespace

ko::ColorImagePtr image_of(const Pixels &picture) {
    ko::ColorImagePtr image(KoColorImageNewFromByteArray(picture.size.width, picture.size.height, space_of(picture.channels),
                                                         picture.bytes, KO_BYTE_LAYOUT_INTERLEAVED));
    ko::check(image != nullptr, "the picture cannot be passed to the library");
    return image;
}

ko::FeaturesPtr make_features(const Tuning &tuning, const Grid &grid) {
    ko::FeaturesPtr features(KoLocalContrastEnhancementNew(tuning.curve_size, grid.columns, grid.rows));
    ko::check(features != nullptr, "the enhancement cannot be set up");
    return features;
}

ko::TileTRCPtr make_curves(LocalContrastEnhancementImageFeatures &features, ColorImage &image, const Tuning &tuning,
                           const Judging &judging) {
    TileTRC *curves = nullptr;
    const int32_t status =
        KoLocalContrastEnhancementGetNewTRCsTune(&features, &image, tuning.max_gain, tuning.strength, tuning.limit,
                                                 tuning.levels, judging.score, static_cast<int32_t>(judging.policy), &curves);
    ko::TileTRCPtr owner(curves);
    ko::check(status == KO_OK, "the curves cannot be made");
    return owner;
}

Grid fitting_grid(const Grid &wanted, Size picture) {
    const auto strips = [](uint64_t most, uint64_t pixels) { return std::min(most, std::max(pixels / 2, uint64_t{1})); };
    return {strips(wanted.columns, picture.width), strips(wanted.rows, picture.height)};
}

ko::TileTRCPtr fit_curves(const Pixels &picture, const Tuning &tuning, const Grid &grid) {
    KoStatusClear();
    const ko::ColorImagePtr image = image_of(picture);
    const ko::FeaturesPtr features = make_features(tuning, grid);
    ko::TileTRCPtr curves = make_curves(*features, *image, tuning, {Policy::always, no_score});
    ko::check(curves != nullptr, "the curves cannot be made");
    if (const uint32_t limit = tuning.slope_limit(); limit > 0) {
        limit_slope(*curves, limit, features->luminance);
    }
    return curves;
}

bool stays(uint32_t channels, const Grid &grid) { return channels == 1 && grid.columns == 1 && grid.rows == 1; }

Application::Application(const TileTRC &curves, float ratio, Size picture, uint32_t channels)
    : apply_(KoTileTRCApplyNew(&curves, ratio, nullptr, picture.width, picture.height, KO_BYTE_LAYOUT_INTERLEAVED,
                               space_of(channels))) {
    ko::check(apply_ != nullptr, "the curves cannot be applied");
}

void Application::apply(uint32_t rows, uint8_t *pixels) {
    ko::check(KoTileTRCApplyToByteChunk(apply_.get(), rows, pixels, pixels) == KO_OK, "the curves cannot be applied");
}

} // namespace kohost
