// Files that are missing, cut off, damaged or enormous: each ends in a status, and the image stays as it was.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "koio_test.h"

namespace {

using namespace ko_test;

class KoioHostile : public KoioTest {
  protected:
    // Both families refuse the file with this status; chain is what the library then says.
    void expect_refusal(const std::string &name, int32_t status, const std::string &chain, const char *format = nullptr) const {
        const RealImagePtr image = old_image();
        const ColorImagePtr color = old_color_image(KO_COLORSPACE_YIQ);
        const std::vector<float> before = all_pixels(color.get());
        KoStatusClear();
        EXPECT_EQ(KoRealImageLoad(image.get(), name.c_str(), format), status);
        expect_status(status, chain);
        KoStatusClear();
        EXPECT_EQ(KoColorImageLoad(color.get(), name.c_str(), format), status);
        expect_status(status, chain);
        KoStatusClear();
        EXPECT_EQ(pixels(image.get()), (std::vector<float>{7.0f, 8.0f}));
        EXPECT_EQ(all_pixels(color.get()), before);
        EXPECT_EQ(color->color_space, KO_COLORSPACE_YIQ);
    }

    void expect_invalid(const std::string &name, const std::string &format, const std::string &reason) const {
        expect_refusal(name, KO_ERR_INVALID_IMAGE_FILE,
                       "[ERROR] File \"" + name + "\" does not contain a valid " + format + " image\n-> " + reason);
    }

