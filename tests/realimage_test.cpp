// RealImage: what it shares with MatrixFloat under its own words, and crop, comparison, transposition, arithmetic and print.
#include "float_grid_tests.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "files.h"

namespace ko_test {

INSTANTIATE_TYPED_TEST_SUITE_P(RealImage, GridTest, RealImageFamily);
INSTANTIATE_TYPED_TEST_SUITE_P(RealImage, FloatGridTest, RealImageFamily);

} // namespace ko_test

namespace {

using ko_test::awkward_floats;
using ko_test::expect_error;
using ko_test::expect_status;
using ko_test::expect_success;
using ko_test::GridSize;
using ko_test::infinity;
using ko_test::make_image;
using ko_test::not_a_number;
using ko_test::padding_is_zero;
using ko_test::pixels;
using ko_test::PrintCapture;
using ko_test::RealImagePtr;
using ko_test::same_floats;

class RealImageTest : public ko_test::LibraryTest {
  protected:
    static RealImagePtr numbered(uint64_t width, uint64_t height) {
        return make_image(width, height, [](uint64_t x, uint64_t y) { return static_cast<float>(1000 * y + x); });
    }

    static RealImagePtr uniform(uint64_t width, uint64_t height, float value) {
        return make_image(width, height, [value](uint64_t, uint64_t) { return value; });
    }
};

TEST_F(RealImageTest, SizeIsWidthTimesHeight) {
    EXPECT_EQ(KoRealImageGetSize(numbered(5, 3).get()), 15u);
    EXPECT_EQ(KoRealImageGetSize(numbered(5, 0).get()), 0u);
    RealImage large = {};
    large.width = uint64_t{1} << 20;
    large.height = uint64_t{1} << 20;
    EXPECT_EQ(KoRealImageGetSize(&large), uint64_t{1} << 40);
}

TEST_F(RealImageTest, ServesWhereAMatrixIsAskedFor) {
    const RealImagePtr image = numbered(5, 3);
    KoMatrixFloatFill(image.get(), 8.0f);
    KoMatrixFloatSetValue(image.get(), 4, 2, 9.0f);
    EXPECT_EQ(KoRealImageGetPixel(image.get(), 0, 0), 8.0f);
    EXPECT_EQ(KoRealImageGetPixel(image.get(), 4, 2), 9.0f);
}

// Crop

TEST_F(RealImageTest, CropCopiesTheRectangleOfTheResultsSize) {
    const RealImagePtr image = numbered(9, 6);
    for (int32_t x = 0; x < 9; ++x) {
        for (int32_t y = 0; y < 6; ++y) {
            for (const GridSize size : {GridSize{1, 1}, GridSize{9, 6}, GridSize{4, 3}, GridSize{5, 2}}) {
                const RealImagePtr result = uniform(size.width, size.height, -1.0f);
                if (static_cast<uint64_t>(x) + size.width > 9 || static_cast<uint64_t>(y) + size.height > 6) {
                    continue;
                }
                expect_success([&] { return KoRealImageCrop(image.get(), x, y, result.get()); });
                const RealImagePtr expected = make_image(size.width, size.height, [&](uint64_t u, uint64_t v) {
                    return image->rows[static_cast<uint64_t>(y) + v][static_cast<uint64_t>(x) + u];
                });
                EXPECT_EQ(pixels(result.get()), pixels(expected.get()));
                EXPECT_TRUE(padding_is_zero(result.get()));
            }
        }
    }
}

class CropRefusal : public RealImageTest {
  protected:
    // Both ways of refusal are internal errors, which the default verbosity prints.
    static void expect_refusal(int32_t status, const std::string &text, int32_t x, int32_t y, RealImage *result) {
        const RealImagePtr image = numbered(5, 4);
        KoStatusClear();
        const PrintCapture printed;
        EXPECT_EQ(KoRealImageCrop(image.get(), x, y, result), status);
        expect_status(status, text);
        EXPECT_EQ(printed.texts(), std::vector<std::string>{text});
    }
};

TEST_F(CropRefusal, OfANullResult) {
    expect_refusal(KO_ERR_NULL_POINTER, "[INTERNAL ERROR] Null pointer error", 0, 0, nullptr);
}

TEST_F(CropRefusal, OfARectangleThatLeavesTheImage) {
    struct Case {
        int32_t x, y;
        uint64_t width, height;
    };
    // A corner far to the left or above is a huge number without its sign.
    for (const Case &c : {Case{0, 0, 6, 4}, Case{0, 0, 5, 5}, Case{1, 0, 5, 4}, Case{0, 1, 5, 4}, Case{5, 0, 1, 1},
                          Case{0, 4, 1, 1}, Case{INT32_MAX, 0, 1, 1}, Case{0, INT32_MAX, 1, 1}, Case{-3, 0, 2, 1},
                          Case{0, -3, 1, 2}, Case{INT32_MIN, 0, 1, 1}, Case{0, INT32_MIN, 1, 1}}) {
        const RealImagePtr result = uniform(c.width, c.height, -1.0f);
        expect_refusal(KO_ERR_INVALID_ARGUMENT, "[INTERNAL ERROR] Invalid argument", c.x, c.y, result.get());
        EXPECT_EQ(pixels(result.get()), std::vector<float>(c.width * c.height, -1.0f));
    }
}

// Comparison

TEST_F(RealImageTest, CompareOrdersBySizeFirst) {
    const auto compare = [](const GridSize &a, const GridSize &b) {
        return KoRealImageCompareTolerance(uniform(a.width, a.height, 0.0f).get(), uniform(b.width, b.height, 255.0f).get(),
                                           1.0f);
    };
    EXPECT_EQ(compare({5, 1}, {4, 9}), 1);
    EXPECT_EQ(compare({4, 9}, {5, 1}), -1);
    EXPECT_EQ(compare({4, 3}, {4, 2}), 1);
    EXPECT_EQ(compare({4, 2}, {4, 3}), -1);
    EXPECT_EQ(compare({4, 2}, {4, 2}), -1);
}

TEST_F(RealImageTest, CompareTakesSizesAsSigned32BitNumbers) {
    RealImage a = {};
    RealImage b = {};
    a.width = uint64_t{0x80000000};
    b.width = 1;
    EXPECT_EQ(KoRealImageCompareTolerance(&a, &b, 0.0f), -1);
    EXPECT_EQ(KoRealImageCompareTolerance(&b, &a, 0.0f), 1);
    a.width = b.width;
    a.height = uint64_t{0x80000000};
    b.height = 1;
    EXPECT_EQ(KoRealImageCompareTolerance(&a, &b, 0.0f), -1);
    EXPECT_EQ(KoRealImageCompareTolerance(&b, &a, 0.0f), 1);
}

class PixelComparison : public RealImageTest {
  protected:
    static void expect_order(float a, float b, float tolerance, int32_t order) {
        expect_success([=] {
            EXPECT_EQ(KoRealImageCompareTolerance(uniform(1, 1, a).get(), uniform(1, 1, b).get(), tolerance), order)
                << a << ", " << b << " within " << tolerance;
            return KO_OK;
        });
    }
};

TEST_F(PixelComparison, PassesADifferenceEqualToTheTolerance) {
    expect_order(10.0f, 10.5f, 0.5f, 0);
    expect_order(10.5f, 10.0f, 0.5f, 0);
    expect_order(10.0f, 10.5f, 0.25f, -1);
    expect_order(10.5f, 10.0f, 0.25f, 1);
    expect_order(1.0f, 1.0f, 0.0f, 0);
    expect_order(1.0f, std::nextafter(1.0f, 2.0f), 0.0f, -1);
    expect_order(1.0f, 2.0f, -1.0f, -1);
}

TEST_F(PixelComparison, DoesNotTurnOnInfinitiesOfOneSignOrOnNaNs) {
    expect_order(infinity, infinity, 0.0f, 0);
    expect_order(infinity, -infinity, 3e38f, 1);
    expect_order(-infinity, 0.0f, infinity, 0);
    expect_order(not_a_number, 0.0f, 0.0f, 0);
    expect_order(0.0f, not_a_number, -1.0f, 0);
    expect_order(not_a_number, not_a_number, 0.0f, 0);
    expect_order(1.0f, 2.0f, not_a_number, 0);
}

TEST_F(PixelComparison, FormsTheDifferenceInSinglePrecision) {
    expect_order(16777216.0f, -1.0f, 16777216.0f, 0); // 16777217 is rounded
    expect_order(16777216.0f, -1.5f, 16777216.0f, 1);
}

TEST_F(PixelComparison, NeverTurnsOnEqualPixelsEvenWhereNoDifferenceCouldPass) {
    expect_order(1.0f, 1.0f, -1.0f, 0);
    expect_order(0.0f, -0.0f, -1.0f, 0);
    expect_order(infinity, infinity, -1.0f, 0);
}

TEST_F(RealImageTest, CompareStopsAtTheFirstPixelThatDecides) {
    const RealImagePtr a = uniform(7, 5, 1.0f);
    const RealImagePtr b = uniform(7, 5, 1.0f);
    b->rows[0][1] = not_a_number; // never decides
    b->rows[1][0] = 1.5f;         // within the tolerance
    EXPECT_EQ(KoRealImageCompareTolerance(a.get(), b.get(), 0.5f), 0);
    b->rows[4][6] = 0.0f;
    EXPECT_EQ(KoRealImageCompareTolerance(a.get(), b.get(), 0.5f), 1);
    b->rows[3][6] = 2.0f;
    EXPECT_EQ(KoRealImageCompareTolerance(a.get(), b.get(), 0.5f), -1);
    b->rows[3][5] = -200.0f;
    EXPECT_EQ(KoRealImageCompareTolerance(a.get(), b.get(), 0.5f), 1);
}

// Transposition

TEST_F(RealImageTest, TransposeExchangesLinesAndColumns) {
    for (const GridSize size : {GridSize{1, 1}, GridSize{5, 3}, GridSize{1, 100}, GridSize{100, 1}, GridSize{16, 16},
                                GridSize{17, 33}, GridSize{64, 63}, GridSize{131, 70}}) {
        const std::vector<float> values = awkward_floats(size.width * size.height, 5);
        const RealImagePtr image = make_image(size.width, size.height, values);
        RealImage *result = nullptr;
        expect_success([&] { return KoRealImageTranspose(image.get(), &result); });
        const RealImagePtr transposed(result);
        ASSERT_EQ(result->width, size.height);
        ASSERT_EQ(result->height, size.width);
        for (uint64_t y = 0; y < size.height; ++y) {
            for (uint64_t x = 0; x < size.width; ++x) {
                ASSERT_EQ(std::bit_cast<uint32_t>(result->rows[x][y]), std::bit_cast<uint32_t>(image->rows[y][x]))
                    << x << ", " << y;
            }
        }
        EXPECT_TRUE(padding_is_zero(result));
        RealImage *back = uniform(size.width, size.height, -1.0f).release();
        const RealImagePtr given(back);
        expect_success([&] { return KoRealImageTranspose(result, &back); });
        EXPECT_EQ(back, given.get());
        EXPECT_TRUE(same_floats(values, pixels(back)));
        EXPECT_TRUE(padding_is_zero(back));
    }
}

bool is_transposed(const RealImage *image, const RealImage *result) {
    for (uint64_t y = 0; y < image->height; ++y) {
        for (uint64_t x = 0; x < image->width; ++x) {
            if (std::memcmp(&image->rows[y][x], &result->rows[x][y], sizeof(float)) != 0) {
                return false;
            }
        }
    }
    return true;
}

// A host may turn a picture over by its row pointers.
TEST_F(RealImageTest, TransposeGoesByTheRowsOfBothImages) {
    constexpr uint64_t width = 37;
    constexpr uint64_t height = 35;
    const RealImagePtr image =
        make_image(width, height, [](uint64_t x, uint64_t y) { return static_cast<float>(100 * x + y); });
    const RealImagePtr result = make_image(height, width, [](uint64_t, uint64_t) { return -1.0f; });
    std::reverse(image->rows, image->rows + height);
    std::reverse(result->rows, result->rows + width);
    RealImage *target = result.get();
    expect_success([&] { return KoRealImageTranspose(image.get(), &target); });
    for (uint64_t y = 0; y < height; ++y) {
        for (uint64_t x = 0; x < width; ++x) {
            ASSERT_EQ(result->rows[x][y], static_cast<float>(100 * x + (height - 1 - y))) << x << ", " << y;
        }
    }
}

TEST_F(RealImageTest, TransposeKeepsEveryBitAtEverySize) {
    uint32_t seed = 0;
    const auto expect_transposition = [&](uint64_t width, uint64_t height) {
        SCOPED_TRACE(testing::Message() << width << " by " << height);
        const RealImagePtr image = ko_test::bit_image(width, height, ++seed);
        RealImage *result = nullptr;
        ASSERT_EQ(KoRealImageTranspose(image.get(), &result), KO_OK);
        const RealImagePtr made(result);
        ASSERT_TRUE(is_transposed(image.get(), result));
        ASSERT_TRUE(padding_is_zero(result));
        const RealImagePtr given = uniform(height, width, -1.0f);
        const ko_test::PlaneGuard surround(given.get());
        result = given.get();
        ASSERT_EQ(KoRealImageTranspose(image.get(), &result), KO_OK);
        ASSERT_TRUE(is_transposed(image.get(), given.get()));
        ASSERT_TRUE(surround.holds());
    };
    for (const ko_test::TurnSize &size : ko_test::turn_sizes()) {
        expect_transposition(size.width, size.height);
        expect_transposition(size.height, size.width);
    }
    for (uint64_t width = 1; width <= 70; ++width) {
        for (const uint64_t height : {4u, 7u, 8u, 16u, 33u, 64u, 67u, 129u}) {
            expect_transposition(width, height);
        }
    }
}

TEST_F(RealImageTest, TransposeRefusesAResultOfAnotherSize) {
    const RealImagePtr image = numbered(5, 3);
    for (const GridSize size : {GridSize{5, 3}, GridSize{3, 4}, GridSize{4, 5}, GridSize{3, 6}, GridSize{2, 5}}) {
        const RealImagePtr given = uniform(size.width, size.height, -1.0f);
        RealImage *result = given.get();
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return KoRealImageTranspose(image.get(), &result); });
        EXPECT_EQ(result, given.get());
        EXPECT_EQ(pixels(result), std::vector<float>(size.width * size.height, -1.0f));
    }
}

