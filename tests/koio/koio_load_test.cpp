// PNG and JPEG files loaded through the plug-in: every kind of file into both families of images. Expected values come from the
// files' recipes, or from another run of the decoder.
#include <cmath>
#include <limits>
#include <thread>

#include <gtest/gtest.h>

#include "koio_test.h"
#include "same_floats.h"

namespace {

using namespace ko_test;

using Texts = std::vector<std::string>;

struct FileCase {
    std::string name;
    std::string extension;
    std::string bytes;
    uint32_t width;
    uint32_t height;
    uint32_t channels;
    std::vector<float> planes; // one behind the other

    friend std::ostream &operator<<(std::ostream &stream, const FileCase &c) { return stream << c.name; }
};

// The nearest of 256 levels to one of a depth.
float level_of(uint32_t sample, int depth) {
    const uint32_t most = (1u << depth) - 1;
    return static_cast<float>((sample * 255 + most / 2) / most);
}

std::vector<float> planes_of_recipe(const PngRecipe &recipe, uint32_t channels) {
    std::vector<float> planes;
    const Sample sample = mixed_at(recipe.depth);
    for (uint32_t c = 0; c < channels; ++c) {
        for (uint32_t y = 0; y < recipe.height; ++y) {
            for (uint32_t x = 0; x < recipe.width; ++x) {
                planes.push_back(level_of(sample(x, y, c), recipe.depth));
            }
        }
    }
    return planes;
}

FileCase png_case(const std::string &name, const PngRecipe &recipe) {
    const uint32_t channels = recipe.colour == png_rgb || recipe.colour == png_rgba ? 3 : 1;
    return {name,          "png",    png_file(recipe, mixed_at(recipe.depth)), recipe.width,
            recipe.height, channels, planes_of_recipe(recipe, channels)};
}

// Sample i of the palette is the colour (3 i, 255 - 2 i, 5 i), some of them transparent.
FileCase palette_case(int depth) {
    PngRecipe recipe{.width = 13, .height = 9, .depth = depth, .colour = png_palette};
    std::string colours;
    std::string alphas;
    const auto colour = [](uint32_t i, uint32_t c) { return (c == 0 ? 3 * i : c == 1 ? 255 - 2 * i : 5 * i) & 0xff; };
    for (uint32_t i = 0; i < 1u << depth; ++i) {
        for (uint32_t c = 0; c < 3; ++c) {
            colours += static_cast<char>(colour(i, c));
        }
        alphas += static_cast<char>(i * 11);
    }
    recipe.before = {{"PLTE", colours}, {"tRNS", alphas}};
    std::vector<float> planes;
    for (uint32_t c = 0; c < 3; ++c) {
        for (uint32_t y = 0; y < recipe.height; ++y) {
            for (uint32_t x = 0; x < recipe.width; ++x) {
                planes.push_back(static_cast<float>(colour(mixed_at(depth)(x, y, 0), c)));
            }
        }
    }
    return {
        "palette_" + std::to_string(depth), "png", png_file(recipe, mixed_at(depth)), recipe.width, recipe.height, 3, planes};
}

FileCase jpeg_case(const std::string &name, const JpegRecipe &recipe) {
    const std::string file =
        jpeg_file(recipe, [](uint32_t x, uint32_t y, uint32_t c) { return (x * 3 + y * 2 + c * 40) & 0xff; });
    const Pixels pixels = jpeg_pixels(file);
    return {name, "jpg", file, pixels.width, pixels.height, pixels.channels, planes_of(pixels, pixels.channels)};
}

std::vector<FileCase> cases() {
    std::vector<FileCase> all;
    for (const int depth : {1, 2, 4, 8, 16}) {
        all.push_back(
            png_case("gray_" + std::to_string(depth), {.width = 13, .height = 9, .depth = depth, .colour = png_gray}));
    }
    for (const int depth : {1, 2, 4, 8}) {
        all.push_back(palette_case(depth));
    }
    for (const int depth : {8, 16}) {
        const std::string end = "_" + std::to_string(depth);
        all.push_back(png_case("rgb" + end, {.width = 13, .height = 9, .depth = depth, .colour = png_rgb}));
        all.push_back(png_case("rgba" + end, {.width = 13, .height = 9, .depth = depth, .colour = png_rgba}));
        all.push_back(png_case("gray_alpha" + end, {.width = 13, .height = 9, .depth = depth, .colour = png_gray_alpha}));
    }
    all.push_back(png_case("interlaced_rgba", {.width = 13, .height = 9, .colour = png_rgba, .interlaced = true}));
    all.push_back(png_case("interlaced_gray", {.width = 13, .height = 9, .colour = png_gray, .interlaced = true}));
    all.push_back(png_case("one_pixel", {.width = 1, .height = 1}));
    all.push_back(jpeg_case("jpeg_gray", {.width = 33, .height = 17, .colour = JpegColour::gray}));
    all.push_back(jpeg_case("jpeg_ycc", {.width = 33, .height = 17, .sampling_x = 2, .sampling_y = 2}));
    all.push_back(jpeg_case("jpeg_rgb", {.width = 33, .height = 17, .colour = JpegColour::rgb}));
    all.push_back(jpeg_case("jpeg_progressive", {.width = 33, .height = 17, .progressive = true}));
    all.push_back(
        jpeg_case("jpeg_gray_progressive", {.width = 33, .height = 17, .colour = JpegColour::gray, .progressive = true}));
    return all;
}

class KoioFiles : public KoioTest, public testing::WithParamInterface<FileCase> {
  protected:
    std::string name() const { return file("picture." + GetParam().extension, GetParam().bytes); }
};

TEST_P(KoioFiles, LoadIntoAFloatImage) {
    const RealImagePtr image = old_image();
    expect_success([&] { return KoRealImageLoad(image.get(), name().c_str(), nullptr); });
    EXPECT_EQ(image->width, GetParam().width);
    EXPECT_EQ(image->height, GetParam().height);
    const bool gray = GetParam().channels == 1;
    EXPECT_TRUE(same_floats(gray ? GetParam().planes : gray_of(GetParam().planes), pixels(image.get())));
    EXPECT_TRUE(padding_is_zero(image.get()));
}

// A gray picture makes the image gray, as a text picture does; colours make it RGB, if it is not YIQ.
TEST_P(KoioFiles, LoadIntoAColourImage) {
    for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY}) {
        const ColorImagePtr image = old_color_image(space);
        expect_success([&] { return KoColorImageLoad(image.get(), name().c_str(), nullptr); });
        EXPECT_EQ(image->color_space, GetParam().channels == 1 ? KO_COLORSPACE_GRAY : KO_COLORSPACE_RGB);
        EXPECT_EQ(image->depth, GetParam().channels);
        EXPECT_EQ(KoColorImageGetWidth(image.get()), GetParam().width);
        EXPECT_EQ(KoColorImageGetHeight(image.get()), GetParam().height);
        EXPECT_TRUE(same_floats(GetParam().planes, all_pixels(image.get())));
    }
}

