#include "codec/wic/jpeg_file.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace codec::wic {

namespace {

constexpr int start_of_scan = 0xda;
constexpr int end_of_image = 0xd9;
constexpr int quantisation_marker = 0xdb;

bool is_frame(int marker) { return marker >= 0xc0 && marker <= 0xcf && marker != 0xc4 && marker != 0xc8 && marker != 0xcc; }

bool stands_alone(int marker) { return (marker >= 0xd0 && marker <= 0xd8) || marker == 0x01; }

// The bytes of a file from the first to the last, with one buffer.
class Bytewise {
  public:
    Bytewise(Input &input, uint64_t position) : input_(input), position_(position) {}

    uint64_t position() const { return position_ - count_ + next_; }

    uint8_t byte() {
        if (next_ == count_) {
            fill();
        }
        return room_[next_++];
    }

    // The next marker. What stands before it is passed over: coded pixels, in which a zero follows each byte that looks like
    // one.
    int marker() {
        while (true) {
            while (byte() != 0xff) {
            }
            uint8_t marker = byte();
            while (marker == 0xff) {
                marker = byte();
            }
            if (marker != 0) {
                return marker;
            }
        }
    }

    Bytes segment() {
        const size_t high = byte();
        const size_t size = high << 8 | byte();
        if (size < 2) {
            throw Error("the header is damaged");
        }
        Bytes bytes(size - 2);
        std::generate(bytes.begin(), bytes.end(), [this] { return byte(); });
        return bytes;
    }

  private:
    void fill() {
        const std::optional<size_t> count = input_.read(position_, room_);
        if (!count) {
            throw Error(input_.failure());
        }
        if (*count == 0) {
            throw Error("premature end of JPEG file");
        }
        position_ += *count;
        count_ = *count;
        next_ = 0;
    }

    Input &input_;
    uint64_t position_; // in the input, behind the buffer
    std::array<uint8_t, 1 << 16> room_;
    size_t count_ = 0;
    size_t next_ = 0;
};

uint32_t pair_at(const Bytes &bytes, size_t position) { return uint32_t{bytes[position]} << 8 | bytes[position + 1]; }

// Where the steps stand among the rows of a block, in the order in which a file has them: from corner to corner, diagonal by
// diagonal, up and down in turn.
std::array<size_t, 64> zigzag() {
    std::array<size_t, 64> order{};
    size_t next = 0;
    for (size_t diagonal = 0; diagonal < 15; ++diagonal) {
        for (size_t i = 0; i <= diagonal; ++i) {
            const size_t row = diagonal % 2 == 0 ? diagonal - i : i;
            if (const size_t column = diagonal - row; row < 8 && column < 8) {
                order[next++] = row * 8 + column;
            }
        }
    }
    return order;
}

using Steps = std::array<uint16_t, 64>;

// The tables that a file defines, and which of them its components use.
struct Tables {
    std::array<std::optional<Steps>, 4> steps;
    std::vector<uint8_t> used;

    void add(const Bytes &bytes) {
        static const std::array<size_t, 64> order = zigzag();
        size_t position = 0;
        while (position < bytes.size()) {
            const bool deep = bytes[position] >> 4 != 0;
            const size_t size = deep ? 128 : 64;
            Steps table{};
            if (bytes.size() - ++position < size) {
                return;
            }
            for (size_t i = 0; i < table.size(); ++i) {
                table[order[i]] = static_cast<uint16_t>(deep ? pair_at(bytes, position + 2 * i) : bytes[position + i]);
            }
            steps[bytes[position - 1] & 3] = table;
            position += size;
        }
    }

