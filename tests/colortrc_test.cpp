// One curve per channel: life, entries, resizing with its file, application, and the text file.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/colortrc.h"

#include "capture.h"
#include "curve_texts.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"
#include "working_folder.h"

namespace {

using namespace ko_test;

using Entries = std::vector<uint32_t>;

class ColorTrcTest : public LibraryTest {};

// depth curves of noise below 256
ColorTRCPtr make_color_trc(uint64_t size, uint64_t depth = 3) {
    ColorTRCPtr color(KoColorTRCNew(size, depth));
    for (uint32_t c = 0; c < depth; ++c) {
        KoColorTRCSetArray(color.get(), c, noise_entries(size, 256, c + 1).data(), size);
    }
    return color;
}

std::vector<Entries> curves_of(const ColorTRC *color) {
    std::vector<Entries> curves;
    for (uint64_t c = 0; c < color->depth; ++c) {
        curves.push_back(entries_of(color->curves[c]));
    }
    return curves;
}

// A curve of any size in the place of curve c.
void replace_curve(ColorTRC *color, uint32_t c, const Entries &entries) {
    KoTRCDelete(color->curves[c]);
    color->curves[c] = make_trc(entries).release();
}

// ---- life ----

TEST_F(ColorTrcTest, InitMakesTheCurves) {
    for (const uint64_t depth : {1u, 3u, 5u}) {
        ColorTRC color{9, nullptr};
        expect_success([&] { return KoColorTRCInit(&color, 256, depth); });
        EXPECT_EQ(color.depth, depth);
        for (uint64_t c = 0; c < depth; ++c) {
            ASSERT_NE(color.curves[c], nullptr);
            EXPECT_EQ(color.curves[c]->size, 256u);
            ASSERT_NE(color.curves[c]->array, nullptr);
        }
        expect_success([&] { return KoColorTRCFree(&color); });
        EXPECT_EQ(color.curves, nullptr);
        expect_success([&] { return KoColorTRCFree(&color); });
    }
}

TEST_F(ColorTrcTest, FreeAndDeleteAcceptNull) {
    expect_success([] { return KoColorTRCFree(nullptr); });
    expect_success([] { return KoColorTRCDelete(nullptr); });
}

TEST_F(ColorTrcTest, ADepthOfZeroHasSizeZero) {
    const ColorTRCPtr color(KoColorTRCNew(256, 0));
    ASSERT_NE(color, nullptr);
    expect_status(KO_OK, "");
    EXPECT_EQ(KoColorTRCGetDepth(color.get()), 0u);
    EXPECT_EQ(KoColorTRCGetSize(color.get()), 0u);
    EXPECT_EQ(KoColorTRCGetArray(color.get(), 0), nullptr);
    expect_success([&] { return KoColorTRCSetIdentity(color.get()); });
}

TEST_F(ColorTrcTest, DepthAndSize) {
    const ColorTRCPtr color = make_color_trc(256);
    EXPECT_EQ(KoColorTRCGetDepth(color.get()), 3u);
    EXPECT_EQ(KoColorTRCGetSize(color.get()), 256u);
    replace_curve(color.get(), 1, {1, 2});
    EXPECT_EQ(KoColorTRCGetSize(color.get()), 256u); // that of curve 0
    replace_curve(color.get(), 0, {1, 2, 3});
    EXPECT_EQ(KoColorTRCGetSize(color.get()), 3u);
    KoTRCDelete(color->curves[0]);
    color->curves[0] = nullptr;
    EXPECT_EQ(KoColorTRCGetSize(color.get()), 0u);
    const ColorTRC deep{(uint64_t{1} << 32) + 2, nullptr};
    EXPECT_EQ(KoColorTRCGetDepth(&deep), 2u); // the low 32 bits
}

// ---- entries ----

TEST_F(ColorTrcTest, ArraysAndValues) {
    const ColorTRCPtr color = make_color_trc(256);
    for (uint32_t c = 0; c < 3; ++c) {
        EXPECT_EQ(KoColorTRCGetArray(color.get(), c), color->curves[c]->array);
        EXPECT_EQ(KoColorTRCGetValue(color.get(), c, 200), noise_entries(256, 256, c + 1)[200]);
    }
    expect_status(KO_OK, "");
}

TEST_F(ColorTrcTest, AChannelPastTheDepthHasNoArray) {
    const ColorTRCPtr color = make_color_trc(4);
    for (const uint32_t channel : {3u, 4u, 4294967295u}) {
        EXPECT_EQ(KoColorTRCGetArray(color.get(), channel), nullptr);
    }
    expect_status(KO_OK, "");
}

TEST_F(ColorTrcTest, SetArrayReachesOneCurve) {
    const ColorTRCPtr color = make_color_trc(4);
    std::vector<Entries> expected = curves_of(color.get());
    expected[1] = {9, 8, 7, 4294967295u};
    expect_success([&] { return KoColorTRCSetArray(color.get(), 1, expected[1].data(), 4); });
    EXPECT_EQ(curves_of(color.get()), expected);
}

TEST_F(ColorTrcTest, SetArrayRefusesChannelsCountsAndNull) {
    const ColorTRCPtr color = make_color_trc(4);
    const std::vector<Entries> before = curves_of(color.get());
    const Entries source(8, 5);
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                 [&] { return KoColorTRCSetArray(color.get(), 3, source.data(), 4); });
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                 [&] { return KoColorTRCSetArray(color.get(), 0, source.data(), 5); });
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return KoColorTRCSetArray(color.get(), 0, nullptr, 4); });
    EXPECT_EQ(curves_of(color.get()), before);
}

