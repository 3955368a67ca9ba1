// ColorImage: life, planes, iterators, conversion between spaces, reduction to one plane, bytes and floats in and out.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "awkward_floats.h"
#include "files.h"
#include "guards.h"
#include "library_test.h"
#include "pictures.h"
#include "same_floats.h"
#include "turn_sizes.h"
#include "warnings.h"

namespace {

using ko_test::awkward_floats;
using ko_test::ColorImagePtr;
using ko_test::expect_error;
using ko_test::expect_status;
using ko_test::expect_success;
using ko_test::expect_warning;
using ko_test::GuardedBytes;
using ko_test::infinity;
using ko_test::make_color_image;
using ko_test::make_image;
using ko_test::noise_bytes;
using ko_test::not_a_number;
using ko_test::padding_is_zero;
using ko_test::pixels;
using ko_test::PlaneGuard;
using ko_test::RealImagePtr;
using ko_test::same_float;
using ko_test::same_floats;
using ko_test::turn_sizes;
using ko_test::turning_floats;
using ko_test::turning_noise;
using ko_test::TurnSize;

constexpr int32_t RGB = KO_COLORSPACE_RGB;
constexpr int32_t YIQ = KO_COLORSPACE_YIQ;
constexpr int32_t GRAY = KO_COLORSPACE_GRAY;
constexpr uint32_t widths[] = {1, 2, 3, 4, 5, 7, 8, 9, 16, 33};

class ColorImageTest : public ko_test::LibraryTest {
  protected:
    static ColorImagePtr uniform(uint32_t width, uint32_t height, int32_t space, std::vector<float> channels) {
        return make_color_image(width, height, space, [&](uint32_t c, uint64_t, uint64_t) { return channels.at(c); });
    }

    // Channel c of the pixel at (x, y) is 10000 c + 100 y + x.
    static ColorImagePtr numbered(uint32_t width, uint32_t height, int32_t space = RGB) {
        return make_color_image(width, height, space,
                                [](uint32_t c, uint64_t x, uint64_t y) { return static_cast<float>(10000 * c + 100 * y + x); });
    }

    static ColorImagePtr awkward(uint32_t width, uint32_t height, int32_t space, uint32_t seed) {
        const std::vector<float> values = awkward_floats(uint64_t{3} * width * height, seed);
        return make_color_image(width, height, space,
                                [&](uint32_t c, uint64_t x, uint64_t y) { return values[(c * height + y) * width + x]; });
    }

    static ColorImagePtr turning(uint64_t width, uint64_t height, int32_t space, uint32_t seed) {
        const std::vector<float> values = turning_noise(3 * width * height, seed);
        return make_color_image(static_cast<uint32_t>(width), static_cast<uint32_t>(height), space,
                                [&](uint32_t c, uint64_t x, uint64_t y) { return values[(c * height + y) * width + x]; });
    }

    // The pixels of all planes, plane after plane.
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
            EXPECT_TRUE(padding_is_zero(&image->planes[c])) << "plane " << c;
        }
    }

    static std::vector<PlaneGuard> guards(const ColorImage *image) {
        std::vector<PlaneGuard> all;
        for (uint64_t c = 0; c < image->depth; ++c) {
            all.emplace_back(&image->planes[c]);
        }
        return all;
    }

    static bool hold(const std::vector<PlaneGuard> &guards) {
        return std::all_of(guards.begin(), guards.end(), [](const PlaneGuard &guard) { return guard.holds(); });
    }

    // An image whose planes were freed: it has a depth of 0, neither one nor three.
    static ColorImagePtr emptied() {
        ColorImagePtr image(KoColorImageNew(4, 3, RGB));
        KoColorImageFree(image.get());
        return image;
    }
};

// Life

TEST_F(ColorImageTest, HasThePlanesOfItsSpace) {
    for (const int32_t space : {RGB, YIQ, GRAY, 7}) {
        const ColorImagePtr image(KoColorImageNew(5, 3, space));
        ASSERT_NE(image, nullptr);
        EXPECT_EQ(image->depth, space == RGB || space == YIQ ? 3u : 1u);
        EXPECT_EQ(image->color_space, space);
        EXPECT_EQ(KoColorImageGetDepth(image.get()), image->depth);
        EXPECT_EQ(KoColorImageGetColorSpace(image.get()), space);
        EXPECT_EQ(KoColorImageGetWidth(image.get()), 5u);
        EXPECT_EQ(KoColorImageGetHeight(image.get()), 3u);
        EXPECT_EQ(KoColorImageGetSize(image.get()), 15u);
        for (uint32_t c = 0; c < image->depth; ++c) {
            EXPECT_EQ(KoColorImageGetImage(image.get(), c), &image->planes[c]);
            EXPECT_EQ(image->planes[c].width, 5u);
            EXPECT_EQ(image->planes[c].height, 3u);
        }
        expect_zero_padding(image.get());
    }
}

TEST_F(ColorImageTest, GivesNoPlaneBeyondItsDepthAndReportsNothing) {
    const ColorImagePtr color(KoColorImageNew(4, 4, RGB));
    const ColorImagePtr gray(KoColorImageNew(4, 4, GRAY));
    EXPECT_EQ(KoColorImageGetImage(color.get(), 3), nullptr);
    EXPECT_EQ(KoColorImageGetImage(color.get(), UINT32_MAX), nullptr);
    EXPECT_EQ(KoColorImageGetImage(gray.get(), 1), nullptr);
    EXPECT_EQ(KoColorImageGetImage(nullptr, 0), nullptr);
    expect_status(KO_OK, "");
}

TEST_F(ColorImageTest, InitFillsTheCallersRecordAndFreeEmptiesIt) {
    ColorImage image;
    std::memset(&image, 0x5A, sizeof image);
    expect_success([&] { return KoColorImageInit(&image, 6, 2, YIQ); });
    EXPECT_EQ(image.depth, 3u);
    EXPECT_EQ(image.color_space, YIQ);
    ASSERT_NE(image.planes, nullptr);
    for (int time = 0; time < 2; ++time) {
        expect_success([&] { return KoColorImageFree(&image); });
        EXPECT_EQ(image.depth, 0u);
        EXPECT_EQ(image.planes, nullptr);
        EXPECT_EQ(KoColorImageGetWidth(&image), 0u);
        EXPECT_EQ(KoColorImageGetHeight(&image), 0u);
        EXPECT_EQ(KoColorImageGetSize(&image), 0u);
        EXPECT_EQ(KoColorImageGetImage(&image, 0), nullptr);
    }
}

