// The file of a grid of curves, in its three forms.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <iterator>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "ko/tiletrc.h"

#include "allocator_lines.h"
#include "capture.h"
#include "curve_texts.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"
#include "reference_trccompress.h"

namespace {

using namespace ko_test;

using Entries = std::vector<uint32_t>;

class TileTrcFileTest : public LibraryTest {};

constexpr std::pair<uint64_t, uint64_t> counts_without_curves[] = {{0, 4}, {3, 0}, {0, 0}};

constexpr int32_t all_forms[] = {KO_TILETRC_TEXT, KO_TILETRC_BINARY, KO_TILETRC_ENCODED};

uint64_t entry_count(const TileTRC *tiles) { return tiles->size * tiles->numStripsX * tiles->numStripsY; }

Entries entries_of(const TileTRC *tiles) { return {tiles->array, tiles->array + entry_count(tiles)}; }

TileTRCPtr make_grid(uint64_t size, uint64_t strips_x, uint64_t strips_y, const Entries &entries) {
    TileTRCPtr tiles(KoTileTRCNew(size, strips_x, strips_y));
    std::copy_n(entries.begin(), entry_count(tiles.get()), tiles->array);
    return tiles;
}

// A grid of which every entry is value.
TileTRCPtr filled_grid(uint64_t size, uint64_t strips_x, uint64_t strips_y, uint32_t value) {
    return make_grid(size, strips_x, strips_y, Entries(size * strips_x * strips_y, value));
}

// A grid of rising curves as an enhancement makes them, each with a bend of its own.
TileTRCPtr rising_grid(uint64_t size, uint64_t strips_x, uint64_t strips_y) {
    TileTRCPtr tiles(KoTileTRCNew(size, strips_x, strips_y));
    for (uint64_t i = 0; i < entry_count(tiles.get()); ++i) {
        const double exponent = 1.0 / (1.0 + 0.05 * static_cast<double>(i / size % 8));
        const double level = std::pow(static_cast<double>(i % size) / static_cast<double>(size), exponent);
        tiles->array[i] = static_cast<uint32_t>(level * static_cast<double>(size));
    }
    return tiles;
}

std::string saved(const TileTRC *tiles, int32_t form) {
    const TemporaryFile file("grid.trc");
    expect_success([&] { return KoTileTRCSave(tiles, file.c_str(), form, 0); });
    return read_bytes(file.path());
}

void expect_grid(const TileTRC *tiles, uint64_t size, uint64_t strips_x, uint64_t strips_y, const Entries &entries) {
    EXPECT_EQ(tiles->size, size);
    EXPECT_EQ(tiles->numStripsX, strips_x);
    EXPECT_EQ(tiles->numStripsY, strips_y);
    EXPECT_EQ(entries_of(tiles), entries);
}

// ---- saving ----

TEST_F(TileTrcFileTest, TextHasOneEntryALineInGridOrder) {
    const TileTRCPtr tiles = make_grid(2, 2, 3, {0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110});
    EXPECT_EQ(saved(tiles.get(), KO_TILETRC_TEXT), "GrayLinear\nbits 1 2 3\n0\n10\n20\n30\n40\n50\n60\n70\n80\n90\n100\n110\n");
}

TEST_F(TileTrcFileTest, TextHasSigned32BitNumbers) {
    const TileTRCPtr tiles = make_grid(2, 2, 1, {2147483647u, 2147483648u, 4294967295u, 0});
    EXPECT_EQ(saved(tiles.get(), KO_TILETRC_TEXT), "GrayLinear\nbits 1 2 1\n2147483647\n-2147483648\n-1\n0\n");
}

TEST_F(TileTrcFileTest, EveryOtherFormIsText) {
    const TileTRCPtr tiles = make_grid(2, 1, 1, {3, 9});
    for (const int32_t form : {0, 1, 4, 7, -1, 258}) {
        EXPECT_EQ(saved(tiles.get(), form), "GrayLinear\nbits 1 1 1\n3\n9\n") << form;
    }
}

// A byte is the difference of the low bytes; every curve starts from 0 anew.
TEST_F(TileTrcFileTest, BinaryHasOneByteAnEntry) {
    const TileTRCPtr tiles = make_grid(4, 2, 1, {5, 7, 6, 206, 256, 300, 44, 0xFFFFFFFFu});
    EXPECT_EQ(saved(tiles.get(), KO_TILETRC_BINARY),
              std::string("GrayLinearBinary\nbits 2 2 1\n") + "\x05\x02\xFF\xC8" + std::string("\x00\x2C\x00\xD3", 4));
}

TEST_F(TileTrcFileTest, BinaryHas256BytesACurve) {
    const std::string header = "GrayLinearBinary\nbits 8 4 3\n";
    EXPECT_EQ(saved(rising_grid(256, 4, 3).get(), KO_TILETRC_BINARY).size(), header.size() + 256 * 12);
}

TEST_F(TileTrcFileTest, EncodedHasTheCurvesTokensOneBehindTheOther) {
    const TileTRCPtr tiles = make_grid(4, 2, 1, {1, 2, 3, 4, 5, 21, 22, 22});
    EXPECT_EQ(saved(tiles.get(), KO_TILETRC_ENCODED),
              std::string("GrayLinearEncoded\nbits 2 2 1\n") + "\x0E\x0F\x58" + std::string("\x00\x10\x18\x08", 4));
}

TEST_F(TileTrcFileTest, EncodedCurvesAreThoseOfThePlainEncoder) {
    for (const uint64_t size : {16u, 256u, 1024u}) {
        const TileTRCPtr tiles = rising_grid(size, 5, 3);
        std::string expected = "GrayLinearEncoded\nbits " + std::to_string(KoTileTRCGetBits(tiles.get())) + " 5 3\n";
        for (uint64_t tile = 0; tile < 15; ++tile) {
            expected += plain_encoded({tiles->array + tile * size, tiles->array + (tile + 1) * size});
        }
        EXPECT_EQ(saved(tiles.get(), KO_TILETRC_ENCODED), expected);
    }
}

TEST_F(TileTrcFileTest, TheBitsAreCutAndAllEntriesWritten) {
    const TileTRCPtr tiles = make_grid(3, 1, 2, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(saved(tiles.get(), KO_TILETRC_TEXT), "GrayLinear\nbits 1 1 2\n1\n2\n3\n4\n5\n6\n");
    EXPECT_EQ(saved(tiles.get(), KO_TILETRC_BINARY), "GrayLinearBinary\nbits 1 1 2\n\x01\x01\x01\x04\x01\x01");
    EXPECT_EQ(saved(tiles.get(), KO_TILETRC_ENCODED), "GrayLinearEncoded\nbits 1 1 2\n\x0A\x07\x48\x18\x18");
}

TEST_F(TileTrcFileTest, SaveWithoutTheFlagLeavesAFileAlone) {
    const TileTRCPtr tiles = make_grid(2, 1, 1, {3, 9});
    for (const int32_t form : all_forms) {
        const std::string expected = saved(tiles.get(), form);
        const TemporaryFile file("grid.trc", "precious");
        expect_error(KO_ERR_FILE_EXISTS, "File \"" + file.path() + "\" already exists",
                     [&] { return KoTileTRCSave(tiles.get(), file.c_str(), form, 0); });
        EXPECT_EQ(read_bytes(file.path()), "precious");
        for (const int32_t overwrite : {1, -1, 256}) {
            write_bytes(file.path(), "something that is longer than the file that takes its place");
            expect_success([&] { return KoTileTRCSave(tiles.get(), file.c_str(), form, overwrite); });
            EXPECT_EQ(read_bytes(file.path()), expected);
        }
    }
}

TEST_F(TileTrcFileTest, SaveThatCannotOpenWritesNoLine) {
    const TileTRCPtr tiles = make_grid(2, 1, 1, {3, 9});
    const std::string path = temporary_path("folder") + "/grid.trc";
    StderrCapture captured;
    for (const int32_t form : all_forms) {
        for (const int32_t overwrite : {0, 1}) {
            expect_error(KO_ERR_OPEN_WRITE, "Cannot open file \"" + path + "\" for writing",
                         [&] { return KoTileTRCSave(tiles.get(), path.c_str(), form, overwrite); });
        }
    }
    EXPECT_EQ(captured.stop(), "");
}

TEST_F(TileTrcFileTest, SaveRefusesAGridWithoutCurves) {
    const TileTRCPtr tiles(KoTileTRCNew(4, 2, 2));
    KoTileTRCFree(tiles.get());
    for (const int32_t form : all_forms) {
        const TemporaryFile file("grid.trc");
        expect_error(KO_ERR_NULL_POINTER, "Null pointer error",
                     [&] { return KoTileTRCSave(tiles.get(), file.c_str(), form, 1); });
    }
}

// Without strips there are no curves to miss.
TEST_F(TileTrcFileTest, AGridWithoutStripsIsAHeader) {
    for (const auto &[x, y] : counts_without_curves) {
        const TileTRCPtr tiles(KoTileTRCNew(256, x, y));
        const std::string bits = "\nbits 8 " + std::to_string(x) + " " + std::to_string(y) + "\n";
        EXPECT_EQ(saved(tiles.get(), KO_TILETRC_TEXT), "GrayLinear" + bits);
        EXPECT_EQ(saved(tiles.get(), KO_TILETRC_BINARY), "GrayLinearBinary" + bits);
        EXPECT_EQ(saved(tiles.get(), KO_TILETRC_ENCODED), "GrayLinearEncoded" + bits);
    }
}

#ifdef __linux__

// The result speaks for the opening alone; a failed write of curves leaves its report.
TEST_F(TileTrcFileTest, AFullDeviceIsReportedBesideTheResult) {
    const TileTRCPtr tiles = filled_grid(4096, 8, 8, 0);
    for (uint64_t i = 0; i < entry_count(tiles.get()); ++i) {
        tiles->array[i] = static_cast<uint32_t>(20 * (i % 4096)); // a byte or two an entry in either form
    }
    const std::string report = "[ERROR] Cannot write file \"/dev/full\"";
    for (const int32_t form : {KO_TILETRC_BINARY, KO_TILETRC_ENCODED}) {
        KoStatusClear();
        EXPECT_EQ(KoTileTRCSave(tiles.get(), "/dev/full", form, 1), KO_OK);
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_WRITE_FILE);
        EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()).substr(0, report.size()), report);
    }
    EXPECT_EQ(KoTileTRCSave(tiles.get(), "/dev/full", KO_TILETRC_TEXT, 1), KO_OK);
}

