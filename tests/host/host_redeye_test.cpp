// `ko redeye --plain` from the outside: what it repairs, what it reports about it, and what it leaves alone. The right value of
// a pixel comes from the library; the models are made here.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>

#include <nlohmann/json.hpp>

#include "answers.h"
#include "host.h"
#include "red_eye_pictures.h"
#include "repaired.h"

namespace {

using namespace ko_test;
namespace fs = std::filesystem;
using Json = nlohmann::json;

class HostRedEye : public Host {
  protected:
    std::string model(const ModelRecipe &recipe = {}) const { return put_model(path("model"), recipe); }

    // As the library does it, with the usual model, unless the options name one.
    Outcome redeye(const Words &inputs, const std::string &output, Words options = {},
                   const Surroundings &surroundings = {}) const {
        options.push_back("--plain");
        if (std::find(options.begin(), options.end(), "--model") == options.end()) {
            options.insert(options.end(), {"--model", model()});
        }
        return run_command("redeye", inputs, output, options, surroundings);
    }

    // What is in the folder beside the model.
    std::set<std::string> pictures_left() const {
        std::set<std::string> names = left();
        std::erase_if(names, [](const std::string &name) { return name.starts_with("model"); });
        return names;
    }
};

const std::string mixed = "red eyes repaired (1 accepted, 1 undecided, 1 rejected)";

std::string picture_line(const std::string &name, const std::string &said) {
    std::string pattern = name + ": [0-9]+ x [0-9]+, ";
    for (const char c : said) {
        pattern += std::string(c == '(' || c == ')' ? "\\" : "") + c;
    }
    return "^" + pattern + ", " + time_shown + "$";
}

void expect_line(const Outcome &outcome, size_t index, const std::string &name, const std::string &said) {
    ASSERT_LT(index, outcome.out_lines().size());
    EXPECT_TRUE(matches(outcome.out_lines()[index], picture_line(name, said))) << outcome.out_lines()[index];
}

TEST_F(HostRedEye, PixelsAreTheLibrarys) {
    const std::string file = eyes_png();
    const std::string name = put("in.png", file);
    const Outcome outcome = redeye({name}, path("out.png"));
    expect_success(outcome);
    expect_line(outcome, 0, name, mixed);
    const Pixels result = png_pixels(read_bytes(path("out.png")));
    EXPECT_EQ(result, repaired(png_pixels(file), model()));
    EXPECT_EQ(pictures_left(), (std::set<std::string>{"in.png", "out.png"}));
}

TEST_F(HostRedEye, PixelsChangeInTheEyesThatWereNotRejectedAlone) {
    const std::string file = eyes_png();
    expect_success(redeye({put("in.png", file)}, path("out.png")));
    const Pixels before = png_pixels(file);
    const Pixels after = png_pixels(read_bytes(path("out.png")));
    const auto differ = [&](uint32_t x, uint32_t y) {
        const size_t i = (size_t{y} * eyes_width + x) * 3;
        return !std::equal(&before.bytes[i], &before.bytes[i] + 3, &after.bytes[i]);
    };
    EXPECT_TRUE(differ(four_eyes[0].x, four_eyes[0].y));
    EXPECT_TRUE(differ(four_eyes[1].x, four_eyes[1].y));
    for (uint32_t y = 0; y < eyes_height; ++y) {
        for (uint32_t x = 0; x < eyes_width; ++x) {
            const bool inside = std::any_of(four_eyes.begin(), four_eyes.begin() + 2, [=](const Eye &eye) {
                return std::hypot(static_cast<double>(x) - eye.x, static_cast<double>(y) - eye.y) < eye.radius + 2.0;
            });
            ASSERT_TRUE(inside || !differ(x, y)) << x << " " << y;
        }
    }
}

TEST_F(HostRedEye, FullRepairsEveryPatch) {
    const std::string file = eyes_png();
    const std::string name = put("in.png", file);
    const Outcome outcome = redeye({name}, path("out.png"), {"--full"});
    expect_success(outcome);
    expect_line(outcome, 0, name, mixed);
    const Pixels full = repaired(png_pixels(file), model(), {.full = true});
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), full);
    EXPECT_NE(full, repaired(png_pixels(file), model()));
    const size_t rejected = (size_t{four_eyes[2].y} * eyes_width + four_eyes[2].x) * 3;
    EXPECT_LT(full.bytes[rejected], 100) << "red no more";
}

