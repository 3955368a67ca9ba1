// CMYK pictures, JPEG and TIFF, through the codec: they become sRGB by their profile.
#include <algorithm>

#include <gtest/gtest.h>

#include "capture.h"
#include "cmyk_profile.h"
#include "codec_files.h"
#include "tiff_files.h"

namespace {

using namespace ko_test;
using codec::Format;
using codec::Notices;
using codec::Picture;

const Notices converted = {"CMYK converted to sRGB through its profile"};

// Sixteen mixtures of full inks, each in a square of 16 by 16 pixels.
std::array<uint8_t, 4> inks_at(uint32_t x, uint32_t y) {
    const uint32_t mixture = x / 16 + y / 16 * 4;
    std::array<uint8_t, 4> inks;
    for (uint32_t c = 0; c < 4; ++c) {
        inks[c] = (mixture >> c & 1) != 0 ? 255 : 0;
    }
    return inks;
}

uint32_t inks(uint32_t x, uint32_t y, uint32_t c) { return inks_at(x, y)[c]; }
uint32_t inverted(uint32_t x, uint32_t y, uint32_t c) { return 255 - inks(x, y, c); }

std::vector<uint8_t> expected() {
    return samples(64, 64, 0, 2, [](uint32_t x, uint32_t y, uint32_t c) { return rgb_of(inks_at(x, y))[c]; });
}

// The greatest difference from what is expected, away from the edges of the squares, where JPEG blends colours.
int farthest_inside(const Picture &picture) {
    const std::vector<uint8_t> wanted = expected();
    int most = picture.area() * 3 == wanted.size() ? 0 : 256;
    for (size_t i = 0; i < wanted.size() && most < 256; ++i) {
        const size_t x = i / 3 % 64;
        const size_t y = i / 3 / 64;
        if (x % 16 / 4 % 3 != 0 && y % 16 / 4 % 3 != 0) {
            most = std::max(most, std::abs(picture.pixels[i] - wanted[i]));
        }
    }
    return most;
}

JpegRecipe jpeg_recipe(JpegColour colour) {
    JpegRecipe recipe{.width = 64, .height = 64, .colour = colour, .quality = 100};
    recipe.segments = icc_segments(cmyk_profile());
    return recipe;
}

// A file without the segment by which Adobe's programs say that inks are inverted.
std::string without_adobe(std::string file) {
    const size_t segment = file.find("\xff\xee");
    return file.erase(segment, 2 + 14);
}

TEST(CmykJpeg, BecomesSrgb) {
    for (const JpegColour colour : {JpegColour::cmyk, JpegColour::ycck}) {
        for (const bool progressive : {false, true}) {
            JpegRecipe recipe = jpeg_recipe(colour);
            recipe.progressive = progressive;
            const std::string file = jpeg_file(recipe, inverted);
            Notices notices;
            const Picture picture = codec::decode(bytes_of(file), notices);
            EXPECT_EQ(notices, converted);
            ASSERT_EQ(picture.channels, 3u);
            EXPECT_LE(farthest_inside(picture), 4);
            EXPECT_TRUE(picture.metadata.icc_profile.empty()) << "it describes inks";
            EXPECT_FALSE(picture.quantisation.has_value());
        }
    }
}

TEST(CmykJpeg, InksAreInvertedByAdobeAlone) {
    const std::string file = without_adobe(jpeg_file(jpeg_recipe(JpegColour::cmyk), inks));
    EXPECT_LE(farthest(pixels_of(decoded(file)), expected()), 4);
}

TEST(CmykJpeg, IsWrittenAsSrgb) {
    JpegRecipe recipe = jpeg_recipe(JpegColour::ycck);
    recipe.segments.insert(recipe.segments.begin(), {0xe1, std::string("Exif\0\0", 6) + exif_block(40)});
    const std::string file = jpeg_file(recipe, inverted);
    const std::string jpeg = through(file, Format::jpeg);
    EXPECT_EQ(jpeg_icc_profile(jpeg), "");
    EXPECT_EQ(jpeg_segment(jpeg, 0xe1, "Exif"), std::string("Exif\0\0", 6) + exif_block(40));
    EXPECT_LE(farthest_inside(decoded(jpeg)), 20);
    const std::string png = through(file, Format::png);
    EXPECT_EQ(png_chunk_data(png, "sRGB"), std::string(1, '\0'));
    EXPECT_EQ(png_chunk_data(png, "iCCP"), "");
}

TEST(CmykJpeg, IsReducedLikeOthers) {
    const std::string file = jpeg_file(jpeg_recipe(JpegColour::cmyk), inverted);
    codec::MemoryInput input(bytes_of(file));
    const auto reader = codec::open(input, {32, 32});
    ASSERT_EQ(reader->width(), 32u);
    ASSERT_EQ(reader->height(), 32u);
    std::vector<uint8_t> pixels(32 * 32 * 3);
    for (uint32_t row = 0; row < 32; row += 2) {
        reader->read(2, pixels.data() + row * 96, nullptr);
    }
    EXPECT_LE(farthest(pixels, samples(32, 32, 0, 2,
                                       [](uint32_t x, uint32_t y, uint32_t c) { return rgb_of(inks_at(x * 2, y * 2))[c]; })),
              4);
}

std::string with_profile(const std::string &profile) {
    JpegRecipe recipe = jpeg_recipe(JpegColour::cmyk);
    recipe.segments = icc_segments(profile);
    return jpeg_file(recipe, inverted);
}

TEST(CmykJpeg, NeedsAProfile) {
    EXPECT_EQ(error_of(jpeg_file({.colour = JpegColour::cmyk}, mixed)), "a CMYK picture without a colour profile");
    EXPECT_EQ(error_of(with_profile("no profile")), "a CMYK picture whose colour profile cannot be used");
    EXPECT_EQ(error_of(with_profile(icc_profile("RGB ", 300))), "a CMYK picture whose colour profile cannot be used");
    EXPECT_EQ(error_of(with_profile(icc_profile("CMYK", 300))), "a CMYK picture whose colour profile cannot be used")
        << "one without tables";
    EXPECT_EQ(error_of(with_profile(cmyk_profile())), "no error");
}

TEST(CmykTiff, BecomesSrgb) {
    for (const bool apart : {false, true}) {
        for (const int bits : {8, 16}) {
            TiffRecipe recipe{.width = 64, .height = 64, .bits = bits, .kind = PHOTOMETRIC_SEPARATED, .channels = 4};
            recipe.apart = apart;
            recipe.profile = cmyk_profile();
            const std::string file =
                tiff_file(recipe, [bits](auto x, auto y, auto c) { return bits == 16 ? inks(x, y, c) * 257 : inks(x, y, c); });
            const Picture picture = decoded(file);
            ASSERT_EQ(picture.channels, 3u);
            EXPECT_LE(farthest(pixels_of(picture), expected()), 2);
            EXPECT_TRUE(picture.metadata.icc_profile.empty());
            const Notices notices = notices_of(file);
            EXPECT_NE(std::find(notices.begin(), notices.end(), converted[0]), notices.end());
        }
    }
}

TEST(CmykTiff, KeepsAlpha) {
    TiffRecipe recipe{
        .width = 64, .height = 64, .kind = PHOTOMETRIC_SEPARATED, .channels = 5, .extra = {EXTRASAMPLE_UNASSALPHA}};
    recipe.profile = cmyk_profile();
    const Sample sample = [](uint32_t x, uint32_t y, uint32_t c) { return c == 4 ? x + y : inks(x, y, c); };
    const Picture picture = decoded(tiff_file(recipe, sample));
    EXPECT_LE(farthest(pixels_of(picture), expected()), 2);
    EXPECT_EQ(alpha_of(picture), samples(64, 64, 4, 4, sample));
}

TEST(CmykTiff, NeedsAProfile) {
    const TiffRecipe recipe{.kind = PHOTOMETRIC_SEPARATED, .channels = 4};
    EXPECT_EQ(error_of(tiff_file(recipe, mixed)), "a CMYK picture without a colour profile");
}

TEST(CmykDamage, NeverCrashes) {
    JpegRecipe jpeg{.colour = JpegColour::ycck, .segments = icc_segments(cmyk_profile())};
    EXPECT_GT(refused_of_damaged({jpeg_file(jpeg, mixed)}, 60), 0);
    // In the profile itself: everything in it is a number that something is made of.
    const std::string profile = cmyk_profile();
    std::string file = jpeg_file({.colour = JpegColour::cmyk, .segments = icc_segments(profile)}, mixed);
    const size_t begin = file.find("acsp") - 36;
    StderrCapture capture;
    for (size_t place = begin; place < begin + 300; place += 5) {
        std::string damaged = file;
        damaged[place] = static_cast<char>(~damaged[place]);
        error_of(damaged);
    }
    EXPECT_EQ(capture.stop(), "");
}

TEST(CmykStreams, FailuresAreReported) { expect_input_failures(with_profile(cmyk_profile())); }

} // namespace
