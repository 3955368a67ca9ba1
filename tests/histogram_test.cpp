// Histograms: life, counting, percentiles, curves pushed through, and the text file.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/histogram.h"
#include "ko/memory.h"

#include "allocator_lines.h"
#include "awkward_floats.h"
#include "capture.h"
#include "curve_texts.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"
#include "same_floats.h"
#include "turn_sizes.h"

namespace {

using namespace ko_test;

using Counters = std::vector<uint32_t>;

class HistogramTest : public LibraryTest {};

Counters counters(const Histogram *histogram) { return {histogram->values, histogram->values + histogram->size}; }

// A histogram with these counters over 0 to the number of them.
HistogramPtr make_histogram(const Counters &values) {
    const auto size = static_cast<uint32_t>(values.size());
    HistogramPtr histogram(KoHistogramNew(size, 0.0f, static_cast<float>(size - 1)));
    KoHistogramSetValues(histogram.get(), values.data(), size);
    return histogram;
}

// A histogram of 8 bins over 0 to 7 whose counters could not be had.
HistogramPtr bare_histogram() {
    HistogramPtr histogram(KoHistogramNew(8, 2.5f, 9.5f));
    KoFree(histogram->values);
    histogram->values = nullptr;
    return histogram;
}

void expect_null_pointer(const std::function<int32_t()> &call) {
    expect_error(KO_ERR_NULL_POINTER, "Null pointer error", call);
}

void expect_invalid(const std::function<int32_t()> &call) { expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", call); }

// ---- life ----

TEST_F(HistogramTest, InitFillsTheRecord) {
    Histogram histogram;
    std::memset(&histogram, 0x5A, sizeof histogram);
    expect_success([&] { return KoHistogramInit(&histogram, 100, -3.0f, 8.0f); });
    EXPECT_EQ(histogram.size, 100u);
    EXPECT_EQ(histogram.minValue, -3.0f);
    EXPECT_EQ(histogram.maxValue, 8.0f);
    EXPECT_EQ(histogram.scale, 9.0f);
    EXPECT_EQ(histogram.numPixels, 0u);
    ASSERT_NE(histogram.values, nullptr);
    EXPECT_EQ(counters(&histogram), Counters(100, 0));
    uint32_t *values = histogram.values;
    expect_success([&] { return KoHistogramFree(&histogram); });
    EXPECT_EQ(histogram.values, values); // the pointer is left
}

// (size - 1) / (maximum - minimum), all of it in single precision.
TEST_F(HistogramTest, ScaleIsASingleQuotient) {
    for (const auto &[size, low, high] : std::vector<std::tuple<uint32_t, float, float>>{{256, 0.0f, 255.0f},
                                                                                         {256, 0.1f, 0.7f},
                                                                                         {7, -1e6f, 1e-3f},
                                                                                         {65537, 16777216.0f, 3.3e7f},
                                                                                         {2, 5.0f, 5.0f},
                                                                                         {1, 0.0f, 4.0f},
                                                                                         {9, 4.0f, -4.0f}}) {
        const HistogramPtr histogram(KoHistogramNew(size, low, high));
        const float range = high - low;
        EXPECT_TRUE(same_float(histogram->scale, static_cast<float>(size - 1) / range)) << size << " over " << low;
    }
    const HistogramPtr bytes(KoHistogramNew(256, 0.0f, 255.0f));
    EXPECT_EQ(bytes->scale, 1.0f);
}

TEST_F(HistogramTest, FreeAndDeleteAcceptNull) {
    expect_success([] { return KoHistogramFree(nullptr); });
    expect_success([] { return KoHistogramDelete(nullptr); });
}

TEST_F(HistogramTest, CountersThatCannotBeHadAreNull) {
    StderrCapture captured;
    const HistogramPtr histogram(KoHistogramNew(1u << 29, 0.0f, 1.0f));
    EXPECT_EQ(own_lines(captured.stop()), allocator_line(-2147483648LL));
    ASSERT_NE(histogram, nullptr);
    EXPECT_EQ(histogram->values, nullptr);
    EXPECT_EQ(histogram->size, 1u << 29);
    expect_status(KO_ERR_ALLOC, allocator_text(-2147483648LL));
}

TEST_F(HistogramTest, InitSucceedsWithoutCounters) {
    for (const uint32_t size : {1u << 29, 1u << 30, 4294967295u}) { // some would wrap to few bytes
        Histogram histogram;
        std::memset(&histogram, 0x5A, sizeof histogram);
        const StderrCapture swallowed;
        EXPECT_EQ(KoHistogramInit(&histogram, size, 0.0f, 1.0f), KO_OK);
        EXPECT_EQ(histogram.values, nullptr);
        EXPECT_EQ(histogram.numPixels, 0u);
        KoHistogramFree(&histogram);
    }
}

// ---- counters ----

TEST_F(HistogramTest, Accessors) {
    const HistogramPtr histogram = make_histogram({4, 0, 4294967295u, 7});
    histogram->numPixels = 99;
    EXPECT_EQ(KoHistogramGetSize(histogram.get()), 4u);
    EXPECT_EQ(KoHistogramGetNumPixels(histogram.get()), 99u);
    EXPECT_EQ(KoHistogramGetValue(histogram.get(), 0), 4u);
    EXPECT_EQ(KoHistogramGetValue(histogram.get(), 2), 4294967295u);
    EXPECT_EQ(KoHistogramGetValue(histogram.get(), 3), 7u);
    for (const uint32_t bin : {4u, 5u, 1u << 30, 4294967295u}) {
        EXPECT_EQ(KoHistogramGetValue(histogram.get(), bin), 0u) << bin;
    }
    expect_status(KO_OK, "");
}

TEST_F(HistogramTest, AddValueAddsToOneCounter) {
    const HistogramPtr histogram = make_histogram({1, 2, 3, 4294967295u});
    histogram->numPixels = 99;
    expect_success([&] { return KoHistogramAddValue(histogram.get(), 1, 40); });
    expect_success([&] { return KoHistogramAddValue(histogram.get(), 0, 0); });
    expect_success([&] { return KoHistogramAddValue(histogram.get(), 3, 3); }); // modulo 2 to the 32
    EXPECT_EQ(counters(histogram.get()), (Counters{1, 42, 3, 2}));
    EXPECT_EQ(histogram->numPixels, 99u);
}

TEST_F(HistogramTest, AddValuePastTheEndIsSilent) {
    const HistogramPtr histogram = make_histogram({1, 2, 3});
    for (const uint32_t bin : {3u, 4u, 1u << 30, 4294967295u}) {
        expect_success([&] { return KoHistogramAddValue(histogram.get(), bin, 1); });
    }
    EXPECT_EQ(counters(histogram.get()), (Counters{1, 2, 3}));
}

TEST_F(HistogramTest, SetValuesCopiesAllCounters) {
    const HistogramPtr histogram = make_histogram({1, 2, 3});
    histogram->numPixels = 99;
    const Counters source{7, 0, 4294967295u};
    expect_success([&] { return KoHistogramSetValues(histogram.get(), source.data(), 3); });
    EXPECT_EQ(counters(histogram.get()), source);
    EXPECT_NE(histogram->values, source.data());
    EXPECT_EQ(histogram->numPixels, 99u);
}

TEST_F(HistogramTest, SetValuesRefusesNullAndAnotherCount) {
    const HistogramPtr histogram = make_histogram({1, 2, 3});
    const Counters source(8, 5);
    for (const uint32_t count : {0u, 2u, 4u}) {
        expect_invalid([&] { return KoHistogramSetValues(histogram.get(), source.data(), count); });
    }
    expect_invalid([&] { return KoHistogramSetValues(histogram.get(), nullptr, 3); });
    EXPECT_EQ(counters(histogram.get()), (Counters{1, 2, 3}));
}

// ---- counting ----

// The bin of a value: rounded half up in double precision; what fits no 32-bit integer becomes the most negative one.
uint32_t plain_bin(const Histogram *histogram, float value) {
    const float t = (value - histogram->minValue) * histogram->scale;
    const double rounded = static_cast<double>(t) + 0.5;
    const bool fits = rounded > -2147483649.0 && rounded < 2147483648.0;
    const int32_t bin = fits ? static_cast<int32_t>(rounded) : std::numeric_limits<int32_t>::min();
    if (bin < 0) {
        return 0;
    }
    return std::min(static_cast<uint32_t>(bin), histogram->size - 1);
}

Counters plain_counts(const Histogram *histogram, const std::vector<float> &values) {
    Counters counts(histogram->size, 0);
    for (const float value : values) {
        ++counts[plain_bin(histogram, value)];
    }
    return counts;
}

uint32_t bin_of(const Histogram &range, float value) {
    const HistogramPtr histogram(KoHistogramNew(range.size, range.minValue, range.maxValue));
    const RealImagePtr image = make_image(1, 1, std::vector<float>{value});
    expect_success([&] { return KoHistogramCompute(histogram.get(), image.get()); });
    const Counters counts = counters(histogram.get());
    EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), 0u), 1u);
    return static_cast<uint32_t>(std::find(counts.begin(), counts.end(), 1u) - counts.begin());
}

