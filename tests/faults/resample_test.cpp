// Resampling when memory runs out.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "allocation_sweep.h"
#include "faults.h"
#include "ko/resample.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

RealImagePtr numbered(uint64_t width, uint64_t height) {
    return make_image(width, height, [](uint64_t x, uint64_t y) { return static_cast<float>(100 * y + x); });
}

ColorImagePtr picture(uint32_t width, uint32_t height) {
    return make_color_image(width, height, KO_COLORSPACE_RGB,
                            [](uint32_t c, uint64_t x, uint64_t y) { return static_cast<float>(1000 * c + 100 * y + x); });
}

// An image whose size is the whole of its pixels.
std::vector<float> all_pixels(const RealImage *image) { return pixels(image); }

std::vector<float> all_pixels(const ColorImage *image) {
    std::vector<float> values;
    for (uint64_t c = 0; c < image->depth; ++c) {
        const std::vector<float> plane = pixels(&image->planes[c]);
        values.insert(values.end(), plane.begin(), plane.end());
    }
    return values;
}

// Runs make with every allocation failing in turn. It gives a status that is the thread's, KO_OK exactly without a fault, and
// then the pixels of an undisturbed run; a creation that failed leaves no image, and what was made before a later failure is
// the caller's. Returns the number of faults.
template <class Owner> int sweep(const char *name, const std::function<int32_t(typename Owner::pointer *result)> &make) {
    typename Owner::pointer undisturbed = nullptr;
    EXPECT_EQ(make(&undisturbed), KO_OK);
    const Owner expected(undisturbed);
    return sweep_faults([&] {
        typename Owner::pointer result = nullptr;
        const int32_t status = make(&result);
        const Owner made(result);
        EXPECT_EQ(status, KoErrorGetLastError());
        EXPECT_EQ(status != KO_OK, KoTestFaultStruck() != 0);
        if (status == KO_ERR_CREATE_OBJECT) {
            EXPECT_EQ(made, nullptr);
            const std::string head = cannot_create(name);
            EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).substr(0, head.size()), head);
        } else {
            ASSERT_NE(made, nullptr);
            EXPECT_TRUE(status == KO_OK || status == KO_ERR_ALLOC) << status;
        }
        if (status == KO_OK) {
            EXPECT_EQ(all_pixels(expected.get()), all_pixels(made.get()));
        }
    });
}

class ResampleFaultTest : public LibraryTest {
  protected:
    const RealImagePtr image_ = numbered(9, 7);
    const ColorImagePtr picture_ = picture(9, 7);
};

// The record, the row table and the buffer of the result at least.
TEST_F(ResampleFaultTest, AnImageThatCannotBeHadGivesItsStatus) {
    EXPECT_GE(sweep<RealImagePtr>("RealImage", [&](RealImage **r) { return KoRealImageUpsample(image_.get(), 1.5f, r); }), 3);
    EXPECT_GE(sweep<RealImagePtr>("RealImage", [&](RealImage **r) { return KoRealImageDownsample(image_.get(), 1.5f, r); }), 3);
    EXPECT_GE(sweep<RealImagePtr>("RealImage", [&](RealImage **r) { return KoRealImageResize(image_.get(), 5, 8, r); }), 3);
}

TEST_F(ResampleFaultTest, APictureThatCannotBeHadGivesItsStatus) {
    EXPECT_GE(
        sweep<ColorImagePtr>("ColorImage", [&](ColorImage **r) { return KoColorImageDownsample(picture_.get(), 2.0f, r); }), 7);
    EXPECT_GE(sweep<ColorImagePtr>("ColorImage", [&](ColorImage **r) { return KoColorImageResize(picture_.get(), 5, 8, r); }),
              7);
}

// The result's own allocations, and none twice: what fails is told once, by the constructor.
TEST_F(ResampleFaultTest, TheConstructorAloneReportsAFailedCreation) {
    const std::vector<int64_t> blocks = std::vector<int64_t>{sizeof(RealImage)} + grid_blocks(13, 10);
    for (size_t n = 0; n < blocks.size(); ++n) {
        const StderrCapture swallowed;
        KoStatusClear();
        KoTestFailAllocation(static_cast<int64_t>(n) + 1);
        RealImage *result = nullptr;
        EXPECT_EQ(KoRealImageUpsample(image_.get(), 1.5f, &result), KO_ERR_CREATE_OBJECT);
        KoTestFailAllocation(0);
        EXPECT_EQ(result, nullptr);
        expect_status(KO_ERR_CREATE_OBJECT,
                      cannot_create("RealImage") + "Cannot allocate " + std::to_string(blocks[n]) + " bytes");
    }
    KoStatusClear();
}

TEST_F(ResampleFaultTest, AGivenImageIsLeftAloneByAFault) {
    struct Case {
        RealImagePtr given;
        std::function<int32_t(RealImage **result)> fill;
    };
    Case cases[] = {
        {numbered(12, 8), [&](RealImage **r) { return KoRealImageUpsample(image_.get(), 0.0f, r); }},
        {numbered(5, 3), [&](RealImage **r) { return KoRealImageDownsample(image_.get(), 0.0f, r); }},
        {numbered(12, 3), [&](RealImage **r) { return KoRealImageResize(image_.get(), 12, 3, r); }},
        {numbered(12, 8), [&](RealImage **r) { return KoRealImageRescale(image_.get(), *r); }},
        {numbered(5, 3), [&](RealImage **r) { return KoRealImageRescale(image_.get(), *r); }},
    };
    for (const Case &one : cases) {
        sweep_faults([&] {
            KoRealImageFill(one.given.get(), 77.0f);
            RealImage *result = one.given.get();
            const int32_t status = one.fill(&result);
            EXPECT_EQ(result, one.given.get());
            EXPECT_EQ(status, KoErrorGetLastError());
            EXPECT_EQ(status != KO_OK, KoTestFaultStruck() != 0);
            if (status != KO_OK) {
                EXPECT_EQ(status, KO_ERR_ALLOC);
                EXPECT_EQ(pixels(result), std::vector<float>(result->width * result->height, 77.0f));
            } else {
                EXPECT_NE(pixels(result)[0], 77.0f);
            }
        });
    }
}

} // namespace
