// The categorisation of blobs: the readers of the three kinds of model file, patches, scores and labels, compared with the
// plain judgement. Most tests work on image records made by hand, as the location of blobs leaves them.
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "ko.h"

#include "awkward_floats.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"
#include "redeye_model.h"
#include "redeye_scene.h"
#include "reference_redeye_judgement.h"
#include "working_folder.h"

namespace {

using namespace ko_test;

class RedEyeCategorizeTest : public LibraryTest {};

// Runs the stage with a log and compares all that it leaves with the plain judgement. Gives its status.
int32_t expect_stage(RedEyeCorrection *rec, RedEyeImageParam *param) {
    const RedEyePlanes before = planes_of(param->image);
    const ReferenceJudgement expected(*rec, *param, before);
    const RedEyeLog log(*rec);
    KoStatusClear();
    const PrintCapture printed;
    const int32_t status = KoRedEyeCorrectionCategorizeBlobs(rec, param);
    expect_judged(expected, *rec, *param, status);
    if (!expected.model.hostile) {
        expect_status(expected.last_status, expected.chain);
        EXPECT_EQ(log.text(), expected.log);
    }
    EXPECT_EQ(printed.texts().empty(), expected.chain.find("[INTERNAL ERROR]") == std::string::npos || expected.model.hostile);
    EXPECT_EQ(planes_of(param->image), before);
    KoStatusClear();
    return status;
}

// The stage fails with exactly this report at the level of an error, also printed at verbosity "error".
void expect_stage_error(RedEyeCorrection *rec, RedEyeImageParam *param, int32_t code, const std::string &text) {
    expect_error(code, text, [&] { return KoRedEyeCorrectionCategorizeBlobs(rec, param); });
}

std::string cannot_open(const std::string &path) {
    return std::string("Cannot open file \"").append(path).append("\" for reading");
}

std::string cannot_read(const std::string &path) { return std::string("Cannot read file \"").append(path).append("\""); }

std::string cannot_read_line(const std::string &path, size_t line) {
    return std::string("Read error in file \"").append(path).append("\", line ").append(std::to_string(line));
}

const std::vector<Box> some_boxes = {{40, 50, 40, 48}, {80, 86, 30, 42}, {30, 33, 70, 74}};

ColorImagePtr small_picture() { return eye_picture(120, 100, {{45, 44, 5}, {83, 36, 6}, {31, 72, 2}}, 5); }

// One blob in a picture of noise, for the many runs of the hostile files.
struct OneBlob {
    ColorImagePtr picture = eye_picture(24, 24, {{12, 12, 3}}, 3);
    RedEyeImageParamPtr param(bool with_blob) const {
        return make_param(picture.get(), with_blob ? std::vector<Box>{{10, 13, 11, 13}} : std::vector<Box>());
    }
};

// ---- the model ----

TEST_F(RedEyeCategorizeTest, AModelIsReadAndPatchesAreJudgedBitForBit) {
    const ColorImagePtr picture = small_picture();
    uint64_t labels[3] = {0, 0, 0};
    for (int32_t channels = 1; channels <= 3; ++channels) {
        for (uint32_t seed = 1; seed <= 6; ++seed) {
            SCOPED_TRACE(testing::Message() << channels << " channels, seed " << seed);
            const ModelFiles files(make_model(channels, seed));
            const RedEyeCorrectionPtr rec = make_correction(files.configuration(), channels);
            const RedEyeImageParamPtr param = make_param(picture.get(), some_boxes);
            EXPECT_EQ(expect_stage(rec.get(), param.get()), KO_OK);
            labels[KO_PATCH_UNDECIDED] += param->undecided_count;
            labels[KO_PATCH_ACCEPTED] += param->accepted_count;
            labels[KO_PATCH_REJECTED] += param->rejected_count;
        }
    }
    EXPECT_GT(labels[KO_PATCH_UNDECIDED], 0u);
    EXPECT_GT(labels[KO_PATCH_ACCEPTED], 0u);
    EXPECT_GT(labels[KO_PATCH_REJECTED], 0u);
}

TEST_F(RedEyeCategorizeTest, ConfigurationsOfManyKinds) {
    const ColorImagePtr picture = small_picture();
    std::vector<ModelConfiguration> configurations(6);
    configurations[0] = tiny_configuration();
    configurations[1].patch_size = 16; // the filter reaches one pixel beyond the border
    configurations[1].gradient_sigma = 0.15;
    configurations[2].patch_size = 12;
    configurations[2].grid_size = 3;
    configurations[2].bin_count = 7;
    configurations[3].weight_threshold = 10.0; // no pixel has a weight
    configurations[4].patch_size = 32;         // all patches grow
    configurations[5].gradient_sigma = 0.0;    // neither border nor gradient: the features are NaN
    for (size_t i = 0; i < configurations.size(); ++i) {
        SCOPED_TRACE(i);
        const ModelFiles files(make_model(3, 9, configurations[i]));
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
        const RedEyeImageParamPtr param = make_param(picture.get(), some_boxes);
        EXPECT_EQ(expect_stage(rec.get(), param.get()), KO_OK);
    }
}

TEST_F(RedEyeCategorizeTest, ConfigurationValuesGoToTheirFields) {
    ModelConfiguration configuration;
    configuration.patch_size = 40;
    configuration.gradient_sigma = 0.25;
    const ModelFiles files(make_model(3, 2, configuration));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    const OneBlob scene;
    EXPECT_EQ(expect_stage(rec.get(), scene.param(false).get()), KO_OK);
    EXPECT_EQ(rec->patch_geometry.patch_size, 40);
    EXPECT_EQ(rec->patch_geometry.patch_border, 30);
    EXPECT_EQ(rec->patch_geometry.padded_pixels, 4900);
    EXPECT_EQ(rec->patch_geometry.position_step, 16);
    EXPECT_EQ(rec->patch_geometry.position_count, 8); // (30 / 16 + 1) squared is 8.27
    EXPECT_EQ(rec->histogram_layout.cell_count, 4);
    EXPECT_EQ(rec->histogram_layout.feature_length, 16);
    EXPECT_EQ(rec->histogram_layout.spare_value, 1.5f);
    EXPECT_EQ(rec->histogram_layout.window_sigma, 0.625f);
    EXPECT_EQ(rec->fe_accept, 0.6f);
    EXPECT_EQ(rec->be_reject, 0.4f);
    EXPECT_EQ(rec->orientation_histogram->geometry, &rec->patch_geometry);
    EXPECT_EQ(rec->orientation_histogram->layout, &rec->histogram_layout);
}

TEST_F(RedEyeCategorizeTest, APictureWithoutBlobsReadsTheModelAllTheSame) {
    const OneBlob scene;
    const ModelFiles files(make_model(3, 1));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    const RedEyeImageParamPtr param = scene.param(false);
    const RedEyeLog log(*rec);
    expect_success([&] { return KoRedEyeCorrectionCategorizeBlobs(rec.get(), param.get()); });
    EXPECT_EQ(log.text(), "-> patch classification results: 0 accepted, 0 rejected, and 0 undecided patches \n");
    ASSERT_NE(rec->orientation_histogram, nullptr);
    EXPECT_EQ(rec->orientation_histogram->patch_count, 0);
    EXPECT_NE(rec->projection_matrix, nullptr);
    EXPECT_NE(rec->be_weights, nullptr);
}

TEST_F(RedEyeCategorizeTest, AnOldStatusOfTheThreadIsNoFailure) {
    const OneBlob scene;
    const ModelFiles files(make_model(3, 1));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    for (const bool with_blob : {false, true}) {
        const RedEyeImageParamPtr param = scene.param(with_blob);
        KoMessageSetStatus(KO_ERR_FATAL);
        EXPECT_EQ(KoRedEyeCorrectionCategorizeBlobs(rec.get(), param.get()), KO_OK);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_FATAL);
        EXPECT_EQ(rec->orientation_histogram->patch_count, with_blob ? 1 : 0);
        KoStatusClear();
    }
}

