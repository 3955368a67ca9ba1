// JPEG files in: gray stays gray, YCbCr and RGB become RGB, CMYK becomes sRGB, everything else is refused.
//
// libjpeg leaves a failed call by a jump, so each run of its calls is a guarded step that holds no object with a destructor.
// Its warnings of lost data count as failures: a truncated picture is not passed on as a whole one.
#include "codec/jpeg_common.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <jerror.h>

#include "codec/cmyk.h"
#include "codec/formats.h"
#include "codec/jpeg_segments.h"

namespace codec {

namespace {

// A file with more scans than any encoder makes can only be meant to waste time.
constexpr int most_scans = 500;

// Takes the encoded bytes from an input, one buffer at a time.
struct Supply {
    jpeg_source_mgr manager; // first: libjpeg hands its address back
    Input *input;
    uint64_t offset; // in the input, after the buffer
    std::array<JOCTET, 1 << 16> room;
};

Supply &supply_of(j_decompress_ptr info) { return *reinterpret_cast<Supply *>(info->src); }

// After the end of the file libjpeg gets an end-of-image marker, so that it stops; the warning gives the reason.
boolean on_empty(j_decompress_ptr info) {
    static constexpr std::array<JOCTET, 2> end = {0xff, JPEG_EOI};
    Supply &supply = supply_of(info);
    const std::optional<size_t> count = supply.input->read(supply.offset, supply.room);
    if (!count) {
        reinterpret_cast<JpegErrors *>(info->err)->trouble.fail(supply.input->failure());
    }
    supply.offset += *count;
    if (*count == 0) {
        WARNMS(info, JWRN_JPEG_EOF);
        supply.manager.next_input_byte = end.data();
        supply.manager.bytes_in_buffer = end.size();
        return TRUE;
    }
    supply.manager.next_input_byte = supply.room.data();
    supply.manager.bytes_in_buffer = *count;
    return TRUE;
}

void on_skip(j_decompress_ptr info, long count) {
    Supply &supply = supply_of(info);
    const auto bytes = static_cast<size_t>(std::max(count, 0L));
    const size_t here = std::min(bytes, supply.manager.bytes_in_buffer);
    supply.manager.next_input_byte += here;
    supply.manager.bytes_in_buffer -= here;
    supply.offset += bytes - here;
}

void on_start(j_decompress_ptr) {}
void on_end(j_decompress_ptr) {}

// Ends with its scope, even if a constructor fails.
struct Decompressor : jpeg_decompress_struct {
    ~Decompressor() { jpeg_destroy_decompress(this); }
};

class JpegReader : public Reader {
  public:
    JpegReader(Input &input, const Reduction &reduction) {
        info_.err = prepare(errors_);
        supply_.manager = {nullptr, 0, on_start, on_empty, on_skip, jpeg_resync_to_restart, on_end};
        supply_.input = &input;
        supply_.offset = 0;
        errors_.trouble.guarded([this] { read_header(); });
        check_size(info_.image_width, info_.image_height);
        describe();
        read_metadata();
        if (is_cmyk()) {
            inks_to_rgb_.emplace(description_.metadata.icc_profile, info_.saw_Adobe_marker != FALSE);
        }
        errors_.trouble.guarded([&] { set_size(reduction); });
        width_ = info_.output_width;
        height_ = info_.output_height;
        inks_.resize(inks_to_rgb_ ? size_t{width_} * 4 : 0);
    }

    void read(uint32_t rows, uint8_t *pixels, uint8_t *) override {
        const size_t row_bytes = size_t{width_} * description_.channels;
        if (inks_to_rgb_) {
            read_inks(rows, pixels, row_bytes);
            return;
        }
        errors_.trouble.guarded([&] {
            start();
            for (uint32_t row = 0; row < rows; ++row) {
                JSAMPROW to = pixels + row * row_bytes;
                jpeg_read_scanlines(&info_, &to, 1);
            }
        });
    }

    void finish(Notices &notices) override {
        // jpeg_finish_decompress frees the saved markers with it; here only the rest of the file is read.
        errors_.trouble.guarded([this] {
            start();
            while (jpeg_input_complete(&info_) == FALSE) {
                jpeg_consume_input(&info_);
            }
        });
        const SegmentSorter sorter = read_metadata();
        if (description_.metadata.icc_profile.empty() && sorter.has_icc_profile()) {
            notices.push_back("the ICC profile is damaged and left out");
        }
        sorter.tell(*supply_.input, supply_.offset - supply_.manager.bytes_in_buffer, description_.metadata, notices);
        errors_.trouble.tell_warnings(notices);
        if (inks_to_rgb_) {
            describe_as_srgb(description_.metadata);
            notices.push_back(cmyk_converted);
        }
    }

  private:
    static void on_progress(j_common_ptr common) {
        if (reinterpret_cast<j_decompress_ptr>(common)->input_scan_number > most_scans) {
            reinterpret_cast<JpegErrors *>(common->err)->trouble.fail("too many scans");
        }
    }

    bool is_cmyk() const { return info_.jpeg_color_space == JCS_CMYK || info_.jpeg_color_space == JCS_YCCK; }

    void read_inks(uint32_t rows, uint8_t *pixels, size_t row_bytes) {
        for (uint32_t row = 0; row < rows; ++row) {
            errors_.trouble.guarded([this] {
                start();
                JSAMPROW to = inks_.data();
                jpeg_read_scanlines(&info_, &to, 1);
            });
            inks_to_rgb_->convert(inks_.data(), pixels + row * row_bytes, width_);
        }
    }

