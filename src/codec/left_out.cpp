#include "codec/left_out.h"

#include <algorithm>

#include "codec/exif.h"
#include "codec/extended_xmp.h"
#include "codec/jpeg_segments.h"

namespace codec {

namespace {

constexpr size_t longest_name = 32;

void tell_segments(const Metadata &metadata, const Places &places, Notices &notices) {
    const bool has_whole_xmp = places.xmp && whole_xmp(metadata) != metadata.xmp;
    for (const JpegSegment &segment : metadata.jpeg_segments) {
        if (!has_whole_xmp || !is_extended_xmp(segment)) {
            add_once(notices, name_of(segment) + " is left out");
        }
    }
}

void tell_texts(const std::vector<PngText> &texts, const Places &places, Notices &notices) {
    for (const PngText &text : texts) {
        if (!places.comments || text.keyword != comment_keyword) {
            const auto *keyword = reinterpret_cast<const uint8_t *>(text.keyword.data());
            add_once(notices, "the PNG text '" + readable_name({keyword, text.keyword.size()}) + "' is left out");
        }
    }
}

} // namespace

void tell_left_out(const Metadata &metadata, const Places &places, Notices &notices) {
    if (!places.xmp && !metadata.xmp.empty()) {
        add_once(notices, "the XMP data is left out");
    }
    if (!places.photoshop && !metadata.photoshop.empty()) {
        add_once(notices, "the Photoshop image resources are left out");
    }
    if (!places.photoshop && !places.iptc && !metadata.iptc.empty()) {
        add_once(notices, "the IPTC data is left out");
    }
    if (!places.comments && !metadata.comments.empty()) {
        add_once(notices, "the comment is left out");
    }
    // Exif data has a density of its own, and one without a unit gives only the shape of pixels.
    if (!places.density && metadata.density && metadata.density->unit != Density::Unit::none && !has_density(metadata.exif)) {
        add_once(notices, "the density is left out");
    }
    if (!places.jpeg_segments) {
        tell_segments(metadata, places, notices);
    }
    if (!places.png) {
        tell_texts(metadata.png_texts, places, notices);
        for (const PngChunk &chunk : metadata.png_chunks) {
            add_once(notices, "the PNG chunk '" + chunk.name + "' is left out");
        }
    }
}

void add_once(Notices &notices, const std::string &notice) {
    if (std::find(notices.begin(), notices.end(), notice) == notices.end()) {
        notices.push_back(notice);
    }
}

std::string readable_name(std::span<const uint8_t> bytes) {
    const auto is_readable = [](uint8_t byte) { return byte >= 0x20 && byte < 0x7f; };
    const auto most = bytes.first(std::min(bytes.size(), longest_name));
    return {most.begin(), std::find_if_not(most.begin(), most.end(), is_readable)};
}

} // namespace codec
