// The fit of a curve to a pair of images, and the pool of power curves that all fits share.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <latch>
#include <map>
#include <numeric>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "ko/trc.h"

#include "awkward_floats.h"
#include "capture.h"
#include "library_test.h"
#include "pictures.h"
#include "reference_fit.h"
#include "turn_sizes.h"

namespace {

using namespace ko_test;

using Entries = std::vector<uint32_t>;
using Pixels = std::vector<PixelPair>;

Entries entries_of(const TRC *trc) { return {trc->array, trc->array + trc->size}; }

// Every test starts with a pool of 256 entries, since each starts the library anew.
class TrcComputeTest : public LibraryTest {
  protected:
    // Fits and compares with the plain reference; gives the fitted entries.
    Entries expect_fit(uint64_t size, const Pixels &pixels, uint64_t width = 1) {
        pool_size_ = std::max(pool_size_, size);
        const Entries fitted = fit(size, pixels, width);
        EXPECT_EQ(fitted, reference_fit(size, pool_size_, pixels)) << "size " << size << ", pool " << pool_size_;
        EXPECT_TRUE(std::is_sorted(fitted.begin(), fitted.end()));
        return fitted;
    }

    static Entries fit(uint64_t size, const Pixels &pixels, uint64_t width = 1) {
        const ImagePair images(width, pixels);
        const TRCPtr trc(KoTRCNew(size));
        expect_success([&] { return fit_whole(trc.get(), images); });
        EXPECT_EQ(trc->size, size);
        return trc->array == nullptr ? Entries{} : entries_of(trc.get());
    }

    void restart() {
        KoRelease();
        KoInit(nullptr, nullptr);
        pool_size_ = 256;
    }

