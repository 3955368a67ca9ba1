// The allocators over an exhausted heap: null, the line, the status, and nothing else touched.
#include "ko/memory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "allocator_lines.h"
#include "capture.h"
#include "faults.h"
#include "library_test.h"

namespace {

using ko_test::allocator_line;
using ko_test::allocator_text;
using ko_test::expect_status;
using ko_test::StderrCapture;

struct Request {
    const char *name;
    std::function<void *(void *old_block)> allocate;
    int64_t size;
};

void PrintTo(const Request &request, std::ostream *stream) { *stream << request.name; }

const Request requests[] = {
    {"KoMalloc", [](void *) { return KoMalloc(10); }, 10},
    {"KoCalloc", [](void *) { return KoCalloc(11); }, 11},
    {"KoRealloc of null", [](void *) { return KoRealloc(nullptr, 12); }, 12},
    {"KoRealloc", [](void *old_block) { return KoRealloc(old_block, 13); }, 13},
    {"KoAllocElements", [](void *) { return KoAllocElements(3, 5); }, 15},
    {"KoAllocClearElements", [](void *) { return KoAllocClearElements(4, 5); }, 20},
    {"KoReallocElements of null", [](void *) { return KoReallocElements(nullptr, 5, 5); }, 25},
    {"KoReallocElements", [](void *old_block) { return KoReallocElements(old_block, 6, 5); }, 30},
    {"KoReallocClearElements of null", [](void *) { return KoReallocClearElements(nullptr, 0, 7, 5); }, 35},
    {"KoReallocClearElements, growing", [](void *old_block) { return KoReallocClearElements(old_block, 1, 8, 5); }, 40},
    {"KoReallocClearElements, shrinking", [](void *old_block) { return KoReallocClearElements(old_block, 2, 1, 5); }, 5},
};

class ExhaustedHeap : public ko_test::LibraryTest, public testing::WithParamInterface<Request> {
  protected:
    ExhaustedHeap() : old_block_(KoMalloc(16)) {
        std::memcpy(old_block_, "0123456789abcdef", 16);
        KoErrorFormatMessage(KO_ERR_CLOSE, "any"); // the message buffer exists before blocks are counted
        live_ = KoTestLiveBlocks();
    }

    ~ExhaustedHeap() override {
        EXPECT_EQ(std::memcmp(old_block_, "0123456789abcdef", 16), 0);
        KoStatusClear();
        EXPECT_EQ(KoTestLiveBlocks(), live_);
        KoFree(old_block_);
    }

    void *old_block_;
    int64_t live_;
};

TEST_P(ExhaustedHeap, FailedRequestIsReported) {
    StderrCapture capture;
    KoTestFailAllocation(1);
    EXPECT_EQ(GetParam().allocate(old_block_), nullptr);
    EXPECT_TRUE(KoTestFaultStruck());
    KoTestFailAllocation(0);
    EXPECT_EQ(capture.stop(), allocator_line(GetParam().size));
    expect_status(KO_ERR_ALLOC, allocator_text(GetParam().size));
}

// The report's own chain cannot be had either: a second line, no third, and the older chain stays.
TEST_P(ExhaustedHeap, FailureOfTheReportDoesNotRecurse) {
    KoMsg(KO_ERR_FATAL);
    const std::string fatal = "Fatal Error. Cannot continue";
    StderrCapture capture;
    KoTestFailAllocationsFrom(1);
    EXPECT_EQ(GetParam().allocate(old_block_), nullptr);
    KoTestFailAllocation(0);
    const std::string joined = allocator_text(GetParam().size) + "\n-> " + fatal;
    EXPECT_EQ(capture.stop(), allocator_line(GetParam().size) + allocator_line(static_cast<int64_t>(joined.size()) + 1));
    expect_status(KO_ERR_ALLOC, fatal);
}

INSTANTIATE_TEST_SUITE_P(Requests, ExhaustedHeap, testing::ValuesIn(requests));

} // namespace
