// The growable array: life, the growth by one element, counts and indices, sorting.
#include "ko/vector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "allocator_lines.h"
#include "capture.h"
#include "ko/memory.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

using Bytes = std::vector<uint8_t>;

class VectorTest : public LibraryTest {};

// The elements in use, byte by byte.
Bytes bytes_of(const Vector *vector) {
    const auto *first = static_cast<const uint8_t *>(vector->data);
    return {first, first + vector->size * vector->element_size};
}

// Adds count elements of noise and gives their bytes.
Bytes add_noise(Vector *vector, uint64_t count, uint32_t seed) {
    const Bytes noise = noise_bytes(count * vector->element_size, seed);
    for (uint64_t i = 0; i < count; ++i) {
        EXPECT_EQ(KoVectorAddElement(vector, noise.data() + i * vector->element_size), KO_OK);
    }
    return noise;
}

VectorPtr numbers(const std::vector<int32_t> &values) {
    VectorPtr vector(KoVectorNew(sizeof(int32_t)));
    for (const int32_t value : values) {
        KoVectorAddElement(vector.get(), &value);
    }
    return vector;
}

std::vector<int32_t> numbers_of(const Vector *vector) {
    std::vector<int32_t> values(vector->size);
    for (uint64_t i = 0; i < vector->size; ++i) {
        EXPECT_EQ(KoVectorGetElement(vector, i, &values[i]), KO_OK);
    }
    return values;
}

void expect_counts(const Vector *vector, uint64_t element_size, uint64_t capacity, uint64_t size) {
    EXPECT_EQ(vector->element_size, element_size);
    EXPECT_EQ(vector->capacity, capacity);
    EXPECT_EQ(vector->size, size);
}

// ---- life ----

TEST_F(VectorTest, TheRecordHasFourFieldsOf64Bits) {
    EXPECT_EQ(offsetof(Vector, data), 0u);
    EXPECT_EQ(offsetof(Vector, element_size), 8u);
    EXPECT_EQ(offsetof(Vector, capacity), 16u);
    EXPECT_EQ(offsetof(Vector, size), 24u);
    EXPECT_EQ(sizeof(Vector), 32u);
}

TEST_F(VectorTest, NewHasRoomFor50Elements) {
    for (const uint64_t element_size : {1u, 3u, 4u, 24u, 1000u}) {
        const VectorPtr vector(KoVectorNew(element_size));
        ASSERT_NE(vector, nullptr);
        expect_counts(vector.get(), element_size, 50, 0);
        ASSERT_NE(vector->data, nullptr);
        std::memset(vector->data, 0x5A, 50 * element_size);
    }
    expect_status(KO_OK, "");
}

TEST_F(VectorTest, NewSizeAndInitHaveTheRoomAskedFor) {
    for (const uint64_t capacity : {0u, 1u, 7u, 50u, 5000u}) {
        const VectorPtr vector(KoVectorNewSize(12, capacity));
        ASSERT_NE(vector, nullptr);
        expect_counts(vector.get(), 12, capacity, 0);
        ASSERT_NE(vector->data, nullptr);
        std::memset(vector->data, 0x5A, capacity * 12);
        Vector record;
        std::memset(&record, 0x5A, sizeof record);
        expect_success([&] { return KoVectorInit(&record, 12, capacity); });
        expect_counts(&record, 12, capacity, 0);
        ASSERT_NE(record.data, nullptr);
        std::memset(record.data, 0x5A, capacity * 12);
        expect_success([&] { return KoVectorFree(&record); });
    }
    expect_status(KO_OK, "");
}

TEST_F(VectorTest, FreeLeavesTheFields) {
    Vector vector;
    KoVectorInit(&vector, 4, 9);
    add_noise(&vector, 5, 1);
    const auto data = reinterpret_cast<uintptr_t>(vector.data);
    expect_success([&] { return KoVectorFree(&vector); });
    EXPECT_EQ(reinterpret_cast<uintptr_t>(vector.data), data);
    expect_counts(&vector, 4, 9, 5);
}

