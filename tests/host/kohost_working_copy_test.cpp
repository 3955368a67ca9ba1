// The size of working copies and the averaging that makes them, against sums over every pair of pixels that overlap.
#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include "kohost/tuning.h"
#include "kohost/working_copy.h"
#include "pictures.h"
#include "reference_average.h"

namespace kohost {

std::ostream &operator<<(std::ostream &stream, const Size &size) { return stream << size.width << " x " << size.height; }

} // namespace kohost

namespace {

using namespace ko_test;
using kohost::Size;
using kohost::working_size;

// ---- the size

TEST(WorkingSize, OfASmallPictureIsItsOwn) {
    for (const Size size : {Size{1, 1}, {640, 427}, {1000, 500}, {500, 1000}, {500'000, 1}, {1, 499'999}, {707, 707}}) {
        EXPECT_EQ(working_size(size, kohost::default_working_area), size);
        EXPECT_EQ(working_size(size, size.area()), size);
        EXPECT_EQ(working_size(size, UINT64_MAX), size);
    }
}

constexpr uint32_t least_side = 64;

void expect_within_bounds(Size picture, uint64_t area) {
    const Size size = working_size(picture, area);
    SCOPED_TRACE(testing::Message() << picture << " at " << area << " gives " << size);
    EXPECT_LE(size.width, picture.width);
    EXPECT_LE(size.height, picture.height);
    EXPECT_GE(size.width, std::min(picture.width, least_side));
    EXPECT_GE(size.height, std::min(picture.height, least_side));
}

// A picture whose shape leaves both sides long enough at the given size.
void expect_shape_kept(Size picture, uint64_t area) {
    const Size size = working_size(picture, area);
    SCOPED_TRACE(testing::Message() << picture << " at " << area << " gives " << size);
    const double scale = std::sqrt(static_cast<double>(area) / static_cast<double>(picture.area()));
    EXPECT_NEAR(size.width, picture.width * scale, 1.0);
    EXPECT_NEAR(size.height, picture.height * scale, 1.0);
}

TEST(WorkingSize, OfALargePictureKeepsItsShape) {
    for (const Size size :
         {Size{708, 708}, {1001, 500}, {4000, 3000}, {3000, 4000}, {6016, 4016}, {20'000, 12'500}, {6000, 1000}}) {
        expect_within_bounds(size, kohost::default_working_area);
        expect_shape_kept(size, kohost::default_working_area);
    }
    expect_shape_kept({4000, 3000}, 10'000);
    expect_shape_kept({4000, 3000}, 11'999'999);
}

TEST(WorkingSize, KeepsEnoughOfALongPicture) {
    for (const Size size : {Size{100'000, 10},
                            {10, 100'000},
                            {30'000, 64},
                            {64, 30'000},
                            {1'000'000, 3},
                            {250'000'000, 1},
                            {50'000, 100},
                            {2'000'000, 100}}) {
        expect_within_bounds(size, kohost::default_working_area);
        EXPECT_LT(working_size(size, kohost::default_working_area).area(), size.area()) << size;
    }
}

TEST(WorkingSize, OfAnyPictureIsWithinItsBounds) {
    Noise noise(3);
    for (int i = 0; i < 20'000; ++i) {
        const Size size = {noise.next() % (i % 2 == 0 ? 300 : 15'000) + 1, noise.next() % (i % 3 == 0 ? 300 : 15'000) + 1};
        const uint64_t area = noise.next() % (i % 5 == 0 ? 100 : 1'000'000) + 1;
        expect_within_bounds(size, area);
        const double scale = std::sqrt(static_cast<double>(area) / static_cast<double>(size.area()));
        if (scale < 1.0 && std::min(size.width, size.height) * scale >= least_side + 1) {
            expect_shape_kept(size, area);
        }
    }
}

// ---- the average

std::vector<uint8_t> average(const Pixels &picture, Size to, uint32_t seed) {
    kohost::AreaAverage average({picture.width, picture.height}, to, picture.channels);
    Noise noise(seed);
    const size_t row_bytes = size_t{picture.width} * picture.channels;
    for (uint32_t row = 0; row < picture.height;) {
        const uint32_t rows = std::min(noise.next() % 6 + (seed % 2), picture.height - row); // some calls add no rows
        average.add(rows, &picture.bytes[row * row_bytes]);
        row += rows;
    }
    const kohost::Image image = average.take();
    EXPECT_EQ(image.size, to);
    EXPECT_EQ(image.channels, picture.channels);
    return image.bytes;
}

void expect_average(const Pixels &picture, Size to, uint32_t seed) {
    EXPECT_EQ(average(picture, to, seed), averaged(picture, to.width, to.height).bytes)
        << picture.width << " x " << picture.height << " to " << to;
}

Pixels noisy(uint32_t width, uint32_t height, uint32_t channels, uint32_t seed) {
    return {width, height, channels, noise_bytes(uint64_t{width} * height * channels, seed)};
}

TEST(AreaAverage, IsExactForPicturesOfAnySize) {
    Noise noise(4);
    for (uint32_t i = 0; i < 3000; ++i) {
        const Pixels picture = noisy(noise.next() % 40 + 1, noise.next() % 40 + 1, i % 2 == 0 ? 1 : 3, i);
        expect_average(picture, {noise.next() % picture.width + 1, noise.next() % picture.height + 1}, i);
    }
}

// Two levels alone: many averages lie half-way between two levels.
TEST(AreaAverage, RoundsToTheNearestLevel) {
    for (uint32_t i = 0; i < 300; ++i) {
        Pixels picture = noisy(i % 8 + 1, i % 5 + 1, 1, i);
        for (uint8_t &byte : picture.bytes) {
            byte = byte % 2 == 0 ? 7 : 8;
        }
        expect_average(picture, {1, 1}, i);
        expect_average(picture, {(picture.width + 1) / 2, (picture.height + 1) / 2}, i);
    }
    EXPECT_EQ(average({2, 1, 1, {7, 8}}, {1, 1}, 1), std::vector<uint8_t>{8});
    EXPECT_EQ(average({3, 1, 1, {7, 7, 8}}, {1, 1}, 1), std::vector<uint8_t>{7});
}

TEST(AreaAverage, OfTheSameSizeIsThePicture) {
    for (const uint32_t channels : {1u, 3u}) {
        const Pixels picture = noisy(33, 21, channels, 8);
        EXPECT_EQ(average(picture, {33, 21}, 3), picture.bytes);
    }
}

TEST(AreaAverage, OfAFlatPictureIsFlat) {
    Noise noise(9);
    for (const uint8_t level : std::vector<uint8_t>{0, 1, 127, 254, 255}) {
        for (int i = 0; i < 50; ++i) {
            Pixels picture{noise.next() % 300 + 1, noise.next() % 300 + 1, 1, {}};
            picture.bytes.assign(size_t{picture.width} * picture.height, level);
            const Size to = {noise.next() % picture.width + 1, noise.next() % picture.height + 1};
            EXPECT_EQ(average(picture, to, 5), std::vector<uint8_t>(to.area(), level));
        }
    }
}

TEST(AreaAverage, KeepsChannelsApart) {
    Pixels picture{7, 5, 3, {}};
    for (int i = 0; i < 35; ++i) {
        picture.bytes.insert(picture.bytes.end(), {10, 120, 250});
    }
    EXPECT_EQ(average(picture, {2, 1}, 1), (std::vector<uint8_t>{10, 120, 250, 10, 120, 250}));
}

TEST(AreaAverage, HasRoomForWideWhitePictures) {
    Pixels picture{60'000, 700, 1, {}};
    picture.bytes.assign(size_t{picture.width} * picture.height, 255);
    EXPECT_EQ(average(picture, {59'999, 1}, 1), std::vector<uint8_t>(59'999, 255));
    EXPECT_EQ(average(picture, {1, 699}, 1), std::vector<uint8_t>(699, 255));
}

} // namespace
