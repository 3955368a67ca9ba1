// OrientationHistogram: the tables that do not depend on the patch, and the computation of a feature vector: four passes of a
// one-dimensional filter, a table look-up per pixel and bin, and a sparse weighted sum per cell and bin. The dump is in
// orientationhistogram_dump.cpp.
//
// The rule to know before changing anything here: sums and squares are in single precision in the order of their terms,
// exponentials, roots and logarithms in double, and each is stored as a float.
#include "ko/orientationhistogram.h"

#include <algorithm>
#include <cmath>

#include "alloc.h"
#include "report.h"

namespace {

using namespace ko;

// Steps of the x component of a direction.
constexpr uint64_t direction_steps = 255;
constexpr double full_turn = 6.2831853071796;
constexpr double least_magnitude = 1e-36;

uint64_t unsigned_of(int32_t value) { return static_cast<uint64_t>(value); }

float square(float value) { return value * value; }

float stored_exp(double exponent) { return static_cast<float>(std::exp(exponent)); }

double filter_radius(const PatchGeometry &geometry, const HistogramLayout &layout) {
    return std::ceil(static_cast<double>(layout.gradient_sigma) * 3.0 * geometry.patch_size);
}

// True for sizes that agree with each other, so that no table is smaller than what is kept in it. Blocks that are too large
// fail when they are allocated.
bool is_sound(const PatchGeometry &geometry, const HistogramLayout &layout) {
    constexpr int64_t largest_side = 1 << 15;
    const int64_t patch = geometry.patch_size;
    const int64_t cells = layout.grid_size;
    const double radius = filter_radius(geometry, layout);
    return patch > 0 && patch < largest_side && geometry.padded_pixels >= patch * patch && geometry.position_count > 0 &&
           layout.bin_count > 0 && cells > 0 && cells < largest_side && layout.cell_count == cells * cells &&
           layout.feature_length == int64_t{layout.cell_count} * layout.bin_count && radius >= 0.0 &&
           radius < static_cast<double>(largest_side);
}

template <class T> bool allocate_table(T **table, uint64_t count) {
    *table = allocate<T>(count);
    return *table != nullptr;
}

template <class T> bool allocate_clear_table(T **table, uint64_t count) {
    *table = allocate_clear<T>(count);
    return *table != nullptr;
}

// A smoothing filter of sum 1 and a derivative filter whose magnitudes have that sum.
bool KoOrientationHistogramBuildKernels(OrientationHistogram *oh) {
    const int64_t radius = oh->radius;
    const uint64_t taps = static_cast<uint64_t>(2 * radius + 1);
    if (!allocate_table(&oh->gauss_kernel, taps) || !allocate_table(&oh->deriv_kernel, taps)) {
        return false;
    }
    const float s2 = square(static_cast<float>(oh->geometry->patch_size) * oh->layout->gradient_sigma);
    float gauss_sum = 0.0f;
    float deriv_sum = 0.0f;
    for (int64_t i = -radius; i <= radius; ++i) {
        const double distance = static_cast<double>(i);
        const float gauss = stored_exp(distance * -0.5 * distance / static_cast<double>(s2));
        const float deriv = static_cast<float>(-i) * gauss / s2;
        oh->gauss_kernel[radius + i] = gauss;
        oh->deriv_kernel[radius + i] = deriv;
        gauss_sum += gauss;
        deriv_sum += std::fabs(deriv);
    }
    for (uint64_t k = 0; k < taps; ++k) {
        oh->gauss_kernel[k] /= gauss_sum;
        oh->deriv_kernel[k] /= deriv_sum;
    }
    return true;
}

// The centre of a cell in a direction; pixels count from 1.
float cell_centre(uint64_t cell, float pitch) {
    return static_cast<float>((static_cast<double>(cell) + 0.5) * static_cast<double>(pitch) + 0.5);
}

// exp of a squared distance over a squared width, halved.
double gaussian(float dx, float dy, float squared_width) {
    return std::exp(static_cast<double>(dx * dx + dy * dy) * -0.5 / static_cast<double>(squared_width));
}

// Calls each(index, x, y) for the pixels of the patch.
template <class Each> void for_each_pixel(uint64_t side, Each each) {
    for (uint64_t y = 0; y < side; ++y) {
        for (uint64_t x = 0; x < side; ++x) {
            each(y * side + x, static_cast<float>(x + 1), static_cast<float>(y + 1));
        }
    }
}

// At each pixel the weights of all cells add up to the window: cells share a pixel softly, and the patch fades to its rim.
void KoOrientationHistogramBuildSpatialWeights(OrientationHistogram *oh) {
    const uint64_t side = unsigned_of(oh->geometry->patch_size);
    const uint64_t cells = unsigned_of(oh->layout->grid_size);
    const float patch = static_cast<float>(side);
    const float pitch = patch / static_cast<float>(cells);
    const float cell_width = square(patch * oh->layout->cell_sigma / static_cast<float>(cells));
    const float window_width = square(patch * oh->layout->window_sigma);
    const float middle = static_cast<float>(static_cast<double>(side) * 0.5 + 0.5);
    float **weights = oh->spatial_weights.rows;
    for (uint64_t i = 0; i < cells; ++i) {
        for (uint64_t j = 0; j < cells; ++j) {
            const float cx = cell_centre(j, pitch);
            const float cy = cell_centre(i, pitch);
            for_each_pixel(side, [=, row = weights[i * cells + j]](uint64_t index, float x, float y) {
                row[index] = static_cast<float>(gaussian(x - cx, y - cy, cell_width));
            });
        }
    }
    const uint64_t cell_count = cells * cells;
    for_each_pixel(side, [=](uint64_t index, float x, float y) {
        float sum = 0.0f;
        for (uint64_t c = 0; c < cell_count; ++c) {
            sum += weights[c][index];
        }
        const auto share = static_cast<float>(gaussian(x - middle, y - middle, window_width) / static_cast<double>(sum));
        for (uint64_t c = 0; c < cell_count; ++c) {
            weights[c][index] *= share;
        }
    });
}

void KoOrientationHistogramBuildSpatialIndex(OrientationHistogram *oh) {
    const uint64_t pixels = oh->spatial_weights.width;
    for (uint64_t c = 0; c < oh->spatial_weights.height; ++c) {
        const float *weights = oh->spatial_weights.rows[c];
        int32_t *out = oh->spatial_index.rows[c];
        for (uint64_t index = 0; index < pixels; ++index) {
            if (weights[index] > oh->layout->weight_threshold) {
                *out++ = static_cast<int32_t>(index);
            }
        }
        *out = -1;
    }
}

bool KoOrientationHistogramBuildCells(OrientationHistogram *oh) {
    const uint64_t pixels = unsigned_of(oh->geometry->patch_size) * unsigned_of(oh->geometry->patch_size);
    const uint64_t cells = unsigned_of(oh->layout->cell_count);
    if (KoMatrixFloatInit(&oh->spatial_weights, pixels, cells) != KO_OK ||
        KoMatrixIntegerInit(&oh->spatial_index, pixels + 1, cells) != KO_OK) {
        return false;
    }
    KoOrientationHistogramBuildSpatialWeights(oh);
    KoOrientationHistogramBuildSpatialIndex(oh);
    return true;
}

// Divides a column by the sum of its entries, so that the bins share a unit vector.
void normalise_column(MatrixFloat *table, uint64_t column) {
    float sum = 0.0f;
    for (uint64_t b = 0; b < table->height; ++b) {
        sum += table->rows[b][column];
    }
    for (uint64_t b = 0; b < table->height; ++b) {
        table->rows[b][column] /= sum;
    }
}

// The Gaussian of the chord between a direction and a bin's, for the x component in steps and either sign of the y component.
bool KoOrientationHistogramBuildOrientationTables(OrientationHistogram *oh) {
    const uint64_t bins = unsigned_of(oh->layout->bin_count);
    if (KoMatrixFloatInit(&oh->orientation_upper, direction_steps, bins) != KO_OK ||
        KoMatrixFloatInit(&oh->orientation_lower, direction_steps, bins) != KO_OK ||
        !allocate_table(&oh->logistic_table, direction_steps)) {
        return false;
    }
    const double n = static_cast<double>(bins);
    const float width = square(static_cast<float>(static_cast<double>(oh->layout->orientation_sigma) * full_turn / n));
    for (uint64_t b = 0; b < bins; ++b) {
        const double angle = static_cast<double>(static_cast<float>(static_cast<double>(b) * full_turn / n));
        const float c = static_cast<float>(std::cos(angle));
        const float s = static_cast<float>(std::sin(angle));
        for (uint64_t j = 0; j < direction_steps; ++j) {
            const float u = static_cast<float>(static_cast<double>(j) * 2.0 / 254.0 - 1.0);
            const float v = static_cast<float>(std::sqrt(1.0 - static_cast<double>(u * u)));
            oh->orientation_upper.rows[b][j] = static_cast<float>(gaussian(v - s, u - c, width));
            oh->orientation_lower.rows[b][j] = static_cast<float>(gaussian(-v - s, u - c, width));
        }
    }
    for (uint64_t j = 0; j < direction_steps; ++j) {
        normalise_column(&oh->orientation_upper, j);
        normalise_column(&oh->orientation_lower, j);
        const double exponent = 5.0 - static_cast<double>(j) * 10.0 / 255.0;
        oh->logistic_table[j] = static_cast<float>(1.0 / (std::exp(exponent) + 1.0));
    }
    return true;
}

bool build(OrientationHistogram *oh) {
    const uint64_t positions = unsigned_of(oh->geometry->position_count);
    const uint64_t padded = unsigned_of(oh->geometry->padded_pixels);
    const uint64_t side = unsigned_of(oh->geometry->patch_size);
    return allocate_table(&oh->position_table_0, positions) && allocate_table(&oh->position_table_1, positions) &&
           allocate_table(&oh->position_table_2, positions) &&
           KoMatrixFloatInit(&oh->histogram_rows, unsigned_of(oh->layout->feature_length), positions) == KO_OK &&
           KoOrientationHistogramBuildKernels(oh) && KoOrientationHistogramBuildCells(oh) &&
           KoOrientationHistogramBuildOrientationTables(oh) && allocate_clear_table(&oh->gradient_x, padded) &&
           allocate_clear_table(&oh->gradient_y, padded) &&
           KoMatrixFloatInit(&oh->orientation_planes, padded, unsigned_of(oh->layout->bin_count)) == KO_OK &&
           allocate_clear_table(&oh->scratch, padded) && allocate_table(&oh->cell_buffer, side * side);
}

// ---- the computation

// Correlates the rows of a picture with a kernel, fully covered positions alone, and writes the result transposed, so that the
// next pass runs along rows again.
void KoOrientationHistogramFilterTransposed(const OrientationHistogram *oh, const float *kernel, uint64_t width,
                                            uint64_t height, const float *input, float *output) {
    const uint64_t taps = 2 * unsigned_of(oh->radius) + 1;
    for (uint64_t y = 0; y < height; ++y) {
        const float *row = input + y * width;
        for (uint64_t x = 0; x + taps <= width; ++x) {
            float sum = 0.0f;
            for (uint64_t k = 0; k < taps; ++k) {
                sum += kernel[k] * row[x + k];
            }
            output[x * height + y] = sum;
        }
    }
}

// Spreads a gradient over the bins of its direction. One without a magnitude, or not a number, leaves the planes at 0.
void spread_gradient(OrientationHistogram *oh, uint64_t i) {
    const float gx = oh->gradient_x[i];
    const float gy = oh->gradient_y[i];
    const auto magnitude = static_cast<float>(std::sqrt(static_cast<double>(gx * gx + gy * gy)));
    const float cx = gx / magnitude;
    if (!(static_cast<double>(magnitude) > least_magnitude) || cx != cx) {
        return;
    }
    const double x = std::clamp(static_cast<double>(cx), -1.0, 1.0);
    const auto j = static_cast<uint64_t>((x + 1.0) * 127.0);
    const MatrixFloat &table = gy / magnitude > 0.0f ? oh->orientation_upper : oh->orientation_lower;
    for (uint64_t b = 0; b < table.height; ++b) {
        oh->orientation_planes.rows[b][i] = table.rows[b][j] * magnitude;
    }
}

void KoOrientationHistogramGradients(OrientationHistogram *oh, uint64_t side, const float *pixels) {
    const uint64_t width = side - 2 * unsigned_of(oh->radius);
    KoOrientationHistogramFilterTransposed(oh, oh->deriv_kernel, side, side, pixels, oh->scratch);
    KoOrientationHistogramFilterTransposed(oh, oh->gauss_kernel, side, width, oh->scratch, oh->gradient_x);
    KoOrientationHistogramFilterTransposed(oh, oh->gauss_kernel, side, side, pixels, oh->scratch);
    KoOrientationHistogramFilterTransposed(oh, oh->deriv_kernel, side, width, oh->scratch, oh->gradient_y);
    KoMatrixFloatClear(&oh->orientation_planes);
    for (uint64_t i = 0; i < width * width; ++i) {
        spread_gradient(oh, i);
    }
}

void KoOrientationHistogramAccumulate(const OrientationHistogram *oh, float *features) {
    const uint64_t bins = unsigned_of(oh->layout->bin_count);
    for (uint64_t b = 0; b < bins; ++b) {
        const float *plane = oh->orientation_planes.rows[b];
        for (uint64_t c = 0; c < oh->spatial_weights.height; ++c) {
            float &feature = features[c * bins + b];
            for (const int32_t *p = oh->spatial_index.rows[c]; *p >= 0; ++p) {
                feature += plane[*p] * oh->spatial_weights.rows[c][*p];
            }
            feature = static_cast<float>(std::log(static_cast<double>(feature) + 1.0));
        }
    }
}

} // namespace

