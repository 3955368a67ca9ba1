// The codec over streams that fail: at each call of a stream in turn, once and from there on; and with memory that fails at
// each allocation in turn. What was begun is abandoned without leaks, which a sanitizer checks.
#include <algorithm>
#include <new>

#include <gtest/gtest.h>

#include "codec/codec.h"
#include "faulty_new.h"
#include "image_files.h"
#include "pictures.h"
#include "tiff_directories.h"

namespace {

using namespace ko_test;
using codec::Format;
using codec::Notices;
using codec::Picture;

const std::string reading_failure = "the disc is gone: error 5";
const std::string writing_failure = "no space left on it";

// Counts the calls of a stream; one of them fails, and later ones too if the fault stays.
struct Fault {
    int at = 0; // 0 for none
    bool stays = false;
    int calls = 0;

    bool strikes() { return ++calls == at || (stays && at != 0 && calls > at); }
};

class FailingInput : public codec::MemoryInput {
  public:
    FailingInput(std::span<const uint8_t> bytes, Fault &fault) : MemoryInput(bytes), fault_(fault) {}

    std::optional<size_t> read(uint64_t offset, std::span<uint8_t> room) noexcept override {
        return fault_.strikes() ? std::nullopt : MemoryInput::read(offset, room);
    }

    const char *failure() const noexcept override { return reading_failure.c_str(); }

  private:
    Fault &fault_;
};

class FailingOutput : public codec::MemoryOutput {
  public:
    explicit FailingOutput(Fault &fault) : fault_(fault) {}

    bool write(std::span<const uint8_t> bytes) noexcept override { return !fault_.strikes() && MemoryOutput::write(bytes); }

    const char *failure() const noexcept override { return writing_failure.c_str(); }

