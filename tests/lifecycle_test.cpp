// Start and end: the count, repeated cycles, what outlives them, the slots of the text format, and the switch for packed
// arithmetic.
#include "ko/lifecycle.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>
#include <xmmintrin.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <cerrno>
#include <pthread.h>
#endif

#include "capture.h"
#include "ko/error.h"
#include "ko/imageformat.h"
#include "ko/memory.h"

namespace {

using ko_test::PrintCapture;
using ko_test::StderrCapture;
using Texts = std::vector<std::string>;

void set_variable(const char *name, const char *value) {
#ifdef _WIN32
    _putenv_s(name, value == nullptr ? "" : value);
#else
    value == nullptr ? unsetenv(name) : setenv(name, value, 1);
#endif
}

// Nothing but the tests themselves starts the library here; each ends what it began.
TEST(Lifecycle, UnmatchedReleaseDoesNothing) {
    EXPECT_EQ(KoRelease(), 0);
    EXPECT_EQ(KoRelease(), 0);
    EXPECT_EQ(KoInit(nullptr, nullptr), 0);
    EXPECT_EQ(KoInit(nullptr, nullptr), 2);
    EXPECT_EQ(KoRelease(), 1);
    EXPECT_EQ(KoRelease(), 0);
    EXPECT_EQ(KoRelease(), 0);
    EXPECT_EQ(KoRelease(), 0);
}

TEST(Lifecycle, CallsAreCounted) {
    EXPECT_EQ(KoInit(nullptr, nullptr), 0);
    for (int32_t count = 2; count <= 5; ++count) {
        EXPECT_EQ(KoInit(nullptr, nullptr), count);
    }
    for (int32_t count = 4; count >= 0; --count) {
        EXPECT_EQ(KoRelease(), count);
    }
}

TEST(Lifecycle, OnlyTheLastReleaseEnds) {
    KoInit(nullptr, nullptr);
    KoMsg(KO_ERR_FATAL);
    EXPECT_EQ(KoInit(nullptr, nullptr), 2);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_FATAL);
    EXPECT_EQ(KoRelease(), 1);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_FATAL);
    EXPECT_STREQ(KoErrorGetLastErrorMessage(), "Fatal Error. Cannot continue");
    EXPECT_EQ(KoRelease(), 0);
}

TEST(Lifecycle, CyclesStartAfresh) {
    for (int cycle = 0; cycle < 5; ++cycle) {
        ASSERT_EQ(KoInit(nullptr, nullptr), 0);
        EXPECT_EQ(KoErrorGetLastError(), 0);
        EXPECT_STREQ(KoErrorGetLastErrorMessage(), "");
        KoMsg(KO_ERR_FATAL);
        KoErrorFormatMessage(KO_ERR_CLOSE, std::string(300, 'n').c_str());
        KoFree(KoMalloc(100));
        ASSERT_EQ(KoRelease(), 0);
    }
}

// Cycles may move from thread to thread as long as one ends before the next begins.
TEST(Lifecycle, CyclesOnOtherThreads) {
    for (int cycle = 0; cycle < 3; ++cycle) {
        std::thread([] {
            EXPECT_EQ(KoInit(nullptr, nullptr), 0);
            EXPECT_EQ(KoErrorGetLastError(), 0);
            KoMsg(KO_ERR_FATAL);
            EXPECT_EQ(KoRelease(), 0);
        }).join();
    }
}

// The words are for a plug-in; without one they mean nothing.
TEST(Lifecycle, StartWithoutAPlugInIsSilent) {
    PrintCapture printed("debug");
    StderrCapture capture;
    int32_t word = 0;
    EXPECT_EQ(KoInit(&word, &word), 0);
    EXPECT_EQ(KoErrorGetLastError(), 0);
    EXPECT_STREQ(KoErrorGetLastErrorMessage(), "");
    EXPECT_EQ(KoRelease(), 0);
    EXPECT_EQ(capture.stop(), "");
    EXPECT_EQ(printed.texts(), Texts{});
}

TEST(Lifecycle, VerbosityAndPrintFunctionOutliveTheEnd) {
    KoInit(nullptr, nullptr);
    PrintCapture printed("warning");
    KoRelease();
    EXPECT_EQ(KoErrorGetVerboseLevel(), 3);
    KoInit(nullptr, nullptr);
    EXPECT_EQ(KoErrorGetVerboseLevel(), 3);
    KoMessageSetLevel(KO_LEVEL_WARNING, KoMsg(KO_ERR_FATAL), "somewhere.cpp", 7);
    EXPECT_EQ(printed.texts(), Texts{"[WARNING] Fatal Error. Cannot continue"});
    KoRelease();
}

// The slots of image files.

