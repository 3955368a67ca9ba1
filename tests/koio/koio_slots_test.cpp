// The plug-in's start and end: whose functions are in the slots, and what is left of it.
#include <gtest/gtest.h>

#include "koio_test.h"

namespace {

using namespace ko_test;

int32_t load_nothing(RealImage *, const char *) { return 123; }
int32_t save_nothing(const ColorImage *, const char *, float, float) { return 124; }

// How many of the eight slots hold a function.
int filled_slots() {
    int filled = 0;
    for (const int32_t type : {KO_IMAGE_FORMAT_PNG, KO_IMAGE_FORMAT_JPEG}) {
        filled += KoRealImageGetLoadFunction(type) != nullptr;
        filled += KoRealImageGetSaveFunction(type) != nullptr;
        filled += KoColorImageGetLoadFunction(type) != nullptr;
        filled += KoColorImageGetSaveFunction(type) != nullptr;
    }
    return filled;
}

TEST(KoioSlots, AreFilledFromStartToEnd) {
    for (int cycle = 0; cycle < 3; ++cycle) {
        EXPECT_EQ(filled_slots(), 0);
        int32_t word = 0;
        EXPECT_EQ(KoInit(&word, nullptr), 0);
        EXPECT_EQ(filled_slots(), 8);
        EXPECT_EQ(KoErrorGetLastError(), KO_OK);
        EXPECT_EQ(KoInit(nullptr, nullptr), 2);
        EXPECT_EQ(KoRelease(), 1);
        EXPECT_EQ(filled_slots(), 8);
        EXPECT_EQ(KoRelease(), 0);
    }
    EXPECT_EQ(filled_slots(), 0);
}

TEST(KoioSlots, EachHasItsOwnFunction) {
    KoInit(nullptr, nullptr);
    EXPECT_NE(KoRealImageGetLoadFunction(KO_IMAGE_FORMAT_PNG), KoRealImageGetLoadFunction(KO_IMAGE_FORMAT_JPEG));
    EXPECT_NE(KoColorImageGetSaveFunction(KO_IMAGE_FORMAT_PNG), KoColorImageGetSaveFunction(KO_IMAGE_FORMAT_JPEG));
    EXPECT_EQ(KoRealImageGetLoadFunction(KO_IMAGE_FORMAT_TEXT), &KoRealImageLoadTXT);
    EXPECT_EQ(KoColorImageGetSaveFunction(KO_IMAGE_FORMAT_TEXT), &KoColorImageSaveTXT);
    KoRelease();
}

// A function of the host's stays, whether it was there before the plug-in or came later.
TEST(KoioSlots, OfTheHostStay) {
    KoRealImageSetLoadFunction(KO_IMAGE_FORMAT_PNG, load_nothing);
    KoInit(nullptr, nullptr);
    EXPECT_EQ(filled_slots(), 8);
    EXPECT_EQ(KoRealImageLoad(nullptr, "picture.png", nullptr), 123);
    KoColorImageSetSaveFunction(KO_IMAGE_FORMAT_JPEG, save_nothing);
    KoRelease();
    EXPECT_EQ(KoRealImageGetLoadFunction(KO_IMAGE_FORMAT_PNG), &load_nothing);
    EXPECT_EQ(KoColorImageGetSaveFunction(KO_IMAGE_FORMAT_JPEG), &save_nothing);
    EXPECT_EQ(filled_slots(), 2);
    KoRealImageSetLoadFunction(KO_IMAGE_FORMAT_PNG, nullptr);
    KoColorImageSetSaveFunction(KO_IMAGE_FORMAT_JPEG, nullptr);
}

// Each start loads the module anew.
TEST(KoioSlots, WorkAgainAfterARestart) {
    const TemporaryFile file("picture.png", png_file({.width = 5, .height = 4, .colour = png_gray}, mixed));
    for (int cycle = 0; cycle < 3; ++cycle) {
        KoInit(nullptr, nullptr);
        const RealImagePtr image = old_image();
        EXPECT_EQ(KoRealImageLoad(image.get(), file.c_str(), nullptr), KO_OK);
        EXPECT_EQ(image->width, 5u);
        KoRelease();
    }
}

} // namespace
