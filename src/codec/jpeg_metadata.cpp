// Exif data and XMP come first, where readers look for them; comments come last.
#include "codec/jpeg_metadata.h"

#include <algorithm>
#include <iterator>

#include "codec/left_out.h"
#include "codec/marks.h"
#include "codec/photoshop.h"
#include "codec/png_texts.h"

namespace codec {

namespace {

bool exif_fits(const Metadata &metadata) { return metadata.exif.size() + exif_mark.size() <= largest_segment; }

// An XMP packet's segment; none if it does not fit into one, even without the padding for editors at its end, which a
// processing instruction follows.
Bytes xmp_segment(std::span<const uint8_t> packet) {
    constexpr std::string_view trailer = "<?xpacket end=";
    Bytes segment(xmp_mark.begin(), xmp_mark.end());
    const auto is_blank = [](uint8_t byte) { return byte == ' ' || byte == '\n' || byte == '\r' || byte == '\t'; };
    auto end = packet.end();
    auto rest = end;
    if (packet.size() > largest_segment - xmp_mark.size()) {
        rest = std::find_end(packet.begin(), packet.end(), trailer.begin(), trailer.end());
        end = std::find_if_not(std::make_reverse_iterator(rest), packet.rend(), is_blank).base();
    }
    segment.insert(segment.end(), packet.begin(), end);
    segment.insert(segment.end(), rest, packet.end());
    return segment.size() <= largest_segment ? segment : Bytes();
}

// Adds segments that each begin with a mark and hold as much of the content as fits; none for an empty content.
template <class Content>
void add_parts(std::vector<JpegSegment> &segments, int marker, std::string_view mark, const Content &content) {
    const size_t most = largest_segment - mark.size();
    for (size_t done = 0; done < content.size(); done += most) {
        const auto count = std::min(most, content.size() - done);
        Bytes bytes(mark.size() + count);
        const auto behind_mark = std::copy(mark.begin(), mark.end(), bytes.begin());
        std::copy_n(content.begin() + static_cast<std::ptrdiff_t>(done), count, behind_mark);
        segments.push_back({marker, std::move(bytes)});
    }
}

} // namespace

std::vector<JpegSegment> segments_to_write(const Metadata &metadata) {
    std::vector<JpegSegment> segments;
    if (!metadata.exif.empty() && exif_fits(metadata)) {
        add_parts(segments, app1, exif_mark, metadata.exif);
    }
    if (Bytes xmp = metadata.xmp.empty() ? Bytes() : xmp_segment(metadata.xmp); !xmp.empty()) {
        segments.push_back({app1, std::move(xmp)});
    }
    add_parts(segments, app13, photoshop_mark, resources_with_iptc(metadata));
    segments.insert(segments.end(), metadata.jpeg_segments.begin(), metadata.jpeg_segments.end());
    for (const std::string &comment : comments_for_jpeg(metadata)) {
        add_parts(segments, comment_marker, {}, comment);
    }
    return segments;
}

bool icc_profile_fits(const Metadata &metadata) {
    constexpr size_t own = icc_mark.size() + 2; // of each segment: the mark, its number and how many there are
    return metadata.icc_profile.size() <= 255 * (largest_segment - own);
}

void tell_jpeg_losses(const Description &picture, Notices &notices) {
    const Metadata &metadata = picture.metadata;
    if (picture.has_alpha) {
        notices.push_back("a JPEG file cannot hold alpha, which is left out");
    }
    if (!exif_fits(metadata)) {
        notices.push_back("the Exif data is too large for a JPEG file and left out");
    }
    if (!icc_profile_fits(metadata)) {
        notices.push_back("the ICC profile is too large for a JPEG file and left out");
    }
    if (metadata.png_colours.gamma && metadata.icc_profile.empty()) {
        notices.push_back("a JPEG file cannot hold the PNG file's gamma, which is left out");
    }
    if (!metadata.xmp.empty() && xmp_segment(metadata.xmp).empty()) {
        notices.push_back("the XMP data is too large for a JPEG file and left out");
    }
    tell_left_out(metadata, {.xmp = true, .photoshop = true, .comments = true, .jpeg_segments = true}, notices);
}

} // namespace codec
