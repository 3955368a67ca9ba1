// The Gaussian in both forms against a plain reference, bit for bit, and the rules that a fast implementation could break.
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "awkward_floats.h"
#include "capture.h"
#include "files.h"
#include "guards.h"
#include "ko.h"
#include "pictures.h"
#include "reference_kernelgaussian.h"
#include "same_floats.h"
#include "turn_sizes.h"

namespace {

using namespace ko_test;

constexpr int32_t finite = 0;
constexpr int32_t recursive = 1;

class KernelGaussianTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { KoInit(nullptr, nullptr); }
    static void TearDownTestSuite() { KoRelease(); }
    void SetUp() override { KoStatusClear(); }
};

KernelGaussianPtr make_kernel(float sigma, float truncation, int32_t mode) {
    return KernelGaussianPtr(KoKernelGaussianNewTune(sigma, truncation, mode));
}

Plane noise_plane(uint64_t width, uint64_t height, uint32_t seed) {
    Noise noise(seed);
    Plane plane{width, height, {}};
    for (uint64_t i = 0; i < width * height; ++i) {
        plane.pixels.push_back(noise.uniform(0.0f, 255.0f));
    }
    return plane;
}

Plane constant_plane(uint64_t width, uint64_t height, float value) {
    return {width, height, std::vector<float>(width * height, value)};
}

RealImagePtr blur(const KernelGaussian *kernel, const Plane &plane) {
    const RealImagePtr image = make_image(plane.width, plane.height, plane.pixels);
    RealImage *result = nullptr;
    EXPECT_EQ(KoKernelGaussianConvolution(kernel, image.get(), &result), KO_OK);
    EXPECT_TRUE(same_floats(plane.pixels, pixels(image.get()))) << "the source was written";
    return RealImagePtr(result);
}

void expect_blur(const KernelGaussian *kernel, const Plane &plane, const Plane &expected) {
    const RealImagePtr result = blur(kernel, plane);
    ASSERT_NE(result, nullptr);
    ASSERT_EQ(result->width, plane.width);
    ASSERT_EQ(result->height, plane.height);
    EXPECT_TRUE(same_floats(expected.pixels, pixels(result.get())))
        << plane.width << " by " << plane.height << ", sigma " << KoKernelGaussianGetSigma(kernel);
    EXPECT_TRUE(padding_is_zero(result.get()));
}

void expect_recursive(float sigma, uint64_t width, uint64_t height) {
    const KernelGaussianPtr kernel = make_kernel(sigma, 2.0f, recursive);
    const Plane plane = noise_plane(width, height, static_cast<uint32_t>(width * 1000 + height));
    expect_blur(kernel.get(), plane, reference_recursive(plane, sigma));
}

void expect_finite(float sigma, float truncation, uint64_t width, uint64_t height) {
    const KernelGaussianPtr kernel = make_kernel(sigma, truncation, finite);
    const Plane plane = noise_plane(width, height, static_cast<uint32_t>(width * 1000 + height));
    expect_blur(kernel.get(), plane, reference_finite(plane, reference_coefficients(sigma, truncation)));
}

std::vector<float> coefficients(const KernelGaussian *kernel) {
    return {kernel->coefficients, kernel->coefficients + kernel->width};
}

std::string printed(const KernelGaussian *kernel) {
    const TemporaryFile file("kernel.txt");
    FILE *stream = std::fopen(file.c_str(), "w");
    KoKernelGaussianPrint(kernel, stream);
    std::fclose(stream);
    return read_text(file.path());
}

TEST_F(KernelGaussianTest, CoefficientsFollowTheFormula) {
    for (const float sigma : {0.3f, 0.5f, 0.77f, 1.0f, 1.5f, 2.0f, 3.3f, 4.0f, 7.9f, 13.0f, 40.0f, 80.0f}) {
        for (const float truncation : {1.0f, 1.75f, 2.0f, 3.0f}) {
            SCOPED_TRACE(testing::Message() << "sigma " << sigma << ", truncation " << truncation);
            const KernelGaussianPtr kernel(KoKernelGaussianNew(sigma, truncation));
            ASSERT_NE(kernel, nullptr);
            EXPECT_TRUE(same_floats(reference_coefficients(sigma, truncation), coefficients(kernel.get())));
            EXPECT_EQ(kernel->sigma, sigma);
            EXPECT_EQ(kernel->mode, 0);
        }
    }
}

