// WebP files through the codec: lossless and lossy, what is carried, and hostile ones.
#include <algorithm>

#include <gtest/gtest.h>

#include "codec_files.h"
#include "pictures.h"
#include "tiff_directories.h"
#include "webp_files.h"

namespace {

using namespace ko_test;
using codec::Format;
using codec::Notices;
using codec::Picture;

std::string exif_prefix() { return std::string("Exif\0\0", 6); }

TEST(WebpReader, GivesThePixelsOfEveryKind) {
    for (const bool lossless : {false, true}) {
        for (const bool alpha : {false, true}) {
            const std::string file = webp_file({.alpha = alpha, .lossless = lossless}, soft);
            Notices notices;
            const Picture picture = codec::decode(bytes_of(file), notices);
            EXPECT_EQ(notices, Notices{});
            EXPECT_EQ(picture.format, Format::webp);
            EXPECT_EQ(picture.width, 24u);
            EXPECT_EQ(picture.height, 20u);
            ASSERT_EQ(picture.channels, 3u);
            EXPECT_EQ(picture.lossless, lossless);
            EXPECT_EQ(pixels_of(picture), samples(24, 20, 0, 2, [decoded = webp_pixels(file, false)](auto x, auto y, auto c) {
                          return decoded.bytes[(y * 24 + x) * 3 + c];
                      }));
            if (lossless) {
                EXPECT_EQ(pixels_of(picture), samples(24, 20, 0, 2, soft));
            }
            EXPECT_EQ(alpha_of(picture), alpha ? samples(24, 20, 3, 3, soft) : std::vector<uint8_t>());
        }
    }
}

TEST(WebpReader, GivesTheRowsInPortions) {
    const std::string file = webp_file({.alpha = true}, mixed);
    codec::MemoryInput input(bytes_of(file));
    const auto reader = codec::open(input);
    std::vector<uint8_t> pixels(24 * 20 * 3);
    for (uint32_t row = 0; row < 20; row += 5) {
        reader->read(5, pixels.data() + row * 72, nullptr);
    }
    EXPECT_EQ(pixels, samples(24, 20, 0, 2, mixed));
}

TEST(WebpReader, RefusesAnimations) { EXPECT_EQ(error_of(webp_animation()), "an animated WebP file"); }

TEST(WebpReader, TakesTheMarkOffExif) {
    const std::string exif = exif_block(100);
    for (const std::string &stored : {exif, exif_prefix() + exif}) {
        EXPECT_EQ(text_of(decoded(webp_file({.chunks = {{"EXIF", stored}}}, mixed)).metadata.exif), exif);
    }
    const std::string cut = exif_prefix().substr(0, 5);
    EXPECT_EQ(text_of(decoded(webp_file({.chunks = {{"EXIF", cut}}}, mixed)).metadata.exif), cut) << "not the mark";
}

TEST(WebpWriter, LosslessStaysLossless) {
    for (const bool alpha : {false, true}) {
        const std::string file = webp_file({.alpha = alpha}, mixed);
        const std::string again = through(file, Format::webp);
        EXPECT_EQ(webp_pixels(again, true), webp_pixels(file, true)) << "where alpha is 0 as well";
        EXPECT_NE(webp_chunk_data(again, "VP8L"), "");
        EXPECT_EQ(webp_chunk_data(again, "VP8X"), "");
    }
}

TEST(WebpWriter, OthersBecomeLossy) {
    const std::string from_png = through(png_file({64, 64, 8, png_rgb, false, {}, {}}, soft), Format::webp);
    EXPECT_NE(webp_chunk_data(from_png, "VP8 "), "");
    const Picture lossy = decoded(webp_file({.lossless = false}, soft));
    EXPECT_NE(webp_chunk_data(encoded(lossy, Format::webp), "VP8 "), "");
    const Picture lossless = decoded(webp_file({}, soft));
    EXPECT_NE(webp_chunk_data(encoded(lossless, Format::webp, 80), "VP8 "), "") << "a quality was asked for";
}

TEST(WebpWriter, HasTheQualityAskedFor) {
    const Picture picture = picture_of(64, 48, 3, false, soft);
    const auto size = [&](std::optional<int> quality) { return encoded(picture, Format::webp, quality).size(); };
    EXPECT_LT(size(10), size(60));
    EXPECT_LT(size(60), size(100));
    EXPECT_EQ(encoded(picture, Format::webp), encoded(picture, Format::webp, codec::default_webp_quality));
    const std::string expected = webp_file({.width = 64, .height = 48, .lossless = false, .quality = 35}, soft);
    EXPECT_EQ(webp_pixels(encoded(picture, Format::webp, 35), false), webp_pixels(expected, false));
}

TEST(WebpWriter, WritesGrayAsColour) {
    Picture picture = picture_of(24, 20, 1, true, mixed);
    picture.lossless = true;
    const Pixels pixels = webp_pixels(encoded(picture, Format::webp), true);
    std::vector<uint8_t> expected;
    for (size_t i = 0; i < picture.area(); ++i) {
        const uint8_t level = picture.pixels[i];
        expected.insert(expected.end(), {level, level, level, picture.alpha[i]});
    }
    EXPECT_EQ(pixels.bytes, expected);
}

TEST(WebpWriter, TakesTheRowsInPortions) {
    Picture picture = picture_of(24, 20, 3, true, mixed);
    picture.lossless = true;
    codec::MemoryOutput output;
    Notices notices;
    const auto writer = codec::create(output, picture, {Format::webp, std::nullopt}, notices);
    for (uint32_t row = 0; row < 20; row += 4) {
        writer->write(4, picture.pixels.get() + row * 72, picture.alpha.get() + row * 24);
    }
    writer->finish(notices);
    EXPECT_EQ(text_of(output.bytes()), encoded(picture, Format::webp));
}

TEST(WebpWriter, RefusesSidesThatTheFormatCannotSay) {
    const auto outcome = [](uint32_t width, uint32_t height) {
        try {
            encoded(picture_of(width, height, 1, false, [](uint32_t, uint32_t, uint32_t) { return 7u; }), Format::webp);
        } catch (const codec::Error &error) {
            return std::string(error.what());
        }
        return std::string("written");
    };
    EXPECT_EQ(outcome(16384, 1), "a WebP file has at most 16383 pixels each way");
    EXPECT_EQ(outcome(1, 16384), "a WebP file has at most 16383 pixels each way");
    EXPECT_EQ(outcome(16383, 1), "written");
    EXPECT_EQ(outcome(1, 16383), "written");
}

TEST(WebpMetadata, SurvivesEverywhere) {
    const std::string exif = exif_block(301);
    const std::string profile = icc_profile("RGB ", 3001);
    for (const bool lossless : {false, true}) {
        const std::string file =
            webp_file({.alpha = true, .lossless = lossless, .chunks = {{"ICCP", profile}, {"EXIF", exif}}}, soft);
        const std::string again = through(file, Format::webp);
        EXPECT_EQ(webp_chunk_data(again, "EXIF"), exif);
        EXPECT_EQ(webp_chunk_data(again, "ICCP"), profile);
        EXPECT_EQ(alpha_of(decoded(again)), samples(24, 20, 3, 3, soft));
        const std::string png = through(file, Format::png);
        EXPECT_EQ(png_chunk_data(png, "eXIf"), exif);
        EXPECT_EQ(webp_chunk_data(through(png, Format::webp), "EXIF"), exif);
        EXPECT_EQ(jpeg_icc_profile(through(file, Format::jpeg)), profile);
    }
}

TEST(WebpMetadata, XmpOfAnySizeIsRead) {
    for (const size_t size : {1u, 12u, 13u, 65'536u, 300'001u}) {
        const std::string xmp(size, 'x');
        for (const bool lossless : {false, true}) {
            const std::string file = webp_file({.lossless = lossless, .chunks = {{"XMP ", xmp}}}, soft);
            Notices notices;
            EXPECT_EQ(text_of(codec::decode(bytes_of(file), notices).metadata.xmp), xmp);
            EXPECT_EQ(notices, Notices{});
        }
    }
}

TEST(WebpMetadata, XmpOfAnySizeIsWritten) {
    for (const size_t size : {1u, 12u, 13u, 65'536u, 300'001u}) {
        const std::string xmp(size, 'x');
        for (const bool lossless : {false, true}) {
            const std::string file = webp_file({.lossless = lossless, .chunks = {{"XMP ", xmp}}}, soft);
            EXPECT_EQ(webp_chunk_data(through(file, Format::webp), "XMP "), xmp);
            EXPECT_EQ(webp_chunk_data(through(through(file, Format::png), Format::webp), "XMP "), xmp);
        }
    }
}

// Chunks have a fixed order, and the header says which of them a file has: readers skip those that it does not name.
TEST(WebpMetadata, IsWhereReadersLookForIt) {
    constexpr uint32_t icc = 0x20;
    constexpr uint32_t alpha = 0x10;
    constexpr uint32_t exif = 0x08;
    constexpr uint32_t xmp = 0x04;
    for (const uint32_t kinds : {icc, exif, xmp, icc | exif, exif | xmp, icc | exif | xmp}) {
        for (const bool transparent : {false, true}) {
            Picture picture = picture_of(24, 20, 3, transparent, mixed);
            picture.lossless = true;
            std::string expected = "VP8X ";
            const auto put = [&](uint32_t kind, codec::Bytes &bytes, const std::string &name) {
                bytes.assign(kinds & kind ? 31 : 0, 'm');
                expected += kinds & kind ? name + " " : "";
            };
            put(icc, picture.metadata.icc_profile, "ICCP");
            expected += "VP8L ";
            put(exif, picture.metadata.exif, "EXIF");
            put(xmp, picture.metadata.xmp, "XMP ");
            const std::string file = encoded(picture, Format::webp);
            EXPECT_EQ(webp_chunk_types(file), expected);
            EXPECT_EQ(static_cast<uint8_t>(webp_chunk_data(file, "VP8X").at(0)), kinds | (transparent ? alpha : 0));
        }
    }
}

TEST(WebpMetadata, ADensityIsNamedUnlessExifDataHasOne) {
    Picture picture = picture_of(6, 4, 3, false, soft);
    picture.metadata.density = codec::Density{codec::Density::Unit::inch, 300, 300};
    const Notices named = {"the density is left out"};
    EXPECT_EQ(encoding_notices(picture, Format::webp), named);
    const auto set_exif = [&](const std::string &exif) { picture.metadata.exif.assign(exif.begin(), exif.end()); };
    set_exif(exif_of_tree({.first = {tiff_text(305, "ko")}}));
    EXPECT_EQ(encoding_notices(picture, Format::webp), named);
    set_exif(exif_of_tree({.first = {tiff_fraction(282, 300, 1), tiff_fraction(283, 300, 1)}}));
    EXPECT_EQ(encoding_notices(picture, Format::webp), Notices());
    set_exif("");
    picture.metadata.density->unit = codec::Density::Unit::none;
    EXPECT_EQ(encoding_notices(picture, Format::webp), Notices());
}

TEST(WebpMetadata, NamesWhatHasNoPlace) {
    Picture picture = picture_of(24, 20, 3, false, mixed);
    const auto notices = [&](const auto &set) {
        picture.metadata = {};
        set(picture.metadata);
        return encoding_notices(picture, Format::webp);
    };
    EXPECT_EQ(notices([](codec::Metadata &metadata) { metadata.comments = {"A comment"}; }),
              Notices{"the comment is left out"});
    EXPECT_EQ(notices([](codec::Metadata &metadata) { metadata.png_texts = {{.keyword = "Author", .text = "Jo"}}; }),
              Notices{"the PNG text 'Author' is left out"});
    EXPECT_EQ(notices([](codec::Metadata &metadata) {
                  metadata.jpeg_segments = {{0xe5, {1, 2}}};
              }),
              Notices{"the JPEG segment APP5 is left out"});
    EXPECT_EQ(notices([](codec::Metadata &metadata) { metadata.png_chunks = {{.name = "sCAL", .bytes = {1}}}; }),
              Notices{"the PNG chunk 'sCAL' is left out"});
    EXPECT_EQ(notices([](codec::Metadata &metadata) { metadata.photoshop.assign(20, 7); }),
              Notices{"the Photoshop image resources are left out"});
    EXPECT_EQ(notices([](codec::Metadata &metadata) { metadata.iptc.assign(20, 0x1c); }), Notices{"the IPTC data is left out"});
}

TEST(WebpMetadata, ReportsThatGammaIsLeftOut) {
    const Picture picture = decoded(png_file({.before = {{"gAMA", big_endian(45455)}}}, mixed));
    EXPECT_EQ(encoding_notices(picture, Format::webp),
              Notices{"a WebP file cannot hold the PNG file's gamma, which is left out"});
    EXPECT_EQ(encoding_notices(decoded(png_file({}, mixed)), Format::webp), Notices{});
}

std::vector<std::string> all_kinds() {
    std::vector<std::string> files;
    for (const bool lossless : {false, true}) {
        for (const bool alpha : {false, true}) {
            files.push_back(webp_file({.alpha = alpha, .lossless = lossless}, mixed));
            files.push_back(
                webp_file({.alpha = alpha,
                           .lossless = lossless,
                           .chunks = {{"ICCP", icc_profile("RGB ", 200)}, {"EXIF", exif_block(41)}, {"XMP ", "<x/>"}}},
                          mixed));
        }
    }
    return files;
}

TEST(WebpDamage, TruncatedFilesAreErrors) {
    for (const std::string &file : all_kinds()) {
        expect_every_truncation_fails(file);
        EXPECT_EQ(error_of(file.substr(0, file.size() - 1)), "truncated WebP file");
        EXPECT_EQ(pixels_of(decoded(file + "something")), pixels_of(decoded(file))) << "behind the container";
    }
}

// The container claims a smaller size, so that the pixels are cut.
TEST(WebpDamage, MissingPixelsAreErrors) {
    for (const bool lossless : {false, true}) {
        const std::string whole = webp_file({.width = 100, .height = 100, .lossless = lossless}, mixed);
        for (size_t size = 12; size + 2 < whole.size(); size += 7) {
            std::string file = whole.substr(0, size);
            const size_t said = size - 8;
            for (size_t i = 0; i < 4; ++i) {
                file[4 + i] = static_cast<char>(said >> (8 * i));
            }
            EXPECT_NE(error_of(file), "no error") << size << " of " << whole.size();
        }
    }
}

TEST(WebpDamage, NeverCrashes) { EXPECT_GT(refused_of_damaged(all_kinds(), 4000), 500); }

TEST(WebpHostile, EnormousPicturesAreRefused) {
    // Fourteen bits for each side less one, after the mark of the lossless form.
    std::string file = webp_file({}, mixed);
    const size_t mark = file.find('\x2f', 20);
    file.replace(mark + 1, 4, std::string("\xff\xff\xff\x0f", 4));
    EXPECT_EQ(error_of(file), "too large: 16384 x 16384 pixels, at most 250000000 can be processed");
    file.replace(mark + 1, 4, std::string("\xff\x3f\x90\x0e", 4)); // 16384 x 14913
    EXPECT_NE(error_of(file), "no error");
}

TEST(WebpStreams, FailuresAreReported) {
    expect_input_failures(webp_file({}, mixed));
    Picture picture = picture_of(24, 20, 3, true, mixed);
    expect_output_failures(picture, Format::webp);
    picture.metadata.icc_profile.assign(300, 7);
    expect_output_failures(picture, Format::webp);
}

// A file of more than one portion of reading.
TEST(WebpStreams, LongFilesAreReadWhole) {
    const std::vector<uint8_t> noise = noise_bytes(900 * 700 * 3, 5);
    const Sample sample = [&](uint32_t x, uint32_t y, uint32_t c) { return noise[(y * 900 + x) * 3 + c]; };
    const std::string file = webp_file({.width = 900, .height = 700, .quality = 0}, sample);
    ASSERT_GT(file.size(), size_t{1} << 20);
    EXPECT_EQ(pixels_of(decoded(file)), noise);
    expect_input_failures(file);
}

} // namespace
