// Inside the codec: notices that name, piece by piece, what a format has no place for.
#ifndef KO_CODEC_LEFT_OUT_H
#define KO_CODEC_LEFT_OUT_H

#include "codec/codec.h"

namespace codec {

// The places for metadata that a format has, besides those that every format here has: for Exif data and an ICC profile.
struct Places {
    bool xmp = false;
    bool photoshop = false; // with the IPTC records in it
    bool iptc = false;      // by themselves
    bool comments = false;  // also for PNG texts that are comments
    bool jpeg_segments = false;
    bool png = false; // texts and chunks
    bool density = true;
};

// The keyword of a PNG text that is a comment.
inline constexpr const char *comment_keyword = "Comment";

// Adds a notice for each thing that a format with these places cannot carry.
void tell_left_out(const Metadata &metadata, const Places &places, Notices &notices);

// Adds a notice unless it was given before.
void add_once(Notices &notices, const std::string &notice);

// The beginning of bytes that are a name, for a notice: the first byte that cannot be printed ends it.
std::string readable_name(std::span<const uint8_t> bytes);

} // namespace codec

#endif
