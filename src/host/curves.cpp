// The float planes are the bulk of the memory: whoever makes curves lets go of image and record before applying them.
#include "curves.h"

#include <algorithm>
#include <string>

namespace host {

namespace {

constexpr uint64_t chunk_rows = 64;

int32_t space_of(const codec::Picture &picture) { return picture.channels == 1 ? KO_COLORSPACE_GRAY : KO_COLORSPACE_RGB; }

std::string shown(const Grid &grid) { return std::to_string(grid.columns) + "x" + std::to_string(grid.rows); }

} // namespace

ColorImagePtr image_of(const codec::Picture &picture) {
    ColorImagePtr image(KoColorImageNewFromByteArray(picture.width, picture.height, space_of(picture), picture.pixels.get(),
                                                     KO_BYTE_LAYOUT_INTERLEAVED));
    check(image != nullptr, "the picture cannot be handed over");
    return image;
}

FeaturesPtr make_features(const Tuning &tuning, const Grid &grid) {
    FeaturesPtr features(KoLocalContrastEnhancementNew(tuning.curve_size, grid.columns, grid.rows));
    check(features != nullptr, "the enhancement cannot be set up");
    return features;
}

TileTrcPtr make_curves(LocalContrastEnhancementImageFeatures &features, ColorImage &image, const Tuning &tuning,
                       const Judging &judging) {
    TileTRC *curves = nullptr;
    const int32_t status =
        KoLocalContrastEnhancementGetNewTRCsTune(&features, &image, tuning.max_gain, tuning.strength, tuning.limit,
                                                 tuning.levels, judging.score, static_cast<int32_t>(judging.policy), &curves);
    TileTrcPtr owner(curves);
    check(status == KO_OK, "the curves cannot be made");
    return owner;
}

// Several tiles in a direction need two pixels each.
Grid fitting_grid(const Grid &wanted, const codec::Picture &picture, codec::Notices &notices) {
    const auto strips = [](uint64_t most, uint64_t pixels) { return std::min(most, std::max(pixels / 2, uint64_t{1})); };
    const Grid grid = {strips(wanted.columns, picture.width), strips(wanted.rows, picture.height)};
    if (grid.columns != wanted.columns || grid.rows != wanted.rows) {
        notices.push_back("grid " + shown(wanted) + " reduced to " + shown(grid) + " for so small a picture");
    }
    return grid;
}

bool stays(const codec::Picture &picture, const Grid &grid) {
    return picture.channels == 1 && grid.columns == 1 && grid.rows == 1;
}

void apply_curves(codec::Picture &picture, const TileTRC &curves, float ratio, const RowsDone &rows_done) {
    const ApplyPtr apply(KoTileTRCApplyNew(&curves, ratio, nullptr, picture.width, picture.height, KO_BYTE_LAYOUT_INTERLEAVED,
                                           space_of(picture)));
    check(apply != nullptr, "the curves cannot be applied");
    for (uint64_t row = 0; row < picture.height; row += chunk_rows) {
        const uint64_t rows = std::min(chunk_rows, picture.height - row);
        uint8_t *bytes = picture.pixels.get() + row * picture.row_bytes();
        check(KoTileTRCApplyToByteChunk(apply.get(), rows, bytes, bytes) == KO_OK, "the curves cannot be applied");
        rows_done(static_cast<double>(row + rows) / picture.height);
    }
}

} // namespace host