    // Runs inside a guarded step, like start.
    void read_header() {
        jpeg_create_decompress(&info_);
        progress_.progress_monitor = on_progress;
        info_.progress = &progress_;
        info_.src = &supply_.manager;
        for (int marker = JPEG_APP0; marker <= JPEG_APP0 + 15; ++marker) {
            jpeg_save_markers(&info_, marker, 0xffff);
        }
        jpeg_save_markers(&info_, JPEG_COM, 0xffff);
        jpeg_read_header(&info_, TRUE);
    }

    // The decoder has fast paths for these sizes.
    void set_size(const Reduction &reduction) {
        info_.out_color_space = inks_to_rgb_ ? JCS_CMYK : description_.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
        for (info_.scale_denom = 8; info_.scale_denom > 1; info_.scale_denom /= 2) {
            jpeg_calc_output_dimensions(&info_);
            if (info_.output_width >= reduction.width && info_.output_height >= reduction.height) {
                break;
            }
        }
        jpeg_calc_output_dimensions(&info_);
    }

    // Not before the first row is requested: for a progressive file, this reads everything.
    void start() {
        if (!started_) {
            started_ = true;
            jpeg_start_decompress(&info_);
        }
    }

    void describe() {
        description_.format = Format::jpeg;
        description_.width = info_.image_width;
        description_.height = info_.image_height;
        description_.channels = channels();
        description_.progressive = info_.progressive_mode != FALSE;
        description_.subsampling = subsampling();
        description_.quantisation = quantisation();
    }

    uint32_t channels() const {
        switch (info_.jpeg_color_space) {
        case JCS_GRAYSCALE:
            return 1;
        case JCS_YCbCr:
        case JCS_RGB:
        case JCS_CMYK:
        case JCS_YCCK:
            return 3;
        default:
            throw Error("neither gray nor RGB: " + std::to_string(info_.num_components) + " channels of unknown colours");
        }
    }

    // Of two colour components that differ, the finer one counts, and ratios that are not whole numbers count as full colour:
    // neither loses anything.
    Subsampling subsampling() const {
        if (info_.num_components != 3) {
            return {};
        }
        const auto ratio = [this](int jpeg_component_info::*factor) {
            const auto to = [=, this](int colour) {
                const int samples = info_.comp_info[0].*factor;
                const int fewer = info_.comp_info[colour].*factor;
                return samples % fewer == 0 ? samples / fewer : 1;
            };
            return std::min(to(1), to(2));
        };
        return {ratio(&jpeg_component_info::h_samp_factor), ratio(&jpeg_component_info::v_samp_factor)};
    }

    // The tables that the header names; a file may define them later or never. Those of inks are of no use for encoding RGB.
    std::optional<JpegQuantisation> quantisation() const {
        if (is_cmyk()) {
            return std::nullopt;
        }
        const auto table = [this](int component) { return info_.quant_tbl_ptrs[info_.comp_info[component].quant_tbl_no & 3]; };
        const JQUANT_TBL *luminance = table(0);
        const JQUANT_TBL *colours = table(info_.num_components == 3 ? 1 : 0);
        if (luminance == nullptr || colours == nullptr) {
            return std::nullopt;
        }
        JpegQuantisation found;
        std::copy_n(luminance->quantval, DCTSIZE2, found.luminance.begin());
        std::copy_n(colours->quantval, DCTSIZE2, found.colours.begin());
        return found;
    }

    SegmentSorter read_metadata() {
        Metadata metadata;
        SegmentSorter sorter;
        for (jpeg_saved_marker_ptr marker = info_.marker_list; marker != nullptr; marker = marker->next) {
            sorter.add(marker->marker, {marker->data, marker->data_length}, metadata);
        }
        SegmentSorter::complete(metadata);
        read_icc_profile(metadata);
        if (info_.saw_JFIF_marker && info_.X_density != 0 && info_.Y_density != 0) {
            metadata.density = density();
        }
        description_.metadata = std::move(metadata);
        return sorter;
    }

    void read_icc_profile(Metadata &metadata) {
        JOCTET *data = nullptr;
        unsigned int size = 0;
        boolean found = FALSE;
        errors_.trouble.guarded([&] { found = jpeg_read_icc_profile(&info_, &data, &size); });
        const std::unique_ptr<JOCTET, decltype(&std::free)> owner(data, &std::free);
        if (found) {
            metadata.icc_profile.assign(data, data + size);
        }
    }

    Density density() const {
        switch (info_.density_unit) {
        case 1:
            return {Density::Unit::inch, info_.X_density, info_.Y_density};
        case 2:
            return {Density::Unit::centimetre, info_.X_density, info_.Y_density};
        default:
            return {Density::Unit::none, info_.X_density, info_.Y_density};
        }
    }

    JpegErrors errors_{};
    Supply supply_;
    bool started_ = false;
    jpeg_progress_mgr progress_{};
    std::optional<CmykToRgb> inks_to_rgb_; // of a CMYK file
    Bytes inks_;                           // a row of them
    Decompressor info_{};                  // last, so that it is destroyed first: it uses the others
};

} // namespace

std::unique_ptr<Reader> open_jpeg(Input &input, const Reduction &reduction) {
    return std::make_unique<JpegReader>(input, reduction);
}

} // namespace codec
