// Single curves: life, sizes, composition, the text file, and the application to images.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ko/trc.h"

#include "capture.h"
#include "curve_texts.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"
#include "same_floats.h"

namespace {

using namespace ko_test;

using Entries = std::vector<uint32_t>;

class TrcTest : public LibraryTest {};

Entries identity(uint64_t size) {
    Entries entries(size);
    std::iota(entries.begin(), entries.end(), 0u);
    return entries;
}

const char *const out_of_size = "Index out of bounds: ";

// ---- life ----

TEST_F(TrcTest, InitSetsTheSizeAndAllocates) {
    TRC trc{99, nullptr};
    expect_success([&] { return KoTRCInit(&trc, 256); });
    EXPECT_EQ(trc.size, 256u);
    ASSERT_NE(trc.array, nullptr);
    EXPECT_EQ(KoTRCGetArray(&trc), trc.array);
    EXPECT_EQ(KoTRCGetSize(&trc), 256u);
    EXPECT_EQ(KoTRCFree(&trc), KO_OK);
}

TEST_F(TrcTest, FreeNullsTheArrayAndKeepsTheSize) {
    TRC trc{0, nullptr};
    KoTRCInit(&trc, 16);
    expect_success([&] { return KoTRCFree(&trc); });
    EXPECT_EQ(trc.array, nullptr);
    EXPECT_EQ(trc.size, 16u);
    expect_success([&] { return KoTRCFree(&trc); });
}

TEST_F(TrcTest, FreeAndDeleteAcceptNull) {
    expect_success([] { return KoTRCFree(nullptr); });
    expect_success([] { return KoTRCDelete(nullptr); });
}

TEST_F(TrcTest, InitAndNewKnowNoLimit) {
    const TRCPtr trc(KoTRCNew(70000));
    ASSERT_NE(trc, nullptr);
    EXPECT_EQ(trc->size, 70000u);
    trc->array[69999] = 5;
    EXPECT_EQ(KoTRCGetValue(trc.get(), 69999), 5u);
    TRC empty{1, nullptr};
    expect_success([&] { return KoTRCInit(&empty, 0); });
    EXPECT_EQ(empty.size, 0u);
    KoTRCFree(&empty);
}

TEST_F(TrcTest, InitThatCannotAllocateReturnsTheLastError) {
    TRC trc{0, nullptr};
    StderrCapture captured;
    EXPECT_EQ(KoTRCInit(&trc, uint64_t{1} << 29), KO_ERR_ALLOC);
    EXPECT_EQ(captured.stop(), "[ERROR] Memory allocation failed: can't allocated -2147483648 bytes of memory\n");
    expect_status(KO_ERR_ALLOC, "Cannot allocate -2147483648 bytes");
    EXPECT_EQ(trc.array, nullptr);
    EXPECT_EQ(trc.size, uint64_t{1} << 29);
}

TEST_F(TrcTest, NewThatCannotAllocateNamesTheObject) {
    const PrintCapture printed("debug");
    StderrCapture captured;
    EXPECT_EQ(KoTRCNew(uint64_t{1} << 29), nullptr);
    captured.stop();
    expect_status(KO_ERR_CREATE_OBJECT, "Cannot create object \"TRC\"\n-> Cannot allocate -2147483648 bytes");
    EXPECT_TRUE(printed.texts().empty());
}

TEST_F(TrcTest, GetSizeGivesTheLow32Bits) {
    const TRC trc{(uint64_t{1} << 32) + 5, nullptr};
    EXPECT_EQ(KoTRCGetSize(&trc), 5u);
}

// ---- size ----

TEST_F(TrcTest, SetSizeOfThePresentSizeKeepsTheEntries) {
    const TRCPtr trc = make_trc({3, 1, 4, 1, 5});
    const uint32_t *array = trc->array;
    expect_success([&] { return KoTRCSetSize(trc.get(), 5); });
    EXPECT_EQ(trc->array, array);
    EXPECT_EQ(entries_of(trc.get()), (Entries{3, 1, 4, 1, 5}));
}

TEST_F(TrcTest, SetSizeOfThePresentSizeDoesNothingToACurveWithoutEntries) {
    const TRCPtr trc(KoTRCNew(5));
    KoTRCFree(trc.get());
    expect_success([&] { return KoTRCSetSize(trc.get(), 5); });
    EXPECT_EQ(trc->array, nullptr);
}

TEST_F(TrcTest, SetSizeGivesAnArrayOfTheNewSize) {
    const TRCPtr trc(KoTRCNew(5));
    for (const uint64_t size : {uint64_t{1}, uint64_t{65536}, uint64_t{300}}) {
        expect_success([&] { return KoTRCSetSize(trc.get(), size); });
        EXPECT_EQ(trc->size, size);
        ASSERT_NE(trc->array, nullptr);
        expect_success([&] { return KoTRCSetIdentity(trc.get()); });
        EXPECT_EQ(entries_of(trc.get()), identity(size));
    }
}

TEST_F(TrcTest, SetSizeRefusesWhatIsNot1To65536) {
    const TRCPtr trc = make_trc({3, 1, 4});
    expect_error(KO_ERR_INDEX_OUT_OF_BOUNDS, out_of_size + std::string("0 (1-65536)"),
                 [&] { return KoTRCSetSize(trc.get(), 0); });
    expect_error(KO_ERR_INDEX_OUT_OF_BOUNDS, out_of_size + std::string("65537 (1-65536)"),
                 [&] { return KoTRCSetSize(trc.get(), 65537); });
    EXPECT_EQ(KoTRCSetSize(trc.get(), (uint64_t{1} << 32) + 3), KO_ERR_INDEX_OUT_OF_BOUNDS);
    EXPECT_EQ(entries_of(trc.get()), (Entries{3, 1, 4}));
}

// The lower bound that the message shows is 0, although 0 itself is refused.
TEST_F(TrcTest, ResizeRefusesWhatIsNot1To65536) {
    const TRCPtr trc = make_trc({3, 1, 4});
    expect_error(KO_ERR_INDEX_OUT_OF_BOUNDS, out_of_size + std::string("0 (0-65536)"),
                 [&] { return KoTRCResize(trc.get(), 0); });
    expect_error(KO_ERR_INDEX_OUT_OF_BOUNDS, out_of_size + std::string("65537 (0-65536)"),
                 [&] { return KoTRCResize(trc.get(), 65537); });
    EXPECT_EQ(KoTRCResize(trc.get(), (uint64_t{1} << 32) + 3), KO_ERR_INDEX_OUT_OF_BOUNDS);
    EXPECT_EQ(entries_of(trc.get()), (Entries{3, 1, 4}));
}

TEST_F(TrcTest, TheLimitIsLookedAtBeforeThePresentSize) {
    const TRCPtr trc(KoTRCNew(65537));
    EXPECT_EQ(KoTRCSetSize(trc.get(), 65537), KO_ERR_INDEX_OUT_OF_BOUNDS);
    EXPECT_EQ(KoTRCResize(trc.get(), 65537), KO_ERR_INDEX_OUT_OF_BOUNDS);
}

TEST_F(TrcTest, ResizeToThePresentSizeDoesNothing) {
    const TRCPtr trc = make_trc({3, 1});
    const uint32_t *array = trc->array;
    expect_success([&] { return KoTRCResize(trc.get(), 2); });
    EXPECT_EQ(trc->array, array);
    EXPECT_EQ(entries_of(trc.get()), (Entries{3, 1}));
}

TEST_F(TrcTest, ResizeRefusesToGrowFewerThanThreeEntries) {
    for (const Entries &entries : {Entries{7}, Entries{7, 9}}) {
        const TRCPtr trc = make_trc(entries);
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return KoTRCResize(trc.get(), 8); });
        EXPECT_EQ(entries_of(trc.get()), entries);
    }
}

