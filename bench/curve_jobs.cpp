#include "curve_jobs.h"

#include <algorithm>
#include <cmath>

namespace ko_bench {

namespace {

constexpr uint64_t levels = 256;

// The picture with its shadows opened, the more the darker and the further to the right.
RealImagePtr open_shadows(const RealImage *image) {
    RealImagePtr result(KoRealImageNew(image->width, image->height));
    for (uint64_t y = 0; y < image->height; ++y) {
        for (uint64_t x = 0; x < image->width; ++x) {
            const float strength = 1.0f + static_cast<float>(x) / static_cast<float>(image->width);
            const float gain = 1.0f + strength * std::exp(-image->rows[y][x] / 60.0f);
            result->rows[y][x] = std::min(image->rows[y][x] * gain, 255.0f);
        }
    }
    return result;
}

} // namespace

CurveFit::CurveFit() : image_(photograph_plane(size)), target_(open_shadows(image_.get())), curve_(KoTRCNew(levels)) {}

bool CurveFit::fit() {
    RealImageLineIterator input_line;
    RealImageLineIterator target_line;
    KoRealImageLineIteratorInit(&input_line, image_.get());
    KoRealImageLineIteratorInit(&target_line, target_.get());
    return KoTRCCompute(curve_.get(), &input_line, &target_line) == KO_OK && curve_->array;
}

std::vector<uint32_t> entries_of(const TileTRC *grid) {
    return {grid->array, grid->array + grid->size * grid->numStripsX * grid->numStripsY};
}

} // namespace ko_bench