constexpr Histogram byte_range{256, 0.0f, 255.0f, 1.0f, 0, nullptr};

TEST_F(HistogramTest, ValuesAreRoundedHalfUp) {
    for (const auto &[value, bin] : std::vector<std::pair<float, uint32_t>>{{0.0f, 0},
                                                                            {0.49f, 0},
                                                                            {0.5f, 1},
                                                                            {1.0f, 1},
                                                                            {1.5f, 2},
                                                                            {2.5f, 3},
                                                                            {127.5f, 128},
                                                                            {127.49f, 127},
                                                                            {254.49f, 254},
                                                                            {254.5f, 255},
                                                                            {255.0f, 255},
                                                                            // the sum in single precision would be 1 and 128
                                                                            {0.49999997f, 0},
                                                                            {127.49999f, 127}}) {
        EXPECT_EQ(bin_of(byte_range, value), bin) << value;
    }
}

TEST_F(HistogramTest, ValuesOutsideGoToTheFirstAndTheLastBin) {
    for (const float value : {-0.3f, -0.5f, -0.7f, -1.0f, -1.5f, -300.0f, -2147483648.0f, -1e10f, -3e38f, -infinity}) {
        EXPECT_EQ(bin_of(byte_range, value), 0u) << value;
    }
    for (const float value : {255.5f, 256.0f, 1000.0f, 1e9f, 2147483520.0f}) {
        EXPECT_EQ(bin_of(byte_range, value), 255u) << value;
    }
}

// What fits no 32-bit integer wraps around to the first bin.
TEST_F(HistogramTest, ValuesBeyond32BitsGoToTheFirstBin) {
    for (const float value : {2147483648.0f, 4294967296.0f, 1e10f, 1e20f, 3e38f, infinity, not_a_number}) {
        EXPECT_EQ(bin_of(byte_range, value), 0u) << value;
    }
    const Histogram fine{100, 0.0f, 1e-5f, 0.0f, 0, nullptr}; // the scaled value counts
    EXPECT_EQ(bin_of(fine, 200.0f), 99u);
    EXPECT_EQ(bin_of(fine, 300.0f), 0u);
}

struct CountCase {
    const char *name;
    uint32_t size;
    float low, high;
};

class HistogramCounting : public HistogramTest, public testing::WithParamInterface<CountCase> {};

