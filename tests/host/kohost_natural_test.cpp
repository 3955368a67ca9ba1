// The repair of a red pupil on the pixels of a picture: what becomes of the red, what stays, and shapes at and over the edges.
#include <memory>

#include <gtest/gtest.h>

#include "kohost/natural.h"

#include "pupil_shapes.h"

namespace {

using namespace ko_test;
using kohost::Circle;
using kohost::Image;
using kohost::Shape;
using kohost::Size;

Image repaired(const Image &before, const Shape &shape) {
    Image after = before;
    kohost::repair_naturally(after.bytes.data(), after.size, {&shape, 1});
    return after;
}

// Whether a part of a pixel lies within two cells of the shape.
bool may_change(const Shape &shape, uint32_t x, uint32_t y) {
    const kohost::Cells &cells = shape.cells;
    const auto first = [](double at, double from, double cell) {
        return static_cast<int64_t>(std::floor((at - from) / cell)) - 2;
    };
    const auto last = [](double at, double from, double cell) {
        return static_cast<int64_t>(std::ceil((at + 1 - from) / cell)) + 1;
    };
    for (int64_t row = first(y, cells.top, cells.height); row <= last(y, cells.top, cells.height); ++row) {
        for (int64_t column = first(x, cells.left, cells.width); column <= last(x, cells.left, cells.width); ++column) {
            if (shape.contains(column, row)) {
                return true;
            }
        }
    }
    return false;
}

// The number of pixels that changed; none of them is too far from the shape.
int expect_rest_untouched(const Image &before, const Image &after, const Shape &shape) {
    int changed = 0;
    for (uint32_t y = 0; y < before.size.height; ++y) {
        for (uint32_t x = 0; x < before.size.width; ++x) {
            if (colour_at(before, x, y) != colour_at(after, x, y)) {
                ++changed;
                EXPECT_TRUE(may_change(shape, x, y)) << x << ", " << y;
            }
        }
    }
    return changed;
}

int greatest(const Colour &colour) { return std::max({colour[0], colour[1], colour[2]}); }

int least(const Colour &colour) { return std::min({colour[0], colour[1], colour[2]}); }

int redness(const Colour &colour) { return colour[0] - std::max(colour[1], colour[2]); }

// ---- pupils

struct Pupil {
    Circle circle;
    double cell; // of the shape
    uint32_t noise;
};

std::ostream &operator<<(std::ostream &stream, const Pupil &pupil) {
    return stream << "radius " << pupil.circle.radius << ", cells of " << pupil.cell << ", noise of " << pupil.noise;
}

Circle highlight_of(const Circle &circle) {
    return {circle.x - circle.radius / 3, circle.y - circle.radius / 3, std::max(circle.radius / 4, 1.5)};
}

constexpr Size pupil_picture = {200, 170};

class Pupils : public testing::TestWithParam<Pupil> {
  protected:
    const Circle circle_ = GetParam().circle;
    const Circle highlight_ = highlight_of(circle_);
    const Shape shape_ = disc_shape(circle_, GetParam().cell);

    Image picture() const {
        Image image = plain_picture(pupil_picture, skin_colour);
        put_disc(image, circle_, red_colour);
        put_disc(image, highlight_, white_colour);
        add_noise(image, GetParam().noise, 3);
        return image;
    }

