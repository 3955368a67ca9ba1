// `ko judge`: the table, the decisions with their reasons, the objects, and the score file.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <limits>
#include <sstream>

#include <nlohmann/json.hpp>

#include "host.h"
#include "judged_pictures.h"

namespace {

using namespace ko_test;
namespace fs = std::filesystem;

// In single precision, as the program writes numbers: what is read is what was measured, bit for bit.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool, int64_t, uint64_t, float>;

Outcome judge(const Words &inputs, const Words &options = {}, const Surroundings &surroundings = {}) {
    return run_command("judge", inputs, "", options, surroundings);
}

Json object_of(const std::string &input, Words options = {}) {
    options.push_back("--json");
    const Outcome outcome = judge({input}, options);
    expect_success(outcome);
    EXPECT_EQ(outcome.out_lines().size(), 1u);
    return Json::parse(outcome.out);
}

// The library's own measures of a picture: all of them, since the score takes the decision away at once.
FeaturesPtr measured(const Pixels &given, float max_gain = 3.0f) {
    FeaturesPtr features(KoLocalContrastEnhancementNew(256, 8, 8));
    features->keepScoring = 1;
    const ColorImagePtr image = image_of(given);
    TileTRC *none = nullptr;
    KoLocalContrastEnhancementGetNewTRCsTune(features.get(), image.get(), max_gain, 40.0f, 0.6275f, 5, 100.0f, 3, &none);
    EXPECT_EQ(none, nullptr);
    return features;
}

// A table of a measure, the blocks that count marked.
std::string table_of(const float *scores, const std::function<bool(float)> &counts) {
    std::string table;
    for (int i = 0; i < 64; ++i) {
        std::ostringstream number;
        number << std::setw(8) << std::fixed << std::setprecision(2) << scores[i];
        table += number.str() + (counts(scores[i]) ? "*" : i % 8 == 7 ? "" : " ") + (i % 8 == 7 ? "\n" : "");
    }
    return table;
}

std::string detail_table(const LocalContrastEnhancementImageFeatures &features) {
    return table_of(features.detailScores, [](float score) { return score < 5.6f; });
}

std::string tone_table(const LocalContrastEnhancementImageFeatures &features) {
    return table_of(features.entropyScores, [](float score) { return score < 2.45f; });
}

std::string noise_table(const LocalContrastEnhancementImageFeatures &features) {
    return table_of(features.noiseScores, [](float score) { return score > 1.0f; });
}

// Numbers in JSON as floats; null is not a number.
std::vector<float> floats_of(const Json &array) {
    std::vector<float> floats;
    for (const Json &element : array) {
        floats.push_back(element.is_null() ? std::numeric_limits<float>::quiet_NaN() : element.get<float>());
    }
    return floats;
}

std::vector<float> scores(const float *values) { return {values, values + 64}; }

const Faults some_of_each = {5, 21, 30};

using HostJudge = Host;

TEST_F(HostJudge, ShowsTheTableAndTheDecisions) {
    const std::string file = judged_png(some_of_each);
    const std::string name = put("in.png", file);
    const Outcome outcome = judge({name});
    expect_success(outcome);
    const FreshLibrary library;
    const FeaturesPtr features = measured(png_pixels(file));
    EXPECT_EQ(
        outcome.out,
        name +
            ": 320 x 320\n"
            "Detail: 5 of 64 blocks would gain too little detail (under 5.6, marked *); allowed: conservative 62, "
            "default 63, risky 63\n" +
            detail_table(*features) +
            "Dark tones: 21 of 64 blocks have too uniform dark tones (under 2.45, marked *); allowed: conservative 23, "
            "default 20 (exceeded), risky 6 (exceeded)\n" +
            tone_table(*features) +
            "Noise: 30 of 64 blocks are too noisy (over 1, marked *); allowed: conservative 37, default 23 (exceeded), "
            "risky 26 (exceeded)\n" +
            noise_table(*features) +
            "conservative: enhanced\n"
            "default: enhanced, within the limits of conservative; exceeds its own: 21 of 64 blocks have too uniform dark "
            "tones (limit 20); 30 of 64 blocks are too noisy (limit 23)\n"
            "risky: enhanced, within the limits of conservative; exceeds its own: 21 of 64 blocks have too uniform dark "
            "tones (limit 6); 30 of 64 blocks are too noisy (limit 26)\n"
            "always: enhanced\n");
}

TEST_F(HostJudge, ReportsAllThatCountsAgainstAPicture) {
    const std::string name = put("in.png", judged_png(some_of_each));
    const Outcome outcome = judge({name}, {"--score", "0.5"});
    expect_success(outcome);
    const Words lines = outcome.out_lines();
    ASSERT_GT(lines.size(), 4u);
    EXPECT_EQ(Words(lines.end() - 4, lines.end()),
              (Words{"conservative: left as it is: the score 0.5 is too high (limit 0.19)",
                     "default: left as it is: the score 0.5 is too high (limit 0.35); 21 of 64 blocks have too uniform dark "
                     "tones (limit 20); 30 of 64 blocks are too noisy (limit 23)",
                     "risky: left as it is: 21 of 64 blocks have too uniform dark tones (limit 6); 30 of 64 blocks are too "
                     "noisy (limit 26)",
                     "always: enhanced"}));
}

TEST_F(HostJudge, AGrayPictureHasNoNoise) {
    const std::string file = judged_png({3, 0, 0}, png_gray);
    const std::string name = put("in.png", file);
    const Outcome outcome = judge({name});
    expect_success(outcome);
    const FreshLibrary library;
    const FeaturesPtr features = measured(png_pixels(file));
    ASSERT_EQ(features->noiseScores, nullptr);
    EXPECT_EQ(outcome.out,
              name +
                  ": 320 x 320\n"
                  "Detail: 3 of 64 blocks would gain too little detail (under 5.6, marked *); allowed: conservative 62, "
                  "default 63, risky 63\n" +
                  detail_table(*features) +
                  "Dark tones: 0 of 64 blocks have too uniform dark tones (under 2.45, marked *); allowed: conservative 23, "
                  "default 20, risky 6\n" +
                  tone_table(*features) +
                  "Noise: not measured in a gray picture\n"
                  "conservative: enhanced\ndefault: enhanced\nrisky: enhanced\nalways: enhanced\n");
    const Json object = object_of(name);
    EXPECT_TRUE(object.at("scores").at("noise").is_null());
    EXPECT_TRUE(object.at("blocks_over").at("noise").is_null());
    EXPECT_EQ(object.at("blocks_over").at("detail"), 3u);
}

TEST_F(HostJudge, JsonHoldsEveryMeasureBitForBit) {
    const std::string file = judged_png(some_of_each);
    const std::string name = put("in.png", file);
    const Json object = object_of(name, {"--score", "0.3"});
    EXPECT_EQ(object.at("file"), name);
    EXPECT_EQ(object.at("width"), 320u);
    EXPECT_EQ(object.at("height"), 320u);
    EXPECT_EQ(object.at("score"), 0.3f);
    const FreshLibrary library;
    const FeaturesPtr features = measured(png_pixels(file));
    EXPECT_EQ(floats_of(object.at("scores").at("detail")), scores(features->detailScores));
    EXPECT_EQ(floats_of(object.at("scores").at("entropy")), scores(features->entropyScores));
    EXPECT_EQ(floats_of(object.at("scores").at("noise")), scores(features->noiseScores));
    EXPECT_EQ(object.at("block_thresholds"), (Json{{"detail", 5.6f}, {"entropy", 2.45f}, {"noise", 1.0f}}));
    EXPECT_EQ(object.at("blocks_over"), (Json{{"detail", 5u}, {"entropy", 21u}, {"noise", 30u}}));
    ASSERT_EQ(object.at("decisions").size(), 4u);
    const Json &standard = object.at("decisions").at(1);
    EXPECT_EQ(standard.at("policy"), "default");
    EXPECT_EQ(standard.at("enhanced"), false);
    EXPECT_EQ(standard.at("limits"), (Json{{"score", 0.35f}, {"detail", 63u}, {"entropy", 20u}, {"noise", 23u}}));
    EXPECT_TRUE(standard.at("passes_as").is_null());
    EXPECT_EQ(standard.at("reason"), "21 of 64 blocks have too uniform dark tones (limit 20); 30 of 64 blocks are too noisy "
                                     "(limit 23)");
    const Json &always = object.at("decisions").at(3);
    EXPECT_EQ(always.at("policy"), "always");
    EXPECT_EQ(always.at("enhanced"), true);
    EXPECT_TRUE(always.at("limits").is_null());
    EXPECT_TRUE(always.at("reason").is_null());
}

TEST_F(HostJudge, WithoutAScoreJsonHasNone) {
    const Json object = object_of(put("in.png", judged_png(some_of_each)));
    EXPECT_TRUE(object.at("score").is_null());
    const Json &standard = object.at("decisions").at(1);
    EXPECT_EQ(standard.at("enhanced"), true);
    EXPECT_EQ(standard.at("passes_as"), "conservative");
    EXPECT_FALSE(standard.at("reason").is_null());
    EXPECT_EQ(object.at("decisions").at(0).at("passes_as"), "conservative");
}

TEST_F(HostJudge, WhatIsNoNumberIsNull) {
    const std::string name = put("in.png", png_file({7, 30, 8}, dark));
    const Json object = object_of(name);
    EXPECT_EQ(object.at("scores").at("detail"), Json(std::vector<Json>(64, nullptr)));
    EXPECT_EQ(object.at("scores").at("noise"), Json(std::vector<Json>(64, nullptr)));
    EXPECT_EQ(object.at("blocks_over"), (Json{{"detail", 0u}, {"entropy", 0u}, {"noise", 0u}}));
    const Outcome outcome = judge({name});
    expect_success(outcome);
    EXPECT_EQ(outcome.out.find("nan"), std::string::npos);
    EXPECT_TRUE(matches(outcome.out, "\n(       - ){7}       -\n"));
}

TEST_F(HostJudge, NamesComeOutAsTheyAre) {
    for (const std::string name :
         {"quote\".png", "back\\slash.png", "line\nbreak.png", "tab\t\x01.png", "d\xc3\xa4mmerung.png"}) {
        const std::string input = put(name, png_file({16, 16, 8}, dark));
        EXPECT_EQ(object_of(input).at("file"), input);
    }
    const std::string latin = put("d\xe4mmerung.png", png_file({16, 16, 8}, dark));
    const Json object = object_of(latin);
    EXPECT_EQ(object.at("file"), path("d\xef\xbf\xbdmmerung.png")) << "no UTF-8: a mark in its place";
    EXPECT_TRUE(object.at("file_hex").get<std::string>().ends_with("2f64e46d6d6572756e672e706e67"));
    EXPECT_FALSE(object_of(put("plain.png", png_file({16, 16, 8}, dark))).contains("file_hex"));
}

TEST_F(HostJudge, TheGainOptionsCount) {
    const std::string file = judged_png({});
    const std::string name = put("in.png", file);
    const Json object = object_of(name, {"--max-gain", "1.5"});
    const FreshLibrary library;
    EXPECT_EQ(floats_of(object.at("scores").at("detail")), scores(measured(png_pixels(file), 1.5f)->detailScores));
    EXPECT_NE(object.at("scores").at("detail"), object_of(name).at("scores").at("detail"));
    EXPECT_NE(object_of(name, {"--strength", "10"}).at("scores").at("detail"), object_of(name).at("scores").at("detail"));
    EXPECT_NE(object_of(name, {"--limit", "0.3"}).at("scores").at("detail"), object_of(name).at("scores").at("detail"));
}

TEST_F(HostJudge, SaysWhatTheEnhancementDoes) {
    for (const Faults &faults : {Faults{63, 0, 0}, Faults{0, 21, 0}, Faults{0, 7, 24}, Faults{0, 24, 0}, Faults{0, 0, 38}}) {
        const std::string name = put("in.png", judged_png(faults));
        for (const std::string score : {"-1", "0.19", "0.3", "0.64", "1"}) {
            const Json object = object_of(name, {"--score", score});
            for (const Json &decision : object.at("decisions")) {
                const std::string policy = decision.at("policy").get<std::string>();
                const Outcome outcome =
                    run_command("enhance", {name}, path("out.png"), {"--policy", policy, "--score", score, "--json"});
                const bool done = Json::parse(outcome.out).at("decision") == "enhanced";
                EXPECT_EQ(decision.at("enhanced"), done) << policy << " with score " << score;
            }
        }
    }
}

TEST_F(HostJudge, TakesManyPictures) {
    const Words inputs = {put("a.png", judged_png({})), path("missing.png"), put("b.jpg", dark_jpeg()), put("c.png", "none")};
    const Words errors = {"ko: " + inputs[1] + ": cannot be read: No such file or directory",
                          "ko: " + inputs[3] + ": a text file, not a picture"};
    const Outcome pages = judge(inputs);
    EXPECT_EQ(pages.status, 1);
    EXPECT_EQ(pages.err_lines(), errors);
    EXPECT_LT(pages.out.find(inputs[0] + ": 320 x 320\n"), pages.out.find(inputs[2] + ": 96 x 80\n"));
    const Outcome objects = judge(inputs, {"--json"});
    EXPECT_EQ(objects.status, 1);
    EXPECT_EQ(objects.err_lines(), errors);
    ASSERT_EQ(objects.out_lines().size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        const Json object = Json::parse(objects.out_lines()[i]);
        EXPECT_EQ(object.at("file"), inputs[i]);
        EXPECT_EQ(object.contains("error"), i % 2 == 1);
    }
    EXPECT_EQ(left(), (std::set<std::string>{"a.png", "b.jpg", "c.png"}));
}

TEST_F(HostJudge, OnATerminalLeavesNoBar) {
    const Words inputs = {put("a.png", judged_png({})), put("b.png", judged_png({}))};
    const Outcome outcome = judge(inputs, {}, {.terminal = true});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.out.find(": judging"), std::string::npos);
    EXPECT_NE(outcome.out.find("\r\x1b[K" + inputs[0] + ": 320 x 320"), std::string::npos);
    EXPECT_TRUE(outcome.out.ends_with("always: enhanced\r\n")) << outcome.out;
}

