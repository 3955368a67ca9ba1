// The program `ko` from the outside: what it writes, what it reports, and what it leaves behind. Pictures are enhanced whatever
// the judgement about them, which has tests of its own.
#include <filesystem>
#include <set>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "exif_files.h"
#include "host.h"
#include "judged_pictures.h"

namespace {

using namespace ko_test;
namespace fs = std::filesystem;

Outcome enhance(const Words &inputs, const std::string &output, Words options = {}, const Surroundings &surroundings = {}) {
    options.push_back("--force");
    return run_command("enhance", inputs, output, options, surroundings);
}

using HostSamples = Host;

TEST_F(HostSamples, AreEnhancedWithOneLineEach) {
    const Words names = {"astronaut.png", "chelsea.png", "coffee.png", "rocket.jpg"};
    const Words sizes = {"512 x 512", "451 x 300", "600 x 400", "640 x 427"};
    Words inputs;
    for (const std::string &name : names) {
        inputs.push_back(std::string(KO_SAMPLES) + "/" + name);
    }
    const Outcome outcome = run_command("enhance", inputs, path("out"));
    expect_success(outcome);
    const Words lines = outcome.out_lines();
    ASSERT_EQ(lines.size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_TRUE(matches(lines[i], "^" + inputs[i] + ": " + sizes[i] + ", enhanced, " + time_shown + "$")) << lines[i];
    }
    EXPECT_EQ(left(),
              (std::set<std::string>{"out", "out/astronaut.png", "out/chelsea.png", "out/coffee.png", "out/rocket.jpg"}));
    const Pixels coffee = png_pixels(read_bytes(inputs[2]));
    EXPECT_EQ(png_pixels(read_bytes(path("out/coffee.png"))), expected(coffee));
    EXPECT_NE(expected(coffee), coffee);
}

TEST_F(HostSamples, JpegComesOutAsItsPixelsSay) {
    const std::string rocket = read_bytes(std::string(KO_SAMPLES) + "/rocket.jpg");
    expect_success(enhance({std::string(KO_SAMPLES) + "/rocket.jpg"}, path("rocket.jpg")));
    const std::string result = read_bytes(path("rocket.jpg"));
    const Pixels pixels = expected(jpeg_pixels(rocket));
    JpegRecipe recipe{.width = 640, .height = 427};
    recipe.tables = jpeg_tables(rocket);
    EXPECT_EQ(jpeg_tables(result), recipe.tables);
    const std::string sampling = jpeg_sampling(rocket);
    EXPECT_EQ(jpeg_sampling(result), sampling);
    recipe.sampling_x = sampling[0] - '0';
    recipe.sampling_y = sampling[1] - '0';
    const std::string same =
        jpeg_file(recipe, [&](uint32_t x, uint32_t y, uint32_t c) { return pixels.bytes[(y * 640 + x) * 3 + c]; });
    EXPECT_EQ(jpeg_pixels(result), jpeg_pixels(same));
    EXPECT_EQ(jpeg_segment(result, 0xe0), jpeg_segment(rocket, 0xe0));
}

using HostPixels = Host;

TEST_F(HostPixels, AreTheLibrarysForEveryKindOfPng) {
    for (const int colour : {png_gray, png_gray_alpha, png_rgb, png_rgba}) {
        const std::string file = dark_png(colour);
        expect_success(enhance({put("in.png", file)}, path("out.png")));
        const Pixels result = png_pixels(read_bytes(path("out.png")));
        EXPECT_EQ(result, expected(png_pixels(file))) << "colour type " << colour;
        EXPECT_NE(result, png_pixels(file));
    }
}

TEST_F(HostPixels, FollowEveryOption) {
    const std::string file = dark_png();
    const std::vector<std::pair<Words, Tuning>> cases = {{{"--grid", "3x5"}, {.columns = 3, .rows = 5}},
                                                         {{"--curve-size=512"}, {.curve_size = 512}},
                                                         {{"--max-gain", "2.25"}, {.max_gain = 2.25f}},
                                                         {{"--strength", "20"}, {.strength = 20.0f}},
                                                         {{"--limit", "0.5"}, {.limit = 0.5f}},
                                                         {{"--levels", "2"}, {.levels = 2}},
                                                         {{"--ratio", "1"}, {.ratio = 1.0f}},
                                                         {{"--ratio", "0"}, {.ratio = 0.0f}}};
    const Pixels usual = expected(png_pixels(file));
    for (const auto &[options, tuning] : cases) {
        expect_success(enhance({put("in.png", file)}, path("out.png"), options));
        const Pixels result = png_pixels(read_bytes(path("out.png")));
        EXPECT_EQ(result, expected(png_pixels(file), tuning)) << options[0];
        EXPECT_NE(result, usual) << options[0];
    }
}

TEST_F(HostPixels, DefaultsAreAsDocumented) {
    const std::string file = dark_png();
    expect_success(enhance({put("in.png", file)}, path("out.png"),
                           {"--grid", "8x8", "--curve-size", "256", "--max-gain", "3.0", "--strength", "40.0", "--limit",
                            "0.6275", "--levels", "5", "--ratio", "0.5"}));
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected(png_pixels(file)));
}

