// The plug-ins' log, and plug-ins put in place.
#ifndef KO_TESTS_PLUGINS_LOG_H
#define KO_TESTS_PLUGINS_LOG_H

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "files.h"

namespace ko_test {

#ifdef _WIN32
constexpr const char *plugin_name = "koio.dll";
#else
constexpr const char *plugin_name = "koio.so";
#endif

// What the plug-ins noted since the last call.
inline std::string take_log() {
    const std::string log = read_text("plugin.log");
    std::remove("plugin.log");
    return log;
}

// The line of an initialisation with these words.
inline std::string init_line(uint64_t first, uint64_t second, unsigned slot) {
    char line[80];
    std::snprintf(line, sizeof line, "init %llx %llx %u\n", static_cast<unsigned long long>(first),
                  static_cast<unsigned long long>(second), slot);
    return line;
}

inline std::string release_line(unsigned slot) { return "release " + std::to_string(slot) + "\n"; }

inline void *word(uint64_t value) { return reinterpret_cast<void *>(static_cast<uintptr_t>(value)); }

// Removes the plug-in from a folder.
inline void take_plugin_away(const std::string &folder) {
    std::filesystem::remove(std::filesystem::path(folder) / plugin_name);
}

// Puts the plug-in that was built into the folder ../variant into a folder.
inline void put_plugin(const std::string &variant, const std::string &folder) {
    take_plugin_away(folder);
    std::filesystem::copy_file(std::filesystem::path("..") / variant / plugin_name,
                               std::filesystem::path(folder) / plugin_name);
}

} // namespace ko_test

#endif