TEST_F(RedEyeCategorizeTest, RepeatedReadingsGiveTheSameAndFollowTheFiles) {
    const ColorImagePtr picture = small_picture();
    const ModelFiles files(make_model(3, 1));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    for (const uint32_t seed : {1u, 1u, 2u, 3u, 3u}) {
        files.write(make_model(3, seed));
        const RedEyeImageParamPtr param = make_param(picture.get(), some_boxes);
        EXPECT_EQ(expect_stage(rec.get(), param.get()), KO_OK);
    }
    std::filesystem::remove(files.be());
    EXPECT_EQ(expect_stage(rec.get(), make_param(picture.get(), some_boxes).get()), KO_ERR_OPEN_READ);
    files.write(make_model(3, 4));
    EXPECT_EQ(expect_stage(rec.get(), make_param(picture.get(), some_boxes).get()), KO_OK);
}

TEST_F(RedEyeCategorizeTest, PresetRowsKeepTheLeadingRowsOfTheFirstReading) {
    const OneBlob scene;
    Model model = make_model(2, 1);
    Noise noise(4);
    const int32_t length = model.configuration.feature_length();
    model.projection = make_projection(length + 5, 2 * length, noise);
    const ModelFiles files(model);
    for (const int32_t preset : {0, length, length + 1, length + 5}) {
        SCOPED_TRACE(preset);
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 2);
        rec->projection_rows = preset;
        EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
        EXPECT_EQ(rec->projection_rows, length + 5);
        EXPECT_EQ(rec->projection_matrix->height, static_cast<uint64_t>(preset == 0 ? length + 5 : preset));
        EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
        EXPECT_EQ(rec->projection_matrix->height, static_cast<uint64_t>(length + 5));
    }
}

TEST_F(RedEyeCategorizeTest, MorePresetRowsThanTheFileHasAreAnInternalError) {
    const OneBlob scene;
    const Model model = make_model(3, 1);
    const ModelFiles files(model);
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    rec->projection_rows = model.projection.rows + 1;
    const RedEyeImageParamPtr param = scene.param(true);
    {
        const PrintCapture printed;
        EXPECT_EQ(KoRedEyeCorrectionCategorizeBlobs(rec.get(), param.get()), KO_ERR_INVALID_ARGUMENT);
        expect_status(KO_ERR_INVALID_ARGUMENT, "[INTERNAL ERROR] Invalid argument");
        EXPECT_EQ(printed.texts(), std::vector<std::string>{"[INTERNAL ERROR] Invalid argument"});
    }
    EXPECT_EQ(rec->projection_rows, model.projection.rows); // the file's, as soon as it is read
    EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
}

TEST_F(RedEyeCategorizeTest, RowsOfAFileThatBrokeOffCountAtTheNextReading) {
    const OneBlob scene;
    const Model good = make_model(3, 1);
    Model broken = good;
    broken.projection.rows += 100;
    const ModelFiles files(broken);
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_ERR_READ_FILE);
    EXPECT_EQ(rec->projection_rows, broken.projection.rows);
    files.write(good);
    EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
}

TEST_F(RedEyeCategorizeTest, BiasesAreTakenAsRawBits) {
    const OneBlob scene;
    Model model = make_model(3, 1);
    model.fe.bias = 0x7f800001u; // a NaN that arithmetic would change
    model.be.bias = 0x80000001u;
    const ModelFiles files(model);
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
    uint32_t bits = 0;
    std::memcpy(&bits, &rec->fe_bias, 4);
    EXPECT_EQ(bits, 0x7f800001u);
}

// ---- the lines ----

TEST_F(RedEyeCategorizeTest, CarriageReturnsBeforeLineFeedsAreRemoved) {
    const OneBlob scene;
    const Model model = make_model(3, 1);
    const ModelFiles files(model);
    const std::vector<std::string> lines = configuration_lines(model.configuration);
    std::string without_end = join(lines);
    without_end.pop_back();
    std::string return_at_end = join(lines, "\r\n");
    return_at_end.pop_back();
    for (const std::string &text : {join(lines, "\r\n"), without_end, return_at_end, join(lines) + "more\nlines\n"}) {
        files.write_configuration(text);
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
        EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
        EXPECT_EQ(std::string(rec->classifier_path), files.stem());
        EXPECT_EQ(std::string(rec->projection_path), files.projection());
    }
}

#ifndef _WIN32 // where the stream itself may take carriage returns away
TEST_F(RedEyeCategorizeTest, OnlyOneCarriageReturnIsRemoved) {
    const OneBlob scene;
    const Model model = make_model(3, 1);
    const ModelFiles files(model);
    files.write_configuration(join(configuration_lines(model.configuration), "\r\r\n"));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    expect_stage_error(rec.get(), scene.param(true).get(), KO_ERR_OPEN_READ, cannot_open(files.projection() + "\r"));
}
#endif

