// The pixel functions, and the drivers that run a colour function over pictures two pixels a call.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "awkward_floats.h"
#include "library_test.h"
#include "pictures.h"
#include "same_floats.h"

namespace {

using ko_test::awkward_floats;
using ko_test::ColorImagePtr;
using ko_test::expect_error;
using ko_test::expect_success;
using ko_test::infinity;
using ko_test::make_color_image;
using ko_test::not_a_number;
using ko_test::padding_is_zero;
using ko_test::pixels;
using ko_test::same_float;
using ko_test::same_floats;

constexpr int32_t RGB = KO_COLORSPACE_RGB;
constexpr int32_t YIQ = KO_COLORSPACE_YIQ;
constexpr int32_t GRAY = KO_COLORSPACE_GRAY;

// Pixel functions

struct NamedImageFunction {
    const char *name;
    KoImageFunction function;
    float (*plain)(float a, float b);
};

struct NamedValueFunction {
    const char *name;
    KoValueFunction function;
    float (*plain)(float a, float v);
};

TEST(PixelFunctionTest, OfTwoImagesIgnoreTheirData) {
    const NamedImageFunction functions[] = {
        {"AddImage", KoFunctionAddImage, [](float a, float b) { return a + b; }},
        {"AbsAddImage", KoFunctionAbsAddImage,
         [](float a, float b) {
             return static_cast<float>(std::fabs(static_cast<double>(a)) + std::fabs(static_cast<double>(b)));
         }},
        {"SubstractImage", KoFunctionSubstractImage, [](float a, float b) { return a - b; }},
        {"DiffImage", KoFunctionDiffImage, [](float a, float b) { return std::fabs(a - b); }},
        {"MultiplyImage", KoFunctionMultiplyImage, [](float a, float b) { return a * b; }},
        {"DivideImage", KoFunctionDivideImage, [](float a, float b) { return a / b; }}};
    const std::vector<float> a = awkward_floats(500, 1);
    const std::vector<float> b = awkward_floats(500, 2);
    for (const NamedImageFunction &f : functions) {
        for (size_t i = 0; i < a.size(); ++i) {
            EXPECT_TRUE(same_float(f.function(nullptr, a[i], b[i]), f.plain(a[i], b[i])))
                << f.name << ": " << a[i] << ", " << b[i];
        }
    }
}

TEST(PixelFunctionTest, OfAValueReadItFromTheirData) {
    const NamedValueFunction functions[] = {
        {"AddValue", KoFunctionAddValue, [](float a, float v) { return a + v; }},
        {"SubstractValue", KoFunctionSubstractValue, [](float a, float v) { return a - v; }},
        {"MultiplyValue", KoFunctionMultiplyValue, [](float a, float v) { return a * v; }},
        {"DivideValue", KoFunctionDivideValue, [](float a, float v) { return a / v; }}};
    for (const NamedValueFunction &f : functions) {
        for (float v : {1.0f, 3.0f, -0.1f, 0.0f, -0.0f, infinity, not_a_number}) {
            for (const float a : awkward_floats(300, 3)) {
                EXPECT_TRUE(same_float(f.function(&v, a), f.plain(a, v))) << f.name << ": " << a << ", " << v;
            }
        }
    }
}

TEST(PixelFunctionTest, AbsImageNeedsNoData) {
    for (const float a : awkward_floats(300, 4)) {
        EXPECT_TRUE(same_float(KoFunctionAbsImage(nullptr, a), std::fabs(a))) << a;
    }
}

// Expects what a colour function of two sources writes: up to depth channels of count packets, and nothing else.
void expect_color_function(KoColorFunction2 function, float (*plain)(float a, float b)) {
    const std::vector<float> first = awkward_floats(8, 5);
    const std::vector<float> second = awkward_floats(8, 6);
    for (int64_t count = 0; count <= 2; ++count) {
        for (uint64_t depth = 0; depth <= 4; ++depth) {
            std::vector<float> expected(8, 77.0f);
            for (uint64_t pixel = 0; pixel < static_cast<uint64_t>(count); ++pixel) {
                for (uint64_t c = 0; c < depth; ++c) {
                    expected[4 * pixel + c] = plain(first[4 * pixel + c], second[4 * pixel + c]);
                }
            }
            for (const uint64_t result_depth : {0u, 1u, 3u}) { // not looked at
                std::vector<float> result(8, 77.0f);
                EXPECT_EQ(function(nullptr, count, depth, first.data(), second.data(), result_depth, result.data()), 0);
                EXPECT_TRUE(same_floats(expected, result)) << count << " pixels of depth " << depth;
            }
        }
    }
}

TEST(PixelFunctionTest, ColorFunctionsGoByTheDepthOfTheFirstSource) {
    expect_color_function(KoFunctionDiffColorImage, [](float a, float b) { return std::fabs(a - b); });
    expect_color_function(KoFunctionSubstractColorImage, [](float a, float b) { return a - b; });
}

// Drivers

struct Call {
    int64_t count;
    uint64_t depth, result_depth;
    std::array<float, 8> first, second;
};

// Stands as data behind the colour functions: records each call and then does what the test says.
struct Recorder {
    std::vector<Call> calls;
    std::function<int32_t(const Call &call, float *result)> act = [](const Call &, float *) { return 0; };
};

std::array<float, 8> packets(const float *values) {
    std::array<float, 8> copy;
    std::copy_n(values, 8, copy.begin());
    return copy;
}

int32_t record1(void *data, int64_t count, uint64_t depth, const float *source, uint64_t result_depth, float *result) {
    auto *recorder = static_cast<Recorder *>(data);
    recorder->calls.push_back({count, depth, result_depth, packets(source), {}});
    return recorder->act(recorder->calls.back(), result);
}

int32_t record2(void *data, int64_t count, uint64_t depth, const float *first, const float *second, uint64_t result_depth,
                float *result) {
    auto *recorder = static_cast<Recorder *>(data);
    recorder->calls.push_back({count, depth, result_depth, packets(first), packets(second)});
    return recorder->act(recorder->calls.back(), result);
}

class ApplyFunctionTest : public ko_test::LibraryTest, public testing::WithParamInterface<bool> {
  protected:
    // Channel c of the pixel at (x, y) is start + 1000 c + 100 y + x.
    static ColorImagePtr numbered(uint32_t width, uint32_t height, int32_t space = RGB, float start = 1.0f) {
        return make_color_image(width, height, space, [start](uint32_t c, uint64_t x, uint64_t y) {
            return start + static_cast<float>(1000 * c + 100 * y + x);
        });
    }

