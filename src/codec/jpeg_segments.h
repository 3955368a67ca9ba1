// Inside the codec: what a JPEG file holds besides its picture, in its segments and after its end.
#ifndef KO_CODEC_JPEG_SEGMENTS_H
#define KO_CODEC_JPEG_SEGMENTS_H

#include <set>
#include <span>
#include <string>
#include <string_view>

#include "codec/codec.h"

namespace codec {

// Markers of segments, in the second byte behind 0xff.
inline constexpr int app0 = 0xe0;       // the first of sixteen for applications; JFIF headers
inline constexpr int app1 = app0 + 1;   // Exif, XMP
inline constexpr int app2 = app0 + 2;   // ICC profile and others
inline constexpr int app13 = app0 + 13; // image resources, with captions
inline constexpr int last_app = app0 + 15;
inline constexpr int comment_marker = 0xfe;

inline constexpr size_t largest_segment = 65533;

inline constexpr std::string_view icc_mark("ICC_PROFILE\0", 12);

// Sorts the segments of one file. What must not be carried into a file with other pixels is recorded, to be named.
class SegmentSorter {
  public:
    // Adds the next application segment or comment to the metadata where it belongs. The parts of an ICC profile are skipped:
    // the reader puts them together.
    void add(int marker, std::span<const uint8_t> bytes, Metadata &metadata);

    // Called when the image resources are complete: takes from them what has a field of its own.
    static void complete(Metadata &metadata);

    bool has_icc_profile() const { return has_icc_profile_; }

    // Names what was not carried.
    //   tail   where in the input the picture ends; what follows is lost in any new file
    void tell(Input &input, uint64_t tail, const Metadata &metadata, Notices &notices) const;

  private:
    void add_app0(std::span<const uint8_t> bytes, Metadata &metadata);
    void add_app1(std::span<const uint8_t> bytes, Metadata &metadata);
    void add_app2(std::span<const uint8_t> bytes, Metadata &metadata);
    void add_app11(std::span<const uint8_t> bytes, Metadata &metadata);

    bool has_icc_profile_ = false;
    bool has_jfif_thumbnail_ = false;
    bool has_gain_map_ = false;      // besides what XMP says
    Bytes multi_picture_;            // the table of a file with several pictures
    std::set<unsigned> credentials_; // numbers of boxes with content credentials, each spread over segments
};

// A segment for a notice, such as "the JPEG segment APP12 'Ducky'".
std::string name_of(const JpegSegment &segment);

} // namespace codec

#endif
