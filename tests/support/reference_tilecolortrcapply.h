// The application of a grid of three-channel curves in its plainest form: row by row, run by run, pixel by pixel.
#ifndef KO_TESTS_REFERENCE_TILECOLORTRCAPPLY_H
#define KO_TESTS_REFERENCE_TILECOLORTRCAPPLY_H

#include <cmath>
#include <cstdint>
#include <vector>

#include "ko.h"

namespace ko_test {

// A picture of three channels in one block.
struct BytePicture {
    uint64_t width, height;
    int32_t layout;
    std::vector<uint8_t> bytes;

    BytePicture(uint64_t w, uint64_t h, int32_t byte_layout)
        : width(w), height(h), layout(byte_layout), bytes(w * h * 3, uint8_t{0}) {}

    uint64_t position(uint64_t c, uint64_t x, uint64_t y) const {
        switch (layout) {
        case KO_BYTE_LAYOUT_INTERLEAVED:
            return (y * width + x) * 3 + c;
        case KO_BYTE_LAYOUT_LINE_INTERLEAVED:
            return (y * 3 + c) * width + x;
        default:
            return (c * height + y) * width + x;
        }
    }

    uint8_t at(uint64_t c, uint64_t x, uint64_t y) const { return bytes[position(c, x, y)]; }
    uint8_t &at(uint64_t c, uint64_t x, uint64_t y) { return bytes[position(c, x, y)]; }
};

// Pixels of a tile in a direction: the quotient to the nearest number, all in single precision.
inline uint64_t reference_tile_size(uint64_t pixels, uint64_t strips) {
    const float quotient = static_cast<float>(pixels) / static_cast<float>(strips);
    const float raised = quotient + 0.5f;
    return static_cast<uint64_t>(std::floor(raised));
}

// Truncated toward zero and cut to the low 8 bits. 64 bits hold every blend of 32-bit entries.
inline uint8_t reference_cut(float value) { return static_cast<uint8_t>(static_cast<int64_t>(value)); }

// The rows that use the same grid rows: 0 above the first tile's centre, strips below the last one's.
struct ReferenceBand {
    uint64_t index = 0;
    uint64_t first_row = 0;
    uint64_t end_row = 0;
};

inline ReferenceBand reference_band(uint64_t row, uint64_t height, uint64_t strips) {
    const uint64_t tile_height = reference_tile_size(height, strips);
    ReferenceBand band{0, 0, tile_height / 2 + 1};
    while (row >= band.end_row) {
        const uint64_t index = band.index + 1;
        band = {index, band.end_row, index < strips ? band.end_row + tile_height : height};
    }
    return band;
}

class ReferenceTileColorApply {
  public:
    ReferenceTileColorApply(const TileColorTRC &grid, const BytePicture &input, const BytePicture &before)
        : grid_(grid), input_(input), output_(before), tile_width_(reference_tile_size(input.width, grid.numStripsX)),
          tile_height_(reference_tile_size(input.height, grid.numStripsY)), x_step_(1.0f / static_cast<float>(tile_width_)),
          y_step_(1.0f / static_cast<float>(tile_height_)) {}

    BytePicture run() {
        for (uint64_t c = 0; c < 3; ++c) {
            for (uint64_t y = 0; y < input_.height; ++y) {
                row(c, y);
            }
        }
        return output_;
    }

  private:
    // The entry of the curve of channel c at tile (column, row) for a byte.
    uint32_t entry(uint64_t c, uint64_t column, uint64_t row, uint8_t byte) const {
        const uint32_t *plane = c == 0 ? grid_.redArray : c == 1 ? grid_.greenArray : grid_.blueArray;
        return plane[(row * grid_.numStripsX + column) * grid_.size + byte];
    }

    // The weight of the upper curves: 1 at the band's first row, a step less with every row.
    float upper_weight(const ReferenceBand &band, uint64_t y) const {
        float weight = 1.0f;
        for (uint64_t passed = band.first_row; passed < y; ++passed) {
            weight = weight - y_step_;
        }
        return weight;
    }

