// A plug-in beside the library itself is found, wherever that is and whatever the loader's search path says. The program does
// not link the library: it opens a copy that it has put into a folder of its own.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <filesystem>
#include <string>

#include "log.h"

namespace {

using namespace ko_test;

class Copy {
  public:
    explicit Copy(const std::string &folder, const char *file = KO_LIBRARY) {
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        std::filesystem::copy_file(file, folder + "/libko.so");
    }
    ~Copy() {
        if (library_ != nullptr) {
            dlclose(library_);
        }
    }
    Copy(const Copy &) = delete;
    Copy &operator=(const Copy &) = delete;

    void open(const std::string &folder) {
        library_ = dlopen((folder + "/libko.so").c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library_, nullptr) << dlerror();
        init = reinterpret_cast<int32_t (*)(void *, void *)>(dlsym(library_, "KoInit"));
        release = reinterpret_cast<int32_t (*)()>(dlsym(library_, "KoRelease"));
    }

    int32_t (*init)(void *, void *) = nullptr;
    int32_t (*release)() = nullptr;

  private:
    void *library_ = nullptr;
};

TEST(PluginBeside, IsFound) {
    take_log();
    Copy library("with");
    put_plugin("full", "with");
    ASSERT_NO_FATAL_FAILURE(library.open("./with"));
    EXPECT_EQ(library.init(word(0x1100000009), nullptr), 9);
    const std::string started = take_log();
    EXPECT_TRUE(started.starts_with("load\ninit 1100000009 0 ")) << started;
    EXPECT_EQ(library.release(), 0);
    const std::string ended = take_log();
    EXPECT_TRUE(ended.starts_with("release ") && ended.ends_with("\nunload\n")) << ended;
}

#ifdef KO_LIBRARY_AVX2
// The build for AVX2 lies in a folder below the other's, beside which the plug-in is.
TEST(PluginBeside, IsFoundFromTheFolderOfAProcessor) {
    take_log();
    const std::string below = std::string("with/") + KO_AVX2_FOLDER;
    std::filesystem::remove_all("with");
    Copy library(below, KO_LIBRARY_AVX2);
    put_plugin("full", "with");
    ASSERT_NO_FATAL_FAILURE(library.open("./" + below));
    EXPECT_EQ(library.init(word(9), nullptr), 9);
    EXPECT_TRUE(take_log().starts_with("load\ninit 9 0 "));
    EXPECT_EQ(library.release(), 0);
}
#endif

// The current folder is not searched, nor the folder of the other copy.
TEST(PluginBeside, IsNotFoundElsewhere) {
    take_log();
    Copy library("without");
    put_plugin("full", ".");
    ASSERT_NO_FATAL_FAILURE(library.open("./without"));
    EXPECT_EQ(library.init(word(9), nullptr), 0);
    EXPECT_EQ(library.release(), 0);
    EXPECT_EQ(take_log(), "");
    take_plugin_away(".");
}

} // namespace