TEST_F(HostRedEye, FullStartsFromThePictureAsItCame) {
    const Sample uneven = [](uint32_t x, uint32_t y, uint32_t c) {
        return skin_sample(four_eyes, x, y, c) + scatter(3 * x + c, y) % 12;
    };
    const std::string file = png_file({eyes_width, eyes_height, 8, png_rgb, false, {}, {}}, uneven);
    ModelRecipe undecided;
    undecided.bias = std::numeric_limits<float>::quiet_NaN();
    const std::string config = model(undecided);
    expect_success(redeye({put("in.png", file)}, path("out.png"), {"--full", "--model", config}));
    const Pixels full = repaired(png_pixels(file), config, {.full = true});
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), full);
    EXPECT_NE(full, repaired(png_pixels(file), config, {.full = true, .on_top = true})) << "would round twice";
}

TEST_F(HostRedEye, FullRepairsWhatIsAllRejected) {
    const std::string file = eyes_png();
    const std::string name = put("in.png", file);
    const Outcome outcome = redeye({name}, path("out.png"), {"--full", "--model", model({.bias = 1000.0f})});
    expect_success(outcome);
    expect_line(outcome, 0, name, "red eyes repaired (0 accepted, 0 undecided, 3 rejected)");
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), repaired(png_pixels(file), model({.bias = 1000.0f}), {.full = true}));
}

TEST_F(HostRedEye, FramesShowTheLabelsByColour) {
    const std::string file = eyes_png();
    const Outcome outcome = redeye({put("in.png", file)}, path("out.png"), {"--frames", "--json"});
    expect_success(outcome);
    const Pixels result = png_pixels(read_bytes(path("out.png")));
    EXPECT_EQ(result, repaired(png_pixels(file), model(), {.thickness = 1}));
    const std::map<std::string, std::vector<uint8_t>> colours = {
        {"accepted", {0, 255, 0}}, {"undecided", {255, 255, 0}}, {"rejected", {255, 0, 0}}};
    std::set<std::string> seen;
    const Json object = Json::parse(outcome.out);
    for (const Json &place : object.at("places")) {
        if (place.at("label").is_null()) {
            continue;
        }
        const Json &box = place.at("window");
        const std::string label = place.at("label");
        seen.insert(label);
        for (const auto &[x, y] : {std::pair(box[0].get<size_t>(), box[1].get<size_t>()),
                                   std::pair(box[2].get<size_t>() - 1, box[3].get<size_t>() - 1)}) {
            const uint8_t *pixel = &result.bytes[(y * eyes_width + x) * 3];
            EXPECT_EQ(std::vector<uint8_t>(pixel, pixel + 3), colours.at(label)) << label;
        }
    }
    EXPECT_EQ(seen.size(), 3u);
}

TEST_F(HostRedEye, FramesGrowWithThePicture) {
    const std::string file = png_file({900, 650, 8, png_rgb, false, {}, {}}, skin_with({{300, 300, 12, 0}}));
    expect_success(redeye({put("in.png", file)}, path("out.png"), {"--frames"}));
    const Pixels result = png_pixels(read_bytes(path("out.png")));
    EXPECT_EQ(result, repaired(png_pixels(file), model(), {.thickness = 2}));
    EXPECT_NE(result, repaired(png_pixels(file), model(), {.thickness = 1}));
}

TEST_F(HostRedEye, FramesAreDrawnAroundWhatIsAllRejected) {
    const std::string file = eyes_png();
    const std::string name = put("in.png", file);
    const Words options = {"--frames", "--model", model({.bias = 1000.0f})};
    const Outcome outcome = redeye({name}, path("out.png"), options);
    expect_success(outcome);
    expect_line(outcome, 0, name, "no red eyes (0 accepted, 0 undecided, 3 rejected)");
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), repaired(png_pixels(file), model({.bias = 1000.0f}), {.thickness = 1}));
}

struct Alone {
    std::string file;
    std::string said;
    ModelRecipe recipe = {};
};

