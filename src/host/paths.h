// Paths and texts: in the program every text is in UTF-8, whatever the system's paths are.
#ifndef KO_HOST_PATHS_H
#define KO_HOST_PATHS_H

#include <filesystem>
#include <string>
#include <string_view>

namespace host {

inline std::filesystem::path path_of(std::string_view text) { return std::u8string(text.begin(), text.end()); }

inline std::string text_of(const std::filesystem::path &path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

} // namespace host

#endif
