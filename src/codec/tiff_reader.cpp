// TIFF files in: the first picture of a file, however it is stored and compressed, as 8-bit gray or RGB with alpha beside it.
//
// The pixels stay as they are stored. If the file says that they are to be shown rotated, the orientation goes into the Exif
// data, which carries it into every format.
#include <algorithm>
#include <array>
#include <cmath>
#include <set>

#include "codec/alpha.h"
#include "codec/cmyk.h"
#include "codec/formats.h"
#include "codec/photoshop.h"
#include "codec/tiff_common.h"
#include "codec/tiff_exif.h"
#include "codec/tiff_rows.h"
#include "codec/tiff_structure.h"

namespace codec {

namespace {

using Entries = std::vector<TiffStructure::Entry>;

constexpr uint16_t most_channels = 32;

// No picture needs more metadata in one piece.
constexpr uint64_t largest_block = uint64_t{1} << 26;

// Gives libtiff the bytes of an input.
struct Source {
    Input *input;
    TiffReports *reports;
    uint64_t size = 0;
    uint64_t position = 0;
};

Source &source_of(thandle_t data) { return *static_cast<Source *>(data); }

tmsize_t on_read(thandle_t data, void *room, tmsize_t size) {
    Source &source = source_of(data);
    const auto count = source.input->read(source.position, {static_cast<uint8_t *>(room), static_cast<size_t>(size)});
    if (!count) {
        source.reports->stream_failed(source.input->failure());
        return 0; // libtiff 4.5.0 takes a negative result for a size
    }
    source.position += *count;
    return static_cast<tmsize_t>(*count);
}

tmsize_t on_write(thandle_t, void *, tmsize_t) { return -1; }

toff_t on_seek(thandle_t data, toff_t offset, int whence) {
    Source &source = source_of(data);
    source.position = offset + (whence == SEEK_CUR ? source.position : whence == SEEK_END ? source.size : 0);
    return source.position;
}

toff_t on_size(thandle_t data) { return source_of(data).size; }

// The value of a field, or its default if the file does not have it.
template <class Value> Value value_of(TIFF *tiff, uint32_t tag) {
    Value value{};
    TIFFGetFieldDefaulted(tiff, tag, &value);
    return value;
}

// Counts the pictures of a file after its first one, without reduced copies for a quick view of a large one. Damaged
// directories end the count, and so does one too many.
uint32_t count_further_pictures(TiffStructure &file, uint64_t first) {
    constexpr size_t most = 10'000;
    std::set<uint64_t> seen = {first};
    uint32_t count = 0;
    uint64_t position = file.behind(first);
    while (position != 0 && seen.size() <= most && seen.insert(position).second) {
        const auto directory = file.directory(position);
        const TiffStructure::Entry *kind = directory ? find(directory->entries, TIFFTAG_SUBFILETYPE) : nullptr;
        const bool is_reduced = kind != nullptr && (file.number(kind->position, 4).value_or(0) & FILETYPE_REDUCEDIMAGE) != 0;
        count += is_reduced ? 0 : 1;
        position = file.behind(position);
    }
    return count;
}

// What the samples of a pixel mean.
enum class Kind { black_is_0, white_is_0, rgb, palette, cmyk, converted };

class TiffReader : public Reader {
  public:
    explicit TiffReader(Input &input) : source_{&input, &reports_, size_of(input)} {
        std::optional<TiffStructure> structure = TiffStructure::of(input);
        const auto first = structure ? structure->directory(structure->first()) : std::nullopt;
        if (!first) {
            throw Error("truncated TIFF file");
        }
        refuse_overlaps(first->entries);
        reports_.be_lenient();
        tiff_ = open_handle("r", {&source_, on_read, on_write, on_seek, on_size}, reports_);
        refuse_raw();
        look_at_samples();
        describe();
        read_metadata(*structure, first->entries);
        further_ = count_further_pictures(*structure, structure->first());
        reports_.be_strict();
        rows_ = kind_ == Kind::converted ? converted_rows(tiff_.get(), layout_, reports_)
                                         : stored_rows(tiff_.get(), layout_, reports_);
    }

    void read(uint32_t rows, uint8_t *pixels, uint8_t *alpha) override {
        for (uint32_t row = 0; row < rows; ++row) {
            const uint8_t *samples = rows_->next();
            convert(samples, pixels);
            if (description_.has_alpha) {
                convert_alpha(samples, pixels, alpha);
                alpha += alpha != nullptr ? width_ : 0;
            }
            pixels += description_.row_bytes();
        }
    }

