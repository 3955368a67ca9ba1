// Inside the codec: colours that a HEIF file specifies by code numbers, if they are not those of sRGB, as an ICC profile, which
// other formats hold.
#ifndef KO_CODEC_NAMED_COLOURS_H
#define KO_CODEC_NAMED_COLOURS_H

#include <libheif/heif.h>

#include "codec/picture.h"

namespace codec {

class NamedColours {
  public:
    // The record must outlive this.
    explicit NamedColours(const heif_color_profile_nclx &nclx) : nclx_(nclx) {}

    bool are_of_high_range() const;
    bool are_srgb() const { return has_usual_primaries() && exponent() == 0.0; }

    // Empty if no profile can describe the colours.
    Bytes profile() const;

  private:
    bool has_usual_primaries() const;

    // 0 for the curve of sRGB, which also stands for the curves of television.
    double exponent() const;

    const heif_color_profile_nclx &nclx_;
};

} // namespace codec

#endif
