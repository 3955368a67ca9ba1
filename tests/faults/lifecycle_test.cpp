// Start and end over an exhausted heap: both go on, nothing is left over, and the next cycle is whole.
#include "ko/lifecycle.h"

#include <gtest/gtest.h>

#include <string>

#include "capture.h"
#include "faults.h"
#include "ko/error.h"
#include "ko/memory.h"

namespace {

using ko_test::StderrCapture;

void use() {
    KoMsg(KO_ERR_CLOSE, std::string(300, 'n').c_str());
    KoMessageSetLevel(KO_LEVEL_INTERNAL_ERROR, KO_ERR_CLOSE, "somewhere.cpp", 7);
    KoFree(KoMalloc(100));
}

using Arm = void (*)(int64_t);

class Cycle : public testing::TestWithParam<Arm> {};

TEST_P(Cycle, SweepLeavesNothingOver) {
    ASSERT_EQ(KoTestLiveBlocks(), 0);
    bool struck = true;
    for (int n = 1; struck; ++n) {
        StderrCapture swallowed;
        GetParam()(n);
        EXPECT_EQ(KoInit(nullptr, nullptr), 0) << "fault " << n;
        use();
        EXPECT_EQ(KoInit(nullptr, nullptr), 2) << "fault " << n;
        EXPECT_EQ(KoRelease(), 1) << "fault " << n;
        EXPECT_EQ(KoRelease(), 0) << "fault " << n;
        struck = KoTestFaultStruck() != 0;
        KoTestFailAllocation(0);
        EXPECT_EQ(KoTestLiveBlocks(), 0) << "fault " << n;
        KoInit(nullptr, nullptr);
        EXPECT_EQ(KoErrorGetLastError(), 0);
        KoMsg(KO_ERR_FATAL);
        EXPECT_STREQ(KoErrorGetLastErrorMessage(), "Fatal Error. Cannot continue");
        KoRelease();
        ASSERT_LT(n, 1000);
    }
    EXPECT_EQ(KoTestLiveBlocks(), 0);
}

INSTANTIATE_TEST_SUITE_P(Faults, Cycle, testing::Values(&KoTestFailAllocation, &KoTestFailAllocationsFrom));

} // namespace
