// The record of one picture: its start and end, the tables of its stages, and the blocks that a working pixel stands for.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

class RedEyeImageParamTest : public LibraryTest {};

ColorImagePtr small_picture(uint32_t width = 6, uint32_t height = 5) {
    return make_color_image(width, height, KO_COLORSPACE_RGB,
                            [](uint32_t c, uint64_t x, uint64_t y) { return static_cast<float>(c + x + y); });
}

void expect_initial(const RedEyeImageParam &param, ColorImage *picture) {
    EXPECT_EQ(param.image, picture);
    EXPECT_EQ(param.working_image, nullptr);
    EXPECT_EQ(param.scale, 0.0f);
    EXPECT_EQ(param.reddish_map, nullptr);
    EXPECT_EQ(param.red_lum_map, nullptr);
    EXPECT_EQ(param.col_map, nullptr);
    EXPECT_EQ(param.map_max, 0.0f);
    EXPECT_EQ(param.min_blob_size, 0u);
    EXPECT_EQ(param.max_blob_size, 0u);
    EXPECT_EQ(param.blob_info, nullptr);
    EXPECT_EQ(param.labels, nullptr);
    EXPECT_EQ(param.label_table, nullptr);
    EXPECT_EQ(param.label_count, 0u);
    EXPECT_EQ(param.local_blob_info, nullptr);
    EXPECT_EQ(param.local_labels, nullptr);
    EXPECT_EQ(param.local_label_table, nullptr);
    EXPECT_EQ(param.local_label_count, 0u);
    EXPECT_EQ(param.root_done, nullptr);
    EXPECT_EQ(param.overlap, nullptr);
    EXPECT_EQ(param.blob_count, 0);
    EXPECT_EQ(param.blob_mask, nullptr);
    EXPECT_EQ(param.final_blobs, nullptr);
    EXPECT_EQ(param.x_starts, nullptr);
    EXPECT_EQ(param.x_counts, nullptr);
    EXPECT_EQ(param.y_starts, nullptr);
    EXPECT_EQ(param.y_counts, nullptr);
    EXPECT_EQ(param.patches, nullptr);
    EXPECT_EQ(param.accepted_count, 0u);
    EXPECT_EQ(param.rejected_count, 0u);
    EXPECT_EQ(param.undecided_count, 0u);
}

// Leaves junk in the heap where the next tables may come to stand.
void soil_heap() {
    std::vector<void *> blocks;
    for (const int32_t size :
         {16, 24, 32, 40, 48, 64, 80, 96, 120, 128, 160, 200, 240, 256, 320, 400, 480, 512, 640, 800, 1024, 2560}) {
        for (int i = 0; i < 8; ++i) {
            blocks.push_back(KoMalloc(size));
            std::memset(blocks.back(), 0xCD, static_cast<size_t>(size));
        }
    }
    for (void *block : blocks) {
        KoFree(block);
    }
}

template <class T> bool all_clear(const T *table, size_t count) {
    const std::vector<unsigned char> zeros(count * sizeof(T), 0);
    return std::memcmp(table, zeros.data(), zeros.size()) == 0;
}

TEST_F(RedEyeImageParamTest, InitSetsThePictureAndClearsTheRest) {
    const ColorImagePtr picture = small_picture();
    RedEyeImageParam param;
    std::memset(static_cast<void *>(&param), 0xAB, sizeof param);
    expect_success([&] { return KoRedEyeImageParamInit(&param, picture.get()); });
    expect_initial(param, picture.get());
    expect_success([&] { return KoRedEyeImageParamInit(&param, nullptr); });
    expect_initial(param, nullptr);
}

TEST_F(RedEyeImageParamTest, NewGivesAnInitialRecord) {
    soil_heap();
    const ColorImagePtr picture = small_picture();
    const RedEyeImageParamPtr param(KoRedEyeImageParamNew(picture.get()));
    ASSERT_NE(param, nullptr);
    expect_initial(*param, picture.get());
    expect_status(KO_OK, "");
}

TEST_F(RedEyeImageParamTest, FreeAndDeleteAcceptNullAndEmptyRecords) {
    expect_success([] { return KoRedEyeImageParamFree(nullptr); });
    expect_success([] { return KoRedEyeImageParamDelete(nullptr); });
    RedEyeImageParam param{};
    KoRedEyeImageParamInit(&param, nullptr);
    expect_success([&] { return KoRedEyeImageParamFree(&param); });
    expect_success([] { return KoRedEyeImageParamDelete(KoRedEyeImageParamNew(nullptr)); });
}