// A binary curve that cannot be written is given up, and the next one is tried.
TEST_F(TileTrcFileTest, AFullDeviceIsReportedOnceACurve) {
    const TileTRCPtr tiles = filled_grid(uint64_t{1} << 20, 3, 1, 7);
    EXPECT_EQ(KoTileTRCSave(tiles.get(), "/dev/full", KO_TILETRC_BINARY, 1), KO_OK);
    const std::string chain = KoErrorGetLastErrorMessage();
    const std::string report = "Cannot write file";
    size_t reports = 0;
    for (size_t at = chain.find(report); at != std::string::npos; at = chain.find(report, at + 1)) {
        ++reports;
    }
    EXPECT_EQ(reports, 3u);
}

#endif

// ---- round trips ----

void load(TileTRC *tiles, const std::string &bytes) {
    const TemporaryFile file("grid.trc", bytes);
    expect_success([&] { return KoTileTRCLoad(tiles, file.c_str()); });
}

// Loads bytes into a grid of other counts.
TileTRCPtr loaded(const std::string &bytes) {
    TileTRCPtr tiles = filled_grid(2, 1, 1, 777);
    load(tiles.get(), bytes);
    return tiles;
}

TEST_F(TileTrcFileTest, RisingCurvesComeBackFromEveryForm) {
    for (const uint64_t size : {1u, 2u, 16u, 256u, 1024u}) {
        TileTRCPtr tiles = rising_grid(size, 5, 3);
        if (size == 1) {
            std::fill_n(tiles->array, 15, 9u); // one small entry has no token
        }
        for (const int32_t form : all_forms) {
            const TileTRCPtr back = loaded(saved(tiles.get(), form));
            EXPECT_EQ(KoTileTRCCompare(tiles.get(), back.get()), 1) << size << " entries, form " << form;
        }
    }
}

