// Grids of tone curves: their entries, and their files in the three forms of the library.
#include <algorithm>
#include <cstdio>
#include <limits>
#include <memory>

#include "module.h"

namespace web {

namespace {

constexpr const char *path = "/curves";
constexpr uint64_t byte_levels = 256;
constexpr uint64_t most_entries = 65536;
constexpr uint64_t most_values = uint64_t{1} << 29; // that the library's memory for one grid holds

// A file that is removed at the end of the scope.
struct Removed {
    ~Removed() { std::remove(path); }
};

ko::TileTRCPtr make_grid(uint64_t entries, uint64_t columns, uint64_t rows) {
    ko::TileTRCPtr grid(KoTileTRCNew(entries, columns, rows));
    ko::check(grid != nullptr && (columns == 0 || grid->array != nullptr), "the curves cannot be made");
    return grid;
}

uint64_t values_of(const TileTRC &grid) { return grid.size * grid.numStripsX * grid.numStripsY; }

// Throws Refused unless pictures can be processed with curves of a shape.
void check_shape(uint64_t entries, uint64_t columns, uint64_t rows) {
    if (columns == 0 || rows == 0) {
        throw Refused("a grid of " + std::to_string(columns) + " x " + std::to_string(rows) + " tiles has no curves");
    }
    if (entries < byte_levels || entries > most_entries || entries % byte_levels != 0) {
        throw Refused("a curve has a multiple of 256 entries, up to 65536, not " + std::to_string(entries));
    }
    if (rows > most_values / entries / columns) {
        throw Refused("a grid of " + std::to_string(columns) + " x " + std::to_string(rows) + " tiles is too large");
    }
}

// Throws Refused for an entry that is no level of its curve.
void check_entries(const TileTRC &grid) {
    const uint32_t *first = grid.array;
    const uint32_t *end = first + values_of(grid);
    const uint32_t *over = std::find_if(first, end, [&](uint32_t entry) { return entry >= grid.size; });
    if (over != end) {
        const auto at = static_cast<uint64_t>(over - first);
        const uint64_t tile = at / grid.size;
        throw Refused("entry " + std::to_string(at % grid.size) + " of the curve in row " +
                      std::to_string(tile / grid.numStripsX) + ", column " + std::to_string(tile % grid.numStripsX) +
                      " is not between 0 and " + std::to_string(grid.size - 1));
    }
}

void load() {
    const Removed removed;
    ko::TileTRCPtr grid = make_grid(0, 0, 0);
    ko::check(KoTileTRCLoad(grid.get(), path) == KO_OK, "the curves cannot be read");
    check_shape(grid->size, grid->numStripsX, grid->numStripsY);
    check_entries(*grid);
    curves() = std::move(grid);
}

void read_into_room() {
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path, "rb"), &std::fclose);
    if (file == nullptr || std::fseek(file.get(), 0, SEEK_END) != 0) {
        throw std::runtime_error("the saved curves cannot be read");
    }
    const long size = std::ftell(file.get());
    std::rewind(file.get());
    room().resize(static_cast<size_t>(std::max(size, 0L)));
    if (std::fread(room().data(), 1, room().size(), file.get()) != room().size()) {
        throw std::runtime_error("the saved curves cannot be read");
    }
}

// The library's result of a save covers only the opening of the file, and two of the forms lose some curves silently: what was
// saved is loaded again and compared.
void save(int32_t form) {
    const Removed removed;
    ko::TileTRCPtr again = make_grid(0, 0, 0);
    ko::check(KoTileTRCSave(curves().get(), path, form, 1) == KO_OK, "the curves cannot be saved");
    const bool loaded = KoTileTRCLoad(again.get(), path) == KO_OK;
    if (!loaded && (KoErrorGetLastError() == KO_ERR_ALLOC || KoErrorGetLastError() == KO_ERR_CREATE_OBJECT)) {
        throw ko::Error("the saved curves cannot be checked");
    }
    if (!loaded || KoTileTRCCompare(again.get(), curves().get()) == 0) {
        throw Refused("the form does not hold these curves");
    }
    read_into_room();
}

} // namespace

} // namespace web

using namespace web;

// Leaves a grid whose entries the caller writes.
KO_WEB int32_t ko_web_make_curves(uint32_t columns, uint32_t rows, uint32_t entries) {
    return answered([=] {
        curves().reset();
        check_shape(entries, columns, rows);
        curves() = make_grid(entries, columns, rows);
    });
}

// Where the entries of the curves lie; null if there are none.
KO_WEB uint32_t *ko_web_entries() { return curves() != nullptr ? curves()->array : nullptr; }

// Answers with the columns, the rows and the entries of each curve.
KO_WEB int32_t ko_web_shape() {
    return answered([] {
        give(static_cast<double>(KoTileTRCGetNumStripsX(curves().get())));
        give(static_cast<double>(KoTileTRCGetNumStripsY(curves().get())));
        give(static_cast<double>(KoTileTRCGetSize(curves().get())));
    });
}

// Leaves the curves of the file /curves, which is removed.
KO_WEB int32_t ko_web_load_curves() {
    return answered([] {
        curves().reset();
        load();
    });
}

// Leaves a file of the curves in the room, and answers with its size.
KO_WEB int32_t ko_web_save_curves(int32_t form) {
    return answered([=] {
        save(form);
        give(static_cast<double>(room().size()));
    });
}
