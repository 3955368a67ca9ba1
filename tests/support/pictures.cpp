#include "pictures.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace ko_test {

RealImagePtr make_image(uint64_t width, uint64_t height, const std::function<float(uint64_t x, uint64_t y)> &value) {
    RealImagePtr image(KoRealImageNew(width, height));
    for (uint64_t y = 0; y < height; ++y) {
        for (uint64_t x = 0; x < width; ++x) {
            image->rows[y][x] = value(x, y);
        }
    }
    return image;
}

RealImagePtr make_image(uint64_t width, uint64_t height, const std::vector<float> &values) {
    return make_image(width, height, [&](uint64_t x, uint64_t y) { return values.at(y * width + x); });
}

ColorImagePtr make_color_image(uint32_t width, uint32_t height, int32_t space,
                               const std::function<float(uint32_t c, uint64_t x, uint64_t y)> &value) {
    ColorImagePtr image(KoColorImageNew(width, height, space));
    for (uint32_t c = 0; c < image->depth; ++c) {
        for (uint64_t y = 0; y < height; ++y) {
            for (uint64_t x = 0; x < width; ++x) {
                image->planes[c].rows[y][x] = value(c, x, y);
            }
        }
    }
    return image;
}

RealImagePtr bit_image(uint64_t width, uint64_t height, uint32_t seed) {
    Noise noise(seed);
    RealImagePtr image(KoRealImageNew(width, height));
    for (uint64_t y = 0; y < height; ++y) {
        for (uint64_t x = 0; x < width; ++x) {
            const uint32_t bits = noise.next();
            const uint32_t word = bits % 4 == 0 ? bits | 0x7F800000u : bits; // every fourth an infinity or a NaN
            std::memcpy(&image->rows[y][x], &word, sizeof word);
        }
    }
    return image;
}

std::vector<float> pixels(const RealImage *image) {
    std::vector<float> values;
    for (uint64_t y = 0; y < image->height; ++y) {
        values.insert(values.end(), image->rows[y], image->rows[y] + image->width);
    }
    return values;
}

bool padding_is_zero(const RealImage *image) {
    for (uint64_t y = 0; y < image->height; ++y) {
        const float *padding = image->rows[y] + image->width;
        if (!std::all_of(padding, padding + image->padding, [](float value) { return value == 0.0f; })) {
            return false;
        }
    }
    return true;
}

uint32_t Noise::next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_;
}

float Noise::uniform(float low, float high) { return low + (high - low) * (static_cast<float>(next() >> 8) / 16777216.0f); }

std::vector<uint8_t> noise_bytes(uint64_t count, uint32_t seed) {
    Noise noise(seed);
    std::vector<uint8_t> bytes(count);
    std::generate(bytes.begin(), bytes.end(), [&] { return noise.byte(); });
    return bytes;
}

namespace {

// A place on one axis of a photograph.
struct Place {
    double offset; // from the middle, as a share of the length
    double wave;
};

std::vector<Place> places(uint64_t length, double waves) {
    std::vector<Place> axis;
    for (uint64_t i = 0; i < length; ++i) {
        const double offset = (static_cast<double>(i) + 0.5) / static_cast<double>(length) - 0.5;
        axis.push_back({offset, std::sin(waves * offset)});
    }
    return axis;
}

} // namespace

std::vector<uint8_t> photograph(uint64_t width, uint64_t height, uint64_t channels, uint32_t seed) {
    const std::vector<Place> across = places(width, 40.0);
    Noise noise(seed);
    std::vector<uint8_t> bytes;
    bytes.reserve(width * height * channels);
    for (const Place &v : places(height, 30.0)) {
        for (const Place &u : across) {
            const double light = 220.0 * std::exp(-4.0 * (u.offset * u.offset + v.offset * v.offset)) + 25.0 * u.wave * v.wave;
            for (uint64_t c = 0; c < channels; ++c) {
                const double tint = 1.0 - 0.15 * static_cast<double>(c) * u.offset;
                const double value = light * tint + static_cast<double>(noise.uniform(-6.0f, 6.0f));
                bytes.push_back(static_cast<uint8_t>(std::clamp(value, 0.0, 255.0)));
            }
        }
    }
    return bytes;
}

} // namespace ko_test
