// Inside the codec on Windows: what a JPEG file says beside its coded pixels, which the system's codec does not pass on.
#ifndef KO_CODEC_WIC_JPEG_FILE_H
#define KO_CODEC_WIC_JPEG_FILE_H

#include <array>
#include <vector>

#include "codec/codec.h"
#include "codec/jpeg_segments.h"

namespace codec::wic {

struct JpegOutline {
    std::vector<JpegSegment> segments; // of applications, and comments
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t components = 0;
    std::array<uint8_t, 3> numbers{}; // of the first components
    bool progressive = false;
    Subsampling subsampling;
    std::optional<JpegQuantisation> quantisation; // if it stands before the pixels
    uint64_t pixels = 0;                          // where in the file they begin
};

// Reads a file up to its pixels. Throws Error.
JpegOutline read_outline(Input &input);

// Reads on from the pixels to the end of the picture, adds the segments on the way, and gives the position behind it. Throws
// Error for a file that ends before, as the system's codec does not.
uint64_t read_to_end(Input &input, JpegOutline &outline);

// The parts of an ICC profile put together; empty if one is missing.
Bytes profile_in(const std::vector<JpegSegment> &segments);

// The quality, from 1 to 100, whose customary steps are nearest to those of a file.
int quality_of(const JpegQuantisation &quantisation);

} // namespace codec::wic

#endif