// Arithmetic

struct ImageOperation {
    const char *name;
    int32_t (*run)(const RealImage *a, const RealImage *b, RealImage **result);
    float (*plain)(float a, float b);
};

struct ValueOperation {
    const char *name;
    int32_t (*run)(const RealImage *a, float value, RealImage **result);
    float (*plain)(float a, float b);
};

float sum(float a, float b) { return a + b; }
float difference(float a, float b) { return a - b; }
float distance(float a, float b) { return std::fabs(a - b); }
float product(float a, float b) { return a * b; }
float quotient(float a, float b) { return a / b; }

std::vector<ImageOperation> image_operations() {
    return {{"AddImage", KoRealImageAddImage, sum},
            {"SubstractImage", KoRealImageSubstractImage, difference},
            {"DiffImage", KoRealImageDiffImage, distance},
            {"MultiplyImage", KoRealImageMultiplyImage, product},
            {"DivideImage", KoRealImageDivideImage, quotient}};
}

std::vector<ValueOperation> value_operations() {
    return {{"AddValue", KoRealImageAddValue, sum},
            {"SubstractValue", KoRealImageSubstractValue, difference},
            {"MultiplyValue", KoRealImageMultiplyValue, product},
            {"DivideValue", KoRealImageDivideValue, quotient}};
}

