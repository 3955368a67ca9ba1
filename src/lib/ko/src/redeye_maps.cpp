// The first stages: the working size, and the colour maps in which red pupils stand out.
#include <algorithm>
#include <cmath>

#include "alloc.h"
#include "extremes.h"
#include "ko/resample.h"
#include "matrix.h"
#include "redeye.h"
#include "report.h"

namespace ko {

namespace {

// Gray and white give 0 in both maps. See "Weights of green and blue" in docs/compatibility.md.
constexpr float reddish_weights[] = {1.0f, -0.5f, -0.5f};
constexpr float red_lum_weights[] = {1.75f, -1.6f, -1.15f};

// Divides by the maximum; there is no guard against one of 0, whose NaN no later comparison lets pass.
void KoRedEyeNormalizeMap(RealImage *map) { KoRealImageDivideValue(map, KoRealImageGetMax(map), &map); }

int32_t make_map(const ColorImage *image, const float *weights, bool normalize, RealImage **map) {
    if (image == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    OwnedImage fresh;
    const int32_t status = KoColorImageToRealImage(image, fresh.receive(), weights);
    if (status != KO_OK) {
        return status;
    }
    if (normalize) {
        KoRedEyeNormalizeMap(fresh.get());
    }
    KoRealImageDelete(*map);
    *map = fresh.release();
    return KO_OK;
}

// The linear ratio of picture and budget, rounded to two decimal places.
float scale_for(uint64_t pixels, uint64_t budget) {
    const float quotient = static_cast<float>(pixels) / static_cast<float>(budget);
    const double hundredths = std::floor(std::sqrt(static_cast<double>(quotient)) * 100.0 + 0.5);
    return static_cast<float>(hundredths) / 100.0f;
}

uint64_t reduced_blob_size(const RedEyeCorrection *rec, float scale) {
    const double reduced = std::ceil(static_cast<double>(static_cast<float>(rec->min_blob_size) / scale));
    const double floor = static_cast<double>(rec->min_blob_size_floor);
    const double larger = reduced > floor ? reduced : floor;
    return larger < 9.0e18 ? static_cast<uint64_t>(larger) : UINT64_MAX;
}

} // namespace

int32_t make_reddish_map(RedEyeImageParam *param, bool normalize) {
    return make_map(param->working_image, reddish_weights, normalize, &param->reddish_map);
}

int32_t make_red_lum_map(RedEyeImageParam *param, bool normalize) {
    return make_map(param->working_image, red_lum_weights, normalize, &param->red_lum_map);
}

} // namespace ko

using namespace ko;

int32_t KoRedEyeCorrectionDownsample(RedEyeCorrection *rec, RedEyeImageParam *param) {
    const uint64_t pixels = KoColorImageGetSize(param->image);
    if (pixels <= rec->max_image_size) {
        param->min_blob_size = rec->min_blob_size;
        param->working_image = param->image;
        return KO_OK;
    }
    param->scale = scale_for(pixels, rec->max_image_size);
    log_line(rec, "resizing with scale factor %f \n", static_cast<double>(param->scale));
    param->working_image = nullptr;
    const int32_t status = KoColorImageDownsample(param->image, param->scale, &param->working_image);
    param->min_blob_size = reduced_blob_size(rec, param->scale);
    return status;
}

int32_t KoRedEyeCorrectionReddishProbability(RedEyeCorrection *, RedEyeImageParam *param, int32_t normalize) {
    return make_reddish_map(param, normalize != 0);
}

int32_t KoRedEyeCorrectionRedLumProbability(RedEyeCorrection *, RedEyeImageParam *param, int32_t normalize) {
    return make_red_lum_map(param, normalize != 0);
}

int32_t KoRedEyeCorrectionColProbability(RedEyeCorrection *, RedEyeImageParam *param) {
    if (param->reddish_map == nullptr || param->red_lum_map == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    param->map_max = 0.0f;
    const int32_t status = KoRealImageMultiplyImage(param->reddish_map, param->red_lum_map, &param->col_map);
    if (status != KO_OK) {
        return status;
    }
    for (uint64_t y = 0; y < param->col_map->height; ++y) {
        param->map_max = largest(param->col_map->rows[y], param->col_map->width, param->map_max);
    }
    return KoRealImageDivideValue(param->col_map, param->map_max, &param->col_map);
}