TEST_F(ColorImageTest, FreeAndDeleteAcceptNull) {
    expect_success([] { return KoColorImageFree(nullptr); });
    expect_success([] { return KoColorImageDelete(nullptr); });
    expect_success([] { return KoColorImageDelete(KoColorImageNew(2, 2, GRAY)); });
}

TEST_F(ColorImageTest, APlaneThatCannotBeMadeFailsTheImage) {
    ko_test::StderrCapture swallowed;
    EXPECT_EQ(KoColorImageNew(16380, 16384, RGB), nullptr);
    expect_status(KO_ERR_CREATE_OBJECT, "Cannot create object \"ColorImage\"\n-> Cannot allocate -2147483520 bytes");
    KoStatusClear();
    ColorImage image;
    std::memset(&image, 0x5A, sizeof image);
    EXPECT_EQ(KoColorImageInit(&image, 16380, 16384, RGB), KO_ERR_ALLOC);
    expect_status(KO_ERR_ALLOC, "Cannot allocate -2147483520 bytes");
    EXPECT_EQ(KoColorImageFree(&image), KO_OK);
}

// Operations plane by plane

TEST_F(ColorImageTest, ClearSetsAllPlanesToZero) {
    const ColorImagePtr image = uniform(5, 3, RGB, {1, 2, 3});
    KoColorImageClear(image.get());
    EXPECT_EQ(all_pixels(image.get()), std::vector<float>(45, 0.0f));
    expect_zero_padding(image.get());
}

TEST_F(ColorImageTest, FillTakesAValueAPlaneAndZeroForTheRest) {
    const std::vector<float> values = {7, 8, 9, 10};
    for (const uint64_t count : {0u, 1u, 2u, 3u, 4u}) {
        const ColorImagePtr image = uniform(5, 3, RGB, {1, 2, 3});
        KoColorImageFill(image.get(), values.data(), count);
        for (uint64_t c = 0; c < 3; ++c) {
            EXPECT_EQ(pixels(&image->planes[c]), std::vector<float>(15, c < count ? values[c] : 0.0f)) << count;
        }
        expect_zero_padding(image.get());
    }
}

class ColorImagePrint : public ColorImageTest {
  protected:
    static std::string printed(const ColorImage *image, const char *title) {
        const ko_test::TemporaryFile file("table.txt");
        FILE *stream = std::fopen(file.c_str(), "w");
        EXPECT_NE(stream, nullptr);
        KoColorImagePrint(image, stream, 5, 1, title);
        std::fclose(stream);
        return ko_test::read_text(file.path());
    }

    static std::string table(const std::string &value) {
        return "    #|    1|\n-----+-----|\n    1|" + value + "|\n-----+-----|\n";
    }
};

TEST_F(ColorImagePrint, WritesATableAPlaneWithTheirNumbersInTheTitles) {
    const ColorImagePtr image = uniform(1, 1, RGB, {1, 2, 3});
    EXPECT_EQ(printed(image.get(), "Tile"),
              "Tile-0\n" + table("  1.0") + "Tile-1\n" + table("  2.0") + "Tile-2\n" + table("  3.0"));
    EXPECT_EQ(printed(image.get(), "%d"), "%d-0\n" + table("  1.0") + "%d-1\n" + table("  2.0") + "%d-2\n" + table("  3.0"));
    EXPECT_EQ(printed(uniform(1, 1, GRAY, {4}).get(), ""), "-0\n" + table("  4.0"));
}

TEST_F(ColorImagePrint, TakesATitleOfAnyLength) {
    const std::string title(5000, 'x');
    EXPECT_EQ(printed(uniform(1, 1, GRAY, {4}).get(), title.c_str()), title + "-0\n" + table("  4.0"));
}

TEST_F(ColorImagePrint, WritesNoTitleForNull) {
    EXPECT_EQ(printed(uniform(1, 1, RGB, {1, 2, 3}).get(), nullptr), table("  1.0") + table("  2.0") + table("  3.0"));
}

TEST_F(ColorImageTest, TransposeExchangesLinesAndColumnsOfAllPlanes) {
    for (const int32_t space : {RGB, YIQ, GRAY}) {
        const ColorImagePtr image = numbered(5, 3, space);
        const ColorImagePtr expected =
            make_color_image(3, 5, space, [&](uint32_t c, uint64_t x, uint64_t y) { return image->planes[c].rows[x][y]; });
        ColorImage *result = nullptr;
        expect_success([&] { return KoColorImageTranspose(image.get(), &result); });
        const ColorImagePtr made(result);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(result->color_space, space);
        EXPECT_EQ(all_pixels(result), all_pixels(expected.get()));
        expect_zero_padding(result);
        KoColorImageClear(result);
        expect_success([&] { return KoColorImageTranspose(image.get(), &result); });
        EXPECT_EQ(result, made.get());
        EXPECT_EQ(all_pixels(result), all_pixels(expected.get()));
    }
}

TEST_F(ColorImageTest, TransposeStopsAtThePlaneThatFails) {
    const ColorImagePtr image = numbered(5, 3);
    const ColorImagePtr given = uniform(3, 5, RGB, {-1, -1, -1});
    KoRealImageFree(&given->planes[1]);
    KoRealImageInit(&given->planes[1], 3, 4);
    KoRealImageFill(&given->planes[1], -1.0f);
    ColorImage *result = given.get();
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return KoColorImageTranspose(image.get(), &result); });
    EXPECT_EQ(result, given.get());
    EXPECT_EQ(KoRealImageGetPixel(&given->planes[0], 2, 4), 204.0f);
    EXPECT_EQ(pixels(&given->planes[1]), std::vector<float>(12, -1.0f));
    EXPECT_EQ(pixels(&given->planes[2]), std::vector<float>(15, -1.0f));
}

// Iterators

