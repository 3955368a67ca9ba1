// From a picture's bytes to a grid of curves, and from the curves back to the bytes.
//
// The float planes are the bulk of the memory and are gone before the curves are applied. Most calls of the library report
// through the thread's status, some through it alone: it is cleared before a sequence and looked at after it.
#include "enhance.h"

#include <algorithm>
#include <string>

#include "library.h"

namespace host {

namespace {

constexpr int32_t configuration_always = 4;
constexpr float no_score = -1.0f;
constexpr uint64_t chunk_rows = 64;

void check(bool worked, const char *what) {
    if (!worked || KoErrorGetLastError() != KO_OK) {
        throw LibraryError(what);
    }
}

int32_t space_of(const codec::Picture &picture) { return picture.channels == 1 ? KO_COLORSPACE_GRAY : KO_COLORSPACE_RGB; }

std::string shown(const Grid &grid) { return std::to_string(grid.columns) + "x" + std::to_string(grid.rows); }

// Several tiles in a direction need two pixels each.
Grid fitting(const Grid &grid, const codec::Picture &picture) {
    const auto strips = [](uint64_t wanted, uint64_t pixels) { return std::min(wanted, std::max(pixels / 2, uint64_t{1})); };
    return {strips(grid.columns, picture.width), strips(grid.rows, picture.height)};
}

TileTrcPtr make_curves(const codec::Picture &picture, const Grid &grid, const Tuning &tuning) {
    const ColorImagePtr image(KoColorImageNewFromByteArray(picture.width, picture.height, space_of(picture),
                                                           picture.pixels.get(), KO_BYTE_LAYOUT_INTERLEAVED));
    check(image != nullptr, "the picture cannot be handed over");
    const FeaturesPtr features(KoLocalContrastEnhancementNew(tuning.curve_size, grid.columns, grid.rows));
    check(features != nullptr, "the enhancement cannot be set up");
    TileTRC *curves = nullptr;
    const int32_t status =
        KoLocalContrastEnhancementGetNewTRCsTune(features.get(), image.get(), tuning.max_gain, tuning.strength, tuning.limit,
                                                 tuning.levels, no_score, configuration_always, &curves);
    TileTrcPtr owner(curves);
    check(status == KO_OK, "the curves cannot be made");
    return owner;
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

} // namespace

Decision enhance(codec::Picture &picture, const Tuning &tuning, codec::Notices &notices, const RowsDone &rows_done) {
    KoStatusClear();
    const Grid grid = fitting(tuning.grid, picture);
    if (grid.columns != tuning.grid.columns || grid.rows != tuning.grid.rows) {
        notices.push_back("grid " + shown(tuning.grid) + " reduced to " + shown(grid) + " for so small a picture");
    }
    if (picture.channels == 1 && grid.columns == 1 && grid.rows == 1) {
        notices.push_back("a gray picture stays as it is under a grid of 1x1");
        return Decision::unchanged;
    }
    const TileTrcPtr curves = make_curves(picture, grid, tuning);
    if (curves == nullptr) {
        return Decision::unchanged;
    }
    apply_curves(picture, *curves, tuning.ratio, rows_done);
    return Decision::enhanced;
}

} // namespace host
