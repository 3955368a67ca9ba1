// What the size of a picture changes, and what it must not: judgement and curves come from a working copy, and the curves are
// applied to the whole picture.
#include <cmath>
#include <sstream>

#include <nlohmann/json.hpp>

#include "host.h"
#include "judged_pictures.h"
#include "kohost/tuning.h"
#include "kohost/working_copy.h"
#include "red_eye_pictures.h"
#include "reference_average.h"
#include "repaired.h"

namespace {

using namespace ko_test;
using Json = nlohmann::json;
using kohost::default_working_area;

Pixels sample_picture(const std::string &name) {
    const std::string file = read_bytes(std::string(KO_SAMPLES) + "/" + name);
    return name.ends_with(".jpg") ? jpeg_pixels(file) : png_pixels(file);
}

// A picture at another width, its shape kept, the levels between pixels mixed of their neighbours.
Pixels scaled(const Pixels &picture, uint32_t width) {
    Pixels result{width, width * picture.height / picture.width, picture.channels, {}};
    const auto place = [](uint32_t i, uint32_t from, uint32_t to) {
        return std::clamp((i + 0.5) * to / from - 0.5, 0.0, to - 1.0);
    };
    for (uint32_t y = 0; y < result.height; ++y) {
        const double v = place(y, result.height, picture.height);
        const size_t above = static_cast<size_t>(v) * picture.width;
        const size_t below = static_cast<size_t>(std::ceil(v)) * picture.width;
        for (uint32_t x = 0; x < width; ++x) {
            const double u = place(x, width, picture.width);
            const auto left = static_cast<size_t>(u);
            const auto right = static_cast<size_t>(std::ceil(u));
            for (size_t c = 0; c < picture.channels; ++c) {
                const auto level = [&](size_t row, size_t column) {
                    return picture.bytes[(row + column) * picture.channels + c];
                };
                const double upper = std::lerp(level(above, left), level(above, right), u - std::floor(u));
                const double lower = std::lerp(level(below, left), level(below, right), u - std::floor(u));
                result.bytes.push_back(static_cast<uint8_t>(std::lround(std::lerp(upper, lower, v - std::floor(v)))));
            }
        }
    }
    return result;
}

Sample sample_of(const Pixels &pixels) {
    return [&pixels](uint32_t x, uint32_t y, uint32_t c) {
        return pixels.bytes[(size_t{y} * pixels.width + x) * pixels.channels + c];
    };
}

int png_colour(const Pixels &pixels) {
    constexpr std::array<int, 5> colours = {0, png_gray, png_gray_alpha, png_rgb, png_rgba};
    return colours[pixels.channels];
}

std::string as_png(const Pixels &pixels, bool interlaced = false) {
    return png_file({pixels.width, pixels.height, 8, png_colour(pixels), interlaced, {}, {}}, sample_of(pixels));
}

std::string as_jpeg(const Pixels &pixels, bool progressive = false) {
    JpegRecipe recipe{.width = pixels.width, .height = pixels.height, .sampling_x = 2, .sampling_y = 2};
    recipe.progressive = progressive;
    return jpeg_file(recipe, sample_of(pixels));
}

kohost::Size working_size(const Pixels &pixels, uint64_t area) {
    return kohost::working_size({pixels.width, pixels.height}, area);
}

// The working copy of a picture that is decoded at full size.
Pixels working_copy(const Pixels &pixels, uint64_t area) {
    const kohost::Size size = working_size(pixels, area);
    return averaged(pixels, size.width, size.height);
}

// What the program makes of a picture: the curves of the copy applied to the whole.
Pixels expected_by(const Pixels &copy, const Pixels &whole, const Tuning &tuning = {}) {
    const FreshLibrary library;
    return applied(whole, curves_of(copy, tuning).get(), tuning.ratio);
}

// ---- the judgement

// What each policy does with a picture.
std::vector<bool> decisions(const std::string &input, const Words &options = {}) {
    Words words = options;
    words.push_back("--json");
    const Outcome outcome = run_command("judge", {input}, "", words);
    expect_success(outcome);
    std::vector<bool> enhanced;
    const Json object = Json::parse(outcome.out);
    for (const Json &decision : object.at("decisions")) {
        enhanced.push_back(decision.at("enhanced"));
    }
    EXPECT_EQ(enhanced.size(), 4u);
    return enhanced;
}

using HostSize = Host;

TEST_F(HostSize, DoesNotChangeTheAnswerForAPhotograph) {
    for (const std::string photograph : {"rocket.jpg", "coffee.png"}) {
        const Pixels original = sample_picture(photograph);
        std::vector<std::vector<bool>> answers;
        for (const uint32_t width : {1000, 1600, 2400}) {
            const Pixels picture = scaled(original, width);
            const std::string png = put("in.png", as_png(picture));
            answers.push_back(decisions(png));
            answers.push_back(decisions(put("in.jpg", as_jpeg(picture))));
            EXPECT_EQ(answers.back(), answers.front()) << photograph << " " << width << " as JPEG";
            EXPECT_EQ(answers[answers.size() - 2], answers.front()) << photograph << " " << width << " as PNG";
            if (width == 2400) {
                EXPECT_NE(decisions(png, {"--working-size", "full"}), answers.front()) << "nothing to be kept equal";
            }
        }
    }
}

// The answer about a picture, without its size.
Json answer_about(const std::string &input, const std::string &working_size) {
    Json object = Json::parse(run_command("judge", {input}, "", {"--working-size", working_size, "--json"}).out);
    object.erase("file");
    object.erase("width");
    object.erase("height");
    return object;
}

// The pixels in the middle of the areas that the pixels of a smaller picture cover.
Pixels sampled(const Pixels &pixels, uint32_t width, uint32_t height) {
    Pixels result{width, height, pixels.channels, {}};
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const auto column = static_cast<size_t>((x + 0.5) * pixels.width / width);
            const auto row = static_cast<size_t>((y + 0.5) * pixels.height / height);
            const auto pixel =
                pixels.bytes.begin() + static_cast<std::ptrdiff_t>((row * pixels.width + column) * pixels.channels);
            result.bytes.insert(result.bytes.end(), pixel, pixel + pixels.channels);
        }
    }
    return result;
}