TEST_F(HostPixels, PicturesTooSmallForTheGridGetASmallerOne) {
    struct Case {
        uint32_t width, height;
        uint64_t columns, rows;
    };
    for (const Case &c :
         {Case{1, 1, 1, 1}, {2, 1, 1, 1}, {1, 40, 1, 8}, {40, 1, 8, 1}, {3, 3, 1, 1}, {5, 9, 2, 4}, {15, 15, 7, 7}}) {
        const std::string size = std::to_string(c.width) + "x" + std::to_string(c.height);
        const std::string file = png_file({c.width, c.height, 8, png_rgb, false, {}, {}}, dark);
        const std::string name = put(size + ".png", file);
        const Outcome outcome = enhance({name}, path("out.png"));
        EXPECT_EQ(outcome.status, 0) << size;
        const std::string reduced = std::to_string(c.columns) + "x" + std::to_string(c.rows);
        EXPECT_EQ(outcome.err, "ko: " + name + ": notice: grid 8x8 reduced to " + reduced + " for so small a picture\n");
        EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected(png_pixels(file), {.columns = c.columns, .rows = c.rows}))
            << size;
    }
    const std::string file = png_file({16, 16, 8, png_rgb, false, {}, {}}, dark);
    expect_success(enhance({put("16x16.png", file)}, path("out.png")));
}

TEST_F(HostPixels, AGrayPictureUnderASingleTileStaysAsItIs) {
    const std::string file = dark_png(png_gray);
    const Outcome outcome = enhance({put("in.png", file)}, path("out.png"), {"--grid", "1x1"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.out.find(", unchanged, "), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.err.find("a gray picture stays as it is under a grid of 1x1"), std::string::npos) << outcome.err;
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), png_pixels(file));
}

TEST_F(HostPixels, OfPalettesAndFewBitsComeOutAsBytes) {
    std::string palette;
    for (int i = 0; i < 48; ++i) {
        palette += static_cast<char>(i * 2);
    }
    const Sample index = [](uint32_t x, uint32_t y, uint32_t) { return (x / 3 + y / 2) & 15; };
    expect_success(
        enhance({put("in.png", png_file({40, 40, 4, png_palette, false, {{"PLTE", palette}}, {}}, index))}, path("out.png")));
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))).channels, 3u);
    expect_success(enhance({put("in.png", png_file({40, 40, 4, png_gray, false, {}, {}}, index))}, path("out.png")));
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))).channels, 1u);
}

TEST_F(HostPixels, OfSixteenBitsAreReducedWithANotice) {
    const std::string name = put("in.png", png_file({40, 40, 16, png_rgba, false, {}, {}},
                                                    [](uint32_t x, uint32_t y, uint32_t c) { return dark(x, y, c) * 257; }));
    const Outcome outcome = enhance({name}, path("out.png"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "ko: " + name + ": notice: 16 bits per channel reduced to 8\n");
    const Pixels bytes = png_pixels(png_file({40, 40, 8, png_rgba, false, {}, {}}, dark));
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected(bytes));
}

TEST_F(HostPixels, OfCmykAreRefused) {
    const std::string name = put("in.jpg", dark_jpeg({.colour = JpegColour::cmyk}));
    expect_one_error(enhance({name}, path("out.jpg")), name + ": a CMYK picture without a colour profile");
    EXPECT_EQ(left(), (std::set<std::string>{"in.jpg"}));
}

using HostJpeg = Host;

TEST_F(HostJpeg, KeepsItsColourSampling) {
    expect_success(enhance({put("444.jpg", dark_jpeg({.sampling_x = 1, .sampling_y = 1})),
                            put("420.jpg", dark_jpeg({.sampling_x = 2, .sampling_y = 2})),
                            put("progressive.jpg", dark_jpeg({.sampling_x = 2, .sampling_y = 1, .progressive = true})),
                            put("gray.jpg", dark_jpeg({.colour = JpegColour::gray}))},
                           path("out")));
    EXPECT_EQ(jpeg_sampling(read_bytes(path("out/444.jpg"))), "11 11 11");
    EXPECT_EQ(jpeg_sampling(read_bytes(path("out/420.jpg"))), "22 11 11");
    EXPECT_EQ(jpeg_sampling(read_bytes(path("out/progressive.jpg"))), "21 11 11");
    EXPECT_EQ(jpeg_sampling(read_bytes(path("out/gray.jpg"))), "11");
}

