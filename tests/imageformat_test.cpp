// Image files: names of formats, the slots, the calls that choose among them, and the text format.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iterator>
#include <limits>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "ko/imageformat.h"

#include "capture.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"
#include "same_floats.h"

namespace {

using namespace ko_test;

using Texts = std::vector<std::string>;

// What a call of a slot was given.
struct SlotCall {
    std::string function;
    const void *image;
    std::string path;
    std::vector<double> numbers;

    bool operator==(const SlotCall &) const = default;
};

std::vector<SlotCall> slot_calls;
int32_t slot_status = KO_OK;

int32_t record_real_load(RealImage *image, const char *path) {
    slot_calls.push_back({"real load", image, path, {}});
    return slot_status;
}

int32_t record_real_save(const RealImage *image, const char *path, float scale, float save_option) {
    slot_calls.push_back({"real save", image, path, {static_cast<double>(scale), static_cast<double>(save_option)}});
    return slot_status;
}

int32_t record_color_load(ColorImage *image, const char *path, double gamma_a, double gamma_b) {
    slot_calls.push_back({"color load", image, path, {gamma_a, gamma_b}});
    return slot_status;
}

int32_t record_color_save(const ColorImage *image, const char *path, float scale, float save_option) {
    slot_calls.push_back({"color save", image, path, {static_cast<double>(scale), static_cast<double>(save_option)}});
    return slot_status;
}

// The library with the text format alone; what a plug-in has set is put back at the end.
class ImageFormatTest : public LibraryTest {
  protected:
    ImageFormatTest() {
        for (const int32_t type : foreign) {
            real_load_.push_back(KoRealImageGetLoadFunction(type));
            real_save_.push_back(KoRealImageGetSaveFunction(type));
            color_load_.push_back(KoColorImageGetLoadFunction(type));
            color_save_.push_back(KoColorImageGetSaveFunction(type));
            set_slots(type, nullptr, nullptr, nullptr, nullptr);
        }
        slot_calls.clear();
        slot_status = KO_OK;
    }
    ~ImageFormatTest() override {
        for (size_t i = 0; i < std::size(foreign); ++i) {
            set_slots(foreign[i], real_load_[i], real_save_[i], color_load_[i], color_save_[i]);
        }
    }

    static void set_slots(int32_t type, KoRealImageLoadFunction real_load, KoRealImageSaveFunction real_save,
                          KoColorImageLoadFunction color_load, KoColorImageSaveFunction color_save) {
        KoRealImageSetLoadFunction(type, real_load);
        KoRealImageSetSaveFunction(type, real_save);
        KoColorImageSetLoadFunction(type, color_load);
        KoColorImageSetSaveFunction(type, color_save);
    }

    static void set_recorders(int32_t type) {
        set_slots(type, &record_real_load, &record_real_save, &record_color_load, &record_color_save);
    }

