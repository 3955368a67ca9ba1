// Converts with the rendering intent for photographs, "perceptual": colours that sRGB cannot represent shift all others too.
#include "codec/cmyk.h"

#include <new>

#include <lcms2.h>

#include "codec/codec.h"

namespace codec {

namespace {

using Profile = std::unique_ptr<void, decltype([](void *profile) { cmsCloseProfile(profile); })>;

Profile profile_of(const Bytes &bytes) {
    if (bytes.empty()) {
        throw Error("a CMYK picture without a colour profile");
    }
    Profile profile(cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
    if (!profile || cmsGetColorSpace(profile.get()) != cmsSigCmykData) {
        throw Error("a CMYK picture whose colour profile cannot be used");
    }
    return profile;
}

} // namespace

CmykToRgb::CmykToRgb(const Bytes &profile, bool inverted) {
    const Profile from = profile_of(profile);
    const Profile to(cmsCreate_sRGBProfile());
    if (!to) {
        throw std::bad_alloc();
    }
    transform_.reset(
        cmsCreateTransform(from.get(), inverted ? TYPE_CMYK_8_REV : TYPE_CMYK_8, to.get(), TYPE_RGB_8, INTENT_PERCEPTUAL, 0));
    if (!transform_) {
        throw Error("a CMYK picture whose colour profile cannot be used");
    }
}

void CmykToRgb::convert(const uint8_t *inks, uint8_t *pixels, uint32_t count) const {
    cmsDoTransform(transform_.get(), inks, pixels, count);
}

void CmykToRgb::Release::operator()(void *transform) const { cmsDeleteTransform(transform); }

void describe_as_srgb(Metadata &metadata) {
    metadata.icc_profile.clear();
    metadata.png_colours = {};
    metadata.png_colours.srgb_intent = INTENT_PERCEPTUAL;
}

} // namespace codec