TEST_F(RedEyeCategorizeTest, CaptionsMayHoldAnything) {
    const OneBlob scene;
    const Model model = make_model(3, 1);
    const ModelFiles files(model);
    std::vector<std::string> lines = configuration_lines(model.configuration);
    for (size_t i = 0; i < lines.size(); i += 2) {
        lines[i] = i % 4 == 0 ? "" : std::string(1022, '7'); // as long as a line may be with its line feed
    }
    files.write_configuration(join(lines));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
}

TEST_F(RedEyeCategorizeTest, ALineThatIsTooLongIsReadInPieces) {
    const OneBlob scene;
    const Model model = make_model(3, 1);
    const ModelFiles files(model);
    for (const size_t length : {1023u, 1024u, 2046u, 5000u}) {
        SCOPED_TRACE(length);
        std::vector<std::string> lines = configuration_lines(model.configuration);
        lines[0] = std::string(length, 'c');
        files.write_configuration(join(lines));
        RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
        expect_stage(rec.get(), scene.param(true).get());
        lines[0].resize(1022);
        lines[1] = "  8 patch";
        lines[26] = std::string(length, 'p'); // the caption before the projection's name
        files.write_configuration(join(lines));
        rec = make_correction(files.configuration(), 3);
        EXPECT_NE(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
    }
    // A first line of two pieces makes its own rest the second line.
    std::vector<std::string> lines = configuration_lines(model.configuration);
    lines.erase(lines.begin() + 1);
    lines[0] = std::string(1023, '1').append("8");
    files.write_configuration(join(lines));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
    EXPECT_EQ(rec->patch_geometry.patch_size, 8);
}

TEST_F(RedEyeCategorizeTest, AnEmptyConfigurationLeavesEveryValueAtZero) {
    const OneBlob scene;
    const ModelFiles files(make_model(3, 1));
    files.write_configuration("");
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    rec->fe_accept = 3.0f;
    const RedEyeImageParamPtr param = scene.param(true);
    EXPECT_EQ(KoRedEyeCorrectionCategorizeBlobs(rec.get(), param.get()), KO_ERR_READ_LINE);
    const std::string chain = KoErrorGetLastErrorMessage();
    EXPECT_NE(chain.find(std::string("[ERROR] ").append(cannot_read_line(files.configuration(), 0))), std::string::npos);
    EXPECT_EQ(rec->patch_geometry.patch_size, 0);
    EXPECT_EQ(rec->histogram_layout.bin_count, 0);
    EXPECT_EQ(rec->histogram_layout.weight_threshold, 0.0f);
    EXPECT_EQ(rec->fe_accept, 0.0f);
    EXPECT_EQ(rec->patch_geometry.position_step, 16);
    EXPECT_EQ(param->patches, nullptr);
}

TEST_F(RedEyeCategorizeTest, AFailedLineLeavesTheLastOneForAllThatFollow) {
    const OneBlob scene;
    const ModelFiles files(make_model(3, 1));
    files.write_configuration("a\n4\nb\n2\nc\n1\nd\n0.25\ne\n3.5\n");
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    const RedEyeImageParamPtr param = scene.param(true);
    expect_stage_error(rec.get(), param.get(), KO_ERR_READ_LINE, cannot_read_line(files.configuration(), 10));
    EXPECT_EQ(rec->patch_geometry.patch_size, 4);
    EXPECT_EQ(rec->histogram_layout.gradient_sigma, 0.25f);
    EXPECT_EQ(rec->histogram_layout.orientation_sigma, 3.5f);
    EXPECT_EQ(rec->be_reject, 3.5f);
    EXPECT_EQ(std::string(rec->projection_path), files.inside("3.5"));
    EXPECT_EQ(std::string(rec->classifier_path), files.inside("3.5"));
    EXPECT_NE(rec->orientation_histogram, nullptr);
    EXPECT_EQ(rec->projection_mean, nullptr);
}

// ---- the paths ----

TEST_F(RedEyeCategorizeTest, GivenPathsWinOverTheLines) {
    const OneBlob scene;
    Model model = make_model(3, 1);
    const ModelFiles other(model);
    model.configuration.projection = "nowhere";
    model.configuration.classifier = "nobody";
    const ModelFiles files(model);
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
    KoRedEyeCorrectionSetCategorizerConfig(rec.get(), files.configuration().c_str(), other.projection().c_str(),
                                           other.stem().c_str());
    EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
    EXPECT_EQ(std::string(rec->projection_path), other.projection());
    KoRedEyeCorrectionSetCategorizerConfig(rec.get(), files.configuration().c_str(), other.projection().c_str(), nullptr);
    expect_stage_error(rec.get(), scene.param(true).get(), KO_ERR_OPEN_READ, cannot_open(files.inside("nobody_RE_FE")));
}

TEST_F(RedEyeCategorizeTest, PathsOfTheFirstConfigurationStay) {
    const OneBlob scene;
    const ModelFiles first(make_model(3, 1));
    const ModelFiles second(make_model(3, 2));
    const RedEyeCorrectionPtr rec = make_correction(first.configuration(), 3);
    EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
    std::snprintf(rec->config_path, KO_REDEYE_PATH_SIZE, "%s", second.configuration().c_str());
    EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
    EXPECT_EQ(std::string(rec->projection_path), first.projection());
    EXPECT_EQ(std::string(rec->classifier_path), first.stem());
}

TEST_F(RedEyeCategorizeTest, TheDirectoryEndsAtTheLastSlashOrBackslash) {
    const OneBlob scene;
    const WorkingFolder folder;
    const Model model = make_model(3, 1);
    std::filesystem::create_directories("a/b");
    std::filesystem::create_directories("a\\b");
    for (const std::string &directory : {std::string(""), std::string("a/"), std::string("a\\"), std::string("a/b\\"),
                                         std::string("a\\b/"), std::string("./a/b/")}) {
        SCOPED_TRACE(directory);
        const auto inside = [&](const char *name) { return std::string(directory).append(name); };
        write_bytes(inside("config.txt"), join(configuration_lines(model.configuration)));
        write_bytes(inside("projection.bin"), model.projection.bytes());
        write_bytes(inside("model_RE_FE"), model.fe.bytes());
        write_bytes(inside("model_RE_BE"), model.be.bytes());
        const RedEyeCorrectionPtr rec = make_correction(inside("config.txt"), 3);
        EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
        EXPECT_EQ(std::string(rec->projection_path), inside("projection.bin"));
        EXPECT_EQ(std::string(rec->classifier_path), inside("model"));
    }
}

TEST_F(RedEyeCategorizeTest, APathFromTheConfigurationHasRoomFor259Characters) {
    const OneBlob scene;
    const WorkingFolder folder; // so that the directory is empty
    for (const bool classifier : {false, true}) {
        for (const size_t length : {259u, 260u, 1000u}) {
            SCOPED_TRACE(testing::Message() << (classifier ? "classifier, " : "projection, ") << length);
            Model model = make_model(3, 1);
            std::string &line = classifier ? model.configuration.classifier : model.configuration.projection;
            line = std::string(length, 'x');
            write_bytes("projection.bin", model.projection.bytes());
            write_bytes("config.txt", join(configuration_lines(model.configuration)));
            const RedEyeCorrectionPtr rec = make_correction("config.txt", 3);
            const RedEyeImageParamPtr param = scene.param(true);
            const char *path = classifier ? rec->classifier_path : rec->projection_path;
            if (length < KO_REDEYE_PATH_SIZE) {
                const std::string file = classifier ? std::string(line).append("_RE_FE") : line;
                expect_stage_error(rec.get(), param.get(), KO_ERR_OPEN_READ, cannot_open(file));
                EXPECT_EQ(std::string(path), line);
            } else {
                expect_stage_error(rec.get(), param.get(), KO_ERR_INVALID_ARGUMENT, "Invalid argument");
                EXPECT_EQ(std::string(path), "");
            }
        }
    }
}

// ---- missing and broken files ----

TEST_F(RedEyeCategorizeTest, MissingFilesAreTold) {
    const OneBlob scene;
    const ModelFiles files(make_model(3, 1));
    const std::string order[] = {files.be(), files.fe(), files.projection(), files.configuration()};
    for (const std::string &path : order) {
        std::filesystem::remove(path);
        for (const bool with_blob : {false, true}) {
            const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 3);
            expect_stage_error(rec.get(), scene.param(with_blob).get(), KO_ERR_OPEN_READ, cannot_open(path));
            EXPECT_EQ(expect_stage(rec.get(), scene.param(with_blob).get()), KO_ERR_OPEN_READ);
        }
    }
    const RedEyeCorrectionPtr rec = make_correction("", 3);
    expect_stage_error(rec.get(), scene.param(true).get(), KO_ERR_OPEN_READ, cannot_open(""));
}