template <class Operation>
class RealImageArithmetic : public ko_test::LibraryTest, public testing::WithParamInterface<Operation> {
  protected:
    static constexpr GridSize sizes[] = {{1, 1}, {2, 3}, {3, 2}, {4, 4}, {5, 3}, {8, 2}, {19, 7}};

    static std::vector<float> apply(const Operation &operation, const std::vector<float> &a, const std::vector<float> &b) {
        std::vector<float> expected;
        for (size_t i = 0; i < a.size(); ++i) {
            expected.push_back(operation.plain(a[i], b[i]));
        }
        return expected;
    }
};

using ImageArithmetic = RealImageArithmetic<ImageOperation>;
using ValueArithmetic = RealImageArithmetic<ValueOperation>;
const auto operation_name = [](const auto &operation) { return std::string(operation.param.name); };
INSTANTIATE_TEST_SUITE_P(RealImage, ImageArithmetic, testing::ValuesIn(image_operations()), operation_name);
INSTANTIATE_TEST_SUITE_P(RealImage, ValueArithmetic, testing::ValuesIn(value_operations()), operation_name);

TEST_P(ImageArithmetic, MakesANewImageThenWritesItAgain) {
    for (const GridSize size : sizes) {
        const std::vector<float> first = awkward_floats(size.width * size.height, 6);
        const std::vector<float> second = awkward_floats(size.width * size.height, 7);
        const RealImagePtr a = make_image(size.width, size.height, first);
        const RealImagePtr b = make_image(size.width, size.height, second);
        RealImage *result = nullptr;
        expect_success([&] { return GetParam().run(a.get(), b.get(), &result); });
        const RealImagePtr made(result);
        ASSERT_NE(result, nullptr);
        EXPECT_TRUE(same_floats(apply(GetParam(), first, second), pixels(result)));
        EXPECT_TRUE(padding_is_zero(result));
        expect_success([&] { return GetParam().run(b.get(), a.get(), &result); });
        EXPECT_EQ(result, made.get());
        EXPECT_TRUE(same_floats(apply(GetParam(), second, first), pixels(result)));
        EXPECT_TRUE(padding_is_zero(result));
        EXPECT_TRUE(same_floats(first, pixels(a.get())));
        EXPECT_TRUE(same_floats(second, pixels(b.get())));
    }
}

