// HEIC and AVIF files in: the primary picture of a file as 8-bit RGB with alpha beside it. The decoder needs the whole file and
// gives the whole picture.
//
// Rotation and cropping that the file specifies are part of decoding, so the picture is delivered upright. Its Exif data gives
// the same rotation once more, and would apply it twice.
#include <algorithm>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include <libheif/heif.h>

#include "codec/exif.h"
#include "codec/formats.h"
#include "codec/guard.h"
#include "codec/interleaved.h"
#include "codec/named_colours.h"

namespace codec {

namespace {

constexpr std::string_view xmp_content = "application/rdf+xml";

// libheif's own state, which all threads share.
struct Library {
    Library() { heif_init(nullptr); }
    ~Library() { heif_deinit(); }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
};

template <auto Free> using Freeing = decltype([](auto *object) { Free(object); });
using ContextPtr = std::unique_ptr<heif_context, Freeing<heif_context_free>>;
using HandlePtr = std::unique_ptr<heif_image_handle, Freeing<heif_image_handle_release>>;
using ImagePtr = std::unique_ptr<heif_image, Freeing<heif_image_release>>;
using OptionsPtr = std::unique_ptr<heif_decoding_options, Freeing<heif_decoding_options_free>>;
using NclxPtr = std::unique_ptr<heif_color_profile_nclx, Freeing<heif_nclx_color_profile_free>>;

class HeifReader : public InterleavedReader {
  public:
    HeifReader(Input &input, std::string kind) : kind_(std::move(kind)) {
        static const Library library;
        file_ = read_all(input);
        context_.reset(heif_context_alloc());
        if (!context_) {
            throw std::bad_alloc();
        }
        check(heif_context_read_from_memory_without_copy(context_.get(), file_.data(), file_.size(), nullptr));
        heif_image_handle *handle = nullptr;
        const heif_error error = heif_context_get_primary_image_handle(context_.get(), &handle);
        handle_.reset(handle);
        check(error);
        describe();
        read_metadata();
    }

    void finish(Notices &notices) override {
        if (bits_ > 8) {
            notices.push_back(std::to_string(bits_) + " bits per channel reduced to 8");
        }
        if (multiplied_) {
            notices.push_back(divided_by_alpha);
        }
        if (high_range_) {
            notices.push_back("the colours are coded for a high dynamic range and look flat on other screens");
        }
        if (further_ > 0) {
            notices.push_back(further_pictures(further_));
        }
    }

  private:
    void check(const heif_error &error) const {
        if (error.code == heif_error_Ok) {
            return;
        }
        if (error.code == heif_error_Memory_allocation_error && error.subcode != heif_suberror_Security_limit_exceeded) {
            throw std::bad_alloc();
        }
        if (error.subcode == heif_suberror_Unsupported_codec || error.code == heif_error_Unsupported_filetype) {
            throw Error(kind_ + ", which this build cannot read");
        }
        if (error.subcode == heif_suberror_End_of_data) {
            throw Error("truncated HEIF file");
        }
        std::string text = error.message; // which may end its line
        std::replace(text.begin(), text.end(), '\n', ' ');
        text.erase(text.find_last_not_of(' ') + 1);
        Trouble trouble;
        trouble.note(text.c_str());
        trouble.raise();
    }

    void describe() {
        width_ = static_cast<uint32_t>(std::max(heif_image_handle_get_width(handle_.get()), 0));
        height_ = static_cast<uint32_t>(std::max(heif_image_handle_get_height(handle_.get()), 0));
        check_size(width_, height_);
        description_.format = Format::heif;
        description_.width = width_;
        description_.height = height_;
        description_.channels = 3;
        description_.has_alpha = heif_image_handle_has_alpha_channel(handle_.get()) != 0;
        multiplied_ = description_.has_alpha && heif_image_handle_is_premultiplied_alpha(handle_.get()) != 0;
        bits_ = heif_image_handle_get_luma_bits_per_pixel(handle_.get());
        further_ = static_cast<uint32_t>(std::max(heif_context_get_number_of_top_level_images(context_.get()) - 1, 0));
    }