TEST_F(TrcTest, ResizeRefusesACurveWithoutEntries) {
    const TRCPtr trc(KoTRCNew(256));
    KoTRCFree(trc.get());
    expect_error(KO_ERR_NULL_POINTER, "Null pointer error", [&] { return KoTRCResize(trc.get(), 128); });
    expect_error(KO_ERR_NULL_POINTER, "Null pointer error", [&] { return KoTRCResize(trc.get(), 512); });
    EXPECT_EQ(trc->size, 256u);
}

Entries resized(const Entries &entries, uint64_t size) {
    const TRCPtr trc = make_trc(entries);
    expect_success([&] { return KoTRCResize(trc.get(), size); });
    EXPECT_EQ(trc->size, size);
    return entries_of(trc.get());
}

TEST_F(TrcTest, ShrinkingTakesEveryStepthEntryAndKeepsTheValues) {
    EXPECT_EQ(resized({0, 10, 20, 30, 40, 50, 60, 70, 80, 90}, 3), (Entries{0, 30, 60}));
    EXPECT_EQ(resized({5, 6}, 1), (Entries{5}));
    const Entries small = resized(identity(1024), 256);
    for (uint32_t i = 0; i < 256; ++i) {
        ASSERT_EQ(small[i], 4 * i); // still on the scale of 1024 levels
    }
    const Entries noise = noise_entries(300, 100000, 1);
    EXPECT_EQ(resized(noise, 256), Entries(noise.begin(), noise.begin() + 256)); // the step is a whole number: 1
}

