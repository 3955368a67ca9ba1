// Curves per channel when memory runs short.
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/colortrc.h"

#include "capture.h"
#include "curve_texts.h"
#include "faults.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"
#include "working_folder.h"

namespace {

using namespace ko_test;

using Entries = std::vector<uint32_t>;

class ColorTrcFaultTest : public LibraryTest {};

bool struck() { return KoTestFaultStruck() != 0; }

bool complete(const ColorTRC *color) {
    for (uint64_t c = 0; c < color->depth; ++c) {
        if (color->curves[c] == nullptr || color->curves[c]->array == nullptr) {
            return false;
        }
    }
    return true;
}

std::vector<Entries> curves_of(const ColorTRC *color) {
    std::vector<Entries> curves;
    for (uint64_t c = 0; c < color->depth; ++c) {
        curves.push_back(entries_of(color->curves[c]));
    }
    return curves;
}

ColorImagePtr small_image() {
    return make_color_image(3, 2, KO_COLORSPACE_RGB,
                            [](uint32_t, uint64_t x, uint64_t y) { return static_cast<float>(x + y); });
}

TEST_F(ColorTrcFaultTest, InitFailsWithoutItsCurvesAndToleratesAMissingOne) {
    const int faults = sweep_faults([] {
        ColorTRC color{0, nullptr};
        const int32_t status = KoColorTRCInit(&color, 16, 3);
        if (color.curves == nullptr) {
            EXPECT_EQ(status, KO_ERR_ALLOC);
        } else {
            EXPECT_EQ(status, KO_OK);
            EXPECT_EQ(complete(&color), !struck());
        }
        EXPECT_EQ(KoColorTRCFree(&color), KO_OK);
    });
    EXPECT_GE(faults, 7); // the table, three records, three arrays
}

TEST_F(ColorTrcFaultTest, NewNamesTheObject) {
    for (const int64_t n : {1, 2}) { // the record, the table
        KoStatusClear();
        StderrCapture captured;
        KoTestFailAllocation(n);
        EXPECT_EQ(KoColorTRCNew(16, 3), nullptr);
        KoTestFailAllocation(0);
        captured.stop();
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
        EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).rfind("Cannot create object \"ColorTRC\"\n-> Cannot allocate ", 0),
                  0u);
    }
}

// Whatever a record lacks, every function can be called on it.
TEST_F(ColorTrcFaultTest, AnIncompleteRecordCanBeUsed) {
    const WorkingFolder folder;
    const TemporaryFile same("same.txt", curve_text(color_form, 4));
    const TemporaryFile other("other.txt", curve_text(color_form, 2));
    const ColorImagePtr image = small_image();
    const std::vector<std::function<void(ColorTRC *)>> uses{
        [](ColorTRC *color) { EXPECT_EQ(KoColorTRCGetSize(color), color->curves[0] == nullptr ? 0u : 16u); },
        [](ColorTRC *color) {
            for (uint32_t c = 0; c < 3; ++c) {
                EXPECT_EQ(KoColorTRCGetArray(color, c) == nullptr, color->curves[c] == nullptr);
            }
        },
        [](ColorTRC *color) { EXPECT_EQ(KoColorTRCSetIdentity(color), complete(color) ? KO_OK : KO_ERR_NULL_POINTER); },
        [](ColorTRC *color) {
            for (uint32_t c = 0; c < 3; ++c) {
                EXPECT_EQ(KoColorTRCSetArray(color, c, Entries(16, 5).data(), 16) == KO_OK, color->curves[c] != nullptr);
            }
        },
        [](ColorTRC *color) { EXPECT_EQ(KoColorTRCResize(color, 8) == KO_OK, complete(color)); },
        [](ColorTRC *color) {
            EXPECT_EQ(KoColorTRCSave(color, "saved.txt", 1), complete(color) ? KO_OK : KO_ERR_NULL_POINTER);
        },
        [&](ColorTRC *color) {
            EXPECT_EQ(KoColorTRCLoad(color, same.c_str()), KO_OK);
            EXPECT_TRUE(complete(color));
        },
        [&](ColorTRC *color) {
            EXPECT_EQ(KoColorTRCLoad(color, other.c_str()), KO_OK);
            EXPECT_TRUE(complete(color));
        },
        [&](ColorTRC *color) {
            ColorImage *result = nullptr;
            KoColorTRCApply(color, image.get(), &result);
            const ColorImagePtr owner(result);
            for (uint32_t c = 0; result != nullptr && c < 3; ++c) {
                if (color->curves[c] == nullptr) {
                    EXPECT_EQ(pixels(&result->planes[c]), std::vector<float>(6, 0.0f));
                    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INVALID_ARGUMENT);
                }
            }
        },
    };
    for (const auto &use : uses) {
        sweep_faults([&] {
            const ColorTRCPtr color(KoColorTRCNew(16, 3));
            for (uint32_t c = 0; color != nullptr && c < 3; ++c) {
                KoColorTRCSetArray(color.get(), c, Entries(16, c).data(), 16);
            }
            if (struck() && color != nullptr) {
                use(color.get());
            }
        });
    }
}

