// Segments are recognised by the marks that they begin with. Those that no rule names are carried unchanged: cameras keep much
// of their own data there.
#include "codec/jpeg_segments.h"

#include <algorithm>
#include <vector>

#include "codec/extended_xmp.h"
#include "codec/left_out.h"
#include "codec/marks.h"
#include "codec/photoshop.h"

namespace codec {

namespace {

constexpr int app11 = app0 + 11; // boxes
constexpr int app14 = app0 + 14; // Adobe's: how the old file's colours were transformed

constexpr std::string_view jfif_mark("JFIF\0", 5);
constexpr std::string_view jfif_extension_mark("JFXX\0", 5); // a thumbnail
constexpr std::string_view multi_picture_mark("MPF\0", 4);   // offsets into the old file: of no use in a new one
constexpr std::string_view gain_map_mark("urn:iso:std:iso:ts:21496:-1\0", 28);
constexpr std::string_view box_mark("JP", 2);
constexpr std::string_view adobe_mark = "Adobe";

constexpr size_t window_size = 1 << 16; // of what follows the picture

bool begins_with(std::span<const uint8_t> bytes, std::string_view mark) {
    return bytes.size() >= mark.size() && std::equal(mark.begin(), mark.end(), bytes.begin());
}

bool contains(std::span<const uint8_t> bytes, std::string_view text) {
    return std::search(bytes.begin(), bytes.end(), text.begin(), text.end()) != bytes.end();
}

void keep(int marker, std::span<const uint8_t> bytes, Metadata &metadata) {
    metadata.jpeg_segments.push_back({marker, Bytes(bytes.begin(), bytes.end())});
}

void assign(Bytes &to, std::span<const uint8_t> from) { to.assign(from.begin(), from.end()); }

// The table of a file with several pictures: a directory as in TIFF files. It only serves to name what is left out, so nothing
// depends on it; a damaged one names nothing.
class MultiPictureTable {
  public:
    explicit MultiPictureTable(std::span<const uint8_t> bytes) : bytes_(bytes), little_(begins_with(bytes, "II")) {
        if (!little_ && !begins_with(bytes, "MM")) {
            return;
        }
        const uint64_t directory = number(4, 4);
        const uint64_t entries = number(directory, 2);
        for (uint64_t i = 0; i < entries; ++i) {
            const uint64_t entry = directory + 2 + 12 * i;
            if (number(entry, 2) == pictures_tag) {
                count(number(entry + 8, 4), number(entry + 4, 4) / bytes_per_picture);
            }
        }
    }

    uint32_t previews() const { return previews_; }
    uint32_t pictures() const { return pictures_; } // further ones that are not previews

  private:
    static constexpr uint64_t pictures_tag = 0xb002;
    static constexpr uint64_t bytes_per_picture = 16;

    // 0 outside the table.
    uint64_t number(uint64_t position, uint64_t size) const {
        uint64_t value = 0;
        if (position + size <= bytes_.size()) {
            for (uint64_t i = 0; i < size; ++i) {
                value = value << 8 | bytes_[position + (little_ ? size - 1 - i : i)];
            }
        }
        return value;
    }

    // The first picture is the one that the file shows.
    void count(uint64_t position, uint64_t entries) {
        for (uint64_t i = 1; i < entries && position + (i + 1) * bytes_per_picture <= bytes_.size(); ++i) {
            const uint64_t kind = number(position + i * bytes_per_picture, 4) & 0xffffff;
            ++(kind == 0x010001 || kind == 0x010002 ? previews_ : pictures_);
        }
    }

