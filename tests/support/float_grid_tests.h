// What MatrixFloat and RealImage have in common beyond the layout, as tests over the types of grids.h.
#ifndef KO_TESTS_FLOAT_GRID_TESTS_H
#define KO_TESTS_FLOAT_GRID_TESTS_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "awkward_floats.h"
#include "grid_tests.h"
#include "guards.h"
#include "same_floats.h"
#include "turn_sizes.h"
#include "warnings.h"

namespace ko_test {

// Rows of an array: 0 for count means one row.
struct RowRange {
    uint64_t start, count, skip;

    uint64_t rows() const { return count == 0 ? 1 : count; }
    bool holds(uint64_t y) const { return y >= start && y < start + rows(); }
    // Where element (x, y) of a grid stands in the array.
    uint64_t index(uint64_t width, uint64_t x, uint64_t y) const { return (y - start) * (width + skip) + x; }
    // Elements of the array up to the last that is used.
    uint64_t array_size(uint64_t width) const { return (rows() - 1) * (width + skip) + width; }
};

// Ranges of a grid of five rows.
constexpr RowRange row_ranges[] = {{0, 5, 0}, {0, 5, 3}, {1, 3, 0}, {1, 3, 7}, {4, 1, 2},
                                   {0, 0, 0}, {2, 0, 5}, {4, 0, 1}, {3, 2, 1}};
constexpr uint64_t row_widths[] = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 33};

template <class Family> class FloatGridTest : public LibraryTest {
  protected:
    using Grid = typename Family::Grid;
    using Iterator = typename Family::Iterator;

    static GridPtr<Family> filled(uint64_t width, uint64_t height, float value) {
        auto grid = new_grid<Family>(width, height);
        for (uint64_t y = 0; y < height; ++y) {
            std::fill_n(grid->rows[y], width, value);
        }
        return grid;
    }

    static GridPtr<Family> of(uint64_t width, uint64_t height, const std::vector<float> &values) {
        auto grid = new_grid<Family>(width, height);
        for (uint64_t y = 0; y < height; ++y) {
            std::copy_n(values.begin() + static_cast<std::ptrdiff_t>(y * width), width, grid->rows[y]);
        }
        return grid;
    }

    static void expect_zero_padding(const Grid &grid) {
        EXPECT_TRUE(same_floats(std::vector<float>(grid.height * grid.padding, 0.0f), padding_of(grid)));
    }

    // Calls check(width, range) for all widths and ranges.
    template <class Check> static void for_all_ranges(Check check) {
        for (const uint64_t width : row_widths) {
            for (const RowRange &range : row_ranges) {
                SCOPED_TRACE(testing::Message() << "width " << width << ", start " << range.start << ", count " << range.count);
                check(width, range);
            }
        }
    }

    // Fills rows of a grid of -7 from an array and compares every element.
    template <class Element, class Fill>
    static void expect_filled_rows(uint64_t width, const RowRange &range, const std::vector<Element> &array, Fill fill) {
        const auto grid = filled(width, 5, -7.0f);
        expect_success([&] { return fill(grid.get(), array.data(), range.start, range.count, range.skip); });
        for (uint64_t y = 0; y < 5; ++y) {
            for (uint64_t x = 0; x < width; ++x) {
                const float expected = range.holds(y) ? static_cast<float>(array[range.index(width, x, y)]) : -7.0f;
                ASSERT_TRUE(same_float(grid->rows[y][x], expected)) << x << ", " << y << ": " << grid->rows[y][x];
            }
        }
        expect_zero_padding(*grid);
    }

    static std::string start_warning(const std::string &start, const std::string &height) {
        return std::string("[WARNING] ") + Family::row_word + "_start(" + start + ") >= " + Family::grid_word + "->height (" +
               height + ")";
    }

    static std::string count_warning(const std::string &start, const std::string &count, const std::string &height) {
        const std::string row = Family::row_word;
        return "[WARNING] " + row + "_start(" + start + ") + " + row + "_num(" + count + ") >= " + Family::grid_word +
               "->height (" + height + ")";
    }

    // The first elements and the lengths of the rows that a walk yields.
    using Walk = std::vector<std::pair<const float *, std::ptrdiff_t>>;

    static Walk walk(Iterator &iterator) {
        Walk rows;
        while (Family::IteratorHasNext(&iterator) != 0) {
            const float *line = Family::IteratorNext(&iterator);
            EXPECT_EQ(line, iterator.line);
            EXPECT_EQ(Family::IteratorLineEnd(&iterator), iterator.line_end);
            rows.emplace_back(line, iterator.line_end - line);
        }
        return rows;
    }

    static Walk rectangle_of(const Grid &grid, uint64_t x, uint64_t y, uint64_t width, uint64_t height) {
        Walk rows;
        for (uint64_t i = 0; i < std::max<uint64_t>(height, 1); ++i) {
            rows.emplace_back(grid.rows[y + i] + x, static_cast<std::ptrdiff_t>(width));
        }
        return rows;
    }
};
TYPED_TEST_SUITE_P(FloatGridTest);

