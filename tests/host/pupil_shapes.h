// Pictures of a pupil on skin, pixel by pixel, and shapes as a search would report them.
#ifndef KO_TESTS_HOST_PUPIL_SHAPES_H
#define KO_TESTS_HOST_PUPIL_SHAPES_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ostream>
#include <vector>

#include "kohost/pixels.h"
#include "kohost/shape.h"
#include "pictures.h"

namespace ko_test {

using Colour = std::array<uint8_t, 3>;

inline constexpr Colour skin_colour = {200, 150, 125};
inline constexpr Colour red_colour = {190, 30, 40};
inline constexpr Colour white_colour = {250, 250, 250};

inline size_t offset(const kohost::Image &image, uint32_t x, uint32_t y) { return (size_t{y} * image.size.width + x) * 3; }

inline Colour colour_at(const kohost::Image &image, uint32_t x, uint32_t y) {
    const uint8_t *pixel = image.bytes.data() + offset(image, x, y);
    return {pixel[0], pixel[1], pixel[2]};
}

inline void put_colour(kohost::Image &image, uint32_t x, uint32_t y, const Colour &colour) {
    std::copy(colour.begin(), colour.end(), image.bytes.begin() + static_cast<ptrdiff_t>(offset(image, x, y)));
}

// An RGB picture whose pixel (x, y) is colour(x, y).
template <class Make> kohost::Image make_picture(kohost::Size size, const Make &colour) {
    kohost::Image image{size, 3, std::vector<uint8_t>(size.area() * 3)};
    for (uint32_t y = 0; y < size.height; ++y) {
        for (uint32_t x = 0; x < size.width; ++x) {
            put_colour(image, x, y, colour(x, y));
        }
    }
    return image;
}

inline kohost::Image plain_picture(kohost::Size size, const Colour &colour) {
    return make_picture(size, [&](uint32_t, uint32_t) { return colour; });
}

inline kohost::Image random_picture(kohost::Size size, uint32_t seed) { return {size, 3, noise_bytes(size.area() * 3, seed)}; }

// How far the middle of a pixel is from that of a circle.
inline double distance(const kohost::Circle &circle, uint32_t x, uint32_t y) {
    return std::hypot(x + 0.5 - circle.x, y + 0.5 - circle.y);
}

inline void put_disc(kohost::Image &image, const kohost::Circle &circle, const Colour &colour) {
    for (uint32_t y = 0; y < image.size.height; ++y) {
        for (uint32_t x = 0; x < image.size.width; ++x) {
            if (distance(circle, x, y) < circle.radius) {
                put_colour(image, x, y, colour);
            }
        }
    }
}

// Each level off by at most the given amount.
inline void add_noise(kohost::Image &image, uint32_t amount, uint32_t seed) {
    Noise noise(seed);
    for (uint8_t &byte : image.bytes) {
        const int level = byte + static_cast<int>(noise.next() % (2 * amount + 1)) - static_cast<int>(amount);
        byte = static_cast<uint8_t>(std::clamp(level, 0, 255));
    }
}

// The cells, from a corner on, whose middles lie in the part of a circle that they cover.
inline kohost::Shape disc_shape(const kohost::Circle &circle, double width, double height) {
    const auto half = [&](double side) { return static_cast<uint32_t>(std::max(1.0, std::ceil(circle.radius / side))); };
    const uint32_t columns = 2 * half(width);
    const uint32_t rows = 2 * half(height);
    kohost::Shape shape;
    shape.cells = {circle.x - columns / 2 * width, circle.y - rows / 2 * height, width, height};
    shape.box = {0, 0, columns, rows};
    for (uint32_t row = 0; row < rows; ++row) {
        for (uint32_t column = 0; column < columns; ++column) {
            const double x = (column + 0.5 - columns / 2) * width;
            const double y = (row + 0.5 - rows / 2) * height;
            shape.inside.push_back(std::hypot(x, y) < circle.radius ? 1 : 0);
        }
    }
    return shape;
}

inline kohost::Shape disc_shape(const kohost::Circle &circle, double cell = 1.0) { return disc_shape(circle, cell, cell); }

// Random cells around a point; the middle one is inside, so that the shape has pixels if the point is in the picture.
inline kohost::Shape random_shape(Noise &noise, double x, double y) {
    static constexpr std::array<double, 6> sides = {1.0, 3.7, 10.0, 0.6, 1.3, 31.0};
    kohost::Shape shape;
    const uint32_t left = noise.next() % 9;
    const uint32_t above = noise.next() % 9;
    shape.box = {noise.next() % 50, noise.next() % 50, 0, 0};
    shape.box.x1 = shape.box.x0 + left + 1 + noise.next() % 9;
    shape.box.y1 = shape.box.y0 + above + 1 + noise.next() % 9;
    shape.cells.width = sides[noise.next() % sides.size()];
    shape.cells.height = noise.next() % 3 == 0 ? sides[noise.next() % sides.size()] : shape.cells.width;
    shape.cells.left = x - (shape.box.x0 + left + 0.5) * shape.cells.width;
    shape.cells.top = y - (shape.box.y0 + above + 0.5) * shape.cells.height;
    const uint32_t share = noise.next() % 4 + 1;
    for (uint32_t i = 0; i < (shape.box.x1 - shape.box.x0) * (shape.box.y1 - shape.box.y0); ++i) {
        shape.inside.push_back(noise.next() % 4 < share ? 1 : 0);
    }
    shape.inside[above * (shape.box.x1 - shape.box.x0) + left] = 1;
    return shape;
}

// A point in a picture, which is often on one of its edges or in a corner.
inline double edge_point(Noise &noise, uint32_t side) {
    switch (noise.next() % 4) {
    case 0:
        return 0.25;
    case 1:
        return side - 0.25;
    default:
        return static_cast<double>(noise.uniform(0.0f, 0.999f)) * side;
    }
}

inline constexpr std::array<kohost::Size, 9> odd_sizes = {kohost::Size{1, 1}, {2, 1},   {1, 50}, {50, 1}, {7, 5}, {3, 40},
                                                          {64, 48},           {33, 90}, {2, 2}};

} // namespace ko_test

#endif
