// A file whose channels stand together in strips is decoded row by row. Otherwise what holds the row is decoded as one band: a
// row of tiles, or a strip of each channel.
#include "codec/tiff_rows.h"

#include <algorithm>
#include <cstring>

#include "codec/formats.h"

namespace codec {

namespace {

// The nearest of 256 levels.
uint8_t reduced(uint16_t level) { return static_cast<uint8_t>((level * 255u + 32767u) / 65535u); }

// Unpacks samples from the bits in which the file stores them.
//   count    samples
//   to       where the first one goes
//   stride   from one to the next
void unpack(const uint8_t *packed, size_t count, const TiffLayout &layout, uint8_t *to, size_t stride) {
    const uint32_t bits = layout.bits;
    if (bits == 16) {
        for (size_t i = 0; i < count; ++i) {
            uint16_t level = 0;
            std::memcpy(&level, packed + 2 * i, sizeof level);
            to[i * stride] = reduced(level);
        }
        return;
    }
    const uint32_t top = (1u << bits) - 1;
    const uint32_t factor = layout.indices ? 1 : 255 / top;
    for (size_t i = 0; i < count; ++i) {
        const size_t place = i * bits;
        const uint32_t shift = 8 - bits - static_cast<uint32_t>(place % 8);
        to[i * stride] = static_cast<uint8_t>((packed[place / 8] >> shift & top) * factor);
    }
}

size_t packed_size(size_t samples, const TiffLayout &layout) { return (samples * layout.bits + 7) / 8; }

// Refuses a strip or tile that is missing: if pixels are not compressed, libtiff reads whatever is at their place.
void check_stored(TIFF *tiff, uint32_t number, tmsize_t size, const TiffReports &reports) {
    uint16_t compression = 0;
    TIFFGetField(tiff, TIFFTAG_COMPRESSION, &compression);
    const uint64_t least = compression == COMPRESSION_NONE ? static_cast<uint64_t>(size) : 1;
    reports.check(TIFFGetStrileByteCount(tiff, number) >= least);
}

// Memory for what libtiff decodes at once, of the size that libtiff gives.
Plane room_for(tmsize_t size, size_t needed, const TiffReports &reports) {
    reports.check(size > 0 && static_cast<size_t>(size) >= needed);
    return std::make_unique_for_overwrite<uint8_t[]>(static_cast<size_t>(size));
}

class ScanlineRows : public TiffRows {
  public:
    ScanlineRows(TIFF *tiff, const TiffLayout &layout, const TiffReports &reports)
        : tiff_(tiff), layout_(layout), reports_(reports),
          packed_(room_for(TIFFScanlineSize(tiff), packed_size(layout.row_samples(), layout), reports)),
          samples_(std::make_unique_for_overwrite<uint8_t[]>(layout.row_samples())) {}

    const uint8_t *next() override {
        reports_.check(TIFFReadScanline(tiff_, packed_.get(), row_++) == 1);
        unpack(packed_.get(), layout_.row_samples(), layout_, samples_.get(), 1);
        return samples_.get();
    }

  private:
    TIFF *tiff_;
    TiffLayout layout_;
    const TiffReports &reports_;
    Plane packed_;
    Plane samples_;
    uint32_t row_ = 0;
};

// The rows of a band, one after the other.
class BandRows : public TiffRows {
  public:
    const uint8_t *next() override {
        const uint32_t row = row_++;
        if (row % band_rows_ == 0) {
            load(row, std::min(band_rows_, layout_.height - row));
        }
        return band_.get() + row % band_rows_ * layout_.row_samples();
    }

  protected:
    BandRows(TIFF *tiff, const TiffLayout &layout, const TiffReports &reports, uint32_t band_rows)
        : tiff_(tiff), layout_(layout), reports_(reports), band_rows_(std::min(band_rows, layout.height)) {
        reports.check(band_rows_ > 0);
        band_ = std::make_unique_for_overwrite<uint8_t[]>(band_rows_ * layout.row_samples());
    }

    // Decodes the rows from one on into the band.
    virtual void load(uint32_t first, uint32_t rows) = 0;

    // The place of a sample in the band.
    uint8_t *place(uint32_t row, uint32_t x, uint16_t channel) {
        return band_.get() + row * layout_.row_samples() + size_t{x} * layout_.channels + channel;
    }

    uint16_t planes() const { return layout_.apart ? layout_.channels : 1; }
    uint16_t channels_of_plane() const { return layout_.apart ? 1 : layout_.channels; }

    TIFF *tiff_;
    TiffLayout layout_;
    const TiffReports &reports_;

  private:
    uint32_t band_rows_;
    Plane band_;
    uint32_t row_ = 0;
};

uint32_t rows_per_strip(TIFF *tiff) {
    uint32_t rows = 0;
    TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rows);
    return rows;
}

class StripRows : public BandRows {
  public:
    StripRows(TIFF *tiff, const TiffLayout &layout, const TiffReports &reports)
        : BandRows(tiff, layout, reports, rows_per_strip(tiff)), row_bytes_(packed_size(layout.width, layout)),
          packed_(room_for(TIFFStripSize(tiff), row_bytes_ * std::min(rows_per_strip(tiff), layout.height), reports)) {}

