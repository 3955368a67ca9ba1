// JPEG files in on Windows: gray and RGB. The system decodes the pixels at their full size, and makes up what a truncated file
// lacks; so the file is also read to its end here, for that and for its segments.
#include <algorithm>

#include "codec/formats.h"
#include "codec/jpeg_segments.h"
#include "codec/wic/frame.h"
#include "codec/wic/jpeg_file.h"

namespace codec {

namespace {

constexpr std::string_view jfif_mark("JFIF\0", 5);

bool begins_with(const JpegSegment &segment, int marker, std::string_view mark) {
    return segment.marker == marker && segment.bytes.size() >= mark.size() &&
           std::equal(mark.begin(), mark.end(), segment.bytes.begin());
}

class JpegReader : public Reader {
  public:
    explicit JpegReader(Input &input) : input_(input), outline_(wic::read_outline(input)) {
        check_size(outline_.width, outline_.height);
        if (outline_.components != 1 && outline_.components != 3) {
            throw Error(outline_.components == 4
                            ? "CMYK, which this build cannot convert"
                            : "neither gray nor RGB: " + std::to_string(outline_.components) + " channels of unknown colours");
        }
        refuse_unclear_colours();
        frame_.emplace(input, GUID_ContainerFormatJpeg);
        if (frame_->width() != outline_.width || frame_->height() != outline_.height || frame_->is_cmyk()) {
            throw Error("the header is damaged");
        }
        describe();
        fill_metadata();
    }

    void read(uint32_t rows, uint8_t *pixels, uint8_t *) override {
        frame_->read(rows, description_.channels, pixels, nullptr);
    }

    void finish(Notices &notices) override {
        const uint64_t tail = wic::read_to_end(input_, outline_);
        const SegmentSorter sorter = fill_metadata();
        if (description_.metadata.icc_profile.empty() && sorter.has_icc_profile()) {
            notices.push_back("the ICC profile is damaged and left out");
        }
        sorter.tell(input_, tail, description_.metadata, notices);
    }

  private:
    // Without a JFIF header, a segment of Adobe's says that three components are RGB. Decoders that go by the numbers of the
    // components instead take them for YCbCr, as those are usually numbered.
    void refuse_unclear_colours() const {
        constexpr std::string_view adobe_mark = "Adobe";
        constexpr size_t transform_at = 11;
        bool rgb = false;
        for (const JpegSegment &segment : outline_.segments) {
            if (begins_with(segment, app0, jfif_mark)) {
                return;
            }
            rgb |= begins_with(segment, app0 + 14, adobe_mark) && segment.bytes.size() > transform_at &&
                   segment.bytes[transform_at] == 0;
        }
        if (rgb && outline_.numbers == std::array<uint8_t, 3>{1, 2, 3}) {
            throw Error("RGB colours under the numbers of YCbCr, which the system may take for those");
        }
    }

    void describe() {
        width_ = outline_.width;
        height_ = outline_.height;
        description_.format = Format::jpeg;
        description_.width = width_;
        description_.height = height_;
        description_.channels = outline_.components;
        description_.progressive = outline_.progressive;
        description_.subsampling = outline_.subsampling;
        description_.quantisation = outline_.quantisation;
    }

    SegmentSorter fill_metadata() {
        Metadata metadata;
        SegmentSorter sorter;
        for (const JpegSegment &segment : outline_.segments) {
            sorter.add(segment.marker, segment.bytes, metadata);
            take_density(segment, metadata);
        }
        SegmentSorter::complete(metadata);
        metadata.icc_profile = wic::profile_in(outline_.segments);
        description_.metadata = std::move(metadata);
        return sorter;
    }

    // That of the JFIF header: the mark, two bytes of a version, the unit, and the density each way.
    static void take_density(const JpegSegment &segment, Metadata &metadata) {
        const Bytes &bytes = segment.bytes;
        if (!begins_with(segment, app0, jfif_mark) || bytes.size() < 12) {
            return;
        }
        const auto pair = [&](size_t position) { return uint32_t{bytes[position]} << 8 | bytes[position + 1]; };
        if (pair(8) != 0 && pair(10) != 0) {
            const Density::Unit unit = bytes[7] == 1   ? Density::Unit::inch
                                       : bytes[7] == 2 ? Density::Unit::centimetre
                                                       : Density::Unit::none;
            metadata.density = {unit, pair(8), pair(10)};
        }
    }

    Input &input_;
    wic::JpegOutline outline_;
    std::optional<wic::DecodedFrame> frame_;
};

} // namespace

// The system's decoder has no fast ways to a smaller picture that all its versions share.
std::unique_ptr<Reader> open_jpeg(Input &input, const Reduction &) { return std::make_unique<JpegReader>(input); }

} // namespace codec