class ColorIterator : public ColorImageTest {
  protected:
    // Expects the walk of a rectangle on all planes in step, from before its first line.
    static void expect_walk(ColorImageLineIterator *iterator, const ColorImage *image, uint64_t x, uint64_t y, uint64_t width,
                            uint64_t height) {
        EXPECT_EQ(iterator->image, image);
        EXPECT_EQ(KoColorImageLineIteratorGetWidth(iterator), width);
        EXPECT_EQ(KoColorImageLineIteratorGetHeight(iterator), height);
        for (uint64_t i = 0; i < std::max<uint64_t>(height, 1); ++i) {
            float untouched = 0.0f;
            float *red = nullptr;
            float *green = &untouched;
            float *blue = &untouched;
            ASSERT_EQ(KoColorImageLineIteratorHasNext(iterator), 1);
            KoColorImageLineIteratorNext(iterator, &red, &green, &blue);
            const bool color = image->depth == 3;
            EXPECT_EQ(red, image->planes[0].rows[y + i] + x);
            EXPECT_EQ(green, color ? image->planes[1].rows[y + i] + x : &untouched);
            EXPECT_EQ(blue, color ? image->planes[2].rows[y + i] + x : &untouched);
            EXPECT_EQ(KoColorImageLineIteratorRedLineEnd(iterator), red + width);
        }
        EXPECT_EQ(KoColorImageLineIteratorHasNext(iterator), 0);
    }
};

TEST_F(ColorIterator, WalksAllPlanesInStep) {
    for (const int32_t space : {RGB, YIQ, GRAY}) {
        const ColorImagePtr image = numbered(7, 5, space);
        ColorImageLineIterator iterator;
        expect_success([&] { return KoColorImageLineIteratorInit(&iterator, image.get()); });
        expect_walk(&iterator, image.get(), 0, 0, 7, 5);
        for (const uint64_t height : {3u, 1u, 0u}) { // a rectangle of height 0 has one line
            expect_success([&] { return KoColorImageLineIteratorInitSubImage(&iterator, image.get(), 2, 1, 4, height); });
            expect_walk(&iterator, image.get(), 2, 1, 4, height);
        }
        expect_success([&] { return KoColorImageLineIteratorFree(&iterator); });
    }
}

TEST_F(ColorIterator, IsMadeOnTheHeapToo) {
    const ColorImagePtr image = numbered(7, 5);
    ColorImageLineIterator *whole = KoColorImageLineIteratorNew(image.get());
    ColorImageLineIterator *part = KoColorImageLineIteratorNewSubImage(image.get(), 1, 2, 3, 2);
    ASSERT_NE(whole, nullptr);
    ASSERT_NE(part, nullptr);
    expect_walk(whole, image.get(), 0, 0, 7, 5);
    expect_walk(part, image.get(), 1, 2, 3, 2);
    expect_success([&] { return KoColorImageLineIteratorDelete(whole); });
    expect_success([&] { return KoColorImageLineIteratorDelete(part); });
    expect_success([] { return KoColorImageLineIteratorDelete(nullptr); });
}

TEST_F(ColorIterator, WalksAnImageWithoutLinesAsNothing) {
    const ColorImagePtr image(KoColorImageNew(7, 0, RGB));
    ColorImageLineIterator iterator;
    expect_success([&] { return KoColorImageLineIteratorInit(&iterator, image.get()); });
    EXPECT_EQ(KoColorImageLineIteratorHasNext(&iterator), 0);
}

// Conversion between spaces

class ColorConversion : public ColorImageTest {
  protected:
    // The sum is formed from 0 in the order of the channels, in single precision.
    static ColorImagePtr plain(const ColorImage *source, int32_t space) {
        const float *matrix = KoColorSpaceGetConversionMatrix(source->color_space, space);
        const auto width = static_cast<uint32_t>(source->planes[0].width);
        const auto height = static_cast<uint32_t>(source->planes[0].height);
        return make_color_image(width, height, space, [&](uint32_t c, uint64_t x, uint64_t y) {
            float sum = 0.0f;
            for (uint32_t k = 0; k < 3; ++k) {
                sum += matrix[3 * c + k] * source->planes[k].rows[y][x];
            }
            return sum;
        });
    }

    static ColorImagePtr converted(const ColorImage *source, int32_t space) {
        ColorImage *result = nullptr;
        expect_success([&] {
            result = KoColorImageNewFromColorImage(space, source);
            return KO_OK;
        });
        return ColorImagePtr(result);
    }

    static void expect_refused(ColorImage *image, const ColorImage *source) {
        const std::vector<float> before = all_pixels(image);
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return KoColorImageFromColorImage(image, source); });
        EXPECT_TRUE(same_floats(before, all_pixels(image)));
    }
};

TEST_F(ColorConversion, EqualsThePlainSumsBitForBit) {
    for (const uint32_t width : widths) {
        for (const int32_t from : {RGB, YIQ}) {
            for (const int32_t to : {RGB, YIQ}) {
                const ColorImagePtr source = awkward(width, 3, from, width);
                const ColorImagePtr result = converted(source.get(), to);
                ASSERT_NE(result, nullptr);
                EXPECT_EQ(result->color_space, to);
                EXPECT_TRUE(same_floats(all_pixels(plain(source.get(), to).get()), all_pixels(result.get())))
                    << width << ": " << from << " to " << to;
                expect_zero_padding(result.get());
            }
        }
    }
}

TEST_F(ColorConversion, SumsStartFromAZeroWithoutASign) {
    const ColorImagePtr source = uniform(3, 1, RGB, {-0.0f, -0.0f, -0.0f});
    const ColorImagePtr result = converted(source.get(), RGB);
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(same_floats(std::vector<float>(9, 0.0f), all_pixels(result.get())));
}

TEST_F(ColorConversion, OfGrayThereAndBack) {
    const ColorImagePtr source = uniform(3, 2, RGB, {100, 100, 100});
    const ColorImagePtr yiq = converted(source.get(), YIQ);
    ASSERT_NE(yiq, nullptr);
    EXPECT_NEAR(yiq->planes[0].rows[1][2], 100.0f, 1e-4);
    EXPECT_NEAR(yiq->planes[1].rows[1][2], 0.0f, 1e-4);
    EXPECT_NEAR(yiq->planes[2].rows[1][2], 0.0f, 1e-4);
    const ColorImagePtr back = converted(yiq.get(), RGB);
    ASSERT_NE(back, nullptr);
    for (const float value : all_pixels(back.get())) {
        EXPECT_NEAR(value, 100.0f, 1e-3);
    }
}