TEST_F(TileTrcFileTest, AnyEntriesComeBackFromText) {
    const TileTRCPtr tiles = make_grid(64, 3, 2, noise_entries(64 * 6, 4294967295u, 1));
    const TileTRCPtr back = loaded(saved(tiles.get(), KO_TILETRC_TEXT));
    expect_grid(back.get(), 64, 3, 2, entries_of(tiles.get()));
}

// Steps from -128 to 127 come back, others as what they are modulo 256.
TEST_F(TileTrcFileTest, SmallStepsComeBackFromBinary) {
    Noise noise(3);
    TileTRCPtr tiles(KoTileTRCNew(1024, 2, 2));
    uint32_t entry = 0;
    for (uint64_t i = 0; i < 4096; ++i) {
        entry = (i % 1024 == 0 ? 0 : entry) + static_cast<uint32_t>(static_cast<int32_t>(noise.next() % 256) - 128);
        tiles->array[i] = entry;
    }
    const TileTRCPtr back = loaded(saved(tiles.get(), KO_TILETRC_BINARY));
    expect_grid(back.get(), 1024, 2, 2, entries_of(tiles.get()));
}

TEST_F(TileTrcFileTest, LargeStepsComeBackWrongFromBinary) {
    const TileTRCPtr tiles = make_grid(4, 2, 1, {0, 200, 200, 400, 128, 0, 255, 511});
    const TileTRCPtr back = loaded(saved(tiles.get(), KO_TILETRC_BINARY));
    const auto number = [](int32_t value) { return static_cast<uint32_t>(value); };
    expect_grid(back.get(), 4, 2, 1,
                {0, number(-56), number(-56), number(-112), number(-128), number(-256), number(-257), number(-257)});
}

