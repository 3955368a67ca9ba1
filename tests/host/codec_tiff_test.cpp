// TIFF files through the codec: every kind of storage, what is carried, and hostile ones.
#include <algorithm>

#include <gtest/gtest.h>

#include "capture.h"
#include "codec_files.h"
#include "tiff_files.h"

namespace {

using namespace ko_test;
using codec::Density;
using codec::Format;
using codec::Notices;
using codec::Picture;

// A sample cut to the bits of a recipe.
Sample of_depth(int bits) {
    return [bits](uint32_t x, uint32_t y, uint32_t c) { return bits == 16 ? mixed_16(x, y, c) : mixed(x, y, c) >> (8 - bits); };
}

// What it becomes.
uint32_t as_byte(uint32_t level, int bits) { return bits == 16 ? reduced(level) : level * 255 / ((1u << bits) - 1); }

struct Storage {
    const char *name;
    bool apart;
    uint32_t tile;
    uint32_t strip;
};

constexpr Storage storages[] = {{"strips", false, 0, 7},          {"one_strip", false, 0, 19},  {"rows", false, 0, 1},
                                {"tiles", false, 16, 0},          {"large_tile", false, 32, 0}, {"strips_apart", true, 0, 7},
                                {"one_strip_apart", true, 0, 19}, {"tiles_apart", true, 16, 0}};

TiffRecipe stored(TiffRecipe recipe, const Storage &storage) {
    recipe.apart = storage.apart;
    recipe.tile = storage.tile;
    recipe.strip = storage.strip;
    return recipe;
}

class TiffStorage : public testing::TestWithParam<Storage> {};

TEST_P(TiffStorage, IsReadAtEveryDepth) {
    for (const int kind : {PHOTOMETRIC_MINISBLACK, PHOTOMETRIC_MINISWHITE, PHOTOMETRIC_RGB}) {
        for (const int bits : {1, 2, 4, 8, 16}) {
            const int channels = kind == PHOTOMETRIC_RGB ? 3 : 1;
            const TiffRecipe recipe = stored({.bits = bits, .kind = kind, .channels = channels}, GetParam());
            const Sample sample = of_depth(bits);
            Notices notices;
            const Picture picture = codec::decode(bytes_of(tiff_file(recipe, sample)), notices);
            ASSERT_EQ(picture.format, Format::tiff);
            ASSERT_EQ(picture.channels, static_cast<uint32_t>(channels));
            EXPECT_EQ(picture.alpha, nullptr);
            EXPECT_EQ(pixels_of(picture), samples(21, 19, 0, static_cast<uint32_t>(channels) - 1,
                                                  [&](uint32_t x, uint32_t y, uint32_t c) {
                                                      const uint32_t level = as_byte(sample(x, y, c), bits);
                                                      return kind == PHOTOMETRIC_MINISWHITE ? 255 - level : level;
                                                  }))
                << bits << " bits of kind " << kind;
            EXPECT_EQ(notices, bits == 16 ? Notices{"16 bits per channel reduced to 8"} : Notices{});
        }
    }
}

TEST_P(TiffStorage, KeepsAlphaApart) {
    for (const uint32_t colours : {1u, 3u}) {
        TiffRecipe recipe = stored({.bits = 16, .extra = {EXTRASAMPLE_UNASSALPHA}}, GetParam());
        recipe.kind = colours == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB;
        recipe.channels = static_cast<int>(colours) + 1;
        const Picture picture = decoded(tiff_file(recipe, mixed_16));
        const Sample expected = [](uint32_t x, uint32_t y, uint32_t c) { return reduced(mixed_16(x, y, c)); };
        EXPECT_EQ(pixels_of(picture), samples(21, 19, 0, colours - 1, expected));
        EXPECT_EQ(alpha_of(picture), samples(21, 19, colours, colours, expected));
    }
}

TEST_P(TiffStorage, IsReadInEveryOrderOfBytes) {
    for (const char *mode : {"wl", "wb", "wl8", "wb8"}) {
        for (const int bits : {8, 16}) {
            TiffRecipe recipe = stored({.bits = bits}, GetParam());
            recipe.mode = mode;
            const std::string file = tiff_file(recipe, of_depth(bits));
            EXPECT_EQ(codec::recognise(bytes_of(file)), Format::tiff) << mode;
            EXPECT_EQ(pixels_of(decoded(file)),
                      samples(21, 19, 0, 2,
                              [&](uint32_t x, uint32_t y, uint32_t c) { return as_byte(of_depth(bits)(x, y, c), bits); }))
                << mode;
        }
    }
}

TEST_P(TiffStorage, GivesThePixelsOfEveryPacking) {
    for (const int compression : {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_PACKBITS, COMPRESSION_DEFLATE,
                                  COMPRESSION_ADOBE_DEFLATE, COMPRESSION_LZMA, COMPRESSION_ZSTD, COMPRESSION_LERC}) {
        TiffRecipe recipe = stored({.compression = compression}, GetParam());
        EXPECT_EQ(pixels_of(decoded(tiff_file(recipe, mixed))), samples(21, 19, 0, 2, mixed)) << compression;
        if (compression != COMPRESSION_NONE && compression != COMPRESSION_PACKBITS && compression != COMPRESSION_LERC) {
            recipe.predictor = 2;
            EXPECT_EQ(pixels_of(decoded(tiff_file(recipe, mixed))), samples(21, 19, 0, 2, mixed)) << compression;
        }
    }
}

TEST_P(TiffStorage, IsReadWithFaxPackings) {
    const Sample sample = [](uint32_t x, uint32_t y, uint32_t) { return (x / 5 + y / 3) & 1; };
    for (const int compression : {COMPRESSION_CCITTRLE, COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4}) {
        const TiffRecipe recipe =
            stored({.bits = 1, .kind = PHOTOMETRIC_MINISWHITE, .channels = 1, .compression = compression}, GetParam());
        EXPECT_EQ(pixels_of(decoded(tiff_file(recipe, sample))),
                  samples(21, 19, 0, 0, [&](uint32_t x, uint32_t y, uint32_t c) { return sample(x, y, c) == 1 ? 0u : 255u; }))
            << compression;
    }
}

INSTANTIATE_TEST_SUITE_P(Codec, TiffStorage, testing::ValuesIn(storages),
                         [](const auto &test) { return std::string(test.param.name); });

// A smooth picture in parts that JPEG takes: sides are multiples of its blocks.
TiffRecipe jpeg_packed(int kind, uint32_t tile) {
    return {.width = 48,
            .height = 40,
            .kind = kind,
            .channels = kind == PHOTOMETRIC_MINISBLACK ? 1 : 3,
            .compression = COMPRESSION_JPEG,
            .tile = tile,
            .strip = 16};
}

TEST(TiffReader, ReadsJpegPacking) {
    const Sample smooth = [](uint32_t x, uint32_t y, uint32_t c) { return 40 + x * 2 + y + c * 10; };
    for (const int kind : {PHOTOMETRIC_MINISBLACK, PHOTOMETRIC_RGB, PHOTOMETRIC_YCBCR}) {
        for (const uint32_t tile : {0, 16}) {
            const Picture picture = decoded(tiff_file(jpeg_packed(kind, tile), smooth));
            const uint32_t last = kind == PHOTOMETRIC_MINISBLACK ? 0 : 2;
            EXPECT_LE(farthest(pixels_of(picture), samples(48, 40, 0, last, smooth)), 12) << kind << ", tiles of " << tile;
        }
    }
}

// Luminance with the greatest and the least of one colour.
TEST(TiffReader, ConvertsLuminanceAndColours) {
    const uint32_t ycc[4][3] = {{76, 85, 255}, {150, 44, 21}, {29, 255, 107}, {128, 128, 128}};
    const std::vector<uint8_t> expected = {254, 0, 0, 0, 255, 1, 0, 0, 254, 128, 128, 128};
    TiffRecipe recipe{.width = 4, .height = 16, .kind = PHOTOMETRIC_YCBCR};
    for (const Storage &storage : storages) {
        if (storage.apart || storage.tile == 16) { // libtiff 4.5.0 does not convert so small tiles
            continue;
        }
        recipe.tile = storage.tile;
        recipe.strip = storage.strip == 0 ? 0 : 4;
        const Picture picture = decoded(tiff_file(recipe, [&](uint32_t x, uint32_t, uint32_t c) { return ycc[x][c]; }));
        ASSERT_EQ(picture.channels, 3u);
        const std::vector<uint8_t> pixels = pixels_of(picture);
        for (size_t y = 0; y < 16; ++y) {
            EXPECT_LE(farthest({pixels.begin() + y * 12, pixels.begin() + y * 12 + 12}, expected), 2)
                << storage.name << " " << y;
        }
    }
}

std::vector<uint16_t> colours(uint32_t count, uint32_t factor) {
    std::vector<uint16_t> levels;
    for (uint32_t i = 0; i < count * 3; ++i) {
        levels.push_back(static_cast<uint16_t>(i * 85 % 256 * factor));
    }
    return levels;
}

TEST(TiffReader, ExpandsPalettes) {
    for (const Storage &storage : storages) {
        for (const int bits : {1, 2, 4, 8}) {
            for (const uint32_t factor : {257u, 1u}) { // 1: levels of 8 bits, as some programs write them
                TiffRecipe recipe = stored({.bits = bits, .kind = PHOTOMETRIC_PALETTE, .channels = 1}, storage);
                recipe.colours = colours(1u << bits, factor);
                const Picture picture = decoded(tiff_file(recipe, of_depth(bits)));
                ASSERT_EQ(picture.channels, 3u);
                EXPECT_EQ(pixels_of(picture), samples(21, 19, 0, 2,
                                                      [&](uint32_t x, uint32_t y, uint32_t c) {
                                                          return (of_depth(bits)(x, y, 0) * 3 + c) * 85 % 256;
                                                      }))
                    << bits << " bits in " << storage.name;
            }
        }
    }
}

TEST(TiffReader, DividesColoursByAlpha) {
    const Sample sample = [](uint32_t x, uint32_t, uint32_t c) { return c == 3 ? x * 51 : c == 0 ? x * 51 : c * x * 10; };
    const std::string file = tiff_file({.width = 6, .height = 1, .channels = 4, .extra = {EXTRASAMPLE_ASSOCALPHA}}, sample);
    const Picture picture = decoded(file);
    EXPECT_EQ(pixels_of(picture),
              (std::vector<uint8_t>{0, 0, 0, 255, 50, 100, 255, 50, 100, 255, 50, 100, 255, 50, 100, 255, 50, 100}));
    EXPECT_EQ(alpha_of(picture), (std::vector<uint8_t>{0, 51, 102, 153, 204, 255}));
    EXPECT_EQ(notices_of(file), Notices{"colours that were multiplied by alpha are divided by it"});
    const std::string too_bright = tiff_file({.width = 1, .height = 1, .channels = 4, .extra = {EXTRASAMPLE_ASSOCALPHA}},
                                             [](uint32_t, uint32_t, uint32_t c) { return c == 3 ? 100u : 101u; });
    EXPECT_EQ(pixels_of(decoded(too_bright)), (std::vector<uint8_t>{255, 255, 255}));
}

TEST(TiffReader, LeavesOutOtherChannels) {
    const Notices left_out = {"channels beside the picture's colours are left out"};
    for (const bool apart : {false, true}) {
        TiffRecipe recipe{.channels = 5, .extra = {EXTRASAMPLE_UNSPECIFIED, EXTRASAMPLE_UNASSALPHA}, .apart = apart};
        const std::string file = tiff_file(recipe, mixed);
        EXPECT_EQ(pixels_of(decoded(file)), samples(21, 19, 0, 2, mixed));
        EXPECT_EQ(alpha_of(decoded(file)), samples(21, 19, 4, 4, mixed));
        EXPECT_EQ(notices_of(file), left_out);
        recipe.channels = 4;
        recipe.extra = {EXTRASAMPLE_UNSPECIFIED};
        EXPECT_EQ(decoded(tiff_file(recipe, mixed)).alpha, nullptr);
        EXPECT_EQ(notices_of(tiff_file(recipe, mixed)), left_out);
    }
}

TEST(TiffReader, GivesTheRowsInPortions) {
    for (const Storage &storage : storages) {
        const std::string file = tiff_file(stored({.channels = 4, .extra = {EXTRASAMPLE_UNASSALPHA}}, storage), mixed);
        codec::MemoryInput input(bytes_of(file));
        const auto reader = codec::open(input);
        std::vector<uint8_t> pixels(21 * 19 * 3);
        std::vector<uint8_t> alpha(21 * 19);
        for (uint32_t row = 0; row < 19;) {
            const uint32_t rows = std::min(row % 3 + 1, 19 - row);
            reader->read(rows, pixels.data() + row * 63, row % 2 == 0 ? alpha.data() + row * 21 : nullptr);
            if (row % 2 != 0) {
                const std::vector<uint8_t> plane = samples(21, 19, 3, 3, mixed);
                std::copy_n(plane.begin() + row * 21, rows * 21, alpha.begin() + row * 21);
            }
            row += rows;
        }
        EXPECT_EQ(pixels, samples(21, 19, 0, 2, mixed)) << storage.name;
        EXPECT_EQ(alpha, samples(21, 19, 3, 3, mixed)) << storage.name;
    }
}

TEST(TiffReader, ReportsFurtherPictures) {
    const TiffRecipe page;
    TiffRecipe small = page;
    small.subfile = FILETYPE_REDUCEDIMAGE;
    for (const char *mode : {"wl", "wb", "wl8", "wb8"}) {
        TiffRecipe first = page;
        first.mode = mode;
        EXPECT_EQ(notices_of(tiff_pages({first, page}, mixed)), Notices{"1 further picture in the file is left out"});
        EXPECT_EQ(notices_of(tiff_pages({first, page, small, page}, mixed)),
                  Notices{"2 further pictures in the file are left out"});
        EXPECT_EQ(notices_of(tiff_pages({first, small}, mixed)), Notices{}) << "the same picture";
    }
}

// The offset of the next directory, which follows the entries of the first.
size_t next_directory(const std::string &file) {
    const auto number = [&file](size_t place, int bytes) {
        size_t value = 0;
        while (bytes-- > 0) {
            value = value << 8 | static_cast<uint8_t>(file[place + static_cast<size_t>(bytes)]);
        }
        return value;
    };
    const size_t directory = number(4, 4);
    return directory + 2 + 12 * number(directory, 2);
}

TEST(TiffReader, IsNotCaughtInARingOfPictures) {
    std::string file = tiff_file({}, mixed);
    file.replace(next_directory(file), 4, file.substr(4, 4));
    EXPECT_EQ(notices_of(file), Notices{});
    file.replace(next_directory(file), 4, "\xff\xff\xff\x7f");
    EXPECT_EQ(error_of(file), "no error") << "the first picture is whole";
}

TEST(TiffReader, NamesRawFiles) {
    EXPECT_EQ(error_of(tiff_file({.dng_version = "\1\4\0\0"}, mixed)), "a camera raw file, which cannot be read");
    EXPECT_EQ(error_of(tiff_file({.kind = PHOTOMETRIC_CFA, .channels = 1}, mixed)), "a camera raw file, which cannot be read");
    EXPECT_EQ(error_of(tiff_file({.subfile = FILETYPE_REDUCEDIMAGE}, mixed)), "no error") << "small, and all there is";
}

TEST(TiffReader, RefusesWhatItDoesNotKnow) {
    EXPECT_EQ(error_of(tiff_file({.bits = 32}, mixed)), "32 bits per channel");
    EXPECT_EQ(error_of(tiff_file({.bits = 12}, mixed)), "12 bits per channel");
    EXPECT_EQ(error_of(tiff_file({.bits = 16, .kind = PHOTOMETRIC_PALETTE, .channels = 1, .colours = {0}}, mixed)),
              "16 bits per channel");
    EXPECT_EQ(error_of(tiff_file({.bits = 16, .sample_form = SAMPLEFORMAT_INT}, mixed)),
              "the samples are not unsigned whole numbers");
    EXPECT_EQ(error_of(tiff_file({.bits = 32, .sample_form = SAMPLEFORMAT_IEEEFP}, mixed)),
              "the samples are not unsigned whole numbers");
    EXPECT_EQ(error_of(tiff_file({.kind = PHOTOMETRIC_LOGLUV}, mixed)), "neither gray nor RGB: colours of TIFF kind 32845");
    EXPECT_EQ(error_of(tiff_file({.kind = PHOTOMETRIC_CIELAB}, mixed)), "neither gray nor RGB: colours of TIFF kind 8");
    EXPECT_EQ(error_of(tiff_file({.width = 2, .height = 2, .channels = 40}, mixed)), "40 channels");
}

TEST(TiffWriter, WritesWhatWasRead) {
    for (const int colours : {1, 3}) {
        for (const bool alpha : {false, true}) {
            TiffRecipe recipe;
            recipe.kind = colours == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB;
            recipe.channels = colours + (alpha ? 1 : 0);
            recipe.extra = alpha ? std::vector<uint16_t>{EXTRASAMPLE_UNASSALPHA} : std::vector<uint16_t>{};
            recipe.strip = recipe.height;
            const std::string file = tiff_file(recipe, mixed);
            const std::string again = through(file, Format::tiff);
            EXPECT_EQ(tiff_pixels(again), tiff_pixels(file));
            EXPECT_EQ(pixels_of(decoded(again)), pixels_of(decoded(file)));
            EXPECT_EQ(alpha_of(decoded(again)), alpha_of(decoded(file)));
            EXPECT_EQ(tiff_number(again, TIFFTAG_PHOTOMETRIC), recipe.kind);
            EXPECT_EQ(notices_of(again), Notices{});
        }
    }
}

TEST(TiffWriter, PacksLikeTheInput) {
    const struct {
        int came;
        uint32_t written;
    } cases[] = {{COMPRESSION_NONE, COMPRESSION_NONE},
                 {COMPRESSION_LZW, COMPRESSION_LZW},
                 {COMPRESSION_PACKBITS, COMPRESSION_PACKBITS},
                 {COMPRESSION_DEFLATE, COMPRESSION_ADOBE_DEFLATE},
                 {COMPRESSION_ADOBE_DEFLATE, COMPRESSION_ADOBE_DEFLATE},
                 {COMPRESSION_ZSTD, COMPRESSION_ADOBE_DEFLATE}};
    for (const auto &[came, written] : cases) {
        const std::string again = through(tiff_file({.compression = came}, soft), Format::tiff);
        EXPECT_EQ(tiff_number(again, TIFFTAG_COMPRESSION), written) << came;
        EXPECT_EQ(pixels_of(decoded(again)), samples(21, 19, 0, 2, soft)) << came;
    }
    const std::string from_png = through(png_file({}, mixed), Format::tiff);
    EXPECT_EQ(tiff_number(from_png, TIFFTAG_COMPRESSION), COMPRESSION_ADOBE_DEFLATE);
    EXPECT_EQ(tiff_number(from_png, TIFFTAG_PREDICTOR), 2u);
}

// Strips of a reasonable size, the last one shorter.
TEST(TiffWriter, WritesManyStrips) {
    const Picture picture = picture_of(700, 401, 3, true, mixed);
    const std::string file = encoded(picture, Format::tiff);
    EXPECT_EQ(tiff_number(file, TIFFTAG_ROWSPERSTRIP), 93u);
    EXPECT_EQ(pixels_of(decoded(file)), pixels_of(picture));
    EXPECT_EQ(alpha_of(decoded(file)), alpha_of(picture));
    EXPECT_EQ(tiff_number(encoded(picture_of(300'000, 2, 1, false, mixed), Format::tiff), TIFFTAG_ROWSPERSTRIP), 1u);
}

TEST(TiffMetadata, KeepsProfiles) {
    const std::string profile = icc_profile("RGB ", 3000);
    const std::string again = through(tiff_file({.profile = profile}, mixed), Format::tiff);
    EXPECT_EQ(tiff_bytes(again, TIFFTAG_ICCPROFILE), profile);
    EXPECT_EQ(jpeg_icc_profile(through(again, Format::jpeg)), profile);
    EXPECT_EQ(text_of(decoded(through(again, Format::png)).metadata.icc_profile), profile);
}

TEST(TiffMetadata, KeepsEveryUnitOfDensity) {
    for (const int unit : {RESUNIT_NONE, RESUNIT_INCH, RESUNIT_CENTIMETER}) {
        const std::string file = tiff_file({.density_unit = unit, .density_x = 300, .density_y = 150}, mixed);
        const std::string again = through(file, Format::tiff);
        EXPECT_EQ(tiff_number(again, TIFFTAG_RESOLUTIONUNIT), unit);
        EXPECT_EQ(tiff_real(again, TIFFTAG_XRESOLUTION), 300.0);
        EXPECT_EQ(tiff_real(again, TIFFTAG_YRESOLUTION), 150.0);
    }
    EXPECT_EQ(tiff_real(through(tiff_file({}, mixed), Format::tiff), TIFFTAG_XRESOLUTION), 0.0) << "none";
}

TEST(TiffMetadata, KeepsFractionsOfDensities) {
    const Picture picture = decoded(tiff_file({.density_unit = RESUNIT_INCH, .density_x = 72.009f, .density_y = 72}, mixed));
    ASSERT_TRUE(picture.metadata.density.has_value());
    EXPECT_EQ(picture.metadata.density->unit, Density::Unit::metre);
    EXPECT_EQ(picture.metadata.density->x, 2835u);
    const std::string again = through(
        tiff_file({.density_unit = RESUNIT_CENTIMETER, .density_x = 118.11f, .density_y = 59.06f}, mixed), Format::tiff);
    EXPECT_EQ(tiff_number(again, TIFFTAG_RESOLUTIONUNIT), RESUNIT_CENTIMETER);
    EXPECT_NEAR(tiff_real(again, TIFFTAG_XRESOLUTION), 118.11, 0.001);
    EXPECT_NEAR(tiff_real(again, TIFFTAG_YRESOLUTION), 59.06, 0.001);
}

TEST(TiffMetadata, ADensityOfNothingIsNone) {
    for (const float density : {0.0f, 0.001f, 4e9f}) {
        const TiffRecipe recipe{.density_unit = RESUNIT_INCH, .density_x = density, .density_y = 300};
        EXPECT_FALSE(decoded(tiff_file(recipe, mixed)).metadata.density.has_value()) << density;
    }
}

TEST(TiffMetadata, TakesTheDensityOfAPngFile) {
    const std::string density = big_endian(3000) + big_endian(2000) + "\1";
    const std::string file = through(png_file({.before = {{"pHYs", density}}}, mixed), Format::tiff);
    EXPECT_EQ(tiff_number(file, TIFFTAG_RESOLUTIONUNIT), RESUNIT_CENTIMETER);
    EXPECT_EQ(png_chunk_data(through(file, Format::png), "pHYs"), density);
}

TEST(TiffMetadata, ReportsThatGammaIsLeftOut) {
    const Picture picture = decoded(png_file({.before = {{"gAMA", big_endian(45455)}}}, mixed));
    EXPECT_EQ(encoding_notices(picture, Format::tiff),
              Notices{"a TIFF file cannot hold the PNG file's gamma, which is left out"});
    EXPECT_EQ(encoding_notices(decoded(png_file({}, mixed)), Format::tiff), Notices{});
}

// Exif data with an orientation in either order of bytes, after another entry.
std::string exif_with(int orientation, bool little) {
    const auto number = [little](uint32_t value, int bytes) {
        std::string text;
        for (int i = 0; i < bytes; ++i) {
            text.insert(little ? text.end() : text.begin(), static_cast<char>(value >> (8 * i)));
        }
        return text;
    };
    const std::string value = number(static_cast<uint32_t>(orientation), 2) + std::string(2, '\0');
    return (little ? "II" : "MM") + number(42, 2) + number(8, 4) + number(2, 2) + number(256, 2) + number(4, 2) + number(1, 4) +
           number(9, 4) + number(274, 2) + number(3, 2) + number(1, 4) + value + number(0, 4);
}

TEST(TiffOrientation, StaysWithThePixels) {
    for (int orientation = 2; orientation <= 8; ++orientation) {
        const std::string file = tiff_file({.orientation = orientation}, mixed);
        EXPECT_EQ(pixels_of(decoded(file)), samples(21, 19, 0, 2, mixed)) << "as they are stored";
        const std::string again = through(file, Format::tiff);
        EXPECT_EQ(tiff_number(again, TIFFTAG_ORIENTATION), orientation);
        EXPECT_EQ(pixels_of(decoded(again)), samples(21, 19, 0, 2, mixed));
    }
    const std::string upright = tiff_file({.orientation = 1}, mixed);
    EXPECT_TRUE(decoded(upright).metadata.exif.empty()) << "nothing to say";
}

TEST(TiffOrientation, BecomesExifAndBack) {
    for (int orientation = 2; orientation <= 8; ++orientation) {
        const std::string png = through(tiff_file({.orientation = orientation}, mixed), Format::png);
        EXPECT_NE(png_chunk_data(png, "eXIf"), "");
        EXPECT_EQ(tiff_number(through(png, Format::tiff), TIFFTAG_ORIENTATION), orientation);
        for (const bool little : {false, true}) {
            const std::string file = png_file({.before = {{"eXIf", exif_with(orientation, little)}}}, mixed);
            EXPECT_EQ(tiff_number(through(file, Format::tiff), TIFFTAG_ORIENTATION), orientation);
        }
    }
    for (const int nonsense : {0, 9, 0x700}) {
        const std::string file = png_file({.before = {{"eXIf", exif_with(nonsense, true)}}}, mixed);
        EXPECT_EQ(tiff_number(through(file, Format::tiff), TIFFTAG_ORIENTATION), 1u);
    }
}

TEST(TiffOrientation, IsNotReadBehindTheEndOfExif) {
    const std::string whole = exif_with(6, true);
    Picture picture = decoded(png_file({}, mixed));
    for (size_t size = 0; size < whole.size(); ++size) {
        picture.metadata.exif.assign(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        picture.metadata.exif.shrink_to_fit();
        EXPECT_EQ(tiff_number(encoded(picture, Format::tiff), TIFFTAG_ORIENTATION), size < 34 ? 1u : 6u) << size;
    }
}

// No cut file is passed on as a complete picture. libtiff writes the directory after the pixels and the values of fields after
// that; a reader may do without one of those.
TEST(TiffDamage, TruncatedFilesAreErrors) {
    for (const Storage &storage : storages) {
        for (const int compression : {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_PACKBITS, COMPRESSION_ADOBE_DEFLATE}) {
            const std::string file = tiff_file(stored({.compression = compression}, storage), mixed);
            const std::vector<uint8_t> whole = samples(21, 19, 0, 2, mixed);
            for (size_t size = 0; size < file.size(); ++size) {
                const std::string error = error_of(file.substr(0, size));
                if (error == "no error") {
                    EXPECT_EQ(pixels_of(decoded(file.substr(0, size))), whole) << size << " of " << file.size();
                    EXPECT_GT(size + 100, file.size()) << storage.name;
                }
            }
        }
    }
}

TEST(TiffDamage, MissingPixelsAreErrors) {
    for (const int compression : {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_PACKBITS, COMPRESSION_ADOBE_DEFLATE,
                                  COMPRESSION_ZSTD, COMPRESSION_LZMA, COMPRESSION_JPEG}) {
        for (const uint32_t tile : {0, 16}) {
            TiffRecipe recipe = jpeg_packed(PHOTOMETRIC_RGB, tile);
            recipe.compression = compression;
            std::string file = tiff_file(recipe, mixed);
            ASSERT_EQ(error_of(file), "no error");
            const uint32_t directory = static_cast<uint8_t>(file[4]) | static_cast<uint32_t>(static_cast<uint8_t>(file[5]))
                                                                           << 8;
            // The size of the first of several strips, halved: the sizes are an array after the directory.
            const uint32_t tag = tile == 0 ? TIFFTAG_STRIPBYTECOUNTS : TIFFTAG_TILEBYTECOUNTS;
            size_t entry = directory + 2;
            while ((static_cast<uint8_t>(file[entry]) | static_cast<uint32_t>(static_cast<uint8_t>(file[entry + 1])) << 8) !=
                   tag) {
                entry += 12;
            }
            const bool is_short = file[entry + 2] == 3;
            size_t values = 0;
            for (size_t i = 4; i-- > 0;) {
                values = values << 8 | static_cast<uint8_t>(file[entry + 8 + i]);
            }
            uint32_t size = static_cast<uint8_t>(file[values]) | static_cast<uint32_t>(static_cast<uint8_t>(file[values + 1]))
                                                                     << 8;
            ASSERT_TRUE(is_short || file[values + 2] == 0);
            size /= 2;
            file[values] = static_cast<char>(size);
            file[values + 1] = static_cast<char>(size >> 8);
            if (compression == COMPRESSION_NONE && error_of(file) == "no error") { // the size follows from the rows
                EXPECT_EQ(pixels_of(decoded(file)), samples(48, 40, 0, 2, mixed));
            } else {
                EXPECT_NE(error_of(file), "no error") << "packing " << compression << ", tiles of " << tile;
            }
        }
    }
}

TEST(TiffDamage, NeverCrashes) {
    std::vector<std::string> files;
    for (const Storage &storage : storages) {
        files.push_back(
            tiff_file(stored({.compression = COMPRESSION_LZW, .profile = icc_profile("RGB ", 200)}, storage), mixed));
        files.push_back(tiff_file(stored({.channels = 4, .extra = {EXTRASAMPLE_ASSOCALPHA}}, storage), mixed));
    }
    files.push_back(tiff_file(jpeg_packed(PHOTOMETRIC_YCBCR, 16), mixed));
    files.push_back(tiff_file(jpeg_packed(PHOTOMETRIC_YCBCR, 0), mixed));
    files.push_back(tiff_file({.kind = PHOTOMETRIC_YCBCR}, mixed));
    files.push_back(
        tiff_file({.bits = 4, .kind = PHOTOMETRIC_PALETTE, .channels = 1, .colours = colours(16, 257)}, of_depth(4)));
    files.push_back(tiff_file({.bits = 1, .kind = PHOTOMETRIC_MINISWHITE, .channels = 1, .compression = COMPRESSION_CCITTFAX4},
                              of_depth(1)));
    EXPECT_GT(refused_of_damaged(files, 4000), 500);
}

TEST(TiffDamage, IsSaidOnceAndNotOnTheErrorStream) {
    StderrCapture capture;
    EXPECT_NE(error_of(std::string("II*\0\x08\0\0\0", 8)), "no error");
    EXPECT_NE(error_of(std::string("II*\0", 4)), "no error");
    EXPECT_NE(error_of(std::string("MM\0\x2a\xff\xff\xff\xff", 8)), "no error");
    EXPECT_EQ(capture.stop(), "");
}

TEST(TiffHostile, EnormousPicturesAreRefused) {
    const auto promised = [](uint32_t width, uint32_t height, uint32_t tile) {
        TiffRecipe recipe{.width = 16, .height = 16, .kind = PHOTOMETRIC_MINISBLACK, .channels = 1, .tile = tile};
        std::string file = tiff_file(recipe, mixed);
        const auto put = [&file](char tag, uint32_t value) {
            const size_t entry = file.find(std::string{tag, '\1'}, static_cast<uint8_t>(file[4]));
            file.replace(entry + 2, 2, std::string("\4\0", 2)); // a long number
            for (size_t i = 0; i < 4; ++i) {
                file[entry + 8 + i] = static_cast<char>(value >> (8 * i));
            }
        };
        put('\0', width);
        put('\1', height);
        return error_of(file);
    };
    EXPECT_EQ(promised(16, 16, 0), "no error");
    EXPECT_EQ(promised(900000, 900000, 0), "too large: 900000 x 900000 pixels, at most 250000000 can be processed");
    EXPECT_NE(promised(900000, 900000, 16), "no error");
    for (const uint32_t tile : {0, 16}) {
        EXPECT_NE(promised(15625, 16000, tile), "no error") << "the most, of which hardly anything is there";
        EXPECT_NE(promised(250'000'000, 1, tile), "no error");
        EXPECT_NE(promised(1, 250'000'000, tile), "no error");
        EXPECT_NE(promised(0, 5, tile), "no error");
    }
}

TEST(TiffStreams, FailuresAreReported) {
    for (const Storage &storage : storages) {
        expect_input_failures(tiff_file(stored({.compression = COMPRESSION_LZW}, storage), mixed));
    }
    expect_input_failures(tiff_pages(std::vector<TiffRecipe>(3), mixed));
    Picture picture = picture_of(300, 400, 3, true, mixed);
    picture.metadata.icc_profile.assign(5000, 7);
    for (const auto compression : {codec::TiffCompression::deflate, codec::TiffCompression::none}) {
        picture.tiff_compression = compression;
        expect_output_failures(picture, Format::tiff);
    }
}

} // namespace