// Bytes and floats in and out

inline uint8_t plain_floored_byte(float value) {
    const double whole = std::trunc(static_cast<double>(value));
    return whole >= 0.0 && whole <= 2147483647.0 ? static_cast<uint8_t>(static_cast<int64_t>(whole) & 255) : uint8_t{0};
}

TYPED_TEST_P(FloatGridTest, BytesComeInWithTheirValue) {
    std::vector<uint8_t> bytes(256);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(i);
    }
    const auto grid = this->filled(256, 1, -1.0f);
    expect_success([&] { return TypeParam::FromByteArray(grid.get(), bytes.data(), 0, 1, 0); });
    for (size_t i = 0; i < bytes.size(); ++i) {
        EXPECT_EQ(grid->rows[0][i], static_cast<float>(i));
    }
}

TYPED_TEST_P(FloatGridTest, FromByteArrayFillsTheRowsNamedAndNoOther) {
    this->for_all_ranges([&](uint64_t width, const RowRange &range) {
        this->expect_filled_rows(width, range, noise_bytes(range.array_size(width), 1), TypeParam::FromByteArray);
    });
}

TYPED_TEST_P(FloatGridTest, FromFloatArrayCopiesTheRowsNamedAndNoOther) {
    this->for_all_ranges([&](uint64_t width, const RowRange &range) {
        this->expect_filled_rows(width, range, awkward_floats(range.array_size(width), 2), TypeParam::FromFloatArray);
    });
}

TYPED_TEST_P(FloatGridTest, ToByteArrayWritesTheRowsNamedAndSkipsTheRest) {
    this->for_all_ranges([&](uint64_t width, const RowRange &range) {
        const auto grid = this->filled(width, 5, 0.0f);
        for (uint64_t y = 0; y < 5; ++y) {
            for (uint64_t x = 0; x < width; ++x) {
                grid->rows[y][x] = static_cast<float>((7 * x + 50 * y) % 200) + 0.75f;
            }
        }
        std::vector<uint8_t> bytes(range.array_size(width), 222);
        std::vector<uint8_t> expected = bytes;
        for (uint64_t y = range.start; y < range.start + range.rows(); ++y) {
            for (uint64_t x = 0; x < width; ++x) {
                expected[range.index(width, x, y)] = static_cast<uint8_t>((7 * x + 50 * y) % 200);
            }
        }
        expect_success([&] { return TypeParam::ToByteArray(grid.get(), bytes.data(), range.start, range.count, range.skip); });
        EXPECT_EQ(bytes, expected);
    });
}

TYPED_TEST_P(FloatGridTest, FloatsGoOutTruncatedCutTo8BitsWithNegativesAsZero) {
    const std::vector<std::pair<float, uint8_t>> cases = {
        {-0.5f, 0},           {0.5f, 0},          {254.99f, 254},      {255.0f, 255},      {255.9f, 255},
        {256.0f, 0},          {257.5f, 1},        {300.7f, 44},        {511.99f, 255},     {65535.9f, 255},
        {-1.0f, 0},           {-1.5f, 0},         {-300.0f, 0},        {-infinity, 0},     {-0.0f, 0},
        {not_a_number, 0},    {infinity, 0},      {1e-40f, 0},         {0.99999994f, 0},   {16777215.0f, 255},
        {2147483520.0f, 128}, {2147483648.0f, 0}, {-2147483648.0f, 0}, {4294967296.0f, 0}, {1e30f, 0}};
    for (size_t shift = 0; shift < 5; ++shift) { // each value at each place of a group of four, and behind the last group
        std::vector<float> floats(shift, 9.0f);
        std::vector<uint8_t> expected(shift, 9);
        for (const auto &[value, byte] : cases) {
            floats.push_back(value);
            expected.push_back(byte);
        }
        const auto grid = this->of(floats.size(), 1, floats);
        std::vector<uint8_t> bytes(floats.size(), 99);
        expect_success([&] { return TypeParam::ToByteArray(grid.get(), bytes.data(), 0, 1, 0); });
        EXPECT_EQ(bytes, expected);
    }
}

