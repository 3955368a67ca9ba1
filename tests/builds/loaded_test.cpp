// The tests that are named after a build of the library ran on that build.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include "ko.h"

namespace {

// The path of the library that this program was started with.
std::string path_of_library() {
#ifdef _WIN32
    char path[MAX_PATH] = {};
    GetModuleFileNameA(GetModuleHandleA("ko.dll"), path, sizeof path);
    return path;
#else
    Dl_info info{};
    dladdr(reinterpret_cast<const void *>(&KoInit), &info);
    char path[PATH_MAX] = {};
    return realpath(info.dli_fname, path) != nullptr ? path : "";
#endif
}

TEST(Build, IsTheOneThatTheTestIsNamedAfter) {
    const char *build = std::getenv("KO_TEST_BUILD");
    ASSERT_NE(build, nullptr) << "started by hand";
    const std::string path = path_of_library();
    ASSERT_NE(path, "");
    const bool below = path.find("avx2") != std::string::npos || path.find("x86-64-v3") != std::string::npos;
    EXPECT_EQ(below, std::string(build) == "avx2") << path;
}

} // namespace