TEST_P(HistogramCounting, IsThatOfThePlainBins) {
    const CountCase &c = GetParam();
    Noise noise(5);
    std::vector<float> values = awkward_floats(2000, 7);
    for (int i = 0; i < 8000; ++i) {
        values.push_back(noise.uniform(c.low - 0.1f * std::fabs(c.high), c.high * 1.1f));
    }
    const RealImagePtr image = make_image(101, 99, values); // the odd width leaves padding
    const HistogramPtr histogram(KoHistogramNew(c.size, c.low, c.high));
    expect_success([&] { return KoHistogramCompute(histogram.get(), image.get()); });
    EXPECT_EQ(counters(histogram.get()), plain_counts(histogram.get(), pixels(image.get())));
    EXPECT_EQ(histogram->numPixels, 101u * 99u);
}

INSTANTIATE_TEST_SUITE_P(Ranges, HistogramCounting,
                         testing::Values(CountCase{"Bytes", 256, 0.0f, 255.0f}, CountCase{"FewBins", 7, 0.0f, 255.0f},
                                         CountCase{"ManyBins", 65536, 0.0f, 255.0f}, CountCase{"Shifted", 100, -33.3f, 77.7f},
                                         CountCase{"Narrow", 256, 0.1f, 0.7f}, CountCase{"OneBin", 1, 0.0f, 255.0f},
                                         CountCase{"TwoBins", 2, 0.0f, 255.0f}, CountCase{"Wide", 300, -1e9f, 1e9f},
                                         CountCase{"NoRange", 16, 5.0f, 5.0f}, // an infinite scale
                                         CountCase{"Backward", 16, 255.0f, 0.0f}),
                         [](const auto &each) { return std::string(each.param.name); });

// The value at which each bin begins, as near as floats come to it, and two neighbours on either side of it.
std::vector<float> border_values(const Histogram *histogram) {
    std::vector<float> values;
    for (uint32_t bin = 0; bin < histogram->size; ++bin) {
        float value = (static_cast<float>(bin) + 0.5f) / histogram->scale + histogram->minValue;
        value = std::nextafter(std::nextafter(value, -infinity), -infinity);
        for (int i = 0; i < 5; ++i, value = std::nextafter(value, infinity)) {
            values.push_back(value);
        }
    }
    return values;
}

TEST_F(HistogramTest, EveryBorderOfEveryBinLiesWhereThePlainBinsHaveIt) {
    for (const uint32_t size :
         {1u, 2u, 3u, 7u, 255u, 256u, 257u, 512u, 513u, 1000u, 1024u, 1025u, 4096u, 5000u, 65536u, 65537u}) {
        const float top = static_cast<float>(size - 1);
        for (const auto &[low, high] : std::vector<std::pair<float, float>>{
                 {0.0f, top}, {0.0f, 255.0f}, {-128.5f, 127.25f}, {0.1f, 0.7f}, {-1e6f, 1e6f}, {255.0f, 0.0f}}) {
            SCOPED_TRACE(testing::Message() << size << " bins from " << low << " to " << high);
            const HistogramPtr histogram(KoHistogramNew(size, low, high));
            std::vector<float> values = border_values(histogram.get());
            const std::vector<float> &turning = turning_floats();
            values.insert(values.end(), turning.begin(), turning.end());
            values.resize((values.size() + 66) / 67 * 67, high);
            const RealImagePtr image = make_image(67, values.size() / 67, values);
            expect_success([&] { return KoHistogramCompute(histogram.get(), image.get()); });
            ASSERT_EQ(counters(histogram.get()), plain_counts(histogram.get(), values));
        }
    }
}

// Each value at each place of a line, alone in its bin where it has one of its own.
TEST_F(HistogramTest, AValueIsCountedAlikeWhereverItStands) {
    std::vector<float> values = turning_floats();
    for (size_t shift = 0; shift < 40; ++shift) {
        std::rotate(values.begin(), values.begin() + 1, values.end());
        for (const uint32_t size : {2u, 256u, 1025u}) {
            const RealImagePtr image = make_image(values.size(), 1, values);
            const HistogramPtr histogram(KoHistogramNew(size, 0.0f, static_cast<float>(size - 1)));
            expect_success([&] { return KoHistogramCompute(histogram.get(), image.get()); });
            ASSERT_EQ(counters(histogram.get()), plain_counts(histogram.get(), values)) << size << " bins, shift " << shift;
        }
    }
}

// What the counters held before stays in them, and a counter wraps at 2 to the 32.
TEST_F(HistogramTest, RectanglesOfEverySizeAddUp) {
    uint32_t seed = 0;
    for (const TurnSize &each : turn_sizes()) {
        for (const uint32_t size : {1u, 2u, 16u, 255u, 256u, 512u, 513u, 1024u, 1025u, 5000u}) {
            if (size > 256 && ++seed % 8 != 0) {
                continue;
            }
            const auto [width, height] = each;
            const uint64_t x = ++seed % 5;
            const uint64_t y = seed % 3;
            SCOPED_TRACE(testing::Message()
                         << width << " by " << height << " at " << x << ", " << y << "; " << size << " bins");
            const std::vector<float> values = turning_noise((width + 6) * (height + 2), seed);
            const RealImagePtr image = make_image(width + 6, height + 2, values);
            const HistogramPtr histogram(KoHistogramNew(size, 0.0f, 255.0f));
            Counters expected = noise_entries(size, 4294967295u, seed);
            expected[0] = 4294967295u;
            KoHistogramSetValues(histogram.get(), expected.data(), size);
            RealImageLineIterator iterator;
            KoRealImageLineIteratorInitSubImage(&iterator, image.get(), x, y, width, height);
            for (int time = 0; time < 2; ++time) {
                ASSERT_EQ(KoHistogramFromSubImage(histogram.get(), &iterator), KO_OK);
                KoRealImageLineIteratorReset(&iterator);
                for (uint64_t i = 0; i < width * height; ++i) {
                    ++expected[plain_bin(histogram.get(), image->rows[y + i / width][x + i % width])];
                }
                ASSERT_EQ(counters(histogram.get()), expected);
                ASSERT_EQ(histogram->numPixels, width * height);
            }
        }
    }
}

