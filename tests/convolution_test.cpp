// Convolution of vectors against its plain form, bit for bit: arrays, rows and columns of images, and the shape of the result.
#include <cstdint>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "awkward_floats.h"
#include "ko/convolution.h"
#include "ko/memory.h"
#include "library_test.h"
#include "pictures.h"
#include "reference_kernel.h"
#include "same_floats.h"

namespace {

using namespace ko_test;

using Vector = std::vector<float>;

using ConvolutionTest = LibraryTest;

Vector noise_vector(uint64_t size, uint32_t seed) {
    Noise noise(seed);
    Vector values;
    for (uint64_t i = 0; i < size; ++i) {
        values.push_back(noise.uniform(-10.0f, 10.0f));
    }
    return values;
}

enum class Shape { row, column };

RealImagePtr image_of(const Vector &values, Shape shape) {
    return shape == Shape::row ? make_image(values.size(), 1, values) : make_image(1, values.size(), values);
}

// Into an array that the call makes, and into one that is there, whose neighbours stay.
void expect_arrays(const Vector &a, const Vector &b) {
    const Vector expected = reference_convolution(a, b);
    float *made = nullptr;
    expect_success([&] { return KoConvolutionVector(a.data(), a.size(), b.data(), b.size(), &made); });
    ASSERT_NE(made, nullptr);
    EXPECT_TRUE(same_floats(expected, Vector(made, made + expected.size())));
    KoFree(made);

    Vector given(expected.size() + 2, 77.0f);
    float *target = given.data() + 1;
    expect_success([&] { return KoConvolutionVector(a.data(), a.size(), b.data(), b.size(), &target); });
    EXPECT_EQ(target, given.data() + 1);
    EXPECT_TRUE(same_floats(expected, Vector(given.begin() + 1, given.end() - 1)));
    EXPECT_EQ(given.front(), 77.0f);
    EXPECT_EQ(given.back(), 77.0f);
}

void expect_image(const Vector &expected, Shape shape, const RealImage *image) {
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->width, shape == Shape::row ? expected.size() : 1);
    EXPECT_EQ(image->height, shape == Shape::row ? 1 : expected.size());
    EXPECT_TRUE(same_floats(expected, pixels(image)));
    EXPECT_TRUE(padding_is_zero(image));
}

// The result follows the shape of a, whatever that of b.
void expect_images(const Vector &a, Shape shape_a, const Vector &b, Shape shape_b) {
    const Vector expected = reference_convolution(a, b);
    const RealImagePtr first = image_of(a, shape_a);
    const RealImagePtr second = image_of(b, shape_b);
    RealImage *result = nullptr;
    expect_success([&] { return KoConvolutionRealImageVector(first.get(), second.get(), &result); });
    const RealImagePtr made(result);
    expect_image(expected, shape_a, made.get());

    const RealImagePtr given = image_of(Vector(expected.size(), 77.0f), shape_a);
    result = given.get();
    expect_success([&] { return KoConvolutionRealImageVector(first.get(), second.get(), &result); });
    EXPECT_EQ(result, given.get());
    expect_image(expected, shape_a, given.get());
    EXPECT_TRUE(same_floats(a, pixels(first.get())));
    EXPECT_TRUE(same_floats(b, pixels(second.get())));
}

TEST_F(ConvolutionTest, ArraysOfAllSmallSizes) {
    for (uint64_t size_a = 1; size_a <= 18; ++size_a) {
        for (uint64_t size_b = 1; size_b <= 18; ++size_b) {
            SCOPED_TRACE(testing::Message() << "sizes " << size_a << " and " << size_b);
            const auto seed = static_cast<uint32_t>(size_a * 100 + size_b);
            expect_arrays(noise_vector(size_a, seed), noise_vector(size_b, seed + 10000));
        }
    }
}

TEST_F(ConvolutionTest, LongArrays) {
    expect_arrays(noise_vector(1000, 1), noise_vector(13, 2));
    expect_arrays(noise_vector(13, 3), noise_vector(1000, 4));
    expect_arrays(noise_vector(500, 5), noise_vector(501, 6));
}

TEST_F(ConvolutionTest, AwkwardFloats) {
    for (uint32_t seed = 1; seed < 40; ++seed) {
        expect_arrays(awkward_floats(9, seed), awkward_floats(6, seed + 100));
        expect_arrays(awkward_floats(6, seed), awkward_floats(9, seed + 100));
    }
    expect_arrays({-0.0f, 1.0f}, {0.0f, -0.0f, 2.0f}); // sums begin at 0, so that no -0 comes out
}

// One vector is flipped against the other: a true convolution.
TEST_F(ConvolutionTest, ItIsNoCorrelation) {
    const Vector a{1, 2, 3};
    const Vector b{10, 0, -1};
    float *result = nullptr;
    ASSERT_EQ(KoConvolutionVector(a.data(), 3, b.data(), 3, &result), KO_OK);
    EXPECT_EQ(Vector(result, result + 5), (Vector{10, 20, 29, -2, -3}));
    KoFree(result);
}

