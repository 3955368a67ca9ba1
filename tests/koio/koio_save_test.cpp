// Images saved as PNG and JPEG files through the plug-in, and what is left when that fails. The files are taken apart without
// the plug-in.
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <limits>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "awkward_floats.h"
#include "koio_test.h"
#include "same_floats.h"

namespace {

using namespace ko_test;

using Texts = std::vector<std::string>;

class KoioSave : public KoioTest {
  protected:
    // The bytes of the file that an image becomes.
    std::string saved(const RealImage *image, const std::string &name, float scale = 1.0f, float save_option = 0.0f) const {
        expect_success([&] { return KoRealImageSave(image, path(name).c_str(), nullptr, scale, save_option); });
        EXPECT_EQ(files(), Texts{name}) << "drafts are left";
        return read_bytes(path(name));
    }
    std::string saved(const ColorImage *image, const std::string &name, float scale = 1.0f, float save_option = 0.0f) const {
        expect_success([&] { return KoColorImageSave(image, path(name).c_str(), nullptr, scale, save_option); });
        EXPECT_EQ(files(), Texts{name}) << "drafts are left";
        return read_bytes(path(name));
    }

    // The bytes that values become.
    std::vector<uint8_t> bytes_of(const std::vector<float> &values, float scale) const {
        return png_pixels(saved(make_image(values.size(), 1, values).get(), "picture.png", scale)).bytes;
    }
};

// Bytes in all their values, soft enough for a JPEG file.
ColorImagePtr soft_picture(uint32_t width, uint32_t height, int32_t space) {
    return make_color_image(width, height, space, [](uint32_t c, uint64_t x, uint64_t y) {
        return static_cast<float>(static_cast<int>(127.0 + 100.0 * std::sin(static_cast<double>(x + 2 * y) / 25.0 + c)));
    });
}

RealImagePtr noisy_image(uint64_t width, uint64_t height) {
    Noise noise(3);
    return make_image(width, height, [&](uint64_t, uint64_t) { return static_cast<float>(noise.byte() / 4); });
}

TEST_F(KoioSave, PngKeepsEveryByte) {
    const ColorImagePtr color = make_color_image(37, 21, KO_COLORSPACE_RGB, [](uint32_t c, uint64_t x, uint64_t y) {
        return static_cast<float>(mixed(static_cast<uint32_t>(x), static_cast<uint32_t>(y), c));
    });
    const Pixels pixels_of_file = png_pixels(saved(color.get(), "picture.png"));
    EXPECT_EQ(pixels_of_file.width, 37u);
    EXPECT_EQ(pixels_of_file.height, 21u);
    EXPECT_EQ(pixels_of_file.channels, 3u);
    EXPECT_EQ(planes_of(pixels_of_file, 3), all_pixels(color.get()));
    const Pixels gray = png_pixels(saved(&color->planes[1], "picture.png"));
    EXPECT_EQ(gray.channels, 1u);
    EXPECT_EQ(planes_of(gray, 1), pixels(&color->planes[1]));
}

TEST_F(KoioSave, PngRoundTrip) {
    const ColorImagePtr color = soft_picture(37, 21, KO_COLORSPACE_RGB);
    saved(color.get(), "picture.png");
    const ColorImagePtr back = old_color_image(KO_COLORSPACE_GRAY);
    expect_success([&] { return KoColorImageLoad(back.get(), path("picture.png").c_str(), nullptr); });
    EXPECT_EQ(all_pixels(back.get()), all_pixels(color.get()));
    saved(&color->planes[2], "picture.png");
    const RealImagePtr gray = old_image();
    expect_success([&] { return KoRealImageLoad(gray.get(), path("picture.png").c_str(), nullptr); });
    EXPECT_EQ(pixels(gray.get()), pixels(&color->planes[2]));
}

TEST_F(KoioSave, JpegRoundTrip) {
    const ColorImagePtr color = soft_picture(65, 43, KO_COLORSPACE_RGB);
    const std::string file = saved(color.get(), "picture.jpg");
    EXPECT_EQ(jpeg_sampling(file), "11 11 11");
    EXPECT_FALSE(jpeg_is_progressive(file));
    const ColorImagePtr back = old_color_image(KO_COLORSPACE_RGB);
    expect_success([&] { return KoColorImageLoad(back.get(), path("picture.jpg").c_str(), nullptr); });
    const std::vector<float> before = all_pixels(color.get());
    const std::vector<float> after = all_pixels(back.get());
    ASSERT_EQ(before.size(), after.size());
    for (size_t i = 0; i < before.size(); ++i) {
        EXPECT_NEAR(after[i], before[i], 8.0) << i;
    }
    EXPECT_EQ(jpeg_pixels(saved(&color->planes[0], "picture.jpg")).channels, 1u);
}

TEST_F(KoioSave, AGrayPictureIsAGrayFile) {
    const ColorImagePtr gray = soft_picture(17, 9, KO_COLORSPACE_GRAY);
    const Pixels found = png_pixels(saved(gray.get(), "picture.png"));
    EXPECT_EQ(found.channels, 1u);
    EXPECT_EQ(planes_of(found, 1), all_pixels(gray.get()));
    // the slot itself takes it too
    const auto slot = KoColorImageGetSaveFunction(KO_IMAGE_FORMAT_PNG);
    expect_success([&] { return slot(gray.get(), path("picture.png").c_str(), 1.0f, 0.0f); });
    EXPECT_EQ(png_pixels(read_bytes(path("picture.png"))), found);
}

// A file holds RGB: a picture in YIQ is converted as the library converts it.
TEST_F(KoioSave, YiqIsSavedAsRgb) {
    const ColorImagePtr rgb = soft_picture(31, 12, KO_COLORSPACE_RGB);
    const ColorImagePtr yiq(KoColorImageNewFromColorImage(KO_COLORSPACE_YIQ, rgb.get()));
    const ColorImagePtr again(KoColorImageNewFromColorImage(KO_COLORSPACE_RGB, yiq.get()));
    EXPECT_EQ(png_pixels(saved(yiq.get(), "picture.png")), png_pixels(saved(again.get(), "picture.png")));
    EXPECT_EQ(png_pixels(saved(yiq.get(), "picture.png")), png_pixels(saved(rgb.get(), "picture.png")));
    EXPECT_EQ(png_pixels(saved(yiq.get(), "picture.png", 0.5f)), png_pixels(saved(again.get(), "picture.png", 0.5f)));
}

// ---- values

TEST_F(KoioSave, ValuesAreRoundedAndClamped) {
    const std::vector<float> values{0.0f,   -0.0f,   0.49999997f, 0.5f,   1.4999f, 1.5f,     2.5f,      127.5f,      254.4999f,
                                    254.5f, 254.99f, 255.0f,      255.4f, 255.5f,  256.0f,   511.0f,    1e9f,        3e38f,
                                    -0.4f,  -1.0f,   -255.0f,     -3e38f, 1e-40f,  infinity, -infinity, not_a_number};
    const std::vector<uint8_t> expected{0,   0,   0,   1,   1,   2, 3, 128, 254, 255, 255, 255, 255,
                                        255, 255, 255, 255, 255, 0, 0, 0,   0,   0,   255, 0,   0};
    EXPECT_EQ(bytes_of(values, 1.0f), expected);
}

TEST_F(KoioSave, ScaleMultiplies) {
    EXPECT_EQ(bytes_of({0.0f, 1.0f, 100.0f, 255.0f, infinity}, 0.5f), (std::vector<uint8_t>{0, 1, 50, 128, 255}));
    EXPECT_EQ(bytes_of({0.0f, 0.25f, 0.5f, 1.0f, 2.0f}, 255.0f), (std::vector<uint8_t>{0, 64, 128, 255, 255}));
    EXPECT_EQ(bytes_of({-2.0f, 3.0f, -infinity}, -1.0f), (std::vector<uint8_t>{2, 0, 255}));
    EXPECT_EQ(bytes_of({5.0f, infinity, not_a_number}, 0.0f), (std::vector<uint8_t>{0, 0, 0}));
    EXPECT_EQ(bytes_of({5.0f, 0.0f, 300.0f}, not_a_number), (std::vector<uint8_t>{0, 0, 0}));
    // a product in single precision: in double it would round to 1
    EXPECT_EQ(bytes_of({16777217.0f / 33554432.0f}, 2.9999998f), (std::vector<uint8_t>{1}));
}

TEST_F(KoioSave, AwkwardValuesInAllPlanes) {
    const std::vector<float> values = awkward_floats(3 * 40 * 20, 5);
    const ColorImagePtr image = make_color_image(
        40, 20, KO_COLORSPACE_RGB, [&](uint32_t c, uint64_t x, uint64_t y) { return values[(c * 20 + y) * 40 + x]; });
    const std::vector<float> found = planes_of(png_pixels(saved(image.get(), "picture.png")), 3);
    ASSERT_EQ(found.size(), values.size());
    for (size_t i = 0; i < values.size(); ++i) {
        const float expected = std::isnan(values[i]) ? 0.0f : std::round(std::clamp(values[i], 0.0f, 255.0f));
        EXPECT_EQ(found[i], expected) << values[i];
    }
    saved(image.get(), "picture.png");
    image->color_space = KO_COLORSPACE_YIQ; // sums of infinities
    saved(image.get(), "picture.png");
}

// ---- quality and level

TEST_F(KoioSave, JpegQualityIsTheOption) {
    const ColorImagePtr image = soft_picture(64, 48, KO_COLORSPACE_RGB);
    const auto tables = [&](float option) { return jpeg_tables(saved(image.get(), "picture.jpg", 1.0f, option)); };
    const auto tables_of = [](int quality) { return jpeg_tables(jpeg_file({.quality = quality}, mixed)); };
    for (const int quality : {1, 30, 50, 75, 92, 100}) {
        EXPECT_EQ(tables(static_cast<float>(quality)), tables_of(quality)) << quality;
    }
    EXPECT_EQ(tables(0.0f), tables_of(92));
    EXPECT_NE(tables_of(92), tables_of(91));
    EXPECT_EQ(saved(image.get(), "picture.jpg", 1.0f, 40.4f), saved(image.get(), "picture.jpg", 1.0f, 40.0f));
    EXPECT_EQ(saved(image.get(), "picture.jpg", 1.0f, 39.6f), saved(image.get(), "picture.jpg", 1.0f, 40.0f));
    EXPECT_NE(saved(image.get(), "picture.jpg", 1.0f, 39.0f), saved(image.get(), "picture.jpg", 1.0f, 40.0f));
}

// The header of the compressed rows tells the level in four steps.
TEST_F(KoioSave, PngLevelIsTheOption) {
    const RealImagePtr image = noisy_image(300, 200);
    const auto step = [&](float option) {
        const std::string rows = png_chunk_data(saved(image.get(), "picture.png", 1.0f, option), "IDAT");
        return static_cast<uint8_t>(rows.at(1)) >> 6;
    };
    const std::vector<int> expected{0, 1, 1, 1, 1, 2, 3, 3, 3};
    for (int level = 1; level <= 9; ++level) {
        EXPECT_EQ(step(static_cast<float>(level)), expected[static_cast<size_t>(level) - 1]) << level;
    }
    EXPECT_EQ(saved(image.get(), "picture.png", 1.0f, 0.0f), saved(image.get(), "picture.png", 1.0f, 6.0f));
    EXPECT_LT(saved(image.get(), "picture.png", 1.0f, 9.0f).size(), saved(image.get(), "picture.png", 1.0f, 1.0f).size());
    const Pixels fast = png_pixels(saved(image.get(), "picture.png", 1.0f, 1.0f));
    EXPECT_EQ(planes_of(fast, 1), pixels(image.get()));
}

TEST_F(KoioSave, OtherOptionsAreRefused) {
    const RealImagePtr image = noisy_image(4, 4);
    const auto refused = [&](const std::string &name, float option, const std::string &given, const std::string &possible) {
        expect_error(KO_ERR_INVALID_VALUE, "\"" + given + "\" is not a valid value. Possible values are: \"" + possible + "\"",
                     [&] { return KoRealImageSave(image.get(), path(name).c_str(), nullptr, 1.0f, option); });
    };
    refused("picture.png", 10.0f, "10", "0 to 9");
    refused("picture.png", 9.5f, "9.5", "0 to 9");
    refused("picture.png", -1.0f, "-1", "0 to 9");
    refused("picture.png", 0.25f, "0.25", "0 to 9");
    refused("picture.jpg", 101.0f, "101", "0 to 100");
    refused("picture.jpg", -0.25f, "-0.25", "0 to 100");
    refused("picture.jpg", infinity, "inf", "0 to 100");
    refused("picture.jpg", not_a_number, "nan", "0 to 100");
    refused("picture.jpg", 3e38f, "3e+38", "0 to 100");
    EXPECT_EQ(files(), Texts());
}

// ---- images that are no pictures

TEST_F(KoioSave, ImagesWithoutPixelsAreRefused) {
    const RealImagePtr none = make_image(0, 0, std::vector<float>{});
    const RealImagePtr no_rows = make_image(5, 0, std::vector<float>{});
    const RealImagePtr no_columns = make_image(0, 5, std::vector<float>{});
    for (const RealImage *image : {none.get(), no_rows.get(), no_columns.get()}) {
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&] { return KoRealImageSave(image, path("picture.png").c_str(), nullptr, 1.0f, 0.0f); });
    }
    const ColorImagePtr freed = old_color_image(KO_COLORSPACE_RGB);
    KoColorImageFree(freed.get());
    const ColorImagePtr uneven = old_color_image(KO_COLORSPACE_RGB);
    KoRealImageFree(&uneven->planes[2]);
    ASSERT_EQ(KoRealImageInit(&uneven->planes[2], 1, 1), KO_OK);
    for (const ColorImage *image : {freed.get(), uneven.get()}) {
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&] { return KoColorImageSave(image, path("picture.png").c_str(), nullptr, 1.0f, 0.0f); });
    }
    EXPECT_EQ(files(), Texts());
}