// The classification line is written at the end of the stage, however it ended.
TEST_F(RedEyeCategorizeTest, AFailedReadingLogsAllTheSame) {
    const OneBlob scene;
    const RedEyeCorrectionPtr rec = make_correction("no such file", 3);
    const RedEyeLog log(*rec);
    EXPECT_EQ(KoRedEyeCorrectionCategorizeBlobs(rec.get(), scene.param(true).get()), KO_ERR_OPEN_READ);
    EXPECT_EQ(log.text(), "-> patch classification results: 0 accepted, 0 rejected, and 0 undecided patches \n");
}

using Paths = std::vector<std::string>;

Paths binary_paths(const ModelFiles &files) { return {files.projection(), files.fe(), files.be()}; }

TEST_F(RedEyeCategorizeTest, BinaryFilesThatBreakOffAreToldAtEveryLength) {
    const OneBlob scene;
    const ModelFiles files(make_model(2, 1, tiny_configuration()));
    const RedEyeCorrectionPtr used = make_correction(files.configuration(), 2);
    for (const std::string &path : binary_paths(files)) {
        const std::string whole = read_bytes(path);
        for (size_t length = 0; length < whole.size(); ++length) {
            SCOPED_TRACE(testing::Message() << path << " of " << length << " bytes");
            write_bytes(path, whole.substr(0, length));
            const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 2);
            rec->projection_rows = 2;
            expect_stage_error(rec.get(), scene.param(true).get(), KO_ERR_READ_FILE, cannot_read(path));
            EXPECT_EQ(rec->projection_rows, 2); // those of the file, or if it has no such word those from before
            EXPECT_EQ(expect_stage(used.get(), scene.param(length % 2 == 0).get()), KO_ERR_READ_FILE);
        }
        write_bytes(path, whole + "more");
        EXPECT_EQ(expect_stage(used.get(), scene.param(true).get()), KO_OK);
        write_bytes(path, whole);
    }
}

TEST_F(RedEyeCategorizeTest, ConfigurationsThatBreakOffAreToldAtEveryLength) {
    const OneBlob scene;
    const Model model = make_model(2, 1, tiny_configuration());
    const ModelFiles files(model);
    const std::string whole = join(configuration_lines(model.configuration), "\r\n");
    const size_t name = whole.size() - 2 - model.configuration.classifier.size();
    for (size_t length = 1; length < whole.size(); ++length) {
        SCOPED_TRACE(length);
        files.write_configuration(whole.substr(0, length));
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 2);
        const int32_t status = expect_stage(rec.get(), scene.param(true).get());
        const bool last_line = length > name;
        const bool whole_name = length >= whole.size() - 2;
        EXPECT_EQ(status, whole_name ? KO_OK : last_line ? KO_ERR_OPEN_READ : KO_ERR_READ_LINE);
    }
}

// Every byte of a file takes other values, and every run is compared with the plain judgement of the same bytes.
void flip_every_byte(const OneBlob &scene, const std::string &configuration, const std::string &path,
                     const std::vector<int> &masks) {
    const std::string whole = read_bytes(path);
    int read = 0;
    for (size_t at = 0; at < whole.size(); ++at) {
        for (const int mask : masks) {
            SCOPED_TRACE(testing::Message() << path << ", byte " << at << " with " << mask);
            std::string spoilt = whole;
            spoilt[at] = static_cast<char>(spoilt[at] ^ static_cast<char>(mask));
            write_bytes(path, spoilt);
            const RedEyeCorrectionPtr rec = make_correction(configuration, 2);
            read += expect_stage(rec.get(), scene.param(true).get()) == KO_OK ? 1 : 0;
        }
    }
    write_bytes(path, whole);
    EXPECT_GT(read, 0);
}

TEST_F(RedEyeCategorizeTest, EveryByteOfABinaryFileFlipped) {
    const OneBlob scene;
    const ModelFiles files(make_model(2, 1, tiny_configuration()));
    for (const std::string &path : binary_paths(files)) {
        flip_every_byte(scene, files.configuration(), path, {1, 2, 4, 8, 16, 32, 64, 128, 255});
    }
}

