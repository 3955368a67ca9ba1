// The program's use of the library when memory is short: each failure is reported, and nothing is left over or half done.
#include <algorithm>
#include <filesystem>
#include <regex>

#include <gtest/gtest.h>

#include "codec/codec.h"
#include "host/draw.h"
#include "host/grid_file.h"
#include "kohost/curves.h"
#include "kohost/plain_redeye.h"
#include "kohost/redeye.h"
#include "kohost/scores.h"

#include "faults.h"
#include "files.h"
#include "pictures.h"
#include "red_eye_pictures.h"

namespace {

using namespace ko_test;

codec::Picture make_picture(uint32_t channels) {
    codec::Picture picture;
    picture.width = 40;
    picture.height = 30;
    picture.channels = channels;
    const std::vector<uint8_t> bytes = photograph(40, 30, channels, 1);
    picture.pixels = std::make_unique<uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), picture.pixels.get());
    return picture;
}

std::vector<uint8_t> pixels_of(const codec::Picture &picture) {
    return {picture.pixels.get(), picture.pixels.get() + picture.area() * picture.channels};
}

kohost::Tuning few_tiles() {
    kohost::Tuning tuning;
    tuning.grid = {2, 2};
    return tuning;
}

void expect_allocator_in(const ko::Error &error) {
    const std::string text = error.what();
    const std::string chain = KoErrorGetLastErrorMessage();
    EXPECT_EQ(text.substr(text.find(": ") + 2), std::regex_replace(chain, std::regex("\n-> "), ": ")) << "one line";
    EXPECT_NE(text.find("Cannot allocate"), std::string::npos) << text;
}

// Sweeps over a step whose outcome is a value: when memory is short, it gives the same value or reports the failure.
template <class Step> void expect_told(const Step &step) {
    const auto reference = step();
    const int faults = sweep_faults([&] {
        try {
            EXPECT_EQ(step(), reference) << "a failure that was not told";
        } catch (const ko::Error &error) {
            expect_allocator_in(error);
        }
    });
    EXPECT_GT(faults, 3);
}

kohost::Pixels view(const codec::Picture &picture) {
    return {picture.pixels.get(), {picture.width, picture.height}, picture.channels};
}

constexpr kohost::Judging judged = {kohost::Policy::standard, kohost::no_score};

class PictureFaults : public testing::TestWithParam<uint32_t> {
  protected:
    const ko::Library library_;
    const codec::Picture picture_ = make_picture(GetParam());
    const TemporaryFile file_{"saved"};
};

TEST_P(PictureFaults, OfTheMeasuresAreReported) {
    expect_told([&] {
        kohost::Scores scores(view(picture_), few_tiles(), kohost::no_score);
        const kohost::Judgement judgement = scores.judgement();
        std::vector<float> all;
        for (const kohost::Measure measure : {kohost::Measure::detail, kohost::Measure::entropy, kohost::Measure::noise}) {
            const auto blocks = scores.of_blocks(measure);
            EXPECT_EQ(blocks.has_value(), measure != kohost::Measure::noise || picture_.channels == 3);
            if (blocks) {
                all.insert(all.end(), blocks->begin(), blocks->end());
            }
            all.push_back(static_cast<float>(kohost::value_of(judgement.values, measure).value_or(-1.0)));
        }
        return all;
    });
}

TEST_P(PictureFaults, OfTheScoreFileAreReported) {
    expect_told([&] {
        kohost::Scores scores(view(picture_), few_tiles(), kohost::no_score);
        scores.save(file_.c_str());
        return read_bytes(file_.path());
    });
}

ko::TileTRCPtr curves_of(const codec::Picture &picture) { return kohost::fit_curves(view(picture), few_tiles(), {2, 2}); }

// The bytes with the picture's curves applied.
std::vector<uint8_t> enhanced(const codec::Picture &picture) {
    const ko::TileTRCPtr curves = curves_of(picture);
    std::vector<uint8_t> bytes = pixels_of(picture);
    kohost::Application application(*curves, 0.5f, {picture.width, picture.height}, picture.channels);
    application.apply(picture.height, bytes.data());
    return bytes;
}

TEST_P(PictureFaults, OfTheCurvesAndTheirApplicationAreReported) {
    EXPECT_NE(enhanced(picture_), pixels_of(picture_));
    expect_told([&] { return enhanced(picture_); });
}

