// Enhances a picture in memory as the program `ko` does, from C++: judged on a small copy, with curves of limited slope.
//
// The picture here is made up: a bright field with a dark, textured half. The program prints what was decided, and the mean of
// the dark half before and after.
#include <cstdint>
#include <iostream>
#include <numeric>
#include <vector>

#include <kohost/kohost.hpp>

namespace {

constexpr kohost::Size size = {1600, 1200};
constexpr uint32_t channels = 3;

std::vector<uint8_t> painted() {
    std::vector<uint8_t> bytes;
    for (uint32_t y = 0; y < size.height; ++y) {
        for (uint32_t x = 0; x < size.width; ++x) {
            const uint32_t level = (y < size.height / 2 ? 10 : 180) + (x / 8 * 7 + y / 8 * 13) % 17;
            bytes.insert(bytes.end(), channels, static_cast<uint8_t>(level));
        }
    }
    return bytes;
}

double mean_of_dark_half(const std::vector<uint8_t> &bytes) {
    return std::accumulate(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2), 0.0) /
           static_cast<double>(bytes.size() / 2);
}

} // namespace

int main() {
    try {
        const ko::Library library;
        std::vector<uint8_t> bytes = painted();
        const double before = mean_of_dark_half(bytes);
        const kohost::Enhancement enhancement = kohost::enhance(bytes.data(), size, channels, {}, {});
        if (enhancement.decision == kohost::Decision::enhanced) {
            std::cout << "enhanced: dark half from " << before << " to " << mean_of_dark_half(bytes) << "\n";
        } else {
            std::cout << "left as it is: " << enhancement.reason << "\n";
        }
        return 0;
    } catch (const std::exception &error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
