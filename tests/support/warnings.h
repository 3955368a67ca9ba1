// Warnings: reports that do not stop the work.
#ifndef KO_TESTS_WARNINGS_H
#define KO_TESTS_WARNINGS_H

#include <string>
#include <vector>

#include "library_test.h"

namespace ko_test {

// Runs call twice, which must succeed with status 0: at verbosity "error" without a trace, and at verbosity "warning" printing
// the text once and leaving chain.
template <class Call> void expect_warning(const std::string &text, const std::string &chain, Call call) {
    KoStatusClear();
    {
        const PrintCapture printed("error");
        EXPECT_EQ(call(), KO_OK);
        EXPECT_EQ(printed.texts(), std::vector<std::string>());
        expect_status(KO_OK, "");
    }
    const PrintCapture printed("warning");
    EXPECT_EQ(call(), KO_OK);
    EXPECT_EQ(printed.texts(), std::vector<std::string>{text});
    expect_status(KO_OK, chain);
    KoStatusClear();
}

} // namespace ko_test

#endif
