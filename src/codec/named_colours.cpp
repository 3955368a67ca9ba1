#include "codec/named_colours.h"

#include <array>
#include <memory>

#include <lcms2.h>

namespace codec {

namespace {

using CurvePtr = std::unique_ptr<cmsToneCurve, decltype([](cmsToneCurve *curve) { cmsFreeToneCurve(curve); })>;
using ProfilePtr = std::unique_ptr<void, decltype([](void *profile) { cmsCloseProfile(profile); })>;

CurvePtr tone_curve(double exponent) {
    static constexpr std::array<cmsFloat64Number, 5> srgb = {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045};
    return CurvePtr(exponent != 0.0 ? cmsBuildGamma(nullptr, exponent) : cmsBuildParametricToneCurve(nullptr, 4, srgb.data()));
}

} // namespace

bool NamedColours::are_of_high_range() const {
    return nclx_.transfer_characteristics == heif_transfer_characteristic_ITU_R_BT_2100_0_PQ ||
           nclx_.transfer_characteristics == heif_transfer_characteristic_ITU_R_BT_2100_0_HLG;
}

bool NamedColours::has_usual_primaries() const {
    return nclx_.color_primaries == heif_color_primaries_ITU_R_BT_709_5 ||
           nclx_.color_primaries == heif_color_primaries_unspecified;
}

Bytes NamedColours::profile() const {
    const cmsCIExyY white = {nclx_.color_primary_white_x, nclx_.color_primary_white_y, 1.0};
    const cmsCIExyYTRIPLE primaries = {{nclx_.color_primary_red_x, nclx_.color_primary_red_y, 1.0},
                                       {nclx_.color_primary_green_x, nclx_.color_primary_green_y, 1.0},
                                       {nclx_.color_primary_blue_x, nclx_.color_primary_blue_y, 1.0}};
    const CurvePtr curve = tone_curve(exponent());
    cmsToneCurve *curves[3] = {curve.get(), curve.get(), curve.get()};
    const ProfilePtr made(curve ? cmsCreateRGBProfile(&white, &primaries, curves) : nullptr);
    cmsUInt32Number size = 0;
    if (!made || cmsSaveProfileToMem(made.get(), nullptr, &size) == FALSE) {
        return {};
    }
    Bytes bytes(size);
    return cmsSaveProfileToMem(made.get(), bytes.data(), &size) != FALSE ? bytes : Bytes();
}

double NamedColours::exponent() const {
    switch (nclx_.transfer_characteristics) {
    case heif_transfer_characteristic_ITU_R_BT_470_6_System_M:
        return 2.2;
    case heif_transfer_characteristic_ITU_R_BT_470_6_System_B_G:
        return 2.8;
    case heif_transfer_characteristic_linear:
        return 1.0;
    default:
        return 0.0;
    }
}

} // namespace codec
