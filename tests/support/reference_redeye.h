// The search for red eyes in its plainest form, from the picture to the list of blobs: one pixel, one circle, one blob at a
// time. Every stage takes what the one before it left in the same record and writes its progress to the record's log.
#ifndef KO_TESTS_REFERENCE_REDEYE_H
#define KO_TESTS_REFERENCE_REDEYE_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "ko/concomp.h"

#include "redeye_scene.h"

namespace ko_test {

struct ReferenceRedEye {
    // settings
    uint64_t max_image_size = 1000000;
    uint64_t smallest_side = 3;
    uint64_t smallest_side_floor = 2;
    int32_t most_blobs = 50;
    bool forgets_counts = false; // true: what the search does not do, it wipes its counters between two blobs entirely
    // what the stages leave
    RedEyePlanes working;
    float scale = 0.0f;
    RedEyeMap reddish;
    RedEyeMap red_lum;
    RedEyeMap col;
    float map_max = 0.0f;
    uint64_t min_blob_size = 0;
    uint64_t max_blob_size = 0;
    uint32_t label_count = 0;
    uint32_t local_label_count = 0;
    int32_t blob_count = 0;
    std::vector<uint32_t> blob_mask;
    std::vector<BlobInfo> final_blobs; // from 1 on
    bool too_many_blobs = false;
    std::string log;
};

template <class... Values> void write_log(ReferenceRedEye &eye, const char *format, Values... values) {
    char line[200];
    std::snprintf(line, sizeof line, format, values...);
    eye.log += line;
}

// The working picture.

inline RedEyeMap reduced(const RedEyeMap &plane, uint64_t width, uint64_t height) {
    const float across = static_cast<float>(plane.width) / static_cast<float>(width);
    const float down = static_cast<float>(plane.height) / static_cast<float>(height);
    RedEyeMap result{width, height, {}};
    for (uint64_t y = 0; y < height; ++y) {
        const float source_y = (static_cast<float>(y) + 0.5f) * down;
        for (uint64_t x = 0; x < width; ++x) {
            const float source_x = (static_cast<float>(x) + 0.5f) * across;
            result.pixels.push_back(plane.at(static_cast<uint64_t>(source_x), static_cast<uint64_t>(source_y)));
        }
    }
    return result;
}

inline void reference_downsample(ReferenceRedEye &eye, const RedEyePlanes &picture) {
    const uint64_t size = picture[0].width * picture[0].height;
    if (size <= eye.max_image_size) {
        eye.min_blob_size = eye.smallest_side;
        eye.working = picture;
        return;
    }
    const float quotient = static_cast<float>(size) / static_cast<float>(eye.max_image_size);
    const double hundredths = std::floor(std::sqrt(static_cast<double>(quotient)) * 100.0 + 0.5);
    eye.scale = static_cast<float>(hundredths) / 100.0f;
    write_log(eye, "resizing with scale factor %f \n", static_cast<double>(eye.scale));
    const uint64_t width = static_cast<uint64_t>(static_cast<float>(picture[0].width) / eye.scale);
    const uint64_t height = static_cast<uint64_t>(static_cast<float>(picture[0].height) / eye.scale);
    for (size_t c = 0; c < 3; ++c) {
        eye.working[c] = reduced(picture[c], width, height);
    }
    const float side = static_cast<float>(eye.smallest_side) / eye.scale;
    eye.min_blob_size = std::max(static_cast<uint64_t>(std::ceil(static_cast<double>(side))), eye.smallest_side_floor);
}

// The colour maps.

inline RedEyeMap weighted(const RedEyePlanes &picture, float w0, float w1, float w2) {
    RedEyeMap map{picture[0].width, picture[0].height, {}};
    for (size_t i = 0; i < picture[0].pixels.size(); ++i) {
        const float first = w0 * picture[0].pixels[i];
        const float second = w1 * picture[1].pixels[i];
        const float third = w2 * picture[2].pixels[i];
        const float two = first + second;
        const float sum = two + third;
        map.pixels.push_back(sum > 0.0f ? sum : 0.0f);
    }
    return map;
}

inline void normalize(RedEyeMap &map) {
    float maximum = 0.0f;
    for (const float value : map.pixels) {
        maximum = value > maximum ? value : maximum;
    }
    for (float &value : map.pixels) {
        value = value / maximum;
    }
}

inline void reference_reddish(ReferenceRedEye &eye, bool normalized) {
    eye.reddish = weighted(eye.working, 1.0f, -0.5f, -0.5f);
    if (normalized) {
        normalize(eye.reddish);
    }
}

inline void reference_red_lum(ReferenceRedEye &eye, bool normalized) {
    eye.red_lum = weighted(eye.working, 1.75f, -1.6f, -1.15f);
    if (normalized) {
        normalize(eye.red_lum);
    }
}

inline void reference_col(ReferenceRedEye &eye) {
    eye.map_max = 0.0f;
    eye.col = {eye.reddish.width, eye.reddish.height, {}};
    for (size_t i = 0; i < eye.reddish.pixels.size(); ++i) {
        const float product = eye.reddish.pixels[i] * eye.red_lum.pixels[i];
        eye.col.pixels.push_back(product);
        if (product > eye.map_max) {
            eye.map_max = product;
        }
    }
    for (float &value : eye.col.pixels) {
        value = value / eye.map_max;
    }
}

// Circularity.

// Seven diameters, or none for a budget that has no list.
inline std::vector<int> circle_diameters(uint64_t max_image_size) {
    switch (max_image_size == 0 ? 0 : 1000000 / max_image_size) {
    case 1:
        return {3, 5, 9, 13, 19, 23, 27};
    case 4:
        return {3, 5, 7, 9, 13, 15, 19};
    case 8:
        return {3, 5, 7, 9, 11, 13, 15};
    default:
        return {};
    }
}

using CircleOffsets = std::array<std::pair<int, int>, 8>;

inline CircleOffsets circle_offsets(int diameter) {
    const int r = (diameter - 1) / 2;
    const int d = static_cast<int>(std::floor(static_cast<double>(r + 1) * static_cast<double>(0.7f)));
    return {{{0, r}, {0, -r}, {r, 0}, {-r, 0}, {-d, -d}, {-d, d}, {d, -d}, {d, d}}};
}

inline void lower_to_circle_sums(const RedEyeMap &map, int diameter, RedEyeMap &minimum) {
    const CircleOffsets offsets = circle_offsets(diameter);
    const int64_t h = diameter / 2;
    for (int64_t y = h; y < static_cast<int64_t>(map.height) - h; ++y) {
        for (int64_t x = h; x < static_cast<int64_t>(map.width) - h; ++x) {
            if (map.at(static_cast<uint64_t>(x), static_cast<uint64_t>(y)) == 0.0f) {
                continue;
            }
            float sum = 0.0f;
            for (const auto &[dx, dy] : offsets) {
                sum += map.at(static_cast<uint64_t>(x + dx), static_cast<uint64_t>(y + dy));
            }
            float &lowest = minimum.pixels[static_cast<size_t>(y) * map.width + static_cast<size_t>(x)];
            if (lowest > sum) {
                lowest = sum;
            }
        }
    }
}

inline void reference_circularity(ReferenceRedEye &eye) {
    RedEyeMap minimum{eye.col.width, eye.col.height, std::vector<float>(eye.col.pixels.size(), 8.0f)};
    for (const int diameter : circle_diameters(eye.max_image_size)) {
        lower_to_circle_sums(eye.col, diameter, minimum);
    }
    float m = 0.0f;
    for (size_t i = 0; i < eye.col.pixels.size(); ++i) {
        const float v = 4.0f * eye.col.pixels[i] - minimum.pixels[i];
        if (v < 0.0f) {
            minimum.pixels[i] = 0.0f;
            continue;
        }
        minimum.pixels[i] = v;
        if (v > m) {
            m = v;
        }
    }
    for (size_t i = 0; i < eye.col.pixels.size(); ++i) {
        eye.col.pixels[i] = minimum.pixels[i] / m;
    }
}

// Components.

// A window of a map, bounds included.
struct RedEyeWindow {
    uint64_t x0 = 0;
    uint64_t x1 = 0;
    uint64_t y0 = 0;
    uint64_t y1 = 0;