    void finish(Notices &notices) override {
        reports_.tell_warnings(notices);
        notices.insert(notices.end(), left_out_.begin(), left_out_.end());
        if (layout_.bits == 16) {
            notices.push_back("16 bits per channel reduced to 8");
        }
        if (inks_to_rgb_) {
            notices.push_back(cmyk_converted);
        }
        if (multiplied_) {
            notices.push_back(divided_by_alpha);
        }
        if (other_channels_) {
            notices.push_back("channels beside the picture's colours are left out");
        }
        if (further_ > 0) {
            notices.push_back(further_pictures(further_));
        }
    }

  private:
    template <class Value> Value value(uint32_t tag) const { return value_of<Value>(tiff_.get(), tag); }

    // libtiff keeps all values of the directory, so that those of a file that claims the same bytes many times would need far
    // more memory than the file has bytes.
    void refuse_overlaps(const Entries &directory) const {
        uint64_t total = 0;
        for (const TiffStructure::Entry &entry : directory) {
            total += entry.size();
            if (total > source_.size) {
                throw Error("damaged TIFF file: its values overlap");
            }
        }
    }

    // A raw file begins with a small preview, or with samples that are not colours yet.
    void refuse_raw() const {
        const void *version = nullptr;
        uint16_t count = 0;
        const void *offsets = nullptr;
        const bool is_small = (value<uint32_t>(TIFFTAG_SUBFILETYPE) & FILETYPE_REDUCEDIMAGE) != 0;
        if (TIFFGetField(tiff_.get(), TIFFTAG_DNGVERSION, &version) != 0 ||
            value<uint16_t>(TIFFTAG_PHOTOMETRIC) == PHOTOMETRIC_CFA ||
            (is_small && TIFFGetField(tiff_.get(), TIFFTAG_SUBIFD, &count, &offsets) != 0)) {
            throw Error("a camera raw file, which cannot be read");
        }
    }

    void look_at_samples() {
        layout_.width = value<uint32_t>(TIFFTAG_IMAGEWIDTH);
        layout_.height = value<uint32_t>(TIFFTAG_IMAGELENGTH);
        check_size(layout_.width, layout_.height);
        layout_.channels = value<uint16_t>(TIFFTAG_SAMPLESPERPIXEL);
        layout_.bits = value<uint16_t>(TIFFTAG_BITSPERSAMPLE);
        layout_.apart = value<uint16_t>(TIFFTAG_PLANARCONFIG) == PLANARCONFIG_SEPARATE && layout_.channels > 1;
        kind_ = kind();
        layout_.indices = kind_ == Kind::palette;
        check_layout();
        look_at_further_channels();
    }

    Kind kind() const {
        uint16_t photometric = 0;
        if (TIFFGetField(tiff_.get(), TIFFTAG_PHOTOMETRIC, &photometric) == 0) {
            throw Error("the file does not specify what its samples mean");
        }
        switch (photometric) {
        case PHOTOMETRIC_MINISBLACK:
            return Kind::black_is_0;
        case PHOTOMETRIC_MINISWHITE:
            return Kind::white_is_0;
        case PHOTOMETRIC_RGB:
            return Kind::rgb;
        case PHOTOMETRIC_PALETTE:
            return Kind::palette;
        case PHOTOMETRIC_YCBCR:
            return kind_of_ycbcr();
        case PHOTOMETRIC_SEPARATED:
            if (value<uint16_t>(TIFFTAG_INKSET) != INKSET_CMYK) {
                throw Error("inks other than CMYK");
            }
            return Kind::cmyk;
        default:
            throw Error("neither gray nor RGB: colours of TIFF kind " + std::to_string(photometric));
        }
    }

