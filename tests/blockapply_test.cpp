// Block apply: the grid, the order of the calls, what the iterators show, and where the results go.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/blockapply.h"
#include "ko/memory.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using ko_test::expect_status;
using ko_test::expect_success;
using ko_test::make_image;
using ko_test::RealImagePtr;

// What one iterator of a call showed: its place, and the lines that it yielded.
struct Block {
    const RealImage *image;
    uint64_t x, y, width, height;
    std::vector<std::vector<float>> lines;
};

// Stands as data behind the block functions. Each call returns its number, from 0.
struct Recorder {
    std::vector<std::vector<Block>> calls;

    Block block(RealImageLineIterator *iterator) {
        Block seen{iterator->image, iterator->x_start, iterator->y_start, iterator->width, iterator->height, {}};
        while (KoRealImageLineIteratorHasNext(iterator) != 0) {
            const float *line = KoRealImageLineIteratorNext(iterator);
            seen.lines.emplace_back(line, static_cast<const float *>(KoRealImageLineIteratorLineEnd(iterator)));
        }
        return seen;
    }

    template <class... Iterators> static float record(void *data, Iterators *...iterators) {
        auto *recorder = static_cast<Recorder *>(data);
        recorder->calls.push_back({recorder->block(iterators)...});
        return static_cast<float>(recorder->calls.size() - 1);
    }
};

class BlockApplyTest : public ko_test::LibraryTest, public testing::WithParamInterface<int> {
  protected:
    using Line = RealImageLineIterator;

    // The pixel at (x, y) of image i is 100000 i + 1000 y + x.
    static RealImagePtr numbered(uint64_t width, uint64_t height, uint64_t i = 0) {
        return make_image(width, height, [i](uint64_t x, uint64_t y) { return static_cast<float>(100000 * i + 1000 * y + x); });
    }

    // Runs the function of as many images as the test's parameter says.
    int32_t run(uint32_t blocks_x, uint32_t blocks_y, const std::vector<RealImage *> &images, float **result) {
        switch (GetParam()) {
        case 1:
            return KoBlockApplyFunctionTo1RealImage(blocks_x, blocks_y, Recorder::record<Line>, &recorder_, images[0], result);
        case 2:
            return KoBlockApplyFunctionTo2RealImage(blocks_x, blocks_y, Recorder::record<Line, Line>, &recorder_, images[0],
                                                    images[1], result);
        case 3:
            return KoBlockApplyFunctionTo3RealImage(blocks_x, blocks_y, Recorder::record<Line, Line, Line>, &recorder_,
                                                    images[0], images[1], images[2], result);
        default:
            return KoBlockApplyFunctionTo4RealImage(blocks_x, blocks_y, Recorder::record<Line, Line, Line, Line>, &recorder_,
                                                    images[0], images[1], images[2], images[3], result);
        }
    }

    // Runs over as many images as the parameter says, the first of the given size and each further one larger, into an array
    // that the library makes, and compares all calls.
    void expect_blocks(uint32_t blocks_x, uint32_t blocks_y, uint64_t width, uint64_t height) {
        SCOPED_TRACE(testing::Message() << width << " by " << height << " in " << blocks_x << " by " << blocks_y);
        std::vector<RealImagePtr> owners;
        std::vector<RealImage *> images;
        for (int i = 0; i < GetParam(); ++i) {
            const auto more = static_cast<uint64_t>(i);
            owners.push_back(numbered(width + 5 * more, height + more, more));
            images.push_back(owners.back().get());
        }
        recorder_.calls.clear();
        float *result = nullptr;
        expect_success([&] { return run(blocks_x, blocks_y, images, &result); });
        ASSERT_NE(result, nullptr);
        ASSERT_EQ(recorder_.calls.size(), uint64_t{blocks_x} * blocks_y);
        for (size_t call = 0; call < recorder_.calls.size(); ++call) {
            EXPECT_EQ(result[call], static_cast<float>(call));
            expect_call(recorder_.calls[call], images, {call % blocks_x, call / blocks_x, width / blocks_x, height / blocks_y});
        }
        KoFree(result);
    }

    struct Place {
        uint64_t column, row, width, height;
    };

