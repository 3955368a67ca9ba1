// How much memory the program uses. A sanitizer keeps memory of its own, so that measuring under one is meaningless.
#include "host.h"
#include "judged_pictures.h"
#include "large_files.h"
#include "tiff_directories.h"

namespace {

using namespace ko_test;

#ifndef __SANITIZE_ADDRESS__

constexpr uint64_t megabyte = 1'000'000;

using Write = void (*)(const std::string &path, uint32_t width, uint32_t height);

class HostMemory : public Host {
  protected:
    // The peak for a picture, which is enhanced.
    uint64_t peak(const std::string &name, const Words &options = {"--force"}) const {
        const std::string output = path("out." + name.substr(name.rfind('.') + 1));
        const Outcome outcome = run_command("enhance", {path(name)}, output, options);
        expect_success(outcome);
        EXPECT_NE(outcome.out.find(", enhanced, "), std::string::npos) << outcome.out;
        return outcome.peak_memory;
    }

    void expect_bounded(Write write, const std::string &name, uint32_t large_width, uint32_t large_height) {
        write(path(name), 3000, 2000);
        const uint64_t small = peak(name);
        write(path(name), large_width, large_height);
        const uint64_t large = peak(name);
        RecordProperty("small", std::to_string(small));
        RecordProperty("large", std::to_string(large));
        EXPECT_LT(small, 110 * megabyte);
        EXPECT_LT(large, 110 * megabyte);
        EXPECT_LT(large, small + 30 * megabyte) << "it grows with the picture";
    }
};

// What follows is meaningless if the system attributes more of this process to its children.
TEST_F(HostMemory, OfThisProcessDoesNotHideThePrograms) {
    put("in.png", dark_png());
    EXPECT_LT(peak("in.png"), 25 * megabyte);
}

TEST_F(HostMemory, OfALargeJpegFileIsThatOfASmallOne) { expect_bounded(write_large_jpeg, "in.jpg", 10'000, 10'000); }

TEST_F(HostMemory, OfALargePngFileIsThatOfASmallOne) { expect_bounded(write_large_png, "in.png", 6000, 4000); }

// Red eyes are searched on a small copy; only a picture that has some is held whole.
TEST_F(HostMemory, OfALargePictureWithoutRedEyesStaysLow) {
    write_large_jpeg(path("in.jpg"), 10'000, 10'000);
    const Outcome outcome = run_command("auto", {path("in.jpg")}, path("out.jpg"), {"--force"});
    expect_success(outcome);
    EXPECT_NE(outcome.out.find(", no red eyes"), std::string::npos) << outcome.out;
    EXPECT_LT(outcome.peak_memory, 110 * megabyte);
}

// Bytes per pixel of pictures whose first row needs the whole file.
TEST_F(HostMemory, OfPicturesThatAreDecodedWholeStaysLow) {
    constexpr uint32_t side = 2400;
    const Sample texture = [](uint32_t x, uint32_t y, uint32_t) { return dark_texture(x / 8, y / 8); };
    put("rgb.jpg", jpeg_file({.width = side, .height = side, .progressive = true}, texture));
    put("rgba.png", png_file({side, side, 8, png_rgba, true, {}, {}}, texture));
    EXPECT_LT(peak("rgb.jpg"), uint64_t{side} * side * 30);
    EXPECT_LT(peak("rgba.png"), uint64_t{side} * side * 30);
}

// Directories that promise far more than a file has, or than is kept: many large values of which all lie on the same bytes, and
// values larger than any file.
TEST_F(HostMemory, OfTiffFilesWithHostileDirectoriesStaysLow) {
    const TiffTreeRecipe recipe{.width = 96, .height = 80};
    put("plain.tif", tiff_of_tree({}, recipe));
    const uint64_t plain = peak("plain.tif");
    constexpr uint64_t large = 4 << 20;
    const Surroundings limited{.address_space = 2'000 * megabyte};
    const std::string room(large, 'x');
    for (const auto member : {&TiffTree::first, &TiffTree::exif, &TiffTree::gps, &TiffTree::interoperability}) {
        for (const uint64_t count : {large / 2, large / 16, uint64_t{UINT32_MAX}}) {
            for (const uint32_t type : {2u, 7u, 10u}) {
                TiffTree tree = {.exif = {tiff_text(36867, "2021:05:04 03:02:01")}};
                for (uint32_t i = 0; i < 2000; ++i) {
                    (tree.*member).push_back({.tag = 50'800 + i, .type = type, .count = count / 8, .offset = 20'000});
                }
                put("in.tif", tiff_of_tree(tree, recipe) + room);
                const Outcome outcome = run_command("enhance", {path("in.tif")}, path("out.tif"), {"--force"}, limited);
                const bool overlaps = member == &TiffTree::first && count < UINT32_MAX;
                EXPECT_EQ(outcome.status, overlaps ? 1 : 0) << outcome.err;
                EXPECT_EQ(outcome.err.find("damaged TIFF file: its values overlap") != std::string::npos, overlaps)
                    << outcome.err;
                EXPECT_LT(outcome.peak_memory, plain + 40 * megabyte) << count << " of type " << type;
            }
        }
    }
}

// The library's planes of a picture that is processed as a whole.
TEST_F(HostMemory, StaysUnderAHundredBytesAPixel) {
    // Large enough to outweigh what this process hands down to its children in the system's account.
    constexpr uint32_t side = 1200;
    constexpr uint64_t area = uint64_t{side} * side;
    const Sample texture = [](uint32_t x, uint32_t y, uint32_t) { return dark_texture(x, y); };
    put("rgba.png", png_file({side, side, 8, png_rgba, true, {}, {}}, texture));
    put("rgb.jpg", jpeg_file({.width = side, .height = side, .progressive = true}, texture));
    constexpr uint64_t planes = area * 30;
    put("empty.png", dark_png());
    EXPECT_LT(peak("empty.png"), planes) << "what is handed down outweighs it";
    for (const std::string name : {"rgba.png", "rgb.jpg"}) {
        for (const std::string policy : {"always", "default"}) {
            const uint64_t most = peak(name, {"--policy", policy, "--working-size", "full"});
            EXPECT_GT(most, planes) << "the account does not show the planes of " << name;
            EXPECT_LT(most, area * 100) << name << " under " << policy;
        }
        EXPECT_LT(run_command("judge", {path(name)}, "", {"--working-size", "full"}).peak_memory, area * 100) << name;
    }
}

#endif

} // namespace
