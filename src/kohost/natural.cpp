#include "kohost/natural.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "kohost/quantile.h"
#include "kohost/redness.h"

namespace kohost {

namespace {

constexpr int64_t ring = 2; // cells around a shape that may belong to the pupil

// The level of a pupil that a light shines on, at most.
constexpr float pupil_level = 32.0f;

float redness(const uint8_t *pixel) { return excess(pixel[0], pixel[1]); }
float neutral_level(const uint8_t *pixel) { return (pixel[1] + pixel[2]) * 0.5f; }

float smooth_step(float value, float low, float high) {
    const float t = std::clamp((value - low) / (high - low), 0.0f, 1.0f);
    return t * t * (3.0f - 2.0f * t);
}

// A part of a picture with a number per pixel.
struct Plane {
    Box box;
    std::vector<float> values;

    explicit Plane(const Box &part) : box(part), values(size_t{part.x1 - part.x0} * (part.y1 - part.y0)) {}
    size_t width() const { return box.x1 - box.x0; }
    size_t height() const { return box.y1 - box.y0; }

    template <class Step> void for_each(const Step &step) {
        size_t i = 0;
        for (uint32_t y = box.y0; y < box.y1; ++y) {
            for (uint32_t x = box.x0; x < box.x1; ++x, ++i) {
                step(x, y, values[i]);
            }
        }
    }
};

// ---- shapes

// The middle of a pixel, in cells of a shape.
struct CellPlace {
    double column, row;
};

CellPlace cell_at(const Shape &shape, uint32_t x, uint32_t y) {
    return {(x + 0.5 - shape.cells.left) / shape.cells.width, (y + 0.5 - shape.cells.top) / shape.cells.height};
}

bool covers(const Shape &shape, uint32_t x, uint32_t y) {
    const auto [column, row] = cell_at(shape, x, y);
    return shape.contains(static_cast<int64_t>(std::floor(column)), static_cast<int64_t>(std::floor(row)));
}

float cell_reach(const Shape &shape, int64_t column, int64_t row) {
    for (int64_t dy = -ring; dy <= ring; ++dy) {
        for (int64_t dx = -ring; dx <= ring; ++dx) {
            if (dx * dx + dy * dy <= ring * ring + 1 && shape.contains(column + dx, row + dy)) {
                return 1.0f;
            }
        }
    }
    return 0.0f;
}

// 1 in a shape and next to it, less in the ring's outer half cell, 0 beyond it.
float reach_of(const Shape &shape, uint32_t x, uint32_t y) {
    const auto [column, row] = cell_at(shape, x, y);
    if (cell_reach(shape, static_cast<int64_t>(std::floor(column)), static_cast<int64_t>(std::floor(row))) == 0.0f) {
        return 0.0f;
    }
    const double left = std::floor(column - 0.5);
    const double top = std::floor(row - 0.5);
    const auto right_share = static_cast<float>(column - 0.5 - left);
    const auto bottom_share = static_cast<float>(row - 0.5 - top);
    const auto at = [&](int64_t dx, int64_t dy) {
        return cell_reach(shape, static_cast<int64_t>(left) + dx, static_cast<int64_t>(top) + dy);
    };
    const float upper = at(0, 0) * (1.0f - right_share) + at(1, 0) * right_share;
    const float lower = at(0, 1) * (1.0f - right_share) + at(1, 1) * right_share;
    return upper * (1.0f - bottom_share) + lower * bottom_share;
}

// The pixels of a shape with its ring, and some more.
Box window_of(const Shape &shape, Size picture) {
    Shape wide = shape;
    wide.cells.left -= (ring + 1) * shape.cells.width;
    wide.cells.top -= (ring + 1) * shape.cells.height;
    wide.box.x1 += 2 * (ring + 1);
    wide.box.y1 += 2 * (ring + 1);
    return wide.pixels(picture);
}

// The picture around some shapes.
class Site {
  public:
    Site(uint8_t *bytes, Size picture, std::span<const Shape> shapes) : bytes_(bytes), picture_(picture), shapes_(shapes) {}

    uint8_t *pixel(uint32_t x, uint32_t y) const { return bytes_ + (size_t{y} * picture_.width + x) * 3; }

    Box surroundings() const { return shapes_.front().circle().square(3.0, picture_); }

    // All that may change.
    Box window() const {
        Box box = window_of(shapes_.front(), picture_);
        for (const Shape &shape : shapes_.subspan(1)) {
            const Box other = window_of(shape, picture_);
            box = {std::min(box.x0, other.x0), std::min(box.y0, other.y0), std::max(box.x1, other.x1),
                   std::max(box.y1, other.y1)};
        }
        return box;
    }

    bool in_first_shape(uint32_t x, uint32_t y) const { return covers(shapes_.front(), x, y); }

    float reach(uint32_t x, uint32_t y) const {
        float most = 0.0f;
        for (const Shape &shape : shapes_) {
            most = std::max(most, reach_of(shape, x, y));
        }
        return most;
    }

