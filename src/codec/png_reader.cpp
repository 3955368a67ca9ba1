// PNG files in: every depth and colour type becomes 8-bit gray or RGB with alpha beside it.
//
// libpng leaves a failed call by a jump, so each run of its calls is a guarded step that holds no object with a destructor.
#include <png.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "codec/formats.h"
#include "codec/guard.h"

namespace codec {

namespace {

class PngReader {
  public:
    explicit PngReader(std::span<const uint8_t> bytes) : bytes_(bytes) {
        png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, &trouble_, on_error, on_warning);
        info_ = png_ != nullptr ? png_create_info_struct(png_) : nullptr;
        if (info_ == nullptr) {
            png_destroy_read_struct(&png_, nullptr, nullptr);
            throw std::bad_alloc();
        }
    }
    ~PngReader() { png_destroy_read_struct(&png_, &info_, nullptr); }
    PngReader(const PngReader &) = delete;
    PngReader &operator=(const PngReader &) = delete;

    Picture read(Notices &notices) {
        read_header();
        check_size(png_get_image_width(png_, info_), png_get_image_height(png_, info_));
        const bool deep = png_get_bit_depth(png_, info_) == 16;
        ask_for_bytes();
        Picture picture;
        picture.format = Format::png;
        picture.width = png_get_image_width(png_, info_);
        picture.height = png_get_image_height(png_, info_);
        picture.pixels = read_pixels();
        const uint32_t channels = png_get_channels(png_, info_);
        picture.channels = channels < 3 ? 1 : 3;
        if (channels != picture.channels) {
            separate_alpha(picture);
        }
        picture.metadata = read_metadata();
        trouble_.tell_warnings(notices);
        if (deep) {
            notices.push_back("16 bits a channel reduced to 8");
        }
        return picture;
    }

  private:
    static void on_error(png_structp png, png_const_charp text) { static_cast<Trouble *>(png_get_error_ptr(png))->fail(text); }
    static void on_warning(png_structp png, png_const_charp text) {
        static_cast<Trouble *>(png_get_error_ptr(png))->warn(text);
    }

    static void on_read(png_structp png, png_bytep out, size_t count) {
        auto &reader = *static_cast<PngReader *>(png_get_io_ptr(png));
        if (count > reader.bytes_.size() - reader.position_) {
            png_error(png, "truncated PNG file");
        }
        std::memcpy(out, reader.bytes_.data() + reader.position_, count);
        reader.position_ += count;
    }

    void read_header() {
        trouble_.guarded([this] {
            png_set_read_fn(png_, this, on_read);
            // A profile is carried, not interpreted: no comparison with the well-known ones.
            png_set_option(png_, PNG_SKIP_sRGB_CHECK_PROFILE, PNG_OPTION_ON);
            png_read_info(png_, info_);
        });
    }

    void ask_for_bytes() {
        trouble_.guarded([this] {
            png_set_expand(png_); // palette to RGB, few bits to 8, a transparent colour to alpha
            png_set_scale_16(png_);
            png_set_interlace_handling(png_);
            png_read_update_info(png_, info_);
        });
    }

    Plane read_pixels() {
        const size_t row_bytes = png_get_rowbytes(png_, info_);
        const size_t height = png_get_image_height(png_, info_);
        Plane pixels = std::make_unique_for_overwrite<uint8_t[]>(row_bytes * height);
        std::vector<png_bytep> rows(height);
        for (size_t y = 0; y < height; ++y) {
            rows[y] = pixels.get() + y * row_bytes;
        }
        trouble_.guarded([&] {
            png_read_image(png_, rows.data());
            png_read_end(png_, info_); // metadata may stand behind the pixels
        });
        return pixels;
    }

    // Takes every last channel out of the interleaved pixels, which close up in place.
    static void separate_alpha(Picture &picture) {
        picture.alpha = std::make_unique_for_overwrite<uint8_t[]>(picture.area());
        const uint8_t *from = picture.pixels.get();
        uint8_t *to = picture.pixels.get();
        for (size_t i = 0; i < picture.area(); ++i) {
            for (uint32_t c = 0; c < picture.channels; ++c) {
                *to++ = *from++;
            }
            picture.alpha[i] = *from++;
        }
    }

    Metadata read_metadata() {
        Metadata metadata;
        metadata.exif = exif();
        metadata.icc_profile = icc_profile();
        metadata.density = density();
        metadata.png_colours = colours();
        return metadata;
    }

    Bytes exif() {
        png_uint_32 size = 0;
        png_bytep data = nullptr;
        const bool found = png_get_eXIf_1(png_, info_, &size, &data) != 0;
        return found ? Bytes(data, data + size) : Bytes();
    }

    Bytes icc_profile() {
        png_charp name = nullptr;
        int compression = 0;
        png_bytep data = nullptr;
        png_uint_32 size = 0;
        const bool found = png_get_iCCP(png_, info_, &name, &compression, &data, &size) != 0;
        return found ? Bytes(data, data + size) : Bytes();
    }

    std::optional<Density> density() {
        Density found;
        int unit = 0;
        if (png_get_pHYs(png_, info_, &found.x, &found.y, &unit) == 0) {
            return std::nullopt;
        }
        found.unit = unit == PNG_RESOLUTION_METER ? Density::Unit::metre : Density::Unit::none;
        return found;
    }

    // With an sRGB chunk libpng fills in gamma and chromaticities of its own; they are not the file's.
    PngColours colours() {
        PngColours found;
        int intent = 0;
        if (png_get_sRGB(png_, info_, &intent) != 0) {
            found.srgb_intent = intent;
            return found;
        }
        png_fixed_point gamma = 0;
        if (png_get_gAMA_fixed(png_, info_, &gamma) != 0) {
            found.gamma = gamma;
        }
        std::array<png_fixed_point, 8> c{};
        if (png_get_cHRM_fixed(png_, info_, &c[0], &c[1], &c[2], &c[3], &c[4], &c[5], &c[6], &c[7]) != 0) {
            found.chromaticities.emplace();
            std::copy(c.begin(), c.end(), found.chromaticities->begin());
        }
        return found;
    }

    std::span<const uint8_t> bytes_;
    size_t position_ = 0;
    Trouble trouble_;
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
};

} // namespace

Picture decode_png(std::span<const uint8_t> bytes, Notices &notices) { return PngReader(bytes).read(notices); }

} // namespace codec