    // libjpeg gives RGB on request.
    Kind kind_of_ycbcr() const {
        if (value<uint16_t>(TIFFTAG_COMPRESSION) != COMPRESSION_JPEG || layout_.apart) {
            return Kind::converted;
        }
        TIFFSetField(tiff_.get(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        return Kind::rgb;
    }

    uint16_t colours() const {
        switch (kind_) {
        case Kind::rgb:
        case Kind::converted:
            return 3;
        case Kind::cmyk:
            return 4;
        default:
            return 1;
        }
    }

    void check_layout() const {
        const auto form = value<uint16_t>(TIFFTAG_SAMPLEFORMAT);
        if (form != SAMPLEFORMAT_UINT && form != SAMPLEFORMAT_VOID) {
            throw Error("the samples are not unsigned whole numbers");
        }
        const uint16_t bits = layout_.bits;
        const bool known = bits == 1 || bits == 2 || bits == 4 || bits == 8 || bits == 16;
        if (!known || (kind_ == Kind::palette && bits > 8)) {
            throw Error(std::to_string(bits) + " bits per channel");
        }
        if (layout_.channels < colours() || layout_.channels > most_channels ||
            (kind_ == Kind::converted && layout_.channels != 3)) {
            throw Error(std::to_string(layout_.channels) + " channels");
        }
        if (layout_.row_samples() > largest_area) {
            throw Error("the rows are too long");
        }
    }

    // One of the channels after the colours may be alpha.
    void look_at_further_channels() {
        uint16_t count = 0;
        const uint16_t *kinds = nullptr;
        if (TIFFGetField(tiff_.get(), TIFFTAG_EXTRASAMPLES, &count, &kinds) == 0) {
            count = 0;
        }
        const uint16_t *end = kinds + std::min<int>(count, layout_.channels - colours());
        const uint16_t *found = std::find_if(
            kinds, end, [](uint16_t kind) { return kind == EXTRASAMPLE_ASSOCALPHA || kind == EXTRASAMPLE_UNASSALPHA; });
        if (found != end) {
            description_.has_alpha = true;
            alpha_channel_ = static_cast<size_t>(colours() + (found - kinds));
            multiplied_ = *found == EXTRASAMPLE_ASSOCALPHA;
        }
        other_channels_ = layout_.channels > colours() + (description_.has_alpha ? 1 : 0);
    }

    void describe() {
        width_ = layout_.width;
        height_ = layout_.height;
        description_.format = Format::tiff;
        description_.width = width_;
        description_.height = height_;
        description_.channels = kind_ == Kind::black_is_0 || kind_ == Kind::white_is_0 ? 1 : 3;
        description_.tiff_compression = compression();
        if (kind_ == Kind::palette) {
            read_palette();
        }
    }

    TiffCompression compression() const {
        switch (value<uint16_t>(TIFFTAG_COMPRESSION)) {
        case COMPRESSION_NONE:
            return TiffCompression::none;
        case COMPRESSION_LZW:
            return TiffCompression::lzw;
        case COMPRESSION_PACKBITS:
            return TiffCompression::packbits;
        default:
            return TiffCompression::deflate;
        }
    }

    // The levels have 16 bits, but only 8 in files by some programs.
    void read_palette() {
        std::array<uint16_t *, 3> levels{};
        reports_.check(TIFFGetField(tiff_.get(), TIFFTAG_COLORMAP, &levels[0], &levels[1], &levels[2]) != 0);
        const size_t count = size_t{1} << layout_.bits;
        const bool deep = std::any_of(levels.begin(), levels.end(), [count](const uint16_t *of_colour) {
            return std::any_of(of_colour, of_colour + count, [](uint16_t level) { return level > 255; });
        });
        for (size_t i = 0; i < count; ++i) {
            for (size_t c = 0; c < 3; ++c) {
                const uint32_t level = levels[c][i];
                palette_[3 * i + c] = static_cast<uint8_t>(deep ? (level * 255 + 32767) / 65535 : level);
            }
        }
    }

    void read_metadata(TiffStructure &structure, const Entries &directory) {
        Metadata &metadata = description_.metadata;
        uint32_t size = 0;
        const uint8_t *profile = nullptr;
        if (TIFFGetField(tiff_.get(), TIFFTAG_ICCPROFILE, &size, &profile) != 0) {
            metadata.icc_profile.assign(profile, profile + size);
        }
        if (kind_ == Kind::cmyk) {
            inks_to_rgb_.emplace(metadata.icc_profile, false);
            inks_.resize(size_t{width_} * 4);
            describe_as_srgb(metadata);
        }
        metadata.density = density();
        metadata.exif = exif_in_tiff(structure, directory, left_out_);
        metadata.xmp = block(structure, directory, TIFFTAG_XMLPACKET);
        metadata.photoshop = block(structure, directory, TIFFTAG_PHOTOSHOP);
        metadata.iptc = iptc(structure, directory);
    }

    Bytes block(TiffStructure &structure, const Entries &directory, uint32_t tag) {
        const TiffStructure::Entry *entry = find(directory, tag);
        if (entry != nullptr && entry->size() > largest_block) {
            left_out_.push_back("metadata of " + std::to_string(entry->size()) + " bytes is left out");
            return {};
        }
        return entry != nullptr ? structure.value(*entry) : Bytes();
    }

    // The records in a field of their own, or among the image resources.
    Bytes iptc(TiffStructure &structure, const Entries &directory) {
        Bytes records = block(structure, directory, TIFFTAG_RICHTIFFIPTC);
        return records.empty() ? iptc_among(description_.metadata.photoshop) : without_padding(std::move(records));
    }

    // Densities that are not whole numbers are converted to densities per metre, which are finer.
    std::optional<Density> density() const {
        float x = 0;
        float y = 0;
        if (TIFFGetField(tiff_.get(), TIFFTAG_XRESOLUTION, &x) == 0 ||
            TIFFGetField(tiff_.get(), TIFFTAG_YRESOLUTION, &y) == 0) {
            return std::nullopt;
        }
        const auto unit = value<uint16_t>(TIFFTAG_RESOLUTIONUNIT);
        const bool whole = x == std::floor(x) && y == std::floor(y);
        if (unit == RESUNIT_NONE || whole) {
            return rounded(unit == RESUNIT_NONE         ? Density::Unit::none
                           : unit == RESUNIT_CENTIMETER ? Density::Unit::centimetre
                                                        : Density::Unit::inch,
                           x, y);
        }
        const double factor = unit == RESUNIT_CENTIMETER ? 100.0 : 1.0 / 0.0254;
        return rounded(Density::Unit::metre, x * factor, y * factor);
    }

    static std::optional<Density> rounded(Density::Unit unit, double x, double y) {
        const auto sensible = [](double value) { return value >= 0.5 && value < 0x7fffffff; };
        if (!sensible(x) || !sensible(y)) {
            return std::nullopt;
        }
        return Density{unit, static_cast<uint32_t>(std::lround(x)), static_cast<uint32_t>(std::lround(y))};
    }

    // A row of samples to one of pixels.
    void convert(const uint8_t *samples, uint8_t *pixels) {
        const size_t step = layout_.channels;
        if (inks_to_rgb_) {
            convert_inks(samples, pixels);
            return;
        }
        if (step == description_.channels && (kind_ == Kind::rgb || kind_ == Kind::converted || kind_ == Kind::black_is_0)) {
            std::copy_n(samples, description_.row_bytes(), pixels);
            return;
        }
        for (uint32_t x = 0; x < width_; ++x, samples += step) {
            switch (kind_) {
            case Kind::black_is_0:
                *pixels++ = *samples;
                break;
            case Kind::white_is_0:
                *pixels++ = static_cast<uint8_t>(255 - *samples);
                break;
            case Kind::palette:
                pixels = std::copy_n(palette_.data() + size_t{3} * *samples, 3, pixels);
                break;
            default:
                pixels = std::copy_n(samples, 3, pixels);
            }
        }
    }

    void convert_inks(const uint8_t *samples, uint8_t *pixels) {
        for (size_t x = 0; x < width_; ++x) {
            std::copy_n(samples + x * layout_.channels, 4, inks_.data() + x * 4);
        }
        inks_to_rgb_->convert(inks_.data(), pixels, width_);
    }

    // alpha is null if the caller does not need it.
    void convert_alpha(const uint8_t *samples, uint8_t *pixels, uint8_t *alpha) const {
        for (uint32_t x = 0; x < width_; ++x) {
            const uint8_t opacity = samples[size_t{x} * layout_.channels + alpha_channel_];
            if (multiplied_) {
                divide_by_alpha(pixels + size_t{x} * description_.channels, description_.channels, opacity);
            }
            if (alpha != nullptr) {
                alpha[x] = opacity;
            }
        }
    }

    TiffReports reports_;
    Source source_;
    TiffPtr tiff_;
    TiffLayout layout_;
    Kind kind_ = Kind::rgb;
    size_t alpha_channel_ = 0;
    bool multiplied_ = false; // the colours by their alpha
    bool other_channels_ = false;
    uint32_t further_ = 0;
    Notices left_out_; // of the metadata
    std::array<uint8_t, 3 * 256> palette_{};
    std::optional<CmykToRgb> inks_to_rgb_;
    Bytes inks_;                     // of a row
    std::unique_ptr<TiffRows> rows_; // last, so that it is destroyed first: it uses the others
};

} // namespace

std::unique_ptr<Reader> open_tiff(Input &input) { return std::make_unique<TiffReader>(input); }

} // namespace codec