std::vector<Eye> eyes_in_rows(uint32_t count) {
    std::vector<Eye> eyes;
    for (uint32_t i = 0; i < count; ++i) {
        eyes.push_back({20 + i % 10 * 30, 20 + i / 10 * 30, 5, 0});
    }
    return eyes;
}

TEST_F(HostRedEye, PicturesWithAsManyPlacesAsTheLimitAreRepaired) {
    const std::string name = put("in.png", eyes_png(eyes_in_rows(50)));
    const Outcome outcome = redeye({name}, path("out.png"), {"--model", model({.bias = 0.0f})});
    expect_success(outcome);
    expect_line(outcome, 0, name, "red eyes repaired (50 accepted, 0 undecided, 0 rejected)");
}

TEST_F(HostRedEye, PicturesWithNothingToRepairAreCopied) {
    const PngRecipe commented = {96, 80, 8, png_rgb, true, {{"tEXt", std::string("Title\0a", 7)}}, {}};
    const std::vector<Alone> cases = {
        {eyes_png({}), "no red eyes"},
        {png_file(commented, dark), "no red eyes"},
        {eyes_png({four_eyes[3]}), "no red eyes"},
        {eyes_png(), "no red eyes (0 accepted, 0 undecided, 3 rejected)", {.bias = 1000.0f}},
        {eyes_png(four_eyes, png_gray), "no red eyes: the picture is gray"},
        {eyes_png(four_eyes, png_gray_alpha), "no red eyes: the picture is gray"},
        {eyes_png(eyes_in_rows(51)), "red eyes not repaired: 51 places could be red eyes (limit 50)"},
        {png_file({1, 1, 8, png_rgb, false, {}, {}}, dark), "no red eyes"},
        {png_file({640, 2, 8, png_rgb, false, {}, {}}, skin_with({{20, 1, 1, 0}})), "no red eyes"}};
    for (const auto &[file, said, recipe] : cases) {
        const std::string name = put("in.png", file);
        const Outcome outcome = redeye({name}, path("out.png"), {"--model", model(recipe)});
        expect_success(outcome);
        expect_line(outcome, 0, name, said);
        EXPECT_EQ(read_bytes(path("out.png")), file) << said;
    }
}

TEST_F(HostRedEye, ACopyInAnotherFormatIsEncodedAnew) {
    const std::string file = eyes_png({});
    expect_success(redeye({put("in.png", file)}, path("out.jpg")));
    const Pixels result = jpeg_pixels(read_bytes(path("out.jpg")));
    EXPECT_EQ(result.width, eyes_width);
    EXPECT_NEAR(result.bytes[0], png_pixels(file).bytes[0], 4);
}

TEST_F(HostRedEye, OnePictureDoesNotDecideForTheNext) {
    const std::string eyes = eyes_png();
    const Words inputs = {put("many.png", eyes_png(eyes_in_rows(51))), put("broken.png", eyes.substr(0, 3000)),
                          put("four.png", eyes), put("none.png", eyes_png({})), put("again.png", eyes)};
    const Outcome outcome = redeye(inputs, path("out"));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err_lines().size(), 1u) << outcome.err;
    ASSERT_EQ(outcome.out_lines().size(), 4u);
    expect_line(outcome, 1, inputs[2], mixed);
    expect_line(outcome, 2, inputs[3], "no red eyes");
    expect_line(outcome, 3, inputs[4], mixed);
    const Pixels expected = repaired(png_pixels(eyes), model());
    EXPECT_EQ(png_pixels(read_bytes(path("out/four.png"))), expected);
    EXPECT_EQ(png_pixels(read_bytes(path("out/again.png"))), expected);
    EXPECT_FALSE(exists(path("out/broken.png")));
}

TEST_F(HostRedEye, AlphaAndMetadataAreCarriedOver) {
    const std::string file =
        png_file({eyes_width, eyes_height, 8, png_rgba, false, {{"eXIf", exif_block(40)}}, {}},
                 [](uint32_t x, uint32_t y, uint32_t c) { return c == 3 ? (x + y) % 256 : skin_sample(four_eyes, x, y, c); });
    expect_success(redeye({put("in.png", file)}, path("out.png")));
    const std::string written = read_bytes(path("out.png"));
    const Pixels before = png_pixels(file);
    const Pixels after = png_pixels(written);
    EXPECT_EQ(after, repaired(before, model()));
    EXPECT_NE(after, before);
    EXPECT_EQ(after.bytes[7 * 4 + 3], 7);
    EXPECT_EQ(png_chunk_data(written, "eXIf"), exif_block(40));
}