// Half way between the nodes by hand: parabolas at both ends, a cubic between. Cutting goes toward zero, an undershoot wraps,
// the values are doubled like the index.
TEST_F(TrcTest, GrowingByHand) {
    const auto wrapped = [](int32_t value) { return static_cast<uint32_t>(value); };
    EXPECT_EQ(resized({0, 0, 10, 0}, 8), (Entries{0, wrapped(-2), 0, 11, 20, 15, 0, wrapped(-25)}));
    EXPECT_EQ(resized({10, 20, 30}, 6), (Entries{20, 30, 40, 50, 60, 70}));
}

// The Lagrange polynomial through the nodes 0, 1, 2, ...
float lagrange(const std::vector<float> &nodes, float t) {
    float sum = 0.0f;
    for (size_t i = 0; i < nodes.size(); ++i) {
        if (t == static_cast<float>(i)) {
            sum += nodes[i];
            continue;
        }
        float numerator = 1.0f;
        float denominator = 1.0f;
        for (size_t j = 0; j < nodes.size(); ++j) {
            if (j != i) {
                numerator *= t - static_cast<float>(j);
                denominator *= static_cast<float>(i) - static_cast<float>(j);
            }
        }
        sum += numerator / denominator * nodes[i];
    }
    return sum;
}

class Grower {
  public:
    Grower(const Entries &old, uint64_t size) : old_(old.begin(), old.end()), samples_(size / old.size()) {}

    Entries grow() {
        interval(0, 3, 0.0f, samples_);
        for (size_t w = 0; w + 4 <= old_.size(); ++w) {
            interval(w, 4, 1.0f, samples_);
        }
        interval(old_.size() - 3, 3, 1.0f, 2 * samples_);
        return grown_;
    }

  private:
    void interval(size_t first, size_t nodes, float offset, size_t count) {
        const auto begin = old_.begin() + static_cast<std::ptrdiff_t>(first);
        const std::vector<float> values(begin, begin + static_cast<std::ptrdiff_t>(nodes));
        const float scale = static_cast<float>(samples_);
        for (size_t k = 0; k < count; ++k) {
            const float sum = lagrange(values, static_cast<float>(k) / scale + offset);
            grown_.push_back(static_cast<uint32_t>(static_cast<int64_t>(sum * scale)));
        }
    }

    std::vector<float> old_;
    size_t samples_;
    Entries grown_;
};

struct Growth {
    uint64_t from;
    uint64_t to;
};

class TrcGrowth : public TrcTest, public testing::WithParamInterface<Growth> {};

TEST_P(TrcGrowth, InterpolatesByPieces) {
    const auto [from, to] = GetParam();
    Entries squares = identity(from);
    for (uint32_t &entry : squares) {
        entry = entry * entry / static_cast<uint32_t>(from);
    }
    Entries step(from, 0);
    std::fill(step.begin() + static_cast<std::ptrdiff_t>(from / 2), step.end(), 65535u);
    for (const Entries &old : {identity(from), squares, step, noise_entries(from, 256, 2), noise_entries(from, 60000, 3)}) {
        Entries expected = Grower(old, to).grow();
        ASSERT_EQ(expected.size(), to / from * from);
        expected.resize(to, 0); // the rest, where the sizes are no multiples
        EXPECT_EQ(resized(old, to), expected);
    }
}

TEST_P(TrcGrowth, KeepsTheNodesTimesTheRatio) {
    const auto [from, to] = GetParam();
    const auto ratio = static_cast<uint32_t>(to / from);
    const Entries old = noise_entries(from, 256, 4);
    const Entries grown = resized(old, to);
    for (size_t i = 0; i < from; ++i) {
        ASSERT_EQ(grown[i * ratio], old[i] * ratio) << "node " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, TrcGrowth,
                         testing::Values(Growth{3, 4}, Growth{3, 6}, Growth{3, 11}, Growth{4, 8}, Growth{4, 12}, Growth{5, 100},
                                         Growth{7, 21}, Growth{100, 1000}, Growth{128, 256}, Growth{256, 300},
                                         Growth{256, 1024}, Growth{256, 4096}, Growth{300, 65536}),
                         [](const auto &each) {
                             return std::to_string(each.param.from) + "To" + std::to_string(each.param.to);
                         });

// ---- entries ----

TEST_F(TrcTest, SetArrayCopies) {
    const TRCPtr trc(KoTRCNew(4));
    Entries source{9, 0, 4294967295u, 7};
    expect_success([&] { return KoTRCSetArray(trc.get(), source.data(), 4); });
    EXPECT_NE(trc->array, source.data());
    EXPECT_EQ(entries_of(trc.get()), source);
    EXPECT_EQ(KoTRCGetValue(trc.get(), 2), 4294967295u);
}

TEST_F(TrcTest, SetArrayRefusesNullAndAnotherCount) {
    const TRCPtr trc = make_trc({3, 1, 4});
    const Entries source{9, 9, 9, 9};
    for (const uint64_t count : {uint64_t{0}, uint64_t{2}, uint64_t{4}, (uint64_t{1} << 32) + 3}) {
        expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                     [&] { return KoTRCSetArray(trc.get(), source.data(), count); });
    }
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return KoTRCSetArray(trc.get(), nullptr, 3); });
    EXPECT_EQ(entries_of(trc.get()), (Entries{3, 1, 4}));
}

