// The plug-in for image files: found by its bare name, initialised, released and unloaded in the told order, or missing.
// Runs in a folder of its own where the system's loader looks; each test puts the plug-in there that it is about.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "capture.h"
#include "ko/error.h"
#include "ko/lifecycle.h"
#include "log.h"
#include "slot.h"

namespace {

using namespace ko_test;

const std::string here = ".";

constexpr uint64_t first_word = 0xfedcba9800000007;
constexpr uint64_t second_word = 0x0123456789abcdef;

class Plugin : public testing::Test {
  protected:
    void SetUp() override {
        take_plugin_away(here);
        take_log();
        stopped_slot_ = next_slot();
    }

    void TearDown() override { take_plugin_away(here); }

    // What the last release gives when it unloads: what the system's own call gives.
    static void expect_unloaded(int32_t result) {
#ifdef _WIN32
        EXPECT_NE(result, 0);
        EXPECT_NE(result, 77);
#else
        EXPECT_EQ(result, 0);
#endif
    }

    // Runs one cycle with the plug-in of the folder ../variant and expects what a plug-in with both entries notes.
    void run_full_cycle() const {
        put_plugin("full", here);
        EXPECT_EQ(KoInit(word(first_word), word(second_word)), 7);
        EXPECT_EQ(take_log(), "load\n" + init_line(first_word, second_word, next_slot()));
        expect_unloaded(KoRelease());
        EXPECT_EQ(take_log(), release_line(stopped_slot_) + "unload\n");
    }

    void run_cycle_without_release() const {
        put_plugin("init_only", here);
        EXPECT_EQ(KoInit(word(first_word), word(second_word)), 7);
        EXPECT_EQ(take_log(), "load\n" + init_line(first_word, second_word, next_slot()));
        expect_unloaded(KoRelease());
        EXPECT_EQ(take_log(), "unload\n");
    }

    // A plug-in without KoIOInit is not asked for KoIORelease either, but it is kept and unloaded.
    static void run_cycle_without_init(const std::string &variant) {
        put_plugin(variant, here);
        EXPECT_EQ(KoInit(word(first_word), word(second_word)), 0);
        EXPECT_EQ(take_log(), "load\n");
        expect_unloaded(KoRelease());
        EXPECT_EQ(take_log(), "unload\n");
    }

    static void run_cycle_without_plugin() {
        take_plugin_away(here);
        EXPECT_EQ(KoInit(word(first_word), word(second_word)), 0);
        EXPECT_EQ(KoRelease(), 0);
        EXPECT_EQ(take_log(), "");
    }

    unsigned stopped_slot_ = 0;
};

// The tests below tell by the slot whether the status service runs; here is why they can.
TEST_F(Plugin, TheNextSlotTellsWhetherTheServiceRuns) {
    KoInit(nullptr, nullptr);
    EXPECT_NE(next_slot(), stopped_slot_);
    KoRelease();
    EXPECT_EQ(next_slot(), stopped_slot_);
}

// KoIOInit runs while the status service does, KoIORelease after its end.
TEST_F(Plugin, WithBothEntries) { run_full_cycle(); }

TEST_F(Plugin, WithoutRelease) { run_cycle_without_release(); }

TEST_F(Plugin, WithoutAnyEntry) { run_cycle_without_init("no_entry"); }

TEST_F(Plugin, WithReleaseOnly) { run_cycle_without_init("release_only"); }

TEST_F(Plugin, Missing) { run_cycle_without_plugin(); }

TEST_F(Plugin, ThatIsNoLibraryCountsAsMissing) {
    write_bytes(plugin_name, "no library");
    StderrCapture capture;
    EXPECT_EQ(KoInit(nullptr, nullptr), 0);
    EXPECT_EQ(KoErrorGetLastError(), 0);
    EXPECT_EQ(KoRelease(), 0);
    EXPECT_EQ(capture.stop(), "");
}

TEST_F(Plugin, ReportsNothingWhateverIsFound) {
    for (const char *variant : {"full", "init_only", "no_entry", "release_only", ""}) {
        variant[0] == '\0' ? take_plugin_away(here) : put_plugin(variant, here);
        const PrintCapture printed("debug");
        StderrCapture capture;
        KoInit(nullptr, nullptr);
        EXPECT_EQ(KoErrorGetLastError(), 0) << variant;
        EXPECT_STREQ(KoErrorGetLastErrorMessage(), "") << variant;
        KoRelease();
        EXPECT_EQ(capture.stop(), "") << variant;
        EXPECT_TRUE(printed.texts().empty()) << variant;
    }
}

TEST_F(Plugin, FurtherStartsDropTheirWords) {
    put_plugin("full", here);
    EXPECT_EQ(KoInit(word(first_word), word(second_word)), 7);
    take_log();
    EXPECT_EQ(KoInit(word(1), word(2)), 2);
    EXPECT_EQ(KoInit(nullptr, nullptr), 3);
    EXPECT_EQ(KoRelease(), 2);
    EXPECT_EQ(KoRelease(), 1);
    EXPECT_EQ(take_log(), "");
    expect_unloaded(KoRelease());
    EXPECT_EQ(take_log(), release_line(stopped_slot_) + "unload\n");
    EXPECT_EQ(KoRelease(), 0);
    EXPECT_EQ(take_log(), "");
}

// The plug-in's result is the caller's affair alone: whatever it is, the library counts as started.
TEST_F(Plugin, AnyResultIsHandedOn) {
    put_plugin("full", here);
    for (const int32_t result : {0, 1, 2, -5, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(KoInit(word(static_cast<uint32_t>(result)), nullptr), result);
        EXPECT_EQ(KoErrorGetLastError(), 0);
        EXPECT_EQ(KoInit(nullptr, nullptr), 2);
        EXPECT_EQ(KoRelease(), 1);
        expect_unloaded(KoRelease());
    }
}

// Words of null are handed on like any others.
TEST_F(Plugin, NullWords) {
    put_plugin("full", here);
    EXPECT_EQ(KoInit(nullptr, nullptr), 0);
    EXPECT_EQ(take_log(), "load\n" + init_line(0, 0, next_slot()));
    KoRelease();
}

TEST_F(Plugin, EveryCycleLoadsAndUnloads) {
    for (int cycle = 0; cycle < 3; ++cycle) {
        run_full_cycle();
    }
}

// A release entry that is remembered from an earlier cycle is called only while its module is loaded.
TEST_F(Plugin, RememberedReleaseIsNotCalledAfterItsModule) {
    run_full_cycle();
    run_cycle_without_plugin();
    run_cycle_without_plugin();
    run_full_cycle();
    run_cycle_without_init("no_entry");
    run_full_cycle();
    run_cycle_without_init("release_only");
    run_full_cycle();
    run_cycle_without_release();
    run_cycle_without_plugin();
    run_cycle_without_init("no_entry");
    run_full_cycle();
}

} // namespace
