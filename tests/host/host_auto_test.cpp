// `ko auto`: red eyes, judgement and enhancement on one picture, in this order.
#include <filesystem>

#include <nlohmann/json.hpp>

#include "host.h"
#include "red_eye_pictures.h"
#include "repaired.h"

namespace {

using namespace ko_test;
using Json = nlohmann::json;

class HostAuto : public Host {
  protected:
    std::string model(const ModelRecipe &recipe = {}) const { return put_model(path("model"), recipe); }
    Words with_model(Words options = {}) const {
        options.insert(options.end(), {"--plain", "--model", model()});
        return options;
    }
};

Outcome improve(const Words &inputs, const std::string &output, const Words &options) {
    return run_command("auto", inputs, output, options);
}

const std::string three_eyes = "red eyes repaired (1 accepted, 1 undecided, 1 rejected)";
const std::string meaning = "it has no detail hidden in its shadows: ";
const std::string too_little =
    "left as it is: " + meaning + "64 of 64 blocks would gain too little detail (limit 63); --force enhances it";

// The text of a line between its size and the time.
std::string said_in(const std::string &line) {
    const size_t start = line.find(", ", line.find(" x ")) + 2;
    return line.substr(start, line.rfind(", ") - start);
}

TEST_F(HostAuto, RepairsAndEnhances) {
    const std::string file = eyes_png();
    const Outcome outcome = improve({put("in.png", file)}, path("out.png"), with_model({"--force"}));
    expect_success(outcome);
    EXPECT_EQ(said_in(outcome.out), three_eyes + ", enhanced");
    const Pixels result = png_pixels(read_bytes(path("out.png")));
    EXPECT_EQ(result, expected(repaired(png_pixels(file), model())));
    EXPECT_NE(result, repaired(expected(png_pixels(file)), model())) << "the order counts";
    EXPECT_NE(result, expected(png_pixels(file)));
}

TEST_F(HostAuto, FollowsTheOptionsOfBoth) {
    const std::string file = eyes_png();
    const Words options = with_model({"--full", "--force", "--grid", "3x2", "--max-gain", "2", "--ratio", "1"});
    expect_success(improve({put("in.png", file)}, path("out.png"), options));
    const Tuning tuning = {.columns = 3, .rows = 2, .max_gain = 2.0f, .ratio = 1.0f};
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected(repaired(png_pixels(file), model(), {.full = true}), tuning));
}

TEST_F(HostAuto, RepairsWhatIsNotEnhanced) {
    const std::string file = eyes_png();
    const Outcome outcome = improve({put("in.png", file)}, path("out.png"), with_model());
    expect_success(outcome);
    EXPECT_EQ(said_in(outcome.out), three_eyes + ", " + too_little);
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), repaired(png_pixels(file), model()));
}

TEST_F(HostAuto, EnhancesWhatHasNoRedEyes) {
    const std::string file = judged_png({});
    const Outcome outcome = improve({put("in.png", file)}, path("out.png"), with_model());
    expect_success(outcome);
    EXPECT_EQ(said_in(outcome.out), "no red eyes, enhanced");
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected(png_pixels(file)));
}

TEST_F(HostAuto, EnhancesGrayPictures) {
    const std::string file = dark_png(png_gray);
    const Outcome outcome = improve({put("in.png", file)}, path("out.png"), with_model({"--force"}));
    expect_success(outcome);
    EXPECT_EQ(said_in(outcome.out), "no red eyes: the picture is gray, enhanced");
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected(png_pixels(file)));
}

TEST_F(HostAuto, CopiesWhatStaysAsItIs) {
    const std::string file = eyes_png({});
    const Outcome outcome = improve({put("in.png", file)}, path("out.png"), with_model());
    expect_success(outcome);
    EXPECT_EQ(said_in(outcome.out), "no red eyes, " + too_little);
    EXPECT_EQ(read_bytes(path("out.png")), file);
}

TEST_F(HostAuto, JudgesByThePolicy) {
    const std::string file = judged_png({63, 0, 0});
    const std::string name = put("in.png", file);
    EXPECT_EQ(said_in(improve({name}, path("out.png"), with_model()).out), "no red eyes, enhanced");
    const Outcome outcome = improve({name}, path("out.png"), with_model({"--policy", "conservative"}));
    expect_success(outcome);
    EXPECT_EQ(said_in(outcome.out), "no red eyes, left as it is: " + meaning +
                                        "63 of 64 blocks would gain too little detail (limit 62); --force enhances it");
    EXPECT_EQ(read_bytes(path("out.png")), file);
}

TEST_F(HostAuto, WithoutAModelLeavesRedEyes) {
    const std::string file = eyes_png();
    const Words inputs = {put("a.png", file), put("b.png", file)};
    const Outcome outcome = improve(inputs, path("out"), {"--force", "--model", "none"});
    expect_success(outcome);
    ASSERT_EQ(outcome.out_lines().size(), 2u);
    EXPECT_EQ(said_in(outcome.out_lines()[1]), "enhanced");
    EXPECT_EQ(png_pixels(read_bytes(path("out/b.png"))), expected(png_pixels(file)));
}

TEST_F(HostAuto, JsonReportsBoth) {
    const std::string name = put("in.png", eyes_png());
    const Json object = Json::parse(improve({name}, path("out.png"), with_model({"--json"})).out);
    EXPECT_EQ(object.at("file"), name);
    EXPECT_EQ(object.at("decision"), "left as it is");
    EXPECT_EQ(object.at("reason"), meaning + "64 of 64 blocks would gain too little detail (limit 63)");
    const Json &eyes = object.at("red_eyes");
    EXPECT_EQ(eyes.at("decision"), "red eyes repaired");
    EXPECT_EQ(eyes.at("accepted"), 1);
    EXPECT_EQ(eyes.at("places"), places_found(png_pixels(eyes_png()), model()));
    EXPECT_FALSE(eyes.contains("reason"));
    const std::string gray = put("gray.png", eyes_png({}, png_gray));
    EXPECT_EQ(Json::parse(improve({gray}, path("out.png"), with_model({"--json"})).out).at("red_eyes").at("reason"),
              "the picture is gray");
    EXPECT_EQ(Json::parse(improve({name}, path("out.png"), {"--json", "--model", "none"}).out).at("red_eyes"), nullptr);
}

TEST_F(HostAuto, LogShowsTheProgressOfTheRepair) {
    const std::string name = put("in.png", eyes_png());
    const Outcome outcome = improve({name}, path("out.png"), with_model({"--log"}));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "ko: " + name + ": progress:\n" + logged(png_pixels(eyes_png()), model()));
}

TEST_F(HostAuto, AModelThatCannotBeUsedLeavesNothingBehind) {
    const std::string name = put("in.png", eyes_png({}));
    const Outcome outcome = improve({name}, path("new/out.png"), {"--model", path("missing.cfg")});
    EXPECT_EQ(outcome.out, "");
    expect_one_error(outcome, "the model " + path("missing.cfg") + " cannot be used: [ERROR] Cannot open file \"" +
                                  path("missing.cfg") + "\" for reading");
    EXPECT_EQ(left(), (std::set<std::string>{"in.png"}));
}

TEST_F(HostAuto, TakesNoPictureForAModelsFile) {
    const std::string name = put("in.png", eyes_png());
    const Outcome outcome = improve({name}, path("model_RE_FE"), with_model());
    expect_wrong_usage(outcome, "cannot write " + path("model_RE_FE") + no_extension);
}

} // namespace