TEST_F(ColorConversion, HasNoLimitsAndKeepsNegatives) {
    const ColorImagePtr yiq = converted(uniform(1, 1, RGB, {0, 255, 255}).get(), YIQ);
    ASSERT_NE(yiq, nullptr);
    EXPECT_LT(yiq->planes[1].rows[0][0], -150.0f);
    const ColorImagePtr rgb = converted(uniform(1, 1, YIQ, {255, 200, 200}).get(), RGB);
    ASSERT_NE(rgb, nullptr);
    EXPECT_GT(rgb->planes[0].rows[0][0], 500.0f);
}

// No test for equal spaces: the matrix of a space to itself is all ones.
TEST_F(ColorConversion, OfASpaceToItselfSumsTheChannels) {
    for (const int32_t space : {RGB, YIQ}) {
        const ColorImagePtr image = uniform(5, 2, space, {10, 20, 30});
        const ColorImagePtr result = converted(image.get(), space);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(all_pixels(result.get()), std::vector<float>(30, 60.0f));
    }
}

TEST_F(ColorConversion, WorksInPlace) {
    for (const uint32_t width : widths) {
        const ColorImagePtr image = awkward(width, 3, RGB, 50 + width);
        const ColorImagePtr expected = plain(image.get(), RGB);
        expect_success([&] { return KoColorImageFromColorImage(image.get(), image.get()); });
        EXPECT_TRUE(same_floats(all_pixels(expected.get()), all_pixels(image.get())));
        expect_zero_padding(image.get());
    }
}

TEST_F(ColorConversion, EqualsThePlainSumsAtEverySize) {
    uint32_t seed = 0;
    for (const TurnSize &size : turn_sizes()) {
        for (const auto &[from, to] : {std::pair{RGB, YIQ}, std::pair{YIQ, RGB}, std::pair{RGB, RGB}}) {
            SCOPED_TRACE(testing::Message() << size.width << " by " << size.height << ", " << from << " to " << to);
            const ColorImagePtr source = turning(size.width, size.height, from, ++seed);
            const std::vector<float> before = all_pixels(source.get());
            const std::vector<float> expected = all_pixels(plain(source.get(), to).get());
            const bool in_place = from == to;
            const ColorImagePtr made(
                KoColorImageNew(static_cast<uint32_t>(size.width), static_cast<uint32_t>(size.height), to));
            ColorImage *target = in_place ? source.get() : made.get();
            const std::vector<PlaneGuard> surround = guards(target);
            ASSERT_EQ(KoColorImageFromColorImage(target, source.get()), KO_OK);
            ASSERT_TRUE(same_floats(expected, all_pixels(target)));
            ASSERT_TRUE(in_place || same_floats(before, all_pixels(source.get()))) << "the source was written";
            ASSERT_TRUE(hold(surround));
        }
    }
}

TEST_F(ColorConversion, WritesTheTargetInItsOwnSpace) {
    const ColorImagePtr source = awkward(5, 3, RGB, 99);
    const ColorImagePtr target = uniform(5, 3, YIQ, {1, 2, 3});
    expect_success([&] { return KoColorImageFromColorImage(target.get(), source.get()); });
    EXPECT_TRUE(same_floats(all_pixels(plain(source.get(), YIQ).get()), all_pixels(target.get())));
    EXPECT_EQ(target->color_space, YIQ);
}

TEST_F(ColorConversion, NeedsThreePlanesOfOneSize) {
    const ColorImagePtr source = uniform(5, 3, RGB, {1, 2, 3});
    const ColorImagePtr gray = uniform(5, 3, GRAY, {1});
    expect_refused(gray.get(), source.get());
    expect_refused(source.get(), gray.get());
    expect_refused(gray.get(), gray.get());
    expect_refused(source.get(), emptied().get());
    expect_refused(uniform(4, 3, YIQ, {1, 2, 3}).get(), source.get());
    expect_refused(uniform(6, 3, YIQ, {1, 2, 3}).get(), source.get());
    expect_refused(uniform(5, 2, YIQ, {1, 2, 3}).get(), source.get());
    expect_refused(uniform(5, 4, YIQ, {1, 2, 3}).get(), source.get());
}

TEST_F(ColorConversion, NewFromAnImageOfOnePlaneGivesNullAndTheStatusOfTheRefusal) {
    for (const auto &[from, to] : {std::pair{GRAY, YIQ}, std::pair{RGB, GRAY}, std::pair{GRAY, GRAY}}) {
        const ColorImagePtr source(KoColorImageNew(5, 3, from));
        KoStatusClear();
        EXPECT_EQ(KoColorImageNewFromColorImage(to, source.get()), nullptr);
        expect_status(KO_ERR_INVALID_ARGUMENT, "[ERROR] Invalid argument");
    }
}

TEST_F(ColorConversion, NewFromAnImageWithoutPlanesGivesNullWithoutAStatus) {
    const ColorImagePtr source = emptied();
    EXPECT_EQ(KoColorImageNewFromColorImage(YIQ, source.get()), nullptr);
    expect_status(KO_OK, "");
}

// Reduction to one plane

class Reduction : public ColorImageTest {
  protected:
    static RealImagePtr reduced(const ColorImage *image, const float *weights) {
        RealImage *result = nullptr;
        expect_success([&] { return KoColorImageToRealImage(image, &result, weights); });
        return RealImagePtr(result);
    }
};

