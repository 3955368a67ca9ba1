// Connected components against their plain form, label for label: thousands of small maps, windows of images, maps on which
// following the table step by step would not come to an end, and the two filters.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "awkward_floats.h"
#include "guards.h"
#include "ko/concomp.h"
#include "library_test.h"
#include "pictures.h"
#include "reference_concomp.h"
#include "same_floats.h"
#include "turn_sizes.h"

namespace {

using namespace ko_test;

using ConcompTest = LibraryTest;

std::vector<uint32_t> numbers(const BlobInfo &blob) { return {blob.min_x, blob.max_x, blob.min_y, blob.max_y, blob.area}; }

std::vector<std::vector<uint32_t>> numbers(const std::vector<BlobInfo> &info) {
    std::vector<std::vector<uint32_t>> all;
    for (const BlobInfo &blob : info) {
        all.push_back(numbers(blob));
    }
    return all;
}

// Arrays with marked entries behind their count.
template <class T> std::vector<T> guarded(size_t count, size_t spare) {
    return std::vector<T>(count + spare, static_cast<T>(0x5A5A5A5A));
}

template <class T> std::vector<T> without_guard(const std::vector<T> &array, size_t count) {
    const auto end = array.begin() + static_cast<ptrdiff_t>(count);
    EXPECT_TRUE(std::all_of(end, array.end(), [](T value) { return value == static_cast<T>(0x5A5A5A5A); }))
        << "written behind the end";
    return std::vector<T>(array.begin(), end);
}

// The labeller and its summary give what the plain ones give, and write nothing behind the last pixel and label.
void expect_labelling(const RealImage *image, float threshold, const Window &window, bool whole) {
    const Labelling expected = reference_labelling(image, threshold, window);
    std::vector<int32_t> labels = guarded<int32_t>(expected.labels.size(), 4);
    std::vector<uint32_t> table = guarded<uint32_t>(expected.table.size(), labels.size());
    const uint32_t count = whole ? KoConCompRealImage(image, threshold, labels.data(), table.data())
                                 : KoConCompRealSubImage(image, threshold, labels.data(), table.data(), window.x0, window.x1,
                                                         window.y0, window.y1);
    ASSERT_EQ(count, expected.count);
    ASSERT_EQ(without_guard(labels, expected.labels.size()), expected.labels);
    ASSERT_EQ(without_guard(table, expected.table.size()), expected.table);
    const Summary summary = reference_summary(expected);
    std::vector<BlobInfo> info(expected.count + 1, BlobInfo{});
    EXPECT_EQ(KoConCompRealImageInfo(window.width(), window.height(), labels.data(), table.data(), info.data()),
              summary.components);
    ASSERT_EQ(numbers(info), numbers(summary.info));
}

void expect_labelling(const RealImage *image, float threshold) {
    expect_labelling(image, threshold,
                     {0, static_cast<uint32_t>(image->width) - 1, 0, static_cast<uint32_t>(image->height) - 1}, true);
}

// A map from text: '#' is lit.
RealImagePtr drawn(const std::vector<std::string> &rows) {
    return make_image(rows[0].size(), rows.size(), [&](uint64_t x, uint64_t y) { return rows[y][x] == '#' ? 1.0f : 0.0f; });
}

std::vector<int32_t> labels_of(const RealImage *image, float threshold, std::vector<uint32_t> *table) {
    std::vector<int32_t> labels(image->width * image->height);
    table->assign(labels.size() + 1, 0);
    const uint32_t count = KoConCompRealImage(image, threshold, labels.data(), table->data());
    table->resize(count + 1);
    return labels;
}

// The summary of a labelling, a record for each entry of the table; it must have found so many components.
std::vector<BlobInfo> summary_of(uint32_t width, uint32_t height, const std::vector<int32_t> &labels,
                                 const std::vector<uint32_t> &table, uint32_t components) {
    std::vector<BlobInfo> info(table.size(), BlobInfo{});
    EXPECT_EQ(KoConCompRealImageInfo(width, height, labels.data(), table.data(), info.data()), components);
    return info;
}

constexpr std::pair<uint64_t, uint64_t> sizes_without_pixels[] = {{0, 0}, {0, 5}, {5, 0}};

uint32_t random_below(Noise &noise, uint32_t limit) { return (noise.next() >> 4) % limit; }

// Kinds of maps, by their seed.

RealImagePtr dense_noise(uint64_t width, uint64_t height, Noise &noise) {
    const float share = noise.uniform(0.05f, 0.98f);
    return make_image(width, height,
                      [&](uint64_t, uint64_t) { return noise.uniform(0.0f, 1.0f) < share ? noise.uniform(0.6f, 9.0f) : 0.2f; });
}

RealImagePtr awkward_noise(uint64_t width, uint64_t height, Noise &noise) {
    const std::vector<float> values = {0.5f, std::nextafter(0.5f, 1.0f), not_a_number, infinity, -infinity, 1.0f, -1.0f, 0.0f};
    return make_image(width, height, [&](uint64_t, uint64_t) { return values[random_below(noise, 8)]; });
}

void add_disc(RealImage *image, float x, float y, float radius, float value) {
    for (uint64_t row = 0; row < image->height; ++row) {
        for (uint64_t column = 0; column < image->width; ++column) {
            if (std::hypot(static_cast<float>(column) - x, static_cast<float>(row) - y) <= radius) {
                image->rows[row][column] = value;
            }
        }
    }
}

RealImagePtr blobs(uint64_t width, uint64_t height, Noise &noise) {
    RealImagePtr image = make_image(width, height, [&](uint64_t, uint64_t) { return noise.uniform(0.0f, 0.52f); });
    for (uint32_t i = random_below(noise, 9); i > 0; --i) {
        add_disc(image.get(), noise.uniform(0.0f, static_cast<float>(width)), noise.uniform(0.0f, static_cast<float>(height)),
                 noise.uniform(0.5f, 6.0f), noise.uniform(0.4f, 2.0f));
    }
    return image;
}

RealImagePtr checkerboard(uint64_t width, uint64_t height, Noise &noise) {
    const uint64_t side = 1 + random_below(noise, 4);
    const uint64_t gap = 1 + random_below(noise, 3);
    const uint64_t phase = random_below(noise, 4);
    return make_image(width, height, [&](uint64_t x, uint64_t y) {
        const bool chequered = ((x + phase) / side + y / side) % 2 == 0;
        const bool lattice = (x + phase) % (gap + 1) == 0 && y % (gap + 1) == 0;
        return (phase % 2 == 0 ? chequered : lattice) ? 1.0f : 0.0f;
    });
}

RealImagePtr mirrored(const RealImage *image, uint32_t way) {
    return make_image(image->width, image->height, [&](uint64_t x, uint64_t y) {
        return image->rows[way & 1 ? image->height - 1 - y : y][way & 2 ? image->width - 1 - x : x];
    });
}

// A line of one pixel that winds inwards with a gap of one or two pixels.
RealImagePtr spiral(uint64_t width, uint64_t height, Noise &noise) {
    const RealImagePtr image = make_image(width, height, [](uint64_t, uint64_t) { return 0.0f; });
    const int64_t reach = 1 + random_below(noise, 2) + 1;
    const auto lit = [&](int64_t x, int64_t y) {
        const bool inside = x >= 0 && y >= 0 && x < static_cast<int64_t>(width) && y < static_cast<int64_t>(height);
        return inside && image->rows[y][x] > 0.0f;
    };
    const int64_t steps[4][2] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}};
    int64_t x = 0;
    int64_t y = 0;
    image->rows[0][0] = 1.0f;
    for (uint32_t direction = 0, turns = 0; turns < 2;) {
        const auto [dx, dy] = steps[direction % 4];
        const bool inside =
            x + dx >= 0 && y + dy >= 0 && x + dx < static_cast<int64_t>(width) && y + dy < static_cast<int64_t>(height);
        bool free = inside;
        for (int64_t i = 1; i <= reach; ++i) {
            free = free && !lit(x + i * dx, y + i * dy);
        }
        if (!free) {
            ++direction;
            ++turns;
            continue;
        }
        turns = 0;
        x += dx;
        y += dy;
        image->rows[y][x] = 1.0f;
    }
    return mirrored(image.get(), random_below(noise, 4));
}

