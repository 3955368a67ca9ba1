// The colour spaces and their conversion matrices.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/colorspace.h"

namespace {

TEST(ColorSpaceTest, DepthIsThreeForRgbAndYiqAndOneForAllOthers) {
    EXPECT_EQ(KoColorSpaceGetDepth(KO_COLORSPACE_RGB), 3);
    EXPECT_EQ(KoColorSpaceGetDepth(KO_COLORSPACE_YIQ), 3);
    for (const int32_t space : {int32_t{KO_COLORSPACE_GRAY}, 3, 7, 256, INT32_MAX}) {
        EXPECT_EQ(KoColorSpaceGetDepth(space), 1) << space;
    }
}

TEST(ColorSpaceTest, NamesAreTheThreeAndOtherwiseEmpty) {
    EXPECT_STREQ(KoColorSpaceGetName(KO_COLORSPACE_RGB), "RGB");
    EXPECT_STREQ(KoColorSpaceGetName(KO_COLORSPACE_YIQ), "YIQ");
    EXPECT_STREQ(KoColorSpaceGetName(KO_COLORSPACE_GRAY), "GRAY");
    for (const int32_t space : {3, 7, INT32_MAX}) {
        EXPECT_STREQ(KoColorSpaceGetName(space), "") << space;
    }
}

// A space to itself is all ones, not the identity.
TEST(ColorSpaceTest, MatricesAreExactlyThese) {
    const std::vector<float> ones(9, 1.0f);
    const std::vector<float> zeros(9, 0.0f);
    const std::vector<float> expected[3][3] = {
        {ones, {0.299f, 0.587f, 0.114f, 0.596f, -0.275f, -0.321f, 0.212f, -0.523f, 0.311f}, {0.299f, 0.587f, 0.114f, 0.0f}},
        {{1.0f, 0.956f, 0.621f, 1.0f, -0.272f, -0.647f, 1.0f, -1.105f, 1.702f}, ones, zeros},
        {zeros, zeros, ones}};
    for (int32_t from = 0; from < 3; ++from) {
        for (int32_t to = 0; to < 3; ++to) {
            const float *matrix = KoColorSpaceGetConversionMatrix(from, to);
            ASSERT_NE(matrix, nullptr);
            EXPECT_EQ(std::vector<float>(matrix, matrix + expected[from][to].size()), expected[from][to])
                << from << " to " << to;
            EXPECT_EQ(KoColorSpaceGetConversionMatrix(from, to), matrix) << "the matrices are constant";
        }
    }
}

} // namespace