TEST_F(Reduction, EqualsThePlainSumBitForBit) {
    constexpr float gray[] = {0.299f, 0.587f, 0.114f};
    constexpr float chosen[] = {-1.5f, 0.25f, 3.0f};
    for (const uint32_t width : widths) {
        for (const float *weights : {static_cast<const float *>(nullptr), chosen}) {
            const float *used = weights == nullptr ? gray : weights;
            for (const int32_t space : {RGB, YIQ}) { // the image's own space is not looked at
                const ColorImagePtr image = awkward(width, 3, space, 70 + width);
                const RealImagePtr result = reduced(image.get(), weights);
                ASSERT_NE(result, nullptr);
                const RealImagePtr expected = make_image(width, 3, [&](uint64_t x, uint64_t y) {
                    const float first = image->planes[0].rows[y][x] * used[0];
                    const float second = image->planes[1].rows[y][x] * used[1];
                    const float third = image->planes[2].rows[y][x] * used[2];
                    const float sum = (first + second) + third;
                    return sum > 0.0f ? sum : 0.0f;
                });
                EXPECT_TRUE(same_floats(pixels(expected.get()), pixels(result.get()))) << width;
                EXPECT_TRUE(padding_is_zero(result.get()));
            }
        }
    }
}

TEST_F(Reduction, EqualsThePlainSumAtEverySize) {
    constexpr float weights[] = {0.299f, 0.587f, 0.114f};
    uint32_t seed = 0;
    for (const TurnSize &size : turn_sizes()) {
        SCOPED_TRACE(testing::Message() << size.width << " by " << size.height);
        const ColorImagePtr image = turning(size.width, size.height, RGB, ++seed);
        const RealImagePtr result = reduced(image.get(), nullptr);
        const std::vector<float> red = pixels(&image->planes[0]);
        const std::vector<float> green = pixels(&image->planes[1]);
        const std::vector<float> blue = pixels(&image->planes[2]);
        std::vector<float> expected;
        for (size_t i = 0; i < red.size(); ++i) {
            const float sum = (red[i] * weights[0] + green[i] * weights[1]) + blue[i] * weights[2];
            expected.push_back(sum > 0.0f ? sum : 0.0f);
        }
        ASSERT_TRUE(same_floats(expected, pixels(result.get())));
        ASSERT_TRUE(padding_is_zero(result.get()));
    }
}

TEST_F(Reduction, IsLimitedBelowAndNotAbove) {
    const auto pixel = [](std::vector<float> channels, std::vector<float> weights) {
        const ColorImagePtr image = uniform(1, 1, RGB, std::move(channels));
        return reduced(image.get(), weights.empty() ? nullptr : weights.data())->rows[0][0];
    };
    EXPECT_NEAR(pixel({255, 255, 255}, {}), 255.0f, 1e-3);
    EXPECT_TRUE(same_float(pixel({255, 255, 255}, {-1, 0, 0}), 0.0f));
    EXPECT_TRUE(same_float(pixel({-0.0f, -0.0f, -0.0f}, {}), 0.0f));
    EXPECT_TRUE(same_float(pixel({not_a_number, 100, 100}, {}), 0.0f));
    EXPECT_TRUE(same_float(pixel({infinity, -infinity, 100}, {}), 0.0f));
    EXPECT_EQ(pixel({255, 255, 255}, {10, 10, 10}), 7650.0f);
    EXPECT_EQ(pixel({infinity, 0, 0}, {}), infinity);
}

TEST_F(Reduction, AlwaysMakesANewImage) {
    const ColorImagePtr image = uniform(5, 3, RGB, {10, 10, 10});
    const RealImagePtr before = make_image(5, 3, std::vector<float>(15, -1.0f));
    RealImage *result = before.get();
    expect_success([&] { return KoColorImageToRealImage(image.get(), &result, nullptr); });
    ASSERT_NE(result, before.get());
    const RealImagePtr made(result);
    EXPECT_EQ(result->width, 5u);
    EXPECT_EQ(result->height, 3u);
    EXPECT_EQ(pixels(before.get()), std::vector<float>(15, -1.0f));
}

TEST_F(Reduction, NeedsThreePlanesAndAPlaceForTheResult) {
    const ColorImagePtr color = uniform(5, 3, RGB, {10, 10, 10});
    const ColorImagePtr gray = uniform(5, 3, GRAY, {10});
    const ColorImagePtr none = emptied();
    RealImage *result = nullptr;
    const auto expect_refused = [](const ColorImage *image, RealImage **place) {
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&] { return KoColorImageToRealImage(image, place, nullptr); });
    };
    expect_refused(gray.get(), &result);
    expect_refused(none.get(), &result);
    expect_refused(color.get(), nullptr);
    expect_refused(gray.get(), nullptr);
    EXPECT_EQ(result, nullptr);
}

// Bytes in and out

// Where a byte stands in an array of lines, by its layout.
size_t byte_index(int32_t layout, size_t width, size_t lines, size_t c, size_t x, size_t y) {
    switch (layout) {
    case KO_BYTE_LAYOUT_INTERLEAVED:
        return (y * width + x) * 3 + c;
    case KO_BYTE_LAYOUT_LINE_INTERLEAVED:
        return (y * 3 + c) * width + x;
    default:
        return (c * lines + y) * width + x;
    }
}

class ColorBytes : public ColorImageTest, public testing::WithParamInterface<int32_t> {
  protected:
    struct Lines {
        uint32_t start, count;
    };
    static constexpr Lines ranges[] = {{0, 5}, {0, 1}, {1, 3}, {4, 1}, {2, 2}};
    static constexpr uint32_t height = 5;
};

INSTANTIATE_TEST_SUITE_P(Layouts, ColorBytes,
                         testing::Values(KO_BYTE_LAYOUT_INTERLEAVED, KO_BYTE_LAYOUT_LINE_INTERLEAVED, KO_BYTE_LAYOUT_PLANAR));

TEST_P(ColorBytes, ComeInWithTheirValueIntoTheLinesNamed) {
    for (const int32_t space : {RGB, YIQ}) { // no conversion of colours
        for (const uint32_t width : widths) {
            for (const Lines &lines : ranges) {
                const std::vector<uint8_t> bytes = noise_bytes(uint64_t{3} * width * lines.count, width);
                const ColorImagePtr image = uniform(width, height, space, {-1, -2, -3});
                expect_success(
                    [&] { return KoColorImageFromByteArray(image.get(), bytes.data(), lines.start, lines.count, GetParam()); });
                const ColorImagePtr expected = make_color_image(width, height, space, [&](uint32_t c, uint64_t x, uint64_t y) {
                    if (y < lines.start || y >= lines.start + lines.count) {
                        return -1.0f - static_cast<float>(c);
                    }
                    return static_cast<float>(bytes[byte_index(GetParam(), width, lines.count, c, x, y - lines.start)]);
                });
                EXPECT_EQ(all_pixels(image.get()), all_pixels(expected.get())) << width << ", " << lines.start;
                expect_zero_padding(image.get());
            }
        }
    }
}