TEST_F(HostJpeg, HasTheQualityAskedFor) {
    const std::string name = put("in.jpg", dark_jpeg());
    for (const int quality : {1, 75, 100}) {
        expect_success(enhance({name}, path("out.jpg"), {"--quality", std::to_string(quality)}));
        EXPECT_EQ(jpeg_first_factor(read_bytes(path("out.jpg"))), jpeg_first_factor(dark_jpeg({.quality = quality})));
    }
    expect_success(enhance({put("in.png", dark_png())}, path("out.jpg")));
    EXPECT_EQ(jpeg_tables(read_bytes(path("out.jpg"))), jpeg_tables(dark_jpeg({.quality = 92})));
}

TEST_F(HostJpeg, KeepsItsQualityAndItsForm) {
    for (const int quality : {40, 85, 97}) {
        for (const bool progressive : {false, true}) {
            const std::string file = dark_jpeg({.quality = quality, .progressive = progressive});
            expect_success(enhance({put("in.jpg", file)}, path("out.jpg")));
            const std::string result = read_bytes(path("out.jpg"));
            EXPECT_EQ(jpeg_tables(result), jpeg_tables(file)) << quality;
            EXPECT_EQ(jpeg_is_progressive(result), progressive) << quality;
        }
    }
}

using HostMetadata = Host;

TEST_F(HostMetadata, SurvivesInBothFormats) {
    const std::string exif = exif_file({.maker_note = std::string(700, 'n')});
    const std::string profile = icc_profile("RGB ", 70000);
    JpegRecipe recipe{.density_unit = 1, .density_x = 240, .density_y = 240, .segments = icc_segments(profile)};
    recipe.segments.insert(recipe.segments.begin(), {0xe1, std::string("Exif\0\0", 6) + exif});
    const std::string jpeg = put("in.jpg", dark_jpeg(recipe));
    const std::string png =
        put("in.png", dark_png(png_rgb, {{"eXIf", exif}, {"pHYs", std::string("\0\0\x25\0\0\0\x26\0\1", 9)}}));
    expect_success(enhance({jpeg, png}, path("out")));
    const std::string jpeg_result = read_bytes(path("out/in.jpg"));
    const std::string marked = jpeg_segment(jpeg_result, 0xe1).substr(6);
    EXPECT_EQ(marked.substr(8, exif.size() - 8), exif.substr(8)) << "all that the block points to";
    EXPECT_EQ(exif_software(marked), "ko 0.1.0 (shadows opened)");
    EXPECT_EQ(jpeg_icc_profile(jpeg_result), profile);
    EXPECT_EQ(jpeg_segment(jpeg_result, 0xe0), jpeg_segment(read_bytes(jpeg), 0xe0));
    const std::string png_result = read_bytes(path("out/in.png"));
    EXPECT_EQ(png_chunk_data(png_result, "eXIf"), exif);
    EXPECT_EQ(png_chunk_data(png_result, "pHYs"), std::string("\0\0\x25\0\0\0\x26\0\1", 9));
    expect_success(enhance({jpeg}, path("crossed.png")));
    EXPECT_EQ(png_chunk_data(read_bytes(path("crossed.png")), "eXIf"), exif);
    expect_success(enhance({path("crossed.png")}, path("back.jpg")));
    EXPECT_EQ(jpeg_icc_profile(read_bytes(path("back.jpg"))), profile);
}

using HostFormat = Host;

TEST_F(HostFormat, IsRecognisedByContentAndSelectedByTheOutputsExtension) {
    const std::string misnamed = put("really.jpg", dark_png());
    const std::string jpeg = put("in.JPG", dark_jpeg());
    const auto begins_as_png = [&](const std::string &name) { return read_bytes(path(name)).starts_with("\x89PNG"); };
    expect_success(enhance({misnamed}, path("out.PNG")));
    EXPECT_TRUE(begins_as_png("out.PNG"));
    expect_success(enhance({misnamed}, path("out.jpeg")));
    EXPECT_FALSE(begins_as_png("out.jpeg"));
    expect_success(enhance({jpeg}, path("out.png")));
    EXPECT_TRUE(begins_as_png("out.png"));
}

TEST_F(HostFormat, IsTheInputsWhereTheNameDoesNotSay) {
    const std::string misnamed = put("really.jpg", dark_png());
    const std::string notice = ": notice: written as PNG like the input, whatever the name says\n";
    for (const std::string folder : {"new", "folder/"}) {
        const Outcome outcome = enhance({misnamed}, path(folder));
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "ko: " + misnamed + notice);
        EXPECT_EQ(png_pixels(read_bytes(path(folder + "/really.jpg"))), expected(png_pixels(dark_png())));
    }
}

