// The token stream of curves: life, the bytes of each token, planning, reading, and streams that fail.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko/memory.h"
#include "ko/trccompress.h"

#include "capture.h"
#include "curve_texts.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"
#include "reference_trccompress.h"

namespace {

using namespace ko_test;

using Entries = std::vector<uint32_t>;

constexpr size_t overrun = 63; // entries that the last token may go past the curve
constexpr uint32_t untouched = 777777;

class TrcCompressTest : public LibraryTest {};

std::string bytes_of(const std::vector<int> &values) {
    std::string bytes;
    for (const int value : values) {
        bytes += static_cast<char>(value);
    }
    return bytes;
}

std::string in_hex(const std::string &bytes) {
    std::string text;
    for (const char byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02X ", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        text += digits;
    }
    return text;
}

// The curve of these steps, the first of them from 0.
Entries curve_of(const std::vector<int> &steps) {
    Entries entries;
    uint32_t entry = 0;
    for (const int step : steps) {
        entry += static_cast<uint32_t>(step);
        entries.push_back(entry);
    }
    return entries;
}

// A binary file that is open for reading and writing.
class Stream {
  public:
    explicit Stream(const std::string &bytes = "") : file_("stream.bin", bytes), stream_(std::fopen(path(), "r+b")) {}
    ~Stream() { std::fclose(stream_); }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    std::FILE *get() const { return stream_; }
    const char *path() const { return file_.c_str(); }
    long place() const { return std::ftell(stream_); }
    void seek(long place) const { std::fseek(stream_, place, SEEK_SET); }
    std::string bytes() const {
        std::fflush(stream_);
        return read_bytes(file_.path());
    }

