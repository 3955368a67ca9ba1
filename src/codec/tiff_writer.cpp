// TIFF files out: 8-bit gray or RGB in strips, with alpha where the picture has it, compressed like the input if that was a
// TIFF file.
#include <algorithm>
#include <array>

#include "codec/exif.h"
#include "codec/extended_xmp.h"
#include "codec/formats.h"
#include "codec/left_out.h"
#include "codec/tiff_common.h"
#include "codec/tiff_exif.h"

namespace codec {

namespace {

// Samples of a strip: enough for the compression to find what repeats, and little to decode for one row.
constexpr size_t strip_samples = 1 << 18;

// Passes libtiff's bytes to an output, which grows at its end and is overwritten before it.
struct Target {
    Output *output;
    TiffReports *reports;
    uint64_t size = 0;
    uint64_t position = 0;

    bool put(std::span<const uint8_t> bytes) {
        const size_t over = std::min<uint64_t>(size - position, bytes.size());
        const bool good = (over == 0 || output->rewrite(position, bytes.first(over))) &&
                          (over == bytes.size() || output->write(bytes.subspan(over)));
        if (!good) {
            reports->stream_failed(output->failure());
            return false;
        }
        position += bytes.size();
        size = std::max(size, position);
        return true;
    }

    // Writes zeros up to the position if it is past the end: libtiff writes the values of a directory before the directory.
    bool reach() {
        static constexpr std::array<uint8_t, 256> zeros{};
        const uint64_t wanted = position;
        if (wanted <= size) {
            return true;
        }
        for (position = size; position < wanted;) {
            if (!put({zeros.data(), std::min<uint64_t>(wanted - position, zeros.size())})) {
                return false;
            }
        }
        return true;
    }
};

Target &target_of(thandle_t data) { return *static_cast<Target *>(data); }

tmsize_t on_read(thandle_t, void *, tmsize_t) { return -1; }

tmsize_t on_write(thandle_t data, void *bytes, tmsize_t count) {
    Target &target = target_of(data);
    return target.reach() && target.put({static_cast<const uint8_t *>(bytes), static_cast<size_t>(count)}) ? count : -1;
}

toff_t on_seek(thandle_t data, toff_t offset, int whence) {
    Target &target = target_of(data);
    target.position = offset + (whence == SEEK_CUR ? target.position : whence == SEEK_END ? target.size : 0);
    return target.position;
}

toff_t on_size(thandle_t data) { return target_of(data).size; }

uint16_t code_of(TiffCompression compression) {
    switch (compression) {
    case TiffCompression::lzw:
        return COMPRESSION_LZW;
    case TiffCompression::packbits:
        return COMPRESSION_PACKBITS;
    case TiffCompression::none:
        return COMPRESSION_NONE;
    default:
        return COMPRESSION_ADOBE_DEFLATE;
    }
}

class TiffWriter : public Writer {
  public:
    TiffWriter(Output &output, const Description &picture, Notices &notices)
        : target_{&output, &reports_}, picture_(picture), channels_(picture.channels + (picture.has_alpha ? 1 : 0)),
          samples_(size_t{picture.width} * channels_) {
        // The file begins with the Exif data, whose header becomes that of the file.
        const Bytes exif = exif_for_tiff(picture.metadata.exif, notices);
        if (!target_.put(exif)) {
            reports_.check(false);
        }
        const bool big_endian = !exif.empty() && exif[0] == 'M';
        tiff_ = open_handle(big_endian ? "wb" : "wl", {&target_, on_read, on_write, on_seek, on_size}, reports_);
        tell_losses(notices);
        set_layout();
        set_metadata();
        put_exif(tiff_.get(), exif, picture.metadata.density.has_value(), reports_, notices);
    }

    void write(uint32_t rows, const uint8_t *pixels, const uint8_t *alpha) override {
        for (uint32_t row = 0; row < rows; ++row) {
            take(pixels + row * picture_.row_bytes(), picture_.has_alpha ? alpha + size_t{row} * picture_.width : nullptr);
            reports_.check(TIFFWriteScanline(tiff_.get(), samples_.data(), row_++) == 1);
        }
    }

