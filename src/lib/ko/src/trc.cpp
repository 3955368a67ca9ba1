// TRC: the tone curve's life, resizing, composition, text file and application. The fit is in trc_compute.cpp.
#include "trc.h"

#include <cstdio>
#include <cstring>

#include "alloc.h"
#include "ko/applyfunction.h"
#include "matrix.h"
#include "report.h"
#include "textfile.h"

namespace {

using namespace ko;

constexpr uint64_t largest_size = 65536;
constexpr uint64_t least_size_to_grow = 3;

uint32_t low_size(const TRC *trc) { return static_cast<uint32_t>(trc->size); }

bool has_entries(const TRC *trc) { return trc->array != nullptr && low_size(trc) != 0; }

void replace_array(TRC *trc, uint32_t *array, uint64_t size) {
    KoFree(trc->array);
    trc->array = array;
    trc->size = size;
}

void shrink(const TRC *trc, uint32_t *entries, uint64_t size) {
    const uint64_t step = trc->size / size;
    for (uint64_t i = 0; i < size; ++i) {
        entries[i] = trc->array[i * step];
    }
}

// The polynomial through nodes entries at 0, 1, 2, ..., evaluated at t: single precision, nodes in ascending order.
float lagrange(const uint32_t *entries, int nodes, float t) {
    float sum = 0.0f;
    for (int i = 0; i < nodes; ++i) {
        const float entry = static_cast<float>(entries[i]);
        if (t == static_cast<float>(i)) {
            sum += entry;
            continue;
        }
        float numerator = 1.0f;
        float denominator = 1.0f;
        for (int j = 0; j < nodes; ++j) {
            if (j != i) {
                numerator *= t - static_cast<float>(j);
                denominator *= static_cast<float>(i - j);
            }
        }
        sum += numerator / denominator * entry;
    }
    return sum;
}

// Writes count samples, ratio a node interval, from the interval that begins at first on.
uint32_t *interpolate(const uint32_t *entries, int nodes, float first, uint64_t count, uint64_t ratio, uint32_t *out) {
    for (uint64_t k = 0; k < count; ++k) {
        const float t = static_cast<float>(k) / static_cast<float>(ratio) + first;
        *out++ = curve_index(lagrange(entries, nodes, t) * static_cast<float>(ratio));
    }
    return out;
}

// Pieces of cubics through four neighbours, and parabolas at both ends.
void grow(const TRC *trc, uint32_t *entries, uint64_t size) {
    const uint64_t ratio = size / trc->size;
    uint32_t *out = interpolate(trc->array, 3, 0.0f, ratio, ratio, entries);
    for (uint64_t window = 0; window + 4 <= trc->size; ++window) {
        out = interpolate(trc->array + window, 4, 1.0f, ratio, ratio, out);
    }
    interpolate(trc->array + trc->size - 3, 3, 1.0f, 2 * ratio, ratio, out);
}

void compose(uint32_t *entries, uint64_t size, const uint32_t *first, const uint32_t *second) {
    for (uint64_t i = 0; i < size; ++i) {
        entries[i] = second[first[i]];
    }
}

// Makes room for as many entries as a file's header says. What cannot be allocated leaves the curve as it was.
int32_t fit_to_header(TRC *trc, uint64_t size) {
    if (trc->size == size && trc->array != nullptr) {
        return KO_OK;
    }
    auto *array = allocate_clear<uint32_t>(size);
    if (array == nullptr) {
        return KoErrorGetLastError();
    }
    replace_array(trc, array, size);
    return KO_OK;
}

int32_t apply_to_packets(void *data, int64_t count, uint64_t depth, const float *source, uint64_t, float *result) {
    const auto *trc = static_cast<const TRC *>(data);
    for (uint64_t pixel = 0; pixel < static_cast<uint64_t>(count); ++pixel) {
        for (uint64_t c = 0; c < depth; ++c) {
            const uint64_t i = pixel * 4 + c;
            result[i] = curve_value(trc->array, low_size(trc), curve_index(source[i]));
        }
    }
    return KO_OK;
}

} // namespace

int32_t KoTRCInit(TRC *trc, uint64_t size) {
    *trc = {size, allocate<uint32_t>(size)};
    return trc->array != nullptr ? static_cast<int32_t>(KO_OK) : KoErrorGetLastError();
}

TRC *KoTRCNew(uint64_t size) {
    return make_object<TRC>(
        "TRC", [=](TRC *trc) { return KoTRCInit(trc, size); }, KoTRCFree);
}

int32_t KoTRCFree(TRC *trc) {
    if (trc != nullptr) {
        KoFree(trc->array);
        trc->array = nullptr;
    }
    return KO_OK;
}

