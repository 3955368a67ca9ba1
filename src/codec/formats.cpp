// What the formats share: sizes, densities, whole files, and the texts of the C libraries.
#include "codec/formats.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "codec/guard.h"

namespace codec {

namespace {

Density scaled(const Density &density, Density::Unit unit, double factor) {
    const auto scale = [factor](uint32_t value) {
        return static_cast<uint32_t>(std::min(std::llround(value * factor), 0x7fffffffLL));
    };
    return {unit, scale(density.x), scale(density.y)};
}

constexpr double inch = 0.0254; // in metres
constexpr double centimetre = 0.01;

} // namespace

std::string further_pictures(uint32_t count) {
    const bool one = count == 1;
    return std::to_string(count) + " further picture" + (one ? "" : "s") + " in the file " + (one ? "is" : "are") + " left out";
}

Bytes read_all(Input &input) {
    constexpr size_t most_at_once = size_t{1} << 20;
    Bytes file;
    while (true) {
        const size_t size = file.size();
        file.resize(size + most_at_once);
        const std::optional<size_t> count = input.read(size, {file.data() + size, most_at_once});
        if (!count) {
            throw Error(input.failure());
        }
        file.resize(size + *count);
        if (*count < most_at_once) {
            return file;
        }
    }
}

uint64_t size_of(Input &input) {
    const std::optional<uint64_t> size = input.size();
    if (!size) {
        throw Error(input.failure());
    }
    return *size;
}

void check_size(uint64_t width, uint64_t height) {
    if (width == 0 || height == 0) {
        throw Error("the picture has no pixels");
    }
    if (height > largest_area / width) {
        throw Error("too large: " + std::to_string(width) + " x " + std::to_string(height) + " pixels, at most " +
                    std::to_string(largest_area) + " can be processed");
    }
}

Density for_jpeg(const Density &density) {
    return density.unit == Density::Unit::metre ? scaled(density, Density::Unit::inch, inch) : density;
}

Density per_metre(const Density &density) {
    switch (density.unit) {
    case Density::Unit::inch:
        return scaled(density, Density::Unit::metre, 1.0 / inch);
    case Density::Unit::centimetre:
        return scaled(density, Density::Unit::metre, 1.0 / centimetre);
    default:
        return density;
    }
}

void Trouble::tell_warnings(Notices &notices) {
    for (size_t i = 0; i < warning_count_; ++i) {
        const std::string text = readable(warnings_[i]);
        if (std::find(notices.begin(), notices.end(), text) == notices.end()) {
            notices.push_back(text);
        }
    }
    warning_count_ = 0;
}

std::string Trouble::readable(const Text &text) {
    std::string clause = text.data();
    const auto is_upper = [&](size_t i) {
        return i < clause.size() && std::isupper(static_cast<unsigned char>(clause[i])) != 0;
    };
    if (is_upper(0) && !is_upper(1)) {
        clause[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(clause[0])));
    }
    return clause;
}

} // namespace codec
