// ko.hpp: what its exceptions say, what it refuses before the library sees it, and that pictures pass unchanged.
#include <array>
#include <numeric>
#include <span>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "ko.hpp"

namespace {

std::vector<uint8_t> counted_bytes(size_t count) {
    std::vector<uint8_t> bytes(count);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    return bytes;
}

class KoHpp : public testing::Test {
  private:
    ko::Library library_;
};

TEST_F(KoHpp, AnErrorHoldsTheStatusAndTheWholeChainInOneLine) {
    KoStatusClear();
    const ko::TRCPtr curve(KoTRCNew(256));
    ASSERT_EQ(KoTRCLoad(curve.get(), "no such file"), KO_ERR_OPEN_READ);
    const ko::Error error("the curve cannot be loaded", "the disk is gone");
    EXPECT_EQ(error.status(), KO_ERR_OPEN_READ);
    const std::string text = error.what();
    EXPECT_EQ(text.find("the curve cannot be loaded: "), 0u) << text;
    EXPECT_NE(text.find("no such file"), std::string::npos) << text;
    EXPECT_NE(text.find(": the disk is gone"), std::string::npos) << text;
    EXPECT_EQ(text.find('\n'), std::string::npos) << text;
}

TEST_F(KoHpp, CheckLooksAtTheStepAndAtTheThread) {
    KoStatusClear();
    EXPECT_NO_THROW(ko::check(true, "a step"));
    EXPECT_THROW(ko::check(false, "a step"), ko::Error);
    const ko::TRCPtr curve(KoTRCNew(256));
    EXPECT_NE(KoTRCLoad(curve.get(), "no such file"), KO_OK);
    EXPECT_THROW(ko::check(true, "a step"), ko::Error);
    KoStatusClear();
    EXPECT_NO_THROW(ko::check(true, "a step"));
}

TEST_F(KoHpp, PicturesPassUnchanged) {
    const std::vector<uint8_t> rgb = counted_bytes(5 * 3 * 3);
    const ko::ColorImagePtr colour = ko::color_image(rgb, 5, 3);
    EXPECT_EQ(colour->planes[1].rows[2][4], static_cast<float>(rgb[(2 * 5 + 4) * 3 + 1]));
    std::vector<uint8_t> back(rgb.size());
    ko::to_bytes(*colour, back);
    EXPECT_EQ(back, rgb);

    const std::vector<uint8_t> gray = counted_bytes(7 * 2);
    EXPECT_EQ(ko::real_image(gray, 7, 2)->rows[1][6], 14.0f);
    const std::vector<float> levels = {0.5f, -1.0f, 300.0f, 2.0f};
    EXPECT_EQ(ko::real_image(levels, 2, 2)->rows[1][0], 300.0f);
}

TEST_F(KoHpp, SizesThatDoNotFitTheirBytesAreRefused) {
    const std::vector<uint8_t> bytes(12);
    for (const auto &[width, height] : {std::pair(0u, 4u), {4u, 0u}, {5u, 1u}, {2u, 1u}, {2u, 3u}, {65536u, 65536u}}) {
        EXPECT_THROW(ko::color_image(bytes, width, height), std::invalid_argument) << width << " x " << height;
    }
    EXPECT_THROW(ko::color_image(std::span(bytes).first(11), 2, 2), std::invalid_argument);
    EXPECT_THROW(ko::real_image(bytes, 5, 2), std::invalid_argument);
    EXPECT_THROW(ko::real_image(std::vector<float>(3), 2, 2), std::invalid_argument);
    const ko::ColorImagePtr image = ko::color_image(bytes, 2, 2);
    std::array<uint8_t, 11> short_buffer;
    EXPECT_THROW(ko::to_bytes(*image, short_buffer), std::invalid_argument);
}

TEST_F(KoHpp, AnEarlierFailureDoesNotSpoilAPicture) {
    const ko::TRCPtr curve(KoTRCNew(256));
    EXPECT_NE(KoTRCLoad(curve.get(), "no such file"), KO_OK);
    EXPECT_NO_THROW(ko::color_image(counted_bytes(12), 2, 2));
}

// Each owner deletes with the function of its own type; leaks are the sanitizer's to find.
TEST_F(KoHpp, OwnersAreAsSmallAsPointersAndMove) {
    static_assert(sizeof(ko::TileTRCPtr) == sizeof(void *) && std::is_nothrow_move_constructible_v<ko::TileTRCPtr>);
    ko::HistogramPtr histogram(KoHistogramNew(4, 0.0f, 4.0f));
    const ko::HistogramPtr other = std::move(histogram);
    EXPECT_EQ(histogram, nullptr);
    EXPECT_EQ(KoHistogramGetSize(other.get()), 4u);
    const ko::VectorPtr vector(KoVectorNew(4));
    const ko::KernelGaussianPtr kernel(KoKernelGaussianNew(2.0f, 0.01f));
    const ko::TRCCompressPtr compress(KoTRCCompressNew(8));
    EXPECT_TRUE(kernel && compress);
}

} // namespace
