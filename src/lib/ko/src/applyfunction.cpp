// The elementary pixel functions, and the drivers that run colour functions over pictures two pixels a call.
#include "ko/applyfunction.h"

#include <cmath>

#include "report.h"

namespace {

constexpr uint64_t packet = 4;       // floats of a pixel
constexpr uint64_t packet_array = 8; // floats of a call

float value_of(void *data) { return *static_cast<const float *>(data); }

// Runs operation over the packets of two sources, channel by channel.
template <class Operation>
int32_t combine_packets(int64_t count, uint64_t depth, const float *first, const float *second, float *result,
                        Operation operation) {
    for (uint64_t pixel = 0; pixel < static_cast<uint64_t>(count > 0 ? count : 0); ++pixel) {
        for (uint64_t c = 0; c < depth; ++c) {
            const uint64_t i = pixel * packet + c;
            result[i] = operation(first[i], second[i]);
        }
    }
    return KO_OK;
}

void load_pixel(const ColorImage *image, uint64_t x, uint64_t y, float *pixel) {
    for (uint64_t c = 0; c < 3; ++c) {
        pixel[c] = image->planes[c].rows[y][x];
    }
    pixel[3] = 0.0f;
}

// Loads count pixels from x on; a single pixel leaves the second packet 0.
void load_packets(const ColorImage *image, uint64_t x, uint64_t y, int64_t count, float *packets) {
    load_pixel(image, x, y, packets);
    if (count == 2) {
        load_pixel(image, x + 1, y, packets + packet);
    } else {
        for (uint64_t i = packet; i < packet_array; ++i) {
            packets[i] = 0.0f;
        }
    }
}

void store_packets(ColorImage *image, uint64_t x, uint64_t y, int64_t count, const float *packets) {
    for (uint64_t pixel = 0; pixel < static_cast<uint64_t>(count); ++pixel) {
        for (uint64_t c = 0; c < 3; ++c) {
            image->planes[c].rows[y][x + pixel] = packets[pixel * packet + c];
        }
    }
}

int32_t make_result(const ColorImage *source, ColorImage **result) {
    if (*result != nullptr) {
        return KO_OK;
    }
    *result = KoColorImageNew(static_cast<uint32_t>(KoColorImageGetWidth(source)),
                              static_cast<uint32_t>(KoColorImageGetHeight(source)), source->color_space);
    return *result != nullptr ? static_cast<int32_t>(KO_OK) : KoErrorGetLastError();
}

// The walk over a picture: call(x, y, count, result packets) for every pair of pixels, the last of an odd line alone. Gives the
// status of the last call.
template <class Call> int32_t for_each_pair(const ColorImage *source, ColorImage *result, Call call) {
    int32_t status = KO_OK;
    float packets[packet_array] = {};
    const uint64_t width = source->planes[0].width;
    for (uint64_t y = 0; y < source->planes[0].height; ++y) {
        for (uint64_t x = 0; x < width; x += 2) {
            const int64_t count = x + 1 < width ? 2 : 1;
            status = call(x, y, count, packets);
            store_packets(result, x, y, count, packets);
        }
    }
    return status;
}

} // namespace

float KoFunctionAbsImage(void *, float a) { return std::fabs(a); }

float KoFunctionAddValue(void *data, float a) { return a + value_of(data); }

float KoFunctionSubstractValue(void *data, float a) { return a - value_of(data); }

float KoFunctionMultiplyValue(void *data, float a) { return a * value_of(data); }

float KoFunctionDivideValue(void *data, float a) { return a / value_of(data); }

float KoFunctionAddImage(void *, float a, float b) { return a + b; }

float KoFunctionAbsAddImage(void *, float a, float b) {
    return static_cast<float>(std::fabs(static_cast<double>(a)) + std::fabs(static_cast<double>(b)));
}

float KoFunctionSubstractImage(void *, float a, float b) { return a - b; }

float KoFunctionDiffImage(void *, float a, float b) { return std::fabs(a - b); }

float KoFunctionMultiplyImage(void *, float a, float b) { return a * b; }

float KoFunctionDivideImage(void *, float a, float b) { return a / b; }

int32_t KoFunctionDiffColorImage(void *, int64_t count, uint64_t depth, const float *first, const float *second, uint64_t,
                                 float *result) {
    return combine_packets(count, depth, first, second, result, [](float a, float b) { return std::fabs(a - b); });
}

int32_t KoFunctionSubstractColorImage(void *, int64_t count, uint64_t depth, const float *first, const float *second, uint64_t,
                                      float *result) {
    return combine_packets(count, depth, first, second, result, [](float a, float b) { return a - b; });
}

int32_t KoApplyFunctionTo1ColorImage(KoColorFunction1 function, void *data, ColorImage *source, ColorImage **result) {
    const int32_t status = make_result(source, result);
    if (status != KO_OK) {
        return status;
    }
    ColorImage *target = *result;
    if (source->depth != 3 || target->depth != 3 || source->planes[0].width != target->planes[0].width ||
        source->planes[0].height != target->planes[0].height) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    return for_each_pair(source, target, [=](uint64_t x, uint64_t y, int64_t count, float *packets) {
        float pixels[packet_array];
        load_packets(source, x, y, count, pixels);
        return function(data, count, source->depth, pixels, target->depth, packets);
    });
}

int32_t KoApplyFunctionTo2ColorImage(KoColorFunction2 function, void *data, ColorImage *first, ColorImage *second,
                                     ColorImage **result) {
    const int32_t status = make_result(first, result);
    if (status != KO_OK) {
        return status;
    }
    ColorImage *target = *result;
    // The width of the second source and the height of the result are tested, the other two sizes are the caller's.
    if (first->depth != 3 || second->depth != 3 || target->depth != 3 || second->planes[0].width != first->planes[0].width ||
        target->planes[0].height != first->planes[0].height) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    return for_each_pair(first, target, [=](uint64_t x, uint64_t y, int64_t count, float *packets) {
        float a[packet_array];
        float b[packet_array];
        load_packets(first, x, y, count, a);
        load_packets(second, x, y, count, b);
        return function(data, count, first->depth, a, b, target->depth, packets);
    });
}