  private:
    static constexpr int32_t foreign[] = {KO_IMAGE_FORMAT_UNKNOWN, KO_IMAGE_FORMAT_PNG, KO_IMAGE_FORMAT_JPEG};
    std::vector<KoRealImageLoadFunction> real_load_;
    std::vector<KoRealImageSaveFunction> real_save_;
    std::vector<KoColorImageLoadFunction> color_load_;
    std::vector<KoColorImageSaveFunction> color_save_;
};

// ---- names ----

TEST_F(ImageFormatTest, KeywordsNameTypesInAnyCase) {
    for (const auto &[name, type] : std::vector<std::pair<const char *, int32_t>>{
             {"txt", 1}, {"TXT", 1}, {"tXt", 1}, {"png", 2}, {"PnG", 2}, {"jpg", 3}, {"JPG", 3}, {"jpeg", 3}, {"Jpeg", 3}}) {
        EXPECT_EQ(KoImageFormatNameToType(name), type) << name;
    }
    EXPECT_EQ(KoImageFormatNameToType(nullptr), 0);
    expect_status(KO_OK, "");
}

// call gives 0 and reports text as an error.
template <class Call> void expect_no_type(const std::string &text, Call call) {
    KoStatusClear();
    const PrintCapture printed("error");
    EXPECT_EQ(call(), 0);
    const std::string report = "[ERROR] File format \"" + text + "\" is not supported";
    expect_status(KO_ERR_FORMAT_UNSUPPORTED, report);
    EXPECT_EQ(printed.texts(), Texts{report});
    KoStatusClear();
}

TEST_F(ImageFormatTest, OtherNamesAreReported) {
    for (const char *name : {"", "tx", "txtt", " txt", "tiff", "jpe", "jpegs", "Text", "Unknown", ".png"}) {
        expect_no_type(name, [&] { return KoImageFormatNameToType(name); });
    }
}

TEST_F(ImageFormatTest, FilenamesNameTypesByWhatFollowsTheLastDot) {
    for (const auto &[path, type] : std::vector<std::pair<const char *, int32_t>>{{"picture.TXT", 1},
                                                                                  {"picture.txt", 1},
                                                                                  {".txt", 1},
                                                                                  {"folder.d/picture.png", 2},
                                                                                  {"picture.txt.PNG", 2},
                                                                                  {"../picture..jpg", 3},
                                                                                  {"C:\\folder\\picture.Jpeg", 3}}) {
        EXPECT_EQ(KoImageFormatFromFilename(path), type) << path;
    }
    expect_status(KO_OK, "");
}

TEST_F(ImageFormatTest, AFilenameWithoutADotHasNoTypeAndNoReport) {
    for (const char *path : {"picture", "", "folder/picture", "txt"}) {
        EXPECT_EQ(KoImageFormatFromFilename(path), 0);
    }
    EXPECT_EQ(KoImageFormatFromFilename(nullptr), 0);
    expect_status(KO_OK, "");
}

TEST_F(ImageFormatTest, OtherExtensionsAreReported) {
    expect_no_type("tiff", [] { return KoImageFormatFromFilename("folder/picture.tiff"); });
    expect_no_type("TIFF", [] { return KoImageFormatFromFilename("picture.txt.TIFF"); });
    expect_no_type("", [] { return KoImageFormatFromFilename("picture."); });
    expect_no_type("txt ", [] { return KoImageFormatFromFilename("picture.txt "); });
    // a dot in a folder's name counts like any other
    expect_no_type("d/picture", [] { return KoImageFormatFromFilename("folder.d/picture"); });
    expect_no_type("/picture", [] { return KoImageFormatFromFilename("./picture"); });
}

TEST_F(ImageFormatTest, TypesHaveNames) {
    const char *const names[] = {"Unknown", "Text", "PNG", "JPEG", "Unknown", "Unknown"};
    for (int32_t type = 0; type < 6; ++type) {
        EXPECT_STREQ(KoImageFormatTypeToName(type), names[type]);
    }
    EXPECT_STREQ(KoImageFormatTypeToName(std::numeric_limits<int32_t>::max()), "Unknown");
    expect_status(KO_OK, "");
}

// ---- slots ----

// One of the four tables.
template <class Function> struct SlotTable {
    int32_t (*set)(int32_t, Function);
    Function (*get)(int32_t);
    Function recorder;
};

template <class Function> void expect_slots(const SlotTable<Function> &table) {
    for (const int32_t type : {0, 2, 3}) { // 0 is taken like the others
        EXPECT_EQ(table.get(type), nullptr);
        expect_success([&] { return table.set(type, table.recorder); });
        EXPECT_EQ(table.get(type), table.recorder);
        expect_success([&] { return table.set(type, nullptr); });
        EXPECT_EQ(table.get(type), nullptr);
    }
    const Function text = table.get(1);
    EXPECT_NE(text, nullptr);
    expect_success([&] { return table.set(1, table.recorder); });
    EXPECT_EQ(table.get(1), table.recorder);
    expect_success([&] { return table.set(1, text); });
    expect_status(KO_OK, "");
}

// Printed by default: the caller broke a contract. Set succeeds all the same.
template <class Function> void expect_no_slot(const SlotTable<Function> &table, int32_t type) {
    const std::string report = "[INTERNAL ERROR] Index out of bounds: " + std::to_string(type) + " (1-3)";
    const PrintCapture printed;
    KoStatusClear();
    EXPECT_EQ(table.set(type, table.recorder), KO_OK);
    expect_status(KO_ERR_INDEX_OUT_OF_BOUNDS, report);
    KoStatusClear();
    EXPECT_EQ(table.get(type), nullptr);
    expect_status(KO_ERR_INDEX_OUT_OF_BOUNDS, report);
    EXPECT_EQ(printed.texts(), (Texts{report, report}));
}

template <class Function> void expect_table(const SlotTable<Function> &table) {
    expect_slots(table);
    for (const int32_t type : {4, 7, std::numeric_limits<int32_t>::max()}) {
        expect_no_slot(table, type);
    }
}

TEST_F(ImageFormatTest, EveryTableHasSlotsOfItsOwn) {
    expect_table<KoRealImageLoadFunction>({&KoRealImageSetLoadFunction, &KoRealImageGetLoadFunction, &record_real_load});
    expect_table<KoRealImageSaveFunction>({&KoRealImageSetSaveFunction, &KoRealImageGetSaveFunction, &record_real_save});
    expect_table<KoColorImageLoadFunction>({&KoColorImageSetLoadFunction, &KoColorImageGetLoadFunction, &record_color_load});
    expect_table<KoColorImageSaveFunction>({&KoColorImageSetSaveFunction, &KoColorImageGetSaveFunction, &record_color_save});
}

// ---- the calls that choose ----

// A way to load or save, and what its slot is to be given.
struct Dispatch {
    const char *name;
    std::function<int32_t(const char *path, const char *format)> call;
    SlotCall slot; // but for the path
};

// The images that the calls below are given.
struct Images {
    RealImagePtr real = make_image(2, 1, {1.0f, 2.0f});
    ColorImagePtr color =
        make_color_image(2, 1, KO_COLORSPACE_YIQ, [](uint32_t c, uint64_t, uint64_t) { return static_cast<float>(c); });
    ColorImagePtr gray = make_color_image(2, 1, KO_COLORSPACE_GRAY, [](uint32_t, uint64_t, uint64_t) { return 5.0f; });

