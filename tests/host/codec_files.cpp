#include "codec_files.h"

#include <algorithm>
#include <cstdlib>

#include <gtest/gtest.h>

#include "capture.h"
#include "pictures.h"

namespace ko_test {

using codec::Notices;
using codec::Picture;

std::span<const uint8_t> bytes_of(const std::string &text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

std::string text_of(const codec::Bytes &bytes) { return {bytes.begin(), bytes.end()}; }

Picture decoded(const std::string &file) {
    Notices notices;
    return codec::decode(bytes_of(file), notices);
}

Notices notices_of(const std::string &file) {
    Notices notices;
    codec::decode(bytes_of(file), notices);
    return notices;
}

std::string error_of(const std::string &file) {
    try {
        decoded(file);
    } catch (const codec::Error &error) {
        return error.what();
    }
    return "no error";
}

std::string encoded(const Picture &picture, codec::Format format, std::optional<int> quality) {
    Notices notices;
    return text_of(codec::encode(picture, {format, quality}, notices));
}

Notices encoding_notices(const Picture &picture, codec::Format format) {
    Notices notices;
    codec::encode(picture, {format, std::nullopt}, notices);
    return notices;
}

std::string through(const std::string &file, codec::Format format) { return encoded(decoded(file), format); }

std::vector<uint8_t> pixels_of(const Picture &picture) {
    return {picture.pixels.get(), picture.pixels.get() + picture.area() * picture.channels};
}

std::vector<uint8_t> alpha_of(const Picture &picture) {
    return picture.alpha ? std::vector<uint8_t>(picture.alpha.get(), picture.alpha.get() + picture.area())
                         : std::vector<uint8_t>();
}

std::vector<uint8_t> samples(uint32_t width, uint32_t height, uint32_t first, uint32_t last, const Sample &sample) {
    std::vector<uint8_t> bytes;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            for (uint32_t c = first; c <= last; ++c) {
                bytes.push_back(static_cast<uint8_t>(sample(x, y, c)));
            }
        }
    }
    return bytes;
}

Picture picture_of(uint32_t width, uint32_t height, uint32_t channels, bool alpha, const Sample &sample) {
    Picture picture;
    picture.width = width;
    picture.height = height;
    picture.channels = channels;
    picture.has_alpha = alpha;
    picture.pixels = std::make_unique<uint8_t[]>(picture.area() * channels);
    const std::vector<uint8_t> pixels = samples(width, height, 0, channels - 1, sample);
    std::copy(pixels.begin(), pixels.end(), picture.pixels.get());
    if (alpha) {
        picture.alpha = std::make_unique<uint8_t[]>(picture.area());
        const std::vector<uint8_t> plane = samples(width, height, channels, channels, sample);
        std::copy(plane.begin(), plane.end(), picture.alpha.get());
    }
    return picture;
}

int farthest(const std::vector<uint8_t> &one, const std::vector<uint8_t> &other) {
    int most = one.size() == other.size() ? 0 : 256;
    for (size_t i = 0; i < std::min(one.size(), other.size()); ++i) {
        most = std::max(most, std::abs(one[i] - other[i]));
    }
    return most;
}

uint32_t mixed(uint32_t x, uint32_t y, uint32_t c) { return (x * 37 + y * 91 + c * 53 + x * y) & 0xff; }

uint32_t mixed_16(uint32_t x, uint32_t y, uint32_t c) { return (x * 9973 + y * 7919 + c * 5003) & 0xffff; }

uint32_t soft(uint32_t x, uint32_t y, uint32_t c) { return (x * 3 + y * 2 + c * 40) & 0xff; }

uint32_t reduced(uint32_t level) { return (level * 255 + 32767) / 65535; }

namespace {

constexpr int most_calls = 10000;

std::string error_with(codec::Input &input) {
    Notices notices;
    try {
        codec::read(input, notices);
    } catch (const codec::Error &error) {
        return error.what();
    }
    return "no error";
}

std::string error_with(codec::Output &output, const Picture &picture, codec::Format format) {
    Notices notices;
    try {
        const auto writer = codec::create(output, picture, {format, std::nullopt}, notices);
        writer->write(picture.height, picture.pixels.get(), picture.alpha.get());
        writer->finish(notices);
    } catch (const codec::Error &error) {
        return error.what();
    }
    return "no error";
}

} // namespace

void expect_input_failures(const std::string &file) {
    for (int calls = 0; calls < most_calls; ++calls) {
        FailingInput input(file, calls);
        const std::string error = error_with(input);
        if (error == "no error") {
            EXPECT_GT(calls, 1);
            return;
        }
        EXPECT_EQ(error, "the disk is gone") << "at call " << calls;
    }
    ADD_FAILURE() << "still failing";
}

void expect_output_failures(const Picture &picture, codec::Format format) {
    for (int calls = 0; calls < most_calls; ++calls) {
        FailingOutput output(calls);
        const std::string error = error_with(output, picture, format);
        if (error == "no error") {
            EXPECT_GT(calls, 0);
            EXPECT_EQ(text_of(output.bytes()), encoded(picture, format));
            return;
        }
        EXPECT_EQ(error, "the disk is full") << "at call " << calls;
    }
    ADD_FAILURE() << "still failing";
}

void expect_every_truncation_fails(const std::string &file) {
    ASSERT_EQ(error_of(file), "no error");
    for (size_t size = 0; size < file.size(); ++size) {
        EXPECT_NE(error_of(file.substr(0, size)), "no error") << size << " of " << file.size() << " bytes";
    }
}

int refused_of_damaged(const std::vector<std::string> &files, int rounds, bool quiet) {
    Noise noise(7);
    int refused = 0;
    StderrCapture capture;
    for (int round = 0; round < rounds; ++round) {
        std::string file = files[noise.next() % files.size()];
        for (uint32_t flips = noise.next() % 4 + 1; flips > 0; --flips) {
            file[noise.next() % file.size()] = static_cast<char>(noise.byte());
        }
        refused += error_of(file) != "no error";
    }
    const std::string said = capture.stop();
    EXPECT_EQ(quiet ? said : "", "");
    return refused;
}

} // namespace ko_test