TEST_F(TrcTest, SetIdentity) {
    for (const uint64_t size : {uint64_t{1}, uint64_t{256}, uint64_t{70000}}) {
        const TRCPtr trc(KoTRCNew(size));
        expect_success([&] { return KoTRCSetIdentity(trc.get()); });
        EXPECT_EQ(entries_of(trc.get()), identity(size));
    }
    const TRCPtr bare(KoTRCNew(4));
    KoTRCFree(bare.get());
    expect_error(KO_ERR_NULL_POINTER, "Null pointer error", [&] { return KoTRCSetIdentity(bare.get()); });
}

TEST_F(TrcTest, SetComposeAppliesTheFirstCurveFirst) {
    const Entries first{3, 0, 1, 5};
    const Entries second{10, 11, 12, 13, 14, 15};
    const TRCPtr trc(KoTRCNew(4));
    expect_success([&] { return KoTRCSetCompose(trc.get(), first.data(), second.data()); });
    EXPECT_EQ(entries_of(trc.get()), (Entries{13, 10, 11, 15}));
}

TEST_F(TrcTest, SetComposeMayReadTheCurveItself) {
    const Entries other{2, 3, 1, 0};
    const Entries mine{1, 2, 3, 3};
    const TRCPtr as_first = make_trc(mine);
    expect_success([&] { return KoTRCSetCompose(as_first.get(), as_first->array, other.data()); });
    EXPECT_EQ(entries_of(as_first.get()), (Entries{3, 1, 0, 0}));
    const TRCPtr as_second = make_trc(mine);
    expect_success([&] { return KoTRCSetCompose(as_second.get(), other.data(), as_second->array); });
    EXPECT_EQ(entries_of(as_second.get()), (Entries{3, 3, 2, 1}));
    const TRCPtr as_both = make_trc(mine);
    expect_success([&] { return KoTRCSetCompose(as_both.get(), as_both->array, as_both->array); });
    EXPECT_EQ(entries_of(as_both.get()), (Entries{2, 3, 3, 3}));
}

TEST_F(TrcTest, SetComposeRefusesNull) {
    const TRCPtr trc = make_trc({3, 1});
    const Entries other{0, 1};
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                 [&] { return KoTRCSetCompose(trc.get(), nullptr, other.data()); });
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument",
                 [&] { return KoTRCSetCompose(trc.get(), other.data(), nullptr); });
    EXPECT_EQ(entries_of(trc.get()), (Entries{3, 1}));
}

TEST_F(TrcTest, NewCompose) {
    const Entries first{3, 0, 1};
    const Entries second{10, 11, 12, 13};
    const TRCPtr trc(KoTRCNewCompose(first.data(), second.data(), 3));
    ASSERT_NE(trc, nullptr);
    EXPECT_EQ(entries_of(trc.get()), (Entries{13, 10, 11}));
    expect_status(KO_OK, "");
}

TEST_F(TrcTest, NewComposeOfNullNamesTheObjectOverTheReport) {
    const Entries other{0, 1};
    EXPECT_EQ(KoTRCNewCompose(nullptr, other.data(), 2), nullptr);
    expect_status(KO_ERR_CREATE_OBJECT, "Cannot create object \"TRC\"\n-> [ERROR] Invalid argument");
    KoStatusClear();
    EXPECT_EQ(KoTRCNewCompose(other.data(), nullptr, 2), nullptr);
    expect_status(KO_ERR_CREATE_OBJECT, "Cannot create object \"TRC\"\n-> [ERROR] Invalid argument");
}

// ---- text file ----

std::string saved(const TRC *trc) {
    const TemporaryFile file("curve.txt");
    expect_success([&] { return KoTRCSave(trc, file.c_str(), 0); });
    return read_text(file.path());
}

TEST_F(TrcTest, SaveWritesHeaderBitsAndEntries) {
    EXPECT_EQ(saved(make_trc({0, 10, 20, 30}).get()), "GrayLinear\nbits 2\n0\n10\n20\n30\n");
    EXPECT_EQ(saved(make_trc({42}).get()), "GrayLinear\nbits 0\n42\n");
    EXPECT_EQ(saved(make_trc(identity(256)).get()).substr(0, 22), "GrayLinear\nbits 8\n0\n1\n");
}

