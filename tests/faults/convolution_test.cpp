// Convolution when memory runs out.
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "allocation_sweep.h"
#include "faults.h"
#include "ko/convolution.h"
#include "ko/memory.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

using ConvolutionFaultTest = LibraryTest;

const std::vector<float> a{1.0f, 2.0f, 3.0f, 4.0f, 5.0f};
const std::vector<float> b{1.0f, 0.0f, -1.0f};

TEST_F(ConvolutionFaultTest, AnArrayThatCannotBeHadGivesItsStatus) {
    expect_allocations({7 * 4}, KO_ERR_ALLOC, "", [] {
        float *result = nullptr;
        const int32_t status = KoConvolutionVector(a.data(), a.size(), b.data(), b.size(), &result);
        EXPECT_EQ(status, KoErrorGetLastError());
        EXPECT_EQ(result == nullptr, status != KO_OK);
        KoFree(result);
        return status == KO_OK;
    });
}

TEST_F(ConvolutionFaultTest, AnImageThatCannotBeHadGivesItsStatus) {
    const RealImagePtr column = make_image(1, 5, a);
    const RealImagePtr row = make_image(3, 1, b);
    expect_allocations(std::vector<int64_t>{sizeof(RealImage)} + grid_blocks(1, 7), KO_ERR_CREATE_OBJECT,
                       cannot_create("RealImage"), [&] {
                           RealImage *result = nullptr;
                           const int32_t status = KoConvolutionRealImageVector(column.get(), row.get(), &result);
                           const RealImagePtr made(result);
                           EXPECT_EQ(status, KoErrorGetLastError());
                           EXPECT_EQ(made == nullptr, status != KO_OK);
                           return status == KO_OK;
                       });
}

// Into what is there nothing is allocated.
TEST_F(ConvolutionFaultTest, GivenResultsNeedNoMemory) {
    const RealImagePtr column = make_image(1, 5, a);
    const RealImagePtr row = make_image(3, 1, b);
    const RealImagePtr given = make_image(1, 7, std::vector<float>(7, 77.0f));
    std::vector<float> array(7, 77.0f);
    KoTestFailAllocationsFrom(1);
    float *floats = array.data();
    RealImage *image = given.get();
    EXPECT_EQ(KoConvolutionVector(a.data(), a.size(), b.data(), b.size(), &floats), KO_OK);
    EXPECT_EQ(KoConvolutionRealImageVector(column.get(), row.get(), &image), KO_OK);
    EXPECT_EQ(KoTestFaultStruck(), 0);
    KoTestFailAllocation(0);
    EXPECT_EQ(array, (std::vector<float>{1.0f, 2.0f, 2.0f, 2.0f, 2.0f, -4.0f, -5.0f}));
    EXPECT_EQ(pixels(given.get()), array);
}

} // namespace
