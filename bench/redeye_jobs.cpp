#include "redeye_jobs.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>

namespace ko_bench {

RealImagePtr spotted_map(Size size, double lit_share) {
    RealImagePtr map(KoRealImageNew(size.width, size.height));
    std::mt19937 random(1);
    std::uniform_real_distribution<float> share(0.0f, 1.0f);
    for (uint32_t y = 0; y < size.height; ++y) {
        for (uint32_t x = 0; x < size.width; ++x) {
            const uint32_t cell = x / 50 + y / 50 * 31;
            const double radius = 2.0 + cell % 9;
            const bool in_blob = std::hypot(x % 50 - 25.0, y % 50 - 25.0) < radius;
            const bool is_noise = share(random) < static_cast<float>(lit_share);
            map->rows[y][x] = in_blob || is_noise ? 0.2f + 0.8f * share(random) : 0.0f;
        }
    }
    return map;
}

Labelling::Labelling()
    : map_(spotted_map(size, 0.01)), labels_(size.pixels()), table_(size.pixels() / 2), blobs_(table_.size()) {}

uint32_t Labelling::run() {
    const uint32_t count = KoConCompRealImage(map_.get(), threshold, labels_.data(), table_.data());
    std::fill_n(blobs_.begin(), count + 1, BlobInfo{});
    return KoConCompRealImageInfo(size.width, size.height, labels_.data(), table_.data(), blobs_.data());
}

RedEyeImageParamPtr locate(ColorImage *image) {
    const RedEyeCorrectionPtr rec(KoRedEyeCorrectionNew());
    RedEyeImageParamPtr param(KoRedEyeImageParamNew(image));
    const bool good = KoRedEyeCorrectionDownsample(rec.get(), param.get()) == KO_OK &&
                      KoRedEyeCorrectionReddishProbability(rec.get(), param.get(), 1) == KO_OK &&
                      KoRedEyeCorrectionRedLumProbability(rec.get(), param.get(), 1) == KO_OK &&
                      KoRedEyeCorrectionColProbability(rec.get(), param.get()) == KO_OK &&
                      KoRedEyeCorrectionCircularity(rec.get(), param.get()) == KO_OK &&
                      KoRedEyeCorrectionLocateBlobs(rec.get(), param.get()) == KO_OK;
    return good ? std::move(param) : nullptr;
}

} // namespace ko_bench
