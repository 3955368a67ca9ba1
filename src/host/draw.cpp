// The drawing is a picture of its own: what describes the colours of the first one would be wrong for it.
#include "draw.h"

namespace host {

codec::Picture draw_curves(const codec::Picture &picture, const TileTRC &curves, const RealImage &luminance) {
    RealImage *image = nullptr;
    const int32_t status = KoTileTRCDraw(&curves, &luminance, &image);
    const RealImagePtr drawn(image);
    check(status == KO_OK && drawn != nullptr, "the curves cannot be drawn");
    codec::Picture result;
    result.format = picture.format;
    result.width = picture.width;
    result.height = picture.height;
    result.channels = 1;
    result.pixels.reset(new uint8_t[picture.area()]);
    check(KoRealImageToByteArray(drawn.get(), result.pixels.get(), 0, picture.height, 0) == KO_OK,
          "the curves cannot be drawn");
    result.metadata.exif = picture.metadata.exif;
    result.metadata.density = picture.metadata.density;
    return result;
}

} // namespace host
