// libtiff's reports turned into errors and notices.
#include "codec/tiff_common.h"

#include <array>
#include <new>
#include <string_view>

namespace codec {

namespace {

// No picture that is processed needs more in one piece. Of a size that a header merely claims, only as much is allocated as the
// file holds.
constexpr tmsize_t largest_piece = tmsize_t{largest_area} * 8;

// Other programs' fields do not concern the reader.
constexpr std::string_view unknown_field = "Unknown field with tag";

// Reported for every file with this compression, whether complete or not.
constexpr std::string_view old_jpeg = "Depreciated and troublesome old-style JPEG";

using Text = std::array<char, Trouble::text_size>;

Text formatted(const char *format, va_list values) {
    Text text{};
    std::vsnprintf(text.data(), text.size(), format, values);
    return text;
}

} // namespace

void TiffReports::check(bool good) const {
    if (stream_failure_ != nullptr) {
        throw Error(stream_failure_);
    }
    if (trouble_.noted() && !(good && lenient_)) {
        trouble_.raise();
    }
    if (!good) {
        throw Error("damaged TIFF file");
    }
}

int TiffReports::on_error(TIFF *, void *reports, const char *, const char *format, va_list values) {
    static_cast<TiffReports *>(reports)->trouble_.note(formatted(format, values).data());
    return 1;
}

int TiffReports::on_warning(TIFF *tiff, void *reports, const char *module, const char *format, va_list values) {
    auto &self = *static_cast<TiffReports *>(reports);
    const std::string_view text = format;
    if (text.starts_with(unknown_field) || text.starts_with(old_jpeg)) {
        return 1;
    }
    if (self.strict_) {
        return on_error(tiff, reports, module, format, values);
    }
    self.trouble_.warn(formatted(format, values).data());
    return 1;
}

TiffPtr open_handle(const char *mode, const TiffStream &stream, TiffReports &reports) {
    const std::unique_ptr<TIFFOpenOptions, decltype([](TIFFOpenOptions *options) { TIFFOpenOptionsFree(options); })> options(
        TIFFOpenOptionsAlloc());
    if (!options) {
        throw std::bad_alloc();
    }
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), largest_piece);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), TiffReports::on_error, &reports);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), TiffReports::on_warning, &reports);
    const auto on_close = [](thandle_t) { return 0; };
    TiffPtr tiff(TIFFClientOpenExt("TIFF file", mode, stream.data, stream.read, stream.write, stream.seek, on_close,
                                   stream.size, nullptr, nullptr, options.get()));
    reports.check(tiff != nullptr);
    return tiff;
}

} // namespace codec