    static std::vector<float> all_pixels(const ColorImage *image) {
        std::vector<float> values;
        for (uint64_t c = 0; c < image->depth; ++c) {
            const std::vector<float> plane = pixels(&image->planes[c]);
            values.insert(values.end(), plane.begin(), plane.end());
        }
        return values;
    }

    static void expect_zero_padding(const ColorImage *image) {
        for (uint64_t c = 0; c < image->depth; ++c) {
            EXPECT_TRUE(padding_is_zero(&image->planes[c]));
        }
    }

    // The driver of one source, or that of two with the same picture twice.
    int32_t run(ColorImage *source, ColorImage **result) {
        return GetParam() ? KoApplyFunctionTo2ColorImage(record2, &recorder_, source, source, result)
                          : KoApplyFunctionTo1ColorImage(record1, &recorder_, source, result);
    }

    // Writes result packets that say where their pixel came from, and a fourth float and a second packet that nobody may read.
    static int32_t double_pixels(const Call &call, float *result) {
        for (size_t i = 0; i < 8; ++i) {
            const bool read = i % 4 != 3 && (i < 4 || call.count == 2);
            result[i] = read ? 2.0f * call.first[i] : not_a_number;
        }
        return 0;
    }

    Recorder recorder_;
};

INSTANTIATE_TEST_SUITE_P(Sources, ApplyFunctionTest, testing::Bool(),
                         [](const auto &two) { return std::string(two.param ? "Two" : "One"); });

TEST_P(ApplyFunctionTest, PixelsTravelInPairsAndALoneLastOneWithAClearedPacket) {
    for (uint32_t width = 1; width < 10; ++width) {
        const ColorImagePtr source = numbered(width, 3);
        recorder_.calls.clear();
        ColorImage *result = nullptr;
        expect_success([&] { return run(source.get(), &result); });
        const ColorImagePtr made(result);
        size_t i = 0;
        for (uint64_t y = 0; y < 3; ++y) {
            for (uint64_t x = 0; x < width; x += 2, ++i) {
                ASSERT_LT(i, recorder_.calls.size());
                const Call &call = recorder_.calls[i];
                std::array<float, 8> expected = {};
                for (size_t c = 0; c < 3; ++c) {
                    expected[c] = source->planes[c].rows[y][x];
                    expected[4 + c] = x + 1 < width ? source->planes[c].rows[y][x + 1] : 0.0f;
                }
                EXPECT_EQ(call.count, x + 1 < width ? 2 : 1);
                EXPECT_EQ(call.depth, 3u);
                EXPECT_EQ(call.result_depth, 3u);
                EXPECT_EQ(call.first, expected);
                EXPECT_EQ(call.second, GetParam() ? expected : (std::array<float, 8>{}));
            }
        }
        EXPECT_EQ(recorder_.calls.size(), i);
    }
}

TEST_P(ApplyFunctionTest, ANewResultTakesSizeAndSpaceOfTheSource) {
    recorder_.act = double_pixels;
    for (const int32_t space : {RGB, YIQ}) {
        for (uint32_t width = 1; width < 10; ++width) {
            const ColorImagePtr source = numbered(width, 3, space);
            ColorImage *result = nullptr;
            expect_success([&] { return run(source.get(), &result); });
            const ColorImagePtr made(result);
            ASSERT_NE(result, nullptr);
            EXPECT_EQ(result->color_space, space);
            std::vector<float> expected = all_pixels(source.get());
            std::transform(expected.begin(), expected.end(), expected.begin(), [](float value) { return 2.0f * value; });
            EXPECT_EQ(all_pixels(result), expected);
            expect_zero_padding(result);
        }
    }
}

TEST_P(ApplyFunctionTest, AGivenResultIsWrittenAndMayBeTheSource) {
    recorder_.act = double_pixels;
    for (uint32_t width = 1; width < 10; ++width) {
        const ColorImagePtr source = numbered(width, 3);
        std::vector<float> expected = all_pixels(source.get());
        std::transform(expected.begin(), expected.end(), expected.begin(), [](float value) { return 2.0f * value; });
        const ColorImagePtr given = numbered(width, 3, YIQ, -5000.0f);
        ColorImage *result = given.get();
        expect_success([&] { return run(source.get(), &result); });
        EXPECT_EQ(result, given.get());
        EXPECT_EQ(result->color_space, YIQ);
        EXPECT_EQ(all_pixels(result), expected);
        result = source.get();
        expect_success([&] { return run(source.get(), &result); });
        EXPECT_EQ(result, source.get());
        EXPECT_EQ(all_pixels(source.get()), expected);
        expect_zero_padding(source.get());
    }
}

TEST_P(ApplyFunctionTest, ResultPacketsAreNotClearedBetweenCalls) {
    recorder_.act = [this](const Call &, float *result) {
        if (recorder_.calls.size() == 1) {
            std::copy_n(std::array<float, 8>{1, 2, 3, 4, 5, 6, 7, 8}.begin(), 8, result);
        }
        return 0;
    };
    const ColorImagePtr source = numbered(5, 2);
    ColorImage *result = nullptr;
    expect_success([&] { return run(source.get(), &result); });
    const ColorImagePtr made(result);
    for (uint64_t c = 0; c < 3; ++c) {
        const float first = static_cast<float>(c + 1);
        const float second = static_cast<float>(c + 5);
        const std::vector<float> line = {first, second, first, second, first};
        for (uint64_t y = 0; y < 2; ++y) {
            EXPECT_EQ(std::vector<float>(result->planes[c].rows[y], result->planes[c].rows[y] + 5), line);
        }
    }
}

// A run has no state beyond its arguments: another one between two of its calls does not touch its packets.
TEST_P(ApplyFunctionTest, RunsMayBeNested) {
    const ColorImagePtr source = numbered(5, 2);
    const ColorImagePtr other = numbered(3, 1);
    recorder_.act = [&](const Call &, float *result) {
        if (recorder_.calls.size() == 1) {
            std::copy_n(std::array<float, 8>{1, 2, 3, 4, 5, 6, 7, 8}.begin(), 8, result);
        }
        const auto spoil = [](void *, int64_t, uint64_t, const float *, uint64_t, float *packet) {
            std::fill_n(packet, 8, 99.0f);
            return int32_t{0};
        };
        ColorImage *target = other.get();
        return KoApplyFunctionTo1ColorImage(spoil, nullptr, other.get(), &target);
    };
    ColorImage *result = nullptr;
    expect_success([&] { return run(source.get(), &result); });
    const ColorImagePtr made(result);
    EXPECT_EQ(pixels(&result->planes[0]), (std::vector<float>{1, 5, 1, 5, 1, 1, 5, 1, 5, 1}));
    EXPECT_EQ(pixels(&other->planes[0]), (std::vector<float>{99, 99, 99}));
}

TEST_P(ApplyFunctionTest, TheLastCallsStatusIsTheResultAndNoEarlierOneStops) {
    const ColorImagePtr source = numbered(5, 2);
    for (size_t odd = 1; odd <= 6; ++odd) {
        recorder_.calls.clear();
        recorder_.act = [this, odd](const Call &call, float *result) {
            double_pixels(call, result);
            return recorder_.calls.size() == odd ? 7 : 0;
        };
        ColorImage *result = nullptr;
        EXPECT_EQ(run(source.get(), &result), odd == 6 ? 7 : 0);
        const ColorImagePtr made(result);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(recorder_.calls.size(), 6u);
        EXPECT_EQ(result->planes[2].rows[1][4], 2.0f * source->planes[2].rows[1][4]);
    }
}

TEST_P(ApplyFunctionTest, ARunWithoutACallSucceeds) {
    recorder_.act = [](const Call &, float *) { return 7; };
    for (const auto &[width, height] : {std::pair{5u, 0u}, std::pair{0u, 5u}}) {
        const ColorImagePtr source(KoColorImageNew(width, height, RGB));
        ColorImage *result = nullptr;
        expect_success([&] { return run(source.get(), &result); });
        const ColorImagePtr made(result);
        EXPECT_NE(result, nullptr);
    }
    EXPECT_TRUE(recorder_.calls.empty());
}

TEST_P(ApplyFunctionTest, ASourceOfOnePlaneIsRefusedAndItsNewResultStays) {
    const ColorImagePtr source(KoColorImageNew(5, 3, GRAY));
    ColorImage *result = nullptr;
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return run(source.get(), &result); });
    const ColorImagePtr made(result);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->color_space, GRAY);
    EXPECT_EQ(result->planes[0].width, 5u);
    EXPECT_TRUE(recorder_.calls.empty());
}