    static void expect_call(const std::vector<Block> &call, const std::vector<RealImage *> &images, const Place &place) {
        ASSERT_EQ(call.size(), images.size());
        for (size_t i = 0; i < images.size(); ++i) {
            const uint64_t x = place.column * place.width;
            const uint64_t y = place.row * place.height;
            EXPECT_EQ(call[i].image, images[i]);
            EXPECT_EQ(call[i].x, x);
            EXPECT_EQ(call[i].y, y);
            EXPECT_EQ(call[i].width, place.width);
            EXPECT_EQ(call[i].height, place.height);
            std::vector<std::vector<float>> lines;
            for (uint64_t v = 0; v < std::max<uint64_t>(place.height, 1); ++v) {
                const float *line = images[i]->rows[y + v] + x;
                lines.emplace_back(line, line + place.width);
            }
            EXPECT_EQ(call[i].lines, lines);
        }
    }

    Recorder recorder_;
};

INSTANTIATE_TEST_SUITE_P(Images, BlockApplyTest, testing::Values(1, 2, 3, 4));

TEST_P(BlockApplyTest, CutsTheFirstImageAndDropsTheRemainders) {
    expect_blocks(8, 8, 100, 100); // blocks of 12 by 12, four columns and four rows in none
    expect_blocks(1, 1, 5, 3);
    expect_blocks(3, 2, 9, 6);
    expect_blocks(3, 2, 11, 7);
    expect_blocks(2, 5, 9, 14);
    expect_blocks(7, 3, 7, 3);
}

TEST_P(BlockApplyTest, AnImageNarrowerThanTheGridGivesEmptyLines) {
    expect_blocks(8, 2, 7, 6);
    for (const std::vector<Block> &call : recorder_.calls) {
        EXPECT_EQ(call[0].lines, std::vector<std::vector<float>>(3));
    }
}

TEST_P(BlockApplyTest, AnImageLowerThanTheGridShowsItsFirstLineInEachBlock) {
    expect_blocks(2, 8, 6, 7);
    for (const std::vector<Block> &call : recorder_.calls) {
        EXPECT_EQ(call[0].y, 0u);
        EXPECT_EQ(call[0].height, 0u);
        EXPECT_EQ(call[0].lines.size(), 1u);
    }
}

TEST_P(BlockApplyTest, AGivenArrayIsOverwritten) {
    const RealImagePtr image = numbered(9, 6);
    const std::vector<RealImage *> images(4, image.get());
    std::vector<float> array(7, -1.0f);
    float *result = array.data();
    expect_success([&] { return run(3, 2, images, &result); });
    EXPECT_EQ(result, array.data());
    EXPECT_EQ(array, (std::vector<float>{0, 1, 2, 3, 4, 5, -1}));
}

TEST_P(BlockApplyTest, AnImageWithoutLinesYieldsNone) {
    const RealImagePtr image(KoRealImageNew(9, 0));
    const std::vector<RealImage *> images(4, image.get());
    float *result = nullptr;
    expect_success([&] { return run(3, 1, images, &result); });
    KoFree(result);
    ASSERT_EQ(recorder_.calls.size(), 3u);
    EXPECT_TRUE(recorder_.calls[0][0].lines.empty());
}

// The array takes 8 bytes a block, though a result has 4.
TEST_P(BlockApplyTest, AnArrayOf2GigabytesFailsLikeAnAllocationOfThatSize) {
    const RealImagePtr image = numbered(9, 6);
    const std::vector<RealImage *> images(4, image.get());
    float *result = nullptr;
    ko_test::StderrCapture swallowed;
    EXPECT_EQ(run(32768, 8192, images, &result), KO_ERR_ALLOC);
    expect_status(KO_ERR_ALLOC, "Cannot allocate -2147483648 bytes");
    EXPECT_EQ(result, nullptr);
    EXPECT_TRUE(recorder_.calls.empty());
}

// A grid whose product would come out small in 32 bits is no small grid.
TEST_P(BlockApplyTest, AGridThatWrapsFailsToo) {
    const RealImagePtr image = numbered(9, 6);
    const std::vector<RealImage *> images(4, image.get());
    for (const auto &[blocks_x, blocks_y] : {std::pair{32768u, 16384u}, std::pair{65536u, 65536u}, std::pair{32769u, 16384u}}) {
        float *result = nullptr;
        KoStatusClear();
        ko_test::StderrCapture swallowed;
        EXPECT_EQ(run(blocks_x, blocks_y, images, &result), KO_ERR_ALLOC);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_ALLOC);
        EXPECT_EQ(result, nullptr);
    }
    EXPECT_TRUE(recorder_.calls.empty());
}

} // namespace