// Bytes of any number between the rows, which are passed over and stay.
TYPED_TEST_P(FloatGridTest, BytesGoInAndOutAtEverySize) {
    uint32_t seed = 0;
    for (const TurnSize &size : turn_sizes()) {
        const uint64_t skip = ++seed % 5;
        const auto [width, height] = size;
        SCOPED_TRACE(testing::Message() << width << " by " << height << ", skip " << skip);
        const std::vector<uint8_t> noise = noise_bytes(height * (width + skip) - skip, seed);
        GuardedBytes source(noise, seed);
        const auto grid = this->filled(width, height + 2, -7.0f);
        const PlaneGuard surround(grid.get());
        ASSERT_EQ(TypeParam::FromByteArray(grid.get(), source.data(), 1, height, skip), KO_OK);
        std::vector<float> expected(width, -7.0f);
        for (uint64_t y = 0; y < height; ++y) {
            const auto row = noise.begin() + static_cast<std::ptrdiff_t>(y * (width + skip));
            expected.insert(expected.end(), row, row + static_cast<std::ptrdiff_t>(width));
        }
        expected.insert(expected.end(), width, -7.0f);
        ASSERT_TRUE(same_floats(expected, pixels(grid.get())));
        ASSERT_TRUE(surround.holds());

        const std::vector<float> values = turning_noise(width * height, seed);
        const auto turning = this->of(width, height, values);
        GuardedBytes target(noise.size(), 77, seed);
        std::vector<uint8_t> bytes(noise.size(), 77);
        for (uint64_t i = 0; i < values.size(); ++i) {
            bytes[i / width * (width + skip) + i % width] = plain_floored_byte(values[i]);
        }
        ASSERT_EQ(TypeParam::ToByteArray(turning.get(), target.data(), 0, height, skip), KO_OK);
        ASSERT_EQ(target.bytes(), bytes);
        ASSERT_TRUE(source.guards_hold() && target.guards_hold());
    }
}

TYPED_TEST_P(FloatGridTest, FloatsGoOutForEveryValueAtWhichBytesTurn) {
    for (size_t shift = 0; shift < 32; ++shift) {
        std::vector<float> values = turning_floats();
        std::rotate(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(shift), values.end());
        const auto grid = this->of(values.size(), 1, values);
        std::vector<uint8_t> bytes(values.size(), 77);
        ASSERT_EQ(TypeParam::ToByteArray(grid.get(), bytes.data(), 0, 1, 0), KO_OK);
        for (size_t x = 0; x < values.size(); ++x) {
            ASSERT_EQ(bytes[x], plain_floored_byte(values[x])) << values[x] << " at " << x;
        }
    }
}

TYPED_TEST_P(FloatGridTest, RowsUpToTheLastAreNoReasonToWarn) {
    const auto grid = this->filled(3, 4, 1.0f);
    const PrintCapture printed("debug");
    std::vector<uint8_t> bytes(6);
    expect_success([&] { return TypeParam::ToByteArray(grid.get(), bytes.data(), 2, 2, 0); });
    EXPECT_EQ(bytes, std::vector<uint8_t>(6, 1));
    EXPECT_TRUE(printed.texts().empty());
}

TYPED_TEST_P(FloatGridTest, RowsPastTheLastAreLeftOutWithAWarningThatStaysInTheChain) {
    const std::string text = this->count_warning("2", "5", "4");
    const auto grid = this->filled(3, 4, -1.0f);
    const std::vector<uint8_t> bytes = {1, 2, 3, 4, 5, 6};
    const std::vector<float> floats = {1, 2, 3, 4, 5, 6};
    std::vector<uint8_t> written(6);
    const std::vector<float> expected = {-1, -1, -1, -1, -1, -1, 1, 2, 3, 4, 5, 6};
    expect_warning(text, text, [&] { return TypeParam::FromByteArray(grid.get(), bytes.data(), 2, 5, 0); });
    EXPECT_EQ(pixels(grid.get()), expected);
    expect_warning(text, text, [&] { return TypeParam::ToByteArray(grid.get(), written.data(), 2, 5, 0); });
    EXPECT_EQ(written, bytes);
    TypeParam::Fill(grid.get(), -1.0f);
    expect_warning(text, text, [&] { return TypeParam::FromFloatArray(grid.get(), floats.data(), 2, 5, 0); });
    EXPECT_EQ(pixels(grid.get()), expected);
}

