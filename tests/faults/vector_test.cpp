// The growable array when memory runs short, and when it asks for memory at all.
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/memory.h"
#include "ko/vector.h"

#include "allocation_sweep.h"
#include "allocator_lines.h"
#include "capture.h"
#include "faults.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

using Numbers = std::vector<uint32_t>;

class VectorFaultTest : public LibraryTest {
  protected:
    VectorFaultTest() { // the thread's record and its buffer exist before blocks are counted
        KoErrorFormatMessage(KO_ERR_OPEN_READ, std::string(400, 'x').c_str());
    }
    ~VectorFaultTest() override { KoTestFailAllocation(0); }
};

VectorPtr counted(uint64_t capacity, uint32_t count) {
    VectorPtr vector(KoVectorNewSize(4, capacity));
    for (uint32_t i = 0; i < count; ++i) {
        KoVectorAddElement(vector.get(), &i);
    }
    return vector;
}

Numbers first_numbers(uint32_t count) {
    Numbers numbers(count);
    for (uint32_t i = 0; i < count; ++i) {
        numbers[i] = i;
    }
    return numbers;
}

// Runs call, which must do without the heap, with every allocation failing.
void expect_no_allocation(const std::function<int32_t()> &call) {
    KoTestFailAllocationsFrom(1);
    EXPECT_EQ(call(), KO_OK);
    EXPECT_FALSE(KoTestFaultStruck());
    KoTestFailAllocation(0);
}

// Runs grow with its allocation of so many bytes failing. The elements are given up: the record no longer leads to them, and
// the block that held them is not freed.
void expect_given_up(Vector *vector, int64_t bytes, const std::function<int32_t()> &grow) {
    const auto size = static_cast<uint32_t>(vector->size);
    auto *surrendered = static_cast<uint32_t *>(vector->data);
    KoStatusClear();
    const int64_t before = KoTestLiveBlocks();
    StderrCapture captured;
    KoTestFailAllocation(1);
    EXPECT_EQ(grow(), KO_ERR_ALLOC);
    EXPECT_TRUE(KoTestFaultStruck());
    KoTestFailAllocation(0);
    EXPECT_EQ(captured.stop(), allocator_line(bytes));
    expect_status(KO_ERR_ALLOC, allocator_text(bytes));
    KoStatusClear();
    EXPECT_EQ(vector->data, nullptr);
    EXPECT_EQ(vector->element_size, 4u);
    EXPECT_EQ(vector->capacity, 0u);
    EXPECT_EQ(vector->size, size);
    EXPECT_EQ(KoTestLiveBlocks(), before);
    EXPECT_EQ(Numbers(surrendered, surrendered + size), first_numbers(size));
    KoFree(surrendered);
    EXPECT_EQ(KoVectorFree(vector), KO_OK);
    EXPECT_EQ(KoTestLiveBlocks(), before - 1);
    vector->data = nullptr;
}

// ---- creation ----

TEST_F(VectorFaultTest, NewGivesNullAndNamesTheObject) {
    expect_allocations({sizeof(Vector), 50 * 12}, KO_ERR_CREATE_OBJECT, cannot_create("Vector"), [] {
        Vector *vector = KoVectorNew(12);
        KoVectorDelete(vector);
        return vector != nullptr;
    });
}

TEST_F(VectorFaultTest, NewSizeGivesNullAndLeavesTheAllocatorsStatus) {
    for (const int64_t capacity : {0, 1, 7}) {
        expect_allocations({sizeof(Vector), capacity * 12}, KO_ERR_ALLOC, "", [capacity] {
            Vector *vector = KoVectorNewSize(12, static_cast<uint64_t>(capacity));
            KoVectorDelete(vector);
            return vector != nullptr;
        });
    }
}

TEST_F(VectorFaultTest, InitGivesItsStatusAndLeavesARecordToFree) {
    expect_allocations({7 * 12}, KO_ERR_ALLOC, "", [] {
        Vector vector;
        std::memset(&vector, 0x5A, sizeof vector);
        const int32_t status = KoVectorInit(&vector, 12, 7);
        EXPECT_EQ(status, KoErrorGetLastError());
        EXPECT_EQ(KoVectorFree(&vector), KO_OK);
        return status == KO_OK;
    });
}

// ---- growth ----

TEST_F(VectorFaultTest, TheFirst49AdditionsNeedNoMemory) {
    const VectorPtr vector(KoVectorNew(4));
    for (uint32_t i = 0; i < 49; ++i) {
        expect_no_allocation([&] { return KoVectorAddElement(vector.get(), &i); });
    }
    const uint32_t next = 49;
    expect_given_up(vector.get(), 200, [&] { return KoVectorAddElement(vector.get(), &next); }); // the size that it has
}

TEST_F(VectorFaultTest, EveryAdditionFromTheCapacityOnReallocates) {
    for (uint32_t count = 49; count < 80; ++count) {
        const VectorPtr vector = counted(50, count);
        const int64_t bytes = 4 * (static_cast<int64_t>(count) + 1);
        expect_given_up(vector.get(), bytes, [&] { return KoVectorAddElement(vector.get(), &count); });
    }
}

TEST_F(VectorFaultTest, AdditionsToNoCapacityAndToOneReallocate) {
    const uint32_t next = 0;
    for (const uint64_t capacity : {0u, 1u}) {
        const VectorPtr vector = counted(capacity, 0);
        expect_given_up(vector.get(), 4, [&] { return KoVectorAddElement(vector.get(), &next); });
    }
}