int32_t KoTRCDelete(TRC *trc) {
    KoTRCFree(trc);
    KoFree(trc);
    return KO_OK;
}

uint32_t KoTRCGetSize(const TRC *trc) { return low_size(trc); }

uint32_t *KoTRCGetArray(const TRC *trc) { return trc->array; }

uint32_t KoTRCGetValue(const TRC *trc, uint32_t index) { return trc->array[index]; }

int32_t KoTRCSetSize(TRC *trc, uint64_t size) {
    if (size < 1 || size > largest_size) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INDEX_OUT_OF_BOUNDS, message_int(size), 1, message_int(largest_size));
    }
    if (size != trc->size) {
        KoTRCFree(trc);
        trc->size = size;
        trc->array = allocate<uint32_t>(size);
    }
    return KO_OK;
}

int32_t KoTRCResize(TRC *trc, uint64_t size) {
    if (size < 1 || size > largest_size) {
        // The lower bound shown is 0: see "The lower bound of a size" in docs/compatibility.md.
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INDEX_OUT_OF_BOUNDS, message_int(size), 0, message_int(largest_size));
    }
    if (size == trc->size) {
        return KO_OK;
    }
    if (trc->array == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    if (size > trc->size && trc->size < least_size_to_grow) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    auto *entries = allocate_clear<uint32_t>(size);
    if (entries == nullptr) {
        return KoErrorGetLastError();
    }
    (size < trc->size ? shrink : grow)(trc, entries, size);
    replace_array(trc, entries, size);
    return KO_OK;
}

int32_t KoTRCSetArray(TRC *trc, const uint32_t *source, uint64_t count) {
    if (source == nullptr || count != trc->size) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    if (trc->array == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    std::memmove(trc->array, source, count * sizeof(uint32_t));
    return KO_OK;
}

int32_t KoTRCSetIdentity(TRC *trc) {
    if (trc->array == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    for (uint64_t i = 0; i < trc->size; ++i) {
        trc->array[i] = static_cast<uint32_t>(i);
    }
    return KO_OK;
}

int32_t KoTRCSetCompose(TRC *trc, const uint32_t *first, const uint32_t *second) {
    if (first == nullptr || second == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    auto *entries = allocate<uint32_t>(trc->size);
    if (entries != nullptr) {
        compose(entries, trc->size, first, second);
        replace_array(trc, entries, trc->size);
    }
    return KO_OK;
}

TRC *KoTRCNewCompose(const uint32_t *first, const uint32_t *second, uint64_t size) {
    return make_object<TRC>(
        "TRC",
        [=](TRC *trc) {
            *trc = {};
            if (first == nullptr || second == nullptr) {
                return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
            }
            const int32_t status = KoTRCInit(trc, size);
            if (status == KO_OK) {
                compose(trc->array, size, first, second);
            }
            return status;
        },
        KoTRCFree);
}

int32_t KoTRCLoad(TRC *trc, const char *path) {
    TextReader reader(path);
    int32_t status = reader.open("r");
    uint64_t size = 0;
    if (status == KO_OK) {
        status = read_curve_header(&reader, "GrayLinear", "Invalid value, must be GrayLinear", &size);
    }
    if (status == KO_OK) {
        status = fit_to_header(trc, size);
    }
    return status == KO_OK ? read_numbers(&reader, "Invalid value, <GRAY>", trc->array, size) : status;
}

int32_t KoTRCSave(const TRC *trc, const char *path, int32_t overwrite) {
    if (trc->array == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    File file;
    const int32_t status = open_for_writing(path, "w", overwrite, &file);
    if (status != KO_OK) {
        return status;
    }
    std::fprintf(file.get(), "GrayLinear\nbits %d\n", static_cast<int>(truncated_log2(trc->size)));
    write_numbers(file.get(), trc->array, trc->size);
    return KO_OK;
}

int32_t KoTRCApplyToRealImage(const TRC *trc, RealImage *image) {
    if (!has_entries(trc)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    for (uint64_t y = 0; y < image->height; ++y) {
        float *row = image->rows[y];
        for (uint64_t x = 0; x < image->width; ++x) {
            row[x] = curve_value(trc->array, low_size(trc), curve_index(row[x]));
        }
    }
    return KO_OK;
}

int32_t KoTRCApplyToColorImage(const TRC *trc, ColorImage *image) {
    if (image->depth == 1) {
        return KoTRCApplyToRealImage(trc, &image->planes[0]);
    }
    if (!has_entries(trc)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    return KoApplyFunctionTo1ColorImage(apply_to_packets, const_cast<TRC *>(trc), image, &image);
}
