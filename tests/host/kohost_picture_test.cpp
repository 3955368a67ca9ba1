// The calls of kohost for pictures in memory: their pixels are those of the program for the same picture, and what they
// decide about pictures of every kind.
#include "host.h"
#include "kohost/kohost.hpp"

namespace {

using namespace ko_test;
using kohost::Decision;
using kohost::Enhancement;
using kohost::Judging;
using kohost::Policy;
using kohost::RedEyeDecision;

const ko::Library library;

constexpr Judging forced = {Policy::always, kohost::no_score};

kohost::Size size_of(const Pixels &picture) { return {picture.width, picture.height}; }

Enhancement enhance(Pixels &picture, const Judging &judging = {}, const kohost::Tuning &tuning = {}) {
    return kohost::enhance(picture.bytes.data(), size_of(picture), picture.channels, tuning, judging);
}

class KohostPicture : public Host {
  protected:
    // What a command of the program makes of a PNG file.
    Pixels by_program(const std::string &command, const std::string &input, const Words &options = {}) const {
        const std::string output = path("out.png");
        expect_success(run_command(command, {input}, output, options));
        return png_pixels(read_bytes(output));
    }
};

TEST_F(KohostPicture, EnhancedBytesAreThoseOfTheProgram) {
    for (const char *name : {"/astronaut.png", "/chelsea.png", "/coffee.png"}) {
        const std::string input = KO_SAMPLES + std::string(name);
        Pixels picture = png_pixels(read_bytes(input));
        const Pixels before = picture;
        const Enhancement enhancement = enhance(picture, forced);
        EXPECT_EQ(enhancement.decision, Decision::enhanced);
        EXPECT_NE(picture, before) << name;
        EXPECT_EQ(picture, by_program("enhance", input, {"--force"})) << name;
    }
}

TEST_F(KohostPicture, TheDecisionIsThatOfTheProgram) {
    const Sample bright = [](uint32_t x, uint32_t y, uint32_t c) { return 200 + (x / 8 + y / 8 + c) % 40; };
    const std::string without_shadows = put("bright.png", png_file({400, 300, 8, png_rgb, false, {}, {}}, bright));
    for (const auto &[input, decision] :
         {std::pair(KO_SAMPLES "/coffee.png", Decision::enhanced), {without_shadows.c_str(), Decision::turned_down}}) {
        const Pixels before = png_pixels(read_bytes(input));
        Pixels picture = before;
        const Enhancement enhancement = enhance(picture);
        EXPECT_EQ(enhancement.decision, decision) << enhancement.reason;
        EXPECT_EQ(picture == before, decision != Decision::enhanced);
        EXPECT_EQ(enhancement.curves != nullptr, decision == Decision::enhanced);
        EXPECT_EQ(enhancement.reason.empty(), decision == Decision::enhanced);
        EXPECT_EQ(picture, by_program("enhance", input));
    }
}

TEST_F(KohostPicture, SmallPicturesGetASmallerGridAndGrayOnesUnderOneTileStay) {
    Pixels small{6, 5, 3, std::vector<uint8_t>(6 * 5 * 3, 20)};
    const Enhancement enhancement = enhance(small, forced);
    EXPECT_EQ(enhancement.grid.columns, 3u);
    EXPECT_EQ(enhancement.grid.rows, 2u);
    EXPECT_EQ(KoTileTRCGetNumStripsX(enhancement.curves.get()), 3u);

    Pixels gray{64, 48, 1, std::vector<uint8_t>(64 * 48, 20)};
    kohost::Tuning one_tile;
    one_tile.grid = {1, 1};
    const Pixels before = gray;
    const Enhancement none = enhance(gray, forced, one_tile);
    EXPECT_EQ(none.decision, Decision::unchanged);
    EXPECT_EQ(none.reason, kohost::why_it_stays);
    EXPECT_EQ(none.curves, nullptr);
    EXPECT_EQ(gray, before);
}

TEST_F(KohostPicture, MeasuresAreTakenOnTheWorkingCopy) {
    const Pixels picture = png_pixels(read_bytes(KO_SAMPLES "/coffee.png"));
    const kohost::Pixels pixels{picture.bytes.data(), size_of(picture), picture.channels};
    kohost::Tuning tuning;
    tuning.working_area = 60'000;
    const kohost::Scores scores = kohost::scores_of(pixels, tuning, kohost::no_score);
    const kohost::Scores of_copy(kohost::working_copy_of(pixels, 60'000), tuning, kohost::no_score);
    const kohost::Scores of_whole(pixels, tuning, kohost::no_score);
    for (const kohost::Measure measure : {kohost::Measure::detail, kohost::Measure::entropy, kohost::Measure::noise}) {
        const auto found = *scores.of_blocks(measure);
        const auto expected = *of_copy.of_blocks(measure);
        const auto whole = *of_whole.of_blocks(measure);
        EXPECT_TRUE(std::equal(found.begin(), found.end(), expected.begin()));
        EXPECT_FALSE(std::equal(found.begin(), found.end(), whole.begin()));
    }
}

// Each pixel of a JPEG file becomes a square of a PNG file.
std::string enlarged_png(const std::string &jpeg, uint32_t times) {
    const Pixels picture = jpeg_pixels(read_bytes(jpeg));
    return png_file({picture.width * times, picture.height * times, 8, png_rgb, false, {}, {}},
                    [&](uint32_t x, uint32_t y, uint32_t c) -> uint32_t {
                        return picture.bytes[(y / times * picture.width + x / times) * 3 + c];
                    });
}

// At four times the size the faces are searched on a smaller copy.
TEST_F(KohostPicture, RepairedBytesAreThoseOfTheProgram) {
    const kohost::RedEyeModel model(KO_MODELS "/redeye/redeye.cfg");
    for (const uint32_t times : {1u, 4u}) {
        for (const char *face : {KO_SAMPLES "/face.jpg", KO_FACES "/normal.jpg"}) {
            const std::string input = put("face.png", enlarged_png(face, times));
            const Pixels before = png_pixels(read_bytes(input));
            Pixels picture = before;
            const kohost::RedEyes eyes =
                kohost::correct_red_eyes(picture.bytes.data(), size_of(picture), picture.channels, model, {}, nullptr);
            EXPECT_EQ(eyes.decision == RedEyeDecision::repaired, face == std::string(KO_SAMPLES "/face.jpg")) << face << times;
            EXPECT_EQ(picture == before, eyes.decision != RedEyeDecision::repaired) << face << times;
            EXPECT_EQ(picture, by_program("redeye", input)) << face << times;
        }
    }
}

TEST_F(KohostPicture, APlainRepairIsTheLibrarysOwn) {
    const kohost::RedEyeModel model(KO_MODELS "/redeye/redeye.cfg");
    kohost::RedEyeChoices choices;
    choices.plain = true;
    choices.full = true;
    const std::string input = put("face.png", enlarged_png(KO_SAMPLES "/face.jpg", 1));
    const Pixels before = png_pixels(read_bytes(input));
    Pixels picture = before;
    kohost::correct_red_eyes(picture.bytes.data(), size_of(picture), picture.channels, model, choices, nullptr);
    EXPECT_NE(picture, before);
    EXPECT_EQ(picture, by_program("redeye", input, {"--plain", "--full"}));
}

} // namespace
