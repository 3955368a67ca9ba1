// The program's use of the library when memory is short: each failure is told, and nothing is left over or half done.
#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "host/draw.h"
#include "host/enhance.h"
#include "host/files.h"
#include "host/grid_file.h"
#include "host/redeye.h"
#include "host/scores.h"

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

host::Tuning few_tiles() {
    host::Tuning tuning;
    tuning.grid = {2, 2};
    return tuning;
}

void expect_allocator_in(const host::LibraryError &error) {
    const std::string text = error.what();
    EXPECT_EQ(text.substr(text.find(": ") + 2), KoErrorGetLastErrorMessage());
    EXPECT_NE(text.find("Cannot allocate"), std::string::npos) << text;
}

// Sweeps over a step whose outcome is a value: with memory short it gives the same or tells.
template <class Step> void expect_told(const Step &step) {
    const auto reference = step();
    const int faults = sweep_faults([&] {
        try {
            EXPECT_EQ(step(), reference) << "a failure that was not told";
        } catch (const host::LibraryError &error) {
            expect_allocator_in(error);
        }
    });
    EXPECT_GT(faults, 3);
}

struct Case {
    uint32_t channels;
    host::Judging judging;
    host::Decision decision;
};

class EnhanceFaults : public testing::TestWithParam<Case> {};

TEST_P(EnhanceFaults, AreToldAndLeaveThePictureAlone) {
    const auto &[channels, judging, decision] = GetParam();
    const host::Library library;
    codec::Picture reference = make_picture(channels);
    const std::vector<uint8_t> before = pixels_of(reference);
    codec::Notices notices;
    const host::Enhancement usual = host::enhance(reference, few_tiles(), judging, notices, [](double) {});
    ASSERT_EQ(usual.decision, decision);
    ASSERT_EQ(pixels_of(reference) != before, decision == host::Decision::enhanced);
    const int faults = sweep_faults([&] {
        codec::Picture picture = make_picture(channels);
        try {
            const host::Enhancement enhancement = host::enhance(picture, few_tiles(), judging, notices, [](double) {});
            EXPECT_EQ(enhancement.decision, decision) << "a failure that was taken for an answer";
            EXPECT_EQ(enhancement.reason, usual.reason);
            EXPECT_EQ(pixels_of(picture), pixels_of(reference)) << "a failure that was not told";
        } catch (const host::LibraryError &error) {
            EXPECT_EQ(pixels_of(picture), before);
            expect_allocator_in(error);
        }
    });
    EXPECT_GT(faults, 10);
    EXPECT_EQ(notices, codec::Notices{});
}

constexpr host::Judging judged = {host::Policy::standard, host::no_score};
constexpr host::Judging forced = {host::Policy::always, host::no_score};

INSTANTIATE_TEST_SUITE_P(Host, EnhanceFaults,
                         testing::Values(Case{1, forced, host::Decision::enhanced}, Case{3, forced, host::Decision::enhanced},
                                         Case{1, judged, host::Decision::turned_down},
                                         Case{3, judged, host::Decision::enhanced}));

class PictureFaults : public testing::TestWithParam<uint32_t> {
  protected:
    const host::Library library_;
    const codec::Picture picture_ = make_picture(GetParam());
    const TemporaryFile file_{"saved"};
};

TEST_P(PictureFaults, OfTheMeasuresAreTold) {
    expect_told([&] {
        host::Scores scores(picture_, few_tiles(), host::no_score);
        const host::Judgement judgement = scores.judgement();
        std::vector<float> all;
        for (const host::Measure measure : {host::Measure::detail, host::Measure::entropy, host::Measure::noise}) {
            const auto blocks = scores.of_blocks(measure);
            EXPECT_EQ(blocks.has_value(), measure != host::Measure::noise || picture_.channels == 3);
            if (blocks) {
                all.insert(all.end(), blocks->begin(), blocks->end());
            }
            all.push_back(static_cast<float>(host::value_of(judgement.values, measure).value_or(-1.0)));
        }
        return all;
    });
}