TEST_F(ColorTrcTest, AValueOfAChannelPastTheDepthIsZeroAndReported) {
    const ColorTRCPtr color = make_color_trc(4);
    KoColorTRCSetArray(color.get(), 2, Entries{9, 9, 9, 9}.data(), 4);
    const PrintCapture printed("error");
    EXPECT_EQ(KoColorTRCGetValue(color.get(), 3, 0), 0u);
    expect_status(KO_ERR_INVALID_ARGUMENT, "[ERROR] Invalid argument");
    EXPECT_EQ(printed.texts(), std::vector<std::string>{"[ERROR] Invalid argument"});
}

TEST_F(ColorTrcTest, SetIdentitySetsEveryCurveUpToTheFirstFailure) {
    const ColorTRCPtr color = make_color_trc(4, 4);
    expect_success([&] { return KoColorTRCSetIdentity(color.get()); });
    EXPECT_EQ(curves_of(color.get()), std::vector<Entries>(4, Entries{0, 1, 2, 3}));

    const ColorTRCPtr broken = make_color_trc(4);
    KoTRCFree(broken->curves[1]);
    expect_error(KO_ERR_NULL_POINTER, "Null pointer error", [&] { return KoColorTRCSetIdentity(broken.get()); });
    EXPECT_EQ(entries_of(broken->curves[0]), (Entries{0, 1, 2, 3}));
    EXPECT_EQ(entries_of(broken->curves[2]), noise_entries(4, 256, 3));
}

// ---- resizing ----

const char *const left_file = "colortrc.txt";

TEST_F(ColorTrcTest, ResizeResizesAllCurvesAndLeavesAFile) {
    const WorkingFolder folder;
    const ColorTRCPtr color = make_color_trc(8);
    for (const uint64_t size : {4u, 16u}) {
        std::vector<Entries> expected;
        for (const Entries &entries : curves_of(color.get())) {
            const TRCPtr trc = make_trc(entries);
            KoTRCResize(trc.get(), size);
            expected.push_back(entries_of(trc.get()));
        }
        expect_success([&] { return KoColorTRCResize(color.get(), size); });
        EXPECT_EQ(curves_of(color.get()), expected);
        const TemporaryFile saved("saved.txt");
        KoColorTRCSave(color.get(), saved.c_str(), 1);
        EXPECT_EQ(read_bytes(left_file), read_bytes(saved.path())); // the second time in the place of the first
        EXPECT_NE(read_bytes(left_file), "");
    }
}

TEST_F(ColorTrcTest, ResizeLeavesTheFileAlsoWhenNothingIsResized) {
    const WorkingFolder folder;
    const ColorTRCPtr color(KoColorTRCNew(2, 3));
    KoColorTRCSetIdentity(color.get());
    for (const uint64_t size : {0u, 65537u}) {
        write_bytes(left_file, "an older file, longer than the one that comes in its place");
        expect_error(KO_ERR_INDEX_OUT_OF_BOUNDS, "Index out of bounds: " + std::to_string(size) + " (0-65536)",
                     [&] { return KoColorTRCResize(color.get(), size); });
        EXPECT_EQ(read_text(left_file), "RGBLinear\nbits 1\n0 0 0\n1 1 1\n");
    }
    std::filesystem::remove(left_file);
    expect_success([&] { return KoColorTRCResize(color.get(), 2); }); // the present size
    EXPECT_EQ(read_text(left_file), "RGBLinear\nbits 1\n0 0 0\n1 1 1\n");
}