    void finish(Notices &notices) override {
        reports_.check(TIFFWriteDirectory(tiff_.get()) == 1);
        reports_.tell_warnings(notices);
    }

  private:
    void tell_losses(Notices &notices) const {
        tell_left_out(picture_.metadata, {.xmp = true, .photoshop = true, .iptc = true}, notices);
        if (picture_.metadata.png_colours.gamma && picture_.metadata.icc_profile.empty()) {
            notices.push_back("a TIFF file cannot hold the PNG file's gamma, which is left out");
        }
    }

    template <class... Values> void set(uint32_t tag, Values... values) {
        reports_.check(TIFFSetField(tiff_.get(), tag, values...) == 1);
    }

    void set_layout() {
        const TiffCompression compression = picture_.tiff_compression;
        set(TIFFTAG_IMAGEWIDTH, picture_.width);
        set(TIFFTAG_IMAGELENGTH, picture_.height);
        set(TIFFTAG_BITSPERSAMPLE, 8);
        set(TIFFTAG_SAMPLESPERPIXEL, channels_);
        set(TIFFTAG_PHOTOMETRIC, picture_.channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
        set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        if (picture_.has_alpha) {
            const uint16_t kind = EXTRASAMPLE_UNASSALPHA;
            set(TIFFTAG_EXTRASAMPLES, 1, &kind);
        }
        set(TIFFTAG_COMPRESSION, code_of(compression));
        if (compression == TiffCompression::deflate || compression == TiffCompression::lzw) {
            set(TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
        }
        set(TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(std::max(strip_samples / samples_.size(), size_t{1})));
    }

    void set_metadata() {
        const Metadata &metadata = picture_.metadata;
        set(TIFFTAG_ORIENTATION, exif_orientation(metadata.exif).value_or(upright));
        if (!metadata.icc_profile.empty()) {
            set(TIFFTAG_ICCPROFILE, static_cast<uint32_t>(metadata.icc_profile.size()), metadata.icc_profile.data());
        }
        set_block(TIFFTAG_XMLPACKET, whole_xmp(metadata));
        set_block(TIFFTAG_PHOTOSHOP, metadata.photoshop);
        set_block(TIFFTAG_RICHTIFFIPTC, metadata.iptc);
        if (metadata.density) {
            set_density(*metadata.density);
        }
    }

    void set_block(uint32_t tag, const Bytes &bytes) {
        if (!bytes.empty()) {
            set(tag, static_cast<uint32_t>(bytes.size()), bytes.data());
        }
    }

    void set_density(const Density &density) {
        const bool by_metre = density.unit == Density::Unit::metre;
        const double scale = by_metre ? 0.01 : 1.0;
        set(TIFFTAG_XRESOLUTION, density.x * scale);
        set(TIFFTAG_YRESOLUTION, density.y * scale);
        set(TIFFTAG_RESOLUTIONUNIT, density.unit == Density::Unit::none   ? RESUNIT_NONE
                                    : density.unit == Density::Unit::inch ? RESUNIT_INCH
                                                                          : RESUNIT_CENTIMETER);
    }

    // A row with alpha among its colours; libtiff changes what it is given.
    void take(const uint8_t *pixels, const uint8_t *alpha) {
        if (alpha == nullptr) {
            std::copy_n(pixels, samples_.size(), samples_.begin());
            return;
        }
        uint8_t *to = samples_.data();
        for (uint32_t x = 0; x < picture_.width; ++x, pixels += picture_.channels) {
            to = std::copy_n(pixels, picture_.channels, to);
            *to++ = alpha[x];
        }
    }

    TiffReports reports_;
    Target target_;
    const Description &picture_;
    uint32_t channels_; // with alpha
    Bytes samples_;     // of a row
    uint32_t row_ = 0;
    TiffPtr tiff_; // last, so that it is destroyed first: it uses the others
};

} // namespace

std::unique_ptr<Writer> create_tiff(Output &output, const Description &picture, Notices &notices) {
    return std::make_unique<TiffWriter>(output, picture, notices);
}

} // namespace codec