// Teeth of random lengths that meet in a bar at one side.
RealImagePtr comb(uint64_t width, uint64_t height, Noise &noise) {
    std::vector<uint64_t> lengths;
    for (uint64_t x = 0; x < width; ++x) {
        lengths.push_back(x % 2 == 0 ? random_below(noise, static_cast<uint32_t>(height) + 1) : 0);
    }
    const RealImagePtr image = make_image(width, height, [&](uint64_t x, uint64_t y) {
        return y + 1 == height || y + 1 + lengths[x] >= height || random_below(noise, 40) == 0 ? 1.0f : 0.0f;
    });
    return mirrored(image.get(), random_below(noise, 4));
}

struct Kind {
    const char *name;
    RealImagePtr (*make)(uint64_t width, uint64_t height, Noise &noise);
};

class ConcompMapTest : public LibraryTest, public testing::WithParamInterface<Kind> {};
INSTANTIATE_TEST_SUITE_P(Maps, ConcompMapTest,
                         testing::Values(Kind{"DenseNoise", dense_noise}, Kind{"AwkwardNoise", awkward_noise},
                                         Kind{"Blobs", blobs}, Kind{"Checkerboard", checkerboard}, Kind{"Spiral", spiral},
                                         Kind{"Comb", comb}),
                         [](const auto &kind) { return std::string(kind.param.name); });

TEST_P(ConcompMapTest, WholeMaps) {
    for (uint32_t seed = 0; seed < 500; ++seed) {
        SCOPED_TRACE(seed);
        Noise noise(seed);
        const RealImagePtr image = GetParam().make(1 + random_below(noise, 40), 1 + random_below(noise, 40), noise);
        expect_labelling(image.get(), 0.5f);
        if (HasFatalFailure()) {
            return;
        }
    }
}

TEST_P(ConcompMapTest, OneRowAndOneColumn) {
    for (uint32_t seed = 0; seed < 150; ++seed) {
        SCOPED_TRACE(seed);
        Noise noise(1000 + seed);
        const uint64_t length = 1 + random_below(noise, 70);
        expect_labelling(GetParam().make(length, 1, noise).get(), 0.5f);
        expect_labelling(GetParam().make(1, length, noise).get(), 0.5f);
        expect_labelling(GetParam().make(2, length, noise).get(), 0.5f);
        if (HasFatalFailure()) {
            return;
        }
    }
}

// What lies outside of the window is not there, however it is lit.
TEST_P(ConcompMapTest, WindowsAtEveryEdge) {
    for (uint32_t seed = 0; seed < 60; ++seed) {
        Noise noise(2000 + seed);
        const auto width = 4 + random_below(noise, 30);
        const auto height = 4 + random_below(noise, 30);
        const RealImagePtr image = GetParam().make(width, height, noise);
        for (uint32_t edges = 0; edges < 16; ++edges) { // a bit for each edge that the window touches
            Window window{0, width - 1, 0, height - 1};
            window.x0 = edges & 1 ? 0 : random_below(noise, width);
            window.x1 = edges & 2 ? width - 1 : window.x0 + random_below(noise, width - window.x0);
            window.y0 = edges & 4 ? 0 : random_below(noise, height);
            window.y1 = edges & 8 ? height - 1 : window.y0 + random_below(noise, height - window.y0);
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", columns " << window.x0 << " to " << window.x1 << ", rows "
                                            << window.y0 << " to " << window.y1);
            expect_labelling(image.get(), 0.5f, window, false);
            if (HasFatalFailure()) {
                return;
            }
        }
    }
}

// Rows of long runs and gaps whose ends lie around the multiples of 64, with single pixels among them.
RealImagePtr long_runs(uint64_t width, uint64_t height, Noise &noise) {
    RealImagePtr image = make_image(width, height, [](uint64_t, uint64_t) { return 0.0f; });
    for (uint64_t y = 0; y < height; ++y) {
        bool lit = random_below(noise, 2) != 0;
        for (uint64_t x = 0; x < width; lit = !lit) {
            const uint64_t length = random_below(noise, 3) == 0
                                        ? 1 + random_below(noise, 3)
                                        : 62 + random_below(noise, 5) + 64 * random_below(noise, 4) - x % 64;
            for (const uint64_t end = std::min(width, x + length); x < end; ++x) {
                image->rows[y][x] = lit ? 1.0f : not_a_number;
            }
        }
    }
    return image;
}

const std::vector<uint64_t> &labelled_widths() {
    static const std::vector<uint64_t> widths = with_all_up_to(
        200, {255, 256, 257, 319, 320, 321, 511, 512, 513, 1023, 1025, 2047, 2048, 2049, 4095, 4096, 4097, 4161, 8192, 8193});
    return widths;
}

