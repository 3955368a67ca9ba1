// Histogram: counters over a range of values, percentiles, a curve pushed through, and the text file.
#include "ko/histogram.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "alloc.h"
#include "convert.h"
#include "lanes.h"
#include "report.h"
#include "textfile.h"

namespace {

using namespace ko;

bool has_counters(const Histogram *histogram) { return histogram->values != nullptr && histogram->size != 0; }

int32_t report_no_counters() { return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER); }

// Bins of a histogram whose last bin is a float.
class BinFinder {
  public:
    explicit BinFinder(const Histogram *histogram)
        : minimum_(histogram->minValue), scale_(histogram->scale), zero_(opaque_zero - Floats{}),
          last_(static_cast<float>(histogram->size - 1) - Floats{}) {}

    // As bin_index, limited to the last bin, in single precision: the fraction is exact.
    Ints operator()(const Floats &pixels) const {
        const Floats values = (pixels - minimum_) * scale_;
        const Floats raised = values > zero_ ? values : zero_;
        const Floats kept = raised < 2147483648.0f ? raised : Floats{};
        const Floats limited = kept < last_ ? kept : last_;
        const Ints whole = convert<Ints>(limited);
        return whole - (limited - convert<Floats>(whole) >= 0.5f); // true is -1
    }

  private:
    float minimum_;
    float scale_;
    Floats zero_;
    Floats last_;
};

constexpr uint32_t exact_floats = 1u << 24; // all whole numbers up to it are floats

// Pixels that are counted at a time: few enough for the processor to find the bins of the next ones meanwhile, but so many that
// their bins have left its store buffer when they are read.
constexpr uint64_t piece = 128;

// The bins of some pixels of a line, at most a piece.
void find_bins(const Histogram *histogram, const float *pixels, uint64_t count, int32_t *bins) {
    const float minimum = histogram->minValue;
    const float scale = histogram->scale;
    uint64_t x = 0;
    if (histogram->size <= exact_floats) {
        const BinFinder bins_of(histogram);
        for (; x + float_lanes <= count; x += float_lanes) {
            store(bins_of(load<Floats>(pixels + x)), bins + x);
        }
    }
    for (; x < count; ++x) {
        bins[x] = static_cast<int32_t>(std::min(bin_index((pixels[x] - minimum) * scale), histogram->size - 1));
    }
}

// Counters that take turns, pixel by pixel: neighbours often fall into one bin, and a counter cannot be raised again before it
// is stored. Histograms of many bins have the one table that they keep.
class Counters {
  public:
    explicit Counters(const Histogram *histogram) : histogram_(histogram) {
        if (has_tables()) {
            for (auto &table : tables_) {
                std::fill_n(table, histogram->size, 0u);
            }
        }
    }

    void count(const int32_t *bins, uint64_t count) {
        if (!has_tables()) {
            for (uint64_t x = 0; x < count; ++x) {
                ++histogram_->values[bins[x]];
            }
            return;
        }
        uint64_t x = 0;
        for (; x + table_count <= count; x += table_count) {
            for (uint64_t t = 0; t < table_count; ++t) {
                ++tables_[t][bins[x + t]];
            }
        }
        for (; x < count; ++x) {
            ++tables_[0][bins[x]];
        }
    }

    // Adds what was counted to the histogram.
    void finish() const {
        for (uint64_t bin = 0; has_tables() && bin < histogram_->size; ++bin) {
            for (const auto &table : tables_) {
                histogram_->values[bin] += table[bin];
            }
        }
    }

  private:
    static constexpr uint64_t table_count = 8;
    static constexpr uint64_t table_size = 512;
    // Apart by other than a part of 4096 bytes, at which the processor takes one counter of a bin for another.
    static constexpr uint64_t table_distance = table_size + 16;

    bool has_tables() const { return histogram_->size <= table_size; }

    const Histogram *histogram_;
    uint32_t tables_[table_count][table_distance];
};

// Adds each counter to that of the bin that its entry names; only the low 32 bits of an entry count.
template <class Entry> int32_t push_through(Histogram *histogram, const Entry *entries) {
    auto *values = allocate_clear<uint32_t>(histogram->size);
    if (values == nullptr) {
        return KO_OK;
    }
    for (uint32_t i = 0; i < histogram->size; ++i) {
        values[std::min(static_cast<uint32_t>(entries[i]), histogram->size - 1)] += histogram->values[i];
    }
    KoFree(histogram->values);
    histogram->values = values;
    return KO_OK;
}

template <class Entry> int32_t apply_entries(Histogram *histogram, const Entry *entries, uint64_t count) {
    if (histogram == nullptr || count != histogram->size) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    return has_counters(histogram) && entries != nullptr ? push_through(histogram, entries) : report_no_counters();
}

// Makes room for as many counters as a file's header says. A failed allocation leaves the histogram as it was.
int32_t fit_to_header(Histogram *histogram, uint32_t size) {
    if (histogram->size == size && histogram->values != nullptr) {
        return KO_OK;
    }
    auto *values = allocate_clear<uint32_t>(size);
    if (values == nullptr) {
        return KoErrorGetLastError();
    }
    KoFree(histogram->values);
    const float maximum = static_cast<float>(size); // see "The range of a loaded histogram" in docs/compatibility.md
    *histogram = {size, 0.0f, maximum, static_cast<float>(size - 1) / maximum, 0, values};
    return KO_OK;
}

} // namespace

