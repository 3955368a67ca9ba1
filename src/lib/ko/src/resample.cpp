// Resampling: which source column and row each column and row of the result takes. The walk that copies them is in sampling.h.
#include "ko/resample.h"

#include <algorithm>
#include <cmath>

#include "alloc.h"
#include "convert.h"
#include "matrix.h"
#include "report.h"
#include "sampling.h"

namespace {

using namespace ko;

// The pixel under the centre of each new one, in single precision.
class DownCursor {
  public:
    DownCursor(uint64_t size, uint64_t, float ratio) : size_(size), ratio_(ratio) {}

    uint64_t operator()(uint64_t position) {
        const auto index = static_cast<uint64_t>(truncate_64((static_cast<float>(position) + 0.5f) * ratio_));
        return std::min(index, size_ - 1);
    }

  private:
    uint64_t size_;
    float ratio_;
};

// Each source pixel fills a run that ends at a rounded border: the product in single precision, the rounding in double. The
// last run ends with the result.
class UpCursor {
  public:
    UpCursor(uint64_t size, uint64_t new_size, float ratio) : size_(size), new_size_(new_size), ratio_(ratio) { set_end(); }

    uint64_t operator()(uint64_t position) {
        while (position >= end_) {
            ++index_;
            set_end();
        }
        return index_;
    }

  private:
    void set_end() {
        const float border = static_cast<float>(index_ + 1) * ratio_;
        const bool last = index_ + 1 >= size_ || !(border < static_cast<float>(new_size_));
        end_ = last ? new_size_ : static_cast<uint64_t>(std::floor(static_cast<double>(border) + 0.5));
    }

    uint64_t size_;
    uint64_t new_size_;
    float ratio_;
    uint64_t index_ = 0;
    uint64_t end_ = 0;
};

struct Ratios {
    float x;
    float y;
};

uint64_t whole(float pixels) { return pixels < 9.0e18f ? static_cast<uint64_t>(pixels) : UINT64_MAX; }

// Makes the result if there is none, of sides that scaled gives for the source's; otherwise ratios_of tells the ratios. A ratio
// under 1 is refused.
template <class Scaled, class RatioOf>
int32_t prepare(const RealImage *image, float factor, RealImage **result, Ratios *ratios, Scaled scaled, RatioOf ratio_of) {
    if (*result == nullptr) {
        if (!(factor >= 1.0f)) {
            return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
        }
        *ratios = {factor, factor};
        const auto side = [=](uint64_t size) { return whole(scaled(static_cast<float>(size), factor)); };
        *result = KoRealImageNew(side(image->width), side(image->height));
        return *result != nullptr ? static_cast<int32_t>(KO_OK) : KoErrorGetLastError();
    }
    const auto ratio = [=](uint64_t size, uint64_t new_size) {
        return ratio_of(static_cast<float>(size), static_cast<float>(new_size));
    };
    *ratios = {ratio(image->width, (*result)->width), ratio(image->height, (*result)->height)};
    if (ratios->x < 1.0f || ratios->y < 1.0f) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    return KO_OK;
}

bool has_pixels(const RealImage *image) { return image->width != 0 && image->height != 0; }

template <class Cursor> void fill(const RealImage *image, RealImage *result, const Ratios &ratios) {
    if (has_pixels(image) && has_pixels(result)) {
        sample(image, result, result->width, result->height, Cursor(image->width, result->width, ratios.x),
               Cursor(image->height, result->height, ratios.y));
    }
}

// Makes the planes' result if there is none and runs resample(plane, result's plane) for each.
template <class Resample>
int32_t resample_planes(const ColorImage *image, uint64_t width, uint64_t height, ColorImage **result, Resample resample) {
    if (*result == nullptr) {
        const auto side = [](uint64_t size) { return static_cast<uint32_t>(std::min<uint64_t>(size, UINT32_MAX)); };
        *result = KoColorImageNew(side(width), side(height), image->color_space);
        if (*result == nullptr) {
            return KoErrorGetLastError();
        }
    }
    int32_t status = KO_OK;
    for (uint32_t i = 0; i < image->depth && status == KO_OK; ++i) {
        RealImage *plane = KoColorImageGetImage(*result, i);
        status = plane != nullptr ? resample(&image->planes[i], &plane) : KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    return status;
}

} // namespace

int32_t KoRealImageUpsample(const RealImage *image, float factor, RealImage **result) {
    Ratios ratios{};
    const int32_t status = prepare(
        image, factor, result, &ratios, [](float size, float by) { return size * by; },
        [](float size, float new_size) { return new_size / size; });
    if (status == KO_OK) {
        fill<UpCursor>(image, *result, ratios);
    }
    return status;
}

int32_t KoRealImageDownsample(const RealImage *image, float factor, RealImage **result) {
    Ratios ratios{};
    const int32_t status = prepare(
        image, factor, result, &ratios, [](float size, float by) { return size / by; },
        [](float size, float new_size) { return size / new_size; });
    if (status == KO_OK) {
        fill<DownCursor>(image, *result, ratios);
    }
    return status;
}

int32_t KoRealImageResize(const RealImage *image, uint64_t width, uint64_t height, RealImage **result) {
    if (*result == nullptr) {
        *result = KoRealImageNew(width, height);
        if (*result == nullptr) {
            return KoErrorGetLastError();
        }
    }
    return KoMatrixFloatResize(image, width, height, result);
}

int32_t KoRealImageRescale(const RealImage *image, RealImage *result) {
    const bool narrower = static_cast<int32_t>(image->width) < static_cast<int32_t>(result->width);
    return (narrower ? KoRealImageUpsample : KoRealImageDownsample)(image, 0.0f, &result);
}

int32_t KoColorImageDownsample(const ColorImage *image, float factor, ColorImage **result) {
    const auto side = [=](uint64_t size) { return factor > 0.0f ? whole(static_cast<float>(size) / factor) : 0; };
    return resample_planes(image, side(KoColorImageGetWidth(image)), side(KoColorImageGetHeight(image)), result,
                           [=](const RealImage *plane, RealImage **to) { return KoRealImageDownsample(plane, factor, to); });
}

int32_t KoColorImageResize(const ColorImage *image, uint64_t width, uint64_t height, ColorImage **result) {
    return resample_planes(image, width, height, result,
                           [=](const RealImage *plane, RealImage **to) { return KoRealImageResize(plane, width, height, to); });
}
