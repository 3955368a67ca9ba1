// `ko enhance` and the judgement: which pictures are turned down, what is reported about them, and what is written instead.
#include <nlohmann/json.hpp>

#include "answers.h"
#include "host.h"
#include "judged_pictures.h"

namespace {

using namespace ko_test;
using Json = nlohmann::json;

Outcome enhance(const Words &inputs, const std::string &output, const Words &options = {}) {
    return run_command("enhance", inputs, output, options);
}

// The text of a picture's line between its size and the time.
std::string decision_in(const std::string &line) {
    const size_t size_end = line.find(" x ");
    const size_t start = line.find(", ", size_end) + 2;
    return line.substr(start, line.rfind(", ") - start);
}

struct Case {
    Faults faults;
    Words options;
    std::string decision;
};

class Policies : public Host, public testing::WithParamInterface<Case> {};

TEST_P(Policies, DecideByTheCountsOfBlocks) {
    const Case &c = GetParam();
    const std::string file = judged_png(c.faults);
    const Outcome outcome = enhance({put("in.png", file)}, path("out.png"), c.options);
    expect_success(outcome);
    ASSERT_EQ(outcome.out_lines().size(), 1u);
    EXPECT_TRUE(matches(outcome.out, "^" + path("in.png") + ": 320 x 320, .*, " + time_shown + "\n$")) << outcome.out;
    EXPECT_EQ(decision_in(outcome.out), c.decision);
    const std::string written = read_bytes(path("out.png"));
    if (c.decision == "enhanced") {
        EXPECT_EQ(png_pixels(written), expected(png_pixels(file)));
        EXPECT_NE(png_pixels(written), png_pixels(file));
    } else {
        EXPECT_EQ(written, file) << "byte for byte";
    }
    EXPECT_EQ(left(), (std::set<std::string>{"in.png", "out.png"}));
}

const std::string enhanced = "enhanced";
const std::string left_alone = "left as it is: ";

// What a line reports about a picture that is turned down, by its figures: what they mean comes before them.
std::string turned_down(const std::string &figures) {
    const auto is_about = [&](const char *text) { return figures.find(text) != std::string::npos; };
    const std::string meaning = is_about("detail")       ? "it has no detail hidden in its shadows"
                                : is_about("dark tones") ? "its dark parts are too uniform to be opened"
                                : is_about("noisy")      ? "it is too noisy to be opened"
                                                         : "its score is too high";
    return left_alone + meaning + ": " + figures + "; --force enhances it";
}

INSTANTIATE_TEST_SUITE_P(
    Host, Policies,
    testing::Values(
        Case{{}, {}, enhanced}, Case{{}, {"--policy", "conservative"}, enhanced}, Case{{}, {"--policy", "risky"}, enhanced},
        // Each measure alone, beyond the widest limit.
        Case{{64, 0, 0}, {}, turned_down("64 of 64 blocks would gain too little detail (limit 63)")},
        Case{{64, 0, 0}, {"--policy", "conservative"}, turned_down("64 of 64 blocks would gain too little detail (limit 62)")},
        Case{{64, 0, 0}, {"--policy", "risky"}, turned_down("64 of 64 blocks would gain too little detail (limit 63)")},
        Case{{0, 30, 0}, {}, turned_down("30 of 64 blocks have too uniform dark tones (limit 23)")},
        Case{{0, 0, 40}, {}, turned_down("40 of 64 blocks are too noisy (limit 37)")},
        Case{{64, 0, 0}, {"--policy", "always"}, enhanced}, Case{{64, 0, 0}, {"--force"}, enhanced},
        // A limit itself is kept; the next count is not.
        Case{{62, 0, 0}, {"--policy", "conservative"}, enhanced},
        Case{{63, 0, 0}, {"--policy", "conservative"}, turned_down("63 of 64 blocks would gain too little detail (limit 62)")},
        Case{{63, 0, 0}, {"--policy", "default"}, enhanced}, Case{{0, 23, 0}, {}, enhanced},
        Case{{0, 24, 0}, {}, turned_down("24 of 64 blocks have too uniform dark tones (limit 23)")},
        Case{{0, 0, 37}, {}, enhanced}, Case{{0, 0, 38}, {}, turned_down("38 of 64 blocks are too noisy (limit 37)")},
        // A picture passes as any policy up to the named one would let it: this one is over the limits of risky and default.
        Case{{0, 22, 0}, {"--policy", "risky"}, enhanced},
        // The measure that turns a picture down is the one that rules out the last policy, each by its own limits: the uniform
        // blocks (limit 20) rule out default, the noise rules out conservative.
        Case{{0, 21, 38}, {}, turned_down("38 of 64 blocks are too noisy (limit 37)")},
        Case{{0, 7, 24}, {"--policy", "risky"}, enhanced},
        // Without conservative, which the score rules out, the others' limits count.
        Case{{0, 21, 0}, {"--score", "0.3"}, turned_down("21 of 64 blocks have too uniform dark tones (limit 20)")},
        Case{{0, 0, 24}, {"--score", "0.3"}, turned_down("24 of 64 blocks are too noisy (limit 23)")},
        Case{{0, 7, 24}, {"--policy", "risky", "--score", "0.3"}, turned_down("24 of 64 blocks are too noisy (limit 23)")},
        Case{{0, 7, 0},
             {"--policy", "risky", "--score", "0.5"},
             turned_down("7 of 64 blocks have too uniform dark tones (limit 6)")},
        Case{{0, 6, 26}, {"--policy", "risky", "--score", "0.5"}, enhanced},
        // The score.
        Case{{}, {"--score", "0.4"}, turned_down("the score 0.4 is too high (limit 0.35)")},
        Case{{}, {"--score", "0.35"}, enhanced},
        Case{{}, {"--score", "0.36"}, turned_down("the score 0.36 is too high (limit 0.35)")},
        Case{{}, {"--score", "0.36", "--policy", "risky"}, enhanced},
        Case{{}, {"--score", "1", "--policy", "risky"}, turned_down("the score 1 is too high (limit 0.64)")},
        Case{{}, {"--score", "1", "--force"}, enhanced}, Case{{}, {"--score", "-1", "--policy", "conservative"}, enhanced},
        Case{{}, {"--score", "0.19", "--policy", "conservative"}, enhanced},
        Case{{}, {"--score", "0.2", "--policy", "conservative"}, turned_down("the score 0.2 is too high (limit 0.19)")}));

using HostJudged = Host;

const Faults nothing_to_gain = {64, 0, 0};

TEST_F(HostJudged, TheGainDecidesWithTheRest) {
    const Outcome outcome = enhance({put("in.png", judged_png({}))}, path("out.png"), {"--max-gain", "1"});
    EXPECT_EQ(decision_in(outcome.out), turned_down("64 of 64 blocks would gain too little detail (limit 63)"));
}

TEST_F(HostJudged, AGrayPictureHasNoNoise) {
    const std::string noisy = judged_png({0, 0, 64}, png_gray);
    EXPECT_EQ(decision_in(enhance({put("in.png", noisy)}, path("out.png")).out), enhanced);
    const std::string bright = judged_png(nothing_to_gain, png_gray);
    EXPECT_EQ(decision_in(enhance({put("in.png", bright)}, path("out.png")).out),
              turned_down("64 of 64 blocks would gain too little detail (limit 63)"));
    EXPECT_EQ(read_bytes(path("out.png")), bright);
}

TEST_F(HostJudged, PicturesWithoutAWholeBlockAreMeasuredByNothingAndPass) {
    const std::string file = png_file({7, 7, 8, png_rgb, false, {}, {}}, dark);
    const Outcome outcome = enhance({put("in.png", file)}, path("out.png"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(decision_in(outcome.out), enhanced);
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected(png_pixels(file), {.columns = 3, .rows = 3}));
}

TEST_F(HostJudged, WhatTheDecodingLeavesOutIsStillInTheCopy) {
    const Sample deep = [](uint32_t x, uint32_t y, uint32_t c) { return 200 * 257 + (x * 31 + y * 17 + c) % 200; };
    const std::string png = png_file({64, 64, 16, png_rgba, true, {{"tEXt", std::string("Title\0a picture", 15)}}, {}}, deep);
    expect_success(enhance({put("in.png", png)}, path("out.png")));
    EXPECT_EQ(read_bytes(path("out.png")), png);
    JpegRecipe recipe{.width = 64, .height = 64, .quality = 33, .progressive = true, .segments = {{0xee, "something"}}};
    const std::string jpeg = jpeg_file(recipe, judged_samples(nothing_to_gain));
    expect_success(enhance({put("in.jpg", jpeg)}, path("out.jpg"), {"--quality", "100"}));
    EXPECT_EQ(read_bytes(path("out.jpg")), jpeg);
}

TEST_F(HostJudged, AnotherFormatIsEncodedFromThePixels) {
    const JpegRecipe recipe{.width = judged_side, .height = judged_side};
    const std::string jpeg = jpeg_file(recipe, judged_samples(nothing_to_gain));
    const Outcome outcome = enhance({put("in.jpg", jpeg)}, path("out.png"));
    expect_success(outcome);
    EXPECT_TRUE(decision_in(outcome.out).starts_with(left_alone)) << outcome.out;
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), jpeg_pixels(jpeg));
    const std::string name = put("alpha.png", judged_png(nothing_to_gain, png_rgba));
    EXPECT_EQ(enhance({name}, path("out.jpg"), {"--quality", "70"}).err,
              "ko: " + name + ": notice: a JPEG file cannot hold alpha, which is left out\n");
    EXPECT_EQ(jpeg_first_factor(read_bytes(path("out.jpg"))), jpeg_first_factor(dark_jpeg({.quality = 70})));
}

