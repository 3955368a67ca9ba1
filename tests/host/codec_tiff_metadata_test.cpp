// What a TIFF file holds besides its pixels, through the codec in both directions: Exif directories, XMP, IPTC records, image
// resources, and what becomes of the rest.
#include <algorithm>

#include <gtest/gtest.h>

#include "capture.h"
#include "codec_files.h"
#include "exif_files.h"
#include "pictures.h"
#include "tiff_directories.h"
#include "tiff_files.h"

namespace {

using namespace ko_test;
using codec::Format;
using codec::Notices;
using codec::Picture;

constexpr TiffForm forms[] = {{true, false}, {false, false}, {true, true}, {false, true}};

std::string name_of(const TiffForm &form) { return std::string(form.little ? "little" : "big") + (form.large ? "_large" : ""); }

constexpr uint32_t maker_note_tag = 37500;

const TiffValue orientation = tiff_shorts(274, {6});

// Directories with values of every common type, short and long ones.
const TiffTree full_tree = {.first = {tiff_text(270, "A harbour at dawn"), tiff_text(271, "Camera works"), tiff_text(272, "M7"),
                                      orientation, tiff_text(305, "Firmware 1.2"), tiff_text(306, "2021:05:04 03:02:01"),
                                      tiff_text(315, "Jo"), tiff_text(33432, "(c) Jo, all rights"),
                                      tiff_bytes_of(40091, 1, std::string("T\0i\0t\0l\0e\0\0\0", 12))},
                            .exif = {tiff_fraction(33434, 1, 250),
                                     tiff_shorts(34855, {200}),
                                     tiff_bytes_of(36864, 7, "0230"),
                                     tiff_text(36867, "2021:05:04 03:02:01"),
                                     tiff_bytes_of(37121, 7, std::string("\1\2\3\0", 4)),
                                     {.tag = 37380, .type = 10, .numbers = {0xffffffff, 3}},
                                     tiff_bytes_of(37510, 7, std::string("ASCII\0\0\0what I saw", 18)),
                                     tiff_longs(40962, {4000}),
                                     tiff_longs(40963, {3000}),
                                     {.tag = 42034, .type = 5, .numbers = {24, 1, 70, 1, 28, 10, 28, 10}}},
                            .gps = {tiff_bytes_of(0, 1, std::string("\2\3\0\0", 4)),
                                    tiff_text(1, "N"),
                                    {.tag = 2, .type = 5, .numbers = {52, 1, 31, 1, 1234, 100}},
                                    tiff_bytes_of(5, 1, std::string(1, '\0')),
                                    tiff_text(29, "2021:05:04")},
                            .interoperability = {tiff_text(1, "R98"), tiff_bytes_of(2, 7, "0100")}};

void expect_tree(const TiffFoundTree &found, const TiffTree &tree) {
    expect_values(found.first, tree.first);
    expect_values(found.exif, tree.exif);
    expect_values(found.gps, tree.gps);
    expect_values(found.interoperability, tree.interoperability);
}

// A tree with one value in its first directory.
TiffTree with(const TiffValue &value) { return {.first = {value}}; }

TiffTree with_maker_note(const std::string &note, uint64_t at = 0) {
    TiffTree tree = full_tree;
    tree.exif.push_back({.tag = maker_note_tag, .type = 7, .bytes = note, .at = at});
    return tree;
}

std::string note_of(size_t size) {
    const std::vector<uint8_t> bytes = noise_bytes(size, 3);
    return {bytes.begin(), bytes.end()};
}

const std::string xmp = "<?xpacket begin=''?><x:xmpmeta xmlns:x='adobe:ns:meta/'/><?xpacket end='w'?>";
const std::string iptc = "\x1c\x02\x78" + std::string("\0\7", 2) + "Caption"; // 12 bytes
const std::string resources = "8BIM\x03\xed" + std::string("\0\0\0\0\0\4", 6) + "some";

std::string exif_of(const std::string &file) { return text_of(decoded(file).metadata.exif); }

// ---- reading

class TiffMetadataIn : public testing::TestWithParam<TiffForm> {
  protected:
    std::string file(const TiffTree &tree) const { return tiff_of_tree(tree, {.form = GetParam()}); }