// Blocks of exactly the sizes that the caller has to give, for the labelling and for its summary.
void expect_tight_labelling(const RealImage *image, float threshold, const Window &window) {
    const Labelling expected = reference_labelling(image, threshold, window);
    const size_t pixels = expected.labels.size();
    const size_t capacity = size_t{window.width() + 1} / 2 * (size_t{window.height() + 1} / 2);
    GuardedBytes label_block(pixels * sizeof(int32_t), 0x5A, 4 * (window.x0 % 2));
    GuardedBytes table_block((capacity + 1) * sizeof(uint32_t), 0x5A, 4 * (window.x1 % 2));
    auto *labels = reinterpret_cast<int32_t *>(label_block.data());
    auto *table = reinterpret_cast<uint32_t *>(table_block.data());
    ASSERT_EQ(KoConCompRealSubImage(image, threshold, labels, table, window.x0, window.x1, window.y0, window.y1),
              expected.count);
    ASSERT_EQ(std::vector<int32_t>(labels, labels + pixels), expected.labels);
    ASSERT_EQ(std::vector<uint32_t>(table, table + expected.count + 1), expected.table);
    const Summary summary = reference_summary(expected);
    GuardedBytes info_block((size_t{expected.count} + 1) * sizeof(BlobInfo), 0, 0);
    auto *info = reinterpret_cast<BlobInfo *>(info_block.data());
    ASSERT_EQ(KoConCompRealImageInfo(window.width(), window.height(), labels, table, info), summary.components);
    ASSERT_EQ(numbers(std::vector<BlobInfo>(info, info + expected.count + 1)), numbers(summary.info));
    ASSERT_TRUE(label_block.guards_hold() && table_block.guards_hold() && info_block.guards_hold());
}

