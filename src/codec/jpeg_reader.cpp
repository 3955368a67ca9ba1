// JPEG files in: gray stays gray, YCbCr and RGB become RGB, everything else is refused.
//
// libjpeg leaves a failed call by a jump, so each run of its calls is a guarded step that holds no object with a destructor.
// Its warnings of lost data count as failures: a truncated picture is not passed on as a whole one.
#include "codec/jpeg_common.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "codec/formats.h"

namespace codec {

namespace {

// Files with more scans than any encoder makes are there to waste time.
constexpr int most_scans = 500;

constexpr std::string_view icc_mark("ICC_PROFILE\0", 12);
constexpr std::string_view multi_picture_mark("MPF\0", 4); // offsets into the old file: of no use in a new one

bool begins_with(const jpeg_saved_marker_ptr marker, std::string_view mark) {
    return marker->data_length >= mark.size() && std::memcmp(marker->data, mark.data(), mark.size()) == 0;
}

class JpegReader {
  public:
    JpegReader() { info_.err = prepare(errors_); }
    ~JpegReader() { jpeg_destroy_decompress(&info_); }
    JpegReader(const JpegReader &) = delete;
    JpegReader &operator=(const JpegReader &) = delete;

    Picture read(std::span<const uint8_t> bytes, Notices &notices) {
        read_header(bytes);
        check_size(info_.image_width, info_.image_height);
        Picture picture;
        picture.format = Format::jpeg;
        picture.width = info_.image_width;
        picture.height = info_.image_height;
        picture.channels = channels();
        picture.subsampling = subsampling();
        picture.pixels = std::make_unique_for_overwrite<uint8_t[]>(picture.area() * picture.channels);
        read_pixels(picture);
        read_metadata(picture.metadata, notices);
        errors_.trouble.tell_warnings(notices);
        return picture;
    }

  private:
    static void on_progress(j_common_ptr common) {
        if (reinterpret_cast<j_decompress_ptr>(common)->input_scan_number > most_scans) {
            reinterpret_cast<JpegErrors *>(common->err)->trouble.fail("too many scans");
        }
    }

    void read_header(std::span<const uint8_t> bytes) {
        errors_.trouble.guarded([&] {
            jpeg_create_decompress(&info_);
            progress_.progress_monitor = on_progress;
            info_.progress = &progress_;
            jpeg_mem_src(&info_, bytes.data(), static_cast<unsigned long>(bytes.size()));
            for (const int marker : {app1, app2, app13}) {
                jpeg_save_markers(&info_, marker, 0xffff);
            }
            jpeg_read_header(&info_, TRUE);
        });
    }

    uint32_t channels() const {
        switch (info_.jpeg_color_space) {
        case JCS_GRAYSCALE:
            return 1;
        case JCS_YCbCr:
        case JCS_RGB:
            return 3;
        case JCS_CMYK:
        case JCS_YCCK:
            throw Error("CMYK pictures are not supported");
        default:
            throw Error("neither gray nor RGB: " + std::to_string(info_.num_components) + " channels of unknown colours");
        }
    }

    // Of two colour components that differ, the finer counts, and ratios that are no whole numbers count as full colour:
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

    void read_pixels(Picture &picture) {
        errors_.trouble.guarded([&] {
            info_.out_color_space = picture.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
            jpeg_start_decompress(&info_);
            while (info_.output_scanline < info_.output_height) {
                JSAMPROW row = picture.pixels.get() + info_.output_scanline * picture.row_bytes();
                jpeg_read_scanlines(&info_, &row, 1);
            }
            // jpeg_finish_decompress frees the saved markers with it; here only the rest of the file is read.
            while (jpeg_input_complete(&info_) == FALSE) {
                jpeg_consume_input(&info_);
            }
        });
    }

    void read_metadata(Metadata &metadata, Notices &notices) {
        for (jpeg_saved_marker_ptr marker = info_.marker_list; marker != nullptr; marker = marker->next) {
            read_segment(marker, metadata);
        }
        read_icc_profile(metadata);
        if (info_.saw_JFIF_marker && info_.X_density != 0 && info_.Y_density != 0) {
            metadata.density = density();
        }
        if (metadata.icc_profile.empty() && found_icc_) {
            notices.push_back("the ICC profile is damaged and left out");
        }
    }

    void read_segment(jpeg_saved_marker_ptr marker, Metadata &metadata) {
        const JOCTET *begin = marker->data;
        const JOCTET *end = begin + marker->data_length;
        if (marker->marker == app1 && begins_with(marker, exif_mark) && metadata.exif.empty()) {
            metadata.exif.assign(begin + exif_mark.size(), end);
        } else if (marker->marker == app2 && begins_with(marker, icc_mark)) {
            found_icc_ = true;
        } else if (marker->marker != app2 || !begins_with(marker, multi_picture_mark)) {
            metadata.jpeg_segments.push_back({marker->marker, Bytes(begin, end)});
        }
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
    jpeg_decompress_struct info_{};
    jpeg_progress_mgr progress_{};
    bool found_icc_ = false;
};

} // namespace

Picture decode_jpeg(std::span<const uint8_t> bytes, Notices &notices) { return JpegReader().read(bytes, notices); }

} // namespace codec