TEST_F(VectorFaultTest, AReservedCountAndOneMoreNeedsNoMemory) {
    const VectorPtr vector = counted(50, 0);
    KoVectorReserve(vector.get(), 301);
    for (uint32_t i = 0; i < 300; ++i) {
        expect_no_allocation([&] { return KoVectorAddElement(vector.get(), &i); });
    }
}

TEST_F(VectorFaultTest, ReserveBelowTheCapacityNeedsNoMemory) {
    const VectorPtr vector = counted(50, 20);
    for (const uint64_t count : {0u, 20u, 49u}) {
        expect_no_allocation([&] { return KoVectorReserve(vector.get(), count); });
    }
}

// A count of exactly the capacity is no less a reallocation.
TEST_F(VectorFaultTest, ReserveFromTheCapacityOnReallocates) {
    for (const int64_t count : {50, 51, 1000}) {
        const VectorPtr vector = counted(50, 20);
        expect_given_up(vector.get(), 4 * count, [&] { return KoVectorReserve(vector.get(), static_cast<uint64_t>(count)); });
    }
    const VectorPtr none = counted(0, 0);
    expect_given_up(none.get(), 0, [&] { return KoVectorReserve(none.get(), 0); });
}

// A vector whose growth has failed; the block that it gave up is freed.
VectorPtr broken(uint64_t capacity, uint32_t size) {
    VectorPtr vector = counted(capacity, size);
    void *surrendered = vector->data;
    const StderrCapture swallowed;
    KoTestFailAllocation(1);
    EXPECT_EQ(KoVectorReserve(vector.get(), capacity + 10), KO_ERR_ALLOC);
    KoTestFailAllocation(0);
    KoStatusClear();
    KoFree(surrendered);
    return vector;
}

TEST_F(VectorFaultTest, ABrokenVectorCanBeDeleted) {
    Vector *vector = broken(3, 2).release();
    const int64_t before = KoTestLiveBlocks();
    EXPECT_EQ(KoVectorDelete(vector), KO_OK);
    EXPECT_EQ(KoTestLiveBlocks(), before - 1);
}

// ---- the rest ----

int ascending(const void *first, const void *second) {
    const uint32_t a = *static_cast<const uint32_t *>(first);
    const uint32_t b = *static_cast<const uint32_t *>(second);
    return a < b ? -1 : a > b;
}

// A broken vector is only to be freed, but whoever goes on with it stays inside what is there.
TEST_F(VectorFaultTest, ABrokenVectorHasNoElements) {
    const VectorPtr vector = broken(50, 20);
    EXPECT_EQ(KoVectorGetSize(vector.get()), 20u);
    uint32_t room = 77;
    for (const uint64_t index : {0u, 19u, 20u}) {
        EXPECT_EQ(KoVectorGetElement(vector.get(), index, &room), KO_ERR_INDEX_OUT_OF_BOUNDS);
    }
    EXPECT_EQ(room, 77u);
    EXPECT_EQ(KoVectorSetSize(vector.get(), 1), KO_ERR_INDEX_OUT_OF_BOUNDS);
    EXPECT_EQ(KoVectorSort(vector.get(), ascending), 0);
    EXPECT_EQ(KoVectorBegin(vector.get()), nullptr);
    EXPECT_EQ(KoVectorEnd(vector.get()), nullptr);
    EXPECT_EQ(KoVectorAddElement(vector.get(), &room), KO_OK); // there is memory again, and room up to the new element
    EXPECT_EQ(vector->capacity, 21u);
    EXPECT_EQ(vector->size, 21u);
    uint32_t added = 0;
    EXPECT_EQ(KoVectorGetElement(vector.get(), 20, &added), KO_OK);
    EXPECT_EQ(added, 77u);
}

TEST_F(VectorFaultTest, ABrokenVectorThatGrowsToLessThanItsSizeEndsWithItsRoom) {
    const VectorPtr vector = broken(50, 20);
    EXPECT_EQ(KoVectorReserve(vector.get(), 2), KO_OK);
    EXPECT_EQ(KoVectorGetSize(vector.get()), 20u);
    uint32_t room = 77;
    EXPECT_EQ(KoVectorGetElement(vector.get(), 2, &room), KO_ERR_INDEX_OUT_OF_BOUNDS);
    EXPECT_EQ(room, 77u);
    EXPECT_EQ(static_cast<char *>(KoVectorEnd(vector.get())), static_cast<char *>(KoVectorBegin(vector.get())) + 8);
}

TEST_F(VectorFaultTest, LookingNeedsNoMemory) {
    const VectorPtr vector = counted(50, 20);
    uint32_t element = 0;
    expect_no_allocation([&] { return KoVectorGetElement(vector.get(), 19, &element); });
    expect_no_allocation([&] { return KoVectorSetSize(vector.get(), 50); });
    expect_no_allocation([&] { return KoVectorSetSize(vector.get(), 20); });
    expect_no_allocation([&] { return KoVectorSort(vector.get(), ascending); });
    EXPECT_EQ(element, 19u);
}

// A report needs memory too: without it the call still says what it has to.
TEST_F(VectorFaultTest, ReportsSurviveShortMemory) {
    const VectorPtr vector = counted(50, 3);
    uint32_t room = 77;
    sweep_faults([&] { EXPECT_EQ(KoVectorSetSize(vector.get(), 51), KO_ERR_INDEX_OUT_OF_BOUNDS); });
    sweep_faults([&] { EXPECT_EQ(KoVectorGetElement(vector.get(), 3, &room), KO_ERR_INDEX_OUT_OF_BOUNDS); });
    EXPECT_EQ(vector->size, 3u);
    EXPECT_EQ(room, 77u);
}

} // namespace