TEST_F(KoioSave, NullIsAnInternalError) {
    const RealImagePtr image = noisy_image(4, 4);
    const ColorImagePtr color = old_color_image(KO_COLORSPACE_RGB);
    const std::string name = path("picture.png");
    const auto expect_null = [](const auto &call) {
        KoStatusClear();
        const PrintCapture printed;
        EXPECT_EQ(call(), KO_ERR_NULL_POINTER);
        EXPECT_EQ(printed.texts(), Texts{"[INTERNAL ERROR] Null pointer error"});
    };
    expect_null([&] { return KoRealImageSave(nullptr, name.c_str(), nullptr, 1.0f, 0.0f); });
    expect_null([&] { return KoRealImageSave(image.get(), nullptr, "png", 1.0f, 0.0f); });
    expect_null([&] { return KoColorImageSave(color.get(), nullptr, "jpeg", 1.0f, 0.0f); });
    expect_null([&] { return KoRealImageLoad(nullptr, name.c_str(), nullptr); });
    expect_null([&] { return KoRealImageLoad(image.get(), nullptr, "png"); });
    expect_null([&] { return KoColorImageLoad(nullptr, name.c_str(), nullptr); });
    expect_null([&] { return KoColorImageLoad(color.get(), nullptr, "jpeg"); });
}

