// The drawing is a picture of its own: a description of the original's colours would be wrong for it.
#include "draw.h"

#include "kohost/curves.h"
#include "metadata/exif.h"

namespace host {

namespace {

// Plane 0 of the picture, in YIQ if it has colours, is its luminance.
ko::ColorImagePtr luminance_of(const codec::Picture &picture) {
    ko::ColorImagePtr image = kohost::image_of({picture.pixels.get(), {picture.width, picture.height}, picture.channels});
    if (picture.channels == 3) {
        image.reset(KoColorImageNewFromColorImage(KO_COLORSPACE_YIQ, image.get()));
        ko::check(image != nullptr, "the luminance cannot be computed");
    }
    return image;
}

// The camera's data apply to the drawing too, except for the thumbnail.
codec::Bytes exif_without_thumbnail(const codec::Bytes &exif) {
    try {
        return exif.empty() ? exif : metadata::changed_exif(exif, {.drop_thumbnail = true});
    } catch (const metadata::Error &) {
        return exif;
    }
}

} // namespace

codec::Picture draw_curves(const codec::Picture &picture, const TileTRC &curves) {
    KoStatusClear();
    const ko::ColorImagePtr image = luminance_of(picture);
    RealImage *made = nullptr;
    const int32_t status = KoTileTRCDraw(&curves, KoColorImageGetImage(image.get(), 0), &made);
    const ko::RealImagePtr drawn(made);
    ko::check(status == KO_OK && drawn != nullptr, "the curves cannot be drawn");
    codec::Picture result;
    result.format = picture.format;
    result.width = picture.width;
    result.height = picture.height;
    result.channels = 1;
    result.progressive = picture.progressive;
    result.quantisation = picture.quantisation;
    result.pixels = std::make_unique_for_overwrite<uint8_t[]>(picture.area());
    ko::check(KoRealImageToByteArray(drawn.get(), result.pixels.get(), 0, picture.height, 0) == KO_OK,
              "the curves cannot be drawn");
    result.metadata.exif = exif_without_thumbnail(picture.metadata.exif);
    result.metadata.density = picture.metadata.density;
    return result;
}

} // namespace host