INSTANTIATE_TEST_SUITE_P(OfEveryKind, KoioFiles, testing::ValuesIn(cases()), [](const auto &test) { return test.param.name; });

class KoioLoad : public KoioTest {
  protected:
    std::string png(const PngRecipe &recipe, const std::string &name = "picture.png") const {
        return file(name, png_file(recipe, mixed_at(recipe.depth)));
    }
};

TEST_F(KoioLoad, ColoursStayInYiq) {
    const std::string name = png({.width = 13, .height = 9, .colour = png_rgb});
    const ColorImagePtr rgb = old_color_image(KO_COLORSPACE_RGB);
    const ColorImagePtr yiq = old_color_image(KO_COLORSPACE_YIQ);
    expect_success([&] { return KoColorImageLoad(rgb.get(), name.c_str(), nullptr); });
    expect_success([&] { return KoColorImageLoad(yiq.get(), name.c_str(), nullptr); });
    EXPECT_EQ(yiq->color_space, KO_COLORSPACE_YIQ);
    const ColorImagePtr converted(KoColorImageNewFromColorImage(KO_COLORSPACE_YIQ, rgb.get()));
    EXPECT_TRUE(same_floats(all_pixels(converted.get()), all_pixels(yiq.get())));
}

TEST_F(KoioLoad, AnImageWithoutPlanesIsFilled) {
    const std::string name = png({.width = 4, .height = 3, .colour = png_rgb});
    const ColorImagePtr image = old_color_image(KO_COLORSPACE_GRAY);
    KoColorImageFree(image.get());
    expect_success([&] { return KoColorImageLoad(image.get(), name.c_str(), nullptr); });
    EXPECT_EQ(image->depth, 3u);
    EXPECT_EQ(KoColorImageGetSize(image.get()), 12u);
}