TEST_F(HostFormat, OfAnUnknownExtensionIsRefused) {
    const std::string name = put("in.png", dark_png());
    put("out", "a file");
    for (const std::string output : {"out.xyz", "out.", "out"}) {
        expect_wrong_usage(enhance({name}, path(output)), "cannot write " + path(output) + no_extension);
    }
    EXPECT_EQ(left(), (std::set<std::string>{"in.png", "out"}));
}

TEST_F(HostFormat, JpegOutputReportsThatAlphaIsLost) {
    const std::string name = put("in.png", dark_png(png_rgba));
    const Outcome outcome = enhance({name}, path("out.jpg"));
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "ko: " + name + ": notice: a JPEG file cannot hold alpha, which is left out\n");
}

using HostErrors = Host;

TEST_F(HostErrors, TruncatedFilesLeaveNothing) {
    for (const auto &[name, file] : {std::pair{std::string("in.png"), dark_png()}, {std::string("in.jpg"), dark_jpeg()}}) {
        for (size_t part = 0; part < 12; ++part) {
            const size_t size = part == 11 ? file.size() - 1 : file.size() * part / 11;
            const Outcome outcome = enhance({put(name, file.substr(0, size))}, path("out.png"));
            EXPECT_EQ(outcome.status, 1) << size << " bytes of " << name;
            EXPECT_EQ(outcome.out, "");
            const Words lines = outcome.err_lines();
            ASSERT_EQ(lines.size(), 1u) << outcome.err;
            EXPECT_TRUE(lines[0].starts_with("ko: " + path(name) + ": ")) << lines[0];
            EXPECT_FALSE(exists(path("out.png")));
        }
    }
    EXPECT_EQ(left(), (std::set<std::string>{"in.png", "in.jpg"}));
}

TEST_F(HostErrors, OfOnePictureLeaveTheOthersAlone) {
    const Words inputs = {put("a.png", dark_png()), put("text.png", "no picture"), path("missing.jpg"),
                          put("cut.jpg", dark_jpeg().substr(0, 900)), put("z.jpg", dark_jpeg())};
    const Outcome outcome = enhance(inputs, path("out"));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err_lines(), (Words{"ko: " + inputs[1] + ": a text file, not a picture",
                                          "ko: " + inputs[2] + ": cannot be read: No such file or directory",
                                          "ko: " + inputs[3] + ": premature end of JPEG file"}));
    EXPECT_EQ(outcome.out_lines().size(), 2u);
    EXPECT_EQ(left(), (std::set<std::string>{"a.png", "text.png", "cut.jpg", "z.jpg", "out", "out/a.png", "out/z.jpg"}));
}

TEST_F(HostErrors, AnInputThatIsAFolder) {
    fs::create_directory(path("pictures"));
    expect_one_error(enhance({path("pictures")}, path("out")),
                     path("pictures") + ": no pictures in this folder; --recursive includes subfolders");
}

TEST_F(HostErrors, AnOutputThatIsNoFolder) {
    const Words inputs = {put("a.png", dark_png()), put("b.png", dark_png())};
    const std::string file = put("file", "in the way");
    expect_one_error(enhance(inputs, file), file + ": not a folder, but several pictures need one");
    expect_one_error(enhance(inputs, file + "/deeper"), file + "/deeper: the folder cannot be made: Not a directory");
    expect_one_error(enhance({inputs[0]}, file + "/out.png"), file + ": not a folder");
    expect_one_error(enhance({inputs[0]}, path("none/out.png")), path("none") + ": no such folder");
    EXPECT_EQ(read_bytes(file), "in the way");
    EXPECT_EQ(left(), (std::set<std::string>{"a.png", "b.png", "file"}));
}

TEST_F(HostErrors, AFolderWithoutPermission) {
    const std::string name = put("a.png", dark_png());
    fs::create_directory(path("out"));
    fs::permissions(path("out"), fs::perms::owner_read | fs::perms::owner_exec);
    const Surroundings surroundings = {.bound = true};
    expect_one_error(enhance({name}, path("out/a.png"), {}, surroundings),
                     path("out") + ": the folder cannot be written to: Permission denied");
    EXPECT_EQ(left(), (std::set<std::string>{"a.png", "out"}));
    fs::permissions(path("out"), fs::perms::owner_all);
    expect_success(enhance({name}, path("out/a.png"), {}, surroundings));
    EXPECT_EQ(png_pixels(read_bytes(path("out/a.png"))), expected(png_pixels(dark_png())));
}