// ---- failures

// The superuser may write everywhere: for as long as this lives, the process is a user who may not. A device is opened under it
// too, so that a fault in the code under test cannot replace one.
class Unprivileged {
  public:
    Unprivileged() : user_(geteuid()) {
        if (user_ == 0) {
            EXPECT_EQ(seteuid(65534), 0);
        }
    }
    ~Unprivileged() { EXPECT_EQ(seteuid(user_), 0); }
    Unprivileged(const Unprivileged &) = delete;
    Unprivileged &operator=(const Unprivileged &) = delete;

  private:
    uid_t user_;
};

// The call fails with this report and reason, and the file and its folder stay as they were.
class KoioFailedSave : public KoioSave {
  protected:
    void expect_failure(const std::string &name, int32_t status, const std::string &text, const std::string &reason,
                        const RealImage *image) const {
        KoStatusClear();
        EXPECT_EQ(KoRealImageSave(image, name.c_str(), nullptr, 1.0f, 0.0f), status);
        expect_status(status, "[ERROR] Cannot " + text + "\n-> " + reason);
    }
    static std::string open_text(const std::string &name) { return "open file \"" + name + "\" for writing"; }
};

TEST_F(KoioFailedSave, WhereNothingCanBeWritten) {
    const RealImagePtr image = noisy_image(4, 4);
    const std::string nowhere = path("nowhere/picture.png");
    expect_failure(nowhere, KO_ERR_OPEN_WRITE, open_text(nowhere), "No such file or directory", image.get());
    const std::string folder = path("folder.png");
    std::filesystem::create_directory(folder);
    expect_failure(folder, KO_ERR_OPEN_WRITE, open_text(folder), "not a file", image.get());
    const std::string pipe = path("pipe.png");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    expect_failure(pipe, KO_ERR_OPEN_WRITE, open_text(pipe), "not a file", image.get());
    const std::string long_name = path(std::string(300, 'x') + ".png");
    EXPECT_NE(KoRealImageSave(image.get(), long_name.c_str(), nullptr, 1.0f, 0.0f), KO_OK);
    EXPECT_EQ(files(), (Texts{"folder.png", "pipe.png"}));
}