TEST_F(ColorTrcTest, ResizeDropsTheStatusOfItsFile) {
    const WorkingFolder folder;
    std::filesystem::create_directory(left_file); // nothing can be written there
    const ColorTRCPtr color = make_color_trc(8);
    EXPECT_EQ(KoColorTRCResize(color.get(), 4), KO_OK);
    EXPECT_EQ(KoColorTRCGetSize(color.get()), 4u);
    EXPECT_EQ(KoColorTRCResize(color.get(), 0), KO_ERR_INDEX_OUT_OF_BOUNDS);
}

TEST_F(ColorTrcTest, ResizeOfFewerThanThreeCurvesLeavesNoFile) {
    const WorkingFolder folder;
    const ColorTRCPtr color = make_color_trc(8, 2);
    EXPECT_EQ(KoColorTRCResize(color.get(), 4), KO_OK);
    EXPECT_EQ(color->curves[1]->size, 4u);
    EXPECT_FALSE(exists(left_file));
}

// The curves then have different sizes; the file follows curve 0, and a shorter curve goes on with its last entry.
TEST_F(ColorTrcTest, ResizeStopsAtTheFirstFailure) {
    const WorkingFolder folder;
    const ColorTRCPtr color = make_color_trc(4);
    replace_curve(color.get(), 0, {0, 10, 20, 30});
    replace_curve(color.get(), 1, {5, 6}); // too short to grow
    replace_curve(color.get(), 2, {7, 8, 9, 11});
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return KoColorTRCResize(color.get(), 8); });
    EXPECT_EQ(curves_of(color.get()), (std::vector<Entries>{{0, 10, 20, 30, 40, 50, 60, 70}, {5, 6}, {7, 8, 9, 11}}));
    EXPECT_EQ(read_text(left_file), "RGBLinear\nbits 3\n0 5 7\n10 6 8\n20 6 9\n30 6 11\n40 6 11\n50 6 11\n60 6 11\n70 6 11\n");
}

// ---- application ----

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();

// Truncated toward zero to 64 bits, of which the low 32 count; past the curve the last entry.
float looked_up(const Entries &entries, float pixel) {
    const bool fits = std::fabs(pixel) < 9223372036854775808.0f;
    const size_t index = fits ? static_cast<uint32_t>(static_cast<int64_t>(pixel)) : 0;
    return static_cast<float>(entries[std::min(index, entries.size() - 1)]);
}

float odd_pixel(uint32_t c, uint64_t x, uint64_t y) {
    static const std::vector<float> odd{-1.0f,        -0.5f,    255.0f,    256.0f,        1e9f,
                                        not_a_number, infinity, -infinity, 4294967296.0f, 300.5f};
    const uint64_t place = 7 * x + 31 * y + 3 * c;
    return place % 4 == 0 ? odd[place / 4 % odd.size()] : static_cast<float>(place % 256) + 0.75f;
}

void expect_applied(const ColorTRC *color, const ColorImage *before, const ColorImage *after) {
    for (uint32_t c = 0; c < 3; ++c) {
        std::vector<float> expected;
        for (const float pixel : pixels(&before->planes[c])) {
            expected.push_back(c < color->depth ? looked_up(entries_of(color->curves[c]), pixel) : 0.0f);
        }
        EXPECT_EQ(pixels(&after->planes[c]), expected) << "channel " << c;
    }
}

TEST_F(ColorTrcTest, ApplyTakesEachChannelsCurve) {
    for (const uint64_t depth : {3u, 4u}) {
        const ColorTRCPtr color = make_color_trc(256, depth);
        for (uint32_t width = 1; width <= 9; ++width) {
            const ColorImagePtr image = make_color_image(width, 7, KO_COLORSPACE_YIQ, odd_pixel);
            ColorImage *result = nullptr;
            expect_success([&] { return KoColorTRCApply(color.get(), image.get(), &result); });
            const ColorImagePtr owner(result);
            ASSERT_NE(result, nullptr);
            EXPECT_EQ(result->color_space, KO_COLORSPACE_YIQ);
            EXPECT_EQ(result->planes[0].width, width);
            EXPECT_EQ(result->planes[0].height, 7u);
            expect_applied(color.get(), image.get(), result);
        }
    }
}