TEST_F(RedEyeCategorizeTest, EveryByteOfTheConfigurationFlipped) {
    const OneBlob scene;
    const ModelFiles files(make_model(2, 1, tiny_configuration()));
    flip_every_byte(scene, files.configuration(), files.configuration(), {1, 2, 4, 8, 16, 64, 128, 255});
}

// A record that met a bad file may be in any state, but it stays inside its objects, and another record is not touched.
TEST_F(RedEyeCategorizeTest, ARecordThatMetSpoiltFilesIsStillSafe) {
    const OneBlob scene;
    const ModelFiles files(make_model(2, 1, tiny_configuration()));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 2);
    Noise noise(11);
    for (const std::string &path : binary_paths(files)) {
        const std::string whole = read_bytes(path);
        for (int run = 0; run < 60; ++run) {
            std::string spoilt = whole;
            spoilt[noise.next() % spoilt.size()] = static_cast<char>(noise.byte());
            spoilt.resize(spoilt.size() - noise.next() % 3);
            write_bytes(path, spoilt);
            const RedEyeImageParamPtr param = scene.param(run % 4 != 0);
            const StderrCapture swallowed;
            const PrintCapture unprinted;
            const int32_t status = KoRedEyeCorrectionCategorizeBlobs(rec.get(), param.get());
            EXPECT_EQ(status != KO_OK, KoErrorGetLastError() != KO_OK);
            KoStatusClear();
        }
        write_bytes(path, whole);
    }
}

TEST_F(RedEyeCategorizeTest, AbsurdDimensionsAreRefused) {
    const OneBlob scene;
    const Model good = make_model(2, 1, tiny_configuration());
    const ModelFiles files(good);
    constexpr int32_t absurd[] = {-1,         -2,         INT32_MIN, INT32_MAX, 0x40000000, 0x40000001,
                                  0x20000000, 0x1fffffff, 0x10000,   0x8001,    0x7fff};
    for (const int32_t value : absurd) {
        for (const bool with_blob : {false, true}) {
            SCOPED_TRACE(testing::Message() << value << (with_blob ? " with a blob" : ""));
            const auto expect_failure = [&](const std::function<void(Model &)> &spoil) {
                Model model = good;
                spoil(model);
                files.write(model);
                const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 2);
                const RedEyeImageParamPtr param = scene.param(with_blob);
                const StderrCapture swallowed;
                EXPECT_NE(expect_stage(rec.get(), param.get()), KO_OK);
                EXPECT_EQ(param->accepted_count + param->rejected_count + param->undecided_count, 0u);
            };
            expect_failure([&](Model &model) { model.projection.rows = value; });
            expect_failure([&](Model &model) { model.projection.dimension = value; });
            expect_failure([&](Model &model) { model.projection.rows = model.projection.dimension = value; });
            expect_failure([&](Model &model) { model.fe.count = static_cast<uint32_t>(value); });
            expect_failure([&](Model &model) { model.be.count = static_cast<uint32_t>(value); });
        }
    }
}

// Runs the stage with values on lines of the configuration (from 1 on); gives its status.
int32_t status_with(const OneBlob &scene, const std::vector<std::pair<size_t, std::string>> &values) {
    const Model model = make_model(2, 1, tiny_configuration());
    const ModelFiles files(model);
    std::vector<std::string> lines = configuration_lines(model.configuration);
    for (const auto &[line, value] : values) {
        lines[line - 1] = value;
    }
    files.write_configuration(join(lines));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 2);
    const RedEyeImageParamPtr param = scene.param(true);
    const RedEyePlanes before = planes_of(scene.picture.get());
    const StderrCapture swallowed;
    const PrintCapture unprinted;
    const int32_t status = KoRedEyeCorrectionCategorizeBlobs(rec.get(), param.get());
    EXPECT_EQ(status != KO_OK, KoErrorGetLastError() != KO_OK);
    EXPECT_TRUE(planes_of(scene.picture.get()) == before);
    KoStatusClear();
    return status;
}

constexpr size_t patch_size_line = 2;
constexpr size_t bin_count_line = 4;
constexpr size_t grid_size_line = 6;
constexpr size_t gradient_sigma_line = 8;

// What is written in the configuration is bounded by what tables can be had for, and no product wraps.
TEST_F(RedEyeCategorizeTest, NumbersThatNoTableHasRoomForAreRefused) {
    const OneBlob scene;
    for (const char *value : {"2147483647", "2147483648", "4294967298", "99999999999999999999"}) {
        SCOPED_TRACE(value);
        EXPECT_NE(status_with(scene, {{patch_size_line, value}}), KO_OK);
        EXPECT_NE(status_with(scene, {{bin_count_line, value}}), KO_OK);
        EXPECT_NE(status_with(scene, {{grid_size_line, value}}), KO_OK);
    }
    for (const char *value : {"1e300", "inf", "1e9", "nan", "2e8"}) {
        EXPECT_NE(status_with(scene, {{gradient_sigma_line, value}}), KO_OK) << value;
    }
    EXPECT_NE(status_with(scene, {{patch_size_line, "65536"}}), KO_OK);
    EXPECT_NE(status_with(scene, {{grid_size_line, "65536"}}), KO_OK);
    EXPECT_NE(status_with(scene, {{grid_size_line, "4"}, {bin_count_line, "268435456"}}), KO_OK);
    EXPECT_NE(status_with(scene, {{grid_size_line, "32768"}, {bin_count_line, "4"}}), KO_OK);
    EXPECT_NE(status_with(scene, {{bin_count_line, "-2"}}), KO_OK);
    EXPECT_NE(status_with(scene, {{patch_size_line, "-4"}}), KO_OK);
}

// Others are senseless, and may be refused or not: nothing leaves its object.
TEST_F(RedEyeCategorizeTest, SenselessNumbersStayInsideTheirObjects) {
    const OneBlob scene;
    const char *numbers[] = {"0", "-1", "1", "-2147483648", "3", "", "x"};
    for (const char *value : numbers) {
        for (const char *other : numbers) {
            status_with(scene, {{patch_size_line, value}, {bin_count_line, other}});
            status_with(scene, {{grid_size_line, value}, {bin_count_line, other}});
            status_with(scene, {{patch_size_line, value}, {gradient_sigma_line, other}});
        }
    }
    for (const char *value : {"-1e300", "-0.25", "-inf", "-1e9", "1e-300", "0.24999", "0.3334", "1.9", "-1.0"}) {
        status_with(scene, {{gradient_sigma_line, value}});
        status_with(scene, {{gradient_sigma_line, value}, {patch_size_line, "7"}});
    }
}

