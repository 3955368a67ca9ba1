// ColorTRC: one tone curve a channel, its text file and its application.
#include "ko/colortrc.h"

#include <cstdio>

#include "alloc.h"
#include "ko/applyfunction.h"
#include "report.h"
#include "textfile.h"
#include "trc.h"

namespace {

using namespace ko;

// The channels of the text file.
constexpr uint32_t file_channels = 3;

// A channel's curve, or null.
TRC *curve_of(const ColorTRC *color_trc, uint64_t channel) {
    return color_trc->curves != nullptr && channel < color_trc->depth ? color_trc->curves[channel] : nullptr;
}

// Calls each(curve) for every curve up to the first failure; a curve that could not be allocated is one.
template <class Each> int32_t for_each_curve(ColorTRC *color_trc, Each each) {
    for (uint64_t c = 0; c < color_trc->depth; ++c) {
        TRC *curve = curve_of(color_trc, c);
        const int32_t status = curve != nullptr ? each(curve) : KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
        if (status != KO_OK) {
            return status;
        }
    }
    return KO_OK;
}

bool file_channels_have(const ColorTRC *color_trc, uint64_t size) {
    for (uint32_t c = 0; c < file_channels; ++c) {
        const TRC *curve = curve_of(color_trc, c);
        if (curve == nullptr || curve->array == nullptr || curve->size != size) {
            return false;
        }
    }
    return true;
}

// Makes room for as many entries as a file's header says. What cannot be allocated leaves the record as it was.
int32_t fit_to_header(ColorTRC *color_trc, uint64_t size) {
    if (file_channels_have(color_trc, size)) {
        return KO_OK;
    }
    if (size * sizeof(uint32_t) > largest_block) {
        fail_allocation(size * sizeof(uint32_t)); // once, not once a curve
        return KO_ERR_ALLOC;
    }
    ColorTRC fresh = {};
    if (KoColorTRCInit(&fresh, size, color_trc->depth) != KO_OK || !file_channels_have(&fresh, size)) {
        KoColorTRCFree(&fresh);
        return KO_ERR_ALLOC;
    }
    KoColorTRCFree(color_trc);
    *color_trc = fresh;
    return KO_OK;
}

float value_at(const TRC *curve, float level) {
    return curve_value(curve->array, static_cast<uint32_t>(curve->size), curve_index(level));
}

bool has_entries(const TRC *curve) {
    return curve != nullptr && curve->array != nullptr && static_cast<uint32_t>(curve->size) != 0;
}

int32_t apply_to_packets(void *data, int64_t count, uint64_t depth, const float *source, uint64_t, float *result) {
    const auto *color_trc = static_cast<const ColorTRC *>(data);
    for (uint64_t c = 0; c < depth; ++c) {
        const TRC *curve = curve_of(color_trc, c);
        for (uint64_t i = c; i < static_cast<uint64_t>(count) * 4; i += 4) {
            result[i] = has_entries(curve) ? value_at(curve, source[i]) : 0.0f;
        }
    }
    return KO_OK;
}

} // namespace

int32_t KoColorTRCInit(ColorTRC *color_trc, uint64_t size, uint64_t depth) {
    *color_trc = {depth, allocate_clear<TRC *>(depth)};
    if (color_trc->curves == nullptr) {
        return KoErrorGetLastError();
    }
    for (uint64_t c = 0; c < depth; ++c) {
        color_trc->curves[c] = KoTRCNew(size);
    }
    return KO_OK;
}

ColorTRC *KoColorTRCNew(uint64_t size, uint64_t depth) {
    return make_object<ColorTRC>(
        "ColorTRC", [=](ColorTRC *color_trc) { return KoColorTRCInit(color_trc, size, depth); }, KoColorTRCFree);
}

int32_t KoColorTRCFree(ColorTRC *color_trc) {
    if (color_trc == nullptr || color_trc->curves == nullptr) {
        return KO_OK;
    }
    for (uint64_t c = 0; c < color_trc->depth; ++c) {
        KoTRCDelete(color_trc->curves[c]);
    }
    KoFree(color_trc->curves);
    color_trc->curves = nullptr;
    return KO_OK;
}