  private:
    TemporaryFile file_;
    std::FILE *stream_;
};

std::string encoded(Entries entries) {
    const TRCCompressPtr compress(KoTRCCompressNew(entries.size()));
    const Stream stream;
    KoTRCCompressSetTRC(compress.get(), entries.data());
    expect_success([&] { return KoTRCCompressSave(compress.get(), stream.get(), stream.path()); });
    return stream.bytes();
}

// Reads the next curve of the stream and compares all that it gives with a plain reading of bytes, which the stream holds.
void expect_plain_load(TRCCompress *compress, const Stream &stream, const std::string &bytes, long from) {
    const PlainDecoding expected = plain_decoded(bytes, compress->size, static_cast<size_t>(from));
    Entries read(compress->size + overrun, untouched);
    KoTRCCompressSetTRC(compress, read.data());
    const auto load = [&] { return KoTRCCompressLoad(compress, stream.get(), stream.path()); };
    if (expected.complete) {
        expect_success(load);
        EXPECT_EQ(static_cast<size_t>(stream.place()), expected.used);
    } else {
        expect_error(KO_ERR_READ_FILE, "Cannot read file \"" + std::string(stream.path()) + "\"", load);
    }
    ASSERT_LE(expected.entries.size(), read.size());
    const bool rest = std::all_of(read.begin() + static_cast<std::ptrdiff_t>(expected.entries.size()), read.end(),
                                  [](uint32_t entry) { return entry == untouched; });
    EXPECT_TRUE(rest) << "entries behind the last token were written";
    read.resize(expected.entries.size());
    EXPECT_EQ(read, expected.entries);
}

void expect_plain_load(uint64_t size, const std::string &bytes) {
    const TRCCompressPtr compress(KoTRCCompressNew(size));
    const Stream stream(bytes);
    expect_plain_load(compress.get(), stream, bytes, 0);
}

// ---- life ----

TEST_F(TrcCompressTest, InitStoresTheSizeAndHasNoCurveAndNoTables) {
    TRCCompress compress;
    std::memset(&compress, 0x5A, sizeof compress);
    expect_success([&] { return KoTRCCompressInit(&compress, 300); });
    EXPECT_EQ(compress.size, 300u);
    EXPECT_EQ(compress.array, nullptr);
    EXPECT_EQ(compress.workspace, nullptr);
    EXPECT_EQ(compress.rleRuns, nullptr);
    EXPECT_EQ(compress.oneBitRuns, nullptr);
    EXPECT_EQ(compress.twoBitRuns, nullptr);
    EXPECT_EQ(compress.forwardPlan, nullptr);
    EXPECT_EQ(compress.backwardPlan, nullptr);
}

TEST_F(TrcCompressTest, NewHasNoCurveAndNoWorkspace) {
    const TRCCompressPtr compress(KoTRCCompressNew(256));
    ASSERT_NE(compress, nullptr);
    EXPECT_EQ(compress->size, 256u);
    EXPECT_EQ(compress->array, nullptr);
    EXPECT_EQ(compress->workspace, nullptr);
    expect_status(KO_OK, "");
}

TEST_F(TrcCompressTest, SetTrcStoresThePointer) {
    const TRCCompressPtr compress(KoTRCCompressNew(3));
    Entries entries{1, 2, 3};
    expect_success([&] { return KoTRCCompressSetTRC(compress.get(), entries.data()); });
    EXPECT_EQ(compress->array, entries.data());
    EXPECT_EQ(compress->workspace, nullptr);
}

TEST_F(TrcCompressTest, DeleteAcceptsNull) {
    expect_success([] { return KoTRCCompressDelete(nullptr); });
    expect_success([] { return KoTRCCompressDelete(KoTRCCompressNew(5)); });
}

// The workspace comes with the first save and stays for the following ones.
TEST_F(TrcCompressTest, OneWorkspaceServesAllSaves) {
    const TRCCompressPtr compress(KoTRCCompressNew(100));
    const Stream stream;
    void *workspace = nullptr;
    for (uint32_t seed = 1; seed <= 5; ++seed) {
        Entries entries = noise_entries(100, 2, seed);
        std::partial_sum(entries.begin(), entries.end(), entries.begin());
        KoTRCCompressSetTRC(compress.get(), entries.data());
        expect_success([&] { return KoTRCCompressSave(compress.get(), stream.get(), stream.path()); });
        ASSERT_NE(compress->workspace, nullptr);
        EXPECT_TRUE(workspace == nullptr || workspace == compress->workspace);
        workspace = compress->workspace;
    }
}

TEST_F(TrcCompressTest, ALoadOfNoEntriesLeavesTheStreamAlone) {
    const TRCCompressPtr compress(KoTRCCompressNew(0));
    expect_success([&] { return KoTRCCompressLoad(compress.get(), nullptr, "nowhere"); });
}

TEST_F(TrcCompressTest, LoadNeedsNoWorkspace) {
    const TRCCompressPtr compress(KoTRCCompressNew(256));
    const Stream stream(bytes_of({0x48}) + std::string(255, '\x18'));
    Entries entries(256 + overrun);
    KoTRCCompressSetTRC(compress.get(), entries.data());
    expect_success([&] { return KoTRCCompressLoad(compress.get(), stream.get(), stream.path()); });
    EXPECT_EQ(compress->workspace, nullptr);
}

TEST_F(TrcCompressTest, FreeDoesNothing) {
    TRCCompress compress;
    KoTRCCompressInit(&compress, 5);
    Entries entries{1, 2, 3, 4, 5};
    KoTRCCompressSetTRC(&compress, entries.data());
    const Stream stream;
    KoTRCCompressSave(&compress, stream.get(), stream.path());
    void *workspace = compress.workspace;
    expect_success([&] { return KoTRCCompressFree(&compress); });
    EXPECT_EQ(compress.workspace, workspace);
    EXPECT_EQ(compress.array, entries.data());
    expect_success([&] { return KoTRCCompressSave(&compress, stream.get(), stream.path()); });
    EXPECT_EQ(in_hex(stream.bytes()), "12 1F 12 1F ");
    KoFree(workspace);
}

TEST_F(TrcCompressTest, WithoutACurveNothingIsReadOrWritten) {
    const TRCCompressPtr compress(KoTRCCompressNew(5));
    const Stream stream(bytes_of({0x09}));
    expect_error(KO_ERR_NULL_POINTER, "Null pointer error",
                 [&] { return KoTRCCompressSave(compress.get(), stream.get(), stream.path()); });
    expect_error(KO_ERR_NULL_POINTER, "Null pointer error",
                 [&] { return KoTRCCompressLoad(compress.get(), stream.get(), stream.path()); });
    EXPECT_EQ(in_hex(stream.bytes()), "09 ");
}

TEST_F(TrcCompressTest, ASizeOf0WritesAndReadsNothing) {
    const TRCCompressPtr compress(KoTRCCompressNew(0));
    const Stream stream;
    Entries entries(overrun, untouched);
    KoTRCCompressSetTRC(compress.get(), entries.data());
    expect_success([&] { return KoTRCCompressSave(compress.get(), stream.get(), stream.path()); });
    EXPECT_EQ(stream.bytes(), "");
    expect_success([&] { return KoTRCCompressLoad(compress.get(), stream.get(), stream.path()); });
    EXPECT_EQ(entries, Entries(overrun, untouched));
}

// Five tables of 16 bytes an element, which no product of 32 or of 64 bits makes small.
TEST_F(TrcCompressTest, AWorkspaceThatCannotBeHadEndsTheSave) {
    for (const uint64_t size : {uint64_t{26843545}, uint64_t{1} << 28, uint64_t{1} << 60}) {
        const TRCCompressPtr compress(KoTRCCompressNew(size));
        const Stream stream;
        uint32_t entry = 7;
        KoTRCCompressSetTRC(compress.get(), &entry);
        KoStatusClear();
        const StderrCapture swallowed;
        EXPECT_EQ(KoTRCCompressSave(compress.get(), stream.get(), stream.path()), KO_ERR_ALLOC) << size;
        EXPECT_EQ(KoErrorGetLastError(), KO_ERR_ALLOC);
        EXPECT_EQ(compress->workspace, nullptr);
        EXPECT_EQ(stream.bytes(), "");
    }
}

// ---- tokens and plans by hand ----

struct SavedCurve {
    const char *name;
    std::vector<int> steps;
    const char *tokens;
};

class SavedCurves : public TrcCompressTest, public testing::WithParamInterface<SavedCurve> {};

TEST_P(SavedCurves, GiveTheseTokens) { EXPECT_EQ(in_hex(encoded(curve_of(GetParam().steps))), GetParam().tokens); }

INSTANTIATE_TEST_SUITE_P(
    ByHand, SavedCurves,
    testing::Values(
        // too short a run for a token of its own: two bytes either way
        SavedCurve{"TwoEntriesAreLiterals", {1, 1}, "18 18 "}, SavedCurve{"TwoLevelEntriesAreLiterals", {0, 0}, "08 08 "},
        SavedCurve{"ThreeEntriesAreAToken", {1, 0, 1}, "0A 05 "}, SavedCurve{"ThreeLargerSteps", {3, 2, 1}, "14 1B "},
        SavedCurve{"OneBitWinsATie", {1, 1, 1, 1}, "0E 0F "}, //
        SavedCurve{"EightEntriesFillTheByte", {1, 1, 1, 1, 1, 1, 1, 1}, "1E FF "},
        SavedCurve{"NineEntriesSpareSevenBits", {1, 1, 1, 1, 1, 1, 1, 1, 1}, "22 FF 01 "},
        SavedCurve{"FourLargerStepsFillTheByte", {0, 1, 2, 3}, "1C E4 "},
        SavedCurve{"FiveLargerStepsSpareSixBits", {3, 2, 1, 3, 2}, "24 DB 02 "},
        // a step of 3 goes on with a run of two bits and ends one of one bit
        SavedCurve{"AStepOf3", {1, 1, 1, 3, 3, 3}, "2C D5 0F "},
        SavedCurve{"AStepOf3Alone", {1, 1, 1, 1, 1, 1, 1, 1, 3}, "1E FF 38 "},
        SavedCurve{"AStepOf2Alone", {0, 0, 0, 0, 0, 0, 0, 0, 2}, "1E 00 28 "}, SavedCurve{"AStepOf4IsShort", {1, 4}, "18 48 "},
        SavedCurve{"AStepOf15IsShort", {1, 15}, "18 F8 "}, SavedCurve{"AStepOf16IsLong", {1, 16}, "18 00 10 "},
        SavedCurve{"AStepOf255IsLong", {1, 255}, "18 00 FF "}, SavedCurve{"AStepOf256IsLong", {1, 256}, "18 10 00 "},
        SavedCurve{"AStepOf4095IsLong", {1, 4095}, "18 F0 FF "},
        // what does not fit is lost without notice
        SavedCurve{"AStepOf4096LosesIt", {1, 4096}, "18 00 00 "},
        SavedCurve{"AStepOf70000LosesBits", {1, 70000}, "18 10 70 "}, // 70000 is 0x11170
        SavedCurve{"AFallingStepLosesBits", {8, -1}, "88 F0 FF "}, SavedCurve{"AFallBy256", {1000, -256}, "30 E8 F0 00 "},
        // segments end with the literal, which the next run does not reach over
        SavedCurve{"ACutEndsARun", {1, 1, 1, 9, 1, 1, 1}, "0A 07 98 0A 07 "},
        SavedCurve{"CutsInARow", {5, 6, 17, 7}, "58 68 00 11 78 "}, SavedCurve{"OneLargeEntry", {4}, "48 "},
        // forward 1-bit token of 4 and literals: 4 bytes; backward one token of 6: 3 bytes
        SavedCurve{"TheBackwardPlanIsShorter", {1, 1, 1, 1, 2, 2}, "2C 55 0A "},
        // forward 1-bit token of 4 and a literal, backward one 2-bit token of 5: 3 bytes both
        SavedCurve{"TheForwardPlanWinsATie", {1, 1, 1, 1, 2}, "0E 0F 28 "},
        SavedCurve{"TheForwardPlanWinsATieOfLiterals", {2, 1, 1, 1, 1, 1}, "2C 56 05 "},
        // a segment of one entry at the end is not written, one of two is
        SavedCurve{"TheLastEntryIsLost", {0, 5, 1}, "08 58 "},
        SavedCurve{"TheLastEntryIsLostWithoutAStep", {2, 700, 0}, "28 20 BC "},
        SavedCurve{"TheLastEntryIsLostBehindAFall", {9, -1, 3}, "98 F0 FF "},
        SavedCurve{"NothingIsLostWithACutAtTheEnd", {0, 5, 5}, "08 58 58 "},
        SavedCurve{"NothingIsLostOfTwoEntries", {0, 5, 1, 1}, "08 58 18 18 "}, SavedCurve{"ACurveOfOneEntry", {3}, ""},
        SavedCurve{"ACurveOfOneEntryAt0", {0}, ""}),
    [](const auto &each) { return std::string(each.param.name); });

std::string repeated(const std::string &text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

// 36 bytes: four tokens of 64 entries, a token byte and eight bytes each.
TEST_F(TrcCompressTest, TheIdentityTakes36Bytes) {
    Entries identity(256);
    std::iota(identity.begin(), identity.end(), 0u);
    const std::string bytes = encoded(identity);
    EXPECT_EQ(bytes.size(), 36u);
    const std::string full = "FE " + repeated("FF ", 8);
    EXPECT_EQ(in_hex(bytes), "FE FE " + repeated("FF ", 7) + repeated(full, 3));
    expect_plain_load(256, bytes);
    EXPECT_EQ(plain_decoded(bytes, 256).entries, identity);
}

// A single run of one step, and yet never a token of that kind.
TEST_F(TrcCompressTest, FlatAndEvenCurvesAreNoRunsOfOneStep) {
    EXPECT_EQ(in_hex(encoded(Entries(256, 0))), repeated("FE " + repeated("00 ", 8), 4));
    for (const int step : {2, 3}) {
        const std::string filled = step == 2 ? "AA " : "FF ";
        EXPECT_EQ(in_hex(encoded(curve_of(std::vector<int>(64, step)))), repeated("FC " + repeated(filled, 8), 2));
    }
}

// Equal byte counts: 64 entries first and two literals behind them, not the other way about.
TEST_F(TrcCompressTest, TheForwardPlanCutsTokensFromTheFront) {
    EXPECT_EQ(in_hex(encoded(curve_of(std::vector<int>(66, 1)))), "FE " + repeated("FF ", 8) + "18 18 ");
    EXPECT_EQ(in_hex(encoded(curve_of(std::vector<int>(34, 3)))), "FC " + repeated("FF ", 8) + "38 38 ");
}

TEST_F(TrcCompressTest, StepsAreTakenModulo2To32) {
    EXPECT_EQ(in_hex(encoded({4294967295u, 0, 1})), "F0 FF 18 18 "); // a step of 1 from the last number to 0
    EXPECT_EQ(in_hex(encoded({2147483648u, 2147483650u, 2147483651u})), "00 00 28 18 ");
}

// What one curve leaves out is taken from the next.
TEST_F(TrcCompressTest, AReaderTakesALostEntryFromTheFollowingCurve) {
    const TRCCompressPtr compress(KoTRCCompressNew(3));
    const Stream stream;
    Entries short_one{0, 5, 6};
    Entries next{7, 14, 21};
    for (Entries *entries : {&short_one, &next}) {
        KoTRCCompressSetTRC(compress.get(), entries->data());
        expect_success([&] { return KoTRCCompressSave(compress.get(), stream.get(), stream.path()); });
    }
    stream.seek(0);
    Entries read(3 + overrun);
    KoTRCCompressSetTRC(compress.get(), read.data());
    expect_success([&] { return KoTRCCompressLoad(compress.get(), stream.get(), stream.path()); });
    read.resize(3);
    EXPECT_EQ(read, (Entries{0, 5, 12}));
    EXPECT_EQ(stream.place(), 3);
}

// ---- the run tables ----

std::vector<std::pair<uint64_t, uint64_t>> pairs(const PlainRun *runs, size_t size) {
    std::vector<std::pair<uint64_t, uint64_t>> list;
    std::for_each(runs, runs + size, [&](const PlainRun &run) { list.emplace_back(run.start, run.length); });
    return list;
}

void expect_runs(const TRCCompressRun *table, const std::vector<PlainRun> &expected) {
    EXPECT_EQ(table[-1].start, 0u);
    EXPECT_EQ(table[-1].length, 0u);
    std::vector<PlainRun> runs;
    std::for_each(table, table + expected.size(), [&](const TRCCompressRun &run) { runs.push_back({run.start, run.length}); });
    EXPECT_EQ(pairs(runs.data(), runs.size()), pairs(expected.data(), expected.size()));
}

// The run's start holds its whole length, every other entry the length up to itself; entries in no run hold (0, 0).
TEST_F(TrcCompressTest, ASaveLeavesTheRunTables) {
    const TRCCompressPtr compress(KoTRCCompressNew(12));
    for (const std::vector<int> &steps : {std::vector<int>{9, 1, 1, 1, 2, 2, 0, 0, 1, 4, 3, 3}, std::vector<int>(12, 9),
                                          std::vector<int>(12, 0), std::vector<int>{1, 0, 3, -1, 0, 0, 0, 50, 1, 1, 2, 16}}) {
        Entries entries = curve_of(steps);
        const PlainEncoder expected(entries);
        const Stream stream;
        KoTRCCompressSetTRC(compress.get(), entries.data());
        expect_success([&] { return KoTRCCompressSave(compress.get(), stream.get(), stream.path()); });
        expect_runs(compress->rleRuns, expected.rle_runs);
        expect_runs(compress->oneBitRuns, expected.one_bit_runs);
        expect_runs(compress->twoBitRuns, expected.two_bit_runs);
        EXPECT_EQ(stream.bytes(), expected.bytes);
    }
}

// ---- thousands of curves ----

struct CurveKind {
    const char *name;
    std::vector<int> small; // bounds of the steps within a stretch, drawn anew for each
    int longest;            // stretch between two cuts
    int cut_from;           // steps at the cuts
    int cut_to;
    bool fits; // no step is negative or above 4095
};

int between(Noise &noise, int low, int high) {
    return low + static_cast<int>(noise.next() % static_cast<uint32_t>(high - low + 1));
}

Entries noise_curve(const CurveKind &kind, size_t size, uint32_t seed) {
    Noise noise(seed);
    std::vector<int> steps;
    while (steps.size() < size) {
        for (int left = between(noise, 0, kind.longest); left > 0; --left) {
            const int bound = kind.small[noise.next() % kind.small.size()];
            for (int same = between(noise, 1, 20); same > 0 && left > 0; --same, --left) {
                steps.push_back(between(noise, 0, bound));
            }
            ++left;
        }
        steps.push_back(between(noise, kind.cut_from, kind.cut_to));
    }
    steps.resize(size);
    return curve_of(steps);
}

class TrcCompressCurves : public TrcCompressTest, public testing::WithParamInterface<CurveKind> {};

bool outside_a_run(uint32_t step) { return step > 3; }

// One entry short by the format's rule: the last is in a run of its own.
bool loses_its_last_entry(const Entries &entries) {
    const size_t size = entries.size();
    const auto step = [&](size_t i) { return i == 0 ? entries[0] : entries[i] - entries[i - 1]; };
    return !outside_a_run(step(size - 1)) && (size == 1 || outside_a_run(step(size - 2)));
}

// Saves to and loads from the end of one stream.
void expect_plain_round_trip(TRCCompress *compress, const Stream &stream, Entries entries, bool fits, PlainEncoder &expected) {
    const long from = stream.place();
    KoTRCCompressSetTRC(compress, entries.data());
    expect_success([&] { return KoTRCCompressSave(compress, stream.get(), stream.path()); });
    const long to = stream.place();
    ASSERT_EQ(static_cast<size_t>(to - from), expected.bytes.size());
    std::string written(expected.bytes.size(), '\0');
    stream.seek(from);
    ASSERT_EQ(std::fread(written.data(), 1, written.size(), stream.get()), written.size());
    ASSERT_EQ(in_hex(written), in_hex(expected.bytes));
    stream.seek(from);
    if (fits && !loses_its_last_entry(entries)) {
        Entries read(entries.size() + overrun);
        KoTRCCompressSetTRC(compress, read.data());
        expect_success([&] { return KoTRCCompressLoad(compress, stream.get(), stream.path()); });
        read.resize(entries.size());
        ASSERT_EQ(read, entries);
        ASSERT_EQ(stream.place(), to);
    } else {
        const std::string all = std::string(static_cast<size_t>(from), '\0') + expected.bytes;
        expect_plain_load(compress, stream, all, from);
    }
    stream.seek(to);
}

TEST_P(TrcCompressCurves, AreSavedAsThePlainEncoderDoesAndComeBack) {
    const CurveKind &kind = GetParam();
    Noise noise(99);
    const Stream stream;
    for (uint32_t seed = 1; seed <= 600; ++seed) {
        const auto size = static_cast<size_t>(seed <= 300 ? seed : 1 + noise.next() % 300);
        const Entries entries = noise_curve(kind, size, seed);
        const TRCCompressPtr compress(KoTRCCompressNew(size));
        PlainEncoder expected(entries);
        SCOPED_TRACE("seed " + std::to_string(seed) + ", " + std::to_string(size) + " entries");
        expect_plain_round_trip(compress.get(), stream, entries, kind.fits, expected);
        if (HasFailure()) {
            return;
        }
    }
}

const CurveKind curve_kinds[] = {{"Flat", {0}, 300, 0, 0, true},
                                 {"OneBit", {1}, 300, 0, 1, true},
                                 {"TwoBits", {3}, 300, 0, 3, true},
                                 {"RisingMixed", {0, 1, 1, 2, 3}, 300, 0, 3, true},
                                 {"ShortCuts", {0, 1, 1, 3}, 70, 4, 15, true},
                                 {"LongCuts", {0, 1, 1, 3}, 30, 16, 4095, true},
                                 {"Broken", {1, 3}, 5, 0, 20, true},
                                 {"Steep", {40}, 300, 0, 200, true},
                                 {"Falling", {1, 3}, 20, -3000, -1, false},
                                 {"TooSteep", {1, 2}, 20, 4096, 2000000, false},
                                 {"AnySteps", {3}, 3, -8, 12, false}};

INSTANTIATE_TEST_SUITE_P(Kinds, TrcCompressCurves, testing::ValuesIn(curve_kinds),
                         [](const auto &each) { return std::string(each.param.name); });

// Both plans are taken, and both where they differ, so that the comparison above says something about the choice.
TEST_F(TrcCompressTest, TheCurvesCallForBothPlans) {
    int forward = 0;
    int backward = 0;
    for (uint32_t seed = 1; seed <= 100; ++seed) {
        const PlainEncoder encoder(noise_curve(curve_kinds[3], 300, seed));
        forward += encoder.forward_plans;
        backward += encoder.backward_plans;
    }
    EXPECT_GT(forward, 10);
    EXPECT_GT(backward, 10);
}

// Runs of small steps of every length up to beyond the longest token, behind an entry that is in none, at every place of a byte
// and around the multiples of 64.
TEST_F(TrcCompressTest, RunsOfEveryLengthAtManyPlaces) {
    const std::vector<std::vector<int>> patterns = {{0},         {1}, {0, 1}, {1, 1, 0}, {2}, {3, 0}, {1, 1, 1, 1, 1, 1, 1, 2},
                                                    {0, 0, 0, 3}};
    const Stream stream;
    for (const size_t lead : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 31u, 62u, 63u, 64u, 65u}) {
        for (size_t length = 1; length <= 140; ++length) {
            const std::vector<int> &pattern = patterns[(lead + length) % patterns.size()];
            const std::vector<int> &before = patterns[(lead * 3 + length) % patterns.size()];
            std::vector<int> steps;
            for (size_t i = 0; i < lead; ++i) {
                steps.push_back(before[i % before.size()]);
            }
            steps.push_back(9);
            for (size_t i = 0; i < length; ++i) {
                steps.push_back(pattern[i % pattern.size()]);
            }
            if (length % 3 != 0) {
                steps.push_back(4095);
            }
            const Entries entries = curve_of(steps);
            const TRCCompressPtr compress(KoTRCCompressNew(entries.size()));
            PlainEncoder expected(entries);
            SCOPED_TRACE(testing::Message() << "run of " << length << " behind " << lead);
            expect_plain_round_trip(compress.get(), stream, entries, true, expected);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(TrcCompressTest, LongCurvesOfEveryKindAreSavedAsThePlainEncoderDoes) {
    const Stream stream;
    uint32_t seed = 0;
    for (const CurveKind &kind : curve_kinds) {
        for (const size_t size : {500u, 1000u, 1023u, 1024u, 1025u, 4095u, 4096u, 4097u}) {
            const Entries entries = noise_curve(kind, size, ++seed);
            const TRCCompressPtr compress(KoTRCCompressNew(size));
            PlainEncoder expected(entries);
            SCOPED_TRACE(testing::Message() << kind.name << ", " << size << " entries");
            expect_plain_round_trip(compress.get(), stream, entries, kind.fits, expected);
            ASSERT_FALSE(HasFailure());
        }
    }
}

// One object, one workspace, one curve after the other: nothing of a curve shows in the next one.
TEST_F(TrcCompressTest, CurvesOfOneObjectDoNotTouchEachOther) {
    for (const size_t size : {size_t{2}, size_t{33}, size_t{256}, size_t{4096}}) {
        const TRCCompressPtr compress(KoTRCCompressNew(size));
        const Stream stream;
        for (uint32_t seed = 1; seed <= 60 && !HasFailure(); ++seed) {
            const CurveKind &kind = curve_kinds[seed % std::size(curve_kinds)];
            const Entries entries = noise_curve(kind, size, seed);
            PlainEncoder expected(entries);
            expect_plain_round_trip(compress.get(), stream, entries, kind.fits, expected);
        }
    }
}

TEST_F(TrcCompressTest, NumbersOfAnySizeAreSavedAsThePlainEncoderDoes) {
    for (uint32_t seed = 1; seed <= 100 && !HasFailure(); ++seed) {
        const Entries entries = noise_entries(1 + seed % 50, 4294967295u, seed);
        const TRCCompressPtr compress(KoTRCCompressNew(entries.size()));
        const Stream stream;
        PlainEncoder expected(entries);
        expect_plain_round_trip(compress.get(), stream, entries, false, expected);
    }
}

// ---- reading ----

TEST_F(TrcCompressTest, LoadDecodesRunsOfOneStep) {
    const TRCCompressPtr compress(KoTRCCompressNew(40));
    const Stream stream(bytes_of({0xBF, 0x41, 0xC9, 0x03})); // 32 times 2, 1 time 1, 5 times 3, 2 times 0
    Entries read(40 + overrun);
    KoTRCCompressSetTRC(compress.get(), read.data());
    expect_success([&] { return KoTRCCompressLoad(compress.get(), stream.get(), stream.path()); });
    read.resize(40);
    Entries expected = curve_of(std::vector<int>(32, 2));
    for (const uint32_t entry : {65u, 68u, 71u, 74u, 77u, 80u, 80u, 80u}) {
        expected.push_back(entry);
    }
    EXPECT_EQ(read, expected);
}

TEST_F(TrcCompressTest, LoadStartsEachCurveFrom0) {
    const TRCCompressPtr compress(KoTRCCompressNew(2));
    const Stream stream(bytes_of({0xF8, 0x10, 0x01, 0xF8, 0x18}));
    for (const Entries &expected : {Entries{15, 272}, Entries{15, 16}}) {
        Entries read(2 + overrun);
        KoTRCCompressSetTRC(compress.get(), read.data());
        expect_success([&] { return KoTRCCompressLoad(compress.get(), stream.get(), stream.path()); });
        read.resize(2);
        EXPECT_EQ(read, expected);
    }
}

// The last token is stored whole: 64 entries behind a curve of one.
TEST_F(TrcCompressTest, LoadStoresTheLastTokenInFull) {
    for (const auto &[head, count] : std::vector<std::pair<int, size_t>>{{0xFE, 64}, {0xFC, 32}, {0x7F, 32}, {0x18, 1}}) {
        const TRCCompressPtr compress(KoTRCCompressNew(1));
        const std::string bytes = bytes_of({head}) + std::string(head == 0x7F || head == 0x18 ? 0 : 8, '\x55');
        const Stream stream(bytes + "behind it");
        Entries read(1 + overrun, untouched);
        KoTRCCompressSetTRC(compress.get(), read.data());
        expect_success([&] { return KoTRCCompressLoad(compress.get(), stream.get(), stream.path()); });
        EXPECT_EQ(static_cast<size_t>(stream.place()), bytes.size());
        EXPECT_EQ(static_cast<size_t>(std::count(read.begin(), read.end(), untouched)), 1 + overrun - count);
        expect_plain_load(1, bytes);
    }
}

// Every byte has a meaning.
TEST_F(TrcCompressTest, LoadOfNoiseIsAPlainReading) {
    for (uint32_t seed = 1; seed <= 500 && !HasFailure(); ++seed) {
        const std::vector<uint8_t> noise = noise_bytes(seed, seed);
        const std::string bytes(noise.begin(), noise.end());
        SCOPED_TRACE("seed " + std::to_string(seed));
        expect_plain_load(1 + seed % 256, bytes);
        expect_plain_load(seed / 10, bytes);
    }
}

TEST_F(TrcCompressTest, LoadOfEveryFirstByteIsAPlainReading) {
    for (int head = 0; head < 256; ++head) {
        expect_plain_load(1, bytes_of({head, 0x1B, 0xE4, 0x93, 0xFF, 0x00, 0x5A, 0xA5, 0x81}));
    }
}

// Entries of the tokens before stay.
TEST_F(TrcCompressTest, LoadTellsAStreamThatEndsEarly) {
    for (const std::vector<int> &tail : std::vector<std::vector<int>>{{},
                                                                      {0x10},
                                                                      {0x1E},
                                                                      {0xFE, 1, 2, 3, 4, 5, 6, 7},
                                                                      {0x14},
                                                                      {0xFC, 1, 2, 3, 4, 5, 6, 7},
                                                                      {0x22, 0xFF},
                                                                      {0x24, 0xFF}}) {
        expect_plain_load(100, bytes_of({0x58, 0x0A, 0x07}) + bytes_of(tail));
    }
    expect_plain_load(1, "");
}

// Curves of every kind of token, cut at every byte: up to 1024 entries a curve is decoded in another way than beyond.
TEST_F(TrcCompressTest, AStreamCutAnywhereLeavesTheRestOfTheCurveAsItWas) {
    for (const uint64_t size : {1u, 2u, 31u, 32u, 33u, 63u, 64u, 65u, 100u, 256u, 1023u, 1024u, 1025u}) {
        Noise noise(static_cast<uint32_t>(size));
        std::vector<int> steps;
        while (steps.size() < size) {
            const int most = std::vector<int>{2, 4, 20, 300}[noise.next() % 4]; // one bit, two bits, short and long literals
            for (uint32_t i = 0; i <= noise.next() % 40 && steps.size() < size; ++i) {
                steps.push_back(static_cast<int>(noise.next() % static_cast<uint32_t>(most)));
            }
        }
        const std::string bytes = encoded(curve_of(steps));
        for (size_t end = 0; end <= bytes.size(); ++end) {
            SCOPED_TRACE(testing::Message() << "size " << size << ", cut at " << end);
            expect_plain_load(size, bytes.substr(0, end));
            if (HasFailure()) {
                return;
            }
        }
    }
}

// ---- the writers ----

using RunWriter = int32_t (*)(const uint32_t *, uint64_t, uint64_t, std::FILE *, const char *);

std::string written_run(RunWriter writer, const Entries &entries, uint64_t first, uint64_t length) {
    const Stream stream;
    expect_success([&] { return writer(entries.data(), first, length, stream.get(), stream.path()); });
    return in_hex(stream.bytes());
}

TEST_F(TrcCompressTest, RunsOfOneStepAreCutAt32) {
    EXPECT_EQ(written_run(&_KoTRCCompressSaveRLE, curve_of({3}), 0, 1), "C1 ");
    EXPECT_EQ(written_run(&_KoTRCCompressSaveRLE, curve_of({9, 2, 2, 2}), 1, 3), "85 ");
    EXPECT_EQ(written_run(&_KoTRCCompressSaveRLE, curve_of(std::vector<int>(32, 1)), 0, 32), "7F ");
    EXPECT_EQ(written_run(&_KoTRCCompressSaveRLE, curve_of(std::vector<int>(33, 1)), 0, 33), "7F 41 ");
    EXPECT_EQ(written_run(&_KoTRCCompressSaveRLE, Entries(100, 0), 0, 100), "3F 3F 3F 07 ");
}

// The step is that of the run's first entry.
TEST_F(TrcCompressTest, RunsOfOneStepTakeItFromTheFirstEntry) {
    EXPECT_EQ(written_run(&_KoTRCCompressSaveRLE, curve_of({1, 3, 0, 0}), 1, 3), "C5 ");
}

TEST_F(TrcCompressTest, OneBitTokensAreCutAt64) {
    EXPECT_EQ(written_run(&_KoTRCCompressSave1Bit, curve_of({1}), 0, 1), "02 01 ");
    EXPECT_EQ(written_run(&_KoTRCCompressSave1Bit, curve_of({7, 0, 1, 1}), 1, 3), "0A 06 ");
    EXPECT_EQ(written_run(&_KoTRCCompressSave1Bit, curve_of(std::vector<int>(65, 1)), 0, 65),
              "FE " + repeated("FF ", 8) + "02 01 ");
    EXPECT_EQ(written_run(&_KoTRCCompressSave1Bit, curve_of(std::vector<int>(130, 1)), 2, 128),
              repeated("FE " + repeated("FF ", 8), 2));
}

// Any step but 0 sets the bit.
TEST_F(TrcCompressTest, OneBitTokensKnowStepsFromNoStepsAlone) {
    EXPECT_EQ(written_run(&_KoTRCCompressSave1Bit, curve_of({2, 0, 4, -1}), 0, 4), "0E 0D ");
}

TEST_F(TrcCompressTest, TwoBitTokensAreCutAt32) {
    EXPECT_EQ(written_run(&_KoTRCCompressSave2Bits, curve_of({2}), 0, 1), "04 02 ");
    EXPECT_EQ(written_run(&_KoTRCCompressSave2Bits, curve_of({7, 0, 1, 3}), 1, 3), "14 34 ");
    EXPECT_EQ(written_run(&_KoTRCCompressSave2Bits, curve_of(std::vector<int>(33, 3)), 0, 33),
              "FC " + repeated("FF ", 8) + "04 03 ");
    EXPECT_EQ(written_run(&_KoTRCCompressSave2Bits, curve_of(std::vector<int>(70, 2)), 6, 64),
              repeated("FC " + repeated("AA ", 8), 2));
}

TEST_F(TrcCompressTest, TwoBitTokensKeepTheLowBits) {
    EXPECT_EQ(written_run(&_KoTRCCompressSave2Bits, curve_of({4, 5, 6, 7}), 0, 4), "1C E4 ");
}

TEST_F(TrcCompressTest, LiteralsAreShortBelow16) {
    const Entries entries = curve_of({0, 3, 15, 16, 4095, 4096, 4097, -1});
    const std::vector<std::string> expected{"08 ", "38 ", "F8 ", "00 10 ", "F0 FF ", "00 00 ", "00 01 ", "F0 FF "};
    for (size_t i = 0; i < entries.size(); ++i) {
        const Stream stream;
        expect_success([&] { return _KoTRCCompressSaveNBits(entries.data(), i, stream.get(), stream.path()); });
        EXPECT_EQ(in_hex(stream.bytes()), expected[i]) << "entry " << i;
    }
}

TEST_F(TrcCompressTest, WhatTheWritersWriteReadsBack) {
    for (uint32_t seed = 1; seed <= 50; ++seed) {
        for (const auto &[writer, bound] :
             std::vector<std::pair<RunWriter, uint32_t>>{{&_KoTRCCompressSave1Bit, 1}, {&_KoTRCCompressSave2Bits, 3}}) {
            Entries entries = noise_entries(3 * seed, bound + 1, seed);
            std::partial_sum(entries.begin(), entries.end(), entries.begin());
            const Stream stream;
            expect_success([&, run = writer] { return run(entries.data(), 0, entries.size(), stream.get(), stream.path()); });
            EXPECT_EQ(plain_decoded(stream.bytes(), entries.size()).entries, entries);
        }
    }
}

// ---- streams that fail ----

// A stream that is open for reading alone takes nothing.
TEST_F(TrcCompressTest, AFailedWriteIsReportedByEachWriter) {
    const TemporaryFile file("stream.bin", "precious");
    std::FILE *stream = std::fopen(file.c_str(), "rb");
    ASSERT_NE(stream, nullptr);
    const Entries entries = curve_of(std::vector<int>(100, 1));
    const std::string text = "Cannot write file \"some name\"";
    for (const RunWriter writer : {&_KoTRCCompressSaveRLE, &_KoTRCCompressSave1Bit, &_KoTRCCompressSave2Bits}) {
        expect_error(KO_ERR_WRITE_FILE, text, [&] { return writer(entries.data(), 0, 100, stream, "some name"); });
    }
    const Entries steep = curve_of({7, 700});
    for (const uint64_t i : {0u, 1u}) {
        expect_error(KO_ERR_WRITE_FILE, text, [&] { return _KoTRCCompressSaveNBits(steep.data(), i, stream, "some name"); });
    }
    const TRCCompressPtr compress(KoTRCCompressNew(100));
    KoTRCCompressSetTRC(compress.get(), const_cast<uint32_t *>(entries.data()));
    expect_error(KO_ERR_WRITE_FILE, text, [&] { return KoTRCCompressSave(compress.get(), stream, "some name"); });
    std::fclose(stream);
    EXPECT_EQ(read_bytes(file.path()), "precious");
}

#ifdef __linux__

TEST_F(TrcCompressTest, AFullDeviceIsReported) {
    std::FILE *stream = std::fopen("/dev/full", "wb");
    ASSERT_NE(stream, nullptr);
    std::setvbuf(stream, nullptr, _IONBF, 0);
    Entries entries = curve_of(std::vector<int>(100, 1));
    const TRCCompressPtr compress(KoTRCCompressNew(100));
    KoTRCCompressSetTRC(compress.get(), entries.data());
    expect_error(KO_ERR_WRITE_FILE, "Cannot write file \"/dev/full\"",
                 [&] { return KoTRCCompressSave(compress.get(), stream, "/dev/full"); });
    std::fclose(stream);
}

// A stream without a buffer that refuses every byte of one value and keeps the rest.
class RefusingStream {
  public:
    explicit RefusingStream(int refused) : refused_(static_cast<char>(refused)) {
        cookie_io_functions_t functions{};
        functions.write = &RefusingStream::write;
        stream_ = fopencookie(this, "w", functions);
        std::setvbuf(stream_, nullptr, _IONBF, 0);
    }
    ~RefusingStream() { std::fclose(stream_); }
    RefusingStream(const RefusingStream &) = delete;
    RefusingStream &operator=(const RefusingStream &) = delete;

    std::FILE *get() const { return stream_; }
    const std::string &bytes() const { return bytes_; }

  private:
    static ssize_t write(void *cookie, const char *bytes, size_t count) {
        auto *self = static_cast<RefusingStream *>(cookie);
        if (std::find(bytes, bytes + count, self->refused_) != bytes + count) {
            return 0;
        }
        self->bytes_.append(bytes, count);
        return static_cast<ssize_t>(count);
    }

    const char refused_;
    std::string bytes_;
    std::FILE *stream_ = nullptr;
};

struct RefusedSave {
    std::vector<int> steps;
    int refused;
    int32_t status;
    const char *tokens;
};

// A failed writer ends its segment alone; the status is the last segment's, whatever was reported before.
TEST_F(TrcCompressTest, ASaveGoesOnWithTheNextSegment) {
    const std::string report = "[ERROR] Cannot write file \"some name\"";
    for (const RefusedSave &save :
         {RefusedSave{{5, 6, 7, 8}, 0x68, KO_OK, "58 78 88 "}, RefusedSave{{5, 6, 7, 8}, 0x88, KO_ERR_WRITE_FILE, "58 68 78 "},
          RefusedSave{{1, 2, 5, 6}, 0x28, KO_OK, "18 68 "}, RefusedSave{{1, 2, 5, 6}, 0x18, KO_OK, "68 "},
          RefusedSave{{6, 5, 2, 1}, 0x28, KO_ERR_WRITE_FILE, "68 58 "},
          // the segment that is not written has no say
          RefusedSave{{5, 6, 1}, 0x68, KO_ERR_WRITE_FILE, "58 "}}) {
        Entries entries = curve_of(save.steps);
        const TRCCompressPtr compress(KoTRCCompressNew(entries.size()));
        KoTRCCompressSetTRC(compress.get(), entries.data());
        KoStatusClear();
        const RefusingStream stream(save.refused);
        EXPECT_EQ(KoTRCCompressSave(compress.get(), stream.get(), "some name"), save.status);
        expect_status(KO_ERR_WRITE_FILE, report);
        EXPECT_EQ(in_hex(stream.bytes()), save.tokens);
    }
}

// A run of three tokens whose second one cannot be written.
TEST_F(TrcCompressTest, AFailedTokenEndsItsWriter) {
    std::vector<int> steps(192, 1);
    std::fill(steps.begin() + 64, steps.begin() + 128, 0);
    const Entries entries = curve_of(steps);
    const RefusingStream stream(0x00);
    expect_error(KO_ERR_WRITE_FILE, "Cannot write file \"some name\"",
                 [&] { return _KoTRCCompressSave1Bit(entries.data(), 0, 192, stream.get(), "some name"); });
    EXPECT_EQ(in_hex(stream.bytes()).substr(0, 27), "FE " + repeated("FF ", 8));
    EXPECT_LE(stream.bytes().size(), 10u); // the second token's first byte may have gone out, but nothing of the third
}

#endif

} // namespace