TEST_F(KoioFailedSave, OnAFullDevice) {
    const RealImagePtr image = noisy_image(400, 400);
    const Unprivileged user;
    KoStatusClear();
    for (const char *format : {"png", "jpeg"}) {
        EXPECT_EQ(KoRealImageSave(image.get(), "/dev/full", format, 1.0f, 0.0f), KO_ERR_WRITE_FILE);
        expect_status(KO_ERR_WRITE_FILE, "[ERROR] Cannot write file \"/dev/full\"\n-> no space left on device");
        KoStatusClear();
    }
    EXPECT_EQ(KoRealImageSave(image.get(), "/dev/null", "png", 1.0f, 0.0f), KO_OK);
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null")) << "a device stays one";
}

// A disk that is full half-way: the file that was there is still whole.
TEST_F(KoioFailedSave, KeepsTheOldFile) {
    const RealImagePtr image = noisy_image(400, 400);
    const std::string name = file("picture.png", "the old file");
    const std::string jpeg = path("picture.jpg");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{20000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    expect_failure(name, KO_ERR_WRITE_FILE, "write file \"" + name + "\"", "file too large", image.get());
    expect_failure(jpeg, KO_ERR_WRITE_FILE, "write file \"" + jpeg + "\"", "file too large", image.get());
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(read_bytes(name), "the old file");
    EXPECT_EQ(files(), Texts{"picture.png"});
}

// A size that the format cannot hold is known to the encoder alone.
TEST_F(KoioFailedSave, OfAPictureThatIsTooWide) {
    const RealImagePtr image = make_image(70000, 1, [](uint64_t, uint64_t) { return 1.0f; });
    const std::string name = file("picture.jpg", "the old file");
    expect_failure(name, KO_ERR_WRITE_FILE, "write file \"" + name + "\"", "maximum supported image dimension is 65500 pixels",
                   image.get());
    EXPECT_EQ(read_bytes(name), "the old file");
    EXPECT_EQ(files(), Texts{"picture.jpg"});
    expect_success([&] { return KoRealImageSave(image.get(), path("picture.png").c_str(), nullptr, 1.0f, 0.0f); });
}

TEST_F(KoioFailedSave, OfAProtectedFile) {
    const RealImagePtr image = noisy_image(4, 4);
    const std::string name = file("picture.png", "the old file");
    chmod(path().c_str(), 0777);
    chmod(name.c_str(), 0444);
    {
        const Unprivileged user;
        expect_failure(name, KO_ERR_OPEN_WRITE, open_text(name), "Permission denied", image.get());
    }
    EXPECT_EQ(read_bytes(name), "the old file");
    EXPECT_EQ(files(), Texts{"picture.png"});
}

// ---- the place of a file

TEST_F(KoioSave, AFileIsReplacedAndKeepsItsPermissions) {
    const RealImagePtr image = noisy_image(4, 4);
    const std::string name = file("picture.png", "the old file");
    chmod(name.c_str(), 0640);
    const std::string bytes = saved(image.get(), "picture.png");
    EXPECT_EQ(planes_of(png_pixels(bytes), 1), pixels(image.get()));
    struct stat status {};
    stat(name.c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777u, 0640u);
}

TEST_F(KoioSave, ANewFileHasThePermissionsOfAnyNewFile) {
    const mode_t mask = umask(027);
    saved(noisy_image(4, 4).get(), "picture.png");
    umask(mask);
    struct stat status {};
    stat(path("picture.png").c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777u, 0640u);
}

TEST_F(KoioSave, ALinkStaysALink) {
    const RealImagePtr image = noisy_image(4, 4);
    file("real.png", "the old file");
    std::filesystem::create_symlink("real.png", path("link.png"));
    expect_success([&] { return KoRealImageSave(image.get(), path("link.png").c_str(), nullptr, 1.0f, 0.0f); });
    EXPECT_TRUE(std::filesystem::is_symlink(path("link.png")));
    EXPECT_EQ(planes_of(png_pixels(read_bytes(path("real.png"))), 1), pixels(image.get()));
}

TEST_F(KoioSave, ANameWithoutAFolderIsInTheCurrentOne) {
    const RealImagePtr image = noisy_image(4, 4);
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(path());
    expect_success([&] { return KoRealImageSave(image.get(), "bare.png", nullptr, 1.0f, 0.0f); });
    std::filesystem::current_path(before);
    EXPECT_EQ(files(), Texts{"bare.png"});
}

} // namespace