TYPED_TEST_P(FloatGridTest, AStartPastTheLastRowWarnsAndConvertsNothing) {
    const auto grid = this->filled(3, 4, 5.0f);
    const std::vector<uint8_t> bytes(60, 1);
    const std::vector<float> floats(60, 1.0f);
    std::vector<uint8_t> written(60, 99);
    // The numbers are shown as signed numbers of 32 bits on every platform.
    const std::pair<uint64_t, const char *> starts[] = {
        {4, "4"}, {9, "9"}, {uint64_t{1} << 31, "-2147483648"}, {(uint64_t{1} << 32) + 5, "5"}};
    for (const auto &[start, shown] : starts) {
        const std::string text = this->start_warning(shown, "4");
        for (const auto &call : std::vector<std::function<int32_t()>>{
                 [&, row = start] { return TypeParam::FromByteArray(grid.get(), bytes.data(), row, 2, 0); },
                 [&, row = start] { return TypeParam::FromFloatArray(grid.get(), floats.data(), row, 2, 0); },
                 [&, row = start] { return TypeParam::ToByteArray(grid.get(), written.data(), row, 2, 0); }}) {
            expect_warning(text, "", call);
        }
    }
    EXPECT_EQ(pixels(grid.get()), std::vector<float>(12, 5.0f));
    EXPECT_EQ(written, std::vector<uint8_t>(60, 99));
    this->expect_zero_padding(*grid);
}

TYPED_TEST_P(FloatGridTest, NewGridsTakeTheirPixelsFromAnArray) {
    const std::vector<uint8_t> bytes = noise_bytes(3 * 7 - 2, 3);
    const GridPtr<TypeParam> from_bytes(TypeParam::NewFromByteArray(5, 3, bytes.data(), 2));
    ASSERT_NE(from_bytes, nullptr);
    const std::vector<float> floats = awkward_floats(15, 4);
    const GridPtr<TypeParam> from_floats(TypeParam::NewFromFloatArray(5, 3, floats.data()));
    ASSERT_NE(from_floats, nullptr);
    for (uint64_t y = 0; y < 3; ++y) {
        for (uint64_t x = 0; x < 5; ++x) {
            EXPECT_EQ(from_bytes->rows[y][x], static_cast<float>(bytes[7 * y + x]));
            EXPECT_TRUE(same_float(from_floats->rows[y][x], floats[5 * y + x]));
        }
    }
    this->expect_zero_padding(*from_bytes);
    this->expect_zero_padding(*from_floats);
    expect_status(KO_OK, "");
}

TYPED_TEST_P(FloatGridTest, NewGridsFromArraysLeaveTheStatusOfAFailureAsItStands) {
    const uint8_t byte = 0;
    const float value = 0.0f;
    StderrCapture swallowed;
    EXPECT_EQ(TypeParam::NewFromByteArray(too_large.width, too_large.height, &byte, 0), nullptr);
    expect_status(KO_ERR_ALLOC, too_large_text);
    KoStatusClear();
    EXPECT_EQ(TypeParam::NewFromFloatArray(too_large.width, too_large.height, &value), nullptr);
    expect_status(KO_ERR_ALLOC, too_large_text);
}

TYPED_TEST_P(FloatGridTest, NewGridsWithoutRowsWarnThatTheirFirstRowIsPastTheLast) {
    const PrintCapture printed("warning");
    const uint8_t byte = 0;
    const float value = 0.0f;
    const GridPtr<TypeParam> from_bytes(TypeParam::NewFromByteArray(3, 0, &byte, 0));
    const GridPtr<TypeParam> from_floats(TypeParam::NewFromFloatArray(3, 0, &value));
    EXPECT_NE(from_bytes, nullptr);
    EXPECT_NE(from_floats, nullptr);
    EXPECT_EQ(printed.texts(), std::vector<std::string>(2, this->start_warning("0", "0")));
    expect_status(KO_OK, "");
}