TEST_F(ColorTrcFaultTest, LoadLeavesTheRecordAsItWas) {
    const TemporaryFile file("curves.txt", curve_text(color_form, 3));
    const ColorTRCPtr color(KoColorTRCNew(4, 3));
    KoColorTRCSetIdentity(color.get());
    const int faults = sweep_faults([&] {
        const int32_t status = KoColorTRCLoad(color.get(), file.c_str());
        EXPECT_EQ(status, struck() ? KO_ERR_ALLOC : KO_OK);
        EXPECT_EQ(color->depth, 3u);
        if (struck()) {
            EXPECT_EQ(curves_of(color.get()), std::vector<Entries>(3, Entries{0, 1, 2, 3}));
        }
    });
    EXPECT_GE(faults, 6);
    EXPECT_EQ(KoColorTRCGetSize(color.get()), 8u);
}

// A fourth and fifth curve are not in the file; short memory for them alone need not fail the call.
TEST_F(ColorTrcFaultTest, LoadOfADeepRecordFailsAsAWholeOrReads) {
    const TemporaryFile file("curves.txt", curve_text(color_form, 1));
    sweep_faults([&] {
        const ColorTRCPtr color(KoColorTRCNew(4, 5));
        if (color == nullptr || !complete(color.get()) || KoColorTRCSetIdentity(color.get()) != KO_OK) {
            return;
        }
        const int32_t status = KoColorTRCLoad(color.get(), file.c_str());
        EXPECT_EQ(color->depth, 5u);
        if (status == KO_OK) {
            EXPECT_EQ(entries_of(color->curves[2]), (Entries{2, 12}));
        } else {
            EXPECT_EQ(status, KO_ERR_ALLOC);
            EXPECT_EQ(curves_of(color.get()), std::vector<Entries>(5, Entries{0, 1, 2, 3}));
        }
    });
}

// Curves before the failure are resized, those behind it are not; each is whole, and the file is still written.
TEST_F(ColorTrcFaultTest, ResizeStopsWhereMemoryIsShort) {
    const WorkingFolder folder;
    const ColorTRCPtr color(KoColorTRCNew(4, 3));
    const int faults = sweep_faults([&] {
        for (uint32_t c = 0; c < 3; ++c) {
            KoTRCResize(color->curves[c], 4);
        }
        KoColorTRCSetIdentity(color.get());
        const bool before = struck();
        const int32_t status = KoColorTRCResize(color.get(), 8);
        EXPECT_EQ(status, struck() && !before ? KO_ERR_ALLOC : KO_OK);
        for (const Entries &entries : curves_of(color.get())) {
            EXPECT_TRUE(entries == (Entries{0, 1, 2, 3}) || entries == (Entries{0, 1, 2, 3, 4, 5, 6, 7}) || before);
        }
        EXPECT_EQ(read_text("colortrc.txt").substr(0, 15), "RGBLinear\nbits ");
    });
    EXPECT_GE(faults, 3);
}

TEST_F(ColorTrcFaultTest, ApplyWithoutAResultFails) {
    const ColorTRCPtr color(KoColorTRCNew(4, 3));
    KoColorTRCSetIdentity(color.get());
    const ColorImagePtr image = small_image();
    const int faults = sweep_faults([&] {
        ColorImage *result = nullptr;
        const int32_t status = KoColorTRCApply(color.get(), image.get(), &result);
        EXPECT_EQ(status != KO_OK, struck());
        EXPECT_EQ(result == nullptr, struck());
        KoColorImageDelete(result);
    });
    EXPECT_GE(faults, 2);
}

} // namespace
