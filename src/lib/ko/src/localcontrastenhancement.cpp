// Local contrast enhancement: the record, the decision, and the distillation of a gain curve over a smooth background into one
// tone curve a tile.
#include "ko/localcontrastenhancement.h"

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "alloc.h"
#include "ko/bilateralfilter.h"
#include "matrix.h"
#include "report.h"

extern const char *const KoLceDecisionMechanismConfigName[5] = {"Disabled", "Conservative", "Default", "Risky", "Always"};

namespace {

using namespace ko;

using Features = LocalContrastEnhancementImageFeatures;

#define KO_AT(field, offset) (offsetof(Features, field) == (offset))
static_assert(sizeof(DecisionMechanismThreshold) == 32 && offsetof(DecisionMechanismThreshold, score) == 0 &&
              offsetof(DecisionMechanismThreshold, noisyBlocks) == 8 &&
              offsetof(DecisionMechanismThreshold, lowDetailBlocks) == 16 &&
              offsetof(DecisionMechanismThreshold, lowEntropyBlocks) == 24);
static_assert(sizeof(Features) == 4416 && KO_AT(trcSize, 0) && KO_AT(numBlocksX, 8) && KO_AT(numBlocksY, 16) &&
              KO_AT(yiqImage, 24) && KO_AT(luminance, 32) && KO_AT(enhanced, 40) && KO_AT(chroma, 48) &&
              KO_AT(background, 56) && KO_AT(gainStrength, 64) && KO_AT(maxGain, 68) && KO_AT(gainLimit, 72) &&
              KO_AT(gainKnee, 76) && KO_AT(gainOffset, 80) && KO_AT(detailThreshold, 84) && KO_AT(noiseThreshold, 88) &&
              KO_AT(entropyThreshold, 92) && KO_AT(detailScores, 96) && KO_AT(noiseScores, 104) && KO_AT(entropyScores, 112) &&
              KO_AT(dmValues, 120) && KO_AT(keepScoring, 152) && KO_AT(proceed, 156) && KO_AT(dmThresholds, 160) &&
              KO_AT(cubeRootTable, 320));
#undef KO_AT

// The configurations by number.
constexpr int32_t disabled = 0;
constexpr int32_t first_with_limits = 1;
constexpr int32_t last_with_limits = 3;
constexpr int32_t always = 4;

// The stock limits of the configurations with limits. The rows trade against each other: as the score's limit rises, that on
// blocks low in entropy falls.
constexpr DecisionMechanismThreshold stock_limits[] = {{0.19f, 37, 62, 23}, {0.35f, 23, 63, 20}, {0.64f, 26, 63, 6}};

constexpr uint64_t not_measured = UINT64_MAX;

// The background of the decision for the whole process, set by each Init that finds KOLCEFLAGS.
int32_t koLceBackgroundIsBLF = 0;
int32_t koLceGaussianMode = 1;

void read_flags() {
    const char *flags = std::getenv("KOLCEFLAGS");
    if (flags == nullptr) {
        return;
    }
    if (std::strstr(flags, "BACKGROUND:BLF") != nullptr) {
        koLceBackgroundIsBLF = 1;
    } else if (std::strstr(flags, "BACKGROUND:GaussFast") != nullptr) {
        koLceGaussianMode = 1;
        koLceBackgroundIsBLF = 0;
    } else if (std::strstr(flags, "BACKGROUND:GaussBest") != nullptr) {
        koLceGaussianMode = 0;
        koLceBackgroundIsBLF = 0;
    }
}

// ---- the gain curve

// Continuous at both ends: the hyperbola gives 1 at the limit and the largest gain at the knee. All in single precision.
void set_gain_curve(Features *features, float max_gain, float strength, float limit_fraction) {
    features->maxGain = max_gain;
    features->gainStrength = strength;
    features->gainLimit = limit_fraction * 255.0f;
    features->gainOffset = 1.0f - strength / features->gainLimit;
    features->gainKnee = strength / (max_gain - features->gainOffset);
}

inline float gain(const Features &curve, float background) {
    const float floored = background > 3.0f ? background : 3.0f;
    const float between = curve.gainStrength / floored + curve.gainOffset;
    const float below_limit = background < curve.gainKnee ? curve.maxGain : between;
    return background < curve.gainLimit ? below_limit : 1.0f;
}

// enhanced = image times the gain of background, pixel by pixel.
void apply_gain(const Features *features, const RealImage *image, const RealImage *background, RealImage *enhanced) {
    const Features &curve = *features;
    for (uint64_t y = 0; y < image->height; ++y) {
        const float *in = image->rows[y];
        const float *smooth = background->rows[y];
        float *out = enhanced->rows[y];
        for (uint64_t x = 0; x < image->width; ++x) {
            out[x] = in[x] * gain(curve, smooth[x]);
        }
    }
}

// ---- the tile stage

int32_t make_final_images(Features *features, uint64_t blf_levels) {
    const int32_t status = KoFilterBLFApplyToRealImage(features->luminance, &features->background, blf_levels);
    if (features->background == nullptr) {
        return status != KO_OK ? status : KoErrorGetLastError();
    }
    features->enhanced = nullptr;
    const int32_t made = _KoRealImageApplyFunctionGetResult(features->luminance, &features->enhanced);
    if (made != KO_OK) {
        return made;
    }
    apply_gain(features, features->luminance, features->background, features->enhanced);
    return KO_OK;
}

// Fits the curve of tile (x, y) and copies it into the grid. A fit that could not be made leaves the thread's status.
int32_t fit_tile(const Features *features, uint64_t x, uint64_t y, TileTRC *tile_trc) {
    const uint64_t width = features->luminance->width / features->numBlocksX;
    const uint64_t height = features->luminance->height / features->numBlocksY;
    RealImageLineIterator input;
    RealImageLineIterator target;
    KoRealImageLineIteratorInitSubImage(&input, features->luminance, x * width, y * height, width, height);
    KoRealImageLineIteratorInitSubImage(&target, features->enhanced, x * width, y * height, width, height);
    Owned<TRC, KoTRCDelete> curve(KoTRCNew(KoTileTRCGetSize(tile_trc)));
    if (!curve) {
        return KoErrorGetLastError();
    }
    KoTRCCompute(curve.get(), &input, &target);
    if (curve->array == nullptr && curve->size != 0) {
        return KoErrorGetLastError();
    }
    KoTileTRCSetTileFromTRC(tile_trc, x, y, curve.get()); // a grid handed in may be smaller: its own tiles are filled
    return KO_OK;
}

int32_t fit_tiles(const Features *features, TileTRC *tile_trc) {
    for (uint64_t y = features->numBlocksY; y-- > 0;) {
        for (uint64_t x = 0; x < features->numBlocksX; ++x) {
            const int32_t status = fit_tile(features, x, y, tile_trc);
            if (status != KO_OK) {
                return status;
            }
        }
    }
    return KO_OK;
}

int32_t KoLceBuildTileTRC(Features *features, uint64_t blf_levels, TileTRC **tile_trc) {
    int32_t status = make_final_images(features, blf_levels);
    if (status != KO_OK) {
        return status;
    }
    if (*tile_trc != nullptr) {
        return fit_tiles(features, *tile_trc);
    }
    Owned<TileTRC, KoTileTRCDelete> fresh(KoTileTRCNew(features->trcSize, features->numBlocksX, features->numBlocksY));
    if (!fresh || fresh->array == nullptr) {
        return KoErrorGetLastError();
    }
    status = fit_tiles(features, fresh.get());
    if (status == KO_OK) {
        *tile_trc = fresh.release();
    }
    return status;
}

// ---- the decision and the road of one picture

// Sets luminance and chroma: the caller's own plane for a GRAY picture, otherwise planes of a YIQ copy.
int32_t choose_luminance(Features *features, ColorImage *image) {
    features->yiqImage = nullptr;
    features->chroma = nullptr;
    if (KoColorImageGetColorSpace(image) == KO_COLORSPACE_GRAY) {
        features->luminance = KoColorImageGetImage(image, 0);
        return KO_OK;
    }
    features->yiqImage = KoColorImageNewFromColorImage(KO_COLORSPACE_YIQ, image);
    if (features->yiqImage == nullptr) {
        return KoErrorGetLastError();
    }
    features->luminance = KoColorImageGetImage(features->yiqImage, 0);
    features->chroma = KoColorImageGetImage(features->yiqImage, 2);
    return KO_OK;
}

int32_t enhance(Features *features, ColorImage *image, uint64_t blf_levels, TileTRC **tile_trc) {
    if (features->numBlocksX == 0 || features->numBlocksY == 0 || KoColorImageGetImage(image, 0) == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    const int32_t status = choose_luminance(features, image);
    return status == KO_OK ? KoLceBuildTileTRC(features, blf_levels, tile_trc) : status;
}

bool has_limits(int32_t configuration) { return configuration >= first_with_limits && configuration <= last_with_limits; }

} // namespace

LocalContrastEnhancementImageFeatures *KoLocalContrastEnhancementNew(uint64_t trc_size, uint64_t blocks_x, uint64_t blocks_y) {
    return make_object<Features>(
        "LocalContrastEnhancementImageFeatures",
        [=](Features *features) { return KoLocalContrastEnhancementInit(features, trc_size, blocks_x, blocks_y); },
        [](Features *) {});
}

int32_t KoLocalContrastEnhancementInit(LocalContrastEnhancementImageFeatures *features, uint64_t trc_size, uint64_t blocks_x,
                                       uint64_t blocks_y) {
    *features = {};
    features->trcSize = trc_size;
    features->numBlocksX = blocks_x;
    features->numBlocksY = blocks_y;
    features->detailThreshold = 5.6f;
    features->noiseThreshold = 1.0f;
    features->entropyThreshold = 2.45f;
    for (int32_t i = first_with_limits; i <= last_with_limits; ++i) {
        features->dmThresholds[i] = stock_limits[i - first_with_limits];
    }
    for (int i = 0; i < 1024; ++i) {
        features->cubeRootTable[i] = static_cast<float>(std::pow(i * 0.25, 0.3333333432674408));
    }
    read_flags();
    return KO_OK;
}

int32_t KoLocalContrastEnhancementFree(LocalContrastEnhancementImageFeatures *features) {
    if (features == nullptr) {
        return KO_OK;
    }
    KoColorImageDelete(features->yiqImage);
    KoRealImageDelete(features->enhanced);
    KoRealImageDelete(features->background);
    KoFree(features->detailScores);
    KoFree(features->noiseScores);
    KoFree(features->entropyScores);
    return KO_OK;
}

int32_t KoLocalContrastEnhancementDelete(LocalContrastEnhancementImageFeatures *features) {
    if (features != nullptr) {
        KoLocalContrastEnhancementFree(features);
        KoFree(features);
    }
    return KO_OK;
}

uint64_t KoLocalContrastEnhancementGetNumBlocksX(const LocalContrastEnhancementImageFeatures *features) {
    return features->numBlocksX;
}

uint64_t KoLocalContrastEnhancementGetNumBlocksY(const LocalContrastEnhancementImageFeatures *features) {
    return features->numBlocksY;
}

const char *KOLceFetchDMConfigName(int32_t index) { return KoLceDecisionMechanismConfigName[index]; }

DecisionMechanismThreshold *KoLocalContrastEnhancementGetDMThreshold(LocalContrastEnhancementImageFeatures *features,
                                                                     int32_t index) {
    if (!has_limits(index)) {
        KO_REPORT(KO_LEVEL_INTERNAL_ERROR, KO_ERR_INDEX_OUT_OF_BOUNDS, index, first_with_limits, last_with_limits);
        return nullptr;
    }
    return &features->dmThresholds[index];
}

int32_t KoLocalContrastEnhancementSetDecisionMechanismThreshold(LocalContrastEnhancementImageFeatures *features, int32_t index,
                                                                const DecisionMechanismThreshold *threshold) {
    DecisionMechanismThreshold *limits = KoLocalContrastEnhancementGetDMThreshold(features, index);
    if (limits == nullptr) {
        return KoErrorGetLastError();
    }
    *limits = *threshold;
    return KO_OK;
}

DecisionMechanismThreshold *KoLocalContrastEnhancementGetDMValues(LocalContrastEnhancementImageFeatures *features) {
    return &features->dmValues;
}

int32_t KoLocalContrastEnhancementGetNewTRCs(LocalContrastEnhancementImageFeatures *features, ColorImage *image,
                                             TileTRC **tile_trc) {
    return KoLocalContrastEnhancementGetNewTRCsTune(features, image, 3.0f, 40.0f, 0.6275f, 5, 0.4f, 2, tile_trc);
}

int32_t KoLocalContrastEnhancementGetNewTRCsTune(LocalContrastEnhancementImageFeatures *features, ColorImage *image,
                                                 float max_gain, float strength, float limit_fraction, uint64_t blf_levels,
                                                 float score, int32_t configuration, TileTRC **tile_trc) {
    if (configuration > always) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    features->dmValues = {score, not_measured, not_measured, not_measured};
    features->proceed = 1;
    if (configuration <= disabled) {
        features->proceed = 0;
        return KO_OK;
    }
    if (configuration != always) {
        features->proceed = 0;
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_VALUE, KOLceFetchDMConfigName(configuration), "Disabled, Always");
    }
    set_gain_curve(features, max_gain, strength, limit_fraction);
    return enhance(features, image, blf_levels, tile_trc);
}
