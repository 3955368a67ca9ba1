// RedEyeCorrection: settings, paths and model, and the road of a picture through the stages, which have files of their own
// (redeye.h).
#include "ko/redeyecorrection.h"

#include <cstddef>
#include <cstring>

#include "alloc.h"
#include "redeye.h"
#include "report.h"

namespace {

using namespace ko;

// Copies a path, or empties the field for null; false, with the field as it was, if it has no room.
bool set_path(char (&field)[KO_REDEYE_PATH_SIZE], const char *path) {
    const size_t size = path != nullptr ? std::strlen(path) + 1 : 1;
    if (size > sizeof(field)) {
        return false;
    }
    std::memcpy(field, path != nullptr ? path : "", size);
    return true;
}

} // namespace

int32_t KoRedEyeCorrectionInit(RedEyeCorrection *rec) {
    rec->max_image_size = 1000000;
    rec->min_blob_size = 3;
    rec->min_blob_size_floor = 2;
    rec->blob_limits[0] = 1000;
    rec->blob_limits[1] = 300;
    rec->blob_limits[2] = 50;
    rec->too_many_blobs = 0;
    rec->projection_header = 0;
    rec->projection_rows = 0;
    rec->projection_dimension = 0;
    rec->projection_row_values = nullptr;
    rec->projection_mean = nullptr;
    rec->projection_matrix = nullptr;
    rec->classifier_dimension = 0;
    rec->fe_bias = rec->be_bias = 0.0f;
    rec->fe_weights = rec->be_weights = nullptr;
    rec->orientation_histogram = nullptr;
    rec->fe_accept = rec->fe_reject = rec->be_accept = rec->be_reject = 0.0f;
    rec->config_path[0] = rec->projection_path[0] = rec->classifier_path[0] = '\0';
    rec->channel_enabled[0] = 0; // see "Records that Init does not fill" in docs/compatibility.md
    rec->channel_count = 0;
    rec->log_stream = nullptr;
    return KO_OK;
}

RedEyeCorrection *KoRedEyeCorrectionNew(void) {
    return make_object<RedEyeCorrection>("RedEyeCorrection", KoRedEyeCorrectionInit, [](RedEyeCorrection *) {});
}

int32_t KoRedEyeCorrectionFree(RedEyeCorrection *rec) {
    if (rec == nullptr) {
        return KO_OK;
    }
    KoFree(rec->projection_row_values);
    KoFree(rec->projection_mean);
    KoMatrixFloatDelete(rec->projection_matrix);
    KoFree(rec->fe_weights);
    KoFree(rec->be_weights);
    KoOrientationHistogramDelete(rec->orientation_histogram);
    return KO_OK;
}

int32_t KoRedEyeCorrectionDelete(RedEyeCorrection *rec) {
    KoRedEyeCorrectionFree(rec);
    KoFree(rec);
    return KO_OK;
}

int32_t KoRedEyeCorrectionEnableHistogramChannel(RedEyeCorrection *rec, int32_t red, int32_t green, int32_t blue) {
    const int32_t flags[] = {red, green, blue};
    rec->channel_count = 0;
    for (int c = 0; c < 3; ++c) {
        rec->channel_enabled[c] = static_cast<uint32_t>(flags[c]);
        rec->channel_count += flags[c] != 0;
    }
    return KO_OK;
}

int32_t KoRedEyeCorrectionSetCategorizerConfig(RedEyeCorrection *rec, const char *config, const char *projection,
                                               const char *classifier) {
    bool fits = set_path(rec->config_path, config);
    fits = set_path(rec->projection_path, projection) && fits;
    fits = set_path(rec->classifier_path, classifier) && fits;
    return fits ? static_cast<int32_t>(KO_OK) : KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
}

int32_t KoRedEyeCorrectionProcessImage(RedEyeCorrection *rec, RedEyeImageParam *param, ColorImage *image) {
    KoRedEyeImageParamInit(param, image);
    int32_t status = KoRedEyeCorrectionDownsample(rec, param);
    if (status == KO_OK) {
        status = make_reddish_map(param, true);
    }
    if (status == KO_OK) {
        status = make_red_lum_map(param, true);
    }
    if (status == KO_OK) {
        status = KoRedEyeCorrectionColProbability(rec, param);
    }
    if (status == KO_OK) {
        status = KoRedEyeCorrectionCircularity(rec, param);
    }
    if (status == KO_OK) {
        status = KoRedEyeCorrectionLocateBlobs(rec, param);
    }
    if (status == KO_OK && rec->too_many_blobs == 0) {
        status = KoRedEyeCorrectionCategorizeBlobs(rec, param);
    }
    return status == KO_OK && rec->too_many_blobs == 0 ? KoRedEyeCorrectionApply(rec, param, 0, image) : status;
}

int32_t KoRedEyeCorrectionApply(RedEyeCorrection *rec, RedEyeImageParam *param, int32_t full_strength, ColorImage *image) {
    if (rec->orientation_histogram == nullptr) {
        return KO_OK;
    }
    return KoRedEyeCorrectBlobs(param, param->red_lum_map, rec->orientation_histogram->patch_count, full_strength != 0, image);
}