int32_t KoColorTRCDelete(ColorTRC *color_trc) {
    KoColorTRCFree(color_trc);
    KoFree(color_trc);
    return KO_OK;
}

uint32_t KoColorTRCGetDepth(const ColorTRC *color_trc) { return static_cast<uint32_t>(color_trc->depth); }

uint64_t KoColorTRCGetSize(const ColorTRC *color_trc) {
    const TRC *curve = curve_of(color_trc, 0);
    return curve != nullptr ? curve->size : 0;
}

uint32_t *KoColorTRCGetArray(const ColorTRC *color_trc, uint32_t channel) {
    const TRC *curve = curve_of(color_trc, channel);
    return curve != nullptr ? curve->array : nullptr;
}

int32_t KoColorTRCSetArray(ColorTRC *color_trc, uint32_t channel, const uint32_t *source, uint64_t count) {
    TRC *curve = curve_of(color_trc, channel);
    if (curve == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    return KoTRCSetArray(curve, source, count);
}

int32_t KoColorTRCSetIdentity(ColorTRC *color_trc) { return for_each_curve(color_trc, KoTRCSetIdentity); }

uint32_t KoColorTRCGetValue(const ColorTRC *color_trc, uint32_t channel, uint32_t index) {
    const TRC *curve = curve_of(color_trc, channel);
    if (curve == nullptr) {
        KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
        return 0;
    }
    return KoTRCGetValue(curve, index);
}

int32_t KoColorTRCResize(ColorTRC *color_trc, uint64_t size) {
    const int32_t status = for_each_curve(color_trc, [=](TRC *curve) { return KoTRCResize(curve, size); });
    KoColorTRCSave(color_trc, "colortrc.txt", 1); // see "colortrc.txt" in docs/compatibility.md
    return status;
}

int32_t KoColorTRCApply(const ColorTRC *color_trc, ColorImage *image, ColorImage **result) {
    // A channel without a curve is reported once a call, not once a pixel: the chain would grow with the picture.
    for (uint64_t c = 0; c < image->depth && image->depth == 3; ++c) {
        if (!has_entries(curve_of(color_trc, c))) {
            KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
        }
    }
    return KoApplyFunctionTo1ColorImage(apply_to_packets, const_cast<ColorTRC *>(color_trc), image, result);
}

int32_t KoColorTRCLoad(ColorTRC *color_trc, const char *path) {
    if (color_trc->depth < file_channels) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    TextReader reader(path);
    int32_t status = reader.open("r");
    uint64_t size = 0;
    if (status == KO_OK) {
        status = read_curve_header(&reader, three_channel_word, not_three_channels, &size);
    }
    if (status == KO_OK) {
        status = fit_to_header(color_trc, size);
    }
    if (status != KO_OK) {
        return status;
    }
    TRC *const *curves = color_trc->curves;
    return read_triples(&reader, curves[0]->array, curves[1]->array, curves[2]->array, size);
}

int32_t KoColorTRCSave(const ColorTRC *color_trc, const char *path, int32_t overwrite) {
    if (color_trc->depth < file_channels) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    for (uint32_t c = 0; c < file_channels; ++c) {
        if (!has_entries(curve_of(color_trc, c))) {
            return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
        }
    }
    File file;
    const int32_t status = open_for_writing(path, "w", overwrite, &file);
    if (status != KO_OK) {
        return status;
    }
    const uint64_t size = color_trc->curves[0]->size;
    std::fprintf(file.get(), "%s\nbits %d\n", three_channel_word, static_cast<int>(truncated_log2(size)));
    for (uint64_t i = 0; i < size; ++i) {
        int32_t entries[file_channels];
        for (uint32_t c = 0; c < file_channels; ++c) {
            const TRC *curve = color_trc->curves[c];
            entries[c] = static_cast<int32_t>(curve->array[i < curve->size ? i : curve->size - 1]);
        }
        std::fprintf(file.get(), "%d %d %d\n", entries[0], entries[1], entries[2]);
    }
    return KO_OK;
}