    uint64_t width() const { return x1 - x0 + 1; }
    uint64_t height() const { return y1 - y0 + 1; }
};

struct RedEyeLabelling {
    uint64_t width = 0;
    uint64_t height = 0;
    std::vector<uint32_t> labels;      // provisional, a pixel
    std::vector<uint32_t> table = {0}; // label to root
    std::vector<BlobInfo> info;        // by root
    int32_t components = 0;

    uint32_t count() const { return static_cast<uint32_t>(table.size() - 1); }
    uint32_t root(uint64_t x, uint64_t y) const { return table[labels[y * width + x]]; }
    uint32_t find(uint32_t label) const {
        while (table[label] != label) {
            label = table[label];
        }
        return label;
    }
    // the root of a neighbour, 0 outside and where nothing is lit
    uint32_t neighbour(uint64_t x, uint64_t y, int dx, int dy) const {
        const int64_t column = static_cast<int64_t>(x) + dx;
        const int64_t row = static_cast<int64_t>(y) + dy;
        if (column < 0 || column >= static_cast<int64_t>(width) || row < 0) {
            return 0;
        }
        return find(labels[static_cast<size_t>(row) * width + static_cast<size_t>(column)]);
    }
};

inline uint32_t label_for_lit(RedEyeLabelling &result, uint64_t x, uint64_t y) {
    const uint32_t roots[] = {result.neighbour(x, y, -1, 0), result.neighbour(x, y, 0, -1), result.neighbour(x, y, -1, -1),
                              result.neighbour(x, y, 1, -1)};
    uint32_t chosen = 0;
    for (const uint32_t root : roots) {
        chosen = chosen == 0 ? root : chosen;
    }
    if (chosen == 0) {
        result.table.push_back(result.count() + 1);
        return result.count();
    }
    for (const uint32_t root : roots) {
        if (root != 0 && root != chosen) {
            result.table[root] = chosen;
        }
    }
    return chosen;
}

inline void summarize(RedEyeLabelling &result) {
    result.info.assign(result.table.size(), BlobInfo{0, 0, 0, 0, 0});
    for (uint64_t y = 0; y < result.height; ++y) {
        for (uint64_t x = 0; x < result.width; ++x) {
            const uint32_t r = result.root(x, y);
            if (r == 0) {
                continue;
            }
            BlobInfo &blob = result.info[r];
            const uint32_t column = static_cast<uint32_t>(x);
            const uint32_t row = static_cast<uint32_t>(y);
            if (blob.area == 0) {
                blob = {column, column, row, row, 1};
                ++result.components;
                continue;
            }
            ++blob.area;
            blob.min_x = std::min(blob.min_x, column);
            blob.max_x = std::max(blob.max_x, column);
            blob.min_y = std::min(blob.min_y, row);
            blob.max_y = std::max(blob.max_y, row);
        }
    }
}

inline RedEyeLabelling label_window(const RedEyeMap &map, float threshold, const RedEyeWindow &window) {
    RedEyeLabelling result;
    result.width = window.width();
    result.height = window.height();
    for (uint64_t y = 0; y < result.height; ++y) {
        for (uint64_t x = 0; x < result.width; ++x) {
            const bool lit = map.at(window.x0 + x, window.y0 + y) > threshold;
            result.labels.push_back(lit ? label_for_lit(result, x, y) : 0);
        }
    }
    for (uint32_t i = 0; i < result.table.size(); ++i) {
        result.table[i] = result.find(i);
    }
    summarize(result);
    return result;
}

// Location of blobs.

// Counters of 64 bits, each kept as its lower and its upper word.
class RedEyeCounters {
  public:
    explicit RedEyeCounters(uint64_t count) : words_(2 * count, 0) {}
    uint64_t get(uint64_t i) const { return words_[2 * i] | static_cast<uint64_t>(words_[2 * i + 1]) << 32; }
    void increment(uint64_t i) {
        const uint64_t next = get(i) + 1;
        words_[2 * i] = static_cast<uint32_t>(next);
        words_[2 * i + 1] = static_cast<uint32_t>(next >> 32);
    }
    void clear_words(uint64_t count) { std::fill_n(words_.begin(), count, 0u); }