    uint64_t pool_size_ = 256;
};

// count pairs made one by one
Pixels make_pixels(uint64_t count, const std::function<PixelPair(uint64_t i)> &pair) {
    Pixels pixels;
    for (uint64_t i = 0; i < count; ++i) {
        pixels.push_back(pair(i));
    }
    return pixels;
}

float level(uint64_t value) { return static_cast<float>(value); }

// ---- against the reference ----

struct Picture {
    std::string name;
    std::function<Pixels()> make;
};

Pixels noise_cloud() {
    Noise noise(1);
    return make_pixels(48 * 40, [&](uint64_t) { return PixelPair{noise.uniform(0.0f, 255.9f), noise.uniform(0.0f, 255.9f)}; });
}

Pixels skewed_cloud() {
    Noise noise(2);
    return make_pixels(48 * 40, [&](uint64_t) {
        const float u = noise.uniform(0.0f, 1.0f);
        return PixelPair{u * u * u * 255.0f, std::sqrt(u) * 250.0f + noise.uniform(-5.0f, 5.0f)};
    });
}

// Levels with thousands of pixels beside levels with one: sums that single precision no longer holds exactly.
Pixels heavy_cloud() {
    Noise noise(3);
    return make_pixels(48 * 200, [&](uint64_t i) {
        const float input = i % 100 == 0 ? noise.uniform(0.0f, 255.0f) : 77.0f;
        return PixelPair{input, noise.uniform(60000.0f, 65535.0f)};
    });
}

// Negative, enormous and undefined pixels; only the low 16 bits of a truncated value count.
Pixels odd_cloud() {
    const std::array<float, 16> odd{not_a_number, infinity,  -infinity, -0.5f, -1.0f,  -2.0f, 256.0f, 511.9f,
                                    65536.0f,     65553.75f, -65519.0f, 1e12f, -1e12f, 1e30f, -1e30f, 131100.0f};
    Noise noise(4);
    return make_pixels(48 * 40, [&](uint64_t i) {
        PixelPair pair{noise.uniform(-20.0f, 300.0f), noise.uniform(-20.0f, 300.0f)};
        (i % 3 == 0 ? pair.input : pair.target) = odd[i % odd.size()];
        return pair;
    });
}

const std::vector<Picture> &pictures() {
    static const std::vector<Picture> all{
        {"Noise", noise_cloud},
        {"Sparse", [] { return sparse_cloud(48 * 40, 5); }},
        {"Skewed", skewed_cloud},
        {"Heavy", heavy_cloud},
        {"Odd", odd_cloud},
        {"Identical",
         [] { return make_pixels(48 * 64, [](uint64_t i) {
                  return PixelPair{level(i % 256), level(i % 256)};
              }); }},
        {"Falling",
         [] { return make_pixels(48 * 64, [](uint64_t i) {
                  return PixelPair{level(i % 256), level(255 - i % 256)};
              }); }},
        {"OneLevel", [] { return make_pixels(48, [](uint64_t) {
                              return PixelPair{100.75f, 50.5f};
                          }); }},
        {"OnePixel",
         [] {
             return Pixels{{3.0f, 200.0f}};
         }},
        {"Black", [] { return make_pixels(48, [](uint64_t) {
                           return PixelPair{0.0f, 0.0f};
                       }); }},
        {"Empty", [] { return Pixels{}; }},
    };
    return all;
}

using FitCase = std::tuple<uint64_t, Picture>;

class TrcComputeSizes : public TrcComputeTest, public testing::WithParamInterface<FitCase> {};

TEST_P(TrcComputeSizes, FitsAsThePlainReference) {
    const auto &[size, picture] = GetParam();
    const Pixels pixels = picture.make();
    const Entries first = expect_fit(size, pixels, pixels.empty() ? 1 : std::min<uint64_t>(48, pixels.size()));
    if (!pixels.empty()) {
        EXPECT_EQ(expect_fit(size, pixels, 1), first); // how the pairs lie in the images is no matter
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, TrcComputeSizes,
                         testing::Combine(testing::Values(1, 2, 3, 64, 128, 255, 256, 257, 300, 512, 1024),
                                          testing::ValuesIn(pictures())),
                         [](const auto &each) {
                             return std::get<1>(each.param).name + std::to_string(std::get<0>(each.param));
                         });

// Sizes on both sides of every group of rows and every piece of a row that the table of costs may be worked in.
TEST_F(TrcComputeTest, CurvesOfEverySizeFitAsThePlainReference) {
    std::vector<uint64_t> sizes = with_all_up_to(72, {});
    for (const uint64_t middle : {96u, 128u, 192u, 256u, 320u, 384u, 512u, 768u, 1024u}) {
        sizes.insert(sizes.end(), {middle - 1, middle, middle + 1});
    }
    sizes.insert(sizes.end(), {83, 99, 240, 270, 1000, 4096});
    for (const uint64_t size : sizes) {
        Noise noise(static_cast<uint32_t>(size));
        const float top = level(std::min<uint64_t>(size, 256));
        expect_fit(size, make_pixels(size < 300 ? 400 : 3000, [&](uint64_t) {
                       const float input = noise.uniform(0.0f, top);
                       return PixelPair{input, 0.3f * input + noise.uniform(0.0f, 0.7f * top)};
                   }));
        ASSERT_FALSE(HasFailure());
    }
}

// ---- sums in single precision ----

// Above 2 to the 24 a sum no longer takes every level: what is lost depends on the order of the pixels.
TEST_F(TrcComputeTest, SumsOfOneLevelLoseUnits) {
    const uint64_t width = 500;
    for (const auto &[size, key] : {std::pair<uint64_t, float>{1024, 255.9f}, {1024, 10.0f}, {256, 255.0f}, {300, 77.5f}}) {
        const float least = size == 256 ? 1.0f : 256.0f / level(size) + 0.01f; // one level of the curve
        Pixels pixels = make_pixels(width * 600, [&, k = key](uint64_t i) {
            return PixelPair{k, i < 80000 ? 255.0f : least * level(1 + i % 3 % 2)};
        });
        expect_fit(size, pixels, width);
        std::reverse(pixels.begin(), pixels.end());
        expect_fit(size, pixels, width);
        Noise noise(5);
        for (PixelPair &pair : pixels) {
            pair.target = noise.next() % 16 == 0 ? level(noise.next() % 65536) / 64.0f : least;
        }
        expect_fit(size, pixels, width);
        // Two levels in turn: neither has only every second, fourth or eighth pixel of the area for its own.
        for (size_t i = 0; i < pixels.size(); ++i) {
            pixels[i].input = i * 7 % 11 < 5 ? key : key / 2.0f;
        }
        expect_fit(size, pixels, width);
    }
}

// A target level is at most 65535: 257 pixels of it take a sum above 2 to the 24, and what follows is rounded.
TEST_F(TrcComputeTest, SumsOfLargeTargetsLoseUnits) {
    for (const uint64_t few : {200u, 256u, 257u, 258u, 300u, 5000u}) {
        const Pixels pixels = make_pixels(few + 70000, [=](uint64_t i) {
            return PixelPair{level(9), i % 280 == 0 && i / 280 < few ? 65535.0f : level(i % 4)};
        });
        expect_fit(256, pixels);
        expect_fit(20, pixels, 70);
    }
}

// A count stops at 2 to the 24, while the sum of the targets goes on in steps that are no longer the level.
TEST_F(TrcComputeTest, CountsOfOneLevelStop) {
    const uint64_t width = 4099;
    const uint64_t height = 4396;
    const RealImagePtr image(KoRealImageNew(width, height));
    KoRealImageFill(image.get(), 100.0f);
    std::vector<float> sums(256, 0.0f);
    std::vector<float> counts(256, 0.0f);
    for (uint64_t i = 0; i < width * height; ++i) {
        sums[100] += 100.0f;
        counts[100] += 1.0f;
    }
    ASSERT_EQ(counts[100], 16777216.0f);
    RealImageLineIterator input;
    RealImageLineIterator target;
    KoRealImageLineIteratorInit(&input, image.get());
    KoRealImageLineIteratorInit(&target, image.get());
    const TRCPtr trc(KoTRCNew(256));
    expect_success([&] { return KoTRCCompute(trc.get(), &input, &target); });
    const Entries expected = ReferenceFit(256, 256).fit(sums, counts);
    EXPECT_EQ(entries_of(trc.get()), expected);
    counts[100] = static_cast<float>(width * height);
    EXPECT_NE(ReferenceFit(256, 256).fit(sums, counts), expected) << "the picture does not tell the two counts apart";
    EXPECT_NE(expected[100], 100u);
}

// ---- what the fit means ----

TEST_F(TrcComputeTest, IdenticalImagesOnAFullRangeGiveTheIdentity) {
    const Entries fitted = expect_fit(256, make_pixels(256 * 64, [](uint64_t i) {
                                          return PixelPair{level(i % 256), level(i % 256)};
                                      }));
    for (uint32_t i = 0; i < 256; ++i) {
        ASSERT_EQ(fitted[i], i);
    }
}

TEST_F(TrcComputeTest, LevelsWithoutPixelsTakeTheWinningCurve) {
    const auto every_eighth = [](uint64_t i) { return PixelPair{level(i % 32 * 8), level(i % 32 * 8)}; };
    const Entries fitted = expect_fit(256, make_pixels(32 * 50, every_eighth));
    for (uint32_t i = 0; i < 256; ++i) {
        ASSERT_EQ(fitted[i], i); // the exponent 1.0 costs nothing
    }
}

// All six curves cost nothing, and on a tie the first one, with the exponent 0.5, stays.
TEST_F(TrcComputeTest, AnEmptyAreaGivesTheFirstCurve) {
    const Entries fitted = expect_fit(256, {});
    for (uint32_t i = 0; i < 256; ++i) {
        const double curve = std::sqrt(i / 255.0) * 255.0;
        ASSERT_NEAR(fitted[i], curve, 0.5001) << "level " << i;
    }
}

TEST_F(TrcComputeTest, AFallingTargetGivesAFlatCurve) {
    const auto falling = [](uint64_t i) { return PixelPair{level(64 + i % 128), level(200 - i % 128)}; };
    const Entries fitted = expect_fit(256, make_pixels(128 * 100, falling));
    for (size_t i = 65; i < 192; ++i) {
        ASSERT_EQ(fitted[i], fitted[64]) << "level " << i;
    }
}

TEST_F(TrcComputeTest, ValuesAreTruncatedNotRounded) {
    const Entries fitted = expect_fit(256, make_pixels(1000, [](uint64_t i) {
                                          return PixelPair{i % 2 == 0 ? 99.9f : 100.0f, i % 2 == 0 ? 49.9f : 149.0f};
                                      }));
    EXPECT_EQ(fitted[99], 49u);
    EXPECT_EQ(fitted[100], 149u);
}

// Above 256 levels both images are scaled by size / 256 before they are truncated; up to 256 levels neither is.
TEST_F(TrcComputeTest, OnlyMoreThan256LevelsScaleTheImages) {
    const Pixels pixels = make_pixels(1000, [](uint64_t i) {
        return i % 2 == 0 ? PixelPair{100.75f, 50.75f} : PixelPair{100.25f, 40.0f};
    });
    const Entries twice = expect_fit(512, pixels);
    EXPECT_EQ(twice[200], 80u);
    EXPECT_EQ(twice[201], 101u);
    restart();
    const Entries once = expect_fit(256, pixels);
    EXPECT_EQ(once[100], 45u);
    restart();
    const Entries unscaled = expect_fit(128, pixels);
    EXPECT_EQ(unscaled[100], 45u);
}

TEST_F(TrcComputeTest, PixelsPastTheCurveDoNotCount) {
    const Pixels good = sparse_cloud(400, 6);
    Pixels mixed;
    for (const PixelPair &pair : good) {
        mixed.push_back(pair);
        mixed.push_back({-1.0f, 10.0f}); // level 65535
        mixed.push_back({256.0f, 10.0f});
        mixed.push_back({40000.0f, 10.0f});
    }
    EXPECT_EQ(expect_fit(256, mixed), expect_fit(256, good));
}

// There is no limit, only the cut to 16 bits: such values come back as ordinary levels.
TEST_F(TrcComputeTest, ValuesWrapAt65536) {
    const auto pairs = [](float input, float target) {
        return make_pixels(500, [=](uint64_t) { return PixelPair{input, target}; });
    };
    const Entries plain = expect_fit(256, pairs(17.0f, 40.0f));
    EXPECT_EQ(plain[17], 40u);
    EXPECT_EQ(expect_fit(256, pairs(65553.0f, 65576.0f)), plain);
    EXPECT_EQ(expect_fit(256, pairs(-65519.0f, -65496.0f)), plain);
    EXPECT_EQ(expect_fit(256, pairs(17.0f, -1.0f))[17], 255u); // a target level of 65535
    EXPECT_EQ(expect_fit(256, pairs(not_a_number, 40.0f))[0], 40u);
    EXPECT_EQ(expect_fit(256, pairs(infinity, 40.0f))[0], 40u);
}

// ---- ties and rounding ----

// One pixel that lies as near to one curve as to the next: the earlier curve stays.
TEST_F(TrcComputeTest, ATieBetweenCurvesGoesToTheEarlier) {
    const ReferenceCurves curves(256);
    for (size_t curve = 0; curve + 1 < 6; ++curve) {
        for (size_t i = curve + 1; i < 256; i += 8) {
            const uint32_t both = uint32_t{curves.levels[curve * 256 + i]} + curves.levels[(curve + 1) * 256 + i];
            if (both % 2 == 0) {
                expect_fit(256, {{level(i), level(both / 2)}});
            }
        }
    }
}

// Levels on both sides of a middle with mirrored targets that fall: all their pixels together lie half way between two levels,
// and the rounding of their means and path costs decides between the two.
Pixels mirrored_pixels(uint64_t size, uint32_t seed) {
    Noise noise(seed);
    const uint64_t reach = 1 + noise.next() % 12;
    const uint64_t middle = reach + noise.next() % (size - 2 * reach - 1);
    Pixels pixels;
    for (uint64_t distance = 0; distance < reach; ++distance) {
        const uint64_t count = 1 + noise.next() % 9;
        for (uint64_t i = 0; i < count; ++i) {
            const uint64_t above = 1 + noise.next() % std::min<uint64_t>(60, middle + 1);
            pixels.push_back({level(middle - distance), level(middle + above)});
            pixels.push_back({level(middle + 1 + distance), level(middle + 1 - above)});
        }
    }
    return pixels;
}

TEST_F(TrcComputeTest, MeansHalfWayBetweenTwoLevels) {
    for (const uint64_t size : {64u, 128u, 256u}) {
        for (uint32_t seed = 1; seed <= 40; ++seed) {
            expect_fit(size, mirrored_pixels(size, seed));
        }
    }
}

// Few pixels far above all curves against many below: costs so large that their sums in single precision choose the curve.
TEST_F(TrcComputeTest, CostsBeyondSinglePrecision) {
    for (const uint32_t seed : {3681u, 4761u, 7103u, 7667u, 1u, 2u, 3u}) {
        Noise noise(seed);
        for (int i = 0; i < 4; ++i) {
            noise.next();
        }
        const float high = level(1 + noise.next() % 31);
        const float low = level(1 + noise.next() % 31);
        Pixels pixels(1 + noise.next() % 3, {high, 65535.0f});
        pixels.resize(pixels.size() + noise.next() % 6000, {low, 0.0f});
        const uint32_t extra = noise.next() % 3;
        for (uint32_t i = 0; i < extra; ++i) {
            const float input = level(noise.next() % 33);
            pixels.push_back({input, level(noise.next() % 256)});
        }
        expect_fit(33, pixels);
    }
}

// Pairs of levels whose pixels pull as much toward one curve as toward another, by whole numbers: the two curves cost the same,
// but for what single precision makes of the order in which their costs are added.
Pixels balanced_pixels(const ReferenceCurves &curves, uint32_t seed) {
    Noise noise(seed);
    const uint64_t first = noise.next() % 5;
    const uint64_t second = first + 1 + noise.next() % (5 - first);
    Pixels pixels;
    for (int pair = 0; pair < 3; ++pair) {
        std::array<PixelPair, 2> kinds{};
        std::array<int64_t, 2> pulls{};
        for (size_t k = 0; k < 2; ++k) {
            const uint64_t i = 1 + noise.next() % (curves.size - 2);
            const int64_t a = curves.levels[first * curves.size + i];
            const int64_t b = curves.levels[second * curves.size + i];
            const int64_t target = noise.next() % 256;
            kinds[k] = {level(i), static_cast<float>(target)};
            pulls[k] = (a - b) * (a + b - 2 * target);
        }
        const int64_t common = std::gcd(pulls[0], pulls[1]);
        const bool opposite = pulls[0] * pulls[1] < 0;
        if (opposite && std::abs(pulls[0]) + std::abs(pulls[1]) <= 4000 * common) {
            pixels.insert(pixels.end(), static_cast<size_t>(std::abs(pulls[1]) / common), kinds[0]);
            pixels.insert(pixels.end(), static_cast<size_t>(std::abs(pulls[0]) / common), kinds[1]);
        }
    }
    return pixels;
}

// With each of these seeds another curve wins if costs are added in another order (from the end, or in 2, 4, 8 or 16 sums side
// by side) or in double precision.
TEST_F(TrcComputeTest, CostsOfACurveAreAddedInTheOrderOfTheLevels) {
    const ReferenceCurves curves(256);
    for (const uint32_t seed : {291u, 633u, 1056u, 1251u, 1339u, 2605u, 4023u, 4318u, 5638u, 5883u, 7387u, 8271u}) {
        const Pixels pixels = balanced_pixels(curves, seed);
        EXPECT_FALSE(pixels.empty());
        expect_fit(256, pixels);
    }
}

TEST_F(TrcComputeTest, AnyHandfulOfPixels) {
    Noise noise(15);
    for (int round = 0; round < 200; ++round) {
        const uint64_t size = 1 + noise.next() % 270;
        expect_fit(size, make_pixels(1 + noise.next() % 30, [&](uint64_t) {
                       const float input = level(noise.next() % std::min<uint64_t>(size, 256));
                       return PixelPair{input, level(noise.next() % 256)};
                   }));
    }
}

// ---- areas and records ----

// Two areas of one shape at different places of images of different widths.
TEST_F(TrcComputeTest, FitsRectanglesOfImagesOfAnyWidth) {
    Noise noise(7);
    const auto value = [&](uint64_t, uint64_t) { return noise.uniform(0.0f, 255.0f); };
    const RealImagePtr input = make_image(50, 30, value);
    const RealImagePtr target = make_image(33, 41, value);
    const uint64_t width = 21;
    const Pixels pixels = make_pixels(width * 17, [&](uint64_t i) {
        const uint64_t x = i % width;
        const uint64_t y = i / width;
        return PixelPair{input->rows[y + 11][x + 5], target->rows[y + 20][x + 12]};
    });
    const RealImageLineIteratorPtr input_lines(KoRealImageLineIteratorNewSubImage(input.get(), 5, 11, width, 17));
    const RealImageLineIteratorPtr target_lines(KoRealImageLineIteratorNewSubImage(target.get(), 12, 20, width, 17));
    const TRCPtr trc(KoTRCNew(256));
    expect_success([&] { return KoTRCCompute(trc.get(), input_lines.get(), target_lines.get()); });
    EXPECT_EQ(entries_of(trc.get()), reference_fit(256, 256, pixels));
    EXPECT_EQ(KoRealImageLineIteratorHasNext(input_lines.get()), 0);
    EXPECT_EQ(KoRealImageLineIteratorHasNext(target_lines.get()), 0);
}

bool same_place(const RealImageLineIterator &a, const RealImageLineIterator &b) {
    return a.image == b.image && a.x_start == b.x_start && a.y_start == b.y_start && a.width == b.width &&
           a.height == b.height && a.next_line_increment == b.next_line_increment && a.line == b.line &&
           a.line_end == b.line_end && a.end == b.end;
}

// Values of all kinds in areas of all sizes, some of whose lines were taken before; the iterators stand on the last line then.
TEST_F(TrcComputeTest, FitsAreasOfEverySizeAndLeavesTheIteratorsAtTheirEnds) {
    constexpr uint64_t sizes[] = {40, 300, 256, 65};
    uint32_t seed = 0;
    for (const TurnSize &area : turn_sizes()) {
        const auto [width, height] = area;
        const uint64_t size = sizes[++seed % 4];
        const uint64_t taken = seed % 7 == 0 ? 1 : 0;
        SCOPED_TRACE(testing::Message() << width << " by " << height << ", size " << size << ", " << taken << " lines taken");
        const RealImagePtr input = make_image(width + 5, height + 3, turning_noise((width + 5) * (height + 3), seed));
        const RealImagePtr target = make_image(width + 2, height + 4, turning_noise((width + 2) * (height + 4), seed + 999));
        RealImageLineIterator input_lines;
        RealImageLineIterator target_lines;
        KoRealImageLineIteratorInitSubImage(&input_lines, input.get(), seed % 5, 3 - seed % 4, width, height);
        KoRealImageLineIteratorInitSubImage(&target_lines, target.get(), seed % 3, 4 - seed % 5, width, height);
        for (uint64_t i = 0; i < taken; ++i) {
            KoRealImageLineIteratorNext(&input_lines);
            KoRealImageLineIteratorNext(&target_lines);
        }
        RealImageLineIterator input_walk = input_lines;
        RealImageLineIterator target_walk = target_lines;
        Pixels pixels;
        while (KoRealImageLineIteratorHasNext(&input_walk) != 0) {
            const float *input_line = KoRealImageLineIteratorNext(&input_walk);
            const float *target_line = KoRealImageLineIteratorNext(&target_walk);
            for (uint64_t x = 0; x < width; ++x) {
                pixels.push_back({input_line[x], target_line[x]});
            }
        }
        const TRCPtr trc(KoTRCNew(size));
        ASSERT_EQ(KoTRCCompute(trc.get(), &input_lines, &target_lines), KO_OK);
        pool_size_ = std::max(pool_size_, size);
        ASSERT_EQ(entries_of(trc.get()), reference_fit(size, pool_size_, pixels));
        ASSERT_TRUE(same_place(input_lines, input_walk));
        ASSERT_TRUE(same_place(target_lines, target_walk));
    }
}

// Fits two areas of the given height at the top of two images of 6 by 4 pixels.
Entries fit_top(const ImagePair &images, uint64_t width, uint64_t height) {
    RealImageLineIterator input;
    RealImageLineIterator target;
    KoRealImageLineIteratorInitSubImage(&input, images.input.get(), 0, 0, width, height);
    KoRealImageLineIteratorInitSubImage(&target, images.target.get(), 0, 0, width, height);
    const TRCPtr trc(KoTRCNew(256));
    expect_success([&] { return KoTRCCompute(trc.get(), &input, &target); });
    return entries_of(trc.get());
}

TEST_F(TrcComputeTest, AnAreaOfHeightZeroIsOneLine) {
    const Pixels pixels = sparse_cloud(24, 8);
    const ImagePair images(6, pixels);
    EXPECT_EQ(fit_top(images, 6, 0), reference_fit(256, 256, Pixels(pixels.begin(), pixels.begin() + 6)));
    EXPECT_EQ(fit_top(images, 6, 2), reference_fit(256, 256, Pixels(pixels.begin(), pixels.begin() + 12)));
    EXPECT_EQ(fit_top(images, 0, 4), reference_fit(256, 256, {}));
}

// Only the first iterator is asked whether a line is left and where it ends.
TEST_F(TrcComputeTest, TheInputAloneSaysWhereTheAreaEnds) {
    const Pixels pixels = sparse_cloud(24, 9);
    const ImagePair images(6, pixels);
    RealImageLineIterator input;
    RealImageLineIterator target;
    KoRealImageLineIteratorInitSubImage(&input, images.input.get(), 0, 0, 6, 2);
    KoRealImageLineIteratorInit(&target, images.target.get());
    const TRCPtr trc(KoTRCNew(256));
    expect_success([&] { return KoTRCCompute(trc.get(), &input, &target); });
    EXPECT_EQ(entries_of(trc.get()), reference_fit(256, 256, Pixels(pixels.begin(), pixels.begin() + 12)));
    EXPECT_EQ(KoRealImageLineIteratorHasNext(&input), 0);
    EXPECT_EQ(KoRealImageLineIteratorHasNext(&target), 1);
    // Both are consumed: a second fit sees the lines that are left, none.
    expect_success([&] { return KoTRCCompute(trc.get(), &input, &target); });
    EXPECT_EQ(entries_of(trc.get()), reference_fit(256, 256, {}));
}

TEST_F(TrcComputeTest, ACurveWithoutEntriesGetsThem) {
    const Pixels pixels = sparse_cloud(100, 10);
    TRC trc{256, nullptr};
    EXPECT_EQ(fit_whole(&trc, ImagePair(10, pixels)), KO_OK);
    ASSERT_NE(trc.array, nullptr);
    EXPECT_EQ(entries_of(&trc), reference_fit(256, 256, pixels));
    KoTRCFree(&trc);
}

TEST_F(TrcComputeTest, ASizeOfZeroLeavesNoEntries) {
    const TRCPtr trc(KoTRCNew(0));
    EXPECT_EQ(fit_whole(trc.get(), ImagePair(10, sparse_cloud(100, 11))), KO_OK);
    EXPECT_EQ(trc->array, nullptr);
    expect_fit(256, sparse_cloud(100, 11));
}

// The table of costs has size times size floats; one that 2^31 - 1 bytes do not hold cannot be had, whatever 32 bits make of
// it.
TEST_F(TrcComputeTest, ASizeWhoseTableCannotBeHadLeavesNoEntries) {
    const ImagePair images(10, sparse_cloud(100, 12));
    for (const uint64_t size : {23171u, 32768u, 46341u, 65536u}) {
        const TRCPtr trc(KoTRCNew(size));
        KoStatusClear();
        StderrCapture captured;
        EXPECT_EQ(fit_whole(trc.get(), images), KO_OK);
        const std::string bytes = std::to_string(static_cast<int32_t>(static_cast<uint32_t>(size * size * 4)));
        EXPECT_EQ(captured.stop(), "[ERROR] Memory allocation failed: can't allocated " + bytes + " bytes of memory\n");
        expect_status(KO_ERR_ALLOC, "Cannot allocate " + bytes + " bytes");
        EXPECT_EQ(trc->array, nullptr);
        EXPECT_EQ(trc->size, size);
    }
    // It failed before the pool was asked for: the pool has not grown.
    expect_fit(128, sparse_cloud(100, 12));
}

// ---- the pool ----

// The fits below tell how large the pool is.
TEST_F(TrcComputeTest, TheSparseCloudTellsTheSizeOfThePool) {
    const Pixels pixels = sparse_cloud(600, 13);
    for (const uint64_t size : {100u, 128u, 200u, 256u}) {
        EXPECT_NE(reference_fit(size, 256, pixels), reference_fit(size, 300, pixels));
        EXPECT_NE(reference_fit(size, 300, pixels), reference_fit(size, 512, pixels));
        EXPECT_NE(reference_fit(size, 512, pixels), reference_fit(size, 1024, pixels));
    }
    EXPECT_NE(reference_fit(512, 512, pixels), reference_fit(512, 1024, pixels));
}

// The pool starts at 256, grows to exactly the largest size so far and never shrinks; a smaller curve takes the first entries
// of the larger ones as they are.
TEST_F(TrcComputeTest, ThePoolKeepsTheLargestSize) {
    const Pixels pixels = sparse_cloud(600, 13);
    for (const uint64_t size :
         {100, 256, 128, 257, 128, 300, 256, 299, 300, 128, 512, 300, 200, 256, 512, 1, 600, 512, 256, 1024, 512, 100}) {
        expect_fit(size, pixels);
    }
}

TEST_F(TrcComputeTest, ThePoolStartsAnewWithTheLibrary) {
    const Pixels pixels = sparse_cloud(600, 13);
    expect_fit(512, pixels);
    const Entries large = expect_fit(128, pixels);
    restart();
    EXPECT_NE(expect_fit(128, pixels), large);
}

TEST_F(TrcComputeTest, ThePoolOutlivesANestedRelease) {
    const Pixels pixels = sparse_cloud(600, 13);
    KoInit(nullptr, nullptr);
    expect_fit(512, pixels);
    KoRelease();
    expect_fit(128, pixels);
}

// ---- threads ----

const std::vector<uint64_t> thread_sizes{256, 512, 1024};

// Fits in many threads at once. Which sizes the pool has gone through when a fit gets to it depends on the threads, but it is
// one of the sizes asked for, not below the fit's own, nor below what the same thread has had before.
class PoolThreads {
  public:
    explicit PoolThreads(const Pixels &pixels) : pixels_(pixels) {
        for (const uint64_t size : thread_sizes) {
            for (const uint64_t pool : thread_sizes) {
                if (pool >= size) {
                    expected_[{size, pool}] = reference_fit(size, pool, pixels_);
                }
            }
        }
    }

    void run(size_t threads, size_t fits) {
        std::latch start(static_cast<std::ptrdiff_t>(threads));
        std::vector<std::thread> running;
        for (size_t t = 0; t < threads; ++t) {
            running.emplace_back([&, t] {
                start.arrive_and_wait();
                fit_many(t, fits);
            });
        }
        for (std::thread &thread : running) {
            thread.join();
        }
    }

    void expect_pool(uint64_t pool) {
        for (const uint64_t size : thread_sizes) {
            uint64_t found = pool;
            EXPECT_TRUE(fits(size, pool, found)) << size;
            EXPECT_EQ(found, pool) << size;
        }
    }

  private:
    void fit_many(size_t thread, size_t count) {
        uint64_t least = 256;
        for (size_t i = 0; i < count; ++i) {
            const uint64_t size = i == 0 && thread % 4 != 3 ? 256 : thread_sizes[(thread + i * (thread % 2 + 1)) % 3];
            EXPECT_TRUE(fits(size, std::max(least, size), least)) << "thread " << thread << ", size " << size;
        }
    }

    // Fits a curve of this size; true if it is that of some pool from least up. Stores that pool.
    bool fits(uint64_t size, uint64_t least, uint64_t &pool) const {
        const ImagePair images(30, pixels_);
        const TRCPtr trc(KoTRCNew(size));
        if (fit_whole(trc.get(), images) != KO_OK || trc->array == nullptr) {
            return false;
        }
        for (const uint64_t candidate : thread_sizes) {
            if (candidate >= least && expected_.at({size, candidate}) == entries_of(trc.get())) {
                pool = candidate;
                return true;
            }
        }
        return false;
    }

    const Pixels pixels_;
    std::map<std::pair<uint64_t, uint64_t>, Entries> expected_;
};

TEST_F(TrcComputeTest, ManyThreadsFitAtOnce) {
    PoolThreads threads(sparse_cloud(600, 13));
    for (int round = 0; round < 3; ++round) {
        restart();
        threads.run(10, 6);
        threads.expect_pool(1024);
    }
}

// Whoever comes while the pool grows waits for it; whoever reads it keeps it from growing.
TEST_F(TrcComputeTest, ThreadsGrowThePoolStepByStep) {
    const Pixels pixels = sparse_cloud(60, 14);
    restart();
    std::vector<std::thread> running;
    std::latch start(8);
    for (uint64_t t = 0; t < 8; ++t) {
        running.emplace_back([&, t] {
            start.arrive_and_wait();
            for (uint64_t size = 257 + t; size < 400; size += 8) {
                const TRCPtr trc(KoTRCNew(size));
                EXPECT_EQ(fit_whole(trc.get(), ImagePair(6, pixels)), KO_OK);
                EXPECT_NE(trc->array, nullptr);
            }
        });
    }
    for (std::thread &thread : running) {
        thread.join();
    }
    pool_size_ = 399;
    expect_fit(256, pixels);
    expect_fit(399, pixels);
    expect_fit(400, pixels);
}

} // namespace