TEST_F(HostErrors, AnOutputThatIsAFolderOrNoFileAtAll) {
    const std::string name = put("a.png", dark_png());
    fs::create_directories(path("out/a.png"));
    expect_one_error(enhance({name}, path("out")), name + ": cannot write " + path("out/a.png") + ": a folder has this name");
    ASSERT_EQ(mkfifo(path("pipe.png").c_str(), 0600), 0);
    expect_one_error(enhance({name}, path("pipe.png")), name + ": cannot write " + path("pipe.png") + ": not a regular file");
    EXPECT_TRUE(fs::is_fifo(path("pipe.png")));
}

TEST_F(HostErrors, AFullDiskLeavesTheOldFile) {
    const std::string name =
        put("in.png", png_file({200, 200, 8, png_rgb, false, {}, {}}, [](uint32_t x, uint32_t y, uint32_t c) {
                return (x * 7919 + y * 104729 + c * 1299709) * 2654435761u >> 24;
            }));
    const std::string out = put("out.png", "old");
    const Outcome outcome = enhance({name}, out, {}, {.largest_file = 20000});
    expect_one_error(outcome, name + ": cannot write " + out + ": File too large");
    EXPECT_EQ(read_bytes(out), "old");
    EXPECT_EQ(left(), (std::set<std::string>{"in.png", "out.png"}));
}

#ifndef __SANITIZE_ADDRESS__ // a sanitizer needs more address space than the limit

TEST_F(HostErrors, OfTheLibraryComeWithItsMessages) {
    const Sample flat = [](uint32_t x, uint32_t, uint32_t) { return x & 63; };
    const std::string large = put("large.png", png_file({3000, 3000, 8, png_rgb, false, {}, {}}, flat));
    const std::string small = put("small.png", dark_png());
    const Outcome outcome =
        enhance({large, small}, path("out"), {"--working-size", "full"}, {.address_space = uint64_t{200} << 20});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.err.find("ko: " + large + ": "), std::string::npos) << outcome.err;
    EXPECT_TRUE(matches(outcome.err_lines().back(), "^ko: " + large + ": .*: Cannot allocate [0-9]+ bytes$")) << outcome.err;
    EXPECT_EQ(left(), (std::set<std::string>{"large.png", "small.png", "out", "out/small.png"}));
}

#endif

using HostFiles = Host;

TEST_F(HostFiles, OfOneNameAreRefusedBeforeAnyWork) {
    const Words inputs = {put("a/x.png", dark_png()), put("b/x.png", dark_png(png_gray)), put("c/y.png", dark_png())};
    expect_wrong_usage(enhance(inputs, path("out")), "cannot write " + path("out/x.png") +
                                                         ": two inputs would become this file, " + inputs[0] + " and " +
                                                         inputs[1]);
    EXPECT_FALSE(exists(path("out")));
}

TEST_F(HostFiles, ThatAreInputsBelongToThemselves) {
    const Words inputs = {put("a/x.png", dark_png()), put("out/x.png", dark_png(png_gray))};
    expect_wrong_usage(enhance(inputs, path("out")), "cannot write " + path("out/x.png") + ": it is another input");
    EXPECT_EQ(read_bytes(path("out/x.png")), dark_png(png_gray));
}

TEST_F(HostFiles, GivenTwiceAreDoneOnce) {
    const std::string name = put("x.png", dark_png());
    const Outcome outcome = enhance({name, path("./x.png")}, path("out"));
    expect_success(outcome);
    EXPECT_EQ(outcome.out_lines().size(), 1u);
    EXPECT_EQ(png_pixels(read_bytes(path("out/x.png"))), expected(png_pixels(dark_png())));
}