// A curve that was written one entry short takes its last one from the next curve.
TEST_F(TileTrcFileTest, AShortCurveComesBackWrongFromEncoded) {
    const TileTRCPtr tiles = make_grid(4, 2, 1, {0, 0, 5, 6, 7, 14, 21, 28});
    const TemporaryFile file("grid.trc", saved(tiles.get(), KO_TILETRC_ENCODED));
    const TileTRCPtr back = filled_grid(2, 1, 1, 777);
    expect_error(KO_ERR_READ_FILE, "Cannot read file \"" + file.path() + "\"",
                 [&] { return KoTileTRCLoad(back.get(), file.c_str()); });
    expect_grid(back.get(), 4, 2, 1, {0, 0, 5, 12, 7, 14, 21, 0});
}

TEST_F(TileTrcFileTest, AGridWithoutStripsComesBack) {
    for (const auto &[x, y] : counts_without_curves) {
        const TileTRCPtr tiles(KoTileTRCNew(256, x, y));
        for (const int32_t form : all_forms) {
            const TileTRCPtr back = loaded(saved(tiles.get(), form));
            EXPECT_EQ(back->array, nullptr);
            EXPECT_EQ(KoTileTRCCompare(tiles.get(), back.get()), 1);
        }
    }
}

// ---- loading ----

struct FileOfForm {
    const char *name;
    std::string bytes;
    Entries entries; // of two curves of two entries
};

class TileTrcForms : public TileTrcFileTest, public testing::WithParamInterface<FileOfForm> {};

TEST_P(TileTrcForms, AreReadInGridOrder) {
    const TileTRCPtr tiles = loaded(GetParam().bytes);
    expect_grid(tiles.get(), 2, 2, 1, GetParam().entries);
}

// The same counts overwrite the entries where they are.
TEST_P(TileTrcForms, KeepAnArrayThatFits) {
    const TileTRCPtr tiles = filled_grid(2, 2, 1, 777);
    const uint32_t *array = tiles->array;
    load(tiles.get(), GetParam().bytes);
    EXPECT_EQ(tiles->array, array);
    EXPECT_EQ(entries_of(tiles.get()), GetParam().entries);
}

TEST_P(TileTrcForms, ReplaceAGridOfOtherCounts) {
    for (const auto &[size, x, y] : std::vector<std::tuple<uint64_t, uint64_t, uint64_t>>{
             {4, 1, 1}, {1, 2, 2}, {2, 1, 2}, {2, 2, 2}, {256, 8, 8}, {2, 0, 1}}) {
        const TileTRCPtr tiles(KoTileTRCNew(size, x, y));
        load(tiles.get(), GetParam().bytes);
        expect_grid(tiles.get(), 2, 2, 1, GetParam().entries);
    }
}

TEST_P(TileTrcForms, FillAGridWithoutCurves) {
    const TileTRCPtr tiles(KoTileTRCNew(2, 2, 1));
    KoTileTRCFree(tiles.get());
    load(tiles.get(), GetParam().bytes);
    ASSERT_NE(tiles->array, nullptr);
    EXPECT_EQ(entries_of(tiles.get()), GetParam().entries);
}