TEST_P(ColorBytes, GoOutFromTheLinesNamed) {
    for (const uint32_t width : widths) {
        for (const Lines &lines : ranges) {
            const ColorImagePtr image = make_color_image(width, height, RGB, [](uint32_t c, uint64_t x, uint64_t y) {
                return static_cast<float>((80 * c + 16 * y + x) % 256) + 0.875f;
            });
            std::vector<uint8_t> expected(uint64_t{3} * width * lines.count);
            for (uint32_t c = 0; c < 3; ++c) {
                for (uint32_t y = 0; y < lines.count; ++y) {
                    for (uint32_t x = 0; x < width; ++x) {
                        expected[byte_index(GetParam(), width, lines.count, c, x, y)] =
                            static_cast<uint8_t>((80 * c + 16 * (y + lines.start) + x) % 256);
                    }
                }
            }
            std::vector<uint8_t> bytes(expected.size(), 77);
            expect_success(
                [&] { return KoColorImageToByteArray(image.get(), bytes.data(), lines.start, lines.count, GetParam()); });
            EXPECT_EQ(bytes, expected) << width << ", " << lines.start;
        }
    }
}

TEST_P(ColorBytes, OfAPictureMakeANewImage) {
    const std::vector<uint8_t> bytes = noise_bytes(3 * 7 * 5, 1);
    const ColorImagePtr image(KoColorImageNewFromByteArray(7, 5, RGB, bytes.data(), GetParam()));
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->color_space, RGB);
    EXPECT_EQ(image->planes[2].rows[4][6], static_cast<float>(bytes[byte_index(GetParam(), 7, 5, 2, 6, 4)]));
    std::vector<uint8_t> back(bytes.size());
    expect_success([&] { return KoColorImageToByteArray(image.get(), back.data(), 0, 5, GetParam()); });
    EXPECT_EQ(back, bytes);
}

// The lines are counted as everywhere, but the channels of a block are placed by the count as it is given.
TEST_P(ColorBytes, OfZeroLinesAreOneLine) {
    const std::vector<uint8_t> bytes = noise_bytes(3 * 5, 2);
    const ColorImagePtr image = uniform(5, 3, RGB, {-1, -1, -1});
    expect_success([&] { return KoColorImageFromByteArray(image.get(), bytes.data(), 1, 0, GetParam()); });
    for (uint64_t c = 0; c < 3; ++c) {
        for (uint64_t x = 0; x < 5; ++x) {
            EXPECT_EQ(image->planes[c].rows[0][x], -1.0f);
            EXPECT_EQ(image->planes[c].rows[1][x], static_cast<float>(bytes[byte_index(GetParam(), 5, 0, c, x, 0)]));
            EXPECT_EQ(image->planes[c].rows[2][x], -1.0f);
        }
    }
}

TEST_P(ColorBytes, OfImagesWithoutLinesAreNone) {
    uint8_t bytes[30] = {};
    const ColorImagePtr image(KoColorImageNewFromByteArray(10, 0, RGB, bytes, GetParam()));
    ASSERT_NE(image, nullptr);
    expect_success([&] { return KoColorImageToByteArray(image.get(), bytes, 0, 0, GetParam()); });
    EXPECT_TRUE(std::all_of(std::begin(bytes), std::end(bytes), [](uint8_t byte) { return byte == 0; }));
}

// With three planes negatives wrap, and with one they are 0.
TEST_P(ColorBytes, GoOutTruncatedAndCutTo8Bits) {
    struct Case {
        float value;
        uint8_t color, gray;
    };
    const std::vector<Case> cases = {{255.9f, 255, 255},
                                     {256.0f, 0, 0},
                                     {300.7f, 44, 44},
                                     {254.99f, 254, 254},
                                     {-0.5f, 0, 0},
                                     {-0.999f, 0, 0},
                                     {-1.0f, 255, 0},
                                     {-1.5f, 255, 0},
                                     {-255.0f, 1, 0},
                                     {-256.5f, 0, 0},
                                     {-300.7f, 212, 0},
                                     {-0.0f, 0, 0},
                                     {not_a_number, 0, 0},
                                     {infinity, 0, 0},
                                     {-infinity, 0, 0},
                                     {16777215.0f, 255, 255},
                                     {-16777215.0f, 1, 0},
                                     {2147483520.0f, 128, 128},
                                     {-2147483520.0f, 128, 0},
                                     {2147483648.0f, 0, 0},
                                     {-2147483648.0f, 0, 0},
                                     {3e9f, 0, 0},
                                     {-3e9f, 0, 0},
                                     {1e30f, 0, 0},
                                     {-1e30f, 0, 0}};
    const auto width = static_cast<uint32_t>(cases.size());
    const auto value = [&](uint32_t, uint64_t x, uint64_t) { return cases[x].value; };
    const ColorImagePtr color = make_color_image(width, 1, RGB, value);
    const ColorImagePtr gray = make_color_image(width, 1, GRAY, value);
    std::vector<uint8_t> color_bytes(3 * cases.size(), 77);
    std::vector<uint8_t> gray_bytes(cases.size(), 77);
    expect_success([&] { return KoColorImageToByteArray(color.get(), color_bytes.data(), 0, 1, GetParam()); });
    expect_success([&] { return KoColorImageToByteArray(gray.get(), gray_bytes.data(), 0, 1, GetParam()); });
    for (size_t x = 0; x < cases.size(); ++x) {
        for (size_t c = 0; c < 3; ++c) {
            EXPECT_EQ(color_bytes[byte_index(GetParam(), width, 1, c, x, 0)], cases[x].color) << cases[x].value;
        }
        EXPECT_EQ(gray_bytes[x], cases[x].gray) << cases[x].value;
    }
}

// Sizes of all kinds. The lines lie below one line of the picture and above another, which stay as they are.