TEST_F(HostFiles, AreOverwrittenInPlaceAlone) {
    const std::string name = put("x.png", dark_png());
    fs::permissions(name, fs::perms::owner_read | fs::perms::owner_write);
    expect_wrong_usage(enhance({name}, name), "cannot write " + name + ": it is the input (--in-place overwrites it)");
    expect_wrong_usage(enhance({name}, path("")), "cannot write " + name + ": it is the input (--in-place overwrites it)");
    EXPECT_EQ(read_bytes(name), dark_png());
    const std::string other = put("y.jpg", dark_jpeg());
    expect_success(enhance({name, other}, "", {"--in-place"}));
    EXPECT_EQ(png_pixels(read_bytes(name)), expected(png_pixels(dark_png())));
    EXPECT_NE(read_bytes(other), dark_jpeg());
    EXPECT_EQ(fs::status(name).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(left(), (std::set<std::string>{"x.png", "y.jpg"}));
}

TEST_F(HostFiles, StayWhenTheyCannotBeReadWhole) {
    const std::string cut = dark_png().substr(0, 400);
    const std::string name = put("x.png", cut);
    EXPECT_EQ(enhance({name}, "", {"--in-place"}).status, 1);
    EXPECT_EQ(read_bytes(name), cut);
}

TEST_F(HostFiles, BehindALinkAreWrittenAndTheLinkStays) {
    const std::string name = put("x.png", dark_png());
    fs::create_symlink(path("real.png"), path("link.png"));
    put("real.png", "old");
    expect_success(enhance({name}, path("link.png")));
    EXPECT_TRUE(fs::is_symlink(path("link.png")));
    EXPECT_EQ(png_pixels(read_bytes(path("real.png"))), expected(png_pixels(dark_png())));
}

TEST_F(HostFiles, HaveAnyName) {
    const Words inputs = {put("with some spaces.png", dark_png()), put("-o.png", dark_png()),
                          put("d\xc3\xa4mmerung.jpg", dark_jpeg())};
    expect_success(enhance(inputs, path("a folder with spaces")));
    EXPECT_TRUE(exists(path("a folder with spaces/with some spaces.png")));
    EXPECT_TRUE(exists(path("a folder with spaces/-o.png")));
    EXPECT_TRUE(exists(path("a folder with spaces/d\xc3\xa4mmerung.jpg")));
}

TEST_F(HostFiles, GoIntoAnExistingFolderUnderTheirNames) {
    const std::string name = put("x.png", dark_png());
    fs::create_directory(path("out"));
    expect_success(enhance({name}, path("out")));
    expect_success(enhance({name}, path("new/deep/")));
    EXPECT_TRUE(exists(path("out/x.png")));
    EXPECT_TRUE(exists(path("new/deep/x.png")));
}

using HostOutput = Host;

TEST_F(HostOutput, IsEmptyWhenQuiet) {
    const std::string deep = put("deep.png", png_file({40, 40, 16, png_rgb, false, {}, {}}, dark));
    const std::string missing = path("missing.png");
    const Outcome outcome = enhance({deep, missing}, path("out"), {"--quiet"});
    EXPECT_EQ(outcome.out, "");
    expect_one_error(outcome, missing + ": cannot be read: No such file or directory");
    EXPECT_EQ(enhance({deep}, path("out"), {"--quiet"}, {.terminal = true}).out, "");
}

TEST_F(HostOutput, OnATerminalShowsABarOverPicturesAndStages) {
    const Words inputs = {put("a.png", dark_png()), put("b.png", dark_png()), path("missing.png")};
    const Outcome outcome = enhance(inputs, path("out"), {"--jobs", "1"}, {.terminal = true});
    EXPECT_EQ(outcome.status, 1);
    for (const std::string stage : {"reading", "judging", "curves", "applying"}) {
        EXPECT_NE(outcome.out.find(": " + stage), std::string::npos) << stage;
    }
    for (const std::string count : {"] 1/3 ", "] 2/3 ", "] 3/3 "}) {
        EXPECT_NE(outcome.out.find(count), std::string::npos) << count;
    }
    EXPECT_TRUE(matches(outcome.out, "\r\x1b\\[K[^\r\n]*b\\.png: 96 x 80, enhanced, " + time_shown + "\r\n"))
        << "the bar makes room for the line";
    EXPECT_TRUE(
        matches(outcome.out, "No such file or directory\r\n3 of 3 pictures: 2 enhanced, 1 failed, [0-9]+\\.[0-9] s\r\n$"))
        << "no bar stays behind: " << outcome.out;
}

TEST_F(HostOutput, OnATerminalNothingOfABarStaysHoweverManyPicturesAreAtWork) {
    Words inputs;
    for (int i = 0; i < 9; ++i) {
        const std::string name = "p" + std::to_string(i) + ".png";
        inputs.push_back(i % 4 == 3 ? path(name) : put(name, dark_png()));
    }
    const Outcome outcome = enhance(inputs, path("out"), {"--jobs", "4"}, {.terminal = true});
    EXPECT_NE(outcome.out.find("\x1b[K["), std::string::npos) << "a bar";
    const Words lines = shown_on_screen(outcome.out);
    ASSERT_EQ(lines.size(), inputs.size() + 2) << outcome.out;
    for (size_t i = 0; i < inputs.size(); ++i) {
        const std::string expected = i % 4 == 3 ? "^ko: " + inputs[i] + ": cannot be read: No such file or directory$"
                                                : "^" + inputs[i] + ": 96 x 80, enhanced, " + time_shown + "$";
        EXPECT_TRUE(matches(lines[i], expected)) << lines[i];
    }
    EXPECT_TRUE(lines[inputs.size()].starts_with("9 of 9 pictures: 7 enhanced, 2 failed, ")) << lines[inputs.size()];
    EXPECT_EQ(lines.back(), "");
}

// What a file is called does not command the terminal, and takes one line.
TEST_F(HostOutput, ShowsControlCharactersOfNamesAsEscapes) {
    const std::string name = put("a\x1b[31m\n\t\x7f.png", dark_png());
    const std::string shown = path("a\\x1b[31m\\n\\t\\x7f.png");
    const Outcome outcome = enhance({name, path("b\x07.png")}, path("out"));
    EXPECT_TRUE(outcome.out.starts_with(shown + ": 96 x 80, enhanced, ")) << outcome.out;
    EXPECT_EQ(outcome.err, "ko: " + path("b\\x07.png") + ": cannot be read: No such file or directory\n");
    const Outcome refused = enhance({name}, path("c\x1b.png/out.png"));
    EXPECT_EQ(refused.err, "ko: " + path("c\\x1b.png") + ": no such folder\n");
}

TEST_F(HostOutput, ReportsTheTimesOfAllStages) {
    const Words inputs = {put("a.png", dark_png()), put("b.png", judged_png({64, 0, 0}))};
    const Outcome outcome = run_command("enhance", inputs, path("out"), {"--timings", "--policy", "conservative"});
    expect_success(outcome);
    std::string times;
    for (const std::string stage : {"reading", "red eyes", "judging", "curves", "applying", "writing"}) {
        times += (times.empty() ? "" : ", ") + stage + " " + time_shown;
    }
    ASSERT_EQ(outcome.out_lines().size(), 2u);
    for (const std::string &line : outcome.out_lines()) {
        EXPECT_TRUE(matches(line, ", " + time_shown + " \\(" + times + "\\)$")) << line;
    }
}

TEST_F(HostOutput, ElsewhereHasPlainLines) {
    const Outcome outcome = enhance({put("a.png", dark_png())}, path("out.png"));
    EXPECT_EQ(outcome.out.find_first_of("\r\x1b#"), std::string::npos) << outcome.out;
}

using HostCommandLine = Host;

TEST_F(HostCommandLine, MistakesAreReportedInOneLine) {
    const std::string name = put("in.png", dark_png());
    const std::vector<std::pair<Words, std::string>> cases = {
        {{"--grid", "0x0"}, "--grid: '0x0' is not a grid"},
        {{"--grid", "8"}, "--grid: '8' is not a grid"},
        {{"--grid", "8x"}, "--grid: '8x' is not a grid"},
        {{"--grid", "8x8x8"}, "--grid: '8x8x8' is not a grid"},
        {{"--grid", "-8x8"}, "--grid: '-8x8' is not a grid"},
        {{"--grid", "257x8"}, "--grid: '257x8' is not a grid"},
        {{"--curve-size", "0"}, "--curve-size: '0' is not a multiple of 256"},
        {{"--curve-size", "128"}, "--curve-size: '128' is not a multiple of 256"},
        {{"--curve-size", "300"}, "--curve-size: '300' is not a multiple of 256"},
        {{"--curve-size", "1048576"}, "--curve-size: '1048576' is not a multiple of 256 from 256 to 4096"},
        {{"--max-gain", "nan"}, "--max-gain: 'nan' is not a number from 1 to 100"},
        {{"--max-gain", "0.9"}, "--max-gain: '0.9' is not a number from 1 to 100"},
        {{"--strength", "inf"}, "--strength: 'inf' is not a number from 0 to 10000"},
        {{"--strength", "-1"}, "--strength: '-1' is not a number from 0 to 10000"},
        {{"--limit", "1.01"}, "--limit: '1.01' is not a number from 0.01 to 1"},
        {{"--limit", "0"}, "--limit: '0' is not a number from 0.01 to 1"},
        {{"--levels", "0"}, "--levels: '0' is not a whole number from 1 to 255"},
        {{"--levels", "2.5"}, "--levels: '2.5' is not a whole number from 1 to 255"},
        {{"--ratio", "1.5"}, "--ratio: '1.5' is not a number from 0 to 1"},
        {{"--ratio", "half"}, "--ratio: 'half' is not a number from 0 to 1"},
        {{"--ratio", "0.5 "}, "--ratio: '0.5 ' is not a number from 0 to 1"},
        {{"--quality", "0"}, "--quality: '0' is not a whole number from 1 to 100"},
        {{"--quality", "101"}, "--quality: '101' is not a whole number from 1 to 100"},
        {{"--frob", "1"}, "unknown option "}};
    for (const auto &[options, beginning] : cases) {
        const Outcome outcome = enhance({name}, path("out.png"), options);
        EXPECT_EQ(outcome.status, 2) << options[1];
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err_lines().size(), 1u) << outcome.err;
        EXPECT_TRUE(outcome.err.starts_with("ko: " + beginning)) << outcome.err;
    }
    EXPECT_EQ(left(), (std::set<std::string>{"in.png"}));
}

