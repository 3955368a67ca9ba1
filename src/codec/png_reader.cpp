// PNG files in: every depth and colour type becomes 8-bit gray or RGB with alpha beside it.
//
// libpng leaves a failed call by a jump, so each run of its calls is a guarded step that holds no object with a destructor.
#include <algorithm>
#include <array>
#include <new>

#include "codec/formats.h"
#include "codec/left_out.h"
#include "codec/png_chunks.h"
#include "codec/png_common.h"
#include "codec/png_texts.h"

namespace codec {

namespace {

// Names in libpng's form, each followed by a zero.
constexpr std::array<const char, 6 * 5 + 1> of_libpng = {"bKGD\0oFFs\0pCAL\0sCAL\0sPLT\0tIME"};
constexpr std::array<const char, 2 * 5 + 1> frames = {"fcTL\0fdAT"};

// Has libpng keep the bytes of the chunks that a ChunkSorter takes. Runs inside a guarded step.
void keep_chunks(png_structp png) {
    const auto names = [](const auto &list) { return reinterpret_cast<png_const_bytep>(list.data()); };
    png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_IF_SAFE, nullptr, 0); // all but critical ones, which end the reading
    png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_IF_SAFE, names(of_libpng), 6);
    png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_NEVER, names(frames), 2);
}

// Ends with its scope, even if a constructor fails.
struct Structures {
    png_structp png = nullptr;
    png_infop info = nullptr;
    ~Structures() { png_destroy_read_struct(&png, &info, nullptr); }
};

class PngReader : public Reader {
  public:
    explicit PngReader(Input &input) : input_(input) {
        png_ = create_png_reader(trouble_);
        info_ = png_create_info_struct(png_);
        if (info_ == nullptr) {
            throw std::bad_alloc();
        }
        begin();
    }

    void read(uint32_t rows, uint8_t *pixels, uint8_t *alpha) override {
        if (interlaced_ && whole_ == nullptr) {
            read_whole();
        }
        for (uint32_t row = 0; row < rows; ++row) {
            uint8_t *to = pixels + row * description_.row_bytes();
            if (description_.has_alpha) {
                const uint8_t *joined = next_row(joined_.data());
                separate(joined, to, alpha != nullptr ? alpha + size_t{row} * width_ : nullptr);
            } else if (const uint8_t *from = next_row(to); from != to) {
                std::copy_n(from, description_.row_bytes(), to);
            }
        }
    }

    void finish(Notices &notices) override {
        trouble_.guarded([this] { png_read_end(png_, info_); }); // metadata may stand behind the pixels
        read_metadata(notices);
        trouble_.tell_warnings(notices);
        if (deep_) {
            notices.push_back("16 bits per channel reduced to 8");
        }
    }

  private:
    static void on_read(png_structp png, png_bytep out, size_t count) {
        auto &reader = *static_cast<PngReader *>(png_get_io_ptr(png));
        const std::optional<size_t> read = reader.input_.read(reader.position_, {out, count});
        if (!read) {
            png_error(png, reader.input_.failure());
        }
        if (*read < count) {
            png_error(png, "truncated PNG file");
        }
        reader.position_ += count;
    }

    void begin() {
        trouble_.guarded([this] {
            png_set_read_fn(png_, this, on_read);
            // A profile is carried, not interpreted: no comparison with the well-known ones.
            png_set_option(png_, PNG_SKIP_sRGB_CHECK_PROFILE, PNG_OPTION_ON);
            keep_chunks(png_);
            png_read_info(png_, info_);
        });
        check_size(png_get_image_width(png_, info_), png_get_image_height(png_, info_));
        deep_ = png_get_bit_depth(png_, info_) == 16;
        plain_colours_ = png_get_bit_depth(png_, info_) == 8 && png_get_color_type(png_, info_) != PNG_COLOR_TYPE_PALETTE;
        interlaced_ = png_get_interlace_type(png_, info_) != PNG_INTERLACE_NONE;
        trouble_.guarded([this] {
            png_set_expand(png_); // palette to RGB, few bits to 8, a transparent colour to alpha
            png_set_scale_16(png_);
            png_set_interlace_handling(png_);
            png_read_update_info(png_, info_);
        });
        describe();
        Notices none;
        read_metadata(none);
    }

