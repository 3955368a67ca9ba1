// `--report`: the page of a run, taken apart again.
#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>

#include <nlohmann/json.hpp>

#include "host.h"
#include "judged_pictures.h"
#include "red_eye_pictures.h"

namespace {

using namespace ko_test;
using Json = nlohmann::json;

// One picture of a page.
struct Row {
    std::string summary; // HTML
    Json data;
};

// What is between two texts; the search starts at a place that is moved past the second one. None if one is missing.
std::optional<std::string> between(const std::string &text, const std::string &start, const std::string &end, size_t &from) {
    const size_t first = text.find(start, from);
    const size_t last = first == std::string::npos ? first : text.find(end, first + start.size());
    if (last == std::string::npos) {
        return std::nullopt;
    }
    from = last + end.size();
    return text.substr(first + start.size(), last - first - start.size());
}

std::vector<Row> rows_of(const std::string &page) {
    std::vector<Row> rows;
    size_t from = 0;
    while (const auto row = between(page, "<details ", "</details>", from)) {
        size_t inside = 0;
        const auto summary = between(*row, "<summary>", "</summary>", inside);
        const auto data = between(*row, "<script type=\"application/json\">", "</script>", inside);
        EXPECT_TRUE(summary && data) << *row;
        rows.push_back({summary.value_or(""), data ? Json::parse(*data) : Json()});
    }
    return rows;
}

std::string bytes_of_base64(const std::string &text) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    uint32_t word = 0;
    int bits = 0;
    for (const char c : text.substr(0, text.find('='))) {
        EXPECT_NE(alphabet.find(c), std::string::npos) << c;
        word = word << 6 | static_cast<uint32_t>(alphabet.find(c));
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>(word >> bits & 255);
        }
    }
    EXPECT_EQ(text.size() % 4, 0u);
    return bytes;
}

Pixels preview(const Row &row, const char *which) {
    const std::string start = "data:image/jpeg;base64,";
    const std::string uri = row.data.at(which);
    EXPECT_EQ(uri.substr(0, start.size()), start);
    return jpeg_pixels(bytes_of_base64(uri.substr(start.size())));
}

int sample(const Pixels &pixels, double x, double y, uint32_t c) {
    const auto column = static_cast<size_t>(x * pixels.width);
    const auto row = static_cast<size_t>(y * pixels.height);
    return pixels.bytes[(row * pixels.width + column) * pixels.channels + c];
}