TEST_F(KoioLoad, CmykBecomesRgbByItsProfile) {
    for (const bool progressive : {false, true}) {
        for (uint32_t mixture = 0; mixture < 16; ++mixture) {
            std::array<uint8_t, 4> inks;
            for (uint32_t c = 0; c < 4; ++c) {
                inks[c] = (mixture >> c & 1) != 0 ? 255 : 0;
            }
            const std::string name = file("picture.jpg", cmyk_file(inks, cmyk_profile(), progressive));
            const ColorImagePtr image = old_color_image(KO_COLORSPACE_RGB);
            expect_success([&] { return KoColorImageLoad(image.get(), name.c_str(), nullptr); });
            ASSERT_EQ(image->depth, 3u);
            for (uint64_t c = 0; c < 3; ++c) {
                EXPECT_NEAR(image->planes[c].rows[15][23], rgb_of(inks)[c], 4.0) << "mixture " << mixture;
            }
        }
    }
}

TEST_F(KoioLoad, CmykWithoutAProfileIsRefused) {
    const std::string name = file("picture.jpg", cmyk_file({255, 0, 0, 0}, ""));
    const RealImagePtr image = old_image();
    EXPECT_EQ(KoRealImageLoad(image.get(), name.c_str(), nullptr), KO_ERR_INVALID_IMAGE_FILE);
    expect_status(KO_ERR_INVALID_IMAGE_FILE,
                  "[ERROR] File \"" + name +
                      "\" does not contain a valid JPEG image\n-> a CMYK picture without a colour profile");
}

// ---- gamma

class KoioGamma : public KoioLoad {
  protected:
    // All 256 levels in one row.
    std::string ramp() const {
        return file("ramp.png", png_file({.width = 256, .height = 1, .colour = png_gray},
                                         [](uint32_t x, uint32_t, uint32_t) { return x; }));
    }

    std::vector<float> loaded(double gamma_a, double gamma_b) const {
        const ColorImagePtr image = old_color_image(KO_COLORSPACE_RGB);
        expect_success([&] { return KoColorImageLoadSetGamma(image.get(), ramp().c_str(), nullptr, gamma_a, gamma_b); });
        return all_pixels(image.get());
    }
};

TEST_F(KoioGamma, RaisesValuesOnTheUnitScale) {
    for (const auto &[a, b] :
         std::vector<std::pair<double, double>>{{2.2, 1.0}, {1.0, 2.2}, {4.4, 2.0}, {0.5, 2.5}, {9.0, 0.1}}) {
        const std::vector<float> values = loaded(a, b);
        ASSERT_EQ(values.size(), 256u);
        for (size_t i = 0; i < 256; ++i) {
            EXPECT_NEAR(values[i], 255.0 * std::pow(static_cast<double>(i) / 255.0, a / b), 1e-4) << i;
        }
        EXPECT_EQ(values[0], 0.0f);
        EXPECT_EQ(values[255], 255.0f);
    }
    EXPECT_NEAR(loaded(2.2, 1.0)[128], 55.98f, 0.01f);
    EXPECT_NEAR(loaded(1.0, 2.2)[128], 186.42f, 0.01f);
}

TEST_F(KoioGamma, KeepsValuesWithoutOne) {
    std::vector<float> stored(256);
    for (size_t i = 0; i < 256; ++i) {
        stored[i] = static_cast<float>(i);
    }
    for (const auto &[a, b] :
         std::vector<std::pair<double, double>>{{0.0, 0.0}, {2.2, 0.0}, {0.0, 2.2}, {1.0, 1.0}, {-0.0, 1.0}}) {
        EXPECT_EQ(loaded(a, b), stored) << a << " " << b;
    }
}

