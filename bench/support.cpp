#include "support.h"

#include <cmath>
#include <cstring>

namespace ko_bench {

namespace {

constexpr uint32_t noise_seed = 20240229u;

// The next of a reproducible sequence of 32-bit numbers.
uint32_t next_noise(uint32_t &state) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return state;
}

// The two factors along one axis from which the light of a picture is made.
struct Axis {
    std::vector<float> fall_off;
    std::vector<float> wave;
};

Axis make_axis(uint64_t length, float waves) {
    Axis axis;
    for (uint64_t i = 0; i < length; ++i) {
        const float position = (static_cast<float>(i) + 0.5f) / static_cast<float>(length) - 0.5f;
        axis.fall_off.push_back(std::exp(-4.0f * position * position));
        axis.wave.push_back(std::sin(waves * position));
    }
    return axis;
}

} // namespace

std::vector<uint8_t> photograph(Size size, uint64_t channels) {
    const Axis across = make_axis(size.width, 40.0f);
    const Axis down = make_axis(size.height, 30.0f);
    std::vector<uint8_t> bytes(size.pixels() * channels);
    uint32_t noise = noise_seed;
    uint8_t *byte = bytes.data();
    for (uint64_t y = 0; y < size.height; ++y) {
        for (uint64_t x = 0; x < size.width; ++x) {
            const float light = 220.0f * across.fall_off[x] * down.fall_off[y] + 25.0f * across.wave[x] * down.wave[y];
            for (uint64_t channel = 0; channel < channels; ++channel) {
                const float tint = 1.0f - 0.12f * static_cast<float>(channel) * across.fall_off[x];
                const float grain = static_cast<float>(next_noise(noise) >> 24) / 21.0f - 6.0f;
                *byte++ = static_cast<uint8_t>(std::clamp(light * tint + grain, 0.0f, 255.0f));
            }
        }
    }
    return bytes;
}

RealImagePtr photograph_plane(Size size) {
    const std::vector<uint8_t> bytes = photograph(size, 1);
    return RealImagePtr(KoRealImageNewFromByteArray(size.width, size.height, bytes.data(), 0));
}

// The buffers differ and are not 0, so that no two pages of them can be one.
Yardstick::Yardstick(const Job &job)
    : source_(job.pixels * (job.bytes_in + job.bytes_out) / 2, uint8_t{0x5a}), target_(source_.size(), uint8_t{0xa5}) {}

void Yardstick::copy() {
    std::memcpy(target_.data(), source_.data(), source_.size());
    benchmark::DoNotOptimize(target_.data());
    benchmark::ClobberMemory();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    return values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2.0;
}

void set_counters(benchmark::State &state, const Job &job, const Mark &mark, double job_seconds, double copy_seconds) {
    const double pixels = static_cast<double>(job.pixels);
    state.counters["ms"] = job_seconds * 1e3;
    state.counters["ns_px"] = job_seconds * 1e9 / pixels;
    state.counters["memcpy_ns_px"] = copy_seconds * 1e9 / pixels;
    state.counters["ratio"] = job_seconds / copy_seconds;
    if (mark.measure != Measure::none) {
        state.counters[counter_name(mark.measure)] = mark.limit;
    }
    if (mark.flat) {
        state.counters["flat"] = 1.0;
    }
}

} // namespace ko_bench
