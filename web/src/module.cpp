// The module as JavaScript sees it apart from what it does with pictures: its start, the answer, the room and its files.
#include "module.h"

#include <cstdio>
#include <cstring>
#include <limits>
#include <sys/stat.h>

namespace web {

Answer &answer() {
    static Answer last;
    return last;
}

std::vector<uint8_t> &room() {
    static std::vector<uint8_t> bytes;
    return bytes;
}

ko::TileTRCPtr &curves() {
    static ko::TileTRCPtr grid;
    return grid;
}

void give(double number) { answer().numbers.push_back(number); }
void give(std::optional<double> number) { give(number.value_or(std::numeric_limits<double>::quiet_NaN())); }

void give(const std::string &line) {
    std::string &text = answer().text;
    text += line;
    text += '\n';
}

} // namespace web

using namespace web;

KO_WEB void ko_web_start() { KoInit(nullptr, nullptr); }
KO_WEB const char *ko_web_version() { return KO_VERSION; }

KO_WEB const double *ko_web_numbers() { return answer().numbers.data(); }
KO_WEB uint32_t ko_web_count() { return static_cast<uint32_t>(answer().numbers.size()); }
KO_WEB const char *ko_web_text() { return answer().text.c_str(); }
KO_WEB const char *ko_web_chain() { return answer().chain.c_str(); }
KO_WEB int32_t ko_web_status() { return answer().ko_status; }
KO_WEB uint8_t *ko_web_room() { return room().data(); }

// Gives the room another size; what it held is lost.
KO_WEB int32_t ko_web_make_room(uint32_t bytes) {
    return answered([=] {
        std::vector<uint8_t>().swap(room());
        room().resize(bytes);
    });
}

// Writes a file whose path stands at the start of the room, up to a zero, and whose contents follow it. The folder of a path
// below the root is made.
KO_WEB int32_t ko_web_write_file() {
    return answered([] {
        const char *path = reinterpret_cast<const char *>(room().data());
        const size_t start = strnlen(path, room().size()) + 1;
        if (start > room().size()) {
            throw Refused("a path without an end");
        }
        const std::string folder(path, std::string(path).find_last_of('/'));
        if (!folder.empty()) {
            mkdir(folder.c_str(), 0777); // it may exist
        }
        const size_t bytes = room().size() - start;
        std::FILE *file = std::fopen(path, "wb");
        const bool written = file != nullptr && std::fwrite(path + start, 1, bytes, file) == bytes;
        if (file == nullptr || std::fclose(file) != 0 || !written) {
            throw std::runtime_error("a file in memory cannot be written: " + std::string(path));
        }
    });
}
