// The stages of the red-eye correction, and the labelling that they rest on.
#include <cmath>
#include <memory>
#include <random>

#include "support.h"

namespace {

using namespace ko_bench;

using RedEyePtr = std::unique_ptr<RedEyeCorrection, Deleter<KoRedEyeCorrectionDelete>>;
using ParamPtr = std::unique_ptr<RedEyeImageParam, Deleter<KoRedEyeImageParamDelete>>;
using HistogramPtr = std::unique_ptr<OrientationHistogram, Deleter<KoOrientationHistogramDelete>>;

constexpr Size working_size{1000, 1000};
constexpr Size photograph_size{4000, 3000};

// A map of round blobs of several sizes, with noise pixels between them, and dark elsewhere.
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

void labelling(benchmark::State &state) {
    const RealImagePtr map = spotted_map(working_size, 0.01);
    std::vector<int32_t> labels(working_size.pixels());
    std::vector<uint32_t> table(working_size.pixels() / 2);
    std::vector<BlobInfo> blobs(table.size());
    measure(state, {working_size.pixels(), sizeof(float), sizeof(int32_t)}, {Measure::nanoseconds_per_pixel, 4.0}, [&] {
        const uint32_t count = KoConCompRealImage(map.get(), 0.1f, labels.data(), table.data());
        std::fill_n(blobs.begin(), count + 1, BlobInfo{});
        return KoConCompRealImageInfo(working_size.width, working_size.height, labels.data(), table.data(), blobs.data()) != 0;
    });
}

void circularity(benchmark::State &state) {
    const RealImagePtr map = spotted_map(working_size, 0.03);
    const RedEyePtr rec(KoRedEyeCorrectionNew());
    const ParamPtr param(KoRedEyeImageParamNew(nullptr));
    const auto restore = [&] { KoRealImageMultiplyValue(map.get(), 1.0f, &param->col_map); };
    restore();
    measure(
        state, {working_size.pixels(), sizeof(float), sizeof(float)}, {Measure::nanoseconds_per_pixel, 6.0},
        [&] { return KoRedEyeCorrectionCircularity(rec.get(), param.get()) == KO_OK; }, restore);
}

void color_map(benchmark::State &state, int32_t (*stage)(RedEyeCorrection *, RedEyeImageParam *, int32_t)) {
    const ColorImagePtr image = color_planes(working_size, photograph(working_size, 3));
    const RedEyePtr rec(KoRedEyeCorrectionNew());
    const ParamPtr param(KoRedEyeImageParamNew(image.get()));
    param->working_image = image.get();
    measure(state, {working_size.pixels(), 3 * sizeof(float), sizeof(float)}, {Measure::ratio, 6.0},
            [&] { return stage(rec.get(), param.get(), 1) == KO_OK; });
}

// The histograms of three channels, as a patch of a middling model needs them.
void patch(benchmark::State &state) {
    constexpr int32_t side = 32;
    constexpr int32_t border = 9;
    constexpr PatchGeometry geometry{(side + border) * (side + border), side, 16, 1, 1.0f, 1.0f, 2, border};
    constexpr HistogramLayout layout{8, 4, 16, 128, 0.09375f, 0.0f, 1.0f, 0.6f, 0.5f, 1e-4f};
    const HistogramPtr histogram(KoOrientationHistogramNew(&geometry, &layout));
    const std::vector<uint8_t> bytes = photograph({side + 2 * border, side + 2 * border}, 1);
    const std::vector<float> pixels(bytes.begin(), bytes.end());
    std::vector<float> features(layout.feature_length);
    measure(state, {3 * pixels.size(), sizeof(float), sizeof(float)}, {Measure::milliseconds, 1.5}, [&] {
        bool good = histogram != nullptr;
        for (int channel = 0; channel < 3 && good; ++channel) {
            good = KoOrientationHistogramCompute(histogram.get(), side + 2 * border, pixels.data(), features.data()) == KO_OK;
        }
        return good;
    });
}

bool locate(ColorImage *image) {
    const RedEyePtr rec(KoRedEyeCorrectionNew());
    const ParamPtr param(KoRedEyeImageParamNew(image));
    return KoRedEyeCorrectionDownsample(rec.get(), param.get()) == KO_OK &&
           KoRedEyeCorrectionReddishProbability(rec.get(), param.get(), 1) == KO_OK &&
           KoRedEyeCorrectionRedLumProbability(rec.get(), param.get(), 1) == KO_OK &&
           KoRedEyeCorrectionColProbability(rec.get(), param.get()) == KO_OK &&
           KoRedEyeCorrectionCircularity(rec.get(), param.get()) == KO_OK &&
           KoRedEyeCorrectionLocateBlobs(rec.get(), param.get()) == KO_OK;
}

void location(benchmark::State &state) {
    const ColorImagePtr image = color_planes(photograph_size, photograph(photograph_size, 3));
    KoStatusClear();
    measure(state, {photograph_size.pixels(), 3 * sizeof(float), 0}, {Measure::nanoseconds_per_pixel, 8.0},
            [&] { return locate(image.get()); });
}

BENCHMARK(labelling)->Name("labelling with its summary, 1 MP")->Apply(rounds<30>);
BENCHMARK(circularity)->Name("circularity, 1 MP, 7 % lit")->Apply(rounds<30>);
BENCHMARK_CAPTURE(color_map, reddish, KoRedEyeCorrectionReddishProbability)->Name("reddish map, 1 MP")->Apply(rounds<30>);
BENCHMARK_CAPTURE(color_map, red_lum, KoRedEyeCorrectionRedLumProbability)->Name("red light map, 1 MP")->Apply(rounds<30>);
BENCHMARK(patch)->Name("one patch, three channels")->Apply(rounds<50>);
BENCHMARK(location)->Name("red eyes up to location, 12 MP")->Apply(rounds<7>);

} // namespace
