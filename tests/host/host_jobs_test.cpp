// Several pictures at once: whatever their number, the files, the lines and their order are as if one followed the other.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <thread>

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "answers.h"
#include "host.h"
#include "red_eye_pictures.h"

namespace {

using namespace ko_test;
using Json = nlohmann::json;
namespace fs = std::filesystem;

constexpr size_t picture_count = 12;

class HostJobs : public Host {
  protected:
    // Pictures with every outcome; long work comes before short, so that they do not end in their order.
    Words pictures() const {
        const std::string eyes = eyes_png();
        return {put("a.png", png_file({500, 400, 8, png_rgb, false, {}, {}}, dark)),
                put("b.png", png_file({20, 20, 16, png_rgb, false, {}, {}}, dark)),
                put("c.png", eyes),
                path("d.png"), // missing
                put("e.jpg", dark_jpeg({.sampling_x = 2, .sampling_y = 2, .progressive = true})),
                put("f.png", eyes.substr(0, 3000)),
                put("g.png", judged_png({64, 0, 0})),
                put("h.png", eyes_png(four_eyes, png_gray_alpha)),
                put("i.jpg", jpeg_file({.width = eyes_width, .height = eyes_height}, skin_with(four_eyes))),
                put("j.png", "no picture"),
                put("k.png", png_file({5, 9, 8, png_rgb, false, {}, {}}, dark)),
                put("l.jpg", dark_jpeg().substr(0, 900))};
    }

    Outcome run(const std::string &command, const Words &inputs, const std::string &output, const std::string &jobs,
                Words options, const Surroundings &surroundings = {}) const {
        options.insert(options.end(), {"--jobs", jobs});
        return run_command(command, inputs, output, options, surroundings);
    }

