// The location of blobs: components of the circularity map of fitting size and shape, each segmented anew on the map of red and
// light pixels, so that a final blob has the extent of the pupil and not that of the circular response.
#include <algorithm>
#include <cmath>

#include "alloc.h"
#include "concomp.h"
#include "extremes.h"
#include "matrix.h"
#include "redeye.h"
#include "report.h"

namespace {

using namespace ko;

constexpr float lit = 0.1f;

Labelling whole_labelling(const RedEyeImageParam *param) { return {param->labels, param->label_table}; }
Labelling local_labelling(const RedEyeImageParam *param) { return {param->local_labels, param->local_label_table}; }

uint64_t labels_for(const RealImage *map) { return label_capacity(map->width, map->height); }

// Inclusive bounds, unlike those of the second test: see "Bounds inside and outside" in docs/compatibility.md.
bool passes_first_test(const RedEyeImageParam *param, const BlobInfo &blob) {
    const auto fits = [=](uint32_t side) { return param->min_blob_size <= side && side <= param->max_blob_size; };
    return fits(box_width(blob)) && fits(box_height(blob)) && !(fill_of(blob) < 0.25f) && is_compact(blob);
}

// Strict bounds; a blob that grew more than fourfold is none.
bool passes_second_test(const RedEyeImageParam *param, const BlobInfo &found, const BlobInfo &blob) {
    const auto fits = [=](uint32_t side) { return param->min_blob_size < side && side < param->max_blob_size; };
    return fits(box_width(found)) && fits(box_height(found)) && is_compact(found) && fill_of(found) > 0.25f &&
           static_cast<float>(blob.area) / static_cast<float>(found.area) > 0.25f;
}

// Gives the number of blobs that pass; the table's entries of the others become 0.
uint32_t reject_by_shape(RedEyeImageParam *param, uint32_t *seen, uint32_t *rejected) {
    uint32_t kept = 0;
    for (uint32_t i = 1; i <= param->label_count; ++i) {
        const uint32_t root = param->label_table[i];
        if (seen[root] == 0) {
            seen[root] = 1;
            rejected[root] = !passes_first_test(param, param->blob_info[root]);
            kept += rejected[root] == 0;
        }
        if (rejected[root] != 0) {
            param->label_table[i] = 0;
        }
    }
    return kept;
}

int32_t KoRedEyeTestBlobShape(const RedEyeCorrection *rec, RedEyeImageParam *param) {
    const Block<uint32_t> seen(allocate_clear<uint32_t>(uint64_t{param->label_count} + 1));
    const Block<uint32_t> rejected(allocate_clear<uint32_t>(uint64_t{param->label_count} + 1));
    const bool made = seen && rejected;
    const uint32_t kept = made ? reject_by_shape(param, seen.get(), rejected.get()) : 0;
    log_line(rec, "-> reduced to %i blobs after first test \n", static_cast<int>(kept));
    return made ? static_cast<int32_t>(KO_OK) : KoErrorGetLastError();
}

// The sum of a map over each blob, by root, in single precision and row order; null if memory is short.
float *KoRedEyeSumMapPerBlob(const RedEyeImageParam *param, const RealImage *map) {
    auto *sums = allocate_clear<float>(uint64_t{param->label_count} + 1);
    const int32_t *labels = param->labels;
    for (uint64_t y = 0; sums != nullptr && y < map->height; ++y, labels += map->width) {
        for_each_labelled(labels, param->label_table, map->width,
                          [sums, row = map->rows[y]](uint64_t x, uint32_t root) { sums[root] += row[x]; });
    }
    return sums;
}

// Takes the component of the window that covers most of the blob, if it passes: gives it a number, and its pixels that number
// in the mask, where a later blob overwrites an earlier one.
void KoRedEyeStoreFinalBlob(RedEyeImageParam *param, const BlobInfo &blob, uint64_t width, const Window &window) {
    const uint32_t best = best_overlap(param->local_label_table, param->local_label_count, param->overlap);
    if (best == 0 || !passes_second_test(param, param->local_blob_info[best], blob)) {
        return;
    }
    const BlobInfo &found = param->local_blob_info[best];
    const auto number = static_cast<uint32_t>(++param->blob_count);
    for_each_pixel(window, width, [=](uint64_t inside, uint64_t pixel) {
        if (local_labelling(param).root(inside) == best) {
            param->blob_mask[pixel] = number;
        }
    });
    param->final_blobs[number] = {found.min_x + window.x0, found.max_x + window.x0, found.min_y + window.y0,
                                  found.max_y + window.y0, found.area};
}

// Counters of 64 bits, wiped as if they had 32: about the upper half of those in use keeps its counts, which add to the next
// blob's (see "Half-wiped counters" in docs/compatibility.md). By words, so that it is the same on every machine.
void wipe_by_half(uint64_t *counters, uint64_t count) {
    std::fill_n(counters, count / 2, uint64_t{0});
    if (count % 2 != 0) {
        counters[count / 2] &= ~uint64_t{0xFFFFFFFF};
    }
}

// Segments a map anew around the blob of a label, unless it was done or rejected.
void KoRedEyeRefineBlob(RedEyeImageParam *param, const RealImage *map, const float *sums, uint32_t i) {
    const uint32_t root = param->label_table[i];
    if (root == 0 || param->root_done[root] != 0) {
        return;
    }
    const BlobInfo &blob = param->blob_info[root];
    const Window window = window_around(blob, map->width, map->height);
    const float threshold = sums[root] * 0.25f / static_cast<float>(blob.area);
    param->local_label_count = KoConCompRealSubImage(map, threshold, param->local_labels, param->local_label_table, window.x0,
                                                     window.x1, window.y0, window.y1);
    KoConCompRealImageInfo(window.width(), window.height(), param->local_labels, param->local_label_table,
                           param->local_blob_info);
    count_overlap(local_labelling(param), whole_labelling(param), root, window, map->width, param->overlap);
    KoRedEyeStoreFinalBlob(param, blob, map->width, window);
    const uint64_t used = uint64_t{param->local_label_count} + 1;
    std::fill_n(param->local_blob_info, used, BlobInfo{});
    wipe_by_half(param->overlap, used);
    param->root_done[root] = 1;
}

void report_blobs(RedEyeCorrection *rec, const RedEyeImageParam *param) {
    log_line(rec, "-> reduced to %i final blobs after 2nd test \n", param->blob_count);
    const int32_t limit = rec->blob_limits[2];
    if (param->blob_count > limit) {
        rec->too_many_blobs = 1;
        log_line(rec, "*** too many (over %i) blobs detected - no further processing of this image \n", limit);
    }
}

// Most provisional labels in any window around a blob that was not rejected.
uint64_t labels_for_windows(const RedEyeImageParam *param, const RealImage *map) {
    uint64_t labels = 0;
    for (uint32_t i = 1; i <= param->label_count; ++i) {
        const uint32_t root = param->label_table[i];
        if (root != 0) {
            const Window window = window_around(param->blob_info[root], map->width, map->height);
            labels = std::max(labels, label_capacity(window.width(), window.height()));
        }
    }
    return labels;
}

int32_t KoRedEyeRefineBlobs(RedEyeCorrection *rec, RedEyeImageParam *param, const RealImage *map) {
    int32_t status = KoRedEyeImageParamAllocateSubMatrix(param, map->width * map->height, labels_for_windows(param, map),
                                                         param->label_count);
    if (status != KO_OK) {
        return status;
    }
    const Block<float> sums(KoRedEyeSumMapPerBlob(param, map));
    if (sums) {
        free_patches(param);
        param->blob_count = 0;
        for (uint32_t i = 1; i <= param->label_count; ++i) {
            KoRedEyeRefineBlob(param, map, sums.get(), i);
        }
    } else {
        status = KoErrorGetLastError();
    }
    KoRedEyeImageParamFreeSubMatrix(param);
    report_blobs(rec, param);
    return status;
}

// Clears the map outside the final blobs and finds the maximum inside. The mask is 0 in all rows but theirs, and is not looked
// at there: it is memory that nothing has used yet.
void wipe_outside(RedEyeImageParam *param) {
    const RealImage *map = param->red_lum_map;
    uint64_t top = map->height;
    uint64_t bottom = 0;
    for (int32_t i = 1; i <= param->blob_count; ++i) {
        top = std::min<uint64_t>(top, param->final_blobs[i].min_y);
        bottom = std::max<uint64_t>(bottom, param->final_blobs[i].max_y);
    }
    param->map_max = 0.0f;
    for (uint64_t y = 0; y < map->height; ++y) {
        float *row = map->rows[y];
        if (y < top || y > bottom) {
            std::fill_n(row, map->width, 0.0f);
            continue;
        }
        const uint32_t *mask = param->blob_mask + y * map->width;
        for (uint64_t x = 0; x < map->width; ++x) {
            row[x] = mask[x] == 0 ? 0.0f : row[x];
        }
        param->map_max = largest(row, map->width, param->map_max);
    }
}

int32_t locate(RedEyeCorrection *rec, RedEyeImageParam *param) {
    const RealImage *map = param->col_map;
    int32_t status = KoRedEyeImageParamAllocateMatrix(param, map->width * map->height, labels_for(map));
    if (status != KO_OK) {
        return status;
    }
    param->label_count = KoConCompRealImage(map, lit, param->labels, param->label_table);
    param->blob_info = allocate_clear<BlobInfo>(uint64_t{param->label_count} + 1);
    if (param->blob_info == nullptr) {
        return KoErrorGetLastError();
    }
    const uint32_t found = KoConCompRealImageInfo(static_cast<uint32_t>(map->width), static_cast<uint32_t>(map->height),
                                                  param->labels, param->label_table, param->blob_info);
    log_line(rec, "-> %i blobs detected \n", static_cast<int>(found));
    status = KoRedEyeTestBlobShape(rec, param);
    if (status == KO_OK) {
        status = KoRedEyeRefineBlobs(rec, param, param->red_lum_map);
    }
    if (status == KO_OK && rec->too_many_blobs == 0) {
        wipe_outside(param);
    }
    return status;
}

} // namespace

int32_t KoRedEyeCorrectionLocateBlobs(RedEyeCorrection *rec, RedEyeImageParam *param) {
    if (param->col_map == nullptr || param->red_lum_map == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    const double shorter = static_cast<double>(std::min(param->col_map->width, param->col_map->height));
    param->max_blob_size = static_cast<uint64_t>(std::ceil(shorter * 0.1));
    const int32_t status = locate(rec, param);
    KoRedEyeImageParamFreeMatrix(param);
    return status;
}