TEST_P(ImageArithmetic, WorksInPlaceOnEitherSourceOrBoth) {
    for (const GridSize size : sizes) {
        const std::vector<float> first = awkward_floats(size.width * size.height, 8);
        const std::vector<float> second = awkward_floats(size.width * size.height, 9);
        for (const bool into_first : {true, false}) {
            const RealImagePtr a = make_image(size.width, size.height, first);
            const RealImagePtr b = make_image(size.width, size.height, second);
            RealImage *result = into_first ? a.get() : b.get();
            expect_success([&] { return GetParam().run(a.get(), b.get(), &result); });
            EXPECT_EQ(result, into_first ? a.get() : b.get());
            EXPECT_TRUE(same_floats(apply(GetParam(), first, second), pixels(result)));
            EXPECT_TRUE(same_floats(into_first ? second : first, pixels(into_first ? b.get() : a.get())));
        }
        const RealImagePtr a = make_image(size.width, size.height, first);
        RealImage *result = a.get();
        expect_success([&] { return GetParam().run(a.get(), a.get(), &result); });
        EXPECT_TRUE(same_floats(apply(GetParam(), first, first), pixels(result)));
    }
}

TEST_P(ImageArithmetic, OfImagesWithoutLinesIsAnImageWithoutLines) {
    const RealImagePtr a(KoRealImageNew(5, 0));
    RealImage *result = nullptr;
    expect_success([&] { return GetParam().run(a.get(), a.get(), &result); });
    const RealImagePtr made(result);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->height, 0u);
}

