// What the program answers, made comparable: without the times, which differ from run to run.
#ifndef KO_TESTS_HOST_ANSWERS_H
#define KO_TESTS_HOST_ANSWERS_H

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace ko_test {

// The object of a written picture without its times, all of which must be present.
inline nlohmann::json without_times(nlohmann::json object) {
    EXPECT_GE(object.at("seconds"), 0.0);
    const nlohmann::json timings = object.at("timings");
    EXPECT_EQ(timings.size(), 6u) << timings;
    for (const char *stage : {"read", "red_eyes", "judge", "curves", "apply", "write"}) {
        EXPECT_TRUE(timings.at(stage).is_number()) << stage;
        EXPECT_GE(timings.at(stage), 0.0) << stage;
    }
    object.erase("seconds");
    object.erase("timings");
    return object;
}

} // namespace ko_test

#endif