TEST_F(VectorTest, FreeAndDeleteAcceptNull) {
    expect_success([] { return KoVectorFree(nullptr); });
    expect_success([] { return KoVectorDelete(nullptr); });
    expect_success([] { return KoVectorDelete(KoVectorNew(4)); });
}

// ---- elements ----

TEST_F(VectorTest, ElementsComeBackByteByByte) {
    for (const uint64_t element_size : {1u, 2u, 3u, 8u, 17u, 300u}) {
        const VectorPtr vector(KoVectorNew(element_size));
        const Bytes expected = add_noise(vector.get(), 120, static_cast<uint32_t>(element_size));
        EXPECT_EQ(KoVectorGetSize(vector.get()), 120u);
        EXPECT_EQ(KoVectorGetElementSize(vector.get()), element_size);
        EXPECT_EQ(bytes_of(vector.get()), expected);
        constexpr uint8_t guard = 0xC3;
        for (uint64_t i = 0; i < 120; ++i) {
            Bytes room(element_size + 16, guard);
            expect_success([&] { return KoVectorGetElement(vector.get(), i, room.data() + 8); });
            Bytes full(element_size + 16, guard);
            std::copy_n(expected.begin() + static_cast<std::ptrdiff_t>(i * element_size), element_size, full.begin() + 8);
            ASSERT_EQ(room, full) << "element " << i;
        }
    }
}

// Up to one below the capacity nothing moves; from there on every element brings its own reallocation.
TEST_F(VectorTest, GrowsByOneElement) {
    const VectorPtr vector(KoVectorNew(4));
    const void *data = vector->data;
    for (uint32_t i = 1; i <= 200; ++i) {
        expect_success([&] { return KoVectorAddElement(vector.get(), &i); });
        expect_counts(vector.get(), 4, std::max(i, 50u), i);
        if (i < 50) {
            EXPECT_EQ(vector->data, data);
        }
    }
    for (uint32_t i = 0; i < 200; ++i) {
        EXPECT_EQ(static_cast<const uint32_t *>(vector->data)[i], i + 1);
    }
}

TEST_F(VectorTest, GrowsFromNothing) {
    const VectorPtr vector(KoVectorNewSize(8, 0));
    const Bytes expected = add_noise(vector.get(), 1, 1);
    expect_counts(vector.get(), 8, 1, 1);
    EXPECT_EQ(bytes_of(vector.get()), expected);
    const Bytes more = add_noise(vector.get(), 9, 2);
    expect_counts(vector.get(), 8, 10, 10);
}

TEST_F(VectorTest, AnElementIsOnlyRead) {
    const VectorPtr vector(KoVectorNewSize(5, 2));
    const Bytes source = noise_bytes(5 + 16, 3);
    Bytes given = source;
    for (int i = 0; i < 4; ++i) {
        KoVectorAddElement(vector.get(), given.data() + 8);
    }
    EXPECT_EQ(given, source);
}

TEST_F(VectorTest, GetOfAnIndexPastTheSizeReportsIt) {
    const VectorPtr vector = numbers({7, 8, 9});
    int32_t room = 77;
    expect_error(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: 3 (0-3)",
                 [&] { return KoVectorGetElement(vector.get(), 3, &room); });
    expect_error(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: 49 (0-3)", // there would be room
                 [&] { return KoVectorGetElement(vector.get(), 49, &room); });
    expect_error(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: 1000 (0-3)",
                 [&] { return KoVectorGetElement(vector.get(), 1000, &room); });
    for (const uint64_t index : {uint64_t{1} << 32, UINT64_MAX, uint64_t{1} << 63}) { // all 64 bits count
        EXPECT_EQ(KoVectorGetElement(vector.get(), index, &room), KO_ERR_INDEX_OUT_OF_BOUNDS);
    }
    EXPECT_EQ(room, 77);
    const VectorPtr empty(KoVectorNew(4));
    expect_error(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: 0 (0-0)",
                 [&] { return KoVectorGetElement(empty.get(), 0, &room); });
    // The text shows the low 32 bits of an index, the test takes all of it.
    expect_error(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: 1 (0-3)",
                 [&] { return KoVectorGetElement(vector.get(), (uint64_t{1} << 32) + 1, &room); });
    EXPECT_EQ(room, 77);
}