INSTANTIATE_TEST_SUITE_P(
    ByHand, TileTrcForms,
    testing::Values(
        FileOfForm{"Text", "GrayLinear\nbits 1 2 1\n5\n60000\n7\n8\n", {5, 60000, 7, 8}},
        FileOfForm{"TextOddities", "GrayLinear\nbits 33 2 1 more\n 5 words\n-1\n+7\n008\nnot read", {5, 4294967295u, 7, 8}},
        // only the beginning of line 1 is compared, the longest word first
        FileOfForm{"TextLongerWord", "GrayLinearBinar\nbits 1 2 1\n5\n6\n7\n8\n", {5, 6, 7, 8}},
        FileOfForm{"TextAlmostEncoded", "GrayLinearEncode\nbits 1 2 1\n5\n6\n7\n8\n", {5, 6, 7, 8}},
        FileOfForm{"TextCarriageReturns", "GrayLinear\r\nbits 1 2 1\r\n5\r\n6\r\n7\r\n8\r\n", {5, 6, 7, 8}},
        FileOfForm{
            "Binary", std::string("GrayLinearBinary\nbits 1 2 1\n") + "\x7F\x80\xFF\x0A", {127, 4294967295u, 4294967295u, 9}},
        FileOfForm{"BinaryLongerWord", "GrayLinearBinaryX\nbits 1 2 1\n\x01\x01\x01\x0A more", {1, 2, 1, 11}},
        FileOfForm{"Encoded", std::string("GrayLinearEncoded\nbits 1 2 1\n") + "\x58\xF0\xFF\x83" + "more", {5, 4100, 2, 4}},
        FileOfForm{
            "EncodedLongerWord", std::string("GrayLinearEncodedBinary\nbits 1 2 1\n") + "\x58\x58\x08\x0A\x05", {5, 10, 0, 1}}),
    [](const auto &each) { return std::string(each.param.name); });

TEST_F(TileTrcFileTest, LoadTakesTheBitsModulo32) {
    expect_grid(loaded("GrayLinear\nbits 32 1 2\n7\n8\n").get(), 1, 1, 2, {7, 8});
    expect_grid(loaded("GrayLinear\nbits 34 1 1\n1\n2\n3\n4\n").get(), 4, 1, 1, {1, 2, 3, 4});
}

// Tokens may go past their curve, and by more than the rest of the grid; each curve begins behind the last one's token.
TEST_F(TileTrcFileTest, TokensThatGoPastACurveStayInsideTheGrid) {
    const std::string wide = "\xFE" + std::string(8, '\xFF'); // 64 steps of 1
    const std::string run = "\xBF";                           // 32 steps of 2
    const TileTRCPtr ones = loaded("GrayLinearEncoded\nbits 1 3 2\n" + wide + run + wide + run + wide + wide);
    expect_grid(ones.get(), 2, 3, 2, {1, 2, 2, 4, 1, 2, 2, 4, 1, 2, 1, 2});
    const TileTRCPtr single = loaded("GrayLinearEncoded\nbits 0 1 1\n" + wide);
    expect_grid(single.get(), 1, 1, 1, {1});
    const TileTRCPtr many = loaded("GrayLinearEncoded\nbits 0 50 2\n" + std::string(100, '\x7F'));
    expect_grid(many.get(), 1, 50, 2, Entries(100, 1));
}

// What a token holds for the entries behind its curve is there when the file ends with it.
TEST_F(TileTrcFileTest, ATokenThatGoesPastItsCurveIsStoredInFull) {
    const TemporaryFile file("grid.trc", "GrayLinearEncoded\nbits 2 3 1\n\x4B"); // 6 steps of 1
    const TileTRCPtr tiles = filled_grid(4, 3, 1, 777);
    EXPECT_EQ(KoTileTRCLoad(tiles.get(), file.c_str()), KO_ERR_READ_FILE);
    expect_grid(tiles.get(), 4, 3, 1, {1, 2, 3, 4, 5, 6, 777, 777, 777, 777, 777, 777});
}

