// The Gaussian when memory runs out.
#include <string>

#include <gtest/gtest.h>

#include "capture.h"
#include "faults.h"
#include "ko.h"
#include "pictures.h"
#include "same_floats.h"

namespace {

using namespace ko_test;

class KernelGaussianFaultTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { KoInit(nullptr, nullptr); }
    static void TearDownTestSuite() { KoRelease(); }
};

RealImagePtr make_noise(uint64_t width, uint64_t height) {
    Noise noise(4);
    return make_image(width, height, [&](uint64_t, uint64_t) { return noise.uniform(0.0f, 255.0f); });
}

void expect_new_fails_whole(int32_t mode, int at_least) {
    const int faults = sweep_faults([&] {
        const KernelGaussianPtr kernel(KoKernelGaussianNewTune(3.0f, 2.0f, mode));
        EXPECT_EQ(kernel == nullptr, KoTestFaultStruck() != 0);
        if (kernel == nullptr) {
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
            const std::string chain = KoErrorGetLastErrorMessage();
            EXPECT_EQ(chain.find("Cannot create object \"KernelGaussian\"\n-> Cannot allocate "), 0u) << chain;
        }
    });
    EXPECT_GE(faults, at_least);
}

TEST_F(KernelGaussianFaultTest, NewGivesNothingWithAReport) {
    expect_new_fails_whole(0, 2); // record and coefficients
    expect_new_fails_whole(1, 1);
    const StderrCapture swallowed;
    KoTestFailAllocation(1);
    EXPECT_EQ(KernelGaussianPtr(KoKernelGaussianNew(3.0f, 2.0f)), nullptr);
    KoTestFailAllocation(0);
    const std::string chain = KoErrorGetLastErrorMessage();
    EXPECT_EQ(chain, "Cannot create object \"KernelGaussian\"\n-> Cannot allocate " + std::to_string(sizeof(KernelGaussian)) +
                         " bytes");
    KoStatusClear();
}

TEST_F(KernelGaussianFaultTest, InitReturnsTheStatus) {
    const StderrCapture swallowed;
    KernelGaussian kernel;
    KoErrorFormatMessage(KO_ERR_CREATE_OBJECT, std::string(100, 'x').c_str()); // the message buffer is not part of the count
    const int64_t before = KoTestLiveBlocks();
    KoTestFailAllocation(1);
    EXPECT_EQ(KoKernelGaussianInit(&kernel, 3.0f, 2.0f, 0), KO_ERR_ALLOC);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_ALLOC);
    KoTestFailAllocation(0);
    KoStatusClear();
    EXPECT_EQ(KoTestLiveBlocks(), before);
}

// A status and null, or KO_OK and null with the status on the thread, or the whole result.
void sweep_convolution(int32_t mode, uint64_t width, uint64_t height, bool given) {
    SCOPED_TRACE(testing::Message() << "mode " << mode << ", " << width << " by " << height << (given ? ", given" : ""));
    const KernelGaussianPtr kernel(KoKernelGaussianNewTune(1.5f, 2.0f, mode));
    const RealImagePtr image = make_noise(width, height);
    RealImage *whole = nullptr;
    ASSERT_EQ(KoKernelGaussianConvolution(kernel.get(), image.get(), &whole), KO_OK);
    const RealImagePtr expected(whole);
    const RealImagePtr target = make_noise(width, height);
    const int faults = sweep_faults([&] {
        RealImage *result = given ? target.get() : nullptr;
        const int32_t status = KoKernelGaussianConvolution(kernel.get(), image.get(), &result);
        if (KoTestFaultStruck() == 0) {
            EXPECT_EQ(status, KO_OK);
            EXPECT_NE(result, nullptr);
        } else {
            EXPECT_NE(KoErrorGetLastError(), KO_OK);
        }
        if (status != KO_OK) {
            EXPECT_TRUE(status == KO_ERR_ALLOC || status == KO_ERR_CREATE_OBJECT) << status;
            EXPECT_EQ(status, KoErrorGetLastError());
            EXPECT_TRUE(result == nullptr || (given && result == target.get()));
        } else if (result != nullptr) {
            EXPECT_TRUE(same_floats(pixels(expected.get()), pixels(result)));
        } else {
            EXPECT_GE(mode, 1) << "the finite form ends in a transposition, which has a status";
        }
        const RealImagePtr made(result != target.get() ? result : nullptr);
    });
    // The work memory at least, and record, rows and buffer of a result that is made.
    EXPECT_GE(faults, given ? 1 : 4);
}

TEST_F(KernelGaussianFaultTest, ConvolutionEndsInOneOfTheToldWays) {
    for (const int32_t mode : {0, 1}) {
        for (const bool given : {false, true}) {
            sweep_convolution(mode, 40, 30, given);
            sweep_convolution(mode, 3, 2, given); // narrower than the finite kernel
        }
    }
}

} // namespace