TEST_P(PictureFaults, OfTheDecisionAreReported) {
    const kohost::Pixels picture = view(picture_);
    kohost::Image halved{picture.size, picture.channels, pixels_of(picture_)};
    const kohost::WorkingCopy copy = kohost::make_working_copy(std::move(halved), {20, 15});
    ASSERT_FALSE(copy.sample.bytes.empty()) << "noise is measured on a picture of its own";
    expect_told([&] {
        const auto excess = kohost::reason_against(copy, few_tiles(), judged);
        return excess ? kohost::text_of(*excess) : "";
    });
}

TEST_P(PictureFaults, OfGridFilesAreReported) {
    const ko::TileTRCPtr curves = curves_of(picture_);
    for (const host::GridForm form : host::grid_forms) {
        expect_told([&] {
            host::save_grid(*curves, form, file_.path());
            const ko::TileTRCPtr again = host::load_grid(file_.path());
            return KoTileTRCCompare(curves.get(), again.get());
        });
    }
}

TEST_P(PictureFaults, OfTheDrawingAreReported) {
    const ko::TileTRCPtr curves = curves_of(picture_);
    expect_told([&] { return pixels_of(host::draw_curves(picture_, *curves)); });
}

codec::Picture picture_with_eyes() {
    codec::Picture picture;
    picture.width = eyes_width;
    picture.height = eyes_height;
    picture.channels = 3;
    picture.pixels = std::make_unique<uint8_t[]>(picture.area() * 3);
    uint8_t *byte = picture.pixels.get();
    for (uint32_t y = 0; y < eyes_height; ++y) {
        for (uint32_t x = 0; x < eyes_width; ++x) {
            for (uint32_t c = 0; c < 3; ++c) {
                *byte++ = static_cast<uint8_t>(skin_sample(four_eyes, x, y, c));
            }
        }
    }
    return picture;
}

// By the library alone, or with all that a host does.
kohost::RedEyes repaired(codec::Picture &picture, const std::string &model, const kohost::RedEyeChoices &choices) {
    if (choices.plain) {
        return kohost::repair_plainly(view(picture), picture.pixels.get(), model, choices, "eyes", nullptr);
    }
    const kohost::Size size = view(picture).size;
    const kohost::RedEyes eyes = kohost::find_red_eyes(view(picture), size, kohost::RedEyeModel(model), choices, nullptr);
    kohost::repair_red_eyes(picture.pixels.get(), size, eyes, choices);
    return eyes;
}

class RedEyeFaults : public testing::Test {
  protected:
    RedEyeFaults() {
        std::filesystem::create_directory(folder_.path());
        model_ = put_model(folder_.path() + "/model");
    }

    void expect_reports(const kohost::RedEyeChoices &choices, uint64_t places) const {
        codec::Picture reference = picture_with_eyes();
        const std::vector<uint8_t> before = pixels_of(reference);
        const kohost::RedEyes usual = repaired(reference, model_, choices);
        ASSERT_TRUE(usual.changed);
        ASSERT_EQ(usual.judged(), places);
        const int faults = sweep_faults([&] {
            codec::Picture picture = picture_with_eyes();
            try {
                const kohost::RedEyes eyes = repaired(picture, model_, choices);
                EXPECT_EQ(eyes.judged(), places) << "a failure that was taken for an answer";
                EXPECT_EQ(pixels_of(picture), pixels_of(reference)) << "a failure that was not told";
            } catch (const ko::Error &error) {
                EXPECT_EQ(pixels_of(picture), before);
                expect_allocator_in(error);
            }
        });
        EXPECT_GT(faults, 30);
    }

    const ko::Library library_;
    const TemporaryFile folder_{"model"};
    std::string model_;
};

TEST_F(RedEyeFaults, AreReportedAndLeaveThePictureAlone) {
    for (const bool full : {false, true}) {
        expect_reports({.plain = true, .full = full, .frames = true, .dump = folder_.path()}, 3);
    }
}

TEST_F(RedEyeFaults, OfTheWholeSearchAreReported) { expect_reports({.frames = true}, 4); }

TEST_F(RedEyeFaults, OfOnePictureAreForgottenAtTheNext) {
    const auto fail = [] { EXPECT_THROW(kohost::RedEyeModel("missing"), ko::Error); };
    fail();
    EXPECT_NE(KoErrorGetLastError(), KO_OK);
    EXPECT_EQ(kohost::RedEyeModel(model_).files().size(), 4u);
    fail();
    codec::Picture picture = picture_with_eyes();
    EXPECT_EQ(repaired(picture, model_, {.plain = true}).judged(), 3u);
}

TEST_F(RedEyeFaults, OfTheTrialAreReported) {
    expect_told([&] { return kohost::RedEyeModel(model_).files(); });
}

INSTANTIATE_TEST_SUITE_P(Host, PictureFaults, testing::Values(1u, 3u));

} // namespace