// The number of open files of this process, where the system tells.
#ifdef __linux__
size_t open_files() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}
#else
size_t open_files() { return 0; } // elsewhere a file that is open cannot be removed
#endif

TEST_F(RedEyeCategorizeTest, EveryFileIsClosedHoweverTheReadingEnds) {
    const OneBlob scene;
    const size_t open = open_files();
    for (const char *spoilt : {"config.txt", "projection.bin", "model_RE_FE", "model_RE_BE", "none"}) {
        SCOPED_TRACE(spoilt);
        const ModelFiles files(make_model(2, 1, tiny_configuration()));
        write_bytes(files.inside(spoilt), "ab");
        {
            const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 2);
            EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()) == KO_OK, std::string(spoilt) == "none");
        }
        EXPECT_EQ(open_files(), open);
        for (const std::string &path : {files.configuration(), files.projection(), files.fe(), files.be()}) {
            EXPECT_TRUE(std::filesystem::remove(path)); // which an open file would not let happen everywhere
        }
    }
}

// ---- lengths that do not agree ----

// With a blob the model is refused before the first patch; without one it is never refused.
void expect_refused(const Model &model, const std::function<void(RedEyeCorrection *)> &prepare, int32_t channels = 2) {
    const OneBlob scene;
    const ModelFiles files(model);
    for (const bool with_blob : {true, false}) {
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), channels);
        prepare(rec.get());
        const RedEyeImageParamPtr param = scene.param(with_blob);
        if (with_blob) {
            expect_stage_error(rec.get(), param.get(), KO_ERR_INVALID_ARGUMENT, "Invalid argument");
            EXPECT_EQ(rec->orientation_histogram->patch_count, 1);
            EXPECT_EQ(param->accepted_count + param->rejected_count + param->undecided_count, 0u);
            const RedEyeCorrectionPtr again = make_correction(files.configuration(), channels);
            prepare(again.get());
            EXPECT_EQ(expect_stage(again.get(), scene.param(true).get()), KO_ERR_INVALID_ARGUMENT);
        } else {
            EXPECT_EQ(expect_stage(rec.get(), param.get()), KO_OK);
        }
    }
}

// What stays inside its objects goes on.
void expect_accepted(const Model &model, int32_t channels = 2) {
    const OneBlob scene;
    const ModelFiles files(model);
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), channels);
    EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
    EXPECT_EQ(rec->orientation_histogram->patch_count, 1);
}

const auto as_it_is = [](RedEyeCorrection *) {};

TEST_F(RedEyeCategorizeTest, AProjectionFitsTheFeatures) {
    const int32_t length = ModelConfiguration().feature_length();
    Noise noise(8);
    Model model = make_model(2, 1);
    for (const int32_t dimension : {0, 1, length, 2 * length - 1}) {
        model.projection = make_projection(length, dimension, noise);
        expect_accepted(model);
    }
    model.projection = make_projection(length, 2 * length + 1, noise);
    expect_refused(model, as_it_is);
    model.projection = make_projection(length + 3, 2 * length, noise);
    expect_accepted(model);
    model.projection = make_projection(length - 1, 2 * length, noise);
    expect_refused(model, as_it_is);
    model.projection = make_projection(0, 2 * length, noise);
    expect_refused(model, as_it_is);
    model.projection = make_projection(0, 0, noise);
    expect_refused(model, as_it_is);
}

// The rows that were kept count, not those of the file.
TEST_F(RedEyeCategorizeTest, PresetRowsFewerThanFeaturesAreRefused) {
    const int32_t length = ModelConfiguration().feature_length();
    expect_refused(make_model(2, 1), [&](RedEyeCorrection *rec) { rec->projection_rows = length - 1; });
    expect_refused(make_model(2, 1), [&](RedEyeCorrection *rec) { rec->projection_rows = 1; });
}

TEST_F(RedEyeCategorizeTest, ClassifiersFitTheProjectedFeaturesAndEachOther) {
    const int32_t length = ModelConfiguration().feature_length();
    Noise noise(8);
    Model model = make_model(2, 1);
    const auto set = [&](int32_t fe, int32_t be) {
        model.fe = make_classifier(fe, 0.25f, noise);
        model.be = make_classifier(be, 0.25f, noise);
    };
    for (const int32_t count : {0, 1, length - 1, length + 1, 2 * length}) { // beyond the first channel's zeros
        set(count, count);
        expect_accepted(model);
    }
    set(2 * length + 1, 2 * length + 1);
    expect_refused(model, as_it_is);
    set(5, 6);
    expect_refused(model, as_it_is);
    set(0, 1);
    expect_refused(model, as_it_is);
    set(6, 5); // the second file's count rules
    expect_accepted(model);
    set(3 * length, 5);
    expect_accepted(model);
}

TEST_F(RedEyeCategorizeTest, ChannelsAreEnabledFromTheFirstOn) {
    const OneBlob scene;
    for (int32_t flags = 0; flags < 8; ++flags) {
        SCOPED_TRACE(flags);
        const int32_t channels = (flags & 1) + (flags >> 1 & 1) + (flags >> 2 & 1);
        const bool in_order = flags == 1 || flags == 3 || flags == 7;
        const Model model = make_model(channels, 1);
        const auto enable = [&](RedEyeCorrection *rec) {
            KoRedEyeCorrectionEnableHistogramChannel(rec, (flags & 1) * 5, -(flags >> 1 & 1), flags >> 2 & 1);
        };
        if (in_order) {
            const ModelFiles files(model);
            const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 0);
            enable(rec.get());
            EXPECT_EQ(expect_stage(rec.get(), scene.param(true).get()), KO_OK);
        } else {
            expect_refused(model, enable);
        }
    }
}

