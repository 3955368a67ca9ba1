// Inside the codec: pictures made for printing. ko works on gray and RGB, so their inks are converted to sRGB as they are read.
#ifndef KO_CODEC_CMYK_H
#define KO_CODEC_CMYK_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "codec/picture.h"

namespace codec {

inline constexpr const char *cmyk_converted = "CMYK converted to sRGB through its profile";

// From four bytes a pixel, cyan, magenta, yellow and black, to three.
class CmykToRgb {
  public:
    // Throws Error without a profile, or with one that does not describe CMYK.
    //   inverted   255 is no ink, as in JPEG files by Adobe's programs; otherwise it is full ink
    CmykToRgb(const Bytes &profile, bool inverted);

    ~CmykToRgb();

    void convert(const uint8_t *inks, uint8_t *pixels, uint32_t count) const;

  private:
    class Engine;
    std::unique_ptr<Engine> engine_;
};

// Makes the description that of a converted picture.
void describe_as_srgb(Metadata &metadata);

} // namespace codec

#endif
