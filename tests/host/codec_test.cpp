// The codec over files of every kind, hostile ones included.
#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "codec_files.h"
#include "image_files.h"
#include "pictures.h"

namespace {

using namespace ko_test;
using codec::Format;
using codec::Notices;
using codec::Picture;

TEST(Recognise, DistinguishesFormatsByContent) {
    EXPECT_EQ(codec::recognise(bytes_of(png_file({}, mixed))), Format::png);
    EXPECT_EQ(codec::recognise(bytes_of(jpeg_file({}, mixed))), Format::jpeg);
    EXPECT_EQ(codec::recognise(bytes_of("")), std::nullopt);
    EXPECT_EQ(codec::recognise(bytes_of("\x89PNG\r\n\x1a")), std::nullopt);
    EXPECT_EQ(codec::recognise(bytes_of("\x89PNG\r\n\x1a\n")), Format::png) << "the whole signature and nothing behind it";
    EXPECT_EQ(codec::recognise(bytes_of("\xff\xd8")), std::nullopt);
    EXPECT_EQ(codec::recognise(bytes_of("\xff\xd8\x01\x02")), std::nullopt);
    EXPECT_EQ(codec::recognise(bytes_of("\xff\xd8\xff")), Format::jpeg);
    EXPECT_STREQ(codec::name(Format::png), "PNG");
    EXPECT_STREQ(codec::name(Format::jpeg), "JPEG");
    EXPECT_EQ(error_of("just a text"), "a text file, not a picture");
    EXPECT_EQ(error_of(""), "the file is empty");
}

struct PngCase {
    const char *name;
    int depth;
    int colour;
    bool interlaced;
};

class PngDepths : public testing::TestWithParam<PngCase> {};

TEST_P(PngDepths, BecomeBytesWithAlphaBesideThem) {
    const auto &[name, depth, colour, interlaced] = GetParam();
    const PngRecipe recipe{13, 11, depth, colour, interlaced, {}, {}};
    const uint32_t top = (1u << depth) - 1;
    const Sample sample =
        depth == 16 ? Sample(mixed_16) : Sample([top](uint32_t x, uint32_t y, uint32_t c) { return mixed(x, y, c) & top; });
    const Sample expected = [&](uint32_t x, uint32_t y, uint32_t c) {
        return depth == 16 ? reduced(sample(x, y, c)) : sample(x, y, c) * 255 / top;
    };
    Notices notices;
    const Picture picture = codec::decode(bytes_of(png_file(recipe, sample)), notices);
    EXPECT_EQ(notices, depth == 16 ? Notices{"16 bits per channel reduced to 8"} : Notices{});
    const uint32_t channels = (colour & 2) != 0 ? 3 : 1;
    EXPECT_EQ(picture.format, Format::png);
    EXPECT_EQ(picture.width, 13u);
    EXPECT_EQ(picture.height, 11u);
    ASSERT_EQ(picture.channels, channels);
    EXPECT_EQ(pixels_of(picture), samples(13, 11, 0, channels - 1, expected));
    EXPECT_EQ(alpha_of(picture), (colour & 4) != 0 ? samples(13, 11, channels, channels, expected) : std::vector<uint8_t>());
}

INSTANTIATE_TEST_SUITE_P(Codec, PngDepths,
                         testing::Values(PngCase{"gray1", 1, png_gray, false}, PngCase{"gray2", 2, png_gray, false},
                                         PngCase{"gray4", 4, png_gray, false}, PngCase{"gray8", 8, png_gray, false},
                                         PngCase{"gray16", 16, png_gray, false},
                                         PngCase{"gray_alpha8", 8, png_gray_alpha, false},
                                         PngCase{"gray_alpha16", 16, png_gray_alpha, false}, PngCase{"rgb8", 8, png_rgb, false},
                                         PngCase{"rgb16", 16, png_rgb, false}, PngCase{"rgba8", 8, png_rgba, false},
                                         PngCase{"rgba16", 16, png_rgba, false}, PngCase{"gray2_interlaced", 2, png_gray, true},
                                         PngCase{"rgb8_interlaced", 8, png_rgb, true},
                                         PngCase{"rgba16_interlaced", 16, png_rgba, true}),
                         [](const auto &test) { return std::string(test.param.name); });

std::string palette() {
    std::string entries;
    for (uint32_t i = 0; i < 16 * 3; ++i) {
        entries += static_cast<char>(i * 5);
    }
    return entries;
}

uint32_t palette_index(uint32_t x, uint32_t y, uint32_t) { return (x + 3 * y) & 15; }

uint32_t palette_colour(uint32_t x, uint32_t y, uint32_t c) { return (palette_index(x, y, 0) * 3 + c) * 5; }

TEST(PngReader, ExpandsPalettes) {
    for (const int depth : {4, 8}) {
        const Picture picture = decoded(png_file({9, 7, depth, png_palette, false, {{"PLTE", palette()}}, {}}, palette_index));
        ASSERT_EQ(picture.channels, 3u);
        EXPECT_EQ(pixels_of(picture), samples(9, 7, 0, 2, palette_colour));
        EXPECT_EQ(picture.alpha, nullptr);
    }
}

TEST(PngReader, TakesAlphaFromAPalette) {
    const Picture picture = decoded(png_file(
        {9, 7, 4, png_palette, false, {{"PLTE", palette()}, {"tRNS", std::string("\x00\x80", 2)}}, {}}, palette_index));
    EXPECT_EQ(pixels_of(picture), samples(9, 7, 0, 2, palette_colour));
    EXPECT_EQ(alpha_of(picture), samples(9, 7, 0, 0, [](uint32_t x, uint32_t y, uint32_t) {
                  const uint32_t index = palette_index(x, y, 0);
                  return index == 0 ? 0u : index == 1 ? 0x80u : 0xffu;
              }));
}

TEST(PngReader, TakesAlphaFromATransparentColour) {
    const auto level = [](uint32_t x, uint32_t, uint32_t) { return x; };
    const Picture picture = decoded(png_file({4, 2, 8, png_gray, false, {{"tRNS", std::string("\0\2", 2)}}, {}}, level));
    EXPECT_EQ(pixels_of(picture), (std::vector<uint8_t>{0, 1, 2, 3, 0, 1, 2, 3}));
    EXPECT_EQ(alpha_of(picture), (std::vector<uint8_t>{255, 255, 0, 255, 255, 255, 0, 255}));
}

TEST(PngWriter, WritesWhatWasRead) {
    for (const int colour : {png_gray, png_gray_alpha, png_rgb, png_rgba}) {
        const std::string file = png_file({21, 10, 8, colour, false, {}, {}}, mixed);
        const std::string again = through(file, Format::png);
        EXPECT_EQ(png_pixels(again), png_pixels(file));
        EXPECT_EQ(png_chunk_data(again, "IHDR"), png_chunk_data(file, "IHDR"));
    }
}

TEST(PngMetadata, SurvivesInEveryPlace) {
    const std::string exif = exif_block(300);
    const std::string density = big_endian(3000) + big_endian(2000) + std::string(1, '\1');
    for (const bool behind : {false, true}) {
        PngRecipe recipe{.before = {{"pHYs", density}}};
        (behind ? recipe.after : recipe.before).emplace_back("eXIf", exif);
        const std::string again = through(png_file(recipe, mixed), Format::png);
        EXPECT_EQ(png_chunk_data(again, "eXIf"), exif);
        EXPECT_EQ(png_chunk_data(again, "pHYs"), density);
        EXPECT_EQ(notices_of(again), Notices{}) << "each chunk stands there once";
    }
}

TEST(PngMetadata, KeepsADensityWithoutAUnit) {
    const std::string shape = big_endian(2) + big_endian(1) + std::string(1, '\0');
    const std::string file = png_file({.before = {{"pHYs", shape}}}, mixed);
    EXPECT_EQ(png_chunk_data(through(file, Format::png), "pHYs"), shape);
}

TEST(PngMetadata, KeepsColours) {
    const std::string gamma = big_endian(100000);
    std::string chromaticities;
    for (const uint32_t value : {31270u, 32900u, 64000u, 33000u, 21000u, 71000u, 15000u, 6000u}) {
        chromaticities += big_endian(value);
    }
    const std::string plain = through(png_file({.before = {{"gAMA", gamma}, {"cHRM", chromaticities}}}, mixed), Format::png);
    EXPECT_EQ(png_chunk_data(plain, "gAMA"), gamma);
    EXPECT_EQ(png_chunk_data(plain, "cHRM"), chromaticities);
    EXPECT_EQ(png_chunk_data(plain, "sRGB"), "");
    const std::string standard = through(png_file({.before = {{"sRGB", "\2"}}}, mixed), Format::png);
    EXPECT_EQ(png_chunk_data(standard, "sRGB"), "\2");
    for (const char *own : {"iCCP", "gAMA", "cHRM"}) {
        EXPECT_EQ(png_chunk_data(standard, own), "") << own << ": the file had none of its own";
    }
}

TEST(PngMetadata, ColoursChangeNoPixel) {
    const std::string file = png_file({.before = {{"gAMA", big_endian(100000)}}}, mixed);
    EXPECT_EQ(pixels_of(decoded(file)), samples(8, 8, 0, 2, mixed));
}

TEST(JpegReader, GivesThePixelsOfEveryKind) {
    for (const bool progressive : {false, true}) {
        for (const JpegColour colour : {JpegColour::gray, JpegColour::ycc, JpegColour::rgb}) {
            for (const int sampling : {1, 2}) {
                JpegRecipe recipe{.width = 37, .height = 29, .colour = colour, .progressive = progressive};
                recipe.sampling_x = recipe.sampling_y = colour == JpegColour::ycc ? sampling : 1;
                const std::string file = jpeg_file(recipe, soft);
                const Picture picture = decoded(file);
                const Pixels expected = jpeg_pixels(file);
                EXPECT_EQ(picture.format, Format::jpeg);
                EXPECT_EQ(picture.channels, expected.channels);
                EXPECT_EQ(pixels_of(picture), expected.bytes);
                EXPECT_EQ(picture.alpha, nullptr);
            }
        }
    }
}

// The rows that a reader delivers, requested in groups of changing height.
std::vector<uint8_t> rows_in_groups(codec::Reader &reader, std::vector<uint8_t> *alpha, uint32_t seed) {
    Noise noise(seed);
    const size_t row_bytes = size_t{reader.width()} * reader.description().channels;
    std::vector<uint8_t> pixels(row_bytes * reader.height());
    for (uint32_t row = 0; row < reader.height();) {
        const uint32_t rows = std::min(noise.next() % 7 + 1, reader.height() - row);
        reader.read(rows, &pixels[row * row_bytes], alpha == nullptr ? nullptr : &(*alpha)[size_t{row} * reader.width()]);
        row += rows;
    }
    Notices notices;
    reader.finish(notices);
    return pixels;
}

TEST(JpegReader, IsReducedToTheSmallestThatIsLargeEnough) {
    for (const bool progressive : {false, true}) {
        const std::string file = jpeg_file({.width = 203, .height = 130, .sampling_x = 2, .progressive = progressive}, soft);
        const struct {
            codec::Reduction least;
            unsigned int divisor;
        } cases[] = {{{}, 1},       {{203, 130}, 1}, {{103, 2}, 1}, {{2, 66}, 1},  {{102, 65}, 2}, {{52, 1}, 2},   {{1, 34}, 2},
                     {{51, 33}, 4}, {{27, 1}, 4},    {{1, 18}, 4},  {{26, 17}, 8}, {{1, 1}, 8},    {{500, 400}, 1}};
        for (const auto &[least, divisor] : cases) {
            codec::MemoryInput input(bytes_of(file));
            const auto reader = codec::open(input, least);
            const Pixels expected = jpeg_pixels(file, divisor);
            EXPECT_EQ(reader->description().width, 203u);
            EXPECT_EQ(reader->description().height, 130u);
            ASSERT_EQ(reader->width(), expected.width) << least.width << " x " << least.height;
            ASSERT_EQ(reader->height(), expected.height) << least.width << " x " << least.height;
            EXPECT_EQ(rows_in_groups(*reader, nullptr, divisor), expected.bytes);
        }
    }
}

TEST(PngReader, IsNotReduced) {
    const std::string file = png_file({40, 30, 8, png_rgb, false, {}, {}}, mixed);
    codec::MemoryInput input(bytes_of(file));
    const auto reader = codec::open(input, {1, 1});
    EXPECT_EQ(reader->width(), 40u);
    EXPECT_EQ(rows_in_groups(*reader, nullptr, 1), png_pixels(file).bytes);
}

TEST(Readers, DeliverRowsInGroupsOfAnyHeight) {
    for (const bool interlaced : {false, true}) {
        const std::string file = png_file({31, 37, 8, png_rgba, interlaced, {}, {}}, mixed);
        codec::MemoryInput input(bytes_of(file));
        const auto reader = codec::open(input);
        std::vector<uint8_t> alpha(31 * 37);
        EXPECT_EQ(rows_in_groups(*reader, &alpha, 2), samples(31, 37, 0, 2, mixed));
        EXPECT_EQ(alpha, samples(31, 37, 3, 3, mixed));
    }
    for (const bool progressive : {false, true}) {
        const std::string file = jpeg_file({.width = 31, .height = 37, .sampling_y = 2, .progressive = progressive}, soft);
        codec::MemoryInput input(bytes_of(file));
        EXPECT_EQ(rows_in_groups(*codec::open(input), nullptr, 3), jpeg_pixels(file).bytes);
    }
}

// What a writer makes of rows in groups of changing height.
std::string written_in_groups(const Picture &picture, Format format, uint32_t seed) {
    Noise noise(seed);
    Notices notices;
    codec::MemoryOutput output;
    const auto writer = codec::create(output, picture, {format, std::nullopt}, notices);
    for (uint32_t row = 0; row < picture.height;) {
        const uint32_t rows = std::min(noise.next() % 7 + 1, picture.height - row);
        writer->write(rows, &picture.pixels[row * picture.row_bytes()],
                      picture.alpha ? &picture.alpha[size_t{row} * picture.width] : nullptr);
        row += rows;
    }
    writer->finish(notices);
    return text_of(output.bytes());
}

TEST(Writers, TakeRowsInGroupsOfAnyHeight) {
    const Picture picture = decoded(png_file({31, 37, 8, png_rgba, false, {}, {}}, mixed));
    EXPECT_EQ(written_in_groups(picture, Format::png, 4), encoded(picture, Format::png));
    for (const bool progressive : {false, true}) {
        const Picture photo =
            decoded(jpeg_file({.width = 31, .height = 37, .sampling_y = 2, .progressive = progressive}, soft));
        EXPECT_EQ(written_in_groups(photo, Format::jpeg, 5), encoded(photo, Format::jpeg));
    }
}

TEST(JpegReader, RefusesColoursThatItDoesNotKnow) {
    EXPECT_EQ(error_of(jpeg_file({.colour = JpegColour::two_unknown}, soft)),
              "neither gray nor RGB: 2 channels of unknown colours");
}

TEST(JpegReader, RefusesCmykWithoutAProfile) {
    EXPECT_EQ(error_of(jpeg_file({.colour = JpegColour::cmyk}, soft)), "a CMYK picture without a colour profile");
    EXPECT_EQ(error_of(jpeg_file({.colour = JpegColour::ycck}, soft)), "a CMYK picture without a colour profile");
}

TEST(JpegWriter, KeepsColourSampling) {
    const std::vector<std::pair<std::pair<int, int>, std::string>> cases = {
        {{1, 1}, "11 11 11"}, {{2, 1}, "21 11 11"}, {{1, 2}, "12 11 11"}, {{2, 2}, "22 11 11"}, {{4, 1}, "41 11 11"}};
    for (const auto &[sampling, expected] : cases) {
        JpegRecipe recipe{.width = 40, .height = 40, .sampling_x = sampling.first, .sampling_y = sampling.second};
        EXPECT_EQ(jpeg_sampling(through(jpeg_file(recipe, soft), Format::jpeg)), expected);
    }
    EXPECT_EQ(jpeg_sampling(through(jpeg_file({.colour = JpegColour::gray}, soft), Format::jpeg)), "11");
    EXPECT_EQ(jpeg_sampling(through(png_file({}, mixed), Format::jpeg)), "11 11 11") << "a PNG file has full colour";
}

// What counts is the ratio of luminance to colour; one that is not a whole number, or not in the format, is full colour.
TEST(JpegWriter, TakesRatiosOfSampling) {
    const struct {
        int x, y, colour_x, colour_y;
        std::string expected;
    } cases[] = {{2, 2, 1, 2, "21 11 11"}, {2, 2, 2, 1, "12 11 11"}, {2, 1, 2, 1, "11 11 11"},
                 {1, 2, 2, 1, "12 11 11"}, {3, 1, 1, 1, "11 11 11"}, {3, 2, 1, 1, "11 11 11"},
                 {1, 4, 1, 1, "14 11 11"}, {4, 2, 1, 1, "42 11 11"}, {2, 4, 1, 1, "24 11 11"}};
    for (const auto &[x, y, colour_x, colour_y, expected] : cases) {
        JpegRecipe recipe{.width = 40, .height = 40, .sampling_x = x, .sampling_y = y};
        recipe.colour_sampling_x = {colour_x, colour_x};
        recipe.colour_sampling_y = {colour_y, colour_y};
        const std::string file = jpeg_file(recipe, soft);
        EXPECT_EQ(jpeg_sampling(through(file, Format::jpeg)), expected) << jpeg_sampling(file);
    }
}

TEST(JpegWriter, TakesTheFinerOfTwoColours) {
    JpegRecipe recipe{.width = 40, .height = 40, .sampling_x = 2, .sampling_y = 2};
    recipe.colour_sampling_x = {1, 2};
    EXPECT_EQ(jpeg_sampling(through(jpeg_file(recipe, soft), Format::jpeg)), "12 11 11");
    recipe.colour_sampling_x = {2, 1};
    EXPECT_EQ(jpeg_sampling(through(jpeg_file(recipe, soft), Format::jpeg)), "12 11 11");
    recipe.colour_sampling_y = {1, 2};
    EXPECT_EQ(jpeg_sampling(through(jpeg_file(recipe, soft), Format::jpeg)), "11 11 11");
}

TEST(JpegWriter, WritesFullColourWhereTheFormatHasNoRoom) {
    Picture picture = decoded(png_file({}, mixed));
    picture.subsampling = {4, 4}; // sixteen blocks of luminance in a unit
    EXPECT_EQ(jpeg_sampling(encoded(picture, Format::jpeg)), "11 11 11");
    Picture gray = decoded(png_file({.colour = png_gray}, mixed));
    gray.subsampling = {2, 2};
    EXPECT_EQ(jpeg_sampling(encoded(gray, Format::jpeg)), "11");
}

// A table that no quality gives.
JpegTable odd_table(uint16_t first, uint16_t step) {
    JpegTable table;
    for (uint16_t i = 0; i < table.size(); ++i) {
        table[i] = static_cast<uint16_t>(first + i * step);
    }
    return table;
}

TEST(JpegWriter, KeepsTheTablesOfAJpegFile) {
    for (const int quality : {3, 50, 75, 92, 99, 100}) {
        for (const bool progressive : {false, true}) {
            for (const JpegColour colour : {JpegColour::gray, JpegColour::ycc}) {
                const std::string file = jpeg_file({.colour = colour, .quality = quality, .progressive = progressive}, soft);
                EXPECT_EQ(jpeg_tables(through(file, Format::jpeg)), jpeg_tables(file)) << quality;
            }
        }
    }
    const JpegTable fine = odd_table(1, 3);
    const JpegTable coarse = odd_table(2, 2);
    const std::string file = jpeg_file({.tables = {fine, coarse, coarse}}, soft);
    ASSERT_EQ(jpeg_tables(file), (std::vector<JpegTable>{fine, coarse, coarse}));
    EXPECT_EQ(jpeg_tables(through(file, Format::jpeg)), jpeg_tables(file));
}

// Steps over 255 do not fit into a table of bytes.
TEST(JpegWriter, KeepsTablesOfSixteenBits) {
    const auto bytes_of_tables = [](const std::string &file) {
        std::vector<int> sizes;
        for (const auto &[marker, data] : jpeg_segments(file)) {
            for (size_t place = 0; marker == 0xdb && place < data.size();) {
                sizes.push_back(data[place] >> 4 == 0 ? 1 : 2);
                place += 1 + 64 * static_cast<size_t>(sizes.back());
            }
        }
        return sizes;
    };
    const JpegTable large = odd_table(200, 7);
    const JpegTable largest = odd_table(32767, 0);
    const JpegTable small = odd_table(1, 4);
    for (const bool progressive : {false, true}) {
        for (const auto &[luminance, colours] : {std::pair(large, small), std::pair(small, large), std::pair(largest, large)}) {
            const std::string file = jpeg_file({.tables = {luminance, colours, colours}, .progressive = progressive}, soft);
            ASSERT_EQ(jpeg_tables(file), (std::vector<JpegTable>{luminance, colours, colours}));
            const std::string again = through(file, Format::jpeg);
            EXPECT_EQ(jpeg_tables(again), jpeg_tables(file));
            std::vector<int> sizes = bytes_of_tables(again);
            sizes.resize(2);
            EXPECT_EQ(sizes, (std::vector<int>{luminance == small ? 1 : 2, colours == small ? 1 : 2}));
        }
    }
    const std::string gray = jpeg_file({.colour = JpegColour::gray, .tables = {large}}, soft);
    EXPECT_EQ(jpeg_tables(through(gray, Format::jpeg)), std::vector<JpegTable>{large});
}

TEST(JpegWriter, KeepsTheForm) {
    for (const bool progressive : {false, true}) {
        for (const JpegColour colour : {JpegColour::gray, JpegColour::ycc}) {
            const std::string file = jpeg_file({.width = 40, .height = 40, .colour = colour, .progressive = progressive}, soft);
            EXPECT_EQ(jpeg_is_progressive(through(file, Format::jpeg)), progressive);
            EXPECT_EQ(jpeg_is_progressive(encoded(decoded(file), Format::jpeg, 50)), progressive);
        }
    }
    EXPECT_FALSE(jpeg_is_progressive(through(png_file({}, mixed), Format::jpeg)));
}

TEST(JpegWriter, OfTheSamePixelsMakesTheSamePicture) {
    for (const bool progressive : {false, true}) {
        const JpegRecipe recipe{.width = 45, .height = 33, .sampling_x = 2, .quality = 80, .progressive = progressive};
        const std::string file = jpeg_file(recipe, soft);
        const Pixels pixels = jpeg_pixels(file);
        const Sample decoded = [&](uint32_t x, uint32_t y, uint32_t c) { return pixels.bytes[(y * 45 + x) * 3 + c]; };
        EXPECT_EQ(jpeg_pixels(through(file, Format::jpeg)), jpeg_pixels(jpeg_file(recipe, decoded)));
    }
}

std::vector<Segment> huffman_segments(const std::string &file) {
    std::vector<Segment> segments = jpeg_segments(file);
    std::erase_if(segments, [](const Segment &segment) { return segment.first != 0xc4; });
    return segments;
}

// A pass over the pixels to optimise the tables would need all of them before the first byte is written.
TEST(JpegWriter, HasTheStandardHuffmanTables) {
    const std::string plain = jpeg_file({.width = 40, .height = 40}, soft);
    const std::vector<Segment> standard = huffman_segments(plain);
    ASSERT_EQ(standard.size(), 4u);
    EXPECT_EQ(huffman_segments(through(plain, Format::jpeg)), standard);
    EXPECT_EQ(huffman_segments(through(png_file({}, mixed), Format::jpeg)), standard);
}

// The bytes are passed on in buffers of 65536.
TEST(JpegWriter, WritesFilesOfManyRooms) {
    const std::vector<uint8_t> noise = noise_bytes(300 * 300, 5);
    const Sample sample = [&](uint32_t x, uint32_t y, uint32_t) { return noise[y * 300 + x]; };
    const std::string file = encoded(decoded(png_file({300, 300, 8, png_gray, false, {}, {}}, sample)), Format::jpeg, 100);
    EXPECT_GT(file.size(), 70000u);
    EXPECT_EQ(jpeg_pixels(file),
              jpeg_pixels(jpeg_file({.width = 300, .height = 300, .colour = JpegColour::gray, .quality = 100}, sample)));
    EXPECT_TRUE(file.ends_with("\xff\xd9")) << "nothing behind the end of the picture";
}

TEST(JpegWriter, HasTheQualityAskedFor) {
    const Picture picture = decoded(png_file({40, 40, 8, png_rgb, false, {}, {}}, soft));
    for (const int quality : {1, 50, 92, 100}) {
        const std::string expected = jpeg_file({.width = 40, .height = 40, .quality = quality}, soft);
        const std::string file = encoded(picture, Format::jpeg, quality);
        EXPECT_EQ(jpeg_tables(file), jpeg_tables(expected));
        EXPECT_EQ(jpeg_pixels(file), jpeg_pixels(expected));
        const Picture other = decoded(jpeg_file({.quality = 77, .progressive = true}, soft));
        EXPECT_EQ(jpeg_tables(encoded(other, Format::jpeg, quality)), jpeg_tables(expected)) << "not that of the input";
    }
    EXPECT_EQ(jpeg_tables(encoded(picture, Format::jpeg)), jpeg_tables(jpeg_file({.quality = 92}, soft)));
}

TEST(JpegWriter, ReportsThatAlphaIsLeftOut) {
    const Picture picture = decoded(png_file({.colour = png_rgba}, mixed));
    EXPECT_EQ(encoding_notices(picture, Format::jpeg), Notices{"a JPEG file cannot hold alpha, which is left out"});
    EXPECT_EQ(encoding_notices(picture, Format::png), Notices{});
    for (const int opaque : {png_gray, png_rgb}) {
        EXPECT_EQ(encoding_notices(decoded(png_file({.colour = opaque}, mixed)), Format::jpeg), Notices{});
    }
}

TEST(JpegWriter, ReportsThatGammaIsLeftOut) {
    const std::string gamma = big_endian(45455);
    Picture picture = decoded(png_file({.before = {{"gAMA", gamma}}}, mixed));
    EXPECT_EQ(encoding_notices(picture, Format::jpeg),
              Notices{"a JPEG file cannot hold the PNG file's gamma, which is left out"});
    EXPECT_EQ(encoding_notices(picture, Format::png), Notices{});
    const std::string profile = icc_profile("RGB ", 300);
    picture.metadata.icc_profile.assign(profile.begin(), profile.end());
    EXPECT_EQ(encoding_notices(picture, Format::jpeg), Notices{}) << "the profile says more than the gamma";
    EXPECT_EQ(encoding_notices(decoded(png_file({}, mixed)), Format::jpeg), Notices{});
}

TEST(JpegWriter, RefusesSidesThatTheFormatCannotSay) {
    const Picture picture = decoded(png_file({.width = 65501, .height = 1, .colour = png_gray}, mixed));
    try {
        encoded(picture, Format::jpeg);
        FAIL() << "encoded";
    } catch (const codec::Error &error) {
        EXPECT_NE(std::string(error.what()).find("65500"), std::string::npos) << error.what();
    }
}

std::string exif_segment(const std::string &block) { return std::string("Exif\0\0", 6) + block; }

TEST(JpegMetadata, SurvivesInJpeg) {
    const std::string exif = exif_segment(exif_block(500));
    const std::string xmp = std::string("http://ns.adobe.com/xap/1.0/\0", 29) + "<x:xmpmeta/>";
    const std::string captions = std::string("Photoshop 3.0\0", 14) + "8BIM";
    const std::string profile = icc_profile("RGB ", 200000);
    JpegRecipe recipe{.density_unit = 1, .density_x = 300, .density_y = 150};
    recipe.segments = icc_segments(profile);
    ASSERT_EQ(recipe.segments.size(), 4u);
    recipe.segments.insert(recipe.segments.begin(), {0xe1, exif});
    recipe.segments.push_back({0xe1, xmp});
    recipe.segments.push_back({0xed, captions});
    recipe.segments.push_back({0xe2, std::string("MPF\0", 4) + "offsets"});
    const std::string again = through(jpeg_file(recipe, soft), Format::jpeg);
    EXPECT_EQ(jpeg_segment(again, 0xe1, "Exif"), exif);
    EXPECT_EQ(jpeg_segment(again, 0xe1, "http"), xmp);
    EXPECT_EQ(jpeg_segment(again, 0xed), captions);
    EXPECT_EQ(jpeg_icc_profile(again), profile);
    EXPECT_EQ(jpeg_segment(again, 0xe2, "MPF"), "") << "its offsets point into the old file";
    EXPECT_EQ(jpeg_segment(again, 0xe0), jpeg_segment(jpeg_file(recipe, soft), 0xe0)) << "density";
    EXPECT_EQ(notices_of(again), Notices{});
}

// The application segments, which come before all others.
std::vector<Segment> application_segments(const std::string &file) {
    std::vector<Segment> segments = jpeg_segments(file);
    segments.erase(std::find_if(segments.begin(), segments.end(), [](const Segment &segment) { return segment.first < 0xe0; }),
                   segments.end());
    return segments;
}

// A file with the given segments and no density, read and written again.
std::vector<Segment> segments_through(const std::vector<Segment> &segments) {
    return application_segments(through(jpeg_file({.density_unit = -1, .segments = segments}, soft), Format::jpeg));
}

TEST(JpegMetadata, ExifComesFirstAndTheRestInItsOrder) {
    const Segment exif = {0xe1, exif_segment(exif_block(40))};
    const Segment captions = {0xed, "captions"};
    const Segment xmp = {0xe1, "http://ns.adobe.com/xap/1.0/"};
    const Segment other = {0xe2, std::string("FPXR\0", 5) + "more"};
    EXPECT_EQ(segments_through({captions, other, xmp, exif}), (std::vector<Segment>{exif, captions, other, xmp}));
}

// The first block is also the one that other formats get.
TEST(JpegMetadata, ASecondExifBlockStaysASegment) {
    const Segment first = {0xe1, exif_segment(exif_block(40))};
    const Segment second = {0xe1, exif_segment(exif_block(41))};
    EXPECT_EQ(segments_through({first, second}), (std::vector<Segment>{first, second}));
    const std::string file = jpeg_file({.segments = {first, second}}, soft);
    EXPECT_EQ(png_chunk_data(through(file, Format::png), "eXIf"), exif_block(40));
}

TEST(JpegMetadata, MarksCountInTheirOwnSegmentsAlone) {
    const std::vector<Segment> segments = {{0xed, exif_segment(exif_block(40))},
                                           {0xed, icc_segments(icc_profile("RGB ", 200))[0].second},
                                           {0xed, std::string("MPF\0", 4) + "offsets"},
                                           {0xe1, std::string("MPF\0", 4) + "offsets"}};
    const std::string file = jpeg_file({.density_unit = 0, .segments = segments}, soft);
    std::vector<Segment> written = application_segments(through(file, Format::jpeg));
    written.erase(written.begin()); // density
    EXPECT_EQ(written, segments);
    EXPECT_EQ(png_chunk_data(through(file, Format::png), "eXIf"), "");
    EXPECT_EQ(notices_of(file), Notices{});
}

TEST(JpegMetadata, PartsOfMarksAreNoMarks) {
    const Segment exif = {0xe1, exif_segment(exif_block(40))};
    const std::vector<Segment> parts = {
        exif, {0xe1, std::string("Exif\0", 5)}, {0xe1, ""}, {0xe2, "MPF"}, {0xe2, "ICC_PROFILE"}};
    EXPECT_EQ(segments_through(parts), parts);
    const std::vector<Segment> bare = {{0xe1, exif_segment("")}, {0xe2, std::string("MPF\0", 4)}, exif};
    EXPECT_EQ(segments_through(bare), std::vector<Segment>{exif}) << "marks with nothing behind them";
}

TEST(JpegMetadata, SurvivesIntoPngAndBack) {
    const std::string block = exif_block(501);
    const std::string profile = icc_profile("RGB ", 3000);
    JpegRecipe recipe{.density_unit = 1, .density_x = 72, .density_y = 300};
    recipe.segments = icc_segments(profile);
    recipe.segments.insert(recipe.segments.begin(), {0xe1, exif_segment(block)});
    const std::string png = through(jpeg_file(recipe, soft), Format::png);
    EXPECT_EQ(png_chunk_data(png, "eXIf"), block);
    EXPECT_EQ(png_chunk_data(png, "pHYs"), big_endian(2835) + big_endian(11811) + "\1");
    EXPECT_NE(png_chunk_data(png, "iCCP"), "");
    const std::string jpeg = through(png, Format::jpeg);
    EXPECT_EQ(jpeg_segment(jpeg, 0xe1), exif_segment(block));
    EXPECT_EQ(jpeg_icc_profile(jpeg), profile);
    EXPECT_EQ(jpeg_segment(jpeg, 0xe0), jpeg_segment(jpeg_file(recipe, soft), 0xe0));
}

TEST(JpegMetadata, KeepsEveryUnitOfDensity) {
    for (const int unit : {0, 1, 2}) {
        const std::string file = jpeg_file({.density_unit = unit, .density_x = 118, .density_y = 59}, soft);
        EXPECT_EQ(jpeg_segment(through(file, Format::jpeg), 0xe0), jpeg_segment(file, 0xe0));
        const std::string chunk = png_chunk_data(through(file, Format::png), "pHYs");
        const std::vector<std::string> expected = {big_endian(118) + big_endian(59) + std::string(1, '\0'),
                                                   big_endian(4646) + big_endian(2323) + "\1",
                                                   big_endian(11800) + big_endian(5900) + "\1"};
        EXPECT_EQ(chunk, expected[static_cast<size_t>(unit)]);
    }
}

// A JFIF segment as a file without a density has it.
std::string plain_density() { return jpeg_segment(jpeg_file({.density_unit = 0}, soft), 0xe0); }

TEST(JpegMetadata, HasAPlainHeaderWithoutADensity) {
    EXPECT_EQ(jpeg_segment(through(png_file({}, mixed), Format::jpeg), 0xe0), plain_density());
    EXPECT_EQ(jpeg_segment(through(jpeg_file({}, soft), Format::jpeg), 0xe0), plain_density());
}

TEST(JpegMetadata, ADensityOfZeroIsNone) {
    for (const auto &[x, y] : {std::pair{0, 0}, {0, 300}, {300, 0}}) {
        const std::string file = jpeg_file({.density_unit = 1, .density_x = x, .density_y = y}, soft);
        EXPECT_EQ(jpeg_segment(through(file, Format::jpeg), 0xe0), plain_density());
        EXPECT_EQ(png_chunk_data(through(file, Format::png), "pHYs"), "");
    }
}

// A JPEG file has sixteen bits for a density, and no 0.
TEST(JpegMetadata, ADensityThatDoesNotFitIsLeftOut) {
    const auto header = [](uint32_t x, uint32_t y) {
        const std::string density = big_endian(x) + big_endian(y) + "\1";
        return jpeg_segment(through(png_file({.before = {{"pHYs", density}}}, mixed), Format::jpeg), 0xe0);
    };
    const std::string most = jpeg_segment(jpeg_file({.density_unit = 1, .density_x = 65535, .density_y = 1}, soft), 0xe0);
    EXPECT_EQ(header(2580118, 20), most);
    EXPECT_EQ(header(2580158, 20), plain_density());
    EXPECT_EQ(header(20, 2580158), plain_density());
    EXPECT_EQ(header(19, 3000), plain_density());
    EXPECT_EQ(header(3000, 19), plain_density());
}

TEST(PngMetadata, HasRoomForTheGreatestDensities) {
    const std::string file = jpeg_file({.density_unit = 1, .density_x = 65535, .density_y = 65535}, soft);
    EXPECT_EQ(png_chunk_data(through(file, Format::png), "pHYs"), big_endian(2580118) + big_endian(2580118) + "\1");
    Picture picture = decoded(png_file({}, mixed));
    picture.metadata.density = {codec::Density::Unit::inch, 0xffffffff, 1};
    EXPECT_EQ(png_chunk_data(encoded(picture, Format::png), "pHYs"), big_endian(0x7fffffff) + big_endian(39) + "\1");
}

TEST(JpegMetadata, HasNoDensityOfItsOwnBesideExif) {
    const std::string file = jpeg_file({.segments = {{0xe1, exif_segment(exif_block(50))}}}, soft);
    EXPECT_EQ(jpeg_segment(through(file, Format::jpeg), 0xe0), "");
}

TEST(JpegMetadata, ReportsWhatDoesNotFit) {
    const std::string exif = exif_block(65528);
    const Picture large = decoded(png_file({.before = {{"eXIf", exif}}}, mixed));
    EXPECT_EQ(encoding_notices(large, Format::jpeg), Notices{"the Exif data is too large for a JPEG file and left out"});
    const Picture fitting = decoded(png_file({.before = {{"eXIf", exif_block(65527)}}}, mixed));
    EXPECT_EQ(encoding_notices(fitting, Format::jpeg), Notices{});
    EXPECT_EQ(jpeg_segment(encoded(fitting, Format::jpeg), 0xe1).size(), 65533u);
}

// A profile is spread over at most 255 segments.
TEST(JpegMetadata, ReportsAProfileThatDoesNotFit) {
    constexpr size_t most = 255 * 65519;
    Picture picture = decoded(png_file({}, mixed));
    picture.metadata.icc_profile.assign(most, 7);
    EXPECT_EQ(encoding_notices(picture, Format::jpeg), Notices{});
    EXPECT_EQ(jpeg_icc_profile(encoded(picture, Format::jpeg)), std::string(most, '\7'));
    picture.metadata.icc_profile.push_back(7);
    EXPECT_EQ(encoding_notices(picture, Format::jpeg), Notices{"the ICC profile is too large for a JPEG file and left out"});
    EXPECT_EQ(jpeg_icc_profile(encoded(picture, Format::jpeg)), "");
}

TEST(JpegMetadata, ReportsADamagedProfile) {
    std::vector<Segment> segments = icc_segments(icc_profile("RGB ", 100000));
    segments.pop_back();
    const Notices notices = notices_of(jpeg_file({.segments = segments}, soft));
    EXPECT_NE(std::find(notices.begin(), notices.end(), "the ICC profile is damaged and left out"), notices.end());
    EXPECT_EQ(notices_of(jpeg_file({.segments = icc_segments(icc_profile("RGB ", 100000))}, soft)), Notices{});
}

TEST(PngMetadata, ReportsAProfileThatDoesNotSuit) {
    const Picture picture = decoded(jpeg_file({.segments = icc_segments("no profile at all")}, soft));
    const Notices notices = encoding_notices(picture, Format::png);
    EXPECT_NE(std::find(notices.begin(), notices.end(), "the ICC profile does not suit a PNG file and is left out"),
              notices.end());
    EXPECT_EQ(notices.size(), 2u) << "and why";
    EXPECT_EQ(png_chunk_data(encoded(picture, Format::png), "iCCP"), "");
    EXPECT_EQ(jpeg_icc_profile(encoded(picture, Format::jpeg)), "no profile at all") << "JPEG carries it as it is";
}

TEST(PngMetadata, KeepsGrayProfiles) {
    const std::string profile = icc_profile("GRAY", 400);
    const Picture picture = decoded(jpeg_file({.colour = JpegColour::gray, .segments = icc_segments(profile)}, soft));
    const std::string png = encoded(picture, Format::png);
    EXPECT_EQ(text_of(decoded(png).metadata.icc_profile), profile);
    EXPECT_TRUE(png_chunk_data(png, "iCCP").starts_with(std::string("ICC profile\0\0", 13))) << "its name and its packing";
}

// A profile that claims to be a well-known one, and is not, is as good as any other.
TEST(PngMetadata, ProfilesAreNotCompared) {
    std::string profile = icc_profile("RGB ", 3048);
    profile.replace(84, 16, big_endian(0x29f83dde) + big_endian(0xaff255ae) + big_endian(0x7842fae4) + big_endian(0xca83390d));
    const Picture picture = decoded(jpeg_file({.segments = icc_segments(profile)}, soft));
    EXPECT_EQ(encoding_notices(picture, Format::png), Notices{});
    const std::string png = encoded(picture, Format::png);
    EXPECT_EQ(notices_of(png), Notices{});
    EXPECT_EQ(text_of(decoded(png).metadata.icc_profile), profile);
    EXPECT_EQ(png_chunk_data(png, "sRGB"), "");
}

// Every beginning of a file is an error, and none a crash or a picture.
void expect_every_truncation_fails(const std::string &file) {
    ASSERT_EQ(error_of(file), "no error");
    for (size_t size = 0; size < file.size(); ++size) {
        EXPECT_NE(error_of(file.substr(0, size)), "no error") << size << " of " << file.size() << " bytes";
    }
}

TEST(Truncated, PngIsAnError) {
    const std::string profile_free =
        png_file({.before = {{"pHYs", std::string(9, '\1')}}, .after = {{"eXIf", exif_block(30)}}}, mixed);
    expect_every_truncation_fails(profile_free);
    expect_every_truncation_fails(png_file({31, 31, 16, png_rgba, true, {}, {}}, mixed_16));
}

TEST(Truncated, JpegIsAnError) {
    for (const bool progressive : {false, true}) {
        JpegRecipe recipe{.width = 40, .height = 33, .sampling_x = 2, .sampling_y = 2, .progressive = progressive};
        recipe.density_unit = 1;
        recipe.segments = icc_segments(icc_profile("RGB ", 200));
        expect_every_truncation_fails(jpeg_file(recipe, mixed));
    }
}

TEST(Truncated, SaysSo) {
    const std::string png = png_file({64, 64, 8, png_rgb, false, {}, {}}, mixed_16);
    for (size_t size = 8; size < png.size(); ++size) {
        EXPECT_EQ(error_of(png.substr(0, size)), "truncated PNG file") << size << " of " << png.size() << " bytes";
    }
    const std::string jpeg = jpeg_file({.width = 64, .height = 64}, mixed);
    EXPECT_EQ(error_of(jpeg.substr(0, jpeg.size() / 2)), "premature end of JPEG file");
}

TEST(Damaged, NeverCrashes) {
    const std::vector<std::string> files = {
        png_file({19, 17, 8, png_rgba, true, {{"pHYs", std::string(9, '\1')}, {"eXIf", exif_block(40)}}, {}}, mixed),
        png_file({19, 17, 4, png_palette, false, {{"PLTE", palette()}}, {}}, palette_index),
        jpeg_file({.width = 40, .height = 33, .sampling_x = 2, .sampling_y = 2}, mixed),
        jpeg_file({.width = 40, .height = 33, .progressive = true, .segments = icc_segments(icc_profile("RGB ", 200))}, mixed)};
    Noise noise(7);
    int errors = 0;
    for (int round = 0; round < 2000; ++round) {
        std::string file = files[noise.next() % files.size()];
        for (uint32_t flips = noise.next() % 4 + 1; flips > 0; --flips) {
            file[noise.next() % file.size()] = static_cast<char>(noise.byte());
        }
        errors += error_of(file) != "no error";
    }
    EXPECT_GT(errors, 1000);
}

TEST(Damaged, PngWithAWrongChecksum) {
    std::string file = png_file({}, mixed);
    file[file.size() - 14] = static_cast<char>(~file[file.size() - 14]); // in the checksum of the pixels
    EXPECT_EQ(error_of(file), "IDAT: CRC error");
}

// A PNG file with chunks of these types after its header, whose checksums are wrong.
std::string with_wrong_chunks(const std::vector<std::string> &types) {
    std::string chunks;
    for (const std::string &type : types) {
        chunks += png_chunk(type, "anything");
        chunks.back() = static_cast<char>(~chunks.back());
    }
    std::string file = png_file({}, mixed);
    return file.insert(png_header(1, 1, 8, png_rgb, 0).size(), chunks);
}

TEST(Damaged, PngWithoutHarmToItsPixelsIsReadAndReported) {
    const std::string file = with_wrong_chunks({"tEXt", "teXa", "tEXt"});
    EXPECT_EQ(notices_of(file), (Notices{"tEXt: CRC error", "teXa: CRC error"})) << "each text once";
    EXPECT_EQ(pixels_of(decoded(file)), samples(8, 8, 0, 2, mixed));
}

TEST(Damaged, EightNoticesAreEnough) {
    std::vector<std::string> types;
    for (char letter = 'a'; letter <= 'z'; ++letter) {
        types.push_back(std::string("teX") + letter);
    }
    const Notices notices = notices_of(with_wrong_chunks(types));
    ASSERT_EQ(notices.size(), 8u);
    EXPECT_EQ(notices.front(), "teXa: CRC error");
    EXPECT_EQ(notices.back(), "teXh: CRC error");
}

TEST(Hostile, LargePicturesAreTakenUpToTheMost) {
    const auto promised = [](uint32_t width, uint32_t height) {
        return error_of(png_header(width, height, 8, png_gray, 0) + png_chunk("IDAT", ""));
    };
    EXPECT_EQ(promised(15625, 16000), "truncated PNG file");
    EXPECT_EQ(promised(15625, 16001), "too large: 15625 x 16001 pixels, at most 250000000 can be processed");
    EXPECT_EQ(promised(15626, 16000), "too large: 15626 x 16000 pixels, at most 250000000 can be processed");
}

TEST(Hostile, EnormousPicturesAreRefused) {
    const std::string most = std::to_string(codec::largest_area);
    EXPECT_EQ(error_of(png_header(900000, 900000, 8, png_rgba, 0) + png_chunk("IDAT", "")),
              "too large: 900000 x 900000 pixels, at most " + most + " can be processed");
    EXPECT_NE(error_of(png_header(0x7fffffff, 0x7fffffff, 8, png_rgba, 0) + png_chunk("IDAT", "")), "no error");
    EXPECT_NE(error_of(png_header(0, 5, 8, png_rgb, 0) + png_chunk("IDAT", "")), "no error");
    std::string jpeg = jpeg_file({}, mixed);
    const size_t frame = jpeg.find("\xff\xc0");
    jpeg.replace(frame + 5, 4, "\xff\xdc\xff\xdc");
    EXPECT_EQ(error_of(jpeg), "too large: 65500 x 65500 pixels, at most " + most + " can be processed");
}

TEST(Hostile, APromiseOfManyPixelsCostsNothing) {
    EXPECT_EQ(error_of(png_header(16000, 15000, 8, png_rgba, 1) + png_chunk("IDAT", "")), "truncated PNG file");
}

// The first of two scans is final, so that its repetitions are valid and only cost time.
std::string with_repeated_scan(int times) {
    const std::string file = jpeg_file({.colour = JpegColour::gray, .two_scans = true}, mixed);
    const size_t begin = file.find("\xff\xda");
    const size_t end = file.find("\xff\xc4", begin);
    std::string repeated = file.substr(0, end);
    for (int i = 0; i < times; ++i) {
        repeated += file.substr(begin, end - begin);
    }
    return repeated + file.substr(end);
}

TEST(Hostile, ManyScansAreRefused) {
    EXPECT_EQ(error_of(with_repeated_scan(498)), "no error"); // beside the two of the picture
    EXPECT_EQ(error_of(with_repeated_scan(499)), "too many scans");
    EXPECT_EQ(error_of(with_repeated_scan(600)), "too many scans");
}

TEST(JpegReader, ReportsBytesThatDoNotBelong) {
    std::string file = jpeg_file({}, mixed);
    file.insert(file.size() - 2, std::string(40, '\1'));
    const Notices notices = notices_of(file);
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_NE(notices[0].find("extraneous bytes"), std::string::npos);
}

// A header of a later version is read as far as it is understood.
TEST(JpegReader, ReportsAHeaderOfAnotherVersion) {
    std::string file = jpeg_file({.density_unit = 1, .density_x = 300, .density_y = 200}, mixed);
    const std::vector<uint8_t> expected = jpeg_pixels(file).bytes;
    file[file.find(std::string("JFIF\0", 5)) + 5] = '\2';
    const Notices notices = notices_of(file);
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_NE(notices[0].find("JFIF revision"), std::string::npos) << notices[0];
    EXPECT_EQ(pixels_of(decoded(file)), expected);
}

TEST(JpegReader, ReportsAnUnknownTransformOfColours) {
    std::string file = jpeg_file({.colour = JpegColour::rgb}, mixed);
    const size_t mark = file.find("Adobe");
    ASSERT_NE(mark, std::string::npos);
    file[mark + 11] = '\7';
    const Notices notices = notices_of(file);
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_NE(notices[0].find("color transform code 7"), std::string::npos) << notices[0];
}

TEST(JpegReader, IgnoresWhatStandsBehindThePicture) {
    const std::string file = jpeg_file({}, mixed);
    EXPECT_EQ(pixels_of(decoded(file + "another picture")), jpeg_pixels(file).bytes);
}

} // namespace