TEST_F(ColorTrcTest, ApplyIntoAnImageThatIsThereAndInPlace) {
    const ColorTRCPtr color = make_color_trc(256);
    const ColorImagePtr before = make_color_image(5, 4, KO_COLORSPACE_RGB, odd_pixel);
    const ColorImagePtr image = make_color_image(5, 4, KO_COLORSPACE_RGB, odd_pixel);
    const ColorImagePtr other(KoColorImageNew(5, 4, KO_COLORSPACE_RGB));
    ColorImage *result = other.get();
    expect_success([&] { return KoColorTRCApply(color.get(), image.get(), &result); });
    EXPECT_EQ(result, other.get());
    expect_applied(color.get(), before.get(), other.get());
    result = image.get();
    expect_success([&] { return KoColorTRCApply(color.get(), image.get(), &result); });
    expect_applied(color.get(), before.get(), image.get());
}

// A large curve tells that values past 32 bits keep their low bits.
TEST_F(ColorTrcTest, ApplyTakesTheLow32Bits) {
    const ColorTRCPtr color = make_color_trc(1024);
    const ColorImagePtr image = make_color_image(
        2, 1, KO_COLORSPACE_RGB, [](uint32_t, uint64_t x, uint64_t) { return x == 0 ? 4294967808.0f : 700.5f; });
    ColorImage *result = nullptr;
    EXPECT_EQ(KoColorTRCApply(color.get(), image.get(), &result), KO_OK);
    const ColorImagePtr owner(result);
    EXPECT_EQ(pixels(&result->planes[1]), (std::vector<float>{static_cast<float>(color->curves[1]->array[512]),
                                                              static_cast<float>(color->curves[1]->array[700])}));
}

TEST_F(ColorTrcTest, ChannelsWithoutACurveGetZeroAndAReport) {
    for (const uint64_t depth : {0u, 1u, 2u}) {
        const ColorTRCPtr color = make_color_trc(256, depth);
        const ColorImagePtr image = make_color_image(3, 2, KO_COLORSPACE_RGB, odd_pixel);
        KoStatusClear();
        ColorImage *result = nullptr;
        KoColorTRCApply(color.get(), image.get(), &result);
        const ColorImagePtr owner(result);
        ASSERT_NE(result, nullptr);
        expect_applied(color.get(), image.get(), result);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_INVALID_ARGUMENT);
        EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).rfind("[ERROR] Invalid argument", 0), 0u);
    }
}

TEST_F(ColorTrcTest, ApplyRefusesWhatHasNotThreeChannels) {
    const ColorTRCPtr color = make_color_trc(256);
    const ColorImagePtr gray = make_color_image(3, 2, KO_COLORSPACE_GRAY, odd_pixel);
    const ColorImagePtr rgb = make_color_image(3, 2, KO_COLORSPACE_RGB, odd_pixel);
    ColorImage *result = rgb.get();
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                 [&] { return KoColorTRCApply(color.get(), gray.get(), &result); });
    result = gray.get();
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return KoColorTRCApply(color.get(), rgb.get(), &result); });
    const ColorImagePtr wider = make_color_image(4, 2, KO_COLORSPACE_RGB, odd_pixel);
    result = wider.get();
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return KoColorTRCApply(color.get(), rgb.get(), &result); });
}

// ---- text file ----

std::string saved(const ColorTRC *color) {
    const TemporaryFile file("curves.txt");
    expect_success([&] { return KoColorTRCSave(color, file.c_str(), 0); });
    return read_text(file.path());
}

ColorTRCPtr color_of(const std::vector<Entries> &curves) {
    ColorTRCPtr color(KoColorTRCNew(1, curves.size()));
    for (uint32_t c = 0; c < curves.size(); ++c) {
        replace_curve(color.get(), c, curves[c]);
    }
    return color;
}