TEST_F(KernelGaussianTest, CoefficientsAreAlignedAndFollowedByZeros) {
    for (const float sigma : {0.5f, 1.0f, 1.6f, 2.2f, 9.0f}) {
        const KernelGaussianPtr kernel(KoKernelGaussianNew(sigma, 2.0f));
        EXPECT_NE(kernel->storage, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(kernel->coefficients) % 16, 0u);
        for (uint64_t i = kernel->width; i < kernel->width + 8; ++i) {
            EXPECT_EQ(kernel->coefficients[i], 0.0f) << "float " << i << " of width " << kernel->width;
        }
    }
}

TEST_F(KernelGaussianTest, ReachIsTheCeilingOfTheSinglePrecisionProduct) {
    EXPECT_EQ(KoKernelGaussianGetWidth(make_kernel(0.5f, 2.0f, finite).get()), 3u);
    EXPECT_EQ(KoKernelGaussianGetWidth(make_kernel(0.5f, 2.01f, finite).get()), 5u);
    EXPECT_EQ(KoKernelGaussianGetWidth(make_kernel(4.0f, 1.75f, finite).get()), 15u);
    // As floats, 0.1 and 1.1 lie above their decimals; only the product in single precision falls back on a whole number.
    EXPECT_EQ(KoKernelGaussianGetWidth(make_kernel(0.1f, 10.0f, finite).get()), 3u);
    EXPECT_EQ(KoKernelGaussianGetWidth(make_kernel(1.1f, 10.0f, finite).get()), 23u);
}

TEST_F(KernelGaussianTest, AccessorsGiveSigmaAndWidth) {
    const KernelGaussianPtr kernel(KoKernelGaussianNew(1.5f, 2.0f));
    EXPECT_EQ(KoKernelGaussianGetSigma(kernel.get()), 1.5f);
    EXPECT_EQ(KoKernelGaussianGetWidth(kernel.get()), 7u);
}

TEST_F(KernelGaussianTest, WeightIsTheSinglePrecisionSumOverAllPairs) {
    for (const float sigma : {0.5f, 1.0f, 2.5f, 11.0f}) {
        const KernelGaussianPtr kernel(KoKernelGaussianNew(sigma, 2.0f));
        float weight = 0.0f;
        for (const float a : coefficients(kernel.get())) {
            for (const float b : coefficients(kernel.get())) {
                weight += a * b;
            }
        }
        EXPECT_TRUE(same_float(weight, KoKernelGaussianGetWeight(kernel.get()))) << sigma;
        EXPECT_NEAR(KoKernelGaussianGetWeight(kernel.get()), 1.0, 1e-4);
    }
}

TEST_F(KernelGaussianTest, RecursiveConstantsFollowTheFormulas) {
    for (const float sigma : {0.04f, 0.5f, 0.77f, 1.0f, 2.0f, 3.3f, 4.0f, 9.6f, 13.0f, 40.0f, 80.0f}) {
        SCOPED_TRACE(sigma);
        const KernelGaussianPtr kernel = make_kernel(sigma, 2.0f, recursive);
        ASSERT_NE(kernel, nullptr);
        const Recursion expected = reference_recursion(sigma);
        EXPECT_TRUE(same_float(expected.a1, kernel->a1));
        EXPECT_TRUE(same_float(expected.a2, kernel->a2));
        EXPECT_TRUE(same_float(expected.a3, kernel->a3));
        EXPECT_TRUE(same_float(expected.scale, kernel->scale));
        EXPECT_EQ(kernel->backA1, kernel->a1);
        EXPECT_EQ(kernel->backA2, kernel->a2);
        EXPECT_EQ(kernel->backA3, kernel->a3);
        EXPECT_NEAR(kernel->scale, 1.0 - kernel->a1 - kernel->a2 - kernel->a3, 1e-12);
        for (size_t i = 0; i < 9; ++i) {
            EXPECT_TRUE(same_float(expected.m[i], kernel->boundary[i]))
                << "boundary " << i << ": " << expected.m[i] << ", is " << kernel->boundary[i];
        }
    }
}

