#include "files.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#ifdef _WIN32
#include <process.h>
#else
#include <unistd.h>
#endif

namespace ko_test {

std::string temporary_path(const std::string &name) {
    static std::atomic<int> count{0};
    const std::string unique = "ko-" + std::to_string(getpid()) + "-" + std::to_string(count++) + "-" + name;
    return (std::filesystem::temp_directory_path() / unique).string();
}

std::string read_bytes(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string read_text(const std::string &path) {
    std::string text;
    for (const char c : read_bytes(path)) {
        if (c != '\r') {
            text += c;
        }
    }
    return text;
}

void write_bytes(const std::string &path, const std::string &bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::vector<std::string> names_in(const std::string &folder) {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool exists(const std::string &path) { return std::filesystem::exists(path); }

TemporaryFile::~TemporaryFile() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

} // namespace ko_test
