// Inside the codec: what blocks of metadata begin with where several kinds share a place.
#ifndef KO_CODEC_MARKS_H
#define KO_CODEC_MARKS_H

#include <string_view>

namespace codec {

inline constexpr std::string_view exif_mark("Exif\0\0", 6);
inline constexpr std::string_view xmp_mark("http://ns.adobe.com/xap/1.0/\0", 29);
inline constexpr std::string_view photoshop_mark("Photoshop 3.0\0", 14);

} // namespace codec

#endif
