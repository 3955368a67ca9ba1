// The judgement of a picture in its plainest form: the three measures of each block, and the decision over them.
#ifndef KO_TESTS_REFERENCE_JUDGEMENT_H
#define KO_TESTS_REFERENCE_JUDGEMENT_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

#include "awkward_floats.h"
#include "enhancement.h"
#include "reference_bilateralfilter.h"
#include "reference_enhancement.h"
#include "reference_kernel.h"

namespace ko_test {

// The measures.

enum class Background { recursive, finite, bilateral };

inline Plane reference_background(const Plane &luminance, Background kind, uint64_t levels) {
    if (luminance.pixels.empty()) {
        return luminance;
    }
    switch (kind) {
    case Background::recursive:
        return reference_recursive(luminance, 4.0f);
    case Background::finite:
        return reference_finite(luminance, reference_coefficients(4.0f, 1.75f));
    default:
        return reference_bilateral(luminance, levels);
    }
}

constexpr uint64_t judged_blocks = 8;

// Calls measure with the indices of each block's pixels, row by row; the remainders of the division are in no block.
template <class Measure> std::vector<float> measure_blocks(const Plane &plane, Measure measure) {
    const uint64_t width = plane.width / judged_blocks;
    const uint64_t height = plane.height / judged_blocks;
    std::vector<float> scores;
    for (uint64_t block = 0; block < judged_blocks * judged_blocks; ++block) {
        std::vector<size_t> block_pixels;
        for (uint64_t y = 0; y < height; ++y) {
            for (uint64_t x = 0; x < width; ++x) {
                block_pixels.push_back((block / judged_blocks * height + y) * plane.width + block % judged_blocks * width + x);
            }
        }
        scores.push_back(measure(block_pixels));
    }
    return scores;
}

// The sample standard deviation of a - b: single differences, double sums.
inline double deviation_of_difference(const Plane &a, const Plane &b, const std::vector<size_t> &block) {
    double sum = 0.0;
    double squares = 0.0;
    for (const size_t i : block) {
        const float difference = a.pixels[i] - b.pixels[i];
        sum += static_cast<double>(difference);
        squares += static_cast<double>(difference) * static_cast<double>(difference);
    }
    const auto n = static_cast<double>(block.size());
    const double radicand = squares - sum * sum / n;
    return std::sqrt((radicand < 0.0 ? 0.0 : radicand) / (n - 1.0));
}

inline std::vector<float> reference_detail(const Plane &luminance, Background kind, const Gain &gain) {
    const Plane background = reference_background(luminance, kind, gain.levels);
    const Plane enhanced{luminance.width, luminance.height, reference_enhanced(luminance, background, gain)};
    const Plane enhanced_background{luminance.width, luminance.height, reference_enhanced(background, background, gain)};
    return measure_blocks(luminance, [&](const std::vector<size_t> &block) {
        if (block.empty()) {
            return not_a_number;
        }
        return static_cast<float>(deviation_of_difference(enhanced, enhanced_background, block) -
                                  deviation_of_difference(luminance, background, block));
    });
}

constexpr float hardly_any_dark_tones = 4.163000106811523f;

// The bin of a value among 256 over 0 to 255.
inline size_t reference_bin(float value) {
    const double rounded = static_cast<double>((value - 0.0f) * 1.0f) + 0.5;
    if (!(rounded > -2147483649.0 && rounded < 2147483648.0)) {
        return 0;
    }
    return static_cast<size_t>(std::clamp(static_cast<int32_t>(rounded), 0, 255));
}

inline std::vector<float> reference_entropy(const Plane &luminance) {
    return measure_blocks(luminance, [&](const std::vector<size_t> &block) {
        std::array<uint32_t, 256> bins{};
        for (const size_t i : block) {
            ++bins[reference_bin(luminance.pixels[i])];
        }
        uint32_t dark = 0;
        for (size_t bin = 0; bin < 160; ++bin) {
            dark += bins[bin];
        }
        if (!(dark > 0.10000000149011612 * static_cast<double>(block.size()))) {
            return hardly_any_dark_tones;
        }
        double sum = 0.0;
        for (size_t bin = 0; bin < 160; ++bin) {
            if (bins[bin] != 0) {
                const double p = static_cast<double>(bins[bin]) / static_cast<double>(dark);
                sum += p * std::log(p);
            }
        }
        return static_cast<float>(-sum);
    });
}

inline Plane reference_gradient(const Plane &luminance) {
    const Plane gaussian = reference_gaussian_kernel(1, 11, 2.0f);
    const std::vector<float> derivative = reference_convolution(gaussian.pixels, {1.0f, 0.0f, -1.0f});
    const Plane down = reference_correlation({1, 13, derivative}, luminance);
    const Plane across = reference_correlation({13, 1, derivative}, luminance);
    Plane gradient{luminance.width, luminance.height, {}};
    for (size_t i = 0; i < luminance.pixels.size(); ++i) {
        gradient.pixels.push_back(static_cast<float>(std::fabs(static_cast<double>(across.pixels[i])) +
                                                     std::fabs(static_cast<double>(down.pixels[i]))));
    }
    return gradient;
}

inline std::vector<float> reference_noise(const Plane &luminance, const Plane &chroma) {
    const Plane roughness = reference_correlation(reference_laplacian(0.2f), chroma);
    const Plane gradient = reference_gradient(luminance);
    return measure_blocks(luminance, [&](const std::vector<size_t> &block) {
        float sum = 0.0f;
        for (const size_t i : block) {
            const float rough = std::fabs(roughness.pixels[i]);
            if (gradient.pixels[i] < 3.0f && rough > 3.0f) {
                sum += rough;
            }
        }
        return block.empty() ? not_a_number : sum / static_cast<float>(block.size());
    });
}

// All that can be measured of a picture; a GRAY one has no noise.
struct Measures {
    std::vector<float> detail, entropy;
    std::optional<std::vector<float>> noise;
};

inline Measures reference_measures(const ColorImage *picture, Background kind, const Gain &gain) {
    const Plane luminance = reference_luminance(picture);
    Measures measures{reference_detail(luminance, kind, gain), reference_entropy(luminance), std::nullopt};
    if (picture->color_space != KO_COLORSPACE_GRAY) {
        const ColorImagePtr yiq(KoColorImageNewFromColorImage(KO_COLORSPACE_YIQ, picture));
        measures.noise = reference_noise(luminance, plane_of(&yiq->planes[2]));
    }
    return measures;
}

inline uint64_t count_below(const std::vector<float> &scores, float threshold) {
    return static_cast<uint64_t>(std::count_if(scores.begin(), scores.end(), [=](float score) { return score < threshold; }));
}

inline uint64_t count_above(const std::vector<float> &scores, float threshold) {
    return static_cast<uint64_t>(std::count_if(scores.begin(), scores.end(), [=](float score) { return score > threshold; }));
}

// The decision.

struct Rules {
    float score = -1.0f;
    int32_t configuration = 2;
    int32_t keep_scoring = 0;
    float detail_threshold = 5.6f;
    float noise_threshold = 1.0f;
    float entropy_threshold = 2.45f;
    std::array<DecisionMechanismThreshold, 4> limits{{{}, {0.19f, 37, 62, 23}, {0.35f, 23, 63, 20}, {0.64f, 26, 63, 6}}};
};

enum class Stage { score, detail, entropy, noise };

struct Judgement {
    DecisionMechanismThreshold values{-1.0f, not_measured, not_measured, not_measured};
    bool passed = true;
    Stage last = Stage::score;                // the last stage that ran
    std::optional<Stage> fell = std::nullopt; // the stage that turned the picture down
};

inline bool keeps_within(const DecisionMechanismThreshold &values, const DecisionMechanismThreshold &limits) {
    return (values.score == -1.0f || !(values.score > limits.score)) &&
           (values.lowDetailBlocks == not_measured || values.lowDetailBlocks <= limits.lowDetailBlocks) &&
           (values.lowEntropyBlocks == not_measured || values.lowEntropyBlocks <= limits.lowEntropyBlocks) &&
           (values.noisyBlocks == not_measured || values.noisyBlocks <= limits.noisyBlocks);
}

class Judge {
  public:
    Judge(const Measures &measures, const Rules &rules) : measures_(measures), rules_(rules) {
        judgement_.values.score = rules.score;
        for (int32_t k = 1; k <= rules.configuration; ++k) {
            left_.push_back(k);
        }
    }