TEST_F(HostRedEye, OfJpegFilesAreRepaired) {
    const std::string file = jpeg_file({.width = eyes_width, .height = eyes_height, .quality = 95}, skin_with(four_eyes));
    const std::string name = put("in.jpg", file);
    const Outcome outcome = redeye({name}, path("out.png"));
    expect_success(outcome);
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), repaired(jpeg_pixels(file), model()));
    EXPECT_NE(outcome.out.find("red eyes repaired"), std::string::npos) << outcome.out;
}

TEST_F(HostRedEye, ALargePictureIsSearchedOnASmallerCopy) {
    const std::string file = png_file({1600, 1200, 8, png_rgb, false, {}, {}}, skin_with({{500, 400, 20, 0}}));
    const Outcome outcome = redeye({put("in.png", file)}, path("out.png"), {"--json", "--model", model({.bias = 0.0f})});
    expect_success(outcome);
    const Json object = Json::parse(outcome.out);
    EXPECT_EQ(object.at("accepted"), 1);
    EXPECT_EQ(object.at("places"), places_found(png_pixels(file), model({.bias = 0.0f})));
    EXPECT_NEAR(object.at("places").at(0).at("box").at(0).get<double>(), 480, 3) << "pixels of the picture";
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), repaired(png_pixels(file), model({.bias = 0.0f})));
}

TEST_F(HostRedEye, JsonReportsPlacesScoresAndLabels) {
    const std::string file = eyes_png();
    const Words inputs = {put("in.png", file), put("gray.png", eyes_png({}, png_gray)),
                          put("many.png", eyes_png(eyes_in_rows(51))), path("missing.png")};
    const Outcome outcome = redeye(inputs, path("out"), {"--json"});
    expect_one_error(outcome, inputs[3] + ": cannot be read: No such file or directory");
    const Words lines = outcome.out_lines();
    ASSERT_EQ(lines.size(), 4u);
    Json expected = {{"file", inputs[0]},
                     {"output", path("out/in.png")},
                     {"width", eyes_width},
                     {"height", eyes_height},
                     {"decision", "red eyes repaired"},
                     {"accepted", 1},
                     {"undecided", 1},
                     {"rejected", 1}};
    expected["places"] = places_found(png_pixels(file), model());
    EXPECT_EQ(without_times(Json::parse(lines[0])), expected);
    EXPECT_EQ(expected["places"].size(), 4u);
    const Json gray = Json::parse(lines[1]);
    EXPECT_EQ(gray.at("decision"), "no red eyes");
    EXPECT_EQ(gray.at("reason"), "the picture is gray");
    EXPECT_EQ(gray.at("places"), Json::array());
    const Json many = Json::parse(lines[2]);
    EXPECT_EQ(many.at("decision"), "red eyes not repaired");
    EXPECT_EQ(many.at("reason"), "51 places could be red eyes (limit 50)");
    EXPECT_EQ(many.at("places").size(), 51u);
    EXPECT_EQ(many.at("places").at(50).at("label"), nullptr);
    EXPECT_EQ(Json::parse(lines[3]), (Json{{"file", inputs[3]}, {"error", "cannot be read: No such file or directory"}}));
}

TEST_F(HostRedEye, ScoresThatAreNoNumbersAreNull) {
    ModelRecipe recipe;
    recipe.bias = std::numeric_limits<float>::quiet_NaN();
    const Outcome outcome = redeye({put("in.png", eyes_png())}, path("out.png"), {"--json", "--model", model(recipe)});
    expect_success(outcome);
    const Json object = Json::parse(outcome.out);
    EXPECT_EQ(object.at("undecided"), 3);
    EXPECT_EQ(object.at("places").at(0).at("fe_score"), nullptr);
}

