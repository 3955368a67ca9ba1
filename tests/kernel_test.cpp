// Kernels against their plain forms, bit for bit: the Gaussian and the Laplacian, dense and sparse application, and the
// borders.
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "awkward_floats.h"
#include "guards.h"
#include "ko/kernel.h"
#include "library_test.h"
#include "pictures.h"
#include "reference_kernel.h"
#include "same_floats.h"
#include "turn_sizes.h"

namespace {

using namespace ko_test;

using KernelTest = LibraryTest;

Plane plane_of(const RealImage *image) { return {image->width, image->height, pixels(image)}; }

RealImagePtr image_of(const Plane &plane) { return make_image(plane.width, plane.height, plane.pixels); }

Plane noise_plane(uint64_t width, uint64_t height, uint32_t seed) {
    Noise noise(seed);
    Plane plane{width, height, {}};
    for (uint64_t i = 0; i < width * height; ++i) {
        plane.pixels.push_back(noise.uniform(-100.0f, 255.0f));
    }
    return plane;
}

Plane flat_plane(uint64_t width, uint64_t height, float value) {
    return {width, height, std::vector<float>(width * height, value)};
}

void expect_image(const Plane &expected, const RealImage *image) {
    ASSERT_NE(image, nullptr);
    ASSERT_EQ(image->width, expected.width);
    ASSERT_EQ(image->height, expected.height);
    EXPECT_TRUE(same_floats(expected.pixels, pixels(image)));
    EXPECT_TRUE(padding_is_zero(image));
}

// The Gaussian.

TEST_F(KernelTest, GaussianFollowsTheFormula) {
    const std::pair<uint64_t, uint64_t> sizes[] = {{1, 1}, {3, 3}, {5, 5},   {1, 11}, {11, 1},
                                                   {7, 3}, {3, 9}, {13, 17}, {41, 39}};
    for (const auto &[width, height] : sizes) {
        for (const float sigma : {0.3f, 0.77f, 1.0f, 2.0f, 3.3f, 11.9f}) {
            SCOPED_TRACE(testing::Message() << width << " by " << height << ", sigma " << sigma);
            const RealImagePtr kernel(KoKernelNewGaussian(width, height, sigma));
            expect_image(reference_gaussian_kernel(width, height, sigma), kernel.get());
        }
    }
    expect_status(KO_OK, "");
}

TEST_F(KernelTest, AnOddGaussianIsSymmetricAndSumsToOne) {
    const RealImagePtr kernel(KoKernelNewGaussian(9, 7, 1.5f));
    double sum = 0.0;
    for (uint64_t y = 0; y < 7; ++y) {
        for (uint64_t x = 0; x < 9; ++x) {
            sum += static_cast<double>(kernel->rows[y][x]);
            EXPECT_EQ(kernel->rows[y][x], kernel->rows[6 - y][x]);
            EXPECT_EQ(kernel->rows[y][x], kernel->rows[y][8 - x]);
            EXPECT_LE(kernel->rows[y][x], kernel->rows[3][4]);
        }
    }
    EXPECT_NEAR(sum, 1.0, 1e-6);
    EXPECT_NEAR(kernel->rows[3][5] / kernel->rows[3][4], std::exp(-1.0 / 4.5), 1e-6);
}

TEST_F(KernelTest, AColumnOfElevenSumsToOne) {
    const RealImagePtr kernel(KoKernelNewGaussian(1, 11, 2.0f));
    ASSERT_EQ(kernel->width, 1u);
    ASSERT_EQ(kernel->height, 11u);
    double sum = 0.0;
    for (const float value : pixels(kernel.get())) {
        sum += static_cast<double>(value);
    }
    EXPECT_NEAR(sum, 1.0, 1e-6);
}

// The first mirrored value falls on the centre and overwrites it: no true Gaussian, and meant.
TEST_F(KernelTest, AnEvenGaussianHasTwoMiddlesAndAnotherSum) {
    const RealImagePtr row(KoKernelNewGaussian(4, 1, 1.0f));
    const double scale = 1.0 + 2.0 * (std::exp(-0.5) + std::exp(-2.0)); // as if two columns lay on either side of the centre
    const double expected[] = {std::exp(-2.0), std::exp(-0.5), std::exp(-0.5), std::exp(-2.0)};
    for (uint64_t x = 0; x < 4; ++x) {
        EXPECT_NEAR(row->rows[0][x], expected[x] / scale, 1e-6) << x;
    }
    const std::pair<uint64_t, uint64_t> sizes[] = {{2, 1}, {1, 2}, {2, 2}, {4, 3}, {3, 6}, {8, 10}, {12, 1}};
    for (const auto &[width, height] : sizes) {
        SCOPED_TRACE(testing::Message() << width << " by " << height);
        const RealImagePtr kernel(KoKernelNewGaussian(width, height, 1.3f));
        expect_image(reference_gaussian_kernel(width, height, 1.3f), kernel.get());
    }
}

// The Laplacian.

TEST_F(KernelTest, LaplacianIsInSinglePrecision) {
    for (const float alpha : {0.0f, 0.1f, 0.2f, 1.0f / 3.0f, 0.5f, 0.77f, 1.0f, 1.7f}) {
        SCOPED_TRACE(alpha);
        const RealImagePtr kernel(KoKernelNewLaplacian(alpha));
        expect_image(reference_laplacian(alpha), kernel.get());
    }
    expect_status(KO_OK, "");
}

TEST_F(KernelTest, LaplacianOfOneFifth) {
    const RealImagePtr kernel(KoKernelNewLaplacian(0.2f));
    const double expected[] = {1.0 / 6, 2.0 / 3, 1.0 / 6, 2.0 / 3, -10.0 / 3, 2.0 / 3, 1.0 / 6, 2.0 / 3, 1.0 / 6};
    const std::vector<float> values = pixels(kernel.get());
    for (size_t i = 0; i < 9; ++i) {
        EXPECT_NEAR(values[i], expected[i], 1e-6) << i;
    }
}

TEST_F(KernelTest, LaplacianOfAFlatPictureIsZeroInsideAndNotAtTheBorder) {
    const RealImagePtr kernel(KoKernelNewLaplacian(0.2f));
    const RealImagePtr image = image_of(flat_plane(12, 9, 100.0f));
    RealImage *made = nullptr;
    expect_success([&] { return KoKernelNewRealImage(kernel.get(), image.get(), &made); });
    const RealImagePtr result(made);
    for (uint64_t y = 0; y < 9; ++y) {
        for (uint64_t x = 0; x < 12; ++x) {
            const bool border = x == 0 || y == 0 || x == 11 || y == 8;
            EXPECT_EQ(std::fabs(result->rows[y][x]) < 1e-3f, !border) << x << ", " << y;
        }
    }
}

// Dense application.

void expect_correlation(const Plane &kernel, const Plane &image) {
    SCOPED_TRACE(testing::Message() << "kernel " << kernel.width << " by " << kernel.height << ", picture " << image.width
                                    << " by " << image.height);
    const RealImagePtr weights = image_of(kernel);
    const RealImagePtr source = image_of(image);
    RealImage *made = nullptr;
    expect_success([&] { return KoKernelNewRealImage(weights.get(), source.get(), &made); });
    const RealImagePtr result(made);
    expect_image(reference_correlation(kernel, image), result.get());
    EXPECT_TRUE(same_floats(image.pixels, pixels(source.get()))) << "the picture was written";
    EXPECT_TRUE(same_floats(kernel.pixels, pixels(weights.get()))) << "the kernel was written";
}

TEST_F(KernelTest, CorrelationOfManySizes) {
    const std::pair<uint64_t, uint64_t> kernels[] = {{1, 1},  {3, 3}, {1, 3}, {3, 1},   {5, 5},  {1, 13},
                                                     {13, 1}, {7, 3}, {3, 9}, {11, 11}, {15, 5}, {9, 1}};
    uint32_t seed = 0;
    for (const auto &[kernel_width, kernel_height] : kernels) {
        const Plane kernel = noise_plane(kernel_width, kernel_height, ++seed);
        for (uint64_t more = 0; more < 6; ++more) { // the smallest picture that has a result, and the next ones
            expect_correlation(kernel, noise_plane(kernel_width + more, kernel_height, ++seed));
            expect_correlation(kernel, noise_plane(kernel_width, kernel_height + more, ++seed));
            expect_correlation(kernel, noise_plane(kernel_width + more, kernel_height + more, ++seed));
        }
        expect_correlation(kernel, noise_plane(64, 17, ++seed));
        expect_correlation(kernel, noise_plane(131, 33, ++seed));
    }
}

TEST_F(KernelTest, AKernelWithoutRowsOrColumnsGivesZero) {
    const RealImagePtr image = make_image(20, 3, [](uint64_t x, uint64_t) { return static_cast<float>(x + 1); });
    for (const auto &[width, height] : {std::pair<uint64_t, uint64_t>{3, 0}, {1, 0}, {0, 3}, {0, 0}}) {
        SCOPED_TRACE(testing::Message() << width << " by " << height);
        const RealImagePtr kernel(KoRealImageNew(width, height));
        RealImage *result = nullptr;
        expect_success([&] { return KoKernelNewRealImage(kernel.get(), image.get(), &result); });
        const RealImagePtr owned(result);
        EXPECT_EQ(pixels(result), std::vector<float>(60, 0.0f));
    }
}

// Even sizes among them: the centre lies at half the size in whole numbers, so an even kernel reaches further to the left.
TEST_F(KernelTest, CorrelationAtEverySize) {
    const std::pair<uint64_t, uint64_t> kernels[] = {{1, 1}, {3, 3}, {13, 1}, {1, 13}, {5, 4}, {2, 2}, {2, 1}, {1, 2}, {1, 4},
                                                     {4, 5}, {6, 6}, {9, 2},  {16, 1}, {1, 7}, {5, 1}, {6, 1}, {7, 1}, {8, 1}};
    uint32_t seed = 0;
    for (const auto &[width, height] : kernels) {
        const Plane kernel = noise_plane(width, height, ++seed);
        for (const TurnSize &size : turn_sizes()) {
            expect_correlation(kernel, noise_plane(size.width, size.height, ++seed));
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(KernelTest, CorrelationOfAKernelAsLargeAsThePictureOrNearly) {
    uint32_t seed = 0;
    for (uint64_t width = 1; width <= 20; ++width) {
        for (uint64_t height = 1; height <= 9; ++height) {
            const Plane kernel = noise_plane(width, height, ++seed);
            for (uint64_t more = 0; more < 3; ++more) {
                expect_correlation(kernel, noise_plane(width + more, height + more / 2, ++seed));
                ASSERT_FALSE(HasFailure());
            }
        }
    }
    for (const auto &[width, height] : {std::pair<uint64_t, uint64_t>{33, 31}, {64, 9}, {70, 3}, {3, 64}, {512, 1}, {513, 2}}) {
        const Plane kernel = noise_plane(width, height, ++seed);
        expect_correlation(kernel, noise_plane(width, height, seed + 1));
        expect_correlation(kernel, noise_plane(width + 5, height + 2, seed + 2));
    }
}

TEST_F(KernelTest, CorrelationOfAwkwardPixelsAndWeightsAtEveryWidth) {
    const std::pair<uint64_t, uint64_t> kernels[] = {{1, 1}, {3, 3}, {5, 1}, {1, 5}, {4, 2}, {13, 1}};
    uint32_t seed = 0;
    for (const auto &[width, height] : kernels) {
        for (const uint64_t columns : turn_widths()) {
            ++seed;
            // Weights of which few are awkward, so that most sums stay numbers.
            Plane kernel = noise_plane(width, height, seed);
            kernel.pixels[seed % kernel.pixels.size()] = awkward_floats(1, seed)[0];
            Plane picture = noise_plane(columns, 6, seed);
            for (uint64_t i = seed % 7; i < picture.pixels.size(); i += 11) {
                picture.pixels[i] = awkward_floats(1, seed + static_cast<uint32_t>(i))[0];
            }
            expect_correlation(kernel, picture);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(KernelTest, AlargerPicture) {
    expect_correlation(noise_plane(3, 3, 1), noise_plane(701, 203, 2));
    expect_correlation(noise_plane(13, 1, 3), noise_plane(701, 203, 4));
    expect_correlation(noise_plane(1, 13, 5), noise_plane(203, 701, 6));
}

// A weight of 0 still multiplies, and a term outside the picture is left out, not multiplied by 0.
TEST_F(KernelTest, CorrelationOfAwkwardPixelsAndWeights) {
    for (uint32_t seed = 1; seed < 30; ++seed) {
        expect_correlation({5, 3, awkward_floats(15, seed)}, {9, 8, awkward_floats(72, seed + 100)});
        expect_correlation({3, 3, std::vector<float>(9, 0.0f)}, {9, 8, awkward_floats(72, seed + 200)});
        expect_correlation({1, 1, {1.0f}}, {9, 8, awkward_floats(72, seed + 300)});
    }
    Plane kernel = flat_plane(3, 3, infinity);
    kernel.pixels[4] = 1.0f;
    const RealImagePtr weights = image_of(kernel);
    const RealImagePtr image = image_of(flat_plane(3, 3, 0.0f));
    RealImage *made = nullptr;
    ASSERT_EQ(KoKernelNewRealImage(weights.get(), image.get(), &made), KO_OK);
    const RealImagePtr result(made);
    EXPECT_TRUE(std::isnan(result->rows[1][1]));
}

TEST_F(KernelTest, AKernelOfOnePixelScales) {
    const RealImagePtr weight = make_image(1, 1, {2.5f});
    const Plane picture = noise_plane(19, 7, 4);
    const RealImagePtr image = image_of(picture);
    RealImage *made = nullptr;
    ASSERT_EQ(KoKernelNewRealImage(weight.get(), image.get(), &made), KO_OK);
    const RealImagePtr result(made);
    for (size_t i = 0; i < picture.pixels.size(); ++i) {
        EXPECT_EQ(pixels(result.get())[i], 2.5f * picture.pixels[i]);
    }
}

// Not flipped: the weight right of the centre meets the pixel to the right, the one below the centre the pixel below.
TEST_F(KernelTest, TheKernelIsNotFlipped) {
    const RealImagePtr kernel = make_image(3, 3, {0, 0, 0, 0, 0, 1, 0, 10, 0});
    const RealImagePtr image = make_image(5, 5, [](uint64_t x, uint64_t y) { return x == 2 && y == 2 ? 7.0f : 0.0f; });
    RealImage *made = nullptr;
    ASSERT_EQ(KoKernelNewRealImage(kernel.get(), image.get(), &made), KO_OK);
    const RealImagePtr result(made);
    EXPECT_EQ(result->rows[2][1], 7.0f);
    EXPECT_EQ(result->rows[1][2], 70.0f);
    EXPECT_EQ(result->rows[2][3], 0.0f);
    EXPECT_EQ(result->rows[3][2], 0.0f);
}

TEST_F(KernelTest, BordersAreNotMadeUpFor) {
    const RealImagePtr kernel = image_of(flat_plane(3, 3, 1.0f));
    const RealImagePtr image = image_of(flat_plane(6, 5, 1.0f));
    RealImage *made = nullptr;
    ASSERT_EQ(KoKernelNewRealImage(kernel.get(), image.get(), &made), KO_OK);
    const RealImagePtr result(made);
    EXPECT_EQ(result->rows[0][0], 4.0f);
    EXPECT_EQ(result->rows[0][3], 6.0f);
    EXPECT_EQ(result->rows[2][5], 6.0f);
    EXPECT_EQ(result->rows[4][5], 4.0f);
    EXPECT_EQ(result->rows[2][3], 9.0f);
}

TEST_F(KernelTest, APictureSmallerThanTheKernelGivesZeros) {
    const std::pair<uint64_t, uint64_t> sizes[] = {{4, 9}, {9, 2}, {4, 2}, {1, 1}, {100, 2}, {4, 100}};
    for (const auto &[width, height] : sizes) {
        const Plane picture = noise_plane(width, height, 8);
        expect_correlation(noise_plane(5, 3, 7), picture);
        EXPECT_EQ(reference_correlation(noise_plane(5, 3, 7), picture).pixels, std::vector<float>(width * height, 0.0f));
    }
}

TEST_F(KernelTest, APictureWithoutPixels) {
    expect_correlation(noise_plane(3, 3, 1), {0, 0, {}});
    expect_correlation(noise_plane(3, 3, 1), {0, 5, {}});
    expect_correlation(noise_plane(3, 3, 1), {5, 0, {}});
}

TEST_F(KernelTest, DenseApplicationAlwaysStoresANewImage) {
    const RealImagePtr kernel = make_image(1, 1, {1.0f});
    const RealImagePtr image = image_of(noise_plane(6, 5, 1));
    const Plane before = noise_plane(6, 5, 2);
    const RealImagePtr stood_there = image_of(before);
    RealImage *result = stood_there.get();
    ASSERT_EQ(KoKernelNewRealImage(kernel.get(), image.get(), &result), KO_OK);
    const RealImagePtr made(result != stood_there.get() ? result : nullptr);
    ASSERT_NE(made, nullptr);
    expect_image(before, stood_there.get());
    expect_image(plane_of(image.get()), made.get());
}

// Sparse application.

struct TapArrays {
    std::vector<int32_t> x, y;
    std::vector<float> weights;

    explicit TapArrays(const std::vector<Tap> &taps) {
        for (const Tap &tap : taps) {
            x.push_back(tap.x);
            y.push_back(tap.y);
            weights.push_back(tap.weight);
        }
    }
};

int32_t apply_taps(int32_t width, int32_t height, const std::vector<Tap> &taps, const RealImage *image, RealImage **result) {
    const TapArrays arrays(taps);
    return KoSparseKernelNewRealImage(width, height, static_cast<uint32_t>(taps.size()), arrays.x.data(), arrays.y.data(),
                                      arrays.weights.data(), image, result);
}

std::vector<Tap> random_taps(int32_t kernel_width, int32_t kernel_height, uint32_t count, uint32_t seed) {
    Noise noise(seed);
    const auto within = [&noise](int32_t size) {
        return static_cast<int32_t>(noise.next() % static_cast<uint32_t>(size / 2 * 2 + 1)) - size / 2;
    };
    std::vector<Tap> taps;
    for (uint32_t i = 0; i < count; ++i) {
        const int32_t x = within(kernel_width);
        const int32_t y = within(kernel_height);
        taps.push_back({x, y, noise.uniform(-2.0f, 2.0f)});
    }
    return taps;
}

// Into an image that the call makes, and into one that is there.
void expect_sparse(int32_t kernel_width, int32_t kernel_height, const std::vector<Tap> &taps, const Plane &picture) {
    SCOPED_TRACE(testing::Message() << "kernel " << kernel_width << " by " << kernel_height << ", " << taps.size()
                                    << " taps, picture " << picture.width << " by " << picture.height);
    const RealImagePtr image = image_of(picture);
    RealImage *result = nullptr;
    expect_success([&] { return apply_taps(kernel_width, kernel_height, taps, image.get(), &result); });
    const RealImagePtr made(result);
    expect_image(reference_sparse(kernel_width, kernel_height, taps, picture, flat_plane(picture.width, picture.height, 0.0f)),
                 made.get());

    const Plane before = noise_plane(picture.width, picture.height, 99);
    const RealImagePtr given = image_of(before);
    const PlaneGuard surround(given.get());
    result = given.get();
    expect_success([&] { return apply_taps(kernel_width, kernel_height, taps, image.get(), &result); });
    EXPECT_EQ(result, given.get());
    EXPECT_TRUE(surround.holds());
    expect_image(reference_sparse(kernel_width, kernel_height, taps, picture, before), given.get());
    EXPECT_TRUE(same_floats(picture.pixels, pixels(image.get()))) << "the picture was written";
}

TEST_F(KernelTest, SparseKernelsOfManySizes) {
    const std::pair<int32_t, int32_t> kernels[] = {{1, 1}, {3, 3}, {5, 1}, {1, 7}, {9, 5}, {4, 2}, {6, 7}, {0, 0}, {0, 3}};
    uint32_t seed = 0;
    for (const auto &[width, height] : kernels) {
        for (const uint32_t count : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 20u}) {
            const std::vector<Tap> taps = random_taps(width, height, count, ++seed);
            expect_sparse(width, height, taps, noise_plane(40, 23, ++seed));
            expect_sparse(width, height, taps, noise_plane(11, 9, ++seed));
        }
    }
}

TEST_F(KernelTest, SparseKernelsAtEverySize) {
    const std::pair<int32_t, int32_t> kernels[] = {{1, 1}, {3, 3}, {5, 2}, {0, 4}, {9, 1}};
    uint32_t seed = 0;
    for (const auto &[width, height] : kernels) {
        for (const TurnSize &size : turn_sizes()) {
            const uint32_t count = ++seed % 10;
            expect_sparse(width, height, random_taps(width, height, count, seed), noise_plane(size.width, size.height, seed));
            ASSERT_FALSE(HasFailure());
        }
    }
}

// The sizes say how wide the border is, not where the taps lie.
TEST_F(KernelTest, TheBorderFollowsTheSizesAlone) {
    const std::vector<Tap> centre{{0, 0, 1.0f}};
    expect_sparse(7, 5, centre, noise_plane(20, 15, 1));
    const RealImagePtr image = image_of(flat_plane(10, 8, 3.0f));
    RealImage *result = nullptr;
    ASSERT_EQ(apply_taps(7, 5, centre, image.get(), &result), KO_OK);
    const RealImagePtr made(result);
    for (uint64_t y = 0; y < 8; ++y) {
        for (uint64_t x = 0; x < 10; ++x) {
            const bool inside = x >= 3 && x < 7 && y >= 2 && y < 6;
            EXPECT_EQ(made->rows[y][x], inside ? 3.0f : 0.0f) << x << ", " << y;
        }
    }
}

TEST_F(KernelTest, ASparseKernelAsLargeAsThePictureOrLarger) {
    expect_sparse(5, 5, random_taps(5, 5, 6, 1), noise_plane(5, 5, 1)); // one pixel inside the border
    expect_sparse(7, 5, random_taps(5, 5, 6, 2), noise_plane(5, 5, 2));
    expect_sparse(5, 7, random_taps(5, 5, 6, 3), noise_plane(5, 5, 3));
    expect_sparse(51, 51, random_taps(51, 51, 6, 4), noise_plane(5, 5, 4));
    expect_sparse(3, 3, random_taps(3, 3, 4, 5), noise_plane(1, 1, 5));
    expect_sparse(4, 4, random_taps(4, 4, 4, 6), noise_plane(4, 4, 6)); // half of 4 on either side leaves nothing
    expect_sparse(3, 3, random_taps(3, 3, 4, 7), {0, 0, {}});
}

TEST_F(KernelTest, NoTapsGiveZeroInsideTheBorder) {
    expect_sparse(3, 3, {}, noise_plane(9, 7, 1)); // a given image keeps its border and loses its inside
}

TEST_F(KernelTest, TapsAreSummedInTheirOrder) {
    // In the order of the taps the large weights cancel first; in any other the small one is lost.
    const std::vector<Tap> taps{{0, 0, 1e8f}, {1, 0, -1e8f}, {0, 1, 1.0f}};
    const std::vector<Tap> other{{0, 0, 1e8f}, {0, 1, 1.0f}, {1, 0, -1e8f}};
    const RealImagePtr image = image_of(flat_plane(3, 3, 1.0f));
    for (const auto &[list, expected] : {std::pair{taps, 1.0f}, std::pair{other, 0.0f}}) {
        RealImage *result = nullptr;
        ASSERT_EQ(apply_taps(3, 3, list, image.get(), &result), KO_OK);
        const RealImagePtr made(result);
        EXPECT_EQ(made->rows[1][1], expected);
    }
}

TEST_F(KernelTest, SparseKernelsOfAwkwardPixels) {
    for (uint32_t seed = 1; seed < 30; ++seed) {
        std::vector<Tap> taps = random_taps(5, 3, 7, seed);
        taps[seed % 7].weight = 0.0f;
        expect_sparse(5, 3, taps, {12, 9, awkward_floats(108, seed)});
    }
}

// The result is the thread's last status, without a report of its own, and so can be KO_OK.
TEST_F(KernelTest, AGivenSparseResultOfAnotherSizeIsLeftAlone) {
    const RealImagePtr image = image_of(noise_plane(9, 7, 1));
    const std::vector<Tap> taps{{0, 0, 1.0f}};
    const std::pair<uint64_t, uint64_t> sizes[] = {{8, 7}, {10, 7}, {9, 6}, {9, 8}, {7, 9}, {1, 1}};
    for (const auto &[width, height] : sizes) {
        SCOPED_TRACE(testing::Message() << width << " by " << height);
        const Plane before = noise_plane(width, height, 2);
        const RealImagePtr given = image_of(before);
        RealImage *result = given.get();
        KoStatusClear();
        EXPECT_EQ(apply_taps(3, 3, taps, image.get(), &result), KO_OK);
        expect_status(KO_OK, "");
        KoMsg(KO_ERR_FATAL);
        EXPECT_EQ(apply_taps(3, 3, taps, image.get(), &result), KO_ERR_FATAL);
        expect_status(KO_ERR_FATAL, "Fatal Error. Cannot continue");
        EXPECT_EQ(result, given.get());
        expect_image(before, given.get());
    }
}

} // namespace