int32_t load_nothing(RealImage *, const char *) { return KO_OK; }
int32_t save_nothing(const RealImage *, const char *, float, float) { return KO_OK; }
int32_t load_no_colors(ColorImage *, const char *, double, double) { return KO_OK; }
int32_t save_no_colors(const ColorImage *, const char *, float, float) { return KO_OK; }

void expect_slot(int32_t type, KoRealImageLoadFunction load, KoRealImageSaveFunction save, KoColorImageLoadFunction load_color,
                 KoColorImageSaveFunction save_color) {
    SCOPED_TRACE(type);
    EXPECT_EQ(KoRealImageGetLoadFunction(type), load);
    EXPECT_EQ(KoRealImageGetSaveFunction(type), save);
    EXPECT_EQ(KoColorImageGetLoadFunction(type), load_color);
    EXPECT_EQ(KoColorImageGetSaveFunction(type), save_color);
}

void expect_text_slot() {
    expect_slot(KO_IMAGE_FORMAT_TEXT, KoRealImageLoadTXT, KoRealImageSaveTXT, KoColorImageLoadTXT, KoColorImageSaveTXT);
}

void expect_empty_slot(int32_t type) { expect_slot(type, nullptr, nullptr, nullptr, nullptr); }

void expect_own_slot(int32_t type) { expect_slot(type, load_nothing, save_nothing, load_no_colors, save_no_colors); }

void set_slot(int32_t type, bool own) {
    KoRealImageSetLoadFunction(type, own ? load_nothing : nullptr);
    KoRealImageSetSaveFunction(type, own ? save_nothing : nullptr);
    KoColorImageSetLoadFunction(type, own ? load_no_colors : nullptr);
    KoColorImageSetSaveFunction(type, own ? save_no_colors : nullptr);
}

TEST(Lifecycle, TheTextFormatIsThereFromStartToEnd) {
    for (int cycle = 0; cycle < 3; ++cycle) {
        for (const int32_t type : {0, 1, 2, 3}) {
            expect_empty_slot(type);
        }
        KoInit(nullptr, nullptr);
        expect_text_slot();
        for (const int32_t type : {0, 2, 3}) {
            expect_empty_slot(type);
        }
        KoInit(nullptr, nullptr);
        expect_text_slot();
        KoRelease();
        expect_text_slot();
        KoRelease();
    }
    expect_empty_slot(KO_IMAGE_FORMAT_TEXT);
}

TEST(Lifecycle, OtherSlotsOutliveTheEnd) {
    for (const int32_t type : {0, 2, 3}) {
        set_slot(type, true);
    }
    KoInit(nullptr, nullptr);
    for (const int32_t type : {0, 2, 3}) {
        expect_own_slot(type);
    }
    KoRelease();
    for (const int32_t type : {0, 2, 3}) {
        expect_own_slot(type);
        set_slot(type, false);
        expect_empty_slot(type);
    }
}

// The first start sets the text format's slots and the last end clears them, whatever stands there; those between do neither.
TEST(Lifecycle, OnlyTheOutermostPairSetsTheTextFormat) {
    set_slot(KO_IMAGE_FORMAT_TEXT, true);
    KoInit(nullptr, nullptr);
    expect_text_slot();
    set_slot(KO_IMAGE_FORMAT_TEXT, true);
    KoInit(nullptr, nullptr);
    expect_own_slot(KO_IMAGE_FORMAT_TEXT);
    KoRelease();
    expect_own_slot(KO_IMAGE_FORMAT_TEXT);
    KoRelease();
    expect_empty_slot(KO_IMAGE_FORMAT_TEXT);
    set_slot(KO_IMAGE_FORMAT_TEXT, true);
    KoRelease(); // unmatched
    expect_own_slot(KO_IMAGE_FORMAT_TEXT);
    set_slot(KO_IMAGE_FORMAT_TEXT, false);
}

// The variable SSE.

class Variable : public testing::TestWithParam<const char *> {
  protected:
    void SetUp() override { set_variable("SSE", GetParam()); }
    void TearDown() override { set_variable("SSE", nullptr); }

    static void expect_unavailable_throughout() {
        EXPECT_EQ(KoSSEIsAvailable(), 0);
        EXPECT_EQ(KoInit(nullptr, nullptr), 0);
        EXPECT_EQ(KoSSEIsAvailable(), 0);
        EXPECT_EQ(KoInit(nullptr, nullptr), 2);
        KoSSEInit();
        EXPECT_EQ(KoSSEIsAvailable(), 0);
        EXPECT_EQ(KoErrorGetLastError(), 0);
        KoRelease();
        EXPECT_EQ(KoRelease(), 0);
        EXPECT_EQ(KoSSEIsAvailable(), 0);
    }
};

class VariableThatDisables : public Variable {};