// Minimum and maximum, fill and clear

TYPED_TEST_P(FloatGridTest, MinMaxFollowsTheWalk) {
    for (const uint64_t width : row_widths) {
        for (uint32_t seed = 0; seed < 20; ++seed) {
            const std::vector<float> values = awkward_floats(width * 3, seed);
            const auto grid = this->of(width, 3, values);
            float minimum = values[0];
            float maximum = values[0];
            for (const float value : values) {
                if (value > maximum) {
                    maximum = value;
                } else if (minimum > value) {
                    minimum = value;
                }
            }
            float found_minimum = 1.0f;
            float found_maximum = 1.0f;
            expect_success([&] { return TypeParam::GetMinMax(grid.get(), &found_minimum, &found_maximum); });
            EXPECT_TRUE(same_floats({minimum, maximum}, std::vector<float>{found_minimum, found_maximum}))
                << width << ", " << seed;
            EXPECT_TRUE(same_floats({minimum, maximum},
                                    std::vector<float>{TypeParam::GetMin(grid.get()), TypeParam::GetMax(grid.get())}));
        }
    }
}

TYPED_TEST_P(FloatGridTest, OfZerosOfBothSignsTheFirstIsTheExtremeWhereverTheyLie) {
    constexpr uint64_t width = 37;
    constexpr uint64_t height = 2;
    for (const float others : {-5.0f, 5.0f}) {
        for (const auto &[first, second] : {std::pair(0.0f, -0.0f), std::pair(-0.0f, 0.0f)}) {
            for (uint64_t i = 0; i < width * height; ++i) {
                for (uint64_t k = i + 1; k < width * height; ++k) {
                    std::vector<float> values(width * height, others);
                    values[i] = first;
                    values[k] = second;
                    const auto grid = this->of(width, height, values);
                    const float extreme = others < 0.0f ? TypeParam::GetMax(grid.get()) : TypeParam::GetMin(grid.get());
                    ASSERT_TRUE(same_floats({first}, std::vector<float>{extreme})) << i << " before " << k;
                }
            }
        }
    }
}

TYPED_TEST_P(FloatGridTest, MinMaxOfChosenValues) {
    const std::vector<std::pair<std::vector<float>, std::pair<float, float>>> cases = {
        {{7, 7, 7, 7, 7, 7}, {7, 7}},
        {{3, 2, 1, 0.5f, 8, 4}, {0.5f, 8}},
        {{10, 20, 30, 40, 50, 60}, {10, 60}},         // the padding's 0 does not count
        {{-10, -20, -30, -40, -50, -60}, {-60, -10}}, // here neither
        {{1, not_a_number, 3, not_a_number, 0, not_a_number}, {0, 3}},
        {{not_a_number, 1, 2, 3, 4, 5}, {not_a_number, not_a_number}},
        // of zeros that differ in their sign alone the first stays
        {{0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f}, {0.0f, 0.0f}},
        {{-0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f}, {-0.0f, -0.0f}},
        {{5, 0.0f, 0.0f, 6, -0.0f, -0.0f}, {0.0f, 6}},
        {{5, -0.0f, -0.0f, 6, 0.0f, 0.0f}, {-0.0f, 6}},
        {{-5, -0.0f, -0.0f, -6, 0.0f, 0.0f}, {-6, -0.0f}},
        {{-5, 0.0f, 0.0f, -6, -0.0f, -0.0f}, {-6, 0.0f}},
        {{1, infinity, 2, -infinity, 3, 4}, {-infinity, infinity}}};
    for (const auto &[values, expected] : cases) {
        const auto grid = this->of(3, 2, values);
        float minimum = 1.0f;
        float maximum = 1.0f;
        EXPECT_EQ(TypeParam::GetMinMax(grid.get(), &minimum, &maximum), KO_OK);
        EXPECT_TRUE(same_floats({expected.first, expected.second}, std::vector<float>{minimum, maximum}))
            << testing::PrintToString(values);
    }
}

