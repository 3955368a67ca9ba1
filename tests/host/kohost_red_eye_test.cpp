// The search for red eyes, their judgement and repair, and the frames around them, on pictures whose eyes are known.
#include <filesystem>

#include <gtest/gtest.h>

#include "kohost/frames.h"
#include "kohost/plain_redeye.h"
#include "kohost/redeye.h"
#include "kohost/redeye_search.h"

#include "pupil_shapes.h"
#include "red_eye_pictures.h"

namespace {

using namespace ko_test;
using ko::Error;
using kohost::Box;
using kohost::Candidate;
using kohost::GateError;
using kohost::Image;
using kohost::Place;
using kohost::RedEyeChoices;
using kohost::RedEyeDecision;
using kohost::RedEyeModel;
using kohost::RedEyes;
using kohost::Sensitivity;
using kohost::Size;

const ko::Library library;

// ---- models

// A gate that adds low, or high where an input is above a value.
std::string step_gate(size_t input, double at, double low, double high) {
    return "ko red-eye gate 1\n24\n1 -1 0\n1\n3\n" + std::to_string(input) + " " + std::to_string(at) + "\n-1 " +
           std::to_string(low) + "\n-1 " + std::to_string(high) + "\n";
}

std::string leaf_gate(double sum) { return "ko red-eye gate 1\n24\n1 -1 0\n1\n1\n-1 " + std::to_string(sum) + "\n"; }

class Model {
  public:
    explicit Model(const std::string &gate = "", const ModelRecipe &recipe = {}) : folder_("model") {
        std::filesystem::create_directory(folder_.path());
        configuration_ = put_model(stem(), recipe);
        if (!gate.empty()) {
            write_bytes(stem() + ".gate", gate);
        }
    }

    std::string stem() const { return folder_.path() + "/eyes"; }
    const std::string &configuration() const { return configuration_; }
    RedEyeModel read() const { return RedEyeModel(configuration_); }

