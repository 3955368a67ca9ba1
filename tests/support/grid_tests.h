// The layout of rows and what all three families of grids have in common, as tests over the types of grids.h.
#ifndef KO_TESTS_GRID_TESTS_H
#define KO_TESTS_GRID_TESTS_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "grids.h"
#include "ko/memory.h"
#include "library_test.h"

namespace ko_test {

// A grid that is deleted at the end of its life.
template <class Family> struct GridDeleter {
    void operator()(typename Family::Grid *grid) const { Family::Delete(grid); }
};
template <class Family> using GridPtr = std::unique_ptr<typename Family::Grid, GridDeleter<Family>>;

template <class Family> GridPtr<Family> new_grid(uint64_t width, uint64_t height) {
    return GridPtr<Family>(Family::New(width, height));
}

template <class Grid> uint64_t stride(const Grid &grid) { return grid.width + grid.padding; }

// The padding elements of all rows.
template <class Grid> auto padding_of(const Grid &grid) {
    std::vector<std::remove_pointer_t<decltype(grid.buffer)>> elements;
    for (uint64_t y = 0; y < grid.height; ++y) {
        elements.insert(elements.end(), grid.rows[y] + grid.width, grid.rows[y] + stride(grid));
    }
    return elements;
}

// Leaves blocks of many sizes full of set bits on the heap.
inline void soil_heap() {
    std::vector<void *> blocks;
    for (int32_t size = 16; size <= 4096; size += 16) {
        blocks.push_back(KoMalloc(size));
        std::memset(blocks.back(), 0xFF, static_cast<size_t>(size));
    }
    std::for_each(blocks.begin(), blocks.end(), KoFree);
}

struct GridSize {
    uint64_t width, height;
};

// Its block has 2^31 + 128 bytes, with 8 for each of the 16384 times 16384 elements of its rows.
constexpr GridSize too_large{16380, 16384};
constexpr const char *too_large_text = "Cannot allocate -2147483520 bytes";

template <class Family> class GridTest : public LibraryTest {};
TYPED_TEST_SUITE_P(GridTest);

TYPED_TEST_P(GridTest, PaddingMakesTheStrideAMultipleOfFourAndAtLeastFourMore) {
    constexpr uint64_t padding[] = {4, 7, 6, 5};
    for (uint64_t width = 0; width < 20; ++width) {
        const auto grid = new_grid<TypeParam>(width, 3);
        ASSERT_NE(grid, nullptr);
        EXPECT_EQ(grid->padding, padding[width % 4]) << width;
        EXPECT_EQ(stride(*grid) % 4, 0u) << width;
        EXPECT_EQ(TypeParam::GetWidth(grid.get()), width);
        EXPECT_EQ(TypeParam::GetHeight(grid.get()), 3u);
        EXPECT_EQ(TypeParam::GetPadding(grid.get()), grid->padding);
    }
}

TYPED_TEST_P(GridTest, RowsStandOneStrideApartOnBoundariesOf16Bytes) {
    for (const GridSize size : {GridSize{5, 3}, GridSize{8, 1}, GridSize{1, 1}, GridSize{4, 100}, GridSize{1001, 7}}) {
        const auto grid = new_grid<TypeParam>(size.width, size.height);
        const auto block = reinterpret_cast<uintptr_t>(grid->buffer);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(grid->rows[0]), (block + 15) / 16 * 16);
        for (uint64_t y = 0; y < size.height; ++y) {
            EXPECT_EQ(reinterpret_cast<uintptr_t>(grid->rows[y]) % 16, 0u);
            EXPECT_EQ(grid->rows[y], grid->rows[0] + y * stride(*grid));
        }
    }
}

TYPED_TEST_P(GridTest, PaddingIsZeroFromCreationOn) {
    for (uint64_t width = 1; width < 9; ++width) {
        soil_heap();
        const auto grid = new_grid<TypeParam>(width, 5);
        EXPECT_EQ(padding_of(*grid), std::vector<typename TypeParam::Element>(5 * grid->padding, 0));
    }
}

TYPED_TEST_P(GridTest, HeightZeroHasNeitherBlockNorRows) {
    expect_success([] {
        const auto grid = new_grid<TypeParam>(10, 0);
        EXPECT_EQ(grid->width, 10u);
        EXPECT_EQ(grid->height, 0u);
        EXPECT_EQ(grid->padding, 6u);
        EXPECT_EQ(grid->buffer, nullptr);
        EXPECT_EQ(grid->rows, nullptr);
        return TypeParam::Free(grid.get());
    });
}

TYPED_TEST_P(GridTest, InitFillsTheCallersRecordAndFreeEmptiesIt) {
    typename TypeParam::Grid grid;
    std::memset(&grid, 0x5A, sizeof grid);
    expect_success([&] { return TypeParam::Init(&grid, 6, 2); });
    EXPECT_EQ(grid.width, 6u);
    EXPECT_EQ(grid.height, 2u);
    EXPECT_EQ(grid.padding, 6u);
    ASSERT_NE(grid.buffer, nullptr);
    ASSERT_NE(grid.rows, nullptr);
    for (int time = 0; time < 2; ++time) {
        expect_success([&] { return TypeParam::Free(&grid); });
        EXPECT_EQ(grid.buffer, nullptr);
        EXPECT_EQ(grid.rows, nullptr);
    }
}

