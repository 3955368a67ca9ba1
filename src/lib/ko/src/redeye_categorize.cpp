// The categorisation of blobs: a square patch of the picture around each, its orientation histograms projected on a trained
// basis, two logistic scores, and a label by four bounds.
#include <algorithm>
#include <cmath>

#include "alloc.h"
#include "ko/resample.h"
#include "matrix.h"
#include "redeye.h"
#include "report.h"

namespace {

using namespace ko;

constexpr uint32_t channels = 3;

uint64_t unsigned_of(int32_t value) { return value > 0 ? static_cast<uint64_t>(value) : 0; }

// The box of a blob in the picture: that of its blocks if the working image is smaller, otherwise its own.
void set_box(const RedEyeImageParam *param, const BlobInfo &blob, RedEyePatch *patch) {
    if (param->scale > 1.0f) {
        patch->x0 = static_cast<uint32_t>(param->x_starts[blob.min_x]);
        patch->y0 = static_cast<uint32_t>(param->y_starts[blob.min_y]);
        patch->x1 = static_cast<uint32_t>(param->x_starts[blob.max_x] + param->x_counts[blob.max_x]);
        patch->y1 = static_cast<uint32_t>(param->y_starts[blob.max_y] + param->y_counts[blob.max_y]);
    } else {
        patch->x0 = blob.min_x;
        patch->y0 = blob.min_y;
        patch->x1 = blob.max_x;
        patch->y1 = blob.max_y;
    }
}

// Sets the patch's window. False for a blob without an extent or too near the picture's edge, which gets no patch.
bool KoRedEyePatchFromBlob(const RedEyeImageParam *param, const BlobInfo &blob, RedEyePatch *patch, uint32_t number) {
    patch->blob = number;
    patch->blob_min_x = blob.min_x;
    patch->blob_max_x = blob.max_x;
    patch->blob_min_y = blob.min_y;
    patch->blob_max_y = blob.max_y;
    set_box(param, blob, patch);
    const uint32_t width = patch->x1 - patch->x0;
    const uint32_t height = patch->y1 - patch->y0;
    patch->center_x = patch->x0 + width / 2;
    patch->center_y = patch->y0 + height / 2;
    patch->size = 3 * std::max(width, height);
    const uint32_t half = patch->size / 2;
    if (patch->size == 0 || patch->center_x <= half || patch->center_y <= half) {
        return false;
    }
    patch->x0 = patch->center_x - half;
    patch->x1 = patch->center_x + half;
    patch->y0 = patch->center_y - half;
    patch->y1 = patch->center_y + half;
    return patch->x1 < KoColorImageGetWidth(param->image) && patch->y1 < KoColorImageGetHeight(param->image);
}

// The work memory of a patch: the crop, its picture of the size that the histogram takes, and that picture without padding.
struct Crop {
    OwnedImage window;
    OwnedImage scaled;
    Block<float> pixels;