    // The files in a folder.
    std::map<std::string, std::string> files_in(const std::string &folder) const {
        std::map<std::string, std::string> files;
        for (const auto &entry : fs::directory_iterator(folder)) {
            files[entry.path().filename().string()] = read_bytes(entry.path().string());
        }
        return files;
    }
};

std::string timeless(const std::string &text) { return std::regex_replace(text, std::regex("[0-9]+\\.[0-9]+ s"), "x s"); }

bool appears(const std::string &path, std::chrono::seconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!fs::exists(path) && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return fs::exists(path);
}

TEST_F(HostJobs, GoOnWhileOneOfThemWaits) {
    const std::string slow = path("slow.jpg");
    ASSERT_EQ(mkfifo(slow.c_str(), 0600), 0);
    const std::string quick = put("quick.png", dark_png());
    bool appeared = false;
    std::jthread writer([&] { // the first picture's bytes come when the second one is done
        appeared = appears(path("out/quick.png"), std::chrono::seconds(30));
        std::ofstream(slow) << dark_jpeg();
    });
    const Outcome outcome = run("enhance", {slow, quick}, path("out"), "2", {"--force"});
    writer.join();
    EXPECT_TRUE(appeared) << "one after the other";
    expect_success(outcome);
    ASSERT_EQ(outcome.out_lines().size(), 2u);
    EXPECT_TRUE(outcome.out_lines()[0].starts_with(slow)) << outcome.out;
}

struct Run {
    std::string command;
    Words options;
};

std::vector<Run> runs(const std::string &model) {
    return {{"enhance", {"--force"}},
            {"enhance", {"--working-size", "0.05"}},
            {"enhance", {"--timings"}},
            {"redeye", {"--model", model}},
            {"redeye", {"--model", model, "--full", "--frames", "--log"}},
            {"redeye", {"--model", model, "--plain", "--frames", "--log"}},
            {"auto", {"--model", model, "--force", "--log"}},
            {"auto", {"--model", model}}};
}

TEST_F(HostJobs, ChangeNoFileAndNoLine) {
    const Words inputs = pictures();
    ASSERT_EQ(inputs.size(), picture_count);
    for (const auto &[command, options] : runs(put_model(path("model")))) {
        SCOPED_TRACE(command + " " + testing::PrintToString(options));
        const Outcome one = run(command, inputs, path("out"), "1", options);
        EXPECT_EQ(one.status, 1);
        EXPECT_EQ(one.out_lines().size(), 8u);
        const auto files = files_in(path("out"));
        EXPECT_EQ(files.size(), 8u);
        for (const std::string jobs : {"2", "4", "40"}) {
            fs::remove_all(path("out"));
            const Outcome many = run(command, inputs, path("out"), jobs, options);
            EXPECT_EQ(many.status, 1);
            EXPECT_EQ(timeless(many.out), timeless(one.out)) << jobs;
            EXPECT_EQ(timeless(many.err), timeless(one.err)) << jobs;
            EXPECT_TRUE(files_in(path("out")) == files) << jobs;
        }
        fs::remove_all(path("out"));
    }
}

TEST_F(HostJobs, ChangeNoLineOfTheGridsAndTheJudgement) {
    const Words inputs = pictures();
    expect_success(run_command("curves", {inputs[0]}, path("grid"), {"--grid", "2x2"}));
    Words with_grid = inputs;
    with_grid.insert(with_grid.begin(), path("grid"));
    const Outcome one = run("apply", with_grid, path("one"), "1", {});
    const Outcome many = run("apply", with_grid, path("one"), "4", {});
    EXPECT_EQ(one.out_lines().size(), 8u);
    EXPECT_EQ(timeless(many.out), timeless(one.out));
    EXPECT_EQ(many.err, one.err);
    for (const Words &options : {Words{}, Words{"--json"}}) {
        const Outcome first = run("judge", inputs, "", "1", options);
        const Outcome second = run("judge", inputs, "", "4", options);
        EXPECT_EQ(second.out, first.out);
        EXPECT_EQ(second.err, first.err);
        EXPECT_EQ(first.err_lines().size(), 5u);
    }
}

// What is reported as JSON, without the times.
std::vector<Json> objects_in(const Outcome &outcome) {
    std::vector<Json> objects;
    for (const std::string &line : outcome.out_lines()) {
        const Json object = Json::parse(line);
        objects.push_back(object.contains("error") ? object : without_times(object));
    }
    return objects;
}

TEST_F(HostJobs, ChangeNoObject) {
    const Words inputs = pictures();
    for (const auto &[command, options] : runs(put_model(path("model")))) {
        Words words = options;
        words.push_back("--json");
        const std::vector<Json> one = objects_in(run(command, inputs, path("out"), "1", words));
        ASSERT_EQ(one.size(), picture_count);
        for (size_t i = 0; i < picture_count; ++i) {
            EXPECT_EQ(one[i].at("file"), inputs[i]);
            EXPECT_EQ(one[i].contains("error"), i == 3 || i == 5 || i == 9 || i == 11) << inputs[i];
        }
        EXPECT_EQ(objects_in(run(command, inputs, path("out"), "4", words)), one) << command;
    }
}

// On a terminal, where everything that is reported is in one stream.
TEST_F(HostJobs, LeaveMessagesAtTheirPlace) {
    const Words inputs = pictures();
    const Words names = {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l"};
    for (const std::string jobs : {"1", "4"}) {
        const Outcome outcome = run("enhance", inputs, path("out"), jobs, {"--force"}, {.terminal = true});
        const Words lines = shown_on_screen(outcome.out);
        std::string order;
        for (const std::string &line : lines) {
            if (!line.empty() && !line.starts_with("12 of 12 pictures: ")) {
                EXPECT_TRUE(line.starts_with(path("")) || line.starts_with("ko: " + path(""))) << line;
                order += line.substr(line.find(path("")) + path("").size(), 1);
            }
        }
        // Notices about 16 bits and about the smaller grid come before the lines of their pictures.
        EXPECT_EQ(order, "abbcdefghijkkl") << outcome.out;
        ASSERT_EQ(lines.size(), picture_count + 4);
        EXPECT_EQ(lines[1], "ko: " + inputs[1] + ": notice: 16 bits per channel reduced to 8");
        EXPECT_EQ(lines[4], "ko: " + inputs[3] + ": cannot be read: No such file or directory");
        EXPECT_EQ(lines[6], "ko: " + inputs[5] + ": truncated PNG file");
        EXPECT_EQ(lines[10], "ko: " + inputs[9] + ": a text file, not a picture");
        EXPECT_EQ(lines[13], "ko: " + inputs[11] + ": premature end of JPEG file");
    }
}

TEST_F(HostJobs, LeaveLogsAtTheirPlace) {
    const Words inputs = pictures();
    const Words options = {"--model", put_model(path("model")), "--log"};
    const Words one = shown_on_screen(timeless(run("redeye", inputs, path("out"), "1", options, {.terminal = true}).out));
    const Words many = shown_on_screen(timeless(run("redeye", inputs, path("out"), "4", options, {.terminal = true}).out));
    ASSERT_EQ(many.size(), one.size());
    for (size_t i = 0; i < one.size(); ++i) {
        EXPECT_EQ(many[i], one[i]) << "line " << i;
    }
    EXPECT_GT(one.size(), 2 * picture_count);
}

TEST_F(HostJobs, ManySmallPicturesStayInOrder) {
    Words inputs;
    std::string expected;
    for (int i = 0; i < 60; ++i) {
        const std::string name = "p" + std::to_string(i) + ".png";
        inputs.push_back(i % 7 == 3 ? path(name) : put(name, png_file({16, 16, 8, png_rgb, false, {}, {}}, dark)));
        expected += i % 7 == 3 ? "" : inputs.back() + ": 16 x 16, enhanced, x s\n";
    }
    for (const std::string jobs : {"1", "8"}) {
        EXPECT_EQ(timeless(run("enhance", inputs, path("out"), jobs, {"--force"}).out), expected);
    }
}

} // namespace
