// Every allocation of a load and of a save fails in turn, whoever makes it: the library, the plug-in, libpng, libjpeg, zlib or
// the colour management. A call ends in a status, or does all that it is to do.
#include <functional>

#include <gtest/gtest.h>

#include "faulty_malloc.h"
#include "koio_test.h"

namespace {

using namespace ko_test;

class KoioMemory : public KoioTest {};

// Runs a call with each allocation failing in turn, alone and with all that follow, until none does. Returns how many there
// are.
int sweep_malloc(const std::function<int32_t()> &call, const std::function<void(int32_t)> &look) {
    int most = 0;
    for (const bool stays : {false, true}) {
        bool failed = true;
        int refused = 0;
        for (int number = 1; failed; ++number) {
            KoStatusClear();
            StderrCapture swallowed; // the allocators' lines
            fail_malloc(number, stays);
            const int32_t status = call();
            failed = end_of_malloc_failures();
            swallowed.stop();
            EXPECT_TRUE(status == KO_OK || (failed && status == KO_ERR_ALLOC))
                << status << " after allocation " << number << ": " << KoErrorGetLastErrorMessage();
            refused += status != KO_OK;
            look(status);
            most = std::max(most, number - 1);
        }
        EXPECT_GT(refused, most / 2);
    }
    return most;
}

TEST_F(KoioMemory, OfALoad) {
    PngRecipe interlaced{.width = 40, .height = 30, .depth = 16, .colour = png_rgba, .interlaced = true};
    interlaced.after = {{"tEXt", std::string("Title\0a", 7)}};
    const std::vector<std::string> names = {
        file("plain.png", png_file({.width = 40, .height = 30, .colour = png_rgb}, mixed)),
        file("interlaced.png", png_file(interlaced, mixed_at(16))),
        file("gray.jpg", jpeg_file({.width = 40, .height = 30, .colour = JpegColour::gray}, mixed)),
        file("progressive.jpg", jpeg_file({.width = 40, .height = 30, .progressive = true}, mixed)),
        file("cmyk.jpg", cmyk_file({0, 255, 0, 0}, cmyk_profile()))};
    for (const std::string &name : names) {
        SCOPED_TRACE(name);
        const ColorImagePtr whole = old_color_image(KO_COLORSPACE_YIQ);
        ASSERT_EQ(KoColorImageLoad(whole.get(), name.c_str(), nullptr), KO_OK);
        const std::vector<float> expected = all_pixels(whole.get());
        ColorImagePtr image = old_color_image(KO_COLORSPACE_YIQ);
        const std::vector<float> before = all_pixels(image.get());
        const int count = sweep_malloc([&] { return KoColorImageLoad(image.get(), name.c_str(), nullptr); },
                                       [&](int32_t status) {
                                           EXPECT_EQ(all_pixels(image.get()), status == KO_OK ? expected : before);
                                           image = old_color_image(KO_COLORSPACE_YIQ);
                                       });
        EXPECT_GT(count, 8);
    }
}

TEST_F(KoioMemory, OfASave) {
    const ColorImagePtr image = old_color_image(KO_COLORSPACE_RGB);
    for (const char *name : {"picture.png", "picture.jpg"}) {
        SCOPED_TRACE(name);
        const std::string to = path(name);
        ASSERT_EQ(KoColorImageSave(image.get(), to.c_str(), nullptr, 1.0f, 0.0f), KO_OK);
        const std::string expected = read_bytes(to);
        file(name, "the old file");
        const int count = sweep_malloc([&] { return KoColorImageSave(image.get(), to.c_str(), nullptr, 1.0f, 0.0f); },
                                       [&](int32_t status) {
                                           EXPECT_EQ(read_bytes(to), status == KO_OK ? expected : "the old file");
                                           file(name, "the old file");
                                       });
        EXPECT_GT(count, 8);
    }
    EXPECT_EQ(files().size(), 2u) << "drafts are left";
}

} // namespace
