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
    static std::string face(const std::string &name) { return KO_FACES "/" + name + ".jpg"; }

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
