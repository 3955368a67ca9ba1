// Inside the codec: what reading and writing TIFF share.
#ifndef KO_CODEC_TIFF_COMMON_H
#define KO_CODEC_TIFF_COMMON_H

#include <cstdarg>
#include <memory>

#include <tiffio.h>

#include "codec/guard.h"

namespace codec {

// What libtiff reports of one file. It returns from failed calls, so nothing jumps.
class TiffReports {
  public:
    // Returns a call's result. A call that reported an error counts as failed, whatever it returned.
    void check(bool good) const;

    // From here on what libtiff calls an error is one only where a call fails: of the values beside the pixels any may be
    // damaged.
    void be_lenient() { lenient_ = true; }

    // From here on warnings are errors: those of the decoders mean that pixels are missing.
    void be_strict() {
        trouble_.forgive();
        lenient_ = false;
        strict_ = true;
    }

    // The stream failed, which is the cause of all that libtiff reports afterwards. The caller keeps the text alive.
    void stream_failed(const char *text) { stream_failure_ = text; }

    void tell_warnings(Notices &notices) { trouble_.tell_warnings(notices); }

    static int on_error(TIFF *, void *reports, const char *module, const char *format, va_list values);
    static int on_warning(TIFF *, void *reports, const char *module, const char *format, va_list values);

  private:
    Trouble trouble_;
    const char *stream_failure_ = nullptr;
    bool lenient_ = false;
    bool strict_ = false;
};

struct CloseTiff {
    void operator()(TIFF *tiff) const { TIFFClose(tiff); }
};
using TiffPtr = std::unique_ptr<TIFF, CloseTiff>;

// The calls by which libtiff reaches a stream.
struct TiffStream {
    void *data;
    TIFFReadWriteProc read;
    TIFFReadWriteProc write;
    TIFFSeekProc seek;
    TIFFSizeProc size;
};

// Opens a file in one of libtiff's modes. Stream and reports must outlive it.
TiffPtr open_handle(const char *mode, const TiffStream &stream, TiffReports &reports);

} // namespace codec

#endif