TEST_P(ValueArithmetic, MakesANewImageThenWritesItAgainThenInPlace) {
    for (const GridSize size : sizes) {
        for (const float value : {1.0f, 3.0f, 0.1f, 0.0f, -0.0f, -7.5f, infinity, not_a_number, 1e-40f}) {
            const std::vector<float> values(size.width * size.height, value);
            const std::vector<float> first = awkward_floats(size.width * size.height, 10);
            const std::vector<float> expected = apply(GetParam(), first, values);
            const RealImagePtr a = make_image(size.width, size.height, first);
            RealImage *result = nullptr;
            expect_success([&] { return GetParam().run(a.get(), value, &result); });
            const RealImagePtr made(result);
            ASSERT_NE(result, nullptr);
            EXPECT_TRUE(same_floats(expected, pixels(result))) << value;
            EXPECT_TRUE(padding_is_zero(result));
            KoRealImageClear(result);
            expect_success([&] { return GetParam().run(a.get(), value, &result); });
            EXPECT_EQ(result, made.get());
            EXPECT_TRUE(same_floats(expected, pixels(result))) << value;
            EXPECT_TRUE(same_floats(first, pixels(a.get())));
            result = a.get();
            expect_success([&] { return GetParam().run(a.get(), value, &result); });
            EXPECT_TRUE(same_floats(expected, pixels(a.get()))) << value;
            EXPECT_TRUE(padding_is_zero(a.get()));
        }
    }
}

