// The plug-in when memory runs short: in the library's allocators, and in its own. What was begun is given up without leaks,
// which the count of blocks and a sanitizer check.
#include <functional>

#include <gtest/gtest.h>

#include "faults.h"
#include "faulty_new.h"
#include "koio_test.h"

namespace {

using namespace ko_test;

class KoioFaults : public KoioTest {
  protected:
    std::vector<std::string> names() const {
        const auto sample = mixed;
        PngRecipe interlaced{.width = 40, .height = 30, .colour = png_rgba, .interlaced = true};
        interlaced.after = {{"tEXt", std::string("Title\0a", 7)}};
        return {file("plain.png", png_file({.width = 40, .height = 30, .colour = png_rgb}, sample)),
                file("interlaced.png", png_file(interlaced, sample)),
                file("gray.jpg", jpeg_file({.width = 40, .height = 30, .colour = JpegColour::gray}, sample)),
                file("progressive.jpg", jpeg_file({.width = 40, .height = 30, .progressive = true}, sample)),
                file("cmyk.jpg", cmyk_file({0, 255, 0, 0}, cmyk_profile()))};
    }
};

// Lets each of the library's allocations in a load fail in turn: the image is the picture, or what it was.
template <class Make, class Values, class Load> void expect_load_faults(int fewest, Make make, Values values, Load load) {
    auto image = make();
    const std::vector<float> before = values(image.get());
    bool failed = false;
    const int faults = sweep_faults([&] {
        const int32_t status = load(image.get());
        const bool struck = KoTestFaultStruck() != 0;
        EXPECT_TRUE(status == KO_OK || (status == KO_ERR_ALLOC && struck)) << status;
        EXPECT_EQ(values(image.get()) == before, status != KO_OK);
        failed |= status != KO_OK;
        if (!struck) {
            KoTestFailAllocation(0); // the next image is not part of the load
        }
        image = make();
    });
    EXPECT_TRUE(failed);
    EXPECT_GE(faults, fewest);
}

TEST_F(KoioFaults, OfTheLibraryLeaveTheImageAsItWas) {
    for (const std::string &name : names()) {
        SCOPED_TRACE(name);
        const auto load = [&](RealImage *image) { return KoRealImageLoad(image, name.c_str(), nullptr); };
        expect_load_faults(2, old_image, pixels, load); // row table and pixels
    }
}

TEST_F(KoioFaults, OfTheLibraryLeaveAColourImageAsItWas) {
    for (const std::string &name : names()) {
        SCOPED_TRACE(name);
        const auto load = [&](ColorImage *image) { return KoColorImageLoad(image, name.c_str(), nullptr); };
        expect_load_faults(
            3, [] { return old_color_image(KO_COLORSPACE_YIQ); }, all_pixels, load);
    }
}

// Runs a call with each of the plug-in's own allocations failing in turn: it ends with a lack of memory, or succeeds.
int sweep_new(
    const std::function<int32_t()> &call, const std::function<void(int32_t)> &look = [](int32_t) {}) {
    for (int number = 1;; ++number) {
        KoStatusClear();
        const PrintCapture printed("error");
        fail_allocation(number);
        const int32_t status = call();
        const bool failed = end_of_failures();
        look(status);
        if (!failed) {
            EXPECT_EQ(status, KO_OK);
            return number - 1;
        }
        EXPECT_TRUE(status == KO_OK || status == KO_ERR_ALLOC) << status << " after allocation " << number;
        if (status == KO_ERR_ALLOC) {
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_ALLOC);
            EXPECT_NE(std::string(KoErrorGetLastErrorMessage()).find("[ERROR] Not enough memory for file \""),
                      std::string::npos);
        }
    }
}

TEST_F(KoioFaults, OfALoadAreAStatus) {
    for (const std::string &name : names()) {
        const RealImagePtr image = old_image();
        EXPECT_GT(sweep_new([&] { return KoRealImageLoad(image.get(), name.c_str(), nullptr); }), 1) << name;
        const ColorImagePtr color = old_color_image(KO_COLORSPACE_YIQ);
        EXPECT_GT(sweep_new([&] { return KoColorImageLoadSetGamma(color.get(), name.c_str(), nullptr, 2.0, 1.0); }), 1) << name;
    }
}

TEST_F(KoioFaults, OfASaveAreAStatusAndLeaveTheFile) {
    const ColorImagePtr image = old_color_image(KO_COLORSPACE_YIQ);
    for (const char *name : {"picture.png", "picture.jpg"}) {
        const std::string to = file(name, "the old file");
        const int faults = sweep_new([&] { return KoColorImageSave(image.get(), to.c_str(), nullptr, 1.0f, 0.0f); },
                                     [&](int32_t status) { EXPECT_EQ(read_bytes(to) == "the old file", status != KO_OK); });
        EXPECT_GT(faults, 2);
        EXPECT_NE(read_bytes(path(name)), "the old file");
    }
    EXPECT_EQ(files().size(), 2u) << "drafts are left";
}

} // namespace