// One level all over a picture, and runs of one among others: the same counter many times in a row.
TEST_F(HistogramTest, RunsOfOneValueAreCounted) {
    for (const uint64_t run : {1u, 2u, 3u, 4u, 7u, 8u, 17u, 255u, 256u, 257u, 1000u, 70001u}) {
        const RealImagePtr image =
            make_image(307, 229, [=](uint64_t x, uint64_t y) { return static_cast<float>((y * 307 + x) / run * 37 % 256); });
        const HistogramPtr histogram(KoHistogramNew(256, 0.0f, 255.0f));
        expect_success([&] { return KoHistogramCompute(histogram.get(), image.get()); });
        ASSERT_EQ(counters(histogram.get()), plain_counts(histogram.get(), pixels(image.get()))) << "runs of " << run;
    }
}

TEST_F(HistogramTest, RepeatedRunsAddUpAndKeepOneAreasPixels) {
    const RealImagePtr image = make_image(4, 2, {0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f});
    const HistogramPtr histogram(KoHistogramNew(8, 0.0f, 7.0f));
    for (uint32_t time = 1; time <= 3; ++time) {
        expect_success([&] { return KoHistogramCompute(histogram.get(), image.get()); });
        EXPECT_EQ(counters(histogram.get()), Counters(8, time));
        EXPECT_EQ(histogram->numPixels, 8u);
    }
    // a share of one area among the counters of three: it is reached long before the end
    EXPECT_EQ(KoHistogramGetValueAtPercentile(histogram.get(), 1.0f), 2.0f);
}

TEST_F(HistogramTest, ARectangleIsCounted) {
    const RealImagePtr image = make_image(9, 7, [](uint64_t x, uint64_t y) { return static_cast<float>(10 * y + x); });
    const HistogramPtr histogram(KoHistogramNew(100, 0.0f, 99.0f));
    RealImageLineIterator iterator;
    KoRealImageLineIteratorInitSubImage(&iterator, image.get(), 2, 3, 5, 2);
    expect_success([&] { return KoHistogramFromSubImage(histogram.get(), &iterator); });
    Counters expected(100, 0);
    for (const uint32_t bin : {32u, 33u, 34u, 35u, 36u, 42u, 43u, 44u, 45u, 46u}) {
        expected[bin] = 1;
    }
    EXPECT_EQ(counters(histogram.get()), expected);
    EXPECT_EQ(histogram->numPixels, 10u);
    EXPECT_EQ(KoRealImageLineIteratorHasNext(&iterator), 0);
}

TEST_F(HistogramTest, AUsedUpIteratorStillSetsThePixels) {
    const RealImagePtr image = make_image(5, 3, [](uint64_t, uint64_t) { return 1.0f; });
    const HistogramPtr histogram(KoHistogramNew(4, 0.0f, 3.0f));
    RealImageLineIterator iterator;
    KoRealImageLineIteratorInit(&iterator, image.get());
    KoHistogramFromSubImage(histogram.get(), &iterator);
    histogram->numPixels = 777;
    expect_success([&] { return KoHistogramFromSubImage(histogram.get(), &iterator); });
    EXPECT_EQ(counters(histogram.get()), (Counters{0, 15, 0, 0}));
    EXPECT_EQ(histogram->numPixels, 15u);
}

// Lines that were taken before are not counted, but they are among the pixels.
TEST_F(HistogramTest, TheLinesThatAreLeftAreCounted) {
    const RealImagePtr image = make_image(5, 3, [](uint64_t, uint64_t y) { return static_cast<float>(y); });
    const HistogramPtr histogram(KoHistogramNew(4, 0.0f, 3.0f));
    RealImageLineIterator iterator;
    KoRealImageLineIteratorInit(&iterator, image.get());
    KoRealImageLineIteratorNext(&iterator);
    expect_success([&] { return KoHistogramFromSubImage(histogram.get(), &iterator); });
    EXPECT_EQ(counters(histogram.get()), (Counters{0, 5, 5, 0}));
    EXPECT_EQ(histogram->numPixels, 15u);
}

// A rectangle of height 0 walks one line, and its pixels are its width times its height.
TEST_F(HistogramTest, ARectangleOfHeight0IsOneLineOfNoPixels) {
    const RealImagePtr image = make_image(6, 4, [](uint64_t, uint64_t y) { return static_cast<float>(y); });
    const HistogramPtr histogram(KoHistogramNew(4, 0.0f, 3.0f));
    RealImageLineIterator iterator;
    KoRealImageLineIteratorInitSubImage(&iterator, image.get(), 1, 2, 4, 0);
    expect_success([&] { return KoHistogramFromSubImage(histogram.get(), &iterator); });
    EXPECT_EQ(counters(histogram.get()), (Counters{0, 0, 4, 0}));
    EXPECT_EQ(histogram->numPixels, 0u);
}

// As an empty file gives one.
TEST_F(HistogramTest, AnImageWithoutRowsHasNothingToCount) {
    const RealImagePtr image(KoRealImageNew(0, 0));
    const HistogramPtr histogram(KoHistogramNew(4, 0.0f, 3.0f));
    histogram->numPixels = 777;
    expect_success([&] { return KoHistogramCompute(histogram.get(), image.get()); });
    EXPECT_EQ(counters(histogram.get()), Counters(4, 0));
    EXPECT_EQ(histogram->numPixels, 0u);
}