    std::vector<Dispatch> dispatches() const {
        RealImage *const r = real.get();
        ColorImage *const c = color.get();
        ColorImage *const g = gray.get();
        return {
            {"real load", [=](auto path, auto format) { return KoRealImageLoad(r, path, format); }, {"real load", r, "", {}}},
            {"real save",
             [=](auto path, auto format) { return KoRealImageSave(r, path, format, 0.1f, -7.5f); },
             {"real save", r, "", {static_cast<double>(0.1f), -7.5}}},
            {"color load",
             [=](auto path, auto format) { return KoColorImageLoad(c, path, format); },
             {"color load", c, "", {0.0, 0.0}}},
            {"color load with gamma",
             [=](auto path, auto format) { return KoColorImageLoadSetGamma(c, path, format, 0.1, 2.2); },
             {"color load", c, "", {0.1, 2.2}}},
            {"color save",
             [=](auto path, auto format) { return KoColorImageSave(c, path, format, 0.1f, -7.5f); },
             {"color save", c, "", {static_cast<double>(0.1f), -7.5}}},
            // a gray picture is its plane
            {"gray save",
             [=](auto path, auto format) { return KoColorImageSave(g, path, format, 0.1f, -7.5f); },
             {"real save", &g->planes[0], "", {static_cast<double>(0.1f), -7.5}}},
            {"gray load",
             [=](auto path, auto format) { return KoColorImageLoad(g, path, format); },
             {"color load", g, "", {0.0, 0.0}}}};
    }
};

// The call reaches the recorder of its kind alone, with its own arguments, and hands back what that returns.
void expect_dispatch(const Dispatch &dispatch, const char *path, const char *format) {
    SlotCall expected = dispatch.slot;
    expected.path = path;
    for (const int32_t status : std::vector<int32_t>{KO_OK, KO_ERR_FATAL, -12345}) {
        slot_calls.clear();
        slot_status = status;
        EXPECT_EQ(dispatch.call(path, format), status);
        EXPECT_EQ(slot_calls, std::vector<SlotCall>{expected});
    }
    expect_status(KO_OK, "");
}

TEST_F(ImageFormatTest, ACallReachesTheSlotOfItsFormat) {
    const Images images;
    for (const Dispatch &dispatch : images.dispatches()) {
        SCOPED_TRACE(dispatch.name);
        for (const int32_t type : {2, 3}) {
            set_recorders(type);
            for (const char *extension : {"png", "JPG", "jpeg"}) {
                if ((type == 2) == (std::string(extension) == "png")) {
                    expect_dispatch(dispatch, ("folder/picture." + std::string(extension)).c_str(), nullptr);
                    // a format beats the extension, whatever that is
                    for (const char *path : {"picture.txt", "picture.tiff", "picture", ""}) {
                        expect_dispatch(dispatch, path, extension);
                    }
                }
            }
            set_slots(type, nullptr, nullptr, nullptr, nullptr);
        }
    }
}

// call reports these errors, the last one of them first in the chain, and reaches no slot.
void expect_errors(int32_t code, const Texts &texts, const std::function<int32_t()> &call) {
    slot_calls.clear();
    KoStatusClear();
    const PrintCapture printed("error");
    EXPECT_EQ(call(), code);
    Texts reports;
    std::string chain;
    for (const std::string &text : texts) {
        reports.push_back("[ERROR] " + text);
        chain = reports.back() + (chain.empty() ? "" : "\n-> ") + chain;
    }
    expect_status(code, chain);
    EXPECT_EQ(printed.texts(), reports);
    EXPECT_TRUE(slot_calls.empty());
    KoStatusClear();
}

TEST_F(ImageFormatTest, AnUnknownFormatIsReportedOnTopOfItsName) {
    set_recorders(0); // which is never asked
    set_recorders(2);
    const Images images;
    for (const Dispatch &dispatch : images.dispatches()) {
        SCOPED_TRACE(dispatch.name);
        expect_errors(KO_ERR_UNKNOWN_FORMAT, {"Cannot determine the format of \"picture\""},
                      [&] { return dispatch.call("picture", nullptr); });
        expect_errors(KO_ERR_UNKNOWN_FORMAT,
                      {"File format \"tiff\" is not supported", "Cannot determine the format of \"a/picture.tiff\""},
                      [&] { return dispatch.call("a/picture.tiff", nullptr); });
        expect_errors(KO_ERR_UNKNOWN_FORMAT,
                      {"File format \"tiff\" is not supported", "Cannot determine the format of \"picture.png\""},
                      [&] { return dispatch.call("picture.png", "tiff"); });
        expect_errors(KO_ERR_UNKNOWN_FORMAT,
                      {"File format \"\" is not supported", "Cannot determine the format of \"picture.png\""},
                      [&] { return dispatch.call("picture.png", ""); });
    }
}

TEST_F(ImageFormatTest, AnEmptySlotIsReportedByTheNameOfItsFormat) {
    const Images images;
    for (const Dispatch &dispatch : images.dispatches()) {
        SCOPED_TRACE(dispatch.name);
        for (const auto &[path, format, name] : std::vector<std::tuple<const char *, const char *, const char *>>{
                 {"picture.png", nullptr, "PNG"}, {"picture.jpg", nullptr, "JPEG"}, {"picture.txt", "jpeg", "JPEG"}}) {
            expect_errors(KO_ERR_FORMAT_UNSUPPORTED, {"File format \"" + std::string(name) + "\" is not supported"},
                          [&, p = path, f = format] { return dispatch.call(p, f); });
        }
    }
}

// The slots of the other kind do not stand in.
TEST_F(ImageFormatTest, AGrayPictureNeedsTheSlotOfItsPlane) {
    const Images images;
    set_slots(2, nullptr, nullptr, &record_color_load, &record_color_save);
    expect_errors(KO_ERR_FORMAT_UNSUPPORTED, {"File format \"PNG\" is not supported"},
                  [&] { return KoColorImageSave(images.gray.get(), "picture.png", nullptr, 1.0f, 0.0f); });
    set_slots(2, &record_real_load, nullptr, nullptr, nullptr);
    expect_errors(KO_ERR_FORMAT_UNSUPPORTED, {"File format \"PNG\" is not supported"},
                  [&] { return KoColorImageLoad(images.gray.get(), "picture.png", nullptr); });
}

TEST_F(ImageFormatTest, AGrayPictureWithoutItsPlaneIsNotSaved) {
    const ColorImagePtr gray(KoColorImageNew(2, 2, KO_COLORSPACE_GRAY));
    KoColorImageFree(gray.get());
    set_recorders(2);
    expect_errors(KO_ERR_INVALID_ARGUMENT, {"Invalid argument"},
                  [&] { return KoColorImageSave(gray.get(), "picture.png", nullptr, 1.0f, 0.0f); });
}

// ---- text pictures: saving ----

// The text that a picture's file has.
std::string plain_text(const RealImage *image, float scale) {
    std::string text;
    for (uint64_t y = 0; y < image->height; ++y) {
        for (uint64_t x = 0; x < image->width; ++x) {
            const float product = scale * image->rows[y][x];
            char number[64];
            std::snprintf(number, sizeof number, "%f", static_cast<double>(product));
            text += number;
            text += x + 1 < image->width ? "," : "\n";
        }
    }
    return text;
}

std::string saved(const RealImage *image, float scale, float save_option = 0.0f) {
    const TemporaryFile file("picture.txt");
    expect_success([&] { return KoRealImageSaveTXT(image, file.c_str(), scale, save_option); });
    return read_bytes(file.path()); // while the stream is open
}

TEST_F(ImageFormatTest, TextHasARowALine) {
    const RealImagePtr image = make_image(3, 2, {0.0f, 1.0f, -2.5f, 255.0f, 1e6f, 0.015625f});
    EXPECT_EQ(saved(image.get(), 1.0f), "0.000000,1.000000,-2.500000\n255.000000,1000000.000000,0.015625\n");
    EXPECT_EQ(saved(make_image(1, 1, std::vector<float>{7.0f}).get(), 1.0f), "7.000000\n");
    EXPECT_EQ(saved(make_image(1, 3, {1.0f, 2.0f, 3.0f}).get(), 1.0f), "1.000000\n2.000000\n3.000000\n");
}

// Scale is taken as given.
TEST_F(ImageFormatTest, TextIsScaled) {
    const RealImagePtr image = make_image(2, 2, {1.0f, 2.0f, 100.0f, 255.0f});
    EXPECT_EQ(saved(image.get(), 0.0f), "0.000000,0.000000\n0.000000,0.000000\n");
    EXPECT_EQ(saved(image.get(), -2.0f), "-2.000000,-4.000000\n-200.000000,-510.000000\n");
    // a product in single precision: in double it would be 18454.938877
    EXPECT_EQ(saved(make_image(1, 1, std::vector<float>{16777.217f}).get(), 1.1f), "18454.939453\n");
}

TEST_F(ImageFormatTest, TextKnowsNoSaveOption) {
    const RealImagePtr image = make_image(2, 1, {1.0f, 2.0f});
    for (const float save_option : {-1.0f, 0.5f, 100.0f, std::numeric_limits<float>::quiet_NaN()}) {
        EXPECT_EQ(saved(image.get(), 1.0f, save_option), "1.000000,2.000000\n");
    }
}

// Larger than any buffer of a stream, and complete on the disk when the call returns.
TEST_F(ImageFormatTest, TextIsCompleteWhenTheCallReturns) {
    Noise noise(1);
    const RealImagePtr image = make_image(301, 203, [&](uint64_t, uint64_t) { return noise.uniform(-300.0f, 300.0f); });
    EXPECT_EQ(saved(image.get(), 1.0f), plain_text(image.get(), 1.0f));
    EXPECT_EQ(saved(image.get(), 0.0123f), plain_text(image.get(), 0.0123f));
}

TEST_F(ImageFormatTest, APictureWithoutRowsIsAnEmptyFile) {
    EXPECT_EQ(saved(make_image(0, 0, std::vector<float>{}).get(), 1.0f), "");
}

TEST_F(ImageFormatTest, SaveReplacesAFile) {
    const RealImagePtr image = make_image(2, 1, {1.0f, 2.0f});
    const TemporaryFile file("picture.txt", "something that is longer than the text that takes its place");
    expect_success([&] { return KoRealImageSaveTXT(image.get(), file.c_str(), 1.0f, 0.0f); });
    EXPECT_EQ(read_bytes(file.path()), "1.000000,2.000000\n");
}

TEST_F(ImageFormatTest, SaveThatCannotOpen) {
    const RealImagePtr image = make_image(2, 1, {1.0f, 2.0f});
    const std::string path = temporary_path("folder") + "/picture.txt";
    StderrCapture captured;
    expect_errors(KO_ERR_OPEN_WRITE, {"Cannot open file \"" + path + "\" for writing"},
                  [&] { return KoRealImageSaveTXT(image.get(), path.c_str(), 1.0f, 0.0f); });
    EXPECT_EQ(captured.stop(), "");
}

#ifdef __linux__

TEST_F(ImageFormatTest, AFullDeviceGoesUnnoticed) {
    Noise noise(1);
    const RealImagePtr image = make_image(200, 200, [&](uint64_t, uint64_t) { return noise.uniform(-300.0f, 300.0f); });
    expect_success([&] { return KoRealImageSaveTXT(image.get(), "/dev/full", 1.0f, 0.0f); });
}

int64_t open_streams() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

// How many streams a call opens and leaves open.
int64_t left_open(const std::function<void()> &call) {
    const int64_t before = open_streams();
    call();
    return open_streams() - before;
}

TEST_F(ImageFormatTest, TextFunctionsLeaveTheirStreamOpen) {
    const TemporaryFile good("picture.txt", "1,2\n");
    const TemporaryFile bad("picture.txt", "1,2\n3\n");
    const TemporaryFile empty("picture.txt", "");
    const TemporaryFile target("picture.txt");
    const RealImagePtr image = make_image(2, 1, {1.0f, 2.0f});
    EXPECT_EQ(left_open([&] { KoRealImageSaveTXT(image.get(), target.c_str(), 1.0f, 0.0f); }), 1);
    EXPECT_EQ(left_open([&] { KoRealImageLoadTXT(image.get(), good.c_str()); }), 1);
    EXPECT_EQ(left_open([&] { KoRealImageLoadTXT(image.get(), bad.c_str()); }), 1);
    EXPECT_EQ(left_open([&] { KoRealImageLoadTXT(image.get(), empty.c_str()); }), 1);
    EXPECT_EQ(left_open([&] { KoRealImageLoadTXT(image.get(), "no such file"); }), 0);
    const ColorImagePtr color(KoColorImageNew(2, 1, KO_COLORSPACE_RGB));
    const TemporaryFile folder("folder");
    std::filesystem::create_directory(folder.path());
    const std::string path = folder.path() + "/picture.txt";
    KoColorImageClear(color.get());
    EXPECT_EQ(left_open([&] { KoColorImageSaveTXT(color.get(), path.c_str(), 1.0f, 0.0f); }), 3);
    EXPECT_EQ(left_open([&] { KoColorImageLoadTXT(color.get(), path.c_str(), 0.0, 0.0); }), 3);
    EXPECT_EQ(left_open([&] { KoColorImageLoadTXT(color.get(), good.c_str(), 0.0, 0.0); }), 1);
}

#endif

// ---- text pictures: loading ----

struct TextPicture {
    const char *name;
    const char *text;
    uint64_t width;
    uint64_t height;
    std::vector<float> pixels;
};

class TextPictures : public ImageFormatTest, public testing::WithParamInterface<TextPicture> {};

TEST_P(TextPictures, LoadWithoutAReport) {
    const TextPicture &expected = GetParam();
    const TemporaryFile file("picture.txt", expected.text);
    const RealImagePtr image = make_image(4, 4, [](uint64_t, uint64_t) { return 77.0f; });
    const PrintCapture printed("debug");
    StderrCapture captured;
    expect_success([&] { return KoRealImageLoadTXT(image.get(), file.c_str()); });
    EXPECT_EQ(captured.stop(), "");
    EXPECT_EQ(printed.texts(), Texts());
    EXPECT_EQ(image->width, expected.width);
    EXPECT_EQ(image->height, expected.height);
    EXPECT_TRUE(same_floats(expected.pixels, pixels(image.get())));
    EXPECT_TRUE(padding_is_zero(image.get()));
}

INSTANTIATE_TEST_SUITE_P(
    ByHand, TextPictures,
    testing::Values(TextPicture{"Plain", "1,2.5,-3\n4,5,6\n", 3, 2, {1.0f, 2.5f, -3.0f, 4.0f, 5.0f, 6.0f}},
                    TextPicture{"OnePixel", "7\n", 1, 1, {7.0f}},
                    TextPicture{"OneColumn", "1\n2\n3\n", 1, 3, {1.0f, 2.0f, 3.0f}},
                    TextPicture{"FiveNumbers", "1,2,3,4,5\n", 5, 1, {1.0f, 2.0f, 3.0f, 4.0f, 5.0f}},
                    // any character separates
                    TextPicture{"Separators", "1;2\t3 4x5\n", 5, 1, {1.0f, 2.0f, 3.0f, 4.0f, 5.0f}},
                    // white space before a number does not count, line feeds included
                    TextPicture{"WhiteSpace", "\n\n  1, 2,\n\n\t3\n", 3, 1, {1.0f, 2.0f, 3.0f}},
                    TextPicture{"Exponents", "1e2,-2.5E-1,.5,5.\n", 4, 1, {100.0f, -0.25f, 0.5f, 5.0f}},
                    TextPicture{"Signs", "+1,-0\n", 2, 1, {1.0f, -0.0f}},
                    // the last number needs a character behind it
                    TextPicture{"LastNumberLost", "1\n2\n3", 1, 2, {1.0f, 2.0f}},
                    TextPicture{"LastOfARowLost", "1,2\n3", 2, 1, {1.0f, 2.0f}},
                    // the first line's length counts, and the total
                    TextPicture{"RaggedRows", "1,2\n3\n4,5,6\n", 2, 3, {1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f}},
                    TextPicture{"OtherTextEnds", "1,2\n3,4\nwords\n5,6\n", 2, 2, {1.0f, 2.0f, 3.0f, 4.0f}},
                    // a file that does not begin with a number
                    TextPicture{"Empty", "", 0, 0, {}}, TextPicture{"LineFeeds", "\n\n\n", 0, 0, {}},
                    TextPicture{"Words", "words\n1,2\n", 0, 0, {}}, TextPicture{"LoneNumber", "5", 0, 0, {}},
                    TextPicture{"LeadingComma", ",1,2\n", 0, 0, {}}),
    [](const auto &each) { return std::string(each.param.name); });

#ifndef _WIN32

// What the C library's scan accepts.
TEST_F(ImageFormatTest, HexadecimalNumbersAndInfinitiesLoad) {
    const TemporaryFile file("picture.txt", "0x10,0x1.8p1\ninf,-infinity\n");
    const RealImagePtr image = make_image(1, 1, std::vector<float>{77.0f});
    expect_success([&] { return KoRealImageLoadTXT(image.get(), file.c_str()); });
    constexpr float infinity = std::numeric_limits<float>::infinity();
    EXPECT_TRUE(same_floats({16.0f, 3.0f, infinity, -infinity}, pixels(image.get())));
}

#endif

class UnfitTexts : public ImageFormatTest, public testing::WithParamInterface<TextPicture> {};

// The count does not make up whole rows: the image stays as it was.
TEST_P(UnfitTexts, AreReported) {
    const TemporaryFile file("picture.txt", GetParam().text);
    const RealImagePtr image = make_image(2, 3, {1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f});
    const RealImage before = *image;
    StderrCapture captured;
    expect_errors(KO_ERR_READ_FILE, {"Cannot read file \"" + file.path() + "\""},
                  [&] { return KoRealImageLoadTXT(image.get(), file.c_str()); });
    EXPECT_EQ(captured.stop(), "");
    EXPECT_EQ(image->buffer, before.buffer);
    EXPECT_EQ(image->width, 2u);
    EXPECT_EQ(image->height, 3u);
    EXPECT_EQ(pixels(image.get()), (std::vector<float>{1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f}));
}

INSTANTIATE_TEST_SUITE_P(
    ByHand, UnfitTexts,
    testing::Values(TextPicture{"NoLineFeed", "1,2,3", 0, 0, {}}, TextPicture{"NoLineFeedBehindAComma", "1,", 0, 0, {}},
                    TextPicture{"LongerRow", "1,2\n3,4,5\n", 0, 0, {}}, TextPicture{"ShorterRow", "1,2\n3\n", 0, 0, {}},
                    TextPicture{"LastOfARowLost", "1,2\n3,4", 0, 0, {}},
                    // a carriage return hides the line feed behind it
                    TextPicture{"CarriageReturns", "1,2\r\n3,4\r\n", 0, 0, {}},
                    // the comma stands where a number should
                    TextPicture{"DoubledComma", "1,,2\n", 0, 0, {}}, TextPicture{"SpaceBeforeAComma", "1 ,2\n", 0, 0, {}},
                    TextPicture{"WordInARow", "1,2\n3,word\n", 0, 0, {}}, TextPicture{"TrailingComma", "1,2,\n", 0, 0, {}}),
    [](const auto &each) { return std::string(each.param.name); });

TEST_F(ImageFormatTest, LoadOfAMissingFile) {
    const std::string path = temporary_path("missing.txt");
    const RealImagePtr image = make_image(2, 1, {1.0f, 2.0f});
    StderrCapture captured;
    expect_errors(KO_ERR_OPEN_READ, {"Cannot open file \"" + path + "\" for reading"},
                  [&] { return KoRealImageLoadTXT(image.get(), path.c_str()); });
    EXPECT_EQ(captured.stop(), "");
    EXPECT_EQ(pixels(image.get()), (std::vector<float>{1.0f, 2.0f}));
}

// Six decimals come back, smaller ones do not.
TEST_F(ImageFormatTest, TextKeepsSixDecimals) {
    Noise noise(2);
    const RealImagePtr image = make_image(101, 67, [&](uint64_t, uint64_t) {
        return static_cast<float>(noise.next() % 1000000) / 64.0f; // six binary places have six decimals
    });
    image->rows[0][0] = 0.0000004f;
    image->rows[0][1] = 1.00000025f;
    const TemporaryFile file("picture.txt");
    KoRealImageSave(image.get(), file.c_str(), nullptr, 1.0f, 0.0f);
    const RealImagePtr back = make_image(1, 1, std::vector<float>{77.0f});
    expect_success([&] { return KoRealImageLoad(back.get(), file.c_str(), nullptr); });
    EXPECT_EQ(back->rows[0][0], 0.0f);
    EXPECT_EQ(back->rows[0][1], 1.0f);
    image->rows[0][0] = 0.0f;
    image->rows[0][1] = 1.0f;
    EXPECT_TRUE(same_floats(pixels(image.get()), pixels(back.get())));
}

TEST_F(ImageFormatTest, AFormatReadsTextFromAnyName) {
    const TemporaryFile file("picture.png", "1,2\n");
    const RealImagePtr image = make_image(1, 1, std::vector<float>{77.0f});
    expect_success([&] { return KoRealImageLoad(image.get(), file.c_str(), "txt"); });
    EXPECT_EQ(pixels(image.get()), (std::vector<float>{1.0f, 2.0f}));
}

// ---- text pictures in colour ----

// A folder for the files of one picture.
class ColorTextTest : public ImageFormatTest {
  protected:
    ColorTextTest() : folder_("folder") { std::filesystem::create_directory(folder_.path()); }