TEST_F(KoioGamma, ReachesColours) {
    const std::string name = png({.width = 13, .height = 9, .colour = png_rgb});
    const ColorImagePtr plain = old_color_image(KO_COLORSPACE_RGB);
    const ColorImagePtr dark = old_color_image(KO_COLORSPACE_RGB);
    expect_success([&] { return KoColorImageLoad(plain.get(), name.c_str(), nullptr); });
    expect_success([&] { return KoColorImageLoadSetGamma(dark.get(), name.c_str(), nullptr, 2.0, 1.0); });
    const std::vector<float> stored = all_pixels(plain.get());
    const std::vector<float> raised = all_pixels(dark.get());
    ASSERT_EQ(stored.size(), raised.size());
    for (size_t i = 0; i < stored.size(); ++i) {
        EXPECT_NEAR(raised[i], stored[i] * stored[i] / 255.0f, 1e-3);
    }
}

TEST_F(KoioGamma, ThatIsNoExponentIsRefused) {
    constexpr double infinite = std::numeric_limits<double>::infinity();
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    const std::string name = ramp();
    for (const auto &[a, b] : std::vector<std::pair<double, double>>{{-1.0, 1.0},
                                                                     {1.0, -1.0},
                                                                     {-1.0, -1.0},
                                                                     {none, 1.0},
                                                                     {1.0, none},
                                                                     {infinite, 1.0},
                                                                     {1.0, infinite},
                                                                     {1e300, 1e-300},
                                                                     {1e-300, 1e300},
                                                                     {infinite, infinite}}) {
        const ColorImagePtr image = old_color_image(KO_COLORSPACE_RGB);
        const std::vector<float> before = all_pixels(image.get());
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&, x = a, y = b] { return KoColorImageLoadSetGamma(image.get(), name.c_str(), nullptr, x, y); });
        EXPECT_EQ(all_pixels(image.get()), before);
    }
}

// ---- messages

// What is left out is information, which is printed from that level on and leaves status and chain alone.
TEST_F(KoioLoad, WhatIsLeftOutIsInformation) {
    const std::string name = png({.width = 3, .height = 2, .depth = 16, .colour = png_rgba});
    const std::string start = "[INFO] \"" + name + "\": ";
    const Texts expected{start + "alpha is left out", start + "16 bits per channel reduced to 8"};
    const RealImagePtr image = old_image();
    const ColorImagePtr color = old_color_image(KO_COLORSPACE_RGB);
    KoMsg(KO_ERR_FATAL);
    {
        const PrintCapture printed("info");
        EXPECT_EQ(KoRealImageLoad(image.get(), name.c_str(), nullptr), KO_OK);
        EXPECT_EQ(printed.texts(), expected);
    }
    {
        const PrintCapture printed("info");
        EXPECT_EQ(KoColorImageLoad(color.get(), name.c_str(), nullptr), KO_OK);
        EXPECT_EQ(printed.texts(), expected);
    }
    {
        const PrintCapture printed("warning");
        EXPECT_EQ(KoRealImageLoad(image.get(), name.c_str(), nullptr), KO_OK);
        EXPECT_EQ(printed.texts(), Texts());
    }
    expect_status(KO_ERR_FATAL, "Fatal Error. Cannot continue");
}

TEST_F(KoioLoad, APlainFileSaysNothing) {
    const std::string name = png({.width = 3, .height = 2, .colour = png_rgb});
    const RealImagePtr image = old_image();
    const PrintCapture printed("debug");
    const StderrCapture captured;
    expect_success([&] { return KoRealImageLoad(image.get(), name.c_str(), nullptr); });
    EXPECT_EQ(printed.texts(), Texts());
}