TEST_F(HistogramTest, NewFromSubImageCounts) {
    const RealImagePtr image = make_image(5, 3, [](uint64_t x, uint64_t) { return static_cast<float>(x) - 1.0f; });
    RealImageLineIterator iterator;
    KoRealImageLineIteratorInit(&iterator, image.get());
    const HistogramPtr histogram(KoHistogramNewFromSubImage(3, -1.0f, 1.0f, &iterator));
    ASSERT_NE(histogram, nullptr);
    expect_status(KO_OK, "");
    EXPECT_EQ(histogram->minValue, -1.0f);
    EXPECT_EQ(histogram->maxValue, 1.0f);
    EXPECT_EQ(histogram->scale, 1.0f);
    EXPECT_EQ(histogram->numPixels, 15u);
    EXPECT_EQ(counters(histogram.get()), (Counters{3, 3, 9}));
}

TEST_F(HistogramTest, NewFromSubImageWithoutCountersNamesTheObject) {
    const RealImagePtr image = make_image(1, 1, std::vector<float>{1.0f});
    RealImageLineIterator iterator;
    KoRealImageLineIteratorInit(&iterator, image.get());
    const StderrCapture swallowed;
    EXPECT_EQ(KoHistogramNewFromSubImage(1u << 29, 0.0f, 1.0f, &iterator), nullptr);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
    const std::string first = "Cannot create object \"Histogram\"\n-> ";
    EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).substr(0, first.size()), first);
}

// ---- percentiles ----

float plain_percentile(const Histogram *histogram, float fraction) {
    const float target = static_cast<float>(histogram->numPixels) * (fraction > 1.0f ? 1.0f : fraction);
    float sum = 0.0f;
    uint32_t bin = 0;
    for (;; ++bin) {
        sum += static_cast<float>(histogram->values[bin]);
        if (sum >= target || bin == histogram->size - 1) {
            break;
        }
    }
    return static_cast<float>(bin) / histogram->scale + histogram->minValue;
}

TEST_F(HistogramTest, PercentileIsTheFirstBinThatReachesTheShare) {
    const HistogramPtr histogram = make_histogram({0, 2, 0, 4, 0, 2, 0, 0});
    histogram->numPixels = 8;
    for (const auto &[fraction, value] : std::vector<std::pair<float, float>>{{-1.0f, 0.0f},
                                                                              {0.0f, 0.0f}, // bin 0 is empty
                                                                              {0.01f, 1.0f},
                                                                              {0.25f, 1.0f},
                                                                              {0.26f, 3.0f},
                                                                              {0.5f, 3.0f},
                                                                              {0.75f, 3.0f},
                                                                              {0.76f, 5.0f},
                                                                              {1.0f, 5.0f},
                                                                              {1.5f, 5.0f},
                                                                              {50.0f, 5.0f}}) {
        EXPECT_EQ(KoHistogramGetValueAtPercentile(histogram.get(), fraction), value) << fraction;
    }
    expect_status(KO_OK, "");
}

TEST_F(HistogramTest, PercentileStopsAtTheLastBin) {
    const HistogramPtr histogram = make_histogram({1, 1, 0, 0});
    histogram->numPixels = 100;
    EXPECT_EQ(KoHistogramGetValueAtPercentile(histogram.get(), 0.5f), 3.0f);
}

TEST_F(HistogramTest, PercentileOfAnEmptyHistogramIsItsMinimum) {
    const HistogramPtr histogram(KoHistogramNew(256, -7.25f, 100.0f));
    for (const float fraction : {-1.0f, 0.0f, 0.3f, 1.0f, 7.0f}) {
        EXPECT_EQ(KoHistogramGetValueAtPercentile(histogram.get(), fraction), -7.25f);
    }
}

// Share and sum are in single precision: an added 1 gets lost above 2 to the 24.
TEST_F(HistogramTest, PercentileAddsInSinglePrecision) {
    const HistogramPtr rounded = make_histogram({16777216, 1, 0, 0});
    rounded->numPixels = 16777217; // as a float 16777216
    EXPECT_EQ(KoHistogramGetValueAtPercentile(rounded.get(), 1.0f), 0.0f);
    const HistogramPtr stuck = make_histogram({16777216, 1, 1, 1, 1, 1, 1, 0});
    stuck->numPixels = 16777220;
    EXPECT_EQ(KoHistogramGetValueAtPercentile(stuck.get(), 1.0f), 7.0f);
}

TEST_F(HistogramTest, PercentileIsAPlainWalk) {
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        Noise noise(seed);
        const uint32_t size = 2 + noise.next() % 300;
        const HistogramPtr histogram(KoHistogramNew(size, noise.uniform(-50.0f, 50.0f), noise.uniform(60.0f, 300.0f)));
        const Counters values = noise_entries(size, seed % 2 == 0 ? 4294967295u : 20, seed);
        KoHistogramSetValues(histogram.get(), values.data(), size);
        histogram->numPixels = seed % 3 == 0 ? noise.next() : size * 10;
        for (int i = 0; i < 50; ++i) {
            const float fraction = noise.uniform(-0.1f, 1.1f);
            EXPECT_TRUE(same_float(KoHistogramGetValueAtPercentile(histogram.get(), fraction),
                                   plain_percentile(histogram.get(), fraction)))
                << "seed " << seed << ", fraction " << fraction;
        }
    }
}

// ---- curves ----

struct PushedCurve {
    const char *name;
    Counters entries;
    Counters expected;
};

class HistogramCurves : public HistogramTest, public testing::WithParamInterface<PushedCurve> {};

