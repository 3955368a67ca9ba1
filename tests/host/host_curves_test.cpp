// `ko curves` and `ko apply`: grids of curves saved to files, applied to pictures, and drawn.
#include <algorithm>
#include <filesystem>
#include <functional>

#include <nlohmann/json.hpp>

#include "answers.h"
#include "exif_files.h"
#include "host.h"
#include "judged_pictures.h"

namespace {

using namespace ko_test;
namespace fs = std::filesystem;
using Json = nlohmann::json;

struct Form {
    std::string name;
    int32_t number;
    std::string word; // with which its file begins
};

const std::vector<Form> forms = {{"text", KO_TILETRC_TEXT, "GrayLinear\n"},
                                 {"binary", KO_TILETRC_BINARY, "GrayLinearBinary\n"},
                                 {"encoded", KO_TILETRC_ENCODED, "GrayLinearEncoded\n"}};

// The file that the library makes of a grid.
std::string grid_file(const TileTRC *curves, int32_t form) {
    const TemporaryFile file("grid");
    KoTileTRCSave(curves, file.c_str(), form, 1);
    return read_bytes(file.path());
}

// The same of the curves of a picture.
std::string grid_file(const Pixels &picture, const Tuning &tuning = {}, int32_t form = KO_TILETRC_TEXT) {
    const FreshLibrary library;
    return grid_file(curves_of(picture, tuning).get(), form);
}

// A grid whose every curve is the same.
std::string grid_file(uint64_t size, uint64_t columns, uint64_t rows, const std::function<uint32_t(uint64_t)> &entry) {
    const FreshLibrary library;
    const TileTRCPtr curves(KoTileTRCNew(size, columns, rows));
    for (uint64_t i = 0; i < size * columns * rows; ++i) {
        curves->array[i] = entry(i % size);
    }
    return grid_file(curves.get(), KO_TILETRC_TEXT);
}

uint32_t brighter(uint64_t level) { return static_cast<uint32_t>(std::min(level + level / 2, uint64_t{255})); }

Outcome curves(const std::string &input, const std::string &output, const Words &options = {},
               const Surroundings &surroundings = {}) {
    return run_command("curves", {input}, output, options, surroundings);
}

Outcome apply(const std::string &grid, Words inputs, const std::string &output, const Words &options = {}) {
    inputs.insert(inputs.begin(), grid);
    return run_command("apply", inputs, output, options);
}

using HostCurves = Host;

TEST_F(HostCurves, AreTheLibrarysInEveryForm) {
    for (const int colour : {png_rgb, png_gray, png_rgba}) {
        const std::string file = dark_png(colour);
        const std::string name = put("in.png", file);
        for (const Form &form : forms) {
            const Outcome outcome = curves(name, path("grid"), {"--form", form.name});
            expect_success(outcome);
            EXPECT_TRUE(
                matches(outcome.out, "^" + name + ": 96 x 80, curves saved as " + form.name + ", " + time_shown + "\n$"))
                << outcome.out;
            const std::string written = read_bytes(path("grid"));
            EXPECT_EQ(written, grid_file(png_pixels(file), {}, form.number)) << form.name;
            EXPECT_TRUE(written.starts_with(form.word)) << form.name;
        }
        EXPECT_EQ(left(), (std::set<std::string>{"in.png", "grid"}));
    }
}

TEST_F(HostCurves, AreTextUnlessAskedOtherwise) {
    const std::string file = dark_png();
    expect_success(curves(put("in.png", file), path("grid")));
    EXPECT_EQ(read_bytes(path("grid")), grid_file(png_pixels(file)));
}

TEST_F(HostCurves, AreMadeOfAPictureThatTheJudgementTurnsDown) {
    const std::string file = judged_png({64, 0, 0});
    expect_success(curves(put("in.png", file), path("grid")));
    EXPECT_EQ(read_bytes(path("grid")), grid_file(png_pixels(file)));
}

TEST_F(HostCurves, FollowEveryOption) {
    const std::string file = dark_png();
    const std::string name = put("in.png", file);
    const std::vector<std::pair<Words, Tuning>> cases = {
        {{"--grid", "3x5"}, {.columns = 3, .rows = 5}}, {{"--curve-size=512"}, {.curve_size = 512}},
        {{"--max-gain", "2.25"}, {.max_gain = 2.25f}},  {{"--strength", "20"}, {.strength = 20.0f}},
        {{"--limit", "0.5"}, {.limit = 0.5f}},          {{"--levels", "2"}, {.levels = 2}},
        {{"--max-slope", "1"}, {.max_slope = 1}},       {{"--max-slope=0"}, {.max_slope = 0}}};
    const std::string usual = grid_file(png_pixels(file));
    for (const auto &[options, tuning] : cases) {
        expect_success(curves(name, path("grid"), options));
        EXPECT_EQ(read_bytes(path("grid")), grid_file(png_pixels(file), tuning)) << options[0];
        EXPECT_NE(read_bytes(path("grid")), usual) << options[0];
    }
}

TEST_F(HostCurves, OfASmallPictureAreFewer) {
    const std::string file = png_file({5, 9, 8, png_rgb, false, {}, {}}, dark);
    const std::string name = put("in.png", file);
    const Outcome outcome = curves(name, path("grid"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "ko: " + name + ": notice: grid 8x8 reduced to 2x4 for so small a picture\n");
    EXPECT_EQ(read_bytes(path("grid")), grid_file(png_pixels(file), {.columns = 2, .rows = 4}));
}

TEST_F(HostCurves, ThatTheFormDoesNotHoldAreNotSaved) {
    const Sample rough = [](uint32_t x, uint32_t y, uint32_t) { return scatter(x, y) % 256; };
    const std::string file = png_file({16, 16, 8, png_gray, false, {}, {}}, rough);
    const std::string name = put("in.png", file);
    const std::string grid = put("grid", "old");
    const Words steep = {"--grid", "1x1", "--curve-size", "2048", "--strength", "1000", "--max-slope", "0"};
    Words options = steep;
    options.insert(options.end(), {"--form", "binary"});
    expect_one_error(curves(name, grid, options),
                     name + ": cannot write " + grid + ": the binary form does not hold these curves; --form text does");
    EXPECT_EQ(read_bytes(grid), "old");
    EXPECT_EQ(left(), (std::set<std::string>{"in.png", "grid"}));
    expect_success(curves(name, grid, steep));
    EXPECT_EQ(read_bytes(grid),
              grid_file(png_pixels(file), {.columns = 1, .rows = 1, .curve_size = 2048, .strength = 1000.0f, .max_slope = 0}));
}

TEST_F(HostCurves, ForWhichThereIsNoRoomLeaveTheOldFile) {
    const std::string name = put("in.png", dark_png());
    const std::string grid = put("grid", "old");
    for (const Form &form : forms) {
        for (const uint64_t room : {300, 1000, 2000}) { // the line of the error needs some room too
            expect_one_error(curves(name, grid, {"--form", form.name}, {.largest_file = room}),
                             name + ": cannot write " + grid + ": File too large");
        }
        EXPECT_EQ(read_bytes(grid), "old");
        EXPECT_EQ(left(), (std::set<std::string>{"in.png", "grid"}));
    }
}

TEST_F(HostCurves, FitTheirRoomToTheByte) {
    const std::string name = put("in.png", dark_png());
    for (const Form &form : forms) {
        const uint64_t size = grid_file(png_pixels(dark_png()), {}, form.number).size();
        EXPECT_EQ(curves(name, path("grid"), {"--form", form.name}, {.largest_file = size - 1}).status, 1) << form.name;
        EXPECT_FALSE(exists(path("grid")));
    }
}

TEST_F(HostCurves, DoNotTakeThePlaceOfTheirPictureOrAFolder) {
    const std::string name = put("in.png", dark_png());
    fs::create_directory(path("folder.png"));
    fs::create_symlink(name, path("link.png"));
    for (const Words &options : {Words{}, Words{"--draw"}}) {
        expect_one_error(curves(name, name, options), name + ": cannot write " + name + ": it is the input");
        expect_one_error(curves(name, path("link.png"), options),
                         name + ": cannot write " + path("link.png") + ": it is the input");
        expect_one_error(curves(name, path("folder.png"), options),
                         name + ": cannot write " + path("folder.png") + ": a folder has this name");
        expect_one_error(curves(name, path("none/grid.png"), options), path("none") + ": no such folder");
    }
    EXPECT_EQ(read_bytes(name), dark_png());
}

TEST_F(HostCurves, NeedAPicture) {
    const std::string name = put("in.png", "no picture");
    expect_one_error(curves(name, path("grid")), name + ": a text file, not a picture");
    EXPECT_EQ(left(), (std::set<std::string>{"in.png"}));
}

TEST_F(HostCurves, MistakesAreReportedInOneLine) {
    const std::string name = put("in.png", dark_png());
    const std::vector<std::pair<Words, std::string>> cases = {
        {{"--form", "gray"}, "--form: 'gray' is none of text, binary, encoded"},
        {{"--form", "text", "--draw"}, "--form excludes --draw"},
        {{"--curve-size", "768"}, "--curve-size: a file holds curves of 256, 512, 1024, 2048 or 4096 entries"},
        {{"--draw", "--curve-size", "512"}, "--draw: only curves of 256 entries can be drawn"},
        {{"--grid", "0x1"}, "--grid: '0x1' is not a grid"},
        {{"--policy", "always"}, "unknown option "},
        {{"--force"}, "unknown option "},
        {{"--ratio", "1"}, "unknown option "}};
    for (const auto &[options, beginning] : cases) {
        const Outcome outcome = curves(name, path("grid"), options);
        EXPECT_EQ(outcome.status, 2) << beginning;
        EXPECT_EQ(outcome.err_lines().size(), 1u) << outcome.err;
        EXPECT_TRUE(outcome.err.starts_with("ko: " + beginning)) << outcome.err;
        EXPECT_TRUE(outcome.err.ends_with(" (see ko curves --help)\n")) << outcome.err;
    }
    EXPECT_EQ(run_command("curves", {name, name}, path("grid")).status, 2);
    EXPECT_EQ(run_command("curves", {name}, "").status, 2);
    EXPECT_EQ(left(), (std::set<std::string>{"in.png"}));
}

TEST_F(HostCurves, AreReportedAsJson) {
    const std::string name = put("in.png", dark_png());
    const Outcome outcome = curves(name, path("grid"), {"--json", "--form", "encoded"});
    expect_success(outcome);
    EXPECT_EQ(
        without_times(Json::parse(outcome.out)),
        (Json{
            {"file", name}, {"output", path("grid")}, {"width", 96}, {"height", 80}, {"decision", "curves saved as encoded"}}));
    const Outcome quiet = curves(name, path("grid"), {"-q"});
    expect_success(quiet);
    EXPECT_EQ(quiet.out, "");
}

using HostDraw = Host;

// The library's drawing over the luminance.
std::vector<uint8_t> drawing(const Pixels &given) {
    const FreshLibrary library;
    RealImage *result = nullptr;
    KoTileTRCDraw(curves_of(given).get(), luminance_of(given).get(), &result);
    const RealImagePtr owner(result);
    std::vector<uint8_t> bytes;
    for (const float pixel : pixels(result)) {
        bytes.push_back(static_cast<uint8_t>(pixel));
    }
    return bytes;
}

TEST_F(HostDraw, ShowsTheCurvesOverTheLuminance) {
    for (const int colour : {png_rgb, png_gray, png_rgba, png_gray_alpha}) {
        const std::string file = dark_png(colour);
        const std::string name = put("in.png", file);
        const Outcome outcome = curves(name, path("out.png"), {"--draw"});
        expect_success(outcome);
        EXPECT_TRUE(matches(outcome.out, "^" + name + ": 96 x 80, curves drawn, " + time_shown + "\n$")) << outcome.out;
        const Pixels drawn = png_pixels(read_bytes(path("out.png")));
        EXPECT_EQ(drawn, (Pixels{96, 80, 1, drawing(png_pixels(file))})) << "colour type " << colour;
        EXPECT_GT(std::count(drawn.bytes.begin(), drawn.bytes.end(), 255), 96) << "no curves to be seen";
    }
}

TEST_F(HostDraw, KeepsExifAndDensityButNoColourProfile) {
    const std::string exif = exif_block(100);
    const std::string density = std::string("\0\0\x25\0\0\0\x26\0\1", 9);
    const std::string png =
        put("in.png", dark_png(png_rgb, {{"gAMA", std::string("\0\0\xb1\x8f", 4)}, {"eXIf", exif}, {"pHYs", density}}));
    expect_success(curves(png, path("out.png"), {"--draw"}));
    const std::string drawn = read_bytes(path("out.png"));
    EXPECT_EQ(png_chunk_data(drawn, "eXIf"), exif);
    EXPECT_EQ(png_chunk_data(drawn, "pHYs"), density);
    EXPECT_EQ(png_chunk_data(drawn, "gAMA"), "");
    const std::string jpeg = put("in.jpg", dark_jpeg({.segments = icc_segments(icc_profile("RGB ", 700))}));
    expect_success(curves(jpeg, path("out.jpg"), {"--draw"}));
    EXPECT_EQ(jpeg_icc_profile(read_bytes(path("out.jpg"))), "");
}

TEST_F(HostDraw, LeavesTheThumbnailOfThePictureOut) {
    const std::string exif = exif_file({.software = "Darkroom", .thumbnail = dark_jpeg()});
    const std::string name = put("in.png", dark_png(png_rgb, {{"eXIf", exif}}));
    expect_success(curves(name, path("out.png"), {"--draw"}));
    const std::string drawn = png_chunk_data(read_bytes(path("out.png")), "eXIf");
    EXPECT_EQ(exif_thumbnail(drawn), "");
    EXPECT_EQ(exif_software(drawn), "Darkroom");
}

TEST_F(HostDraw, NamesWhatTheFormatHasNoPlaceFor) {
    const std::string name = put("in.png", dark_png(png_rgb, {{"eXIf", exif_block(70'000)}}));
    const Outcome outcome = curves(name, path("out.jpg"), {"--draw"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "ko: " + name + ": notice: the Exif data is too large for a JPEG file and left out\n");
}

TEST_F(HostDraw, IsWrittenInTheFormatOfItsName) {
    const std::string name = put("in.png", dark_png());
    expect_success(curves(name, path("out.jpg"), {"--draw", "--quality", "50"}));
    const std::string drawn = read_bytes(path("out.jpg"));
    EXPECT_EQ(jpeg_sampling(drawn), "11");
    EXPECT_EQ(jpeg_first_factor(drawn), jpeg_first_factor(dark_jpeg({.quality = 50})));
    expect_wrong_usage(curves(name, path("out"), {"--draw"}), "cannot write " + path("out") + no_extension);
}

TEST_F(HostDraw, ForWhichThereIsNoRoomLeavesTheOldFile) {
    const std::string name = put("in.png", dark_png());
    const std::string out = put("out.png", "old");
    expect_one_error(curves(name, out, {"--draw"}, {.largest_file = 300}), name + ": cannot write " + out + ": File too large");
    EXPECT_EQ(read_bytes(out), "old");
}

using HostApply = Host;

TEST_F(HostApply, GivesWhatTheEnhancementGives) {
    for (const int colour : {png_rgb, png_gray, png_rgba, png_gray_alpha}) {
        const std::string file = dark_png(colour);
        const std::string name = put("in.png", file);
        for (const Form &form : forms) {
            expect_success(curves(name, path("grid"), {"--form", form.name}));
            const Outcome outcome = apply(path("grid"), {name}, path("out.png"));
            expect_success(outcome);
            EXPECT_TRUE(matches(outcome.out, "^" + name + ": 96 x 80, curves applied, " + time_shown + "\n$")) << outcome.out;
            EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected(png_pixels(file))) << form.name << colour;
        }
    }
}

TEST_F(HostApply, TakesCurvesOfMoreEntries) {
    const std::string file = dark_png();
    const std::string name = put("in.png", file);
    for (const uint64_t size : {512, 1024}) {
        expect_success(curves(name, path("grid"), {"--curve-size", std::to_string(size), "--grid", "2x2"}));
        expect_success(apply(path("grid"), {name}, path("out.png")));
        EXPECT_EQ(png_pixels(read_bytes(path("out.png"))),
                  expected(png_pixels(file), {.columns = 2, .rows = 2, .curve_size = size}));
    }
}

TEST_F(HostApply, TakesCurvesThatNoPictureGave) {
    const std::string file = dark_png(png_gray);
    const auto wild = [](uint64_t i) { return static_cast<uint32_t>(i * 0x9e3779b9u); };
    put("grid", grid_file(256, 3, 2, wild));
    expect_success(apply(path("grid"), {put("in.png", file)}, path("out.png")));
    const FreshLibrary library;
    const TileTRCPtr curves_again(KoTileTRCNew(0, 0, 0));
    ASSERT_EQ(KoTileTRCLoad(curves_again.get(), path("grid").c_str()), KO_OK);
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), applied(png_pixels(file), curves_again.get(), 0.5f));
}

TEST_F(HostApply, MixesTheColoursAsSpecified) {
    const std::string file = dark_png();
    const std::string name = put("in.png", file);
    expect_success(curves(name, path("grid")));
    for (const float ratio : {0.0f, 1.0f}) {
        expect_success(apply(path("grid"), {name}, path("out.png"), {"--ratio", ratio == 0.0f ? "0" : "1"}));
        EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected(png_pixels(file), {.ratio = ratio}));
    }
}

TEST_F(HostApply, ServesManyPicturesOfAnySize) {
    put("grid", grid_file(256, 4, 3, brighter));
    const Words inputs = {put("a.png", dark_png()), put("b.jpg", dark_jpeg()), put("small.png", png_file({7, 6, 8}, dark)),
                          put("c.png", png_file({200, 31, 8, png_gray, false, {}, {}}, dark))};
    const Outcome outcome = apply(path("grid"), inputs, path("out"));
    expect_one_error(outcome, inputs[2] + ": too small for a grid of 4x3, which needs two pixels per tile each way");
    EXPECT_EQ(outcome.out_lines().size(), 3u);
    EXPECT_EQ(left(), (std::set<std::string>{"grid", "a.png", "b.jpg", "small.png", "c.png", "out", "out/a.png", "out/b.jpg",
                                             "out/c.png"}));
    put("low.png", png_file({8, 5, 8}, dark));
    EXPECT_EQ(apply(path("grid"), {path("low.png")}, path("out")).status, 1);
    put("low.png", png_file({8, 6, 8}, dark));
    expect_success(apply(path("grid"), {path("low.png")}, path("out")));
}

TEST_F(HostApply, AGrayPictureUnderASingleTileStaysAsItIs) {
    put("grid", grid_file(256, 1, 1, brighter));
    const std::string gray = png_file({40, 40, 16, png_gray, false, {}, {}}, dark);
    const std::string name = put("gray.png", gray);
    const Outcome outcome = apply(path("grid"), {name}, path("out.png"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "ko: " + name + ": notice: a gray picture stays as it is under a grid of 1x1\n");
    EXPECT_NE(outcome.out.find(", unchanged, "), std::string::npos) << outcome.out;
    EXPECT_EQ(read_bytes(path("out.png")), gray);
    expect_success(apply(path("grid"), {put("one.png", png_file({1, 1, 8}, dark))}, path("out.png")));
}

TEST_F(HostApply, DoesNotWriteOverTheGrid) {
    const std::string text = grid_file(256, 2, 2, brighter);
    const std::string grid = put("grid.png", text);
    const std::string name = put("in.png", dark_png());
    expect_wrong_usage(apply(grid, {name}, grid), "cannot write " + grid + ": it is read by this command");
    EXPECT_EQ(read_bytes(grid), text);
}

TEST_F(HostApply, IsReportedAsJson) {
    put("grid", grid_file(256, 2, 2, brighter));
    const Words inputs = {put("a.png", dark_png()), path("none.png")};
    const Outcome outcome = apply(path("grid"), inputs, path("out"), {"--json"});
    expect_one_error(outcome, inputs[1] + ": cannot be read: No such file or directory");
    ASSERT_EQ(outcome.out_lines().size(), 2u);
    EXPECT_EQ(Json::parse(outcome.out_lines()[0]).at("decision"), "curves applied");
    EXPECT_EQ(Json::parse(outcome.out_lines()[1]).at("error"), "cannot be read: No such file or directory");
}

// A grid that cannot be loaded: nothing is written, and the last line names the file and the reason.
class HostGrids : public Host {
  protected:
    void expect_refused(const std::string &grid, const std::string &reason) {
        const Outcome outcome = apply(grid, {put("in.png", dark_png())}, path("out.png"));
        EXPECT_EQ(outcome.status, 1) << reason;
        EXPECT_EQ(outcome.out, "");
        ASSERT_FALSE(outcome.err.empty());
        EXPECT_TRUE(outcome.err_lines().back().starts_with("ko: " + grid + ": " + reason)) << outcome.err;
        EXPECT_FALSE(exists(path("out.png")));
    }
};

TEST_F(HostGrids, ThatCannotBeReadAreRefused) {
    expect_refused(path("missing"), "the curves cannot be read: [ERROR] Cannot open file");
    fs::create_directory(path("folder"));
    expect_refused(path("folder"), "the curves cannot be read: [ERROR] Read error in file");
}

TEST_F(HostGrids, OfNoUseAreRefused) {
    const std::string unreadable = "the curves cannot be read: [ERROR] Read error in file";
    const std::string ended = "the curves cannot be read: [ERROR] Cannot read file";
    const std::string too_large = "its curves need more memory than is available: Cannot allocate ";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", unreadable},
        {"nonsense", unreadable},
        {dark_png(), unreadable},
        {std::string(5000, 'x'), unreadable},
        {std::string(5000, '\0'), unreadable},
        {"GrayLinear\n", unreadable},
        {"GrayLinear\nbits 8 1\n", unreadable},
        {"GrayLinear\nbits eight 1 1\n", unreadable},
        {"GrayLinear\nbits 8 1 1\n1\n2\nthree\n", unreadable},
        {"GrayLinear\nbits 8 0 4\n", "a grid of 0x4 has no curves"},
        {"GrayLinearBinary\nbits 8 4 0\n", "a grid of 4x0 has no curves"},
        {"GrayLinearEncoded\nbits 8 0 0\n", "a grid of 0x0 has no curves"},
        {grid_file(128, 2, 2, brighter), "its curves have 128 entries, and a picture needs 256"},
        {grid_file(1, 2, 2, brighter), "its curves have 1 entries, and a picture needs 256"},
        {"GrayLinearBinary\nbits 28 1 1\n", ended},
        {"GrayLinearEncoded\nbits 20 8 8\n", ended},
        {"GrayLinear\nbits 31 1 1\n", too_large},
        {"GrayLinearBinary\nbits 31 65535 65535\n", too_large},
        {"GrayLinearEncoded\nbits 8 4294967295 1\n", too_large},
        {"GrayLinear\nbits 8 4294967295 4294967295\n", too_large},
        {"GrayLinear\nbits 8 99999999999999999999 1\n", too_large},
        {"GrayLinear\nbits 8 -1 1\n", too_large}};
    for (const auto &[file, reason] : cases) {
        expect_refused(put("grid", file), reason);
    }
}

TEST_F(HostGrids, OfAnotherKindAreNamedOnceAndWithoutTheirBytes) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {std::string("\xff\xd8\0\1\2 \": \n\x1b[31m", 15), "line 1: Invalid value, must be GrayLinear or GrayLinearEncoded"},
        {"GrayLinear\nbits 8 1 1\n1\n\x1b[31m\": \x07\n", "line 4: Invalid value, <GRAY>"},
        {"GrayLinear\n\n\x01\xffg\n", "line 2: Invalid value, must be bits <bit per pixel> <num strips X> <num strips Y>"}};
    for (const auto &[file, reason] : cases) {
        const std::string grid = put("grid", file);
        const Outcome outcome = apply(grid, {put("in.png", dark_png())}, path("out.png"));
        EXPECT_EQ(outcome.err,
                  "ko: " + grid + ": the curves cannot be read: [ERROR] Read error in file \"" + grid + "\", " + reason + "\n");
    }
}

TEST_F(HostGrids, CutShortAreRefused) {
    const FreshLibrary library;
    const TileTRCPtr grid(KoTileTRCNew(256, 2, 2));
    for (uint64_t i = 0; i < 1024; ++i) {
        grid->array[i] = brighter(i % 256);
    }
    for (const Form &form : forms) {
        const std::string whole = grid_file(grid.get(), form.number);
        for (size_t part = 0; part < 12; ++part) {
            // One byte less than the whole file leaves the last text line without its end, but with its number.
            const size_t less = form.number == KO_TILETRC_TEXT ? 4 : 1;
            const size_t size = part == 11 ? whole.size() - less : whole.size() * part / 11;
            SCOPED_TRACE(form.name + " " + std::to_string(size));
            expect_refused(put("grid", whole.substr(0, size)), "the curves cannot be read: ");
        }
    }
}

TEST_F(HostGrids, WithAnyByteChangedNeverCrashTheProgram) {
    const FreshLibrary library;
    const TileTRCPtr grid(KoTileTRCNew(256, 1, 2));
    for (uint64_t i = 0; i < 512; ++i) {
        grid->array[i] = brighter(i % 256);
    }
    const std::string name = put("in.png", png_file({6, 6, 8}, dark));
    for (const Form &form : forms) {
        const std::string whole = grid_file(grid.get(), form.number);
        for (size_t i = 0; i < 40 && i < whole.size(); ++i) {
            std::string changed = whole;
            changed[i] = static_cast<char>(changed[i] ^ 0x40);
            const Outcome outcome = apply(put("grid", changed), {name}, path("out.png"));
            EXPECT_TRUE(outcome.status == 0 || (outcome.status == 1 && !outcome.err.empty())) << form.name << " byte " << i;
        }
    }
}

TEST_F(HostApply, NeedsAGridAPictureAndAnOutput) {
    const std::string grid = put("grid", grid_file(256, 2, 2, brighter));
    const std::string name = put("in.png", dark_png());
    for (const Words &words :
         {Words{"apply"}, Words{"apply", grid, "-o", path("out.png")}, Words{"apply", grid, name},
          Words{"apply", grid, name, "-o", ""}, Words{"apply", grid, name, "-o", path("out.png"), "--force"},
          Words{"apply", grid, name, "-o", path("out.png"), "--ratio", "2"}}) {
        const Outcome outcome = run_program(words);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.err_lines().size(), 1u) << outcome.err;
        EXPECT_TRUE(outcome.err.ends_with(" (see ko apply --help)\n")) << outcome.err;
    }
    EXPECT_EQ(left(), (std::set<std::string>{"grid", "in.png"}));
}

} // namespace