TEST_F(RealImageTest, ArithmeticHasNoLimitsAtEitherEnd) {
    const RealImagePtr a = make_image(3, 1, {-10.0f, 0.0f, 250.0f});
    RealImage *result = a.get();
    expect_success([&] { return KoRealImageAddValue(a.get(), 20.5f, &result); });
    EXPECT_EQ(pixels(result), (std::vector<float>{10.5f, 20.5f, 270.5f}));
    expect_success([&] { return KoRealImageSubstractValue(a.get(), 300.0f, &result); });
    EXPECT_EQ(pixels(result), (std::vector<float>{-289.5f, -279.5f, -29.5f}));
}

TEST_F(RealImageTest, DivisionByZeroGivesWhatTheFloatsGive) {
    const RealImagePtr a = make_image(3, 1, {-1.0f, 0.0f, 1.0f});
    RealImage *result = nullptr;
    expect_success([&] { return KoRealImageDivideValue(a.get(), 0.0f, &result); });
    const RealImagePtr made(result);
    EXPECT_TRUE(same_floats({-infinity, not_a_number, infinity}, pixels(result)));
}

TEST_F(RealImageTest, ResultIsMadeOnlyWhereNoneIs) {
    const RealImagePtr image = numbered(5, 3);
    expect_success([&] { return _KoRealImageApplyFunctionGetResult(image.get(), nullptr); });
    const RealImagePtr given = numbered(1, 1);
    RealImage *result = given.get();
    expect_success([&] { return _KoRealImageApplyFunctionGetResult(image.get(), &result); });
    EXPECT_EQ(result, given.get());
    EXPECT_EQ(result->width, 1u);
    result = nullptr;
    expect_success([&] { return _KoRealImageApplyFunctionGetResult(image.get(), &result); });
    const RealImagePtr made(result);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->width, 5u);
    EXPECT_EQ(result->height, 3u);
}

