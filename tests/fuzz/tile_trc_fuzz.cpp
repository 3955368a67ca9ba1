// KoTileTRCLoad on any bytes: its three forms.
#include "reference_tokens.h"
#include "round_trip.h"

namespace {

using namespace ko_fuzz;

uint64_t tiles_of(const TileTRC *grid) { return grid->array == nullptr ? 0 : grid->numStripsX * grid->numStripsY; }

// A step that one signed byte can hold.
bool fits_byte(uint32_t step) { return step + 128 < 256; }

bool steps_fit_bytes(const uint32_t *curve, uint64_t size) {
    uint32_t previous = 0;
    return std::all_of(curve, curve + size, [&](uint32_t entry) {
        const uint32_t step = entry - previous;
        previous = entry;
        return fits_byte(step);
    });
}

struct Grid {
    using Object = TileTRC;
    static constexpr int32_t form_count = KO_TILETRC_ENCODED;
    static ko_test::TileTRCPtr New() { return ko_test::TileTRCPtr(KoTileTRCNew(4, 3, 1)); }
    static int32_t Load(TileTRC *grid, const char *path) { return KoTileTRCLoad(grid, path); }
    static int32_t Save(const TileTRC *grid, const char *path, int32_t form) { return KoTileTRCSave(grid, path, form, 1); }
    static bool Same(const TileTRC *a, const TileTRC *b) { return KoTileTRCCompare(a, b) == 1; }
    static int32_t further_status(int32_t status) { return status == KO_ERR_READ_FILE ? KO_ERR_READ_FILE : KO_ERR_READ_LINE; }
    static bool Holds(int32_t form, const TileTRC *grid) {
        for (uint64_t tile = 0; tile < tiles_of(grid); ++tile) {
            const uint32_t *curve = grid->array + tile * grid->size;
            if ((form == KO_TILETRC_BINARY && !steps_fit_bytes(curve, grid->size)) ||
                (form == KO_TILETRC_ENCODED && !ko_test::survives_tokens(curve, grid->size))) {
                return false;
            }
        }
        return true;
    }
    static void Look(const TileTRC *grid) {
        expect((grid->array == nullptr) == (grid->numStripsX == 0 || grid->numStripsY == 0), "a grid of tiles has entries");
        walk(grid->array, grid->size * tiles_of(grid));
        if (tiles_of(grid) > 0) {
            const uint32_t *last = KoTileTRCGetTRC(grid, grid->numStripsX - 1, grid->numStripsY - 1);
            expect(last == grid->array + (tiles_of(grid) - 1) * grid->size, "the last tile is the last curve");
        }
    }
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) { return fuzz_curve_file(Grid(), data, size); }