  private:
    Fault &fault_;
};

std::span<const uint8_t> bytes_of(const std::string &text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

// A step over a stream ends with the stream's failure, whichever call fails. The number of calls without a fault is reported.
template <class Step> int expect_failures(const std::string &text, const Step &step) {
    Fault none;
    step(none);
    EXPECT_GT(none.calls, 0);
    for (const bool stays : {false, true}) {
        for (int call = 1; call <= none.calls; ++call) {
            Fault fault{call, stays};
            try {
                step(fault);
                ADD_FAILURE() << "no error at call " << call << " of " << none.calls;
            } catch (const codec::Error &error) {
                EXPECT_EQ(error.what(), text) << "call " << call << " of " << none.calls;
            }
        }
    }
    return none.calls;
}

constexpr uint32_t width = 320;
constexpr uint32_t height = 260;

// Rough enough for files of several hundred thousand bytes, which no stream takes at once.
uint32_t rough(uint32_t x, uint32_t y, uint32_t c) {
    const uint32_t mixed = (x * 73856093u ^ y * 19349663u ^ c * 83492791u) * 2654435761u;
    return (mixed ^ mixed >> 15) * 2246822519u >> 24;
}

struct Case {
    std::string name;
    std::string file;

    friend std::ostream &operator<<(std::ostream &stream, const Case &c) { return stream << c.name; }
};

// Directories of every kind, a maker note and the blocks beside them. Each byte of Exif data is a call of a PNG file's stream.
std::string tiff_with_metadata() {
    const std::vector<uint8_t> noise = noise_bytes(600, 3);
    const std::string note(noise.begin(), noise.end());
    const TiffTree tree = {.first = {tiff_text(271, "Camera works"), tiff_shorts(274, {6}), tiff_bytes_of(700, 1, note),
                                     tiff_bytes_of(33723, 7, std::string("\x1c\x02\x78\0\1x", 6))},
                           .exif = {tiff_fraction(33434, 1, 250), tiff_bytes_of(37500, 7, note)},
                           .gps = {tiff_text(1, "N"), {.tag = 2, .type = 5, .numbers = {52, 1, 31, 1, 12, 1}}},
                           .interoperability = {tiff_text(1, "R98")}};
    return tiff_of_tree(tree, {.width = width, .height = height});
}

std::vector<Case> cases() {
    const std::vector<Chunk> before = {{"gAMA", big_endian(45455)}, {"eXIf", exif_block(700)}};
    const std::vector<Chunk> after = {{"tEXt", std::string("Title\0a", 7)}};
    const JpegRecipe plain{
        .width = width, .height = height, .quality = 98, .segments = icc_segments(icc_profile("RGB ", 90'000))};
    JpegRecipe progressive = plain;
    progressive.progressive = true;
    JpegRecipe gray = plain;
    gray.colour = JpegColour::gray;
    gray.segments = {{0xe1, std::string("Exif\0\0", 6) + exif_block(600)}};
    return {{"png_rgb", png_file({width, height, 8, png_rgb, false, before, after}, rough)},
            {"png_rgba_interlaced", png_file({width, height, 8, png_rgba, true, before, after}, rough)},
            {"png_deep_gray_alpha", png_file({width, height, 16, png_gray_alpha, false, before, after}, rough)},
            {"png_gray_interlaced", png_file({width, height, 8, png_gray, true, {}, after}, rough)},
            {"jpeg_baseline", jpeg_file(plain, rough)},
            {"jpeg_progressive", jpeg_file(progressive, rough)},
            {"jpeg_gray", jpeg_file(gray, rough)},
            {"tiff_exif", tiff_with_metadata()}};
}

class CodecFaults : public testing::TestWithParam<Case> {
  protected:
    const std::string &file() const { return GetParam().file; }

    Picture picture() const {
        Notices notices;
        return codec::decode(bytes_of(file()), notices);
    }
};

TEST_P(CodecFaults, OfReadingAWholePictureAreErrors) {
    const int calls = expect_failures(reading_failure, [&](Fault &fault) {
        FailingInput input(bytes_of(file()), fault);
        Notices notices;
        codec::read(input, notices);
    });
    EXPECT_GT(calls, 2);
}

TEST_P(CodecFaults, OfReadingRowsAreErrors) {
    for (const uint32_t least : {1u, 100u, UINT32_MAX}) {
        expect_failures(reading_failure, [&](Fault &fault) {
            FailingInput input(bytes_of(file()), fault);
            const auto reader = codec::open(input, {least, least});
            std::vector<uint8_t> row(size_t{reader->width()} * reader->description().channels * 3);
            for (uint32_t y = 0; y < reader->height(); y += std::min(3u, reader->height() - y)) {
                reader->read(std::min(3u, reader->height() - y), row.data(), nullptr);
            }
            Notices notices;
            reader->finish(notices);
        });
    }
}

// A reader that met its fault is not used further; one that is abandoned half-way has met none.
TEST_P(CodecFaults, LeaveNothingOfAReaderThatIsGivenUp) {
    for (const uint32_t rows : {0u, 1u, height / 2, height}) {
        codec::MemoryInput input(bytes_of(file()));
        const auto reader = codec::open(input);
        std::vector<uint8_t> pixels(size_t{height} * width * reader->description().channels);
        std::vector<uint8_t> alpha(size_t{height} * width);
        reader->read(rows, pixels.data(), reader->description().has_alpha ? alpha.data() : nullptr);
    }
}

TEST_P(CodecFaults, OfWritingAreErrors) {
    const Picture picture = this->picture();
    for (const Format format : {Format::png, Format::jpeg}) {
        expect_failures(writing_failure, [&](Fault &fault) {
            FailingOutput output(fault);
            Notices notices;
            const auto writer = codec::create(output, picture, {format, 100}, notices);
            for (uint32_t y = 0; y < height; ++y) {
                writer->write(1, &picture.pixels[y * picture.row_bytes()],
                              picture.alpha ? &picture.alpha[size_t{y} * width] : nullptr);
            }
            writer->finish(notices);
        });
    }
}

TEST_P(CodecFaults, LeaveNothingOfAWriterThatIsGivenUp) {
    const Picture picture = this->picture();
    for (const Format format : {Format::png, Format::jpeg}) {
        for (const uint32_t rows : {0u, 1u, height / 2, height}) {
            codec::MemoryOutput output;
            Notices notices;
            codec::create(output, picture, {format, std::nullopt}, notices)
                ->write(rows, picture.pixels.get(), picture.alpha.get());
        }
    }
}

// An output whose file cannot grow at all: even the first bytes are refused.
TEST_P(CodecFaults, OfEveryWriteAreErrors) {
    const Picture picture = this->picture();
    for (const Format format : {Format::png, Format::jpeg}) {
        Fault fault{1, true};
        FailingOutput output(fault);
        Notices notices;
        EXPECT_THROW(
            {
                const auto writer = codec::create(output, picture, {format, std::nullopt}, notices);
                writer->write(height, picture.pixels.get(), picture.alpha.get());
                writer->finish(notices);
            },
            codec::Error);
        EXPECT_TRUE(output.bytes().empty());
    }
}

// ---- memory

std::vector<Case> memory_cases() { return cases(); }

// Everything about a picture that is compared.
std::vector<codec::Bytes> parts_of(const Picture &picture) {
    const codec::Metadata &metadata = picture.metadata;
    const auto plane = [](const codec::Plane &bytes, size_t size) {
        return bytes ? codec::Bytes(bytes.get(), bytes.get() + size) : codec::Bytes();
    };
    return {plane(picture.pixels, picture.area() * picture.channels),
            plane(picture.alpha, picture.area()),
            metadata.exif,
            metadata.icc_profile,
            metadata.xmp,
            metadata.photoshop,
            metadata.iptc};
}

// Runs a step with the 1st, 2nd, 3rd and so on of its allocations failing until none does: it fails, or gives the same.
template <class Step> void expect_memory_failures(const Step &step) {
    const auto expected = step();
    for (int number = 1;; ++number) {
        fail_allocation(number);
        std::optional<decltype(step())> result;
        try {
            result = step();
        } catch (const std::bad_alloc &) {
        } catch (const codec::Error &) {
        }
        if (!end_of_failures()) {
            EXPECT_GT(number, 2) << "hardly anything failed";
            EXPECT_EQ(result, expected);
            return;
        }
        EXPECT_TRUE(!result || *result == expected) << "something is missing after allocation " << number;
    }
}

class CodecMemoryFaults : public CodecFaults {};

TEST_P(CodecMemoryFaults, OfReadingAreErrors) {
    expect_memory_failures([&] {
        Notices notices;
        const Picture picture = codec::decode(bytes_of(file()), notices);
        return std::pair(parts_of(picture), notices);
    });
}

TEST_P(CodecMemoryFaults, OfWritingAreErrors) {
    const Picture picture = this->picture();
    for (const Format format : {Format::png, Format::jpeg, Format::tiff, Format::webp}) {
        expect_memory_failures([&] {
            Notices notices;
            const codec::Bytes bytes = codec::encode(picture, {format, std::nullopt}, notices);
            return std::pair(bytes, notices);
        });
    }
}

const auto name_of_case = [](const auto &test) { return test.param.name; };

INSTANTIATE_TEST_SUITE_P(Codec, CodecFaults, testing::ValuesIn(cases()), name_of_case);
INSTANTIATE_TEST_SUITE_P(Codec, CodecMemoryFaults, testing::ValuesIn(memory_cases()), name_of_case);

} // namespace