    std::optional<JpegQuantisation> quantisation() const {
        const std::optional<Steps> &luminance = steps[used.empty() ? 0 : used[0]];
        const std::optional<Steps> &colours = steps[used.size() == 3 ? used[1] : used.empty() ? 0 : used[0]];
        return luminance && colours ? std::optional(JpegQuantisation{*luminance, *colours}) : std::nullopt;
    }
};

// As far as the finer of two colour components that differ; ratios that are not whole numbers count as full colour.
Subsampling subsampling_of(const std::array<uint8_t, 4> &factors) {
    const auto ratio = [&](int shift) {
        const auto factor = [&](size_t component) { return std::max(factors[component] >> shift & 15, 1); };
        const auto to = [&](size_t colour) { return factor(0) % factor(colour) == 0 ? factor(0) / factor(colour) : 1; };
        return std::min(to(1), to(2));
    };
    return {ratio(4), ratio(0)};
}

void add_frame(const Bytes &bytes, int marker, JpegOutline &outline, Tables &tables) {
    if (bytes.size() < 6 || bytes.size() < 6 + 3 * size_t{bytes[5]}) {
        throw Error("the header is damaged");
    }
    outline.progressive = marker == 0xc2;
    outline.height = pair_at(bytes, 1);
    outline.width = pair_at(bytes, 3);
    outline.components = bytes[5];
    std::array<uint8_t, 4> factors{};
    tables.used.clear();
    for (size_t i = 0; i < std::min<size_t>(outline.components, factors.size()); ++i) {
        factors[i] = bytes[7 + 3 * i];
        if (i < outline.numbers.size()) {
            outline.numbers[i] = bytes[6 + 3 * i];
        }
        tables.used.push_back(bytes[8 + 3 * i] & 3);
    }
    outline.subsampling = outline.components == 3 ? subsampling_of(factors) : Subsampling{};
}

bool is_kept(int marker) { return (marker >= app0 && marker <= last_app) || marker == comment_marker; }

} // namespace

JpegOutline read_outline(Input &input) {
    Bytewise file(input, 0);
    JpegOutline outline;
    Tables tables;
    while (true) {
        const int marker = file.marker();
        if (marker == end_of_image) {
            throw Error("the file has no picture");
        }
        if (stands_alone(marker)) {
            continue;
        }
        Bytes bytes = file.segment();
        if (marker == start_of_scan) {
            break;
        }
        if (marker == quantisation_marker) {
            tables.add(bytes);
        } else if (is_frame(marker)) {
            add_frame(bytes, marker, outline, tables);
        } else if (is_kept(marker)) {
            outline.segments.push_back({marker, std::move(bytes)});
        }
    }
    if (outline.components == 0) {
        throw Error("the header is damaged");
    }
    outline.quantisation = tables.quantisation();
    outline.pixels = file.position();
    return outline;
}

uint64_t read_to_end(Input &input, JpegOutline &outline) {
    Bytewise file(input, outline.pixels);
    while (true) {
        const int marker = file.marker();
        if (marker == end_of_image) {
            return file.position();
        }
        if (stands_alone(marker)) {
            continue;
        }
        if (Bytes bytes = file.segment(); is_kept(marker)) {
            outline.segments.push_back({marker, std::move(bytes)});
        }
    }
}

// Each part has its number, from 1, and the number of all.
Bytes profile_in(const std::vector<JpegSegment> &segments) {
    constexpr size_t own = icc_mark.size() + 2;
    std::array<const Bytes *, 256> parts{};
    size_t count = 0;
    for (const JpegSegment &segment : segments) {
        const Bytes &bytes = segment.bytes;
        if (segment.marker == app2 && bytes.size() >= own && std::equal(icc_mark.begin(), icc_mark.end(), bytes.begin())) {
            parts[bytes[own - 2]] = &bytes;
            count = bytes[own - 1];
        }
    }
    Bytes profile;
    for (size_t number = 1; number <= count; ++number) {
        if (parts[number] == nullptr) {
            return {};
        }
        profile.insert(profile.end(), parts[number]->begin() + own, parts[number]->end());
    }
    return profile;
}

// The steps of luminance that the standard of the format gives as an example are those of quality 50, which encoders scale.
int quality_of(const JpegQuantisation &quantisation) {
    constexpr std::array<int, 64> example = {16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
                                             14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
                                             18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
                                             49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
    int best = 1;
    int64_t least = INT64_MAX;
    for (int quality = 1; quality <= 100; ++quality) {
        const int percent = quality < 50 ? 5000 / quality : 200 - 2 * quality;
        int64_t difference = 0;
        for (size_t i = 0; i < example.size(); ++i) {
            difference += std::abs(std::clamp((example[i] * percent + 50) / 100, 1, 255) - quantisation.luminance[i]);
        }
        if (difference < least) {
            least = difference;
            best = quality;
        }
    }
    return best;
}

} // namespace codec::wic
