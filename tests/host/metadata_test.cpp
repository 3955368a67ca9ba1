// Marks, and changes of Exif blocks: only what is requested changes, whatever the block holds.
#include <algorithm>

#include <gtest/gtest.h>

#include "exif_files.h"
#include "image_files.h"
#include "metadata/exif.h"
#include "metadata/mark.h"
#include "pictures.h"

namespace {

using namespace ko_test;
using metadata::Bytes;
using metadata::Error;
using metadata::ExifChange;
using metadata::Mark;
using metadata::Thumbnail;
using metadata::with_mark;

Bytes bytes_of(const std::string &text) { return {text.begin(), text.end()}; }

std::string text_of(const Bytes &bytes) { return {bytes.begin(), bytes.end()}; }

std::string changed(const std::string &block, const ExifChange &change) {
    return text_of(metadata::changed_exif(bytes_of(block), change));
}

// A JPEG file of at least so many bytes.
std::string jpeg_of(size_t size) {
    return jpeg_file({.segments = {{0xfe, std::string(size, 'x')}}}, [](uint32_t x, uint32_t y, uint32_t) { return x * y; });
}

const Mark opened = {"0.1.0", {"shadows opened"}};

TEST(Mark, StandsBehindTheNamesOfOthers) {
    EXPECT_EQ(with_mark("", opened), "ko 0.1.0 (shadows opened)");
    EXPECT_EQ(with_mark("Firmware 1.2", opened), "Firmware 1.2; ko 0.1.0 (shadows opened)");
    EXPECT_EQ(with_mark("", {"2.0", {"red eyes repaired", "shadows opened"}}), "ko 2.0 (red eyes repaired, shadows opened)");
}

TEST(Mark, IsReadAgain) {
    for (const std::string text :
         {"ko 0.1.0 (red eyes repaired, shadows opened)", "A; ko 0.1.0 (red eyes repaired, shadows opened)",
          "ko 0.1.0 (red eyes repaired, shadows opened); B"}) {
        const auto mark = metadata::mark_in(text);
        ASSERT_TRUE(mark) << text;
        EXPECT_EQ(mark->version, "0.1.0");
        EXPECT_EQ(mark->deeds, (std::vector<std::string>{"red eyes repaired", "shadows opened"}));
        EXPECT_TRUE(mark->has("shadows opened"));
        EXPECT_FALSE(mark->has("shadows"));
    }
}

TEST(Mark, TakesThePlaceOfAnOlderOne) {
    EXPECT_EQ(with_mark("A; ko 0.0.9 (red eyes repaired); B", opened), "A; ko 0.1.0 (shadows opened); B");
    EXPECT_EQ(with_mark(with_mark("A", opened), opened), with_mark("A", opened));
}

TEST(Mark, IsNoOtherText) {
    for (const std::string text : {"", "ko", "ko ", "ko 0.1.0", "ko 0.1.0 (", "ko 0.1.0 (x", "ko (shadows opened)", "ko 1.0(x)",
                                   "Gecko 1.0 (shadows opened)", "A, ko 1.0 (x)", "ko 1.0 (x) and more", "ko one (x)"}) {
        EXPECT_FALSE(metadata::mark_in(text)) << text;
        EXPECT_EQ(with_mark(text, opened), text + (text.empty() ? "" : "; ") + "ko 0.1.0 (shadows opened)");
    }
}

TEST(Mark, HasADeedOnce) {
    Mark mark = opened;
    mark.add("shadows opened");
    mark.add("red eyes repaired");
    EXPECT_EQ(mark.deeds, (std::vector<std::string>{"shadows opened", "red eyes repaired"}));
}

class ExifOrders : public testing::TestWithParam<bool> {
  protected:
    // A block with all that a camera writes. Its maker note points to places in the block.
    ExifRecipe recipe() const {
        return {.little = GetParam(), .maker_note = "Notes of some camera, which point to byte 123", .thumbnail = jpeg_of(500)};
    }
};

INSTANTIATE_TEST_SUITE_P(Metadata, ExifOrders, testing::Bool(),
                         [](const auto &test) { return test.param ? "little_endian" : "big_endian"; });

// All but the header's pointer stays byte for byte where it was; the new directory is sorted.
TEST_P(ExifOrders, SoftwareIsAddedAtTheEnd) {
    const std::string block = exif_file(recipe());
    const std::string result = changed(block, {.software = "ko"});
    EXPECT_EQ(exif_software(result), "ko");
    EXPECT_EQ(exif_tags(block), "271 274 34665");
    EXPECT_EQ(exif_tags(result), "271 274 305 34665");
    EXPECT_EQ(result.substr(8, block.size() - 8), block.substr(8));
    EXPECT_EQ(exif_number(result, 0, 0x0112), 6u);
    EXPECT_EQ(exif_entries(result, 0)[0x010f].bytes, exif_entries(block, 0)[0x010f].bytes);
    EXPECT_EQ(exif_thumbnail(result), exif_thumbnail(block));
}

TEST_P(ExifOrders, SoftwareIsReplaced) {
    ExifRecipe with = recipe();
    with.software = "Firmware 1.00 of the camera";
    const std::string block = exif_file(with);
    EXPECT_EQ(text_of(bytes_of(metadata::read_exif(bytes_of(block)).software)), with.software);
    for (const std::string name : {"", "A", "ABC", "ABCD", "A name that fits", "A name that is longer than the old one"}) {
        const std::string result = changed(block, {.software = name});
        EXPECT_EQ(exif_software(result), name);
        EXPECT_EQ(exif_tags(result), exif_tags(block));
        EXPECT_EQ(result.size(), block.size() + (name.size() > with.software.size() ? name.size() + 1 + block.size() % 2 : 0));
        EXPECT_EQ(exif_thumbnail(result), exif_thumbnail(block));
        EXPECT_EQ(exif_software(changed(result, {.software = with.software})), with.software);
    }
}

TEST_P(ExifOrders, AThumbnailThatFitsTakesTheOldOnesPlace) {
    ExifRecipe with = recipe();
    with.software = "ko";
    with.behind = "what nobody knows";
    const std::string block = exif_file(with);
    const std::string jpeg = jpeg_of(100);
    const std::string result = changed(block, {.thumbnail = Thumbnail{bytes_of(jpeg), 16, 16}});
    EXPECT_EQ(exif_thumbnail(result), jpeg);
    EXPECT_EQ(result.size(), block.size());
    EXPECT_EQ(exif_number(result, 1, 0x0201), exif_number(block, 1, 0x0201));
    EXPECT_TRUE(result.ends_with(with.behind));
    EXPECT_EQ(text_of(metadata::read_exif(bytes_of(result)).thumbnail), jpeg);
    EXPECT_EQ(result.find(with.thumbnail.substr(400)), std::string::npos) << "what is left of the old one is cleared";
}

TEST_P(ExifOrders, AThumbnailThatDoesNotFitGoesToTheEnd) {
    const std::string jpeg = jpeg_of(900);
    for (const std::string behind : {"", "what nobody knows"}) {
        ExifRecipe with = recipe();
        with.behind = behind;
        const std::string block = exif_file(with);
        const std::string result = changed(block, {.thumbnail = Thumbnail{bytes_of(jpeg), 16, 16}});
        EXPECT_EQ(exif_thumbnail(result), jpeg);
        EXPECT_TRUE(result.ends_with(jpeg));
        EXPECT_NE(result.find(behind), std::string::npos);
        EXPECT_LE(result.size(), (behind.empty() ? block.size() - with.thumbnail.size() : block.size() + 1) + jpeg.size());
    }
}

TEST_P(ExifOrders, AThumbnailStandsAsThePictureDoes) {
    ExifRecipe with = recipe();
    with.thumbnail_orientation = 1;
    with.has_thumbnail_size = true;
    const ExifChange change{.thumbnail = Thumbnail{bytes_of(jpeg_of(100)), 160, 120}};
    const std::string result = changed(exif_file(with), change);
    EXPECT_EQ(exif_number(result, 1, 0x0112), 6u);
    EXPECT_EQ(exif_number(result, 1, 0x0100), 160u);
    EXPECT_EQ(exif_number(result, 1, 0x0101), 120u);
    with.orientation = std::nullopt;
    with.thumbnail_orientation = 8;
    EXPECT_EQ(exif_number(changed(exif_file(with), change), 1, 0x0112), 1u);
}

TEST_P(ExifOrders, AThumbnailGoesWithItsDirectory) {
    const std::string block = exif_file(recipe());
    const std::string result = changed(block, {.software = "ko", .drop_thumbnail = true});
    EXPECT_TRUE(exif_entries(result, 1).empty());
    EXPECT_FALSE(metadata::read_exif(bytes_of(result)).has_thumbnail);
    EXPECT_LT(result.size(), block.size() - 400);
    EXPECT_EQ(exif_software(result), "ko");
}

TEST(Exif, AnEmptyBlockTakesAName) {
    const std::string result =
        text_of(metadata::changed_exif(metadata::empty_exif(), {.software = "ko 0.1.0 (shadows opened)"}));
    EXPECT_EQ(exif_software(result), "ko 0.1.0 (shadows opened)");
    EXPECT_EQ(exif_tags(result), "305");
}

TEST(Exif, AThumbnailOfAnotherKindIsNotReplaced) {
    const std::string block = exif_file({.thumbnail = "pixels", .thumbnail_compression = 1});
    const metadata::Exif exif = metadata::read_exif(bytes_of(block));
    EXPECT_TRUE(exif.has_thumbnail);
    EXPECT_TRUE(exif.thumbnail.empty());
}

TEST(Exif, ABlockWithoutAThumbnailGetsNone) {
    const ExifChange change{.thumbnail = Thumbnail{bytes_of(jpeg_of(100)), 16, 16}};
    EXPECT_THROW(changed(exif_file({}), change), Error);
    EXPECT_EQ(changed(exif_file({}), {.drop_thumbnail = true}), exif_file({}));
}

// A new thumbnail in the place of the old one would destroy what else is stored there.
TEST(Exif, ABlockWhosePartsOverlapIsLeftAlone) {
    std::string block = exif_file({.maker_note = std::string(300, 'n'), .thumbnail = jpeg_of(500)});
    const size_t note = block.find("nnnn");
    const size_t position = block.find(big_endian(*exif_number(block, 1, 0x0201)));
    block.replace(position, 4, big_endian(static_cast<uint32_t>(note)));
    const ExifChange change{.thumbnail = Thumbnail{bytes_of(jpeg_of(100)), 16, 16}};
    EXPECT_THROW(changed(block, change), Error);
}

TEST(Exif, WhatIsNoBlockIsAnError) {
    for (const std::string block : {"", "M", "MM", "MM\1*", "no Exif data at all"}) {
        EXPECT_THROW(changed(block, {.software = "ko"}), Error);
    }
}

// A change of a damaged block is made or refused; if it is made, the block shows it.
void try_change(const std::string &block, const ExifChange &change, size_t &done) {
    try {
        metadata::read_exif(bytes_of(block));
        const metadata::Exif result = metadata::read_exif(metadata::changed_exif(bytes_of(block), change));
        EXPECT_EQ(result.software, *change.software);
        ++done;
    } catch (const Error &) {
    }
}

std::string hostile_base(bool little) {
    return exif_file({.little = little, .software = "Firmware", .maker_note = "Canon notes\0\1\2\3", .thumbnail = jpeg_of(40)});
}

TEST(HostileExif, CutAtEveryLength) {
    const ExifChange change{.software = "ko 0.1.0 (shadows opened)", .thumbnail = Thumbnail{bytes_of(jpeg_of(60)), 16, 16}};
    for (const bool little : {false, true}) {
        const std::string block = hostile_base(little);
        size_t done = 0;
        for (size_t size = 0; size < block.size(); ++size) {
            try_change(block.substr(0, size), change, done);
        }
        EXPECT_EQ(done, 0u) << "the thumbnail at the end is never whole";
        try_change(block, change, done);
        EXPECT_EQ(done, 1u);
    }
}

TEST(HostileExif, WithEveryByteOfItsDirectoriesChanged) {
    const ExifChange with_thumbnail{.software = "ko 0.1.0 (shadows opened)",
                                    .thumbnail = Thumbnail{bytes_of(jpeg_of(60)), 16, 16}};
    const ExifChange without{.software = "ko", .drop_thumbnail = true};
    for (const bool little : {false, true}) {
        const std::string block = hostile_base(little);
        const size_t end = block.size() - jpeg_of(40).size();
        size_t done = 0;
        for (size_t i = 0; i < end; ++i) {
            for (const int mask : {0x01, 0x10, 0x80, 0xff}) {
                std::string damaged = block;
                damaged[i] = static_cast<char>(damaged[i] ^ mask);
                try_change(damaged, with_thumbnail, done);
                try_change(damaged, without, done);
            }
        }
        EXPECT_GT(done, end) << "most damage is to values";
    }
}

TEST(HostileExif, WithManyBytesChanged) {
    Noise noise(7);
    const ExifChange change{.software = "ko 0.1.0 (shadows opened)", .thumbnail = Thumbnail{bytes_of(jpeg_of(60)), 16, 16}};
    size_t done = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string block = hostile_base(round % 2 == 0);
        for (uint32_t count = noise.next() % 8; count > 0; --count) {
            block[8 + noise.next() % 150] = static_cast<char>(noise.byte());
        }
        try_change(block, change, done);
    }
    EXPECT_GT(done, 300u);
}

// A directory of as many entries as there can be, each of which leads back to the first one.
TEST(HostileExif, ThatLeadsBackToItself) {
    std::string block = "MM" + std::string("\0*\0\0\0\x08", 6) + "\xff\xff";
    for (int i = 0; i < 0xffff; ++i) {
        block += std::string("\x87\x69\0\4\0\0\0\1\0\0\0\x08", 12);
    }
    block += std::string("\0\0\0\x08", 4);
    size_t done = 0;
    try_change(block, {.software = "ko"}, done);
    try_change(block.substr(0, 500), {.software = "ko"}, done);
    EXPECT_EQ(done, 0u);
}

} // namespace
