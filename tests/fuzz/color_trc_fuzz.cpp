// KoColorTRCLoad on any bytes.
#include "round_trip.h"

namespace {

using namespace ko_fuzz;

struct ColorCurve : TextFamily<ColorTRC> {
    static ko_test::ColorTRCPtr New() { return ko_test::ColorTRCPtr(KoColorTRCNew(4, 3)); }
    static int32_t Load(ColorTRC *color, const char *path) { return KoColorTRCLoad(color, path); }
    static int32_t Save(const ColorTRC *color, const char *path, int32_t) { return KoColorTRCSave(color, path, 1); }
    static bool Same(const ColorTRC *a, const ColorTRC *b) {
        const uint64_t size = KoColorTRCGetSize(a);
        bool same = size == KoColorTRCGetSize(b);
        for (uint32_t c = 0; c < 3 && same; ++c) {
            const uint32_t *entries = KoColorTRCGetArray(a, c);
            same = std::equal(entries, entries + size, KoColorTRCGetArray(b, c));
        }
        return same;
    }
    static void Look(const ColorTRC *color) {
        expect(color->depth == 3, "the number of curves stays");
        for (uint64_t c = 0; c < color->depth; ++c) {
            const TRC *curve = color->curves[c];
            expect(curve != nullptr && curve->array != nullptr, "a curve has entries");
            expect(curve->size == color->curves[0]->size, "curves are of one size");
            walk(curve->array, curve->size);
        }
    }
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) { return fuzz_curve_file(ColorCurve(), data, size); }