int32_t KoOrientationHistogramInit(OrientationHistogram *oh, const PatchGeometry *geometry, const HistogramLayout *layout) {
    const int32_t patch_count = oh->patch_count;
    *oh = {};
    oh->geometry = geometry;
    oh->layout = layout;
    oh->patch_count = patch_count;
    if (!is_sound(*geometry, *layout)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    oh->radius = static_cast<int32_t>(filter_radius(*geometry, *layout));
    return build(oh) ? static_cast<int32_t>(KO_OK) : KoErrorGetLastError();
}

OrientationHistogram *KoOrientationHistogramNew(const PatchGeometry *geometry, const HistogramLayout *layout) {
    return make_object<OrientationHistogram>(
        "OrientationHistogram",
        [=](OrientationHistogram *oh) {
            oh->patch_count = 0;
            return KoOrientationHistogramInit(oh, geometry, layout);
        },
        KoOrientationHistogramFree);
}

int32_t KoOrientationHistogramFree(OrientationHistogram *oh) {
    if (oh == nullptr) {
        return KO_OK;
    }
    for (float *table : {oh->gauss_kernel, oh->deriv_kernel, oh->logistic_table, oh->cell_buffer, oh->position_table_0,
                         oh->position_table_1, oh->position_table_2, oh->gradient_x, oh->gradient_y, oh->scratch}) {
        KoFree(table);
    }
    KoMatrixFloatFree(&oh->spatial_weights);
    KoMatrixIntegerFree(&oh->spatial_index);
    KoMatrixFloatFree(&oh->orientation_upper);
    KoMatrixFloatFree(&oh->orientation_lower);
    KoMatrixFloatFree(&oh->histogram_rows);
    KoMatrixFloatFree(&oh->orientation_planes);
    return KO_OK;
}

int32_t KoOrientationHistogramDelete(OrientationHistogram *oh) {
    KoOrientationHistogramFree(oh);
    KoFree(oh);
    return KO_OK;
}

int32_t KoOrientationHistogramCompute(OrientationHistogram *oh, uint32_t side, const float *pixels, float *features) {
    const uint64_t border = 2 * unsigned_of(oh->radius);
    if (side <= border || (side - border) * side > unsigned_of(oh->geometry->padded_pixels)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    KoMatrixFloatClear(&oh->histogram_rows);
    KoOrientationHistogramGradients(oh, side, pixels);
    KoOrientationHistogramAccumulate(oh, oh->histogram_rows.rows[0]);
    std::copy_n(oh->histogram_rows.rows[0], oh->layout->feature_length, features);
    return KO_OK;
}