TEST_F(HostRedEye, LogShowsTheProgressOfEachPicture) {
    const Words inputs = {put("in.png", eyes_png()), put("none.png", eyes_png({}))};
    const Outcome outcome = redeye(inputs, path("out"), {"--log", "--json"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out_lines().size(), 2u) << outcome.out;
    const std::string log = logged(png_pixels(eyes_png()), model());
    EXPECT_NE(log.find("-> reduced to 4 final blobs after 2nd test \n"), std::string::npos) << log;
    EXPECT_EQ(outcome.err, "ko: " + inputs[0] + ": progress:\n" + log + "ko: " + inputs[1] + ": progress:\n" +
                               logged(png_pixels(eyes_png({})), model()));
}

TEST_F(HostRedEye, QuietSaysNothing) {
    const Outcome outcome = redeye({put("in.png", eyes_png())}, path("out.png"), {"-q"});
    expect_success(outcome);
    EXPECT_EQ(outcome.out, "");
}

TEST_F(HostRedEye, OnATerminalTheBarMakesRoomForTheLog) {
    const Outcome outcome = redeye({put("in.png", eyes_png())}, path("out.png"), {"--log"}, {.terminal = true});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.out.find(": red eyes"), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("\r\x1b[Kko: " + path("in.png") + ": progress:\r\n-> "), std::string::npos) << outcome.out;
    EXPECT_TRUE(outcome.out.ends_with(" s\r\n")) << outcome.out;
}

const Words dump_endings = {"coord.txt", "feats.par", "feats_B.txt", "feats_G.txt", "feats_R.txt", "prjFeats.txt"};

TEST_F(HostRedEye, DumpWritesThePatchFilesOfEachPictureWithPatches) {
    const std::string file = eyes_png();
    const Words inputs = {put("in.png", file), put("none.png", eyes_png({})), put("in.jpg", file)};
    expect_success(redeye(inputs, path("out"), {"--dump", path("new/dump"), "-q"}));
    dump(png_pixels(file), model(), path(""));
    std::set<std::string> names;
    for (const auto &entry : fs::directory_iterator(path("new/dump"))) {
        names.insert(entry.path().filename().string());
    }
    EXPECT_EQ(names.size(), 2 * dump_endings.size());
    for (const std::string &ending : dump_endings) {
        const std::string expected = read_bytes(path("expected_x_" + ending));
        EXPECT_NE(expected, "");
        EXPECT_EQ(read_bytes(path("new/dump/in.png_patches_" + ending)), expected) << ending;
        EXPECT_EQ(read_bytes(path("new/dump/in.jpg_patches_" + ending)), expected) << ending;
    }
}

TEST_F(HostRedEye, DumpThatCannotBeWrittenIsAnError) {
    const std::string name = put("in.png", eyes_png());
    const std::string taken = put("taken", "old");
    const Outcome outcome = redeye({name}, path("out.png"), {"--dump", taken});
    expect_one_error(outcome, taken + ": not a folder, but the patch files need one");
    fs::create_directories(path("dump/in.png_patches_coord.txt"));
    const Outcome blocked = redeye({name}, path("out.png"), {"--dump", path("dump")});
    EXPECT_EQ(blocked.status, 1);
    EXPECT_TRUE(blocked.err.ends_with("ko: " + name + ": the patch files cannot be written to " + path("dump") + "\n"))
        << blocked.err;
    EXPECT_FALSE(exists(path("out.png")));
}

TEST_F(HostRedEye, DumpWithoutRoomIsAnError) {
    const std::string name = put("in.png", eyes_png());
    const Outcome outcome = redeye({name}, path("out.png"), {"--dump", path("dump")}, {.largest_file = 4000});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.err.ends_with("ko: " + name + ": the patch files cannot be written to " + path("dump") + "\n"))
        << outcome.err;
    EXPECT_FALSE(exists(path("out.png")));
}

// ---- models

struct BadModel {
    std::string what;
    std::function<void(const std::string &folder)> spoil;
    std::string message;
};

void cut(const std::string &path, size_t length) { write_bytes(path, read_bytes(path).substr(0, length)); }