  private:
    TemporaryFile folder_;
    std::string configuration_;
};

// ---- pictures

Image skin_picture(Size size, const std::vector<Eye> &eyes) {
    return make_picture(size, [&](uint32_t x, uint32_t y) {
        Colour colour{};
        for (uint32_t c = 0; c < 3; ++c) {
            colour[c] = static_cast<uint8_t>(skin_sample(eyes, x, y, c));
        }
        return colour;
    });
}

constexpr Size eyes_size = {eyes_width, eyes_height};

bool covers(const Box &box, const Eye &eye) { return eye.x >= box.x0 && eye.x < box.x1 && eye.y >= box.y0 && eye.y < box.y1; }

kohost::Findings search(const Image &image, const std::string &model) {
    return kohost::search(image.pixels(), model, false, nullptr);
}

bool found(const kohost::Findings &findings, const Eye &eye, Size size) {
    return std::any_of(findings.candidates.begin(), findings.candidates.end(),
                       [&](const Candidate &candidate) { return covers(candidate.shape.pixels(size), eye); });
}

RedEyes eyes_in(const Image &image, const RedEyeModel &model, const RedEyeChoices &choices = {}) {
    return kohost::find_red_eyes(image.pixels(), image.size, model, choices, nullptr);
}

uint64_t judged_plainly(const Image &image, const std::string &model) {
    std::vector<uint8_t> result = image.bytes;
    RedEyeChoices choices;
    choices.model = model;
    choices.plain = true;
    return kohost::repair_plainly(image.pixels(), result.data(), model, choices, "picture", nullptr).judged();
}

// ---- the search

TEST(RedEyeSearch, FindsEyesOfOrdinarySize) {
    const Model model;
    const Image image = skin_picture(eyes_size, four_eyes);
    const kohost::Findings findings = search(image, model.configuration());
    EXPECT_FALSE(findings.too_many);
    EXPECT_GE(findings.places, 3u);
    for (const Eye &eye : four_eyes) {
        EXPECT_TRUE(found(findings, eye, image.size)) << eye.x << ", " << eye.y;
    }
}

TEST(RedEyeSearch, FindsPupilsUpToAnEighthOfThePicture) {
    const Model model;
    for (const Size size : {Size{320, 200}, Size{400, 400}, Size{640, 480}, Size{1000, 667}}) {
        for (const uint32_t share : {8u, 9u, 11u, 16u, 24u}) {
            const Eye eye = {size.width / 2, size.height / 2, size.height / share / 2, 0};
            const Image image = skin_picture(size, {eye});
            EXPECT_TRUE(found(search(image, model.configuration()), eye, size))
                << size.width << " x " << size.height << ", radius " << eye.radius;
        }
        const Image image = skin_picture(size, {{size.width / 2, size.height / 2, size.height / 16, 0}});
        EXPECT_EQ(judged_plainly(image, model.configuration()), 0u) << "the library alone finds it, too";
    }
}

TEST(RedEyeSearch, FindsPupilsNearTheEdges) {
    const Model model;
    for (const auto &[x, y] : std::vector<std::pair<uint32_t, uint32_t>>{
             {9, 100}, {311, 100}, {150, 9}, {150, 191}, {9, 9}, {311, 9}, {9, 191}, {311, 191}}) {
        const Eye eye = {x, y, 7, 0};
        const Image image = skin_picture(eyes_size, {eye});
        EXPECT_TRUE(found(search(image, model.configuration()), eye, image.size)) << x << ", " << y;
        EXPECT_EQ(judged_plainly(image, model.configuration()), 0u) << "the library alone finds it, too";
    }
}

TEST(RedEyeSearch, HasShapesThatFitTheEyes) {
    const Model model;
    const Image image = skin_picture(eyes_size, four_eyes);
    for (const Candidate &candidate : search(image, model.configuration()).candidates) {
        const kohost::Circle circle = candidate.shape.circle();
        SCOPED_TRACE(testing::Message() << circle.x << ", " << circle.y << ", radius " << circle.radius);
        EXPECT_EQ(candidate.shape.inside.size(),
                  size_t{candidate.shape.box.x1 - candidate.shape.box.x0} * (candidate.shape.box.y1 - candidate.shape.box.y0));
        const auto eye = std::find_if(four_eyes.begin(), four_eyes.end(), [&](const Eye &one) {
            return std::hypot(circle.x - 0.5 - one.x, circle.y - 0.5 - one.y) < 2.0;
        });
        ASSERT_NE(eye, four_eyes.end());
        EXPECT_NEAR(circle.radius, eye->radius, 2.0);
    }
}

TEST(RedEyeSearch, FindsNothingWithoutRed) {
    const Model model;
    Noise noise(1);
    for (const Colour &colour : {Colour{0, 0, 0}, Colour{255, 255, 255}, skin_colour, Colour{20, 90, 200}}) {
        Image image = plain_picture(eyes_size, colour);
        EXPECT_TRUE(search(image, model.configuration()).candidates.empty()) << testing::PrintToString(colour);
        put_disc(image, {150, 100, 9}, {40, 60, 50});
        put_disc(image, {60, 100, 9}, {60, 120, 220});
        EXPECT_TRUE(search(image, model.configuration()).candidates.empty()) << testing::PrintToString(colour);
    }
    const Image gray = make_picture(eyes_size, [&](uint32_t, uint32_t) {
        const uint8_t level = noise.byte();
        return Colour{level, level, level};
    });
    const kohost::Findings findings = search(gray, model.configuration());
    EXPECT_TRUE(findings.candidates.empty());
    EXPECT_EQ(findings.places, 0u);
    EXPECT_FALSE(findings.too_many);
}

TEST(RedEyeSearch, GivesFeaturesOnRequest) {
    const Model model;
    const Image image = skin_picture(eyes_size, four_eyes);
    const kohost::Findings with = kohost::search(image.pixels(), model.configuration(), true, nullptr);
    const kohost::Findings without = search(image, model.configuration());
    ASSERT_EQ(with.candidates.size(), without.candidates.size());
    for (size_t i = 0; i < with.candidates.size(); ++i) {
        EXPECT_EQ(with.candidates[i].features.size(), 3 * feature_length);
        EXPECT_TRUE(without.candidates[i].features.empty());
        EXPECT_EQ(with.candidates[i].fe_score, without.candidates[i].fe_score);
    }
}

const std::vector<Size> thin_sizes = {{1, 1},   {2, 2}, {640, 2}, {2, 640}, {640, 1},
                                      {1, 640}, {3, 3}, {16, 16}, {40, 9},  {33, 33}};

TEST(RedEyeSearch, OfTinyAndThinPicturesIsPossible) {
    const Model model;
    const RedEyeModel read = model.read();
    for (const Size size : thin_sizes) {
        for (const Image &image :
             {plain_picture(size, red_colour), plain_picture(size, skin_colour), random_picture(size, 4)}) {
            SCOPED_TRACE(testing::Message() << size.width << " x " << size.height);
            const kohost::Findings findings = search(image, model.configuration());
            for (const Candidate &candidate : findings.candidates) {
                const Box box = candidate.shape.pixels(size);
                EXPECT_LT(box.x0, box.x1);
                EXPECT_LT(box.y0, box.y1);
            }
            Image after = image;
            RedEyeChoices choices;
            choices.full = true;
            choices.frames = true;
            kohost::repair_red_eyes(after.bytes.data(), size, eyes_in(image, read, choices), choices);
        }
    }
}

TEST(RedEyeSearch, WithAModelThatIsMissingFails) {
    const Image image = skin_picture(eyes_size, four_eyes);
    EXPECT_THROW(search(image, temporary_path("missing.cfg")), ko::Error);
}

// ---- the model

TEST(RedEyeModelFiles, AreAllNamed) {
    for (const std::string &gate : {std::string(), leaf_gate(0)}) {
        const Model model(gate);
        const RedEyeModel read = model.read();
        EXPECT_TRUE(read);
        EXPECT_EQ(read.configuration(), model.configuration());
        EXPECT_EQ(read.files().size(), gate.empty() ? 4u : 5u);
        for (const std::string &file : read.files()) {
            EXPECT_TRUE(exists(file)) << file;
        }
    }
    EXPECT_FALSE(RedEyeModel());
}

TEST(RedEyeModelFiles, AreAllNeededButTheGate) {
    for (const std::string &ending : std::vector<std::string>{".cfg", ".projection", "_RE_FE", "_RE_BE"}) {
        for (const std::string &text : std::vector<std::string>{"-", "", "x", std::string(50, '\xff')}) {
            const Model model(leaf_gate(0));
            std::filesystem::remove(model.stem() + ending);
            if (text != "-") {
                write_bytes(model.stem() + ending, text);
            }
            EXPECT_THROW(model.read(), ko::Error) << ending << ", " << text;
        }
    }
    const Model model(leaf_gate(0));
    std::filesystem::remove(model.stem() + ".gate");
    EXPECT_NO_THROW(model.read());
}

TEST(RedEyeModelFiles, ThatDoNotFitAreRefused) {
    const Model classifier;
    write_bytes(classifier.stem() + "_RE_BE", classifier_bytes({}, feature_length + 1));
    EXPECT_THROW(classifier.read(), ko::Error);
    const Model projection;
    write_bytes(projection.stem() + ".projection", projection_bytes(3 * feature_length + 1));
    EXPECT_THROW(projection.read(), ko::Error);
}

TEST(RedEyeModelFiles, WithADamagedGateAreRefused) {
    for (const std::string &gate : std::vector<std::string>{"x", "ko red-eye gate 1\n", leaf_gate(0).substr(0, 30)}) {
        const Model model(gate);
        try {
            model.read();
            ADD_FAILURE() << gate;
        } catch (const GateError &error) {
            EXPECT_NE(std::string(error.what()).find(model.stem() + ".gate"), std::string::npos) << error.what();
        }
    }
    const Model empty("x");
    write_bytes(empty.stem() + ".gate", "");
    EXPECT_THROW(empty.read(), GateError);
}

int rank(int32_t label) { return label == KO_PATCH_ACCEPTED ? 2 : label == KO_PATCH_UNDECIDED ? 1 : 0; }

const std::vector<float> some_scores = {0.0f, 0.05f, 0.2f, 0.29f, 0.31f, 0.5f, 0.69f, 0.71f, 0.8f, 0.95f, 1.0f};

TEST(RedEyeVerdict, WithoutAGateFollowsTheBounds) {
    const Model model;
    const RedEyeModel read = model.read();
    for (const float fe : some_scores) {
        for (const float be : some_scores) {
            const kohost::Verdict verdict = read.judge(fe, be, {}, Sensitivity::standard);
            EXPECT_EQ(verdict.score, std::min(fe, be));
            if (std::min(fe, be) > 0.7f) {
                EXPECT_EQ(verdict.label, KO_PATCH_ACCEPTED) << fe << ", " << be;
            } else if (std::max(fe, be) < 0.3f) {
                EXPECT_EQ(verdict.label, KO_PATCH_REJECTED) << fe << ", " << be;
            } else if (std::min(fe, be) > 0.3f && std::max(fe, be) < 0.7f) {
                EXPECT_EQ(verdict.label, KO_PATCH_UNDECIDED) << fe << ", " << be;
            } else {
                EXPECT_NE(verdict.label, KO_PATCH_ACCEPTED) << fe << ", " << be;
            }
        }
    }
}

TEST(RedEyeVerdict, WithAGateFollowsTheSum) {
    float before = -1.0f;
    for (const double sum : {-1e6, -800.0, -40.0, -1.5, -1.01, -0.99, 0.0, 0.99, 1.01, 1.5, 40.0, 800.0, 1e6}) {
        const Model model(leaf_gate(sum));
        const kohost::Verdict verdict = model.read().judge(0.5f, 0.5f, {}, Sensitivity::standard);
        EXPECT_EQ(rank(verdict.label), sum > 1 ? 2 : sum < -1 ? 0 : 1) << sum;
        EXPECT_GE(verdict.score, before) << sum;
        EXPECT_GE(verdict.score, 0.0f) << sum;
        EXPECT_LE(verdict.score, 1.0f) << sum;
        before = verdict.score;
    }
}

TEST(RedEyeVerdict, WithAGateSeesScoresAndEvidence) {
    for (size_t input = 0; input < 2 + kohost::evidence_count; ++input) {
        const Model model(step_gate(input, 0.5, -5, 5));
        const RedEyeModel read = model.read();
        kohost::Evidence evidence{};
        constexpr float low = 0.45f; // but not rejected by the classifier's own bound
        EXPECT_EQ(read.judge(low, 0.0f, evidence, Sensitivity::standard).label, KO_PATCH_REJECTED) << input;
        if (input >= 2) {
            evidence[input - 2] = 1.0f;
        }
        EXPECT_EQ(read.judge(input == 0 ? 1.0f : low, input == 1 ? 1.0f : 0.0f, evidence, Sensitivity::standard).label,
                  KO_PATCH_ACCEPTED)
            << input;
    }
}

TEST(RedEyeVerdict, WithAGateRejectsWhatTheShapeRejects) {
    const Model model(step_gate(2, 0.5, 5, 5));
    const RedEyeModel read = model.read();
    EXPECT_EQ(read.judge(0.45f, 0.0f, {}, Sensitivity::standard).label, KO_PATCH_ACCEPTED);
    const kohost::Verdict verdict = read.judge(0.01f, 1.0f, {}, Sensitivity::standard);
    EXPECT_EQ(verdict.label, KO_PATCH_REJECTED);
    EXPECT_LE(verdict.score, 0.01f);
}

TEST(RedEyeVerdict, IsTheHigherTheMoreEagerTheChoice) {
    const auto expect_order = [](const RedEyeModel &model, float fe, float be) {
        int before = 0;
        for (const Sensitivity sensitivity : kohost::sensitivities) {
            const int label = rank(model.judge(fe, be, {}, sensitivity).label);
            EXPECT_GE(label, before) << kohost::name(sensitivity) << ", " << fe << ", " << be;
            before = label;
        }
        return rank(model.judge(fe, be, {}, Sensitivity::eager).label) -
               rank(model.judge(fe, be, {}, Sensitivity::careful).label);
    };
    const Model plain;
    const RedEyeModel without = plain.read();
    int moved = 0;
    for (const float fe : some_scores) {
        for (const float be : some_scores) {
            moved += expect_order(without, fe, be);
        }
    }
    EXPECT_GT(moved, 0) << "without a gate";
    moved = 0;
    for (double sum = -6.0; sum < 6.0; sum += 0.3) {
        moved += expect_order(Model(leaf_gate(sum)).read(), 0.5f, 0.5f);
    }
    EXPECT_GT(moved, 0) << "with a gate";
}

// ---- what is found

void expect_each_once(const RedEyes &eyes, const std::vector<Eye> &drawn) {
    for (const Eye &eye : drawn) {
        const auto times =
            std::count_if(eyes.places.begin(), eyes.places.end(), [&](const Place &place) { return covers(place.box, eye); });
        EXPECT_EQ(times, 1) << eye.x << ", " << eye.y << ", radius " << eye.radius;
    }
    EXPECT_EQ(eyes.places.size(), drawn.size());
}

TEST(FoundEyes, AreReportedOnce) {
    const Model model;
    const RedEyeModel read = model.read();
    expect_each_once(eyes_in(skin_picture(eyes_size, four_eyes), read), four_eyes);
    for (const uint32_t radius : {4u, 5u, 6u, 8u, 10u, 12u, 14u, 15u}) {
        const std::vector<Eye> pair = {{80, 90, radius, 0}, {200, 100, radius, 0}};
        expect_each_once(eyes_in(skin_picture(eyes_size, pair), read), pair);
    }
}

TEST(FoundEyes, AreAllJudgedWithAScore) {
    const Model model;
    const RedEyes eyes = eyes_in(skin_picture(eyes_size, four_eyes), model.read());
    EXPECT_EQ(eyes.judged(), four_eyes.size());
    uint64_t counted = 0;
    for (const int32_t label : kohost::labels) {
        counted += eyes.count(label);
    }
    EXPECT_EQ(counted, eyes.judged());
    for (const Place &place : eyes.places) {
        ASSERT_TRUE(place.score.has_value());
        EXPECT_EQ(*place.score, std::min(place.fe_score, place.be_score));
        EXPECT_LE(place.box.x1, eyes_width);
        EXPECT_LE(place.window.x1, eyes_width);
        EXPECT_LE(place.box.y1, eyes_height);
        EXPECT_LE(place.window.y1, eyes_height);
    }
}

TEST(FoundEyes, LieInThePictureOfWhichTheirsIsACopy) {
    const Model model;
    const RedEyeModel read = model.read();
    const Image copy = skin_picture(eyes_size, four_eyes);
    const RedEyes small = eyes_in(copy, read);
    const Size large = {eyes_width * 4, eyes_height * 4};
    const RedEyes scaled = kohost::find_red_eyes(copy.pixels(), large, read, {}, nullptr);
    ASSERT_EQ(scaled.places.size(), small.places.size());
    for (size_t i = 0; i < small.places.size(); ++i) {
        const Place &place = small.places[i];
        const Place &wide = scaled.places[i];
        EXPECT_EQ(wide.label, place.label);
        EXPECT_EQ(wide.score, place.score);
        for (const auto &[box, wide_box] : {std::pair{place.box, wide.box}, std::pair{place.window, wide.window}}) {
            EXPECT_NEAR(wide_box.x0, 4.0 * box.x0, 4.0);
            EXPECT_NEAR(wide_box.x1, 4.0 * box.x1, 4.0);
            EXPECT_NEAR(wide_box.y0, 4.0 * box.y0, 4.0);
            EXPECT_NEAR(wide_box.y1, 4.0 * box.y1, 4.0);
            EXPECT_LE(wide_box.x1, large.width);
            EXPECT_LE(wide_box.y1, large.height);
        }
        EXPECT_NEAR(wide.shapes.front().circle().x, 4.0 * place.shapes.front().circle().x, 1e-6);
        EXPECT_NEAR(wide.shapes.front().circle().y, 4.0 * place.shapes.front().circle().y, 1e-6);
    }
}

TEST(FoundEyes, AreAcceptedTheMoreTheMoreEagerTheChoice) {
    ModelRecipe narrow;
    narrow.accept = "0.9";
    narrow.reject = "0.1";
    for (const std::string &gate : {std::string(), step_gate(0, 0.5, 0.6, 1.4)}) {
        const Model model(gate, narrow);
        const RedEyeModel read = model.read();
        const Image image =
            skin_picture(eyes_size, {{60, 60, 7, 0}, {140, 100, 7, 20}, {230, 60, 8, 30}, {60, 140, 7, 40}, {240, 140, 7, 60}});
        uint64_t accepted = 0;
        uint64_t rejected = image.bytes.size();
        for (const Sensitivity sensitivity : kohost::sensitivities) {
            RedEyeChoices choices;
            choices.sensitivity = sensitivity;
            const RedEyes eyes = eyes_in(image, read, choices);
            EXPECT_GE(eyes.count(KO_PATCH_ACCEPTED), accepted) << kohost::name(sensitivity);
            EXPECT_LE(eyes.count(KO_PATCH_REJECTED), rejected) << kohost::name(sensitivity);
            accepted = eyes.count(KO_PATCH_ACCEPTED);
            rejected = eyes.count(KO_PATCH_REJECTED);
        }
        EXPECT_GT(accepted, 0u);
    }
}

TEST(FoundEyes, OfAGrayPictureAreNone) {
    const Model model;
    const std::vector<uint8_t> bytes = photograph(64, 48, 1, 3);
    const RedEyes eyes = kohost::find_red_eyes({bytes.data(), {64, 48}, 1}, {640, 480}, model.read(), {}, nullptr);
    EXPECT_EQ(eyes.decision, RedEyeDecision::gray);
    EXPECT_FALSE(eyes.changed);
    EXPECT_TRUE(eyes.places.empty());
}

TEST(FoundEyes, OfAPictureWithoutRedAreNone) {
    const Model model;
    RedEyeChoices choices;
    choices.frames = true;
    for (const bool full : {false, true}) {
        choices.full = full;
        const RedEyes eyes = eyes_in(plain_picture(eyes_size, skin_colour), model.read(), choices);
        EXPECT_EQ(eyes.decision, RedEyeDecision::none);
        EXPECT_FALSE(eyes.changed) << "no frames either";
        EXPECT_EQ(eyes.found, 0u);
    }
}

TEST(FoundEyes, MayBeTooMany) {
    const Model model;
    const Size size = {900, 200};
    Image image = plain_picture(size, skin_colour);
    for (uint32_t y = 12; y + 12 < size.height; y += 18) {
        for (uint32_t x = 12; x + 12 < size.width; x += 18) {
            put_disc(image, {x + 0.0, y + 0.0, 5}, red_colour);
        }
    }
    const RedEyes many = eyes_in(image, model.read());
    EXPECT_EQ(many.decision, RedEyeDecision::too_many);
    EXPECT_GT(many.found, many.limit);
    EXPECT_FALSE(many.changed);
    Image after = image;
    RedEyeChoices choices;
    choices.full = true;
    choices.frames = true;
    kohost::repair_red_eyes(after.bytes.data(), size, eyes_in(image, model.read(), choices), choices);
    EXPECT_EQ(after.bytes, image.bytes);
}

TEST(FoundEyes, HaveADecisionByTheNumberToRepair) {
    RedEyes eyes;
    decide(eyes, false, 0, {});
    EXPECT_EQ(eyes.decision, RedEyeDecision::none);
    EXPECT_FALSE(eyes.changed);
    decide(eyes, true, 0, {});
    EXPECT_EQ(eyes.decision, RedEyeDecision::too_many);
    EXPECT_FALSE(eyes.changed);
    RedEyes one;
    one.found = 1;
    one.places.resize(1);
    decide(one, false, 1, {});
    EXPECT_EQ(one.decision, RedEyeDecision::repaired);
    EXPECT_TRUE(one.changed);
    RedEyeChoices frames;
    frames.frames = true;
    RedEyes framed;
    framed.found = 1;
    framed.places.resize(1);
    decide(framed, false, 0, frames);
    EXPECT_EQ(framed.decision, RedEyeDecision::none);
    EXPECT_TRUE(framed.changed) << "it gets a frame";
}

TEST(FoundEyes, HaveNames) {
    EXPECT_STREQ(kohost::name_of_label(KO_PATCH_ACCEPTED), "accepted");
    EXPECT_STREQ(kohost::name_of_label(KO_PATCH_UNDECIDED), "undecided");
    EXPECT_STREQ(kohost::name_of_label(KO_PATCH_REJECTED), "rejected");
    EXPECT_STREQ(kohost::name(Sensitivity::careful), "careful");
    EXPECT_STREQ(kohost::name(Sensitivity::standard), "default");
    EXPECT_STREQ(kohost::name(Sensitivity::eager), "eager");
}

// ---- the repair

// How red the middle of an eye is.
int redness(const Image &image, const Eye &eye) {
    const Colour colour = colour_at(image, eye.x, eye.y);
    return colour[0] - std::max(colour[1], colour[2]);
}

const Place &place_of(const RedEyes &eyes, const Eye &eye) {
    return *std::find_if(eyes.places.begin(), eyes.places.end(), [&](const Place &place) { return covers(place.box, eye); });
}

// The slightly rough eye is undecided by itself.
TEST(FoundEyes, AreAcceptedBesideTheOtherEyeOfTheFace) {
    const Model model;
    const RedEyeModel read = model.read();
    const Eye first = four_eyes[0];
    const Eye second = four_eyes[1];
    const auto label = [&](const std::vector<Eye> &eyes) {
        const RedEyes found = eyes_in(skin_picture(eyes_size, eyes), read);
        return place_of(found, second).label;
    };
    EXPECT_EQ(label({second}), KO_PATCH_UNDECIDED);
    EXPECT_EQ(label({first, second}), KO_PATCH_ACCEPTED);
    const Eye large = {60, 60, 2 * first.radius, 0};
    EXPECT_EQ(label({large, second}), KO_PATCH_UNDECIDED) << "of another size";
    const Eye close = {second.x - 30, second.y, first.radius, 0};
    EXPECT_EQ(label({close, second}), KO_PATCH_UNDECIDED) << "closer than eyes are";
    const Eye third = {60, 160, first.radius, 0};
    EXPECT_EQ(label({first, third, second}), KO_PATCH_UNDECIDED) << "the others are a pair";
}

TEST(FoundEyes, HaveTheShapesOfAllLooksThatAcceptedThem) {
    const Model model;
    const RedEyes eyes = eyes_in(skin_picture(eyes_size, four_eyes), model.read());
    EXPECT_GT(place_of(eyes, four_eyes[0]).shapes.size(), 1u);
}

TEST(RepairedEyes, AreTheAcceptedOnesOrAll) {
    const Model model;
    const RedEyeModel read = model.read();
    const Image before = skin_picture(eyes_size, four_eyes);
    for (const bool full : {false, true}) {
        RedEyeChoices choices;
        choices.full = full;
        const RedEyes eyes = eyes_in(before, read, choices);
        ASSERT_EQ(eyes.places.size(), four_eyes.size());
        EXPECT_EQ(eyes.decision, RedEyeDecision::repaired);
        EXPECT_TRUE(eyes.changed);
        EXPECT_GT(eyes.count(KO_PATCH_ACCEPTED), 0u);
        EXPECT_GT(eyes.count(KO_PATCH_REJECTED), 0u);
        Image after = before;
        kohost::repair_red_eyes(after.bytes.data(), after.size, eyes, choices);
        for (const Eye &eye : four_eyes) {
            const bool repaired = full || place_of(eyes, eye).label == KO_PATCH_ACCEPTED;
            EXPECT_EQ(redness(after, eye) < 30, repaired) << eye.x << ", full: " << full;
            EXPECT_EQ(redness(after, eye) == redness(before, eye), !repaired) << eye.x << ", full: " << full;
        }
    }
}

TEST(RepairedEyes, AreThoseOfTheLargePicture) {
    const Model model;
    const std::vector<Eye> small_eyes = {{60, 60, 7, 0}, {230, 90, 8, 0}};
    const std::vector<Eye> large_eyes = {{240, 240, 28, 0}, {920, 360, 32, 0}};
    const Size large = {eyes_width * 4, eyes_height * 4};
    const Image copy = skin_picture(eyes_size, small_eyes);
    const RedEyes eyes = kohost::find_red_eyes(copy.pixels(), large, model.read(), {}, nullptr);
    Image after = skin_picture(large, large_eyes);
    kohost::repair_red_eyes(after.bytes.data(), large, eyes, {});
    int left = 0;
    for (uint32_t y = 0; y < large.height; ++y) {
        for (uint32_t x = 0; x < large.width; ++x) {
            left += redness(after, {x, y}) > 80 ? 1 : 0; // half of the difference between the red and the skin
        }
    }
    EXPECT_EQ(left, 0) << "pixels that are still red";
}

TEST(RepairedEyes, AreNoneIfNothingIsAccepted) {
    const Model model(leaf_gate(-9));
    const Image before = skin_picture(eyes_size, four_eyes);
    const RedEyes eyes = eyes_in(before, model.read());
    EXPECT_EQ(eyes.decision, RedEyeDecision::none);
    EXPECT_FALSE(eyes.changed);
    Image after = before;
    kohost::repair_red_eyes(after.bytes.data(), after.size, eyes, {});
    EXPECT_EQ(after.bytes, before.bytes);
}

TEST(RepairedEyes, OrFramesAreWhatChanges) {
    const Image before = skin_picture(eyes_size, four_eyes);
    for (const double sum : {-9.0, 0.0, 9.0}) {
        const Model model(leaf_gate(sum));
        const RedEyeModel read = model.read();
        for (const bool full : {false, true}) {
            for (const bool frames : {false, true}) {
                RedEyeChoices choices;
                choices.full = full;
                choices.frames = frames;
                const RedEyes eyes = eyes_in(before, read, choices);
                Image after = before;
                kohost::repair_red_eyes(after.bytes.data(), after.size, eyes, choices);
                EXPECT_EQ(after.bytes != before.bytes, eyes.changed) << sum << ", full: " << full << ", frames: " << frames;
                EXPECT_EQ(eyes.changed, full || frames || sum > 0) << sum << ", full: " << full << ", frames: " << frames;
            }
        }
    }
}

// ---- frames

Place framed(const Box &window, int32_t label, std::optional<float> score = {}) {
    Place place;
    place.box = window;
    place.window = window;
    place.label = label;
    place.score = score;
    return place;
}

Image with_frames(const Image &before, const std::vector<Place> &places) {
    Image after = before;
    kohost::draw_frames(after.bytes.data(), after.size, places);
    return after;
}

constexpr Colour ground = {128, 128, 128};

template <class See> void each_changed(const Image &before, const Image &after, const See &see) {
    for (uint32_t y = 0; y < before.size.height; ++y) {
        for (uint32_t x = 0; x < before.size.width; ++x) {
            if (colour_at(before, x, y) != colour_at(after, x, y)) {
                see(x, y);
            }
        }
    }
}

TEST(Frames, HaveTheColourOfTheLabel) {
    const Image before = plain_picture({200, 150}, ground);
    const Box window = {50, 40, 120, 100};
    for (const int32_t label : kohost::labels) {
        const Image after = with_frames(before, {framed(window, label)});
        const bool red = label != KO_PATCH_ACCEPTED;
        const bool green = label != KO_PATCH_REJECTED;
        int seen = 0;
        each_changed(before, after, [&](uint32_t x, uint32_t y) {
            const Colour colour = colour_at(after, x, y);
            EXPECT_EQ(colour[0] > 140, red) << testing::PrintToString(colour);
            EXPECT_EQ(colour[1] > 140, green) << testing::PrintToString(colour);
            EXPECT_LT(colour[2], 128);
            EXPECT_TRUE(x >= window.x0 && x < window.x1 && y >= window.y0 && y < window.y1) << x << ", " << y;
            ++seen;
        });
        EXPECT_GE(seen, 2 * (70 + 60) - 4);
        for (const auto &[x, y] : std::vector<std::pair<uint32_t, uint32_t>>{
                 {50, 40}, {119, 40}, {50, 99}, {119, 99}, {80, 40}, {50, 70}, {119, 70}, {80, 99}}) {
            EXPECT_NE(colour_at(after, x, y), ground) << x << ", " << y;
        }
        EXPECT_EQ(colour_at(after, 85, 70), ground) << "the middle";
    }
}

TEST(Frames, AreThickerInALargerPicture) {
    const auto thickness = [](Size size) {
        const Box window = {size.width / 4, size.height / 4, size.width / 2, size.height / 2};
        const Image before = plain_picture(size, ground);
        const Image after = with_frames(before, {framed(window, KO_PATCH_ACCEPTED)});
        uint32_t count = 0;
        while (colour_at(after, window.x0 + count, size.height * 3 / 8) != ground) {
            ++count;
        }
        return count;
    };
    EXPECT_GE(thickness({100, 80}), 1u);
    EXPECT_GT(thickness({1600, 1200}), thickness({100, 80}));
    EXPECT_GT(thickness({4000, 3000}), thickness({1600, 1200}));
}

TEST(Frames, AreDrawnForWhatWasJudged) {
    const Image before = plain_picture({200, 150}, ground);
    Place place = framed({50, 40, 120, 100}, KO_PATCH_ACCEPTED, 0.5f);
    place.judged = false;
    EXPECT_EQ(with_frames(before, {place}).bytes, before.bytes);
    EXPECT_EQ(with_frames(before, {}).bytes, before.bytes);
}

TEST(Frames, ShowTheScore) {
    const Image before = plain_picture({400, 300}, ground);
    const Box window = {100, 90, 240, 200};
    const Image without = with_frames(before, {framed(window, KO_PATCH_ACCEPTED)});
    std::vector<Image> all = {without};
    for (const float score : {0.0f, 0.07f, 0.5f, 0.97f, 1.0f}) {
        all.push_back(with_frames(before, {framed(window, KO_PATCH_ACCEPTED, score)}));
        for (size_t i = 0; i + 1 < all.size(); ++i) {
            EXPECT_NE(all[i].bytes, all.back().bytes) << score;
        }
    }
}

TEST(Frames, AreHarmlessAtEdgesAndOfAnySize) {
    Noise noise(9);
    for (uint32_t i = 0; i < 3000; ++i) {
        const Size size = i % 10 == 9 ? Size{300, 200} : odd_sizes[i % 9];
        Image image = plain_picture(size, ground);
        const auto side = [&](uint32_t limit) {
            const uint32_t from = noise.next() % 3 == 0 ? 0 : noise.next() % (limit + 1);
            const uint32_t to = noise.next() % 3 == 0 ? limit : from + noise.next() % (limit - from + 1);
            return std::pair{from, to};
        };
        const auto [x0, x1] = side(size.width);
        const auto [y0, y1] = side(size.height);
        std::optional<float> score;
        if (noise.next() % 3 != 0) {
            score = static_cast<float>(noise.next() % 101) / 100.0f;
        }
        kohost::draw_frames(image.bytes.data(), size, {framed({x0, y0, x1, y1}, kohost::labels[i % 3], score)});
        if (!score && (x0 == x1 || y0 == y1)) {
            EXPECT_EQ(image.bytes, plain_picture(size, ground).bytes) << "a frame around nothing";
        }
    }
}

} // namespace