    void read_metadata() {
        read_exif();
        read_xmp();
        read_profile();
    }

    Bytes block_of(heif_item_id id) const {
        Bytes block(heif_image_handle_get_metadata_size(handle_.get(), id));
        if (!block.empty()) {
            check(heif_image_handle_get_metadata(handle_.get(), id, block.data()));
        }
        return block;
    }

    std::vector<heif_item_id> blocks_of_type(const char *type) const {
        const int count = heif_image_handle_get_number_of_metadata_blocks(handle_.get(), type);
        std::vector<heif_item_id> ids(static_cast<size_t>(std::max(count, 0)));
        ids.resize(
            static_cast<size_t>(heif_image_handle_get_list_of_metadata_block_IDs(handle_.get(), type, ids.data(), count)));
        return ids;
    }

    void read_xmp() {
        for (const heif_item_id id : blocks_of_type("mime")) {
            if (heif_image_handle_get_metadata_content_type(handle_.get(), id) == xmp_content) {
                description_.metadata.xmp = block_of(id);
                return;
            }
        }
    }

    // The block begins with a number: how far behind it the Exif data begins that other formats have.
    void read_exif() {
        const std::vector<heif_item_id> ids = blocks_of_type("Exif");
        const Bytes block = ids.empty() ? Bytes() : block_of(ids.front());
        if (block.size() < 4) {
            return;
        }
        const uint64_t place = uint64_t{block[0]} << 24 | uint64_t{block[1]} << 16 | uint64_t{block[2]} << 8 | block[3];
        if (place < block.size() - 4) {
            Bytes &exif = description_.metadata.exif;
            exif.assign(block.begin() + 4 + static_cast<std::ptrdiff_t>(place), block.end());
            set_upright(exif);
        }
    }

    void read_profile() {
        Bytes &profile = description_.metadata.icc_profile;
        profile.resize(heif_image_handle_get_raw_color_profile_size(handle_.get()));
        if (!profile.empty()) {
            check(heif_image_handle_get_raw_color_profile(handle_.get(), profile.data()));
            return;
        }
        heif_color_profile_nclx *nclx = nullptr;
        const heif_error error = heif_image_handle_get_nclx_color_profile(handle_.get(), &nclx);
        const NclxPtr owner(nclx);
        if (error.code == heif_error_Ok && nclx != nullptr) {
            const NamedColours colours(*nclx);
            high_range_ = colours.are_of_high_range();
            profile = colours.are_srgb() || high_range_ ? Bytes() : colours.profile();
        }
    }

    const uint8_t *decode() override {
        const OptionsPtr options(heif_decoding_options_alloc());
        if (!options) {
            throw std::bad_alloc();
        }
        options->convert_hdr_to_8bit = 1;
        options->strict_decoding = 1;
        heif_image *image = nullptr;
        const heif_chroma layout = description_.has_alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB;
        const heif_error error = heif_decode_image(handle_.get(), &image, heif_colorspace_RGB, layout, options.get());
        image_.reset(image);
        check(error);
        int stride = 0;
        const uint8_t *plane = heif_image_get_plane_readonly(image, heif_channel_interleaved, &stride);
        stride_ = static_cast<size_t>(std::max(stride, 0));
        const auto is = [image](int (*side)(const heif_image *, heif_channel), uint32_t size) {
            return side(image, heif_channel_interleaved) == static_cast<int>(size);
        };
        if (plane == nullptr || !is(heif_image_get_width, width_) || !is(heif_image_get_height, height_)) {
            throw Error("the picture does not have the size that the file specifies");
        }
        handle_.reset();
        context_.reset();
        file_ = {};
        return plane;
    }

    std::string kind_;
    Bytes file_; // until it is decoded, as are context and handle
    ContextPtr context_;
    HandlePtr handle_;
    ImagePtr image_;
    int bits_ = 8;
    bool high_range_ = false;
    uint32_t further_ = 0;
};

} // namespace

std::unique_ptr<Reader> open_heif(Input &input, const std::string &kind) { return std::make_unique<HeifReader>(input, kind); }

} // namespace codec