TEST_F(KernelGaussianTest, RecursiveKernelHasNoCoefficients) {
    const KernelGaussianPtr kernel = make_kernel(4.0f, 1.75f, recursive);
    EXPECT_EQ(KoKernelGaussianGetSigma(kernel.get()), 4.0f);
    EXPECT_EQ(KoKernelGaussianGetWidth(kernel.get()), 0u);
    EXPECT_EQ(KoKernelGaussianGetWeight(kernel.get()), 0.0f);
    EXPECT_EQ(kernel->storage, nullptr);
}

TEST_F(KernelGaussianTest, ModeIsStoredAsGivenAndChoosesAtOne) {
    const Plane plane = noise_plane(20, 17, 5);
    for (const int32_t mode : {-3, 0, 1, 7}) {
        SCOPED_TRACE(mode);
        const KernelGaussianPtr kernel = make_kernel(1.0f, 2.0f, mode);
        EXPECT_EQ(kernel->mode, mode);
        EXPECT_EQ(KoKernelGaussianGetWidth(kernel.get()), mode < 1 ? 5u : 0u);
        expect_blur(kernel.get(), plane,
                    mode < 1 ? reference_finite(plane, reference_coefficients(1.0f, 2.0f)) : reference_recursive(plane, 1.0f));
    }
}

TEST_F(KernelGaussianTest, TruncationPlaysNoPartInTheRecursiveForm) {
    const KernelGaussianPtr narrow = make_kernel(3.0f, 0.0f, recursive);
    const KernelGaussianPtr wide = make_kernel(3.0f, 100.0f, recursive);
    const Plane plane = noise_plane(30, 30, 3);
    EXPECT_TRUE(same_floats(pixels(blur(narrow.get(), plane).get()), pixels(blur(wide.get(), plane).get())));
}

TEST_F(KernelGaussianTest, InitFillsTheCallersRecord) {
    auto *kernel = static_cast<KernelGaussian *>(KoMalloc(static_cast<int32_t>(sizeof(KernelGaussian))));
    EXPECT_EQ(KoKernelGaussianInit(kernel, 2.0f, 2.0f, finite), KO_OK);
    EXPECT_TRUE(same_floats(reference_coefficients(2.0f, 2.0f), coefficients(kernel)));
    EXPECT_EQ(KoKernelGaussianDelete(kernel), KO_OK);

    KernelGaussian on_stack;
    EXPECT_EQ(KoKernelGaussianInit(&on_stack, 2.0f, 2.0f, recursive), KO_OK); // the recursive form owns nothing
    EXPECT_EQ(on_stack.a1, reference_recursion(2.0f).a1);
    EXPECT_EQ(on_stack.storage, nullptr);
    EXPECT_EQ(on_stack.width, 0u);
}

TEST_F(KernelGaussianTest, DeleteAcceptsNull) { EXPECT_EQ(KoKernelGaussianDelete(nullptr), KO_OK); }

TEST_F(KernelGaussianTest, RecursiveFormOnAllSmallSizes) {
    for (uint64_t width = 1; width <= 40; ++width) {
        for (uint64_t height = 1; height <= 40; ++height) {
            for (const float sigma : {0.5f, 1.7f, 4.0f, 23.0f, 80.0f}) {
                expect_recursive(sigma, width, height);
                if (HasFailure()) {
                    return;
                }
            }
        }
    }
}