// The picture is the caller's, also where it is the working image itself.
TEST_F(RedEyeImageParamTest, ThePictureOutlivesTheRecord) {
    const ColorImagePtr picture = small_picture();
    RedEyeImageParam *param = KoRedEyeImageParamNew(picture.get());
    ASSERT_NE(param, nullptr);
    param->working_image = picture.get();
    expect_success([&] { return KoRedEyeImageParamDelete(param); });
    EXPECT_EQ(KoRealImageGetPixel(KoColorImageGetImage(picture.get(), 2), 5, 4), 11.0f);
}

TEST_F(RedEyeImageParamTest, MatrixTablesAreThoseAskedFor) {
    RedEyeImageParam param{};
    KoRedEyeImageParamInit(&param, nullptr);
    expect_success([&] { return KoRedEyeImageParamAllocateMatrix(&param, 30, 11); });
    ASSERT_NE(param.labels, nullptr);
    ASSERT_NE(param.label_table, nullptr);
    std::fill_n(param.labels, 30, -1); // every entry may be written
    std::fill_n(param.label_table, 12, 1u);
    EXPECT_EQ(param.blob_info, nullptr);
    param.blob_info = static_cast<BlobInfo *>(KoAllocClearElements(12, sizeof(BlobInfo)));
    param.label_count = 4;
    expect_success([&] { return KoRedEyeImageParamFreeMatrix(&param); });
    EXPECT_EQ(param.blob_info, nullptr);
    EXPECT_EQ(param.labels, nullptr);
    EXPECT_EQ(param.label_table, nullptr);
    EXPECT_EQ(param.label_count, 4u);
    expect_success([&] { return KoRedEyeImageParamFreeMatrix(&param); }); // nothing is freed twice
    KoRedEyeImageParamFree(&param);
}

TEST_F(RedEyeImageParamTest, SubMatrixTablesAreThoseAskedForAndClear) {
    soil_heap();
    RedEyeImageParam param{};
    KoRedEyeImageParamInit(&param, nullptr);
    expect_success([&] { return KoRedEyeImageParamAllocateSubMatrix(&param, 40, 15, 9); });
    EXPECT_TRUE(all_clear(param.local_blob_info, 16));
    EXPECT_TRUE(all_clear(param.root_done, 10));
    EXPECT_TRUE(all_clear(param.overlap, 16));
    EXPECT_TRUE(all_clear(param.blob_mask, 40));
    EXPECT_TRUE(all_clear(param.final_blobs, 10));
    std::fill_n(param.local_labels, 40, -1);
    std::fill_n(param.local_label_table, 16, 1u);
    param.local_label_count = 7;
    expect_success([&] { return KoRedEyeImageParamFreeSubMatrix(&param); });
    EXPECT_EQ(param.local_blob_info, nullptr);
    EXPECT_EQ(param.local_labels, nullptr);
    EXPECT_EQ(param.local_label_table, nullptr);
    EXPECT_EQ(param.root_done, nullptr);
    EXPECT_EQ(param.overlap, nullptr);
    EXPECT_EQ(param.local_label_count, 7u);
    ASSERT_NE(param.blob_mask, nullptr); // these two outlive it
    ASSERT_NE(param.final_blobs, nullptr);
    EXPECT_TRUE(all_clear(param.blob_mask, 40));
    EXPECT_TRUE(all_clear(param.final_blobs, 10));
    expect_success([&] { return KoRedEyeImageParamFree(&param); });
}