// Elements of no bytes are only counted.
TEST_F(VectorTest, ElementsOfNoBytes) {
    const VectorPtr vector(KoVectorNew(0));
    ASSERT_NE(vector, nullptr);
    uint8_t room = 77;
    for (uint64_t count = 1; count <= 60; ++count) {
        expect_success([&] { return KoVectorAddElement(vector.get(), &room); });
        EXPECT_EQ(KoVectorGetSize(vector.get()), count);
        EXPECT_EQ(KoVectorEnd(vector.get()), KoVectorBegin(vector.get()));
    }
    expect_success([&] { return KoVectorGetElement(vector.get(), 59, &room); });
    EXPECT_EQ(KoVectorGetElement(vector.get(), 60, &room), KO_ERR_INDEX_OUT_OF_BOUNDS);
    EXPECT_EQ(room, 77u);
}

// ---- counts ----

TEST_F(VectorTest, ReserveBelowTheCapacityDoesNothing) {
    const VectorPtr vector(KoVectorNew(4));
    const Bytes expected = add_noise(vector.get(), 20, 1);
    const void *data = vector->data;
    for (const uint64_t count : {0u, 1u, 19u, 20u, 49u}) {
        expect_success([&] { return KoVectorReserve(vector.get(), count); });
        EXPECT_EQ(vector->data, data);
        expect_counts(vector.get(), 4, 50, 20);
    }
    EXPECT_EQ(bytes_of(vector.get()), expected);
}

TEST_F(VectorTest, ReserveFromTheCapacityOnTakesExactlyTheCount) {
    const VectorPtr vector(KoVectorNew(4));
    const Bytes expected = add_noise(vector.get(), 20, 1);
    for (const uint64_t count : {50u, 51u, 70u, 100000u}) {
        expect_success([&] { return KoVectorReserve(vector.get(), count); });
        expect_counts(vector.get(), 4, count, 20);
        EXPECT_EQ(bytes_of(vector.get()), expected);
        std::memset(static_cast<uint8_t *>(vector->data) + 80, 0x5A, (count - 20) * 4);
    }
    expect_success([&] { return KoVectorReserve(vector.get(), 60); });
    expect_counts(vector.get(), 4, 100000, 20);
}

TEST_F(VectorTest, ReserveOfNothingIsNoFailure) {
    const VectorPtr vector(KoVectorNewSize(4, 0));
    expect_success([&] { return KoVectorReserve(vector.get(), 0); });
    expect_counts(vector.get(), 4, 0, 0);
    add_noise(vector.get(), 2, 1);
    expect_counts(vector.get(), 4, 2, 2);
}

// A caller that reserves its count and one more grows once.
TEST_F(VectorTest, AReservedCountIsFilledWithoutMoving) {
    const VectorPtr vector(KoVectorNew(4));
    KoVectorReserve(vector.get(), 301);
    const void *data = vector->data;
    add_noise(vector.get(), 300, 1);
    EXPECT_EQ(vector->data, data);
    expect_counts(vector.get(), 4, 301, 300);
}

TEST_F(VectorTest, SetSizeClearsNothing) {
    const VectorPtr vector(KoVectorNew(4));
    const void *data = vector->data;
    std::memset(vector->data, 0x77, 50 * 4);
    const Bytes expected = add_noise(vector.get(), 3, 1);
    for (const uint64_t size : {0u, 2u, 3u, 49u, 50u, 1u, 50u}) {
        expect_success([&] { return KoVectorSetSize(vector.get(), size); });
        expect_counts(vector.get(), 4, 50, size);
    }
    Bytes full = expected;
    full.resize(50 * 4, 0x77);
    EXPECT_EQ(bytes_of(vector.get()), full);
    EXPECT_EQ(vector->data, data);
}