TEST_P(ConcompMapTest, EveryWidthInTightBlocks) {
    uint32_t seed = 4000;
    for (const uint64_t width : labelled_widths()) {
        SCOPED_TRACE(testing::Message() << "width " << width << ", seed " << ++seed);
        Noise noise(seed);
        const uint64_t height = width > 300 ? 2 : 1 + random_below(noise, 7);
        const auto x1 = static_cast<uint32_t>(width) - 1;
        const auto y1 = static_cast<uint32_t>(height) - 1;
        expect_tight_labelling(GetParam().make(width, height, noise).get(), 0.5f, {0, x1, 0, y1});
        ASSERT_FALSE(HasFailure());
        // The same width at some place of a larger image, whose pixels around it do not count.
        const uint32_t shift = random_below(noise, 70);
        const RealImagePtr image = GetParam().make(width + 75, height + 2, noise);
        expect_tight_labelling(image.get(), 0.5f, {shift, shift + x1, 1, 1 + y1});
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(ConcompTest, RunsAcrossTheMultiplesOf64) {
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Noise noise(seed);
        const auto width = 30 + random_below(noise, seed % 4 == 0 ? 8300 : 500);
        const auto height = 1 + random_below(noise, 6);
        const RealImagePtr image = long_runs(width + 9, height, noise);
        const uint32_t shift = random_below(noise, 9);
        expect_tight_labelling(image.get(), 0.5f, {shift, shift + width - 1, 0, height - 1});
        ASSERT_FALSE(HasFailure());
    }
}

// Two rows, the upper one with a run that ends and the lower one with a run that begins at each pair of places around a border:
// they touch, touch at a corner, or do not.
TEST_F(ConcompTest, RunsThatMeetAroundABorder) {
    for (const uint64_t border : {4u, 8u, 16u, 32u, 64u, 128u, 4096u}) {
        const uint64_t width = border + 5;
        for (uint64_t end = border - 3; end <= border + 3; ++end) {
            for (uint64_t begin = border - 3; begin <= border + 3; ++begin) {
                for (const bool upside_down : {false, true}) {
                    const RealImagePtr image = make_image(width, 2, [=](uint64_t x, uint64_t y) {
                        return ((y == 0) != upside_down ? x < end : x >= begin) ? 1.0f : 0.0f;
                    });
                    SCOPED_TRACE(testing::Message() << "end " << end << ", begin " << begin << ", " << upside_down);
                    expect_tight_labelling(image.get(), 0.5f, {0, static_cast<uint32_t>(width) - 1, 0, 1});
                    ASSERT_FALSE(HasFailure());
                }
            }
        }
    }
}

TEST_F(ConcompTest, FlatAndChequeredMapsOfEveryWidth) {
    for (const uint64_t width : labelled_widths()) {
        for (uint64_t pattern = 0; pattern < 5; ++pattern) {
            const RealImagePtr image = make_image(width, 3, [=](uint64_t x, uint64_t y) {
                const bool lit[] = {true, false, x % 2 == 0, (x + y) % 2 == 0, x % 2 == 0 && y % 2 == 0};
                return lit[pattern] ? 1.0f : -1.0f;
            });
            SCOPED_TRACE(testing::Message() << "width " << width << ", pattern " << pattern);
            expect_tight_labelling(image.get(), 0.0f, {0, static_cast<uint32_t>(width) - 1, 0, 2});
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(ConcompTest, AwkwardPixelsAndThresholdsAtEveryWidth) {
    const float thresholds[] = {0.0f, -0.0f, 1e-40f, 1.0f, infinity, -infinity, not_a_number, 16777216.0f, -1e-45f};
    uint32_t seed = 0;
    for (const uint64_t width : labelled_widths()) {
        const RealImagePtr image = make_image(width, 3, turning_noise(width * 3, ++seed));
        const RealImagePtr mixed = make_image(width, 3, awkward_floats(width * 3, seed));
        const float threshold = thresholds[seed % std::size(thresholds)];
        SCOPED_TRACE(testing::Message() << "width " << width << ", threshold " << threshold);
        const Window window{0, static_cast<uint32_t>(width) - 1, 0, 2};
        expect_tight_labelling(image.get(), threshold, window);
        expect_tight_labelling(mixed.get(), threshold, window);
        ASSERT_FALSE(HasFailure());
    }
}

// The summary of labels that no labelling gave: runs of any label, and a table that names any root, or none.
TEST_F(ConcompTest, TheSummaryOfAnyLabelsAndTableAtEveryWidth) {
    uint32_t seed = 0;
    for (const uint64_t width : labelled_widths()) {
        SCOPED_TRACE(testing::Message() << "width " << width);
        Noise noise(++seed);
        Labelling labelling{static_cast<uint32_t>(width), width > 300 ? 2u : 5u, 1 + random_below(noise, 20), {}, {}};
        labelling.table.push_back(seed % 4 == 0 ? 1 : 0); // a table's first entry counts like any other
        for (uint32_t i = 1; i <= labelling.count; ++i) {
            labelling.table.push_back(random_below(noise, labelling.count + 1));
        }
        while (labelling.labels.size() < size_t{labelling.width} * labelling.height) {
            const auto label = static_cast<int32_t>(random_below(noise, labelling.count + 1));
            labelling.labels.insert(labelling.labels.end(), 1 + random_below(noise, seed % 3 == 0 ? 2 : 150), label);
        }
        labelling.labels.resize(size_t{labelling.width} * labelling.height);
        const Summary summary = reference_summary(labelling);
        GuardedBytes info_block((size_t{labelling.count} + 1) * sizeof(BlobInfo), 0, 0);
        auto *info = reinterpret_cast<BlobInfo *>(info_block.data());
        ASSERT_EQ(
            KoConCompRealImageInfo(labelling.width, labelling.height, labelling.labels.data(), labelling.table.data(), info),
            summary.components);
        ASSERT_EQ(numbers(std::vector<BlobInfo>(info, info + labelling.count + 1)), numbers(summary.info));
        ASSERT_TRUE(info_block.guards_hold());
    }
}

TEST_F(ConcompTest, EveryMapOfFourByThree) {
    for (uint32_t bits = 0; bits < 4096; ++bits) {
        SCOPED_TRACE(bits);
        const RealImagePtr image =
            make_image(4, 3, [&](uint64_t x, uint64_t y) { return (bits >> (4 * y + x) & 1) != 0 ? 1.0f : 0.0f; });
        expect_labelling(image.get(), 0.0f);
        if (HasFatalFailure()) {
            return;
        }
    }
}

TEST_F(ConcompTest, EveryWindowOfASmallMap) {
    Noise noise(3);
    const RealImagePtr image = dense_noise(7, 5, noise);
    const RealImagePtr lit = make_image(7, 5, [](uint64_t, uint64_t) { return 1.0f; });
    for (uint32_t x0 = 0; x0 < 7; ++x0) {
        for (uint32_t x1 = x0; x1 < 7; ++x1) {
            for (uint32_t y0 = 0; y0 < 5; ++y0) {
                for (uint32_t y1 = y0; y1 < 5; ++y1) {
                    expect_labelling(image.get(), 0.5f, {x0, x1, y0, y1}, false);
                    expect_labelling(lit.get(), 0.5f, {x0, x1, y0, y1}, false);
                }
            }
        }
    }
}

// Labels, tables and merges, seen by eye.

TEST_F(ConcompTest, ANotchMergesTheRightLabelIntoTheLeft) {
    std::vector<uint32_t> table;
    const std::vector<int32_t> labels = labels_of(drawn({"#.#", "###"}).get(), 0.5f, &table);
    EXPECT_EQ(labels, (std::vector<int32_t>{1, 0, 2, 1, 1, 1}));
    EXPECT_EQ(table, (std::vector<uint32_t>{0, 1, 1}));
    const std::vector<BlobInfo> info = summary_of(3, 2, labels, table, 1);
    EXPECT_EQ(numbers(info[1]), (std::vector<uint32_t>{0, 2, 0, 1, 5}));
    EXPECT_EQ(info[2].area, 0u);
}

// The neighbour to the left comes first, although its label is the younger one.
TEST_F(ConcompTest, TheLeftNeighboursLabelWinsOverOlderOnes) {
    std::vector<uint32_t> table;
    EXPECT_EQ(labels_of(drawn({"..#", "##."}).get(), 0.5f, &table), (std::vector<int32_t>{0, 0, 1, 2, 2, 0}));
    EXPECT_EQ(table, (std::vector<uint32_t>{0, 2, 2}));
}

TEST_F(ConcompTest, TheUpperLeftNeighbourWinsOverTheUpperRight) {
    std::vector<uint32_t> table;
    EXPECT_EQ(labels_of(drawn({"#.#", ".#."}).get(), 0.5f, &table), (std::vector<int32_t>{1, 0, 2, 0, 1, 0}));
    EXPECT_EQ(table, (std::vector<uint32_t>{0, 1, 1}));
}

TEST_F(ConcompTest, CornersConnect) {
    for (const std::vector<std::string> &map : {std::vector<std::string>{"#.", ".#"}, {".#", "#."}}) {
        std::vector<uint32_t> table;
        const std::vector<int32_t> labels = labels_of(drawn(map).get(), 0.5f, &table);
        EXPECT_EQ(table, (std::vector<uint32_t>{0, 1}));
        EXPECT_EQ(numbers(summary_of(2, 2, labels, table, 1)[1]), (std::vector<uint32_t>{0, 1, 0, 1, 2}));
    }
}

TEST_F(ConcompTest, AValueAtTheThresholdAndANotANumberAreBackground) {
    const float above = std::nextafter(3.0f, 4.0f);
    const RealImagePtr image = make_image(9, 1, {3.0f, above, 3.0f, not_a_number, infinity, 3.0f, -infinity, above, 2.0f});
    std::vector<uint32_t> table;
    EXPECT_EQ(labels_of(image.get(), 3.0f, &table), (std::vector<int32_t>{0, 1, 0, 0, 2, 0, 0, 3, 0}));
    EXPECT_EQ(labels_of(image.get(), not_a_number, &table), std::vector<int32_t>(9, 0));
    EXPECT_EQ(labels_of(image.get(), -infinity, &table), (std::vector<int32_t>{1, 1, 1, 0, 2, 2, 0, 3, 3}));
}

TEST_F(ConcompTest, AWindowOfOneLitPixelHasOneLabel) {
    const RealImagePtr image = drawn({"###", "###", "###"});
    for (uint32_t y = 0; y < 3; ++y) {
        for (uint32_t x = 0; x < 3; ++x) {
            int32_t label = 7;
            uint32_t table[2] = {7, 7};
            EXPECT_EQ(KoConCompRealSubImage(image.get(), 0.5f, &label, table, x, x, y, y), 1u);
            EXPECT_EQ(label, 1);
            EXPECT_EQ(table[0], 0u);
            EXPECT_EQ(table[1], 1u);
        }
    }
}

TEST_F(ConcompTest, WithoutLitPixelsThereAreNoLabels) {
    const RealImagePtr image = make_image(5, 4, [](uint64_t, uint64_t) { return 0.5f; });
    std::vector<int32_t> labels(20, 9);
    uint32_t table = 9;
    EXPECT_EQ(KoConCompRealImage(image.get(), 0.5f, labels.data(), &table), 0u);
    EXPECT_EQ(labels, std::vector<int32_t>(20, 0));
    EXPECT_EQ(table, 0u);
    BlobInfo info{};
    EXPECT_EQ(KoConCompRealImageInfo(5, 4, labels.data(), &table, &info), 0u);
    EXPECT_EQ(numbers(info), std::vector<uint32_t>(5, 0));
}

TEST_F(ConcompTest, AnImageWithoutPixelsHasNoLabels) {
    for (const auto &[width, height] : sizes_without_pixels) {
        const RealImagePtr image(KoRealImageNew(width, height));
        int32_t label = 7;
        uint32_t table[2] = {7, 7};
        EXPECT_EQ(KoConCompRealImage(image.get(), 0.5f, &label, table), 0u);
        EXPECT_EQ(label, 7);
        EXPECT_EQ(table[1], 7u);
    }
}

TEST_F(ConcompTest, TheSummaryGoesByTheTableAndSkipsItsZeros) {
    const std::vector<int32_t> labels = {1, 2, 3, 0, 3, 2, 1, 4, 4};
    const std::vector<uint32_t> table = {0, 3, 0, 3, 4};
    EXPECT_EQ(numbers(summary_of(3, 3, labels, table, 2)),
              (std::vector<std::vector<uint32_t>>{
                  {0, 0, 0, 0, 0}, {0, 0, 0, 0, 0}, {0, 0, 0, 0, 0}, {0, 2, 0, 2, 4}, {1, 2, 2, 2, 2}}));
    summary_of(3, 0, labels, table, 0);
    summary_of(0, 3, labels, table, 0);
}

TEST_F(ConcompTest, NothingIsReported) {
    const RealImagePtr image = drawn({"#.#", "###"});
    std::vector<uint32_t> table;
    const PrintCapture printed("debug");
    labels_of(image.get(), 0.5f, &table);
    KoBlobDetectionTestSizeStep1(image.get(), 0.5f, 0.1f);
    KoBlobDetectionTestSizeStep2(image.get(), image.get());
    EXPECT_EQ(printed.texts(), std::vector<std::string>());
    expect_status(KO_OK, "");
}

// Maps on which each new label takes over all labels before it. Following the table step by step, one would take the square of
// their number: they are so large that it would not come to an end.

TEST_F(ConcompTest, ALongChainDownAZigzagIsLabelledInGoodTime) {
    for (const uint64_t height : {uint64_t{40}, uint64_t{1} << 21}) {
        const RealImagePtr image =
            make_image(3, height, [](uint64_t x, uint64_t y) { return (y % 2 == 0) == (x == 2) ? 1.0f : 0.0f; });
        if (height == 40) {
            expect_labelling(image.get(), 0.5f);
            continue;
        }
        const auto count = static_cast<uint32_t>(1 + height / 2);
        std::vector<int32_t> labels(3 * height);
        std::vector<uint32_t> table(count + 1);
        ASSERT_EQ(KoConCompRealImage(image.get(), 0.5f, labels.data(), table.data()), count);
        EXPECT_EQ(table[0], 0u);
        EXPECT_TRUE(std::all_of(table.begin() + 1, table.end(), [&](uint32_t root) { return root == count; }));
        for (uint64_t y = 1; y + 1 < height; y += 2) {
            const auto label = static_cast<int32_t>(2 + y / 2);
            const int32_t expected[] = {label, label, 0, 0, 0, label};
            ASSERT_TRUE(std::equal(expected, expected + 6, &labels[3 * y])) << "row " << y;
        }
        EXPECT_EQ(numbers(summary_of(3, static_cast<uint32_t>(height), labels, table, 1)[count]),
                  (std::vector<uint32_t>{0, 2, 0, static_cast<uint32_t>(height) - 1, static_cast<uint32_t>(height / 2 * 3)}));
    }
}

// A comb whose teeth meet one new label each in a single row.
TEST_F(ConcompTest, ALongChainAlongARowIsLabelledInGoodTime) {
    for (const uint64_t teeth : {uint64_t{6}, uint64_t{1} << 19}) {
        const RealImagePtr image = make_image(4 * teeth, 5, [](uint64_t x, uint64_t y) {
            const bool lit[] = {true, x % 4 == 1, x % 2 == 1, x % 4 != 2, x % 4 == 1};
            return lit[y] ? 1.0f : 0.0f;
        });
        if (teeth == 6) {
            expect_labelling(image.get(), 0.5f);
            continue;
        }
        const auto count = static_cast<uint32_t>(teeth + 1);
        std::vector<int32_t> labels(20 * teeth);
        std::vector<uint32_t> table(count + 1);
        ASSERT_EQ(KoConCompRealImage(image.get(), 0.5f, labels.data(), table.data()), count);
        EXPECT_EQ(table[0], 0u);
        EXPECT_TRUE(std::all_of(table.begin() + 1, table.end() - 1, [&](uint32_t root) { return root == count - 1; }));
        EXPECT_EQ(table[count], count);
        const std::vector<BlobInfo> info = summary_of(static_cast<uint32_t>(4 * teeth), 5, labels, table, 2);
        EXPECT_EQ(info[count].area, 2u);
        EXPECT_EQ(info[count - 1].area, static_cast<uint32_t>(11 * teeth) - 2);
    }
}

// The first filter.

// Filters a copy of the image by the library and another by the plain form; returns what was kept.
uint32_t expect_step_1(const RealImage *image, float threshold, float fraction) {
    const RealImagePtr actual = make_image(image->width, image->height, pixels(image));
    const RealImagePtr expected = make_image(image->width, image->height, pixels(image));
    const uint32_t kept = reference_size_step_1(expected.get(), threshold, fraction);
    EXPECT_EQ(KoBlobDetectionTestSizeStep1(actual.get(), threshold, fraction), kept);
    EXPECT_TRUE(same_floats(pixels(expected.get()), pixels(actual.get())));
    EXPECT_TRUE(padding_is_zero(actual.get()));
    return kept;
}

// The same, and then the image itself is filtered.
uint32_t filter_by_step_1(RealImage *image, float threshold, float fraction) {
    const uint32_t kept = expect_step_1(image, threshold, fraction);
    EXPECT_EQ(KoBlobDetectionTestSizeStep1(image, threshold, fraction), kept);
    return kept;
}

RealImagePtr dark(uint64_t width, uint64_t height) {
    return make_image(width, height, [](uint64_t, uint64_t) { return 0.0f; });
}

void add_box(RealImage *image, uint64_t x0, uint64_t y0, uint64_t width, uint64_t height, float value = 1.0f) {
    for (uint64_t y = y0; y < y0 + height; ++y) {
        for (uint64_t x = x0; x < x0 + width; ++x) {
            image->rows[y][x] = value;
        }
    }
}

RealImagePtr box_at(uint64_t x0, uint64_t y0, uint64_t width, uint64_t height) {
    RealImagePtr image = dark(100, 100);
    add_box(image.get(), x0, y0, width, height);
    return image;
}

TEST_F(ConcompTest, Step1OnNoisyPictures) {
    uint32_t kept = 0;
    for (uint32_t seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE(seed);
        Noise noise(seed);
        const uint64_t width = 20 + random_below(noise, 130);
        const uint64_t height = 20 + random_below(noise, 130);
        const RealImagePtr image = blobs(width, height, noise);
        for (const float fraction : {0.0f, 0.01f, 0.03f, 0.055f}) {
            kept += expect_step_1(image.get(), noise.uniform(0.4f, 0.7f), fraction);
        }
    }
    EXPECT_GT(kept, 200u);
}

TEST_F(ConcompTest, Step1OnEveryKindOfMap) {
    for (uint32_t seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        Noise noise(seed);
        for (const auto make : {dense_noise, awkward_noise, checkerboard, spiral, comb}) {
            const uint64_t width = 1 + random_below(noise, 90);
            expect_step_1(make(width, 1 + random_below(noise, 90), noise).get(), 0.5f, 0.01f);
        }
    }
}

// The lower limit is outside, the upper one inside: see "Bounds inside and outside" in docs/compatibility.md.
TEST_F(ConcompTest, Step1KeepsASideAtTheUpperLimitAndNotAtTheLower) {
    for (const auto &[side, kept] : {std::pair<uint64_t, uint32_t>{5, 0}, {6, 1}, {10, 1}, {11, 0}}) {
        const RealImagePtr square = box_at(40, 30, side, side);
        EXPECT_EQ(expect_step_1(square.get(), 0.5f, 0.05f), kept) << side;
        const RealImagePtr lying = box_at(40, 30, side, 8);
        EXPECT_EQ(expect_step_1(lying.get(), 0.5f, 0.05f), kept) << side;
        const RealImagePtr standing = box_at(40, 30, 8, side);
        EXPECT_EQ(expect_step_1(standing.get(), 0.5f, 0.05f), kept) << side;
    }
}

// A hundred times 0.03 is 3 in single precision and just below in double.
TEST_F(ConcompTest, Step1FormsItsLowerLimitInSinglePrecision) {
    EXPECT_EQ(expect_step_1(box_at(20, 20, 3, 3).get(), 0.5f, 0.03f), 0u);
    EXPECT_EQ(expect_step_1(box_at(20, 20, 4, 4).get(), 0.5f, 0.03f), 1u);
}

TEST_F(ConcompTest, Step1TakesTheLowerLimitFromTheLongerSideAndTheUpperFromTheShorter) {
    for (const bool lying : {true, false}) {
        for (const auto &[side, kept] : {std::pair<uint64_t, uint32_t>{2, 0}, {4, 0}, {5, 1}, {6, 1}, {7, 0}, {20, 0}}) {
            const RealImagePtr image = lying ? dark(200, 60) : dark(60, 200);
            add_box(image.get(), 10, 10, side, side);
            EXPECT_EQ(expect_step_1(image.get(), 0.5f, 0.02f), kept) << side;
        }
    }
}

TEST_F(ConcompTest, Step1KeepsUpToTwiceAsLongAsWide) {
    for (const auto &[longer, kept] : {std::pair<uint64_t, uint32_t>{6, 1}, {7, 0}}) {
        EXPECT_EQ(expect_step_1(box_at(3, 3, 3, longer).get(), 0.5f, 0.02f), kept);
        EXPECT_EQ(expect_step_1(box_at(3, 3, longer, 3).get(), 0.5f, 0.02f), kept);
    }
}

RealImagePtr diagonal_of(uint64_t length) {
    RealImagePtr image = dark(100, 100);
    for (uint64_t i = 0; i < length; ++i) {
        image->rows[20 + i][30 + i] = 1.0f;
    }
    return image;
}

TEST_F(ConcompTest, Step1KeepsAQuarterOfTheBox) {
    EXPECT_EQ(expect_step_1(diagonal_of(4).get(), 0.5f, 0.01f), 1u);
    EXPECT_EQ(expect_step_1(diagonal_of(5).get(), 0.5f, 0.01f), 0u);
}

TEST_F(ConcompTest, Step1ClearsEverythingElse) {
    const RealImagePtr image = make_image(100, 100, [](uint64_t x, uint64_t) { return x % 3 == 0 ? not_a_number : -4.0f; });
    EXPECT_EQ(filter_by_step_1(image.get(), 0.5f, 0.05f), 0u);
    EXPECT_TRUE(same_floats(std::vector<float>(10000, 0.0f), pixels(image.get())));
    const RealImagePtr two = make_image(100, 100, [](uint64_t, uint64_t) { return 0.5f; });
    add_box(two.get(), 10, 10, 8, 8, 3.0f);
    add_box(two.get(), 50, 10, 9, 7, infinity);
    add_box(two.get(), 10, 50, 12, 9, 3.0f);
    EXPECT_EQ(KoBlobDetectionTestSizeStep1(two.get(), 0.5f, 0.05f), 2u);
    const RealImagePtr expected = dark(100, 100);
    add_box(expected.get(), 10, 10, 8, 8, 3.0f);
    add_box(expected.get(), 50, 10, 9, 7, infinity);
    EXPECT_TRUE(same_floats(pixels(expected.get()), pixels(two.get())));
}

// A blob of many merged labels is judged once, and all of its labels go or stay.
TEST_F(ConcompTest, Step1JudgesABlobOfManyLabelsOnce) {
    const RealImagePtr image = dark(100, 100);
    for (uint64_t x = 0; x < 9; x += 2) {
        add_box(image.get(), 20 + x, 20, 1, 9);
        add_box(image.get(), 60 + x, 20, 1, 9);
        add_box(image.get(), 60 + x, 14, 1, 9);
    }
    add_box(image.get(), 20, 28, 9, 1);
    add_box(image.get(), 60, 28, 9, 1);
    EXPECT_EQ(filter_by_step_1(image.get(), 0.5f, 0.05f), 1u);
    EXPECT_EQ(image->rows[20][20], 1.0f);
    EXPECT_EQ(image->rows[14][60], 0.0f);
}

// The filters' own tables.

// A single row of alternating pixels has more labels than a third of its pixels.
TEST_F(ConcompTest, TheFiltersHaveRoomForAlternatingPixels) {
    for (const uint64_t length : {1u, 2u, 3u, 5u, 100u, 1001u}) {
        for (const bool lying : {true, false}) {
            const auto alternating = [&] {
                return make_image(lying ? length : 1, lying ? 1 : length,
                                  [](uint64_t x, uint64_t y) { return (x + y) % 2 == 0 ? 1.0f : 0.0f; });
            };
            const RealImagePtr first = alternating();
            const RealImagePtr second = alternating();
            EXPECT_EQ(KoBlobDetectionTestSizeStep2(first.get(), second.get()), 0u);
            EXPECT_EQ(pixels(second.get()), std::vector<float>(length, 0.0f));
            EXPECT_EQ(KoBlobDetectionTestSizeStep1(first.get(), 0.5f, 0.01f), 0u);
            EXPECT_EQ(pixels(first.get()), std::vector<float>(length, 0.0f));
        }
    }
}

TEST_F(ConcompTest, TheFiltersTakeImagesWithoutPixels) {
    for (const auto &[width, height] : sizes_without_pixels) {
        const RealImagePtr first(KoRealImageNew(width, height));
        const RealImagePtr second(KoRealImageNew(width, height));
        EXPECT_EQ(KoBlobDetectionTestSizeStep1(first.get(), 0.5f, 0.1f), 0u);
        EXPECT_EQ(KoBlobDetectionTestSizeStep2(first.get(), second.get()), 0u);
    }
    expect_status(KO_OK, "");
}

// The second filter.

uint32_t expect_step_2(const RealImage *first, const RealImage *second) {
    const std::vector<float> before = pixels(first);
    const RealImagePtr actual = make_image(second->width, second->height, pixels(second));
    const RealImagePtr expected = make_image(second->width, second->height, pixels(second));
    const uint32_t kept = reference_size_step_2(first, expected.get());
    EXPECT_EQ(KoBlobDetectionTestSizeStep2(first, actual.get()), kept);
    EXPECT_TRUE(same_floats(pixels(expected.get()), pixels(actual.get())));
    EXPECT_TRUE(same_floats(before, pixels(first)));
    return kept;
}

// The same, and then the second image itself is filtered.
uint32_t filter_by_step_2(const RealImage *first, RealImage *second) {
    const uint32_t kept = expect_step_2(first, second);
    EXPECT_EQ(KoBlobDetectionTestSizeStep2(first, second), kept);
    return kept;
}

TEST_F(ConcompTest, Step2OnNoisyPictures) {
    uint32_t kept = 0;
    for (uint32_t seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        Noise noise(seed);
        const uint64_t width = 20 + random_below(noise, 110);
        const uint64_t height = 20 + random_below(noise, 110);
        const RealImagePtr first = make_image(width, height, [&](uint64_t, uint64_t) { return noise.uniform(0.0f, 0.105f); });
        const RealImagePtr second = make_image(width, height, [&](uint64_t, uint64_t) { return noise.uniform(0.0f, 0.2f); });
        for (uint32_t i = random_below(noise, 12); i > 0; --i) {
            const float x = noise.uniform(0.0f, static_cast<float>(width));
            const float y = noise.uniform(0.0f, static_cast<float>(height));
            const float radius = noise.uniform(0.5f, 5.0f);
            add_disc(first.get(), x, y, radius, noise.uniform(0.1f, 1.0f));
            add_disc(second.get(), x + noise.uniform(-2.0f, 2.0f), y + noise.uniform(-2.0f, 2.0f),
                     radius * noise.uniform(0.4f, 1.6f), noise.uniform(0.0f, 1.0f));
        }
        kept += expect_step_2(first.get(), second.get());
    }
    EXPECT_GT(kept, 100u);
}

TEST_F(ConcompTest, Step2OnEveryKindOfMap) {
    for (uint32_t seed = 0; seed < 20; ++seed) {
        SCOPED_TRACE(seed);
        Noise noise(seed);
        for (const auto make : {dense_noise, awkward_noise, blobs, checkerboard, spiral, comb}) {
            const uint64_t width = 1 + random_below(noise, 60);
            const uint64_t height = 1 + random_below(noise, 60);
            const RealImagePtr first = make(width, height, noise);
            const RealImagePtr second = make(width, height, noise);
            expect_step_2(first.get(), second.get());
            expect_step_2(first.get(), first.get());
        }
    }
}

// Both limits are outside here, unlike those of the first filter: see "Bounds inside and outside" in docs/compatibility.md.
TEST_F(ConcompTest, Step2RejectsASideAtEitherLimit) {
    for (const auto &[side, kept] : {std::pair<uint64_t, uint32_t>{1, 0}, {2, 1}, {19, 1}, {20, 0}}) {
        const RealImagePtr image = dark(200, 300);
        add_box(image.get(), 90, 90, side, side);
        EXPECT_EQ(expect_step_2(image.get(), image.get()), kept) << side;
    }
    for (const auto &[side, kept] : {std::pair<uint64_t, uint32_t>{1, 1}, {9, 1}, {10, 0}}) {
        const RealImagePtr image = box_at(50, 50, side, side);
        EXPECT_EQ(expect_step_2(image.get(), image.get()), kept) << side;
    }
}

TEST_F(ConcompTest, Step2KeepsUpToTwiceAsLongAsWide) {
    for (const auto &[longer, kept] : {std::pair<uint64_t, uint32_t>{6, 1}, {7, 0}}) {
        const RealImagePtr standing = box_at(0, 0, 3, longer);
        EXPECT_EQ(expect_step_2(standing.get(), standing.get()), kept);
        const RealImagePtr lying = box_at(100 - longer, 97, longer, 3);
        EXPECT_EQ(expect_step_2(lying.get(), lying.get()), kept);
    }
}

// A quarter of the box is not enough, unlike in the first filter.
TEST_F(ConcompTest, Step2WantsMoreThanAQuarterOfTheBox) {
    const RealImagePtr three = diagonal_of(3);
    EXPECT_EQ(expect_step_2(three.get(), three.get()), 1u);
    const RealImagePtr four = diagonal_of(4);
    EXPECT_EQ(expect_step_2(four.get(), four.get()), 0u);
}

TEST_F(ConcompTest, Step2WantsMoreThanAQuarterOfTheSecondBlobInTheFirst) {
    const RealImagePtr first = box_at(50, 50, 1, 1);
    for (const auto &[width, kept] : {std::pair<uint64_t, uint32_t>{2, 0}, {1, 1}}) {
        const RealImagePtr second = box_at(50, 50, width, 2);
        EXPECT_EQ(expect_step_2(first.get(), second.get()), kept);
    }
    const RealImagePtr three = box_at(50, 50, 2, 2);
    three->rows[51][51] = 0.0f;
    EXPECT_EQ(expect_step_2(first.get(), three.get()), 1u);
}

// The second image is lit above a quarter of the blob's mean value.
TEST_F(ConcompTest, Step2LightsAboveAQuarterOfTheMean) {
    const RealImagePtr first = dark(100, 100);
    add_box(first.get(), 50, 50, 2, 2, 3.0f);
    add_box(first.get(), 50, 50, 2, 1, 1.0f); // the mean is 2
    for (const auto &[value, kept] : {std::pair<float, uint32_t>{0.5f, 0}, {std::nextafter(0.5f, 1.0f), 1}}) {
        const RealImagePtr second = dark(100, 100);
        add_box(second.get(), 50, 50, 2, 2, value);
        EXPECT_EQ(expect_step_2(first.get(), second.get()), kept);
    }
}

// Single precision would lose the three small values.
TEST_F(ConcompTest, Step2AddsUpInDoublePrecision) {
    const RealImagePtr first = dark(100, 100);
    add_box(first.get(), 50, 50, 2, 2, 1.0f);
    first->rows[50][50] = 16777216.0f;
    const RealImagePtr second = dark(100, 100);
    add_box(second.get(), 50, 50, 2, 2, 1048576.125f);
    EXPECT_EQ(expect_step_2(first.get(), second.get()), 0u);
    add_box(second.get(), 50, 50, 2, 2, 1048576.375f);
    EXPECT_EQ(expect_step_2(first.get(), second.get()), 1u);
}

TEST_F(ConcompTest, Step2WithoutACommonPixelKeepsNothing) {
    const RealImagePtr first = box_at(50, 50, 4, 4);
    const RealImagePtr second = box_at(54, 50, 4, 4);
    EXPECT_EQ(filter_by_step_2(first.get(), second.get()), 0u);
    EXPECT_EQ(pixels(second.get()), std::vector<float>(10000, 0.0f));
}

TEST_F(ConcompTest, Step2KeepsTheWinnerWithItsPixelsOutsideOfTheFirstBlob) {
    const RealImagePtr first = box_at(50, 50, 4, 4);
    const RealImagePtr second = make_image(100, 100, [](uint64_t, uint64_t) { return 0.2f; });
    add_box(second.get(), 48, 49, 6, 5, 7.0f);
    EXPECT_EQ(KoBlobDetectionTestSizeStep2(first.get(), second.get()), 1u);
    const RealImagePtr expected = dark(100, 100);
    add_box(expected.get(), 48, 49, 6, 5, 7.0f);
    EXPECT_EQ(pixels(expected.get()), pixels(second.get()));
}

// A blob of the second image that goes on outside of the window counts with what lies within.
TEST_F(ConcompTest, Step2SeesNothingOutsideOfTheWindow) {
    const RealImagePtr first = box_at(50, 50, 3, 3); // window 44 to 58
    const RealImagePtr second = dark(100, 100);
    add_box(second.get(), 52, 51, 40, 4);
    EXPECT_EQ(filter_by_step_2(first.get(), second.get()), 1u);
    const RealImagePtr expected = dark(100, 100);
    add_box(expected.get(), 52, 51, 7, 4);
    EXPECT_EQ(pixels(expected.get()), pixels(second.get()));
}

TEST_F(ConcompTest, Step2CountsABlobOnceForEachThatFindsIt) {
    const RealImagePtr first = box_at(50, 50, 2, 4);
    add_box(first.get(), 53, 50, 2, 4);
    const RealImagePtr second = box_at(50, 50, 5, 4);
    EXPECT_EQ(expect_step_2(first.get(), second.get()), 2u);
}

// What one blob leaves in the counters would decide the next one's winner.
TEST_F(ConcompTest, Step2CountsEachBlobsPixelsAfresh) {
    const RealImagePtr first = dark(100, 100);
    const RealImagePtr second = dark(100, 100);
    add_box(first.get(), 10, 10, 8, 8);
    add_box(second.get(), 10, 10, 8, 8);
    add_box(first.get(), 60, 60, 8, 3);
    add_box(second.get(), 60, 60, 2, 3);
    add_box(second.get(), 64, 60, 4, 3);
    EXPECT_EQ(filter_by_step_2(first.get(), second.get()), 2u);
    EXPECT_EQ(second->rows[60][60], 0.0f);
    EXPECT_EQ(second->rows[60][64], 1.0f);
}

TEST_F(ConcompTest, Step2GivesATieToTheFirstOfTwo) {
    const RealImagePtr first = box_at(50, 50, 8, 3);
    const RealImagePtr second = box_at(50, 50, 3, 3);
    add_box(second.get(), 55, 50, 3, 3);
    EXPECT_EQ(filter_by_step_2(first.get(), second.get()), 1u);
    EXPECT_EQ(second->rows[51][50], 1.0f);
    EXPECT_EQ(second->rows[51][55], 0.0f);
}

// The entry that stands first in the table decides, and not the lower root.
TEST_F(ConcompTest, Step2GivesATieToTheFirstEntryAndNotToTheLowerRoot) {
    const RealImagePtr first = box_at(50, 50, 8, 3);
    const RealImagePtr second = dark(100, 100);
    const char *rows[] = {"..#..###", "###..###", "###..#.."}; // labels 1 and 2, then 3, which takes over 1
    for (uint64_t y = 0; y < 3; ++y) {
        for (uint64_t x = 0; x < 8; ++x) {
            second->rows[50 + y][50 + x] = rows[y][x] == '#' ? 1.0f : 0.0f;
        }
    }
    EXPECT_EQ(filter_by_step_2(first.get(), second.get()), 1u);
    EXPECT_EQ(second->rows[52][50], 1.0f);
    EXPECT_EQ(second->rows[50][55], 0.0f);
}

} // namespace