// What they return is the thread's last status, whoever left it.
TEST_F(RedEyeImageParamTest, AllocationsHandOnAnOldStatus) {
    RedEyeImageParam param{};
    KoRedEyeImageParamInit(&param, nullptr);
    KoMsg(KO_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(KoRedEyeImageParamAllocateMatrix(&param, 30, 11), KO_ERR_INVALID_ARGUMENT);
    EXPECT_NE(param.labels, nullptr);
    EXPECT_NE(param.label_table, nullptr);
    EXPECT_EQ(KoRedEyeImageParamAllocateSubMatrix(&param, 40, 15, 9), KO_ERR_INVALID_ARGUMENT);
    EXPECT_NE(param.local_blob_info, nullptr);
    EXPECT_NE(param.local_labels, nullptr);
    EXPECT_NE(param.local_label_table, nullptr);
    EXPECT_NE(param.root_done, nullptr);
    EXPECT_NE(param.overlap, nullptr);
    EXPECT_NE(param.blob_mask, nullptr);
    EXPECT_NE(param.final_blobs, nullptr);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INVALID_ARGUMENT);
    KoRedEyeImageParamFreeMatrix(&param);
    KoRedEyeImageParamFreeSubMatrix(&param);
    KoRedEyeImageParamFree(&param);
    KoStatusClear();
}

void expect_rows(float *block, float *const rows[3], uint32_t channels, uint32_t feature_length) {
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(all_clear(block, size_t{channels} * feature_length));
    for (uint32_t c = 0; c < 3; ++c) {
        EXPECT_EQ(rows[c], c < channels ? block + size_t{c} * feature_length : nullptr) << "row " << c;
    }
}

void expect_clear_but_rows(RedEyePatch patch) {
    patch.features = nullptr;
    patch.projected = nullptr;
    std::fill_n(patch.feature_rows, 3, nullptr);
    std::fill_n(patch.projected_rows, 3, nullptr);
    EXPECT_TRUE(all_clear(&patch, 1));
}

void expect_slots(const RedEyeImageParam &param, uint32_t channels, uint32_t feature_length) {
    ASSERT_NE(param.patches, nullptr);
    for (int32_t i = 0; i < param.blob_count; ++i) {
        const RedEyePatch &patch = param.patches[i];
        expect_rows(patch.features, patch.feature_rows, channels, feature_length);
        expect_rows(patch.projected, patch.projected_rows, channels, feature_length);
        EXPECT_NE(patch.features, patch.projected);
        expect_clear_but_rows(patch);
    }
}

TEST_F(RedEyeImageParamTest, PatchSlotsHaveARowAChannel) {
    for (uint32_t channels = 1; channels <= 3; ++channels) {
        for (const int32_t blobs : {1, 2, 7}) {
            soil_heap();
            RedEyeImageParam param{};
            KoRedEyeImageParamInit(&param, nullptr);
            param.blob_count = blobs;
            expect_success([&] { return _KoRedEyeImageParamAllocatePatchTab(&param, channels, 20); });
            expect_slots(param, channels, 20);
            expect_success([&] { return KoRedEyeImageParamFree(&param); });
        }
    }
}

// The blocks of large cells that fall to each of small ones.
struct Blocks {
    std::vector<uint64_t> starts;
    std::vector<uint32_t> counts;
};

Blocks reference_blocks(uint64_t small, uint64_t large) {
    Blocks blocks;
    const float ratio = static_cast<float>(large) / static_cast<float>(small);
    const uint64_t whole = static_cast<uint64_t>(std::floor(ratio));
    uint64_t position = 0;
    for (uint64_t i = 0; i < small; ++i) {
        const float product = (static_cast<float>(i) + 1.0f) * ratio;
        const uint64_t limit = static_cast<uint64_t>(std::floor(product));
        const uint64_t count = limit > whole + position ? whole + 1 : whole;
        const uint64_t start = std::min(position, large);
        blocks.starts.push_back(start);
        blocks.counts.push_back(static_cast<uint32_t>(std::min(position + count, large) - start));
        position += count;
    }
    return blocks;
}

Blocks library_blocks(uint64_t small, uint64_t large) {
    constexpr uint32_t mark = 0xA5A5A5A5u;
    Blocks blocks{std::vector<uint64_t>(small + 1, mark), std::vector<uint32_t>(small + 1, mark)};
    EXPECT_EQ(_KoGetUpsampleD(small, large, blocks.counts.data(), blocks.starts.data()), KO_OK);
    EXPECT_EQ(blocks.starts.back(), mark) << "written past the end";
    EXPECT_EQ(blocks.counts.back(), mark) << "written past the end";
    blocks.starts.pop_back();
    blocks.counts.pop_back();
    return blocks;
}