    std::string path(const std::string &end = "") const { return folder_.path() + "/picture.txt" + end; }
    void write(const std::string &end, const std::string &text) const { write_bytes(path(end), text); }
    void write_three() const {
        write(".R", "1,2\n");
        write(".G", "3,4\n");
        write(".B", "5,6\n");
    }
    std::vector<std::string> files() const { return names_in(folder_.path()); }

  private:
    TemporaryFile folder_;
};

ColorImagePtr filled_color_image(uint32_t width, uint32_t height, int32_t space) {
    return make_color_image(width, height, space, [](uint32_t c, uint64_t, uint64_t) { return 70.0f + static_cast<float>(c); });
}

TEST_F(ColorTextTest, SaveWritesThreeFilesBehindTheWholePath) {
    for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_YIQ}) {
        const ColorImagePtr image =
            make_color_image(2, 1, space, [](uint32_t c, uint64_t x, uint64_t) { return static_cast<float>(10 * c + x); });
        expect_success([&] { return KoColorImageSave(image.get(), path().c_str(), nullptr, 2.0f, 0.0f); });
        EXPECT_EQ(files(), (Texts{"picture.txt.B", "picture.txt.G", "picture.txt.R"}));
        EXPECT_EQ(read_bytes(path(".R")), "0.000000,2.000000\n");
        EXPECT_EQ(read_bytes(path(".G")), "20.000000,22.000000\n");
        EXPECT_EQ(read_bytes(path(".B")), "40.000000,42.000000\n");
    }
}