// A "%" in a name or in a text of a file is a character like any other.
TEST_F(KoioLoad, NamesAreNoFormats) {
    const std::string name = png({.width = 3, .height = 2, .colour = png_rgba}, "100%s%n.png");
    const RealImagePtr image = old_image();
    const PrintCapture printed("info");
    expect_success([&] { return KoRealImageLoad(image.get(), name.c_str(), nullptr); });
    EXPECT_EQ(printed.texts(), Texts{"[INFO] \"" + name + "\": alpha is left out"});
    write_bytes(name, "no picture");
    EXPECT_EQ(KoRealImageLoad(image.get(), name.c_str(), nullptr), KO_ERR_INVALID_IMAGE_FILE);
    expect_status(KO_ERR_INVALID_IMAGE_FILE,
                  "[ERROR] File \"" + name + "\" does not contain a valid PNG image\n-> not a PNG file");
}

// ---- names

TEST_F(KoioLoad, NamesMayHoldAnyBytes) {
    for (const char *name : {"Fl\xc3\xbcgel.png", "\xe5\x86\x99\xe7\x9c\x9f.png", "latin-\xfc.png", " leading space.png"}) {
        const std::string path = png({.width = 3, .height = 2, .colour = png_gray}, name);
        const RealImagePtr image = old_image();
        expect_success([&] { return KoRealImageLoad(image.get(), path.c_str(), nullptr); });
        EXPECT_EQ(image->width, 3u);
        expect_success([&] { return KoRealImageSave(image.get(), path.c_str(), nullptr, 1.0f, 0.0f); });
        expect_success([&] { return KoRealImageLoad(image.get(), path.c_str(), nullptr); });
    }
    EXPECT_EQ(files().size(), 4u);
}

// The format that is named counts, not what the bytes are.
TEST_F(KoioLoad, AFormatBeatsTheExtension) {
    const std::string jpeg = file("picture.png", jpeg_file({}, mixed));
    const RealImagePtr image = old_image();
    expect_success([&] { return KoRealImageLoad(image.get(), jpeg.c_str(), "jpeg"); });
    EXPECT_EQ(image->width, 16u);
    EXPECT_EQ(KoRealImageLoad(image.get(), jpeg.c_str(), nullptr), KO_ERR_INVALID_IMAGE_FILE);
    const std::string png_as_jpeg = png({}, "picture.jpg");
    EXPECT_EQ(KoRealImageLoad(image.get(), png_as_jpeg.c_str(), nullptr), KO_ERR_INVALID_IMAGE_FILE);
}

// ---- threads

TEST_F(KoioLoad, EightThreadsAtOnce) {
    std::vector<std::thread> threads;
    std::array<int, 8> failures{};
    for (uint32_t t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            const bool cmyk = t % 4 == 3;
            const std::string name = path("picture-" + std::to_string(t) + (t % 2 == 0 ? ".png" : ".jpg"));
            const auto sample = [t](uint32_t x, uint32_t y, uint32_t c) { return mixed(x + t, y, c); };
            const std::string bytes = t % 2 == 0 ? png_file({.width = 40 + t, .height = 30, .colour = png_rgba}, sample)
                                      : cmyk     ? cmyk_file({255, 0, 255, 0}, cmyk_profile())
                                                 : jpeg_file({.width = 40 + t, .height = 30}, sample);
            write_bytes(name, bytes);
            const std::string missing = path("missing-" + std::to_string(t) + ".png");
            const ColorImagePtr image(KoColorImageNew(1, 1, KO_COLORSPACE_RGB));
            KoColorImageLoad(image.get(), name.c_str(), nullptr);
            const std::vector<float> first = all_pixels(image.get());
            for (int round = 0; round < 20; ++round) {
                KoStatusClear();
                failures[t] += KoColorImageLoad(image.get(), name.c_str(), nullptr) != KO_OK;
                failures[t] += all_pixels(image.get()) != first;
                failures[t] += KoColorImageSave(image.get(), (name + ".png").c_str(), nullptr, 1.0f, 0.0f) != KO_OK;
                failures[t] += KoColorImageLoad(image.get(), (name + ".png").c_str(), nullptr) != KO_OK;
                failures[t] += all_pixels(image.get()) != first;
                failures[t] += KoColorImageLoad(image.get(), missing.c_str(), nullptr) != KO_ERR_OPEN_READ;
                failures[t] += std::string(KoErrorGetLastErrorMessage()).find(missing) == std::string::npos;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, (std::array<int, 8>{}));
    EXPECT_EQ(files().size(), 16u) << "drafts are left";
}

} // namespace
