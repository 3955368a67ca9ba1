// All numbers are whole. With from and to pixels in a direction, a pixel of the picture is to units long and one of the result
// from units, so every overlap is a whole number of units and the weights of a pixel of the result add up to the product of the
// picture's sides: 2^28 for the largest picture, times 255 well inside 64 bits.
#include "kohost/working_copy.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace kohost {

namespace {

// A side that is not reduced further, so that narrow pictures keep something to measure.
constexpr uint32_t smallest_side = 64;

constexpr int most_halvings = 3;

// The pixels in the middle of the areas that the pixels of the result cover.
Image sample_of(const Image &picture, Size size) {
    Image sample{size, picture.channels, {}};
    sample.bytes.reserve(size.area() * picture.channels);
    const auto middle = [](uint32_t i, uint32_t from, uint32_t to) {
        return (2 * uint64_t{i} + 1) * from / (2 * uint64_t{to});
    };
    for (uint32_t y = 0; y < size.height; ++y) {
        const uint8_t *row =
            picture.bytes.data() + middle(y, picture.size.height, size.height) * picture.size.width * picture.channels;
        for (uint32_t x = 0; x < size.width; ++x) {
            const uint8_t *pixel = row + middle(x, picture.size.width, size.width) * picture.channels;
            sample.bytes.insert(sample.bytes.end(), pixel, pixel + picture.channels);
        }
    }
    return sample;
}

// The sums of one row of the picture over the pixels of the result.
template <uint32_t Channels> void sum_over(const uint8_t *pixels, uint64_t from, uint64_t to, uint64_t *sums) {
    std::fill_n(sums, to * Channels, uint64_t{0});
    uint64_t x = 0;    // of the picture
    uint64_t left = 0; // units of pixel x that belong to earlier pixels of the result
    for (uint64_t i = 0; i < to; ++i, sums += Channels) {
        uint64_t room = from; // units of this result that are not covered yet
        if (left > 0) {
            const uint64_t rest = to - left;
            for (uint32_t c = 0; c < Channels; ++c) {
                sums[c] = rest * pixels[x * Channels + c];
            }
            room -= rest;
            ++x;
        }
        const uint64_t end = x + room / to;
        uint64_t whole[Channels] = {};
        for (; x < end; ++x) {
            for (uint32_t c = 0; c < Channels; ++c) {
                whole[c] += pixels[x * Channels + c];
            }
        }
        left = room % to;
        for (uint32_t c = 0; c < Channels; ++c) {
            sums[c] += to * whole[c] + (left > 0 ? left * pixels[x * Channels + c] : 0);
        }
    }
}

} // namespace

Size working_size(Size picture, uint64_t area) {
    if (picture.area() <= area) {
        return picture;
    }
    const double scale = std::sqrt(static_cast<double>(area) / static_cast<double>(picture.area()));
    const auto side = [scale](uint32_t pixels) {
        const auto scaled = static_cast<uint32_t>(std::lround(pixels * scale));
        return std::max(scaled, std::min(pixels, smallest_side));
    };
    return {side(picture.width), side(picture.height)};
}

Size halved_size(Size picture, Size working) {
    const auto suffices = [](uint32_t pixels, uint32_t wanted) { return pixels >= uint64_t{wanted} * 3 / 2; };
    Size halved = picture;
    for (int i = 0; i < most_halvings; ++i) {
        const Size next = {(halved.width + 1) / 2, (halved.height + 1) / 2};
        if (working == picture || !suffices(next.width, working.width) || !suffices(next.height, working.height)) {
            break;
        }
        halved = next;
    }
    return halved;
}

WorkingCopy make_working_copy(Image &&halved, Size working) {
    if (halved.size == working) {
        return {std::move(halved), {}};
    }
    return {reduced(halved.pixels(), working), sample_of(halved, working)};
}

WorkingCopy working_copy_of(const Pixels &picture, uint64_t area) {
    const Size working = working_size(picture.size, area);
    return make_working_copy(reduced(picture, halved_size(picture.size, working)), working);
}

AreaAverage::AreaAverage(Size from, Size to, uint32_t channels)
    : from_(from), image_{to, channels, std::vector<uint8_t>(to.area() * channels)}, sums_(size_t{to.width} * channels),
      columns_(sums_.size()) {}

void AreaAverage::add(uint32_t rows, const uint8_t *pixels) {
    const size_t row_bytes = size_t{from_.width} * image_.channels;
    if (from_ == image_.size) { // each average is that of one pixel
        std::copy_n(pixels, rows * row_bytes, image_.bytes.data() + row_ * row_bytes);
        row_ += rows;
        return;
    }
    for (const uint8_t *end = pixels + rows * row_bytes; pixels != end; pixels += row_bytes) {
        sum_row(pixels);
        const uint64_t top = row_ * image_.size.height; // in units
        const uint64_t bottom = top + image_.size.height;
        const uint64_t edge = (ended_ + 1) * from_.height; // of the result's row in progress
        add_weighted(std::min(bottom, edge) - top);
        if (bottom >= edge) {
            end_row();
            add_weighted(bottom - edge);
        }
        ++row_;
    }
}

Image AreaAverage::take() { return std::move(image_); }

void AreaAverage::sum_row(const uint8_t *pixels) {
    if (image_.channels == 1) {
        sum_over<1>(pixels, from_.width, image_.size.width, sums_.data());
    } else {
        sum_over<3>(pixels, from_.width, image_.size.width, sums_.data());
    }
}

void AreaAverage::add_weighted(uint64_t weight) {
    for (size_t i = 0; i < sums_.size(); ++i) {
        columns_[i] += weight * sums_[i];
    }
}

// Sum and divisor are far below 2^53, so the quotient in double precision never rounds up to a whole number.
void AreaAverage::end_row() {
    const uint64_t total = from_.area();
    uint8_t *to = image_.bytes.data() + ended_ * sums_.size();
    for (size_t i = 0; i < columns_.size(); ++i) {
        to[i] = static_cast<uint8_t>(static_cast<double>(columns_[i] + total / 2) / static_cast<double>(total));
    }
    std::fill(columns_.begin(), columns_.end(), uint64_t{0});
    ++ended_;
}

Image reduced(const Pixels &picture, Size size) {
    AreaAverage average(picture.size, size, picture.channels);
    average.add(picture.size.height, picture.bytes);
    return average.take();
}

Image reduced_in_steps(const Pixels &picture, uint64_t area) {
    const Size working = working_size(picture.size, area);
    return reduced(reduced(picture, halved_size(picture.size, working)).pixels(), working);
}

} // namespace kohost