    std::span<const uint8_t> bytes_;
    bool little_;
    uint32_t previews_ = 0;
    uint32_t pictures_ = 0;
};

Bytes window(Input &input, uint64_t offset) {
    Bytes bytes(window_size);
    const std::optional<size_t> count = input.read(offset, bytes);
    if (!count) {
        throw Error(input.failure());
    }
    bytes.resize(*count);
    return bytes;
}

// The number of bytes from an offset to the end of an input.
uint64_t bytes_from(Input &input, uint64_t offset) {
    const uint64_t begin = offset;
    Bytes room(window_size);
    while (true) {
        const std::optional<size_t> count = input.read(offset, room);
        if (!count) {
            throw Error(input.failure());
        }
        offset += *count;
        if (*count < room.size()) {
            return offset - begin;
        }
    }
}

bool describes_gain_map(const Bytes &xmp) {
    return contains(xmp, "http://ns.adobe.com/hdr-gain-map/") || contains(xmp, "GainMap");
}

bool describes_video(const Bytes &xmp) { return contains(xmp, "MotionPhoto") || contains(xmp, "MicroVideo"); }

bool is_video(const Bytes &tail) {
    return (tail.size() > 8 && begins_with(std::span(tail).subspan(4), "ftyp")) || contains(tail, "MotionPhoto_Data");
}

bool is_jpeg(const Bytes &tail) { return recognise(tail) == Format::jpeg; }

bool has_gain_map_behind(const Bytes &tail) { return contains(tail, "hdrgainmap") || contains(tail, "hdr-gain-map"); }

bool is_padding(const Bytes &tail) {
    return tail.size() < window_size && std::all_of(tail.begin(), tail.end(), [](uint8_t byte) { return byte == 0; });
}

std::string counted(uint64_t count, const std::string &one, const std::string &several) {
    return count == 1 ? "a " + one + " is left out" : std::to_string(count) + " " + several + " are left out";
}

} // namespace

void SegmentSorter::add(int marker, std::span<const uint8_t> bytes, Metadata &metadata) {
    switch (marker) {
    case comment_marker:
        return metadata.comments.emplace_back(bytes.begin(), bytes.end()), void();
    case app0:
        return add_app0(bytes, metadata);
    case app1:
        return add_app1(bytes, metadata);
    case app2:
        return add_app2(bytes, metadata);
    case app11:
        return add_app11(bytes, metadata);
    case app13:
        if (begins_with(bytes, photoshop_mark)) {
            const auto rest = bytes.subspan(photoshop_mark.size());
            return metadata.photoshop.insert(metadata.photoshop.end(), rest.begin(), rest.end()), void();
        }
        break;
    case app14:
        if (begins_with(bytes, adobe_mark)) {
            return;
        }
        break;
    default:
        break;
    }
    keep(marker, bytes, metadata);
}

// A writer makes a JFIF header of its own, without a thumbnail.
void SegmentSorter::add_app0(std::span<const uint8_t> bytes, Metadata &metadata) {
    constexpr size_t thumbnail_size_at = 12;
    if (begins_with(bytes, jfif_mark)) {
        const bool has_size = bytes.size() > thumbnail_size_at + 1;
        has_jfif_thumbnail_ |= has_size && bytes[thumbnail_size_at] != 0 && bytes[thumbnail_size_at + 1] != 0;
    } else if (begins_with(bytes, jfif_extension_mark)) {
        has_jfif_thumbnail_ = true;
    } else {
        keep(app0, bytes, metadata);
    }
}

// The first Exif data and the first XMP packet count; Exif and XMP data beyond a segment's size continues in others.
void SegmentSorter::add_app1(std::span<const uint8_t> bytes, Metadata &metadata) {
    if (begins_with(bytes, exif_mark) && metadata.exif.empty()) {
        assign(metadata.exif, bytes.subspan(exif_mark.size()));
    } else if (begins_with(bytes, xmp_mark) && metadata.xmp.empty()) {
        assign(metadata.xmp, bytes.subspan(xmp_mark.size()));
    } else {
        keep(app1, bytes, metadata);
    }
}

void SegmentSorter::add_app2(std::span<const uint8_t> bytes, Metadata &metadata) {
    if (begins_with(bytes, icc_mark)) {
        has_icc_profile_ = true;
    } else if (begins_with(bytes, multi_picture_mark)) {
        assign(multi_picture_, bytes.subspan(multi_picture_mark.size()));
    } else if (begins_with(bytes, gain_map_mark)) {
        has_gain_map_ = true;
    } else {
        keep(app2, bytes, metadata);
    }
}

// Content credentials sign the bytes of the file that they came with. The first segment of a box names its content.
void SegmentSorter::add_app11(std::span<const uint8_t> bytes, Metadata &metadata) {
    const bool is_box = begins_with(bytes, box_mark) && bytes.size() >= 4;
    const unsigned number = is_box ? bytes[2] * 256u + bytes[3] : 0;
    if (is_box && contains(bytes.first(std::min<size_t>(bytes.size(), 128)), "c2pa")) {
        credentials_.insert(number);
    }
    if (!is_box || !credentials_.contains(number)) {
        keep(app11, bytes, metadata);
    }
}

void SegmentSorter::complete(Metadata &metadata) { metadata.iptc = iptc_among(metadata.photoshop); }

void SegmentSorter::tell(Input &input, uint64_t tail, const Metadata &metadata, Notices &notices) const {
    if (has_jfif_thumbnail_) {
        notices.push_back("the thumbnail in the JFIF header is left out");
    }
    if (!credentials_.empty()) {
        notices.push_back("the content credentials (C2PA) are not valid for a changed file and are left out");
    }
    const Bytes begin = window(input, tail);
    if (is_padding(begin)) {
        return;
    }
    const MultiPictureTable table(multi_picture_);
    const size_t before = notices.size();
    const bool gain_map = has_gain_map_ || describes_gain_map(metadata.xmp) || has_gain_map_behind(begin);
    if (gain_map) {
        notices.push_back("a gain map is left out" +
                          std::string(describes_gain_map(metadata.xmp) ? ", which the XMP data still describes" : ""));
    }
    if (describes_video(metadata.xmp) || is_video(begin)) {
        notices.push_back("a video behind the picture is left out" +
                          std::string(describes_video(metadata.xmp) ? ", which the XMP data still describes" : ""));
    }
    if (table.previews() > 0) {
        notices.push_back(counted(table.previews(), "large preview", "large previews"));
    }
    const uint32_t listed = table.pictures() - std::min(table.pictures(), gain_map ? 1u : 0u);
    const uint32_t found = listed == 0 && notices.size() == before && is_jpeg(begin) ? 1 : listed;
    if (found > 0) {
        notices.push_back(counted(found, "further picture in the file", "further pictures in the file"));
    }
    if (notices.size() == before) {
        notices.push_back(std::to_string(bytes_from(input, tail)) + " bytes behind the picture are left out");
    }
}

std::string name_of(const JpegSegment &segment) {
    if (is_extended_xmp(segment)) {
        return "the extended XMP data";
    }
    const std::string name = readable_name(segment.bytes);
    return "the JPEG segment APP" + std::to_string(segment.marker - app0) + (name.empty() ? "" : " '" + name + "'");
}

} // namespace codec
