// Resampling against its plain form, pixel by pixel: which source pixel each new one shows, what rules the sizes, and what is
// refused.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "awkward_floats.h"
#include "guards.h"
#include "ko/resample.h"
#include "library_test.h"
#include "pictures.h"
#include "same_floats.h"
#include "turn_sizes.h"

namespace {

using namespace ko_test;

using ResampleTest = LibraryTest;

struct Size {
    uint64_t width;
    uint64_t height;

    friend std::ostream &operator<<(std::ostream &stream, const Size &size) {
        return stream << size.width << " by " << size.height;
    }
};

// Which source position each new position of one axis shows.
using Axis = std::vector<uint64_t>;

// The source pixel under the centre of each new one, in single precision.
Axis down_axis(uint64_t length, float ratio) {
    Axis axis;
    for (uint64_t i = 0; i < length; ++i) {
        axis.push_back(static_cast<uint64_t>((static_cast<float>(i) + 0.5f) * ratio));
    }
    return axis;
}

// The same with the product in double precision.
Axis resize_axis(uint64_t source, uint64_t length) {
    const float ratio = static_cast<float>(source) / static_cast<float>(length);
    Axis axis;
    for (uint64_t i = 0; i < length; ++i) {
        axis.push_back(static_cast<uint64_t>((static_cast<double>(i) + 0.5) * static_cast<double>(ratio)));
    }
    return axis;
}

// Each source pixel fills a run that ends where its border falls, rounded; the last one fills what is left.
Axis up_axis(uint64_t source, uint64_t length, float ratio) {
    Axis axis;
    for (uint64_t i = 0; i < source; ++i) {
        uint64_t end = length;
        if (i + 1 < source) {
            const float border = static_cast<float>(i + 1) * ratio;
            end = static_cast<uint64_t>(std::floor(static_cast<double>(border) + 0.5));
        }
        while (axis.size() < end) {
            axis.push_back(i);
        }
    }
    return axis;
}

uint64_t times(uint64_t length, float factor) { return static_cast<uint64_t>(static_cast<float>(length) * factor); }

uint64_t divided(uint64_t length, float factor) { return static_cast<uint64_t>(static_cast<float>(length) / factor); }

float quotient(uint64_t a, uint64_t b) { return static_cast<float>(a) / static_cast<float>(b); }

// An image whose pixels tell where they stand.
RealImagePtr numbered(uint64_t width, uint64_t height) {
    return make_image(width, height, [](uint64_t x, uint64_t y) { return static_cast<float>(y * 4096 + x); });
}

RealImagePtr filled(uint64_t width, uint64_t height, float value) {
    return make_image(width, height, [&](uint64_t, uint64_t) { return value; });
}

void expect_picked(const RealImage *source, const Axis &columns, const Axis &rows, const RealImage *result) {
    ASSERT_NE(result, nullptr);
    ASSERT_EQ(result->width, columns.size());
    ASSERT_EQ(result->height, rows.size());
    std::vector<float> expected;
    for (const uint64_t y : rows) {
        for (const uint64_t x : columns) {
            ASSERT_LT(y, source->height);
            ASSERT_LT(x, source->width);
            expected.push_back(source->rows[y][x]);
        }
    }
    EXPECT_TRUE(same_floats(expected, pixels(result)));
    EXPECT_TRUE(padding_is_zero(result));
}

// The columns that a result of one row shows of a numbered image.
Axis columns_of(const RealImage *result) {
    Axis columns;
    for (const float value : pixels(result)) {
        columns.push_back(static_cast<uint64_t>(value) % 4096);
    }
    return columns;
}

using Resample = int32_t (*)(const RealImage *, float, RealImage **);

RealImagePtr resampled(Resample resample, const RealImage *image, float factor) {
    RealImage *result = nullptr;
    expect_success([&] { return resample(image, factor, &result); });
    return RealImagePtr(result);
}

RealImagePtr resized(const RealImage *image, uint64_t width, uint64_t height) {
    RealImage *result = nullptr;
    expect_success([&] { return KoRealImageResize(image, width, height, &result); });
    return RealImagePtr(result);
}

// Runs the function on a given image, which must be written in place.
void resample_into(Resample resample, const RealImage *image, float factor, RealImage *given) {
    RealImage *result = given;
    expect_success([&] { return resample(image, factor, &result); });
    EXPECT_EQ(result, given);
}

void expect_invalid(const std::function<int32_t()> &call) { expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", call); }

// The function refuses a given image, which stays as it was.
void expect_refused(Resample resample, const RealImage *image, RealImage *given) {
    const std::vector<float> before = pixels(given);
    RealImage *result = given;
    expect_invalid([&] { return resample(image, 2.0f, &result); });
    EXPECT_EQ(result, given);
    EXPECT_EQ(pixels(given), before);
}

const std::vector<Size> sizes = {{1, 1}, {1, 7},  {7, 1},   {2, 3},   {3, 2},   {4, 4},    {5, 8},    {8, 5},
                                 {9, 9}, {10, 3}, {16, 11}, {33, 17}, {64, 40}, {101, 59}, {131, 200}};

const std::vector<float> factors = {1.0f, 1.0000001f, 1.1f,       1.25f, 1.3f, 1.4999999f, 1.5f,       1.7f, 2.0f,
                                    2.5f, 3.0f,       3.1415927f, 3.5f,  4.0f, 4.7f,       6.9999995f, 7.0f, 9.999999f};

// A factor, and a result to be made.

TEST_F(ResampleTest, DownsamplingShowsThePixelUnderEachCentre) {
    for (const Size size : sizes) {
        const RealImagePtr image = numbered(size.width, size.height);
        for (const float factor : factors) {
            SCOPED_TRACE(testing::Message() << size << ", factor " << factor);
            const RealImagePtr result = resampled(KoRealImageDownsample, image.get(), factor);
            expect_picked(image.get(), down_axis(divided(size.width, factor), factor),
                          down_axis(divided(size.height, factor), factor), result.get());
        }
    }
}

TEST_F(ResampleTest, UpsamplingRepeatsEachPixelUpToItsRoundedBorder) {
    for (const Size size : sizes) {
        const RealImagePtr image = numbered(size.width, size.height);
        for (const float factor : factors) {
            SCOPED_TRACE(testing::Message() << size << ", factor " << factor);
            const RealImagePtr result = resampled(KoRealImageUpsample, image.get(), factor);
            expect_picked(image.get(), up_axis(size.width, times(size.width, factor), factor),
                          up_axis(size.height, times(size.height, factor), factor), result.get());
        }
    }
}

TEST_F(ResampleTest, EveryLengthAndManyFactors) {
    Noise noise(11);
    for (uint64_t length = 1; length <= 300; ++length) {
        const RealImagePtr row = numbered(length, 1);
        const RealImagePtr column = numbered(1, length);
        for (int i = 0; i < 20; ++i) {
            const float factor = noise.uniform(1.0f, i < 10 ? 2.0f : 12.0f);
            SCOPED_TRACE(testing::Message() << length << ", factor " << factor);
            const RealImagePtr long_row = resampled(KoRealImageUpsample, row.get(), factor);
            const Axis up = up_axis(length, times(length, factor), factor);
            expect_picked(row.get(), up, Axis(times(1, factor), 0), long_row.get());
            const RealImagePtr long_column = resampled(KoRealImageUpsample, column.get(), factor);
            expect_picked(column.get(), Axis(times(1, factor), 0), up, long_column.get());
            const RealImagePtr short_row = resampled(KoRealImageDownsample, row.get(), factor);
            EXPECT_EQ(short_row->width, divided(length, factor));
            EXPECT_EQ(short_row->height, divided(1, factor));
        }
    }
}

TEST_F(ResampleTest, AFactorOfOneCopies) {
    const std::vector<float> values = awkward_floats(13 * 9, 5);
    const RealImagePtr image = make_image(13, 9, values);
    for (const Resample resample : {KoRealImageDownsample, KoRealImageUpsample}) {
        const RealImagePtr result = resampled(resample, image.get(), 1.0f);
        ASSERT_EQ(result->width, 13u);
        ASSERT_EQ(result->height, 9u);
        EXPECT_TRUE(same_floats(values, pixels(result.get())));
    }
}

TEST_F(ResampleTest, HalvingFiveColumnsKeepsTheSecondAndTheFourth) {
    const RealImagePtr result = resampled(KoRealImageDownsample, numbered(5, 2).get(), 2.0f);
    EXPECT_EQ(pixels(result.get()), (std::vector<float>{4097, 4099}));
}

// The factor and not the quotient of the sizes places the columns: 8 by 3 makes 2, and the second is column 4, not 6.
TEST_F(ResampleTest, DownsamplingByAFactorTakesItsStepsFromTheFactor) {
    const RealImagePtr image = numbered(8, 3);
    const RealImagePtr made = resampled(KoRealImageDownsample, image.get(), 3.0f);
    EXPECT_EQ(columns_of(made.get()), (Axis{1, 4}));
    const RealImagePtr given = filled(2, 1, -1.0f);
    resample_into(KoRealImageDownsample, image.get(), 3.0f, given.get());
    EXPECT_EQ(columns_of(given.get()), (Axis{2, 6}));
}

TEST_F(ResampleTest, OneAndAHalfTimesThreeColumnsRepeatTwoOneOne) {
    const RealImagePtr result = resampled(KoRealImageUpsample, numbered(3, 1).get(), 1.5f);
    ASSERT_EQ(result->width, 4u);
    EXPECT_EQ(columns_of(result.get()), (Axis{0, 0, 1, 2}));
}

// Where two columns become three, the one in the middle tells them apart.
TEST_F(ResampleTest, UpsamplingRoundsAtBordersAndResizingTruncatesAtCentres) {
    const RealImagePtr image = numbered(2, 1);
    const RealImagePtr given = filled(3, 1, -1.0f);
    resample_into(KoRealImageUpsample, image.get(), 0.0f, given.get());
    EXPECT_EQ(columns_of(given.get()), (Axis{0, 0, 1}));
    const RealImagePtr nearest = resized(image.get(), 3, 1);
    EXPECT_EQ(columns_of(nearest.get()), (Axis{0, 1, 1}));
}

// 1.5 times ten thirds is 5 in single precision and just below in double.
TEST_F(ResampleTest, DownsamplingMultipliesInSinglePrecisionAndResizingInDouble) {
    const RealImagePtr image = numbered(10, 1);
    const RealImagePtr given = filled(3, 1, -1.0f);
    resample_into(KoRealImageDownsample, image.get(), 0.0f, given.get());
    EXPECT_EQ(columns_of(given.get()), (Axis{1, 5, 8}));
    const RealImagePtr nearest = resized(image.get(), 3, 1);
    EXPECT_EQ(columns_of(nearest.get()), (Axis{1, 4, 8}));
}

// Three times seven sixths is three and a half in single precision and just below in double.
TEST_F(ResampleTest, UpsamplingFormsItsBordersInSinglePrecision) {
    const RealImagePtr given = filled(7, 1, -1.0f);
    resample_into(KoRealImageUpsample, numbered(6, 1).get(), 0.0f, given.get());
    EXPECT_EQ(columns_of(given.get()), (Axis{0, 1, 2, 2, 3, 4, 5}));
}

TEST_F(ResampleTest, TheOnePixelOfAWidthIsTheWholeRow) {
    const RealImagePtr image = make_image(1, 2, {3.5f, -2.0f});
    const RealImagePtr result = resampled(KoRealImageUpsample, image.get(), 4.0f);
    ASSERT_EQ(result->width, 4u);
    EXPECT_EQ(pixels(result.get()), (std::vector<float>{3.5f, 3.5f, 3.5f, 3.5f, 3.5f, 3.5f, 3.5f, 3.5f, 3.5f, 3.5f, 3.5f,
                                                        3.5f, 3.5f, 3.5f, 3.5f, 3.5f, -2,   -2,   -2,   -2,   -2,   -2,
                                                        -2,   -2,   -2,   -2,   -2,   -2,   -2,   -2,   -2,   -2}));
}

TEST_F(ResampleTest, PixelsAreMovedUntouched) {
    const std::vector<float> values = awkward_floats(23 * 19, 7);
    const RealImagePtr image = make_image(23, 19, values);
    const RealImagePtr small = resampled(KoRealImageDownsample, image.get(), 1.7f);
    expect_picked(image.get(), down_axis(13, 1.7f), down_axis(11, 1.7f), small.get());
    const RealImagePtr large = resampled(KoRealImageUpsample, image.get(), 1.7f);
    expect_picked(image.get(), up_axis(23, 39, 1.7f), up_axis(19, 32, 1.7f), large.get());
    const RealImagePtr nearest = resized(image.get(), 40, 7);
    expect_picked(image.get(), resize_axis(23, 40), resize_axis(19, 7), nearest.get());
    EXPECT_TRUE(same_floats(values, pixels(image.get())));
}

TEST_F(ResampleTest, ASideThatTruncatesToNothingMakesAnEmptyImage) {
    const RealImagePtr image = numbered(5, 3);
    const Size expected[] = {{1, 0}, {0, 0}, {0, 0}};
    const float factor[] = {4.0f, 6.0f, infinity};
    for (size_t i = 0; i < 3; ++i) {
        const RealImagePtr result = resampled(KoRealImageDownsample, image.get(), factor[i]);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(result->width, expected[i].width);
        EXPECT_EQ(result->height, expected[i].height);
    }
    const RealImagePtr flat = resampled(KoRealImageDownsample, numbered(3, 9).get(), 4.0f);
    EXPECT_EQ(flat->width, 0u);
    EXPECT_EQ(flat->height, 2u);
    EXPECT_TRUE(padding_is_zero(flat.get()));
}

TEST_F(ResampleTest, EmptyImagesStayEmpty) {
    for (const Size size : {Size{0, 0}, Size{0, 6}, Size{6, 0}}) {
        const RealImagePtr image(KoRealImageNew(size.width, size.height));
        for (const float factor : {1.0f, 2.5f}) {
            const RealImagePtr small = resampled(KoRealImageDownsample, image.get(), factor);
            EXPECT_EQ(small->width, divided(size.width, factor));
            EXPECT_EQ(small->height, divided(size.height, factor));
            const RealImagePtr large = resampled(KoRealImageUpsample, image.get(), factor);
            EXPECT_EQ(large->width, times(size.width, factor));
            EXPECT_EQ(large->height, times(size.height, factor));
        }
    }
}

// A given result.

TEST_F(ResampleTest, AGivenSizeRulesInsteadOfTheFactor) {
    for (const Size from : sizes) {
        for (const Size to : sizes) {
            SCOPED_TRACE(testing::Message() << from << " to " << to);
            const RealImagePtr image = numbered(from.width, from.height);
            const RealImagePtr given = filled(to.width, to.height, -1.0f);
            if (to.width <= from.width && to.height <= from.height) {
                resample_into(KoRealImageDownsample, image.get(), 0.5f, given.get());
                expect_picked(image.get(), down_axis(to.width, quotient(from.width, to.width)),
                              down_axis(to.height, quotient(from.height, to.height)), given.get());
            } else {
                expect_refused(KoRealImageDownsample, image.get(), given.get());
            }
            KoRealImageFill(given.get(), -1.0f);
            if (to.width >= from.width && to.height >= from.height) {
                resample_into(KoRealImageUpsample, image.get(), 0.5f, given.get());
                expect_picked(image.get(), up_axis(from.width, to.width, quotient(to.width, from.width)),
                              up_axis(from.height, to.height, quotient(to.height, from.height)), given.get());
            } else {
                expect_refused(KoRealImageUpsample, image.get(), given.get());
            }
        }
    }
}

TEST_F(ResampleTest, EveryPairOfLengths) {
    for (uint64_t small = 1; small <= 40; ++small) {
        for (uint64_t large = small; large <= 90; ++large) {
            SCOPED_TRACE(testing::Message() << small << " and " << large);
            const RealImagePtr long_row = numbered(large, small);
            const RealImagePtr short_column = filled(small, small, -1.0f);
            resample_into(KoRealImageDownsample, long_row.get(), not_a_number, short_column.get());
            expect_picked(long_row.get(), down_axis(small, quotient(large, small)), down_axis(small, 1.0f), short_column.get());
            const RealImagePtr grown = filled(small, large, -1.0f);
            resample_into(KoRealImageUpsample, short_column.get(), not_a_number, grown.get());
            expect_picked(short_column.get(), up_axis(small, small, 1.0f), up_axis(small, large, quotient(large, small)),
                          grown.get());
        }
    }
}

TEST_F(ResampleTest, AGivenImageOfTheSameSizeIsAPlainCopy) {
    const std::vector<float> values = awkward_floats(17 * 6, 9);
    const RealImagePtr image = make_image(17, 6, values);
    const RealImagePtr given(KoRealImageNew(17, 6));
    RealImage *result = given.get();
    const std::vector<std::function<int32_t()>> copies = {
        [&] { return KoRealImageUpsample(image.get(), 3.0f, &result); },
        [&] { return KoRealImageDownsample(image.get(), 3.0f, &result); },
        [&] { return KoRealImageResize(image.get(), 17, 6, &result); },
        [&] { return KoRealImageRescale(image.get(), given.get()); },
    };
    for (const auto &copy : copies) {
        KoRealImageFill(given.get(), 8.0f);
        expect_success(copy);
        EXPECT_EQ(result, given.get());
        EXPECT_TRUE(same_floats(values, pixels(given.get())));
    }
}

TEST_F(ResampleTest, AnEmptyGivenImageIsFilledWithNothing) {
    const RealImagePtr image = numbered(5, 3);
    for (const Size size : {Size{0, 0}, Size{0, 2}, Size{4, 0}}) {
        const RealImagePtr given(KoRealImageNew(size.width, size.height));
        resample_into(KoRealImageDownsample, image.get(), 2.0f, given.get());
        EXPECT_EQ(given->width, size.width);
        EXPECT_EQ(given->height, size.height);
    }
}

TEST_F(ResampleTest, AnEmptyPictureWritesNothingIntoALargerOne) {
    for (const Size size : {Size{0, 0}, Size{0, 3}, Size{3, 0}}) {
        const RealImagePtr image(KoRealImageNew(size.width, size.height));
        const RealImagePtr given = filled(4, 5, 6.0f);
        resample_into(KoRealImageUpsample, image.get(), 2.0f, given.get());
        EXPECT_EQ(pixels(given.get()), std::vector<float>(20, 6.0f));
        expect_refused(KoRealImageDownsample, image.get(), given.get());
    }
}

// What is refused.

TEST_F(ResampleTest, AFactorUnderOneIsRefused) {
    const RealImagePtr image = numbered(5, 3);
    for (const float factor : {0.5f, 0.0f, -2.0f, -infinity, not_a_number, std::nextafter(1.0f, 0.0f)}) {
        for (const Resample resample : {KoRealImageDownsample, KoRealImageUpsample}) {
            RealImage *result = nullptr;
            expect_invalid([&] { return resample(image.get(), factor, &result); });
            EXPECT_EQ(result, nullptr);
        }
    }
}

TEST_F(ResampleTest, AnImageThatNoMemoryHoldsIsReportedOnceByItsConstructor) {
    const RealImagePtr image = numbered(5, 3);
    const auto expect_create_object = [](const std::function<int32_t()> &call) {
        KoStatusClear();
        StderrCapture swallowed;
        const PrintCapture printed("debug");
        EXPECT_EQ(call(), KO_ERR_CREATE_OBJECT);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
        const std::string chain = KoErrorGetLastErrorMessage();
        const std::string head = "Cannot create object \"RealImage\"\n-> Cannot allocate ";
        EXPECT_EQ(chain.substr(0, head.size()), head);
        EXPECT_EQ(chain.find("Cannot create", 1), std::string::npos);
        EXPECT_EQ(printed.texts(), std::vector<std::string>());
    };
    for (const float factor : {2e4f, 1e9f, 1e30f, infinity}) {
        RealImage *result = nullptr;
        expect_create_object([&] { return KoRealImageUpsample(image.get(), factor, &result); });
        EXPECT_EQ(result, nullptr);
    }
    RealImage *result = nullptr;
    expect_create_object([&] { return KoRealImageResize(image.get(), 1u << 20, 1u << 20, &result); });
    EXPECT_EQ(result, nullptr);
}

// Resize.

TEST_F(ResampleTest, ResizingShowsThePixelUnderEachCentreInBothDirections) {
    for (const Size from : sizes) {
        const RealImagePtr image = numbered(from.width, from.height);
        for (const Size to : sizes) {
            SCOPED_TRACE(testing::Message() << from << " to " << to);
            const RealImagePtr result = resized(image.get(), to.width, to.height);
            expect_picked(image.get(), resize_axis(from.width, to.width), resize_axis(from.height, to.height), result.get());
            const RealImagePtr given = filled(to.width, to.height, -1.0f);
            RealImage *in_place = given.get();
            expect_success([&] { return KoRealImageResize(image.get(), to.width, to.height, &in_place); });
            EXPECT_EQ(in_place, given.get());
            EXPECT_EQ(pixels(result.get()), pixels(given.get()));
        }
    }
}

// The call fills a given image, and nothing beside it, with the pixels that the axes name, bit for bit.
template <class Call>
void expect_picked_bits(const RealImage *image, const Axis &columns, const Axis &rows, uint64_t width, uint64_t height,
                        Call call) {
    ASSERT_EQ(columns.size(), width);
    ASSERT_EQ(rows.size(), height);
    const RealImagePtr given = filled(width, height, -1.0f);
    const PlaneGuard surround(given.get());
    RealImage *result = given.get();
    ASSERT_EQ(call(&result), KO_OK);
    ASSERT_EQ(result, given.get());
    for (uint64_t y = 0; y < height; ++y) {
        for (uint64_t x = 0; x < width; ++x) {
            const float *expected = &image->rows[std::min(rows[y], image->height - 1)][std::min(columns[x], image->width - 1)];
            ASSERT_EQ(std::memcmp(&given->rows[y][x], expected, sizeof(float)), 0) << x << ", " << y;
        }
    }
    ASSERT_TRUE(surround.holds());
}

// Each width to each of a few others, larger and smaller, by all three functions.
TEST_F(ResampleTest, EveryWidthToMany) {
    uint32_t seed = 0;
    for (const uint64_t from : turn_widths()) {
        const uint64_t height = 1 + ++seed % 5;
        const RealImagePtr image = bit_image(from, height, seed);
        for (const uint64_t to : {uint64_t{1}, from / 3 + 1, from, from + 1, 3 * from + 2, uint64_t{63 + seed % 70}}) {
            const uint64_t new_height = to < from ? height : height + seed % 9;
            SCOPED_TRACE(testing::Message() << from << " by " << height << " to " << to << " by " << new_height);
            expect_picked_bits(image.get(), resize_axis(from, to), resize_axis(height, new_height), to, new_height,
                               [&](RealImage **result) { return KoRealImageResize(image.get(), to, new_height, result); });
            if (to <= from) {
                expect_picked_bits(image.get(), down_axis(to, quotient(from, to)), down_axis(height, 1.0f), to, height,
                                   [&](RealImage **result) { return KoRealImageDownsample(image.get(), 0.0f, result); });
            } else {
                expect_picked_bits(image.get(), up_axis(from, to, quotient(to, from)),
                                   up_axis(height, new_height, quotient(new_height, height)), to, new_height,
                                   [&](RealImage **result) { return KoRealImageUpsample(image.get(), 0.0f, result); });
            }
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(ResampleTest, ResizingIsTheMatrixesResize) {
    for (const Size to : {Size{1, 1}, Size{29, 3}, Size{7, 50}, Size{60, 61}}) {
        const RealImagePtr image = make_image(31, 17, awkward_floats(31 * 17, 3));
        const RealImagePtr result = resized(image.get(), to.width, to.height);
        const MatrixFloatPtr matrix(KoMatrixFloatNewFromFloatArray(31, 17, pixels(image.get()).data()));
        MatrixFloat *made = nullptr;
        expect_success([&] { return KoMatrixFloatResize(matrix.get(), to.width, to.height, &made); });
        const MatrixFloatPtr same(made);
        ASSERT_EQ(same->width, result->width);
        for (uint64_t y = 0; y < to.height; ++y) {
            const std::vector<float> expected(same->rows[y], same->rows[y] + to.width);
            EXPECT_TRUE(same_floats(expected, std::vector<float>(result->rows[y], result->rows[y] + to.width)));
        }
    }
}

TEST_F(ResampleTest, ResizingToNothingMakesAnEmptyImage) {
    const RealImagePtr image = numbered(5, 3);
    for (const Size size : {Size{0, 0}, Size{0, 2}, Size{4, 0}}) {
        const RealImagePtr result = resized(image.get(), size.width, size.height);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(result->width, size.width);
        EXPECT_EQ(result->height, size.height);
    }
}

// A given image larger than the size that is asked for keeps the rest.
TEST_F(ResampleTest, ResizingWritesTheSizeThatIsAskedForIntoWhatIsThere) {
    const RealImagePtr image = numbered(4, 4);
    const RealImagePtr given = filled(3, 3, -1.0f);
    RealImage *result = given.get();
    expect_success([&] { return KoRealImageResize(image.get(), 2, 2, &result); });
    EXPECT_EQ(pixels(given.get()), (std::vector<float>{4097, 4099, -1, 12289, 12291, -1, -1, -1, -1}));
}

// Rescale.

TEST_F(ResampleTest, RescalingChoosesByTheWidthAlone) {
    for (const Size from : sizes) {
        for (const Size to : sizes) {
            SCOPED_TRACE(testing::Message() << from << " to " << to);
            const RealImagePtr image = numbered(from.width, from.height);
            const RealImagePtr given = filled(to.width, to.height, -1.0f);
            const RealImagePtr expected = filled(to.width, to.height, -1.0f);
            RealImage *result = expected.get();
            KoStatusClear();
            const Resample resample = from.width >= to.width ? KoRealImageDownsample : KoRealImageUpsample;
            const int32_t status = resample(image.get(), 0.0f, &result);
            const bool fits = from.width >= to.width ? from.height >= to.height : from.height <= to.height;
            ASSERT_EQ(status, fits ? KO_OK : KO_ERR_INVALID_ARGUMENT);
            if (fits) {
                expect_success([&] { return KoRealImageRescale(image.get(), given.get()); });
            } else {
                expect_invalid([&] { return KoRealImageRescale(image.get(), given.get()); });
            }
            EXPECT_EQ(pixels(expected.get()), pixels(given.get()));
        }
    }
}

TEST_F(ResampleTest, RescalingRefusesATallerImageThatIsNotWider) {
    const RealImagePtr image = numbered(4, 4);
    for (const uint64_t width : {4u, 3u}) {
        const RealImagePtr taller = filled(width, 5, -1.0f);
        expect_invalid([&] { return KoRealImageRescale(image.get(), taller.get()); });
        EXPECT_EQ(pixels(taller.get()), std::vector<float>(width * 5, -1.0f));
    }
    const RealImagePtr wider_and_lower = filled(5, 3, -1.0f);
    expect_invalid([&] { return KoRealImageRescale(image.get(), wider_and_lower.get()); });
}

// Colour images.

struct Space {
    int32_t number;
    uint64_t depth;
};

class ColorResampleTest : public LibraryTest, public testing::WithParamInterface<Space> {
  protected:
    static ColorImagePtr picture(uint32_t width, uint32_t height) {
        return make_color_image(width, height, GetParam().number, [](uint32_t c, uint64_t x, uint64_t y) {
            return static_cast<float>(c * 1000000 + y * 1000 + x);
        });
    }

    static ColorImagePtr downsampled(const ColorImage *image, float factor) {
        ColorImage *result = nullptr;
        expect_success([&] { return KoColorImageDownsample(image, factor, &result); });
        return ColorImagePtr(result);
    }

    // Every plane shows the columns and rows of the picture's own.
    static void expect_planes(const ColorImage *image, const Axis &columns, const Axis &rows, const ColorImage *result) {
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(result->color_space, GetParam().number);
        ASSERT_EQ(result->depth, GetParam().depth);
        for (uint64_t c = 0; c < result->depth; ++c) {
            expect_picked(&image->planes[c], columns, rows, &result->planes[c]);
        }
    }
};
INSTANTIATE_TEST_SUITE_P(Spaces, ColorResampleTest,
                         testing::Values(Space{KO_COLORSPACE_RGB, 3}, Space{KO_COLORSPACE_YIQ, 3},
                                         Space{KO_COLORSPACE_GRAY, 1}),
                         [](const auto &space) { return "Space" + std::to_string(space.param.number); });

// The planes stand before they are filled, so their sizes rule: a third of five is one pixel, the middle one and not the
// second.
TEST_P(ColorResampleTest, DownsamplingTakesItsStepsFromTheSizes) {
    for (const Size size : sizes) {
        const ColorImagePtr image = picture(static_cast<uint32_t>(size.width), static_cast<uint32_t>(size.height));
        for (const float factor : factors) {
            const uint64_t width = divided(size.width, factor);
            const uint64_t height = divided(size.height, factor);
            SCOPED_TRACE(testing::Message() << size << ", factor " << factor);
            const ColorImagePtr result = downsampled(image.get(), factor);
            expect_planes(image.get(), down_axis(width, quotient(size.width, width)),
                          down_axis(height, quotient(size.height, height)), result.get());
        }
    }
    const ColorImagePtr five = picture(5, 5);
    const ColorImagePtr result = downsampled(five.get(), 3.0f);
    EXPECT_EQ(pixels(&result->planes[0]), std::vector<float>{2002.0f});
}

TEST_P(ColorResampleTest, DownsamplingWithoutAFactorMakesPlanesWithoutPixels) {
    const ColorImagePtr image = picture(5, 4);
    for (const float factor : {0.0f, -1.0f, -infinity, not_a_number, infinity, 1000.0f}) {
        const ColorImagePtr result = downsampled(image.get(), factor);
        expect_planes(image.get(), {}, {}, result.get());
    }
}

TEST_P(ColorResampleTest, DownsamplingFillsAGivenImageWhateverTheFactor) {
    const ColorImagePtr image = picture(12, 9);
    for (const float factor : {0.0f, 0.25f, 7.0f, not_a_number}) {
        const ColorImagePtr given(KoColorImageNew(5, 9, GetParam().number));
        ColorImage *result = given.get();
        expect_success([&] { return KoColorImageDownsample(image.get(), factor, &result); });
        EXPECT_EQ(result, given.get());
        expect_planes(image.get(), down_axis(5, quotient(12, 5)), down_axis(9, 1.0f), result);
    }
}

TEST_P(ColorResampleTest, DownsamplingDoesNotEnlarge) {
    const ColorImagePtr image = picture(4, 4);
    ColorImage *made = nullptr;
    expect_invalid([&] { return KoColorImageDownsample(image.get(), 0.5f, &made); });
    const ColorImagePtr result(made);
    ASSERT_NE(result, nullptr) << "an image that was made before the failure is the caller's";
    EXPECT_EQ(result->depth, GetParam().depth);
    EXPECT_EQ(KoColorImageGetWidth(result.get()), 8u);
    EXPECT_EQ(KoColorImageGetHeight(result.get()), 8u);
    const ColorImagePtr given(KoColorImageNew(4, 5, GetParam().number));
    const float color[] = {6.0f, 6.0f, 6.0f};
    KoColorImageFill(given.get(), color, 3);
    ColorImage *into = given.get();
    expect_invalid([&] { return KoColorImageDownsample(image.get(), 2.0f, &into); });
    EXPECT_EQ(into, given.get());
    for (uint64_t c = 0; c < given->depth; ++c) {
        EXPECT_EQ(pixels(&given->planes[c]), std::vector<float>(20, 6.0f));
    }
}

TEST_P(ColorResampleTest, ResizingTreatsEachPlaneLikeAnImage) {
    for (const Size from : sizes) {
        const ColorImagePtr image = picture(static_cast<uint32_t>(from.width), static_cast<uint32_t>(from.height));
        for (const Size to : {Size{1, 1}, Size{3, 10}, Size{16, 16}, Size{70, 2}, Size{0, 0}}) {
            SCOPED_TRACE(testing::Message() << from << " to " << to);
            const Axis columns = resize_axis(from.width, to.width);
            const Axis rows = resize_axis(from.height, to.height);
            ColorImage *made = nullptr;
            expect_success([&] { return KoColorImageResize(image.get(), to.width, to.height, &made); });
            const ColorImagePtr result(made);
            expect_planes(image.get(), columns, rows, result.get());
            const ColorImagePtr given(
                KoColorImageNew(static_cast<uint32_t>(to.width), static_cast<uint32_t>(to.height), GetParam().number));
            ColorImage *into = given.get();
            expect_success([&] { return KoColorImageResize(image.get(), to.width, to.height, &into); });
            EXPECT_EQ(into, given.get());
            expect_planes(image.get(), columns, rows, into);
        }
    }
}

TEST_P(ColorResampleTest, APictureThatNoMemoryHoldsIsNotMade) {
    const ColorImagePtr image = picture(4, 4);
    KoStatusClear();
    const StderrCapture swallowed;
    ColorImage *result = nullptr;
    EXPECT_EQ(KoColorImageResize(image.get(), 1u << 20, 1u << 20, &result), KO_ERR_CREATE_OBJECT);
    EXPECT_EQ(result, nullptr);
    const std::string head = "Cannot create object \"ColorImage\"\n-> Cannot allocate ";
    EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).substr(0, head.size()), head);
    for (const float factor : {1e-5f, 1e-30f}) {
        KoStatusClear();
        EXPECT_EQ(KoColorImageDownsample(image.get(), factor, &result), KO_ERR_CREATE_OBJECT) << factor;
        EXPECT_EQ(result, nullptr);
        EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).substr(0, head.size()), head);
    }
}

// A plane that fails ends the work: those before it are done, those behind it are not.
TEST_F(ResampleTest, TheFirstPlaneThatFailsEndsTheWork) {
    const ColorImagePtr image =
        make_color_image(4, 4, KO_COLORSPACE_RGB, [](uint32_t c, uint64_t, uint64_t) { return static_cast<float>(c + 1); });
    const ColorImagePtr given(KoColorImageNew(2, 2, KO_COLORSPACE_RGB));
    KoColorImageClear(given.get());
    KoRealImageFree(&given->planes[1]);
    ASSERT_EQ(KoRealImageInit(&given->planes[1], 5, 2), KO_OK);
    KoRealImageClear(&given->planes[1]);
    ColorImage *result = given.get();
    expect_invalid([&] { return KoColorImageDownsample(image.get(), 2.0f, &result); });
    EXPECT_EQ(pixels(&given->planes[0]), std::vector<float>(4, 1.0f));
    EXPECT_EQ(pixels(&given->planes[1]), std::vector<float>(10, 0.0f));
    EXPECT_EQ(pixels(&given->planes[2]), std::vector<float>(4, 0.0f));
}

} // namespace