TEST_F(ColorTrcTest, SaveWritesThreeColumns) {
    EXPECT_EQ(saved(color_of({{0, 1}, {10, 11}, {20, 21}}).get()), "RGBLinear\nbits 1\n0 10 20\n1 11 21\n");
    EXPECT_EQ(saved(color_of({{5}, {6}, {7}, {8}}).get()), "RGBLinear\nbits 0\n5 6 7\n"); // also of four curves
    EXPECT_EQ(saved(color_of({{1, 2, 3}, {4, 5, 6}, {7, 8, 9}}).get()), "RGBLinear\nbits 1\n1 4 7\n2 5 8\n3 6 9\n");
    EXPECT_EQ(saved(color_of({{4294967295u}, {2147483648u}, {2147483647u}}).get()),
              "RGBLinear\nbits 0\n-1 -2147483648 2147483647\n");
    EXPECT_EQ(saved(make_color_trc(256).get()).substr(0, 17), "RGBLinear\nbits 8\n");
}

TEST_F(ColorTrcTest, SaveWithoutTheFlagLeavesAFileAlone) {
    const ColorTRCPtr color = color_of({{1}, {2}, {3}});
    const TemporaryFile file("curves.txt", "precious");
    expect_error(KO_ERR_FILE_EXISTS, "File \"" + file.path() + "\" already exists",
                 [&] { return KoColorTRCSave(color.get(), file.c_str(), 0); });
    EXPECT_EQ(read_bytes(file.path()), "precious");
    expect_success([&] { return KoColorTRCSave(color.get(), file.c_str(), 1); });
    EXPECT_EQ(read_text(file.path()), "RGBLinear\nbits 0\n1 2 3\n");
}

TEST_F(ColorTrcTest, FilesThatCannotBeOpened) {
    const ColorTRCPtr color = color_of({{1}, {2}, {3}});
    const std::string path = temporary_path("folder") + "/curves.txt";
    StderrCapture captured;
    expect_error(KO_ERR_OPEN_WRITE, "Cannot open file \"" + path + "\" for writing",
                 [&] { return KoColorTRCSave(color.get(), path.c_str(), 1); });
    expect_error(KO_ERR_OPEN_READ, "Cannot open file \"" + path + "\" for reading",
                 [&] { return KoColorTRCLoad(color.get(), path.c_str()); });
    EXPECT_EQ(captured.stop(), "");
    EXPECT_EQ(curves_of(color.get()), (std::vector<Entries>{{1}, {2}, {3}}));
}

TEST_F(ColorTrcTest, FewerThanThreeCurvesHaveNoFile) {
    for (const uint64_t depth : {0u, 1u, 2u}) {
        const ColorTRCPtr color = make_color_trc(4, depth);
        const std::string path = temporary_path("missing.txt");
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return KoColorTRCSave(color.get(), path.c_str(), 1); });
        EXPECT_FALSE(exists(path));
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&] { return KoColorTRCLoad(color.get(), path.c_str()); }); // the file is not looked for
        EXPECT_EQ(color->depth, depth);
    }
}

TEST_F(ColorTrcTest, SaveRefusesACurveWithoutEntries) {
    for (uint32_t c = 0; c < 3; ++c) {
        const ColorTRCPtr color = make_color_trc(4);
        KoTRCFree(color->curves[c]);
        const TemporaryFile file("curves.txt");
        expect_error(KO_ERR_NULL_POINTER, "Null pointer error", [&] { return KoColorTRCSave(color.get(), file.c_str(), 1); });
    }
}

TEST_F(ColorTrcTest, LoadOfTheSameSizeKeepsTheCurves) {
    const ColorTRCPtr source = make_color_trc(256);
    const TemporaryFile file("curves.txt");
    KoColorTRCSave(source.get(), file.c_str(), 0);
    const ColorTRCPtr color(KoColorTRCNew(256, 3));
    const std::vector<TRC *> curves(color->curves, color->curves + 3);
    const uint32_t *array = KoColorTRCGetArray(color.get(), 1);
    expect_success([&] { return KoColorTRCLoad(color.get(), file.c_str()); });
    EXPECT_EQ(std::vector<TRC *>(color->curves, color->curves + 3), curves);
    EXPECT_EQ(KoColorTRCGetArray(color.get(), 1), array);
    EXPECT_EQ(curves_of(color.get()), curves_of(source.get()));
}

TEST_F(ColorTrcTest, LoadOfAnotherSizeKeepsTheDepth) {
    const TemporaryFile file("curves.txt", curve_text(color_form, 2));
    const ColorTRCPtr color = make_color_trc(256, 5);
    expect_success([&] { return KoColorTRCLoad(color.get(), file.c_str()); });
    EXPECT_EQ(color->depth, 5u);
    EXPECT_EQ(entries_of(color->curves[0]), (Entries{0, 10, 20, 30}));
    EXPECT_EQ(entries_of(color->curves[1]), (Entries{1, 11, 21, 31}));
    EXPECT_EQ(entries_of(color->curves[2]), (Entries{2, 12, 22, 32}));
    EXPECT_EQ(color->curves[4]->size, 4u);
}