TEST_F(TrcTest, SaveCutsTheBitsAndWritesAllEntries) {
    EXPECT_EQ(saved(make_trc({4, 5, 6}).get()), "GrayLinear\nbits 1\n4\n5\n6\n");
    const std::string text = saved(make_trc(identity(300)).get());
    EXPECT_EQ(text.substr(0, 18), "GrayLinear\nbits 8\n");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 302);
}

TEST_F(TrcTest, SaveWritesSigned32BitNumbers) {
    EXPECT_EQ(saved(make_trc({2147483647u, 2147483648u, 4294967295u, 0}).get()),
              "GrayLinear\nbits 2\n2147483647\n-2147483648\n-1\n0\n");
}

TEST_F(TrcTest, SaveTellsTheBitsOfEveryPowerOfTwo) {
    for (uint32_t bits = 0; bits <= 17; ++bits) {
        const TRCPtr trc = make_trc(Entries(uint64_t{1} << bits, 0));
        EXPECT_EQ(saved(trc.get()).substr(0, 19).find("\nbits " + std::to_string(bits) + "\n"), 10u);
    }
}

TEST_F(TrcTest, SaveWithoutTheFlagLeavesAFileAlone) {
    const TRCPtr trc = make_trc({1, 2});
    const TemporaryFile file("curve.txt", "precious");
    expect_error(KO_ERR_FILE_EXISTS, "File \"" + file.path() + "\" already exists",
                 [&] { return KoTRCSave(trc.get(), file.c_str(), 0); });
    EXPECT_EQ(read_bytes(file.path()), "precious");
    for (const int32_t overwrite : {1, -1, 256}) {
        write_bytes(file.path(), "something longer than the file that takes its place");
        expect_success([&] { return KoTRCSave(trc.get(), file.c_str(), overwrite); });
        EXPECT_EQ(read_text(file.path()), "GrayLinear\nbits 1\n1\n2\n");
    }
}

TEST_F(TrcTest, SaveThatCannotOpenWritesNoLine) {
    const TRCPtr trc = make_trc({1, 2});
    const std::string path = temporary_path("folder") + "/curve.txt";
    StderrCapture captured;
    expect_error(KO_ERR_OPEN_WRITE, "Cannot open file \"" + path + "\" for writing",
                 [&] { return KoTRCSave(trc.get(), path.c_str(), 0); });
    expect_error(KO_ERR_OPEN_WRITE, "Cannot open file \"" + path + "\" for writing",
                 [&] { return KoTRCSave(trc.get(), path.c_str(), 1); });
    EXPECT_EQ(captured.stop(), "");
}

TEST_F(TrcTest, SaveRefusesACurveWithoutEntries) {
    const TRCPtr trc(KoTRCNew(4));
    KoTRCFree(trc.get());
    const TemporaryFile file("curve.txt");
    expect_error(KO_ERR_NULL_POINTER, "Null pointer error", [&] { return KoTRCSave(trc.get(), file.c_str(), 1); });
}

void expect_load(const std::string &path) {
    const TRCPtr trc(KoTRCNew(4));
    expect_plain_load(
        gray_form, path,
        [&] {
            return CurveView{trc->size, {trc->array}};
        },
        [&](const char *name) { return KoTRCLoad(trc.get(), name); });
}

TEST_F(TrcTest, LoadReadsWhatSaveWrote) {
    const Entries entries = noise_entries(256, 4294967295u, 5);
    const TemporaryFile file("curve.txt");
    KoTRCSave(make_trc(entries).get(), file.c_str(), 0);
    const TRCPtr trc(KoTRCNew(256));
    const uint32_t *array = trc->array;
    expect_success([&] { return KoTRCLoad(trc.get(), file.c_str()); });
    EXPECT_EQ(trc->array, array);
    EXPECT_EQ(entries_of(trc.get()), entries); // those from 2147483648 up went through negative numbers
}

TEST_F(TrcTest, LoadIntoAnotherSizeReplacesTheArray) {
    const TemporaryFile file("curve.txt", curve_text(gray_form, 3));
    const TRCPtr trc(KoTRCNew(256));
    expect_success([&] { return KoTRCLoad(trc.get(), file.c_str()); });
    EXPECT_EQ(trc->size, 8u);
    EXPECT_EQ(entries_of(trc.get()), (Entries{0, 10, 20, 30, 40, 50, 60, 70}));
}

