// Grids when memory runs short, as tests over the types of grids.h. For programs that link ko_faulty.
#ifndef KO_TESTS_GRID_FAULT_TESTS_H
#define KO_TESTS_GRID_FAULT_TESTS_H

#include <cstdint>
#include <cstring>
#include <vector>

#include "allocation_sweep.h"
#include "grids.h"

namespace ko_test {

template <class Family> class GridFaultTest : public LibraryTest {
  protected:
    static inline const std::vector<int64_t> record = {sizeof(typename Family::Grid)};
};
TYPED_TEST_SUITE_P(GridFaultTest);

TYPED_TEST_P(GridFaultTest, NewGivesNullAndNamesTheObject) {
    expect_allocations(this->record + grid_blocks(5, 3), KO_ERR_CREATE_OBJECT, cannot_create(TypeParam::name), [] {
        auto *grid = TypeParam::New(5, 3);
        TypeParam::Delete(grid);
        return grid != nullptr;
    });
}

TYPED_TEST_P(GridFaultTest, NewWithoutRowsNeedsTheRecordAlone) {
    expect_allocations(this->record, KO_ERR_CREATE_OBJECT, cannot_create(TypeParam::name), [] {
        auto *grid = TypeParam::New(5, 0);
        TypeParam::Delete(grid);
        return grid != nullptr;
    });
}

// A record whose Init failed is still the caller's to free.
TYPED_TEST_P(GridFaultTest, InitGivesItsStatusAndLeavesARecordToFree) {
    expect_allocations(grid_blocks(8, 7), KO_ERR_ALLOC, "", [] {
        typename TypeParam::Grid grid;
        std::memset(&grid, 0x5A, sizeof grid);
        const int32_t status = TypeParam::Init(&grid, 8, 7);
        EXPECT_EQ(status, KoErrorGetLastError());
        EXPECT_EQ(TypeParam::Free(&grid), KO_OK);
        EXPECT_EQ(grid.buffer, nullptr);
        EXPECT_EQ(grid.rows, nullptr);
        return status == KO_OK;
    });
}

REGISTER_TYPED_TEST_SUITE_P(GridFaultTest, NewGivesNullAndNamesTheObject, NewWithoutRowsNeedsTheRecordAlone,
                            InitGivesItsStatusAndLeavesARecordToFree);

template <class Family> class FloatGridFaultTest : public GridFaultTest<Family> {};
TYPED_TEST_SUITE_P(FloatGridFaultTest);

// They leave the status as it stands and name no object.
TYPED_TEST_P(FloatGridFaultTest, NewFromAnArrayGivesNull) {
    const std::vector<uint8_t> bytes(15, 1);
    const std::vector<float> floats(15, 1.0f);
    expect_allocations(this->record + grid_blocks(5, 3), KO_ERR_ALLOC, "", [&] {
        auto *grid = TypeParam::NewFromByteArray(5, 3, bytes.data(), 0);
        TypeParam::Delete(grid);
        return grid != nullptr;
    });
    expect_allocations(this->record + grid_blocks(5, 3), KO_ERR_ALLOC, "", [&] {
        auto *grid = TypeParam::NewFromFloatArray(5, 3, floats.data());
        TypeParam::Delete(grid);
        return grid != nullptr;
    });
}

TYPED_TEST_P(FloatGridFaultTest, IteratorNewGivesNullAndNamesTheObject) {
    auto *grid = TypeParam::New(5, 3);
    const std::vector<int64_t> sizes = {sizeof(typename TypeParam::Iterator)};
    expect_allocations(sizes, KO_ERR_CREATE_OBJECT, cannot_create(TypeParam::iterator_name), [grid] {
        auto *iterator = TypeParam::IteratorNew(grid);
        TypeParam::IteratorDelete(iterator);
        return iterator != nullptr;
    });
    expect_allocations(sizes, KO_ERR_CREATE_OBJECT, cannot_create(TypeParam::iterator_name), [grid] {
        auto *iterator = TypeParam::IteratorNewSub(grid, 1, 1, 2, 2);
        TypeParam::IteratorDelete(iterator);
        return iterator != nullptr;
    });
    TypeParam::Delete(grid);
}

REGISTER_TYPED_TEST_SUITE_P(FloatGridFaultTest, NewFromAnArrayGivesNull, IteratorNewGivesNullAndNamesTheObject);

} // namespace ko_test

#endif