    static int32_t load(const std::string &name) {
        KoStatusClear();
        const RealImagePtr image = old_image();
        const int32_t status = KoRealImageLoad(image.get(), name.c_str(), nullptr);
        EXPECT_EQ(KoErrorGetLastError(), status);
        return status;
    }
};

TEST_F(KoioHostile, FilesThatCannotBeRead) {
    const std::string missing = path("missing.png");
    expect_refusal(missing, KO_ERR_OPEN_READ,
                   "[ERROR] Cannot open file \"" + missing + "\" for reading\n-> No such file or directory");
    expect_refusal(path(), KO_ERR_READ_FILE, "[ERROR] Cannot read file \"" + path() + "\"\n-> is a directory", "png");
    expect_refusal(path(), KO_ERR_READ_FILE, "[ERROR] Cannot read file \"" + path() + "\"\n-> is a directory", "jpeg");
    expect_refusal("", KO_ERR_OPEN_READ, "[ERROR] Cannot open file \"\" for reading\n-> No such file or directory", "png");
    const std::string pipe = path("pipe.png");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    expect_refusal(pipe, KO_ERR_READ_FILE, "[ERROR] Cannot read file \"" + pipe + "\"\n-> illegal seek");
}

TEST_F(KoioHostile, FilesOfAnotherKind) {
    expect_invalid(file("text.png", "1,2\n3,4\n"), "PNG", "not a PNG file");
    expect_invalid(file("empty.png", ""), "PNG", "truncated PNG file");
    expect_invalid(file("text.jpg", "1,2\n3,4\n"), "JPEG", "not a JPEG file: starts with 0x31 0x2c");
    expect_refusal("/dev/zero", KO_ERR_INVALID_IMAGE_FILE,
                   "[ERROR] File \"/dev/zero\" does not contain a valid PNG image\n-> not a PNG file", "png");
    EXPECT_EQ(load(file("empty.jpg", "")), KO_ERR_INVALID_IMAGE_FILE);
    EXPECT_EQ(load(file("two.jpg", jpeg_file({.colour = JpegColour::two_unknown}, mixed))), KO_ERR_INVALID_IMAGE_FILE);
}

// Small files of every kind.
std::vector<std::pair<std::string, std::string>> small_files() {
    const PngRecipe plain{.width = 9, .height = 7, .colour = png_rgb};
    PngRecipe interlaced{.width = 9, .height = 7, .colour = png_rgba, .interlaced = true};
    interlaced.after = {{"tEXt", std::string("Title\0a", 7)}};
    return {{"plain.png", png_file(plain, mixed)},
            {"interlaced.png", png_file(interlaced, mixed)},
            {"deep.png", png_file({.width = 5, .height = 4, .depth = 16, .colour = png_gray_alpha}, mixed_at(16))},
            {"baseline.jpg", jpeg_file({.width = 17, .height = 9, .sampling_x = 2, .sampling_y = 2}, mixed)},
            {"progressive.jpg", jpeg_file({.width = 17, .height = 9, .progressive = true}, mixed)}};
}

TEST_F(KoioHostile, EveryTruncationIsRefused) {
    for (const auto &[name, bytes] : small_files()) {
        EXPECT_EQ(load(file(name, bytes)), KO_OK) << name;
        for (size_t size = 0; size < bytes.size(); ++size) {
            EXPECT_EQ(load(file(name, bytes.substr(0, size))), KO_ERR_INVALID_IMAGE_FILE) << name << ": " << size;
        }
    }
}

TEST_F(KoioHostile, DamagedFilesAreReadOrRefused) {
    std::vector<std::pair<std::string, std::string>> sources = small_files();
    sources.emplace_back("cmyk.jpg", cmyk_file({255, 0, 0, 0}, cmyk_profile()));
    Noise noise(11);
    int refused = 0;
    constexpr int rounds = 400;
    for (int round = 0; round < rounds; ++round) {
        auto [name, bytes] = sources[noise.next() % sources.size()];
        for (uint32_t flips = noise.next() % 4 + 1; flips > 0; --flips) {
            bytes[noise.next() % bytes.size()] = static_cast<char>(noise.byte());
        }
        const int32_t status = load(file(name, bytes));
        EXPECT_TRUE(status == KO_OK || status == KO_ERR_INVALID_IMAGE_FILE || status == KO_ERR_ALLOC) << status;
        refused += status != KO_OK;
    }
    EXPECT_GT(refused, rounds / 4);
    EXPECT_LT(refused, rounds);
}

// A JPEG file whose header claims another size.
std::string jpeg_claiming(uint32_t width, uint32_t height, bool progressive) {
    std::string file = jpeg_file({.width = 17, .height = 9, .progressive = progressive}, mixed);
    const size_t header = file.find(progressive ? "\xff\xc2" : "\xff\xc0") + 5;
    return file.replace(header, 4, big_endian(height << 16 | width));
}

TEST_F(KoioHostile, MonstrousHeadersAreRefused) {
    const std::string rows = png_chunk("IDAT", deflated(std::string(1000, '\0'))) + png_chunk("IEND", "");
    const std::string reason = "too large: 60000 x 60000 pixels, at most 250000000 can be processed";
    for (const int interlace : {0, 1}) {
        expect_invalid(file("large.png", png_header(60000, 60000, 8, png_rgb, interlace) + rows), "PNG", reason);
    }
    for (const bool progressive : {false, true}) {
        expect_invalid(file("large.jpg", jpeg_claiming(60000, 60000, progressive)), "JPEG", reason);
    }
    expect_invalid(file("wide.png", png_header(0x7fffffff, 1, 8, png_gray, 0) + rows), "PNG", "invalid IHDR data");
    EXPECT_EQ(load(file("none.png", png_header(0, 5, 8, png_gray, 0) + rows)), KO_ERR_INVALID_IMAGE_FILE);
    EXPECT_EQ(load(file("none.jpg", jpeg_claiming(0, 9, false))), KO_ERR_INVALID_IMAGE_FILE);
}

// A size that is permitted, with hardly any bytes behind it: memory may be short, and the rows are.
TEST_F(KoioHostile, LargeHeadersOfShortFilesAreRefused) {
    const std::string rows = png_chunk("IDAT", deflated(std::string(1000, '\0'))) + png_chunk("IEND", "");
    const auto refused = [](int32_t status) { return status == KO_ERR_INVALID_IMAGE_FILE || status == KO_ERR_ALLOC; };
    const StderrCapture swallowed; // the allocator's line
    EXPECT_TRUE(refused(load(file("large.png", png_header(6000, 6000, 8, png_gray, 0) + rows))));
    EXPECT_TRUE(refused(load(file("deep.png", png_header(5000, 5000, 16, png_rgba, 0) + rows))));
    EXPECT_TRUE(refused(load(file("tall.png", png_header(1, 1000000, 8, png_gray, 0) + rows))));
    EXPECT_TRUE(refused(load(file("large.jpg", jpeg_claiming(6000, 6000, false)))));
}

} // namespace