  private:
    void load(uint32_t first, uint32_t rows) override {
        const auto size = static_cast<tmsize_t>(rows * row_bytes_);
        for (uint16_t channel = 0; channel < layout_.channels; ++channel) {
            const uint32_t strip = TIFFComputeStrip(tiff_, first, channel);
            check_stored(tiff_, strip, size, reports_);
            reports_.check(TIFFReadEncodedStrip(tiff_, strip, packed_.get(), size) == size);
            for (uint32_t row = 0; row < rows; ++row) {
                unpack(packed_.get() + row * row_bytes_, layout_.width, layout_, place(row, 0, channel), layout_.channels);
            }
        }
    }

    size_t row_bytes_;
    Plane packed_;
};

uint32_t tile_side(TIFF *tiff, uint32_t tag) {
    uint32_t side = 0;
    TIFFGetField(tiff, tag, &side);
    return side;
}

class TileRows : public BandRows {
  public:
    TileRows(TIFF *tiff, const TiffLayout &layout, const TiffReports &reports)
        : BandRows(tiff, layout, reports, tile_side(tiff, TIFFTAG_TILELENGTH)), width_(tile_side(tiff, TIFFTAG_TILEWIDTH)),
          length_(tile_side(tiff, TIFFTAG_TILELENGTH)) {
        check_size(width_, length_);
        row_bytes_ = packed_size(size_t{width_} * channels_of_plane(), layout);
        packed_ = room_for(TIFFTileSize(tiff), row_bytes_ * length_, reports);
    }

  private:
    void load(uint32_t first, uint32_t rows) override {
        for (uint16_t plane = 0; plane < planes(); ++plane) {
            for (uint32_t x = 0; x < layout_.width; x += std::min(width_, layout_.width - x)) {
                load_tile(x, first, rows, plane);
            }
        }
    }

    void load_tile(uint32_t x, uint32_t y, uint32_t rows, uint16_t plane) {
        const auto size = static_cast<tmsize_t>(row_bytes_ * length_);
        const uint32_t tile = TIFFComputeTile(tiff_, x, y, 0, plane);
        check_stored(tiff_, tile, size, reports_);
        reports_.check(TIFFReadEncodedTile(tiff_, tile, packed_.get(), size) == size);
        const size_t count = size_t{std::min(width_, layout_.width - x)} * channels_of_plane();
        for (uint32_t row = 0; row < rows; ++row) {
            unpack(packed_.get() + row * row_bytes_, count, layout_, place(row, x, plane),
                   layout_.apart ? layout_.channels : 1);
        }
    }

    uint32_t width_;
    uint32_t length_;
    size_t row_bytes_ = 0;
    Plane packed_;
};

uint32_t rows_at_once(TIFF *tiff) {
    return TIFFIsTiled(tiff) != 0 ? tile_side(tiff, TIFFTAG_TILELENGTH) : rows_per_strip(tiff);
}

class ConvertedRows : public BandRows {
  public:
    ConvertedRows(TIFF *tiff, const TiffLayout &layout, const TiffReports &reports)
        : BandRows(tiff, layout, reports, rows_at_once(tiff)) {
        colours_.resize(size_t{std::min(rows_at_once(tiff), layout.height)} * layout.width);
        char refusal[1024] = "";
        if (TIFFRGBAImageOK(tiff, refusal) == 0 || TIFFRGBAImageBegin(&image_, tiff, 1, refusal) == 0) {
            reports.check(true);
            throw Error(refusal);
        }
        image_.orientation = image_.req_orientation = ORIENTATION_TOPLEFT; // pixels stay as they are stored
    }

    ~ConvertedRows() override {
        if (image_.tif != nullptr) {
            TIFFRGBAImageEnd(&image_);
        }
    }

  private:
    void load(uint32_t first, uint32_t rows) override {
        image_.row_offset = static_cast<int>(first);
        reports_.check(TIFFRGBAImageGet(&image_, colours_.data(), layout_.width, rows) == 1);
        for (size_t i = 0; i < size_t{rows} * layout_.width; ++i) {
            uint8_t *to = place(0, 0, 0) + i * 3;
            to[0] = static_cast<uint8_t>(TIFFGetR(colours_[i]));
            to[1] = static_cast<uint8_t>(TIFFGetG(colours_[i]));
            to[2] = static_cast<uint8_t>(TIFFGetB(colours_[i]));
        }
    }

    TIFFRGBAImage image_{};
    std::vector<uint32_t> colours_;
};

} // namespace

std::unique_ptr<TiffRows> stored_rows(TIFF *tiff, const TiffLayout &layout, const TiffReports &reports) {
    if (TIFFIsTiled(tiff) != 0) {
        return std::make_unique<TileRows>(tiff, layout, reports);
    }
    if (layout.apart) {
        return std::make_unique<StripRows>(tiff, layout, reports);
    }
    return std::make_unique<ScanlineRows>(tiff, layout, reports);
}

std::unique_ptr<TiffRows> converted_rows(TIFF *tiff, const TiffLayout &layout, const TiffReports &reports) {
    return std::make_unique<ConvertedRows>(tiff, layout, reports);
}

} // namespace codec
