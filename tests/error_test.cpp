// Status, chain, levels and verbosity: the texts word for word, the order of the steps, and a model of the whole in plain
// strings that long random sequences are held against.
#include "ko/error.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "capture.h"
#include "ko/lifecycle.h"
#include "library_test.h"

namespace {

using ko_test::expect_status;
using ko_test::PrintCapture;
using ko_test::StderrCapture;
using Texts = std::vector<std::string>;

int32_t apply_level(int32_t level, int32_t status) { return KoMessageSetLevel(level, status, "somewhere.cpp", 7); }

std::string chain() { return KoErrorGetLastErrorMessage(); }

void on_new_thread(const std::function<void()> &work) { std::thread(work).join(); }

// What the process starts with, looked at before any test changes it.
struct FirstLook {
    int32_t verbosity = 0;
    std::string printed;
} first_look;

class Library : public testing::Environment {
    void SetUp() override {
        ASSERT_EQ(KoInit(nullptr, nullptr), 0);
        first_look.verbosity = KoErrorGetVerboseLevel();
        StderrCapture capture;
        apply_level(KO_LEVEL_ERROR, KoMsg(KO_ERR_NULL_POINTER));
        apply_level(KO_LEVEL_INTERNAL_ERROR, KoMsg(KO_ERR_INVALID_ARGUMENT));
        first_look.printed = capture.stop();
    }
    void TearDown() override { EXPECT_EQ(KoRelease(), 0); }
};

const testing::Environment *const library = testing::AddGlobalTestEnvironment(new Library);

class Error : public testing::Test {
  protected:
    void SetUp() override { KoStatusClear(); }
    void TearDown() override { KoStatusClear(); }
};

TEST_F(Error, OutOfTheBoxOnlyInternalErrorsReachTheStandardErrorStream) {
    EXPECT_EQ(first_look.verbosity, 5);
    EXPECT_EQ(first_look.printed, "[INTERNAL ERROR] Invalid argument\n");
}

// Catalog.

TEST_F(Error, CatalogTexts) {
    const struct {
        int32_t code;
        int32_t number;
        std::string text;
        const char *expected;
    } rows[] = {
        {KO_OK, 0, KoErrorFormatMessage(0), "No error"},
        {KO_ERR_UNKNOWN_CODE, 1, KoErrorFormatMessage(1, 8), "Unknown error code 8"},
        {KO_MSG_DEBUG, 2, KoErrorFormatMessage(2, "a"), "[DEBUG] a"},
        {KO_MSG_INFO, 3, KoErrorFormatMessage(3, "a"), "[INFO] a"},
        {KO_MSG_WARNING, 4, KoErrorFormatMessage(4, "a"), "[WARNING] a"},
        {KO_MSG_ERROR, 5, KoErrorFormatMessage(5, "a"), "[ERROR] a"},
        {KO_MSG_INTERNAL_ERROR, 6, KoErrorFormatMessage(6, "a"), "[INTERNAL ERROR] a"},
        {KO_MSG_UNKNOWN, 7, KoErrorFormatMessage(7, "a"), "[UNKNOWN] a"},
        {KO_ERR_INVALID_ARGUMENT, 10, KoErrorFormatMessage(10), "Invalid argument"},
        {KO_ERR_INDEX_OUT_OF_BOUNDS, 11, KoErrorFormatMessage(11, -7, 0, 12), "Index out of bounds: -7 (0-12)"},
        {KO_ERR_INTERNAL_CALL, 12, KoErrorFormatMessage(12, "a"), "Internal error in call to \"a\""},
        {KO_ERR_FATAL, 13, KoErrorFormatMessage(13), "Fatal Error. Cannot continue"},
        {KO_ERR_INVALID_VALUE, 14, KoErrorFormatMessage(14, "a", "b, c"),
         "\"a\" is not a valid value. Possible values are: \"b, c\""},
        {KO_ERR_NULL_POINTER, 15, KoErrorFormatMessage(15), "Null pointer error"},
        {KO_ERR_ALLOC, 20, KoErrorFormatMessage(20, INT32_MIN), "Cannot allocate -2147483648 bytes"},
        {KO_ERR_CREATE_OBJECT, 21, KoErrorFormatMessage(21, "RealImage"), "Cannot create object \"RealImage\""},
        {KO_ERR_OPEN_READ, 30, KoErrorFormatMessage(30, "a"), "Cannot open file \"a\" for reading"},
        {KO_ERR_OPEN_WRITE, 31, KoErrorFormatMessage(31, "a"), "Cannot open file \"a\" for writing"},
        {KO_ERR_OPEN_READ_WRITE, 32, KoErrorFormatMessage(32, "a"), "Cannot open file \"a\" for reading/writing"},
        {KO_ERR_CLOSE, 33, KoErrorFormatMessage(33, "a"), "Cannot close file \"a\""},
        {KO_ERR_READ_FILE, 34, KoErrorFormatMessage(34, "a"), "Cannot read file \"a\""},
        {KO_ERR_WRITE_FILE, 35, KoErrorFormatMessage(35, "a"), "Cannot write file \"a\""},
        {KO_ERR_READ_LINE, 36, KoErrorFormatMessage(36, "a", 3), "Read error in file \"a\", line 3"},
        {KO_ERR_WRITE_LINE, 37, KoErrorFormatMessage(37, "a", 3), "Write error in file \"a\", line 3"},
        {KO_ERR_FILE_EXISTS, 38, KoErrorFormatMessage(38, "a"), "File \"a\" already exists"},
        {KO_ERR_FILE_MISSING, 39, KoErrorFormatMessage(39, "a"), "File \"a\" does not exist"},
        {KO_ERR_END_OF_FILE, 40, KoErrorFormatMessage(40), "End of file reached"},
        {KO_MSG_LOADING, 41, KoErrorFormatMessage(41, "a"), "Loading file \"a\""},
        {KO_MSG_LOADED, 42, KoErrorFormatMessage(42, "a"), "File \"a\" loaded"},
        {KO_MSG_SAVING, 43, KoErrorFormatMessage(43, "a"), "Saving file \"a\""},
        {KO_MSG_SAVED, 44, KoErrorFormatMessage(44, "a"), "File \"a\" saved"},
        {KO_ERR_NOT_SAVED, 45, KoErrorFormatMessage(45, "a"), "File \"a\" has not beed saved"},
        {KO_ERR_FORMAT_UNSUPPORTED, 50, KoErrorFormatMessage(50, "a"), "File format \"a\" is not supported"},
        {KO_ERR_INVALID_IMAGE_FILE, 51, KoErrorFormatMessage(51, "a", "PNG"), "File \"a\" does not contain a valid PNG image"},
        {KO_ERR_UNKNOWN_FORMAT, 52, KoErrorFormatMessage(52, "a"), "Cannot determine the format of \"a\""},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.code, row.number);
        EXPECT_EQ(row.text, row.expected) << "code " << row.number;
    }
    expect_status(0, "");
}