    void describe() {
        const uint32_t channels = png_get_channels(png_, info_);
        width_ = png_get_image_width(png_, info_);
        height_ = png_get_image_height(png_, info_);
        description_.format = Format::png;
        description_.width = width_;
        description_.height = height_;
        description_.channels = channels < 3 ? 1 : 3;
        description_.has_alpha = channels != description_.channels;
        joined_.resize(description_.has_alpha && !interlaced_ ? size_t{width_} * channels : 0);
    }

    // The passes of an interlaced file need all its rows.
    void read_whole() {
        const size_t row_bytes = png_get_rowbytes(png_, info_);
        whole_ = std::make_unique_for_overwrite<uint8_t[]>(row_bytes * height_);
        std::vector<png_bytep> rows(height_);
        for (size_t y = 0; y < height_; ++y) {
            rows[y] = whole_.get() + y * row_bytes;
        }
        trouble_.guarded([&] { png_read_image(png_, rows.data()); });
    }

    // The next row with its alpha: in room, or among the rows of an interlaced file.
    const uint8_t *next_row(uint8_t *room) {
        if (interlaced_) {
            return whole_.get() + png_get_rowbytes(png_, info_) * row_++;
        }
        trouble_.guarded([&] { png_read_row(png_, room, nullptr); });
        return room;
    }

    // Removes the last channel of each pixel from interleaved pixels.
    void separate(const uint8_t *from, uint8_t *pixels, uint8_t *alpha) const {
        for (uint32_t x = 0; x < width_; ++x) {
            pixels = std::copy_n(from, description_.channels, pixels);
            from += description_.channels;
            if (alpha != nullptr) {
                alpha[x] = *from;
            }
            ++from;
        }
    }

    void read_metadata(Notices &notices) {
        Metadata metadata;
        metadata.exif = exif();
        metadata.icc_profile = icc_profile();
        metadata.density = density();
        metadata.png_colours = colours();
        read_texts(metadata);
        ChunkSorter sorter(plain_colours_);
        for (const PngChunk &chunk : chunks()) {
            sorter.add(chunk, metadata, notices);
        }
        description_.metadata = std::move(metadata);
    }

    void read_texts(Metadata &metadata) {
        png_textp texts = nullptr;
        const int count = png_get_text(png_, info_, &texts, nullptr);
        for (const png_text &text : std::span(texts, static_cast<size_t>(std::max(count, 0)))) {
            add_text(text_of(text), metadata);
        }
    }

    static PngText text_of(const png_text &text) {
        const auto string_of = [](png_const_charp chars) { return std::string(chars != nullptr ? chars : ""); };
        switch (text.compression) {
        case PNG_TEXT_COMPRESSION_NONE:
        case PNG_TEXT_COMPRESSION_zTXt: {
            const bool plain = text.compression == PNG_TEXT_COMPRESSION_NONE;
            return {plain ? PngText::Kind::plain : PngText::Kind::compressed, string_of(text.key), string_of(text.text)};
        }
        default: {
            const bool plain = text.compression == PNG_ITXT_COMPRESSION_NONE;
            return {plain ? PngText::Kind::international : PngText::Kind::international_compressed, string_of(text.key),
                    string_of(text.text), string_of(text.lang), string_of(text.lang_key)};
        }
        }
    }

    std::vector<PngChunk> chunks() {
        std::vector<PngChunk> found;
        png_unknown_chunkp chunks = nullptr;
        const int count = png_get_unknown_chunks(png_, info_, &chunks);
        for (const png_unknown_chunk &chunk : std::span(chunks, static_cast<size_t>(std::max(count, 0)))) {
            found.push_back({reinterpret_cast<const char *>(chunk.name), Bytes(chunk.data, chunk.data + chunk.size),
                             (chunk.location & PNG_AFTER_IDAT) != 0});
        }
        return found;
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

    Input &input_;
    uint64_t position_ = 0; // in the input
    Trouble trouble_;
    Structures structures_;
    png_structp &png_ = structures_.png;
    png_infop &info_ = structures_.info;
    bool deep_ = false;
    bool plain_colours_ = false; // pixels are delivered as the file stores them
    bool interlaced_ = false;
    Bytes joined_;   // a row with alpha
    Plane whole_;    // the rows of an interlaced file, with their alpha
    size_t row_ = 0; // the next of them
};

} // namespace

std::unique_ptr<Reader> open_png(Input &input) { return std::make_unique<PngReader>(input); }

} // namespace codec
