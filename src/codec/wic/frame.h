// Inside the codec on Windows: a picture that the system decodes, and one that it encodes.
#ifndef KO_CODEC_WIC_FRAME_H
#define KO_CODEC_WIC_FRAME_H

#include <array>
#include <memory>

#include "codec/wic/stream.h"

namespace codec::wic {

// The rows of a picture, from the top.
class DecodedFrame {
  public:
    // Begins to decode a file of a format, given by the identifier of its container.
    DecodedFrame(Input &input, const GUID &container);
    ~DecodedFrame();

    uint32_t width() const { return width_; }
    uint32_t height() const { return height_; }

    bool has_alpha() const { return has_alpha_; }
    bool is_cmyk() const;

    // The ICC profile that the system finds; empty if it finds none.
    Bytes icc_profile() const;

    // Decodes the next rows.
    //   channels   1 takes the first channel of each pixel
    //   alpha      null leaves it out; 255 where the picture has none
    void read(uint32_t rows, uint32_t channels, uint8_t *pixels, uint8_t *alpha);

  private:
    struct Layout;

    void choose_layout();
    void read_palette();

    // Runs a step; if it fails because the input cannot be read, that is the reason.
    template <class Step> void step(const Step &step) const;

    Apartment apartment_; // first: it must outlive what is made in it
    InputStream stream_;
    Com<IWICImagingFactory> factory_;
    Com<IWICBitmapDecoder> decoder_;
    Com<IWICBitmapFrameDecode> frame_;
    Com<IWICBitmapSource> source_; // the frame, or its colours converted
    const Layout *layout_ = nullptr;
    std::array<WICColor, 256> palette_{};
    bool has_alpha_ = false;
    uint32_t width_ = 0;
    uint32_t height_ = 0;
    uint32_t row_ = 0;
    Bytes row_bytes_; // of some rows as the system delivers them
    Bytes colours_;   // of one row, four bytes a pixel
};

// Pixels for the system's encoder, gray, RGB or RGBA.
class EncodedFrame {
  public:
    struct Options {
        std::optional<int> quality;             // of a JPEG file
        std::optional<Subsampling> subsampling; // of a JPEG file in colours
    };

    EncodedFrame(const GUID &container, uint32_t width, uint32_t height, uint32_t channels, const Options &options);

    // Encodes the next rows.
    //   pixels   rows * width * channels bytes
    void write(uint32_t rows, const uint8_t *pixels);

    // Ends the file after the last row.
    const Bytes &finish();

    // The whole file, once it is ended.
    const Bytes &bytes() const { return stream_.bytes(); }

  private:
    void set_options(IPropertyBag2 &properties, const Options &options) const;

    Apartment apartment_; // first, as above
    MemoryStream stream_;
    Com<IWICImagingFactory> factory_;
    Com<IWICBitmapEncoder> encoder_;
    Com<IWICBitmapFrameEncode> frame_;
    uint32_t width_;
    uint32_t channels_;
    Bytes swapped_; // a row in the system's order of channels
};

} // namespace codec::wic

#endif
