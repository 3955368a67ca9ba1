// Bytes to planes, planes to bytes, and RGB to YIQ, each into what is there.
#include "support.h"

namespace {

using namespace ko_bench;

constexpr Size size{4000, 3000};
constexpr uint64_t channels = 3;
constexpr uint64_t plane_bytes = channels * sizeof(float); // per pixel
constexpr Mark byte_mark{Measure::ratio, 2.5};

void bytes_to_planes(benchmark::State &state) {
    const std::vector<uint8_t> bytes = photograph(size, channels);
    const ColorImagePtr image = color_planes(size, bytes);
    measure(state, {size.pixels(), channels, plane_bytes}, byte_mark, [&] {
        return KoColorImageFromByteArray(image.get(), bytes.data(), 0, size.height, KO_BYTE_LAYOUT_INTERLEAVED) == KO_OK;
    });
}

void planes_to_bytes(benchmark::State &state) {
    const std::vector<uint8_t> bytes = photograph(size, channels);
    const ColorImagePtr image = color_planes(size, bytes);
    std::vector<uint8_t> output(bytes.size());
    measure(state, {size.pixels(), plane_bytes, channels}, byte_mark, [&] {
        return KoColorImageToByteArray(image.get(), output.data(), 0, size.height, KO_BYTE_LAYOUT_INTERLEAVED) == KO_OK;
    });
}

void rgb_to_yiq(benchmark::State &state) {
    const ColorImagePtr image = color_planes(size, photograph(size, channels));
    const ColorImagePtr result(KoColorImageNew(size.width, size.height, KO_COLORSPACE_YIQ));
    measure(state, {size.pixels(), plane_bytes, plane_bytes}, {Measure::ratio, 1.5},
            [&] { return KoColorImageFromColorImage(result.get(), image.get()) == KO_OK; });
}

BENCHMARK(bytes_to_planes)->Name("bytes to planes 12 MP")->Apply(rounds<15>);
BENCHMARK(planes_to_bytes)->Name("planes to bytes 12 MP")->Apply(rounds<15>);
BENCHMARK(rgb_to_yiq)->Name("RGB to YIQ 12 MP")->Apply(rounds<15>);

} // namespace
