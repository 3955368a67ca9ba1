// Circularity: leaves the spots that are small, round and bright with nothing bright around them. At each lit pixel, circles of
// seven diameters are tried; the response is four times the pixel less the smallest sum of eight samples on a circle.
#include <cmath>

#include "alloc.h"
#include "extremes.h"
#include "lanes.h"
#include "matrix.h"
#include "redeye.h"
#include "report.h"

namespace {

using namespace ko;

constexpr uint64_t usual_budget = 1000000;
constexpr int circle_count = 7;
constexpr int sample_count = 8;

// The largest sum that eight samples of a normalised map can reach.
constexpr float no_sum = 8.0f;

// Diameters for a working image whose budget is so many times smaller than the usual one.
struct Diameters {
    uint64_t quotient;
    int32_t values[circle_count]; // rising: the last circle is the largest
};
constexpr Diameters known_diameters[] = {
    {1, {3, 5, 9, 13, 19, 23, 27}}, {4, {3, 5, 7, 9, 13, 15, 19}}, {8, {3, 5, 7, 9, 11, 13, 15}}};

const Diameters *diameters_for(uint64_t budget) {
    for (const Diameters &diameters : known_diameters) {
        if (budget != 0 && usual_budget / budget == diameters.quotient) {
            return &diameters;
        }
    }
    return nullptr;
}

// A circle as its samples' distances from the centre in a plane of some stride.
struct Circle {
    uint64_t radius;
    int64_t samples[sample_count];
};

Circle make_circle(int32_t diameter, uint64_t stride) {
    const int64_t r = (diameter - 1) / 2;
    // The diagonal samples stand at about 0.7 of radius + 1, not of the radius.
    const auto d = static_cast<int64_t>(std::floor(static_cast<double>(r + 1) * static_cast<double>(0.7f)));
    const auto at = [step = static_cast<int64_t>(stride)](int64_t dx, int64_t dy) { return dy * step + dx; };
    return {static_cast<uint64_t>(r), {at(0, r), at(0, -r), at(r, 0), at(-r, 0), at(-d, -d), at(-d, d), at(d, -d), at(d, d)}};
}

// The smallest sum over the circles that lie inside the map around (x, y); a border is reached by the smaller ones alone.
float KoRedEyeMinCircleSum(const Circle (&circles)[circle_count], const RealImage *map, uint64_t x, uint64_t y) {
    const float *centre = map->rows[y] + x;
    float minimum = no_sum;
    for (const Circle &circle : circles) {
        const uint64_t r = circle.radius;
        if (x < r || y < r || x + r >= map->width || y + r >= map->height) {
            continue;
        }
        float sum = 0.0f;
        for (const int64_t sample : circle.samples) {
            sum += centre[sample];
        }
        minimum = minimum > sum ? sum : minimum;
    }
    return minimum;
}

// The same for neighbouring pixels around which all circles lie inside the map.
Floats min_circle_sums(const Circle (&circles)[circle_count], const float *centre) {
    Floats minimum = no_sum - Floats{};
    for (const Circle &circle : circles) {
        Floats sum{};
        for (const int64_t sample : circle.samples) {
            sum += load<Floats>(centre + sample);
        }
        minimum = minimum > sum ? sum : minimum;
    }
    return minimum;
}

// The response of a lit pixel: 0 if it is negative.
float response_at(const Circle (&circles)[circle_count], const RealImage *map, uint64_t x, uint64_t y) {
    const float value = 4.0f * map->rows[y][x] - KoRedEyeMinCircleSum(circles, map, x, y);
    return value < 0.0f ? 0.0f : value;
}

bool any_lit(const float *pixels) {
    bool lit = false;
    for (uint64_t i = 0; i < float_lanes; ++i) {
        lit |= pixels[i] != 0.0f;
    }
    return lit;
}

// Stores the responses of a row. Most of a map is 0, and its response is 0 without a look at the circles; neighbours of a lit
// pixel are often lit too, and looked at together.
void respond_in_row(const Circle (&circles)[circle_count], const RealImage *map, uint64_t y, float *out) {
    const uint64_t border = circles[circle_count - 1].radius;
    const bool whole = y >= border && y + border < map->height;
    const float *row = map->rows[y];
    for (uint64_t x = 0; x < map->width;) {
        if (whole && x >= border && x + float_lanes + border <= map->width) {
            Floats responses{};
            if (any_lit(row + x)) {
                const auto pixels = load<Floats>(row + x);
                const Floats values = 4.0f * pixels - min_circle_sums(circles, row + x);
                responses = pixels == 0.0f ? responses : values < 0.0f ? responses : values;
            }
            store(responses, out + x);
            x += float_lanes;
        } else {
            out[x] = row[x] == 0.0f ? 0.0f : response_at(circles, map, x, y);
            ++x;
        }
    }
}

// Stores the responses and gives their maximum.
float respond(const Circle (&circles)[circle_count], const RealImage *map, RealImage *response) {
    float maximum = 0.0f;
    for (uint64_t y = 0; y < map->height; ++y) {
        respond_in_row(circles, map, y, response->rows[y]);
        maximum = largest(response->rows[y], map->width, maximum);
    }
    return maximum;
}

} // namespace

int32_t KoRedEyeCorrectionCircularity(RedEyeCorrection *rec, RedEyeImageParam *param) {
    const Diameters *diameters = diameters_for(rec->max_image_size);
    if (diameters == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    RealImage *map = param->col_map;
    if (map == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    const OwnedImage response(KoRealImageNew(map->width, map->height));
    if (!response) {
        return KoErrorGetLastError();
    }
    Circle circles[circle_count];
    for (int i = 0; i < circle_count; ++i) {
        circles[i] = make_circle(diameters->values[i], stride(map));
    }
    const float maximum = respond(circles, map, response.get());
    return KoRealImageDivideValue(response.get(), maximum, &param->col_map);
}