TEST_F(HostJudge, AnOutputThatTakesNothingIsAnError) {
    const std::string name = put("in.png", judged_png({}));
    for (const Words &options : {Words{}, Words{"--json"}}) {
        const Outcome outcome = judge({name}, options, {.largest_file = 100});
        expect_one_error(outcome, "the standard output cannot be written");
    }
}

using HostScores = Host;

// The library's score file of a picture.
std::string score_file(const std::string &file) {
    const FreshLibrary library;
    const TemporaryFile saved("scores");
    EXPECT_EQ(KoLocalContrastEnhancementSaveScores(measured(png_pixels(file)).get(), saved.c_str(), 1), KO_OK);
    return read_bytes(saved.path());
}

TEST_F(HostScores, AreTheLibrarysFile) {
    const std::string file = judged_png(some_of_each);
    const std::string name = put("in.png", file);
    put("scores", "old");
    const Outcome outcome = judge({name}, {"--scores", path("scores")});
    expect_success(outcome);
    EXPECT_EQ(outcome.out, judge({name}).out);
    const std::string written = read_bytes(path("scores"));
    EXPECT_EQ(written, score_file(file));
    EXPECT_EQ(std::count(written.begin(), written.end(), ','), 3 * 63);
    EXPECT_EQ(left(), (std::set<std::string>{"in.png", "scores"}));
}