// Any bytes are tokens.
TEST_F(TileTrcFileTest, LoadOfNoiseIsAPlainReading) {
    for (uint32_t seed = 1; seed <= 300 && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const uint64_t bits = seed % 8;
        const uint64_t size = uint64_t{1} << bits;
        const std::vector<uint8_t> noise = noise_bytes(20 + seed * 4, seed);
        const std::string payload(noise.begin(), noise.end());
        const TemporaryFile file("grid.trc", "GrayLinearEncoded\nbits " + std::to_string(bits) + " 3 2\n" + payload);
        Entries expected;
        size_t at = 0;
        bool complete = true;
        for (int tile = 0; tile < 6 && complete; ++tile) {
            PlainDecoding curve = plain_decoded(payload, size, at);
            curve.entries.resize(std::min<size_t>(curve.entries.size(), size));
            expected.insert(expected.end(), curve.entries.begin(), curve.entries.end());
            at = curve.used;
            complete = curve.complete;
        }
        const TileTRCPtr tiles = filled_grid(2, 1, 1, 777);
        StderrCapture captured;
        KoStatusClear();
        EXPECT_EQ(KoTileTRCLoad(tiles.get(), file.c_str()), complete ? KO_OK : KO_ERR_READ_FILE);
        expect_status(complete ? KO_OK : KO_ERR_READ_FILE, complete ? "" : "[ERROR] Cannot read file \"" + file.path() + "\"");
        EXPECT_EQ(captured.stop(), "");
        ASSERT_EQ(entry_count(tiles.get()), size * 6);
        Entries read = entries_of(tiles.get());
        read.resize(expected.size()); // what lies behind may have been touched by a token that went past its curve
        EXPECT_EQ(read, expected);
    }
}

// Loading the file fails in a line, and tells so on the standard error stream.
void expect_bad_line(TileTRC *tiles, const TemporaryFile &file, int line, const std::string &told) {
    const std::string place = "\"" + file.path() + "\", line " + std::to_string(line);
    StderrCapture captured;
    expect_error(KO_ERR_READ_LINE, "Read error in file " + place, [&] { return KoTileTRCLoad(tiles, file.c_str()); });
    EXPECT_EQ(captured.stop(), "[ERROR] " + place + ": " + told + "\n");
}

// Loading the file fails behind its lines, of which nothing is told on the standard error stream.
void expect_bad_curves(TileTRC *tiles, const TemporaryFile &file) {
    StderrCapture captured;
    expect_error(KO_ERR_READ_FILE, "Cannot read file \"" + file.path() + "\"",
                 [&] { return KoTileTRCLoad(tiles, file.c_str()); });
    EXPECT_EQ(captured.stop(), "");
}

std::string bad_word(const std::string &line) {
    return "\"" + line + "\n\": Invalid value, must be GrayLinear or GrayLinearEncoded";
}

std::string bad_counts(const std::string &line) {
    return "\"" + line + "\n\": Invalid value, must be bits <bit per pixel> <num strips X> <num strips Y>";
}

struct BadFile {
    const char *name;
    std::string bytes;
    int line;         // 0 for a failure without one
    std::string told; // behind the place, on the standard error stream
    Entries kept;     // of a grid of two curves of two entries, 77 each
};

const Entries untouched(4, 77);

class TileTrcBadFiles : public TileTrcFileTest, public testing::WithParamInterface<BadFile> {};

TEST_P(TileTrcBadFiles, AreToldAndKeepWhatWasRead) {
    const BadFile &bad = GetParam();
    const TemporaryFile file("grid.trc", bad.bytes);
    const TileTRCPtr tiles = filled_grid(2, 2, 1, 77);
    if (bad.line == 0) {
        expect_bad_curves(tiles.get(), file);
    } else {
        expect_bad_line(tiles.get(), file, bad.line, bad.told);
    }
    EXPECT_EQ(entries_of(tiles.get()), bad.kept);
}

