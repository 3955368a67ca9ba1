// The application of a grid of curves against a plain reference that forms every output byte on its own.
#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "awkward_floats.h"
#include "capture.h"
#include "guards.h"
#include "ko.h"
#include "library_test.h"
#include "pictures.h"
#include "same_floats.h"
#include "turn_sizes.h"

namespace {

using namespace ko_test;

constexpr int32_t rgb = KO_COLORSPACE_RGB;
constexpr int32_t gray = KO_COLORSPACE_GRAY;

using TileTRCApplyTest = LibraryTest;

// A byte picture in any layout. Three blocks are kept apart, so that a step beyond one is a fault.
struct Picture {
    uint64_t width, height;
    int32_t layout, space;
    std::array<std::vector<uint8_t>, 3> blocks;

    Picture(uint64_t w, uint64_t h, int32_t byte_layout, int32_t color_space)
        : width(w), height(h), layout(byte_layout), space(color_space) {
        const bool apart = space != gray && layout == KO_BYTE_LAYOUT_3_PLANES;
        blocks[0].resize(w * h * (space == gray || apart ? 1 : 3));
        blocks[1].resize(apart ? w * h : 0);
        blocks[2].resize(apart ? w * h : 0);
    }

    uint64_t channels() const { return space == gray ? 1 : 3; }
    bool apart() const { return !blocks[1].empty(); }

    uint8_t *at(uint64_t c, uint64_t x, uint64_t y) {
        if (space == gray) {
            return blocks[0].data() + y * width + x;
        }
        switch (layout) {
        case KO_BYTE_LAYOUT_INTERLEAVED:
            return blocks[0].data() + (y * width + x) * 3 + c;
        case KO_BYTE_LAYOUT_LINE_INTERLEAVED:
            return blocks[0].data() + (y * 3 + c) * width + x;
        case KO_BYTE_LAYOUT_PLANAR:
            return blocks[0].data() + (c * height + y) * width + x;
        default:
            return blocks[c].data() + y * width + x;
        }
    }

    // The pointer of channel c that a chunk beginning at row y is handed.
    uint8_t *chunk(uint64_t c, uint64_t y) { return c == 0 || apart() ? at(c, 0, y) : nullptr; }
};

Picture noise_picture(uint64_t width, uint64_t height, int32_t layout, int32_t space, uint32_t seed) {
    Picture picture(width, height, layout, space);
    Noise noise(seed);
    for (uint64_t y = 0; y < height; ++y) {
        for (uint64_t x = 0; x < width; ++x) {
            const bool dark = noise.next() % 16 == 0;
            for (uint64_t c = 0; c < picture.channels(); ++c) {
                *picture.at(c, x, y) = dark ? 0 : noise.byte();
            }
        }
    }
    return picture;
}

// What a picture is processed with.
struct Tones {
    const TileTRC *grid = nullptr;
    const ColorTRC *curves = nullptr;
    float ratio = 0.5f;
};

TileTRCPtr make_grid(uint64_t size, uint64_t strips_x, uint64_t strips_y, const std::function<uint32_t(uint64_t)> &entry) {
    TileTRCPtr grid(KoTileTRCNew(size, strips_x, strips_y));
    for (uint64_t i = 0; i < size * strips_x * strips_y; ++i) {
        grid->array[i] = entry(i);
    }
    return grid;
}

// Entries all over the scale of the curves, some above it.
TileTRCPtr noise_grid(uint64_t size, uint64_t strips_x, uint64_t strips_y, uint32_t seed) {
    Noise noise(seed);
    const auto limit = static_cast<uint32_t>(size + size / 8);
    return make_grid(size, strips_x, strips_y, [&](uint64_t) { return (noise.next() >> 7) % limit; });
}

TileTRCPtr identity_grid(uint64_t size, uint64_t strips_x, uint64_t strips_y) {
    return make_grid(size, strips_x, strips_y, [&](uint64_t i) { return static_cast<uint32_t>(i % size); });
}

ColorTRCPtr make_curves(uint64_t size, const std::function<uint32_t(uint64_t c, uint64_t i)> &entry) {
    ColorTRCPtr curves(KoColorTRCNew(size, 3));
    for (uint64_t c = 0; c < 3; ++c) {
        for (uint64_t i = 0; i < size; ++i) {
            curves->curves[c]->array[i] = entry(c, i);
        }
    }
    return curves;
}

ColorTRCPtr noise_curves(uint64_t size, uint32_t seed) {
    Noise noise(seed);
    return make_curves(size, [&](uint64_t, uint64_t) { return (noise.next() >> 7) % static_cast<uint32_t>(size); });
}

// Twice as many entries as levels: each level becomes half a level more.
ColorTRCPtr half_curves() {
    return make_curves(512, [](uint64_t, uint64_t i) { return static_cast<uint32_t>(i + 1); });
}

// Position in one direction: the strips on both sides and, inside an interpolating run, the index in it.
struct Place {
    uint64_t near = 0;
    uint64_t far = 0;
    bool between = false;
    uint64_t index = 0;
};

Place place(uint64_t position, uint64_t first, uint64_t tile, uint64_t strips) {
    if (position < first) {
        return {};
    }
    const uint64_t k = 1 + (position - first) / tile;
    if (k >= strips) {
        return {strips - 1, strips - 1, false, 0};
    }
    return {k - 1, k, true, (position - first) % tile};
}

// The running sums of one direction: position from 0 up and from the tile's size down.
std::vector<std::pair<double, double>> running_sums(uint64_t tile) {
    const double size = static_cast<double>(tile);
    const double delta = size / (size - 1.0);
    double position = 0.0;
    double rest = size;
    std::vector<std::pair<double, double>> sums;
    for (uint64_t i = 0; i < tile; ++i) {
        sums.emplace_back(position, rest);
        position += delta;
        rest -= delta;
    }
    return sums;
}

class Reference {
  public:
    Reference(const Picture &picture, const Tones &tones) : tones_(tones), picture_(picture), output_(picture) {
        if (tones.grid != nullptr && tones.grid->numStripsX * tones.grid->numStripsY > 0) {
            grid_ = tones.grid;
            tile_width_ = picture.width / grid_->numStripsX;
            tile_height_ = picture.height / grid_->numStripsY;
            interpolating_ = grid_->numStripsX > 1 || grid_->numStripsY > 1;
            columns_ = running_sums(tile_width_);
            rows_ = running_sums(tile_height_);
        }
    }

    Picture run() {
        for (uint64_t y = 0; y < picture_.height; ++y) {
            for (uint64_t x = 0; x < picture_.width; ++x) {
                if (!interpolating_) {
                    pass_through(x, y);
                } else if (picture_.space == gray) {
                    *output_.at(0, x, y) = to_byte(new_level(static_cast<float>(*picture_.at(0, x, y)), x, y));
                } else {
                    transfer(x, y);
                }
            }
        }
        return output_;
    }