TEST_P(ApplyFunctionTest, AResultOfOnePlaneOrAnotherHeightIsRefused) {
    const ColorImagePtr source = numbered(5, 3);
    for (const auto &[height, space] : {std::pair{3u, GRAY}, std::pair{2u, RGB}, std::pair{4u, RGB}}) {
        const ColorImagePtr given = numbered(5, height, space, -5000.0f);
        const std::vector<float> before = all_pixels(given.get());
        ColorImage *result = given.get();
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return run(source.get(), &result); });
        EXPECT_EQ(result, given.get());
        EXPECT_EQ(all_pixels(result), before);
    }
    EXPECT_TRUE(recorder_.calls.empty());
}

class ApplyFunctionTo1 : public ApplyFunctionTest {};
class ApplyFunctionTo2 : public ApplyFunctionTest {
  protected:
    int32_t run2(ColorImage *first, ColorImage *second, ColorImage **result) {
        return KoApplyFunctionTo2ColorImage(record2, &recorder_, first, second, result);
    }
};
INSTANTIATE_TEST_SUITE_P(Sources, ApplyFunctionTo1, testing::Values(false));
INSTANTIATE_TEST_SUITE_P(Sources, ApplyFunctionTo2, testing::Values(true));

TEST_P(ApplyFunctionTo1, AResultOfAnotherWidthIsRefused) {
    const ColorImagePtr source = numbered(5, 3);
    for (const uint32_t width : {4u, 6u}) {
        const ColorImagePtr given = numbered(width, 3);
        ColorImage *result = given.get();
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return run(source.get(), &result); });
    }
    EXPECT_TRUE(recorder_.calls.empty());
}

