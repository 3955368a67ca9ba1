// The allocators: what they give, the 32-bit products, and the one line, status and text that every failure leaves.
#include "ko/memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "allocator_lines.h"
#include "capture.h"
#include "library_test.h"

namespace {

using ko_test::allocator_line;
using ko_test::allocator_text;
using ko_test::expect_status;
using ko_test::own_lines;
using ko_test::PrintCapture;
using ko_test::StderrCapture;

class Memory : public ko_test::LibraryTest {};

using Bytes = std::vector<uint8_t>;

void fill(void *block, uint8_t value, size_t size) { std::fill_n(static_cast<uint8_t *>(block), size, value); }

Bytes bytes(const void *block, size_t size) {
    const auto *first = static_cast<const uint8_t *>(block);
    return {first, first + size};
}

// A block of size bytes that is given back full of junk, so that a later block of that size may be the same one.
void leave_junk(int32_t size) {
    void *block = KoMalloc(size);
    fill(block, 0xaa, static_cast<size_t>(size));
    KoFree(block);
}

// Each block must be there and be writable to its end; it is given back.
void use_up(std::initializer_list<void *> blocks, size_t size) {
    SCOPED_TRACE(testing::Message() << size << " bytes");
    for (void *block : blocks) {
        ASSERT_NE(block, nullptr);
        fill(block, 0x5a, size);
        EXPECT_EQ(bytes(block, size), Bytes(size, 0x5a));
        KoFree(block);
    }
}

// Good requests.

TEST_F(Memory, BlocksAreWritableToTheirEnd) {
    for (const int32_t size : {1, 7, 16, 1000, 65536, 5000000}) {
        use_up({KoMalloc(size), KoCalloc(size), KoRealloc(nullptr, size), KoAllocElements(size, 1), KoAllocElements(1, size),
                KoAllocClearElements(size, 1), KoReallocElements(nullptr, 1, size),
                KoReallocClearElements(nullptr, 0, 1, size)},
               static_cast<size_t>(size));
    }
    expect_status(0, "");
}

TEST_F(Memory, ClearedBlocksHoldZeroOnly) {
    for (int32_t size = 6; size <= 60000; size += size / 2) {
        const int32_t count = size / 6;
        const auto length = static_cast<size_t>(count) * 6;
        for (const bool as_elements : {false, true}) {
            leave_junk(count * 6);
            void *block = as_elements ? KoAllocClearElements(count, 6) : KoCalloc(count * 6);
            EXPECT_EQ(bytes(block, length), Bytes(length, 0)) << size;
            KoFree(block);
        }
    }
}

TEST_F(Memory, ReallocKeepsWhatFits) {
    void *block = KoRealloc(nullptr, 100);
    fill(block, 0x11, 100);
    block = KoRealloc(block, 100000);
    EXPECT_EQ(bytes(block, 100), Bytes(100, 0x11));
    block = KoRealloc(block, 10);
    EXPECT_EQ(bytes(block, 10), Bytes(10, 0x11));
    block = KoReallocElements(block, 50, 40);
    EXPECT_EQ(bytes(block, 10), Bytes(10, 0x11));
    fill(block, 0x22, 2000);
    block = KoReallocElements(block, 3, 5);
    EXPECT_EQ(bytes(block, 15), Bytes(15, 0x22));
    KoFree(block);
}

TEST_F(Memory, FreeOfNullDoesNothing) {
    KoFree(nullptr);
    expect_status(0, "");
}

// The elements that are new are cleared, junk at their place notwithstanding.
TEST_F(Memory, ReallocClearClearsFromTheOldCountOn) {
    for (const int32_t count : {4, 100, 3000}) {
        const auto length = static_cast<size_t>(count) * 4;
        leave_junk(count * 8);
        void *block = KoAllocElements(count, 4);
        fill(block, 0x77, length);
        block = KoReallocClearElements(block, count, 2 * count, 4);
        EXPECT_EQ(bytes(block, length), Bytes(length, 0x77));
        EXPECT_EQ(bytes(static_cast<uint8_t *>(block) + length, length), Bytes(length, 0));
        KoFree(block);
    }
}

// Eight elements of 4 bytes, 0x77 each, as they are after the call that is told such counts.
Bytes eight_elements_after(int32_t old_count, int32_t new_count) {
    void *block = KoAllocElements(8, 4);
    fill(block, 0x77, 32);
    block = KoReallocClearElements(block, old_count, new_count, 4);
    Bytes left = bytes(block, static_cast<size_t>(new_count) * 4);
    KoFree(block);
    return left;
}

// The old count says what is cleared, not how large the block was.
TEST_F(Memory, ReallocClearTrustsTheOldCount) {
    Bytes half_cleared(32, 0);
    fill(half_cleared.data(), 0x77, 16);
    EXPECT_EQ(eight_elements_after(4, 8), half_cleared);
}

TEST_F(Memory, ReallocClearOfFewerOrEquallyManyClearsNothing) {
    EXPECT_EQ(eight_elements_after(8, 8), Bytes(32, 0x77));
    EXPECT_EQ(eight_elements_after(8, 4), Bytes(16, 0x77));
}

// The counts are compared, not the products: the old one here is that of a single element.
TEST_F(Memory, ReallocClearComparesCounts) { EXPECT_EQ(eight_elements_after(0x40000001, 8), Bytes(32, 0x77)); }

TEST_F(Memory, ReallocClearOfNullClearsAll) {
    leave_junk(48);
    void *block = KoReallocClearElements(nullptr, 0, 6, 8);
    EXPECT_EQ(bytes(block, 48), Bytes(48, 0));
    KoFree(block);
}

TEST_F(Memory, RequestOfNoBytesIsNoFailure) {
    StderrCapture capture;
    use_up({KoMalloc(0), KoCalloc(0), KoRealloc(nullptr, 0), KoAllocElements(0, 8), KoAllocElements(8, 0),
            KoAllocClearElements(0, 0), KoReallocElements(nullptr, 0, 4), KoReallocClearElements(nullptr, 0, 0, 4)},
           0);
    EXPECT_EQ(capture.stop(), "");
    expect_status(0, "");
}

TEST_F(Memory, ShrinkingToNoBytesIsNoFailure) {
    StderrCapture capture;
    use_up({KoRealloc(KoMalloc(40), 0), KoReallocElements(KoMalloc(40), 0, 4), KoReallocElements(KoMalloc(40), 4, 0),
            KoReallocClearElements(KoMalloc(40), 10, 0, 4)},
           0);
    EXPECT_EQ(capture.stop(), "");
    expect_status(0, "");
}

// Products.

// Products are formed in 32 bits and no overflow is looked for: what is left of the product is the size of the block.
TEST_F(Memory, ProductsWrapAt32Bits) {
    const struct {
        int32_t count;
        int32_t element_size;
        size_t size;
    } rows[] = {{65536, 65536, 0}, {65536, 65537, 65536}, {3, 0x55555556, 2}, {-1, -1, 1}, {-2, -8, 16}, {0x40000001, 4, 4}};
    StderrCapture capture;
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.count << " * " << row.element_size);
        use_up({KoAllocElements(row.count, row.element_size), KoAllocClearElements(row.count, row.element_size),
                KoReallocElements(nullptr, row.count, row.element_size),
                KoReallocElements(KoMalloc(1), row.count, row.element_size)},
               row.size);
    }
    EXPECT_EQ(capture.stop(), "");
    expect_status(0, "");
}