TEST_F(HostSize, MeasuresAreThoseOfTheWorkingCopyAndNoiseThatOfPixelsAsTheyAre) {
    const Pixels picture = scaled(sample_picture("coffee.png"), 700);
    const std::string name = put("in.png", as_png(picture));
    const kohost::Size size = working_size(picture, 150'000);
    const Json of_the_average = answer_about(put("average.png", as_png(working_copy(picture, 150'000))), "full");
    const Json of_the_sample = answer_about(put("sample.png", as_png(sampled(picture, size.width, size.height))), "full");
    const Json answer = answer_about(name, "0.15");
    for (const std::string measure : {"detail", "entropy", "noise"}) {
        const Json &expected = measure == "noise" ? of_the_sample : of_the_average;
        EXPECT_EQ(answer.at("scores").at(measure), expected.at("scores").at(measure)) << measure;
        EXPECT_EQ(answer.at("blocks_over").at(measure), expected.at("blocks_over").at(measure)) << measure;
    }
    EXPECT_NE(of_the_sample.at("scores"), of_the_average.at("scores"));
    EXPECT_NE(answer_about(name, "full").at("scores"), answer.at("scores"));
}

// Dark, with detail to gain, and with colour noise that an average of a few pixels hides.
uint32_t night(uint32_t x, uint32_t y, uint32_t c) {
    constexpr std::array<double, 3> directions = {1.174, -0.6, 0.0};
    const uint32_t base = 20 + scatter(x / 20, y / 20) % 60;
    const double noise = static_cast<double>(scatter(x, y) % 13) - 6.0;
    return static_cast<uint32_t>(base + directions[c] * noise);
}

TEST_F(HostSize, NoiseThatAnAverageWouldHideTurnsAPictureDown) {
    const Pixels sky = png_pixels(png_file({1300, 900, 8, png_rgb, false, {}, {}}, night));
    const kohost::Size size = working_size(sky, default_working_area);
    const Json average = answer_about(put("average.png", as_png(averaged(sky, size.width, size.height))), "full");
    const Json answer = answer_about(put("in.png", as_png(sky)), "0.5");
    EXPECT_LT(average.at("blocks_over").at("noise"), 24);
    EXPECT_EQ(average.at("decisions").at(1).at("enhanced"), true);
    EXPECT_EQ(answer.at("blocks_over").at("noise"), 64);
    const Outcome outcome = run_command("enhance", {path("in.png")}, path("out.png"));
    expect_success(outcome);
    EXPECT_NE(outcome.out.find(", left as it is: it is too noisy to be opened: 64 of 64 blocks"), std::string::npos)
        << outcome.out << average.at("blocks_over");
}

TEST_F(HostSize, IsThePicturesOwnInTheAnswer) {
    const std::string name = put("in.png", as_png(scaled(sample_picture("coffee.png"), 900)));
    const Outcome outcome = run_command("enhance", {name}, path("out.png"));
    expect_success(outcome);
    EXPECT_TRUE(matches(outcome.out, "^" + name + ": 900 x 600, enhanced, ")) << outcome.out;
}

// ---- the curves

Outcome enhance(const std::string &input, const std::string &output, Words options) {
    options.push_back("--force");
    return run_command("enhance", {input}, output, options);
}

TEST_F(HostSize, OfPicturesUpToTheWorkingSizeChangesNothing) {
    const Pixels most{1000, 500, 3, noise_bytes(1'500'000, 1)};
    const Pixels more{1000, 501, 3, noise_bytes(1'503'000, 1)};
    ASSERT_EQ(most.bytes.size(), default_working_area * 3);
    expect_success(enhance(put("most.png", as_png(most)), path("out.png"), {}));
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected(most));
    expect_success(enhance(put("more.png", as_png(more)), path("out.png"), {}));
    const Pixels result = png_pixels(read_bytes(path("out.png")));
    EXPECT_EQ(result, expected_by(working_copy(more, default_working_area), more));
    EXPECT_NE(result, expected(more));
}

TEST_F(HostSize, FullIsTheLibraryAlone) {
    const Pixels picture = scaled(sample_picture("coffee.png"), 900);
    const std::string name = put("in.png", as_png(picture));
    expect_success(enhance(name, path("out.png"), {"--working-size", "full", "--max-slope", "0"}));
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected(picture, {.max_slope = 0}));
    expect_success(enhance(name, path("out.png"), {"--working-size", "full"}));
    const Pixels result = png_pixels(read_bytes(path("out.png")));
    EXPECT_EQ(result, expected(picture));
    EXPECT_NE(result, expected(picture, {.max_slope = 0}));
    EXPECT_NE(result, expected_by(working_copy(picture, default_working_area), picture));
}

TEST_F(HostSize, CurvesAreThoseOfTheAveragedCopy) {
    const Pixels picture = scaled(sample_picture("rocket.jpg"), 1100);
    expect_success(enhance(put("in.png", as_png(picture)), path("out.png"), {}));
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected_by(working_copy(picture, default_working_area), picture));
}

// A part of a photograph in the colours of a PNG file.
Pixels in_colours(const Pixels &photograph, uint32_t channels) {
    Pixels result{photograph.width, photograph.height, channels, {}};
    for (size_t i = 0; i < photograph.bytes.size(); i += 3) {
        const uint8_t *pixel = &photograph.bytes[i];
        result.bytes.insert(result.bytes.end(), pixel, pixel + (channels < 3 ? 1 : 3));
        if (channels % 2 == 0) {
            result.bytes.push_back(static_cast<uint8_t>(i / 3));
        }
    }
    return result;
}

TEST_F(HostSize, CurvesAreThoseOfTheAveragedCopyInAllColours) {
    const Pixels photograph = scaled(sample_picture("coffee.png"), 400);
    for (const uint32_t channels : {1u, 2u, 3u, 4u}) {
        const Pixels picture = in_colours(photograph, channels);
        const Pixels wanted = expected_by(working_copy(picture, 40'000), picture);
        for (const bool interlaced : {false, true}) {
            expect_success(enhance(put("in.png", as_png(picture, interlaced)), path("out.png"), {"--working-size", "0.04"}));
            EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), wanted) << channels << " channels";
        }
    }
}

TEST_F(HostSize, CurvesOfSixteenBitPicturesAreThoseOfTheirBytes) {
    const Pixels picture = scaled(sample_picture("coffee.png"), 400);
    const Sample deep = [&](uint32_t x, uint32_t y, uint32_t c) { return sample_of(picture)(x, y, c) * 257; };
    const std::string name = put("in.png", png_file({picture.width, picture.height, 16, png_rgb, false, {}, {}}, deep));
    const Outcome outcome = enhance(name, path("out.png"), {"--working-size", "0.04"});
    EXPECT_EQ(outcome.err, "ko: " + name + ": notice: 16 bits per channel reduced to 8\n") << "once, however often it is read";
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected_by(working_copy(picture, 40'000), picture));
}

TEST_F(HostSize, OfALongPictureLeavesTheGridAsItIs) {
    const Pixels picture{4000, 20, 3, noise_bytes(240'000, 2)};
    expect_success(enhance(put("in.png", as_png(picture)), path("out.png"), {"--working-size", "0.01"}));
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected_by(working_copy(picture, 10'000), picture));
}

struct Grid {
    std::string kind;
    uint64_t bits = 0, columns = 0, rows = 0;
    std::vector<int64_t> entries;
};

// A file of curves in the text form.
Grid grid_in(const std::string &text) {
    std::istringstream stream(text);
    Grid grid;
    std::string word;
    stream >> grid.kind >> word >> grid.bits >> grid.columns >> grid.rows;
    for (int64_t entry = 0; stream >> entry;) {
        grid.entries.push_back(entry);
    }
    EXPECT_EQ(grid.kind + " " + word, "GrayLinear bits");
    EXPECT_EQ(grid.entries.size(), (grid.columns * grid.rows) << grid.bits);
    return grid;
}

// The program's curves of a picture at a working size.
std::vector<int64_t> curves_in(const std::string &input, const std::string &size) {
    const TemporaryFile file("grid");
    expect_success(run_command("curves", {input}, file.path(), {"--working-size", size}));
    return grid_in(read_bytes(file.path())).entries;
}

std::vector<int64_t> entries_of(const TileTRC *curves) {
    return {curves->array, curves->array + curves->size * curves->numStripsX * curves->numStripsY};
}

// A decoder may reduce the picture by itself as long as it leaves the working copy its pixels. At the sizes here it leaves
// nearly twice as many each way, so that a program that takes the reduction at all must take this one.
TEST_F(HostSize, JpegCopiesAreMadeOfTheReducedPicture) {
    const Pixels photograph = scaled(sample_picture("coffee.png"), 2000);
    const std::vector<std::pair<std::string, unsigned int>> sizes = {{"0.7", 1}, {"0.175", 2}, {"0.0437", 4}, {"0.0109", 8}};
    for (const bool progressive : {false, true}) {
        const std::string file = as_jpeg(photograph, progressive);
        const std::string name = put("in.jpg", file);
        for (const auto &[size, divisor] : sizes) {
            const Pixels reduced = jpeg_pixels(file, divisor);
            const kohost::Size copy = working_size(photograph, static_cast<uint64_t>(std::stod(size) * 1e6));
            ASSERT_GT(reduced.width, 1.6 * copy.width);
            const FreshLibrary library;
            const TileTRCPtr curves = curves_of(averaged(reduced, copy.width, copy.height));
            EXPECT_EQ(curves_in(name, size), entries_of(curves.get())) << size;
        }
    }
}

TEST_F(HostSize, OfOtherCommandsCurvesIsTheSame) {
    const Pixels picture = scaled(sample_picture("coffee.png"), 400);
    const std::string name = put("in.png", as_png(picture));
    const Words options = {"--working-size", "0.04"};
    expect_success(run_command("curves", {name}, path("grid"), options));
    expect_success(run_command("apply", {path("grid"), name}, path("applied.png")));
    const Pixels wanted = expected_by(working_copy(picture, 40'000), picture);
    EXPECT_EQ(png_pixels(read_bytes(path("applied.png"))), wanted);
    expect_success(run_command("auto", {name}, path("auto.png"),
                               {"--working-size", "0.04", "--force", "-q", "--model", put_model(path("model"))}));
    EXPECT_EQ(png_pixels(read_bytes(path("auto.png"))), wanted);
}

TEST_F(HostSize, CurvesOfRepairedPicturesAreThoseAfterTheRepair) {
    const std::string file = eyes_png();
    const std::string model = put_model(path("model"));
    expect_success(run_command("auto", {put("in.png", file)}, path("out.png"),
                               {"--working-size", "0.03", "--force", "--plain", "--full", "--model", model}));
    const Pixels whole = repaired(png_pixels(file), model, {.full = true});
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), expected_by(working_copy(whole, 30'000), whole));
}

TEST_F(HostSize, CurvesAreDrawnOverTheWholePicture) {
    const Pixels picture = scaled(sample_picture("coffee.png"), 400);
    expect_success(
        run_command("curves", {put("in.png", as_png(picture))}, path("out.png"), {"--draw", "--working-size", "0.04"}));
    const FreshLibrary library;
    const TileTRCPtr curves = curves_of(working_copy(picture, 40'000));
    RealImage *result = nullptr;
    KoTileTRCDraw(curves.get(), luminance_of(picture).get(), &result);
    const RealImagePtr owner(result);
    Pixels drawing{picture.width, picture.height, 1, {}};
    for (const float pixel : pixels(result)) {
        drawing.bytes.push_back(static_cast<uint8_t>(pixel));
    }
    EXPECT_EQ(png_pixels(read_bytes(path("out.png"))), drawing);
}

// ---- the limit of the slope

// The least and the greatest step between neighbouring entries.
std::pair<int64_t, int64_t> steps_of(const Grid &grid) {
    std::pair<int64_t, int64_t> steps = {INT64_MAX, INT64_MIN};
    const uint64_t size = uint64_t{1} << grid.bits;
    for (size_t i = 0; i < grid.entries.size(); ++i) {
        if (i % size != 0) {
            const int64_t step = grid.entries[i] - grid.entries[i - 1];
            steps = {std::min(steps.first, step), std::max(steps.second, step)};
        }
    }
    return steps;
}

TEST_F(HostSize, NoCurveIsSteeperThanTheLimit) {
    const struct {
        Words options;
        int64_t limit;
    } cases[] = {{{}, 3},
                 {{"--max-gain", "1.5"}, 3},
                 {{"--max-gain", "3.01"}, 4},
                 {{"--max-gain", "7"}, 7},
                 {{"--max-slope", "1"}, 1},
                 {{"--max-slope", "2"}, 2},
                 {{"--max-slope", "6", "--max-gain", "9"}, 6},
                 {{"--curve-size", "512"}, 3},
                 {{"--working-size", "full"}, 3}};
    for (const std::string photograph : {"rocket.jpg", "coffee.png"}) {
        const std::string name = std::string(KO_SAMPLES) + "/" + photograph;
        for (const auto &[options, limit] : cases) {
            expect_success(run_command("curves", {name}, path("grid"), options));
            const auto [least, greatest] = steps_of(grid_in(read_bytes(path("grid"))));
            EXPECT_GE(least, 0) << photograph << " " << testing::PrintToString(options);
            EXPECT_EQ(greatest, limit) << photograph << " " << testing::PrintToString(options);
        }
    }
}

TEST_F(HostSize, WithoutALimitCurvesAreTheLibrarys) {
    const Pixels picture = sample_picture("coffee.png");
    expect_success(run_command("curves", {std::string(KO_SAMPLES) + "/coffee.png"}, path("grid"), {"--max-slope", "0"}));
    const Grid grid = grid_in(read_bytes(path("grid")));
    const FreshLibrary library;
    const TileTRCPtr curves = curves_of(picture, {.max_slope = 0});
    EXPECT_EQ(grid.entries, entries_of(curves.get()));
    EXPECT_GT(steps_of(grid).second, 10) << "nothing to be limited";
}

// ---- mistakes

TEST_F(HostSize, MistakesAreOneLineEach) {
    const std::string name = put("in.png", dark_png());
    const std::string size = "' is neither a number from 0.01 to 250 nor 'full'";
    const std::string slope = "' is not a whole number from 0 to 255";
    const std::string jobs = "' is not a whole number from 1 to 1024";
    const std::vector<std::pair<Words, std::string>> cases = {
        {{"--working-size", ""}, "--working-size: '" + size},
        {{"--working-size", "0"}, "--working-size: '0" + size},
        {{"--working-size", "0.009"}, "--working-size: '0.009" + size},
        {{"--working-size", "251"}, "--working-size: '251" + size},
        {{"--working-size", "-1"}, "--working-size: '-1" + size},
        {{"--working-size", "nan"}, "--working-size: 'nan" + size},
        {{"--working-size", "inf"}, "--working-size: 'inf" + size},
        {{"--working-size", "1MP"}, "--working-size: '1MP" + size},
        {{"--working-size", "Full"}, "--working-size: 'Full" + size},
        {{"--max-slope", "-1"}, "--max-slope: '-1" + slope},
        {{"--max-slope", "256"}, "--max-slope: '256" + slope},
        {{"--max-slope", "2.5"}, "--max-slope: '2.5" + slope},
        {{"--max-slope", "x"}, "--max-slope: 'x" + slope},
        {{"--max-slope", "4294967297"}, "--max-slope: '4294967297" + slope},
        {{"--jobs", "0"}, "--jobs: '0" + jobs},
        {{"--jobs", "-2"}, "--jobs: '-2" + jobs},
        {{"--jobs", "1025"}, "--jobs: '1025" + jobs},
        {{"--jobs", "1.5"}, "--jobs: '1.5" + jobs},
        {{"-j", "many"}, "--jobs: 'many" + jobs}};
    for (const auto &[options, beginning] : cases) {
        for (const std::string command : {"enhance", "curves"}) {
            const Outcome outcome = run_command(command, {name}, path("out.png"), options);
            expect_wrong_usage(outcome, beginning + " (see ko " + command + " --help)");
            EXPECT_EQ(outcome.out, "");
        }
    }
    EXPECT_EQ(left(), (std::set<std::string>{"in.png"}));
    for (const Words &options :
         {Words{"--working-size", "0.01"}, Words{"--working-size", "250"}, Words{"--working-size", "1e-2"},
          Words{"--max-slope", "255"}, Words{"--jobs", "1024"}, Words{"-j1"}}) {
        expect_success(run_command("enhance", {name}, path("out.png"), options));
    }
}

} // namespace
