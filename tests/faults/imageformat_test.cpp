// Image files when memory runs short.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/imageformat.h"

#include "faults.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

class ImageFormatFaultTest : public LibraryTest {
  protected:
    ImageFormatFaultTest() : folder_("folder") { std::filesystem::create_directory(folder_.path()); }

    // A file in a folder of the test.
    std::string file(const std::string &name, const std::string &text) const {
        write_bytes(path(name), text);
        return path(name);
    }
    std::string path(const std::string &name) const { return folder_.path() + "/" + name; }

  private:
    TemporaryFile folder_;
};

bool struck() { return KoTestFaultStruck() != 0; }

void expect_fault_status(int32_t status) {
    EXPECT_EQ(status, struck() ? KO_ERR_ALLOC : KO_OK);
    EXPECT_EQ(KoErrorGetLastError(), status);
}

// Numbers grow from 1 to 8, and the image has a row table and pixels.
TEST_F(ImageFormatFaultTest, LoadLeavesTheImageAsItWas) {
    const std::string name = file("picture.txt", "1,2,3\n4,5,6\n");
    const std::vector<float> loaded{1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f};
    const RealImagePtr image = make_image(2, 1, {7.0f, 8.0f});
    const int faults = sweep_faults([&] {
        expect_fault_status(KoRealImageLoadTXT(image.get(), name.c_str()));
        EXPECT_EQ(pixels(image.get()), struck() ? (std::vector<float>{7.0f, 8.0f}) : loaded);
    });
    EXPECT_GE(faults, 6);
}

// The growth of the array of numbers is an allocation like any other, late in a long file too.
TEST_F(ImageFormatFaultTest, EveryGrowthMayFail) {
    std::string row = "0";
    for (int i = 1; i < 5000; ++i) {
        row += "," + std::to_string(i);
    }
    const std::string name = file("picture.txt", row + "\n");
    const RealImagePtr image = make_image(1, 1, std::vector<float>{7.0f});
    const int faults = sweep_faults([&] {
        expect_fault_status(KoRealImageLoadTXT(image.get(), name.c_str()));
        EXPECT_EQ(image->width, struck() ? 1u : 5000u);
    });
    EXPECT_GE(faults, 16); // room for 1 to 8192 numbers, row table and pixels
}

TEST_F(ImageFormatFaultTest, SaveNeedsNoMemory) {
    const RealImagePtr image = make_image(2, 1, {7.0f, 8.0f});
    EXPECT_EQ(
        sweep_faults([&] { EXPECT_EQ(KoRealImageSave(image.get(), path("picture.txt").c_str(), nullptr, 1.0f, 0.0f), KO_OK); }),
        0);
    EXPECT_EQ(read_bytes(path("picture.txt")), "7.000000,8.000000\n");
}

// The name of a plane's file is built anew.
TEST_F(ImageFormatFaultTest, ColorSaveNeedsAName) {
    const ColorImagePtr image =
        make_color_image(2, 1, KO_COLORSPACE_RGB, [](uint32_t c, uint64_t, uint64_t) { return static_cast<float>(c); });
    const int faults = sweep_faults(
        [&] { expect_fault_status(KoColorImageSave(image.get(), path("picture.txt").c_str(), nullptr, 1.0f, 0.0f)); });
    EXPECT_GE(faults, 1);
    EXPECT_EQ(read_bytes(path("picture.txt.B")), "2.000000,2.000000\n");
}

void expect_sound(const ColorImage *image) {
    for (uint64_t c = 0; c < image->depth; ++c) {
        const RealImage &plane = image->planes[c];
        EXPECT_EQ(pixels(&plane).size(), plane.width * plane.height);
    }
}

TEST_F(ImageFormatFaultTest, ColorLoadKeepsThePlanesSound) {
    file("picture.txt.R", "1,2\n");
    file("picture.txt.G", "3,4\n");
    file("picture.txt.B", "5,6\n");
    const ColorImagePtr image = make_color_image(2, 1, KO_COLORSPACE_RGB, [](uint32_t, uint64_t, uint64_t) { return 7.0f; });
    const int faults = sweep_faults([&] {
        expect_fault_status(KoColorImageLoad(image.get(), path("picture.txt").c_str(), nullptr));
        EXPECT_EQ(image->depth, 3u);
        expect_sound(image.get());
    });
    EXPECT_GE(faults, 13); // a name, and for each plane two growths, row table and pixels
    EXPECT_EQ(pixels(&image->planes[2]), (std::vector<float>{5.0f, 6.0f}));
}

// The picture turns gray on the way; if that fails, what is left can be freed.
TEST_F(ImageFormatFaultTest, ColorLoadOfAGrayPictureKeepsTheImageSound) {
    const std::string name = file("picture.txt", "1,2\n");
    int loads = 0;
    sweep_faults([&] {
        ColorImage image;
        if (KoColorImageInit(&image, 3, 3, KO_COLORSPACE_RGB) == KO_OK) {
            ++loads;
            KoColorImageClear(&image);
            expect_fault_status(KoColorImageLoad(&image, name.c_str(), nullptr));
            expect_sound(&image);
        }
        KoColorImageFree(&image);
    });
    EXPECT_GE(loads, 6); // a name, planes, two growths, row table and pixels, and the load that succeeds
}

// A report needs memory too: without it the call still says what it has to.
TEST_F(ImageFormatFaultTest, ReportsSurviveShortMemory) {
    const std::string name = file("picture.txt", "1,2");
    const RealImagePtr image = make_image(2, 1, {7.0f, 8.0f});
    const std::string nowhere = path("folder/picture.txt");
    sweep_faults([] { EXPECT_EQ(KoImageFormatNameToType("tiff"), 0); });
    sweep_faults([] { EXPECT_EQ(KoRealImageGetLoadFunction(7), nullptr); });
    sweep_faults([&] { EXPECT_EQ(KoRealImageLoad(image.get(), "picture.tiff", nullptr), KO_ERR_UNKNOWN_FORMAT); });
    sweep_faults([&] { EXPECT_EQ(KoRealImageLoad(image.get(), nowhere.c_str(), nullptr), KO_ERR_OPEN_READ); });
    sweep_faults([&] { EXPECT_EQ(KoRealImageSave(image.get(), nowhere.c_str(), nullptr, 1.0f, 0.0f), KO_ERR_OPEN_WRITE); });
    sweep_faults([&] {
        const int32_t status = KoRealImageLoad(image.get(), name.c_str(), nullptr);
        EXPECT_TRUE(status == KO_ERR_READ_FILE || (struck() && status == KO_ERR_ALLOC)) << status;
    });
}

} // namespace
