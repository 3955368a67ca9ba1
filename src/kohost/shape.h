// The shape of a place in a picture, as a search finds it: on a grid of cells that need not be pixels.
#ifndef KO_KOHOST_SHAPE_H
#define KO_KOHOST_SHAPE_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "kohost/pixels.h"

namespace kohost {

// A place within a side of a picture.
inline uint32_t within(double place, uint32_t side) {
    return static_cast<uint32_t>(std::clamp(place, 0.0, static_cast<double>(side)));
}

// A circle in pixels; the middle of the pixel in column i and row i is at i + 0.5.
struct Circle {
    double x, y, radius;

    // The square around it that reaches some of its radii from its middle, in whole pixels and within a picture.
    Box square(double radii, Size picture) const {
        const double reach = radii * radius;
        return {within(std::floor(x - reach), picture.width), within(std::floor(y - reach), picture.height),
                within(std::ceil(x + reach), picture.width), within(std::ceil(y + reach), picture.height)};
    }
};

// Where the cells lie in a picture, in pixels.
struct Cells {
    double left = 0.0;
    double top = 0.0;
    double width = 1.0; // of a cell
    double height = 1.0;
};

// Those cells of a box that belong to a place.
struct Shape {
    Cells cells;
    Box box{};                   // cells
    std::vector<uint8_t> inside; // of the box, row by row; 1 is inside

    bool contains(int64_t column, int64_t row) const {
        return column >= box.x0 && column < box.x1 && row >= box.y0 && row < box.y1 &&
               inside[static_cast<size_t>(row - box.y0) * (box.x1 - box.x0) + static_cast<size_t>(column - box.x0)] != 0;
    }

    // The circle around the middle of the box whose diameter is the average of the box's sides.
    Circle circle() const {
        const double width = (box.x1 - box.x0) * cells.width;
        const double height = (box.y1 - box.y0) * cells.height;
        return {cells.left + box.x0 * cells.width + width / 2, cells.top + box.y0 * cells.height + height / 2,
                (width + height) / 4};
    }

    // The box in whole pixels, within a picture.
    Box pixels(Size picture) const {
        return {within(std::floor(cells.left + box.x0 * cells.width), picture.width),
                within(std::floor(cells.top + box.y0 * cells.height), picture.height),
                within(std::ceil(cells.left + box.x1 * cells.width), picture.width),
                within(std::ceil(cells.top + box.y1 * cells.height), picture.height)};
    }

    // The same in a picture of another size.
    Shape scaled(Size from, Size to) const {
        const double across = static_cast<double>(to.width) / from.width;
        const double down = static_cast<double>(to.height) / from.height;
        Shape shape = *this;
        shape.cells = {cells.left * across, cells.top * down, cells.width * across, cells.height * down};
        return shape;
    }
};

} // namespace kohost

#endif