TEST_F(HostCommandLine, WithoutInputOrOutputIsAMistake) {
    const std::string name = put("in.png", dark_png());
    for (const Words &words : {Words{"enhance"}, Words{"enhance", name}, Words{"enhance", "-o", path("out.png")},
                               Words{"enhance", name, "-o", ""}, Words{"enhance", name, "--suffix", ""}}) {
        const Outcome outcome = run_program(words);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.err_lines().size(), 1u) << outcome.err;
        EXPECT_TRUE(outcome.err.ends_with(" (see ko enhance --help)\n")) << outcome.err;
    }
    EXPECT_EQ(left(), (std::set<std::string>{"in.png"}));
}

TEST_F(HostCommandLine, MisspeltWordsGetTheirNearestNeighbour) {
    const std::vector<std::pair<Words, std::string>> cases = {
        {{"enhnace"}, "unknown command enhnace; did you mean enhance? (see ko --help)"},
        {{"judg", "x"}, "unknown command judg; did you mean judge? (see ko --help)"},
        {{"frobnicate"}, "unknown command frobnicate (see ko --help)"},
        {{"help", "curve"}, "unknown command curve; did you mean curves? (see ko help --help)"},
        {{"enhance", "x", "-o"}, "--output needs a value (see ko enhance --help)"},
        {{"enhance", "x", "-o", "y", "--report", "-"}, "--report: a page is written to a file (see ko enhance --help)"},
        {{"enhance", "x", "--suf", "y"}, "unknown option --suf; did you mean --suffix? (see ko enhance --help)"},
        {{"enhance", "x", "-o", "y", "--jsno"}, "unknown option --jsno; did you mean --json? (see ko enhance --help)"},
        {{"enhance", "x", "-o", "y", "--max-gian=2"},
         "unknown option --max-gian=2; did you mean --max-gain? (see ko enhance --help)"},
        {{"enhance", "a.jpg", "b.jpg"}, "no output: did you mean 'ko enhance a.jpg -o b.jpg'? (see ko enhance --help)"},
        {{"auto", "a.jpg", "b.jpg", "c.jpg"}, "no output: did you mean 'ko auto a.jpg ... -o c.jpg'? (see ko auto --help)"},
        {{"apply", "curves.txt", "a.jpg", "b.jpg"},
         "no output: did you mean 'ko apply curves.txt a.jpg -o b.jpg'? (see ko apply --help)"}};
    for (const auto &[words, line] : cases) {
        expect_wrong_usage(run_program(words), line);
    }
}

