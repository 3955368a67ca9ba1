// KoTileColorTRCLoad on any bytes.
#include <array>
#include <bit>

#include "files.h"
#include "round_trip.h"

namespace {

using namespace ko_fuzz;

std::array<const uint32_t *, 3> planes_of(const TileColorTRC *grid) {
    return {grid->redArray, grid->greenArray, grid->blueArray};
}

uint64_t tiles_of(const TileColorTRC *grid) { return grid->redArray == nullptr ? 0 : grid->numStripsX * grid->numStripsY; }

// A saved file's number of bits is no logarithm of the size (see "The bits of a colour grid" in docs/compatibility.md): here it
// becomes one.
void mend_bits(const std::string &path, uint64_t size) {
    const std::string text = ko_test::read_text(path);
    const std::string start = "RGBLinear\nbits ";
    expect(text.rfind(start, 0) == 0, "a saved file begins with its word and its bits");
    const std::string bits = std::to_string(std::countr_zero(size));
    ko_test::write_bytes(path, start + bits + text.substr(std::min(text.find(' ', start.size()), text.size())));
}

struct ColorGrid : TextFamily<TileColorTRC> {
    static ko_test::TileColorTRCPtr New() { return ko_test::TileColorTRCPtr(KoTileColorTRCNew(4, 3, 1)); }
    static int32_t Load(TileColorTRC *grid, const char *path) { return KoTileColorTRCLoad(grid, path); }
    static int32_t Save(const TileColorTRC *grid, const char *path, int32_t) {
        const int32_t status = KoTileColorTRCSave(grid, path, 1);
        mend_bits(path, grid->size);
        return status;
    }
    static bool Same(const TileColorTRC *a, const TileColorTRC *b) { return KoTileColorTRCCompare(a, b) == 1; }
    static void Look(const TileColorTRC *grid) {
        expect(std::has_single_bit(grid->size), "a size is a power of two");
        for (const uint32_t *plane : planes_of(grid)) {
            expect((plane == nullptr) == (grid->numStripsX == 0 || grid->numStripsY == 0), "a grid of tiles has entries");
            walk(plane, grid->size * tiles_of(grid));
        }
        if (tiles_of(grid) > 0) {
            const uint32_t *last = KoTileColorTRCGetBlueTRC(grid, grid->numStripsX - 1, grid->numStripsY - 1);
            expect(last == grid->blueArray + (tiles_of(grid) - 1) * grid->size, "the last tile is the last curve");
        }
    }
};

constexpr uint64_t longest_composed = 65536; // a header of a few bytes can ask for a gigabyte, which is not to be touched

// What was loaded is composed with itself: whatever its entries are, nothing leaves the curves.
void compose_last_tile(const uint8_t *data, size_t size) {
    const ko_test::TileColorTRCPtr grid = ColorGrid::New();
    KoTileColorTRCLoad(grid.get(), private_file("composed", text_of(data, size)).c_str());
    if (tiles_of(grid.get()) > 0 && grid->size <= longest_composed) {
        const uint64_t x = grid->numStripsX - 1;
        const uint64_t y = grid->numStripsY - 1;
        const uint32_t *red = KoTileColorTRCGetRedTRC(grid.get(), x, y);
        const uint32_t *blue = KoTileColorTRCGetBlueTRC(grid.get(), x, y);
        expect(KoTileColorTRCComposeTile(grid.get(), x, y, blue, red, nullptr) == KO_OK, "curves can be composed");
        walk(red, grid->size);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const int result = fuzz_curve_file(ColorGrid(), data, size);
    compose_last_tile(data, size);
    return result;
}