std::string unknown_code_text(int32_t code) { return "Unknown error code " + std::to_string(code); }

class UnknownCode : public Error, public testing::WithParamInterface<int32_t> {};

TEST_P(UnknownCode, StandsTwiceInTheChainAndIsReturned) {
    const std::string text = unknown_code_text(GetParam());
    EXPECT_EQ(KoMsg(GetParam()), GetParam());
    expect_status(KO_ERR_UNKNOWN_CODE, text + "\n-> " + text);
}

// The text of an unknown code is the chain as its own report left it, older entries included.
TEST_P(UnknownCode, RepeatsTheOlderEntriesToo) {
    const std::string text = unknown_code_text(GetParam());
    KoMsg(KO_ERR_NULL_POINTER);
    EXPECT_EQ(KoMessageSetStatus(GetParam()), GetParam());
    EXPECT_EQ(chain(), text + "\n-> Null pointer error\n-> " + text + "\n-> Null pointer error");
}

TEST_P(UnknownCode, FormattingReportsItAndGivesTheChain) {
    const std::string text = unknown_code_text(GetParam());
    KoMsg(KO_ERR_NULL_POINTER);
    EXPECT_EQ(KoErrorFormatMessage(GetParam()), text + "\n-> Null pointer error");
    expect_status(KO_ERR_UNKNOWN_CODE, text + "\n-> Null pointer error");
}

INSTANTIATE_TEST_SUITE_P(Codes, UnknownCode,
                         testing::Values(8, 9, 16, 17, 18, 19, 22, 23, 24, 25, 26, 27, 28, 29, 46, 47, 48, 49, 53, 54, 55, 56,
                                         57, 58, 59, 60, 61, 255, 65536, INT32_MAX));

// Setting a status, under its four names.

using SetStatus = int32_t (*)(int32_t, ...);
using SetCatalogStatus = int32_t (*)(const MessageCatalog *, int32_t, ...);

class MainStatus : public Error, public testing::WithParamInterface<SetStatus> {};