TEST_P(ApplyFunctionTo2, EachSourceHasItsOwnPackets) {
    const ColorImagePtr first = numbered(5, 3, YIQ);
    const ColorImagePtr second = numbered(5, 3, RGB, 0.25f);
    for (const auto &[function, plain] : {std::pair<KoColorFunction2, float (*)(float, float)>{
                                              KoFunctionDiffColorImage, [](float a, float b) { return std::fabs(a - b); }},
                                          {KoFunctionSubstractColorImage, [](float a, float b) { return a - b; }}}) {
        ColorImage *result = nullptr;
        expect_success(
            [&, run = function] { return KoApplyFunctionTo2ColorImage(run, nullptr, second.get(), first.get(), &result); });
        const ColorImagePtr made(result);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(result->color_space, RGB) << "the first source's";
        EXPECT_EQ(all_pixels(result), std::vector<float>(45, plain(0.25f, 1.0f)));
        expect_zero_padding(result);
    }
    ColorImage *result = nullptr;
    expect_success([&] { return run2(first.get(), second.get(), &result); });
    const ColorImagePtr made(result);
    ASSERT_EQ(recorder_.calls.size(), 9u);
    const std::array<float, 8> first_end = {205, 1205, 2205, 0, 0, 0, 0, 0};
    const std::array<float, 8> second_end = {204.25f, 1204.25f, 2204.25f, 0, 0, 0, 0, 0};
    EXPECT_EQ(recorder_.calls.back().first, first_end);
    EXPECT_EQ(recorder_.calls.back().second, second_end);
}

