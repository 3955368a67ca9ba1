// Inside the codec: the samples of a TIFF file, row by row, however the file stores them: in strips or tiles, the channels
// together or apart, with 1 to 16 bits.
#ifndef KO_CODEC_TIFF_ROWS_H
#define KO_CODEC_TIFF_ROWS_H

#include <memory>

#include "codec/tiff_common.h"

namespace codec {

struct TiffLayout {
    uint32_t width = 0;
    uint32_t height = 0;
    uint16_t bits = 1;     // of a sample: 1, 2, 4, 8 or 16
    uint16_t channels = 1; // all that are stored
    bool apart = false;    // each channel is in strips or tiles of its own
    bool indices = false;  // samples are numbers of colours, not levels

    size_t row_samples() const { return size_t{width} * channels; }
};

class TiffRows {
  public:
    virtual ~TiffRows() = default;
    TiffRows(const TiffRows &) = delete;
    TiffRows &operator=(const TiffRows &) = delete;

    // The next row from the top, valid until the next call: pixel by pixel a byte for each channel, a level from 0 to 255 or an
    // index.
    virtual const uint8_t *next() = 0;

  protected:
    TiffRows() = default;
};

std::unique_ptr<TiffRows> stored_rows(TIFF *tiff, const TiffLayout &layout, const TiffReports &reports);

// Rows of colours that libtiff itself turns into RGB, such as YCbCr with fewer samples of colour than of luminance.
std::unique_ptr<TiffRows> converted_rows(TIFF *tiff, const TiffLayout &layout, const TiffReports &reports);

} // namespace codec

#endif