TEST_F(ColorTextTest, SaveOfAGrayPictureWritesOneFile) {
    const ColorImagePtr image = filled_color_image(2, 1, KO_COLORSPACE_GRAY);
    expect_success([&] { return KoColorImageSave(image.get(), path().c_str(), nullptr, 0.5f, 0.0f); });
    EXPECT_EQ(files(), Texts{"picture.txt"});
    EXPECT_EQ(read_bytes(path()), "35.000000,35.000000\n");
}

TEST_F(ColorTextTest, SaveTxtItselfNeedsThreePlanes) {
    const ColorImagePtr gray = filled_color_image(2, 1, KO_COLORSPACE_GRAY);
    const ColorImagePtr none = filled_color_image(2, 1, KO_COLORSPACE_RGB);
    KoColorImageFree(none.get());
    for (const ColorImage *image : {gray.get(), none.get()}) {
        expect_errors(KO_ERR_INVALID_ARGUMENT, {"Invalid argument"},
                      [&] { return KoColorImageSaveTXT(image, path().c_str(), 1.0f, 0.0f); });
    }
    EXPECT_EQ(files(), Texts());
}

TEST_F(ColorTextTest, SaveStopsAtTheFirstFailure) {
    const ColorImagePtr image = filled_color_image(2, 1, KO_COLORSPACE_RGB);
    std::filesystem::create_directory(path(".G"));
    expect_errors(KO_ERR_OPEN_WRITE, {"Cannot open file \"" + path(".G") + "\" for writing"},
                  [&] { return KoColorImageSaveTXT(image.get(), path().c_str(), 1.0f, 0.0f); });
    EXPECT_EQ(files(), (Texts{"picture.txt.G", "picture.txt.R"}));
    EXPECT_EQ(read_bytes(path(".R")), "70.000000,70.000000\n");
}

