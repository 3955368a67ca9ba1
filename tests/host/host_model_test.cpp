// The model that is installed with the program: found without an option, and with an eye for eyes. The faces are rendered.
#include <nlohmann/json.hpp>

#include "answers.h"
#include "host.h"
#include "image_files.h"

namespace {

using namespace ko_test;
using Json = nlohmann::json;

class HostModel : public Host {
  protected:
    static std::string face(const std::string &name) {
        return name == "red" ? KO_SAMPLES "/face.jpg" : KO_FACES "/" + name + ".jpg";
    }

    Json about(const std::string &name, const Words &options = {}) const {
        Words all = {"--json"};
        all.insert(all.end(), options.begin(), options.end());
        const Outcome outcome = run_command("redeye", {face(name)}, path(name + ".jpg"), all);
        expect_success(outcome);
        return Json::parse(outcome.out);
    }

    Pixels result(const std::string &name) const { return jpeg_pixels(read_bytes(path(name + ".jpg"))); }
};

// How much a pixel's red exceeds the greater of its green and blue.
int redness(const Pixels &pixels, uint32_t x, uint32_t y) {
    const uint8_t *pixel = pixels.bytes.data() + (y * pixels.width + x) * 3;
    return pixel[0] - std::max(pixel[1], pixel[2]);
}

struct Pupil {
    uint32_t x, y;
};
constexpr Pupil pupils[] /* beside the highlight */ = {{121, 101}, {231, 143}};

TEST_F(HostModel, RepairsTheRedEyesOfAFaceWithoutAnOption) {
    const Json answer = about("red");
    EXPECT_EQ(answer.at("decision"), "red eyes repaired");
    EXPECT_EQ(answer.at("accepted"), 2);
    const Pixels before = jpeg_pixels(read_bytes(face("red")));
    const Pixels after = result("red");
    for (const auto &[x, y] : pupils) {
        EXPECT_GT(redness(before, x, y), 80) << "the file shows red eyes";
        EXPECT_LT(redness(after, x, y), 30);
    }
    for (const Json &place : answer.at("places")) {
        EXPECT_EQ(place.at("label") == "accepted", place.at("score") > 0.5) << place;
    }
}

TEST_F(HostModel, LeavesAFaceWithBrownEyesAlone) {
    EXPECT_EQ(about("normal").at("decision"), "no red eyes");
    EXPECT_EQ(read_bytes(path("normal.jpg")), read_bytes(face("normal")));
}

// The corner of the mouth is as red and dark as a pupil, beside something white.
TEST_F(HostModel, LeavesAPortraitWithoutRedEyesAlone) {
    const std::string portrait = KO_SAMPLES "/astronaut.png";
    expect_success(run_command("redeye", {portrait}, path("out.png"), {}));
    EXPECT_EQ(read_bytes(path("out.png")), read_bytes(portrait));
}

TEST_F(HostModel, AcceptsMoreTheMoreEagerItIs) {
    const std::vector<std::string> sensitivities = {"careful", "default", "eager"};
    int before = 0;
    for (const std::string &sensitivity : sensitivities) {
        const int accepted = about("red", {"--sensitivity", sensitivity}).at("accepted");
        EXPECT_GE(accepted, before) << sensitivity;
        before = accepted;
    }
    EXPECT_EQ(without_times(about("red")), without_times(about("red", {"--sensitivity", "default"})));
}

// Each pixel of a picture becomes a square.
Sample enlarged(const Pixels &picture, uint32_t times) {
    return [&picture, times](uint32_t x, uint32_t y, uint32_t c) {
        return uint32_t{picture.bytes[(size_t{y / times} * picture.width + x / times) * 3 + c]};
    };
}

TEST_F(HostModel, RepairsALargePictureToThePixel) {
    constexpr uint32_t times = 6;
    const Pixels small = jpeg_pixels(read_bytes(face("red")));
    const std::string name =
        put("in.png", png_file({small.width * times, small.height * times, 8, png_rgb, false, {}, {}}, enlarged(small, times)));
    const Outcome outcome = run_command("redeye", {name}, path("out.png"), {"--json"});
    expect_success(outcome);
    const Json answer = Json::parse(outcome.out);
    EXPECT_EQ(answer.at("accepted"), 2);
    const Pixels before = png_pixels(read_bytes(name));
    const Pixels after = png_pixels(read_bytes(path("out.png")));
    for (const auto &[x, y] : pupils) {
        EXPECT_GT(redness(before, x * times, y * times), 80);
        EXPECT_LT(redness(after, x * times, y * times), 30);
    }
    const auto in_a_window = [&](uint32_t x, uint32_t y) {
        const Json &places = answer.at("places");
        return std::any_of(places.begin(), places.end(), [&](const Json &place) {
            const Json &window = place.at("window");
            return place.at("label") == "accepted" && x >= window.at(0) && y >= window.at(1) && x < window.at(2) &&
                   y < window.at(3);
        });
    };
    size_t changed = 0;
    size_t outside = 0;
    for (uint32_t y = 0; y < before.height; ++y) {
        for (uint32_t x = 0; x < before.width; ++x) {
            const size_t at = (size_t{y} * before.width + x) * 3;
            if (!std::equal(&before.bytes[at], &before.bytes[at] + 3, &after.bytes[at])) {
                ++changed;
                outside += in_a_window(x, y) ? 0 : 1;
            }
        }
    }
    EXPECT_GT(changed, 2 * 30 * times * times);
    EXPECT_EQ(outside, 0u);
}

TEST_F(HostModel, DrawsFramesAndScoresAtThePlaces) {
    const Pixels small = jpeg_pixels(read_bytes(face("red")));
    const std::string name =
        put("in.png", png_file({small.width, small.height, 8, png_rgb, false, {}, {}}, enlarged(small, 1)));
    const Outcome outcome = run_command("redeye", {name}, path("out.png"), {"--json", "--frames"});
    expect_success(outcome);
    const Pixels after = png_pixels(read_bytes(path("out.png")));
    const Json answer = Json::parse(outcome.out);
    ASSERT_EQ(answer.at("accepted"), 2);
    for (const Json &place : answer.at("places")) {
        const Json &window = place.at("window");
        const uint8_t *corner =
            &after.bytes[((window.at(3).get<size_t>() - 1) * after.width + window.at(2).get<size_t>() - 1) * 3];
        const std::vector<uint8_t> colour = {corner[0], corner[1], corner[2]};
        const std::string label = place.at("label");
        const std::vector<uint8_t> expected = label == "accepted"   ? std::vector<uint8_t>{0, 255, 0}
                                              : label == "rejected" ? std::vector<uint8_t>{255, 0, 0}
                                                                    : std::vector<uint8_t>{255, 255, 0};
        EXPECT_EQ(colour, expected) << place;
    }
}

TEST_F(HostModel, ListsThePlacesOnRequest) {
    const Outcome outcome = run_command("redeye", {face("red")}, path("red.jpg"), {"-v"});
    EXPECT_EQ(outcome.status, 0);
    size_t accepted = 0;
    for (const std::string &line : outcome.err_lines()) {
        accepted += matches(line, "^ko: .*: accepted: [0-9]+ x [0-9]+ pixels at [0-9]+, [0-9]+, [0-9]+ % sure$") ? 1 : 0;
    }
    EXPECT_EQ(accepted, 2u) << outcome.err;
}

TEST_F(HostModel, RepairsEverythingInFull) {
    const Json usual = about("red");
    const Json full = about("red", {"--full"});
    EXPECT_EQ(full.at("places"), usual.at("places"));
    EXPECT_EQ(about("normal", {"--full"}).at("decision"),
              about("normal").at("places").empty() ? "no red eyes" : "red eyes repaired");
}

TEST_F(HostModel, GivesWayToTheLibraryAlone) {
    const Json plain = about("red", {"--plain"});
    for (const Json &place : plain.at("places")) {
        EXPECT_FALSE(place.contains("score"));
    }
    EXPECT_GT(about("red").at("places").size(), 0u);
    expect_wrong_usage(run_command("redeye", {face("red")}, path("red.jpg"), {"--plain", "--sensitivity", "eager"}),
                       "--sensitivity excludes --plain (see ko redeye --help)");
    expect_wrong_usage(run_command("redeye", {face("red")}, path("red.jpg"), {"--dump", path("dump")}),
                       "--dump requires --plain (see ko redeye --help)");
}

TEST_F(HostModel, IsRefusedWithADamagedGate) {
    for (const std::string name : {"redeye.cfg", "redeye.projection", "redeye_RE_FE", "redeye_RE_BE", "redeye.gate"}) {
        put(name, read_bytes(KO_MODELS "/redeye/" + name));
    }
    const Words named = {"--model", path("redeye.cfg"), "--json"};
    const Outcome outcome = run_command("redeye", {face("red")}, path("red.jpg"), named);
    expect_success(outcome);
    EXPECT_EQ(without_times(Json::parse(outcome.out)), without_times(about("red")));
    const std::string gate = read_bytes(path("redeye.gate"));
    put("redeye.gate", gate.substr(0, gate.size() / 2));
    const Outcome damaged = run_command("redeye", {face("red")}, path("other.jpg"), named);
    EXPECT_EQ(damaged.status, 1);
    EXPECT_EQ(damaged.err, "ko: damaged gate of a red-eye model: " + path("redeye.gate") + "\n");
    EXPECT_FALSE(exists(path("other.jpg")));
}

TEST_F(HostModel, WorksInAuto) {
    const Outcome outcome = run_command("auto", {face("red")}, path("red.jpg"), {"--json"});
    expect_success(outcome);
    EXPECT_EQ(Json::parse(outcome.out).at("red_eyes").at("accepted"), 2);
    const Outcome without = run_command("auto", {face("red")}, path("red.jpg"), {"--json", "--model", "none"});
    EXPECT_EQ(Json::parse(without.out).at("red_eyes"), nullptr);
}

TEST_F(HostModel, MayBeMissingInRedeyeOnlyIfOneIsNamed) {
    expect_wrong_usage(run_command("redeye", {face("red")}, path("red.jpg"), {"--model", "none"}),
                       "no model: none is installed, and --model names none");
}

} // namespace
