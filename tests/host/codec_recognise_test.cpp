// Files that are not pictures, or not in a format that the codec reads: the error names what each is.
#include <gtest/gtest.h>

#include "codec_files.h"
#include "tiff_files.h"
#include "webp_files.h"

namespace {

using namespace ko_test;
using codec::Format;

TEST(Recognise, DistinguishesFormatsByContent) {
    EXPECT_EQ(codec::recognise(bytes_of(tiff_file({}, mixed))), Format::tiff);
    EXPECT_EQ(codec::recognise(bytes_of(webp_file({}, mixed))), Format::webp);
    for (const std::string &mark :
         {std::string("II*\0", 4), std::string("MM\0*", 4), std::string("II+\0", 4), std::string("MM\0+", 4)}) {
        EXPECT_EQ(codec::recognise(bytes_of(mark)), Format::tiff);
        EXPECT_EQ(codec::recognise(bytes_of(mark.substr(0, 3))), std::nullopt);
    }
    EXPECT_EQ(codec::recognise(bytes_of("RIFF....WEBP")), Format::webp);
    EXPECT_EQ(codec::recognise(bytes_of("RIFF....WEB")), std::nullopt);
    EXPECT_EQ(codec::recognise(bytes_of("RIFF....WAVE")), std::nullopt);
    EXPECT_STREQ(codec::name(Format::tiff), "TIFF");
    EXPECT_STREQ(codec::name(Format::webp), "WebP");
}

// The beginning of a file, followed by zeros.
std::string file_of(const std::string &beginning) { return beginning + std::string(600, '\0'); }

TEST(Recognise, NamesWhatCannotBeRead) {
    const std::vector<std::pair<std::string, std::string>> files = {
        {"GIF89a", "a GIF file"},
        {"GIF87a", "a GIF file"},
        {std::string("BM\x36\0\0\0\0\0\0\0\x36\0\0\0\x28\0\0\0", 18), "a BMP file"},
        {"%PDF-1.7", "a PDF file"},
        {"8BPS", "a Photoshop file"},
        {std::string("\0\0\0\x0cjP  \r\n\x87\n", 12), "a JPEG 2000 file"},
        {"\xff\x4f\xff\x51", "a JPEG 2000 file"},
        {std::string("\0\0\0\x0cJXL \r\n\x87\n", 12), "a JPEG XL file"},
        {"\xff\x0a", "a JPEG XL file"},
        {std::string("II*\0\x10\0\0\0CR\2\0", 12), "a camera raw file"},
        {"FUJIFILMCCD-RAW 0201", "a camera raw file"},
        {std::string("IIU\0", 4), "a camera raw file"},
        {"IIRO", "a camera raw file"},
        {std::string("\0\0\0\x18"
                     "ftypcrx \0\0\0\1crx isom",
                     24),
         "a camera raw file"},
        {std::string("\0\0\0\x18"
                     "ftypmp42\0\0\0\0isommp42",
                     24),
         "a video"},
        {std::string("\0\0\0\x14"
                     "ftypqt  \0\0\0\0qt  ",
                     20),
         "a video"},
        {std::string("\0\0\x10\0moov", 8), "a video"},
        {"\x1a\x45\xdf\xa3", "a video"},
        {std::string("RIFF\0\0\0\0AVI ", 12), "a video"},
        {std::string("PK\3\4", 4), "a ZIP archive"}};
    for (const auto &[beginning, name] : files) {
        EXPECT_EQ(error_of(file_of(beginning)), name + ", which cannot be read");
    }
}

TEST(Recognise, NamesTexts) {
    EXPECT_EQ(error_of("just a text"), "a text file, not a picture");
    EXPECT_EQ(error_of("Gr\xc3\xbc\xc3\x9f"
                       "e\n\t\r\n"),
              "a text file, not a picture");
    EXPECT_EQ(error_of("My best AVI files"), "a text file, not a picture");
    EXPECT_EQ(error_of("BM is a brand"), "a text file, not a picture");
    EXPECT_EQ(error_of("<?xml version=\"1.0\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\"/>"),
              "an SVG file, which cannot be read");
    EXPECT_EQ(error_of("<?xml version=\"1.0\"?>\n<html/>"), "a text file, not a picture");
    EXPECT_EQ(error_of(""), "the file is empty");
}

TEST(Recognise, SaysSoIfTheFormatIsUnknown) {
    EXPECT_EQ(error_of(file_of("")), "not in a format that ko can read");
    EXPECT_EQ(error_of(file_of("BM")), "not in a format that ko can read") << "no such header";
    EXPECT_EQ(error_of(file_of("RIFF....WAVE")), "not in a format that ko can read");
    EXPECT_EQ(error_of("\x89PNG"), "a text file, not a picture");
    EXPECT_EQ(error_of(std::string("\x89PNG\r\n\x1a", 7)), "not in a format that ko can read");
}

// Brands are looked for only within their box, and the version among them is not a brand.
TEST(Recognise, ReadsBrandsInTheirBox) {
    const auto boxes = [](char size, const std::string &brands) {
        return file_of(std::string("\0\0\0", 3) + size + "ftyp" + brands);
    };
    EXPECT_EQ(error_of(boxes(16, "isomheicheic")), "a video, which cannot be read");
    EXPECT_EQ(error_of(boxes(20, "isom....crx ")), "a camera raw file, which cannot be read");
    EXPECT_EQ(error_of(boxes(0, "isom")), "a video, which cannot be read");
    EXPECT_EQ(error_of(boxes('\xff', "isom")), "a video, which cannot be read");
    EXPECT_EQ(error_of(std::string("\0\0\0\x14"
                                   "ftypis",
                                   10)),
              "not in a format that ko can read");
}

} // namespace