  private:
    uint8_t *bytes_;
    Size picture_;
    std::span<const Shape> shapes_;
};

// How red the pupil is, and how red what surrounds it.
struct Redness {
    float pupil = 0.0f;
    float usual = 0.0f;
};

Redness measure(const Site &site) {
    std::vector<float> inside;
    std::vector<float> outside;
    Plane(site.surroundings()).for_each([&](uint32_t x, uint32_t y, float) {
        (site.in_first_shape(x, y) ? inside : outside).push_back(redness(site.pixel(x, y)));
    });
    return {quantile(std::move(inside), 0.75), quantile(std::move(outside), 0.5)};
}

// Sets to 1 what is enclosed by values above a half: a highlight in a pupil belongs to it.
void fill_holes(Plane &plane) {
    const size_t width = plane.width();
    std::vector<uint8_t> outside(plane.values.size());
    std::vector<size_t> next;
    const auto visit = [&](size_t i) {
        if (outside[i] == 0 && plane.values[i] <= 0.5f) {
            outside[i] = 1;
            next.push_back(i);
        }
    };
    for (size_t i = 0; i < plane.values.size(); ++i) {
        const size_t x = i % width;
        const size_t y = i / width;
        if (x == 0 || y == 0 || x + 1 == width || y + 1 == plane.height()) {
            visit(i);
        }
    }
    while (!next.empty()) {
        const size_t i = next.back();
        next.pop_back();
        const size_t x = i % width;
        if (x > 0) {
            visit(i - 1);
        }
        if (x + 1 < width) {
            visit(i + 1);
        }
        if (i >= width) {
            visit(i - width);
        }
        if (i + width < plane.values.size()) {
            visit(i + width);
        }
    }
    for (size_t i = 0; i < plane.values.size(); ++i) {
        plane.values[i] = outside[i] != 0 ? plane.values[i] : 1.0f;
    }
}

// Rounds the edge between high and low values, by the average of each with its eight neighbours; a pixel at a straight edge
// stays nearly whole.
void soften(Plane &plane) {
    const std::vector<float> hard = plane.values;
    const auto width = static_cast<int64_t>(plane.width());
    const auto height = static_cast<int64_t>(plane.height());
    for (int64_t y = 0; y < height; ++y) {
        for (int64_t x = 0; x < width; ++x) {
            float sum = 0.0f;
            for (int64_t dy = -1; dy <= 1; ++dy) {
                for (int64_t dx = -1; dx <= 1; ++dx) {
                    sum += hard[static_cast<size_t>(std::clamp(y + dy, int64_t{0}, height - 1) * width +
                                                    std::clamp(x + dx, int64_t{0}, width - 1))];
                }
            }
            float &value = plane.values[static_cast<size_t>(y * width + x)];
            value = std::max(smooth_step(sum / 9.0f, 0.1f, 0.65f), value / 2.0f);
        }
    }
}

// How much of each pixel belongs to the pupil.
Plane coverage_of(const Site &site, const Redness &red) {
    constexpr float surely_not = 0.2f; // of the way from the usual to the pupil's redness
    constexpr float surely = 0.52f;
    Plane coverage(site.window());
    coverage.for_each([&](uint32_t x, uint32_t y, float &value) {
        const float way = (redness(site.pixel(x, y)) - red.usual) / (red.pupil - red.usual);
        value = smooth_step(way, surely_not, surely) * site.reach(x, y);
    });
    fill_holes(coverage);
    soften(coverage);
    coverage.for_each([&](uint32_t x, uint32_t y, float &value) { value *= site.reach(x, y); });
    return coverage;
}

} // namespace

void repair_naturally(uint8_t *bytes, Size picture, std::span<const Shape> shapes) {
    constexpr float least_redness = 0.05f; // more than that of the surroundings: less is noise, or was repaired before
    constexpr float no_highlight = 0.3f;   // of the way from the pupil's level to white
    constexpr float highlight = 0.65f;
    constexpr float white = 255.0f;
    const Site site(bytes, picture, shapes);
    const Redness red = measure(site);
    if (red.pupil < red.usual + least_redness) {
        return;
    }
    Plane coverage = coverage_of(site, red);
    std::vector<float> levels;
    coverage.for_each([&](uint32_t x, uint32_t y, float share) {
        if (share > 0.5f) {
            levels.push_back(neutral_level(site.pixel(x, y)));
        }
    });
    const float level = quantile(std::move(levels), 0.5);
    const float darker = level > pupil_level ? pupil_level / level : 1.0f;
    coverage.for_each([&](uint32_t x, uint32_t y, float share) {
        uint8_t *pixel = site.pixel(x, y);
        const float before = neutral_level(pixel);
        const float shine = smooth_step((before - level) / (white - level), no_highlight, highlight);
        const float after = before * (darker + (1.0f - darker) * shine);
        for (int c = 0; c < 3; ++c) {
            const float value = pixel[c];
            pixel[c] = static_cast<uint8_t>(std::lround(value + share * (after - value)));
        }
    });
}

} // namespace kohost