TEST_F(HostScores, OfAGrayPictureHaveAnEmptyLine) {
    const std::string file = judged_png({}, png_gray);
    expect_success(judge({put("in.png", file)}, {"--scores", path("scores")}));
    const std::string written = read_bytes(path("scores"));
    EXPECT_EQ(written, score_file(file));
    EXPECT_NE(written.find("\n\n"), std::string::npos);
    EXPECT_EQ(std::count(written.begin(), written.end(), ','), 2 * 63);
}

TEST_F(HostScores, AreOfOnePicture) {
    const std::string name = put("in.png", judged_png({}));
    const Outcome outcome = judge({name, name}, {"--scores", path("scores")});
    expect_wrong_usage(outcome, "--scores: a score file is for one input, not 2 (see ko judge --help)");
    EXPECT_EQ(outcome.out, "");
    EXPECT_FALSE(exists(path("scores")));
}

TEST_F(HostScores, DoNotTakeThePlaceOfTheirPictureOrAFolder) {
    const std::string file = judged_png({});
    const std::string name = put("in.png", file);
    fs::create_directory(path("folder"));
    expect_one_error(judge({name}, {"--scores", name}), name + ": cannot write " + name + ": it is the input");
    expect_one_error(judge({name}, {"--scores", path("folder")}),
                     name + ": cannot write " + path("folder") + ": a folder has this name");
    expect_one_error(judge({name}, {"--scores", path("none/scores")}), path("none") + ": no such folder");
    EXPECT_EQ(read_bytes(name), file);
}

TEST_F(HostScores, ForWhichThereIsNoRoomLeaveTheOldFile) {
    const std::string name = put("in.png", judged_png({}));
    const std::string saved = put("scores", "old");
    for (const uint64_t room : {300, 700}) {
        const Outcome outcome = judge({name}, {"--scores", saved}, {.largest_file = room});
        expect_one_error(outcome, name + ": cannot write " + saved + ": File too large");
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(read_bytes(saved), "old");
    }
    EXPECT_EQ(left(), (std::set<std::string>{"in.png", "scores"}));
}

TEST_F(HostJudge, MistakesAreReportedInOneLine) {
    const std::string name = put("in.png", judged_png({}));
    for (const Words &options : {Words{"--policy", "risky"}, Words{"--grid", "2x2"}, Words{"--score", "2"}, Words{"-o", "out"},
                                 Words{"--scores", ""}, Words{"--max-gain", "0"}}) {
        const Outcome outcome = judge({name}, options);
        EXPECT_EQ(outcome.status, 2) << options[0];
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err_lines().size(), 1u) << outcome.err;
        EXPECT_TRUE(outcome.err.ends_with(" (see ko judge --help)\n")) << outcome.err;
    }
    EXPECT_EQ(judge({}).status, 2);
}

} // namespace