    // Configurations 0 to 3, and negative ones.
    Judgement run() {
        if (rules_.configuration < 1) {
            judgement_.passed = false;
            return judgement_;
        }
        DecisionMechanismThreshold &values = judgement_.values;
        if (!goes_on_after(Stage::score)) {
            return judgement_;
        }
        values.lowDetailBlocks = count_below(measures_.detail, rules_.detail_threshold);
        if (!goes_on_after(Stage::detail)) {
            return judgement_;
        }
        values.lowEntropyBlocks = count_below(measures_.entropy, rules_.entropy_threshold);
        if (!goes_on_after(Stage::entropy) || !measures_.noise) {
            return judgement_;
        }
        values.noisyBlocks = count_above(*measures_.noise, rules_.noise_threshold);
        goes_on_after(Stage::noise);
        return judgement_;
    }

  private:
    bool goes_on_after(Stage stage) {
        judgement_.last = stage;
        std::erase_if(left_,
                      [this](int32_t k) { return !keeps_within(judgement_.values, rules_.limits[static_cast<size_t>(k)]); });
        if (left_.empty() && judgement_.passed) {
            judgement_.passed = false;
            judgement_.fell = stage;
        }
        return judgement_.passed || rules_.keep_scoring != 0;
    }

    const Measures &measures_;
    const Rules &rules_;
    std::vector<int32_t> left_;
    Judgement judgement_;
};

} // namespace ko_test

#endif