TEST_F(HostRedEye, ModelsThatCannotBeUsedLeaveNothingBehind) {
    const std::string own = path("model");
    const std::vector<BadModel> cases = {
        {"no configuration", [](const std::string &m) { fs::remove(m + ".cfg"); }, "[ERROR] Cannot open file"},
        {"a line short", [](const std::string &m) { cut(m + ".cfg", read_bytes(m + ".cfg").size() - 10); },
         "[ERROR] Read error in file \"" + own + ".cfg\", line 29\n"},
        {"no projection", [](const std::string &m) { fs::remove(m + ".projection"); }, "[ERROR] Cannot open file"},
        {"a cut projection", [](const std::string &m) { cut(m + ".projection", 5000); }, "\"" + own + ".projection\"\n"},
        {"no FE", [](const std::string &m) { fs::remove(m + "_RE_FE"); }, "\"" + own + "_RE_FE\" for reading\n"},
        {"a cut BE", [](const std::string &m) { cut(m + "_RE_BE", 100); }, "\"" + own + "_RE_BE\"\n"},
        {"too few FE weights", [](const std::string &m) { write_bytes(m + "_RE_FE", classifier_bytes({}, 127)); },
         "[ERROR] Invalid argument\n"},
        {"a projection of more than the features",
         [](const std::string &m) { write_bytes(m + ".projection", projection_bytes(385)); }, "[ERROR] Invalid argument\n"}};
    const Words inputs = {put("gray.png", eyes_png({}, png_gray)), put("none.png", eyes_png({})), put("in.png", eyes_png())};
    for (const auto &[what, spoil, message] : cases) {
        const std::string config = model();
        spoil(own);
        const Outcome outcome = redeye(inputs, path("out"), {"--dump", path("dump"), "--model", config});
        EXPECT_EQ(outcome.status, 1) << what;
        EXPECT_EQ(outcome.out, "") << what;
        EXPECT_TRUE(outcome.err.starts_with("ko: the model " + config + " cannot be used: ")) << what << "\n" << outcome.err;
        EXPECT_NE(outcome.err.find(message), std::string::npos) << what << "\n" << outcome.err;
        EXPECT_EQ(pictures_left(), (std::set<std::string>{"gray.png", "none.png", "in.png"})) << what;
    }
}

TEST_F(HostRedEye, AModelsPathMayBeTooLong) {
    const std::string config = path(std::string(260, 'm'));
    const Outcome outcome = redeye({put("in.png", eyes_png())}, path("out.png"), {"--model", config});
    expect_one_error(outcome, "the path of the model is too long: [ERROR] Invalid argument");
    EXPECT_EQ(pictures_left(), (std::set<std::string>{"in.png"}));
}

TEST_F(HostRedEye, NoPictureTakesThePlaceOfAModelsFile) {
    const std::string name = put("in.png", eyes_png());
    for (const std::string file : {"model.cfg", "model.projection", "model_RE_FE", "model_RE_BE"}) {
        model();
        const std::string before = read_bytes(path(file));
        const Outcome outcome = redeye({name}, path(file));
        expect_wrong_usage(outcome, "cannot write " + path(file) + no_extension);
        EXPECT_EQ(read_bytes(path(file)), before) << file;
    }
}

TEST_F(HostRedEye, MistakesAreReportedInOneLine) {
    const std::string name = put("in.png", eyes_png());
    const std::vector<std::pair<Words, std::string>> cases = {{{"--model", ""}, "--model: an empty name"},
                                                              {{"--model", "m", "--dump", ""}, "--dump: an empty name"},
                                                              {{"--model", "m", "--json", "-q"}, "--json excludes --quiet"},
                                                              {{"--model", "m", "--policy", "risky"}, "INPUT"}};
    for (const auto &[options, beginning] : cases) {
        const Outcome outcome = run_command("redeye", {name}, path("out.png"), options);
        EXPECT_EQ(outcome.status, 2) << beginning;
        EXPECT_EQ(outcome.err_lines().size(), 1u) << outcome.err;
        if (beginning != "INPUT") { // an unknown option is reported in the parser's words
            EXPECT_TRUE(outcome.err.starts_with("ko: " + beginning)) << outcome.err;
        }
        EXPECT_TRUE(outcome.err.ends_with(" (see ko redeye --help)\n")) << outcome.err;
    }
    EXPECT_EQ(left(), (std::set<std::string>{"in.png"}));
}

} // namespace
