// The gain curve: how much a pixel is raised over a background of some level. Shadows are raised by the largest gain up to the
// knee, from there by a hyperbola that falls to 1 at the limit. All in single precision.
#include "alloc.h"
#include "lce.h"

namespace ko {

namespace {

// Guards the division.
constexpr float least_background = 3.0f;

inline float gain(const Features &curve, float background) {
    const float floored = background > least_background ? background : least_background;
    const float between = curve.gainStrength / floored + curve.gainOffset;
    const float below_limit = background < curve.gainKnee ? curve.maxGain : between;
    return background < curve.gainLimit ? below_limit : 1.0f;
}

} // namespace

void set_gain_curve(Features *features, float max_gain, float strength, float limit_fraction) {
    features->maxGain = max_gain;
    features->gainStrength = strength;
    features->gainLimit = limit_fraction * 255.0f;
    features->gainOffset = 1.0f - strength / features->gainLimit;
    features->gainKnee = strength / (max_gain - features->gainOffset);
}

int32_t make_enhanced(const Features *features, const RealImage *image, const RealImage *background, RealImage **enhanced) {
    const int32_t status = _KoRealImageApplyFunctionGetResult(image, enhanced);
    if (status != KO_OK) {
        return status;
    }
    const Features &curve = *features;
    for (uint64_t y = 0; y < image->height; ++y) {
        const float *in = image->rows[y];
        const float *smooth = background->rows[y];
        float *out = (*enhanced)->rows[y];
        for (uint64_t x = 0; x < image->width; ++x) {
            out[x] = in[x] * gain(curve, smooth[x]);
        }
    }
    return KO_OK;
}

} // namespace ko