    // Calls look(x, y) for the red pixels whose neighbours are red, too.
    template <class Look> void each_inner(const Look &look) const {
        for (uint32_t y = 0; y < pupil_picture.height; ++y) {
            for (uint32_t x = 0; x < pupil_picture.width; ++x) {
                if (distance(circle_, x, y) < circle_.radius - 1.5 && distance(highlight_, x, y) > highlight_.radius + 1.5) {
                    look(x, y);
                }
            }
        }
    }
};

INSTANTIATE_TEST_SUITE_P(OfManySizes, Pupils,
                         testing::Values(Pupil{{100, 80, 4}, 1, 0}, Pupil{{100, 80, 4}, 1, 5}, Pupil{{100.5, 80.3, 9.4}, 1, 0},
                                         Pupil{{100.5, 80.3, 9.4}, 1, 8}, Pupil{{90, 70, 20}, 3.7, 4},
                                         Pupil{{90, 70, 20}, 1, 0}, Pupil{{90, 80, 40}, 3.7, 0}, Pupil{{90, 80, 40}, 10, 4},
                                         Pupil{{100, 85, 60}, 10, 8}, Pupil{{40, 30, 15}, 2.5, 3}));

TEST_P(Pupils, BecomeNeutralAndDark) {
    const Image after = repaired(picture(), shape_);
    int seen = 0;
    each_inner([&](uint32_t x, uint32_t y) {
        const Colour colour = colour_at(after, x, y);
        EXPECT_LE(greatest(colour), 48) << x << ", " << y;
        EXPECT_LE(greatest(colour) - least(colour), 14 + static_cast<int>(2 * GetParam().noise)) << x << ", " << y;
        ++seen;
    });
    EXPECT_GE(seen, 3);
}

TEST_P(Pupils, KeepTheirHighlights) {
    const Image before = picture();
    const Image after = repaired(before, shape_);
    for (uint32_t y = 0; y < pupil_picture.height; ++y) {
        for (uint32_t x = 0; x < pupil_picture.width; ++x) {
            if (distance(highlight_, x, y) < highlight_.radius - 0.75) {
                for (size_t c = 0; c < 3; ++c) {
                    // Its colour may go.
                    EXPECT_NEAR(colour_at(after, x, y)[c], colour_at(before, x, y)[c], 8 + 2 * GetParam().noise)
                        << x << ", " << y << ", channel " << c;
                }
            }
        }
    }
}

TEST_P(Pupils, LeaveTheSkinAloneThatIsFarther) {
    const Image before = picture();
    EXPECT_GT(expect_rest_untouched(before, repaired(before, shape_), shape_), 10);
}

// Within reach of the repair, yet no redder than the skin farther away.
TEST_P(Pupils, LeaveTheSkinBesideThemAlone) {
    const Image before = picture();
    const Image after = repaired(before, shape_);
    for (uint32_t y = 0; y < pupil_picture.height; ++y) {
        for (uint32_t x = 0; x < pupil_picture.width; ++x) {
            if (distance(circle_, x, y) > circle_.radius + 2.5) {
                for (size_t c = 0; c < 3; ++c) {
                    EXPECT_NEAR(colour_at(after, x, y)[c], colour_at(before, x, y)[c], 12)
                        << x << ", " << y << ", channel " << c;
                }
            }
        }
    }
}

TEST_P(Pupils, AreNextToUnchangedByASecondRepair) {
    const Image once = repaired(picture(), shape_);
    const Image twice = repaired(once, shape_);
    double sum = 0.0;
    int most = 0;
    for (size_t i = 0; i < once.bytes.size(); ++i) {
        const int difference = std::abs(once.bytes[i] - twice.bytes[i]);
        most = std::max(most, difference);
        sum += difference;
    }
    EXPECT_LE(most, 16);
    EXPECT_LT(sum / (3 * 3.14 * circle_.radius * circle_.radius), 1.0) << "levels per byte of the pupil";
}

// The search sees a pupil in coarse cells: the red goes on for a pixel. At most half of it is left where it borders on skin.
TEST_P(Pupils, AreFinishedBeyondTheShape) {
    Image image = plain_picture(pupil_picture, skin_colour);
    put_disc(image, circle_, red_colour);
    const Shape smaller = disc_shape({circle_.x, circle_.y, circle_.radius - 1}, GetParam().cell);
    const Image after = repaired(image, smaller);
    for (uint32_t y = 0; y < pupil_picture.height; ++y) {
        for (uint32_t x = 0; x < pupil_picture.width; ++x) {
            if (distance(circle_, x, y) < circle_.radius) {
                EXPECT_LE(redness(colour_at(after, x, y)), (redness(red_colour) + redness(skin_colour)) / 2) << x << ", " << y;
            }
        }
    }
}

TEST(NaturalRepair, SuitsCellsThatAreNotSquare) {
    const Circle circle = {60, 50, 18};
    Image before = plain_picture({120, 100}, skin_colour);
    put_disc(before, circle, red_colour);
    for (const auto &[width, height] : std::vector<std::pair<double, double>>{{3.7, 1}, {1, 3.7}, {2.5, 4.5}, {0.5, 0.5}}) {
        const Shape shape = disc_shape(circle, width, height);
        const Image after = repaired(before, shape);
        expect_rest_untouched(before, after, shape);
        EXPECT_LE(greatest(colour_at(after, 60, 50)), 48) << width << " by " << height;
        EXPECT_LE(greatest(colour_at(after, 71, 50)), 48) << width << " by " << height;
        EXPECT_LE(greatest(colour_at(after, 60, 61)), 48) << width << " by " << height;
    }
}

// Where a box begins among the cells does not matter.
TEST(NaturalRepair, DependsOnWhereTheCellsLieAlone) {
    const Circle circle = {60, 50, 9};
    Image before = plain_picture({120, 100}, skin_colour);
    put_disc(before, circle, red_colour);
    add_noise(before, 6, 4);
    const Shape shape = disc_shape(circle, 2.0);
    Shape moved = shape;
    moved.cells.left -= 7 * 2.0;
    moved.cells.top -= 5 * 2.0;
    moved.box = {shape.box.x0 + 7, shape.box.y0 + 5, shape.box.x1 + 7, shape.box.y1 + 5};
    EXPECT_EQ(repaired(before, moved).bytes, repaired(before, shape).bytes);
}

// ---- what is no redder than its surroundings

TEST(NaturalRepair, LeavesAloneWhatIsNoRedderThanItsSurroundings) {
    const Circle circle = {32, 24, 8};
    const std::vector<std::pair<Colour, Colour>> pairs = {
        {skin_colour, skin_colour},     {red_colour, red_colour},           {{128, 128, 128}, {128, 128, 128}},
        {{0, 0, 0}, {0, 0, 0}},         {{255, 255, 255}, {255, 255, 255}}, {skin_colour, {30, 30, 30}},
        {skin_colour, {40, 60, 160}},   {skin_colour, {60, 150, 60}},       {skin_colour, {0, 0, 0}},
        {skin_colour, {255, 255, 255}}, {red_colour, skin_colour},          {{255, 0, 0}, red_colour},
        {{255, 0, 0}, {255, 0, 0}},     {{128, 128, 128}, {60, 60, 60}}};
    for (const auto &[around, inside] : pairs) {
        Image before = plain_picture({64, 48}, around);
        put_disc(before, circle, inside);
        for (const double cell : {1.0, 3.7, 10.0}) {
            EXPECT_EQ(repaired(before, disc_shape(circle, cell)).bytes, before.bytes)
                << testing::PrintToString(inside) << " on " << testing::PrintToString(around) << ", cells of " << cell;
        }
    }
}

TEST(NaturalRepair, LeavesThePartOfAShapeAloneThatIsNotRed) {
    const Circle circle = {50, 40, 16};
    Image before = plain_picture({100, 80}, skin_colour);
    for (uint32_t y = 0; y < 80; ++y) {
        for (uint32_t x = 0; x < 100; ++x) {
            if (distance(circle, x, y) < circle.radius) {
                put_colour(before, x, y, x < 50 ? red_colour : Colour{90, 90, 100});
            }
        }
    }
    const Image after = repaired(before, disc_shape(circle));
    EXPECT_LE(greatest(colour_at(after, 42, 40)), 48);
    for (uint32_t x = 54; x < 100; ++x) {
        EXPECT_EQ(colour_at(after, x, 40), colour_at(before, x, 40)) << x;
    }
}

TEST(NaturalRepair, OfAGrayPictureChangesNothing) {
    Noise noise(5);
    const Image before = make_picture({60, 60}, [&](uint32_t, uint32_t) {
        const uint8_t level = noise.byte();
        return Colour{level, level, level};
    });
    for (int i = 0; i < 100; ++i) {
        const Shape shape = random_shape(noise, edge_point(noise, 60), edge_point(noise, 60));
        EXPECT_EQ(repaired(before, shape).bytes, before.bytes);
    }
}

// ---- edges

// Half of the pupil lies outside of the picture.
TEST(NaturalRepair, WorksAtEveryEdgeAndCorner) {
    const Size size = {80, 60};
    for (const double x : {0.0, 40.0, 80.0}) {
        for (const double y : {0.0, 30.0, 60.0}) {
            for (const double cell : {1.0, 3.7}) {
                const Circle circle = {x, y, 12};
                Image before = plain_picture(size, skin_colour);
                put_disc(before, circle, red_colour);
                const Shape shape = disc_shape(circle, cell);
                const Image after = repaired(before, shape);
                SCOPED_TRACE(testing::Message() << x << ", " << y << ", cells of " << cell);
                expect_rest_untouched(before, after, shape);
                const auto within = [](double at, uint32_t side) {
                    return static_cast<uint32_t>(std::clamp(at, 2.0, side - 3.0));
                };
                const Colour colour = colour_at(after, within(x, size.width), within(y, size.height));
                EXPECT_LE(greatest(colour), 48);
                EXPECT_LE(greatest(colour) - least(colour), 14);
            }
        }
    }
}

// Redder within the shape than elsewhere, so that there is something to repair.
Image red_spot_picture(Size size, const Shape &shape, uint32_t seed) {
    Image image = random_picture(size, seed);
    for (uint32_t y = 0; y < size.height; ++y) {
        for (uint32_t x = 0; x < size.width; ++x) {
            const double column = (x + 0.5 - shape.cells.left) / shape.cells.width;
            const double row = (y + 0.5 - shape.cells.top) / shape.cells.height;
            if (shape.contains(static_cast<int64_t>(std::floor(column)), static_cast<int64_t>(std::floor(row)))) {
                put_colour(image, x, y, red_colour);
            }
        }
    }
    return image;
}

// Calls repair(picture, shape) for pictures of many sizes, and shapes inside and across their edges.
template <class Repair> void each_random_shape(const Repair &repair) {
    Noise noise(6);
    for (uint32_t i = 0; i < 1500; ++i) {
        const Size size = odd_sizes[i % odd_sizes.size()];
        const Shape shape = random_shape(noise, edge_point(noise, size.width), edge_point(noise, size.height));
        repair(random_picture(size, i), shape);
        repair(red_spot_picture(size, shape, i), shape);
    }
}

// A sanitizer sees what lies beside the picture; the picture's memory has no room to spare.
TEST(NaturalRepair, KeepsToThePictureWhereverTheShapeLies) {
    int changed = 0;
    each_random_shape([&](const Image &before, const Shape &shape) {
        const auto bytes = std::make_unique<uint8_t[]>(before.bytes.size());
        std::copy(before.bytes.begin(), before.bytes.end(), bytes.get());
        kohost::repair_naturally(bytes.get(), before.size, {&shape, 1});
        changed += std::equal(before.bytes.begin(), before.bytes.end(), bytes.get()) ? 0 : 1;
    });
    EXPECT_GT(changed, 500);
}

TEST(NaturalRepair, KeepsToTwoCellsAroundTheShape) {
    each_random_shape([](const Image &before, const Shape &shape) {
        if (testing::Test::HasFailure()) {
            return;
        }
        SCOPED_TRACE(testing::Message() << before.size.width << " x " << before.size.height << ", cells of "
                                        << shape.cells.width << " by " << shape.cells.height << " from " << shape.cells.left
                                        << ", " << shape.cells.top);
        expect_rest_untouched(before, repaired(before, shape), shape);
    });
}

TEST(NaturalRepair, OfOneCellIsPossible) {
    for (const double cell : {1.0, 3.7, 10.0}) {
        Shape shape;
        shape.cells = {20, 20, cell, cell};
        shape.box = {0, 0, 1, 1};
        shape.inside = {1};
        const Image before = red_spot_picture({50, 50}, shape, 7);
        expect_rest_untouched(before, repaired(before, shape), shape);
        Image plain = plain_picture({50, 50}, skin_colour);
        for (uint32_t i = 0; i < static_cast<uint32_t>(std::ceil(cell) * std::ceil(cell)); ++i) {
            const auto side = static_cast<uint32_t>(std::ceil(cell));
            put_colour(plain, 20 + i % side, 20 + i / side, red_colour);
        }
        const Colour colour = colour_at(repaired(plain, shape), 20, 20);
        EXPECT_LT(colour[0] - colour[1], red_colour[0] - red_colour[1]) << "cells of " << cell;
    }
}

// A shape that another picture's size moved out of this one.
TEST(NaturalRepair, BesideThePictureChangesNothing) {
    const Image before = random_picture({40, 30}, 8);
    for (const auto &[x, y] :
         std::vector<std::pair<double, double>>{{-50, 10}, {90, 10}, {20, -50}, {20, 90}, {-1e6, -1e6}, {1e6, 1e6}}) {
        for (const double cell : {1.0, 3.7}) {
            EXPECT_EQ(repaired(before, disc_shape({x, y, 8}, cell)).bytes, before.bytes) << x << ", " << y;
        }
    }
}

// There are no surroundings to compare it with.
TEST(NaturalRepair, OfOnePixelLeavesItOrMakesItNeutral) {
    for (const Colour &colour : {red_colour, skin_colour, white_colour, Colour{0, 0, 0}}) {
        const Image before = plain_picture({1, 1}, colour);
        for (const double cell : {0.5, 1.0, 3.7, 10.0}) {
            for (const double radius : {0.5, 2.0, 30.0}) {
                const Colour after = colour_at(repaired(before, disc_shape({0.5, 0.5, radius}, cell)), 0, 0);
                EXPECT_TRUE(after == colour || greatest(after) - least(after) <= 14) << testing::PrintToString(after);
            }
        }
    }
}

} // namespace