  private:
    std::vector<uint32_t> words_;
};

inline uint64_t box_width(const BlobInfo &blob) { return uint64_t{blob.max_x} - blob.min_x + 1; }
inline uint64_t box_height(const BlobInfo &blob) { return uint64_t{blob.max_y} - blob.min_y + 1; }

inline float filled_share(const BlobInfo &blob) {
    return static_cast<float>(blob.area) / static_cast<float>(box_width(blob) * box_height(blob));
}

inline bool passes_first_test(const ReferenceRedEye &eye, const BlobInfo &blob) {
    const uint64_t w = box_width(blob);
    const uint64_t h = box_height(blob);
    return eye.min_blob_size <= w && w <= eye.max_blob_size && eye.min_blob_size <= h && h <= eye.max_blob_size &&
           !(filled_share(blob) < 0.25f) && h <= 2 * w && w <= 2 * h;
}

inline bool passes_second_test(const ReferenceRedEye &eye, const BlobInfo &blob, const BlobInfo &old) {
    const uint64_t w = box_width(blob);
    const uint64_t h = box_height(blob);
    return eye.min_blob_size < w && w < eye.max_blob_size && eye.min_blob_size < h && h < eye.max_blob_size && h <= 2 * w &&
           w <= 2 * h && filled_share(blob) > 0.25f && static_cast<float>(old.area) / static_cast<float>(blob.area) > 0.25f;
}

// Sets the entries of rejected components to 0 and returns how many are kept.
inline int32_t first_test(const ReferenceRedEye &eye, RedEyeLabelling &whole) {
    std::vector<bool> seen(whole.table.size(), false);
    std::vector<bool> rejected(whole.table.size(), false);
    int32_t kept = 0;
    for (uint32_t i = 1; i <= whole.count(); ++i) {
        const uint32_t r = whole.table[i];
        if (!seen[r]) {
            seen[r] = true;
            rejected[r] = !passes_first_test(eye, whole.info[r]);
            kept += rejected[r] ? 0 : 1;
        }
        if (rejected[r]) {
            whole.table[i] = 0;
        }
    }
    return kept;
}

inline std::vector<float> sums_per_blob(const RedEyeMap &map, const RedEyeLabelling &whole) {
    std::vector<float> sums(whole.table.size(), 0.0f);
    for (size_t i = 0; i < map.pixels.size(); ++i) {
        const uint32_t r = whole.table[whole.labels[i]];
        if (r != 0) {
            sums[r] += map.pixels[i];
        }
    }
    return sums;
}

inline RedEyeWindow window_around(const BlobInfo &blob, uint64_t width, uint64_t height) {
    const auto low = [](uint32_t minimum, uint32_t maximum) {
        return static_cast<uint64_t>(std::max<int64_t>(0, 3 * int64_t{minimum} - 2 * int64_t{maximum} - 2));
    };
    const auto high = [](uint32_t minimum, uint32_t maximum, uint64_t length) {
        const int64_t end = 3 * int64_t{maximum} - 2 * int64_t{minimum} + 2;
        return static_cast<uint64_t>(std::min<int64_t>(end, static_cast<int64_t>(length) - 1));
    };
    return {low(blob.min_x, blob.max_x), high(blob.min_x, blob.max_x, width), low(blob.min_y, blob.max_y),
            high(blob.min_y, blob.max_y, height)};
}

inline void store_final_blob(ReferenceRedEye &eye, const RedEyeLabelling &local, const RedEyeWindow &window,
                             const RedEyeCounters &overlap, const BlobInfo &old) {
    uint32_t best = 0;
    uint64_t greatest = 0;
    for (uint32_t i = 1; i <= local.count(); ++i) {
        const uint32_t q = local.table[i];
        if (overlap.get(q) > greatest) {
            greatest = overlap.get(q);
            best = q;
        }
    }
    // A winner without pixels cannot be: only roots are looked at, and every root has a pixel.
    if (best == 0 || !passes_second_test(eye, local.info[best], old)) {
        return;
    }
    ++eye.blob_count;
    for (uint64_t y = 0; y < local.height; ++y) {
        for (uint64_t x = 0; x < local.width; ++x) {
            if (local.root(x, y) == best) {
                eye.blob_mask[(window.y0 + y) * eye.col.width + window.x0 + x] = static_cast<uint32_t>(eye.blob_count);
            }
        }
    }
    const uint32_t x0 = static_cast<uint32_t>(window.x0);
    const uint32_t y0 = static_cast<uint32_t>(window.y0);
    const BlobInfo &found = local.info[best];
    eye.final_blobs[static_cast<size_t>(eye.blob_count)] = {found.min_x + x0, found.max_x + x0, found.min_y + y0,
                                                            found.max_y + y0, found.area};
}

inline void refine_blob(ReferenceRedEye &eye, const RedEyeLabelling &whole, const std::vector<float> &sums, uint32_t r,
                        RedEyeCounters &overlap) {
    const BlobInfo &blob = whole.info[r];
    const RedEyeWindow window = window_around(blob, eye.red_lum.width, eye.red_lum.height);
    const float quarter = sums[r] * 0.25f;
    const RedEyeLabelling local = label_window(eye.red_lum, quarter / static_cast<float>(blob.area), window);
    eye.local_label_count = local.count();
    for (uint64_t y = 0; y < local.height; ++y) {
        for (uint64_t x = 0; x < local.width; ++x) {
            const uint32_t q = local.root(x, y);
            if (q != 0 && whole.root(window.x0 + x, window.y0 + y) == r) {
                overlap.increment(q);
            }
        }
    }
    store_final_blob(eye, local, window, overlap, blob);
    overlap.clear_words((eye.forgets_counts ? 2 : 1) * (uint64_t{local.count()} + 1));
}

inline void second_test(ReferenceRedEye &eye, const RedEyeLabelling &whole) {
    const std::vector<float> sums = sums_per_blob(eye.red_lum, whole);
    std::vector<bool> done(whole.table.size(), false);
    done[0] = true;
    RedEyeCounters overlap(eye.red_lum.pixels.size() + 2);
    eye.blob_count = 0;
    eye.blob_mask.assign(eye.red_lum.pixels.size(), 0);
    eye.final_blobs.assign(whole.table.size(), BlobInfo{0, 0, 0, 0, 0});
    for (uint32_t i = 1; i <= whole.count(); ++i) {
        const uint32_t r = whole.table[i];
        if (!done[r]) {
            refine_blob(eye, whole, sums, r, overlap);
            done[r] = true;
        }
    }
    write_log(eye, "-> reduced to %i final blobs after 2nd test \n", eye.blob_count);
    if (eye.blob_count > eye.most_blobs) {
        eye.too_many_blobs = true;
        write_log(eye, "*** too many (over %i) blobs detected - no further processing of this image \n", eye.most_blobs);
    }
}

inline void wipe_outside_blobs(ReferenceRedEye &eye) {
    eye.map_max = 0.0f;
    for (size_t i = 0; i < eye.red_lum.pixels.size(); ++i) {
        if (eye.blob_mask[i] == 0) {
            eye.red_lum.pixels[i] = 0.0f;
        } else if (eye.red_lum.pixels[i] > eye.map_max) {
            eye.map_max = eye.red_lum.pixels[i];
        }
    }
}

inline void reference_locate(ReferenceRedEye &eye) {
    const uint64_t shorter = std::min(eye.col.width, eye.col.height);
    eye.max_blob_size = static_cast<uint64_t>(std::ceil(static_cast<double>(shorter) * 0.1));
    RedEyeLabelling whole;
    if (shorter > 0) {
        whole = label_window(eye.col, 0.1f, {0, eye.col.width - 1, 0, eye.col.height - 1});
    }
    eye.label_count = whole.count();
    write_log(eye, "-> %i blobs detected \n", whole.components);
    const int32_t kept = first_test(eye, whole);
    write_log(eye, "-> reduced to %i blobs after first test \n", kept);
    second_test(eye, whole);
    if (!eye.too_many_blobs) {
        wipe_outside_blobs(eye);
    }
}

// All stages in their order.
inline void reference_search(ReferenceRedEye &eye, const RedEyePlanes &picture) {
    reference_downsample(eye, picture);
    reference_reddish(eye, true);
    reference_red_lum(eye, true);
    reference_col(eye);
    reference_circularity(eye);
    reference_locate(eye);
}

} // namespace ko_test

#endif