    codec::Metadata read(const TiffTree &tree) const {
        Notices notices;
        Picture picture = codec::decode(bytes_of(file(tree)), notices);
        EXPECT_EQ(notices, Notices{});
        EXPECT_EQ(pixels_of(picture), tiff_tree_pixels());
        return std::move(picture.metadata);
    }
};

TEST_P(TiffMetadataIn, BlocksArrive) {
    for (const uint32_t type : {1u, 7u}) {
        EXPECT_EQ(text_of(read(with(tiff_bytes_of(700, type, xmp))).xmp), xmp) << "type " << type;
        EXPECT_EQ(text_of(read(with(tiff_bytes_of(33723, type, iptc))).iptc), iptc) << "type " << type;
        EXPECT_EQ(text_of(read(with(tiff_bytes_of(34377, type, resources))).photoshop), resources) << "type " << type;
    }
    const std::string profile = icc_profile("RGB ", 400);
    EXPECT_EQ(text_of(read(with(tiff_bytes_of(34675, 7, profile))).icc_profile), profile);
}

// The field holds bytes that are declared as numbers: their order in the file is that of the records.
TEST_P(TiffMetadataIn, RecordsInNumbersLoseTheirPadding) {
    for (size_t size = 1; size <= 8; ++size) {
        const std::string records = "\x1c\x02\x78" + std::string(1, '\0') + static_cast<char>(size) + std::string(size, 'c');
        const std::string padded = records + std::string((4 - records.size() % 4) % 4, '\0');
        std::vector<uint32_t> numbers;
        for (size_t i = 0; i < padded.size(); i += 4) {
            uint32_t number = 0;
            for (size_t j = 0; j < 4; ++j) {
                number = number << 8 | static_cast<uint8_t>(padded[i + (GetParam().little ? 3 - j : j)]);
            }
            numbers.push_back(number);
        }
        const std::string whole = file(with(tiff_longs(33723, numbers)));
        ASSERT_NE(whole.find(padded), std::string::npos);
        EXPECT_EQ(text_of(decoded(whole).metadata.iptc), records) << size;
    }
}

TEST_P(TiffMetadataIn, ExifDirectoriesArrive) {
    const std::string exif = text_of(read(full_tree).exif);
    ASSERT_TRUE(exif.starts_with(std::string("II*\0", 4)) || exif.starts_with(std::string("MM\0*", 4)));
    expect_tree(tiff_tree(exif), full_tree);
}

TEST_P(TiffMetadataIn, EachDirectoryIsReadAlone) {
    expect_values(tiff_tree(text_of(read({.exif = full_tree.exif}).exif)).exif, full_tree.exif);
    expect_values(tiff_tree(text_of(read({.gps = full_tree.gps}).exif)).gps, full_tree.gps);
    expect_values(tiff_tree(text_of(read({.first = {tiff_text(315, "J. Doe")}}).exif)).first, {tiff_text(315, "J. Doe")});
}

TEST_P(TiffMetadataIn, WhatSaysHowPixelsAreStoredIsNoExifData) {
    TiffTree tree = full_tree;
    const TiffValues others = {tiff_bytes_of(700, 1, xmp), tiff_bytes_of(33723, 7, iptc), tiff_bytes_of(34377, 7, resources),
                               tiff_bytes_of(34675, 7, icc_profile("RGB ", 200))};
    tree.first.insert(tree.first.end(), others.begin(), others.end());
    const TiffFoundTree found = tiff_tree(text_of(read(tree).exif));
    expect_tree(found, full_tree);
    for (const uint32_t tag : {256u, 257u, 258u, 259u, 262u, 273u, 277u, 278u, 279u, 284u, 700u, 33723u, 34377u, 34675u}) {
        EXPECT_FALSE(found.first.contains(tag)) << tag;
    }
}

TEST_P(TiffMetadataIn, StorageDensityAndUprightPixelsAreNoExifData) {
    const TiffTree tree = {.first = {tiff_longs(254, {0}), tiff_shorts(266, {1}), tiff_shorts(274, {1}),
                                     tiff_fraction(282, 72, 1), tiff_fraction(283, 72, 1), tiff_shorts(296, {2})}};
    const codec::Metadata metadata = read(tree);
    EXPECT_TRUE(metadata.exif.empty());
    ASSERT_TRUE(metadata.density.has_value());
    EXPECT_EQ(metadata.density->x, 72u);
    EXPECT_TRUE(read({}).exif.empty());
}

TEST_P(TiffMetadataIn, ATurnedPictureHasExifDataThatSaySo) {
    for (uint32_t turned = 2; turned <= 8; ++turned) {
        const TiffFoundTree found = tiff_tree(text_of(read(with(tiff_shorts(274, {turned}))).exif));
        expect_values(found.first, {tiff_shorts(274, {turned})});
        EXPECT_EQ(found.first.size(), 1u);
    }
}

TEST_P(TiffMetadataIn, AMakerNoteKeepsItsPlace) {
    for (const uint64_t place : {16u, 17u, 500u, 4001u, 32768u}) {
        for (const size_t size : {9u, 300u, 20000u}) {
            const std::string note = note_of(size);
            const TiffTree tree = with_maker_note(note, place);
            const TiffFoundTree found = tiff_tree(text_of(read(tree).exif));
            expect_tree(found, tree);
            EXPECT_EQ(found.exif.at(maker_note_tag).at, place) << size;
        }
    }
}

TEST_P(TiffMetadataIn, AMakerNoteFarBehindIsMovedAndNamed) {
    for (const uint64_t place : {32769u, 100000u}) {
        const TiffTree tree = with_maker_note(note_of(300), place);
        const std::string whole = file(tree);
        expect_tree(tiff_tree(exif_of(whole)), tree);
        EXPECT_EQ(notices_of(whole),
                  Notices{"the maker note in the Exif data was moved, and programs may no longer understand it"});
        EXPECT_EQ(pixels_of(decoded(whole)), tiff_tree_pixels());
    }
}

TEST_P(TiffMetadataIn, LayersAreNamed) {
    const std::string layers = std::string("Adobe Photoshop Document Data Block\0", 36) + "MIB8ryaL" + std::string(40, '\1');
    const std::string whole = file(with(tiff_bytes_of(37724, 7, layers)));
    EXPECT_EQ(notices_of(whole), Notices{"the Photoshop layers are left out"});
    EXPECT_TRUE(decoded(whole).metadata.exif.empty());
}

TEST_P(TiffMetadataIn, OfTooMuchExifDataPartsAreLeftOut) {
    const TiffTree large = with_maker_note(note_of(3'000'000));
    TiffTree many = full_tree;
    for (uint32_t i = 0; i < 40; ++i) {
        many.exif.push_back(tiff_bytes_of(50000 + i, 7, note_of(100'000)));
    }
    for (const TiffTree &tree : {large, many}) {
        const std::string whole = file(tree);
        Notices notices;
        const Picture picture = codec::decode(bytes_of(whole), notices);
        EXPECT_LE(picture.metadata.exif.size(), 1'200'000u);
        EXPECT_EQ(notices, Notices{"the Exif data is too large, and parts of it are left out"});
        expect_values(tiff_tree(text_of(picture.metadata.exif)).first, full_tree.first);
        EXPECT_EQ(pixels_of(picture), tiff_tree_pixels());
    }
}

INSTANTIATE_TEST_SUITE_P(Codec, TiffMetadataIn, testing::ValuesIn(forms), [](const auto &test) { return name_of(test.param); });

TEST(TiffMetadataClassic, AMakerNoteRightBehindTheHeaderKeepsItsPlace) {
    for (const bool little : {false, true}) {
        const TiffTree tree = with_maker_note(note_of(300), 8);
        const std::string exif = exif_of(tiff_of_tree(tree, {.form = {little, false}}));
        expect_tree(tiff_tree(exif), tree);
        EXPECT_EQ(tiff_tree(exif).exif.at(maker_note_tag).at, 8u);
    }
}

// ---- hostile directories

// Reads a file whose pixels are intact; they are delivered whatever its directories hold.
void expect_pixels(const std::string &file, const std::string &what) {
    Notices notices;
    try {
        EXPECT_EQ(pixels_of(codec::decode(bytes_of(file), notices)), tiff_tree_pixels()) << what;
    } catch (const std::exception &error) {
        ADD_FAILURE() << what << ": " << error.what();
    }
}

class TiffHostileDirectories : public testing::TestWithParam<TiffForm> {
  protected:
    std::string file(const TiffTree &tree) const { return tiff_of_tree(tree, {.form = GetParam()}); }
};

TEST_P(TiffHostileDirectories, OffsetsBeyondTheEnd) {
    for (const uint32_t tag : {700u, 33723u, 34377u, 270u, 34665u, 34853u, 37724u}) {
        for (const uint64_t offset : {uint64_t{100'000}, uint64_t{0x7fffffff}, uint64_t{0xfffffff0}, uint64_t{0xffffffff}}) {
            const bool points = tag == 34665 || tag == 34853;
            TiffValue value = tag == 270 ? tiff_text(270, "A long description") : tiff_bytes_of(tag, 7, std::string(40, 'x'));
            value.offset = offset;
            if (points) {
                value = tiff_longs(tag, {static_cast<uint32_t>(offset)});
            }
            expect_pixels(file(with(value)), "tag " + std::to_string(tag) + " at " + std::to_string(offset));
        }
    }
}

TEST_P(TiffHostileDirectories, EnormousCounts) {
    const uint64_t most = GetParam().large ? UINT64_MAX : UINT32_MAX;
    for (const uint32_t tag : {700u, 33723u, 34377u, 270u, 271u, 34665u, 34853u, 37724u, 33432u, 65000u}) {
        for (const uint32_t type : {1u, 2u, 3u, 4u, 5u, 7u, 12u, 16u}) {
            for (const uint64_t count : {most, most / 2 + 1, most / 8 + 1}) {
                TiffValue value{.tag = tag, .type = type, .bytes = std::string(40, 'x'), .numbers = {1, 2, 3, 4}};
                value.count = count;
                expect_pixels(file(with(value)), "tag " + std::to_string(tag) + " of type " + std::to_string(type));
            }
        }
    }
}

TEST_P(TiffHostileDirectories, ValuesOfNoKnownTypeOrCountBelow) {
    const uint64_t most = GetParam().large ? UINT64_MAX : UINT32_MAX;
    for (const uint32_t tag : {700u, 33434u, 37500u, 40965u, 65000u}) {
        for (const uint32_t type : {0u, 1u, 2u, 3u, 4u, 5u, 7u, 12u, 13u, 16u, 200u, 65535u}) {
            for (const uint64_t count : {most, most / 2 + 1, most / 8 + 1, uint64_t{0}}) {
                TiffTree tree{.first = full_tree.first, .exif = {tiff_text(36867, "2021:05:04 03:02:01")}};
                tree.exif.push_back({.tag = tag, .type = type, .bytes = std::string(40, 'x'), .numbers = {1, 2, 3, 4}});
                tree.exif.back().count = count;
                expect_pixels(file(tree), "tag " + std::to_string(tag) + " of type " + std::to_string(type));
            }
        }
    }
}

TEST_P(TiffHostileDirectories, ValuesOfNoKnownTypeOrCount) {
    for (const uint32_t tag : {700u, 33723u, 34377u, 270u, 37724u, 65000u}) {
        for (const uint32_t type : {1u, 2u, 3u, 4u, 7u, 0u, 200u, 65535u}) {
            TiffValue value{.tag = tag, .type = type, .bytes = std::string(40, 'x'), .numbers = {1, 2, 3, 4}};
            value.count = type == 0 || type >= 200 ? 1 : 0;
            expect_pixels(file(with(value)), "tag " + std::to_string(tag) + " of type " + std::to_string(type));
        }
    }
}

// The entry of a tag in the directories of a file.
size_t entry_of(const std::string &file, uint32_t tag) {
    const bool little = file.at(0) == 'I';
    const std::string wanted = {static_cast<char>(little ? tag : tag >> 8), static_cast<char>(little ? tag >> 8 : tag)};
    const size_t type = little ? 2 : 3;
    for (size_t place = file.find(wanted); place != std::string::npos; place = file.find(wanted, place + 1)) {
        if (file.at(place + type) == '\4') {
            return place;
        }
    }
    throw std::out_of_range("no such tag");
}

std::string number_in(const TiffForm &form, uint64_t value, size_t size) {
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        text += static_cast<char>(value >> 8 * (form.little ? i : size - 1 - i));
    }
    return text;
}

// Each pointer to a directory leads to every byte of the file in turn: to itself, to its parent, into values and pixels.
TEST_P(TiffHostileDirectories, PointersThatLeadAnywhere) {
    const TiffForm form = GetParam();
    const std::string whole = file(full_tree);
    for (const uint32_t tag : {34665u, 34853u, 40965u}) {
        const size_t value = entry_of(whole, tag) + (form.large ? 12 : 8);
        for (uint64_t target = 0; target <= whole.size(); ++target) {
            std::string damaged = whole;
            damaged.replace(value, 4, number_in(form, target, 4));
            expect_pixels(damaged, "tag " + std::to_string(tag) + " to " + std::to_string(target));
        }
    }
}

// A directory that claims the greatest number of entries, with each of its places in memory taken by others.
TEST_P(TiffHostileDirectories, MoreEntriesThanThereAre) {
    const TiffForm form = GetParam();
    const std::string whole = file(full_tree);
    const size_t word = form.large ? 8 : 2;
    for (const uint32_t tag : {34665u, 34853u, 40965u}) {
        const TiffFoundTree tree = tiff_tree(whole);
        const TiffFoundValues &parent = tag == 40965 ? tree.exif : tree.first;
        const size_t directory = parent.at(tag).numbers.at(0);
        for (const uint64_t count : {uint64_t{0}, uint64_t{255}, uint64_t{65535}, form.large ? UINT64_MAX : uint64_t{65534}}) {
            std::string damaged = whole;
            damaged.replace(directory, word, number_in(form, count, word));
            expect_pixels(damaged, "tag " + std::to_string(tag) + " with " + std::to_string(count));
            expect_pixels(damaged + std::string(2'000'000, '\1'), "tag " + std::to_string(tag) + " with entries");
            expect_pixels(damaged + std::string(2'000'000, '\0'), "tag " + std::to_string(tag) + " with empty entries");
        }
    }
}

// 65535 entries that all point to the same large value: a small file that would take much memory if all were kept.
TEST_P(TiffHostileDirectories, ManyEntriesWithOneLargeValue) {
    TiffTree tree = full_tree;
    tree.exif.clear();
    const TiffForm form = GetParam();
    for (uint32_t i = 1; i < 65535; ++i) {
        tree.exif.push_back({.tag = i, .type = 7, .bytes = {}, .count = 1'000'000, .offset = form.large ? 16 : 8});
    }
    const std::string whole = file(tree);
    ASSERT_LT(whole.size(), 1'500'000u);
    const std::string padded = whole + std::string(1'000'000, 'x');
    Notices notices;
    const Picture picture = codec::decode(bytes_of(padded), notices);
    EXPECT_EQ(pixels_of(picture), tiff_tree_pixels());
    EXPECT_LE(picture.metadata.exif.size(), 1'200'000u);
    EXPECT_EQ(notices, Notices{"the Exif data is too large, and parts of it are left out"});
}

// The pixels come first; wherever the file is cut after them, they are delivered or the file is refused.
TEST_P(TiffHostileDirectories, CutAnywhere) {
    TiffTree tree = with_maker_note(note_of(300));
    tree.first.push_back(tiff_bytes_of(700, 1, xmp));
    tree.first.push_back(tiff_bytes_of(33723, 7, iptc));
    const std::string whole = file(tree);
    for (size_t size = 0; size < whole.size(); ++size) {
        const std::string cut = whole.substr(0, size);
        try {
            EXPECT_EQ(pixels_of(decoded(cut)), tiff_tree_pixels()) << size;
        } catch (const codec::Error &) {
        }
    }
}

TEST_P(TiffHostileDirectories, WithAnyByteChanged) {
    TiffTree tree = with_maker_note(note_of(20));
    tree.first.push_back(tiff_bytes_of(700, 1, xmp));
    tree.first.push_back(tiff_longs(33723, {0x1c027800, 0x01000000}));
    const std::string whole = file(tree);
    StderrCapture capture;
    for (size_t place = 0; place < whole.size(); ++place) {
        for (const char value : {'\0', '\1', '\x7f', '\x80', '\xff'}) {
            std::string damaged = whole;
            damaged[place] = value;
            EXPECT_EQ(error_of(damaged).find('\n'), std::string::npos) << place;
        }
    }
    EXPECT_EQ(capture.stop(), "");
}

TEST_P(TiffHostileDirectories, NeverCrash) {
    TiffTree tree = with_maker_note(note_of(20));
    tree.first.push_back(tiff_bytes_of(700, 1, xmp));
    tree.first.push_back(tiff_bytes_of(33723, 1, iptc));
    tree.first.push_back(tiff_bytes_of(34377, 7, resources));
    EXPECT_GT(refused_of_damaged({file(tree)}, 4000), 100);
}

INSTANTIATE_TEST_SUITE_P(Codec, TiffHostileDirectories, testing::ValuesIn(forms),
                         [](const auto &test) { return name_of(test.param); });

// ---- writing

codec::Bytes block(const std::string &text) { return {text.begin(), text.end()}; }

// What is stored beside the pixels.
struct Said {
    std::string exif = "";
    std::string profile = "";
    std::string xmp = "";
    std::string photoshop = "";
    std::string iptc = "";
    std::vector<std::string> comments = {};
    std::vector<codec::PngText> texts = {};
    std::vector<codec::JpegSegment> segments = {};
    std::vector<codec::PngChunk> chunks = {};
    std::optional<codec::Density> density = std::nullopt;
};

codec::Metadata metadata_of(const Said &said) {
    codec::Metadata metadata;
    metadata.exif = block(said.exif);
    metadata.icc_profile = block(said.profile);
    metadata.xmp = block(said.xmp);
    metadata.photoshop = block(said.photoshop);
    metadata.iptc = block(said.iptc);
    metadata.comments = said.comments;
    metadata.png_texts = said.texts;
    metadata.jpeg_segments = said.segments;
    metadata.png_chunks = said.chunks;
    metadata.density = said.density;
    return metadata;
}

// A picture with metadata in a TIFF file, and what is reported about it.
struct Written {
    std::string file;
    Notices notices;
    TiffFoundTree tree;
};

Written written(const Said &said) {
    Picture picture = picture_of(6, 4, 3, false, mixed);
    picture.metadata = metadata_of(said);
    Written result;
    result.file = text_of(codec::encode(picture, {Format::tiff, std::nullopt}, result.notices));
    result.tree = tiff_tree(result.file);
    EXPECT_EQ(tiff_pixels(result.file).bytes, pixels_of(picture));
    return result;
}

Written written_exif(const std::string &exif) { return written({.exif = exif}); }

TEST(TiffMetadataOut, BlocksAreWritten) {
    const std::string profile = icc_profile("RGB ", 400);
    const Written result = written({.profile = profile, .xmp = xmp, .photoshop = resources});
    EXPECT_EQ(tiff_bytes(result.file, TIFFTAG_XMLPACKET), xmp);
    EXPECT_EQ(tiff_bytes(result.file, TIFFTAG_PHOTOSHOP), resources);
    EXPECT_EQ(tiff_bytes(result.file, TIFFTAG_ICCPROFILE), profile);
    EXPECT_EQ(result.notices, Notices{});
    const std::string large = std::string(200'000, 'x');
    EXPECT_EQ(tiff_bytes(written({.xmp = large}).file, TIFFTAG_XMLPACKET), large);
}

TEST(TiffMetadataOut, RecordsAreWrittenByteForByte) {
    for (size_t size = 1; size <= 9; ++size) {
        const std::string records = "\x1c\x02\x78" + std::string(1, '\0') + static_cast<char>(size) + std::string(size, '\0');
        const Written result = written({.iptc = records});
        EXPECT_EQ(result.tree.first.at(33723).bytes, records) << size;
        EXPECT_EQ(text_of(decoded(result.file).metadata.iptc), records) << size;
        EXPECT_EQ(result.notices, Notices{});
    }
}

TEST(TiffMetadataOut, ExifDirectoriesAreWritten) {
    for (const bool little : {false, true}) {
        const std::string exif = exif_of_tree(full_tree, little);
        const Written result = written_exif(exif);
        EXPECT_EQ(result.notices, Notices{});
        expect_tree(result.tree, full_tree);
        EXPECT_EQ(tiff_number(result.file, TIFFTAG_ORIENTATION), 6u);
    }
}

// Types of every size, in one item, in as many as fit into the entry and in more.
TEST(TiffMetadataOut, ValuesOfEveryTypeStayByteForByte) {
    for (const bool little : {false, true}) {
        TiffTree tree = full_tree;
        for (TiffValues *values : {&tree.exif, &tree.gps, &tree.interoperability}) {
            uint32_t tag = 60000;
            for (const uint32_t type : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u}) {
                for (const size_t count : {1u, 4u, 30u}) {
                    std::vector<uint32_t> numbers;
                    for (uint32_t i = 0; i < count * (type == 5 || type == 10 || type == 12 ? 2 : 1); ++i) {
                        numbers.push_back((0x3f812345 + i * 77) & (type == 3 || type == 8 ? 0xffffu : 0xffffffffu));
                    }
                    const bool is_bytes = type == 1 || type == 2 || type == 6 || type == 7;
                    TiffValue value{.tag = tag++, .type = type};
                    value.numbers = is_bytes ? std::vector<uint32_t>{} : numbers;
                    value.bytes = is_bytes ? std::string(count, 'v') : "";
                    values->push_back(value);
                }
            }
        }
        const std::string exif = exif_of_tree(tree, little);
        const Written result = written_exif(exif);
        EXPECT_EQ(result.notices, Notices{});
        expect_tree(result.tree, tree);
        const TiffFoundTree given = tiff_tree(exif);
        for (const auto &[values, wanted] : {std::pair(&result.tree.exif, &given.exif), std::pair(&result.tree.gps, &given.gps),
                                             std::pair(&result.tree.interoperability, &given.interoperability)}) {
            for (const auto &[tag, value] : *wanted) {
                if (tag != 40965) {
                    EXPECT_EQ(values->at(tag).bytes, value.bytes) << tag;
                }
            }
        }
    }
}

TEST(TiffMetadataOut, ValuesOfTheFirstDirectoryAreWritten) {
    for (const bool little : {false, true}) {
        TiffTree tree = full_tree;
        const TiffValues more = {tiff_text(269, "A document"),
                                 tiff_text(316, "A host"),
                                 tiff_text(285, "A page"),
                                 tiff_bytes_of(40092, 1, std::string("C\0o\0m\0\0\0", 8)),
                                 tiff_shorts(18246, {4}), // rating
                                 tiff_bytes_of(50341, 7, "PrintIM" + std::string("\0000300\0\0", 8)),
                                 tiff_text(50708, "Camera works M7"),
                                 tiff_text(50735, "0815"),
                                 tiff_shorts(18249, {75}),
                                 tiff_shorts(65001, {1, 2, 3, 4, 5}),
                                 tiff_longs(65002, {1, 0xffffffff, 3}),
                                 tiff_longs(65003, {70000}),
                                 tiff_text(65004, "A private text"),
                                 tiff_bytes_of(65005, 1, "A private list")};
        tree.first.insert(tree.first.end(), more.begin(), more.end());
        const Written result = written_exif(exif_of_tree(tree, little));
        EXPECT_EQ(result.notices, Notices{});
        expect_tree(result.tree, tree);
    }
}

TEST(TiffMetadataOut, AMakerNoteKeepsItsPlace) {
    for (const bool little : {false, true}) {
        for (const uint64_t place : {8u, 9u, 10u, 200u, 3001u, 32768u}) {
            const TiffTree tree = with_maker_note(note_of(500), place);
            const Written result = written_exif(exif_of_tree(tree, little));
            EXPECT_EQ(result.notices, Notices{}) << place;
            expect_tree(result.tree, tree);
            EXPECT_EQ(result.tree.exif.at(maker_note_tag).at, place);
            const TiffFoundTree again = tiff_tree(exif_of(result.file));
            expect_tree(again, tree);
            EXPECT_EQ(again.exif.at(maker_note_tag).at, place) << "and back";
        }
    }
}

TEST(TiffMetadataOut, FractionsOfTheFirstDirectoryAreNamed) {
    TiffTree tree = full_tree;
    tree.first.push_back(tiff_fraction(65000, 3127, 10000));
    const Written result = written_exif(exif_of_tree(tree));
    EXPECT_EQ(result.notices, Notices{"the Exif value with tag 65000 has no place in a TIFF file and is left out"});
    EXPECT_FALSE(result.tree.first.contains(65000));
    expect_tree(result.tree, full_tree);
}

TEST(TiffMetadataOut, KeepsTheWhitePointAndThePrimaries) {
    TiffTree tree = full_tree;
    tree.first.push_back({.tag = 318, .type = 5, .numbers = {3127, 10000, 329, 1000}});
    tree.first.push_back({.tag = 319, .type = 5, .numbers = {64, 100, 33, 100, 3, 10, 6, 10, 15, 100, 6, 100}});
    const Written result = written_exif(exif_of_tree(tree));
    EXPECT_EQ(result.notices, Notices());
    const auto expect_quotients = [&](uint32_t tag, const std::vector<double> &quotients) {
        const std::vector<uint32_t> &numbers = result.tree.first.at(tag).numbers;
        ASSERT_EQ(numbers.size(), 2 * quotients.size());
        for (size_t i = 0; i < quotients.size(); ++i) {
            EXPECT_NEAR(static_cast<double>(numbers[2 * i]) / numbers[2 * i + 1], quotients[i], 1e-6) << tag << " " << i;
        }
    };
    expect_quotients(318, {0.3127, 0.329});
    expect_quotients(319, {0.64, 0.33, 0.3, 0.6, 0.15, 0.06});
}

TEST(TiffMetadataOut, ResolutionOfExifDataCountsWithoutADensity) {
    for (const uint32_t unit : {2u, 3u}) {
        TiffTree tree = full_tree;
        const TiffValues resolution = {tiff_fraction(282, 300, 1), tiff_fraction(283, 1500, 10), tiff_shorts(296, {unit})};
        tree.first.insert(tree.first.end(), resolution.begin(), resolution.end());
        const std::string exif = exif_of_tree(tree);
        const Written alone = written_exif(exif);
        EXPECT_EQ(tiff_real(alone.file, TIFFTAG_XRESOLUTION), 300.0);
        EXPECT_EQ(tiff_real(alone.file, TIFFTAG_YRESOLUTION), 150.0);
        EXPECT_EQ(tiff_number(alone.file, TIFFTAG_RESOLUTIONUNIT), unit);
        EXPECT_EQ(alone.notices, Notices{});
        const Written both = written({.exif = exif, .density = codec::Density{codec::Density::Unit::inch, 96, 97}});
        EXPECT_EQ(tiff_real(both.file, TIFFTAG_XRESOLUTION), 96.0);
        EXPECT_EQ(tiff_real(both.file, TIFFTAG_YRESOLUTION), 97.0);
        EXPECT_EQ(tiff_number(both.file, TIFFTAG_RESOLUTIONUNIT), 2u);
        EXPECT_EQ(both.notices, Notices{});
    }
}

TEST(TiffMetadataOut, WhatHasNoPlaceIsNamed) {
    TiffTree tree = full_tree;
    tree.thumbnail = {tiff_shorts(259, {6})};
    tree.jpeg = jpeg_file({}, mixed);
    const std::pair<Said, std::string> cases[] = {
        {{.exif = exif_of_tree(tree)}, "a TIFF file cannot hold the thumbnail in the Exif data, which is left out"},
        {{.comments = {"A comment"}}, "the comment is left out"},
        {{.texts = {{.keyword = "Author", .text = "Jo"}}}, "the PNG text 'Author' is left out"},
        {{.segments = {{0xe5, {1, 2, 3}}}}, "the JPEG segment APP5 is left out"},
        {{.chunks = {{.name = "sCAL", .bytes = {1}}}}, "the PNG chunk 'sCAL' is left out"}};
    for (const auto &[said, notice] : cases) {
        EXPECT_EQ(written(said).notices, Notices{notice});
    }
    EXPECT_TRUE(written_exif(exif_of_tree(tree)).tree.second.empty());
    expect_tree(written_exif(exif_of_tree(tree)).tree, full_tree);
}

TEST(TiffMetadataOut, ATextIsCutAtAZeroByteInside) {
    TiffTree tree = full_tree;
    std::erase_if(tree.first, [](const TiffValue &value) { return value.tag == 33432; });
    tree.first.push_back(tiff_text(33432, std::string("photographer\0editor", 19)));
    const Written result = written_exif(exif_of_tree(tree));
    EXPECT_EQ(result.notices, Notices{"a text in the Exif data is cut at a zero byte, which a TIFF file cannot hold"});
    expect_values(result.tree.first, {tiff_text(33432, "photographer")});
    expect_values(result.tree.exif, full_tree.exif);
}

const Notices damaged_exif = {"the Exif data is damaged and left out"};

TEST(TiffMetadataOut, DamagedExifDataIsLeftOutAndNamed) {
    for (const std::string &damaged : {std::string("not Exif data at all"), std::string("II*\0\xff\xff\xff\x7f", 8),
                                       std::string("II*\0\0\0\0\0", 8), std::string(3000, '\xff'), std::string(3000, '\0')}) {
        const Written result = written_exif(damaged);
        EXPECT_EQ(result.notices, damaged_exif) << testing::PrintToString(damaged.substr(0, 20));
        EXPECT_TRUE(result.tree.exif.empty());
    }
}

TEST(TiffMetadataOut, ExifDataShorterThanItsHeaderIsNamed) {
    for (size_t size = 1; size < 8; ++size) {
        EXPECT_EQ(written_exif(exif_of_tree(full_tree).substr(0, size)).notices, damaged_exif) << size;
    }
}

// A value outside its block must not become one that points to anything in the file.
TEST(TiffMetadataOut, ExifValuesOutsideOfTheirBlockAreNamed) {
    for (const auto member : {&TiffTree::first, &TiffTree::exif, &TiffTree::gps, &TiffTree::interoperability}) {
        TiffTree tree = full_tree;
        (tree.*member).push_back({.tag = 60000, .type = 2, .bytes = "A text that is long enough", .offset = 5000});
        Picture picture = picture_of(6, 4, 3, false, mixed);
        picture.metadata = metadata_of({.exif = exif_of_tree(tree)});
        EXPECT_EQ(encoding_notices(picture, Format::tiff).size(), 1u);
        EXPECT_NO_THROW(tiff_tree(encoded(picture, Format::tiff)));
    }
}

// The directories come after their values, and the first of them at the end.
TEST(TiffMetadataOut, ExifDataThatIsCutIsLeftOutAndNamed) {
    for (const bool little : {false, true}) {
        const std::string exif = exif_of_tree(with_maker_note(note_of(60)), little);
        const size_t without_end = exif.size() - 4; // where a further directory would be
        for (size_t size = 8; size < without_end; ++size) {
            const Written result = written_exif(exif.substr(0, size));
            EXPECT_EQ(result.notices, damaged_exif) << size << " of " << exif.size();
            EXPECT_TRUE(result.tree.exif.empty() && result.tree.gps.empty());
        }
    }
}

TEST(TiffMetadataOut, WhateverIsWrongWithExifDataPixelsAreWritten) {
    const std::string exif = exif_of_tree(with_maker_note(note_of(60)));
    Picture picture = picture_of(6, 4, 3, false, mixed);
    for (size_t place = 0; place < exif.size(); ++place) {
        for (const char value : {'\0', '\1', '\x7f', '\xff'}) {
            std::string damaged = exif;
            damaged[place] = value;
            picture.metadata.exif = block(damaged);
            const std::string file = encoded(picture, Format::tiff);
            EXPECT_EQ(tiff_pixels(file).bytes, pixels_of(picture)) << place;
            EXPECT_EQ(pixels_of(decoded(file)), pixels_of(picture)) << place;
        }
    }
}

TEST(TiffMetadataOut, GrayAndTransparentPicturesCarryAllOfIt) {
    for (const uint32_t channels : {1u, 3u}) {
        for (const bool alpha : {false, true}) {
            Picture picture = picture_of(300, 500, channels, alpha, mixed);
            picture.metadata =
                metadata_of({.exif = exif_of_tree(with_maker_note(note_of(500), 1000)), .xmp = xmp, .iptc = iptc});
            for (const auto compression : {codec::TiffCompression::deflate, codec::TiffCompression::lzw,
                                           codec::TiffCompression::packbits, codec::TiffCompression::none}) {
                picture.tiff_compression = compression;
                const std::string file = encoded(picture, Format::tiff);
                expect_tree(tiff_tree(file), with_maker_note(note_of(500), 1000));
                EXPECT_EQ(tiff_tree(file).exif.at(maker_note_tag).at, 1000u);
                EXPECT_EQ(tiff_bytes(file, TIFFTAG_XMLPACKET), xmp);
                EXPECT_EQ(tiff_tree(file).first.at(33723).bytes, iptc);
                const Picture again = decoded(file);
                EXPECT_EQ(pixels_of(again), pixels_of(picture));
                EXPECT_EQ(alpha_of(again), alpha_of(picture));
            }
        }
    }
}

// ---- from format to format

TEST(TiffMetadataThrough, JpegAndPngKeepAllOfIt) {
    TiffTree tree = with_maker_note(note_of(500), 1000);
    TiffTree stored = tree;
    const TiffValues blocks = {tiff_bytes_of(700, 1, xmp), tiff_bytes_of(33723, 7, iptc), tiff_bytes_of(34377, 7, resources)};
    stored.first.insert(stored.first.end(), blocks.begin(), blocks.end());
    for (const TiffForm &form : forms) {
        const std::string file = tiff_of_tree(stored, {.form = form});
        for (const Format format : {Format::tiff, Format::jpeg, Format::png}) {
            const std::string there = through(file, format);
            const std::string back = through(there, Format::tiff);
            expect_tree(tiff_tree(back), tree);
            EXPECT_EQ(tiff_tree(back).exif.at(maker_note_tag).at, 1000u);
            EXPECT_EQ(tiff_bytes(back, TIFFTAG_XMLPACKET), xmp);
            EXPECT_EQ(tiff_tree(back).first.at(33723).bytes, iptc) << name_of(form) << codec::name(format);
        }
    }
}

TEST(TiffMetadataStreams, FailuresAreReported) {
    for (const TiffForm &form : forms) {
        TiffTree tree = with_maker_note(note_of(5000));
        tree.first.push_back(tiff_bytes_of(700, 1, std::string(5000, 'x')));
        tree.first.push_back(tiff_bytes_of(33723, 1, iptc));
        expect_input_failures(tiff_of_tree(tree, {.form = form}));
    }
    Picture picture = picture_of(30, 40, 3, true, mixed);
    picture.metadata = metadata_of(
        {.exif = exif_of_tree(with_maker_note(note_of(5000), 1000)), .xmp = xmp, .photoshop = resources, .iptc = iptc});
    expect_output_failures(picture, Format::tiff);
}

} // namespace
