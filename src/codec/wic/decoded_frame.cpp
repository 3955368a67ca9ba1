// Pixels are unpacked here, from each layout that the decoders of PNG and JPEG files deliver, and so become the same bytes on
// every system: the component's own conversions round as its version does.
#include "codec/wic/frame.h"

#include <algorithm>

namespace codec::wic {

namespace {

enum class Kind { indexed, gray, gray16, bgr, bgra, rgb16, rgba16, cmyk };

// Most rows that are fetched at once.
constexpr uint32_t band = 64;

uint8_t byte_of_16(const uint8_t *value) {
    const uint32_t deep = value[0] | uint32_t{value[1]} << 8;
    return static_cast<uint8_t>((deep * 255 + 32895) >> 16); // rounds to the nearest for all 65536 values
}

// A value of few bits among those of a row.
uint32_t packed(const uint8_t *row, uint32_t x, uint32_t bits) {
    const uint32_t first = x * bits;
    return uint32_t{row[first / 8]} >> (8 - bits - first % 8) & ((1u << bits) - 1);
}

} // namespace

struct DecodedFrame::Layout {
    const GUID &format;
    Kind kind;
    uint32_t bits; // per pixel

    size_t row_bytes(uint32_t width) const { return (size_t{width} * bits + 7) / 8; }

    // Four bytes a pixel: red, green, blue and alpha.
    void unpack(const uint8_t *row, uint32_t width, const std::array<WICColor, 256> &palette, uint8_t *to) const {
        for (uint32_t x = 0; x < width; ++x, to += 4) {
            const std::array<uint8_t, 4> pixel = colour(row, x, palette);
            std::copy(pixel.begin(), pixel.end(), to);
        }
    }

