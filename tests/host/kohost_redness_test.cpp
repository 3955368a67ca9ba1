// How much redder a place is than its surroundings.
#include <cmath>

#include <gtest/gtest.h>

#include "kohost/redness.h"

namespace {

using kohost::Box;
using kohost::redness_contrast;

constexpr uint32_t side = 90;
constexpr Box middle = {30, 30, 60, 60};

struct Rgb {
    uint8_t red, green, blue;
};

// A square of one colour in the middle of another.
kohost::Image square(const Rgb &inside, const Rgb &outside) {
    kohost::Image image{{side, side}, 3, {}};
    for (uint32_t y = 0; y < side; ++y) {
        for (uint32_t x = 0; x < side; ++x) {
            const bool is_inside = x >= middle.x0 && x < middle.x1 && y >= middle.y0 && y < middle.y1;
            const Rgb &colour = is_inside ? inside : outside;
            image.bytes.insert(image.bytes.end(), {colour.red, colour.green, colour.blue});
        }
    }
    return image;
}

float contrast(const Rgb &inside, const Rgb &outside, const Box &box = middle) {
    const kohost::Image image = square(inside, outside);
    return redness_contrast(image.pixels(), box);
}

TEST(RednessContrast, IsTheQuotientOfQuotients) {
    EXPECT_NEAR(contrast({196, 46, 40}, {196, 146, 120}), std::log(200.0 / 50.0) - std::log(200.0 / 150.0), 1e-5);
    EXPECT_NEAR(contrast({100, 100, 100}, {200, 200, 200}), 0.0, 1e-6);
    EXPECT_LT(contrast({100, 100, 100}, {200, 100, 100}), -0.5f);
}

TEST(RednessContrast, OfABrownEyeIsSmallerThanOfARedOne) {
    const Rgb skin = {205, 155, 125};
    EXPECT_GT(contrast({170, 40, 45}, skin), contrast({92, 55, 33}, skin) + 0.5f);
}

TEST(RednessContrast, OfAFewHighlightsDoesNotChange) {
    kohost::Image image = square({196, 46, 40}, {196, 146, 120});
    const float before = redness_contrast(image.pixels(), middle);
    for (uint32_t x = 40; x < 48; ++x) {
        std::fill_n(image.bytes.begin() + (44 * side + x) * 3, 3, uint8_t{250});
    }
    EXPECT_EQ(redness_contrast(image.pixels(), middle), before);
}

TEST(RednessContrast, StaysInsideThePicture) {
    EXPECT_NEAR(contrast({196, 46, 40}, {196, 46, 40}, {0, 0, 5, 5}), 0.0, 1e-6);
    EXPECT_NEAR(contrast({196, 46, 40}, {196, 46, 40}, {85, 85, 200, 200}), 0.0, 1e-6);
    EXPECT_EQ(contrast({196, 46, 40}, {0, 0, 0}, {95, 95, 200, 200}), 0.0f) << "outside";
    EXPECT_EQ(contrast({196, 46, 40}, {0, 0, 0}, {40, 40, 40, 50}), 0.0f) << "empty";
    EXPECT_TRUE(std::isfinite(contrast({255, 0, 0}, {0, 255, 0}))) << "without green";
}

TEST(RednessContrast, OfAGrayPictureIsNone) {
    const std::vector<uint8_t> gray(side * side, 100);
    EXPECT_EQ(redness_contrast({gray.data(), {side, side}, 1}, middle), 0.0f);
}

} // namespace