// One curve that is too short, or without entries, is no place to read into.
TEST_F(ColorTrcTest, LoadIntoCurvesOfDifferentSizes) {
    const TemporaryFile file("curves.txt", curve_text(color_form, 2));
    const std::vector<Entries> expected{{0, 10, 20, 30}, {1, 11, 21, 31}, {2, 12, 22, 32}};
    for (uint32_t c = 0; c < 3; ++c) {
        const ColorTRCPtr shorter = make_color_trc(4);
        replace_curve(shorter.get(), c, {7});
        expect_success([&] { return KoColorTRCLoad(shorter.get(), file.c_str()); });
        EXPECT_EQ(curves_of(shorter.get()), expected);
        const ColorTRCPtr bare = make_color_trc(4);
        KoTRCFree(bare->curves[c]);
        expect_success([&] { return KoColorTRCLoad(bare.get(), file.c_str()); });
        EXPECT_EQ(curves_of(bare.get()), expected);
    }
}

TEST_F(ColorTrcTest, LoadTellsTheLineThatIsWrong) {
    const std::vector<std::pair<std::string, std::string>> wrong{
        {"", "1: can't read file"},
        {"GrayLinear\n", "1: \"GrayLinear\n\": Invalid value, must be RGBLinear"},
        {"RGBLinear\n", "2: can't read file"},
        {"RGBLinear\nbits\n", "2: \"bits\n\": Invalid value, must be bits <bit per pixel>"},
        {"RGBLinear\nbits 1\n1 2 3\n", "4: can't read file"},
        {"RGBLinear\nbits 1\n1 2 3\n4 5\n", "4: \"4 5\n\": Invalid value, <RED> <GREEN> <BLUE>"},
        {"RGBLinear\nbits 1\n1 2 3\n\n", "4: \"\n\": Invalid value, <RED> <GREEN> <BLUE>"},
    };
    for (const auto &[text, told] : wrong) {
        const TemporaryFile file("curves.txt", text);
        const ColorTRCPtr color = make_color_trc(2);
        StderrCapture captured;
        expect_error(KO_ERR_READ_LINE, "Read error in file \"" + file.path() + "\", line " + told.substr(0, 1),
                     [&] { return KoColorTRCLoad(color.get(), file.c_str()); });
        EXPECT_EQ(captured.stop(), "[ERROR] \"" + file.path() + "\", line " + told + "\n");
    }
}

void expect_load(const std::string &path) {
    const ColorTRCPtr color(KoColorTRCNew(4, 3));
    const auto view = [&] {
        CurveView curves{KoColorTRCGetSize(color.get()), {}};
        for (uint32_t c = 0; c < 3; ++c) {
            EXPECT_EQ(color->curves[c]->size, curves.size);
            curves.columns.push_back(KoColorTRCGetArray(color.get(), c));
        }
        return curves;
    };
    expect_plain_load(color_form, path, view, [&](const char *name) { return KoColorTRCLoad(color.get(), name); });
    EXPECT_EQ(color->depth, 3u);
}

TEST_F(ColorTrcTest, LoadOfAFolder) { expect_load(testing::TempDir()); }

void expect_loads(const std::vector<std::string> &texts) {
    for (const std::string &text : texts) {
        const TemporaryFile file("curves.txt", text);
        SCOPED_TRACE(testing::PrintToString(text.substr(0, 200)));
        expect_load(file.path());
        if (testing::Test::HasFailure()) {
            return;
        }
    }
}

TEST_F(ColorTrcTest, LoadOfBrokenTextsIsAPlainReading) { expect_loads(broken_curve_texts(color_form)); }

TEST_F(ColorTrcTest, LoadOfGreedyTextsIsAPlainReading) { expect_loads(greedy_curve_texts(color_form)); }

TEST_F(ColorTrcTest, LoadOfNoiseIsAPlainReading) {
    for (uint32_t seed = 0; seed < 50; ++seed) {
        const std::vector<uint8_t> bytes = noise_bytes(3000, seed);
        const TemporaryFile file("curves.txt", "RGBLinear\nbits 2\n" + std::string(bytes.begin(), bytes.end()));
        expect_load(file.path());
    }
}

} // namespace