TYPED_TEST_P(FloatGridTest, FillAndClearLeaveThePaddingZero) {
    for (const uint64_t width : row_widths) {
        for (const float value : {-1.5f, 255.0f, not_a_number, -0.0f}) {
            const auto grid = this->filled(width, 3, 1.0f);
            TypeParam::Fill(grid.get(), value);
            EXPECT_TRUE(same_floats(std::vector<float>(width * 3, value), pixels(grid.get())));
            this->expect_zero_padding(*grid);
            TypeParam::Clear(grid.get());
            EXPECT_TRUE(same_floats(std::vector<float>(width * 3, 0.0f), pixels(grid.get())));
            this->expect_zero_padding(*grid);
        }
    }
}

// The row walk

TYPED_TEST_P(FloatGridTest, AnIteratorStartsOneStrideBeforeItsRectangle) {
    const auto grid = this->filled(10, 6, 0.0f);
    typename TypeParam::Iterator iterator;
    expect_success([&] { return TypeParam::IteratorInitSub(&iterator, grid.get(), 3, 2, 4, 3); });
    EXPECT_EQ(TypeParam::walked(iterator), grid.get());
    EXPECT_EQ(iterator.x_start, 3u);
    EXPECT_EQ(iterator.y_start, 2u);
    EXPECT_EQ(iterator.line + stride(*grid), grid->rows[2] + 3);
    EXPECT_EQ(iterator.line_end, iterator.line + 4);
    EXPECT_EQ(TypeParam::IteratorLineEnd(&iterator), iterator.line_end);
    EXPECT_EQ(iterator.end, grid->rows[4] + 7);
    EXPECT_EQ(TypeParam::IteratorGetWidth(&iterator), 4u);
    EXPECT_EQ(TypeParam::IteratorGetHeight(&iterator), 3u);
    EXPECT_EQ(TypeParam::IteratorGetNextLineIncrement(&iterator), 16u);
}

TYPED_TEST_P(FloatGridTest, AnIteratorWalksTheWholeGrid) {
    for (const uint64_t width : row_widths) {
        const auto grid = this->filled(width, 4, 0.0f);
        typename TypeParam::Iterator iterator;
        expect_success([&] { return TypeParam::IteratorInit(&iterator, grid.get()); });
        EXPECT_EQ(iterator.x_start, 0u);
        EXPECT_EQ(iterator.y_start, 0u);
        EXPECT_EQ(TypeParam::IteratorGetWidth(&iterator), width);
        EXPECT_EQ(TypeParam::IteratorGetHeight(&iterator), 4u);
        EXPECT_EQ(TypeParam::IteratorHasNext(&iterator), 1);
        EXPECT_EQ(this->walk(iterator), this->rectangle_of(*grid, 0, 0, width, 4));
        EXPECT_EQ(TypeParam::IteratorHasNext(&iterator), 0);
        expect_success([&] { return TypeParam::IteratorFree(&iterator); });
    }
}

TYPED_TEST_P(FloatGridTest, AnIteratorWalksEachRectangle) {
    const auto grid = this->filled(7, 5, 0.0f);
    for (uint64_t x = 0; x < 7; ++x) {
        for (uint64_t y = 0; y < 5; ++y) {
            for (uint64_t width = 0; x + width <= 7; ++width) {
                for (uint64_t height = 0; y + height <= 5; ++height) {
                    typename TypeParam::Iterator iterator;
                    TypeParam::IteratorInitSub(&iterator, grid.get(), x, y, width, height);
                    ASSERT_EQ(this->walk(iterator), this->rectangle_of(*grid, x, y, width, height))
                        << width << " by " << height << " at " << x << ", " << y;
                }
            }
        }
    }
}

TYPED_TEST_P(FloatGridTest, ARectangleOfHeightZeroHasOneRow) {
    const auto grid = this->filled(7, 5, 0.0f);
    typename TypeParam::Iterator iterator;
    TypeParam::IteratorInitSub(&iterator, grid.get(), 2, 3, 4, 0);
    EXPECT_EQ(TypeParam::IteratorGetHeight(&iterator), 0u);
    EXPECT_EQ(TypeParam::IteratorHasNext(&iterator), 1);
    EXPECT_EQ(TypeParam::IteratorNext(&iterator), grid->rows[3] + 2);
    EXPECT_EQ(TypeParam::IteratorLineEnd(&iterator), grid->rows[3] + 6);
    EXPECT_EQ(TypeParam::IteratorHasNext(&iterator), 0);
}