TEST_F(RealImageTest, AResultThatCannotBeMadeGivesItsStatus) {
    RealImage huge = {};
    huge.width = ko_test::too_large.width;
    huge.height = ko_test::too_large.height;
    RealImage *result = nullptr;
    ko_test::StderrCapture swallowed;
    EXPECT_EQ(_KoRealImageApplyFunctionGetResult(&huge, &result), KO_ERR_CREATE_OBJECT);
    EXPECT_EQ(result, nullptr);
    expect_status(KO_ERR_CREATE_OBJECT, std::string("Cannot create object \"RealImage\"\n-> ") + ko_test::too_large_text);
}

TEST_F(RealImageTest, ImagesWithoutLinesPassThroughEverything) {
    const RealImagePtr empty(KoRealImageNew(5, 0));
    const RealImagePtr other(KoRealImageNew(5, 0));
    const RealImagePtr image = numbered(5, 3);
    expect_success([&] { return KoRealImageCrop(image.get(), 0, 0, empty.get()); });
    expect_success([&] { return KoRealImageCompareTolerance(empty.get(), other.get(), 0.0f); });
    RealImage *result = nullptr;
    expect_success([&] { return KoRealImageTranspose(empty.get(), &result); });
    const RealImagePtr columns(result);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->width, 0u);
    EXPECT_EQ(result->height, 5u);
    RealImage *back = nullptr;
    expect_success([&] { return KoRealImageTranspose(result, &back); });
    const RealImagePtr lines(back);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->height, 0u);
}

// Print

struct PrintCase {
    RealImagePtr image;
    uint32_t column_width, decimals;
    const char *title;
    const char *expected;
};

TEST_F(RealImageTest, PrintWritesATable) {
    const std::vector<float> wide = {1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f, 8.0f, 9.0f, 10.0f};
    const PrintCase cases[] = {
        {make_image(2, 1, {1.5f, -2.25f}), 6, 2, "Title",
         "Title\n     #|     1|     2|\n------+------+------|\n     1|  1.50| -2.25|\n------+------+------|\n"},
        {make_image(2, 1, {1.5f, -2.25f}), 6, 2, nullptr,
         "     #|     1|     2|\n------+------+------|\n     1|  1.50| -2.25|\n------+------+------|\n"},
        {make_image(1, 3, {0.0f, 99.96f, 255.0f}), 5, 1, "",
         "\n    #|    1|\n-----+-----|\n    1|  0.0|\n    2|100.0|\n    3|255.0|\n-----+-----|\n"},
        // decimals are limited to the column's width less 2
        {make_image(1, 1, {3.14159f}), 5, 9, nullptr, "    #|    1|\n-----+-----|\n    1|3.142|\n-----+-----|\n"},
        {make_image(1, 1, {3.14159f}), 2, 3, nullptr, " #| 1|\n--+--|\n 1| 3|\n--+--|\n"},
        // width less 2 is an unsigned number: a column of 1 leaves the decimals as they are
        {make_image(1, 1, {3.14159f}), 1, 3, nullptr, "#|1|\n-+-|\n1|3.142|\n-+-|\n"},
        // numbers wider than their column are written whole
        {make_image(1, 1, {-12345.0f}), 4, 0, nullptr, "   #|   1|\n----+----|\n   1|-12345|\n----+----|\n"},
        {make_image(10, 1, wide), 2, 0, "%s%d",
         "%s%d\n #| 1| 2| 3| 4| 5| 6| 7| 8| 9|10|\n--+--+--+--+--+--+--+--+--+--+--|\n"
         " 1| 1| 2| 3| 4| 5| 6| 7| 8| 9|10|\n--+--+--+--+--+--+--+--+--+--+--|\n"}};
    for (const PrintCase &c : cases) {
        const ko_test::TemporaryFile file("table.txt");
        FILE *stream = std::fopen(file.c_str(), "w");
        ASSERT_NE(stream, nullptr);
        KoRealImagePrint(c.image.get(), stream, c.column_width, c.decimals, c.title);
        std::fclose(stream);
        EXPECT_EQ(ko_test::read_text(file.path()), c.expected);
    }
}

} // namespace
