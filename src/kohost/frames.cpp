#include "kohost/frames.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

namespace kohost {

namespace {

using Colour = std::array<uint8_t, 3>;

Colour colour_of(int32_t label) {
    switch (label) {
    case KO_PATCH_ACCEPTED:
        return {0, 255, 0};
    case KO_PATCH_REJECTED:
        return {255, 0, 0};
    default:
        return {255, 255, 0};
    }
}

void fill(uint8_t *bytes, Size picture, const Box &box, const Colour &colour) {
    for (uint32_t y = box.y0; y < std::min(box.y1, picture.height); ++y) {
        for (uint32_t x = box.x0; x < std::min(box.x1, picture.width); ++x) {
            std::copy(colour.begin(), colour.end(), bytes + (size_t{y} * picture.width + x) * colour.size());
        }
    }
}

// The lines lie inside the box, and meet in the middle of a small one.
void draw_frame(uint8_t *bytes, Size picture, const Box &box, uint32_t thickness, const Colour &colour) {
    const uint32_t down = std::min((box.y1 - box.y0) / 2, thickness);
    const uint32_t across = std::min((box.x1 - box.x0) / 2, thickness);
    fill(bytes, picture, {box.x0, box.y0, box.x1, box.y0 + down}, colour);
    fill(bytes, picture, {box.x0, box.y1 - down, box.x1, box.y1}, colour);
    fill(bytes, picture, {box.x0, box.y0, box.x0 + across, box.y1}, colour);
    fill(bytes, picture, {box.x1 - across, box.y0, box.x1, box.y1}, colour);
}

// Digits of three columns and five rows, a number per row; 4 is the left column.
constexpr uint32_t digit_columns = 3;
constexpr uint32_t digit_rows = 5;
constexpr std::array<std::array<uint8_t, digit_rows>, 10> digits = {{{7, 5, 5, 5, 7},
                                                                     {2, 6, 2, 2, 7},
                                                                     {7, 1, 7, 4, 7},
                                                                     {7, 1, 7, 1, 7},
                                                                     {5, 5, 7, 1, 1},
                                                                     {7, 4, 7, 1, 7},
                                                                     {7, 4, 7, 5, 7},
                                                                     {7, 1, 2, 2, 2},
                                                                     {7, 5, 7, 5, 7},
                                                                     {7, 5, 7, 1, 7}}};

// Writes a number inside the upper left corner of a box, on a dark ground.
void write_number(uint8_t *bytes, Size picture, const Box &box, uint32_t dot, const std::string &number, const Colour &colour) {
    const auto columns = static_cast<uint32_t>(number.size()) * (digit_columns + 1) + 1;
    fill(bytes, picture, {box.x0, box.y0, box.x0 + columns * dot, box.y0 + (digit_rows + 2) * dot}, {0, 0, 0});
    uint32_t left = box.x0 + dot;
    for (const char digit : number) {
        for (uint32_t row = 0; row < digit_rows; ++row) {
            for (uint32_t column = 0; column < digit_columns; ++column) {
                if ((digits[static_cast<size_t>(digit - '0')][row] >> (digit_columns - 1 - column) & 1) != 0) {
                    const uint32_t x = left + column * dot;
                    const uint32_t y = box.y0 + (row + 1) * dot;
                    fill(bytes, picture, {x, y, x + dot, y + dot}, colour);
                }
            }
        }
        left += (digit_columns + 1) * dot;
    }
}

} // namespace

void draw_frames(uint8_t *bytes, Size picture, const std::vector<Place> &places) {
    constexpr uint32_t frames_in_a_side = 300;
    const uint32_t thickness = std::max(std::min(picture.width, picture.height) / frames_in_a_side, 1u);
    for (const Place &place : places) {
        if (!place.judged) {
            continue;
        }
        const Colour colour = colour_of(place.label);
        draw_frame(bytes, picture, place.window, thickness, colour);
        if (place.score) {
            write_number(bytes, picture, place.window, thickness, std::to_string(std::lround(*place.score * 100.0f)), colour);
        }
    }
}

} // namespace kohost