TEST_F(TrcTest, LoadIntoACurveWithoutEntriesAllocates) {
    const TemporaryFile file("curve.txt", curve_text(gray_form, 3));
    TRC trc{8, nullptr};
    expect_success([&] { return KoTRCLoad(&trc, file.c_str()); });
    ASSERT_NE(trc.array, nullptr);
    EXPECT_EQ(entries_of(&trc), (Entries{0, 10, 20, 30, 40, 50, 60, 70}));
    KoTRCFree(&trc);
}

TEST_F(TrcTest, LoadTakesTheBitsModulo32) {
    const TemporaryFile one("curve.txt", "GrayLinear\nbits 32\n7\n");
    const TRCPtr trc(KoTRCNew(256));
    expect_success([&] { return KoTRCLoad(trc.get(), one.c_str()); });
    EXPECT_EQ(entries_of(trc.get()), (Entries{7}));
    const TemporaryFile four("curve.txt", "GrayLinear\nbits 34\n1\n2\n3\n4\n");
    expect_success([&] { return KoTRCLoad(trc.get(), four.c_str()); });
    EXPECT_EQ(entries_of(trc.get()), (Entries{1, 2, 3, 4}));
}

TEST_F(TrcTest, LoadKnowsNoLimit) {
    const TemporaryFile file("curve.txt", curve_text(gray_form, 17));
    const TRCPtr trc(KoTRCNew(4));
    expect_success([&] { return KoTRCLoad(trc.get(), file.c_str()); });
    EXPECT_EQ(trc->size, 131072u);
    EXPECT_EQ(trc->array[131071], 1310710u);
}

TEST_F(TrcTest, LoadComparesThePrefixOfLineOneOnly) {
    const TemporaryFile file("curve.txt", "GrayLinearBinary\nbits 1\n7\n8\n");
    const TRCPtr trc(KoTRCNew(2));
    expect_success([&] { return KoTRCLoad(trc.get(), file.c_str()); });
    EXPECT_EQ(entries_of(trc.get()), (Entries{7, 8}));
}

// Loads text into a fresh curve of two entries; gives what the standard error stream got.
std::string failed_load(const TemporaryFile &file, int line) {
    const TRCPtr trc(KoTRCNew(2));
    StderrCapture captured;
    expect_error(KO_ERR_READ_LINE, "Read error in file \"" + file.path() + "\", line " + std::to_string(line),
                 [&] { return KoTRCLoad(trc.get(), file.c_str()); });
    return captured.stop();
}

TEST_F(TrcTest, LoadTellsTheLineThatIsWrong) {
    const TemporaryFile empty("curve.txt", "");
    EXPECT_EQ(failed_load(empty, 1), "[ERROR] \"" + empty.path() + "\", line 1: can't read file\n");
    const TemporaryFile word("curve.txt", "RGBLinear\nbits 1\n");
    EXPECT_EQ(failed_load(word, 1),
              "[ERROR] \"" + word.path() + "\", line 1: \"RGBLinear\n\": Invalid value, must be GrayLinear\n");
    const TemporaryFile no_bits("curve.txt", "GrayLinear\n");
    EXPECT_EQ(failed_load(no_bits, 2), "[ERROR] \"" + no_bits.path() + "\", line 2: can't read file\n");
    const TemporaryFile bits("curve.txt", "GrayLinear\nbats 1\n");
    EXPECT_EQ(failed_load(bits, 2),
              "[ERROR] \"" + bits.path() + "\", line 2: \"bats 1\n\": Invalid value, must be bits <bit per pixel>\n");
    const TemporaryFile blank("curve.txt", "GrayLinear\nbits 1\n1\n\n2\n");
    EXPECT_EQ(failed_load(blank, 4), "[ERROR] \"" + blank.path() + "\", line 4: \"\n\": Invalid value, <GRAY>\n");
    const TemporaryFile open_end("curve.txt", "GrayLinear\nbits 1\n1\nx");
    EXPECT_EQ(failed_load(open_end, 4), "[ERROR] \"" + open_end.path() + "\", line 4: \"x\": Invalid value, <GRAY>\n");
}

TEST_F(TrcTest, LoadMissesTheLastOf256Entries) {
    std::string text = curve_text(gray_form, 8);
    text.resize(text.rfind('\n', text.size() - 2) + 1);
    const TemporaryFile file("curve.txt", text);
    EXPECT_EQ(failed_load(file, 258), "[ERROR] \"" + file.path() + "\", line 258: can't read file\n");
}

TEST_F(TrcTest, LoadOfAMissingFileWritesNoLine) {
    const TRCPtr trc = make_trc({3, 1});
    const std::string path = temporary_path("missing.txt");
    StderrCapture captured;
    expect_error(KO_ERR_OPEN_READ, "Cannot open file \"" + path + "\" for reading",
                 [&] { return KoTRCLoad(trc.get(), path.c_str()); });
    EXPECT_EQ(captured.stop(), "");
    EXPECT_EQ(entries_of(trc.get()), (Entries{3, 1}));
}