TEST_F(KernelGaussianTest, RecursiveFormAroundBlockSizes) {
    for (const uint64_t width : {63u, 64u, 65u, 127u, 128u, 129u, 255u, 256u, 257u, 258u, 259u, 260u, 513u}) {
        expect_recursive(0.5f, width, 3);
        expect_recursive(4.0f, 3, width);
        expect_recursive(5.1f, width, width);
        expect_recursive(80.0f, width, 40);
        expect_recursive(12.5f, 41, width);
    }
}

TEST_F(KernelGaussianTest, RecursiveFormAroundGroupsOfRowsAndPiecesOfColumns) {
    for (const uint64_t height : {1u, 2u, 15u, 16u, 17u, 31u, 32u, 33u, 49u}) {
        for (const uint64_t width : {1u, 255u, 256u, 257u, 511u, 512u, 513u, 769u}) {
            expect_recursive(7.0f, width, height);
        }
    }
}

// Wide pictures and high ones.
TEST_F(KernelGaussianTest, RecursiveFormAtEverySize) {
    for (const TurnSize &size : turn_sizes()) {
        expect_recursive(2.6f, size.width, size.height);
        expect_recursive(1.3f, size.height, size.width);
        ASSERT_FALSE(HasFailure());
    }
}

// A pixel of another scale among small ones: the running values of a line depend on every bit of those before.
TEST_F(KernelGaussianTest, RecursiveFormOfAwkwardPixelsAtEveryWidth) {
    const KernelGaussianPtr kernel = make_kernel(3.1f, 2.0f, recursive);
    uint32_t seed = 0;
    for (const uint64_t width : turn_widths()) {
        Plane plane = noise_plane(width, 5, ++seed);
        for (const float odd : {-1e30f, 1e-40f, -0.0f, 16777216.0f, 3e38f}) {
            plane.pixels[seed * 7919u % plane.pixels.size()] = odd;
            seed += 3;
        }
        expect_blur(kernel.get(), plane, reference_recursive(plane, 3.1f));
        const Plane high = transposed(plane);
        expect_blur(kernel.get(), high, reference_recursive(high, 3.1f));
        ASSERT_FALSE(HasFailure());
    }
}

// A line whose blurred pixels cancel to almost nothing at every third place: the bits of the running values that elsewhere are
// lost in the rounding to single precision show there.
std::vector<float> cancelling_line(const Recursion &k, uint64_t width, uint32_t seed) {
    Noise noise(seed);
    std::vector<double> there(width + 3, 0.0);
    std::vector<double> blurred(width + 3, 0.0);
    for (uint64_t x = width; x-- > 0;) {
        blurred[x] = x % 3 == seed % 3 ? 0.0 : static_cast<double>(noise.uniform(-200.0f, 200.0f));
        const double rest = k.a1 * blurred[x + 1] + k.a2 * blurred[x + 2] + k.a3 * blurred[x + 3];
        there[x + 3] = (blurred[x] - rest) / (k.scale * k.scale);
    }
    std::vector<float> line;
    for (uint64_t x = 3; x < width + 3; ++x) {
        line.push_back(static_cast<float>(there[x] - (k.a1 * there[x - 1] + k.a2 * there[x - 2] + k.a3 * there[x - 3])));
    }
    return line;
}

// All lines are the same, so that the columns keep what the lines give, and the other way round.
TEST_F(KernelGaussianTest, RecursiveFormOfPixelsThatCancel) {
    uint32_t seed = 0;
    for (const float sigma : {0.8f, 1.5f}) {
        const Recursion k = reference_recursion(sigma);
        const KernelGaussianPtr kernel = make_kernel(sigma, 2.0f, recursive);
        for (const uint64_t width : turn_widths()) {
            const uint64_t height = ++seed % 19 + 1;
            const std::vector<float> line = cancelling_line(k, width, seed);
            Plane plane{width, height, {}};
            for (uint64_t y = 0; y < height; ++y) {
                plane.pixels.insert(plane.pixels.end(), line.begin(), line.end());
            }
            expect_blur(kernel.get(), plane, reference_recursive(plane, sigma));
            const Plane high = transposed(plane);
            expect_blur(kernel.get(), high, reference_recursive(high, sigma));
            ASSERT_FALSE(HasFailure());
        }
    }
}