INSTANTIATE_TEST_SUITE_P(
    ByHand, TileTrcBadFiles,
    testing::Values(
        BadFile{"Empty", "", 1, "can't read file", untouched},
        BadFile{"Word", "GrayLinea\nbits 1 2 1\n", 1, bad_word("GrayLinea"), untouched},
        BadFile{"OtherWord", "RGBLinear\nbits 1 2 1\n", 1, bad_word("RGBLinear"), untouched},
        BadFile{"NoBits", "GrayLinear\n", 2, "can't read file", untouched},
        BadFile{"NoStrips", "GrayLinear\nbits 1\n", 2, bad_counts("bits 1"), untouched},
        BadFile{"OneStripCount", "GrayLinearBinary\nbits 1 2\n", 2, bad_counts("bits 1 2"), untouched},
        BadFile{"BadStrips", "GrayLinearEncoded\nbits 1 2 x\n", 2, bad_counts("bits 1 2 x"), untouched},
        BadFile{"TextMissing", "GrayLinear\nbits 1 2 1\n", 3, "can't read file", untouched},
        BadFile{"TextShort", "GrayLinear\nbits 1 2 1\n5\n6\n7\n", 6, "can't read file", {5, 6, 7, 77}},
        BadFile{"TextBad", "GrayLinear\nbits 1 2 1\n5\n6\nseven\n8\n", 5, "\"seven\n\": Invalid value, <GRAY>", {5, 6, 77, 77}},
        BadFile{"TextBlank", "GrayLinear\nbits 1 2 1\n5\n\n7\n8\n", 4, "\"\n\": Invalid value, <GRAY>", {5, 77, 77, 77}},
        BadFile{"BinaryMissing", "GrayLinearBinary\nbits 1 2 1\n", 0, "", untouched},
        BadFile{"BinaryShort", "GrayLinearBinary\nbits 1 2 1\n\x05\x06\x07", 0, "", {5, 11, 7, 77}},
        BadFile{"EncodedMissing", "GrayLinearEncoded\nbits 1 2 1\n", 0, "", untouched},
        BadFile{"EncodedShort", "GrayLinearEncoded\nbits 1 2 1\n\x58\x68\x78", 0, "", {5, 11, 7, 77}},
        BadFile{"EncodedCutToken", "GrayLinearEncoded\nbits 1 2 1\n\x58\x10", 0, "", {5, 77, 77, 77}},
        BadFile{"NewCounts", "GrayLinear\nbits 2 1 1\n5\n6\n", 5, "can't read file", {5, 6, 0, 0}}),
    [](const auto &each) { return std::string(each.param.name); });

TEST_F(TileTrcFileTest, ATextOf4By3CurvesNeeds3072Lines) {
    std::string text = "GrayLinear\nbits 8 4 3\n";
    for (int i = 0; i < 3071; ++i) {
        text += std::to_string(i % 1000) + "\n";
    }
    const TemporaryFile file("grid.trc", text);
    const TileTRCPtr tiles = filled_grid(256, 4, 3, 77);
    expect_bad_line(tiles.get(), file, 3074, "can't read file");
    EXPECT_EQ(tiles->array[3070], 70u);
    EXPECT_EQ(tiles->array[3071], 77u);
    write_bytes(file.path(), text + "5\n");
    expect_success([&] { return KoTileTRCLoad(tiles.get(), file.c_str()); });
    EXPECT_EQ(tiles->array[3071], 5u);
}

TEST_F(TileTrcFileTest, LoadOfAMissingFileWritesNoLine) {
    const TileTRCPtr tiles = make_grid(2, 1, 1, {3, 9});
    const std::string path = temporary_path("missing.trc");
    StderrCapture captured;
    expect_error(KO_ERR_OPEN_READ, "Cannot open file \"" + path + "\" for reading",
                 [&] { return KoTileTRCLoad(tiles.get(), path.c_str()); });
    EXPECT_EQ(captured.stop(), "");
    expect_grid(tiles.get(), 2, 1, 1, {3, 9});
}

TEST_F(TileTrcFileTest, LoadThatAsksForTooMuchLeavesTheGrid) {
    for (const char *word : {"GrayLinear", "GrayLinearBinary", "GrayLinearEncoded"}) {
        for (const char *bits : {"bits 29 1 1", "bits 16 128 64", "bits 8 8 262144", "bits 0 1 536870912"}) {
            const TemporaryFile file("grid.trc", std::string(word) + "\n" + bits + "\n");
            const TileTRCPtr tiles = make_grid(2, 1, 1, {3, 9});
            const uint32_t *array = tiles->array;
            KoStatusClear();
            StderrCapture captured;
            EXPECT_EQ(KoTileTRCLoad(tiles.get(), file.c_str()), KO_ERR_ALLOC) << bits;
            EXPECT_EQ(own_lines(captured.stop()), allocator_line(-2147483648LL));
            expect_status(KO_ERR_ALLOC, allocator_text(-2147483648LL));
            EXPECT_EQ(tiles->array, array);
            expect_grid(tiles.get(), 2, 1, 1, {3, 9});
        }
    }
}

} // namespace