TEST_F(TrcTest, LoadOfAFolder) { expect_load(testing::TempDir()); }

void expect_loads(const std::vector<std::string> &texts) {
    for (const std::string &text : texts) {
        const TemporaryFile file("curve.txt", text);
        SCOPED_TRACE(testing::PrintToString(text.substr(0, 200)));
        expect_load(file.path());
        if (testing::Test::HasFailure()) {
            return;
        }
    }
}

TEST_F(TrcTest, LoadOfBrokenTextsIsAPlainReading) { expect_loads(broken_curve_texts(gray_form)); }

TEST_F(TrcTest, LoadOfGreedyTextsIsAPlainReading) { expect_loads(greedy_curve_texts(gray_form)); }

TEST_F(TrcTest, LoadOfNoiseIsAPlainReading) {
    for (uint32_t seed = 0; seed < 50; ++seed) {
        const std::vector<uint8_t> bytes = noise_bytes(3000, seed);
        const TemporaryFile file("curve.txt", std::string(bytes.begin(), bytes.end()));
        expect_load(file.path());
        const TemporaryFile behind("curve.txt", "GrayLinear\nbits 2\n" + std::string(bytes.begin(), bytes.end()));
        expect_load(behind.path());
    }
}

TEST_F(TrcTest, LoadThatAsksForTooMuchLeavesTheCurve) {
    for (const char *bits : {"29", "61", "4294967293"}) {
        const TemporaryFile file("curve.txt", "GrayLinear\nbits " + std::string(bits) + "\n0\n");
        const TRCPtr trc = make_trc({3, 1});
        const uint32_t *array = trc->array;
        KoStatusClear();
        StderrCapture captured;
        EXPECT_EQ(KoTRCLoad(trc.get(), file.c_str()), KO_ERR_ALLOC);
        EXPECT_EQ(captured.stop(), "[ERROR] Memory allocation failed: can't allocated -2147483648 bytes of memory\n");
        expect_status(KO_ERR_ALLOC, "Cannot allocate -2147483648 bytes");
        EXPECT_EQ(trc->array, array);
        EXPECT_EQ(entries_of(trc.get()), (Entries{3, 1}));
    }
}

// ---- application ----

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();

// Truncated toward zero to 64 bits, the low 32 of them; what does not fit counts as the most negative number.
uint32_t low_bits(float value) {
    if (!(std::fabs(value) < 9223372036854775808.0f)) {
        return 0;
    }
    return static_cast<uint32_t>(static_cast<int64_t>(value));
}

float looked_up(const Entries &entries, float pixel) {
    const size_t index = low_bits(pixel);
    return static_cast<float>(entries[std::min(index, entries.size() - 1)]);
}

std::vector<float> looked_up(const Entries &entries, const std::vector<float> &pixels) {
    std::vector<float> result;
    for (const float pixel : pixels) {
        result.push_back(looked_up(entries, pixel));
    }
    return result;
}

std::vector<float> applied(const Entries &entries, uint64_t width, const std::vector<float> &values) {
    const RealImagePtr image = make_image(width, values.size() / width, values);
    const TRCPtr trc = make_trc(entries);
    expect_success([&] { return KoTRCApplyToRealImage(trc.get(), image.get()); });
    EXPECT_TRUE(padding_is_zero(image.get()));
    EXPECT_EQ(entries_of(trc.get()), entries);
    return pixels(image.get());
}

TEST_F(TrcTest, ApplyTruncatesAndWrapsNegativeValuesToTheLastEntry) {
    EXPECT_EQ(applied({100, 101, 102, 103}, 5, {0.0f, 0.99f, 1.0f, 2.5f, 3.0f}), (std::vector<float>{100, 100, 101, 102, 103}));
    EXPECT_EQ(applied({100, 101, 102, 103}, 5, {-0.5f, -1.0f, 4.0f, 5.0f, 1e9f}),
              (std::vector<float>{100, 103, 103, 103, 103}));
}

TEST_F(TrcTest, ApplyTakesTheLow32BitsOfWhatIsBeyond) {
    const Entries entries = noise_entries(1024, 256, 6);
    EXPECT_EQ(applied(entries, 4, {4294967296.0f, 4294967808.0f, -4294967296.0f, 8589934592.0f}),
              (std::vector<float>{static_cast<float>(entries[0]), static_cast<float>(entries[512]),
                                  static_cast<float>(entries[0]), static_cast<float>(entries[0])}));
    EXPECT_EQ(applied(entries, 6, {not_a_number, infinity, -infinity, 1e30f, -1e30f, 9223372036854775808.0f}),
              std::vector<float>(6, static_cast<float>(entries[0])));
}

