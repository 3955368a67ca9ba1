// KoHistogramLoad on any bytes.
#include "round_trip.h"

namespace {

using namespace ko_fuzz;

constexpr uint32_t pixels = 17;

struct Counters : TextFamily<Histogram> {
    static ko::HistogramPtr New() {
        ko::HistogramPtr histogram(KoHistogramNew(4, 10.0f, 40.0f));
        histogram->numPixels = pixels;
        return histogram;
    }
    static int32_t Load(Histogram *histogram, const char *path) { return KoHistogramLoad(histogram, path); }
    static int32_t Save(const Histogram *histogram, const char *path, int32_t) { return KoHistogramSave(histogram, path, 1); }
    static bool Same(const Histogram *a, const Histogram *b) {
        return a->size == b->size && a->minValue == b->minValue && a->maxValue == b->maxValue && a->scale == b->scale &&
               a->numPixels == b->numPixels && std::equal(a->values, a->values + a->size, b->values);
    }
    static void Look(const Histogram *histogram) {
        expect(histogram->values != nullptr, "a histogram has counters");
        walk(histogram->values, histogram->size);
        const auto size = static_cast<float>(histogram->size);
        const bool as_it_was = histogram->size == 4 && histogram->maxValue == 40.0f && histogram->numPixels == pixels;
        const bool fresh = histogram->minValue == 0.0f && histogram->maxValue == size && histogram->numPixels == 0;
        expect(as_it_was || fresh, "the range is kept or begins anew, and nothing was counted");
        KoHistogramGetValueAtPercentile(histogram, histogram->size < 1000000 ? 1.0f : 0.0f);
    }
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) { return fuzz_curve_file(Counters(), data, size); }
