// Local contrast enhancement: the record, the road of a picture from judgement to curves, and the measures in print. The stages
// of the road are in files of their own (lce.h).
#include "lce.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "alloc.h"
#include "report.h"
#include "textfile.h"

int32_t ko::koLceBackgroundIsBLF = 0;
int32_t ko::koLceGaussianMode = 1;

namespace {

using namespace ko;

constexpr uint64_t score_columns = 8;
constexpr uint64_t score_count = 64;

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

// ---- the road of one picture

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

// From the images on; configurations is null for a picture that is not to be judged.
int32_t enhance(Features *features, ColorImage *image, uint64_t blf_levels, DecisionConfigurationList *configurations,
                TileTRC **tile_trc) {
    if (features->numBlocksX == 0 || features->numBlocksY == 0 || KoColorImageGetImage(image, 0) == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    int32_t status = choose_luminance(features, image);
    bool images_kept = false;
    if (status == KO_OK && configurations != nullptr) {
        status = KoLceComputeFeatures(features, blf_levels, configurations, &images_kept);
    }
    if (status != KO_OK || features->proceed == 0) {
        return status;
    }
    return KoLceBuildTileTRC(features, blf_levels, images_kept, tile_trc);
}

bool has_limits(int32_t configuration) { return configuration >= first_with_limits && configuration <= last_with_limits; }

// ---- the measures in print

// Calls print(column) for the eight columns and ends the line.
template <class PrintCell> void print_row(FILE *stream, PrintCell print) {
    for (uint64_t column = 0; column < score_columns; ++column) {
        print(column);
    }
    std::fputc('\n', stream);
}

void print_heads(FILE *stream, const char *left, const char *right) {
    std::fprintf(stream, "%2s| ", "");
    print_row(stream, [=](uint64_t) { std::fprintf(stream, "%4s %4s | ", left, right); });
}

void save_line(FILE *stream, const float *scores) {
    for (uint64_t i = 0; scores != nullptr && i < score_count; ++i) {
        std::fprintf(stream, i == 0 ? "%f" : ",%f", static_cast<double>(scores[i]));
    }
    std::fputc('\n', stream);
}

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
    set_stock_limits(features);
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
    if (configuration > always_configuration) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    features->dmValues = {score, not_measured, not_measured, not_measured};
    features->proceed = 1;
    if (configuration <= disabled_configuration) {
        features->proceed = 0;
        return KO_OK;
    }
    DecisionConfigurationList configurations;
    const bool judged = configuration != always_configuration;
    if (judged) {
        list_configurations(features, configuration, &configurations);
        KoLceFilterConfigurations(features, &configurations);
        if (features->proceed == 0 && features->keepScoring == 0) {
            return KO_OK;
        }
    }
    set_gain_curve(features, max_gain, strength, limit_fraction);
    return enhance(features, image, blf_levels, judged ? &configurations : nullptr, tile_trc);
}

int32_t KoLocalContrastEnhancementPrintScores(const LocalContrastEnhancementImageFeatures *features, FILE *stream) {
    if (features->detailScores == nullptr || features->noiseScores == nullptr || features->entropyScores == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    std::fprintf(stream, "%2s| ", "");
    print_row(stream, [=](uint64_t i) { std::fprintf(stream, "%3s%3d%3s | ", "", static_cast<int>(i), ""); });
    print_heads(stream, "---", "DET");
    print_heads(stream, "NOI", "ENT");
    const auto print_pair = [=](double left, double right) { std::fprintf(stream, "%5.2f %5.2f|", left, right); };
    for (uint64_t row = 0; row < score_count; row += score_columns) {
        std::fputs("--+-", stream);
        print_row(stream, [=](uint64_t) { std::fputs("----------+-", stream); });
        std::fprintf(stream, "%2d|", static_cast<int>(row / score_columns));
        print_row(stream, [=](uint64_t i) { print_pair(0.0, static_cast<double>(features->detailScores[row + i])); });
        std::fprintf(stream, "%2s|", "");
        print_row(stream, [=](uint64_t i) {
            print_pair(static_cast<double>(features->noiseScores[row + i]),
                       static_cast<double>(features->entropyScores[row + i]));
        });
    }
    return KO_OK;
}

int32_t KoLocalContrastEnhancementSaveScores(const LocalContrastEnhancementImageFeatures *features, const char *path,
                                             int32_t overwrite) {
    File file;
    const int32_t status = open_for_writing(path, "w", overwrite, &file);
    if (status != KO_OK) {
        return status;
    }
    save_line(file.get(), features->detailScores);
    save_line(file.get(), features->noiseScores);
    save_line(file.get(), features->entropyScores);
    std::fflush(file.release()); // see "Streams that stay open" in docs/compatibility.md
    return KO_OK;
}
