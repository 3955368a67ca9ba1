// The ground of most tests: a started library with a clear status, and what a report leaves behind.
#ifndef KO_TESTS_LIBRARY_TEST_H
#define KO_TESTS_LIBRARY_TEST_H

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture.h"
#include "ko/error.h"
#include "ko/lifecycle.h"

namespace ko_test {

class LibraryTest : public testing::Test {
  protected:
    LibraryTest() {
        KoInit(nullptr, nullptr);
        KoStatusClear();
    }
    ~LibraryTest() override { KoRelease(); }
};

// The thread's status is code and its message chain is exactly chain.
inline void expect_status(int32_t code, const std::string &chain) {
    EXPECT_EQ(KoErrorGetLastError(), code);
    EXPECT_EQ(std::string(KoErrorGetLastErrorMessage()), chain);
}

// Runs call, which must report code at the level of an error: result, status, chain and print all say so.
template <class Call> void expect_error(int32_t code, const std::string &text, Call call) {
    KoStatusClear();
    const PrintCapture printed("error");
    EXPECT_EQ(call(), code);
    expect_status(code, "[ERROR] " + text);
    EXPECT_EQ(printed.texts(), std::vector<std::string>{"[ERROR] " + text});
    KoStatusClear();
}

// Runs call, which must succeed and report nothing.
template <class Call> void expect_success(Call call) {
    KoStatusClear();
    EXPECT_EQ(call(), KO_OK);
    expect_status(KO_OK, "");
}

} // namespace ko_test

#endif