// The three planes, one behind the other.
std::vector<float> all_pixels(const ColorImage *image) {
    std::vector<float> all;
    for (uint64_t c = 0; c < image->depth; ++c) {
        const std::vector<float> plane = pixels(&image->planes[c]);
        all.insert(all.end(), plane.begin(), plane.end());
    }
    return all;
}

TEST_F(ColorTextTest, LoadReadsThreePlanesAndKeepsTheColourSpace) {
    write_three();
    write("", "7,8\n"); // not looked at beside the three
    for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_YIQ}) {
        for (const double gamma : {0.0, 2.2}) {
            const ColorImagePtr image = filled_color_image(5, 4, space);
            expect_success([&] { return KoColorImageLoadSetGamma(image.get(), path().c_str(), nullptr, gamma, gamma); });
            EXPECT_EQ(image->color_space, space);
            EXPECT_EQ(image->depth, 3u);
            EXPECT_EQ(KoColorImageGetWidth(image.get()), 2u);
            EXPECT_EQ(KoColorImageGetHeight(image.get()), 1u);
            EXPECT_EQ(all_pixels(image.get()), (std::vector<float>{1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f}));
        }
    }
}

TEST_F(ColorTextTest, LoadWithoutTheRedFileMakesTheImageGray) {
    write("", "7,8\n9,10\n");
    write(".G", "3,4\n"); // not looked for either
    for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_YIQ, KO_COLORSPACE_GRAY}) {
        const ColorImagePtr image = filled_color_image(5, 4, space);
        const RealImage *planes = image->planes;
        expect_success([&] { return KoColorImageLoad(image.get(), path().c_str(), nullptr); });
        EXPECT_EQ(image->color_space, KO_COLORSPACE_GRAY);
        ASSERT_EQ(image->depth, 1u);
        EXPECT_EQ(all_pixels(image.get()), (std::vector<float>{7.0f, 8.0f, 9.0f, 10.0f}));
        EXPECT_TRUE(space != KO_COLORSPACE_GRAY || image->planes == planes);
    }
}

