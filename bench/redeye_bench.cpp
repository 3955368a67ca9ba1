// The stages of the red-eye correction, and the labelling that they rest on.
#include <memory>

#include "redeye_jobs.h"
#include "support.h"

namespace {

using namespace ko_bench;

constexpr Size working_size{1000, 1000};
constexpr Size photograph_size{4000, 3000};

void labelling(benchmark::State &state) {
    Labelling job;
    measure(state, {Labelling::size.pixels(), sizeof(float), sizeof(int32_t)}, {Measure::nanoseconds_per_pixel, 4.0},
            [&] { return job.run() != 0; });
}

void circularity(benchmark::State &state) {
    const RealImagePtr map = spotted_map(working_size, 0.03);
    const RedEyeCorrectionPtr rec(KoRedEyeCorrectionNew());
    const RedEyeImageParamPtr param(KoRedEyeImageParamNew(nullptr));
    const auto restore = [&] { KoRealImageMultiplyValue(map.get(), 1.0f, &param->col_map); };
    restore();
    measure(
        state, {working_size.pixels(), sizeof(float), sizeof(float)}, {Measure::nanoseconds_per_pixel, 6.0},
        [&] { return KoRedEyeCorrectionCircularity(rec.get(), param.get()) == KO_OK; }, restore);
}

void color_map(benchmark::State &state, int32_t (*stage)(RedEyeCorrection *, RedEyeImageParam *, int32_t)) {
    const ColorImagePtr image = color_planes(working_size, photograph(working_size, 3));
    const RedEyeCorrectionPtr rec(KoRedEyeCorrectionNew());
    const RedEyeImageParamPtr param(KoRedEyeImageParamNew(image.get()));
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
    const OrientationHistogramPtr histogram(KoOrientationHistogramNew(&geometry, &layout));
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

void location(benchmark::State &state) {
    const ColorImagePtr image = color_planes(photograph_size, photograph(photograph_size, 3));
    KoStatusClear();
    measure(state, {photograph_size.pixels(), 3 * sizeof(float), 0}, {Measure::nanoseconds_per_pixel, 8.0},
            [&] { return locate(image.get()) != nullptr; });
}

BENCHMARK(labelling)->Name("labelling with its summary, 1 MP")->Apply(rounds<30>);
BENCHMARK(circularity)->Name("circularity, 1 MP, 7 % lit")->Apply(rounds<30>);
BENCHMARK_CAPTURE(color_map, reddish, KoRedEyeCorrectionReddishProbability)->Name("reddish map, 1 MP")->Apply(rounds<30>);
BENCHMARK_CAPTURE(color_map, red_lum, KoRedEyeCorrectionRedLumProbability)->Name("red light map, 1 MP")->Apply(rounds<30>);
BENCHMARK(patch)->Name("one patch, three channels")->Apply(rounds<50>);
BENCHMARK(location)->Name("red eyes up to location, 12 MP")->Apply(rounds<7>);

} // namespace
