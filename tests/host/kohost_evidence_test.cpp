// The evidence about a place: finite in every picture and wherever the shape lies, the same from every side, and higher where
// there is more red.
#include <gtest/gtest.h>

#include "kohost/evidence.h"

#include "pupil_shapes.h"

namespace {

using namespace ko_test;
using kohost::Circle;
using kohost::Evidence;
using kohost::Image;
using kohost::Shape;
using kohost::Size;

Evidence evidence(const Image &image, const Shape &shape) {
    const Evidence measures = kohost::evidence_about(image.pixels(), shape);
    for (size_t i = 0; i < measures.size(); ++i) {
        EXPECT_TRUE(std::isfinite(measures[i])) << "measure " << i;
    }
    return measures;
}

void expect_same(const Evidence &measures, const Evidence &others, float tolerance) {
    for (size_t i = 0; i < measures.size(); ++i) {
        EXPECT_NEAR(measures[i], others[i], tolerance * std::max(1.0f, std::abs(others[i]))) << "measure " << i;
    }
}

// ---- every picture

const std::vector<Colour> &single_colours() {
    static const std::vector<Colour> colours = {{0, 0, 0},       {255, 255, 255}, {255, 0, 0}, {0, 255, 0},
                                                {0, 0, 255},     {0, 255, 255},   {1, 0, 0},   {0, 0, 1},
                                                {128, 128, 128}, {254, 255, 255}, skin_colour, red_colour};
    return colours;
}

TEST(Evidence, IsFiniteInPicturesOfOneColour) {
    Noise noise(1);
    for (const Colour &colour : single_colours()) {
        for (const Size size : odd_sizes) {
            const Image image = plain_picture(size, colour);
            for (int i = 0; i < 12; ++i) {
                SCOPED_TRACE(testing::Message()
                             << testing::PrintToString(colour) << ", " << size.width << " x " << size.height);
                evidence(image, random_shape(noise, edge_point(noise, size.width), edge_point(noise, size.height)));
            }
        }
    }
}

// Each measure is about 0 to 1 or a logarithm.
TEST(Evidence, StaysInItsRange) {
    std::array<float, kohost::evidence_count> greatest{};
    const auto see = [&](const Evidence &measures) {
        for (size_t i = 0; i < measures.size(); ++i) {
            greatest[i] = std::max(greatest[i], std::abs(measures[i]));
        }
    };
    const Circle circle = {24, 20, 6};
    for (const Colour &around : single_colours()) {
        Image image = plain_picture({48, 40}, around);
        see(evidence(plain_picture({1, 1}, around), disc_shape({0.5, 0.5, 1})));
        for (const Colour &inside : single_colours()) {
            put_disc(image, circle, inside);
            see(evidence(image, disc_shape(circle)));
        }
    }
    for (size_t i = 0; i < greatest.size(); ++i) {
        EXPECT_LT(greatest[i], 260.0f) << "measure " << i; // a level, or a quotient of two
    }
}

// One colour in the shape, another around it.
TEST(Evidence, IsFiniteInPicturesOfTwoColours) {
    const Circle circle = {24, 20, 6};
    for (const Colour &around : single_colours()) {
        Image image = plain_picture({48, 40}, around);
        for (const Colour &inside : single_colours()) {
            put_disc(image, circle, inside);
            for (const double cell : {1.0, 3.7}) {
                evidence(image, disc_shape(circle, cell));
            }
        }
    }
}

TEST(Evidence, IsFiniteWhereverTheShapeLies) {
    Noise noise(2);
    for (uint32_t i = 0; i < 1500 && !HasFailure(); ++i) {
        const Size size = odd_sizes[i % odd_sizes.size()];
        const Image image = random_picture(size, i);
        const Shape shape = random_shape(noise, edge_point(noise, size.width), edge_point(noise, size.height));
        SCOPED_TRACE(testing::Message() << size.width << " x " << size.height << ", cells of " << shape.cells.width << " by "
                                        << shape.cells.height << " from " << shape.cells.left << ", " << shape.cells.top);
        evidence(image, shape);
    }
}

TEST(Evidence, IsFiniteAtEveryEdgeAndCorner) {
    for (const double x : {0.0, 1.0, 30.0, 59.0, 60.0}) {
        for (const double y : {0.0, 1.0, 20.0, 39.0, 40.0}) {
            for (const double radius : {1.0, 5.0, 15.0, 80.0}) {
                Image image = plain_picture({60, 40}, skin_colour);
                put_disc(image, {x, y, radius}, red_colour);
                for (const double cell : {1.0, 3.7, 10.0}) {
                    SCOPED_TRACE(testing::Message() << x << ", " << y << ", radius " << radius << ", cells of " << cell);
                    evidence(image, disc_shape({x, y, radius}, cell));
                }
            }
        }
    }
}

TEST(Evidence, IsFiniteWhateverCellsAreInside) {
    const Image image = random_picture({40, 30}, 3);
    for (const uint8_t inside : std::array<uint8_t, 3>{0, 1, 255}) {
        Shape shape = disc_shape({20, 15, 5}, 1.0);
        std::fill(shape.inside.begin(), shape.inside.end(), inside);
        evidence(image, shape);
    }
}

TEST(Evidence, TakesOneTimeAlone) {
    const Image image = random_picture({60, 50}, 4);
    const Shape shape = disc_shape({30, 25, 7}, 1.3);
    EXPECT_EQ(evidence(image, shape), evidence(image, shape));
}

// ---- every side

Image textured(Size size, const Circle &pupil) {
    Image image = plain_picture(size, skin_colour);
    put_disc(image, {pupil.x + 2, pupil.y + 1, 2.4 * pupil.radius}, {235, 235, 230});
    put_disc(image, {pupil.x, pupil.y, 1.6 * pupil.radius}, {90, 60, 40});
    put_disc(image, pupil, red_colour);
    put_disc(image, {pupil.x - pupil.radius / 3, pupil.y - pupil.radius / 4, pupil.radius / 4}, white_colour);
    add_noise(image, 7, 5);
    return image;
}

struct Turned {
    Image image;
    Shape shape;
};

// A picture and the box of a shape whose cells are its pixels, both drawn anew from where at(x, y) was.
template <class At> Turned turned(const Image &image, const Shape &shape, Size size, const At &at) {
    Turned result{make_picture(size,
                               [&](uint32_t x, uint32_t y) {
                                   const auto [from_x, from_y] = at(x, y);
                                   return colour_at(image, from_x, from_y);
                               }),
                  {}};
    kohost::Box box{size.width, size.height, 0, 0};
    std::vector<uint8_t> cells(size.area());
    for (uint32_t row = 0; row < size.height; ++row) {
        for (uint32_t column = 0; column < size.width; ++column) {
            const auto [from_x, from_y] = at(column, row);
            if (shape.contains(from_x, from_y)) {
                cells[size_t{row} * size.width + column] = 1;
                box = {std::min(box.x0, column), std::min(box.y0, row), std::max(box.x1, column + 1),
                       std::max(box.y1, row + 1)};
            }
        }
    }
    result.shape.box = box;
    for (uint32_t row = box.y0; row < box.y1; ++row) {
        for (uint32_t column = box.x0; column < box.x1; ++column) {
            result.shape.inside.push_back(cells[size_t{row} * size.width + column]);
        }
    }
    return result;
}

using Point = std::pair<uint32_t, uint32_t>;

// The cells of a picture that lie in a circle.
Shape cells_in(const Circle &circle, Size size) {
    Shape whole;
    whole.box = {0, 0, size.width, size.height};
    for (uint32_t y = 0; y < size.height; ++y) {
        for (uint32_t x = 0; x < size.width; ++x) {
            whole.inside.push_back(distance(circle, x, y) < circle.radius ? 1 : 0);
        }
    }
    return whole;
}

class Sides : public testing::TestWithParam<Circle> {
  protected:
    static constexpr Size size_ = {90, 70};
    const Image image_ = textured(size_, GetParam());
    const Turned straight_ = turn(size_, [](uint32_t x, uint32_t y) { return Point{x, y}; });