TEST_F(RedEyeCategorizeTest, ARecordWithoutEnabledChannelsServesPicturesWithoutBlobs) {
    const OneBlob scene;
    const ModelFiles files(make_model(3, 1));
    RedEyeCorrectionPtr rec(KoRedEyeCorrectionNew());
    KoRedEyeCorrectionSetCategorizerConfig(rec.get(), files.configuration().c_str(), nullptr, nullptr);
    EXPECT_EQ(expect_stage(rec.get(), scene.param(false).get()), KO_OK);
    expect_stage_error(rec.get(), scene.param(true).get(), KO_ERR_INVALID_ARGUMENT, "Invalid argument");
}

TEST_F(RedEyeCategorizeTest, WithoutAHistogramTheStageEnds) {
    const OneBlob scene;
    Model model = make_model(2, 1);
    model.configuration.bin_count = -4;
    const ModelFiles files(model);
    for (const bool with_blob : {false, true}) {
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 2);
        const RedEyeImageParamPtr param = scene.param(with_blob);
        const StderrCapture swallowed;
        const int32_t status = expect_stage(rec.get(), param.get());
        EXPECT_NE(status, KO_OK);
        EXPECT_EQ(rec->orientation_histogram, nullptr);
        EXPECT_EQ(KoRedEyeCorrectionApply(rec.get(), param.get(), 1, scene.picture.get()), KO_OK);
    }
}

// ---- labels ----

struct Bounds {
    double fe_accept, fe_reject, be_accept, be_reject;
};

int32_t label_of(float fe_bias, float be_bias, const Bounds &bounds) {
    const OneBlob scene;
    ModelConfiguration configuration = tiny_configuration();
    configuration.fe_accept = bounds.fe_accept;
    configuration.fe_reject = bounds.fe_reject;
    configuration.be_accept = bounds.be_accept;
    configuration.be_reject = bounds.be_reject;
    Model model = make_model(1, 1, configuration);
    fix_scores(model, fe_bias, be_bias);
    const ModelFiles files(model);
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 1);
    const RedEyeImageParamPtr param = scene.param(true);
    EXPECT_EQ(expect_stage(rec.get(), param.get()), KO_OK);
    return param->patches[0].label;
}

TEST_F(RedEyeCategorizeTest, TwoScoresAgainstFourBounds) {
    const auto at = [](float z) {
        return static_cast<double>(static_cast<float>(1.0 / (std::exp(-static_cast<double>(z)) + 1.0)));
    };
    const double high = at(1.0f);
    const double low = at(-1.0f);
    const double above_high = static_cast<double>(std::nextafter(static_cast<float>(high), 2.0f));
    const double below_high = static_cast<double>(std::nextafter(static_cast<float>(high), 0.0f));
    const double above_low = static_cast<double>(std::nextafter(static_cast<float>(low), 2.0f));
    EXPECT_EQ(label_of(-1.0f, -1.0f, {below_high, 0.0, below_high, 0.0}), KO_PATCH_ACCEPTED);
    EXPECT_EQ(label_of(-1.0f, -1.0f, {high, 0.0, below_high, 0.0}), KO_PATCH_UNDECIDED);
    EXPECT_EQ(label_of(-1.0f, -1.0f, {below_high, 0.0, high, 0.0}), KO_PATCH_UNDECIDED);
    EXPECT_EQ(label_of(1.0f, 1.0f, {2.0, low, 2.0, low}), KO_PATCH_UNDECIDED);
    EXPECT_EQ(label_of(1.0f, 1.0f, {2.0, above_low, 2.0, low}), KO_PATCH_REJECTED);
    EXPECT_EQ(label_of(1.0f, 1.0f, {2.0, low, 2.0, above_low}), KO_PATCH_REJECTED);
    EXPECT_EQ(label_of(-1.0f, 1.0f, {below_high, 0.0, 2.0, above_low}), KO_PATCH_REJECTED);
    EXPECT_EQ(label_of(-1.0f, 1.0f, {2.0, above_high, 2.0, 0.0}), KO_PATCH_REJECTED);
    // Acceptance is looked at first: bounds that cross accept.
    EXPECT_EQ(label_of(-1.0f, -1.0f, {below_high, above_high, below_high, above_high}), KO_PATCH_ACCEPTED);
}

TEST_F(RedEyeCategorizeTest, AScoreThatIsNoNumberLeavesThePatchUndecided) {
    EXPECT_EQ(label_of(not_a_number, not_a_number, {-1.0, 2.0, -1.0, 2.0}), KO_PATCH_UNDECIDED);
    EXPECT_EQ(label_of(not_a_number, -1.0f, {-1.0, 2.0, -1.0, 0.0}), KO_PATCH_UNDECIDED);
    EXPECT_EQ(label_of(not_a_number, -1.0f, {-1.0, 2.0, -1.0, 2.0}), KO_PATCH_REJECTED); // by the other score
}

float score_of(float bias) {
    const OneBlob scene;
    Model model = make_model(1, 1, tiny_configuration());
    fix_scores(model, bias, 0.0f);
    const ModelFiles files(model);
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 1);
    const RedEyeImageParamPtr param = scene.param(true);
    EXPECT_EQ(expect_stage(rec.get(), param.get()), KO_OK);
    EXPECT_EQ(param->patches[0].be_score, 0.5f);
    return param->patches[0].fe_score;
}

TEST_F(RedEyeCategorizeTest, ScoresAreCutBeyondTen) {
    EXPECT_NEAR(score_of(-10.0f), 0.99995f, 0.00001f);
    EXPECT_LT(score_of(-10.0f), 1.0f);
    EXPECT_EQ(score_of(std::nextafter(-10.0f, -11.0f)), 1.0f);
    EXPECT_GT(score_of(10.0f), 0.0f);
    EXPECT_EQ(score_of(std::nextafter(10.0f, 11.0f)), 0.0f);
    EXPECT_EQ(score_of(-infinity), 1.0f);
    EXPECT_EQ(score_of(infinity), 0.0f);
}

// ---- windows ----

// The number of patches that boxes get in a picture of a size.
size_t patches_of(uint32_t width, uint32_t height, const std::vector<Box> &boxes, float scale = 0.0f, uint32_t divisor = 1) {
    const ColorImagePtr picture = eye_picture(width, height, {}, 2);
    const ModelFiles files(make_model(1, 1, tiny_configuration()));
    const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 1);
    const RedEyeImageParamPtr param = make_param(picture.get(), width / divisor, height / divisor, scale, boxes);
    EXPECT_EQ(expect_stage(rec.get(), param.get()), KO_OK);
    return static_cast<size_t>(rec->orientation_histogram->patch_count);
}

