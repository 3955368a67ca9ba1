// PNG files out: 8-bit gray or RGB, with alpha where the picture has it.
//
// libpng leaves a failed call by a jump, so each run of its calls is a guarded step that holds no object with a destructor.
#include <new>

#include "codec/formats.h"
#include "codec/left_out.h"
#include "codec/png_common.h"
#include "codec/png_texts.h"

namespace codec {

namespace {

// Ends with its scope, even if a constructor fails.
struct Structures {
    png_structp png = nullptr;
    png_infop info = nullptr;
    ~Structures() { png_destroy_write_struct(&png, &info); }
};

class PngWriter : public Writer {
  public:
    PngWriter(Output &output, const Description &picture, std::optional<int> level, Notices &notices)
        : output_(output), picture_(picture), joined_(picture.has_alpha ? picture.row_bytes() + picture.width : 0),
          texts_(texts_to_write(picture.metadata, notices)) {
        png_ = create_png_writer(trouble_);
        info_ = png_create_info_struct(png_);
        if (info_ == nullptr) {
            throw std::bad_alloc();
        }
        write_header(level ? *level : PNG_Z_DEFAULT_COMPRESSION);
        if (!picture_.metadata.icc_profile.empty() && png_get_valid(png_, info_, PNG_INFO_iCCP) == 0) {
            notices.push_back("the ICC profile does not suit a PNG file and is left out");
        }
        tell_left_out(picture_.metadata, {.xmp = true, .photoshop = true, .comments = true, .png = true}, notices);
    }

    void write(uint32_t rows, const uint8_t *pixels, const uint8_t *alpha) override {
        trouble_.guarded([&] {
            for (uint32_t row = 0; row < rows; ++row) {
                const uint8_t *from = pixels + row * picture_.row_bytes();
                if (picture_.has_alpha) {
                    join(from, alpha + size_t{row} * picture_.width, joined_.data());
                    from = joined_.data();
                }
                png_write_row(png_, from);
            }
        });
    }

    void finish(Notices &notices) override {
        trouble_.guarded([this] {
            write_chunks(true);
            png_write_end(png_, nullptr);
        });
        trouble_.tell_warnings(notices);
    }

  private:
    static void on_write(png_structp png, png_bytep data, size_t count) {
        Output &output = static_cast<PngWriter *>(png_get_io_ptr(png))->output_;
        if (!output.write({data, count})) {
            png_error(png, output.failure());
        }
    }

    static void on_flush(png_structp) {}

    int colour_type() const {
        const int colour = picture_.channels == 3 ? PNG_COLOR_MASK_COLOR : 0;
        return colour | (picture_.has_alpha ? PNG_COLOR_MASK_ALPHA : 0);
    }

    void write_header(int level) {
        trouble_.guarded([this, level] {
            png_set_write_fn(png_, this, on_write, on_flush);
            png_set_compression_level(png_, level);
            png_set_option(png_, PNG_SKIP_sRGB_CHECK_PROFILE, PNG_OPTION_ON);
            png_set_benign_errors(png_, 1); // metadata that libpng refuses is left out
            png_set_IHDR(png_, info_, picture_.width, picture_.height, 8, colour_type(), PNG_INTERLACE_NONE,
                         PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
            set_metadata();
            png_write_info(png_, info_);
            write_chunks(false);
        });
    }

    // Runs inside a guarded step.
    void set_metadata() {
        const Metadata &metadata = picture_.metadata;
        if (!metadata.icc_profile.empty()) {
            png_set_iCCP(png_, info_, "ICC profile", PNG_COMPRESSION_TYPE_BASE, metadata.icc_profile.data(),
                         static_cast<png_uint_32>(metadata.icc_profile.size()));
        }
        if (!metadata.exif.empty()) {
            png_set_eXIf_1(png_, info_, static_cast<png_uint_32>(metadata.exif.size()),
                           const_cast<png_bytep>(metadata.exif.data()));
        }
        if (metadata.density) {
            const Density density = per_metre(*metadata.density);
            const int unit = density.unit == Density::Unit::metre ? PNG_RESOLUTION_METER : PNG_RESOLUTION_UNKNOWN;
            png_set_pHYs(png_, info_, density.x, density.y, unit);
        }
        set_colours(metadata.png_colours);
        for (const PngText &text : texts_) {
            set_text(text);
        }
    }

    // libpng copies the text.
    void set_text(const PngText &text) {
        const auto chars = [](const std::string &string) { return const_cast<png_charp>(string.c_str()); };
        png_text entry{};
        entry.compression = compression_of(text.kind);
        entry.key = chars(text.keyword);
        entry.text = chars(text.text);
        entry.text_length = text.is_international() ? 0 : text.text.size();
        entry.itxt_length = text.is_international() ? text.text.size() : 0;
        entry.lang = chars(text.language);
        entry.lang_key = chars(text.translated_keyword);
        png_set_text(png_, info_, &entry, 1);
    }

    static int compression_of(PngText::Kind kind) {
        switch (kind) {
        case PngText::Kind::plain:
            return PNG_TEXT_COMPRESSION_NONE;
        case PngText::Kind::compressed:
            return PNG_TEXT_COMPRESSION_zTXt;
        case PngText::Kind::international:
            return PNG_ITXT_COMPRESSION_NONE;
        default:
            return PNG_ITXT_COMPRESSION_zTXt;
        }
    }

    // Runs inside a guarded step.
    void write_chunks(bool behind_pixels) {
        for (const PngChunk &chunk : picture_.metadata.png_chunks) {
            if (chunk.behind_pixels == behind_pixels) {
                png_write_chunk(png_, reinterpret_cast<png_const_bytep>(chunk.name.c_str()), chunk.bytes.data(),
                                chunk.bytes.size());
            }
        }
    }

    void set_colours(const PngColours &colours) {
        if (colours.srgb_intent) {
            png_set_sRGB(png_, info_, *colours.srgb_intent);
        }
        if (colours.gamma) {
            png_set_gAMA_fixed(png_, info_, *colours.gamma);
        }
        if (colours.chromaticities) {
            const auto &c = *colours.chromaticities;
            png_set_cHRM_fixed(png_, info_, c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7]);
        }
    }

    void join(const uint8_t *pixels, const uint8_t *alpha, uint8_t *to) const {
        for (uint32_t x = 0; x < picture_.width; ++x) {
            for (uint32_t c = 0; c < picture_.channels; ++c) {
                *to++ = *pixels++;
            }
            *to++ = *alpha++;
        }
    }

    Output &output_;
    const Description &picture_;
    Bytes joined_; // a row with alpha
    const std::vector<PngText> texts_;
    Trouble trouble_;
    Structures structures_;
    png_structp &png_ = structures_.png;
    png_infop &info_ = structures_.info;
};

} // namespace

std::unique_ptr<Writer> create_png(Output &output, const Description &picture, std::optional<int> level, Notices &notices) {
    return std::make_unique<PngWriter>(output, picture, level, notices);
}

} // namespace codec