// One line for the outermost start, none for the nested one, one for the direct call.
TEST_P(VariableThatDisables, WritesItsLineOncePerCycle) {
    const PrintCapture printed("debug");
    for (int cycle = 0; cycle < 2; ++cycle) {
        StderrCapture capture;
        expect_unavailable_throughout();
        EXPECT_EQ(capture.stop(), "[INFO] SSE2 disabled\n[INFO] SSE2 disabled\n");
    }
    StderrCapture capture;
    KoInit(nullptr, nullptr);
    KoInit(nullptr, nullptr);
    KoRelease();
    KoRelease();
    EXPECT_EQ(capture.stop(), "[INFO] SSE2 disabled\n");
    EXPECT_EQ(printed.texts(), Texts{});
}

INSTANTIATE_TEST_SUITE_P(Words, VariableThatDisables, testing::Values("false", "FALSE", "False", "fAlSe"));

class VariableWithoutEffect : public Variable {};

TEST_P(VariableWithoutEffect, WritesNothing) {
    const PrintCapture printed("debug");
    StderrCapture capture;
    expect_unavailable_throughout();
    EXPECT_EQ(capture.stop(), "");
    EXPECT_EQ(printed.texts(), Texts{});
}

INSTANTIATE_TEST_SUITE_P(Words, VariableWithoutEffect,
                         testing::Values(nullptr, "", "true", "TRUE", "0", "1", "no", "fals", "falsee", " false", "false "));

// The environment of floating-point arithmetic stays the host's, denormals included.
TEST(Lifecycle, FloatingPointStateIsTheHosts) {
    constexpr unsigned denormals_are_zero = 0x40;
    constexpr unsigned flush_to_zero = 0x8000;
    const unsigned saved = _mm_getcsr();
    const int saved_rounding = std::fegetround();
    for (const unsigned flags : {0u, denormals_are_zero, flush_to_zero, denormals_are_zero | flush_to_zero}) {
        for (const int rounding : {FE_TONEAREST, FE_TOWARDZERO, FE_UPWARD, FE_DOWNWARD}) {
            std::fesetround(rounding);
            _mm_setcsr((_mm_getcsr() & ~(denormals_are_zero | flush_to_zero)) | flags);
            const unsigned before = _mm_getcsr();
            EXPECT_EQ(KoSSESetDenormalAsZeroFlag(), 0);
            EXPECT_EQ(_mm_getcsr(), before);
            KoSSEInit();
            KoSSEIsAvailable();
            EXPECT_EQ(_mm_getcsr(), before);
            EXPECT_EQ(std::fegetround(), rounding);
        }
    }
    std::fesetround(saved_rounding);
    _mm_setcsr(saved);
}

// A start may raise exception flags by its arithmetic; the modes that the host chose stay.
TEST(Lifecycle, StartLeavesTheFloatingPointModes) {
    constexpr unsigned modes = 0xffc0;
    const unsigned saved = _mm_getcsr();
    for (const unsigned flags : {0u, 0x8040u}) {
        _mm_setcsr((saved & ~0x8040u) | flags);
        const unsigned before = _mm_getcsr() & modes;
        KoInit(nullptr, nullptr);
        EXPECT_EQ(_mm_getcsr() & modes, before);
        KoRelease();
        EXPECT_EQ(_mm_getcsr() & modes, before);
    }
    _mm_setcsr(saved);
}

// A system without a free slot for a value per thread.

#ifdef _WIN32
using Slot = DWORD;
bool take_slot(Slot *slot) { return (*slot = TlsAlloc()) != TLS_OUT_OF_INDEXES; }
void give_slot_back(Slot slot) { TlsFree(slot); }
int code_of_the_failure() { return static_cast<int>(GetLastError()); }
void forget_the_failure() { SetLastError(0); }
#else
using Slot = pthread_key_t;
bool take_slot(Slot *slot) { return (errno = pthread_key_create(slot, nullptr)) == 0; }
void give_slot_back(Slot slot) { pthread_key_delete(slot); }
int code_of_the_failure() { return errno; }
void forget_the_failure() { errno = 0; }
#endif

TEST(Lifecycle, StartGoesOnWithoutASlot) {
    std::vector<Slot> slots;
    Slot slot{};
    while (take_slot(&slot)) {
        slots.push_back(slot);
    }
    const std::string line = "INTERNAL ERROR in TlsAlloc: " + std::to_string(code_of_the_failure()) + "\n";
    forget_the_failure();
    StderrCapture capture;
    EXPECT_EQ(KoInit(nullptr, nullptr), 0);
    EXPECT_EQ(KoRelease(), 0);
    EXPECT_EQ(capture.stop(), line);
    for (const Slot taken : slots) {
        give_slot_back(taken);
    }
    EXPECT_EQ(KoInit(nullptr, nullptr), 0);
    KoMsg(KO_ERR_FATAL);
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_FATAL);
    EXPECT_EQ(KoRelease(), 0);
}

} // namespace