TEST_P(MainStatus, SetsStatusAndHeadsTheChain) {
    EXPECT_EQ(GetParam()(KO_ERR_ALLOC, 56), KO_ERR_ALLOC);
    expect_status(KO_ERR_ALLOC, "Cannot allocate 56 bytes");
    EXPECT_EQ(GetParam()(KO_ERR_CREATE_OBJECT, "RealImage"), KO_ERR_CREATE_OBJECT);
    expect_status(KO_ERR_CREATE_OBJECT, "Cannot create object \"RealImage\"\n-> Cannot allocate 56 bytes");
}

TEST_P(MainStatus, OfZeroLeavesTheChain) {
    EXPECT_EQ(GetParam()(KO_OK), 0);
    EXPECT_EQ(chain(), "");
    GetParam()(KO_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(GetParam()(KO_OK), 0);
    expect_status(0, "Invalid argument");
    GetParam()(KO_ERR_FATAL);
    EXPECT_EQ(chain(), "Fatal Error. Cannot continue\n-> Invalid argument");
}

TEST_P(MainStatus, PrintsNothingByItself) {
    PrintCapture printed("debug");
    GetParam()(KO_ERR_FATAL);
    EXPECT_EQ(printed.texts(), Texts{});
}

INSTANTIATE_TEST_SUITE_P(Names, MainStatus, testing::Values(&KoMsg, &KoMessageSetStatus));

class CatalogStatus : public Error, public testing::WithParamInterface<SetCatalogStatus> {
  protected:
    const char *const texts_[3] = {"row %d of %d", "column %s", nullptr};
    const MessageCatalog catalog_ = {3, texts_};
};

TEST_P(CatalogStatus, TakesTheTextOfItsOwnCatalog) {
    EXPECT_EQ(GetParam()(&catalog_, 1, "x"), 1);
    expect_status(1, "column x");
}

TEST_P(CatalogStatus, OfZeroStaysOutOfTheChain) {
    KoMsg(KO_ERR_FATAL);
    EXPECT_EQ(GetParam()(&catalog_, 0, 3, 4), 0);
    expect_status(0, "Fatal Error. Cannot continue");
}

// The main catalog has texts for 10 and 3, the given one has not.
TEST_P(CatalogStatus, UnknownCodesAreThoseOfTheGivenCatalog) {
    for (const int32_t code : {2, 3, 10}) {
        KoStatusClear();
        const std::string text = unknown_code_text(code);
        EXPECT_EQ(GetParam()(&catalog_, code), code);
        expect_status(KO_ERR_UNKNOWN_CODE, text + "\n-> " + text);
    }
}

// The nested report has set its own status by then; the outer code of 0 keeps the second copy out of the chain.
TEST_P(CatalogStatus, ZeroWithoutATextIsReportedOnce) {
    const char *const none[] = {nullptr};
    const MessageCatalog catalog = {1, none};
    EXPECT_EQ(GetParam()(&catalog, 0), 0);
    expect_status(KO_ERR_UNKNOWN_CODE, "Unknown error code 0");
}

INSTANTIATE_TEST_SUITE_P(Names, CatalogStatus, testing::Values(&KoCatMsg, &KoMessageCatalogSetStatus));

TEST_F(Error, CatalogFormatTakesTheGivenCatalog) {
    const char *const texts[] = {"row %d of %d", nullptr};
    const MessageCatalog catalog = {2, texts};
    EXPECT_STREQ(KoMessageCatalogFormatMessage(&catalog, 0, 3, 4), "row 3 of 4");
    expect_status(0, "");
    EXPECT_STREQ(KoMessageCatalogFormatMessage(&catalog, 1), "Unknown error code 1");
    EXPECT_STREQ(KoMessageCatalogFormatMessage(&catalog, 2), "Unknown error code 2\n-> Unknown error code 1");
    EXPECT_EQ(KoErrorGetLastError(), KO_ERR_UNKNOWN_CODE);
}

// The formatting buffer.

// On a new thread the buffer starts small, and each length from below its first size on is a growth of its own.
TEST_F(Error, MessagesOfAnyLengthFormatCompletely) {
    on_new_thread([] {
        std::vector<size_t> lengths{300, 299, 301, 5000, 100000, 3};
        for (size_t length = 0; length < 260; ++length) {
            lengths.push_back(length);
        }
        for (const size_t length : lengths) {
            const std::string name(length, 'n');
            ASSERT_EQ(KoErrorFormatMessage(KO_ERR_CLOSE, name.c_str()), "Cannot close file \"" + name + "\"") << length;
        }
    });
}

TEST_F(Error, FirstMessageOfAThreadAtTheEdgesOfTheFirstBuffer) {
    for (const size_t length : {48u, 49u, 50u, 51u, 99u, 100u, 101u, 300u}) {
        on_new_thread([length] {
            const std::string name(length - std::strlen("Cannot close file \"\""), 'n');
            EXPECT_EQ(KoErrorFormatMessage(KO_ERR_CLOSE, name.c_str()), "Cannot close file \"" + name + "\"");
            KoMsg(KO_ERR_CLOSE, name.c_str());
            EXPECT_EQ(chain().size(), length);
            KoStatusClear();
        });
    }
}

TEST_F(Error, PercentSignsInArgumentsAreText) {
    PrintCapture printed;
    apply_level(KO_LEVEL_INTERNAL_ERROR, KoMsg(KO_ERR_OPEN_READ, "100%s%n%d"));
    EXPECT_EQ(printed.texts(), Texts{"[INTERNAL ERROR] Cannot open file \"100%s%n%d\" for reading"});
    EXPECT_EQ(chain(), printed.texts().front());
}

// The chain may be an argument of the report that grows it.
TEST_F(Error, ChainAsAnArgument) {
    KoMsg(KO_ERR_FATAL);
    KoMsg(KO_ERR_INTERNAL_CALL, KoErrorGetLastErrorMessage());
    EXPECT_EQ(chain(), "Internal error in call to \"Fatal Error. Cannot continue\"\n-> Fatal Error. Cannot continue");
}

// Levels.

const char *const decorations[] = {"", "[DEBUG] ", "[INFO] ", "[WARNING] ", "[ERROR] ", "[INTERNAL ERROR] ", "[UNKNOWN] "};
const char *const words[] = {nullptr, "debug", "info", "warning", "error", "internalerror"};

int32_t cut(int32_t level) { return std::min(level, 6); }

class Level : public Error, public testing::WithParamInterface<int32_t> {
  protected:
    std::string decoration() const { return decorations[cut(GetParam())]; }
};

TEST_P(Level, PrintsFromItsVerbosityOn) {
    for (int32_t verbosity = 1; verbosity <= 5; ++verbosity) {
        PrintCapture printed(words[verbosity]);
        KoMsg(KO_ERR_INVALID_ARGUMENT);
        EXPECT_EQ(apply_level(GetParam(), 10), 10);
        const Texts expected(verbosity > cut(GetParam()) ? 0 : 1, decoration() + "Invalid argument");
        EXPECT_EQ(printed.texts(), expected) << "verbosity " << verbosity;
    }
}

TEST_P(Level, AboveInfoDecoratesTheHeadAndElseRemovesIt) {
    PrintCapture swallowed;
    KoMsg(KO_ERR_ALLOC, 56);
    apply_level(GetParam(), KoMsg(KO_ERR_CREATE_OBJECT, "RealImage"));
    const std::string head = GetParam() > KO_LEVEL_INFO ? decoration() + "Cannot create object \"RealImage\"" : "";
    expect_status(KO_ERR_CREATE_OBJECT, head + "\n-> Cannot allocate 56 bytes");
}

TEST_P(Level, OnTheOnlyEntry) {
    PrintCapture swallowed;
    apply_level(GetParam(), KoMsg(KO_ERR_FATAL));
    EXPECT_EQ(chain(), GetParam() > KO_LEVEL_INFO ? decoration() + "Fatal Error. Cannot continue" : "");
}

TEST_P(Level, LeavesTheChainWhileTheRecordsStatusIsZero) {
    PrintCapture printed("debug");
    KoMsg(KO_ERR_FATAL);
    EXPECT_EQ(apply_level(GetParam(), 10 + KoMsg(KO_OK)), 10);
    expect_status(0, "Fatal Error. Cannot continue");
    EXPECT_EQ(printed.texts(), Texts(GetParam() > 0 ? 1 : 0, decoration() + "No error"));
}

TEST_P(Level, RewritesTheChainWhateverStatusIsHandedThrough) {
    PrintCapture swallowed;
    KoMsg(KO_ERR_ALLOC, 1);
    KoMsg(KO_ERR_FATAL);
    EXPECT_EQ(apply_level(GetParam(), 0), 0);
    const std::string head = GetParam() > KO_LEVEL_INFO ? decoration() + "Fatal Error. Cannot continue" : "";
    expect_status(KO_ERR_FATAL, head + "\n-> Cannot allocate 1 bytes");
}

TEST_P(Level, AddedToAnyTextLeavesTheRecord) {
    for (int32_t verbosity = 1; verbosity <= 5; ++verbosity) {
        PrintCapture printed(words[verbosity]);
        KoStatusClear();
        KoMsg(KO_ERR_FATAL);
        const std::string text = std::string(200, 't') + "%s";
        const std::string expected = decoration() + text;
        EXPECT_EQ(KoErrorAddLevel(GetParam(), text.c_str(), "somewhere.cpp", 7), expected);
        EXPECT_EQ(printed.texts(), Texts(verbosity > cut(GetParam()) ? 0 : 1, expected));
        expect_status(KO_ERR_FATAL, "Fatal Error. Cannot continue");
    }
}

INSTANTIATE_TEST_SUITE_P(Levels, Level, testing::Values(0, 1, 2, 3, 4, 5, 6, 7, 100, INT32_MAX));

TEST_F(Error, LevelNoneAddedGivesTheTextItself) {
    const char *const text = "any text";
    EXPECT_EQ(KoErrorAddLevel(KO_LEVEL_NONE, text, "somewhere.cpp", 7), text);
}

// The text may lie in the formatting buffer itself: it is copied before the buffer is written again.
TEST_F(Error, LevelAddedToAFormattedText) {
    PrintCapture swallowed;
    on_new_thread([] {
        const char *text = KoErrorFormatMessage(KO_ERR_OPEN_READ, "a file name of some length, near the edge");
        text = KoErrorAddLevel(KO_LEVEL_ERROR, text, "somewhere.cpp", 7);
        EXPECT_STREQ(text, "[ERROR] Cannot open file \"a file name of some length, near the edge\" for reading");
        text = KoErrorAddLevel(KO_LEVEL_DEBUG, text, "somewhere.cpp", 7);
        EXPECT_STREQ(text, "[DEBUG] [ERROR] Cannot open file \"a file name of some length, near the edge\" for reading");
    });
}

TEST_F(Error, FileAndLineAppearInNoText) {
    PrintCapture printed("debug");
    EXPECT_EQ(KoMessageSetLevel(KO_LEVEL_ERROR, KoMsg(KO_ERR_INVALID_ARGUMENT), "%s%n-source.cpp", 4711), 10);
    EXPECT_EQ(chain(), "[ERROR] Invalid argument");
    EXPECT_STREQ(KoErrorAddLevel(KO_LEVEL_ERROR, "text", "%s%n-source.cpp", 4711), "[ERROR] text");
    EXPECT_EQ(printed.texts(), (Texts{"[ERROR] Invalid argument", "[ERROR] text"}));
}

// The head keeps the length that it had when it was added: a second level replaces that much of the decorated text only.
TEST_F(Error, SecondLevelReplacesTheLengthOfTheBareHead) {
    PrintCapture printed("debug");
    KoMsg(KO_ERR_ALLOC, 1);
    apply_level(KO_LEVEL_ERROR, KoMsg(KO_ERR_INVALID_ARGUMENT));
    EXPECT_EQ(chain(), "[ERROR] Invalid argument\n-> Cannot allocate 1 bytes");
    apply_level(KO_LEVEL_WARNING, 10);
    EXPECT_EQ(printed.texts().back(), "[WARNING] [ERROR] Invalid argument");
    EXPECT_EQ(chain(), "[WARNING] [ERROR] Invalid argumentargument\n-> Cannot allocate 1 bytes");
    apply_level(KO_LEVEL_INFO, 10);
    EXPECT_EQ(printed.texts().back(), "[INFO] [WARNING] [ERROR] Invalid argument");
    EXPECT_EQ(chain(), "] Invalid argumentargument\n-> Cannot allocate 1 bytes");
}

TEST_F(Error, HeadIsNeverLongerThanTheChain) {
    PrintCapture swallowed;
    KoMsg(KO_ERR_INVALID_ARGUMENT);
    apply_level(KO_LEVEL_INFO, 10);
    EXPECT_EQ(chain(), "");
    apply_level(KO_LEVEL_INFO, 10);
    EXPECT_EQ(chain(), "");
    apply_level(KO_LEVEL_ERROR, 10);
    EXPECT_EQ(chain(), "[ERROR] [INFO] [INFO] Invalid argument");
}

// The joint before the older entries stays when the head is removed, and the next head gets its own.
TEST_F(Error, ReportAfterARemovedHead) {
    KoMsg(KO_ERR_ALLOC, 1);
    apply_level(KO_LEVEL_DEBUG, KoMsg(KO_ERR_FATAL));
    EXPECT_EQ(chain(), "\n-> Cannot allocate 1 bytes");
    KoMsg(KO_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(chain(), "Invalid argument\n-> \n-> Cannot allocate 1 bytes");
}

TEST_F(Error, ReportAfterTheOnlyHeadWasRemoved) {
    apply_level(KO_LEVEL_INFO, KoMsg(KO_ERR_FATAL));
    KoMsg(KO_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(chain(), "Invalid argument");
}

TEST_F(Error, ErrorInAFunctionThatReturnsAStatus) {
    {
        PrintCapture printed("internalerror");
        EXPECT_EQ(apply_level(KO_LEVEL_ERROR, KoMsg(KO_ERR_INVALID_ARGUMENT)), 10);
        EXPECT_EQ(chain(), "[ERROR] Invalid argument");
        EXPECT_EQ(printed.texts(), Texts{});
    }
    PrintCapture printed("error");
    apply_level(KO_LEVEL_ERROR, KoMsg(KO_ERR_INVALID_ARGUMENT));
    EXPECT_EQ(printed.texts(), Texts{"[ERROR] Invalid argument"});
}

// A warning with code 0 of a small catalog never enters the chain; one with code 1 stays there after the status is back at 0.
TEST_F(Error, WarningThatDoesNotStopTheWork) {
    const char *const texts[] = {"first %d", "second %d"};
    const MessageCatalog catalog = {2, texts};
    PrintCapture printed("warning");
    apply_level(KO_LEVEL_WARNING, KoCatMsg(&catalog, 0, 5));
    KoMsg(0);
    EXPECT_EQ(chain(), "");
    apply_level(KO_LEVEL_WARNING, KoCatMsg(&catalog, 1, 6));
    KoMsg(0);
    expect_status(0, "[WARNING] second 6");
    EXPECT_EQ(printed.texts(), (Texts{"[WARNING] first 5", "[WARNING] second 6"}));
}

// Clearing.

TEST_F(Error, ClearLeavesNeitherStatusNorMessage) {
    KoMsg(KO_ERR_FATAL);
    KoMsg(KO_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(KoStatusClear(), 0);
    expect_status(0, "");
    KoMsg(KO_ERR_FATAL);
    EXPECT_EQ(chain(), "Fatal Error. Cannot continue");
}

TEST_F(Error, ClearMessageKeepsTheStatus) {
    KoMsg(KO_ERR_FATAL);
    KoMsg(KO_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(KoStatusClearMessage(), 0);
    expect_status(KO_ERR_INVALID_ARGUMENT, "");
    KoMsg(KO_ERR_FATAL);
    EXPECT_EQ(chain(), "Fatal Error. Cannot continue");
}

TEST_F(Error, ClearsTheNewestMessage) {
    for (const auto clear : {&KoStatusClear, &KoStatusClearMessage}) {
        PrintCapture printed;
        KoMsg(KO_ERR_FATAL);
        clear();
        EXPECT_EQ(apply_level(KO_LEVEL_INTERNAL_ERROR, 3), 3);
        EXPECT_EQ(printed.texts(), Texts{"[INTERNAL ERROR] "});
    }
}

// Printing.

TEST_F(Error, PrintsBeforeTheChainIsRewritten) {
    struct Seen {
        std::string chain;
        int32_t status = 0;
    } seen;
    KoErrorSetVerboseFunction(
        [](void *user_data, const char *) {
            *static_cast<Seen *>(user_data) = {KoErrorGetLastErrorMessage(), KoErrorGetLastError()};
        },
        &seen);
    apply_level(KO_LEVEL_INTERNAL_ERROR, KoMsg(KO_ERR_INVALID_ARGUMENT));
    KoErrorSetVerboseFunction(nullptr, nullptr);
    EXPECT_EQ(seen.chain, "Invalid argument");
    EXPECT_EQ(seen.status, KO_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(chain(), "[INTERNAL ERROR] Invalid argument");
}

TEST_F(Error, NullFunctionRestoresTheDefaultThatIgnoresUserData) {
    PrintCapture replaced;
    int32_t user_data = 0;
    EXPECT_EQ(KoErrorSetVerboseFunction(nullptr, &user_data), 0);
    StderrCapture capture;
    apply_level(KO_LEVEL_INTERNAL_ERROR, KoMsg(KO_ERR_OPEN_READ, "%s%d"));
    apply_level(KO_LEVEL_UNKNOWN, KoMsg(KO_ERR_FATAL));
    apply_level(KO_LEVEL_ERROR, KoMsg(KO_ERR_FATAL));
    EXPECT_EQ(capture.stop(),
              "[INTERNAL ERROR] Cannot open file \"%s%d\" for reading\n[UNKNOWN] Fatal Error. Cannot continue\n");
    EXPECT_EQ(user_data, 0);
    EXPECT_EQ(replaced.texts(), Texts{});
}

TEST_F(Error, InstalledFunctionReplacesTheDefault) {
    StderrCapture capture;
    PrintCapture printed;
    apply_level(KO_LEVEL_INTERNAL_ERROR, KoMsg(KO_ERR_FATAL));
    EXPECT_EQ(capture.stop(), "");
    EXPECT_EQ(printed.texts(), Texts{"[INTERNAL ERROR] Fatal Error. Cannot continue"});
}

// Verbosity.

class Verbosity : public Error {
  protected:
    void TearDown() override { KoErrorSetVerboseLevel("internalerror"); }
};

TEST_F(Verbosity, Words) {
    const struct {
        const char *word;
        int32_t level;
    } rows[] = {{"debug", 1},   {"info", 2},    {"warning", 3}, {"error", 4}, {"internalerror", 5}, {"DEBUG", 1},
                {"WARNING", 3}, {"wArNiNg", 3}, {"Info", 2},    {"ERROR", 4}, {"InternalError", 5}};
    for (const auto &row : rows) {
        EXPECT_EQ(KoErrorSetVerboseLevel(row.word), 0) << row.word;
        EXPECT_EQ(KoErrorGetVerboseLevel(), row.level) << row.word;
    }
    EXPECT_EQ(KoErrorGetLastError(), 0);
}

TEST_F(Verbosity, NullWordDoesNothing) {
    KoErrorSetVerboseLevel("info");
    KoMsg(KO_ERR_FATAL);
    EXPECT_EQ(KoErrorSetVerboseLevel(nullptr), 0);
    EXPECT_EQ(KoErrorGetVerboseLevel(), 2);
    expect_status(KO_ERR_FATAL, "Fatal Error. Cannot continue");
}

TEST_F(Verbosity, OtherWordsAreAnInternalErrorAtAnySetting) {
    for (const char *word : {"", "none", "unknown", "warn", "warnings", " error", "internal error", "internal_error", "4"}) {
        for (int32_t verbosity = 1; verbosity <= 5; ++verbosity) {
            PrintCapture printed(words[verbosity]);
            KoStatusClear();
            EXPECT_EQ(KoErrorSetVerboseLevel(word), KO_ERR_INVALID_ARGUMENT) << word;
            EXPECT_EQ(KoErrorGetVerboseLevel(), verbosity);
            expect_status(KO_ERR_INVALID_ARGUMENT, "[INTERNAL ERROR] Invalid argument");
            EXPECT_EQ(printed.texts(), Texts{"[INTERNAL ERROR] Invalid argument"});
        }
    }
}

// Threads.

TEST_F(Error, NewThreadStartsWithNothing) {
    KoMsg(KO_ERR_FATAL);
    on_new_thread([] { EXPECT_EQ(KoErrorGetLastError(), 0); });
    on_new_thread([] { EXPECT_STREQ(KoErrorGetLastErrorMessage(), ""); });
    on_new_thread([] {
        EXPECT_EQ(KoStatusClear(), 0);
        EXPECT_EQ(KoStatusClearMessage(), 0);
        KoMsg(KO_ERR_NULL_POINTER);
        EXPECT_EQ(chain(), "Null pointer error");
        KoStatusClear();
    });
    expect_status(KO_ERR_FATAL, "Fatal Error. Cannot continue");
}

TEST_F(Error, ThreadsDoNotSeeEachOthersReports) {
    std::vector<std::thread> threads;
    for (int32_t number = 0; number < 8; ++number) {
        threads.emplace_back([number] {
            const std::string name(static_cast<size_t>(number) * 40, static_cast<char>('a' + number));
            for (int round = 0; round < 500; ++round) {
                KoStatusClear();
                KoMsg(KO_ERR_ALLOC, number);
                apply_level(KO_LEVEL_ERROR, KoMsg(KO_ERR_CLOSE, name.c_str()));
                const std::string tail = "\n-> Cannot allocate " + std::to_string(number) + " bytes";
                ASSERT_EQ(chain(), "[ERROR] Cannot close file \"" + name + "\"" + tail);
                ASSERT_EQ(KoErrorGetLastError(), KO_ERR_CLOSE);
            }
            KoStatusClear();
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

// Verbosity and print function belong to the process; the function runs on the thread that reports.
TEST_F(Error, PrintFunctionRunsOnTheReportingThread) {
    std::thread::id printed_on;
    KoErrorSetVerboseFunction(
        [](void *user_data, const char *) { *static_cast<std::thread::id *>(user_data) = std::this_thread::get_id(); },
        &printed_on);
    on_new_thread([&] {
        apply_level(KO_LEVEL_INTERNAL_ERROR, KoMsg(KO_ERR_FATAL));
        EXPECT_EQ(printed_on, std::this_thread::get_id());
        KoStatusClear();
    });
    KoErrorSetVerboseFunction(nullptr, nullptr);
}

// The service itself.

TEST_F(Error, StartingTheServiceAgainKeepsTheRecord) {
    KoMsg(KO_ERR_FATAL);
    EXPECT_EQ(KoErrorClassInit(), 0);
    expect_status(KO_ERR_FATAL, "Fatal Error. Cannot continue");
}

TEST_F(Error, EndedServiceStartsAfresh) {
    KoMsg(KO_ERR_FATAL);
    EXPECT_EQ(KoErrorClassRelease(), 0);
    EXPECT_EQ(KoErrorClassInit(), 0);
    expect_status(0, "");
    KoMsg(KO_ERR_NULL_POINTER);
    EXPECT_EQ(chain(), "Null pointer error");
}

// The whole against a model.

// A thread's record as the rules tell it, in plain strings.
struct Model {
    int32_t status = 0;
    std::string newest;
    std::string chain;
    size_t head = 0;
    Texts printed;

    void enter(int32_t code, const std::string &text) {
        newest = text;
        if (code == 0) {
            return;
        }
        chain = chain.empty() ? text : text + "\n-> " + chain;
        head = text.size();
    }

    void report(int32_t code, const std::string &text) {
        status = code;
        enter(code, text);
    }

    void report_unknown(int32_t code) {
        status = code;
        report(KO_ERR_UNKNOWN_CODE, unknown_code_text(code));
        const std::string text = chain;
        enter(code, text);
    }

    void apply_level(int32_t level, int32_t verbosity) {
        newest = decorations[cut(level)] + newest;
        if (verbosity <= cut(level)) {
            printed.push_back(newest);
        }
        if (status == 0) {
            return;
        }
        const std::string rest = chain.substr(std::min(head, chain.size()));
        chain = level > 2 ? newest + rest : rest;
    }

    void clear_message() {
        newest.clear();
        chain.clear();
    }
};

class Sequence {
  public:
    explicit Sequence(uint32_t seed) : random_(seed), verbosity_(1 + below(5)), printed_(words[verbosity_]) {}

    void run(int steps) {
        for (int step = 0; step < steps; ++step) {
            take_step();
            ASSERT_EQ(KoErrorGetLastError(), model_.status) << "step " << step;
            ASSERT_EQ(KoErrorGetLastErrorMessage(), model_.chain) << "step " << step;
            ASSERT_EQ(printed_.texts(), model_.printed) << "step " << step;
        }
    }

  private:
    int32_t below(int32_t limit) { return static_cast<int32_t>(random_() % static_cast<uint32_t>(limit)); }

    void take_step() {
        if (model_.chain.size() > 3000) {
            clear();
            return;
        }
        switch (below(10)) {
        case 0:
            clear();
            break;
        case 1:
            report_unknown();
            break;
        case 2:
            KoMsg(KO_OK);
            model_.report(KO_OK, "No error");
            newest_is_good_ = true;
            break;
        case 3:
        case 4:
        case 5:
            level();
            break;
        default:
            report();
        }
    }

    void report() {
        const std::string name(static_cast<size_t>(below(130)), static_cast<char>('a' + below(26)));
        EXPECT_EQ(KoMsg(KO_ERR_WRITE_FILE, name.c_str()), KO_ERR_WRITE_FILE);
        model_.report(KO_ERR_WRITE_FILE, "Cannot write file \"" + name + "\"");
        newest_is_good_ = true;
    }

    // The newest message is not to be used after a code without a text.
    void report_unknown() {
        const int32_t code = 60 + below(1000);
        EXPECT_EQ(KoMsg(code), code);
        model_.report_unknown(code);
        newest_is_good_ = false;
    }

    void level() {
        if (!newest_is_good_) {
            return;
        }
        const int32_t level = below(9);
        EXPECT_EQ(apply_level(level, 12345), 12345);
        model_.apply_level(level, verbosity_);
    }

    void clear() {
        if (below(2) == 0) {
            KoStatusClear();
            model_.status = 0;
        } else {
            KoStatusClearMessage();
        }
        model_.clear_message();
        newest_is_good_ = false;
    }

    std::mt19937 random_;
    int32_t verbosity_;
    PrintCapture printed_;
    Model model_;
    bool newest_is_good_ = false;
};

class RandomSequence : public Error, public testing::WithParamInterface<uint32_t> {};

TEST_P(RandomSequence, FollowsTheModel) {
    on_new_thread([] {
        Sequence(GetParam()).run(400);
        KoStatusClear();
    });
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomSequence, testing::Range(1u, 41u));

} // namespace
