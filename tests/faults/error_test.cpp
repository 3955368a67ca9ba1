// Reports over an exhausted heap: what cannot be had is left out, what is told stays, and no report leads to another.
#include "ko/error.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "allocator_lines.h"
#include "capture.h"
#include "faults.h"
#include "ko/memory.h"
#include "library_test.h"

namespace {

using ko_test::allocator_line;
using ko_test::expect_status;
using ko_test::PrintCapture;
using ko_test::StderrCapture;
using ko_test::sweep_faults;
using Texts = std::vector<std::string>;

const std::string fatal = "Fatal Error. Cannot continue";
const std::string invalid = "Invalid argument";
const std::string no_message = "[FATAL ERROR] Cannot allocate memory for message";

int32_t apply_level(int32_t level, int32_t status) { return KoMessageSetLevel(level, status, "somewhere.cpp", 7); }

int64_t bytes_of(const std::string &text) { return static_cast<int64_t>(text.size()) + 1; }

// Runs work while the n-th allocation fails, which must happen; gives what was written to the standard error stream.
std::string with_fault(int64_t n, const std::function<void()> &work) {
    StderrCapture capture;
    KoTestFailAllocation(n);
    work();
    EXPECT_TRUE(KoTestFaultStruck());
    KoTestFailAllocation(0);
    return capture.stop();
}

std::string with_faults_from(int64_t n, const std::function<void()> &work) {
    StderrCapture capture;
    KoTestFailAllocationsFrom(n);
    work();
    KoTestFailAllocation(0);
    return capture.stop();
}

class ErrorFault : public ko_test::LibraryTest {
  protected:
    ErrorFault() { KoErrorFormatMessage(KO_ERR_FATAL); } // the message buffer exists at its first size