TEST_F(HostCommandLine, AnswersWithHelpAndVersion) {
    const Outcome help = run_program({"enhance", "--help"});
    expect_success(help);
    for (const std::string text :
         {"--grid",         "8x8",        "--curve-size", "256",     "--max-gain", "3.0",       "--strength", "40.0",
          "--limit",        "0.6275",     "--levels",     "--ratio", "0.5",        "--quality", "92",         "--quiet",
          "--output",       "--policy",   "default",      "--force", "--score",    "--json",    "--jobs",     "--timings",
          "--working-size", "--max-slope"}) {
        EXPECT_NE(help.out.find(text), std::string::npos) << text;
    }
    const std::vector<std::pair<std::string, Words>> commands = {
        {"enhance", {}},
        {"judge", {"--scores", "--score", "--json", "--max-gain", "--working-size", "8 by 8 blocks"}},
        {"curves", {"--form", "text, binary, encoded", "--draw", "--grid", "--curve-size", "--json", "--quiet", "--output"}},
        {"apply", {"FILE", "INPUT", "--ratio", "--quality", "--json", "--quiet", "--output"}}};
    for (const auto &[command, texts] : commands) {
        EXPECT_NE(run_program({"--help"}).out.find(command), std::string::npos);
        const Outcome answer = run_program({command, "--help"});
        expect_success(answer);
        for (const std::string &text : texts) {
            EXPECT_NE(answer.out.find(text), std::string::npos) << command << " " << text;
        }
    }
    const Outcome version = run_program({"--version"});
    expect_success(version);
    EXPECT_EQ(run_program({"-V"}).out, version.out);
    for (const std::string command : {"enhance", "redeye", "auto", "judge", "curves", "apply"}) {
        EXPECT_EQ(run_program({"help", command}).out, run_program({command, "--help"}).out);
    }
    const Outcome nothing = run_program({});
    EXPECT_EQ(nothing.status, 2);
    EXPECT_EQ(nothing.out, run_program({"--help"}).out);
    EXPECT_EQ(run_program({"help"}).out, nothing.out);
    EXPECT_TRUE(matches(version.out, "^ko [0-9]+\\.[0-9]+\\.[0-9]+\nred-eye model: /.*/redeye\\.cfg\n$")) << version.out;
}

} // namespace