TEST_P(ColorBytes, ComeInAtEverySize) {
    uint32_t seed = 0;
    for (const TurnSize &size : turn_sizes()) {
        SCOPED_TRACE(testing::Message() << size.width << " by " << size.height);
        const std::vector<uint8_t> noise = noise_bytes(3 * size.width * size.height, ++seed);
        GuardedBytes bytes(noise, seed);
        const auto lines = static_cast<uint32_t>(size.height);
        const ColorImagePtr image = uniform(static_cast<uint32_t>(size.width), lines + 2, RGB, {-1, -2, -3});
        const std::vector<PlaneGuard> surround = guards(image.get());
        ASSERT_EQ(KoColorImageFromByteArray(image.get(), bytes.data(), 1, lines, GetParam()), KO_OK);
        std::vector<float> expected;
        for (size_t c = 0; c < 3; ++c) {
            expected.insert(expected.end(), size.width, -1.0f - static_cast<float>(c));
            for (size_t i = 0; i < size.width * size.height; ++i) {
                const size_t at = byte_index(GetParam(), size.width, size.height, c, i % size.width, i / size.width);
                expected.push_back(static_cast<float>(noise[at]));
            }
            expected.insert(expected.end(), size.width, -1.0f - static_cast<float>(c));
        }
        ASSERT_TRUE(same_floats(expected, all_pixels(image.get())));
        ASSERT_TRUE(hold(surround));
        ASSERT_TRUE(bytes.guards_hold() && bytes.bytes() == noise) << "the bytes were written";
    }
}

uint8_t plain_wrapped_byte(float value) {
    const double whole = std::trunc(static_cast<double>(value));
    const bool fits = whole >= -2147483648.0 && whole <= 2147483647.0;
    return fits ? static_cast<uint8_t>(static_cast<int64_t>(whole) & 255) : uint8_t{0};
}

TEST_P(ColorBytes, GoOutAtEverySize) {
    uint32_t seed = 0;
    for (const TurnSize &size : turn_sizes()) {
        SCOPED_TRACE(testing::Message() << size.width << " by " << size.height);
        const auto lines = static_cast<uint32_t>(size.height);
        const ColorImagePtr image = turning(size.width, size.height + 2, RGB, ++seed);
        const std::vector<float> before = all_pixels(image.get());
        GuardedBytes bytes(3 * size.width * size.height, 77, seed);
        ASSERT_EQ(KoColorImageToByteArray(image.get(), bytes.data(), 1, lines, GetParam()), KO_OK);
        std::vector<uint8_t> expected(3 * size.width * size.height);
        for (size_t c = 0; c < 3; ++c) {
            for (size_t y = 0; y < size.height; ++y) {
                for (size_t x = 0; x < size.width; ++x) {
                    expected[byte_index(GetParam(), size.width, size.height, c, x, y)] =
                        plain_wrapped_byte(image->planes[c].rows[y + 1][x]);
                }
            }
        }
        ASSERT_EQ(bytes.bytes(), expected);
        ASSERT_TRUE(bytes.guards_hold());
        ASSERT_TRUE(same_floats(before, all_pixels(image.get()))) << "the picture was written";
    }
}

// Every value stands in every channel once, at different places of a line.
TEST_P(ColorBytes, GoOutForEveryValueAtWhichTheyTurn) {
    const std::vector<float> &values = turning_floats();
    const auto width = static_cast<uint32_t>(values.size());
    for (size_t shift = 0; shift < 32; ++shift) {
        const auto value = [&](uint32_t c, uint64_t x, uint64_t) { return values[(x + shift + 5 * c) % width]; };
        const ColorImagePtr image = make_color_image(width, 1, RGB, value);
        std::vector<uint8_t> bytes(3 * values.size(), 77);
        ASSERT_EQ(KoColorImageToByteArray(image.get(), bytes.data(), 0, 1, GetParam()), KO_OK);
        for (uint32_t c = 0; c < 3; ++c) {
            for (uint64_t x = 0; x < width; ++x) {
                const uint8_t byte = bytes[byte_index(GetParam(), width, 1, c, x, 0)];
                ASSERT_EQ(byte, plain_wrapped_byte(value(c, x, 0))) << value(c, x, 0) << " at " << x << " of channel " << c;
            }
        }
    }
}

class GrayBytes : public ColorImageTest {};

TEST_F(GrayBytes, IgnoreTheLayout) {
    const std::vector<uint8_t> bytes = noise_bytes(7 * 5, 3);
    for (const int32_t layout : {0, 1, 2, 3, 77, -1}) {
        const ColorImagePtr image(KoColorImageNewFromByteArray(7, 5, GRAY, bytes.data(), layout));
        ASSERT_NE(image, nullptr);
        EXPECT_EQ(all_pixels(image.get()), std::vector<float>(bytes.begin(), bytes.end()));
        std::vector<uint8_t> back(7);
        expect_success([&] { return KoColorImageToByteArray(image.get(), back.data(), 2, 1, layout); });
        EXPECT_EQ(back, std::vector<uint8_t>(bytes.begin() + 14, bytes.begin() + 21));
        expect_success([&] { return KoColorImageFromByteArray(image.get(), bytes.data(), 4, 0, layout); });
        EXPECT_EQ(image->planes[0].rows[4][6], static_cast<float>(bytes[6]));
    }
}

TEST_F(GrayBytes, AreRangedWithTheWarningsOfTheirPlane) {
    const ColorImagePtr image = uniform(3, 4, GRAY, {-1});
    const std::vector<uint8_t> bytes = {1, 2, 3, 4, 5, 6};
    const std::vector<float> floats(bytes.begin(), bytes.end());
    std::vector<uint8_t> written(6);
    const std::string count = "[WARNING] line_start(2) + line_num(5) >= rimage->height (4)";
    const std::string start = "[WARNING] line_start(4) >= rimage->height (4)";
    expect_warning(count, count, [&] { return KoColorImageFromByteArray(image.get(), bytes.data(), 2, 5, 0); });
    EXPECT_EQ(all_pixels(image.get()), (std::vector<float>{-1, -1, -1, -1, -1, -1, 1, 2, 3, 4, 5, 6}));
    expect_warning(count, count, [&] { return KoColorImageToByteArray(image.get(), written.data(), 2, 5, 0); });
    EXPECT_EQ(written, bytes);
    expect_warning(count, count, [&] { return KoColorImageFromFloatArray(image.get(), floats.data(), 2, 5); });
    expect_warning(start, "", [&] { return KoColorImageFromByteArray(image.get(), bytes.data(), 4, 1, 0); });
    expect_warning(start, "", [&] { return KoColorImageToByteArray(image.get(), written.data(), 4, 1, 0); });
    expect_warning(start, "", [&] { return KoColorImageFromFloatArray(image.get(), floats.data(), 4, 1); });
    EXPECT_EQ(all_pixels(image.get()), (std::vector<float>{-1, -1, -1, -1, -1, -1, 1, 2, 3, 4, 5, 6}));
}

