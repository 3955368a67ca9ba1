#include "faults.h"

#include <gtest/gtest.h>

#include "capture.h"
#include "ko/error.h"

namespace ko_test {

int sweep_faults(const std::function<void()> &attempt) {
    constexpr int limit = 100000;
    for (int n = 1; n < limit; ++n) {
        KoErrorGetLastError(); // the thread's record exists before blocks are counted
        KoStatusClear();
        // The message buffer only grows: a long report beforehand keeps its growth out of the count.
        KoErrorFormatMessage(KO_ERR_OPEN_READ, std::string(400, 'x').c_str());
        const int64_t before = KoTestLiveBlocks();
        bool struck = false;
        {
            StderrCapture swallowed;
            KoTestFailAllocation(n);
            attempt();
            struck = KoTestFaultStruck() != 0;
            KoTestFailAllocation(0);
        }
        KoStatusClear();
        EXPECT_EQ(KoTestLiveBlocks(), before) << "blocks left over after fault " << n;
        if (!struck) {
            return n - 1;
        }
    }
    ADD_FAILURE() << "the sweep did not end";
    return limit;
}

} // namespace ko_test
