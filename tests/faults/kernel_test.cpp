// Kernels when memory runs out.
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "allocation_sweep.h"
#include "faults.h"
#include "ko/kernel.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

using KernelFaultTest = LibraryTest;

std::vector<int64_t> image_blocks(int64_t width, int64_t height) {
    return std::vector<int64_t>{sizeof(RealImage)} + grid_blocks(width, height);
}

RealImagePtr make_noise(uint64_t width, uint64_t height) {
    Noise noise(4);
    return make_image(width, height, [&](uint64_t, uint64_t) { return noise.uniform(0.0f, 255.0f); });
}

// No kernel and a status, or no fault and the kernel of an undisturbed call.
template <class Make> void sweep_kernel(Make make) {
    const RealImagePtr expected(make());
    const int faults = sweep_faults([&] {
        const RealImagePtr kernel(make());
        EXPECT_EQ(kernel == nullptr, KoTestFaultStruck() != 0);
        if (kernel == nullptr) {
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
        } else {
            EXPECT_EQ(pixels(expected.get()), pixels(kernel.get()));
        }
    });
    EXPECT_GE(faults, 3); // record, rows and buffer at least
}

TEST_F(KernelFaultTest, KernelsThatCannotBeHadAreNull) {
    sweep_kernel([] { return KoKernelNewGaussian(7, 5, 1.5f); });
    sweep_kernel([] { return KoKernelNewGaussian(1, 11, 2.0f); });
    sweep_kernel([] { return KoKernelNewLaplacian(0.2f); });
}

TEST_F(KernelFaultTest, ADenseResultThatCannotBeHadIsNullWithItsStatus) {
    const RealImagePtr kernel = make_noise(3, 3);
    for (const uint64_t width : {10u, 2u}) { // with a result, and narrower than the kernel
        const RealImagePtr image = make_noise(width, 6);
        const RealImagePtr stood_there = make_noise(2, 2);
        const auto columns = static_cast<int64_t>(width);
        expect_allocations(image_blocks(columns, 6), KO_ERR_CREATE_OBJECT, cannot_create("RealImage"), [&] {
            RealImage *result = stood_there.get();
            const int32_t status = KoKernelNewRealImage(kernel.get(), image.get(), &result);
            EXPECT_EQ(status, KoErrorGetLastError());
            EXPECT_NE(result, stood_there.get());
            EXPECT_EQ(result == nullptr, status != KO_OK);
            const RealImagePtr made(result);
            return status == KO_OK;
        });
    }
}

int32_t apply_taps(const RealImage *image, RealImage **result) {
    const int32_t x[] = {0, 1, -1};
    const int32_t y[] = {0, -1, 1};
    const float weights[] = {1.0f, 2.0f, 3.0f};
    return KoSparseKernelNewRealImage(3, 3, 3, x, y, weights, image, result);
}

TEST_F(KernelFaultTest, ASparseResultThatCannotBeHadGivesItsStatus) {
    const RealImagePtr image = make_noise(10, 6);
    const int faults = sweep_faults([&] {
        RealImage *result = nullptr;
        const int32_t status = apply_taps(image.get(), &result);
        const RealImagePtr made(result);
        EXPECT_EQ(status, KoErrorGetLastError());
        EXPECT_EQ(status != KO_OK, KoTestFaultStruck() != 0);
        if (status == KO_OK) {
            ASSERT_NE(made, nullptr);
            EXPECT_NE(made->rows[2][2], 0.0f);
        } else if (made != nullptr) { // the work array failed, and no pixel was written
            EXPECT_EQ(pixels(made.get()), std::vector<float>(60, 0.0f));
        }
    });
    EXPECT_GE(faults, 3);
}

TEST_F(KernelFaultTest, AGivenSparseResultIsLeftAloneByAFault) {
    const RealImagePtr image = make_noise(10, 6);
    const RealImagePtr given = make_noise(10, 6);
    sweep_faults([&] {
        KoRealImageFill(given.get(), 77.0f);
        RealImage *result = given.get();
        const int32_t status = apply_taps(image.get(), &result);
        EXPECT_EQ(result, given.get());
        EXPECT_EQ(status != KO_OK, KoTestFaultStruck() != 0);
        if (status != KO_OK) {
            EXPECT_EQ(status, KO_ERR_ALLOC);
            EXPECT_EQ(pixels(given.get()), std::vector<float>(60, 77.0f));
        }
    });
}

} // namespace