// The terms of a sum are added in the order of a's elements; in the order of b's the small one is lost.
TEST_F(ConvolutionTest, SumsFollowTheFirstVector) {
    const Vector a{1e8f, -1e8f, 1.0f};
    const Vector b{1.0f, 1.0f, 1.0f};
    float *result = nullptr;
    ASSERT_EQ(KoConvolutionVector(a.data(), 3, b.data(), 3, &result), KO_OK);
    EXPECT_EQ(result[2], 1.0f);
    KoFree(result);
    const Vector c{1.0f, -1e8f, 1e8f};
    result = nullptr;
    ASSERT_EQ(KoConvolutionVector(c.data(), 3, b.data(), 3, &result), KO_OK);
    EXPECT_EQ(result[2], 0.0f);
    KoFree(result);
}

TEST_F(ConvolutionTest, AVectorOfOneScalesTheOther) {
    const Vector values = noise_vector(9, 1);
    Vector scaled;
    for (const float value : values) {
        scaled.push_back(2.5f * value);
    }
    EXPECT_EQ(reference_convolution({2.5f}, values), scaled);
    expect_arrays({2.5f}, values);
    expect_arrays(values, {2.5f});
    expect_arrays({2.5f}, {-3.0f});
}

TEST_F(ConvolutionTest, ASizeOfZeroIsRefused) {
    const Vector values{1, 2, 3};
    for (const auto &[size_a, size_b] : {std::pair<uint64_t, uint64_t>{0, 3}, {3, 0}, {0, 0}}) {
        float *result = nullptr;
        EXPECT_EQ(KoConvolutionVector(values.data(), size_a, values.data(), size_b, &result), KO_ERR_INVALID_ARGUMENT);
        EXPECT_EQ(result, nullptr);
    }
}

TEST_F(ConvolutionTest, RowsAndColumns) {
    uint32_t seed = 0;
    for (const uint64_t size_a : {1u, 2u, 3u, 5u, 11u, 16u}) {
        for (const uint64_t size_b : {1u, 2u, 3u, 4u, 7u, 12u}) {
            for (const Shape shape_a : {Shape::row, Shape::column}) {
                for (const Shape shape_b : {Shape::row, Shape::column}) {
                    if (size_a == 1 && shape_a == Shape::row) {
                        continue; // one pixel is a column
                    }
                    SCOPED_TRACE(testing::Message() << "sizes " << size_a << " and " << size_b);
                    ++seed;
                    expect_images(noise_vector(size_a, seed), shape_a, noise_vector(size_b, seed + 1000), shape_b);
                }
            }
        }
    }
}

TEST_F(ConvolutionTest, AColumnAndARowOfThreeGiveAColumn) {
    const RealImagePtr column(make_image(1, 11, noise_vector(11, 1)));
    const RealImagePtr row = make_image(3, 1, {1.0f, 0.0f, -1.0f});
    RealImage *result = nullptr;
    ASSERT_EQ(KoConvolutionRealImageVector(column.get(), row.get(), &result), KO_OK);
    const RealImagePtr made(result);
    EXPECT_EQ(made->width, 1u);
    EXPECT_EQ(made->height, 13u);
}

TEST_F(ConvolutionTest, OnePixelCountsAsAColumn) {
    const Vector values = noise_vector(5, 3);
    for (const Shape shape : {Shape::row, Shape::column}) {
        const RealImagePtr pixel = make_image(1, 1, {2.0f});
        const RealImagePtr other = image_of(values, shape);
        RealImage *result = nullptr;
        ASSERT_EQ(KoConvolutionRealImageVector(pixel.get(), other.get(), &result), KO_OK);
        const RealImagePtr made(result);
        expect_image(reference_convolution({2.0f}, values), Shape::column, made.get());
    }
}

TEST_F(ConvolutionTest, AnImageThatIsNoVectorIsRefusedWithoutAMessage) {
    const std::pair<uint64_t, uint64_t> sizes[] = {{2, 2}, {3, 2}, {2, 7}};
    for (const auto &[width, height] : sizes) {
        const RealImagePtr block = make_image(width, height, noise_vector(width * height, 1));
        const RealImagePtr row = make_image(3, 1, {1.0f, 2.0f, 3.0f});
        for (const auto &[a, b] : {std::pair{block.get(), row.get()}, {row.get(), block.get()}, {block.get(), block.get()}}) {
            KoStatusClear();
            RealImage *result = nullptr;
            EXPECT_EQ(KoConvolutionRealImageVector(a, b, &result), KO_ERR_INVALID_ARGUMENT);
            EXPECT_EQ(result, nullptr);
            expect_status(KO_OK, "");
        }
    }
}

TEST_F(ConvolutionTest, AnImageWithoutPixelsIsRefusedWithoutAMessage) {
    const RealImagePtr row = make_image(3, 1, {1.0f, 2.0f, 3.0f});
    const std::pair<uint64_t, uint64_t> sizes[] = {{0, 1}, {1, 0}, {0, 0}};
    for (const auto &[width, height] : sizes) {
        const RealImagePtr none = make_image(width, height, Vector());
        for (const auto &[a, b] : {std::pair{none.get(), row.get()}, {row.get(), none.get()}}) {
            KoStatusClear();
            RealImage *result = nullptr;
            EXPECT_EQ(KoConvolutionRealImageVector(a, b, &result), KO_ERR_INVALID_ARGUMENT);
            EXPECT_EQ(result, nullptr);
            expect_status(KO_OK, "");
        }
    }
}

} // namespace