TEST_P(PictureFaults, OfTheTableAndTheScoreFileAreTold) {
    expect_told([&] {
        host::Scores scores(picture_, few_tiles(), host::no_score);
        scores.save(file_.path());
        const std::string saved = read_bytes(file_.path());
        std::FILE *stream = std::fopen(file_.c_str(), "wb");
        try {
            scores.print(stream);
        } catch (...) {
            std::fclose(stream);
            throw;
        }
        std::fclose(stream);
        return saved + read_bytes(file_.path());
    });
}

host::TileTrcPtr curves_of(const codec::Picture &picture) {
    const host::ColorImagePtr image = host::image_of(picture);
    const host::FeaturesPtr features = host::make_features(few_tiles(), {2, 2});
    return host::make_curves(*features, *image, few_tiles(), forced);
}

TEST_P(PictureFaults, OfGridFilesAreTold) {
    const host::TileTrcPtr curves = curves_of(picture_);
    for (const host::GridForm form : host::grid_forms) {
        expect_told([&] {
            host::save_grid(*curves, form, file_.path());
            const host::TileTrcPtr again = host::load_grid(file_.path());
            return KoTileTRCCompare(curves.get(), again.get());
        });
    }
}

TEST_P(PictureFaults, OfTheDrawingAreTold) {
    expect_told([&] {
        KoStatusClear();
        const host::ColorImagePtr image = host::image_of(picture_);
        const host::FeaturesPtr features = host::make_features(few_tiles(), {2, 2});
        const host::TileTrcPtr curves = host::make_curves(*features, *image, few_tiles(), forced);
        return pixels_of(host::draw_curves(picture_, *curves, *features->luminance));
    });
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

class RedEyeFaults : public testing::Test {
  protected:
    RedEyeFaults() {
        std::filesystem::create_directory(folder_.path());
        model_ = put_model(folder_.path() + "/model");
    }

    const host::Library library_;
    const TemporaryFile folder_{"model"};
    std::string model_;
};

TEST_F(RedEyeFaults, AreToldAndLeaveThePictureAlone) {
    for (const bool full : {false, true}) {
        const host::RedEyeChoices choices = {.model = model_, .full = full, .frames = true, .dump = folder_.path()};
        codec::Picture reference = picture_with_eyes();
        const std::vector<uint8_t> before = pixels_of(reference);
        const host::RedEyes usual = host::repair_red_eyes(reference, choices, "eyes", nullptr);
        ASSERT_TRUE(usual.changed);
        ASSERT_EQ(usual.patches(), 3u);
        const int faults = sweep_faults([&] {
            codec::Picture picture = picture_with_eyes();
            try {
                const host::RedEyes eyes = host::repair_red_eyes(picture, choices, "eyes", nullptr);
                EXPECT_EQ(eyes.patches(), 3u) << "a failure that was taken for an answer";
                EXPECT_EQ(pixels_of(picture), pixels_of(reference)) << "a failure that was not told";
            } catch (const host::LibraryError &error) {
                EXPECT_EQ(pixels_of(picture), before);
                expect_allocator_in(error);
            }
        });
        EXPECT_GT(faults, 30);
    }
}

TEST_F(RedEyeFaults, OfOnePictureAreForgottenAtTheNext) {
    const auto fail = [] { EXPECT_THROW(host::try_model("missing"), host::LibraryError); };
    fail();
    EXPECT_NE(KoErrorGetLastError(), KO_OK);
    EXPECT_EQ(host::try_model(model_).size(), 4u);
    fail();
    codec::Picture picture = picture_with_eyes();
    EXPECT_EQ(host::repair_red_eyes(picture, {.model = model_, .dump = ""}, "eyes", nullptr).patches(), 3u);
}

TEST_F(RedEyeFaults, OfTheTrialAreTold) {
    expect_told([&] { return host::try_model(model_); });
}

INSTANTIATE_TEST_SUITE_P(Host, PictureFaults, testing::Values(1u, 3u));

} // namespace
