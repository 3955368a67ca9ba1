// JPEG files out: gray, or YCbCr with the colour sampling that the picture came with; baseline, with tables made to measure.
//
// libjpeg leaves a failed call by a jump, so each run of its calls is a guarded step that holds no object with a destructor.
#include "codec/jpeg_common.h"

#include <algorithm>
#include <array>
#include <utility>

#include "codec/formats.h"

namespace codec {

namespace {

// Hands the encoded bytes over room by room.
struct Destination {
    jpeg_destination_mgr manager; // first: libjpeg hands its address back
    Bytes bytes;
    std::array<JOCTET, 1 << 16> room;
};

Destination &destination_of(j_compress_ptr info) { return *reinterpret_cast<Destination *>(info->dest); }

void empty_room(j_compress_ptr info) {
    Destination &destination = destination_of(info);
    destination.manager.next_output_byte = destination.room.data();
    destination.manager.free_in_buffer = destination.room.size();
}

void flush(j_compress_ptr info, size_t count) {
    Destination &destination = destination_of(info);
    if (!append(destination.bytes, destination.room.data(), count)) {
        reinterpret_cast<JpegErrors *>(info->err)->trouble.fail("not enough memory");
    }
}

// libjpeg asks for the whole room to be taken, whatever free_in_buffer says.
boolean on_full(j_compress_ptr info) {
    flush(info, destination_of(info).room.size());
    empty_room(info);
    return TRUE;
}

void on_end(j_compress_ptr info) { flush(info, destination_of(info).room.size() - info->dest->free_in_buffer); }

class JpegWriter {
  public:
    explicit JpegWriter(const Picture &picture) : picture_(picture) {
        info_.err = prepare(errors_);
        destination_.manager = {nullptr, 0, empty_room, on_full, on_end};
    }
    ~JpegWriter() { jpeg_destroy_compress(&info_); }
    JpegWriter(const JpegWriter &) = delete;
    JpegWriter &operator=(const JpegWriter &) = delete;

    Bytes write(int quality, Notices &notices) {
        tell_losses(notices);
        const Bytes exif = exif_segment();
        errors_.trouble.guarded([&] {
            start(quality);
            write_metadata(exif);
            write_pixels();
        });
        errors_.trouble.tell_warnings(notices);
        return std::move(destination_.bytes);
    }

  private:
    bool exif_fits() const { return picture_.metadata.exif.size() + exif_mark.size() <= largest_segment; }

    // An ICC profile is spread over at most 255 segments, each with 14 bytes of its own.
    bool icc_profile_fits() const { return picture_.metadata.icc_profile.size() <= 255 * (largest_segment - 14); }

    void tell_losses(Notices &notices) const {
        if (picture_.alpha) {
            notices.push_back("a JPEG file has no room for alpha, which is left out");
        }
        if (!exif_fits()) {
            notices.push_back("the Exif data is too large for a JPEG file and left out");
        }
        if (!icc_profile_fits()) {
            notices.push_back("the ICC profile is too large for a JPEG file and left out");
        }
        if (picture_.metadata.png_colours.gamma && picture_.metadata.icc_profile.empty()) {
            notices.push_back("a JPEG file has no room for the PNG file's gamma, which is left out");
        }
    }

    Bytes exif_segment() const {
        const Bytes &exif = picture_.metadata.exif;
        if (exif.empty() || !exif_fits()) {
            return {};
        }
        Bytes segment(exif_mark.size() + exif.size());
        const auto behind_mark = std::copy(exif_mark.begin(), exif_mark.end(), segment.begin());
        std::copy(exif.begin(), exif.end(), behind_mark);
        return segment;
    }

    void start(int quality) {
        jpeg_create_compress(&info_);
        info_.dest = &destination_.manager;
        info_.image_width = picture_.width;
        info_.image_height = picture_.height;
        info_.input_components = static_cast<int>(picture_.channels);
        info_.in_color_space = picture_.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
        jpeg_set_defaults(&info_);
        jpeg_set_quality(&info_, quality, TRUE);
        info_.optimize_coding = TRUE;
        set_subsampling();
        set_density();
        jpeg_start_compress(&info_, TRUE);
    }

    // The format allows ratios of 1, 2 and 4 and ten blocks in a unit; anything else is written in full colour.
    void set_subsampling() {
        if (picture_.channels != 3) {
            return;
        }
        const auto [x, y] = picture_.subsampling;
        const auto allowed = [](int ratio) { return ratio == 1 || ratio == 2 || ratio == 4; };
        const bool kept = allowed(x) && allowed(y) && x * y <= 8;
        info_.comp_info[0].h_samp_factor = kept ? x : 1;
        info_.comp_info[0].v_samp_factor = kept ? y : 1;
    }

    // Exif data has a density of its own, so that a file without a density beside it gets no header for one.
    void set_density() {
        const Metadata &metadata = picture_.metadata;
        info_.write_JFIF_header = metadata.density || metadata.exif.empty() ? TRUE : FALSE;
        if (!metadata.density) {
            return;
        }
        const Density density = for_jpeg(*metadata.density);
        if (std::max(density.x, density.y) > 0xffff || std::min(density.x, density.y) == 0) {
            return;
        }
        info_.density_unit = density.unit == Density::Unit::none ? 0 : density.unit == Density::Unit::inch ? 1 : 2;
        info_.X_density = static_cast<UINT16>(density.x);
        info_.Y_density = static_cast<UINT16>(density.y);
    }

    void write_marker(int marker, const Bytes &bytes) {
        jpeg_write_marker(&info_, marker, bytes.data(), static_cast<unsigned int>(bytes.size()));
    }

    void write_metadata(const Bytes &exif) {
        const Metadata &metadata = picture_.metadata;
        if (!exif.empty()) {
            write_marker(app1, exif);
        }
        for (const JpegSegment &segment : metadata.jpeg_segments) {
            write_marker(segment.marker, segment.bytes);
        }
        if (!metadata.icc_profile.empty() && icc_profile_fits()) {
            jpeg_write_icc_profile(&info_, metadata.icc_profile.data(), static_cast<unsigned int>(metadata.icc_profile.size()));
        }
    }

    void write_pixels() {
        while (info_.next_scanline < info_.image_height) {
            JSAMPROW row = picture_.pixels.get() + info_.next_scanline * picture_.row_bytes();
            jpeg_write_scanlines(&info_, &row, 1);
        }
        jpeg_finish_compress(&info_);
    }

    const Picture &picture_;
    JpegErrors errors_{};
    Destination destination_;
    jpeg_compress_struct info_{};
};

} // namespace

Bytes encode_jpeg(const Picture &picture, int quality, Notices &notices) { return JpegWriter(picture).write(quality, notices); }

} // namespace codec