// What comes in is refused with a status; what goes out is reported in the same words, but its result is 0.
class ByteRefusal : public ColorImageTest {
  protected:
    static void expect_refused(ColorImage *image, int32_t layout) {
        std::vector<uint8_t> bytes(60, 77);
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&] { return KoColorImageFromByteArray(image, bytes.data(), 0, 1, layout); });
        KoStatusClear();
        const ko_test::PrintCapture printed("error");
        EXPECT_EQ(KoColorImageToByteArray(image, bytes.data(), 0, 1, layout), KO_OK);
        expect_status(KO_ERR_INVALID_ARGUMENT, "[ERROR] Invalid argument");
        EXPECT_EQ(printed.texts(), std::vector<std::string>{"[ERROR] Invalid argument"});
        EXPECT_EQ(bytes, std::vector<uint8_t>(60, 77));
    }
};

TEST_F(ByteRefusal, OfAnImageOfNeitherOneNorThreePlanes) {
    expect_refused(emptied().get(), KO_BYTE_LAYOUT_INTERLEAVED);
    const ColorImagePtr image = uniform(4, 3, RGB, {1, 2, 3});
    image->depth = 2;
    expect_refused(image.get(), KO_BYTE_LAYOUT_INTERLEAVED);
    image->depth = 3;
    EXPECT_EQ(pixels(&image->planes[0]), std::vector<float>(12, 1.0f));
}

TEST_F(ByteRefusal, OfALayoutThatDoesNotExist) {
    const ColorImagePtr image = uniform(4, 3, RGB, {1, 2, 3});
    const std::vector<float> before = all_pixels(image.get());
    for (const int32_t layout : {3, 4, 77, -1}) {
        expect_refused(image.get(), layout);
    }
    EXPECT_EQ(all_pixels(image.get()), before);
    const std::vector<uint8_t> bytes(36, 1);
    KoStatusClear();
    EXPECT_EQ(KoColorImageNewFromByteArray(4, 3, RGB, bytes.data(), 77), nullptr);
    expect_status(KO_ERR_INVALID_ARGUMENT, "[ERROR] Invalid argument");
}

// Floats in

TEST_F(ColorImageTest, FloatsComeInInterleavedIntoTheLinesNamed) {
    for (const uint32_t width : widths) {
        for (const uint64_t count : {0u, 1u, 2u, 4u}) { // 0 is one line
            const uint64_t lines = std::max<uint64_t>(count, 1);
            const std::vector<float> floats = awkward_floats(3 * width * lines, width);
            const ColorImagePtr image = uniform(width, 5, YIQ, {-1, -2, -3});
            expect_success([&] { return KoColorImageFromFloatArray(image.get(), floats.data(), 1, count); });
            const ColorImagePtr expected = make_color_image(width, 5, YIQ, [&](uint32_t c, uint64_t x, uint64_t y) {
                return y >= 1 && y < 1 + lines ? floats[((y - 1) * width + x) * 3 + c] : -1.0f - static_cast<float>(c);
            });
            EXPECT_TRUE(same_floats(all_pixels(expected.get()), all_pixels(image.get()))) << width << ", " << count;
            expect_zero_padding(image.get());
        }
    }
}

TEST_F(ColorImageTest, FloatsComeInAtEverySize) {
    uint32_t seed = 0;
    for (const TurnSize &size : turn_sizes()) {
        SCOPED_TRACE(testing::Message() << size.width << " by " << size.height);
        const std::vector<float> floats = turning_noise(3 * size.width * size.height, ++seed);
        const ColorImagePtr image =
            uniform(static_cast<uint32_t>(size.width), static_cast<uint32_t>(size.height) + 2, RGB, {-1, -2, -3});
        const std::vector<PlaneGuard> surround = guards(image.get());
        ASSERT_EQ(KoColorImageFromFloatArray(image.get(), floats.data(), 1, size.height), KO_OK);
        std::vector<float> expected;
        for (size_t c = 0; c < 3; ++c) {
            expected.insert(expected.end(), size.width, -1.0f - static_cast<float>(c));
            for (size_t i = 0; i < size.width * size.height; ++i) {
                expected.push_back(floats[3 * i + c]);
            }
            expected.insert(expected.end(), size.width, -1.0f - static_cast<float>(c));
        }
        ASSERT_TRUE(same_floats(expected, all_pixels(image.get())));
        ASSERT_TRUE(hold(surround));
    }
}

TEST_F(ColorImageTest, FloatsOfOnePlaneComeInLineByLine) {
    const std::vector<float> floats = awkward_floats(14, 1);
    const ColorImagePtr image = uniform(7, 3, GRAY, {-1});
    expect_success([&] { return KoColorImageFromFloatArray(image.get(), floats.data(), 1, 2); });
    std::vector<float> expected(7, -1.0f);
    expected.insert(expected.end(), floats.begin(), floats.end());
    EXPECT_TRUE(same_floats(expected, all_pixels(image.get())));
}

TEST_F(ColorImageTest, FloatsNeedOneOrThreePlanes) {
    const std::vector<float> floats(60, 1.0f);
    const ColorImagePtr none = emptied();
    const ColorImagePtr image = uniform(4, 3, RGB, {1, 2, 3});
    image->depth = 2;
    for (ColorImage *refused : {none.get(), image.get()}) {
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&] { return KoColorImageFromFloatArray(refused, floats.data(), 0, 1); });
    }
    image->depth = 3;
}

} // namespace