  private:
    std::array<uint8_t, 4> colour(const uint8_t *row, uint32_t x, const std::array<WICColor, 256> &palette) const {
        constexpr uint8_t opaque = 255;
        const uint8_t *pixel = row + size_t{x} * bits / 8;
        const auto deep = [pixel](size_t channel) { return byte_of_16(pixel + 2 * channel); };
        switch (kind) {
        case Kind::indexed: {
            const WICColor argb = palette[packed(row, x, bits)];
            const auto byte = [argb](int shift) { return static_cast<uint8_t>(argb >> shift); };
            return {byte(16), byte(8), byte(0), byte(24)};
        }
        case Kind::gray: {
            const auto value = static_cast<uint8_t>(packed(row, x, bits) * 255 / ((1u << bits) - 1));
            return {value, value, value, opaque};
        }
        case Kind::gray16:
            return {deep(0), deep(0), deep(0), opaque};
        case Kind::bgr:
            return {pixel[2], pixel[1], pixel[0], opaque};
        case Kind::bgra:
            return {pixel[2], pixel[1], pixel[0], pixel[3]};
        case Kind::rgb16:
            return {deep(0), deep(1), deep(2), opaque};
        case Kind::rgba16:
            return {deep(0), deep(1), deep(2), deep(3)};
        default:
            return {};
        }
    }
};

DecodedFrame::DecodedFrame(Input &input, const GUID &container) : stream_(input), factory_(make_factory()) {
    step([&] {
        check(factory_->CreateDecoder(container, nullptr, decoder_.place()));
        check(decoder_->Initialize(&stream_, WICDecodeMetadataCacheOnDemand));
        check(decoder_->GetFrame(0, frame_.place()));
        check(frame_->GetSize(&width_, &height_));
        choose_layout();
    });
}

DecodedFrame::~DecodedFrame() = default;

void DecodedFrame::choose_layout() {
    static const std::array<Layout, 16> layouts = {{
        {GUID_WICPixelFormat1bppIndexed, Kind::indexed, 1},
        {GUID_WICPixelFormat2bppIndexed, Kind::indexed, 2},
        {GUID_WICPixelFormat4bppIndexed, Kind::indexed, 4},
        {GUID_WICPixelFormat8bppIndexed, Kind::indexed, 8},
        {GUID_WICPixelFormatBlackWhite, Kind::gray, 1},
        {GUID_WICPixelFormat2bppGray, Kind::gray, 2},
        {GUID_WICPixelFormat4bppGray, Kind::gray, 4},
        {GUID_WICPixelFormat8bppGray, Kind::gray, 8},
        {GUID_WICPixelFormat16bppGray, Kind::gray16, 16},
        {GUID_WICPixelFormat24bppBGR, Kind::bgr, 24},
        {GUID_WICPixelFormat32bppBGR, Kind::bgr, 32},
        {GUID_WICPixelFormat48bppRGB, Kind::rgb16, 48},
        {GUID_WICPixelFormat64bppRGBA, Kind::rgba16, 64},
        {GUID_WICPixelFormat32bppCMYK, Kind::cmyk, 32},
        {GUID_WICPixelFormat64bppCMYK, Kind::cmyk, 64},
        {GUID_WICPixelFormat32bppBGRA, Kind::bgra, 32}, // last: to which all others are converted
    }};
    GUID format{};
    check(frame_->GetPixelFormat(&format));
    layout_ = std::find_if(layouts.begin(), layouts.end() - 1, [&](const Layout &layout) { return layout.format == format; });
    IWICBitmapSource *frame = frame_.get();
    check(layout_->format == format ? frame->QueryInterface(IID_IWICBitmapSource, source_.untyped_place())
                                    : WICConvertBitmapSource(layout_->format, frame, source_.place()));
    if (layout_->kind == Kind::indexed) {
        read_palette();
    }
    has_alpha_ = has_alpha_ || layout_->kind == Kind::bgra || layout_->kind == Kind::rgba16;
}

// Indexes beyond the palette's end are black, as all its entries are before.
void DecodedFrame::read_palette() {
    Com<IWICPalette> palette;
    check(factory_->CreatePalette(palette.place()));
    check(frame_->CopyPalette(palette.get()));
    palette_.fill(0xff000000);
    UINT count = 0;
    check(palette->GetColors(static_cast<UINT>(palette_.size()), palette_.data(), &count));
    has_alpha_ = std::any_of(palette_.begin(), palette_.end(), [](WICColor colour) { return colour >> 24 != 255; });
}

template <class Step> void DecodedFrame::step(const Step &step) const {
    try {
        step();
    } catch (const Error &) {
        stream_.check_input();
        throw;
    }
}

bool DecodedFrame::is_cmyk() const { return layout_->kind == Kind::cmyk; }

Bytes DecodedFrame::icc_profile() const {
    Com<IWICColorContext> context;
    check(factory_->CreateColorContext(context.place()));
    IWICColorContext *contexts[] = {context.get()};
    UINT count = 0;
    WICColorContextType type = WICColorContextUninitialized;
    if (FAILED(frame_->GetColorContexts(1, contexts, &count)) || count == 0 || FAILED(context->GetType(&type)) ||
        type != WICColorContextProfile) {
        return {};
    }
    UINT size = 0;
    check(context->GetProfileBytes(0, nullptr, &size));
    Bytes bytes(size);
    check(context->GetProfileBytes(size, bytes.data(), &size));
    return bytes;
}

void DecodedFrame::read(uint32_t rows, uint32_t channels, uint8_t *pixels, uint8_t *alpha) {
    const size_t row_bytes = layout_->row_bytes(width_);
    colours_.resize(size_t{width_} * 4);
    while (rows > 0) {
        const uint32_t count = std::min(rows, band);
        const WICRect part = {0, static_cast<INT>(row_), static_cast<INT>(width_), static_cast<INT>(count)};
        row_bytes_.resize(row_bytes * count);
        step([&] {
            check(source_->CopyPixels(&part, static_cast<UINT>(row_bytes), static_cast<UINT>(row_bytes_.size()),
                                      row_bytes_.data()));
        });
        for (uint32_t row = 0; row < count; ++row) {
            layout_->unpack(row_bytes_.data() + row * row_bytes, width_, palette_, colours_.data());
            for (size_t x = 0; x < width_; ++x) {
                pixels = std::copy_n(colours_.data() + 4 * x, channels, pixels);
                if (alpha != nullptr) {
                    *alpha++ = colours_[4 * x + 3];
                }
            }
        }
        row_ += count;
        rows -= count;
    }
}

} // namespace codec::wic