TEST_P(ApplyFunctionTo2, ASecondSourceOfAnotherHeightIsAccepted) {
    const ColorImagePtr first = numbered(5, 3);
    const ColorImagePtr second = numbered(5, 9, RGB, 0.0f);
    ColorImage *result = nullptr;
    expect_success([&] {
        return KoApplyFunctionTo2ColorImage(KoFunctionSubstractColorImage, nullptr, first.get(), second.get(), &result);
    });
    const ColorImagePtr made(result);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->planes[0].height, 3u);
    EXPECT_EQ(all_pixels(result), std::vector<float>(45, 1.0f));
}

TEST_P(ApplyFunctionTo2, AWiderResultIsAccepted) {
    const ColorImagePtr first = numbered(5, 3);
    const ColorImagePtr second = numbered(5, 3, RGB, 0.0f);
    const ColorImagePtr given = make_color_image(14, 3, RGB, [](uint32_t, uint64_t, uint64_t) { return -9.0f; });
    ColorImage *result = given.get();
    expect_success([&] {
        return KoApplyFunctionTo2ColorImage(KoFunctionSubstractColorImage, nullptr, first.get(), second.get(), &result);
    });
    const ColorImagePtr expected =
        make_color_image(14, 3, RGB, [](uint32_t, uint64_t x, uint64_t) { return x < 5 ? 1.0f : -9.0f; });
    EXPECT_EQ(all_pixels(given.get()), all_pixels(expected.get()));
    expect_zero_padding(given.get());
}

TEST_P(ApplyFunctionTo2, ASecondSourceOfAnotherWidthOrDepthIsRefused) {
    const ColorImagePtr first = numbered(5, 3);
    const ColorImagePtr refused[] = {numbered(4, 3), numbered(6, 3), numbered(5, 3, GRAY)};
    for (const ColorImagePtr &second : refused) {
        ColorImage *result = nullptr;
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return run2(first.get(), second.get(), &result); });
        const ColorImagePtr made(result);
        EXPECT_NE(result, nullptr) << "a result that was made stays with the caller";
    }
    EXPECT_TRUE(recorder_.calls.empty());
}

} // namespace