    // Weights of left upper, left lower, right upper and right lower at column i of row j of a tile.
    std::array<float, 4> weights(uint64_t i, uint64_t j) const {
        const double area = static_cast<double>(tile_width_) * static_cast<double>(tile_height_);
        const auto [x, rest_x] = columns_[i];
        const auto [y, rest_y] = rows_[j];
        return {static_cast<float>(rest_x * rest_y / area), static_cast<float>(rest_x * y / area),
                static_cast<float>(x * rest_y / area), static_cast<float>(x * y / area)};
    }

  private:
    // A value that is no number gives 0.
    static uint8_t to_byte(float value) {
        const float sum = std::isnan(value) ? 0.0f : value + 0.5f;
        return static_cast<uint8_t>(std::clamp(std::floor(static_cast<double>(sum)), 0.0, 255.0));
    }

    static float luminance(const std::array<float, 3> &c) { return c[0] * 0.299f + c[1] * 0.587f + c[2] * 0.114f; }

    std::array<float, 3> channels(uint64_t x, uint64_t y) {
        std::array<float, 3> values{};
        for (uint64_t c = 0; c < 3; ++c) {
            const uint8_t byte = *picture_.at(c, x, y);
            values[c] = static_cast<float>(byte);
            if (tones_.curves != nullptr) {
                const uint64_t step = tones_.curves->curves[0]->size >> 8;
                values[c] = static_cast<float>(tones_.curves->curves[c]->array[byte * step]);
                if (step != 1) {
                    values[c] /= static_cast<float>(step);
                }
            }
        }
        return values;
    }

    // An index past the curve takes its last entry.
    uint32_t entry(uint64_t column, uint64_t row, uint64_t index) const {
        const uint64_t bounded = std::min(index, grid_->size - 1);
        return grid_->array[(row * grid_->numStripsX + column) * grid_->size + bounded];
    }

    float new_level(float level, uint64_t x, uint64_t y) const {
        const uint64_t step = grid_->size >> 8;
        const uint64_t index = static_cast<uint64_t>(level) * step;
        const auto e = [&](uint64_t column, uint64_t row) { return static_cast<float>(entry(column, row, index)); };
        const Place h = place(x, tile_width_ >> 1, tile_width_, grid_->numStripsX);
        const uint64_t first_rows = (tile_height_ >> 1) + ((picture_.height % grid_->numStripsY) >> 1);
        const Place v = place(y, first_rows, tile_height_, grid_->numStripsY);
        float value = 0.0f;
        if (h.between && v.between) {
            const std::array<float, 4> w = weights(h.index, v.index);
            value = ((e(h.near, v.far) * w[1] + e(h.near, v.near) * w[0]) + e(h.far, v.near) * w[2]) + e(h.far, v.far) * w[3];
        } else if (h.between) {
            const std::array<float, 4> w = weights(h.index, 0);
            value = e(h.near, v.near) * w[0] + e(h.far, v.near) * w[2];
        } else if (v.between) {
            const std::array<float, 4> w = weights(0, v.index);
            value = e(h.near, v.near) * w[0] + e(h.near, v.far) * w[1];
        } else {
            value = e(h.near, v.near);
        }
        return step != 1 ? value / static_cast<float>(step) : value;
    }

    void transfer(uint64_t x, uint64_t y) {
        const std::array<float, 3> values = channels(x, y);
        const float old_level = luminance(values);
        const float level = new_level(old_level, x, y);
        const float divisor = old_level == 0.0f ? 1.0f : old_level;
        const float f = level * tones_.ratio / divisor;
        const float additive = 1.0f - tones_.ratio;
        for (uint64_t c = 0; c < 3; ++c) {
            *output_.at(c, x, y) = to_byte((level - old_level + values[c]) * additive + values[c] * f);
        }
    }

    void pass_through(uint64_t x, uint64_t y) {
        if (picture_.space == gray) {
            *output_.at(0, x, y) = *picture_.at(0, x, y);
            return;
        }
        std::array<float, 3> values = channels(x, y);
        if (grid_ != nullptr) {
            const auto old_level = static_cast<uint64_t>(luminance(values));
            const uint64_t level = entry(0, 0, old_level);
            if (level != old_level) {
                const float divisor = old_level == 0 ? 1.0f : static_cast<float>(old_level);
                for (float &value : values) {
                    value = std::min(static_cast<float>(level) * value / divisor + 0.5f, 255.0f);
                }
            }
        }
        for (uint64_t c = 0; c < 3; ++c) {
            *output_.at(c, x, y) = static_cast<uint8_t>(static_cast<uint64_t>(values[c]));
        }
    }

