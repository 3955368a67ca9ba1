#include "inputs.h"

#include <algorithm>
#include <cmath>

namespace ko_bench {

namespace {

constexpr uint32_t noise_seed = 20240229u;

} // namespace

std::vector<uint8_t> photograph(Size size, uint64_t channels) {
    return ko_test::photograph(size.width, size.height, channels, noise_seed);
}

RealImagePtr photograph_plane(Size size) {
    const std::vector<uint8_t> bytes = photograph(size, 1);
    return RealImagePtr(KoRealImageNewFromByteArray(size.width, size.height, bytes.data(), 0));
}

ColorImagePtr color_planes(Size size, const std::vector<uint8_t> &bytes) {
    return ColorImagePtr(
        KoColorImageNewFromByteArray(size.width, size.height, KO_COLORSPACE_RGB, bytes.data(), KO_BYTE_LAYOUT_INTERLEAVED));
}

void make_shadow_curve(uint32_t *curve, uint64_t levels, uint64_t amount) {
    const double exponent = 0.5 + 0.05 * static_cast<double>(amount % 11);
    const double top = static_cast<double>(levels - 1);
    for (uint64_t level = 0; level < levels; ++level) {
        curve[level] = static_cast<uint32_t>(top * std::pow(static_cast<double>(level) / top, exponent));
    }
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    return values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2.0;
}

} // namespace ko_bench
