// Single curves when memory runs short.
#include <vector>

#include <gtest/gtest.h>

#include "ko/trc.h"

#include "capture.h"
#include "curve_texts.h"
#include "faults.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"

namespace {

using namespace ko_test;

using Entries = std::vector<uint32_t>;

class TrcFaultTest : public LibraryTest {};

bool struck() { return KoTestFaultStruck() != 0; }

TEST_F(TrcFaultTest, NewGivesNullAndNamesTheObject) {
    const int faults = sweep_faults([] {
        const TRCPtr trc(KoTRCNew(256));
        EXPECT_EQ(trc == nullptr, struck());
        EXPECT_EQ(KoErrorGetLastError(), struck() ? KO_ERR_CREATE_OBJECT : KO_OK);
    });
    EXPECT_GE(faults, 2); // record and array
}

TEST_F(TrcFaultTest, NewLeavesTheWholeChain) {
    StderrCapture captured;
    KoTestFailAllocation(2);
    EXPECT_EQ(KoTRCNew(256), nullptr);
    KoTestFailAllocation(0);
    EXPECT_EQ(captured.stop(), "[ERROR] Memory allocation failed: can't allocated 1024 bytes of memory\n");
    expect_status(KO_ERR_CREATE_OBJECT, "Cannot create object \"TRC\"\n-> Cannot allocate 1024 bytes");
}

TEST_F(TrcFaultTest, InitGivesTheLastError) {
    const int faults = sweep_faults([] {
        TRC trc{0, nullptr};
        const int32_t status = KoTRCInit(&trc, 256);
        EXPECT_EQ(status, struck() ? KO_ERR_ALLOC : KO_OK);
        EXPECT_EQ(trc.array == nullptr, struck());
        EXPECT_EQ(KoTRCFree(&trc), KO_OK);
    });
    EXPECT_GE(faults, 1);
}

TEST_F(TrcFaultTest, SetSizeSucceedsWithoutAnArray) {
    TRC trc{0, nullptr};
    const int faults = sweep_faults([&] {
        EXPECT_EQ(KoTRCSetSize(&trc, 20), KO_OK);
        EXPECT_EQ(trc.size, 20u);
        EXPECT_EQ(trc.array == nullptr, struck());
        EXPECT_EQ(KoErrorGetLastError(), struck() ? KO_ERR_ALLOC : KO_OK);
        KoTRCFree(&trc);
        trc.size = 0;
    });
    EXPECT_GE(faults, 1);
}

class TrcResizeFaultTest : public TrcFaultTest, public testing::WithParamInterface<uint64_t> {};

TEST_P(TrcResizeFaultTest, LeavesTheCurveAsItWas) {
    const Entries old{0, 10, 20, 40, 80, 160, 320, 640};
    const TRCPtr trc = make_trc(old);
    const int faults = sweep_faults([&] {
        const int32_t status = KoTRCResize(trc.get(), GetParam());
        EXPECT_EQ(status, struck() ? KO_ERR_ALLOC : KO_OK);
        if (struck()) {
            EXPECT_EQ(entries_of(trc.get()), old);
        }
    });
    EXPECT_GE(faults, 1);
    EXPECT_EQ(trc->size, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Sizes, TrcResizeFaultTest, testing::Values(4, 5, 16, 65536));

TEST_F(TrcFaultTest, SetComposeSucceedsAndLeavesTheCurve) {
    const Entries old{0, 1, 2};
    const Entries first{2, 1, 0};
    const Entries second{7, 8, 9};
    const TRCPtr trc = make_trc(old);
    const int faults = sweep_faults([&] {
        EXPECT_EQ(KoTRCSetCompose(trc.get(), first.data(), second.data()), KO_OK);
        EXPECT_EQ(entries_of(trc.get()), struck() ? old : (Entries{9, 8, 7}));
    });
    EXPECT_GE(faults, 1);
}

// The composition into a new curve succeeds as a call even when its array cannot be had; then the entries are not set.
TEST_F(TrcFaultTest, NewComposeGivesACurveOrNull) {
    const Entries first{2, 1, 0};
    const Entries second{7, 8, 9};
    const int faults = sweep_faults([&] {
        const TRCPtr trc(KoTRCNewCompose(first.data(), second.data(), 3));
        if (!struck()) {
            EXPECT_EQ(entries_of(trc.get()), (Entries{9, 8, 7}));
        } else if (trc == nullptr) {
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_CREATE_OBJECT);
        } else {
            EXPECT_NE(trc->array, nullptr);
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_ALLOC);
        }
    });
    EXPECT_GE(faults, 2);
}

TEST_F(TrcFaultTest, LoadLeavesTheCurveAsItWas) {
    const TemporaryFile file("curve.txt", curve_text(gray_form, 3));
    const Entries old{5, 6, 7};
    const TRCPtr trc = make_trc(old);
    TRC bare{8, nullptr};
    const auto load = [&](TRC *target) {
        const int32_t status = KoTRCLoad(target, file.c_str());
        EXPECT_EQ(status, struck() ? KO_ERR_ALLOC : KO_OK);
    };
    EXPECT_GE(sweep_faults([&] {
                  load(trc.get());
                  EXPECT_TRUE(!struck() || entries_of(trc.get()) == old);
              }),
              1);
    EXPECT_EQ(entries_of(trc.get()), (Entries{0, 10, 20, 30, 40, 50, 60, 70}));
    EXPECT_GE(sweep_faults([&] {
                  load(&bare);
                  EXPECT_EQ(bare.array == nullptr, struck());
                  KoTRCFree(&bare);
              }),
              1);
}

// A report needs memory too: without it the call still says what it has to.
TEST_F(TrcFaultTest, ReportsSurviveShortMemory) {
    const TRCPtr trc = make_trc({1, 2, 3});
    const TemporaryFile file("curve.txt", "GrayLinear\nbits 1\nnothing\n");
    sweep_faults([&] { EXPECT_EQ(KoTRCSetSize(trc.get(), 0), KO_ERR_INDEX_OUT_OF_BOUNDS); });
    sweep_faults([&] { EXPECT_EQ(KoTRCSetArray(trc.get(), nullptr, 3), KO_ERR_INVALID_ARGUMENT); });
    sweep_faults([&] { EXPECT_EQ(KoTRCLoad(trc.get(), "no such file"), KO_ERR_OPEN_READ); });
    sweep_faults([&] {
        const int32_t status = KoTRCLoad(trc.get(), file.c_str());
        EXPECT_TRUE(status == KO_ERR_READ_LINE || (struck() && status == KO_ERR_ALLOC)) << status;
    });
}

} // namespace
