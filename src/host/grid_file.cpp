// The library's result of a save covers only the opening of the file, and two of the forms lose some curves silently. So what
// was saved is loaded again and compared before it takes its name.
#include "grid_file.h"

#include <string>
#include <string_view>

#include "files.h"
#include "paths.h"
#include "system.h"

namespace host {

namespace fs = std::filesystem;

namespace {

constexpr uint64_t byte_levels = 256;

ko::TileTRCPtr empty_grid() {
    ko::TileTRCPtr grid(KoTileTRCNew(0, 0, 0));
    ko::check(grid != nullptr, "the curves cannot be read");
    return grid;
}

bool short_of_memory() { return KoErrorGetLastError() == KO_ERR_ALLOC || KoErrorGetLastError() == KO_ERR_CREATE_OBJECT; }

// True if a file holds the curves.
bool holds(const fs::path &path, const TileTRC &curves) {
    const ko::TileTRCPtr again = empty_grid();
    const system::ErrorStreamCapture printed;
    const bool loaded = KoTileTRCLoad(again.get(), system::library_path(path).c_str()) == KO_OK;
    if (!loaded && short_of_memory()) {
        throw ko::Error("the saved curves cannot be checked");
    }
    KoStatusClear();
    return loaded && KoTileTRCCompare(again.get(), &curves) != 0;
}

// What the library printed about a line that it rejects: `"path", line 7: "the line": why`, with or without the line, which may
// hold any bytes. Returns why, or nothing if something else was printed.
std::string reason_in(const std::string &printed) {
    constexpr std::string_view behind_line = "\": ";
    constexpr std::string_view behind_path = "\", line ";
    const size_t quoted = printed.rfind(behind_line);
    const size_t place = printed.find(behind_path);
    const size_t colon = place != std::string::npos ? printed.find(": ", place) : place;
    const size_t begin = quoted != std::string::npos  ? quoted + behind_line.size()
                         : colon != std::string::npos ? colon + 2
                                                      : printed.size();
    return printed.substr(begin, printed.find('\n', begin) - begin);
}

std::string shown(uint64_t across, uint64_t down) { return std::to_string(across) + "x" + std::to_string(down); }

} // namespace

const char *name(GridForm form) {
    switch (form) {
    case GridForm::binary:
        return "binary";
    case GridForm::encoded:
        return "encoded";
    default:
        return "text";
    }
}

void save_grid(const TileTRC &curves, GridForm form, const fs::path &target) {
    KoStatusClear();
    write_file_by(
        target,
        [&](const fs::path &draft) {
            ko::check(KoTileTRCSave(&curves, system::library_path(draft).c_str(), static_cast<int32_t>(form), 1) == KO_OK,
                      "the curves cannot be saved");
        },
        [&](const fs::path &draft) {
            if (!holds(draft, curves)) {
                const std::string why = std::string("the ") + name(form) + " form does not hold these curves";
                throw FileError("cannot write " + text_of(target) + ": " + why +
                                (form == GridForm::text ? "" : "; --form text does"));
            }
        });
}

ko::TileTRCPtr load_grid(const fs::path &path) {
    KoStatusClear();
    ko::TileTRCPtr grid = empty_grid();
    system::ErrorStreamCapture printed;
    const bool loaded = KoTileTRCLoad(grid.get(), system::library_path(path).c_str()) == KO_OK;
    const std::string why = reason_in(printed.take());
    if (!loaded) {
        const char *what = short_of_memory() ? "its curves need more memory than is available" : "the curves cannot be read";
        throw ko::Error(what, why);
    }
    const uint64_t columns = KoTileTRCGetNumStripsX(grid.get());
    const uint64_t rows = KoTileTRCGetNumStripsY(grid.get());
    if (columns == 0 || rows == 0) {
        throw FileError("a grid of " + shown(columns, rows) + " has no curves");
    }
    if (KoTileTRCGetSize(grid.get()) < byte_levels) {
        throw FileError("its curves have " + std::to_string(KoTileTRCGetSize(grid.get())) + " entries, and a picture needs " +
                        std::to_string(byte_levels));
    }
    return grid;
}

void check_fit(const TileTRC &curves, uint64_t width, uint64_t height) {
    const auto fits = [](uint64_t strips, uint64_t pixels) { return strips == 1 || strips <= pixels / 2; };
    const uint64_t columns = KoTileTRCGetNumStripsX(&curves);
    const uint64_t rows = KoTileTRCGetNumStripsY(&curves);
    if (!fits(columns, width) || !fits(rows, height)) {
        throw FileError("too small for a grid of " + shown(columns, rows) + ", which needs two pixels per tile each way");
    }
}

} // namespace host