// Failures.

struct EnormousRequest {
    const char *name;
    std::function<void *()> allocate;
    int64_t size;
};

void PrintTo(const EnormousRequest &request, std::ostream *stream) { *stream << request.name; }

class Failure : public Memory, public testing::WithParamInterface<EnormousRequest> {};

TEST_P(Failure, WritesItsLineAndLeavesStatusAndText) {
    const std::string line = allocator_line(GetParam().size);
    const std::string text = allocator_text(GetParam().size);
    for (const char *verbosity : {"debug", "internalerror"}) {
        KoStatusClear();
        const PrintCapture printed(verbosity);
        StderrCapture capture;
        EXPECT_EQ(GetParam().allocate(), nullptr);
        EXPECT_EQ(own_lines(capture.stop()), line);
        expect_status(KO_ERR_ALLOC, text);
        EXPECT_TRUE(printed.texts().empty());
    }
    StderrCapture swallowed;
    EXPECT_EQ(GetParam().allocate(), nullptr);
    expect_status(KO_ERR_ALLOC, text + "\n-> " + text);
}

const EnormousRequest enormous_requests[] = {
    {"malloc of -1", [] { return KoMalloc(-1); }, -1},
    {"malloc of the least", [] { return KoMalloc(INT32_MIN); }, -2147483648},
    {"calloc of -1", [] { return KoCalloc(-1); }, -1},
    {"realloc of null to -1", [] { return KoRealloc(nullptr, -1); }, -1},
    {"elements, product of 2^31", [] { return KoAllocElements(32768, 65536); }, -2147483648},
    {"elements, product below 2^32", [] { return KoAllocElements(65535, 65537); }, -1},
    {"elements, negative count", [] { return KoAllocElements(-2, 3); }, -6},
    {"elements, negative size", [] { return KoAllocElements(3, -7); }, -21},
    {"clear elements, product of 2^31", [] { return KoAllocClearElements(0x20000000, 4); }, -2147483648},
    {"clear elements, negative count", [] { return KoAllocClearElements(-5, 8); }, -40},
    {"realloc elements of null", [] { return KoReallocElements(nullptr, 50000, 50000); }, -1794967296},
    {"realloc clear elements of null", [] { return KoReallocClearElements(nullptr, 0, 50000, 50000); }, -1794967296},
};

INSTANTIATE_TEST_SUITE_P(Requests, Failure, testing::ValuesIn(enormous_requests));

TEST_F(Memory, FailedReallocLeavesTheOldBlock) {
    void *block = KoMalloc(32);
    fill(block, 0x33, 32);
    StderrCapture capture;
    EXPECT_EQ(KoRealloc(block, -1), nullptr);
    EXPECT_EQ(KoReallocElements(block, -2, 1), nullptr);
    EXPECT_EQ(KoReallocClearElements(block, 8, 0x20000000, 4), nullptr);
    EXPECT_EQ(own_lines(capture.stop()), allocator_line(-1) + allocator_line(-2) + allocator_line(INT32_MIN));
    expect_status(KO_ERR_ALLOC, allocator_text(INT32_MIN) + "\n-> " + allocator_text(-2) + "\n-> " + allocator_text(-1));
    EXPECT_EQ(bytes(block, 32), Bytes(32, 0x33));
    KoFree(block);
}

TEST_F(Memory, SuccessClearsNoOlderReport) {
    KoMsg(KO_ERR_FATAL);
    KoFree(KoMalloc(8));
    KoFree(KoCalloc(8));
    KoFree(KoRealloc(nullptr, 8));
    KoFree(KoReallocClearElements(nullptr, 0, 2, 8));
    expect_status(KO_ERR_FATAL, "Fatal Error. Cannot continue");
}

} // namespace