    PrintCapture printed_;
};

// Setting a status.

TEST_F(ErrorFault, FailedChainKeepsTheOldOne) {
    KoMsg(KO_ERR_FATAL);
    const std::string written = with_fault(1, [] { EXPECT_EQ(KoMsg(KO_ERR_INVALID_ARGUMENT), KO_ERR_INVALID_ARGUMENT); });
    EXPECT_EQ(written, allocator_line(bytes_of(invalid + "\n-> " + fatal)));
    expect_status(KO_ERR_INVALID_ARGUMENT, fatal);
}

TEST_F(ErrorFault, FailedFirstChainStaysEmpty) {
    EXPECT_EQ(with_fault(1, [] { KoMsg(KO_ERR_INVALID_ARGUMENT); }), allocator_line(bytes_of(invalid)));
    expect_status(KO_ERR_INVALID_ARGUMENT, "");
    KoMsg(KO_ERR_FATAL);
    expect_status(KO_ERR_FATAL, fatal);
}

// The newest message is set although the chain is not; the level then meets the old head, which kept its length.
TEST_F(ErrorFault, FailedChainKeepsTheNewestMessage) {
    KoMsg(KO_ERR_FATAL);
    with_fault(1, [] { KoMsg(KO_ERR_INVALID_ARGUMENT); });
    apply_level(KO_LEVEL_INTERNAL_ERROR, 10);
    EXPECT_EQ(printed_.texts(), Texts{"[INTERNAL ERROR] " + invalid});
    expect_status(KO_ERR_INVALID_ARGUMENT, "[INTERNAL ERROR] " + invalid);
}

TEST_F(ErrorFault, StatusOfZeroNeedsNoMemory) {
    KoMsg(KO_ERR_FATAL);
    const std::string written = with_faults_from(1, [] { EXPECT_EQ(KoMsg(KO_OK), 0); });
    EXPECT_EQ(written, "");
    expect_status(0, fatal);
}

// The formatting buffer.

// A growth frees the old buffer first; the literal takes the message's place and enters the chain like any text.
TEST_F(ErrorFault, FailedGrowthGivesTheFatalLiteral) {
    const std::string name(300, 'n');
    const std::string whole = "Cannot close file \"" + name + "\"";
    const std::string written = with_fault(1, [&] { EXPECT_EQ(KoMsg(KO_ERR_CLOSE, name.c_str()), KO_ERR_CLOSE); });
    EXPECT_EQ(written, allocator_line(bytes_of(whole)));
    expect_status(KO_ERR_ALLOC, no_message);
    EXPECT_EQ(KoErrorFormatMessage(KO_ERR_CLOSE, name.c_str()), whole);
    KoMsg(KO_ERR_FATAL);
    expect_status(KO_ERR_FATAL, fatal + "\n-> " + no_message);
}

TEST_F(ErrorFault, FailedFirstBufferGivesTheFatalLiteral) {
    std::thread([] {
        KoErrorGetLastError(); // the record
        const std::string written = with_fault(1, [] { EXPECT_EQ(KoErrorFormatMessage(KO_ERR_FATAL), no_message); });
        EXPECT_EQ(written, allocator_line(50));
        expect_status(KO_ERR_ALLOC, "");
        EXPECT_EQ(KoErrorFormatMessage(KO_ERR_FATAL), fatal);
    }).join();
}

TEST_F(ErrorFault, BufferNeverShrinks) {
    KoErrorFormatMessage(KO_ERR_CLOSE, std::string(1000, 'n').c_str());
    const std::string written = with_faults_from(1, [] {
        EXPECT_EQ(KoErrorFormatMessage(KO_ERR_FATAL), fatal);
        const std::string name(990, 'm');
        EXPECT_EQ(KoErrorFormatMessage(KO_ERR_CLOSE, name.c_str()), "Cannot close file \"" + name + "\"");
    });
    EXPECT_EQ(written, "");
}

// Levels: the copy of the text is the first allocation, the new chain the last.

TEST_F(ErrorFault, FailedCopyLeavesTheTextBare) {
    KoMsg(KO_ERR_FATAL);
    KoMsg(KO_ERR_INVALID_ARGUMENT);
    const std::string written = with_fault(1, [] { EXPECT_EQ(apply_level(KO_LEVEL_INTERNAL_ERROR, 10), 10); });
    EXPECT_EQ(written, allocator_line(bytes_of(invalid)));
    EXPECT_EQ(printed_.texts(), Texts{invalid});
    EXPECT_EQ(KoErrorGetLastErrorMessage(), invalid + "\n-> " + fatal);
}

TEST_F(ErrorFault, FailedCopyOfAnyTextLeavesItBare) {
    const std::string written = with_fault(1, [] {
        const char *const text = "any text";
        EXPECT_STREQ(KoErrorAddLevel(KO_LEVEL_INTERNAL_ERROR, text, "somewhere.cpp", 7), text);
    });
    EXPECT_EQ(written, allocator_line(bytes_of("any text")));
    EXPECT_EQ(printed_.texts(), Texts{"any text"});
    EXPECT_STREQ(KoErrorGetLastErrorMessage(), "");
}

TEST_F(ErrorFault, FailedDecorationGivesTheFatalLiteral) {
    KoMsg(KO_ERR_CLOSE, std::string(28, 'n').c_str()); // 48 characters, and too many with a decoration
    const std::string whole = "[INTERNAL ERROR] Cannot close file \"" + std::string(28, 'n') + "\"";
    EXPECT_EQ(with_fault(2, [] { apply_level(KO_LEVEL_INTERNAL_ERROR, KO_ERR_CLOSE); }), allocator_line(bytes_of(whole)));
    EXPECT_EQ(printed_.texts(), Texts{no_message});
    EXPECT_EQ(KoErrorGetLastErrorMessage(), no_message);
}

TEST_F(ErrorFault, FailedChainOfALevelKeepsTheOldOne) {
    for (const int32_t level : {KO_LEVEL_INFO, KO_LEVEL_WARNING, KO_LEVEL_INTERNAL_ERROR}) {
        KoStatusClear();
        KoMsg(KO_ERR_FATAL);
        KoMsg(KO_ERR_INVALID_ARGUMENT);
        const std::string head =
            level == KO_LEVEL_INFO ? "" : std::string(level == KO_LEVEL_WARNING ? "[WARNING] " : "[INTERNAL ERROR] ") + invalid;
        EXPECT_EQ(with_fault(2, [&] { apply_level(level, 10); }), allocator_line(bytes_of(head + "\n-> " + fatal)));
        expect_status(KO_ERR_INVALID_ARGUMENT, invalid + "\n-> " + fatal);
    }
    EXPECT_EQ(printed_.texts(), Texts{"[INTERNAL ERROR] " + invalid});
}

// The thread's record.

TEST_F(ErrorFault, ThreadWithoutARecord) {
    std::thread([] {
        const std::string written = with_faults_from(1, [] {
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_ALLOC);
            EXPECT_STREQ(KoErrorGetLastErrorMessage(), "");
            EXPECT_EQ(KoMsg(KO_ERR_FATAL), KO_ERR_FATAL);
            EXPECT_EQ(KoMsg(8), 8);
            EXPECT_EQ(apply_level(KO_LEVEL_ERROR, 10), 10);
            EXPECT_NE(KoErrorFormatMessage(KO_ERR_FATAL), nullptr);
            EXPECT_NE(KoErrorAddLevel(KO_LEVEL_ERROR, "any text", "somewhere.cpp", 7), nullptr);
            EXPECT_EQ(KoStatusClear(), 0);
            EXPECT_EQ(KoStatusClearMessage(), 0);
            EXPECT_EQ(KoMalloc(5), nullptr);
        });
        EXPECT_EQ(written.find("[ERROR] Memory allocation failed: can't allocated "), 0u);
        EXPECT_EQ(KoErrorGetLastError(), 0);
        KoMsg(KO_ERR_FATAL);
        expect_status(KO_ERR_FATAL, fatal);
        KoStatusClear();
    }).join();
}

// Everything at once.

void report_in_every_way() {
    KoMsg(KO_ERR_ALLOC, 56);
    KoMessageSetStatus(KO_ERR_CREATE_OBJECT, "RealImage");
    apply_level(KO_LEVEL_ERROR, KO_ERR_CREATE_OBJECT);
    KoMsg(8);
    KoErrorFormatMessage(9);
    KoErrorAddLevel(KO_LEVEL_UNKNOWN, "any text", "somewhere.cpp", 7);
    apply_level(KO_LEVEL_INFO, KoMsg(KO_ERR_CLOSE, std::string(100, 'n').c_str()));
    KoErrorSetVerboseLevel("nonsense");
    KoErrorGetLastErrorMessage();
    KoMsg(KO_OK);
}

TEST_F(ErrorFault, SweepOverAllReports) { EXPECT_EQ(sweep_faults(report_in_every_way), 14); }

// From the n-th allocation on all fail, the growth of the message buffer among them.
TEST_F(ErrorFault, SweepOverAllReportsThatNeverRecovers) {
    bool struck = true;
    for (int n = 1; struck; ++n) {
        std::thread([&] {
            const std::string written = with_faults_from(n, [&] {
                report_in_every_way();
                struck = KoTestFaultStruck() != 0;
            });
            EXPECT_EQ(struck, !written.empty());
            KoMsg(KO_ERR_FATAL);
            EXPECT_EQ(KoErrorGetLastError(), KO_ERR_FATAL);
            KoStatusClear();
        }).join();
        ASSERT_LT(n, 1000);
    }
}

} // namespace