// An infinite pixel spreads with a sign or as a NaN, by where it lies in its line and its column.
TEST_F(KernelGaussianTest, RecursiveFormSpreadsWhatIsNoNumberAsThePlainSumsDo) {
    const KernelGaussianPtr kernel = make_kernel(1.7f, 2.0f, recursive);
    for (uint64_t place = 0; place < 40; ++place) {
        for (const float odd : {infinity, -infinity, not_a_number}) {
            Plane plane = noise_plane(19, 18, 4);
            plane.pixels[place * 8 + 3] = odd;
            expect_blur(kernel.get(), plane, reference_recursive(plane, 1.7f));
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(KernelGaussianTest, PicturesWithoutPixelsGiveSuch) {
    for (const int32_t mode : {finite, recursive}) {
        const KernelGaussianPtr kernel = make_kernel(2.0f, 2.0f, mode);
        for (const auto &[width, height] : {std::pair<uint64_t, uint64_t>{0, 40}, {40, 0}, {0, 0}}) {
            const RealImagePtr image(KoRealImageNew(width, height));
            RealImage *result = nullptr;
            EXPECT_EQ(KoKernelGaussianConvolution(kernel.get(), image.get(), &result), KO_OK);
            const RealImagePtr made(result);
            ASSERT_NE(made, nullptr);
            EXPECT_EQ(made->width, width);
            EXPECT_EQ(made->height, height);
        }
    }
}

TEST_F(KernelGaussianTest, FiniteFormOnAllSmallSizes) {
    for (uint64_t width = 1; width <= 40; ++width) {
        for (uint64_t height = 1; height <= 40; ++height) {
            for (const float sigma : {0.5f, 1.0f, 1.4f, 2.9f, 4.0f}) {
                expect_finite(sigma, 1.75f, width, height);
                if (HasFailure()) {
                    return;
                }
            }
        }
    }
}

TEST_F(KernelGaussianTest, FiniteFormAroundBlockSizes) {
    for (const uint64_t width : {63u, 64u, 65u, 127u, 128u, 129u, 255u, 256u, 257u, 258u, 259u, 260u, 513u}) {
        expect_finite(0.5f, 2.0f, width, 3);
        expect_finite(4.0f, 1.75f, width, 15);
        expect_finite(4.0f, 1.75f, 15, width);
        expect_finite(2.0f, 2.0f, width, width);
        expect_finite(80.0f, 2.0f, width, width); // 321 coefficients
    }
}

// Kernels of 3, 5, 7, 9 and 15 coefficients.
TEST_F(KernelGaussianTest, FiniteFormAtEverySize) {
    for (const TurnSize &size : turn_sizes()) {
        for (const float sigma : {0.4f, 1.0f, 1.4f, 2.0f, 3.5f}) {
            expect_finite(sigma, 2.0f, size.width, size.height);
            expect_finite(sigma, 2.0f, size.height, size.width);
        }
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(KernelGaussianTest, FiniteFormOfAwkwardPixelsAtEveryWidth) {
    uint32_t seed = 0;
    for (const uint64_t width : turn_widths()) {
        const float sigma = ++seed % 2 == 0 ? 1.0f : 0.5f;
        const KernelGaussianPtr kernel = make_kernel(sigma, 2.0f, finite);
        Plane plane = noise_plane(width, 12, seed);
        const std::vector<float> odd = awkward_floats(plane.pixels.size(), seed);
        for (uint64_t i = seed % 13; i < odd.size(); i += 29) {
            plane.pixels[i] = odd[i];
        }
        expect_blur(kernel.get(), plane, reference_finite(plane, reference_coefficients(sigma, 2.0f)));
        const Plane high = transposed(plane);
        expect_blur(kernel.get(), high, reference_finite(high, reference_coefficients(sigma, 2.0f)));
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(KernelGaussianTest, FiniteFormOfOneCoefficientMoreOrLessThanThePicture) {
    for (const float sigma : {0.5f, 1.5f, 4.0f, 8.0f, 16.0f, 32.0f}) {
        const uint64_t width = KoKernelGaussianGetWidth(make_kernel(sigma, 2.0f, finite).get());
        for (uint64_t more = 0; more < 5; ++more) {
            expect_finite(sigma, 2.0f, width - 1 + more, width + 1);
            expect_finite(sigma, 2.0f, width + 1, width - 1 + more);
        }
    }
}

// The result is written and nothing beside it, whether it is the picture itself or another image.
TEST_F(KernelGaussianTest, FiniteFormWritesItsResultAlone) {
    const KernelGaussianPtr kernel = make_kernel(1.0f, 2.0f, finite);
    for (const uint64_t width : turn_widths()) {
        const Plane plane = noise_plane(width, 7, static_cast<uint32_t>(width));
        const Plane expected = reference_finite(plane, reference_coefficients(1.0f, 2.0f));
        const RealImagePtr image = make_image(width, 7, plane.pixels);
        const RealImagePtr given = make_image(width, 7, noise_plane(width, 7, 1).pixels);
        for (RealImage *result : {given.get(), image.get()}) {
            const PlaneGuard surround(result);
            RealImage *written = result;
            ASSERT_EQ(KoKernelGaussianConvolution(kernel.get(), image.get(), &written), KO_OK);
            ASSERT_EQ(written, result);
            ASSERT_TRUE(same_floats(expected.pixels, pixels(result))) << "width " << width;
            ASSERT_TRUE(surround.holds()) << "width " << width;
        }
    }
}

TEST_F(KernelGaussianTest, ReachOfZeroCopies) {
    const KernelGaussianPtr kernel = make_kernel(2.0f, 0.0f, finite);
    EXPECT_EQ(KoKernelGaussianGetWidth(kernel.get()), 1u);
    const Plane plane = noise_plane(9, 4, 1);
    expect_blur(kernel.get(), plane, plane);
}

TEST_F(KernelGaussianTest, FiniteFormIsBlackWhereThePictureIsSmallerThanTheKernel) {
    const KernelGaussianPtr kernel = make_kernel(2.0f, 2.0f, finite); // 9 coefficients
    expect_blur(kernel.get(), constant_plane(8, 200, 99.0f), constant_plane(8, 200, 0.0f));
    expect_blur(kernel.get(), constant_plane(200, 8, 99.0f), constant_plane(200, 8, 0.0f));
    expect_blur(kernel.get(), constant_plane(1, 1, 99.0f), constant_plane(1, 1, 0.0f));
    EXPECT_GT(pixels(blur(kernel.get(), constant_plane(9, 9, 99.0f)).get())[4 * 9 + 4], 98.9f);
}

TEST_F(KernelGaussianTest, FiniteFormDarkensTowardTheBorder) {
    const KernelGaussianPtr kernel = make_kernel(2.0f, 2.0f, finite);
    const std::vector<float> result = pixels(blur(kernel.get(), constant_plane(40, 40, 200.0f)).get());
    EXPECT_NEAR(result[20 * 40 + 20], 200.0f, 0.01f);
    EXPECT_LT(result[20 * 40], 130.0f);              // half of the kernel, and its middle, lie inside at an edge
    EXPECT_LT(result[0], 0.65f * 0.65f * 200.0f);    // in a corner the loss is squared
    EXPECT_NEAR(result[20 * 40 + 4], 200.0f, 0.01f); // the first pixel with all of its terms
    EXPECT_LT(result[20 * 40 + 3], 199.0f);          // the last one without
    EXPECT_LT(result[20 * 40 + 39], 130.0f);
}

TEST_F(KernelGaussianTest, RecursiveFormKeepsAConstantToTheVeryBorder) {
    for (const float sigma : {0.5f, 1.0f, 4.0f, 20.0f, 80.0f}) {
        const KernelGaussianPtr kernel = make_kernel(sigma, 2.0f, recursive);
        for (const uint64_t size : {1u, 2u, 3u, 40u, 129u}) {
            for (const float pixel : pixels(blur(kernel.get(), constant_plane(size, size, 200.0f)).get())) {
                ASSERT_NEAR(pixel, 200.0f, 0.01f) << "sigma " << sigma << ", size " << size;
            }
        }
    }
}

TEST_F(KernelGaussianTest, RecursiveFormBlursAsAGaussianDoes) {
    const float sigma = 6.0f;
    Plane plane = constant_plane(121, 121, 0.0f);
    plane.pixels[60 * 121 + 60] = 10000.0f;
    const RealImagePtr result = blur(make_kernel(sigma, 2.0f, recursive).get(), plane);
    double sum = 0.0;
    double spread = 0.0;
    for (int64_t y = 0; y < 121; ++y) {
        for (int64_t x = 0; x < 121; ++x) {
            const double pixel = static_cast<double>(result->rows[y][x]);
            sum += pixel;
            spread += pixel * static_cast<double>((x - 60) * (x - 60));
        }
    }
    EXPECT_NEAR(sum, 10000.0, 10.0);
    EXPECT_NEAR(std::sqrt(spread / sum), static_cast<double>(sigma), 0.2);
}

TEST_F(KernelGaussianTest, PixelsThatAreNoNumbersFollowTheSameSums) {
    for (const float odd : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
        Plane plane = noise_plane(37, 29, 8);
        plane.pixels[14 * 37 + 11] = odd;
        expect_blur(make_kernel(2.0f, 2.0f, recursive).get(), plane, reference_recursive(plane, 2.0f));
        const Plane expected = reference_finite(plane, reference_coefficients(2.0f, 2.0f));
        expect_blur(make_kernel(2.0f, 2.0f, finite).get(), plane, expected);
        EXPECT_TRUE(std::isfinite(expected.pixels[0])); // the finite form keeps them to the kernel's reach
    }
}

TEST_F(KernelGaussianTest, TinyAndHugeValuesKeepTheirBits) {
    Plane plane = noise_plane(45, 33, 9);
    for (size_t i = 0; i < plane.pixels.size(); ++i) {
        plane.pixels[i] *= i % 3 == 0 ? 1e-39f : i % 3 == 1 ? 1e30f : -1.0f;
    }
    expect_blur(make_kernel(3.0f, 2.0f, recursive).get(), plane, reference_recursive(plane, 3.0f));
    expect_blur(make_kernel(3.0f, 2.0f, finite).get(), plane, reference_finite(plane, reference_coefficients(3.0f, 2.0f)));
}

TEST_F(KernelGaussianTest, FiniteFormFillsAResultOfTheRightSize) {
    const Plane plane = noise_plane(31, 22, 4);
    const Plane expected = reference_finite(plane, reference_coefficients(1.0f, 2.0f));
    const KernelGaussianPtr kernel = make_kernel(1.0f, 2.0f, finite);
    const RealImagePtr image = make_image(31, 22, plane.pixels);
    const RealImagePtr given(KoRealImageNew(31, 22));
    RealImage *result = given.get();
    EXPECT_EQ(KoKernelGaussianConvolution(kernel.get(), image.get(), &result), KO_OK);
    EXPECT_EQ(result, given.get());
    EXPECT_TRUE(same_floats(expected.pixels, pixels(given.get())));

    result = image.get(); // the last step only writes it, so the picture itself will do
    EXPECT_EQ(KoKernelGaussianConvolution(kernel.get(), image.get(), &result), KO_OK);
    EXPECT_EQ(result, image.get());
    EXPECT_TRUE(same_floats(expected.pixels, pixels(image.get())));
}

TEST_F(KernelGaussianTest, FiniteFormRefusesAResultOfAnotherSize) {
    const PrintCapture quiet;
    const KernelGaussianPtr kernel = make_kernel(1.0f, 2.0f, finite);
    const RealImagePtr image = make_image(31, 22, noise_plane(31, 22, 4).pixels);
    const std::pair<uint64_t, uint64_t> sizes[] = {{22, 31}, {31, 23}, {30, 22}};
    for (const auto &[width, height] : sizes) {
        KoStatusClear();
        const Plane before = noise_plane(width, height, 77);
        const RealImagePtr given = make_image(width, height, before.pixels);
        RealImage *result = given.get();
        EXPECT_EQ(KoKernelGaussianConvolution(kernel.get(), image.get(), &result), KO_ERR_INVALID_ARGUMENT);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INVALID_ARGUMENT);
        EXPECT_STREQ(KoErrorGetLastErrorMessage(), "[ERROR] Invalid argument");
        EXPECT_EQ(pixels(given.get()), before.pixels);
    }
    EXPECT_TRUE(quiet.texts().empty());
}

TEST_F(KernelGaussianTest, RecursiveFormAlwaysStoresANewImage) {
    const KernelGaussianPtr kernel = make_kernel(1.0f, 2.0f, recursive);
    const Plane plane = noise_plane(31, 22, 4);
    const RealImagePtr image = make_image(31, 22, plane.pixels);
    const std::pair<uint64_t, uint64_t> sizes[] = {{31, 22}, {5, 3}};
    for (const auto &[width, height] : sizes) {
        const Plane before = noise_plane(width, height, 77);
        const RealImagePtr given = make_image(width, height, before.pixels);
        RealImage *result = given.get();
        EXPECT_EQ(KoKernelGaussianConvolution(kernel.get(), image.get(), &result), KO_OK);
        ASSERT_NE(result, given.get());
        const RealImagePtr made(result);
        EXPECT_TRUE(same_floats(reference_recursive(plane, 1.0f).pixels, pixels(made.get())));
        EXPECT_EQ(pixels(given.get()), before.pixels);
    }
}

TEST_F(KernelGaussianTest, SuccessLeavesNoStatus) {
    blur(make_kernel(1.0f, 2.0f, finite).get(), noise_plane(12, 12, 1));
    blur(make_kernel(1.0f, 2.0f, finite).get(), noise_plane(3, 3, 1));
    blur(make_kernel(1.0f, 2.0f, recursive).get(), noise_plane(12, 12, 1));
    EXPECT_EQ(KoErrorGetLastError(), KO_OK);
    EXPECT_STREQ(KoErrorGetLastErrorMessage(), "");
}

TEST_F(KernelGaussianTest, PrintWritesATable) {
    // 1 / (1 + 2 exp(-2)) is 0.787
    EXPECT_EQ(printed(make_kernel(0.5f, 2.0f, finite).get()), "     #|     1|     2|     3|\n"
                                                              "------+------+------+------|\n"
                                                              "     G| 0.107| 0.787| 0.107|\n"
                                                              "------+------+------+------|\n");
    EXPECT_EQ(printed(make_kernel(0.5f, 2.0f, recursive).get()), "     #|\n"
                                                                 "------|\n"
                                                                 "     G|\n"
                                                                 "------|\n");
}

TEST_F(KernelGaussianTest, OneKernelServesSeveralThreads) {
    const Plane plane = noise_plane(70, 51, 6);
    for (const int32_t mode : {finite, recursive}) {
        const KernelGaussianPtr kernel = make_kernel(2.0f, 2.0f, mode);
        const RealImagePtr image = make_image(70, 51, plane.pixels);
        std::vector<RealImagePtr> results(4);
        std::vector<std::thread> threads;
        for (RealImagePtr &slot : results) {
            threads.emplace_back([&] {
                RealImage *result = nullptr;
                KoKernelGaussianConvolution(kernel.get(), image.get(), &result);
                slot.reset(result);
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        const Plane expected =
            mode == finite ? reference_finite(plane, reference_coefficients(2.0f, 2.0f)) : reference_recursive(plane, 2.0f);
        for (const RealImagePtr &result : results) {
            ASSERT_NE(result, nullptr);
            EXPECT_TRUE(same_floats(expected.pixels, pixels(result.get())));
        }
    }
}

} // namespace