TEST_F(TrcTest, ApplyMakesTheFloatOfAnUnsignedEntry) {
    EXPECT_EQ(applied({4294967295u, 3000000000u, 16777217u}, 3, {0.0f, 1.0f, 2.0f}),
              (std::vector<float>{4294967296.0f, 3000000000.0f, 16777216.0f}));
}

std::vector<float> odd_pixels(uint64_t count, uint32_t seed) {
    const std::vector<float> odd{not_a_number, infinity, -infinity, -0.0f,         -0.99f, -1.0f,
                                 255.0f,       256.0f,   257.0f,    4294967296.0f, 1e20f};
    Noise noise(seed);
    std::vector<float> values;
    for (uint64_t i = 0; i < count; ++i) {
        values.push_back(i % 5 == 0 ? odd[i / 5 % odd.size()] : noise.uniform(-3.0f, 300.0f));
    }
    return values;
}

TEST_F(TrcTest, ApplyToImagesOfAllWidths) {
    for (uint64_t width = 1; width <= 17; ++width) {
        const std::vector<float> values = odd_pixels(width * 9, static_cast<uint32_t>(width));
        for (const uint64_t size : {uint64_t{1}, uint64_t{200}, uint64_t{256}, uint64_t{1024}}) {
            const Entries entries = noise_entries(size, 1u << 20, 7);
            EXPECT_EQ(applied(entries, width, values), looked_up(entries, values));
        }
    }
}

TEST_F(TrcTest, ApplyRefusesACurveWithoutEntries) {
    const TRCPtr trc(KoTRCNew(4));
    KoTRCFree(trc.get());
    const RealImagePtr image = make_image(2, 1, std::vector<float>{1.0f, 2.0f});
    expect_error(KO_ERR_NULL_POINTER, "Null pointer error", [&] { return KoTRCApplyToRealImage(trc.get(), image.get()); });
    EXPECT_EQ(pixels(image.get()), (std::vector<float>{1.0f, 2.0f}));
    const ColorImagePtr color = make_color_image(2, 1, KO_COLORSPACE_RGB, [](uint32_t, uint64_t, uint64_t) { return 1.0f; });
    EXPECT_EQ(KoTRCApplyToColorImage(trc.get(), color.get()), KO_ERR_NULL_POINTER);
}

TEST_F(TrcTest, ApplyToColorImageTakesEachChannelAlone) {
    const Entries entries = noise_entries(256, 4000000000u, 8);
    const TRCPtr trc = make_trc(entries);
    for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_YIQ, KO_COLORSPACE_GRAY}) {
        for (uint32_t width = 1; width <= 9; ++width) {
            const auto value = [&](uint32_t c, uint64_t x, uint64_t y) { return odd_pixels(200, c + 1)[y * width + x]; };
            const ColorImagePtr image = make_color_image(width, 5, space, value);
            const ColorImagePtr before = make_color_image(width, 5, space, value);
            expect_success([&] { return KoTRCApplyToColorImage(trc.get(), image.get()); });
            for (uint32_t c = 0; c < image->depth; ++c) {
                EXPECT_EQ(pixels(&image->planes[c]), looked_up(entries, pixels(&before->planes[c])));
                EXPECT_TRUE(padding_is_zero(&image->planes[c]));
            }
        }
    }
}

TEST_F(TrcTest, ApplyToColorImageRefusesOtherDepths) {
    const TRCPtr trc = make_trc({5, 6, 7});
    const ColorImagePtr image = make_color_image(2, 1, KO_COLORSPACE_RGB, [](uint32_t, uint64_t, uint64_t) { return 1.0f; });
    image->depth = 2;
    expect_error(KO_ERR_INVALID_ARGUMENT, "Invalid argument", [&] { return KoTRCApplyToColorImage(trc.get(), image.get()); });
    image->depth = 3;
    for (uint32_t c = 0; c < 3; ++c) {
        EXPECT_EQ(pixels(&image->planes[c]), (std::vector<float>{1.0f, 1.0f}));
    }
}

TEST_F(TrcTest, SeveralThreadsApplyOneCurve) {
    const Entries entries = noise_entries(256, 256, 9);
    const TRCPtr trc = make_trc(entries);
    const std::vector<float> values = odd_pixels(64 * 64, 10);
    std::vector<RealImagePtr> images;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        images.push_back(make_image(64, 64, values));
        threads.emplace_back([&trc, image = images.back().get()] { KoTRCApplyToRealImage(trc.get(), image); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    for (const RealImagePtr &image : images) {
        EXPECT_EQ(pixels(image.get()), looked_up(entries, values));
    }
}

} // namespace
