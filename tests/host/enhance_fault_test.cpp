// The program's use of the library when memory is short: each failure is told, and nothing is left over or half done.
#include <algorithm>

#include <gtest/gtest.h>

#include "enhance.h"
#include "faults.h"
#include "library.h"
#include "pictures.h"

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

class EnhanceFaults : public testing::TestWithParam<uint32_t> {};

TEST_P(EnhanceFaults, AreToldAndLeaveThePictureAlone) {
    const host::Library library;
    host::Tuning tuning;
    tuning.grid = {2, 2};
    codec::Picture reference = make_picture(GetParam());
    const std::vector<uint8_t> before = pixels_of(reference);
    codec::Notices notices;
    ASSERT_EQ(host::enhance(reference, tuning, notices, [](double) {}), host::Decision::enhanced);
    ASSERT_NE(pixels_of(reference), before);
    const int faults = sweep_faults([&] {
        codec::Picture picture = make_picture(GetParam());
        try {
            host::enhance(picture, tuning, notices, [](double) {});
            EXPECT_EQ(pixels_of(picture), pixels_of(reference)) << "a failure that was not told";
        } catch (const host::LibraryError &error) {
            EXPECT_EQ(pixels_of(picture), before);
            const std::string text = error.what();
            EXPECT_EQ(text.substr(text.find(": ") + 2), KoErrorGetLastErrorMessage());
            EXPECT_NE(text.find("Cannot allocate"), std::string::npos) << text;
        }
    });
    EXPECT_GT(faults, 10);
    EXPECT_EQ(notices, codec::Notices{});
}

INSTANTIATE_TEST_SUITE_P(Host, EnhanceFaults, testing::Values(1u, 3u));

} // namespace
