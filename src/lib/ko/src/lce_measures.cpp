// The three measures of the judgement, on 8 by 8 blocks: detail gained, entropy of the dark tones, noise where the luminance is
// flat. They run from the cheapest to the dearest, and each only while some configuration is left.
#include <cmath>
#include <limits>

#include "alloc.h"
#include "bilateral.h"
#include "ko/blockapply.h"
#include "ko/convolution.h"
#include "ko/histogram.h"
#include "ko/kernel.h"
#include "ko/kernelgaussian.h"
#include "lce.h"
#include "matrix.h"
#include "report.h"

namespace ko {

namespace {

constexpr uint32_t blocks = 8;

// The background of the judgement.
constexpr float background_sigma = 4.0f;
constexpr float background_truncation = 1.75f;

// Entropy: the dark tones are these bins of 256, and a block with hardly any of them has a fixed value over every limit.
constexpr uint32_t dark_bins = 160;
constexpr double least_dark_share = 0.10000000149011612;
constexpr float entropy_of_bright_block = 4.163f;

// Noise: chroma is rough above this, luminance flat below it.
constexpr float roughness_limit = 3.0f;
constexpr float flatness_limit = 3.0f;

constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();

// Pixels of a block; one that is 0 pixels wide or high is not walked.
uint64_t pixels_of(const RealImageLineIterator *block) { return block->width * block->height; }

// ---- detail

// Sums of values and of their squares.
struct Spread {
    double sum = 0.0;
    double squares = 0.0;

    void add(float value) {
        const double wide = static_cast<double>(value);
        sum += wide;
        squares += wide * wide;
    }

