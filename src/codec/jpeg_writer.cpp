// JPEG files out: gray, or YCbCr with the colour sampling, the quantisation and the form, baseline or progressive, that the
// picture came with. A baseline file has the standard Huffman tables: optimised tables would need all its coefficients at
// once.
//
// libjpeg leaves a failed call by a jump, so each run of its calls is a guarded step that holds no object with a destructor.
#include "codec/jpeg_common.h"

#include <algorithm>
#include <array>

#include "codec/formats.h"
#include "codec/jpeg_metadata.h"

namespace codec {

namespace {

// Passes the encoded bytes to an output, one buffer at a time.
struct Destination {
    jpeg_destination_mgr manager; // first: libjpeg hands its address back
    Output *output;
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
    if (!destination.output->write({destination.room.data(), count})) {
        reinterpret_cast<JpegErrors *>(info->err)->trouble.fail(destination.output->failure());
    }
}

// libjpeg expects the whole buffer to be taken, whatever free_in_buffer says.
boolean on_full(j_compress_ptr info) {
    flush(info, destination_of(info).room.size());
    empty_room(info);
    return TRUE;
}

void on_end(j_compress_ptr info) { flush(info, destination_of(info).room.size() - info->dest->free_in_buffer); }

// Ends with its scope, even if a constructor fails.
struct Compressor : jpeg_compress_struct {
    ~Compressor() { jpeg_destroy_compress(this); }
};

class JpegWriter : public Writer {
  public:
    JpegWriter(Output &output, const Description &picture, std::optional<int> quality, Notices &notices) : picture_(picture) {
        info_.err = prepare(errors_);
        destination_.manager = {nullptr, 0, empty_room, on_full, on_end};
        destination_.output = &output;
        tell_jpeg_losses(picture, notices);
        const std::vector<JpegSegment> segments = segments_to_write(picture.metadata);
        errors_.trouble.guarded([&] {
            start(quality ? &*quality : nullptr);
            write_metadata(segments);
        });
    }

    void write(uint32_t rows, const uint8_t *pixels, const uint8_t *) override {
        errors_.trouble.guarded([&] {
            for (uint32_t row = 0; row < rows; ++row) {
                auto from = const_cast<JSAMPROW>(pixels + row * picture_.row_bytes()); // libjpeg does not write there
                jpeg_write_scanlines(&info_, &from, 1);
            }
        });
    }

    void finish(Notices &notices) override {
        errors_.trouble.guarded([this] { jpeg_finish_compress(&info_); });
        errors_.trouble.tell_warnings(notices);
    }

  private:
    void start(const int *quality) {
        jpeg_create_compress(&info_);
        info_.dest = &destination_.manager;
        info_.image_width = picture_.width;
        info_.image_height = picture_.height;
        info_.input_components = static_cast<int>(picture_.channels);
        info_.in_color_space = picture_.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
        jpeg_set_defaults(&info_);
        set_quality(quality);
        set_subsampling();
        set_density();
        if (picture_.progressive) {
            jpeg_simple_progression(&info_);
        }
        jpeg_start_compress(&info_, TRUE);
    }

    // With the same quantisation as before, a picture loses least when it is encoded again.
    void set_quality(const int *quality) {
        if (quality == nullptr && picture_.quantisation) {
            set_steps(0, picture_.quantisation->luminance);
            set_steps(1, picture_.quantisation->colours);
        } else {
            jpeg_set_quality(&info_, quality != nullptr ? *quality : default_quality, TRUE);
        }
    }

    void set_steps(int table, const std::array<uint16_t, DCTSIZE2> &steps) {
        std::array<unsigned int, DCTSIZE2> values;
        std::copy(steps.begin(), steps.end(), values.begin());
        jpeg_add_quant_table(&info_, table, values.data(), 100, FALSE); // steps of 16 bits stay
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

    void write_metadata(const std::vector<JpegSegment> &segments) {
        const Metadata &metadata = picture_.metadata;
        for (const JpegSegment &segment : segments) {
            jpeg_write_marker(&info_, segment.marker, segment.bytes.data(), static_cast<unsigned int>(segment.bytes.size()));
        }
        if (!metadata.icc_profile.empty() && icc_profile_fits(metadata)) {
            jpeg_write_icc_profile(&info_, metadata.icc_profile.data(), static_cast<unsigned int>(metadata.icc_profile.size()));
        }
    }

    const Description &picture_;
    JpegErrors errors_{};
    Destination destination_;
    Compressor info_{}; // last, so that it is destroyed first: it uses the others
};

} // namespace

std::unique_ptr<Writer> create_jpeg(Output &output, const Description &picture, std::optional<int> quality, Notices &notices) {
    return std::make_unique<JpegWriter>(output, picture, quality, notices);
}

} // namespace codec