    Tones tones_;
    Picture picture_, output_;
    const TileTRC *grid_ = nullptr;
    bool interpolating_ = false;
    uint64_t tile_width_ = 0, tile_height_ = 0;
    std::vector<std::pair<double, double>> columns_, rows_;
};

TileTRCApplyPtr make_apply(const Picture &picture, const Tones &tones) {
    return TileTRCApplyPtr(
        KoTileTRCApplyNew(tones.grid, tones.ratio, tones.curves, picture.width, picture.height, picture.layout, picture.space));
}

int32_t apply_rows(TileTRCApply *apply, uint64_t rows, uint64_t y, Picture &input, Picture &output) {
    return KoTileTRCApplyToByteChunkNonInterlaced(apply, rows, input.chunk(0, y), input.chunk(1, y), input.chunk(2, y),
                                                  output.chunk(0, y), output.chunk(1, y), output.chunk(2, y));
}

// Applies in chunks of the given sizes, which cover the picture.
void apply_chunks(const Tones &tones, const std::vector<uint64_t> &chunks, Picture &input, Picture &output) {
    const TileTRCApplyPtr apply = make_apply(input, tones);
    ASSERT_NE(apply, nullptr);
    uint64_t y = 0;
    for (const uint64_t rows : chunks) {
        ASSERT_EQ(apply_rows(apply.get(), rows, y, input, output), KO_OK);
        y += rows;
    }
    EXPECT_EQ(apply->rowsDone, input.height);
}

Picture applied(const Tones &tones, Picture input) {
    Picture output(input.width, input.height, input.layout, input.space);
    apply_chunks(tones, {input.height}, input, output);
    return output;
}

void expect_same(const Picture &expected, const Picture &actual, const char *what) {
    for (size_t block = 0; block < 3; ++block) {
        const auto &a = expected.blocks[block];
        const auto &b = actual.blocks[block];
        ASSERT_EQ(a.size(), b.size());
        const auto [i, j] = std::mismatch(a.begin(), a.end(), b.begin());
        EXPECT_TRUE(i == a.end()) << what << ": byte " << (i - a.begin()) << " of block " << block << " is " << +*j
                                  << " instead of " << +*i;
    }
}

// Whole, row by row, in uneven chunks and in place: all as the reference.
void expect_reference(const Tones &tones, Picture input) {
    SCOPED_TRACE(testing::Message() << input.width << " by " << input.height << ", layout " << input.layout << ", space "
                                    << input.space << ", ratio " << tones.ratio << ", curves "
                                    << (tones.curves != nullptr ? tones.curves->curves[0]->size : 0) << ", grid "
                                    << (tones.grid != nullptr ? tones.grid->size : 0) << ": "
                                    << (tones.grid != nullptr ? tones.grid->numStripsX : 0) << " by "
                                    << (tones.grid != nullptr ? tones.grid->numStripsY : 0));
    const Picture expected = Reference(input, tones).run();
    expect_same(expected, applied(tones, input), "whole");

    Picture output(input.width, input.height, input.layout, input.space);
    apply_chunks(tones, std::vector<uint64_t>(input.height, 1), input, output);
    expect_same(expected, output, "row by row");

    std::vector<uint64_t> uneven;
    for (uint64_t left = input.height, size = 0; left > 0; left -= uneven.back(), size = (size + 3) % 7) {
        uneven.push_back(std::min(size, left)); // a chunk of no rows is one of them
    }
    apply_chunks(tones, uneven, input, input);
    expect_same(expected, input, "in place");
}

// Between guarded buffers, in chunks of rows.
void expect_guarded(const Tones &tones, Picture input, uint64_t rows, size_t shift) {
    const Picture expected = Reference(input, tones).run();
    std::vector<std::unique_ptr<GuardedBytes>> sources;
    std::vector<std::unique_ptr<GuardedBytes>> targets;
    for (const std::vector<uint8_t> &block : input.blocks) {
        sources.push_back(std::make_unique<GuardedBytes>(block, shift));
        targets.push_back(std::make_unique<GuardedBytes>(block.size(), uint8_t{77}, shift + 3));
    }
    const auto place = [&](const auto &blocks, uint64_t c, uint64_t y) -> uint8_t * {
        const size_t block = input.apart() ? c : 0;
        const uint8_t *at = input.chunk(c, y);
        return at == nullptr ? nullptr : blocks[block]->data() + (at - input.blocks[block].data());
    };
    const TileTRCApplyPtr apply = make_apply(input, tones);
    ASSERT_NE(apply, nullptr);
    for (uint64_t y = 0; y < input.height; y += rows) {
        ASSERT_EQ(KoTileTRCApplyToByteChunkNonInterlaced(apply.get(), std::min(rows, input.height - y), place(sources, 0, y),
                                                         place(sources, 1, y), place(sources, 2, y), place(targets, 0, y),
                                                         place(targets, 1, y), place(targets, 2, y)),
                  KO_OK);
    }
    for (size_t block = 0; block < 3; ++block) {
        EXPECT_TRUE(sources[block]->guards_hold() && targets[block]->guards_hold()) << "block " << block;
        EXPECT_EQ(sources[block]->bytes(), input.blocks[block]) << "the input was written";
        EXPECT_EQ(targets[block]->bytes(), expected.blocks[block]) << "between guards, chunks of " << rows;
    }
}

void expect_reference_in_every_layout(const Tones &tones, uint64_t width, uint64_t height, int32_t space, uint32_t seed) {
    for (int32_t layout = 0; layout < 4; ++layout) {
        expect_reference(tones, noise_picture(width, height, layout, space, seed));
    }
}

bool fits(uint64_t pixels, uint64_t strips) { return strips < 2 || pixels / strips >= 2; }

TEST_F(TileTRCApplyTest, ManySizesAndGrids) {
    uint32_t turn = 0;
    for (uint64_t width = 1; width <= 34; ++width) {
        for (uint64_t height = 1; height <= 19; ++height) {
            for (const auto &[strips_x, strips_y] :
                 {std::pair{2u, 2u}, {1u, 2u}, {2u, 1u}, {3u, 5u}, {4u, 3u}, {8u, 8u}, {1u, 1u}}) {
                if (!fits(width, strips_x) || !fits(height, strips_y)) {
                    continue;
                }
                ++turn;
                const TileTRCPtr grid = noise_grid(256, strips_x, strips_y, turn);
                const float ratios[] = {0.0f, 0.5f, 1.0f, 0.3f};
                const Tones tones{grid.get(), nullptr, ratios[turn % 4]};
                expect_reference(tones, noise_picture(width, height, static_cast<int32_t>(turn / 4 % 4), rgb, turn));
                expect_reference(tones, noise_picture(width, height, 0, gray, turn));
                if (HasFailure()) {
                    return;
                }
            }
        }
    }
}

constexpr float ratios_of_all_kinds[] = {0.0f, 0.5f, 1.0f, 0.3f, -0.5f, 1.5f, 40.0f, 1e30f, infinity, -infinity, not_a_number};

TEST_F(TileTRCApplyTest, EverySizeInEveryLayout) {
    constexpr std::pair<uint64_t, uint64_t> strips[] = {{2, 2}, {1, 2}, {3, 1}, {4, 3}, {2, 5}, {1, 1}, {7, 2}};
    constexpr uint64_t grid_sizes[] = {256, 1024, 300, 512};
    constexpr uint64_t color_sizes[] = {0, 256, 1024, 300, 512};
    uint32_t seed = 0;
    for (const TurnSize &size : turn_sizes()) {
        ++seed;
        auto [strips_x, strips_y] = strips[seed % std::size(strips)];
        strips_x = fits(size.width, strips_x) ? strips_x : 1;
        strips_y = fits(size.height, strips_y) ? strips_y : 1;
        const TileTRCPtr grid = noise_grid(grid_sizes[seed % 4], strips_x, strips_y, seed);
        const uint64_t color_size = color_sizes[seed % 5];
        const ColorTRCPtr curves = color_size != 0 ? noise_curves(color_size, seed) : nullptr;
        const Tones tones{grid.get(), curves.get(), ratios_of_all_kinds[seed % std::size(ratios_of_all_kinds)]};
        const auto layout = static_cast<int32_t>(seed % 4);
        for (const Picture &picture :
             {noise_picture(size.width, size.height, layout, rgb, seed), noise_picture(size.width, size.height, 0, gray, seed),
              noise_picture(size.width, size.height, 0, rgb, seed)}) {
            expect_reference(tones, picture);
            expect_guarded(tones, picture, 1 + seed % 5, seed);
            ASSERT_FALSE(HasFailure());
        }
    }
}

// From tiles whose runs are shorter than any group of pixels to those of several groups.
TEST_F(TileTRCApplyTest, TilesOfEveryWidth) {
    uint32_t seed = 0;
    for (uint64_t tile = 2; tile <= 140; tile += tile < 80 ? 1 : 7) {
        for (uint64_t strips = 2; strips <= (tile <= 17 ? 9u : 3u); ++strips) {
            for (uint64_t more = 0; more < std::min<uint64_t>(strips, 3); ++more) {
                const uint64_t width = tile * strips + more;
                ++seed;
                const TileTRCPtr grid = noise_grid(256, strips, 1 + seed % 3, seed);
                const ColorTRCPtr curves = noise_curves(256, seed);
                const Tones tones{grid.get(), seed % 2 == 0 ? curves.get() : nullptr, 0.5f};
                const Picture picture = noise_picture(width, 7, static_cast<int32_t>(seed % 4), rgb, seed);
                expect_reference(tones, picture);
                expect_guarded(tones, picture, 3, seed);
                expect_reference(tones, noise_picture(width, 7, 0, gray, seed));
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

// Steps by which a division is not a multiplication by a rounded reciprocal; even ones give halves, at which bytes turn.
TEST_F(TileTRCApplyTest, CurvesOfEveryStep) {
    uint32_t seed = 0;
    const std::vector<uint64_t> steps =
        with_all_up_to(16, {41, 47, 55, 61, 82, 83, 97}); // 41 times a rounded 1 / 41 is below 1
    for (const uint64_t step : steps) {
        for (const uint64_t strips : {1u, 2u}) {
            const TileTRCPtr grid = noise_grid(256 * step, strips, 2, ++seed);
            const ColorTRCPtr curves = noise_curves(256 * step, seed);
            for (const int32_t space : {rgb, gray}) {
                expect_reference({grid.get(), curves.get()}, noise_picture(61, 24, 0, space, seed));
                expect_reference({nullptr, curves.get()}, noise_picture(61, 24, 0, space, seed));
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

// Entries of both kinds of curves around the places where a float loses units and an integer its sign.
TEST_F(TileTRCApplyTest, EnormousEntriesOfBothKindsOfCurves) {
    constexpr uint32_t middles[] = {255u, 256u, 65535u, 16777216u, 50331648u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu};
    uint32_t seed = 0;
    for (const uint64_t size : {256u, 511u, 512u, 1024u, 65536u}) {
        for (const uint64_t strips : {1u, 3u}) {
            Noise noise(++seed);
            const auto entry = [&] { return middles[noise.next() >> 29] + (noise.next() >> 29) - 4u; };
            const TileTRCPtr grid = make_grid(size, strips, 2 * (strips / 2) + 1, [&](uint64_t) { return entry(); });
            const ColorTRCPtr curves = make_curves(size, [&](uint64_t, uint64_t) { return entry(); });
            const TileTRCPtr plain_grid = noise_grid(256, strips, 1, seed);
            for (const float ratio : ratios_of_all_kinds) {
                for (const Tones &tones : {Tones{grid.get(), curves.get(), ratio}, Tones{grid.get(), nullptr, ratio},
                                           Tones{plain_grid.get(), curves.get(), ratio}, Tones{nullptr, curves.get(), ratio}}) {
                    ++seed;
                    expect_reference(tones, noise_picture(37, 7, static_cast<int32_t>(seed % 4), rgb, seed));
                    ASSERT_FALSE(HasFailure());
                }
            }
        }
    }
}

// Every byte of the input, at every place of a line, by curves whose output turns at halves.
TEST_F(TileTRCApplyTest, EveryByteAtEveryPlaceIsRoundedAlike) {
    const TileTRCPtr grid = make_grid(512, 2, 2, [](uint64_t i) { return static_cast<uint32_t>(i % 512 + i / 512 % 2); });
    for (uint64_t shift = 0; shift < 33; ++shift) {
        for (const int32_t space : {rgb, gray}) {
            Picture input(289 + shift, 4, static_cast<int32_t>(shift % 4), space);
            for (uint64_t y = 0; y < 4; ++y) {
                for (uint64_t x = 0; x < input.width; ++x) {
                    for (uint64_t c = 0; c < input.channels(); ++c) {
                        *input.at(c, x, y) = static_cast<uint8_t>(x + shift + c * 85 * y);
                    }
                }
            }
            expect_reference({grid.get(), nullptr, 0.5f}, input);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(TileTRCApplyTest, AllLayoutsCurveSizesAndRatios) {
    for (const uint64_t size : {256u, 300u, 512u, 1000u, 1024u, 65536u}) {
        const TileTRCPtr grid = noise_grid(size, 3, 2, static_cast<uint32_t>(size));
        for (const uint64_t color_size : {0u, 256u, 300u, 512u, 1024u, 65536u}) {
            const ColorTRCPtr curves = color_size > 0 ? noise_curves(color_size, static_cast<uint32_t>(color_size)) : nullptr;
            for (const float ratio : {0.0f, 0.5f, 1.0f}) {
                const Tones tones{grid.get(), curves.get(), ratio};
                expect_reference_in_every_layout(tones, 23, 13, rgb, 5);
                expect_reference_in_every_layout(tones, 23, 13, gray, 5);
                if (HasFailure()) {
                    return;
                }
            }
        }
    }
}

TEST_F(TileTRCApplyTest, RunsLongerThanAnyBuffer) {
    const TileTRCPtr grid = noise_grid(256, 2, 2, 1);
    const TileTRCPtr row = noise_grid(512, 3, 1, 2);
    const TileTRCPtr column = noise_grid(256, 1, 3, 3);
    const TileTRCPtr many = noise_grid(256, 500, 2, 4);
    for (const int32_t space : {rgb, gray}) {
        expect_reference({grid.get()}, noise_picture(2503, 7, 0, space, 1));
        expect_reference({row.get()}, noise_picture(1501, 5, 2, space, 2));
        expect_reference({column.get()}, noise_picture(1030, 11, 1, space, 3));
        expect_reference({many.get()}, noise_picture(1499, 5, 3, space, 4)); // tiles of 2, a last run of 500
    }
}

TEST_F(TileTRCApplyTest, TallPictures) {
    const TileTRCPtr grid = noise_grid(256, 2, 8, 1);
    expect_reference({grid.get()}, noise_picture(9, 1003, 0, rgb, 1));
    expect_reference({grid.get()}, noise_picture(9, 1003, 0, gray, 1));
}

TEST_F(TileTRCApplyTest, PhotographOnAnEightByEightGrid) {
    Noise noise(4);
    const TileTRCPtr grid = make_grid(256, 8, 8, [&](uint64_t i) {
        return static_cast<uint32_t>(std::min<uint64_t>(255, i % 256 * (8 + noise.next() % 4) / 8));
    });
    Picture picture(211, 163, 0, rgb);
    picture.blocks[0] = photograph(211, 163, 3, 7);
    expect_reference({grid.get()}, picture);
    picture.space = 1; // any space but GRAY has three channels
    expect_reference({grid.get()}, picture);
}

TEST_F(TileTRCApplyTest, EntriesOfAllThirtyTwoBits) {
    Noise noise(8);
    const TileTRCPtr grid = make_grid(256, 2, 3, [&](uint64_t) { return noise.next(); });
    const TileTRCPtr large = make_grid(1024, 2, 3, [&](uint64_t) { return noise.next(); });
    for (const TileTRC *tile_trc : {grid.get(), large.get()}) {
        expect_reference({tile_trc}, noise_picture(31, 22, 0, rgb, 3));
        expect_reference({tile_trc}, noise_picture(31, 22, 0, gray, 3));
    }
}

TEST_F(TileTRCApplyTest, EveryWayOfCuttingIntoChunks) {
    constexpr uint64_t height = 9;
    const TileTRCPtr grid = noise_grid(256, 2, 3, 6);
    Picture input = noise_picture(11, height, 1, rgb, 2);
    const Picture expected = Reference(input, {grid.get()}).run();
    for (uint32_t cuts = 0; cuts < 1u << (height - 1); ++cuts) {
        std::vector<uint64_t> chunks{1};
        for (uint64_t row = 1; row < height; ++row) {
            if ((cuts >> (row - 1) & 1u) != 0) {
                chunks.push_back(0);
            }
            ++chunks.back();
        }
        Picture output(11, height, 1, rgb);
        apply_chunks({grid.get()}, chunks, input, output);
        expect_same(expected, output, "chunks");
    }
}

TEST_F(TileTRCApplyTest, ChunkOfOneBlockEqualsTheFormOfThreePointers) {
    const TileTRCPtr grid = noise_grid(256, 2, 2, 6);
    for (int32_t layout = 0; layout < 3; ++layout) {
        Picture input = noise_picture(20, 10, layout, rgb, 2);
        Picture output(20, 10, layout, rgb);
        const TileTRCApplyPtr apply = make_apply(input, {grid.get()});
        EXPECT_EQ(KoTileTRCApplyToByteChunk(apply.get(), 4, input.chunk(0, 0), output.chunk(0, 0)), KO_OK);
        EXPECT_EQ(KoTileTRCApplyToByteChunk(apply.get(), 6, input.chunk(0, 4), output.chunk(0, 4)), KO_OK);
        expect_same(Reference(input, {grid.get()}).run(), output, "one block");
    }
}

TEST_F(TileTRCApplyTest, RowsBeyondThePictureAreIgnored) {
    const TileTRCPtr grid = noise_grid(256, 2, 2, 6);
    const TileTRC *grids[] = {grid.get(), nullptr};
    for (const TileTRC *tile_trc : grids) {
        for (const int32_t space : {rgb, gray}) {
            Picture input = noise_picture(8, 6, 0, space, 2);
            const Picture expected = Reference(input, {tile_trc}).run();
            Picture output(8, 6, 0, space);
            const TileTRCApplyPtr apply = make_apply(input, {tile_trc});
            EXPECT_EQ(apply_rows(apply.get(), 4, 0, input, output), KO_OK);
            EXPECT_EQ(apply_rows(apply.get(), 1000000, 4, input, output), KO_OK);
            expect_same(expected, output, "too many rows");
            EXPECT_EQ(apply->rowsDone, 6u);
            EXPECT_EQ(apply_rows(apply.get(), 3, 0, input, output), KO_OK);
            expect_same(expected, output, "a finished picture");
            EXPECT_EQ(KoErrorGetLastError(), KO_OK);
        }
    }
}

TEST_F(TileTRCApplyTest, WeightTableFollowsTheRunningSums) {
    const std::array<uint64_t, 4> cases[] = {{20, 14, 2, 2},  {26, 9, 2, 3},  {1003, 40, 4, 2}, {64, 64, 8, 8},
                                             {999, 31, 3, 3}, {5, 12, 1, 2},  {12, 5, 2, 1},    {1, 8, 1, 2},
                                             {9, 1, 3, 1},    {700, 6, 1, 3}, {4, 4, 2, 2}};
    for (const auto &[width, height, strips_x, strips_y] : cases) {
        SCOPED_TRACE(testing::Message() << width << " by " << height << ", " << strips_x << " by " << strips_y);
        const TileTRCPtr grid = noise_grid(256, strips_x, strips_y, 1);
        const Tones tones{grid.get()};
        const Picture picture(width, height, 0, gray);
        const TileTRCApplyPtr apply = make_apply(picture, tones);
        ASSERT_NE(apply, nullptr);
        EXPECT_EQ(apply->groupsPerTile, (apply->tileWidth + 3) >> 2);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(apply->weightTable) % 16, 0u);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(apply->rowScratch) % 16, 0u);
        const Reference reference(picture, tones);
        std::vector<float> expected(apply->tileHeight * apply->groupsPerTile * 16, 0.0f);
        for (uint64_t j = 0; j < apply->tileHeight; ++j) {
            for (uint64_t i = 0; i < apply->tileWidth; ++i) {
                const std::array<float, 4> weights = reference.weights(i, j);
                for (uint64_t plane = 0; plane < 4; ++plane) {
                    expected[(j * apply->groupsPerTile + i / 4) * 16 + plane * 4 + i % 4] = weights[plane];
                }
            }
        }
        EXPECT_TRUE(same_floats(expected, {apply->weightTable, apply->weightTable + expected.size()}));
    }
}

TEST_F(TileTRCApplyTest, AnInterpolatingRunGoesFromTheLeftCurveToTheRightOne) {
    const TileTRCPtr grid =
        make_grid(256, 2, 1, [](uint64_t i) { return i < 256 ? 40u : 240u; }); // constants: left 40, right 240
    Picture input = noise_picture(40, 3, 0, gray, 1);
    Picture output = applied({grid.get()}, input);
    EXPECT_EQ(+*output.at(0, 9, 1), 40);  // the first run
    EXPECT_EQ(+*output.at(0, 10, 1), 40); // first pixel of the interpolating run
    EXPECT_EQ(+*output.at(0, 11, 1), 51); // 200 / 19 a pixel
    EXPECT_EQ(+*output.at(0, 28, 1), 229);
    EXPECT_EQ(+*output.at(0, 29, 1), 240); // its last pixel
    EXPECT_EQ(+*output.at(0, 30, 1), 240); // the last run
}

TEST_F(TileTRCApplyTest, InitFillsTheRecord) {
    const TileTRCPtr grid = noise_grid(1024, 4, 4, 1);
    const ColorTRCPtr curves = noise_curves(512, 2);
    TileTRCApply apply;
    ASSERT_EQ(KoTileTRCApplyInit(&apply, grid.get(), 0.25f, curves.get(), 1003, 1003, KO_BYTE_LAYOUT_PLANAR, rgb), KO_OK);
    EXPECT_EQ(apply.tileTRC, grid.get());
    EXPECT_EQ(apply.redCurve, curves->curves[0]->array);
    EXPECT_EQ(apply.greenCurve, curves->curves[1]->array);
    EXPECT_EQ(apply.blueCurve, curves->curves[2]->array);
    EXPECT_EQ(apply.ratioWeight, 0.25f);
    EXPECT_EQ(apply.additiveWeight, 0.75f);
    EXPECT_EQ(apply.width, 1003u);
    EXPECT_EQ(apply.height, 1003u);
    EXPECT_EQ(apply.layout, 2u);
    EXPECT_EQ(apply.color_space, 0u);
    EXPECT_EQ(apply.tileWidth, 250u);
    EXPECT_EQ(apply.tileHeight, 250u);
    EXPECT_EQ(apply.tilePixels, 62500u);
    EXPECT_EQ(apply.tileStep, 4u);
    EXPECT_EQ(apply.colorStep, 2u);
    EXPECT_EQ(apply.groupsPerTile, 63u);
    EXPECT_EQ(apply.firstRun, 125u); // the remainder goes wholly to the last run in a row,
    EXPECT_EQ(apply.lastRun, 128u);
    EXPECT_EQ(apply.bandEnd, 126u); // but half of it to the first band
    EXPECT_EQ(apply.rowsDone, 0u);
    EXPECT_EQ(apply.bandRow, 0u);
    EXPECT_EQ(apply.band, 0u);
    EXPECT_EQ(apply.debugFlags, 0u);
    EXPECT_NE(apply.rowScratch, nullptr);
    EXPECT_NE(apply.weightTable, nullptr);
    EXPECT_EQ(KoTileTRCApplyFree(&apply), KO_OK);
}

TEST_F(TileTRCApplyTest, InitWithoutInterpolationMakesNoScratch) {
    const TileTRCPtr single = noise_grid(1024, 1, 1, 1);
    const TileTRCPtr none = noise_grid(256, 0, 0, 1);
    const TileTRCPtr no_columns = noise_grid(256, 0, 1, 1);
    const TileTRCPtr no_rows = noise_grid(256, 1, 0, 1);
    const TileTRC *grids[] = {nullptr, none.get(), no_columns.get(), no_rows.get(), single.get()};
    for (const TileTRC *grid : grids) {
        TileTRCApply apply;
        ASSERT_EQ(KoTileTRCApplyInit(&apply, grid, 0.5f, nullptr, 17, 9, KO_BYTE_LAYOUT_INTERLEAVED, rgb), KO_OK);
        EXPECT_EQ(apply.tileTRC, grid == single.get() ? grid : nullptr);
        EXPECT_EQ(apply.redCurve, nullptr);
        EXPECT_EQ(apply.greenCurve, nullptr);
        EXPECT_EQ(apply.blueCurve, nullptr);
        EXPECT_EQ(apply.colorStep, 1u);
        EXPECT_EQ(apply.tileWidth, 17u);
        EXPECT_EQ(apply.firstRun, 17u);
        EXPECT_EQ(apply.lastRun, 0u);
        EXPECT_EQ(apply.tileHeight, 9u);
        EXPECT_EQ(apply.bandEnd, 9u);
        EXPECT_EQ(apply.rowScratchBlock, nullptr);
        EXPECT_EQ(apply.rowScratch, nullptr);
        EXPECT_EQ(apply.weightTableBlock, nullptr);
        EXPECT_EQ(apply.weightTable, nullptr);
        EXPECT_EQ(KoTileTRCApplyFree(&apply), KO_OK);
    }
}

// Rows that each band takes, found by handing in single rows.
std::vector<int> rows_by_band(uint64_t height, uint64_t strips) {
    const TileTRCPtr grid = noise_grid(256, 1, strips, 1);
    Picture input = noise_picture(2, height, 0, gray, 1);
    Picture output = input;
    const TileTRCApplyPtr apply = make_apply(input, {grid.get()});
    std::vector<int> rows(strips + 1);
    for (uint64_t y = 0; y < height; ++y) {
        EXPECT_EQ(apply->rowsDone, y);
        ++rows.at(apply->band);
        EXPECT_EQ(apply_rows(apply.get(), 1, y, input, output), KO_OK);
    }
    return rows;
}

TEST_F(TileTRCApplyTest, BandsDivideTheHeight) {
    EXPECT_EQ(rows_by_band(1000, 4), (std::vector<int>{125, 250, 250, 250, 125}));
    EXPECT_EQ(rows_by_band(1003, 4), (std::vector<int>{126, 250, 250, 250, 127}));
    EXPECT_EQ(rows_by_band(7, 3), (std::vector<int>{1, 2, 2, 2}));
}

TEST_F(TileTRCApplyTest, PositionInABandSurvivesBetweenChunks) {
    const TileTRCPtr grid = noise_grid(256, 1, 2, 1);
    Picture input = noise_picture(3, 20, 0, gray, 1);
    Picture output = input;
    const TileTRCApplyPtr apply = make_apply(input, {grid.get()});
    apply_rows(apply.get(), 8, 0, input, output); // 5 rows of band 0, 3 of band 1
    EXPECT_EQ(apply->rowsDone, 8u);
    EXPECT_EQ(apply->band, 1u);
    EXPECT_EQ(apply->bandRow, 3u);
    EXPECT_EQ(apply->bandEnd, 15u);
    apply_rows(apply.get(), 7, 8, input, output);
    EXPECT_EQ(apply->band, 2u);
    EXPECT_EQ(apply->bandRow, 0u);
    EXPECT_EQ(apply->bandEnd, 20u);
}

TEST_F(TileTRCApplyTest, NoGridCopies) {
    const TileTRCPtr none = noise_grid(256, 0, 0, 1);
    const TileTRC *grids[] = {nullptr, none.get()};
    for (const TileTRC *grid : grids) {
        for (int32_t layout = 0; layout < 4; ++layout) {
            for (const int32_t space : {rgb, gray}) {
                const Picture input = noise_picture(19, 7, layout, space, 3);
                expect_same(input, applied({grid}, input), "copy");
                expect_reference({grid}, input);
            }
        }
    }
}

TEST_F(TileTRCApplyTest, CurvesAloneAreTruncatedToTheirLowByte) {
    const ColorTRCPtr halves = half_curves(); // cut off, not rounded
    const Picture input = noise_picture(19, 7, 0, rgb, 3);
    expect_same(input, applied({nullptr, halves.get()}, input), "halves");
    // Beyond a byte the low 8 bits stay, without a limit.
    const ColorTRCPtr high = make_curves(256, [](uint64_t, uint64_t i) { return static_cast<uint32_t>(i + 300); });
    Picture output = applied({nullptr, high.get()}, input);
    EXPECT_EQ(+*output.at(0, 4, 2), (*Picture(input).at(0, 4, 2) + 300) & 255);
    for (const uint64_t size : {256u, 300u, 512u, 1024u, 65536u}) {
        const ColorTRCPtr curves = noise_curves(size, 9);
        expect_reference_in_every_layout({nullptr, curves.get()}, 19, 7, rgb, 3);
    }
}

TEST_F(TileTRCApplyTest, ASingleCurveLeavesAGrayPictureAlone) {
    const TileTRCPtr grid = noise_grid(256, 1, 1, 1);
    const Picture input = noise_picture(19, 7, 0, gray, 3);
    expect_same(input, applied({grid.get()}, input), "copy");
}

TEST_F(TileTRCApplyTest, ASingleCurveScalesAColorPicture) {
    for (const uint64_t size : {256u, 300u, 512u, 65536u}) {
        const TileTRCPtr grid = noise_grid(size, 1, 1, static_cast<uint32_t>(size));
        for (const float ratio : {0.0f, 0.5f, 1.0f}) {
            expect_reference_in_every_layout({grid.get(), nullptr, ratio}, 19, 17, rgb, 3);
        }
        const ColorTRCPtr curves = noise_curves(1024, 9);
        expect_reference({grid.get(), curves.get()}, noise_picture(19, 17, 0, rgb, 3));
    }
}

TEST_F(TileTRCApplyTest, ASingleCurveIsReadWithoutItsStep) {
    // Curve of 512: entry at the level itself, not at twice the level, and not scaled back; the limit of 255 holds above.
    const TileTRCPtr grid = make_grid(512, 1, 1, [](uint64_t i) { return i == 100 ? 150u : i == 200 ? 400u : 7u; });
    Picture input(3, 1, 0, rgb);
    input.blocks[0] = {101, 101, 98, 201, 201, 198, 0, 0, 0}; // levels 100, 200 and 0; a level of 0 divides as 1
    const std::vector<uint8_t> expected{152, 152, 147, 255, 255, 255, 0, 0, 0}; // 150 * 101 / 100 + 0.5 is 152
    EXPECT_EQ(applied({grid.get()}, input).blocks[0], expected);
}

TEST_F(TileTRCApplyTest, AnUnchangedLevelKeepsTheFractionOutWithoutRounding) {
    // Identity, one curve: L' equals L, so the channels of the ColorTRC (x.5) are truncated, not rounded.
    const TileTRCPtr grid = identity_grid(256, 1, 1);
    const ColorTRCPtr halves = half_curves();
    const Picture input = noise_picture(19, 7, 0, rgb, 3);
    expect_same(input, applied({grid.get(), halves.get()}, input), "halves");
}

TEST_F(TileTRCApplyTest, GrayPicturesIgnoreTheColorCurves) {
    const TileTRCPtr grid = noise_grid(256, 3, 2, 1);
    const ColorTRCPtr curves = noise_curves(256, 9);
    const Picture input = noise_picture(19, 17, 0, gray, 3);
    expect_same(applied({grid.get()}, input), applied({grid.get(), curves.get()}, input), "gray");
    expect_same(input, applied({nullptr, curves.get()}, input), "gray without a grid");
}

TEST_F(TileTRCApplyTest, IdentityCurvesLoseTheFractionOfTheLuminance) {
    const TileTRCPtr grid = identity_grid(256, 2, 2);
    Picture input(4, 4, 0, rgb);
    const uint8_t colors[4][3] = {{0, 0, 0}, {10, 20, 30}, {0, 0, 255}, {200, 100, 50}};
    for (uint64_t i = 0; i < 16; ++i) {
        std::copy_n(colors[i % 4], 3, input.at(0, i % 4, i / 4));
    }
    const Picture output = applied({grid.get(), nullptr, 1.0f}, input);
    expect_same(Reference(input, {grid.get(), nullptr, 1.0f}).run(), output, "reference");
    const std::vector<uint8_t> row{0, 0, 0, 10, 20, 30, 0, 0, 254, 200, 100, 50}; // 29.07 becomes 29, and 255 becomes 254.4
    EXPECT_EQ(std::vector<uint8_t>(output.blocks[0].begin(), output.blocks[0].begin() + 12), row);
}

TEST_F(TileTRCApplyTest, RatioWeightMixesAShiftAndAScale) {
    const TileTRCPtr grid = make_grid(256, 2, 2, [](uint64_t i) { return static_cast<uint32_t>(i % 256 * 2); });
    Picture input(4, 4, 0, rgb);
    for (uint64_t i = 0; i < 16; ++i) {
        const uint8_t color[] = {41, 80, 20}; // luminance 61.499, new level 122
        std::copy_n(color, 3, input.at(0, i % 4, i / 4));
    }
    const auto first = [&](float ratio) {
        Picture output = applied({grid.get(), nullptr, ratio}, input);
        return std::vector<int>{*output.at(0, 0, 0), *output.at(1, 0, 0), *output.at(2, 0, 0)};
    };
    EXPECT_EQ(first(0.0f), (std::vector<int>{102, 141, 81}));
    EXPECT_EQ(first(1.0f), (std::vector<int>{81, 159, 40}));
    EXPECT_EQ(first(0.5f), (std::vector<int>{91, 150, 60}));
}

TEST_F(TileTRCApplyTest, LuminancePastTheCurveTakesItsLastEntry) {
    for (const uint64_t size : {256u, 300u, 512u, 65536u}) {
        const TileTRCPtr grid = noise_grid(size, 2, 2, 1);
        const TileTRCPtr single = noise_grid(size, 1, 1, 1);
        Noise noise(3);
        const ColorTRCPtr curves = make_curves(256, [&](uint64_t, uint64_t) { return noise.next() % 70000; });
        for (const float ratio : {0.0f, 1.0f}) {
            expect_reference({grid.get(), curves.get(), ratio}, noise_picture(21, 13, 0, rgb, 1));
            expect_reference({single.get(), curves.get(), ratio}, noise_picture(21, 13, 0, rgb, 1));
        }
    }
}

TEST_F(TileTRCApplyTest, EnormousColorCurvesStayInsideTheCurves) {
    const TileTRCPtr grid = noise_grid(512, 2, 2, 1);
    const TileTRCPtr single = noise_grid(512, 1, 1, 1);
    const ColorTRCPtr curves = make_curves(256, [](uint64_t, uint64_t i) { return 0xffffffffu - static_cast<uint32_t>(i); });
    const TileTRC *grids[] = {grid.get(), single.get(), nullptr};
    for (const TileTRC *tile_trc : grids) {
        expect_reference({tile_trc, curves.get()}, noise_picture(21, 13, 0, rgb, 1));
    }
}

// What Init refuses, with its report; New makes it the failure of the object.
void expect_refused(const TileTRC *grid, const ColorTRC *curves, uint64_t width, uint64_t height, int32_t layout,
                    int32_t space) {
    TileTRCApply apply;
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                 [&] { return KoTileTRCApplyInit(&apply, grid, 0.5f, curves, width, height, layout, space); });
    const PrintCapture printed("error");
    EXPECT_EQ(TileTRCApplyPtr(KoTileTRCApplyNew(grid, 0.5f, curves, width, height, layout, space)), nullptr);
    expect_status(KO_ERR_CREATE_OBJECT, "Cannot create object \"TileTRCApplyNew\"\n-> [ERROR] Invalid argument");
    EXPECT_EQ(printed.texts(), std::vector<std::string>{"[ERROR] Invalid argument"});
}

// The same for a grid of so many entries a curve and strips.
void expect_grid_refused(uint64_t size, uint64_t strips_x, uint64_t strips_y, uint64_t width, uint64_t height, int32_t space) {
    SCOPED_TRACE(testing::Message() << strips_x << " by " << strips_y << " curves of " << size << ", " << width << " by "
                                    << height << ", space " << space);
    expect_refused(noise_grid(size, strips_x, strips_y, 1).get(), nullptr, width, height, KO_BYTE_LAYOUT_INTERLEAVED, space);
}

TEST_F(TileTRCApplyTest, MoreStripsThanPixelsAreRefused) {
    expect_grid_refused(256, 9, 1, 8, 20, rgb);
    expect_grid_refused(256, 1, 21, 8, 20, gray);
    expect_grid_refused(256, 2, 2, 1, 1, rgb);
}

TEST_F(TileTRCApplyTest, TilesOfOnePixelBesideAnotherAreRefused) {
    expect_grid_refused(256, 8, 1, 15, 20, rgb);
    expect_grid_refused(256, 2, 15, 15, 20, gray);
    const TileTRCPtr beside_nothing = noise_grid(256, 1, 2, 1); // one strip of one pixel is in order
    expect_reference({beside_nothing.get()}, noise_picture(1, 20, 0, rgb, 1));
    const TileTRCPtr above_nothing = noise_grid(256, 2, 1, 1);
    expect_reference({above_nothing.get()}, noise_picture(20, 1, 0, rgb, 1));
}

TEST_F(TileTRCApplyTest, StripsInOneDirectionOnlyAreRefused) {
    expect_grid_refused(256, 0, 2, 15, 20, rgb);
    expect_grid_refused(256, 3, 0, 15, 20, gray);
}

TEST_F(TileTRCApplyTest, CurvesOfFewerThan256EntriesAreRefused) {
    const TileTRCPtr grid = noise_grid(256, 2, 2, 1);
    expect_grid_refused(255, 2, 2, 15, 20, rgb);
    expect_grid_refused(255, 2, 2, 15, 20, gray);
    expect_grid_refused(128, 1, 1, 15, 20, rgb);
    expect_refused(grid.get(), noise_curves(255, 1).get(), 15, 20, 0, rgb);
    expect_refused(nullptr, noise_curves(64, 1).get(), 15, 20, 0, rgb);
}

TEST_F(TileTRCApplyTest, CurvesThatAreMissingAreRefused) {
    const TileTRCPtr grid = noise_grid(256, 2, 2, 1);
    const ColorTRCPtr two(KoColorTRCNew(256, 2));
    KoColorTRCSetIdentity(two.get());
    expect_refused(grid.get(), two.get(), 15, 20, 0, rgb);
    const ColorTRCPtr none(KoColorTRCNew(256, 0));
    expect_refused(grid.get(), none.get(), 15, 20, 0, rgb);
    const ColorTRCPtr empty = noise_curves(256, 1);
    KoTRCFree(empty->curves[1]);
    expect_refused(grid.get(), empty.get(), 15, 20, 0, rgb);
    const ColorTRCPtr hole = noise_curves(256, 1);
    KoTRCDelete(std::exchange(hole->curves[2], nullptr));
    expect_refused(nullptr, hole.get(), 15, 20, 0, rgb);
    KoTileTRCFree(grid.get());
    expect_refused(grid.get(), nullptr, 15, 20, 0, rgb);
}

TEST_F(TileTRCApplyTest, ALayoutThatDoesNotExistIsRefused) {
    expect_refused(noise_grid(256, 2, 2, 1).get(), nullptr, 15, 20, 4, rgb);
}

TEST_F(TileTRCApplyTest, FreeAndDeleteAcceptNull) {
    EXPECT_EQ(KoTileTRCApplyFree(nullptr), KO_OK);
    EXPECT_EQ(KoTileTRCApplyDelete(nullptr), KO_OK);
}

TEST_F(TileTRCApplyTest, MatrixSlidesToTheRight) {
    const uint32_t curves[4] = {};
    const uint32_t *matrix[4] = {curves, curves, curves, curves};
    KoTRCMatrixInit(matrix, curves, curves + 1);
    EXPECT_EQ(matrix[0], nullptr);
    EXPECT_EQ(matrix[1], curves);
    EXPECT_EQ(matrix[2], nullptr);
    EXPECT_EQ(matrix[3], curves + 1);
    KoTRCMatrixMoveRight(matrix, curves + 2, nullptr);
    EXPECT_EQ(matrix[0], curves);
    EXPECT_EQ(matrix[1], curves + 2);
    EXPECT_EQ(matrix[2], curves + 1);
    EXPECT_EQ(matrix[3], nullptr);
}

TEST_F(TileTRCApplyTest, SeveralRecordsShareAGrid) {
    const TileTRCPtr grid = noise_grid(256, 4, 4, 1);
    const ColorTRCPtr curves = noise_curves(256, 2);
    const Tones tones{grid.get(), curves.get()};
    const Picture input = noise_picture(64, 48, 0, rgb, 3);
    const Picture expected = Reference(input, tones).run();
    std::vector<Picture> outputs(4, input);
    std::vector<std::thread> threads;
    for (Picture &output : outputs) {
        threads.emplace_back([&] { apply_chunks(tones, {5, 20, 23}, output, output); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (const Picture &output : outputs) {
        expect_same(expected, output, "shared");
    }
}

} // namespace
