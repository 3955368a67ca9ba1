#include "host.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include <regex.h>

#include "reference_slope.h"

namespace ko_test {

namespace fs = std::filesystem;

namespace {

uint32_t colour_channels(const Pixels &given) { return given.channels < 3 ? 1 : 3; }

int32_t space_of(const Pixels &given) { return colour_channels(given) == 1 ? KO_COLORSPACE_GRAY : KO_COLORSPACE_RGB; }

std::vector<uint8_t> without_alpha(const Pixels &given) {
    const uint32_t channels = colour_channels(given);
    std::vector<uint8_t> bytes(size_t{given.width} * given.height * channels);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = given.bytes[i / channels * given.channels + i % channels];
    }
    return bytes;
}

} // namespace

bool matches(const std::string &text, const std::string &pattern) {
    regex_t compiled;
    EXPECT_EQ(regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_NOSUB), 0) << pattern;
    const bool found = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return found;
}

Host::Host() : folder_("host") { fs::create_directory(folder_.path()); }

std::string Host::put(const std::string &name, const std::string &bytes) const {
    fs::create_directories(fs::path(path(name)).parent_path());
    write_bytes(path(name), bytes);
    return path(name);
}

std::set<std::string> Host::left() const {
    std::set<std::string> names;
    for (const auto &entry : fs::recursive_directory_iterator(folder_.path())) {
        names.insert(fs::relative(entry.path(), folder_.path()).string());
    }
    return names;
}

Outcome run_command(const std::string &command, const Words &inputs, const std::string &output, const Words &options,
                    const Surroundings &surroundings) {
    Words words{command};
    words.insert(words.end(), options.begin(), options.end());
    if (!output.empty()) {
        words.insert(words.end(), {"-o", output});
    }
    words.push_back("--");
    words.insert(words.end(), inputs.begin(), inputs.end());
    return run_program(words, surroundings);
}

Words shown_on_screen(const std::string &sent) {
    Words lines{""};
    for (size_t i = 0; i < sent.size(); ++i) {
        if (sent.compare(i, 4, "\r\x1b[K") == 0) {
            lines.back().clear();
            i += 3;
        } else if (sent.compare(i, 2, "\r\n") == 0) {
            lines.emplace_back();
            i += 1;
        } else {
            lines.back() += sent[i];
        }
    }
    return lines;
}

void expect_success(const Outcome &outcome) {
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
}

void expect_one_error(const Outcome &outcome, const std::string &line) {
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "ko: " + line + "\n");
}

void expect_wrong_usage(const Outcome &outcome, const std::string &line) {
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "ko: " + line + "\n");
}

uint32_t dark(uint32_t x, uint32_t y, uint32_t c) { return (x * 2 + y + 10 * c + (x * y) % 7) % 120; }

std::string dark_png(int colour, std::vector<Chunk> chunks) {
    return png_file({96, 80, 8, colour, false, std::move(chunks), {}}, dark);
}

std::string dark_jpeg(JpegRecipe recipe) {
    recipe.width = 96;
    recipe.height = 80;
    return jpeg_file(recipe, dark);
}

ColorImagePtr image_of(const Pixels &given) {
    const std::vector<uint8_t> bytes = without_alpha(given);
    return ColorImagePtr(
        KoColorImageNewFromByteArray(given.width, given.height, space_of(given), bytes.data(), KO_BYTE_LAYOUT_INTERLEAVED));
}

RealImagePtr luminance_of(const Pixels &given) {
    const ColorImagePtr image = image_of(given);
    const ColorImagePtr yiq(colour_channels(given) == 1 ? nullptr
                                                        : KoColorImageNewFromColorImage(KO_COLORSPACE_YIQ, image.get()));
    return make_image(given.width, given.height, pixels(KoColorImageGetImage((yiq ? yiq : image).get(), 0)));
}

uint32_t Tuning::slope_limit() const { return max_slope.value_or(std::max(3u, static_cast<uint32_t>(std::ceil(max_gain)))); }

TileTRCPtr curves_of(const Pixels &given, const Tuning &tuning) {
    const ColorImagePtr image = image_of(given);
    const FeaturesPtr features(KoLocalContrastEnhancementNew(tuning.curve_size, tuning.columns, tuning.rows));
    TileTRC *curves = nullptr;
    KoLocalContrastEnhancementGetNewTRCsTune(features.get(), image.get(), tuning.max_gain, tuning.strength, tuning.limit,
                                             tuning.levels, -1.0f, 4, &curves);
    TileTRCPtr grid(curves);
    if (tuning.slope_limit() > 0) {
        reference_limit_slope(*grid, tuning.slope_limit(), luminance_of(given).get());
    }
    return grid;
}

Pixels applied(const Pixels &given, const TileTRC *curves, float ratio) {
    const std::vector<uint8_t> bytes = without_alpha(given);
    const TileTRCApplyPtr apply(
        KoTileTRCApplyNew(curves, ratio, nullptr, given.width, given.height, KO_BYTE_LAYOUT_INTERLEAVED, space_of(given)));
    std::vector<uint8_t> result(bytes.size());
    KoTileTRCApplyToByteChunk(apply.get(), given.height, bytes.data(), result.data());
    const uint32_t channels = colour_channels(given);
    Pixels pixels = given;
    for (size_t i = 0; i < result.size(); ++i) {
        pixels.bytes[i / channels * given.channels + i % channels] = result[i];
    }
    return pixels;
}

Pixels expected(const Pixels &given, const Tuning &tuning) {
    const FreshLibrary library;
    const TileTRCPtr curves = curves_of(given, tuning);
    return applied(given, curves.get(), tuning.ratio);
}

} // namespace ko_test