    // The sample standard deviation. A radicand that rounding took below 0 counts as 0.
    double deviation(double count) const {
        const double variance = (squares - sum * sum / count) / (count - 1.0);
        return std::sqrt(variance < 0.0 ? 0.0 : variance);
    }
};

// The spread about the background after the enhancement, less that before it.
float KoLceBlockDetail(void *, RealImageLineIterator *luminance, RealImageLineIterator *enhanced,
                       RealImageLineIterator *background, RealImageLineIterator *enhanced_background) {
    const uint64_t pixels = pixels_of(luminance);
    if (pixels < 2) {
        return not_a_number;
    }
    Spread before;
    Spread after;
    while (KoRealImageLineIteratorHasNext(luminance)) {
        const float *a = KoRealImageLineIteratorNext(luminance);
        const float *b = KoRealImageLineIteratorNext(enhanced);
        const float *c = KoRealImageLineIteratorNext(background);
        const float *d = KoRealImageLineIteratorNext(enhanced_background);
        for (uint64_t x = 0; x < luminance->width; ++x) {
            before.add(a[x] - c[x]);
            after.add(b[x] - d[x]);
        }
    }
    const double count = static_cast<double>(pixels);
    return static_cast<float>(after.deviation(count) - before.deviation(count));
}

// ---- entropy

float dark_entropy(const Histogram *histogram) {
    uint64_t dark = 0;
    for (uint32_t bin = 0; bin < dark_bins; ++bin) {
        dark += KoHistogramGetValue(histogram, bin);
    }
    const double sum = static_cast<double>(dark);
    if (!(sum > least_dark_share * KoHistogramGetNumPixels(histogram))) {
        return entropy_of_bright_block;
    }
    double entropy = 0.0;
    for (uint32_t bin = 0; bin < dark_bins; ++bin) {
        const uint32_t count = KoHistogramGetValue(histogram, bin);
        if (count != 0) {
            const double share = count / sum;
            entropy -= share * std::log(share);
        }
    }
    return static_cast<float>(entropy);
}

// data is the status of the stage: a histogram that cannot be allocated is reported there.
float KoLceBlockEntropy(void *data, RealImageLineIterator *block) {
    if (pixels_of(block) == 0) {
        return entropy_of_bright_block;
    }
    const Owned<Histogram, KoHistogramDelete> histogram(KoHistogramNewFromSubImage(256, 0.0f, 255.0f, block));
    if (!histogram) {
        *static_cast<int32_t *>(data) = KoErrorGetLastError();
        return not_a_number;
    }
    return dark_entropy(histogram.get());
}

// ---- noise

// The mean roughness of the chroma where the luminance is flat.
float KoLceBlockNoise(void *, RealImageLineIterator *gradient, RealImageLineIterator *laplacian) {
    const uint64_t pixels = pixels_of(gradient);
    if (pixels == 0) {
        return not_a_number;
    }
    float sum = 0.0f;
    while (KoRealImageLineIteratorHasNext(gradient)) {
        const float *steep = KoRealImageLineIteratorNext(gradient);
        const float *rough = KoRealImageLineIteratorNext(laplacian);
        for (uint64_t x = 0; x < gradient->width; ++x) {
            const float roughness = std::fabs(rough[x]);
            if (steep[x] < flatness_limit && roughness > roughness_limit) {
                sum += roughness;
            }
        }
    }
    return sum / static_cast<float>(pixels);
}

// A derivative of a Gaussian, 13 values downward and the same across.
int32_t make_derivatives(RealImage **vertical, RealImage **horizontal) {
    constexpr float difference[] = {1.0f, 0.0f, -1.0f};
    const OwnedImage row(KoRealImageNewFromFloatArray(3, 1, difference));
    const OwnedImage gaussian(KoKernelNewGaussian(1, 11, 2.0f));
    if (!row || !gaussian) {
        return KoErrorGetLastError();
    }
    const int32_t status = KoConvolutionRealImageVector(gaussian.get(), row.get(), vertical);
    return status == KO_OK ? KoRealImageTranspose(*vertical, horizontal) : status;
}

int32_t make_laplacian(const RealImage *chroma, RealImage **result) {
    const OwnedImage kernel(KoKernelNewLaplacian(0.2f));
    return kernel ? KoKernelNewRealImage(kernel.get(), chroma, result) : KoErrorGetLastError();
}

// |gx| + |gy|. The sum of two floats rounds to the same float from double precision as from single.
int32_t make_gradient(const RealImage *luminance, RealImage **result) {
    OwnedImage vertical;
    OwnedImage horizontal;
    int32_t status = make_derivatives(vertical.receive(), horizontal.receive());
    if (status != KO_OK) {
        return status;
    }
    OwnedImage gy;
    status = KoKernelNewRealImage(vertical.get(), luminance, gy.receive());
    if (status != KO_OK) {
        return status;
    }
    status = KoKernelNewRealImage(horizontal.get(), luminance, result);
    if (status != KO_OK) {
        return status;
    }
    for (uint64_t y = 0; y < luminance->height; ++y) {
        const float *down = gy->rows[y];
        float *gradient = (*result)->rows[y];
        for (uint64_t x = 0; x < luminance->width; ++x) {
            gradient[x] = std::fabs(gradient[x]) + std::fabs(down[x]);
        }
    }
    return KO_OK;
}

int32_t KoLceComputeNoiseScores(Features *features) {
    OwnedImage laplacian;
    OwnedImage gradient;
    int32_t status = make_laplacian(features->chroma, laplacian.receive());
    if (status == KO_OK) {
        status = make_gradient(features->luminance, gradient.receive());
    }
    if (status != KO_OK) {
        return status;
    }
    return KoBlockApplyFunctionTo2RealImage(blocks, blocks, KoLceBlockNoise, features, gradient.get(), laplacian.get(),
                                            &features->noiseScores);
}

// ---- the cascade

// How many blocks fail a measure; a score that is not a number fails none.
template <class Fails> uint64_t count_blocks(const float *scores, Fails fails) {
    uint64_t count = 0;
    for (uint32_t i = 0; scores != nullptr && i < blocks * blocks; ++i) {
        count += fails(scores[i]);
    }
    return count;
}

// The images that the judgement looks at beside luminance and chroma.
struct Pictures {
    OwnedImage background;
    OwnedImage enhanced;
    OwnedImage enhanced_background;
};

int32_t score_detail(Features *features, const Pictures &pictures) {
    const int32_t status = KoBlockApplyFunctionTo4RealImage(blocks, blocks, KoLceBlockDetail, nullptr, features->luminance,
                                                            pictures.enhanced.get(), pictures.background.get(),
                                                            pictures.enhanced_background.get(), &features->detailScores);
    features->dmValues.lowDetailBlocks =
        count_blocks(features->detailScores, [=](float score) { return score < features->detailThreshold; });
    return status;
}

int32_t score_entropy(Features *features) {
    int32_t block_status = KO_OK;
    const int32_t status = KoBlockApplyFunctionTo1RealImage(blocks, blocks, KoLceBlockEntropy, &block_status,
                                                            features->luminance, &features->entropyScores);
    features->dmValues.lowEntropyBlocks =
        count_blocks(features->entropyScores, [=](float score) { return score < features->entropyThreshold; });
    return status != KO_OK ? status : block_status;
}

int32_t score_noise(Features *features) {
    const int32_t status = KoLceComputeNoiseScores(features);
    features->dmValues.noisyBlocks =
        count_blocks(features->noiseScores, [=](float score) { return score > features->noiseThreshold; });
    return status;
}

// Ends a stage: the configurations that it rules out go, and a stage that failed ends the enhancement. True if the next is to
// run.
bool go_on(Features *features, int32_t status, DecisionConfigurationList *configurations) {
    KoLceFilterConfigurations(features, configurations);
    if (status != KO_OK) {
        features->proceed = 0;
        return false;
    }
    return features->proceed != 0 || features->keepScoring != 0;
}

int32_t KoLceScoreImage(Features *features, const Pictures &pictures, DecisionConfigurationList *configurations) {
    int32_t status = score_detail(features, pictures);
    if (!go_on(features, status, configurations)) {
        return status;
    }
    status = score_entropy(features);
    if (!go_on(features, status, configurations) || features->chroma == nullptr) {
        return status;
    }
    status = score_noise(features);
    go_on(features, status, configurations);
    return status;
}

// spare receives a work plane of the filter, which the next image may reuse.
int32_t make_background(const RealImage *luminance, uint64_t blf_levels, bool bilateral, RealImage **background,
                        RealImage **spare) {
    int32_t status = KO_OK;
    if (bilateral) {
        status = filter_bilateral(luminance, background, blf_levels, spare);
    } else {
        const Owned<KernelGaussian, KoKernelGaussianDelete> kernel(
            KoKernelGaussianNewTune(background_sigma, background_truncation, koLceGaussianMode));
        if (!kernel) {
            return KoErrorGetLastError();
        }
        status = KoKernelGaussianConvolution(kernel.get(), luminance, background);
    }
    return status != KO_OK || *background != nullptr ? status : KoErrorGetLastError();
}

int32_t make_pictures(const Features *features, uint64_t blf_levels, bool bilateral, Pictures *pictures) {
    const RealImage *luminance = features->luminance;
    int32_t status =
        make_background(luminance, blf_levels, bilateral, pictures->background.receive(), pictures->enhanced.receive());
    if (status == KO_OK) {
        status = make_enhanced(features, luminance, pictures->background.get(), pictures->enhanced.receive());
    }
    if (status == KO_OK) {
        status = make_enhanced(features, pictures->background.get(), pictures->background.get(),
                               pictures->enhanced_background.receive());
    }
    return status;
}

} // namespace

int32_t KoLceComputeFeatures(Features *features, uint64_t blf_levels, DecisionConfigurationList *configurations,
                             bool *images_kept) {
    const bool bilateral = koLceBackgroundIsBLF != 0;
    Pictures pictures;
    int32_t status = make_pictures(features, blf_levels, bilateral, &pictures);
    if (status != KO_OK) {
        features->proceed = 0;
        return status;
    }
    status = KoLceScoreImage(features, pictures, configurations);
    *images_kept = bilateral;
    if (bilateral) {
        features->background = pictures.background.release();
        features->enhanced = pictures.enhanced.release();
    }
    return status;
}

} // namespace ko