TEST_F(RedEyeImageParamTest, EqualLengthsGiveBlocksOfOne) {
    const Blocks blocks = library_blocks(100, 100);
    EXPECT_EQ(blocks.counts, std::vector<uint32_t>(100, 1u));
    std::vector<uint64_t> rising(100);
    std::iota(rising.begin(), rising.end(), 0u);
    EXPECT_EQ(blocks.starts, rising);
}

TEST_F(RedEyeImageParamTest, ThreeOfTenAreThreeThreeFour) {
    const Blocks blocks = library_blocks(3, 10);
    EXPECT_EQ(blocks.counts, (std::vector<uint32_t>{3, 3, 4}));
    EXPECT_EQ(blocks.starts, (std::vector<uint64_t>{0, 3, 6}));
}

TEST_F(RedEyeImageParamTest, NoSmallCellsGiveNothing) {
    for (const uint64_t large : {0u, 1u, 10u}) {
        EXPECT_TRUE(library_blocks(0, large).counts.empty());
    }
    EXPECT_EQ(_KoGetUpsampleD(0, 10, nullptr, nullptr), KO_OK);
}

void expect_blocks(uint64_t small, uint64_t large) {
    const Blocks expected = reference_blocks(small, large);
    const Blocks actual = library_blocks(small, large);
    ASSERT_EQ(actual.counts, expected.counts) << small << " of " << large;
    ASSERT_EQ(actual.starts, expected.starts) << small << " of " << large;
}

TEST_F(RedEyeImageParamTest, BlocksFollowTheSinglePrecisionRatio) {
    for (uint64_t small = 1; small <= 60; ++small) {
        for (uint64_t large = 0; large <= 200; ++large) {
            expect_blocks(small, large);
        }
    }
    for (const uint64_t small : {97u, 640u, 1000u, 1155u, 1600u, 4001u}) {
        for (const uint64_t large : {1u, 641u, 2500u, 2501u, 3000u, 4002u, 6000u, 9999u, 65535u}) {
            expect_blocks(small, large);
        }
    }
}

// From 2^24 on a length may be rounded up as a float, and the blocks would reach past the large cells.
TEST_F(RedEyeImageParamTest, NoBlockLeavesTheLargeCells) {
    for (const uint64_t large : {16777219u, 16777221u, 33554435u, 99999999u, 2147483647u}) {
        for (const uint64_t small : {1u, 2u, 3u, 5u, 7u, 64u, 1000u}) {
            const Blocks blocks = library_blocks(small, large);
            for (uint64_t i = 0; i < small; ++i) {
                ASSERT_LE(blocks.starts[i] + blocks.counts[i], large) << small << " of " << large << ", block " << i;
                ASSERT_EQ(blocks.starts[i], i == 0 ? 0 : blocks.starts[i - 1] + blocks.counts[i - 1]);
            }
            expect_blocks(small, large);
        }
    }
    EXPECT_EQ(library_blocks(1, 16777219).counts, std::vector<uint32_t>{16777219u});
}

// Columns and rows each have their own table, from the map to the picture.
TEST_F(RedEyeImageParamTest, ClassificationTablesGoFromTheMapToThePicture) {
    const ColorImagePtr picture = small_picture(47, 20);
    RedEyeImageParam param{};
    KoRedEyeImageParamInit(&param, picture.get());
    param.col_map = KoRealImageNew(18, 7);
    param.blob_count = 2;
    expect_success([&] { return KoRedEyeImageParamAllocateCls(&param, 3, 12); });
    const Blocks columns = reference_blocks(18, 47);
    const Blocks rows = reference_blocks(7, 20);
    ASSERT_NE(param.x_starts, nullptr);
    ASSERT_NE(param.x_counts, nullptr);
    ASSERT_NE(param.y_starts, nullptr);
    ASSERT_NE(param.y_counts, nullptr);
    EXPECT_EQ(std::vector<uint64_t>(param.x_starts, param.x_starts + 18), columns.starts);
    EXPECT_EQ(std::vector<uint32_t>(param.x_counts, param.x_counts + 18), columns.counts);
    EXPECT_EQ(std::vector<uint64_t>(param.y_starts, param.y_starts + 7), rows.starts);
    EXPECT_EQ(std::vector<uint32_t>(param.y_counts, param.y_counts + 7), rows.counts);
    expect_slots(param, 3, 12);
    expect_success([&] { return KoRedEyeImageParamFree(&param); });
}

} // namespace