    void row(uint64_t c, uint64_t y) {
        const ReferenceBand band = reference_band(y, input_.height, grid_.numStripsY);
        const bool edge = band.index == 0 || band.index == grid_.numStripsY;
        const uint64_t half = tile_width_ / 2;
        const uint64_t last = grid_.numStripsX - 1;
        const uint64_t right = half + last * tile_width_;
        if (edge) {
            const uint64_t tile_row = band.index == 0 ? 0 : grid_.numStripsY - 1;
            single(c, y, 0, half, 0, tile_row);
            for (uint64_t column = 1; column <= last; ++column) {
                horizontal(c, y, half + (column - 1) * tile_width_, column, tile_row);
            }
            single(c, y, right, half, last, tile_row);
        } else {
            const float yw = upper_weight(band, y);
            vertical(c, y, 0, half, 0, band.index, yw);
            for (uint64_t column = 1; column <= last; ++column) {
                four(c, y, half + (column - 1) * tile_width_, column, band.index, yw);
            }
            vertical(c, y, right, half, last, band.index, yw);
        }
    }

    void single(uint64_t c, uint64_t y, uint64_t first, uint64_t count, uint64_t column, uint64_t tile_row) {
        for (uint64_t x = first; x < first + count && x < input_.width; ++x) {
            output_.at(c, x, y) = static_cast<uint8_t>(entry(c, column, tile_row, input_.at(c, x, y)) & 255u);
        }
    }

    void horizontal(uint64_t c, uint64_t y, uint64_t first, uint64_t column, uint64_t tile_row) {
        float w = 1.0f;
        for (uint64_t x = first; x < first + tile_width_ && x < input_.width; ++x) {
            const uint8_t v = input_.at(c, x, y);
            const float u = 1.0f - w;
            const float right = static_cast<float>(entry(c, column, tile_row, v)) * u;
            const float left = static_cast<float>(entry(c, column - 1, tile_row, v)) * w;
            output_.at(c, x, y) = reference_cut(right + left);
            w = w - x_step_;
        }
    }

    void vertical(uint64_t c, uint64_t y, uint64_t first, uint64_t count, uint64_t column, uint64_t tile_row, float yw) {
        const float u = 1.0f - yw;
        for (uint64_t x = first; x < first + count && x < input_.width; ++x) {
            const uint8_t v = input_.at(c, x, y);
            const float lower = static_cast<float>(entry(c, column, tile_row, v)) * u;
            const float upper = static_cast<float>(entry(c, column, tile_row - 1, v)) * yw;
            output_.at(c, x, y) = reference_cut(lower + upper);
        }
    }

    void four(uint64_t c, uint64_t y, uint64_t first, uint64_t column, uint64_t tile_row, float yw) {
        float left_upper = yw;
        float left_lower = 1.0f - yw;
        float right_upper = 0.0f;
        float right_lower = 0.0f;
        const float s = x_step_ * yw;
        const float t = x_step_ * (1.0f - yw);
        for (uint64_t x = first; x < first + tile_width_ && x < input_.width; ++x) {
            const uint8_t v = input_.at(c, x, y);
            float sum = static_cast<float>(entry(c, column, tile_row - 1, v)) * right_upper;
            sum = sum + static_cast<float>(entry(c, column - 1, tile_row - 1, v)) * left_upper;
            sum = sum + static_cast<float>(entry(c, column - 1, tile_row, v)) * left_lower;
            sum = sum + static_cast<float>(entry(c, column, tile_row, v)) * right_lower;
            output_.at(c, x, y) = reference_cut(sum);
            right_upper = right_upper + s;
            left_upper = left_upper - s;
            right_lower = right_lower + t;
            left_lower = left_lower - t;
        }
    }

    const TileColorTRC &grid_;
    const BytePicture &input_;
    BytePicture output_;
    uint64_t tile_width_, tile_height_;
    float x_step_, y_step_;
};

// The bytes that a whole picture becomes; before is what the output buffer held, and keeps in columns that no run reaches.
inline BytePicture reference_tile_color_apply(const TileColorTRC &grid, const BytePicture &input, const BytePicture &before) {
    return ReferenceTileColorApply(grid, input, before).run();
}

} // namespace ko_test

#endif
