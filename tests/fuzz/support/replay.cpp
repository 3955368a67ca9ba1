// Runs a fuzz target once for every file of the folders that are given; a folder that is missing or empty is a failure.
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

#include "files.h"
#include "harness.h"

namespace {

// How many files the folder has, each of them run.
int replay(const std::string &folder) {
    int count = 0;
    std::error_code missing;
    for (const auto &entry : std::filesystem::directory_iterator(folder, missing)) {
        if (entry.is_regular_file()) {
            const std::string path = entry.path().string();
            std::printf("%s\n", path.c_str());
            std::fflush(stdout); // a crash comes behind its file's name
            const std::string bytes = ko_test::read_bytes(path);
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
            ++count;
        }
    }
    return count;
}

} // namespace

int main(int count, char **arguments) {
    int status = count > 1 ? 0 : 1;
    for (int i = 1; i < count; ++i) {
        if (replay(arguments[i]) == 0) {
            std::printf("%s: no files\n", arguments[i]);
            status = 1;
        }
    }
    return status;
}