TEST_P(HistogramCurves, MoveTheCounters) {
    const TRCPtr trc = make_trc(GetParam().entries);
    const std::vector<int32_t> raw(GetParam().entries.begin(), GetParam().entries.end());
    for (const bool from_trc : {true, false}) {
        const HistogramPtr histogram = make_histogram({1, 20, 300, 4000});
        histogram->numPixels = 99;
        expect_success([&] {
            return from_trc ? KoHistogramApplyTRC(histogram.get(), trc.get())
                            : KoHistogramApplyRawTRC(histogram.get(), raw.data(), 4);
        });
        EXPECT_EQ(counters(histogram.get()), GetParam().expected);
        EXPECT_EQ(histogram->numPixels, 99u);
        EXPECT_EQ(histogram->size, 4u);
        EXPECT_EQ(histogram->scale, 1.0f);
    }
}

INSTANTIATE_TEST_SUITE_P(ByHand, HistogramCurves,
                         testing::Values(PushedCurve{"Identity", {0, 1, 2, 3}, {1, 20, 300, 4000}},
                                         PushedCurve{"Reversed", {3, 2, 1, 0}, {4000, 300, 20, 1}},
                                         PushedCurve{"AllToOne", {2, 2, 2, 2}, {0, 0, 4321, 0}},
                                         PushedCurve{"Pairs", {0, 0, 3, 3}, {21, 0, 0, 4300}},
                                         // what lies past the end counts into the last bin
                                         PushedCurve{"JustPastTheEnd", {1, 4, 5, 0}, {4000, 1, 0, 320}},
                                         PushedCurve{
                                             "FarPastTheEnd", {1u << 30, 4294967295u, 2147483648u, 0}, {4000, 0, 0, 321}}),
                         [](const auto &each) { return std::string(each.param.name); });

TEST_F(HistogramTest, ACurveOfAnotherSizeChangesNothing) {
    const HistogramPtr histogram = make_histogram({1, 2, 3, 4});
    const std::vector<int32_t> raw(8, 0);
    for (const uint32_t size : {0u, 1u, 3u, 5u, 8u}) {
        const TRCPtr trc = make_trc(Counters(size, 0));
        expect_invalid([&] { return KoHistogramApplyTRC(histogram.get(), trc.get()); });
        expect_invalid([&] { return KoHistogramApplyRawTRC(histogram.get(), raw.data(), size); });
    }
    EXPECT_EQ(counters(histogram.get()), (Counters{1, 2, 3, 4}));
}

TEST_F(HistogramTest, ACurveNeedsAHistogramAndEntries) {
    const TRCPtr trc = make_trc(Counters(4, 0));
    const std::vector<int32_t> raw(4, 0);
    expect_invalid([&] { return KoHistogramApplyTRC(nullptr, trc.get()); });
    expect_invalid([&] { return KoHistogramApplyRawTRC(nullptr, raw.data(), 4); });
    const HistogramPtr histogram = make_histogram({1, 2, 3, 4});
    KoTRCFree(trc.get());
    expect_null_pointer([&] { return KoHistogramApplyTRC(histogram.get(), trc.get()); });
    expect_null_pointer([&] { return KoHistogramApplyRawTRC(histogram.get(), nullptr, 4); });
    EXPECT_EQ(counters(histogram.get()), (Counters{1, 2, 3, 4}));
}

// ---- without counters ----

TEST_F(HistogramTest, WithoutCountersNothingIsDone) {
    const HistogramPtr histogram = bare_histogram();
    histogram->numPixels = 99;
    const Counters source(8, 1);
    const std::vector<int32_t> raw(8, 1);
    const TRCPtr trc = make_trc(source);
    const RealImagePtr image = make_image(3, 3, [](uint64_t, uint64_t) { return 3.0f; });
    RealImageLineIterator iterator;
    KoRealImageLineIteratorInit(&iterator, image.get());
    const TemporaryFile file("histogram.txt");
    expect_null_pointer([&] { return KoHistogramAddValue(histogram.get(), 1, 1); });
    expect_null_pointer([&] { return KoHistogramSetValues(histogram.get(), source.data(), 8); });
    expect_null_pointer([&] { return KoHistogramCompute(histogram.get(), image.get()); });
    expect_null_pointer([&] { return KoHistogramFromSubImage(histogram.get(), &iterator); });
    expect_null_pointer([&] { return KoHistogramApplyTRC(histogram.get(), trc.get()); });
    expect_null_pointer([&] { return KoHistogramApplyRawTRC(histogram.get(), raw.data(), 8); });
    expect_null_pointer([&] { return KoHistogramSave(histogram.get(), file.c_str(), 1); });
    EXPECT_EQ(histogram->values, nullptr);
    EXPECT_EQ(histogram->numPixels, 99u);
}

TEST_F(HistogramTest, WithoutCountersValuesAre0AndThePercentileIsTheMinimum) {
    const HistogramPtr histogram = bare_histogram();
    histogram->numPixels = 99;
    EXPECT_EQ(KoHistogramGetValue(histogram.get(), 0), 0u);
    EXPECT_EQ(KoHistogramGetValue(histogram.get(), 7), 0u);
    for (const float fraction : {0.0f, 0.5f, 1.0f}) {
        EXPECT_EQ(KoHistogramGetValueAtPercentile(histogram.get(), fraction), 2.5f);
    }
}

// ---- text file ----

std::string saved(const Histogram *histogram) {
    const TemporaryFile file("histogram.txt");
    expect_success([&] { return KoHistogramSave(histogram, file.c_str(), 0); });
    return read_text(file.path());
}

std::string histogram_text(uint32_t bits, const Counters &values) {
    std::string text = "bits " + std::to_string(bits) + "\n";
    for (const uint32_t value : values) {
        text += std::to_string(value) + "\n";
    }
    return text;
}

TEST_F(HistogramTest, SaveWritesBitsAndCounters) {
    EXPECT_EQ(saved(make_histogram({3, 0, 70, 5}).get()), "bits 2\n3\n0\n70\n5\n");
    EXPECT_EQ(saved(make_histogram({9}).get()), "bits 0\n9\n");
}

