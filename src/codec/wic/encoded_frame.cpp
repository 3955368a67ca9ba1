#include "codec/wic/frame.h"

#include <algorithm>

namespace codec::wic {

namespace {

void check_encoder(HRESULT result) { check(result, "the system cannot encode the picture"); }

// The encoder takes red last.
const GUID &pixel_format(uint32_t channels) {
    return channels == 1   ? GUID_WICPixelFormat8bppGray
           : channels == 3 ? GUID_WICPixelFormat24bppBGR
                           : GUID_WICPixelFormat32bppBGRA;
}

void set(IPropertyBag2 &properties, const wchar_t *name, VARIANT value) {
    PROPBAG2 property{};
    property.pstrName = const_cast<LPOLESTR>(name);
    check_encoder(properties.Write(1, &property, &value));
}

uint8_t option_of(const Subsampling &subsampling) {
    if (subsampling.x == 1) {
        return subsampling.y == 1 ? WICJpegYCrCbSubsampling444 : WICJpegYCrCbSubsampling440;
    }
    return subsampling.y == 1 ? WICJpegYCrCbSubsampling422 : WICJpegYCrCbSubsampling420;
}

} // namespace

EncodedFrame::EncodedFrame(const GUID &container, uint32_t width, uint32_t height, uint32_t channels, const Options &options)
    : factory_(make_factory()), width_(width), channels_(channels) {
    Com<IPropertyBag2> properties;
    check_encoder(factory_->CreateEncoder(container, nullptr, encoder_.place()));
    check_encoder(encoder_->Initialize(&stream_, WICBitmapEncoderNoCache));
    check_encoder(encoder_->CreateNewFrame(frame_.place(), properties.place()));
    set_options(*properties.get(), options);
    check_encoder(frame_->Initialize(properties.get()));
    check_encoder(frame_->SetSize(width, height));
    GUID format = pixel_format(channels);
    check_encoder(frame_->SetPixelFormat(&format));
    if (!IsEqualGUID(format, pixel_format(channels))) {
        throw Error("the system's codec does not take these colours");
    }
}

void EncodedFrame::set_options(IPropertyBag2 &properties, const Options &options) const {
    VARIANT value{};
    if (options.quality) {
        value.vt = VT_R4;
        value.fltVal = static_cast<float>(*options.quality) / 100.0f;
        set(properties, L"ImageQuality", value);
    }
    if (options.subsampling && channels_ == 3) {
        value.vt = VT_UI1;
        value.bVal = option_of(*options.subsampling);
        set(properties, L"JpegYCrCbSubsampling", value);
    }
}

void EncodedFrame::write(uint32_t rows, const uint8_t *pixels) {
    const size_t row_bytes = size_t{width_} * channels_;
    swapped_.resize(row_bytes);
    for (uint32_t row = 0; row < rows; ++row, pixels += row_bytes) {
        std::copy_n(pixels, row_bytes, swapped_.data());
        for (size_t i = 0; channels_ > 1 && i < row_bytes; i += channels_) {
            std::swap(swapped_[i], swapped_[i + 2]);
        }
        check_encoder(frame_->WritePixels(1, static_cast<UINT>(row_bytes), static_cast<UINT>(row_bytes), swapped_.data()));
    }
}

const Bytes &EncodedFrame::finish() {
    check_encoder(frame_->Commit());
    check_encoder(encoder_->Commit());
    return stream_.bytes();
}

} // namespace codec::wic
