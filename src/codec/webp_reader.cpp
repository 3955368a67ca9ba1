// WebP files in: RGB with alpha beside it. The decoder needs the whole file and gives the whole picture.
#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <string_view>

#include <webp/decode.h>
#include <webp/mux.h>

#include "codec/formats.h"
#include "codec/interleaved.h"
#include "codec/marks.h"

namespace codec {

namespace {

constexpr size_t head_size = 12; // of the container: its mark, its size, and what it holds

using MuxPtr = std::unique_ptr<WebPMux, decltype([](WebPMux *mux) { WebPMuxDelete(mux); })>;

struct Decoding : WebPDecoderConfig {
    ~Decoding() { WebPFreeDecBuffer(&output); }
};

// The bytes of the container; what follows it is not part of the picture.
Bytes container_of(Input &input) {
    Bytes file = read_all(input);
    if (file.size() < head_size) {
        throw Error("truncated WebP file");
    }
    const uint64_t size = file[4] | uint64_t{file[5]} << 8 | uint64_t{file[6]} << 16 | uint64_t{file[7]} << 24;
    if (size + 8 > file.size()) {
        throw Error("truncated WebP file");
    }
    file.resize(std::max<size_t>(size + 8, head_size));
    return file;
}

[[noreturn]] void fail(VP8StatusCode status) {
    switch (status) {
    case VP8_STATUS_OUT_OF_MEMORY:
        throw std::bad_alloc();
    case VP8_STATUS_NOT_ENOUGH_DATA:
    case VP8_STATUS_SUSPENDED:
        throw Error("truncated WebP file");
    default:
        throw Error("damaged WebP file");
    }
}

class WebpReader : public InterleavedReader {
  public:
    explicit WebpReader(Input &input) : file_(container_of(input)) {
        WebPBitstreamFeatures features;
        if (const VP8StatusCode status = WebPGetFeatures(file_.data(), file_.size(), &features); status != VP8_STATUS_OK) {
            fail(status);
        }
        if (features.has_animation != 0) {
            throw Error("an animated WebP file");
        }
        describe(features);
        check_size(width_, height_);
        read_metadata();
    }

    void finish(Notices &notices) override {
        if (damaged_metadata_) {
            notices.push_back("the metadata is damaged and left out");
        }
    }

  private:
    void describe(const WebPBitstreamFeatures &features) {
        width_ = static_cast<uint32_t>(features.width);
        height_ = static_cast<uint32_t>(features.height);
        description_.format = Format::webp;
        description_.width = width_;
        description_.height = height_;
        description_.channels = 3;
        description_.has_alpha = features.has_alpha != 0;
        description_.lossless = features.format == 2;
    }

    void read_metadata() {
        const WebPData file{file_.data(), file_.size()};
        const MuxPtr mux(WebPMuxCreate(&file, 0));
        damaged_metadata_ = mux == nullptr;
        if (mux) {
            Bytes exif = chunk(mux.get(), "EXIF");
            if (exif.size() >= exif_mark.size() && std::equal(exif_mark.begin(), exif_mark.end(), exif.begin())) {
                exif.erase(exif.begin(),
                           exif.begin() + exif_mark.size()); // some programs write it, though it does not belong here
            }
            description_.metadata.exif = std::move(exif);
            description_.metadata.icc_profile = chunk(mux.get(), "ICCP");
            description_.metadata.xmp = chunk(mux.get(), "XMP ");
        }
    }

    static Bytes chunk(const WebPMux *mux, const char *name) {
        WebPData data{};
        const bool found = WebPMuxGetChunk(mux, name, &data) == WEBP_MUX_OK;
        return found ? Bytes(data.bytes, data.bytes + data.size) : Bytes();
    }

    const uint8_t *decode() override {
        Decoding decoding;
        if (WebPInitDecoderConfig(&decoding) == 0) {
            throw Error("libwebp is of another version");
        }
        stride_ = size_t{width_} * (description_.has_alpha ? 4 : 3);
        Plane whole = std::make_unique_for_overwrite<uint8_t[]>(stride_ * height_);
        decoding.output.colorspace = description_.has_alpha ? MODE_RGBA : MODE_RGB;
        decoding.output.is_external_memory = 1;
        decoding.output.u.RGBA = {whole.get(), static_cast<int>(stride_), stride_ * height_};
        if (const VP8StatusCode status = WebPDecode(file_.data(), file_.size(), &decoding); status != VP8_STATUS_OK) {
            fail(status);
        }
        whole_ = std::move(whole);
        file_ = {};
        return whole_.get();
    }

    Bytes file_; // until it is decoded
    Plane whole_;
    bool damaged_metadata_ = false;
};

} // namespace

std::unique_ptr<Reader> open_webp(Input &input) { return std::make_unique<WebpReader>(input); }

} // namespace codec
