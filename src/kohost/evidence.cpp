// All measures come from the same samples: on rings around the middle of the place, from its middle to three times its radius,
// as many on each ring, so that a place of three pixels and one of a hundred are looked at alike. Arithmetic and roots alone
// are used, which are the same on every machine.
#include "kohost/evidence.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "kohost/quantile.h"
#include "kohost/redness.h"

namespace kohost {

namespace {

// The cosines of the directions, from the right in steps of a sixteenth of a turn.
constexpr std::array<double, 16> cosines = {1.0,  0.92388,  0.70711,  0.38268,  0.0, -0.38268, -0.70711, -0.92388,
                                            -1.0, -0.92388, -0.70711, -0.38268, 0.0, 0.38268,  0.70711,  0.92388};
constexpr size_t directions = cosines.size();
constexpr std::array<double, 4> inner_rings = {0.15, 0.35, 0.55, 0.75};
constexpr std::array<double, 4> near_rings = {1.25, 1.45, 1.65, 1.85};
constexpr std::array<double, 4> far_rings = {2.1, 2.4, 2.7, 3.0};
constexpr size_t samples_per_zone = directions * inner_rings.size();

using Values = std::array<float, samples_per_zone>;

// The samples of one zone, ring by ring.
struct Zone {
    Values red_green;
    Values red_blue;
    Values green; // levels, with the share that keeps them from 0
    Values light;
};

// The pixel at a place, or the nearest one: what lies outside the picture is like its edge.
const uint8_t *pixel_at(const Pixels &picture, double x, double y) {
    const auto clamped = [](double place, uint32_t pixels) {
        return static_cast<size_t>(std::clamp(std::floor(place), 0.0, static_cast<double>(pixels - 1)));
    };
    return picture.bytes + (clamped(y, picture.size.height) * picture.size.width + clamped(x, picture.size.width)) * 3;
}

Zone sample(const Pixels &picture, const Circle &circle, const std::array<double, 4> &rings) {
    constexpr size_t quarter = directions / 4;
    Zone zone;
    size_t i = 0;
    for (const double ring : rings) {
        for (size_t direction = 0; direction < directions; ++direction, ++i) {
            const double sine = cosines[(direction + directions - quarter) % directions];
            const uint8_t *pixel =
                pixel_at(picture, circle.x + ring * circle.radius * cosines[direction], circle.y + ring * circle.radius * sine);
            zone.red_green[i] = excess(pixel[0], pixel[1]);
            zone.red_blue[i] = excess(pixel[0], pixel[2]);
            zone.green[i] = pixel[1] + black;
            zone.light[i] = 0.3f * pixel[0] + 0.6f * pixel[1] + 0.1f * pixel[2] + black;
        }
    }
    return zone;
}

float median(const Values &values) { return quantile(values, 0.5); }

float share_above(const Values &values, float bound) {
    return static_cast<float>(std::count_if(values.begin(), values.end(), [=](float value) { return value > bound; })) /
           samples_per_zone;
}

// The largest share of a zone's samples above a bound in a quarter of all directions.
float worst_quarter(const Values &values, float bound) {
    constexpr size_t quarter = directions / 4;
    size_t worst = 0;
    for (size_t first = 0; first < directions; ++first) {
        size_t above = 0;
        for (size_t i = 0; i < samples_per_zone; ++i) {
            above += (i + directions - first) % directions < quarter && values[i] > bound;
        }
        worst = std::max(worst, above);
    }
    return static_cast<float>(worst) / (samples_per_zone / 4);
}

// How much more a zone has on the left and right than above and below: an eye has its white there, and lids above and below.
float sideways(const Values &values) {
    constexpr size_t half_turn = directions / 2;
    float difference = 0.0f;
    for (size_t i = 0; i < samples_per_zone; ++i) {
        const size_t from_horizontal = std::min(i % half_turn, half_turn - i % half_turn);
        difference += from_horizontal <= 1 ? values[i] : from_horizontal >= 3 ? -values[i] : 0.0f;
    }
    constexpr size_t samples_per_side = samples_per_zone * 3 / half_turn;
    return difference / samples_per_side;
}

} // namespace

Evidence evidence_about(const Pixels &picture, const Shape &shape) {
    constexpr float hardly_red = 0.06f;
    const Circle circle = shape.circle();
    const auto width = static_cast<float>((shape.box.x1 - shape.box.x0) * shape.cells.width);
    const auto height = static_cast<float>((shape.box.y1 - shape.box.y0) * shape.cells.height);
    const auto area = static_cast<float>(std::count(shape.inside.begin(), shape.inside.end(), uint8_t{1}));
    const Zone inner = sample(picture, circle, inner_rings);
    const Zone near = sample(picture, circle, near_rings);
    const Zone far = sample(picture, circle, far_rings);
    const float red = quantile(inner.red_green, 0.75);
    const float usual = median(far.red_green);
    const float halfway = (red + usual) / 2.0f;
    const float light = median(far.light);
    return {
        red - usual,
        red,
        quantile(inner.red_blue, 0.75),
        median(inner.light) / light,
        usual,
        median(far.red_blue),
        light,
        share_above(inner.red_green, halfway),
        share_above(near.red_green, halfway),
        worst_quarter(near.red_green, halfway),
        worst_quarter(far.red_green, halfway),
        1.0f - share_above(near.red_green, hardly_red),
        quantile(near.light, 0.2) / light,
        quantile(near.light, 0.9) / light,
        quantile(inner.light, 0.95) / median(inner.light),
        median(inner.green) / median(far.green),
        sideways(near.light) / light,
        sideways(far.light) / light,
        sideways(near.red_green),
        sideways(far.red_green),
        std::min(width, height) / std::max(width, height),
        area / static_cast<float>(shape.inside.size()),
    };
}

} // namespace kohost