// The image has become gray by then.
TEST_F(ColorTextTest, LoadWithoutAnyFile) {
    const ColorImagePtr color = filled_color_image(5, 4, KO_COLORSPACE_RGB);
    const ColorImagePtr gray = filled_color_image(2, 1, KO_COLORSPACE_GRAY);
    for (ColorImage *image : {color.get(), gray.get()}) {
        expect_errors(KO_ERR_OPEN_READ, {"Cannot open file \"" + path() + "\" for reading"},
                      [&] { return KoColorImageLoadTXT(image, path().c_str(), 0.0, 0.0); });
        EXPECT_EQ(image->color_space, KO_COLORSPACE_GRAY);
        EXPECT_EQ(image->depth, 1u);
    }
    EXPECT_EQ(all_pixels(color.get()), std::vector<float>());
    EXPECT_EQ(all_pixels(gray.get()), (std::vector<float>{70.0f, 70.0f}));
}

TEST_F(ColorTextTest, LoadOfThreeFilesNeedsThreePlanes) {
    write_three();
    const ColorImagePtr gray = filled_color_image(2, 1, KO_COLORSPACE_GRAY);
    expect_errors(KO_ERR_INVALID_ARGUMENT, {"Invalid argument"},
                  [&] { return KoColorImageLoadTXT(gray.get(), path().c_str(), 0.0, 0.0); });
    EXPECT_EQ(all_pixels(gray.get()), (std::vector<float>{70.0f, 70.0f}));
}