TEST_F(HistogramTest, SaveCutsTheBitsAndWritesAllCounters) {
    EXPECT_EQ(saved(make_histogram({1, 2, 3}).get()), "bits 1\n1\n2\n3\n");
    const std::string text = saved(make_histogram(Counters(300, 1)).get());
    EXPECT_EQ(text.substr(0, 9), "bits 8\n1\n");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 301);
}

TEST_F(HistogramTest, SaveTellsTheBitsOfEveryPowerOfTwo) {
    for (uint32_t bits = 0; bits <= 16; ++bits) {
        const std::string text = saved(make_histogram(Counters(uint64_t{1} << bits, 0)).get());
        EXPECT_EQ(text.substr(0, text.find('\n')), "bits " + std::to_string(bits));
    }
}

TEST_F(HistogramTest, SaveWritesSigned32BitNumbers) {
    EXPECT_EQ(saved(make_histogram({2147483647u, 2147483648u, 4294967295u, 0}).get()),
              "bits 2\n2147483647\n-2147483648\n-1\n0\n");
}

TEST_F(HistogramTest, SaveWithoutTheFlagLeavesAFileAlone) {
    const HistogramPtr histogram = make_histogram({1, 2});
    const TemporaryFile file("histogram.txt", "precious");
    expect_error(KO_ERR_FILE_EXISTS, "File \"" + file.path() + "\" already exists",
                 [&] { return KoHistogramSave(histogram.get(), file.c_str(), 0); });
    EXPECT_EQ(read_bytes(file.path()), "precious");
    for (const int32_t overwrite : {1, -1, 256}) {
        write_bytes(file.path(), "something longer than the file that takes its place");
        expect_success([&] { return KoHistogramSave(histogram.get(), file.c_str(), overwrite); });
        EXPECT_EQ(read_text(file.path()), "bits 1\n1\n2\n");
    }
}

TEST_F(HistogramTest, SaveThatCannotOpenWritesNoLine) {
    const HistogramPtr histogram = make_histogram({1, 2});
    const std::string path = temporary_path("folder") + "/histogram.txt";
    StderrCapture captured;
    for (const int32_t overwrite : {0, 1}) {
        expect_error(KO_ERR_OPEN_WRITE, "Cannot open file \"" + path + "\" for writing",
                     [&] { return KoHistogramSave(histogram.get(), path.c_str(), overwrite); });
    }
    EXPECT_EQ(captured.stop(), "");
}

TEST_F(HistogramTest, ASavedHistogramComesBackWithItsRange) {
    const Counters values = noise_entries(256, 4294967295u, 3);
    const HistogramPtr histogram(KoHistogramNew(256, -1.0f, 50.0f));
    KoHistogramSetValues(histogram.get(), values.data(), 256);
    const TemporaryFile file("histogram.txt");
    KoHistogramSave(histogram.get(), file.c_str(), 0);
    const HistogramPtr other(KoHistogramNew(256, 3.0f, 9.0f));
    other->numPixels = 1234;
    const uint32_t *array = other->values;
    const float scale = other->scale;
    expect_success([&] { return KoHistogramLoad(other.get(), file.c_str()); });
    EXPECT_EQ(counters(other.get()), values); // those from 2147483648 up went through negative numbers
    EXPECT_EQ(other->values, array);
    EXPECT_EQ(other->minValue, 3.0f);
    EXPECT_EQ(other->maxValue, 9.0f);
    EXPECT_EQ(other->scale, scale);
    EXPECT_EQ(other->numPixels, 1234u);
}

void expect_reset(const Histogram *histogram, uint32_t size, float scale) {
    EXPECT_EQ(histogram->size, size);
    EXPECT_EQ(histogram->minValue, 0.0f);
    EXPECT_EQ(histogram->maxValue, static_cast<float>(size)); // not size - 1
    EXPECT_EQ(histogram->scale, scale);
    EXPECT_EQ(histogram->numPixels, 0u);
}

// The range ends at the size, one step further than the last bin: see "The range of a loaded histogram" in
// docs/compatibility.md.
TEST_F(HistogramTest, LoadOfAnotherSizeResetsTheRecord) {
    const TemporaryFile file("histogram.txt", histogram_text(3, {7, 6, 5, 4, 3, 2, 1, 0}));
    for (const uint32_t size : {1u, 4u, 7u, 9u, 256u}) {
        const HistogramPtr histogram(KoHistogramNew(size, 3.0f, 9.0f));
        histogram->numPixels = 1234;
        expect_success([&] { return KoHistogramLoad(histogram.get(), file.c_str()); });
        expect_reset(histogram.get(), 8, 7.0f / 8.0f);
        EXPECT_EQ(counters(histogram.get()), (Counters{7, 6, 5, 4, 3, 2, 1, 0}));
    }
}

TEST_F(HistogramTest, LoadIntoARecordWithoutCountersResetsItToo) {
    const TemporaryFile file("histogram.txt", histogram_text(3, {7, 6, 5, 4, 3, 2, 1, 0}));
    const HistogramPtr histogram = bare_histogram();
    histogram->numPixels = 1234;
    expect_success([&] { return KoHistogramLoad(histogram.get(), file.c_str()); });
    expect_reset(histogram.get(), 8, 7.0f / 8.0f);
    EXPECT_EQ(counters(histogram.get()), (Counters{7, 6, 5, 4, 3, 2, 1, 0}));
}