// A box of extent 4 has a window of 12: its centre must stand beyond the sixth pixel, and the window end inside.
TEST_F(RedEyeCategorizeTest, BlobsCloseToAnEdgeGetNoPatch) {
    EXPECT_EQ(patches_of(40, 40, {{5, 9, 5, 9}}), 1u);
    EXPECT_EQ(patches_of(40, 40, {{4, 8, 5, 9}}), 0u);
    EXPECT_EQ(patches_of(40, 40, {{5, 9, 4, 8}}), 0u);
    EXPECT_EQ(patches_of(40, 40, {{31, 35, 31, 35}}), 1u);
    EXPECT_EQ(patches_of(40, 40, {{32, 36, 31, 35}}), 0u);
    EXPECT_EQ(patches_of(40, 40, {{31, 35, 32, 36}}), 0u);
    EXPECT_EQ(patches_of(40, 40, {{5, 9, 20, 22}}), 1u); // the longer side counts in both directions
    EXPECT_EQ(patches_of(40, 40, {{20, 24, 4, 6}}), 0u);
    EXPECT_EQ(patches_of(13, 13, {{5, 8, 5, 8}}), 1u); // an odd window of 9 is cropped one beyond x1
    EXPECT_EQ(patches_of(10, 10, {{5, 8, 5, 8}}), 0u);
    EXPECT_EQ(patches_of(11, 11, {{5, 8, 5, 8}}), 1u);
}

TEST_F(RedEyeCategorizeTest, WindowsOfManyBoxesAndFactors) {
    const ModelFiles files(make_model(1, 1, tiny_configuration()));
    Noise noise(21);
    const auto below = [&](uint32_t limit) { return noise.next() % limit; };
    int32_t patches = 0;
    for (int run = 0; run < 60; ++run) {
        SCOPED_TRACE(run);
        const uint32_t width = 30 + below(60);
        const uint32_t height = 30 + below(60);
        const float scale = run % 3 == 0 ? 0.0f : noise.uniform(1.0f, 3.0f);
        const auto reduced = [&](uint32_t side) {
            return scale > 1.0f ? static_cast<uint32_t>(static_cast<float>(side) / scale) : side;
        };
        std::vector<Box> boxes;
        for (int i = 0; i < 6; ++i) {
            const uint32_t x = below(reduced(width) - 5);
            const uint32_t y = below(reduced(height) - 5);
            boxes.push_back({x, x + below(6), y, y + below(6)});
        }
        const ColorImagePtr picture = eye_picture(width, height, {}, 2);
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 1);
        const RedEyeImageParamPtr param = make_param(picture.get(), reduced(width), reduced(height), scale, boxes);
        EXPECT_EQ(expect_stage(rec.get(), param.get()), KO_OK);
        patches += rec->orientation_histogram->patch_count;
    }
    EXPECT_GT(patches, 60);
    EXPECT_LT(patches, 300);
}

TEST_F(RedEyeCategorizeTest, ABlobWithoutExtentGetsNoPatch) {
    EXPECT_EQ(patches_of(40, 40, {{20, 20, 20, 20}}), 0u);
    EXPECT_EQ(patches_of(40, 40, {{20, 21, 20, 20}}), 1u);
}

TEST_F(RedEyeCategorizeTest, ASlotIsUsedAgainForABlobWithoutPatch) {
    const std::vector<Box> boxes = {{2, 6, 20, 24}, {10, 14, 10, 14}, {20, 20, 20, 20}, {22, 26, 8, 11}, {35, 39, 30, 34}};
    EXPECT_EQ(patches_of(40, 40, boxes), 2u);
}

TEST_F(RedEyeCategorizeTest, AReducedPictureHasItsBoxesTakenToFullSize) {
    const std::vector<Box> boxes = {{10, 13, 12, 16}, {20, 22, 20, 22}, {1, 3, 8, 9}, {25, 25, 25, 25}, {38, 39, 20, 21}};
    EXPECT_EQ(patches_of(80, 80, boxes, 2.0f, 2), 3u);
    EXPECT_EQ(patches_of(83, 81, boxes, 2.05f, 2), 3u);
    EXPECT_EQ(patches_of(120, 100, {{10, 13, 12, 16}, {20, 22, 20, 22}}, 2.5f, 3), 2u);
}

TEST_F(RedEyeCategorizeTest, AFactorOfOneCopiesTheBox) {
    const ColorImagePtr picture = eye_picture(40, 40, {}, 2);
    const ModelFiles files(make_model(1, 1, tiny_configuration()));
    for (const float scale : {0.0f, 1.0f, std::nextafter(1.0f, 2.0f)}) {
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 1);
        const RedEyeImageParamPtr param = make_param(picture.get(), 40, 40, scale, {{15, 19, 16, 20}});
        EXPECT_EQ(expect_stage(rec.get(), param.get()), KO_OK);
        EXPECT_EQ(param->patches[0].size, scale > 1.0f ? 15u : 12u);
    }
}

TEST_F(RedEyeCategorizeTest, TheLogNamesAcceptedAndUndecidedPatches) {
    const ColorImagePtr picture = eye_picture(60, 40, {}, 2);
    Model model = make_model(1, 1, tiny_configuration());
    const std::vector<Box> boxes = {{10, 14, 10, 14}, {2, 6, 20, 24}, {40, 44, 20, 23}};
    const auto log_of = [&](float bias) {
        fix_scores(model, bias, bias);
        const ModelFiles files(model);
        const RedEyeCorrectionPtr rec = make_correction(files.configuration(), 1);
        const RedEyeImageParamPtr param = make_param(picture.get(), boxes);
        const RedEyeLog log(*rec);
        EXPECT_EQ(KoRedEyeCorrectionCategorizeBlobs(rec.get(), param.get()), KO_OK);
        return log.text();
    };
    EXPECT_EQ(log_of(-1.0f), "-> patch classification results: 2 accepted, 0 rejected, and 0 undecided patches \n"
                             "Patch 0 (accepted): 6 6 18 18\nPatch 1 (accepted): 36 15 48 27\n");
    EXPECT_EQ(log_of(0.0f), "-> patch classification results: 0 accepted, 0 rejected, and 2 undecided patches \n"
                            "Patch 0 (undecided): 6 6 18 18\nPatch 1 (undecided): 36 15 48 27\n");
    EXPECT_EQ(log_of(1.0f), "-> patch classification results: 0 accepted, 2 rejected, and 0 undecided patches \n");
}

} // namespace