    template <class At> Turned turn(Size size, const At &at) const {
        return turned(image_, cells_in(GetParam(), size_), size, at);
    }

    // Which pixel a point between two belongs to may differ.
    void expect_as_straight(const Turned &turned, float tolerance = 0.05f) const {
        expect_same(evidence(turned.image, turned.shape), evidence(straight_.image, straight_.shape), tolerance);
    }
};

INSTANTIATE_TEST_SUITE_P(OfPupils, Sides,
                         testing::Values(Circle{45, 35, 4}, Circle{44.5, 34.5, 7.5}, Circle{40, 33, 12}, Circle{10, 12, 8},
                                         Circle{89, 30, 6}));

TEST_P(Sides, OfAMirroredPictureAreTheSame) {
    expect_as_straight(turn(size_, [](uint32_t x, uint32_t y) { return Point{size_.width - 1 - x, y}; }));
    expect_as_straight(turn(size_, [](uint32_t x, uint32_t y) { return Point{x, size_.height - 1 - y}; }));
}

// Some measures compare what is beside the shape with what is above and below.
TEST_P(Sides, OfATransposedPictureAreTheSameOrOpposite) {
    const Turned turned = turn({size_.height, size_.width}, [](uint32_t x, uint32_t y) { return Point{y, x}; });
    const Evidence transposed = evidence(turned.image, turned.shape);
    Evidence expected = evidence(straight_.image, straight_.shape);
    for (size_t i = 0; i < expected.size(); ++i) {
        const bool opposite = std::abs(transposed[i] + expected[i]) < std::abs(transposed[i] - expected[i]);
        expected[i] = opposite ? -expected[i] : expected[i];
    }
    expect_same(transposed, expected, 0.05f);
}

// Where a box begins among the cells does not matter.
TEST_P(Sides, DependOnWhereTheCellsLieAlone) {
    Turned moved = straight_;
    moved.shape.cells.left = 5.0;
    moved.shape.cells.top = -3.0;
    moved.shape.box = {moved.shape.box.x0 + 100 - 5, moved.shape.box.y0 + 3, moved.shape.box.x1 + 100 - 5,
                       moved.shape.box.y1 + 3};
    moved.shape.cells.left -= 100;
    expect_as_straight(moved, 1e-6f);
}

// ---- redness

TEST(Evidence, RisesWithRednessInSomeMeasures) {
    constexpr int steps = 6;
    const Circle circle = {40, 30, 8};
    std::vector<Evidence> all;
    for (int step = 0; step <= steps; ++step) {
        Colour colour{};
        for (size_t c = 0; c < 3; ++c) {
            colour[c] = static_cast<uint8_t>(skin_colour[c] + (red_colour[c] - skin_colour[c]) * step / steps);
        }
        Image image = plain_picture({80, 60}, skin_colour);
        put_disc(image, circle, colour);
        all.push_back(evidence(image, disc_shape(circle)));
    }
    int rising = 0;
    for (size_t i = 0; i < kohost::evidence_count; ++i) {
        bool rises = all.back()[i] - all.front()[i] > 0.2f;
        for (size_t step = 1; step < all.size(); ++step) {
            rises = rises && all[step][i] > all[step - 1][i];
        }
        rising += rises ? 1 : 0;
    }
    EXPECT_GE(rising, 2);
}

TEST(Evidence, DistinguishesARedPupilFromOthers) {
    const Circle circle = {40, 30, 8};
    Image image = plain_picture({80, 60}, skin_colour);
    put_disc(image, circle, red_colour);
    const Evidence red = evidence(image, disc_shape(circle));
    for (const Colour &colour : {Colour{90, 60, 40}, Colour{40, 40, 40}, Colour{170, 100, 90}, skin_colour, white_colour}) {
        put_disc(image, circle, colour);
        const Evidence other = evidence(image, disc_shape(circle));
        int different = 0;
        for (size_t i = 0; i < red.size(); ++i) {
            different += std::abs(red[i] - other[i]) > 0.1f ? 1 : 0;
        }
        EXPECT_GE(different, 3) << testing::PrintToString(colour);
    }
}

} // namespace