int32_t KoHistogramInit(Histogram *histogram, uint32_t size, float minimum, float maximum) {
    const float scale = static_cast<float>(size - 1) / (maximum - minimum);
    *histogram = {size, minimum, maximum, scale, 0, allocate_clear<uint32_t>(size)};
    return KO_OK;
}

Histogram *KoHistogramNew(uint32_t size, float minimum, float maximum) {
    return make_object<Histogram>(
        "Histogram", [=](Histogram *histogram) { return KoHistogramInit(histogram, size, minimum, maximum); }, KoHistogramFree);
}

Histogram *KoHistogramNewFromSubImage(uint32_t size, float minimum, float maximum, RealImageLineIterator *iterator) {
    return make_object<Histogram>(
        "Histogram",
        [=](Histogram *histogram) {
            KoHistogramInit(histogram, size, minimum, maximum);
            return KoHistogramFromSubImage(histogram, iterator);
        },
        KoHistogramFree);
}

int32_t KoHistogramFree(Histogram *histogram) {
    if (histogram != nullptr) {
        KoFree(histogram->values);
    }
    return KO_OK;
}

int32_t KoHistogramDelete(Histogram *histogram) {
    KoHistogramFree(histogram);
    KoFree(histogram);
    return KO_OK;
}

uint32_t KoHistogramGetSize(const Histogram *histogram) { return histogram->size; }

uint32_t KoHistogramGetNumPixels(const Histogram *histogram) { return histogram->numPixels; }

uint32_t KoHistogramGetValue(const Histogram *histogram, uint32_t bin) {
    return has_counters(histogram) && bin < histogram->size ? histogram->values[bin] : 0;
}

int32_t KoHistogramAddValue(Histogram *histogram, uint32_t bin, uint32_t amount) {
    if (!has_counters(histogram)) {
        return report_no_counters();
    }
    if (bin < histogram->size) {
        histogram->values[bin] += amount;
    }
    return KO_OK;
}

int32_t KoHistogramSetValues(Histogram *histogram, const uint32_t *source, uint32_t count) {
    if (source == nullptr || count != histogram->size) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    if (!has_counters(histogram)) {
        return report_no_counters();
    }
    std::memmove(histogram->values, source, count * sizeof(uint32_t));
    return KO_OK;
}

int32_t KoHistogramCompute(Histogram *histogram, RealImage *image) {
    RealImageLineIterator iterator;
    KoRealImageLineIteratorInit(&iterator, image);
    return KoHistogramFromSubImage(histogram, &iterator);
}

int32_t KoHistogramFromSubImage(Histogram *histogram, RealImageLineIterator *iterator) {
    if (!has_counters(histogram)) {
        return report_no_counters();
    }
    Counters counters(histogram);
    while (KoRealImageLineIteratorHasNext(iterator)) {
        const float *line = KoRealImageLineIteratorNext(iterator);
        for (uint64_t x = 0; x < iterator->width; x += piece) {
            int32_t bins[piece];
            const uint64_t count = std::min(piece, iterator->width - x);
            find_bins(histogram, line + x, count, bins);
            counters.count(bins, count);
        }
    }
    counters.finish();
    histogram->numPixels = static_cast<uint32_t>(iterator->width * iterator->height);
    return KO_OK;
}

float KoHistogramGetValueAtPercentile(const Histogram *histogram, float fraction) {
    if (!has_counters(histogram)) {
        return histogram->minValue;
    }
    const float target = static_cast<float>(histogram->numPixels) * (fraction > 1.0f ? 1.0f : fraction);
    uint32_t bin = 0;
    float sum = static_cast<float>(histogram->values[0]);
    while (!(sum >= target) && bin < histogram->size - 1) {
        sum += static_cast<float>(histogram->values[++bin]);
    }
    return static_cast<float>(bin) / histogram->scale + histogram->minValue;
}

int32_t KoHistogramApplyTRC(Histogram *histogram, const TRC *trc) { return apply_entries(histogram, trc->array, trc->size); }

int32_t KoHistogramApplyRawTRC(Histogram *histogram, const int32_t *entries, uint32_t entry_count) {
    return apply_entries(histogram, entries, entry_count);
}

int32_t KoHistogramLoad(Histogram *histogram, const char *path) {
    TextReader reader(path);
    int32_t status = reader.open("r");
    uint64_t size = 0;
    if (status == KO_OK) {
        status = read_bits(&reader, &size);
    }
    if (status == KO_OK) {
        status = fit_to_header(histogram, static_cast<uint32_t>(size));
    }
    return status == KO_OK ? read_numbers(&reader, "Invalid value, <HISOGRAM VALUE>", histogram->values, size) : status;
}

int32_t KoHistogramSave(const Histogram *histogram, const char *path, int32_t overwrite) {
    if (!has_counters(histogram)) {
        return report_no_counters();
    }
    File file;
    const int32_t status = open_for_writing(path, "w", overwrite, &file);
    if (status != KO_OK) {
        return status;
    }
    std::fprintf(file.get(), "bits %d\n", static_cast<int>(truncated_log2(histogram->size)));
    write_numbers(file.get(), histogram->values, histogram->size);
    return KO_OK;
}