TEST_F(VectorTest, SetSizePastTheCapacityReportsIt) {
    const VectorPtr vector(KoVectorNew(4));
    add_noise(vector.get(), 3, 1);
    expect_error(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: 51 (0-50)",
                 [&] { return KoVectorSetSize(vector.get(), 51); });
    expect_error(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: 70000 (0-50)",
                 [&] { return KoVectorSetSize(vector.get(), 70000); });
    for (const uint64_t size : {uint64_t{1} << 32, UINT64_MAX, uint64_t{1} << 63}) { // all 64 bits count
        EXPECT_EQ(KoVectorSetSize(vector.get(), size), KO_ERR_INDEX_OUT_OF_BOUNDS);
    }
    expect_counts(vector.get(), 4, 50, 3);
    const VectorPtr none(KoVectorNewSize(4, 0));
    expect_success([&] { return KoVectorSetSize(none.get(), 0); });
    expect_error(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: 1 (0-0)", [&] { return KoVectorSetSize(none.get(), 1); });
}

TEST_F(VectorTest, AddGoesOnBehindTheSetSize) {
    const VectorPtr vector = numbers({1, 2, 3, 4, 5});
    KoVectorSetSize(vector.get(), 2);
    const int32_t next = 9;
    KoVectorAddElement(vector.get(), &next);
    EXPECT_EQ(numbers_of(vector.get()), (std::vector<int32_t>{1, 2, 9}));
    KoVectorSetSize(vector.get(), 5);
    EXPECT_EQ(numbers_of(vector.get()), (std::vector<int32_t>{1, 2, 9, 4, 5}));
    KoVectorSetSize(vector.get(), 50); // all room is in use
    KoVectorAddElement(vector.get(), &next);
    expect_counts(vector.get(), 4, 51, 51);
    KoVectorGetElement(vector.get(), 50, static_cast<int32_t *>(vector->data));
    EXPECT_EQ(*static_cast<int32_t *>(vector->data), 9);
}

TEST_F(VectorTest, BeginAndEndSpanTheElements) {
    for (const uint64_t element_size : {1u, 3u, 24u}) {
        const VectorPtr vector(KoVectorNew(element_size));
        EXPECT_EQ(KoVectorBegin(vector.get()), vector->data);
        EXPECT_EQ(KoVectorEnd(vector.get()), KoVectorBegin(vector.get()));
        for (uint64_t count = 1; count <= 60; ++count) {
            add_noise(vector.get(), 1, 1);
            EXPECT_EQ(KoVectorBegin(vector.get()), vector->data);
            EXPECT_EQ(KoVectorEnd(vector.get()), static_cast<uint8_t *>(vector->data) + count * element_size);
        }
    }
    const VectorPtr none(KoVectorNewSize(8, 0));
    EXPECT_EQ(KoVectorEnd(none.get()), KoVectorBegin(none.get()));
    expect_status(KO_OK, "");
}

// ---- sorting ----

int ascending(const void *first, const void *second) {
    const int32_t a = *static_cast<const int32_t *>(first);
    const int32_t b = *static_cast<const int32_t *>(second);
    return a < b ? -1 : a > b;
}

int descending(const void *first, const void *second) { return -ascending(first, second); }

TEST_F(VectorTest, SortFollowsTheComparison) {
    for (const uint32_t count : {0u, 1u, 2u, 3u, 49u, 50u, 51u, 1000u}) {
        std::vector<int32_t> values(count);
        Noise noise(count);
        std::generate(values.begin(), values.end(), [&] { return static_cast<int32_t>(noise.next() % (count / 2 + 1)) - 9; });
        const VectorPtr vector = numbers(values);
        expect_success([&] { return KoVectorSort(vector.get(), ascending); });
        std::sort(values.begin(), values.end());
        EXPECT_EQ(numbers_of(vector.get()), values);
        expect_success([&] { return KoVectorSort(vector.get(), descending); });
        std::reverse(values.begin(), values.end());
        EXPECT_EQ(numbers_of(vector.get()), values);
        EXPECT_EQ(KoVectorGetSize(vector.get()), count);
    }
}

// What has room but is not in use is neither moved nor looked at.
TEST_F(VectorTest, SortTakesTheElementsInUse) {
    const VectorPtr vector = numbers({5, 4, 3, 2, 1, 0, -1});
    KoVectorSetSize(vector.get(), 4);
    EXPECT_EQ(KoVectorSort(vector.get(), ascending), 0);
    KoVectorSetSize(vector.get(), 7);
    EXPECT_EQ(numbers_of(vector.get()), (std::vector<int32_t>{2, 3, 4, 5, 1, 0, -1}));
}

// Elements of no bytes are all the same: nothing is compared.
TEST_F(VectorTest, SortOfElementsWithoutBytesDoesNothing) {
    const VectorPtr vector(KoVectorNew(0));
    KoVectorSetSize(vector.get(), 40);
    expect_success([&] {
        return KoVectorSort(vector.get(), [](const void *, const void *) {
            ADD_FAILURE() << "compared";
            return 0;
        });
    });
    EXPECT_EQ(KoVectorGetSize(vector.get()), 40u);
}

struct Packed {
    uint8_t key;
    uint8_t payload[4];
};
static_assert(sizeof(Packed) == 5);

int by_key(const void *first, const void *second) {
    return static_cast<const Packed *>(first)->key - static_cast<const Packed *>(second)->key;
}

TEST_F(VectorTest, SortMovesWholeElements) {
    const VectorPtr vector(KoVectorNew(sizeof(Packed)));
    for (uint32_t i = 0; i < 256; ++i) {
        const auto key = static_cast<uint8_t>(i * 37);
        const auto other = static_cast<uint8_t>(~key);
        const Packed element{key, {other, key, other, key}};
        KoVectorAddElement(vector.get(), &element);
    }
    EXPECT_EQ(KoVectorSort(vector.get(), by_key), 0);
    for (uint32_t i = 0; i < 256; ++i) {
        Packed element;
        KoVectorGetElement(vector.get(), i, &element);
        const auto key = static_cast<uint8_t>(i);
        const auto other = static_cast<uint8_t>(~key);
        const Packed expected{key, {other, key, other, key}};
        ASSERT_EQ(std::memcmp(&element, &expected, sizeof element), 0) << "element " << i;
    }
}

// ---- failures ----

constexpr uint64_t too_wide = 42949673; // 50 of them are 2 bytes more than 2^31

TEST_F(VectorTest, NewWithoutRoomNamesTheObject) {
    const PrintCapture printed("debug");
    StderrCapture captured;
    EXPECT_EQ(KoVectorNew(too_wide), nullptr);
    EXPECT_EQ(own_lines(captured.stop()), allocator_line(-2147483646));
    expect_status(KO_ERR_CREATE_OBJECT, "Cannot create object \"Vector\"\n-> " + allocator_text(-2147483646));
    EXPECT_TRUE(printed.texts().empty());
}

// It leaves the allocator's status and names no object.
TEST_F(VectorTest, NewSizeWithoutRoomLeavesTheAllocatorsStatus) {
    const PrintCapture printed("debug");
    StderrCapture captured;
    EXPECT_EQ(KoVectorNewSize(4, 536870912), nullptr);
    EXPECT_EQ(own_lines(captured.stop()), allocator_line(-2147483648LL));
    expect_status(KO_ERR_ALLOC, allocator_text(-2147483648LL));
    EXPECT_TRUE(printed.texts().empty());
}

TEST_F(VectorTest, InitWithoutRoomGivesTheStatus) {
    const PrintCapture printed("debug");
    StderrCapture captured;
    Vector vector;
    std::memset(&vector, 0x5A, sizeof vector);
    EXPECT_EQ(KoVectorInit(&vector, 4, 536870912), KO_ERR_ALLOC);
    EXPECT_EQ(own_lines(captured.stop()), allocator_line(-2147483648LL));
    expect_status(KO_ERR_ALLOC, allocator_text(-2147483648LL));
    EXPECT_TRUE(printed.texts().empty());
    EXPECT_EQ(vector.data, nullptr);
    EXPECT_EQ(vector.size, 0u);
    EXPECT_EQ(KoVectorFree(&vector), KO_OK);
}

// A growth that fails gives the elements up: the fields no longer lead to them, and the old block stays the heap's.
void expect_given_up(Vector *vector, uint64_t size, int64_t bytes, int32_t (*grow)(Vector *)) {
    const Bytes expected = bytes_of(vector);
    void *surrendered = vector->data;
    const uint64_t element_size = vector->element_size;
    KoStatusClear();
    const PrintCapture printed("debug");
    StderrCapture captured;
    EXPECT_EQ(grow(vector), KO_ERR_ALLOC);
    EXPECT_EQ(own_lines(captured.stop()), allocator_line(bytes));
    expect_status(KO_ERR_ALLOC, allocator_text(bytes));
    EXPECT_TRUE(printed.texts().empty());
    EXPECT_EQ(vector->data, nullptr);
    expect_counts(vector, element_size, 0, size);
    const auto *block = static_cast<const uint8_t *>(surrendered);
    EXPECT_EQ(Bytes(block, block + expected.size()), expected); // still there for who kept the pointer
    KoFree(surrendered);
}

TEST_F(VectorTest, AFailedReserveGivesTheElementsUp) {
    const VectorPtr vector = numbers({7, 8, 9});
    expect_given_up(vector.get(), 3, -2147483648LL, [](Vector *each) { return KoVectorReserve(each, 536870912); });
    const VectorPtr empty(KoVectorNew(4));
    expect_given_up(empty.get(), 0, -4, [](Vector *each) { return KoVectorReserve(each, 1073741823); });
}

TEST_F(VectorTest, AFailedAddGivesTheElementsUp) {
    const VectorPtr vector(KoVectorNewSize(uint64_t{1} << 31, 0)); // no bytes for none, too many for one
    ASSERT_NE(vector, nullptr);
    expect_given_up(vector.get(), 0, -2147483648LL, [](Vector *each) { return KoVectorAddElement(each, each); });
}

// Products are formed in 32 bits: what is left of them is allocated, and the capacity is what was asked for. See "Sizes of 32
// bits" in docs/compatibility.md.
TEST_F(VectorTest, TheBytesWrapAt32Bits) {
    const VectorPtr empty_block(KoVectorNewSize(65536, 65536));
    ASSERT_NE(empty_block, nullptr);
    expect_counts(empty_block.get(), 65536, 65536, 0);
    const VectorPtr high_bits(KoVectorNewSize(4, (uint64_t{1} << 32) + 2));
    ASSERT_NE(high_bits, nullptr);
    expect_counts(high_bits.get(), 4, (uint64_t{1} << 32) + 2, 0);
    Vector record;
    expect_success([&] { return KoVectorInit(&record, uint64_t{1} << 32, 3); });
    expect_counts(&record, uint64_t{1} << 32, 3, 0);
    KoVectorFree(&record);
    const VectorPtr grown = numbers({7, 8, 9});
    expect_success([&] { return KoVectorReserve(grown.get(), 0x40000003); }); // 12 bytes are left of it
    expect_counts(grown.get(), 4, 0x40000003, 3);
    EXPECT_EQ(numbers_of(grown.get()), (std::vector<int32_t>{7, 8, 9}));
}

TEST_F(VectorTest, SuccessClearsNoOlderReport) {
    KoMsg(KO_ERR_FATAL);
    const VectorPtr vector = numbers({3, 1, 2});
    KoVectorReserve(vector.get(), 60);
    KoVectorSetSize(vector.get(), 2);
    KoVectorSort(vector.get(), ascending);
    EXPECT_EQ(numbers_of(vector.get()), (std::vector<int32_t>{1, 3}));
    expect_status(KO_ERR_FATAL, "Fatal Error. Cannot continue");
}

} // namespace
