// The bilateral filter when memory runs out: a status, or KO_OK without a result, and nothing left over.
#include <string>

#include <gtest/gtest.h>

#include "faults.h"
#include "ko.h"
#include "pictures.h"
#include "same_floats.h"

namespace {

using namespace ko_test;

class BilateralFilterFaultTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { KoInit(nullptr, nullptr); }
    static void TearDownTestSuite() { KoRelease(); }
};

TEST_F(BilateralFilterFaultTest, EveryFaultIsTold) {
    Noise noise(4);
    const RealImagePtr image = make_image(21, 14, [&](uint64_t, uint64_t) { return noise.uniform(0.0f, 255.0f); });
    RealImage *whole = nullptr;
    ASSERT_EQ(KoFilterBLFApplyToRealImage(image.get(), &whole, 3), KO_OK);
    const RealImagePtr expected(whole);
    int without_result = 0;
    const int faults = sweep_faults([&] {
        RealImage *result = nullptr;
        const int32_t status = KoFilterBLFApplyToRealImage(image.get(), &result, 3);
        const RealImagePtr made(result);
        if (KoTestFaultStruck() != 0) {
            EXPECT_NE(KoErrorGetLastError(), KO_OK);
        } else {
            EXPECT_EQ(status, KO_OK);
            EXPECT_NE(made, nullptr);
        }
        if (status != KO_OK) {
            EXPECT_EQ(status, KoErrorGetLastError());
            EXPECT_TRUE(status == KO_ERR_ALLOC || status == KO_ERR_CREATE_OBJECT) << status;
            EXPECT_EQ(made, nullptr);
        } else if (made != nullptr) {
            EXPECT_TRUE(same_floats(pixels(expected.get()), pixels(made.get())));
        } else {
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
            const std::string chain = KoErrorGetLastErrorMessage();
            EXPECT_EQ(chain.find("Cannot create object \"RealImage\"\n-> Cannot allocate "), 0u) << chain;
            ++without_result;
        }
    });
    EXPECT_GE(faults, 9);
    EXPECT_GE(without_result, 3); // record, rows or buffer of the result itself
}

} // namespace
