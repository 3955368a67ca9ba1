// HEIC and AVIF files through the codec, which reads them and does not write them.
#include <algorithm>

#include <gtest/gtest.h>
#include <lcms2.h>

#include "capture.h"
#include "codec_files.h"
#include "heif_files.h"
#include "heif_stored.h"

namespace {

using namespace ko_test;
using codec::Format;
using codec::Notices;
using codec::Picture;

// What the encoders and the conversion to luminance and back may change.
constexpr int tolerance = 5;

uint32_t smooth(uint32_t x, uint32_t y, uint32_t c) { return c == 3 ? 55 + x * 3 : 30 + x * 2 + y + c * 20; }

class Heif : public testing::TestWithParam<HeifKind> {
  protected:
    void SetUp() override {
        if (!can_encode(GetParam())) {
            GTEST_SKIP() << "libheif has no encoder here for the files that this test reads";
        }
    }

    HeifRecipe recipe() const { return {.kind = GetParam()}; }
};

TEST(HeifReader, ReadsFilesMadeElsewhere) {
    for (const std::string &file : {stored_heic(), stored_avif()}) {
        EXPECT_EQ(codec::recognise(bytes_of(file)), Format::heif);
        Notices notices;
        const Picture picture = codec::decode(bytes_of(file), notices);
        EXPECT_EQ(notices, Notices{});
        EXPECT_EQ(picture.format, Format::heif);
        EXPECT_EQ(picture.width, 64u);
        EXPECT_EQ(picture.height, 48u);
        ASSERT_EQ(picture.channels, 3u);
        EXPECT_EQ(picture.alpha, nullptr);
        EXPECT_LE(farthest(pixels_of(picture), samples(64, 48, 0, 2, stored_colour)), tolerance);
        ASSERT_EQ(picture.metadata.exif.size(), 26u);
        EXPECT_EQ(picture.metadata.exif[18] << 8 | picture.metadata.exif[19], 1) << "the orientation was applied";
    }
}

TEST(HeifReader, GivesTheRowsInPortions) {
    for (const std::string &file : {stored_heic(), stored_avif()}) {
        codec::MemoryInput input(bytes_of(file));
        const auto reader = codec::open(input);
        std::vector<uint8_t> pixels(64 * 48 * 3);
        for (uint32_t row = 0; row < 48; row += 4) {
            reader->read(4, pixels.data() + row * 192, nullptr);
        }
        EXPECT_EQ(pixels, pixels_of(decoded(file)));
    }
}

TEST(HeifReader, ReducesDeepPictures) {
    const std::string file = stored_deep_avif();
    EXPECT_LE(farthest(pixels_of(decoded(file)), samples(64, 48, 0, 2, stored_colour)), tolerance);
    EXPECT_EQ(notices_of(file), Notices{"12 bits per channel reduced to 8"});
}

TEST(HeifReader, CarriesExifAndXmp) {
    const std::string file = stored_avif_with_xmp();
    const Picture picture = decoded(file);
    EXPECT_EQ(text_of(picture.metadata.xmp), "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>");
    EXPECT_EQ(picture.metadata.exif.size(), 26u);
    EXPECT_EQ(notices_of(file), Notices{});
    EXPECT_TRUE(decoded(stored_avif()).metadata.xmp.empty());
    std::string other = file;
    other.replace(other.find("application/rdf+xml"), 19, "application/rdf+xyz");
    EXPECT_TRUE(decoded(other).metadata.xmp.empty());
}

TEST(HeifReader, IsAllThatThereIs) {
    EXPECT_FALSE(codec::is_written(Format::heif));
    EXPECT_TRUE(codec::is_written(Format::webp));
    EXPECT_STREQ(codec::name(Format::heif), "HEIF");
    try {
        encoded(picture_of(8, 8, 3, false, mixed), Format::heif);
        FAIL() << "written";
    } catch (const codec::Error &error) {
        EXPECT_STREQ(error.what(), "HEIF files are only read");
    }
}

TEST_P(Heif, GivesPixelsAndAlpha) {
    for (const bool alpha : {false, true}) {
        HeifRecipe with = recipe();
        with.alpha = alpha;
        const Picture picture = decoded(heif_file(with, smooth));
        ASSERT_EQ(picture.channels, 3u);
        EXPECT_LE(farthest(pixels_of(picture), samples(64, 48, 0, 2, smooth)), tolerance);
        ASSERT_EQ(picture.has_alpha, alpha);
        if (alpha) {
            EXPECT_LE(farthest(alpha_of(picture), samples(64, 48, 3, 3, smooth)), tolerance);
        }
    }
}

TEST_P(Heif, GivesTheRowsInPortionsWithoutAlpha) {
    HeifRecipe with = recipe();
    with.alpha = true;
    const std::string file = heif_file(with, smooth);
    codec::MemoryInput input(bytes_of(file));
    const auto reader = codec::open(input);
    std::vector<uint8_t> pixels(64 * 48 * 3);
    for (uint32_t row = 0; row < 48; row += 4) {
        reader->read(4, pixels.data() + row * 192, nullptr);
    }
    EXPECT_EQ(pixels, pixels_of(decoded(file)));
}

// A picture whose file specifies a rotation is delivered rotated.
TEST_P(Heif, ComesUpright) {
    HeifRecipe with = recipe();
    with.orientation = 6;
    const Picture quarter = decoded(heif_file(with, smooth));
    ASSERT_EQ(quarter.width, 48u);
    ASSERT_EQ(quarter.height, 64u);
    const Sample turned = [](uint32_t x, uint32_t y, uint32_t c) { return smooth(y, 47 - x, c); };
    EXPECT_LE(farthest(pixels_of(quarter), samples(48, 64, 0, 2, turned)), tolerance);
    with.orientation = 3;
    const Sample half = [](uint32_t x, uint32_t y, uint32_t c) { return smooth(63 - x, 47 - y, c); };
    EXPECT_LE(farthest(pixels_of(decoded(heif_file(with, smooth))), samples(64, 48, 0, 2, half)), tolerance);
}

TEST_P(Heif, CarriesExif) {
    HeifRecipe with = recipe();
    with.exif = exif_block(301);
    const std::string file = heif_file(with, smooth);
    EXPECT_EQ(text_of(decoded(file).metadata.exif), with.exif);
    EXPECT_EQ(jpeg_segment(through(file, Format::jpeg), 0xe1), std::string("Exif\0\0", 6) + with.exif);
    EXPECT_TRUE(decoded(heif_file(recipe(), smooth)).metadata.exif.empty());
}

TEST_P(Heif, CarriesXmp) {
    HeifRecipe with = recipe();
    for (const size_t size : {40u, 70'000u}) {
        with.xmp = "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>" + std::string(size, ' ');
        for (const std::string &exif : {std::string(), exif_block(301)}) {
            with.exif = exif;
            const std::string file = heif_file(with, smooth);
            const Picture picture = decoded(file);
            EXPECT_EQ(text_of(picture.metadata.xmp), with.xmp);
            EXPECT_EQ(text_of(picture.metadata.exif), exif);
            EXPECT_EQ(notices_of(file), Notices{});
        }
    }
    EXPECT_TRUE(decoded(heif_file(recipe(), smooth)).metadata.xmp.empty());
}

TEST_P(Heif, TakesNoOtherTextForXmp) {
    HeifRecipe with = recipe();
    with.xmp = "Just a text";
    for (const std::string type : {"text/plain", "application/rdf", "application/rdf+xml2", "x"}) {
        with.xmp_type = type;
        EXPECT_TRUE(decoded(heif_file(with, smooth)).metadata.xmp.empty()) << type;
    }
}

TEST_P(Heif, CarriesProfiles) {
    HeifRecipe with = recipe();
    with.profile = icc_profile("RGB ", 500);
    EXPECT_EQ(text_of(decoded(heif_file(with, smooth)).metadata.icc_profile), with.profile);
}

// Red of a profile as lcms sees it, in the colours of sRGB.
std::array<double, 3> red_of(const codec::Bytes &profile) {
    const cmsHPROFILE from = cmsOpenProfileFromMem(profile.data(), static_cast<cmsUInt32Number>(profile.size()));
    const cmsHPROFILE to = cmsCreate_sRGBProfile();
    const cmsHTRANSFORM transform = cmsCreateTransform(from, TYPE_RGB_DBL, to, TYPE_RGB_DBL, INTENT_RELATIVE_COLORIMETRIC, 0);
    const std::array<double, 3> red = {1.0, 0.0, 0.0};
    std::array<double, 3> result{};
    cmsDoTransform(transform, red.data(), result.data(), 1);
    cmsDeleteTransform(transform);
    cmsCloseProfile(to);
    cmsCloseProfile(from);
    return result;
}

TEST_P(Heif, TurnsNamedColoursIntoAProfile) {
    HeifRecipe with = recipe();
    with.primaries = 1;
    EXPECT_TRUE(decoded(heif_file(with, smooth)).metadata.icc_profile.empty()) << "those of sRGB";
    with.primaries = 12; // of wide-gamut screens
    const Picture wide = decoded(heif_file(with, smooth));
    ASSERT_FALSE(wide.metadata.icc_profile.empty());
    const std::array<double, 3> red = red_of(wide.metadata.icc_profile);
    EXPECT_GT(red[0], 1.05) << "more than sRGB has";
    EXPECT_LT(red[1], 0.0);
    with.primaries = 1;
    with.curve = 8; // none
    EXPECT_FALSE(decoded(heif_file(with, smooth)).metadata.icc_profile.empty());
}

TEST_P(Heif, ReportsAHighRange) {
    HeifRecipe with = recipe();
    with.primaries = 9;
    for (const int curve : {16, 18}) {
        with.curve = curve;
        const std::string file = heif_file(with, smooth);
        EXPECT_EQ(notices_of(file), Notices{"the colours are coded for a high dynamic range and look flat on other screens"});
        EXPECT_TRUE(decoded(file).metadata.icc_profile.empty());
    }
}

TEST_P(Heif, DividesColoursByAlpha) {
    HeifRecipe with = recipe();
    with.alpha = true;
    with.multiplied = true;
    const Sample sample = [](uint32_t, uint32_t y, uint32_t c) { return c == 3 ? (y < 24 ? 128u : 255u) : 20 + c * 40; };
    const std::string file = heif_file(with, sample);
    const Notices notices = notices_of(file);
    ASSERT_EQ(notices, Notices{"colours that were multiplied by alpha are divided by it"});
    const Sample expected = [&](uint32_t x, uint32_t y, uint32_t c) { return sample(x, y, c) * (y < 24 ? 2 : 1); };
    EXPECT_LE(farthest(pixels_of(decoded(file)), samples(64, 48, 0, 2, expected)), 2 * tolerance);
}

TEST_P(Heif, ReportsFurtherPictures) {
    HeifRecipe with = recipe();
    with.pictures = 3;
    EXPECT_EQ(notices_of(heif_file(with, smooth)), Notices{"2 further pictures in the file are left out"});
}

class DeepHeic : public Heif {};

// libheif 1.15 leads the encoder of deep AVIF files astray.
TEST_P(DeepHeic, IsReduced) {
    for (const int bits : {10, 12}) {
        HeifRecipe with = recipe();
        with.bits = bits;
        const std::string file = heif_file(with, [bits](auto x, auto y, auto c) { return smooth(x, y, c) << (bits - 8); });
        EXPECT_LE(farthest(pixels_of(decoded(file)), samples(64, 48, 0, 2, smooth)), tolerance);
        EXPECT_EQ(notices_of(file), Notices{std::to_string(bits) + " bits per channel reduced to 8"});
    }
}

const auto name_of_kind = [](const auto &test) { return std::string(test.param == HeifKind::heic ? "heic" : "avif"); };

INSTANTIATE_TEST_SUITE_P(Codec, DeepHeic, testing::Values(HeifKind::heic), name_of_kind);
INSTANTIATE_TEST_SUITE_P(Codec, Heif, testing::Values(HeifKind::heic, HeifKind::avif), name_of_kind);

TEST(HeifDamage, TruncatedFilesAreErrors) {
    for (const std::string &file : {stored_heic(), stored_avif()}) {
        expect_every_truncation_fails(file);
        EXPECT_EQ(error_of(file.substr(0, file.size() - 1)), "truncated HEIF file");
    }
}

TEST(HeifDamage, NeverCrashes) { EXPECT_GT(refused_of_damaged({stored_heic(), stored_avif()}, 2000, false), 500); }

// Each byte of the boxes, in which every number is a size, a place or a count.
TEST(HeifDamage, NoNumberIsTrusted) {
    StderrCapture capture; // the decoders below libheif write there
    for (const std::string &file : {stored_heic(), stored_avif()}) {
        for (size_t place = 0; place < 420; ++place) {
            for (const char value : {'\0', '\x7f', '\xff'}) {
                std::string damaged = file;
                damaged[place] = value;
                EXPECT_EQ(error_of(damaged).find('\n'), std::string::npos) << "one line";
            }
        }
    }
}

TEST(HeifHostile, EnormousPicturesAreRefused) {
    std::string file = stored_avif();
    const size_t size = file.find("ispe") + 8;
    file.replace(size, 8, std::string("\0\0\x7d\0\0\0\x7d\0", 8));
    EXPECT_EQ(error_of(file), "too large: 32000 x 32000 pixels, at most 250000000 can be processed");
    file.replace(size, 8, std::string("\0\0\0\0\0\0\0\0", 8));
    EXPECT_NE(error_of(file), "no error");
    file.replace(size, 8, std::string("\0\0\0\x60\0\0\0\x60", 8));
    EXPECT_NE(error_of(file), "no error") << "not what is coded";
}

TEST(HeifStreams, FailuresAreReported) {
    for (const std::string &file : {stored_heic(), stored_avif()}) {
        expect_input_failures(file);
    }
}

} // namespace