TYPED_TEST_P(GridTest, FreeAndDeleteAcceptNull) {
    expect_success([] { return TypeParam::Free(nullptr); });
    expect_success([] { return TypeParam::Delete(nullptr); });
    expect_success([] { return TypeParam::Delete(TypeParam::New(3, 3)); });
}

TYPED_TEST_P(GridTest, ValuesAreReachedByColumnThenRow) {
    using Element = typename TypeParam::Element;
    const auto grid = new_grid<TypeParam>(5, 3);
    for (uint64_t y = 0; y < 3; ++y) {
        for (uint64_t x = 0; x < 5; ++x) {
            TypeParam::SetValue(grid.get(), x, y, static_cast<Element>(10 * x) - static_cast<Element>(y));
        }
    }
    for (uint64_t y = 0; y < 3; ++y) {
        EXPECT_EQ(TypeParam::GetRow(grid.get(), y), grid->rows[y]);
        for (uint64_t x = 0; x < 5; ++x) {
            const auto expected = static_cast<Element>(10 * x) - static_cast<Element>(y);
            EXPECT_EQ(TypeParam::GetValue(grid.get(), x, y), expected);
            EXPECT_EQ(grid->rows[y][x], expected);
        }
    }
    EXPECT_EQ(padding_of(*grid), std::vector<Element>(3 * grid->padding, 0));
}

TYPED_TEST_P(GridTest, SetRowCopiesTheWidthAlone) {
    using Element = typename TypeParam::Element;
    for (uint64_t width = 1; width < 10; ++width) {
        const auto grid = new_grid<TypeParam>(width, 3);
        for (uint64_t y = 0; y < 3; ++y) {
            std::fill_n(grid->rows[y], width, Element{-1});
        }
        std::vector<Element> source(width);
        for (uint64_t x = 0; x < width; ++x) {
            source[x] = static_cast<Element>(100 + x);
        }
        TypeParam::SetRow(grid.get(), 1, source.data());
        EXPECT_EQ(std::vector<Element>(grid->rows[1], grid->rows[1] + width), source);
        for (const uint64_t y : {uint64_t{0}, uint64_t{2}}) {
            EXPECT_EQ(std::vector<Element>(grid->rows[y], grid->rows[y] + width), std::vector<Element>(width, -1));
        }
        EXPECT_EQ(padding_of(*grid), std::vector<Element>(3 * grid->padding, 0));
    }
}

// A block has 8 bytes an element, twice what the elements need, and its size is shown as the allocators take it.
TYPED_TEST_P(GridTest, ABlockOf2GigabytesFailsLikeAnAllocationOfThatSize) {
    StderrCapture captured;
    const auto grid = new_grid<TypeParam>(too_large.width, too_large.height);
    const std::string written = captured.stop();
    EXPECT_EQ(grid, nullptr);
    expect_status(KO_ERR_CREATE_OBJECT,
                  "Cannot create object \"" + std::string(TypeParam::name) + "\"\n-> " + std::string(too_large_text));
    const std::string line = "[ERROR] Memory allocation failed: can't allocated -2147483520 bytes of memory\n";
    EXPECT_NE(written.find(line), std::string::npos) << written;
}

TYPED_TEST_P(GridTest, FailedInitLeavesARecordToFree) {
    typename TypeParam::Grid grid;
    std::memset(&grid, 0x5A, sizeof grid);
    StderrCapture swallowed;
    EXPECT_EQ(TypeParam::Init(&grid, too_large.width, too_large.height), KO_ERR_ALLOC);
    expect_status(KO_ERR_ALLOC, too_large_text);
    EXPECT_EQ(grid.width, too_large.width);
    EXPECT_EQ(grid.height, too_large.height);
    EXPECT_EQ(grid.padding, 4u);
    EXPECT_EQ(TypeParam::Free(&grid), KO_OK);
    EXPECT_EQ(grid.buffer, nullptr);
    EXPECT_EQ(grid.rows, nullptr);
}

// A size that would come out small in 32 or in 64 bits is no small block.
TYPED_TEST_P(GridTest, SizesThatWrapFailToo) {
    const std::string start = "Cannot create object \"" + std::string(TypeParam::name) + "\"\n-> Cannot allocate ";
    for (const GridSize size : {GridSize{32764, 16384}, GridSize{uint64_t{1} << 61, 8}, GridSize{1, uint64_t{1} << 29},
                                GridSize{1, uint64_t{1} << 61}, GridSize{UINT64_MAX - 3, 4}}) {
        KoStatusClear();
        StderrCapture swallowed;
        EXPECT_EQ(new_grid<TypeParam>(size.width, size.height), nullptr) << size.width << " by " << size.height;
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
        EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).rfind(start, 0), 0u) << KoErrorGetLastErrorMessage();
    }
}

REGISTER_TYPED_TEST_SUITE_P(GridTest, PaddingMakesTheStrideAMultipleOfFourAndAtLeastFourMore,
                            RowsStandOneStrideApartOnBoundariesOf16Bytes, PaddingIsZeroFromCreationOn,
                            HeightZeroHasNeitherBlockNorRows, InitFillsTheCallersRecordAndFreeEmptiesIt,
                            FreeAndDeleteAcceptNull, ValuesAreReachedByColumnThenRow, SetRowCopiesTheWidthAlone,
                            ABlockOf2GigabytesFailsLikeAnAllocationOfThatSize, FailedInitLeavesARecordToFree,
                            SizesThatWrapFailToo);

} // namespace ko_test

#endif
