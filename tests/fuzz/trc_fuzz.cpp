// KoTRCLoad on any bytes.
#include "round_trip.h"

namespace {

using namespace ko_fuzz;

struct Curve : TextFamily<TRC> {
    static ko_test::TRCPtr New() { return ko_test::TRCPtr(KoTRCNew(4)); }
    static int32_t Load(TRC *trc, const char *path) { return KoTRCLoad(trc, path); }
    static int32_t Save(const TRC *trc, const char *path, int32_t) { return KoTRCSave(trc, path, 1); }
    static bool Same(const TRC *a, const TRC *b) {
        return a->size == b->size && std::equal(a->array, a->array + a->size, b->array);
    }
    static void Look(const TRC *trc) {
        expect(trc->array != nullptr, "a curve has entries");
        expect(trc->size > 0 && (trc->size & (trc->size - 1)) == 0, "a size is a power of two");
        walk(trc->array, trc->size);
    }
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) { return fuzz_curve_file(Curve(), data, size); }