    Crop(uint32_t size, uint64_t side)
        : window(KoRealImageNew(size, size)), scaled(KoRealImageNew(side, side)), pixels(allocate<float>(side * side)) {}
};

int32_t compute_channel(const RedEyeCorrection *rec, const RedEyeImageParam *param, const RedEyePatch *patch, uint32_t channel,
                        const Crop &crop) {
    const RealImage *plane = KoColorImageGetImage(param->image, channel);
    int32_t status =
        KoRealImageCrop(plane, static_cast<int32_t>(patch->x0), static_cast<int32_t>(patch->y0), crop.window.get());
    if (status != KO_OK) {
        return status;
    }
    if (!crop.scaled) {
        return KO_REPORT(KO_LEVEL_INTERNAL_ERROR, KO_ERR_NULL_POINTER);
    }
    if (!crop.pixels) {
        return KoErrorGetLastError();
    }
    status = KoRealImageRescale(crop.window.get(), crop.scaled.get());
    if (status != KO_OK) {
        return status;
    }
    const uint64_t side = crop.scaled->width;
    for (uint64_t y = 0; y < side; ++y) {
        std::copy_n(crop.scaled->rows[y], side, crop.pixels.get() + y * side);
    }
    return KoOrientationHistogramCompute(rec->orientation_histogram, static_cast<uint32_t>(side), crop.pixels.get(),
                                         patch->feature_rows[channel]);
}

int32_t KoRedEyeComputePatchFeatures(const RedEyeCorrection *rec, const RedEyeImageParam *param, const RedEyePatch *patch) {
    const PatchGeometry &geometry = rec->patch_geometry;
    const Crop crop(patch->size, unsigned_of(geometry.patch_size + 2 * geometry.patch_border));
    int32_t status = KO_OK;
    for (uint32_t c = 0; c < channels && status == KO_OK; ++c) {
        if (rec->channel_enabled[c] != 0) {
            status = compute_channel(rec, param, patch, c, crop);
        }
    }
    return status;
}

void project(const RedEyeCorrection *rec, RedEyePatch *patch) {
    const uint64_t length = unsigned_of(rec->histogram_layout.feature_length);
    const uint64_t dimension = unsigned_of(rec->projection_dimension);
    for (uint64_t j = 0; j < length; ++j) {
        const float *row = rec->projection_matrix->rows[j];
        float sum = 0.0f;
        for (uint64_t i = 0; i < dimension; ++i) {
            sum += (patch->features[i] - rec->projection_mean[i]) * row[i];
        }
        patch->projected[j] = sum;
    }
}

float KoRedEyeLogisticScore(uint32_t dimension, float bias, const float *weights, const float *values) {
    float z = 0.0f;
    for (uint32_t i = 0; i < dimension; ++i) {
        z += weights[i] * values[i];
    }
    z += 0.0f - bias;
    if (z > 10.0f) {
        return 1.0f;
    }
    if (z < -10.0f) {
        return 0.0f;
    }
    return static_cast<float>(1.0 / (std::exp(static_cast<double>(-z)) + 1.0));
}

// A score that is not a number neither accepts nor rejects.
int32_t label_of(const RedEyeCorrection *rec, const RedEyePatch &patch) {
    if (patch.fe_score > rec->fe_accept && patch.be_score > rec->be_accept) {
        return KO_PATCH_ACCEPTED;
    }
    return patch.fe_score < rec->fe_reject || patch.be_score < rec->be_reject ? KO_PATCH_REJECTED : KO_PATCH_UNDECIDED;
}

void classify(const RedEyeCorrection *rec, RedEyeImageParam *param, RedEyePatch *patch) {
    project(rec, patch);
    patch->fe_score = KoRedEyeLogisticScore(rec->classifier_dimension, rec->fe_bias, rec->fe_weights, patch->projected);
    patch->be_score = KoRedEyeLogisticScore(rec->classifier_dimension, rec->be_bias, rec->be_weights, patch->projected);
    patch->label = label_of(rec, *patch);
    uint64_t *counters[] = {&param->undecided_count, &param->accepted_count, &param->rejected_count};
    ++*counters[patch->label];
}

// True if every length that a file brought stays inside what the features, the projection and the classifiers have.
bool model_fits(const RedEyeCorrection *rec, uint32_t fe_count) {
    const uint64_t length = unsigned_of(rec->histogram_layout.feature_length);
    const uint64_t features = length * unsigned_of(rec->channel_count);
    bool leading = rec->channel_count > 0;
    for (uint32_t c = 0; c < channels; ++c) {
        leading = leading && (rec->channel_enabled[c] != 0) == (c < unsigned_of(rec->channel_count));
    }
    return leading && unsigned_of(rec->projection_dimension) <= features && rec->projection_matrix->height >= length &&
           rec->classifier_dimension <= features && fe_count >= rec->classifier_dimension;
}

// Works through the blobs; slots receives the number of patches, one that failed included.
int32_t categorize(RedEyeCorrection *rec, RedEyeImageParam *param, uint32_t *slots) {
    uint32_t fe_count = 0;
    int32_t status = KoRedEyeReadCategorizerConfig(rec, &fe_count);
    if (status == KO_OK) {
        status = KoRedEyeImageParamAllocateCls(param, static_cast<uint32_t>(unsigned_of(rec->channel_count)),
                                               static_cast<uint32_t>(unsigned_of(rec->histogram_layout.feature_length)));
    }
    if (status == KO_OK && param->blob_count > 0 && !model_fits(rec, fe_count)) {
        status = KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    for (int32_t b = 1; b <= param->blob_count && status == KO_OK; ++b) {
        RedEyePatch *patch = &param->patches[*slots];
        if (!KoRedEyePatchFromBlob(param, param->final_blobs[b], patch, static_cast<uint32_t>(b))) {
            continue;
        }
        ++*slots;
        status = KoRedEyeComputePatchFeatures(rec, param, patch);
        if (status == KO_OK) {
            classify(rec, param, patch);
        }
    }
    return status;
}

void log_patches(const RedEyeCorrection *rec, const RedEyeImageParam *param, uint32_t slots) {
    log_line(rec, "-> patch classification results: %d accepted, %d rejected, and %d undecided patches \n",
             static_cast<int>(param->accepted_count), static_cast<int>(param->rejected_count),
             static_cast<int>(param->undecided_count));
    for (uint32_t p = 0; p < slots; ++p) {
        const RedEyePatch &patch = param->patches[p];
        if (patch.label == KO_PATCH_ACCEPTED || patch.label == KO_PATCH_UNDECIDED) {
            log_line(rec, "Patch %d (%s): %d %d %d %d\n", static_cast<int>(p),
                     patch.label == KO_PATCH_ACCEPTED ? "accepted" : "undecided", static_cast<int>(patch.x0),
                     static_cast<int>(patch.y0), static_cast<int>(patch.x1), static_cast<int>(patch.y1));
        }
    }
}

} // namespace

int32_t KoRedEyeCorrectionCategorizeBlobs(RedEyeCorrection *rec, RedEyeImageParam *param) {
    if (param->col_map == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_NULL_POINTER);
    }
    uint32_t slots = 0;
    const int32_t status = categorize(rec, param, &slots);
    log_patches(rec, param, slots);
    if (status == KO_OK) {
        rec->orientation_histogram->patch_count = static_cast<int32_t>(slots);
    }
    return status;
}