TYPED_TEST_P(FloatGridTest, ResetStartsTheWalkAnew) {
    const auto grid = this->filled(7, 5, 0.0f);
    typename TypeParam::Iterator iterator;
    TypeParam::IteratorInitSub(&iterator, grid.get(), 1, 1, 5, 3);
    const auto expected = this->rectangle_of(*grid, 1, 1, 5, 3);
    EXPECT_EQ(this->walk(iterator), expected);
    expect_success([&] { return TypeParam::IteratorReset(&iterator); });
    TypeParam::IteratorNext(&iterator);
    TypeParam::IteratorReset(&iterator);
    EXPECT_EQ(this->walk(iterator), expected);
    TypeParam::IteratorInitSub(&iterator, grid.get(), 1, 1, 5, 0);
    TypeParam::IteratorNext(&iterator);
    TypeParam::IteratorReset(&iterator);
    EXPECT_EQ(this->walk(iterator), this->rectangle_of(*grid, 1, 1, 5, 0));
}

TYPED_TEST_P(FloatGridTest, IteratorsAreMadeOnTheHeapToo) {
    const auto grid = this->filled(7, 5, 0.0f);
    auto *whole = TypeParam::IteratorNew(grid.get());
    auto *part = TypeParam::IteratorNewSub(grid.get(), 2, 1, 3, 2);
    ASSERT_NE(whole, nullptr);
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(this->walk(*whole), this->rectangle_of(*grid, 0, 0, 7, 5));
    EXPECT_EQ(this->walk(*part), this->rectangle_of(*grid, 2, 1, 3, 2));
    expect_success([&] { return TypeParam::IteratorDelete(whole); });
    expect_success([&] { return TypeParam::IteratorDelete(part); });
    expect_success([&] { return TypeParam::IteratorDelete(nullptr); });
}

TYPED_TEST_P(FloatGridTest, AGridWithoutRowsIsWalkedAsNothing) {
    const auto grid = new_grid<TypeParam>(10, 0);
    typename TypeParam::Iterator iterator;
    expect_success([&] { return TypeParam::IteratorInit(&iterator, grid.get()); });
    EXPECT_EQ(TypeParam::IteratorHasNext(&iterator), 0);
    EXPECT_EQ(TypeParam::IteratorGetWidth(&iterator), 10u);
    EXPECT_EQ(TypeParam::IteratorGetNextLineIncrement(&iterator), 16u);
    TypeParam::Fill(grid.get(), 1.0f);
    TypeParam::Clear(grid.get());
    float minimum = 1.0f;
    float maximum = 1.0f;
    expect_success([&] { return TypeParam::GetMinMax(grid.get(), &minimum, &maximum); });
    EXPECT_EQ(minimum, 0.0f);
    EXPECT_EQ(maximum, 0.0f);
}

REGISTER_TYPED_TEST_SUITE_P(FloatGridTest, BytesComeInWithTheirValue, FromByteArrayFillsTheRowsNamedAndNoOther,
                            FromFloatArrayCopiesTheRowsNamedAndNoOther, ToByteArrayWritesTheRowsNamedAndSkipsTheRest,
                            FloatsGoOutTruncatedCutTo8BitsWithNegativesAsZero, BytesGoInAndOutAtEverySize,
                            FloatsGoOutForEveryValueAtWhichBytesTurn, RowsUpToTheLastAreNoReasonToWarn,
                            RowsPastTheLastAreLeftOutWithAWarningThatStaysInTheChain,
                            AStartPastTheLastRowWarnsAndConvertsNothing, NewGridsTakeTheirPixelsFromAnArray,
                            NewGridsFromArraysLeaveTheStatusOfAFailureAsItStands,
                            NewGridsWithoutRowsWarnThatTheirFirstRowIsPastTheLast, MinMaxFollowsTheWalk,
                            OfZerosOfBothSignsTheFirstIsTheExtremeWhereverTheyLie, MinMaxOfChosenValues,
                            FillAndClearLeaveThePaddingZero, AnIteratorStartsOneStrideBeforeItsRectangle,
                            AnIteratorWalksTheWholeGrid, AnIteratorWalksEachRectangle, ARectangleOfHeightZeroHasOneRow,
                            ResetStartsTheWalkAnew, IteratorsAreMadeOnTheHeapToo, AGridWithoutRowsIsWalkedAsNothing);

} // namespace ko_test

#endif
