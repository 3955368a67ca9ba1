#include "kohost/redness.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace kohost {

namespace {

// Pixels each way that are looked at of a large box; the others would say the same.
constexpr uint32_t most_samples = 64;

// Keeps the quotient finite, and that of nearly black pixels, which is mostly noise, near 1.
constexpr float black = 4.0f;

std::vector<float> quotients(const Pixels &picture, const Box &box) {
    const uint32_t step_x = std::max((box.x1 - box.x0) / most_samples, 1u);
    const uint32_t step_y = std::max((box.y1 - box.y0) / most_samples, 1u);
    std::vector<float> found;
    for (uint32_t y = box.y0; y < box.y1; y += step_y) {
        for (uint32_t x = box.x0; x < box.x1; x += step_x) {
            const uint8_t *pixel = picture.bytes + (size_t{y} * picture.size.width + x) * 3;
            found.push_back((pixel[0] + black) / (pixel[1] + black));
        }
    }
    return found;
}

// The value below which a share of all values lies.
float quantile(std::vector<float> values, double share) {
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

Box surroundings(const Box &box, Size picture) {
    const uint32_t width = box.x1 - box.x0;
    const uint32_t height = box.y1 - box.y0;
    return {box.x0 - std::min(box.x0, width), box.y0 - std::min(box.y0, height), std::min(box.x1 + width, picture.width),
            std::min(box.y1 + height, picture.height)};
}

} // namespace

float redness_contrast(const Pixels &picture, const Box &box) {
    const Box inside = {box.x0, box.y0, std::min(box.x1, picture.size.width), std::min(box.y1, picture.size.height)};
    if (picture.channels != 3 || inside.x0 >= inside.x1 || inside.y0 >= inside.y1) {
        return 0.0f;
    }
    const float high = quantile(quotients(picture, inside), 0.75);
    const float usual = quantile(quotients(picture, surroundings(inside, picture.size)), 0.5);
    return std::log(high) - std::log(usual);
}

} // namespace kohost
