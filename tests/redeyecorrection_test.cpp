// The record of settings: its initial values, its setters and its end.
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "ko.h"
#include "library_test.h"
#include "pictures.h"
#include "redeye_scene.h"

namespace {

using namespace ko_test;

class RedEyeCorrectionTest : public LibraryTest {};

constexpr unsigned char junk = 0xAB;

// A record of nothing but junk, on the heap.
std::unique_ptr<RedEyeCorrection> junk_record() {
    auto rec = std::make_unique<RedEyeCorrection>();
    std::memset(static_cast<void *>(rec.get()), junk, sizeof *rec);
    return rec;
}

template <class T> bool is_junk(const T &object) {
    const std::vector<unsigned char> expected(sizeof object, junk);
    return std::memcmp(&object, expected.data(), sizeof object) == 0;
}

void expect_initial_values(const RedEyeCorrection &rec) {
    EXPECT_EQ(rec.max_image_size, 1000000u);
    EXPECT_EQ(rec.min_blob_size, 3u);
    EXPECT_EQ(rec.min_blob_size_floor, 2u);
    EXPECT_EQ(rec.blob_limits[0], 1000);
    EXPECT_EQ(rec.blob_limits[1], 300);
    EXPECT_EQ(rec.blob_limits[2], 50);
    EXPECT_EQ(rec.too_many_blobs, 0u);
    EXPECT_EQ(rec.projection_header, 0u);
    EXPECT_EQ(rec.projection_rows, 0);
    EXPECT_EQ(rec.projection_dimension, 0);
    EXPECT_EQ(rec.classifier_dimension, 0u);
    EXPECT_EQ(rec.channel_enabled[0], 0u);
    EXPECT_EQ(rec.channel_count, 0);
    for (const void *pointer :
         {static_cast<const void *>(rec.projection_row_values), static_cast<const void *>(rec.projection_mean),
          static_cast<const void *>(rec.projection_matrix), static_cast<const void *>(rec.fe_weights),
          static_cast<const void *>(rec.be_weights), static_cast<const void *>(rec.orientation_histogram),
          static_cast<const void *>(rec.log_stream)}) {
        EXPECT_EQ(pointer, nullptr);
    }
    for (const float value : {rec.fe_bias, rec.be_bias, rec.fe_accept, rec.fe_reject, rec.be_accept, rec.be_reject}) {
        EXPECT_EQ(value, 0.0f);
    }
    EXPECT_STREQ(rec.config_path, "");
    EXPECT_STREQ(rec.projection_path, "");
    EXPECT_STREQ(rec.classifier_path, "");
}

TEST_F(RedEyeCorrectionTest, InitWritesTheInitialValuesAndNothingElse) {
    const auto rec = junk_record();
    expect_success([&] { return KoRedEyeCorrectionInit(rec.get()); });
    expect_initial_values(*rec);
    EXPECT_TRUE(is_junk(rec->patch_geometry));
    EXPECT_TRUE(is_junk(rec->histogram_layout));
    EXPECT_TRUE(is_junk(rec->channel_enabled[1]));
    EXPECT_TRUE(is_junk(rec->channel_enabled[2]));
}

TEST_F(RedEyeCorrectionTest, InitForgetsThatThereWereTooManyBlobs) {
    RedEyeCorrection rec{};
    rec.too_many_blobs = 1;
    KoRedEyeCorrectionInit(&rec);
    EXPECT_EQ(rec.too_many_blobs, 0u);
}

TEST_F(RedEyeCorrectionTest, NewGivesAnInitialRecord) {
    const RedEyeCorrectionPtr rec(KoRedEyeCorrectionNew());
    ASSERT_NE(rec, nullptr);
    expect_initial_values(*rec);
    expect_status(KO_OK, "");
}

TEST_F(RedEyeCorrectionTest, FreeAndDeleteAcceptNull) {
    expect_success([] { return KoRedEyeCorrectionFree(nullptr); });
    expect_success([] { return KoRedEyeCorrectionDelete(nullptr); });
}

std::array<uintptr_t, 6> owned(const RedEyeCorrection &rec) {
    const auto number = [](const void *pointer) { return reinterpret_cast<uintptr_t>(pointer); };
    return {number(rec.projection_row_values),
            number(rec.projection_mean),
            number(rec.projection_matrix),
            number(rec.fe_weights),
            number(rec.be_weights),
            number(rec.orientation_histogram)};
}

TEST_F(RedEyeCorrectionTest, FreeLeavesThePointersAsTheyWere) {
    RedEyeCorrection rec{};
    KoRedEyeCorrectionInit(&rec);
    give_model(rec);
    ASSERT_NE(rec.orientation_histogram, nullptr);
    rec.max_image_size = 777;
    const std::array<uintptr_t, 6> before = owned(rec);
    expect_success([&] { return KoRedEyeCorrectionFree(&rec); });
    EXPECT_EQ(owned(rec), before);
    EXPECT_EQ(rec.max_image_size, 777u);
}

TEST_F(RedEyeCorrectionTest, DeleteEndsARecordWithItsModel) {
    RedEyeCorrection *rec = KoRedEyeCorrectionNew();
    ASSERT_NE(rec, nullptr);
    give_model(*rec);
    ASSERT_NE(rec->orientation_histogram, nullptr);
    expect_success([&] { return KoRedEyeCorrectionDelete(rec); });
}

TEST_F(RedEyeCorrectionTest, EnabledChannelsAreStoredAndCounted) {
    const std::vector<std::tuple<int32_t, int32_t, int32_t, int32_t>> cases = {{0, 0, 0, 0}, {1, 0, 0, 1},    {0, 1, 0, 1},
                                                                               {0, 0, 1, 1}, {1, 1, 0, 2},    {0, 1, 1, 2},
                                                                               {1, 1, 1, 3}, {7, -1, 256, 3}, {0, -5, 0, 1}};
    for (const auto &[red, green, blue, count] : cases) {
        const auto rec = junk_record();
        expect_success([&] { return KoRedEyeCorrectionEnableHistogramChannel(rec.get(), red, green, blue); });
        EXPECT_EQ(rec->channel_enabled[0], static_cast<uint32_t>(red));
        EXPECT_EQ(rec->channel_enabled[1], static_cast<uint32_t>(green));
        EXPECT_EQ(rec->channel_enabled[2], static_cast<uint32_t>(blue));
        EXPECT_EQ(rec->channel_count, count);
        EXPECT_TRUE(is_junk(rec->classifier_path));
        EXPECT_TRUE(is_junk(rec->log_stream));
    }
}

TEST_F(RedEyeCorrectionTest, PathsAreCopied) {
    const auto rec = junk_record();
    std::string config = "config.txt";
    expect_success([&] { return KoRedEyeCorrectionSetCategorizerConfig(rec.get(), config.c_str(), "a/b.prj", "c d/e"); });
    config[0] = 'x';
    EXPECT_STREQ(rec->config_path, "config.txt");
    EXPECT_STREQ(rec->projection_path, "a/b.prj");
    EXPECT_STREQ(rec->classifier_path, "c d/e");
    EXPECT_TRUE(is_junk(rec->be_reject));
    EXPECT_TRUE(is_junk(rec->channel_enabled));
}

TEST_F(RedEyeCorrectionTest, ANullPathEmptiesItsField) {
    RedEyeCorrection rec{};
    KoRedEyeCorrectionSetCategorizerConfig(&rec, "one", "two", "three");
    expect_success([&] { return KoRedEyeCorrectionSetCategorizerConfig(&rec, "new", nullptr, "other"); });
    EXPECT_STREQ(rec.config_path, "new");
    EXPECT_STREQ(rec.projection_path, "");
    EXPECT_STREQ(rec.classifier_path, "other");
    expect_success([&] { return KoRedEyeCorrectionSetCategorizerConfig(&rec, nullptr, nullptr, nullptr); });
    EXPECT_STREQ(rec.config_path, "");
    EXPECT_STREQ(rec.projection_path, "");
    EXPECT_STREQ(rec.classifier_path, "");
}

TEST_F(RedEyeCorrectionTest, APathMayFillItsFieldWithItsEnd) {
    const auto rec = junk_record();
    const std::string longest(KO_REDEYE_PATH_SIZE - 1, 'p');
    const char *path = longest.c_str();
    expect_success([&] { return KoRedEyeCorrectionSetCategorizerConfig(rec.get(), path, path, path); });
    EXPECT_EQ(rec->config_path, longest);
    EXPECT_EQ(rec->projection_path, longest);
    EXPECT_EQ(rec->classifier_path, longest);
    EXPECT_TRUE(is_junk(rec->channel_enabled));
}

TEST_F(RedEyeCorrectionTest, APathThatDoesNotFitIsRefused) {
    for (const size_t length : {size_t{KO_REDEYE_PATH_SIZE}, size_t{KO_REDEYE_PATH_SIZE} + 1, size_t{5000}}) {
        const std::string too_long(length, 'p');
        const char *path = too_long.c_str();
        RedEyeCorrection rec{};
        KoRedEyeCorrectionInit(&rec);
        KoRedEyeCorrectionSetCategorizerConfig(&rec, "one", "two", "three");
        KoRedEyeCorrectionEnableHistogramChannel(&rec, 1, 1, 1);
        const auto set = [&](const char *config, const char *projection, const char *classifier) {
            expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                         [&] { return KoRedEyeCorrectionSetCategorizerConfig(&rec, config, projection, classifier); });
        };
        const auto expect_paths = [&](const char *config, const char *projection, const char *classifier) {
            EXPECT_STREQ(rec.config_path, config);
            EXPECT_STREQ(rec.projection_path, projection);
            EXPECT_STREQ(rec.classifier_path, classifier);
        };
        set(path, "four", "five"); // the other fields take theirs
        expect_paths("one", "four", "five");
        set("six", path, nullptr);
        expect_paths("six", "four", "");
        set(nullptr, "seven", path);
        expect_paths("", "seven", "");
        set(path, path, path);
        expect_paths("", "seven", "");
        EXPECT_EQ(rec.channel_enabled[0], 1u);
        EXPECT_EQ(rec.be_reject, 0.0f);
    }
}

} // namespace