// The loader never sets the number of pixels, so any share of them is reached at once.
TEST_F(HistogramTest, PercentilesOfALoadedHistogramAreThoseOfNoPixels) {
    const TemporaryFile file("histogram.txt", histogram_text(3, {0, 0, 0, 0, 9, 9, 9, 9}));
    const HistogramPtr histogram(KoHistogramNew(4, 0.0f, 1.0f));
    KoHistogramLoad(histogram.get(), file.c_str());
    EXPECT_EQ(KoHistogramGetValueAtPercentile(histogram.get(), 1.0f), 0.0f);
}

TEST_F(HistogramTest, LoadTakesTheBitsModulo32) {
    const HistogramPtr histogram(KoHistogramNew(256, 0.0f, 255.0f));
    const TemporaryFile four("histogram.txt", "bits 34\n1\n2\n3\n4\n");
    expect_success([&] { return KoHistogramLoad(histogram.get(), four.c_str()); });
    EXPECT_EQ(counters(histogram.get()), (Counters{1, 2, 3, 4}));
    const TemporaryFile one("histogram.txt", "bits 32\n7\n");
    expect_success([&] { return KoHistogramLoad(histogram.get(), one.c_str()); });
    EXPECT_EQ(counters(histogram.get()), (Counters{7}));
    expect_reset(histogram.get(), 1, 0.0f);
}

TEST_F(HistogramTest, LoadIgnoresWhatFollowsANumberOrTheLastLine) {
    const HistogramPtr histogram(KoHistogramNew(2, 0.0f, 1.0f));
    const TemporaryFile file("histogram.txt", "bits 1 and more\n  5 words\n-1\nnot read");
    expect_success([&] { return KoHistogramLoad(histogram.get(), file.c_str()); });
    EXPECT_EQ(counters(histogram.get()), (Counters{5, 4294967295u}));
}

struct BadText {
    const char *name;
    const char *text;
    int line;
    const char *told; // behind the place
    Counters kept;    // over counters of 77 each
};

class HistogramBadTexts : public HistogramTest, public testing::WithParamInterface<BadText> {};

// Counters read so far stay, and so do those behind them.
TEST_P(HistogramBadTexts, TellTheLine) {
    const BadText &bad = GetParam();
    const TemporaryFile file("histogram.txt", bad.text);
    const HistogramPtr histogram = make_histogram({77, 77});
    histogram->numPixels = 5;
    const std::string place = "\"" + file.path() + "\", line " + std::to_string(bad.line);
    StderrCapture captured;
    expect_error(KO_ERR_READ_LINE, "Read error in file " + place,
                 [&] { return KoHistogramLoad(histogram.get(), file.c_str()); });
    EXPECT_EQ(captured.stop(), "[ERROR] " + place + ": " + bad.told + "\n");
    EXPECT_EQ(counters(histogram.get()), bad.kept);
}

INSTANTIATE_TEST_SUITE_P(
    ByHand, HistogramBadTexts,
    testing::Values(BadText{"Empty", "", 1, "can't read file", {77, 77}},
                    BadText{
                        "NoBits", "bats 1\n1\n2\n", 1, "\"bats 1\n\": Invalid value, must be bits <bit per pixel>", {77, 77}},
                    BadText{"NoNumberOfBits", "bits\n", 1, "\"bits\n\": Invalid value, must be bits <bit per pixel>", {77, 77}},
                    BadText{"AHeaderWord",
                            "Histogram\nbits 1\n1\n2\n",
                            1,
                            "\"Histogram\n\": Invalid value, must be bits <bit per pixel>",
                            {77, 77}},
                    BadText{"NoCounters", "bits 1\n", 2, "can't read file", {77, 77}},
                    BadText{"OneCounterMissing", "bits 1\n5\n", 3, "can't read file", {5, 77}},
                    BadText{"BadCounter", "bits 1\nfive\n6\n", 2, "\"five\n\": Invalid value, <HISOGRAM VALUE>", {77, 77}},
                    BadText{"BlankLine", "bits 1\n5\n\n6\n", 3, "\"\n\": Invalid value, <HISOGRAM VALUE>", {5, 77}},
                    BadText{"BadLineWithoutAnEnd", "bits 1\n5\nx", 3, "\"x\": Invalid value, <HISOGRAM VALUE>", {5, 77}},
                    BadText{"NewSize", "bits 2\n5\n6\n", 4, "can't read file", {5, 6, 0, 0}}),
    [](const auto &each) { return std::string(each.param.name); });

TEST_F(HistogramTest, LoadOfAMissingFileWritesNoLine) {
    const HistogramPtr histogram = make_histogram({3, 1});
    const std::string path = temporary_path("missing.txt");
    StderrCapture captured;
    expect_error(KO_ERR_OPEN_READ, "Cannot open file \"" + path + "\" for reading",
                 [&] { return KoHistogramLoad(histogram.get(), path.c_str()); });
    EXPECT_EQ(captured.stop(), "");
    EXPECT_EQ(counters(histogram.get()), (Counters{3, 1}));
}

TEST_F(HistogramTest, LoadThatAsksForTooMuchLeavesTheHistogram) {
    for (const char *bits : {"29", "61", "4294967293"}) {
        const TemporaryFile file("histogram.txt", "bits " + std::string(bits) + "\n0\n");
        const HistogramPtr histogram(KoHistogramNew(2, 3.0f, 9.0f));
        histogram->values[1] = 5;
        histogram->numPixels = 1234;
        const Histogram before = *histogram;
        KoStatusClear();
        StderrCapture captured;
        EXPECT_EQ(KoHistogramLoad(histogram.get(), file.c_str()), KO_ERR_ALLOC);
        EXPECT_EQ(own_lines(captured.stop()), allocator_line(-2147483648LL));
        expect_status(KO_ERR_ALLOC, allocator_text(-2147483648LL));
        EXPECT_EQ(std::memcmp(&before, histogram.get(), sizeof before), 0);
        EXPECT_EQ(counters(histogram.get()), (Counters{0, 5}));
    }
}

} // namespace
