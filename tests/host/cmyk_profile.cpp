#include "cmyk_profile.h"

#include <cmath>
#include <memory>
#include <stdexcept>

#include <lcms2.h>

namespace ko_test {

namespace {

using Profile = std::unique_ptr<void, decltype([](void *profile) { cmsCloseProfile(profile); })>;
using Transform = std::unique_ptr<void, decltype([](void *transform) { cmsDeleteTransform(transform); })>;

void check(bool good) {
    if (!good) {
        throw std::runtime_error("no profile");
    }
}

cmsInt32Number lab_of(const cmsUInt16Number inks[], cmsUInt16Number lab[], void *to_lab) {
    std::array<cmsUInt16Number, 3> rgb;
    for (size_t c = 0; c < 3; ++c) {
        rgb[c] = static_cast<cmsUInt16Number>(std::lround((65535.0 - inks[c]) * (65535.0 - inks[3]) / 65535.0));
    }
    cmsDoTransform(to_lab, rgb.data(), lab, 1);
    return TRUE;
}

} // namespace

std::array<uint8_t, 3> rgb_of(const std::array<uint8_t, 4> &inks) {
    std::array<uint8_t, 3> rgb;
    for (size_t c = 0; c < 3; ++c) {
        rgb[c] = static_cast<uint8_t>(std::lround((255.0 - inks[c]) * (255.0 - inks[3]) / 255.0));
    }
    return rgb;
}

std::string cmyk_profile() {
    const Profile srgb(cmsCreate_sRGBProfile());
    const Profile lab(cmsCreateLab4Profile(nullptr));
    const Transform to_lab(
        cmsCreateTransform(srgb.get(), TYPE_RGB_16, lab.get(), TYPE_Lab_16, INTENT_PERCEPTUAL, cmsFLAGS_NOOPTIMIZE));
    const Profile profile(cmsCreateProfilePlaceholder(nullptr));
    check(srgb && lab && to_lab && profile);
    cmsSetProfileVersion(profile.get(), 4.3);
    cmsSetDeviceClass(profile.get(), cmsSigOutputClass);
    cmsSetColorSpace(profile.get(), cmsSigCmykData);
    cmsSetPCS(profile.get(), cmsSigLabData);
    cmsPipeline *pipeline = cmsPipelineAlloc(nullptr, 4, 3);
    cmsStage *table = cmsStageAllocCLut16bit(nullptr, 9, 4, 3, nullptr);
    check(pipeline != nullptr && table != nullptr);
    check(cmsStageSampleCLut16bit(table, lab_of, to_lab.get(), 0) != 0);
    // The form of the tag requires curves on both sides.
    check(cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, 4, nullptr)) != 0);
    check(cmsPipelineInsertStage(pipeline, cmsAT_END, table) != 0);
    check(cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, nullptr)) != 0);
    check(cmsWriteTag(profile.get(), cmsSigAToB0Tag, pipeline) != 0);
    cmsPipelineFree(pipeline);
    cmsUInt32Number size = 0;
    check(cmsSaveProfileToMem(profile.get(), nullptr, &size) != 0);
    std::string bytes(size, '\0');
    check(cmsSaveProfileToMem(profile.get(), bytes.data(), &size) != 0);
    return bytes;
}

} // namespace ko_test