TEST_F(HostJudged, ANameOfAnotherFormatIsReportedForACopyToo) {
    const std::string file = judged_png(nothing_to_gain);
    const std::string name = put("in.jpg", file);
    const Outcome outcome = enhance({name}, path("folder/"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "ko: " + name + ": notice: written as PNG like the input, whatever the name says\n");
    EXPECT_EQ(read_bytes(path("folder/in.jpg")), file);
}

TEST_F(HostJudged, AGridThatIsNotMadeIsNotReduced) {
    const std::string file = png_file({9, 9, 8, png_rgb, false, {}, {}}, judged_samples(nothing_to_gain));
    const Outcome outcome = enhance({put("in.png", file)}, path("out.png"), {"--score", "0.4"});
    expect_success(outcome);
    EXPECT_EQ(read_bytes(path("out.png")), file);
}

TEST_F(HostJudged, APictureWithoutRoomForCurvesIsCopiedToo) {
    const std::string file = png_file({96, 80, 8, png_gray, true, {{"tEXt", std::string("Title\0a", 7)}}, {}}, dark);
    const Outcome outcome = enhance({put("in.png", file)}, path("out.png"), {"--grid", "1x1", "--force"});
    EXPECT_EQ(decision_in(outcome.out), "unchanged");
    EXPECT_EQ(read_bytes(path("out.png")), file);
}

TEST_F(HostJudged, OverItselfStaysWhatItWas) {
    const std::string file = judged_png(nothing_to_gain);
    expect_success(enhance({put("in.png", file)}, "", {"--in-place"}));
    EXPECT_EQ(read_bytes(path("in.png")), file);
    EXPECT_EQ(left(), (std::set<std::string>{"in.png"}));
}

TEST_F(HostJudged, ACopyThatCannotBeWrittenIsAnError) {
    const std::string name = put("in.png", judged_png(nothing_to_gain));
    const std::string out = put("out.png", "old");
    const Outcome outcome = run_command("enhance", {name}, out, {}, {.largest_file = 100});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(read_bytes(out), "old");
}

TEST_F(HostJudged, OnePictureDoesNotDecideForTheNext) {
    const Words inputs = {put("a.png", judged_png(nothing_to_gain)), put("b.png", judged_png({})),
                          put("c.png", judged_png({0, 0, 64}))};
    const Outcome outcome = enhance(inputs, path("out"));
    expect_success(outcome);
    const Words lines = outcome.out_lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(decision_in(lines[0]), turned_down("64 of 64 blocks would gain too little detail (limit 63)"));
    EXPECT_EQ(decision_in(lines[1]), enhanced);
    EXPECT_EQ(decision_in(lines[2]), turned_down("64 of 64 blocks are too noisy (limit 37)"));
}

TEST_F(HostJudged, QuietSaysNothingOfIt) {
    const Outcome outcome = enhance({put("in.png", judged_png(nothing_to_gain))}, path("out.png"), {"-q"});
    expect_success(outcome);
    EXPECT_EQ(outcome.out, "");
}

TEST_F(HostJudged, JsonReportsEachPictureInAnObjectOnALineOfItsOwn) {
    const Words inputs = {put("a \"b\"\\\n.png", judged_png(nothing_to_gain)), put("b.png", judged_png({})),
                          path("missing.png")};
    const Outcome outcome = enhance(inputs, path("out"), {"--json"});
    expect_one_error(outcome, inputs[2] + ": cannot be read: No such file or directory");
    const Words lines = outcome.out_lines();
    ASSERT_EQ(lines.size(), 3u);
    const Json alone = Json::parse(lines[0]);
    EXPECT_EQ(alone.at("file"), inputs[0]);
    EXPECT_EQ(alone.at("output"), path("out/a \"b\"\\\n.png"));
    EXPECT_EQ(alone.at("width"), 320);
    EXPECT_EQ(alone.at("height"), 320);
    EXPECT_EQ(alone.at("decision"), "left as it is");
    EXPECT_EQ(alone.at("reason"),
              "it has no detail hidden in its shadows: 64 of 64 blocks would gain too little detail (limit 63)");
    EXPECT_EQ(alone.at("measures").at("detail"), (Json{{"value", 64}, {"limit", 63}}));
    EXPECT_EQ(without_times(alone).size(), 7u) << alone;
    const Json done = Json::parse(lines[1]);
    EXPECT_EQ(done.at("decision"), "enhanced");
    EXPECT_FALSE(done.contains("reason"));
    EXPECT_LE(done.at("measures").at("detail").at("value"), 63);
    EXPECT_EQ(without_times(done).size(), 6u) << done;
    EXPECT_EQ(Json::parse(lines[2]), (Json{{"file", inputs[2]}, {"error", "cannot be read: No such file or directory"}}));
}

// Those that cannot change the decision any more are taken too.
TEST_F(HostJudged, JsonReportsEveryMeasureThatThePolicyLimits) {
    const std::string name = put("in.png", judged_png(nothing_to_gain));
    const auto measures = [&](const Words &more) {
        Words options = {"--json"};
        options.insert(options.end(), more.begin(), more.end());
        return Json::parse(enhance({name}, path("out.png"), options).out).at("measures");
    };
    const Json judged = Json::parse(run_command("judge", {name}, "", {"--json", "--score", "0.3"}).out);
    const Json risky = measures({"--policy", "risky", "--score", "0.3"});
    ASSERT_EQ(risky.size(), 4u);
    for (const auto &[measure, count] : judged.at("blocks_over").items()) {
        EXPECT_EQ(risky.at(measure).at("value"), count) << measure;
    }
    for (const auto &[measure, limit] : judged.at("decisions").at(2).at("limits").items()) {
        EXPECT_EQ(risky.at(measure).at("limit"), limit) << measure;
    }
    EXPECT_EQ(risky.at("score").at("value"), judged.at("score"));
    EXPECT_EQ(measures({}).at("score").at("value"), nullptr);
    EXPECT_EQ(measures({"--force"}), nullptr);
}

TEST_F(HostJudged, MistakesAreReportedInOneLine) {
    const std::string name = put("in.png", judged_png({}));
    const std::vector<std::pair<Words, std::string>> cases = {
        {{"--policy", "bold"}, "--policy: 'bold' is none of conservative, default, risky, always"},
        {{"--policy", "2"}, "--policy: '2' is none of"},
        {{"--policy", ""}, "--policy: '' is none of"},
        {{"--policy", "risky", "--force"}, "--policy excludes --force"},
        {{"--force", "--policy", "always"}, "--policy excludes --force"},
        {{"--score", "1.1"}, "--score: '1.1' is not a number from -1 to 1"},
        {{"--score", "nan"}, "--score: 'nan' is not a number from -1 to 1"},
        {{"--score", "-1.5"}, "--score: '-1.5' is not a number from -1 to 1"},
        {{"--json", "--quiet"}, "--json excludes --quiet"}};
    for (const auto &[options, beginning] : cases) {
        const Outcome outcome = enhance({name}, path("out.png"), options);
        EXPECT_EQ(outcome.status, 2) << beginning;
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err_lines().size(), 1u) << outcome.err;
        EXPECT_TRUE(outcome.err.starts_with("ko: " + beginning)) << outcome.err;
        EXPECT_TRUE(outcome.err.ends_with(" (see ko enhance --help)\n")) << outcome.err;
    }
    EXPECT_EQ(left(), (std::set<std::string>{"in.png"}));
}

TEST_F(HostJudged, IsExplainedByDetails) {
    const std::string low = put("low.png", judged_png({.low_detail = 64}));
    const std::string good = put("good.png", judged_png({.low_detail = 2, .low_entropy = 3, .noisy = 4}));
    const Outcome outcome = enhance({low, good}, path("out"), {"--verbose"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err_lines(),
              (Words{"ko: " + low + ": judged at 320 x 320 pixels: 64 of 64 blocks would gain too little detail (limit 63), " +
                         "0 of 64 blocks have too uniform dark tones (limit 20), 0 of 64 blocks are too noisy (limit 23)",
                     "ko: " + good + ": judged at 320 x 320 pixels: 2 of 64 blocks would gain too little detail (limit 63), " +
                         "3 of 64 blocks have too uniform dark tones (limit 20), 4 of 64 blocks are too noisy (limit 23)",
                     "ko: " + good + ": curves for 8x8 tiles, computed at 320 x 320 pixels"}));
    EXPECT_EQ(enhance({low, good}, path("quiet")).err, "");
}

} // namespace