size_t times(const std::string &text, const std::string &part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

class HostReport : public Host {
  protected:
    // Runs a command with a report and gives its page.
    std::string page_of(const std::string &command, const Words &inputs, Words options = {}, int status = 0) const {
        std::filesystem::create_directory(path("out"));
        options.insert(options.end(), {"--report", path("page.html")});
        const Outcome outcome = run_command(command, inputs, path("out"), options);
        EXPECT_EQ(outcome.status, status) << outcome.err;
        return read_bytes(path("page.html"));
    }

    Row row_of(const std::string &command, const std::string &input, const Words &options = {}) const {
        const std::vector<Row> rows = rows_of(page_of(command, {input}, options));
        EXPECT_EQ(rows.size(), 1u);
        return rows.empty() ? Row{} : rows.front();
    }

    void expect_refused(const std::string &page, const std::string &why) const {
        const Outcome outcome = run_command("enhance", {path("in.png")}, path("out.png"), {"--report", page});
        expect_one_error(outcome, why);
        EXPECT_FALSE(exists(path("out.png")));
    }

    void expect_senseless(const std::string &page, const std::string &why) const {
        expect_wrong_usage(run_command("enhance", {path("in.png")}, path("out.png"), {"--report", page}), why);
        EXPECT_FALSE(exists(path("out.png")));
    }
};

// ---- rows

TEST_F(HostReport, KeepsTheOrderOfTheInputsWhateverTheThreads) {
    Words inputs;
    for (int i = 0; i < 24; ++i) {
        const bool large = i % 5 == 0; // done long after those that follow it
        inputs.push_back(put("p" + std::to_string(i) + ".png", large ? judged_png({}) : dark_png()));
    }
    const std::vector<Row> rows = rows_of(page_of("enhance", inputs, {"--force", "--jobs", "4"}));
    ASSERT_EQ(rows.size(), inputs.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_NE(rows[i].summary.find(">" + std::to_string(i + 1) + "</span>"), std::string::npos) << rows[i].summary;
        EXPECT_NE(rows[i].summary.find("</span>p" + std::to_string(i) + ".png</bdi>"), std::string::npos) << rows[i].summary;
        EXPECT_EQ(rows[i].data.at("output"), path("out/p" + std::to_string(i) + ".png"));
    }
}

TEST_F(HostReport, ReportsDecisionReasonSizeAndTimes) {
    const Words inputs = {put("good.png", judged_png({})), put("poor.png", judged_png({.low_detail = 64})),
                          put("bad.png", "no picture")};
    const std::string page = page_of("enhance", inputs, {}, 1);
    const std::vector<Row> rows = rows_of(page);
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_NE(rows[0].summary.find("<span class=\"outcome changed\">enhanced</span>"), std::string::npos);
    EXPECT_NE(rows[0].summary.find("320 \u00d7 320"), std::string::npos);
    EXPECT_EQ(rows[0].summary.find("reason"), std::string::npos);
    EXPECT_TRUE(matches(rows[0].summary, ">" + time_shown + "<"));
    EXPECT_NE(rows[1].summary.find("<span class=\"outcome left\">left as it is</span>"), std::string::npos);
    EXPECT_NE(rows[1].summary.find(
                  ">it has no detail hidden in its shadows: 64 of 64 blocks would gain too little detail (limit 63)</span>"),
              std::string::npos);
    EXPECT_NE(rows[2].summary.find("<span class=\"outcome failed\">failed</span>"), std::string::npos);
    EXPECT_NE(rows[2].summary.find(">a text file, not a picture</span>"), std::string::npos);
    std::set<std::string> stages;
    double sum = 0.0;
    for (const Json &timing : rows[0].data.at("timings")) {
        stages.insert(timing.at(0).get<std::string>());
        sum += timing.at(1).get<double>();
    }
    EXPECT_EQ(stages, (std::set<std::string>{"reading", "judging", "curves", "applying", "writing"}));
    EXPECT_NEAR(sum, rows[0].data.at("seconds").get<double>(), 0.01);
}

TEST_F(HostReport, CountsTheOutcomesFirst) {
    const Words inputs = {put("a.png", judged_png({})), put("b.png", judged_png({.low_detail = 64})),
                          put("c.png", judged_png({})), put("d.png", "")};
    const std::string page = page_of("enhance", inputs, {}, 1);
    const std::string head = page.substr(0, page.find("<details"));
    const auto counted = [](const std::string &kind, const std::string &text, const std::string &count) {
        return "<span class=\"outcome " + kind + "\">" + text + "</span></th><td>" + count + "</td>";
    };
    EXPECT_NE(head.find(counted("changed", "enhanced", "2")), std::string::npos);
    EXPECT_NE(head.find(counted("left", "left as it is", "1")), std::string::npos);
    EXPECT_NE(head.find(counted("failed", "failed", "1")), std::string::npos);
    EXPECT_NE(head.find("<title>ko enhance: 4 pictures</title>"), std::string::npos);
}

// ---- names

TEST_F(HostReport, LetsNoNameBecomeMarkup) {
    const Words names = {"<img src=x onerror=alert(1)>.png",
                         "a&b\"c'd.png",
                         "two\nlines.png",
                         "\xff\xc3.png",
                         "</script><b>x.png",
                         "\u202egnp.png"};
    Words inputs;
    for (const std::string &name : names) {
        inputs.push_back(put(name, dark_png()));
    }
    const std::string page = page_of("enhance", inputs, {"--force"});
    EXPECT_EQ(page.find("<img src=x"), std::string::npos);
    EXPECT_EQ(page.find("<b>x"), std::string::npos);
    EXPECT_EQ(times(page, "</script>"), names.size() + 1);
    EXPECT_EQ(page.find("two\nlines"), std::string::npos);
    EXPECT_EQ(page.find('\xff'), std::string::npos);
    EXPECT_EQ(page.find("\u202e"), std::string::npos);
    const Words shown = {"</span>&lt;img src=x onerror=alert(1)&gt;.png</bdi>",
                         "</span>a&amp;b&quot;c&#39;d.png</bdi>",
                         "</span>two\\x0alines.png</bdi>",
                         "</span>\ufffd\ufffd.png</bdi>",
                         "&lt;/</span>script&gt;&lt;b&gt;x.png</bdi>",
                         "</span>\\xe2\\x80\\xaegnp.png</bdi>"};
    const std::vector<Row> rows = rows_of(page);
    ASSERT_EQ(rows.size(), names.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_NE(rows[i].summary.find(shown[i]), std::string::npos) << rows[i].summary;
    }
    EXPECT_EQ(rows[0].data.at("output"), path("out/" + names[0]));
}

TEST_F(HostReport, LetsNoReasonBecomeMarkup) {
    const std::string name = put("<u>.png", dark_png());
    std::filesystem::create_directories(path("out/<u>.png"));
    const Outcome outcome = run_command("enhance", {name}, path("out"), {"--report", path("page.html")});
    EXPECT_EQ(outcome.status, 1);
    const std::string page = read_bytes(path("page.html"));
    EXPECT_EQ(page.find("<u>"), std::string::npos);
    EXPECT_NE(page.find("cannot write " + path("out/&lt;u&gt;.png") + ": a folder has this name"), std::string::npos);
}

TEST_F(HostReport, NeedsNothingButItself) {
    const Words inputs = {put("eyes.png", eyes_png()), put("dark.jpg", dark_jpeg())};
    const std::string page = page_of("auto", inputs, {"--force", "--plain", "--model", put_model(path("model"))});
    EXPECT_FALSE(matches(page, "https?:|//[a-z]+\\.|url\\(|@import|srcset|<(iframe|object|embed|base|form)"));
    size_t from = 0;
    while (const auto link = between(page, " href=\"", "\"", from)) {
        EXPECT_EQ(link->substr(0, 5), "data:");
    }
    EXPECT_EQ(page.find(" src="), std::string::npos) << "pictures come from the script alone";
    from = 0;
    const auto policy = between(page, "http-equiv=\"Content-Security-Policy\" content=\"", "\"", from);
    ASSERT_TRUE(policy);
    const std::string hash = "'sha256-[A-Za-z0-9+/]{43}='";
    EXPECT_TRUE(matches(*policy, "^default-src 'none'; img-src data:; style-src " + hash + "; script-src " + hash +
                                     "; base-uri 'none'; form-action 'none'$"))
        << *policy;
}

// ---- what a row opens

TEST_F(HostReport, ShowsAPictureBeforeAndAfter) {
    const Row row = row_of("enhance", put("in.png", dark_png()), {"--force"});
    const Pixels before = preview(row, "before");
    const Pixels after = preview(row, "after");
    EXPECT_EQ(before.width, 96u);
    EXPECT_EQ(before.height, 80u);
    EXPECT_EQ(row.data.at("width"), 96);
    EXPECT_EQ(row.data.at("height"), 80);
    const auto mean = [](const std::vector<uint8_t> &bytes) {
        uint64_t sum = 0;
        for (const uint8_t byte : bytes) {
            sum += byte;
        }
        return static_cast<double>(sum) / static_cast<double>(bytes.size());
    };
    const Pixels given = png_pixels(dark_png());
    const Pixels written = png_pixels(read_bytes(path("out/in.png")));
    EXPECT_NEAR(mean(before.bytes), mean(given.bytes), 1.5);
    EXPECT_NEAR(mean(after.bytes), mean(written.bytes), 1.5);
    EXPECT_GT(mean(written.bytes), mean(given.bytes) + 10);
}

TEST_F(HostReport, ReducesLargePictures) {
    const auto flat = [](uint32_t x, uint32_t, uint32_t) { return x < 1000 ? 20u : 90u; };
    const Row row = row_of("enhance", put("in.png", png_file({2000, 1000}, flat)), {"--force"});
    const Pixels before = preview(row, "before");
    EXPECT_LE(uint64_t{before.width} * before.height, 251'000u);
    EXPECT_GE(uint64_t{before.width} * before.height, 240'000u);
    EXPECT_NEAR(sample(before, 0.2, 0.5, 0), 20, 3);
    EXPECT_NEAR(sample(before, 0.8, 0.5, 0), 90, 3);
    EXPECT_EQ(preview(row, "after").width, before.width);
}

TEST_F(HostReport, ShowsAPictureThatIsLeftAloneOnce) {
    const std::string good = put("good.png", judged_png({.low_detail = 64}));
    for (const Words &options : {Words{}, Words{"--working-size", "0.01"}}) {
        const Row row = row_of("enhance", good, options);
        EXPECT_EQ(preview(row, "before").width, judged_side);
        EXPECT_FALSE(row.data.contains("after"));
        EXPECT_FALSE(row.data.contains("curves"));
        EXPECT_TRUE(row.data.contains("measures"));
    }
    const Outcome converted = run_command("enhance", {good}, path("out.jpg"), {"--report", path("page.html")});
    EXPECT_EQ(converted.status, 0);
    const Row row = rows_of(read_bytes(path("page.html"))).at(0);
    EXPECT_EQ(preview(row, "before").width, judged_side);
    EXPECT_FALSE(row.data.contains("after"));
}

TEST_F(HostReport, ShowsTheCurves) {
    const std::string in = put("in.png", judged_png({}));
    const Words tuning = {"--grid", "5x3", "--curve-size", "512"};
    Words forced = tuning;
    forced.push_back("--force");
    const Row row = row_of("enhance", in, forced);
    expect_success(run_command("curves", {in}, path("grid"), [&] {
        Words quiet = tuning;
        quiet.push_back("-q");
        return quiet;
    }()));
    const FreshLibrary library;
    const TileTRCPtr grid(KoTileTRCNew(512, 5, 3));
    ASSERT_EQ(KoTileTRCLoad(grid.get(), path("grid").c_str()), KO_OK);
    const Json &curves = row.data.at("curves");
    EXPECT_EQ(curves.at("columns"), 5);
    EXPECT_EQ(curves.at("rows"), 3);
    const std::string points = bytes_of_base64(curves.at("points"));
    ASSERT_EQ(points.size(), 15u * 256);
    for (size_t i = 0; i < points.size(); ++i) {
        const size_t entry = i / 256 * 512 + i % 256 * 2;
        ASSERT_EQ(static_cast<uint8_t>(points[i]), grid->array[entry] / 2) << i;
    }
}

TEST_F(HostReport, ShowsPartOfAFineGrid) {
    const Row row = row_of("enhance", put("in.png", judged_png({})), {"--force", "--grid", "100x20"});
    const Json &curves = row.data.at("curves");
    EXPECT_EQ(curves.at("columns"), 100);
    EXPECT_EQ(curves.at("across"), 4);
    EXPECT_EQ(curves.at("down"), 1);
    EXPECT_EQ(bytes_of_base64(curves.at("points")).size(), 25u * 20 * 256);
}

TEST_F(HostReport, ShowsTheMeasures) {
    const std::string in = put("in.png", judged_png({.low_detail = 20, .low_entropy = 8, .noisy = 12}));
    const Json judged = Json::parse(run_command("judge", {in}, "", {"--json"}).out);
    const Row row = row_of("enhance", in);
    const std::array<std::string, 3> keys = {"detail", "entropy", "noise"};
    const std::array<std::string, 3> counts = {
        "20 of 64 blocks would gain too little detail (limit 62 under conservative, 63 under default)",
        "8 of 64 blocks have too uniform dark tones (limit 23 under conservative, 20 under default)",
        "12 of 64 blocks are too noisy (limit 37 under conservative, 23 under default)"};
    ASSERT_EQ(row.data.at("measures").size(), keys.size());
    for (size_t i = 0; i < keys.size(); ++i) {
        const Json &measure = row.data.at("measures").at(i);
        EXPECT_EQ(measure.at("scores"), judged.at("scores").at(keys[i]));
        EXPECT_EQ(measure.at("threshold"), judged.at("block_thresholds").at(keys[i]));
        EXPECT_EQ(measure.at("low"), keys[i] != "noise");
        EXPECT_EQ(measure.at("count"), counts[i]);
    }
    const Row forced = row_of("enhance", in, {"--force"});
    EXPECT_EQ(forced.data.at("measures").at(0).at("count"), "20 of 64 blocks would gain too little detail (no limit)");
}

TEST_F(HostReport, HasNoNoiseOfAGrayPicture) {
    const Row row = row_of("enhance", put("in.png", judged_png({}, png_gray)));
    EXPECT_EQ(row.data.at("measures").size(), 2u);
}

TEST_F(HostReport, ShowsRedEyesInThePictureBefore) {
    const std::string in = put("in.png", eyes_png());
    const std::string model = put_model(path("model"));
    const Json said = Json::parse(run_command("redeye", {in}, path("other.png"), {"--json", "--plain", "--model", model}).out);
    const Row row = row_of("redeye", in, {"--plain", "--model", model});
    const Json &places = row.data.at("places");
    ASSERT_EQ(places.size(), said.at("places").size());
    std::multiset<std::string> labels;
    for (size_t i = 0; i < places.size(); ++i) {
        const Json &place = said.at("places").at(i);
        const bool judged = !place.at("label").is_null();
        const Json &box = place.at(judged ? "window" : "box");
        for (size_t k = 0; k < 4; ++k) {
            const double side = k % 2 == 0 ? eyes_width : eyes_height;
            EXPECT_NEAR(places.at(i).at("box").at(k).get<double>(), box.at(k).get<double>() / side, 1e-6);
        }
        labels.insert(places.at(i).at("label").get<std::string>());
        EXPECT_FALSE(places.at(i).contains("score"));
        if (judged) {
            EXPECT_EQ(places.at(i).at("label"), place.at("label"));
            EXPECT_EQ(places.at(i).at("scores").at(0), place.at("fe_score"));
            EXPECT_EQ(places.at(i).at("scores").at(1), place.at("be_score"));
        }
    }
    EXPECT_EQ(labels, (std::multiset<std::string>{"accepted", "not judged", "rejected", "undecided"}));
    const double x = 60.0 / eyes_width;
    const double y = 60.0 / eyes_height;
    EXPECT_GT(sample(preview(row, "before"), x, y, 0), 150);
    EXPECT_LT(sample(preview(row, "after"), x, y, 0), 100);
}

TEST_F(HostReport, ShowsPicturesOfAutoAsTheyCame) {
    const Row row = row_of("auto", put("in.png", eyes_png()), {"--force", "--plain", "--model", put_model(path("model"))});
    EXPECT_GT(sample(preview(row, "before"), 60.0 / eyes_width, 60.0 / eyes_height, 0), 150);
    EXPECT_LT(sample(preview(row, "after"), 60.0 / eyes_width, 60.0 / eyes_height, 0), 120);
    EXPECT_NE(row.summary.find("red eyes repaired</span><span class=\"outcome changed\">enhanced"), std::string::npos)
        << row.summary;
    const Row without = row_of("auto", put("in.png", eyes_png()), {"--force", "--model", "none"});
    EXPECT_FALSE(without.data.contains("places"));
}

// ---- pictures that are held another way up

std::string exif_of(uint32_t orientation) {
    std::string block("II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0", 18);
    return block + static_cast<char>(orientation) + std::string(7, '\0');
}

// Where a camera that writes this orientation stores what is seen in column x and row y of a square of 8 by 8.
size_t stored_at(uint32_t orientation, size_t x, size_t y) {
    const std::array<size_t, 8> places = {y * 8 + x, y * 8 + 7 - x,   (7 - y) * 8 + 7 - x, (7 - y) * 8 + x,
                                          x * 8 + y, (7 - x) * 8 + y, (7 - x) * 8 + 7 - y, x * 8 + 7 - y};
    return places[orientation - 1];
}

TEST_F(HostReport, TurnsWhatIsShownAsThePictureIsHeld) {
    const auto corner = [](uint32_t x, uint32_t y, uint32_t c) { return x < 24 && y < 10 ? 220u : dark(x, y, c); };
    JpegRecipe recipe{.width = 96, .height = 80};
    const Row stored = row_of("enhance", put("in.jpg", jpeg_file(recipe, corner)), {"--force"});
    for (uint32_t orientation = 1; orientation <= 8; ++orientation) {
        recipe.segments = {{0xe1, std::string("Exif\0\0", 6) + exif_of(orientation)}};
        const Row row = row_of("enhance", put("in.jpg", jpeg_file(recipe, corner)), {"--force"});
        const Pixels before = preview(row, "before");
        EXPECT_EQ(before.width, orientation < 5 ? 96u : 80u);
        EXPECT_EQ(row.data.at("width"), before.width);
        const std::string old_points = bytes_of_base64(stored.data.at("curves").at("points"));
        const std::string points = bytes_of_base64(row.data.at("curves").at("points"));
        for (size_t y = 0; y < 8; ++y) {
            for (size_t x = 0; x < 8; ++x) {
                const size_t from = stored_at(orientation, x, y);
                EXPECT_EQ(row.data.at("measures").at(0).at("scores").at(y * 8 + x),
                          stored.data.at("measures").at(0).at("scores").at(from));
                EXPECT_EQ(points.substr((y * 8 + x) * 256, 256), old_points.substr(from * 256, 256));
                const bool lit =
                    sample(before, (static_cast<double>(x) + 0.5) / 8, (static_cast<double>(y) + 0.5) / 8, 0) > 180;
                EXPECT_EQ(lit, from == 0 || from == 1) << orientation << ": " << x << ", " << y;
            }
        }
    }
}

TEST_F(HostReport, TurnsRedEyesWithThePicture) {
    JpegRecipe recipe{.width = eyes_width, .height = eyes_height, .quality = 98};
    recipe.segments = {{0xe1, std::string("Exif\0\0", 6) + exif_of(6)}};
    const Row row = row_of("redeye", put("in.jpg", jpeg_file(recipe, skin_with({{60, 60, 7, 0}}))),
                           {"--plain", "--model", put_model(path("model"))});
    ASSERT_EQ(row.data.at("places").size(), 1u);
    const auto box = row.data.at("places").at(0).at("box").get<std::array<double, 4>>();
    EXPECT_NEAR((box[0] + box[2]) / 2, 1 - 60.0 / eyes_height, 0.01);
    EXPECT_NEAR((box[1] + box[3]) / 2, 60.0 / eyes_width, 0.01);
}

TEST_F(HostReport, ShowsPicturesWithDamagedExifAsTheyAreStored) {
    const std::string whole = exif_of(6);
    for (const std::string &exif :
         {whole.substr(0, 15), whole.substr(0, 5), std::string("II*\0\xff\xff\xff\xff", 8), exif_of(9)}) {
        JpegRecipe recipe{.width = 96, .height = 80};
        recipe.segments = {{0xe1, std::string("Exif\0\0", 6) + exif}};
        EXPECT_EQ(row_of("enhance", put("in.jpg", jpeg_file(recipe, dark))).data.at("width"), 96);
    }
}

// ---- its place

TEST_F(HostReport, RefusesThePlacesOfOtherFiles) {
    const std::string in = put("in.png", dark_png());
    const std::string model = put_model(path("model"));
    expect_senseless(in, "cannot write " + in + ": it is an input");
    expect_senseless(path("out.png"), "cannot write " + path("out.png") + ": it is an output");
    expect_refused(path("none/page.html"), path("none") + ": no such folder");
    std::filesystem::create_directory(path("folder"));
    expect_refused(path("folder"), "cannot write " + path("folder") + ": a folder has this name");
    const Outcome outcome = run_command("redeye", {in}, path("out.png"), {"--model", model, "--report", model});
    expect_wrong_usage(outcome, "cannot write " + model + ": it is read by this command");
    EXPECT_EQ(read_bytes(in), dark_png());
}

TEST_F(HostReport, IsWholeOrNotThere) {
    const std::string in = put("in.png", dark_png());
    put("page.html", "old");
    const Outcome outcome = run_command("enhance", {in}, path("out.png"), {"-q", "--force", "--report", path("page.html")},
                                        {.largest_file = 30'000});
    expect_one_error(outcome, "cannot write " + path("page.html") + ": File too large");
    EXPECT_EQ(read_bytes(path("page.html")), "old");
    EXPECT_EQ(left(), (std::set<std::string>{"in.png", "out.png", "page.html"}));
}

TEST_F(HostReport, LeavesThePicturesAndLinesAsTheyAre) {
    const Words inputs = {put("a.png", eyes_png()), put("b.png", judged_png({}))};
    const Words options = {"--json", "--model", put_model(path("model"))};
    const Outcome plain = run_command("auto", inputs, path("plain/"), options);
    Words reporting = options;
    reporting.insert(reporting.end(), {"--report", path("page.html")});
    const Outcome outcome = run_command("auto", inputs, path("shown/"), reporting);
    ASSERT_EQ(outcome.out_lines().size(), plain.out_lines().size());
    for (size_t i = 0; i < inputs.size(); ++i) {
        Json one = Json::parse(plain.out_lines()[i]);
        Json other = Json::parse(outcome.out_lines()[i]);
        for (const char *key : {"seconds", "timings", "output"}) {
            one.erase(key);
            other.erase(key);
        }
        EXPECT_EQ(one, other);
    }
    for (const char *name : {"a.png", "b.png"}) {
        EXPECT_EQ(read_bytes(path(std::string("plain/") + name)), read_bytes(path(std::string("shown/") + name)));
    }
}

#ifndef __SANITIZE_ADDRESS__ // a sanitizer keeps memory that was freed
TEST_F(HostReport, KeepsThePicturesOutOfMemory) {
    const auto rough = [](uint32_t x, uint32_t y, uint32_t c) { return scatter(x + 1000 * c, y) % 100; };
    Words inputs;
    for (int i = 0; i < 24; ++i) {
        inputs.push_back(put("p" + std::to_string(i) + ".png", png_file({600, 400}, rough)));
    }
    const Words options = {"--force", "-j", "1", "--report", path("page.html")};
    // After a few pictures the allocator has what it reuses for all others.
    const Outcome few = run_command("enhance", {inputs.begin(), inputs.begin() + 4}, path("few/"), options);
    const Outcome many = run_command("enhance", inputs, path("many/"), options);
    EXPECT_EQ(many.status, 0);
    const uint64_t page = std::filesystem::file_size(path("page.html"));
    EXPECT_GT(page, 4u << 20);
    EXPECT_LT(many.peak_memory, few.peak_memory + page / 4);
}
#endif

} // namespace
