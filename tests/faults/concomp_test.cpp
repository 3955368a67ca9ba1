// Connected components when memory runs out.
#include <cstdint>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "faults.h"
#include "ko/concomp.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

using ConcompFaultTest = LibraryTest;

// Four discs on noise.
RealImagePtr discs(uint32_t seed) {
    Noise noise(seed);
    return make_image(90, 80, [&](uint64_t x, uint64_t y) {
        const int64_t dx = static_cast<int64_t>(x % 45) - 22;
        const int64_t dy = static_cast<int64_t>(y % 40) - 20;
        return dx * dx + dy * dy <= 9 ? 1.0f : noise.uniform(0.0f, 0.11f);
    });
}

struct Labels {
    uint32_t count = 0;
    std::vector<int32_t> labels = std::vector<int32_t>(90 * 80, 0);
    std::vector<uint32_t> table = std::vector<uint32_t>(45 * 40 + 1, 0);
    uint32_t components = 0;
    std::vector<uint32_t> areas;
};

Labels label(const RealImage *image) {
    Labels result;
    result.count = KoConCompRealSubImage(image, 0.1f, result.labels.data(), result.table.data(), 3, 80, 2, 79);
    std::vector<BlobInfo> info(result.count + 1, BlobInfo{});
    result.components = KoConCompRealImageInfo(78, 78, result.labels.data(), result.table.data(), info.data());
    for (const BlobInfo &blob : info) {
        result.areas.push_back(blob.area);
    }
    return result;
}

// They have no way to fail, so they must do without memory or with none.
TEST_F(ConcompFaultTest, LabellingAndItsSummaryNeverFail) {
    const RealImagePtr image = discs(1);
    const Labels expected = label(image.get());
    EXPECT_GT(expected.components, 4u);
    sweep_faults([&] {
        const Labels actual = label(image.get());
        EXPECT_EQ(actual.count, expected.count);
        EXPECT_EQ(actual.labels, expected.labels);
        EXPECT_EQ(actual.table, expected.table);
        EXPECT_EQ(actual.components, expected.components);
        EXPECT_EQ(actual.areas, expected.areas);
    });
}

// The filter counts nothing and leaves the image as it was, or it does all of its work.
void sweep_filter(const std::function<uint32_t(RealImage *image)> &filter) {
    const RealImagePtr before = discs(2);
    const RealImagePtr after = discs(2);
    const uint32_t kept = filter(after.get());
    EXPECT_EQ(kept, 4u);
    const RealImagePtr image = discs(2);
    const int struck = sweep_faults([&] {
        for (uint64_t y = 0; y < image->height; ++y) {
            KoRealImageSetRow(image.get(), y, before->rows[y]);
        }
        const uint32_t count = filter(image.get());
        const bool fault = KoTestFaultStruck() != 0;
        EXPECT_EQ(count, fault ? 0 : kept);
        EXPECT_EQ(pixels(image.get()), pixels(fault ? before.get() : after.get()));
    });
    EXPECT_GE(struck, 3); // labels, table and summary at least
}

TEST_F(ConcompFaultTest, Step1LeavesTheImageAloneWithoutMemory) {
    sweep_filter([](RealImage *image) { return KoBlobDetectionTestSizeStep1(image, 0.5f, 0.03f); });
}

TEST_F(ConcompFaultTest, Step2LeavesTheImageAloneWithoutMemory) {
    const RealImagePtr first = discs(3);
    sweep_filter([&](RealImage *image) { return KoBlobDetectionTestSizeStep2(first.get(), image); });
}

} // namespace
