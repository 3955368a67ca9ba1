// JPEG files out on Windows. The system encodes the pixels in memory; the file that is written has segments of our own in place
// of those that the system makes for applications.
#include <algorithm>

#include "codec/formats.h"
#include "codec/jpeg_metadata.h"
#include "codec/wic/frame.h"
#include "codec/wic/jpeg_file.h"

namespace codec {

namespace {

// The system takes a quality but no quantisation; the quality nearest to the old one loses least.
wic::EncodedFrame::Options options_of(const Description &picture, std::optional<int> quality) {
    if (!quality) {
        quality = picture.quantisation ? wic::quality_of(*picture.quantisation) : default_quality;
    }
    return {quality, picture.subsampling};
}

const Description &checked(const Description &picture) {
    constexpr uint32_t most = 65535;
    if (std::max(picture.width, picture.height) > most) {
        throw Error("too large for a JPEG file, which has at most " + std::to_string(most) + " pixels each way");
    }
    return picture;
}

class JpegWriter : public Writer {
  public:
    JpegWriter(Output &output, const Description &picture, std::optional<int> quality, Notices &notices)
        : output_(output), picture_(checked(picture)), segments_(segments_to_write(picture.metadata)),
          frame_(GUID_ContainerFormatJpeg, picture.width, picture.height, picture.channels, options_of(picture, quality)) {
        tell_jpeg_losses(picture, notices);
        if (picture.progressive) {
            notices.push_back("written as a baseline JPEG file");
        }
    }

    void write(uint32_t rows, const uint8_t *pixels, const uint8_t *) override { frame_.write(rows, pixels); }

    // The system's own segments stand directly behind the marker that begins the file.
    void finish(Notices &) override {
        const std::span<const uint8_t> encoded = frame_.finish();
        size_t position = 2;
        while (position + 4 <= encoded.size() && encoded[position] == 0xff && encoded[position + 1] >= app0 &&
               encoded[position + 1] <= last_app) {
            position += 2 + (size_t{encoded[position + 2]} << 8 | encoded[position + 3]);
        }
        if (encoded.size() < position) {
            throw Error("the system's codec wrote a damaged file");
        }
        pass(encoded.first(2));
        put_metadata();
        pass(encoded.subspan(position));
    }

  private:
    void pass(std::span<const uint8_t> bytes) {
        if (!output_.write(bytes)) {
            throw Error(output_.failure());
        }
    }

    void put(int marker, std::span<const uint8_t> bytes) {
        const size_t size = bytes.size() + 2;
        const std::array<uint8_t, 4> header = {0xff, static_cast<uint8_t>(marker), static_cast<uint8_t>(size >> 8),
                                               static_cast<uint8_t>(size)};
        pass(header);
        pass(bytes);
    }

    // Exif data has a density of its own, so that a file without a density beside it gets no header for one.
    void put_metadata() {
        const Metadata &metadata = picture_.metadata;
        if (metadata.density || metadata.exif.empty()) {
            put_density(metadata.density.value_or(Density()));
        }
        for (const JpegSegment &segment : segments_) {
            put(segment.marker, segment.bytes);
        }
        if (icc_profile_fits(metadata)) {
            put_profile(metadata.icc_profile);
        }
    }

    void put_density(const Density &given) {
        Density density = for_jpeg(given);
        if (std::max(density.x, density.y) > 0xffff || std::min(density.x, density.y) == 0) {
            density = {};
        }
        const int unit = density.unit == Density::Unit::none ? 0 : density.unit == Density::Unit::inch ? 1 : 2;
        Bytes bytes = {'J', 'F', 'I', 'F', 0, 1, 1, static_cast<uint8_t>(unit)};
        for (const uint32_t value : {density.x, density.y}) {
            bytes.push_back(static_cast<uint8_t>(value >> 8));
            bytes.push_back(static_cast<uint8_t>(value));
        }
        bytes.insert(bytes.end(), 2, 0); // no thumbnail
        put(app0, bytes);
    }

    void put_profile(std::span<const uint8_t> profile) {
        const size_t most = largest_segment - icc_mark.size() - 2;
        const size_t count = (profile.size() + most - 1) / most;
        for (size_t i = 0; i < count; ++i) {
            const auto part = profile.subspan(i * most, std::min(most, profile.size() - i * most));
            Bytes bytes(icc_mark.begin(), icc_mark.end());
            bytes.push_back(static_cast<uint8_t>(i + 1));
            bytes.push_back(static_cast<uint8_t>(count));
            bytes.insert(bytes.end(), part.begin(), part.end());
            put(app2, bytes);
        }
    }

    Output &output_;
    const Description &picture_;
    const std::vector<JpegSegment> segments_;
    wic::EncodedFrame frame_;
};

} // namespace

std::unique_ptr<Writer> create_jpeg(Output &output, const Description &picture, std::optional<int> quality, Notices &notices) {
    return std::make_unique<JpegWriter>(output, picture, quality, notices);
}

} // namespace codec
