// RedEyeImageParam: all that belongs to one picture, and the tables of the stages.
#include <cmath>
#include <initializer_list>

#include "alloc.h"
#include "redeye.h"

namespace {

using namespace ko;

template <class T> void free_and_null(T *&block) {
    KoFree(block);
    block = nullptr;
}

// Takes a new table for one that a stage may have left there before.
template <class T> void renew(T *&table, T *fresh) {
    KoFree(table);
    table = fresh;
}

uint64_t patch_slots(const RedEyeImageParam *param) {
    return param->blob_count > 0 ? static_cast<uint64_t>(param->blob_count) : 0;
}

// The feature vectors of a slot: one block a vector, with a row a channel.
int32_t allocate_patch(RedEyePatch *patch, uint32_t channels, uint32_t feature_length) {
    patch->features = allocate_clear<float>(uint64_t{channels} * feature_length);
    if (patch->features == nullptr) {
        return KoErrorGetLastError();
    }
    patch->projected = allocate_clear<float>(uint64_t{channels} * feature_length);
    if (patch->projected == nullptr) {
        return KoErrorGetLastError();
    }
    for (uint32_t c = 0; c < channels && c < 3; ++c) {
        patch->feature_rows[c] = patch->features + uint64_t{c} * feature_length;
        patch->projected_rows[c] = patch->projected + uint64_t{c} * feature_length;
    }
    return KO_OK;
}

} // namespace

void ko::free_patches(RedEyeImageParam *param) {
    for (uint64_t i = 0; param->patches != nullptr && i < patch_slots(param); ++i) {
        KoFree(param->patches[i].features);
        KoFree(param->patches[i].projected);
    }
    free_and_null(param->patches);
}

int32_t KoRedEyeImageParamInit(RedEyeImageParam *param, ColorImage *image) {
    *param = {};
    param->image = image;
    return KO_OK;
}

RedEyeImageParam *KoRedEyeImageParamNew(ColorImage *image) {
    return make_object<RedEyeImageParam>(
        "RedEyeImageParam", [=](RedEyeImageParam *param) { return KoRedEyeImageParamInit(param, image); },
        [](RedEyeImageParam *) {});
}

int32_t KoRedEyeImageParamFree(RedEyeImageParam *param) {
    if (param == nullptr) {
        return KO_OK;
    }
    if (param->working_image != param->image) {
        KoColorImageDelete(param->working_image);
    }
    KoRealImageDelete(param->reddish_map);
    KoRealImageDelete(param->red_lum_map);
    KoRealImageDelete(param->col_map);
    KoRedEyeImageParamFreeMatrix(param);
    KoRedEyeImageParamFreeSubMatrix(param);
    free_patches(param);
    for (void *table :
         {static_cast<void *>(param->blob_mask), static_cast<void *>(param->final_blobs), static_cast<void *>(param->x_starts),
          static_cast<void *>(param->x_counts), static_cast<void *>(param->y_starts), static_cast<void *>(param->y_counts)}) {
        KoFree(table);
    }
    return KO_OK;
}

int32_t KoRedEyeImageParamDelete(RedEyeImageParam *param) {
    KoRedEyeImageParamFree(param);
    KoFree(param);
    return KO_OK;
}

int32_t KoRedEyeImageParamAllocateMatrix(RedEyeImageParam *param, uint64_t pixels, uint64_t labels) {
    renew(param->labels, allocate<int32_t>(pixels));
    renew(param->label_table, allocate<uint32_t>(labels + 1));
    return KoErrorGetLastError();
}

int32_t KoRedEyeImageParamFreeMatrix(RedEyeImageParam *param) {
    free_and_null(param->blob_info);
    free_and_null(param->labels);
    free_and_null(param->label_table);
    return KO_OK;
}

int32_t KoRedEyeImageParamAllocateSubMatrix(RedEyeImageParam *param, uint64_t pixels, uint64_t labels, uint64_t blobs) {
    renew(param->local_blob_info, allocate_clear<BlobInfo>(labels + 1));
    renew(param->local_labels, allocate<int32_t>(pixels));
    renew(param->local_label_table, allocate<uint32_t>(labels + 1));
    renew(param->root_done, allocate_clear<uint32_t>(blobs + 1));
    renew(param->overlap, allocate_clear<uint64_t>(labels + 1));
    renew(param->blob_mask, allocate_clear<uint32_t>(pixels));
    renew(param->final_blobs, allocate_clear<BlobInfo>(blobs + 1));
    return KoErrorGetLastError();
}

int32_t KoRedEyeImageParamFreeSubMatrix(RedEyeImageParam *param) {
    free_and_null(param->local_blob_info);
    free_and_null(param->local_labels);
    free_and_null(param->local_label_table);
    free_and_null(param->root_done);
    free_and_null(param->overlap);
    return KO_OK;
}

int32_t KoRedEyeImageParamAllocateCls(RedEyeImageParam *param, uint32_t channels, uint32_t feature_length) {
    const RealImage *map = param->col_map;
    renew(param->x_starts, allocate<uint64_t>(map->width));
    renew(param->x_counts, allocate<uint32_t>(map->width));
    renew(param->y_starts, allocate<uint64_t>(map->height));
    renew(param->y_counts, allocate<uint32_t>(map->height));
    if (param->x_starts == nullptr || param->x_counts == nullptr || param->y_starts == nullptr || param->y_counts == nullptr) {
        return KoErrorGetLastError();
    }
    _KoGetUpsampleD(map->width, KoColorImageGetWidth(param->image), param->x_counts, param->x_starts);
    _KoGetUpsampleD(map->height, KoColorImageGetHeight(param->image), param->y_counts, param->y_starts);
    return _KoRedEyeImageParamAllocatePatchTab(param, channels, feature_length);
}

int32_t _KoRedEyeImageParamAllocatePatchTab(RedEyeImageParam *param, uint32_t channels, uint32_t feature_length) {
    param->patches = allocate_clear<RedEyePatch>(patch_slots(param));
    if (param->patches == nullptr) {
        return KoErrorGetLastError();
    }
    for (uint64_t i = 0; i < patch_slots(param); ++i) {
        const int32_t status = allocate_patch(&param->patches[i], channels, feature_length);
        if (status != KO_OK) {
            return status;
        }
    }
    return KO_OK;
}

int32_t _KoGetUpsampleD(uint64_t small, uint64_t large, uint32_t *counts, uint64_t *starts) {
    const float ratio = static_cast<float>(large) / static_cast<float>(small);
    uint64_t position = 0;
    for (uint64_t i = 0; i < small; ++i) {
        const auto whole = static_cast<uint64_t>(std::floor(ratio));
        const auto limit = static_cast<uint64_t>(std::floor(static_cast<float>(i + 1) * ratio));
        const uint64_t count = limit > whole + position ? whole + 1 : whole;
        starts[i] = position;
        // A ratio that was rounded up must not lead past the last cell.
        counts[i] = static_cast<uint32_t>(count < large - position ? count : large - position);
        position += counts[i];
    }
    return KO_OK;
}