// Planes before the failing one are loaded.
TEST_F(ColorTextTest, LoadStopsAtTheFirstFailure) {
    write_three();
    write(".G", "3,4\n5\n");
    const ColorImagePtr image = filled_color_image(2, 1, KO_COLORSPACE_RGB);
    expect_errors(KO_ERR_READ_FILE, {"Cannot read file \"" + path(".G") + "\""},
                  [&] { return KoColorImageLoadTXT(image.get(), path().c_str(), 0.0, 0.0); });
    EXPECT_EQ(all_pixels(image.get()), (std::vector<float>{1.0f, 2.0f, 71.0f, 71.0f, 72.0f, 72.0f}));
    write(".G", "3,4\n");
    std::filesystem::remove(path(".B"));
    expect_errors(KO_ERR_OPEN_READ, {"Cannot open file \"" + path(".B") + "\" for reading"},
                  [&] { return KoColorImageLoadTXT(image.get(), path().c_str(), 0.0, 0.0); });
    EXPECT_EQ(all_pixels(image.get()), (std::vector<float>{1.0f, 2.0f, 3.0f, 4.0f, 72.0f, 72.0f}));
}

// Whatever the files hold, the planes are of one size afterwards.
TEST_F(ColorTextTest, LoadOfPlanesOfDifferentSizes) {
    for (const auto &[green, blue] : std::vector<std::pair<const char *, const char *>>{
             {"3\n4\n", "5,6\n"}, {"3,4\n", "5,6,7\n"}, {"", "5,6\n"}, {"3,4\n", "5,6\n7,8\n"}, {"3\n", "5\n"}}) {
        write(".R", "1,2\n");
        write(".G", green);
        write(".B", blue);
        const ColorImagePtr image = filled_color_image(5, 4, KO_COLORSPACE_RGB);
        EXPECT_EQ(KoColorImageLoadTXT(image.get(), path().c_str(), 0.0, 0.0), KO_ERR_READ_FILE);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_READ_FILE);
        const bool green_fits = std::string(green) == "3,4\n";
        const bool blue_fits = std::string(blue) == "5,6\n";
        EXPECT_EQ(all_pixels(image.get()), (std::vector<float>{1.0f, 2.0f, green_fits ? 3.0f : 0.0f, green_fits ? 4.0f : 0.0f,
                                                               blue_fits ? 5.0f : 0.0f, blue_fits ? 6.0f : 0.0f}));
        KoStatusClear();
    }
}

TEST_F(ColorTextTest, NamesMayBeLong) {
    const std::string long_path = path("-" + std::string(200, 'n') + ".txt");
    const ColorImagePtr image = filled_color_image(2, 1, KO_COLORSPACE_RGB);
    expect_success([&] { return KoColorImageSave(image.get(), long_path.c_str(), nullptr, 1.0f, 0.0f); });
    EXPECT_EQ(read_bytes(long_path + ".B"), "72.000000,72.000000\n");
    const ColorImagePtr back = filled_color_image(1, 1, KO_COLORSPACE_RGB);
    expect_success([&] { return KoColorImageLoad(back.get(), long_path.c_str(), nullptr); });
    EXPECT_EQ(all_pixels(back.get()), all_pixels(image.get()));
}

} // namespace
