// The gain curve and the images of the enhancement in their plainest form.
#ifndef KO_TESTS_REFERENCE_ENHANCEMENT_H
#define KO_TESTS_REFERENCE_ENHANCEMENT_H

#include <algorithm>
#include <vector>

#include "enhancement.h"
#include "reference_kernelgaussian.h"

namespace ko_test {

inline Plane plane_of(const RealImage *image) { return {image->width, image->height, pixels(image)}; }

// The curve between background and gain, all in single precision.
struct GainCurve {
    float max_gain, strength, limit, offset, knee;

    explicit GainCurve(const Gain &gain) : max_gain(gain.max_gain), strength(gain.strength) {
        limit = gain.limit_fraction * 255.0f;
        offset = 1.0f - strength / limit;
        knee = strength / (max_gain - offset);
    }

    float operator()(float background) const {
        if (!(background < limit)) {
            return 1.0f;
        }
        if (background < knee) {
            return max_gain;
        }
        return strength / std::max(background, 3.0f) + offset;
    }
};

// Each pixel of an image times the gain of the background there.
inline std::vector<float> reference_enhanced(const Plane &image, const Plane &background, const Gain &gain) {
    const GainCurve curve(gain);
    std::vector<float> enhanced;
    for (size_t i = 0; i < image.pixels.size(); ++i) {
        enhanced.push_back(image.pixels[i] * curve(background.pixels[i]));
    }
    return enhanced;
}

// The luminance that the enhancement must work on, found without it.
inline Plane reference_luminance(const ColorImage *image) {
    if (image->color_space == KO_COLORSPACE_GRAY) {
        return plane_of(&image->planes[0]);
    }
    const ColorImagePtr yiq(KoColorImageNewFromColorImage(KO_COLORSPACE_YIQ, image));
    return plane_of(&yiq->planes[0]);
}

} // namespace ko_test

#endif
