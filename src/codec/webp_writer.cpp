// WebP files out: lossless if the picture came from such a file and no quality is specified, otherwise lossy. The encoder needs
// the whole picture.
#include <algorithm>
#include <memory>
#include <new>

#include <webp/encode.h>
#include <webp/mux.h>

#include "codec/extended_xmp.h"
#include "codec/formats.h"
#include "codec/left_out.h"

namespace codec {

namespace {

using MuxPtr = std::unique_ptr<WebPMux, decltype([](WebPMux *mux) { WebPMuxDelete(mux); })>;

// Each ends with its scope, even if a constructor fails.
struct Canvas : WebPPicture {
    ~Canvas() { WebPPictureFree(this); }
};
struct Encoded : WebPMemoryWriter {
    Encoded() { WebPMemoryWriterInit(this); }
    ~Encoded() { WebPMemoryWriterClear(this); }
};
struct Assembled : WebPData {
    Assembled() { WebPDataInit(this); }
    ~Assembled() { WebPDataClear(this); }
};

void check_mux(WebPMuxError status) {
    if (status == WEBP_MUX_MEMORY_ERROR) {
        throw std::bad_alloc();
    }
    if (status != WEBP_MUX_OK) {
        throw Error("the metadata cannot be put into a WebP file");
    }
}

class WebpWriter : public Writer {
  public:
    WebpWriter(Output &output, const Description &picture, std::optional<int> quality, Notices &notices)
        : output_(output), picture_(picture) {
        if (std::max(picture.width, picture.height) > WEBP_MAX_DIMENSION) {
            throw Error("a WebP file has at most " + std::to_string(WEBP_MAX_DIMENSION) + " pixels each way");
        }
        configure(quality);
        if (WebPPictureInit(&canvas_) == 0) {
            throw Error("libwebp is of another version");
        }
        canvas_.use_argb = 1;
        canvas_.width = static_cast<int>(picture.width);
        canvas_.height = static_cast<int>(picture.height);
        if (WebPPictureAlloc(&canvas_) == 0) {
            throw std::bad_alloc();
        }
        tell_losses(notices);
    }

    void write(uint32_t rows, const uint8_t *pixels, const uint8_t *alpha) override {
        for (uint32_t row = 0; row < rows; ++row) {
            take(pixels, picture_.has_alpha ? alpha : nullptr);
            pixels += picture_.row_bytes();
            alpha += picture_.has_alpha ? picture_.width : 0;
        }
    }

    void finish(Notices &) override {
        Encoded encoded;
        canvas_.writer = WebPMemoryWrite;
        canvas_.custom_ptr = &encoded;
        if (WebPEncode(&config_, &canvas_) == 0) {
            fail(canvas_.error_code);
        }
        WebPPictureFree(&canvas_);
        const Metadata &metadata = picture_.metadata;
        if (metadata.icc_profile.empty() && metadata.exif.empty() && metadata.xmp.empty()) {
            put({encoded.mem, encoded.size});
        } else {
            put_with_metadata({encoded.mem, encoded.size});
        }
    }

  private:
    void tell_losses(Notices &notices) const {
        const Metadata &metadata = picture_.metadata;
        tell_left_out(metadata, {.xmp = true, .density = false}, notices);
        if (metadata.png_colours.gamma && metadata.icc_profile.empty()) {
            notices.push_back("a WebP file cannot hold the PNG file's gamma, which is left out");
        }
    }

    void configure(std::optional<int> quality) {
        if (WebPConfigInit(&config_) == 0) {
            throw Error("libwebp is of another version");
        }
        if (picture_.lossless && !quality) {
            config_.lossless = 1;
            config_.exact = 1; // keeps colours even where alpha hides them
        } else {
            config_.quality = static_cast<float>(quality.value_or(default_webp_quality));
        }
    }

    // A row of the canvas.
    void take(const uint8_t *pixels, const uint8_t *alpha) {
        uint32_t *to = canvas_.argb + row_++ * static_cast<size_t>(canvas_.argb_stride);
        const size_t step = picture_.channels == 3 ? 1 : 0;
        for (uint32_t x = 0; x < picture_.width; ++x, pixels += picture_.channels) {
            const uint32_t opacity = alpha != nullptr ? alpha[x] : 255;
            to[x] = opacity << 24 | uint32_t{pixels[0]} << 16 | uint32_t{pixels[step]} << 8 | pixels[2 * step];
        }
    }

    [[noreturn]] static void fail(WebPEncodingError error) {
        switch (error) {
        case VP8_ENC_ERROR_OUT_OF_MEMORY:
        case VP8_ENC_ERROR_BITSTREAM_OUT_OF_MEMORY:
            throw std::bad_alloc();
        case VP8_ENC_ERROR_PARTITION0_OVERFLOW:
        case VP8_ENC_ERROR_PARTITION_OVERFLOW:
        case VP8_ENC_ERROR_FILE_TOO_BIG:
            throw Error("the picture has too much detail for a WebP file of this quality");
        default:
            throw Error("the picture cannot be written as WebP");
        }
    }

    void put(const WebPData &bytes) {
        if (!output_.write({bytes.bytes, bytes.size})) {
            throw Error(output_.failure());
        }
    }

    void put_with_metadata(const WebPData &encoded) {
        const MuxPtr mux(WebPMuxNew());
        if (!mux) {
            throw std::bad_alloc();
        }
        check_mux(WebPMuxSetImage(mux.get(), &encoded, 0));
        const Bytes xmp = whole_xmp(picture_.metadata);
        add(mux.get(), "ICCP", picture_.metadata.icc_profile);
        add(mux.get(), "EXIF", picture_.metadata.exif);
        add(mux.get(), "XMP ", xmp);
        Assembled file;
        check_mux(WebPMuxAssemble(mux.get(), &file));
        put(file);
    }

    // The bytes must stay until the file is assembled.
    static void add(WebPMux *mux, const char *name, const Bytes &bytes) {
        if (!bytes.empty()) {
            const WebPData chunk{bytes.data(), bytes.size()};
            check_mux(WebPMuxSetChunk(mux, name, &chunk, 0));
        }
    }

    Output &output_;
    const Description &picture_;
    WebPConfig config_{};
    Canvas canvas_{};
    size_t row_ = 0;
};

} // namespace

std::unique_ptr<Writer> create_webp(Output &output, const Description &picture, std::optional<int> quality, Notices &notices) {
    return std::make_unique<WebpWriter>(output, picture, quality, notices);
}

} // namespace codec
